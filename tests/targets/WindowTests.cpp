// Render windows (the main window after Init, further windows with their own
// swap chains, presenting with a lost device, resets, notifications, copies)
// and depth buffers: the bytes they count, the surfaces they own, when they fit
// a target, and the search for a depth format with its cache.
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

    STDMETHOD(QueryInterface)(REFIID, void** out) override
    {
        *out = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHOD_(ULONG, AddRef)() override { return ++refs; }
    STDMETHOD_(ULONG, Release)() override { return --refs; }
    STDMETHOD(Present)(const RECT*, const RECT*, HWND, const RGNDATA*, DWORD) override
    {
        ++presents;
        return presentResult;
    }
    STDMETHOD(GetFrontBufferData)(IDirect3DSurface9*) override { return E_NOTIMPL; }
    STDMETHOD(GetBackBuffer)(UINT, D3DBACKBUFFER_TYPE, IDirect3DSurface9** out) override
    {
        *out = nullptr;
        return E_NOTIMPL;
    }
    STDMETHOD(GetRasterStatus)(D3DRASTER_STATUS*) override { return E_NOTIMPL; }
    STDMETHOD(GetDisplayMode)(D3DDISPLAYMODE*) override { return E_NOTIMPL; }
    STDMETHOD(GetDevice)(IDirect3DDevice9** out) override
    {
        *out = nullptr;
        return E_NOTIMPL;
    }
    STDMETHOD(GetPresentParameters)(D3DPRESENT_PARAMETERS*) override { return E_NOTIMPL; }
};

