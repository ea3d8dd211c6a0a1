#include "D3D9DepthBuffer.h"
#include "D3D9RenderSystem.h"

#include "engine/Globals.h"
#include "engine/RenderTarget.h"

namespace kv
{

unsigned short CD3D9DepthBuffer::BitDepthOf(D3DFORMAT format, bool* stencil)
{
    bool s = false;
    unsigned short bits = 0;
    switch (format)
    {
    case D3DFMT_D16_LOCKABLE:
    case D3DFMT_D16:
        bits = 16;
        break;
    case D3DFMT_D15S1:
        bits = 16;
        s = true;
        break;
    case D3DFMT_D32:
    case D3DFMT_D24X8:
    case D3DFMT_D32F_LOCKABLE:
        bits = 32;
        break;
    case D3DFMT_D24S8:
    case D3DFMT_D24X4S4:
    case D3DFMT_D24FS8:
        bits = 32;
        s = true;
        break;
    default:
        break;
    }
    if (stencil)
        *stencil = s;
    return bits;
}

CD3D9DepthBuffer::CD3D9DepthBuffer(unsigned short poolId, IDirect3DSurface9* surface, D3DFORMAT format, unsigned width,
                                   unsigned height, D3DMULTISAMPLE_TYPE multiSampleType, unsigned multiSampleQuality,
                                   bool manual)
    : CDepthBuffer(poolId, 0, width, height, manual), m_pSurface(surface), m_eMultiSampleType(multiSampleType),
      m_nMultiSampleQuality(multiSampleQuality), m_eFormat(format)
{
    m_nBitDepth = BitDepthOf(format, &m_bHasStencil);
    g_nDepthBufferSizeInBytes += SizeInBytes();
}

CD3D9DepthBuffer::~CD3D9DepthBuffer()
{
    if (!m_bManual && m_pSurface)
        m_pSurface->Release();
    m_pSurface = nullptr;
    // Computed again from the fields: they have not changed since construction.
    g_nDepthBufferSizeInBytes -= SizeInBytes();
}

uint32_t CD3D9DepthBuffer::SizeInBytes() const
{
    // The engine's counter is a plain 32-bit sum; the product wraps as it does there.
    return (static_cast<uint32_t>(m_nBitDepth) * m_nHeight * m_nWidth) >> 3;
}

bool CD3D9DepthBuffer::hasStencil() const
{
    return m_bHasStencil;
}

bool CD3D9DepthBuffer::isCompatible(CRenderTarget* target) const
{
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    if (!target || !rs)
        return false;
    IDirect3DSurface9* surfaces[CD3D9RenderSystem::kMaxRenderTargets] = {};
    target->GetAttribute("DDBACKBUFFER", surfaces);
    if (!surfaces[0])
        return false;
    D3DSURFACE_DESC desc;
    if (FAILED(surfaces[0]->GetDesc(&desc)))
        return false;
    if (rs->_getDepthStencilFormatFor(desc.Format) != m_eFormat)
        return false;
    if (desc.MultiSampleType != m_eMultiSampleType || desc.MultiSampleQuality != m_nMultiSampleQuality)
        return false;
    // Larger than the target is fine: only the part under the viewport is used.
    return getWidth() >= target->getWidth() && getHeight() >= target->getHeight();
}

} // namespace kv
