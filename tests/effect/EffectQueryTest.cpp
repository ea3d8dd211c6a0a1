// The queries: handles of each form, lookups by index, name, path and
// semantic, descriptions, and what each says when it finds nothing.

#include "D3D9RenderSystem/D3D9ParseEffect.h"
#include "EffectBuilder.h"
#include "EffectLogCapture.h"
#include "FullEffect.h"

#include <gtest/gtest.h>

using namespace fxtest;

namespace
{

class EffectQuery : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const Bytes bytes = BuildFullEffect();
        ASSERT_TRUE(fx.Parse(bytes.data(), static_cast<uint32_t>(bytes.size())));
        log.Clear();
    }
    EffectHandle ByName(const char* path) const { return fx.GetParameterByName(nullptr, path); }
    EffectHandle Top(uint32_t index) const { return fx.GetParameter(nullptr, index); }

    EffectLogCapture log;
    CD3D9ParseEffect fx;
};

} // namespace

TEST_F(EffectQuery, GetParameterByIndexAndElement)
{
    EXPECT_EQ(Param(Top(0))->name, std::string("World"));
    EXPECT_EQ(Top(P_COUNT), nullptr);
    EXPECT_EQ(log.Texts(), Lines{"Parameter not found.\n"});
    log.Clear();

    // Members through GetParameter, elements only through GetParameterElement.
    EXPECT_EQ(fx.GetParameter(ByName("Nest"), 1), ByName("Nest.flag"));
    EXPECT_EQ(fx.GetParameter(ByName("Nest"), 2), nullptr);
    EXPECT_EQ(fx.GetParameter(ByName("Pairs"), 0), nullptr);
    EXPECT_EQ(fx.GetParameterElement(ByName("Pairs"), 2), ByName("Pairs[2]"));
    EXPECT_EQ(fx.GetParameterElement(ByName("Pairs"), 3), nullptr);
    EXPECT_EQ(log.Texts(), (Lines{"Parameter not found.\n", "Parameter not found.\n", "Parameter not found.\n"}));

    // A handle that is no parameter: GetParameter fails, GetParameterElement
    // takes the top level.
    EffectHandle technique = fx.GetTechnique(0);
    EXPECT_EQ(fx.GetParameter(technique, 0), nullptr);
    EXPECT_EQ(fx.GetParameterElement(technique, 1), Top(1));
    EXPECT_EQ(fx.GetParameterElement(nullptr, P_ANONYMOUS), Top(P_ANONYMOUS));
}

TEST_F(EffectQuery, NamesAndPaths)
{
    EffectHandle nest = ByName("Nest");
    EffectHandle flag = fx.GetParameterByName(nest, "flag");
    ASSERT_NE(flag, nullptr);
    EXPECT_EQ(ByName("Nest.flag"), flag);
    EXPECT_EQ(ByName("flag"), nullptr); // members only below their parent
    EXPECT_EQ(fx.GetParameterByName(nest, nullptr), nest);
    EXPECT_EQ(ByName(nullptr), nullptr);
    EXPECT_EQ(ByName(""), nullptr);
    EXPECT_EQ(ByName("world"), nullptr); // names are case-sensitive
    EXPECT_TRUE(log.lines().empty());

    EXPECT_EQ(ByName("Pairs[1].b"), fx.GetParameter(fx.GetParameterElement(ByName("Pairs"), 1), 1));
    EXPECT_EQ(ByName("Pairs[1]"), fx.GetParameterElement(ByName("Pairs"), 1));
    EXPECT_EQ(ByName("Pairs[1"), nullptr);
    EXPECT_EQ(ByName("Pairs[]"), nullptr);
    EXPECT_EQ(ByName("Pairs[3]"), nullptr);
    EXPECT_EQ(ByName("Pairs[-1]"), nullptr);
    EXPECT_EQ(ByName("Pairs[1].c"), nullptr);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(ByName("Pairs[1]x"), nullptr);
    EXPECT_EQ(log.Texts(), Lines{"Unhandled case \"x\"\n"});
    log.Clear();

    // Annotations: "@", and on into an annotation's members; elements have none.
    EXPECT_EQ(ByName("World@UIName"), fx.GetAnnotation(ByName("World"), 0));
    EXPECT_EQ(ByName("Gain@Range.hi"), fx.GetParameter(fx.GetAnnotation(ByName("Gain"), 1), 1));
    EXPECT_EQ(ByName("Counts[0]@UIName"), nullptr);
    EXPECT_EQ(ByName("World@Nothing"), nullptr);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(ByName("Gain@Min@x"), nullptr);
    EXPECT_EQ(log.Texts(), Lines{"Unhandled case \"@\"\n"});
}

