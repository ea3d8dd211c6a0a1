#include "D3D9HardwarePixelBuffer.h"
#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"
#include "D3D9RenderTexture.h"

#include "engine/DataStream.h"
#include "engine/PixelUtil.h"

#include <d3dx9.h>

#include <cstring>

namespace kv
{

namespace
{

RECT ToRect(const Box& box)
{
    RECT r;
    r.left = static_cast<LONG>(box.left);
    r.top = static_cast<LONG>(box.top);
    r.right = static_cast<LONG>(box.right);
    r.bottom = static_cast<LONG>(box.bottom);
    return r;
}

D3DBOX ToD3DBox(const Box& box)
{
    D3DBOX b;
    b.Left = box.left;
    b.Top = box.top;
    b.Right = box.right;
    b.Bottom = box.bottom;
    b.Front = box.front;
    b.Back = box.back;
    return b;
}

// Pitches come in bytes from Direct3D and are kept in pixels.
void FillFromLock(PixelBox& box, void* bits, unsigned rowPitchBytes, unsigned slicePitchBytes, bool volume)
{
    const unsigned elem = PixelUtil::getNumElemBytes(box.format);
    if (elem != 0)
    {
        box.rowPitch = rowPitchBytes / elem;
        box.slicePitch = volume ? slicePitchBytes / elem : box.getHeight() * box.rowPitch;
    }
    else if (PixelUtil::isCompressed(box.format))
    {
        box.rowPitch = box.getWidth();
        box.slicePitch = box.getWidth() * box.getHeight();
    }
    else
    {
        LogError("Invalid pixel format fromD3DLock");
    }
    box.data = bits;
}

void LogFailed(const char* text, HRESULT hr)
{
    LogError(text, static_cast<int>(hr), DXGetErrorString(hr), DXGetErrorDescription(hr));
}

template <class T>
void SafeRelease(T*& p)
{
    if (p)
    {
        p->Release();
        p = nullptr;
    }
}

} // namespace

CD3D9HardwarePixelBuffer::CD3D9HardwarePixelBuffer(Usage usage, CD3D9Texture* owner)
    : CHardwarePixelBuffer(0, 0, 0, PF_UNKNOWN, usage, false), m_lockedBox(), m_pBinding(nullptr), m_pOwner(owner),
      m_nLockFlags(0)
{
}

CD3D9HardwarePixelBuffer::~CD3D9HardwarePixelBuffer()
{
    if (m_pRenderTexture)
    {
        m_pRenderTexture->m_pBuffer = nullptr;
        m_pRenderTexture = nullptr;
    }
    unbind();
}

void CD3D9HardwarePixelBuffer::bind(IDirect3DSurface9* surface, IDirect3DSurface9* fsaaSurface, unsigned fsaa)
{
    if (!m_pBinding)
        m_pBinding = new PixelBufferBinding;
    m_pBinding->surface = surface;
    if (surface)
        surface->AddRef();
    m_pBinding->volume = nullptr;
    m_pBinding->fsaaSurface = fsaaSurface;

    D3DSURFACE_DESC desc;
    std::memset(&desc, 0, sizeof desc);
    if (!surface || FAILED(surface->GetDesc(&desc)))
        LogError("Could not get surface information CD3D9HardwarePixelBuffer::CD3D9HardwarePixelBuffer");
    mWidth = desc.Width;
    mHeight = desc.Height;
    mDepth = 1;
    mFormat = D3D9Mappings::fromD3DFormat(desc.Format);
    afterBind();

    // Made once: after a device reset the buffer is bound again and keeps the
    // target the engine may still hold.
    if ((mUsage & USAGE_RENDERTARGET) && !m_pRenderTexture)
        m_pRenderTexture = new CD3D9RenderTexture(this, false, static_cast<unsigned char>(fsaa));
}

void CD3D9HardwarePixelBuffer::bind(IDirect3DVolume9* volume)
{
    if (!m_pBinding)
        m_pBinding = new PixelBufferBinding;
    m_pBinding->volume = volume;
    if (volume)
        volume->AddRef();
    m_pBinding->surface = nullptr;
    m_pBinding->fsaaSurface = nullptr;

    D3DVOLUME_DESC desc;
    std::memset(&desc, 0, sizeof desc);
    if (!volume || FAILED(volume->GetDesc(&desc)))
        LogError("Could not get volume information CD3D9HardwarePixelBuffer::CD3D9HardwarePixelBuffer");
    mWidth = desc.Width;
    mHeight = desc.Height;
    mDepth = desc.Depth;
    mFormat = D3D9Mappings::fromD3DFormat(desc.Format);
    afterBind();
}

void CD3D9HardwarePixelBuffer::afterBind()
{
    mRowPitch = mWidth;
    mSlicePitch = mWidth * mHeight;
    mSizeInBytes = static_cast<unsigned>(PixelUtil::getMemorySize(mWidth, mHeight, mDepth, mFormat));
}

void CD3D9HardwarePixelBuffer::unbind()
{
    if (!m_pBinding)
        return;
    SafeRelease(m_pBinding->surface);
    SafeRelease(m_pBinding->volume);
    delete m_pBinding;
    m_pBinding = nullptr;
}

bool CD3D9HardwarePixelBuffer::isBound(const char* operation) const
{
    if (getSurface() || getVolume())
        return true;
    LogError("The pixel buffer has no surface or volume (lost device?) CD3D9HardwarePixelBuffer::%s", operation);
    return false;
}

CRenderTexture* CD3D9HardwarePixelBuffer::getRenderTarget(unsigned)
{
    return m_pRenderTexture.get();
}

void CD3D9HardwarePixelBuffer::clearRenderTarget(unsigned)
{
    if (m_pRenderTexture)
    {
        m_pRenderTexture->m_pBuffer = nullptr;
        m_pRenderTexture = nullptr;
    }
}

// --- Locking.

PixelBox CD3D9HardwarePixelBuffer::lockImpl(const Box& lockBox, LockOptions options)
{
    if (mUsage & USAGE_RENDERTARGET)
    {
        LogError("directx does not allow locking of or directly writing to RenderTargets. Use blitFromMemory if you "
                 "need the contents.D3D9HardwarePixelBuffer::lockImpl");
    }
    // Not the buffer mapping: a pixel buffer discards only when it is dynamic,
    // and reads only when asked to.
    DWORD flags = 0;
    if (options == LOCK_DISCARD)
        flags = (mUsage & USAGE_DYNAMIC) ? D3DLOCK_DISCARD : 0;
    else if (options == LOCK_READ_ONLY)
        flags = D3DLOCK_READONLY;
    m_lockedBox = lockBox;
    m_nLockFlags = flags;

    PixelBox result(lockBox.getWidth(), lockBox.getHeight(), lockBox.getDepth(), mFormat, nullptr);
    if (!isBound("lockImpl"))
        return result;

    if (IDirect3DSurface9* surface = getSurface())
    {
        const bool whole =
            lockBox.left == 0 && lockBox.top == 0 && lockBox.right == mWidth && lockBox.bottom == mHeight;
        RECT rect = ToRect(lockBox);
        D3DLOCKED_RECT locked;
        HRESULT hr = surface->LockRect(&locked, whole ? nullptr : &rect, flags);
        if (FAILED(hr))
        {
            LogFailed("Surface locking failed CD3D9HardwarePixelBuffer::lockImpl, %d, %s, %s", hr);
            return result;
        }
        FillFromLock(result, locked.pBits, static_cast<unsigned>(locked.Pitch), 0, false);
    }
    else
    {
        D3DBOX box = ToD3DBox(lockBox);
        D3DLOCKED_BOX locked;
        HRESULT hr = getVolume()->LockBox(&locked, &box, flags);
        if (FAILED(hr))
        {
            LogFailed("Volume locking failed CD3D9HardwarePixelBuffer::lockImpl, %d, %s, %s", hr);
            return result;
        }
        FillFromLock(result, locked.pBits, static_cast<unsigned>(locked.RowPitch),
                     static_cast<unsigned>(locked.SlicePitch), true);
    }
    return result;
}

void CD3D9HardwarePixelBuffer::UnlockImpl()
{
    if (IDirect3DSurface9* surface = getSurface())
        surface->UnlockRect();
    else if (IDirect3DVolume9* volume = getVolume())
        volume->UnlockBox();
}

// --- Copies between buffers.

void CD3D9HardwarePixelBuffer::blit(const ref_ptr<CHardwarePixelBuffer>& source, const Box& sourceBox,
                                    const Box& destBox)
{
    CD3D9HardwarePixelBuffer* src = static_cast<CD3D9HardwarePixelBuffer*>(source.get());
    if (!src || !isBound("blit") || !src->isBound("blit"))
        return;

    if (getSurface() && src->getSurface())
    {
        RECT srcRect = ToRect(sourceBox);
        RECT destRect = ToRect(destBox);
        D3DSURFACE_DESC desc;
        if (FAILED(src->getSurface()->GetDesc(&desc)))
        {
            LogError("Could not get surface information CD3D9HardwarePixelBuffer::blit");
            return;
        }
        // D3DX cannot read a render target: its content comes through system memory.
        if ((desc.Usage & D3DUSAGE_RENDERTARGET) && desc.MultiSampleType == D3DMULTISAMPLE_NONE)
        {
            IDirect3DDevice9* device = GetD3D9RenderSystem()->m_pD3D9Device;
            IDirect3DTexture9* temporary = nullptr;
            if (FAILED(D3DXCreateTexture(device, desc.Width, desc.Height, 1, 0, desc.Format, D3DPOOL_SYSTEMMEM,
                                         &temporary)))
            {
                LogError("Create temporary texture failed CD3D9HardwarePixelBuffer::blit");
                return;
            }
            IDirect3DSurface9* temporarySurface = nullptr;
            if (FAILED(temporary->GetSurfaceLevel(0, &temporarySurface)))
            {
                temporary->Release();
                LogError("Get surface level failed CD3D9HardwarePixelBuffer::blit");
                return;
            }
            if (SUCCEEDED(device->GetRenderTargetData(src->getSurface(), temporarySurface)))
            {
                HRESULT hr = D3DXLoadSurfaceFromSurface(getSurface(), nullptr, &destRect, temporarySurface, nullptr,
                                                        &srcRect, D3DX_DEFAULT, 0);
                temporarySurface->Release();
                temporary->Release();
                if (FAILED(hr))
                    LogError("D3DXLoadSurfaceFromSurface failed CD3D9HardwarePixelBuffer::blit");
                return;
            }
            temporarySurface->Release();
            temporary->Release();
        }
        if (FAILED(D3DXLoadSurfaceFromSurface(getSurface(), nullptr, &destRect, src->getSurface(), nullptr, &srcRect,
                                              D3DX_DEFAULT, 0)))
            LogError("D3DXLoadSurfaceFromSurface failed CD3D9HardwarePixelBuffer::blit");
    }
    else if (getVolume() && src->getVolume())
    {
        D3DBOX srcBox = ToD3DBox(sourceBox);
        D3DBOX dstBox = ToD3DBox(destBox);
        if (FAILED(D3DXLoadVolumeFromVolume(getVolume(), nullptr, &dstBox, src->getVolume(), nullptr, &srcBox,
                                            D3DX_DEFAULT, 0)))
            LogError("D3DXLoadVolumeFromVolume failed CD3D9HardwarePixelBuffer::blit");
    }
    else
    {
        CHardwarePixelBuffer::blit(source, sourceBox, destBox);
    }
}

// --- Copies from memory.

void CD3D9HardwarePixelBuffer::blitFromMemory(const PixelBox& source, const Box& destBox)
{
    if (!isBound("blitFromMemory"))
        return;
    if (!source.data)
    {
        LogError("No pixels to copy CD3D9HardwarePixelBuffer::blitFromMemory");
        return;
    }
    PixelBox pixels(source);
    ref_ptr<CMemoryDataStream> converted; // lives until the copy is done
    if (D3D9Mappings::toD3DFormat(source.format) == D3DFMT_UNKNOWN)
    {
        // Direct3D cannot read these pixels: they go over in this buffer's format.
        const unsigned w = source.getWidth(), h = source.getHeight(), d = source.getDepth();
        converted = CreateMemoryDataStream(static_cast<unsigned>(PixelUtil::getMemorySize(w, h, d, mFormat)), false);
        pixels = PixelBox(w, h, d, mFormat, converted->getPtr());
        if (!PixelUtil::bulkPixelConversion(source, pixels))
        {
            LogError("Cannot convert pixel format %d to %d CD3D9HardwarePixelBuffer::blitFromMemory",
                     static_cast<int>(source.format), static_cast<int>(mFormat));
            return;
        }
    }

    const bool compressed = PixelUtil::isCompressed(pixels.format);
    unsigned rowPitchBytes;
    if (compressed)
    {
        pixels.rowPitch = (pixels.rowPitch + 3) & ~3u;
        rowPitchBytes = pixels.rowPitch / 4 * (pixels.format == PF_DXT1 ? 8 : 16);
    }
    else
    {
        rowPitchBytes = PixelUtil::getNumElemBytes(pixels.format) * pixels.rowPitch;
    }

    if (IDirect3DSurface9* surface = getSurface())
    {
        RECT srcRect = ToRect(pixels);
        RECT destRect = ToRect(destBox);
        if (pixels.left == 0 && pixels.top == 0 && pixels.right == mWidth && pixels.bottom == mHeight &&
            pixels.format == mFormat)
        {
            // The data already has the surface's layout: rows are copied as they are.
            D3DLOCKED_RECT locked;
            if (FAILED(surface->LockRect(&locked, nullptr, 0)))
            {
                LogError("Failed to 3DC LockRect!!!");
                return;
            }
            const unsigned pitch = static_cast<unsigned>(locked.Pitch);
            const unsigned char* from = static_cast<const unsigned char*>(pixels.data);
            unsigned char* to = static_cast<unsigned char*>(locked.pBits);
            if (rowPitchBytes == pitch)
            {
                std::memcpy(to, from, PixelUtil::getMemorySize(mWidth, mHeight, 1, mFormat));
            }
            else if (rowPitchBytes < pitch)
            {
                const unsigned rows = compressed ? (mHeight + 3) / 4 : mHeight;
                for (unsigned row = 0; row < rows; ++row)
                    std::memcpy(to + std::size_t(row) * pitch, from + std::size_t(row) * rowPitchBytes, rowPitchBytes);
            }
            else
            {
                LogError("Failed to CD3D9HardwarePixelBuffer::blitFromMemory:%d, %d", static_cast<int>(rowPitchBytes),
                         static_cast<int>(pitch));
            }
            surface->UnlockRect();
            return;
        }
        if (FAILED(D3DXLoadSurfaceFromMemory(surface, nullptr, &destRect, pixels.data,
                                             D3D9Mappings::toD3DFormat(pixels.format), rowPitchBytes, nullptr, &srcRect,
                                             D3DX_DEFAULT, 0)))
            LogError("D3DXLoadSurfaceFromMemory failed CD3D9HardwarePixelBuffer::blitFromMemory");
        return;
    }

    unsigned slicePitchBytes;
    if (compressed)
        slicePitchBytes = pixels.slicePitch / 16 * (pixels.format == PF_DXT1 ? 8 : 16);
    else
        slicePitchBytes = PixelUtil::getNumElemBytes(pixels.format) * pixels.slicePitch;
    D3DBOX srcBox = ToD3DBox(pixels);
    D3DBOX dstBox = ToD3DBox(destBox);
    if (FAILED(D3DXLoadVolumeFromMemory(getVolume(), nullptr, &dstBox, pixels.data,
                                        D3D9Mappings::toD3DFormat(pixels.format), rowPitchBytes, slicePitchBytes,
                                        nullptr, &srcBox, D3DX_DEFAULT, 0)))
        LogError("D3DXLoadSurfaceFromMemory failed CD3D9HardwarePixelBuffer::blitFromMemory");
}

// --- Copies to memory.

void CD3D9HardwarePixelBuffer::blitToMemory(const Box& sourceBox, const PixelBox& dest)
{
    if (!isBound("blitToMemory"))
        return;
    const PixelFormat readFormat = D3D9Mappings::toD3DFormat(dest.format) != D3DFMT_UNKNOWN ? dest.format : mFormat;
    if (getSurface())
        blitToMemoryFromSurface(sourceBox, dest, readFormat);
    else
        blitToMemoryFromVolume(sourceBox, dest, readFormat);
}

void CD3D9HardwarePixelBuffer::blitToMemoryFromSurface(const Box& sourceBox, const PixelBox& dest,
                                                       PixelFormat readFormat)
{
    IDirect3DSurface9* surface = getSurface();
    IDirect3DDevice9* device = GetD3D9RenderSystem()->m_pD3D9Device;
    D3DSURFACE_DESC desc;
    if (FAILED(surface->GetDesc(&desc)))
    {
        LogError("Could not get surface information CD3D9HardwarePixelBuffer::blitToMemory");
        return;
    }
    const unsigned width = dest.getWidth(), height = dest.getHeight();
    // A whole render target in its own format is read back by the device.
    const bool readBack = (desc.Usage & D3DUSAGE_RENDERTARGET) && sourceBox.getWidth() == width &&
                          sourceBox.getHeight() == height && width == mWidth && height == mHeight &&
                          readFormat == mFormat;
    IDirect3DTexture9* temporary = nullptr;
    if (FAILED(D3DXCreateTexture(device, width, height, 1, 0, D3D9Mappings::toD3DFormat(readFormat),
                                 readBack ? D3DPOOL_SYSTEMMEM : D3DPOOL_SCRATCH, &temporary)))
    {
        LogError("Create temporary texture failed CD3D9HardwarePixelBuffer::blitToMemory");
        return;
    }
    IDirect3DSurface9* temporarySurface = nullptr;
    if (FAILED(temporary->GetSurfaceLevel(0, &temporarySurface)))
    {
        temporary->Release();
        LogError("Get surface level failed CD3D9HardwarePixelBuffer::blitToMemory");
        return;
    }
    D3DSURFACE_DESC temporaryDesc;
    if (FAILED(temporarySurface->GetDesc(&temporaryDesc)))
    {
        temporarySurface->Release();
        temporary->Release();
        LogError("Could not get surface information CD3D9HardwarePixelBuffer::blitToMemory");
        return;
    }
    if (!readBack || FAILED(device->GetRenderTargetData(surface, temporarySurface)))
    {
        RECT destRect = {0, 0, static_cast<LONG>(width), static_cast<LONG>(height)};
        RECT srcRect = ToRect(sourceBox);
        if (FAILED(D3DXLoadSurfaceFromSurface(temporarySurface, nullptr, &destRect, surface, nullptr, &srcRect,
                                              D3DX_DEFAULT, 0)))
        {
            temporarySurface->Release();
            temporary->Release();
            LogError("D3DXLoadSurfaceFromSurface failed CD3D9HardwarePixelBuffer::blitToMemory");
            return;
        }
    }
    D3DLOCKED_RECT locked;
    if (FAILED(temporarySurface->LockRect(&locked, nullptr, D3DLOCK_READONLY)))
    {
        temporarySurface->Release();
        temporary->Release();
        LogError("surface->LockRect CD3D9HardwarePixelBuffer::blitToMemory");
        return;
    }
    PixelBox read(width, height, dest.getDepth(), D3D9Mappings::fromD3DFormat(temporaryDesc.Format), nullptr);
    FillFromLock(read, locked.pBits, static_cast<unsigned>(locked.Pitch), 0, false);
    PixelUtil::bulkPixelConversion(read, dest);
    temporarySurface->UnlockRect();
    temporarySurface->Release();
    temporary->Release();
}

void CD3D9HardwarePixelBuffer::blitToMemoryFromVolume(const Box& sourceBox, const PixelBox& dest,
                                                      PixelFormat readFormat)
{
    IDirect3DDevice9* device = GetD3D9RenderSystem()->m_pD3D9Device;
    const unsigned width = dest.getWidth(), height = dest.getHeight(), depth = dest.getDepth();
    IDirect3DVolumeTexture9* temporary = nullptr;
    // One level: only the top one is read.
    if (FAILED(D3DXCreateVolumeTexture(device, width, height, depth, 1, 0, D3D9Mappings::toD3DFormat(readFormat),
                                       D3DPOOL_SCRATCH, &temporary)))
    {
        LogError("Create temporary texture failed CD3D9HardwarePixelBuffer::blitToMemory");
        return;
    }
    IDirect3DVolume9* temporaryVolume = nullptr;
    if (FAILED(temporary->GetVolumeLevel(0, &temporaryVolume)))
    {
        temporary->Release();
        LogError("Get volume level failed CD3D9HardwarePixelBuffer::blitToMemory");
        return;
    }
    D3DBOX destBox = {0, 0, width, height, 0, depth};
    D3DBOX srcBox = ToD3DBox(sourceBox);
    if (FAILED(D3DXLoadVolumeFromVolume(temporaryVolume, nullptr, &destBox, getVolume(), nullptr, &srcBox, D3DX_DEFAULT,
                                        0)))
    {
        temporaryVolume->Release();
        temporary->Release();
        LogError("D3DXLoadVolumeFromVolume failed CD3D9HardwarePixelBuffer::blitToMemory");
        return;
    }
    D3DLOCKED_BOX locked;
    if (FAILED(temporaryVolume->LockBox(&locked, nullptr, D3DLOCK_READONLY)))
    {
        temporaryVolume->Release();
        temporary->Release();
        LogError("surface->LockBox CD3D9HardwarePixelBuffer::blitToMemory");
        return;
    }
    PixelBox read(width, height, depth, readFormat, nullptr);
    FillFromLock(read, locked.pBits, static_cast<unsigned>(locked.RowPitch), static_cast<unsigned>(locked.SlicePitch),
                 true);
    PixelUtil::bulkPixelConversion(read, dest);
    temporaryVolume->UnlockBox();
    temporaryVolume->Release();
    temporary->Release();
}

} // namespace kv
