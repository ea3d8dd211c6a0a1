// Binding vertex streams, indices and declarations through their shadows, and
// the three draw forms: what reaches the device and what is spared, hardware
// instancing through the stream frequencies, every frame statistic, and the
// profiler's texts.
#include "KvDeviceTest.h"

using namespace kv;
using namespace kvtest;
using kvproxy::Method;

namespace
{

struct Streams : KvDeviceTest
{
    void SetUp() override
    {
        KvDeviceTest::SetUp();
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

std::vector<uint64_t> Args(const KvProxyCall& c)
{
    return std::vector<uint64_t>(c.args, c.args + c.argCount);
}

} // namespace

TEST_F(Streams, RepeatedBindMakesNoCallAndStreamTwoIsRefused)
{
    kvproxy::Mark from = kvproxy::Here();
    rs->SetVertexBuffer(data.get());
    rs->SetVertexBuffers(0, data.get(), 0);
    const uint64_t native = kvproxy::PtrArg(D3D(buffer.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ((ArgList{{0, native, 0, sizeof(ColourVertex)}}), ArgsOf(from, Method::SetStreamSource, 4));
    EXPECT_EQ((ArgList{{kvproxy::PtrArg(Native(declaration.get()))}}), ArgsOf(from, Method::SetVertexDeclaration, 1));
    EXPECT_EQ(1u, Timer().m_nVBBinds);
    EXPECT_EQ(4 * sizeof(ColourVertex), Timer().m_nVBBytes);

    // The stride alone does not rebind; another offset does.
    buffer->mElementSize = 32;
    kvproxy::Mark same = kvproxy::Here();
    rs->SetVertexBuffer(data.get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(same));
    buffer->mElementSize = sizeof(ColourVertex);
    rs->SetVertexBuffers(0, data.get(), 16);
    EXPECT_EQ((ArgList{{0, native, 0}, {0, native, 16}}), ArgsOf(from, Method::SetStreamSource, 3));
    EXPECT_EQ(2u, Timer().m_nVBBinds);
    EXPECT_EQ(8 * sizeof(ColourVertex), Timer().m_nVBBytes);

    // Stream two and above is refused before the device.
    const auto declarationBefore = d3d->m_pCurrentVertexDeclaration;
    from = kvproxy::Here();
    rs->SetVertexBuffers(2, data.get(), 0);
    rs->SetVertexBuffers(7, data.get(), 0);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    EXPECT_EQ(
        (std::vector<std::string>{"Failed to CD3D9RenderSystem::SetVertexBuffers, Too many vertex buffers:2 > 2",
                                  "Failed to CD3D9RenderSystem::SetVertexBuffers, Too many vertex buffers:7 > 2"}),
        Errors());
    EXPECT_EQ(2u, Timer().m_nVBBinds);
    EXPECT_EQ(declarationBefore, d3d->m_pCurrentVertexDeclaration);
}

TEST_F(Streams, SecondStreamBindsItsOwnBufferAndMayReplaceTheDeclaration)
{
    ref_ptr<CVertexDeclaration> instanceLayout = ColourDeclaration();
    ref_ptr<CHardwareVertexBuffer> instances = VertexBuffer(std::vector<ColourVertex>(2));
    ref_ptr<CVertexData> instanceData = VertexData(instanceLayout.get(), instances.get(), 0, 2);
    rs->SetVertexBuffers(0, data.get(), 0);
    kvproxy::Mark from = kvproxy::Here();
    rs->SetVertexBuffers(1, instanceData.get(), 0);
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(from);
    ASSERT_EQ((std::vector<std::string>{"SetVertexDeclaration", "SetStreamSource"}), MethodsSince(from));
    EXPECT_EQ(kvproxy::PtrArg(Native(instanceLayout.get())), calls[0].args[0]);
    EXPECT_EQ(1u, calls[1].args[0]);
    EXPECT_EQ(kvproxy::PtrArg(D3D(instances.get())->m_pD3D9VertexBuffer), calls[1].args[1]);
    EXPECT_EQ(D3D(instances.get())->m_pD3D9VertexBuffer, d3d->m_streamBuffers[1]);
    EXPECT_EQ(D3D(buffer.get())->m_pD3D9VertexBuffer, d3d->m_streamBuffers[0]);
}

TEST_F(Streams, IndexBufferIsShadowedAndCounted)
{
    ref_ptr<CHardwareIndexBuffer> ib = IndexBuffer16({0, 1, 2, 0, 2, 3});
    ref_ptr<CHardwareIndexBuffer> other = IndexBuffer16({0, 1, 2});
    kvproxy::Mark from = kvproxy::Here();
    rs->SetIndexBuffer(ib.get());
    rs->SetIndexBuffer(ib.get());
    rs->SetIndexBuffer(other.get());
    EXPECT_EQ((ArgList{{kvproxy::PtrArg(D3D(ib.get())->m_pD3D9IndexBuffer)},
                       {kvproxy::PtrArg(D3D(other.get())->m_pD3D9IndexBuffer)}}),
              ArgsOf(from, Method::SetIndices, 1));
    EXPECT_EQ(2u, Timer().m_nIBBinds);
    EXPECT_EQ(12u + 6u, Timer().m_nIBBytes);

    // Data without buffer or declaration unbinds, and so does null.
    rs->SetVertexBuffer(data.get());
    from = kvproxy::Here();
    rs->SetVertexBuffer(rs->CreateVertexData().get());
    rs->SetVertexBuffer(nullptr);
    rs->SetIndexBuffer(nullptr);
    EXPECT_EQ((ArgList{{0, 0}}), ArgsOf(from, Method::SetStreamSource, 2));
    EXPECT_EQ(nullptr, d3d->m_streamBuffers[0]);
    EXPECT_EQ(1u, kvproxy::CountSince(from, Method::SetIndices));
    EXPECT_EQ(nullptr, d3d->m_pCurrentIndexBuffer);
}

TEST_F(Streams, FailedBindsAreLoggedAndStillShadowedTillTheCachesAreReset)
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
    kvproxy::Mark from = kvproxy::Here();
    rs->SetVertexBuffer(data.get());
    rs->SetIndexBuffer(ib.get());
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));

