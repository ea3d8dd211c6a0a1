// Vertex and index buffers, declarations, stream binding, draw forms, instancing, frame statistics, profiler texts.
#include "KvDeviceTest.h"

#include "D3D9ResourceManager.h"

using namespace kv;
using namespace kvtest;
using kvproxy::Method;

namespace
{

typedef std::vector<std::string> Lines;

typedef KvDeviceTest Buffers;

const auto P = [](const void* p) { return kvproxy::PtrArg(p); };

const CHardwareBuffer::Usage kStreaming = static_cast<CHardwareBuffer::Usage>(
    CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_WRITE_ONLY | CHardwareBuffer::USAGE_DISCARDABLE);

std::vector<uint8_t> Bytes(unsigned n, uint8_t first)
{
    std::vector<uint8_t> bytes(n);
    for (unsigned i = 0; i < n; ++i)
        bytes[i] = static_cast<uint8_t>(first + i);
    return bytes;
}

std::vector<uint8_t> Read(CHardwareBuffer& b, unsigned offset, unsigned length)
{
    std::vector<uint8_t> out(length, 0xEE);
    b.ReadData(offset, length, out.data());
    return out;
}

ref_ptr<CHardwareVertexBuffer> Vertices(CRenderSystem* rs, unsigned count, unsigned usage, const void* data = nullptr)
{
    return rs->CreateHardwareVertexBuffer(4, count, static_cast<CHardwareBuffer::Usage>(usage), data);
}

ref_ptr<CHardwareIndexBuffer> Indices(CRenderSystem* rs, unsigned count, unsigned usage, const void* data = nullptr,
                                      CHardwareIndexBuffer::IndexType type = CHardwareIndexBuffer::IT_16BIT)
{
    return rs->CreateHardwareIndexBuffer(type, count, static_cast<CHardwareBuffer::Usage>(usage), data);
}

TEST_F(Buffers, PoolAndUsageFollowTheBufferUsageAndOnlyTheDefaultPoolGoesWithTheDevice)
{
    // FVF 0: declarations give layouts. Dynamic is Direct3D's only with discardable, which alone is default-pool.
    const struct
    {
        unsigned usage;
        D3DPOOL pool;
        DWORD d3dUsage;
    } cases[] = {
        {kStreaming, D3DPOOL_DEFAULT, D3DUSAGE_DYNAMIC | D3DUSAGE_WRITEONLY},
        {CHardwareBuffer::USAGE_DYNAMIC, D3DPOOL_MANAGED, 0},
        {CHardwareBuffer::USAGE_DISCARDABLE, D3DPOOL_DEFAULT, 0},
        {CHardwareBuffer::USAGE_STATIC | CHardwareBuffer::USAGE_WRITE_ONLY, D3DPOOL_MANAGED, D3DUSAGE_WRITEONLY}};
    std::vector<ref_ptr<CHardwareVertexBuffer>> vbs;
    std::vector<ref_ptr<CHardwareIndexBuffer>> ibs;
    for (const auto& c : cases)
    {
        mark = kvproxy::Here();
        vbs.push_back(rs->CreateHardwareVertexBuffer(16, 10, static_cast<CHardwareBuffer::Usage>(c.usage), nullptr));
        ibs.push_back(Indices(rs, 30, c.usage, nullptr, CHardwareIndexBuffer::IT_32BIT));
        EXPECT_EQ(Join(Call("CreateVertexBuffer", 160, c.d3dUsage, 0, c.pool),
                       Call("CreateIndexBuffer", 120, c.d3dUsage, D3DFMT_INDEX32, c.pool)),
                  Trace(mark, {}, 4))
            << c.usage;
    }
    // Sixteen-bit indices for every other type.
    EXPECT_EQ(12u, Indices(rs, 6, CHardwareBuffer::USAGE_STATIC)->mSizeInBytes);

    // Told at every attempt to reset: twice without a reset between. Only the default pool goes and is made again,
    // empty; the others keep their buffers. The end of the device releases every pool.
    D3D9ResourceManager* manager = d3d->GetResourceManager();
    manager->notifyOnDeviceLost();
    manager->notifyOnDeviceLost();
    EXPECT_EQ((std::vector<bool>{false, true, false, true}),
              (std::vector<bool>{
                  D3D(vbs[0].get())->m_pD3D9VertexBuffer != nullptr, D3D(vbs[1].get())->m_pD3D9VertexBuffer != nullptr,
                  D3D(ibs[2].get())->m_pD3D9IndexBuffer != nullptr, D3D(ibs[3].get())->m_pD3D9IndexBuffer != nullptr}));
    mark = kvproxy::Here();
    manager->notifyOnDeviceReset();
    EXPECT_EQ(
        Join(Call("CreateVertexBuffer", 160, D3DUSAGE_DYNAMIC | D3DUSAGE_WRITEONLY, 0, D3DPOOL_DEFAULT),
             Call("CreateIndexBuffer", 120, D3DUSAGE_DYNAMIC | D3DUSAGE_WRITEONLY, D3DFMT_INDEX32, D3DPOOL_DEFAULT),
             Call("CreateVertexBuffer", 160, 0, 0, D3DPOOL_DEFAULT),
             Call("CreateIndexBuffer", 120, 0, D3DFMT_INDEX32, D3DPOOL_DEFAULT)),
        Trace(mark, {Method::CreateVertexBuffer, Method::CreateIndexBuffer}, 4));
    EXPECT_NE(nullptr, vbs[0]->Lock(CHardwareBuffer::LOCK_DISCARD));
    vbs[0]->Unlock();
    manager->notifyOnDeviceDestroy();
    EXPECT_TRUE(D3D(vbs[1].get())->m_pD3D9VertexBuffer == nullptr && D3D(ibs[3].get())->m_pD3D9IndexBuffer == nullptr);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Buffers, DataGoesInAndOutWithinTheBufferOnly)
{
    for (unsigned usage : {unsigned(CHardwareBuffer::USAGE_STATIC), unsigned(CHardwareBuffer::USAGE_DYNAMIC),
                           unsigned(CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_DISCARDABLE)})
    {
        ref_ptr<CHardwareVertexBuffer> vb = Vertices(rs, 16, usage);
        std::vector<uint8_t> expected = Bytes(64, 0);
        vb->WriteData(0, 64, expected.data(), false);
        std::vector<uint8_t> part = Bytes(10, 200);
        vb->WriteData(20, 10, part.data(), false);
        std::copy(part.begin(), part.end(), expected.begin() + 20);
        EXPECT_EQ(expected, Read(*vb, 0, 64)) << usage;
        EXPECT_EQ(std::vector<uint8_t>(expected.begin() + 18, expected.begin() + 28), Read(*vb, 18, 10)) << usage;
        ref_ptr<CHardwareIndexBuffer> ib = Indices(rs, 4, usage, nullptr, CHardwareIndexBuffer::IT_32BIT);
        ib->WriteData(0, 16, Bytes(16, 40).data(), true);
        EXPECT_EQ(Bytes(16, 40), Read(*ib, 0, 16)) << usage;
        EXPECT_FALSE(vb->IsLocked() || ib->IsLocked());
    }
    // Initial data fills a buffer without leaving it locked.
    ref_ptr<CHardwareIndexBuffer> initial = IndexBuffer16({0, 1, 2, 2, 1, 0});
    EXPECT_FALSE(initial->IsLocked());
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 1, 0, 2, 0, 2, 0, 1, 0, 0, 0}), Read(*initial, 0, 12));

    // Reads, writes and copies out of range touch nothing; a refused lock leaves the locked flag alone.
    ref_ptr<CHardwareVertexBuffer> vb = Vertices(rs, 4, CHardwareBuffer::USAGE_STATIC, Bytes(16, 1).data());
    std::vector<uint8_t> junk(32, 0x77);
    vb->WriteData(8, 16, junk.data(), false);
    EXPECT_EQ(std::vector<uint8_t>(16, 0xEE), Read(*vb, 4, 16));
    EXPECT_EQ(Bytes(16, 1), Read(*vb, 0, 16));
    ref_ptr<CHardwareIndexBuffer> ib = Indices(rs, 2, CHardwareBuffer::USAGE_STATIC);
    Read(*ib, 2, 4);
    ib->WriteData(4, 1, junk.data(), false);
    ref_ptr<CHardwareVertexBuffer> target = Vertices(rs, 8, CHardwareBuffer::USAGE_STATIC, Bytes(32, 100).data());
    target->CopyData(*vb, 12, 0, 8, false);
    EXPECT_EQ(Bytes(16, 100), Read(*target, 0, 16));
    EXPECT_EQ(nullptr, vb->Lock(1, 16, CHardwareBuffer::LOCK_NORMAL));
    EXPECT_FALSE(vb->IsLocked());
    EXPECT_EQ((Lines{"(length:16 + offset:8) > mSizeInBytes:16", "Failed to CD3D9HardwareVertexBuffer::WriteData",
                     "(length:16 + offset:4) > mSizeInBytes:16", "Failed to CD3D9HardwareVertexBuffer::ReadData",
                     "(length:4 + offset:2) > mSizeInBytes:4", "Failed to CD3D9HardwareIndexBuffer::ReadData",
                     "(length:1 + offset:4) > mSizeInBytes:4", "Failed to CD3D9HardwareIndexBuffer::WriteData",
                     "(length:8 + offset:12) > mSizeInBytes:16", "(length:16 + offset:1) > mSizeInBytes:16"}),
              Errors());
}

