// The render system's state shadows on a real device (Wine's Direct3D 9) seen
// through the recording d3d9.dll: which calls reach the device, in which order,
// with which values, and which are spared.
#include "KvDeviceTest.h"

#include "engine/Texture.h"

#include <cstring>

using namespace kv;
using namespace kvtest;
using kvproxy::Method;
using kvproxy::Order;

namespace
{

uint32_t Bits(float f)
{
    uint32_t b;
    std::memcpy(&b, &f, sizeof(b));
    return b;
}

// An engine texture with no native object behind it: enough to take SetTexture
// down its sampler road.
class BareTexture : public CTexture
{
public:
    void freeInternalResources() override {}
    void _autogenerateMipmaps() override {}
    unsigned char getFSAA() override { return 0; }
    CHardwarePixelBuffer* getBuffer(unsigned, unsigned) override { return nullptr; }
    bool SaveToFile(const char*) override { return false; }
    bool SaveToMemory(void**, unsigned*) override { return false; }
    void copyToTexture(CTexture*) override {}
    int TextureReserved7(int, int, int, int, int, int, int) override { return 0; }
    bool TextureReserved3(int, int, int) override { return false; }
    bool createInternalResources() override { return false; }
};

// The device as Init leaves it, its shadows unknown, with the capabilities
// that hold states back granted.
struct StateCache : KvDeviceTest
{
    void SetUp() override
    {
        KvDeviceTest::SetUp();
        if (HasFatalFailure())
            return;
        rs->m_pCapabilities->SetSRGBReadWrite(true);
        rs->m_pCapabilities->SetMipBiasSupported(true);
        d3d->_resetStateCaches();
        rs->m_nAddUsedTextureCount = 0;
    }

    // The capabilities again, as the device answers them under the proxy's overrides.
    void ReadCaps() { ASSERT_EQ(D3D_OK, device->GetDeviceCaps(&d3d->m_d3dcaps)); }

    DWORD DeviceRenderState(D3DRENDERSTATETYPE state)
    {
        DWORD value = 0;
        EXPECT_EQ(D3D_OK, device->GetRenderState(state, &value));
        return value;
    }
};

TEST_F(StateCache, FirstSetsReachTheDeviceAndRepeatsMakeNoCall)
{
    CColour colour(1.0f, 0.5f, 0.0f, 1.0f);
    auto setAll = [&] {
        rs->SetDepthCheckEnabled(true);
        rs->SetDepthWriteEnabled(true);
        rs->SetDepthFunction(CMPF_LESS_EQUAL);
        rs->SetFillMode(FILL_WIREFRAME);
        rs->SetCullingMode(CULL_NONE);
        rs->SetMultiSampleAntiAlias(true);
        rs->SetScissorTestEnabled(true);
        rs->SetPointSpritesEnabled(true);
        rs->SetBlendFactor(&colour);
        rs->SetSRGBWriteEnabled(true);
        rs->_setTextureAddressingModeUV(3, TAM_WRAP, TAM_MIRROR);
        rs->_setTextureAddressingModeW(3, TAM_CLAMP);
        rs->_setTextureUnitFiltering(3, FO_POINT, FO_LINEAR, FO_NONE);
    };
    kvproxy::Mark mark = kvproxy::Here();
    setAll();
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_ZENABLE, 1},
                                                {D3DRS_ZWRITEENABLE, 1},
                                                {D3DRS_ZFUNC, D3DCMP_LESSEQUAL},
                                                {D3DRS_FILLMODE, D3DFILL_WIREFRAME},
                                                {D3DRS_CULLMODE, D3DCULL_NONE},
                                                {D3DRS_MULTISAMPLEANTIALIAS, 1},
                                                {D3DRS_SCISSORTESTENABLE, 1},
                                                {D3DRS_POINTSPRITEENABLE, 1},
                                                {D3DRS_BLENDFACTOR, 0xFFFF7F00u},
                                                {D3DRS_SRGBWRITEENABLE, 1}}));
    EXPECT_TRUE(kvproxy::SamplerStatesSet(mark, {{3, D3DSAMP_ADDRESSU, D3DTADDRESS_WRAP},
                                                 {3, D3DSAMP_ADDRESSV, D3DTADDRESS_MIRROR},
                                                 {3, D3DSAMP_ADDRESSW, D3DTADDRESS_CLAMP},
                                                 {3, D3DSAMP_MINFILTER, D3DTEXF_POINT},
                                                 {3, D3DSAMP_MAGFILTER, D3DTEXF_LINEAR},
                                                 {3, D3DSAMP_MIPFILTER, D3DTEXF_NONE}}));
    EXPECT_TRUE(rs->GetDepthCheckEnabled());
    EXPECT_TRUE(rs->GetDepthWriteEnabled());

    mark = kvproxy::Here();
    setAll();
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));

    // After a reset the same values go out again, though the device holds them.
    d3d->_resetStateCaches();
    EXPECT_FALSE(rs->GetDepthCheckEnabled());
    mark = kvproxy::Here();
    setAll();
    EXPECT_EQ(10u, kvproxy::CountSince(mark, Method::SetRenderState));
    EXPECT_EQ(6u, kvproxy::CountSince(mark, Method::SetSamplerState));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(StateCache, TheUnknownValueItselfAndAnUnchangedStencilSwitchMakeNoCall)
{
    // A reference of 0xABCDEF equals the unknown shadow: that one state is skipped.
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetStencilState(CMPF_ALWAYS_PASS, 0xABCDEF, 0xFF, 0xFF, SOP_KEEP, SOP_KEEP, SOP_KEEP, false);
    for (const KvProxyCall& call : kvproxy::CallsSince(mark, Method::SetRenderState))
        EXPECT_NE(static_cast<uint64_t>(D3DRS_STENCILREF), call.args[0]);
    EXPECT_EQ(7u, kvproxy::CountSince(mark, Method::SetRenderState));

    // The stencil switch is filtered by its member first, which a reset keeps.
    mark = kvproxy::Here();
    rs->SetStencilEnabled(false);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    rs->SetStencilEnabled(true);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_STENCILENABLE, 1}}));
    EXPECT_TRUE(rs->GetStencilEnabled());
    d3d->_resetStateCaches();
    mark = kvproxy::Here();
    rs->SetStencilEnabled(true);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    rs->SetStencilEnabled(false);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_STENCILENABLE, 0}}));
}

