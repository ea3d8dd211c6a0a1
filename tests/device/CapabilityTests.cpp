// What the engine learns of the device: the record field by field, the vendor
// table, the shader gate and the vertex texture fallback that choose between
// the DX9C and DX9A modes, the format queries and what they decide.
#include "DeviceFixture.h"

#include <algorithm>
#include <cstring>

using kvproxy::Method;
using namespace kv;

namespace
{

typedef std::vector<uint32_t> Query; // usage, resource type, format

const uint32_t kIntz = MAKEFOURCC('I', 'N', 'T', 'Z');
const uint32_t kNull = MAKEFOURCC('N', 'U', 'L', 'L');
const uint32_t kAti2 = MAKEFOURCC('A', 'T', 'I', '2');

void SetShaderVersions(uint32_t vs, uint32_t ps)
{
    ASSERT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(VertexShaderVersion), vs));
    ASSERT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(PixelShaderVersion), ps));
}

// The questions of the capability record: asked after the device was made and
// up to the timer query probe that ends the record (what the main window asks
// for its depth buffer afterwards is not part of it).
std::vector<Query> CapabilityQueries(kvproxy::Mark from)
{
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(from);
    size_t first = calls.size();
    for (size_t i = 0; i < calls.size() && first == calls.size(); ++i)
        if (kvproxy::MethodOf(calls[i]) == Method::D3D9_CreateDevice && calls[i].result == D3D_OK)
            first = i;
    size_t end = calls.size();
    for (size_t i = first, probes = 0; i < calls.size() && end == calls.size(); ++i)
        if (kvproxy::MethodOf(calls[i]) == Method::CreateQuery && ++probes == 2)
            end = i;
    return DeviceTest::FormatQueriesOf(std::vector<KvProxyCall>(calls.begin() + first, calls.begin() + end));
}

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
    EXPECT_EQ(8u, caps.m_nDriverProduct);
    EXPECT_EQ(0x11u, caps.m_nDriverVersion);
    EXPECT_EQ(0xCu, caps.m_nDriverSubVersion);
    EXPECT_EQ(0x1234u, caps.m_nDriverBuild);
    EXPECT_EQ(4u, caps.m_nNumMultiRenderTargets);
    EXPECT_EQ(64.0f, caps.m_fMaxPointSize);
    EXPECT_TRUE(caps.m_bFloatTexture);
    EXPECT_TRUE(caps.m_bMRTIndependentBitDepths);
    EXPECT_TRUE(caps.m_bNonPowerOfTwoTexture);
    EXPECT_TRUE(caps.GetMipBiasSupported());
    for (unsigned size : caps.m_nMaxTextureSize)
        EXPECT_EQ(0x2000u, size);
    EXPECT_TRUE(caps.m_bSSE2); // every x86-64 processor has it

    // Wine answers every format question with D3D_OK.
    EXPECT_TRUE(caps.m_bVertexTextureFetch);
    EXPECT_TRUE(caps.m_bDepthTextureINTZ);
    EXPECT_TRUE(caps.GetHardwarePCFSupported());
    EXPECT_TRUE(caps.m_bDepthTextureD16);
    EXPECT_TRUE(caps.m_bNullRenderTarget);
    EXPECT_TRUE(caps.m_bATI2Texture);
    EXPECT_TRUE(caps.m_bFloat32RenderTarget);
    EXPECT_TRUE(caps.m_bFloat16RenderTarget);
    EXPECT_EQ(PF_D24S8, caps.m_eShadowDepthFormat);
    EXPECT_EQ(PF_NULL, caps.m_eShadowColourFormat);
    EXPECT_TRUE(caps.GetSRGBReadWrite());
    EXPECT_TRUE(caps.m_bTimerQuery);

    EXPECT_EQ(RST_DX9C, g_eRenderSystemType);
    EXPECT_EQ("D3D9RenderSystem(DX9C)", caps.getRenderSystemName());
    EXPECT_EQ(1, rs->m_nBuildDeviceCapabilitiesCount);
    EXPECT_TRUE(Texts(LOG_ERROR).empty());
    EXPECT_EQ(6u, Texts(LOG_INFO).size()); // the adapter report alone

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
    EXPECT_FALSE(caps.m_bMRTIndependentBitDepths);
    EXPECT_FALSE(caps.m_bNonPowerOfTwoTexture);
    EXPECT_FALSE(caps.GetMipBiasSupported());
    for (unsigned size : caps.m_nMaxTextureSize)
        EXPECT_EQ(4096u, size);
    EXPECT_FALSE(caps.GetHardwarePCFSupported());
    EXPECT_FALSE(caps.m_bNullRenderTarget);
    EXPECT_EQ(PF_UNKNOWN, caps.m_eShadowDepthFormat);
    EXPECT_EQ(PF_FLOAT32_R, caps.m_eShadowColourFormat);
    EXPECT_FALSE(caps.GetSRGBReadWrite());
    EXPECT_FALSE(caps.m_bTimerQuery);
    EXPECT_EQ((std::vector<std::string>{"Cannot support NPO2 texture!!!"}), Texts(LOG_ERROR));
    EXPECT_EQ("D3D9RenderSystem(DX9C)", caps.getRenderSystemName());

    // The float target is asked once more for the shadow colour.
    size_t asked = 0;
    for (const Query& q : CapabilityQueries(mark))
        asked += q == Query{D3DUSAGE_RENDERTARGET, D3DRTYPE_SURFACE, D3DFMT_R32F};
    EXPECT_EQ(2u, asked);
}

