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

const uint32_t kIntz = MAKEFOURCC('I', 'N', 'T', 'Z');
const uint32_t kNull = MAKEFOURCC('N', 'U', 'L', 'L');
const uint32_t kAti2 = MAKEFOURCC('A', 'T', 'I', '2');
const char kDX9AShader[] = "Change into D3D9A as shader version < 3.0";
const char kDX9AVertexTexture[] = "Change into D3D9A as VS Texture PF_FLOAT32_R && PF_FLOAT32_RGBA not supported";
const char kDX9C[] = "D3D9RenderSystem(DX9C)";
const char kDX9A[] = "D3D9RenderSystem(DX9A)";

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

    // The fields of present parameters a test compares, in one line.
    std::string Describe(const D3DPRESENT_PARAMETERS& pp) const
    {
        std::ostringstream s;
        s << pp.BackBufferWidth << "x" << pp.BackBufferHeight << " format " << pp.BackBufferFormat << " buffers "
          << pp.BackBufferCount << " samples " << pp.MultiSampleType << "/" << pp.MultiSampleQuality << " swap "
          << pp.SwapEffect << " windowed " << pp.Windowed << " depth " << pp.EnableAutoDepthStencil << "/"
          << pp.AutoDepthStencilFormat << " flags " << pp.Flags << " rate " << pp.FullScreen_RefreshRateInHz
          << " interval " << std::hex << pp.PresentationInterval << " window " << (pp.hDeviceWindow == hWnd);
        return s.str();
    }
    // Those of the last CreateDevice since Init began.
    std::string CreatedWith() const
    {
        D3DPRESENT_PARAMETERS pp = {};
        std::vector<KvProxyCall> creates = Calls(Method::D3D9_CreateDevice);
        EXPECT_TRUE(!creates.empty() && kvproxy::PresentParametersOf(creates.back(), &pp)) << "no CreateDevice";
        return Describe(pp);
    }
    // The calls of `m` before the first CreateDevice since Init began, as Trace writes them.
    std::string BeforeCreate(Method m, unsigned args) const
    {
        const std::string t = Trace(mark, {m, Method::D3D9_CreateDevice}, args);
        const size_t at = t.find("D3D9_CreateDevice(");
        return at == std::string::npos ? t : t.substr(0, at ? at - 1 : 0);
    }
    // The depth formats asked before CreateDevice.
    std::vector<uint32_t> DepthFormatsAsked() const
    {
        std::vector<uint32_t> formats;
        for (const KvProxyCall& c : kvproxy::CallsSince(mark))
        {
            if (kvproxy::MethodOf(c) == Method::D3D9_CreateDevice)
                break;
            if (kvproxy::MethodOf(c) == Method::D3D9_CheckDeviceFormat && c.args[3] == D3DUSAGE_DEPTHSTENCIL)
                formats.push_back(static_cast<uint32_t>(c.args[5]));
        }
        return formats;
    }
    std::vector<uint32_t> SampleCountsAsked(kvproxy::Mark from) const
    {
        std::vector<uint32_t> counts;
        for (const KvProxyCall& c : kvproxy::CallsSince(from, Method::D3D9_CheckDeviceMultiSampleType))
            counts.push_back(static_cast<uint32_t>(c.args[4]));
        return counts;
    }
    // The mode chosen: the global, the record's name, and the info lines after
    // the six of the adapter report.
    std::string Mode()
    {
        std::vector<std::string> info = Texts(LOG_INFO);
        EXPECT_GE(info.size(), 6u);
        std::string s = std::string(g_eRenderSystemType == RST_DX9A ? "DX9A " : "DX9C ") + Caps().getRenderSystemName();
        for (size_t i = 6; i < info.size(); ++i)
            s += " | " + info[i];
        return s;
    }
};

