#include "D3D9RenderTexture.h"
#include "D3D9HardwarePixelBuffer.h"
#include "D3D9RenderSystem.h"

#include <cstring>

namespace kv
{

CD3D9RenderTexture::CD3D9RenderTexture(CHardwarePixelBuffer* buffer, bool hwGamma, unsigned char fsaa)
    : CD3D9RenderTargetCommon<CRenderTexture>(buffer, 0u)
{
    m_bHwGamma = hwGamma;
    m_nFSAA = fsaa;
}

CD3D9RenderTexture::~CD3D9RenderTexture()
{
    // A depth buffer that outlives this target must not keep it among its targets.
    detachDepthBuffer();
}

CD3D9HardwarePixelBuffer* CD3D9RenderTexture::getD3D9Buffer() const
{
    return dynamic_cast<CD3D9HardwarePixelBuffer*>(m_pBuffer);
}

IDirect3DSurface9* CD3D9RenderTexture::getDrawSurface() const
{
    const CD3D9HardwarePixelBuffer* buffer = getD3D9Buffer();
    if (!buffer)
        return nullptr;
    return m_nFSAA > 0 ? buffer->getFSAASurface() : buffer->getSurface();
}

bool CD3D9RenderTexture::GetAttribute(const char* name, void* out)
{
    if (!name || !out)
        return false;
    if (std::strcmp(name, "DDBACKBUFFER") == 0)
    {
        static_cast<IDirect3DSurface9**>(out)[0] = getDrawSurface();
        return true;
    }
    if (std::strcmp(name, "HWND") == 0)
    {
        *static_cast<HWND*>(out) = nullptr;
        return true;
    }
    if (std::strcmp(name, "BUFFER") == 0)
    {
        *static_cast<CD3D9HardwarePixelBuffer**>(out) = getD3D9Buffer();
        return true;
    }
    return false;
}

void CD3D9RenderTexture::swapBuffers()
{
    if (m_nFSAA == 0)
        return;
    CD3D9HardwarePixelBuffer* buffer = getD3D9Buffer();
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    IDirect3DSurface9* from = buffer ? buffer->getFSAASurface() : nullptr;
    IDirect3DSurface9* to = buffer ? buffer->getSurface() : nullptr;
    // Without surfaces (a lost device, a texture gone) there is nothing drawn to resolve.
    if (!from || !to || !rs || !rs->m_pD3D9Device)
        return;
    if (FAILED(rs->m_pD3D9Device->StretchRect(from, nullptr, to, nullptr, D3DTEXF_POINT)))
        LogError("Unable to copy AA buffer to final buffer: D3D9RenderTexture::swapBuffers");
}

bool CD3D9RenderTexture::CopyToTexture(CTexture* texture)
{
    return StretchIntoTexture(getDrawSurface(), texture);
}

bool CD3D9RenderTexture::CopyToTarget(CRenderTarget* target, const RECT* source, const RECT* destination)
{
    return StretchIntoTarget(getDrawSurface(), target, source, destination);
}

// The surfaces are the pixel buffer's and come back with it: a lost device
// takes only the depth buffer, which the next binding makes anew.
void CD3D9RenderTexture::notifyOnDeviceDestroy()
{
    detachDepthBuffer();
}

void CD3D9RenderTexture::notifyOnDeviceLost()
{
    detachDepthBuffer();
}

} // namespace kv
