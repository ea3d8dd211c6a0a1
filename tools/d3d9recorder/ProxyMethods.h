// Every call the recording d3d9.dll can see, as one list shared by the DLL and the tests:
// the DLL counts and traces by these numbers, the tests name them.
//
// The interface lists follow the virtual tables of MinGW's d3d9.h exactly; the
// number of an entry is its place in kvproxy::Method.
#pragma once

// clang-format off
// IDirect3D9, in table order. Methods of this interface carry the prefix D3D9_ in
// kvproxy::Method since two names also exist on the device.
#define KV_PROXY_D3D9_METHODS(X) \
  X(D3D9_QueryInterface) X(D3D9_AddRef) X(D3D9_Release) X(D3D9_RegisterSoftwareDevice) \
  X(D3D9_GetAdapterCount) X(D3D9_GetAdapterIdentifier) X(D3D9_GetAdapterModeCount) \
  X(D3D9_EnumAdapterModes) X(D3D9_GetAdapterDisplayMode) X(D3D9_CheckDeviceType) \
  X(D3D9_CheckDeviceFormat) X(D3D9_CheckDeviceMultiSampleType) X(D3D9_CheckDepthStencilMatch) \
  X(D3D9_CheckDeviceFormatConversion) X(D3D9_GetDeviceCaps) X(D3D9_GetAdapterMonitor) \
  X(D3D9_CreateDevice)

// IDirect3DDevice9, in table order.
#define KV_PROXY_DEVICE_METHODS(X) \
  X(QueryInterface) X(AddRef) X(Release) X(TestCooperativeLevel) X(GetAvailableTextureMem) \
  X(EvictManagedResources) X(GetDirect3D) X(GetDeviceCaps) X(GetDisplayMode) \
  X(GetCreationParameters) X(SetCursorProperties) X(SetCursorPosition) X(ShowCursor) \
  X(CreateAdditionalSwapChain) X(GetSwapChain) X(GetNumberOfSwapChains) X(Reset) X(Present) \
  X(GetBackBuffer) X(GetRasterStatus) X(SetDialogBoxMode) X(SetGammaRamp) X(GetGammaRamp) \
  X(CreateTexture) X(CreateVolumeTexture) X(CreateCubeTexture) X(CreateVertexBuffer) \
  X(CreateIndexBuffer) X(CreateRenderTarget) X(CreateDepthStencilSurface) X(UpdateSurface) \
  X(UpdateTexture) X(GetRenderTargetData) X(GetFrontBufferData) X(StretchRect) X(ColorFill) \
  X(CreateOffscreenPlainSurface) X(SetRenderTarget) X(GetRenderTarget) \
  X(SetDepthStencilSurface) X(GetDepthStencilSurface) X(BeginScene) X(EndScene) X(Clear) \
  X(SetTransform) X(GetTransform) X(MultiplyTransform) X(SetViewport) X(GetViewport) \
  X(SetMaterial) X(GetMaterial) X(SetLight) X(GetLight) X(LightEnable) X(GetLightEnable) \
  X(SetClipPlane) X(GetClipPlane) X(SetRenderState) X(GetRenderState) X(CreateStateBlock) \
  X(BeginStateBlock) X(EndStateBlock) X(SetClipStatus) X(GetClipStatus) X(GetTexture) \
  X(SetTexture) X(GetTextureStageState) X(SetTextureStageState) X(GetSamplerState) \
  X(SetSamplerState) X(ValidateDevice) X(SetPaletteEntries) X(GetPaletteEntries) \
  X(SetCurrentTexturePalette) X(GetCurrentTexturePalette) X(SetScissorRect) X(GetScissorRect) \
  X(SetSoftwareVertexProcessing) X(GetSoftwareVertexProcessing) X(SetNPatchMode) \
  X(GetNPatchMode) X(DrawPrimitive) X(DrawIndexedPrimitive) X(DrawPrimitiveUP) \
  X(DrawIndexedPrimitiveUP) X(ProcessVertices) X(CreateVertexDeclaration) \
  X(SetVertexDeclaration) X(GetVertexDeclaration) X(SetFVF) X(GetFVF) X(CreateVertexShader) \
  X(SetVertexShader) X(GetVertexShader) X(SetVertexShaderConstantF) \
  X(GetVertexShaderConstantF) X(SetVertexShaderConstantI) X(GetVertexShaderConstantI) \
  X(SetVertexShaderConstantB) X(GetVertexShaderConstantB) X(SetStreamSource) \
  X(GetStreamSource) X(SetStreamSourceFreq) X(GetStreamSourceFreq) X(SetIndices) \
  X(GetIndices) X(CreatePixelShader) X(SetPixelShader) X(GetPixelShader) \
  X(SetPixelShaderConstantF) X(GetPixelShaderConstantF) X(SetPixelShaderConstantI) \
  X(GetPixelShaderConstantI) X(SetPixelShaderConstantB) X(GetPixelShaderConstantB) \
  X(DrawRectPatch) X(DrawTriPatch) X(DeletePatch) X(CreateQuery)

