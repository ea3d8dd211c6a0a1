#pragma once
#include "engine/HardwareBuffer.h"

namespace kv
{

class KV_API CHardwareIndexBuffer : public CHardwareBuffer
{
public:
    // 1 is 32-bit indices; every other value is 16-bit.
    enum IndexType : int
    {
        IT_16BIT = 0,
        IT_32BIT = 1,
    };

    CHardwareIndexBuffer(IndexType type, unsigned count, Usage usage, bool useSystemMemory);
    ~CHardwareIndexBuffer() override;

    IndexType getType() const { return mIndexType; }
    unsigned getNumIndexes() const { return m_nNumIndexes; }

    IndexType mIndexType;
    unsigned m_nNumIndexes;
};

typedef CHardwareIndexBuffer::IndexType IndexType;

} // namespace kv
