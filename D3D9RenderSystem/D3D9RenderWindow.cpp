#include "D3D9RenderWindow.h"
#include "D3D9DepthBuffer.h"
#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"

#include "engine/DepthBuffer.h"
#include "engine/Globals.h"

#include <cstring>

namespace kv
{

CD3D9RenderWindow::CD3D9RenderWindow() : m_pSwapChain(nullptr), m_pBackBuffer(nullptr), m_pD3D9Device(nullptr)
{
    std::memset(&m_d3dpp, 0, sizeof(m_d3dpp));
}

CD3D9RenderWindow::~CD3D9RenderWindow()
{
    if (m_pBackBuffer)
    {
        m_pBackBuffer->Release();
        m_pBackBuffer = nullptr;
    }
    if (m_pSwapChain)
    {
        m_pSwapChain->Release();
        m_pSwapChain = nullptr;
    }
}

bool CD3D9RenderWindow::Init(HWND hWnd, unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa)
{
    return CRenderWindow::Init(hWnd, width, height, fullScreen, vsync, fsaa);
}

D3DPRESENT_PARAMETERS CD3D9RenderWindow::BuildPresentParameters(IDirect3D9* d3d, const D3DDEVTYPE* deviceType,
                                                                unsigned adapter, D3DFORMAT adapterFormat)
{
    D3DPRESENT_PARAMETERS pp;
    std::memset(&pp, 0, sizeof(pp));
    pp.BackBufferWidth = m_nWidth;
    pp.BackBufferHeight = m_nHeight;
    pp.hDeviceWindow = m_hWnd;
    pp.Windowed = m_bFullScreen ? FALSE : TRUE;
    pp.BackBufferCount = 1;
    pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
    pp.EnableAutoDepthStencil = TRUE;
    pp.PresentationInterval = D3DPRESENT_INTERVAL_IMMEDIATE;
    if (m_bVSync)
    {
        pp.BackBufferCount = 2;
        pp.PresentationInterval = D3DPRESENT_INTERVAL_ONE;
    }
    pp.BackBufferFormat = D3D9Mappings::toD3DFormat(gMainWindowFormat);

    // The deepest depth format the adapter takes. A stencil only counts when it
    // can sit beside this back buffer; D24X8 then needs no question of its own,
    // since every adapter that has D24S8 has it.
    if (!d3d || !deviceType)
    {
        LogError("BuildPresentParameters: no Direct3D to ask for a depth format, D3DFMT_D16 taken");
        pp.AutoDepthStencilFormat = D3DFMT_D16;
    }
    else if (d3d->CheckDeviceFormat(adapter, *deviceType, adapterFormat, D3DUSAGE_DEPTHSTENCIL, D3DRTYPE_SURFACE,
                                    D3DFMT_D24S8) == D3D_OK)
    {
        pp.AutoDepthStencilFormat = d3d->CheckDepthStencilMatch(adapter, *deviceType, adapterFormat,
                                                                pp.BackBufferFormat, D3DFMT_D24S8) == D3D_OK
                                        ? D3DFMT_D24S8
                                        : D3DFMT_D24X8;
    }
    else if (d3d->CheckDeviceFormat(adapter, *deviceType, adapterFormat, D3DUSAGE_DEPTHSTENCIL, D3DRTYPE_SURFACE,
                                    D3DFMT_D32) == D3D_OK)
    {
        pp.AutoDepthStencilFormat = D3DFMT_D32;
    }
    else
    {
        pp.AutoDepthStencilFormat = D3DFMT_D16;
    }

    // Multisampling is settled by the render system, which knows the device's
    // capabilities: here the window asks for none.
    pp.MultiSampleType = D3DMULTISAMPLE_NONE;
    pp.MultiSampleQuality = 0;

    SetFormat(D3D9Mappings::fromD3DFormat(pp.BackBufferFormat));
    m_d3dpp = pp;
    return pp;
}

bool CD3D9RenderWindow::BuildMainWindow()
{
    m_bIsMainWindow = true;
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    m_pD3D9Device = rs ? rs->m_pD3D9Device : nullptr;
    if (!m_pD3D9Device)
    {
        LogError("BuildMainWindow: there is no device to take the back buffer from");
        return true;
    }

    if (m_pBackBuffer)
    {
        m_pBackBuffer->Release();
        m_pBackBuffer = nullptr;
    }
    D3D9Verify(m_pD3D9Device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &m_pBackBuffer));

    // A depth buffer of an earlier life goes first.
    detachDepthBuffer();

    // The device's automatic depth surface becomes the window's depth buffer,
    // which takes over the reference GetDepthStencilSurface added.
    IDirect3DSurface9* depth = nullptr;
    D3DSURFACE_DESC desc;
    ref_ptr<CDepthBuffer> buffer;
    if (D3D9Verify(m_pD3D9Device->GetDepthStencilSurface(&depth)) && depth)
    {
        if (D3D9Verify(depth->GetDesc(&desc)))
            buffer = new CD3D9DepthBuffer(1, depth, desc.Format, desc.Width, desc.Height, desc.MultiSampleType,
                                          desc.MultiSampleQuality, false);
        else
            depth->Release();
    }
    // A surface of another depth format than the one found for this back
    // buffer is refused; so is no surface at all. Then the window gets a
    // buffer of its own, which attaches itself.
    if (!attachDepthBuffer(buffer.get()))
        rs->_createDepthBufferFor(this);
    return true;
}

