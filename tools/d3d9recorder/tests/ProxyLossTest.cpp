// The simulated device loss: lost, then resettable, then really reset.
#include "ProxyFixture.h"

using kvproxy::Method;

namespace
{

UINT BackBufferWidth(IDirect3DDevice9* device)
{
    IDirect3DSurface9* back = nullptr;
    if (FAILED(device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &back)))
        return 0;
    D3DSURFACE_DESC desc;
    back->GetDesc(&desc);
    back->Release();
    return desc.Width;
}

} // namespace

TEST_F(ProxyFixture, LostThenResettableThenReset)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    EXPECT_EQ(device->TestCooperativeLevel(), D3D_OK);
    kvproxy::Mark start = kvproxy::Here();

    kvproxy::LoseDevice();
    EXPECT_EQ(kvproxy::DeviceLossState(), KV_PROXY_LOSS_LOST);
    EXPECT_EQ(device->TestCooperativeLevel(), D3DERR_DEVICELOST);
    EXPECT_EQ(device->Present(nullptr, nullptr, nullptr, nullptr), D3DERR_DEVICELOST);
    D3DPRESENT_PARAMETERS pp = Params(48, 48);
    EXPECT_EQ(device->Reset(&pp), D3DERR_DEVICELOST) << "a device not yet given back cannot be reset";
    EXPECT_EQ(BackBufferWidth(device), 64u);

    kvproxy::AllowDeviceReset();
    EXPECT_EQ(device->TestCooperativeLevel(), D3DERR_DEVICENOTRESET);
    EXPECT_EQ(device->Present(nullptr, nullptr, nullptr, nullptr), D3DERR_DEVICELOST);

    // A Reset the test refuses keeps the loss; the next one reaches the device.
    kvproxy::FailMethod(Method::Reset, D3DERR_INVALIDCALL, 1);
    pp = Params(48, 48);
    EXPECT_EQ(device->Reset(&pp), D3DERR_INVALIDCALL);
    EXPECT_EQ(device->TestCooperativeLevel(), D3DERR_DEVICENOTRESET);
    pp = Params(48, 48);
    EXPECT_EQ(device->Reset(&pp), D3D_OK);
    EXPECT_EQ(kvproxy::DeviceLossState(), KV_PROXY_LOSS_NONE);
    EXPECT_EQ(BackBufferWidth(device), 48u) << "the real device was reset with the new parameters";
    EXPECT_EQ(device->TestCooperativeLevel(), D3D_OK);
    EXPECT_EQ(device->Present(nullptr, nullptr, nullptr, nullptr), D3D_OK);

    EXPECT_TRUE(kvproxy::ResultsAre(start, Method::TestCooperativeLevel,
                                    {D3DERR_DEVICELOST, D3DERR_DEVICENOTRESET, D3DERR_DEVICENOTRESET, D3D_OK}));
    EXPECT_TRUE(kvproxy::ResultsAre(start, Method::Reset, {D3DERR_DEVICELOST, D3DERR_INVALIDCALL, D3D_OK}));
    EXPECT_TRUE(kvproxy::ResultsAre(start, Method::Present, {D3DERR_DEVICELOST, D3DERR_DEVICELOST, D3D_OK}));
}

TEST_F(ProxyFixture, LossCanWaitForSomePresents)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    kvproxy::LoseDevice(2);
    EXPECT_EQ(kvproxy::DeviceLossState(), KV_PROXY_LOSS_PENDING);
    EXPECT_EQ(device->Present(nullptr, nullptr, nullptr, nullptr), D3D_OK);
    EXPECT_EQ(device->TestCooperativeLevel(), D3D_OK);
    EXPECT_EQ(device->Present(nullptr, nullptr, nullptr, nullptr), D3D_OK);
    EXPECT_EQ(device->Present(nullptr, nullptr, nullptr, nullptr), D3DERR_DEVICELOST);
    EXPECT_EQ(device->TestCooperativeLevel(), D3DERR_DEVICELOST);
    kvproxy::EndDeviceLoss();
    EXPECT_EQ(device->TestCooperativeLevel(), D3D_OK);
    EXPECT_EQ(device->Present(nullptr, nullptr, nullptr, nullptr), D3D_OK);
}

TEST_F(ProxyFixture, ResetAllEndsTheLoss)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    kvproxy::LoseDevice();
    kvproxy::AllowDeviceReset();
    kvproxy::ResetAll();
    EXPECT_EQ(device->TestCooperativeLevel(), D3D_OK);
}
