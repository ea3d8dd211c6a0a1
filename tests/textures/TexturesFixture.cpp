#include "TexturesFixture.h"

using namespace kv;

namespace kvtex
{

Pixels Pattern(unsigned width, unsigned height, unsigned cell)
{
    Pixels pixels(std::size_t(width) * height);
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
            pixels[std::size_t(y) * width + x] =
                0xFF000000u | (((x / cell) * 73856093u ^ (y / cell) * 19349663u) & 0xFFFFFF);
    return pixels;
}

Bytes WriteDds(unsigned width, unsigned height, unsigned depth, bool cube, const std::vector<Pixels>& levels)
{
    const unsigned mips = static_cast<unsigned>(levels.size()) / (cube ? 6 : 1);
    // The header's 32 words: flags CAPS | HEIGHT | WIDTH | PITCH | PIXELFORMAT (and MIPMAPCOUNT, DEPTH), sizes, the
    // A8R8G8B8 pixel format, the caps.
    const uint32_t flags = 0x100Fu | (mips > 1 ? 0x20000u : 0) | (depth > 1 ? 0x800000u : 0);
    const uint32_t caps = 0x1000u | (mips > 1 || cube || depth > 1 ? 0x8u : 0) | (mips > 1 ? 0x400000u : 0);
    const uint32_t caps2 = (cube ? 0xFE00u : 0) | (depth > 1 ? 0x200000u : 0), slices = depth > 1 ? depth : 0;
    // clang-format off
    const uint32_t header[32] = {0x20534444, 124, flags, height, width, width * 4, slices, mips,
                                 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                 32, 0x41, 0, 32, 0x00FF0000, 0x0000FF00, 0x000000FF, 0xFF000000,
                                 caps, caps2, 0, 0, 0};
    // clang-format on
    Bytes b;
    const auto put = [&b](uint32_t v) {
        for (int i = 0; i < 4; ++i)
            b.push_back(static_cast<uint8_t>(v >> (8 * i)));
    };
    for (uint32_t word : header)
        put(word);
    for (const Pixels& level : levels)
        for (uint32_t p : level)
            put(p);
    return b;
}

} // namespace kvtex

void TexturesTest::SetUp()
{
    // Reset before the render system starts too: nothing an earlier test made fail may reach it.
    ASSERT_TRUE(kvdx::Available()) << "this suite must run with the recording d3dx9_43.dll";
    kvdx::Reset();
    KvDeviceTest::SetUp();
    kvdx::Reset();
    g_nTextureResSizeInBytes = g_nTextureManualSizeInBytes = 0;
    char temp[MAX_PATH];
    GetTempPathA(MAX_PATH, temp);
    dir = std::string(temp) + "kv_textures_" + ::testing::UnitTest::GetInstance()->current_test_info()->name();
    CreateDirectoryA(dir.c_str(), nullptr);
}

kvtex::Pixels TexturesTest::Read(CHardwarePixelBuffer* buffer)
{
    const unsigned w = buffer->getWidth(), h = buffer->getHeight(), d = buffer->getDepth();
    kvtex::Pixels pixels(std::size_t(w) * h * d, 0);
    buffer->blitToMemory(Box(0, 0, 0, w, h, d), PixelBox(w, h, d, PF_A8R8G8B8, pixels.data()));
    return pixels;
}

ref_ptr<CTexture> TexturesTest::Make(unsigned width, unsigned height, unsigned usage, PixelFormat format)
{
    return rs->CreateTextureManual(TEX_TYPE_2D, width, height, 1, 0, format, usage, 0, false);
}

ref_ptr<CTexture> TexturesTest::Manual(unsigned width, unsigned height, const kvtex::Pixels& pixels)
{
    ref_ptr<CTexture> t = Make(width, height);
    if (t)
        t->getBuffer(0, 0)->blitFromMemory(
            PixelBox(width, height, 1, PF_A8R8G8B8, const_cast<uint32_t*>(pixels.data())),
            Box(0, 0, 0, width, height, 1));
    return t;
}

ref_ptr<CTexture> TexturesTest::FromMemory(const char* name, const kvtex::Bytes& file, TextureType type, int mipmaps)
{
    return rs->CreateTextureFromMemory(name, file.empty() ? nullptr : const_cast<uint8_t*>(file.data()),
                                       static_cast<int>(file.size()), type, mipmaps, false);
}
