// Render windows, target binding, viewport, scissor, clear and depth buffers on a 320 by 240 window, with a stand-in
// target over surfaces a test makes itself.
#include "KvDeviceTest.h"
#include "StandInTarget.h"

#include "D3D9DepthBuffer.h"

#include <cstring>

// Draws into up to eight surfaces that it holds a reference to each of.
struct SurfaceTarget : StandInTarget<kv::CRenderTarget>
{
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

    bool GetAttribute(const char* name, void* out) override
    {
        ++m_nAttributeQueries;
        if (std::strcmp(name, "DDBACKBUFFER") != 0)
            return false;
        for (size_t i = 0; i < m_surfaces.size() && i < 8; ++i)
            static_cast<IDirect3DSurface9**>(out)[i] = m_surfaces[i];
        return true;
    }
    bool SetDepthTexture(kv::CTexture* texture) override { return m_pDepthTexture = texture, true; }
    void detachDepthBuffer() override
    {
        if (m_pDepthBuffer)
            m_pDepthBuffer->_notifyRenderTargetDetached(this);
        m_pDepthBuffer = nullptr;
    }
    bool _beginUpdate() override { return false; }

    std::vector<IDirect3DSurface9*> m_surfaces;
    int m_nAttributeQueries = 0;
};

struct TargetsTest : KvDeviceTest
{
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

using kvproxy::Method;
using namespace kvtest;

namespace
{

const auto P = [](const void* p) { return kvproxy::PtrArg(p); };
const kv::CColour kOrange(1.0f, 0.5f, 0.0f, 1.0f);

IDirect3DSurface9* DepthSurfaceOf(kv::CRenderTarget* t)
{
    kv::CD3D9DepthBuffer* b = dynamic_cast<kv::CD3D9DepthBuffer*>(t->m_pDepthBuffer.get());
    return b ? b->getSurface() : nullptr;
}

TEST_F(TargetsTest, ViewportBindsOnceSetsViewportAndScissorEveryTimeAndClearFlagsFollowTheBuffersWord)
{
    kv::CViewport vp(rs->m_pMainWindow.get(), 10, 20, 100, 50);
    rs->SetScissorTestEnabled(true);
    const kvproxy::Mark from = kvproxy::Here();
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);
    // The first call binds the window's back buffer at 0 and empties the other slots, then its depth surface; the
    // target comes before the viewport, since binding slot 0 resets the device's viewport. The second spares the
    // binding; neither touches the scissor test nor clears.
    std::string expected = Join(Call("SetRenderState", D3DRS_SRGBWRITEENABLE, 0),
                                Call("SetRenderTarget", 0, P(MainWindow()->m_pBackBuffer)));
    for (uint64_t i = 1; i < d3d->m_d3dcaps.NumSimultaneousRTs; ++i)
        expected = Join(expected, Call("SetRenderTarget", i, 0));
    const std::string viewport =
        Join(Call("SetViewport", 10, 20, 100, 50, Bits(0.0f), Bits(1.0f)), Call("SetScissorRect", 10, 20, 110, 70));
    EXPECT_EQ(
        Join(expected, Call("SetDepthStencilSurface", P(DepthSurfaceOf(rs->m_pMainWindow.get()))), viewport, viewport),
        Trace(from));
    // A null scissor rectangle goes back to the viewport's.
    RECT r = {0, 0, 1, 1};
    mark = kvproxy::Here();
    rs->SetScissorRect(&r);
    rs->SetScissorRect(nullptr);
    EXPECT_EQ(Join(Call("SetScissorRect", 0, 0, 1, 1), Call("SetScissorRect", 10, 20, 110, 70)), Trace(mark));

    // The whole target, no rectangles; colour 1, depth 2, stencil 4; other bits ignored.
    const struct
    {
        unsigned buffers;
        DWORD flags;
        bool depthCleared;
    } cases[] = {{7, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL, true},
                 {6, D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL, true},
                 {5, D3DCLEAR_TARGET | D3DCLEAR_STENCIL, false},
                 {0xFFFFFFF9u, D3DCLEAR_TARGET, false}};
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    for (const auto& c : cases)
    {
        rs->m_bDepthBufferCleared = false;
        mark = kvproxy::Here();
        rs->ClearFrameBuffer(c.buffers, &kOrange, 0.25f, 3);
        EXPECT_EQ(Call("Clear", 0, 0, c.flags, 0xFFFF7F00u, Bits(0.25f), 3), Trace(mark)) << c.buffers;
        EXPECT_EQ(c.depthCleared, rs->_isDepthBufferCleared()) << c.buffers;
    }
    // Only the viewport's clear: with buffers 0 there is none.
    kv::CViewport whole(rs->m_pMainWindow.get(), 0, 0, kWidth, kHeight);
    mark = kvproxy::Here();
    rs->_setViewport(whole, 0, &kOrange, 1.0f, 0);
    rs->_setViewport(whole, 1, nullptr, 1.0f, 0);
    EXPECT_EQ(Call("Clear", 0, 0, D3DCLEAR_TARGET, 0), Trace(mark, {Method::Clear}, 4));

