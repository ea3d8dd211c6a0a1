#pragma once
// The background thread that compiles program variants. The engine owns the
// queue, the loop and the shader cache; a render system supplies CompileShader.
#include "base/CriticalSection.h"
#include "base/Thread.h"
#include "engine/Export.h"
#include "engine/ShaderAsyncInfo.h"

#include <atomic>
#include <deque>
#include <string>

namespace kv
{

class KV_API CGpuProgramCompileThread : public Thread
{
public:
    CGpuProgramCompileThread();
    ~CGpuProgramCompileThread() override;

    // Takes the queued records one at a time, in queue order, and leaves each
    // in state VARIANT_COMPILED or VARIANT_FAILED.
    uint32_t main() override;
    virtual bool CompileShader(ShaderAsyncInfo* info) = 0;
    // True only when valid code for both stages was read into the record (and
    // then m_bFromCache is set). An entry that is short, damaged or another
    // entry's file is refused with a warning, so the caller compiles again.
    virtual bool LoadCache(ShaderAsyncInfo* info, const char* name);
    // Stores both stages under the name so that LoadCache reads them back. A
    // save that fails is only warned of: it costs the next run a compile.
    virtual void SaveCache(ShaderAsyncInfo* info, const char* name);
    // The file of a cache entry: "shadercache/<name>.bin" in the cache area.
    static std::string CacheEntryPath(const char* name);

    // Queues a record and wakes the thread. Any thread may call it.
    void AddRes(ShaderAsyncInfo* info);
    // Ends the thread and fails whatever is still queued, so nobody waits on it.
    void Shutdown();
    std::size_t GetQueueLength();

    // What became of the records taken so far: code from the cache, code
    // compiled, and failures.
    unsigned GetCacheHitCount() const { return m_nCacheHits.load(); }
    unsigned GetCompileCount() const { return m_nCompiles.load(); }
    unsigned GetFailureCount() const { return m_nFailures.load(); }

private:
    ShaderAsyncInfo* PopRes();

    CriticalSection m_queueLock;
    std::deque<ShaderAsyncInfo*> m_queue;
    void* m_hWake; // auto-reset event
    std::atomic<unsigned> m_nCacheHits;
    std::atomic<unsigned> m_nCompiles;
    std::atomic<unsigned> m_nFailures;
};

} // namespace kv
