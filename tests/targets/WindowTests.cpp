// Render windows (further windows with their own swap chains, presenting with a
// lost device, copies) and depth buffers: bytes, surfaces, fit, format search.
#include "TargetsFixture.h"

#include "engine/RenderWindow.h"

using kvproxy::Method;
using namespace kvtest;

namespace
{

// A swap chain whose Present answers what the test wants: the proxy wraps only
// the device, so a real swap chain's Present cannot be made to fail.
class ScriptedSwapChain : public IDirect3DSwapChain9
{
public:
    HRESULT presentResult = D3D_OK;
    int presents = 0;
    ULONG refs = 1;

    STDMETHOD(QueryInterface)(REFIID, void** out) override { return *out = nullptr, E_NOINTERFACE; }
    STDMETHOD_(ULONG, AddRef)() override { return ++refs; }
    STDMETHOD_(ULONG, Release)() override { return --refs; }
    STDMETHOD(Present)(const RECT*, const RECT*, HWND, const RGNDATA*, DWORD) override
    {
        return ++presents, presentResult;
    }
    STDMETHOD(GetFrontBufferData)(IDirect3DSurface9*) override { return E_NOTIMPL; }
    STDMETHOD(GetBackBuffer)(UINT, D3DBACKBUFFER_TYPE, IDirect3DSurface9** out) override
    {
        return *out = nullptr, E_NOTIMPL;
    }
    STDMETHOD(GetRasterStatus)(D3DRASTER_STATUS*) override { return E_NOTIMPL; }
    STDMETHOD(GetDisplayMode)(D3DDISPLAYMODE*) override { return E_NOTIMPL; }
    STDMETHOD(GetDevice)(IDirect3DDevice9** out) override { return *out = nullptr, E_NOTIMPL; }
    STDMETHOD(GetPresentParameters)(D3DPRESENT_PARAMETERS*) override { return E_NOTIMPL; }
};

// Whether anything tried to reset the device: the device's Reset reached, or
// the render system's reset road said a word about itself.
bool ResetAttempted(kvproxy::Mark from)
{
    if (kvproxy::CountSince(from, Method::Reset) > 0)
        return true;
    for (const kv::LogLine& l : kv::GetLogLines())
        if (l.text.find("ResetDevice") != std::string::npos)
            return true;
    return false;
}

// "<width>x<height> <samples>" of a surface.
std::string Described(IDirect3DSurface9* s)
{
    D3DSURFACE_DESC d = {};
    if (!s || FAILED(s->GetDesc(&d)))
        return "no surface";
    return std::to_string(d.Width) + "x" + std::to_string(d.Height) + " " + std::to_string(d.MultiSampleType);
}

struct Windows : TargetsTest
{
    // A further window of this size on a window of its own.
    kv::CD3D9RenderWindow* Further(unsigned width, unsigned height)
    {
        otherWnd = MakeWindow(width, height);
        other = rs->CreateRenderWindow(otherWnd, width, height, false);
        return dynamic_cast<kv::CD3D9RenderWindow*>(other.get());
    }
    HWND otherWnd = nullptr;
    ref_ptr<kv::CRenderWindow> other;
};

TEST_F(Windows, FurtherWindowsHaveTheirOwnSwapChainRebuiltAtTheirReset)
{
    // None without a size, and no word of it.
    HWND none = MakeWindow(100, 100);
    mark = kvproxy::Here();
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(none, 100, 0, false).get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark) && kv::GetLogLines().empty());
    EXPECT_EQ(nullptr, kv::CRenderWindow::FindByHandle(none));

    kv::CD3D9RenderWindow* w = Further(200, 150);
    ASSERT_NE(nullptr, w);
    EXPECT_FALSE(w->m_bIsMainWindow || w->m_pDepthBuffer.get());
    std::vector<KvProxyCall> chains = kvproxy::CallsSince(mark, Method::CreateAdditionalSwapChain);
    ASSERT_EQ(1u, chains.size());
    D3DPRESENT_PARAMETERS pp = {};
    ASSERT_TRUE(kvproxy::PresentParametersOf(chains[0], &pp));
    EXPECT_EQ(
        Call("", 200, 150, D3DFMT_X8R8G8B8, 1, D3DMULTISAMPLE_NONE, TRUE, D3DPRESENT_INTERVAL_IMMEDIATE, P(otherWnd)),
        Call("", pp.BackBufferWidth, pp.BackBufferHeight, pp.BackBufferFormat, pp.BackBufferCount, pp.MultiSampleType,
             pp.Windowed, pp.PresentationInterval, P(pp.hDeviceWindow)));
    EXPECT_EQ("200x150 0", Described(w->m_pBackBuffer));
    // Binding it asks for a depth buffer of its size: the main window's is larger
    // and would do, so it is shared.
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    mark = kvproxy::Here();
    rs->_setRenderTarget(w);
    EXPECT_EQ(rs->m_pMainWindow->m_pDepthBuffer.get(), w->m_pDepthBuffer.get());
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::CreateDepthStencilSurface));

    // Its reset rebuilds the swap chain at once at the new size, the old depth
    // buffer gone with the old chain; the next binding runs in full.
    const int checks = rs->m_nCheckActiveRenderTargetCount;
    mark = kvproxy::Here();
    EXPECT_TRUE(rs->Reset(otherWnd, 96, 80, false, false, 0));
    chains = kvproxy::CallsSince(mark, Method::CreateAdditionalSwapChain);
    ASSERT_EQ(1u, chains.size());
    ASSERT_TRUE(kvproxy::PresentParametersOf(chains[0], &pp));
    EXPECT_EQ("96x80 96x80 0", std::to_string(pp.BackBufferWidth) + "x" + std::to_string(pp.BackBufferHeight) + " " +
                                   Described(w->m_pBackBuffer));
    EXPECT_EQ(nullptr, w->m_pDepthBuffer.get());
    EXPECT_EQ(checks + 1, rs->m_nCheckActiveRenderTargetCount);
    EXPECT_EQ(nullptr, rs->_getRenderTarget());
    mark = kvproxy::Here();
    rs->_setRenderTarget(w);
    EXPECT_EQ(Call("SetRenderTarget", 0, P(w->m_pBackBuffer)), Trace(mark, {Method::SetRenderTarget}));
    // Copies go through StretchRect without filtering; nothing to copy into, no call.
    RECT src = {0, 0, 32, 32}, dst = {8, 8, 40, 40};
    ref_ptr<SurfaceTarget> empty(new SurfaceTarget({}, 16, 16));
    mark = kvproxy::Here();
    rs->m_pMainWindow->CopyToTarget(w, &src, &dst);
    rs->m_pMainWindow->CopyToTarget(nullptr, nullptr, nullptr);
    rs->m_pMainWindow->CopyToTarget(empty.get(), nullptr, nullptr);
    rs->m_pMainWindow->CopyToTexture(nullptr);
    EXPECT_EQ(Call("StretchRect", P(MainWindow()->m_pBackBuffer), P(&src), P(w->m_pBackBuffer), P(&dst), D3DTEXF_NONE),
              Trace(mark));
    EXPECT_TRUE(Errors().empty());

    // A refused swap chain gives no window, and says so.
    HWND refused = MakeWindow(64, 64);
    kvproxy::FailMethod(Method::CreateAdditionalSwapChain, D3DERR_OUTOFVIDEOMEMORY, 1);
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(refused, 64, 64, false).get());
    EXPECT_EQ((std::vector<std::string>{"Failed to m_pD3D9Device->CreateAdditionalSwapChain"}), Errors());
    EXPECT_EQ(nullptr, kv::CRenderWindow::FindByHandle(refused)) << "the refused window is gone";
}

