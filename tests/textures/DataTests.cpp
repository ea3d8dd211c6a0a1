// A texture's life after creation: saving by the path's ending, copies to
// other textures and from the window, a device reset for each pool, the white
// stand-in of a texture that is not ready, and textured drawing on the device.
#include "TexturesFixture.h"

using namespace kv;
using namespace kvtest;
using namespace kvtex;
using kvdx::Fn;
using kvproxy::Method;

namespace
{

struct SaveRow
{
    const char* file;
    D3DXIMAGE_FILEFORMAT asked;
    bool known;
    bool saved; // on this platform's D3DX
};

TEST_F(TexturesTest, SavesFollowTheLowerCasedEnding)
{
    const SaveRow kRows[] = {
        {"shot.PNG", D3DXIFF_PNG, true, true},   {"shot.bmp", D3DXIFF_BMP, true, true},
        {"shot.jpg", D3DXIFF_JPG, true, true},   {"shot.tga", D3DXIFF_TGA, true, false},
        {"shot.dds", D3DXIFF_DDS, true, false},  {"shot.Hdr", D3DXIFF_HDR, true, false},
        {"shot.xyz", D3DXIFF_DDS, false, false}, {"png", D3DXIFF_DDS, false, false},
    };
    const std::vector<uint32_t> pixels = Pattern(8, 8, 2);
    ref_ptr<CTexture> t = Manual(8, 8, pixels);
    for (const SaveRow& r : kRows)
    {
        SCOPED_TRACE(r.file);
        const std::string path = dir + "\\" + r.file;
        kvdx::Reset();
        ClearLog();
        EXPECT_EQ(t->SaveToFile(path.c_str()), r.saved);
        std::vector<KvDxCall> saves = kvdx::Calls(Fn::SaveTextureToFileA);
        ASSERT_EQ(saves.size(), 1u);
        EXPECT_EQ(saves[0].args[0], static_cast<uint64_t>(r.asked));
        std::vector<std::string> expected;
        if (!r.known)
            expected.push_back("Unknow Texture format to Save:" + path);
        if (!r.saved)
            expected.push_back("Failed to D3DXSaveTextureToFile:" + path + ", , " + DXGetErrorDescription(E_NOTIMPL));
        EXPECT_EQ(Errors(), expected);
        if (r.saved && r.asked != D3DXIFF_JPG)
        {
            ref_ptr<CTexture> back = rs->CreateTexture(path.c_str(), TEX_TYPE_2D, 0, false);
            ASSERT_TRUE(back);
            EXPECT_EQ(Read(back->getBuffer(0, 0)), pixels);
        }
    }

    kvdx::Reset();
    ClearLog();
    void* data = nullptr;
    unsigned size = 0;
    EXPECT_FALSE(t->SaveToMemory(&data, &size));
    EXPECT_EQ(kvdx::Calls(Fn::SaveTextureToFileInMemory).at(0).args[0], static_cast<uint64_t>(D3DXIFF_DDS));
    EXPECT_EQ(Errors(), std::vector<std::string>{std::string("Failed to D3DXSaveTextureToFileInMemory, ") +
                                                 DXGetErrorDescription(E_NOTIMPL)});
    EXPECT_EQ(data, nullptr);
}

TEST_F(TexturesTest, CopiesToTexturesAndFromTheWindow)
{
    ref_ptr<CTexture> from = rs->CreateTextureManual(TEX_TYPE_2D, 8, 8, 1, 0, PF_A8R8G8B8, TU_RENDERTARGET, 0, false);
    ref_ptr<CTexture> to = rs->CreateTextureManual(TEX_TYPE_2D, 8, 8, 1, 0, PF_A8R8G8B8, TU_RENDERTARGET, 0, false);
    ASSERT_EQ(device->ColorFill(Buffer(from.get())->getSurface(), nullptr, kRed), D3D_OK);
    mark = kvproxy::Here();
    from->copyToTexture(to.get());
    ArgList stretches = ArgsOf(mark, Method::StretchRect, 5);
    ASSERT_EQ(stretches.size(), 1u);
    EXPECT_EQ(stretches[0][1], 0u); // the whole source
    EXPECT_EQ(stretches[0][4], static_cast<uint64_t>(D3DTEXF_NONE));
    EXPECT_EQ(Read(to->getBuffer(0, 0)), Fill(64, kRed));

    ref_ptr<CTexture> plain = Manual(8, 8, Fill(64, kGreen));
    ref_ptr<CTexture> volume = rs->CreateTextureManual(TEX_TYPE_3D, 8, 8, 2, 0, PF_A8R8G8B8, 0, 0, false);
    ClearLog();
    mark = kvproxy::Here();
    from->copyToTexture(plain.get());
    volume->copyToTexture(volume.get());
    EXPECT_EQ(Errors(),
              (std::vector<std::string>{
                  "Src. and dest. textures must be of same type and must have the same usage !!! , "
                  "D3D9Texture::copyToTexture",
                  "Copy to texture is implemented only for 2D and cube textures !!! , D3D9Texture::copyToTexture"}));
    EXPECT_EQ(kvproxy::CountSince(mark, Method::StretchRect), 0u);
    EXPECT_EQ(Read(plain->getBuffer(0, 0)), Fill(64, kGreen));

    // The window's back buffer into a texture of its size.
    ref_ptr<CTexture> shot =
        rs->CreateTextureManual(TEX_TYPE_2D, kWidth, kHeight, 1, 0, PF_A8R8G8B8, TU_RENDERTARGET, 0, false);
    ASSERT_NO_FATAL_FAILURE(BeginClearedFrame());
    EXPECT_TRUE(MainWindow()->CopyToTexture(shot.get()));
    rs->_endFrame();
    EXPECT_EQ(Read(shot->getBuffer(0, 0)), Fill(kWidth * kHeight, kClear));
}

TEST_F(TexturesTest, AResetRebuildsDefaultPoolTexturesAndLeavesManagedOnes)
{
    ref_ptr<CTexture> target =
        rs->CreateTextureManual(TEX_TYPE_2D, 16, 16, 1, 0, PF_A8R8G8B8, TU_RENDERTARGET, 0, false);
    ref_ptr<CTexture> managed = Manual(8, 8, Pattern(8, 8));
    const uint32_t bytes = g_nTextureManualSizeInBytes;
    ASSERT_EQ(bytes, 16u * 16 * 4 + 8 * 8 * 4);
    CHardwarePixelBuffer* buffer = target->getBuffer(0, 0);

    kvproxy::LoseDevice();
    EXPECT_FALSE(rs->IsDeviceAvailable());
    kvproxy::AllowDeviceReset();
    mark = kvproxy::Here();
    ASSERT_TRUE(rs->IsDeviceAvailable());
    ASSERT_EQ(kvproxy::CountSince(mark, Method::Reset), 1u);

    // The render target is made anew, into the same buffer object.
    EXPECT_EQ(ArgsOf(mark, Method::CreateTexture, 6), (ArgList{{16, 16, 1, D3DUSAGE_RENDERTARGET, 21, 0}}));
    EXPECT_EQ(target->getBuffer(0, 0), buffer);
    EXPECT_NE(Buffer(target.get())->getSurface(), nullptr);
    EXPECT_EQ(g_nTextureManualSizeInBytes, bytes);
    // The managed one kept its pixels without any work, and a manual
    // texture's reload leaves its native objects alone.
    EXPECT_EQ(Read(managed->getBuffer(0, 0)), Pattern(8, 8));
    IDirect3DBaseTexture9* native = D3D(managed.get())->m_pTextures->baseTex;
    EXPECT_TRUE(managed->Reload());
    EXPECT_EQ(D3D(managed.get())->m_pTextures->baseTex, native);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(TexturesTest, ATextureNotReadyBindsTheWhiteTexture)
{
    ref_ptr<CD3D9Texture> pending(new CD3D9Texture); // never loaded
    IDirect3DBaseTexture9* native = pending->GetNativeTexture();
    CD3D9Texture* white = D3D(rs->GetWhiteTexture());
    ASSERT_NE(white, nullptr);
    EXPECT_EQ(native, white->m_pTextures->baseTex);
    EXPECT_EQ(Read(white->getBuffer(0, 0)), Fill(1, 0xFFFFFFFFu));
    mark = kvproxy::Here();
    rs->SetTexture(0, pending.get(), SamplerState());
    ArgList binds = ArgsOf(mark, Method::SetTexture, 2);
    ASSERT_EQ(binds.size(), 1u);
    EXPECT_EQ(binds[0][1], reinterpret_cast<uintptr_t>(native));
}

TEST_F(TexturesTest, ATexturedQuadShowsTheTexelsOfTheLoadedFile)
{
    const std::vector<uint32_t> texels = Pattern(4, 4);
    const Bytes file = WriteWithD3DX(device, D3DXIFF_PNG, 4, 4, texels);
    ref_ptr<CTexture> t = rs->CreateTextureFromMemory("quad.png", const_cast<uint8_t*>(file.data()),
                                                      static_cast<int>(file.size()), TEX_TYPE_2D, 0, false);
    ASSERT_TRUE(t);

    SamplerState point;
    point.minFilter = point.magFilter = FO_POINT;
    ASSERT_NO_FATAL_FAILURE(BeginClearedFrame());
    d3d->_setRenderState(D3DRS_LIGHTING, FALSE);
    d3d->_setRenderState(D3DRS_CULLMODE, D3DCULL_NONE);
    d3d->_setRenderState(D3DRS_ZENABLE, D3DZB_FALSE);
    rs->SetTexture(0, t.get(), point);
    device->SetTextureStageState(0, D3DTSS_COLOROP, D3DTOP_SELECTARG1);
    device->SetTextureStageState(0, D3DTSS_COLORARG1, D3DTA_TEXTURE);
    device->SetTextureStageState(0, D3DTSS_ALPHAOP, D3DTOP_SELECTARG1);
    device->SetTextureStageState(0, D3DTSS_ALPHAARG1, D3DTA_TEXTURE);
    struct Vertex
    {
        float x, y, z, rhw, u, v;
    };
    const float right = kWidth - 0.5f, bottom = kHeight - 0.5f;
    const Vertex quad[4] = {{-0.5f, -0.5f, 0, 1, 0, 0},
                            {right, -0.5f, 0, 1, 1, 0},
                            {-0.5f, bottom, 0, 1, 0, 1},
                            {right, bottom, 0, 1, 1, 1}};
    ASSERT_EQ(device->SetFVF(D3DFVF_XYZRHW | D3DFVF_TEX1), D3D_OK);
    ASSERT_EQ(device->DrawPrimitiveUP(D3DPT_TRIANGLESTRIP, 2, quad, sizeof(Vertex)), D3D_OK);
    rs->_endFrame();

    std::vector<uint32_t> screen = ReadBackBuffer();
    const unsigned cell = kWidth / 4;
    for (unsigned y = 0; y < 4; ++y)
        for (unsigned x = 0; x < 4; ++x)
            EXPECT_EQ(screen[(y * cell + cell / 2) * kWidth + x * cell + cell / 2], texels[y * 4 + x])
                << "texel " << x << ", " << y;
}

} // namespace
