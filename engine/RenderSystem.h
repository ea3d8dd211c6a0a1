#pragma once
// The engine's abstract render system. A plug-in library derives from it and
// hands one object out through its only export, CreateRenderSystem; the engine
// then talks to it through this table only, so the order of the virtual
// operations below is part of the contract and must not change.
#include "engine/Colour.h"
#include "engine/Export.h"
#include "engine/HardwareBuffer.h"
#include "engine/HardwareIndexBuffer.h"
#include "engine/PixelFormat.h"
#include "engine/RefPtr.h"
#include "engine/RenderTypes.h"
#include "engine/Texture.h"
#include "engine/VertexDeclaration.h"
#include "engine/Viewport.h"

#include <windows.h>

#include <cstdint>

struct IDirect3DDevice9;
class GfxTimerQuery;

namespace kv
{

class CDepthBuffer;
class CDeviceCapabilities;
class CDriverList;
class CGpuProgram;
class CHardwareOcclusionQuery;
class CHardwarePixelBuffer;
class CHardwareVertexBuffer;
class CIndexData;
class CMultiRenderTarget;
class CRenderTarget;
class CRenderWindow;
class CVertexData;

class KV_API CRenderSystem
{
public:
    // Makes the capability record and becomes the answer of GetRenderSystem.
    CRenderSystem();
    CRenderSystem(const CRenderSystem&) = delete;
    CRenderSystem& operator=(const CRenderSystem&) = delete;

