// The render system object before a device (the entry point, the state cache reset, the format questions, the
// error reports) and the engine stand-in's own members that the plug-in builds on: the log capture, the window
// registry behind CRenderSystem::Reset, Destroy, and the compile thread with its queue, shader cache and cache files.
#include "D3D9RenderSystem.h"
#include "D3D9ShaderConstants.h"
#include "StandInTarget.h"

#include "engine/ArchiveManager.h"
#include "engine/Globals.h"
#include "engine/GpuProgramCompileThread.h"
#include "engine/Log.h"
#include "engine/RenderWindow.h"
#include "engine/Viewport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <thread>

using namespace kv;

namespace
{

const uint32_t kUnknown = 0xABCDEF;

template <class T>
bool AllUnknown(const T& values)
{
    return std::all_of(std::begin(values), std::end(values), [](auto v) { return uintptr_t(v) == kUnknown; });
}

TEST(PluginEntry, TheObjectAndItsRuntimeWithoutADeviceResetCachesAskFormatsAndVerify)
{
    // What the object holds and logs when made, and its end, are the proxy plug-in suite's.
    ClearLog();
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    ASSERT_NE(nullptr, rs.get());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    EXPECT_EQ(nullptr, rs->GetD3D9Device());
    EXPECT_FALSE(rs->m_pMainWindow);

    // Leftovers of an earlier life that a reset of the caches overwrites: every
    // shadow unknown, offsets, frequencies and constant queues at their defaults.
    d3d->m_renderStates.assign(3, 7);
    g_nVSDirtyCount = g_nPSDirtyCount = 3;
    d3d->_resetStateCaches();
    EXPECT_EQ(256u, d3d->m_renderStates.size());
    EXPECT_TRUE(AllUnknown(d3d->m_renderStates)) << "render states";
    ASSERT_EQ(261u, d3d->m_samplerStates.size());
    for (const auto& sampler : d3d->m_samplerStates)
        ASSERT_TRUE(sampler.size() == 16u && AllUnknown(sampler)) << "sampler states";
    EXPECT_TRUE(AllUnknown(d3d->m_textures) && AllUnknown(d3d->m_streamBuffers) &&
                AllUnknown(d3d->m_pCurrentRenderTargets))
        << "textures, streams, targets";
    EXPECT_TRUE(AllUnknown(std::vector<const void*>{d3d->m_pCurrentVertexShader, d3d->m_pCurrentPixelShader,
                                                    d3d->m_pCurrentIndexBuffer, d3d->m_pCurrentVertexDeclaration,
                                                    d3d->m_pCurrentDepthStencil}))
        << "shaders, indices, declaration, depth stencil";
    EXPECT_EQ(
        (std::vector<int>{0, 0, 1, 1, 0, 0}),
        (std::vector<int>{int(d3d->m_streamOffsets[0]), int(d3d->m_streamOffsets[1]), int(d3d->m_streamFrequencies[0]),
                          int(d3d->m_streamFrequencies[1]), g_nVSDirtyCount, g_nPSDirtyCount}));

    // Without a main window no device is made, but the adapter, its capabilities
    // and its display format are read: all the format questions need.
    EXPECT_FALSE(d3d->BuildDevice(false, 0));
    EXPECT_EQ(nullptr, d3d->m_pD3D9Device);
    EXPECT_EQ(D3DDEVTYPE_HAL, d3d->m_d3dcaps.DeviceType);
    EXPECT_EQ(d3d->m_d3dcaps.AdapterOrdinal, d3d->m_nAdapter);
    D3DDISPLAYMODE mode;
    ASSERT_EQ(D3D_OK, d3d->m_pD3D9->GetAdapterDisplayMode(d3d->m_nAdapter, &mode));
    EXPECT_EQ(mode.Format, d3d->m_adapterFormat);
    EXPECT_EQ(std::vector<std::string>{"BuildDevice: there is no main render window to make the device on"},
              GetLogTexts(LOG_ERROR));
    ClearLog();

    // Depth-stencil wins over render target, render target over dynamic; any other
    // word passes unchanged. A depth format is a texture only as a depth-stencil
    // surface; compressed formats can be sampled but not rendered to; a format
    // without a Direct3D partner is never available.
    EXPECT_EQ(
        (std::vector<DWORD>{D3DUSAGE_DEPTHSTENCIL, D3DUSAGE_RENDERTARGET, D3DUSAGE_DYNAMIC, 0, 0x40000}),
        (std::vector<DWORD>{CD3D9RenderSystem::TextureUsageToD3D(0x120), CD3D9RenderSystem::TextureUsageToD3D(0x22),
                            CD3D9RenderSystem::TextureUsageToD3D(0x03), CD3D9RenderSystem::TextureUsageToD3D(0x11),
                            CD3D9RenderSystem::TextureUsageToD3D(0x40000)}));
    EXPECT_EQ((std::vector<bool>{true, false, false, true, false, false}),
              (std::vector<bool>{
                  rs->CheckTextureFormat(PF_D24S8, TU_DEPTHSTENCIL), rs->CheckTextureFormat(PF_D24S8, TU_RENDERTARGET),
                  rs->CheckTextureFormat(PF_A8R8G8B8, TU_DEPTHSTENCIL), rs->CheckTextureFormat(PF_DXT1, TU_STATIC),
                  rs->CheckTextureFormat(PF_DXT1, TU_RENDERTARGET),
                  rs->CheckTextureFormat(static_cast<PixelFormat>(999), TU_STATIC)}));
    EXPECT_EQ(0u, GetLogLineCount());

    // D3D9Verify logs negative results only.
    EXPECT_TRUE(D3D9VerifyImpl("D3D9RenderSystem/Somewhere", 12, D3D_OK) &&
                D3D9VerifyImpl("D3D9RenderSystem/Somewhere", 12, S_FALSE, "Failed to SetIndices"));
    EXPECT_EQ(0u, GetLogLineCount());
    EXPECT_FALSE(D3D9VerifyImpl("D3D9RenderSystem/Elsewhere", 34, D3DERR_DEVICELOST, "Failed to SetIndices"));
    const std::vector<LogLine> lines = GetLogLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(
        "D3D9RenderSystem/Elsewhere:34 D3D9Verify:-2005530520, D3DERR_DEVICELOST, Device lost, Failed to SetIndices",
        lines[0].file + ":" + std::to_string(lines[0].line) + " " + lines[0].text);
    EXPECT_EQ(LOG_ERROR, lines[0].level);
}

// The least window the engine's base accepts: everything the plug-in would
// implement answers plainly.
class PlainWindow : public StandInTarget<CRenderWindow>
{
public:
    explicit PlainWindow(int* deaths = nullptr) : m_pDeaths(deaths) {}
    ~PlainWindow() override
    {
        if (m_pDeaths)
            ++*m_pDeaths;
    }
    bool GetAttribute(const char*, void*) override { return false; }
    bool SetDepthTexture(CTexture*) override { return false; }
    void detachDepthBuffer() override { m_pDepthBuffer = nullptr; }
    bool _beginUpdate() override { return true; }

