#include "D3D9Resource.h"
#include "D3D9RenderSystem.h"
#include "D3D9ResourceManager.h"

namespace kv
{
namespace
{

// The registry when there is one. After the render system has ended
// GetRenderSystem answers null; while it ends, its manager pointer is null
// once the registry is gone, so late objects find nothing to leave.
D3D9ResourceManager* CurrentManager()
{
    CD3D9RenderSystem* renderSystem = GetD3D9RenderSystem();
    return renderSystem ? renderSystem->GetResourceManager() : nullptr;
}

} // namespace

CD3D9Resource::CD3D9Resource() : m_nResourceIndex(-1)
{
    if (D3D9ResourceManager* manager = CurrentManager())
        manager->notifyResourceCreated(this);
}

CD3D9Resource::~CD3D9Resource()
{
    if (D3D9ResourceManager* manager = CurrentManager())
        manager->notifyResourceDestroyed(this);
}

} // namespace kv