// Of blank-separated names, those whose answer is yes.
std::string Names(const std::string& names)
{
    return names.empty() ? names : "";
}
template <class... B>
std::string Names(const std::string& names, bool first, B... rest)
{
    const size_t end = names.find(' ');
    const std::string tail = Names(end == std::string::npos ? "" : names.substr(end + 1), rest...);
    return first ? Join(names.substr(0, end), tail) : tail;
}
// The names of the record's yes-or-no answers that are yes.
std::string Yes(const CDeviceCapabilities& c)
{
    return Names("float mrt-depths npot mip-bias vertex-texture intz pcf d16 null ati2 rt32f rt16f srgb timer sse2",
                 c.m_bFloatTexture, c.m_bMRTIndependentBitDepths, c.m_bNonPowerOfTwoTexture, c.GetMipBiasSupported(),
                 c.m_bVertexTextureFetch, c.m_bDepthTextureINTZ, c.GetHardwarePCFSupported(), c.m_bDepthTextureD16,
                 c.m_bNullRenderTarget, c.m_bATI2Texture, c.m_bFloat32RenderTarget, c.m_bFloat16RenderTarget,
                 c.GetSRGBReadWrite(), c.m_bTimerQuery, c.m_bSSE2);
}

void SetShaderVersions(uint32_t vs, uint32_t ps)
{
    ASSERT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(VertexShaderVersion), vs));
    ASSERT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(PixelShaderVersion), ps));
}

// The format questions of the capability record as "(usage,type,format)"
// words: after the device was made, up to the timer query probe that ends the record.
std::string CapabilityQueries(kvproxy::Mark from)
{
    std::string out;
    bool made = false;
    size_t probes = 0;
    for (const KvProxyCall& c : kvproxy::CallsSince(from))
    {
        const Method m = kvproxy::MethodOf(c);
        made = made || (m == Method::D3D9_CreateDevice && c.result == D3D_OK);
        if (!made || (m == Method::CreateQuery && ++probes == 2))
            continue;
        if (probes >= 2)
            break;
        if (m == Method::D3D9_CheckDeviceFormat)
            out = Join(out, Call("", c.args[3], c.args[4], c.args[5]));
    }
    return out;
}

TEST_F(DeviceTest, InitMakesTheDeviceOnTheWindowAndReportsTheAdapter)
{
    D3DADAPTER_IDENTIFIER9 id = {};
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
    // The depth format was asked of the display format against the back buffer's.
    EXPECT_EQ(
        Call("D3D9_CheckDepthStencilMatch", 0, D3DDEVTYPE_HAL, d3d->m_adapterFormat, D3DFMT_X8R8G8B8, D3DFMT_D24S8),
        BeforeCreate(Method::D3D9_CheckDepthStencilMatch, 5));
    EXPECT_EQ(Call("D3D9_CreateDevice", 0, D3DDEVTYPE_HAL, kvproxy::PtrArg(hWnd), D3DCREATE_HARDWARE_VERTEXPROCESSING),
              Trace(mark, {Method::D3D9_CreateDevice}, 4));
    EXPECT_EQ(Calls(Method::D3D9_CreateDevice).at(0).out, kvproxy::PtrArg(device));
    EXPECT_EQ("320x240 format 22 buffers 1 samples 0/0 swap 1 windowed 1 depth 1/75 flags 0 rate 0 interval "
              "80000000 window 1",
              CreatedWith());

    // The window keeps its own record and took the back buffer's format.
    CD3D9RenderWindow* window = MainWindow();
    ASSERT_NE(nullptr, window);
    EXPECT_EQ(CreatedWith(), Describe(window->m_d3dpp));
    EXPECT_EQ(PF_X8R8G8B8, window->getFormat());
    EXPECT_TRUE(window->m_bIsMainWindow && window->m_pBackBuffer);
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
    EXPECT_EQ((std::vector<std::string>{"AdapterCount:2", "===========================\nAdapter #0"}),
              std::vector<std::string>(info.begin(), info.begin() + 2));
    EXPECT_TRUE(Errors().empty());

    // Vsync doubles the back buffers of a windowed device.
    Again();
    ASSERT_TRUE(Init(true, 0));
    EXPECT_EQ("320x240 format 22 buffers 2 samples 0/0 swap 1 windowed 1 depth 1/75 flags 0 rate 0 interval 1 window 1",
              CreatedWith());
    EXPECT_EQ(2u, MainWindow()->m_d3dpp.BackBufferCount);

    // Without hardware transform the device processes vertices in software.
    Again();
    ASSERT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(DevCaps), D3DDEVCAPS_HWTRANSFORMANDLIGHT));
    ASSERT_TRUE(Init());
    EXPECT_EQ((std::vector<std::string>{"Cannot use hardware vertexprocessing"}), Errors());
    EXPECT_EQ(Call("D3D9_CreateDevice", 0, D3DDEVTYPE_HAL, kvproxy::PtrArg(hWnd), D3DCREATE_SOFTWARE_VERTEXPROCESSING),
              Trace(mark, {Method::D3D9_CreateDevice}, 4));
}

