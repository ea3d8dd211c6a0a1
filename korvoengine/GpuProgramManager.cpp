#include "engine/GpuProgramManager.h"
#include "engine/Log.h"

#include <windows.h>

#include <cstdio>
#include <cstring>

namespace kv
{

CGpuProgramManager::CGpuProgramManager() : m_strDataRoot(".") {}

bool CGpuProgramManager::ReadSourceFile(const std::string& file, std::string& text)
{
    // Every variant of a program reads the same source: a file that has not
    // changed since it was read is not read again.
    WIN32_FILE_ATTRIBUTE_DATA attributes;
    if (!GetFileAttributesExA(file.c_str(), GetFileExInfoStandard, &attributes) ||
        (attributes.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
        return false;
    const uint64_t written =
        uint64_t(attributes.ftLastWriteTime.dwHighDateTime) << 32 | attributes.ftLastWriteTime.dwLowDateTime;
    const uint64_t size = uint64_t(attributes.nFileSizeHigh) << 32 | attributes.nFileSizeLow;
    {
        std::lock_guard<std::mutex> lock(m_tableMutex);
        auto it = m_files.find(file);
        if (it != m_files.end() && it->second.written == written && it->second.text.size() == size)
        {
            text = it->second.text;
            return true;
        }
    }
    FILE* f = std::fopen(file.c_str(), "rb");
    if (!f)
        return false;
    text.clear();
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof(buffer), f)) > 0)
        text.append(buffer, n);
    const bool failed = std::ferror(f) != 0;
    std::fclose(f);
    if (failed)
        return false;
    std::lock_guard<std::mutex> lock(m_tableMutex);
    m_files[file] = FileText{text, written};
    return true;
}

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
        const std::string full = root.empty() ? std::string(path) : root + "/" + path;
        if (!ReadSourceFile(full, text))
        {
            LogWarning("Shader source %s not found", path);
            return nullptr;
        }
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

std::string CGpuProgramManager::GetFullPath(const std::string& path)
{
    std::string root;
    {
        std::lock_guard<std::mutex> lock(m_tableMutex);
        root = m_strDataRoot;
    }
    const std::string joined = root.empty() ? path : root + "/" + path;
    char full[MAX_PATH];
    const DWORD length = GetFullPathNameA(joined.c_str(), MAX_PATH, full, nullptr);
    return length == 0 || length >= MAX_PATH ? std::string() : std::string(full, length);
}

void CGpuProgramManager::SetGlobalValue(const std::string& name, const float* values, int registers)
{
    std::vector<float>& value = m_globalValues[name];
    if (!values || registers < 1)
    {
        value.clear();
        return;
    }
    value.assign(values, values + static_cast<std::size_t>(registers) * 4);
}

const std::vector<float>* CGpuProgramManager::GetGlobalValue(const std::string& name)
{
    return &m_globalValues[name];
}

CGpuProgramManager* GetGpuProgramManager()
{
    static CGpuProgramManager manager;
    return &manager;
}

} // namespace kv
