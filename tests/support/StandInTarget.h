// The plain answers of a test's own render target: what it holds in the engine base's
// members, and no copying. A target or window derives from StandInTarget<Base> and adds
// what it does differently (attributes, updates, depth textures).
#pragma once

#include "engine/RenderTarget.h"

template <class Base>
struct StandInTarget : Base
{
    bool CopyToTexture(kv::CTexture*) override { return false; }
    bool CopyToTarget(kv::CRenderTarget*, const RECT*, const RECT*) override { return false; }
    unsigned getWidth() const override { return this->m_nWidth; }
    unsigned getHeight() const override { return this->m_nHeight; }
    kv::PixelFormat getFormat() const override { return this->m_eFormat; }
    void dropDepthBuffer() override { this->m_pDepthBuffer = nullptr; }
    void _endUpdate() override {}
    void swapBuffers() override {}
    bool IsAutoUpdate() override { return this->m_bAutoUpdate; }
    void SetActive(bool active) override { this->m_bActive = active; }
    bool IsActive() override { return this->m_bActive; }
    void SetHwGamma(bool enable) override { this->m_bHwGamma = enable; }
    bool IsHwGamma() override { return this->m_bHwGamma; }
    unsigned char getFSAA() override { return this->m_nFSAA; }
};