    // Reset caches make the same bindings reach the device again.
    d3d->_resetStateCaches();
    from = kvproxy::Here();
    rs->SetVertexBuffer(data.get());
    rs->SetIndexBuffer(ib.get());
    EXPECT_EQ((std::vector<std::string>{"SetVertexDeclaration", "SetStreamSource", "SetIndices"}), MethodsSince(from));
}

// ---- draws

namespace
{

struct Draws : Streams
{
    void SetUp() override
    {
        KvDeviceTest::SetUp();
        if (HasFatalFailure())
            return;
        declaration = ColourDeclaration();
        buffer = VertexBuffer(std::vector<ColourVertex>(8));
        indices = IndexBuffer16({0, 1, 2, 2, 1, 3, 4, 5, 6});
        data = VertexData(declaration.get(), buffer.get(), 2, 4);
        rs->SetVertexBuffer(data.get());
        rs->SetIndexBuffer(indices.get());
        Timer().Reset();
    }
    // (stream, setting) of each SetStreamSourceFreq since `from`.
    static std::vector<std::vector<uint64_t>> Frequencies(kvproxy::Mark from)
    {
        std::vector<std::vector<uint64_t>> out;
        for (const KvProxyCall& c : kvproxy::CallsSince(from, Method::SetStreamSourceFreq))
            out.push_back({c.args[0], c.args[1]});
        return out;
    }
    // Primitives, vertices and draw calls of the frame statistics.
    std::vector<unsigned> Counts()
    {
        return {Timer().m_nPrimitiveCount, Timer().m_nVertexCount, Timer().m_nDrawCallCount};
    }
    void DrawUP(PrimitiveType type, unsigned vertices, unsigned instances = 1)
    {
        rs->DrawPrimitiveUP(type, vertices, user, sizeof(ColourVertex), declaration.get(), instances);
    }
    void DrawIndexedUP(PrimitiveType type, unsigned vertices, unsigned count, const void* list = nullptr,
                       CHardwareIndexBuffer::IndexType kind = CHardwareIndexBuffer::IT_16BIT)
    {
        rs->DrawIndexedPrimitiveUP(type, vertices, count, list ? list : userIndices, kind, user, sizeof(ColourVertex),
                                   declaration.get(), 1);
    }

