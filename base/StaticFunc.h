#pragma once
// Stateless helpers of the base library: logging to files, string searching and surgery,
// paths, settings files, hashing, and numbers and small value types to and from text.
// Strings are bytes in the system's code page; paths may use '\' or '/'.
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <ios>
#include <string>
#include <vector>

#ifdef _WIN32
// <windows.h> maps GetFileTitle to the common dialogs' GetFileTitleA. Include it here, once,
// and drop that macro, so every file sees the same name whichever header it includes first.
#include <windows.h>
#undef GetFileTitle
#endif

#if defined(__GNUC__)
#define KV_PRINTF_LIKE(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#define KV_PRINTF_LIKE(fmt, first)
#endif

class CStaticFunc
{
public:
    virtual ~CStaticFunc() {}

    // ---- Log files. No state and no levels; a line that cannot be written is lost.
    // Appends "[h:m:s]message" to Log_<year>_<month>_<day>.log in the current directory.
    static void LogToDatedFile(const char* format, ...) KV_PRINTF_LIKE(1, 2);
    // Appends the message, without time stamp, to path.
    static void LogToFile(const char* path, const char* format, ...) KV_PRINTF_LIKE(2, 3);
    // Writes the message and a line break to the debugger (Windows only; elsewhere stderr).
    static void DebugPrint(const char* format, ...) KV_PRINTF_LIKE(1, 2);
    static void GetLocalTimeParts(unsigned& year, unsigned& month, unsigned& day, unsigned& hour, unsigned& minute,
                                  unsigned& second);
    // The pieces of a dated log, from a broken-down local time.
    static std::string DatedLogFileName(const std::tm& time);
    static std::string DatedLogLine(const std::tm& time, const char* message);

    // ---- Searching and comparing.
    static bool Equals(const std::string& a, const std::string& b, bool ignoreCase);
    // False for an empty suffix or one longer than s; the tail of s is lowered when
    // lowerCase is true and compared with suffix as it stands.
    static bool EndsWith(const std::string& s, const std::string& suffix, bool lowerCase);
    static bool StartsWith(const std::string& s, const std::string& prefix, bool lowerCase);
    // True for an empty suffix; case-insensitive unless caseSensitive.
    static bool EndsWithCase(const std::string& s, const std::string& suffix, bool caseSensitive);
    // '*' matches any run of characters; all other characters match themselves.
    static bool WildcardMatch(const std::string& s, const std::string& pattern, bool caseSensitive);
    // Positions, or -1 when there is none.
    static std::ptrdiff_t FindFirstOf(const std::string& s, const std::string& chars, size_t pos = 0);
    static std::ptrdiff_t FindFirstNotOf(const std::string& s, const std::string& chars, size_t pos = 0);
    static std::ptrdiff_t FindLastNotOf(const std::string& s, const std::string& chars, size_t pos = std::string::npos);

    // ---- Changing.
    static void ToLower(std::string& s);
    static void ToUpper(std::string& s);
    static void LowerAndForwardSlashes(std::string& s);
    // Removes blanks, tabs and carriage returns at the chosen ends.
    static void Trim(std::string& s, bool left = true, bool right = true);
    static void TrimChar(std::string& s, char c);
    static void TrimBlanks(std::string& s);
    // Replaces every occurrence in place; null texts or an empty from change nothing. Behind a
    // replacement shorter than from the search looks again, as if from the start, so that
    // occurrences the replacement forms go too ("aab", "ab" by "b" gives "b"); behind any other
    // it goes on after the inserted text, so a replacement that holds from cannot run for ever.
    static void ReplaceAll(std::string& s, const char* from, const char* to, bool ignoreCase = false);
    static std::string ReplaceAllCopy(const std::string& s, const std::string& from, const std::string& to);
    // Replaces what follows the last '.', keeping the dot; a path without a dot stays as it is.
    static void SetExtension(std::string& path, const std::string& extension);
    // Pieces between delimiters; runs of delimiters yield no empty pieces. With maxSplits > 0
    // the piece after that many splits is the rest of s as it stands.
    static std::vector<std::string> Split(const std::string& s, const std::string& delimiters = "\t\n ",
                                          unsigned maxSplits = 0);
    // Appends the non-empty pieces between occurrences of the whole separator.
    static void SplitAt(const std::string& s, const std::string& separator, std::vector<std::string>& out);
    // Split that keeps quoted runs together; the quotes themselves are dropped.
    static std::vector<std::string> Tokenise(const std::string& s, const std::string& delimiters = "\t\n ",
                                             const std::string& quotes = "\"", unsigned maxSplits = 0);

