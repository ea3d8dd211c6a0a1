// Making the device on the main window (the adapter report, the present
// parameters, vertex processing, multisampling, the depth format, the failures
// of each step, the frame bracket) and what the engine learns of it: the
// capability record, the shader gate and the vertex texture fallback that
// choose between the DX9C and DX9A modes, and the format queries.
#include "KvDeviceTest.h"

#include <algorithm>
#include <cstring>
#include <sstream>

using kvproxy::Method;
using namespace kv;
using namespace kvtest;

namespace
{

typedef std::vector<uint32_t> Query; // usage, resource type, format

const uint32_t kIntz = MAKEFOURCC('I', 'N', 'T', 'Z');
const uint32_t kNull = MAKEFOURCC('N', 'U', 'L', 'L');
const uint32_t kAti2 = MAKEFOURCC('A', 'T', 'I', '2');
const char kDX9AShader[] = "Change into D3D9A as shader version < 3.0";
const char kDX9AVertexTexture[] = "Change into D3D9A as VS Texture PF_FLOAT32_R && PF_FLOAT32_RGBA not supported";

struct DeviceTest : KvDeviceTest
{
    DeviceTest() : KvDeviceTest(320, 240) {}
    void SetUp() override { Open(); }

    // A fresh render system, proxy and log for the next round of a test.
    void Again()
    {
        NewRenderSystem();
        kvproxy::ResetAll();
        ClearLog();
        g_eRenderSystemType = RST_DX9C;
    }
    CDeviceCapabilities& Caps() { return *rs->m_pCapabilities; }

    // The calls since Init began up to the first CreateDevice.
    std::vector<KvProxyCall> BeforeCreateDevice() const
    {
        std::vector<KvProxyCall> out;
        for (const KvProxyCall& c : kvproxy::CallsSince(mark))
        {
            if (kvproxy::MethodOf(c) == Method::D3D9_CreateDevice)
                break;
            out.push_back(c);
        }
        return out;
    }
    // The present parameters of the last CreateDevice since Init began.
    D3DPRESENT_PARAMETERS CreatedWith() const
    {
        D3DPRESENT_PARAMETERS pp = {};
        std::vector<KvProxyCall> creates = Calls(Method::D3D9_CreateDevice);
        EXPECT_TRUE(!creates.empty() && kvproxy::PresentParametersOf(creates.back(), &pp)) << "no CreateDevice";
        return pp;
    }
    // The formats asked with this usage before CreateDevice.
    std::vector<uint32_t> FormatsAsked(uint32_t usage) const
    {
        std::vector<uint32_t> formats;
        for (const KvProxyCall& c : BeforeCreateDevice())
            if (kvproxy::MethodOf(c) == Method::D3D9_CheckDeviceFormat && c.args[3] == usage)
                formats.push_back(static_cast<uint32_t>(c.args[5]));
        return formats;
    }
    std::vector<uint32_t> SampleCountsAsked(kvproxy::Mark from) const
    {
        std::vector<uint32_t> counts;
        for (const KvProxyCall& c : kvproxy::CallsSince(from, Method::D3D9_CheckDeviceMultiSampleType))
            counts.push_back(static_cast<uint32_t>(c.args[4]));
        return counts;
    }
    // The info lines after the six of the adapter report.
    static std::vector<std::string> InfoAfterReport()
    {
        std::vector<std::string> info = Texts(LOG_INFO);
        EXPECT_GE(info.size(), 6u);
        return std::vector<std::string>(info.begin() + std::min<size_t>(6, info.size()), info.end());
    }
};

// The fields of present parameters a test compares, in one line.
std::string Describe(const D3DPRESENT_PARAMETERS& pp)
{
    std::ostringstream s;
    s << pp.BackBufferWidth << "x" << pp.BackBufferHeight << " format " << pp.BackBufferFormat << " buffers "
      << pp.BackBufferCount << " samples " << pp.MultiSampleType << "/" << pp.MultiSampleQuality << " swap "
      << pp.SwapEffect << " windowed " << pp.Windowed << " depth " << pp.EnableAutoDepthStencil << "/"
      << pp.AutoDepthStencilFormat << " flags " << pp.Flags << " rate " << pp.FullScreen_RefreshRateInHz << " interval "
      << std::hex << pp.PresentationInterval;
    return s.str();
}

// The names of the record's yes-or-no answers that are yes.
std::string Yes(const CDeviceCapabilities& c)
{
    const std::pair<const char*, bool> answers[] = {{"float", c.m_bFloatTexture},
                                                    {"mrt-depths", c.m_bMRTIndependentBitDepths},
                                                    {"npot", c.m_bNonPowerOfTwoTexture},
                                                    {"mip-bias", c.GetMipBiasSupported()},
                                                    {"vertex-texture", c.m_bVertexTextureFetch},
                                                    {"intz", c.m_bDepthTextureINTZ},
                                                    {"pcf", c.GetHardwarePCFSupported()},
                                                    {"d16", c.m_bDepthTextureD16},
                                                    {"null", c.m_bNullRenderTarget},
                                                    {"ati2", c.m_bATI2Texture},
                                                    {"rt32f", c.m_bFloat32RenderTarget},
                                                    {"rt16f", c.m_bFloat16RenderTarget},
                                                    {"srgb", c.GetSRGBReadWrite()},
                                                    {"timer", c.m_bTimerQuery},
                                                    {"sse2", c.m_bSSE2}};
    std::string s;
    for (const auto& a : answers)
        if (a.second)
            s += (s.empty() ? "" : " ") + std::string(a.first);
    return s;
}

void SetShaderVersions(uint32_t vs, uint32_t ps)
{
    ASSERT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(VertexShaderVersion), vs));
    ASSERT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(PixelShaderVersion), ps));
}

