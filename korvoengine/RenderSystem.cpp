#include "engine/RenderSystem.h"
#include "engine/DeviceCapabilities.h"
#include "engine/HardwarePixelBuffer.h"
#include "engine/IndexData.h"
#include "engine/Log.h"
#include "engine/RenderWindow.h"
#include "engine/VertexData.h"

#include <cstdint>

namespace kv
{
namespace
{
CRenderSystem* g_pRenderSystem = nullptr;
}

CRenderSystem* GetRenderSystem()
{
    return g_pRenderSystem;
}

CRenderSystem::CRenderSystem()
    : m_pCapabilities(new CDeviceCapabilities), m_polygonMode(FILL_SOLID), m_cullingMode(CULL_CLOCKWISE),
      m_fDepthBiasConstant(0.0f), m_fDepthBiasSlope(0.0f), m_bPointSprites(false), m_bDepthBufferCleared(false),
      m_bInvertVertexWinding(false), m_nRuntimeMacro(0), m_nLightingMacro(0), m_nBuildDeviceCapabilitiesCount(0),
      m_nAddUsedTextureCount(0), m_pLastUsedTexture(nullptr), m_nCheckActiveRenderTargetCount(0)
{
    // Resources made before Init already look the render system up.
    g_pRenderSystem = this;
}

CRenderSystem::~CRenderSystem()
{
    // Whatever dies from here on must not reach a half-destroyed render system.
    if (g_pRenderSystem == this)
        g_pRenderSystem = nullptr;
    m_pWhiteTexture = nullptr;
    m_pMainWindow = nullptr;
    m_activeRenderTarget.assign(nullptr);
    m_viewport.m_target.assign(nullptr);
    delete m_pCapabilities;
    m_pCapabilities = nullptr;
}

bool CRenderSystem::Reset(HWND hWnd, unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa)
{
    CRenderWindow* window = CRenderWindow::FindByHandle(hWnd);
    if (!window)
    {
        LogWarning("CRenderSystem::Reset: no render window owns the handle %#x",
                   static_cast<unsigned>(reinterpret_cast<uintptr_t>(hWnd)));
        return false;
    }
    return window->Reset(width, height, fullScreen, vsync, fsaa);
}

void CRenderSystem::Destroy()
{
    m_pMainWindow = nullptr;
    m_pWhiteTexture = nullptr;
    m_activeRenderTarget.assign(nullptr);
    m_viewport.m_target.assign(nullptr);
}

void CRenderSystem::SyncFence() {}

CViewport CRenderSystem::_getViewport()
{
    return m_viewport;
}

CRenderTarget* CRenderSystem::_getRenderTarget()
{
    return m_activeRenderTarget.get();
}

bool CRenderSystem::_isDepthBufferCleared()
{
    return m_bDepthBufferCleared;
}

ref_ptr<CVertexData> CRenderSystem::CreateVertexData()
{
    return ref_ptr<CVertexData>(new CVertexData);
}

ref_ptr<CIndexData> CRenderSystem::CreateIndexData()
{
    return ref_ptr<CIndexData>(new CIndexData);
}

void CRenderSystem::_setTextureUnitFiltering(unsigned unit, FilterOptions minFilter, FilterOptions magFilter,
                                             FilterOptions mipFilter)
{
    _setTextureUnitFilter(unit, FT_MIN, minFilter);
    _setTextureUnitFilter(unit, FT_MAG, magFilter);
    _setTextureUnitFilter(unit, FT_MIP, mipFilter);
}

void CRenderSystem::OnBuildDeviceCapabilities()
{
    ++m_nBuildDeviceCapabilitiesCount;
}

void CRenderSystem::AddUsedTexture(CTexture* texture)
{
    ++m_nAddUsedTextureCount;
    m_pLastUsedTexture = texture;
}

CTexture* CRenderSystem::GetWhiteTexture()
{
    if (!m_pWhiteTexture)
    {
        ref_ptr<CTexture> texture = CreateTextureManual(TEX_TYPE_2D, 1, 1, 1, 0, PF_A8R8G8B8, 0, 0, false);
        if (!texture)
        {
            LogErrorImpl("korvoengine/RenderSystem", __LINE__, "Failed to create the white texture");
            return nullptr;
        }
        CHardwarePixelBuffer* buffer = texture->getBuffer(0, 0);
        if (buffer)
        {
            uint32_t white = 0xFFFFFFFFu;
            buffer->blitFromMemory(PixelBox(1, 1, 1, PF_A8R8G8B8, &white), Box(0, 0, 0, 1, 1, 1));
        }
        m_pWhiteTexture = texture;
    }
    return m_pWhiteTexture.get();
}

void CRenderSystem::CheckActiveRenderTarget(CRenderTarget* target)
{
    ++m_nCheckActiveRenderTargetCount;
    if (target && m_activeRenderTarget.get() == target)
        m_activeRenderTarget.assign(nullptr);
}

} // namespace kv
