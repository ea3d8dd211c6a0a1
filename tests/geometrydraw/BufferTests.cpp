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

template <class Buffer>
std::vector<uint8_t> Read(Buffer& b, unsigned offset, unsigned length)
{
    std::vector<uint8_t> out(length, 0xEE);
    b->ReadData(offset, length, out.data());
    return out;
}

ref_ptr<CHardwareVertexBuffer> Vertices(CRenderSystem* rs, unsigned count, unsigned usage, const void* data = nullptr)
{
    return rs->CreateHardwareVertexBuffer(4, count, static_cast<CHardwareBuffer::Usage>(usage), data);
}

ref_ptr<CHardwareIndexBuffer> Indices16(CRenderSystem* rs, unsigned count, unsigned usage, const void* data = nullptr)
{
    return rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, count,
                                         static_cast<CHardwareBuffer::Usage>(usage), data);
}

// (size, usage, format or FVF, pool) of each creation of `m` since `from`.
std::vector<std::vector<uint64_t>> Creations(kvproxy::Mark from, Method m)
{
    std::vector<std::vector<uint64_t>> out;
    for (const KvProxyCall& c : kvproxy::CallsSince(from, m))
        out.push_back(std::vector<uint64_t>(c.args, c.args + 4));
    return out;
}

// The elements the device made, read back from the native declaration.
std::vector<D3DVERTEXELEMENT9> ElementsOf(IDirect3DVertexDeclaration9* declaration)
{
    UINT count = 0;
    if (!declaration || FAILED(declaration->GetDeclaration(nullptr, &count)))
        return {};
    std::vector<D3DVERTEXELEMENT9> elements(count);
    if (FAILED(declaration->GetDeclaration(elements.data(), &count)))
        return {};
    return elements;
}

std::string Describe(const std::vector<D3DVERTEXELEMENT9>& elements)
{
    std::string s;
    for (const D3DVERTEXELEMENT9& e : elements)
        s += "{" + std::to_string(e.Stream) + " " + std::to_string(e.Offset) + " " + std::to_string(e.Type) + " " +
             std::to_string(e.Method) + " " + std::to_string(e.Usage) + " " + std::to_string(e.UsageIndex) + "}";
    return s;
}

const char kEndMark[] = "{255 0 17 0 0 0}";

} // namespace