// A surface that cannot describe itself; nothing else of it is used.
class MuteSurface : public IDirect3DSurface9
{
public:
    STDMETHOD(QueryInterface)(REFIID, void** out) override
    {
        *out = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHOD_(ULONG, AddRef)() override { return 1; }
    STDMETHOD_(ULONG, Release)() override { return 1; }
    STDMETHOD(GetDevice)(IDirect3DDevice9** out) override
    {
        *out = nullptr;
        return D3DERR_INVALIDCALL;
    }
    STDMETHOD(SetPrivateData)(REFGUID, const void*, DWORD, DWORD) override { return D3DERR_INVALIDCALL; }
    STDMETHOD(GetPrivateData)(REFGUID, void*, DWORD*) override { return D3DERR_INVALIDCALL; }
    STDMETHOD(FreePrivateData)(REFGUID) override { return D3DERR_INVALIDCALL; }
    STDMETHOD_(DWORD, SetPriority)(DWORD) override { return 0; }
    STDMETHOD_(DWORD, GetPriority)() override { return 0; }
    STDMETHOD_(void, PreLoad)() override {}
    STDMETHOD_(D3DRESOURCETYPE, GetType)() override { return D3DRTYPE_SURFACE; }
    STDMETHOD(GetContainer)(REFIID, void** out) override
    {
        *out = nullptr;
        return D3DERR_INVALIDCALL;
    }
    STDMETHOD(GetDesc)(D3DSURFACE_DESC*) override
    {
        ++descs;
        return D3DERR_INVALIDCALL;
    }
    STDMETHOD(LockRect)(D3DLOCKED_RECT*, const RECT*, DWORD) override { return D3DERR_INVALIDCALL; }
    STDMETHOD(UnlockRect)() override { return D3DERR_INVALIDCALL; }
    STDMETHOD(GetDC)(HDC*) override { return D3DERR_INVALIDCALL; }
    STDMETHOD(ReleaseDC)(HDC) override { return D3DERR_INVALIDCALL; }

    int descs = 0;
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

// "<width>x<height>" of a surface.
std::string SizeOf(IDirect3DSurface9* s)
{
    D3DSURFACE_DESC d = {};
    if (!s || FAILED(s->GetDesc(&d)))
        return "no surface";
    return std::to_string(d.Width) + "x" + std::to_string(d.Height);
}

ULONG RefsOf(IUnknown* u)
{
    u->AddRef();
    return u->Release();
}

// The CheckDeviceFormat questions of depth formats since `from`.
std::vector<uint64_t> DepthFormatsAsked(kvproxy::Mark from)
{
    std::vector<uint64_t> out;
    for (const KvProxyCall& c : kvproxy::CallsSince(from, Method::D3D9_CheckDeviceFormat))
        if (c.args[3] == D3DUSAGE_DEPTHSTENCIL && c.args[4] == D3DRTYPE_SURFACE)
            out.push_back(c.args[5]);
    return out;
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

} // namespace

TEST_F(Windows, InitLeavesTheMainWindowWithBackBufferAndTheDevicesDepthSurface)
{
    kv::CD3D9RenderWindow* w = MainWindow();
    ASSERT_NE(nullptr, w);
    EXPECT_TRUE(w->m_bIsMainWindow);
    EXPECT_EQ(device, w->m_pD3D9Device);
    EXPECT_EQ(nullptr, w->m_pSwapChain);
    IDirect3DSurface9* bb = nullptr;
    ASSERT_EQ(D3D_OK, device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &bb));
    EXPECT_EQ(bb, w->m_pBackBuffer);
    bb->Release();
    IDirect3DSurface9* ds = nullptr;
    ASSERT_EQ(D3D_OK, device->GetDepthStencilSurface(&ds));
    kv::CD3D9DepthBuffer* buffer = dynamic_cast<kv::CD3D9DepthBuffer*>(w->m_pDepthBuffer.get());
    ASSERT_NE(nullptr, buffer);
    EXPECT_EQ(ds, buffer->getSurface());
    ds->Release();
    EXPECT_EQ(1, buffer->getPoolId());
    EXPECT_FALSE(buffer->isManual());
    EXPECT_EQ(D3DFMT_D24S8, buffer->m_eFormat);
    EXPECT_EQ(kWidth, buffer->getWidth());
    EXPECT_EQ(kHeight, buffer->getHeight());
    EXPECT_EQ(kWidth * kHeight * 4, kv::g_nDepthBufferSizeInBytes);
    EXPECT_EQ(1u, buffer->getAttachedTargets().count(w));
    // No warning or error on the way, and no extra depth surface.
    for (const kv::LogLine& l : initLog)
        EXPECT_EQ(kv::LOG_INFO, l.level) << l.text;
    EXPECT_EQ(0u, kvproxy::CallCount(Method::CreateDepthStencilSurface));

    // Only DDBACKBUFFER, spelt so, gives the back buffer, without a reference added.
    void* const sentinel = reinterpret_cast<void*>(static_cast<uintptr_t>(0x5A5A5A5A));
    for (const char* name : {"isTexture", "WINDOW", "D3DZBUFFER", "HWND", "ddbackbuffer", ""})
    {
        void* out[8] = {sentinel, sentinel, sentinel, sentinel, sentinel, sentinel, sentinel, sentinel};
        w->GetAttribute(name, out);
        EXPECT_EQ(std::vector<void*>(8, sentinel), std::vector<void*>(out, out + 8)) << "name \"" << name << "\"";
    }
    const ULONG refs = RefsOf(w->m_pBackBuffer);
    IDirect3DSurface9* out[8] = {};
    w->GetAttribute("DDBACKBUFFER", out);
    EXPECT_EQ(w->m_pBackBuffer, out[0]);
    EXPECT_EQ(nullptr, out[1]);
    EXPECT_EQ(refs, RefsOf(w->m_pBackBuffer)) << "no reference added";
}

TEST_F(Windows, DeviceLossTakesTheSurfacesAndAResetBringsANewDepthBuffer)
{
    kv::CD3D9RenderWindow* w = MainWindow();
    rs->_setRenderTarget(w);
    kv::CDepthBuffer* bound = d3d->m_pActiveDepthBuffer.get();
    ASSERT_EQ(w->m_pDepthBuffer.get(), bound);
    kvproxy::Mark from = kvproxy::Here();
    w->notifyOnDeviceLost();
    w->notifyOnDeviceLost();
    EXPECT_EQ(nullptr, w->m_pBackBuffer);
    EXPECT_EQ(nullptr, w->m_pSwapChain);
    EXPECT_EQ(nullptr, w->m_pDepthBuffer.get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    // The bound buffer is the render system's to let go of, at its reset; then
    // it goes with its last holder, and its bytes with it.
    EXPECT_EQ(bound, d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ(0u, bound->getAttachedTargets().size());
    d3d->m_pActiveDepthBuffer = nullptr;
    EXPECT_EQ(0u, kv::g_nDepthBufferSizeInBytes);

    w->notifyOnDeviceReset();
    EXPECT_TRUE(w->m_bIsMainWindow);
    EXPECT_NE(nullptr, w->m_pBackBuffer);
    EXPECT_NE(nullptr, dynamic_cast<kv::CD3D9DepthBuffer*>(w->m_pDepthBuffer.get()));
    EXPECT_EQ(kWidth * kHeight * 4, kv::g_nDepthBufferSizeInBytes);
    EXPECT_TRUE(kvproxy::CalledInOrder(from, {Method::GetBackBuffer, Method::GetDepthStencilSurface}));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(Windows, FurtherWindowHasItsOwnSwapChain)
{
    // None without handle or size.
    HWND none = MakeWindow(100, 100);
    kvproxy::Mark from = kvproxy::Here();
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(nullptr, 100, 100, false).get());
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(none, 0, 100, false).get());
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(none, 100, 0, false).get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    EXPECT_TRUE(kv::GetLogLines().empty());
    EXPECT_EQ(nullptr, kv::CRenderWindow::FindByHandle(none));

    kv::CD3D9RenderWindow* w = Further(200, 150);
    ASSERT_NE(nullptr, w);
    EXPECT_EQ(1, other->GetRefCount());
    EXPECT_FALSE(w->m_bIsMainWindow);
    EXPECT_FALSE(w->m_bVSync);
    EXPECT_EQ(0, w->getFSAA());
    ASSERT_NE(nullptr, w->m_pSwapChain);
    EXPECT_EQ(nullptr, w->m_pDepthBuffer.get());
    std::vector<KvProxyCall> chains = kvproxy::CallsSince(from, Method::CreateAdditionalSwapChain);
    ASSERT_EQ(1u, chains.size());
    D3DPRESENT_PARAMETERS pp = {};
    ASSERT_TRUE(kvproxy::PresentParametersOf(chains[0], &pp));
    EXPECT_EQ(
        (std::vector<uint64_t>{200, 150, D3DFMT_X8R8G8B8, 1, D3DMULTISAMPLE_NONE, TRUE, D3DPRESENT_INTERVAL_IMMEDIATE}),
        (std::vector<uint64_t>{pp.BackBufferWidth, pp.BackBufferHeight, uint64_t(pp.BackBufferFormat),
                               pp.BackBufferCount, uint64_t(pp.MultiSampleType), uint64_t(pp.Windowed),
                               pp.PresentationInterval}));
    EXPECT_EQ(otherWnd, pp.hDeviceWindow);
    EXPECT_EQ("200x150", SizeOf(w->m_pBackBuffer));
    EXPECT_EQ(kv::PF_X8R8G8B8, w->getFormat());

    // Binding it asks for a depth buffer of its size: the main window's is
    // larger and would do, so it is shared.
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    from = kvproxy::Here();
    rs->_setRenderTarget(w);
    EXPECT_EQ(rs->m_pMainWindow->m_pDepthBuffer.get(), w->m_pDepthBuffer.get());
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::CreateDepthStencilSurface));
    EXPECT_TRUE(Errors().empty());

