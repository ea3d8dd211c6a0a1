#include "engine/ArchiveManager.h"

#include <windows.h>

#include <cstdio>

namespace kv
{

bool MakeParentFolders(const std::string& filePath)
{
    for (std::size_t i = 1; i < filePath.size(); ++i)
    {
        if (filePath[i] != '/' && filePath[i] != '\\')
            continue;
        if (filePath[i - 1] == ':')
            continue; // a drive, not a folder
        std::string folder = filePath.substr(0, i);
        if (!CreateDirectoryA(folder.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
            return false;
    }
    return true;
}

CArchiveManager::CArchiveManager() : m_strCacheRoot("cache") {}

bool CArchiveManager::WriteCacheFile(const char* name, const void* data, unsigned size)
{
    if (!name || !*name || (size && !data))
        return false;
    std::string path = CachePath(name);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_strLastWritten = name;
    }
    if (!MakeParentFolders(path))
        return false;
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return false;
    bool ok = size == 0 || std::fwrite(data, 1, size, f) == size;
    ok = std::fclose(f) == 0 && ok;
    return ok;
}

void CArchiveManager::SetCacheRoot(const std::string& root)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_strCacheRoot = root;
}

std::string CArchiveManager::GetCacheRoot()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_strCacheRoot;
}

std::string CArchiveManager::CachePath(const std::string& name)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_strCacheRoot.empty() ? name : m_strCacheRoot + "/" + name;
}

std::string CArchiveManager::GetLastWrittenName()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_strLastWritten;
}

CArchiveManager* GetArchiveMananger()
{
    static CArchiveManager manager;
    return &manager;
}

} // namespace kv
