// Render textures and multiple render targets: what a scene drawn into a
// texture leaves on the window, two colours written at once, the resolve of a
// multisampled texture, the binding checks, and a render texture across a reset.
#include "RenderTargetsFixture.h"

#include "D3D9MultiRenderTarget.h"

#include "engine/MultiRenderTarget.h"

#include <d3dx9.h>

using kvproxy::Method;
using namespace kv;
using namespace kvtest;

TEST_F(RenderTargetsTest, SceneDrawnIntoATextureReachesTheWindow)
{
    ref_ptr<CTexture> texture = Target(kWidth);
    CD3D9RenderTexture* target = RenderTexture(texture.get());
    ASSERT_NE(nullptr, target);
    EXPECT_EQ(kWidth, target->getWidth());
    rs->SetTexture(3, texture.get(), SamplerState());
    mark = kvproxy::Here();
    const RECT top = {0, 0, static_cast<LONG>(kWidth), static_cast<LONG>(kHeight / 2)};
    Clear(target, 0xFF0000);
    Clear(target, 0x00FF00, &top);

    // Drawn into, the texture leaves sampler 3, its surface is colour target 0
    // and a depth buffer of its size is made.
    EXPECT_EQ((ArgList{{3, 0}}), ArgsOf(mark, Method::SetTexture, 2));
    EXPECT_EQ((std::vector<uint64_t>{0, P(Buffer(texture.get())->getSurface())}),
              ArgsOf(mark, Method::SetRenderTarget, 2).at(0));
    EXPECT_EQ((ArgList{{kWidth, kWidth}}), ArgsOf(mark, Method::CreateDepthStencilSurface, 2));
    kvproxy::Mark again = kvproxy::Here();
    rs->SetTexture(3, texture.get(), SamplerState());
    EXPECT_EQ(1u, kvproxy::CountSince(again, Method::SetTexture)) << "the shadow must have let go as well";

    Clear(rs->m_pMainWindow.get(), 0x0000FF);
    DrawOnWindow(texture.get(), kWidth / 2);
    const std::vector<uint32_t> pixels = ReadBackBuffer();
    const size_t half = pixels.size() / 2;
    EXPECT_EQ(0u, CountNot({pixels.begin(), pixels.begin() + half}, kWidth, 0, kWidth / 2, 0x00FF00));
    EXPECT_EQ(0u, CountNot({pixels.begin() + half, pixels.end()}, kWidth, 0, kWidth / 2, 0xFF0000));
    EXPECT_EQ(0u, CountNot(pixels, kWidth, kWidth / 2, kWidth, 0x0000FF));
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(RenderTargetsTest, MultipleTargetsTakeTwoColoursFromOneDraw)
{
    ref_ptr<CTexture> a = Target(16), b = Target(16);
    ref_ptr<CMultiRenderTarget> mrt = rs->CreateMultiRenderTarget();
    CRenderTexture* const targets[] = {RenderTexture(a.get()), RenderTexture(b.get())};
    mrt->bindSurface(targets, 2);
    EXPECT_EQ(16u, mrt->getWidth());
    mark = kvproxy::Here();
    Clear(mrt.get(), 0);
    EXPECT_EQ((ArgList{{0, P(Buffer(a.get())->getSurface())}, {1, P(Buffer(b.get())->getSurface())}, {2, 0}, {3, 0}}),
              ArgsOf(mark, Method::SetRenderTarget, 2));

    const char source[] = "ps_2_0\ndef c0, 1, 0, 0, 1\ndef c1, 0, 1, 0, 1\nmov oC0, c0\nmov oC1, c1\n";
    ID3DXBuffer* code = nullptr;
    IDirect3DPixelShader9* shader = nullptr;
    ASSERT_EQ(D3D_OK, D3DXAssembleShader(source, sizeof source - 1, nullptr, nullptr, 0, &code, nullptr));
    ASSERT_EQ(D3D_OK, device->CreatePixelShader(static_cast<const DWORD*>(code->GetBufferPointer()), &shader));
    code->Release();
    FixedFunctionColour();
    d3d->SetPixelShader(shader);
    ref_ptr<CVertexDeclaration> declaration = ColourDeclaration();
    const std::vector<ColourVertex> quad = Quad(-1, -1, 1, 1, 0);
    ASSERT_TRUE(rs->_beginFrame());
    rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 6, kQuadIndices.data(), CHardwareIndexBuffer::IT_16BIT, quad.data(),
                               sizeof(ColourVertex), declaration.get(), 1);
    rs->_endFrame();
    d3d->SetPixelShader(nullptr);
    shader->Release();
    EXPECT_EQ(0u, CountNot(ReadPixels(Buffer(a.get())->getSurface()), 16, 0, 16, 0xFF0000));
    EXPECT_EQ(0u, CountNot(ReadPixels(Buffer(b.get())->getSurface()), 16, 0, 16, 0x00FF00));
}

