// Calls on the objects the device hands out. The recorder does not wrap textures,
// surfaces, buffers and queries (a wrapper would have to be unwrapped again at every
// device call and D3DX call that takes one); instead, once asked, it patches the
// entries for Lock, Unlock, Issue and GetData in the virtual tables of the real
// objects, which all objects of a kind share, so those calls are counted, traced and
// open to faults like the device's own.
#pragma once

#include <d3d9.h>

namespace ProxyResources
{

// From now on the hooked calls are recorded (watching starts on the first object seen).
void SetWatching(bool on);
bool Watching();

// Called with every object the device hands out; patches its kind's table once.
void Watch(IDirect3DTexture9* texture);
void Watch(IDirect3DCubeTexture9* texture);
void Watch(IDirect3DVolumeTexture9* texture);
void Watch(IDirect3DSurface9* surface);
void Watch(IDirect3DVertexBuffer9* buffer);
void Watch(IDirect3DIndexBuffer9* buffer);
void Watch(IDirect3DQuery9* query);
template <class T>
void Watch(T*)
{
}

} // namespace ProxyResources
