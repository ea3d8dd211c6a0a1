#pragma once
// The engine's files on disk that are not game data: the cache area.
#include "engine/Export.h"

#include <mutex>
#include <string>

namespace kv
{

class KV_API CArchiveManager
{
public:
    CArchiveManager();

    // Writes a file into the cache area, making the folders of its name.
    // Safe to call from the compile thread.
    bool WriteCacheFile(const char* name, const void* data, unsigned size);

    // The cache area's root folder ("cache" beside the working folder at first).
    void SetCacheRoot(const std::string& root);
    std::string GetCacheRoot();
    // The full path of a name in the cache area.
    std::string CachePath(const std::string& name);
    // The name given to the last WriteCacheFile.
    std::string GetLastWrittenName();

private:
    std::mutex m_mutex;
    std::string m_strCacheRoot;
    std::string m_strLastWritten;
};

KV_API CArchiveManager* GetArchiveMananger();

// Makes every folder on the way to a file path ('/' or '\\' separated).
KV_API bool MakeParentFolders(const std::string& filePath);

} // namespace kv
