// Screenshots into files and memory and the read-back of render textures: the
// pictures and bytes that come back, the D3DX and device calls asked for, the
// surfaces kept, and the words of every failure.
#include "RenderTargetsFixture.h"

#include <d3dx9.h>

#include <cstdlib>

using kvproxy::Method;
using namespace kv;
using namespace kvtest;

namespace
{

// The window, 64 by 64, red in its left half and green in its right.
const RECT kLeft = {0, 0, 32, 64};

} // namespace

TEST_F(RenderTargetsTest, ScreenShotPicksFormatScaleAndRectangle)
{
    Clear(rs->m_pMainWindow.get(), 0x00FF00);
    Clear(rs->m_pMainWindow.get(), 0xFF0000, &kLeft);
    const RECT outside = {0, 0, 128, 128}, middle = {24, 0, 40, 4};
    // A rectangle is one of the saved picture; the texture's size is 0 when
    // none is made. Every failure here is silent.
    struct Row
    {
        const char* file;
        float scale;
        const RECT* rect;
        bool saved;
        D3DXIMAGE_FILEFORMAT format;
        unsigned textureSize, width, height;
    } rows[] = {
        {"shot.PNG", 1.0f, nullptr, true, D3DXIFF_PNG, 0, 64, 64},
        {"shot", 1.0000001f, nullptr, true, D3DXIFF_JPG, 0, 0, 0},
        {"shot.bmp", 1.001f, nullptr, true, D3DXIFF_BMP, 64, 64, 64},
        {"half.png", 0.5f, nullptr, true, D3DXIFF_PNG, 32, 32, 32},
        {"zero.png", 0.0f, nullptr, true, D3DXIFF_PNG, 1, 1, 1},
        {"negative.png", -2.0f, nullptr, true, D3DXIFF_PNG, 1, 1, 1},
        {"middle.png", 1.0f, &middle, true, D3DXIFF_PNG, 0, 16, 4},
        {"outside.png", 1.0f, &outside, false, D3DXIFF_PNG, 0, 0, 0},
        {"missing\\folder.png", 1.0f, nullptr, false, D3DXIFF_PNG, 0, 0, 0},
    };
    for (const Row& r : rows)
    {
        SCOPED_TRACE(r.file);
        kvdx::Reset();
        const std::string path = dir + "\\" + r.file;
        EXPECT_EQ(r.saved, rs->ScreenShot(path.c_str(), r.scale, r.rect));
        EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
        const std::vector<KvDxCall> made = kvdx::Calls(kvdx::Fn::CreateTexture);
        ASSERT_EQ(r.textureSize ? 1u : 0u, made.size());
        if (r.textureSize)
        {
            EXPECT_EQ((std::vector<uint64_t>{r.textureSize, r.textureSize, 1, 0, D3DFMT_R8G8B8, D3DPOOL_SYSTEMMEM}),
                      std::vector<uint64_t>(made[0].args, made[0].args + 6));
        }
        const std::vector<KvDxCall> saves = kvdx::Calls(kvdx::Fn::SaveSurfaceToFileA);
        ASSERT_EQ(1u, saves.size());
        EXPECT_EQ(static_cast<uint64_t>(r.format), saves[0].args[0]);
        if (r.format != D3DXIFF_PNG || !r.saved)
            continue;
        unsigned width = 0, height = 0;
        const std::vector<uint32_t> image = ReadImage(path, &width, &height);
        EXPECT_EQ(r.width, width);
        EXPECT_EQ(r.height, height);
        // The edge between the halves may blend when scaled.
        EXPECT_EQ(0u, CountNot(image, width, 0, width / 2 - 1, 0xFF0000));
        EXPECT_EQ(0u, CountNot(image, width, width / 2 + 1, width, 0x00FF00));
    }
}

TEST_F(RenderTargetsTest, ScreenShotToMemoryCopiesFourBytesAPixelAtTheSourcePitch)
{
    Clear(rs->m_pMainWindow.get(), 0x00FF00);
    Clear(rs->m_pMainWindow.get(), 0xFF0000, &kLeft);
    void* pixels = nullptr;
    unsigned size = 0, pitch = 0;
    ASSERT_TRUE(rs->ScreenShotToMemory(&pixels, &size, &pitch));
    EXPECT_EQ(kWidth * kHeight * 4, size);
    ASSERT_EQ(kWidth * 4, pitch);
    const uint32_t* p = static_cast<const uint32_t*>(pixels);
    EXPECT_EQ(0u, CountNot(std::vector<uint32_t>(p, p + kWidth * kHeight), kWidth, 0, 32, 0xFF0000));
    EXPECT_EQ(0u, CountNot(std::vector<uint32_t>(p, p + kWidth * kHeight), kWidth, 32, 64, 0x00FF00));
    std::free(pixels);
}

