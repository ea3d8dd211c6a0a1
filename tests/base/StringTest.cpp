#include "base/StaticFunc.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using S = CStaticFunc;
using Pieces = std::vector<std::string>;

TEST(StringCompare, EqualsAndCase)
{
    EXPECT_TRUE(S::Equals("Shader", "Shader", false));
    EXPECT_FALSE(S::Equals("Shader", "shader", false));
    EXPECT_TRUE(S::Equals("Shader", "sHADER", true));
    EXPECT_FALSE(S::Equals("Shader", "Shaders", true));
    // Bytes above 127 must not upset the case folding.
    EXPECT_TRUE(S::Equals("\xE9t\xE9", "\xE9T\xE9", true));
}

TEST(StringCompare, EndsWithAndStartsWith)
{
    EXPECT_FALSE(S::EndsWith("file.png", "", false));
    EXPECT_FALSE(S::EndsWith("png", ".png", false));
    EXPECT_TRUE(S::EndsWith("FILE.PNG", ".png", true));
    EXPECT_FALSE(S::EndsWith("FILE.PNG", ".png", false));
    // Only the tail is lowered; a suffix in capitals never matches when lowering.
    EXPECT_FALSE(S::EndsWith("file.png", ".PNG", true));
    EXPECT_TRUE(S::StartsWith("Shader/x.fx", "shader/", true));
    EXPECT_FALSE(S::StartsWith("Shader/x.fx", "shader/", false));
    EXPECT_FALSE(S::StartsWith("ab", "", false));
    EXPECT_FALSE(S::StartsWith("ab", "abc", false));

    EXPECT_TRUE(S::EndsWithCase("abc", "", true));
    EXPECT_TRUE(S::EndsWithCase("file.DDS", ".dds", false));
    EXPECT_FALSE(S::EndsWithCase("file.DDS", ".dds", true));
    EXPECT_FALSE(S::EndsWithCase("s", "longer", false));
}

TEST(StringCompare, Wildcards)
{
    EXPECT_TRUE(S::WildcardMatch("texture.dds", "*.dds", true));
    EXPECT_FALSE(S::WildcardMatch("texture.dds", "*.png", true));
    EXPECT_TRUE(S::WildcardMatch("Texture.DDS", "t*.dds", false));
    EXPECT_FALSE(S::WildcardMatch("Texture.DDS", "t*.dds", true));
    EXPECT_TRUE(S::WildcardMatch("abc", "a*", true));
    EXPECT_TRUE(S::WildcardMatch("", "*", true));
    EXPECT_TRUE(S::WildcardMatch("", "", true));
    EXPECT_FALSE(S::WildcardMatch("a", "", true));
    // The first candidate behind '*' fails; the match must fall back and try a later one.
    EXPECT_TRUE(S::WildcardMatch("abcbcd", "a*bcd", true));
    EXPECT_TRUE(S::WildcardMatch("mississippi", "m*iss*ppi", true));
    EXPECT_FALSE(S::WildcardMatch("mississippi", "m*iss*ppx", true));
    EXPECT_TRUE(S::WildcardMatch("a.b.c", "*.*.*", true));
    EXPECT_FALSE(S::WildcardMatch("abc", "abcd", true));
}

TEST(StringCompare, Searches)
{
    EXPECT_EQ(3, S::FindFirstOf("abc,d", ",;"));
    EXPECT_EQ(-1, S::FindFirstOf("abcd", ",;"));
    EXPECT_EQ(-1, S::FindFirstOf("a,b", ",", 10));
    EXPECT_EQ(2, S::FindFirstNotOf("  x ", " "));
    EXPECT_EQ(-1, S::FindFirstNotOf("   ", " "));
    EXPECT_EQ(2, S::FindLastNotOf("  x ", " "));
    EXPECT_EQ(-1, S::FindLastNotOf("", " "));
}

TEST(StringChange, CaseAndSlashes)
{
    std::string s = "Shader\\Editor\\X.FX";
    S::LowerAndForwardSlashes(s);
    EXPECT_EQ("shader/editor/x.fx", s);
    std::string t = "mIxEd 1";
    S::ToUpper(t);
    EXPECT_EQ("MIXED 1", t);
    S::ToLower(t);
    EXPECT_EQ("mixed 1", t);
}

