// Hardware vertex and index buffers: pool and usage by the buffer's usage,
// locks and their range check, reading, writing and copying, and how each pool
// goes through a lost device.
#include "DrawFixture.h"

#include "D3D9ResourceManager.h"

#include <cstring>

using namespace kv;
using kvproxy::Method;

namespace
{

typedef DrawTest Buffers;

std::vector<ColourVertex> Triangle(uint32_t colour)
{
    return {{-1, -1, 0, colour}, {0, 1, 0, colour}, {1, -1, 0, colour}};
}

std::vector<uint8_t> Bytes(unsigned n, uint8_t first)
{
    std::vector<uint8_t> bytes(n);
    for (unsigned i = 0; i < n; ++i)
        bytes[i] = static_cast<uint8_t>(first + i);
    return bytes;
}

} // namespace

TEST_F(Buffers, PoolAndUsageFollowTheBufferUsage)
{
    struct Case
    {
        unsigned usage;
        D3DPOOL pool;
        DWORD d3dUsage;
    } cases[] = {
        {CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_WRITE_ONLY | CHardwareBuffer::USAGE_DISCARDABLE,
         D3DPOOL_DEFAULT, D3DUSAGE_DYNAMIC | D3DUSAGE_WRITEONLY},
        {CHardwareBuffer::USAGE_DYNAMIC, D3DPOOL_MANAGED, 0},
        {CHardwareBuffer::USAGE_DISCARDABLE, D3DPOOL_DEFAULT, 0},
        {CHardwareBuffer::USAGE_STATIC | CHardwareBuffer::USAGE_WRITE_ONLY, D3DPOOL_MANAGED, D3DUSAGE_WRITEONLY},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.usage);
        kvproxy::Mark mark = kvproxy::Here();
        ref_ptr<CHardwareVertexBuffer> vb =
            rs->CreateHardwareVertexBuffer(16, 10, static_cast<CHardwareBuffer::Usage>(c.usage), nullptr);
        ref_ptr<CHardwareIndexBuffer> ib = rs->CreateHardwareIndexBuffer(
            CHardwareIndexBuffer::IT_32BIT, 30, static_cast<CHardwareBuffer::Usage>(c.usage), nullptr);

        std::vector<KvProxyCall> vcalls = kvproxy::CallsSince(mark, Method::CreateVertexBuffer);
        ASSERT_EQ(1u, vcalls.size());
        EXPECT_EQ(160u, vcalls[0].args[0]);
        EXPECT_EQ(c.d3dUsage, vcalls[0].args[1]);
        EXPECT_EQ(0u, vcalls[0].args[2]); // no FVF: layouts come from declarations
        EXPECT_EQ(static_cast<uint64_t>(c.pool), vcalls[0].args[3]);
        std::vector<KvProxyCall> icalls = kvproxy::CallsSince(mark, Method::CreateIndexBuffer);
        ASSERT_EQ(1u, icalls.size());
        EXPECT_EQ(120u, icalls[0].args[0]);
        EXPECT_EQ(c.d3dUsage, icalls[0].args[1]);
        EXPECT_EQ(static_cast<uint64_t>(D3DFMT_INDEX32), icalls[0].args[2]);
        EXPECT_EQ(static_cast<uint64_t>(c.pool), icalls[0].args[3]);

        // The description is what the device made.
        ASSERT_NE(nullptr, D3D(vb.get())->m_pD3D9VertexBuffer);
        EXPECT_EQ(c.pool, D3D(vb.get())->m_d3dDesc.Pool);
        EXPECT_EQ(c.d3dUsage, D3D(vb.get())->m_d3dDesc.Usage);
        EXPECT_EQ(160u, D3D(vb.get())->m_d3dDesc.Size);
        EXPECT_EQ(c.pool, D3D(ib.get())->m_d3dDesc.Pool);
        EXPECT_EQ(D3DFMT_INDEX32, D3D(ib.get())->m_d3dDesc.Format);
    }
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Buffers, SixteenBitIndicesForEveryTypeButOne)
{
    kvproxy::Mark mark = kvproxy::Here();
    ref_ptr<CHardwareIndexBuffer> ib16 =
        rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 6, CHardwareBuffer::USAGE_STATIC, nullptr);
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark, Method::CreateIndexBuffer);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(12u, calls[0].args[0]);
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_INDEX16), calls[0].args[2]);
    EXPECT_EQ(12u, ib16->mSizeInBytes);
}

