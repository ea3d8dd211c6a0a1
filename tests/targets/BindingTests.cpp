// Viewport, scissor and clear, and _setRenderTarget: which colour and depth
// surfaces reach the device, in which order, with which values, which calls
// the shadows spare, the words of a failure, and the pixels a clear leaves.
#include "TargetsFixture.h"

using kvproxy::Method;
using namespace kvtest;

namespace
{

const kv::CColour kOrange(1.0f, 0.5f, 0.0f, 1.0f);

IDirect3DSurface9* DepthSurfaceOf(kv::CRenderTarget* t)
{
    kv::CD3D9DepthBuffer* b = dynamic_cast<kv::CD3D9DepthBuffer*>(t->m_pDepthBuffer.get());
    return b ? b->getSurface() : nullptr;
}

TEST_F(TargetsTest, ViewportBindsOnceAndSetsViewportAndScissorEveryTime)
{
    kv::CViewport vp(rs->m_pMainWindow.get(), 10, 20, 100, 50);
    rs->SetScissorTestEnabled(true);
    const kvproxy::Mark from = kvproxy::Here();
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);
    // The first call binds the window's back buffer at 0 and empties the other
    // slots, then its depth surface; the target comes before the viewport, since
    // binding slot 0 resets the device's viewport. The second spares the binding;
    // neither touches the scissor test nor clears.
    std::string expected = Join(Call("SetRenderState", D3DRS_SRGBWRITEENABLE, 0),
                                Call("SetRenderTarget", 0, P(MainWindow()->m_pBackBuffer)));
    for (uint64_t i = 1; i < d3d->m_d3dcaps.NumSimultaneousRTs; ++i)
        expected = Join(expected, Call("SetRenderTarget", i, 0));
    const std::string viewport =
        Join(Call("SetViewport", 10, 20, 100, 50, Bits(0.0f), Bits(1.0f)), Call("SetScissorRect", 10, 20, 110, 70));
    EXPECT_EQ(
        Join(expected, Call("SetDepthStencilSurface", P(DepthSurfaceOf(rs->m_pMainWindow.get()))), viewport, viewport),
        Trace(from));
    EXPECT_TRUE(rs->GetScissorTestEnabled());
    EXPECT_EQ(1u, Timer().m_nRenderTargetChanges);
    EXPECT_EQ(rs->m_pMainWindow.get(), rs->_getRenderTarget());
    EXPECT_TRUE(Errors().empty());

    // The scissor shadow holds the viewport's rectangle: one value differing is
    // enough to reach the device; null goes back to the viewport's, once.
    RECT r = {10, 20, 110, 70}, wider = {10, 20, 111, 70};
    mark = kvproxy::Here();
    rs->SetScissorRect(&r);
    rs->SetScissorRect(&wider);
    rs->SetScissorRect(&wider);
    rs->SetScissorRect(nullptr);
    rs->SetScissorRect(nullptr);
    EXPECT_EQ(Join(Call("SetScissorRect", 10, 20, 111, 70), Call("SetScissorRect", 10, 20, 110, 70)), Trace(mark));
    RECT out = {};
    rs->GetScissorRect(&out);
    EXPECT_EQ(Call("", 10, 20, 110, 70), Call("", out.left, out.top, out.right, out.bottom));

    // A viewport whose target has died is kept, without a device call, and a null
    // scissor rectangle then has nothing to go back to.
    {
        ref_ptr<SurfaceTarget> target = MakeTarget(64, 64);
        vp = kv::CViewport(target.get(), 1, 2, 30, 40);
    }
    mark = kvproxy::Here();
    rs->_setViewport(vp, 7, &kOrange, 1.0f, 0);
    rs->SetScissorRect(nullptr);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(30, rs->_getViewport().m_nActWidth);
    EXPECT_EQ(nullptr, rs->_getViewport().getTarget());
}

