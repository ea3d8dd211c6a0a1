// Viewport, scissor and clear, and _setRenderTarget: which colour and depth
// surfaces reach the device, in which order, with which values, which calls
// the shadows spare, the words of a failure, and the pixels a clear leaves.
#include "TargetsFixture.h"

using kvproxy::Method;
using namespace kvtest;

namespace
{

const kv::CColour kOrange(1.0f, 0.5f, 0.0f, 1.0f);

std::vector<uint64_t> Args(const KvProxyCall& c, unsigned n)
{
    return std::vector<uint64_t>(c.args, c.args + n);
}

std::vector<uint64_t> DepthBindings(kvproxy::Mark from)
{
    std::vector<uint64_t> out;
    for (const KvProxyCall& c : kvproxy::CallsSince(from, Method::SetDepthStencilSurface))
        out.push_back(c.args[0]);
    return out;
}

IDirect3DSurface9* DepthSurfaceOf(kv::CRenderTarget* t)
{
    kv::CD3D9DepthBuffer* b = dynamic_cast<kv::CD3D9DepthBuffer*>(t->m_pDepthBuffer.get());
    return b ? b->getSurface() : nullptr;
}

// Pixels whose colour, the undefined top byte aside, is not `rgb`.
size_t CountNot(const std::vector<uint32_t>& pixels, uint32_t rgb)
{
    size_t n = 0;
    for (uint32_t p : pixels)
        n += (p & 0x00FFFFFFu) != rgb;
    return n;
}

} // namespace

TEST_F(TargetsTest, ViewportTwiceSetsViewportAndScissorTwiceButBindsOnce)
{
    kv::CViewport vp(rs->m_pMainWindow.get(), 10, 20, 100, 50);
    rs->SetScissorTestEnabled(true);
    kvproxy::Mark from = kvproxy::Here();
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);
    kvproxy::Mark second = kvproxy::Here();
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);

    std::vector<KvProxyCall> viewports = kvproxy::CallsSince(from, Method::SetViewport);
    ASSERT_EQ(2u, viewports.size());
    for (const KvProxyCall& c : viewports)
    {
        EXPECT_EQ((std::vector<uint64_t>{10, 20, 100, 50}), Args(c, 4));
        EXPECT_EQ(0.0f, kvproxy::ArgFloat(c, 4));
        EXPECT_EQ(1.0f, kvproxy::ArgFloat(c, 5));
    }
    EXPECT_EQ((ArgList{{10, 20, 110, 70}, {10, 20, 110, 70}}), ArgsOf(from, Method::SetScissorRect, 4));
    // The first call binds the window's back buffer at 0 and empties the other
    // slots; the target comes before the viewport, since binding slot 0 resets
    // the device's viewport.
    ArgList want = {{0, P(MainWindow()->m_pBackBuffer)}};
    for (uint64_t i = 1; i < d3d->m_d3dcaps.NumSimultaneousRTs; ++i)
        want.push_back({i, 0});
    EXPECT_EQ(want, ArgsOf(from, Method::SetRenderTarget, 2));
    EXPECT_TRUE(kvproxy::CalledInOrder(
        from, {Method::SetRenderTarget, Method::SetDepthStencilSurface, Method::SetViewport, Method::SetScissorRect}));
    EXPECT_TRUE(kvproxy::NoCallsOf(from, {Method::Clear}));
    // The second spares the binding, and neither touches the scissor test.
    EXPECT_TRUE(
        kvproxy::NoCallsOf(second, {Method::SetRenderTarget, Method::SetDepthStencilSurface, Method::SetRenderState}));
    for (const KvProxyCall& c : kvproxy::CallsSince(from, Method::SetRenderState))
        EXPECT_NE(static_cast<uint64_t>(D3DRS_SCISSORTESTENABLE), c.args[0]);
    EXPECT_TRUE(rs->GetScissorTestEnabled());
    EXPECT_EQ(1u, Timer().m_nRenderTargetChanges);
    RECT r;
    rs->GetScissorRect(&r);
    EXPECT_EQ((std::vector<LONG>{10, 20, 110, 70}), (std::vector<LONG>{r.left, r.top, r.right, r.bottom}));
    EXPECT_EQ(rs->m_pMainWindow.get(), rs->_getRenderTarget());
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, ClearFlagsFollowTheBuffersWordAndOnlyDepthMarksTheDepthCleared)
{
    kv::CViewport vp(rs->m_pMainWindow.get(), 0, 0, kWidth, kHeight);
    kvproxy::Mark from = kvproxy::Here();
    rs->_setViewport(vp, 7, &kOrange, 0.25f, 3);
    std::vector<KvProxyCall> clears = kvproxy::CallsSince(from, Method::Clear);
    ASSERT_EQ(1u, clears.size());
    // The whole target, no rectangles.
    EXPECT_EQ((std::vector<uint64_t>{0, 0, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL, 0xFFFF7F00u}),
              Args(clears[0], 4));
    EXPECT_EQ(0.25f, kvproxy::ArgFloat(clears[0], 4));
    EXPECT_EQ(3u, clears[0].args[5]);
    EXPECT_EQ(D3D_OK, clears[0].result);
    EXPECT_TRUE(rs->_isDepthBufferCleared());
    EXPECT_TRUE(Errors().empty());

    const struct
    {
        unsigned buffers;
        DWORD flags;
        bool depthCleared;
    } cases[] = {
        {6, D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL, true},
        {5, D3DCLEAR_TARGET | D3DCLEAR_STENCIL, false},
        {1, D3DCLEAR_TARGET, false},
        {8, 0, false},
        {0xFFFFFFF9u, D3DCLEAR_TARGET, false},
    };
    for (const auto& c : cases)
    {
        rs->m_bDepthBufferCleared = false;
        from = kvproxy::Here();
        rs->ClearFrameBuffer(c.buffers, &kOrange, 1.0f, 0);
        std::vector<KvProxyCall> clear = kvproxy::CallsSince(from, Method::Clear);
        ASSERT_EQ(1u, clear.size()) << "buffers " << c.buffers;
        EXPECT_EQ(static_cast<uint64_t>(c.flags), clear[0].args[2]) << "buffers " << c.buffers;
        EXPECT_EQ(c.depthCleared, rs->_isDepthBufferCleared()) << "buffers " << c.buffers;
    }
    // Only the flags-0 clear may be refused; it says so in the usual form.
    for (const std::string& e : Errors())
        EXPECT_EQ(0u, e.rfind("D3D9Verify:", 0)) << e;
}

