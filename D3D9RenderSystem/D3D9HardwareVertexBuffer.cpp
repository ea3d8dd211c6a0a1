#include "D3D9HardwareVertexBuffer.h"
#include "D3D9Mappings.h"
#include "D3D9NativeBuffer.h"
#include "D3D9RenderSystem.h"

namespace kv
{

CD3D9HardwareVertexBuffer::CD3D9HardwareVertexBuffer(unsigned vertexSize, unsigned numVertices, Usage usage,
                                                     bool useSystemMemory, const void* initialData)
    : CHardwareVertexBuffer(vertexSize, numVertices, usage, useSystemMemory), m_pD3D9VertexBuffer(nullptr), m_d3dDesc()
{
    CreateBuffer(D3D9NativeBuffer::PoolFor(usage, useSystemMemory));
    D3D9NativeBuffer::Fill(m_pD3D9VertexBuffer, mSizeInBytes, initialData);
}

CD3D9HardwareVertexBuffer::~CD3D9HardwareVertexBuffer()
{
    ReleaseBuffer();
}

bool CD3D9HardwareVertexBuffer::CreateBuffer(D3DPOOL pool)
{
    CD3D9RenderSystem* renderSystem = GetD3D9RenderSystem();
    IDirect3DDevice9* device = renderSystem ? renderSystem->m_pD3D9Device : nullptr;
    if (device)
        D3D9Verify(device->CreateVertexBuffer(mSizeInBytes, D3D9Mappings::toD3DUsage(mUsage), 0, pool,
                                              &m_pD3D9VertexBuffer, nullptr),
                   "Failed to CreateVertexBuffer");
    if (!m_pD3D9VertexBuffer)
    {
        m_d3dDesc.Pool = pool;
        LogError("Failed to CD3D9HardwareVertexBuffer::CreateBuffer");
        return false;
    }
    D3D9Verify(m_pD3D9VertexBuffer->GetDesc(&m_d3dDesc), "Failed to GetVertexBufferDesc");
    return true;
}

void CD3D9HardwareVertexBuffer::ReleaseBuffer()
{
    D3D9NativeBuffer::Release(m_pD3D9VertexBuffer);
}

void* CD3D9HardwareVertexBuffer::LockImpl(unsigned offset, unsigned length, LockOptions options)
{
    return D3D9NativeBuffer::Lock(m_pD3D9VertexBuffer, offset, length, D3D9Mappings::toD3DLockFlags(options, mUsage),
                                  "Failed to CD3D9HardwareVertexBuffer::LockImpl, as m_pD3D9VertexBuffer is NULL",
                                  "Cannot lock vertexbuffer");
}

void CD3D9HardwareVertexBuffer::UnlockImpl()
{
    if (m_pD3D9VertexBuffer)
        D3D9Verify(m_pD3D9VertexBuffer->Unlock(), "Failed to CHardwareVertexBuffer::Unlock");
}

void CD3D9HardwareVertexBuffer::ReadData(unsigned offset, unsigned length, void* dest)
{
    D3D9NativeBuffer::Read(*this, offset, length, dest, "Failed to CD3D9HardwareVertexBuffer::ReadData");
}

void CD3D9HardwareVertexBuffer::WriteData(unsigned offset, unsigned length, const void* source, bool discardWholeBuffer)
{
    D3D9NativeBuffer::Write(*this, offset, length, source, discardWholeBuffer,
                            "Failed to CD3D9HardwareVertexBuffer::WriteData");
}

void CD3D9HardwareVertexBuffer::notifyOnDeviceDestroy()
{
    ReleaseBuffer();
}

void CD3D9HardwareVertexBuffer::notifyOnDeviceLost()
{
    // Told at every attempt to reset, so it may come twice without a reset.
    if (m_d3dDesc.Pool == D3DPOOL_DEFAULT)
        ReleaseBuffer();
}

void CD3D9HardwareVertexBuffer::notifyOnDeviceReset()
{
    // The content is not kept: the owner fills a discardable buffer anew.
    if (m_d3dDesc.Pool == D3DPOOL_DEFAULT)
    {
        ReleaseBuffer();
        CreateBuffer(D3DPOOL_DEFAULT);
    }
}

} // namespace kv
