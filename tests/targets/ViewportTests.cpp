// Viewport, scissor and clear: what each reaches the device with, what the
// shadows spare, and the words of a failure.
#include "TargetsFixture.h"

#include "engine/Timer.h"

using kvproxy::Method;

namespace
{

const kv::CColour kOrange(1.0f, 0.5f, 0.0f, 1.0f);

std::vector<uint64_t> Args(const KvProxyCall& c, unsigned n)
{
    return std::vector<uint64_t>(c.args, c.args + n);
}

RECT Rect(LONG l, LONG t, LONG r, LONG b)
{
    RECT rect = {l, t, r, b};
    return rect;
}

} // namespace

TEST_F(TargetsTest, ViewportTwiceSetsViewportAndScissorTwiceButBindsOnce)
{
    kv::CViewport vp(rs->m_pMainWindow.get(), 10, 20, 100, 50);
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);
    kvproxy::Mark second = kvproxy::Here();
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);

    std::vector<KvProxyCall> viewports = kvproxy::CallsSince(mark, Method::SetViewport);
    ASSERT_EQ(2u, viewports.size());
    for (const KvProxyCall& c : viewports)
    {
        EXPECT_EQ((std::vector<uint64_t>{10, 20, 100, 50}), Args(c, 4));
        EXPECT_EQ(0.0f, kvproxy::ArgFloat(c, 4));
        EXPECT_EQ(1.0f, kvproxy::ArgFloat(c, 5));
    }
    std::vector<KvProxyCall> scissors = kvproxy::CallsSince(mark, Method::SetScissorRect);
    ASSERT_EQ(2u, scissors.size());
    for (const KvProxyCall& c : scissors)
        EXPECT_EQ((std::vector<uint64_t>{10, 20, 110, 70}), Args(c, 4));

    // The first call binds the window's back buffer at 0 and empties the
    // other slots; the target comes before the viewport, since binding slot 0
    // resets the device's viewport.
    std::vector<KvProxyCall> binds = kvproxy::CallsBetween(mark, second);
    std::vector<KvProxyCall> targets;
    for (const KvProxyCall& c : binds)
        if (kvproxy::MethodOf(c) == Method::SetRenderTarget)
            targets.push_back(c);
    ASSERT_EQ(d3d->m_d3dcaps.NumSimultaneousRTs, targets.size());
    EXPECT_EQ(0u, targets[0].args[0]);
    EXPECT_EQ(kvproxy::PtrArg(MainWindow()->m_pBackBuffer), targets[0].args[1]);
    for (size_t i = 1; i < targets.size(); ++i)
        EXPECT_EQ(0u, targets[i].args[1]) << "slot " << targets[i].args[0];
    EXPECT_TRUE(kvproxy::CalledInOrder(mark, {Method::SetRenderTarget, Method::SetDepthStencilSurface,
                                              Method::SetViewport, Method::SetScissorRect}));
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::Clear));

    EXPECT_TRUE(kvproxy::NoCallsOf(second, {Method::SetRenderTarget, Method::SetDepthStencilSurface, Method::Clear,
                                            Method::SetRenderState}));
    EXPECT_EQ(1u, kv::GetTimer()->m_nRenderTargetChanges);

    RECT r;
    rs->GetScissorRect(&r);
    EXPECT_EQ(10, r.left);
    EXPECT_EQ(20, r.top);
    EXPECT_EQ(110, r.right);
    EXPECT_EQ(70, r.bottom);
    EXPECT_EQ(rs->m_pMainWindow.get(), rs->_getRenderTarget());
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, ViewportWithClearPassesBuffersColourDepthAndStencil)
{
    kv::CViewport vp(rs->m_pMainWindow.get(), 0, 0, kWidth, kHeight);
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setViewport(vp, 7, &kOrange, 0.25f, 3);
    std::vector<KvProxyCall> clears = kvproxy::CallsSince(mark, Method::Clear);
    ASSERT_EQ(1u, clears.size());
    EXPECT_EQ(0u, clears[0].args[0]); // the whole target, no rectangles
    EXPECT_EQ(0u, clears[0].args[1]);
    EXPECT_EQ(static_cast<uint64_t>(D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL), clears[0].args[2]);
    EXPECT_EQ(0xFFFF7F00u, clears[0].args[3]);
    EXPECT_EQ(0.25f, kvproxy::ArgFloat(clears[0], 4));
    EXPECT_EQ(3u, clears[0].args[5]);
    EXPECT_EQ(D3D_OK, clears[0].result);
    EXPECT_TRUE(rs->_isDepthBufferCleared());
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, ClearFlagsFollowTheBuffersWordAndOnlyDepthMarksTheDepthCleared)
{
    kv::CViewport vp(rs->m_pMainWindow.get(), 0, 0, kWidth, kHeight);
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);

    struct Case
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
    for (const Case& c : cases)
    {
        rs->m_bDepthBufferCleared = false;
        kvproxy::Mark mark = kvproxy::Here();
        rs->ClearFrameBuffer(c.buffers, &kOrange, 1.0f, 0);
        std::vector<KvProxyCall> clears = kvproxy::CallsSince(mark, Method::Clear);
        ASSERT_EQ(1u, clears.size()) << "buffers " << c.buffers;
        EXPECT_EQ(static_cast<uint64_t>(c.flags), clears[0].args[2]) << "buffers " << c.buffers;
        EXPECT_EQ(c.depthCleared, rs->_isDepthBufferCleared()) << "buffers " << c.buffers;
    }
    // Only the flags-0 clear may be refused; it says so in the usual form.
    for (const std::string& e : Errors())
        EXPECT_EQ(0u, e.rfind("D3D9Verify:", 0)) << e;
}

