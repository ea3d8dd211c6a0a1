#include "D3D9ResourceManager.h"
#include "D3D9Prerequisites.h"
#include "D3D9Resource.h"

#include "engine/Globals.h"

namespace kv
{
namespace
{

// The closing line of the leak report, in the engine's GBK code page:
// "the DX resources must all be released before the DX device is".
// (Split where a hex escape would swallow a following letter.)
const char kLeakFooter[] = "DX\xc9\xe8\xb1\xb8\xca\xcd\xb7\xc5\xc7\xb0\xb6\xd4\xd3\xa6\xb5\xc4"
                           "DX\xd7\xca\xd4\xb4\xd3\xa6\xb8\xc3\xd2\xaa\xc8\xab\xb2\xbf\xca\xcd\xb7\xc5\xb5\xf4"
                           "\xa3\xa1\xa3\xa1\xa3\xa1";

} // namespace

D3D9ResourceManager::D3D9ResourceManager()
{
    m_resources.reserve(kInitialCapacity);
}

D3D9ResourceManager::~D3D9ResourceManager()
{
    if (!m_resources.empty())
    {
        // The engine's live object counts tell which kind of object still
        // holds the resources; the registry itself knows only addresses.
        LogError("g_nNodeAmount:%d\ng_nEntityAmount:%d\ng_nEffectAmount:%d\ng_nSkinAmount:%d\n"
                 "g_nSkinSocketAmount:%d\ng_nAnimNodeAmount:%d\ng_nSoundAmount:%d\ng_nTerrainAmount:%d\n"
                 "g_nCameraAmount:%d\ng_nLineAmount:%d\ng_nLightAmount:%d\ng_nTerrainTrunkAmount:%d\n"
                 "g_nNodeResAmount:%d\ng_nTmeAmount:%d\ng_nActionAmount:%d\ng_nParticleSystemAmount:%d\n"
                 "g_nSceneManagerAmount:%d\n\n"
                 "g_nTextureAmount:%d\ng_nTextureResAmount:%d\ng_nTextureManualAmount:%d\n"
                 "g_nRenderTargetAmount:%d\ng_nVBAmount:%d\ng_nIBAmount:%d\ng_nMeshAmount:%d\n"
                 "g_nEffectMeshAmount:%d\ng_nTmeMeshAmount:%d\ng_nMaterialAmount:%d\ng_nMaterialSetAmount:%d\n"
                 "g_nSkeletonAmount:%d\ng_nSkaAmount:%d\n\n"
                 "g_nSoundBufferAmount:%d\ng_nVertexDeclarationAmount:%d\ng_nGpuProgramAmount:%d\n",
                 g_nNodeAmount, g_nEntityAmount, g_nEffectAmount, g_nSkinAmount, g_nSkinSocketAmount, g_nAnimNodeAmount,
                 g_nSoundAmount, g_nTerrainAmount, g_nCameraAmount, g_nLineAmount, g_nLightAmount,
                 g_nTerrainTrunkAmount, g_nNodeResAmount, g_nTmeAmount, g_nActionAmount, g_nParticleSystemAmount,
                 g_nSceneManagerAmount, g_nTextureAmount, g_nTextureResAmount, g_nTextureManualAmount,
                 g_nRenderTargetAmount, g_nVBAmount, g_nIBAmount, g_nMeshAmount, g_nEffectMeshAmount, g_nTmeMeshAmount,
                 g_nMaterialAmount, g_nMaterialSetAmount, g_nSkeletonAmount, g_nSkaAmount, g_nSoundBufferAmount,
                 g_nVertexDeclarationAmount, g_nGpuProgramAmount);
        LogError("%s", kLeakFooter);
    }
    // The members are still alive and keep their indices: they have only been
    // told notifyOnDeviceDestroy, and later find no manager to leave.
}

void D3D9ResourceManager::notifyResourceCreated(CD3D9Resource* resource)
{
    if (!resource)
        return;
    // Past the reserved room the table grows by half, whatever the standard
    // library's own growth would be, so the cost of a large scene is known.
    if (m_resources.size() == m_resources.capacity())
    {
        const std::size_t growth = m_resources.capacity() / 2;
        m_resources.reserve(m_resources.capacity() + (growth ? growth : 1));
    }
    resource->m_nResourceIndex = static_cast<int>(m_resources.size());
    m_resources.push_back(resource);
}

void D3D9ResourceManager::notifyResourceDestroyed(CD3D9Resource* resource)
{
    if (!resource || resource->m_nResourceIndex < 0)
        return;
    const std::size_t index = static_cast<std::size_t>(resource->m_nResourceIndex);
    resource->m_nResourceIndex = -1;
    // An index that does not point back at the object belongs to another
    // table (or none): removing anything here would break this one.
    if (index >= m_resources.size() || m_resources[index] != resource)
        return;
    CD3D9Resource* last = m_resources.back();
    if (last != resource)
    {
        m_resources[index] = last;
        last->m_nResourceIndex = static_cast<int>(index);
    }
    m_resources.pop_back();
}

void D3D9ResourceManager::Walk(void (CD3D9Resource::*notify)())
{
    // By index, with the size read on every turn: a member may add or remove
    // others (or itself) while it is told, and the vector may even move.
    for (std::size_t i = 0; i < m_resources.size(); ++i)
        (m_resources[i]->*notify)();
}

void D3D9ResourceManager::notifyOnDeviceDestroy()
{
    Walk(&CD3D9Resource::notifyOnDeviceDestroy);
}

void D3D9ResourceManager::notifyOnDeviceLost()
{
    Walk(&CD3D9Resource::notifyOnDeviceLost);
}

void D3D9ResourceManager::notifyOnDeviceReset()
{
    Walk(&CD3D9Resource::notifyOnDeviceReset);
}

} // namespace kv
