#pragma once
// A render target that ends on the screen. The main window presents through the
// device itself and its implicit swap chain; every further window has an
// additional swap chain of its own on the same device. Both lose their surfaces
// with the device and get them back at a reset.
#include "D3D9Prerequisites.h"
#include "D3D9RenderTargetCommon.h"
#include "D3D9Resource.h"

#include "engine/RenderWindow.h"

namespace kv
{

class CD3D9RenderWindow : public CD3D9RenderTargetCommon<CRenderWindow>, public CD3D9Resource
{
public:
    CD3D9RenderWindow();
    ~CD3D9RenderWindow() override;

    bool CopyToTexture(CTexture* texture) override;
    bool CopyToTarget(CRenderTarget* target, const RECT* source, const RECT* destination) override;
    bool GetAttribute(const char* name, void* out) override;
    void swapBuffers() override;

    // Stores the settings in the engine's fields and nothing more: surfaces come
    // with BuildMainWindow or BuildSwapChain once the device stands.
    bool Init(HWND hWnd, unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa) override;
    bool Reset(unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa) override;
    bool BuildMainWindow() override;
    bool BuildSwapChain() override;
    void SetFormat(PixelFormat format) override;

    void notifyOnDeviceDestroy() override;
    void notifyOnDeviceLost() override;
    void notifyOnDeviceReset() override;

    // The present parameters of this window without multisampling; the result is
    // also kept in m_d3dpp, and the window takes the back buffer's format.
    D3DPRESENT_PARAMETERS BuildPresentParameters(IDirect3D9* d3d, const D3DDEVTYPE* deviceType, unsigned adapter,
                                                 D3DFORMAT adapterFormat);

    IDirect3DSwapChain9* m_pSwapChain; // owned; null for the main window
    IDirect3DSurface9* m_pBackBuffer;  // owned reference to back buffer 0
    IDirect3DDevice9* m_pD3D9Device;   // the render system's, not owned
    // For the main window the device runs with the render system's copy, which
    // also carries the vsync and multisampling of ApplyPresentParameters.
    D3DPRESENT_PARAMETERS m_d3dpp;

private:
    void releaseSurfaces();
};

} // namespace kv
