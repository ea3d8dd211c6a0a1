#pragma once
// Where the effect reader's messages go. The reader builds without the engine, so
// it formats its messages itself and hands each finished line to one sink: the
// plug-in points the sink at the engine's log, a test at a recorder. Without a
// sink the lines go to stderr.

enum EffectLogLevel
{
    EFFECT_LOG_ERROR = 0,   // what the reader can do nothing about
    EFFECT_LOG_WARNING = 1, // the path of a failure, one level per line
};

// file and line are given for errors only (null and 0 for warnings); file is the
// source as a path from D3D9RenderSystem/ without extension.
typedef void (*EffectLogSink)(EffectLogLevel level, const char* file, int line, const char* message);

// Installs a sink (null restores stderr) and answers the one it replaces.
EffectLogSink SetEffectLogSink(EffectLogSink sink);

#if defined(__GNUC__)
#define EFFECT_PRINTF_LIKE(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#define EFFECT_PRINTF_LIKE(fmt, first)
#endif

// Messages longer than 1023 characters are cut.
void EffectLogError(const char* file, int line, const char* format, ...) EFFECT_PRINTF_LIKE(3, 4);
void EffectLogWarning(const char* format, ...) EFFECT_PRINTF_LIKE(1, 2);