TEST_F(Buffers, RefusedBuffersAreLoggedOnlyTheDefaultPoolIsMadeAtTheNextResetAndDeclarationsTranslate)
{
    // A refused creation is logged and leaves a live object without its native buffer; only the default pool is tried
    // again when the device comes back.
    kvproxy::FailMethod(Method::CreateVertexBuffer, E_OUTOFMEMORY, 2);
    kvproxy::FailMethod(Method::CreateIndexBuffer, D3DERR_OUTOFVIDEOMEMORY, 1);
    ref_ptr<CHardwareVertexBuffer> deflt = Vertices(rs, 4, CHardwareBuffer::USAGE_DISCARDABLE, Bytes(16, 0).data());
    ref_ptr<CHardwareVertexBuffer> managed = Vertices(rs, 4, CHardwareBuffer::USAGE_STATIC);
    ref_ptr<CHardwareIndexBuffer> refused = Indices(rs, 4, CHardwareBuffer::USAGE_STATIC);
    ASSERT_TRUE(deflt && managed && refused);
    EXPECT_EQ(Call("", 0, 0, 0, D3DPOOL_DEFAULT, D3DPOOL_MANAGED),
              Call("", P(D3D(deflt.get())->m_pD3D9VertexBuffer), P(D3D(managed.get())->m_pD3D9VertexBuffer),
                   P(D3D(refused.get())->m_pD3D9IndexBuffer), D3D(deflt.get())->m_d3dDesc.Pool,
                   D3D(managed.get())->m_d3dDesc.Pool));
    const std::string verify = VerifyLine(E_OUTOFMEMORY, "Failed to CreateVertexBuffer");
    EXPECT_EQ((Lines{verify, "Failed to CD3D9HardwareVertexBuffer::CreateBuffer", verify,
                     "Failed to CD3D9HardwareVertexBuffer::CreateBuffer",
                     VerifyLine(D3DERR_OUTOFVIDEOMEMORY, "Failed to CreateIndexBuffer"),
                     "Failed to CD3D9HardwareIndexBuffer::CreateBuffer"}),
              Errors());
    d3d->GetResourceManager()->notifyOnDeviceLost();
    d3d->GetResourceManager()->notifyOnDeviceReset();
    EXPECT_NE(nullptr, D3D(deflt.get())->m_pD3D9VertexBuffer);
    EXPECT_TRUE(D3D(managed.get())->m_pD3D9VertexBuffer == nullptr &&
                D3D(refused.get())->m_pD3D9IndexBuffer == nullptr);

    ClearLog();
    const VertexElement elements[] = {
        VertexElement(0, 0, VET_FLOAT3, VES_POSITION), VertexElement(0, 12, VET_FLOAT3, VES_NORMAL),
        VertexElement(0, 24, VET_COLOUR, VES_COLOUR), VertexElement(0, 28, VET_FLOAT2, VES_TEXTURE_COORDINATES, 3),
        VertexElement(1, 0, VET_UBYTE4, VES_BLEND_INDICES),
        VertexElement(1, 4, VET_SHORT2N, VES_TEXTURE_COORDINATES, 1), VertexElement(1, 8, VET_HALF4, VES_TANGENT),
        // Wide fields keep their low bits: offset 0x10010 keeps 16, usage index 0x102 keeps 2.
        VertexElement(1, 0x10010u, VET_FLOAT2, VES_TEXTURE_COORDINATES, 0x102)};
    mark = kvproxy::Here();
    ref_ptr<CVertexDeclaration> declaration = rs->CreateVertexDeclaration(elements, 8);
    ref_ptr<CVertexDeclaration> again = rs->CreateVertexDeclaration(elements, 8);
    EXPECT_EQ(2u, kvproxy::CountSince(mark, Method::CreateVertexDeclaration)) << "each call makes a new one";
    // Stream offset type method usage index, and the end mark.
    auto described = [](IDirect3DVertexDeclaration9* d) {
        D3DVERTEXELEMENT9 e[16];
        UINT count = 16;
        if (!d || FAILED(d->GetDeclaration(e, &count)))
            return std::string("none");
        std::string s;
        for (UINT i = 0; i < count; ++i)
            s = Join(s, Call("", e[i].Stream, e[i].Offset, e[i].Type, e[i].Method, e[i].Usage, e[i].UsageIndex));
        return s;
    };
    EXPECT_EQ("(0,0,2,0,0,0) (0,12,2,0,3,0) (0,24,4,0,10,0) (0,28,1,0,5,3) (1,0,5,0,2,0) (1,4,9,0,5,1) (1,8,16,0,6,0) "
              "(1,16,1,0,5,2) (255,0,17,0,0,0)",
              described(Native(declaration.get())));
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

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
        vb = P(D3D(buffer.get())->m_pD3D9VertexBuffer);
        ib = P(D3D(indices.get())->m_pD3D9IndexBuffer);
        decl = P(Native(declaration.get()));
        mark = kvproxy::Here();
    }
    // The frame statistics: primitives, vertices, draw calls; GUI primitives, vertices, draw calls; extra instances;
    // vertex binds and bytes; index binds and bytes.
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
    // The stride alone does not rebind; another offset does. Stream two and above is refused before the device.
    rs->SetVertexBuffer(data.get());
    rs->SetVertexBuffers(0, data.get(), 0);
    buffer->mElementSize = 32;
    rs->SetVertexBuffer(data.get());
    buffer->mElementSize = kStride;
    rs->SetVertexBuffers(0, data.get(), 16);
    rs->SetVertexBuffers(2, data.get(), 0);
    EXPECT_EQ(Join(Call("SetVertexDeclaration", decl), Call("SetStreamSource", 0, vb, 0, kStride),
                   Call("SetStreamSource", 0, vb, 16, kStride)),
              Step());
    EXPECT_EQ(Call("", 0, 0, 0, 0, 0, 0, 0, 2, 16 * kStride, 0, 0), Counts());
    EXPECT_EQ(Lines{"Failed to CD3D9RenderSystem::SetVertexBuffers, Too many vertex buffers:2 > 2"}, Errors());
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
    EXPECT_EQ(Join(Call("SetIndices", ib), Call("SetIndices", P(D3D(other.get())->m_pD3D9IndexBuffer)),
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

    // From user memory, instances only scale the statistics; stream 0 is unbound by the runtime after it, so the same
    // binding must go again.
    Timer().Reset();
    d3d->_setStreamFrequency(0, 0x40000004);
    Step();
    DrawUP(PT_TRIANGLE_FAN, 5, 3);
    DrawUP(PT_LINE_LIST, 4);
    EXPECT_EQ(Join(Call("SetStreamSourceFreq", 0, 1), Call("DrawPrimitiveUP", D3DPT_TRIANGLEFAN, 3, P(user), kStride),
                   Call("DrawPrimitiveUP", D3DPT_LINELIST, 2, P(user), kStride)),
              Step());
    EXPECT_EQ(Call("", 9 + 2, 9, 2, 0, 0, 0, 0, 2, 9 * kStride, 0, 0), Counts());
    rs->SetVertexBuffer(data.get());
    EXPECT_EQ(Call("SetStreamSource", 0, vb, 0, kStride), Step());

    // Indexed from user memory: the index format goes along, and indices are unbound as well; line lists do not count.
    uint32_t wide[6] = {0, 1, 2, 2, 1, 3};
    Timer().Reset();
    DrawIndexedUP(PT_TRIANGLE_LIST, 4, 6, wide, CHardwareIndexBuffer::IT_32BIT);
    DrawIndexedUP(PT_TRIANGLE_LIST, 4, 6);
    DrawIndexedUP(PT_LINE_LIST, 4, 4);
    EXPECT_EQ(
        Join(Call("DrawIndexedPrimitiveUP", D3DPT_TRIANGLELIST, 0, 4, 2, P(wide), D3DFMT_INDEX32, P(user), kStride),
             Call("DrawIndexedPrimitiveUP", D3DPT_TRIANGLELIST, 0, 4, 2, P(userIndices), D3DFMT_INDEX16, P(user),
                  kStride),
             Call("DrawIndexedPrimitiveUP", D3DPT_LINELIST, 0, 4, 2, P(userIndices), D3DFMT_INDEX16, P(user), kStride)),
        Step());
    EXPECT_EQ(Call("", 4, 8, 2, 0, 0, 0, 0, 2, 8 * kStride, 2, 24 + 12), Counts());
    rs->SetIndexBuffer(indices.get());
    rs->SetVertexBuffer(data.get());
    EXPECT_EQ(Join(Call("SetIndices"), Call("SetStreamSource")), Step({}, 0));
}

TEST_F(Draws, ProfilerTextsGoAlongAndNothingToDrawMakesNoDrawCallAndCountsNothing)
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
    EXPECT_EQ(Call("", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0), Counts());
    // Missing data is reported.
    rs->DrawPrimitive(PT_TRIANGLE_LIST, nullptr, nullptr, 1, false);
    rs->DrawPrimitiveUP(PT_TRIANGLE_LIST, 3, nullptr, kStride, declaration.get(), 1);
    rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 6, nullptr, CHardwareIndexBuffer::IT_16BIT, user, kStride,
                               declaration.get(), 1);
    EXPECT_EQ((Lines{"Failed to CD3D9RenderSystem::DrawPrimitive, no vertex data",
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

    // Only solid fill counts, though every mode draws; GUI mode counts into the GUI sums only, and binds and instances
    // have no GUI half.
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
    EXPECT_EQ((Lines{VerifyLine(D3DERR_INVALIDCALL, "Failed to DrawIndexedPrimitive"),
                     VerifyLine(D3DERR_INVALIDCALL, "Failed to DrawPrimitive"),
                     VerifyLine(D3DERR_INVALIDCALL, "Failed to DrawPrimitiveUP"),
                     VerifyLine(D3DERR_INVALIDCALL, "Failed to DrawIndexedPrimitiveUp")}),
              Errors());
    EXPECT_EQ(4u, Timer().m_nDrawCallCount);
    EXPECT_EQ(1u + 1u + 1u + 2u, Timer().m_nPrimitiveCount);
}

} // namespace
