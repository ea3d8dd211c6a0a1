// Rendered pixels back to the CPU: screenshots into files and memory, and the
// read-back of render-target pixel buffers through surfaces kept from frame to
// frame. A render target cannot be locked, and a multisampled one cannot be
// read at all, so every road copies (and first resolves) into system memory.
#include "D3D9HardwarePixelBuffer.h"
#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"

#include <d3dx9.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>

namespace kv
{

namespace
{

template <class T>
void SafeRelease(T*& p)
{
    if (p)
    {
        p->Release();
        p = nullptr;
    }
}

// Copies a render target into a system-memory surface of its size and format,
// resolving a multisampled one through a temporary render target first.
// Answers the name of the step that failed, or null.
const char* ReadRenderTarget(IDirect3DDevice9* device, IDirect3DSurface9* source, const D3DSURFACE_DESC& desc,
                             IDirect3DSurface9* copy)
{
    if (desc.MultiSampleType == D3DMULTISAMPLE_NONE)
        return SUCCEEDED(device->GetRenderTargetData(source, copy)) ? nullptr : "GetRenderTargetData";
    IDirect3DSurface9* resolved = nullptr;
    if (FAILED(device->CreateRenderTarget(desc.Width, desc.Height, desc.Format, D3DMULTISAMPLE_NONE, 0, FALSE,
                                          &resolved, nullptr)) ||
        !resolved)
        return "MULTISAMPLECreateRenderTarget";
    const char* failed = nullptr;
    if (FAILED(device->StretchRect(source, nullptr, resolved, nullptr, D3DTEXF_NONE)))
        failed = "MULTISAMPLEStretchRect";
    else if (FAILED(device->GetRenderTargetData(resolved, copy)))
        failed = "MULTISAMPLEGetRenderTargetData";
    resolved->Release();
    return failed;
}

// The device's render target 0 in a new system-memory surface. Answers the
// name of the step that failed (with nothing left to release), or null.
const char* Capture(IDirect3DDevice9* device, IDirect3DSurface9** copy, D3DSURFACE_DESC* desc)
{
    *copy = nullptr;
    if (!device)
        return "GetRenderTarget";
    IDirect3DSurface9* target = nullptr;
    if (FAILED(device->GetRenderTarget(0, &target)) || !target)
        return "GetRenderTarget";
    const char* failed = nullptr;
    if (FAILED(target->GetDesc(desc)))
        failed = "GetDesc";
    else if (FAILED(device->CreateOffscreenPlainSurface(desc->Width, desc->Height, desc->Format, D3DPOOL_SYSTEMMEM,
                                                        copy, nullptr)) ||
             !*copy)
        failed = "CreateOffscreenPlainSurface";
    else
        failed = ReadRenderTarget(device, target, *desc, *copy);
    target->Release();
    if (failed)
        SafeRelease(*copy);
    return failed;
}

// The size of a scaled image side: the product truncated, at least 1 (so a
// scale of 0, a negative one or NaN gives 1), and kept below 2^32 so that the
// conversion is defined; D3DX refuses what the device cannot make.
unsigned ScaledSide(unsigned side, float scale)
{
    const float product = static_cast<float>(side) * scale;
    if (!(product >= 1.0f))
        return 1;
    return product < 4294967296.0f ? static_cast<unsigned>(product) : 0xFFFFFFFFu;
}

// Copies a render-target pixel buffer into the kept system-memory surface of
// its size and format and locks that; null when that fails. Only a surface
// that cannot be made and a copy that fails are logged.
IDirect3DSurface9* LockedReadBack(IDirect3DDevice9* device,
                                  std::map<CD3D9RenderSystem::ReadbackKey, IDirect3DSurface9*>& surfaces,
                                  CHardwarePixelBuffer* buffer, D3DLOCKED_RECT* locked)
{
    CD3D9HardwarePixelBuffer* d3dBuffer = static_cast<CD3D9HardwarePixelBuffer*>(buffer);
    IDirect3DSurface9* surface = d3dBuffer ? d3dBuffer->getSurface() : nullptr;
    D3DSURFACE_DESC desc;
    if (!surface || surface->GetDesc(&desc) != D3D_OK || !(desc.Usage & D3DUSAGE_RENDERTARGET))
        return nullptr;

    // One surface for each size and format ever read: a read each frame
    // allocates nothing after the first.
    const CD3D9RenderSystem::ReadbackKey key(desc.Width, desc.Height, desc.Format);
    const auto found = surfaces.find(key);
    IDirect3DSurface9* copy = found != surfaces.end() ? found->second : nullptr;
    if (!copy)
    {
        if (device->CreateOffscreenPlainSurface(desc.Width, desc.Height, desc.Format, D3DPOOL_SYSTEMMEM, &copy,
                                                nullptr) != D3D_OK)
        {
            LogError("Failed to BeginGetRenderTargetData, CreateOffscreenPlainSurface");
            return nullptr;
        }
        if (!copy)
            return nullptr;
        surfaces[key] = copy;
    }
    // A second begin of this size before the end finds the surface still
    // locked, and the device refuses to copy into it.
    if (const char* failed = ReadRenderTarget(device, surface, desc, copy))
    {
        LogError("Failed to BeginGetRenderTargetData, %s", failed);
        return nullptr;
    }
    return copy->LockRect(locked, nullptr, 0) == D3D_OK ? copy : nullptr;
}

} // namespace

bool CD3D9RenderSystem::ScreenShotToMemory(void** pixels, unsigned* size, unsigned* pitch)
{
    if (!pixels || !size || !pitch)
    {
        LogError("Failed to ScreenShot: no place for the pixels, their size or their pitch");
        return false;
    }
    IDirect3DSurface9* copy = nullptr;
    D3DSURFACE_DESC desc;
    if (const char* failed = Capture(m_pD3D9Device, &copy, &desc))
    {
        LogError("Failed to ScreenShot: %s", failed);
        return false;
    }
    D3DLOCKED_RECT locked;
    if (FAILED(copy->LockRect(&locked, nullptr, 0)))
    {
        copy->Release();
        return false;
    }
    // Four bytes a pixel, whatever the surface has; the rows keep the source's
    // pitch. A surface of narrower pixels holds fewer bytes than that: the
    // rest is zero rather than memory beyond the surface.
    const size_t bytes = static_cast<size_t>(desc.Width) * desc.Height * 4;
    const size_t available = static_cast<size_t>(locked.Pitch > 0 ? locked.Pitch : 0) * desc.Height;
    unsigned char* memory = static_cast<unsigned char*>(std::malloc(bytes ? bytes : 1));
    if (memory)
    {
        std::memcpy(memory, locked.pBits, std::min(bytes, available));
        if (available < bytes)
            std::memset(memory + available, 0, bytes - available);
        *pixels = memory;
        *size = static_cast<unsigned>(bytes);
        *pitch = static_cast<unsigned>(locked.Pitch);
    }
    else
    {
        LogError("Failed to ScreenShot: out of memory for %u bytes", static_cast<unsigned>(bytes));
    }
    copy->UnlockRect();
    copy->Release();
    return memory != nullptr;
}

bool CD3D9RenderSystem::ScreenShot(const char* path, float scale, const RECT* source)
{
    const char* name = path ? path : "";
    IDirect3DSurface9* copy = nullptr;
    D3DSURFACE_DESC desc;
    if (const char* failed = Capture(m_pD3D9Device, &copy, &desc))
    {
        LogError("Failed to ScreenShot:%s, %f, %s", name, static_cast<double>(scale), failed);
        return false;
    }
    D3DXIMAGE_FILEFORMAT format = D3DXIFF_JPG;
    D3D9Mappings::toD3DXImageFileFormat(name, &format);

    // The rectangle is one of the saved image: of the scaled one when there is one.
    if (std::fabs(scale - 1.0f) <= FLT_EPSILON)
    {
        const bool saved = SUCCEEDED(D3DXSaveSurfaceToFileA(name, format, copy, nullptr, source));
        copy->Release();
        return saved;
    }

    const unsigned width = ScaledSide(desc.Width, scale);
    const unsigned height = ScaledSide(desc.Height, scale);
    // 24-bit colour whatever the target has: what image files hold.
    IDirect3DTexture9* texture = nullptr;
    if (D3DXCreateTexture(m_pD3D9Device, width, height, 1, 0, D3DFMT_R8G8B8, D3DPOOL_SYSTEMMEM, &texture) != D3D_OK ||
        !texture)
    {
        LogError("Create temporary texture failed D3DXCreateTexture in CD3D9RenderSystem::ScreenShot, %d, %d",
                 static_cast<int>(width), static_cast<int>(height));
        SafeRelease(texture);
        copy->Release();
        return false;
    }
    IDirect3DSurface9* scaled = nullptr;
    bool saved = false;
    if (texture->GetSurfaceLevel(0, &scaled) != D3D_OK || !scaled)
        LogError("Get Surface level failed in CD3D9RenderSystem::ScreenShot");
    else
        saved =
            SUCCEEDED(D3DXLoadSurfaceFromSurface(scaled, nullptr, nullptr, copy, nullptr, nullptr, D3DX_DEFAULT, 0)) &&
            SUCCEEDED(D3DXSaveSurfaceToFileA(name, format, scaled, nullptr, source));
    SafeRelease(scaled);
    texture->Release();
    copy->Release();
    return saved;
}

bool CD3D9RenderSystem::BeginGetRenderTargetData(CHardwarePixelBuffer* buffer, void** bits, int* pitch)
{
    IDirect3DSurface9* const open = m_pLockedReadbackSurface;
    m_pLockedReadbackSurface = nullptr;
    D3DLOCKED_RECT locked;
    IDirect3DSurface9* copy = bits && pitch && m_pD3D9Device
                                  ? LockedReadBack(m_pD3D9Device, m_mapReadbackSurfaces, buffer, &locked)
                                  : nullptr;
    if (!copy)
    {
        // A read-back still open stays the one that EndGetRenderTargetData closes.
        m_pLockedReadbackSurface = open;
        return false;
    }
    // Only the last read-back can be ended: one of another size left open
    // would stay locked for good.
    if (open)
        open->UnlockRect();
    *bits = locked.pBits;
    *pitch = locked.Pitch;
    m_pLockedReadbackSurface = copy;
    return true;
}

void CD3D9RenderSystem::EndGetRenderTargetData()
{
    if (!m_pLockedReadbackSurface)
    {
        LogError("EndGetRenderTargetData without an open BeginGetRenderTargetData");
        return;
    }
    m_pLockedReadbackSurface->UnlockRect();
    m_pLockedReadbackSurface = nullptr;
}

} // namespace kv
