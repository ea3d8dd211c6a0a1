#pragma once
// Render-state enumerations of the engine. The render system sees them as plain
// 32-bit values and maps them to Direct3D; unknown values have defined mappings.
#include "engine/Colour.h"
#include "engine/Export.h"

namespace kv
{

enum FillMode : int
{
    FILL_POINT = 1,
    FILL_WIREFRAME = 2,
    FILL_SOLID = 3,
    FILL_WIRE_BLACK = 4,
    FILL_WIRE_TINTED = 5,
    FILL_OVERDRAW = 6,
    FILL_SHADER_COMPLEXITY = 7,
};

enum CullingMode : int
{
    CULL_NONE = 1,
    CULL_CLOCKWISE = 2,
    CULL_ANTICLOCKWISE = 3,
};

enum CompareFunction : int
{
    CMPF_ALWAYS_FAIL = 0,
    CMPF_ALWAYS_PASS = 1,
    CMPF_LESS = 2,
    CMPF_LESS_EQUAL = 3,
    CMPF_EQUAL = 4,
    CMPF_NOT_EQUAL = 5,
    CMPF_GREATER_EQUAL = 6,
    CMPF_GREATER = 7,
};

enum StencilOperation : int
{
    SOP_KEEP = 0,
    SOP_ZERO = 1,
    SOP_REPLACE = 2,
    SOP_INCREMENT = 3,
    SOP_DECREMENT = 4,
    SOP_INCREMENT_WRAP = 5,
    SOP_DECREMENT_WRAP = 6,
    SOP_INVERT = 7,
};

enum BlendFactor : int
{
    SBF_ONE = 0,
    SBF_ZERO = 1,
    SBF_DEST_COLOUR = 2,
    SBF_SOURCE_COLOUR = 3,
    SBF_ONE_MINUS_DEST_COLOUR = 4,
    SBF_ONE_MINUS_SOURCE_COLOUR = 5,
    SBF_DEST_ALPHA = 6,
    SBF_SOURCE_ALPHA = 7,
    SBF_ONE_MINUS_DEST_ALPHA = 8,
    SBF_ONE_MINUS_SOURCE_ALPHA = 9,
    SBF_BLEND_FACTOR = 10,
    SBF_ONE_MINUS_BLEND_FACTOR = 11,
    SBF_SOURCE_ALPHA_SATURATE = 12,
};

enum BlendOperation : int
{
    SBO_ADD = 0,
    SBO_SUBTRACT = 1,
    SBO_REVERSE_SUBTRACT = 2,
    SBO_MIN = 3,
    SBO_MAX = 4,
};

enum FilterType : int
{
    FT_MIN = 0,
    FT_MAG = 1,
    FT_MIP = 2,
};

enum FilterOptions : int
{
    FO_NONE = 0,
    FO_POINT = 1,
    FO_LINEAR = 2,
    FO_ANISOTROPIC = 3,
};

enum TextureAddressMode : int
{
    TAM_WRAP = 0,
    TAM_MIRROR = 1,
    TAM_CLAMP = 2,
    TAM_BORDER = 3,
};

// Equal to D3DPRIMITIVETYPE.
enum PrimitiveType : int
{
    PT_POINT_LIST = 1,
    PT_LINE_LIST = 2,
    PT_LINE_STRIP = 3,
    PT_TRIANGLE_LIST = 4,
    PT_TRIANGLE_STRIP = 5,
    PT_TRIANGLE_FAN = 6,
};

enum TexCoordGeneration : int
{
    TEXCALC_NONE = 0,
    TEXCALC_ENVIRONMENT_MAP = 1,
    TEXCALC_ENVIRONMENT_MAP_PLANAR = 2,
    TEXCALC_ENVIRONMENT_MAP_REFLECTION = 3,
    TEXCALC_ENVIRONMENT_MAP_NORMAL = 4,
    TEXCALC_PROJECTIVE_TEXTURE = 5,
};

// Sampler settings that go with a texture binding.
struct KV_API SamplerState
{
    FilterOptions minFilter;
    FilterOptions magFilter;
    FilterOptions mipFilter;
    TextureAddressMode addressU;
    TextureAddressMode addressV;
    TextureAddressMode addressW;
    CColour borderColour;
    float mipBias;
    bool sRGB;

    SamplerState()
        : minFilter(FO_LINEAR), magFilter(FO_LINEAR), mipFilter(FO_NONE), addressU(TAM_CLAMP), addressV(TAM_CLAMP),
          addressW(TAM_CLAMP), borderColour(0.0f, 0.0f, 0.0f, 0.0f), mipBias(0.0f), sRGB(false)
    {
    }

    // Linear min and mag, no mip filter, clamped in U, V and W.
    static const SamplerState S_2LINEAR_2CLAMP;
};

} // namespace kv
