#pragma once
#include "engine/Export.h"
#include "engine/RefPtr.h"

namespace kv
{

class KV_API CHardwareBuffer : public CReferenced
{
public:
    enum Usage : unsigned
    {
        USAGE_STATIC = 1,
        USAGE_DYNAMIC = 2,
        USAGE_WRITE_ONLY = 4,
        USAGE_DISCARDABLE = 8,
        USAGE_RENDERTARGET = 0x20, // pixel buffers of render targets
    };

    enum LockOptions : int
    {
        LOCK_NORMAL = 0,
        LOCK_DISCARD = 1,
        LOCK_READ_ONLY = 2,
        LOCK_NO_OVERWRITE = 3,
    };

    CHardwareBuffer(unsigned sizeInBytes, unsigned elementSize, Usage usage, bool useSystemMemory);
    ~CHardwareBuffer() override;

    virtual bool IsLocked();
    virtual void* Lock(LockOptions options);
    virtual void* Lock(unsigned offset, unsigned length, LockOptions options);
    virtual void Unlock();
    virtual void ReadData(unsigned offset, unsigned length, void* dest) = 0;
    virtual void WriteData(unsigned offset, unsigned length, const void* source, bool discardWholeBuffer) = 0;
    virtual void CopyData(CHardwareBuffer& source);
    virtual void CopyData(CHardwareBuffer& source, unsigned sourceOffset, unsigned destOffset, unsigned length,
                          bool discardWholeBuffer);
    virtual void* LockImpl(unsigned offset, unsigned length, LockOptions options) = 0;
    virtual void UnlockImpl() = 0;

    unsigned getSizeInBytes() const { return mSizeInBytes; }
    Usage getUsage() const { return mUsage; }

    unsigned mSizeInBytes;
    unsigned mElementSize;
    Usage mUsage;
    bool mIsLocked;
    bool mUseSystemMemory;
};

} // namespace kv