// The questions of the capability record: after the device was made, up to the
// timer query probe that ends the record.
std::vector<Query> CapabilityQueries(kvproxy::Mark from)
{
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(from);
    std::vector<Query> out;
    bool made = false;
    size_t probes = 0;
    for (const KvProxyCall& c : calls)
    {
        const Method m = kvproxy::MethodOf(c);
        made = made || (m == Method::D3D9_CreateDevice && c.result == D3D_OK);
        if (!made || (m == Method::CreateQuery && ++probes == 2))
            continue;
        if (probes >= 2)
            break;
        if (m == Method::D3D9_CheckDeviceFormat)
            out.push_back(
                {static_cast<uint32_t>(c.args[3]), static_cast<uint32_t>(c.args[4]), static_cast<uint32_t>(c.args[5])});
    }
    return out;
}

TEST_F(DeviceTest, InitMakesTheDeviceOnTheWindowAndReportsTheAdapter)
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
    ASSERT_TRUE(Init());
    EXPECT_EQ(
        (std::vector<std::string>{"AdapterCount:1", "===========================\nAdapter #0", "Driver: kvtest.dll",
                                  "Description: Korvo Test Adapter", "DeviceName: \\\\.\\DISPLAY7",
                                  "VendorId: 0x000010de, DeviceId: 0x000006cd, SubSysId: 0x1234abcd, "
                                  "Revision: 0x000000a2"}),
        Texts(LOG_INFO));
    EXPECT_TRUE(Errors().empty());

    std::vector<KvProxyCall> creates = Calls(Method::D3D9_CreateDevice);
    ASSERT_EQ(1u, creates.size());
    EXPECT_EQ((std::vector<uint64_t>{0, D3DDEVTYPE_HAL, kvproxy::PtrArg(hWnd), D3DCREATE_HARDWARE_VERTEXPROCESSING}),
              std::vector<uint64_t>(creates[0].args, creates[0].args + 4));
    EXPECT_EQ(creates[0].out, kvproxy::PtrArg(device));
    const D3DPRESENT_PARAMETERS pp = CreatedWith();
    EXPECT_EQ("320x240 format 22 buffers 1 samples 0/0 swap 1 windowed 1 depth 1/75 flags 0 rate 0 interval 80000000",
              Describe(pp));
    EXPECT_EQ(hWnd, pp.hDeviceWindow);

    // The depth format was asked of the display format against the back buffer's.
    std::vector<KvProxyCall> matches;
    for (const KvProxyCall& c : BeforeCreateDevice())
        if (kvproxy::MethodOf(c) == Method::D3D9_CheckDepthStencilMatch)
            matches.push_back(c);
    ASSERT_EQ(1u, matches.size());
    EXPECT_EQ((std::vector<uint64_t>{d3d->m_adapterFormat, D3DFMT_X8R8G8B8, D3DFMT_D24S8}),
              std::vector<uint64_t>(matches[0].args + 2, matches[0].args + 5));

    // The window keeps its own record and took the back buffer's format.
    CD3D9RenderWindow* window = MainWindow();
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

    // An adapter whose identifier cannot be read is passed over in silence
    // (Wine has one: the second is refused).
    Again();
    kvproxy::SetAdapterCount(2);
    ASSERT_TRUE(Init());
    std::vector<std::string> info = Texts(LOG_INFO);
    ASSERT_EQ(6u, info.size());
    EXPECT_EQ("AdapterCount:2", info[0]);
    EXPECT_EQ("===========================\nAdapter #0", info[1]);
    EXPECT_TRUE(Errors().empty());

    // Vsync doubles the back buffers of a windowed device.
    Again();
    ASSERT_TRUE(Init(true, 0));
    EXPECT_EQ("320x240 format 22 buffers 2 samples 0/0 swap 1 windowed 1 depth 1/75 flags 0 rate 0 interval 1",
              Describe(CreatedWith()));
    EXPECT_EQ(2u, MainWindow()->m_d3dpp.BackBufferCount);

    // Without hardware transform the device processes vertices in software.
    Again();
    ASSERT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(DevCaps), D3DDEVCAPS_HWTRANSFORMANDLIGHT));
    ASSERT_TRUE(Init());
    EXPECT_EQ((std::vector<std::string>{"Cannot use hardware vertexprocessing"}), Errors());
    ASSERT_EQ(1u, Calls(Method::D3D9_CreateDevice).size());
    EXPECT_EQ(static_cast<uint64_t>(D3DCREATE_SOFTWARE_VERTEXPROCESSING), Calls(Method::D3D9_CreateDevice)[0].args[3]);
}

