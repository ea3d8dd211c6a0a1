#pragma once
// The engine's log. Every line is kept in memory (with its level, and for errors
// its source position) besides being echoed to stderr, so a caller can read back
// exactly what was reported. Safe to call from any thread.
#include "engine/Export.h"

#include <cstddef>
#include <string>
#include <vector>

#if defined(__GNUC__)
#define KV_PRINTF_LIKE(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#define KV_PRINTF_LIKE(fmt, first)
#endif

namespace kv
{

enum LogLevel
{
    LOG_ERROR = 0,
    LOG_WARNING = 1,
    LOG_INFO = 2,
};

struct LogLine
{
    LogLevel level;
    std::string file; // errors only: as the caller gave it
    int line;         // errors only
    std::string text; // the formatted message
};

// printf-style reports; they return nothing and never throw.
KV_API void LogErrorImpl(const char* file, int line, const char* format, ...) KV_PRINTF_LIKE(3, 4);
KV_API void LogWarning(const char* format, ...) KV_PRINTF_LIKE(1, 2);
KV_API void LogInfo(const char* format, ...) KV_PRINTF_LIKE(1, 2);

// A copy of the lines kept since the last ClearLog, oldest first.
KV_API std::vector<LogLine> GetLogLines();
// Only the texts of the lines of one level, oldest first.
KV_API std::vector<std::string> GetLogTexts(LogLevel level);
KV_API std::size_t GetLogLineCount();
KV_API void ClearLog();
// Whether lines are echoed to stderr as well (on by default).
KV_API void SetLogEcho(bool echo);

} // namespace kv