    // Refused calls are logged and the depth flag is still set.
    for (Method m : {Method::SetViewport, Method::SetScissorRect, Method::Clear})
        kvproxy::FailMethod(m, D3DERR_INVALIDCALL);
    rs->m_bDepthBufferCleared = false;
    rs->_setViewport(whole, 2, &kOrange, 1.0f, 0);
    EXPECT_TRUE(rs->_isDepthBufferCleared());
    EXPECT_EQ((std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to set viewport"),
                                        VerifyLine(D3DERR_INVALIDCALL),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to ClearFrameBuffer")}),
              Errors());
}

TEST_F(TargetsTest, ColourSurfacesMoveDownAndTheShadowsSpareTheRest)
{
    IDirect3DSurface9 *p = MakeSurface(64, 64), *q = MakeSurface(64, 64), *r = MakeSurface(64, 64);
    q->AddRef(); // both targets hold it
    ref_ptr<SurfaceTarget> first(new SurfaceTarget({p, q}, 64, 64)), second(new SurfaceTarget({q, r}, 64, 64));
    rs->_setRenderTarget(first.get());
    const int queries = first->m_nAttributeQueries;
    // A surface moving down leaves its higher slot first; the same target again spares the device and its surfaces.
    mark = kvproxy::Here();
    rs->_setRenderTarget(first.get());
    rs->_setRenderTarget(second.get());
    EXPECT_EQ(queries, first->m_nAttributeQueries);
    EXPECT_EQ(Join(Call("SetRenderTarget", 1, 0), Call("SetRenderTarget", 0, P(q)), Call("SetRenderTarget", 1, P(r))),
              Trace(mark, {Method::SetRenderTarget}));
    // Back to the window empties slot 1; the window's own depth surface replaces the one made for the other targets.
    mark = kvproxy::Here();
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_EQ(Join(Call("SetRenderTarget", 0, P(MainWindow()->m_pBackBuffer)), Call("SetRenderTarget", 1, 0),
                   Call("SetDepthStencilSurface", P(DepthSurfaceOf(rs->m_pMainWindow.get())))),
              Trace(mark, {Method::SetRenderTarget, Method::SetDepthStencilSurface}));
    EXPECT_EQ(3u, Timer().m_nRenderTargetChanges);

    // Refused bindings are logged.
    rs->_setRenderTarget(first.get());
    kvproxy::FailMethod(Method::SetRenderTarget, D3DERR_INVALIDCALL, 1);
    kvproxy::FailMethod(Method::SetDepthStencilSurface, D3DERR_INVALIDCALL, 1);
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_EQ((std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to setRenderTarget!"),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to setDepthStencil")}),
              Errors());
}

TEST_F(TargetsTest, DepthBuffersAreSharedWhereTheyFitAndDepthTexturesServeWithoutSamples)
{
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    // A target of no depth pool unbinds the depth surface, once.
    ref_ptr<SurfaceTarget> flat = MakeTarget(64, 64), flat2 = MakeTarget(64, 64);
    flat->m_nDepthPoolId = flat2->m_nDepthPoolId = 0;
    mark = kvproxy::Here();
    rs->_setRenderTarget(flat.get());
    rs->_setRenderTarget(flat2.get());
    EXPECT_EQ(Call("SetDepthStencilSurface", 0), Trace(mark, {Method::SetDepthStencilSurface}));
    EXPECT_TRUE(!d3d->m_pActiveDepthBuffer.get() && !d3d->m_pCurrentDepthStencil && !flat->m_pDepthBuffer.get());
    // The bound buffer is kept only for a target it fits: one pixel wider needs another.
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    ref_ptr<SurfaceTarget> wider = MakeTarget(kWidth + 1, kHeight);
    rs->_setRenderTarget(wider.get());
    EXPECT_TRUE(wider->m_pDepthBuffer.get() && wider->m_pDepthBuffer.get() != rs->m_pMainWindow->m_pDepthBuffer.get());

    // A depth texture takes the place of a depth buffer only without multisampling (the render target suite draws
    // with one): with four samples a multisampled buffer is made.
    ref_ptr<kv::CTexture> depthTexture(new StandInTexture);
    ref_ptr<SurfaceTarget> multi = MakeTarget(64, 64, D3DMULTISAMPLE_4_SAMPLES);
    multi->SetDepthTexture(depthTexture.get());
    mark = kvproxy::Here();
    rs->_setRenderTarget(multi.get());
    kv::CD3D9DepthBuffer* buffer = dynamic_cast<kv::CD3D9DepthBuffer*>(multi->m_pDepthBuffer.get());
    ASSERT_NE(nullptr, buffer);
    EXPECT_EQ(Join(Call("CreateDepthStencilSurface", 64, 64, D3DFMT_D24S8, D3DMULTISAMPLE_4_SAMPLES),
                   Call("SetDepthStencilSurface", P(buffer->getSurface()))),
              Trace(mark, {Method::CreateDepthStencilSurface, Method::SetDepthStencilSurface}, 4));
    EXPECT_EQ(D3DMULTISAMPLE_4_SAMPLES, buffer->m_eMultiSampleType);
    EXPECT_EQ(buffer, d3d->m_pActiveDepthBuffer.get());
    EXPECT_TRUE(Errors().empty());
}

