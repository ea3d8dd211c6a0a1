#include "ProxyDevice9.h"

#include "ProxyCall.h"
#include "ProxyDirect3D9.h"
#include "ProxyResources.h"

using kvproxy::Method;

namespace
{

template <class T>
uint64_t U(T v)
{
    return static_cast<uint32_t>(v);
}

// The value an out pointer received, for the trace.
template <class T>
uint64_t OutOf(T* const* pp)
{
    return pp ? PtrArg(*pp) : 0;
}

} // namespace

// The common road: a faulted call answers the injected result, any other reaches the device.
#define KV_PASS(name, ...)                                                                                             \
    if (call.Faulted())                                                                                                \
        return call.FaultResult();                                                                                     \
    return call.Done(m_real->name(__VA_ARGS__))

// The same for a method that hands out an object: a faulted call leaves the out pointer null.
#define KV_PASS_OUT(pp, name, ...)                                                                                     \
    if (call.Faulted())                                                                                                \
    {                                                                                                                  \
        if (pp)                                                                                                        \
            *(pp) = nullptr;                                                                                           \
        return call.FaultResult();                                                                                     \
    }                                                                                                                  \
    {                                                                                                                  \
        HRESULT hr_ = m_real->name(__VA_ARGS__);                                                                       \
        call.Out(OutOf(pp));                                                                                           \
        if (SUCCEEDED(hr_) && (pp) && ProxyResources::Watching())                                                      \
            ProxyResources::Watch(*(pp));                                                                              \
        return call.Done(hr_);                                                                                         \
    }

ProxyDevice9::ProxyDevice9(IDirect3DDevice9* real, ProxyDirect3D9* parent) : m_real(real), m_parent(parent)
{
    m_parent->HoldWrapper();
}

ProxyDevice9::~ProxyDevice9()
{
    m_parent->DropWrapper();
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::QueryInterface(REFIID riid, void** ppvObject)
{
    ProxyCall call(Method::QueryInterface, {PtrArg(&riid), PtrArg(ppvObject)});
    if (call.Faulted())
    {
        if (ppvObject)
            *ppvObject = nullptr;
        return call.FaultResult();
    }
    if (ppvObject && (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_IDirect3DDevice9)))
    {
        AddRef();
        *ppvObject = static_cast<IDirect3DDevice9*>(this);
        call.OutPointer(*ppvObject);
        return call.Done(S_OK);
    }
    HRESULT hr = m_real->QueryInterface(riid, ppvObject);
    if (ppvObject)
        call.OutPointer(*ppvObject);
    return call.Done(hr);
}

ULONG STDMETHODCALLTYPE ProxyDevice9::AddRef()
{
    ProxyCall call(Method::AddRef, {});
    ++m_wrapperRefs;
    return call.Done(m_real->AddRef());
}