TEST_F(DeviceTest, MultisamplingFallsToTheHighestCountTheDeviceTakes)
{
    // The back buffer's format, windowed.
    kvproxy::FailMultiSampleAbove(4);
    ASSERT_TRUE(Init(false, 8));
    EXPECT_EQ((std::vector<uint32_t>{8, 7, 6, 5, 4}), SampleCountsAsked(mark));
    EXPECT_EQ(5u, kvproxy::CountSince(mark, Method::D3D9_CheckDeviceMultiSampleType));
    for (const KvProxyCall& c : Calls(Method::D3D9_CheckDeviceMultiSampleType))
        EXPECT_EQ(Call("", D3DFMT_X8R8G8B8, 1), Call("", c.args[2], c.args[3]));
    EXPECT_EQ("320x240 format 22 buffers 1 samples 4/0 swap 1 windowed 1 depth 1/75 flags 0 rate 0 interval "
              "80000000 window 1",
              CreatedWith());
    EXPECT_TRUE(Errors().empty());

    // A refused single sample gives none, without asking for zero.
    Again();
    kvproxy::FailMultiSampleAbove(0);
    ASSERT_TRUE(Init(false, 1));
    EXPECT_EQ((std::vector<uint32_t>{1}), SampleCountsAsked(mark));
    EXPECT_NE(std::string::npos, CreatedWith().find(" samples 0/0 "));

    // Never above sixteen; full screen asks for non-windowed multisampling.
    kvproxy::Mark from = kvproxy::Here();
    D3DMULTISAMPLE_TYPE type = D3DMULTISAMPLE_4_SAMPLES;
    DWORD quality = 7;
    d3d->DetermineFSAASettings(0xFFFFFFFFu, "hint", D3DFMT_A8R8G8B8, true, &type, &quality);
    EXPECT_EQ(Call("", D3DMULTISAMPLE_NONE, 0), Call("", type, quality));
    std::vector<uint32_t> asked = SampleCountsAsked(from);
    ASSERT_EQ(16u, asked.size());
    EXPECT_EQ(Call("", 16, 1), Call("", asked.front(), asked.back()));
    const KvProxyCall first = kvproxy::CallsSince(from, Method::D3D9_CheckDeviceMultiSampleType)[0];
    EXPECT_EQ(Call("", D3DFMT_A8R8G8B8, 0), Call("", first.args[2], first.args[3]));

    // No multisampling asks nothing and logs nothing, even without the stretch capability.
    Again();
    ASSERT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(DevCaps2), D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES));
    ASSERT_TRUE(Init(false, 0));
    EXPECT_TRUE(Errors().empty());
    EXPECT_TRUE(Calls(Method::D3D9_CheckDeviceMultiSampleType).empty());

    // Multisampling needs filtered stretches from textures: the filter flags that
    // count are the LINEAR ones, not the POINT flags beside them.
    const struct
    {
        uint32_t field, clear;
        bool refused;
    } cases[] = {
        {KV_PROXY_CAP(DevCaps2), D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES, true},
        {KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MINFLINEAR, true},
        {KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MAGFLINEAR, true},
        {KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MINFPOINT, false},
        {KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MAGFPOINT, false},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.clear);
        Again();
        kvproxy::FailMultiSampleAbove(4);
        ASSERT_TRUE(kvproxy::ClearCapBits(c.field, c.clear));
        ASSERT_TRUE(Init(false, 4));
        EXPECT_EQ(c.refused ? std::vector<std::string>{"m_d3dcaps.Caps2 Cannot support "
                                                       "D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES!!!"}
                            : std::vector<std::string>{},
                  Errors());
        EXPECT_EQ(c.refused, Calls(Method::D3D9_CheckDeviceMultiSampleType).empty());
        EXPECT_NE(std::string::npos, CreatedWith().find(c.refused ? " samples 0/0 " : " samples 4/0 "));
    }
}

