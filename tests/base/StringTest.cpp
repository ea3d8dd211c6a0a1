// The portable helpers: strings and paths as rows of input and expected answer, the
// file helpers on a real directory tree, values to and from text, MD5 and log files.
#include "base/Md5.h"
#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

using S = CStaticFunc;

namespace
{

// Pieces joined by '|', so a row states them in one text.
std::string Joined(const std::vector<std::string>& pieces)
{
    std::string s;
    for (size_t i = 0; i < pieces.size(); ++i)
        s += (i ? "|" : "") + pieces[i];
    return s;
}

TEST(StringCompare, EqualsAffixesAndWildcards)
{
    const struct
    {
        const char* what;
        bool (*compare)(const std::string&, const std::string&, bool);
        const char *s, *t;
        bool flag, expected;
    } rows[] = {
        // Bytes above 127 must not upset the case folding.
        {"Equals", &S::Equals, "Shader", "shader", false, false},
        {"Equals", &S::Equals, "Shader", "sHADER", true, true},
        {"Equals", &S::Equals, "\xE9t\xE9", "\xE9T\xE9", true, true},
        // Only the tail is lowered; a suffix in capitals never matches when lowering.
        {"EndsWith", &S::EndsWith, "file.png", "", false, false},
        {"EndsWith", &S::EndsWith, "png", ".png", false, false},
        {"EndsWith", &S::EndsWith, ".png", ".png", false, true},
        {"EndsWith", &S::EndsWith, "FILE.PNG", ".png", true, true},
        {"EndsWith", &S::EndsWith, "FILE.PNG", ".png", false, false},
        {"EndsWith", &S::EndsWith, "file.png", ".PNG", true, false},
        {"StartsWith", &S::StartsWith, "Shader/x.fx", "shader/", true, true},
        {"StartsWith", &S::StartsWith, "Shader/x.fx", "shader/", false, false},
        {"StartsWith", &S::StartsWith, "ab", "", false, false},
        {"EndsWithCase", &S::EndsWithCase, "abc", "", true, true},
        {"EndsWithCase", &S::EndsWithCase, "file.DDS", ".dds", false, true},
        {"EndsWithCase", &S::EndsWithCase, "file.DDS", ".dds", true, false},
        {"EndsWithCase", &S::EndsWithCase, "s", "longer", false, false},
        {"WildcardMatch", &S::WildcardMatch, "texture.dds", "*.png", true, false},
        {"WildcardMatch", &S::WildcardMatch, "Texture.DDS", "t*.dds", false, true},
        {"WildcardMatch", &S::WildcardMatch, "Texture.DDS", "t*.dds", true, false},
        {"WildcardMatch", &S::WildcardMatch, "", "*", true, true},
        {"WildcardMatch", &S::WildcardMatch, "a", "", true, false},
        {"WildcardMatch", &S::WildcardMatch, "abc", "a**", true, true},
        {"WildcardMatch", &S::WildcardMatch, "abc", "abcd", true, false},
        {"WildcardMatch", &S::WildcardMatch, "abc", "a?c", true, false}, // '?' is no wildcard
        // The first candidate behind '*' fails: the match falls back and tries a later one.
        {"WildcardMatch", &S::WildcardMatch, "abcbcd", "a*bcd", true, true},
        {"WildcardMatch", &S::WildcardMatch, "mississippi", "m*iss*ppi", true, true},
        {"WildcardMatch", &S::WildcardMatch, "mississippi", "m*iss*ppx", true, false},
    };
    for (const auto& r : rows)
        EXPECT_EQ(r.expected, r.compare(r.s, r.t, r.flag)) << r.what << "(\"" << r.s << "\", \"" << r.t << "\")";

    const std::ptrdiff_t found[] = {S::FindFirstOf("abc,d", ",;"),  S::FindFirstOf("abcd", ",;"),
                                    S::FindFirstOf("a,b", ",", 10), S::FindFirstNotOf("  x ", " "),
                                    S::FindFirstNotOf("   ", " "),  S::FindLastNotOf("  x ", " "),
                                    S::FindLastNotOf("", " ")};
    EXPECT_EQ((std::vector<std::ptrdiff_t>{3, -1, -1, 2, -1, 2, -1}), std::vector<std::ptrdiff_t>(found, found + 7));
}

// Every helper that makes one text of another, in place or as a copy.
TEST(StringChange, CaseTrimReplaceAndPathParts)
{
    auto inPlace = [](void (*change)(std::string&)) { return [change](std::string s) { return change(s), s; }; };
    auto replace = [](const char* from, const char* to, bool ignoreCase) {
        return [=](std::string s) { return S::ReplaceAll(s, from, to, ignoreCase), s; };
    };
    auto trim = [](bool left, bool right) { return [=](std::string s) { return S::Trim(s, left, right), s; }; };
    auto extension = [](const char* e) { return [=](std::string s) { return S::SetExtension(s, e), s; }; };
    const struct
    {
        const char* what;
        std::function<std::string(std::string)> change;
        const char *in, *out;
    } rows[] = {
        {"LowerAndForwardSlashes", inPlace(&S::LowerAndForwardSlashes), "Shader\\Editor\\X.FX", "shader/editor/x.fx"},
        {"ToUpper", inPlace(&S::ToUpper), "mIxEd 1", "MIXED 1"},
        {"Trim left", trim(true, false), " \t\r value \r\t ", "value \r\t "},
        {"Trim right", trim(false, true), " \t\r value \r\t ", " \t\r value"},
        {"Trim", trim(true, true), " \t\r", ""},
        {"Trim", trim(true, true), "\nx\n", "\nx\n"}, // a line feed is not trimmed
        {"TrimChar", [](std::string s) { return S::TrimChar(s, '-'), s; }, "--a-b--", "a-b"},
        {"TrimBlanks", inPlace(&S::TrimBlanks), "  a b \t", "a b \t"},
        {"SetExtension", extension("dds"), "dir.v2/file.png", "dir.v2/file.dds"},
        {"SetExtension", extension("txt"), "README", "README"},
        {"SetExtension", extension("x"), "name.", "name.x"},
        // A replacement that holds the searched text must not run for ever.
        {"ReplaceAll", replace("a", "aa", false), "xax", "xaax"},
        // A shorter one looks again at what it formed, as a search from the start would.
        {"ReplaceAll", replace("//", "/", false), "a////b//c", "a/b/c"},
        {"ReplaceAll", replace("ab", "b", false), "aaab", "b"},
        {"ReplaceAll", replace("one", "1", true), "One ONE one", "1 1 1"},
        {"ReplaceAll", replace("one", "1", false), "One ONE one", "One ONE 1"},
        {"ReplaceAll", replace(nullptr, "x", false), "abc", "abc"},
        {"ReplaceAll", replace("a", nullptr, false), "abc", "abc"},
        {"ReplaceAll", replace("", "x", false), "abc", "abc"},
        // The copy goes on behind each replacement and does not look back.
        {"ReplaceAllCopy", [](std::string s) { return S::ReplaceAllCopy(s, "//", "/"); }, "a////b", "a//b"},
        {"ReplaceAllCopy", [](std::string s) { return S::ReplaceAllCopy(s, "a", "aa"); }, "xax", "xaax"},
        {"ReplaceAllCopy", [](std::string s) { return S::ReplaceAllCopy(s, "", "x"); }, "same", "same"},
        // The last '\' wins over a later '/'; a dot in the directory is no extension.
        {"GetFileTitle", &S::GetFileTitle, "a\\b/c.fx", "b/c"},
        {"GetFileTitle", &S::GetFileTitle, "dir/archive.tar.gz", "archive.tar"},
        {"GetFileTitle", &S::GetFileTitle, "dir.v2\\file", "file"},
        {"GetFileTitle", &S::GetFileTitle, "dir/", ""},
        {"GetFileName", &S::GetFileName, "water.fx", "water.fx"},
        {"GetExtension", &S::GetExtension, "archive.tar.gz", ".gz"},
        {"GetExtension", &S::GetExtension, "README", ""},
        {"GetDirectory", &S::GetDirectory, "a/b\\c.fx", "a/b\\"},
        {"GetDirectory", &S::GetDirectory, "c.fx", ""},
        {"GetParentDir", &S::GetParentDir, "a\\b\\c.fx", "a/b"},
        {"GetParentDir", &S::GetParentDir, "c.fx", ""},
        {"StandardisePath", &S::StandardisePath, "a\\b", "a/b/"},
        {"StandardisePath", &S::StandardisePath, "a/b/", "a/b/"},
        {"StandardisePath", &S::StandardisePath, "", ""},
        {"NormalisePath", [](std::string p) { return S::NormalisePath(p, true); }, "a\\\\b//c\\/", "a/b/c/"},
        {"NormalisePath", [](std::string p) { return S::NormalisePath(p, false); }, "a//b\\/c", "a\\b\\c"},
        {"AppendSlash", &S::AppendSlash, "a", "a/"},
        {"AppendSlash", &S::AppendSlash, "a\\", "a\\"},
        {"AppendSlash", &S::AppendSlash, "", ""},
    };
    for (const auto& r : rows)
        EXPECT_EQ(r.out, r.change(r.in)) << r.what << " of \"" << r.in << "\"";

    std::string base = "x", ext = "x", dir = "x", name = "x";
    S::SplitBaseName("README", base, ext);
    EXPECT_EQ("README|", base + "|" + ext);
    S::SplitPath("c.fx", name, dir);
    EXPECT_EQ("c.fx|", name + "|" + dir);
    S::SplitFullPath("media\\tex\\stone.dds", base, ext, dir);
    EXPECT_EQ("stone|dds|media/tex/", base + "|" + ext + "|" + dir);
}

TEST(StringSplit, SplitSplitAtAndTokenise)
{
    auto splitAt = [](const std::string& s) {
        std::vector<std::string> out{"kept"};
        return S::SplitAt(s, "::", out), out;
    };
    const struct
    {
        std::function<std::vector<std::string>(const std::string&)> split;
        const char *in, *out;
    } rows[] = {
        {[](const std::string& s) { return S::Split(s); }, "a b\tc", "a|b|c"},
        // Runs of delimiters, leading and trailing ones yield no empty pieces.
        {[](const std::string& s) { return S::Split(s, ",;"); }, ",,a,;,b,,", "a|b"},
        {[](const std::string& s) { return S::Split(s, ","); }, ",,,", ""},
        // The rest after maxSplits keeps its delimiters as they stand.
        {[](const std::string& s) { return S::Split(s, " ", 1); }, "a b  c d", "a|b  c d"},
        {[](const std::string& s) { return S::Split(s, " ", 2); }, "a b c d", "a|b|c d"},
        {splitAt, "a::b::::c::", "kept|a|b|c"},
        {splitAt, "", "kept"},
        {[](const std::string& s) { return S::Tokenise(s); }, "a \"b c\" d", "a|b c|d"},
        // Inside quotes delimiters are text, and so is a quote of the other kind.
        {[](const std::string& s) { return S::Tokenise(s, " ", "\"'"); }, "x  'q r' \"it's\"", "x|q r|it's"},
        // An unclosed quote runs to the end; an empty quoted piece is none.
        {[](const std::string& s) { return S::Tokenise(s); }, "a \"\" b \"c d", "a|b|c d"},
        {[](const std::string& s) { return S::Tokenise(s, " ", "\"", 1); }, "a b \"c d\"", "a|b \"c d\""},
        {[](const std::string& s) { return S::Tokenise(s); }, "   ", ""},
    };
    for (const auto& r : rows)
        EXPECT_EQ(r.out, Joined(r.split(r.in))) << "\"" << r.in << "\"";
}

TEST(Files, CreateDirectoriesAndFileHelpers)
{
    const std::string root = "base_path_test_dir";
    S::CreateDirectories(root + "\\one/two");
    const std::string file = root + "/one/two/data.bin";
    FILE* f = std::fopen(file.c_str(), "w+b");
    ASSERT_NE(nullptr, f) << "the directories were not made";
    const std::string content(3000, 'k');
    std::fwrite(content.data(), 1, content.size(), f);
    EXPECT_TRUE(S::IsFile(file));
    EXPECT_FALSE(S::IsFile(root + "/one")); // a directory is not a file
    EXPECT_FALSE(S::IsFile(root + "/missing"));

    std::fseek(f, 100, SEEK_SET);
    EXPECT_EQ(3000, S::GetFileSize(f));
    // The position is back at the start.
    std::vector<char> buffer(4000, 0);
    EXPECT_EQ(3000u, S::ReadFully(f, buffer.data(), buffer.size()));
    EXPECT_EQ(content, std::string(buffer.data(), 3000));
    std::fclose(f);
    EXPECT_EQ(-1, S::GetFileSize(nullptr));
    EXPECT_EQ(0u, S::ReadFully(nullptr, buffer.data(), 10));
    std::filesystem::remove_all(root);
}

// Numbers and small values to and from text, and MD5 digests.
std::string Floats(const float* v, size_t n)
{
    return S::ToString(std::vector<float>(v, v + n));
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
    EXPECT_TRUE(S::SetGlobalLocale("C"));
    EXPECT_EQ("1234567", S::ToString(int32_t(1234567), 0, ' '));
}

TEST(Values, FromText)
{
    // No prefix: "0x10" is as bad as "1g2".
    EXPECT_EQ((std::vector<int>{255, 0xABC, -16, 0, 0, 0, INT32_MIN, INT32_MIN, -1}),
              (std::vector<int>{S::HexToInt("ff"), S::HexToInt("AbC"), S::HexToInt("-10"), S::HexToInt("1g2"),
                                S::HexToInt("0x10"), S::HexToInt(""), S::HexToInt("80000000"), S::HexToInt("-80000000"),
                                S::HexToInt("ffffffff")}));
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
    EXPECT_EQ((std::vector<bool>{true, true, false, false, false, false, false, true}),
              (std::vector<bool>{S::ParseBool("true", false), S::ParseBool("1", false), S::ParseBool("false", true),
                                 S::ParseBool("0", true), S::ParseBool("TRUE", false), S::ParseBool("1 ", false),
                                 S::ParseBool("yes", false), S::ParseBool(nullptr, true)}));
    EXPECT_TRUE(S::IsNumber("-42") && S::IsNumber("0x1F"));
    EXPECT_FALSE(S::IsNumber("42a") || S::IsNumber("") || S::IsNumber("1.5"));

    uint8_t bytes[4] = {1, 1, 1, 1};
    S::ParseBytes4("300 -5 0 40", bytes); // out of range clamps
    EXPECT_EQ("255 0 0 40", S::ToString(bytes));
    S::ParseBytes4("10 20 30", bytes);
    EXPECT_EQ("255 255 255 255", S::ToString(bytes));

    const float def[4] = {0.1f, 0.2f, 0.3f, 0.4f};
    float c[4];
    std::string colours;
    for (const char* text : {"1 0.5 0.25", "1 0.5 0.25 0.75", "1 0.5"})
        colours += (S::ParseColour(text, c, def), Floats(c, 4)) + "|";
    EXPECT_EQ("1 0.5 0.25 1|1 0.5 0.25 0.75|0.1 0.2 0.3 0.4|", colours);

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
    // From RFC 1321's suite, then lengths either side of the 56-byte padding boundary
    // (their digests from the host's md5sum at test-writing time).
    const std::pair<std::string, const char*> rows[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {Letters(55), "0d7ae056b2f015cd7dc67494efd658f1"},
        {Letters(56), "31fcfb5165169eb55898e7e4cf34d19a"},
    };
    for (const auto& r : rows)
        EXPECT_EQ(r.second, S::Md5OfString(r.first)) << r.first.size() << " bytes";

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

// Log files: the dated name and stamp, and what the writers leave in the files.
typedef std::vector<std::string> Lines;

// A broken-down time from "year-month-day hour:minute:second".
std::tm Time(const char* text)
{
    std::tm t{};
    std::istringstream in(text);
    in >> std::get_time(&t, "%Y-%m-%d %H:%M:%S");
    return t;
}

// The file's lines, removing it; none when it does not exist.
Lines TakeLines(const std::string& path)
{
    Lines lines;
    {
        std::ifstream in(path); // text mode: a Windows line end reads as one line feed
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
    }
    std::remove(path.c_str());
    return lines;
}

TEST(Log, DatedNamesAndLinesHaveNoLeadingZerosAndNoBlank)
{
    // The widest stamp still leaves room for the longest message, 1023 characters.
    const std::string message(1023, 'm');
    EXPECT_EQ((Lines{"Log_2024_3_5.log", "Log_1999_12_31.log", "[8:0:9]started", "[0:0:0]", "[23:59:59]" + message}),
              (Lines{S::DatedLogFileName(Time("2024-03-05 00:00:00")), S::DatedLogFileName(Time("1999-12-31 23:59:59")),
                     S::DatedLogLine(Time("2024-01-01 08:00:09"), "started"),
                     S::DatedLogLine(Time("2024-01-01 00:00:00"), nullptr),
                     S::DatedLogLine(Time("2024-01-01 23:59:59"), message.c_str())}));
}

TEST(Log, FilesGetAppendedLinesCutToTheMessageBuffer)
{
    const std::string path = "base_log_to_file.txt";
    std::remove(path.c_str());
    S::LogToFile(path.c_str(), nullptr);
    S::LogToFile(nullptr, "x");
    S::LogToFile(path.c_str(), "first %u", 1u);
    S::LogToFile(path.c_str(), "%s", std::string(1500, 'q').c_str());
    S::LogToFile(path.c_str(), "third");
    S::LogToFile("no_such_dir_for_log/x.txt", "lost"); // quietly
    EXPECT_EQ((Lines{"first 1", std::string(1023, 'q'), "third"}), TakeLines(path));

    // Today's file, stamped (the stamp's form is above); around midnight the date may
    // change between the readings, and then the test tries again.
    auto today = [] {
        unsigned y, mo, d, h, mi, s;
        S::GetLocalTimeParts(y, mo, d, h, mi, s);
        return "Log_" + std::to_string(y) + "_" + std::to_string(mo) + "_" + std::to_string(d) + ".log";
    };
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        const std::string name = today();
        std::remove(name.c_str());
        S::LogToDatedFile("value %d and %s", 17, "text");
        S::LogToDatedFile(nullptr);
        const Lines lines = TakeLines(name);
        if (name != today())
            continue;
        ASSERT_EQ(1u, lines.size()) << name;
        EXPECT_EQ('[', lines[0][0]);
        EXPECT_EQ("]value 17 and text", lines[0].substr(lines[0].find(']')));
        return;
    }
    FAIL() << "the date changed during both attempts";
}

} // namespace
