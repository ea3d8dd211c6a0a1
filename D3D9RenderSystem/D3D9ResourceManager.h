#pragma once
// The registry of device-bound objects. It tells every member of device loss,
// reset and end, and when it is deleted reports the objects still alive. One
// thread (the engine's main thread) builds, destroys and walks; there is no lock.
#include <cstddef>
#include <vector>

namespace kv
{

class CD3D9Resource;

class D3D9ResourceManager
{
public:
    // Room reserved up front, so an ordinary scene's resources never move the
    // table while it is being walked.
    static const std::size_t kInitialCapacity = 20000;

    D3D9ResourceManager();
    // Reports leaks when members remain; the members themselves are not touched.
    ~D3D9ResourceManager();

    D3D9ResourceManager(const D3D9ResourceManager&) = delete;
    D3D9ResourceManager& operator=(const D3D9ResourceManager&) = delete;

    // Appends; the object's index becomes its position.
    void notifyResourceCreated(CD3D9Resource* resource);
    // Removes in constant time by moving the last entry into the freed place.
    // An object that is in no table (index -1) is ignored.
    void notifyResourceDestroyed(CD3D9Resource* resource);

    // Each walk goes from the first entry to the last and reads the end anew
    // after every call, so members may come and go while they are told.
    void notifyOnDeviceDestroy();
    void notifyOnDeviceLost();
    void notifyOnDeviceReset();

    std::size_t GetResourceCount() const { return m_resources.size(); }
    std::size_t GetCapacity() const { return m_resources.capacity(); }
    CD3D9Resource* GetResource(std::size_t index) const
    {
        return index < m_resources.size() ? m_resources[index] : nullptr;
    }

private:
    void Walk(void (CD3D9Resource::*notify)());

    std::vector<CD3D9Resource*> m_resources; // not owned
};

} // namespace kv
