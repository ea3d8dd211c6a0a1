// A texture's data: levels, cube faces and volume slices from files, bad
// files, saves by the path's ending, copies to other textures and from the
// window, a device reset for each pool, and the white stand-in of a texture
// that is not ready.
#include "TexturesFixture.h"

#include <cstdio>

using namespace kv;
using namespace kvtest;
using namespace kvtex;
using kvdx::Fn;
using kvproxy::Method;

namespace
{

TEST_F(TexturesTest, SavesFollowTheLowerCasedEnding)
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
}

TEST_F(TexturesTest, CopiesToTexturesAndFromTheWindow)
{
    ref_ptr<CTexture> from = Make(8, 8, TU_RENDERTARGET), to = Make(8, 8, TU_RENDERTARGET);
    ASSERT_EQ(device->ColorFill(Buffer(from.get())->getSurface(), nullptr, kRed), D3D_OK);
    mark = kvproxy::Here();
    from->copyToTexture(to.get());
    const ArgList stretches = ArgsOf(mark, Method::StretchRect, 5);
    ASSERT_EQ(stretches.size(), 1u);
    EXPECT_EQ(stretches[0][1], 0u); // the whole source, unfiltered
    EXPECT_EQ(stretches[0][4], static_cast<uint64_t>(D3DTEXF_NONE));
    EXPECT_EQ(Read(to->getBuffer(0, 0)), Fill(64, kRed));

    ref_ptr<CTexture> plain = Manual(8, 8, Fill(64, kGreen));
    ref_ptr<CTexture> volume = rs->CreateTextureManual(TEX_TYPE_3D, 8, 8, 2, 0, PF_A8R8G8B8, 0, 0, false);
    ClearLog();
    mark = kvproxy::Here();
    from->copyToTexture(plain.get());
    volume->copyToTexture(volume.get());
    EXPECT_EQ(Errors(), (Lines{"Src. and dest. textures must be of same type and must have the same usage !!! , "
                               "D3D9Texture::copyToTexture",
                               "Copy to texture is implemented only for 2D and cube textures !!! , "
                               "D3D9Texture::copyToTexture"}));
    EXPECT_EQ(kvproxy::CountSince(mark, Method::StretchRect), 0u);
    EXPECT_EQ(Read(plain->getBuffer(0, 0)), Fill(64, kGreen));

    // The window's back buffer into a texture of its size.
    ref_ptr<CTexture> shot = Make(kWidth, kHeight, TU_RENDERTARGET);
    ASSERT_NO_FATAL_FAILURE(BeginClearedFrame());
    EXPECT_TRUE(MainWindow()->CopyToTexture(shot.get()));
    rs->_endFrame();
    EXPECT_EQ(Read(shot->getBuffer(0, 0)), Fill(kWidth * kHeight, kClear));
}

TEST_F(TexturesTest, AResetRebuildsDefaultPoolTexturesAndLeavesManagedOnes)
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
    // The managed one kept its pixels without any work, and a manual
    // texture's reload leaves its native objects alone.
    EXPECT_EQ(Read(managed->getBuffer(0, 0)), Pattern(8, 8));
    IDirect3DBaseTexture9* native = D3D(managed.get())->m_pTextures->baseTex;
    EXPECT_TRUE(managed->Reload());
    EXPECT_EQ(D3D(managed.get())->m_pTextures->baseTex, native);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(TexturesTest, ATextureNotReadyBindsTheWhiteTextureAReadyOneItself)
{
    ref_ptr<CD3D9Texture> pending(new CD3D9Texture); // never loaded
    CD3D9Texture* white = D3D(rs->GetWhiteTexture());
    ASSERT_NE(white, nullptr);
    EXPECT_EQ(pending->GetNativeTexture(), white->m_pTextures->baseTex);
    EXPECT_EQ(Read(white->getBuffer(0, 0)), Fill(1, 0xFFFFFFFFu));
    ref_ptr<CTexture> ready = Make(4, 4);
    EXPECT_EQ(D3D(ready.get())->GetNativeTexture(), D3D(ready.get())->m_pTextures->baseTex);
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
    const Bytes file = WriteDds(16, 16, 1, false, {Fill(256, kRed), Fill(64, kGreen), Fill(16, 0xFF0000FF)});
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
    EXPECT_EQ(Read(three->getBuffer(0, 1)), Fill(64, kGreen));
    EXPECT_EQ(Read(three->getBuffer(0, 2)), Fill(16, 0xFF0000FF));
    EXPECT_TRUE(kvdx::Calls(Fn::FilterTexture).empty());

    // More levels than the file has: the chain is filtered from level 0, box and sRGB.
    kvdx::Reset();
    ref_ptr<CTexture> all = FromMemory("levels.dds", file, TEX_TYPE_2D, 5);
    ASSERT_TRUE(all);
    ASSERT_EQ(all->mNumMipmaps, 4u); // 16 to 1: five levels
    const std::vector<KvDxCall> filters = kvdx::Calls(Fn::FilterTexture);
    ASSERT_EQ(filters.size(), 1u);
    EXPECT_EQ(filters[0].args[1], 0x600005u);
    EXPECT_EQ(Read(all->getBuffer(0, 3)), Fill(4, kRed));
    EXPECT_EQ(Read(all->getBuffer(0, 4)), Fill(1, kRed));

    // A failed filter is logged with the file's name.
    kvdx::Fail(Fn::FilterTexture, E_FAIL);
    ClearLog();
    all->_autogenerateMipmaps();
    EXPECT_EQ(Errors(), Lines{"Failed to D3DXFilterTexture, levels.dds"});
}

