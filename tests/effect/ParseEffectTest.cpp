// The reader: the tree it builds from hand-written effects, and the messages of
// the ways a file can be wrong.

#include "D3D9RenderSystem/D3D9ParseEffect.h"
#include "EffectBuilder.h"
#include "EffectLogCapture.h"
#include "FullEffect.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace fxtest;

namespace
{

class FullEffectTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        bytes = BuildFullEffect(&layout);
        ASSERT_TRUE(Parse(fx, bytes));
    }
    const uint8_t* At(uint32_t offset) const { return bytes.data() + 8 + offset; }
    const EffectParameter* Named(const char* path) const { return Param(fx.GetParameterByName(nullptr, path)); }

    EffectLogCapture log;
    FullEffectLayout layout;
    Bytes bytes;
    CD3D9ParseEffect fx;
};

} // namespace

TEST(EffectReader, AnotherMagicGivesOneMessageAndFalse)
{
    EffectLogCapture log;
    CD3D9ParseEffect fx;
    Bytes bytes = BuildFullEffect();
    bytes[0] ^= 1;
    EXPECT_FALSE(Parse(fx, bytes));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].text, "parseEffect_notAnEffectsFile");
    EXPECT_EQ(log.lines()[0].level, EFFECT_LOG_ERROR);
    EXPECT_EQ(log.lines()[0].file, "D3D9ParseEffect");
    EXPECT_EQ(fx.GetParsedEffect().parameter_count, 0u); // nothing else was read

    log.Clear();
    EXPECT_FALSE(fx.Parse(bytes.data(), 3));
    EXPECT_FALSE(fx.Parse(nullptr, 100));
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"parseEffect_notAnEffectsFile", "parseEffect_notAnEffectsFile"}));
}

TEST(EffectReader, EmptyEffectParsesWithNullArrays)
{
    EffectLogCapture log;
    EffectBuilder b;
    b.Body();
    b.Put({0, 0, 0, 0, 0, 0});
    CD3D9ParseEffect fx;
    ASSERT_TRUE(Parse(fx, b.Finish()));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(fx.GetParsedEffect().parameters, nullptr);
    EXPECT_EQ(fx.GetParsedEffect().techniques, nullptr);
    D3DXEFFECT_DESC desc{"x", 9, 9, 9};
    EXPECT_EQ(fx.GetDesc(&desc), EFFECT_OK);
    EXPECT_EQ(desc.Creator, nullptr);
    EXPECT_EQ(desc.Parameters + desc.Techniques + desc.Functions, 0u);
    // No technique: null asks for the first one, which is not there.
    D3DXTECHNIQUE_DESC technique;
    EXPECT_EQ(fx.GetTechniqueDesc(nullptr, &technique), EFFECT_E_INVALIDCALL);
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"Invalid argument specified.\n"});
}

TEST_F(FullEffectTest, ReadsWithOnlyThePreshaderNote)
{
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].text, "Parse preshader.\n");
    EXPECT_EQ(log.lines()[0].level, EFFECT_LOG_ERROR);
    const ParsedEffect& e = fx.GetParsedEffect();
    EXPECT_EQ(e.parameter_count, uint32_t(P_COUNT));
    EXPECT_EQ(e.technique_count, 2u);
    EXPECT_EQ(e.object_count, kFullEffectObjects);
    EXPECT_EQ(e.handle_count, kFullEffectHandles);
    for (uint32_t i = 0; i < e.handle_count; ++i)
        EXPECT_EQ(e.handles[i]->handle, &e.handles[i]);
}

