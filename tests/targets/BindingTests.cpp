// _setRenderTarget: which colour and depth surfaces reach the device, in which
// order, and which calls the shadows spare.
#include "TargetsFixture.h"

#include "engine/Texture.h"
#include "engine/Timer.h"

using kvproxy::Method;

namespace
{

// An engine texture with nothing native behind it, to stand as a depth texture.
class BareTexture : public kv::CTexture
{
public:
    void freeInternalResources() override {}
    void _autogenerateMipmaps() override {}
    unsigned char getFSAA() override { return 0; }
    kv::CHardwarePixelBuffer* getBuffer(unsigned, unsigned) override { return nullptr; }
    bool SaveToFile(const char*) override { return false; }
    bool SaveToMemory(void**, unsigned*) override { return false; }
    void copyToTexture(kv::CTexture*) override {}
    int TextureReserved7(int, int, int, int, int, int, int) override { return 0; }
    bool TextureReserved3(int, int, int) override { return false; }
    bool createInternalResources() override { return false; }
};

// (index, surface) of each SetRenderTarget since mark.
std::vector<std::pair<uint64_t, uint64_t>> Bindings(kvproxy::Mark mark)
{
    std::vector<std::pair<uint64_t, uint64_t>> out;
    for (const KvProxyCall& c : kvproxy::CallsSince(mark, Method::SetRenderTarget))
        out.emplace_back(c.args[0], c.args[1]);
    return out;
}

std::vector<uint64_t> DepthBindings(kvproxy::Mark mark)
{
    std::vector<uint64_t> out;
    for (const KvProxyCall& c : kvproxy::CallsSince(mark, Method::SetDepthStencilSurface))
        out.push_back(c.args[0]);
    return out;
}

uint64_t P(const void* p)
{
    return kvproxy::PtrArg(p);
}

IDirect3DSurface9* DepthSurfaceOf(kv::CRenderTarget* t)
{
    kv::CD3D9DepthBuffer* b = dynamic_cast<kv::CD3D9DepthBuffer*>(t->m_pDepthBuffer.get());
    return b ? b->getSurface() : nullptr;
}

} // namespace