TEST_F(StateCache, ColourWriteMaskGoesToAllFourTargets)
{
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetColourWriteEnabled(true, false, true, false);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_COLORWRITEENABLE, 5},
                                                {D3DRS_COLORWRITEENABLE1, 5},
                                                {D3DRS_COLORWRITEENABLE2, 5},
                                                {D3DRS_COLORWRITEENABLE3, 5}}));
    mark = kvproxy::Here();
    rs->SetColourWriteEnabled(false, true, false, true);
    rs->SetColourWriteEnabled(false, true, false, true);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_COLORWRITEENABLE, 10},
                                                {D3DRS_COLORWRITEENABLE1, 10},
                                                {D3DRS_COLORWRITEENABLE2, 10},
                                                {D3DRS_COLORWRITEENABLE3, 10}}));
}

TEST_F(StateCache, StencilSidesTakeOppositeIncrements)
{
    // One-sided: the winding flag changes nothing.
    rs->SetInvertVertexWinding(true);
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetStencilState(CMPF_EQUAL, 7, 0xF0, 0x0F, SOP_INCREMENT, SOP_DECREMENT_WRAP, SOP_REPLACE, false);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_TWOSIDEDSTENCILMODE, 0},
                                                {D3DRS_STENCILFUNC, D3DCMP_EQUAL},
                                                {D3DRS_STENCILREF, 7},
                                                {D3DRS_STENCILMASK, 0xF0},
                                                {D3DRS_STENCILWRITEMASK, 0x0F},
                                                {D3DRS_STENCILFAIL, D3DSTENCILOP_INCRSAT},
                                                {D3DRS_STENCILZFAIL, D3DSTENCILOP_DECR},
                                                {D3DRS_STENCILPASS, D3DSTENCILOP_REPLACE}}));

    // Two-sided, plain winding: back faces as given, front faces swapped.
    rs->SetInvertVertexWinding(false);
    d3d->_resetStateCaches();
    mark = kvproxy::Here();
    rs->SetStencilState(CMPF_GREATER, 1, 2, 3, SOP_INCREMENT, SOP_DECREMENT_WRAP, SOP_INCREMENT_WRAP, true);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_TWOSIDEDSTENCILMODE, 1},
                                                {D3DRS_CCW_STENCILFAIL, D3DSTENCILOP_INCRSAT},
                                                {D3DRS_CCW_STENCILZFAIL, D3DSTENCILOP_DECR},
                                                {D3DRS_CCW_STENCILPASS, D3DSTENCILOP_INCR},
                                                {D3DRS_STENCILFUNC, D3DCMP_GREATER},
                                                {D3DRS_STENCILREF, 1},
                                                {D3DRS_STENCILMASK, 2},
                                                {D3DRS_STENCILWRITEMASK, 3},
                                                {D3DRS_STENCILFAIL, D3DSTENCILOP_DECRSAT},
                                                {D3DRS_STENCILZFAIL, D3DSTENCILOP_INCR},
                                                {D3DRS_STENCILPASS, D3DSTENCILOP_DECR}}));

    // Two-sided, inverted winding: the sides trade places; the CCW compare
    // function is never the render system's business.
    rs->SetInvertVertexWinding(true);
    mark = kvproxy::Here();
    rs->SetStencilState(CMPF_GREATER, 1, 2, 3, SOP_INCREMENT, SOP_DECREMENT_WRAP, SOP_INCREMENT_WRAP, true);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_CCW_STENCILFAIL, D3DSTENCILOP_DECRSAT},
                                                {D3DRS_CCW_STENCILZFAIL, D3DSTENCILOP_INCR},
                                                {D3DRS_CCW_STENCILPASS, D3DSTENCILOP_DECR},
                                                {D3DRS_STENCILFAIL, D3DSTENCILOP_INCRSAT},
                                                {D3DRS_STENCILZFAIL, D3DSTENCILOP_DECR},
                                                {D3DRS_STENCILPASS, D3DSTENCILOP_INCR}}));
    EXPECT_EQ(CD3D9RenderSystem::kUnknownState, d3d->m_renderStates[D3DRS_CCW_STENCILFUNC]);
}