TEST_F(DeviceTest, MultisamplingFallsToTheHighestCountTheDeviceTakes)
{
    kvproxy::FailMultiSampleAbove(4);
    ASSERT_TRUE(Init(false, 8));
    EXPECT_EQ((std::vector<uint32_t>{8, 7, 6, 5, 4}), SampleCountsAsked(mark));
    for (const KvProxyCall& c : Calls(Method::D3D9_CheckDeviceMultiSampleType))
        EXPECT_EQ((std::vector<uint64_t>{D3DFMT_X8R8G8B8, 1}), std::vector<uint64_t>(c.args + 2, c.args + 4))
            << "the back buffer's format, windowed";
    EXPECT_EQ(D3DMULTISAMPLE_4_SAMPLES, CreatedWith().MultiSampleType);
    EXPECT_EQ(0u, CreatedWith().MultiSampleQuality);
    EXPECT_TRUE(Errors().empty());

    // A refused single sample gives none, without asking for zero.
    Again();
    kvproxy::FailMultiSampleAbove(0);
    ASSERT_TRUE(Init(false, 1));
    EXPECT_EQ((std::vector<uint32_t>{1}), SampleCountsAsked(mark));
    EXPECT_EQ(D3DMULTISAMPLE_NONE, CreatedWith().MultiSampleType);

    // Never above sixteen; full screen asks for non-windowed multisampling.
    kvproxy::Mark from = kvproxy::Here();
    D3DMULTISAMPLE_TYPE type = D3DMULTISAMPLE_4_SAMPLES;
    DWORD quality = 7;
    d3d->DetermineFSAASettings(0xFFFFFFFFu, "hint", D3DFMT_A8R8G8B8, true, &type, &quality);
    EXPECT_EQ(D3DMULTISAMPLE_NONE, type);
    EXPECT_EQ(0u, quality);
    std::vector<uint32_t> asked = SampleCountsAsked(from);
    ASSERT_EQ(16u, asked.size());
    EXPECT_EQ(16u, asked.front());
    EXPECT_EQ(1u, asked.back());
    std::vector<KvProxyCall> checks = kvproxy::CallsSince(from, Method::D3D9_CheckDeviceMultiSampleType);
    EXPECT_EQ((std::vector<uint64_t>{D3DFMT_A8R8G8B8, 0}),
              std::vector<uint64_t>(checks[0].args + 2, checks[0].args + 4));

    // No multisampling asks nothing and logs nothing, even without the stretch capability.
    Again();
    ASSERT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(DevCaps2), D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES));
    ASSERT_TRUE(Init(false, 0));
    EXPECT_TRUE(Errors().empty());
    EXPECT_TRUE(Calls(Method::D3D9_CheckDeviceMultiSampleType).empty());
}

TEST_F(DeviceTest, MultisamplingNeedsFilteredStretchFromTextures)
{
    // The filter flags that count are the LINEAR ones, not the POINT flags beside them.
    const struct
    {
        const char* what;
        uint32_t field, clear;
        bool refused;
    } cases[] = {
        {"no stretch from textures", KV_PROXY_CAP(DevCaps2), D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES, true},
        {"no linear minification", KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MINFLINEAR, true},
        {"no linear magnification", KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MAGFLINEAR, true},
        {"no point minification", KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MINFPOINT, false},
        {"no point magnification", KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MAGFPOINT, false},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.what);
        Again();
        kvproxy::FailMultiSampleAbove(4);
        ASSERT_TRUE(kvproxy::ClearCapBits(c.field, c.clear));
        ASSERT_TRUE(Init(false, 4));
        EXPECT_EQ(c.refused ? std::vector<std::string>{"m_d3dcaps.Caps2 Cannot support "
                                                       "D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES!!!"}
                            : std::vector<std::string>{},
                  Errors());
        EXPECT_EQ(c.refused, Calls(Method::D3D9_CheckDeviceMultiSampleType).empty());
        EXPECT_EQ(c.refused ? D3DMULTISAMPLE_NONE : D3DMULTISAMPLE_4_SAMPLES, CreatedWith().MultiSampleType);
    }
}

