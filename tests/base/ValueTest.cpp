#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

using S = CStaticFunc;

TEST(Values, FormatHelpers)
{
    EXPECT_EQ("value 42 x", S::FormatString("value %d %s", 42, "x"));
    // The buffer holds 10240 bytes, terminator included.
    EXPECT_EQ(10239u, S::FormatString("%s", std::string(20000, 'y').c_str()).size());
    EXPECT_EQ("", S::FormatString(nullptr));
    EXPECT_EQ("-2147483648", S::IntToString(-2147483647 - 1));

    EXPECT_EQ("Unknown", S::FormatBytes(-1));
    EXPECT_EQ("0 B", S::FormatBytes(0));
    EXPECT_EQ("511 B", S::FormatBytes(511));
    EXPECT_EQ("0.5 KB", S::FormatBytes(512));
    EXPECT_EQ("511.9 KB", S::FormatBytes(512 * 1024 - 100));
    EXPECT_EQ("0.5 MB", S::FormatBytes(512 * 1024));
    EXPECT_EQ("0.50 GB", S::FormatBytes(512LL * 1024 * 1024));
    EXPECT_EQ("3.00 GB", S::FormatBytes(3LL * 1024 * 1024 * 1024));
}

TEST(Values, Hex)
{
    EXPECT_EQ(255, S::HexToInt("ff"));
    EXPECT_EQ(0xABC, S::HexToInt("AbC"));
    EXPECT_EQ(-16, S::HexToInt("-10"));
    EXPECT_EQ(0, S::HexToInt("1g2"));
    EXPECT_EQ(0, S::HexToInt("g12"));
    EXPECT_EQ(0, S::HexToInt("12g"));
    EXPECT_EQ(0, S::HexToInt("0x10")); // no prefix is understood
    EXPECT_EQ(0, S::HexToInt(""));
    EXPECT_EQ(static_cast<int>(0x80000000u), S::HexToInt("80000000"));
    EXPECT_EQ(static_cast<int>(0x80000000u), S::HexToInt("-80000000"));
    EXPECT_EQ(-1, S::HexToInt("ffffffff"));
    EXPECT_EQ(0x123456789ABCDEF0ull, S::HexToInt64("123456789abcdef0"));
    EXPECT_EQ(0ull, S::HexToInt64("-1"));
    EXPECT_EQ(0ull, S::HexToInt64("12 3"));
}

TEST(Values, ToText)
{
    EXPECT_EQ("1", S::ToString(true));
    EXPECT_EQ("0", S::ToString(false));
    const int two[2] = {3, -4};
    const int three[3] = {1, 2, 3};
    const uint8_t colour[4] = {255, 0, 128, 7};
    const float f2[2] = {0.5f, -2.0f};
    const float f3[3] = {1.0f, 2.25f, 1e20f};
    const float f4[4] = {0, 1, 2, 3};
    const float lo[3] = {-1, -2, -3}, hi[3] = {1, 2, 3};
    EXPECT_EQ("3 -4", S::ToString(two));
    EXPECT_EQ("1 2 3", S::ToString(three));
    EXPECT_EQ("255 0 128 7", S::ToString(colour));
    EXPECT_EQ("0.5 -2", S::ToString(f2));
    EXPECT_EQ("1 2.25 1e+20", S::ToString(f3));
    EXPECT_EQ("0 1 2 3", S::ToString(f4));
    EXPECT_EQ("-1 -2 -3 1 2 3", S::ToString(lo, hi));
    EXPECT_EQ("1 -2 3", S::ToString(std::vector<int>{1, -2, 3}));
    EXPECT_EQ("0.25 4", S::ToString(std::vector<float>{0.25f, 4.0f}));
    EXPECT_EQ("", S::ToString(std::vector<int>{}));

    EXPECT_EQ("00042", S::ToString(int32_t(42), 5, '0'));
    EXPECT_EQ("42___", S::ToString(int32_t(42), 5, '_', std::ios::left));
    EXPECT_EQ("+7", S::ToString(int32_t(7), 0, ' ', std::ios::showpos));
    EXPECT_EQ("0000255", S::ToString(uint32_t(255), 7, '0'));
    EXPECT_EQ("  3.14", S::ToString(3.14159f, 3, 6, ' '));
    EXPECT_FALSE(S::SetGlobalLocale("no_such_locale_anywhere"));
    EXPECT_EQ("00042", S::ToString(int32_t(42), 5, '0')); // the old locale still serves
    EXPECT_TRUE(S::SetGlobalLocale("C"));
    EXPECT_EQ("1234567", S::ToString(int32_t(1234567), 0, ' '));
}

