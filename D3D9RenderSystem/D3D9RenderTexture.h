#pragma once
// The render target that draws into one pixel buffer of a texture. It owns no
// native object: the surfaces are the pixel buffer's, which owns this target in
// turn. A multisampled texture is drawn through its fsaa surface and resolved
// into the texture's own surface by swapBuffers.
#include "D3D9Prerequisites.h"
#include "D3D9RenderTargetCommon.h"
#include "D3D9Resource.h"

#include "engine/RenderTexture.h"

namespace kv
{

class CD3D9HardwarePixelBuffer;

class CD3D9RenderTexture : public CD3D9RenderTargetCommon<CRenderTexture>, public CD3D9Resource
{
public:
    CD3D9RenderTexture(CHardwarePixelBuffer* buffer, bool hwGamma, unsigned char fsaa);
    ~CD3D9RenderTexture() override;

    bool CopyToTexture(CTexture* texture) override;
    bool CopyToTarget(CRenderTarget* target, const RECT* source, const RECT* destination) override;
    // "DDBACKBUFFER": the surface drawn into (entry 0 only); "HWND": null;
    // "BUFFER": the pixel buffer as CD3D9HardwarePixelBuffer*.
    bool GetAttribute(const char* name, void* out) override;
    // Resolves the multisampled surface into the texture's; nothing to do without one.
    void swapBuffers() override;

    void notifyOnDeviceDestroy() override;
    void notifyOnDeviceLost() override;

    // Null once the buffer is gone.
    CD3D9HardwarePixelBuffer* getD3D9Buffer() const;
    // The fsaa surface while the target multisamples, else the texture's surface.
    IDirect3DSurface9* getDrawSurface() const;
};

} // namespace kv
