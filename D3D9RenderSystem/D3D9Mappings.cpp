#include "D3D9Mappings.h"

#include <cstring>

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

D3DDECLTYPE toD3DDeclType(VertexElementType type)
{
    switch (type)
    {
    case VET_FLOAT1:
        return D3DDECLTYPE_FLOAT1;
    case VET_FLOAT2:
        return D3DDECLTYPE_FLOAT2;
    case VET_FLOAT3:
        return D3DDECLTYPE_FLOAT3;
    case VET_FLOAT4:
        return D3DDECLTYPE_FLOAT4;
    case VET_COLOUR:
        return D3DDECLTYPE_D3DCOLOR;
    case VET_SHORT2:
        return D3DDECLTYPE_SHORT2;
    case VET_SHORT4:
        return D3DDECLTYPE_SHORT4;
    case VET_UBYTE4:
        return D3DDECLTYPE_UBYTE4;
    case VET_UBYTE4N:
        return D3DDECLTYPE_UBYTE4N;
    case VET_SHORT2N:
        return D3DDECLTYPE_SHORT2N;
    case VET_SHORT4N:
        return D3DDECLTYPE_SHORT4N;
    case VET_HALF2:
        return D3DDECLTYPE_FLOAT16_2;
    case VET_HALF4:
        return D3DDECLTYPE_FLOAT16_4;
    }
    // The declaration is still made: a wrong type draws garbage, a failed
    // declaration draws nothing at all.
    LogError("Unknow VertexElementType:%d", static_cast<int>(type));
    return D3DDECLTYPE_FLOAT3;
}

D3DDECLUSAGE toD3DDeclUsage(VertexSemantic semantic)
{
    switch (semantic)
    {
    case VES_POSITION:
        return D3DDECLUSAGE_POSITION;
    case VES_NORMAL:
        return D3DDECLUSAGE_NORMAL;
    case VES_BINORMAL:
        return D3DDECLUSAGE_BINORMAL;
    case VES_TANGENT:
        return D3DDECLUSAGE_TANGENT;
    case VES_TEXTURE_COORDINATES:
        return D3DDECLUSAGE_TEXCOORD;
    case VES_COLOUR:
        return D3DDECLUSAGE_COLOR;
    case VES_BLEND_WEIGHTS:
        return D3DDECLUSAGE_BLENDWEIGHT;
    case VES_BLEND_INDICES:
        return D3DDECLUSAGE_BLENDINDICES;
    }
    return D3DDECLUSAGE_POSITION;
}

VertexSemantic fromD3DDeclUsage(D3DDECLUSAGE usage)
{
    switch (usage)
    {
    case D3DDECLUSAGE_POSITION:
        return VES_POSITION;
    case D3DDECLUSAGE_NORMAL:
        return VES_NORMAL;
    case D3DDECLUSAGE_BINORMAL:
        return VES_BINORMAL;
    case D3DDECLUSAGE_TANGENT:
        return VES_TANGENT;
    case D3DDECLUSAGE_TEXCOORD:
        return VES_TEXTURE_COORDINATES;
    case D3DDECLUSAGE_COLOR:
        return VES_COLOUR;
    case D3DDECLUSAGE_BLENDWEIGHT:
        return VES_BLEND_WEIGHTS;
    case D3DDECLUSAGE_BLENDINDICES:
        return VES_BLEND_INDICES;
    default:
        // Shader inputs the engine has no semantic for (PSIZE, FOG, DEPTH, ...).
        return VES_POSITION;
    }
}

D3DFORMAT toD3DIndexFormat(IndexType type)
{
    return type == CHardwareIndexBuffer::IT_32BIT ? D3DFMT_INDEX32 : D3DFMT_INDEX16;
}

namespace
{

// Only a buffer that is both dynamic and discardable becomes a Direct3D
// dynamic buffer; dynamic alone stays managed and survives a device reset.
bool isDynamicDiscardable(CHardwareBuffer::Usage usage)
{
    const unsigned both = CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_DISCARDABLE;
    return (static_cast<unsigned>(usage) & both) == both;
}

} // namespace

