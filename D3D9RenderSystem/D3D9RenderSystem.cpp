#include "D3D9RenderSystem.h"
#include "D3D9DriverList.h"
#include "D3D9HLSLCompileThread.h"
#include "D3D9HLSLProgram.h"
#include "D3D9HardwareIndexBuffer.h"
#include "D3D9HardwareOcclusionQuery.h"
#include "D3D9HardwareVertexBuffer.h"
#include "D3D9Mappings.h"
#include "D3D9MultiRenderTarget.h"
#include "D3D9RenderWindow.h"
#include "D3D9ResourceManager.h"
#include "D3D9Texture.h"
#include "D3D9VertexDeclaration.h"
#include "GfxTimerQueryManager.h"
#include "TimerQueryD3D9.h"

#include "engine/DeviceCapabilities.h"
#include "engine/Globals.h"
#include "engine/GpuProgram.h"
#include "engine/HardwareOcclusionQuery.h"
#include "engine/HardwareVertexBuffer.h"

#include <cstring>
#include <vector>

GfxTimerQueryManager* g_pGfxTimerQueryManager = nullptr;

namespace kv
{

CD3D9RenderSystem* GetD3D9RenderSystem()
{
    return static_cast<CD3D9RenderSystem*>(GetRenderSystem());
}

CD3D9RenderSystem::CD3D9RenderSystem()
    : m_bAnisotropicFilter(false), m_nMaxAnisotropy(1), m_pD3D9(nullptr), m_pD3D9Device(nullptr), m_nAdapter(0),
      m_adapterFormat(D3DFMT_UNKNOWN), m_pLockedReadbackSurface(nullptr), m_pResourceManager(nullptr),
      m_pDriverList(nullptr), m_pCurrentVertexShader(nullptr), m_pCurrentPixelShader(nullptr),
      m_pCurrentDepthStencil(nullptr), m_scissorRect(), m_bScissorEnabled(false), m_bStencilEnabled(false),
      m_pCurrentIndexBuffer(nullptr), m_pCurrentVertexDeclaration(nullptr), m_nComplexityRegister(-1),
      m_nComplexityRegisterCount(0)
{
    std::memset(&m_d3dcaps, 0, sizeof(m_d3dcaps));
    std::memset(&m_d3dpp, 0, sizeof(m_d3dpp));
    for (IDirect3DSurface9*& s : m_pCurrentRenderTargets)
        s = nullptr;
    for (IDirect3DPixelShader9*& s : m_pComplexityShaders)
        s = nullptr;

    // A refused runtime is not checked here: BuildDevice reports it.
    m_pD3D9 = Direct3DCreate9(D3D_SDK_VERSION);
    // Before any device: resources made ahead of Init register already.
    m_pResourceManager = new D3D9ResourceManager;
    g_pGfxTimerQueryManager = new GfxTimerQueryManager;
}

CD3D9RenderSystem::~CD3D9RenderSystem()
{
    delete g_pGfxTimerQueryManager;
    g_pGfxTimerQueryManager = nullptr;

    for (IDirect3DPixelShader9*& shader : m_pComplexityShaders)
    {
        if (shader)
        {
            shader->Release();
            shader = nullptr;
        }
    }

    delete m_pDriverList;
    m_pDriverList = nullptr;

    for (auto& entry : m_mapReadbackSurfaces)
        if (entry.second)
            entry.second->Release();
    m_mapReadbackSurfaces.clear();
    m_pLockedReadbackSurface = nullptr;

    // The white texture is the render system's own: it goes before the
    // registry reports what the engine left alive.
    m_pWhiteTexture = nullptr;

    // The resources give up their Direct3D objects while the device still
    // lives; deleting the registry reports whatever is still alive.
    if (m_pResourceManager)
    {
        m_pResourceManager->notifyOnDeviceDestroy();
        delete m_pResourceManager;
        m_pResourceManager = nullptr;
    }

    if (m_pD3D9Device)
    {
        m_pD3D9Device->Release();
        m_pD3D9Device = nullptr;
    }
    if (m_pD3D9)
    {
        m_pD3D9->Release();
        m_pD3D9 = nullptr;
    }

    m_mapDepthStencilFormats.clear();
    m_renderStates.clear();
    m_samplerStates.clear();
    m_textures.clear();
    m_streamBuffers.clear();
    m_streamOffsets.clear();
    m_streamFrequencies.clear();
    m_frameNesting.clear();
    m_pActiveDepthBuffer = nullptr;
}

bool CD3D9RenderSystem::Init(HWND hWnd, unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa)
{
    // Compiles need no device: programs may be queued from here on. The engine
    // owns the thread once it is made and ends it; one that already runs stays.
    if (!g_pCompileThread)
    {
        g_pCompileThread = new CD3D9HLSLCompileThread;
        g_pCompileThread->Start();
    }

    m_pMainWindow = new CD3D9RenderWindow;
    if (!m_pMainWindow->Init(hWnd, width, height, fullScreen, vsync, fsaa))
    {
        m_pMainWindow = nullptr;
        LogError("Failed to CreateRenderWindow");
        return false;
    }

    if (!BuildDevice(vsync, fsaa))
    {
        LogError("Failed to BuildDevice");
        return false;
    }
    if (!BuildDeviceCapabilities())
    {
        LogError("Failed to BuildDeviceCapabilities");
        return false;
    }
    if (!m_pMainWindow->BuildMainWindow())
    {
        LogError("Failed to m_pMainWindow->BuildMainWindow");
        return false;
    }
    return true;
}

void CD3D9RenderSystem::OnFrameUpdate() {}

bool CD3D9RenderSystem::_beginFrame()
{
    if (!m_frameNesting.empty())
    {
        m_frameNesting.push_back(1);
        return true;
    }
    // Without a device a scene cannot open: the same answer as a refused BeginScene.
    if (!m_pD3D9Device || FAILED(m_pD3D9Device->BeginScene()))
        return false;
    m_frameNesting.push_back(1);
    m_bDepthBufferCleared = false;
    return true;
}

void CD3D9RenderSystem::_endFrame()
{
    if (m_frameNesting.empty())
        return; // a caller without a matching successful _beginFrame
    m_frameNesting.pop_back();
    if (m_frameNesting.empty() && m_pD3D9Device)
        m_pD3D9Device->EndScene();
}

// --- Factories. Each hands the caller one reference.

// The object comes back even when its native part could not be made; the
// failure is in the log.
ref_ptr<CVertexDeclaration> CD3D9RenderSystem::CreateVertexDeclaration(const VertexElement* elements, int count)
{
    return ref_ptr<CVertexDeclaration>(new CD3D9VertexDeclaration(elements, count));
}

ref_ptr<CHardwareVertexBuffer> CD3D9RenderSystem::CreateHardwareVertexBuffer(unsigned vertexSize, unsigned numVertices,
                                                                             CHardwareBuffer::Usage usage,
                                                                             const void* initialData)
{
    return ref_ptr<CHardwareVertexBuffer>(
        new CD3D9HardwareVertexBuffer(vertexSize, numVertices, usage, false, initialData));
}

ref_ptr<CHardwareIndexBuffer> CD3D9RenderSystem::CreateHardwareIndexBuffer(IndexType type, unsigned count,
                                                                           CHardwareBuffer::Usage usage,
                                                                           const void* initialData)
{
    return ref_ptr<CHardwareIndexBuffer>(new CD3D9HardwareIndexBuffer(type, count, usage, false, initialData));
}

ref_ptr<CReferenced> CD3D9RenderSystem::CreateReservedBuffer(unsigned, unsigned, unsigned, unsigned, unsigned)
{
    return ref_ptr<CReferenced>();
}

ref_ptr<CGpuProgram> CD3D9RenderSystem::CreateGpuProgram(const char* name)
{
    ref_ptr<CD3D9HLSLProgram> program(new CD3D9HLSLProgram);
    if (!program->Load(name))
    {
        LogError("Failed to CreateGpuProgram:%s", name ? name : "");
        return ref_ptr<CGpuProgram>();
    }
    return ref_ptr<CGpuProgram>(program);
}

// A texture that fails to load is handed out as null; its own reference
// drops with the failure, which destroys it.
ref_ptr<CTexture> CD3D9RenderSystem::CreateTextureManual(TextureType type, unsigned width, unsigned height,
                                                         unsigned depth, int mipmaps, PixelFormat format,
                                                         unsigned usage, unsigned char fsaa, bool flag)
{
    ref_ptr<CD3D9Texture> texture(new CD3D9Texture);
    if (texture->LoadManual(type, width, height, depth, mipmaps, format, usage, fsaa, flag))
        return ref_ptr<CTexture>(texture);
    LogError("Failed to CreateTexture Manual:%d %d %d", static_cast<int>(width), static_cast<int>(height),
             static_cast<int>(format));
    return ref_ptr<CTexture>();
}

ref_ptr<CTexture> CD3D9RenderSystem::CreateTextureFromMemory(const char* name, void* data, int size, TextureType type,
                                                             int mipmaps, bool flag)
{
    ref_ptr<CD3D9Texture> texture(new CD3D9Texture);
    if (texture->Load(name, data, size, type, mipmaps, flag))
        return ref_ptr<CTexture>(texture);
    LogError("Failed to CreateTextureFromMemory:%s", name ? name : "");
    return ref_ptr<CTexture>();
}

ref_ptr<CTexture> CD3D9RenderSystem::CreateTexture(const char* name, TextureType type, int mipmaps, bool flag)
{
    ref_ptr<CD3D9Texture> texture(new CD3D9Texture);
    if (texture->Load(name, type, mipmaps, flag))
        return ref_ptr<CTexture>(texture);
    LogError("Failed to CreateTexture:%s", name ? name : "");
    return ref_ptr<CTexture>();
}

ref_ptr<CTexture> CD3D9RenderSystem::CreateReservedTexture(unsigned, unsigned, unsigned, unsigned, unsigned, unsigned,
                                                           unsigned, unsigned, unsigned, unsigned)
{
    return ref_ptr<CTexture>();
}

void CD3D9RenderSystem::ReservedCall12(unsigned, unsigned, unsigned, unsigned, unsigned, unsigned, unsigned, unsigned,
                                       unsigned, unsigned, unsigned, unsigned)
{
}

void CD3D9RenderSystem::ReservedCall2(unsigned, unsigned) {}

ref_ptr<CRenderWindow> CD3D9RenderSystem::CreateRenderWindow(HWND hWnd, unsigned width, unsigned height,
                                                             bool fullScreen)
{
    if (!hWnd || width == 0 || height == 0)
        return ref_ptr<CRenderWindow>();
    // Further windows never wait for the vertical blank and never multisample:
    // they share the device with the main window, which sets both.
    ref_ptr<CD3D9RenderWindow> window(new CD3D9RenderWindow);
    if (!window->Init(hWnd, width, height, fullScreen, false, 0))
        return ref_ptr<CRenderWindow>();
    if (!window->BuildSwapChain())
        return ref_ptr<CRenderWindow>();
    return ref_ptr<CRenderWindow>(window);
}

ref_ptr<CMultiRenderTarget> CD3D9RenderSystem::CreateMultiRenderTarget()
{
    return ref_ptr<CMultiRenderTarget>(new CD3D9MultiRenderTarget);
}

ref_ptr<CHardwareOcclusionQuery> CD3D9RenderSystem::CreateHardwareOcclusionQuery()
{
    return ref_ptr<CHardwareOcclusionQuery>(new CD3D9HardwareOcclusionQuery);
}

CDriverList* CD3D9RenderSystem::GetDriverList()
{
    // Enumeration reads the device type of m_d3dcaps: meant for after Init.
    if (!m_pDriverList)
        m_pDriverList = new D3D9DriverList(m_pD3D9);
    return m_pDriverList;
}

// --- Profiler events: texts the engine gives in the system code page, handed
// to the profiler as wide strings.

namespace
{

const D3DCOLOR kProfilerColour = 0x01000100;

std::vector<WCHAR> ProfilerText(const char* text)
{
    const int length = text ? static_cast<int>(std::strlen(text)) : 0;
    std::vector<WCHAR> wide(static_cast<size_t>(length) + 1, 0);
    if (length > 0)
        MultiByteToWideChar(CP_ACP, 0, text, length, wide.data(), length + 1);
    return wide;
}

} // namespace

void CD3D9RenderSystem::BeginEvent(const char* name)
{
    std::vector<WCHAR> wide = ProfilerText(name);
    D3DPERF_BeginEvent(kProfilerColour, wide.data());
}

void CD3D9RenderSystem::EndEvent()
{
    D3DPERF_EndEvent();
}

void CD3D9RenderSystem::SetMarker(const char* name)
{
    std::vector<WCHAR> wide = ProfilerText(name);
    D3DPERF_SetMarker(kProfilerColour, wide.data());
}

DWORD CD3D9RenderSystem::TextureUsageToD3D(unsigned usage)
{
    if (usage & TU_DEPTHSTENCIL)
        return D3DUSAGE_DEPTHSTENCIL;
    if (usage & TU_RENDERTARGET)
        return D3DUSAGE_RENDERTARGET;
    if (usage & TU_DYNAMIC)
        return D3DUSAGE_DYNAMIC;
    if (usage & TU_STATIC)
        return 0;
    return usage;
}

bool CD3D9RenderSystem::CheckTextureFormat(PixelFormat format, unsigned usage)
{
    if (!m_pD3D9)
        return false;
    HRESULT hr = m_pD3D9->CheckDeviceFormat(m_nAdapter, m_d3dcaps.DeviceType, m_adapterFormat, TextureUsageToD3D(usage),
                                            D3DRTYPE_TEXTURE, D3D9Mappings::toD3DFormat(format));
    // Only exactly D3D_OK counts: a positive success code is a refusal here.
    return hr == D3D_OK;
}

D3DFORMAT CD3D9RenderSystem::GetBackBufferFormat() const
{
    return m_d3dpp.BackBufferFormat;
}

bool CD3D9RenderSystem::CheckDynamicTexture(DWORD usage, D3DRESOURCETYPE type, D3DFORMAT format)
{
    return m_pD3D9 && m_pD3D9->CheckDeviceFormat(m_nAdapter, m_d3dcaps.DeviceType, m_adapterFormat,
                                                 usage | D3DUSAGE_DYNAMIC, type, format) == D3D_OK;
}

bool CD3D9RenderSystem::CheckAutoGenMipmaps(unsigned width, unsigned height, unsigned depth, DWORD usage,
                                            D3DRESOURCETYPE type, D3DFORMAT format)
{
    auto powerOfTwo = [](unsigned n) { return n != 0 && (n & (n - 1)) == 0; };
    if (!powerOfTwo(width) || !powerOfTwo(height) || !powerOfTwo(depth))
        return false;
    if (!(m_d3dcaps.Caps2 & D3DCAPS2_CANAUTOGENMIPMAP))
        return false;
    // Exactly D3D_OK: D3DOK_NOAUTOGEN says the format would not generate.
    return m_pD3D9 && m_pD3D9->CheckDeviceFormat(m_nAdapter, m_d3dcaps.DeviceType, m_adapterFormat,
                                                 usage | D3DUSAGE_AUTOGENMIPMAP, type, format) == D3D_OK;
}

D3DTEXTUREFILTERTYPE CD3D9RenderSystem::GetBestAutoGenFilter(TextureType type) const
{
    DWORD caps = 0;
    if (type == TEX_TYPE_1D || type == TEX_TYPE_2D)
        caps = m_d3dcaps.TextureFilterCaps;
    else if (type == TEX_TYPE_3D)
        caps = m_d3dcaps.VolumeTextureFilterCaps;
    else if (type == TEX_TYPE_CUBE_MAP)
        caps = m_d3dcaps.CubeTextureFilterCaps;
    if (caps & D3DPTFILTERCAPS_MINFGAUSSIANQUAD)
        return D3DTEXF_GAUSSIANQUAD;
    if (caps & D3DPTFILTERCAPS_MINFPYRAMIDALQUAD)
        return D3DTEXF_PYRAMIDALQUAD;
    if (caps & D3DPTFILTERCAPS_MINFANISOTROPIC)
        return D3DTEXF_ANISOTROPIC;
    if (caps & D3DPTFILTERCAPS_MINFLINEAR)
        return D3DTEXF_LINEAR;
    return D3DTEXF_POINT;
}

unsigned CD3D9RenderSystem::ReservedQuery1(unsigned)
{
    return 0;
}

void CD3D9RenderSystem::ReservedCall3(unsigned, unsigned, unsigned) {}
void CD3D9RenderSystem::ReservedCall1A(unsigned) {}

unsigned CD3D9RenderSystem::ReservedQuery0()
{
    return 0;
}

void CD3D9RenderSystem::ReservedCall1B(unsigned) {}

// --- GPU timer queries.

GfxTimerQuery* CD3D9RenderSystem::CreateTimerQuery()
{
    return g_pGfxTimerQueryManager ? g_pGfxTimerQueryManager->CreateQuery() : nullptr;
}

void CD3D9RenderSystem::DestroyTimerQuery(GfxTimerQuery* query)
{
    delete query; // null is ignored
}

void CD3D9RenderSystem::BeginTimerQueryFrame()
{
    if (m_pCapabilities && m_pCapabilities->m_bTimerQuery && g_pGfxTimerQueryManager)
        g_pGfxTimerQueryManager->BeginFrame();
}

void CD3D9RenderSystem::EndTimerQueryFrame()
{
    if (m_pCapabilities && m_pCapabilities->m_bTimerQuery && g_pGfxTimerQueryManager)
        g_pGfxTimerQueryManager->EndFrame();
}

IDirect3DDevice9* CD3D9RenderSystem::GetD3D9Device()
{
    return m_pD3D9Device;
}

void CD3D9RenderSystem::ReservedHookA() {}
void CD3D9RenderSystem::ReservedHookB() {}
} // namespace kv
