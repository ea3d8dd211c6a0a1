// The exports of d3d9.dll that a program may import, each counted, traced and
// passed to the real d3d9.dll of the system directory.
#include <d3d9.h>
#include <windows.h>

#include <cstring>

#include "../RecorderSupport.h"
#include "ProxyCall.h"
#include "ProxyDirect3D9.h"

using kvproxy::Method;

namespace
{

template <class F>
F RealExport(const char* name)
{
    static const HMODULE dll = kvtools::LoadSystemDll("d3d9.dll");
    return dll ? reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(dll, name))) : nullptr;
}

} // namespace

extern "C"
{

    IDirect3D9* WINAPI Direct3DCreate9(UINT sdk_version)
    {
        ProxyCall call(Method::Direct3DCreate9, {sdk_version});
        if (call.Faulted())
            return nullptr;
        static auto real = RealExport<IDirect3D9*(WINAPI*)(UINT)>("Direct3DCreate9");
        IDirect3D9* d3d = real ? real(sdk_version) : nullptr;
        IDirect3D9* wrapped = d3d ? new ProxyDirect3D9(d3d) : nullptr;
        call.OutPointer(wrapped);
        return wrapped;
    }

    // Direct3D 9Ex objects pass through unwrapped: the plug-in does not use them.
    HRESULT WINAPI Direct3DCreate9Ex(UINT sdk_version, IDirect3D9Ex** d3d9ex)
    {
        ProxyCall call(Method::Direct3DCreate9Ex, {sdk_version, PtrArg(d3d9ex)});
        if (call.Faulted())
        {
            if (d3d9ex)
                *d3d9ex = nullptr;
            return call.FaultResult();
        }
        static auto real = RealExport<HRESULT(WINAPI*)(UINT, IDirect3D9Ex**)>("Direct3DCreate9Ex");
        if (!real)
            return call.Done(D3DERR_NOTAVAILABLE);
        HRESULT hr = real(sdk_version, d3d9ex);
        if (d3d9ex)
            call.OutPointer(*d3d9ex);
        return call.Done(hr);
    }

    int WINAPI D3DPERF_BeginEvent(D3DCOLOR color, const WCHAR* name)
    {
        ProxyCall call(Method::D3DPERF_BeginEvent, {color, PtrArg(name)});
        call.Text(name);
        static auto real = RealExport<int(WINAPI*)(D3DCOLOR, const WCHAR*)>("D3DPERF_BeginEvent");
        return call.Done(real ? real(color, name) : -1);
    }

    int WINAPI D3DPERF_EndEvent(void)
    {
        ProxyCall call(Method::D3DPERF_EndEvent, {});
        static auto real = RealExport<int(WINAPI*)()>("D3DPERF_EndEvent");
        return call.Done(real ? real() : -1);
    }

    DWORD WINAPI D3DPERF_GetStatus(void)
    {
        ProxyCall call(Method::D3DPERF_GetStatus, {});
        static auto real = RealExport<DWORD(WINAPI*)()>("D3DPERF_GetStatus");
        return call.Done(real ? real() : 0);
    }

    WINBOOL WINAPI D3DPERF_QueryRepeatFrame(void)
    {
        ProxyCall call(Method::D3DPERF_QueryRepeatFrame, {});
        static auto real = RealExport<WINBOOL(WINAPI*)()>("D3DPERF_QueryRepeatFrame");
        return call.Done(real ? real() : FALSE);
    }

    void WINAPI D3DPERF_SetMarker(D3DCOLOR color, const WCHAR* name)
    {
        ProxyCall call(Method::D3DPERF_SetMarker, {color, PtrArg(name)});
        call.Text(name);
        static auto real = RealExport<void(WINAPI*)(D3DCOLOR, const WCHAR*)>("D3DPERF_SetMarker");
        if (real)
            real(color, name);
    }

    void WINAPI D3DPERF_SetOptions(DWORD options)
    {
        ProxyCall call(Method::D3DPERF_SetOptions, {options});
        static auto real = RealExport<void(WINAPI*)(DWORD)>("D3DPERF_SetOptions");
        if (real)
            real(options);
    }

    void WINAPI D3DPERF_SetRegion(D3DCOLOR color, const WCHAR* name)
    {
        ProxyCall call(Method::D3DPERF_SetRegion, {color, PtrArg(name)});
        call.Text(name);
        static auto real = RealExport<void(WINAPI*)(D3DCOLOR, const WCHAR*)>("D3DPERF_SetRegion");
        if (real)
            real(color, name);
    }

    void WINAPI DebugSetMute(void)
    {
        ProxyCall call(Method::DebugSetMute, {});
        static auto real = RealExport<void(WINAPI*)()>("DebugSetMute");
        if (real)
            real();
    }

    void* WINAPI Direct3DShaderValidatorCreate9(void)
    {
        ProxyCall call(Method::Direct3DShaderValidatorCreate9, {});
        static auto real = RealExport<void*(WINAPI*)()>("Direct3DShaderValidatorCreate9");
        void* v = real ? real() : nullptr;
        call.OutPointer(v);
        return v;
    }

} // extern "C"
