// The library's only export. It makes the render system and nothing else: the
// engine calls Init next.
#include "D3D9RenderSystem.h"
#include "EffectEngineLog.h"

#include <new>

extern "C" kv::CRenderSystem* CreateRenderSystem()
{
    // Effect files read inside the plug-in report through the engine's log, as
    // everything else does.
    ConnectEffectLogToEngine();
    return new (std::nothrow) kv::CD3D9RenderSystem();
}
