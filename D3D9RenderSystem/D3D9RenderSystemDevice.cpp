#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"
#include "D3D9RenderWindow.h"
#include "D3D9ResourceManager.h"
#include "GfxTimerQueryManager.h"

#include "engine/DeviceCapabilities.h"
#include "engine/Globals.h"
#include "engine/Root.h"

#include <cstring>
#include <sstream>
#include <string>

#if defined(__GNUC__) && (defined(__i386__) || defined(__x86_64__))
#include <cpuid.h>
#endif

namespace kv
{

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

    // The timer queries' frequency query goes too, and the stamps in flight
    // with it; the next frame makes it again.
    if (g_pGfxTimerQueryManager)
        g_pGfxTimerQueryManager->DropDeviceQueries();

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

} // namespace kv