TEST_F(TargetsTest, RefusedCallsAreLoggedAndTheDepthFlagStillSet)
{
    kv::CViewport vp(rs->m_pMainWindow.get(), 0, 0, kWidth, kHeight);
    for (Method m : {Method::SetViewport, Method::SetScissorRect, Method::Clear})
        kvproxy::FailMethod(m, D3DERR_INVALIDCALL);
    rs->m_bDepthBufferCleared = false;
    rs->_setViewport(vp, 2, &kOrange, 1.0f, 0);
    EXPECT_TRUE(rs->_isDepthBufferCleared());
    EXPECT_EQ((std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to set viewport"),
                                        VerifyLine(D3DERR_INVALIDCALL),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to ClearFrameBuffer")}),
              Errors());
    // The scissor shadow holds the viewport's rectangle all the same.
    kvproxy::Mark from = kvproxy::Here();
    RECT same = {0, 0, LONG(kWidth), LONG(kHeight)};
    rs->SetScissorRect(&same);
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::SetScissorRect));
}

TEST_F(TargetsTest, ViewportOfADeadTargetIsKeptWithoutADeviceCall)
{
    kv::CViewport vp;
    {
        ref_ptr<SurfaceTarget> target = MakeTarget(64, 64);
        vp = kv::CViewport(target.get(), 1, 2, 30, 40);
    }
    kvproxy::Mark from = kvproxy::Here();
    rs->_setViewport(vp, 7, &kOrange, 1.0f, 0);
    EXPECT_EQ(30, rs->_getViewport().m_nActWidth);
    EXPECT_EQ(nullptr, rs->_getViewport().getTarget());
    // Nothing to go back to: a null scissor rectangle leaves everything alone.
    rs->SetScissorRect(nullptr);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, ScissorRectangleIsShadowedAndNullGoesBackToTheViewport)
{
    kv::CViewport vp(rs->m_pMainWindow.get(), 8, 16, 64, 32);
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);
    RECT r = {1, 2, 30, 40};
    kvproxy::Mark from = kvproxy::Here();
    rs->SetScissorRect(&r);
    rs->SetScissorRect(&r);
    // One value differing is enough to reach the device.
    RECT wider = {1, 2, 31, 40};
    rs->SetScissorRect(&wider);
    EXPECT_EQ((ArgList{{1, 2, 30, 40}, {1, 2, 31, 40}}), ArgsOf(from, Method::SetScissorRect, 4));
    // A viewport in between puts the shadow back to itself ...
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);
    from = kvproxy::Here();
    rs->SetScissorRect(&wider);
    EXPECT_EQ(1u, kvproxy::CountSince(from, Method::SetScissorRect));
    // ... and null goes back to the viewport's rectangle, once.
    from = kvproxy::Here();
    rs->SetScissorRect(nullptr);
    rs->SetScissorRect(nullptr);
    EXPECT_EQ((ArgList{{8, 16, 72, 48}}), ArgsOf(from, Method::SetScissorRect, 4));
    RECT out = {};
    rs->GetScissorRect(&out);
    EXPECT_EQ(72, out.right);
    EXPECT_EQ(48, out.bottom);
}