ULONG STDMETHODCALLTYPE ProxyDevice9::Release()
{
    ProxyCall call(Method::Release, {});
    ULONG n = call.Done(m_real->Release());
    if (--m_wrapperRefs == 0)
        delete this;
    return n;
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::TestCooperativeLevel()
{
    ProxyCall call(Method::TestCooperativeLevel, {});
    if (call.Faulted())
        return call.FaultResult();
    switch (ProxyState::Get().LossState())
    {
    case KV_PROXY_LOSS_LOST:
        return call.Lost(D3DERR_DEVICELOST);
    case KV_PROXY_LOSS_NOTRESET:
        return call.Lost(D3DERR_DEVICENOTRESET);
    default:
        return call.Done(m_real->TestCooperativeLevel());
    }
}

UINT STDMETHODCALLTYPE ProxyDevice9::GetAvailableTextureMem()
{
    ProxyCall call(Method::GetAvailableTextureMem, {});
    return call.Done(m_real->GetAvailableTextureMem());
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::EvictManagedResources()
{
    ProxyCall call(Method::EvictManagedResources, {});
    KV_PASS(EvictManagedResources);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetDirect3D(IDirect3D9** ppD3D9)
{
    ProxyCall call(Method::GetDirect3D, {PtrArg(ppD3D9)});
    if (!ppD3D9)
        return call.Done(D3DERR_INVALIDCALL);
    if (call.Faulted())
    {
        *ppD3D9 = nullptr;
        return call.FaultResult();
    }
    // The caller gets the wrapper it made the device with, so its calls stay observed.
    m_parent->AddRef();
    *ppD3D9 = m_parent;
    call.OutPointer(m_parent);
    return call.Done(D3D_OK);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetDeviceCaps(D3DCAPS9* pCaps)
{
    ProxyCall call(Method::GetDeviceCaps, {PtrArg(pCaps)});
    if (call.Faulted())
        return call.FaultResult();
    HRESULT hr = m_real->GetDeviceCaps(pCaps);
    if (SUCCEEDED(hr))
        ProxyState::Get().ApplyCaps(pCaps);
    return call.Done(hr);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetDisplayMode(UINT iSwapChain, D3DDISPLAYMODE* pMode)
{
    ProxyCall call(Method::GetDisplayMode, {iSwapChain, PtrArg(pMode)});
    KV_PASS(GetDisplayMode, iSwapChain, pMode);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetCreationParameters(D3DDEVICE_CREATION_PARAMETERS* pParameters)
{
    ProxyCall call(Method::GetCreationParameters, {PtrArg(pParameters)});
    KV_PASS(GetCreationParameters, pParameters);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetCursorProperties(UINT XHotSpot, UINT YHotSpot,
                                                            IDirect3DSurface9* pCursorBitmap)
{
    ProxyCall call(Method::SetCursorProperties, {XHotSpot, YHotSpot, PtrArg(pCursorBitmap)});
    KV_PASS(SetCursorProperties, XHotSpot, YHotSpot, pCursorBitmap);
}

void STDMETHODCALLTYPE ProxyDevice9::SetCursorPosition(int X, int Y, DWORD Flags)
{
    ProxyCall call(Method::SetCursorPosition, {U(X), U(Y), Flags});
    m_real->SetCursorPosition(X, Y, Flags);
}

WINBOOL STDMETHODCALLTYPE ProxyDevice9::ShowCursor(WINBOOL bShow)
{
    ProxyCall call(Method::ShowCursor, {U(bShow)});
    return call.Done(m_real->ShowCursor(bShow));
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateAdditionalSwapChain(D3DPRESENT_PARAMETERS* pPresentationParameters,
                                                                  IDirect3DSwapChain9** pSwapChain)
{
    ProxyCall call(Method::CreateAdditionalSwapChain, {PtrArg(pPresentationParameters), PtrArg(pSwapChain)});
    if (pPresentationParameters)
        call.Payload(pPresentationParameters, sizeof *pPresentationParameters);
    KV_PASS_OUT(pSwapChain, CreateAdditionalSwapChain, pPresentationParameters, pSwapChain);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetSwapChain(UINT iSwapChain, IDirect3DSwapChain9** pSwapChain)
{
    ProxyCall call(Method::GetSwapChain, {iSwapChain, PtrArg(pSwapChain)});
    KV_PASS_OUT(pSwapChain, GetSwapChain, iSwapChain, pSwapChain);
}

UINT STDMETHODCALLTYPE ProxyDevice9::GetNumberOfSwapChains()
{
    ProxyCall call(Method::GetNumberOfSwapChains, {});
    return call.Done(m_real->GetNumberOfSwapChains());
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::Reset(D3DPRESENT_PARAMETERS* pPresentationParameters)
{
    ProxyCall call(Method::Reset, {PtrArg(pPresentationParameters)});
    if (pPresentationParameters)
        call.Payload(pPresentationParameters, sizeof *pPresentationParameters);
    if (call.Faulted())
        return call.FaultResult();
    ProxyState& state = ProxyState::Get();
    // A lost device that the driver has not given back yet cannot be reset.
    if (state.LossState() == KV_PROXY_LOSS_LOST)
        return call.Lost(D3DERR_DEVICELOST);
    HRESULT hr = m_real->Reset(pPresentationParameters);
    if (SUCCEEDED(hr))
        state.ResetSucceeded();
    return call.Done(hr);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::Present(const RECT* src_rect, const RECT* dst_rect, HWND dst_window_override,
                                                const RGNDATA* dirty_region)
{
    ProxyCall call(Method::Present,
                   {PtrArg(src_rect), PtrArg(dst_rect), PtrArg(dst_window_override), PtrArg(dirty_region)});
    if (call.Faulted())
        return call.FaultResult();
    if (ProxyState::Get().PresentMeetsLoss())
        return call.Lost(D3DERR_DEVICELOST);
    return call.Done(m_real->Present(src_rect, dst_rect, dst_window_override, dirty_region));
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetBackBuffer(UINT iSwapChain, UINT iBackBuffer, D3DBACKBUFFER_TYPE Type,
                                                      IDirect3DSurface9** ppBackBuffer)
{
    ProxyCall call(Method::GetBackBuffer, {iSwapChain, iBackBuffer, U(Type), PtrArg(ppBackBuffer)});
    KV_PASS_OUT(ppBackBuffer, GetBackBuffer, iSwapChain, iBackBuffer, Type, ppBackBuffer);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetRasterStatus(UINT iSwapChain, D3DRASTER_STATUS* pRasterStatus)
{
    ProxyCall call(Method::GetRasterStatus, {iSwapChain, PtrArg(pRasterStatus)});
    KV_PASS(GetRasterStatus, iSwapChain, pRasterStatus);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetDialogBoxMode(WINBOOL bEnableDialogs)
{
    ProxyCall call(Method::SetDialogBoxMode, {U(bEnableDialogs)});
    KV_PASS(SetDialogBoxMode, bEnableDialogs);
}

void STDMETHODCALLTYPE ProxyDevice9::SetGammaRamp(UINT swapchain_idx, DWORD flags, const D3DGAMMARAMP* ramp)
{
    ProxyCall call(Method::SetGammaRamp, {swapchain_idx, flags, PtrArg(ramp)});
    m_real->SetGammaRamp(swapchain_idx, flags, ramp);
}

void STDMETHODCALLTYPE ProxyDevice9::GetGammaRamp(UINT iSwapChain, D3DGAMMARAMP* pRamp)
{
    ProxyCall call(Method::GetGammaRamp, {iSwapChain, PtrArg(pRamp)});
    m_real->GetGammaRamp(iSwapChain, pRamp);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateTexture(UINT Width, UINT Height, UINT Levels, DWORD Usage,
                                                      D3DFORMAT Format, D3DPOOL Pool, IDirect3DTexture9** ppTexture,
                                                      HANDLE* pSharedHandle)
{
    ProxyCall call(Method::CreateTexture,
                   {Width, Height, Levels, Usage, U(Format), U(Pool), PtrArg(ppTexture), PtrArg(pSharedHandle)});
    KV_PASS_OUT(ppTexture, CreateTexture, Width, Height, Levels, Usage, Format, Pool, ppTexture, pSharedHandle);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateVolumeTexture(UINT Width, UINT Height, UINT Depth, UINT Levels,
                                                            DWORD Usage, D3DFORMAT Format, D3DPOOL Pool,
                                                            IDirect3DVolumeTexture9** ppVolumeTexture,
                                                            HANDLE* pSharedHandle)
{
    // Eight slots: the shared handle pointer, always null for Direct3D 9, is left out.
    ProxyCall call(Method::CreateVolumeTexture,
                   {Width, Height, Depth, Levels, Usage, U(Format), U(Pool), PtrArg(ppVolumeTexture)});
    KV_PASS_OUT(ppVolumeTexture, CreateVolumeTexture, Width, Height, Depth, Levels, Usage, Format, Pool,
                ppVolumeTexture, pSharedHandle);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateCubeTexture(UINT EdgeLength, UINT Levels, DWORD Usage, D3DFORMAT Format,
                                                          D3DPOOL Pool, IDirect3DCubeTexture9** ppCubeTexture,
                                                          HANDLE* pSharedHandle)
{
    ProxyCall call(Method::CreateCubeTexture,
                   {EdgeLength, Levels, Usage, U(Format), U(Pool), PtrArg(ppCubeTexture), PtrArg(pSharedHandle)});
    KV_PASS_OUT(ppCubeTexture, CreateCubeTexture, EdgeLength, Levels, Usage, Format, Pool, ppCubeTexture,
                pSharedHandle);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateVertexBuffer(UINT Length, DWORD Usage, DWORD FVF, D3DPOOL Pool,
                                                           IDirect3DVertexBuffer9** ppVertexBuffer,
                                                           HANDLE* pSharedHandle)
{
    ProxyCall call(Method::CreateVertexBuffer,
                   {Length, Usage, FVF, U(Pool), PtrArg(ppVertexBuffer), PtrArg(pSharedHandle)});
    KV_PASS_OUT(ppVertexBuffer, CreateVertexBuffer, Length, Usage, FVF, Pool, ppVertexBuffer, pSharedHandle);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateIndexBuffer(UINT Length, DWORD Usage, D3DFORMAT Format, D3DPOOL Pool,
                                                          IDirect3DIndexBuffer9** ppIndexBuffer, HANDLE* pSharedHandle)
{
    ProxyCall call(Method::CreateIndexBuffer,
                   {Length, Usage, U(Format), U(Pool), PtrArg(ppIndexBuffer), PtrArg(pSharedHandle)});
    KV_PASS_OUT(ppIndexBuffer, CreateIndexBuffer, Length, Usage, Format, Pool, ppIndexBuffer, pSharedHandle);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateRenderTarget(UINT Width, UINT Height, D3DFORMAT Format,
                                                           D3DMULTISAMPLE_TYPE MultiSample, DWORD MultisampleQuality,
                                                           WINBOOL Lockable, IDirect3DSurface9** ppSurface,
                                                           HANDLE* pSharedHandle)
{
    ProxyCall call(Method::CreateRenderTarget, {Width, Height, U(Format), U(MultiSample), MultisampleQuality,
                                                U(Lockable), PtrArg(ppSurface), PtrArg(pSharedHandle)});
    KV_PASS_OUT(ppSurface, CreateRenderTarget, Width, Height, Format, MultiSample, MultisampleQuality, Lockable,
                ppSurface, pSharedHandle);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateDepthStencilSurface(UINT Width, UINT Height, D3DFORMAT Format,
                                                                  D3DMULTISAMPLE_TYPE MultiSample,
                                                                  DWORD MultisampleQuality, WINBOOL Discard,
                                                                  IDirect3DSurface9** ppSurface, HANDLE* pSharedHandle)
{
    ProxyCall call(Method::CreateDepthStencilSurface, {Width, Height, U(Format), U(MultiSample), MultisampleQuality,
                                                       U(Discard), PtrArg(ppSurface), PtrArg(pSharedHandle)});
    KV_PASS_OUT(ppSurface, CreateDepthStencilSurface, Width, Height, Format, MultiSample, MultisampleQuality, Discard,
                ppSurface, pSharedHandle);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::UpdateSurface(IDirect3DSurface9* src_surface, const RECT* src_rect,
                                                      IDirect3DSurface9* dst_surface, const POINT* dst_point)
{
    ProxyCall call(Method::UpdateSurface,
                   {PtrArg(src_surface), PtrArg(src_rect), PtrArg(dst_surface), PtrArg(dst_point)});
    KV_PASS(UpdateSurface, src_surface, src_rect, dst_surface, dst_point);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::UpdateTexture(IDirect3DBaseTexture9* pSourceTexture,
                                                      IDirect3DBaseTexture9* pDestinationTexture)
{
    ProxyCall call(Method::UpdateTexture, {PtrArg(pSourceTexture), PtrArg(pDestinationTexture)});
    KV_PASS(UpdateTexture, pSourceTexture, pDestinationTexture);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetRenderTargetData(IDirect3DSurface9* pRenderTarget,
                                                            IDirect3DSurface9* pDestSurface)
{
    ProxyCall call(Method::GetRenderTargetData, {PtrArg(pRenderTarget), PtrArg(pDestSurface)});
    KV_PASS(GetRenderTargetData, pRenderTarget, pDestSurface);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetFrontBufferData(UINT iSwapChain, IDirect3DSurface9* pDestSurface)
{
    ProxyCall call(Method::GetFrontBufferData, {iSwapChain, PtrArg(pDestSurface)});
    KV_PASS(GetFrontBufferData, iSwapChain, pDestSurface);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::StretchRect(IDirect3DSurface9* src_surface, const RECT* src_rect,
                                                    IDirect3DSurface9* dst_surface, const RECT* dst_rect,
                                                    D3DTEXTUREFILTERTYPE filter)
{
    ProxyCall call(Method::StretchRect,
                   {PtrArg(src_surface), PtrArg(src_rect), PtrArg(dst_surface), PtrArg(dst_rect), U(filter)});
    KV_PASS(StretchRect, src_surface, src_rect, dst_surface, dst_rect, filter);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::ColorFill(IDirect3DSurface9* surface, const RECT* rect, D3DCOLOR color)
{
    ProxyCall call(Method::ColorFill, {PtrArg(surface), PtrArg(rect), color});
    KV_PASS(ColorFill, surface, rect, color);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateOffscreenPlainSurface(UINT Width, UINT Height, D3DFORMAT Format,
                                                                    D3DPOOL Pool, IDirect3DSurface9** ppSurface,
                                                                    HANDLE* pSharedHandle)
{
    ProxyCall call(Method::CreateOffscreenPlainSurface,
                   {Width, Height, U(Format), U(Pool), PtrArg(ppSurface), PtrArg(pSharedHandle)});
    KV_PASS_OUT(ppSurface, CreateOffscreenPlainSurface, Width, Height, Format, Pool, ppSurface, pSharedHandle);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetRenderTarget(DWORD RenderTargetIndex, IDirect3DSurface9* pRenderTarget)
{
    ProxyCall call(Method::SetRenderTarget, {RenderTargetIndex, PtrArg(pRenderTarget)});
    KV_PASS(SetRenderTarget, RenderTargetIndex, pRenderTarget);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetRenderTarget(DWORD RenderTargetIndex, IDirect3DSurface9** ppRenderTarget)
{
    ProxyCall call(Method::GetRenderTarget, {RenderTargetIndex, PtrArg(ppRenderTarget)});
    KV_PASS_OUT(ppRenderTarget, GetRenderTarget, RenderTargetIndex, ppRenderTarget);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetDepthStencilSurface(IDirect3DSurface9* pNewZStencil)
{
    ProxyCall call(Method::SetDepthStencilSurface, {PtrArg(pNewZStencil)});
    KV_PASS(SetDepthStencilSurface, pNewZStencil);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetDepthStencilSurface(IDirect3DSurface9** ppZStencilSurface)
{
    ProxyCall call(Method::GetDepthStencilSurface, {PtrArg(ppZStencilSurface)});
    KV_PASS_OUT(ppZStencilSurface, GetDepthStencilSurface, ppZStencilSurface);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::BeginScene()
{
    ProxyCall call(Method::BeginScene, {});
    KV_PASS(BeginScene);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::EndScene()
{
    ProxyCall call(Method::EndScene, {});
    KV_PASS(EndScene);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::Clear(DWORD rect_count, const D3DRECT* rects, DWORD flags, D3DCOLOR color,
                                              float z, DWORD stencil)
{
    ProxyCall call(Method::Clear, {rect_count, PtrArg(rects), flags, color, FloatArg(z), stencil});
    KV_PASS(Clear, rect_count, rects, flags, color, z, stencil);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetTransform(D3DTRANSFORMSTATETYPE state, const D3DMATRIX* matrix)
{
    ProxyCall call(Method::SetTransform, {U(state), PtrArg(matrix)});
    if (matrix)
        call.Payload(matrix, sizeof *matrix);
    KV_PASS(SetTransform, state, matrix);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetTransform(D3DTRANSFORMSTATETYPE State, D3DMATRIX* pMatrix)
{
    ProxyCall call(Method::GetTransform, {U(State), PtrArg(pMatrix)});
    KV_PASS(GetTransform, State, pMatrix);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::MultiplyTransform(D3DTRANSFORMSTATETYPE state, const D3DMATRIX* matrix)
{
    ProxyCall call(Method::MultiplyTransform, {U(state), PtrArg(matrix)});
    if (matrix)
        call.Payload(matrix, sizeof *matrix);
    KV_PASS(MultiplyTransform, state, matrix);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetViewport(const D3DVIEWPORT9* viewport)
{
    if (!viewport)
    {
        ProxyCall call(Method::SetViewport, {});
        KV_PASS(SetViewport, viewport);
    }
    ProxyCall call(Method::SetViewport, {viewport->X, viewport->Y, viewport->Width, viewport->Height,
                                         FloatArg(viewport->MinZ), FloatArg(viewport->MaxZ)});
    KV_PASS(SetViewport, viewport);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetViewport(D3DVIEWPORT9* pViewport)
{
    ProxyCall call(Method::GetViewport, {PtrArg(pViewport)});
    KV_PASS(GetViewport, pViewport);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetMaterial(const D3DMATERIAL9* material)
{
    ProxyCall call(Method::SetMaterial, {PtrArg(material)});
    KV_PASS(SetMaterial, material);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetMaterial(D3DMATERIAL9* pMaterial)
{
    ProxyCall call(Method::GetMaterial, {PtrArg(pMaterial)});
    KV_PASS(GetMaterial, pMaterial);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetLight(DWORD index, const D3DLIGHT9* light)
{
    ProxyCall call(Method::SetLight, {index, PtrArg(light)});
    KV_PASS(SetLight, index, light);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetLight(DWORD Index, D3DLIGHT9* pLight)
{
    ProxyCall call(Method::GetLight, {Index, PtrArg(pLight)});
    KV_PASS(GetLight, Index, pLight);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::LightEnable(DWORD Index, WINBOOL Enable)
{
    ProxyCall call(Method::LightEnable, {Index, U(Enable)});
    KV_PASS(LightEnable, Index, Enable);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetLightEnable(DWORD Index, WINBOOL* pEnable)
{
    ProxyCall call(Method::GetLightEnable, {Index, PtrArg(pEnable)});
    KV_PASS(GetLightEnable, Index, pEnable);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetClipPlane(DWORD index, const float* plane)
{
    ProxyCall call(Method::SetClipPlane, {index, PtrArg(plane)});
    if (plane)
        call.Payload(plane, 4 * sizeof *plane);
    KV_PASS(SetClipPlane, index, plane);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetClipPlane(DWORD Index, float* pPlane)
{
    ProxyCall call(Method::GetClipPlane, {Index, PtrArg(pPlane)});
    KV_PASS(GetClipPlane, Index, pPlane);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetRenderState(D3DRENDERSTATETYPE State, DWORD Value)
{
    ProxyCall call(Method::SetRenderState, {U(State), Value});
    KV_PASS(SetRenderState, State, Value);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetRenderState(D3DRENDERSTATETYPE State, DWORD* pValue)
{
    ProxyCall call(Method::GetRenderState, {U(State), PtrArg(pValue)});
    if (call.Faulted())
        return call.FaultResult();
    HRESULT hr = m_real->GetRenderState(State, pValue);
    if (pValue)
        call.Out(*pValue);
    return call.Done(hr);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateStateBlock(D3DSTATEBLOCKTYPE Type, IDirect3DStateBlock9** ppSB)
{
    ProxyCall call(Method::CreateStateBlock, {U(Type), PtrArg(ppSB)});
    KV_PASS_OUT(ppSB, CreateStateBlock, Type, ppSB);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::BeginStateBlock()
{
    ProxyCall call(Method::BeginStateBlock, {});
    KV_PASS(BeginStateBlock);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::EndStateBlock(IDirect3DStateBlock9** ppSB)
{
    ProxyCall call(Method::EndStateBlock, {PtrArg(ppSB)});
    KV_PASS_OUT(ppSB, EndStateBlock, ppSB);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetClipStatus(const D3DCLIPSTATUS9* clip_status)
{
    ProxyCall call(Method::SetClipStatus, {PtrArg(clip_status)});
    KV_PASS(SetClipStatus, clip_status);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetClipStatus(D3DCLIPSTATUS9* pClipStatus)
{
    ProxyCall call(Method::GetClipStatus, {PtrArg(pClipStatus)});
    KV_PASS(GetClipStatus, pClipStatus);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetTexture(DWORD Stage, IDirect3DBaseTexture9** ppTexture)
{
    ProxyCall call(Method::GetTexture, {Stage, PtrArg(ppTexture)});
    KV_PASS_OUT(ppTexture, GetTexture, Stage, ppTexture);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetTexture(DWORD Stage, IDirect3DBaseTexture9* pTexture)
{
    ProxyCall call(Method::SetTexture, {Stage, PtrArg(pTexture)});
    KV_PASS(SetTexture, Stage, pTexture);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetTextureStageState(DWORD Stage, D3DTEXTURESTAGESTATETYPE Type, DWORD* pValue)
{
    ProxyCall call(Method::GetTextureStageState, {Stage, U(Type), PtrArg(pValue)});
    KV_PASS(GetTextureStageState, Stage, Type, pValue);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetTextureStageState(DWORD Stage, D3DTEXTURESTAGESTATETYPE Type, DWORD Value)
{
    ProxyCall call(Method::SetTextureStageState, {Stage, U(Type), Value});
    KV_PASS(SetTextureStageState, Stage, Type, Value);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetSamplerState(DWORD Sampler, D3DSAMPLERSTATETYPE Type, DWORD* pValue)
{
    ProxyCall call(Method::GetSamplerState, {Sampler, U(Type), PtrArg(pValue)});
    if (call.Faulted())
        return call.FaultResult();
    HRESULT hr = m_real->GetSamplerState(Sampler, Type, pValue);
    if (pValue)
        call.Out(*pValue);
    return call.Done(hr);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetSamplerState(DWORD Sampler, D3DSAMPLERSTATETYPE Type, DWORD Value)
{
    ProxyCall call(Method::SetSamplerState, {Sampler, U(Type), Value});
    KV_PASS(SetSamplerState, Sampler, Type, Value);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::ValidateDevice(DWORD* pNumPasses)
{
    ProxyCall call(Method::ValidateDevice, {PtrArg(pNumPasses)});
    KV_PASS(ValidateDevice, pNumPasses);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetPaletteEntries(UINT palette_idx, const PALETTEENTRY* entries)
{
    ProxyCall call(Method::SetPaletteEntries, {palette_idx, PtrArg(entries)});
    KV_PASS(SetPaletteEntries, palette_idx, entries);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetPaletteEntries(UINT PaletteNumber, PALETTEENTRY* pEntries)
{
    ProxyCall call(Method::GetPaletteEntries, {PaletteNumber, PtrArg(pEntries)});
    KV_PASS(GetPaletteEntries, PaletteNumber, pEntries);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetCurrentTexturePalette(UINT PaletteNumber)
{
    ProxyCall call(Method::SetCurrentTexturePalette, {PaletteNumber});
    KV_PASS(SetCurrentTexturePalette, PaletteNumber);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetCurrentTexturePalette(UINT* PaletteNumber)
{
    ProxyCall call(Method::GetCurrentTexturePalette, {PtrArg(PaletteNumber)});
    KV_PASS(GetCurrentTexturePalette, PaletteNumber);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetScissorRect(const RECT* rect)
{
    if (!rect)
    {
        ProxyCall call(Method::SetScissorRect, {});
        KV_PASS(SetScissorRect, rect);
    }
    ProxyCall call(Method::SetScissorRect, {U(rect->left), U(rect->top), U(rect->right), U(rect->bottom)});
    KV_PASS(SetScissorRect, rect);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetScissorRect(RECT* pRect)
{
    ProxyCall call(Method::GetScissorRect, {PtrArg(pRect)});
    KV_PASS(GetScissorRect, pRect);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetSoftwareVertexProcessing(WINBOOL bSoftware)
{
    ProxyCall call(Method::SetSoftwareVertexProcessing, {U(bSoftware)});
    KV_PASS(SetSoftwareVertexProcessing, bSoftware);
}

WINBOOL STDMETHODCALLTYPE ProxyDevice9::GetSoftwareVertexProcessing()
{
    ProxyCall call(Method::GetSoftwareVertexProcessing, {});
    return call.Done(m_real->GetSoftwareVertexProcessing());
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetNPatchMode(float nSegments)
{
    ProxyCall call(Method::SetNPatchMode, {FloatArg(nSegments)});
    KV_PASS(SetNPatchMode, nSegments);
}

float STDMETHODCALLTYPE ProxyDevice9::GetNPatchMode()
{
    ProxyCall call(Method::GetNPatchMode, {});
    const float f = m_real->GetNPatchMode();
    call.Out(FloatArg(f));
    return f;
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::DrawPrimitive(D3DPRIMITIVETYPE PrimitiveType, UINT StartVertex,
                                                      UINT PrimitiveCount)
{
    ProxyCall call(Method::DrawPrimitive, {U(PrimitiveType), StartVertex, PrimitiveCount});
    KV_PASS(DrawPrimitive, PrimitiveType, StartVertex, PrimitiveCount);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::DrawIndexedPrimitive(D3DPRIMITIVETYPE Type, INT BaseVertexIndex,
                                                             UINT MinVertexIndex, UINT NumVertices, UINT startIndex,
                                                             UINT primCount)
{
    ProxyCall call(Method::DrawIndexedPrimitive,
                   {U(Type), U(BaseVertexIndex), MinVertexIndex, NumVertices, startIndex, primCount});
    KV_PASS(DrawIndexedPrimitive, Type, BaseVertexIndex, MinVertexIndex, NumVertices, startIndex, primCount);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::DrawPrimitiveUP(D3DPRIMITIVETYPE primitive_type, UINT primitive_count,
                                                        const void* data, UINT stride)
{
    ProxyCall call(Method::DrawPrimitiveUP, {U(primitive_type), primitive_count, PtrArg(data), stride});
    KV_PASS(DrawPrimitiveUP, primitive_type, primitive_count, data, stride);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::DrawIndexedPrimitiveUP(D3DPRIMITIVETYPE primitive_type, UINT min_vertex_idx,
                                                               UINT vertex_count, UINT primitive_count,
                                                               const void* index_data, D3DFORMAT index_format,
                                                               const void* data, UINT stride)
{
    ProxyCall call(Method::DrawIndexedPrimitiveUP, {U(primitive_type), min_vertex_idx, vertex_count, primitive_count,
                                                    PtrArg(index_data), U(index_format), PtrArg(data), stride});
    KV_PASS(DrawIndexedPrimitiveUP, primitive_type, min_vertex_idx, vertex_count, primitive_count, index_data,
            index_format, data, stride);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::ProcessVertices(UINT SrcStartIndex, UINT DestIndex, UINT VertexCount,
                                                        IDirect3DVertexBuffer9* pDestBuffer,
                                                        IDirect3DVertexDeclaration9* pVertexDecl, DWORD Flags)
{
    ProxyCall call(Method::ProcessVertices,
                   {SrcStartIndex, DestIndex, VertexCount, PtrArg(pDestBuffer), PtrArg(pVertexDecl), Flags});
    KV_PASS(ProcessVertices, SrcStartIndex, DestIndex, VertexCount, pDestBuffer, pVertexDecl, Flags);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateVertexDeclaration(const D3DVERTEXELEMENT9* elements,
                                                                IDirect3DVertexDeclaration9** declaration)
{
    ProxyCall call(Method::CreateVertexDeclaration, {PtrArg(elements), PtrArg(declaration)});
    KV_PASS_OUT(declaration, CreateVertexDeclaration, elements, declaration);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetVertexDeclaration(IDirect3DVertexDeclaration9* pDecl)
{
    ProxyCall call(Method::SetVertexDeclaration, {PtrArg(pDecl)});
    KV_PASS(SetVertexDeclaration, pDecl);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetVertexDeclaration(IDirect3DVertexDeclaration9** ppDecl)
{
    ProxyCall call(Method::GetVertexDeclaration, {PtrArg(ppDecl)});
    KV_PASS_OUT(ppDecl, GetVertexDeclaration, ppDecl);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetFVF(DWORD FVF)
{
    ProxyCall call(Method::SetFVF, {FVF});
    KV_PASS(SetFVF, FVF);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetFVF(DWORD* pFVF)
{
    ProxyCall call(Method::GetFVF, {PtrArg(pFVF)});
    KV_PASS(GetFVF, pFVF);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateVertexShader(const DWORD* byte_code, IDirect3DVertexShader9** shader)
{
    ProxyCall call(Method::CreateVertexShader, {PtrArg(byte_code), PtrArg(shader)});
    KV_PASS_OUT(shader, CreateVertexShader, byte_code, shader);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetVertexShader(IDirect3DVertexShader9* pShader)
{
    ProxyCall call(Method::SetVertexShader, {PtrArg(pShader)});
    KV_PASS(SetVertexShader, pShader);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetVertexShader(IDirect3DVertexShader9** ppShader)
{
    ProxyCall call(Method::GetVertexShader, {PtrArg(ppShader)});
    KV_PASS_OUT(ppShader, GetVertexShader, ppShader);
}

// Constants: start and count in the arguments, the values in the payload.
HRESULT STDMETHODCALLTYPE ProxyDevice9::SetVertexShaderConstantF(UINT reg_idx, const float* data, UINT count)
{
    ProxyCall call(Method::SetVertexShaderConstantF, {reg_idx, PtrArg(data), count});
    if (data)
        call.Payload(data, static_cast<size_t>(count) * 4 * sizeof(float));
    KV_PASS(SetVertexShaderConstantF, reg_idx, data, count);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetVertexShaderConstantF(UINT StartRegister, float* pConstantData,
                                                                 UINT Vector4fCount)
{
    ProxyCall call(Method::GetVertexShaderConstantF, {StartRegister, PtrArg(pConstantData), Vector4fCount});
    KV_PASS(GetVertexShaderConstantF, StartRegister, pConstantData, Vector4fCount);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetVertexShaderConstantI(UINT reg_idx, const int* data, UINT count)
{
    ProxyCall call(Method::SetVertexShaderConstantI, {reg_idx, PtrArg(data), count});
    if (data)
        call.Payload(data, static_cast<size_t>(count) * 4 * sizeof(int));
    KV_PASS(SetVertexShaderConstantI, reg_idx, data, count);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetVertexShaderConstantI(UINT StartRegister, int* pConstantData,
                                                                 UINT Vector4iCount)
{
    ProxyCall call(Method::GetVertexShaderConstantI, {StartRegister, PtrArg(pConstantData), Vector4iCount});
    KV_PASS(GetVertexShaderConstantI, StartRegister, pConstantData, Vector4iCount);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetVertexShaderConstantB(UINT reg_idx, const WINBOOL* data, UINT count)
{
    ProxyCall call(Method::SetVertexShaderConstantB, {reg_idx, PtrArg(data), count});
    if (data)
        call.Payload(data, static_cast<size_t>(count) * sizeof(WINBOOL));
    KV_PASS(SetVertexShaderConstantB, reg_idx, data, count);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetVertexShaderConstantB(UINT StartRegister, WINBOOL* pConstantData,
                                                                 UINT BoolCount)
{
    ProxyCall call(Method::GetVertexShaderConstantB, {StartRegister, PtrArg(pConstantData), BoolCount});
    KV_PASS(GetVertexShaderConstantB, StartRegister, pConstantData, BoolCount);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetStreamSource(UINT StreamNumber, IDirect3DVertexBuffer9* pStreamData,
                                                        UINT OffsetInBytes, UINT Stride)
{
    ProxyCall call(Method::SetStreamSource, {StreamNumber, PtrArg(pStreamData), OffsetInBytes, Stride});
    KV_PASS(SetStreamSource, StreamNumber, pStreamData, OffsetInBytes, Stride);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetStreamSource(UINT StreamNumber, IDirect3DVertexBuffer9** ppStreamData,
                                                        UINT* OffsetInBytes, UINT* pStride)
{
    ProxyCall call(Method::GetStreamSource,
                   {StreamNumber, PtrArg(ppStreamData), PtrArg(OffsetInBytes), PtrArg(pStride)});
    KV_PASS_OUT(ppStreamData, GetStreamSource, StreamNumber, ppStreamData, OffsetInBytes, pStride);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetStreamSourceFreq(UINT StreamNumber, UINT Divider)
{
    ProxyCall call(Method::SetStreamSourceFreq, {StreamNumber, Divider});
    KV_PASS(SetStreamSourceFreq, StreamNumber, Divider);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetStreamSourceFreq(UINT StreamNumber, UINT* Divider)
{
    ProxyCall call(Method::GetStreamSourceFreq, {StreamNumber, PtrArg(Divider)});
    KV_PASS(GetStreamSourceFreq, StreamNumber, Divider);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetIndices(IDirect3DIndexBuffer9* pIndexData)
{
    ProxyCall call(Method::SetIndices, {PtrArg(pIndexData)});
    KV_PASS(SetIndices, pIndexData);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetIndices(IDirect3DIndexBuffer9** ppIndexData)
{
    ProxyCall call(Method::GetIndices, {PtrArg(ppIndexData)});
    KV_PASS_OUT(ppIndexData, GetIndices, ppIndexData);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreatePixelShader(const DWORD* byte_code, IDirect3DPixelShader9** shader)
{
    ProxyCall call(Method::CreatePixelShader, {PtrArg(byte_code), PtrArg(shader)});
    KV_PASS_OUT(shader, CreatePixelShader, byte_code, shader);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetPixelShader(IDirect3DPixelShader9* pShader)
{
    ProxyCall call(Method::SetPixelShader, {PtrArg(pShader)});
    KV_PASS(SetPixelShader, pShader);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetPixelShader(IDirect3DPixelShader9** ppShader)
{
    ProxyCall call(Method::GetPixelShader, {PtrArg(ppShader)});
    KV_PASS_OUT(ppShader, GetPixelShader, ppShader);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetPixelShaderConstantF(UINT reg_idx, const float* data, UINT count)
{
    ProxyCall call(Method::SetPixelShaderConstantF, {reg_idx, PtrArg(data), count});
    if (data)
        call.Payload(data, static_cast<size_t>(count) * 4 * sizeof(float));
    KV_PASS(SetPixelShaderConstantF, reg_idx, data, count);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetPixelShaderConstantF(UINT StartRegister, float* pConstantData,
                                                                UINT Vector4fCount)
{
    ProxyCall call(Method::GetPixelShaderConstantF, {StartRegister, PtrArg(pConstantData), Vector4fCount});
    KV_PASS(GetPixelShaderConstantF, StartRegister, pConstantData, Vector4fCount);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetPixelShaderConstantI(UINT reg_idx, const int* data, UINT count)
{
    ProxyCall call(Method::SetPixelShaderConstantI, {reg_idx, PtrArg(data), count});
    if (data)
        call.Payload(data, static_cast<size_t>(count) * 4 * sizeof(int));
    KV_PASS(SetPixelShaderConstantI, reg_idx, data, count);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetPixelShaderConstantI(UINT StartRegister, int* pConstantData,
                                                                UINT Vector4iCount)
{
    ProxyCall call(Method::GetPixelShaderConstantI, {StartRegister, PtrArg(pConstantData), Vector4iCount});
    KV_PASS(GetPixelShaderConstantI, StartRegister, pConstantData, Vector4iCount);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::SetPixelShaderConstantB(UINT reg_idx, const WINBOOL* data, UINT count)
{
    ProxyCall call(Method::SetPixelShaderConstantB, {reg_idx, PtrArg(data), count});
    if (data)
        call.Payload(data, static_cast<size_t>(count) * sizeof(WINBOOL));
    KV_PASS(SetPixelShaderConstantB, reg_idx, data, count);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::GetPixelShaderConstantB(UINT StartRegister, WINBOOL* pConstantData,
                                                                UINT BoolCount)
{
    ProxyCall call(Method::GetPixelShaderConstantB, {StartRegister, PtrArg(pConstantData), BoolCount});
    KV_PASS(GetPixelShaderConstantB, StartRegister, pConstantData, BoolCount);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::DrawRectPatch(UINT handle, const float* segment_count,
                                                      const D3DRECTPATCH_INFO* patch_info)
{
    ProxyCall call(Method::DrawRectPatch, {handle, PtrArg(segment_count), PtrArg(patch_info)});
    KV_PASS(DrawRectPatch, handle, segment_count, patch_info);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::DrawTriPatch(UINT handle, const float* segment_count,
                                                     const D3DTRIPATCH_INFO* patch_info)
{
    ProxyCall call(Method::DrawTriPatch, {handle, PtrArg(segment_count), PtrArg(patch_info)});
    KV_PASS(DrawTriPatch, handle, segment_count, patch_info);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::DeletePatch(UINT Handle)
{
    ProxyCall call(Method::DeletePatch, {Handle});
    KV_PASS(DeletePatch, Handle);
}

HRESULT STDMETHODCALLTYPE ProxyDevice9::CreateQuery(D3DQUERYTYPE Type, IDirect3DQuery9** ppQuery)
{
    ProxyCall call(Method::CreateQuery, {U(Type), PtrArg(ppQuery)});
    KV_PASS_OUT(ppQuery, CreateQuery, Type, ppQuery);
}
