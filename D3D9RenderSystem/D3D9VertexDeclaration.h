#pragma once
// The engine's vertex layout as one native vertex declaration, made when the
// object is built. A declaration lives in no memory pool, so it outlasts a
// device reset untouched; only the end of the device takes it.
#include "D3D9Prerequisites.h"
#include "D3D9Resource.h"

#include "engine/VertexDeclaration.h"

namespace kv
{

class CD3D9VertexDeclaration : public CVertexDeclaration, public CD3D9Resource
{
public:
    // A failed native creation leaves the object alive with a null pointer; it
    // is not tried again.
    CD3D9VertexDeclaration(const VertexElement* elements, int count);
    ~CD3D9VertexDeclaration() override;

    void notifyOnDeviceDestroy() override;

    IDirect3DVertexDeclaration9* m_pD3D9VertexDeclaration; // owned; null when there is none
};

} // namespace kv
