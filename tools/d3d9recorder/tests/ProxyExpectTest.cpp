// The assertion helpers pass on what the device saw and fail on anything else.
#include "ProxyFixture.h"

using kvproxy::Method;
using kvproxy::Order;

TEST_F(ProxyFixture, RenderStatesSetMatchesExactlyInOrderOrAsASet)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    kvproxy::Mark mark = kvproxy::Here();
    device->SetRenderState(D3DRS_ZENABLE, 1);
    device->SetRenderState(D3DRS_CULLMODE, D3DCULL_CCW);
    device->SetSamplerState(0, D3DSAMP_MIPFILTER, D3DTEXF_POINT);

    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_ZENABLE, 1}, {D3DRS_CULLMODE, D3DCULL_CCW}}));
    EXPECT_FALSE(kvproxy::RenderStatesSet(mark, {{D3DRS_CULLMODE, D3DCULL_CCW}, {D3DRS_ZENABLE, 1}}));
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_CULLMODE, D3DCULL_CCW}, {D3DRS_ZENABLE, 1}}, Order::AnyOrder));
    EXPECT_FALSE(kvproxy::RenderStatesSet(mark, {{D3DRS_ZENABLE, 1}})) << "an extra state must fail";
    EXPECT_FALSE(kvproxy::RenderStatesSet(mark, {{D3DRS_ZENABLE, 0}, {D3DRS_CULLMODE, D3DCULL_CCW}}));
    EXPECT_TRUE(kvproxy::SamplerStatesSet(mark, {{0, D3DSAMP_MIPFILTER, D3DTEXF_POINT}}));
    EXPECT_FALSE(kvproxy::SamplerStatesSet(mark, {{1, D3DSAMP_MIPFILTER, D3DTEXF_POINT}}));

    // The failure message names what the device saw.
    ::testing::AssertionResult r = kvproxy::RenderStatesSet(mark, {});
    ASSERT_FALSE(r);
    EXPECT_NE(std::string(r.message()).find("SetRenderState(7, 1)"), std::string::npos) << r.message();
}

TEST_F(ProxyFixture, NoDeviceCallsBetweenTwoPoints)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    kvproxy::Mark a = kvproxy::Here();
    d3d->GetAdapterCount(); // not a device call
    kvproxy::Mark b = kvproxy::Here();
    device->SetRenderState(D3DRS_ZENABLE, 1);
    kvproxy::Mark c = kvproxy::Here();
    EXPECT_TRUE(kvproxy::NoDeviceCalls(a, b));
    EXPECT_FALSE(kvproxy::NoDeviceCalls(b, c));
    EXPECT_FALSE(kvproxy::NoDeviceCalls(a));
    EXPECT_TRUE(kvproxy::NoDeviceCalls(c));
    EXPECT_TRUE(kvproxy::NoCallsOf(a, {Method::SetTexture, Method::Clear}));
    EXPECT_FALSE(kvproxy::NoCallsOf(a, {Method::SetTexture, Method::SetRenderState}));
}

TEST_F(ProxyFixture, ResultPathAndCallOrder)
{
    kvproxy::Mark mark = kvproxy::Here();
    kvproxy::FailMethod(Method::D3D9_CreateDevice, E_FAIL, 1);
    EXPECT_EQ(MakeDevice(), E_FAIL);
    ASSERT_EQ(MakeDevice(), D3D_OK);
    device->BeginScene();
    device->EndScene();
    EXPECT_TRUE(kvproxy::ResultsAre(mark, Method::D3D9_CreateDevice, {E_FAIL, D3D_OK}));
    EXPECT_FALSE(kvproxy::ResultsAre(mark, Method::D3D9_CreateDevice, {D3D_OK}));
    EXPECT_FALSE(kvproxy::ResultsAre(mark, Method::D3D9_CreateDevice, {D3D_OK, D3D_OK}));
    EXPECT_TRUE(kvproxy::CalledInOrder(mark, {Method::D3D9_CreateDevice, Method::BeginScene, Method::EndScene}));
    EXPECT_FALSE(kvproxy::CalledInOrder(mark, {Method::EndScene, Method::BeginScene}));
}
