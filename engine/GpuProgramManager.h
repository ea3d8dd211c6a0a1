#pragma once
// Where shader sources come from. Callers hold GetDX9ShaderMutex around
// OpenDX9Shader: the compile thread and the main thread both read sources.
#include "base/CriticalSection.h"
#include "engine/DataStream.h"
#include "engine/Export.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

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
    // A path of the engine's data as a full path on disk (drive included),
    // for readers that need one; empty when it cannot be made.
    std::string GetFullPath(const std::string& path);

    // The engine's values of global program parameters, by name: four floats
    // a register. A program links its global parameters to them once
    // (InitGlobalParameter) and sets them at each activation. The vector of a
    // name stays where it is for the life of the manager. Main thread only.
    void SetGlobalValue(const std::string& name, const float* values, int registers);
    const std::vector<float>* GetGlobalValue(const std::string& name);

private:
    struct FileText
    {
        std::string text;
        uint64_t written; // the file's last write time when it was read
    };
    bool ReadSourceFile(const std::string& file, std::string& text);

    CriticalSection m_shaderMutex;
    std::mutex m_tableMutex;
    std::map<std::string, std::string> m_sources;
    std::map<std::string, FileText> m_files; // by full path
    std::string m_strDataRoot;
    std::map<std::string, std::vector<float>> m_globalValues;
};

KV_API CGpuProgramManager* GetGpuProgramManager();

} // namespace kv
