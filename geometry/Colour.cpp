#include "geometry/Colour.h"

#include <cmath>

#include "geometry/ScalarMath.h"

namespace kv
{

namespace
{

std::uint32_t ComponentByte(float c)
{
    // The product is taken in double, as the engine's own packing does, so that both give
    // the same byte for every float.
    const double scaled = static_cast<double>(c) * 255.0;
    // Truncation toward zero, low 8 bits, no clamping. A value that no 32-bit integer can
    // hold (or a NaN) has no low byte to keep: it packs as 0 instead of being undefined.
    if (!(scaled > -2147483648.0 && scaled < 2147483648.0))
        return 0;
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(scaled)) & 0xFFu;
}

float ByteComponent(std::uint32_t v, int shift)
{
    return static_cast<float>((v >> shift) & 0xFFu) * 0.003921569f;
}

} // namespace

std::uint32_t CColour::toPackedABGR() const
{
    return ComponentByte(a) << 24 | ComponentByte(b) << 16 | ComponentByte(g) << 8 | ComponentByte(r);
}

std::uint32_t CColour::toD3DColor() const
{
    return ComponentByte(a) << 24 | ComponentByte(r) << 16 | ComponentByte(g) << 8 | ComponentByte(b);
}

std::uint32_t CColour::toPackedBGRA() const
{
    return ComponentByte(b) << 24 | ComponentByte(g) << 16 | ComponentByte(r) << 8 | ComponentByte(a);
}

std::uint32_t CColour::toPackedRGBA() const
{
    return ComponentByte(r) << 24 | ComponentByte(g) << 16 | ComponentByte(b) << 8 | ComponentByte(a);
}

void CColour::fromPackedABGR(std::uint32_t v)
{
    a = ByteComponent(v, 24);
    b = ByteComponent(v, 16);
    g = ByteComponent(v, 8);
    r = ByteComponent(v, 0);
}

void CColour::fromPackedARGB(std::uint32_t v)
{
    a = ByteComponent(v, 24);
    r = ByteComponent(v, 16);
    g = ByteComponent(v, 8);
    b = ByteComponent(v, 0);
}

void CColour::fromPackedBGRA(std::uint32_t v)
{
    b = ByteComponent(v, 24);
    g = ByteComponent(v, 16);
    r = ByteComponent(v, 8);
    a = ByteComponent(v, 0);
}

void CColour::fromPackedRGBA(std::uint32_t v)
{
    r = ByteComponent(v, 24);
    g = ByteComponent(v, 16);
    b = ByteComponent(v, 8);
    a = ByteComponent(v, 0);
}

void CColour::toHueSaturationBrightness(float& hue, float& saturation, float& brightness) const
{
    const float vMin = std::fmin(r, std::fmin(g, b));
    const float vMax = std::fmax(r, std::fmax(g, b));
    const float delta = vMax - vMin;
    brightness = vMax;
    hue = 0.0f;

    if (FloatEquals(delta, 0.0f, 1e-6f))
    {
        // Grey: hue and saturation have no meaning.
        hue = 0.0f;
        saturation = 0.0f;
        return;
    }
    saturation = delta / brightness;

    const float invDelta = 1.0f / delta;
    const float shareR = ((brightness - r) * 0.16666667f + delta * 0.5f) * invDelta;
    const float shareG = ((brightness - g) * 0.16666667f + delta * 0.5f) * invDelta;
    const float shareB = ((brightness - b) * 0.16666667f + delta * 0.5f) * invDelta;

    if (FloatEquals(r, brightness, 1.1920929e-7f))
        hue = shareB - shareG;
    else if (FloatEquals(g, brightness, 1.1920929e-7f))
        hue = shareR + 0.3333333f - shareB;
    else if (FloatEquals(b, brightness, 1.1920929e-7f))
        hue = shareG + 0.6666667f - shareR;

    if (hue < 0.0f)
        hue += 1.0f;
    if (hue > 1.0f)
        hue -= 1.0f;
}

void CColour::fromHueSaturationBrightness(float hue, float saturation, float brightness)
{
    if (brightness >= 1.0f)
        brightness = 1.0f;
    if (brightness <= 0.0f)
    {
        r = g = b = 0.0f;
        return;
    }
    if (saturation < 0.0f)
        saturation = 0.0f;
    if (saturation > 1.0f)
        saturation = 1.0f;
    if (saturation == 0.0f)
    {
        r = g = b = brightness;
        return;
    }

    if (hue > 1.0f)
        hue -= std::trunc(hue);
    else if (hue < 0.0f)
    {
        hue += 1.0f;
        // Below -1 one turn is not enough: keep only the fraction of a turn.
        if (hue < 0.0f)
            hue -= std::floor(hue);
    }
    hue *= 6.0f;
    // 6 is the start of the wheel again; a NaN hue also lands on sector 0.
    if (!(hue < 6.0f && hue >= 0.0f))
        hue = 0.0f;

    const int sector = static_cast<int>(hue);
    const float fraction = hue - static_cast<float>(sector);
    const float p = (1.0f - saturation) * brightness;
    const float q = (1.0f - fraction * saturation) * brightness;
    const float t = (1.0f - (1.0f - fraction) * saturation) * brightness;
    const float v = brightness;
    switch (sector)
    {
    case 0:
        r = v;
        g = t;
        b = p;
        break;
    case 1:
        r = q;
        g = v;
        b = p;
        break;
    case 2:
        r = p;
        g = v;
        b = t;
        break;
    case 3:
        r = p;
        g = q;
        b = v;
        break;
    case 4:
        r = t;
        g = p;
        b = v;
        break;
    default:
        r = v;
        g = p;
        b = q;
        break;
    }
}

} // namespace kv
