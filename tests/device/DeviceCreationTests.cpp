// Making the device on the main window: the adapter report, the present
// parameters field by field, vertex processing, multisampling, the depth
// format, CreateDevice's second chance, the failures of each step, and the
// frame bracket on the device that results.
#include "DeviceFixture.h"

#include <algorithm>
#include <cstring>

using kvproxy::Method;
using namespace kv;

namespace
{

void SetIdentifier()
{
    D3DADAPTER_IDENTIFIER9 id;
    std::memset(&id, 0, sizeof id);
    std::strcpy(id.Driver, "kvtest.dll");
    std::strcpy(id.Description, "Korvo Test Adapter");
    std::strcpy(id.DeviceName, "\\\\.\\DISPLAY7");
    id.VendorId = 0x10DE;
    id.DeviceId = 0x6CD;
    id.SubSysId = 0x1234ABCD;
    id.Revision = 0xA2;
    kvproxy::SetAdapterIdentifier(KV_PROXY_ID_DRIVER | KV_PROXY_ID_DESCRIPTION | KV_PROXY_ID_DEVICENAME |
                                      KV_PROXY_ID_VENDORID | KV_PROXY_ID_DEVICEID | KV_PROXY_ID_SUBSYSID |
                                      KV_PROXY_ID_REVISION,
                                  id);
}

std::vector<uint32_t> SampleCountsAsked(const std::vector<KvProxyCall>& calls)
{
    std::vector<uint32_t> counts;
    for (const KvProxyCall& c : calls)
        counts.push_back(static_cast<uint32_t>(c.args[4]));
    return counts;
}

TEST_F(DeviceTest, InitMakesTheDeviceOnTheWindowAndReportsTheAdapter)
{
    SetIdentifier();
    ASSERT_TRUE(Init());

    EXPECT_EQ((std::vector<std::string>{"AdapterCount:1", "===========================\nAdapter #0",
                                        "Driver: kvtest.dll", "Description: Korvo Test Adapter",
                                        "DeviceName: \\\\.\\DISPLAY7",
                                        "VendorId: 0x000010de, DeviceId: 0x000006cd, SubSysId: 0x1234abcd, "
                                        "Revision: 0x000000a2"}),
              Texts(LOG_INFO));
    EXPECT_TRUE(Texts(LOG_ERROR).empty());

    std::vector<KvProxyCall> creates = Calls(Method::D3D9_CreateDevice);
    ASSERT_EQ(1u, creates.size());
    EXPECT_EQ(0u, creates[0].args[0]);
    EXPECT_EQ(static_cast<uint64_t>(D3DDEVTYPE_HAL), creates[0].args[1]);
    EXPECT_EQ(kvproxy::PtrArg(hWnd), creates[0].args[2]);
    EXPECT_EQ(static_cast<uint64_t>(D3DCREATE_HARDWARE_VERTEXPROCESSING), creates[0].args[3]);
    EXPECT_EQ(creates[0].out, kvproxy::PtrArg(d3d->m_pD3D9Device));

    const D3DPRESENT_PARAMETERS pp = CreatedWith();
    EXPECT_EQ(kWidth, pp.BackBufferWidth);
    EXPECT_EQ(kHeight, pp.BackBufferHeight);
    EXPECT_EQ(D3DFMT_X8R8G8B8, pp.BackBufferFormat);
    EXPECT_EQ(1u, pp.BackBufferCount);
    EXPECT_EQ(D3DMULTISAMPLE_NONE, pp.MultiSampleType);
    EXPECT_EQ(0u, pp.MultiSampleQuality);
    EXPECT_EQ(D3DSWAPEFFECT_DISCARD, pp.SwapEffect);
    EXPECT_EQ(hWnd, pp.hDeviceWindow);
    EXPECT_EQ(TRUE, pp.Windowed);
    EXPECT_EQ(TRUE, pp.EnableAutoDepthStencil);
    EXPECT_EQ(D3DFMT_D24S8, pp.AutoDepthStencilFormat);
    EXPECT_EQ(0u, pp.Flags);
    EXPECT_EQ(0u, pp.FullScreen_RefreshRateInHz);
    EXPECT_EQ(static_cast<UINT>(D3DPRESENT_INTERVAL_IMMEDIATE), pp.PresentationInterval);

    // The depth format was asked of the display format against the back buffer's.
    std::vector<KvProxyCall> matches;
    for (const KvProxyCall& c : CallsBeforeCreateDevice())
        if (kvproxy::MethodOf(c) == Method::D3D9_CheckDepthStencilMatch)
            matches.push_back(c);
    ASSERT_EQ(1u, matches.size());
    EXPECT_EQ(static_cast<uint64_t>(d3d->m_adapterFormat), matches[0].args[2]);
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_X8R8G8B8), matches[0].args[3]);
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_D24S8), matches[0].args[4]);

    // The window keeps its own record and took the back buffer's format.
    CD3D9RenderWindow* window = dynamic_cast<CD3D9RenderWindow*>(rs->m_pMainWindow.get());
    ASSERT_NE(nullptr, window);
    EXPECT_EQ(0, std::memcmp(&pp, &window->m_d3dpp, sizeof pp));
    EXPECT_EQ(PF_X8R8G8B8, window->getFormat());
    EXPECT_TRUE(window->m_bIsMainWindow);
    EXPECT_NE(nullptr, window->m_pBackBuffer);

    // The device's own capabilities replaced the adapter's; the caches stand ready.
    EXPECT_TRUE(kvproxy::CalledInOrder(mark, {Method::D3D9_GetDeviceCaps, Method::D3D9_GetAdapterDisplayMode,
                                              Method::D3D9_CreateDevice, Method::GetDeviceCaps,
                                              Method::GetCreationParameters}));
    EXPECT_EQ(CD3D9RenderSystem::kRenderStateCount, d3d->m_renderStates.size());
    EXPECT_EQ(1, rs->m_nBuildDeviceCapabilitiesCount);
}