TEST_F(FullEffectTest, NumericClassesAndTheirLayout)
{
    D3DXPARAMETER_DESC d;
    ASSERT_EQ(fx.GetParameterDesc(fx.GetParameter(nullptr, P_WORLD), &d), EFFECT_OK);
    EXPECT_STREQ(d.Name, "World");
    EXPECT_STREQ(d.Semantic, "WORLD");
    EXPECT_EQ(d.Class, uint32_t(D3DXPC_MATRIX_ROWS));
    EXPECT_EQ(d.Type, uint32_t(D3DXPT_FLOAT));
    EXPECT_EQ(d.Rows, 4u);
    EXPECT_EQ(d.Columns, 4u);
    EXPECT_EQ(d.Elements, 0u);
    EXPECT_EQ(d.Annotations, 1u);
    EXPECT_EQ(d.StructMembers, 0u);
    EXPECT_EQ(d.Flags, 3u);
    EXPECT_EQ(d.Bytes, 64u);
    EXPECT_EQ(std::memcmp(Named("World")->data, At(layout.worldValue), 64), 0);

    // A vector stores columns first: 3, 1 in the file are one row of three.
    ASSERT_EQ(fx.GetParameterDesc(fx.GetParameter(nullptr, P_LIGHTDIR), &d), EFFECT_OK);
    EXPECT_EQ(d.Class, uint32_t(D3DXPC_VECTOR));
    EXPECT_EQ(d.Rows, 1u);
    EXPECT_EQ(d.Columns, 3u);
    EXPECT_EQ(d.Bytes, 12u);
    EXPECT_EQ(FloatAt(Named("LightDir")->data, 1), -1.0f);

    ASSERT_EQ(fx.GetParameterDesc(fx.GetParameter(nullptr, P_VIEWT), &d), EFFECT_OK);
    EXPECT_EQ(d.Class, uint32_t(D3DXPC_MATRIX_COLUMNS));
    EXPECT_EQ(d.Bytes, 64u);
    EXPECT_EQ(FloatAt(Named("ViewT")->data, 15), 1.0f);

    // Annotations carry flags 4; parameters keep the file's flags.
    const EffectParameter* gain = Named("Gain");
    EXPECT_EQ(gain->flags, 0x10u);
    EXPECT_EQ(gain->annotations[0].flags, 4u);
    EXPECT_EQ(gain->annotations[1].members[1].flags, 4u);
    EXPECT_EQ(FloatAt(Named("Gain@Range.hi")->data), 1.0f);

    // A name and semantic of length 0 are null.
    const EffectParameter* anonymous = Param(fx.GetParameter(nullptr, P_ANONYMOUS));
    EXPECT_EQ(anonymous->name, nullptr);
    EXPECT_EQ(anonymous->semantic, nullptr);
    EXPECT_EQ(FloatAt(anonymous->data), 1.5f);
}

TEST_F(FullEffectTest, ArraysShareTheBlockAndTheName)
{
    const EffectParameter* counts = Named("Counts");
    EXPECT_EQ(counts->element_count, 3u);
    EXPECT_EQ(counts->bytes, 12u);
    for (uint32_t i = 0; i < 3; ++i)
    {
        const EffectParameter* element = Param(fx.GetParameterElement(counts->handle, i));
        ASSERT_NE(element, nullptr);
        EXPECT_EQ(element, &counts->members[i]);
        EXPECT_EQ(element->name, counts->name); // the array's text, not a copy
        EXPECT_EQ(element->bytes, 4u);
        EXPECT_EQ(element->element_count, 0u);
        EXPECT_EQ(element->data, static_cast<uint8_t*>(counts->data) + 4 * i);
        EXPECT_EQ(WordAt(element->data), 7 + i);
    }

    // Three structs of two members: 1 + 3 + 6 handles, in the order of reading.
    const EffectParameter* pairs = Named("Pairs");
    const EffectParameter* nest = Named("Nest");
    EXPECT_EQ(nest->handle - pairs->handle, 10);
    EXPECT_EQ(*(pairs->handle + 1), &pairs->members[0]);
    EXPECT_EQ(*(pairs->handle + 2), &pairs->members[0].members[0]);
    EXPECT_EQ(pairs->bytes, 24u);
    EXPECT_EQ(pairs->member_count, 2u);
    const EffectParameter* b1 = Named("Pairs[1].b");
    ASSERT_NE(b1, nullptr);
    EXPECT_EQ(b1->data, static_cast<uint8_t*>(pairs->data) + 12);
    EXPECT_EQ(FloatAt(b1->data), 4.5f);
    // Members of every element read the same definitions into their own names.
    EXPECT_STREQ(pairs->members[0].members[0].name, "a");
    EXPECT_STREQ(pairs->members[2].members[0].name, "a");
    EXPECT_NE(pairs->members[0].members[0].name, pairs->members[2].members[0].name);

    // Textures: each element its own slot and object.
    const EffectParameter* textures = Named("Textures");
    EXPECT_EQ(textures->bytes, 8u);
    EXPECT_EQ(textures->members[0].object_id, 5u);
    EXPECT_EQ(textures->members[1].object_id, 6u);
    EXPECT_EQ(fx.GetParsedEffect().objects[6].parameter, &textures->members[1]);
    EXPECT_NE(textures->members[0].data, textures->members[1].data);
}

