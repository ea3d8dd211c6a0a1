// Textures and pixel buffers: the creation roads and their refusals, locks and copies, files in and out, a device reset
// for each pool, the white stand-in.
#include "TexturesFixture.h"

#include <cstdio>
#include <functional>

using namespace kv;
using namespace kvtest;
using namespace kvtex;
using kvdx::Fn;
using kvproxy::Method;

namespace
{

const uint64_t kNullFormat = MAKEFOURCC('N', 'U', 'L', 'L');
const uint64_t kAti2Format = MAKEFOURCC('A', 'T', 'I', '2');

const D3DPOOL kManaged = D3DPOOL_MANAGED, kDefault = D3DPOOL_DEFAULT;
const PixelFormat kArgb = PF_A8R8G8B8;
const DWORD kRT = D3DUSAGE_RENDERTARGET;

// The sizes are the first of what the creator was asked: width, height and, for a volume, depth. An anti-aliased one is
// the render target suite's.
struct Road
{
    const char* name;
    TextureType type;
    int mipmaps;
    PixelFormat format;
    unsigned usage;
    Fn creator;                  // Fn::Count: the device's own CreateTexture
    std::vector<uint64_t> asked; // sizes, level count, usage, format, pool
    D3DPOOL pool;
    unsigned buffers;
};

const TextureType k2D = TEX_TYPE_2D;
const Fn kTex = Fn::CreateTexture;
const Road kRoads[] = {
    {"plain", k2D, 0, kArgb, 0, kTex, {16, 16, 1, 0, 21, 1}, kManaged, 1},
    {"format 0: the back buffer's", k2D, 0, PF_UNKNOWN, 0, kTex, {16, 16, 1, 0, 22, 1}, kManaged, 1},
    {"format 22 as 23", k2D, 0, PF_FLOAT16_RGB, 0, kTex, {16, 16, 1, 0, 113, 1}, kManaged, 1},
    {"format 999 as 12", k2D, 0, PixelFormat(999), 0, kTex, {16, 16, 1, 0, 21, 1}, kManaged, 1},
    {"every level", k2D, -1, kArgb, 0, kTex, {16, 16, D3DX_DEFAULT, 0, 21, 1}, kManaged, 5},
    {"dynamic", k2D, 0, kArgb, TU_DYNAMIC, kTex, {16, 16, 1, 0x200, 21, 0}, kDefault, 1},
    {"render target", k2D, 0, kArgb, TU_RENDERTARGET, kTex, {16, 16, 1, kRT, 21, 0}, kDefault, 1},
    {"usage 0x120", k2D, 0, kArgb, 0x120, kTex, {16, 16, 1, kRT, 21, 0}, kDefault, 1},
    {"generated, none asked", k2D, 0, kArgb, TU_AUTOMIPMAP, kTex, {256, 256, 1, 0x400, 21, 1}, kManaged, 1},
    {"not a power of two", k2D, 3, kArgb, TU_AUTOMIPMAP, kTex, {100, 100, 4, 0, 21, 1}, kManaged, 4},
    {"cube", TEX_TYPE_CUBE_MAP, 2, kArgb, 0, Fn::CreateCubeTexture, {32, 32, 3, 0, 21, 1}, kManaged, 18},
    {"volume", TEX_TYPE_3D, 1, kArgb, 0, Fn::CreateVolumeTexture, {8, 8, 4, 2, 0, 21, 1}, kManaged, 2},
    {"depth", k2D, 0, PF_D16, TU_DEPTHSTENCIL, Fn::Count, {16, 16, 1, 2, D3DFMT_D16, 0}, kDefault, 1},
    {"NULL", k2D, 0, PF_NULL, TU_RENDERTARGET, Fn::Count, {16, 16, 1, kRT, kNullFormat, 0}, kDefault, 1},
    {"ATI2: one level", k2D, 5, PF_ATI2, 0, Fn::Count, {16, 16, 1, 0, kAti2Format, 0}, kDefault, 1},
};

TEST_F(TexturesTest, EachRoadAsksForItsFormatPoolAndLevels)
{
    for (const Road& r : kRoads)
    {
        SCOPED_TRACE(r.name);
        kvdx::Reset();
        mark = kvproxy::Here();
        const unsigned depth = r.type == TEX_TYPE_3D ? static_cast<unsigned>(r.asked[2]) : 1;
        ref_ptr<CTexture> t =
            rs->CreateTextureManual(r.type, static_cast<unsigned>(r.asked[0]), static_cast<unsigned>(r.asked[1]), depth,
                                    r.mipmaps, r.format, r.usage, 0, false);
        ASSERT_TRUE(t) << ::testing::PrintToString(Errors());
        ArgList asked = ArgsOf(mark, Method::CreateTexture, 6);
        if (r.creator != Fn::Count)
        {
            asked.clear();
            for (const KvDxCall& c : kvdx::Calls(r.creator))
                asked.emplace_back(c.args, c.args + c.argCount);
        }
        EXPECT_EQ(asked, ArgList{r.asked});
        CD3D9Texture* d = D3D(t.get());
        EXPECT_EQ(d->mD3DPool, r.pool);
        EXPECT_EQ(d->m_surfaceList.size(), r.buffers);
        EXPECT_EQ(g_nTextureManualSizeInBytes, PixelUtil::calculateSize(d->mNumMipmaps, d->getNumFaces(), d->mWidth,
                                                                        d->mHeight, d->mDepth, d->mFormat));
        // Every buffer is bound, and face by face, level by level: only a cube has a third face.
        for (const auto& b : d->m_surfaceList)
            EXPECT_TRUE(b->getSurface() || b->getVolume());
        EXPECT_EQ(t->getBuffer(2, 1), r.type == TEX_TYPE_CUBE_MAP ? d->m_surfaceList[3 * 2 + 1].get() : nullptr);
        EXPECT_EQ(t->getBuffer(d->getNumFaces(), 0), nullptr); // one past the last
        // Every known type keeps its native objects when given its source attributes.
        d->_setSrcAttributes(d->mWidth, d->mHeight, d->mDepth, d->mFormat);
        EXPECT_TRUE(d->isCreated());
        EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
        t = nullptr;
        EXPECT_EQ(g_nTextureManualSizeInBytes, 0u);
    }
}

struct Refusal
{
    const char* name;
    std::function<void()> arrange;
    TextureType type;
    unsigned usage;
    PixelFormat format;
    std::string textureLine; // empty: the road answers false without a word
};

TEST_F(TexturesTest, RefusedAndFailedRoadsLogAndLeaveNothingAndDeviceLimitsBendTheRequest)
{
    const std::string description = DXGetErrorDescription(E_OUTOFMEMORY);
    const Refusal kRefusals[] = {
        {"volume render target", [] {}, TEX_TYPE_3D, TU_RENDERTARGET, PF_A8R8G8B8,
         "D3D9 Volume texture can not be created as render target !!, D3D9Texture::_createVolumeTex"},
        {"NULL without render target", [] {}, TEX_TYPE_2D, 0, PF_NULL, "Failed to _createNULLTex, not TU_RENDERTARGET"},
        {"depth in a colour format", [] {}, TEX_TYPE_2D, TU_DEPTHSTENCIL, PF_A8R8G8B8, ""},
        {"D3DX cannot make it", [] { kvdx::Fail(Fn::CreateTexture, E_OUTOFMEMORY); }, TEX_TYPE_2D, 0, PF_A8R8G8B8,
         "Error creating texture: " + description + ", D3D9Texture::_createNormTex"},
        {"cube check refused", [] { kvdx::Fail(Fn::CheckCubeTextureRequirements, D3DERR_NOTAVAILABLE); },
         TEX_TYPE_CUBE_MAP, 0, PF_A8R8G8B8, "Failed to D3DXCheckCubeTextureRequirements, d3dPF:21, mD3DPool:1"},
        {"volume creation fails", [] { kvdx::Fail(Fn::CreateVolumeTexture, E_OUTOFMEMORY); }, TEX_TYPE_3D, 0,
         PF_A8R8G8B8, "Error creating texture: " + description + ", D3D9Texture::_createVolumeTex"},
        {"the device refuses a depth texture", [] { kvproxy::FailMethod(Method::CreateTexture, E_OUTOFMEMORY); },
         TEX_TYPE_2D, TU_DEPTHSTENCIL, PF_D16,
         "Error creating texture: " + description + ", D3D9Texture::_createDepthStencilTex"},
    };
    for (const Refusal& r : kRefusals)
    {
        SCOPED_TRACE(r.name);
        ClearLog();
        r.arrange();
        ref_ptr<CTexture> t = rs->CreateTextureManual(r.type, 8, 8, 2, 0, r.format, r.usage, 0, false);
        EXPECT_FALSE(t);
        Lines expected;
        if (!r.textureLine.empty())
            expected.push_back(r.textureLine);
        expected.push_back("Failed to CreateTexture Manual:8 8 " + std::to_string(static_cast<int>(r.format)));
        EXPECT_EQ(Errors(), expected);
        EXPECT_EQ(g_nTextureManualSizeInBytes, 0u);
        kvdx::Reset();
        kvproxy::ClearFaults();
    }

    ClearLog();
    // A failed multisampled surface leaves a working texture without anti-aliasing.
    kvproxy::FailMethod(Method::CreateRenderTarget, E_OUTOFMEMORY);
    ref_ptr<CTexture> aa = rs->CreateTextureManual(TEX_TYPE_2D, 16, 16, 1, 0, kArgb, TU_RENDERTARGET, 8, false);
    ASSERT_TRUE(aa);
    EXPECT_EQ(aa->getFSAA(), 0);
    EXPECT_EQ(Errors(), Lines{"Unable to create AA render target: " + description + ", D3D9Texture::_createNormTex"});

    // Dynamic refused: the managed pool and static buffers.
    kvproxy::FailCheckDeviceFormat(D3DFMT_A8R8G8B8, D3DUSAGE_DYNAMIC, D3DERR_NOTAVAILABLE, KV_PROXY_FOREVER);
    ref_ptr<CTexture> dyn = Make(16, 16, TU_DYNAMIC);
    ASSERT_TRUE(dyn);
    EXPECT_EQ(D3D(dyn.get())->mD3DPool, D3DPOOL_MANAGED);
    EXPECT_EQ(Buffer(dyn.get())->getUsage(), CHardwareBuffer::USAGE_STATIC);

    // No device at all: refused before D3DX is asked.
    aa = dyn = nullptr;
    NewRenderSystem();
    ClearLog();
    kvdx::Reset();
    EXPECT_FALSE(Make(16, 16));
    EXPECT_EQ(Errors(), (Lines{"No device to create the texture on: , D3D9Texture::createInternalResources",
                               "Failed to CreateTexture Manual:16 16 12"}));
    EXPECT_TRUE(kvdx::Calls().empty());
}

const auto Whole = [](unsigned width, unsigned height) { return Box(0, 0, 0, width, height, 1); };

TEST_F(TexturesTest, LockFlagsPitchesAndCopiesFromMemoryByTheDirectRoadWhenTheLayoutMatches)
{
    typedef CHardwareBuffer B;
    const std::tuple<unsigned, B::LockOptions, DWORD> kRows[] = {
        {0, B::LOCK_DISCARD, 0},
        {TU_DYNAMIC, B::LOCK_DISCARD, D3DLOCK_DISCARD},
        {0, B::LOCK_READ_ONLY, D3DLOCK_READONLY},
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
    EXPECT_EQ(Errors(),
              (Lines{"directx does not allow locking of or directly writing to RenderTargets. Use "
                     "blitFromMemory if you need the contents.D3D9HardwarePixelBuffer::lockImpl",
                     "Surface locking failed CD3D9HardwarePixelBuffer::lockImpl, " + HrText(D3DERR_INVALIDCALL)}));

    ref_ptr<CTexture> t = Make(8, 8);
    CD3D9HardwarePixelBuffer* b = Buffer(t.get());
    Pixels pixels = Pattern(8, 8);
    kvdx::Reset();
    b->blitFromMemory(PixelBox(8, 8, 1, PF_A8R8G8B8, pixels.data()), Whole(8, 8));
    EXPECT_TRUE(kvdx::Calls(Fn::LoadSurfaceFromMemory).empty());
    EXPECT_EQ(Read(b), pixels);

    // A part goes through D3DX with both rectangles.
    Pixels green = Pixels(4, kGreen);
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
    EXPECT_EQ(Read(b), Pixels(64, kRed));

    // Rows wider than the surface's pitch are refused with both numbers.
    Pixels wide(16 * 8, kGreen);
    PixelBox tooWide(8, 8, 1, PF_A8R8G8B8, wide.data());
    tooWide.rowPitch = 16;
    ClearLog();
    b->blitFromMemory(tooWide, Whole(8, 8));
    EXPECT_EQ(Errors(), Lines{"Failed to CD3D9HardwarePixelBuffer::blitFromMemory:64, 32"});
}

TEST_F(TexturesTest, CopiesToMemoryAndBetweenBuffersReadRenderTargetsBackConvertAndNeedABoundBuffer)
{
    ref_ptr<CTexture> target = Make(8, 8, TU_RENDERTARGET);
    CD3D9HardwarePixelBuffer* b = Buffer(target.get());
    ASSERT_EQ(device->ColorFill(b->getSurface(), nullptr, kRed), D3D_OK);
    // Whole, same format: the device reads it back into system memory. Into a smaller box: scratch memory and D3DX.
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
        EXPECT_EQ(read, Pixels(r.size * r.size, kRed));
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
    ASSERT_EQ(device->ColorFill(b->getSurface(), nullptr, kGreen), D3D_OK);
    mark = kvproxy::Here();
    source->getBuffer(0, 0)->blit(ref_ptr<CHardwarePixelBuffer>(b), Whole(8, 8), Whole(8, 8));
    EXPECT_EQ(kvproxy::CountSince(mark, Method::GetRenderTargetData), 1u);
    EXPECT_EQ(Read(source->getBuffer(0, 0)), Pixels(64, kGreen));
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());

    // Unbound, as a lost device leaves a default-pool texture, a buffer refuses every access.
    ref_ptr<CTexture> dynamic = Make(8, 8, TU_DYNAMIC);
    ASSERT_EQ(D3D(dynamic.get())->mD3DPool, D3DPOOL_DEFAULT);
    ref_ptr<CHardwarePixelBuffer> unbound(dynamic->getBuffer(0, 0));
    dynamic->freeInternalResources();
    ASSERT_EQ(dynamic->getBuffer(0, 0), unbound.get()) << "the buffer object stays";
    Pixels green(64, kGreen);
    EXPECT_EQ(unbound->lockImpl(Whole(8, 8), CHardwareBuffer::LOCK_NORMAL).data, nullptr);
    unbound->blitFromMemory(PixelBox(8, 8, 1, PF_A8R8G8B8, green.data()), Whole(8, 8));
    unbound->blitToMemory(Whole(8, 8), PixelBox(8, 8, 1, PF_A8R8G8B8, green.data()));
    source->getBuffer(0, 0)->blit(unbound, Whole(8, 8), Whole(8, 8));
    const std::string prefix = "The pixel buffer has no surface or volume (lost device?) CD3D9HardwarePixelBuffer::";
    EXPECT_EQ(Errors(),
              (Lines{prefix + "lockImpl", prefix + "blitFromMemory", prefix + "blitToMemory", prefix + "blit"}));
}

TEST_F(TexturesTest, SavesFollowTheLowerCasedEndingAndCopiesGoToTexturesAndFromTheWindow)
{
    const struct
    {
        const char* file;
        D3DXIMAGE_FILEFORMAT asked;
        bool known, saved; // saved: on this platform's D3DX
    } kRows[] = {
        {"shot.PNG", D3DXIFF_PNG, true, true},   {"shot.bmp", D3DXIFF_BMP, true, true},
        {"shot.jpg", D3DXIFF_JPG, true, true},   {"shot.tga", D3DXIFF_TGA, true, false},
        {"shot.dds", D3DXIFF_DDS, true, false},  {"shot.Hdr", D3DXIFF_HDR, true, false},
        {"shot.xyz", D3DXIFF_DDS, false, false}, {"png", D3DXIFF_DDS, false, false},
    };
    const Pixels pixels = Pattern(8, 8, 2);
    ref_ptr<CTexture> t = Manual(8, 8, pixels);
    for (const auto& r : kRows)
    {
        SCOPED_TRACE(r.file);
        const std::string path = dir + "\\" + r.file;
        kvdx::Reset();
        ClearLog();
        EXPECT_EQ(t->SaveToFile(path.c_str()), r.saved);
        EXPECT_EQ(kvdx::Calls(Fn::SaveTextureToFileA).at(0).args[0], static_cast<uint64_t>(r.asked));
        Lines expected;
        if (!r.known)
            expected.push_back("Unknow Texture format to Save:" + path);
        if (!r.saved)
            expected.push_back("Failed to D3DXSaveTextureToFile:" + path + ", , " + DXGetErrorDescription(E_NOTIMPL));
        EXPECT_EQ(Errors(), expected);
        if (r.saved && r.asked != D3DXIFF_JPG)
        {
            EXPECT_EQ(Read(rs->CreateTexture(path.c_str(), TEX_TYPE_2D, 0, false)->getBuffer(0, 0)), pixels);
        }
    }

    ref_ptr<CTexture> from = Make(8, 8, TU_RENDERTARGET), to = Make(8, 8, TU_RENDERTARGET);
    ASSERT_EQ(device->ColorFill(Buffer(from.get())->getSurface(), nullptr, kRed), D3D_OK);
    mark = kvproxy::Here();
    from->copyToTexture(to.get());
    const ArgList stretches = ArgsOf(mark, Method::StretchRect, 5);
    ASSERT_EQ(stretches.size(), 1u);
    EXPECT_EQ(stretches[0][1], 0u); // the whole source, unfiltered
    EXPECT_EQ(stretches[0][4], static_cast<uint64_t>(D3DTEXF_NONE));
    EXPECT_EQ(Read(to->getBuffer(0, 0)), Pixels(64, kRed));

    ref_ptr<CTexture> volume = rs->CreateTextureManual(TEX_TYPE_3D, 8, 8, 2, 0, PF_A8R8G8B8, 0, 0, false);
    ClearLog();
    from->copyToTexture(t.get());
    volume->copyToTexture(volume.get());
    EXPECT_EQ(Errors(), (Lines{"Src. and dest. textures must be of same type and must have the same usage !!! , "
                               "D3D9Texture::copyToTexture",
                               "Copy to texture is implemented only for 2D and cube textures !!! , "
                               "D3D9Texture::copyToTexture"}));

    // The window's back buffer into a texture of its size.
    ref_ptr<CTexture> shot = Make(kWidth, kHeight, TU_RENDERTARGET);
    ASSERT_NO_FATAL_FAILURE(BeginClearedFrame());
    EXPECT_TRUE(MainWindow()->CopyToTexture(shot.get()));
    rs->_endFrame();
    EXPECT_EQ(Read(shot->getBuffer(0, 0)), Pixels(kWidth * kHeight, kClear));
}

TEST_F(TexturesTest, AResetRebuildsDefaultPoolTexturesAndATextureNotReadyBindsTheWhiteOne)
{
    ref_ptr<CTexture> target = Make(16, 16, TU_RENDERTARGET), managed = Manual(8, 8, Pattern(8, 8));
    const uint32_t bytes = g_nTextureManualSizeInBytes;
    ASSERT_EQ(bytes, 16u * 16 * 4 + 8 * 8 * 4);
    CHardwarePixelBuffer* buffer = target->getBuffer(0, 0);
    CRenderTarget* renderTexture = buffer->getRenderTarget(0);

    kvproxy::LoseDevice();
    EXPECT_FALSE(rs->IsDeviceAvailable());
    kvproxy::AllowDeviceReset();
    mark = kvproxy::Here();
    ASSERT_TRUE(rs->IsDeviceAvailable());
    ASSERT_EQ(kvproxy::CountSince(mark, Method::Reset), 1u);

    // The render target is made anew, into the same buffer and render texture.
    EXPECT_EQ(ArgsOf(mark, Method::CreateTexture, 6), (ArgList{{16, 16, 1, D3DUSAGE_RENDERTARGET, 21, 0}}));
    EXPECT_EQ(target->getBuffer(0, 0), buffer);
    EXPECT_EQ(buffer->getRenderTarget(0), renderTexture);
    EXPECT_NE(Buffer(target.get())->getSurface(), nullptr);
    EXPECT_EQ(g_nTextureManualSizeInBytes, bytes);
    // The managed one kept its pixels without any work, and a manual texture's reload leaves its native objects alone.
    EXPECT_EQ(Read(managed->getBuffer(0, 0)), Pattern(8, 8));
    IDirect3DBaseTexture9* native = D3D(managed.get())->m_pTextures->baseTex;
    EXPECT_TRUE(managed->Reload());
    EXPECT_EQ(D3D(managed.get())->m_pTextures->baseTex, native);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());

