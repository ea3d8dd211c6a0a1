// The render system on a real device (Wine's Direct3D 9), handed to it the way
// BuildDevice hands over the device it makes: frame nesting, shadowed states,
// restored states and the release of what the object owns.
#include "D3D9RenderSystem.h"
#include "TestDevice.h"

#include "engine/Log.h"

#include <gtest/gtest.h>

using namespace kv;

namespace
{

struct PluginDevice : public ::testing::Test
{
    void SetUp() override
    {
        ClearLog();
        ASSERT_TRUE(dev.Create()) << dev.error << " " << std::hex << dev.result;
        rs = CreateRenderSystem();
        ASSERT_NE(nullptr, rs);
        d3d = GetD3D9RenderSystem();
        // The render system owns the device it is given.
        dev.device->AddRef();
        d3d->m_pD3D9Device = dev.device;
        ASSERT_EQ(D3D_OK, dev.device->GetDeviceCaps(&d3d->m_d3dcaps));
        d3d->_resetStateCaches();
    }
    void TearDown() override
    {
        delete rs;
        dev.Destroy();
    }

    // Whether the device has a scene open: BeginScene inside a scene is refused.
    bool SceneOpen()
    {
        if (FAILED(dev.device->BeginScene()))
            return true;
        dev.device->EndScene();
        return false;
    }

    DWORD DeviceRenderState(D3DRENDERSTATETYPE state)
    {
        DWORD value = 0;
        EXPECT_EQ(D3D_OK, dev.device->GetRenderState(state, &value));
        return value;
    }

    DWORD DeviceSamplerState(DWORD sampler, D3DSAMPLERSTATETYPE type)
    {
        DWORD value = 0;
        EXPECT_EQ(D3D_OK, dev.device->GetSamplerState(sampler, type, &value));
        return value;
    }

