#pragma once
// An index buffer on the device, the twin of CD3D9HardwareVertexBuffer. A
// discardable buffer lives in the default pool, where it is dropped with a lost
// device and made anew (with undefined content) after the reset; a buffer in
// system memory or managed by the runtime keeps its content through a reset.
#include "D3D9Prerequisites.h"
#include "D3D9Resource.h"

#include "engine/HardwareIndexBuffer.h"

namespace kv
{

class CD3D9HardwareIndexBuffer : public CHardwareIndexBuffer, public CD3D9Resource
{
public:
    // Type and count go to the engine's base as they come; initialData, when
    // given, fills the whole buffer once it exists.
    CD3D9HardwareIndexBuffer(IndexType type, unsigned count, Usage usage, bool useSystemMemory,
                             const void* initialData);
    ~CD3D9HardwareIndexBuffer() override;

    void ReadData(unsigned offset, unsigned length, void* dest) override;
    void WriteData(unsigned offset, unsigned length, const void* source, bool discardWholeBuffer) override;
    void* LockImpl(unsigned offset, unsigned length, LockOptions options) override;
    void UnlockImpl() override;

    void notifyOnDeviceDestroy() override;
    void notifyOnDeviceLost() override;
    void notifyOnDeviceReset() override;

    IDirect3DIndexBuffer9* m_pD3D9IndexBuffer; // owned; null while there is none
    // What GetDesc answered. Its Pool is the pool last asked for, also when the
    // buffer could not be made: the device notifications go by it.
    D3DINDEXBUFFER_DESC m_d3dDesc;

private:
    bool CreateBuffer(D3DPOOL pool);
    void ReleaseBuffer();
};

} // namespace kv
