// Hardware vertex and index buffers and vertex declarations: pool and usage,
// data in and out within range, refused creation, and the pools at a lost device.
#include "KvDeviceTest.h"

#include "D3D9ResourceManager.h"

#include <cstring>

using namespace kv;
using namespace kvtest;
using kvproxy::Method;

namespace
{

typedef KvDeviceTest Buffers;

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
    // No FVF: layouts come from declarations. Dynamic becomes Direct3D dynamic only
    // with discardable, and discardable alone takes the default pool.
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

    // Told at every attempt to reset: twice without a reset between. Only the
    // default pool goes and is made again, empty; the others keep their buffers
    // and content. The end of the device releases every pool.
    vbs[1]->WriteData(0, 16, Bytes(16, 9).data(), false);
    IDirect3DVertexBuffer9* managedNative = D3D(vbs[1].get())->m_pD3D9VertexBuffer;
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
    EXPECT_EQ(managedNative, D3D(vbs[1].get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(Bytes(16, 9), Read(*vbs[1], 0, 16));
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
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());

    // Ranges outside the buffer touch nothing; a copy from a refused range copies
    // nothing; a refused lock leaves the flag alone.
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
    EXPECT_EQ((std::vector<std::string>{
                  "(length:16 + offset:8) > mSizeInBytes:16", "Failed to CD3D9HardwareVertexBuffer::WriteData",
                  "(length:16 + offset:4) > mSizeInBytes:16", "Failed to CD3D9HardwareVertexBuffer::ReadData",
                  "(length:4 + offset:2) > mSizeInBytes:4", "Failed to CD3D9HardwareIndexBuffer::ReadData",
                  "(length:1 + offset:4) > mSizeInBytes:4", "Failed to CD3D9HardwareIndexBuffer::WriteData",
                  "(length:8 + offset:12) > mSizeInBytes:16", "(length:16 + offset:1) > mSizeInBytes:16"}),
              Errors());
}

TEST_F(Buffers, RefusedBuffersAreLoggedAndOnlyTheDefaultPoolIsMadeAtTheNextReset)
{
    // A refused creation is logged and leaves a live object without its native
    // buffer; only the default pool is tried again when the device comes back.
    kvproxy::FailMethod(Method::CreateVertexBuffer, E_OUTOFMEMORY, 2);
    kvproxy::FailMethod(Method::CreateIndexBuffer, D3DERR_OUTOFVIDEOMEMORY, 1);
    ref_ptr<CHardwareVertexBuffer> deflt = Vertices(rs, 4, CHardwareBuffer::USAGE_DISCARDABLE, Bytes(16, 0).data());
    ref_ptr<CHardwareVertexBuffer> managed = Vertices(rs, 4, CHardwareBuffer::USAGE_STATIC);
    ref_ptr<CHardwareIndexBuffer> refused = Indices(rs, 4, CHardwareBuffer::USAGE_STATIC);
    ASSERT_TRUE(deflt && managed && refused);
    EXPECT_EQ(Call("", 0, 0, 0, D3DPOOL_DEFAULT, D3DPOOL_MANAGED),
              Call("", kvproxy::PtrArg(D3D(deflt.get())->m_pD3D9VertexBuffer),
                   kvproxy::PtrArg(D3D(managed.get())->m_pD3D9VertexBuffer),
                   kvproxy::PtrArg(D3D(refused.get())->m_pD3D9IndexBuffer), D3D(deflt.get())->m_d3dDesc.Pool,
                   D3D(managed.get())->m_d3dDesc.Pool));
    const std::string verify = VerifyLine(E_OUTOFMEMORY, "Failed to CreateVertexBuffer");
    EXPECT_EQ((std::vector<std::string>{verify, "Failed to CD3D9HardwareVertexBuffer::CreateBuffer", verify,
                                        "Failed to CD3D9HardwareVertexBuffer::CreateBuffer",
                                        VerifyLine(D3DERR_OUTOFVIDEOMEMORY, "Failed to CreateIndexBuffer"),
                                        "Failed to CD3D9HardwareIndexBuffer::CreateBuffer"}),
              Errors());
    d3d->GetResourceManager()->notifyOnDeviceLost();
    d3d->GetResourceManager()->notifyOnDeviceReset();
    EXPECT_NE(nullptr, D3D(deflt.get())->m_pD3D9VertexBuffer);
    EXPECT_TRUE(D3D(managed.get())->m_pD3D9VertexBuffer == nullptr &&
                D3D(refused.get())->m_pD3D9IndexBuffer == nullptr);
}

// ---- vertex declarations

TEST_F(Buffers, DeclarationElementsReachTheDeviceTranslatedAndLiveWithIt)
{
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

} // namespace
