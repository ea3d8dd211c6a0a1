// What a reset of the main window asks of the device: present parameters after
// a change of vsync, size or multisampling, shadows that forget, and the
// explanations of a refused switch to full screen.
#include "ResetFixture.h"

using namespace kv;
using kvproxy::Method;

namespace
{

// The two texts the engine's GBK code page gives to a window that cannot take
// the whole screen.
const char kNotChild[] = "\xC8\xAB\xC6\xC1\xB5\xC4\xB4\xB0\xBF\xDA\xB1\xD8\xD0\xEB\xB7\xC7"
                         "WS_CHILD";
const char kNotTopmost[] = "\xC8\xAB\xC6\xC1\xB5\xC4\xB4\xB0\xBF\xDA\xB1\xD8\xD0\xEB\xCA\xC7"
                           "TOPMOST";
const char kHasParent[] = "Failed to ResetFullScreen, as window has parent window!";

} // namespace

TEST_F(ResetTest, FirstStateAfterAResetReachesTheDevice)
{
    d3d->SetDepthCheckEnabled(true);
    d3d->_setRenderState(D3DRS_LIGHTING, FALSE);
    auto mark = kvproxy::Here();
    d3d->SetDepthCheckEnabled(true);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));

    ASSERT_TRUE(ResetMain(kWidth, kHeight));
    mark = kvproxy::Here();
    d3d->SetDepthCheckEnabled(true);
    d3d->_setRenderState(D3DRS_LIGHTING, FALSE);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_ZENABLE, 1}, {D3DRS_LIGHTING, FALSE}}));
    EXPECT_EQ(1, EngineResets());
}

TEST_F(ResetTest, VsyncOffKeepsTwoBackBuffers)
{
    ASSERT_NO_FATAL_FAILURE(Start(true, 0));
    ASSERT_EQ(2u, d3d->m_d3dpp.BackBufferCount);
    auto mark = kvproxy::Here();
    ASSERT_TRUE(ResetMain(kWidth, kHeight, false, false, 0));
    std::vector<D3DPRESENT_PARAMETERS> pp = ResetParameters(mark);
    ASSERT_EQ(1u, pp.size());
    EXPECT_EQ(static_cast<UINT>(D3DPRESENT_INTERVAL_IMMEDIATE), pp[0].PresentationInterval);
    EXPECT_EQ(2u, pp[0].BackBufferCount);
    EXPECT_EQ(0u, pp[0].FullScreen_RefreshRateInHz);
    EXPECT_TRUE(pp[0].Windowed);
    EXPECT_EQ(hWnd, pp[0].hDeviceWindow);

    // And back on: one interval, still two.
    mark = kvproxy::Here();
    ASSERT_TRUE(ResetMain(kWidth, kHeight, false, true, 0));
    pp = ResetParameters(mark);
    ASSERT_EQ(1u, pp.size());
    EXPECT_EQ(static_cast<UINT>(D3DPRESENT_INTERVAL_ONE), pp[0].PresentationInterval);
    EXPECT_EQ(2u, pp[0].BackBufferCount);
}

