// Depth buffers: the bytes they count, the surfaces they own, when they fit a
// target, and the search for a depth format with its cache.
#include "TargetsFixture.h"

using kvproxy::Method;

namespace
{

// The CheckDeviceFormat questions since mark, as (usage, resource type, format).
std::vector<std::vector<uint64_t>> FormatQueries(kvproxy::Mark mark)
{
    std::vector<std::vector<uint64_t>> out;
    for (const KvProxyCall& c : kvproxy::CallsSince(mark, Method::D3D9_CheckDeviceFormat))
        out.push_back({c.args[3], c.args[4], c.args[5]});
    return out;
}

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

std::vector<uint64_t> DepthQuery(D3DFORMAT f)
{
    return {D3DUSAGE_DEPTHSTENCIL, D3DRTYPE_SURFACE, static_cast<uint64_t>(f)};
}

} // namespace

TEST_F(TargetsTest, DepthBufferCountsItsBytesWhileItLives)
{
    const uint32_t before = kv::g_nDepthBufferSizeInBytes;
    {
        ref_ptr<kv::CD3D9DepthBuffer> b(new kv::CD3D9DepthBuffer(1, nullptr, D3DFMT_D24S8, 1024, 768,
                                                                      D3DMULTISAMPLE_NONE, 0, false));
        EXPECT_EQ(before + 3145728u, kv::g_nDepthBufferSizeInBytes);
        EXPECT_EQ(32, b->getBitDepth());
        EXPECT_TRUE(b->hasStencil());
        EXPECT_EQ(1, b->getPoolId());
    }
    EXPECT_EQ(before, kv::g_nDepthBufferSizeInBytes);
    {
        ref_ptr<kv::CD3D9DepthBuffer> b(new kv::CD3D9DepthBuffer(1, nullptr, D3DFMT_X8R8G8B8, 1024, 768,
                                                                      D3DMULTISAMPLE_NONE, 0, false));
        EXPECT_EQ(before, kv::g_nDepthBufferSizeInBytes);
        EXPECT_EQ(0, b->getBitDepth());
        EXPECT_FALSE(b->hasStencil());
    }
    EXPECT_EQ(before, kv::g_nDepthBufferSizeInBytes);
}

TEST_F(TargetsTest, BitDepthAndStencilByFormat)
{
    struct Row
    {
        D3DFORMAT format;
        unsigned short bits;
        bool stencil;
    } rows[] = {
        {D3DFMT_D16_LOCKABLE, 16, false}, {D3DFMT_D32, 32, false},          {D3DFMT_D15S1, 16, true},
        {D3DFMT_D24S8, 32, true},         {D3DFMT_D24X8, 32, false},        {D3DFMT_D24X4S4, 32, true},
        {D3DFMT_D16, 16, false},          {D3DFMT_D32F_LOCKABLE, 32, false}, {D3DFMT_D24FS8, 32, true},
        {D3DFMT_A8R8G8B8, 0, false},      {D3DFMT_UNKNOWN, 0, false},
    };
    for (const Row& r : rows)
    {
        ref_ptr<kv::CD3D9DepthBuffer> b(
            new kv::CD3D9DepthBuffer(1, nullptr, r.format, 10, 8, D3DMULTISAMPLE_NONE, 0, false));
        EXPECT_EQ(r.bits, b->getBitDepth()) << "format " << r.format;
        EXPECT_EQ(r.stencil, b->hasStencil()) << "format " << r.format;
    }
}

