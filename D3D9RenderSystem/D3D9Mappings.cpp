#include "D3D9Mappings.h"

namespace kv
{
namespace D3D9Mappings
{
namespace
{

struct FormatPair
{
    PixelFormat engine;
    D3DFORMAT d3d;
};

const FormatPair kFormats[] = {
    {PF_L8, D3DFMT_L8},
    {PF_L16, D3DFMT_L16},
    {PF_A8, D3DFMT_A8},
    {PF_A4L4, D3DFMT_A4L4},
    {PF_A8L8, D3DFMT_A8L8},
    {PF_R5G6B5, D3DFMT_R5G6B5},
    {PF_A4R4G4B4, D3DFMT_A4R4G4B4},
    {PF_A1R5G5B5, D3DFMT_A1R5G5B5},
    {PF_R8G8B8, D3DFMT_R8G8B8},
    {PF_A8R8G8B8, D3DFMT_A8R8G8B8},
    {PF_A8B8G8R8, D3DFMT_A8B8G8R8},
    {PF_A2R10G10B10, D3DFMT_A2R10G10B10},
    {PF_A2B10G10R10, D3DFMT_A2B10G10R10},
    {PF_DXT1, D3DFMT_DXT1},
    {PF_DXT2, D3DFMT_DXT2},
    {PF_DXT3, D3DFMT_DXT3},
    {PF_DXT4, D3DFMT_DXT4},
    {PF_DXT5, D3DFMT_DXT5},
    {PF_FLOAT16_RGBA, D3DFMT_A16B16G16R16F},
    {PF_FLOAT32_RGBA, D3DFMT_A32B32G32R32F},
    {PF_X8R8G8B8, D3DFMT_X8R8G8B8},
    {PF_X8B8G8R8, D3DFMT_X8B8G8R8},
    {PF_D24X8, D3DFMT_D24X8},
    {PF_A16B16G16R16, D3DFMT_A16B16G16R16},
    {PF_R3G3B2, D3DFMT_R3G3B2},
    {PF_FLOAT16_R, D3DFMT_R16F},
    {PF_FLOAT32_R, D3DFMT_R32F},
    {PF_G16R16, D3DFMT_G16R16},
    {PF_FLOAT16_GR, D3DFMT_G16R16F},
    {PF_FLOAT32_GR, D3DFMT_G32R32F},
    {PF_ATI2, static_cast<D3DFORMAT>(MAKEFOURCC('A', 'T', 'I', '2'))},
    {PF_D24S8, D3DFMT_D24S8},
    {PF_NULL, static_cast<D3DFORMAT>(MAKEFOURCC('N', 'U', 'L', 'L'))},
    {PF_INTZ, static_cast<D3DFORMAT>(MAKEFOURCC('I', 'N', 'T', 'Z'))},
    {PF_D16, D3DFMT_D16},
};

} // namespace

D3DFORMAT toD3DFormat(PixelFormat format)
{
    for (const FormatPair& p : kFormats)
        if (p.engine == format)
            return p.d3d;
    return D3DFMT_UNKNOWN;
}

PixelFormat fromD3DFormat(D3DFORMAT format)
{
    for (const FormatPair& p : kFormats)
        if (p.d3d == format)
            return p.engine;
    return PF_UNKNOWN;
}

PixelFormat closestSupportedFormat(PixelFormat format)
{
    if (toD3DFormat(format) != D3DFMT_UNKNOWN)
        return format;
    switch (static_cast<unsigned>(format))
    {
    case 7:
        return PF_R5G6B5;
    case 11:
        return PF_R8G8B8;
    case 22:
        return PF_FLOAT16_RGBA;
    case 24:
        return PF_FLOAT32_RGBA;
    case 37:
        return PF_A16B16G16R16;
    case 109:
        return PF_A4R4G4B4;
    default:
        return PF_A8R8G8B8;
    }
}

} // namespace D3D9Mappings
} // namespace kv