TEST_F(Windows, MainWindowPresentsThroughTheDeviceAndOnlyItResetsALostDevice)
{
    kv::CD3D9RenderWindow* w2 = Further(64, 64);
    ASSERT_NE(nullptr, w2);
    // The further window presents through its own chain, not the device.
    ScriptedSwapChain scripted;
    IDirect3DSwapChain9* real = w2->m_pSwapChain;
    w2->m_pSwapChain = &scripted;
    mark = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    w2->swapBuffers();
    EXPECT_EQ(Call("Present", 0, 0, P(hWnd), 0), Trace(mark));
    EXPECT_EQ(1, scripted.presents);
    // Lost, not yet resettable: the main window asks and leaves it.
    kvproxy::LoseDevice();
    mark = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::TestCooperativeLevel, {D3DERR_DEVICELOST}));
    EXPECT_FALSE(ResetAttempted(mark));
    // Resettable: a further window asks too, but never resets.
    kvproxy::AllowDeviceReset();
    scripted.presentResult = D3DERR_DEVICELOST;
    kv::ClearLog();
    mark = kvproxy::Here();
    w2->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::TestCooperativeLevel, {D3DERR_DEVICENOTRESET}));
    EXPECT_FALSE(ResetAttempted(mark));
    // The main window goes for the reset at once (which takes every window's
    // surfaces: the real chain goes back first).
    w2->m_pSwapChain = real;
    mark = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::TestCooperativeLevel, {D3DERR_DEVICENOTRESET}));
    EXPECT_TRUE(ResetAttempted(mark));
}

