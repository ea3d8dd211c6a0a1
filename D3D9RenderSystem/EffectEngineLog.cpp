#include "D3D9RenderSystem/EffectEngineLog.h"

#include "D3D9RenderSystem/EffectLog.h"
#include "engine/Log.h"

namespace
{

void EngineSink(EffectLogLevel level, const char* file, int line, const char* message)
{
    if (level == EFFECT_LOG_ERROR)
        kv::LogErrorImpl(file, line, "%s", message);
    else
        kv::LogWarning("%s", message);
}

} // namespace

void ConnectEffectLogToEngine()
{
    SetEffectLogSink(EngineSink);
}