bool CD3D9RenderWindow::BuildSwapChain()
{
    m_bIsMainWindow = false;
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    m_pD3D9Device = rs ? rs->m_pD3D9Device : nullptr;
    if (!m_pD3D9Device)
    {
        LogError("Failed to m_pD3D9Device->CreateAdditionalSwapChain");
        return false;
    }
    const D3DDEVTYPE type = rs->m_d3dcaps.DeviceType;
    BuildPresentParameters(rs->m_pD3D9, &type, rs->m_nAdapter, rs->m_adapterFormat);

    if (m_pSwapChain)
    {
        m_pSwapChain->Release();
        m_pSwapChain = nullptr;
    }
    if (FAILED(m_pD3D9Device->CreateAdditionalSwapChain(&m_d3dpp, &m_pSwapChain)))
    {
        m_pSwapChain = nullptr;
        LogError("Failed to m_pD3D9Device->CreateAdditionalSwapChain");
        return false;
    }

    if (m_pBackBuffer)
    {
        m_pBackBuffer->Release();
        m_pBackBuffer = nullptr;
    }
    D3D9Verify(m_pSwapChain->GetBackBuffer(0, D3DBACKBUFFER_TYPE_MONO, &m_pBackBuffer));
    // No depth buffer yet: binding the window asks for one.
    return true;
}

bool CD3D9RenderWindow::Reset(unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa)
{
    if (!CRenderWindow::Reset(width, height, fullScreen, vsync, fsaa))
        return false;
    if (m_bFullScreen)
        SetFocus(m_hWnd);
    // The main window's surfaces are renewed by the device reset; a further
    // window rebuilds its swap chain at the new size now.
    if (!m_bIsMainWindow)
    {
        notifyOnDeviceLost();
        notifyOnDeviceReset();
        if (CRenderSystem* rs = GetRenderSystem())
            rs->CheckActiveRenderTarget(this);
    }
    return true;
}

void CD3D9RenderWindow::swapBuffers()
{
    HRESULT hr;
    if (m_bIsMainWindow)
    {
        if (!m_pD3D9Device)
            return;
        hr = m_pD3D9Device->Present(nullptr, nullptr, m_hWnd, nullptr);
    }
    else
    {
        if (!m_pSwapChain)
            return;
        hr = m_pSwapChain->Present(nullptr, nullptr, m_hWnd, nullptr, 0);
    }
    // A lost device shows as a missed frame; only the main window may reset it here.
    if (hr == D3DERR_DEVICELOST && m_pD3D9Device && m_pD3D9Device->TestCooperativeLevel() == D3DERR_DEVICENOTRESET &&
        m_bIsMainWindow)
    {
        if (CD3D9RenderSystem* rs = GetD3D9RenderSystem())
            rs->ResetDevice(m_bVSync, m_nFSAA);
    }
}

void CD3D9RenderWindow::releaseSurfaces()
{
    if (m_pBackBuffer)
    {
        m_pBackBuffer->Release();
        m_pBackBuffer = nullptr;
    }
    if (m_pSwapChain)
    {
        m_pSwapChain->Release();
        m_pSwapChain = nullptr;
    }
    detachDepthBuffer();
}

void CD3D9RenderWindow::notifyOnDeviceDestroy()
{
    releaseSurfaces();
}

void CD3D9RenderWindow::notifyOnDeviceLost()
{
    releaseSurfaces();
}

void CD3D9RenderWindow::notifyOnDeviceReset()
{
    if (m_bIsMainWindow)
        BuildMainWindow();
    else
        BuildSwapChain();
}

bool CD3D9RenderWindow::GetAttribute(const char* name, void* out)
{
    if (!name)
        return false;
    if (std::strcmp(name, "DDBACKBUFFER") == 0)
    {
        if (out)
            static_cast<IDirect3DSurface9**>(out)[0] = m_pBackBuffer;
        return true;
    }
    // Known names that have nothing to give from a window.
    return std::strcmp(name, "WINDOW") == 0 || std::strcmp(name, "isTexture") == 0 ||
           std::strcmp(name, "D3DZBUFFER") == 0;
}

bool CD3D9RenderWindow::CopyToTarget(CRenderTarget* target, const RECT* source, const RECT* destination)
{
    return StretchIntoTarget(m_pBackBuffer, target, source, destination);
}

bool CD3D9RenderWindow::CopyToTexture(CTexture* texture)
{
    return StretchIntoTexture(m_pBackBuffer, texture);
}

void CD3D9RenderWindow::SetFormat(PixelFormat format)
{
    m_eFormat = format;
}

} // namespace kv
