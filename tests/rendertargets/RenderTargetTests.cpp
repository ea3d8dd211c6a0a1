// Render textures, multiple render targets, screenshots and read-back: pixels, calls made, log lines of bad input.
#include "TexturesFixture.h"

#include "D3D9RenderTexture.h"

#include "engine/MultiRenderTarget.h"

#include <cstdlib>

using kvproxy::Method;
using namespace kv;
using namespace kvtest;

namespace
{

const auto P = [](const void* p) { return kvproxy::PtrArg(p); };

// Pixels of a picture `width` wide, in columns [from, to), whose colour is not rgb.
size_t CountNot(const std::vector<uint32_t>& pixels, unsigned width, unsigned from, unsigned to, uint32_t rgb)
{
    size_t n = 0;
    for (size_t i = 0; i < pixels.size(); ++i)
        n += i % width >= from && i % width < to && (pixels[i] & 0xFFFFFFu) != rgb;
    return n;
}

} // namespace

// The textures' start (both recorders, a folder for files), with the render texture of a texture.
struct RenderTargetsTest : TexturesTest
{
    static CD3D9RenderTexture* RenderTexture(CTexture* t)
    {
        return static_cast<CD3D9RenderTexture*>(Buffer(t)->getRenderTarget(0));
    }
    // The target bound through a viewport over its left `columns` (all: 0), cleared to rgb (channels 0 or 0xFF).
    void Clear(CRenderTarget* target, uint32_t rgb, int columns = 0)
    {
        const CColour c(rgb >> 16 & 1, rgb >> 8 & 1, rgb & 1, 1.0f);
        const int width = static_cast<int>(target->getWidth()), height = static_cast<int>(target->getHeight());
        rs->_setViewport(CViewport(target, 0, 0, columns ? columns : width, height), 1, &c, 1.0f, 0);
    }
};

TEST_F(RenderTargetsTest, SceneDrawnIntoATextureReachesTheWindow)
{
    ref_ptr<CTexture> texture = Make(kWidth, kWidth, TU_RENDERTARGET);
    CD3D9RenderTexture* target = RenderTexture(texture.get());
    ASSERT_NE(nullptr, target);
    rs->SetTexture(3, texture.get(), SamplerState());
    mark = kvproxy::Here();
    Clear(target, 0x00FF00);
    Clear(target, 0xFF0000, kWidth / 2);
    // Drawn into, the texture leaves sampler 3, shadow too, and its surface is colour target 0.
    EXPECT_EQ((ArgList{{3, 0}}), ArgsOf(mark, Method::SetTexture, 2));
    EXPECT_EQ(P(Buffer(texture.get())->getSurface()), ArgsOf(mark, Method::SetRenderTarget, 2).at(0).at(1));

    kvproxy::Mark again = kvproxy::Here();
    rs->SetTexture(3, texture.get(), SamplerState());
    EXPECT_EQ(1u, kvproxy::CountSince(again, Method::SetTexture));

    // Its picture on the window's left half: each half of that shows a half of the texture.
    Clear(rs->m_pMainWindow.get(), 0x0000FF);
    const RECT left = {0, 0, static_cast<LONG>(kWidth / 2), static_cast<LONG>(kHeight)};
    EXPECT_TRUE(target->CopyToTarget(rs->m_pMainWindow.get(), nullptr, &left));
    const std::vector<uint32_t> pixels = ReadBackBuffer();
    EXPECT_EQ(0u, CountNot(pixels, kWidth, 0, kWidth / 4, 0xFF0000));
    EXPECT_EQ(0u, CountNot(pixels, kWidth, kWidth / 4, kWidth / 2, 0x00FF00));
    EXPECT_EQ(0u, CountNot(pixels, kWidth, kWidth / 2, kWidth, 0x0000FF));

    // A depth texture stands as the depth surface, and no depth buffer is active.
    ref_ptr<CTexture> depth = Make(kWidth, kWidth, TU_DEPTHSTENCIL, PF_INTZ);
    target->SetDepthTexture(depth.get());
    mark = kvproxy::Here();
    rs->_setRenderTarget(target);
    EXPECT_EQ((ArgList{{P(Buffer(depth.get())->getSurface())}}), ArgsOf(mark, Method::SetDepthStencilSurface, 1));
    EXPECT_EQ(nullptr, d3d->m_pActiveDepthBuffer.get());
}

