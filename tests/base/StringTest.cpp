#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using S = CStaticFunc;
using Pieces = std::vector<std::string>;

namespace
{
// A text changed in place, and what it must become.
struct ChangeRow
{
    const char* what;
    void (*change)(std::string&);
    const char *in, *out;
};
} // namespace

TEST(StringCompare, EqualsAffixesAndWildcards)
{
    struct Row
    {
        const char *s, *t;
        bool flag, expected;
    };
    const struct
    {
        const char* what;
        bool (*compare)(const std::string&, const std::string&, bool);
        std::vector<Row> rows;
    } forms[] = {
        // Bytes above 127 must not upset the case folding.
        {"Equals",
         &S::Equals,
         {{"Shader", "Shader", false, true},
          {"Shader", "shader", false, false},
          {"Shader", "sHADER", true, true},
          {"Shader", "Shaders", true, false},
          {"\xE9t\xE9", "\xE9T\xE9", true, true}}},
        // Only the tail is lowered; a suffix in capitals never matches when lowering.
        {"EndsWith",
         &S::EndsWith,
         {{"file.png", "", false, false},
          {"png", ".png", false, false},
          {"FILE.PNG", ".png", true, true},
          {"FILE.PNG", ".png", false, false},
          {"file.png", ".PNG", true, false}}},
        {"StartsWith",
         &S::StartsWith,
         {{"Shader/x.fx", "shader/", true, true},
          {"Shader/x.fx", "shader/", false, false},
          {"ab", "", false, false},
          {"ab", "abc", false, false}}},
        {"EndsWithCase",
         &S::EndsWithCase,
         {{"abc", "", true, true},
          {"file.DDS", ".dds", false, true},
          {"file.DDS", ".dds", true, false},
          {"s", "longer", false, false}}},
        // "abcbcd": the first candidate behind '*' fails; the match must fall back and try a later one.
        {"WildcardMatch",
         &S::WildcardMatch,
         {{"texture.dds", "*.dds", true, true},
          {"texture.dds", "*.png", true, false},
          {"Texture.DDS", "t*.dds", false, true},
          {"Texture.DDS", "t*.dds", true, false},
          {"abc", "a*", true, true},
          {"", "*", true, true},
          {"", "", true, true},
          {"a", "", true, false},
          {"abcbcd", "a*bcd", true, true},
          {"mississippi", "m*iss*ppi", true, true},
          {"mississippi", "m*iss*ppx", true, false},
          {"a.b.c", "*.*.*", true, true},
          {"abc", "abcd", true, false}}},
    };
    for (const auto& f : forms)
        for (const Row& r : f.rows)
            EXPECT_EQ(r.expected, f.compare(r.s, r.t, r.flag))
                << f.what << "(\"" << r.s << "\", \"" << r.t << "\", " << r.flag << ")";

    EXPECT_EQ(3, S::FindFirstOf("abc,d", ",;"));
    EXPECT_EQ(-1, S::FindFirstOf("abcd", ",;"));
    EXPECT_EQ(-1, S::FindFirstOf("a,b", ",", 10));
    EXPECT_EQ(2, S::FindFirstNotOf("  x ", " "));
    EXPECT_EQ(-1, S::FindFirstNotOf("   ", " "));
    EXPECT_EQ(2, S::FindLastNotOf("  x ", " "));
    EXPECT_EQ(-1, S::FindLastNotOf("", " "));
}

TEST(StringChange, CaseTrimAndExtension)
{
    const ChangeRow rows[] = {
        {"LowerAndForwardSlashes", &S::LowerAndForwardSlashes, "Shader\\Editor\\X.FX", "shader/editor/x.fx"},
        {"ToUpper", &S::ToUpper, "mIxEd 1", "MIXED 1"},
        {"ToLower", &S::ToLower, "mIxEd 1", "mixed 1"},
        {"Trim neither", [](std::string& s) { S::Trim(s, false, false); }, " \t\r value \r\t ", " \t\r value \r\t "},
        {"Trim left", [](std::string& s) { S::Trim(s, true, false); }, " \t\r value \r\t ", "value \r\t "},
        {"Trim right", [](std::string& s) { S::Trim(s, false, true); }, " \t\r value \r\t ", " \t\r value"},
        {"Trim", [](std::string& s) { S::Trim(s); }, " \t\r value \r\t ", "value"},
        {"Trim", [](std::string& s) { S::Trim(s); }, " \t\r", ""},
        // A line feed is not one of the trimmed characters.
        {"Trim", [](std::string& s) { S::Trim(s); }, "\nx\n", "\nx\n"},
        {"TrimChar", [](std::string& s) { S::TrimChar(s, '-'); }, "--a-b--", "a-b"},
        {"TrimBlanks", &S::TrimBlanks, "  a b  ", "a b"},
        {"SetExtension", [](std::string& s) { S::SetExtension(s, "dds"); }, "dir.v2/file.png", "dir.v2/file.dds"},
        {"SetExtension", [](std::string& s) { S::SetExtension(s, "txt"); }, "README", "README"},
        {"SetExtension", [](std::string& s) { S::SetExtension(s, "x"); }, "name.", "name.x"},
    };
    for (const ChangeRow& r : rows)
    {
        std::string s = r.in;
        r.change(s);
        EXPECT_EQ(r.out, s) << r.what << " of \"" << r.in << "\"";
    }
}

