// The three draw forms: what the device is asked, hardware instancing through
// the stream frequencies, every frame statistic, and the profiler's texts.
#include "DrawFixture.h"

using namespace kv;
using kvproxy::Method;

namespace
{

struct Draws : DrawTest
{
    void SetUp() override
    {
        DrawTest::SetUp();
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

    std::vector<KvProxyCall> Frequencies(kvproxy::Mark mark)
    {
        return kvproxy::CallsSince(mark, Method::SetStreamSourceFreq);
    }

    ref_ptr<CVertexDeclaration> declaration;
    ref_ptr<CHardwareVertexBuffer> buffer;
    ref_ptr<CHardwareIndexBuffer> indices;
    ref_ptr<CVertexData> data;
    ColourVertex user[6] = {};
    uint16_t userIndices[6] = {0, 1, 2, 2, 1, 3};
};

} // namespace

TEST_F(Draws, IndexedDrawTakesItsCountFromTheIndices)
{
    ref_ptr<CIndexData> three = IndexData(indices.get(), 3, 3);
    kvproxy::Mark mark = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), three.get(), 1, false);
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark);
    ASSERT_EQ(1u, calls.size()) << kvproxy::Describe(calls); // frequencies stand at 1 already
    EXPECT_EQ(Method::DrawIndexedPrimitive, kvproxy::MethodOf(calls[0]));
    const uint64_t expected[] = {D3DPT_TRIANGLELIST, 2, 0, 4, 3, 1};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(expected[i], calls[0].args[i]) << i;
    EXPECT_EQ(1u, Timer().m_nPrimitiveCount);
    EXPECT_EQ(4u, Timer().m_nVertexCount);
    EXPECT_EQ(1u, Timer().m_nDrawCallCount);
    EXPECT_EQ(0u, Timer().m_nExtraInstances);
}

TEST_F(Draws, PlainDrawTakesItsCountFromTheVertices)
{
    kvproxy::Mark mark = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_STRIP, data.get(), nullptr, 1, false);
    rs->DrawPrimitive(PT_POINT_LIST, data.get(), nullptr, 1, false);
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark, Method::DrawPrimitive);
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(static_cast<uint64_t>(D3DPT_TRIANGLESTRIP), calls[0].args[0]);
    EXPECT_EQ(2u, calls[0].args[1]);
    EXPECT_EQ(2u, calls[0].args[2]);
    EXPECT_EQ(4u, calls[1].args[2]);
    EXPECT_EQ(6u, Timer().m_nPrimitiveCount);
    EXPECT_EQ(8u, Timer().m_nVertexCount);
    EXPECT_EQ(2u, Timer().m_nDrawCallCount);
}

