#pragma once
#include "engine/RenderTarget.h"

namespace kv
{

class CRenderTexture;

class KV_API CMultiRenderTarget : public CRenderTarget
{
public:
    enum
    {
        MAX_SURFACES = 8
    };

    CMultiRenderTarget();
    ~CMultiRenderTarget() override;

    void SetAutoUpdate(bool autoUpdate) override;
    // Binds targets[i] at position i, for i below the smaller of count and 8.
    virtual void bindSurface(CRenderTexture* const* targets, int count);
    // Unbinds one position; positions from 8 on are ignored.
    virtual void unbindSurface(unsigned index);
    virtual void bindSurfaceImpl(unsigned index, CRenderTexture* target) = 0;
    virtual void unbindSurfaceImpl(unsigned index) = 0;
    virtual void MultiTargetReserved() = 0;
};

} // namespace kv
