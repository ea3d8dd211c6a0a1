// Hardware vertex and index buffers and vertex declarations: pool and usage by
// the buffer's usage, locks and the flags they hand the device, reading,
// writing and copying with their range checks, the elements the device holds,
// and how each pool goes through a lost device.
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
        // The description is what the device made.
        const D3DVERTEXBUFFER_DESC& vd = D3D(vbs.back().get())->m_d3dDesc;
        const D3DINDEXBUFFER_DESC& id = D3D(ibs.back().get())->m_d3dDesc;
        EXPECT_EQ(Call("", c.pool, c.d3dUsage, 160, c.pool, D3DFMT_INDEX32),
                  Call("", vd.Pool, vd.Usage, vd.Size, id.Pool, id.Format));
    }
    // Sixteen-bit indices for every other type; the system-memory flag takes the
    // system pool, still with the dynamic usage of a dynamic, discardable buffer.
    mark = kvproxy::Here();
    EXPECT_EQ(12u, Indices(rs, 6, CHardwareBuffer::USAGE_STATIC)->mSizeInBytes);
    ref_ptr<CD3D9HardwareVertexBuffer> sys(new CD3D9HardwareVertexBuffer(
        8, 4, static_cast<CHardwareBuffer::Usage>(CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_DISCARDABLE),
        true, nullptr));
    ref_ptr<CD3D9HardwareIndexBuffer> sysIndices(
        new CD3D9HardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 4, CHardwareBuffer::USAGE_STATIC, true, nullptr));
    EXPECT_EQ(Join(Call("CreateIndexBuffer", 12, 0, D3DFMT_INDEX16, D3DPOOL_MANAGED),
                   Call("CreateVertexBuffer", 32, D3DUSAGE_DYNAMIC, 0, D3DPOOL_SYSTEMMEM),
                   Call("CreateIndexBuffer", 8, 0, D3DFMT_INDEX16, D3DPOOL_SYSTEMMEM)),
              Trace(mark, {}, 4));

    // Told at every attempt to reset: twice without a reset between. Only the
    // default pool goes and is made again, empty; the others keep their buffers
    // and content. The end of the device releases every pool.
    vbs[1]->WriteData(0, 16, Bytes(16, 9).data(), false);
    std::vector<void*> natives;
    for (size_t i = 0; i < 4; ++i)
        natives.push_back(D3D(vbs[i].get())->m_pD3D9VertexBuffer);
    IDirect3DVertexBuffer9* sysNative = sys->m_pD3D9VertexBuffer;
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
    EXPECT_EQ(natives[1], D3D(vbs[1].get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(sysNative, sys->m_pD3D9VertexBuffer);
    EXPECT_EQ(Bytes(16, 9), Read(*vbs[1], 0, 16));
    EXPECT_NE(nullptr, vbs[0]->Lock(CHardwareBuffer::LOCK_DISCARD));
    vbs[0]->Unlock();
    manager->notifyOnDeviceDestroy();
    EXPECT_TRUE(D3D(vbs[1].get())->m_pD3D9VertexBuffer == nullptr && sys->m_pD3D9VertexBuffer == nullptr &&
                D3D(ibs[3].get())->m_pD3D9IndexBuffer == nullptr);
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
    // Initial data fills a buffer without leaving it locked; a copy takes the
    // shorter length; the range form goes between vertex and index buffers and
    // leaves the source unlocked.
    ref_ptr<CHardwareIndexBuffer> initial = IndexBuffer16({0, 1, 2, 2, 1, 0});
    EXPECT_FALSE(initial->IsLocked());
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 1, 0, 2, 0, 2, 0, 1, 0, 0, 0}), Read(*initial, 0, 12));
    ref_ptr<CHardwareVertexBuffer> longer = Vertices(rs, 8, CHardwareBuffer::USAGE_STATIC, Bytes(32, 100).data());
    ref_ptr<CHardwareVertexBuffer> shorter = Vertices(rs, 4, CHardwareBuffer::USAGE_STATIC, Bytes(16, 0).data());
    shorter->CopyData(*longer);
    EXPECT_EQ(Bytes(16, 100), Read(*shorter, 0, 16));
    ref_ptr<CHardwareVertexBuffer> target = Vertices(rs, 8, CHardwareBuffer::USAGE_STATIC, Bytes(32, 0).data());
    target->CopyData(*shorter);
    EXPECT_EQ(Bytes(16, 100), Read(*target, 0, 16));
    EXPECT_EQ(Bytes(16, 16), Read(*target, 16, 16));
    ref_ptr<CHardwareIndexBuffer> copy = Indices(rs, 4, CHardwareBuffer::USAGE_STATIC);
    copy->CopyData(*longer, 8, 2, 4, false);
    EXPECT_FALSE(longer->IsLocked());
    EXPECT_EQ(Bytes(4, 108), Read(*copy, 2, 4));
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

