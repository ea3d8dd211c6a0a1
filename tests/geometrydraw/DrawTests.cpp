// Streams, indices and declarations bound through their shadows, the three draw
// forms, instancing through the stream frequencies, the frame statistics and
// the profiler's texts.
#include "KvDeviceTest.h"

using namespace kv;
using namespace kvtest;
using kvproxy::Method;

namespace
{

struct Draws : KvDeviceTest
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
        vb = kvproxy::PtrArg(D3D(buffer.get())->m_pD3D9VertexBuffer);
        ib = kvproxy::PtrArg(D3D(indices.get())->m_pD3D9IndexBuffer);
        decl = kvproxy::PtrArg(Native(declaration.get()));
        mark = kvproxy::Here();
    }
    // The frame statistics: primitives, vertices, draw calls; GUI primitives,
    // vertices, draw calls; extra instances; vertex binds and bytes; index binds and bytes.
    std::string Counts()
    {
        const CTimer& t = Timer();
        return Call("", t.m_nPrimitiveCount, t.m_nVertexCount, t.m_nDrawCallCount, t.m_nGUIPrimitiveCount,
                    t.m_nGUIVertexCount, t.m_nGUIDrawCallCount, t.m_nExtraInstances, t.m_nVBBinds, t.m_nVBBytes,
                    t.m_nIBBinds, t.m_nIBBytes);
    }
    // The device calls since the last step, then a new step.
    std::string Step(std::initializer_list<Method> only = {}, unsigned args = 8)
    {
        const std::string s = Trace(mark, only, args);
        mark = kvproxy::Here();
        return s;
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

    ref_ptr<CVertexDeclaration> declaration;
    ref_ptr<CHardwareVertexBuffer> buffer;
    ref_ptr<CHardwareIndexBuffer> indices;
    ref_ptr<CVertexData> data;
    uint64_t vb = 0, ib = 0, decl = 0;
    ColourVertex user[6] = {};
    uint16_t userIndices[6] = {0, 1, 2, 2, 1, 3};
};

const unsigned kStride = sizeof(ColourVertex);

TEST_F(Draws, StreamsAndIndicesBindThroughTheirShadows)
{
    // The stride alone does not rebind; another offset does. Stream two and above
    // is refused before the device.
    rs->SetVertexBuffer(data.get());
    rs->SetVertexBuffers(0, data.get(), 0);
    buffer->mElementSize = 32;
    rs->SetVertexBuffer(data.get());
    buffer->mElementSize = kStride;
    rs->SetVertexBuffers(0, data.get(), 16);
    rs->SetVertexBuffers(2, data.get(), 0);
    rs->SetVertexBuffers(7, data.get(), 0);
    EXPECT_EQ(Join(Call("SetVertexDeclaration", decl), Call("SetStreamSource", 0, vb, 0, kStride),
                   Call("SetStreamSource", 0, vb, 16, kStride)),
              Step());
    EXPECT_EQ(Call("", 0, 0, 0, 0, 0, 0, 0, 2, 16 * kStride, 0, 0), Counts());
    EXPECT_EQ(
        (std::vector<std::string>{"Failed to CD3D9RenderSystem::SetVertexBuffers, Too many vertex buffers:2 > 2",
                                  "Failed to CD3D9RenderSystem::SetVertexBuffers, Too many vertex buffers:7 > 2"}),
        Errors());
    ClearLog();

    // Indices likewise, counted; data without buffer or declaration unbinds, and so does null.
    ref_ptr<CHardwareIndexBuffer> other = IndexBuffer16({0, 1, 2});
    Timer().Reset();
    Step();
    rs->SetIndexBuffer(indices.get());
    rs->SetIndexBuffer(indices.get());
    rs->SetIndexBuffer(other.get());
    rs->SetVertexBuffer(rs->CreateVertexData().get());
    rs->SetVertexBuffer(nullptr);
    rs->SetIndexBuffer(nullptr);
    EXPECT_EQ(Join(Call("SetIndices", ib), Call("SetIndices", kvproxy::PtrArg(D3D(other.get())->m_pD3D9IndexBuffer)),
                   Call("SetVertexDeclaration", 0), Call("SetStreamSource", 0, 0, 0, 0), Call("SetIndices", 0)),
              Step());
    EXPECT_EQ(Call("", 0, 0, 0, 0, 0, 0, 0, 1, 0, 3, 18 + 6), Counts());
}

