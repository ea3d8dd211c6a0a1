#include "base/StaticFunc.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace
{
// The <cctype> functions take the value of an unsigned char: a negative char of a code page
// above 127 must not reach them as it stands.
inline char LowerChar(char c)
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

inline char UpperChar(char c)
{
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

std::string Lowered(std::string s)
{
    CStaticFunc::ToLower(s);
    return s;
}

std::ptrdiff_t AsPosition(size_t pos)
{
    return pos == std::string::npos ? -1 : static_cast<std::ptrdiff_t>(pos);
}

// Blank, tab and carriage return.
const char kTrimChars[] = " \t\r";
} // namespace

bool CStaticFunc::Equals(const std::string& a, const std::string& b, bool ignoreCase)
{
    if (!ignoreCase)
        return a == b;
    return Lowered(a) == Lowered(b);
}

bool CStaticFunc::EndsWith(const std::string& s, const std::string& suffix, bool lowerCase)
{
    if (suffix.empty() || suffix.size() > s.size())
        return false;
    std::string tail = s.substr(s.size() - suffix.size());
    if (lowerCase)
        ToLower(tail);
    return tail == suffix;
}

bool CStaticFunc::StartsWith(const std::string& s, const std::string& prefix, bool lowerCase)
{
    if (prefix.empty() || prefix.size() > s.size())
        return false;
    std::string head = s.substr(0, prefix.size());
    if (lowerCase)
        ToLower(head);
    return head == prefix;
}

bool CStaticFunc::EndsWithCase(const std::string& s, const std::string& suffix, bool caseSensitive)
{
    if (suffix.size() > s.size())
        return false;
    const std::string tail = s.substr(s.size() - suffix.size());
    return caseSensitive ? tail == suffix : Lowered(tail) == Lowered(suffix);
}

bool CStaticFunc::WildcardMatch(const std::string& s, const std::string& pattern, bool caseSensitive)
{
    const std::string text = caseSensitive ? s : Lowered(s);
    const std::string pat = caseSensitive ? pattern : Lowered(pattern);
    size_t si = 0, pi = 0;
    size_t star = std::string::npos; // the last '*' of the pattern seen
    size_t resume = 0;               // where the string goes on when the match falls back to it
    while (si < text.size())
    {
        if (pi < pat.size() && pat[pi] == '*')
        {
            star = pi++;
            if (pi == pat.size())
                return true; // a final '*' takes the rest of the string
            resume = si;
        }
        else if (pi < pat.size() && pat[pi] == text[si])
        {
            ++si;
            ++pi;
        }
        else if (star != std::string::npos)
        {
            // Let the last '*' swallow one character more and try again behind it.
            pi = star + 1;
            si = ++resume;
        }
        else
        {
            return false;
        }
    }
    while (pi < pat.size() && pat[pi] == '*')
        ++pi;
    return pi == pat.size();
}

std::ptrdiff_t CStaticFunc::FindFirstOf(const std::string& s, const std::string& chars, size_t pos)
{
    return AsPosition(s.find_first_of(chars, pos));
}

std::ptrdiff_t CStaticFunc::FindFirstNotOf(const std::string& s, const std::string& chars, size_t pos)
{
    return AsPosition(s.find_first_not_of(chars, pos));
}

std::ptrdiff_t CStaticFunc::FindLastNotOf(const std::string& s, const std::string& chars, size_t pos)
{
    return AsPosition(s.find_last_not_of(chars, pos));
}

void CStaticFunc::ToLower(std::string& s)
{
    std::transform(s.begin(), s.end(), s.begin(), LowerChar);
}

void CStaticFunc::ToUpper(std::string& s)
{
    std::transform(s.begin(), s.end(), s.begin(), UpperChar);
}

void CStaticFunc::LowerAndForwardSlashes(std::string& s)
{
    for (char& c : s)
    {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
        else if (c == '\\')
            c = '/';
    }
}

void CStaticFunc::Trim(std::string& s, bool left, bool right)
{
    if (right)
        s.erase(s.find_last_not_of(kTrimChars) + 1); // npos + 1 is 0: all of it
    if (left)
        s.erase(0, s.find_first_not_of(kTrimChars)); // npos: all of it
}

void CStaticFunc::TrimChar(std::string& s, char c)
{
    s.erase(s.find_last_not_of(c) + 1);
    s.erase(0, s.find_first_not_of(c));
}

void CStaticFunc::TrimBlanks(std::string& s)
{
    TrimChar(s, ' ');
}

void CStaticFunc::ReplaceAll(std::string& s, const char* from, const char* to, bool ignoreCase)
{
    if (!from || !to || !*from)
        return;
    const std::string what = ignoreCase ? Lowered(from) : std::string(from);
    const std::string with = to;
    // A replacement shorter than the searched text shrinks the string at every step, so the
    // search may look again for occurrences that the replacement itself has formed. Any other
    // replacement could form them for ever ("a" by "aa" would never end), so then the search
    // goes on behind the text just put in.
    const bool shrinks = with.size() < what.size();
    // The search runs over a lowered twin when case is ignored; lowering goes character by
    // character, so the twin takes the same replacements and stays aligned with s.
    const std::string withInHaystack = ignoreCase ? Lowered(with) : with;
    std::string haystack = ignoreCase ? Lowered(s) : s;
    size_t pos = haystack.find(what);
    while (pos != std::string::npos)
    {
        s.replace(pos, what.size(), with);
        haystack.replace(pos, what.size(), withInHaystack);
        size_t next;
        if (shrinks)
        {
            // Nothing before pos matched, and what lies before pos - |what| + 1 is unchanged:
            // a new occurrence cannot begin earlier, so starting there equals starting at 0.
            next = pos >= what.size() - 1 ? pos - (what.size() - 1) : 0;
        }
        else
        {
            next = pos + with.size();
        }
        pos = haystack.find(what, next);
    }
}

std::string CStaticFunc::ReplaceAllCopy(const std::string& s, const std::string& from, const std::string& to)
{
    std::string result = s;
    if (from.empty())
        return result;
    size_t pos = result.find(from);
    while (pos != std::string::npos)
    {
        result.replace(pos, from.size(), to);
        pos = result.find(from, pos + to.size());
    }
    return result;
}

void CStaticFunc::SetExtension(std::string& path, const std::string& extension)
{
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos)
        return;
    path.replace(dot + 1, std::string::npos, extension);
}