TEST_F(StateCache, InvertedWindingReversesCullingAtTheNextSet)
{
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetCullingMode(CULL_CLOCKWISE);
    rs->SetInvertVertexWinding(true);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_CULLMODE, D3DCULL_CW}}));
    EXPECT_EQ(static_cast<DWORD>(D3DCULL_CW), DeviceRenderState(D3DRS_CULLMODE));
    mark = kvproxy::Here();
    rs->SetCullingMode(CULL_CLOCKWISE);
    rs->SetCullingMode(CULL_ANTICLOCKWISE);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_CULLMODE, D3DCULL_CCW}, {D3DRS_CULLMODE, D3DCULL_CW}}));
    EXPECT_EQ(CULL_ANTICLOCKWISE, rs->GetCullingMode());
}

TEST_F(StateCache, ViewingModesOverrideBlendingAndDepthWrites)
{
    // Overdraw: every blend becomes source alpha, one, add; depth writes stay off
    // and a cleared depth buffer stays cleared.
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetFillMode(FILL_OVERDRAW);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_FILLMODE, 0x7FFFFFFFu}}));
    EXPECT_EQ(FILL_OVERDRAW, rs->GetFillMode());
    mark = kvproxy::Here();
    rs->SetSceneBlending(SBF_ONE, SBF_ZERO, SBO_SUBTRACT);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_ALPHABLENDENABLE, 1},
                                                {D3DRS_SEPARATEALPHABLENDENABLE, 0},
                                                {D3DRS_SRCBLEND, D3DBLEND_SRCALPHA},
                                                {D3DRS_DESTBLEND, D3DBLEND_ONE},
                                                {D3DRS_BLENDOP, D3DBLENDOP_ADD},
                                                {D3DRS_BLENDOPALPHA, D3DBLENDOP_ADD}}));
    mark = kvproxy::Here();
    rs->SetSeparateSceneBlending(SBF_ZERO, SBF_ONE, SBF_DEST_COLOUR, SBF_ZERO, SBO_MIN, SBO_MAX);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_SEPARATEALPHABLENDENABLE, 1},
                                                {D3DRS_SRCBLENDALPHA, D3DBLEND_SRCALPHA},
                                                {D3DRS_DESTBLENDALPHA, D3DBLEND_ONE}}));
    rs->m_bDepthBufferCleared = true;
    mark = kvproxy::Here();
    rs->SetDepthWriteEnabled(true);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_ZWRITEENABLE, 0}}));
    EXPECT_TRUE(rs->_isDepthBufferCleared());
    EXPECT_FALSE(rs->GetDepthWriteEnabled());

    // The wire and complexity views draw without blending, whatever is asked;
    // both wire views are wireframe, so switching between them sets nothing.
    const FillMode flat[] = {FILL_WIRE_BLACK, FILL_WIRE_TINTED, FILL_SHADER_COMPLEXITY};
    for (FillMode mode : flat)
    {
        d3d->_resetStateCaches();
        rs->SetFillMode(mode);
        mark = kvproxy::Here();
        rs->SetSceneBlending(SBF_SOURCE_ALPHA, SBF_ONE_MINUS_SOURCE_ALPHA, SBO_ADD);
        rs->SetSeparateSceneBlending(SBF_SOURCE_ALPHA, SBF_ONE, SBF_ONE, SBF_ONE, SBO_ADD, SBO_ADD);
        EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_ALPHABLENDENABLE, 0}})) << mode;
        // Depth writes pass as set outside the overdraw view.
        rs->SetDepthWriteEnabled(true);
        EXPECT_FALSE(rs->_isDepthBufferCleared()) << mode;
        EXPECT_TRUE(rs->GetDepthWriteEnabled()) << mode;
        rs->m_bDepthBufferCleared = true;
    }
    mark = kvproxy::Here();
    rs->SetFillMode(FILL_WIRE_BLACK);
    rs->SetFillMode(FILL_WIRE_TINTED);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_FILLMODE, D3DFILL_WIREFRAME}}));
}