TEST(StringChange, ReplaceAll)
{
    const struct
    {
        const char *in, *from, *to;
        bool ignoreCase;
        const char* out;
    } rows[] = {
        {"a.b.c", ".", "::", false, "a::b::c"},
        // The replacement holds the searched text: the search must not go on for ever.
        {"xax", "a", "aa", false, "xaax"},
        {"ab", "b", "bb", false, "abb"},
        // A shorter replacement looks again at what it formed, as a search from the start would.
        {"a////b//c", "//", "/", false, "a/b/c"},
        {"aaab", "ab", "b", false, "b"},
        {"One ONE one", "one", "1", true, "1 1 1"},
        {"One ONE one", "one", "1", false, "One ONE 1"},
        {"abc", nullptr, "x", false, "abc"},
        {"abc", "a", nullptr, false, "abc"},
        {"abc", "", "x", false, "abc"},
    };
    for (const auto& r : rows)
    {
        std::string s = r.in;
        S::ReplaceAll(s, r.from, r.to, r.ignoreCase);
        EXPECT_EQ(r.out, s) << "\"" << r.in << "\" " << (r.from ? r.from : "null") << " -> " << (r.to ? r.to : "null");
    }
    EXPECT_EQ("xaax", S::ReplaceAllCopy("xax", "a", "aa"));
    EXPECT_EQ("a/b", S::ReplaceAllCopy("a\\b", "\\", "/"));
    // The copy goes on behind each replacement and does not look back.
    EXPECT_EQ("a//b", S::ReplaceAllCopy("a////b", "//", "/"));
    EXPECT_EQ("same", S::ReplaceAllCopy("same", "", "x"));
}

TEST(StringSplit, SplitSplitAtAndTokenise)
{
    EXPECT_EQ((Pieces{"a", "b", "c"}), S::Split("a b c"));
    // Runs of delimiters, leading and trailing ones yield no empty pieces.
    EXPECT_EQ((Pieces{"a", "b"}), S::Split(",,a,,,b,,", ","));
    EXPECT_EQ((Pieces{"a", "b"}), S::Split("a;,b", ",;"));
    EXPECT_EQ(Pieces{}, S::Split(",,,", ","));
    EXPECT_EQ(Pieces{}, S::Split("", ","));
    EXPECT_EQ(Pieces{"whole"}, S::Split("whole", ","));
    // The rest after maxSplits keeps its delimiters as they stand.
    EXPECT_EQ((Pieces{"a", "b  c d"}), S::Split("a b  c d", " ", 1));
    EXPECT_EQ((Pieces{"a", "b", "c d"}), S::Split("a b c d", " ", 2));
    EXPECT_EQ((Pieces{"VS+PS", "A=1"}), S::Split("VS+PS A=1", " "));

    Pieces out{"kept"};
    S::SplitAt("a::b::::c::", "::", out);
    EXPECT_EQ((Pieces{"kept", "a", "b", "c"}), out);
    Pieces one;
    S::SplitAt("abc", "::", one);
    EXPECT_EQ(Pieces{"abc"}, one);
    Pieces none;
    S::SplitAt("", "::", none);
    EXPECT_TRUE(none.empty());

    EXPECT_EQ((Pieces{"a", "b c", "d"}), S::Tokenise("a \"b c\" d"));
    EXPECT_EQ((Pieces{"x", "q r"}), S::Tokenise("x  'q r'", " ", "'\""));
    // Inside quotes delimiters are text; a quote of the other kind is text too.
    EXPECT_EQ((Pieces{"say", "it's fine"}), S::Tokenise("say \"it's fine\"", " ", "\"'"));
    // An unclosed quote runs to the end.
    EXPECT_EQ((Pieces{"a", "b c"}), S::Tokenise("a \"b c"));
    EXPECT_EQ((Pieces{"a", "b \"c d\""}), S::Tokenise("a b \"c d\"", " ", "\"", 1));
    EXPECT_EQ(Pieces{}, S::Tokenise("   "));
    EXPECT_EQ((Pieces{"a", "b"}), S::Tokenise("a \"\" b"));
}