    // A refused swap chain gives no window.
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
    kvproxy::Mark from = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    std::vector<KvProxyCall> presents = kvproxy::CallsSince(from, Method::Present);
    ASSERT_EQ(1u, presents.size());
    EXPECT_EQ((std::vector<uint64_t>{0, 0, P(hWnd), 0}), std::vector<uint64_t>(presents[0].args, presents[0].args + 4));
    // The further window presents through its own chain, not the device.
    ScriptedSwapChain scripted;
    IDirect3DSwapChain9* real = w2->m_pSwapChain;
    w2->m_pSwapChain = &scripted;
    w2->swapBuffers();
    EXPECT_EQ(1, scripted.presents);
    EXPECT_EQ(1u, kvproxy::CountSince(from, Method::Present));
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::TestCooperativeLevel));

    // Lost, not yet resettable: the main window asks and leaves it.
    kvproxy::LoseDevice();
    from = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(from, Method::Present, {D3DERR_DEVICELOST}));
    EXPECT_TRUE(kvproxy::ResultsAre(from, Method::TestCooperativeLevel, {D3DERR_DEVICELOST}));
    EXPECT_FALSE(ResetAttempted(from));
    // Resettable: a further window asks too, but never resets ...
    kvproxy::AllowDeviceReset();
    scripted.presentResult = D3DERR_DEVICELOST;
    kv::ClearLog();
    from = kvproxy::Here();
    w2->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(from, Method::TestCooperativeLevel, {D3DERR_DEVICENOTRESET}));
    EXPECT_FALSE(ResetAttempted(from));
    // ... other failures are not even looked into ...
    scripted.presentResult = E_FAIL;
    from = kvproxy::Here();
    w2->swapBuffers();
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    // ... and the main window goes for the reset at once (which takes every
    // window's surfaces: the real chain goes back first).
    w2->m_pSwapChain = real;
    EXPECT_EQ(1u, scripted.refs);
    from = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(from, Method::TestCooperativeLevel, {D3DERR_DEVICENOTRESET}));
    EXPECT_TRUE(ResetAttempted(from));
}