TEST_F(Buffers, SystemMemoryFlagTakesTheSystemPool)
{
    kvproxy::Mark mark = kvproxy::Here();
    ref_ptr<CD3D9HardwareVertexBuffer> vb(new CD3D9HardwareVertexBuffer(
        8, 4, static_cast<CHardwareBuffer::Usage>(CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_DISCARDABLE),
        true, nullptr));
    ref_ptr<CD3D9HardwareIndexBuffer> ib(new CD3D9HardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 4,
                                                                      CHardwareBuffer::USAGE_STATIC, true, nullptr));
    EXPECT_EQ(D3DPOOL_SYSTEMMEM, vb->m_d3dDesc.Pool);
    EXPECT_EQ(D3DPOOL_SYSTEMMEM, ib->m_d3dDesc.Pool);
    // The system pool still takes the dynamic usage of a dynamic, discardable buffer.
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark, Method::CreateVertexBuffer);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(static_cast<uint64_t>(D3DUSAGE_DYNAMIC), calls[0].args[1]);
    EXPECT_EQ(static_cast<uint64_t>(D3DPOOL_SYSTEMMEM), calls[0].args[3]);

    // A system-memory buffer is the runtime's memory: a lost device leaves it alone.
    IDirect3DVertexBuffer9* native = vb->m_pD3D9VertexBuffer;
    d3d->GetResourceManager()->notifyOnDeviceLost();
    EXPECT_EQ(native, vb->m_pD3D9VertexBuffer);
    d3d->GetResourceManager()->notifyOnDeviceReset();
    EXPECT_EQ(native, vb->m_pD3D9VertexBuffer);
}

TEST_F(Buffers, InitialDataFillsTheBufferWithoutLockingIt)
{
    std::vector<ColourVertex> tri = Triangle(0xFF123456);
    ref_ptr<CHardwareVertexBuffer> vb = VertexBuffer(tri);
    EXPECT_FALSE(vb->IsLocked());
    std::vector<ColourVertex> back(3);
    vb->ReadData(0, vb->mSizeInBytes, back.data());
    EXPECT_EQ(0, std::memcmp(tri.data(), back.data(), sizeof(ColourVertex) * 3));

    std::vector<uint16_t> indices = {0, 1, 2, 2, 1, 0};
    ref_ptr<CHardwareIndexBuffer> ib = IndexBuffer16(indices);
    std::vector<uint16_t> ibBack(6);
    ib->ReadData(0, 12, ibBack.data());
    EXPECT_EQ(indices, ibBack);
}

TEST_F(Buffers, LockChecksTheRangeBeforeTheDevice)
{
    ref_ptr<CHardwareVertexBuffer> vb = rs->CreateHardwareVertexBuffer(4, 8, CHardwareBuffer::USAGE_STATIC, nullptr);
    ASSERT_EQ(32u, vb->mSizeInBytes);
    EXPECT_NE(nullptr, vb->Lock(0, 32, CHardwareBuffer::LOCK_NORMAL));
    EXPECT_TRUE(vb->IsLocked());
    vb->Unlock();
    EXPECT_FALSE(vb->IsLocked());

    EXPECT_EQ(nullptr, vb->Lock(1, 32, CHardwareBuffer::LOCK_NORMAL));
    EXPECT_FALSE(vb->IsLocked()); // a refused range leaves the flag alone
    EXPECT_TRUE(Logged("(length:32 + offset:1) > mSizeInBytes:32")) << ::testing::PrintToString(Errors());

    // The whole-buffer form is the same range.
    ref_ptr<CHardwareIndexBuffer> ib =
        rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 3, CHardwareBuffer::USAGE_STATIC, nullptr);
    void* all = ib->Lock(CHardwareBuffer::LOCK_NORMAL);
    EXPECT_NE(nullptr, all);
    ib->Unlock();
}

