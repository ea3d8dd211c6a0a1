// When a lost device is reset and when it waits, what the resources and the
// engine are told, and the roads that reach a reset.
#include "ResetFixture.h"

#include <algorithm>

using namespace kv;
using kvproxy::Method;

namespace
{

bool Contains(const std::vector<std::string>& lines, const std::string& text)
{
    return std::find(lines.begin(), lines.end(), text) != lines.end();
}

} // namespace

TEST_F(ResetTest, LostDeviceWaitsAndNothingIsReleased)
{
    kvproxy::LoseDevice();
    auto mark = kvproxy::Here();
    EXPECT_FALSE(rs->IsDeviceAvailable());
    EXPECT_FALSE(rs->IsDeviceAvailable());
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::Reset));
    EXPECT_EQ(0, probe->lost);
    EXPECT_EQ(0, EngineResets());

    // Samplers stay alone while the device is away.
    d3d->SetAnisotropy(true, 4);
    mark = kvproxy::Here();
    rs->ApplyTextureAnisotropy();
    EXPECT_TRUE(kvproxy::NoCallsOf(mark, {Method::SetSamplerState}));
}

TEST_F(ResetTest, ResettableDeviceWaitsForTheFrameToEndThenResetsOnce)
{
    ASSERT_NO_FATAL_FAILURE(MakeScene());
    kvproxy::LoseDevice();
    kvproxy::AllowDeviceReset();
    auto mark = kvproxy::Here();

    ASSERT_TRUE(rs->_beginFrame());
    EXPECT_FALSE(rs->IsDeviceAvailable());
    EXPECT_FALSE(rs->IsDeviceAvailable());
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::Reset));
    EXPECT_EQ(0, probe->lost);
    rs->_endFrame();

    EXPECT_TRUE(rs->IsDeviceAvailable());
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::Reset));
    EXPECT_EQ(static_cast<uint32_t>(KV_PROXY_LOSS_NONE), kvproxy::DeviceLossState());
    EXPECT_EQ(1, probe->lost);
    EXPECT_EQ(1, probe->reset);
    EXPECT_EQ(1, EngineResets());
    // Once working, asking again resets nothing.
    EXPECT_TRUE(rs->IsDeviceAvailable());
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::Reset));

    std::vector<std::string> info = Texts(LOG_INFO);
    EXPECT_TRUE(Contains(info, "Try to ResetDevice, 64, 64")) << ::testing::PrintToString(info);
    EXPECT_TRUE(Contains(info, "Success ResetDevice,64, 64, FullScreen:false")) << ::testing::PrintToString(info);
    EXPECT_TRUE(Texts(LOG_ERROR).empty()) << ::testing::PrintToString(Texts(LOG_ERROR));

    // The default-pool buffer was made anew in the reset, its content is the owner's to restore.
    EXPECT_NE(nullptr, static_cast<CD3D9HardwareVertexBuffer*>(dynamic.get())->m_pD3D9VertexBuffer);
    RefillDefaultBuffer();
    DrawAndCheckScene(kWidth, kHeight);
}

TEST_F(ResetTest, TwoRefusedResetsThenAGoodOne)
{
    ASSERT_NO_FATAL_FAILURE(MakeScene());
    kvproxy::LoseDevice();
    kvproxy::AllowDeviceReset();
    kvproxy::FailMethod(Method::Reset, D3DERR_DEVICELOST, 2);
    auto mark = kvproxy::Here();

    EXPECT_FALSE(rs->IsDeviceAvailable());
    EXPECT_FALSE(rs->IsDeviceAvailable());
    EXPECT_EQ(2, probe->lost);
    EXPECT_EQ(0, probe->reset);
    EXPECT_EQ(0, EngineResets());
    // A refused reset leaves every default-pool object released.
    EXPECT_EQ(nullptr, static_cast<CD3D9HardwareVertexBuffer*>(dynamic.get())->m_pD3D9VertexBuffer);
    // A windowed reset that fails explains nothing beyond its warning.
    std::vector<std::string> warnings = Texts(LOG_WARNING);
    const std::string warning = ResetWarning(D3DERR_DEVICELOST, kWidth, kHeight, false);
    EXPECT_EQ(2, std::count(warnings.begin(), warnings.end(), warning)) << ::testing::PrintToString(warnings);
    EXPECT_TRUE(Texts(LOG_ERROR).empty()) << ::testing::PrintToString(Texts(LOG_ERROR));

    EXPECT_TRUE(rs->IsDeviceAvailable());
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::Reset, {D3DERR_DEVICELOST, D3DERR_DEVICELOST, D3D_OK}));
    EXPECT_EQ(3, probe->lost);
    EXPECT_EQ(1, probe->reset);
    EXPECT_EQ(1, EngineResets());

    RefillDefaultBuffer();
    DrawAndCheckScene(kWidth, kHeight);
}

TEST_F(ResetTest, AnyOtherAnswerCountsAsLostWithoutAReset)
{
    kvproxy::FailMethod(Method::TestCooperativeLevel, E_FAIL, 1);
    auto mark = kvproxy::Here();
    EXPECT_FALSE(rs->IsDeviceAvailable());
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::Reset));
    EXPECT_EQ(0, probe->lost);
    EXPECT_TRUE(rs->IsDeviceAvailable());
}

