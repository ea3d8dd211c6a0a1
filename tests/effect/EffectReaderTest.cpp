// The tree the reader builds from the full effect and every query over it; what it says, and leaves behind, when a word
// of that effect is wrong; the bounds that keep untrusted files from hanging or bloating it; and truncations, changed
// bytes and failed allocations, which fail cleanly or never crash (natively under the address and undefined behaviour
// sanitizers).
#include "D3D9RenderSystem/D3D9ParseEffect.h"
#include "D3D9RenderSystem/EffectHeap.h"
#include "EffectBuilder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>

using namespace fxtest;

namespace
{

// Name/semantic, class, type, rows x columns, elements, annotations, members, flags and bytes of a parameter.
std::string Describe(const CD3D9ParseEffect& fx, EffectHandle handle)
{
    D3DXPARAMETER_DESC d;
    if (fx.GetParameterDesc(handle, &d) != EFFECT_OK)
        return "no parameter";
    return std::string(d.Name ? d.Name : "-") + "/" + (d.Semantic ? d.Semantic : "-") + " " + EffectClassName(d.Class) +
           " " + EffectTypeName(d.Type) + " " + std::to_string(d.Rows) + "x" + std::to_string(d.Columns) + " e" +
           std::to_string(d.Elements) + " a" + std::to_string(d.Annotations) + " m" + std::to_string(d.StructMembers) +
           " f" + std::to_string(d.Flags) + " " + std::to_string(d.Bytes) + "B";
}

typedef std::vector<EffectHandle> Handles;
typedef std::vector<uint32_t> Results;
typedef std::vector<std::pair<uint32_t, uint32_t>> WordChanges; // offset from byte 8, new word

Bytes Changed(Bytes bytes, const WordChanges& changes)
{
    for (const auto& c : changes)
        std::memcpy(&bytes[8 + c.first], &c.second, 4);
    return bytes;
}

// Reads bytes with a fresh reader, expecting ok, and answers what it said.
Lines Read(const Bytes& bytes, bool ok = false)
{
    CD3D9ParseEffect fx;
    EffectLogCapture log;
    EXPECT_EQ(ok, Parse(fx, bytes));
    return log.Texts();
}

class FullEffectTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(Parse(fx, BuildFullEffect()));
        EXPECT_EQ(Lines{"Parse preshader.\n"}, log.Texts()) << "the only note of reading it";
        log.Clear();
    }
    EffectHandle ByName(const char* path) const { return fx.GetParameterByName(nullptr, path); }
    const EffectParameter* Named(const char* path) const { return Param(ByName(path)); }
    EffectHandle Top(uint32_t index) const { return fx.GetParameter(nullptr, index); }
    const ParsedEffect& Effect() const { return fx.GetParsedEffect(); }

    EffectLogCapture log;
    CD3D9ParseEffect fx;
};

} // namespace