    // ---- Paths.
    static std::string GetFileTitle(const std::string& path);
    static std::string GetFileName(const std::string& path);
    static std::string GetExtension(const std::string& path);
    static std::string GetDirectory(const std::string& path);
    static std::string GetParentDir(const std::string& path);
    static void SplitBaseName(const std::string& name, std::string& base, std::string& extension);
    static void SplitPath(const std::string& path, std::string& name, std::string& directory);
    static void SplitFullPath(const std::string& path, std::string& base, std::string& extension,
                              std::string& directory);
    static std::string StandardisePath(const std::string& path);
    static std::string NormalisePath(const std::string& path, bool forward);
    static std::string AppendSlash(const std::string& path);
    static void CreateDirectories(const std::string& path);
#ifdef _WIN32
    static std::string GetCurrentDir();
    static bool SetCurrentDir(const std::string& path);
    static std::string GetExeDir();
#endif

    // ---- Files and settings.
    static bool IsFile(const std::string& path);
    // Size of an open file in bytes; the position is back at the start afterwards. -1 on failure.
    static int64_t GetFileSize(FILE* file);
    // Reads until size bytes are in, the file ends or an error comes; answers the count.
    static size_t ReadFully(FILE* file, void* buffer, size_t size);
#ifdef _WIN32
    static int GetIniInt(const char* file, const char* section, const char* key);
    static std::string GetIniString(const char* file, const char* section, const char* key);
#endif
    static std::string Md5OfString(const std::string& s);
    // A single blank when the file can't be opened.
    static std::string Md5OfFile(const std::string& path);

    // ---- Miscellaneous.
    static std::string FormatString(const char* format, ...) KV_PRINTF_LIKE(1, 2);
    static std::string IntToString(int n);
    static std::string FormatBytes(int64_t size);
#ifdef _WIN32
    static unsigned Random(unsigned limit, bool reseed);
#endif
    // Replaces the locale of ToString; false (and the old one kept) for an unknown name.
    static bool SetGlobalLocale(const char* name);
    // Hex digits without prefix, an optional leading '-'; any other character gives 0.
    static int HexToInt(const std::string& s);
    static uint64_t HexToInt64(const std::string& s);

    // ---- Values to text.
    static std::string ToString(bool value);
    static std::string ToString(const int (&v)[2]);
    static std::string ToString(const int (&v)[3]);
    // A colour of four bytes.
    static std::string ToString(const uint8_t (&rgba)[4]);
    static std::string ToString(const float (&v)[2]);
    static std::string ToString(const float (&v)[3]);
    static std::string ToString(const float (&v)[4]);
    // A box: minimum corner, then maximum corner.
    static std::string ToString(const float (&minimum)[3], const float (&maximum)[3]);
    // Through a string stream with the library's locale.
    static std::string ToString(int32_t value, unsigned short width, char fill,
                                std::ios::fmtflags flags = std::ios::fmtflags(0));
    static std::string ToString(uint32_t value, unsigned short width, char fill,
                                std::ios::fmtflags flags = std::ios::fmtflags(0));
    static std::string ToString(float value, unsigned short precision, unsigned short width, char fill,
                                std::ios::fmtflags flags = std::ios::fmtflags(0));
    static std::string ToString(const std::vector<int>& values);
    static std::string ToString(const std::vector<float>& values);

    // ---- Text to values. Numbers are read one after the other; a missing one falls back.
    // Both zero when either is missing.
    static void ParseInt2(const char* text, int& x, int& y);
    static int ParseInt(const char* text, int defaultValue);
    // Exactly "true" or "1", "false" or "0"; anything else gives the default.
    static bool ParseBool(const char* text, bool defaultValue);
    // All four 255 when any is missing.
    static void ParseBytes4(const char* text, uint8_t out[4]);
    // Three or four floats; fewer than three give the default, a missing fourth gives 1.
    static void ParseColour(const char* text, float out[4], const float defaultValue[4]);
    // Exactly count floats (four, six for a box, nine or sixteen for matrices), else the default.
    static void ParseFloats(const char* text, float* out, size_t count, const float* defaultValue);
    // Quaternion x, y, z, w, then position x, y, z. False, and identity and origin, when any is missing.
    static bool ParseRotationPosition(const char* text, float rotation[4], float position[3]);
    // Up to count floats into out; answers how many were read.
    static size_t ParseFloatArray(const char* text, float* out, size_t count);
    // True when the whole text is one integer.
    static bool IsNumber(const char* text);

private:
    static std::string FormatV(size_t bufferSize, const char* format, va_list args);
};
