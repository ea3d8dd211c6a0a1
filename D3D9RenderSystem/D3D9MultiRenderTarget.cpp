#include "D3D9MultiRenderTarget.h"
#include "D3D9HardwarePixelBuffer.h"
#include "D3D9RenderSystem.h"

#include "engine/PixelUtil.h"
#include "engine/RenderTexture.h"

#include <cstring>

namespace kv
{

CD3D9MultiRenderTarget::CD3D9MultiRenderTarget()
{
    for (CD3D9HardwarePixelBuffer*& surface : m_pSurfaces)
        surface = nullptr;
}

CD3D9MultiRenderTarget::~CD3D9MultiRenderTarget()
{
    detachDepthBuffer();
}

bool CD3D9MultiRenderTarget::GetAttribute(const char* name, void* out)
{
    if (!name || !out || std::strcmp(name, "DDBACKBUFFER") != 0)
        return false;
    // Each position draws into the texture's own surface: several targets at
    // once do not multisample.
    IDirect3DSurface9** surfaces = static_cast<IDirect3DSurface9**>(out);
    for (unsigned i = 0; i < MAX_SURFACES; ++i)
        if (m_pSurfaces[i])
            surfaces[i] = m_pSurfaces[i]->getSurface();
    return true;
}

namespace
{

IDirect3DSurface9* CopySource(const CD3D9HardwarePixelBuffer* buffer, unsigned char fsaa)
{
    if (!buffer)
        return nullptr;
    return fsaa > 0 ? buffer->getFSAASurface() : buffer->getSurface();
}

} // namespace

bool CD3D9MultiRenderTarget::CopyToTexture(CTexture* texture)
{
    return StretchIntoTexture(CopySource(m_pSurfaces[0], m_nFSAA), texture);
}

bool CD3D9MultiRenderTarget::CopyToTarget(CRenderTarget* target, const RECT* source, const RECT* destination)
{
    return StretchIntoTarget(CopySource(m_pSurfaces[0], m_nFSAA), target, source, destination);
}

void CD3D9MultiRenderTarget::bindSurfaceImpl(unsigned index, CRenderTexture* target)
{
    CD3D9HardwarePixelBuffer* buffer = nullptr;
    if (target)
        target->GetAttribute("BUFFER", &buffer);
    if (index >= MAX_SURFACES || !buffer)
    {
        LogError("Failed to bind a MultiRenderTarget surface at %u: a render texture of this render system at 0 to 7 "
                 "is needed",
                 index);
        return;
    }

    const CD3D9HardwarePixelBuffer* first = nullptr;
    for (const CD3D9HardwarePixelBuffer* bound : m_pSurfaces)
        if (bound && !first)
            first = bound;
    if (first)
    {
        // Direct3D leaves the results undefined; the engine is told and the binding goes on.
        if (first->getWidth() != buffer->getWidth() || first->getHeight() != buffer->getHeight())
            LogError("MultiRenderTarget surfaces are not of same size");
        const CD3D9RenderSystem* rs = GetD3D9RenderSystem();
        if (rs && !(rs->m_d3dcaps.PrimitiveMiscCaps & D3DPMISCCAPS_MRTINDEPENDENTBITDEPTHS) &&
            PixelUtil::getNumElemBits(first->getFormat()) != PixelUtil::getNumElemBits(buffer->getFormat()))
            LogError("MultiRenderTarget surfaces are not of same bit depth and hardware requires it");
    }
    m_pSurfaces[index] = buffer;
    updateSize();
}

void CD3D9MultiRenderTarget::unbindSurfaceImpl(unsigned index)
{
    if (index >= MAX_SURFACES)
        return;
    m_pSurfaces[index] = nullptr;
    updateSize();
}

void CD3D9MultiRenderTarget::updateSize()
{
    m_nWidth = m_pSurfaces[0] ? m_pSurfaces[0]->getWidth() : 0;
    m_nHeight = m_pSurfaces[0] ? m_pSurfaces[0]->getHeight() : 0;
}

void CD3D9MultiRenderTarget::notifyOnDeviceDestroy()
{
    detachDepthBuffer();
}

void CD3D9MultiRenderTarget::notifyOnDeviceLost()
{
    detachDepthBuffer();
}

} // namespace kv