TEST_F(FullEffectTest, TheTreeOfEveryClassWithItsValuesStatesAndObjects)
{
    EXPECT_EQ(kFullEffectHandles, Effect().handle_count);
    // A vector stores columns first: 3, 1 in the file are one row of three. A name and semantic of length 0 are null.
    // Annotations carry flags 4.
    const std::pair<EffectHandle, const char*> rows[] = {
        {Top(P_WORLD), "World/WORLD D3DXPC_MATRIX_ROWS D3DXPT_FLOAT 4x4 e0 a1 m0 f3 64B"},
        {Top(P_LIGHTDIR), "LightDir/Direction D3DXPC_VECTOR D3DXPT_FLOAT 1x3 e0 a0 m0 f0 12B"},
        {Top(P_COUNTS), "Counts/- D3DXPC_SCALAR D3DXPT_INT 1x1 e3 a0 m0 f0 12B"},
        {ByName("Counts[2]"), "Counts/- D3DXPC_SCALAR D3DXPT_INT 1x1 e0 a0 m0 f0 4B"},
        {Top(P_PAIRS), "Pairs/- D3DXPC_STRUCT D3DXPT_VOID 0x0 e3 a0 m2 f0 24B"},
        {Top(P_NEST), "Nest/- D3DXPC_STRUCT D3DXPT_VOID 0x0 e0 a0 m2 f0 16B"},
        {Top(P_MAT), "Mat/- D3DXPC_STRUCT D3DXPT_VOID 0x0 e0 a0 m2 f0 20B"},
        {Top(P_SAMP), "Samp/- D3DXPC_OBJECT D3DXPT_SAMPLER2D 0x0 e0 a0 m0 f0 0B"},
        {Top(P_SAMPS), "Samps/- D3DXPC_OBJECT D3DXPT_SAMPLER 0x0 e2 a0 m0 f0 0B"},
        {Top(P_TEXTURES), "Textures/- D3DXPC_OBJECT D3DXPT_TEXTURE 0x0 e2 a0 m0 f0 8B"},
        {Top(P_ANONYMOUS), "-/- D3DXPC_SCALAR D3DXPT_FLOAT 1x1 e0 a0 m0 f0 4B"},
        {Top(P_GAIN), "Gain/GAIN D3DXPC_SCALAR D3DXPT_FLOAT 1x1 e0 a2 m0 f16 4B"},
        {ByName("Gain@Range.hi"), "hi/- D3DXPC_SCALAR D3DXPT_FLOAT 1x1 e0 a0 m0 f4 4B"},
        {ByName("World@UIName"), "UIName/- D3DXPC_OBJECT D3DXPT_STRING 0x0 e0 a0 m0 f4 4B"},
    };
    for (const auto& r : rows)
        EXPECT_EQ(r.second, Describe(fx, r.first));

    // Values keep the file's layout, a struct's object words among them.
    EXPECT_EQ((std::vector<float>{1, -1, 1, 1, 1.5f, 4.5f, 0.375f, 1}),
              (std::vector<float>{At<float>(Named("World")->data), At<float>(Named("LightDir")->data, 4),
                                  At<float>(Named("ViewT")->data, 60), At<float>(Named("Gain@Range.hi")->data),
                                  At<float>(Param(Top(P_ANONYMOUS))->data), At<float>(Named("Pairs[1].b")->data),
                                  At<float>(Named("Nest.inner.y")->data, 4), At<float>(Named("Mat")->data, 12)}));
    EXPECT_EQ((Results{1, 0xDEAD, 1, 7, 8, 9}),
              (Results{At(Named("Mat")->data), At(Named("Mat")->data, 16), At(Named("Nest.flag")->data),
                       At(Named("Counts[0]")->data), At(Named("Counts[1]")->data), At(Named("Counts[2]")->data)}));
    // Elements and members point into the block of the outermost parameter. Handles follow the order of reading: Pairs,
    // then each element followed by its members.
    const EffectParameter* pairs = Named("Pairs");
    EXPECT_EQ(static_cast<uint8_t*>(pairs->data) + 12, Named("Pairs[1].b")->data);
    EXPECT_EQ((std::vector<const void*>{&pairs->members[0], &pairs->members[0].members[0], Named("Nest")}),
              (std::vector<const void*>{pairs->handle[1], pairs->handle[2], pairs->handle[10]}));
    // Each element of an object array has its own slot and object.
    EXPECT_NE(Named("Textures[0]")->data, Named("Textures[1]")->data);

    // Samplers: their states; in an array, an own sampler per element.
    const EffectSampler* sampler = static_cast<const EffectSampler*>(Named("Samp")->data);
    ASSERT_TRUE(sampler && sampler->state_count == 2);
    const EffectState* s = sampler->states;
    EXPECT_EQ((std::vector<uint32_t>{0xA, STATE_PARAMETER, 0, 1, STATE_CONSTANT, 2}),
              (std::vector<uint32_t>{s[0].operation, s[0].state_type, s[0].parameter.flags, s[1].index, s[1].state_type,
                                     At(s[1].parameter.data)}));
    const EffectSampler* first = static_cast<const EffectSampler*>(Named("Samps[0]")->data);
    const EffectSampler* second = static_cast<const EffectSampler*>(Named("Samps[1]")->data);
    ASSERT_TRUE(first && second && first != second && first->state_count == 1);
    EXPECT_EQ(0u, second->state_count);
    // Pass states by usage: 0 with a shader a constant (its code in the object), 0 with a string data, 2 a preshader
    // that reads LightDir (its block unparsed), 1 a parameter by path.
    const EffectTechnique& main = Effect().techniques[0];
    const EffectState* p0 = main.passes[0].states;
    EXPECT_EQ((Results{2, 3, 0x92, STATE_CONSTANT, 8, STATE_DATA, STATE_PRESHADER, 13, STATE_PARAMETER, 0}),
              (Results{main.pass_count, main.passes[0].state_count, p0[0].operation, p0[0].state_type,
                       Effect().objects[7].size, p0[1].state_type, p0[2].state_type, Effect().objects[9].size,
                       main.passes[1].states[0].state_type, Effect().techniques[1].passes[0].state_count}));
    EXPECT_EQ(0, std::memcmp(Effect().objects[7].data, kStateShader, 8));
    EXPECT_STREQ("abc", static_cast<const char*>(Effect().objects[8].data));
    EXPECT_STREQ("Only", Effect().techniques[1].passes[0].name);
    // What the states name, and the parameter that names each object.
    EXPECT_EQ((std::vector<const void*>{Named("Mat.Map"), Named("Message"), Named("LightDir"), Named("Textures[1]"),
                                        Named("vs"), Named("Textures[1]")}),
              (std::vector<const void*>{s[0].parameter.referenced, first->states[0].parameter.referenced,
                                        p0[2].parameter.referenced, main.passes[1].states[0].parameter.referenced,
                                        Effect().objects[4].parameter, Effect().objects[6].parameter}));
    // A shader's code stays object data: no text in its slot.
    EXPECT_EQ(nullptr, *static_cast<void* const*>(Named("vs")->data));
}