TEST_F(TargetsTest, OnlyABufferThatIsNotManualReleasesItsSurface)
{
    for (bool manual : {true, false})
    {
        IDirect3DSurface9* s = nullptr;
        ASSERT_EQ(D3D_OK, device->CreateDepthStencilSurface(32, 32, D3DFMT_D24S8, D3DMULTISAMPLE_NONE, 0, TRUE, &s,
                                                            nullptr));
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
    ref_ptr<SurfaceTarget> smaller = MakeTarget(32, 64);
    ref_ptr<SurfaceTarget> wider = MakeTarget(65, 64);
    ref_ptr<SurfaceTarget> higher = MakeTarget(64, 65);
    ref_ptr<SurfaceTarget> multi = MakeTarget(32, 32, 1, D3DMULTISAMPLE_4_SAMPLES);
    ref_ptr<SurfaceTarget> empty(new SurfaceTarget({}, 16, 16));
    EXPECT_TRUE(buffer.isCompatible(same.get()));
    EXPECT_TRUE(buffer.isCompatible(smaller.get()));
    EXPECT_FALSE(buffer.isCompatible(wider.get()));
    EXPECT_FALSE(buffer.isCompatible(higher.get()));
    EXPECT_FALSE(buffer.isCompatible(multi.get()));
    EXPECT_FALSE(buffer.isCompatible(empty.get()));

    // Another depth format than the one found for the colour format: no.
    kv::CD3D9DepthBuffer d16(1, nullptr, D3DFMT_D16, 64, 64, D3DMULTISAMPLE_NONE, 0, true);
    EXPECT_FALSE(d16.isCompatible(same.get()));

    // A four-sample buffer does not serve a plain target, but does a four-sample one.
    kv::CD3D9DepthBuffer ms(1, nullptr, D3DFMT_D24S8, 64, 64, D3DMULTISAMPLE_4_SAMPLES, 0, true);
    EXPECT_FALSE(ms.isCompatible(same.get()));
    EXPECT_TRUE(ms.isCompatible(multi.get()));
    // The pool id plays no part.
    kv::CD3D9DepthBuffer pool7(7, nullptr, D3DFMT_D24S8, 64, 64, D3DMULTISAMPLE_NONE, 0, true);
    EXPECT_TRUE(pool7.isCompatible(same.get()));
}

TEST_F(TargetsTest, FormatSearchStopsAtTheFirstFittingCandidateAndIsKept)
{
    d3d->m_mapDepthStencilFormats.clear();
    for (D3DFORMAT f : {D3DFMT_D24S8, D3DFMT_D24FS8, D3DFMT_D24X4S4, D3DFMT_D24X8, D3DFMT_D15S1})
        kvproxy::FailCheckDeviceFormat(f, D3DUSAGE_DEPTHSTENCIL);

    kvproxy::Mark mark = kvproxy::Here();
    EXPECT_EQ(D3DFMT_D16, d3d->_getDepthStencilFormatFor(D3DFMT_A8R8G8B8));
    EXPECT_EQ((std::vector<std::vector<uint64_t>>{DepthQuery(D3DFMT_D24S8), DepthQuery(D3DFMT_D24FS8),
                                                  DepthQuery(D3DFMT_D24X4S4), DepthQuery(D3DFMT_D24X8),
                                                  DepthQuery(D3DFMT_D15S1), DepthQuery(D3DFMT_D16)}),
              FormatQueries(mark));
    std::vector<KvProxyCall> matches = kvproxy::CallsSince(mark, Method::D3D9_CheckDepthStencilMatch);
    ASSERT_EQ(1u, matches.size());
    EXPECT_EQ(static_cast<uint64_t>(d3d->m_adapterFormat), matches[0].args[2]);
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_A8R8G8B8), matches[0].args[3]);
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_D16), matches[0].args[4]);

    // Kept: a depth buffer for a target of that colour format asks nothing more.
    kvproxy::ClearFaults();
    ref_ptr<SurfaceTarget> t(new SurfaceTarget({MakeSurface(32, 32, D3DMULTISAMPLE_NONE, D3DFMT_A8R8G8B8)},
                                                   32, 32));
    mark = kvproxy::Here();
    ref_ptr<kv::CDepthBuffer> b = rs->_createDepthBufferFor(t.get());
    ASSERT_NE(nullptr, b.get());
    EXPECT_TRUE(FormatQueries(mark).empty());
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::D3D9_CheckDepthStencilMatch));
    std::vector<KvProxyCall> made = kvproxy::CallsSince(mark, Method::CreateDepthStencilSurface);
    ASSERT_EQ(1u, made.size());
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_D16), made[0].args[2]);
    EXPECT_EQ(16, b->getBitDepth());
    EXPECT_EQ(b.get(), t->m_pDepthBuffer.get());
}