    int* m_pDeaths;
};

HWND Handle(uintptr_t n)
{
    return reinterpret_cast<HWND>(n);
}

TEST(EngineLog, KeepsLevelPositionAndExactTextFromAnyThread)
{
    ClearLog();
    SetLogEcho(false);
    LogErrorImpl("D3D9RenderSystem/D3D9Texture", 77, "Failed to CreateTexture:%s %d %#x %c %.2f", "a.dds", -3, 0x20u,
                 'Z', 0.5);
    LogWarning("warn %u", 7u);
    LogInfo("info %s", "x");
    std::vector<std::string> lines;
    for (const LogLine& l : GetLogLines())
        lines.push_back(std::to_string(l.level) + " " + l.file + ":" + std::to_string(l.line) + " " + l.text);
    EXPECT_EQ(
        (std::vector<std::string>{std::to_string(LOG_ERROR) +
                                      " D3D9RenderSystem/D3D9Texture:77 Failed to CreateTexture:a.dds -3 0x20 Z 0.50",
                                  std::to_string(LOG_WARNING) + " :0 warn 7", std::to_string(LOG_INFO) + " :0 info x"}),
        lines);
    EXPECT_EQ(std::vector<std::string>{"warn 7"}, GetLogTexts(LOG_WARNING));
}

TEST(EngineRenderSystem, WindowsResetDestroyAndBoundTargets)
{
    ClearLog();
    ref_ptr<PlainWindow> w = new PlainWindow;
    EXPECT_FALSE(w->Init(nullptr, 640, 480, false, true, 4));
    ASSERT_TRUE(w->Init(Handle(0x1234), 640, 480, true, true, 260));
    EXPECT_EQ("640 480 1 1 4 0", std::to_string(w->m_nWidth) + " " + std::to_string(w->m_nHeight) + " " +
                                     std::to_string(w->m_bFullScreen) + " " + std::to_string(w->m_bVSync) + " " +
                                     std::to_string(w->getFSAA()) + " " + std::to_string(w->m_bIsMainWindow))
        << "the 260 samples cut to 8 bits";
    EXPECT_FALSE(w->Reset(0, 480, false, false, 0) || w->Reset(640, 0, false, false, 0));
    EXPECT_EQ(640u, w->m_nWidth);
    EXPECT_TRUE(w->Reset(800, 600, false, false, 2));
    EXPECT_EQ("800 600 0 2", std::to_string(w->m_nWidth) + " " + std::to_string(w->m_nHeight) + " " +
                                 std::to_string(w->m_bFullScreen) + " " + std::to_string(w->getFSAA()));

    // The render system's Reset reaches the window that owns the handle; that
    // window's refusal is the answer; no owner, or a dead one, a warning.
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    ref_ptr<PlainWindow> b = new PlainWindow;
    ASSERT_TRUE(b->Init(Handle(0x20), 200, 200, false, false, 0));
    EXPECT_TRUE(rs->Reset(Handle(0x20), 320, 240, false, true, 0));
    EXPECT_EQ(320u, b->m_nWidth);
    EXPECT_FALSE(rs->Reset(Handle(0x1234), 0, 240, false, false, 0));
    EXPECT_EQ(0u, GetLogLineCount());
    EXPECT_FALSE(rs->Reset(Handle(0x30), 320, 240, false, false, 0));
    b = nullptr;
    EXPECT_FALSE(rs->Reset(Handle(0x20), 320, 240, false, false, 0));
    EXPECT_EQ(2u, GetLogTexts(LOG_WARNING).size());

    // A bound target that dies takes the viewport's target along, not its size.
    rs->m_activeRenderTarget.assign(w.get());
    rs->m_viewport = CViewport(w.get(), 1, 2, 3, 4);
    EXPECT_EQ(w.get(), rs->_getRenderTarget());
    w = nullptr;
    EXPECT_EQ(nullptr, rs->_getRenderTarget());
    EXPECT_EQ(nullptr, rs->_getViewport().getTarget());
    EXPECT_EQ(3, rs->_getViewport().getActualWidth());

    // Destroy lets go of the main window and the bound target.
    int deaths = 0;
    PlainWindow* main = new PlainWindow(&deaths);
    ASSERT_TRUE(main->Init(Handle(0x40), 64, 32, false, false, 0));
    rs->m_pMainWindow = main;
    rs->m_activeRenderTarget.assign(main);
    rs->m_viewport = CViewport(main, 0.25f, 0.5f, 0.5f, 0.25f);
    const CViewport& vp = rs->_getViewport();
    EXPECT_EQ("16 16 32 8", std::to_string(vp.getActualLeft()) + " " + std::to_string(vp.getActualTop()) + " " +
                                std::to_string(vp.getActualWidth()) + " " + std::to_string(vp.getActualHeight()));
    rs->Destroy();
    EXPECT_EQ(1, deaths);
    EXPECT_FALSE(rs->m_pMainWindow);
    EXPECT_EQ(nullptr, rs->_getRenderTarget());
    EXPECT_EQ(nullptr, rs->_getViewport().getTarget());
}

// Compiles by rule: a record whose macro text is "fail" fails. The order is read
// once the thread has ended.
struct RuleCompileThread : CGpuProgramCompileThread
{
    bool CompileShader(ShaderAsyncInfo* info) override
    {
        order.push_back(info);
        return info->m_strMacro != "fail";
    }
    std::vector<ShaderAsyncInfo*> order;
};

TEST(CompileThread, CompilesInQueueOrderAndShutdownFailsTheRest)
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
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (infos[4]->m_nState.load() == VARIANT_QUEUED && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    thread.Shutdown();
    EXPECT_FALSE(thread.IsRunning());
    std::vector<int> states;
    for (const auto& info : infos)
        states.push_back(info->m_nState.load());
    EXPECT_EQ(
        (std::vector<int>{VARIANT_COMPILED, VARIANT_COMPILED, VARIANT_FAILED, VARIANT_COMPILED, VARIANT_COMPILED}),
        states);
    std::vector<ShaderAsyncInfo*> expected;
    for (const auto& info : infos)
        expected.push_back(info.get());
    EXPECT_EQ(expected, thread.order);

    RuleCompileThread idle; // never started: nothing will compile
    ShaderAsyncInfo a(nullptr), b(nullptr);
    a.m_nState.store(VARIANT_QUEUED);
    b.m_nState.store(VARIANT_QUEUED);
    idle.AddRes(&a);
    idle.AddRes(&b);
    EXPECT_EQ(2u, idle.GetQueueLength());
    idle.Shutdown();
    EXPECT_EQ((std::vector<int>{VARIANT_FAILED, VARIANT_FAILED}), (std::vector<int>{a.m_nState, b.m_nState}));
    EXPECT_EQ(0u, idle.GetQueueLength());
    EXPECT_TRUE(idle.order.empty());
}

TEST(ArchiveManager, CacheFilesGoIntoNewFolders)
{
    char temp[MAX_PATH];
    GetTempPathA(MAX_PATH, temp);
    const std::string root = std::string(temp) + "kv_cache_" + std::to_string(GetCurrentProcessId());
    GetArchiveMananger()->SetCacheRoot(root);
    const char text[] = "error X3000";
    EXPECT_TRUE(GetArchiveMananger()->WriteCacheFile("dumps/water_vs.txt", text, sizeof(text) - 1));
    EXPECT_EQ("dumps/water_vs.txt", GetArchiveMananger()->GetLastWrittenName());
    std::ifstream written(root + "/dumps/water_vs.txt", std::ios::binary);
    EXPECT_EQ(text, std::string(std::istreambuf_iterator<char>(written), {}));
    EXPECT_FALSE(GetArchiveMananger()->WriteCacheFile("", text, 1));
    EXPECT_FALSE(GetArchiveMananger()->WriteCacheFile("x.txt", nullptr, 4));
    GetArchiveMananger()->SetCacheRoot("cache");
}

} // namespace
