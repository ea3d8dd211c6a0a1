// The engine's log sink. Lines are formatted into a bounded buffer, kept in a
// mutex-guarded list (the compile thread logs too) and echoed to stderr.
#include "engine/Log.h"

#include <cstdarg>
#include <cstdio>
#include <deque>
#include <mutex>

namespace kv
{
namespace
{

// Compile errors of several thousand characters come through here.
const std::size_t kMaxMessage = 16384;
// The oldest lines go once this many are kept.
const std::size_t kMaxLines = 100000;

struct LogSink
{
    std::mutex mutex;
    std::deque<LogLine> lines;
    bool echo = true;
};

LogSink& Sink()
{
    static LogSink sink;
    return sink;
}

const char* LevelName(LogLevel level)
{
    switch (level)
    {
    case LOG_ERROR:
        return "error";
    case LOG_WARNING:
        return "warning";
    default:
        return "info";
    }
}

void Append(LogLevel level, const char* file, int line, const char* format, va_list args)
{
    char buffer[kMaxMessage];
    buffer[0] = '\0';
    if (format)
        std::vsnprintf(buffer, sizeof(buffer), format, args);

    LogLine entry;
    entry.level = level;
    entry.file = file ? file : "";
    entry.line = line;
    entry.text = buffer;

    LogSink& sink = Sink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    if (sink.echo)
    {
        if (level == LOG_ERROR)
            std::fprintf(stderr, "[%s] %s(%d): %s\n", LevelName(level), entry.file.c_str(), line, buffer);
        else
            std::fprintf(stderr, "[%s] %s\n", LevelName(level), buffer);
    }
    if (sink.lines.size() >= kMaxLines)
        sink.lines.pop_front();
    sink.lines.push_back(std::move(entry));
}

} // namespace

void LogErrorImpl(const char* file, int line, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Append(LOG_ERROR, file, line, format, args);
    va_end(args);
}

void LogWarning(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Append(LOG_WARNING, nullptr, 0, format, args);
    va_end(args);
}

void LogInfo(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Append(LOG_INFO, nullptr, 0, format, args);
    va_end(args);
}

std::vector<LogLine> GetLogLines()
{
    LogSink& sink = Sink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    return std::vector<LogLine>(sink.lines.begin(), sink.lines.end());
}

std::vector<std::string> GetLogTexts(LogLevel level)
{
    LogSink& sink = Sink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    std::vector<std::string> texts;
    for (const LogLine& l : sink.lines)
        if (l.level == level)
            texts.push_back(l.text);
    return texts;
}

std::size_t GetLogLineCount()
{
    LogSink& sink = Sink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    return sink.lines.size();
}

void ClearLog()
{
    LogSink& sink = Sink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    sink.lines.clear();
}

void SetLogEcho(bool echo)
{
    LogSink& sink = Sink();
    std::lock_guard<std::mutex> lock(sink.mutex);
    sink.echo = echo;
}

} // namespace kv