// Each texture's surface is bound at its place: the colour targets one draw writes to.
TEST_F(RenderTargetsTest, MultipleTargetsBindEachTextureAtItsPlaceAndTellWhatDoesNotMatch)
{
    ref_ptr<CTexture> a = Make(16, 16, TU_RENDERTARGET), b = Make(16, 16, TU_RENDERTARGET);
    ref_ptr<CTexture> small = Make(16, 8, TU_RENDERTARGET, PF_R5G6B5);
    ref_ptr<CMultiRenderTarget> mrt = rs->CreateMultiRenderTarget();
    CRenderTexture* const targets[] = {RenderTexture(a.get()), RenderTexture(b.get())};
    mrt->bindSurface(targets, 2);
    rs->_setRenderTarget(rs->m_pMainWindow.get());
    mark = kvproxy::Here();
    rs->_setRenderTarget(mrt.get());
    EXPECT_EQ(Join(Call("SetRenderTarget", 0, P(Buffer(a.get())->getSurface())),
                   Call("SetRenderTarget", 1, P(Buffer(b.get())->getSurface()))),
              Trace(mark, {Method::SetRenderTarget}));

    // A position past the last is refused; another size and, where the device needs them equal, another bit depth
    // are told and bound all the same; position 0 alone gives the size.
    mrt->bindSurfaceImpl(8, RenderTexture(a.get()));
    d3d->m_d3dcaps.PrimitiveMiscCaps &= ~D3DPMISCCAPS_MRTINDEPENDENTBITDEPTHS;
    mrt->bindSurfaceImpl(2, RenderTexture(small.get()));
    mrt->unbindSurface(0);
    IDirect3DSurface9* surfaces[8] = {};
    mrt->GetAttribute("DDBACKBUFFER", surfaces);
    EXPECT_EQ((kvtex::Lines{"Failed to bind a MultiRenderTarget surface at 8: a render texture of this render "
                            "system at 0 to 7 is needed",
                            "MultiRenderTarget surfaces are not of same size",
                            "MultiRenderTarget surfaces are not of same bit depth and hardware requires it"}),
              Errors());
    EXPECT_EQ(Buffer(small.get())->getSurface(), surfaces[2]);
    EXPECT_EQ(0u, mrt->getWidth());
}

