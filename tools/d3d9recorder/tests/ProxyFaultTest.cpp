// Each kind of injected fault and override takes effect, and goes away when spent or cleared.
#include "ProxyFixture.h"

#include <vector>

using kvproxy::Method;

TEST(ProxyFaults, Direct3DCreate9AnswersNullForTheChosenCalls)
{
    ASSERT_TRUE(kvproxy::Available());
    kvproxy::ResetAll();
    kvproxy::FailDirect3DCreate9(2);
    EXPECT_EQ(Direct3DCreate9(D3D_SDK_VERSION), nullptr);
    EXPECT_EQ(Direct3DCreate9(D3D_SDK_VERSION), nullptr);
    IDirect3D9* d3d = Direct3DCreate9(D3D_SDK_VERSION);
    ASSERT_NE(d3d, nullptr);
    EXPECT_EQ(kvproxy::CallCount(Method::Direct3DCreate9), 3u);
    d3d->Release();
}

TEST_F(ProxyFixture, CreateDeviceFailsOnceThenWorks)
{
    const int rule = kvproxy::FailMethod(Method::D3D9_CreateDevice, D3DERR_NOTAVAILABLE, 1);
    ASSERT_GE(rule, 0);
    EXPECT_EQ(kvproxy::FaultCallsLeft(rule), 1);
    kvproxy::Mark mark = kvproxy::Here();
    device = reinterpret_cast<IDirect3DDevice9*>(0x1);
    EXPECT_EQ(MakeDevice(), D3DERR_NOTAVAILABLE);
    EXPECT_EQ(device, nullptr) << "a refused CreateDevice hands out no device";
    EXPECT_EQ(kvproxy::FaultCallsLeft(rule), 0);
    EXPECT_EQ(MakeDevice(), D3D_OK);
    EXPECT_NE(device, nullptr);
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::D3D9_CreateDevice, {D3DERR_NOTAVAILABLE, D3D_OK}));
    std::vector<KvProxyCall> calls = kvproxy::CallsSince(mark, Method::D3D9_CreateDevice);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_TRUE(calls[0].flags & KV_PROXY_CALL_FAULTED);
    EXPECT_FALSE(calls[1].flags & KV_PROXY_CALL_FAULTED);
}

TEST_F(ProxyFixture, AFaultForEverLastsUntilCleared)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    kvproxy::FailMethod(Method::BeginScene, D3DERR_INVALIDCALL, KV_PROXY_FOREVER);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(device->BeginScene(), D3DERR_INVALIDCALL);
    kvproxy::ClearFaults();
    EXPECT_EQ(device->BeginScene(), D3D_OK);
    EXPECT_EQ(device->EndScene(), D3D_OK);
}

TEST_F(ProxyFixture, PresentResetAndTestCooperativeLevelTakeTheirFaults)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    kvproxy::FailMethod(Method::Present, E_FAIL, 1);
    kvproxy::FailMethod(Method::TestCooperativeLevel, D3DERR_DRIVERINTERNALERROR, 2);
    kvproxy::FailMethod(Method::Reset, D3DERR_INVALIDCALL, 1);
    EXPECT_EQ(device->Present(nullptr, nullptr, nullptr, nullptr), E_FAIL);
    EXPECT_EQ(device->Present(nullptr, nullptr, nullptr, nullptr), D3D_OK);
    EXPECT_EQ(device->TestCooperativeLevel(), D3DERR_DRIVERINTERNALERROR);
    EXPECT_EQ(device->TestCooperativeLevel(), D3DERR_DRIVERINTERNALERROR);
    EXPECT_EQ(device->TestCooperativeLevel(), D3D_OK);

    // A refused Reset never reaches the device: its back buffer keeps the old size.
    D3DPRESENT_PARAMETERS pp = Params(32, 16);
    EXPECT_EQ(device->Reset(&pp), D3DERR_INVALIDCALL);
    IDirect3DSurface9* back = nullptr;
    D3DSURFACE_DESC desc;
    ASSERT_EQ(device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &back), D3D_OK);
    back->GetDesc(&desc);
    back->Release();
    EXPECT_EQ(desc.Width, 64u);
    pp = Params(32, 16);
    EXPECT_EQ(device->Reset(&pp), D3D_OK);
    ASSERT_EQ(device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &back), D3D_OK);
    back->GetDesc(&desc);
    back->Release();
    EXPECT_EQ(desc.Width, 32u);
}

