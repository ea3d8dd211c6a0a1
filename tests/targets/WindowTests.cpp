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

// A surface that cannot describe itself; nothing else of it is used.
class MuteSurface : public IDirect3DSurface9
{
public:
    STDMETHOD(QueryInterface)(REFIID, void** out) override { return *out = nullptr, E_NOINTERFACE; }
    STDMETHOD_(ULONG, AddRef)() override { return 1; }
    STDMETHOD_(ULONG, Release)() override { return 1; }
    STDMETHOD(GetDevice)(IDirect3DDevice9** out) override { return *out = nullptr, D3DERR_INVALIDCALL; }
    STDMETHOD(SetPrivateData)(REFGUID, const void*, DWORD, DWORD) override { return D3DERR_INVALIDCALL; }
    STDMETHOD(GetPrivateData)(REFGUID, void*, DWORD*) override { return D3DERR_INVALIDCALL; }
    STDMETHOD(FreePrivateData)(REFGUID) override { return D3DERR_INVALIDCALL; }
    STDMETHOD_(DWORD, SetPriority)(DWORD) override { return 0; }
    STDMETHOD_(DWORD, GetPriority)() override { return 0; }
    STDMETHOD_(void, PreLoad)() override {}
    STDMETHOD_(D3DRESOURCETYPE, GetType)() override { return D3DRTYPE_SURFACE; }
    STDMETHOD(GetContainer)(REFIID, void** out) override { return *out = nullptr, D3DERR_INVALIDCALL; }
    STDMETHOD(GetDesc)(D3DSURFACE_DESC*) override { return ++descs, D3DERR_INVALIDCALL; }
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

// "<width>x<height> <samples>" of a surface.
std::string Described(IDirect3DSurface9* s)
{
    D3DSURFACE_DESC d = {};
    if (!s || FAILED(s->GetDesc(&d)))
        return "no surface";
    return std::to_string(d.Width) + "x" + std::to_string(d.Height) + " " + std::to_string(d.MultiSampleType);
}

ULONG RefsOf(IUnknown* u)
{
    u->AddRef();
    return u->Release();
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

TEST_F(Windows, TheMainWindowHoldsTheBackBufferAndTheDevicesDepthSurfaceTillALoss)
{
    kv::CD3D9RenderWindow* w = MainWindow();
    ASSERT_NE(nullptr, w);
    EXPECT_TRUE(w->m_bIsMainWindow);
    EXPECT_EQ(device, w->m_pD3D9Device);
    EXPECT_EQ(nullptr, w->m_pSwapChain);
    IDirect3DSurface9 *bb = nullptr, *ds = nullptr;
    ASSERT_EQ(D3D_OK, device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &bb));
    ASSERT_EQ(D3D_OK, device->GetDepthStencilSurface(&ds));
    kv::CD3D9DepthBuffer* buffer = dynamic_cast<kv::CD3D9DepthBuffer*>(w->m_pDepthBuffer.get());
    ASSERT_NE(nullptr, buffer);
    EXPECT_TRUE(bb == w->m_pBackBuffer && ds == buffer->getSurface());
    bb->Release();
    ds->Release();
    EXPECT_EQ(Call("", 1, 0, D3DFMT_D24S8, kWidth, kHeight, 1),
              Call("", buffer->getPoolId(), buffer->isManual(), buffer->m_eFormat, buffer->getWidth(),
                   buffer->getHeight(), buffer->getAttachedTargets().count(w)));
    EXPECT_EQ(kWidth * kHeight * 4, kv::g_nDepthBufferSizeInBytes);
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
    EXPECT_TRUE(out[0] == w->m_pBackBuffer && out[1] == nullptr);
    EXPECT_EQ(refs, RefsOf(w->m_pBackBuffer)) << "no reference added";

    // A loss takes the surfaces, twice or once; the bound buffer is the render
    // system's to let go of, and goes with its bytes. The rebuild brings a new one.
    rs->_setRenderTarget(w);
    mark = kvproxy::Here();
    w->notifyOnDeviceLost();
    w->notifyOnDeviceLost();
    EXPECT_TRUE(w->m_pBackBuffer == nullptr && w->m_pSwapChain == nullptr && w->m_pDepthBuffer.get() == nullptr);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(buffer, d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ(0u, buffer->getAttachedTargets().size());
    d3d->m_pActiveDepthBuffer = nullptr;
    EXPECT_EQ(0u, kv::g_nDepthBufferSizeInBytes);
    w->notifyOnDeviceReset();
    EXPECT_TRUE(w->m_bIsMainWindow && w->m_pBackBuffer != nullptr);
    EXPECT_NE(nullptr, dynamic_cast<kv::CD3D9DepthBuffer*>(w->m_pDepthBuffer.get()));
    EXPECT_EQ(kWidth * kHeight * 4, kv::g_nDepthBufferSizeInBytes);
    EXPECT_EQ(Join(Call("GetBackBuffer"), Call("GetDepthStencilSurface")), Trace(mark, {}, 0));
    EXPECT_TRUE(Errors().empty());

    // Detaching tells the buffer; dropping does not; without a buffer both do nothing.
    ref_ptr<kv::CDepthBuffer> held = w->m_pDepthBuffer;
    w->dropDepthBuffer();
    EXPECT_EQ(nullptr, w->m_pDepthBuffer.get());
    EXPECT_EQ(1u, held->getAttachedTargets().count(w)) << "dropping tells the buffer nothing";
    ASSERT_TRUE(w->attachDepthBuffer(held.get()));
    w->detachDepthBuffer();
    EXPECT_EQ(0u, held->getAttachedTargets().count(w));
    w->detachDepthBuffer();
    w->dropDepthBuffer();
    EXPECT_EQ(nullptr, w->m_pDepthBuffer.get());
}

TEST_F(Windows, FurtherWindowsHaveTheirOwnSwapChainRebuiltAtTheirReset)
{
    // None without handle or size.
    HWND none = MakeWindow(100, 100);
    mark = kvproxy::Here();
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(nullptr, 100, 100, false).get());
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(none, 0, 100, false).get());
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(none, 100, 0, false).get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_TRUE(kv::GetLogLines().empty());
    EXPECT_EQ(nullptr, kv::CRenderWindow::FindByHandle(none));