TEST_F(DeviceTest, AnAdapterWhoseIdentifierCannotBeReadIsPassedOverInSilence)
{
    kvproxy::SetAdapterCount(2); // Wine has one: the second identifier is refused
    ASSERT_TRUE(Init());
    std::vector<std::string> info = Texts(LOG_INFO);
    ASSERT_EQ(6u, info.size());
    EXPECT_EQ("AdapterCount:2", info[0]);
    EXPECT_EQ("===========================\nAdapter #0", info[1]);
    EXPECT_TRUE(Texts(LOG_ERROR).empty());
}

TEST_F(DeviceTest, VsyncDoublesTheBackBuffersOfAWindowedDevice)
{
    ASSERT_TRUE(Init(true, 0));
    const D3DPRESENT_PARAMETERS pp = CreatedWith();
    EXPECT_EQ(TRUE, pp.Windowed);
    EXPECT_EQ(2u, pp.BackBufferCount);
    EXPECT_EQ(static_cast<UINT>(D3DPRESENT_INTERVAL_ONE), pp.PresentationInterval);
    CD3D9RenderWindow* window = dynamic_cast<CD3D9RenderWindow*>(rs->m_pMainWindow.get());
    ASSERT_NE(nullptr, window);
    EXPECT_EQ(2u, window->m_d3dpp.BackBufferCount);
}

TEST_F(DeviceTest, WithoutHardwareTransformTheDeviceProcessesVerticesInSoftware)
{
    ASSERT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(DevCaps), D3DDEVCAPS_HWTRANSFORMANDLIGHT));
    ASSERT_TRUE(Init());
    EXPECT_EQ((std::vector<std::string>{"Cannot use hardware vertexprocessing"}), Texts(LOG_ERROR));
    std::vector<KvProxyCall> creates = Calls(Method::D3D9_CreateDevice);
    ASSERT_EQ(1u, creates.size());
    EXPECT_EQ(static_cast<uint64_t>(D3DCREATE_SOFTWARE_VERTEXPROCESSING), creates[0].args[3]);
    EXPECT_NE(nullptr, d3d->m_pD3D9Device);
}

TEST_F(DeviceTest, MultisamplingFallsToTheHighestCountTheDeviceTakes)
{
    kvproxy::FailMultiSampleAbove(4);
    ASSERT_TRUE(Init(false, 8));
    std::vector<KvProxyCall> checks = Calls(Method::D3D9_CheckDeviceMultiSampleType);
    EXPECT_EQ((std::vector<uint32_t>{8, 7, 6, 5, 4}), SampleCountsAsked(checks));
    for (const KvProxyCall& c : checks)
    {
        EXPECT_EQ(static_cast<uint64_t>(D3DFMT_X8R8G8B8), c.args[2]);
        EXPECT_EQ(1u, c.args[3]) << "a windowed device asks for windowed multisampling";
    }
    const D3DPRESENT_PARAMETERS pp = CreatedWith();
    EXPECT_EQ(D3DMULTISAMPLE_4_SAMPLES, pp.MultiSampleType);
    EXPECT_EQ(0u, pp.MultiSampleQuality);
    EXPECT_NE(nullptr, d3d->m_pD3D9Device);
    EXPECT_TRUE(Texts(LOG_ERROR).empty());
}