TEST_F(Buffers, PoolAndUsageFollowTheBufferUsage)
{
    const struct
    {
        unsigned usage;
        D3DPOOL pool;
        DWORD d3dUsage;
    } cases[] = {
        {kStreaming, D3DPOOL_DEFAULT, D3DUSAGE_DYNAMIC | D3DUSAGE_WRITEONLY},
        {CHardwareBuffer::USAGE_DYNAMIC, D3DPOOL_MANAGED, 0},
        {CHardwareBuffer::USAGE_DISCARDABLE, D3DPOOL_DEFAULT, 0},
        {CHardwareBuffer::USAGE_STATIC | CHardwareBuffer::USAGE_WRITE_ONLY, D3DPOOL_MANAGED, D3DUSAGE_WRITEONLY},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.usage);
        kvproxy::Mark from = kvproxy::Here();
        ref_ptr<CHardwareVertexBuffer> vb =
            rs->CreateHardwareVertexBuffer(16, 10, static_cast<CHardwareBuffer::Usage>(c.usage), nullptr);
        ref_ptr<CHardwareIndexBuffer> ib = rs->CreateHardwareIndexBuffer(
            CHardwareIndexBuffer::IT_32BIT, 30, static_cast<CHardwareBuffer::Usage>(c.usage), nullptr);
        // No FVF: layouts come from declarations.
        EXPECT_EQ((std::vector<std::vector<uint64_t>>{{160, c.d3dUsage, 0, c.pool}}),
                  Creations(from, Method::CreateVertexBuffer));
        EXPECT_EQ((std::vector<std::vector<uint64_t>>{{120, c.d3dUsage, D3DFMT_INDEX32, c.pool}}),
                  Creations(from, Method::CreateIndexBuffer));
        // The description is what the device made.
        ASSERT_NE(nullptr, D3D(vb.get())->m_pD3D9VertexBuffer);
        EXPECT_EQ(c.pool, D3D(vb.get())->m_d3dDesc.Pool);
        EXPECT_EQ(c.d3dUsage, D3D(vb.get())->m_d3dDesc.Usage);
        EXPECT_EQ(160u, D3D(vb.get())->m_d3dDesc.Size);
        EXPECT_EQ(c.pool, D3D(ib.get())->m_d3dDesc.Pool);
        EXPECT_EQ(D3DFMT_INDEX32, D3D(ib.get())->m_d3dDesc.Format);
    }
    // Sixteen-bit indices for every other type.
    kvproxy::Mark from = kvproxy::Here();
    EXPECT_EQ(12u, Indices16(rs, 6, CHardwareBuffer::USAGE_STATIC)->mSizeInBytes);
    EXPECT_EQ((std::vector<std::vector<uint64_t>>{{12, 0, D3DFMT_INDEX16, D3DPOOL_MANAGED}}),
              Creations(from, Method::CreateIndexBuffer));

    // The system-memory flag takes the system pool, still with the dynamic usage
    // of a dynamic, discardable buffer, and a lost device leaves it alone.
    from = kvproxy::Here();
    ref_ptr<CD3D9HardwareVertexBuffer> vb(new CD3D9HardwareVertexBuffer(
        8, 4, static_cast<CHardwareBuffer::Usage>(CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_DISCARDABLE),
        true, nullptr));
    ref_ptr<CD3D9HardwareIndexBuffer> ib(
        new CD3D9HardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 4, CHardwareBuffer::USAGE_STATIC, true, nullptr));
    EXPECT_EQ(D3DPOOL_SYSTEMMEM, ib->m_d3dDesc.Pool);
    EXPECT_EQ((std::vector<std::vector<uint64_t>>{{32, D3DUSAGE_DYNAMIC, 0, D3DPOOL_SYSTEMMEM}}),
              Creations(from, Method::CreateVertexBuffer));
    IDirect3DVertexBuffer9* native = vb->m_pD3D9VertexBuffer;
    d3d->GetResourceManager()->notifyOnDeviceLost();
    d3d->GetResourceManager()->notifyOnDeviceReset();
    EXPECT_EQ(native, vb->m_pD3D9VertexBuffer);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Buffers, LocksCheckTheRangeAndHandTheDeviceTheirFlags)
{
    ref_ptr<CHardwareVertexBuffer> vb = Vertices(rs, 8, CHardwareBuffer::USAGE_STATIC);
    ASSERT_EQ(32u, vb->mSizeInBytes);
    EXPECT_NE(nullptr, vb->Lock(0, 32, CHardwareBuffer::LOCK_NORMAL));
    EXPECT_TRUE(vb->IsLocked());
    vb->Unlock();
    EXPECT_FALSE(vb->IsLocked());
    EXPECT_EQ(nullptr, vb->Lock(1, 32, CHardwareBuffer::LOCK_NORMAL));
    EXPECT_FALSE(vb->IsLocked()) << "a refused range leaves the flag alone";
    EXPECT_EQ(std::vector<std::string>{"(length:32 + offset:1) > mSizeInBytes:32"}, Errors());
    // The whole-buffer form is the same range.
    ref_ptr<CHardwareIndexBuffer> ib = Indices16(rs, 3, CHardwareBuffer::USAGE_STATIC);
    EXPECT_NE(nullptr, ib->Lock(CHardwareBuffer::LOCK_NORMAL));
    ib->Unlock();
}