TEST_F(RenderTargetsTest, MultipleTargetBindingChecks)
{
    // Bound at 0 first (size 0 for none), then at `index`; a bit depth needs
    // checking only where the device lacks independent bit depths.
    struct Row
    {
        const char* name;
        unsigned firstSize, size;
        PixelFormat format;
        bool independentDepths;
        unsigned index;
        const char* logged;
        unsigned width;
    } rows[] = {
        {"another size", 32, 16, PF_A8R8G8B8, true, 1, "MultiRenderTarget surfaces are not of same size", 32},
        {"first at 1", 0, 16, PF_A8R8G8B8, true, 1, nullptr, 0},
        {"another depth", 16, 16, PF_R5G6B5, false, 1,
         "MultiRenderTarget surfaces are not of same bit depth and hardware requires it", 16},
        {"another depth, independent", 16, 16, PF_R5G6B5, true, 1, nullptr, 16},
        {"no render texture", 0, 0, PF_A8R8G8B8, true, 2,
         "Failed to bind a MultiRenderTarget surface at 2: a render texture of this render system at 0 to 7 is needed",
         0},
    };
    const DWORD caps = d3d->m_d3dcaps.PrimitiveMiscCaps;
    for (const Row& r : rows)
    {
        SCOPED_TRACE(r.name);
        ClearLog();
        d3d->m_d3dcaps.PrimitiveMiscCaps = r.independentDepths ? caps | D3DPMISCCAPS_MRTINDEPENDENTBITDEPTHS
                                                               : caps & ~D3DPMISCCAPS_MRTINDEPENDENTBITDEPTHS;
        ref_ptr<CTexture> first = r.firstSize ? Target(r.firstSize) : ref_ptr<CTexture>();
        ref_ptr<CTexture> next = r.size ? Target(r.size, 0, r.format) : ref_ptr<CTexture>();
        ref_ptr<CMultiRenderTarget> mrt = rs->CreateMultiRenderTarget();
        if (first)
            mrt->bindSurfaceImpl(0, RenderTexture(first.get()));
        mrt->bindSurfaceImpl(r.index, next ? RenderTexture(next.get()) : nullptr);
        EXPECT_EQ(r.logged ? std::vector<std::string>{r.logged} : std::vector<std::string>{}, Errors());
        EXPECT_EQ(r.width, mrt->getWidth());
        IDirect3DSurface9* surfaces[8] = {};
        mrt->GetAttribute("DDBACKBUFFER", surfaces);
        EXPECT_EQ(next && r.index < 8 ? Buffer(next.get())->getSurface() : nullptr, surfaces[r.index]);
        if (first)
        {
            mrt->unbindSurface(0);
            EXPECT_EQ(0u, mrt->getHeight()) << "position 0 alone gives the size";
        }
    }
    d3d->m_d3dcaps.PrimitiveMiscCaps = caps;
}

TEST_F(RenderTargetsTest, MultisampledTextureFallsBackToFourSamplesAndResolves)
{
    // Wine takes 4 samples and refuses 8 to 5: the request steps down.
    mark = kvproxy::Here();
    ref_ptr<CTexture> texture = Target(32, 8);
    ArgList asked;
    for (const std::vector<uint64_t>& a : ArgsOf(mark, Method::D3D9_CheckDeviceMultiSampleType, 5))
        asked.push_back({a[4]});
    EXPECT_EQ((ArgList{{8}, {7}, {6}, {5}, {4}}), asked);
    ASSERT_EQ(4, texture->getFSAA());
    ref_ptr<CTexture> copy = Target(32);
    CD3D9RenderTexture* target = RenderTexture(texture.get());
    IDirect3DSurface9* fsaa = Buffer(texture.get())->getFSAASurface();
    IDirect3DSurface9* surface = Buffer(texture.get())->getSurface();
    ASSERT_NE(nullptr, fsaa);

    mark = kvproxy::Here();
    Clear(target, 0x00FFFF);
    target->swapBuffers();
    target->CopyToTexture(copy.get());
    EXPECT_EQ(P(fsaa), ArgsOf(mark, Method::SetRenderTarget, 2).at(0).at(1)) << "drawn through the fsaa surface";
    EXPECT_EQ((ArgList{{P(fsaa), 0, P(surface), 0, D3DTEXF_POINT},
                       {P(fsaa), 0, P(Buffer(copy.get())->getSurface()), 0, D3DTEXF_NONE}}),
              ArgsOf(mark, Method::StretchRect, 5));
    EXPECT_EQ(0u, CountNot(ReadPixels(surface), 32, 0, 32, 0x00FFFF));

    kvproxy::FailMethod(Method::StretchRect, D3DERR_INVALIDCALL);
    target->swapBuffers();
    EXPECT_EQ((std::vector<std::string>{"Unable to copy AA buffer to final buffer: D3D9RenderTexture::swapBuffers"}),
              Errors());
    ref_ptr<CTexture> plain = Target(8);
    mark = kvproxy::Here();
    RenderTexture(plain.get())->swapBuffers();
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark)) << "nothing to resolve without multisampling";
}

TEST_F(RenderTargetsTest, RenderTextureOutlivesADeviceResetAndDepthTexturesServeAsDepth)
{
    ref_ptr<CTexture> texture = Target(16);
    CD3D9RenderTexture* target = RenderTexture(texture.get());
    Clear(target, 0xFF0000);
    ASSERT_NE(nullptr, target->m_pDepthBuffer.get());
    ASSERT_TRUE(rs->Reset(hWnd, kWidth, kHeight, false, false, 0));
    EXPECT_EQ(target, RenderTexture(texture.get())) << "the buffer keeps the target the engine may hold";
    EXPECT_EQ(nullptr, target->m_pDepthBuffer.get());
    Clear(target, 0x00FF00);
    EXPECT_EQ(0u, CountNot(ReadPixels(Buffer(texture.get())->getSurface()), 16, 0, 16, 0x00FF00));

    ref_ptr<CTexture> depth = rs->CreateTextureManual(TEX_TYPE_2D, 16, 16, 1, 0, PF_INTZ, TU_DEPTHSTENCIL, 0, false);
    ASSERT_NE(nullptr, depth.get());
    target->SetDepthTexture(depth.get());
    mark = kvproxy::Here();
    rs->_setRenderTarget(target);
    EXPECT_EQ((ArgList{{P(Buffer(depth.get())->getSurface())}}), ArgsOf(mark, Method::SetDepthStencilSurface, 1));
}
