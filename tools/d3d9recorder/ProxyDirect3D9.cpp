#include "ProxyDirect3D9.h"

#include "ProxyCall.h"
#include "ProxyDevice9.h"

using kvproxy::Method;

ProxyDirect3D9::ProxyDirect3D9(IDirect3D9* real) : m_real(real) {}

void ProxyDirect3D9::DropWrapper()
{
    if (--m_wrapperRefs == 0)
        delete this;
}

HRESULT STDMETHODCALLTYPE ProxyDirect3D9::QueryInterface(REFIID riid, void** ppv)
{
    ProxyCall call(Method::D3D9_QueryInterface, {PtrArg(&riid), PtrArg(ppv)});
    if (call.Faulted())
    {
        if (ppv)
            *ppv = nullptr;
        return call.FaultResult();
    }
    if (ppv && (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_IDirect3D9)))
    {
        AddRef();
        *ppv = static_cast<IDirect3D9*>(this);
        call.OutPointer(*ppv);
        return call.Done(S_OK);
    }
    // Other interfaces (IDirect3D9Ex) pass through unwrapped.
    HRESULT hr = m_real->QueryInterface(riid, ppv);
    if (ppv)
        call.OutPointer(*ppv);
    return call.Done(hr);
}

ULONG STDMETHODCALLTYPE ProxyDirect3D9::AddRef()
{
    ProxyCall call(Method::D3D9_AddRef, {});
    ++m_wrapperRefs;
    return call.Done(m_real->AddRef());
}

ULONG STDMETHODCALLTYPE ProxyDirect3D9::Release()
{
    ProxyCall call(Method::D3D9_Release, {});
    // The real count is the answer: a caller that checks for leaks sees the truth.
    ULONG n = call.Done(m_real->Release());
    DropWrapper();
    return n;
}

HRESULT STDMETHODCALLTYPE ProxyDirect3D9::RegisterSoftwareDevice(void* pInitializeFunction)
{
    ProxyCall call(Method::D3D9_RegisterSoftwareDevice, {PtrArg(pInitializeFunction)});
    if (call.Faulted())
        return call.FaultResult();
    return call.Done(m_real->RegisterSoftwareDevice(pInitializeFunction));
}

UINT STDMETHODCALLTYPE ProxyDirect3D9::GetAdapterCount()
{
    ProxyCall call(Method::D3D9_GetAdapterCount, {});
    const int forced = ProxyState::Get().AdapterCount();
    if (forced >= 0)
        return call.Done(static_cast<UINT>(forced));
    return call.Done(m_real->GetAdapterCount());
}

HRESULT STDMETHODCALLTYPE ProxyDirect3D9::GetAdapterIdentifier(UINT Adapter, DWORD Flags,
                                                               D3DADAPTER_IDENTIFIER9* pIdentifier)
{
    ProxyCall call(Method::D3D9_GetAdapterIdentifier, {Adapter, Flags, PtrArg(pIdentifier)});
    if (call.Faulted())
        return call.FaultResult();
    HRESULT hr = m_real->GetAdapterIdentifier(Adapter, Flags, pIdentifier);
    if (SUCCEEDED(hr))
        ProxyState::Get().ApplyAdapterIdentifier(pIdentifier);
    return call.Done(hr);
}

UINT STDMETHODCALLTYPE ProxyDirect3D9::GetAdapterModeCount(UINT Adapter, D3DFORMAT Format)
{
    ProxyCall call(Method::D3D9_GetAdapterModeCount, {Adapter, static_cast<uint32_t>(Format)});
    uint32_t count = 0;
    if (ProxyState::Get().AdapterModes(static_cast<uint32_t>(Format), &count))
        return call.Done(count);
    return call.Done(m_real->GetAdapterModeCount(Adapter, Format));
}

