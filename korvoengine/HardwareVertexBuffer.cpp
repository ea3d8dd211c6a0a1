#include "engine/HardwareVertexBuffer.h"

namespace kv
{

CHardwareVertexBuffer::CHardwareVertexBuffer(unsigned vertexSize, unsigned numVertices, Usage usage,
                                             bool useSystemMemory)
    : CHardwareBuffer(vertexSize * numVertices, vertexSize, usage, useSystemMemory), m_nNumVertices(numVertices)
{
}

CHardwareVertexBuffer::~CHardwareVertexBuffer() {}

} // namespace kv
