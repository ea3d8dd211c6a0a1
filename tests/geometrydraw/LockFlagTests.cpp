// The flags each buffer lock hands to the device. The native buffers are the
// runtime's own objects, which the recording d3d9.dll does not wrap, so their
// Lock is watched at the method table that all buffers of a kind share, for the
// length of one test.
#include "DrawFixture.h"

using namespace kv;

namespace
{

const unsigned kLockSlot = 11; // IUnknown (3), IDirect3DResource9 (8), then Lock

struct LockCall
{
    UINT offset;
    UINT length;
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

HRESULT STDMETHODCALLTYPE WatchedIndexLock(IDirect3DIndexBuffer9* b, UINT offset, UINT length, void** data,
                                           DWORD flags)
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

struct LockFlags : DrawTest
{
    void SetUp() override
    {
        DrawTest::SetUp();
        if (HasFatalFailure())
            return;
        // Any buffer of each kind opens the shared table.
        probeVertices = rs->CreateHardwareVertexBuffer(4, 1, CHardwareBuffer::USAGE_STATIC, nullptr);
        probeIndices =
            rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 2, CHardwareBuffer::USAGE_STATIC, nullptr);
        vertexObject = D3D(probeVertices.get())->m_pD3D9VertexBuffer;
        indexObject = D3D(probeIndices.get())->m_pD3D9IndexBuffer;
        ASSERT_TRUE(vertexObject && indexObject);
        g_vertexLock = reinterpret_cast<VertexLockFn>(
            SwapSlot(vertexObject, kLockSlot, reinterpret_cast<void*>(&WatchedVertexLock)));
        g_indexLock = reinterpret_cast<IndexLockFn>(
            SwapSlot(indexObject, kLockSlot, reinterpret_cast<void*>(&WatchedIndexLock)));
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
        DrawTest::TearDown();
    }

    std::vector<DWORD> Flags() const
    {
        std::vector<DWORD> flags;
        for (const LockCall& c : g_locks)
            flags.push_back(c.flags);
        return flags;
    }

    ref_ptr<CHardwareVertexBuffer> probeVertices;
    ref_ptr<CHardwareIndexBuffer> probeIndices;
    IDirect3DVertexBuffer9* vertexObject = nullptr;
    IDirect3DIndexBuffer9* indexObject = nullptr;
};

const CHardwareBuffer::Usage kStreaming = static_cast<CHardwareBuffer::Usage>(
    CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_WRITE_ONLY | CHardwareBuffer::USAGE_DISCARDABLE);

} // namespace

TEST_F(LockFlags, OnlyDynamicDiscardableBuffersDiscardOrAppend)
{
    uint8_t bytes[16] = {};
    ref_ptr<CHardwareVertexBuffer> streaming = rs->CreateHardwareVertexBuffer(4, 4, kStreaming, nullptr);
    ref_ptr<CHardwareVertexBuffer> dynamicOnly =
        rs->CreateHardwareVertexBuffer(4, 4, CHardwareBuffer::USAGE_DYNAMIC, nullptr);
    ASSERT_TRUE(g_locks.empty()) << "a buffer without initial data was locked";

    streaming->WriteData(0, 16, bytes, true);
    streaming->WriteData(4, 8, bytes, false);
    EXPECT_NE(nullptr, streaming->Lock(8, 8, CHardwareBuffer::LOCK_NO_OVERWRITE));
    streaming->Unlock();
    dynamicOnly->WriteData(0, 16, bytes, true);
    EXPECT_NE(nullptr, dynamicOnly->Lock(0, 4, CHardwareBuffer::LOCK_NO_OVERWRITE));
    dynamicOnly->Unlock();
    EXPECT_EQ((std::vector<DWORD>{D3DLOCK_DISCARD, 0, D3DLOCK_NOOVERWRITE, 0, 0}), Flags());
    ASSERT_EQ(5u, g_locks.size());
    EXPECT_EQ(4u, g_locks[1].offset);
    EXPECT_EQ(8u, g_locks[1].length);
}

TEST_F(LockFlags, ReadsAreReadOnlyUnlessTheBufferIsWriteOnly)
{
    uint8_t bytes[8] = {};
    ref_ptr<CHardwareIndexBuffer> readable =
        rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 4, CHardwareBuffer::USAGE_STATIC, nullptr);
    ref_ptr<CHardwareIndexBuffer> writeOnly =
        rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 4, CHardwareBuffer::USAGE_WRITE_ONLY, nullptr);
    readable->ReadData(0, 8, bytes);
    writeOnly->ReadData(0, 8, bytes);
    EXPECT_EQ((std::vector<DWORD>{D3DLOCK_READONLY, 0}), Flags());
}

TEST_F(LockFlags, InitialDataTakesOnePlainLockOfTheWholeBuffer)
{
    const uint8_t bytes[24] = {};
    ref_ptr<CHardwareVertexBuffer> vb = rs->CreateHardwareVertexBuffer(8, 3, kStreaming, bytes);
    ref_ptr<CHardwareIndexBuffer> ib =
        rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_32BIT, 6, kStreaming, bytes);
    ASSERT_EQ(2u, g_locks.size());
    EXPECT_EQ(0u, g_locks[0].offset);
    EXPECT_EQ(24u, g_locks[0].length);
    EXPECT_EQ(0u, g_locks[0].flags);
    EXPECT_EQ(24u, g_locks[1].length);
    EXPECT_EQ(0u, g_locks[1].flags);
    EXPECT_FALSE(vb->IsLocked());
    EXPECT_FALSE(ib->IsLocked());
}