TEST_F(DeviceTest, ARefusedSingleSampleGivesNoMultisamplingWithoutAskingForZero)
{
    kvproxy::FailMultiSampleAbove(0);
    ASSERT_TRUE(Init(false, 1));
    EXPECT_EQ((std::vector<uint32_t>{1}), SampleCountsAsked(Calls(Method::D3D9_CheckDeviceMultiSampleType)));
    EXPECT_EQ(D3DMULTISAMPLE_NONE, CreatedWith().MultiSampleType);
}

TEST_F(DeviceTest, MultisamplingNeedsFilteredStretchFromTextures)
{
    struct Case
    {
        const char* what;
        uint32_t field;
        uint32_t clear;
        bool refused;
    };
    // The filter flags that count are the LINEAR ones; the POINT flags next to
    // them (0x100, 0x1000000) must not decide anything.
    const Case cases[] = {
        {"no stretch from textures", KV_PROXY_CAP(DevCaps2), D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES, true},
        {"no linear minification", KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MINFLINEAR, true},
        {"no linear magnification", KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MAGFLINEAR, true},
        {"no point minification", KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MINFPOINT, false},
        {"no point magnification", KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MAGFPOINT, false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.what);
        NewRenderSystem();
        kvproxy::ResetAll();
        kv::ClearLog();
        kvproxy::FailMultiSampleAbove(4);
        ASSERT_TRUE(kvproxy::ClearCapBits(c.field, c.clear));
        ASSERT_TRUE(Init(false, 4));
        if (c.refused)
        {
            EXPECT_EQ(
                (std::vector<std::string>{"m_d3dcaps.Caps2 Cannot support D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES!!!"}),
                Texts(LOG_ERROR));
            EXPECT_EQ(0u, Calls(Method::D3D9_CheckDeviceMultiSampleType).size());
            EXPECT_EQ(D3DMULTISAMPLE_NONE, CreatedWith().MultiSampleType);
        }
        else
        {
            EXPECT_TRUE(Texts(LOG_ERROR).empty());
            EXPECT_EQ(D3DMULTISAMPLE_4_SAMPLES, CreatedWith().MultiSampleType);
        }
    }
}

TEST_F(DeviceTest, NoMultisamplingAsksNothingAndLogsNothingEvenWithoutTheStretchCapability)
{
    ASSERT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(DevCaps2), D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES));
    ASSERT_TRUE(Init(false, 0));
    EXPECT_TRUE(Texts(LOG_ERROR).empty());
    EXPECT_EQ(0u, Calls(Method::D3D9_CheckDeviceMultiSampleType).size());
}

TEST_F(DeviceTest, DetermineFSAASettingsNeverAsksAboveSixteenSamples)
{
    ASSERT_TRUE(Init());
    kvproxy::FailMultiSampleAbove(0);
    kvproxy::Mark from = kvproxy::Here();
    D3DMULTISAMPLE_TYPE type = D3DMULTISAMPLE_4_SAMPLES;
    DWORD quality = 7;
    d3d->DetermineFSAASettings(0xFFFFFFFFu, "hint", D3DFMT_A8R8G8B8, true, &type, &quality);
    EXPECT_EQ(D3DMULTISAMPLE_NONE, type);
    EXPECT_EQ(0u, quality);
    std::vector<KvProxyCall> checks = kvproxy::CallsSince(from, Method::D3D9_CheckDeviceMultiSampleType);
    ASSERT_EQ(16u, checks.size()); // 16 down to 1, never 0
    EXPECT_EQ(16u, checks.front().args[4]);
    EXPECT_EQ(1u, checks.back().args[4]);
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_A8R8G8B8), checks.front().args[2]);
    EXPECT_EQ(0u, checks.front().args[3]) << "full screen asks for non-windowed multisampling";
}