DWORD toD3DUsage(CHardwareBuffer::Usage usage)
{
    DWORD result = 0;
    if (usage & CHardwareBuffer::USAGE_WRITE_ONLY)
        result += D3DUSAGE_WRITEONLY;
    if (isDynamicDiscardable(usage))
        result += D3DUSAGE_DYNAMIC;
    return result;
}

DWORD toD3DLockFlags(CHardwareBuffer::LockOptions options, CHardwareBuffer::Usage usage)
{
    // DISCARD and NOOVERWRITE are only allowed on dynamic buffers, READONLY
    // never on write-only ones: Direct3D refuses those locks.
    switch (options)
    {
    case CHardwareBuffer::LOCK_DISCARD:
        return isDynamicDiscardable(usage) ? D3DLOCK_DISCARD : 0;
    case CHardwareBuffer::LOCK_READ_ONLY:
        return (usage & CHardwareBuffer::USAGE_WRITE_ONLY) ? 0 : D3DLOCK_READONLY;
    case CHardwareBuffer::LOCK_NO_OVERWRITE:
        return isDynamicDiscardable(usage) ? D3DLOCK_NOOVERWRITE : 0;
    case CHardwareBuffer::LOCK_NORMAL:
        break;
    }
    return 0;
}

DWORD toD3DTexCoordIndex(TexCoordGeneration generation, const D3DCAPS9& caps)
{
    const bool sphereMap = (caps.VertexProcessingCaps & D3DVTXPCAPS_TEXGEN_SPHEREMAP) != 0;
    switch (generation)
    {
    case TEXCALC_ENVIRONMENT_MAP:
        return sphereMap ? D3DTSS_TCI_SPHEREMAP : D3DTSS_TCI_CAMERASPACENORMAL;
    case TEXCALC_ENVIRONMENT_MAP_PLANAR:
        return sphereMap ? D3DTSS_TCI_SPHEREMAP : D3DTSS_TCI_CAMERASPACEREFLECTIONVECTOR;
    case TEXCALC_ENVIRONMENT_MAP_REFLECTION:
        return D3DTSS_TCI_CAMERASPACEREFLECTIONVECTOR;
    case TEXCALC_ENVIRONMENT_MAP_NORMAL:
        return D3DTSS_TCI_CAMERASPACENORMAL;
    case TEXCALC_PROJECTIVE_TEXTURE:
        return D3DTSS_TCI_CAMERASPACEPOSITION;
    case TEXCALC_NONE:
        break;
    }
    return 0;
}

D3DMATRIX toD3DMatrix(const Matrix4& matrix)
{
    D3DMATRIX result;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            result.m[i][j] = matrix.m[j][i];
    return result;
}

Matrix4 fromD3DMatrix(const D3DMATRIX& matrix)
{
    Matrix4 result;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            result.m[i][j] = matrix.m[j][i];
    return result;
}

bool toD3DXImageFileFormat(const char* path, D3DXIMAGE_FILEFORMAT* format)
{
    static const struct
    {
        const char* ending;
        D3DXIMAGE_FILEFORMAT format;
    } kEndings[] = {{".bmp", D3DXIFF_BMP}, {".jpg", D3DXIFF_JPG}, {".tga", D3DXIFF_TGA},
                    {".png", D3DXIFF_PNG}, {".dds", D3DXIFF_DDS}, {".ppm", D3DXIFF_PPM},
                    {".dib", D3DXIFF_DIB}, {".hdr", D3DXIFF_HDR}, {".pfm", D3DXIFF_PFM}};
    const std::size_t length = path ? std::strlen(path) : 0;
    for (const auto& e : kEndings)
    {
        const std::size_t n = std::strlen(e.ending);
        if (length >= n && _stricmp(path + length - n, e.ending) == 0)
        {
            *format = e.format;
            return true;
        }
    }
    return false;
}

} // namespace D3D9Mappings
} // namespace kv
