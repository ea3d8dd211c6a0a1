// Making the device on the main window (present parameters, vertex processing, multisampling, failures, the
// frame bracket) and the capability record with the shader gate and vertex texture fallback that choose DX9C or DX9A.
#include "KvDeviceTest.h"

#include <tuple>

using kvproxy::Method;
using namespace kv;
using namespace kvtest;

namespace
{

const char kDX9AShader[] = "Change into D3D9A as shader version < 3.0";
const char kDX9AVertexTexture[] = "Change into D3D9A as VS Texture PF_FLOAT32_R && PF_FLOAT32_RGBA not supported";
const char kDX9C[] = "D3D9RenderSystem(DX9C)";

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

    // The calls of `m` before the first CreateDevice since Init began, as Trace writes them.
    std::string BeforeCreate(Method m, unsigned args) const
    {
        const std::string t = Trace(mark, {m, Method::D3D9_CreateDevice}, args);
        const size_t at = t.find("D3D9_CreateDevice(");
        return at == std::string::npos ? t : t.substr(0, at ? at - 1 : 0);
    }
    // The multisample questions for these counts, each of the back buffer's format, windowed.
    std::string SamplesAsked(std::initializer_list<unsigned> counts) const
    {
        std::string s;
        for (unsigned n : counts)
            s = Join(s, Call("D3D9_CheckDeviceMultiSampleType", 0, D3DDEVTYPE_HAL, D3DFMT_X8R8G8B8, 1, n));
        return s;
    }
    // The mode chosen: the global, the record's name, and the info lines after the six of the adapter report.
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

// The record's yes-or-no answers: float, mrt-depths, npot, mip-bias, vertex-texture, intz, pcf, d16, null,
// ati2, rt32f, rt16f, srgb, timer, sse2.
std::string Yes(const CDeviceCapabilities& c)
{
    return Call("", c.m_bFloatTexture, c.m_bMRTIndependentBitDepths, c.m_bNonPowerOfTwoTexture, c.GetMipBiasSupported(),
                c.m_bVertexTextureFetch, c.m_bDepthTextureINTZ, c.GetHardwarePCFSupported(), c.m_bDepthTextureD16,
                c.m_bNullRenderTarget, c.m_bATI2Texture, c.m_bFloat32RenderTarget, c.m_bFloat16RenderTarget,
                c.GetSRGBReadWrite(), c.m_bTimerQuery, c.m_bSSE2);
}

void SetShaderVersions(uint32_t vs, uint32_t ps)
{
    ASSERT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(VertexShaderVersion), vs));
    ASSERT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(PixelShaderVersion), ps));
}

