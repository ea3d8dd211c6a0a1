#include "engine/GpuProgramCompileThread.h"
#include "engine/ArchiveManager.h"
#include "engine/Log.h"

#include "base/Md5.h"
#include "base/StaticFunc.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace kv
{
namespace
{

// A cache entry is one file:
//   "KVSC", u32 layout (1), u32 name length, u32 vertex size, u32 pixel size,
//   32 hex digits of the MD5 over name, vertex code and pixel code,
//   the name, the vertex code, the pixel code.
// The name inside tells an entry copied over another's file, the sizes a
// short file, the digest a damaged one. Numbers are little-endian.
const char kMagic[4] = {'K', 'V', 'S', 'C'};
const uint32_t kLayout = 1;
const std::size_t kDigestSize = 32;
const std::size_t kHeaderSize = 4 + 4 * 4 + kDigestSize;
// Far above any shader pair; a bigger file is not ours.
const int64_t kMaxEntrySize = 64 << 20;

uint32_t ReadU32(const uint8_t* p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

void AppendU32(std::vector<uint8_t>& out, uint32_t v)
{
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<uint8_t>(v >> shift));
}

std::string Digest(const std::string& name, const uint8_t* vs, std::size_t vsSize, const uint8_t* ps,
                   std::size_t psSize)
{
    Md5 md5;
    md5.Update(name);
    md5.Update(vs, vsSize);
    md5.Update(ps, psSize);
    return md5.HexDigest();
}

// The whole file, or false with the reason.
bool ReadEntryFile(const std::string& path, std::vector<uint8_t>& bytes, const char*& fault)
{
    fault = nullptr; // no entry: the normal case of a first compile
    HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    LARGE_INTEGER size;
    DWORD read = 0;
    bool ok = GetFileSizeEx(file, &size) && size.QuadPart <= kMaxEntrySize;
    if (ok)
    {
        bytes.resize(static_cast<std::size_t>(size.QuadPart));
        ok = bytes.empty() ||
             (ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) && read == bytes.size());
    }
    CloseHandle(file);
    if (!ok)
        fault = "unreadable or too big";
    return ok;
}

// Checks an entry's bytes against the name it was asked for; the reason of a refusal in fault.
bool CheckEntry(const std::vector<uint8_t>& bytes, const std::string& name, const char*& fault)
{
    if (bytes.size() < kHeaderSize)
        fault = "shorter than its header";
    else if (std::memcmp(bytes.data(), kMagic, sizeof(kMagic)) != 0 || ReadU32(&bytes[4]) != kLayout)
        fault = "not a shader cache entry";
    else
    {
        const uint64_t nameSize = ReadU32(&bytes[8]), vsSize = ReadU32(&bytes[12]), psSize = ReadU32(&bytes[16]);
        const uint8_t* body = bytes.data() + kHeaderSize;
        if (nameSize + vsSize + psSize != bytes.size() - kHeaderSize)
            fault = "its sizes do not match the file";
        else if (vsSize == 0 || psSize == 0)
            fault = "a stage has no code";
        else if (nameSize != name.size() || std::memcmp(body, name.data(), name.size()) != 0)
            fault = "it belongs to another entry";
        else if (Digest(name, body + nameSize, vsSize, body + nameSize + vsSize, psSize) !=
                 std::string(reinterpret_cast<const char*>(&bytes[20]), kDigestSize))
            fault = "its checksum is wrong";
        else
            return true;
    }
    return false;
}

} // namespace

CGpuProgramCompileThread::CGpuProgramCompileThread()
    : Thread("GpuProgramCompileThread"), m_hWake(CreateEventA(nullptr, FALSE, FALSE, nullptr)), m_nCacheHits(0),
      m_nCompiles(0), m_nFailures(0)
{
}

CGpuProgramCompileThread::~CGpuProgramCompileThread()
{
    if (m_hWake)
        CloseHandle(m_hWake);
}

void CGpuProgramCompileThread::AddRes(ShaderAsyncInfo* info)
{
    if (!info)
        return;
    m_queueLock.Enter();
    m_queue.push_back(info);
    m_queueLock.Leave();
    if (m_hWake)
        SetEvent(m_hWake);
}

ShaderAsyncInfo* CGpuProgramCompileThread::PopRes()
{
    ShaderAsyncInfo* info = nullptr;
    m_queueLock.Enter();
    if (!m_queue.empty())
    {
        info = m_queue.front();
        m_queue.pop_front();
    }
    m_queueLock.Leave();
    return info;
}

