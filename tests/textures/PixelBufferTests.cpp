// Pixel buffers: lock flags and pitches, the direct and the D3DX roads of the
// copies from and to memory, copies between buffers, and a buffer whose
// binding went with a lost device.
#include "TexturesFixture.h"

using namespace kv;
using namespace kvtest;
using namespace kvtex;
using kvdx::Fn;
using kvproxy::Method;

namespace
{

Box Whole(unsigned width, unsigned height, unsigned depth = 1)
{
    return Box(0, 0, 0, width, height, depth);
}

TEST_F(TexturesTest, LockFlagsPitchesAndRegions)
{
    typedef CHardwareBuffer B;
    const std::tuple<unsigned, B::LockOptions, DWORD> kRows[] = {
        {0, B::LOCK_DISCARD, 0},
        {TU_DYNAMIC, B::LOCK_DISCARD, D3DLOCK_DISCARD},
        {0, B::LOCK_READ_ONLY, D3DLOCK_READONLY},
        {TU_DYNAMIC, B::LOCK_READ_ONLY, D3DLOCK_READONLY},
        {TU_DYNAMIC, B::LOCK_NO_OVERWRITE, 0},
    };
    for (const auto& r : kRows)
    {
        ref_ptr<CTexture> t = Make(256, 4, std::get<0>(r));
        CD3D9HardwarePixelBuffer* b = Buffer(t.get());
        PixelBox box = b->lockImpl(Whole(256, 4), std::get<1>(r));
        EXPECT_EQ(b->m_nLockFlags, std::get<2>(r));
        ASSERT_NE(box.data, nullptr);
        EXPECT_EQ(box.rowPitch, 256u); // a Pitch of 1024 bytes
        EXPECT_EQ(box.slicePitch, 1024u);
        b->UnlockImpl();
    }

    // A render target is tried all the same, after a warning, and Direct3D refuses.
    ref_ptr<CTexture> target = Make(4, 4, TU_RENDERTARGET);
    ClearLog();
    Buffer(target.get())->lockImpl(Whole(4, 4), CHardwareBuffer::LOCK_READ_ONLY);
    Buffer(target.get())->UnlockImpl();
    EXPECT_EQ(
        Errors(),
        (Lines{"directx does not allow locking of or directly writing to RenderTargets. Use "
               "blitFromMemory if you need the contents.D3D9HardwarePixelBuffer::lockImpl",
               "Surface locking failed CD3D9HardwarePixelBuffer::lockImpl, " + std::to_string(int(D3DERR_INVALIDCALL)) +
                   ", " + DXGetErrorString(D3DERR_INVALIDCALL) + ", " + DXGetErrorDescription(D3DERR_INVALIDCALL)}));
}

TEST_F(TexturesTest, CopiesFromMemoryTakeTheDirectRoadWhenTheLayoutMatches)
{
    ref_ptr<CTexture> t = Make(8, 8);
    CD3D9HardwarePixelBuffer* b = Buffer(t.get());
    Pixels pixels = Pattern(8, 8);
    kvdx::Reset();
    b->blitFromMemory(PixelBox(8, 8, 1, PF_A8R8G8B8, pixels.data()), Whole(8, 8));
    EXPECT_TRUE(kvdx::Calls(Fn::LoadSurfaceFromMemory).empty());
    EXPECT_EQ(Read(b), pixels);

    // A part goes through D3DX with both rectangles.
    Pixels green = Fill(4, kGreen);
    kvdx::Reset();
    b->blitFromMemory(PixelBox(2, 2, 1, PF_A8R8G8B8, green.data()), Box(3, 4, 0, 5, 6, 1));
    const std::vector<KvDxCall> loads = kvdx::Calls(Fn::LoadSurfaceFromMemory);
    ASSERT_EQ(loads.size(), 1u);
    EXPECT_EQ(std::vector<uint64_t>(loads[0].args, loads[0].args + 10),
              (std::vector<uint64_t>{D3DFMT_A8R8G8B8, 8, 3, 4, 5, 6, 0, 0, 2, 2}));
    for (unsigned i : {8 * 4 + 3, 8 * 4 + 4, 8 * 5 + 3, 8 * 5 + 4})
        pixels[i] = kGreen;
    EXPECT_EQ(Read(b), pixels);

    // Pixels Direct3D has no format for are converted first, then copied directly.
    std::vector<uint16_t> shorts(8 * 8 * 3, 0);
    for (std::size_t i = 0; i < shorts.size(); i += 3)
        shorts[i] = 0xFFFF; // red
    kvdx::Reset();
    b->blitFromMemory(PixelBox(8, 8, 1, PF_SHORT_RGB, shorts.data()), Whole(8, 8));
    EXPECT_TRUE(kvdx::Calls(Fn::LoadSurfaceFromMemory).empty());
    EXPECT_EQ(Read(b), Fill(64, kRed));

    // Rows wider than the surface's pitch: both numbers logged, nothing copied.
    Pixels wide(16 * 8, kGreen);
    PixelBox tooWide(8, 8, 1, PF_A8R8G8B8, wide.data());
    tooWide.rowPitch = 16;
    ClearLog();
    b->blitFromMemory(tooWide, Whole(8, 8));
    EXPECT_EQ(Errors(), Lines{"Failed to CD3D9HardwarePixelBuffer::blitFromMemory:64, 32"});
    EXPECT_EQ(Read(b), Fill(64, kRed));
}

TEST_F(TexturesTest, CopiesToMemoryReadRenderTargetsBackAndConvertAtTheEnd)
{
    ref_ptr<CTexture> target = Make(8, 8, TU_RENDERTARGET);
    CD3D9HardwarePixelBuffer* b = Buffer(target.get());
    ASSERT_EQ(device->ColorFill(b->getSurface(), nullptr, kRed), D3D_OK);
    // Whole, same format: the device reads it back into system memory. Into a
    // smaller box: scratch memory and D3DX.
    const struct
    {
        unsigned size;
        unsigned readBacks, pool, d3dxLoads;
    } rows[] = {{8, 1, D3DPOOL_SYSTEMMEM, 0}, {2, 0, D3DPOOL_SCRATCH, 1}};
    for (const auto& r : rows)
    {
        kvdx::Reset();
        mark = kvproxy::Here();
        Pixels read(r.size * r.size, 0);
        b->blitToMemory(Whole(8, 8), PixelBox(r.size, r.size, 1, PF_A8R8G8B8, read.data()));
        EXPECT_EQ(read, Fill(r.size * r.size, kRed));
        EXPECT_EQ(kvproxy::CountSince(mark, Method::GetRenderTargetData), r.readBacks);
        EXPECT_EQ(kvdx::Calls(Fn::CreateTexture).at(0).args[5], r.pool);
        EXPECT_EQ(kvdx::Calls(Fn::LoadSurfaceFromSurface).size(), r.d3dxLoads);
    }

    // A format Direct3D does not know is read in the buffer's and converted.
    kvdx::Reset();
    std::vector<uint16_t> shorts(64 * 3, 0);
    b->blitToMemory(Whole(8, 8), PixelBox(8, 8, 1, PF_SHORT_RGB, shorts.data()));
    EXPECT_EQ(kvdx::Calls(Fn::CreateTexture).at(0).args[4], static_cast<uint64_t>(D3DFMT_A8R8G8B8));
    EXPECT_EQ(std::vector<uint16_t>({shorts[0], shorts[1], shorts[63 * 3]}),
              std::vector<uint16_t>({0xFFFF, 0, 0xFFFF}));
}

TEST_F(TexturesTest, BlitsConvertBetweenBuffersOfAnySizeAndFormat)
{
    const Pixels pixels = Pattern(8, 8, 4);
    ref_ptr<CTexture> source = Manual(8, 8, pixels), smaller = Make(4, 4, 0, PF_X8R8G8B8);
    ref_ptr<CHardwarePixelBuffer> from(source->getBuffer(0, 0));
    kvdx::Reset();
    smaller->getBuffer(0, 0)->blit(from, Whole(8, 8), Whole(4, 4));
    ASSERT_EQ(kvdx::Calls(Fn::LoadSurfaceFromSurface).size(), 1u);
    // Each 4 x 4 cell of one colour becomes a 2 x 2 cell.
    const Pixels got = Read(smaller->getBuffer(0, 0));
    EXPECT_EQ(Pixels({got[0], got[3], got[15]}), Pixels({pixels[0], pixels[7], pixels[63]}));

    // From a render target the content comes through system memory first.
    ref_ptr<CTexture> target = Make(8, 8, TU_RENDERTARGET);
    ASSERT_EQ(device->ColorFill(Buffer(target.get())->getSurface(), nullptr, kGreen), D3D_OK);
    mark = kvproxy::Here();
    source->getBuffer(0, 0)->blit(ref_ptr<CHardwarePixelBuffer>(target->getBuffer(0, 0)), Whole(8, 8), Whole(8, 8));
    EXPECT_EQ(kvproxy::CountSince(mark, Method::GetRenderTargetData), 1u);
    EXPECT_EQ(Read(source->getBuffer(0, 0)), Fill(64, kGreen));

    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(TexturesTest, AnUnboundBufferRefusesEveryAccess)
{
    ref_ptr<CTexture> target = Make(8, 8, TU_DYNAMIC), other = Manual(8, 8, Fill(64, kRed));
    ASSERT_EQ(D3D(target.get())->mD3DPool, D3DPOOL_DEFAULT);
    ref_ptr<CHardwarePixelBuffer> b(target->getBuffer(0, 0));
    target->freeInternalResources(); // what a lost device does to a default-pool texture
    ASSERT_EQ(target->getBuffer(0, 0), b.get()) << "the buffer object stays";
    ClearLog();
    Pixels pixels = Fill(64, kGreen);
    EXPECT_EQ(b->lockImpl(Whole(8, 8), CHardwareBuffer::LOCK_NORMAL).data, nullptr);
    b->blitFromMemory(PixelBox(8, 8, 1, PF_A8R8G8B8, pixels.data()), Whole(8, 8));
    b->blitToMemory(Whole(8, 8), PixelBox(8, 8, 1, PF_A8R8G8B8, pixels.data()));
    other->getBuffer(0, 0)->blit(b, Whole(8, 8), Whole(8, 8));
    const std::string prefix = "The pixel buffer has no surface or volume (lost device?) CD3D9HardwarePixelBuffer::";
    EXPECT_EQ(Errors(),
              (Lines{prefix + "lockImpl", prefix + "blitFromMemory", prefix + "blitToMemory", prefix + "blit"}));
    EXPECT_EQ(pixels, Fill(64, kGreen));
    EXPECT_EQ(Read(other->getBuffer(0, 0)), Fill(64, kRed));
}

} // namespace