TEST_F(Buffers, WriteAndReadRangesOfEveryKind)
{
    const unsigned usages[] = {
        CHardwareBuffer::USAGE_STATIC,
        CHardwareBuffer::USAGE_DYNAMIC,
        CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_DISCARDABLE,
    };
    for (unsigned usage : usages)
    {
        SCOPED_TRACE(usage);
        ref_ptr<CHardwareVertexBuffer> vb =
            rs->CreateHardwareVertexBuffer(4, 16, static_cast<CHardwareBuffer::Usage>(usage), nullptr);
        std::vector<uint8_t> all = Bytes(64, 0);
        vb->WriteData(0, 64, all.data(), false);
        std::vector<uint8_t> part = Bytes(10, 200);
        vb->WriteData(20, 10, part.data(), false);
        std::vector<uint8_t> back(64, 0xEE);
        vb->ReadData(0, 64, back.data());
        std::vector<uint8_t> expected = all;
        std::copy(part.begin(), part.end(), expected.begin() + 20);
        EXPECT_EQ(expected, back);
        std::vector<uint8_t> middle(10);
        vb->ReadData(18, 10, middle.data());
        EXPECT_EQ(std::vector<uint8_t>(expected.begin() + 18, expected.begin() + 28), middle);
        EXPECT_FALSE(vb->IsLocked());

        ref_ptr<CHardwareIndexBuffer> ib = rs->CreateHardwareIndexBuffer(
            CHardwareIndexBuffer::IT_32BIT, 4, static_cast<CHardwareBuffer::Usage>(usage), nullptr);
        std::vector<uint8_t> idx = Bytes(16, 40);
        ib->WriteData(0, 16, idx.data(), true);
        std::vector<uint8_t> idxBack(16);
        ib->ReadData(0, 16, idxBack.data());
        EXPECT_EQ(idx, idxBack);
    }
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Buffers, ReadAndWriteOutOfRangeTouchNothing)
{
    ref_ptr<CHardwareVertexBuffer> vb = rs->CreateHardwareVertexBuffer(4, 4, CHardwareBuffer::USAGE_STATIC, nullptr);
    std::vector<uint8_t> all = Bytes(16, 1);
    vb->WriteData(0, 16, all.data(), false);
    std::vector<uint8_t> junk(32, 0x77);
    vb->WriteData(8, 16, junk.data(), false);
    std::vector<uint8_t> out(32, 0x55);
    vb->ReadData(4, 16, out.data());
    EXPECT_EQ(std::vector<uint8_t>(32, 0x55), out);
    EXPECT_EQ((std::vector<std::string>{"(length:16 + offset:8) > mSizeInBytes:16",
                                        "Failed to CD3D9HardwareVertexBuffer::WriteData",
                                        "(length:16 + offset:4) > mSizeInBytes:16",
                                        "Failed to CD3D9HardwareVertexBuffer::ReadData"}),
              Errors());
    std::vector<uint8_t> back(16);
    vb->ReadData(0, 16, back.data());
    EXPECT_EQ(all, back);

    ref_ptr<CHardwareIndexBuffer> ib =
        rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 2, CHardwareBuffer::USAGE_STATIC, nullptr);
    ClearLog();
    ib->ReadData(2, 4, out.data());
    ib->WriteData(4, 1, junk.data(), false);
    EXPECT_EQ((std::vector<std::string>{"(length:4 + offset:2) > mSizeInBytes:4",
                                        "Failed to CD3D9HardwareIndexBuffer::ReadData",
                                        "(length:1 + offset:4) > mSizeInBytes:4",
                                        "Failed to CD3D9HardwareIndexBuffer::WriteData"}),
              Errors());
}

TEST_F(Buffers, CopyDataTakesTheShorterLength)
{
    ref_ptr<CHardwareVertexBuffer> longer =
        rs->CreateHardwareVertexBuffer(4, 8, CHardwareBuffer::USAGE_STATIC, Bytes(32, 100).data());
    ref_ptr<CHardwareVertexBuffer> shorter =
        rs->CreateHardwareVertexBuffer(4, 4, CHardwareBuffer::USAGE_STATIC, Bytes(16, 0).data());

    shorter->CopyData(*longer);
    std::vector<uint8_t> back(16);
    shorter->ReadData(0, 16, back.data());
    EXPECT_EQ(Bytes(16, 100), back);

    ref_ptr<CHardwareVertexBuffer> target =
        rs->CreateHardwareVertexBuffer(4, 8, CHardwareBuffer::USAGE_STATIC, Bytes(32, 0).data());
    target->CopyData(*shorter);
    std::vector<uint8_t> all(32);
    target->ReadData(0, 32, all.data());
    std::vector<uint8_t> expected = Bytes(16, 100);
    std::vector<uint8_t> rest = Bytes(16, 16);
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_EQ(expected, all);

    // A range form between vertex and index buffers; the source ends unlocked.
    ref_ptr<CHardwareIndexBuffer> ib =
        rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 4, CHardwareBuffer::USAGE_STATIC, nullptr);
    ib->CopyData(*longer, 8, 2, 4, false);
    EXPECT_FALSE(longer->IsLocked());
    std::vector<uint8_t> ibBack(4);
    ib->ReadData(2, 4, ibBack.data());
    EXPECT_EQ(Bytes(4, 108), ibBack);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Buffers, CopyFromARefusedRangeCopiesNothing)
{
    ref_ptr<CHardwareVertexBuffer> source =
        rs->CreateHardwareVertexBuffer(4, 2, CHardwareBuffer::USAGE_STATIC, Bytes(8, 50).data());
    ref_ptr<CHardwareVertexBuffer> target =
        rs->CreateHardwareVertexBuffer(4, 4, CHardwareBuffer::USAGE_STATIC, Bytes(16, 0).data());
    target->CopyData(*source, 4, 0, 8, false);
    std::vector<uint8_t> back(16);
    target->ReadData(0, 16, back.data());
    EXPECT_EQ(Bytes(16, 0), back);
    EXPECT_EQ(std::vector<std::string>{"(length:8 + offset:4) > mSizeInBytes:8"}, Errors());
}

