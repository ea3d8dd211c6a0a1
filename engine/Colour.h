#pragma once
// The engine's colour: four floats, red, green, blue, alpha.
#include <cstdint>

namespace kv
{

struct CColour
{
    float r, g, b, a;

    CColour() : r(0.0f), g(0.0f), b(0.0f), a(1.0f) {}
    CColour(float red, float green, float blue, float alpha = 1.0f) : r(red), g(green), b(blue), a(alpha) {}

    // Alpha in bits 31-24, then red, green, blue. Each component is scaled by
    // 255, truncated toward zero and cut to its low 8 bits: no clamping.
    uint32_t toD3DColor() const
    {
        return (Byte(a) << 24) | (Byte(r) << 16) | (Byte(g) << 8) | Byte(b);
    }

    bool operator==(const CColour& o) const { return r == o.r && g == o.g && b == o.b && a == o.a; }
    bool operator!=(const CColour& o) const { return !(*this == o); }

private:
    static uint32_t Byte(float v)
    {
        double scaled = static_cast<double>(v) * 255.0;
        // Truncation of a value outside the int range has no defined result;
        // such colours are far outside the nominal 0..1 and keep no bits.
        if (!(scaled > -2147483648.0 && scaled < 2147483648.0))
            return 0;
        return static_cast<uint32_t>(static_cast<int32_t>(scaled)) & 0xFFu;
    }
};

} // namespace kv