TEST_F(StateCache, SolidBlendingDisablesOnlyForPlainReplace)
{
    d3d->_resetStateCaches();
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetSceneBlending(SBF_ONE, SBF_ZERO, SBO_MAX); // the operation is not looked at
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_ALPHABLENDENABLE, 0}}));

    mark = kvproxy::Here();
    rs->SetSceneBlending(SBF_SOURCE_ALPHA, SBF_ONE_MINUS_SOURCE_ALPHA, SBO_REVERSE_SUBTRACT);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_ALPHABLENDENABLE, 1},
                                                {D3DRS_SEPARATEALPHABLENDENABLE, 0},
                                                {D3DRS_SRCBLEND, D3DBLEND_SRCALPHA},
                                                {D3DRS_DESTBLEND, D3DBLEND_INVSRCALPHA},
                                                {D3DRS_BLENDOP, D3DBLENDOP_REVSUBTRACT},
                                                {D3DRS_BLENDOPALPHA, D3DBLENDOP_REVSUBTRACT}}));

    // Colour replace with an alpha blend is still a blend.
    mark = kvproxy::Here();
    rs->SetSeparateSceneBlending(SBF_ONE, SBF_ZERO, SBF_BLEND_FACTOR, SBF_ONE_MINUS_BLEND_FACTOR, SBO_ADD, SBO_MIN);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_SEPARATEALPHABLENDENABLE, 1},
                                                {D3DRS_SRCBLEND, D3DBLEND_ONE},
                                                {D3DRS_DESTBLEND, D3DBLEND_ZERO},
                                                {D3DRS_SRCBLENDALPHA, D3DBLEND_BLENDFACTOR},
                                                {D3DRS_DESTBLENDALPHA, D3DBLEND_INVBLENDFACTOR},
                                                {D3DRS_BLENDOP, D3DBLENDOP_ADD},
                                                {D3DRS_BLENDOPALPHA, D3DBLENDOP_MIN}}));
    mark = kvproxy::Here();
    rs->SetSeparateSceneBlending(SBF_ONE, SBF_ZERO, SBF_ONE, SBF_ZERO, SBO_SUBTRACT, SBO_MAX);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_ALPHABLENDENABLE, 0}}));
}