HRESULT STDMETHODCALLTYPE ProxyDirect3D9::EnumAdapterModes(UINT Adapter, D3DFORMAT Format, UINT Mode,
                                                           D3DDISPLAYMODE* pMode)
{
    ProxyCall call(Method::D3D9_EnumAdapterModes, {Adapter, static_cast<uint32_t>(Format), Mode, PtrArg(pMode)});
    if (call.Faulted())
        return call.FaultResult();
    uint32_t count = 0;
    if (const D3DDISPLAYMODE* modes = ProxyState::Get().AdapterModes(static_cast<uint32_t>(Format), &count))
    {
        if (!pMode || Mode >= count)
            return call.Done(D3DERR_INVALIDCALL);
        *pMode = modes[Mode];
        return call.Done(D3D_OK);
    }
    return call.Done(m_real->EnumAdapterModes(Adapter, Format, Mode, pMode));
}

HRESULT STDMETHODCALLTYPE ProxyDirect3D9::GetAdapterDisplayMode(UINT Adapter, D3DDISPLAYMODE* pMode)
{
    ProxyCall call(Method::D3D9_GetAdapterDisplayMode, {Adapter, PtrArg(pMode)});
    if (call.Faulted())
        return call.FaultResult();
    return call.Done(m_real->GetAdapterDisplayMode(Adapter, pMode));
}

HRESULT STDMETHODCALLTYPE ProxyDirect3D9::CheckDeviceType(UINT iAdapter, D3DDEVTYPE DevType, D3DFORMAT DisplayFormat,
                                                          D3DFORMAT BackBufferFormat, WINBOOL bWindowed)
{
    ProxyCall call(Method::D3D9_CheckDeviceType,
                   {iAdapter, static_cast<uint32_t>(DevType), static_cast<uint32_t>(DisplayFormat),
                    static_cast<uint32_t>(BackBufferFormat), static_cast<uint32_t>(bWindowed)});
    if (call.Faulted())
        return call.FaultResult();
    return call.Done(m_real->CheckDeviceType(iAdapter, DevType, DisplayFormat, BackBufferFormat, bWindowed));
}

HRESULT STDMETHODCALLTYPE ProxyDirect3D9::CheckDeviceFormat(UINT Adapter, D3DDEVTYPE DeviceType,
                                                            D3DFORMAT AdapterFormat, DWORD Usage, D3DRESOURCETYPE RType,
                                                            D3DFORMAT CheckFormat)
{
    ProxyCall call(Method::D3D9_CheckDeviceFormat,
                   {Adapter, static_cast<uint32_t>(DeviceType), static_cast<uint32_t>(AdapterFormat), Usage,
                    static_cast<uint32_t>(RType), static_cast<uint32_t>(CheckFormat)});
    if (call.Faulted())
        return call.FaultResult();
    return call.Done(m_real->CheckDeviceFormat(Adapter, DeviceType, AdapterFormat, Usage, RType, CheckFormat));
}

HRESULT STDMETHODCALLTYPE ProxyDirect3D9::CheckDeviceMultiSampleType(UINT Adapter, D3DDEVTYPE DeviceType,
                                                                     D3DFORMAT SurfaceFormat, WINBOOL Windowed,
                                                                     D3DMULTISAMPLE_TYPE MultiSampleType,
                                                                     DWORD* pQualityLevels)
{
    ProxyCall call(Method::D3D9_CheckDeviceMultiSampleType,
                   {Adapter, static_cast<uint32_t>(DeviceType), static_cast<uint32_t>(SurfaceFormat),
                    static_cast<uint32_t>(Windowed), static_cast<uint32_t>(MultiSampleType), PtrArg(pQualityLevels)});
    if (call.Faulted())
    {
        if (pQualityLevels)
            *pQualityLevels = 0;
        return call.FaultResult();
    }
    HRESULT hr = m_real->CheckDeviceMultiSampleType(Adapter, DeviceType, SurfaceFormat, Windowed, MultiSampleType,
                                                    pQualityLevels);
    if (pQualityLevels)
        call.Out(*pQualityLevels);
    return call.Done(hr);
}