    ref_ptr<CHardwareIndexBuffer> indices;
    ColourVertex user[6] = {};
    uint16_t userIndices[6] = {0, 1, 2, 2, 1, 3};
};

} // namespace

TEST_F(Draws, EachFormTakesItsCountFromIndicesOrVertices)
{
    kvproxy::Mark from = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), IndexData(indices.get(), 3, 3).get(), 1, false);
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(from);
    ASSERT_EQ(1u, calls.size()) << kvproxy::Describe(calls); // frequencies stand at 1 already
    EXPECT_EQ(Method::DrawIndexedPrimitive, kvproxy::MethodOf(calls[0]));
    EXPECT_EQ((std::vector<uint64_t>{D3DPT_TRIANGLELIST, 2, 0, 4, 3, 1}), Args(calls[0]));
    EXPECT_EQ((std::vector<unsigned>{1, 4, 1}), Counts());
    EXPECT_EQ(0u, Timer().m_nExtraInstances);

    from = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_STRIP, data.get(), nullptr, 1, false);
    rs->DrawPrimitive(PT_POINT_LIST, data.get(), nullptr, 1, false);
    EXPECT_EQ((ArgList{{D3DPT_TRIANGLESTRIP, 2, 2}, {D3DPT_POINTLIST, 2, 4}}), ArgsOf(from, Method::DrawPrimitive, 3));
    EXPECT_EQ((std::vector<unsigned>{1 + 6, 4 + 8, 3}), Counts());

    // From user memory, instances only scale the statistics; stream 0 is
    // unbound by the runtime after it, so the same binding must go again.
    Timer().Reset();
    d3d->_setStreamFrequency(0, 0x40000004);
    from = kvproxy::Here();
    DrawUP(PT_TRIANGLE_FAN, 5, 3);
    calls = kvproxy::CallsSince(from);
    ASSERT_EQ((std::vector<std::string>{"SetStreamSourceFreq", "DrawPrimitiveUP"}), MethodsSince(from));
    EXPECT_EQ(1u, calls[0].args[1]);
    EXPECT_EQ((std::vector<uint64_t>{D3DPT_TRIANGLEFAN, 3, kvproxy::PtrArg(user), sizeof(ColourVertex)}),
              Args(calls[1]));
    EXPECT_EQ((std::vector<unsigned>{9, 5, 1}), Counts());
    EXPECT_EQ(1u, Timer().m_nVBBinds);
    EXPECT_EQ(5 * sizeof(ColourVertex), Timer().m_nVBBytes);
    EXPECT_EQ(0u, Timer().m_nIBBinds);
    from = kvproxy::Here();
    rs->SetVertexBuffer(data.get());
    EXPECT_EQ(1u, kvproxy::CountSince(from, Method::SetStreamSource));
}

TEST_F(Draws, IndexedUserMemoryDrawPassesTheIndexFormatAndUnbindsIndices)
{
    uint32_t wide[6] = {0, 1, 2, 2, 1, 3};
    kvproxy::Mark from = kvproxy::Here();
    DrawIndexedUP(PT_TRIANGLE_LIST, 4, 6, wide, CHardwareIndexBuffer::IT_32BIT);
    EXPECT_EQ((ArgList{{D3DPT_TRIANGLELIST, 0, 4, 2, kvproxy::PtrArg(wide), D3DFMT_INDEX32, kvproxy::PtrArg(user),
                        sizeof(ColourVertex)}}),
              ArgsOf(from, Method::DrawIndexedPrimitiveUP, 8));
    EXPECT_EQ(1u, Timer().m_nIBBinds);
    EXPECT_EQ(24u, Timer().m_nIBBytes);
    EXPECT_EQ(1u, Timer().m_nVBBinds);
    EXPECT_EQ(4 * sizeof(ColourVertex), Timer().m_nVBBytes);
    EXPECT_EQ(2u, Timer().m_nPrimitiveCount);
    DrawIndexedUP(PT_TRIANGLE_LIST, 4, 6);
    EXPECT_EQ(36u, Timer().m_nIBBytes);
    from = kvproxy::Here();
    rs->SetIndexBuffer(indices.get());
    rs->SetVertexBuffer(data.get());
    EXPECT_EQ(1u, kvproxy::CountSince(from, Method::SetIndices));
    EXPECT_EQ(1u, kvproxy::CountSince(from, Method::SetStreamSource));
}