TEST_F(Buffers, DefaultPoolBufferGoesWithALostDeviceAndComesBackEmptyHanded)
{
    const CHardwareBuffer::Usage dynamic =
        static_cast<CHardwareBuffer::Usage>(CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_DISCARDABLE);
    ref_ptr<CHardwareVertexBuffer> vb = rs->CreateHardwareVertexBuffer(4, 4, dynamic, Bytes(16, 1).data());
    ref_ptr<CHardwareIndexBuffer> ib =
        rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 8, dynamic, nullptr);
    ASSERT_NE(nullptr, D3D(vb.get())->m_pD3D9VertexBuffer);

    // Told at every attempt to reset: twice without a reset between.
    d3d->GetResourceManager()->notifyOnDeviceLost();
    d3d->GetResourceManager()->notifyOnDeviceLost();
    EXPECT_EQ(nullptr, D3D(vb.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(nullptr, D3D(ib.get())->m_pD3D9IndexBuffer);

    EXPECT_EQ(nullptr, vb->Lock(CHardwareBuffer::LOCK_NORMAL));
    EXPECT_TRUE(vb->IsLocked()); // the engine's flag is set all the same
    std::vector<uint8_t> out(16, 0x55);
    vb->ReadData(0, 16, out.data());
    ib->WriteData(0, 4, out.data(), true);
    EXPECT_EQ(std::vector<uint8_t>(16, 0x55), out);
    EXPECT_EQ((std::vector<std::string>{
                  "Failed to CD3D9HardwareVertexBuffer::LockImpl, as m_pD3D9VertexBuffer is NULL",
                  "Failed to CD3D9HardwareVertexBuffer::LockImpl, as m_pD3D9VertexBuffer is NULL",
                  "Failed to CD3D9HardwareVertexBuffer::ReadData",
                  "Failed to CD3D9HardwareIndexBuffer::LockImpl, as m_pD3D9IndexBuffer is NULL",
                  "Failed to CD3D9HardwareIndexBuffer::WriteData"}),
              Errors());
    vb->Unlock();
    EXPECT_FALSE(vb->IsLocked());

    kvproxy::Mark mark = kvproxy::Here();
    d3d->GetResourceManager()->notifyOnDeviceReset();
    std::vector<KvProxyCall> vcalls = kvproxy::CallsSince(mark, Method::CreateVertexBuffer);
    ASSERT_EQ(1u, vcalls.size());
    EXPECT_EQ(16u, vcalls[0].args[0]);
    EXPECT_EQ(static_cast<uint64_t>(D3DUSAGE_DYNAMIC), vcalls[0].args[1]);
    EXPECT_EQ(static_cast<uint64_t>(D3DPOOL_DEFAULT), vcalls[0].args[3]);
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::CreateIndexBuffer));
    ASSERT_NE(nullptr, D3D(vb.get())->m_pD3D9VertexBuffer);
    EXPECT_NE(nullptr, vb->Lock(CHardwareBuffer::LOCK_DISCARD));
    vb->Unlock();
}