TEST_F(ResetTest, StepsRunInOrder)
{
    ASSERT_NO_FATAL_FAILURE(MakeScene());
    d3d->SetDepthCheckEnabled(true);
    // A read-back surface of an earlier screenshot holds a reference the reset must give up.
    IDirect3DSurface9* readback = nullptr;
    ASSERT_EQ(D3D_OK, device->CreateOffscreenPlainSurface(16, 16, D3DFMT_X8R8G8B8, D3DPOOL_SYSTEMMEM, &readback,
                                                          nullptr));
    readback->AddRef();
    d3d->m_mapReadbackSurfaces[CD3D9RenderSystem::ReadbackKey(16, 16, D3DFMT_X8R8G8B8)] = readback;
    d3d->m_pLockedReadbackSurface = readback;
    rs->m_activeRenderTarget = rs->m_pMainWindow.get();
    d3d->m_pActiveDepthBuffer = rs->m_pMainWindow->m_pDepthBuffer;
    ASSERT_NE(nullptr, d3d->m_pActiveDepthBuffer.get());

    ClearLog();
    auto mark = kvproxy::Here();
    ASSERT_TRUE(ResetMain(kWidth, kHeight));

    std::vector<KvProxyCall> resets = kvproxy::CallsSince(mark, Method::Reset);
    ASSERT_EQ(1u, resets.size());
    const uint32_t resetAt = [&] {
        for (uint32_t i = mark.index; i < kvproxy::Here().index; ++i)
            if (kvproxy::MethodOf(*kvproxy::TraceAt(i)) == Method::Reset)
                return i;
        return 0u;
    }();
    // Shadows unknown and the attempt announced before the resources hear of the loss,
    // all of that before the device's Reset; the rebuild after it, the engine told last.
    EXPECT_EQ(CD3D9RenderSystem::kUnknownState, probe->zShadowAtLost);
    EXPECT_LE(probe->traceAtLost, resetAt); // the trace's next index when told
    EXPECT_GT(probe->traceAtReset, resetAt);
    EXPECT_EQ(0, probe->engineResetsAtReset - engineResetsAtStart);
    EXPECT_EQ(1, EngineResets());
    std::vector<LogLine> lines = GetLogLines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(1u, probe->logAtLost);
    EXPECT_EQ("Try to ResetDevice, 64, 64", lines[0].text);
    EXPECT_EQ(1u, probe->logAtReset) << "the success line comes after the resources are rebuilt";
    EXPECT_EQ("Success ResetDevice,64, 64, FullScreen:false", lines.back().text);

    // The read-back surfaces went, and the bound target and depth buffer were forgotten.
    EXPECT_TRUE(d3d->m_mapReadbackSurfaces.empty());
    EXPECT_EQ(nullptr, d3d->m_pLockedReadbackSurface);
    EXPECT_EQ(0u, readback->Release()) << "the reset left the map's reference";
    EXPECT_EQ(nullptr, rs->_getRenderTarget());
    EXPECT_EQ(nullptr, d3d->m_pActiveDepthBuffer.get());
    // The engine's stored states go back to the device after the Reset.
    EXPECT_TRUE(kvproxy::CalledInOrder(mark, {Method::Reset, Method::GetScissorRect, Method::SetRenderState}));

    RefillDefaultBuffer();
    DrawAndCheckScene(kWidth, kHeight);
}

TEST_F(ResetTest, MainWindowPresentResetsALostDevice)
{
    ASSERT_NO_FATAL_FAILURE(MakeScene());
    kvproxy::LoseDevice();
    kvproxy::AllowDeviceReset();
    auto mark = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::Reset));
    EXPECT_EQ(1, probe->reset);
    EXPECT_EQ(1, EngineResets());
    RefillDefaultBuffer();
    DrawAndCheckScene(kWidth, kHeight);
}

TEST_F(ResetTest, SecondaryWindowResetLeavesTheDeviceAlone)
{
    HWND other = CreateWindowExA(0, "STATIC", "second", WS_OVERLAPPEDWINDOW, 100, 0, 32, 32, nullptr, nullptr,
                                 GetModuleHandleA(nullptr), nullptr);
    ASSERT_NE(nullptr, other);
    {
        ref_ptr<CRenderWindow> second = rs->CreateRenderWindow(other, 32, 32, false);
        ASSERT_TRUE(second);
        auto mark = kvproxy::Here();
        EXPECT_TRUE(rs->Reset(other, 48, 40, false, true, 4));
        EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::Reset));
        EXPECT_EQ(0, probe->lost);
        EXPECT_EQ(0, EngineResets());
        EXPECT_EQ(48u, second->getWidth());
        // The main window and the device's parameters stay as they were.
        EXPECT_EQ(kWidth, d3d->m_d3dpp.BackBufferWidth);
        EXPECT_EQ(static_cast<UINT>(D3DPRESENT_INTERVAL_IMMEDIATE), d3d->m_d3dpp.PresentationInterval);
    }
    DestroyWindow(other);

    // A handle no window owns is refused before the device is looked at.
    auto mark = kvproxy::Here();
    EXPECT_FALSE(rs->Reset(reinterpret_cast<HWND>(static_cast<uintptr_t>(0x1234)), 32, 32, false, false, 0));
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::Reset));
    // So is a size the engine's window turns down.
    EXPECT_FALSE(ResetMain(0, 32));
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::Reset));
    EXPECT_EQ(0, probe->lost);
}
