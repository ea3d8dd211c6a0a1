#pragma once
// The background thread that compiles program variants. The engine owns the
// queue, the loop and the shader cache; a render system supplies CompileShader.
#include "base/CriticalSection.h"
#include "base/Thread.h"
#include "engine/Export.h"
#include "engine/ShaderAsyncInfo.h"

#include <deque>

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
    // True only when valid code for both stages was read into the record.
    virtual bool LoadCache(ShaderAsyncInfo* info, const char* name);
    // Stores both stages under the name so that LoadCache reads them back.
    virtual void SaveCache(ShaderAsyncInfo* info, const char* name);

    // Queues a record and wakes the thread. Any thread may call it.
    void AddRes(ShaderAsyncInfo* info);
    // Ends the thread and fails whatever is still queued, so nobody waits on it.
    void Shutdown();
    std::size_t GetQueueLength();

private:
    ShaderAsyncInfo* PopRes();

    CriticalSection m_queueLock;
    std::deque<ShaderAsyncInfo*> m_queue;
    void* m_hWake; // auto-reset event
};

} // namespace kv