TEST_F(DeviceTest, CreateDeviceHasASecondChanceAndNoThird)
{
    kvproxy::FailMethod(Method::D3D9_CreateDevice, D3DERR_NOTAVAILABLE, 1);
    ASSERT_TRUE(Init());
    std::vector<KvProxyCall> creates = Calls(Method::D3D9_CreateDevice);
    ASSERT_EQ(2u, creates.size());
    EXPECT_TRUE(std::equal(creates[0].args, creates[0].args + 4, creates[1].args)) << "the same call again";
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::D3D9_CreateDevice, {D3DERR_NOTAVAILABLE, D3D_OK}));
    EXPECT_TRUE(Errors().empty());
    EXPECT_NE(nullptr, device);

    Again();
    kvproxy::FailMethod(Method::D3D9_CreateDevice, D3DERR_NOTAVAILABLE, 2);
    EXPECT_FALSE(Init());
    EXPECT_EQ(2u, Calls(Method::D3D9_CreateDevice).size());
    EXPECT_EQ((std::vector<std::string>{"cannot CreateDevice:-2005530518, D3DERR_NOTAVAILABLE, " +
                                            std::string(DXGetErrorDescription(D3DERR_NOTAVAILABLE)),
                                        "Failed to BuildDevice"}),
              Errors());
    EXPECT_EQ(nullptr, device);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(0, rs->m_nBuildDeviceCapabilitiesCount);
}

TEST_F(DeviceTest, EachFailingStepOfInitNamesItself)
{
    const HRESULT hr = D3DERR_INVALIDCALL;
    const struct
    {
        Method method;
        std::string line;
        bool deviceMade;
    } cases[] = {
        {Method::D3D9_GetDeviceCaps, "Failed to m_pD3D9->GetDeviceCaps:" + HrText(hr), false},
        {Method::D3D9_GetAdapterDisplayMode, "Failed to m_pD3D9->GetAdapterDisplayMode:0, " + HrText(hr), false},
        {Method::GetDeviceCaps, "Cannot get device caps!:" + HrText(hr), true},
        {Method::GetCreationParameters, "Error Get Creation Parameters:" + HrText(hr), true},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(kvproxy::MethodName(c.method));
        Again();
        kvproxy::FailMethod(c.method, hr, KV_PROXY_FOREVER);
        EXPECT_FALSE(Init());
        EXPECT_EQ((std::vector<std::string>{c.line, "Failed to BuildDevice"}), Errors());
        // A device made before the failure stays for the destructor to release.
        EXPECT_EQ(c.deviceMade, device != nullptr);
        EXPECT_EQ(0, rs->m_nBuildDeviceCapabilitiesCount);
    }

    // Without a window handle Init fails before any device.
    Again();
    mark = kvproxy::Here();
    EXPECT_FALSE(rs->Init(nullptr, kWidth, kHeight, false, false, 0));
    EXPECT_EQ((std::vector<std::string>{"Failed to CreateRenderWindow"}), Errors());
    EXPECT_FALSE(rs->m_pMainWindow);
    EXPECT_TRUE(Calls(Method::D3D9_CreateDevice).empty());
}

TEST_F(DeviceTest, TheDepthFormatFallsFromD24S8ToD24X8D32AndD16)
{
    // D24S8 is there but cannot sit beside this back buffer: D24X8, not asked about.
    kvproxy::FailMethod(Method::D3D9_CheckDepthStencilMatch, D3DERR_NOTAVAILABLE, KV_PROXY_FOREVER);
    ASSERT_TRUE(Init());
    EXPECT_EQ(D3DFMT_D24X8, CreatedWith().AutoDepthStencilFormat);
    EXPECT_EQ((std::vector<uint32_t>{D3DFMT_D24S8}), FormatsAsked(D3DUSAGE_DEPTHSTENCIL));

    // Without D24S8: D32 when the adapter has it, else D16 without a question.
    Again();
    kvproxy::FailCheckDeviceFormat(D3DFMT_D24S8, D3DUSAGE_DEPTHSTENCIL);
    ASSERT_TRUE(Init());
    EXPECT_EQ((std::vector<uint32_t>{D3DFMT_D24S8, D3DFMT_D32}), FormatsAsked(D3DUSAGE_DEPTHSTENCIL));
    std::vector<KvProxyCall> before = BeforeCreateDevice();
    EXPECT_TRUE(std::none_of(before.begin(), before.end(), [](const KvProxyCall& c) {
        return kvproxy::MethodOf(c) == Method::D3D9_CheckDepthStencilMatch;
    }));
    const bool d32 = std::any_of(before.begin(), before.end(),
                                 [](const KvProxyCall& c) { return c.args[5] == D3DFMT_D32 && c.result == D3D_OK; });
    EXPECT_EQ(d32 ? D3DFMT_D32 : D3DFMT_D16, CreatedWith().AutoDepthStencilFormat);

    Again();
    kvproxy::FailCheckDeviceFormat(D3DFMT_D24S8, D3DUSAGE_DEPTHSTENCIL);
    kvproxy::FailCheckDeviceFormat(D3DFMT_D32, D3DUSAGE_DEPTHSTENCIL);
    ASSERT_TRUE(Init());
    EXPECT_EQ((std::vector<uint32_t>{D3DFMT_D24S8, D3DFMT_D32}), FormatsAsked(D3DUSAGE_DEPTHSTENCIL));
    EXPECT_EQ(D3DFMT_D16, CreatedWith().AutoDepthStencilFormat);
}