TEST(StringChange, Trim)
{
    std::string s = " \t\r value \r\t ";
    std::string kept = s;
    S::Trim(kept, false, false);
    EXPECT_EQ(s, kept);
    std::string left = s;
    S::Trim(left, true, false);
    EXPECT_EQ("value \r\t ", left);
    std::string right = s;
    S::Trim(right, false, true);
    EXPECT_EQ(" \t\r value", right);
    S::Trim(s);
    EXPECT_EQ("value", s);
    std::string blank = " \t\r";
    S::Trim(blank);
    EXPECT_EQ("", blank);
    // A line feed is not one of the trimmed characters.
    std::string lf = "\nx\n";
    S::Trim(lf);
    EXPECT_EQ("\nx\n", lf);

    std::string c = "--a-b--";
    S::TrimChar(c, '-');
    EXPECT_EQ("a-b", c);
    std::string blanks = "  a b  ";
    S::TrimBlanks(blanks);
    EXPECT_EQ("a b", blanks);
}

TEST(StringChange, ReplaceAll)
{
    std::string s = "a.b.c";
    S::ReplaceAll(s, ".", "::");
    EXPECT_EQ("a::b::c", s);

    // The replacement holds the searched text: the search must not go on for ever.
    std::string grow = "xax";
    S::ReplaceAll(grow, "a", "aa");
    EXPECT_EQ("xaax", grow);
    std::string wrap = "ab";
    S::ReplaceAll(wrap, "b", "bb");
    EXPECT_EQ("abb", wrap);

    // A shorter replacement looks again at what it formed, as a search from the start would.
    std::string collapse = "a////b//c";
    S::ReplaceAll(collapse, "//", "/");
    EXPECT_EQ("a/b/c", collapse);
    std::string nested = "aaab";
    S::ReplaceAll(nested, "ab", "b");
    EXPECT_EQ("b", nested);

    std::string ci = "One ONE one";
    S::ReplaceAll(ci, "one", "1", true);
    EXPECT_EQ("1 1 1", ci);
    std::string cs = "One ONE one";
    S::ReplaceAll(cs, "one", "1", false);
    EXPECT_EQ("One ONE 1", cs);

    std::string untouched = "abc";
    S::ReplaceAll(untouched, nullptr, "x");
    S::ReplaceAll(untouched, "a", nullptr);
    S::ReplaceAll(untouched, "", "x");
    EXPECT_EQ("abc", untouched);

    EXPECT_EQ("xaax", S::ReplaceAllCopy("xax", "a", "aa"));
    EXPECT_EQ("a/b", S::ReplaceAllCopy("a\\b", "\\", "/"));
    // The copy goes on behind each replacement and does not look back.
    EXPECT_EQ("a//b", S::ReplaceAllCopy("a////b", "//", "/"));
    EXPECT_EQ("same", S::ReplaceAllCopy("same", "", "x"));
}

TEST(StringChange, SetExtension)
{
    std::string p = "dir.v2/file.png";
    S::SetExtension(p, "dds");
    EXPECT_EQ("dir.v2/file.dds", p);
    std::string none = "README";
    S::SetExtension(none, "txt");
    EXPECT_EQ("README", none);
    std::string dotEnd = "name.";
    S::SetExtension(dotEnd, "x");
    EXPECT_EQ("name.x", dotEnd);
}

TEST(StringSplit, Split)
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
}

TEST(StringSplit, SplitAt)
{
    Pieces out{"kept"};
    S::SplitAt("a::b::::c::", "::", out);
    EXPECT_EQ((Pieces{"kept", "a", "b", "c"}), out);
    Pieces one;
    S::SplitAt("abc", "::", one);
    EXPECT_EQ(Pieces{"abc"}, one);
    Pieces none;
    S::SplitAt("", "::", none);
    EXPECT_TRUE(none.empty());
}

TEST(StringSplit, Tokenise)
{
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
