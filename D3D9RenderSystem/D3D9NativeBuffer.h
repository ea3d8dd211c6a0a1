#pragma once
// What the vertex and index buffers share. Each wraps one native buffer whose
// Lock, Unlock and Release look alike; they differ in how the buffer is made
// and in the names their log lines give.
#include "D3D9Prerequisites.h"

#include "engine/HardwareBuffer.h"

#include <cstring>

namespace kv
{
namespace D3D9NativeBuffer
{

// System memory when asked; a discardable buffer in the default pool, which
// loses it with the device; anything else managed, which keeps its content
// through a reset.
inline D3DPOOL PoolFor(CHardwareBuffer::Usage usage, bool useSystemMemory)
{
    if (useSystemMemory)
        return D3DPOOL_SYSTEMMEM;
    return (usage & CHardwareBuffer::USAGE_DISCARDABLE) ? D3DPOOL_DEFAULT : D3DPOOL_MANAGED;
}

// Straight through the native buffer: the engine's locked flag is the
// caller's business and stays untouched.
template <class Native>
void Fill(Native* buffer, unsigned size, const void* data)
{
    if (!buffer || !data)
        return;
    void* target = nullptr;
    if (SUCCEEDED(buffer->Lock(0, size, &target, 0)) && target)
    {
        std::memcpy(target, data, size);
        buffer->Unlock();
    }
}

template <class Native>
void Release(Native*& buffer)
{
    if (buffer)
    {
        buffer->Release();
        buffer = nullptr;
    }
}

// missing: logged when there is no buffer; refused: logged with the
// result's description when the lock fails.
template <class Native>
void* Lock(Native* buffer, unsigned offset, unsigned length, DWORD flags, const char* missing, const char* refused)
{
    if (!buffer)
    {
        LogError("%s", missing);
        return nullptr;
    }
    void* data = nullptr;
    HRESULT hr = buffer->Lock(offset, length, &data, flags);
    if (FAILED(hr))
    {
        LogError("%s, %s", refused, DXGetErrorDescription(hr));
        return nullptr;
    }
    return data;
}

// Reads and writes go through the engine's own Lock, so that its locked flag
// holds; failed is logged when the lock gives nothing.
inline void Read(CHardwareBuffer& buffer, unsigned offset, unsigned length, void* dest, const char* failed)
{
    const void* data = buffer.Lock(offset, length, CHardwareBuffer::LOCK_READ_ONLY);
    if (!data)
    {
        LogError("%s", failed);
        return;
    }
    if (dest)
        std::memcpy(dest, data, length);
    buffer.Unlock();
}

inline void Write(CHardwareBuffer& buffer, unsigned offset, unsigned length, const void* source,
                  bool discardWholeBuffer, const char* failed)
{
    void* data =
        buffer.Lock(offset, length, discardWholeBuffer ? CHardwareBuffer::LOCK_DISCARD : CHardwareBuffer::LOCK_NORMAL);
    if (!data)
    {
        LogError("%s", failed);
        return;
    }
    if (source)
        std::memcpy(data, source, length);
    buffer.Unlock();
}

} // namespace D3D9NativeBuffer
} // namespace kv
