// Viewport, scissor, clear and _setRenderTarget: the colour and depth surfaces
// that reach the device, the calls the shadows spare, the words of a failure.
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
    EXPECT_TRUE(Errors().empty());
    // A null scissor rectangle goes back to the viewport's.
    RECT r = {0, 0, 1, 1};
    mark = kvproxy::Here();
    rs->SetScissorRect(&r);
    rs->SetScissorRect(nullptr);
    EXPECT_EQ(Join(Call("SetScissorRect", 0, 0, 1, 1), Call("SetScissorRect", 10, 20, 110, 70)), Trace(mark));
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

    // Refused calls are logged and the depth flag is still set.
    for (Method m : {Method::SetViewport, Method::SetScissorRect, Method::Clear})
        kvproxy::FailMethod(m, D3DERR_INVALIDCALL);
    rs->m_bDepthBufferCleared = false;
    rs->_setViewport(vp, 2, &kOrange, 1.0f, 0);
    EXPECT_TRUE(rs->_isDepthBufferCleared());
    EXPECT_EQ((std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to set viewport"),
                                        VerifyLine(D3DERR_INVALIDCALL),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to ClearFrameBuffer")}),
              Errors());
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
    // Back to the window empties slot 1; the window's own depth surface replaces
    // the one made for the other targets.
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

    // A depth texture takes the place of a depth buffer only without multisampling:
    // with four samples a multisampled buffer is made.
    ref_ptr<kv::CTexture> depthTexture(new StandInTexture);
    ref_ptr<SurfaceTarget> plain = MakeTarget(64, 64), multi = MakeTarget(64, 64, D3DMULTISAMPLE_4_SAMPLES);
    plain->SetDepthTexture(depthTexture.get());
    multi->SetDepthTexture(depthTexture.get());
    rs->_setRenderTarget(rs->m_pMainWindow.get());
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
    EXPECT_TRUE(Errors().empty());
}

} // namespace