TEST_F(TargetsTest, ARefusedMatchMovesTheSearchOn)
{
    d3d->m_mapDepthStencilFormats.clear();
    kvproxy::FailMethod(Method::D3D9_CheckDepthStencilMatch, D3DERR_NOTAVAILABLE, 1);
    kvproxy::Mark mark = kvproxy::Here();
    const D3DFORMAT f = d3d->_getDepthStencilFormatFor(D3DFMT_X8R8G8B8);
    EXPECT_NE(D3DFMT_D24S8, f);
    EXPECT_NE(D3DFMT_UNKNOWN, f);
    std::vector<KvProxyCall> matches = kvproxy::CallsSince(mark, Method::D3D9_CheckDepthStencilMatch);
    ASSERT_GE(matches.size(), 2u);
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_D24S8), matches[0].args[4]);
    EXPECT_EQ(static_cast<uint64_t>(f), matches.back().args[4]);
}

TEST_F(TargetsTest, NoFittingFormatIsKeptAsNone)
{
    d3d->m_mapDepthStencilFormats.clear();
    for (D3DFORMAT f : {D3DFMT_D24S8, D3DFMT_D24FS8, D3DFMT_D24X4S4, D3DFMT_D24X8, D3DFMT_D15S1, D3DFMT_D16,
                        D3DFMT_D32})
        kvproxy::FailCheckDeviceFormat(f, D3DUSAGE_DEPTHSTENCIL);
    kvproxy::Mark mark = kvproxy::Here();
    EXPECT_EQ(D3DFMT_UNKNOWN, d3d->_getDepthStencilFormatFor(D3DFMT_R5G6B5));
    EXPECT_EQ(7u, FormatQueries(mark).size());
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::D3D9_CheckDepthStencilMatch));
    mark = kvproxy::Here();
    EXPECT_EQ(D3DFMT_UNKNOWN, d3d->_getDepthStencilFormatFor(D3DFMT_R5G6B5));
    EXPECT_TRUE(FormatQueries(mark).empty());
}

TEST_F(TargetsTest, RefusedDepthSurfaceLeavesTheTargetWithoutDepth)
{
    // Larger than the window, so the window's buffer cannot serve.
    ref_ptr<SurfaceTarget> t = MakeTarget(kWidth + 16, kHeight);
    kvproxy::FailMethod(Method::CreateDepthStencilSurface, D3DERR_OUTOFVIDEOMEMORY, 1);
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setRenderTarget(t.get());
    EXPECT_EQ((std::vector<std::string>{"Error CreateDepthStencilSurface, D3D9RenderSystem::_createDepthBufferFor"}),
              Errors());
    EXPECT_EQ(nullptr, t->m_pDepthBuffer.get());
    EXPECT_EQ(nullptr, d3d->m_pActiveDepthBuffer.get());
    std::vector<KvProxyCall> depth = kvproxy::CallsSince(mark, Method::SetDepthStencilSurface);
    ASSERT_EQ(1u, depth.size());
    EXPECT_EQ(0u, depth[0].args[0]);
    // The error names its source as a path from the plug-in's folder.
    std::vector<kv::LogLine> lines = kv::GetLogLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ("D3D9RenderSystem/D3D9RenderSystem", lines.back().file);
}

TEST_F(TargetsTest, NoDepthBufferForATargetWithoutSurface)
{
    ref_ptr<SurfaceTarget> empty(new SurfaceTarget({}, 64, 64));
    kvproxy::Mark mark = kvproxy::Here();
    EXPECT_EQ(nullptr, rs->_createDepthBufferFor(empty.get()).get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_TRUE(kv::GetLogLines().empty());
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

TEST_F(TargetsTest, ASurfaceThatCannotBeDescribedGetsNoDepthBuffer)
{
    MuteSurface mute;
    ref_ptr<SurfaceTarget> t(new SurfaceTarget({&mute}, 64, 64));
    kvproxy::Mark mark = kvproxy::Here();
    EXPECT_EQ(nullptr, rs->_createDepthBufferFor(t.get()).get());
    EXPECT_EQ((std::vector<std::string>{
                  "Failed to retrieve Surface Description from BackBuffer. D3D9RenderSystem::_createDepthBufferFor"}),
              Errors());
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::CreateDepthStencilSurface));
    EXPECT_EQ(nullptr, t->m_pDepthBuffer.get());

    // Nor does the window's buffer fit it, and that is no error.
    kv::ClearLog();
    EXPECT_FALSE(rs->m_pMainWindow->m_pDepthBuffer->isCompatible(t.get()));
    EXPECT_TRUE(kv::GetLogLines().empty());
    EXPECT_EQ(2, mute.descs);
    t->m_surfaces.clear(); // not a real surface: nothing to release
}