TEST_F(TargetsTest, SurfaceMovingDownLeavesItsHigherSlotFirst)
{
    IDirect3DSurface9* p = MakeSurface(64, 64);
    IDirect3DSurface9* q = MakeSurface(64, 64);
    IDirect3DSurface9* r = MakeSurface(64, 64);
    q->AddRef(); // both targets hold it
    ref_ptr<SurfaceTarget> first(new SurfaceTarget({p, q}, 64, 64));
    ref_ptr<SurfaceTarget> second(new SurfaceTarget({q, r}, 64, 64));

    kvproxy::Mark mark = kvproxy::Here();
    rs->_setRenderTarget(first.get());
    std::vector<std::pair<uint64_t, uint64_t>> want = {{0, P(p)}, {1, P(q)}};
    for (unsigned i = 2; i < d3d->m_d3dcaps.NumSimultaneousRTs; ++i)
        want.emplace_back(i, 0);
    EXPECT_EQ(want, Bindings(mark));

    mark = kvproxy::Here();
    rs->_setRenderTarget(second.get());
    EXPECT_EQ((std::vector<std::pair<uint64_t, uint64_t>>{{1, 0}, {0, P(q)}, {1, P(r)}}), Bindings(mark));
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::SetRenderTarget, {D3D_OK, D3D_OK, D3D_OK}));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, FromTwoSurfacesToTheWindowEmptiesSlotOne)
{
    ref_ptr<SurfaceTarget> mrt = MakeTarget(kWidth, kHeight, 2);
    rs->_setRenderTarget(mrt.get());
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_EQ((std::vector<std::pair<uint64_t, uint64_t>>{{0, P(MainWindow()->m_pBackBuffer)}, {1, 0}}),
              Bindings(mark));
    // The window's own depth surface replaces the one made for the other target.
    EXPECT_EQ((std::vector<uint64_t>{P(DepthSurfaceOf(rs->m_pMainWindow.get()))}), DepthBindings(mark));
    EXPECT_EQ(rs->m_pMainWindow->m_pDepthBuffer.get(), d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ(2u, kv::GetTimer()->m_nRenderTargetChanges);
}

TEST_F(TargetsTest, TargetWithoutDepthPoolUnbindsTheDepthSurfaceOnce)
{
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    ASSERT_NE(nullptr, d3d->m_pActiveDepthBuffer.get());
    ref_ptr<SurfaceTarget> flat = MakeTarget(64, 64);
    flat->m_nDepthPoolId = 0;
    ref_ptr<SurfaceTarget> flat2 = MakeTarget(64, 64);
    flat2->m_nDepthPoolId = 0;

    kvproxy::Mark mark = kvproxy::Here();
    rs->_setRenderTarget(flat.get());
    EXPECT_EQ((std::vector<uint64_t>{0}), DepthBindings(mark));
    EXPECT_EQ(nullptr, d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ(nullptr, d3d->m_pCurrentDepthStencil);
    EXPECT_EQ(nullptr, flat->m_pDepthBuffer.get());

    mark = kvproxy::Here();
    rs->_setRenderTarget(flat2.get());
    EXPECT_TRUE(kvproxy::NoCallsOf(mark, {Method::SetDepthStencilSurface, Method::CreateDepthStencilSurface}));
    // The window still holds its buffer and binds it again.
    mark = kvproxy::Here();
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_EQ((std::vector<uint64_t>{P(DepthSurfaceOf(rs->m_pMainWindow.get()))}), DepthBindings(mark));
}

TEST_F(TargetsTest, EqualTargetsInARowShareOneDepthBuffer)
{
    ref_ptr<SurfaceTarget> a = MakeTarget(128, 64);
    ref_ptr<SurfaceTarget> b = MakeTarget(128, 64);
    ref_ptr<SurfaceTarget> smaller = MakeTarget(100, 64);
    ref_ptr<SurfaceTarget> wider = MakeTarget(129, 64);

    kvproxy::Mark mark = kvproxy::Here();
    rs->_setRenderTarget(a.get());
    std::vector<KvProxyCall> made = kvproxy::CallsSince(mark, Method::CreateDepthStencilSurface);
    ASSERT_EQ(1u, made.size());
    EXPECT_EQ(128u, made[0].args[0]);
    EXPECT_EQ(64u, made[0].args[1]);
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_D24S8), made[0].args[2]);
    EXPECT_EQ(0u, made[0].args[3]);
    EXPECT_EQ(1u, made[0].args[5]); // discard
    ASSERT_NE(nullptr, a->m_pDepthBuffer.get());
    EXPECT_EQ(P(DepthSurfaceOf(a.get())), made[0].out);
    EXPECT_EQ((std::vector<uint64_t>{made[0].out}), DepthBindings(mark));

    for (SurfaceTarget* t : {b.get(), smaller.get()})
    {
        mark = kvproxy::Here();
        rs->_setRenderTarget(t);
        EXPECT_TRUE(kvproxy::NoCallsOf(mark, {Method::CreateDepthStencilSurface, Method::SetDepthStencilSurface}));
        EXPECT_EQ(a->m_pDepthBuffer.get(), t->m_pDepthBuffer.get());
    }

    // One pixel wider than the buffer: a new one.
    mark = kvproxy::Here();
    rs->_setRenderTarget(wider.get());
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::CreateDepthStencilSurface));
    EXPECT_NE(a->m_pDepthBuffer.get(), wider->m_pDepthBuffer.get());
    EXPECT_EQ((std::vector<uint64_t>{P(DepthSurfaceOf(wider.get()))}), DepthBindings(mark));
    EXPECT_EQ(wider->m_pDepthBuffer.get(), d3d->m_pActiveDepthBuffer.get());
}

TEST_F(TargetsTest, SameTargetAgainMakesNoDeviceCall)
{
    ref_ptr<SurfaceTarget> a = MakeTarget(64, 64, 2);
    rs->_setRenderTarget(a.get());
    const int queries = a->m_nAttributeQueries;
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setRenderTarget(a.get());
    rs->_setRenderTarget(a.get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(1u, kv::GetTimer()->m_nRenderTargetChanges);
    EXPECT_EQ(queries, a->m_nAttributeQueries) << "the surfaces are asked for only when the target changes";
}

TEST_F(TargetsTest, TargetWithoutSurfaceBecomesCurrentButLeavesTheDevice)
{
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    ref_ptr<SurfaceTarget> empty(new SurfaceTarget({}, 64, 64));
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setRenderTarget(empty.get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(empty.get(), rs->_getRenderTarget());
    EXPECT_EQ(rs->m_pMainWindow->m_pDepthBuffer.get(), d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ(MainWindow()->m_pBackBuffer, d3d->m_pCurrentRenderTargets[0]);
    EXPECT_EQ(2u, kv::GetTimer()->m_nRenderTargetChanges);
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
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setRenderTarget(b.get());
    EXPECT_EQ(2u, kv::GetTimer()->m_nRenderTargetChanges);
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::SetRenderTarget));
    EXPECT_EQ(b.get(), rs->_getRenderTarget());
}

TEST_F(TargetsTest, SRGBWriteFollowsTheTargetOnlyWithTheCapability)
{
    rs->m_pCapabilities->SetSRGBReadWrite(false);
    rs->m_pMainWindow->SetHwGamma(true);
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_SRGBWRITEENABLE, 0}}));

    // The state is asked on every call, also for the same target.
    rs->m_pCapabilities->SetSRGBReadWrite(true);
    mark = kvproxy::Here();
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_SRGBWRITEENABLE, 1}}));
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::SetRenderTarget));
}

