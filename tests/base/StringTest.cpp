// Strings and paths: comparisons, changes, splits and path parts as rows of
// input and expected answer, and the file helpers on a real directory tree.
#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#ifdef _WIN32
#include <direct.h>
#define kv_rmdir _rmdir
#else
#include <unistd.h>
#define kv_rmdir rmdir
#endif

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
        {"Equals", &S::Equals, "Shader", "Shaders", true, false},
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
        {"StartsWith", &S::StartsWith, "ab", "abc", false, false},
        {"EndsWithCase", &S::EndsWithCase, "abc", "", true, true},
        {"EndsWithCase", &S::EndsWithCase, "file.DDS", ".dds", false, true},
        {"EndsWithCase", &S::EndsWithCase, "file.DDS", ".dds", true, false},
        {"EndsWithCase", &S::EndsWithCase, "s", "longer", false, false},
        {"WildcardMatch", &S::WildcardMatch, "texture.dds", "*.dds", true, true},
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
        {"ToLower", inPlace(&S::ToLower), "mIxEd 1", "mixed 1"},
        {"Trim neither", trim(false, false), " \t\r value \r\t ", " \t\r value \r\t "},
        {"Trim left", trim(true, false), " \t\r value \r\t ", "value \r\t "},
        {"Trim right", trim(false, true), " \t\r value \r\t ", " \t\r value"},
        {"Trim", trim(true, true), " \t\r", ""},
        {"Trim", trim(true, true), "\nx\n", "\nx\n"}, // a line feed is not trimmed
        {"TrimChar", [](std::string s) { return S::TrimChar(s, '-'), s; }, "--a-b--", "a-b"},
        {"TrimBlanks", inPlace(&S::TrimBlanks), "  a b \t", "a b \t"},
        {"SetExtension", extension("dds"), "dir.v2/file.png", "dir.v2/file.dds"},
        {"SetExtension", extension("txt"), "README", "README"},
        {"SetExtension", extension("x"), "name.", "name.x"},
        {"ReplaceAll", replace(".", "::", false), "a.b.c", "a::b::c"},
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
        {"GetFileTitle", &S::GetFileTitle, "shader\\effects\\water.fx", "water"},
        {"GetFileTitle", &S::GetFileTitle, "a\\b/c.fx", "b/c"},
        {"GetFileTitle", &S::GetFileTitle, "dir/archive.tar.gz", "archive.tar"},
        {"GetFileTitle", &S::GetFileTitle, "dir.v2\\file", "file"},
        {"GetFileTitle", &S::GetFileTitle, "dir/", ""},
        {"GetFileName", &S::GetFileName, "shader\\effects\\water.fx", "water.fx"},
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
    FILE* out = std::fopen(file.c_str(), "wb");
    ASSERT_NE(nullptr, out) << "the directories were not made";
    const std::string content(3000, 'k');
    std::fwrite(content.data(), 1, content.size(), out);
    std::fclose(out);
    EXPECT_TRUE(S::IsFile(file));
    EXPECT_FALSE(S::IsFile(root + "/one")); // a directory is not a file
    EXPECT_FALSE(S::IsFile(root + "/missing"));

    FILE* in = std::fopen(file.c_str(), "rb");
    ASSERT_NE(nullptr, in);
    std::fseek(in, 100, SEEK_SET);
    EXPECT_EQ(3000, S::GetFileSize(in));
    // The position is back at the start.
    std::vector<char> buffer(4000, 0);
    EXPECT_EQ(3000u, S::ReadFully(in, buffer.data(), buffer.size()));
    EXPECT_EQ(content, std::string(buffer.data(), 3000));
    std::fclose(in);
    EXPECT_EQ(-1, S::GetFileSize(nullptr));
    EXPECT_EQ(0u, S::ReadFully(nullptr, buffer.data(), 10));

    std::remove(file.c_str());
    EXPECT_EQ(0, kv_rmdir((root + "/one/two").c_str()));
    EXPECT_EQ(0, kv_rmdir((root + "/one").c_str()));
    EXPECT_EQ(0, kv_rmdir(root.c_str()));
}

} // namespace
