#include <gtest/gtest.h>

#include <cmath>

#include "geometry/Colour.h"

using namespace kv;

TEST(Colour, PackingOrdersTruncateAndWrap)
{
    const CColour c(1.0f, 0.5f, 0.0f, 1.0f);
    EXPECT_EQ(c.toD3DColor(), 0xFFFF7F00u);
    EXPECT_EQ(c.toPackedRGBA(), 0xFF7F00FFu);
    EXPECT_EQ(c.toPackedABGR(), 0xFF007FFFu);
    EXPECT_EQ(c.toPackedBGRA(), 0x007FFFFFu);

    // No clamping: 2.0 -> 510 -> 0xFE, -1.0 -> -255 -> 0x01.
    EXPECT_EQ(CColour(2.0f, -1.0f, 0.0f, 0.0f).toD3DColor(), 0x00FE0100u);
    // Truncation, not rounding: 0.999 * 255 = 254.7.
    EXPECT_EQ(CColour(0.999f, 0, 0, 0).toPackedRGBA(), 0xFE000000u);
    // Values no integer can hold pack as 0 rather than misbehave.
    EXPECT_EQ(CColour(1e30f, std::nanf(""), 0, 1).toD3DColor(), 0xFF000000u);
}

TEST(Colour, UnpackingReversesEachLayout)
{
    const float k = 0.003921569f;
    CColour c;
    c.fromPackedARGB(0x80FF4000u);
    EXPECT_EQ(c, CColour(255 * k, 64 * k, 0, 128 * k));
    EXPECT_EQ(c.toD3DColor(), 0x80FF4000u);
    c.fromPackedABGR(0x01020304u);
    EXPECT_EQ(c, CColour(4 * k, 3 * k, 2 * k, 1 * k));
    c.fromPackedBGRA(0x01020304u);
    EXPECT_EQ(c, CColour(3 * k, 2 * k, 1 * k, 4 * k));
    c.fromPackedRGBA(0x01020304u);
    EXPECT_EQ(c, CColour(1 * k, 2 * k, 3 * k, 4 * k));
    for (unsigned v : {0x00000000u, 0xFFFFFFFFu, 0x12345678u, 0xA0B0C0D0u})
    {
        c.fromPackedRGBA(v);
        EXPECT_EQ(c.toPackedRGBA(), v);
        c.fromPackedABGR(v);
        EXPECT_EQ(c.toPackedABGR(), v);
        c.fromPackedBGRA(v);
        EXPECT_EQ(c.toPackedBGRA(), v);
    }
    EXPECT_NE(CColour(std::nanf(""), 0, 0, 0), CColour(std::nanf(""), 0, 0, 0));
}

TEST(Colour, ToHueSaturationBrightness)
{
    float h = -1, s = -1, v = -1;
    CColour(0, 0, 0, 0.3f).toHueSaturationBrightness(h, s, v);
    EXPECT_EQ(h, 0.0f);
    EXPECT_EQ(s, 0.0f);
    EXPECT_EQ(v, 0.0f);
    CColour(1, 0, 0).toHueSaturationBrightness(h, s, v);
    EXPECT_EQ(h, 0.0f);
    EXPECT_EQ(s, 1.0f);
    EXPECT_EQ(v, 1.0f);
    CColour(0, 0.5f, 0).toHueSaturationBrightness(h, s, v);
    EXPECT_NEAR(h, 1.0f / 3.0f, 1e-6f);
    EXPECT_EQ(s, 1.0f);
    EXPECT_EQ(v, 0.5f);
    CColour(0.25f, 0.5f, 1.0f).toHueSaturationBrightness(h, s, v);
    EXPECT_NEAR(h, 0.6111111f, 1e-6f); // 220 degrees
    EXPECT_EQ(s, 0.75f);
    CColour(1.0f, 0.0f, 0.5f).toHueSaturationBrightness(h, s, v); // magenta side wraps
    EXPECT_NEAR(h, 0.9166667f, 1e-6f);
}

TEST(Colour, FromHueSaturationBrightness)
{
    CColour c(9, 9, 9, 0.25f);
    c.fromHueSaturationBrightness(1.0f, 1.0f, 1.0f); // hue 1 * 6 wraps to sector 0: red
    EXPECT_EQ(c, CColour(1, 0, 0, 0.25f));
    c.fromHueSaturationBrightness(0.7f, 0.0f, 0.4f); // grey, hue ignored
    EXPECT_EQ(c, CColour(0.4f, 0.4f, 0.4f, 0.25f));
    c.fromHueSaturationBrightness(0.7f, 0.9f, 0.0f); // black
    EXPECT_EQ(c, CColour(0, 0, 0, 0.25f));
    c.fromHueSaturationBrightness(0.5f, 1.0f, 7.0f); // brightness clamps to 1: cyan
    EXPECT_EQ(c, CColour(0, 1, 1, 0.25f));
    c.fromHueSaturationBrightness(-0.5f, 2.0f, 1.0f); // hue wraps to 0.5, saturation clamps
    EXPECT_EQ(c, CColour(0, 1, 1, 0.25f));
    c.fromHueSaturationBrightness(1.5f, 1.0f, 1.0f); // whole part dropped
    EXPECT_EQ(c, CColour(0, 1, 1, 0.25f));
    c.fromHueSaturationBrightness(-2.5f, 1.0f, 1.0f); // beyond one turn: the fraction
    EXPECT_EQ(c, CColour(0, 1, 1, 0.25f));

    // Round trip through every sector.
    for (int i = 0; i < 36; ++i)
    {
        const float hue = (i + 0.5f) / 36.0f;
        c.fromHueSaturationBrightness(hue, 0.6f, 0.8f);
        float h, s, v;
        c.toHueSaturationBrightness(h, s, v);
        EXPECT_NEAR(h, hue, 1e-5f) << i;
        EXPECT_NEAR(s, 0.6f, 1e-5f) << i;
        EXPECT_NEAR(v, 0.8f, 1e-6f) << i;
    }
}