// ---- binding targets

TEST_F(TargetsTest, SurfaceMovingDownLeavesItsHigherSlotFirst)
{
    IDirect3DSurface9* p = MakeSurface(64, 64);
    IDirect3DSurface9* q = MakeSurface(64, 64);
    IDirect3DSurface9* r = MakeSurface(64, 64);
    q->AddRef(); // both targets hold it
    ref_ptr<SurfaceTarget> first(new SurfaceTarget({p, q}, 64, 64));
    ref_ptr<SurfaceTarget> second(new SurfaceTarget({q, r}, 64, 64));
    kvproxy::Mark from = kvproxy::Here();
    rs->_setRenderTarget(first.get());
    ArgList want = {{0, P(p)}, {1, P(q)}};
    for (uint64_t i = 2; i < d3d->m_d3dcaps.NumSimultaneousRTs; ++i)
        want.push_back({i, 0});
    EXPECT_EQ(want, ArgsOf(from, Method::SetRenderTarget, 2));
    from = kvproxy::Here();
    rs->_setRenderTarget(second.get());
    EXPECT_EQ((ArgList{{1, 0}, {0, P(q)}, {1, P(r)}}), ArgsOf(from, Method::SetRenderTarget, 2));
    EXPECT_TRUE(kvproxy::ResultsAre(from, Method::SetRenderTarget, {D3D_OK, D3D_OK, D3D_OK}));

    // Back to the window empties slot 1; the window's own depth surface
    // replaces the one made for the other targets.
    from = kvproxy::Here();
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_EQ((ArgList{{0, P(MainWindow()->m_pBackBuffer)}, {1, 0}}), ArgsOf(from, Method::SetRenderTarget, 2));
    EXPECT_EQ((std::vector<uint64_t>{P(DepthSurfaceOf(rs->m_pMainWindow.get()))}), DepthBindings(from));
    EXPECT_EQ(rs->m_pMainWindow->m_pDepthBuffer.get(), d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ(3u, Timer().m_nRenderTargetChanges);
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, TargetWithoutDepthPoolUnbindsTheDepthSurfaceOnce)
{
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    ASSERT_NE(nullptr, d3d->m_pActiveDepthBuffer.get());
    ref_ptr<SurfaceTarget> flat = MakeTarget(64, 64);
    ref_ptr<SurfaceTarget> flat2 = MakeTarget(64, 64);
    flat->m_nDepthPoolId = flat2->m_nDepthPoolId = 0;
    kvproxy::Mark from = kvproxy::Here();
    rs->_setRenderTarget(flat.get());
    EXPECT_EQ((std::vector<uint64_t>{0}), DepthBindings(from));
    EXPECT_EQ(nullptr, d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ(nullptr, d3d->m_pCurrentDepthStencil);
    EXPECT_EQ(nullptr, flat->m_pDepthBuffer.get());
    from = kvproxy::Here();
    rs->_setRenderTarget(flat2.get());
    EXPECT_TRUE(kvproxy::NoCallsOf(from, {Method::SetDepthStencilSurface, Method::CreateDepthStencilSurface}));
    // The window still holds its buffer and binds it again.
    from = kvproxy::Here();
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_EQ((std::vector<uint64_t>{P(DepthSurfaceOf(rs->m_pMainWindow.get()))}), DepthBindings(from));
}

TEST_F(TargetsTest, EqualTargetsInARowShareOneDepthBuffer)
{
    ref_ptr<SurfaceTarget> a = MakeTarget(128, 64);
    ref_ptr<SurfaceTarget> b = MakeTarget(128, 64);
    ref_ptr<SurfaceTarget> smaller = MakeTarget(100, 64);
    ref_ptr<SurfaceTarget> wider = MakeTarget(129, 64);
    kvproxy::Mark from = kvproxy::Here();
    rs->_setRenderTarget(a.get());
    std::vector<KvProxyCall> made = kvproxy::CallsSince(from, Method::CreateDepthStencilSurface);
    ASSERT_EQ(1u, made.size());
    // 128 by 64, D24S8, no multisampling, discard.
    EXPECT_EQ((std::vector<uint64_t>{128, 64, D3DFMT_D24S8, 0}), Args(made[0], 4));
    EXPECT_EQ(1u, made[0].args[5]);
    ASSERT_NE(nullptr, a->m_pDepthBuffer.get());
    EXPECT_EQ(P(DepthSurfaceOf(a.get())), made[0].out);
    EXPECT_EQ((std::vector<uint64_t>{made[0].out}), DepthBindings(from));
    for (SurfaceTarget* t : {b.get(), smaller.get()})
    {
        from = kvproxy::Here();
        rs->_setRenderTarget(t);
        EXPECT_TRUE(kvproxy::NoCallsOf(from, {Method::CreateDepthStencilSurface, Method::SetDepthStencilSurface}));
        EXPECT_EQ(a->m_pDepthBuffer.get(), t->m_pDepthBuffer.get());
    }
    // One pixel wider than the buffer: a new one.
    from = kvproxy::Here();
    rs->_setRenderTarget(wider.get());
    EXPECT_EQ(1u, kvproxy::CountSince(from, Method::CreateDepthStencilSurface));
    EXPECT_NE(a->m_pDepthBuffer.get(), wider->m_pDepthBuffer.get());
    EXPECT_EQ((std::vector<uint64_t>{P(DepthSurfaceOf(wider.get()))}), DepthBindings(from));
    EXPECT_EQ(wider->m_pDepthBuffer.get(), d3d->m_pActiveDepthBuffer.get());
}

TEST_F(TargetsTest, TheSameOrAnEmptyTargetSparesTheDevice)
{
    ref_ptr<SurfaceTarget> a = MakeTarget(64, 64, 2);
    rs->_setRenderTarget(a.get());
    const int queries = a->m_nAttributeQueries;
    kvproxy::Mark from = kvproxy::Here();
    rs->_setRenderTarget(a.get());
    rs->_setRenderTarget(a.get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    EXPECT_EQ(1u, Timer().m_nRenderTargetChanges);
    EXPECT_EQ(queries, a->m_nAttributeQueries) << "the surfaces are asked for only when the target changes";

    // A target without surface becomes current but leaves the device.
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    ref_ptr<SurfaceTarget> empty(new SurfaceTarget({}, 64, 64));
    from = kvproxy::Here();
    rs->_setRenderTarget(empty.get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    EXPECT_EQ(empty.get(), rs->_getRenderTarget());
    EXPECT_EQ(rs->m_pMainWindow->m_pDepthBuffer.get(), d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ(MainWindow()->m_pBackBuffer, d3d->m_pCurrentRenderTargets[0]);
    EXPECT_EQ(3u, Timer().m_nRenderTargetChanges);
}

TEST_F(TargetsTest, DeadCurrentTargetMakesTheNextBindingAChange)
{
    IDirect3DSurface9* s = MakeSurface(64, 64);
    s->AddRef();
    {
        ref_ptr<SurfaceTarget> a(new SurfaceTarget({s}, 64, 64));
        rs->_setRenderTarget(a.get());
    }
    EXPECT_EQ(nullptr, rs->_getRenderTarget());
    // Another target over the very same surface: a change is counted, the
    // surface shadow spares the call.
    ref_ptr<SurfaceTarget> b(new SurfaceTarget({s}, 64, 64));
    kvproxy::Mark from = kvproxy::Here();
    rs->_setRenderTarget(b.get());
    EXPECT_EQ(2u, Timer().m_nRenderTargetChanges);
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::SetRenderTarget));
    EXPECT_EQ(b.get(), rs->_getRenderTarget());
}

TEST_F(TargetsTest, SRGBWriteFollowsTheTargetOnlyWithTheCapability)
{
    rs->m_pCapabilities->SetSRGBReadWrite(false);
    rs->m_pMainWindow->SetHwGamma(true);
    kvproxy::Mark from = kvproxy::Here();
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_TRUE(kvproxy::RenderStatesSet(from, {{D3DRS_SRGBWRITEENABLE, 0}}));
    // The state is asked on every call, also for the same target.
    rs->m_pCapabilities->SetSRGBReadWrite(true);
    from = kvproxy::Here();
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_TRUE(kvproxy::RenderStatesSet(from, {{D3DRS_SRGBWRITEENABLE, 1}}));
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::SetRenderTarget));
}

TEST_F(TargetsTest, DepthTextureTakesThePlaceOfADepthBufferOnlyWithoutMultisampling)
{
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    ASSERT_NE(nullptr, d3d->m_pActiveDepthBuffer.get());
    ref_ptr<kv::CTexture> depthTexture(new BareTexture);
    ref_ptr<SurfaceTarget> plain = MakeTarget(64, 64);
    plain->SetDepthTexture(depthTexture.get());
    kvproxy::Mark from = kvproxy::Here();
    rs->_setRenderTarget(plain.get());
    EXPECT_EQ(nullptr, d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::CreateDepthStencilSurface));
    EXPECT_EQ(nullptr, plain->m_pDepthBuffer.get());

    // Four samples: the texture cannot serve, a multisampled depth buffer is made.
    ref_ptr<SurfaceTarget> multi = MakeTarget(64, 64, 1, D3DMULTISAMPLE_4_SAMPLES);
    multi->SetDepthTexture(depthTexture.get());
    from = kvproxy::Here();
    rs->_setRenderTarget(multi.get());
    std::vector<KvProxyCall> made = kvproxy::CallsSince(from, Method::CreateDepthStencilSurface);
    ASSERT_EQ(1u, made.size());
    EXPECT_EQ(static_cast<uint64_t>(D3DMULTISAMPLE_4_SAMPLES), made[0].args[3]);
    kv::CD3D9DepthBuffer* buffer = dynamic_cast<kv::CD3D9DepthBuffer*>(multi->m_pDepthBuffer.get());
    ASSERT_NE(nullptr, buffer);
    EXPECT_EQ(D3DMULTISAMPLE_4_SAMPLES, buffer->m_eMultiSampleType);
    EXPECT_EQ(buffer, d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ((std::vector<uint64_t>{P(buffer->getSurface())}), DepthBindings(from));
    EXPECT_TRUE(Errors().empty());

    // A window keeps one reference to its depth texture, set twice or not.
    kv::CRenderWindow* w = rs->m_pMainWindow.get();
    const int held = depthTexture->GetRefCount();
    EXPECT_TRUE(w->SetDepthTexture(depthTexture.get()));
    EXPECT_TRUE(w->SetDepthTexture(depthTexture.get()));
    EXPECT_EQ(held + 1, depthTexture->GetRefCount());
    EXPECT_TRUE(w->SetDepthTexture(nullptr));
    EXPECT_EQ(held, depthTexture->GetRefCount());
}

TEST_F(TargetsTest, RefusedBindingsAreLoggedAndTheShadowsKeepTheNewSurfaces)
{
    kvproxy::FailMethod(Method::SetRenderTarget, D3DERR_INVALIDCALL, 1);
    kvproxy::FailMethod(Method::SetDepthStencilSurface, D3DERR_INVALIDCALL, 1);
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_EQ((std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to setRenderTarget!"),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to setDepthStencil")}),
              Errors());
    EXPECT_EQ(MainWindow()->m_pBackBuffer, d3d->m_pCurrentRenderTargets[0]);
    EXPECT_EQ(DepthSurfaceOf(rs->m_pMainWindow.get()), d3d->m_pCurrentDepthStencil);
    // Another target over the same surfaces finds the shadows equal.
    IDirect3DSurface9* bb = MainWindow()->m_pBackBuffer;
    bb->AddRef();
    ref_ptr<SurfaceTarget> same(new SurfaceTarget({bb}, kWidth, kHeight));
    kvproxy::Mark from = kvproxy::Here();
    rs->_setRenderTarget(same.get());
    EXPECT_TRUE(kvproxy::NoCallsOf(
        from, {Method::SetRenderTarget, Method::SetDepthStencilSurface, Method::CreateDepthStencilSurface}));
    EXPECT_EQ(rs->m_pMainWindow->m_pDepthBuffer.get(), same->m_pDepthBuffer.get());
}