TEST_F(TargetsTest, DepthTextureTakesThePlaceOfADepthBufferOnlyWithoutMultisampling)
{
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    ASSERT_NE(nullptr, d3d->m_pActiveDepthBuffer.get());

    ref_ptr<kv::CTexture> depthTexture(new BareTexture);
    ref_ptr<SurfaceTarget> plain = MakeTarget(64, 64);
    plain->SetDepthTexture(depthTexture.get());
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setRenderTarget(plain.get());
    EXPECT_EQ(nullptr, d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::CreateDepthStencilSurface));
    EXPECT_EQ(nullptr, plain->m_pDepthBuffer.get());

    // Four samples: the texture cannot serve, a multisampled depth buffer is made.
    ref_ptr<SurfaceTarget> multi = MakeTarget(64, 64, 1, D3DMULTISAMPLE_4_SAMPLES);
    multi->SetDepthTexture(depthTexture.get());
    mark = kvproxy::Here();
    rs->_setRenderTarget(multi.get());
    std::vector<KvProxyCall> made = kvproxy::CallsSince(mark, Method::CreateDepthStencilSurface);
    ASSERT_EQ(1u, made.size());
    EXPECT_EQ(static_cast<uint64_t>(D3DMULTISAMPLE_4_SAMPLES), made[0].args[3]);
    kv::CD3D9DepthBuffer* buffer = dynamic_cast<kv::CD3D9DepthBuffer*>(multi->m_pDepthBuffer.get());
    ASSERT_NE(nullptr, buffer);
    EXPECT_EQ(D3DMULTISAMPLE_4_SAMPLES, buffer->m_eMultiSampleType);
    EXPECT_EQ(buffer, d3d->m_pActiveDepthBuffer.get());
    EXPECT_EQ((std::vector<uint64_t>{P(buffer->getSurface())}), DepthBindings(mark));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, RefusedBindingsAreLoggedAndTheShadowsKeepTheNewSurfaces)
{
    kvproxy::FailMethod(Method::SetRenderTarget, D3DERR_INVALIDCALL, 1);
    kvproxy::FailMethod(Method::SetDepthStencilSurface, D3DERR_INVALIDCALL, 1);
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    std::vector<std::string> errors = Errors();
    ASSERT_EQ(2u, errors.size());
    EXPECT_EQ(VerifyLine(D3DERR_INVALIDCALL, "Failed to setRenderTarget!"), errors[0]);
    EXPECT_EQ(VerifyLine(D3DERR_INVALIDCALL, "Failed to setDepthStencil"), errors[1]);
    EXPECT_EQ(MainWindow()->m_pBackBuffer, d3d->m_pCurrentRenderTargets[0]);
    EXPECT_EQ(DepthSurfaceOf(rs->m_pMainWindow.get()), d3d->m_pCurrentDepthStencil);

    // Another target over the same surfaces finds the shadows equal.
    IDirect3DSurface9* bb = MainWindow()->m_pBackBuffer;
    bb->AddRef();
    ref_ptr<SurfaceTarget> same(new SurfaceTarget({bb}, kWidth, kHeight));
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setRenderTarget(same.get());
    EXPECT_TRUE(kvproxy::NoCallsOf(mark, {Method::SetRenderTarget, Method::SetDepthStencilSurface,
                                          Method::CreateDepthStencilSurface}));
    EXPECT_EQ(rs->m_pMainWindow->m_pDepthBuffer.get(), same->m_pDepthBuffer.get());
}

TEST_F(TargetsTest, SetDepthTextureKeepsTheReferenceOfTheSameTexture)
{
    ref_ptr<kv::CTexture> t(new BareTexture);
    kv::CRenderWindow* w = rs->m_pMainWindow.get();
    EXPECT_TRUE(w->SetDepthTexture(t.get()));
    const int held = t->GetRefCount();
    EXPECT_EQ(2, held);
    EXPECT_TRUE(w->SetDepthTexture(t.get()));
    EXPECT_EQ(held, t->GetRefCount());
    EXPECT_TRUE(w->SetDepthTexture(nullptr));
    EXPECT_EQ(1, t->GetRefCount());
}
