#pragma once
// Start and end of the engine around a render system's life.
#include "engine/Export.h"

namespace kv
{

// Records the calling thread as the main thread.
KV_API void EngineInit();
// Stops and deletes the compile thread when one was started.
KV_API void EngineShutdown();

} // namespace kv