TEST_F(StateCache, DepthBiasFollowsTheRasterCaps)
{
    const uint32_t both = D3DPRASTERCAPS_DEPTHBIAS | D3DPRASTERCAPS_SLOPESCALEDEPTHBIAS;
    ASSERT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(RasterCaps), both));
    ReadCaps();
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetDepthBias(-0.0005f, 2.5f);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    float constant = 0, slope = 0;
    rs->GetDepthBias(&constant, &slope);
    EXPECT_EQ(-0.0005f, constant);
    EXPECT_EQ(2.5f, slope);

    ASSERT_TRUE(kvproxy::SetCapBits(KV_PROXY_CAP(RasterCaps), both, D3DPRASTERCAPS_SLOPESCALEDEPTHBIAS));
    ReadCaps();
    mark = kvproxy::Here();
    rs->SetDepthBias(-0.0005f, 2.5f);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_SLOPESCALEDEPTHBIAS, Bits(2.5f)}}));

    kvproxy::ClearCapsOverrides();
    ReadCaps();
    mark = kvproxy::Here();
    rs->SetDepthBias(-0.0005f, 1.0f);
    EXPECT_TRUE(
        kvproxy::RenderStatesSet(mark, {{D3DRS_DEPTHBIAS, Bits(-0.0005f)}, {D3DRS_SLOPESCALEDEPTHBIAS, Bits(1.0f)}}));
}

TEST_F(StateCache, SRGBAndMipBiasHeldAtZeroWithoutTheCapability)
{
    rs->m_pCapabilities->SetSRGBReadWrite(false);
    rs->m_pCapabilities->SetMipBiasSupported(false);
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetSRGBWriteEnabled(true);
    rs->_setTextureMipmapBias(1, -1.0f);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_SRGBWRITEENABLE, 0}}));
    EXPECT_TRUE(kvproxy::SamplerStatesSet(mark, {{1, D3DSAMP_MIPMAPLODBIAS, 0}}));

    rs->m_pCapabilities->SetSRGBReadWrite(true);
    rs->m_pCapabilities->SetMipBiasSupported(true);
    mark = kvproxy::Here();
    rs->SetSRGBWriteEnabled(true);
    rs->_setTextureMipmapBias(1, -1.0f);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_SRGBWRITEENABLE, 1}}));
    EXPECT_TRUE(kvproxy::SamplerStatesSet(mark, {{1, D3DSAMP_MIPMAPLODBIAS, Bits(-1.0f)}}));
}

TEST_F(StateCache, AnisotropyIsClampedAndRaisesOnlyLinearMinAndMag)
{
    ASSERT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(MaxAnisotropy), 4));
    ASSERT_TRUE(kvproxy::SetCapBits(KV_PROXY_CAP(TextureFilterCaps), 0,
                                    D3DPTFILTERCAPS_MINFANISOTROPIC | D3DPTFILTERCAPS_MAGFANISOTROPIC));
    ReadCaps();
    kvproxy::Mark mark = kvproxy::Here();
    rs->_setTextureLayerAnisotropy(0, 16);
    rs->_setTextureLayerAnisotropy(1, 3);
    EXPECT_TRUE(kvproxy::SamplerStatesSet(mark, {{0, D3DSAMP_MAXANISOTROPY, 4}, {1, D3DSAMP_MAXANISOTROPY, 3}}));

    rs->SetAnisotropy(true, 4);
    mark = kvproxy::Here();
    rs->_setTextureUnitFiltering(0, FO_LINEAR, FO_POINT, FO_LINEAR);
    rs->_setTextureUnitFiltering(1, FO_POINT, FO_LINEAR, FO_POINT);
    EXPECT_TRUE(kvproxy::SamplerStatesSet(mark, {{0, D3DSAMP_MINFILTER, D3DTEXF_ANISOTROPIC},
                                                 {0, D3DSAMP_MAGFILTER, D3DTEXF_POINT},
                                                 {0, D3DSAMP_MIPFILTER, D3DTEXF_LINEAR},
                                                 {1, D3DSAMP_MINFILTER, D3DTEXF_POINT},
                                                 {1, D3DSAMP_MAGFILTER, D3DTEXF_ANISOTROPIC},
                                                 {1, D3DSAMP_MIPFILTER, D3DTEXF_POINT}}));

    // A device without anisotropic minification keeps linear there.
    ASSERT_TRUE(kvproxy::ClearCapBits(KV_PROXY_CAP(TextureFilterCaps), D3DPTFILTERCAPS_MINFANISOTROPIC));
    ReadCaps();
    mark = kvproxy::Here();
    rs->_setTextureUnitFiltering(0, FO_LINEAR, FO_POINT, FO_LINEAR);
    EXPECT_TRUE(kvproxy::SamplerStatesSet(mark, {{0, D3DSAMP_MINFILTER, D3DTEXF_LINEAR}}));

    rs->SetAnisotropy(false, 4);
    mark = kvproxy::Here();
    rs->_setTextureUnitFiltering(1, FO_POINT, FO_LINEAR, FO_POINT);
    EXPECT_TRUE(kvproxy::SamplerStatesSet(mark, {{1, D3DSAMP_MAGFILTER, D3DTEXF_LINEAR}}));
}

