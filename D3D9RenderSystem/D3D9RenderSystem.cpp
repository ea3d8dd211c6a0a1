#include "D3D9RenderSystem.h"
#include "D3D9DepthBuffer.h"
#include "D3D9DriverList.h"
#include "D3D9HardwareIndexBuffer.h"
#include "D3D9HardwareVertexBuffer.h"
#include "D3D9Mappings.h"
#include "D3D9RenderWindow.h"
#include "D3D9ResourceManager.h"
#include "D3D9ShaderConstants.h"
#include "D3D9VertexDeclaration.h"

#include "engine/DeviceCapabilities.h"
#include "engine/GfxTimerQuery.h"
#include "engine/Globals.h"
#include "engine/GpuProgram.h"
#include "engine/HardwareOcclusionQuery.h"
#include "engine/HardwarePixelBuffer.h"
#include "engine/HardwareVertexBuffer.h"
#include "engine/IndexData.h"
#include "engine/MultiRenderTarget.h"
#include "engine/Root.h"
#include "engine/Timer.h"
#include "engine/VertexData.h"

#include <cstring>
#include <sstream>
#include <string>

#if defined(__GNUC__) && (defined(__i386__) || defined(__x86_64__))
#include <cpuid.h>
#endif

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
      m_pCurrentIndexBuffer(nullptr), m_pCurrentVertexDeclaration(nullptr)
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
    // Still missing: the GPU timer query manager is made here once it exists.
}

