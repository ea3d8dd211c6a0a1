#include "base/StaticFunc.h"

#include <vector>

namespace
{
// Messages are cut to what this holds, terminator included.
const size_t kMessageBytes = 1024;
// The stamp "[23:59:59]" is at most 10 characters; the line holds it and a full message.
const size_t kLineBytes = kMessageBytes + 16;
const size_t kDebugBytes = 10240;

bool LocalTime(std::tm& out)
{
    const std::time_t now = std::time(nullptr);
#ifdef _WIN32
    return localtime_s(&out, &now) == 0;
#else
    return localtime_r(&now, &out) != nullptr;
#endif
}

void AppendLine(const char* path, const char* line)
{
    FILE* file = std::fopen(path, "a+");
    if (!file)
        return;
    std::fprintf(file, "%s\n", line);
    std::fclose(file);
}
} // namespace

std::string CStaticFunc::FormatV(size_t bufferSize, const char* format, va_list args)
{
    std::vector<char> buffer(bufferSize, 0);
    std::vsnprintf(buffer.data(), bufferSize, format, args);
    // Some C runtimes leave a cut text unterminated and answer -1: keep what fits either way.
    buffer[bufferSize - 1] = 0;
    return std::string(buffer.data());
}

std::string CStaticFunc::DatedLogFileName(const std::tm& time)
{
    char name[256] = {0};
    std::snprintf(name, sizeof(name), "%sLog_%u_%u_%u.log", "", static_cast<unsigned>(time.tm_year + 1900),
                  static_cast<unsigned>(time.tm_mon + 1), static_cast<unsigned>(time.tm_mday));
    return name;
}

std::string CStaticFunc::DatedLogLine(const std::tm& time, const char* message)
{
    char line[kLineBytes] = {0};
    std::snprintf(line, sizeof(line), "[%u:%u:%u]%s", static_cast<unsigned>(time.tm_hour),
                  static_cast<unsigned>(time.tm_min), static_cast<unsigned>(time.tm_sec), message ? message : "");
    return line;
}

void CStaticFunc::LogToDatedFile(const char* format, ...)
{
    if (!format)
        return;
    std::tm now{};
    if (!LocalTime(now))
        return;
    va_list args;
    va_start(args, format);
    const std::string message = FormatV(kMessageBytes, format, args);
    va_end(args);
    AppendLine(DatedLogFileName(now).c_str(), DatedLogLine(now, message.c_str()).c_str());
}

void CStaticFunc::LogToFile(const char* path, const char* format, ...)
{
    if (!path || !format)
        return;
    va_list args;
    va_start(args, format);
    const std::string message = FormatV(kMessageBytes, format, args);
    va_end(args);
    AppendLine(path, message.c_str());
}

void CStaticFunc::DebugPrint(const char* format, ...)
{
    if (!format)
        return;
    va_list args;
    va_start(args, format);
    std::string text = FormatV(kDebugBytes, format, args);
    va_end(args);
    text += "\r\n";
#ifdef _WIN32
    OutputDebugStringA(text.c_str());
#else
    std::fputs(text.c_str(), stderr);
#endif
}

void CStaticFunc::GetLocalTimeParts(unsigned& year, unsigned& month, unsigned& day, unsigned& hour, unsigned& minute,
                                    unsigned& second)
{
    std::tm now{};
    LocalTime(now);
    year = static_cast<unsigned>(now.tm_year + 1900);
    month = static_cast<unsigned>(now.tm_mon + 1);
    day = static_cast<unsigned>(now.tm_mday);
    hour = static_cast<unsigned>(now.tm_hour);
    minute = static_cast<unsigned>(now.tm_min);
    second = static_cast<unsigned>(now.tm_sec);
}