TEST_F(ProxyFixture, CheckDeviceFormatRefusesOnlyTheChosenFormatAndUsage)
{
    kvproxy::FailCheckDeviceFormat(D3DFMT_D24S8, D3DUSAGE_DEPTHSTENCIL);
    EXPECT_EQ(d3d->CheckDeviceFormat(0, D3DDEVTYPE_HAL, D3DFMT_X8R8G8B8, D3DUSAGE_DEPTHSTENCIL, D3DRTYPE_SURFACE,
                                     D3DFMT_D24S8),
              D3DERR_NOTAVAILABLE);
    EXPECT_EQ(
        d3d->CheckDeviceFormat(0, D3DDEVTYPE_HAL, D3DFMT_X8R8G8B8, D3DUSAGE_DEPTHSTENCIL, D3DRTYPE_SURFACE, D3DFMT_D16),
        D3D_OK);
    EXPECT_EQ(d3d->CheckDeviceFormat(0, D3DDEVTYPE_HAL, D3DFMT_X8R8G8B8, D3DUSAGE_DEPTHSTENCIL, D3DRTYPE_TEXTURE,
                                     D3DFMT_D24S8),
              D3DERR_NOTAVAILABLE)
        << "the rule names format and usage, not the resource type";
    EXPECT_EQ(d3d->CheckDeviceFormat(0, D3DDEVTYPE_HAL, D3DFMT_X8R8G8B8, 0, D3DRTYPE_TEXTURE, D3DFMT_A8R8G8B8), D3D_OK);
    kvproxy::ClearFaults();
    EXPECT_EQ(d3d->CheckDeviceFormat(0, D3DDEVTYPE_HAL, D3DFMT_X8R8G8B8, D3DUSAGE_DEPTHSTENCIL, D3DRTYPE_SURFACE,
                                     D3DFMT_D24S8),
              D3D_OK);
}

TEST_F(ProxyFixture, MultiSampleCountsAboveTheLimitAreRefused)
{
    // Wine takes 4 samples; with the limit at 2 it must now refuse them, while a count of
    // 0 or 1 is never above the limit.
    ASSERT_EQ(
        d3d->CheckDeviceMultiSampleType(0, D3DDEVTYPE_HAL, D3DFMT_X8R8G8B8, TRUE, D3DMULTISAMPLE_4_SAMPLES, nullptr),
        D3D_OK);
    kvproxy::FailMultiSampleAbove(2);
    DWORD levels = 7;
    EXPECT_EQ(
        d3d->CheckDeviceMultiSampleType(0, D3DDEVTYPE_HAL, D3DFMT_X8R8G8B8, TRUE, D3DMULTISAMPLE_4_SAMPLES, &levels),
        D3DERR_NOTAVAILABLE);
    EXPECT_EQ(levels, 0u);
    EXPECT_EQ(d3d->CheckDeviceMultiSampleType(0, D3DDEVTYPE_HAL, D3DFMT_X8R8G8B8, TRUE, D3DMULTISAMPLE_NONE, nullptr),
              D3D_OK);
    kvproxy::ClearFaults();
    EXPECT_EQ(
        d3d->CheckDeviceMultiSampleType(0, D3DDEVTYPE_HAL, D3DFMT_X8R8G8B8, TRUE, D3DMULTISAMPLE_4_SAMPLES, nullptr),
        D3D_OK);
}

