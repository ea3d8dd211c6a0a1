// The six creation roads: what each asks of D3DX or the device, the pool and
// level count it ends with, its buffers and byte count; and each road's
// refusals and failures, with the log line and nothing left behind.
#include "TexturesFixture.h"

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

// The sizes are the first of what the creator was asked: width, height and,
// for a volume, depth. Anti-aliasing 8 lands on the 4 samples Wine takes.
struct Road
{
    const char* name;
    TextureType type;
    int mipmaps;
    PixelFormat format;
    unsigned usage;
    unsigned char fsaa;
    Fn creator;                  // Fn::Count: the device's own CreateTexture
    std::vector<uint64_t> asked; // sizes, level count, usage, format, pool
    D3DPOOL pool;
    unsigned buffers;
};

const TextureType k2D = TEX_TYPE_2D;
const Fn kTex = Fn::CreateTexture;
const Road kRoads[] = {
    {"plain", k2D, 0, kArgb, 0, 0, kTex, {16, 16, 1, 0, 21, 1}, kManaged, 1},
    {"format 0: the back buffer's", k2D, 0, PF_UNKNOWN, 0, 0, kTex, {16, 16, 1, 0, 22, 1}, kManaged, 1},
    {"format 22 as 23", k2D, 0, PF_FLOAT16_RGB, 0, 0, kTex, {16, 16, 1, 0, 113, 1}, kManaged, 1},
    {"format 999 as 12", k2D, 0, PixelFormat(999), 0, 0, kTex, {16, 16, 1, 0, 21, 1}, kManaged, 1},
    {"every level", k2D, -1, kArgb, 0, 0, kTex, {16, 16, D3DX_DEFAULT, 0, 21, 1}, kManaged, 5},
    {"dynamic", k2D, 0, kArgb, TU_DYNAMIC, 0, kTex, {16, 16, 1, 0x200, 21, 0}, kDefault, 1},
    {"render target", k2D, 0, kArgb, TU_RENDERTARGET, 0, kTex, {16, 16, 1, kRT, 21, 0}, kDefault, 1},
    {"anti-aliased", k2D, 0, kArgb, TU_RENDERTARGET, 8, kTex, {16, 16, 1, kRT, 21, 0}, kDefault, 1},
    {"usage 0x120", k2D, 0, kArgb, 0x120, 0, kTex, {16, 16, 1, kRT, 21, 0}, kDefault, 1},
    {"generated, none asked", k2D, 0, kArgb, TU_AUTOMIPMAP, 0, kTex, {256, 256, 1, 0x400, 21, 1}, kManaged, 1},
    {"not a power of two", k2D, 3, kArgb, TU_AUTOMIPMAP, 0, kTex, {100, 100, 4, 0, 21, 1}, kManaged, 4},
    {"cube", TEX_TYPE_CUBE_MAP, 2, kArgb, 0, 0, Fn::CreateCubeTexture, {32, 32, 3, 0, 21, 1}, kManaged, 18},
    {"volume", TEX_TYPE_3D, 1, kArgb, 0, 0, Fn::CreateVolumeTexture, {8, 8, 4, 2, 0, 21, 1}, kManaged, 2},
    {"depth", k2D, 0, PF_D16, TU_DEPTHSTENCIL, 0, Fn::Count, {16, 16, 1, 2, D3DFMT_D16, 0}, kDefault, 1},
    {"NULL", k2D, 0, PF_NULL, TU_RENDERTARGET, 0, Fn::Count, {16, 16, 1, kRT, kNullFormat, 0}, kDefault, 1},
    {"ATI2: one level", k2D, 5, PF_ATI2, 0, 0, Fn::Count, {16, 16, 1, 0, kAti2Format, 0}, kDefault, 1},
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
                                    r.mipmaps, r.format, r.usage, r.fsaa, false);
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
        EXPECT_EQ(d->mNumMipmaps + 1, r.buffers / d->getNumFaces());
        EXPECT_EQ(t->getFSAA(), r.fsaa ? 4 : 0);
        EXPECT_EQ(g_nTextureManualSizeInBytes, PixelUtil::calculateSize(d->mNumMipmaps, d->getNumFaces(), d->mWidth,
                                                                        d->mHeight, d->mDepth, d->mFormat));
        EXPECT_EQ(r.fsaa != 0, d->m_pTextures->fsaaSurface != nullptr);
        // Every buffer is bound, and face by face, level by level.
        for (const auto& b : d->m_surfaceList)
            EXPECT_TRUE(b->getSurface() || b->getVolume());
        if (r.type == TEX_TYPE_CUBE_MAP)
        {
            EXPECT_EQ(t->getBuffer(2, 1), d->m_surfaceList[3 * 2 + 1].get());
        }
        EXPECT_EQ(t->getBuffer(d->getNumFaces(), 0), nullptr); // one past the last
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
        Lines expected;
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
    ref_ptr<CTexture> aa = rs->CreateTextureManual(TEX_TYPE_2D, 16, 16, 1, 0, kArgb, TU_RENDERTARGET, 8, false);
    ASSERT_TRUE(aa);
    EXPECT_EQ(aa->getFSAA(), 0);
    EXPECT_EQ(Errors(), Lines{"Unable to create AA render target: " +
                              std::string(DXGetErrorDescription(E_OUTOFMEMORY)) + ", D3D9Texture::_createNormTex"});

    // Dynamic refused: the managed pool and static buffers.
    ClearLog();
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

} // namespace
