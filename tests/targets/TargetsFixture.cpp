#include "TargetsFixture.h"

#include "engine/Engine.h"
#include "engine/Texture.h"

#include <cstring>

SurfaceTarget::SurfaceTarget(std::vector<IDirect3DSurface9*> surfaces, unsigned width, unsigned height)
    : m_surfaces(std::move(surfaces))
{
    m_nWidth = width;
    m_nHeight = height;
    m_eFormat = kv::PF_X8R8G8B8;
    m_eTargetKind = TK_MULTI;
}

SurfaceTarget::~SurfaceTarget()
{
    m_pDepthBuffer = nullptr;
    for (IDirect3DSurface9* s : m_surfaces)
        if (s)
            s->Release();
}

bool SurfaceTarget::GetAttribute(const char* name, void* out)
{
    ++m_nAttributeQueries;
    if (std::strcmp(name, "DDBACKBUFFER") != 0)
        return false;
    IDirect3DSurface9** slots = static_cast<IDirect3DSurface9**>(out);
    for (size_t i = 0; i < m_surfaces.size() && i < 8; ++i)
        slots[i] = m_surfaces[i];
    return true;
}

bool SurfaceTarget::SetDepthTexture(kv::CTexture* texture)
{
    m_pDepthTexture = texture;
    return true;
}

void SurfaceTarget::detachDepthBuffer()
{
    if (m_pDepthBuffer)
        m_pDepthBuffer->_notifyRenderTargetDetached(this);
    m_pDepthBuffer = nullptr;
}

void TargetsTest::SetUp()
{
    ASSERT_TRUE(kvproxy::Available()) << "this suite must run with the recording d3d9.dll";
    kvproxy::ResetAll();
    kv::SetLogEcho(false);
    kv::ClearLog();
    kv::g_eRenderSystemType = kv::RST_DX9C;
    kv::gMainWindowFormat = kv::PF_X8R8G8B8;
    kv::g_nDepthBufferSizeInBytes = 0;
    kv::GetTimer()->Reset();
    hWnd = MakeWindow(kWidth, kHeight);
    ASSERT_NE(nullptr, hWnd);
    rs = CreateRenderSystem();
    ASSERT_NE(nullptr, rs);
    d3d = kv::GetD3D9RenderSystem();
    ASSERT_TRUE(rs->Init(hWnd, kWidth, kHeight, false, false, 0));
    device = d3d->m_pD3D9Device;
    ASSERT_NE(nullptr, device);
    // Each test reads only its own lines.
    initLog = kv::GetLogLines();
    kv::ClearLog();
}

void TargetsTest::TearDown()
{
    kvproxy::ResetAll();
    if (rs)
    {
        rs->Destroy();
        delete rs;
    }
    rs = nullptr;
    d3d = nullptr;
    device = nullptr;
    kv::EngineShutdown();
    for (HWND w : extraWindows)
        DestroyWindow(w);
    extraWindows.clear();
    hWnd = nullptr;
}

HWND TargetsTest::MakeWindow(unsigned width, unsigned height)
{
    RECT rect = {0, 0, static_cast<LONG>(width), static_cast<LONG>(height)};
    AdjustWindowRect(&rect, WS_OVERLAPPEDWINDOW, FALSE);
    HWND w = CreateWindowExA(0, "STATIC", "targets test", WS_OVERLAPPEDWINDOW, 0, 0, rect.right - rect.left,
                             rect.bottom - rect.top, nullptr, nullptr, GetModuleHandleA(nullptr), nullptr);
    if (w)
        extraWindows.push_back(w);
    return w;
}

IDirect3DSurface9* TargetsTest::MakeSurface(unsigned width, unsigned height, D3DMULTISAMPLE_TYPE samples,
                                            D3DFORMAT format)
{
    IDirect3DSurface9* s = nullptr;
    EXPECT_EQ(D3D_OK, device->CreateRenderTarget(width, height, format, samples, 0, FALSE, &s, nullptr));
    return s;
}

ref_ptr<SurfaceTarget> TargetsTest::MakeTarget(unsigned width, unsigned height, unsigned count,
                                                   D3DMULTISAMPLE_TYPE samples)
{
    std::vector<IDirect3DSurface9*> surfaces;
    for (unsigned i = 0; i < count; ++i)
        surfaces.push_back(MakeSurface(width, height, samples));
    ref_ptr<SurfaceTarget> t(new SurfaceTarget(surfaces, width, height));
    t->m_nFSAA = static_cast<unsigned char>(samples);
    return t;
}

kv::CD3D9RenderWindow* TargetsTest::MainWindow() const
{
    return dynamic_cast<kv::CD3D9RenderWindow*>(rs->m_pMainWindow.get());
}

std::vector<uint32_t> TargetsTest::ReadPixels(IDirect3DSurface9* surface, unsigned* width, unsigned* height)
{
    std::vector<uint32_t> pixels;
    D3DSURFACE_DESC desc;
    if (!surface || FAILED(surface->GetDesc(&desc)))
    {
        ADD_FAILURE() << "no surface to read";
        return pixels;
    }
    IDirect3DSurface9* copy = nullptr;
    if (FAILED(device->CreateOffscreenPlainSurface(desc.Width, desc.Height, desc.Format, D3DPOOL_SYSTEMMEM, &copy,
                                                   nullptr)))
    {
        ADD_FAILURE() << "no system-memory surface";
        return pixels;
    }
    if (device->GetRenderTargetData(surface, copy) == D3D_OK)
    {
        D3DLOCKED_RECT locked;
        if (copy->LockRect(&locked, nullptr, D3DLOCK_READONLY) == D3D_OK)
        {
            pixels.resize(static_cast<size_t>(desc.Width) * desc.Height);
            for (unsigned y = 0; y < desc.Height; ++y)
                std::memcpy(&pixels[static_cast<size_t>(y) * desc.Width],
                            static_cast<const char*>(locked.pBits) + static_cast<size_t>(y) * locked.Pitch,
                            desc.Width * 4);
            copy->UnlockRect();
        }
        else
            ADD_FAILURE() << "LockRect failed";
    }
    else
        ADD_FAILURE() << "GetRenderTargetData failed";
    copy->Release();
    if (width)
        *width = desc.Width;
    if (height)
        *height = desc.Height;
    return pixels;
}

std::string TargetsTest::VerifyLine(HRESULT hr, const char* what)
{
    std::string line = "D3D9Verify:" + std::to_string(static_cast<int>(hr)) + ", " + kv::DXGetErrorString(hr) +
                       ", " + kv::DXGetErrorDescription(hr);
    if (what)
        line += std::string(", ") + what;
    return line;
}