TEST_F(Draws, EachFormTakesItsCountFromIndicesOrVertices)
{
    rs->SetVertexBuffer(data.get());
    rs->SetIndexBuffer(indices.get());
    Timer().Reset();
    Step();
    // Frequencies stand at 1 already: the draw alone.
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), IndexData(indices.get(), 3, 3).get(), 1, false);
    rs->DrawPrimitive(PT_TRIANGLE_STRIP, data.get(), nullptr, 1, false);
    rs->DrawPrimitive(PT_POINT_LIST, data.get(), nullptr, 1, false);
    rs->DrawPrimitive(PT_TRIANGLE_FAN, data.get(), nullptr, 1, false);
    rs->DrawPrimitive(PT_LINE_STRIP, data.get(), nullptr, 1, false);
    EXPECT_EQ(Join(Call("DrawIndexedPrimitive", D3DPT_TRIANGLELIST, 2, 0, 4, 3, 1),
                   Call("DrawPrimitive", D3DPT_TRIANGLESTRIP, 2, 2), Call("DrawPrimitive", D3DPT_POINTLIST, 2, 4),
                   Call("DrawPrimitive", D3DPT_TRIANGLEFAN, 2, 2), Call("DrawPrimitive", D3DPT_LINESTRIP, 2, 3)),
              Step());
    EXPECT_EQ(Call("", 1 + 2 + 4 + 2, 16, 4, 0, 0, 0, 0, 0, 0, 0, 0), Counts());

    // From user memory, instances only scale the statistics; stream 0 is unbound
    // by the runtime after it, so the same binding must go again.
    Timer().Reset();
    d3d->_setStreamFrequency(0, 0x40000004);
    Step();
    DrawUP(PT_TRIANGLE_FAN, 5, 3);
    DrawUP(PT_LINE_LIST, 4);
    EXPECT_EQ(Join(Call("SetStreamSourceFreq", 0, 1),
                   Call("DrawPrimitiveUP", D3DPT_TRIANGLEFAN, 3, kvproxy::PtrArg(user), kStride),
                   Call("DrawPrimitiveUP", D3DPT_LINELIST, 2, kvproxy::PtrArg(user), kStride)),
              Step());
    EXPECT_EQ(Call("", 9 + 2, 9, 2, 0, 0, 0, 0, 2, 9 * kStride, 0, 0), Counts());
    rs->SetVertexBuffer(data.get());
    EXPECT_EQ(Call("SetStreamSource", 0, vb, 0, kStride), Step());

    // Indexed from user memory: the index format goes along, and indices are
    // unbound as well; line lists count here.
    uint32_t wide[6] = {0, 1, 2, 2, 1, 3};
    Timer().Reset();
    DrawIndexedUP(PT_TRIANGLE_LIST, 4, 6, wide, CHardwareIndexBuffer::IT_32BIT);
    DrawIndexedUP(PT_TRIANGLE_LIST, 4, 6);
    DrawIndexedUP(PT_LINE_LIST, 4, 4);
    EXPECT_EQ(Join(Call("DrawIndexedPrimitiveUP", D3DPT_TRIANGLELIST, 0, 4, 2, kvproxy::PtrArg(wide), D3DFMT_INDEX32,
                        kvproxy::PtrArg(user), kStride),
                   Call("DrawIndexedPrimitiveUP", D3DPT_TRIANGLELIST, 0, 4, 2, kvproxy::PtrArg(userIndices),
                        D3DFMT_INDEX16, kvproxy::PtrArg(user), kStride),
                   Call("DrawIndexedPrimitiveUP", D3DPT_LINELIST, 0, 4, 2, kvproxy::PtrArg(userIndices), D3DFMT_INDEX16,
                        kvproxy::PtrArg(user), kStride)),
              Step());
    EXPECT_EQ(Call("", 4, 8, 2, 0, 0, 0, 0, 2, 8 * kStride, 2, 24 + 12), Counts());
    rs->SetIndexBuffer(indices.get());
    rs->SetVertexBuffer(data.get());
    EXPECT_EQ(Join(Call("SetIndices"), Call("SetStreamSource")), Step({}, 0));
}

TEST_F(Draws, NothingToDrawMakesNoDrawCallAndCountsNothing)
{
    rs->SetVertexBuffer(data.get());
    rs->SetIndexBuffer(indices.get());
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 1, true); // sets the frequencies
    Timer().Reset();
    Step();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), IndexData(indices.get(), 0, 2).get(), 1, false);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, VertexData(declaration.get(), buffer.get(), 0, 0).get(),
                      IndexData(indices.get(), 0, 3).get(), 1, false);
    rs->DrawPrimitive(static_cast<PrimitiveType>(0), data.get(), IndexData(indices.get(), 0, 3).get(), 1, false);
    rs->DrawPrimitive(static_cast<PrimitiveType>(7), data.get(), nullptr, 1, false);
    rs->DrawPrimitive(PT_LINE_STRIP, VertexData(declaration.get(), buffer.get(), 0, 1).get(), nullptr, 1, false);
    // None of these touched the frequencies the instanced draw left.
    EXPECT_EQ("", Step());
    EXPECT_EQ(0x40000001u, d3d->m_streamFrequencies[0]);
    EXPECT_EQ(Call("", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0), Counts());
    // Missing data is reported.
    rs->DrawPrimitive(PT_TRIANGLE_LIST, nullptr, nullptr, 1, false);
    rs->DrawPrimitiveUP(PT_TRIANGLE_LIST, 3, nullptr, kStride, declaration.get(), 1);
    rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 6, nullptr, CHardwareIndexBuffer::IT_16BIT, user, kStride,
                               declaration.get(), 1);
    EXPECT_EQ(
        (std::vector<std::string>{"Failed to CD3D9RenderSystem::DrawPrimitive, no vertex data",
                                  "Failed to CD3D9RenderSystem::DrawPrimitiveUP, no vertex data",
                                  "Failed to CD3D9RenderSystem::DrawIndexedPrimitiveUP, no vertex or index data"}),
        Errors());
}