TEST_F(ProxyFixture, CreateQueryRefusesOnlyTheChosenType)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    kvproxy::FailCreateQuery(D3DQUERYTYPE_TIMESTAMPFREQ);
    IDirect3DQuery9* query = reinterpret_cast<IDirect3DQuery9*>(0x1);
    EXPECT_EQ(device->CreateQuery(D3DQUERYTYPE_TIMESTAMPFREQ, &query), D3DERR_NOTAVAILABLE);
    EXPECT_EQ(query, nullptr);
    EXPECT_EQ(device->CreateQuery(D3DQUERYTYPE_TIMESTAMPFREQ, nullptr), D3DERR_NOTAVAILABLE);
    ASSERT_EQ(device->CreateQuery(D3DQUERYTYPE_EVENT, &query), D3D_OK);
    ASSERT_NE(query, nullptr);
    query->Release();
}

TEST_F(ProxyFixture, ResourceCreationFaults)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    kvproxy::FailMethod(Method::CreateTexture, E_OUTOFMEMORY, 1);
    kvproxy::FailMethod(Method::CreateVertexBuffer, D3DERR_OUTOFVIDEOMEMORY, 1);
    IDirect3DTexture9* texture = nullptr;
    IDirect3DVertexBuffer9* vb = nullptr;
    EXPECT_EQ(device->CreateTexture(4, 4, 1, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, &texture, nullptr), E_OUTOFMEMORY);
    EXPECT_EQ(texture, nullptr);
    EXPECT_EQ(device->CreateVertexBuffer(64, 0, 0, D3DPOOL_DEFAULT, &vb, nullptr), D3DERR_OUTOFVIDEOMEMORY);
    EXPECT_EQ(vb, nullptr);
    ASSERT_EQ(device->CreateTexture(4, 4, 1, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, &texture, nullptr), D3D_OK);
    ASSERT_EQ(device->CreateVertexBuffer(64, 0, 0, D3DPOOL_DEFAULT, &vb, nullptr), D3D_OK);
    texture->Release();
    vb->Release();
}

TEST_F(ProxyFixture, CapsOverridesReachBothGetDeviceCaps)
{
    D3DCAPS9 real;
    ASSERT_EQ(d3d->GetDeviceCaps(0, D3DDEVTYPE_HAL, &real), D3D_OK);
    ASSERT_TRUE(real.DevCaps & D3DDEVCAPS_HWTRANSFORMANDLIGHT);
    ASSERT_NE(real.MaxAnisotropy, 4u);

    EXPECT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(VertexShaderVersion), D3DVS_VERSION(2, 0)));
    EXPECT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(PixelShaderVersion), D3DPS_VERSION(2, 0)));
    EXPECT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(DevCaps), D3DDEVCAPS_HWTRANSFORMANDLIGHT));
    EXPECT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(MaxAnisotropy), 4));
    EXPECT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(RasterCaps), D3DPRASTERCAPS_MIPMAPLODBIAS));
    EXPECT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(NumSimultaneousRTs), 1));
    EXPECT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(MaxTextureWidth), 2048));
    EXPECT_TRUE(kvproxy::SetCapBits(KV_PROXY_CAP(TextureCaps), 0, D3DPTEXTURECAPS_POW2));
    EXPECT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(DevCaps2), D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES));
    EXPECT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(StretchRectFilterCaps), D3DPTFILTERCAPS_MINFLINEAR));
    EXPECT_FALSE(kvproxy::SetCap(sizeof(D3DCAPS9), 1)) << "an offset past the record is refused";

    D3DCAPS9 fromD3D;
    ASSERT_EQ(d3d->GetDeviceCaps(0, D3DDEVTYPE_HAL, &fromD3D), D3D_OK);
    ASSERT_EQ(MakeDevice(), D3D_OK);
    D3DCAPS9 fromDevice;
    ASSERT_EQ(device->GetDeviceCaps(&fromDevice), D3D_OK);
    for (const D3DCAPS9* caps : {&fromD3D, &fromDevice})
    {
        EXPECT_EQ(caps->VertexShaderVersion, D3DVS_VERSION(2, 0));
        EXPECT_EQ(caps->PixelShaderVersion, D3DPS_VERSION(2, 0));
        EXPECT_EQ(caps->DevCaps, real.DevCaps & ~static_cast<DWORD>(D3DDEVCAPS_HWTRANSFORMANDLIGHT));
        EXPECT_EQ(caps->MaxAnisotropy, 4u);
        EXPECT_EQ(caps->RasterCaps, real.RasterCaps & ~static_cast<DWORD>(D3DPRASTERCAPS_MIPMAPLODBIAS));
        EXPECT_EQ(caps->NumSimultaneousRTs, 1u);
        EXPECT_EQ(caps->MaxTextureWidth, 2048u);
        EXPECT_EQ(caps->TextureCaps, real.TextureCaps | D3DPTEXTURECAPS_POW2);
        EXPECT_EQ(caps->DevCaps2, real.DevCaps2 & ~static_cast<DWORD>(D3DDEVCAPS2_CAN_STRETCHRECT_FROM_TEXTURES));
        EXPECT_EQ(caps->StretchRectFilterCaps,
                  real.StretchRectFilterCaps & ~static_cast<DWORD>(D3DPTFILTERCAPS_MINFLINEAR));
        EXPECT_EQ(caps->MaxTextureHeight, real.MaxTextureHeight) << "fields not named stay as they are";
    }
    kvproxy::ClearCapsOverrides();
    D3DCAPS9 after;
    ASSERT_EQ(device->GetDeviceCaps(&after), D3D_OK);
    EXPECT_EQ(after.MaxAnisotropy, real.MaxAnisotropy);
    EXPECT_EQ(after.DevCaps, real.DevCaps);
}

