// Render windows: the main window after Init, further windows with their own
// swap chains, presenting with a lost device, resets, notifications and copies.
#include "TargetsFixture.h"

#include "engine/RenderWindow.h"

using kvproxy::Method;

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

// Whether anything tried to reset the device: the device's Reset reached, or
// the render system's reset road said a word about itself.
bool ResetAttempted(kvproxy::Mark mark)
{
    if (kvproxy::CountSince(mark, Method::Reset) > 0)
        return true;
    for (const kv::LogLine& l : kv::GetLogLines())
        if (l.text.find("ResetDevice") != std::string::npos)
            return true;
    return false;
}

D3DSURFACE_DESC DescOf(IDirect3DSurface9* s)
{
    D3DSURFACE_DESC d = {};
    EXPECT_NE(nullptr, s);
    if (s)
    {
        EXPECT_EQ(D3D_OK, s->GetDesc(&d));
    }
    return d;
}

ULONG RefsOf(IUnknown* u)
{
    u->AddRef();
    return u->Release();
}

} // namespace

TEST_F(TargetsTest, InitLeavesTheMainWindowWithBackBufferAndTheDevicesDepthSurface)
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
}

TEST_F(TargetsTest, AttributesByName)
{
    kv::CD3D9RenderWindow* w = MainWindow();
    void* const sentinel = reinterpret_cast<void*>(static_cast<uintptr_t>(0x5A5A5A5A));
    for (const char* name : {"isTexture", "WINDOW", "D3DZBUFFER", "HWND", "ddbackbuffer", ""})
    {
        void* out[8];
        for (void*& o : out)
            o = sentinel;
        w->GetAttribute(name, out);
        for (void* o : out)
            EXPECT_EQ(sentinel, o) << "name \"" << name << "\"";
    }
    const ULONG refs = RefsOf(w->m_pBackBuffer);
    IDirect3DSurface9* out[8] = {};
    w->GetAttribute("DDBACKBUFFER", out);
    EXPECT_EQ(w->m_pBackBuffer, out[0]);
    EXPECT_EQ(nullptr, out[1]);
    EXPECT_EQ(refs, RefsOf(w->m_pBackBuffer)) << "no reference added";
}

TEST_F(TargetsTest, DeviceLossTakesTheSurfacesAndAResetBringsANewDepthBuffer)
{
    kv::CD3D9RenderWindow* w = MainWindow();
    kv::CDepthBuffer* old = w->m_pDepthBuffer.get();
    ASSERT_NE(nullptr, old);
    kvproxy::Mark mark = kvproxy::Here();
    w->notifyOnDeviceLost();
    EXPECT_EQ(nullptr, w->m_pBackBuffer);
    EXPECT_EQ(nullptr, w->m_pSwapChain);
    EXPECT_EQ(nullptr, w->m_pDepthBuffer.get());
    // The buffer went with its last holder, and its bytes with it.
    EXPECT_EQ(0u, kv::g_nDepthBufferSizeInBytes);
    w->notifyOnDeviceLost();
    EXPECT_EQ(nullptr, w->m_pBackBuffer);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));

    w->notifyOnDeviceReset();
    EXPECT_TRUE(w->m_bIsMainWindow);
    EXPECT_NE(nullptr, w->m_pBackBuffer);
    kv::CD3D9DepthBuffer* fresh = dynamic_cast<kv::CD3D9DepthBuffer*>(w->m_pDepthBuffer.get());
    ASSERT_NE(nullptr, fresh);
    EXPECT_EQ(kWidth * kHeight * 4, kv::g_nDepthBufferSizeInBytes);
    EXPECT_TRUE(kvproxy::CalledInOrder(mark, {Method::GetBackBuffer, Method::GetDepthStencilSurface}));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, NotificationsLeaveTheBoundBufferToTheRenderSystem)
{
    kv::CD3D9RenderWindow* w = MainWindow();
    rs->_setRenderTarget(w);
    kv::CDepthBuffer* bound = d3d->m_pActiveDepthBuffer.get();
    ASSERT_EQ(w->m_pDepthBuffer.get(), bound);
    w->notifyOnDeviceLost();
    // Still held by the render system until its reset lets go of it.
    EXPECT_EQ(bound, d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ(0u, bound->getAttachedTargets().size());
    d3d->m_pActiveDepthBuffer = nullptr;
    EXPECT_EQ(0u, kv::g_nDepthBufferSizeInBytes);
    w->notifyOnDeviceReset();
    EXPECT_EQ(kWidth * kHeight * 4, kv::g_nDepthBufferSizeInBytes);
}

TEST_F(TargetsTest, NoFurtherWindowWithoutHandleOrSize)
{
    HWND second = MakeWindow(100, 100);
    kvproxy::Mark mark = kvproxy::Here();
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(nullptr, 100, 100, false).get());
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(second, 0, 100, false).get());
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(second, 100, 0, false).get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_TRUE(kv::GetLogLines().empty());
    EXPECT_EQ(nullptr, kv::CRenderWindow::FindByHandle(second));
}

