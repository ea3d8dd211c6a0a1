// The render system's state shadows on Wine's Direct3D 9 through the recording d3d9.dll: which calls reach the
// device with which values, and which are spared.
#include "KvDeviceTest.h"

#include "D3D9Texture.h"

using namespace kv;
using namespace kvtest;
using kvproxy::Method;

namespace
{

// The render state calls of these (state, value) pairs and the sampler state calls
// of these (sampler, type, value) triples, as Trace writes them.
template <class... V>
std::string States(V... parts)
{
    const uint64_t v[] = {static_cast<uint64_t>(parts)...};
    std::string s;
    for (size_t i = 0; i + 1 < sizeof...(parts); i += 2)
        s = Join(s, Call("SetRenderState", v[i], v[i + 1]));
    return s;
}
template <class... V>
std::string Samplers(V... parts)
{
    const uint64_t v[] = {static_cast<uint64_t>(parts)...};
    std::string s;
    for (size_t i = 0; i + 2 < sizeof...(parts); i += 3)
        s = Join(s, Call("SetSamplerState", v[i], v[i + 1], v[i + 2]));
    return s;
}

// The device as Init leaves it, its shadows unknown, with the capabilities that hold states back granted.
// Restart makes the device again, after the test has changed the capabilities the proxy reports.
struct StateCache : KvDeviceTest
{
    void SetUp() override
    {
        KvDeviceTest::SetUp();
        if (!HasFatalFailure())
            Ready();
    }
    void Ready()
    {
        rs->m_pCapabilities->SetSRGBReadWrite(true);
        rs->m_pCapabilities->SetMipBiasSupported(true);
        d3d->_resetStateCaches();
        mark = kvproxy::Here();
    }
    void Restart()
    {
        NewRenderSystem();
        Start();
        Ready();
    }
    // The calls (all, or of these methods) since the last step, then a new step.
    std::string Sent(std::initializer_list<Method> only = {})
    {
        const std::string calls = Trace(mark, only);
        mark = kvproxy::Here();
        return calls;
    }
};

TEST_F(StateCache, FirstSetsReachTheDeviceRepeatsMakeNoCallTillAResetAndStencilSidesTakeOppositeIncrements)
{
    const CColour colour(1.0f, 0.5f, 0.0f, 1.0f);
    auto setAll = [&] {
        rs->SetDepthCheckEnabled(true);
        rs->SetDepthWriteEnabled(true);
        rs->SetDepthFunction(CMPF_LESS_EQUAL);
        rs->SetFillMode(FILL_WIREFRAME);
        rs->SetCullingMode(CULL_NONE);
        rs->SetScissorTestEnabled(true);
        rs->SetBlendFactor(&colour);
        rs->SetSRGBWriteEnabled(true);
        rs->SetColourWriteEnabled(true, false, true, false);
        rs->_setTextureAddressingModeUV(3, TAM_WRAP, TAM_MIRROR);
        rs->_setTextureAddressingModeW(3, TAM_CLAMP);
        rs->_setTextureUnitFiltering(3, FO_POINT, FO_LINEAR, FO_NONE);
    };
    const std::string all =
        Join(States(D3DRS_ZENABLE, 1, D3DRS_ZWRITEENABLE, 1, D3DRS_ZFUNC, D3DCMP_LESSEQUAL, D3DRS_FILLMODE,
                    D3DFILL_WIREFRAME, D3DRS_CULLMODE, D3DCULL_NONE, D3DRS_SCISSORTESTENABLE, 1, D3DRS_BLENDFACTOR,
                    0xFFFF7F00u, D3DRS_SRGBWRITEENABLE, 1, D3DRS_COLORWRITEENABLE, 5, D3DRS_COLORWRITEENABLE1, 5,
                    D3DRS_COLORWRITEENABLE2, 5, D3DRS_COLORWRITEENABLE3, 5),
             Samplers(3, D3DSAMP_ADDRESSU, D3DTADDRESS_WRAP, 3, D3DSAMP_ADDRESSV, D3DTADDRESS_MIRROR, 3,
                      D3DSAMP_ADDRESSW, D3DTADDRESS_CLAMP, 3, D3DSAMP_MINFILTER, D3DTEXF_POINT, 3, D3DSAMP_MAGFILTER,
                      D3DTEXF_LINEAR, 3, D3DSAMP_MIPFILTER, D3DTEXF_NONE));
    setAll();
    EXPECT_EQ(all, Sent());
    EXPECT_TRUE(rs->GetDepthCheckEnabled() && rs->GetDepthWriteEnabled() && rs->GetCullingMode() == CULL_NONE);
    setAll();
    EXPECT_EQ("", Sent());
    // After a reset the same values go out again, though the device holds them.
    d3d->_resetStateCaches();
    EXPECT_FALSE(rs->GetDepthCheckEnabled());
    setAll();
    EXPECT_EQ(all, Sent());
    EXPECT_TRUE(Errors().empty());

    // The stencil switch is filtered by its member first, which a reset keeps.
    rs->SetStencilEnabled(false);
    rs->SetStencilEnabled(true);
    EXPECT_EQ(States(D3DRS_STENCILENABLE, 1), Sent());
    EXPECT_TRUE(rs->GetStencilEnabled());
    d3d->_resetStateCaches();
    rs->SetStencilEnabled(true);
    rs->SetStencilEnabled(false);
    EXPECT_EQ(States(D3DRS_STENCILENABLE, 0), Sent());

    // One-sided stencil: the winding flag changes nothing.
    rs->SetInvertVertexWinding(true);
    rs->SetStencilState(CMPF_EQUAL, 7, 0xF0, 0x0F, SOP_INCREMENT, SOP_DECREMENT_WRAP, SOP_REPLACE, false);
    EXPECT_EQ(States(D3DRS_TWOSIDEDSTENCILMODE, 0, D3DRS_STENCILFUNC, D3DCMP_EQUAL, D3DRS_STENCILREF, 7,
                     D3DRS_STENCILMASK, 0xF0, D3DRS_STENCILWRITEMASK, 0x0F, D3DRS_STENCILFAIL, D3DSTENCILOP_INCRSAT,
                     D3DRS_STENCILZFAIL, D3DSTENCILOP_DECR, D3DRS_STENCILPASS, D3DSTENCILOP_REPLACE),
              Sent());
    // Two-sided, plain winding: back faces as given, front faces swapped.
    rs->SetInvertVertexWinding(false);
    d3d->_resetStateCaches();
    rs->SetStencilState(CMPF_GREATER, 1, 2, 3, SOP_INCREMENT, SOP_DECREMENT_WRAP, SOP_INCREMENT_WRAP, true);
    EXPECT_EQ(States(D3DRS_TWOSIDEDSTENCILMODE, 1, D3DRS_CCW_STENCILFAIL, D3DSTENCILOP_INCRSAT, D3DRS_CCW_STENCILZFAIL,
                     D3DSTENCILOP_DECR, D3DRS_CCW_STENCILPASS, D3DSTENCILOP_INCR, D3DRS_STENCILFUNC, D3DCMP_GREATER,
                     D3DRS_STENCILREF, 1, D3DRS_STENCILMASK, 2, D3DRS_STENCILWRITEMASK, 3, D3DRS_STENCILFAIL,
                     D3DSTENCILOP_DECRSAT, D3DRS_STENCILZFAIL, D3DSTENCILOP_INCR, D3DRS_STENCILPASS, D3DSTENCILOP_DECR),
              Sent());
    // Inverted winding: the sides trade places; the CCW compare function is never
    // the render system's business.
    rs->SetInvertVertexWinding(true);
    rs->SetStencilState(CMPF_GREATER, 1, 2, 3, SOP_INCREMENT, SOP_DECREMENT_WRAP, SOP_INCREMENT_WRAP, true);
    EXPECT_EQ(States(D3DRS_CCW_STENCILFAIL, D3DSTENCILOP_DECRSAT, D3DRS_CCW_STENCILZFAIL, D3DSTENCILOP_INCR,
                     D3DRS_CCW_STENCILPASS, D3DSTENCILOP_DECR, D3DRS_STENCILFAIL, D3DSTENCILOP_INCRSAT,
                     D3DRS_STENCILZFAIL, D3DSTENCILOP_DECR, D3DRS_STENCILPASS, D3DSTENCILOP_INCR),
              Sent());
    EXPECT_EQ(CD3D9RenderSystem::kUnknownState, d3d->m_renderStates[D3DRS_CCW_STENCILFUNC]);
}

TEST_F(StateCache, ViewingModesOverrideBlendingAndDepthWritesClipPlanesNullTexturesAndRefusedSets)
{
    // Solid: replacing is no blend whatever the operation; colour replace with an
    // alpha blend is still a blend.
    rs->SetSceneBlending(SBF_ONE, SBF_ZERO, SBO_MAX);
    rs->SetSceneBlending(SBF_SOURCE_ALPHA, SBF_ONE_MINUS_SOURCE_ALPHA, SBO_REVERSE_SUBTRACT);
    rs->SetSeparateSceneBlending(SBF_ONE, SBF_ZERO, SBF_BLEND_FACTOR, SBF_ONE_MINUS_BLEND_FACTOR, SBO_ADD, SBO_MIN);
    rs->SetSeparateSceneBlending(SBF_ONE, SBF_ZERO, SBF_ONE, SBF_ZERO, SBO_SUBTRACT, SBO_MAX);
    EXPECT_EQ(States(D3DRS_ALPHABLENDENABLE, 0, D3DRS_ALPHABLENDENABLE, 1, D3DRS_SEPARATEALPHABLENDENABLE, 0,
                     D3DRS_SRCBLEND, D3DBLEND_SRCALPHA, D3DRS_DESTBLEND, D3DBLEND_INVSRCALPHA, D3DRS_BLENDOP,
                     D3DBLENDOP_REVSUBTRACT, D3DRS_BLENDOPALPHA, D3DBLENDOP_REVSUBTRACT, D3DRS_SEPARATEALPHABLENDENABLE,
                     1, D3DRS_SRCBLEND, D3DBLEND_ONE, D3DRS_DESTBLEND, D3DBLEND_ZERO, D3DRS_SRCBLENDALPHA,
                     D3DBLEND_BLENDFACTOR, D3DRS_DESTBLENDALPHA, D3DBLEND_INVBLENDFACTOR, D3DRS_BLENDOP, D3DBLENDOP_ADD,
                     D3DRS_BLENDOPALPHA, D3DBLENDOP_MIN, D3DRS_ALPHABLENDENABLE, 0),
              Sent());

    // Overdraw: every blend becomes source alpha, one, add (the colour operation
    // stands at add already); depth writes stay off and a cleared depth buffer
    // stays cleared.
    rs->SetFillMode(FILL_OVERDRAW);
    EXPECT_EQ(FILL_OVERDRAW, rs->GetFillMode());
    rs->SetSceneBlending(SBF_ONE, SBF_ZERO, SBO_SUBTRACT);
    rs->SetSeparateSceneBlending(SBF_ZERO, SBF_ONE, SBF_DEST_COLOUR, SBF_ZERO, SBO_MIN, SBO_MAX);
    rs->ClearFrameBuffer(2, nullptr, 1.0f, 0);
    rs->SetDepthWriteEnabled(true);
    EXPECT_EQ(States(D3DRS_FILLMODE, 0x7FFFFFFFu, D3DRS_ALPHABLENDENABLE, 1, D3DRS_SEPARATEALPHABLENDENABLE, 0,
                     D3DRS_SRCBLEND, D3DBLEND_SRCALPHA, D3DRS_DESTBLEND, D3DBLEND_ONE, D3DRS_BLENDOPALPHA,
                     D3DBLENDOP_ADD, D3DRS_SEPARATEALPHABLENDENABLE, 1, D3DRS_SRCBLENDALPHA, D3DBLEND_SRCALPHA,
                     D3DRS_DESTBLENDALPHA, D3DBLEND_ONE, D3DRS_ZWRITEENABLE, 0),
              Sent({Method::SetRenderState}));
    EXPECT_TRUE(rs->_isDepthBufferCleared());
    EXPECT_FALSE(rs->GetDepthWriteEnabled());

    // The wire and complexity views draw without blending, whatever is asked;
    // depth writes pass as set outside the overdraw view.
    for (FillMode mode : {FILL_WIRE_BLACK, FILL_WIRE_TINTED, FILL_SHADER_COMPLEXITY})
    {
        d3d->_resetStateCaches();
        rs->SetFillMode(mode);
        rs->ClearFrameBuffer(2, nullptr, 1.0f, 0);
        mark = kvproxy::Here();
        rs->SetSceneBlending(SBF_SOURCE_ALPHA, SBF_ONE_MINUS_SOURCE_ALPHA, SBO_ADD);
        rs->SetSeparateSceneBlending(SBF_SOURCE_ALPHA, SBF_ONE, SBF_ONE, SBF_ONE, SBO_ADD, SBO_ADD);
        rs->SetDepthWriteEnabled(true);
        EXPECT_EQ(States(D3DRS_ALPHABLENDENABLE, 0, D3DRS_ZWRITEENABLE, 1), Sent()) << mode;
        EXPECT_FALSE(rs->_isDepthBufferCleared()) << mode;
    }

    // The enable bits are read from the device: other planes' bits may have been
    // set behind the cache. The plane itself goes out every time.
    ASSERT_EQ(D3D_OK, device->SetRenderState(D3DRS_CLIPPLANEENABLE, 1));
    mark = kvproxy::Here();
    rs->EnableClipPlane(1, true);
    rs->EnableClipPlane(0, false);
    rs->SetClipPlane(1, 0.0f, 1.0f, 0.0f, -2.0f);
    rs->SetClipPlane(1, 0.0f, 1.0f, 0.0f, -2.0f);
    EXPECT_EQ(Join(Call("GetRenderState", D3DRS_CLIPPLANEENABLE), Call("SetRenderState", D3DRS_CLIPPLANEENABLE),
                   Call("GetRenderState", D3DRS_CLIPPLANEENABLE), Call("SetRenderState", D3DRS_CLIPPLANEENABLE),
                   Call("SetClipPlane", 1), Call("SetClipPlane", 1)),
              Trace(mark, {}, 1));
    EXPECT_EQ(States(D3DRS_CLIPPLANEENABLE, 3, D3DRS_CLIPPLANEENABLE, 2), Sent({Method::SetRenderState}));
    // A plane index beyond the 32 bits of the state is refused before the device.
    rs->EnableClipPlane(32, true);
    EXPECT_EQ("", Sent());
    EXPECT_EQ(std::vector<std::string>{"EnableClipPlane: clip plane 32 does not exist"}, Errors());
    ClearLog();

    // Null textures bind once and touch no sampler; units 0 to 15 in rising
    // order, where unit 2 already holds null; a unit past the shadow is refused.
    rs->SetTexture(2, nullptr, SamplerState::S_2LINEAR_2CLAMP);
    rs->SetTexture(2, nullptr, SamplerState::S_2LINEAR_2CLAMP);
    EXPECT_EQ(Call("SetTexture", 2, 0), Sent());
    rs->_disableTextureUnits();
    std::string units;
    for (unsigned u = 0; u < 16; ++u)
        units = u == 2 ? units : Join(units, Call("SetTexture", u, 0));
    EXPECT_EQ(units, Sent());
    rs->SetTexture(261, nullptr, SamplerState::S_2LINEAR_2CLAMP);
    EXPECT_EQ("", Sent());
    EXPECT_EQ(std::vector<std::string>{"SetTexture: sampler 261 does not exist"}, Errors());
    ClearLog();

    // A refused set is logged; the shadow took the value, so it is not retried.
    kvproxy::FailMethod(Method::SetRenderState, D3DERR_INVALIDCALL, 1);
    kvproxy::FailMethod(Method::SetSamplerState, D3DERR_INVALIDCALL, 1);
    rs->SetDepthCheckEnabled(true);
    rs->_setTextureLayerAnisotropy(0, 1);
    EXPECT_EQ((std::vector<std::string>{VerifyLine(D3DERR_INVALIDCALL, "Failed to SetRenderState"),
                                        VerifyLine(D3DERR_INVALIDCALL, "Failed to SetSamplerState")}),
              Errors());
    EXPECT_TRUE(rs->GetDepthCheckEnabled());
    mark = kvproxy::Here();
    rs->SetDepthCheckEnabled(true);
    rs->_setTextureLayerAnisotropy(0, 1);
    EXPECT_EQ("", Sent());
}

TEST_F(StateCache, CapabilitiesHoldStatesBack)
{
    // Depth bias goes out only for the raster caps the device has, as bit
    // patterns, and is kept for GetDepthBias and the next device.
    const uint32_t both = D3DPRASTERCAPS_DEPTHBIAS | D3DPRASTERCAPS_SLOPESCALEDEPTHBIAS;
    for (const uint32_t caps : {0u, uint32_t(D3DPRASTERCAPS_SLOPESCALEDEPTHBIAS), both})
    {
        ASSERT_TRUE(kvproxy::SetCapBits(KV_PROXY_CAP(RasterCaps), both, caps));
        ASSERT_NO_FATAL_FAILURE(Restart());
        rs->SetDepthBias(-0.0005f, 2.5f);
        const std::string slope = States(D3DRS_SLOPESCALEDEPTHBIAS, Bits(2.5f));
        EXPECT_EQ(caps == both ? Join(States(D3DRS_DEPTHBIAS, Bits(-0.0005f)), slope)
                  : caps       ? slope
                               : "",
                  Sent())
            << caps;
        float bias[2] = {0, 0};
        rs->GetDepthBias(&bias[0], &bias[1]);
        EXPECT_EQ((std::vector<float>{-0.0005f, 2.5f}), std::vector<float>(bias, bias + 2));
    }

    // Anisotropy: the level is clamped to the device's; only linear minification
    // and magnification rise to anisotropic, and only where the device has it.
    ASSERT_TRUE(kvproxy::SetCap(KV_PROXY_CAP(MaxAnisotropy), 4));
    ASSERT_TRUE(kvproxy::SetCapBits(KV_PROXY_CAP(TextureFilterCaps), D3DPTFILTERCAPS_MINFANISOTROPIC,
                                    D3DPTFILTERCAPS_MAGFANISOTROPIC));
    ASSERT_TRUE(kvproxy::SetCapBits(KV_PROXY_CAP(TextureAddressCaps), 0, D3DPTADDRESSCAPS_BORDER));
    ASSERT_NO_FATAL_FAILURE(Restart());
    rs->_setTextureLayerAnisotropy(0, 5);
    rs->_setTextureLayerAnisotropy(1, 3);
    rs->SetAnisotropy(true, 4);
    rs->_setTextureUnitFiltering(0, FO_LINEAR, FO_POINT, FO_LINEAR);
    rs->_setTextureUnitFiltering(1, FO_POINT, FO_LINEAR, FO_POINT);
    rs->SetAnisotropy(false, 4);
    rs->_setTextureUnitFiltering(1, FO_POINT, FO_LINEAR, FO_POINT);
    EXPECT_EQ(Samplers(0, D3DSAMP_MAXANISOTROPY, 4, 1, D3DSAMP_MAXANISOTROPY, 3, 0, D3DSAMP_MINFILTER, D3DTEXF_LINEAR,
                       0, D3DSAMP_MAGFILTER, D3DTEXF_POINT, 0, D3DSAMP_MIPFILTER, D3DTEXF_LINEAR, 1, D3DSAMP_MINFILTER,
                       D3DTEXF_POINT, 1, D3DSAMP_MAGFILTER, D3DTEXF_ANISOTROPIC, 1, D3DSAMP_MIPFILTER, D3DTEXF_POINT, 1,
                       D3DSAMP_MAGFILTER, D3DTEXF_LINEAR),
              Sent());

    // A texture binding sets its sampler states through the shadow: border
    // addressing with the border cap, sRGB reads and mip bias with theirs. The
    // texture is not ready yet: the unit binds the engine's white texture, once.
    ref_ptr<CD3D9Texture> texture(new CD3D9Texture);
    SamplerState state;
    state.minFilter = FO_POINT;
    state.magFilter = state.mipFilter = FO_LINEAR;
    state.addressU = TAM_WRAP;
    state.addressV = TAM_BORDER;
    state.addressW = TAM_MIRROR;
    state.borderColour = CColour(1.0f, 0.5f, 0.0f, 1.0f);
    state.mipBias = 0.5f;
    state.sRGB = true;
    rs->SetTexture(4, texture.get(), state);
    EXPECT_EQ(Join(Samplers(4, D3DSAMP_SRGBTEXTURE, 1, 4, D3DSAMP_MINFILTER, D3DTEXF_POINT, 4, D3DSAMP_MAGFILTER,
                            D3DTEXF_LINEAR, 4, D3DSAMP_MIPFILTER, D3DTEXF_LINEAR, 4, D3DSAMP_ADDRESSU, D3DTADDRESS_WRAP,
                            4, D3DSAMP_ADDRESSV, D3DTADDRESS_BORDER, 4, D3DSAMP_ADDRESSW, D3DTADDRESS_MIRROR, 4,
                            D3DSAMP_BORDERCOLOR, 0xFFFF7F00u, 4, D3DSAMP_MIPMAPLODBIAS, Bits(0.5f)),
                   Call("SetTexture", 4,
                        kvproxy::PtrArg(static_cast<CD3D9Texture*>(rs->GetWhiteTexture())->GetNativeTexture()))),
              Sent({Method::SetSamplerState, Method::SetTexture}));
    EXPECT_EQ(texture.get(), rs->m_pLastUsedTexture);
    rs->SetTexture(4, texture.get(), state);
    EXPECT_EQ("", Sent());
    rs->m_pCapabilities->SetSRGBReadWrite(false);
    rs->m_pCapabilities->SetMipBiasSupported(false);
    rs->SetTexture(4, texture.get(), state);
    rs->SetSRGBWriteEnabled(true);
    EXPECT_EQ(Join(Samplers(4, D3DSAMP_SRGBTEXTURE, 0, 4, D3DSAMP_MIPMAPLODBIAS, 0), States(D3DRS_SRGBWRITEENABLE, 0)),
              Sent());

    // A stored anisotropy reaches units 0 to 15 within the device's maximum when applied.
    ASSERT_NO_FATAL_FAILURE(Restart());
    rs->SetAnisotropy(true, 8);
    EXPECT_EQ("", Sent());
    rs->ApplyTextureAnisotropy();
    std::string units;
    for (unsigned u = 0; u < 16; ++u)
        units = Join(units, Samplers(u, D3DSAMP_MAXANISOTROPY, 4));
    EXPECT_EQ(units, Sent({Method::SetSamplerState}));

    // The engine's stored states go back to a new device, and the device's
    // scissor rectangle is read into the shadow.
    RECT scissor = {1, 2, 30, 40};
    ASSERT_EQ(D3D_OK, device->SetScissorRect(&scissor));
    rs->SetCullingMode(CULL_CLOCKWISE);
    rs->SetFillMode(FILL_POINT);
    rs->SetDepthBias(0.25f, 0.5f);
    rs->SetPointSpritesEnabled(true);
    d3d->_resetStateCaches();
    mark = kvproxy::Here();
    d3d->_restoreDeviceStates();
    EXPECT_EQ(States(D3DRS_CULLMODE, D3DCULL_CW, D3DRS_FILLMODE, D3DFILL_POINT, D3DRS_DEPTHBIAS, Bits(0.25f),
                     D3DRS_SLOPESCALEDEPTHBIAS, Bits(0.5f), D3DRS_POINTSPRITEENABLE, 1),
              Sent({Method::SetRenderState}));
    RECT got = {};
    rs->GetScissorRect(&got);
    EXPECT_EQ((std::vector<LONG>{1, 2, 30, 40}), (std::vector<LONG>{got.left, got.top, got.right, got.bottom}));
    rs->SetScissorRect(&scissor);
    EXPECT_EQ("", Sent());
}

} // namespace
