#pragma once
// The Direct3D 9 render system: owns the IDirect3D9 and the device, keeps
// shadows of the device state so a repeated setting costs no device call, and
// makes the plug-in's resources. One object per process, found again through
// GetD3D9RenderSystem.
#include "D3D9Prerequisites.h"

#include "engine/DepthBuffer.h"
#include "engine/RenderSystem.h"
#include "engine/RenderWindow.h"

#include <list>
#include <map>
#include <tuple>
#include <vector>

class GfxTimerQueryManager;

// The manager of GPU timer queries, made by the render system's constructor
// and deleted by its destructor; null outside that life.
extern GfxTimerQueryManager* g_pGfxTimerQueryManager;

namespace kv
{

class D3D9DriverList;
class D3D9ResourceManager;

class CD3D9RenderSystem : public CRenderSystem
{
public:
    // Shadow value meaning "unknown": the next set must reach the device.
    static constexpr uint32_t kUnknownState = 0xABCDEF;
    // Bit pattern of an unknown shader constant component (about -99999.9).
    static constexpr uint32_t kUnknownConstant = 0xC7C34FF3;
    static constexpr unsigned kRenderStateCount = 256;
    static constexpr unsigned kSamplerCount = 261;
    static constexpr unsigned kSamplerStateCount = 16;
    static constexpr unsigned kStreamCount = 2;
    static constexpr unsigned kMaxRenderTargets = 8;
    static constexpr unsigned kTextureUnits = 16;
    static constexpr unsigned kComplexityShaders = 4;

    typedef std::tuple<unsigned, unsigned, D3DFORMAT> ReadbackKey; // width, height, format

    CD3D9RenderSystem();

