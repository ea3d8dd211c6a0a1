#include "engine/GpuProgramCompileThread.h"
#include "engine/ArchiveManager.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace kv
{
namespace
{

// A cache entry: u32 vertex size, vertex code, u32 pixel size, pixel code.
std::string CacheEntryPath(const char* name)
{
    return GetArchiveMananger()->CachePath(std::string("shadercache/") + name + ".bin");
}

bool ReadBlock(FILE* f, std::vector<uint8_t>& out)
{
    uint32_t size = 0;
    if (std::fread(&size, sizeof(size), 1, f) != 1 || size == 0)
        return false;
    // Never trust a size beyond what the file still holds.
    long here = std::ftell(f);
    if (here < 0 || std::fseek(f, 0, SEEK_END) != 0)
        return false;
    long end = std::ftell(f);
    if (end < here || static_cast<unsigned long>(end - here) < size || std::fseek(f, here, SEEK_SET) != 0)
        return false;
    out.resize(size);
    return std::fread(out.data(), 1, size, f) == size;
}

} // namespace

CGpuProgramCompileThread::CGpuProgramCompileThread()
    : Thread("GpuProgramCompileThread"), m_hWake(CreateEventA(nullptr, FALSE, FALSE, nullptr))
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
        bool ok = CompileShader(info);
        info->m_nState.store(ok ? VARIANT_COMPILED : VARIANT_FAILED, std::memory_order_release);
    }
    return 0;
}

bool CGpuProgramCompileThread::LoadCache(ShaderAsyncInfo* info, const char* name)
{
    if (!info || !name || !*name)
        return false;
    FILE* f = std::fopen(CacheEntryPath(name).c_str(), "rb");
    if (!f)
        return false;
    std::vector<uint8_t> vs, ps;
    bool ok = ReadBlock(f, vs) && ReadBlock(f, ps);
    if (ok)
    {
        // Anything behind the two blocks means the entry is not what was saved.
        int extra = std::fgetc(f);
        ok = extra == EOF;
    }
    std::fclose(f);
    if (!ok)
        return false;
    info->ResizeVS(vs.size());
    std::copy(vs.begin(), vs.end(), info->GetVSData());
    info->ResizePS(ps.size());
    std::copy(ps.begin(), ps.end(), info->GetPSData());
    return true;
}

void CGpuProgramCompileThread::SaveCache(ShaderAsyncInfo* info, const char* name)
{
    if (!info || !name || !*name || info->GetVSSize() == 0 || info->GetPSSize() == 0)
        return;
    std::string path = CacheEntryPath(name);
    if (!MakeParentFolders(path))
        return;
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f)
        return;
    uint32_t vsSize = static_cast<uint32_t>(info->GetVSSize());
    uint32_t psSize = static_cast<uint32_t>(info->GetPSSize());
    bool ok = std::fwrite(&vsSize, sizeof(vsSize), 1, f) == 1 &&
              std::fwrite(info->GetVSData(), 1, vsSize, f) == vsSize &&
              std::fwrite(&psSize, sizeof(psSize), 1, f) == 1 && std::fwrite(info->GetPSData(), 1, psSize, f) == psSize;
    ok = std::fclose(f) == 0 && ok;
    if (!ok)
        std::remove(path.c_str()); // half an entry would read back as damaged anyway
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