TEST_F(Windows, ResetOfAFurtherWindowRebuildsItsSwapChainAtOnce)
{
    kv::CD3D9RenderWindow* w2 = Further(64, 64);
    ASSERT_NE(nullptr, w2);
    rs->_setRenderTarget(w2);
    ASSERT_EQ(w2, rs->_getRenderTarget());
    const int checks = rs->m_nCheckActiveRenderTargetCount;
    kvproxy::Mark from = kvproxy::Here();
    EXPECT_TRUE(rs->Reset(otherWnd, 96, 80, false, false, 0));
    std::vector<KvProxyCall> chains = kvproxy::CallsSince(from, Method::CreateAdditionalSwapChain);
    ASSERT_EQ(1u, chains.size());
    D3DPRESENT_PARAMETERS pp = {};
    ASSERT_TRUE(kvproxy::PresentParametersOf(chains[0], &pp));
    EXPECT_EQ(96u, pp.BackBufferWidth);
    EXPECT_EQ(80u, pp.BackBufferHeight);
    EXPECT_EQ("96x80", SizeOf(w2->m_pBackBuffer));
    EXPECT_EQ(nullptr, w2->m_pDepthBuffer.get()) << "the old buffer went with the old chain";
    EXPECT_EQ(checks + 1, rs->m_nCheckActiveRenderTargetCount);
    EXPECT_EQ(nullptr, rs->_getRenderTarget()) << "the next binding runs in full";
    // Bound again: the new back buffer at slot 0.
    from = kvproxy::Here();
    rs->_setRenderTarget(w2);
    std::vector<KvProxyCall> binds = kvproxy::CallsSince(from, Method::SetRenderTarget);
    ASSERT_EQ(1u, binds.size());
    EXPECT_EQ(P(w2->m_pBackBuffer), binds[0].args[1]);
    // A refused size changes nothing.
    from = kvproxy::Here();
    EXPECT_FALSE(w2->Reset(0, 80, false, false, 0));
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    EXPECT_EQ(96u, w2->getWidth());

    // The main window's own Reset changes only its fields.
    kv::CD3D9RenderWindow* w = MainWindow();
    IDirect3DSurface9* bb = w->m_pBackBuffer;
    kv::CDepthBuffer* depth = w->m_pDepthBuffer.get();
    const int before = rs->m_nCheckActiveRenderTargetCount;
    from = kvproxy::Here();
    EXPECT_TRUE(w->Reset(400, 300, false, true, 0));
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    EXPECT_EQ(400u, w->getWidth());
    EXPECT_EQ(300u, w->getHeight());
    EXPECT_TRUE(w->m_bVSync);
    EXPECT_EQ(bb, w->m_pBackBuffer);
    EXPECT_EQ(depth, w->m_pDepthBuffer.get());
    EXPECT_EQ(before, rs->m_nCheckActiveRenderTargetCount);
}

TEST_F(Windows, CopiesGoThroughStretchRectWithoutFiltering)
{
    kv::CD3D9RenderWindow* w2 = Further(64, 64);
    ASSERT_NE(nullptr, w2);
    RECT src = {0, 0, 32, 32};
    RECT dst = {8, 8, 40, 40};
    kvproxy::Mark from = kvproxy::Here();
    rs->m_pMainWindow->CopyToTarget(w2, &src, &dst);
    std::vector<KvProxyCall> copies = kvproxy::CallsSince(from, Method::StretchRect);
    ASSERT_EQ(1u, copies.size());
    EXPECT_EQ(
        (std::vector<uint64_t>{P(MainWindow()->m_pBackBuffer), P(&src), P(w2->m_pBackBuffer), P(&dst), D3DTEXF_NONE}),
        std::vector<uint64_t>(copies[0].args, copies[0].args + 5));
    // Nothing to copy into: no call.
    ref_ptr<SurfaceTarget> empty(new SurfaceTarget({}, 16, 16));
    from = kvproxy::Here();
    rs->m_pMainWindow->CopyToTarget(nullptr, nullptr, nullptr);
    rs->m_pMainWindow->CopyToTarget(empty.get(), nullptr, nullptr);
    rs->m_pMainWindow->CopyToTexture(nullptr);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
}

