#include "D3D9HardwareIndexBuffer.h"
#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"

#include <cstring>

namespace kv
{

CD3D9HardwareIndexBuffer::CD3D9HardwareIndexBuffer(IndexType type, unsigned count, Usage usage, bool useSystemMemory,
                                                   const void* initialData)
    : CHardwareIndexBuffer(type, count, usage, useSystemMemory), m_pD3D9IndexBuffer(nullptr), m_d3dDesc()
{
    D3DPOOL pool = D3DPOOL_MANAGED;
    if (useSystemMemory)
        pool = D3DPOOL_SYSTEMMEM;
    else if (usage & USAGE_DISCARDABLE)
        pool = D3DPOOL_DEFAULT;
    CreateBuffer(pool);

    // Filled straight through the native buffer: the engine's locked flag is
    // the caller's business and stays untouched.
    if (m_pD3D9IndexBuffer && initialData)
    {
        void* data = nullptr;
        if (SUCCEEDED(m_pD3D9IndexBuffer->Lock(0, mSizeInBytes, &data, 0)) && data)
        {
            std::memcpy(data, initialData, mSizeInBytes);
            m_pD3D9IndexBuffer->Unlock();
        }
    }
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
    if (m_pD3D9IndexBuffer)
    {
        m_pD3D9IndexBuffer->Release();
        m_pD3D9IndexBuffer = nullptr;
    }
}

void* CD3D9HardwareIndexBuffer::LockImpl(unsigned offset, unsigned length, LockOptions options)
{
    if (!m_pD3D9IndexBuffer)
    {
        LogError("Failed to CD3D9HardwareIndexBuffer::LockImpl, as m_pD3D9IndexBuffer is NULL");
        return nullptr;
    }
    void* data = nullptr;
    HRESULT hr = m_pD3D9IndexBuffer->Lock(offset, length, &data, D3D9Mappings::toD3DLockFlags(options, mUsage));
    if (FAILED(hr))
    {
        LogError("Cannot lock index buffer, %s", DXGetErrorDescription(hr));
        return nullptr;
    }
    return data;
}

void CD3D9HardwareIndexBuffer::UnlockImpl()
{
    // The vertex buffer's text on purpose: both twins report an unlock alike.
    if (m_pD3D9IndexBuffer)
        D3D9Verify(m_pD3D9IndexBuffer->Unlock(), "Failed to CHardwareVertexBuffer::Unlock");
}

void CD3D9HardwareIndexBuffer::ReadData(unsigned offset, unsigned length, void* dest)
{
    const void* data = Lock(offset, length, LOCK_READ_ONLY);
    if (!data)
    {
        LogError("Failed to CD3D9HardwareIndexBuffer::ReadData");
        return;
    }
    if (dest)
        std::memcpy(dest, data, length);
    Unlock();
}

void CD3D9HardwareIndexBuffer::WriteData(unsigned offset, unsigned length, const void* source,
                                          bool discardWholeBuffer)
{
    void* data = Lock(offset, length, discardWholeBuffer ? LOCK_DISCARD : LOCK_NORMAL);
    if (!data)
    {
        LogError("Failed to CD3D9HardwareIndexBuffer::WriteData");
        return;
    }
    if (source)
        std::memcpy(data, source, length);
    Unlock();
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
