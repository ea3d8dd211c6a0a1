#include "base/StaticFunc.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <locale>
#include <mutex>
#include <sstream>
#include <stdexcept>

namespace
{
const size_t kFormatBytes = 10240;

// The locale of ToString. Guarded, because SetGlobalLocale may run on any thread.
std::mutex& LocaleLock()
{
    static std::mutex lock;
    return lock;
}

std::locale& StoredLocale()
{
    static std::locale locale = std::locale::classic();
    return locale;
}

std::locale CurrentLocale()
{
    std::lock_guard<std::mutex> guard(LocaleLock());
    return StoredLocale();
}

std::string JoinFloats(const float* values, size_t count)
{
    std::string text;
    char number[64];
    for (size_t i = 0; i < count; ++i)
    {
        std::snprintf(number, sizeof(number), i ? " %g" : "%g", static_cast<double>(values[i]));
        text += number;
    }
    return text;
}

// Reads up to count numbers, each starting where the last one ended; stops at the first
// position where no number could be read. Answers how many were read.
size_t ReadDoubles(const char* text, double* out, size_t count)
{
    if (!text)
        return 0;
    size_t n = 0;
    const char* cursor = text;
    while (n < count)
    {
        char* end = nullptr;
        const double value = std::strtod(cursor, &end);
        if (end == cursor)
            break;
        out[n++] = value;
        cursor = end;
    }
    return n;
}

size_t ReadLongs(const char* text, long long* out, size_t count)
{
    if (!text)
        return 0;
    size_t n = 0;
    const char* cursor = text;
    while (n < count)
    {
        char* end = nullptr;
        const long long value = std::strtoll(cursor, &end, 0);
        if (end == cursor)
            break;
        out[n++] = value;
        cursor = end;
    }
    return n;
}

// Out-of-range texts saturate instead of wrapping into an unrelated number.
int ClampToInt(long long value)
{
    if (value > INT32_MAX)
        return INT32_MAX;
    if (value < INT32_MIN)
        return INT32_MIN;
    return static_cast<int>(value);
}

uint8_t ClampToByte(long long value)
{
    return static_cast<uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
}

// A double beyond the float range would be undefined to convert.
float ToFloat(double value)
{
    if (!std::isfinite(value))
        return static_cast<float>(value);
    if (value > 3.4028234663852886e38)
        return 3.4028234663852886e38f;
    if (value < -3.4028234663852886e38)
        return -3.4028234663852886e38f;
    return static_cast<float>(value);
}

int HexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Sums the digits from the right, 4 bits each; bits beyond 64 drop off. False on a bad digit.
bool ParseHex(const std::string& digits, uint64_t& value)
{
    value = 0;
    unsigned shift = 0;
    for (size_t i = digits.size(); i-- > 0;)
    {
        const int digit = HexDigit(digits[i]);
        if (digit < 0)
            return false;
        if (shift < 64)
            value |= static_cast<uint64_t>(digit) << shift;
        shift += 4;
    }
    return true;
}
} // namespace

std::string CStaticFunc::FormatString(const char* format, ...)
{
    if (!format)
        return std::string();
    va_list args;
    va_start(args, format);
    std::string text = FormatV(kFormatBytes, format, args);
    va_end(args);
    return text;
}

std::string CStaticFunc::IntToString(int n)
{
    char text[16];
    std::snprintf(text, sizeof(text), "%d", n);
    return text;
}

std::string CStaticFunc::FormatBytes(int64_t size)
{
    char text[64];
    if (size < 0)
        return "Unknown";
    if (size < 512)
        std::snprintf(text, sizeof(text), "%lld B", static_cast<long long>(size));
    else if (size < 512LL * 1024)
        std::snprintf(text, sizeof(text), "%01.1f KB", static_cast<double>(size) * 0.0009765625);
    else if (size < 512LL * 1024 * 1024)
        std::snprintf(text, sizeof(text), "%01.1f MB", static_cast<double>(size) / 1024.0 * 0.0009765625);
    else
        std::snprintf(text, sizeof(text), "%01.2f GB", static_cast<double>(size) / 1024.0 / 1024.0 * 0.0009765625);
    return text;
}

bool CStaticFunc::SetGlobalLocale(const char* name)
{
    if (!name)
        return false;
    try
    {
        std::locale named(name);
        std::lock_guard<std::mutex> guard(LocaleLock());
        StoredLocale() = named;
        return true;
    }
    catch (const std::runtime_error&)
    {
        return false;
    }
}

int CStaticFunc::HexToInt(const std::string& s)
{
    const bool negative = !s.empty() && s[0] == '-';
    uint64_t value = 0;
    if (!ParseHex(negative ? s.substr(1) : s, value))
        return 0;
    // Kept to 32 bits and negated in unsigned arithmetic, so "80000000" and its negation are defined.
    uint32_t bits = static_cast<uint32_t>(value);
    if (negative)
        bits = 0u - bits;
    return static_cast<int>(bits);
}

uint64_t CStaticFunc::HexToInt64(const std::string& s)
{
    uint64_t value = 0;
    return ParseHex(s, value) ? value : 0;
}

std::string CStaticFunc::ToString(bool value)
{
    return value ? "1" : "0";
}

std::string CStaticFunc::ToString(const int (&v)[2])
{
    char text[32];
    std::snprintf(text, sizeof(text), "%d %d", v[0], v[1]);
    return text;
}

std::string CStaticFunc::ToString(const int (&v)[3])
{
    char text[48];
    std::snprintf(text, sizeof(text), "%d %d %d", v[0], v[1], v[2]);
    return text;
}