TEST_F(StateCache, ClipPlaneBitsAreReadFromTheDevice)
{
    ASSERT_EQ(D3D_OK, device->SetRenderState(D3DRS_CLIPPLANEENABLE, 1));
    kvproxy::Mark mark = kvproxy::Here();
    rs->EnableClipPlane(1, true);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_CLIPPLANEENABLE, 3}}));
    EXPECT_TRUE(kvproxy::CalledInOrder(mark, {Method::GetRenderState, Method::SetRenderState}));
    mark = kvproxy::Here();
    rs->EnableClipPlane(0, false);
    EXPECT_TRUE(kvproxy::RenderStatesSet(mark, {{D3DRS_CLIPPLANEENABLE, 2}}));
    EXPECT_EQ(2u, DeviceRenderState(D3DRS_CLIPPLANEENABLE));

    // The plane itself goes out every time.
    mark = kvproxy::Here();
    rs->SetClipPlane(1, 0.0f, 1.0f, 0.0f, -2.0f);
    rs->SetClipPlane(1, 0.0f, 1.0f, 0.0f, -2.0f);
    std::vector<KvProxyCall> planes = kvproxy::CallsSince(mark, Method::SetClipPlane);
    ASSERT_EQ(2u, planes.size());
    EXPECT_EQ(1u, planes[0].args[0]);
    const float* plane = kvproxy::FloatsOf(planes[1]);
    ASSERT_NE(nullptr, plane);
    EXPECT_EQ(1.0f, plane[1]);
    EXPECT_EQ(-2.0f, plane[3]);

    // A plane index beyond the 32 bits of the state is refused before the device.
    mark = kvproxy::Here();
    rs->EnableClipPlane(40, true);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(std::vector<std::string>{"EnableClipPlane: clip plane 40 does not exist"}, Errors());
}

TEST_F(StateCache, NullTexturesBindOnceAndTouchNoSampler)
{
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetTexture(2, nullptr, SamplerState::S_2LINEAR_2CLAMP);
    std::vector<KvProxyCall> binds = kvproxy::CallsSince(mark, Method::SetTexture);
    ASSERT_EQ(1u, binds.size());
    EXPECT_EQ(2u, binds[0].args[0]);
    EXPECT_EQ(0u, binds[0].args[1]);
    EXPECT_EQ(0u, kvproxy::CountSince(mark, Method::SetSamplerState));
    EXPECT_EQ(1, rs->m_nAddUsedTextureCount);

    mark = kvproxy::Here();
    rs->SetTexture(2, nullptr, SamplerState::S_2LINEAR_2CLAMP);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(1, rs->m_nAddUsedTextureCount);

    // Units 0 to 15 in rising order; unit 2 already holds null.
    mark = kvproxy::Here();
    rs->_disableTextureUnits();
    binds = kvproxy::CallsSince(mark, Method::SetTexture);
    ASSERT_EQ(15u, binds.size());
    EXPECT_EQ(0u, binds[0].args[0]);
    EXPECT_EQ(3u, binds[2].args[0]);
    EXPECT_EQ(15u, binds[14].args[0]);
    EXPECT_TRUE(kvproxy::NoCallsOf(mark, {Method::SetSamplerState}));

    mark = kvproxy::Here();
    rs->SetTexture(261, nullptr, SamplerState::S_2LINEAR_2CLAMP);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_EQ(std::vector<std::string>{"SetTexture: sampler 261 does not exist"}, Errors());
}

