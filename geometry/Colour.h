#pragma once
#include <cstdint>

namespace kv
{

// The engine's colour: four floats, red, green, blue, alpha, nominally 0 to 1 but never
// clamped. Packing truncates component * 255 and keeps its low byte, so out-of-range
// components wrap (2.0 packs as 254, -1.0 as 1) rather than saturate.
class CColour
{
public:
    float r = 0.0f, g = 0.0f, b = 0.0f, a = 1.0f;

    CColour() = default;
    constexpr CColour(float red, float green, float blue, float alpha = 1.0f) : r(red), g(green), b(blue), a(alpha) {}

    std::uint32_t toPackedABGR() const; // alpha, blue, green, red from the top byte down
    std::uint32_t toD3DColor() const;   // alpha, red, green, blue
    std::uint32_t toPackedBGRA() const; // blue, green, red, alpha
    std::uint32_t toPackedRGBA() const; // red, green, blue, alpha

    void fromPackedABGR(std::uint32_t v);
    void fromPackedARGB(std::uint32_t v);
    void fromPackedBGRA(std::uint32_t v);
    void fromPackedRGBA(std::uint32_t v);

    // Alpha plays no part in either.
    void toHueSaturationBrightness(float& hue, float& saturation, float& brightness) const;
    void fromHueSaturationBrightness(float hue, float saturation, float brightness);

    bool operator==(const CColour& o) const { return r == o.r && g == o.g && b == o.b && a == o.a; }
    bool operator!=(const CColour& o) const { return !(*this == o); }
};

} // namespace kv