TEST_F(FullEffectTest, QueriesByIndexNamePathAndSemanticAndWhatTheyRefuse)
{
    // Members through GetParameter, elements only through GetParameterElement; a handle that is no parameter takes the
    // top level there.
    const EffectHandle main = fx.GetTechniqueByName("Main"), p1 = fx.GetPassByName(main, "P1");
    const std::pair<EffectHandle, EffectHandle> found[] = {
        {fx.GetTechnique(0), main},
        {fx.GetPass(main, 1), p1},
        {fx.GetParameter(ByName("Nest"), 1), ByName("Nest.flag")},
        {fx.GetParameterElement(ByName("Pairs"), 2), ByName("Pairs[2]")},
        {fx.GetParameterElement(main, 1), Top(1)},
        {fx.GetParameterElement(nullptr, P_ANONYMOUS), Top(P_ANONYMOUS)},
        {fx.GetParameterByName(ByName("Nest"), "flag"), ByName("Nest.flag")},
        {fx.GetParameterByName(ByName("Nest"), nullptr), ByName("Nest")},
        {ByName("Pairs[1].b"), fx.GetParameter(fx.GetParameterElement(ByName("Pairs"), 1), 1)},
        // A name that holds a separator matches whole, before the path is split.
        {ByName("Mat.Colour.rgba"), fx.GetParameter(ByName("Mat"), 0)},
        // Annotations: "@", and on into an annotation's members.
        {ByName("World@UIName"), fx.GetAnnotation(ByName("World"), 0)},
        {ByName("Gain@Range.hi"), fx.GetParameter(fx.GetAnnotation(ByName("Gain"), 1), 1)},
        {fx.GetAnnotationByName(ByName("Gain"), "Range.lo"), ByName("Gain@Range.lo")},
        {fx.GetAnnotationByName(fx.GetPass(main, 0), "Alpha"), fx.GetAnnotation(fx.GetPass(main, 0), 0)},
        // Semantics ignore case; null finds the first null semantic.
        {fx.GetParameterBySemantic(nullptr, "world"), Top(P_WORLD)},
        {fx.GetParameterBySemantic(nullptr, "DIRECTION"), Top(P_LIGHTDIR)},
        {fx.GetParameterBySemantic(nullptr, nullptr), Top(P_VIEWT)},
        {fx.GetParameterBySemantic(ByName("Nest"), nullptr), ByName("Nest.inner")},
    };
    for (const auto& f : found)
        EXPECT_TRUE(f.second != nullptr && f.first == f.second) << &f - found;
    EXPECT_STREQ("Quality", Param(fx.GetAnnotation(main, 0))->name);
    D3DXEFFECT_DESC ed{"x", 0, 0, 9};
    D3DXTECHNIQUE_DESC first, fallback;
    D3DXPASS_DESC pd;
    pd.pVertexShaderFunction = pd.pPixelShaderFunction = &ed.Functions;
    ASSERT_EQ(Results(4, EFFECT_OK),
              (Results{fx.GetDesc(&ed), fx.GetTechniqueDesc(nullptr, &first), // null: the first
                       fx.GetTechniqueDesc(fx.GetTechnique(1), &fallback), fx.GetPassDesc(fx.GetPass(main, 0), &pd)}));
    EXPECT_EQ(nullptr, ed.Creator);
    EXPECT_EQ((std::vector<uint32_t>{P_COUNT, 2, 0, 2, 1, 1}),
              (std::vector<uint32_t>{ed.Parameters, ed.Techniques, ed.Functions, first.Passes, first.Annotations,
                                     pd.Annotations}));
    EXPECT_EQ("Main Fallback P0", std::string(first.Name) + " " + fallback.Name + " " + pd.Name);
    EXPECT_TRUE(pd.pVertexShaderFunction == nullptr && pd.pPixelShaderFunction == nullptr);

    // Members only below their parent; names are case-sensitive; malformed paths and elements without annotations find
    // nothing, silently.
    for (const char* path : {"flag", "", "world", "Nes.flag", "Pairs[1", "Pairs[]", "Pairs[3]", "Pairs[-1]",
                             "Pairs[1].c", "Counts[0]@UIName", "World@Nothing"})
        EXPECT_EQ(nullptr, ByName(path)) << path;
    EXPECT_EQ(nullptr, ByName(nullptr));
    EXPECT_EQ(Handles(2), (Handles{ByName("Pairs[1]x"), ByName("Gain@Min@x")}));
    EXPECT_EQ((Lines{"Unhandled case \"x\"\n", "Unhandled case \"@\"\n"}), log.Texts());
    log.Clear();
    // World has no members; an empty semantic is no null one.
    EXPECT_EQ(Handles(9),
              (Handles{Top(P_COUNT), fx.GetParameter(ByName("Nest"), 2), fx.GetParameter(ByName("Pairs"), 0),
                       fx.GetParameterElement(ByName("Pairs"), 3), fx.GetParameter(main, 0),
                       fx.GetParameterBySemantic(nullptr, "WORLDX"), fx.GetParameterBySemantic(nullptr, ""),
                       fx.GetParameterBySemantic(Top(P_WORLD), "WORLD"), fx.GetParameterBySemantic(main, "WORLD")}));
    // Strings: only a string parameter that is no array.
    const char* text = "unchanged";
    EXPECT_EQ(Results(4, EFFECT_E_INVALIDCALL),
              (Results{fx.GetString(ByName("Mat.Map"), &text), fx.GetString(ByName("Textures[0]"), &text),
                       fx.GetString(ByName("Message"), nullptr), fx.GetString(main, &text)}));
    EXPECT_STREQ("unchanged", text);
    EXPECT_EQ(Lines(13, "Parameter not found.\n"), log.Texts());
    log.Clear();
    // The address of a description is no handle.
    EXPECT_EQ(Handles(4),
              (Handles{fx.GetAnnotation(ByName("World"), 1), fx.GetAnnotationByName(ByName("World"), nullptr),
                       fx.GetAnnotationByName(main, "Nothing"), fx.GetAnnotation(&ed, 0)}));
    EXPECT_EQ(EFFECT_E_NOTIMPL, fx.GetFunctionDesc(nullptr, &ed));
    EXPECT_EQ((Lines{"Annotation not found.\n", "Invalid argument specified\n", "Annotation not found.\n",
                     "Functions are not handled, yet!\n", "Annotation not found.\n", "stub!\n"}),
              log.Texts());
    EXPECT_EQ((std::vector<EffectLogLevel>{EFFECT_LOG_ERROR, EFFECT_LOG_WARNING, EFFECT_LOG_ERROR}),
              (std::vector<EffectLogLevel>{log.lines()[3].level, log.lines()[4].level, log.lines()[5].level}));
    log.Clear();
    EXPECT_EQ(Handles(7), (Handles{fx.GetTechnique(2), fx.GetTechniqueByName("main"), fx.GetTechniqueByName(nullptr),
                                   fx.GetPass(main, 2), fx.GetPass(p1, 0), fx.GetPassByName(main, "p1"),
                                   fx.GetPassByName(main, nullptr)}));
    EXPECT_EQ((Lines{"Invalid argument specified.\n", "Technique not found.\n", "Technique not found.\n",
                     "Pass not found.\n", "Pass not found.\n", "Pass not found.\n", "Pass not found.\n"}),
              log.Texts());
    log.Clear();
    // A parameter handle is a slot of the table: neither between two slots nor behind the last one, nor a technique's
    // or pass's address.
    const uintptr_t slot = reinterpret_cast<uintptr_t>(Effect().handles);
    D3DXPARAMETER_DESC d;
    EXPECT_EQ(Results(9, EFFECT_E_INVALIDCALL),
              (Results{fx.GetPassDesc(main, &pd), fx.GetPassDesc(p1, nullptr), fx.GetTechniqueDesc(p1, &first),
                       fx.GetTechniqueDesc(main, nullptr), fx.GetDesc(nullptr),
                       fx.GetParameterDesc(reinterpret_cast<EffectHandle>(slot + 1), &d),
                       fx.GetParameterDesc(&Effect().handles[Effect().handle_count], &d), fx.GetParameterDesc(main, &d),
                       fx.GetParameterDesc(Top(0), nullptr)}));
    EXPECT_EQ(EFFECT_OK, fx.GetParameterDesc(&Effect().handles[Effect().handle_count - 1], &d));
    EXPECT_EQ(Lines(9, "Invalid argument specified.\n"), log.Texts());
}