    // 1. GetRenderSystem answers null from the start of this on.
    virtual ~CRenderSystem();
    virtual bool Init(HWND hWnd, unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa) = 0;
    // Brings the window that owns the handle up to date through its Reset.
    virtual bool Reset(HWND hWnd, unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa);
    // Lets go of what the engine holds here (main window, white texture, bound
    // target); called before the render system is deleted.
    virtual void Destroy();
    virtual bool IsDeviceAvailable() = 0;
    virtual void ApplyTextureAnisotropy() = 0;
    virtual void OnFrameUpdate() = 0;
    virtual bool _beginFrame() = 0;
    virtual void _endFrame() = 0;
    // 10.
    virtual void SyncFence();
    virtual void _setViewport(const CViewport& viewport, unsigned buffers, const CColour* colour, float depth,
                              unsigned char stencil) = 0;
    virtual void _setViewportRect(int x, int y, int width, int height, float minZ, float maxZ) = 0;
    virtual CViewport _getViewport();
    virtual void _setRenderTarget(CRenderTarget* target) = 0;
    virtual CRenderTarget* _getRenderTarget();
    virtual ref_ptr<CDepthBuffer> _createDepthBufferFor(CRenderTarget* target) = 0;
    virtual void ClearFrameBuffer(unsigned buffers, const CColour* colour, float depth, unsigned char stencil) = 0;
    virtual void _disableTextureUnits() = 0;
    virtual void SetVertexBuffers(unsigned stream, const CVertexData* data, unsigned offset) = 0;
    // 20.
    virtual void SetVertexBuffer(const CVertexData* data) = 0;
    virtual void SetIndexBuffer(CHardwareIndexBuffer* buffer) = 0;
    virtual void DrawPrimitive(PrimitiveType type, const CVertexData* vertices, const CIndexData* indices,
                               unsigned instanceCount, bool instanced) = 0;
    virtual void DrawPrimitiveUP(PrimitiveType type, unsigned vertexCount, const void* vertices, unsigned stride,
                                 CVertexDeclaration* declaration, unsigned instanceCount) = 0;
    virtual void DrawIndexedPrimitiveUP(PrimitiveType type, unsigned vertexCount, unsigned indexCount,
                                        const void* indices, IndexType indexType, const void* vertices, unsigned stride,
                                        CVertexDeclaration* declaration, unsigned instanceCount) = 0;
    virtual void DrawReserved3(unsigned a, unsigned b, unsigned c) = 0;
    virtual void DrawReserved5(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e) = 0;
    virtual void DrawReserved2(unsigned a, unsigned b) = 0;
    virtual void SetTexture(unsigned unit, CTexture* texture, const SamplerState& state) = 0;
    virtual void SetScissorRect(const RECT* rect) = 0;
    // 30.
    virtual void SetScissorTestEnabled(bool enabled) = 0;
    virtual bool GetScissorTestEnabled() = 0;
    virtual void GetScissorRect(RECT* rect) = 0;
    virtual void SetMultiSampleAntiAlias(bool enabled) = 0;
    virtual void SetFillMode(FillMode mode) = 0;
    virtual FillMode GetFillMode() = 0;
    virtual void SetStencilEnabled(bool enabled) = 0;
    virtual bool GetStencilEnabled() = 0;
    virtual void SetStencilState(CompareFunction func, unsigned ref, unsigned mask, unsigned writeMask,
                                 StencilOperation fail, StencilOperation depthFail, StencilOperation pass,
                                 bool twoSided) = 0;
    virtual void SetDepthBias(float constant, float slope) = 0;
    // 40.
    virtual void GetDepthBias(float* constant, float* slope) = 0;
    virtual void SetAnisotropy(bool enabled, int level) = 0;
    virtual void GetAnisotropy(bool* enabled, int* level) = 0;
    virtual void SetSRGBWriteEnabled(bool enabled) = 0;
    virtual void SetDepthCheckEnabled(bool enabled) = 0;
    virtual bool GetDepthCheckEnabled() = 0;
    virtual void SetDepthWriteEnabled(bool enabled) = 0;
    virtual bool GetDepthWriteEnabled() = 0;
    virtual bool _isDepthBufferCleared();
    virtual void SetDepthFunction(CompareFunction func) = 0;
    // 50.
    virtual void SetCullingMode(CullingMode mode) = 0;
    virtual CullingMode GetCullingMode() = 0;
    virtual void SetColourWriteEnabled(bool red, bool green, bool blue, bool alpha) = 0;
    virtual void SetSceneBlending(BlendFactor source, BlendFactor dest, BlendOperation op) = 0;
    virtual void SetSeparateSceneBlending(BlendFactor source, BlendFactor dest, BlendFactor sourceAlpha,
                                          BlendFactor destAlpha, BlendOperation op, BlendOperation alphaOp) = 0;
    virtual void SetBlendFactor(const CColour* colour) = 0;
    virtual void StateReserved3(unsigned a, unsigned b, unsigned c) = 0;
    virtual void SetPointSpritesEnabled(bool enabled) = 0;
    virtual bool GetPointSpritesEnabled() = 0;
    virtual void SetClipPlane(unsigned char index, float a, float b, float c, float d) = 0;
    // 60.
    virtual void EnableClipPlane(unsigned char index, bool enable) = 0;
    virtual void SetInvertVertexWinding(bool invert) = 0;
    virtual ref_ptr<CVertexDeclaration> CreateVertexDeclaration(const VertexElement* elements, int count) = 0;
    virtual ref_ptr<CHardwareVertexBuffer> CreateHardwareVertexBuffer(unsigned vertexSize, unsigned numVertices,
                                                                      CHardwareBuffer::Usage usage,
                                                                      const void* initialData) = 0;
    virtual ref_ptr<CHardwareIndexBuffer> CreateHardwareIndexBuffer(IndexType type, unsigned count,
                                                                    CHardwareBuffer::Usage usage,
                                                                    const void* initialData) = 0;
    virtual ref_ptr<CReferenced> CreateReservedBuffer(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e) = 0;
    virtual ref_ptr<CVertexData> CreateVertexData();
    virtual ref_ptr<CIndexData> CreateIndexData();
    virtual ref_ptr<CGpuProgram> CreateGpuProgram(const char* name) = 0;
    virtual ref_ptr<CTexture> CreateTextureManual(TextureType type, unsigned width, unsigned height, unsigned depth,
                                                  int mipmaps, PixelFormat format, unsigned usage, unsigned char fsaa,
                                                  bool flag) = 0;
    // 70.
    virtual ref_ptr<CTexture> CreateTextureFromMemory(const char* name, void* data, int size, TextureType type,
                                                      int mipmaps, bool flag) = 0;
    virtual ref_ptr<CTexture> CreateTexture(const char* name, TextureType type, int mipmaps, bool flag) = 0;
    virtual ref_ptr<CTexture> CreateReservedTexture(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e,
                                                    unsigned f, unsigned g, unsigned h, unsigned i, unsigned j) = 0;
    virtual void ReservedCall12(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e, unsigned f, unsigned g,
                                unsigned h, unsigned i, unsigned j, unsigned k, unsigned l) = 0;
    virtual void ReservedCall2(unsigned a, unsigned b) = 0;
    virtual ref_ptr<CRenderWindow> CreateRenderWindow(HWND hWnd, unsigned width, unsigned height, bool fullScreen) = 0;
    virtual ref_ptr<CMultiRenderTarget> CreateMultiRenderTarget() = 0;
    virtual ref_ptr<CHardwareOcclusionQuery> CreateHardwareOcclusionQuery() = 0;
    virtual bool ScreenShotToMemory(void** pixels, unsigned* size, unsigned* pitch) = 0;
    virtual bool ScreenShot(const char* path, float scale, const RECT* source) = 0;
    // 80.
    virtual bool BeginGetRenderTargetData(CHardwarePixelBuffer* buffer, void** bits, int* pitch) = 0;
    virtual void EndGetRenderTargetData() = 0;
    virtual CDriverList* GetDriverList() = 0;
    virtual void BeginEvent(const char* name) = 0;
    virtual void EndEvent() = 0;
    virtual void SetMarker(const char* name) = 0;
    virtual bool CheckTextureFormat(PixelFormat format, unsigned usage) = 0;
    virtual unsigned ReservedQuery1(unsigned a) = 0;
    virtual void ReservedCall3(unsigned a, unsigned b, unsigned c) = 0;
    virtual void ReservedCall1A(unsigned a) = 0;
    // 90.
    virtual unsigned ReservedQuery0() = 0;
    virtual void ReservedCall1B(unsigned a) = 0;
    virtual GfxTimerQuery* CreateTimerQuery() = 0;
    virtual void DestroyTimerQuery(GfxTimerQuery* query) = 0;
    virtual void BeginTimerQueryFrame() = 0;
    virtual void EndTimerQueryFrame() = 0;
    virtual IDirect3DDevice9* GetD3D9Device() = 0;
    virtual void ReservedHookA() = 0;
    virtual void ReservedHookB() = 0;
    virtual void _setTextureUnitFilter(unsigned unit, FilterType type, FilterOptions options) = 0;
    // 100. The only road to _setTextureUnitFilter: min, then mag, then mip.
    virtual void _setTextureUnitFiltering(unsigned unit, FilterOptions minFilter, FilterOptions magFilter,
                                          FilterOptions mipFilter);
    virtual void _setTextureLayerAnisotropy(unsigned unit, unsigned level) = 0;
    virtual void _setTextureAddressingModeUV(unsigned unit, TextureAddressMode u, TextureAddressMode v) = 0;
    virtual void _setTextureAddressingModeW(unsigned unit, TextureAddressMode w) = 0;
    virtual void _setTextureBorderColour(unsigned unit, const CColour* colour) = 0;
    // 105.
    virtual void _setTextureMipmapBias(unsigned unit, float bias) = 0;

