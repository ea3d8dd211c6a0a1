#pragma once
// Second base of every plug-in object that holds a Direct3D object which must be
// dropped or rebuilt with the device. Such an object enters the render system's
// registry when it is built and leaves it when it dies, so a lost or ending
// device reaches it without any link of its own to the render system.
#include "D3D9Prerequisites.h"

namespace kv
{

class CD3D9Resource
{
public:
    // Registers with the render system's D3D9ResourceManager when both exist;
    // an object built without them stays out of the registry for good.
    CD3D9Resource();
    // Leaves the registry when the render system and its manager still exist.
    virtual ~CD3D9Resource();

    // The registry's position is per object: a copy would share it.
    CD3D9Resource(const CD3D9Resource&) = delete;
    CD3D9Resource& operator=(const CD3D9Resource&) = delete;

    // Once, while the render system ends and before the device is released.
    virtual void notifyOnDeviceDestroy() {}
    // At every attempt to reset the device, before IDirect3DDevice9::Reset.
    virtual void notifyOnDeviceLost() {}
    // After each successful reset.
    virtual void notifyOnDeviceReset() {}

    // Position in the registry's table, -1 while in none. Kept by the manager.
    int m_nResourceIndex;
};

} // namespace kv