// ---- pixels

TEST_F(TargetsTest, TwoWindowsEachKeepTheirOwnClearColour)
{
    HWND second = MakeWindow(160, 120);
    ShowWindow(second, SW_SHOWNA);
    ref_ptr<kv::CRenderWindow> other = rs->CreateRenderWindow(second, 160, 120, false);
    kv::CD3D9RenderWindow* w2 = dynamic_cast<kv::CD3D9RenderWindow*>(other.get());
    ASSERT_NE(nullptr, w2);
    const kv::CColour teal(0.0f, 0.5f, 0.75f, 1.0f); // packs to 0x007FBF
    const kv::CColour green(0.0f, 1.0f, 0.0f, 1.0f);
    for (int round = 0; round < 2; ++round)
    {
        // After a discarding present the back buffer's content is not promised:
        // the second round clears again without presenting and reads that.
        ASSERT_TRUE(rs->_beginFrame());
        rs->_setViewport(kv::CViewport(rs->m_pMainWindow.get(), 0.0f, 0.0f, 1.0f, 1.0f), 7, &teal, 1.0f, 0);
        rs->_setViewport(kv::CViewport(other.get(), 0.0f, 0.0f, 1.0f, 1.0f), 7, &green, 1.0f, 0);
        rs->_endFrame();
        unsigned w = 0, h = 0;
        std::vector<uint32_t> main = ReadPixels(MainWindow()->m_pBackBuffer, &w, &h);
        std::vector<uint32_t> further = ReadPixels(w2->m_pBackBuffer);
        EXPECT_EQ((std::vector<unsigned>{kWidth, kHeight}), (std::vector<unsigned>{w, h}));
        ASSERT_EQ(160u * 120u, further.size());
        if (round == 0)
        {
            rs->m_pMainWindow->swapBuffers();
            other->swapBuffers();
            continue;
        }
        EXPECT_EQ(0u, CountNot(main, 0x007FBFu)) << std::hex << "first pixel " << main[0];
        EXPECT_EQ(0u, CountNot(further, 0x00FF00u));
    }
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, ScissorAndViewportLimitAClear)
{
    const kv::CColour blue(0.0f, 0.0f, 1.0f, 1.0f);
    const kv::CColour white(1.0f, 1.0f, 1.0f, 1.0f);
    const kv::CColour black(0.0f, 0.0f, 0.0f, 1.0f);
    ASSERT_TRUE(rs->_beginFrame());
    rs->_setViewport(kv::CViewport(rs->m_pMainWindow.get(), 0, 0, kWidth, kHeight), 1, &blue, 1.0f, 0);
    // Scissor test on, a rectangle inside the viewport: only it turns white.
    rs->SetScissorTestEnabled(true);
    RECT r = {40, 30, 100, 90};
    rs->SetScissorRect(&r);
    rs->ClearFrameBuffer(1, &white, 1.0f, 0);
    // A smaller viewport narrows both the clear and the scissor to itself.
    rs->_setViewport(kv::CViewport(rs->m_pMainWindow.get(), 200, 150, 50, 40), 1, &black, 1.0f, 0);
    rs->_endFrame();
    rs->SetScissorTestEnabled(false);

    std::vector<uint32_t> pixels = ReadPixels(MainWindow()->m_pBackBuffer);
    ASSERT_EQ(static_cast<size_t>(kWidth) * kHeight, pixels.size());
    size_t wrong = 0;
    for (unsigned y = 0; y < kHeight; ++y)
        for (unsigned x = 0; x < kWidth; ++x)
        {
            uint32_t want = 0x0000FFu;
            if (x >= 40 && x < 100 && y >= 30 && y < 90)
                want = 0xFFFFFFu;
            else if (x >= 200 && x < 250 && y >= 150 && y < 190)
                want = 0x000000u;
            const uint32_t got = pixels[static_cast<size_t>(y) * kWidth + x] & 0x00FFFFFFu;
            if (got != want && wrong++ < 5)
                ADD_FAILURE() << "pixel " << x << "," << y << " is " << std::hex << got << ", wanted " << want;
        }
    EXPECT_EQ(0u, wrong);
    EXPECT_TRUE(Errors().empty());
}