TEST_F(Draws, InstancingSetsAndRestoresTheFrequenciesAndOnlySolidSceneDrawsCount)
{
    ref_ptr<CIndexData> all = IndexData(indices.get(), 0, 6);
    rs->SetVertexBuffer(data.get());
    rs->SetIndexBuffer(indices.get());
    Timer().Reset();
    Step();
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 10, true);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 10, true); // the frequencies stand
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 1, false); // back to one, once
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 1, false);
    EXPECT_EQ(Join(Call("SetStreamSourceFreq", 0, 0x4000000A), Call("SetStreamSourceFreq", 1, 0x80000001),
                   Call("DrawIndexedPrimitive", 4, 2), Call("DrawIndexedPrimitive", 4, 2),
                   Call("SetStreamSourceFreq", 0, 1), Call("SetStreamSourceFreq", 1, 1),
                   Call("DrawIndexedPrimitive", 4, 2), Call("DrawIndexedPrimitive", 4, 2)),
              Step({Method::SetStreamSourceFreq, Method::DrawIndexedPrimitive}, 2));
    EXPECT_EQ(Call("", 20 + 20 + 2 + 2, 16, 4, 0, 0, 0, 18, 0, 0, 0, 0), Counts());

    // Only solid fill counts, though every mode draws; GUI mode counts into the GUI
    // sums only, and binds and instances have no GUI half.
    Timer().Reset();
    rs->SetFillMode(FILL_WIREFRAME);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 1, false);
    DrawUP(PT_TRIANGLE_LIST, 3);
    DrawIndexedUP(PT_TRIANGLE_LIST, 4, 6);
    rs->SetFillMode(FILL_SOLID);
    EXPECT_EQ(3u, kvproxy::CountSince(mark, Method::DrawPrimitive) +
                      kvproxy::CountSince(mark, Method::DrawPrimitiveUP) +
                      kvproxy::CountSince(mark, Method::DrawIndexedPrimitiveUP));
    EXPECT_EQ(Call("", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0), Counts());
    rs->SetVertexBuffer(data.get());
    rs->SetIndexBuffer(indices.get());
    Timer().Reset();
    g_bInGUIMode = true;
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), all.get(), 2, true);
    DrawUP(PT_TRIANGLE_LIST, 3);
    DrawIndexedUP(PT_TRIANGLE_LIST, 4, 6);
    g_bInGUIMode = false;
    EXPECT_EQ(Call("", 0, 0, 0, 4 + 1 + 2, 4 + 3 + 4, 3, 1, 2, 7 * kStride, 1, 12), Counts());
    // Line lists from hardware buffers do not count.
    rs->SetVertexBuffer(data.get());
    rs->DrawPrimitive(PT_LINE_LIST, data.get(), nullptr, 1, false);
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), nullptr, 1, false);
    EXPECT_EQ(Call("", 1, 4, 1, 4 + 1 + 2, 4 + 3 + 4, 3, 1, 3, 7 * kStride + 8 * kStride, 1, 12), Counts());

    // Refused draws are logged and still counted.
    Timer().Reset();
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
    rs->BeginEvent("Shadow pass");
    rs->SetMarker("cascade 2");
    rs->EndEvent();
    rs->BeginEvent("");
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark);
    ASSERT_EQ(Join(Call("D3DPERF_BeginEvent", 0x01000100u), Call("D3DPERF_SetMarker", 0x01000100u),
                   Call("D3DPERF_EndEvent"), Call("D3DPERF_BeginEvent", 0x01000100u)),
              Trace(mark, {}, 1));
    EXPECT_EQ(std::wstring(L"Shadow pass|cascade 2|"),
              kvproxy::TextOf(calls[0]) + L"|" + kvproxy::TextOf(calls[1]) + L"|" + kvproxy::TextOf(calls[3]));
    rs->EndEvent();
}

} // namespace