// The DLL's own exports that forward to the real d3d9.dll.
#define KV_PROXY_EXPORT_METHODS(X) \
  X(Direct3DCreate9) X(Direct3DCreate9Ex) X(D3DPERF_BeginEvent) X(D3DPERF_EndEvent) \
  X(D3DPERF_GetStatus) X(D3DPERF_QueryRepeatFrame) X(D3DPERF_SetMarker) \
  X(D3DPERF_SetOptions) X(D3DPERF_SetRegion) X(DebugSetMute) \
  X(Direct3DShaderValidatorCreate9)

// Methods of the objects the device hands out, seen once watching is on (ProxyResources.h).
#define KV_PROXY_RESOURCE_METHODS(X) \
  X(Texture_LockRect) X(Texture_UnlockRect) X(CubeTexture_LockRect) X(CubeTexture_UnlockRect) \
  X(VolumeTexture_LockBox) X(VolumeTexture_UnlockBox) X(Surface_LockRect) X(Surface_UnlockRect) \
  X(VertexBuffer_Lock) X(VertexBuffer_Unlock) X(IndexBuffer_Lock) X(IndexBuffer_Unlock) \
  X(Query_Issue) X(Query_GetData)
// clang-format on

#ifdef __cplusplus
#include <cstdint>

namespace kvproxy
{

#define KV_PROXY_ENUM_ENTRY(name) name,
enum class Method : uint32_t
{
    KV_PROXY_D3D9_METHODS(KV_PROXY_ENUM_ENTRY)
    KV_PROXY_DEVICE_METHODS(KV_PROXY_ENUM_ENTRY) KV_PROXY_EXPORT_METHODS(KV_PROXY_ENUM_ENTRY)
        KV_PROXY_RESOURCE_METHODS(KV_PROXY_ENUM_ENTRY) Count
};
#undef KV_PROXY_ENUM_ENTRY

constexpr uint32_t kMethodCount = static_cast<uint32_t>(Method::Count);
constexpr uint32_t kFirstDeviceMethod = static_cast<uint32_t>(Method::QueryInterface);
constexpr uint32_t kFirstExportMethod = static_cast<uint32_t>(Method::Direct3DCreate9);
constexpr uint32_t kFirstResourceMethod = static_cast<uint32_t>(Method::Texture_LockRect);

inline bool IsDeviceMethod(Method m)
{
    const uint32_t n = static_cast<uint32_t>(m);
    return n >= kFirstDeviceMethod && n < kFirstExportMethod;
}

inline bool IsDirect3D9Method(Method m)
{
    return static_cast<uint32_t>(m) < kFirstDeviceMethod;
}

inline const char* MethodName(Method m)
{
#define KV_PROXY_NAME_ENTRY(name) #name,
    static const char* const names[] = {
        KV_PROXY_D3D9_METHODS(KV_PROXY_NAME_ENTRY) KV_PROXY_DEVICE_METHODS(KV_PROXY_NAME_ENTRY)
            KV_PROXY_EXPORT_METHODS(KV_PROXY_NAME_ENTRY) KV_PROXY_RESOURCE_METHODS(KV_PROXY_NAME_ENTRY)};
#undef KV_PROXY_NAME_ENTRY
    const uint32_t n = static_cast<uint32_t>(m);
    return n < kMethodCount ? names[n] : "?";
}

} // namespace kvproxy
#endif