TEST_F(Draws, NothingToDrawMakesNoCallAndCountsNothing)
{
    ref_ptr<CIndexData> two = IndexData(indices.get(), 0, 2);
    ref_ptr<CVertexData> none = VertexData(declaration.get(), buffer.get(), 0, 0);
    ref_ptr<CIndexData> three = IndexData(indices.get(), 0, 3);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 1, true); // set the frequencies
    Timer().Reset();
    kvproxy::Mark mark = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), two.get(), 1, false);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, none.get(), three.get(), 1, false);
    rs->DrawPrimitive(static_cast<PrimitiveType>(0), data.get(), three.get(), 1, false);
    rs->DrawPrimitive(static_cast<PrimitiveType>(7), data.get(), nullptr, 1, false);
    rs->DrawPrimitive(PT_LINE_STRIP, VertexData(declaration.get(), buffer.get(), 0, 1).get(), nullptr, 1, false);
    // None of these touched the frequencies the instanced draw left.
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(0x40000001u, d3d->m_streamFrequencies[0]);
    EXPECT_EQ(0u, Timer().m_nDrawCallCount);
    EXPECT_EQ(0u, Timer().m_nPrimitiveCount);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Draws, InstancingSetsAndThenRestoresTheStreamFrequencies)
{
    ref_ptr<CIndexData> all = IndexData(indices.get(), 0, 6);
    kvproxy::Mark mark = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 10, true);
    std::vector<KvProxyCall> freq = Frequencies(mark);
    ASSERT_EQ(2u, freq.size());
    EXPECT_EQ(0u, freq[0].args[0]);
    EXPECT_EQ(0x4000000Au, freq[0].args[1]);
    EXPECT_EQ(1u, freq[1].args[0]);
    EXPECT_EQ(0x80000001u, freq[1].args[1]);
    EXPECT_TRUE(kvproxy::CalledInOrder(mark, {Method::SetStreamSourceFreq, Method::SetStreamSourceFreq,
                                              Method::DrawIndexedPrimitive}));
    EXPECT_EQ(20u, Timer().m_nPrimitiveCount);
    EXPECT_EQ(4u, Timer().m_nVertexCount);
    EXPECT_EQ(1u, Timer().m_nDrawCallCount);
    EXPECT_EQ(9u, Timer().m_nExtraInstances);

    // The same instancing again: the frequencies stand.
    mark = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 10, true);
    EXPECT_TRUE(Frequencies(mark).empty());
    EXPECT_EQ(18u, Timer().m_nExtraInstances);

    mark = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 1, false);
    freq = Frequencies(mark);
    ASSERT_EQ(2u, freq.size());
    EXPECT_EQ(0u, freq[0].args[0]);
    EXPECT_EQ(1u, freq[0].args[1]);
    EXPECT_EQ(1u, freq[1].args[0]);
    EXPECT_EQ(1u, freq[1].args[1]);
    EXPECT_EQ(18u, Timer().m_nExtraInstances);

    mark = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 1, false);
    EXPECT_TRUE(Frequencies(mark).empty());
}

TEST_F(Draws, FailedFrequencyIsLoggedAndKept)
{
    kvproxy::FailMethod(Method::SetStreamSourceFreq, D3DERR_INVALIDCALL, 1);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 3, true);
    EXPECT_EQ(std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to SetStreamSourceFreq")}, Errors());
    EXPECT_EQ(0x40000003u, d3d->m_streamFrequencies[0]);
    EXPECT_EQ(0x80000001u, d3d->m_streamFrequencies[1]);
}

TEST_F(Draws, OnlySolidFillCountsButEveryModeDraws)
{
    rs->SetFillMode(FILL_WIREFRAME);
    kvproxy::Mark mark = kvproxy::Here();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 1, false);
    rs->DrawPrimitiveUP(PT_TRIANGLE_LIST, 3, user, sizeof(ColourVertex), declaration.get(), 1);
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::DrawPrimitive));
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::DrawPrimitiveUP));
    EXPECT_EQ(0u, Timer().m_nDrawCallCount);
    EXPECT_EQ(0u, Timer().m_nPrimitiveCount);
    EXPECT_EQ(0u, Timer().m_nVBBinds);
    rs->SetFillMode(FILL_SOLID);
}

TEST_F(Draws, LineListsCountOnlyFromUserMemory)
{
    kvproxy::Mark mark = kvproxy::Here();
    rs->DrawPrimitive(PT_LINE_LIST, data.get(), nullptr, 1, false);
    rs->DrawPrimitive(PT_LINE_STRIP, data.get(), nullptr, 1, false);
    EXPECT_EQ(2u, kvproxy::CountSince(mark, Method::DrawPrimitive));
    EXPECT_EQ(0u, Timer().m_nDrawCallCount);

    rs->DrawPrimitiveUP(PT_LINE_LIST, 4, user, sizeof(ColourVertex), declaration.get(), 1);
    EXPECT_EQ(1u, Timer().m_nDrawCallCount);
    EXPECT_EQ(2u, Timer().m_nPrimitiveCount);
    rs->DrawPrimitiveUP(PT_LINE_STRIP, 4, user, sizeof(ColourVertex), declaration.get(), 1);
    rs->DrawIndexedPrimitiveUP(PT_LINE_LIST, 4, 4, userIndices, CHardwareIndexBuffer::IT_16BIT, user,
                               sizeof(ColourVertex), declaration.get(), 1);
    EXPECT_EQ(1u, Timer().m_nDrawCallCount);
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::DrawIndexedPrimitiveUP));
}