TEST_F(TargetsTest, RefusedCallsAreLoggedAndTheDepthFlagStillSet)
{
    kv::CViewport vp(rs->m_pMainWindow.get(), 0, 0, kWidth, kHeight);
    kvproxy::FailMethod(Method::SetViewport, D3DERR_INVALIDCALL);
    kvproxy::FailMethod(Method::SetScissorRect, D3DERR_INVALIDCALL);
    kvproxy::FailMethod(Method::Clear, D3DERR_INVALIDCALL);
    rs->m_bDepthBufferCleared = false;
    rs->_setViewport(vp, 2, &kOrange, 1.0f, 0);
    EXPECT_TRUE(rs->_isDepthBufferCleared());
    EXPECT_EQ((std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to set viewport"),
                                        VerifyLine(D3DERR_INVALIDCALL),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to ClearFrameBuffer")}),
              Errors());
    // The scissor shadow holds the viewport's rectangle all the same.
    kvproxy::Mark mark = kvproxy::Here();
    RECT same = Rect(0, 0, kWidth, kHeight);
    rs->SetScissorRect(&same);
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::SetScissorRect));
}

TEST_F(TargetsTest, ViewportOfADeadTargetIsKeptWithoutADeviceCall)
{
    kv::CViewport vp;
    {
        ref_ptr<SurfaceTarget> target = MakeTarget(64, 64);
        vp = kv::CViewport(target.get(), 1, 2, 30, 40);
    }
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setViewport(vp, 7, &kOrange, 1.0f, 0);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(30, rs->_getViewport().m_nActWidth);
    EXPECT_EQ(nullptr, rs->_getViewport().getTarget());
    // Nothing to go back to: a null scissor rectangle leaves everything alone.
    rs->SetScissorRect(nullptr);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, ScissorRectangleIsShadowedAndNullGoesBackToTheViewport)
{
    kv::CViewport vp(rs->m_pMainWindow.get(), 8, 16, 64, 32);
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);

    RECT r = Rect(1, 2, 30, 40);
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetScissorRect(&r);
    rs->SetScissorRect(&r);
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark, Method::SetScissorRect);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ((std::vector<uint64_t>{1, 2, 30, 40}), Args(calls[0], 4));

    // One value differing is enough to reach the device.
    RECT wider = Rect(1, 2, 31, 40);
    mark = kvproxy::Here();
    rs->SetScissorRect(&wider);
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::SetScissorRect));

    // A viewport in between puts the shadow back to itself ...
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);
    mark = kvproxy::Here();
    rs->SetScissorRect(&wider);
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::SetScissorRect));

    // ... and null goes back to the viewport's rectangle, once.
    mark = kvproxy::Here();
    rs->SetScissorRect(nullptr);
    rs->SetScissorRect(nullptr);
    calls = kvproxy::CallsSince(mark, Method::SetScissorRect);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ((std::vector<uint64_t>{8, 16, 72, 48}), Args(calls[0], 4));
    RECT out = {};
    rs->GetScissorRect(&out);
    EXPECT_EQ(72, out.right);
    EXPECT_EQ(48, out.bottom);
}

TEST_F(TargetsTest, ViewportLeavesTheScissorTestAsItWas)
{
    kv::CViewport vp(rs->m_pMainWindow.get(), 0, 0, 50, 50);
    rs->SetScissorTestEnabled(true);
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setViewport(vp, 0, nullptr, 1.0f, 0);
    for (const KvProxyCall& c : kvproxy::CallsSince(mark, Method::SetRenderState))
        EXPECT_NE(static_cast<uint64_t>(D3DRS_SCISSORTESTENABLE), c.args[0]);
    EXPECT_TRUE(rs->GetScissorTestEnabled());
}