    // Told once the capability record is complete.
    void OnBuildDeviceCapabilities();
    // Told after each binding of a texture that reached the device.
    void AddUsedTexture(CTexture* texture);
    // A 1 x 1 white texture made through this render system at the first call.
    CTexture* GetWhiteTexture();
    // A target that rebuilt its surfaces: when it is the bound one, the next
    // _setRenderTarget binds in full.
    void CheckActiveRenderTarget(CRenderTarget* target);

    CDeviceCapabilities* m_pCapabilities;
    ref_ptr<CRenderWindow> m_pMainWindow;
    CViewport m_viewport;
    WeakRef<CRenderTarget> m_activeRenderTarget;
    FillMode m_polygonMode;
    CullingMode m_cullingMode;
    float m_fDepthBiasConstant;
    float m_fDepthBiasSlope;
    bool m_bPointSprites;
    bool m_bDepthBufferCleared;
    bool m_bInvertVertexWinding;
    uint64_t m_nRuntimeMacro;
    uint64_t m_nLightingMacro;

    // What the engine's members were told, for whoever drives the engine.
    int m_nBuildDeviceCapabilitiesCount;
    int m_nAddUsedTextureCount;
    CTexture* m_pLastUsedTexture;
    int m_nCheckActiveRenderTargetCount;

protected:
    ref_ptr<CTexture> m_pWhiteTexture;
};

// The render system of this process, or null.
KV_API CRenderSystem* GetRenderSystem();

typedef CRenderSystem* (*PFN_CreateRenderSystem)();

} // namespace kv

// The plug-in's only export.
extern "C" kv::CRenderSystem* CreateRenderSystem();