TEST_F(DeviceTest, InitMakesTheDeviceOnTheWindowReportsTheAdapterAndChoosesTheSamples)
{
    ASSERT_TRUE(Init());
    EXPECT_EQ("AdapterCount:1", Texts(LOG_INFO).at(0));
    EXPECT_TRUE(Errors().empty());
    // The depth format was asked of the display format against the back buffer's.
    EXPECT_EQ(
        Call("D3D9_CheckDepthStencilMatch", 0, D3DDEVTYPE_HAL, d3d->m_adapterFormat, D3DFMT_X8R8G8B8, D3DFMT_D24S8),
        BeforeCreate(Method::D3D9_CheckDepthStencilMatch, 5));
    EXPECT_EQ(Call("D3D9_CreateDevice", 0, D3DDEVTYPE_HAL, kvproxy::PtrArg(hWnd), D3DCREATE_HARDWARE_VERTEXPROCESSING),
              Trace(mark, {Method::D3D9_CreateDevice}, 4));
    EXPECT_EQ("(320,240,22,1,0,0,1,1,1,75,0,0,2147483648,1)", PresentedBy(Method::D3D9_CreateDevice));

    // The window keeps its own record.
    EXPECT_EQ(PresentedBy(Method::D3D9_CreateDevice), Describe(MainWindow()->m_d3dpp));

    // Vsync doubles the back buffers of a windowed device.
    Again();
    ASSERT_TRUE(Init(true, 0));
    EXPECT_EQ("(320,240,22,2,0,0,1,1,1,75,0,0,1,1)", PresentedBy(Method::D3D9_CreateDevice));

    // Without hardware transform the device processes vertices in software.
    Again();
    ASSERT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(DevCaps), D3DDEVCAPS_HWTRANSFORMANDLIGHT));
    ASSERT_TRUE(Init());
    EXPECT_EQ((std::vector<std::string>{"Cannot use hardware vertexprocessing"}), Errors());
    EXPECT_EQ(Call("D3D9_CreateDevice", 0, D3DDEVTYPE_HAL, kvproxy::PtrArg(hWnd), D3DCREATE_SOFTWARE_VERTEXPROCESSING),
              Trace(mark, {Method::D3D9_CreateDevice}, 4));

    // Multisampling falls to the highest count the device takes.
    Again();
    kvproxy::FailMultiSampleAbove(4);
    ASSERT_TRUE(Init(false, 8));
    EXPECT_EQ(Trace(mark, {Method::D3D9_CheckDeviceMultiSampleType}, 5), SamplesAsked({8, 7, 6, 5, 4}));
    EXPECT_EQ("(320,240,22,1,4,0,1,1,1,75,0,0,2147483648,1)", PresentedBy(Method::D3D9_CreateDevice));
    EXPECT_TRUE(Errors().empty());

    // A refused single sample gives none, without asking for zero.
    Again();
    kvproxy::FailMultiSampleAbove(0);
    ASSERT_TRUE(Init(false, 1));
    EXPECT_EQ(Trace(mark, {Method::D3D9_CheckDeviceMultiSampleType}, 5), SamplesAsked({1}));
    EXPECT_EQ("(320,240,22,1,0,0,1,1,1,75,0,0,2147483648,1)", PresentedBy(Method::D3D9_CreateDevice));

    // Multisampling needs filtered stretches from textures, linear in both directions.
    Again();
    kvproxy::FailMultiSampleAbove(4);
    ASSERT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MINFLINEAR));
    ASSERT_TRUE(Init(false, 4));
    EXPECT_EQ((std::vector<std::string>{"m_d3dcaps.Caps2 Cannot support D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES!!!"}),
              Errors());
    EXPECT_TRUE(Calls(Method::D3D9_CheckDeviceMultiSampleType).empty());
    EXPECT_EQ("(320,240,22,1,0,0,1,1,1,75,0,0,2147483648,1)", PresentedBy(Method::D3D9_CreateDevice));

    // The destructor releases the device for good, then the runtime, which the device held.
    mark = kvproxy::Here();
    delete rs;
    rs = nullptr;
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::Release, {0}) &&
                kvproxy::ResultsAre(mark, Method::D3D9_Release, {0}));
}

TEST_F(DeviceTest, CreateDeviceHasASecondChanceAFailedInitNamesItsStepAndFramesNest)
{
    kvproxy::FailMethod(Method::D3D9_CreateDevice, D3DERR_NOTAVAILABLE, 1);
    ASSERT_TRUE(Init());
    const std::string create =
        Call("D3D9_CreateDevice", 0, D3DDEVTYPE_HAL, kvproxy::PtrArg(hWnd), D3DCREATE_HARDWARE_VERTEXPROCESSING);
    EXPECT_EQ(Join(create, create), Trace(mark, {Method::D3D9_CreateDevice}, 4)) << "the same call again";
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::D3D9_CreateDevice, {D3DERR_NOTAVAILABLE, D3D_OK}));
    EXPECT_TRUE(Errors().empty());
    EXPECT_NE(nullptr, device);
    // No third, and the failure names its step.
    Again();
    kvproxy::FailMethod(Method::D3D9_CreateDevice, D3DERR_NOTAVAILABLE, 2);
    EXPECT_FALSE(Init());
    EXPECT_EQ((std::vector<std::string>{"cannot CreateDevice:" + HrText(D3DERR_NOTAVAILABLE), "Failed to BuildDevice"}),
              Errors());
    EXPECT_TRUE(Calls(Method::D3D9_CreateDevice).size() == 2 && !device && kvproxy::NoDeviceCalls(mark));

    // Without a window handle Init fails before any device.
    Again();
    mark = kvproxy::Here();
    EXPECT_FALSE(rs->Init(nullptr, kWidth, kHeight, false, false, 0));
    EXPECT_EQ((std::vector<std::string>{"Failed to CreateRenderWindow"}), Errors());
    EXPECT_FALSE(rs->m_pMainWindow);
    EXPECT_TRUE(Calls(Method::D3D9_CreateDevice).empty());

    // Nested frames make one scene, and a refused BeginScene none.
    Again();
    ASSERT_TRUE(Init());
    kvproxy::Mark from = kvproxy::Here();
    // Only the outermost frame begins a scene and resets the depth cleared flag.
    rs->m_bDepthBufferCleared = true;
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_FALSE(rs->m_bDepthBufferCleared);
    rs->m_bDepthBufferCleared = true;
    EXPECT_TRUE(rs->_beginFrame() && rs->_beginFrame());
    EXPECT_TRUE(rs->m_bDepthBufferCleared);
    rs->_endFrame();
    rs->_endFrame();
    EXPECT_EQ("BeginScene()", Trace(from, {Method::BeginScene, Method::EndScene}));
    rs->_endFrame();
    EXPECT_EQ("BeginScene() EndScene()", Trace(from, {Method::BeginScene, Method::EndScene}));
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