    ref_ptr<CD3D9Texture> pending(new CD3D9Texture); // never loaded
    CD3D9Texture* white = D3D(rs->GetWhiteTexture());
    ASSERT_NE(white, nullptr);
    EXPECT_EQ(Read(white->getBuffer(0, 0)), Pixels(1, 0xFFFFFFFFu));
    ref_ptr<CTexture> ready = Make(4, 4);
    mark = kvproxy::Here();
    rs->SetTexture(0, pending.get(), SamplerState());
    rs->SetTexture(1, ready.get(), SamplerState());
    EXPECT_EQ(ArgsOf(mark, Method::SetTexture, 2),
              (ArgList{{0, kvproxy::PtrArg(white->m_pTextures->baseTex)},
                       {1, kvproxy::PtrArg(D3D(ready.get())->m_pTextures->baseTex)}}));
}

TEST_F(TexturesTest, LevelsComeFromTheFileAndTheRestAreGenerated)
{
    // Three levels of one colour each, in a file: red, green, blue.
    const Bytes file = WriteDds(16, 16, 1, false, {Pixels(256, kRed), Pixels(64, kGreen), Pixels(16, 0xFF0000FF)});
    // Without hardware generation the missing levels are filtered from level 0.
    EndRenderSystem();
    kvproxy::ClearCapBits(KV_PROXY_CAP(Caps2), D3DCAPS2_CANAUTOGENMIPMAP);
    NewRenderSystem();
    ASSERT_NO_FATAL_FAILURE(Start());

    // As many levels as the file has: each from the file, nothing generated.
    kvdx::Reset();
    ref_ptr<CTexture> three = FromMemory("levels.dds", file, TEX_TYPE_2D, 2);
    ASSERT_TRUE(three);
    ASSERT_EQ(three->mNumMipmaps, 2u);
    EXPECT_EQ(Read(three->getBuffer(0, 2)), Pixels(16, 0xFF0000FF));
    EXPECT_TRUE(kvdx::Calls(Fn::FilterTexture).empty());

    // More levels than the file has: the chain is filtered from level 0, box and sRGB.
    kvdx::Reset();
    ref_ptr<CTexture> all = FromMemory("levels.dds", file, TEX_TYPE_2D, 5);
    ASSERT_TRUE(all);
    ASSERT_EQ(all->mNumMipmaps, 4u); // 16 to 1: five levels
    const std::vector<KvDxCall> filters = kvdx::Calls(Fn::FilterTexture);
    ASSERT_EQ(filters.size(), 1u);
    EXPECT_EQ(filters[0].args[1], 0x600005u);
    EXPECT_EQ(Read(all->getBuffer(0, 4)), Pixels(1, kRed));

    // A failed filter is logged with the file's name.
    kvdx::Fail(Fn::FilterTexture, E_FAIL);
    ClearLog();
    all->_autogenerateMipmaps();
    EXPECT_EQ(Errors(), Lines{"Failed to D3DXFilterTexture, levels.dds"});
}

