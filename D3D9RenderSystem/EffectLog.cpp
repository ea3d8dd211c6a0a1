#include "D3D9RenderSystem/EffectLog.h"

#include <cstdarg>
#include <cstdio>

namespace
{

void StderrSink(EffectLogLevel level, const char* file, int line, const char* message)
{
    if (level == EFFECT_LOG_ERROR)
        std::fprintf(stderr, "error %s(%d): %s", file ? file : "?", line, message);
    else
        std::fprintf(stderr, "warning: %s", message);
}

EffectLogSink g_effectLogSink = StderrSink;

void Emit(EffectLogLevel level, const char* file, int line, const char* format, va_list args)
{
    char text[1024];
    int n = std::vsnprintf(text, sizeof(text), format, args);
    if (n < 0)
        text[0] = '\0';
    g_effectLogSink(level, file, line, text);
}

} // namespace

EffectLogSink SetEffectLogSink(EffectLogSink sink)
{
    EffectLogSink old = g_effectLogSink == StderrSink ? nullptr : g_effectLogSink;
    g_effectLogSink = sink ? sink : StderrSink;
    return old;
}

void EffectLogError(const char* file, int line, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Emit(EFFECT_LOG_ERROR, file, line, format, args);
    va_end(args);
}

void EffectLogWarning(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Emit(EFFECT_LOG_WARNING, nullptr, 0, format, args);
    va_end(args);
}