TEST_F(Draws, NothingToDrawMakesNoDrawCallAndCountsNothing)
{
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 1, true); // set the frequencies
    Timer().Reset();
    kvproxy::Mark from = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), IndexData(indices.get(), 0, 2).get(), 1, false);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, VertexData(declaration.get(), buffer.get(), 0, 0).get(),
                      IndexData(indices.get(), 0, 3).get(), 1, false);
    rs->DrawPrimitive(static_cast<PrimitiveType>(0), data.get(), IndexData(indices.get(), 0, 3).get(), 1, false);
    rs->DrawPrimitive(static_cast<PrimitiveType>(7), data.get(), nullptr, 1, false);
    rs->DrawPrimitive(PT_LINE_STRIP, VertexData(declaration.get(), buffer.get(), 0, 1).get(), nullptr, 1, false);
    // None of these touched the frequencies the instanced draw left.
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    EXPECT_EQ(0x40000001u, d3d->m_streamFrequencies[0]);
    EXPECT_EQ((std::vector<unsigned>{0, 0, 0}), Counts());

    // The user-memory forms set the declaration even for an unknown type or nothing to draw.
    ref_ptr<CVertexDeclaration> other = ColourDeclaration();
    d3d->_setStreamFrequency(0, 1);
    d3d->_setStreamFrequency(1, 0x80000001);
    from = kvproxy::Here();
    rs->DrawPrimitiveUP(static_cast<PrimitiveType>(9), 3, user, sizeof(ColourVertex), other.get(), 1);
    ASSERT_EQ((std::vector<std::string>{"SetStreamSourceFreq", "SetVertexDeclaration"}), MethodsSince(from));
    EXPECT_EQ(kvproxy::PtrArg(Native(other.get())), kvproxy::CallsSince(from)[1].args[0]);
    from = kvproxy::Here();
    DrawIndexedUP(PT_TRIANGLE_LIST, 0, 6);
    DrawIndexedUP(PT_TRIANGLE_LIST, 4, 2);
    EXPECT_EQ((std::vector<std::string>{"SetVertexDeclaration"}), MethodsSince(from));
    EXPECT_EQ(0u, Timer().m_nDrawCallCount);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Draws, InstancingSetsAndThenRestoresTheStreamFrequencies)
{
    ref_ptr<CIndexData> all = IndexData(indices.get(), 0, 6);
    kvproxy::Mark from = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 10, true);
    EXPECT_EQ((std::vector<std::vector<uint64_t>>{{0, 0x4000000A}, {1, 0x80000001}}), Frequencies(from));
    EXPECT_TRUE(kvproxy::CalledInOrder(
        from, {Method::SetStreamSourceFreq, Method::SetStreamSourceFreq, Method::DrawIndexedPrimitive}));
    EXPECT_EQ((std::vector<unsigned>{20, 4, 1}), Counts());
    EXPECT_EQ(9u, Timer().m_nExtraInstances);

    // The same instancing again: the frequencies stand.
    from = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 10, true);
    EXPECT_TRUE(Frequencies(from).empty());
    EXPECT_EQ(18u, Timer().m_nExtraInstances);
    // Back to one, once.
    from = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 1, false);
    EXPECT_EQ((std::vector<std::vector<uint64_t>>{{0, 1}, {1, 1}}), Frequencies(from));
    EXPECT_EQ(18u, Timer().m_nExtraInstances);
    from = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 1, false);
    EXPECT_TRUE(Frequencies(from).empty());

    // A refused frequency is logged and kept.
    kvproxy::FailMethod(Method::SetStreamSourceFreq, D3DERR_INVALIDCALL, 1);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 3, true);
    EXPECT_EQ(std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to SetStreamSourceFreq")}, Errors());
    EXPECT_EQ(0x40000003u, d3d->m_streamFrequencies[0]);
    EXPECT_EQ(0x80000001u, d3d->m_streamFrequencies[1]);
}