TEST_F(Buffers, WithoutANativeBufferLocksFailAndRefusedOnesAreMadeAtTheNextReset)
{
    const unsigned dynamic = CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_DISCARDABLE;
    ref_ptr<CHardwareVertexBuffer> vb = Vertices(rs, 4, dynamic, Bytes(16, 1).data());
    ref_ptr<CHardwareIndexBuffer> ib = Indices(rs, 8, dynamic);
    d3d->GetResourceManager()->notifyOnDeviceLost();
    // The engine's flag is set all the same.
    EXPECT_EQ(nullptr, vb->Lock(CHardwareBuffer::LOCK_NORMAL));
    EXPECT_TRUE(vb->IsLocked());
    vb->Unlock();
    EXPECT_FALSE(vb->IsLocked());
    std::vector<uint8_t> out = Read(*vb, 0, 16);
    ib->WriteData(0, 4, out.data(), true);
    EXPECT_EQ(std::vector<uint8_t>(16, 0xEE), out);
    EXPECT_EQ((std::vector<std::string>{"Failed to CD3D9HardwareVertexBuffer::LockImpl, as m_pD3D9VertexBuffer is NULL",
                                        "Failed to CD3D9HardwareVertexBuffer::LockImpl, as m_pD3D9VertexBuffer is NULL",
                                        "Failed to CD3D9HardwareVertexBuffer::ReadData",
                                        "Failed to CD3D9HardwareIndexBuffer::LockImpl, as m_pD3D9IndexBuffer is NULL",
                                        "Failed to CD3D9HardwareIndexBuffer::WriteData"}),
              Errors());
    d3d->GetResourceManager()->notifyOnDeviceReset();
    ClearLog();

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

    // A buffer is in the registry while it lives.
    D3D9ResourceManager* manager = d3d->GetResourceManager();
    const size_t count = manager->GetResourceCount();
    {
        ref_ptr<CHardwareIndexBuffer> temporary = Indices(rs, 4, CHardwareBuffer::USAGE_STATIC);
        EXPECT_EQ(count + 1, manager->GetResourceCount());
        EXPECT_EQ(D3D(temporary.get()), manager->GetResource(D3D(temporary.get())->m_nResourceIndex));
    }
    EXPECT_EQ(count, manager->GetResourceCount());
}

// ---- the flags each lock hands to the device. The native buffers are the
// runtime's own objects, which the recording d3d9.dll does not wrap, so their
// Lock is watched at the method table that all buffers of a kind share.

const unsigned kLockSlot = 11; // IUnknown (3), IDirect3DResource9 (8), then Lock
std::string g_locks;
typedef HRESULT(STDMETHODCALLTYPE* VertexLockFn)(IDirect3DVertexBuffer9*, UINT, UINT, void**, DWORD);
typedef HRESULT(STDMETHODCALLTYPE* IndexLockFn)(IDirect3DIndexBuffer9*, UINT, UINT, void**, DWORD);
VertexLockFn g_vertexLock = nullptr;
IndexLockFn g_indexLock = nullptr;

HRESULT STDMETHODCALLTYPE WatchedVertexLock(IDirect3DVertexBuffer9* b, UINT offset, UINT length, void** data,
                                            DWORD flags)
{
    g_locks = Join(g_locks, Call("Lock", offset, length, flags));
    return g_vertexLock(b, offset, length, data, flags);
}

HRESULT STDMETHODCALLTYPE WatchedIndexLock(IDirect3DIndexBuffer9* b, UINT offset, UINT length, void** data, DWORD flags)
{
    g_locks = Join(g_locks, Call("Lock", offset, length, flags));
    return g_indexLock(b, offset, length, data, flags);
}

// Puts entry into slot of the object's method table; answers the one it replaced.
void* SwapSlot(void* object, unsigned slot, void* entry)
{
    void** table = *static_cast<void***>(object);
    DWORD protection = 0;
    if (!VirtualProtect(&table[slot], sizeof(void*), PAGE_READWRITE, &protection))
        return nullptr;
    void* previous = table[slot];
    table[slot] = entry;
    VirtualProtect(&table[slot], sizeof(void*), protection, &protection);
    return previous;
}

