#pragma once
// Up to eight pixel buffers drawn into at once, position i being render target
// i. The target holds plain pointers: a pixel buffer must outlive its binding
// here. Position 0 alone gives the target its size.
#include "D3D9Prerequisites.h"
#include "D3D9RenderTargetCommon.h"
#include "D3D9Resource.h"

#include "engine/MultiRenderTarget.h"

namespace kv
{

class CD3D9HardwarePixelBuffer;

class CD3D9MultiRenderTarget : public CD3D9RenderTargetCommon<CMultiRenderTarget>, public CD3D9Resource
{
public:
    CD3D9MultiRenderTarget();
    ~CD3D9MultiRenderTarget() override;

    // Both copy from position 0 and do nothing while it is empty.
    bool CopyToTexture(CTexture* texture) override;
    bool CopyToTarget(CRenderTarget* target, const RECT* source, const RECT* destination) override;
    // "DDBACKBUFFER" only: each bound position's surface at its index, never an
    // fsaa surface; empty positions keep what the caller put there.
    bool GetAttribute(const char* name, void* out) override;
    void swapBuffers() override {}
    // Surfaces of another size or, on hardware that needs them equal, another
    // bit depth than the first bound one are reported and bound all the same.
    void bindSurfaceImpl(unsigned index, CRenderTexture* target) override;
    void unbindSurfaceImpl(unsigned index) override;
    void MultiTargetReserved() override {}

    void notifyOnDeviceDestroy() override;
    void notifyOnDeviceLost() override;

    CD3D9HardwarePixelBuffer* m_pSurfaces[MAX_SURFACES]; // not owned

private:
    void updateSize();
};

} // namespace kv
