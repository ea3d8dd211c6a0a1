#pragma once
// Where the engine's enumerations meet Direct3D's: stateless, total functions.
// The state mappings are inline: every state setter of a frame runs through
// them, and a call out of line would cost more than the lookup itself.
// The engine hands its enumerations over as plain 32-bit values, so any value
// may arrive; each function has a defined answer for values it does not know.
#include "D3D9Prerequisites.h"

#include <d3dx9.h>

#include "engine/HardwareBuffer.h"
#include "engine/HardwareIndexBuffer.h"
#include "engine/PixelFormat.h"
#include "engine/RenderTypes.h"
#include "engine/VertexDeclaration.h"
#include "geometry/Matrix4.h"

namespace kv
{
namespace D3D9Mappings
{

// D3DFMT_UNKNOWN (0) when Direct3D has no such format.
D3DFORMAT toD3DFormat(PixelFormat format);
// PF_UNKNOWN (0) when the engine has no such format.
PixelFormat fromD3DFormat(D3DFORMAT format);
// A format that toD3DFormat knows: the input itself, its nearest partner, or PF_A8R8G8B8.
PixelFormat closestSupportedFormat(PixelFormat format);

// An unknown type is reported and stands as D3DDECLTYPE_FLOAT3.
D3DDECLTYPE toD3DDeclType(VertexElementType type);
// Unknown values become the position semantic, silently, in both directions.
D3DDECLUSAGE toD3DDeclUsage(VertexSemantic semantic);
VertexSemantic fromD3DDeclUsage(D3DDECLUSAGE usage);

// The setters of a frame meet values that change from draw to draw; a table
// read costs no branch on the value, where a switch would be mispredicted as
// often as the values change.
template <typename T, size_t N, typename E>
inline T Lookup(const T (&table)[N], E value, T unknown)
{
    const unsigned index = static_cast<unsigned>(value);
    return index < N ? table[index] : unknown;
}

// Unknown factors and operations give the enumerations' FORCE_DWORD value.
inline D3DBLEND toD3DBlend(BlendFactor factor)
{
    static constexpr D3DBLEND kBlends[] = {D3DBLEND_ONE,         D3DBLEND_ZERO,         D3DBLEND_DESTCOLOR,
                                           D3DBLEND_SRCCOLOR,    D3DBLEND_INVDESTCOLOR, D3DBLEND_INVSRCCOLOR,
                                           D3DBLEND_DESTALPHA,   D3DBLEND_SRCALPHA,     D3DBLEND_INVDESTALPHA,
                                           D3DBLEND_INVSRCALPHA, D3DBLEND_BLENDFACTOR,  D3DBLEND_INVBLENDFACTOR,
                                           D3DBLEND_SRCALPHASAT};
    return Lookup(kBlends, factor, D3DBLEND_FORCE_DWORD);
}

inline D3DBLENDOP toD3DBlendOp(BlendOperation operation)
{
    static constexpr D3DBLENDOP kOperations[] = {D3DBLENDOP_ADD, D3DBLENDOP_SUBTRACT, D3DBLENDOP_REVSUBTRACT,
                                                 D3DBLENDOP_MIN, D3DBLENDOP_MAX};
    return Lookup(kOperations, operation, D3DBLENDOP_FORCE_DWORD);
}

// Unknown values give 0.
inline D3DCMPFUNC toD3DCmpFunc(CompareFunction function)
{
    static constexpr D3DCMPFUNC kFunctions[] = {D3DCMP_NEVER, D3DCMP_ALWAYS,   D3DCMP_LESS,         D3DCMP_LESSEQUAL,
                                                D3DCMP_EQUAL, D3DCMP_NOTEQUAL, D3DCMP_GREATEREQUAL, D3DCMP_GREATER};
    return Lookup(kFunctions, function, static_cast<D3DCMPFUNC>(0));
}

// invert: the stored invert-vertex-winding setting; it swaps the increment and
// decrement operations. Unknown values give 0.
inline D3DSTENCILOP toD3DStencilOp(StencilOperation operation, bool invert)
{
    // With the winding inverted, front and back faces trade places, and so do
    // the operations that count up and down.
    switch (operation)
    {
    case SOP_KEEP:
        return D3DSTENCILOP_KEEP;
    case SOP_ZERO:
        return D3DSTENCILOP_ZERO;
    case SOP_REPLACE:
        return D3DSTENCILOP_REPLACE;
    case SOP_INCREMENT:
        return invert ? D3DSTENCILOP_DECRSAT : D3DSTENCILOP_INCRSAT;
    case SOP_DECREMENT:
        return invert ? D3DSTENCILOP_INCRSAT : D3DSTENCILOP_DECRSAT;
    case SOP_INCREMENT_WRAP:
        return invert ? D3DSTENCILOP_DECR : D3DSTENCILOP_INCR;
    case SOP_DECREMENT_WRAP:
        return invert ? D3DSTENCILOP_INCR : D3DSTENCILOP_DECR;
    case SOP_INVERT:
        return D3DSTENCILOP_INVERT;
    }
    return static_cast<D3DSTENCILOP>(0);
}

// invert swaps clockwise and anticlockwise. Unknown values give 0.
inline D3DCULL toD3DCull(CullingMode mode, bool invert)
{
    static constexpr D3DCULL kCulls[2][4] = {{static_cast<D3DCULL>(0), D3DCULL_NONE, D3DCULL_CW, D3DCULL_CCW},
                                             {static_cast<D3DCULL>(0), D3DCULL_NONE, D3DCULL_CCW, D3DCULL_CW}};
    return Lookup(kCulls[invert ? 1 : 0], mode, static_cast<D3DCULL>(0));
}

// The wire viewing modes draw as wireframe; unknown values give FORCE_DWORD.
inline D3DFILLMODE toD3DFillMode(FillMode mode)
{
    switch (mode)
    {
    case FILL_POINT:
        return D3DFILL_POINT;
    case FILL_WIREFRAME:
    case FILL_WIRE_BLACK:
    case FILL_WIRE_TINTED:
        return D3DFILL_WIREFRAME;
    case FILL_SOLID:
        return D3DFILL_SOLID;
    case FILL_OVERDRAW:
    case FILL_SHADER_COMPLEXITY:
        // Viewing modes that the state setters handle themselves.
        break;
    }
    return D3DFILL_FORCE_DWORD;
}

// IT_32BIT is 32-bit indices; anything else is 16-bit.
D3DFORMAT toD3DIndexFormat(IndexType type);

// Which sampler state a filter type sets; unknown types set the min filter.
inline D3DSAMPLERSTATETYPE toD3DSamplerFilterState(FilterType type)
{
    static constexpr D3DSAMPLERSTATETYPE kStates[] = {D3DSAMP_MINFILTER, D3DSAMP_MAGFILTER, D3DSAMP_MIPFILTER};
    return Lookup(kStates, type, D3DSAMP_MINFILTER);
}

// Anisotropic filtering only where the device offers it for that filter type;
// otherwise linear.
inline D3DTEXTUREFILTERTYPE toD3DTextureFilter(FilterType type, FilterOptions options, const D3DCAPS9& caps)
{
    // Direct3D has no anisotropic mip filter; devices may also lack it for one
    // of minification and magnification. Linear is the next best.
    static constexpr D3DTEXTUREFILTERTYPE kFilters[2][4] = {
        {D3DTEXF_NONE, D3DTEXF_POINT, D3DTEXF_LINEAR, D3DTEXF_LINEAR},
        {D3DTEXF_NONE, D3DTEXF_POINT, D3DTEXF_LINEAR, D3DTEXF_ANISOTROPIC}};
    const DWORD anisotropicCap = type == FT_MAG   ? DWORD(D3DPTFILTERCAPS_MAGFANISOTROPIC)
                                 : type == FT_MIN ? DWORD(D3DPTFILTERCAPS_MINFANISOTROPIC)
                                                  : 0u;
    return Lookup(kFilters[(caps.TextureFilterCaps & anisotropicCap) ? 1 : 0], options, D3DTEXF_NONE);
}

// Border addressing falls back to clamp on devices without it.
inline D3DTEXTUREADDRESS toD3DTextureAddress(TextureAddressMode mode, const D3DCAPS9& caps)
{
    // Clamp keeps the edge texels, which is closer to a border than wrapping
    // around would be.
    static constexpr D3DTEXTUREADDRESS kAddresses[2][4] = {
        {D3DTADDRESS_WRAP, D3DTADDRESS_MIRROR, D3DTADDRESS_CLAMP, D3DTADDRESS_CLAMP},
        {D3DTADDRESS_WRAP, D3DTADDRESS_MIRROR, D3DTADDRESS_CLAMP, D3DTADDRESS_BORDER}};
    return Lookup(kAddresses[(caps.TextureAddressCaps & D3DPTADDRESSCAPS_BORDER) ? 1 : 0], mode,
                  D3DTADDRESS_FORCE_DWORD);
}

// D3DUSAGE_DYNAMIC needs both USAGE_DYNAMIC and USAGE_DISCARDABLE.
DWORD toD3DUsage(CHardwareBuffer::Usage usage);
// Lock flags of vertex and index buffers (pixel buffers map their own).
DWORD toD3DLockFlags(CHardwareBuffer::LockOptions options, CHardwareBuffer::Usage usage);

// A D3DTSS_TCI_... value; the sphere map stands in for the environment maps
// only on devices that can generate it.
DWORD toD3DTexCoordIndex(TexCoordGeneration generation, const D3DCAPS9& caps);

// Both directions transpose: the engine's matrices act on column vectors,
// Direct3D's on row vectors.
D3DMATRIX toD3DMatrix(const Matrix4& matrix);
Matrix4 fromD3DMatrix(const D3DMATRIX& matrix);

// The image file format a path's ending names (".bmp" ... ".pfm", in any case);
// false, with format untouched, for any other ending or a null path.
bool toD3DXImageFileFormat(const char* path, D3DXIMAGE_FILEFORMAT* format);

} // namespace D3D9Mappings
} // namespace kv