TEST_F(Buffers, WriteReadAndCopyRangesOfEveryKind)
{
    for (unsigned usage : {unsigned(CHardwareBuffer::USAGE_STATIC), unsigned(CHardwareBuffer::USAGE_DYNAMIC),
                           unsigned(CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_DISCARDABLE)})
    {
        SCOPED_TRACE(usage);
        ref_ptr<CHardwareVertexBuffer> vb = Vertices(rs, 16, usage);
        std::vector<uint8_t> expected = Bytes(64, 0);
        vb->WriteData(0, 64, expected.data(), false);
        std::vector<uint8_t> part = Bytes(10, 200);
        vb->WriteData(20, 10, part.data(), false);
        std::copy(part.begin(), part.end(), expected.begin() + 20);
        EXPECT_EQ(expected, Read(vb, 0, 64));
        EXPECT_EQ(std::vector<uint8_t>(expected.begin() + 18, expected.begin() + 28), Read(vb, 18, 10));
        EXPECT_FALSE(vb->IsLocked());
        ref_ptr<CHardwareIndexBuffer> ib = rs->CreateHardwareIndexBuffer(
            CHardwareIndexBuffer::IT_32BIT, 4, static_cast<CHardwareBuffer::Usage>(usage), nullptr);
        ib->WriteData(0, 16, Bytes(16, 40).data(), true);
        EXPECT_EQ(Bytes(16, 40), Read(ib, 0, 16));
    }
    // Initial data fills a buffer without leaving it locked.
    std::vector<uint16_t> indices = {0, 1, 2, 2, 1, 0};
    ref_ptr<CHardwareIndexBuffer> ib = IndexBuffer16(indices);
    EXPECT_FALSE(ib->IsLocked());
    EXPECT_EQ(0, std::memcmp(indices.data(), Read(ib, 0, 12).data(), 12));

    // A copy takes the shorter length; the range form goes between vertex and
    // index buffers and leaves the source unlocked.
    ref_ptr<CHardwareVertexBuffer> longer = Vertices(rs, 8, CHardwareBuffer::USAGE_STATIC, Bytes(32, 100).data());
    ref_ptr<CHardwareVertexBuffer> shorter = Vertices(rs, 4, CHardwareBuffer::USAGE_STATIC, Bytes(16, 0).data());
    shorter->CopyData(*longer);
    EXPECT_EQ(Bytes(16, 100), Read(shorter, 0, 16));
    ref_ptr<CHardwareVertexBuffer> target = Vertices(rs, 8, CHardwareBuffer::USAGE_STATIC, Bytes(32, 0).data());
    target->CopyData(*shorter);
    EXPECT_EQ(Bytes(16, 100), Read(target, 0, 16));
    EXPECT_EQ(Bytes(16, 16), Read(target, 16, 16));
    ref_ptr<CHardwareIndexBuffer> copy = Indices16(rs, 4, CHardwareBuffer::USAGE_STATIC);
    copy->CopyData(*longer, 8, 2, 4, false);
    EXPECT_FALSE(longer->IsLocked());
    EXPECT_EQ(Bytes(4, 108), Read(copy, 2, 4));
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Buffers, RangesOutsideTheBufferTouchNothing)
{
    ref_ptr<CHardwareVertexBuffer> vb = Vertices(rs, 4, CHardwareBuffer::USAGE_STATIC, Bytes(16, 1).data());
    std::vector<uint8_t> junk(32, 0x77);
    vb->WriteData(8, 16, junk.data(), false);
    EXPECT_EQ(std::vector<uint8_t>(16, 0xEE), Read(vb, 4, 16));
    EXPECT_EQ(Bytes(16, 1), Read(vb, 0, 16));
    ref_ptr<CHardwareIndexBuffer> ib = Indices16(rs, 2, CHardwareBuffer::USAGE_STATIC);
    Read(ib, 2, 4);
    ib->WriteData(4, 1, junk.data(), false);
    // A copy from a refused range copies nothing.
    ref_ptr<CHardwareVertexBuffer> source = Vertices(rs, 2, CHardwareBuffer::USAGE_STATIC, Bytes(8, 50).data());
    ref_ptr<CHardwareVertexBuffer> target = Vertices(rs, 4, CHardwareBuffer::USAGE_STATIC, Bytes(16, 0).data());
    target->CopyData(*source, 4, 0, 8, false);
    EXPECT_EQ(Bytes(16, 0), Read(target, 0, 16));
    EXPECT_EQ((std::vector<std::string>{
                  "(length:16 + offset:8) > mSizeInBytes:16", "Failed to CD3D9HardwareVertexBuffer::WriteData",
                  "(length:16 + offset:4) > mSizeInBytes:16", "Failed to CD3D9HardwareVertexBuffer::ReadData",
                  "(length:4 + offset:2) > mSizeInBytes:4", "Failed to CD3D9HardwareIndexBuffer::ReadData",
                  "(length:1 + offset:4) > mSizeInBytes:4", "Failed to CD3D9HardwareIndexBuffer::WriteData",
                  "(length:8 + offset:4) > mSizeInBytes:8"}),
              Errors());
}