TEST_F(DeviceTest, NestedFramesMakeOneSceneAndARefusedBeginSceneNone)
{
    ASSERT_TRUE(Init());
    kvproxy::Mark from = kvproxy::Here();
    rs->m_bDepthBufferCleared = true;
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_FALSE(rs->m_bDepthBufferCleared) << "the outermost frame resets the depth cleared flag";
    rs->m_bDepthBufferCleared = true;
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_TRUE(rs->m_bDepthBufferCleared) << "an inner frame leaves the flag";
    EXPECT_EQ(1u, kvproxy::CountSince(from, Method::BeginScene));
    EXPECT_EQ(3u, d3d->m_frameNesting.size());
    rs->_endFrame();
    rs->_endFrame();
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::EndScene));
    rs->_endFrame();
    EXPECT_TRUE(kvproxy::ResultsAre(from, Method::EndScene, {D3D_OK}));
    EXPECT_TRUE(d3d->m_frameNesting.empty());

    // The window's update goes through the same bracket.
    rs->m_bDepthBufferCleared = true;
    ASSERT_TRUE(rs->m_pMainWindow->_beginUpdate());
    EXPECT_FALSE(rs->m_bDepthBufferCleared);
    rs->m_pMainWindow->_endUpdate();
    EXPECT_TRUE(d3d->m_frameNesting.empty());

    // A refused BeginScene opens no frame, logs nothing, and the next frame reaches the device.
    ClearLog();
    kvproxy::FailMethod(Method::BeginScene, D3DERR_INVALIDCALL, 1);
    EXPECT_FALSE(rs->_beginFrame());
    EXPECT_TRUE(d3d->m_frameNesting.empty());
    EXPECT_EQ(0u, GetLogLineCount());
    from = kvproxy::Here();
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_TRUE(kvproxy::ResultsAre(from, Method::BeginScene, {D3D_OK}));
    rs->_endFrame();
}

// ---- the capability record