TEST_F(DeviceTest, EachFailingStepOfInitNamesItselfAndCreateDeviceHasASecondChance)
{
    kvproxy::FailMethod(Method::D3D9_CreateDevice, D3DERR_NOTAVAILABLE, 1);
    ASSERT_TRUE(Init());
    std::vector<KvProxyCall> creates = Calls(Method::D3D9_CreateDevice);
    ASSERT_EQ(2u, creates.size());
    EXPECT_TRUE(std::equal(creates[0].args, creates[0].args + 4, creates[1].args)) << "the same call again";
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::D3D9_CreateDevice, {D3DERR_NOTAVAILABLE, D3D_OK}));
    EXPECT_TRUE(Errors().empty());
    EXPECT_NE(nullptr, device);

    // No third.
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

    // A device made before the failure stays for the destructor to release.
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
    EXPECT_NE(std::string::npos, CreatedWith().find(" depth 1/77 "));
    EXPECT_EQ((std::vector<uint32_t>{D3DFMT_D24S8}), DepthFormatsAsked());

    // Without D24S8: D32 when the adapter has it, else D16 without a question.
    Again();
    kvproxy::FailCheckDeviceFormat(D3DFMT_D24S8, D3DUSAGE_DEPTHSTENCIL);
    ASSERT_TRUE(Init());
    EXPECT_EQ((std::vector<uint32_t>{D3DFMT_D24S8, D3DFMT_D32}), DepthFormatsAsked());
    EXPECT_EQ("", BeforeCreate(Method::D3D9_CheckDepthStencilMatch, 0));
    const std::vector<KvProxyCall> asked = Calls(Method::D3D9_CheckDeviceFormat);
    const bool d32 = std::any_of(asked.begin(), asked.end(),
                                 [](const KvProxyCall& c) { return c.args[5] == D3DFMT_D32 && c.result == D3D_OK; });
    EXPECT_NE(std::string::npos, CreatedWith().find(d32 ? " depth 1/71 " : " depth 1/80 "));

    Again();
    kvproxy::FailCheckDeviceFormat(D3DFMT_D24S8, D3DUSAGE_DEPTHSTENCIL);
    kvproxy::FailCheckDeviceFormat(D3DFMT_D32, D3DUSAGE_DEPTHSTENCIL);
    ASSERT_TRUE(Init());
    EXPECT_EQ((std::vector<uint32_t>{D3DFMT_D24S8, D3DFMT_D32}), DepthFormatsAsked());
    EXPECT_NE(std::string::npos, CreatedWith().find(" depth 1/80 "));
}

