#include "D3D9HardwareIndexBuffer.h"
#include "D3D9Mappings.h"
#include "D3D9NativeBuffer.h"
#include "D3D9RenderSystem.h"

namespace kv
{

CD3D9HardwareIndexBuffer::CD3D9HardwareIndexBuffer(IndexType type, unsigned count, Usage usage, bool useSystemMemory,
                                                   const void* initialData)
    : CHardwareIndexBuffer(type, count, usage, useSystemMemory), m_pD3D9IndexBuffer(nullptr), m_d3dDesc()
{
    CreateBuffer(D3D9NativeBuffer::PoolFor(usage, useSystemMemory));
    D3D9NativeBuffer::Fill(m_pD3D9IndexBuffer, mSizeInBytes, initialData);
}

CD3D9HardwareIndexBuffer::~CD3D9HardwareIndexBuffer()
{
    ReleaseBuffer();
}

bool CD3D9HardwareIndexBuffer::CreateBuffer(D3DPOOL pool)
{
    CD3D9RenderSystem* renderSystem = GetD3D9RenderSystem();
    IDirect3DDevice9* device = renderSystem ? renderSystem->m_pD3D9Device : nullptr;
    if (device)
        D3D9Verify(device->CreateIndexBuffer(mSizeInBytes, D3D9Mappings::toD3DUsage(mUsage),
                                             D3D9Mappings::toD3DIndexFormat(mIndexType), pool, &m_pD3D9IndexBuffer,
                                             nullptr),
                   "Failed to CreateIndexBuffer");
    if (!m_pD3D9IndexBuffer)
    {
        m_d3dDesc.Pool = pool;
        LogError("Failed to CD3D9HardwareIndexBuffer::CreateBuffer");
        return false;
    }
    D3D9Verify(m_pD3D9IndexBuffer->GetDesc(&m_d3dDesc), "Failed to GetIndexBufferDesc");
    return true;
}

void CD3D9HardwareIndexBuffer::ReleaseBuffer()
{
    D3D9NativeBuffer::Release(m_pD3D9IndexBuffer);
}

void* CD3D9HardwareIndexBuffer::LockImpl(unsigned offset, unsigned length, LockOptions options)
{
    return D3D9NativeBuffer::Lock(m_pD3D9IndexBuffer, offset, length, D3D9Mappings::toD3DLockFlags(options, mUsage),
                                  "Failed to CD3D9HardwareIndexBuffer::LockImpl, as m_pD3D9IndexBuffer is NULL",
                                  "Cannot lock index buffer");
}

void CD3D9HardwareIndexBuffer::UnlockImpl()
{
    // The vertex buffer's text on purpose: both twins report an unlock alike.
    if (m_pD3D9IndexBuffer)
        D3D9Verify(m_pD3D9IndexBuffer->Unlock(), "Failed to CHardwareVertexBuffer::Unlock");
}

void CD3D9HardwareIndexBuffer::ReadData(unsigned offset, unsigned length, void* dest)
{
    D3D9NativeBuffer::Read(*this, offset, length, dest, "Failed to CD3D9HardwareIndexBuffer::ReadData");
}

void CD3D9HardwareIndexBuffer::WriteData(unsigned offset, unsigned length, const void* source, bool discardWholeBuffer)
{
    D3D9NativeBuffer::Write(*this, offset, length, source, discardWholeBuffer,
                            "Failed to CD3D9HardwareIndexBuffer::WriteData");
}

void CD3D9HardwareIndexBuffer::notifyOnDeviceDestroy()
{
    ReleaseBuffer();
}

void CD3D9HardwareIndexBuffer::notifyOnDeviceLost()
{
    // Told at every attempt to reset, so it may come twice without a reset.
    if (m_d3dDesc.Pool == D3DPOOL_DEFAULT)
        ReleaseBuffer();
}

void CD3D9HardwareIndexBuffer::notifyOnDeviceReset()
{
    // The content is not kept: the owner fills a discardable buffer anew.
    if (m_d3dDesc.Pool == D3DPOOL_DEFAULT)
    {
        ReleaseBuffer();
        CreateBuffer(D3DPOOL_DEFAULT);
    }
}

} // namespace kv