TEST_F(Buffers, ManagedBufferKeepsItsNativeBufferAndContent)
{
    ref_ptr<CHardwareVertexBuffer> vb =
        rs->CreateHardwareVertexBuffer(4, 4, CHardwareBuffer::USAGE_DYNAMIC, Bytes(16, 9).data());
    IDirect3DVertexBuffer9* native = D3D(vb.get())->m_pD3D9VertexBuffer;
    kvproxy::Mark mark = kvproxy::Here();
    d3d->GetResourceManager()->notifyOnDeviceLost();
    d3d->GetResourceManager()->notifyOnDeviceReset();
    EXPECT_EQ(native, D3D(vb.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::CreateVertexBuffer));
    std::vector<uint8_t> back(16);
    vb->ReadData(0, 16, back.data());
    EXPECT_EQ(Bytes(16, 9), back);
}

TEST_F(Buffers, EndOfTheDeviceReleasesEveryPool)
{
    ref_ptr<CHardwareVertexBuffer> managed =
        rs->CreateHardwareVertexBuffer(4, 4, CHardwareBuffer::USAGE_STATIC, nullptr);
    ref_ptr<CHardwareIndexBuffer> deflt =
        rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 4, CHardwareBuffer::USAGE_DISCARDABLE, nullptr);
    d3d->GetResourceManager()->notifyOnDeviceDestroy();
    EXPECT_EQ(nullptr, D3D(managed.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(nullptr, D3D(deflt.get())->m_pD3D9IndexBuffer);
}

TEST_F(Buffers, RefusedCreationIsLoggedAndRetriedAtResetInTheDefaultPool)
{
    kvproxy::FailMethod(Method::CreateVertexBuffer, E_OUTOFMEMORY, 2);
    ref_ptr<CHardwareVertexBuffer> deflt =
        rs->CreateHardwareVertexBuffer(4, 4, CHardwareBuffer::USAGE_DISCARDABLE, Bytes(16, 0).data());
    ref_ptr<CHardwareVertexBuffer> managed =
        rs->CreateHardwareVertexBuffer(4, 4, CHardwareBuffer::USAGE_STATIC, nullptr);
    ASSERT_TRUE(deflt);
    ASSERT_TRUE(managed);
    EXPECT_EQ(nullptr, D3D(deflt.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(D3DPOOL_DEFAULT, D3D(deflt.get())->m_d3dDesc.Pool);
    EXPECT_EQ(D3DPOOL_MANAGED, D3D(managed.get())->m_d3dDesc.Pool);
    const std::string verify = VerifyLine(E_OUTOFMEMORY, "Failed to CreateVertexBuffer");
    EXPECT_EQ((std::vector<std::string>{verify, "Failed to CD3D9HardwareVertexBuffer::CreateBuffer", verify,
                                        "Failed to CD3D9HardwareVertexBuffer::CreateBuffer"}),
              Errors());

    kvproxy::FailMethod(Method::CreateIndexBuffer, D3DERR_OUTOFVIDEOMEMORY, 1);
    ref_ptr<CHardwareIndexBuffer> ib =
        rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 4, CHardwareBuffer::USAGE_STATIC, nullptr);
    EXPECT_EQ(nullptr, D3D(ib.get())->m_pD3D9IndexBuffer);
    EXPECT_TRUE(Logged(VerifyLine(D3DERR_OUTOFVIDEOMEMORY, "Failed to CreateIndexBuffer")));
    EXPECT_TRUE(Logged("Failed to CD3D9HardwareIndexBuffer::CreateBuffer"));

    // Only the default pool is made again when the device comes back.
    d3d->GetResourceManager()->notifyOnDeviceLost();
    d3d->GetResourceManager()->notifyOnDeviceReset();
    EXPECT_NE(nullptr, D3D(deflt.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(nullptr, D3D(managed.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(nullptr, D3D(ib.get())->m_pD3D9IndexBuffer);
}

TEST_F(Buffers, BuffersLeaveTheRegistryWhenTheyDie)
{
    D3D9ResourceManager* manager = d3d->GetResourceManager();
    const size_t before = manager->GetResourceCount();
    {
        ref_ptr<CHardwareVertexBuffer> vb =
            rs->CreateHardwareVertexBuffer(4, 4, CHardwareBuffer::USAGE_STATIC, nullptr);
        ref_ptr<CHardwareIndexBuffer> ib =
            rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 4, CHardwareBuffer::USAGE_STATIC, nullptr);
        EXPECT_EQ(before + 2, manager->GetResourceCount());
        EXPECT_EQ(D3D(vb.get()), manager->GetResource(D3D(vb.get())->m_nResourceIndex));
    }
    EXPECT_EQ(before, manager->GetResourceCount());
}