TEST_F(DeviceTest, NestedFramesMakeOneSceneAndARefusedBeginSceneNone)
{
    ASSERT_TRUE(Init());
    kvproxy::Mark from = kvproxy::Here();
    // Only the outermost frame begins a scene and resets the depth cleared flag.
    rs->m_bDepthBufferCleared = true;
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_FALSE(rs->m_bDepthBufferCleared);
    rs->m_bDepthBufferCleared = true;
    EXPECT_TRUE(rs->_beginFrame() && rs->_beginFrame());
    EXPECT_TRUE(rs->m_bDepthBufferCleared);
    EXPECT_EQ(3u, d3d->m_frameNesting.size());
    rs->_endFrame();
    rs->_endFrame();
    EXPECT_EQ("BeginScene()", Trace(from, {Method::BeginScene, Method::EndScene}));
    rs->_endFrame();
    EXPECT_EQ("BeginScene() EndScene()", Trace(from, {Method::BeginScene, Method::EndScene}));
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
    D3DADAPTER_IDENTIFIER9 id = {};
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

    const CDeviceCapabilities& c = Caps();
    EXPECT_EQ("Monitor-0-Korvo Test Adapter", c.getDeviceName());
    // Wine's own vendor id is 0x10DE; Wine answers every format question with
    // D3D_OK; every x86-64 processor has SSE2.
    EXPECT_EQ(Call("", GPU_NVIDIA, 8, 0x11, 0xC, 0x1234, 4, 64, 0x2000, 0x2000, 0x2000, PF_D24S8, PF_NULL),
              Call("", c.m_eVendor, c.m_nDriverProduct, c.m_nDriverVersion, c.m_nDriverSubVersion, c.m_nDriverBuild,
                   c.m_nNumMultiRenderTargets, c.m_fMaxPointSize, c.m_nMaxTextureSize[0], c.m_nMaxTextureSize[1],
                   c.m_nMaxTextureSize[2], c.m_eShadowDepthFormat, c.m_eShadowColourFormat));
    EXPECT_EQ(3u, sizeof c.m_nMaxTextureSize / sizeof c.m_nMaxTextureSize[0]);
    EXPECT_EQ("float mrt-depths npot mip-bias vertex-texture intz pcf d16 null ati2 rt32f rt16f srgb timer sse2",
              Yes(c));
    EXPECT_EQ(std::string("DX9C ") + kDX9C, Mode());
    EXPECT_EQ(1, rs->m_nBuildDeviceCapabilitiesCount);
    EXPECT_TRUE(Errors().empty());

    const uint32_t ds = D3DUSAGE_DEPTHSTENCIL, rt = D3DUSAGE_RENDERTARGET, vt = D3DUSAGE_QUERY_VERTEXTEXTURE;
    const uint32_t surface = D3DRTYPE_SURFACE, texture = D3DRTYPE_TEXTURE;
    EXPECT_EQ(Join(Call("", 0, texture, D3DFMT_R16F), Call("", vt, texture, D3DFMT_R32F),
                   Call("", vt, texture, D3DFMT_A32B32G32R32F), Call("", ds, surface, kIntz),
                   Call("", ds, surface, D3DFMT_D24S8), Call("", ds, surface, D3DFMT_D16), Call("", rt, surface, kNull),
                   Call("", 0, texture, kAti2), Call("", rt, surface, D3DFMT_R32F), Call("", rt, surface, D3DFMT_R16F),
                   Call("", D3DUSAGE_QUERY_SRGBREAD, texture, D3DFMT_A8R8G8B8),
                   Call("", D3DUSAGE_QUERY_SRGBWRITE, texture, D3DFMT_A8R8G8B8)),
              CapabilityQueries(mark));
    for (const KvProxyCall& q : Calls(Method::D3D9_CheckDeviceFormat))
        EXPECT_EQ(static_cast<uint64_t>(d3d->m_adapterFormat), q.args[2]);
    // Both timer queries asked with a null out pointer.
    EXPECT_EQ(Join(Call("CreateQuery", D3DQUERYTYPE_TIMESTAMPFREQ, 0), Call("CreateQuery", D3DQUERYTYPE_TIMESTAMP, 0)),
              Trace(mark, {Method::CreateQuery}, 2));
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
    const float defaultPointSize = Caps().m_fMaxPointSize; // only ever lowered
    ASSERT_TRUE(Init());

    const CDeviceCapabilities& c = Caps();
    EXPECT_EQ(Call("", 8, defaultPointSize, 4096, 4096, 4096, PF_UNKNOWN, PF_FLOAT32_R),
              Call("", c.m_nNumMultiRenderTargets, c.m_fMaxPointSize, c.m_nMaxTextureSize[0], c.m_nMaxTextureSize[1],
                   c.m_nMaxTextureSize[2], c.m_eShadowDepthFormat, c.m_eShadowColourFormat));
    EXPECT_EQ("float vertex-texture intz d16 ati2 rt32f rt16f sse2", Yes(c));
    EXPECT_EQ((std::vector<std::string>{"Cannot support NPO2 texture!!!"}), Errors());
    EXPECT_EQ(kDX9C, c.getRenderSystemName());
    // The float target is asked once more for the shadow colour.
    const std::string asked = CapabilityQueries(mark),
                      target = Call("", D3DUSAGE_RENDERTARGET, D3DRTYPE_SURFACE, D3DFMT_R32F);
    EXPECT_NE(asked.find(target), asked.rfind(target));
    EXPECT_EQ(asked.find(target, asked.find(target) + 1), asked.rfind(target));

    // Without hardware depth or float targets shadow maps use colour; with
    // hardware depth but no null target the colour side is a real one.
    Again();
    kvproxy::FailCheckDeviceFormat(D3DFMT_D24S8, D3DUSAGE_DEPTHSTENCIL);
    kvproxy::FailCheckDeviceFormat(D3DFMT_R32F, D3DUSAGE_RENDERTARGET);
    ASSERT_TRUE(Init());
    EXPECT_EQ(Call("", PF_UNKNOWN, PF_A8R8G8B8, false),
              Call("", Caps().m_eShadowDepthFormat, Caps().m_eShadowColourFormat, Caps().m_bFloat32RenderTarget));
    Again();
    kvproxy::FailCheckDeviceFormat(static_cast<D3DFORMAT>(kNull), D3DUSAGE_RENDERTARGET);
    ASSERT_TRUE(Init());
    EXPECT_EQ(Call("", PF_D24S8, PF_A8R8G8B8), Call("", Caps().m_eShadowDepthFormat, Caps().m_eShadowColourFormat));
}

