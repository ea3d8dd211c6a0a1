#include "engine/VertexDeclaration.h"

namespace kv
{

CVertexDeclaration::CVertexDeclaration(const VertexElement* elements, int count)
{
    if (elements && count > 0)
        m_elements.assign(elements, elements + count);
}

CVertexDeclaration::~CVertexDeclaration() {}

} // namespace kv