TEST(EffectQueryNames, ANameWithASeparatorMatchesWholeAndNullNamesNever)
{
    EffectBuilder b;
    const uint32_t none = b.String(nullptr);
    const uint32_t dotted = b.Put(NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, b.String("x.y"), none, 0, 1, 1));
    const uint32_t x = b.Put(
        StructType(b.String("x"), none, 0, {NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, b.String("y"), none, 0, 1, 1)}));
    const uint32_t anonymous = b.Put(NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, none, none, 0, 1, 1));
    const uint32_t value = b.Floats({1});
    b.Body();
    b.Put({3, 0, 0, 0, anonymous, value, 0, 0, dotted, value, 0, 0, x, value, 0, 0, 0, 0});
    const Bytes bytes = b.Finish();
    EffectLogCapture log;
    CD3D9ParseEffect fx;
    ASSERT_TRUE(fx.Parse(bytes.data(), static_cast<uint32_t>(bytes.size())));
    // "x.y" matches whole before "x" could split the path; below "x" the member.
    EXPECT_EQ(fx.GetParameterByName(nullptr, "x.y"), fx.GetParameter(nullptr, 1));
    EXPECT_EQ(fx.GetParameterByName(fx.GetParameter(nullptr, 2), "y"), fx.GetParameter(fx.GetParameter(nullptr, 2), 0));
    EXPECT_NE(fx.GetParameter(nullptr, 1), fx.GetParameter(fx.GetParameter(nullptr, 2), 0));
    // The nameless parameter matches no text, and a null semantic only null.
    EXPECT_EQ(fx.GetParameterBySemantic(nullptr, nullptr), fx.GetParameter(nullptr, 0));
    EXPECT_EQ(fx.GetParameterBySemantic(nullptr, ""), nullptr);
    EXPECT_TRUE(log.Has("Parameter not found.\n"));
}

TEST_F(EffectQuery, Semantics)
{
    EXPECT_EQ(fx.GetParameterBySemantic(nullptr, "world"), Top(P_WORLD));
    EXPECT_EQ(fx.GetParameterBySemantic(nullptr, "DIRECTION"), Top(P_LIGHTDIR));
    EXPECT_EQ(fx.GetParameterBySemantic(nullptr, nullptr), Top(P_VIEWT)); // first null semantic
    EXPECT_EQ(fx.GetParameterBySemantic(ByName("Nest"), nullptr), ByName("Nest.inner"));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(fx.GetParameterBySemantic(nullptr, "WORLDX"), nullptr);
    EXPECT_EQ(fx.GetParameterBySemantic(Top(P_WORLD), "WORLD"), nullptr); // no members
    EXPECT_EQ(fx.GetParameterBySemantic(fx.GetTechnique(0), "WORLD"), nullptr);
    EXPECT_EQ(log.Texts(), (Lines{"Parameter not found.\n", "Parameter not found.\n", "Parameter not found.\n"}));
}

TEST_F(EffectQuery, AnnotationsOfParametersTechniquesAndPasses)
{
    EffectHandle main = fx.GetTechnique(0);
    EffectHandle p0 = fx.GetPass(main, 0);
    EXPECT_STREQ(Param(fx.GetAnnotation(main, 0))->name, "Quality");
    EXPECT_STREQ(Param(fx.GetAnnotation(p0, 0))->name, "Alpha");
    EXPECT_EQ(fx.GetAnnotationByName(p0, "Alpha"), fx.GetAnnotation(p0, 0));
    EXPECT_EQ(fx.GetAnnotationByName(ByName("Gain"), "Range.lo"), ByName("Gain@Range.lo"));
    EXPECT_TRUE(log.lines().empty());

    EXPECT_EQ(fx.GetAnnotation(ByName("World"), 1), nullptr);
    EXPECT_EQ(fx.GetAnnotationByName(ByName("World"), nullptr), nullptr);
    EXPECT_EQ(fx.GetAnnotationByName(main, "Nothing"), nullptr);
    EXPECT_EQ(log.Texts(),
              (Lines{"Annotation not found.\n", "Invalid argument specified\n", "Annotation not found.\n"}));
    log.Clear();
    const int notAHandle = 0;
    EXPECT_EQ(fx.GetAnnotation(&notAHandle, 0), nullptr);
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].text, "Functions are not handled, yet!\n");
    EXPECT_EQ(log.lines()[0].level, EFFECT_LOG_ERROR);
    EXPECT_EQ(log.lines()[1].text, "Annotation not found.\n");
    EXPECT_EQ(log.lines()[1].level, EFFECT_LOG_WARNING);
}