std::string CStaticFunc::ToString(const uint8_t (&rgba)[4])
{
    char text[32];
    std::snprintf(text, sizeof(text), "%u %u %u %u", unsigned(rgba[0]), unsigned(rgba[1]), unsigned(rgba[2]),
                  unsigned(rgba[3]));
    return text;
}

std::string CStaticFunc::ToString(const float (&v)[2])
{
    return JoinFloats(v, 2);
}

std::string CStaticFunc::ToString(const float (&v)[3])
{
    return JoinFloats(v, 3);
}

std::string CStaticFunc::ToString(const float (&v)[4])
{
    return JoinFloats(v, 4);
}

std::string CStaticFunc::ToString(const float (&minimum)[3], const float (&maximum)[3])
{
    const float corners[6] = {minimum[0], minimum[1], minimum[2], maximum[0], maximum[1], maximum[2]};
    return JoinFloats(corners, 6);
}

// One number in the global locale, padded; flags are added to the stream's own, not
// put in their place. Precision only matters to floats.
template <typename T>
static std::string FormatNumber(T value, std::streamsize precision, unsigned short width, char fill,
                                std::ios::fmtflags flags)
{
    std::ostringstream stream;
    stream.imbue(CurrentLocale());
    stream.precision(precision);
    stream.width(width);
    stream.fill(fill);
    if (flags)
        stream.setf(flags);
    stream << value;
    return stream.str();
}

std::string CStaticFunc::ToString(int32_t value, unsigned short width, char fill, std::ios::fmtflags flags)
{
    return FormatNumber(value, 6, width, fill, flags);
}

std::string CStaticFunc::ToString(uint32_t value, unsigned short width, char fill, std::ios::fmtflags flags)
{
    return FormatNumber(value, 6, width, fill, flags);
}

std::string CStaticFunc::ToString(float value, unsigned short precision, unsigned short width, char fill,
                                  std::ios::fmtflags flags)
{
    return FormatNumber(value, precision, width, fill, flags);
}

std::string CStaticFunc::ToString(const std::vector<int>& values)
{
    std::string text;
    for (size_t i = 0; i < values.size(); ++i)
    {
        if (i)
            text += ' ';
        text += IntToString(values[i]);
    }
    return text;
}

std::string CStaticFunc::ToString(const std::vector<float>& values)
{
    return JoinFloats(values.data(), values.size());
}

void CStaticFunc::ParseInt2(const char* text, int& x, int& y)
{
    long long v[2];
    if (ReadLongs(text, v, 2) < 2)
    {
        x = y = 0;
        return;
    }
    x = ClampToInt(v[0]);
    y = ClampToInt(v[1]);
}

int CStaticFunc::ParseInt(const char* text, int defaultValue)
{
    long long v;
    return ReadLongs(text, &v, 1) == 1 ? ClampToInt(v) : defaultValue;
}

bool CStaticFunc::ParseBool(const char* text, bool defaultValue)
{
    if (!text)
        return defaultValue;
    if (std::strcmp(text, "true") == 0 || std::strcmp(text, "1") == 0)
        return true;
    if (std::strcmp(text, "false") == 0 || std::strcmp(text, "0") == 0)
        return false;
    return defaultValue;
}

void CStaticFunc::ParseBytes4(const char* text, uint8_t out[4])
{
    long long v[4];
    if (ReadLongs(text, v, 4) < 4)
    {
        out[0] = out[1] = out[2] = out[3] = 255;
        return;
    }
    for (int i = 0; i < 4; ++i)
        out[i] = ClampToByte(v[i]);
}

void CStaticFunc::ParseColour(const char* text, float out[4], const float defaultValue[4])
{
    double v[4];
    const size_t n = ReadDoubles(text, v, 4);
    if (n < 3)
    {
        for (int i = 0; i < 4; ++i)
            out[i] = defaultValue[i];
        return;
    }
    for (size_t i = 0; i < 3; ++i)
        out[i] = ToFloat(v[i]);
    out[3] = n == 4 ? ToFloat(v[3]) : 1.0f;
}

void CStaticFunc::ParseFloats(const char* text, float* out, size_t count, const float* defaultValue)
{
    std::vector<double> v(count);
    if (ReadDoubles(text, v.data(), count) < count)
    {
        for (size_t i = 0; i < count; ++i)
            out[i] = defaultValue[i];
        return;
    }
    for (size_t i = 0; i < count; ++i)
        out[i] = ToFloat(v[i]);
}

bool CStaticFunc::ParseRotationPosition(const char* text, float rotation[4], float position[3])
{
    double v[7];
    if (ReadDoubles(text, v, 7) < 7)
    {
        rotation[0] = rotation[1] = rotation[2] = 0.0f;
        rotation[3] = 1.0f;
        position[0] = position[1] = position[2] = 0.0f;
        return false;
    }
    for (int i = 0; i < 4; ++i)
        rotation[i] = ToFloat(v[i]);
    for (int i = 0; i < 3; ++i)
        position[i] = ToFloat(v[4 + i]);
    return true;
}

size_t CStaticFunc::ParseFloatArray(const char* text, float* out, size_t count)
{
    if (!out)
        return 0;
    std::vector<double> v(count);
    const size_t n = ReadDoubles(text, v.data(), count);
    for (size_t i = 0; i < n; ++i)
        out[i] = ToFloat(v[i]);
    return n;
}

bool CStaticFunc::IsNumber(const char* text)
{
    if (!text || !*text)
        return false;
    char* end = nullptr;
    std::strtoll(text, &end, 0);
    return end != text && *end == '\0';
}