TEST_F(TargetsTest, DepthBuffersCountTheirBytesAndFitWhatTheyCover)
{
    const uint32_t before = kv::g_nDepthBufferSizeInBytes;
    {
        // Bits and stencil by format; not a depth format: no bits, no bytes.
        std::vector<ref_ptr<kv::CD3D9DepthBuffer>> b;
        std::string got;
        for (D3DFORMAT f : {D3DFMT_D24S8, D3DFMT_D15S1, D3DFMT_D24X8, D3DFMT_X8R8G8B8})
        {
            b.push_back(new kv::CD3D9DepthBuffer(1, nullptr, f, 1024, 768, D3DMULTISAMPLE_NONE, 0, false));
            got = Join(got, Call("", b.back()->getBitDepth(), b.back()->hasStencil()));
        }
        EXPECT_EQ("(32,1) (16,1) (32,0) (0,0)", got);
        EXPECT_EQ(before + 3145728u * 2 + 1572864u, kv::g_nDepthBufferSizeInBytes);
    }
    EXPECT_EQ(before, kv::g_nDepthBufferSizeInBytes);
    // Only a buffer that is not manual releases its surface.
    for (bool manual : {true, false})
    {
        IDirect3DSurface9* s = nullptr;
        ASSERT_EQ(D3D_OK,
                  device->CreateDepthStencilSurface(32, 32, D3DFMT_D24S8, D3DMULTISAMPLE_NONE, 0, TRUE, &s, nullptr));
        s->AddRef(); // ours, beside the one the buffer takes over
        delete new kv::CD3D9DepthBuffer(1, s, D3DFMT_D24S8, 32, 32, D3DMULTISAMPLE_NONE, 0, manual);
        const ULONG left = s->Release();
        EXPECT_EQ(manual ? 1u : 0u, left) << (manual ? "manual" : "owned");
        if (left)
            s->Release();
    }

    // Compatible only with targets it covers, of the depth format found for their
    // colour format and of the same multisampling; the pool id plays no part.
    kv::CD3D9DepthBuffer buffer(7, nullptr, D3DFMT_D24S8, 64, 64, D3DMULTISAMPLE_NONE, 0, true);
    kv::CD3D9DepthBuffer ms(1, nullptr, D3DFMT_D24S8, 64, 64, D3DMULTISAMPLE_4_SAMPLES, 0, true);
    kv::CD3D9DepthBuffer d16(1, nullptr, D3DFMT_D16, 64, 64, D3DMULTISAMPLE_NONE, 0, true);
    ref_ptr<SurfaceTarget> same = MakeTarget(64, 64), multi = MakeTarget(32, 32, D3DMULTISAMPLE_4_SAMPLES);
    ref_ptr<SurfaceTarget> none(new SurfaceTarget({}, 16, 16));
    const std::vector<bool> fits = {buffer.isCompatible(same.get()),
                                    buffer.isCompatible(MakeTarget(32, 64).get()),
                                    buffer.isCompatible(MakeTarget(65, 64).get()),
                                    buffer.isCompatible(MakeTarget(64, 65).get()),
                                    buffer.isCompatible(multi.get()),
                                    buffer.isCompatible(none.get()),
                                    d16.isCompatible(same.get()),
                                    ms.isCompatible(same.get()),
                                    ms.isCompatible(multi.get())};
    EXPECT_EQ((std::vector<bool>{true, true, false, false, false, false, false, false, true}), fits);
}

