// The library's only export. It makes the render system and nothing else: the
// engine calls Init next.
#include "D3D9RenderSystem.h"

#include <new>

extern "C" kv::CRenderSystem* CreateRenderSystem()
{
    return new (std::nothrow) kv::CD3D9RenderSystem();
}