TEST_F(Draws, UserMemoryDrawCountsItsBindsAndUnbindsStreamZero)
{
    d3d->_setStreamFrequency(0, 0x40000004);
    kvproxy::Mark mark = kvproxy::Here();
    rs->DrawPrimitiveUP(PT_TRIANGLE_FAN, 5, user, sizeof(ColourVertex), declaration.get(), 3);
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark);
    ASSERT_EQ(2u, calls.size()) << kvproxy::Describe(calls);
    EXPECT_EQ(Method::SetStreamSourceFreq, kvproxy::MethodOf(calls[0]));
    EXPECT_EQ(1u, calls[0].args[1]);
    EXPECT_EQ(Method::DrawPrimitiveUP, kvproxy::MethodOf(calls[1]));
    EXPECT_EQ(static_cast<uint64_t>(D3DPT_TRIANGLEFAN), calls[1].args[0]);
    EXPECT_EQ(3u, calls[1].args[1]);
    EXPECT_EQ(kvproxy::PtrArg(user), calls[1].args[2]);
    EXPECT_EQ(sizeof(ColourVertex), calls[1].args[3]);
    EXPECT_EQ(9u, Timer().m_nPrimitiveCount); // instances only scale the statistics
    EXPECT_EQ(5u, Timer().m_nVertexCount);
    EXPECT_EQ(1u, Timer().m_nVBBinds);
    EXPECT_EQ(5 * sizeof(ColourVertex), Timer().m_nVBBytes);
    EXPECT_EQ(0u, Timer().m_nIBBinds);

    // Stream 0 is unbound by the runtime now: the same binding must go again.
    mark = kvproxy::Here();
    rs->SetVertexBuffer(data.get());
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::SetStreamSource));
}

TEST_F(Draws, IndexedUserMemoryDrawPassesTheIndexFormatAndUnbindsIndices)
{
    uint32_t wide[6] = {0, 1, 2, 2, 1, 3};
    kvproxy::Mark mark = kvproxy::Here();
    rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 6, wide, CHardwareIndexBuffer::IT_32BIT, user,
                               sizeof(ColourVertex), declaration.get(), 1);
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark, Method::DrawIndexedPrimitiveUP);
    ASSERT_EQ(1u, calls.size());
    const uint64_t expected[] = {D3DPT_TRIANGLELIST, 0, 4, 2, kvproxy::PtrArg(wide), D3DFMT_INDEX32,
                                 kvproxy::PtrArg(user), sizeof(ColourVertex)};
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(expected[i], calls[0].args[i]) << i;
    EXPECT_EQ(1u, Timer().m_nIBBinds);
    EXPECT_EQ(24u, Timer().m_nIBBytes);
    EXPECT_EQ(1u, Timer().m_nVBBinds);
    EXPECT_EQ(4 * sizeof(ColourVertex), Timer().m_nVBBytes);
    EXPECT_EQ(2u, Timer().m_nPrimitiveCount);

    rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 6, userIndices, CHardwareIndexBuffer::IT_16BIT, user,
                               sizeof(ColourVertex), declaration.get(), 1);
    EXPECT_EQ(36u, Timer().m_nIBBytes);

    mark = kvproxy::Here();
    rs->SetIndexBuffer(indices.get());
    rs->SetVertexBuffer(data.get());
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::SetIndices));
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::SetStreamSource));
}

TEST_F(Draws, UserMemoryFormsSetTheDeclarationEvenForAnUnknownType)
{
    ref_ptr<CVertexDeclaration> other = ColourDeclaration();
    d3d->_setStreamFrequency(1, 0x80000001);
    kvproxy::Mark mark = kvproxy::Here();
    rs->DrawPrimitiveUP(static_cast<PrimitiveType>(9), 3, user, sizeof(ColourVertex), other.get(), 1);
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark);
    ASSERT_EQ(2u, calls.size()) << kvproxy::Describe(calls);
    EXPECT_EQ(Method::SetStreamSourceFreq, kvproxy::MethodOf(calls[0]));
    EXPECT_EQ(Method::SetVertexDeclaration, kvproxy::MethodOf(calls[1]));
    EXPECT_EQ(kvproxy::PtrArg(Native(other.get())), calls[1].args[0]);

    mark = kvproxy::Here();
    rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 0, 6, userIndices, CHardwareIndexBuffer::IT_16BIT, user,
                               sizeof(ColourVertex), declaration.get(), 1);
    rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 2, userIndices, CHardwareIndexBuffer::IT_16BIT, user,
                               sizeof(ColourVertex), declaration.get(), 1);
    calls = kvproxy::CallsSince(mark);
    ASSERT_EQ(1u, calls.size()) << kvproxy::Describe(calls);
    EXPECT_EQ(Method::SetVertexDeclaration, kvproxy::MethodOf(calls[0]));
    EXPECT_EQ(0u, Timer().m_nDrawCallCount);
}