TEST_F(StateCache, TextureBindingSetsItsSamplerStatesThroughTheShadow)
{
    ASSERT_TRUE(kvproxy::SetCapBits(KV_PROXY_CAP(TextureAddressCaps), 0, D3DPTADDRESSCAPS_BORDER));
    ReadCaps();
    ref_ptr<BareTexture> texture(new BareTexture);
    SamplerState state;
    state.minFilter = FO_POINT;
    state.magFilter = FO_LINEAR;
    state.mipFilter = FO_LINEAR;
    state.addressU = TAM_WRAP;
    state.addressV = TAM_BORDER;
    state.addressW = TAM_MIRROR;
    state.borderColour = CColour(1.0f, 0.5f, 0.0f, 1.0f);
    state.mipBias = 0.5f;
    state.sRGB = true;
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetTexture(4, texture.get(), state);
    EXPECT_TRUE(kvproxy::SamplerStatesSet(mark, {{4, D3DSAMP_SRGBTEXTURE, 1},
                                                 {4, D3DSAMP_MINFILTER, D3DTEXF_POINT},
                                                 {4, D3DSAMP_MAGFILTER, D3DTEXF_LINEAR},
                                                 {4, D3DSAMP_MIPFILTER, D3DTEXF_LINEAR},
                                                 {4, D3DSAMP_ADDRESSU, D3DTADDRESS_WRAP},
                                                 {4, D3DSAMP_ADDRESSV, D3DTADDRESS_BORDER},
                                                 {4, D3DSAMP_ADDRESSW, D3DTADDRESS_MIRROR},
                                                 {4, D3DSAMP_BORDERCOLOR, 0xFFFF7F00u},
                                                 {4, D3DSAMP_MIPMAPLODBIAS, Bits(0.5f)}}));
    EXPECT_EQ(1u, kvproxy::CountSince(mark, Method::SetTexture));
    EXPECT_EQ(texture.get(), rs->m_pLastUsedTexture);

    // The same binding again: every sampler state and the texture are shadowed.
    mark = kvproxy::Here();
    rs->SetTexture(4, texture.get(), state);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));

    // sRGB reads need the capability as well as the request.
    rs->m_pCapabilities->SetSRGBReadWrite(false);
    mark = kvproxy::Here();
    rs->SetTexture(4, texture.get(), state);
    EXPECT_TRUE(kvproxy::SamplerStatesSet(mark, {{4, D3DSAMP_SRGBTEXTURE, 0}}));
}

TEST_F(StateCache, AFailedSetIsLoggedAndNotRetried)
{
    kvproxy::FailMethod(Method::SetRenderState, D3DERR_INVALIDCALL, 1);
    kvproxy::FailMethod(Method::SetSamplerState, D3DERR_INVALIDCALL, 1);
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetDepthCheckEnabled(true);
    rs->_setTextureLayerAnisotropy(0, 1);
    EXPECT_EQ((std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to SetRenderState"),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to SetSamplerState")}),
              Errors());
    // The shadow took the value: the same set is not repeated.
    EXPECT_TRUE(rs->GetDepthCheckEnabled());
    mark = kvproxy::Here();
    rs->SetDepthCheckEnabled(true);
    rs->_setTextureLayerAnisotropy(0, 1);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
}

TEST(StateCacheWithoutDevice, SettersBeforeTheDeviceDoNothing)
{
    ASSERT_TRUE(kvproxy::Available());
    kvproxy::ResetAll();
    ClearLog();
    CRenderSystem* rs = CreateRenderSystem();
    ASSERT_NE(nullptr, rs);
    kvproxy::Mark mark = kvproxy::Here();
    rs->SetDepthCheckEnabled(true);
    rs->SetStencilEnabled(true);
    rs->SetColourWriteEnabled(true, true, true, true);
    rs->SetTexture(0, nullptr, SamplerState::S_2LINEAR_2CLAMP);
    rs->EnableClipPlane(0, true);
    rs->SetClipPlane(0, 1, 0, 0, 0);
    rs->_setTextureMipmapBias(0, 1.0f);
    rs->SetCullingMode(CULL_ANTICLOCKWISE);
    EXPECT_TRUE(kvproxy::NoDeviceCalls(mark));
    EXPECT_TRUE(rs->GetStencilEnabled());
    EXPECT_EQ(CULL_ANTICLOCKWISE, rs->GetCullingMode());
    EXPECT_EQ(0u, GetLogLineCount());
    delete rs;
}

// What the device draws: a white quad over a black target, through the
// render system's states and the fixed pipeline.
struct StateCachePixels : public StateCache
{
    struct Vertex
    {
        float x, y, z, rhw;
        D3DCOLOR colour;
    };

