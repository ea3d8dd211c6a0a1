// The engine stand-in's own members that the plug-in relies on: the log capture,
// the window registry behind CRenderSystem::Reset, Destroy, the counters.
#include "D3D9RenderSystem.h"

#include "engine/Colour.h"
#include "engine/IndexData.h"
#include "engine/Log.h"
#include "engine/RenderWindow.h"
#include "engine/VertexData.h"
#include "engine/Viewport.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

using namespace kv;

namespace
{

// The least window the engine's base accepts: everything the plug-in would
// implement answers plainly.
class PlainWindow : public CRenderWindow
{
public:
    explicit PlainWindow(int* deaths = nullptr) : m_pDeaths(deaths) {}
    ~PlainWindow() override
    {
        if (m_pDeaths)
            ++*m_pDeaths;
    }
    bool CopyToTexture(CTexture*) override { return false; }
    bool CopyToTarget(CRenderTarget*, const RECT*, const RECT*) override { return false; }
    bool GetAttribute(const char*, void*) override { return false; }
    unsigned getWidth() const override { return m_nWidth; }
    unsigned getHeight() const override { return m_nHeight; }
    PixelFormat getFormat() const override { return m_eFormat; }
    bool SetDepthTexture(CTexture*) override { return false; }
    void detachDepthBuffer() override { m_pDepthBuffer = nullptr; }
    void dropDepthBuffer() override { m_pDepthBuffer = nullptr; }
    bool _beginUpdate() override { return true; }
    void _endUpdate() override {}
    void swapBuffers() override {}
    bool IsAutoUpdate() override { return m_bAutoUpdate; }
    void SetActive(bool active) override { m_bActive = active; }
    bool IsActive() override { return m_bActive; }
    void SetHwGamma(bool enable) override { m_bHwGamma = enable; }
    bool IsHwGamma() override { return m_bHwGamma; }
    unsigned char getFSAA() override { return m_nFSAA; }

