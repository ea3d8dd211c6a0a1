#pragma once
// One effect that holds a bit of everything the format has: every class,
// numeric and object types, arrays, structs in structs, samplers with states,
// a sampler array, strings, shaders as object data, annotations on parameters,
// techniques and passes, and resource records of each usage.

#include "EffectBuilder.h"

namespace fxtest
{

struct FullEffectLayout
{
    uint32_t worldValue, lightDirValue, viewValue, countsValue, pairsValue, nestValue, matValue, gainValue;
    uint32_t recordCounts; // the object record and resource record counts
    uint32_t resources;    // the first resource record
};

// Parameter indices of the full effect.
const uint32_t P_WORLD = 0, P_LIGHTDIR = 1, P_VIEWT = 2, P_COUNTS = 3, P_PAIRS = 4, P_NEST = 5, P_MAT = 6, P_SAMP = 7,
               P_SAMPS = 8, P_MESSAGE = 9, P_VS = 10, P_TEXTURES = 11, P_ANONYMOUS = 12, P_GAIN = 13, P_COUNT = 14;
const uint32_t kFullEffectHandles = 43;
const uint32_t kFullEffectObjects = 12;
const uint8_t kShaderBytes[5] = {1, 2, 3, 4, 5};
const uint8_t kStateShader[8] = {0xFE, 0xFF, 0x00, 0x03, 0xFF, 0xFF, 0x00, 0x00};

inline Bytes BuildFullEffect(FullEffectLayout* layout = nullptr)
{
    FullEffectLayout l{};
    EffectBuilder b;
    const uint32_t none = b.String(nullptr);
    auto scalar = [&](uint32_t type, const char* name) {
        return NumericType(type, D3DXPC_SCALAR, name ? b.String(name) : none, none, 0, 1, 1);
    };

    // Types.
    const uint32_t tWorld =
        b.Put(NumericType(D3DXPT_FLOAT, D3DXPC_MATRIX_ROWS, b.String("World"), b.String("WORLD"), 0, 4, 4));
    const uint32_t tUIName = b.Put(ObjectType(D3DXPT_STRING, b.String("UIName"), none, 0));
    const uint32_t tLightDir =
        b.Put(NumericType(D3DXPT_FLOAT, D3DXPC_VECTOR, b.String("LightDir"), b.String("Direction"), 0, 1, 3));
    const uint32_t tViewT = b.Put(NumericType(D3DXPT_FLOAT, D3DXPC_MATRIX_COLUMNS, b.String("ViewT"), none, 0, 4, 4));
    const uint32_t tCounts = b.Put(NumericType(D3DXPT_INT, D3DXPC_SCALAR, b.String("Counts"), none, 3, 1, 1));
    const Words pairA = scalar(D3DXPT_FLOAT, "a"), pairB = scalar(D3DXPT_FLOAT, "b");
    const uint32_t tPairs = b.Put(StructType(b.String("Pairs"), none, 3, {pairA, pairB}));
    const Words x = scalar(D3DXPT_FLOAT, "x");
    const Words y = NumericType(D3DXPT_FLOAT, D3DXPC_VECTOR, b.String("y"), none, 0, 1, 2);
    const Words inner = StructType(b.String("inner"), none, 0, {x, y});
    const Words flag = scalar(D3DXPT_BOOL, "flag");
    const uint32_t tNest = b.Put(StructType(b.String("Nest"), none, 0, {inner, flag}));
    const Words colour = NumericType(D3DXPT_FLOAT, D3DXPC_VECTOR, b.String("Colour"), none, 0, 1, 4);
    const Words map = ObjectType(D3DXPT_TEXTURE, b.String("Map"), none, 0);
    const uint32_t tMat = b.Put(StructType(b.String("Mat"), none, 0, {colour, map}));
    const uint32_t tSamp = b.Put(ObjectType(D3DXPT_SAMPLER2D, b.String("Samp"), none, 0));
    const uint32_t tSamps = b.Put(ObjectType(D3DXPT_SAMPLER, b.String("Samps"), none, 2));
    const uint32_t tMessage = b.Put(ObjectType(D3DXPT_STRING, b.String("Message"), none, 0));
    const uint32_t tVs = b.Put(ObjectType(D3DXPT_VERTEXSHADER, b.String("vs"), none, 0));
    const uint32_t tTextures = b.Put(ObjectType(D3DXPT_TEXTURE, b.String("Textures"), none, 2));
    const uint32_t tAnonymous = b.Put(scalar(D3DXPT_FLOAT, nullptr));
    const uint32_t tGain = b.Put(NumericType(D3DXPT_FLOAT, D3DXPC_SCALAR, b.String("Gain"), b.String("GAIN"), 0, 1, 1));
    const uint32_t tMin = b.Put(scalar(D3DXPT_FLOAT, "Min"));
    const Words lo = scalar(D3DXPT_FLOAT, "lo"), hi = scalar(D3DXPT_FLOAT, "hi");
    const uint32_t tRange = b.Put(StructType(b.String("Range"), none, 0, {lo, hi}));
    const uint32_t tQuality = b.Put(scalar(D3DXPT_INT, "Quality"));
    const uint32_t tAlpha = b.Put(scalar(D3DXPT_FLOAT, "Alpha"));
    const uint32_t tStateTexture = b.Put(ObjectType(D3DXPT_TEXTURE, none, none, 0));
    const uint32_t tStateInt = b.Put(scalar(D3DXPT_INT, nullptr));
    const uint32_t tStateVs = b.Put(ObjectType(D3DXPT_VERTEXSHADER, none, none, 0));
    const uint32_t tStateString = b.Put(ObjectType(D3DXPT_STRING, none, none, 0));

    // Values.
    l.worldValue = b.Floats({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    const uint32_t vObject0 = b.Word(0);
    l.lightDirValue = b.Floats({0.5f, -1, 0.25f});
    l.viewValue = b.Floats({16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1});
    l.countsValue = b.Put({7, 8, 9});
    l.pairsValue = b.Floats({1.5f, 2.5f, 3.5f, 4.5f, 5.5f, 6.5f});
    l.nestValue = b.Put({FloatBits(0.125f), FloatBits(0.25f), FloatBits(0.375f), 1});
    // The texture's object id is the first word of the value.
    l.matValue = b.Put({1, FloatBits(0.5f), FloatBits(0.75f), FloatBits(1.0f), 0xDEAD});
    const uint32_t vState3 = b.Word(3);
    const uint32_t vState2 = b.Word(2);
    const uint32_t vSamp = b.Put({2, 0xA, 0, tStateTexture, vState3, 0xB, 1, tStateInt, vState2});
    const uint32_t vState11 = b.Word(11);
    const uint32_t vSamps = b.Put({1, 0xC, 0, tStateTexture, vState11, 0});
    const uint32_t vMessage = b.Word(2);
    const uint32_t vVs = b.Word(4);
    const uint32_t vTextures = b.Put({5, 6});
    const uint32_t vAnonymous = b.Floats({1.5f});
    l.gainValue = b.Floats({0.5f});
    const uint32_t vMin = b.Floats({0});
    const uint32_t vRange = b.Floats({-1, 1});
    const uint32_t vQuality = b.Put({3});
    const uint32_t vAlpha = b.Floats({0.25f});
    const uint32_t vObj7 = b.Word(7), vObj8 = b.Word(8), vObj9 = b.Word(9), vObj10 = b.Word(10);
    const uint32_t nMain = b.String("Main"), nP0 = b.String("P0"), nP1 = b.String("P1");
    const uint32_t nFallback = b.String("Fallback"), nOnly = b.String("Only");

    b.Body();
    b.Put({P_COUNT, 2, 0, kFullEffectObjects});
    b.Put({tWorld, l.worldValue, 3, 1, tUIName, vObject0});
    b.Put({tLightDir, l.lightDirValue, 0, 0});
    b.Put({tViewT, l.viewValue, 0, 0});
    b.Put({tCounts, l.countsValue, 0, 0});
    b.Put({tPairs, l.pairsValue, 0, 0});
    b.Put({tNest, l.nestValue, 0, 0});
    b.Put({tMat, l.matValue, 0, 0});
    b.Put({tSamp, vSamp, 0, 0});
    b.Put({tSamps, vSamps, 0, 0});
    b.Put({tMessage, vMessage, 0, 0});
    b.Put({tVs, vVs, 0, 0});
    b.Put({tTextures, vTextures, 0, 0});
    b.Put({tAnonymous, vAnonymous, 0, 0});
    b.Put({tGain, l.gainValue, 0x10, 2, tMin, vMin, tRange, vRange});
    // Technique "Main": an annotation, two passes.
    b.Put({nMain, 1, 2, tQuality, vQuality});
    b.Put({nP0, 1, 3, tAlpha, vAlpha});
    b.Put({0x92, 0, tStateVs, vObj7});
    b.Put({0x10, 0, tStateString, vObj8});
    b.Put({0x93, 0, tStateVs, vObj9});
    b.Put({nP1, 0, 1, 0x20, 0, tStateTexture, vObj10});
    b.Put({nFallback, 0, 1, nOnly, 0, 0});
    // Object data, then resources.
    l.recordCounts = b.Put({3, 6});
    b.Word(0);
    b.TextBlock("World matrix");
    b.Word(2);
    b.TextBlock("hello");
    b.Word(4);
    b.Block(kShaderBytes, sizeof(kShaderBytes));
    l.resources = b.Put({0xFFFFFFFF, P_SAMP, 5, 0, 1});
    b.TextBlock("Mat.Map");
    b.Put({0, 0, 0xFFFFFFFF, 0, 0});
    b.Block(kStateShader, sizeof(kStateShader));
    b.Put({0, 0, 0xFFFFFFFF, 1, 0});
    b.TextBlock("abc");
    b.Put({0, 0, 0xFFFFFFFF, 2, 2});
    const uint8_t preshader[13] = {0x34, 0x12, 0, 0, 'L', 'i', 'g', 'h', 't', 'D', 'i', 'r', 0};
    b.Block(preshader, sizeof(preshader));
    b.Put({0, 1, 0xFFFFFFFF, 0, 1});
    b.TextBlock("Textures[1]");
    b.Put({0xFFFFFFFF, P_SAMPS, 0, 0, 1});
    b.TextBlock("Message"); // a whole number of words: the file ends with its last byte
    if (layout)
        *layout = l;
    return b.Finish();
}

} // namespace fxtest
