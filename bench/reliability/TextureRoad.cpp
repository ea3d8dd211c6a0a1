// The texture load-from-memory road under seeded corruptions of PNG, DDS, BMP and
// TGA files: every image loads or is refused with its reason in the log, and
// nothing crashes.
#include "ImageFiles.h"
#include "SoakSupport.h"
#include "TexturesFixture.h"

#include <random>

using namespace kv;

namespace
{

class TextureRoad : public KvDeviceTest
{
};

TEST_F(TextureRoad, DamagedImagesLoadOrAreRefusedWithAReason)
{
    const unsigned images = soak::Size("KV_SOAK_TEXTURE_IMAGES", 300);
    std::mt19937 random(soak::Seed("texture road"));
    using kvtex::Pattern;
    const std::vector<uint32_t> pixels = Pattern(16, 16, 2);
    const kvtex::Bytes originals[] = {
        soak::WriteWithD3DX(device, D3DXIFF_PNG, 16, 16, pixels),
        kvtex::WriteDds(16, 16, 1, false, {pixels, Pattern(8, 8), Pattern(4, 4), Pattern(2, 2), Pattern(1, 1)}),
        kvtex::WriteDds(4, 4, 1, true,
                        {Pattern(4, 4), Pattern(4, 4), Pattern(4, 4), Pattern(4, 4), Pattern(4, 4), Pattern(4, 4)}),
        soak::WriteWithD3DX(device, D3DXIFF_BMP, 16, 16, pixels), soak::WriteTga(16, 16, pixels)};
    const TextureType types[] = {TEX_TYPE_2D, TEX_TYPE_2D, TEX_TYPE_CUBE_MAP, TEX_TYPE_2D, TEX_TYPE_2D};
    unsigned loaded = 0, refused = 0, unexplained = 0;
    soak::Watchdog watchdog("the texture road", 120);
    for (unsigned i = 0; i < images; ++i)
    {
        const unsigned which = i % 5;
        kvtex::Bytes file = originals[which];
        ASSERT_FALSE(file.empty());
        for (unsigned damage = 1 + random() % 3; damage > 0 && !file.empty(); --damage)
            switch (random() % 4)
            {
            case 0: // flipped bytes, mostly in the header
                for (unsigned n = 1 + random() % 8; n > 0; --n)
                    file[random() % std::min<std::size_t>(file.size(), random() % 2 ? 128 : file.size())] ^=
                        static_cast<uint8_t>(1 + random() % 255);
                break;
            case 1: // cut short
                file.resize(random() % file.size());
                break;
            case 2: // a field set to a large value
            {
                const std::size_t at = random() % std::min<std::size_t>(file.size(), 124);
                for (std::size_t k = at; k < at + 4 && k < file.size(); ++k)
                    file[k] = 0xFF;
                break;
            }
            default: // bytes inserted
                file.insert(file.begin() + random() % file.size(), 1 + random() % 16, static_cast<uint8_t>(random()));
                break;
            }
        ClearLog();
        ref_ptr<CTexture> t = rs->CreateTextureFromMemory("damaged", file.empty() ? nullptr : file.data(),
                                                          static_cast<int>(file.size()), types[which], 0, false);
        if (t)
        {
            ++loaded;
            EXPECT_GT(t->mWidth, 0u) << "image " << i;
        }
        else
        {
            ++refused;
            const std::vector<std::string> errors = kvtest::Errors();
            if (errors.size() < 2 || errors.back() != "Failed to CreateTextureFromMemory:damaged")
                if (++unexplained <= 5)
                    ADD_FAILURE() << "image " << i << " refused without its reason";
        }
        watchdog.Tick();
    }
    std::printf("texture road: %u images, %u loaded, %u refused\n", images, loaded, refused);
    soak::Bench("texture_fuzz_executions", images, "images");
    soak::Bench("texture_fuzz_unexplained", unexplained, "images");
    EXPECT_EQ(0u, unexplained);
    EXPECT_GT(refused, 0u);
}

} // namespace
