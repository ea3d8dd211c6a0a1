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

struct LockRow
{
    unsigned usage;
    CHardwareBuffer::LockOptions option;
    DWORD flags;
};

TEST_F(TexturesTest, LockFlagsPitchesAndRegions)
{
    const LockRow kRows[] = {
        {0, CHardwareBuffer::LOCK_DISCARD, 0},
        {TU_DYNAMIC, CHardwareBuffer::LOCK_DISCARD, D3DLOCK_DISCARD},
        {0, CHardwareBuffer::LOCK_READ_ONLY, D3DLOCK_READONLY},
        {TU_DYNAMIC, CHardwareBuffer::LOCK_READ_ONLY, D3DLOCK_READONLY},
        {TU_DYNAMIC, CHardwareBuffer::LOCK_NO_OVERWRITE, 0},
    };
    for (const LockRow& r : kRows)
    {
        ref_ptr<CTexture> t = rs->CreateTextureManual(TEX_TYPE_2D, 256, 4, 1, 0, PF_A8R8G8B8, r.usage, 0, false);
        ASSERT_TRUE(t);
        CD3D9HardwarePixelBuffer* b = Buffer(t.get());
        PixelBox box = b->lockImpl(Box(0, 0, 0, 256, 4, 1), r.option);
        EXPECT_EQ(b->m_nLockFlags, r.flags) << r.usage << " " << r.option;
        ASSERT_NE(box.data, nullptr);
        EXPECT_EQ(box.rowPitch, 256u); // a Pitch of 1024 bytes
        EXPECT_EQ(box.slicePitch, 1024u);
        b->UnlockImpl();
    }

    // A box one pixel narrower locks only its rectangle: writing its first
    // pixel lands at (1, 1).
    ref_ptr<CTexture> t = Manual(4, 4, Fill(16, kRed));
    CD3D9HardwarePixelBuffer* b = Buffer(t.get());
    PixelBox part = b->lockImpl(Box(1, 1, 0, 4, 4, 1), CHardwareBuffer::LOCK_NORMAL);
    ASSERT_NE(part.data, nullptr);
    EXPECT_EQ(part.getWidth(), 3u);
    *static_cast<uint32_t*>(part.data) = kGreen;
    b->UnlockImpl();
    std::vector<uint32_t> expected = Fill(16, kRed);
    expected[5] = kGreen;
    EXPECT_EQ(Read(b), expected);

    // A render target is locked all the same, after a warning.
    ref_ptr<CTexture> target = rs->CreateTextureManual(TEX_TYPE_2D, 4, 4, 1, 0, PF_A8R8G8B8, TU_RENDERTARGET, 0, false);
    ClearLog();
    Buffer(target.get())->lockImpl(Box(0, 0, 0, 4, 4, 1), CHardwareBuffer::LOCK_READ_ONLY);
    Buffer(target.get())->UnlockImpl();
    EXPECT_TRUE(Logged("directx does not allow locking of or directly writing to RenderTargets. Use blitFromMemory if "
                       "you need the contents.D3D9HardwarePixelBuffer::lockImpl"));
}

TEST_F(TexturesTest, CopiesFromMemoryTakeTheDirectRoadWhenTheLayoutMatches)
{
    ref_ptr<CTexture> t = rs->CreateTextureManual(TEX_TYPE_2D, 8, 8, 1, 0, PF_A8R8G8B8, 0, 0, false);
    CD3D9HardwarePixelBuffer* b = Buffer(t.get());
    std::vector<uint32_t> pixels = Pattern(8, 8);
    kvdx::Reset();
    b->blitFromMemory(PixelBox(8, 8, 1, PF_A8R8G8B8, pixels.data()), Box(0, 0, 0, 8, 8, 1));
    EXPECT_TRUE(kvdx::Calls(Fn::LoadSurfaceFromMemory).empty());
    EXPECT_EQ(Read(b), pixels);

    // A part goes through D3DX with both rectangles.
    std::vector<uint32_t> green = Fill(4, kGreen);
    kvdx::Reset();
    b->blitFromMemory(PixelBox(2, 2, 1, PF_A8R8G8B8, green.data()), Box(3, 4, 0, 5, 6, 1));
    std::vector<KvDxCall> loads = kvdx::Calls(Fn::LoadSurfaceFromMemory);
    ASSERT_EQ(loads.size(), 1u);
    EXPECT_EQ(std::vector<uint64_t>(loads[0].args, loads[0].args + 10),
              (std::vector<uint64_t>{D3DFMT_A8R8G8B8, 8, 3, 4, 5, 6, 0, 0, 2, 2}));
    std::vector<uint32_t> expected = pixels;
    for (unsigned y = 4; y < 6; ++y)
        for (unsigned x = 3; x < 5; ++x)
            expected[y * 8 + x] = kGreen;
    EXPECT_EQ(Read(b), expected);

    // Pixels Direct3D has no format for are converted first, then copied directly.
    std::vector<uint16_t> shorts(8 * 8 * 3, 0);
    for (std::size_t i = 0; i < shorts.size(); i += 3)
        shorts[i] = 0xFFFF; // red
    kvdx::Reset();
    b->blitFromMemory(PixelBox(8, 8, 1, PF_SHORT_RGB, shorts.data()), Box(0, 0, 0, 8, 8, 1));
    EXPECT_TRUE(kvdx::Calls(Fn::LoadSurfaceFromMemory).empty());
    EXPECT_EQ(Read(b), Fill(64, kRed));

    // Rows wider than the surface's pitch: both numbers logged, nothing copied.
    std::vector<uint32_t> wide(16 * 8, kGreen);
    PixelBox tooWide(8, 8, 1, PF_A8R8G8B8, wide.data());
    tooWide.rowPitch = 16;
    ClearLog();
    b->blitFromMemory(tooWide, Box(0, 0, 0, 8, 8, 1));
    EXPECT_EQ(Errors(), std::vector<std::string>{"Failed to CD3D9HardwarePixelBuffer::blitFromMemory:64, 32"});
    EXPECT_EQ(Read(b), Fill(64, kRed));
}

