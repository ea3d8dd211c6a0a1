#pragma once
#include "engine/Export.h"
#include "engine/RefPtr.h"

#include <string>
#include <vector>

namespace kv
{

enum VertexElementType : int
{
    VET_FLOAT1 = 0,
    VET_FLOAT2 = 1,
    VET_FLOAT3 = 2,
    VET_FLOAT4 = 3,
    VET_COLOUR = 4,
    VET_SHORT2 = 5,
    VET_SHORT4 = 6,
    VET_UBYTE4 = 7,
    VET_UBYTE4N = 8,
    VET_SHORT2N = 9,
    VET_SHORT4N = 10,
    VET_HALF2 = 11,
    VET_HALF4 = 12,
};

enum VertexSemantic : int
{
    VES_POSITION = 0,
    VES_NORMAL = 1,
    VES_BINORMAL = 2,
    VES_TANGENT = 3,
    VES_TEXTURE_COORDINATES = 4,
    VES_COLOUR = 5,
    VES_BLEND_WEIGHTS = 6,
    VES_BLEND_INDICES = 7,
};

struct VertexElement
{
    unsigned short m_nStream;
    unsigned m_nOffset;
    VertexElementType m_eType;
    VertexSemantic m_eSemantic;
    unsigned short m_nIndex;
    std::string m_strName; // the engine's own; the render system reads none of it

    VertexElement() : m_nStream(0), m_nOffset(0), m_eType(VET_FLOAT3), m_eSemantic(VES_POSITION), m_nIndex(0) {}
    VertexElement(unsigned short stream, unsigned offset, VertexElementType type, VertexSemantic semantic,
                  unsigned short index = 0)
        : m_nStream(stream), m_nOffset(offset), m_eType(type), m_eSemantic(semantic), m_nIndex(index)
    {
    }
};

// The engine's base keeps the element array itself.
class KV_API CVertexDeclaration : public CReferenced
{
public:
    CVertexDeclaration(const VertexElement* elements, int count);
    ~CVertexDeclaration() override;

    const std::vector<VertexElement>& GetElements() const { return m_elements; }
    int GetElementCount() const { return static_cast<int>(m_elements.size()); }

protected:
    std::vector<VertexElement> m_elements;
};

} // namespace kv