TEST_F(RenderTargetsTest, MultisampledTextureFallsBackToFourSamplesAndResolves)
{
    // Wine takes 4 samples and refuses 8 to 5: the request steps down.
    mark = kvproxy::Here();
    ref_ptr<CTexture> texture =
        rs->CreateTextureManual(TEX_TYPE_2D, 16, 16, 1, 0, PF_A8R8G8B8, TU_RENDERTARGET, 8, false);
    std::string asked;
    for (const std::vector<uint64_t>& a : ArgsOf(mark, Method::D3D9_CheckDeviceMultiSampleType, 5))
        asked += std::to_string(a[4]);
    EXPECT_EQ("87654", asked);
    ASSERT_EQ(4, texture->getFSAA());
    CD3D9RenderTexture* target = RenderTexture(texture.get());
    IDirect3DSurface9* fsaa = Buffer(texture.get())->getFSAASurface();
    IDirect3DSurface9* surface = Buffer(texture.get())->getSurface();

    mark = kvproxy::Here();
    Clear(target, 0x00FFFF);
    target->swapBuffers();
    EXPECT_EQ(P(fsaa), ArgsOf(mark, Method::SetRenderTarget, 2).at(0).at(1)) << "drawn through the fsaa surface";
    EXPECT_EQ((ArgList{{P(fsaa), 0, P(surface), 0, D3DTEXF_POINT}}), ArgsOf(mark, Method::StretchRect, 5));
    EXPECT_EQ(0u, CountNot(ReadPixels(surface), 16, 0, 16, 0x00FFFF));
    kvproxy::FailMethod(Method::StretchRect, D3DERR_INVALIDCALL);
    target->swapBuffers();
    EXPECT_EQ((kvtex::Lines{"Unable to copy AA buffer to final buffer: D3D9RenderTexture::swapBuffers"}), Errors());

    // A capture resolves it too, and each failing step is named.
    mark = kvproxy::Here();
    void* pixels = nullptr;
    unsigned size = 0, pitch = 0;
    ASSERT_TRUE(rs->ScreenShotToMemory(&pixels, &size, &pitch));
    EXPECT_EQ(16u * 16 * 4, size);
    const uint32_t* shot = static_cast<uint32_t*>(pixels);
    EXPECT_EQ(0u, CountNot(std::vector<uint32_t>(shot, shot + 256), 16, 0, 16, 0x00FFFF));
    std::free(pixels);
    EXPECT_TRUE(
        kvproxy::CalledInOrder(mark, {Method::GetRenderTarget, Method::CreateOffscreenPlainSurface,
                                      Method::CreateRenderTarget, Method::StretchRect, Method::GetRenderTargetData}));
    const std::pair<Method, const char*> steps[] = {
        {Method::GetRenderTarget, "GetRenderTarget"},
        {Method::CreateOffscreenPlainSurface, "CreateOffscreenPlainSurface"},
        {Method::StretchRect, "MULTISAMPLEStretchRect"}};
    for (const auto& step : steps)
    {
        ClearLog();
        kvproxy::FailMethod(step.first, D3DERR_INVALIDCALL, 2);
        EXPECT_FALSE(rs->ScreenShot("x.png", 0.5f, nullptr));
        EXPECT_FALSE(rs->ScreenShotToMemory(&pixels, &size, &pitch));
        EXPECT_EQ((kvtex::Lines{std::string("Failed to ScreenShot:x.png, 0.500000, ") + step.second,
                                std::string("Failed to ScreenShot: ") + step.second}),
                  Errors());
    }
}

TEST_F(RenderTargetsTest, ScreenShotPicksFormatScaleAndRectangle)
{
    Clear(rs->m_pMainWindow.get(), 0x00FF00);
    Clear(rs->m_pMainWindow.get(), 0xFF0000, kWidth / 2);
    const RECT outside = {0, 0, 128, 128}, middle = {24, 0, 40, 4};
    // A rectangle cuts the saved picture, the scaled one when there is one. Failures are silent. Pictures are read back
    // from PNG files, as textures.
    struct Row
    {
        const char* file;
        float scale;
        const RECT* rect;
        bool saved, scaled;
        D3DXIMAGE_FILEFORMAT format;
        unsigned width;
    } rows[] = {
        {"shot.PNG", 1.0f, nullptr, true, false, D3DXIFF_PNG, 64},
        {"shot", 1.0000001f, nullptr, true, false, D3DXIFF_JPG, 0},
        {"shot.bmp", 1.001f, nullptr, true, true, D3DXIFF_BMP, 64},
        {"half.png", 0.5f, nullptr, true, true, D3DXIFF_PNG, 32},
        {"zero.png", 0.0f, nullptr, true, true, D3DXIFF_PNG, 1},
        {"negative.png", -2.0f, nullptr, true, true, D3DXIFF_PNG, 1},
        {"middle.png", 1.0f, &middle, true, false, D3DXIFF_PNG, 16},
        {"outside.png", 1.0f, &outside, false, false, D3DXIFF_PNG, 0},
        {"missing\\folder.png", 1.0f, nullptr, false, false, D3DXIFF_PNG, 0},
    };
    for (const Row& r : rows)
    {
        SCOPED_TRACE(r.file);
        kvdx::Reset();
        const std::string path = dir + "\\" + r.file;
        EXPECT_EQ(r.saved, rs->ScreenShot(path.c_str(), r.scale, r.rect));
        EXPECT_TRUE(Errors().empty());
        const std::vector<KvDxCall> made = kvdx::Calls(kvdx::Fn::CreateTexture),
                                    saves = kvdx::Calls(kvdx::Fn::SaveSurfaceToFileA);
        ASSERT_EQ(r.scaled ? 1u : 0u, made.size());
        for (const KvDxCall& c : made)
            EXPECT_EQ((std::vector<uint64_t>{r.width, r.width, 1, 0, D3DFMT_R8G8B8, D3DPOOL_SYSTEMMEM}),
                      std::vector<uint64_t>(c.args, c.args + 6));
        ASSERT_EQ(1u, saves.size());
        EXPECT_EQ(static_cast<uint64_t>(r.format), saves[0].args[0]);
        if (r.format != D3DXIFF_PNG || !r.saved)
            continue;
        ref_ptr<CTexture> saved = rs->CreateTexture(path.c_str(), TEX_TYPE_2D, 0, false);
        ASSERT_TRUE(saved);
        const unsigned width = saved->getBuffer(0, 0)->getWidth();
        const std::vector<uint32_t> image = Read(saved->getBuffer(0, 0));
        EXPECT_EQ(r.width * (r.rect ? 4 : r.width), image.size());
        // The edge between the halves may blend when scaled.
        EXPECT_EQ(0u, CountNot(image, width, 0, width / 2 - 1, 0xFF0000));
        EXPECT_EQ(0u, CountNot(image, width, width / 2 + 1, width, 0x00FF00));
    }
}