TEST_F(TargetsTest, ClearFlagsFollowTheBuffersWordAndOnlyDepthMarksItCleared)
{
    // The whole target, no rectangles; colour 1, depth 2, stencil 4; other bits ignored.
    const struct
    {
        unsigned buffers;
        DWORD flags;
        bool depthCleared;
    } cases[] = {{7, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL, true},
                 {6, D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL, true},
                 {5, D3DCLEAR_TARGET | D3DCLEAR_STENCIL, false},
                 {1, D3DCLEAR_TARGET, false},
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
    kv::CViewport vp(rs->m_pMainWindow.get(), 0, 0, kWidth, kHeight);
    mark = kvproxy::Here();
    rs->_setViewport(vp, 0, &kOrange, 1.0f, 0);
    rs->_setViewport(vp, 1, nullptr, 1.0f, 0);
    EXPECT_EQ(Call("Clear", 0, 0, D3DCLEAR_TARGET, 0), Trace(mark, {Method::Clear}, 4));
    EXPECT_TRUE(Errors().empty());

    // Refused calls are logged and the depth flag is still set; the scissor shadow
    // holds the viewport's rectangle all the same.
    for (Method m : {Method::SetViewport, Method::SetScissorRect, Method::Clear})
        kvproxy::FailMethod(m, D3DERR_INVALIDCALL);
    rs->m_bDepthBufferCleared = false;
    rs->_setViewport(vp, 2, &kOrange, 1.0f, 0);
    EXPECT_TRUE(rs->_isDepthBufferCleared());
    EXPECT_EQ((std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to set viewport"),
                                        VerifyLine(D3DERR_INVALIDCALL),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to ClearFrameBuffer")}),
              Errors());
    mark = kvproxy::Here();
    RECT same = {0, 0, LONG(kWidth), LONG(kHeight)};
    rs->SetScissorRect(&same);
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::SetScissorRect));
}