TEST_F(DeviceTest, TheRecordOfACapableCard)
{
    D3DADAPTER_IDENTIFIER9 id;
    std::memset(&id, 0, sizeof id);
    std::strcpy(id.Description, "Korvo Test Adapter \t\r ");
    id.DriverVersion.HighPart = 0x00080011;
    id.DriverVersion.LowPart = 0x000C1234;
    kvproxy::SetAdapterIdentifier(KV_PROXY_ID_DESCRIPTION | KV_PROXY_ID_DRIVERVERSION, id);
    kvproxy::SetCap(KV_PROXY_CAP(NumSimultaneousRTs), 4);
    kvproxy::SetCapFloat(KV_PROXY_CAP(MaxPointSize), 64.0f);
    kvproxy::SetCapBits(KV_PROXY_CAP(PrimitiveMiscCaps), 0, D3DPMISCCAPS_MRTINDEPENDENTBITDEPTHS);
    kvproxy::ClearCapBits(KV_PROXY_CAP(TextureCaps), D3DPTEXTURECAPS_POW2 | D3DPTEXTURECAPS_NONPOW2CONDITIONAL);
    kvproxy::SetCapBits(KV_PROXY_CAP(RasterCaps), 0, D3DPRASTERCAPS_MIPMAPLODBIAS);
    kvproxy::SetCap(KV_PROXY_CAP(MaxTextureWidth), 0x12000); // only the low 16 bits count
    SetShaderVersions(D3DVS_VERSION(3, 0), D3DPS_VERSION(3, 0));
    ASSERT_TRUE(Init());

    const CDeviceCapabilities& caps = Caps();
    EXPECT_EQ("Monitor-0-Korvo Test Adapter", caps.getDeviceName());
    EXPECT_EQ(GPU_NVIDIA, caps.m_eVendor); // Wine's own vendor id, 0x10DE
    EXPECT_EQ((std::vector<unsigned>{8, 0x11, 0xC, 0x1234}),
              (std::vector<unsigned>{caps.m_nDriverProduct, caps.m_nDriverVersion, caps.m_nDriverSubVersion,
                                     caps.m_nDriverBuild}));
    EXPECT_EQ(4u, caps.m_nNumMultiRenderTargets);
    EXPECT_EQ(64.0f, caps.m_fMaxPointSize);
    for (unsigned size : caps.m_nMaxTextureSize)
        EXPECT_EQ(0x2000u, size);
    // Wine answers every format question with D3D_OK; every x86-64 processor has SSE2.
    EXPECT_EQ("float mrt-depths npot mip-bias vertex-texture intz pcf d16 null ati2 rt32f rt16f srgb timer sse2",
              Yes(caps));
    EXPECT_EQ(PF_D24S8, caps.m_eShadowDepthFormat);
    EXPECT_EQ(PF_NULL, caps.m_eShadowColourFormat);
    EXPECT_EQ(RST_DX9C, g_eRenderSystemType);
    EXPECT_EQ("D3D9RenderSystem(DX9C)", caps.getRenderSystemName());
    EXPECT_EQ(1, rs->m_nBuildDeviceCapabilitiesCount);
    EXPECT_TRUE(Errors().empty());
    EXPECT_TRUE(InfoAfterReport().empty());

    const uint32_t ds = D3DUSAGE_DEPTHSTENCIL, rt = D3DUSAGE_RENDERTARGET, vt = D3DUSAGE_QUERY_VERTEXTEXTURE;
    const uint32_t surface = D3DRTYPE_SURFACE, texture = D3DRTYPE_TEXTURE;
    EXPECT_EQ((std::vector<Query>{{0, texture, D3DFMT_R16F},
                                  {vt, texture, D3DFMT_R32F},
                                  {vt, texture, D3DFMT_A32B32G32R32F},
                                  {ds, surface, kIntz},
                                  {ds, surface, D3DFMT_D24S8},
                                  {ds, surface, D3DFMT_D16},
                                  {rt, surface, kNull},
                                  {0, texture, kAti2},
                                  {rt, surface, D3DFMT_R32F},
                                  {rt, surface, D3DFMT_R16F},
                                  {D3DUSAGE_QUERY_SRGBREAD, texture, D3DFMT_A8R8G8B8},
                                  {D3DUSAGE_QUERY_SRGBWRITE, texture, D3DFMT_A8R8G8B8}}),
              CapabilityQueries(mark));
    for (const KvProxyCall& c : Calls(Method::D3D9_CheckDeviceFormat))
        EXPECT_EQ(static_cast<uint64_t>(d3d->m_adapterFormat), c.args[2]);
    std::vector<KvProxyCall> queries = Calls(Method::CreateQuery);
    ASSERT_EQ(2u, queries.size());
    EXPECT_EQ(static_cast<uint64_t>(D3DQUERYTYPE_TIMESTAMPFREQ), queries[0].args[0]);
    EXPECT_EQ(static_cast<uint64_t>(D3DQUERYTYPE_TIMESTAMP), queries[1].args[0]);
    EXPECT_EQ(0u, queries[0].args[1]) << "asked with a null out pointer";
}

