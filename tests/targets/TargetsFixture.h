// The render system on a 320 by 240 window, and a stand-in render target over
// surfaces a test makes itself: the binding only asks a target for its surfaces.
#pragma once

#include "KvDeviceTest.h"

#include "D3D9DepthBuffer.h"

#include "engine/RenderTarget.h"

#include <cstring>

// Draws into up to eight surfaces that it holds a reference to each of.
class SurfaceTarget : public kv::CRenderTarget
{
public:
    explicit SurfaceTarget(std::vector<IDirect3DSurface9*> surfaces, unsigned width = 0, unsigned height = 0)
        : m_surfaces(std::move(surfaces))
    {
        m_nWidth = width;
        m_nHeight = height;
        m_eFormat = kv::PF_X8R8G8B8;
        m_eTargetKind = TK_MULTI;
    }
    ~SurfaceTarget() override
    {
        m_pDepthBuffer = nullptr;
        for (IDirect3DSurface9* s : m_surfaces)
            if (s)
                s->Release();
    }

    bool CopyToTexture(kv::CTexture*) override { return false; }
    bool CopyToTarget(kv::CRenderTarget*, const RECT*, const RECT*) override { return false; }
    bool GetAttribute(const char* name, void* out) override
    {
        ++m_nAttributeQueries;
        if (std::strcmp(name, "DDBACKBUFFER") != 0)
            return false;
        for (size_t i = 0; i < m_surfaces.size() && i < 8; ++i)
            static_cast<IDirect3DSurface9**>(out)[i] = m_surfaces[i];
        return true;
    }
    unsigned getWidth() const override { return m_nWidth; }
    unsigned getHeight() const override { return m_nHeight; }
    kv::PixelFormat getFormat() const override { return m_eFormat; }
    bool SetDepthTexture(kv::CTexture* texture) override { return m_pDepthTexture = texture, true; }
    void detachDepthBuffer() override
    {
        if (m_pDepthBuffer)
            m_pDepthBuffer->_notifyRenderTargetDetached(this);
        m_pDepthBuffer = nullptr;
    }
    void dropDepthBuffer() override { m_pDepthBuffer = nullptr; }
    bool _beginUpdate() override { return false; }
    void _endUpdate() override {}
    void swapBuffers() override {}
    bool IsAutoUpdate() override { return m_bAutoUpdate; }
    void SetActive(bool active) override { m_bActive = active; }
    bool IsActive() override { return m_bActive; }
    void SetHwGamma(bool enable) override { m_bHwGamma = enable; }
    bool IsHwGamma() override { return m_bHwGamma; }
    unsigned char getFSAA() override { return m_nFSAA; }

    std::vector<IDirect3DSurface9*> m_surfaces;
    int m_nAttributeQueries = 0;
};

class TargetsTest : public KvDeviceTest
{
protected:
    TargetsTest() : KvDeviceTest(320, 240) {}

    // A colour surface of the device; the caller owns the reference.
    IDirect3DSurface9* MakeSurface(unsigned width, unsigned height, D3DMULTISAMPLE_TYPE samples = D3DMULTISAMPLE_NONE,
                                   D3DFORMAT format = D3DFMT_X8R8G8B8)
    {
        IDirect3DSurface9* s = nullptr;
        EXPECT_EQ(D3D_OK, device->CreateRenderTarget(width, height, format, samples, 0, FALSE, &s, nullptr));
        return s;
    }
    // A stand-in target over a new surface of this size.
    ref_ptr<SurfaceTarget> MakeTarget(unsigned width, unsigned height,
                                      D3DMULTISAMPLE_TYPE samples = D3DMULTISAMPLE_NONE)
    {
        ref_ptr<SurfaceTarget> t(new SurfaceTarget({MakeSurface(width, height, samples)}, width, height));
        t->m_nFSAA = static_cast<unsigned char>(samples);
        return t;
    }
};

inline uint64_t P(const void* p)
{
    return kvproxy::PtrArg(p);
}
