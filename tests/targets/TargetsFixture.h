// A render system started through Init on a real window of Wine's Direct3D 9,
// loaded through the recording d3d9.dll, and a stand-in render target over
// surfaces that a test makes itself: the render texture and multiple render
// target classes are other code's, and the binding only asks a target for its
// surfaces by name.
#pragma once

#include "D3D9DepthBuffer.h"
#include "D3D9RenderSystem.h"
#include "D3D9RenderWindow.h"

#include "engine/DeviceCapabilities.h"
#include "engine/Globals.h"
#include "engine/Log.h"
#include "engine/RenderTarget.h"
#include "engine/Timer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProxyExpect.h"

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

class TargetsTest : public ::testing::Test
{
protected:
    static constexpr unsigned kWidth = 320;
    static constexpr unsigned kHeight = 240;

    void SetUp() override;
    void TearDown() override;

    // A colour surface of the device; the caller owns the reference.
    IDirect3DSurface9* MakeSurface(unsigned width, unsigned height,
                                   D3DMULTISAMPLE_TYPE samples = D3DMULTISAMPLE_NONE,
                                   D3DFORMAT format = D3DFMT_X8R8G8B8);
    // A stand-in target over new surfaces of one size, one per count.
    ref_ptr<SurfaceTarget> MakeTarget(unsigned width, unsigned height, unsigned count = 1,
                                          D3DMULTISAMPLE_TYPE samples = D3DMULTISAMPLE_NONE);
    kv::CD3D9RenderWindow* MainWindow() const;
    // A second top-level window of the given client size; destroyed in TearDown.
    HWND MakeWindow(unsigned width, unsigned height);

    // The pixels of a render target surface, read through a system-memory copy.
    std::vector<uint32_t> ReadPixels(IDirect3DSurface9* surface, unsigned* width = nullptr,
                                     unsigned* height = nullptr);

    static std::vector<std::string> Errors() { return kv::GetLogTexts(kv::LOG_ERROR); }
    // "D3D9Verify:<hr>, <name>, <description>[, <what>]".
    static std::string VerifyLine(HRESULT hr, const char* what = nullptr);

    HWND hWnd = nullptr;
    std::vector<HWND> extraWindows;
    std::vector<kv::LogLine> initLog; // what Init logged
    kv::CRenderSystem* rs = nullptr;
    kv::CD3D9RenderSystem* d3d = nullptr;
    IDirect3DDevice9* device = nullptr;
};