TEST_F(DeviceTest, ACreateDeviceThatFailsOnceIsTriedAgainInSilence)
{
    kvproxy::FailMethod(Method::D3D9_CreateDevice, D3DERR_NOTAVAILABLE, 1);
    ASSERT_TRUE(Init());
    std::vector<KvProxyCall> creates = Calls(Method::D3D9_CreateDevice);
    ASSERT_EQ(2u, creates.size());
    for (uint32_t i = 0; i < 4; ++i)
        EXPECT_EQ(creates[0].args[i], creates[1].args[i]);
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::D3D9_CreateDevice, {D3DERR_NOTAVAILABLE, D3D_OK}));
    EXPECT_TRUE(Texts(LOG_ERROR).empty());
    EXPECT_NE(nullptr, d3d->m_pD3D9Device);
}

TEST_F(DeviceTest, ACreateDeviceThatFailsTwiceEndsInit)
{
    kvproxy::FailMethod(Method::D3D9_CreateDevice, D3DERR_NOTAVAILABLE, 2);
    EXPECT_FALSE(Init());
    EXPECT_EQ(2u, Calls(Method::D3D9_CreateDevice).size());
    const std::string line = FailureLine("cannot CreateDevice", D3DERR_NOTAVAILABLE);
    EXPECT_EQ(0u, line.find("cannot CreateDevice:-2005530518, D3DERR_NOTAVAILABLE, "));
    EXPECT_EQ((std::vector<std::string>{line, "Failed to BuildDevice"}), Texts(LOG_ERROR));
    EXPECT_EQ(nullptr, d3d->m_pD3D9Device);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(0, rs->m_nBuildDeviceCapabilitiesCount);
}

TEST_F(DeviceTest, EachFailingStepOfBuildDeviceNamesItself)
{
    struct Case
    {
        Method method;
        std::string line;
        bool deviceMade;
    };
    const HRESULT hr = D3DERR_INVALIDCALL;
    const Case cases[] = {
        {Method::D3D9_GetDeviceCaps, FailureLine("Failed to m_pD3D9->GetDeviceCaps", hr), false},
        {Method::D3D9_GetAdapterDisplayMode,
         "Failed to m_pD3D9->GetAdapterDisplayMode:0, " + FailureLine("", hr).substr(1), false},
        {Method::GetDeviceCaps, FailureLine("Cannot get device caps!", hr), true},
        {Method::GetCreationParameters, FailureLine("Error Get Creation Parameters", hr), true},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(kvproxy::MethodName(c.method));
        NewRenderSystem();
        kvproxy::ResetAll();
        kv::ClearLog();
        kvproxy::FailMethod(c.method, hr, KV_PROXY_FOREVER);
        EXPECT_FALSE(Init());
        EXPECT_EQ((std::vector<std::string>{c.line, "Failed to BuildDevice"}), Texts(LOG_ERROR));
        // A device made before the failure stays for the destructor to release.
        EXPECT_EQ(c.deviceMade, d3d->m_pD3D9Device != nullptr);
        EXPECT_EQ(0, rs->m_nBuildDeviceCapabilitiesCount);
    }
}

TEST_F(DeviceTest, InitWithoutAWindowHandleFailsBeforeAnyDevice)
{
    mark = kvproxy::Here();
    EXPECT_FALSE(rs->Init(nullptr, kWidth, kHeight, false, false, 0));
    EXPECT_EQ((std::vector<std::string>{"Failed to CreateRenderWindow"}), Texts(LOG_ERROR));
    EXPECT_FALSE(rs->m_pMainWindow);
    EXPECT_EQ(0u, Calls(Method::D3D9_CreateDevice).size());
}

