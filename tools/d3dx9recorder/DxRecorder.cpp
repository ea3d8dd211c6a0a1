// The recorded D3DX functions, the control exports and the loader of the real
// d3dx9_43.dll that every export (recorded or passed on) ends in.
#include <d3dx9.h>
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "DxRecorder.h"

using kvdx::Fn;

namespace
{

constexpr uint32_t kTraceCapacity = 65536;
KvDxCall g_trace[kTraceCapacity];
uint32_t g_traceSize = 0;

struct FaultRule
{
    int32_t hr = 0;
    int32_t times = 0;
};
FaultRule g_faults[static_cast<uint32_t>(Fn::Count)];

void* RealExport(const char* name)
{
    static const HMODULE dll = kvtools::LoadSystemDll("d3dx9_43.dll");
    return kvtools::SystemExportOrStop(dll, name, "d3dx9 recorder", "d3dx9_43.dll");
}

template <class F>
F Real(const char* name)
{
    return reinterpret_cast<F>(RealExport(name));
}

uint64_t Ptr(const void* p)
{
    return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p));
}

// One call being recorded: its record is taken at the start, so calls made
// inside the real function (D3DX calls itself) come after it.
class Call
{
public:
    Call(Fn fn, std::initializer_list<uint64_t> args) : m_record(nullptr)
    {
        if (g_traceSize >= kTraceCapacity)
            return;
        m_record = &g_trace[g_traceSize++];
        std::memset(m_record, 0, sizeof *m_record);
        m_record->fn = static_cast<uint32_t>(fn);
        for (uint64_t a : args)
            if (m_record->argCount < 14)
                m_record->args[m_record->argCount++] = a;
        FaultRule& rule = g_faults[static_cast<uint32_t>(fn)];
        if (rule.times != 0)
        {
            m_faultResult = rule.hr;
            m_faulted = true;
            if (rule.times > 0)
                --rule.times;
        }
    }
    void Rect(const RECT* r)
    {
        Add(r ? static_cast<uint64_t>(r->left) : kvdx::kNone);
        Add(r ? static_cast<uint64_t>(r->top) : kvdx::kNone);
        Add(r ? static_cast<uint64_t>(r->right) : kvdx::kNone);
        Add(r ? static_cast<uint64_t>(r->bottom) : kvdx::kNone);
    }
    void Box(const D3DBOX* b)
    {
        Add(b ? b->Left : kvdx::kNone);
        Add(b ? b->Top : kvdx::kNone);
        Add(b ? b->Right : kvdx::kNone);
        Add(b ? b->Bottom : kvdx::kNone);
        Add(b ? b->Front : kvdx::kNone);
        Add(b ? b->Back : kvdx::kNone);
    }
    void Add(uint64_t a)
    {
        if (m_record && m_record->argCount < 14)
            m_record->args[m_record->argCount++] = a;
    }
    void Path(const char* path)
    {
        if (m_record && path)
        {
            std::strncpy(m_record->path, path, sizeof m_record->path - 1);
            m_record->path[sizeof m_record->path - 1] = 0;
        }
    }
    bool Faulted() const { return m_faulted; }
    HRESULT Done(HRESULT hr)
    {
        if (m_record)
        {
            m_record->result = hr;
            m_record->faulted = m_faulted ? 1u : 0u;
        }
        return hr;
    }
    HRESULT FaultResult() { return Done(m_faultResult); }

private:
    KvDxCall* m_record;
    bool m_faulted = false;
    HRESULT m_faultResult = S_OK;
};

} // namespace

// The forwarding stubs look their target up here, once per export.
extern "C" void* kvdx_resolve(const char* name)
{
    return RealExport(name);
}

#define REAL(name, type) static auto real = Real<type>(#name)