TEST_F(DeviceTest, TheRecordOfAPoorCard)
{
    kvproxy::SetCap(KV_PROXY_CAP(NumSimultaneousRTs), 16);
    kvproxy::SetCapFloat(KV_PROXY_CAP(MaxPointSize), 100000.0f);
    kvproxy::ClearCapBits(KV_PROXY_CAP(PrimitiveMiscCaps), D3DPMISCCAPS_MRTINDEPENDENTBITDEPTHS);
    kvproxy::SetCapBits(KV_PROXY_CAP(TextureCaps), 0, D3DPTEXTURECAPS_NONPOW2CONDITIONAL);
    kvproxy::ClearCapBits(KV_PROXY_CAP(RasterCaps), D3DPRASTERCAPS_MIPMAPLODBIAS);
    kvproxy::SetCap(KV_PROXY_CAP(MaxTextureWidth), 2048);
    kvproxy::FailCheckDeviceFormat(D3DFMT_D24S8, D3DUSAGE_DEPTHSTENCIL);
    kvproxy::FailCheckDeviceFormat(static_cast<D3DFORMAT>(kNull), D3DUSAGE_RENDERTARGET);
    kvproxy::FailCheckDeviceFormat(D3DFMT_A8R8G8B8, D3DUSAGE_QUERY_SRGBWRITE);
    kvproxy::FailCreateQuery(D3DQUERYTYPE_TIMESTAMP);
    const float defaultPointSize = Caps().m_fMaxPointSize;
    ASSERT_TRUE(Init());

    const CDeviceCapabilities& caps = Caps();
    EXPECT_EQ(8u, caps.m_nNumMultiRenderTargets);
    EXPECT_EQ(defaultPointSize, caps.m_fMaxPointSize) << "only ever lowered";
    for (unsigned size : caps.m_nMaxTextureSize)
        EXPECT_EQ(4096u, size);
    EXPECT_EQ("float vertex-texture intz d16 ati2 rt32f rt16f sse2", Yes(caps));
    EXPECT_EQ(PF_UNKNOWN, caps.m_eShadowDepthFormat);
    EXPECT_EQ(PF_FLOAT32_R, caps.m_eShadowColourFormat);
    EXPECT_EQ((std::vector<std::string>{"Cannot support NPO2 texture!!!"}), Errors());
    EXPECT_EQ("D3D9RenderSystem(DX9C)", caps.getRenderSystemName());
    // The float target is asked once more for the shadow colour.
    std::vector<Query> asked = CapabilityQueries(mark);
    EXPECT_EQ(2, std::count(asked.begin(), asked.end(), Query{D3DUSAGE_RENDERTARGET, D3DRTYPE_SURFACE, D3DFMT_R32F}));

    // Without hardware depth or float targets shadow maps use colour; with
    // hardware depth but no null target the colour side is a real one.
    Again();
    kvproxy::FailCheckDeviceFormat(D3DFMT_D24S8, D3DUSAGE_DEPTHSTENCIL);
    kvproxy::FailCheckDeviceFormat(D3DFMT_R32F, D3DUSAGE_RENDERTARGET);
    ASSERT_TRUE(Init());
    EXPECT_EQ(PF_UNKNOWN, Caps().m_eShadowDepthFormat);
    EXPECT_EQ(PF_A8R8G8B8, Caps().m_eShadowColourFormat);
    EXPECT_FALSE(Caps().m_bFloat32RenderTarget);
    Again();
    kvproxy::FailCheckDeviceFormat(static_cast<D3DFORMAT>(kNull), D3DUSAGE_RENDERTARGET);
    ASSERT_TRUE(Init());
    EXPECT_EQ(PF_D24S8, Caps().m_eShadowDepthFormat);
    EXPECT_EQ(PF_A8R8G8B8, Caps().m_eShadowColourFormat);
}

TEST_F(DeviceTest, TheFirstUsableFloatFormatEndsTheRow)
{
    // A positive success code is enough.
    kvproxy::FailCheckDeviceFormat(D3DFMT_R16F, 0);
    kvproxy::FailCheckDeviceFormat(D3DFMT_G16R16F, 0, S_FALSE);
    ASSERT_TRUE(Init());
    EXPECT_TRUE(Caps().m_bFloatTexture);
    std::vector<Query> row;
    for (const Query& q : CapabilityQueries(mark))
        if (q[0] == 0 && q[1] == D3DRTYPE_TEXTURE && q[2] != kAti2)
            row.push_back(q);
    EXPECT_EQ((std::vector<Query>{{0, D3DRTYPE_TEXTURE, D3DFMT_R16F}, {0, D3DRTYPE_TEXTURE, D3DFMT_G16R16F}}), row);

    // None usable: the field keeps what it had.
    for (const bool before : {false, true})
    {
        Again();
        for (D3DFORMAT f :
             {D3DFMT_R16F, D3DFMT_G16R16F, D3DFMT_A16B16G16R16F, D3DFMT_R32F, D3DFMT_G32R32F, D3DFMT_A32B32G32R32F})
            kvproxy::FailCheckDeviceFormat(f, 0);
        Caps().m_bFloatTexture = before;
        ASSERT_TRUE(Init());
        EXPECT_EQ(before, Caps().m_bFloatTexture);
    }
}