TEST_F(TargetsTest, TheDepthFormatSearchAndDepthSurfacesRefusedOrImpossible)
{
    // The search stops at the first candidate the adapter has and that matches the
    // colour format, asked in the order D24S8, D24FS8, D24X4S4, D24X8, D15S1, D16, D32.
    d3d->m_mapDepthStencilFormats.clear();
    for (D3DFORMAT f : {D3DFMT_D24S8, D3DFMT_D24FS8, D3DFMT_D24X4S4, D3DFMT_D24X8, D3DFMT_D15S1})
        kvproxy::FailCheckDeviceFormat(f, D3DUSAGE_DEPTHSTENCIL);
    mark = kvproxy::Here();
    EXPECT_EQ(D3DFMT_D16, d3d->_getDepthStencilFormatFor(D3DFMT_A8R8G8B8));
    std::string asked;
    for (D3DFORMAT f : {D3DFMT_D24S8, D3DFMT_D24FS8, D3DFMT_D24X4S4, D3DFMT_D24X8, D3DFMT_D15S1, D3DFMT_D16})
        asked = Join(asked, Call("D3D9_CheckDeviceFormat", 0, D3DDEVTYPE_HAL, d3d->m_adapterFormat,
                                 D3DUSAGE_DEPTHSTENCIL, D3DRTYPE_SURFACE, f));
    EXPECT_EQ(Join(asked, Call("D3D9_CheckDepthStencilMatch", 0, D3DDEVTYPE_HAL, d3d->m_adapterFormat, D3DFMT_A8R8G8B8,
                               D3DFMT_D16)),
              Trace(mark, {Method::D3D9_CheckDeviceFormat, Method::D3D9_CheckDepthStencilMatch}));
    // Kept: a depth buffer for a target of that colour format asks nothing more.
    kvproxy::ClearFaults();
    ref_ptr<SurfaceTarget> t(new SurfaceTarget({MakeSurface(32, 32, D3DMULTISAMPLE_NONE, D3DFMT_A8R8G8B8)}, 32, 32));
    mark = kvproxy::Here();
    ref_ptr<kv::CDepthBuffer> b = rs->_createDepthBufferFor(t.get());
    ASSERT_NE(nullptr, b.get());
    EXPECT_EQ(Call("CreateDepthStencilSurface", 32, 32, D3DFMT_D16), Trace(mark, {}, 3));
    EXPECT_EQ(16, b->getBitDepth());
    EXPECT_EQ(b.get(), t->m_pDepthBuffer.get());
    // No fitting format is kept as none.
    for (D3DFORMAT f :
         {D3DFMT_D24S8, D3DFMT_D24FS8, D3DFMT_D24X4S4, D3DFMT_D24X8, D3DFMT_D15S1, D3DFMT_D16, D3DFMT_D32})
        kvproxy::FailCheckDeviceFormat(f, D3DUSAGE_DEPTHSTENCIL);
    mark = kvproxy::Here();
    EXPECT_EQ(D3DFMT_UNKNOWN, d3d->_getDepthStencilFormatFor(D3DFMT_R5G6B5));
    EXPECT_EQ(D3DFMT_UNKNOWN, d3d->_getDepthStencilFormatFor(D3DFMT_R5G6B5));
    EXPECT_EQ(7u, kvproxy::CountSince(mark, Method::D3D9_CheckDeviceFormat));
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::D3D9_CheckDepthStencilMatch));
}

} // namespace