TEST_F(DeviceTest, ShadowMapsWithoutHardwareDepthOrFloatTargetsUseColour)
{
    kvproxy::FailCheckDeviceFormat(D3DFMT_D24S8, D3DUSAGE_DEPTHSTENCIL);
    kvproxy::FailCheckDeviceFormat(D3DFMT_R32F, D3DUSAGE_RENDERTARGET);
    ASSERT_TRUE(Init());
    EXPECT_EQ(PF_UNKNOWN, Caps().m_eShadowDepthFormat);
    EXPECT_EQ(PF_A8R8G8B8, Caps().m_eShadowColourFormat);
    EXPECT_FALSE(Caps().m_bFloat32RenderTarget);

    // With hardware depth but no null target the colour side is a real one.
    NewRenderSystem();
    kvproxy::ResetAll();
    kvproxy::FailCheckDeviceFormat(static_cast<D3DFORMAT>(kNull), D3DUSAGE_RENDERTARGET);
    ASSERT_TRUE(Init());
    EXPECT_EQ(PF_D24S8, Caps().m_eShadowDepthFormat);
    EXPECT_EQ(PF_A8R8G8B8, Caps().m_eShadowColourFormat);
}

TEST_F(DeviceTest, TheFirstUsableFloatFormatEndsTheRow)
{
    // A positive success code is enough here.
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
        NewRenderSystem();
        kvproxy::ResetAll();
        for (D3DFORMAT f : {D3DFMT_R16F, D3DFMT_G16R16F, D3DFMT_A16B16G16R16F, D3DFMT_R32F, D3DFMT_G32R32F,
                            D3DFMT_A32B32G32R32F})
            kvproxy::FailCheckDeviceFormat(f, 0);
        Caps().m_bFloatTexture = before;
        ASSERT_TRUE(Init());
        EXPECT_EQ(before, Caps().m_bFloatTexture);
    }
}

