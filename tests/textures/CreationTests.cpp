// The six creation roads: what each asks of D3DX or the device, the pool and
// level count it ends with, its buffers and byte count; and each road's
// refusals and failures, with the log line and nothing left behind.
#include "TexturesFixture.h"

#include <functional>

using namespace kv;
using namespace kvtest;
using kvdx::Fn;
using kvproxy::Method;

namespace
{

const uint64_t kNullFormat = MAKEFOURCC('N', 'U', 'L', 'L');
const uint64_t kAti2Format = MAKEFOURCC('A', 'T', 'I', '2');

struct Road
{
    const char* name;
    TextureType type;
    unsigned width, height, depth;
    int mipmaps;
    PixelFormat format;
    unsigned usage;
    unsigned char fsaa;
    Fn creator; // Fn::Count: the device's own CreateTexture
    // What the creator was asked: sizes, level count, usage, format, pool.
    std::vector<uint64_t> asked;
    D3DPOOL pool;
    unsigned buffers;
    unsigned char finalFsaa;
};

const Road kRoads[] = {
    {"plain",
     TEX_TYPE_2D,
     16,
     16,
     1,
     0,
     PF_A8R8G8B8,
     0,
     0,
     Fn::CreateTexture,
     {16, 16, 1, 0, 21, 1},
     D3DPOOL_MANAGED,
     1,
     0},
    {"format 0 is the back buffer's",
     TEX_TYPE_2D,
     16,
     16,
     1,
     0,
     PF_UNKNOWN,
     0,
     0,
     Fn::CreateTexture,
     {16, 16, 1, 0, 22, 1},
     D3DPOOL_MANAGED,
     1,
     0},
    {"format 22 is asked as 23",
     TEX_TYPE_2D,
     16,
     16,
     1,
     0,
     PF_FLOAT16_RGB,
     0,
     0,
     Fn::CreateTexture,
     {16, 16, 1, 0, 113, 1},
     D3DPOOL_MANAGED,
     1,
     0},
    {"format 999 is asked as 12",
     TEX_TYPE_2D,
     16,
     16,
     1,
     0,
     static_cast<PixelFormat>(999),
     0,
     0,
     Fn::CreateTexture,
     {16, 16, 1, 0, 21, 1},
     D3DPOOL_MANAGED,
     1,
     0},
    {"every level",
     TEX_TYPE_2D,
     16,
     16,
     1,
     -1,
     PF_A8R8G8B8,
     0,
     0,
     Fn::CreateTexture,
     {16, 16, D3DX_DEFAULT, 0, 21, 1},
     D3DPOOL_MANAGED,
     5,
     0},
    {"dynamic",
     TEX_TYPE_2D,
     16,
     16,
     1,
     0,
     PF_A8R8G8B8,
     TU_DYNAMIC,
     0,
     Fn::CreateTexture,
     {16, 16, 1, D3DUSAGE_DYNAMIC, 21, 0},
     D3DPOOL_DEFAULT,
     1,
     0},
    {"render target",
     TEX_TYPE_2D,
     16,
     16,
     1,
     0,
     PF_A8R8G8B8,
     TU_RENDERTARGET,
     0,
     Fn::CreateTexture,
     {16, 16, 1, D3DUSAGE_RENDERTARGET, 21, 0},
     D3DPOOL_DEFAULT,
     1,
     0},
    {"anti-aliased render target",
     TEX_TYPE_2D,
     16,
     16,
     1,
     0,
     PF_A8R8G8B8,
     TU_RENDERTARGET,
     8,
     Fn::CreateTexture,
     {16, 16, 1, D3DUSAGE_RENDERTARGET, 21, 0},
     D3DPOOL_DEFAULT,
     1,
     4},
    {"usage 0x120 takes its type's road",
     TEX_TYPE_2D,
     16,
     16,
     1,
     0,
     PF_A8R8G8B8,
     TU_RENDERTARGET | TU_DEPTHSTENCIL,
     0,
     Fn::CreateTexture,
     {16, 16, 1, D3DUSAGE_RENDERTARGET, 21, 0},
     D3DPOOL_DEFAULT,
     1,
     0},
    {"generated levels, none asked",
     TEX_TYPE_2D,
     256,
     256,
     1,
     0,
     PF_A8R8G8B8,
     TU_AUTOMIPMAP,
     0,
     Fn::CreateTexture,
     {256, 256, 1, D3DUSAGE_AUTOGENMIPMAP, 21, 1},
     D3DPOOL_MANAGED,
     1,
     0},
    {"no generation below a power of two",
     TEX_TYPE_2D,
     100,
     100,
     1,
     3,
     PF_A8R8G8B8,
     TU_AUTOMIPMAP,
     0,
     Fn::CreateTexture,
     {100, 100, 4, 0, 21, 1},
     D3DPOOL_MANAGED,
     4,
     0},
    {"cube",
     TEX_TYPE_CUBE_MAP,
     32,
     32,
     1,
     2,
     PF_A8R8G8B8,
     0,
     0,
     Fn::CreateCubeTexture,
     {32, 32, 3, 0, 21, 1},
     D3DPOOL_MANAGED,
     18,
     0},
    {"volume",
     TEX_TYPE_3D,
     8,
     8,
     4,
     1,
     PF_A8R8G8B8,
     0,
     0,
     Fn::CreateVolumeTexture,
     {8, 8, 4, 2, 0, 21, 1},
     D3DPOOL_MANAGED,
     2,
     0},
    {"depth",
     TEX_TYPE_2D,
     16,
     16,
     1,
     0,
     PF_D16,
     TU_DEPTHSTENCIL,
     0,
     Fn::Count,
     {16, 16, 1, D3DUSAGE_DEPTHSTENCIL, D3DFMT_D16, 0},
     D3DPOOL_DEFAULT,
     1,
     0},
    {"NULL",
     TEX_TYPE_2D,
     16,
     16,
     1,
     0,
     PF_NULL,
     TU_RENDERTARGET,
     0,
     Fn::Count,
     {16, 16, 1, D3DUSAGE_RENDERTARGET, kNullFormat, 0},
     D3DPOOL_DEFAULT,
     1,
     0},
    {"ATI2 has one level",
     TEX_TYPE_2D,
     16,
     16,
     1,
     5,
     PF_ATI2,
     0,
     0,
     Fn::Count,
     {16, 16, 1, 0, kAti2Format, 0},
     D3DPOOL_DEFAULT,
     1,
     0},
};

TEST_F(TexturesTest, EachRoadAsksForItsFormatPoolAndLevels)
{
    for (const Road& r : kRoads)
    {
        SCOPED_TRACE(r.name);
        kvdx::Reset();
        g_nTextureManualSizeInBytes = 0;
        mark = kvproxy::Here();
        ref_ptr<CTexture> t =
            rs->CreateTextureManual(r.type, r.width, r.height, r.depth, r.mipmaps, r.format, r.usage, r.fsaa, false);
        ASSERT_TRUE(t) << ::testing::PrintToString(Errors());
        std::vector<uint64_t> asked;
        if (r.creator == Fn::Count)
        {
            ArgList calls = ArgsOf(mark, Method::CreateTexture, 6);
            ASSERT_EQ(calls.size(), 1u);
            asked = calls[0];
        }
        else
        {
            std::vector<KvDxCall> calls = kvdx::Calls(r.creator);
            ASSERT_EQ(calls.size(), 1u);
            asked.assign(calls[0].args, calls[0].args + calls[0].argCount);
        }
        EXPECT_EQ(asked, r.asked);
        CD3D9Texture* d = D3D(t.get());
        EXPECT_EQ(d->mD3DPool, r.pool);
        EXPECT_EQ(d->m_surfaceList.size(), r.buffers);
        EXPECT_EQ(d->mNumMipmaps + 1, r.buffers / d->getNumFaces());
        EXPECT_EQ(t->getFSAA(), r.finalFsaa);
        EXPECT_EQ(g_nTextureManualSizeInBytes, PixelUtil::calculateSize(d->mNumMipmaps, d->getNumFaces(), d->mWidth,
                                                                        d->mHeight, d->mDepth, d->mFormat));
        EXPECT_EQ(r.finalFsaa != 0, d->m_pTextures->fsaaSurface != nullptr);
        // Every buffer is bound, and face by face, level by level.
        for (const auto& b : d->m_surfaceList)
            EXPECT_TRUE(b->getSurface() || b->getVolume());
        if (r.type == TEX_TYPE_CUBE_MAP)
        {
            EXPECT_EQ(t->getBuffer(2, 1), d->m_surfaceList[3 * 2 + 1].get());
        }
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

TEST_F(TexturesTest, RefusedAndFailedRoadsLogAndLeaveNothing)
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
        std::vector<std::string> expected;
        if (!r.textureLine.empty())
            expected.push_back(r.textureLine);
        expected.push_back("Failed to CreateTexture Manual:8 8 " + std::to_string(static_cast<int>(r.format)));
        EXPECT_EQ(Errors(), expected);
        EXPECT_EQ(g_nTextureManualSizeInBytes, 0u);
        kvdx::Reset();
        kvproxy::ClearFaults();
    }
}

TEST_F(TexturesTest, DeviceLimitsBendTheRequestInsteadOfFailing)
{
    // A failed multisampled surface leaves a working texture without anti-aliasing.
    kvproxy::FailMethod(Method::CreateRenderTarget, E_OUTOFMEMORY);
    ref_ptr<CTexture> aa = rs->CreateTextureManual(TEX_TYPE_2D, 16, 16, 1, 0, PF_A8R8G8B8, TU_RENDERTARGET, 8, false);
    ASSERT_TRUE(aa);
    EXPECT_EQ(aa->getFSAA(), 0);
    EXPECT_EQ(Errors(), std::vector<std::string>{
                            "Unable to create AA render target: " + std::string(DXGetErrorDescription(E_OUTOFMEMORY)) +
                            ", D3D9Texture::_createNormTex"});

    // Dynamic refused: the managed pool and static buffers.
    ClearLog();
    kvproxy::FailCheckDeviceFormat(D3DFMT_A8R8G8B8, D3DUSAGE_DYNAMIC, D3DERR_NOTAVAILABLE, KV_PROXY_FOREVER);
    ref_ptr<CTexture> dyn = rs->CreateTextureManual(TEX_TYPE_2D, 16, 16, 1, 0, PF_A8R8G8B8, TU_DYNAMIC, 0, false);
    ASSERT_TRUE(dyn);
    EXPECT_EQ(D3D(dyn.get())->mD3DPool, D3DPOOL_MANAGED);
    EXPECT_EQ(Buffer(dyn.get())->getUsage(), CHardwareBuffer::USAGE_STATIC);

    // Larger than the device allows: D3DX makes the largest it can.
    kvproxy::SetCap(KV_PROXY_CAP(MaxTextureWidth), 64);
    kvproxy::SetCap(KV_PROXY_CAP(MaxTextureHeight), 64);
    ref_ptr<CTexture> big = rs->CreateTextureManual(TEX_TYPE_2D, 128, 128, 1, 0, PF_A8R8G8B8, 0, 0, false);
    ASSERT_TRUE(big);
    EXPECT_EQ(big->mWidth, 64u);
    EXPECT_EQ(big->mSrcWidth, 128u);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());

    // A device without mip levels: every level asked, one made.
    EndRenderSystem();
    kvproxy::ClearCapBits(KV_PROXY_CAP(TextureCaps), D3DPTEXTURECAPS_MIPMAP);
    NewRenderSystem();
    ASSERT_NO_FATAL_FAILURE(Start());
    ref_ptr<CTexture> flat = rs->CreateTextureManual(TEX_TYPE_2D, 16, 16, 1, -1, PF_A8R8G8B8, 0, 0, false);
    ASSERT_TRUE(flat);
    EXPECT_EQ(kvdx::Calls(Fn::CreateTexture).back().args[2], 1u);
    EXPECT_EQ(flat->mNumMipmaps, 0u);
}

} // namespace