    ~CD3D9RenderSystem() override;
    bool Init(HWND hWnd, unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa) override;
    bool Reset(HWND hWnd, unsigned width, unsigned height, bool fullScreen, bool vsync, unsigned fsaa) override;
    bool IsDeviceAvailable() override;
    void ApplyTextureAnisotropy() override;
    void OnFrameUpdate() override;
    bool _beginFrame() override;
    void _endFrame() override;
    void _setViewport(const CViewport& viewport, unsigned buffers, const CColour* colour, float depth,
                      unsigned char stencil) override;
    void _setViewportRect(int x, int y, int width, int height, float minZ, float maxZ) override;
    void _setRenderTarget(CRenderTarget* target) override;
    ref_ptr<CDepthBuffer> _createDepthBufferFor(CRenderTarget* target) override;
    void ClearFrameBuffer(unsigned buffers, const CColour* colour, float depth, unsigned char stencil) override;
    void _disableTextureUnits() override;
    void SetVertexBuffers(unsigned stream, const CVertexData* data, unsigned offset) override;
    void SetVertexBuffer(const CVertexData* data) override;
    void SetIndexBuffer(CHardwareIndexBuffer* buffer) override;
    void DrawPrimitive(PrimitiveType type, const CVertexData* vertices, const CIndexData* indices,
                       unsigned instanceCount, bool instanced) override;
    void DrawPrimitiveUP(PrimitiveType type, unsigned vertexCount, const void* vertices, unsigned stride,
                         CVertexDeclaration* declaration, unsigned instanceCount) override;
    void DrawIndexedPrimitiveUP(PrimitiveType type, unsigned vertexCount, unsigned indexCount, const void* indices,
                                IndexType indexType, const void* vertices, unsigned stride,
                                CVertexDeclaration* declaration, unsigned instanceCount) override;
    void DrawReserved3(unsigned a, unsigned b, unsigned c) override;
    void DrawReserved5(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e) override;
    void DrawReserved2(unsigned a, unsigned b) override;
    void SetTexture(unsigned unit, CTexture* texture, const SamplerState& state) override;
    void SetScissorRect(const RECT* rect) override;
    void SetScissorTestEnabled(bool enabled) override;
    bool GetScissorTestEnabled() override;
    void GetScissorRect(RECT* rect) override;
    void SetMultiSampleAntiAlias(bool enabled) override;
    void SetFillMode(FillMode mode) override;
    FillMode GetFillMode() override;
    void SetStencilEnabled(bool enabled) override;
    bool GetStencilEnabled() override;
    void SetStencilState(CompareFunction func, unsigned ref, unsigned mask, unsigned writeMask, StencilOperation fail,
                         StencilOperation depthFail, StencilOperation pass, bool twoSided) override;
    void SetDepthBias(float constant, float slope) override;
    void GetDepthBias(float* constant, float* slope) override;
    void SetAnisotropy(bool enabled, int level) override;
    void GetAnisotropy(bool* enabled, int* level) override;
    void SetSRGBWriteEnabled(bool enabled) override;
    void SetDepthCheckEnabled(bool enabled) override;
    bool GetDepthCheckEnabled() override;
    void SetDepthWriteEnabled(bool enabled) override;
    bool GetDepthWriteEnabled() override;
    void SetDepthFunction(CompareFunction func) override;
    void SetCullingMode(CullingMode mode) override;
    CullingMode GetCullingMode() override;
    void SetColourWriteEnabled(bool red, bool green, bool blue, bool alpha) override;
    void SetSceneBlending(BlendFactor source, BlendFactor dest, BlendOperation op) override;
    void SetSeparateSceneBlending(BlendFactor source, BlendFactor dest, BlendFactor sourceAlpha, BlendFactor destAlpha,
                                  BlendOperation op, BlendOperation alphaOp) override;
    void SetBlendFactor(const CColour* colour) override;
    void StateReserved3(unsigned a, unsigned b, unsigned c) override;
    void SetPointSpritesEnabled(bool enabled) override;
    bool GetPointSpritesEnabled() override;
    void SetClipPlane(unsigned char index, float a, float b, float c, float d) override;
    void EnableClipPlane(unsigned char index, bool enable) override;
    void SetInvertVertexWinding(bool invert) override;
    ref_ptr<CVertexDeclaration> CreateVertexDeclaration(const VertexElement* elements, int count) override;
    ref_ptr<CHardwareVertexBuffer> CreateHardwareVertexBuffer(unsigned vertexSize, unsigned numVertices,
                                                              CHardwareBuffer::Usage usage,
                                                              const void* initialData) override;
    ref_ptr<CHardwareIndexBuffer> CreateHardwareIndexBuffer(IndexType type, unsigned count,
                                                            CHardwareBuffer::Usage usage,
                                                            const void* initialData) override;
    ref_ptr<CReferenced> CreateReservedBuffer(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e) override;
    ref_ptr<CGpuProgram> CreateGpuProgram(const char* name) override;
    ref_ptr<CTexture> CreateTextureManual(TextureType type, unsigned width, unsigned height, unsigned depth,
                                          int mipmaps, PixelFormat format, unsigned usage, unsigned char fsaa,
                                          bool flag) override;
    ref_ptr<CTexture> CreateTextureFromMemory(const char* name, void* data, int size, TextureType type, int mipmaps,
                                              bool flag) override;
    ref_ptr<CTexture> CreateTexture(const char* name, TextureType type, int mipmaps, bool flag) override;
    ref_ptr<CTexture> CreateReservedTexture(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e, unsigned f,
                                            unsigned g, unsigned h, unsigned i, unsigned j) override;
    void ReservedCall12(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e, unsigned f, unsigned g, unsigned h,
                        unsigned i, unsigned j, unsigned k, unsigned l) override;
    void ReservedCall2(unsigned a, unsigned b) override;
    ref_ptr<CRenderWindow> CreateRenderWindow(HWND hWnd, unsigned width, unsigned height, bool fullScreen) override;
    ref_ptr<CMultiRenderTarget> CreateMultiRenderTarget() override;
    ref_ptr<CHardwareOcclusionQuery> CreateHardwareOcclusionQuery() override;
    bool ScreenShotToMemory(void** pixels, unsigned* size, unsigned* pitch) override;
    bool ScreenShot(const char* path, float scale, const RECT* source) override;
    bool BeginGetRenderTargetData(CHardwarePixelBuffer* buffer, void** bits, int* pitch) override;
    void EndGetRenderTargetData() override;
    CDriverList* GetDriverList() override;
    void BeginEvent(const char* name) override;
    void EndEvent() override;
    void SetMarker(const char* name) override;
    bool CheckTextureFormat(PixelFormat format, unsigned usage) override;
    unsigned ReservedQuery1(unsigned a) override;
    void ReservedCall3(unsigned a, unsigned b, unsigned c) override;
    void ReservedCall1A(unsigned a) override;
    unsigned ReservedQuery0() override;
    void ReservedCall1B(unsigned a) override;
    GfxTimerQuery* CreateTimerQuery() override;
    void DestroyTimerQuery(GfxTimerQuery* query) override;
    void BeginTimerQueryFrame() override;
    void EndTimerQueryFrame() override;
    IDirect3DDevice9* GetD3D9Device() override;
    void ReservedHookA() override;
    void ReservedHookB() override;
    void _setTextureUnitFilter(unsigned unit, FilterType type, FilterOptions options) override;
    void _setTextureLayerAnisotropy(unsigned unit, unsigned level) override;
    void _setTextureAddressingModeUV(unsigned unit, TextureAddressMode u, TextureAddressMode v) override;
    void _setTextureAddressingModeW(unsigned unit, TextureAddressMode w) override;
    void _setTextureBorderColour(unsigned unit, const CColour* colour) override;
    void _setTextureMipmapBias(unsigned unit, float bias) override;