extern "C"
{

    __declspec(dllexport) uint32_t KvDx_Abi()
    {
        return kvdx::kAbi;
    }
    __declspec(dllexport) void KvDx_Reset()
    {
        g_traceSize = 0;
        for (FaultRule& r : g_faults)
            r = FaultRule();
    }
    __declspec(dllexport) uint32_t KvDx_TraceSize()
    {
        return g_traceSize;
    }
    __declspec(dllexport) const KvDxCall* KvDx_Trace()
    {
        return g_trace;
    }
    __declspec(dllexport) void KvDx_Fail(uint32_t fn, int32_t hr, int32_t times)
    {
        if (fn < static_cast<uint32_t>(Fn::Count))
        {
            g_faults[fn].hr = hr;
            g_faults[fn].times = times;
        }
    }

    // --- Creation: w, h, (d), levels, usage, format, pool.

    HRESULT WINAPI D3DXCreateTexture(IDirect3DDevice9* device, UINT w, UINT h, UINT levels, DWORD usage,
                                     D3DFORMAT format, D3DPOOL pool, IDirect3DTexture9** out)
    {
        Call call(Fn::CreateTexture, {w, h, levels, usage, static_cast<uint64_t>(format), static_cast<uint64_t>(pool)});
        if (call.Faulted())
            return *out = nullptr, call.FaultResult();
        REAL(D3DXCreateTexture,
             HRESULT(WINAPI*)(IDirect3DDevice9*, UINT, UINT, UINT, DWORD, D3DFORMAT, D3DPOOL, IDirect3DTexture9**));
        return call.Done(real(device, w, h, levels, usage, format, pool, out));
    }

    HRESULT WINAPI D3DXCreateCubeTexture(IDirect3DDevice9* device, UINT size, UINT levels, DWORD usage,
                                         D3DFORMAT format, D3DPOOL pool, IDirect3DCubeTexture9** out)
    {
        Call call(Fn::CreateCubeTexture,
                  {size, size, levels, usage, static_cast<uint64_t>(format), static_cast<uint64_t>(pool)});
        if (call.Faulted())
            return *out = nullptr, call.FaultResult();
        REAL(D3DXCreateCubeTexture,
             HRESULT(WINAPI*)(IDirect3DDevice9*, UINT, UINT, DWORD, D3DFORMAT, D3DPOOL, IDirect3DCubeTexture9**));
        return call.Done(real(device, size, levels, usage, format, pool, out));
    }

    HRESULT WINAPI D3DXCreateVolumeTexture(IDirect3DDevice9* device, UINT w, UINT h, UINT d, UINT levels, DWORD usage,
                                           D3DFORMAT format, D3DPOOL pool, IDirect3DVolumeTexture9** out)
    {
        Call call(Fn::CreateVolumeTexture,
                  {w, h, d, levels, usage, static_cast<uint64_t>(format), static_cast<uint64_t>(pool)});
        if (call.Faulted())
            return *out = nullptr, call.FaultResult();
        REAL(D3DXCreateVolumeTexture, HRESULT(WINAPI*)(IDirect3DDevice9*, UINT, UINT, UINT, UINT, DWORD, D3DFORMAT,
                                                       D3DPOOL, IDirect3DVolumeTexture9**));
        return call.Done(real(device, w, h, d, levels, usage, format, pool, out));
    }

    // --- Checks: the pointers' addresses (0 for null), usage, format in, pool, format out.

    HRESULT WINAPI D3DXCheckTextureRequirements(IDirect3DDevice9* device, UINT* w, UINT* h, UINT* levels, DWORD usage,
                                                D3DFORMAT* format, D3DPOOL pool)
    {
        Call call(Fn::CheckTextureRequirements,
                  {Ptr(w), Ptr(h), Ptr(levels), usage, format ? static_cast<uint64_t>(*format) : kvdx::kNone,
                   static_cast<uint64_t>(pool)});
        if (call.Faulted())
            return call.FaultResult();
        REAL(D3DXCheckTextureRequirements,
             HRESULT(WINAPI*)(IDirect3DDevice9*, UINT*, UINT*, UINT*, DWORD, D3DFORMAT*, D3DPOOL));
        HRESULT hr = real(device, w, h, levels, usage, format, pool);
        call.Add(format ? static_cast<uint64_t>(*format) : kvdx::kNone);
        return call.Done(hr);
    }

    HRESULT WINAPI D3DXCheckCubeTextureRequirements(IDirect3DDevice9* device, UINT* size, UINT* levels, DWORD usage,
                                                    D3DFORMAT* format, D3DPOOL pool)
    {
        Call call(Fn::CheckCubeTextureRequirements,
                  {Ptr(size), Ptr(size), Ptr(levels), usage, format ? static_cast<uint64_t>(*format) : kvdx::kNone,
                   static_cast<uint64_t>(pool)});
        if (call.Faulted())
            return call.FaultResult();
        REAL(D3DXCheckCubeTextureRequirements,
             HRESULT(WINAPI*)(IDirect3DDevice9*, UINT*, UINT*, DWORD, D3DFORMAT*, D3DPOOL));
        HRESULT hr = real(device, size, levels, usage, format, pool);
        call.Add(format ? static_cast<uint64_t>(*format) : kvdx::kNone);
        return call.Done(hr);
    }

    HRESULT WINAPI D3DXCheckVolumeTextureRequirements(IDirect3DDevice9* device, UINT* w, UINT* h, UINT* d, UINT* levels,
                                                      DWORD usage, D3DFORMAT* format, D3DPOOL pool)
    {
        Call call(Fn::CheckVolumeTextureRequirements,
                  {Ptr(w), Ptr(h), Ptr(levels), usage, format ? static_cast<uint64_t>(*format) : kvdx::kNone,
                   static_cast<uint64_t>(pool)});
        if (call.Faulted())
            return call.FaultResult();
        REAL(D3DXCheckVolumeTextureRequirements,
             HRESULT(WINAPI*)(IDirect3DDevice9*, UINT*, UINT*, UINT*, UINT*, DWORD, D3DFORMAT*, D3DPOOL));
        HRESULT hr = real(device, w, h, d, levels, usage, format, pool);
        call.Add(format ? static_cast<uint64_t>(*format) : kvdx::kNone);
        return call.Done(hr);
    }

    // --- Filter: source level, filter.

    HRESULT WINAPI D3DXFilterTexture(IDirect3DBaseTexture9* texture, const PALETTEENTRY* palette, UINT level,
                                     DWORD filter)
    {
        Call call(Fn::FilterTexture, {level, filter});
        if (call.Faulted())
            return call.FaultResult();
        REAL(D3DXFilterTexture, HRESULT(WINAPI*)(IDirect3DBaseTexture9*, const PALETTEENTRY*, UINT, DWORD));
        return call.Done(real(texture, palette, level, filter));
    }

    // --- Loads: destination rectangle or box, source rectangle or box, filter;
    // from memory also the source format and pitches first.

    HRESULT WINAPI D3DXLoadSurfaceFromSurface(IDirect3DSurface9* dst, const PALETTEENTRY* dstPalette,
                                              const RECT* dstRect, IDirect3DSurface9* src,
                                              const PALETTEENTRY* srcPalette, const RECT* srcRect, DWORD filter,
                                              D3DCOLOR key)
    {
        Call call(Fn::LoadSurfaceFromSurface, {});
        call.Rect(dstRect);
        call.Rect(srcRect);
        call.Add(filter);
        if (call.Faulted())
            return call.FaultResult();
        REAL(D3DXLoadSurfaceFromSurface,
             HRESULT(WINAPI*)(IDirect3DSurface9*, const PALETTEENTRY*, const RECT*, IDirect3DSurface9*,
                              const PALETTEENTRY*, const RECT*, DWORD, D3DCOLOR));
        return call.Done(real(dst, dstPalette, dstRect, src, srcPalette, srcRect, filter, key));
    }

    HRESULT WINAPI D3DXLoadSurfaceFromMemory(IDirect3DSurface9* dst, const PALETTEENTRY* dstPalette,
                                             const RECT* dstRect, const void* src, D3DFORMAT format, UINT pitch,
                                             const PALETTEENTRY* srcPalette, const RECT* srcRect, DWORD filter,
                                             D3DCOLOR key)
    {
        Call call(Fn::LoadSurfaceFromMemory, {static_cast<uint64_t>(format), pitch});
        call.Rect(dstRect);
        call.Rect(srcRect);
        call.Add(filter);
        if (call.Faulted())
            return call.FaultResult();
        REAL(D3DXLoadSurfaceFromMemory,
             HRESULT(WINAPI*)(IDirect3DSurface9*, const PALETTEENTRY*, const RECT*, const void*, D3DFORMAT, UINT,
                              const PALETTEENTRY*, const RECT*, DWORD, D3DCOLOR));
        return call.Done(real(dst, dstPalette, dstRect, src, format, pitch, srcPalette, srcRect, filter, key));
    }

    HRESULT WINAPI D3DXLoadVolumeFromVolume(IDirect3DVolume9* dst, const PALETTEENTRY* dstPalette, const D3DBOX* dstBox,
                                            IDirect3DVolume9* src, const PALETTEENTRY* srcPalette, const D3DBOX* srcBox,
                                            DWORD filter, D3DCOLOR key)
    {
        Call call(Fn::LoadVolumeFromVolume, {});
        call.Box(dstBox);
        call.Box(srcBox);
        call.Add(filter);
        if (call.Faulted())
            return call.FaultResult();
        REAL(D3DXLoadVolumeFromVolume,
             HRESULT(WINAPI*)(IDirect3DVolume9*, const PALETTEENTRY*, const D3DBOX*, IDirect3DVolume9*,
                              const PALETTEENTRY*, const D3DBOX*, DWORD, D3DCOLOR));
        return call.Done(real(dst, dstPalette, dstBox, src, srcPalette, srcBox, filter, key));
    }

    HRESULT WINAPI D3DXLoadVolumeFromMemory(IDirect3DVolume9* dst, const PALETTEENTRY* dstPalette, const D3DBOX* dstBox,
                                            const void* src, D3DFORMAT format, UINT rowPitch, UINT slicePitch,
                                            const PALETTEENTRY* srcPalette, const D3DBOX* srcBox, DWORD filter,
                                            D3DCOLOR key)
    {
        Call call(Fn::LoadVolumeFromMemory, {static_cast<uint64_t>(format), rowPitch, slicePitch});
        call.Box(dstBox);
        call.Box(srcBox);
        call.Add(filter);
        if (call.Faulted())
            return call.FaultResult();
        REAL(D3DXLoadVolumeFromMemory,
             HRESULT(WINAPI*)(IDirect3DVolume9*, const PALETTEENTRY*, const D3DBOX*, const void*, D3DFORMAT, UINT, UINT,
                              const PALETTEENTRY*, const D3DBOX*, DWORD, D3DCOLOR));
        return call.Done(
            real(dst, dstPalette, dstBox, src, format, rowPitch, slicePitch, srcPalette, srcBox, filter, key));
    }

    // --- Saves: the file format; the path in the record's text.

    HRESULT WINAPI D3DXSaveTextureToFileA(const char* path, D3DXIMAGE_FILEFORMAT format, IDirect3DBaseTexture9* texture,
                                          const PALETTEENTRY* palette)
    {
        Call call(Fn::SaveTextureToFileA, {static_cast<uint64_t>(format)});
        call.Path(path);
        if (call.Faulted())
            return call.FaultResult();
        REAL(D3DXSaveTextureToFileA,
             HRESULT(WINAPI*)(const char*, D3DXIMAGE_FILEFORMAT, IDirect3DBaseTexture9*, const PALETTEENTRY*));
        return call.Done(real(path, format, texture, palette));
    }

    HRESULT WINAPI D3DXSaveTextureToFileInMemory(ID3DXBuffer** out, D3DXIMAGE_FILEFORMAT format,
                                                 IDirect3DBaseTexture9* texture, const PALETTEENTRY* palette)
    {
        Call call(Fn::SaveTextureToFileInMemory, {static_cast<uint64_t>(format)});
        if (call.Faulted())
            return *out = nullptr, call.FaultResult();
        REAL(D3DXSaveTextureToFileInMemory,
             HRESULT(WINAPI*)(ID3DXBuffer**, D3DXIMAGE_FILEFORMAT, IDirect3DBaseTexture9*, const PALETTEENTRY*));
        return call.Done(real(out, format, texture, palette));
    }

    HRESULT WINAPI D3DXSaveSurfaceToFileA(const char* path, D3DXIMAGE_FILEFORMAT format, IDirect3DSurface9* surface,
                                          const PALETTEENTRY* palette, const RECT* rect)
    {
        Call call(Fn::SaveSurfaceToFileA, {static_cast<uint64_t>(format)});
        call.Rect(rect);
        call.Path(path);
        if (call.Faulted())
            return call.FaultResult();
        REAL(D3DXSaveSurfaceToFileA,
             HRESULT(WINAPI*)(const char*, D3DXIMAGE_FILEFORMAT, IDirect3DSurface9*, const PALETTEENTRY*, const RECT*));
        return call.Done(real(path, format, surface, palette, rect));
    }

    // --- Reading files: the size; the info's file format after it.

    HRESULT WINAPI D3DXGetImageInfoFromFileInMemory(const void* data, UINT size, D3DXIMAGE_INFO* info)
    {
        Call call(Fn::GetImageInfoFromFileInMemory, {size});
        if (call.Faulted())
            return call.FaultResult();
        REAL(D3DXGetImageInfoFromFileInMemory, HRESULT(WINAPI*)(const void*, UINT, D3DXIMAGE_INFO*));
        HRESULT hr = real(data, size, info);
        call.Add(SUCCEEDED(hr) && info ? static_cast<uint64_t>(info->ImageFileFormat) : kvdx::kNone);
        return call.Done(hr);
    }

    HRESULT WINAPI D3DXCreateTextureFromFileInMemoryEx(IDirect3DDevice9* device, const void* data, UINT size, UINT w,
                                                       UINT h, UINT levels, DWORD usage, D3DFORMAT format, D3DPOOL pool,
                                                       DWORD filter, DWORD mipFilter, D3DCOLOR key,
                                                       D3DXIMAGE_INFO* info, PALETTEENTRY* palette,
                                                       IDirect3DTexture9** out)
    {
        Call call(Fn::CreateTextureFromFileInMemoryEx,
                  {size, w, h, levels, usage, static_cast<uint64_t>(format), static_cast<uint64_t>(pool)});
        if (call.Faulted())
            return *out = nullptr, call.FaultResult();
        REAL(D3DXCreateTextureFromFileInMemoryEx,
             HRESULT(WINAPI*)(IDirect3DDevice9*, const void*, UINT, UINT, UINT, UINT, DWORD, D3DFORMAT, D3DPOOL, DWORD,
                              DWORD, D3DCOLOR, D3DXIMAGE_INFO*, PALETTEENTRY*, IDirect3DTexture9**));
        return call.Done(
            real(device, data, size, w, h, levels, usage, format, pool, filter, mipFilter, key, info, palette, out));
    }

    HRESULT WINAPI D3DXCreateCubeTextureFromFileInMemoryEx(IDirect3DDevice9* device, const void* data, UINT size,
                                                           UINT edge, UINT levels, DWORD usage, D3DFORMAT format,
                                                           D3DPOOL pool, DWORD filter, DWORD mipFilter, D3DCOLOR key,
                                                           D3DXIMAGE_INFO* info, PALETTEENTRY* palette,
                                                           IDirect3DCubeTexture9** out)
    {
        Call call(Fn::CreateCubeTextureFromFileInMemoryEx,
                  {size, edge, edge, levels, usage, static_cast<uint64_t>(format), static_cast<uint64_t>(pool)});
        if (call.Faulted())
            return *out = nullptr, call.FaultResult();
        REAL(D3DXCreateCubeTextureFromFileInMemoryEx,
             HRESULT(WINAPI*)(IDirect3DDevice9*, const void*, UINT, UINT, UINT, DWORD, D3DFORMAT, D3DPOOL, DWORD, DWORD,
                              D3DCOLOR, D3DXIMAGE_INFO*, PALETTEENTRY*, IDirect3DCubeTexture9**));
        return call.Done(
            real(device, data, size, edge, levels, usage, format, pool, filter, mipFilter, key, info, palette, out));
    }

    HRESULT WINAPI D3DXCreateVolumeTextureFromFileInMemoryEx(IDirect3DDevice9* device, const void* data, UINT size,
                                                             UINT w, UINT h, UINT d, UINT levels, DWORD usage,
                                                             D3DFORMAT format, D3DPOOL pool, DWORD filter,
                                                             DWORD mipFilter, D3DCOLOR key, D3DXIMAGE_INFO* info,
                                                             PALETTEENTRY* palette, IDirect3DVolumeTexture9** out)
    {
        Call call(Fn::CreateVolumeTextureFromFileInMemoryEx,
                  {size, w, h, d, levels, usage, static_cast<uint64_t>(format), static_cast<uint64_t>(pool)});
        if (call.Faulted())
            return *out = nullptr, call.FaultResult();
        REAL(D3DXCreateVolumeTextureFromFileInMemoryEx,
             HRESULT(WINAPI*)(IDirect3DDevice9*, const void*, UINT, UINT, UINT, UINT, UINT, DWORD, D3DFORMAT, D3DPOOL,
                              DWORD, DWORD, D3DCOLOR, D3DXIMAGE_INFO*, PALETTEENTRY*, IDirect3DVolumeTexture9**));
        return call.Done(
            real(device, data, size, w, h, d, levels, usage, format, pool, filter, mipFilter, key, info, palette, out));
    }

} // extern "C"