// ---- depth buffers

TEST_F(TargetsTest, DepthBufferCountsItsBytesWhileItLivesAndReleasesOnlyItsOwnSurface)
{
    const uint32_t before = kv::g_nDepthBufferSizeInBytes;
    {
        ref_ptr<kv::CD3D9DepthBuffer> b(
            new kv::CD3D9DepthBuffer(1, nullptr, D3DFMT_D24S8, 1024, 768, D3DMULTISAMPLE_NONE, 0, false));
        EXPECT_EQ(before + 3145728u, kv::g_nDepthBufferSizeInBytes);
        EXPECT_EQ(32, b->getBitDepth());
        EXPECT_TRUE(b->hasStencil());
        EXPECT_EQ(1, b->getPoolId());
    }
    EXPECT_EQ(before, kv::g_nDepthBufferSizeInBytes);
    {
        // Not a depth format: no bits, no bytes.
        ref_ptr<kv::CD3D9DepthBuffer> b(
            new kv::CD3D9DepthBuffer(1, nullptr, D3DFMT_X8R8G8B8, 1024, 768, D3DMULTISAMPLE_NONE, 0, false));
        EXPECT_EQ(before, kv::g_nDepthBufferSizeInBytes);
        EXPECT_EQ(0, b->getBitDepth());
        EXPECT_FALSE(b->hasStencil());
    }
    EXPECT_EQ(before, kv::g_nDepthBufferSizeInBytes);

    for (bool manual : {true, false})
    {
        IDirect3DSurface9* s = nullptr;
        ASSERT_EQ(D3D_OK,
                  device->CreateDepthStencilSurface(32, 32, D3DFMT_D24S8, D3DMULTISAMPLE_NONE, 0, TRUE, &s, nullptr));
        s->AddRef(); // ours, beside the one the buffer takes over
        {
            ref_ptr<kv::CD3D9DepthBuffer> b(
                new kv::CD3D9DepthBuffer(1, s, D3DFMT_D24S8, 32, 32, D3DMULTISAMPLE_NONE, 0, manual));
            EXPECT_EQ(s, b->getSurface());
        }
        const ULONG left = s->Release();
        EXPECT_EQ(manual ? 1u : 0u, left) << (manual ? "manual" : "owned");
        if (left)
            s->Release();
    }
}

TEST_F(TargetsTest, CompatibleOnlyWithTargetsItCovers)
{
    kv::CD3D9DepthBuffer buffer(1, nullptr, D3DFMT_D24S8, 64, 64, D3DMULTISAMPLE_NONE, 0, true);
    ASSERT_EQ(D3DFMT_D24S8, d3d->_getDepthStencilFormatFor(D3DFMT_X8R8G8B8));
    ref_ptr<SurfaceTarget> same = MakeTarget(64, 64);
    ref_ptr<SurfaceTarget> multi = MakeTarget(32, 32, 1, D3DMULTISAMPLE_4_SAMPLES);
    EXPECT_TRUE(buffer.isCompatible(same.get()));
    EXPECT_TRUE(buffer.isCompatible(MakeTarget(32, 64).get())) << "smaller";
    EXPECT_FALSE(buffer.isCompatible(MakeTarget(65, 64).get())) << "wider";
    EXPECT_FALSE(buffer.isCompatible(MakeTarget(64, 65).get())) << "higher";
    EXPECT_FALSE(buffer.isCompatible(multi.get()));
    EXPECT_FALSE(buffer.isCompatible(ref_ptr<SurfaceTarget>(new SurfaceTarget({}, 16, 16)).get())) << "no surface";
    // Another depth format than the one found for the colour format: no.
    EXPECT_FALSE(
        kv::CD3D9DepthBuffer(1, nullptr, D3DFMT_D16, 64, 64, D3DMULTISAMPLE_NONE, 0, true).isCompatible(same.get()));
    // A four-sample buffer does not serve a plain target, but does a four-sample one.
    kv::CD3D9DepthBuffer ms(1, nullptr, D3DFMT_D24S8, 64, 64, D3DMULTISAMPLE_4_SAMPLES, 0, true);
    EXPECT_FALSE(ms.isCompatible(same.get()));
    EXPECT_TRUE(ms.isCompatible(multi.get()));
    // The pool id plays no part.
    EXPECT_TRUE(
        kv::CD3D9DepthBuffer(7, nullptr, D3DFMT_D24S8, 64, 64, D3DMULTISAMPLE_NONE, 0, true).isCompatible(same.get()));
}