TEST_F(DeviceTest, TheRecordOfACapableCardAndItsTimerQuery)
{
    D3DADAPTER_IDENTIFIER9 id = {};
    id.DriverVersion.HighPart = 0x00080011;
    id.DriverVersion.LowPart = 0x000C1234;
    kvproxy::SetAdapterIdentifier(KV_PROXY_ID_DRIVERVERSION, id);
    kvproxy::SetCap(KV_PROXY_CAP(NumSimultaneousRTs), 4);
    kvproxy::SetCapFloat(KV_PROXY_CAP(MaxPointSize), 64.0f);
    kvproxy::SetCapBits(KV_PROXY_CAP(PrimitiveMiscCaps), 0, D3DPMISCCAPS_MRTINDEPENDENTBITDEPTHS);
    kvproxy::ClearCapBits(KV_PROXY_CAP(TextureCaps), D3DPTEXTURECAPS_POW2 | D3DPTEXTURECAPS_NONPOW2CONDITIONAL);
    kvproxy::SetCapBits(KV_PROXY_CAP(RasterCaps), 0, D3DPRASTERCAPS_MIPMAPLODBIAS);
    kvproxy::SetCap(KV_PROXY_CAP(MaxTextureWidth), 0x12000); // only the low 16 bits count
    SetShaderVersions(D3DVS_VERSION(3, 0), D3DPS_VERSION(3, 0));
    ASSERT_TRUE(Init());

    const CDeviceCapabilities& c = Caps();
    // Wine's own vendor id is 0x10DE; Wine answers every format question with D3D_OK; x86-64 has SSE2.
    EXPECT_EQ(Call("", GPU_NVIDIA, 8, 0x11, 0xC, 0x1234, 4, 64, 0x2000, 0x2000, 0x2000, PF_D24S8, PF_NULL),
              Call("", c.m_eVendor, c.m_nDriverProduct, c.m_nDriverVersion, c.m_nDriverSubVersion, c.m_nDriverBuild,
                   c.m_nNumMultiRenderTargets, c.m_fMaxPointSize, c.m_nMaxTextureSize[0], c.m_nMaxTextureSize[1],
                   c.m_nMaxTextureSize[2], c.m_eShadowDepthFormat, c.m_eShadowColourFormat));
    EXPECT_EQ("(1,1,1,1,1,1,1,1,1,1,1,1,1,1,1)", Yes(c));
    EXPECT_EQ(std::string("DX9C ") + kDX9C, Mode());
    EXPECT_TRUE(Errors().empty());

    // Only "not available" counts the timer query as missing.
    const std::tuple<D3DQUERYTYPE, HRESULT, bool> cases[] = {{D3DQUERYTYPE_TIMESTAMPFREQ, D3DERR_NOTAVAILABLE, false},
                                                             {D3DQUERYTYPE_TIMESTAMP, D3DERR_NOTAVAILABLE, false},
                                                             {D3DQUERYTYPE_TIMESTAMPFREQ, E_FAIL, true},
                                                             {D3DQUERYTYPE_TIMESTAMP, D3DERR_INVALIDCALL, true}};
    for (const auto& [type, hr, available] : cases)
    {
        kvproxy::ClearFaults();
        kvproxy::FailCreateQuery(type, hr);
        kvproxy::Mark from = kvproxy::Here();
        ASSERT_TRUE(d3d->BuildDeviceCapabilities());
        EXPECT_EQ(Call("", available, 2),
                  Call("", Caps().m_bTimerQuery, kvproxy::CountSince(from, Method::CreateQuery)))
            << type << " " << std::hex << hr;
    }
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
    kvproxy::FailCheckDeviceFormat(static_cast<D3DFORMAT>(MAKEFOURCC('N', 'U', 'L', 'L')), D3DUSAGE_RENDERTARGET);
    kvproxy::FailCheckDeviceFormat(D3DFMT_A8R8G8B8, D3DUSAGE_QUERY_SRGBWRITE);
    kvproxy::FailCreateQuery(D3DQUERYTYPE_TIMESTAMP);
    const float defaultPointSize = Caps().m_fMaxPointSize; // only ever lowered
    ASSERT_TRUE(Init());

    const CDeviceCapabilities& c = Caps();
    EXPECT_EQ(Call("", 8, defaultPointSize, 4096, 4096, 4096, PF_UNKNOWN, PF_FLOAT32_R),
              Call("", c.m_nNumMultiRenderTargets, c.m_fMaxPointSize, c.m_nMaxTextureSize[0], c.m_nMaxTextureSize[1],
                   c.m_nMaxTextureSize[2], c.m_eShadowDepthFormat, c.m_eShadowColourFormat));
    EXPECT_EQ("(1,0,0,0,1,1,0,1,0,1,1,1,0,0,1)", Yes(c));
    EXPECT_EQ((std::vector<std::string>{"Cannot support NPO2 texture!!!"}), Errors());
    EXPECT_EQ(kDX9C, c.getRenderSystemName());
}