TEST_F(TexturesTest, CubeAndVolumeFilesFillEveryFaceAndSlice)
{
    const uint32_t kFaces[6] = {kRed, kGreen, 0xFF0000FF, 0xFFFFFF00, 0xFF00FFFF, 0xFFFF00FF};
    std::vector<Pixels> faces;
    for (uint32_t c : kFaces)
        faces.push_back(Fill(16, c));
    ref_ptr<CTexture> cube = FromMemory("cube.dds", WriteDds(4, 4, 1, true, faces), TEX_TYPE_CUBE_MAP);
    ASSERT_TRUE(cube) << ::testing::PrintToString(Errors());
    EXPECT_EQ(D3D(cube.get())->m_surfaceList.size(), 6u);
    for (unsigned f = 0; f < 6; ++f)
        EXPECT_EQ(Read(cube->getBuffer(f, 0)), faces[f]) << "face " << f;

    Pixels slices = Fill(16, kRed);
    slices.resize(32, kGreen);
    ref_ptr<CTexture> volume = FromMemory("volume.dds", WriteDds(4, 4, 2, false, {slices}), TEX_TYPE_3D);
    ASSERT_TRUE(volume) << ::testing::PrintToString(Errors());
    EXPECT_EQ(volume->mDepth, 2u);
    EXPECT_EQ(Read(volume->getBuffer(0, 0)), slices);
    EXPECT_EQ(g_nTextureResSizeInBytes, 6u * 64 + 128);

    // A flat image asked for as a cube map is refused.
    ClearLog();
    EXPECT_FALSE(FromMemory("flat.dds", WriteDds(4, 4, 1, false, {Fill(16, kRed)}), TEX_TYPE_CUBE_MAP));
    EXPECT_EQ(Errors(), (Lines{"The image flat.dds holds no cube map", "Failed to CreateTextureFromMemory:flat.dds"}));
}

TEST_F(TexturesTest, BadFilesAreRefusedWithTheirName)
{
    // A level count of about a billion: D3DX would walk it before reading a pixel.
    Bytes huge = WriteDds(4, 4, 1, false, {Fill(16, kRed), Fill(4, kRed)});
    huge[31] = 0x40;
    char hr[16];
    std::snprintf(hr, sizeof hr, "%08lx", static_cast<unsigned long>(D3DXERR_INVALIDDATA));
    const struct
    {
        const char* name;
        Bytes bytes;
        std::string line;
    } rows[] = {
        {"text.png", Bytes(12, 'x'), std::string("Not an image file D3DX can read: text.png, hr:0x") + hr},
        {"empty.png", Bytes(), "No image data for the texture empty.png"},
        {"huge.dds", huge, "DDS header out of range: huge.dds, 4 x 4 x 1, 1073741826 levels"},
    };
    for (const auto& r : rows)
    {
        ClearLog();
        EXPECT_FALSE(FromMemory(r.name, r.bytes));
        EXPECT_EQ(Errors(), (Lines{r.line, std::string("Failed to CreateTextureFromMemory:") + r.name}));
        EXPECT_EQ(g_nTextureResSizeInBytes, 0u);
    }
    ClearLog();
    EXPECT_FALSE(rs->CreateTexture((dir + "\\missing.png").c_str(), TEX_TYPE_2D, 0, false));
    EXPECT_EQ(Errors(), (Lines{"Cannot read the texture file " + dir + "\\missing.png",
                               "Failed to CreateTexture:" + dir + "\\missing.png"}));
}

} // namespace