    TestDevice dev;
    CRenderSystem* rs = nullptr;
    CD3D9RenderSystem* d3d = nullptr;
};

TEST_F(PluginDevice, NestedFramesOpenAndCloseOneScene)
{
    ASSERT_FALSE(SceneOpen());
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_TRUE(SceneOpen());
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_TRUE(rs->_beginFrame());
    EXPECT_EQ(3u, d3d->m_frameNesting.size());

    rs->_endFrame();
    rs->_endFrame();
    EXPECT_EQ(1u, d3d->m_frameNesting.size());
    EXPECT_TRUE(SceneOpen()); // only the outermost end closes the scene
    rs->_endFrame();
    EXPECT_TRUE(d3d->m_frameNesting.empty());
    EXPECT_FALSE(SceneOpen());
    EXPECT_EQ(0u, GetLogLineCount());
}

TEST_F(PluginDevice, OnlyTheOutermostFrameClearsTheDepthClearedFlag)
{
    rs->m_bDepthBufferCleared = true;
    ASSERT_TRUE(rs->_beginFrame());
    EXPECT_FALSE(rs->_isDepthBufferCleared());
    rs->m_bDepthBufferCleared = true; // a depth clear inside the frame
    ASSERT_TRUE(rs->_beginFrame());
    EXPECT_TRUE(rs->_isDepthBufferCleared());
    rs->_endFrame();
    rs->_endFrame();
}

TEST_F(PluginDevice, RefusedBeginSceneLeavesNoFrameAndLogsNothing)
{
    ASSERT_EQ(D3D_OK, dev.device->BeginScene()); // someone else holds a scene
    rs->m_bDepthBufferCleared = true;
    EXPECT_FALSE(rs->_beginFrame());
    EXPECT_TRUE(d3d->m_frameNesting.empty());
    EXPECT_TRUE(rs->_isDepthBufferCleared());
    EXPECT_EQ(0u, GetLogLineCount());
    dev.device->EndScene();
}

TEST_F(PluginDevice, ShadowedRenderStateSkipsRepeatedValues)
{
    rs->SetScissorTestEnabled(true);
    EXPECT_EQ(TRUE, DeviceRenderState(D3DRS_SCISSORTESTENABLE));
    EXPECT_TRUE(rs->GetScissorTestEnabled());
    EXPECT_EQ(1u, d3d->m_renderStates[D3DRS_SCISSORTESTENABLE]);

    // Changed behind the shadow's back: the same value again is not sent.
    dev.device->SetRenderState(D3DRS_SCISSORTESTENABLE, FALSE);
    rs->SetScissorTestEnabled(true);
    EXPECT_EQ(FALSE, DeviceRenderState(D3DRS_SCISSORTESTENABLE));

    // After a cache reset the next set reaches the device again.
    d3d->_resetStateCaches();
    rs->SetScissorTestEnabled(true);
    EXPECT_EQ(TRUE, DeviceRenderState(D3DRS_SCISSORTESTENABLE));
}

TEST_F(PluginDevice, SetAnisotropyTouchesNoSamplerUntilApplied)
{
    const DWORD before = DeviceSamplerState(0, D3DSAMP_MAXANISOTROPY);
    rs->SetAnisotropy(true, 8);
    bool enabled = false;
    int level = 0;
    rs->GetAnisotropy(&enabled, &level);
    EXPECT_TRUE(enabled);
    EXPECT_EQ(8, level);
    for (const auto& sampler : d3d->m_samplerStates)
        ASSERT_EQ(0xABCDEFu, sampler[D3DSAMP_MAXANISOTROPY]);
    EXPECT_EQ(before, DeviceSamplerState(0, D3DSAMP_MAXANISOTROPY));

    // Limited by the device's maximum, on units 0 to 15 only.
    d3d->m_d3dcaps.MaxAnisotropy = 4;
    rs->ApplyTextureAnisotropy();
    for (DWORD unit = 0; unit < 16; ++unit)
    {
        EXPECT_EQ(4u, d3d->m_samplerStates[unit][D3DSAMP_MAXANISOTROPY]) << unit;
        EXPECT_EQ(4u, DeviceSamplerState(unit, D3DSAMP_MAXANISOTROPY)) << unit;
    }
    EXPECT_EQ(0xABCDEFu, d3d->m_samplerStates[16][D3DSAMP_MAXANISOTROPY]);

    rs->SetAnisotropy(false, 2);
    rs->ApplyTextureAnisotropy();
    EXPECT_EQ(2u, DeviceSamplerState(0, D3DSAMP_MAXANISOTROPY));
}

TEST_F(PluginDevice, RestoreDeviceStatesReadsScissorAndReappliesStoredStates)
{
    RECT scissor = {1, 2, 30, 40};
    ASSERT_EQ(D3D_OK, dev.device->SetScissorRect(&scissor));
    rs->m_bPointSprites = true;
    d3d->_restoreDeviceStates();
    RECT got = {};
    rs->GetScissorRect(&got);
    EXPECT_EQ(1, got.left);
    EXPECT_EQ(2, got.top);
    EXPECT_EQ(30, got.right);
    EXPECT_EQ(40, got.bottom);
    EXPECT_EQ(TRUE, DeviceRenderState(D3DRS_POINTSPRITEENABLE));
    EXPECT_EQ(1u, d3d->m_renderStates[D3DRS_POINTSPRITEENABLE]);
    EXPECT_TRUE(rs->GetPointSpritesEnabled());
    EXPECT_EQ(0u, GetLogLineCount());
}

TEST_F(PluginDevice, BlendFactorAndBorderColourArePackedAsD3DColors)
{
    CColour colour(1.0f, 0.5f, 0.0f, 1.0f);
    rs->SetBlendFactor(&colour);
    EXPECT_EQ(0xFFFF7F00u, DeviceRenderState(D3DRS_BLENDFACTOR));
    rs->_setTextureBorderColour(3, &colour);
    EXPECT_EQ(0xFFFF7F00u, DeviceSamplerState(3, D3DSAMP_BORDERCOLOR));
}

TEST_F(PluginDevice, DestructorReleasesDeviceRuntimeAndReadbackSurfaces)
{
    IDirect3DSurface9* surface = nullptr;
    ASSERT_EQ(D3D_OK, dev.device->CreateOffscreenPlainSurface(4, 4, D3DFMT_A8R8G8B8, D3DPOOL_SYSTEMMEM, &surface,
                                                              nullptr));
    surface->AddRef(); // ours, to see the render system's release
    d3d->m_mapReadbackSurfaces[CD3D9RenderSystem::ReadbackKey(4, 4, D3DFMT_A8R8G8B8)] = surface;
    d3d->m_pLockedReadbackSurface = surface;
    IDirect3D9* runtime = d3d->m_pD3D9;
    runtime->AddRef();

    delete rs;
    rs = nullptr;
    EXPECT_EQ(nullptr, GetRenderSystem());
    EXPECT_EQ(0u, surface->Release()); // the map's reference was given back
    EXPECT_EQ(0u, runtime->Release()); // and the render system's own runtime
    // The device reference it was handed is gone: ours is the last but the
    // test device's own.
    dev.device->AddRef();
    EXPECT_EQ(1u, dev.device->Release());
}

} // namespace