    bool BuildDevice(bool vsync, unsigned fsaa);
    bool BuildDeviceCapabilities();
    // Vsync and multisampling over a window's present parameters; a device
    // reset applies them again.
    void ApplyPresentParameters(bool vsync, unsigned fsaa, D3DPRESENT_PARAMETERS& pp);
    // The highest sample count up to fsaa that the device takes for this format
    // (0 when it cannot resolve multisampled surfaces); quality is always 0.
    // The hint is the caller's and does not change the choice.
    void DetermineFSAASettings(unsigned fsaa, const char* hint, D3DFORMAT format, bool fullScreen,
                               D3DMULTISAMPLE_TYPE* type, DWORD* quality);
    bool IsDeviceLost();
    bool ResetDevice(bool vsync, unsigned fsaa);
    void _resetStateCaches();
    void _restoreDeviceStates();
    // Shadowed state setters: the device hears only of a value that differs
    // from the shadow; a failed call is logged and the shadow keeps the value.
    // The comparison is inline at every setter, since most sets repeat what the
    // device holds. Before the device is made the shadows are empty and
    // nothing is set.
    void _setRenderState(D3DRENDERSTATETYPE state, DWORD value)
    {
        if (static_cast<unsigned>(state) < m_renderStates.size() && m_renderStates[state] != value)
            _sendRenderState(state, value);
    }
    void _setSamplerState(DWORD sampler, D3DSAMPLERSTATETYPE type, DWORD value)
    {
        // The shadows are either empty or filled whole, so the bounds are the
        // fixed counts once they are there.
        if (sampler < kSamplerCount && static_cast<unsigned>(type) < kSamplerStateCount && !m_samplerStates.empty() &&
            m_samplerStates[sampler][type] != value)
            _sendSamplerState(sampler, type, value);
    }
    // The device call behind a shadow that differs; a failure is logged. Kept
    // out of line so that each setter stays a few instructions long: the
    // setters run between draws, whose work pushes them out of the caches.
    __attribute__((noinline)) void _sendRenderState(D3DRENDERSTATETYPE state, DWORD value);
    __attribute__((noinline)) void _sendSamplerState(DWORD sampler, D3DSAMPLERSTATETYPE type, DWORD value);
    // The native texture that binds for an engine texture (null for none).
    IDirect3DBaseTexture9* NativeTextureOf(CTexture* texture);
    // The depth format that goes with a colour format on this adapter, found
    // once and kept for the life of the render system; 0 when none fits.
    D3DFORMAT _getDepthStencilFormatFor(D3DFORMAT colourFormat);
    // Stream and declaration shadows of the draw path; a repeated value makes no
    // device call. A stream of 2 or more is ignored.
    void _setVertexDeclaration(CVertexDeclaration* declaration);
    void _setStreamFrequency(unsigned stream, uint32_t value);
    void _restoreStreamFrequencies();
    // The device calls behind those shadows when they differ; a failure is logged.
    __attribute__((noinline)) void _sendVertexDeclaration(IDirect3DVertexDeclaration9* native);
    __attribute__((noinline)) void _sendStreamFrequency(unsigned stream, uint32_t value);
    __attribute__((noinline)) void _sendStreamSource(unsigned stream, const CVertexData* data, unsigned offset);
    // The draw calls of DrawPrimitive; a failure is logged.
    __attribute__((noinline)) void _sendDrawIndexedPrimitive(D3DPRIMITIVETYPE type, INT baseVertex, UINT vertexCount,
                                                             UINT startIndex, UINT primitives);
    __attribute__((noinline)) void _sendDrawPrimitive(D3DPRIMITIVETYPE type, UINT startVertex, UINT primitives);
    D3D9ResourceManager* GetResourceManager() { return m_pResourceManager; }
    // The shaders a program activates; a shader already set makes no device
    // call. In the viewing modes 4 to 7 the pixel shader of the mode stands in
    // for the one given.
    void SetVertexShader(IDirect3DVertexShader9* shader);
    void SetPixelShader(IDirect3DPixelShader9* shader);
    // The debug pixel shader of the viewing mode in m_polygonMode (4 to 7), or null.
    IDirect3DPixelShader9* _getComplexityShader();
    // What textures ask of the device. The back buffer's format stands for a
    // texture format of 0.
    D3DFORMAT GetBackBufferFormat() const;
    bool CheckDynamicTexture(DWORD usage, D3DRESOURCETYPE type, D3DFORMAT format);
    // Power-of-two sizes on a device that generates levels for this format.
    bool CheckAutoGenMipmaps(unsigned width, unsigned height, unsigned depth, DWORD usage, D3DRESOURCETYPE type,
                             D3DFORMAT format);
    // The best minification filter the device has for the texture type.
    D3DTEXTUREFILTERTYPE GetBestAutoGenFilter(TextureType type) const;
    // D3DUSAGE value for the engine's texture usage word; first match wins.
    static DWORD TextureUsageToD3D(unsigned usage);

