#include "D3D9VertexDeclaration.h"
#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"

#include <vector>

namespace kv
{

CD3D9VertexDeclaration::CD3D9VertexDeclaration(const VertexElement* elements, int count)
    : CVertexDeclaration(elements, count), m_pD3D9VertexDeclaration(nullptr)
{
    // Built from the base's own copy, which holds nothing for a null array or
    // a count of 0 or below: then the native array is the end mark alone.
    std::vector<D3DVERTEXELEMENT9> native(m_elements.size() + 1);
    for (size_t i = 0; i < m_elements.size(); ++i)
    {
        const VertexElement& e = m_elements[i];
        D3DVERTEXELEMENT9& d = native[i];
        d.Stream = e.m_nStream;
        d.Offset = static_cast<WORD>(e.m_nOffset & 0xFFFF);
        d.Type = static_cast<BYTE>(D3D9Mappings::toD3DDeclType(e.m_eType));
        d.Method = D3DDECLMETHOD_DEFAULT;
        d.Usage = static_cast<BYTE>(D3D9Mappings::toD3DDeclUsage(e.m_eSemantic));
        d.UsageIndex = static_cast<BYTE>(e.m_nIndex & 0xFF);
    }
    D3DVERTEXELEMENT9& end = native.back();
    end.Stream = 0xFF;
    end.Offset = 0;
    end.Type = D3DDECLTYPE_UNUSED;
    end.Method = 0;
    end.Usage = 0;
    end.UsageIndex = 0;

    CD3D9RenderSystem* renderSystem = GetD3D9RenderSystem();
    IDirect3DDevice9* device = renderSystem ? renderSystem->m_pD3D9Device : nullptr;
    if (device)
        D3D9Verify(device->CreateVertexDeclaration(native.data(), &m_pD3D9VertexDeclaration),
                   "CreateVertexDeclaration");
    else
        LogError("CreateVertexDeclaration without a device");
}

CD3D9VertexDeclaration::~CD3D9VertexDeclaration()
{
    notifyOnDeviceDestroy();
}

void CD3D9VertexDeclaration::notifyOnDeviceDestroy()
{
    if (m_pD3D9VertexDeclaration)
    {
        m_pD3D9VertexDeclaration->Release();
        m_pD3D9VertexDeclaration = nullptr;
    }
}

} // namespace kv
