#include "D3D9HardwareIndexBuffer.h"
#include "D3D9HardwareVertexBuffer.h"
#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"
#include "D3D9VertexDeclaration.h"

#include "engine/Globals.h"
#include "engine/IndexData.h"
#include "engine/Timer.h"
#include "engine/VertexData.h"

namespace kv
{

// --- Streams and draws. Binding goes through shadows of native pointers; a draw
// always reaches the device. Nothing here allocates.

// DrawPrimitive looks at the frequencies of both streams by name.
static_assert(CD3D9RenderSystem::kStreamCount == 2, "two streams");

namespace
{

// Primitives from a count of vertices or indices, in unsigned arithmetic as the
// device counts them; 0 for a type outside the six.
unsigned PrimitiveCountOf(PrimitiveType type, unsigned n)
{
    switch (type)
    {
    case PT_POINT_LIST:
        return n;
    case PT_LINE_LIST:
        return n / 2;
    case PT_LINE_STRIP:
        return n - 1;
    case PT_TRIANGLE_LIST:
        return n / 3;
    case PT_TRIANGLE_STRIP:
    case PT_TRIANGLE_FAN:
        return n - 2;
    }
    return 0;
}

bool IsKnownPrimitive(PrimitiveType type)
{
    return type >= PT_POINT_LIST && type <= PT_TRIANGLE_FAN;
}

// Each draw adds to the GUI sums or to the scene sums, never to both.
void CountDraw(CTimer* timer, unsigned primitives, unsigned vertices)
{
    if (g_bInGUIMode)
    {
        timer->m_nGUIPrimitiveCount += primitives;
        timer->m_nGUIVertexCount += vertices;
        timer->m_nGUIDrawCallCount += 1;
    }
    else
    {
        timer->m_nPrimitiveCount += primitives;
        timer->m_nVertexCount += vertices;
        timer->m_nDrawCallCount += 1;
    }
}

IDirect3DVertexBuffer9* NativeBufferOf(const CVertexData* data)
{
    CD3D9HardwareVertexBuffer* buffer = static_cast<CD3D9HardwareVertexBuffer*>(data->m_pBuffer.get());
    return buffer ? buffer->m_pD3D9VertexBuffer : nullptr;
}

IDirect3DVertexDeclaration9* NativeDeclarationOf(CVertexDeclaration* declaration)
{
    return declaration ? static_cast<CD3D9VertexDeclaration*>(declaration)->m_pD3D9VertexDeclaration : nullptr;
}

} // namespace

// The shadow comparisons below are small enough to be inlined into every draw
// call; the device calls behind a differing shadow stay out of line, so that the
// usual draw, which repeats what the device holds, runs through a few
// instructions.

void CD3D9RenderSystem::_setVertexDeclaration(CVertexDeclaration* declaration)
{
    IDirect3DVertexDeclaration9* native = NativeDeclarationOf(declaration);
    if (native != m_pCurrentVertexDeclaration && m_pD3D9Device)
        _sendVertexDeclaration(native);
}

void CD3D9RenderSystem::_sendVertexDeclaration(IDirect3DVertexDeclaration9* native)
{
    m_pCurrentVertexDeclaration = native;
    D3D9Verify(m_pD3D9Device->SetVertexDeclaration(native), "Failed to SetVertexDeclaration");
}

void CD3D9RenderSystem::_setStreamFrequency(unsigned stream, uint32_t value)
{
    if (stream < m_streamFrequencies.size() && m_streamFrequencies[stream] != value && m_pD3D9Device)
        _sendStreamFrequency(stream, value);
}

void CD3D9RenderSystem::_sendStreamFrequency(unsigned stream, uint32_t value)
{
    D3D9Verify(m_pD3D9Device->SetStreamSourceFreq(stream, value), "Failed to SetStreamSourceFreq");
    m_streamFrequencies[stream] = value;
}

void CD3D9RenderSystem::_restoreStreamFrequencies()
{
    for (unsigned stream = 0; stream < m_streamFrequencies.size(); ++stream)
        if (m_streamFrequencies[stream] != 1 && m_pD3D9Device)
            _sendStreamFrequency(stream, 1);
}

void CD3D9RenderSystem::SetVertexBuffers(unsigned stream, const CVertexData* data, unsigned offset)
{
    if (stream >= kStreamCount)
    {
        LogError("Failed to CD3D9RenderSystem::SetVertexBuffers, Too many vertex buffers:%d > %d",
                 static_cast<int>(stream), static_cast<int>(kStreamCount));
        return;
    }
    // The shadows exist once the device does.
    if (!data || !m_pD3D9Device || m_streamBuffers.size() < kStreamCount)
        return;

    // Stream 1's data may replace the declaration of stream 0's: the last bound
    // layout is the one that draws.
    _setVertexDeclaration(data->m_pDeclaration.get());

    // The stride is not compared: one native buffer has one layout.
    if (m_streamBuffers[stream] != NativeBufferOf(data) || m_streamOffsets[stream] != offset)
        _sendStreamSource(stream, data, offset);
}

void CD3D9RenderSystem::_sendStreamSource(unsigned stream, const CVertexData* data, unsigned offset)
{
    CD3D9HardwareVertexBuffer* buffer = static_cast<CD3D9HardwareVertexBuffer*>(data->m_pBuffer.get());
    IDirect3DVertexBuffer9* native = NativeBufferOf(data);
    D3D9Verify(m_pD3D9Device->SetStreamSource(stream, native, offset, buffer ? buffer->mElementSize : 0),
               "Failed to SetStreamSource");
    CTimer* timer = GetTimer();
    timer->m_nVBBinds += 1;
    timer->m_nVBBytes += buffer ? buffer->mSizeInBytes : 0;
    m_streamBuffers[stream] = native;
    m_streamOffsets[stream] = offset;
}

void CD3D9RenderSystem::SetVertexBuffer(const CVertexData* data)
{
    SetVertexBuffers(0, data, 0);
}

void CD3D9RenderSystem::SetIndexBuffer(CHardwareIndexBuffer* buffer)
{
    if (!m_pD3D9Device)
        return;
    CD3D9HardwareIndexBuffer* d3dBuffer = static_cast<CD3D9HardwareIndexBuffer*>(buffer);
    IDirect3DIndexBuffer9* native = d3dBuffer ? d3dBuffer->m_pD3D9IndexBuffer : nullptr;
    if (native == m_pCurrentIndexBuffer)
        return;
    CTimer* timer = GetTimer();
    timer->m_nIBBinds += 1;
    timer->m_nIBBytes += d3dBuffer ? d3dBuffer->mSizeInBytes : 0;
    m_pCurrentIndexBuffer = native;
    D3D9Verify(m_pD3D9Device->SetIndices(native), "Failed to SetIndices");
}

void CD3D9RenderSystem::DrawPrimitive(PrimitiveType type, const CVertexData* vertices, const CIndexData* indices,
                                      unsigned instanceCount, bool instanced)
{
    if (!IsKnownPrimitive(type) || !m_pD3D9Device)
        return;
    if (!vertices)
    {
        LogError("Failed to CD3D9RenderSystem::DrawPrimitive, no vertex data");
        return;
    }
    const unsigned primitives = PrimitiveCountOf(type, indices ? indices->m_nIndexCount : vertices->m_nVertexCount);
    if (primitives == 0 || vertices->m_nVertexCount == 0)
        return;

    if (instanced)
    {
        _setStreamFrequency(0, D3DSTREAMSOURCE_INDEXEDDATA | instanceCount);
        _setStreamFrequency(1, D3DSTREAMSOURCE_INSTANCEDATA | 1u);
    }
    else if (!m_streamFrequencies.empty() && (m_streamFrequencies[0] != 1 || m_streamFrequencies[1] != 1))
        _restoreStreamFrequencies();

    // Counted before the draw is made, and also when it fails: the order is not to be
    // seen from outside, and the device call then ends the operation.
    // Lines and the non-solid viewing modes are helpers, not scene content.
    if (m_polygonMode == FILL_SOLID && type != PT_LINE_LIST && type != PT_LINE_STRIP)
    {
        CTimer* timer = GetTimer();
        CountDraw(timer, primitives * instanceCount, vertices->m_nVertexCount);
        if (instanced)
            timer->m_nExtraInstances += instanceCount - 1;
    }

    if (indices)
        _sendDrawIndexedPrimitive(static_cast<D3DPRIMITIVETYPE>(type), static_cast<INT>(vertices->m_nVertexStart),
                                  vertices->m_nVertexCount, indices->m_nIndexStart, primitives);
    else
        _sendDrawPrimitive(static_cast<D3DPRIMITIVETYPE>(type), vertices->m_nVertexStart, primitives);
}

void CD3D9RenderSystem::_sendDrawIndexedPrimitive(D3DPRIMITIVETYPE type, INT baseVertex, UINT vertexCount,
                                                  UINT startIndex, UINT primitives)
{
    D3D9Verify(m_pD3D9Device->DrawIndexedPrimitive(type, baseVertex, 0, vertexCount, startIndex, primitives),
               "Failed to DrawIndexedPrimitive");
}

void CD3D9RenderSystem::_sendDrawPrimitive(D3DPRIMITIVETYPE type, UINT startVertex, UINT primitives)
{
    D3D9Verify(m_pD3D9Device->DrawPrimitive(type, startVertex, primitives), "Failed to DrawPrimitive");
}

void CD3D9RenderSystem::DrawPrimitiveUP(PrimitiveType type, unsigned vertexCount, const void* vertexData,
                                        unsigned stride, CVertexDeclaration* declaration, unsigned instanceCount)
{
    if (!m_pD3D9Device || m_streamBuffers.size() < kStreamCount)
        return;
    _restoreStreamFrequencies();
    _setVertexDeclaration(declaration);
    if (!IsKnownPrimitive(type))
        return;
    const unsigned primitives = PrimitiveCountOf(type, vertexCount);
    if (primitives == 0 || vertexCount == 0)
        return;
    if (!vertexData)
    {
        LogError("Failed to CD3D9RenderSystem::DrawPrimitiveUP, no vertex data");
        return;
    }

    D3D9Verify(m_pD3D9Device->DrawPrimitiveUP(static_cast<D3DPRIMITIVETYPE>(type), primitives, vertexData, stride),
               "Failed to DrawPrimitiveUP");
    // The runtime unbinds stream 0 after a draw from user memory.
    m_streamBuffers[0] = nullptr;

    if (m_polygonMode == FILL_SOLID && type != PT_LINE_STRIP)
    {
        CTimer* timer = GetTimer();
        CountDraw(timer, primitives * instanceCount, vertexCount);
        timer->m_nVBBinds += 1;
        timer->m_nVBBytes += vertexCount * stride;
    }
}

void CD3D9RenderSystem::DrawIndexedPrimitiveUP(PrimitiveType type, unsigned vertexCount, unsigned indexCount,
                                               const void* indexData, IndexType indexType, const void* vertexData,
                                               unsigned stride, CVertexDeclaration* declaration, unsigned instanceCount)
{
    if (!m_pD3D9Device || m_streamBuffers.size() < kStreamCount)
        return;
    _restoreStreamFrequencies();
    _setVertexDeclaration(declaration);
    if (!IsKnownPrimitive(type))
        return;
    const unsigned primitives = PrimitiveCountOf(type, indexCount);
    if (primitives == 0 || vertexCount == 0 || indexCount == 0)
        return;
    if (!vertexData || !indexData)
    {
        LogError("Failed to CD3D9RenderSystem::DrawIndexedPrimitiveUP, no vertex or index data");
        return;
    }

    D3D9Verify(m_pD3D9Device->DrawIndexedPrimitiveUP(static_cast<D3DPRIMITIVETYPE>(type), 0, vertexCount, primitives,
                                                     indexData, D3D9Mappings::toD3DIndexFormat(indexType), vertexData,
                                                     stride),
               "Failed to DrawIndexedPrimitiveUp");
    // The runtime unbinds stream 0 and the indices after a draw from user memory.
    m_streamBuffers[0] = nullptr;
    m_pCurrentIndexBuffer = nullptr;

    if (m_polygonMode == FILL_SOLID && type != PT_LINE_LIST && type != PT_LINE_STRIP)
    {
        CTimer* timer = GetTimer();
        CountDraw(timer, primitives * instanceCount, vertexCount);
        timer->m_nVBBinds += 1;
        timer->m_nVBBytes += vertexCount * stride;
        timer->m_nIBBinds += 1;
        timer->m_nIBBytes += indexCount * (indexType == CHardwareIndexBuffer::IT_16BIT ? 2u : 4u);
    }
}

// Reserved operations: no work in this system, kept for their places in the table.
void CD3D9RenderSystem::DrawReserved3(unsigned, unsigned, unsigned) {}
void CD3D9RenderSystem::DrawReserved5(unsigned, unsigned, unsigned, unsigned, unsigned) {}
void CD3D9RenderSystem::DrawReserved2(unsigned, unsigned) {}

} // namespace kv