TEST_F(TargetsTest, FurtherWindowHasItsOwnSwapChain)
{
    HWND second = MakeWindow(200, 150);
    kvproxy::Mark mark = kvproxy::Here();
    ref_ptr<kv::CRenderWindow> made = rs->CreateRenderWindow(second, 200, 150, false);
    kv::CD3D9RenderWindow* w = dynamic_cast<kv::CD3D9RenderWindow*>(made.get());
    ASSERT_NE(nullptr, w);
    EXPECT_EQ(1, made->GetRefCount());
    EXPECT_FALSE(w->m_bIsMainWindow);
    EXPECT_FALSE(w->m_bVSync);
    EXPECT_EQ(0, w->getFSAA());
    ASSERT_NE(nullptr, w->m_pSwapChain);
    EXPECT_EQ(nullptr, w->m_pDepthBuffer.get());

    std::vector<KvProxyCall> chains = kvproxy::CallsSince(mark, Method::CreateAdditionalSwapChain);
    ASSERT_EQ(1u, chains.size());
    D3DPRESENT_PARAMETERS pp = {};
    ASSERT_TRUE(kvproxy::PresentParametersOf(chains[0], &pp));
    EXPECT_EQ(200u, pp.BackBufferWidth);
    EXPECT_EQ(150u, pp.BackBufferHeight);
    EXPECT_EQ(second, pp.hDeviceWindow);
    EXPECT_EQ(TRUE, pp.Windowed);
    EXPECT_EQ(1u, pp.BackBufferCount);
    EXPECT_EQ(static_cast<UINT>(D3DPRESENT_INTERVAL_IMMEDIATE), pp.PresentationInterval);
    EXPECT_EQ(D3DMULTISAMPLE_NONE, pp.MultiSampleType);
    EXPECT_EQ(D3DFMT_X8R8G8B8, pp.BackBufferFormat);

    D3DSURFACE_DESC desc = DescOf(w->m_pBackBuffer);
    EXPECT_EQ(200u, desc.Width);
    EXPECT_EQ(150u, desc.Height);
    EXPECT_EQ(kv::PF_X8R8G8B8, w->getFormat());

    // Binding it asks for a depth buffer of its size: the main window's is
    // larger and would do, so it is shared.
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    mark = kvproxy::Here();
    rs->_setRenderTarget(w);
    EXPECT_EQ(rs->m_pMainWindow->m_pDepthBuffer.get(), w->m_pDepthBuffer.get());
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::CreateDepthStencilSurface));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, RefusedSwapChainGivesNoWindow)
{
    HWND second = MakeWindow(64, 64);
    kvproxy::FailMethod(Method::CreateAdditionalSwapChain, D3DERR_OUTOFVIDEOMEMORY, 1);
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(second, 64, 64, false).get());
    EXPECT_EQ((std::vector<std::string>{"Failed to m_pD3D9Device->CreateAdditionalSwapChain"}), Errors());
    EXPECT_EQ(nullptr, kv::CRenderWindow::FindByHandle(second)) << "the refused window is gone";
}

