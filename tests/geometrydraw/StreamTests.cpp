// Binding vertex streams, indices and declarations through their shadows: what
// reaches the device, what is spared, and what the binds count.
#include "DrawFixture.h"

using namespace kv;
using kvproxy::Method;

namespace
{

struct Streams : DrawTest
{
    void SetUp() override
    {
        DrawTest::SetUp();
        if (HasFatalFailure())
            return;
        declaration = ColourDeclaration();
        buffer = VertexBuffer(std::vector<ColourVertex>(4));
        data = VertexData(declaration.get(), buffer.get(), 0, 4);
    }

    ref_ptr<CVertexDeclaration> declaration;
    ref_ptr<CHardwareVertexBuffer> buffer;
    ref_ptr<CVertexData> data;
};

} // namespace

TEST_F(Streams, StreamTwoAndAboveIsRefused)
{
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetVertexBuffers(2, data.get(), 0);
    rs->SetVertexBuffers(7, data.get(), 0);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ((std::vector<std::string>{"Failed to CD3D9RenderSystem::SetVertexBuffers, Too many vertex buffers:2 > 2",
                                        "Failed to CD3D9RenderSystem::SetVertexBuffers, Too many vertex buffers:7 > 2"}),
              Errors());
    EXPECT_EQ(0u, Timer().m_nVBBinds);
    EXPECT_EQ(reinterpret_cast<IDirect3DVertexDeclaration9*>(static_cast<uintptr_t>(0xABCDEF)),
              d3d->m_pCurrentVertexDeclaration);
}

TEST_F(Streams, RepeatedBindMakesNoCall)
{
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetVertexBuffer(data.get());
    rs->SetVertexBuffers(0, data.get(), 0);
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark, Method::SetStreamSource);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(0u, calls[0].args[0]);
    EXPECT_EQ(kvproxy::PtrArg(D3D(buffer.get())->m_pD3D9VertexBuffer), calls[0].args[1]);
    EXPECT_EQ(0u, calls[0].args[2]);
    EXPECT_EQ(sizeof(ColourVertex), calls[0].args[3]);
    std::vector<KvProxyCall> decls = kvproxy::CallsSince(mark, Method::SetVertexDeclaration);
    ASSERT_EQ(1u, decls.size());
    EXPECT_EQ(kvproxy::PtrArg(Native(declaration.get())), decls[0].args[0]);
    EXPECT_EQ(1u, Timer().m_nVBBinds);
    EXPECT_EQ(4 * sizeof(ColourVertex), Timer().m_nVBBytes);

    // Another offset is another binding.
    rs->SetVertexBuffers(0, data.get(), 16);
    calls = kvproxy::CallsSince(mark, Method::SetStreamSource);
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(16u, calls[1].args[2]);
    EXPECT_EQ(2u, Timer().m_nVBBinds);
    EXPECT_EQ(8 * sizeof(ColourVertex), Timer().m_nVBBytes);
}

TEST_F(Streams, StrideAloneDoesNotRebind)
{
    rs->SetVertexBuffer(data.get());
    buffer->mElementSize = 32;
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetVertexBuffer(data.get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
}

TEST_F(Streams, SecondStreamBindsItsOwnBufferAndMayReplaceTheDeclaration)
{
    ref_ptr<CVertexDeclaration> instanceLayout = ColourDeclaration();
    ref_ptr<CHardwareVertexBuffer> instances = VertexBuffer(std::vector<ColourVertex>(2));
    ref_ptr<CVertexData> instanceData = VertexData(instanceLayout.get(), instances.get(), 0, 2);
    rs->SetVertexBuffers(0, data.get(), 0);
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetVertexBuffers(1, instanceData.get(), 0);
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark);
    ASSERT_EQ(2u, calls.size()) << kvproxy::Describe(calls);
    EXPECT_EQ(Method::SetVertexDeclaration, kvproxy::MethodOf(calls[0]));
    EXPECT_EQ(kvproxy::PtrArg(Native(instanceLayout.get())), calls[0].args[0]);
    EXPECT_EQ(Method::SetStreamSource, kvproxy::MethodOf(calls[1]));
    EXPECT_EQ(1u, calls[1].args[0]);
    EXPECT_EQ(kvproxy::PtrArg(D3D(instances.get())->m_pD3D9VertexBuffer), calls[1].args[1]);
    EXPECT_EQ(D3D(instances.get())->m_pD3D9VertexBuffer, d3d->m_streamBuffers[1]);
    EXPECT_EQ(D3D(buffer.get())->m_pD3D9VertexBuffer, d3d->m_streamBuffers[0]);
}