// A swap chain whose Present answers what the test wants: the proxy wraps only the device, so a real swap chain's
// Present cannot be made to fail.
struct ScriptedSwapChain : IDirect3DSwapChain9
{
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
    STDMETHOD(GetBackBuffer)(UINT, D3DBACKBUFFER_TYPE, IDirect3DSurface9**) override { return E_NOTIMPL; }
    STDMETHOD(GetRasterStatus)(D3DRASTER_STATUS*) override { return E_NOTIMPL; }
    STDMETHOD(GetDisplayMode)(D3DDISPLAYMODE*) override { return E_NOTIMPL; }
    STDMETHOD(GetDevice)(IDirect3DDevice9** out) override { return *out = nullptr, E_NOTIMPL; }
    STDMETHOD(GetPresentParameters)(D3DPRESENT_PARAMETERS*) override { return E_NOTIMPL; }
};

// "<width>x<height> <samples>" of a surface.
std::string Described(IDirect3DSurface9* s)
{
    D3DSURFACE_DESC d = {};
    if (!s || FAILED(s->GetDesc(&d)))
        return "no surface";
    return std::to_string(d.Width) + "x" + std::to_string(d.Height) + " " + std::to_string(d.MultiSampleType);
}

TEST_F(TargetsTest, FurtherWindowsHaveTheirOwnSwapChainRebuiltAtTheirReset)
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
    // Binding it asks for a depth buffer of its size: the main window's is larger and would do, so it is shared.
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    mark = kvproxy::Here();
    rs->_setRenderTarget(w);
    EXPECT_EQ(rs->m_pMainWindow->m_pDepthBuffer.get(), w->m_pDepthBuffer.get());
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::CreateDepthStencilSurface));

    // Its reset rebuilds the swap chain at once at the new size, the old depth buffer gone with the old chain; the next
    // binding runs in full.
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

    // A refused swap chain gives no window, and says so.
    HWND refused = MakeWindow(64, 64);
    kvproxy::FailMethod(Method::CreateAdditionalSwapChain, D3DERR_OUTOFVIDEOMEMORY, 1);
    EXPECT_EQ(nullptr, rs->CreateRenderWindow(refused, 64, 64, false).get());
    EXPECT_EQ((std::vector<std::string>{"Failed to m_pD3D9Device->CreateAdditionalSwapChain"}), Errors());
    EXPECT_EQ(nullptr, kv::CRenderWindow::FindByHandle(refused)) << "the refused window is gone";
}

TEST_F(TargetsTest, MainWindowPresentsThroughTheDeviceAndOnlyItResetsALostDevice)
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
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::Reset));
    // Resettable: a further window asks too, but never resets.
    kvproxy::AllowDeviceReset();
    scripted.presentResult = D3DERR_DEVICELOST;
    mark = kvproxy::Here();
    w2->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::TestCooperativeLevel, {D3DERR_DEVICENOTRESET}));
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::Reset));
    // The main window goes for the reset at once (which takes every window's surfaces: the real chain goes back first).
    w2->m_pSwapChain = real;
    mark = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::TestCooperativeLevel, {D3DERR_DEVICENOTRESET}));
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::Reset));
}

TEST_F(TargetsTest, DepthBuffersCountTheirBytesFitWhatTheyCoverAndTheirFormatIsSearchedOnce)
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

    // Compatible only with targets it covers, of the depth format found for their colour format and of the same
    // multisampling; the pool id plays no part.
    kv::CD3D9DepthBuffer buffer(7, nullptr, D3DFMT_D24S8, 64, 64, D3DMULTISAMPLE_NONE, 0, true);
    kv::CD3D9DepthBuffer ms(1, nullptr, D3DFMT_D24S8, 64, 64, D3DMULTISAMPLE_4_SAMPLES, 0, true);
    kv::CD3D9DepthBuffer d16(1, nullptr, D3DFMT_D16, 64, 64, D3DMULTISAMPLE_NONE, 0, true);
    ref_ptr<SurfaceTarget> same = MakeTarget(64, 64), multi = MakeTarget(32, 32, D3DMULTISAMPLE_4_SAMPLES);
    ref_ptr<SurfaceTarget> none(new SurfaceTarget({}, 16, 16));
    const auto fit = [](kv::CD3D9DepthBuffer& b, kv::CRenderTarget* t) { return b.isCompatible(t) ? '1' : '0'; };
    EXPECT_EQ("110000001", std::string({fit(buffer, same.get()), fit(buffer, MakeTarget(32, 64).get()),
                                        fit(buffer, MakeTarget(65, 64).get()), fit(buffer, MakeTarget(64, 65).get()),
                                        fit(buffer, multi.get()), fit(buffer, none.get()), fit(d16, same.get()),
                                        fit(ms, same.get()), fit(ms, multi.get())}));

    // The search stops at the first candidate the adapter has and that matches the colour format, asked in the order
    // D24S8, D24FS8, D24X4S4, D24X8, D15S1, D16, D32.
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
