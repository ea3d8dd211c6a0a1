#pragma once
// What a draw reads of its vertices: the range, the declaration and the buffer.
#include "engine/Export.h"
#include "engine/HardwareVertexBuffer.h"
#include "engine/VertexDeclaration.h"

namespace kv
{

class KV_API CVertexData : public CReferenced
{
public:
    CVertexData() : m_nVertexStart(0), m_nVertexCount(0) {}
    ~CVertexData() override;

    unsigned m_nVertexStart;
    unsigned m_nVertexCount;
    ref_ptr<CVertexDeclaration> m_pDeclaration;
    ref_ptr<CHardwareVertexBuffer> m_pBuffer;
};

} // namespace kv