TEST_F(DeviceTest, TheDepthFormatFallsFromD24S8ToD24X8D32AndD16)
{
    const uint32_t depthUsage = D3DUSAGE_DEPTHSTENCIL;
    auto depthQueries = [&] {
        std::vector<uint32_t> formats;
        for (const KvProxyCall& c : CallsBeforeCreateDevice())
            if (kvproxy::MethodOf(c) == Method::D3D9_CheckDeviceFormat && c.args[3] == depthUsage)
                formats.push_back(static_cast<uint32_t>(c.args[5]));
        return formats;
    };

    // D24S8 is there but cannot sit beside this back buffer: D24X8, not asked about.
    kvproxy::FailMethod(Method::D3D9_CheckDepthStencilMatch, D3DERR_NOTAVAILABLE, KV_PROXY_FOREVER);
    ASSERT_TRUE(Init());
    EXPECT_EQ(D3DFMT_D24X8, CreatedWith().AutoDepthStencilFormat);
    EXPECT_EQ((std::vector<uint32_t>{D3DFMT_D24S8}), depthQueries());

    // Without D24S8: D32 when the adapter has it, else D16 without a question.
    NewRenderSystem();
    kvproxy::ResetAll();
    kvproxy::FailCheckDeviceFormat(D3DFMT_D24S8, D3DUSAGE_DEPTHSTENCIL);
    ASSERT_TRUE(Init());
    EXPECT_EQ((std::vector<uint32_t>{D3DFMT_D24S8, D3DFMT_D32}), depthQueries());
    std::vector<KvProxyCall> before = CallsBeforeCreateDevice();
    EXPECT_EQ(0, std::count_if(before.begin(), before.end(), [](const KvProxyCall& c) {
                  return kvproxy::MethodOf(c) == Method::D3D9_CheckDepthStencilMatch;
              }));
    const bool d32 = std::any_of(before.begin(), before.end(), [](const KvProxyCall& c) {
        return c.args[5] == D3DFMT_D32 && c.result == D3D_OK;
    });
    EXPECT_EQ(d32 ? D3DFMT_D32 : D3DFMT_D16, CreatedWith().AutoDepthStencilFormat);

    NewRenderSystem();
    kvproxy::ResetAll();
    kvproxy::FailCheckDeviceFormat(D3DFMT_D24S8, D3DUSAGE_DEPTHSTENCIL);
    kvproxy::FailCheckDeviceFormat(D3DFMT_D32, D3DUSAGE_DEPTHSTENCIL);
    ASSERT_TRUE(Init());
    EXPECT_EQ((std::vector<uint32_t>{D3DFMT_D24S8, D3DFMT_D32}), depthQueries());
    EXPECT_EQ(D3DFMT_D16, CreatedWith().AutoDepthStencilFormat);
}

// ---- the frame bracket on the device Init made

TEST_F(DeviceTest, NestedFramesMakeOneSceneClosedByTheLastEnd)
{
    ASSERT_TRUE(Init());
    kvproxy::Mark from = kvproxy::Here();
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_EQ(1u, kvproxy::CountSince(from, Method::BeginScene));
    EXPECT_EQ(3u, d3d->m_frameNesting.size());
    rs->_endFrame();
    rs->_endFrame();
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::EndScene));
    rs->_endFrame();
    EXPECT_TRUE(kvproxy::ResultsAre(from, Method::EndScene, {D3D_OK}));
    EXPECT_TRUE(d3d->m_frameNesting.empty());
    EXPECT_TRUE(kvproxy::CalledInOrder(from, {Method::BeginScene, Method::EndScene}));
}

TEST_F(DeviceTest, ARefusedBeginSceneOpensNoFrame)
{
    ASSERT_TRUE(Init());
    kv::ClearLog();
    kvproxy::FailMethod(Method::BeginScene, D3DERR_INVALIDCALL, 1);
    EXPECT_FALSE(rs->_beginFrame());
    EXPECT_TRUE(d3d->m_frameNesting.empty());
    EXPECT_EQ(0u, kv::GetLogLineCount());
    // The next frame reaches the device again.
    kvproxy::Mark from = kvproxy::Here();
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_TRUE(kvproxy::ResultsAre(from, Method::BeginScene, {D3D_OK}));
    rs->_endFrame();
}

TEST_F(DeviceTest, OnlyTheOutermostFrameResetsTheDepthClearedFlag)
{
    ASSERT_TRUE(Init());
    rs->m_bDepthBufferCleared = true;
    ASSERT_TRUE(rs->_beginFrame());
    EXPECT_FALSE(rs->m_bDepthBufferCleared);
    rs->m_bDepthBufferCleared = true;
    ASSERT_TRUE(rs->_beginFrame());
    EXPECT_TRUE(rs->m_bDepthBufferCleared);
    rs->_endFrame();
    rs->_endFrame();
    // The window's update goes through the same bracket.
    rs->m_bDepthBufferCleared = true;
    ASSERT_TRUE(rs->m_pMainWindow->_beginUpdate());
    EXPECT_FALSE(rs->m_bDepthBufferCleared);
    rs->m_pMainWindow->_endUpdate();
    EXPECT_TRUE(d3d->m_frameNesting.empty());
}

} // namespace
