#include "engine/HardwarePixelBuffer.h"
#include "engine/Log.h"

namespace kv
{

CHardwarePixelBuffer::CHardwarePixelBuffer(unsigned width, unsigned height, unsigned depth, PixelFormat format,
                                           Usage usage, bool useSystemMemory)
    : CHardwareBuffer(0, 0, usage, useSystemMemory), mWidth(width), mHeight(height), mDepth(depth), mRowPitch(width),
      mSlicePitch(width * height), mFormat(format)
{
}

CHardwarePixelBuffer::~CHardwarePixelBuffer() {}

void* CHardwarePixelBuffer::Lock(unsigned offset, unsigned length, LockOptions options)
{
    if (offset != 0 || length != mSizeInBytes)
    {
        LogErrorImpl("korvoengine/HardwarePixelBuffer", __LINE__,
                     "Pixel buffers can only be locked whole: offset %u, length %u, size %u", offset, length,
                     mSizeInBytes);
        return nullptr;
    }
    mCurrentLock = lockImpl(Box(0, 0, 0, mWidth, mHeight, mDepth), options);
    mIsLocked = true;
    return mCurrentLock.data;
}

void CHardwarePixelBuffer::ReadData(unsigned offset, unsigned length, void* dest)
{
    if (offset != 0 || length != mSizeInBytes)
    {
        LogErrorImpl("korvoengine/HardwarePixelBuffer", __LINE__,
                     "Pixel buffers can only be read whole: offset %u, length %u, size %u", offset, length,
                     mSizeInBytes);
        return;
    }
    blitToMemory(Box(0, 0, 0, mWidth, mHeight, mDepth), PixelBox(mWidth, mHeight, mDepth, mFormat, dest));
}

void CHardwarePixelBuffer::WriteData(unsigned offset, unsigned length, const void* source, bool)
{
    if (offset != 0 || length != mSizeInBytes)
    {
        LogErrorImpl("korvoengine/HardwarePixelBuffer", __LINE__,
                     "Pixel buffers can only be written whole: offset %u, length %u, size %u", offset, length,
                     mSizeInBytes);
        return;
    }
    blitFromMemory(PixelBox(mWidth, mHeight, mDepth, mFormat, const_cast<void*>(source)),
                   Box(0, 0, 0, mWidth, mHeight, mDepth));
}

void* CHardwarePixelBuffer::LockImpl(unsigned, unsigned, LockOptions)
{
    LogErrorImpl("korvoengine/HardwarePixelBuffer", __LINE__,
                 "LockImpl(offset, length) is not valid for pixel buffers");
    return nullptr;
}

void CHardwarePixelBuffer::blit(const ref_ptr<CHardwarePixelBuffer>& source, const Box& sourceBox, const Box& destBox)
{
    if (!source || source.get() == this)
    {
        LogErrorImpl("korvoengine/HardwarePixelBuffer", __LINE__, "blit needs another pixel buffer as its source");
        return;
    }
    PixelBox locked = source->lockImpl(sourceBox, LOCK_READ_ONLY);
    source->mIsLocked = true;
    if (locked.data)
        blitFromMemory(locked, destBox);
    source->Unlock();
}

} // namespace kv