TEST_F(EffectQuery, TechniquesAndPasses)
{
    EffectHandle main = fx.GetTechniqueByName("Main");
    ASSERT_EQ(main, fx.GetTechnique(0));
    D3DXTECHNIQUE_DESC td;
    ASSERT_EQ(fx.GetTechniqueDesc(nullptr, &td), EFFECT_OK); // null: the first
    EXPECT_STREQ(td.Name, "Main");
    EXPECT_EQ(td.Passes, 2u);
    EXPECT_EQ(td.Annotations, 1u);
    ASSERT_EQ(fx.GetTechniqueDesc(fx.GetTechnique(1), &td), EFFECT_OK);
    EXPECT_STREQ(td.Name, "Fallback");

    EffectHandle p1 = fx.GetPassByName(main, "P1");
    ASSERT_EQ(p1, fx.GetPass(main, 1));
    D3DXPASS_DESC pd;
    pd.pVertexShaderFunction = pd.pPixelShaderFunction = &td.Passes;
    ASSERT_EQ(fx.GetPassDesc(fx.GetPass(main, 0), &pd), EFFECT_OK);
    EXPECT_STREQ(pd.Name, "P0");
    EXPECT_EQ(pd.Annotations, 1u);
    EXPECT_EQ(pd.pVertexShaderFunction, nullptr);
    EXPECT_EQ(pd.pPixelShaderFunction, nullptr);
    EXPECT_TRUE(log.lines().empty());

    EXPECT_EQ(fx.GetTechnique(2), nullptr);
    EXPECT_EQ(fx.GetTechniqueByName("main"), nullptr);
    EXPECT_EQ(fx.GetTechniqueByName(nullptr), nullptr);
    EXPECT_EQ(fx.GetPass(main, 2), nullptr);
    EXPECT_EQ(fx.GetPass(p1, 0), nullptr);
    EXPECT_EQ(fx.GetPassByName(main, "p1"), nullptr);
    EXPECT_EQ(fx.GetPassByName(main, nullptr), nullptr);
    EXPECT_EQ(log.Texts(), (Lines{"Invalid argument specified.\n", "Technique not found.\n", "Technique not found.\n",
                                  "Pass not found.\n", "Pass not found.\n", "Pass not found.\n", "Pass not found.\n"}));
    log.Clear();
    EXPECT_EQ(fx.GetPassDesc(main, &pd), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(fx.GetPassDesc(p1, nullptr), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(fx.GetTechniqueDesc(p1, &td), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(fx.GetTechniqueDesc(main, nullptr), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(log.Texts(), Lines(4, "Invalid argument specified.\n"));
}

TEST_F(EffectQuery, DescriptionsStringsAndHandleForms)
{
    D3DXEFFECT_DESC ed;
    ASSERT_EQ(fx.GetDesc(&ed), EFFECT_OK);
    EXPECT_EQ(ed.Creator, nullptr);
    EXPECT_EQ(ed.Parameters, uint32_t(P_COUNT));
    EXPECT_EQ(ed.Techniques, 2u);
    EXPECT_EQ(ed.Functions, 0u);
    EXPECT_EQ(fx.GetDesc(nullptr), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(fx.GetFunctionDesc(nullptr, &ed), EFFECT_E_NOTIMPL);
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].text, "Invalid argument specified.\n");
    EXPECT_EQ(log.lines()[1].text, "stub!\n");
    EXPECT_EQ(log.lines()[1].level, EFFECT_LOG_ERROR);
    log.Clear();

    // Strings: only a string parameter that is no array.
    const char* text = "unchanged";
    EXPECT_EQ(fx.GetString(ByName("Mat.Map"), &text), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(fx.GetString(ByName("Textures[0]"), &text), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(fx.GetString(ByName("Message"), nullptr), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(fx.GetString(fx.GetTechnique(0), &text), EFFECT_E_INVALIDCALL);
    EXPECT_STREQ(text, "unchanged");
    EXPECT_EQ(log.Texts(), Lines(4, "Parameter not found.\n"));
    log.Clear();

    // A parameter handle is a slot of the table: neither between two slots nor
    // behind the last one, nor a technique's or pass's address.
    const ParsedEffect& e = fx.GetParsedEffect();
    D3DXPARAMETER_DESC d;
    const uintptr_t first = reinterpret_cast<uintptr_t>(e.handles);
    EXPECT_EQ(fx.GetParameterDesc(reinterpret_cast<EffectHandle>(first + 1), &d), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(fx.GetParameterDesc(&e.handles[e.handle_count], &d), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(fx.GetParameterDesc(fx.GetTechnique(0), &d), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(fx.GetParameterDesc(Top(0), nullptr), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(fx.GetParameterDesc(&e.handles[e.handle_count - 1], &d), EFFECT_OK);
    EXPECT_EQ(log.Texts(), Lines(4, "Invalid argument specified.\n"));
}

TEST(EffectQueryFailed, AFailedParseAnswersNothing)
{
    Bytes bytes = BuildFullEffect();
    bytes.resize(bytes.size() - 4);
    EffectLogCapture log;
    CD3D9ParseEffect fx;
    ASSERT_FALSE(fx.Parse(bytes.data(), static_cast<uint32_t>(bytes.size())));
    EXPECT_EQ(fx.GetParameter(nullptr, 0), nullptr);
    EXPECT_EQ(fx.GetParameterElement(nullptr, 0), nullptr);
    EXPECT_EQ(fx.GetParameterByName(nullptr, "World"), nullptr);
    EXPECT_EQ(fx.GetParameterBySemantic(nullptr, "WORLD"), nullptr);
    EXPECT_EQ(fx.GetTechnique(0), nullptr);
    D3DXTECHNIQUE_DESC td;
    EXPECT_EQ(fx.GetTechniqueDesc(nullptr, &td), EFFECT_E_INVALIDCALL);
}