std::vector<std::string> CStaticFunc::Split(const std::string& s, const std::string& delimiters, unsigned maxSplits)
{
    std::vector<std::string> pieces;
    pieces.reserve(maxSplits ? maxSplits + 1 : 10);
    size_t start = 0;
    unsigned count = 0;
    size_t pos;
    do
    {
        pos = s.find_first_of(delimiters, start);
        if (pos == start)
        {
            // A delimiter right at the start: no piece here.
        }
        else if (pos == std::string::npos || (maxSplits && count == maxSplits))
        {
            if (start < s.size())
                pieces.push_back(s.substr(start));
            break;
        }
        else
        {
            pieces.push_back(s.substr(start, pos - start));
        }
        start = s.find_first_not_of(delimiters, pos + 1);
        if (start == std::string::npos)
            break; // only delimiters remain
        ++count;
    } while (pos != std::string::npos);
    return pieces;
}

void CStaticFunc::SplitAt(const std::string& s, const std::string& separator, std::vector<std::string>& out)
{
    if (separator.empty())
    {
        if (!s.empty())
            out.push_back(s);
        return;
    }
    size_t start = 0;
    for (;;)
    {
        const size_t pos = s.find(separator, start);
        const size_t end = pos == std::string::npos ? s.size() : pos;
        if (end > start)
            out.push_back(s.substr(start, end - start));
        if (pos == std::string::npos)
            break;
        start = pos + separator.size();
    }
}

std::vector<std::string> CStaticFunc::Tokenise(const std::string& s, const std::string& delimiters,
                                               const std::string& quotes, unsigned maxSplits)
{
    std::vector<std::string> pieces;
    pieces.reserve(maxSplits ? maxSplits + 1 : 10);
    const std::string delimitersAndQuotes = delimiters + quotes;
    size_t start = 0;
    unsigned count = 0;
    char quote = 0; // the quote in force, 0 outside quotes
    size_t pos;
    do
    {
        pos = quote ? s.find(quote, start) : s.find_first_of(delimitersAndQuotes, start);
        if (pos == start && !quote && quotes.find(s[start]) != std::string::npos)
        {
            quote = s[start];
        }
        else if (pos == start)
        {
            // A delimiter at the start, or the closing quote of an empty quoted piece.
            quote = 0;
        }
        else if (pos == std::string::npos || (maxSplits && count == maxSplits))
        {
            if (start < s.size())
                pieces.push_back(s.substr(start));
            break;
        }
        else
        {
            pieces.push_back(s.substr(start, pos - start));
            quote = 0;
        }
        start = pos + 1;
        if (!quote)
            start = s.find_first_not_of(delimiters, start);
        if (start == std::string::npos || start >= s.size())
            break;
        ++count;
    } while (pos != std::string::npos);
    return pieces;
}
