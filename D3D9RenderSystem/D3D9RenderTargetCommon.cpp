#include "D3D9RenderTargetCommon.h"
#include "D3D9HardwarePixelBuffer.h"
#include "D3D9RenderSystem.h"

namespace kv
{

bool StretchIntoTexture(IDirect3DSurface9* source, CTexture* texture)
{
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    CD3D9HardwarePixelBuffer* buffer =
        texture ? static_cast<CD3D9HardwarePixelBuffer*>(texture->getBuffer(0, 0)) : nullptr;
    IDirect3DSurface9* destination = buffer ? buffer->getSurface() : nullptr;
    if (!source || !destination || !rs || !rs->m_pD3D9Device)
        return false;
    rs->m_pD3D9Device->StretchRect(source, nullptr, destination, nullptr, D3DTEXF_NONE);
    return true;
}

bool StretchIntoTarget(IDirect3DSurface9* source, CRenderTarget* target, const RECT* sourceRect, const RECT* destRect)
{
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    if (!source || !target || !rs || !rs->m_pD3D9Device)
        return false;
    IDirect3DSurface9* surfaces[CD3D9RenderSystem::kMaxRenderTargets] = {};
    target->GetAttribute("DDBACKBUFFER", surfaces);
    if (!surfaces[0])
        return false;
    rs->m_pD3D9Device->StretchRect(source, sourceRect, surfaces[0], destRect, D3DTEXF_NONE);
    return true;
}

} // namespace kv