TEST_F(Streams, IndexBufferIsShadowedAndCounted)
{
    ref_ptr<CHardwareIndexBuffer> ib = IndexBuffer16({0, 1, 2, 0, 2, 3});
    ref_ptr<CHardwareIndexBuffer> other = IndexBuffer16({0, 1, 2});
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetIndexBuffer(ib.get());
    rs->SetIndexBuffer(ib.get());
    rs->SetIndexBuffer(other.get());
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark, Method::SetIndices);
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(kvproxy::PtrArg(D3D(ib.get())->m_pD3D9IndexBuffer), calls[0].args[0]);
    EXPECT_EQ(kvproxy::PtrArg(D3D(other.get())->m_pD3D9IndexBuffer), calls[1].args[0]);
    EXPECT_EQ(2u, Timer().m_nIBBinds);
    EXPECT_EQ(12u + 6u, Timer().m_nIBBytes);
}

TEST_F(Streams, FailedBindsAreLoggedAndStillShadowed)
{
    ref_ptr<CHardwareIndexBuffer> ib = IndexBuffer16({0, 1, 2});
    kvproxy::FailMethod(Method::SetStreamSource, D3DERR_INVALIDCALL, 1);
    kvproxy::FailMethod(Method::SetIndices, D3DERR_INVALIDCALL, 1);
    kvproxy::FailMethod(Method::SetVertexDeclaration, D3DERR_INVALIDCALL, 1);
    rs->SetVertexBuffer(data.get());
    rs->SetIndexBuffer(ib.get());
    EXPECT_EQ((std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to SetVertexDeclaration"),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to SetStreamSource"),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to SetIndices")}),
              Errors());
    EXPECT_EQ(1u, Timer().m_nVBBinds);
    EXPECT_EQ(1u, Timer().m_nIBBinds);
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetVertexBuffer(data.get());
    rs->SetIndexBuffer(ib.get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
}

TEST_F(Streams, ResetCachesMakeTheSameBindingsReachTheDeviceAgain)
{
    ref_ptr<CHardwareIndexBuffer> ib = IndexBuffer16({0, 1, 2});
    rs->SetVertexBuffer(data.get());
    rs->SetIndexBuffer(ib.get());
    d3d->_resetStateCaches();
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetVertexBuffer(data.get());
    rs->SetIndexBuffer(ib.get());
    EXPECT_TRUE(kvproxy::CalledInOrder(mark, {Method::SetVertexDeclaration, Method::SetStreamSource,
                                              Method::SetIndices}));
    EXPECT_EQ(3u, kvproxy::CallsSince(mark).size());
}

TEST_F(Streams, DataWithoutBufferOrDeclarationUnbinds)
{
    rs->SetVertexBuffer(data.get());
    ref_ptr<CVertexData> empty = rs->CreateVertexData();
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetVertexBuffer(empty.get());
    rs->SetVertexBuffer(nullptr);
    rs->SetIndexBuffer(nullptr);
    std::vector<KvProxyCall> streams = kvproxy::CallsSince(mark, Method::SetStreamSource);
    ASSERT_EQ(1u, streams.size());
    EXPECT_EQ(0u, streams[0].args[1]);
    EXPECT_EQ(nullptr, d3d->m_streamBuffers[0]);
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::SetIndices));
    EXPECT_EQ(nullptr, d3d->m_pCurrentIndexBuffer);
}