TEST_F(TargetsTest, MainWindowPresentsThroughTheDeviceAndOnlyItResetsALostDevice)
{
    HWND second = MakeWindow(64, 64);
    ref_ptr<kv::CRenderWindow> other = rs->CreateRenderWindow(second, 64, 64, false);
    kv::CD3D9RenderWindow* w2 = dynamic_cast<kv::CD3D9RenderWindow*>(other.get());
    ASSERT_NE(nullptr, w2);

    kvproxy::Mark mark = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    std::vector<KvProxyCall> presents = kvproxy::CallsSince(mark, Method::Present);
    ASSERT_EQ(1u, presents.size());
    EXPECT_EQ((std::vector<uint64_t>{0, 0, kvproxy::PtrArg(hWnd), 0}),
              std::vector<uint64_t>(presents[0].args, presents[0].args + 4));
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::TestCooperativeLevel));

    // The further window presents through its own chain, not the device.
    ScriptedSwapChain scripted;
    IDirect3DSwapChain9* real = w2->m_pSwapChain;
    w2->m_pSwapChain = &scripted;
    mark = kvproxy::Here();
    w2->swapBuffers();
    EXPECT_EQ(1, scripted.presents);
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::Present));
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::TestCooperativeLevel));

    // Lost, not yet resettable: the main window asks and leaves it.
    kvproxy::LoseDevice();
    mark = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::Present, {D3DERR_DEVICELOST}));
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::TestCooperativeLevel, {D3DERR_DEVICELOST}));
    EXPECT_FALSE(ResetAttempted(mark));

    // Resettable: a further window asks too, but never resets ...
    kvproxy::AllowDeviceReset();
    scripted.presentResult = D3DERR_DEVICELOST;
    kv::ClearLog();
    mark = kvproxy::Here();
    w2->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::TestCooperativeLevel, {D3DERR_DEVICENOTRESET}));
    EXPECT_FALSE(ResetAttempted(mark));

    // ... other failures are not even looked into ...
    scripted.presentResult = E_FAIL;
    mark = kvproxy::Here();
    w2->swapBuffers();
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));

    // ... and the main window goes for the reset at once (which takes every
    // window's surfaces: the real chain goes back first).
    w2->m_pSwapChain = real;
    EXPECT_EQ(1u, scripted.refs);
    mark = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::TestCooperativeLevel, {D3DERR_DEVICENOTRESET}));
    EXPECT_TRUE(ResetAttempted(mark));
}

TEST_F(TargetsTest, ResetOfAFurtherWindowRebuildsItsSwapChainAtOnce)
{
    HWND second = MakeWindow(64, 64);
    ref_ptr<kv::CRenderWindow> other = rs->CreateRenderWindow(second, 64, 64, false);
    kv::CD3D9RenderWindow* w2 = dynamic_cast<kv::CD3D9RenderWindow*>(other.get());
    ASSERT_NE(nullptr, w2);
    rs->_setRenderTarget(w2);
    ASSERT_EQ(w2, rs->_getRenderTarget());
    const int checks = rs->m_nCheckActiveRenderTargetCount;

    kvproxy::Mark mark = kvproxy::Here();
    EXPECT_TRUE(rs->Reset(second, 96, 80, false, false, 0));
    std::vector<KvProxyCall> chains = kvproxy::CallsSince(mark, Method::CreateAdditionalSwapChain);
    ASSERT_EQ(1u, chains.size());
    D3DPRESENT_PARAMETERS pp = {};
    ASSERT_TRUE(kvproxy::PresentParametersOf(chains[0], &pp));
    EXPECT_EQ(96u, pp.BackBufferWidth);
    EXPECT_EQ(80u, pp.BackBufferHeight);
    D3DSURFACE_DESC desc = DescOf(w2->m_pBackBuffer);
    EXPECT_EQ(96u, desc.Width);
    EXPECT_EQ(80u, desc.Height);
    EXPECT_EQ(nullptr, w2->m_pDepthBuffer.get()) << "the old buffer went with the old chain";
    EXPECT_EQ(checks + 1, rs->m_nCheckActiveRenderTargetCount);
    EXPECT_EQ(nullptr, rs->_getRenderTarget()) << "the next binding runs in full";

    // Bound again: the new back buffer at slot 0.
    mark = kvproxy::Here();
    rs->_setRenderTarget(w2);
    std::vector<KvProxyCall> binds = kvproxy::CallsSince(mark, Method::SetRenderTarget);
    ASSERT_EQ(1u, binds.size());
    EXPECT_EQ(kvproxy::PtrArg(w2->m_pBackBuffer), binds[0].args[1]);

    // A refused size changes nothing.
    mark = kvproxy::Here();
    EXPECT_FALSE(w2->Reset(0, 80, false, false, 0));
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(96u, w2->getWidth());
}