TEST_F(TexturesTest, FilesFillEveryFaceAndSliceAndBadOnesAreRefusedWithTheirName)
{
    // A level count of about a billion: D3DX would walk it before reading a pixel.
    Bytes huge = WriteDds(4, 4, 1, false, {Pixels(16, kRed), Pixels(4, kRed)});
    huge[31] = 0x40;
    char hr[16];
    std::snprintf(hr, sizeof hr, "%08lx", static_cast<unsigned long>(D3DXERR_INVALIDDATA));
    const struct
    {
        const char* name;
        Bytes bytes;
        TextureType type;
        std::string line;
    } rows[] = {
        {"text.png", Bytes(12, 'x'), k2D, std::string("Not an image file D3DX can read: text.png, hr:0x") + hr},
        {"empty.png", Bytes(), k2D, "No image data for the texture empty.png"},
        {"huge.dds", huge, k2D, "DDS header out of range: huge.dds, 4 x 4 x 1, 1073741826 levels"},
        {"flat.dds", WriteDds(4, 4, 1, false, {Pixels(16, kRed)}), TEX_TYPE_CUBE_MAP,
         "The image flat.dds holds no cube map"},
    };
    for (const auto& r : rows)
    {
        ClearLog();
        EXPECT_FALSE(FromMemory(r.name, r.bytes, r.type));
        EXPECT_EQ(Errors(), (Lines{r.line, std::string("Failed to CreateTextureFromMemory:") + r.name}));
        EXPECT_EQ(g_nTextureResSizeInBytes, 0u);
    }
    ClearLog();
    EXPECT_FALSE(rs->CreateTexture((dir + "\\missing.png").c_str(), TEX_TYPE_2D, 0, false));
    EXPECT_EQ(Errors(), (Lines{"Cannot read the texture file " + dir + "\\missing.png",
                               "Failed to CreateTexture:" + dir + "\\missing.png"}));

    // Cube faces and volume slices from files.
    const uint32_t kFaces[6] = {kRed, kGreen, 0xFF0000FF, 0xFFFFFF00, 0xFF00FFFF, 0xFFFF00FF};
    std::vector<Pixels> faces;
    for (uint32_t c : kFaces)
        faces.push_back(Pixels(16, c));
    ref_ptr<CTexture> cube = FromMemory("cube.dds", WriteDds(4, 4, 1, true, faces), TEX_TYPE_CUBE_MAP);
    ASSERT_TRUE(cube) << ::testing::PrintToString(Errors());
    for (unsigned f = 0; f < 6; ++f)
        EXPECT_EQ(Read(cube->getBuffer(f, 0)), faces[f]) << "face " << f;

    Pixels slices(16, kRed);
    slices.resize(32, kGreen);
    ref_ptr<CTexture> volume = FromMemory("volume.dds", WriteDds(4, 4, 2, false, {slices}), TEX_TYPE_3D);
    ASSERT_TRUE(volume) << ::testing::PrintToString(Errors());
    EXPECT_EQ(Read(volume->getBuffer(0, 0)), slices);
    EXPECT_EQ(g_nTextureResSizeInBytes, 6u * 64 + 128);
}

} // namespace