TEST_F(ProxyFixture, AdapterIdentifierCountAndModesCanBeReplaced)
{
    D3DADAPTER_IDENTIFIER9 real;
    ASSERT_EQ(d3d->GetAdapterIdentifier(0, 0, &real), D3D_OK);
    kvproxy::SetAdapterVendorId(0x1002);
    kvproxy::SetAdapterDescription("Test Adapter 9000");
    D3DADAPTER_IDENTIFIER9 id;
    ASSERT_EQ(d3d->GetAdapterIdentifier(0, 0, &id), D3D_OK);
    EXPECT_EQ(id.VendorId, 0x1002u);
    EXPECT_STREQ(id.Description, "Test Adapter 9000");
    EXPECT_STREQ(id.Driver, real.Driver);
    EXPECT_EQ(id.DeviceId, real.DeviceId);

    kvproxy::SetAdapterCount(0);
    EXPECT_EQ(d3d->GetAdapterCount(), 0u);

    const D3DDISPLAYMODE modes[3] = {
        {640, 400, 60, D3DFMT_R5G6B5}, {639, 480, 60, D3DFMT_R5G6B5}, {640, 400, 75, D3DFMT_R5G6B5}};
    ASSERT_TRUE(kvproxy::SetAdapterModes(D3DFMT_R5G6B5, modes, 3));
    ASSERT_TRUE(kvproxy::SetAdapterModes(D3DFMT_X8R8G8B8, nullptr, 0));
    EXPECT_EQ(d3d->GetAdapterModeCount(0, D3DFMT_R5G6B5), 3u);
    EXPECT_EQ(d3d->GetAdapterModeCount(0, D3DFMT_X8R8G8B8), 0u);
    D3DDISPLAYMODE mode;
    ASSERT_EQ(d3d->EnumAdapterModes(0, D3DFMT_R5G6B5, 2, &mode), D3D_OK);
    EXPECT_EQ(mode.Width, 640u);
    EXPECT_EQ(mode.RefreshRate, 75u);
    EXPECT_EQ(d3d->EnumAdapterModes(0, D3DFMT_R5G6B5, 3, &mode), D3DERR_INVALIDCALL);

    kvproxy::ClearAdapterOverrides();
    ASSERT_EQ(d3d->GetAdapterIdentifier(0, 0, &id), D3D_OK);
    EXPECT_EQ(id.VendorId, real.VendorId);
    EXPECT_STREQ(id.Description, real.Description);
    EXPECT_GT(d3d->GetAdapterCount(), 0u);
    EXPECT_GT(d3d->GetAdapterModeCount(0, D3DFMT_X8R8G8B8), 0u);
}