    void DrawQuad(D3DCOLOR colour)
    {
        const Vertex quad[4] = {{-0.5f, -0.5f, 0.5f, 1.0f, colour},
                                {63.5f, -0.5f, 0.5f, 1.0f, colour},
                                {-0.5f, 63.5f, 0.5f, 1.0f, colour},
                                {63.5f, 63.5f, 0.5f, 1.0f, colour}};
        ASSERT_EQ(D3D_OK, device->SetFVF(D3DFVF_XYZRHW | D3DFVF_DIFFUSE));
        ASSERT_EQ(D3D_OK, device->SetTextureStageState(0, D3DTSS_COLOROP, D3DTOP_SELECTARG1));
        ASSERT_EQ(D3D_OK, device->SetTextureStageState(0, D3DTSS_COLORARG1, D3DTA_DIFFUSE));
        ASSERT_EQ(D3D_OK, device->SetTextureStageState(0, D3DTSS_ALPHAOP, D3DTOP_SELECTARG1));
        ASSERT_EQ(D3D_OK, device->SetTextureStageState(0, D3DTSS_ALPHAARG1, D3DTA_DIFFUSE));
        ASSERT_EQ(D3D_OK, device->SetRenderState(D3DRS_LIGHTING, FALSE));
        ASSERT_EQ(D3D_OK, device->BeginScene());
        ASSERT_EQ(D3D_OK, device->DrawPrimitiveUP(D3DPT_TRIANGLESTRIP, 2, quad, sizeof(Vertex)));
        ASSERT_EQ(D3D_OK, device->EndScene());
    }

    D3DCOLOR CentrePixel()
    {
        std::vector<uint32_t> pixels = ReadBackBuffer();
        return pixels.size() == 64 * 64 ? pixels[32 * 64 + 32] & 0x00FFFFFFu : 0xDEADBEEF;
    }
};

TEST_F(StateCachePixels, ColourWriteMaskKeepsGreenOutOfTheDrawnQuad)
{
    rs->SetDepthCheckEnabled(false);
    rs->SetCullingMode(CULL_NONE);
    rs->SetSceneBlending(SBF_ONE, SBF_ZERO, SBO_ADD);
    ASSERT_EQ(D3D_OK, device->Clear(0, nullptr, D3DCLEAR_TARGET, 0xFF000000u, 1.0f, 0));
    rs->SetColourWriteEnabled(true, false, true, false);
    DrawQuad(0xFFFFFFFFu);
    EXPECT_EQ(0x00FF00FFu, CentrePixel());

    rs->SetColourWriteEnabled(true, true, true, true);
    DrawQuad(0xFF204060u);
    EXPECT_EQ(0x00204060u, CentrePixel());
}

TEST_F(StateCachePixels, OverdrawViewAddsAQuarterPerLayer)
{
    rs->SetDepthCheckEnabled(false);
    rs->SetCullingMode(CULL_NONE);
    ASSERT_EQ(D3D_OK, device->Clear(0, nullptr, D3DCLEAR_TARGET, 0xFF000000u, 1.0f, 0));
    rs->SetFillMode(FILL_OVERDRAW);
    // The engine asks to replace; the view adds instead.
    rs->SetSceneBlending(SBF_ONE, SBF_ZERO, SBO_ADD);
    // The view's own pixel shader comes with the shader side; the fixed pipeline
    // stands in with the same quarter alpha, drawn solid.
    ASSERT_EQ(D3D_OK, device->SetRenderState(D3DRS_FILLMODE, D3DFILL_SOLID));
    DrawQuad(D3DCOLOR_ARGB(64, 200, 100, 40));
    const D3DCOLOR one = CentrePixel();
    DrawQuad(D3DCOLOR_ARGB(64, 200, 100, 40));
    const D3DCOLOR two = CentrePixel();
    // Each channel within 2 of the expected sum: blending rounds.
    auto within2 = [](D3DCOLOR got, unsigned r, unsigned g, unsigned b) {
        const unsigned want[3] = {r, g, b};
        for (int i = 0; i < 3; ++i)
        {
            const unsigned c = (got >> (16 - 8 * i)) & 0xFFu;
            if (c + 2 < want[i] || c > want[i] + 2)
                return false;
        }
        return true;
    };
    EXPECT_TRUE(within2(one, 50, 25, 10)) << std::hex << one;
    EXPECT_TRUE(within2(two, 100, 50, 20)) << std::hex << two;
}

} // namespace