TEST_F(TargetsTest, ResetOfTheMainWindowChangesOnlyItsFields)
{
    kv::CD3D9RenderWindow* w = MainWindow();
    IDirect3DSurface9* bb = w->m_pBackBuffer;
    kv::CDepthBuffer* depth = w->m_pDepthBuffer.get();
    const int checks = rs->m_nCheckActiveRenderTargetCount;
    kvproxy::Mark mark = kvproxy::Here();
    EXPECT_TRUE(w->Reset(400, 300, false, true, 0));
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(400u, w->getWidth());
    EXPECT_EQ(300u, w->getHeight());
    EXPECT_TRUE(w->m_bVSync);
    EXPECT_EQ(bb, w->m_pBackBuffer);
    EXPECT_EQ(depth, w->m_pDepthBuffer.get());
    EXPECT_EQ(checks, rs->m_nCheckActiveRenderTargetCount);
}

TEST_F(TargetsTest, CopiesGoThroughStretchRectWithoutFiltering)
{
    HWND second = MakeWindow(64, 64);
    ref_ptr<kv::CRenderWindow> other = rs->CreateRenderWindow(second, 64, 64, false);
    kv::CD3D9RenderWindow* w2 = dynamic_cast<kv::CD3D9RenderWindow*>(other.get());
    ASSERT_NE(nullptr, w2);
    RECT src = {0, 0, 32, 32};
    RECT dst = {8, 8, 40, 40};

    kvproxy::Mark mark = kvproxy::Here();
    rs->m_pMainWindow->CopyToTarget(w2, &src, &dst);
    std::vector<KvProxyCall> copies = kvproxy::CallsSince(mark, Method::StretchRect);
    ASSERT_EQ(1u, copies.size());
    EXPECT_EQ(kvproxy::PtrArg(MainWindow()->m_pBackBuffer), copies[0].args[0]);
    EXPECT_EQ(kvproxy::PtrArg(&src), copies[0].args[1]);
    EXPECT_EQ(kvproxy::PtrArg(w2->m_pBackBuffer), copies[0].args[2]);
    EXPECT_EQ(kvproxy::PtrArg(&dst), copies[0].args[3]);
    EXPECT_EQ(static_cast<uint64_t>(D3DTEXF_NONE), copies[0].args[4]);

    // Nothing to copy into: no call.
    ref_ptr<SurfaceTarget> empty(new SurfaceTarget({}, 16, 16));
    mark = kvproxy::Here();
    rs->m_pMainWindow->CopyToTarget(nullptr, nullptr, nullptr);
    rs->m_pMainWindow->CopyToTarget(empty.get(), nullptr, nullptr);
    rs->m_pMainWindow->CopyToTexture(nullptr);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
}

TEST_F(TargetsTest, UpdatesOpenAndCloseTheScene)
{
    kvproxy::Mark mark = kvproxy::Here();
    ASSERT_TRUE(rs->m_pMainWindow->_beginUpdate());
    rs->m_pMainWindow->_endUpdate();
    EXPECT_TRUE(kvproxy::CalledInOrder(mark, {Method::BeginScene, Method::EndScene}));
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::BeginScene));
}