TEST_F(ResetTest, NewSizeWithoutMultisamplingReachesTheBackBuffer)
{
    ASSERT_NO_FATAL_FAILURE(Start(false, 4));
    ASSERT_EQ(D3DMULTISAMPLE_4_SAMPLES, d3d->m_d3dpp.MultiSampleType);
    ASSERT_NO_FATAL_FAILURE(MakeScene());

    auto mark = kvproxy::Here();
    ASSERT_TRUE(ResetMain(96, 48, false, false, 0));
    std::vector<D3DPRESENT_PARAMETERS> pp = ResetParameters(mark);
    ASSERT_EQ(1u, pp.size());
    EXPECT_EQ(D3DMULTISAMPLE_NONE, pp[0].MultiSampleType);
    EXPECT_EQ(0u, pp[0].MultiSampleQuality);
    EXPECT_EQ(96u, pp[0].BackBufferWidth);
    EXPECT_EQ(48u, pp[0].BackBufferHeight);

    IDirect3DSurface9* back = nullptr;
    ASSERT_EQ(D3D_OK, device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &back));
    D3DSURFACE_DESC desc = {};
    EXPECT_EQ(D3D_OK, back->GetDesc(&desc));
    back->Release();
    EXPECT_EQ(96u, desc.Width);
    EXPECT_EQ(48u, desc.Height);
    EXPECT_EQ(D3DMULTISAMPLE_NONE, desc.MultiSampleType);
    EXPECT_TRUE(Texts(LOG_ERROR).empty()) << ::testing::PrintToString(Texts(LOG_ERROR));
    EXPECT_EQ("Success ResetDevice,96, 48, FullScreen:false", Texts(LOG_INFO).back());

    RefillDefaultBuffer();
    DrawAndCheckScene(96, 48);

    // Multisampling asked for again at the next reset.
    mark = kvproxy::Here();
    ASSERT_TRUE(ResetMain(96, 48, false, false, 4));
    pp = ResetParameters(mark);
    ASSERT_EQ(1u, pp.size());
    EXPECT_EQ(D3DMULTISAMPLE_4_SAMPLES, pp[0].MultiSampleType);
}

// The switches to full screen below are refused through the recording d3d9, so
// the real device never takes the shared display.
TEST_F(ResetTest, ChildWindowCannotGoFullScreen)
{
    ASSERT_NO_FATAL_FAILURE(Start(false, 0, WS_CHILD | WS_VISIBLE));
    // A child window cannot be topmost either (Wine drops the bit even when set
    // by hand), so all three reasons hold.
    ASSERT_FALSE(GetWindowLongA(hWnd, GWL_EXSTYLE) & WS_EX_TOPMOST);
    kvproxy::FailMethod(Method::Reset, D3DERR_INVALIDCALL, 1);
    auto mark = kvproxy::Here();
    EXPECT_FALSE(ResetMain(kWidth, kHeight, true));
    std::vector<D3DPRESENT_PARAMETERS> pp = ResetParameters(mark);
    ASSERT_EQ(1u, pp.size());
    EXPECT_FALSE(pp[0].Windowed);

    EXPECT_EQ(std::vector<std::string>{ResetWarning(D3DERR_INVALIDCALL, kWidth, kHeight, true)},
              Texts(LOG_WARNING));
    EXPECT_EQ((std::vector<std::string>{kHasParent, kNotChild, kNotTopmost}), Texts(LOG_ERROR));
    EXPECT_EQ(1, probe->lost);
    EXPECT_EQ(0, probe->reset);
    EXPECT_EQ(0, EngineResets());

    // Back to a window, the same device takes it and everything comes back.
    ClearLog();
    ASSERT_TRUE(ResetMain(kWidth, kHeight, false));
    EXPECT_EQ(1, probe->reset);
    EXPECT_EQ(1, EngineResets());
    EXPECT_TRUE(Texts(LOG_ERROR).empty()) << ::testing::PrintToString(Texts(LOG_ERROR));
}

TEST_F(ResetTest, TopLevelWindowFullScreenNeedsTopmost)
{
    kvproxy::FailMethod(Method::Reset, D3DERR_INVALIDCALL, 2);
    EXPECT_FALSE(ResetMain(kWidth, kHeight, true));
    EXPECT_EQ(std::vector<std::string>{ResetWarning(D3DERR_INVALIDCALL, kWidth, kHeight, true)},
              Texts(LOG_WARNING));
    EXPECT_EQ(std::vector<std::string>{kNotTopmost}, Texts(LOG_ERROR));

    // A topmost top-level window has nothing to explain beyond the warning.
    ClearLog();
    SetWindowPos(hWnd, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    ASSERT_TRUE(GetWindowLongA(hWnd, GWL_EXSTYLE) & WS_EX_TOPMOST);
    EXPECT_FALSE(ResetMain(kWidth, kHeight, true));
    EXPECT_EQ(1u, Texts(LOG_WARNING).size());
    EXPECT_TRUE(Texts(LOG_ERROR).empty()) << ::testing::PrintToString(Texts(LOG_ERROR));
}
