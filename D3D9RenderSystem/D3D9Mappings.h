#pragma once
// Where the engine's enumerations meet Direct3D's: stateless, total functions.
// The engine hands its enumerations over as plain 32-bit values, so any value
// may arrive; each function has a defined answer for values it does not know.
#include "D3D9Prerequisites.h"

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

// Unknown factors and operations give the enumerations' FORCE_DWORD value.
D3DBLEND toD3DBlend(BlendFactor factor);
D3DBLENDOP toD3DBlendOp(BlendOperation operation);
// Unknown values give 0.
D3DCMPFUNC toD3DCmpFunc(CompareFunction function);
// invert: the stored invert-vertex-winding setting; it swaps the increment and
// decrement operations. Unknown values give 0.
D3DSTENCILOP toD3DStencilOp(StencilOperation operation, bool invert);
// invert swaps clockwise and anticlockwise. Unknown values give 0.
D3DCULL toD3DCull(CullingMode mode, bool invert);
// The wire viewing modes draw as wireframe; unknown values give FORCE_DWORD.
D3DFILLMODE toD3DFillMode(FillMode mode);
// IT_32BIT is 32-bit indices; anything else is 16-bit.
D3DFORMAT toD3DIndexFormat(IndexType type);

// Which sampler state a filter type sets; unknown types set the min filter.
D3DSAMPLERSTATETYPE toD3DSamplerFilterState(FilterType type);
// Anisotropic filtering only where the device offers it for that filter type;
// otherwise linear.
D3DTEXTUREFILTERTYPE toD3DTextureFilter(FilterType type, FilterOptions options, const D3DCAPS9& caps);
// Border addressing falls back to clamp on devices without it.
D3DTEXTUREADDRESS toD3DTextureAddress(TextureAddressMode mode, const D3DCAPS9& caps);

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

} // namespace D3D9Mappings
} // namespace kv