TEST_F(DeviceTest, TheShaderGateChoosesTheMode)
{
    struct Case
    {
        uint32_t vs, ps;
        RenderSystemType type;
        const char* name;
    };
    const Case cases[] = {
        {D3DVS_VERSION(3, 0), D3DPS_VERSION(3, 0), RST_DX9C, "D3D9RenderSystem(DX9C)"},
        {D3DVS_VERSION(3, 0), D3DPS_VERSION(2, 0), RST_DX9A, "D3D9RenderSystem(DX9A)"},
        {D3DVS_VERSION(2, 0), D3DPS_VERSION(3, 0), RST_DX9A, "D3D9RenderSystem(DX9A)"},
        {D3DVS_VERSION(2, 0), D3DPS_VERSION(2, 0), RST_DX9A, "D3D9RenderSystem(DX9A)"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(testing::Message() << std::hex << c.vs << " " << c.ps);
        NewRenderSystem();
        kvproxy::ResetAll();
        kv::ClearLog();
        g_eRenderSystemType = RST_DX9C;
        SetShaderVersions(c.vs, c.ps);
        ASSERT_TRUE(Init());
        EXPECT_EQ(c.type, g_eRenderSystemType);
        EXPECT_EQ(c.name, Caps().getRenderSystemName());
        std::vector<std::string> info = Texts(LOG_INFO);
        ASSERT_GE(info.size(), 6u);
        info.erase(info.begin(), info.begin() + 6); // the adapter report
        if (c.type == RST_DX9A)
            EXPECT_EQ((std::vector<std::string>{"Change into D3D9A as shader version < 3.0"}), info);
        else
            EXPECT_TRUE(info.empty());
        EXPECT_TRUE(Texts(LOG_ERROR).empty());
        EXPECT_TRUE(Caps().m_bVertexTextureFetch);
    }
}

TEST_F(DeviceTest, BelowShaderModelTwoTheSystemRefusesToStart)
{
    const uint32_t versions[][2] = {{D3DVS_VERSION(2, 0), D3DPS_VERSION(1, 4)},
                                    {D3DVS_VERSION(1, 1), D3DPS_VERSION(3, 0)}};
    for (const auto& v : versions)
    {
        SCOPED_TRACE(testing::Message() << std::hex << v[0] << " " << v[1]);
        NewRenderSystem();
        kvproxy::ResetAll();
        kv::ClearLog();
        SetShaderVersions(v[0], v[1]);
        EXPECT_FALSE(Init());
        EXPECT_EQ((std::vector<std::string>{"vs>=2.0 && ps>=2.0 not supported!!!", "Failed to BuildDeviceCapabilities"}),
                  Texts(LOG_ERROR));
        EXPECT_EQ(0, rs->m_nBuildDeviceCapabilitiesCount);
        EXPECT_EQ("", Caps().getRenderSystemName());
        EXPECT_EQ(RST_DX9C, g_eRenderSystemType);
        // Nothing behind the gate ran: no vertex texture or depth questions, no queries.
        for (const Query& q : CapabilityQueries(mark))
            EXPECT_EQ(0u, q[0]) << "only the float texture row comes before the gate";
        EXPECT_EQ(0u, Calls(Method::CreateQuery).size());
        // The device stays for the destructor.
        EXPECT_NE(nullptr, d3d->m_pD3D9Device);
    }
}

TEST_F(DeviceTest, WithoutVertexTexturesModelThreeFallsBackToDX9A)
{
    for (D3DFORMAT missing : {D3DFMT_A32B32G32R32F, D3DFMT_R32F})
    {
        SCOPED_TRACE(missing);
        NewRenderSystem();
        kvproxy::ResetAll();
        kv::ClearLog();
        g_eRenderSystemType = RST_DX9C;
        kvproxy::FailCheckDeviceFormat(missing, D3DUSAGE_QUERY_VERTEXTEXTURE);
        ASSERT_TRUE(Init());
        EXPECT_FALSE(Caps().m_bVertexTextureFetch);
        EXPECT_EQ(RST_DX9A, g_eRenderSystemType);
        EXPECT_EQ("D3D9RenderSystem(DX9A)", Caps().getRenderSystemName());
        std::vector<std::string> warnings = Texts(LOG_WARNING);
        EXPECT_EQ(1u, std::count(warnings.begin(), warnings.end(),
                                 "VS Texture PF_FLOAT32_R && PF_FLOAT32_RGBA not supported!!!"));
        std::vector<std::string> info = Texts(LOG_INFO);
        ASSERT_EQ(7u, info.size());
        EXPECT_EQ("Change into D3D9A as VS Texture PF_FLOAT32_R && PF_FLOAT32_RGBA not supported", info[6]);
        EXPECT_TRUE(Texts(LOG_ERROR).empty());
    }
}

TEST_F(DeviceTest, BothFallThroughsAreLoggedInOrder)
{
    SetShaderVersions(D3DVS_VERSION(3, 0), D3DPS_VERSION(2, 0));
    kvproxy::FailCheckDeviceFormat(D3DFMT_R32F, D3DUSAGE_QUERY_VERTEXTEXTURE);
    ASSERT_TRUE(Init());
    std::vector<std::string> info = Texts(LOG_INFO);
    ASSERT_EQ(8u, info.size());
    EXPECT_EQ("Change into D3D9A as shader version < 3.0", info[6]);
    EXPECT_EQ("Change into D3D9A as VS Texture PF_FLOAT32_R && PF_FLOAT32_RGBA not supported", info[7]);
    EXPECT_EQ(RST_DX9A, g_eRenderSystemType);
    EXPECT_EQ("D3D9RenderSystem(DX9A)", Caps().getRenderSystemName());
}

TEST_F(DeviceTest, TheVendorTableByVendorId)
{
    ASSERT_TRUE(Init());
    const std::pair<DWORD, GPUVendor> table[] = {
        {0x10DE, GPU_NVIDIA}, {0x1002, GPU_ATI},    {0x163C, GPU_INTEL},  {0x8086, GPU_INTEL},
        {0x5333, GPU_S3},     {0x102B, GPU_MATROX}, {0x3D3D, GPU_3DLABS}, {0x1039, GPU_SIS},
        {0x1234, GPU_UNKNOWN}, {0, GPU_UNKNOWN},
    };
    for (const auto& row : table)
    {
        SCOPED_TRACE(testing::Message() << std::hex << row.first);
        kvproxy::SetAdapterVendorId(row.first);
        Caps().m_eVendor = static_cast<GPUVendor>(99);
        ASSERT_TRUE(d3d->BuildDeviceCapabilities());
        EXPECT_EQ(row.second, Caps().m_eVendor);
    }
}

TEST_F(DeviceTest, TheTimerQueryCountsOnlyNotAvailableAsMissing)
{
    ASSERT_TRUE(Init());
    struct Case
    {
        D3DQUERYTYPE type;
        HRESULT hr;
        bool available;
    };
    const Case cases[] = {
        {D3DQUERYTYPE_TIMESTAMPFREQ, D3DERR_NOTAVAILABLE, false},
        {D3DQUERYTYPE_TIMESTAMP, D3DERR_NOTAVAILABLE, false},
        {D3DQUERYTYPE_TIMESTAMPFREQ, E_FAIL, true},
        {D3DQUERYTYPE_TIMESTAMP, D3DERR_INVALIDCALL, true},
    };
    for (const Case& c : cases)
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
