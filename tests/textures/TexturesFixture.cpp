#include "TexturesFixture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace kv;

namespace kvtex
{

std::vector<uint32_t> Pattern(unsigned width, unsigned height, unsigned cell, uint32_t seed)
{
    std::vector<uint32_t> pixels(std::size_t(width) * height);
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x)
        {
            const uint32_t c = (x / cell) * 73856093u ^ (y / cell) * 19349663u ^ seed * 83492791u;
            pixels[std::size_t(y) * width + x] = 0xFF000000u | (c & 0xFFFFFF);
        }
    return pixels;
}

std::vector<uint32_t> Fill(unsigned count, uint32_t colour)
{
    return std::vector<uint32_t>(count, colour);
}

namespace
{

void Put32(Bytes& b, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void PutPixels(Bytes& b, const std::vector<uint32_t>& pixels)
{
    for (uint32_t p : pixels)
        Put32(b, p);
}

} // namespace

Bytes WriteTga(unsigned width, unsigned height, const std::vector<uint32_t>& pixels)
{
    Bytes b(18, 0);
    b[2] = 2; // uncompressed true colour
    b[12] = static_cast<uint8_t>(width);
    b[13] = static_cast<uint8_t>(width >> 8);
    b[14] = static_cast<uint8_t>(height);
    b[15] = static_cast<uint8_t>(height >> 8);
    b[16] = 32;
    b[17] = 0x28; // top-down, 8 alpha bits
    PutPixels(b, pixels);
    return b;
}

Bytes WriteDds(unsigned width, unsigned height, unsigned depth, bool cube,
               const std::vector<std::vector<uint32_t>>& levels)
{
    const unsigned mips = static_cast<unsigned>(levels.size()) / (cube ? 6 : 1);
    // The header's 32 words: flags CAPS | HEIGHT | WIDTH | PITCH | PIXELFORMAT
    // (and MIPMAPCOUNT, DEPTH), sizes, the A8R8G8B8 pixel format, the caps.
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
    for (uint32_t word : header)
        Put32(b, word);
    for (const std::vector<uint32_t>& level : levels)
        PutPixels(b, level);
    return b;
}

Bytes WriteWithD3DX(IDirect3DDevice9* device, D3DXIMAGE_FILEFORMAT format, unsigned width, unsigned height,
                    const std::vector<uint32_t>& pixels)
{
    Bytes bytes;
    IDirect3DSurface9* surface = nullptr;
    if (FAILED(device->CreateOffscreenPlainSurface(width, height, D3DFMT_A8R8G8B8, D3DPOOL_SCRATCH, &surface, nullptr)))
        return bytes;
    RECT rect = {0, 0, static_cast<LONG>(width), static_cast<LONG>(height)};
    ID3DXBuffer* file = nullptr;
    if (SUCCEEDED(D3DXLoadSurfaceFromMemory(surface, nullptr, nullptr, pixels.data(), D3DFMT_A8R8G8B8, width * 4,
                                            nullptr, &rect, D3DX_FILTER_NONE, 0)) &&
        SUCCEEDED(D3DXSaveSurfaceToFileInMemory(&file, format, surface, nullptr, nullptr)))
    {
        const uint8_t* p = static_cast<const uint8_t*>(file->GetBufferPointer());
        bytes.assign(p, p + file->GetBufferSize());
        file->Release();
    }
    surface->Release();
    return bytes;
}

void SaveFile(const std::string& path, const Bytes& bytes)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr) << path;
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
}

double MeanDifference(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b)
{
    if (a.size() != b.size() || a.empty())
        return 1e9;
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        for (int shift = 0; shift < 32; shift += 8)
            sum += std::abs(static_cast<int>((a[i] >> shift) & 0xFF) - static_cast<int>((b[i] >> shift) & 0xFF));
    return sum / (4.0 * a.size());
}

} // namespace kvtex

void TexturesTest::SetUp()
{
    KvDeviceTest::SetUp();
    ASSERT_TRUE(kvdx::Available()) << "this suite must run with the recording d3dx9_43.dll";
    kvdx::Reset();
    g_nTextureResSizeInBytes = 0;
    g_nTextureManualSizeInBytes = 0;
    char temp[MAX_PATH];
    GetTempPathA(MAX_PATH, temp);
    dir = std::string(temp) + "kv_textures_" + ::testing::UnitTest::GetInstance()->current_test_info()->name();
    CreateDirectoryA(dir.c_str(), nullptr);
}

void TexturesTest::TearDown()
{
    KvDeviceTest::TearDown();
    kvdx::Reset();
}

std::vector<uint32_t> TexturesTest::Read(CHardwarePixelBuffer* buffer)
{
    const unsigned w = buffer->getWidth(), h = buffer->getHeight(), d = buffer->getDepth();
    std::vector<uint32_t> pixels(std::size_t(w) * h * d, 0);
    buffer->blitToMemory(Box(0, 0, 0, w, h, d), PixelBox(w, h, d, PF_A8R8G8B8, pixels.data()));
    return pixels;
}

ref_ptr<CTexture> TexturesTest::Manual(unsigned width, unsigned height, const std::vector<uint32_t>& pixels,
                                       unsigned usage, int mipmaps)
{
    ref_ptr<CTexture> t = rs->CreateTextureManual(TEX_TYPE_2D, width, height, 1, mipmaps, PF_A8R8G8B8, usage, 0, false);
    if (t)
        t->getBuffer(0, 0)->blitFromMemory(
            PixelBox(width, height, 1, PF_A8R8G8B8, const_cast<uint32_t*>(pixels.data())),
            Box(0, 0, 0, width, height, 1));
    return t;
}
