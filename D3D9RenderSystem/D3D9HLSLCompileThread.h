#pragma once
// The plug-in's part of the engine's compile thread: from a queued variant
// record to compiled vertex and pixel code, by way of the shader cache. Runs on
// the compile thread and touches no device object.
#include "D3D9Prerequisites.h"

#include "engine/GpuProgramCompileThread.h"

#include <string>

namespace kv
{

class CD3D9HLSLCompileThread : public CGpuProgramCompileThread
{
public:
    // Raising it retires every entry of the shader cache at once.
    static const int kCacheVersion = 3;

    ~CD3D9HLSLCompileThread() override;

    // True when the record holds code for both stages, from the cache or
    // compiled (and then saved to the cache).
    bool CompileShader(ShaderAsyncInfo* info) override;

    // The cache entry name of a source text under the current render system
    // type, and the two profiles; false for a type without profiles.
    static bool EntryName(const std::string& sourcePath, const std::string& text, std::string& name,
                          const char** vertexProfile, const char** pixelProfile);
    // Compiles one stage of the text into the record; on an error the text is
    // dumped to "<title>_vs.txt" or "<title>_ps.txt" and the error logged.
    static bool CompileStage(ShaderAsyncInfo* info, const std::string& text, bool pixelStage, const char* profile);
};

} // namespace kv