TEST_F(RenderTargetsTest, CaptureResolvesAMultisampledTargetAndNamesTheStepThatFailed)
{
    ref_ptr<CTexture> texture = Target(16, 4);
    Clear(RenderTexture(texture.get()), 0x0000FF);
    mark = kvproxy::Here();
    void* pixels = nullptr;
    unsigned size = 0, pitch = 0;
    ASSERT_TRUE(rs->ScreenShotToMemory(&pixels, &size, &pitch));
    EXPECT_EQ(0u, CountNot(std::vector<uint32_t>(static_cast<uint32_t*>(pixels), static_cast<uint32_t*>(pixels) + 256),
                           16, 0, 16, 0x0000FF));
    std::free(pixels);
    EXPECT_TRUE(
        kvproxy::CalledInOrder(mark, {Method::GetRenderTarget, Method::CreateOffscreenPlainSurface,
                                      Method::CreateRenderTarget, Method::StretchRect, Method::GetRenderTargetData}));

    const struct
    {
        Method method;
        const char* step;
    } rows[] = {{Method::GetRenderTarget, "GetRenderTarget"},
                {Method::CreateOffscreenPlainSurface, "CreateOffscreenPlainSurface"},
                {Method::CreateRenderTarget, "MULTISAMPLECreateRenderTarget"},
                {Method::StretchRect, "MULTISAMPLEStretchRect"},
                {Method::GetRenderTargetData, "MULTISAMPLEGetRenderTargetData"}};
    for (const auto& r : rows)
    {
        SCOPED_TRACE(r.step);
        ClearLog();
        kvproxy::FailMethod(r.method, D3DERR_INVALIDCALL);
        EXPECT_FALSE(rs->ScreenShot("x.png", 0.5f, nullptr));
        kvproxy::FailMethod(r.method, D3DERR_INVALIDCALL);
        EXPECT_FALSE(rs->ScreenShotToMemory(&pixels, &size, &pitch));
        EXPECT_EQ((std::vector<std::string>{std::string("Failed to ScreenShot:x.png, 0.500000, ") + r.step,
                                            std::string("Failed to ScreenShot: ") + r.step}),
                  Errors());
    }
}

TEST_F(RenderTargetsTest, ReadBackKeepsOneSurfaceASizeAndClosesWhatItOpened)
{
    ref_ptr<CTexture> texture = Target(16), other = Target(16, 0, PF_R5G6B5);
    Clear(RenderTexture(texture.get()), 0xFF00FF);
    mark = kvproxy::Here();
    void* bits = nullptr;
    int pitch = 0;
    for (int round = 0; round < 2; ++round)
    {
        ASSERT_TRUE(rs->BeginGetRenderTargetData(Buffer(texture.get()), &bits, &pitch));
        EXPECT_EQ((static_cast<const uint32_t*>(bits)[16 * 16 - 1] | 0xFF000000u), 0xFFFF00FFu);
        rs->EndGetRenderTargetData();
    }
    ASSERT_TRUE(rs->BeginGetRenderTargetData(Buffer(other.get()), &bits, &pitch));
    EXPECT_EQ(32, pitch);
    rs->EndGetRenderTargetData();
    EXPECT_EQ((ArgList{{16, 16, D3DFMT_A8R8G8B8}, {16, 16, D3DFMT_R5G6B5}}),
              ArgsOf(mark, Method::CreateOffscreenPlainSurface, 3));
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());

    // Begun twice, the second finds its surface locked; the end closes the first.
    ASSERT_TRUE(rs->BeginGetRenderTargetData(Buffer(texture.get()), &bits, &pitch));
    EXPECT_FALSE(rs->BeginGetRenderTargetData(Buffer(texture.get()), &bits, &pitch));
    rs->EndGetRenderTargetData();
    EXPECT_EQ((std::vector<std::string>{"Failed to BeginGetRenderTargetData, GetRenderTargetData"}), Errors());
    ClearLog();
    rs->EndGetRenderTargetData();
    EXPECT_EQ((std::vector<std::string>{"EndGetRenderTargetData without an open BeginGetRenderTargetData"}), Errors());
    ASSERT_TRUE(rs->BeginGetRenderTargetData(Buffer(texture.get()), &bits, &pitch)) << "left locked";
    rs->EndGetRenderTargetData();

    // A texture that is no render target reads back nothing, silently.
    ClearLog();
    ref_ptr<CTexture> plain = rs->CreateTextureManual(TEX_TYPE_2D, 16, 16, 1, 0, PF_A8R8G8B8, 0, 0, false);
    EXPECT_FALSE(rs->BeginGetRenderTargetData(Buffer(plain.get()), &bits, &pitch));
    EXPECT_EQ(nullptr, d3d->m_pLockedReadbackSurface);
    EXPECT_TRUE(Errors().empty());
}