TEST_F(Buffers, DefaultPoolBuffersGoWithALostDeviceAndComeBackEmptyHanded)
{
    const unsigned dynamic = CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_DISCARDABLE;
    ref_ptr<CHardwareVertexBuffer> vb = Vertices(rs, 4, dynamic, Bytes(16, 1).data());
    ref_ptr<CHardwareIndexBuffer> ib = Indices16(rs, 8, dynamic);
    ref_ptr<CHardwareVertexBuffer> managed = Vertices(rs, 4, CHardwareBuffer::USAGE_DYNAMIC, Bytes(16, 9).data());
    IDirect3DVertexBuffer9* managedNative = D3D(managed.get())->m_pD3D9VertexBuffer;
    ASSERT_NE(nullptr, D3D(vb.get())->m_pD3D9VertexBuffer);

    // Told at every attempt to reset: twice without a reset between.
    d3d->GetResourceManager()->notifyOnDeviceLost();
    d3d->GetResourceManager()->notifyOnDeviceLost();
    EXPECT_EQ(nullptr, D3D(vb.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(nullptr, D3D(ib.get())->m_pD3D9IndexBuffer);
    EXPECT_EQ(nullptr, vb->Lock(CHardwareBuffer::LOCK_NORMAL));
    EXPECT_TRUE(vb->IsLocked()) << "the engine's flag is set all the same";
    std::vector<uint8_t> out = Read(vb, 0, 16);
    ib->WriteData(0, 4, out.data(), true);
    EXPECT_EQ(std::vector<uint8_t>(16, 0xEE), out);
    EXPECT_EQ((std::vector<std::string>{"Failed to CD3D9HardwareVertexBuffer::LockImpl, as m_pD3D9VertexBuffer is NULL",
                                        "Failed to CD3D9HardwareVertexBuffer::LockImpl, as m_pD3D9VertexBuffer is NULL",
                                        "Failed to CD3D9HardwareVertexBuffer::ReadData",
                                        "Failed to CD3D9HardwareIndexBuffer::LockImpl, as m_pD3D9IndexBuffer is NULL",
                                        "Failed to CD3D9HardwareIndexBuffer::WriteData"}),
              Errors());
    vb->Unlock();
    EXPECT_FALSE(vb->IsLocked());

    // Only the default pool is made again; a managed buffer keeps its native buffer and content.
    kvproxy::Mark from = kvproxy::Here();
    d3d->GetResourceManager()->notifyOnDeviceReset();
    EXPECT_EQ((std::vector<std::vector<uint64_t>>{{16, D3DUSAGE_DYNAMIC, 0, D3DPOOL_DEFAULT}}),
              Creations(from, Method::CreateVertexBuffer));
    EXPECT_EQ(1u, kvproxy::CountSince(from, Method::CreateIndexBuffer));
    EXPECT_EQ(managedNative, D3D(managed.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(Bytes(16, 9), Read(managed, 0, 16));
    ASSERT_NE(nullptr, D3D(vb.get())->m_pD3D9VertexBuffer);
    EXPECT_NE(nullptr, vb->Lock(CHardwareBuffer::LOCK_DISCARD));
    vb->Unlock();

    // A buffer is in the registry while it lives.
    D3D9ResourceManager* manager = d3d->GetResourceManager();
    const size_t count = manager->GetResourceCount();
    {
        ref_ptr<CHardwareIndexBuffer> temporary = Indices16(rs, 4, CHardwareBuffer::USAGE_STATIC);
        EXPECT_EQ(count + 1, manager->GetResourceCount());
        EXPECT_EQ(D3D(temporary.get()), manager->GetResource(D3D(temporary.get())->m_nResourceIndex));
    }
    EXPECT_EQ(count, manager->GetResourceCount());
    // The end of the device releases every pool.
    manager->notifyOnDeviceDestroy();
    EXPECT_EQ(nullptr, D3D(managed.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(nullptr, D3D(ib.get())->m_pD3D9IndexBuffer);
}

TEST_F(Buffers, RefusedCreationIsLoggedAndRetriedAtResetInTheDefaultPool)
{
    kvproxy::FailMethod(Method::CreateVertexBuffer, E_OUTOFMEMORY, 2);
    ref_ptr<CHardwareVertexBuffer> deflt = Vertices(rs, 4, CHardwareBuffer::USAGE_DISCARDABLE, Bytes(16, 0).data());
    ref_ptr<CHardwareVertexBuffer> managed = Vertices(rs, 4, CHardwareBuffer::USAGE_STATIC);
    ASSERT_TRUE(deflt && managed);
    EXPECT_EQ(nullptr, D3D(deflt.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(D3DPOOL_DEFAULT, D3D(deflt.get())->m_d3dDesc.Pool);
    EXPECT_EQ(D3DPOOL_MANAGED, D3D(managed.get())->m_d3dDesc.Pool);
    kvproxy::FailMethod(Method::CreateIndexBuffer, D3DERR_OUTOFVIDEOMEMORY, 1);
    ref_ptr<CHardwareIndexBuffer> ib = Indices16(rs, 4, CHardwareBuffer::USAGE_STATIC);
    EXPECT_EQ(nullptr, D3D(ib.get())->m_pD3D9IndexBuffer);
    const std::string verify = VerifyLine(E_OUTOFMEMORY, "Failed to CreateVertexBuffer");
    EXPECT_EQ((std::vector<std::string>{verify, "Failed to CD3D9HardwareVertexBuffer::CreateBuffer", verify,
                                        "Failed to CD3D9HardwareVertexBuffer::CreateBuffer",
                                        VerifyLine(D3DERR_OUTOFVIDEOMEMORY, "Failed to CreateIndexBuffer"),
                                        "Failed to CD3D9HardwareIndexBuffer::CreateBuffer"}),
              Errors());

    // Only the default pool is made again when the device comes back.
    d3d->GetResourceManager()->notifyOnDeviceLost();
    d3d->GetResourceManager()->notifyOnDeviceReset();
    EXPECT_NE(nullptr, D3D(deflt.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(nullptr, D3D(managed.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(nullptr, D3D(ib.get())->m_pD3D9IndexBuffer);
}

// ---- the flags each lock hands to the device. The native buffers are the
// runtime's own objects, which the recording d3d9.dll does not wrap, so their
// Lock is watched at the method table that all buffers of a kind share.

namespace
{

const unsigned kLockSlot = 11; // IUnknown (3), IDirect3DResource9 (8), then Lock

struct LockCall
{
    UINT offset, length;
    DWORD flags;
};
std::vector<LockCall> g_locks;

typedef HRESULT(STDMETHODCALLTYPE* VertexLockFn)(IDirect3DVertexBuffer9*, UINT, UINT, void**, DWORD);
typedef HRESULT(STDMETHODCALLTYPE* IndexLockFn)(IDirect3DIndexBuffer9*, UINT, UINT, void**, DWORD);
VertexLockFn g_vertexLock = nullptr;
IndexLockFn g_indexLock = nullptr;

HRESULT STDMETHODCALLTYPE WatchedVertexLock(IDirect3DVertexBuffer9* b, UINT offset, UINT length, void** data,
                                            DWORD flags)
{
    g_locks.push_back({offset, length, flags});
    return g_vertexLock(b, offset, length, data, flags);
}

HRESULT STDMETHODCALLTYPE WatchedIndexLock(IDirect3DIndexBuffer9* b, UINT offset, UINT length, void** data, DWORD flags)
{
    g_locks.push_back({offset, length, flags});
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

struct LockFlags : KvDeviceTest
{
    void SetUp() override
    {
        KvDeviceTest::SetUp();
        if (HasFatalFailure())
            return;
        // Any buffer of each kind opens the shared table.
        probeVertices = Vertices(rs, 1, CHardwareBuffer::USAGE_STATIC);
        probeIndices = Indices16(rs, 2, CHardwareBuffer::USAGE_STATIC);
        vertexObject = D3D(probeVertices.get())->m_pD3D9VertexBuffer;
        indexObject = D3D(probeIndices.get())->m_pD3D9IndexBuffer;
        ASSERT_TRUE(vertexObject && indexObject);
        g_vertexLock = reinterpret_cast<VertexLockFn>(
            SwapSlot(vertexObject, kLockSlot, reinterpret_cast<void*>(&WatchedVertexLock)));
        g_indexLock =
            reinterpret_cast<IndexLockFn>(SwapSlot(indexObject, kLockSlot, reinterpret_cast<void*>(&WatchedIndexLock)));
        ASSERT_TRUE(g_vertexLock && g_indexLock);
        g_locks.clear();
    }
    void TearDown() override
    {
        if (g_vertexLock)
            SwapSlot(vertexObject, kLockSlot, reinterpret_cast<void*>(g_vertexLock));
        if (g_indexLock)
            SwapSlot(indexObject, kLockSlot, reinterpret_cast<void*>(g_indexLock));
        g_vertexLock = nullptr;
        g_indexLock = nullptr;
        probeVertices = nullptr;
        probeIndices = nullptr;
        KvDeviceTest::TearDown();
    }
    // (offset, length, flags) of each lock since the last call.
    static std::vector<std::vector<DWORD>> Locks()
    {
        std::vector<std::vector<DWORD>> out;
        for (const LockCall& c : g_locks)
            out.push_back({c.offset, c.length, c.flags});
        g_locks.clear();
        return out;
    }

    ref_ptr<CHardwareVertexBuffer> probeVertices;
    ref_ptr<CHardwareIndexBuffer> probeIndices;
    IDirect3DVertexBuffer9* vertexObject = nullptr;
    IDirect3DIndexBuffer9* indexObject = nullptr;
};

typedef std::vector<std::vector<DWORD>> LockList;

} // namespace

TEST_F(LockFlags, OnlyDynamicDiscardableBuffersDiscardOrAppendAndReadsAreReadOnly)
{
    uint8_t bytes[24] = {};
    ref_ptr<CHardwareVertexBuffer> streaming = Vertices(rs, 4, kStreaming);
    ref_ptr<CHardwareVertexBuffer> dynamicOnly = Vertices(rs, 4, CHardwareBuffer::USAGE_DYNAMIC);
    ASSERT_TRUE(Locks().empty()) << "a buffer without initial data was locked";
    streaming->WriteData(0, 16, bytes, true);
    streaming->WriteData(4, 8, bytes, false);
    EXPECT_NE(nullptr, streaming->Lock(8, 8, CHardwareBuffer::LOCK_NO_OVERWRITE));
    streaming->Unlock();
    dynamicOnly->WriteData(0, 16, bytes, true);
    EXPECT_NE(nullptr, dynamicOnly->Lock(0, 4, CHardwareBuffer::LOCK_NO_OVERWRITE));
    dynamicOnly->Unlock();
    EXPECT_EQ((LockList{{0, 16, D3DLOCK_DISCARD}, {4, 8, 0}, {8, 8, D3DLOCK_NOOVERWRITE}, {0, 16, 0}, {0, 4, 0}}),
              Locks());

    // Reads are read-only unless the buffer is write-only.
    Indices16(rs, 4, CHardwareBuffer::USAGE_STATIC)->ReadData(0, 8, bytes);
    Indices16(rs, 4, CHardwareBuffer::USAGE_WRITE_ONLY)->ReadData(0, 8, bytes);
    EXPECT_EQ((LockList{{0, 8, D3DLOCK_READONLY}, {0, 8, 0}}), Locks());

    // Initial data takes one plain lock of the whole buffer.
    ref_ptr<CHardwareVertexBuffer> vb = rs->CreateHardwareVertexBuffer(8, 3, kStreaming, bytes);
    ref_ptr<CHardwareIndexBuffer> ib =
        rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_32BIT, 6, kStreaming, bytes);
    EXPECT_EQ((LockList{{0, 24, 0}, {0, 24, 0}}), Locks());
    EXPECT_FALSE(vb->IsLocked());
    EXPECT_FALSE(ib->IsLocked());
}

// ---- vertex declarations

TEST_F(Buffers, DeclarationElementsReachTheDeviceTranslated)
{
    const VertexElement elements[] = {
        VertexElement(0, 0, VET_FLOAT3, VES_POSITION),
        VertexElement(0, 12, VET_FLOAT3, VES_NORMAL),
        VertexElement(0, 24, VET_COLOUR, VES_COLOUR),
        VertexElement(0, 28, VET_FLOAT2, VES_TEXTURE_COORDINATES, 3),
        VertexElement(1, 0, VET_UBYTE4, VES_BLEND_INDICES),
        VertexElement(1, 4, VET_SHORT2N, VES_TEXTURE_COORDINATES, 1),
        VertexElement(1, 8, VET_HALF4, VES_TANGENT),
        // Wide fields keep their low bits: offset 0x10010 keeps 16, usage index 0x102 keeps 2.
        VertexElement(1, 0x10010u, VET_FLOAT2, VES_TEXTURE_COORDINATES, 0x102),
    };
    kvproxy::Mark from = kvproxy::Here();
    ref_ptr<CVertexDeclaration> declaration = rs->CreateVertexDeclaration(elements, 8);
    ref_ptr<CVertexDeclaration> again = rs->CreateVertexDeclaration(elements, 8);
    EXPECT_EQ(2u, kvproxy::CountSince(from, Method::CreateVertexDeclaration)) << "each call makes a new one";
    const D3DVERTEXELEMENT9 expected[] = {
        {0, 0, D3DDECLTYPE_FLOAT3, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_POSITION, 0},
        {0, 12, D3DDECLTYPE_FLOAT3, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_NORMAL, 0},
        {0, 24, D3DDECLTYPE_D3DCOLOR, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_COLOR, 0},
        {0, 28, D3DDECLTYPE_FLOAT2, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_TEXCOORD, 3},
        {1, 0, D3DDECLTYPE_UBYTE4, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_BLENDINDICES, 0},
        {1, 4, D3DDECLTYPE_SHORT2N, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_TEXCOORD, 1},
        {1, 8, D3DDECLTYPE_FLOAT16_4, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_TANGENT, 0},
        {1, 16, D3DDECLTYPE_FLOAT2, D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_TEXCOORD, 2},
        D3DDECL_END(),
    };
    EXPECT_EQ(Describe(std::vector<D3DVERTEXELEMENT9>(std::begin(expected), std::end(expected))),
              Describe(ElementsOf(Native(declaration.get()))));

    // An empty declaration is the end mark alone.
    for (int count : {0, -3})
        EXPECT_EQ(kEndMark, Describe(ElementsOf(Native(rs->CreateVertexDeclaration(nullptr, count).get())))) << count;

    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Buffers, NativeDeclarationOutlivesResetsAndGoesWithTheDevice)
{
    ref_ptr<CVertexDeclaration> declaration = ColourDeclaration();
    IDirect3DVertexDeclaration9* native = Native(declaration.get());
    ASSERT_NE(nullptr, native);
    kvproxy::Mark from = kvproxy::Here();
    d3d->GetResourceManager()->notifyOnDeviceLost();
    d3d->GetResourceManager()->notifyOnDeviceReset();
    EXPECT_EQ(native, Native(declaration.get()));
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::CreateVertexDeclaration));
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