TEST_F(DeviceTest, TheFirstUsableFloatFormatEndsTheRow)
{
    // A positive success code is enough.
    kvproxy::FailCheckDeviceFormat(D3DFMT_R16F, 0);
    kvproxy::FailCheckDeviceFormat(D3DFMT_G16R16F, 0, S_FALSE);
    ASSERT_TRUE(Init());
    EXPECT_TRUE(Caps().m_bFloatTexture);
    // The vertex texture questions follow.
    EXPECT_EQ(0u, CapabilityQueries(mark).find(
                      Join(Call("", 0, D3DRTYPE_TEXTURE, D3DFMT_R16F), Call("", 0, D3DRTYPE_TEXTURE, D3DFMT_G16R16F),
                           Call("", D3DUSAGE_QUERY_VERTEXTEXTURE, D3DRTYPE_TEXTURE, D3DFMT_R32F))));

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

TEST_F(DeviceTest, TheShaderGateAndTheVertexTexturesChooseTheMode)
{
    const std::string dx9a = std::string("DX9A ") + kDX9A + " | ";
    const struct
    {
        uint32_t vs, ps;
        std::string mode;
    } cases[] = {
        {D3DVS_VERSION(3, 0), D3DPS_VERSION(3, 0), std::string("DX9C ") + kDX9C},
        {D3DVS_VERSION(3, 0), D3DPS_VERSION(2, 0), dx9a + kDX9AShader},
        {D3DVS_VERSION(2, 0), D3DPS_VERSION(3, 0), dx9a + kDX9AShader},
        {D3DVS_VERSION(2, 0), D3DPS_VERSION(2, 0), dx9a + kDX9AShader},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.mode);
        Again();
        SetShaderVersions(c.vs, c.ps);
        ASSERT_TRUE(Init());
        EXPECT_EQ(c.mode, Mode());
        EXPECT_TRUE(Errors().empty());
        EXPECT_TRUE(Caps().m_bVertexTextureFetch);
    }

    // Below shader model two the system refuses to start; nothing behind the
    // gate ran (only the float texture row comes before it), and the device
    // stays for the destructor.
    for (const uint32_t vs : {D3DVS_VERSION(2, 0), D3DVS_VERSION(1, 1)})
    {
        Again();
        SetShaderVersions(vs, vs == D3DVS_VERSION(2, 0) ? D3DPS_VERSION(1, 4) : D3DPS_VERSION(3, 0));
        EXPECT_FALSE(Init());
        EXPECT_EQ(
            (std::vector<std::string>{"vs>=2.0 && ps>=2.0 not supported!!!", "Failed to BuildDeviceCapabilities"}),
            Errors());
        EXPECT_EQ(Call("", 0, RST_DX9C), Call("", rs->m_nBuildDeviceCapabilitiesCount, g_eRenderSystemType));
        EXPECT_EQ("", Caps().getRenderSystemName());
        EXPECT_EQ(Call("", 0, D3DRTYPE_TEXTURE, D3DFMT_R16F), CapabilityQueries(mark));
        EXPECT_TRUE(Calls(Method::CreateQuery).empty());
        EXPECT_NE(nullptr, device);
    }

    // Without either vertex texture format model three falls back to DX9A.
    for (D3DFORMAT missing : {D3DFMT_A32B32G32R32F, D3DFMT_R32F})
    {
        SCOPED_TRACE(missing);
        Again();
        kvproxy::FailCheckDeviceFormat(missing, D3DUSAGE_QUERY_VERTEXTEXTURE);
        ASSERT_TRUE(Init());
        EXPECT_FALSE(Caps().m_bVertexTextureFetch);
        EXPECT_EQ(dx9a + kDX9AVertexTexture, Mode());
        EXPECT_EQ(1u, CountOf(Texts(LOG_WARNING), "VS Texture PF_FLOAT32_R && PF_FLOAT32_RGBA not supported!!!"));
        EXPECT_TRUE(Errors().empty());
    }
    // Both fall-throughs are logged in order.
    Again();
    SetShaderVersions(D3DVS_VERSION(3, 0), D3DPS_VERSION(2, 0));
    kvproxy::FailCheckDeviceFormat(D3DFMT_R32F, D3DUSAGE_QUERY_VERTEXTEXTURE);
    ASSERT_TRUE(Init());
    EXPECT_EQ(dx9a + kDX9AShader + " | " + kDX9AVertexTexture, Mode());
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

TEST_F(DeviceTest, TheDestructorReleasesDeviceRuntimeAndReadBackSurfaces)
{
    ASSERT_TRUE(Init());
    // A read-back surface as a screenshot leaves it; the last references are ours.
    IDirect3DSurface9* surface = nullptr;
    ASSERT_EQ(D3D_OK, device->CreateOffscreenPlainSurface(4, 4, D3DFMT_A8R8G8B8, D3DPOOL_SYSTEMMEM, &surface, nullptr));
    surface->AddRef();
    d3d->m_mapReadbackSurfaces[CD3D9RenderSystem::ReadbackKey(4, 4, D3DFMT_A8R8G8B8)] = surface;
    d3d->m_pLockedReadbackSurface = surface;
    IDirect3D9* runtime = d3d->m_pD3D9;
    IDirect3DDevice9* made = device;
    runtime->AddRef();
    made->AddRef();
    delete rs;
    rs = nullptr;
    EXPECT_EQ(nullptr, GetRenderSystem());
    EXPECT_EQ(0u, surface->Release());
    EXPECT_EQ(0u, made->Release());
    EXPECT_EQ(0u, runtime->Release());
}

} // namespace