TEST(EffectReader, TheHeadEmptyEffectsAndReparsing)
{
    // Reading again replaces the tree, whatever the file; the last reference takes it along (the leak checker sees the
    // rest). The magic, then a body at offset 0 of six zero words, is an effect of nothing: null asks for a first
    // technique that is not there.
    EffectLogCapture log;
    ref_ptr<CD3D9ParseEffect> fx = new CD3D9ParseEffect;
    Bytes full = BuildFullEffect(), empty{0x01, 0x09, 0xFF, 0xFE};
    empty.resize(32);
    ASSERT_TRUE(Parse(*fx, full) && Parse(*fx, empty));
    const ParsedEffect& e = fx->GetParsedEffect();
    EXPECT_TRUE(e.handle_count == 0 && e.parameters == nullptr && e.techniques == nullptr);
    D3DXTECHNIQUE_DESC technique;
    EXPECT_EQ(EFFECT_E_INVALIDCALL, fx->GetTechniqueDesc(nullptr, &technique));
    ASSERT_TRUE(Parse(*fx, full));
    EXPECT_NE(nullptr, fx->GetParameterByName(nullptr, "World"));
    // No effect, or one that ends inside its head: nothing is read, and nothing is left.
    EXPECT_FALSE(fx->Parse(full.data(), 7));
    EXPECT_EQ(0u, e.handle_count);
    full[0] ^= 1;
    EXPECT_FALSE(Parse(*fx, full) || fx->Parse(full.data(), 3) || fx->Parse(nullptr, 100));
    EXPECT_EQ((Lines{"Parse preshader.\n", "Invalid argument specified.\n", "Parse preshader.\n",
                     "Effect data of 7 bytes ends inside its head\n", "Failed to parse effect.\n",
                     "parseEffect_notAnEffectsFile", "parseEffect_notAnEffectsFile", "parseEffect_notAnEffectsFile"}),
              log.Texts());
    EXPECT_EQ("D3D9ParseEffect", log.lines()[3].file);
}

