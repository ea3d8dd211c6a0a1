#pragma once
// What the plug-in's render targets (windows, render textures, multiple render
// targets) share over the engine's target classes: the getters of the engine's
// fields, the depth texture and depth buffer, and the frame that an update
// opens on the render system. Each target adds its own surfaces.
#include "D3D9Prerequisites.h"

#include "engine/DepthBuffer.h"
#include "engine/RenderSystem.h"
#include "engine/Texture.h"

#include <utility>

namespace kv
{

class CRenderTarget;

// The copies every target makes of the surface it draws into. The device's
// answer is not looked at: a failed copy leaves the destination as it was.
// False when there is nothing to copy from or into.
bool StretchIntoTexture(IDirect3DSurface9* source, CTexture* texture);
bool StretchIntoTarget(IDirect3DSurface9* source, CRenderTarget* target, const RECT* sourceRect, const RECT* destRect);

template <class EngineTarget>
class CD3D9RenderTargetCommon : public EngineTarget
{
public:
    template <class... Args>
    explicit CD3D9RenderTargetCommon(Args&&... args) : EngineTarget(std::forward<Args>(args)...)
    {
    }

    unsigned getWidth() const override { return this->m_nWidth; }
    unsigned getHeight() const override { return this->m_nHeight; }
    PixelFormat getFormat() const override { return this->m_eFormat; }

    // The reference moves with the texture; the same texture again keeps its count.
    bool SetDepthTexture(CTexture* texture) override
    {
        if (texture != this->m_pDepthTexture.get())
            this->m_pDepthTexture = texture;
        return true;
    }

    void detachDepthBuffer() override
    {
        if (this->m_pDepthBuffer)
            this->m_pDepthBuffer->_notifyRenderTargetDetached(this);
        // The notification may have let go of the buffer already.
        if (this->m_pDepthBuffer)
            this->m_pDepthBuffer = nullptr;
    }

    void dropDepthBuffer() override
    {
        if (this->m_pDepthBuffer)
            this->m_pDepthBuffer = nullptr;
    }

    bool _beginUpdate() override
    {
        CRenderSystem* rs = GetRenderSystem();
        return rs && rs->_beginFrame();
    }

    void _endUpdate() override
    {
        if (CRenderSystem* rs = GetRenderSystem())
            rs->_endFrame();
    }

    bool IsAutoUpdate() override { return this->m_bAutoUpdate; }
    void SetActive(bool active) override { this->m_bActive = active; }
    bool IsActive() override { return this->m_bActive; }
    void SetHwGamma(bool enable) override { this->m_bHwGamma = enable; }
    bool IsHwGamma() override { return this->m_bHwGamma; }
    unsigned char getFSAA() override { return this->m_nFSAA; }
};

} // namespace kv