TEST_F(TargetsTest, FormatSearchStopsAtTheFirstFittingCandidateAndIsKept)
{
    d3d->m_mapDepthStencilFormats.clear();
    for (D3DFORMAT f : {D3DFMT_D24S8, D3DFMT_D24FS8, D3DFMT_D24X4S4, D3DFMT_D24X8, D3DFMT_D15S1})
        kvproxy::FailCheckDeviceFormat(f, D3DUSAGE_DEPTHSTENCIL);
    kvproxy::Mark from = kvproxy::Here();
    EXPECT_EQ(D3DFMT_D16, d3d->_getDepthStencilFormatFor(D3DFMT_A8R8G8B8));
    EXPECT_EQ(
        (std::vector<uint64_t>{D3DFMT_D24S8, D3DFMT_D24FS8, D3DFMT_D24X4S4, D3DFMT_D24X8, D3DFMT_D15S1, D3DFMT_D16}),
        DepthFormatsAsked(from));
    std::vector<KvProxyCall> matches = kvproxy::CallsSince(from, Method::D3D9_CheckDepthStencilMatch);
    ASSERT_EQ(1u, matches.size());
    EXPECT_EQ((std::vector<uint64_t>{d3d->m_adapterFormat, D3DFMT_A8R8G8B8, D3DFMT_D16}),
              std::vector<uint64_t>(matches[0].args + 2, matches[0].args + 5));

    // Kept: a depth buffer for a target of that colour format asks nothing more.
    kvproxy::ClearFaults();
    ref_ptr<SurfaceTarget> t(new SurfaceTarget({MakeSurface(32, 32, D3DMULTISAMPLE_NONE, D3DFMT_A8R8G8B8)}, 32, 32));
    from = kvproxy::Here();
    ref_ptr<kv::CDepthBuffer> b = rs->_createDepthBufferFor(t.get());
    ASSERT_NE(nullptr, b.get());
    EXPECT_TRUE(kvproxy::NoCallsOf(from, {Method::D3D9_CheckDeviceFormat, Method::D3D9_CheckDepthStencilMatch}));
    std::vector<KvProxyCall> made = kvproxy::CallsSince(from, Method::CreateDepthStencilSurface);
    ASSERT_EQ(1u, made.size());
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_D16), made[0].args[2]);
    EXPECT_EQ(16, b->getBitDepth());
    EXPECT_EQ(b.get(), t->m_pDepthBuffer.get());

    // No fitting format is kept as none.
    for (D3DFORMAT f : {D3DFMT_D16, D3DFMT_D32})
        kvproxy::FailCheckDeviceFormat(f, D3DUSAGE_DEPTHSTENCIL);
    for (D3DFORMAT f : {D3DFMT_D24S8, D3DFMT_D24FS8, D3DFMT_D24X4S4, D3DFMT_D24X8, D3DFMT_D15S1})
        kvproxy::FailCheckDeviceFormat(f, D3DUSAGE_DEPTHSTENCIL);
    from = kvproxy::Here();
    EXPECT_EQ(D3DFMT_UNKNOWN, d3d->_getDepthStencilFormatFor(D3DFMT_R5G6B5));
    EXPECT_EQ(7u, DepthFormatsAsked(from).size());
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::D3D9_CheckDepthStencilMatch));
    from = kvproxy::Here();
    EXPECT_EQ(D3DFMT_UNKNOWN, d3d->_getDepthStencilFormatFor(D3DFMT_R5G6B5));
    EXPECT_TRUE(DepthFormatsAsked(from).empty());

    // A refused match moves the search on.
    kvproxy::ClearFaults();
    d3d->m_mapDepthStencilFormats.clear();
    kvproxy::FailMethod(Method::D3D9_CheckDepthStencilMatch, D3DERR_NOTAVAILABLE, 1);
    from = kvproxy::Here();
    const D3DFORMAT f = d3d->_getDepthStencilFormatFor(D3DFMT_X8R8G8B8);
    EXPECT_NE(D3DFMT_D24S8, f);
    EXPECT_NE(D3DFMT_UNKNOWN, f);
    matches = kvproxy::CallsSince(from, Method::D3D9_CheckDepthStencilMatch);
    ASSERT_GE(matches.size(), 2u);
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_D24S8), matches[0].args[4]);
    EXPECT_EQ(static_cast<uint64_t>(f), matches.back().args[4]);
}

