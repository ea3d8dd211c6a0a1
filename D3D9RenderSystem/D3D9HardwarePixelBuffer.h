#pragma once
// One image of a texture (one mip level of one face), bound to a native surface
// or volume. Locking, copies between buffers and copies from and to memory go
// through here; format changes are left to D3DX except where Direct3D has no
// such format, which the engine's PixelUtil converts on the CPU. The object
// outlives a device loss: only its binding goes, and the texture binds it again.
#include "D3D9Prerequisites.h"

#include "engine/HardwarePixelBuffer.h"
#include "engine/RenderTexture.h"

namespace kv
{

class CD3D9Texture;

// The native objects a buffer is bound to.
struct PixelBufferBinding
{
    IDirect3DSurface9* surface = nullptr;     // owned; null for a volume
    IDirect3DVolume9* volume = nullptr;       // owned; null for a surface
    IDirect3DSurface9* fsaaSurface = nullptr; // the owner's multisampled surface, not owned
};

class CD3D9HardwarePixelBuffer : public CHardwarePixelBuffer
{
public:
    CD3D9HardwarePixelBuffer(Usage usage, CD3D9Texture* owner);
    ~CD3D9HardwarePixelBuffer() override;

    void UnlockImpl() override;
    PixelBox lockImpl(const Box& lockBox, LockOptions options) override;
    void blit(const ref_ptr<CHardwarePixelBuffer>& source, const Box& sourceBox, const Box& destBox) override;
    void blitFromMemory(const PixelBox& source, const Box& destBox) override;
    void blitToMemory(const Box& sourceBox, const PixelBox& dest) override;
    // The render texture, whatever the slice.
    CRenderTexture* getRenderTarget(unsigned slice) override;
    void clearRenderTarget(unsigned slice) override;

    // Takes a reference on the surface; fsaa is the anti-aliasing level.
    void bind(IDirect3DSurface9* surface, IDirect3DSurface9* fsaaSurface, unsigned fsaa);
    void bind(IDirect3DVolume9* volume);
    void unbind();

    IDirect3DSurface9* getSurface() const { return m_pBinding ? m_pBinding->surface : nullptr; }
    IDirect3DVolume9* getVolume() const { return m_pBinding ? m_pBinding->volume : nullptr; }
    IDirect3DSurface9* getFSAASurface() const { return m_pBinding ? m_pBinding->fsaaSurface : nullptr; }
    CD3D9Texture* getOwner() const { return m_pOwner; }

    Box m_lockedBox;
    PixelBufferBinding* m_pBinding; // owned; null while unbound
    ref_ptr<CRenderTexture> m_pRenderTexture;
    CD3D9Texture* m_pOwner; // not owned
    DWORD m_nLockFlags;

private:
    void afterBind();
    // Whether the buffer has something to work on; logs the operation otherwise.
    bool isBound(const char* operation) const;
    void blitToMemoryFromSurface(const Box& sourceBox, const PixelBox& dest, PixelFormat readFormat);
    void blitToMemoryFromVolume(const Box& sourceBox, const PixelBox& dest, PixelFormat readFormat);
};

} // namespace kv
