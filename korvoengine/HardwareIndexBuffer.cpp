#include "engine/HardwareIndexBuffer.h"

namespace kv
{

CHardwareIndexBuffer::CHardwareIndexBuffer(IndexType type, unsigned count, Usage usage, bool useSystemMemory)
    : CHardwareBuffer(count * (type == IT_32BIT ? 4u : 2u), type == IT_32BIT ? 4u : 2u, usage, useSystemMemory),
      mIndexType(type), m_nNumIndexes(count)
{
}

CHardwareIndexBuffer::~CHardwareIndexBuffer() {}

} // namespace kv