TEST_F(Draws, WhatTheStatisticsCount)
{
    // Only solid fill counts, but every mode draws.
    rs->SetFillMode(FILL_WIREFRAME);
    kvproxy::Mark from = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 1, false);
    DrawUP(PT_TRIANGLE_LIST, 3);
    EXPECT_EQ((std::vector<std::string>{"DrawPrimitive", "DrawPrimitiveUP"}), MethodsSince(from));
    EXPECT_EQ((std::vector<unsigned>{0, 0, 0}), Counts());
    EXPECT_EQ(0u, Timer().m_nVBBinds);
    rs->SetFillMode(FILL_SOLID);

    // Line lists count only from user memory.
    from = kvproxy::Here();
    rs->DrawPrimitive(PT_LINE_LIST, data.get(), nullptr, 1, false);
    rs->DrawPrimitive(PT_LINE_STRIP, data.get(), nullptr, 1, false);
    EXPECT_EQ(2u, kvproxy::CountSince(from, Method::DrawPrimitive));
    EXPECT_EQ(0u, Timer().m_nDrawCallCount);
    DrawUP(PT_LINE_LIST, 4);
    EXPECT_EQ(1u, Timer().m_nDrawCallCount);
    EXPECT_EQ(2u, Timer().m_nPrimitiveCount);
    DrawUP(PT_LINE_STRIP, 4);
    DrawIndexedUP(PT_LINE_LIST, 4, 4);
    EXPECT_EQ(1u, Timer().m_nDrawCallCount);
    EXPECT_EQ(1u, kvproxy::CountSince(from, Method::DrawIndexedPrimitiveUP));

    // GUI mode counts into the GUI sums only; binds and instances have no GUI half.
    Timer().Reset();
    g_bInGUIMode = true;
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), IndexData(indices.get(), 0, 6).get(), 2, true);
    DrawUP(PT_TRIANGLE_LIST, 3);
    DrawIndexedUP(PT_TRIANGLE_LIST, 4, 6);
    g_bInGUIMode = false;
    EXPECT_EQ(
        (std::vector<unsigned>{4 + 1 + 2, 4 + 3 + 4, 3}),
        (std::vector<unsigned>{Timer().m_nGUIPrimitiveCount, Timer().m_nGUIVertexCount, Timer().m_nGUIDrawCallCount}));
    EXPECT_EQ((std::vector<unsigned>{0, 0, 0}), Counts());
    EXPECT_EQ(1u, Timer().m_nExtraInstances);
    EXPECT_EQ(2u, Timer().m_nVBBinds);
    EXPECT_EQ(1u, Timer().m_nIBBinds);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 1, false);
    EXPECT_EQ(1u, Timer().m_nDrawCallCount);
    EXPECT_EQ(3u, Timer().m_nGUIDrawCallCount);
}

TEST_F(Draws, RefusedDrawsAreLoggedAndStillCounted)
{
    for (Method m :
         {Method::DrawIndexedPrimitive, Method::DrawPrimitive, Method::DrawPrimitiveUP, Method::DrawIndexedPrimitiveUP})
        kvproxy::FailMethod(m, D3DERR_INVALIDCALL, 1);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), IndexData(indices.get(), 0, 3).get(), 1, false);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 1, false);
    DrawUP(PT_TRIANGLE_LIST, 3);
    DrawIndexedUP(PT_TRIANGLE_LIST, 4, 6);
    EXPECT_EQ((std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to DrawIndexedPrimitive"),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to DrawPrimitive"),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to DrawPrimitiveUP"),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to DrawIndexedPrimitiveUp")}),
              Errors());
    EXPECT_EQ(4u, Timer().m_nDrawCallCount);
    EXPECT_EQ(1u + 1u + 1u + 2u, Timer().m_nPrimitiveCount);
}

TEST_F(Draws, ProfilerEventsAndMarkersCarryTheirText)
{
    kvproxy::Mark from = kvproxy::Here();
    rs->BeginEvent("Shadow pass");
    rs->SetMarker("cascade 2");
    rs->EndEvent();
    rs->BeginEvent("");
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(from);
    ASSERT_EQ(
        (std::vector<std::string>{"D3DPERF_BeginEvent", "D3DPERF_SetMarker", "D3DPERF_EndEvent", "D3DPERF_BeginEvent"}),
        MethodsSince(from));
    EXPECT_EQ(0x01000100u, calls[0].args[0]);
    EXPECT_EQ(L"Shadow pass", kvproxy::TextOf(calls[0]));
    EXPECT_EQ(0x01000100u, calls[1].args[0]);
    EXPECT_EQ(L"cascade 2", kvproxy::TextOf(calls[1]));
    EXPECT_EQ(L"", kvproxy::TextOf(calls[3]));
    rs->EndEvent();
}