TEST_F(Buffers, OnlyDynamicDiscardableBuffersDiscardOrAppendAndReadsAreReadOnly)
{
    // Any buffer of each kind opens the shared table.
    ref_ptr<CHardwareVertexBuffer> probeVertices = Vertices(rs, 1, CHardwareBuffer::USAGE_STATIC);
    ref_ptr<CHardwareIndexBuffer> probeIndices = Indices(rs, 2, CHardwareBuffer::USAGE_STATIC);
    void* vertexObject = D3D(probeVertices.get())->m_pD3D9VertexBuffer;
    void* indexObject = D3D(probeIndices.get())->m_pD3D9IndexBuffer;
    ASSERT_TRUE(vertexObject && indexObject);
    g_vertexLock =
        reinterpret_cast<VertexLockFn>(SwapSlot(vertexObject, kLockSlot, reinterpret_cast<void*>(&WatchedVertexLock)));
    g_indexLock =
        reinterpret_cast<IndexLockFn>(SwapSlot(indexObject, kLockSlot, reinterpret_cast<void*>(&WatchedIndexLock)));
    ASSERT_TRUE(g_vertexLock && g_indexLock);
    g_locks.clear();

    uint8_t bytes[24] = {};
    ref_ptr<CHardwareVertexBuffer> streaming = Vertices(rs, 4, kStreaming);
    ref_ptr<CHardwareVertexBuffer> dynamicOnly = Vertices(rs, 4, CHardwareBuffer::USAGE_DYNAMIC);
    streaming->WriteData(0, 16, bytes, true);
    streaming->WriteData(4, 8, bytes, false);
    EXPECT_NE(nullptr, streaming->Lock(8, 8, CHardwareBuffer::LOCK_NO_OVERWRITE));
    streaming->Unlock();
    dynamicOnly->WriteData(0, 16, bytes, true);
    EXPECT_NE(nullptr, dynamicOnly->Lock(0, 4, CHardwareBuffer::LOCK_NO_OVERWRITE));
    dynamicOnly->Unlock();
    // Reads are read-only unless the buffer is write-only.
    Indices(rs, 4, CHardwareBuffer::USAGE_STATIC)->ReadData(0, 8, bytes);
    Indices(rs, 4, CHardwareBuffer::USAGE_WRITE_ONLY)->ReadData(0, 8, bytes);
    // Initial data takes one plain lock of the whole buffer.
    ref_ptr<CHardwareVertexBuffer> vb = rs->CreateHardwareVertexBuffer(8, 3, kStreaming, bytes);
    ref_ptr<CHardwareIndexBuffer> ib = Indices(rs, 6, kStreaming, bytes, CHardwareIndexBuffer::IT_32BIT);
    SwapSlot(vertexObject, kLockSlot, reinterpret_cast<void*>(g_vertexLock));
    SwapSlot(indexObject, kLockSlot, reinterpret_cast<void*>(g_indexLock));
    EXPECT_EQ(Join(Call("Lock", 0, 16, D3DLOCK_DISCARD), Call("Lock", 4, 8, 0), Call("Lock", 8, 8, D3DLOCK_NOOVERWRITE),
                   Call("Lock", 0, 16, 0), Call("Lock", 0, 4, 0), Call("Lock", 0, 8, D3DLOCK_READONLY),
                   Call("Lock", 0, 8, 0), Call("Lock", 0, 24, 0), Call("Lock", 0, 24, 0)),
              g_locks);
    EXPECT_FALSE(vb->IsLocked() || ib->IsLocked());
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
    // An empty declaration is the end mark alone.
    for (int count : {0, -3})
        EXPECT_EQ("(255,0,17,0,0,0)", described(Native(rs->CreateVertexDeclaration(nullptr, count).get()))) << count;
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());

    // The native declaration outlives resets and goes with the device.
    IDirect3DVertexDeclaration9* native = Native(declaration.get());
    mark = kvproxy::Here();
    d3d->GetResourceManager()->notifyOnDeviceLost();
    d3d->GetResourceManager()->notifyOnDeviceReset();
    EXPECT_EQ(native, Native(declaration.get()));
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::CreateVertexDeclaration));
    d3d->GetResourceManager()->notifyOnDeviceDestroy();
    EXPECT_EQ(nullptr, Native(declaration.get()));
    // A refused creation leaves a live object without its native part; the engine's copy stays.
    kvproxy::FailMethod(Method::CreateVertexDeclaration, E_OUTOFMEMORY, 1);
    ref_ptr<CVertexDeclaration> refused = ColourDeclaration();
    ASSERT_TRUE(refused);
    EXPECT_EQ(nullptr, Native(refused.get()));
    EXPECT_EQ(std::vector<std::string>{VerifyLine(E_OUTOFMEMORY, "CreateVertexDeclaration")}, Errors());
    EXPECT_EQ(2, refused->GetElementCount());
}

} // namespace
