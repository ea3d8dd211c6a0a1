#include "D3D9DriverList.h"
#include "D3D9RenderSystem.h"

#include <cstring>
#include <stdexcept>

namespace kv
{
namespace
{

// The device type the render system runs, so the capabilities listed match
// the device in use. Without a render system the hardware device is meant.
D3DDEVTYPE CurrentDeviceType()
{
    CD3D9RenderSystem* renderSystem = GetD3D9RenderSystem();
    return renderSystem ? renderSystem->m_d3dcaps.DeviceType : D3DDEVTYPE_HAL;
}

} // namespace

D3D9DriverList::D3D9DriverList(IDirect3D9* pD3D9)
{
    LogInfo("D3D9: Driver Detection Starts");
    if (pD3D9)
    {
        const D3DDEVTYPE deviceType = CurrentDeviceType();
        const UINT count = pD3D9->GetAdapterCount();
        m_drivers.reserve(count);
        for (UINT adapter = 0; adapter < count; ++adapter)
        {
            // A failed query leaves its record zeroed; the engine only lists these.
            D3DADAPTER_IDENTIFIER9 identifier;
            D3DDISPLAYMODE desktopMode;
            D3DCAPS9 caps;
            std::memset(&identifier, 0, sizeof(identifier));
            std::memset(&desktopMode, 0, sizeof(desktopMode));
            std::memset(&caps, 0, sizeof(caps));
            pD3D9->GetAdapterIdentifier(adapter, 0, &identifier);
            pD3D9->GetAdapterDisplayMode(adapter, &desktopMode);
            pD3D9->GetDeviceCaps(adapter, deviceType, &caps);
            m_drivers.push_back(D3D9Driver(pD3D9, adapter, caps, identifier, desktopMode));
        }
    }
    LogInfo("D3D9: Driver Detection Ends");
}

unsigned D3D9DriverList::GetCount()
{
    return static_cast<unsigned>(m_drivers.size());
}

CDriver* D3D9DriverList::GetItem(unsigned index)
{
    if (index >= m_drivers.size())
        throw std::out_of_range("invalid vector<T> subscript");
    return &m_drivers[index];
}

CDriver* D3D9DriverList::GetItem(const char* name)
{
    if (!name)
        return nullptr;
    for (D3D9Driver& driver : m_drivers)
        if (std::strcmp(driver.GetDriverDescription(), name) == 0)
            return &driver;
    return nullptr;
}

} // namespace kv