    int* m_pDeaths;
};

HWND FakeHandle(uintptr_t n)
{
    return reinterpret_cast<HWND>(n);
}

TEST(EngineLog, KeepsLevelPositionAndExactText)
{
    ClearLog();
    LogErrorImpl("D3D9RenderSystem/D3D9Texture", 77, "Failed to CreateTexture:%s %d %#x %c %.2f", "a.dds", -3, 0x20u,
                 'Z', 0.5);
    LogWarning("warn %u", 7u);
    LogInfo("info %s", "x");
    std::vector<LogLine> lines = GetLogLines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("D3D9RenderSystem/D3D9Texture:77", lines[0].file + ":" + std::to_string(lines[0].line));
    EXPECT_EQ("Failed to CreateTexture:a.dds -3 0x20 Z 0.50", lines[0].text);
    EXPECT_EQ((std::vector<LogLevel>{LOG_ERROR, LOG_WARNING, LOG_INFO}),
              (std::vector<LogLevel>{lines[0].level, lines[1].level, lines[2].level}));
    EXPECT_EQ("info x", lines[2].text);
    EXPECT_EQ(std::vector<std::string>({"warn 7"}), GetLogTexts(LOG_WARNING));
    ClearLog();
    EXPECT_EQ(0u, GetLogLineCount());
}

TEST(EngineLog, LongMessagesAndLinesFromAnotherThread)
{
    ClearLog();
    SetLogEcho(false);
    std::string longText(8999, 'e');
    std::thread worker([&] {
        for (int i = 0; i < 200; ++i)
            LogErrorImpl("D3D9RenderSystem/D3D9HLSLCompileThread", i, "%s", longText.c_str());
    });
    for (int i = 0; i < 200; ++i)
        LogInfo("main %d", i);
    worker.join();
    SetLogEcho(true);
    std::vector<LogLine> lines = GetLogLines();
    ASSERT_EQ(400u, lines.size());
    int errors = 0;
    for (const LogLine& l : lines)
    {
        if (l.level == LOG_ERROR)
        {
            ASSERT_EQ(longText, l.text);
            ASSERT_EQ(errors, l.line); // the worker's lines keep their order
            ++errors;
        }
    }
    EXPECT_EQ(200, errors);
    ClearLog();
}

TEST(EngineWindow, InitAndResetRefuseEmptySettings)
{
    ref_ptr<PlainWindow> w = new PlainWindow;
    EXPECT_FALSE(w->Init(nullptr, 640, 480, false, true, 4));
    EXPECT_EQ(nullptr, w->m_hWnd);
    EXPECT_TRUE(w->Init(FakeHandle(0x1234), 640, 480, true, true, 260));
    EXPECT_EQ(640u, w->m_nWidth);
    EXPECT_EQ(480u, w->m_nHeight);
    EXPECT_TRUE(w->m_bFullScreen);
    EXPECT_TRUE(w->m_bVSync);
    EXPECT_EQ(4, w->getFSAA()); // 260 cut to 8 bits
    EXPECT_FALSE(w->m_bIsMainWindow);

    EXPECT_FALSE(w->Reset(0, 480, false, false, 0));
    EXPECT_FALSE(w->Reset(640, 0, false, false, 0));
    EXPECT_EQ(640u, w->m_nWidth);
    EXPECT_TRUE(w->Reset(800, 600, false, false, 2));
    EXPECT_EQ(800u, w->m_nWidth);
    EXPECT_EQ(600u, w->m_nHeight);
    EXPECT_FALSE(w->m_bFullScreen);
    EXPECT_EQ(2, w->getFSAA());
}

TEST(EngineRenderSystem, ResetReachesTheWindowThatOwnsTheHandle)
{
    ClearLog();
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    ref_ptr<PlainWindow> a = new PlainWindow;
    ref_ptr<PlainWindow> b = new PlainWindow;
    ASSERT_TRUE(a->Init(FakeHandle(0x10), 100, 100, false, false, 0));
    ASSERT_TRUE(b->Init(FakeHandle(0x20), 200, 200, false, false, 0));

    EXPECT_TRUE(rs->Reset(FakeHandle(0x20), 320, 240, false, true, 0));
    EXPECT_EQ(320u, b->m_nWidth);
    EXPECT_EQ(100u, a->m_nWidth);
    // The window's refusal is the answer.
    EXPECT_FALSE(rs->Reset(FakeHandle(0x10), 0, 240, false, false, 0));
    EXPECT_EQ(0u, GetLogLineCount());

    // No window owns the handle, or the window has died: refused with a warning.
    EXPECT_FALSE(rs->Reset(FakeHandle(0x30), 320, 240, false, false, 0));
    b = nullptr;
    EXPECT_FALSE(rs->Reset(FakeHandle(0x20), 320, 240, false, false, 0));
    EXPECT_EQ(2u, GetLogTexts(LOG_WARNING).size());
}

TEST(EngineRenderSystem, DestroyLetsGoOfTheMainWindowAndBoundTarget)
{
    int deaths = 0;
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    PlainWindow* w = new PlainWindow(&deaths);
    ASSERT_TRUE(w->Init(FakeHandle(0x40), 64, 32, false, false, 0));
    rs->m_pMainWindow = w;
    rs->m_activeRenderTarget.assign(w);
    rs->m_viewport = CViewport(w, 0.0f, 0.0f, 0.5f, 1.0f);
    EXPECT_EQ(w, rs->_getRenderTarget());
    EXPECT_EQ(32, rs->_getViewport().getActualWidth());
    EXPECT_EQ(32, rs->_getViewport().getActualHeight());
    EXPECT_EQ(w, rs->_getViewport().getTarget());

    rs->Destroy();
    EXPECT_EQ(1, deaths);
    EXPECT_FALSE(rs->m_pMainWindow);
    EXPECT_EQ(nullptr, rs->_getRenderTarget());
    EXPECT_EQ(nullptr, rs->_getViewport().getTarget());
}

TEST(EngineRenderSystem, BoundTargetDiesWithoutNotice)
{
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    // The factories hand out one reference, the caller's.
    EXPECT_EQ(1, rs->CreateVertexData()->GetRefCount());
    EXPECT_EQ(1, rs->CreateIndexData()->GetRefCount());
    ref_ptr<PlainWindow> w = new PlainWindow;
    rs->m_activeRenderTarget.assign(w.get());
    rs->m_viewport = CViewport(w.get(), 1, 2, 3, 4);
    EXPECT_EQ(w.get(), rs->_getRenderTarget());
    w = nullptr;
    EXPECT_EQ(nullptr, rs->_getRenderTarget());
    EXPECT_EQ(nullptr, rs->_getViewport().getTarget());
    EXPECT_EQ(3, rs->_getViewport().getActualWidth());
}

} // namespace
