// The render system started on a 320 by 240 window, and a stand-in render
// target over surfaces that a test makes itself: the render texture and
// multiple render target classes are other code's, and the binding only asks a
// target for its surfaces by name.
#pragma once

#include "KvDeviceTest.h"

#include "D3D9DepthBuffer.h"

#include "engine/RenderTarget.h"

// Draws into up to eight surfaces that it holds a reference to each of.
class SurfaceTarget : public kv::CRenderTarget
{
public:
    explicit SurfaceTarget(std::vector<IDirect3DSurface9*> surfaces, unsigned width = 0, unsigned height = 0);
    ~SurfaceTarget() override;

    bool CopyToTexture(kv::CTexture*) override { return false; }
    bool CopyToTarget(kv::CRenderTarget*, const RECT*, const RECT*) override { return false; }
    bool GetAttribute(const char* name, void* out) override;
    unsigned getWidth() const override { return m_nWidth; }
    unsigned getHeight() const override { return m_nHeight; }
    kv::PixelFormat getFormat() const override { return m_eFormat; }
    bool SetDepthTexture(kv::CTexture* texture) override;
    void detachDepthBuffer() override;
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
                                   D3DFORMAT format = D3DFMT_X8R8G8B8);
    // A stand-in target over new surfaces of one size, one per count.
    ref_ptr<SurfaceTarget> MakeTarget(unsigned width, unsigned height, unsigned count = 1,
                                      D3DMULTISAMPLE_TYPE samples = D3DMULTISAMPLE_NONE);
};

inline uint64_t P(const void* p)
{
    return kvproxy::PtrArg(p);
}
