#include "ProxyResources.h"

#include "ProxyCall.h"

#include <atomic>

using kvproxy::Method;

namespace
{

std::atomic<bool> g_watching{false};
SRWLOCK g_patchLock = SRWLOCK_INIT;

// One patched entry of an interface's table. A driver may serve one interface
// through several classes, so a few tables per entry are remembered, each with
// the function that stood in it.
struct Entry
{
    void** tables[4];
    void* originals[4];
    std::atomic<int> count{0};
};

void* Original(Entry& e, const void* self)
{
    void** table = *static_cast<void** const*>(self);
    const int n = e.count.load(std::memory_order_acquire);
    for (int i = 0; i < n; ++i)
        if (e.tables[i] == table)
            return e.originals[i];
    return nullptr;
}

void Patch(Entry& e, const void* self, unsigned index, void* hook)
{
    void** table = *static_cast<void** const*>(self);
    AcquireSRWLockExclusive(&g_patchLock);
    const int n = e.count.load(std::memory_order_relaxed);
    bool known = false;
    for (int i = 0; i < n; ++i)
        known = known || e.tables[i] == table;
    DWORD old = 0;
    if (!known && n < 4 && table[index] != hook && VirtualProtect(&table[index], sizeof(void*), PAGE_READWRITE, &old))
    {
        e.tables[n] = table;
        e.originals[n] = table[index];
        e.count.store(n + 1, std::memory_order_release);
        table[index] = hook;
        VirtualProtect(&table[index], sizeof(void*), old, &old);
        FlushInstructionCache(GetCurrentProcess(), &table[index], sizeof(void*));
    }
    ReleaseSRWLockExclusive(&g_patchLock);
}

// Places in the tables, in the order of MinGW's d3d9.h: IUnknown (3 entries),
// IDirect3DResource9 (8 more), IDirect3DBaseTexture9 (6 more), then the kind's own.
constexpr unsigned kTextureLock = 19, kTextureUnlock = 20; // texture, cube texture, volume texture
constexpr unsigned kSurfaceLock = 13, kSurfaceUnlock = 14;
constexpr unsigned kBufferLock = 11, kBufferUnlock = 12;
constexpr unsigned kQueryIssue = 6, kQueryGetData = 7;

// clang-format off
#define KV_UNPAREN(...) __VA_ARGS__
#define KV_HOOK(name, Self, method, faultOut, Params, Args, TraceArgs)                                      \
    Entry g_##name;                                                                                           \
    HRESULT STDMETHODCALLTYPE name Params                                                                     \
    {                                                                                                         \
        typedef HRESULT(STDMETHODCALLTYPE * Fn) Params;                                                      \
        Fn real = reinterpret_cast<Fn>(Original(g_##name, self));                                             \
        if (!real)                                                                                            \
            return D3DERR_INVALIDCALL;                                                                        \
        if (!g_watching.load(std::memory_order_relaxed))                                                      \
            return real Args;                                                                                 \
        ProxyCall call(Method::method, KV_UNPAREN TraceArgs);                                                          \
        if (call.Faulted())                                                                                   \
        {                                                                                                     \
            faultOut;                                                                                         \
            return call.FaultResult();                                                                        \
        }                                                                                                     \
        return call.Done(real Args);                                                                          \
    }
// clang-format on

KV_HOOK(TextureLockRect, IDirect3DTexture9, Texture_LockRect, if (locked) locked->pBits = nullptr,
        (IDirect3DTexture9 * self, UINT level, D3DLOCKED_RECT* locked, const RECT* rect, DWORD flags),
        (self, level, locked, rect, flags), ({PtrArg(self), level, PtrArg(rect), flags}))
KV_HOOK(TextureUnlockRect, IDirect3DTexture9, Texture_UnlockRect, (void)0, (IDirect3DTexture9 * self, UINT level),
        (self, level), ({PtrArg(self), level}))
KV_HOOK(CubeLockRect, IDirect3DCubeTexture9, CubeTexture_LockRect, if (locked) locked->pBits = nullptr,
        (IDirect3DCubeTexture9 * self, D3DCUBEMAP_FACES face, UINT level, D3DLOCKED_RECT* locked, const RECT* rect,
         DWORD flags),
        (self, face, level, locked, rect, flags),
        ({PtrArg(self), static_cast<uint32_t>(face), level, PtrArg(rect), flags}))
KV_HOOK(CubeUnlockRect, IDirect3DCubeTexture9, CubeTexture_UnlockRect, (void)0,
        (IDirect3DCubeTexture9 * self, D3DCUBEMAP_FACES face, UINT level), (self, face, level),
        ({PtrArg(self), static_cast<uint32_t>(face), level}))
KV_HOOK(VolumeLockBox, IDirect3DVolumeTexture9, VolumeTexture_LockBox, if (locked) locked->pBits = nullptr,
        (IDirect3DVolumeTexture9 * self, UINT level, D3DLOCKED_BOX* locked, const D3DBOX* box, DWORD flags),
        (self, level, locked, box, flags), ({PtrArg(self), level, PtrArg(box), flags}))
KV_HOOK(VolumeUnlockBox, IDirect3DVolumeTexture9, VolumeTexture_UnlockBox, (void)0,
        (IDirect3DVolumeTexture9 * self, UINT level), (self, level), ({PtrArg(self), level}))
KV_HOOK(SurfaceLockRect, IDirect3DSurface9, Surface_LockRect, if (locked) locked->pBits = nullptr,
        (IDirect3DSurface9 * self, D3DLOCKED_RECT* locked, const RECT* rect, DWORD flags), (self, locked, rect, flags),
        ({PtrArg(self), PtrArg(rect), flags}))
KV_HOOK(SurfaceUnlockRect, IDirect3DSurface9, Surface_UnlockRect, (void)0, (IDirect3DSurface9 * self), (self),
        ({PtrArg(self)}))
KV_HOOK(VertexBufferLock, IDirect3DVertexBuffer9, VertexBuffer_Lock, if (data) * data = nullptr,
        (IDirect3DVertexBuffer9 * self, UINT offset, UINT size, void** data, DWORD flags),
        (self, offset, size, data, flags), ({PtrArg(self), offset, size, flags}))
KV_HOOK(VertexBufferUnlock, IDirect3DVertexBuffer9, VertexBuffer_Unlock, (void)0, (IDirect3DVertexBuffer9 * self),
        (self), ({PtrArg(self)}))
KV_HOOK(IndexBufferLock, IDirect3DIndexBuffer9, IndexBuffer_Lock, if (data) * data = nullptr,
        (IDirect3DIndexBuffer9 * self, UINT offset, UINT size, void** data, DWORD flags),
        (self, offset, size, data, flags), ({PtrArg(self), offset, size, flags}))
KV_HOOK(IndexBufferUnlock, IDirect3DIndexBuffer9, IndexBuffer_Unlock, (void)0, (IDirect3DIndexBuffer9 * self), (self),
        ({PtrArg(self)}))
KV_HOOK(QueryIssue, IDirect3DQuery9, Query_Issue, (void)0, (IDirect3DQuery9 * self, DWORD flags), (self, flags),
        ({PtrArg(self), flags}))
KV_HOOK(QueryGetData, IDirect3DQuery9, Query_GetData, (void)0,
        (IDirect3DQuery9 * self, void* data, DWORD size, DWORD flags), (self, data, size, flags),
        ({PtrArg(self), PtrArg(data), size, flags}))

#undef KV_HOOK
#undef KV_UNPAREN

template <class T>
void* Fn(T f)
{
    return reinterpret_cast<void*>(f);
}

} // namespace

namespace ProxyResources
{

void SetWatching(bool on)
{
    g_watching.store(on, std::memory_order_relaxed);
}

bool Watching()
{
    return g_watching.load(std::memory_order_relaxed);
}

void Watch(IDirect3DTexture9* texture)
{
    if (!texture)
        return;
    Patch(g_TextureLockRect, texture, kTextureLock, Fn(&TextureLockRect));
    Patch(g_TextureUnlockRect, texture, kTextureUnlock, Fn(&TextureUnlockRect));
    // The levels' surfaces are handed out by the texture, never by the device.
    IDirect3DSurface9* level = nullptr;
    if (SUCCEEDED(texture->GetSurfaceLevel(0, &level)) && level)
    {
        Watch(level);
        level->Release();
    }
}

void Watch(IDirect3DCubeTexture9* texture)
{
    if (!texture)
        return;
    Patch(g_CubeLockRect, texture, kTextureLock, Fn(&CubeLockRect));
    Patch(g_CubeUnlockRect, texture, kTextureUnlock, Fn(&CubeUnlockRect));
    IDirect3DSurface9* face = nullptr;
    if (SUCCEEDED(texture->GetCubeMapSurface(D3DCUBEMAP_FACE_POSITIVE_X, 0, &face)) && face)
    {
        Watch(face);
        face->Release();
    }
}

void Watch(IDirect3DVolumeTexture9* texture)
{
    if (!texture)
        return;
    Patch(g_VolumeLockBox, texture, kTextureLock, Fn(&VolumeLockBox));
    Patch(g_VolumeUnlockBox, texture, kTextureUnlock, Fn(&VolumeUnlockBox));
}

void Watch(IDirect3DSurface9* surface)
{
    if (!surface)
        return;
    Patch(g_SurfaceLockRect, surface, kSurfaceLock, Fn(&SurfaceLockRect));
    Patch(g_SurfaceUnlockRect, surface, kSurfaceUnlock, Fn(&SurfaceUnlockRect));
}

void Watch(IDirect3DVertexBuffer9* buffer)
{
    if (!buffer)
        return;
    Patch(g_VertexBufferLock, buffer, kBufferLock, Fn(&VertexBufferLock));
    Patch(g_VertexBufferUnlock, buffer, kBufferUnlock, Fn(&VertexBufferUnlock));
}

void Watch(IDirect3DIndexBuffer9* buffer)
{
    if (!buffer)
        return;
    Patch(g_IndexBufferLock, buffer, kBufferLock, Fn(&IndexBufferLock));
    Patch(g_IndexBufferUnlock, buffer, kBufferUnlock, Fn(&IndexBufferUnlock));
}

void Watch(IDirect3DQuery9* query)
{
    if (!query)
        return;
    Patch(g_QueryIssue, query, kQueryIssue, Fn(&QueryIssue));
    Patch(g_QueryGetData, query, kQueryGetData, Fn(&QueryGetData));
}

} // namespace ProxyResources