TEST_F(TargetsTest, ColourSurfacesMoveDownAndTheShadowsSpareTheRest)
{
    IDirect3DSurface9* p = MakeSurface(64, 64);
    IDirect3DSurface9* q = MakeSurface(64, 64);
    IDirect3DSurface9* r = MakeSurface(64, 64);
    q->AddRef(); // both targets hold it
    ref_ptr<SurfaceTarget> first(new SurfaceTarget({p, q}, 64, 64)), second(new SurfaceTarget({q, r}, 64, 64));
    rs->_setRenderTarget(first.get());
    const int queries = first->m_nAttributeQueries;
    // A surface that moves down leaves its higher slot first; the same target
    // again spares the device and asks for no surfaces.
    mark = kvproxy::Here();
    rs->_setRenderTarget(first.get());
    rs->_setRenderTarget(second.get());
    EXPECT_EQ(queries, first->m_nAttributeQueries);
    EXPECT_EQ(Join(Call("SetRenderTarget", 1, 0), Call("SetRenderTarget", 0, P(q)), Call("SetRenderTarget", 1, P(r))),
              Trace(mark, {Method::SetRenderTarget}));
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::SetRenderTarget, {D3D_OK, D3D_OK, D3D_OK}));
    // Back to the window empties slot 1; the window's own depth surface replaces
    // the one made for the other targets.
    mark = kvproxy::Here();
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_EQ(Join(Call("SetRenderTarget", 0, P(MainWindow()->m_pBackBuffer)), Call("SetRenderTarget", 1, 0),
                   Call("SetDepthStencilSurface", P(DepthSurfaceOf(rs->m_pMainWindow.get())))),
              Trace(mark, {Method::SetRenderTarget, Method::SetDepthStencilSurface}));
    EXPECT_EQ(3u, Timer().m_nRenderTargetChanges);

    // A target without a surface becomes current but leaves the device as it is.
    ref_ptr<SurfaceTarget> empty(new SurfaceTarget({}, 64, 64));
    mark = kvproxy::Here();
    rs->_setRenderTarget(empty.get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(empty.get(), rs->_getRenderTarget());
    EXPECT_EQ(rs->m_pMainWindow->m_pDepthBuffer.get(), d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ(MainWindow()->m_pBackBuffer, d3d->m_pCurrentRenderTargets[0]);
    // A dead current target makes the next binding a change, though the surface
    // shadow spares the call.
    IDirect3DSurface9* s = MakeSurface(64, 64);
    s->AddRef();
    {
        ref_ptr<SurfaceTarget> a(new SurfaceTarget({s}, 64, 64));
        rs->_setRenderTarget(a.get());
    }
    EXPECT_EQ(nullptr, rs->_getRenderTarget());
    ref_ptr<SurfaceTarget> b(new SurfaceTarget({s}, 64, 64));
    mark = kvproxy::Here();
    rs->_setRenderTarget(b.get());
    EXPECT_EQ(6u, Timer().m_nRenderTargetChanges);
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::SetRenderTarget));
    EXPECT_EQ(b.get(), rs->_getRenderTarget());
    EXPECT_TRUE(Errors().empty());

    // Refused bindings are logged, and the shadows keep the new surfaces: another
    // target over the same surfaces finds them equal.
    rs->_setRenderTarget(first.get());
    kvproxy::FailMethod(Method::SetRenderTarget, D3DERR_INVALIDCALL, 1);
    kvproxy::FailMethod(Method::SetDepthStencilSurface, D3DERR_INVALIDCALL, 1);
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_EQ((std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to setRenderTarget!"),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to setDepthStencil")}),
              Errors());
    IDirect3DSurface9* bb = MainWindow()->m_pBackBuffer;
    bb->AddRef();
    ref_ptr<SurfaceTarget> same(new SurfaceTarget({bb}, kWidth, kHeight));
    mark = kvproxy::Here();
    rs->_setRenderTarget(same.get());
    EXPECT_TRUE(kvproxy::NoCallsOf(
        mark, {Method::SetRenderTarget, Method::SetDepthStencilSurface, Method::CreateDepthStencilSurface}));
    EXPECT_EQ(rs->m_pMainWindow->m_pDepthBuffer.get(), same->m_pDepthBuffer.get());
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
    EXPECT_TRUE(d3d->m_pActiveDepthBuffer.get() == nullptr && d3d->m_pCurrentDepthStencil == nullptr);
    EXPECT_EQ(nullptr, flat->m_pDepthBuffer.get());

    // Equal targets in a row, or smaller ones, share one buffer of 128 by 64,
    // D24S8, no multisampling, discard; one pixel wider than it needs a new one.
    ref_ptr<SurfaceTarget> a = MakeTarget(128, 64), b = MakeTarget(128, 64), smaller = MakeTarget(100, 64);
    ref_ptr<SurfaceTarget> wider = MakeTarget(129, 64);
    mark = kvproxy::Here();
    rs->_setRenderTarget(a.get());
    ASSERT_NE(nullptr, a->m_pDepthBuffer.get());
    EXPECT_EQ(Join(Call("CreateDepthStencilSurface", 128, 64, D3DFMT_D24S8, 0, 0, 1),
                   Call("SetDepthStencilSurface", P(DepthSurfaceOf(a.get())))),
              Trace(mark, {Method::CreateDepthStencilSurface, Method::SetDepthStencilSurface}, 6));
    for (SurfaceTarget* t : {b.get(), smaller.get()})
    {
        mark = kvproxy::Here();
        rs->_setRenderTarget(t);
        EXPECT_TRUE(kvproxy::NoCallsOf(mark, {Method::CreateDepthStencilSurface, Method::SetDepthStencilSurface}));
        EXPECT_EQ(a->m_pDepthBuffer.get(), t->m_pDepthBuffer.get());
    }
    mark = kvproxy::Here();
    rs->_setRenderTarget(wider.get());
    EXPECT_EQ(
        Join(Call("CreateDepthStencilSurface", 129), Call("SetDepthStencilSurface", P(DepthSurfaceOf(wider.get())))),
        Trace(mark, {Method::CreateDepthStencilSurface, Method::SetDepthStencilSurface}, 1));
    EXPECT_EQ(wider->m_pDepthBuffer.get(), d3d->m_pActiveDepthBuffer.get());

    // A depth texture takes the place of a depth buffer only without multisampling:
    // with four samples a multisampled buffer is made.
    ref_ptr<kv::CTexture> depthTexture(new StandInTexture);
    ref_ptr<SurfaceTarget> plain = MakeTarget(64, 64), multi = MakeTarget(64, 64, 1, D3DMULTISAMPLE_4_SAMPLES);
    plain->SetDepthTexture(depthTexture.get());
    multi->SetDepthTexture(depthTexture.get());
    mark = kvproxy::Here();
    rs->_setRenderTarget(plain.get());
    EXPECT_EQ(Call("SetDepthStencilSurface", 0),
              Trace(mark, {Method::CreateDepthStencilSurface, Method::SetDepthStencilSurface}));
    EXPECT_TRUE(d3d->m_pActiveDepthBuffer.get() == nullptr && plain->m_pDepthBuffer.get() == nullptr);
    mark = kvproxy::Here();
    rs->_setRenderTarget(multi.get());
    kv::CD3D9DepthBuffer* buffer = dynamic_cast<kv::CD3D9DepthBuffer*>(multi->m_pDepthBuffer.get());
    ASSERT_NE(nullptr, buffer);
    EXPECT_EQ(Join(Call("CreateDepthStencilSurface", 64, 64, D3DFMT_D24S8, D3DMULTISAMPLE_4_SAMPLES),
                   Call("SetDepthStencilSurface", P(buffer->getSurface()))),
              Trace(mark, {Method::CreateDepthStencilSurface, Method::SetDepthStencilSurface}, 4));
    EXPECT_EQ(D3DMULTISAMPLE_4_SAMPLES, buffer->m_eMultiSampleType);
    EXPECT_EQ(buffer, d3d->m_pActiveDepthBuffer.get());
    // A window keeps one reference to its depth texture, set twice or not.
    kv::CRenderWindow* w = rs->m_pMainWindow.get();
    const int held = depthTexture->GetRefCount();
    EXPECT_TRUE(w->SetDepthTexture(depthTexture.get()) && w->SetDepthTexture(depthTexture.get()));
    EXPECT_EQ(held + 1, depthTexture->GetRefCount());
    EXPECT_TRUE(w->SetDepthTexture(nullptr));
    EXPECT_EQ(held, depthTexture->GetRefCount());

    // sRGB writing follows the target, only with the capability, on every binding.
    rs->m_pMainWindow->SetHwGamma(true);
    rs->m_pCapabilities->SetSRGBReadWrite(true);
    mark = kvproxy::Here();
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    rs->m_pCapabilities->SetSRGBReadWrite(false);
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_EQ(States(D3DRS_SRGBWRITEENABLE, 1, D3DRS_SRGBWRITEENABLE, 0), RenderStates(mark));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, ScissorAndViewportLimitAClear)
{
    const kv::CColour blue(0.0f, 0.0f, 1.0f, 1.0f), white(1.0f, 1.0f, 1.0f, 1.0f), black(0.0f, 0.0f, 0.0f, 1.0f);
    ASSERT_TRUE(rs->_beginFrame());
    rs->_setViewport(kv::CViewport(rs->m_pMainWindow.get(), 0, 0, kWidth, kHeight), 1, &blue, 1.0f, 0);
    // Scissor test on, a rectangle inside the viewport: only it turns white. A
    // smaller viewport narrows both the clear and the scissor to itself.
    rs->SetScissorTestEnabled(true);
    RECT r = {40, 30, 100, 90};
    rs->SetScissorRect(&r);
    rs->ClearFrameBuffer(1, &white, 1.0f, 0);
    rs->_setViewport(kv::CViewport(rs->m_pMainWindow.get(), 200, 150, 50, 40), 1, &black, 1.0f, 0);
    rs->_endFrame();
    rs->SetScissorTestEnabled(false);
    std::vector<uint32_t> pixels = ReadPixels(MainWindow()->m_pBackBuffer);
    ASSERT_EQ(static_cast<size_t>(kWidth) * kHeight, pixels.size());
    size_t wrong = 0;
    for (unsigned y = 0; y < kHeight; ++y)
        for (unsigned x = 0; x < kWidth; ++x)
        {
            const bool scissor = x >= 40 && x < 100 && y >= 30 && y < 90;
            const bool viewport = x >= 200 && x < 250 && y >= 150 && y < 190;
            const uint32_t want = scissor ? 0xFFFFFFu : viewport ? 0x000000u : 0x0000FFu;
            const uint32_t got = pixels[static_cast<size_t>(y) * kWidth + x] & 0x00FFFFFFu;
            if (got != want && wrong++ < 5)
                ADD_FAILURE() << "pixel " << x << "," << y << " is " << std::hex << got << ", wanted " << want;
        }
    EXPECT_EQ(0u, wrong);
    EXPECT_TRUE(Errors().empty());
}

} // namespace