TEST_F(Draws, GuiModeCountsIntoTheGuiSumsOnly)
{
    g_bInGUIMode = true;
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), IndexData(indices.get(), 0, 6).get(), 2, true);
    rs->DrawPrimitiveUP(PT_TRIANGLE_LIST, 3, user, sizeof(ColourVertex), declaration.get(), 1);
    rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 6, userIndices, CHardwareIndexBuffer::IT_16BIT, user,
                               sizeof(ColourVertex), declaration.get(), 1);
    g_bInGUIMode = false;
    EXPECT_EQ(4u + 1u + 2u, Timer().m_nGUIPrimitiveCount);
    EXPECT_EQ(4u + 3u + 4u, Timer().m_nGUIVertexCount);
    EXPECT_EQ(3u, Timer().m_nGUIDrawCallCount);
    EXPECT_EQ(0u, Timer().m_nPrimitiveCount);
    EXPECT_EQ(0u, Timer().m_nVertexCount);
    EXPECT_EQ(0u, Timer().m_nDrawCallCount);
    // Binds and instances have no GUI half.
    EXPECT_EQ(1u, Timer().m_nExtraInstances);
    EXPECT_EQ(2u, Timer().m_nVBBinds);
    EXPECT_EQ(1u, Timer().m_nIBBinds);

    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 1, false);
    EXPECT_EQ(1u, Timer().m_nDrawCallCount);
    EXPECT_EQ(3u, Timer().m_nGUIDrawCallCount);
}

TEST_F(Draws, FailedDrawsAreLoggedAndStillCounted)
{
    kvproxy::FailMethod(Method::DrawIndexedPrimitive, D3DERR_INVALIDCALL, 1);
    kvproxy::FailMethod(Method::DrawPrimitive, D3DERR_INVALIDCALL, 1);
    kvproxy::FailMethod(Method::DrawPrimitiveUP, D3DERR_INVALIDCALL, 1);
    kvproxy::FailMethod(Method::DrawIndexedPrimitiveUP, D3DERR_INVALIDCALL, 1);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), IndexData(indices.get(), 0, 3).get(), 1, false);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 1, false);
    rs->DrawPrimitiveUP(PT_TRIANGLE_LIST, 3, user, sizeof(ColourVertex), declaration.get(), 1);
    rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 6, userIndices, CHardwareIndexBuffer::IT_16BIT, user,
                               sizeof(ColourVertex), declaration.get(), 1);
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
    kvproxy::Mark mark = kvproxy::Here();
    rs->BeginEvent("Shadow pass");
    rs->SetMarker("cascade 2");
    rs->EndEvent();
    rs->BeginEvent("");
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark);
    ASSERT_EQ(4u, calls.size()) << kvproxy::Describe(calls);
    EXPECT_EQ(Method::D3DPERF_BeginEvent, kvproxy::MethodOf(calls[0]));
    EXPECT_EQ(0x01000100u, calls[0].args[0]);
    EXPECT_EQ(L"Shadow pass", kvproxy::TextOf(calls[0]));
    EXPECT_EQ(Method::D3DPERF_SetMarker, kvproxy::MethodOf(calls[1]));
    EXPECT_EQ(0x01000100u, calls[1].args[0]);
    EXPECT_EQ(L"cascade 2", kvproxy::TextOf(calls[1]));
    EXPECT_EQ(Method::D3DPERF_EndEvent, kvproxy::MethodOf(calls[2]));
    EXPECT_EQ(L"", kvproxy::TextOf(calls[3]));
    rs->EndEvent();
}
