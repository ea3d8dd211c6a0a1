#pragma once
// Start and end of the engine around a render system's life.
#include "engine/Export.h"

namespace kv
{

// Records the calling thread as the main thread.
KV_API void EngineInit();
// Stops and deletes the compile thread when one was started; records still
// queued end failed.
KV_API void EngineShutdown();

} // namespace kv