TEST_F(FullEffectTest, StructsInStructsAndObjectsInStructs)
{
    const EffectParameter* nest = Named("Nest");
    EXPECT_EQ(nest->bytes, 16u);
    EXPECT_EQ(Named("Nest.inner")->bytes, 12u);
    const EffectParameter* y = Named("Nest.inner.y");
    ASSERT_NE(y, nullptr);
    EXPECT_EQ(y->columns, 2u);
    EXPECT_EQ(y->data, static_cast<uint8_t*>(nest->data) + 4);
    EXPECT_EQ(FloatAt(y->data, 1), 0.375f);
    EXPECT_EQ(WordAt(Named("Nest.flag")->data), 1u);

    // float4 and a texture: 20 raw bytes, and the id from the first word.
    const EffectParameter* mat = Named("Mat");
    EXPECT_EQ(mat->bytes, 20u);
    EXPECT_EQ(std::memcmp(mat->data, At(layout.matValue), 20), 0);
    const EffectParameter* map = Named("Mat.Map");
    EXPECT_EQ(map->object_id, 1u);
    EXPECT_EQ(fx.GetParsedEffect().objects[1].parameter, map);
    EXPECT_EQ(*static_cast<void* const*>(map->data), nullptr);
}

TEST_F(FullEffectTest, SamplersHoldTheirStates)
{
    const EffectParameter* samp = Named("Samp");
    EXPECT_EQ(samp->bytes, 0u);
    const EffectSampler* sampler = static_cast<const EffectSampler*>(samp->data);
    ASSERT_NE(sampler, nullptr);
    ASSERT_EQ(sampler->state_count, 2u);
    EXPECT_EQ(sampler->states[0].operation, 0xAu);
    EXPECT_EQ(sampler->states[0].state_type, uint32_t(STATE_PARAMETER));
    EXPECT_EQ(sampler->states[0].parameter.referenced, Named("Mat.Map"));
    EXPECT_EQ(sampler->states[0].parameter.flags, 0u);
    EXPECT_EQ(sampler->states[0].parameter.handle, nullptr); // a state's own parameter has no handle
    EXPECT_EQ(sampler->states[1].index, 1u);
    EXPECT_EQ(sampler->states[1].state_type, uint32_t(STATE_CONSTANT));
    EXPECT_EQ(WordAt(sampler->states[1].parameter.data), 2u);

    // A sampler array: no block, an own sampler per element.
    const EffectParameter* samps = Named("Samps");
    EXPECT_EQ(samps->bytes, 0u);
    EXPECT_EQ(samps->data, nullptr);
    const EffectSampler* first = static_cast<const EffectSampler*>(samps->members[0].data);
    const EffectSampler* second = static_cast<const EffectSampler*>(samps->members[1].data);
    ASSERT_TRUE(first && second);
    EXPECT_NE(first, second);
    ASSERT_EQ(first->state_count, 1u);
    EXPECT_EQ(second->state_count, 0u);
    EXPECT_EQ(first->states[0].parameter.referenced, Named("Message"));
}

TEST_F(FullEffectTest, StringsShadersAndObjects)
{
    const ParsedEffect& e = fx.GetParsedEffect();
    const char* text = nullptr;
    ASSERT_EQ(fx.GetString(fx.GetParameterByName(nullptr, "Message"), &text), EFFECT_OK);
    EXPECT_STREQ(text, "hello");
    EXPECT_STREQ(static_cast<const char*>(e.objects[2].data), "hello");
    EXPECT_NE(static_cast<const void*>(text), e.objects[2].data); // an own copy
    ASSERT_EQ(fx.GetString(fx.GetParameterByName(nullptr, "World@UIName"), &text), EFFECT_OK);
    EXPECT_STREQ(text, "World matrix");

    // The shader stays object data; its slot gets no text.
    EXPECT_EQ(e.objects[4].size, 5u);
    EXPECT_EQ(std::memcmp(e.objects[4].data, kShaderBytes, 5), 0);
    EXPECT_EQ(e.objects[4].parameter, Named("vs"));
    EXPECT_EQ(*static_cast<void* const*>(Named("vs")->data), nullptr);
}

