// Numbers and small values to and from text, and MD5 digests.
#include "base/Md5.h"
#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

using S = CStaticFunc;

namespace
{

std::string Joined(std::initializer_list<std::string> texts)
{
    std::string s;
    for (const std::string& t : texts)
        s += (&t == texts.begin() ? "" : "|") + t;
    return s;
}

std::string Floats(const float* v, size_t n)
{
    std::string s;
    for (size_t i = 0; i < n; ++i)
        s += (i ? " " : "") + S::FormatString("%g", v[i]);
    return s;
}

TEST(Values, ToText)
{
    const int two[2] = {3, -4};
    const int three[3] = {1, 2, 3};
    const uint8_t colour[4] = {255, 0, 128, 7};
    const float f2[2] = {0.5f, -2.0f}, f3[3] = {1.0f, 2.25f, 1e20f}, f4[4] = {0, 1, 2, 3};
    const float lo[3] = {-1, -2, -3}, hi[3] = {1, 2, 3};
    EXPECT_EQ("value 42 x||-2147483648|Unknown|511 B|0.5 KB|511.9 KB|0.5 MB|0.50 GB|3.00 GB",
              Joined({S::FormatString("value %d %s", 42, "x"), S::FormatString(nullptr), S::IntToString(INT32_MIN),
                      S::FormatBytes(-1), S::FormatBytes(511), S::FormatBytes(512), S::FormatBytes(512 * 1024 - 100),
                      S::FormatBytes(512 * 1024), S::FormatBytes(512LL << 20), S::FormatBytes(3LL << 30)}));
    EXPECT_EQ("1|0|3 -4|1 2 3|255 0 128 7|0.5 -2|1 2.25 1e+20|0 1 2 3|-1 -2 -3 1 2 3|1 -2|0.25 4|",
              Joined({S::ToString(true), S::ToString(false), S::ToString(two), S::ToString(three), S::ToString(colour),
                      S::ToString(f2), S::ToString(f3), S::ToString(f4), S::ToString(lo, hi),
                      S::ToString(std::vector<int>{1, -2}), S::ToString(std::vector<float>{0.25f, 4.0f}),
                      S::ToString(std::vector<int>{})}));
    EXPECT_EQ("00042|42___|+7|0000255|  3.14",
              Joined({S::ToString(int32_t(42), 5, '0'), S::ToString(int32_t(42), 5, '_', std::ios::left),
                      S::ToString(int32_t(7), 0, ' ', std::ios::showpos), S::ToString(uint32_t(255), 7, '0'),
                      S::ToString(3.14159f, 3, 6, ' ')}));
    // The buffer holds 10240 bytes, terminator included.
    EXPECT_EQ(10239u, S::FormatString("%s", std::string(20000, 'y').c_str()).size());
    EXPECT_FALSE(S::SetGlobalLocale("no_such_locale_anywhere"));
    EXPECT_EQ("00042", S::ToString(int32_t(42), 5, '0')); // the old locale still serves
    EXPECT_TRUE(S::SetGlobalLocale("C"));
    EXPECT_EQ("1234567", S::ToString(int32_t(1234567), 0, ' '));
}

TEST(Values, FromText)
{
    const struct
    {
        const char* text;
        int hex;
    } hexRows[] = {{"ff", 255},
                   {"AbC", 0xABC},
                   {"-10", -16},
                   {"1g2", 0},
                   {"0x10", 0},
                   {"", 0},
                   {"80000000", INT32_MIN},
                   {"-80000000", INT32_MIN},
                   {"ffffffff", -1}};
    for (const auto& r : hexRows)
        EXPECT_EQ(r.hex, S::HexToInt(r.text)) << r.text;
    EXPECT_EQ(0x123456789ABCDEF0ull, S::HexToInt64("123456789abcdef0"));
    EXPECT_EQ(0ull, S::HexToInt64("-1"));

    int x = 9, y = 9;
    std::string pairs;
    for (const char* text : {"12 -7", "0x10 010", "5", static_cast<const char*>(nullptr)})
    {
        S::ParseInt2(text, x, y);
        pairs += std::to_string(x) + "," + std::to_string(y) + " ";
    }
    EXPECT_EQ("12,-7 16,8 0,0 0,0 ", pairs); // base 0: hex and octal prefixes count
    EXPECT_EQ(77, S::ParseInt("77 88", 1));
    EXPECT_EQ(1, S::ParseInt("abc", 1));
    EXPECT_EQ(INT32_MAX, S::ParseInt("99999999999999", 1)); // saturates, no wrap
    EXPECT_EQ(INT32_MIN, S::ParseInt("-99999999999999", 1));
    // Exactly these texts, else the default.
    for (const char* yes : {"true", "1"})
        EXPECT_TRUE(S::ParseBool(yes, false)) << yes;
    for (const char* no : {"false", "0"})
        EXPECT_FALSE(S::ParseBool(no, true)) << no;
    for (const char* other : {"TRUE", "1 ", "yes"})
        EXPECT_FALSE(S::ParseBool(other, false)) << other;
    EXPECT_TRUE(S::ParseBool(nullptr, true));
    EXPECT_TRUE(S::IsNumber("-42") && S::IsNumber("0x1F"));
    EXPECT_FALSE(S::IsNumber("42a") || S::IsNumber("") || S::IsNumber("1.5"));

    uint8_t bytes[4] = {1, 1, 1, 1};
    S::ParseBytes4("300 -5 0 40", bytes); // out of range clamps
    EXPECT_EQ("255 0 0 40", S::ToString(bytes));
    S::ParseBytes4("10 20 30", bytes);
    EXPECT_EQ("255 255 255 255", S::ToString(bytes));

    const float def[4] = {0.1f, 0.2f, 0.3f, 0.4f};
    float c[4];
    S::ParseColour("1 0.5 0.25", c, def);
    EXPECT_EQ("1 0.5 0.25 1", Floats(c, 4));
    S::ParseColour("1 0.5 0.25 0.75", c, def);
    EXPECT_EQ("1 0.5 0.25 0.75", Floats(c, 4));
    S::ParseColour("1 0.5", c, def);
    EXPECT_EQ("0.1 0.2 0.3 0.4", Floats(c, 4));

    // Fifteen numbers and a word: the whole default, not a half-filled matrix.
    const float def16[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    float m[16];
    S::ParseFloats("1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 x", m, 16, def16);
    EXPECT_EQ(Floats(def16, 16), Floats(m, 16));
    S::ParseFloats("1.5 -2e1 3 4 99", m, 4, def16);
    EXPECT_EQ("1.5 -20 3 4", Floats(m, 4));
    // Huge values stay finite floats rather than an undefined conversion.
    S::ParseFloats("1e300 -1e300 0 0", m, 4, def16);
    EXPECT_TRUE(std::isfinite(m[0]) && m[0] > 1e38f && m[1] < -1e38f);

    float q[4], p[3];
    EXPECT_TRUE(S::ParseRotationPosition("0 0 0.7071 0.7071 1 2 3", q, p));
    EXPECT_EQ("0 0 0.7071 0.7071 1 2 3", Floats(q, 4) + " " + Floats(p, 3));
    EXPECT_FALSE(S::ParseRotationPosition("0 0 0 1 1 2", q, p));
    EXPECT_EQ("0 0 0 1 0 0 0", Floats(q, 4) + " " + Floats(p, 3));
    float arr[5] = {7, 7, 7, 7, 7};
    EXPECT_EQ(3u, S::ParseFloatArray("1 2 3 oops 5", arr, 5));
    EXPECT_EQ("1 2 3 7 7", Floats(arr, 5));
    EXPECT_EQ(2u, S::ParseFloatArray("1 2 3", arr, 2));
    EXPECT_EQ(0u, S::ParseFloatArray(nullptr, arr, 5));
}

std::string Digest(const std::string& text)
{
    Md5 md5;
    md5.Update(text);
    return md5.HexDigest();
}

// 'a' to 'z' over and over.
std::string Letters(size_t n)
{
    std::string s;
    for (size_t i = 0; i < n; ++i)
        s += static_cast<char>('a' + i % 26);
    return s;
}

TEST(Md5, KnownDigests)
{
    // From RFC 1321's suite, then lengths around the 56- and 64-byte padding boundary
    // (their digests from the host's md5sum at test-writing time).
    const std::pair<std::string, const char*> rows[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
        {Letters(55), "0d7ae056b2f015cd7dc67494efd658f1"},
        {Letters(56), "31fcfb5165169eb55898e7e4cf34d19a"},
        {Letters(63), "1b30c0670c15e7da3c2ba7bce77ebe99"},
        {Letters(64), "a2eaf6295c32adc403865fd96a2f182b"},
        {Letters(65), "eba2cce0ca8df47e62414a736b3105a2"},
    };
    for (const auto& r : rows)
        EXPECT_EQ(r.second, Digest(r.first)) << r.first.size() << " bytes";
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", S::Md5OfString("abc"));

    // A second digest is the same: the padding is not added twice; Reset starts over.
    Md5 md5;
    md5.Update("ab");
    md5.Update(std::string("c"));
    EXPECT_EQ(md5.HexDigest(), md5.HexDigest());
    md5.Reset();
    md5.Update(nullptr, 5); // no bytes: nothing fed
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", md5.HexDigest());
}

TEST(Md5, PiecesAndFilesGiveTheDigestOfTheWhole)
{
    std::vector<unsigned char> bytes(3 * 1024 * 1024 + 17);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>((i * 31 + (i >> 8)) & 0xFF);
    // Computed when this test was written with the host's md5sum over the same bytes.
    const char digest[] = "fcf173dd6da44a51998b42815cc132dc";
    Md5 whole;
    whole.Update(bytes.data(), bytes.size());
    EXPECT_EQ(digest, whole.HexDigest());

    // Odd piece sizes cross the block boundary in every way: inside, at and across it.
    const size_t sizes[] = {1, 63, 64, 65, 7, 1000, 4096, 55, 56, 131071};
    Md5 pieces;
    for (size_t offset = 0, k = 0; offset < bytes.size(); ++k)
    {
        const size_t n = std::min(sizes[k % 10], bytes.size() - offset);
        pieces.Update(bytes.data() + offset, n);
        offset += n;
    }
    EXPECT_EQ(digest, pieces.HexDigest());

    const char* path = "md5_test_input.bin";
    FILE* file = std::fopen(path, "wb");
    ASSERT_NE(nullptr, file);
    ASSERT_EQ(bytes.size(), std::fwrite(bytes.data(), 1, bytes.size(), file));
    std::fclose(file);
    EXPECT_EQ(digest, S::Md5OfFile(path));
    std::remove(path);
    EXPECT_EQ(" ", S::Md5OfFile("no_such_file_for_md5.bin"));
}

} // namespace
