#include "D3D9HardwareVertexBuffer.h"
#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"

#include <cstring>

namespace kv
{

CD3D9HardwareVertexBuffer::CD3D9HardwareVertexBuffer(unsigned vertexSize, unsigned numVertices, Usage usage,
                                                     bool useSystemMemory, const void* initialData)
    : CHardwareVertexBuffer(vertexSize, numVertices, usage, useSystemMemory), m_pD3D9VertexBuffer(nullptr),
      m_d3dDesc()
{
    D3DPOOL pool = D3DPOOL_MANAGED;
    if (useSystemMemory)
        pool = D3DPOOL_SYSTEMMEM;
    else if (usage & USAGE_DISCARDABLE)
        pool = D3DPOOL_DEFAULT;
    CreateBuffer(pool);

    // Filled straight through the native buffer: the engine's locked flag is
    // the caller's business and stays untouched.
    if (m_pD3D9VertexBuffer && initialData)
    {
        void* data = nullptr;
        if (SUCCEEDED(m_pD3D9VertexBuffer->Lock(0, mSizeInBytes, &data, 0)) && data)
        {
            std::memcpy(data, initialData, mSizeInBytes);
            m_pD3D9VertexBuffer->Unlock();
        }
    }
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
    if (m_pD3D9VertexBuffer)
    {
        m_pD3D9VertexBuffer->Release();
        m_pD3D9VertexBuffer = nullptr;
    }
}

void* CD3D9HardwareVertexBuffer::LockImpl(unsigned offset, unsigned length, LockOptions options)
{
    if (!m_pD3D9VertexBuffer)
    {
        LogError("Failed to CD3D9HardwareVertexBuffer::LockImpl, as m_pD3D9VertexBuffer is NULL");
        return nullptr;
    }
    void* data = nullptr;
    HRESULT hr = m_pD3D9VertexBuffer->Lock(offset, length, &data, D3D9Mappings::toD3DLockFlags(options, mUsage));
    if (FAILED(hr))
    {
        LogError("Cannot lock vertexbuffer, %s", DXGetErrorDescription(hr));
        return nullptr;
    }
    return data;
}

void CD3D9HardwareVertexBuffer::UnlockImpl()
{
    if (m_pD3D9VertexBuffer)
        D3D9Verify(m_pD3D9VertexBuffer->Unlock(), "Failed to CHardwareVertexBuffer::Unlock");
}

void CD3D9HardwareVertexBuffer::ReadData(unsigned offset, unsigned length, void* dest)
{
    const void* data = Lock(offset, length, LOCK_READ_ONLY);
    if (!data)
    {
        LogError("Failed to CD3D9HardwareVertexBuffer::ReadData");
        return;
    }
    if (dest)
        std::memcpy(dest, data, length);
    Unlock();
}

void CD3D9HardwareVertexBuffer::WriteData(unsigned offset, unsigned length, const void* source,
                                          bool discardWholeBuffer)
{
    void* data = Lock(offset, length, discardWholeBuffer ? LOCK_DISCARD : LOCK_NORMAL);
    if (!data)
    {
        LogError("Failed to CD3D9HardwareVertexBuffer::WriteData");
        return;
    }
    if (source)
        std::memcpy(data, source, length);
    Unlock();
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