// Each changed file fails with one error, then warnings up the path to the effect, and leaves no tree behind; or the
// reader passes over what it cannot use.
TEST(EffectFailures, ChangedWordsFailWithTheirPathOfMessagesOrArePassedOver)
{
    FullEffectLayout l;
    const Bytes full = BuildFullEffect(&l);
    const uint32_t data = static_cast<uint32_t>(full.size() - 8), left = data - l.body - 16;
    const uint32_t* res = l.resources;
    auto n = [](uint32_t value) { return std::to_string(value); };
    auto resource = [&](uint32_t i, const char* e) { return Lines{e, "Failed to parse resource " + n(i) + "\n"}; };
    const Lines name{"Failed to parse name\n", "Failed to parse type definition\n", "Failed to parse parameter 0\n"};
    const std::pair<WordChanges, Lines> rows[] = {
        // Counts, offsets and lengths that reach one past the data.
        {{{l.body, left / 16 + 1}},
         {"Parameter count " + n(left / 16 + 1) + " does not fit in the " + n(left) +
          " bytes left of the effect data\n"}},
        {{{l.body + 12, data / 4 + 1}},
         {"Object count " + n(data / 4 + 1) + " does not fit in the " + n(data) + " bytes of effect data\n"}},
        {{{l.body + 16, data - 3}},
         {"Read outside the effect data: 4 bytes at offset " + n(data - 3) + " of " + n(data) + "\n", name[1],
          name[2]}},
        {{{l.worldName, data - l.worldName - 3}},
         {"String of " + n(data - l.worldName - 3) + " bytes at offset " + n(l.worldName) +
              " runs past the end of the effect data\n",
          name[0], name[1], name[2]}},
        {{{l.body + 20, data - 60}},
         {"Value of 64 bytes at offset " + n(data - 60) + " runs past the end of the effect data\n",
          "Failed to parse value\n", "Failed to parse value\n", name[2]}},
        // A scalar one word larger than all the data.
        {{{l.anonymous[0] + 24, data / 4 + 1}},
         {"Value larger than the " + n(data) + " bytes of effect data\n", name[1], "Failed to parse parameter 12\n"}},
        // Billions of elements.
        {{{l.counts[0] + 16, 0x7FFFFFFF}},
         {"Effect asks for more memory than a file of " + n(data + 8) + " bytes may use\n", name[1],
          "Failed to parse parameter 3\n"}},
        // Object ids at the object count.
        {{{l.objects[0], 12}}, {"Object id 12 is not below the object count 12\n"}},
        {{{l.state[1], 12}},
         {"Object id 12 is not below the object count 12\n", "Failed to parse value\n", "Failed to parse value\n",
          "Failed to parse state 0\n", "Failed to parse pass 0\n", "Failed to parse technique 0\n"}},
        // Resource records: indices at their bound, no sampler, unknown usages, names of nothing.
        {{{res[0] + 4, 14}}, resource(0, "Index out of bounds: index 14 >= parameter_count 14\n")},
        {{{res[0] + 4, P_SAMPS}, {res[0] + 8, 2}},
         resource(0, "Index out of bounds: element_index 2 >= element_count 2\n")},
        {{{res[0] + 12, 2}}, resource(0, "Index out of bounds: state_index 2 >= state_count 2\n")},
        {{{res[1], 2}}, resource(1, "Index out of bounds: technique_index 2 >= technique_count 2\n")},
        {{{res[1] + 4, 2}}, resource(1, "Index out of bounds: index 2 >= pass_count 2\n")},
        {{{res[1] + 4, 1}, {res[1] + 12, 1}}, resource(1, "Index out of bounds: state_index 1 >= state_count 1\n")},
        {{{res[0] + 4, P_WORLD}}, resource(0, "Resource names parameter 0, which is no sampler\n")},
        {{{res[0] + 4, P_SAMPS}, {res[0] + 8, 0xFFFFFFFF}},
         resource(0, "Resource names parameter 8, which is no sampler\n")},
        {{{res[0] + 16, 3}}, resource(0, "Unknown usage 3\n")},
        {{{res[1] + 4, 1}}, resource(1, "Unhandled type D3DXPT_TEXTURE\n")},
        {{{res[2] + 16, 1}}, resource(2, "Referenced parameter abc not found.\n")},
        {{{res[2] + 16, 2}, {res[2] + 20, 2}}, resource(2, "Preshader block of 2 bytes holds no parameter name\n")},
    };
    for (const auto& r : rows)
    {
        CD3D9ParseEffect fx;
        EffectLogCapture log;
        EXPECT_FALSE(Parse(fx, Changed(full, r.first)));
        Lines expected = r.second;
        expected.push_back("Failed to parse effect.\n");
        EXPECT_EQ(expected, log.Texts());
        std::string levels;
        for (const CapturedLine& line : log.lines())
            levels += line.level == EFFECT_LOG_ERROR ? 'E' : 'W';
        EXPECT_EQ("E" + std::string(expected.size() - 1, 'W'), levels) << expected[0];
        const ParsedEffect& e = fx.GetParsedEffect();
        EXPECT_TRUE(e.handle_count == 0 && !e.parameters && !e.techniques && !e.objects) << expected[0];
    }

    // The nameless parameter of an unknown class, read as one of no bytes, and the text of object 2 given to object 0
    // again, which replaces the first.
    EffectLogCapture log;
    CD3D9ParseEffect fx;
    ASSERT_TRUE(Parse(fx, Changed(full, {{l.anonymous[0] + 4, 7}, {l.objects[1], 0}})));
    const Lines odd{"Unrecognized D3DXPARAMETER_CLASS 0x7.\n", "Unhandled class unrecognized\n"};
    EXPECT_EQ((Lines{odd[0], odd[1], odd[0], odd[1], "Object already initialized!\n",
                     "Parameter data already allocated.\n", "Parse preshader.\n"}),
              log.Texts());
    EXPECT_EQ("-/- unrecognized D3DXPT_FLOAT 0x0 e0 a0 m0 f0 0B", Describe(fx, fx.GetParameter(nullptr, P_ANONYMOUS)));
    const char* text = nullptr;
    ASSERT_EQ(EFFECT_OK, fx.GetString(fx.GetParameterByName(nullptr, "World@UIName"), &text));
    EXPECT_STREQ("hello", text);
}