    kv::CD3D9RenderWindow* w = Further(200, 150);
    ASSERT_NE(nullptr, w);
    EXPECT_EQ(1, other->GetRefCount());
    EXPECT_FALSE(w->m_bIsMainWindow || w->m_bVSync || w->getFSAA());
    EXPECT_EQ(nullptr, w->m_pDepthBuffer.get());
    std::vector<KvProxyCall> chains = kvproxy::CallsSince(mark, Method::CreateAdditionalSwapChain);
    ASSERT_EQ(1u, chains.size());
    D3DPRESENT_PARAMETERS pp = {};
    ASSERT_TRUE(kvproxy::PresentParametersOf(chains[0], &pp));
    EXPECT_EQ(
        Call("", 200, 150, D3DFMT_X8R8G8B8, 1, D3DMULTISAMPLE_NONE, TRUE, D3DPRESENT_INTERVAL_IMMEDIATE, P(otherWnd)),
        Call("", pp.BackBufferWidth, pp.BackBufferHeight, pp.BackBufferFormat, pp.BackBufferCount, pp.MultiSampleType,
             pp.Windowed, pp.PresentationInterval, P(pp.hDeviceWindow)));
    EXPECT_EQ("200x150 0", Described(w->m_pBackBuffer));
    EXPECT_EQ(kv::PF_X8R8G8B8, w->getFormat());
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
    // A refused size changes nothing; the main window's own Reset changes only its fields.
    mark = kvproxy::Here();
    EXPECT_FALSE(w->Reset(0, 80, false, false, 0));
    EXPECT_EQ(96u, w->getWidth());
    kv::CD3D9RenderWindow* main = MainWindow();
    IDirect3DSurface9* bb = main->m_pBackBuffer;
    kv::CDepthBuffer* depth = main->m_pDepthBuffer.get();
    const int before = rs->m_nCheckActiveRenderTargetCount;
    EXPECT_TRUE(main->Reset(400, 300, false, true, 0));
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ("400 300 1", std::to_string(main->getWidth()) + " " + std::to_string(main->getHeight()) + " " +
                               std::to_string(main->m_bVSync));
    EXPECT_TRUE(bb == main->m_pBackBuffer && depth == main->m_pDepthBuffer.get());
    EXPECT_EQ(before, rs->m_nCheckActiveRenderTargetCount);

