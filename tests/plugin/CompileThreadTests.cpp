// The engine's compile thread, queue and shader cache, and the shader sources
// it reads: what the plug-in's compile thread builds on.
#include "engine/ArchiveManager.h"
#include "engine/GpuProgramCompileThread.h"
#include "engine/GpuProgramManager.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

using namespace kv;

namespace
{

// Compiles by rule: a record whose macro text is "fail" fails.
class RuleCompileThread : public CGpuProgramCompileThread
{
public:
    bool CompileShader(ShaderAsyncInfo* info) override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_order.push_back(info);
        }
        return info->m_strMacro != "fail";
    }
    std::vector<ShaderAsyncInfo*> Order()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_order;
    }

private:
    std::mutex m_mutex;
    std::vector<ShaderAsyncInfo*> m_order;
};

bool WaitForState(const ShaderAsyncInfo& info, int state)
{
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (info.m_nState.load(std::memory_order_acquire) != state)
    {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::string TempFolder()
{
    char base[MAX_PATH];
    GetTempPathA(MAX_PATH, base);
    return std::string(base) + "kv_cache_" + std::to_string(GetCurrentProcessId());
}

TEST(CompileThread, CompilesInQueueOrderAndMarksEachRecord)
{
    RuleCompileThread thread;
    std::vector<std::unique_ptr<ShaderAsyncInfo>> infos;
    for (int i = 0; i < 5; ++i)
    {
        infos.emplace_back(new ShaderAsyncInfo(nullptr));
        infos.back()->SetMacro(i == 2 ? "fail" : "ok", i, 0, 0);
        infos.back()->m_nState.store(VARIANT_QUEUED);
    }
    // Queued before the start and after it.
    thread.AddRes(infos[0].get());
    thread.AddRes(infos[1].get());
    thread.Start();
    for (int i = 2; i < 5; ++i)
        thread.AddRes(infos[i].get());

    for (int i = 0; i < 5; ++i)
        ASSERT_TRUE(WaitForState(*infos[i], i == 2 ? VARIANT_FAILED : VARIANT_COMPILED)) << i;
    std::vector<ShaderAsyncInfo*> order = thread.Order();
    ASSERT_EQ(5u, order.size());
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(infos[i].get(), order[i]);
    thread.Shutdown();
    EXPECT_FALSE(thread.IsRunning());
}

TEST(CompileThread, ShutdownFailsWhatIsStillQueued)
{
    RuleCompileThread thread; // never started: nothing will compile
    ShaderAsyncInfo a(nullptr), b(nullptr);
    a.m_nState.store(VARIANT_QUEUED);
    b.m_nState.store(VARIANT_QUEUED);
    thread.AddRes(&a);
    thread.AddRes(&b);
    EXPECT_EQ(2u, thread.GetQueueLength());
    thread.Shutdown();
    EXPECT_EQ(VARIANT_FAILED, a.m_nState.load());
    EXPECT_EQ(VARIANT_FAILED, b.m_nState.load());
    EXPECT_EQ(0u, thread.GetQueueLength());
    EXPECT_TRUE(thread.Order().empty());
}

TEST(CompileThread, CacheEntriesReadBack)
{
    std::string root = TempFolder();
    GetArchiveMananger()->SetCacheRoot(root);
    RuleCompileThread thread;

    ShaderAsyncInfo saved(nullptr);
    saved.ResizeVS(3);
    saved.GetVSData()[0] = 1;
    saved.GetVSData()[2] = 3;
    saved.ResizePS(5);
    saved.GetPSData()[4] = 9;
    thread.SaveCache(&saved, "c/water_0123456789abcdef0123456789abcdef");

    ShaderAsyncInfo loaded(nullptr);
    ASSERT_TRUE(thread.LoadCache(&loaded, "c/water_0123456789abcdef0123456789abcdef"));
    EXPECT_EQ(saved.m_VSCode, loaded.m_VSCode);
    EXPECT_EQ(saved.m_PSCode, loaded.m_PSCode);

    ShaderAsyncInfo other(nullptr);
    EXPECT_FALSE(thread.LoadCache(&other, "a/water_0123456789abcdef0123456789abcdef")); // missing
    EXPECT_EQ(0u, other.GetVSSize());

    // Nothing is saved without code for both stages.
    ShaderAsyncInfo empty(nullptr);
    empty.ResizeVS(4);
    thread.SaveCache(&empty, "c/halfdone");
    EXPECT_FALSE(thread.LoadCache(&other, "c/halfdone"));
    GetArchiveMananger()->SetCacheRoot("cache");
}

TEST(ArchiveManager, WritesCacheFilesIntoNewFolders)
{
    std::string root = TempFolder();
    GetArchiveMananger()->SetCacheRoot(root);
    const char text[] = "error X3000";
    EXPECT_TRUE(GetArchiveMananger()->WriteCacheFile("dumps/water_vs.txt", text, sizeof(text) - 1));
    EXPECT_EQ("dumps/water_vs.txt", GetArchiveMananger()->GetLastWrittenName());
    FILE* f = std::fopen((root + "/dumps/water_vs.txt").c_str(), "rb");
    ASSERT_NE(nullptr, f);
    char back[32] = {};
    EXPECT_EQ(sizeof(text) - 1, std::fread(back, 1, sizeof(back), f));
    std::fclose(f);
    EXPECT_STREQ(text, back);
    EXPECT_FALSE(GetArchiveMananger()->WriteCacheFile("", text, 1));
    EXPECT_FALSE(GetArchiveMananger()->WriteCacheFile("x.txt", nullptr, 4));
    GetArchiveMananger()->SetCacheRoot("cache");
}

TEST(GpuProgramManager, OpensRegisteredSourcesAndRefusesMissingOnes)
{
    CGpuProgramManager* m = GetGpuProgramManager();
    EXPECT_EQ(&m->GetDX9ShaderMutex(), &GetGpuProgramManager()->GetDX9ShaderMutex());
    m->RegisterShaderSource("shader/editor/shadercomplexityp.fx", "float4 ps() : COLOR0 { return 1; }");
    ref_ptr<CMemoryDataStream> stream;
    m->GetDX9ShaderMutex().Enter();
    const char* text = m->OpenDX9Shader("shader/editor/shadercomplexityp.fx", stream);
    m->GetDX9ShaderMutex().Leave();
    ASSERT_NE(nullptr, text);
    ASSERT_TRUE(stream);
    EXPECT_STREQ("float4 ps() : COLOR0 { return 1; }", text);
    EXPECT_EQ("shader/editor/shadercomplexityp.fx", stream->getName());
    EXPECT_EQ(std::strlen(text), stream->size());

    ref_ptr<CMemoryDataStream> none = stream;
    EXPECT_EQ(nullptr, m->OpenDX9Shader("shader/missing.fx", none));
    EXPECT_FALSE(none);
    EXPECT_EQ(nullptr, m->OpenDX9Shader(nullptr, none));
    m->ClearShaderSources();
    EXPECT_EQ(nullptr, m->OpenDX9Shader("shader/editor/shadercomplexityp.fx", none));
    // The text already handed out lives on with its stream.
    EXPECT_STREQ("float4 ps() : COLOR0 { return 1; }", text);
}

} // namespace
