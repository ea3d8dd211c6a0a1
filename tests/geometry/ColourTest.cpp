#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "geometry/Colour.h"

using namespace kv;

namespace
{

TEST(Colour, PackingOrdersTruncateAndWrapAndUnpackingReversesThem)
{
    // No clamping: 2.0 -> 510 -> 0xFE, -1.0 -> -255 -> 0x01; truncation, not rounding:
    // 0.999 * 255 = 254.7; values no integer can hold pack as 0.
    const CColour c(1.0f, 0.5f, 0.0f, 1.0f);
    EXPECT_EQ(
        (std::vector<uint32_t>{0xFFFF7F00u, 0xFF7F00FFu, 0xFF007FFFu, 0x007FFFFFu, 0x00FE0100u, 0xFE000000u,
                               0xFF000000u}),
        (std::vector<uint32_t>{c.toD3DColor(), c.toPackedRGBA(), c.toPackedABGR(), c.toPackedBGRA(),
                               CColour(2.0f, -1.0f, 0.0f, 0.0f).toD3DColor(), CColour(0.999f, 0, 0, 0).toPackedRGBA(),
                               CColour(1e30f, std::nanf(""), 0, 1).toD3DColor()}));
    const float k = 1.0f / 255.0f;
    CColour argb, abgr, bgra, rgba;
    argb.fromPackedARGB(0x80FF4000u);
    abgr.fromPackedABGR(0x01020304u);
    bgra.fromPackedBGRA(0x01020304u);
    rgba.fromPackedRGBA(0x01020304u);
    EXPECT_EQ((std::vector<CColour>{CColour(255 * k, 64 * k, 0, 128 * k), CColour(4 * k, 3 * k, 2 * k, 1 * k),
                                    CColour(3 * k, 2 * k, 1 * k, 4 * k), CColour(1 * k, 2 * k, 3 * k, 4 * k)}),
              (std::vector<CColour>{argb, abgr, bgra, rgba}));
    for (unsigned v : {0x00000000u, 0xFFFFFFFFu, 0x12345678u, 0xA0B0C0D0u})
    {
        argb.fromPackedARGB(v);
        abgr.fromPackedABGR(v);
        bgra.fromPackedBGRA(v);
        EXPECT_EQ((std::vector<uint32_t>{v, v, v}),
                  (std::vector<uint32_t>{argb.toD3DColor(), abgr.toPackedABGR(), bgra.toPackedBGRA()}));
    }
    EXPECT_NE(CColour(std::nanf(""), 0, 0, 0), CColour(std::nanf(""), 0, 0, 0));
}

TEST(Colour, HueSaturationBrightness)
{
    const struct
    {
        CColour c;
        float h, s, v;
    } toRows[] = {
        {CColour(0, 0, 0, 0.3f), 0, 0, 0},
        {CColour(1, 0, 0), 0, 1, 1},
        {CColour(0, 0.5f, 0), 1.0f / 3, 1, 0.5f},
        {CColour(0.25f, 0.5f, 1.0f), 220.0f / 360, 0.75f, 1},
        {CColour(1.0f, 0.0f, 0.5f), 330.0f / 360, 1, 1}, // the magenta side wraps
    };
    for (const auto& r : toRows)
    {
        float h = -1, s = -1, v = -1;
        r.c.toHueSaturationBrightness(h, s, v);
        EXPECT_NEAR(r.h, h, 1e-6f) << &r - toRows;
        EXPECT_EQ(r.s, s) << &r - toRows;
        EXPECT_EQ(r.v, v) << &r - toRows;
    }
    const struct
    {
        float h, s, v;
        CColour c;
    } fromRows[] = {
        {1.0f, 1.0f, 1.0f, CColour(1, 0, 0, 0.25f)},          // hue 1 * 6 wraps to sector 0
        {0.7f, 0.0f, 0.4f, CColour(0.4f, 0.4f, 0.4f, 0.25f)}, // grey, hue ignored
        {0.7f, 0.9f, 0.0f, CColour(0, 0, 0, 0.25f)},          // black
        {0.5f, 1.0f, 7.0f, CColour(0, 1, 1, 0.25f)},          // brightness clamps to 1
        {-0.5f, 2.0f, 1.0f, CColour(0, 1, 1, 0.25f)},         // hue wraps to 0.5, saturation clamps
        {2.5f, 1.0f, 1.0f, CColour(0, 1, 1, 0.25f)},          // whole turns dropped
        {-2.5f, 1.0f, 1.0f, CColour(0, 1, 1, 0.25f)},         // beyond one turn: the fraction
    };
    for (const auto& r : fromRows)
    {
        CColour c(9, 9, 9, 0.25f);
        c.fromHueSaturationBrightness(r.h, r.s, r.v);
        EXPECT_EQ(r.c, c) << &r - fromRows;
    }
    // Round trip through every sector.
    for (int i = 0; i < 36; ++i)
    {
        const float hue = (i + 0.5f) / 36.0f;
        CColour c;
        c.fromHueSaturationBrightness(hue, 0.6f, 0.8f);
        float h, s, v;
        c.toHueSaturationBrightness(h, s, v);
        EXPECT_NEAR(hue, h, 1e-5f) << i;
        EXPECT_NEAR(0.6f, s, 1e-5f) << i;
        EXPECT_NEAR(0.8f, v, 1e-6f) << i;
    }
}

} // namespace
