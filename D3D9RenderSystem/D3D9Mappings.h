#pragma once
// Where the engine's enumerations meet Direct3D's: stateless, total functions.
#include "D3D9Prerequisites.h"

#include "engine/PixelFormat.h"

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

} // namespace D3D9Mappings
} // namespace kv
