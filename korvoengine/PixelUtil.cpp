#include "engine/PixelUtil.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace kv
{
namespace
{

enum Kind
{
    K_NONE,   // not convertible (depth, special and unknown formats)
    K_PACKED, // channels are bit fields of one little-endian word of up to 8 bytes
    K_HALF,   // consecutive 16-bit floats, R first
    K_FLOAT,  // consecutive 32-bit floats, R first
    K_BLOCK,  // 4 x 4 blocks
};

// Channel masks of a packed word; luminance formats carry their value in r and
// say so with `luminance`.
struct FormatInfo
{
    PixelFormat format;
    unsigned bytes; // per pixel, or per block for K_BLOCK
    Kind kind;
    unsigned channels; // for K_HALF and K_FLOAT
    uint64_t r, g, b, a;
    bool luminance;
};

const FormatInfo kInfos[] = {
    {PF_L8, 1, K_PACKED, 0, 0xFF, 0, 0, 0, true},
    {PF_L16, 2, K_PACKED, 0, 0xFFFF, 0, 0, 0, true},
    {PF_A8, 1, K_PACKED, 0, 0, 0, 0, 0xFF, false},
    {PF_A4L4, 1, K_PACKED, 0, 0x0F, 0, 0, 0xF0, true},
    {PF_A8L8, 2, K_PACKED, 0, 0x00FF, 0, 0, 0xFF00, true},
    {PF_R5G6B5, 2, K_PACKED, 0, 0xF800, 0x07E0, 0x001F, 0, false},
    {PF_B5G6R5, 2, K_PACKED, 0, 0x001F, 0x07E0, 0xF800, 0, false},
    {PF_A4R4G4B4, 2, K_PACKED, 0, 0x0F00, 0x00F0, 0x000F, 0xF000, false},
    {PF_A1R5G5B5, 2, K_PACKED, 0, 0x7C00, 0x03E0, 0x001F, 0x8000, false},
    {PF_R8G8B8, 3, K_PACKED, 0, 0xFF0000, 0x00FF00, 0x0000FF, 0, false},
    {PF_B8G8R8, 3, K_PACKED, 0, 0x0000FF, 0x00FF00, 0xFF0000, 0, false},
    {PF_A8R8G8B8, 4, K_PACKED, 0, 0x00FF0000, 0x0000FF00, 0x000000FF, 0xFF000000, false},
    {PF_A8B8G8R8, 4, K_PACKED, 0, 0x000000FF, 0x0000FF00, 0x00FF0000, 0xFF000000, false},
    {PF_B8G8R8A8, 4, K_PACKED, 0, 0x0000FF00, 0x00FF0000, 0xFF000000, 0x000000FF, false},
    {PF_R8G8B8A8, 4, K_PACKED, 0, 0xFF000000, 0x00FF0000, 0x0000FF00, 0x000000FF, false},
    {PF_X8R8G8B8, 4, K_PACKED, 0, 0x00FF0000, 0x0000FF00, 0x000000FF, 0, false},
    {PF_X8B8G8R8, 4, K_PACKED, 0, 0x000000FF, 0x0000FF00, 0x00FF0000, 0, false},
    {PF_A2R10G10B10, 4, K_PACKED, 0, 0x3FF00000, 0x000FFC00, 0x000003FF, 0xC0000000, false},
    {PF_A2B10G10R10, 4, K_PACKED, 0, 0x000003FF, 0x000FFC00, 0x3FF00000, 0xC0000000, false},
    {PF_R3G3B2, 1, K_PACKED, 0, 0xE0, 0x1C, 0x03, 0, false},
    {PF_G16R16, 4, K_PACKED, 0, 0x0000FFFF, 0xFFFF0000, 0, 0, false},
    {PF_A16B16G16R16, 8, K_PACKED, 0, 0xFFFFull, 0xFFFF0000ull, 0xFFFF00000000ull, 0xFFFF000000000000ull, false},
    {PF_SHORT_RGB, 6, K_PACKED, 0, 0xFFFFull, 0xFFFF0000ull, 0xFFFF00000000ull, 0, false},
    {PF_FLOAT16_R, 2, K_HALF, 1, 0, 0, 0, 0, false},
    {PF_FLOAT16_GR, 4, K_HALF, 2, 0, 0, 0, 0, false},
    {PF_FLOAT16_RGB, 6, K_HALF, 3, 0, 0, 0, 0, false},
    {PF_FLOAT16_RGBA, 8, K_HALF, 4, 0, 0, 0, 0, false},
    {PF_FLOAT32_R, 4, K_FLOAT, 1, 0, 0, 0, 0, false},
    {PF_FLOAT32_GR, 8, K_FLOAT, 2, 0, 0, 0, 0, false},
    {PF_FLOAT32_RGB, 12, K_FLOAT, 3, 0, 0, 0, 0, false},
    {PF_FLOAT32_RGBA, 16, K_FLOAT, 4, 0, 0, 0, 0, false},
    {PF_D24X8, 4, K_NONE, 0, 0, 0, 0, 0, false},
    {PF_D24S8, 4, K_NONE, 0, 0, 0, 0, 0, false},
    {PF_INTZ, 4, K_NONE, 0, 0, 0, 0, 0, false},
    {PF_D16, 2, K_NONE, 0, 0, 0, 0, 0, false},
    {PF_DXT1, 8, K_BLOCK, 0, 0, 0, 0, 0, false},
    {PF_DXT2, 16, K_BLOCK, 0, 0, 0, 0, 0, false},
    {PF_DXT3, 16, K_BLOCK, 0, 0, 0, 0, 0, false},
    {PF_DXT4, 16, K_BLOCK, 0, 0, 0, 0, 0, false},
    {PF_DXT5, 16, K_BLOCK, 0, 0, 0, 0, 0, false},
    {PF_ATI2, 16, K_BLOCK, 0, 0, 0, 0, 0, false},
};

const FormatInfo* Find(PixelFormat format)
{
    for (const FormatInfo& info : kInfos)
        if (info.format == format)
            return &info;
    return nullptr;
}

unsigned Shift(uint64_t mask)
{
    unsigned s = 0;
    while (mask && !(mask & 1))
    {
        mask >>= 1;
        ++s;
    }
    return s;
}

float ReadField(uint64_t word, uint64_t mask)
{
    const unsigned s = Shift(mask);
    const uint64_t max = mask >> s;
    return static_cast<float>((word & mask) >> s) / static_cast<float>(max);
}

uint64_t WriteField(float value, uint64_t mask)
{
    if (!mask)
        return 0;
    const unsigned s = Shift(mask);
    const uint64_t max = mask >> s;
    const float v = std::min(1.0f, std::max(0.0f, value));
    return (static_cast<uint64_t>(v * static_cast<float>(max) + 0.5f) << s) & mask;
}

float HalfToFloat(uint16_t h)
{
    const unsigned sign = h >> 15, exponent = (h >> 10) & 0x1F, mantissa = h & 0x3FF;
    float v;
    if (exponent == 0)
        v = std::ldexp(static_cast<float>(mantissa), -24);
    else if (exponent == 31)
        v = mantissa ? NAN : INFINITY;
    else
        v = std::ldexp(static_cast<float>(mantissa | 0x400), static_cast<int>(exponent) - 25);
    return sign ? -v : v;
}

uint16_t FloatToHalf(float f)
{
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    const uint16_t sign = static_cast<uint16_t>((bits >> 16) & 0x8000);
    if (std::isnan(f))
        return static_cast<uint16_t>(sign | 0x7E00);
    const float a = std::fabs(f);
    if (a >= 65520.0f)
        return static_cast<uint16_t>(sign | 0x7C00);
    if (a < std::ldexp(1.0f, -24))
        return sign;
    int exponent;
    std::frexp(a, &exponent); // a = m * 2^exponent, m in [0.5, 1)
    if (exponent < -13)       // subnormal half
        return static_cast<uint16_t>(sign | static_cast<uint16_t>(std::lround(std::ldexp(a, 24))));
    long m = std::lround(std::ldexp(a, 11 - exponent)); // 11 bits with the leading one
    if (m == 2048)
    {
        m = 1024;
        ++exponent;
    }
    return static_cast<uint16_t>(sign | ((exponent + 14) << 10) | (m & 0x3FF));
}

void Unpack(const FormatInfo& info, const uint8_t* p, float rgba[4])
{
    rgba[0] = rgba[1] = rgba[2] = 0.0f;
    rgba[3] = 1.0f;
    if (info.kind == K_PACKED)
    {
        uint64_t word = 0;
        for (unsigned i = 0; i < info.bytes; ++i)
            word |= static_cast<uint64_t>(p[i]) << (8 * i);
        if (info.r)
            rgba[0] = ReadField(word, info.r);
        if (info.g)
            rgba[1] = ReadField(word, info.g);
        if (info.b)
            rgba[2] = ReadField(word, info.b);
        if (info.a)
            rgba[3] = ReadField(word, info.a);
        if (info.luminance)
            rgba[1] = rgba[2] = rgba[0];
        return;
    }
    for (unsigned c = 0; c < info.channels; ++c)
    {
        if (info.kind == K_HALF)
        {
            uint16_t h;
            std::memcpy(&h, p + 2 * c, sizeof h);
            rgba[c] = HalfToFloat(h);
        }
        else
        {
            std::memcpy(&rgba[c], p + 4 * c, sizeof(float));
        }
    }
}

void Pack(const FormatInfo& info, const float rgba[4], uint8_t* p)
{
    if (info.kind == K_PACKED)
    {
        const uint64_t word = WriteField(rgba[0], info.r) | WriteField(rgba[1], info.g) | WriteField(rgba[2], info.b) |
                              WriteField(rgba[3], info.a);
        for (unsigned i = 0; i < info.bytes; ++i)
            p[i] = static_cast<uint8_t>(word >> (8 * i));
        return;
    }
    for (unsigned c = 0; c < info.channels; ++c)
    {
        if (info.kind == K_HALF)
        {
            const uint16_t h = FloatToHalf(rgba[c]);
            std::memcpy(p + 2 * c, &h, sizeof h);
        }
        else
        {
            std::memcpy(p + 4 * c, &rgba[c], sizeof(float));
        }
    }
}

} // namespace

unsigned PixelUtil::getNumElemBytes(PixelFormat format)
{
    const FormatInfo* info = Find(format);
    return info && info->kind != K_BLOCK ? info->bytes : 0;
}

unsigned PixelUtil::getNumElemBits(PixelFormat format)
{
    return getNumElemBytes(format) * 8;
}

bool PixelUtil::isCompressed(PixelFormat format)
{
    const FormatInfo* info = Find(format);
    return info && info->kind == K_BLOCK;
}

std::size_t PixelUtil::getMemorySize(unsigned width, unsigned height, unsigned depth, PixelFormat format)
{
    const FormatInfo* info = Find(format);
    if (!info)
        return 0;
    if (info->kind == K_BLOCK)
        return std::size_t((width + 3) / 4) * ((height + 3) / 4) * depth * info->bytes;
    return std::size_t(width) * height * depth * info->bytes;
}

std::size_t PixelUtil::calculateSize(unsigned mipmaps, unsigned faces, unsigned width, unsigned height, unsigned depth,
                                     PixelFormat format)
{
    std::size_t size = 0;
    for (unsigned level = 0; level <= mipmaps && level < 32; ++level)
    {
        size += getMemorySize(std::max(1u, width >> level), std::max(1u, height >> level), std::max(1u, depth >> level),
                              format);
    }
    return size * faces;
}

bool PixelUtil::isConvertible(PixelFormat format)
{
    const FormatInfo* info = Find(format);
    return info && (info->kind == K_PACKED || info->kind == K_HALF || info->kind == K_FLOAT);
}

bool PixelUtil::bulkPixelConversion(const PixelBox& src, const PixelBox& dst)
{
    const unsigned width = src.getWidth(), height = src.getHeight(), depth = src.getDepth();
    if (width != dst.getWidth() || height != dst.getHeight() || depth != dst.getDepth() || !src.data || !dst.data)
        return false;
    const FormatInfo* from = Find(src.format);
    const FormatInfo* to = Find(dst.format);
    if (!from || !to)
        return false;
    const uint8_t* in = static_cast<const uint8_t*>(src.data);
    uint8_t* out = static_cast<uint8_t*>(dst.data);

    if (src.format == dst.format)
    {
        // Compressed boxes are walked in rows of blocks; their pitches still count pixels.
        const bool blocks = from->kind == K_BLOCK;
        const unsigned rows = blocks ? (height + 3) / 4 : height;
        const std::size_t rowBytes =
            blocks ? std::size_t((width + 3) / 4) * from->bytes : std::size_t(width) * from->bytes;
        const std::size_t inRow =
            blocks ? std::size_t(src.rowPitch / 4) * from->bytes * 1 : std::size_t(src.rowPitch) * from->bytes;
        const std::size_t outRow =
            blocks ? std::size_t(dst.rowPitch / 4) * to->bytes : std::size_t(dst.rowPitch) * to->bytes;
        const std::size_t inSlice = blocks ? inRow * rows : std::size_t(src.slicePitch) * from->bytes;
        const std::size_t outSlice = blocks ? outRow * rows : std::size_t(dst.slicePitch) * to->bytes;
        const std::size_t inStart =
            blocks ? 0
                   : (std::size_t(src.front) * src.slicePitch + std::size_t(src.top) * src.rowPitch + src.left) *
                         from->bytes;
        const std::size_t outStart =
            blocks ? 0
                   : (std::size_t(dst.front) * dst.slicePitch + std::size_t(dst.top) * dst.rowPitch + dst.left) *
                         to->bytes;
        for (unsigned z = 0; z < depth; ++z)
            for (unsigned y = 0; y < rows; ++y)
                std::memmove(out + outStart + z * outSlice + y * outRow, in + inStart + z * inSlice + y * inRow,
                             rowBytes);
        return true;
    }
    if (!isConvertible(src.format) || !isConvertible(dst.format))
        return false;

    for (unsigned z = 0; z < depth; ++z)
    {
        for (unsigned y = 0; y < height; ++y)
        {
            const uint8_t* s = in + ((std::size_t(src.front) + z) * src.slicePitch +
                                     (std::size_t(src.top) + y) * src.rowPitch + src.left) *
                                        from->bytes;
            uint8_t* d = out + ((std::size_t(dst.front) + z) * dst.slicePitch +
                                (std::size_t(dst.top) + y) * dst.rowPitch + dst.left) *
                                   to->bytes;
            for (unsigned x = 0; x < width; ++x, s += from->bytes, d += to->bytes)
            {
                float rgba[4];
                Unpack(*from, s, rgba);
                Pack(*to, rgba, d);
            }
        }
    }
    return true;
}

} // namespace kv