TEST_F(FullEffectTest, TechniquesPassesAndResourceUsages)
{
    const ParsedEffect& e = fx.GetParsedEffect();
    const EffectTechnique& main = e.techniques[0];
    EXPECT_STREQ(main.name, "Main");
    ASSERT_EQ(main.pass_count, 2u);
    EXPECT_EQ(WordAt(Param(fx.GetAnnotation(&main, 0))->data), 3u);
    const EffectPass& p0 = main.passes[0];
    ASSERT_EQ(p0.state_count, 3u);
    // Usage 0 with a shader: a constant, its code in the object.
    EXPECT_EQ(p0.states[0].operation, 0x92u);
    EXPECT_EQ(p0.states[0].state_type, uint32_t(STATE_CONSTANT));
    EXPECT_EQ(e.objects[7].size, 8u);
    EXPECT_EQ(std::memcmp(e.objects[7].data, kStateShader, 8), 0);
    // Usage 0 with a string: data.
    EXPECT_EQ(p0.states[1].state_type, uint32_t(STATE_DATA));
    EXPECT_STREQ(static_cast<const char*>(e.objects[8].data), "abc");
    // Usage 2: a preshader that reads LightDir; its block stays unparsed.
    EXPECT_EQ(p0.states[2].state_type, uint32_t(STATE_PRESHADER));
    EXPECT_EQ(p0.states[2].parameter.referenced, Named("LightDir"));
    EXPECT_EQ(e.objects[9].size, 13u);
    // Usage 1: a parameter by path.
    EXPECT_EQ(main.passes[1].states[0].state_type, uint32_t(STATE_PARAMETER));
    EXPECT_EQ(main.passes[1].states[0].parameter.referenced, Named("Textures[1]"));
    EXPECT_EQ(e.techniques[1].passes[0].state_count, 0u);
    EXPECT_STREQ(e.techniques[1].passes[0].name, "Only");
}

TEST(EffectReader, ObjectBlockOfFiveAdvancesByTwelve)
{
    EffectLogCapture log;
    EffectBuilder b;
    b.Body();
    b.Put({0, 0, 0, 2, 2, 0});
    b.Word(0);
    const uint32_t first = b.Here();
    b.Block("ABCDE", 5);
    EXPECT_EQ(b.Here() - first, 4u + 8u);
    b.Word(1);
    b.Block("xyz", 4);
    CD3D9ParseEffect fx;
    ASSERT_TRUE(Parse(fx, b.Finish()));
    const ParsedEffect& e = fx.GetParsedEffect();
    EXPECT_EQ(e.objects[0].size, 5u);
    EXPECT_EQ(std::memcmp(e.objects[0].data, "ABCDE", 5), 0);
    EXPECT_EQ(e.objects[1].size, 4u);
    EXPECT_STREQ(static_cast<const char*>(e.objects[1].data), "xyz");
    EXPECT_TRUE(log.lines().empty());
}

TEST(EffectReader, ReparsingReplacesTheTreeAndCountedObjectsDie)
{
    ref_ptr<CD3D9ParseEffect> fx = new CD3D9ParseEffect;
    EXPECT_EQ(fx->GetRefCount(), 1);
    EffectLogCapture log;
    const Bytes full = BuildFullEffect();
    ASSERT_TRUE(Parse(*fx, full));
    EffectBuilder b;
    b.Body();
    b.Put({0, 0, 0, 0, 0, 0});
    ASSERT_TRUE(Parse(*fx, b.Finish()));
    EXPECT_EQ(fx->GetParsedEffect().handle_count, 0u);
    EXPECT_EQ(fx->GetParameterByName(nullptr, "World"), nullptr);
    ASSERT_TRUE(Parse(*fx, full));
    EXPECT_NE(fx->GetParameterByName(nullptr, "World"), nullptr);
    fx = nullptr; // the last reference: the tree goes with it (the leak checker sees the rest)
}