TEST_F(TargetsTest, RefusedOrImpossibleDepthSurfacesLeaveTheTargetWithoutDepth)
{
    // Larger than the window, so the window's buffer cannot serve.
    ref_ptr<SurfaceTarget> t = MakeTarget(kWidth + 16, kHeight);
    kvproxy::FailMethod(Method::CreateDepthStencilSurface, D3DERR_OUTOFVIDEOMEMORY, 1);
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    kvproxy::Mark from = kvproxy::Here();
    rs->_setRenderTarget(t.get());
    EXPECT_EQ((std::vector<std::string>{"Error CreateDepthStencilSurface, D3D9RenderSystem::_createDepthBufferFor"}),
              Errors());
    EXPECT_EQ(nullptr, t->m_pDepthBuffer.get());
    EXPECT_EQ(nullptr, d3d->m_pActiveDepthBuffer.get());
    std::vector<KvProxyCall> depth = kvproxy::CallsSince(from, Method::SetDepthStencilSurface);
    ASSERT_EQ(1u, depth.size());
    EXPECT_EQ(0u, depth[0].args[0]) << "the depth surface unbound";
    // The error names its source as a path from the plug-in's folder.
    EXPECT_EQ("D3D9RenderSystem/D3D9RenderSystemTargets", kv::GetLogLines().back().file);

    // No depth buffer for a target without surface, and no word of it.
    kv::ClearLog();
    ref_ptr<SurfaceTarget> empty(new SurfaceTarget({}, 64, 64));
    from = kvproxy::Here();
    EXPECT_EQ(nullptr, rs->_createDepthBufferFor(empty.get()).get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    EXPECT_TRUE(kv::GetLogLines().empty());

    // A surface that cannot be described gets none, with an error; nor does
    // the window's buffer fit it, and that is no error.
    MuteSurface mute;
    ref_ptr<SurfaceTarget> muted(new SurfaceTarget({&mute}, 64, 64));
    EXPECT_EQ(nullptr, rs->_createDepthBufferFor(muted.get()).get());
    EXPECT_EQ((std::vector<std::string>{
                  "Failed to retrieve Surface Description from BackBuffer. D3D9RenderSystem::_createDepthBufferFor"}),
              Errors());
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::CreateDepthStencilSurface));
    EXPECT_EQ(nullptr, muted->m_pDepthBuffer.get());
    kv::ClearLog();
    EXPECT_FALSE(rs->m_pMainWindow->m_pDepthBuffer->isCompatible(muted.get()));
    EXPECT_TRUE(kv::GetLogLines().empty());
    EXPECT_EQ(2, mute.descs);
    muted->m_surfaces.clear(); // not a real surface: nothing to release
}

TEST_F(TargetsTest, DetachNotifiesTheBufferAndDropDoesNot)
{
    kv::CRenderWindow* w = rs->m_pMainWindow.get();
    ref_ptr<kv::CDepthBuffer> held = w->m_pDepthBuffer;
    ASSERT_NE(nullptr, held.get());
    EXPECT_EQ(1u, held->getAttachedTargets().count(w));
    w->dropDepthBuffer();
    EXPECT_EQ(nullptr, w->m_pDepthBuffer.get());
    EXPECT_EQ(1u, held->getAttachedTargets().count(w)) << "dropping tells the buffer nothing";
    ASSERT_TRUE(w->attachDepthBuffer(held.get()));
    w->detachDepthBuffer();
    EXPECT_EQ(nullptr, w->m_pDepthBuffer.get());
    EXPECT_EQ(0u, held->getAttachedTargets().count(w));
    // Without a buffer both do nothing.
    w->detachDepthBuffer();
    w->dropDepthBuffer();
    EXPECT_EQ(nullptr, w->m_pDepthBuffer.get());
}
