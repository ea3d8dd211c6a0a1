#include "engine/HardwareBuffer.h"
#include "engine/Log.h"

#include <algorithm>
#include <cstring>

namespace kv
{

CHardwareBuffer::CHardwareBuffer(unsigned sizeInBytes, unsigned elementSize, Usage usage, bool useSystemMemory)
    : mSizeInBytes(sizeInBytes), mElementSize(elementSize), mUsage(usage), mIsLocked(false),
      mUseSystemMemory(useSystemMemory)
{
}

CHardwareBuffer::~CHardwareBuffer() {}

bool CHardwareBuffer::IsLocked()
{
    return mIsLocked;
}

void* CHardwareBuffer::Lock(LockOptions options)
{
    return Lock(0, mSizeInBytes, options);
}

void* CHardwareBuffer::Lock(unsigned offset, unsigned length, LockOptions options)
{
    // Summed in 64 bits so a range past the end cannot wrap round into the buffer.
    if (static_cast<unsigned long long>(offset) + length > mSizeInBytes)
    {
        LogErrorImpl("korvoengine/HardwareBuffer", __LINE__, "(length:%d + offset:%d) > mSizeInBytes:%d",
                     static_cast<int>(length), static_cast<int>(offset), static_cast<int>(mSizeInBytes));
        return nullptr;
    }
    void* data = LockImpl(offset, length, options);
    mIsLocked = true;
    return data;
}

void CHardwareBuffer::Unlock()
{
    UnlockImpl();
    mIsLocked = false;
}

void CHardwareBuffer::CopyData(CHardwareBuffer& source)
{
    CopyData(source, 0, 0, std::min(mSizeInBytes, source.mSizeInBytes), true);
}

void CHardwareBuffer::CopyData(CHardwareBuffer& source, unsigned sourceOffset, unsigned destOffset, unsigned length,
                               bool discardWholeBuffer)
{
    void* data = source.Lock(sourceOffset, length, LOCK_READ_ONLY);
    if (data)
        WriteData(destOffset, length, data, discardWholeBuffer);
    if (source.IsLocked())
        source.Unlock();
}

} // namespace kv