TEST_F(DeviceTest, TheShaderGateAndTheVertexTexturesChooseTheMode)
{
    const std::string dx9a = "DX9A D3D9RenderSystem(DX9A) | ";
    const std::tuple<uint32_t, uint32_t, std::string> cases[] = {
        {D3DVS_VERSION(3, 0), D3DPS_VERSION(3, 0), std::string("DX9C ") + kDX9C},
        {D3DVS_VERSION(3, 0), D3DPS_VERSION(2, 0), dx9a + kDX9AShader},
        {D3DVS_VERSION(2, 0), D3DPS_VERSION(3, 0), dx9a + kDX9AShader}};
    for (const auto& [vs, ps, mode] : cases)
    {
        SCOPED_TRACE(mode);
        Again();
        SetShaderVersions(vs, ps);
        ASSERT_TRUE(Init());
        EXPECT_EQ(mode, Mode());
        EXPECT_TRUE(Errors().empty() && Caps().m_bVertexTextureFetch);
    }

    // Below shader model two the system refuses to start; nothing behind the gate ran; the device stays.
    for (const uint32_t vs : {D3DVS_VERSION(2, 0), D3DVS_VERSION(1, 1)})
    {
        Again();
        SetShaderVersions(vs, vs == D3DVS_VERSION(2, 0) ? D3DPS_VERSION(1, 4) : D3DPS_VERSION(3, 0));
        EXPECT_FALSE(Init());
        EXPECT_EQ(
            (std::vector<std::string>{"vs>=2.0 && ps>=2.0 not supported!!!", "Failed to BuildDeviceCapabilities"}),
            Errors());
        EXPECT_EQ(Call("", 0, RST_DX9C), Call("", rs->m_nBuildDeviceCapabilitiesCount, g_eRenderSystemType));
        EXPECT_TRUE(Calls(Method::CreateQuery).empty());
        EXPECT_NE(nullptr, device);
    }

    // Without either vertex texture format model three falls back to DX9A.
    Again();
    kvproxy::FailCheckDeviceFormat(D3DFMT_R32F, D3DUSAGE_QUERY_VERTEXTEXTURE);
    ASSERT_TRUE(Init());
    EXPECT_FALSE(Caps().m_bVertexTextureFetch);
    EXPECT_EQ(dx9a + kDX9AVertexTexture, Mode());
    EXPECT_EQ(std::vector<std::string>{"VS Texture PF_FLOAT32_R && PF_FLOAT32_RGBA not supported!!!"},
              Texts(LOG_WARNING));
    EXPECT_TRUE(Errors().empty());
}

} // namespace