TEST(EffectFailures, DepthSizeAndNameLookupsOfWhatAFileDescribesAreBounded)
{
    auto nested = [](int depth) {
        EffectBuilder b;
        const uint32_t none = b.String(nullptr), name = b.String("s");
        Words type = NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, name, none, 0, 1, 1);
        for (int i = 0; i < depth; ++i)
            type = StructType(name, none, 0, {type});
        const uint32_t t = b.Put(type), value = b.Word(0);
        b.Body();
        b.Put({1, 0, 0, 0, t, value, 0, 0, 0, 0});
        return b.Finish();
    };
    EXPECT_EQ(Read(nested(63), true), Lines{}); // the deepest a file may go
    FullEffectLayout l;
    const Bytes full = BuildFullEffect(&l);
    const std::pair<Bytes, std::string> rows[] = {
        {nested(64), "Effect nests deeper than 64 levels\n"},
        // A sampler whose state's value is the sampler record itself.
        {Changed(full, {{l.samp[1] + 12, l.samp[0]}, {l.samp[1] + 16, l.samp[1]}}),
         "Effect nests deeper than 64 levels\n"},
        // Pairs of 200 elements whose member a is 200 elements of no bytes: each array alone is small.
        {Changed(full, {{l.pairs[0] + 16, 200}, {l.pairs[0] + 40, 200}, {l.pairs[0] + 44, 0}}),
         "Effect asks for more memory than a file of " + std::to_string(full.size()) + " bytes may use\n"},
    };
    for (const auto& r : rows)
    {
        const auto start = std::chrono::steady_clock::now();
        const Lines texts = Read(r.first);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
        ASSERT_FALSE(texts.empty());
        EXPECT_EQ(r.second, texts[0]);
        EXPECT_EQ("Failed to parse effect.\n", texts.back());
    }

    // Thousands of parameters of one long name, then one whose name differs in its last character, and thousands of
    // resource records that each look for that last one: without a bound, reading this file would compare billions of
    // characters.
    const std::string name(200, 'a'), last = std::string(199, 'a') + "b";
    const uint32_t count = 3000;
    EffectBuilder b;
    const uint32_t none = b.String(nullptr), value = b.Word(0), tech = b.String("T");
    const uint32_t type = b.Put(NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, b.String(name.c_str()), none, 0, 1, 1));
    const uint32_t lastType = b.Put(NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, b.String(last.c_str()), none, 0, 1, 1));
    const uint32_t stateType = b.Put(ObjectType(D3DXPT_TEXTURE, none, none, 0));
    b.Body();
    b.Put({count, 1, 0, 1});
    for (uint32_t i = 0; i < count; ++i)
        b.Put({i + 1 < count ? type : lastType, value, 0, 0});
    b.Put({tech, 0, 1, tech, 0, 1, 0, 0, stateType, value, 0, count});
    for (uint32_t i = 0; i < count; ++i)
    {
        b.Put({0, 0, 0xFFFFFFFF, 0, 1});
        b.String(last.c_str());
    }
    const Bytes bytes = b.Finish();

    const auto start = std::chrono::steady_clock::now();
    const Lines texts = Read(bytes);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    // The first records were found before the bound was reached; each one replaced the data of the one state they all
    // name.
    ASSERT_GT(texts.size(), 100u);
    EXPECT_EQ(texts[0], "Object already initialized!\n");
    EXPECT_EQ(texts[texts.size() - 3],
              "Effect asks for more name lookups than a file of " + std::to_string(bytes.size()) + " bytes may\n");
}