    bool m_bAnisotropicFilter;
    int m_nMaxAnisotropy;
    IDirect3D9* m_pD3D9;
    IDirect3DDevice9* m_pD3D9Device;
    D3DCAPS9 m_d3dcaps;
    unsigned m_nAdapter;
    D3DFORMAT m_adapterFormat;
    ref_ptr<CDepthBuffer> m_pActiveDepthBuffer;
    std::map<ReadbackKey, IDirect3DSurface9*> m_mapReadbackSurfaces;
    IDirect3DSurface9* m_pLockedReadbackSurface;
    D3D9ResourceManager* m_pResourceManager;
    D3D9DriverList* m_pDriverList;
    IDirect3DVertexShader9* m_pCurrentVertexShader;
    IDirect3DPixelShader9* m_pCurrentPixelShader;
    IDirect3DSurface9* m_pCurrentRenderTargets[kMaxRenderTargets];
    IDirect3DSurface9* m_pCurrentDepthStencil;
    RECT m_scissorRect;
    bool m_bScissorEnabled;
    bool m_bStencilEnabled;
    D3DPRESENT_PARAMETERS m_d3dpp;
    std::map<D3DFORMAT, D3DFORMAT> m_mapDepthStencilFormats;
    std::vector<uint32_t> m_renderStates;
    std::vector<std::vector<uint32_t>> m_samplerStates;
    std::vector<IDirect3DBaseTexture9*> m_textures;
    IDirect3DIndexBuffer9* m_pCurrentIndexBuffer;
    IDirect3DVertexDeclaration9* m_pCurrentVertexDeclaration;
    std::vector<IDirect3DVertexBuffer9*> m_streamBuffers;
    std::vector<uint32_t> m_streamOffsets;
    std::vector<uint32_t> m_streamFrequencies;
    std::list<int> m_frameNesting;
    IDirect3DPixelShader9* m_pComplexityShaders[kComplexityShaders];
    // Where the complexity shader takes its NormalizedComplexity constant; -1 and 0 until known.
    int m_nComplexityRegister;
    int m_nComplexityRegisterCount;
};

// The render system of this process as the plug-in's class.
CD3D9RenderSystem* GetD3D9RenderSystem();

} // namespace kv