std::size_t CGpuProgramCompileThread::GetQueueLength()
{
    m_queueLock.Enter();
    std::size_t n = m_queue.size();
    m_queueLock.Leave();
    return n;
}

uint32_t CGpuProgramCompileThread::main()
{
    while (IsRunning())
    {
        ShaderAsyncInfo* info = PopRes();
        if (!info)
        {
            // Woken by AddRes; the timeout keeps a stop request from waiting long.
            WaitForSingleObject(m_hWake, 10);
            continue;
        }
        info->m_bFromCache = false;
        bool ok = CompileShader(info);
        if (!ok)
            ++m_nFailures;
        else if (info->m_bFromCache)
            ++m_nCacheHits;
        else
            ++m_nCompiles;
        info->m_nState.store(ok ? VARIANT_COMPILED : VARIANT_FAILED, std::memory_order_release);
    }
    return 0;
}

std::string CGpuProgramCompileThread::CacheEntryPath(const char* name)
{
    return GetArchiveMananger()->CachePath(std::string("shadercache/") + name + ".bin");
}

bool CGpuProgramCompileThread::LoadCache(ShaderAsyncInfo* info, const char* name)
{
    if (!info || !name || !*name)
        return false;
    info->m_bFromCache = false;
    const std::string path = CacheEntryPath(name);
    std::vector<uint8_t> bytes;
    const char* fault = nullptr;
    if (!ReadEntryFile(path, bytes, fault) || !CheckEntry(bytes, name, fault))
    {
        if (fault)
            LogWarning("Shader cache entry %s refused (%s); compiling it again", path.c_str(), fault);
        return false;
    }
    const std::size_t nameSize = ReadU32(&bytes[8]), vsSize = ReadU32(&bytes[12]), psSize = ReadU32(&bytes[16]);
    const uint8_t* code = bytes.data() + kHeaderSize + nameSize;
    info->ResizeVS(vsSize);
    std::memcpy(info->GetVSData(), code, vsSize);
    info->ResizePS(psSize);
    std::memcpy(info->GetPSData(), code + vsSize, psSize);
    info->m_bFromCache = true;
    return true;
}

void CGpuProgramCompileThread::SaveCache(ShaderAsyncInfo* info, const char* name)
{
    if (!info || !name || !*name || info->GetVSSize() == 0 || info->GetPSSize() == 0)
        return;
    const std::string entryName(name);
    std::vector<uint8_t> bytes(kMagic, kMagic + sizeof(kMagic));
    AppendU32(bytes, kLayout);
    AppendU32(bytes, static_cast<uint32_t>(entryName.size()));
    AppendU32(bytes, static_cast<uint32_t>(info->GetVSSize()));
    AppendU32(bytes, static_cast<uint32_t>(info->GetPSSize()));
    const std::string digest =
        Digest(entryName, info->GetVSData(), info->GetVSSize(), info->GetPSData(), info->GetPSSize());
    bytes.insert(bytes.end(), digest.begin(), digest.end());
    bytes.insert(bytes.end(), entryName.begin(), entryName.end());
    bytes.insert(bytes.end(), info->GetVSData(), info->GetVSData() + info->GetVSSize());
    bytes.insert(bytes.end(), info->GetPSData(), info->GetPSData() + info->GetPSSize());

    // Written aside and moved into place, so that a reader never meets half an entry.
    const std::string path = CacheEntryPath(name);
    const std::string part = path + ".part";
    bool ok = MakeParentFolders(path);
    if (ok)
    {
        FILE* f = std::fopen(part.c_str(), "wb");
        ok = f && std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
        if (f)
            ok = std::fclose(f) == 0 && ok;
        ok = ok && MoveFileExA(part.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING);
        if (!ok)
            std::remove(part.c_str());
    }
    if (!ok)
        LogWarning("Shader cache entry %s not saved; it will be compiled again next time", path.c_str());
}

void CGpuProgramCompileThread::Shutdown()
{
    RequestStop();
    if (m_hWake)
        SetEvent(m_hWake);
    Wait();
    // Nobody will compile these now: fail them so their owners stop waiting.
    while (ShaderAsyncInfo* info = PopRes())
        info->m_nState.store(VARIANT_FAILED, std::memory_order_release);
}

} // namespace kv