CD3D9RenderSystem::~CD3D9RenderSystem()
{
    // Still missing: deleting the timer query manager (g_pGfxTimerQueryManager).
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
    // Step 1 still missing: the HLSL compile thread (CD3D9HLSLCompileThread),
    // stored in g_pCompileThread and started here.

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

namespace
{

// CheckDeviceFormat on the device's adapter with its display format.
HRESULT QueryFormat(const CD3D9RenderSystem& rs, DWORD usage, D3DRESOURCETYPE resourceType, D3DFORMAT format)
{
    return rs.m_pD3D9->CheckDeviceFormat(rs.m_nAdapter, rs.m_d3dcaps.DeviceType, rs.m_adapterFormat, usage,
                                         resourceType, format);
}

// Capability questions count only a plain D3D_OK as a yes.
bool FormatAvailable(const CD3D9RenderSystem& rs, DWORD usage, D3DRESOURCETYPE resourceType, PixelFormat format)
{
    return QueryFormat(rs, usage, resourceType, D3D9Mappings::toD3DFormat(format)) == D3D_OK;
}

GPUVendor VendorOf(DWORD vendorId)
{
    switch (vendorId)
    {
    case 0x10DE:
        return GPU_NVIDIA;
    case 0x1002:
        return GPU_ATI;
    case 0x163C:
    case 0x8086:
        return GPU_INTEL;
    case 0x5333:
        return GPU_S3;
    case 0x102B:
        return GPU_MATROX;
    case 0x3D3D:
        return GPU_3DLABS;
    case 0x1039:
        return GPU_SIS;
    default:
        return GPU_UNKNOWN;
    }
}

std::string TrimBlanks(const std::string& text)
{
    const char* const blanks = " \t\r";
    const std::string::size_type first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return std::string();
    const std::string::size_type last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

// CPUID leaf 1 tells SSE2 in bit 26 of EDX; a processor whose highest basic
// leaf is 0 cannot be asked, and the engine's default stands.
bool ReadSSE2(bool* sse2)
{
#if defined(__GNUC__) && (defined(__i386__) || defined(__x86_64__))
    if (__get_cpuid_max(0, nullptr) < 1)
        return false;
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    __cpuid(1, eax, ebx, ecx, edx);
    *sse2 = (edx >> 26) & 1u;
    return true;
#else
    (void)sse2;
    return false;
#endif
}

} // namespace

bool CD3D9RenderSystem::BuildDevice(bool vsync, unsigned fsaa)
{
    if (!m_pD3D9)
    {
        LogError("Cannot Create D3D9");
        return false;
    }

    // One adapter, the default one, with the hardware device: the adapter list
    // is for the engine's settings, not a choice made here.
    m_nAdapter = 0;
    const D3DDEVTYPE type = D3DDEVTYPE_HAL;

    unsigned count = m_pD3D9->GetAdapterCount();
    LogInfo("AdapterCount:%d", static_cast<int>(count));
    for (unsigned i = 0; i < count; ++i)
    {
        D3DADAPTER_IDENTIFIER9 id;
        if (FAILED(m_pD3D9->GetAdapterIdentifier(i, 0, &id)))
            continue;
        LogInfo("===========================\nAdapter #%d", static_cast<int>(i));
        LogInfo("Driver: %s", id.Driver);
        LogInfo("Description: %s", id.Description);
        LogInfo("DeviceName: %s", id.DeviceName);
        LogInfo("VendorId: 0x%08x, DeviceId: 0x%08x, SubSysId: 0x%08x, Revision: 0x%08x",
                static_cast<unsigned>(id.VendorId), static_cast<unsigned>(id.DeviceId),
                static_cast<unsigned>(id.SubSysId), static_cast<unsigned>(id.Revision));
    }

    // The adapter's capabilities decide the vertex processing and the
    // multisampling; the device's own replace them once it exists.
    HRESULT hr = m_pD3D9->GetDeviceCaps(m_nAdapter, type, &m_d3dcaps);
    if (FAILED(hr))
    {
        LogError("Failed to m_pD3D9->GetDeviceCaps:%d, %s, %s", static_cast<int>(hr), DXGetErrorString(hr),
                 DXGetErrorDescription(hr));
        return false;
    }
    m_nAdapter = m_d3dcaps.AdapterOrdinal;

    D3DDISPLAYMODE mode;
    hr = m_pD3D9->GetAdapterDisplayMode(m_nAdapter, &mode);
    if (FAILED(hr))
    {
        LogError("Failed to m_pD3D9->GetAdapterDisplayMode:%d, %d, %s, %s", static_cast<int>(m_nAdapter),
                 static_cast<int>(hr), DXGetErrorString(hr), DXGetErrorDescription(hr));
        return false;
    }
    m_adapterFormat = mode.Format;

    // Software vertex processing still draws, only slower: worth an error
    // line, not a refusal. The device is single-threaded on purpose (the
    // compile thread never touches it), so no other flag is wanted.
    DWORD behaviour = D3DCREATE_HARDWARE_VERTEXPROCESSING;
    if (!(m_d3dcaps.DevCaps & D3DDEVCAPS_HWTRANSFORMANDLIGHT))
    {
        LogError("Cannot use hardware vertexprocessing");
        behaviour = D3DCREATE_SOFTWARE_VERTEXPROCESSING;
    }

    CD3D9RenderWindow* window = dynamic_cast<CD3D9RenderWindow*>(m_pMainWindow.get());
    if (!window)
    {
        LogError("BuildDevice: there is no main render window to make the device on");
        return false;
    }
    m_d3dpp = window->BuildPresentParameters(m_pD3D9, &type, m_nAdapter, m_adapterFormat);
    ApplyPresentParameters(vsync, fsaa, m_d3dpp);

    // A first refusal can be passing (the window still settling); one more try.
    hr = m_pD3D9->CreateDevice(m_nAdapter, type, window->m_hWnd, behaviour, &m_d3dpp, &m_pD3D9Device);
    if (FAILED(hr))
    {
        hr = m_pD3D9->CreateDevice(m_nAdapter, type, window->m_hWnd, behaviour, &m_d3dpp, &m_pD3D9Device);
        if (FAILED(hr))
        {
            LogError("cannot CreateDevice:%d, %s, %s", static_cast<int>(hr), DXGetErrorString(hr),
                     DXGetErrorDescription(hr));
            return false;
        }
    }

    hr = m_pD3D9Device->GetDeviceCaps(&m_d3dcaps);
    if (FAILED(hr))
    {
        LogError("Cannot get device caps!:%d, %s, %s", static_cast<int>(hr), DXGetErrorString(hr),
                 DXGetErrorDescription(hr));
        return false;
    }

    D3DDEVICE_CREATION_PARAMETERS creation;
    hr = m_pD3D9Device->GetCreationParameters(&creation);
    if (FAILED(hr))
    {
        LogError("Error Get Creation Parameters:%d, %s, %s", static_cast<int>(hr), DXGetErrorString(hr),
                 DXGetErrorDescription(hr));
        return false;
    }

    _resetStateCaches();
    _restoreDeviceStates();
    SetStencilEnabled(false);
    SetFillMode(FILL_SOLID);
    return true;
}

void CD3D9RenderSystem::ApplyPresentParameters(bool vsync, unsigned fsaa, D3DPRESENT_PARAMETERS& pp)
{
    pp.FullScreen_RefreshRateInHz = 0;
    if (vsync)
    {
        // A second back buffer keeps the frame going while one waits for the
        // vertical blank.
        pp.BackBufferCount = 2;
        pp.PresentationInterval = D3DPRESENT_INTERVAL_ONE;
    }
    else
    {
        pp.PresentationInterval = D3DPRESENT_INTERVAL_IMMEDIATE;
    }
    DetermineFSAASettings(fsaa, "", pp.BackBufferFormat, pp.Windowed == 0, &pp.MultiSampleType, &pp.MultiSampleQuality);
}

void CD3D9RenderSystem::DetermineFSAASettings(unsigned fsaa, const char* hint, D3DFORMAT format, bool fullScreen,
                                              D3DMULTISAMPLE_TYPE* type, DWORD* quality)
{
    (void)hint; // carried for the callers' sake; the choice depends on the device alone
    D3DMULTISAMPLE_TYPE chosen = D3DMULTISAMPLE_NONE;
    if (fsaa != 0)
    {
        // A multisampled target is only any use when it can be resolved into a
        // texture with filtering both ways. The header's LINEAR flags are the
        // ones meant (0x200 and 0x2000000); 0x100 and 0x1000000 are the POINT
        // flags, which would let a point-only device pass.
        const DWORD linear = D3DPTFILTERCAPS_MINFLINEAR | D3DPTFILTERCAPS_MAGFLINEAR;
        if (!(m_d3dcaps.DevCaps2 & D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES) ||
            (m_d3dcaps.StretchRectFilterCaps & linear) != linear)
        {
            LogError("m_d3dcaps.Caps2 Cannot support D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES!!!");
        }
        else
        {
            // D3DMULTISAMPLE_16_SAMPLES is the highest count there is: asking
            // above it would only be refused, one call at a time.
            const unsigned highest = static_cast<unsigned>(D3DMULTISAMPLE_16_SAMPLES);
            unsigned count = fsaa < highest ? fsaa : highest;
            while (count > 0)
            {
                DWORD levels = 0;
                if (m_pD3D9 &&
                    m_pD3D9->CheckDeviceMultiSampleType(m_nAdapter, m_d3dcaps.DeviceType, format, !fullScreen,
                                                        static_cast<D3DMULTISAMPLE_TYPE>(count), &levels) == D3D_OK)
                    break;
                --count;
            }
            chosen = static_cast<D3DMULTISAMPLE_TYPE>(count);
        }
    }
    if (type)
        *type = chosen;
    if (quality)
        *quality = 0;
}

bool CD3D9RenderSystem::BuildDeviceCapabilities()
{
    CDeviceCapabilities* caps = m_pCapabilities;
    if (!m_pD3D9 || !m_pD3D9Device || !caps)
    {
        LogError("BuildDeviceCapabilities: there is no device to ask");
        return false;
    }

    D3DADAPTER_IDENTIFIER9 id;
    std::memset(&id, 0, sizeof(id));
    D3D9Verify(m_pD3D9->GetAdapterIdentifier(m_nAdapter, 0, &id));

    bool sse2 = false;
    if (ReadSSE2(&sse2))
        caps->m_bSSE2 = sse2;

    std::ostringstream name;
    name << "Monitor-" << m_nAdapter << "-" << id.Description;
    const std::string deviceName = TrimBlanks(name.str());

    caps->m_eVendor = VendorOf(id.VendorId);
    const uint32_t high = static_cast<uint32_t>(id.DriverVersion.HighPart);
    const uint32_t low = static_cast<uint32_t>(id.DriverVersion.LowPart);
    caps->m_nDriverProduct = high >> 16;
    caps->m_nDriverVersion = high & 0xFFFF;
    caps->m_nDriverSubVersion = low >> 16;
    caps->m_nDriverBuild = low & 0xFFFF;
    caps->setDeviceName(deviceName.c_str());

    caps->m_nNumMultiRenderTargets = static_cast<unsigned char>(
        m_d3dcaps.NumSimultaneousRTs < kMaxRenderTargets ? m_d3dcaps.NumSimultaneousRTs : kMaxRenderTargets);
    if (caps->m_fMaxPointSize > m_d3dcaps.MaxPointSize)
        caps->m_fMaxPointSize = m_d3dcaps.MaxPointSize;

    // Any one float format will do; a positive success code counts here.
    static const D3DFORMAT floatFormats[] = {D3DFMT_R16F, D3DFMT_G16R16F, D3DFMT_A16B16G16R16F,
                                             D3DFMT_R32F, D3DFMT_G32R32F, D3DFMT_A32B32G32R32F};
    for (D3DFORMAT f : floatFormats)
    {
        if (SUCCEEDED(QueryFormat(*this, 0, D3DRTYPE_TEXTURE, f)))
        {
            caps->m_bFloatTexture = true;
            break;
        }
    }

    caps->m_bMRTIndependentBitDepths = (m_d3dcaps.PrimitiveMiscCaps & D3DPMISCCAPS_MRTINDEPENDENTBITDEPTHS) != 0;

    caps->m_bNonPowerOfTwoTexture =
        (m_d3dcaps.TextureCaps & (D3DPTEXTURECAPS_POW2 | D3DPTEXTURECAPS_NONPOW2CONDITIONAL)) == 0;
    if (!caps->m_bNonPowerOfTwoTexture)
        LogError("Cannot support NPO2 texture!!!");

    // Only the low 16 bits are meaningful; even a small card is treated as 4096.
    unsigned maxSize = m_d3dcaps.MaxTextureWidth & 0xFFFF;
    if (maxSize < 4096)
        maxSize = 4096;
    for (unsigned& size : caps->m_nMaxTextureSize)
        size = maxSize;

    // Below shader model 2 nothing of the engine's shading can run.
    const uint32_t vs = m_d3dcaps.VertexShaderVersion;
    const uint32_t ps = m_d3dcaps.PixelShaderVersion;
    if (vs >= D3DVS_VERSION(3, 0) && ps >= D3DPS_VERSION(3, 0))
    {
    }
    else if (vs >= D3DVS_VERSION(2, 0) && ps >= D3DPS_VERSION(2, 0))
    {
        g_eRenderSystemType = RST_DX9A;
        LogInfo("Change into D3D9A as shader version < 3.0");
    }
    else
    {
        LogError("vs>=2.0 && ps>=2.0 not supported!!!");
        return false;
    }

    // The model 3 shaders sample float textures in the vertex stage; without
    // both formats there the whole system falls back to the model 2 mode.
    const bool vertexR = SUCCEEDED(
        QueryFormat(*this, D3DUSAGE_QUERY_VERTEXTEXTURE, D3DRTYPE_TEXTURE, D3D9Mappings::toD3DFormat(PF_FLOAT32_R)));
    const bool vertexRGBA = SUCCEEDED(
        QueryFormat(*this, D3DUSAGE_QUERY_VERTEXTEXTURE, D3DRTYPE_TEXTURE, D3D9Mappings::toD3DFormat(PF_FLOAT32_RGBA)));
    if (vertexR && vertexRGBA)
    {
        caps->m_bVertexTextureFetch = true;
    }
    else
    {
        caps->m_bVertexTextureFetch = false;
        LogWarning("VS Texture PF_FLOAT32_R && PF_FLOAT32_RGBA not supported!!!");
        g_eRenderSystemType = RST_DX9A;
        LogInfo("Change into D3D9A as VS Texture PF_FLOAT32_R && PF_FLOAT32_RGBA not supported");
    }

    caps->m_bDepthTextureINTZ = FormatAvailable(*this, D3DUSAGE_DEPTHSTENCIL, D3DRTYPE_SURFACE, PF_INTZ);
    caps->SetHardwarePCFSupported(FormatAvailable(*this, D3DUSAGE_DEPTHSTENCIL, D3DRTYPE_SURFACE, PF_D24S8));
    caps->m_bDepthTextureD16 = FormatAvailable(*this, D3DUSAGE_DEPTHSTENCIL, D3DRTYPE_SURFACE, PF_D16);
    caps->m_bNullRenderTarget = FormatAvailable(*this, D3DUSAGE_RENDERTARGET, D3DRTYPE_SURFACE, PF_NULL);
    caps->m_bATI2Texture = FormatAvailable(*this, 0, D3DRTYPE_TEXTURE, PF_ATI2);
    caps->m_bFloat32RenderTarget = FormatAvailable(*this, D3DUSAGE_RENDERTARGET, D3DRTYPE_SURFACE, PF_FLOAT32_R);
    caps->m_bFloat16RenderTarget = FormatAvailable(*this, D3DUSAGE_RENDERTARGET, D3DRTYPE_SURFACE, PF_FLOAT16_R);

    // Shadow maps: a hardware-compared depth map where the card filters depth
    // itself (with a colour target that costs nothing when it can), else depth
    // written into a float colour target.
    if (caps->GetHardwarePCFSupported())
    {
        caps->m_eShadowDepthFormat = PF_D24S8;
        caps->m_eShadowColourFormat = caps->m_bNullRenderTarget ? PF_NULL : PF_A8R8G8B8;
    }
    else
    {
        caps->m_eShadowDepthFormat = PF_UNKNOWN;
        caps->m_eShadowColourFormat =
            FormatAvailable(*this, D3DUSAGE_RENDERTARGET, D3DRTYPE_SURFACE, PF_FLOAT32_R) ? PF_FLOAT32_R : PF_A8R8G8B8;
    }

    caps->SetMipBiasSupported((m_d3dcaps.RasterCaps & D3DPRASTERCAPS_MIPMAPLODBIAS) != 0);

    const bool srgbRead = QueryFormat(*this, D3DUSAGE_QUERY_SRGBREAD, D3DRTYPE_TEXTURE, D3DFMT_A8R8G8B8) == D3D_OK;
    const bool srgbWrite = QueryFormat(*this, D3DUSAGE_QUERY_SRGBWRITE, D3DRTYPE_TEXTURE, D3DFMT_A8R8G8B8) == D3D_OK;
    caps->SetSRGBReadWrite(srgbRead && srgbWrite);

    // A null out pointer only asks whether the query type exists; any answer
    // other than "not available" leaves the timer queries to be tried.
    const HRESULT freq = m_pD3D9Device->CreateQuery(D3DQUERYTYPE_TIMESTAMPFREQ, nullptr);
    const HRESULT stamp = m_pD3D9Device->CreateQuery(D3DQUERYTYPE_TIMESTAMP, nullptr);
    caps->m_bTimerQuery = freq != D3DERR_NOTAVAILABLE && stamp != D3DERR_NOTAVAILABLE;

    if (g_eRenderSystemType == RST_DX9C)
        caps->setRenderSystemName("D3D9RenderSystem(DX9C)");
    else if (g_eRenderSystemType == RST_DX9A)
        caps->setRenderSystemName("D3D9RenderSystem(DX9A)");

    OnBuildDeviceCapabilities();
    return true;
}

bool CD3D9RenderSystem::Reset(HWND hWnd, unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa)
{
    // The engine brings the window that owns the handle up to date; a further
    // window has rebuilt its own swap chain by then.
    if (!CRenderSystem::Reset(hWnd, width, height, fullScreen, vsync, fsaa))
        return false;
    if (!m_pMainWindow || hWnd != m_pMainWindow->m_hWnd)
        return true;
    // The main window presents through the device itself: its new size, full
    // screen flag, vsync or multisampling only take effect through a device reset.
    return ResetDevice(vsync, fsaa);
}

bool CD3D9RenderSystem::IsDeviceLost()
{
    // Without a device there is nothing to draw on.
    if (!m_pD3D9Device)
        return true;
    // The device is the only judge: no flag of our own could notice the driver
    // giving it back.
    HRESULT hr = m_pD3D9Device->TestCooperativeLevel();
    if (hr == D3DERR_DEVICELOST)
        return true;
    if (hr == D3DERR_DEVICENOTRESET && m_frameNesting.empty())
    {
        // A reset inside an open scene would pull resources out from under the
        // frame: it waits for the frame's end. Whether the reset worked is the
        // device's to say afterwards.
        ResetDevice(m_pMainWindow ? m_pMainWindow->m_bVSync : false, m_pMainWindow ? m_pMainWindow->m_nFSAA : 0);
        return m_pD3D9Device->TestCooperativeLevel() != D3D_OK;
    }
    return hr != D3D_OK;
}

bool CD3D9RenderSystem::ResetDevice(bool vsync, unsigned fsaa)
{
    CRenderWindow* window = m_pMainWindow.get();
    if (!m_pD3D9Device || !window || !m_pResourceManager)
    {
        LogError("ResetDevice: there is no device or no main window to reset");
        return false;
    }

    // First, so that nothing set while rebuilding is skipped by a stale shadow.
    _resetStateCaches();
    LogInfo("Try to ResetDevice, %d, %d", static_cast<int>(window->m_nWidth), static_cast<int>(window->m_nHeight));

    // The device's Reset refuses while any default-pool object or any extra
    // reference to one of its surfaces lives on: all of them go first.
    for (auto& entry : m_mapReadbackSurfaces)
        if (entry.second)
            entry.second->Release();
    m_mapReadbackSurfaces.clear();
    m_pLockedReadbackSurface = nullptr;

    // The GPU timer query manager's frequency query, a default-pool object too,
    // is dropped here once that manager exists; its next frame makes it again.

    m_pResourceManager->notifyOnDeviceLost();

    m_pActiveDepthBuffer = nullptr;
    // Forgetting the bound target makes the next _setRenderTarget bind in full.
    m_activeRenderTarget.assign(nullptr);

    m_d3dpp.hDeviceWindow = window->m_hWnd;
    m_d3dpp.BackBufferWidth = window->m_nWidth;
    m_d3dpp.BackBufferHeight = window->m_nHeight;
    m_d3dpp.Windowed = window->m_bFullScreen ? FALSE : TRUE;
    // Without vsync the back buffer count stays where it stood: once two, always two.
    ApplyPresentParameters(vsync, fsaa, m_d3dpp);

    HRESULT hr = m_pD3D9Device->Reset(&m_d3dpp);
    if (FAILED(hr))
    {
        // A warning, not an error: the next IsDeviceAvailable or Present tries again.
        LogWarning("failed to reset a D3D device, %u, %s, %s, W:%d, H:%d, FullScreen:%s", static_cast<unsigned>(hr),
                   DXGetErrorString(hr), DXGetErrorDescription(hr), static_cast<int>(window->m_nWidth),
                   static_cast<int>(window->m_nHeight), window->m_bFullScreen ? "true" : "false");
        if (window->m_bFullScreen)
        {
            // These do not prevent the attempt; they say why a window could not
            // take the whole screen.
            HWND hDeviceWindow = m_d3dpp.hDeviceWindow;
            if (GetParent(hDeviceWindow) != nullptr)
                LogError("Failed to ResetFullScreen, as window has parent window!");
            if (GetWindowLongA(hDeviceWindow, GWL_STYLE) & WS_CHILD)
                // "全屏的窗口必须非WS_CHILD", in the engine's GBK code page.
                LogError("\xC8\xAB\xC6\xC1\xB5\xC4\xB4\xB0\xBF\xDA\xB1\xD8\xD0\xEB\xB7\xC7"
                         "WS_CHILD");
            if (!(GetWindowLongA(hDeviceWindow, GWL_EXSTYLE) & WS_EX_TOPMOST))
                // "全屏的窗口必须是TOPMOST", in the engine's GBK code page.
                LogError("\xC8\xAB\xC6\xC1\xB5\xC4\xB4\xB0\xBF\xDA\xB1\xD8\xD0\xEB\xCA\xC7"
                         "TOPMOST");
        }
        return false;
    }

    m_pResourceManager->notifyOnDeviceReset();
    _restoreDeviceStates();
    LogInfo("Success ResetDevice,%d, %d, FullScreen:%s", static_cast<int>(window->m_nWidth),
            static_cast<int>(window->m_nHeight), window->m_bFullScreen ? "true" : "false");
    GetRoot()->OnDeviceReset();
    return true;
}

bool CD3D9RenderSystem::IsDeviceAvailable()
{
    return !IsDeviceLost();
}

void CD3D9RenderSystem::ApplyTextureAnisotropy()
{
    if (IsDeviceLost())
        return;
    for (unsigned unit = 0; unit < kTextureUnits; ++unit)
        _setTextureLayerAnisotropy(unit, static_cast<unsigned>(m_nMaxAnisotropy));
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

void CD3D9RenderSystem::_resetStateCaches()
{
    m_pCurrentVertexShader = reinterpret_cast<IDirect3DVertexShader9*>(static_cast<uintptr_t>(kUnknownState));
    m_pCurrentPixelShader = reinterpret_cast<IDirect3DPixelShader9*>(static_cast<uintptr_t>(kUnknownState));

    m_renderStates.assign(kRenderStateCount, kUnknownState);
    m_samplerStates.assign(kSamplerCount, std::vector<uint32_t>(kSamplerStateCount, kUnknownState));
    m_textures.assign(kSamplerCount, reinterpret_cast<IDirect3DBaseTexture9*>(static_cast<uintptr_t>(kUnknownState)));

    m_pCurrentIndexBuffer = reinterpret_cast<IDirect3DIndexBuffer9*>(static_cast<uintptr_t>(kUnknownState));
    m_pCurrentVertexDeclaration = reinterpret_cast<IDirect3DVertexDeclaration9*>(static_cast<uintptr_t>(kUnknownState));

    m_streamBuffers.assign(kStreamCount,
                           reinterpret_cast<IDirect3DVertexBuffer9*>(static_cast<uintptr_t>(kUnknownState)));
    m_streamOffsets.assign(kStreamCount, 0);
    m_streamFrequencies.assign(kStreamCount, 1);

    // Every component gets a value no program writes, so the next write of any
    // value is queued.
    float unknown;
    const uint32_t bits = kUnknownConstant;
    std::memcpy(&unknown, &bits, sizeof(unknown));
    for (int r = 0; r < kVertexConstantRegisters; ++r)
    {
        g_VSDirtyRegisters[r] = 0;
        for (float& c : g_VSConstantShadow[r])
            c = unknown;
    }
    for (int r = 0; r < kPixelConstantRegisters; ++r)
    {
        g_PSDirtyRegisters[r] = 0;
        for (float& c : g_PSConstantShadow[r])
            c = unknown;
    }
    g_nVSDirtyCount = 0;
    g_nPSDirtyCount = 0;

    m_pCurrentDepthStencil = reinterpret_cast<IDirect3DSurface9*>(static_cast<uintptr_t>(kUnknownState));
    for (IDirect3DSurface9*& s : m_pCurrentRenderTargets)
        s = reinterpret_cast<IDirect3DSurface9*>(static_cast<uintptr_t>(kUnknownState));
}

void CD3D9RenderSystem::_restoreDeviceStates()
{
    if (m_pD3D9Device)
        D3D9Verify(m_pD3D9Device->GetScissorRect(&m_scissorRect));
    SetCullingMode(m_cullingMode);
    SetFillMode(m_polygonMode);
    SetDepthBias(m_fDepthBiasConstant, m_fDepthBiasSlope);
    SetPointSpritesEnabled(m_bPointSprites);
}

void CD3D9RenderSystem::_sendRenderState(D3DRENDERSTATETYPE state, DWORD value)
{
    D3D9Verify(m_pD3D9Device->SetRenderState(state, value), "Failed to SetRenderState");
    // Kept even after a failure: the same set is not tried again until a reset.
    m_renderStates[state] = value;
}

void CD3D9RenderSystem::_sendSamplerState(DWORD sampler, D3DSAMPLERSTATETYPE type, DWORD value)
{
    D3D9Verify(m_pD3D9Device->SetSamplerState(sampler, type, value), "Failed to SetSamplerState");
    m_samplerStates[sampler][type] = value;
}

// --- Viewport, targets and clear.

namespace
{

// The engine's buffers word of a clear.
const unsigned kClearColour = 1;
const unsigned kClearDepth = 2;
const unsigned kClearStencil = 4;

} // namespace

void CD3D9RenderSystem::_setViewport(const CViewport& viewport, unsigned buffers, const CColour* colour, float depth,
                                     unsigned char stencil)
{
    m_viewport = viewport;
    // A viewport whose target has died is remembered and nothing more.
    CRenderTarget* target = m_viewport.getTarget();
    if (!target)
        return;
    if (!m_pD3D9Device)
    {
        LogError("_setViewport: there is no device to draw on");
        return;
    }

    // The target first: binding colour surface 0 makes the device reset its
    // viewport to the whole surface.
    _setRenderTarget(target);

    const int left = m_viewport.m_nActLeft;
    const int top = m_viewport.m_nActTop;
    const int width = m_viewport.m_nActWidth;
    const int height = m_viewport.m_nActHeight;
    _setViewportRect(left, top, width, height, 0.0f, 1.0f);

    // Each viewport narrows the scissor rectangle to itself; whether the test
    // is on stays as the engine left it.
    m_scissorRect.left = left;
    m_scissorRect.top = top;
    m_scissorRect.right = left + width;
    m_scissorRect.bottom = top + height;
    D3D9Verify(m_pD3D9Device->SetScissorRect(&m_scissorRect));

    if (buffers != 0)
        ClearFrameBuffer(buffers, colour, depth, stencil);
}

void CD3D9RenderSystem::_setViewportRect(int x, int y, int width, int height, float minZ, float maxZ)
{
    if (!m_pD3D9Device)
        return;
    // Not shadowed: binding a colour surface changes the device's viewport behind our back.
    D3DVIEWPORT9 vp;
    vp.X = static_cast<DWORD>(x);
    vp.Y = static_cast<DWORD>(y);
    vp.Width = static_cast<DWORD>(width);
    vp.Height = static_cast<DWORD>(height);
    vp.MinZ = minZ;
    vp.MaxZ = maxZ;
    D3D9Verify(m_pD3D9Device->SetViewport(&vp), "Failed to set viewport");
}

void CD3D9RenderSystem::_setRenderTarget(CRenderTarget* target)
{
    if (!target)
    {
        LogError("_setRenderTarget: no target given");
        return;
    }
    if (!m_pD3D9Device)
        return;

    // sRGB writing belongs to the target and costs only a filtered state.
    SetSRGBWriteEnabled(target->IsHwGamma());

    if (target != m_activeRenderTarget.get())
    {
        m_activeRenderTarget = target;
        if (CTimer* timer = GetTimer())
            ++timer->m_nRenderTargetChanges;

        IDirect3DSurface9* surfaces[kMaxRenderTargets] = {};
        target->GetAttribute("DDBACKBUFFER", surfaces);
        // A target without a surface yet (a window whose device is lost) keeps
        // the device as it is, depth included.
        if (!surfaces[0])
            return;

        const unsigned slots =
            m_d3dcaps.NumSimultaneousRTs < kMaxRenderTargets ? m_d3dcaps.NumSimultaneousRTs : kMaxRenderTargets;
        for (unsigned i = 0; i < slots; ++i)
        {
            if (m_pCurrentRenderTargets[i] == surfaces[i])
                continue;
            // The device refuses a surface bound at two indices: one that moves
            // down leaves its higher place first. A null entry has nothing to move.
            if (surfaces[i])
            {
                for (unsigned j = i + 1; j < slots; ++j)
                {
                    if (m_pCurrentRenderTargets[j] != surfaces[i])
                        continue;
                    D3D9Verify(m_pD3D9Device->SetRenderTarget(j, nullptr), "Failed to setRenderTarget!");
                    m_pCurrentRenderTargets[j] = nullptr;
                }
            }
            D3D9Verify(m_pD3D9Device->SetRenderTarget(i, surfaces[i]), "Failed to setRenderTarget!");
            m_pCurrentRenderTargets[i] = surfaces[i];
        }

        // Still missing: a render texture drawn into must leave the sampler
        // that holds its texture. That needs the native texture behind the
        // target's pixel buffer, which comes with the hardware pixel buffers.
    }

    // Depth runs on every call: the target's depth buffer may have changed
    // while it stayed bound.
    if (target->m_nDepthPoolId == 0)
    {
        if (!m_pCurrentDepthStencil)
            return;
        m_pActiveDepthBuffer = nullptr;
        D3D9Verify(m_pD3D9Device->SetDepthStencilSurface(nullptr), "Failed to setDepthStencil");
        m_pCurrentDepthStencil = nullptr;
        return;
    }

    if (target->m_pDepthTexture && target->getFSAA() == 0)
    {
        // Still missing: the surface of the depth texture's first face and
        // level, which comes with the hardware pixel buffers; until then a
        // depth texture binds no depth surface.
        IDirect3DSurface9* surface = nullptr;
        if (m_pCurrentDepthStencil != surface)
        {
            D3D9Verify(m_pD3D9Device->SetDepthStencilSurface(surface), "Failed to setDepthStencil");
            m_pCurrentDepthStencil = surface;
        }
        m_pActiveDepthBuffer = nullptr;
        return;
    }

    CDepthBuffer* buffer = target->m_pDepthBuffer.get();
    if (!buffer)
    {
        // The buffer bound now serves when it fits: the device already has its surface.
        if (m_pActiveDepthBuffer && m_pActiveDepthBuffer->isCompatible(target))
        {
            target->attachDepthBuffer(m_pActiveDepthBuffer.get());
            return;
        }
        _createDepthBufferFor(target);
        buffer = target->m_pDepthBuffer.get();
    }
    m_pActiveDepthBuffer = buffer;

    CD3D9DepthBuffer* d3dBuffer = dynamic_cast<CD3D9DepthBuffer*>(buffer);
    IDirect3DSurface9* surface = d3dBuffer ? d3dBuffer->getSurface() : nullptr;
    if (m_pCurrentDepthStencil != surface)
    {
        D3D9Verify(m_pD3D9Device->SetDepthStencilSurface(surface), "Failed to setDepthStencil");
        m_pCurrentDepthStencil = surface;
    }
}

D3DFORMAT CD3D9RenderSystem::_getDepthStencilFormatFor(D3DFORMAT colourFormat)
{
    std::map<D3DFORMAT, D3DFORMAT>::const_iterator found = m_mapDepthStencilFormats.find(colourFormat);
    if (found != m_mapDepthStencilFormats.end())
        return found->second; // a stored "none" counts as an answer too
    if (!m_pD3D9)
        return D3DFMT_UNKNOWN;

    // 24 bits with a stencil first: shadow and decal passes want the stencil.
    static const D3DFORMAT candidates[] = {D3DFMT_D24S8, D3DFMT_D24FS8, D3DFMT_D24X4S4, D3DFMT_D24X8,
                                           D3DFMT_D15S1, D3DFMT_D16,    D3DFMT_D32};
    D3DFORMAT result = D3DFMT_UNKNOWN;
    for (D3DFORMAT candidate : candidates)
    {
        if (m_pD3D9->CheckDeviceFormat(m_nAdapter, m_d3dcaps.DeviceType, m_adapterFormat, D3DUSAGE_DEPTHSTENCIL,
                                       D3DRTYPE_SURFACE, candidate) != D3D_OK)
            continue;
        if (m_pD3D9->CheckDepthStencilMatch(m_nAdapter, m_d3dcaps.DeviceType, m_adapterFormat, colourFormat,
                                            candidate) != D3D_OK)
            continue;
        result = candidate;
        break;
    }
    m_mapDepthStencilFormats[colourFormat] = result;
    return result;
}

ref_ptr<CDepthBuffer> CD3D9RenderSystem::_createDepthBufferFor(CRenderTarget* target)
{
    if (!target || !m_pD3D9Device)
        return ref_ptr<CDepthBuffer>();
    IDirect3DSurface9* surfaces[kMaxRenderTargets] = {};
    target->GetAttribute("DDBACKBUFFER", surfaces);
    if (!surfaces[0])
        return ref_ptr<CDepthBuffer>();

    // Size and multisampling follow the colour surface, so a multisampled
    // render texture gets a multisampled depth surface of the same kind.
    D3DSURFACE_DESC desc;
    if (FAILED(surfaces[0]->GetDesc(&desc)))
    {
        LogError("Failed to retrieve Surface Description from BackBuffer. D3D9RenderSystem::_createDepthBufferFor");
        return ref_ptr<CDepthBuffer>();
    }
    const D3DFORMAT format = _getDepthStencilFormatFor(desc.Format);

    // Discarded after each present: nothing reads depth across frames.
    IDirect3DSurface9* surface = nullptr;
    if (FAILED(m_pD3D9Device->CreateDepthStencilSurface(desc.Width, desc.Height, format, desc.MultiSampleType,
                                                        desc.MultiSampleQuality, TRUE, &surface, nullptr)))
    {
        LogError("Error CreateDepthStencilSurface, D3D9RenderSystem::_createDepthBufferFor");
        return ref_ptr<CDepthBuffer>();
    }

    ref_ptr<CDepthBuffer> buffer(new CD3D9DepthBuffer(1, surface, format, desc.Width, desc.Height, desc.MultiSampleType,
                                                      desc.MultiSampleQuality, false));
    target->attachDepthBuffer(buffer.get());
    return buffer;
}

void CD3D9RenderSystem::ClearFrameBuffer(unsigned buffers, const CColour* colour, float depth, unsigned char stencil)
{
    DWORD flags = 0;
    if (buffers & kClearColour)
        flags |= D3DCLEAR_TARGET;
    if (buffers & kClearDepth)
    {
        flags |= D3DCLEAR_ZBUFFER;
        // Told even when the clear fails: the engine only wants to know it was asked.
        m_bDepthBufferCleared = true;
    }
    if (buffers & kClearStencil)
        flags |= D3DCLEAR_STENCIL;
    if (!m_pD3D9Device)
        return;
    const D3DCOLOR packed = colour ? colour->toD3DColor() : 0;
    D3D9Verify(m_pD3D9Device->Clear(0, nullptr, flags, packed, depth, stencil), "Failed to ClearFrameBuffer");
}

void CD3D9RenderSystem::_disableTextureUnits()
{
    for (unsigned unit = 0; unit < kTextureUnits; ++unit)
        SetTexture(unit, nullptr, SamplerState::S_2LINEAR_2CLAMP);
}

// --- Streams and draws. Binding goes through shadows of native pointers; a draw
// always reaches the device. Nothing here allocates.

namespace
{

// Primitives from a count of vertices or indices, in unsigned arithmetic as the
// device counts them; 0 for a type outside the six.
unsigned PrimitiveCountOf(PrimitiveType type, unsigned n)
{
    switch (type)
    {
    case PT_POINT_LIST:
        return n;
    case PT_LINE_LIST:
        return n / 2;
    case PT_LINE_STRIP:
        return n - 1;
    case PT_TRIANGLE_LIST:
        return n / 3;
    case PT_TRIANGLE_STRIP:
    case PT_TRIANGLE_FAN:
        return n - 2;
    }
    return 0;
}

bool IsKnownPrimitive(PrimitiveType type)
{
    return type >= PT_POINT_LIST && type <= PT_TRIANGLE_FAN;
}

// Each draw adds to the GUI sums or to the scene sums, never to both.
void CountDraw(CTimer* timer, unsigned primitives, unsigned vertices)
{
    if (g_bInGUIMode)
    {
        timer->m_nGUIPrimitiveCount += primitives;
        timer->m_nGUIVertexCount += vertices;
        timer->m_nGUIDrawCallCount += 1;
    }
    else
    {
        timer->m_nPrimitiveCount += primitives;
        timer->m_nVertexCount += vertices;
        timer->m_nDrawCallCount += 1;
    }
}

IDirect3DVertexDeclaration9* NativeDeclarationOf(CVertexDeclaration* declaration)
{
    return declaration ? static_cast<CD3D9VertexDeclaration*>(declaration)->m_pD3D9VertexDeclaration : nullptr;
}

} // namespace

void CD3D9RenderSystem::_setVertexDeclaration(CVertexDeclaration* declaration)
{
    IDirect3DVertexDeclaration9* native = NativeDeclarationOf(declaration);
    if (native == m_pCurrentVertexDeclaration || !m_pD3D9Device)
        return;
    m_pCurrentVertexDeclaration = native;
    D3D9Verify(m_pD3D9Device->SetVertexDeclaration(native), "Failed to SetVertexDeclaration");
}

void CD3D9RenderSystem::_setStreamFrequency(unsigned stream, uint32_t value)
{
    if (stream >= m_streamFrequencies.size() || m_streamFrequencies[stream] == value || !m_pD3D9Device)
        return;
    D3D9Verify(m_pD3D9Device->SetStreamSourceFreq(stream, value), "Failed to SetStreamSourceFreq");
    m_streamFrequencies[stream] = value;
}

void CD3D9RenderSystem::_restoreStreamFrequencies()
{
    if (!m_pD3D9Device)
        return;
    for (unsigned stream = 0; stream < m_streamFrequencies.size(); ++stream)
    {
        if (m_streamFrequencies[stream] != 1)
        {
            D3D9Verify(m_pD3D9Device->SetStreamSourceFreq(stream, 1), "Failed to SetStreamSourceFreq");
            m_streamFrequencies[stream] = 1;
        }
    }
}

void CD3D9RenderSystem::SetVertexBuffers(unsigned stream, const CVertexData* data, unsigned offset)
{
    if (stream >= kStreamCount)
    {
        LogError("Failed to CD3D9RenderSystem::SetVertexBuffers, Too many vertex buffers:%d > %d",
                 static_cast<int>(stream), static_cast<int>(kStreamCount));
        return;
    }
    // The shadows exist once the device does.
    if (!data || !m_pD3D9Device || m_streamBuffers.size() < kStreamCount)
        return;

    // Stream 1's data may replace the declaration of stream 0's: the last bound
    // layout is the one that draws.
    _setVertexDeclaration(data->m_pDeclaration.get());

    CD3D9HardwareVertexBuffer* buffer = static_cast<CD3D9HardwareVertexBuffer*>(data->m_pBuffer.get());
    IDirect3DVertexBuffer9* native = buffer ? buffer->m_pD3D9VertexBuffer : nullptr;
    // The stride is not compared: one native buffer has one layout.
    if (m_streamBuffers[stream] == native && m_streamOffsets[stream] == offset)
        return;

    D3D9Verify(m_pD3D9Device->SetStreamSource(stream, native, offset, buffer ? buffer->mElementSize : 0),
               "Failed to SetStreamSource");
    CTimer* timer = GetTimer();
    timer->m_nVBBinds += 1;
    timer->m_nVBBytes += buffer ? buffer->mSizeInBytes : 0;
    m_streamBuffers[stream] = native;
    m_streamOffsets[stream] = offset;
}

void CD3D9RenderSystem::SetVertexBuffer(const CVertexData* data)
{
    SetVertexBuffers(0, data, 0);
}

void CD3D9RenderSystem::SetIndexBuffer(CHardwareIndexBuffer* buffer)
{
    if (!m_pD3D9Device)
        return;
    CD3D9HardwareIndexBuffer* d3dBuffer = static_cast<CD3D9HardwareIndexBuffer*>(buffer);
    IDirect3DIndexBuffer9* native = d3dBuffer ? d3dBuffer->m_pD3D9IndexBuffer : nullptr;
    if (native == m_pCurrentIndexBuffer)
        return;
    CTimer* timer = GetTimer();
    timer->m_nIBBinds += 1;
    timer->m_nIBBytes += d3dBuffer ? d3dBuffer->mSizeInBytes : 0;
    m_pCurrentIndexBuffer = native;
    D3D9Verify(m_pD3D9Device->SetIndices(native), "Failed to SetIndices");
}

void CD3D9RenderSystem::DrawPrimitive(PrimitiveType type, const CVertexData* vertices, const CIndexData* indices,
                                      unsigned instanceCount, bool instanced)
{
    if (!IsKnownPrimitive(type) || !m_pD3D9Device)
        return;
    if (!vertices)
    {
        LogError("Failed to CD3D9RenderSystem::DrawPrimitive, no vertex data");
        return;
    }
    const unsigned primitives = PrimitiveCountOf(type, indices ? indices->m_nIndexCount : vertices->m_nVertexCount);
    if (primitives == 0 || vertices->m_nVertexCount == 0)
        return;

    if (instanced)
    {
        _setStreamFrequency(0, D3DSTREAMSOURCE_INDEXEDDATA | instanceCount);
        _setStreamFrequency(1, D3DSTREAMSOURCE_INSTANCEDATA | 1u);
    }
    else
        _restoreStreamFrequencies();

    if (indices)
        D3D9Verify(m_pD3D9Device->DrawIndexedPrimitive(static_cast<D3DPRIMITIVETYPE>(type),
                                                       static_cast<INT>(vertices->m_nVertexStart), 0,
                                                       vertices->m_nVertexCount, indices->m_nIndexStart, primitives),
                   "Failed to DrawIndexedPrimitive");
    else
        D3D9Verify(
            m_pD3D9Device->DrawPrimitive(static_cast<D3DPRIMITIVETYPE>(type), vertices->m_nVertexStart, primitives),
            "Failed to DrawPrimitive");

    // Lines and the non-solid viewing modes are helpers, not scene content.
    if (m_polygonMode == FILL_SOLID && type != PT_LINE_LIST && type != PT_LINE_STRIP)
    {
        CTimer* timer = GetTimer();
        CountDraw(timer, primitives * instanceCount, vertices->m_nVertexCount);
        if (instanced)
            timer->m_nExtraInstances += instanceCount - 1;
    }
}

void CD3D9RenderSystem::DrawPrimitiveUP(PrimitiveType type, unsigned vertexCount, const void* vertexData,
                                        unsigned stride, CVertexDeclaration* declaration, unsigned instanceCount)
{
    if (!m_pD3D9Device || m_streamBuffers.size() < kStreamCount)
        return;
    _restoreStreamFrequencies();
    _setVertexDeclaration(declaration);
    if (!IsKnownPrimitive(type))
        return;
    const unsigned primitives = PrimitiveCountOf(type, vertexCount);
    if (primitives == 0 || vertexCount == 0)
        return;
    if (!vertexData)
    {
        LogError("Failed to CD3D9RenderSystem::DrawPrimitiveUP, no vertex data");
        return;
    }

    D3D9Verify(m_pD3D9Device->DrawPrimitiveUP(static_cast<D3DPRIMITIVETYPE>(type), primitives, vertexData, stride),
               "Failed to DrawPrimitiveUP");
    // The runtime unbinds stream 0 after a draw from user memory.
    m_streamBuffers[0] = nullptr;

    if (m_polygonMode == FILL_SOLID && type != PT_LINE_STRIP)
    {
        CTimer* timer = GetTimer();
        CountDraw(timer, primitives * instanceCount, vertexCount);
        timer->m_nVBBinds += 1;
        timer->m_nVBBytes += vertexCount * stride;
    }
}

void CD3D9RenderSystem::DrawIndexedPrimitiveUP(PrimitiveType type, unsigned vertexCount, unsigned indexCount,
                                               const void* indexData, IndexType indexType, const void* vertexData,
                                               unsigned stride, CVertexDeclaration* declaration, unsigned instanceCount)
{
    if (!m_pD3D9Device || m_streamBuffers.size() < kStreamCount)
        return;
    _restoreStreamFrequencies();
    _setVertexDeclaration(declaration);
    if (!IsKnownPrimitive(type))
        return;
    const unsigned primitives = PrimitiveCountOf(type, indexCount);
    if (primitives == 0 || vertexCount == 0 || indexCount == 0)
        return;
    if (!vertexData || !indexData)
    {
        LogError("Failed to CD3D9RenderSystem::DrawIndexedPrimitiveUP, no vertex or index data");
        return;
    }

    D3D9Verify(m_pD3D9Device->DrawIndexedPrimitiveUP(static_cast<D3DPRIMITIVETYPE>(type), 0, vertexCount, primitives,
                                                     indexData, D3D9Mappings::toD3DIndexFormat(indexType), vertexData,
                                                     stride),
               "Failed to DrawIndexedPrimitiveUp");
    // The runtime unbinds stream 0 and the indices after a draw from user memory.
    m_streamBuffers[0] = nullptr;
    m_pCurrentIndexBuffer = nullptr;

    if (m_polygonMode == FILL_SOLID && type != PT_LINE_LIST && type != PT_LINE_STRIP)
    {
        CTimer* timer = GetTimer();
        CountDraw(timer, primitives * instanceCount, vertexCount);
        timer->m_nVBBinds += 1;
        timer->m_nVBBytes += vertexCount * stride;
        timer->m_nIBBinds += 1;
        timer->m_nIBBytes += indexCount * (indexType == CHardwareIndexBuffer::IT_16BIT ? 2u : 4u);
    }
}

// Reserved operations: no work in this system, kept for their places in the table.
void CD3D9RenderSystem::DrawReserved3(unsigned, unsigned, unsigned) {}
void CD3D9RenderSystem::DrawReserved5(unsigned, unsigned, unsigned, unsigned, unsigned) {}
void CD3D9RenderSystem::DrawReserved2(unsigned, unsigned) {}

// --- Render and sampler states.

namespace
{

// Direct3D takes float render and sampler states as their bit patterns.
DWORD FloatBits(float value)
{
    DWORD bits;
    static_assert(sizeof(bits) == sizeof(value), "a float state is one 32-bit word");
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

} // namespace

void CD3D9RenderSystem::SetTexture(unsigned unit, CTexture* texture, const SamplerState& state)
{
    // The shadow has a place for every sampler up to the last vertex texture
    // sampler; it is empty until a device exists, and then there is nothing to bind.
    if (unit >= m_textures.size())
    {
        if (!m_textures.empty())
            LogError("SetTexture: sampler %u does not exist", unit);
        return;
    }

    IDirect3DBaseTexture9* native = nullptr;
    if (texture)
    {
        const bool sRGB = state.sRGB && m_pCapabilities && m_pCapabilities->GetSRGBReadWrite();
        _setSamplerState(unit, D3DSAMP_SRGBTEXTURE, sRGB ? TRUE : FALSE);
        _setTextureUnitFiltering(unit, state.minFilter, state.magFilter, state.mipFilter);
        _setTextureAddressingModeUV(unit, state.addressU, state.addressV);
        _setTextureAddressingModeW(unit, state.addressW);
        _setTextureBorderColour(unit, &state.borderColour);
        _setTextureMipmapBias(unit, state.mipBias);
        native = NativeTextureOf(texture);
    }

    // Compared by the native object: two engine textures over one Direct3D
    // texture are one binding.
    if (m_textures[unit] == native)
        return;
    m_textures[unit] = native;
    D3D9Verify(m_pD3D9Device->SetTexture(unit, native), "Failed to SetTexture");
    AddUsedTexture(texture);
}

IDirect3DBaseTexture9* CD3D9RenderSystem::NativeTextureOf(CTexture*)
{
    // The plug-in's own textures (with their white stand-in while loading) are
    // not built yet: until they are, no engine texture has a native object here
    // and binding one empties the unit.
    return nullptr;
}

void CD3D9RenderSystem::SetScissorRect(const RECT* rect)
{
    RECT wanted;
    if (rect)
    {
        wanted = *rect;
    }
    else
    {
        // No rectangle means the viewport's own, while its target lives.
        if (!m_viewport.getTarget())
            return;
        wanted.left = m_viewport.m_nActLeft;
        wanted.top = m_viewport.m_nActTop;
        wanted.right = m_viewport.m_nActLeft + m_viewport.m_nActWidth;
        wanted.bottom = m_viewport.m_nActTop + m_viewport.m_nActHeight;
    }
    if (wanted.left == m_scissorRect.left && wanted.top == m_scissorRect.top && wanted.right == m_scissorRect.right &&
        wanted.bottom == m_scissorRect.bottom)
        return;
    m_scissorRect = wanted;
    if (m_pD3D9Device)
        D3D9Verify(m_pD3D9Device->SetScissorRect(&m_scissorRect));
}

void CD3D9RenderSystem::SetScissorTestEnabled(bool enabled)
{
    _setRenderState(D3DRS_SCISSORTESTENABLE, enabled ? TRUE : FALSE);
    m_bScissorEnabled = enabled;
}

bool CD3D9RenderSystem::GetScissorTestEnabled()
{
    return m_bScissorEnabled;
}

void CD3D9RenderSystem::GetScissorRect(RECT* rect)
{
    if (rect)
        *rect = m_scissorRect;
}

void CD3D9RenderSystem::SetMultiSampleAntiAlias(bool enabled)
{
    _setRenderState(D3DRS_MULTISAMPLEANTIALIAS, enabled ? TRUE : FALSE);
}

void CD3D9RenderSystem::SetFillMode(FillMode mode)
{
    // The viewing modes are kept here too: blending, depth writes and the pixel
    // shader read the stored mode when they are next set.
    m_polygonMode = mode;
    _setRenderState(D3DRS_FILLMODE, D3D9Mappings::toD3DFillMode(mode));
}

FillMode CD3D9RenderSystem::GetFillMode()
{
    return m_polygonMode;
}

void CD3D9RenderSystem::SetStencilEnabled(bool enabled)
{
    // The member is asked first and survives a cache reset, so a repeated value
    // stays quiet even when the render state shadow says unknown.
    if (enabled == m_bStencilEnabled)
        return;
    m_bStencilEnabled = enabled;
    _setRenderState(D3DRS_STENCILENABLE, enabled ? TRUE : FALSE);
}

bool CD3D9RenderSystem::GetStencilEnabled()
{
    return m_bStencilEnabled;
}

void CD3D9RenderSystem::SetStencilState(CompareFunction func, unsigned ref, unsigned mask, unsigned writeMask,
                                        StencilOperation fail, StencilOperation depthFail, StencilOperation pass,
                                        bool twoSided)
{
    // Two-sided: the back (anticlockwise) faces take the operations as the
    // winding flag says, the front faces the other way round, so increments
    // and decrements of the two sides always differ.
    bool frontInvert = false;
    if (twoSided)
    {
        _setRenderState(D3DRS_TWOSIDEDSTENCILMODE, TRUE);
        _setRenderState(D3DRS_CCW_STENCILFAIL, D3D9Mappings::toD3DStencilOp(fail, m_bInvertVertexWinding));
        _setRenderState(D3DRS_CCW_STENCILZFAIL, D3D9Mappings::toD3DStencilOp(depthFail, m_bInvertVertexWinding));
        _setRenderState(D3DRS_CCW_STENCILPASS, D3D9Mappings::toD3DStencilOp(pass, m_bInvertVertexWinding));
        frontInvert = !m_bInvertVertexWinding;
    }
    else
    {
        _setRenderState(D3DRS_TWOSIDEDSTENCILMODE, FALSE);
    }
    _setRenderState(D3DRS_STENCILFUNC, D3D9Mappings::toD3DCmpFunc(func));
    _setRenderState(D3DRS_STENCILREF, ref);
    _setRenderState(D3DRS_STENCILMASK, mask);
    _setRenderState(D3DRS_STENCILWRITEMASK, writeMask);
    _setRenderState(D3DRS_STENCILFAIL, D3D9Mappings::toD3DStencilOp(fail, frontInvert));
    _setRenderState(D3DRS_STENCILZFAIL, D3D9Mappings::toD3DStencilOp(depthFail, frontInvert));
    _setRenderState(D3DRS_STENCILPASS, D3D9Mappings::toD3DStencilOp(pass, frontInvert));
}

void CD3D9RenderSystem::SetDepthBias(float constant, float slope)
{
    // Kept even where the device cannot use them: GetDepthBias answers what the
    // engine asked for, and a reset applies them again.
    m_fDepthBiasConstant = constant;
    m_fDepthBiasSlope = slope;
    // Both go as the floats' bit patterns, in Direct3D's own units.
    if (m_d3dcaps.RasterCaps & D3DPRASTERCAPS_DEPTHBIAS)
        _setRenderState(D3DRS_DEPTHBIAS, FloatBits(constant));
    if (m_d3dcaps.RasterCaps & D3DPRASTERCAPS_SLOPESCALEDEPTHBIAS)
        _setRenderState(D3DRS_SLOPESCALEDEPTHBIAS, FloatBits(slope));
}

void CD3D9RenderSystem::GetDepthBias(float* constant, float* slope)
{
    if (constant)
        *constant = m_fDepthBiasConstant;
    if (slope)
        *slope = m_fDepthBiasSlope;
}

void CD3D9RenderSystem::SetAnisotropy(bool enabled, int level)
{
    // Stored only: the samplers see the level at ApplyTextureAnisotropy.
    m_bAnisotropicFilter = enabled;
    m_nMaxAnisotropy = level;
}

void CD3D9RenderSystem::GetAnisotropy(bool* enabled, int* level)
{
    if (enabled)
        *enabled = m_bAnisotropicFilter;
    if (level)
        *level = m_nMaxAnisotropy;
}

void CD3D9RenderSystem::SetSRGBWriteEnabled(bool enabled)
{
    const bool sRGB = enabled && m_pCapabilities && m_pCapabilities->GetSRGBReadWrite();
    _setRenderState(D3DRS_SRGBWRITEENABLE, sRGB ? TRUE : FALSE);
}

void CD3D9RenderSystem::SetDepthCheckEnabled(bool enabled)
{
    _setRenderState(D3DRS_ZENABLE, enabled ? D3DZB_TRUE : D3DZB_FALSE);
}

bool CD3D9RenderSystem::GetDepthCheckEnabled()
{
    return m_renderStates.size() > D3DRS_ZENABLE && m_renderStates[D3DRS_ZENABLE] == 1;
}

void CD3D9RenderSystem::SetDepthWriteEnabled(bool enabled)
{
    // The overdraw view counts layers, so every layer must pass the depth test.
    const bool write = enabled && m_polygonMode != FILL_OVERDRAW;
    // Only a write can spoil a cleared depth buffer.
    if (write)
        m_bDepthBufferCleared = false;
    _setRenderState(D3DRS_ZWRITEENABLE, write ? TRUE : FALSE);
}

bool CD3D9RenderSystem::GetDepthWriteEnabled()
{
    return m_renderStates.size() > D3DRS_ZWRITEENABLE && m_renderStates[D3DRS_ZWRITEENABLE] == 1;
}

void CD3D9RenderSystem::SetDepthFunction(CompareFunction func)
{
    _setRenderState(D3DRS_ZFUNC, D3D9Mappings::toD3DCmpFunc(func));
}

void CD3D9RenderSystem::SetCullingMode(CullingMode mode)
{
    m_cullingMode = mode;
    _setRenderState(D3DRS_CULLMODE, D3D9Mappings::toD3DCull(mode, m_bInvertVertexWinding));
}

CullingMode CD3D9RenderSystem::GetCullingMode()
{
    return m_cullingMode;
}

void CD3D9RenderSystem::SetColourWriteEnabled(bool red, bool green, bool blue, bool alpha)
{
    const DWORD mask = (red ? D3DCOLORWRITEENABLE_RED : 0u) | (green ? D3DCOLORWRITEENABLE_GREEN : 0u) |
                       (blue ? D3DCOLORWRITEENABLE_BLUE : 0u) | (alpha ? D3DCOLORWRITEENABLE_ALPHA : 0u);
    // Every target of a multiple render target gets the same mask.
    _setRenderState(D3DRS_COLORWRITEENABLE, mask);
    _setRenderState(D3DRS_COLORWRITEENABLE1, mask);
    _setRenderState(D3DRS_COLORWRITEENABLE2, mask);
    _setRenderState(D3DRS_COLORWRITEENABLE3, mask);
}

namespace
{

// The wire and complexity views draw flat colours: blending would only smear them.
bool ViewIgnoresBlending(FillMode mode)
{
    return mode == FILL_WIRE_BLACK || mode == FILL_WIRE_TINTED || mode == FILL_SHADER_COMPLEXITY;
}

} // namespace

void CD3D9RenderSystem::SetSceneBlending(BlendFactor source, BlendFactor dest, BlendOperation op)
{
    if (ViewIgnoresBlending(m_polygonMode))
    {
        _setRenderState(D3DRS_ALPHABLENDENABLE, FALSE);
        return;
    }
    if (m_polygonMode == FILL_OVERDRAW)
    {
        // Each layer adds its quarter-alpha colour: the picture brightens with overdraw.
        source = SBF_SOURCE_ALPHA;
        dest = SBF_ONE;
        op = SBO_ADD;
    }
    else if (source == SBF_ONE && dest == SBF_ZERO)
    {
        // Replacing is no blend, whatever the operation.
        _setRenderState(D3DRS_ALPHABLENDENABLE, FALSE);
        return;
    }
    const DWORD blendOp = D3D9Mappings::toD3DBlendOp(op);
    _setRenderState(D3DRS_ALPHABLENDENABLE, TRUE);
    _setRenderState(D3DRS_SEPARATEALPHABLENDENABLE, FALSE);
    _setRenderState(D3DRS_SRCBLEND, D3D9Mappings::toD3DBlend(source));
    _setRenderState(D3DRS_DESTBLEND, D3D9Mappings::toD3DBlend(dest));
    _setRenderState(D3DRS_BLENDOP, blendOp);
    _setRenderState(D3DRS_BLENDOPALPHA, blendOp);
}

void CD3D9RenderSystem::SetSeparateSceneBlending(BlendFactor source, BlendFactor dest, BlendFactor sourceAlpha,
                                                 BlendFactor destAlpha, BlendOperation op, BlendOperation alphaOp)
{
    if (ViewIgnoresBlending(m_polygonMode))
    {
        _setRenderState(D3DRS_ALPHABLENDENABLE, FALSE);
        return;
    }
    if (m_polygonMode == FILL_OVERDRAW)
    {
        source = sourceAlpha = SBF_SOURCE_ALPHA;
        dest = destAlpha = SBF_ONE;
        op = alphaOp = SBO_ADD;
    }
    else if (source == SBF_ONE && dest == SBF_ZERO && sourceAlpha == SBF_ONE && destAlpha == SBF_ZERO)
    {
        _setRenderState(D3DRS_ALPHABLENDENABLE, FALSE);
        return;
    }
    _setRenderState(D3DRS_ALPHABLENDENABLE, TRUE);
    _setRenderState(D3DRS_SEPARATEALPHABLENDENABLE, TRUE);
    _setRenderState(D3DRS_SRCBLEND, D3D9Mappings::toD3DBlend(source));
    _setRenderState(D3DRS_DESTBLEND, D3D9Mappings::toD3DBlend(dest));
    _setRenderState(D3DRS_SRCBLENDALPHA, D3D9Mappings::toD3DBlend(sourceAlpha));
    _setRenderState(D3DRS_DESTBLENDALPHA, D3D9Mappings::toD3DBlend(destAlpha));
    _setRenderState(D3DRS_BLENDOP, D3D9Mappings::toD3DBlendOp(op));
    _setRenderState(D3DRS_BLENDOPALPHA, D3D9Mappings::toD3DBlendOp(alphaOp));
}

void CD3D9RenderSystem::SetBlendFactor(const CColour* colour)
{
    if (colour)
        _setRenderState(D3DRS_BLENDFACTOR, colour->toD3DColor());
}

void CD3D9RenderSystem::StateReserved3(unsigned, unsigned, unsigned) {}

void CD3D9RenderSystem::SetPointSpritesEnabled(bool enabled)
{
    _setRenderState(D3DRS_POINTSPRITEENABLE, enabled ? TRUE : FALSE);
    m_bPointSprites = enabled;
}

bool CD3D9RenderSystem::GetPointSpritesEnabled()
{
    return m_bPointSprites;
}

void CD3D9RenderSystem::SetClipPlane(unsigned char index, float a, float b, float c, float d)
{
    if (!m_pD3D9Device)
        return;
    // Never filtered: a plane is four floats, and planes change with the camera.
    const float plane[4] = {a, b, c, d};
    D3D9Verify(m_pD3D9Device->SetClipPlane(index, plane));
}

void CD3D9RenderSystem::EnableClipPlane(unsigned char index, bool enable)
{
    if (!m_pD3D9Device)
        return;
    if (index >= 32)
    {
        LogError("EnableClipPlane: clip plane %u does not exist", static_cast<unsigned>(index));
        return;
    }
    // The device's word, not the shadow's: other planes' bits may have been
    // set behind the cache, and an unknown shadow has no bits to keep.
    DWORD planes = 0;
    D3D9Verify(m_pD3D9Device->GetRenderState(D3DRS_CLIPPLANEENABLE, &planes));
    const DWORD bit = 1u << index;
    _setRenderState(D3DRS_CLIPPLANEENABLE, enable ? (planes | bit) : (planes & ~bit));
}

void CD3D9RenderSystem::SetInvertVertexWinding(bool invert)
{
    m_bInvertVertexWinding = invert;
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
    // Still missing: CD3D9HLSLProgram and its Load; until then no program can be made.
    LogError("Failed to CreateGpuProgram:%s", name ? name : "");
    return ref_ptr<CGpuProgram>();
}

ref_ptr<CTexture> CD3D9RenderSystem::CreateTextureManual(TextureType, unsigned width, unsigned height, unsigned, int,
                                                         PixelFormat format, unsigned, unsigned char, bool)
{
    // Still missing: CD3D9Texture and its LoadManual.
    LogError("Failed to CreateTexture Manual:%d %d %d", static_cast<int>(width), static_cast<int>(height),
             static_cast<int>(format));
    return ref_ptr<CTexture>();
}

ref_ptr<CTexture> CD3D9RenderSystem::CreateTextureFromMemory(const char* name, void*, int, TextureType, int, bool)
{
    // Still missing: CD3D9Texture and the memory form of its Load.
    LogError("Failed to CreateTextureFromMemory:%s", name ? name : "");
    return ref_ptr<CTexture>();
}

ref_ptr<CTexture> CD3D9RenderSystem::CreateTexture(const char* name, TextureType, int, bool)
{
    // Still missing: CD3D9Texture and the file form of its Load.
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
    // Still missing: CD3D9MultiRenderTarget.
    return ref_ptr<CMultiRenderTarget>();
}

ref_ptr<CHardwareOcclusionQuery> CD3D9RenderSystem::CreateHardwareOcclusionQuery()
{
    // Still missing: CD3D9HardwareOcclusionQuery.
    return ref_ptr<CHardwareOcclusionQuery>();
}

// --- Read-back.

bool CD3D9RenderSystem::ScreenShotToMemory(void**, unsigned*, unsigned*)
{
    // Still missing: screenshots into memory.
    return false;
}

bool CD3D9RenderSystem::ScreenShot(const char*, float, const RECT*)
{
    // Still missing: screenshots into files.
    return false;
}

bool CD3D9RenderSystem::BeginGetRenderTargetData(CHardwarePixelBuffer*, void**, int*)
{
    // Still missing: read-back of render targets.
    return false;
}

void CD3D9RenderSystem::EndGetRenderTargetData()
{
    if (m_pLockedReadbackSurface)
        m_pLockedReadbackSurface->UnlockRect();
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
    // Still missing: the timer query manager that makes the queries.
    return nullptr;
}

void CD3D9RenderSystem::DestroyTimerQuery(GfxTimerQuery* query)
{
    delete query; // null is ignored
}

void CD3D9RenderSystem::BeginTimerQueryFrame()
{
    // Still missing: the manager's frame start, when m_bTimerQuery is set.
}

void CD3D9RenderSystem::EndTimerQueryFrame()
{
    // Still missing: the manager's frame end, when m_bTimerQuery is set.
}

IDirect3DDevice9* CD3D9RenderSystem::GetD3D9Device()
{
    return m_pD3D9Device;
}

void CD3D9RenderSystem::ReservedHookA() {}
void CD3D9RenderSystem::ReservedHookB() {}

void CD3D9RenderSystem::_setTextureUnitFilter(unsigned unit, FilterType type, FilterOptions filter)
{
    // The mapping brings anisotropy back to linear where the device lacks it,
    // and always for the mip filter.
    if (m_bAnisotropicFilter && filter == FO_LINEAR)
        filter = FO_ANISOTROPIC;
    _setSamplerState(unit, D3D9Mappings::toD3DSamplerFilterState(type),
                     D3D9Mappings::toD3DTextureFilter(type, filter, m_d3dcaps));
}

void CD3D9RenderSystem::_setTextureLayerAnisotropy(unsigned unit, unsigned level)
{
    if (level > m_d3dcaps.MaxAnisotropy)
        level = m_d3dcaps.MaxAnisotropy;
    _setSamplerState(unit, D3DSAMP_MAXANISOTROPY, level);
}

void CD3D9RenderSystem::_setTextureAddressingModeUV(unsigned unit, TextureAddressMode u, TextureAddressMode v)
{
    _setSamplerState(unit, D3DSAMP_ADDRESSU, D3D9Mappings::toD3DTextureAddress(u, m_d3dcaps));
    _setSamplerState(unit, D3DSAMP_ADDRESSV, D3D9Mappings::toD3DTextureAddress(v, m_d3dcaps));
}

void CD3D9RenderSystem::_setTextureAddressingModeW(unsigned unit, TextureAddressMode w)
{
    _setSamplerState(unit, D3DSAMP_ADDRESSW, D3D9Mappings::toD3DTextureAddress(w, m_d3dcaps));
}

void CD3D9RenderSystem::_setTextureBorderColour(unsigned unit, const CColour* colour)
{
    if (colour)
        _setSamplerState(unit, D3DSAMP_BORDERCOLOR, colour->toD3DColor());
}

void CD3D9RenderSystem::_setTextureMipmapBias(unsigned unit, float bias)
{
    // Without the capability the bias would be ignored or refused: hold it at none.
    const bool supported = m_pCapabilities && m_pCapabilities->GetMipBiasSupported();
    _setSamplerState(unit, D3DSAMP_MIPMAPLODBIAS, supported ? FloatBits(bias) : 0u);
}

} // namespace kv
