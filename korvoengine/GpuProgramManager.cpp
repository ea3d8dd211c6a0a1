#include "engine/GpuProgramManager.h"

#include <cstdio>
#include <cstring>

namespace kv
{

CGpuProgramManager::CGpuProgramManager() : m_strDataRoot(".") {}

const char* CGpuProgramManager::OpenDX9Shader(const char* path, ref_ptr<CMemoryDataStream>& stream)
{
    stream = nullptr;
    if (!path || !*path)
        return nullptr;

    std::string text;
    bool found = false;
    std::string root;
    {
        std::lock_guard<std::mutex> lock(m_tableMutex);
        auto it = m_sources.find(path);
        if (it != m_sources.end())
        {
            text = it->second;
            found = true;
        }
        root = m_strDataRoot;
    }
    if (!found)
    {
        std::string full = root.empty() ? std::string(path) : root + "/" + path;
        FILE* f = std::fopen(full.c_str(), "rb");
        if (!f)
            return nullptr;
        char buffer[4096];
        std::size_t n;
        while ((n = std::fread(buffer, 1, sizeof(buffer), f)) > 0)
            text.append(buffer, n);
        bool failed = std::ferror(f) != 0;
        std::fclose(f);
        if (failed)
            return nullptr;
    }

    ref_ptr<CMemoryDataStream> data(new CMemoryDataStream(path, text.size()));
    if (!data->getPtr())
        return nullptr;
    if (!text.empty())
        std::memcpy(data->getPtr(), text.data(), text.size());
    stream = data;
    return reinterpret_cast<const char*>(data->getPtr());
}

void CGpuProgramManager::RegisterShaderSource(const std::string& path, const std::string& text)
{
    std::lock_guard<std::mutex> lock(m_tableMutex);
    m_sources[path] = text;
}

void CGpuProgramManager::ClearShaderSources()
{
    std::lock_guard<std::mutex> lock(m_tableMutex);
    m_sources.clear();
}

void CGpuProgramManager::SetDataRoot(const std::string& root)
{
    std::lock_guard<std::mutex> lock(m_tableMutex);
    m_strDataRoot = root;
}

CGpuProgramManager* GetGpuProgramManager()
{
    static CGpuProgramManager manager;
    return &manager;
}

} // namespace kv