    // Copies go through StretchRect without filtering; nothing to copy into, no call.
    RECT src = {0, 0, 32, 32}, dst = {8, 8, 40, 40};
    ref_ptr<SurfaceTarget> empty(new SurfaceTarget({}, 16, 16));
    mark = kvproxy::Here();
    rs->m_pMainWindow->CopyToTarget(w, &src, &dst);
    rs->m_pMainWindow->CopyToTarget(nullptr, nullptr, nullptr);
    rs->m_pMainWindow->CopyToTarget(empty.get(), nullptr, nullptr);
    rs->m_pMainWindow->CopyToTexture(nullptr);
    EXPECT_EQ(Call("StretchRect", P(bb), P(&src), P(w->m_pBackBuffer), P(&dst), D3DTEXF_NONE), Trace(mark));
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
    // Resettable: a further window asks too, but never resets; other failures are
    // not even looked into.
    kvproxy::AllowDeviceReset();
    scripted.presentResult = D3DERR_DEVICELOST;
    kv::ClearLog();
    mark = kvproxy::Here();
    w2->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::TestCooperativeLevel, {D3DERR_DEVICENOTRESET}));
    EXPECT_FALSE(ResetAttempted(mark));
    scripted.presentResult = E_FAIL;
    mark = kvproxy::Here();
    w2->swapBuffers();
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    // The main window goes for the reset at once (which takes every window's
    // surfaces: the real chain goes back first).
    w2->m_pSwapChain = real;
    EXPECT_EQ(1u, scripted.refs);
    mark = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::TestCooperativeLevel, {D3DERR_DEVICENOTRESET}));
    EXPECT_TRUE(ResetAttempted(mark));
}

