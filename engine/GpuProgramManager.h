#pragma once
// Where shader sources come from. Callers hold GetDX9ShaderMutex around
// OpenDX9Shader: the compile thread and the main thread both read sources.
#include "base/CriticalSection.h"
#include "engine/DataStream.h"
#include "engine/Export.h"

#include <map>
#include <mutex>
#include <string>

namespace kv
{

class KV_API CGpuProgramManager
{
public:
    CGpuProgramManager();

    // The same lock at every call.
    CriticalSection& GetDX9ShaderMutex() { return m_shaderMutex; }

    // The text of a shader source, or null when there is none. The text lives
    // in stream and stays valid while stream holds it.
    const char* OpenDX9Shader(const char* path, ref_ptr<CMemoryDataStream>& stream);

    // Sources that exist in memory only; they hide files of the same path.
    void RegisterShaderSource(const std::string& path, const std::string& text);
    void ClearShaderSources();
    // The folder that relative source paths are read from ("." at first).
    void SetDataRoot(const std::string& root);

private:
    CriticalSection m_shaderMutex;
    std::mutex m_tableMutex;
    std::map<std::string, std::string> m_sources;
    std::string m_strDataRoot;
};

KV_API CGpuProgramManager* GetGpuProgramManager();

} // namespace kv