TEST(EffectRobustness, TruncationsChangedBytesAndFailedAllocationsFailCleanly)
{
    EffectLogCapture log;
    const Bytes full = BuildFullEffect();
    size_t found = 0, parsed[2] = {0, 0}, failed[2] = {0, 0};
    // Parses the first size bytes from a copy of just that size, so any read past them is caught.
    auto parseExact = [&](const Bytes& bytes, size_t size) {
        CD3D9ParseEffect fx;
        const bool ok = Parse(fx, Bytes(bytes.begin(), bytes.begin() + size));
        if (ok)
            found += ExerciseEffect(fx);
        return ok;
    };
    ASSERT_TRUE(parseExact(full, full.size()));
    // Every handle but the technique's and the pass's annotation, each once.
    EXPECT_EQ(kFullEffectHandles - 2, found);
    auto tryChange = [&](int kind, size_t at, const void* value, size_t size) {
        Bytes changed = full;
        std::memcpy(&changed[at], value, size);
        if (changed != full)
            (parseExact(changed, changed.size()) ? parsed : failed)[kind]++;
    };
    for (size_t at = 0; at < full.size(); ++at)
    {
        EXPECT_FALSE(parseExact(full, at)) << at;
        for (uint8_t value :
             {uint8_t(0), uint8_t(0xFF), uint8_t(0x80), uint8_t(full[at] + 1), uint8_t(full[at] ^ 0x10)})
            tryChange(0, at, &value, 1);
    }
    for (size_t at = 0; at + 4 <= full.size(); at += 4)
    {
        const uint32_t old = At(full.data(), at);
        for (uint32_t value : {0u, 1u, 2u, 3u, 4u, 5u, 16u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFFEu, old + 1,
                               old - 1, old + 4, old - 4, old * 2, old + 0x100})
            tryChange(1, at, &value, 4);
    }
    // Both outcomes occur for bytes and for words: values, padding and names may change freely.
    EXPECT_TRUE(parsed[0] > 100 && failed[0] > 100 && parsed[1] > 100 && failed[1] > 100)
        << parsed[0] << " " << failed[0] << " " << parsed[1] << " " << failed[1];

    // Each allocation fails in turn, and all after it: the reason is said, and only a failed growth of the handle
    // table lets a parse go on.
    int failures = 0;
    for (long long n = 0; n < 5000; ++n)
    {
        log.Clear();
        SetEffectHeapFailAfter(n);
        CD3D9ParseEffect fx;
        const bool ok = Parse(fx, full);
        if (ok)
            (void)fx.GetParameterByName(nullptr, "Pairs[2].b");
        SetEffectHeapFailAfter(-1);
        const Lines texts = log.Texts();
        auto said = [&](const char* text) { return std::find(texts.begin(), texts.end(), text) != texts.end(); };
        if (!said("MyHeapAlloc out of memory!"))
        {
            EXPECT_TRUE(ok);
            break;
        }
        bool reported = said("Out of memory.\n");
        for (const char* reason : {"Out of memory\n", "Failed to allocate name memory.\n",
                                   "Failed to allocate data memory.\n", "Failed to allocate object memory.\n"})
            reported = reported || (!ok && said(reason));
        EXPECT_TRUE(reported && (ok || texts.back() == "Failed to parse effect.\n")) << n;
        failures += !ok;
    }
    EXPECT_GT(failures, 50);
}