TEST_F(TexturesTest, CopiesToMemoryReadRenderTargetsBackAndConvertAtTheEnd)
{
    ref_ptr<CTexture> target = rs->CreateTextureManual(TEX_TYPE_2D, 8, 8, 1, 0, PF_A8R8G8B8, TU_RENDERTARGET, 0, false);
    CD3D9HardwarePixelBuffer* b = Buffer(target.get());
    ASSERT_EQ(device->ColorFill(b->getSurface(), nullptr, kRed), D3D_OK);

    // Whole, same format: the device reads it back into system memory.
    kvdx::Reset();
    mark = kvproxy::Here();
    EXPECT_EQ(Read(b), Fill(64, kRed));
    EXPECT_EQ(kvproxy::CountSince(mark, Method::GetRenderTargetData), 1u);
    EXPECT_EQ(kvdx::Calls(Fn::CreateTexture).at(0).args[5], static_cast<uint64_t>(D3DPOOL_SYSTEMMEM));
    EXPECT_TRUE(kvdx::Calls(Fn::LoadSurfaceFromSurface).empty());

    // Into a smaller box: scratch memory and D3DX.
    kvdx::Reset();
    mark = kvproxy::Here();
    std::vector<uint32_t> small(4, 0);
    b->blitToMemory(Box(0, 0, 0, 8, 8, 1), PixelBox(2, 2, 1, PF_A8R8G8B8, small.data()));
    EXPECT_EQ(small, Fill(4, kRed));
    EXPECT_EQ(kvproxy::CountSince(mark, Method::GetRenderTargetData), 0u);
    EXPECT_EQ(kvdx::Calls(Fn::CreateTexture).at(0).args[5], static_cast<uint64_t>(D3DPOOL_SCRATCH));
    EXPECT_EQ(kvdx::Calls(Fn::LoadSurfaceFromSurface).size(), 1u);

    // A format Direct3D does not know is read in the buffer's and converted.
    kvdx::Reset();
    std::vector<uint16_t> shorts(64 * 3, 0);
    b->blitToMemory(Box(0, 0, 0, 8, 8, 1), PixelBox(8, 8, 1, PF_SHORT_RGB, shorts.data()));
    EXPECT_EQ(kvdx::Calls(Fn::CreateTexture).at(0).args[4], static_cast<uint64_t>(D3DFMT_A8R8G8B8));
    EXPECT_EQ(shorts[0], 0xFFFF);
    EXPECT_EQ(shorts[1], 0);
    EXPECT_EQ(shorts[63 * 3], 0xFFFF);

    // A failed temporary is logged and leaves the destination alone.
    kvdx::Fail(Fn::CreateTexture, E_OUTOFMEMORY);
    ClearLog();
    std::vector<uint32_t> untouched = Fill(64, kGreen);
    b->blitToMemory(Box(0, 0, 0, 8, 8, 1), PixelBox(8, 8, 1, PF_A8R8G8B8, untouched.data()));
    EXPECT_EQ(Errors(),
              std::vector<std::string>{"Create temporary texture failed CD3D9HardwarePixelBuffer::blitToMemory"});
    EXPECT_EQ(untouched, Fill(64, kGreen));
}