TEST(Values, ParseIntegersAndBooleans)
{
    int x = 9, y = 9;
    S::ParseInt2("12 -7", x, y);
    EXPECT_EQ(12, x);
    EXPECT_EQ(-7, y);
    S::ParseInt2("0x10 010", x, y); // base 0: hex and octal prefixes count
    EXPECT_EQ(16, x);
    EXPECT_EQ(8, y);
    S::ParseInt2("5", x, y);
    EXPECT_EQ(0, x);
    EXPECT_EQ(0, y);
    S::ParseInt2(nullptr, x, y);
    EXPECT_EQ(0, x);
    EXPECT_EQ(0, y);

    EXPECT_EQ(77, S::ParseInt("77 88", 1));
    EXPECT_EQ(1, S::ParseInt("abc", 1));
    EXPECT_EQ(2147483647, S::ParseInt("99999999999999", 1)); // saturates, no wrap

    EXPECT_TRUE(S::ParseBool("true", false));
    EXPECT_TRUE(S::ParseBool("1", false));
    EXPECT_FALSE(S::ParseBool("false", true));
    EXPECT_FALSE(S::ParseBool("0", true));
    EXPECT_FALSE(S::ParseBool("TRUE", false)); // exactly, no case folding
    EXPECT_FALSE(S::ParseBool("1 ", false));
    EXPECT_FALSE(S::ParseBool("yes", false));
    EXPECT_TRUE(S::ParseBool(nullptr, true));

    EXPECT_TRUE(S::IsNumber("-42"));
    EXPECT_TRUE(S::IsNumber("0x1F"));
    EXPECT_FALSE(S::IsNumber("42a"));
    EXPECT_FALSE(S::IsNumber(""));
    EXPECT_FALSE(S::IsNumber("1.5"));
}

TEST(Values, ParseBytesAndColours)
{
    uint8_t bytes[4] = {1, 1, 1, 1};
    S::ParseBytes4("10 20 30 40", bytes);
    EXPECT_EQ(10, bytes[0]);
    EXPECT_EQ(40, bytes[3]);
    S::ParseBytes4("10 20 30", bytes);
    for (uint8_t b : bytes)
        EXPECT_EQ(255, b);
    S::ParseBytes4("300 -5 0 1", bytes); // out of range clamps
    EXPECT_EQ(255, bytes[0]);
    EXPECT_EQ(0, bytes[1]);

    const float def[4] = {0.1f, 0.2f, 0.3f, 0.4f};
    float c[4];
    S::ParseColour("1 0.5 0.25", c, def);
    EXPECT_FLOAT_EQ(1.0f, c[0]);
    EXPECT_FLOAT_EQ(0.25f, c[2]);
    EXPECT_FLOAT_EQ(1.0f, c[3]);
    S::ParseColour("1 0.5 0.25 0.75", c, def);
    EXPECT_FLOAT_EQ(0.75f, c[3]);
    S::ParseColour("1 0.5", c, def);
    for (int i = 0; i < 4; ++i)
        EXPECT_FLOAT_EQ(def[i], c[i]);
}

TEST(Values, ParseFloatGroups)
{
    const float def16[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    float m[16];
    S::ParseFloats("1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16", m, 16, def16);
    for (int i = 0; i < 16; ++i)
        EXPECT_FLOAT_EQ(float(i + 1), m[i]);
    // Fifteen numbers and a word: the whole default, not a half-filled matrix.
    S::ParseFloats("1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 x", m, 16, def16);
    for (int i = 0; i < 16; ++i)
        EXPECT_FLOAT_EQ(def16[i], m[i]);
    const float def4[4] = {9, 9, 9, 9};
    float v[4];
    S::ParseFloats("1.5 -2e1 3 4 99", v, 4, def4);
    EXPECT_FLOAT_EQ(-20.0f, v[1]);
    EXPECT_FLOAT_EQ(4.0f, v[3]);
    // Huge values stay finite floats rather than an undefined conversion.
    S::ParseFloats("1e300 -1e300 0 0", v, 4, def4);
    EXPECT_TRUE(std::isfinite(v[0]));
    EXPECT_GT(v[0], 1e38f);
    EXPECT_LT(v[1], -1e38f);

    float q[4] = {5, 5, 5, 5}, p[3] = {5, 5, 5};
    EXPECT_TRUE(S::ParseRotationPosition("0 0 0.7071 0.7071 1 2 3", q, p));
    EXPECT_FLOAT_EQ(0.7071f, q[2]);
    EXPECT_FLOAT_EQ(3.0f, p[2]);
    EXPECT_FALSE(S::ParseRotationPosition("0 0 0 1 1 2", q, p));
    EXPECT_FLOAT_EQ(1.0f, q[3]);
    EXPECT_FLOAT_EQ(0.0f, q[0]);
    EXPECT_FLOAT_EQ(0.0f, p[0]);

    float arr[5] = {7, 7, 7, 7, 7};
    EXPECT_EQ(3u, S::ParseFloatArray("1 2 3 oops 5", arr, 5));
    EXPECT_FLOAT_EQ(3.0f, arr[2]);
    EXPECT_FLOAT_EQ(7.0f, arr[3]); // untouched
    EXPECT_EQ(2u, S::ParseFloatArray("1 2 3", arr, 2));
    EXPECT_EQ(0u, S::ParseFloatArray(nullptr, arr, 5));
}