TEST_F(RenderTargetsTest, ReadBackKeepsOneSurfaceASizeAndClosesWhatItOpened)
{
    ref_ptr<CTexture> texture = Make(16, 16, TU_RENDERTARGET), other = Make(16, 16, TU_RENDERTARGET, PF_R5G6B5);
    Clear(RenderTexture(texture.get()), 0xFF00FF);
    mark = kvproxy::Here();
    void* bits = nullptr;
    int pitch = 0;
    for (CTexture* t : {texture.get(), texture.get(), other.get()})
    {
        ASSERT_TRUE(rs->BeginGetRenderTargetData(Buffer(t), &bits, &pitch));
        const uint32_t* read = static_cast<uint32_t*>(bits);
        EXPECT_EQ(0u, t == texture.get() ? CountNot(std::vector<uint32_t>(read, read + 256), 16, 0, 16, 0xFF00FF) : 0u);
        rs->EndGetRenderTargetData();
    }
    EXPECT_EQ(32, pitch);
    EXPECT_EQ((ArgList{{16, 16, D3DFMT_A8R8G8B8}, {16, 16, D3DFMT_R5G6B5}}),
              ArgsOf(mark, Method::CreateOffscreenPlainSurface, 3));

    // Begun twice, the second finds its surface locked, and the end closes the first: the next begin works. An end
    // without a begin is told.
    ASSERT_TRUE(rs->BeginGetRenderTargetData(Buffer(texture.get()), &bits, &pitch));
    EXPECT_FALSE(rs->BeginGetRenderTargetData(Buffer(texture.get()), &bits, &pitch));
    rs->EndGetRenderTargetData();
    rs->EndGetRenderTargetData();
    EXPECT_TRUE(rs->BeginGetRenderTargetData(Buffer(texture.get()), &bits, &pitch));
    rs->EndGetRenderTargetData();
    EXPECT_EQ((kvtex::Lines{"Failed to BeginGetRenderTargetData, GetRenderTargetData",
                            "EndGetRenderTargetData without an open BeginGetRenderTargetData"}),
              Errors());

    // A texture that is no render target reads back nothing, silently.
    ClearLog();
    ref_ptr<CTexture> plain = Make(16, 16);
    EXPECT_FALSE(rs->BeginGetRenderTargetData(Buffer(plain.get()), &bits, &pitch));
    EXPECT_TRUE(Errors().empty());
}
