#pragma once
#include "engine/PixelBox.h"
#include "engine/RenderTarget.h"

namespace kv
{

class CHardwarePixelBuffer;

class KV_API CRenderTexture : public CRenderTarget
{
public:
    // Takes width, height and format from the (already bound) buffer. The buffer
    // owns this target; it clears m_pBuffer when it dies first.
    CRenderTexture(CHardwarePixelBuffer* buffer, unsigned zoffset);
    ~CRenderTexture() override;

    void SetAutoUpdate(bool autoUpdate) override;
    virtual void copyContentsToMemory(const PixelBox& dest, FrameBuffer buffer);

    CHardwarePixelBuffer* m_pBuffer; // not owned
    unsigned m_nZOffset;
};

} // namespace kv