TEST_F(TargetsTest, DepthBuffersCountTheirBytesAndFitWhatTheyCover)
{
    const uint32_t before = kv::g_nDepthBufferSizeInBytes;
    {
        // D24S8 is 32 bits with a stencil; not a depth format: no bits, no bytes.
        ref_ptr<kv::CD3D9DepthBuffer> b(
            new kv::CD3D9DepthBuffer(1, nullptr, D3DFMT_D24S8, 1024, 768, D3DMULTISAMPLE_NONE, 0, false));
        ref_ptr<kv::CD3D9DepthBuffer> c(
            new kv::CD3D9DepthBuffer(1, nullptr, D3DFMT_X8R8G8B8, 1024, 768, D3DMULTISAMPLE_NONE, 0, false));
        EXPECT_EQ(before + 3145728u, kv::g_nDepthBufferSizeInBytes);
        EXPECT_EQ(Call("", 32, 1, 0, 0),
                  Call("", b->getBitDepth(), b->hasStencil(), c->getBitDepth(), c->hasStencil()));
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
    ref_ptr<SurfaceTarget> same = MakeTarget(64, 64), multi = MakeTarget(32, 32, 1, D3DMULTISAMPLE_4_SAMPLES);
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
    // No fitting format is kept as none; a refused match moves the search on.
    for (D3DFORMAT f :
         {D3DFMT_D24S8, D3DFMT_D24FS8, D3DFMT_D24X4S4, D3DFMT_D24X8, D3DFMT_D15S1, D3DFMT_D16, D3DFMT_D32})
        kvproxy::FailCheckDeviceFormat(f, D3DUSAGE_DEPTHSTENCIL);
    mark = kvproxy::Here();
    EXPECT_EQ(D3DFMT_UNKNOWN, d3d->_getDepthStencilFormatFor(D3DFMT_R5G6B5));
    EXPECT_EQ(D3DFMT_UNKNOWN, d3d->_getDepthStencilFormatFor(D3DFMT_R5G6B5));
    EXPECT_EQ(7u, kvproxy::CountSince(mark, Method::D3D9_CheckDeviceFormat));
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::D3D9_CheckDepthStencilMatch));
    kvproxy::ClearFaults();
    d3d->m_mapDepthStencilFormats.clear();
    kvproxy::FailMethod(Method::D3D9_CheckDepthStencilMatch, D3DERR_NOTAVAILABLE, 1);
    mark = kvproxy::Here();
    EXPECT_EQ(D3DFMT_D24FS8, d3d->_getDepthStencilFormatFor(D3DFMT_X8R8G8B8));
    EXPECT_EQ(Join(Call("D3D9_CheckDepthStencilMatch", 0, D3DDEVTYPE_HAL, d3d->m_adapterFormat, D3DFMT_X8R8G8B8,
                        D3DFMT_D24S8),
                   Call("D3D9_CheckDepthStencilMatch", 0, D3DDEVTYPE_HAL, d3d->m_adapterFormat, D3DFMT_X8R8G8B8,
                        D3DFMT_D24FS8)),
              Trace(mark, {Method::D3D9_CheckDepthStencilMatch}));

    // A refused depth surface leaves a target larger than the window without depth,
    // unbound, and says so, naming the file it comes from.
    ref_ptr<SurfaceTarget> large = MakeTarget(kWidth + 16, kHeight);
    kvproxy::FailMethod(Method::CreateDepthStencilSurface, D3DERR_OUTOFVIDEOMEMORY, 1);
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    kv::ClearLog();
    mark = kvproxy::Here();
    rs->_setRenderTarget(large.get());
    EXPECT_EQ(Call("SetDepthStencilSurface", 0), Trace(mark, {Method::SetDepthStencilSurface}));
    EXPECT_TRUE(large->m_pDepthBuffer.get() == nullptr && d3d->m_pActiveDepthBuffer.get() == nullptr);
    ASSERT_EQ(1u, kv::GetLogLines().size());
    EXPECT_EQ("D3D9RenderSystem/D3D9RenderSystemTargets: Error CreateDepthStencilSurface, "
              "D3D9RenderSystem::_createDepthBufferFor",
              kv::GetLogLines()[0].file + ": " + kv::GetLogLines()[0].text);
    // No depth buffer for a target without surface, and no word of it; a surface
    // that cannot be described gets none, with an error, nor does the window's
    // buffer fit it, and that is no error.
    kv::ClearLog();
    ref_ptr<SurfaceTarget> empty(new SurfaceTarget({}, 64, 64));
    MuteSurface mute;
    ref_ptr<SurfaceTarget> muted(new SurfaceTarget({&mute}, 64, 64));
    mark = kvproxy::Here();
    EXPECT_EQ(nullptr, rs->_createDepthBufferFor(empty.get()).get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_TRUE(kv::GetLogLines().empty());
    EXPECT_EQ(nullptr, rs->_createDepthBufferFor(muted.get()).get());
    EXPECT_FALSE(rs->m_pMainWindow->m_pDepthBuffer->isCompatible(muted.get()));
    EXPECT_EQ((std::vector<std::string>{
                  "Failed to retrieve Surface Description from BackBuffer. D3D9RenderSystem::_createDepthBufferFor"}),
              Errors());
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::CreateDepthStencilSurface));
    EXPECT_EQ(2, mute.descs);
    muted->m_surfaces.clear(); // not a real surface: nothing to release
}

} // namespace
