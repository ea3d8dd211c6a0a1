#pragma once
#include "engine/HardwareBuffer.h"
#include "engine/PixelBox.h"

namespace kv
{

class CRenderTexture;

// A surface or volume of a texture (or a render target's colour surface).
class KV_API CHardwarePixelBuffer : public CHardwareBuffer
{
public:
    CHardwarePixelBuffer(unsigned width, unsigned height, unsigned depth, PixelFormat format, Usage usage,
                         bool useSystemMemory);
    ~CHardwarePixelBuffer() override;

    // Only the whole buffer can be locked by offset and length.
    void* Lock(unsigned offset, unsigned length, LockOptions options) override;
    using CHardwareBuffer::Lock;
    void ReadData(unsigned offset, unsigned length, void* dest) override;
    void WriteData(unsigned offset, unsigned length, const void* source, bool discardWholeBuffer) override;
    // Not valid for pixel buffers: logs and answers null.
    void* LockImpl(unsigned offset, unsigned length, LockOptions options) override;

    virtual PixelBox lockImpl(const Box& lockBox, LockOptions options) = 0;
    // Copies through memory: locks the source for reading and blits its box.
    virtual void blit(const ref_ptr<CHardwarePixelBuffer>& source, const Box& sourceBox, const Box& destBox);
    virtual void blitFromMemory(const PixelBox& source, const Box& destBox) = 0;
    virtual void blitToMemory(const Box& sourceBox, const PixelBox& dest) = 0;
    virtual CRenderTexture* getRenderTarget(unsigned slice) = 0;
    virtual void clearRenderTarget(unsigned slice) = 0;

    unsigned getWidth() const { return mWidth; }
    unsigned getHeight() const { return mHeight; }
    unsigned getDepth() const { return mDepth; }
    PixelFormat getFormat() const { return mFormat; }
    // The box of the last whole-buffer Lock.
    const PixelBox& getCurrentLock() const { return mCurrentLock; }

    unsigned mWidth, mHeight, mDepth;
    unsigned mRowPitch, mSlicePitch;
    PixelFormat mFormat;
    PixelBox mCurrentLock;
};

} // namespace kv
