#pragma once
#include "engine/HardwareBuffer.h"

namespace kv
{

class KV_API CHardwareVertexBuffer : public CHardwareBuffer
{
public:
    // mSizeInBytes = vertexSize * numVertices; the element size is the stride.
    CHardwareVertexBuffer(unsigned vertexSize, unsigned numVertices, Usage usage, bool useSystemMemory);
    ~CHardwareVertexBuffer() override;

    unsigned getVertexSize() const { return mElementSize; }
    unsigned getNumVertices() const { return m_nNumVertices; }

    unsigned m_nNumVertices;
};

} // namespace kv
