#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"
#include "D3D9ShaderConstants.h"
#include "D3D9Texture.h"

#include "engine/DeviceCapabilities.h"

#include <cstring>
#include <vector>

namespace kv
{

void CD3D9RenderSystem::_resetStateCaches()
{
    m_pCurrentVertexShader = reinterpret_cast<IDirect3DVertexShader9*>(static_cast<uintptr_t>(kUnknownState));
    m_pCurrentPixelShader = reinterpret_cast<IDirect3DPixelShader9*>(static_cast<uintptr_t>(kUnknownState));

    m_renderStates.assign(kRenderStateCount, kUnknownState);
    m_samplerStates.assign(kSamplerCount, std::vector<uint32_t>(kSamplerStateCount, kUnknownState));
    m_textures.assign(kSamplerCount, reinterpret_cast<IDirect3DBaseTexture9*>(static_cast<uintptr_t>(kUnknownState)));

    m_pCurrentIndexBuffer = reinterpret_cast<IDirect3DIndexBuffer9*>(static_cast<uintptr_t>(kUnknownState));
    m_pCurrentVertexDeclaration = reinterpret_cast<IDirect3DVertexDeclaration9*>(static_cast<uintptr_t>(kUnknownState));

    m_streamBuffers.assign(kStreamCount,
                           reinterpret_cast<IDirect3DVertexBuffer9*>(static_cast<uintptr_t>(kUnknownState)));
    m_streamOffsets.assign(kStreamCount, 0);
    m_streamFrequencies.assign(kStreamCount, 1);

    // Every component gets a value no program writes, so the next write of any
    // value is queued.
    float unknown;
    const uint32_t bits = kUnknownConstant;
    std::memcpy(&unknown, &bits, sizeof(unknown));
    for (int r = 0; r < kVertexConstantRegisters; ++r)
    {
        g_VSDirtyRegisters[r] = 0;
        for (float& c : g_VSConstantShadow[r])
            c = unknown;
    }
    for (int r = 0; r < kPixelConstantRegisters; ++r)
    {
        g_PSDirtyRegisters[r] = 0;
        for (float& c : g_PSConstantShadow[r])
            c = unknown;
    }
    g_nVSDirtyCount = 0;
    g_nPSDirtyCount = 0;

    m_pCurrentDepthStencil = reinterpret_cast<IDirect3DSurface9*>(static_cast<uintptr_t>(kUnknownState));
    for (IDirect3DSurface9*& s : m_pCurrentRenderTargets)
        s = reinterpret_cast<IDirect3DSurface9*>(static_cast<uintptr_t>(kUnknownState));
}

void CD3D9RenderSystem::_restoreDeviceStates()
{
    if (m_pD3D9Device)
        D3D9Verify(m_pD3D9Device->GetScissorRect(&m_scissorRect));
    SetCullingMode(m_cullingMode);
    SetFillMode(m_polygonMode);
    SetDepthBias(m_fDepthBiasConstant, m_fDepthBiasSlope);
    SetPointSpritesEnabled(m_bPointSprites);
}

void CD3D9RenderSystem::SetVertexShader(IDirect3DVertexShader9* shader)
{
    if (m_pCurrentVertexShader == shader || !m_pD3D9Device)
        return;
    // Kept even after a failure, like the state shadows.
    m_pCurrentVertexShader = shader;
    D3D9Verify(m_pD3D9Device->SetVertexShader(shader), "Failed to SetVertexShader!");
}

void CD3D9RenderSystem::SetPixelShader(IDirect3DPixelShader9* shader)
{
    if (m_polygonMode >= FILL_WIRE_BLACK && m_polygonMode <= FILL_SHADER_COMPLEXITY)
        shader = _getComplexityShader();
    if (m_pCurrentPixelShader == shader || !m_pD3D9Device)
        return;
    m_pCurrentPixelShader = shader;
    D3D9Verify(m_pD3D9Device->SetPixelShader(shader), "Failed to SetPixelShader");
}

void CD3D9RenderSystem::_sendRenderState(D3DRENDERSTATETYPE state, DWORD value)
{
    D3D9Verify(m_pD3D9Device->SetRenderState(state, value), "Failed to SetRenderState");
    // Kept even after a failure: the same set is not tried again until a reset.
    m_renderStates[state] = value;
}

void CD3D9RenderSystem::_sendSamplerState(DWORD sampler, D3DSAMPLERSTATETYPE type, DWORD value)
{
    D3D9Verify(m_pD3D9Device->SetSamplerState(sampler, type, value), "Failed to SetSamplerState");
    m_samplerStates[sampler][type] = value;
}

// --- Render and sampler states.

namespace
{

// Direct3D takes float render and sampler states as their bit patterns.
DWORD FloatBits(float value)
{
    DWORD bits;
    static_assert(sizeof(bits) == sizeof(value), "a float state is one 32-bit word");
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

} // namespace

void CD3D9RenderSystem::SetTexture(unsigned unit, CTexture* texture, const SamplerState& state)
{
    // The shadow has a place for every sampler up to the last vertex texture
    // sampler; it is empty until a device exists, and then there is nothing to bind.
    if (unit >= m_textures.size())
    {
        if (!m_textures.empty())
            LogError("SetTexture: sampler %u does not exist", unit);
        return;
    }

    IDirect3DBaseTexture9* native = nullptr;
    if (texture)
    {
        const bool sRGB = state.sRGB && m_pCapabilities && m_pCapabilities->GetSRGBReadWrite();
        _setSamplerState(unit, D3DSAMP_SRGBTEXTURE, sRGB ? TRUE : FALSE);
        _setTextureUnitFiltering(unit, state.minFilter, state.magFilter, state.mipFilter);
        _setTextureAddressingModeUV(unit, state.addressU, state.addressV);
        _setTextureAddressingModeW(unit, state.addressW);
        _setTextureBorderColour(unit, &state.borderColour);
        _setTextureMipmapBias(unit, state.mipBias);
        native = NativeTextureOf(texture);
    }

    // Compared by the native object: two engine textures over one Direct3D
    // texture are one binding.
    if (m_textures[unit] == native)
        return;
    m_textures[unit] = native;
    D3D9Verify(m_pD3D9Device->SetTexture(unit, native), "Failed to SetTexture");
    AddUsedTexture(texture);
}

IDirect3DBaseTexture9* CD3D9RenderSystem::NativeTextureOf(CTexture* texture)
{
    // Every texture of this render system is the plug-in's own.
    return texture ? static_cast<CD3D9Texture*>(texture)->GetNativeTexture() : nullptr;
}

void CD3D9RenderSystem::SetScissorRect(const RECT* rect)
{
    RECT wanted;
    if (rect)
    {
        wanted = *rect;
    }
    else
    {
        // No rectangle means the viewport's own, while its target lives.
        if (!m_viewport.getTarget())
            return;
        wanted.left = m_viewport.m_nActLeft;
        wanted.top = m_viewport.m_nActTop;
        wanted.right = m_viewport.m_nActLeft + m_viewport.m_nActWidth;
        wanted.bottom = m_viewport.m_nActTop + m_viewport.m_nActHeight;
    }
    if (wanted.left == m_scissorRect.left && wanted.top == m_scissorRect.top && wanted.right == m_scissorRect.right &&
        wanted.bottom == m_scissorRect.bottom)
        return;
    m_scissorRect = wanted;
    if (m_pD3D9Device)
        D3D9Verify(m_pD3D9Device->SetScissorRect(&m_scissorRect));
}

void CD3D9RenderSystem::SetScissorTestEnabled(bool enabled)
{
    _setRenderState(D3DRS_SCISSORTESTENABLE, enabled ? TRUE : FALSE);
    m_bScissorEnabled = enabled;
}

bool CD3D9RenderSystem::GetScissorTestEnabled()
{
    return m_bScissorEnabled;
}

void CD3D9RenderSystem::GetScissorRect(RECT* rect)
{
    if (rect)
        *rect = m_scissorRect;
}

void CD3D9RenderSystem::SetMultiSampleAntiAlias(bool enabled)
{
    _setRenderState(D3DRS_MULTISAMPLEANTIALIAS, enabled ? TRUE : FALSE);
}

void CD3D9RenderSystem::SetFillMode(FillMode mode)
{
    // The viewing modes are kept here too: blending, depth writes and the pixel
    // shader read the stored mode when they are next set.
    m_polygonMode = mode;
    _setRenderState(D3DRS_FILLMODE, D3D9Mappings::toD3DFillMode(mode));
}

FillMode CD3D9RenderSystem::GetFillMode()
{
    return m_polygonMode;
}

void CD3D9RenderSystem::SetStencilEnabled(bool enabled)
{
    // The member is asked first and survives a cache reset, so a repeated value
    // stays quiet even when the render state shadow says unknown.
    if (enabled == m_bStencilEnabled)
        return;
    m_bStencilEnabled = enabled;
    _setRenderState(D3DRS_STENCILENABLE, enabled ? TRUE : FALSE);
}

bool CD3D9RenderSystem::GetStencilEnabled()
{
    return m_bStencilEnabled;
}

void CD3D9RenderSystem::SetStencilState(CompareFunction func, unsigned ref, unsigned mask, unsigned writeMask,
                                        StencilOperation fail, StencilOperation depthFail, StencilOperation pass,
                                        bool twoSided)
{
    // Two-sided: the back (anticlockwise) faces take the operations as the
    // winding flag says, the front faces the other way round, so increments
    // and decrements of the two sides always differ.
    bool frontInvert = false;
    if (twoSided)
    {
        _setRenderState(D3DRS_TWOSIDEDSTENCILMODE, TRUE);
        _setRenderState(D3DRS_CCW_STENCILFAIL, D3D9Mappings::toD3DStencilOp(fail, m_bInvertVertexWinding));
        _setRenderState(D3DRS_CCW_STENCILZFAIL, D3D9Mappings::toD3DStencilOp(depthFail, m_bInvertVertexWinding));
        _setRenderState(D3DRS_CCW_STENCILPASS, D3D9Mappings::toD3DStencilOp(pass, m_bInvertVertexWinding));
        frontInvert = !m_bInvertVertexWinding;
    }
    else
    {
        _setRenderState(D3DRS_TWOSIDEDSTENCILMODE, FALSE);
    }
    _setRenderState(D3DRS_STENCILFUNC, D3D9Mappings::toD3DCmpFunc(func));
    _setRenderState(D3DRS_STENCILREF, ref);
    _setRenderState(D3DRS_STENCILMASK, mask);
    _setRenderState(D3DRS_STENCILWRITEMASK, writeMask);
    _setRenderState(D3DRS_STENCILFAIL, D3D9Mappings::toD3DStencilOp(fail, frontInvert));
    _setRenderState(D3DRS_STENCILZFAIL, D3D9Mappings::toD3DStencilOp(depthFail, frontInvert));
    _setRenderState(D3DRS_STENCILPASS, D3D9Mappings::toD3DStencilOp(pass, frontInvert));
}

void CD3D9RenderSystem::SetDepthBias(float constant, float slope)
{
    // Kept even where the device cannot use them: GetDepthBias answers what the
    // engine asked for, and a reset applies them again.
    m_fDepthBiasConstant = constant;
    m_fDepthBiasSlope = slope;
    // Both go as the floats' bit patterns, in Direct3D's own units.
    if (m_d3dcaps.RasterCaps & D3DPRASTERCAPS_DEPTHBIAS)
        _setRenderState(D3DRS_DEPTHBIAS, FloatBits(constant));
    if (m_d3dcaps.RasterCaps & D3DPRASTERCAPS_SLOPESCALEDEPTHBIAS)
        _setRenderState(D3DRS_SLOPESCALEDEPTHBIAS, FloatBits(slope));
}

void CD3D9RenderSystem::GetDepthBias(float* constant, float* slope)
{
    if (constant)
        *constant = m_fDepthBiasConstant;
    if (slope)
        *slope = m_fDepthBiasSlope;
}

void CD3D9RenderSystem::SetAnisotropy(bool enabled, int level)
{
    // Stored only: the samplers see the level at ApplyTextureAnisotropy.
    m_bAnisotropicFilter = enabled;
    m_nMaxAnisotropy = level;
}

void CD3D9RenderSystem::GetAnisotropy(bool* enabled, int* level)
{
    if (enabled)
        *enabled = m_bAnisotropicFilter;
    if (level)
        *level = m_nMaxAnisotropy;
}

void CD3D9RenderSystem::SetSRGBWriteEnabled(bool enabled)
{
    const bool sRGB = enabled && m_pCapabilities && m_pCapabilities->GetSRGBReadWrite();
    _setRenderState(D3DRS_SRGBWRITEENABLE, sRGB ? TRUE : FALSE);
}

void CD3D9RenderSystem::SetDepthCheckEnabled(bool enabled)
{
    _setRenderState(D3DRS_ZENABLE, enabled ? D3DZB_TRUE : D3DZB_FALSE);
}

bool CD3D9RenderSystem::GetDepthCheckEnabled()
{
    return m_renderStates.size() > D3DRS_ZENABLE && m_renderStates[D3DRS_ZENABLE] == 1;
}

void CD3D9RenderSystem::SetDepthWriteEnabled(bool enabled)
{
    // The overdraw view counts layers, so every layer must pass the depth test.
    const bool write = enabled & (m_polygonMode != FILL_OVERDRAW);
    // Only a write can spoil a cleared depth buffer. Written without a branch: the
    // engine switches depth writes from material to material.
    m_bDepthBufferCleared = m_bDepthBufferCleared & !write;
    _setRenderState(D3DRS_ZWRITEENABLE, write ? TRUE : FALSE);
}

bool CD3D9RenderSystem::GetDepthWriteEnabled()
{
    return m_renderStates.size() > D3DRS_ZWRITEENABLE && m_renderStates[D3DRS_ZWRITEENABLE] == 1;
}

void CD3D9RenderSystem::SetDepthFunction(CompareFunction func)
{
    _setRenderState(D3DRS_ZFUNC, D3D9Mappings::toD3DCmpFunc(func));
}

void CD3D9RenderSystem::SetCullingMode(CullingMode mode)
{
    m_cullingMode = mode;
    _setRenderState(D3DRS_CULLMODE, D3D9Mappings::toD3DCull(mode, m_bInvertVertexWinding));
}

CullingMode CD3D9RenderSystem::GetCullingMode()
{
    return m_cullingMode;
}

void CD3D9RenderSystem::SetColourWriteEnabled(bool red, bool green, bool blue, bool alpha)
{
    const DWORD mask = (red ? D3DCOLORWRITEENABLE_RED : 0u) | (green ? D3DCOLORWRITEENABLE_GREEN : 0u) |
                       (blue ? D3DCOLORWRITEENABLE_BLUE : 0u) | (alpha ? D3DCOLORWRITEENABLE_ALPHA : 0u);
    // Every target of a multiple render target gets the same mask.
    _setRenderState(D3DRS_COLORWRITEENABLE, mask);
    _setRenderState(D3DRS_COLORWRITEENABLE1, mask);
    _setRenderState(D3DRS_COLORWRITEENABLE2, mask);
    _setRenderState(D3DRS_COLORWRITEENABLE3, mask);
}

namespace
{

// The wire and complexity views draw flat colours: blending would only smear them.
bool ViewIgnoresBlending(FillMode mode)
{
    return mode == FILL_WIRE_BLACK || mode == FILL_WIRE_TINTED || mode == FILL_SHADER_COMPLEXITY;
}

} // namespace

void CD3D9RenderSystem::SetSceneBlending(BlendFactor source, BlendFactor dest, BlendOperation op)
{
    if (ViewIgnoresBlending(m_polygonMode))
    {
        _setRenderState(D3DRS_ALPHABLENDENABLE, FALSE);
        return;
    }
    if (m_polygonMode == FILL_OVERDRAW)
    {
        // Each layer adds its quarter-alpha colour: the picture brightens with overdraw.
        source = SBF_SOURCE_ALPHA;
        dest = SBF_ONE;
        op = SBO_ADD;
    }
    else if (source == SBF_ONE && dest == SBF_ZERO)
    {
        // Replacing is no blend, whatever the operation.
        _setRenderState(D3DRS_ALPHABLENDENABLE, FALSE);
        return;
    }
    const DWORD blendOp = D3D9Mappings::toD3DBlendOp(op);
    _setRenderState(D3DRS_ALPHABLENDENABLE, TRUE);
    _setRenderState(D3DRS_SEPARATEALPHABLENDENABLE, FALSE);
    _setRenderState(D3DRS_SRCBLEND, D3D9Mappings::toD3DBlend(source));
    _setRenderState(D3DRS_DESTBLEND, D3D9Mappings::toD3DBlend(dest));
    _setRenderState(D3DRS_BLENDOP, blendOp);
    _setRenderState(D3DRS_BLENDOPALPHA, blendOp);
}

void CD3D9RenderSystem::SetSeparateSceneBlending(BlendFactor source, BlendFactor dest, BlendFactor sourceAlpha,
                                                 BlendFactor destAlpha, BlendOperation op, BlendOperation alphaOp)
{
    if (ViewIgnoresBlending(m_polygonMode))
    {
        _setRenderState(D3DRS_ALPHABLENDENABLE, FALSE);
        return;
    }
    if (m_polygonMode == FILL_OVERDRAW)
    {
        source = sourceAlpha = SBF_SOURCE_ALPHA;
        dest = destAlpha = SBF_ONE;
        op = alphaOp = SBO_ADD;
    }
    else if (source == SBF_ONE && dest == SBF_ZERO && sourceAlpha == SBF_ONE && destAlpha == SBF_ZERO)
    {
        _setRenderState(D3DRS_ALPHABLENDENABLE, FALSE);
        return;
    }
    _setRenderState(D3DRS_ALPHABLENDENABLE, TRUE);
    _setRenderState(D3DRS_SEPARATEALPHABLENDENABLE, TRUE);
    _setRenderState(D3DRS_SRCBLEND, D3D9Mappings::toD3DBlend(source));
    _setRenderState(D3DRS_DESTBLEND, D3D9Mappings::toD3DBlend(dest));
    _setRenderState(D3DRS_SRCBLENDALPHA, D3D9Mappings::toD3DBlend(sourceAlpha));
    _setRenderState(D3DRS_DESTBLENDALPHA, D3D9Mappings::toD3DBlend(destAlpha));
    _setRenderState(D3DRS_BLENDOP, D3D9Mappings::toD3DBlendOp(op));
    _setRenderState(D3DRS_BLENDOPALPHA, D3D9Mappings::toD3DBlendOp(alphaOp));
}

void CD3D9RenderSystem::SetBlendFactor(const CColour* colour)
{
    if (colour)
        _setRenderState(D3DRS_BLENDFACTOR, colour->toD3DColor());
}

void CD3D9RenderSystem::StateReserved3(unsigned, unsigned, unsigned) {}

void CD3D9RenderSystem::SetPointSpritesEnabled(bool enabled)
{
    _setRenderState(D3DRS_POINTSPRITEENABLE, enabled ? TRUE : FALSE);
    m_bPointSprites = enabled;
}

bool CD3D9RenderSystem::GetPointSpritesEnabled()
{
    return m_bPointSprites;
}

void CD3D9RenderSystem::SetClipPlane(unsigned char index, float a, float b, float c, float d)
{
    if (!m_pD3D9Device)
        return;
    // Never filtered: a plane is four floats, and planes change with the camera.
    const float plane[4] = {a, b, c, d};
    D3D9Verify(m_pD3D9Device->SetClipPlane(index, plane));
}

void CD3D9RenderSystem::EnableClipPlane(unsigned char index, bool enable)
{
    if (!m_pD3D9Device)
        return;
    if (index >= 32)
    {
        LogError("EnableClipPlane: clip plane %u does not exist", static_cast<unsigned>(index));
        return;
    }
    // The device's word, not the shadow's: other planes' bits may have been
    // set behind the cache, and an unknown shadow has no bits to keep.
    DWORD planes = 0;
    D3D9Verify(m_pD3D9Device->GetRenderState(D3DRS_CLIPPLANEENABLE, &planes));
    const DWORD bit = 1u << index;
    _setRenderState(D3DRS_CLIPPLANEENABLE, enable ? (planes | bit) : (planes & ~bit));
}

void CD3D9RenderSystem::SetInvertVertexWinding(bool invert)
{
    m_bInvertVertexWinding = invert;
}

void CD3D9RenderSystem::_setTextureUnitFilter(unsigned unit, FilterType type, FilterOptions filter)
{
    // The mapping brings anisotropy back to linear where the device lacks it,
    // and always for the mip filter.
    if (m_bAnisotropicFilter && filter == FO_LINEAR)
        filter = FO_ANISOTROPIC;
    _setSamplerState(unit, D3D9Mappings::toD3DSamplerFilterState(type),
                     D3D9Mappings::toD3DTextureFilter(type, filter, m_d3dcaps));
}

void CD3D9RenderSystem::_setTextureLayerAnisotropy(unsigned unit, unsigned level)
{
    if (level > m_d3dcaps.MaxAnisotropy)
        level = m_d3dcaps.MaxAnisotropy;
    _setSamplerState(unit, D3DSAMP_MAXANISOTROPY, level);
}

void CD3D9RenderSystem::_setTextureAddressingModeUV(unsigned unit, TextureAddressMode u, TextureAddressMode v)
{
    _setSamplerState(unit, D3DSAMP_ADDRESSU, D3D9Mappings::toD3DTextureAddress(u, m_d3dcaps));
    _setSamplerState(unit, D3DSAMP_ADDRESSV, D3D9Mappings::toD3DTextureAddress(v, m_d3dcaps));
}

void CD3D9RenderSystem::_setTextureAddressingModeW(unsigned unit, TextureAddressMode w)
{
    _setSamplerState(unit, D3DSAMP_ADDRESSW, D3D9Mappings::toD3DTextureAddress(w, m_d3dcaps));
}

void CD3D9RenderSystem::_setTextureBorderColour(unsigned unit, const CColour* colour)
{
    if (colour)
        _setSamplerState(unit, D3DSAMP_BORDERCOLOR, colour->toD3DColor());
}

void CD3D9RenderSystem::_setTextureMipmapBias(unsigned unit, float bias)
{
    // Without the capability the bias would be ignored or refused: hold it at none.
    const bool supported = m_pCapabilities && m_pCapabilities->GetMipBiasSupported();
    _setSamplerState(unit, D3DSAMP_MIPMAPLODBIAS, supported ? FloatBits(bias) : 0u);
}

} // namespace kv
