#include "D3D9DepthBuffer.h"
#include "D3D9HardwarePixelBuffer.h"
#include "D3D9RenderSystem.h"
#include "D3D9Texture.h"

#include "engine/RenderTexture.h"
#include "engine/Timer.h"

#include <map>

namespace kv
{

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

        // A texture cannot be read while it is drawn into: the first sampler
        // that holds it lets go, and the next SetTexture of it reaches the device.
        const CRenderTexture* texture = target->m_eTargetKind == CRenderTarget::TK_RENDER_TEXTURE
                                            ? dynamic_cast<const CRenderTexture*>(target)
                                            : nullptr;
        if (texture)
        {
            const CD3D9HardwarePixelBuffer* buffer = dynamic_cast<const CD3D9HardwarePixelBuffer*>(texture->m_pBuffer);
            CD3D9Texture* owner = buffer ? buffer->getOwner() : nullptr;
            IDirect3DBaseTexture9* native = owner ? owner->GetNativeTexture() : nullptr;
            for (unsigned unit = 0; native && unit < kTextureUnits && unit < m_textures.size(); ++unit)
            {
                if (m_textures[unit] != native)
                    continue;
                m_pD3D9Device->SetTexture(unit, nullptr);
                m_textures[unit] = nullptr;
                break;
            }
        }
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
        const CD3D9HardwarePixelBuffer* buffer =
            dynamic_cast<const CD3D9HardwarePixelBuffer*>(target->m_pDepthTexture->getBuffer(0, 0));
        IDirect3DSurface9* surface = buffer ? buffer->getSurface() : nullptr;
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

} // namespace kv
