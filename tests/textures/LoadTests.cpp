// Textures from image files and memory: every format D3DX reads, compared
// pixel by pixel with what was written; the levels of a file and of a
// generated chain; cube and volume files; and bad files of every kind,
// including a seeded run of damaged images.
#include "TexturesFixture.h"

#include <cstdio>
#include <random>

using namespace kv;
using namespace kvtest;
using namespace kvtex;
using kvdx::Fn;

namespace
{

struct FormatRow
{
    const char* ending;
    D3DXIMAGE_FILEFORMAT format;
    double tolerance; // mean channel difference: JPEG is lossy
};

TEST_F(TexturesTest, EveryReadableFormatLoadsFromFileAndMemory)
{
    const FormatRow kRows[] = {
        {".bmp", D3DXIFF_BMP, 0}, {".jpg", D3DXIFF_JPG, 8}, {".png", D3DXIFF_PNG, 0},
        {".tga", D3DXIFF_TGA, 0}, {".dds", D3DXIFF_DDS, 0},
    };
    // Cells of JPEG's block size keep its loss small.
    const unsigned w = 32, h = 16;
    const std::vector<uint32_t> pixels = Pattern(w, h, 8);
    for (const FormatRow& r : kRows)
    {
        SCOPED_TRACE(r.ending);
        Bytes file;
        if (r.format == D3DXIFF_TGA)
            file = WriteTga(w, h, pixels);
        else if (r.format == D3DXIFF_DDS)
            file = WriteDds(w, h, 1, false, {pixels});
        else
            file = WriteWithD3DX(device, r.format, w, h, pixels);
        ASSERT_FALSE(file.empty());
        const std::string path = dir + "\\image" + r.ending;
        SaveFile(path, file);

        kvdx::Reset();
        g_nTextureResSizeInBytes = 0;
        ref_ptr<CTexture> fromFile = rs->CreateTexture(path.c_str(), TEX_TYPE_2D, 0, false);
        ASSERT_TRUE(fromFile) << ::testing::PrintToString(Errors());
        EXPECT_LE(MeanDifference(Read(fromFile->getBuffer(0, 0)), pixels), r.tolerance);
        EXPECT_EQ(kvdx::Calls(Fn::GetImageInfoFromFileInMemory).at(0).args[1], static_cast<uint64_t>(r.format));
        EXPECT_EQ(g_nTextureResSizeInBytes, w * h * 4);
        EXPECT_FALSE(fromFile->mIsManual);

        ref_ptr<CTexture> fromMemory = rs->CreateTextureFromMemory(
            path.c_str(), file.data(), static_cast<int>(file.size()), TEX_TYPE_2D, 0, false);
        ASSERT_TRUE(fromMemory);
        EXPECT_EQ(Read(fromMemory->getBuffer(0, 0)), Read(fromFile->getBuffer(0, 0)));
        EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
    }
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
    ref_ptr<CTexture> three = rs->CreateTextureFromMemory("levels.dds", const_cast<uint8_t*>(file.data()),
                                                          static_cast<int>(file.size()), TEX_TYPE_2D, 2, false);
    ASSERT_TRUE(three);
    ASSERT_EQ(three->mNumMipmaps, 2u);
    EXPECT_EQ(Read(three->getBuffer(0, 1)), Fill(64, kGreen));
    EXPECT_EQ(Read(three->getBuffer(0, 2)), Fill(16, 0xFF0000FF));
    EXPECT_TRUE(kvdx::Calls(Fn::FilterTexture).empty());

    // More levels than the file has: the chain is filtered from level 0.
    kvdx::Reset();
    ref_ptr<CTexture> all = rs->CreateTextureFromMemory("levels.dds", const_cast<uint8_t*>(file.data()),
                                                        static_cast<int>(file.size()), TEX_TYPE_2D, 5, false);
    ASSERT_TRUE(all);
    ASSERT_EQ(all->mNumMipmaps, 4u); // 16 to 1: five levels
    std::vector<KvDxCall> filters = kvdx::Calls(Fn::FilterTexture);
    ASSERT_EQ(filters.size(), 1u);
    EXPECT_EQ(filters[0].args[1], 0x600005u);
    EXPECT_EQ(Read(all->getBuffer(0, 3)), Fill(4, kRed));
    EXPECT_EQ(Read(all->getBuffer(0, 4)), Fill(1, kRed));

    // A failed filter is logged with the file's name.
    kvdx::Fail(Fn::FilterTexture, E_FAIL);
    ClearLog();
    all->_autogenerateMipmaps();
    EXPECT_EQ(Errors(), std::vector<std::string>{"Failed to D3DXFilterTexture, levels.dds"});
}

TEST_F(TexturesTest, CubeAndVolumeFilesFillEveryFaceAndSlice)
{
    const uint32_t kFaces[6] = {kRed, kGreen, 0xFF0000FF, 0xFFFFFF00, 0xFF00FFFF, 0xFFFF00FF};
    std::vector<std::vector<uint32_t>> faces;
    for (uint32_t c : kFaces)
        faces.push_back(Fill(16, c));
    const Bytes cubeFile = WriteDds(4, 4, 1, true, faces);
    ref_ptr<CTexture> cube =
        rs->CreateTextureFromMemory("cube.dds", const_cast<uint8_t*>(cubeFile.data()),
                                    static_cast<int>(cubeFile.size()), TEX_TYPE_CUBE_MAP, 0, false);
    ASSERT_TRUE(cube) << ::testing::PrintToString(Errors());
    EXPECT_EQ(D3D(cube.get())->m_surfaceList.size(), 6u);
    for (unsigned f = 0; f < 6; ++f)
        EXPECT_EQ(Read(cube->getBuffer(f, 0)), Fill(16, kFaces[f])) << "face " << f;

    std::vector<uint32_t> slices = Fill(16, kRed);
    std::vector<uint32_t> second = Fill(16, kGreen);
    slices.insert(slices.end(), second.begin(), second.end());
    const Bytes volumeFile = WriteDds(4, 4, 2, false, {slices});
    ref_ptr<CTexture> volume = rs->CreateTextureFromMemory("volume.dds", const_cast<uint8_t*>(volumeFile.data()),
                                                           static_cast<int>(volumeFile.size()), TEX_TYPE_3D, 0, false);
    ASSERT_TRUE(volume) << ::testing::PrintToString(Errors());
    EXPECT_EQ(volume->mDepth, 2u);
    EXPECT_EQ(Read(volume->getBuffer(0, 0)), slices);
    EXPECT_EQ(g_nTextureResSizeInBytes, 6u * 64 + 128);

    // A flat image asked for as a cube map is refused.
    ClearLog();
    const Bytes flat = WriteDds(4, 4, 1, false, {Fill(16, kRed)});
    EXPECT_FALSE(rs->CreateTextureFromMemory("flat.dds", const_cast<uint8_t*>(flat.data()),
                                             static_cast<int>(flat.size()), TEX_TYPE_CUBE_MAP, 0, false));
    EXPECT_EQ(Errors(), (std::vector<std::string>{"The image flat.dds holds no cube map",
                                                  "Failed to CreateTextureFromMemory:flat.dds"}));
}

TEST_F(TexturesTest, BadFilesAreRefusedWithTheirName)
{
    // A level count of about a billion: D3DX would walk it before reading a pixel.
    Bytes huge = WriteDds(4, 4, 1, false, {Fill(16, kRed), Fill(4, kRed)});
    huge[31] = 0x40;
    struct Row
    {
        const char* name;
        Bytes bytes;
        std::string line;
    } rows[] = {
        {"text.png", Bytes{'n', 'o', 't', ' ', 'a', 'n', ' ', 'i', 'm', 'a', 'g', 'e'},
         "Not an image file D3DX can read: text.png, hr:0x"},
        {"empty.png", Bytes(), "No image data for the texture empty.png"},
        {"huge.dds", huge, "DDS header out of range: huge.dds, 4 x 4 x 1, 1073741826 levels"},
    };
    char hr[16];
    std::snprintf(hr, sizeof hr, "%08lx", static_cast<unsigned long>(D3DXERR_INVALIDDATA));
    rows[0].line += hr;
    for (const Row& r : rows)
    {
        SCOPED_TRACE(r.name);
        ClearLog();
        EXPECT_FALSE(rs->CreateTextureFromMemory(r.name, const_cast<uint8_t*>(r.bytes.data()),
                                                 static_cast<int>(r.bytes.size()), TEX_TYPE_2D, 0, false));
        EXPECT_EQ(Errors(),
                  (std::vector<std::string>{r.line, std::string("Failed to CreateTextureFromMemory:") + r.name}));
        EXPECT_EQ(g_nTextureResSizeInBytes, 0u);
    }
    ClearLog();
    EXPECT_FALSE(rs->CreateTexture((dir + "\\missing.png").c_str(), TEX_TYPE_2D, 0, false));
    EXPECT_EQ(Errors(), (std::vector<std::string>{"Cannot read the texture file " + dir + "\\missing.png",
                                                  "Failed to CreateTexture:" + dir + "\\missing.png"}));
}

TEST_F(TexturesTest, SeededDamagedImagesNeverCrashAndAlwaysLog)
{
    const uint32_t seed = 20261123;
    std::printf("damaged images: seed %u\n", seed);
    std::mt19937 random(seed);
    const std::vector<uint32_t> pixels = Pattern(8, 8, 2);
    const Bytes originals[] = {WriteWithD3DX(device, D3DXIFF_PNG, 8, 8, pixels),
                               WriteDds(8, 8, 1, false, {pixels, Pattern(4, 4), Pattern(2, 2), Pattern(1, 1)}),
                               WriteWithD3DX(device, D3DXIFF_BMP, 8, 8, pixels), WriteTga(8, 8, pixels)};
    unsigned loaded = 0, refused = 0;
    for (int i = 0; i < 2000; ++i)
    {
        Bytes file = originals[i % 4];
        ASSERT_FALSE(file.empty());
        switch (random() % 3)
        {
        case 0: // flipped bytes, most likely in the header
            for (unsigned n = 1 + random() % 8; n > 0; --n)
                file[random() % std::min<std::size_t>(file.size(), random() % 2 ? 64 : file.size())] ^=
                    static_cast<uint8_t>(1 + random() % 255);
            break;
        case 1: // cut short
            file.resize(random() % file.size());
            break;
        default: // a header field set to a large value
        {
            const std::size_t at = random() % std::min<std::size_t>(file.size() - 3, 60);
            file[at] = file[at + 1] = file[at + 2] = 0xFF;
            break;
        }
        }
        ClearLog();
        ref_ptr<CTexture> t = rs->CreateTextureFromMemory("damaged", file.empty() ? nullptr : file.data(),
                                                          static_cast<int>(file.size()), TEX_TYPE_2D, 0, false);
        if (t)
        {
            ++loaded;
            EXPECT_GT(t->mWidth, 0u);
        }
        else
        {
            ++refused;
            ASSERT_EQ(Errors().back(), "Failed to CreateTextureFromMemory:damaged") << "image " << i;
            ASSERT_GE(Errors().size(), 2u) << "image " << i << " failed without saying why";
        }
    }
    std::printf("damaged images: %u loaded, %u refused\n", loaded, refused);
    EXPECT_GT(refused, 0u);
}

} // namespace