TEST_F(DeviceTest, TheShaderGateChoosesTheMode)
{
    const struct
    {
        uint32_t vs, ps;
        bool dx9a;
    } cases[] = {
        {D3DVS_VERSION(3, 0), D3DPS_VERSION(3, 0), false},
        {D3DVS_VERSION(3, 0), D3DPS_VERSION(2, 0), true},
        {D3DVS_VERSION(2, 0), D3DPS_VERSION(3, 0), true},
        {D3DVS_VERSION(2, 0), D3DPS_VERSION(2, 0), true},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::Message() << std::hex << c.vs << " " << c.ps);
        Again();
        SetShaderVersions(c.vs, c.ps);
        ASSERT_TRUE(Init());
        EXPECT_EQ(c.dx9a ? RST_DX9A : RST_DX9C, g_eRenderSystemType);
        EXPECT_EQ(c.dx9a ? "D3D9RenderSystem(DX9A)" : "D3D9RenderSystem(DX9C)", Caps().getRenderSystemName());
        EXPECT_EQ(c.dx9a ? std::vector<std::string>{kDX9AShader} : std::vector<std::string>{}, InfoAfterReport());
        EXPECT_TRUE(Errors().empty());
        EXPECT_TRUE(Caps().m_bVertexTextureFetch);
    }

    // Below shader model two the system refuses to start.
    const uint32_t below[][2] = {{D3DVS_VERSION(2, 0), D3DPS_VERSION(1, 4)},
                                 {D3DVS_VERSION(1, 1), D3DPS_VERSION(3, 0)}};
    for (const auto& v : below)
    {
        SCOPED_TRACE(testing::Message() << std::hex << v[0] << " " << v[1]);
        Again();
        SetShaderVersions(v[0], v[1]);
        EXPECT_FALSE(Init());
        EXPECT_EQ(
            (std::vector<std::string>{"vs>=2.0 && ps>=2.0 not supported!!!", "Failed to BuildDeviceCapabilities"}),
            Errors());
        EXPECT_EQ(0, rs->m_nBuildDeviceCapabilitiesCount);
        EXPECT_EQ("", Caps().getRenderSystemName());
        EXPECT_EQ(RST_DX9C, g_eRenderSystemType);
        // Nothing behind the gate ran: no vertex texture or depth questions, no queries.
        for (const Query& q : CapabilityQueries(mark))
            EXPECT_EQ(0u, q[0]) << "only the float texture row comes before the gate";
        EXPECT_TRUE(Calls(Method::CreateQuery).empty());
        EXPECT_NE(nullptr, device) << "the device stays for the destructor";
    }
}

TEST_F(DeviceTest, WithoutVertexTexturesModelThreeFallsBackToDX9A)
{
    for (D3DFORMAT missing : {D3DFMT_A32B32G32R32F, D3DFMT_R32F})
    {
        SCOPED_TRACE(missing);
        Again();
        kvproxy::FailCheckDeviceFormat(missing, D3DUSAGE_QUERY_VERTEXTEXTURE);
        ASSERT_TRUE(Init());
        EXPECT_FALSE(Caps().m_bVertexTextureFetch);
        EXPECT_EQ(RST_DX9A, g_eRenderSystemType);
        EXPECT_EQ("D3D9RenderSystem(DX9A)", Caps().getRenderSystemName());
        EXPECT_EQ(1u, CountOf(Texts(LOG_WARNING), "VS Texture PF_FLOAT32_R && PF_FLOAT32_RGBA not supported!!!"));
        EXPECT_EQ(std::vector<std::string>{kDX9AVertexTexture}, InfoAfterReport());
        EXPECT_TRUE(Errors().empty());
    }

    // Both fall-throughs are logged in order.
    Again();
    SetShaderVersions(D3DVS_VERSION(3, 0), D3DPS_VERSION(2, 0));
    kvproxy::FailCheckDeviceFormat(D3DFMT_R32F, D3DUSAGE_QUERY_VERTEXTEXTURE);
    ASSERT_TRUE(Init());
    EXPECT_EQ((std::vector<std::string>{kDX9AShader, kDX9AVertexTexture}), InfoAfterReport());
    EXPECT_EQ(RST_DX9A, g_eRenderSystemType);
}

TEST_F(DeviceTest, TheTimerQueryCountsOnlyNotAvailableAsMissing)
{
    ASSERT_TRUE(Init());
    const struct
    {
        D3DQUERYTYPE type;
        HRESULT hr;
        bool available;
    } cases[] = {
        {D3DQUERYTYPE_TIMESTAMPFREQ, D3DERR_NOTAVAILABLE, false},
        {D3DQUERYTYPE_TIMESTAMP, D3DERR_NOTAVAILABLE, false},
        {D3DQUERYTYPE_TIMESTAMPFREQ, E_FAIL, true},
        {D3DQUERYTYPE_TIMESTAMP, D3DERR_INVALIDCALL, true},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::Message() << c.type << " " << std::hex << c.hr);
        kvproxy::ClearFaults();
        kvproxy::FailCreateQuery(c.type, c.hr);
        kvproxy::Mark from = kvproxy::Here();
        ASSERT_TRUE(d3d->BuildDeviceCapabilities());
        EXPECT_EQ(c.available, Caps().m_bTimerQuery);
        EXPECT_EQ(2u, kvproxy::CountSince(from, Method::CreateQuery)) << "both types are always asked";
    }
}

} // namespace