HRESULT STDMETHODCALLTYPE ProxyDirect3D9::CheckDepthStencilMatch(UINT Adapter, D3DDEVTYPE DeviceType,
                                                                 D3DFORMAT AdapterFormat, D3DFORMAT RenderTargetFormat,
                                                                 D3DFORMAT DepthStencilFormat)
{
    ProxyCall call(Method::D3D9_CheckDepthStencilMatch,
                   {Adapter, static_cast<uint32_t>(DeviceType), static_cast<uint32_t>(AdapterFormat),
                    static_cast<uint32_t>(RenderTargetFormat), static_cast<uint32_t>(DepthStencilFormat)});
    if (call.Faulted())
        return call.FaultResult();
    return call.Done(
        m_real->CheckDepthStencilMatch(Adapter, DeviceType, AdapterFormat, RenderTargetFormat, DepthStencilFormat));
}

HRESULT STDMETHODCALLTYPE ProxyDirect3D9::CheckDeviceFormatConversion(UINT Adapter, D3DDEVTYPE DeviceType,
                                                                      D3DFORMAT SourceFormat, D3DFORMAT TargetFormat)
{
    ProxyCall call(Method::D3D9_CheckDeviceFormatConversion,
                   {Adapter, static_cast<uint32_t>(DeviceType), static_cast<uint32_t>(SourceFormat),
                    static_cast<uint32_t>(TargetFormat)});
    if (call.Faulted())
        return call.FaultResult();
    return call.Done(m_real->CheckDeviceFormatConversion(Adapter, DeviceType, SourceFormat, TargetFormat));
}

HRESULT STDMETHODCALLTYPE ProxyDirect3D9::GetDeviceCaps(UINT Adapter, D3DDEVTYPE DeviceType, D3DCAPS9* pCaps)
{
    ProxyCall call(Method::D3D9_GetDeviceCaps, {Adapter, static_cast<uint32_t>(DeviceType), PtrArg(pCaps)});
    if (call.Faulted())
        return call.FaultResult();
    HRESULT hr = m_real->GetDeviceCaps(Adapter, DeviceType, pCaps);
    if (SUCCEEDED(hr))
        ProxyState::Get().ApplyCaps(pCaps);
    return call.Done(hr);
}

HMONITOR STDMETHODCALLTYPE ProxyDirect3D9::GetAdapterMonitor(UINT Adapter)
{
    ProxyCall call(Method::D3D9_GetAdapterMonitor, {Adapter});
    HMONITOR m = m_real->GetAdapterMonitor(Adapter);
    call.OutPointer(m);
    return m;
}

HRESULT STDMETHODCALLTYPE ProxyDirect3D9::CreateDevice(UINT Adapter, D3DDEVTYPE DeviceType, HWND hFocusWindow,
                                                       DWORD BehaviorFlags,
                                                       D3DPRESENT_PARAMETERS* pPresentationParameters,
                                                       IDirect3DDevice9** ppReturnedDeviceInterface)
{
    ProxyCall call(Method::D3D9_CreateDevice,
                   {Adapter, static_cast<uint32_t>(DeviceType), PtrArg(hFocusWindow), BehaviorFlags,
                    PtrArg(pPresentationParameters), PtrArg(ppReturnedDeviceInterface)});
    if (pPresentationParameters)
        call.Payload(pPresentationParameters, sizeof *pPresentationParameters);
    if (call.Faulted())
    {
        if (ppReturnedDeviceInterface)
            *ppReturnedDeviceInterface = nullptr;
        return call.FaultResult();
    }
    IDirect3DDevice9* real = nullptr;
    HRESULT hr = m_real->CreateDevice(Adapter, DeviceType, hFocusWindow, BehaviorFlags, pPresentationParameters,
                                      ppReturnedDeviceInterface ? &real : nullptr);
    if (ppReturnedDeviceInterface)
    {
        *ppReturnedDeviceInterface = nullptr;
        if (SUCCEEDED(hr) && real)
            *ppReturnedDeviceInterface = new ProxyDevice9(real, this);
        call.OutPointer(*ppReturnedDeviceInterface);
    }
    return call.Done(hr);
}