TEST_F(TexturesTest, BlitsConvertBetweenBuffersOfAnySizeAndFormat)
{
    std::vector<uint32_t> pixels = Pattern(8, 8, 4);
    ref_ptr<CTexture> source = Manual(8, 8, pixels);
    ref_ptr<CTexture> smaller = rs->CreateTextureManual(TEX_TYPE_2D, 4, 4, 1, 0, PF_X8R8G8B8, 0, 0, false);
    ref_ptr<CHardwarePixelBuffer> from(source->getBuffer(0, 0));
    kvdx::Reset();
    smaller->getBuffer(0, 0)->blit(from, Box(0, 0, 0, 8, 8, 1), Box(0, 0, 0, 4, 4, 1));
    ASSERT_EQ(kvdx::Calls(Fn::LoadSurfaceFromSurface).size(), 1u);
    // Each 4 x 4 cell of one colour becomes a 2 x 2 cell.
    std::vector<uint32_t> got = Read(smaller->getBuffer(0, 0));
    EXPECT_EQ(got[0], pixels[0]);
    EXPECT_EQ(got[3], pixels[7]);
    EXPECT_EQ(got[15], pixels[63]);

    // From a render target the content comes through system memory first.
    ref_ptr<CTexture> target = rs->CreateTextureManual(TEX_TYPE_2D, 8, 8, 1, 0, PF_A8R8G8B8, TU_RENDERTARGET, 0, false);
    ASSERT_EQ(device->ColorFill(Buffer(target.get())->getSurface(), nullptr, kGreen), D3D_OK);
    mark = kvproxy::Here();
    source->getBuffer(0, 0)->blit(ref_ptr<CHardwarePixelBuffer>(target->getBuffer(0, 0)), Box(0, 0, 0, 8, 8, 1),
                                  Box(0, 0, 0, 8, 8, 1));
    EXPECT_EQ(kvproxy::CountSince(mark, Method::GetRenderTargetData), 1u);
    EXPECT_EQ(Read(source->getBuffer(0, 0)), Fill(64, kGreen));

    // A surface into a volume slice goes through the engine's memory road.
    ref_ptr<CTexture> volume = rs->CreateTextureManual(TEX_TYPE_3D, 8, 8, 2, 0, PF_A8R8G8B8, 0, 0, false);
    volume->getBuffer(0, 0)->blit(from, Box(0, 0, 0, 8, 8, 1), Box(0, 0, 1, 8, 8, 2));
    std::vector<uint32_t> slices = Read(volume->getBuffer(0, 0));
    EXPECT_EQ(std::vector<uint32_t>(slices.begin() + 64, slices.end()), Fill(64, kGreen));
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(TexturesTest, AnUnboundBufferRefusesEveryAccess)
{
    ref_ptr<CTexture> target = rs->CreateTextureManual(TEX_TYPE_2D, 8, 8, 1, 0, PF_A8R8G8B8, TU_DYNAMIC, 0, false);
    ASSERT_EQ(D3D(target.get())->mD3DPool, D3DPOOL_DEFAULT);
    ref_ptr<CHardwarePixelBuffer> b(target->getBuffer(0, 0));
    ref_ptr<CTexture> other = Manual(8, 8, Fill(64, kRed));
    target->freeInternalResources(); // what a lost device does to a default-pool texture
    ASSERT_EQ(target->getBuffer(0, 0), b.get()) << "the buffer object stays";
    ClearLog();
    std::vector<uint32_t> pixels = Fill(64, kGreen);
    EXPECT_EQ(b->lockImpl(Box(0, 0, 0, 8, 8, 1), CHardwareBuffer::LOCK_NORMAL).data, nullptr);
    b->blitFromMemory(PixelBox(8, 8, 1, PF_A8R8G8B8, pixels.data()), Box(0, 0, 0, 8, 8, 1));
    b->blitToMemory(Box(0, 0, 0, 8, 8, 1), PixelBox(8, 8, 1, PF_A8R8G8B8, pixels.data()));
    other->getBuffer(0, 0)->blit(b, Box(0, 0, 0, 8, 8, 1), Box(0, 0, 0, 8, 8, 1));
    const std::string prefix = "The pixel buffer has no surface or volume (lost device?) CD3D9HardwarePixelBuffer::";
    EXPECT_EQ(Errors(), (std::vector<std::string>{prefix + "lockImpl", prefix + "blitFromMemory",
                                                  prefix + "blitToMemory", prefix + "blit"}));
    EXPECT_EQ(pixels, Fill(64, kGreen));
    EXPECT_EQ(Read(other->getBuffer(0, 0)), Fill(64, kRed));
}

} // namespace
