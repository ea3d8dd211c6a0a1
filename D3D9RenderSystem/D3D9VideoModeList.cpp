#include "D3D9VideoModeList.h"
#include "D3D9Driver.h"

#include <cstring>

namespace kv
{

D3D9VideoModeList::D3D9VideoModeList(D3D9Driver* pDriver) : m_pDriver(pDriver)
{
    if (!m_pDriver)
    {
        LogError("pDriver parameter is NULL, %s", "D3D9VideoModeList::D3D9VideoModeList");
        return;
    }
    Enumerate();
}

void D3D9VideoModeList::Enumerate()
{
    IDirect3D9* d3d = m_pDriver->getD3D9();
    if (!d3d)
        return;
    const unsigned adapter = m_pDriver->getAdapterNumber();
    // 16-bit modes first, then 32-bit, as the engine lists them.
    static const D3DFORMAT kFormats[] = {D3DFMT_R5G6B5, D3DFMT_X8R8G8B8};
    for (D3DFORMAT format : kFormats)
    {
        const UINT count = d3d->GetAdapterModeCount(adapter, format);
        for (UINT number = 0; number < count; ++number)
        {
            D3DDISPLAYMODE mode;
            std::memset(&mode, 0, sizeof(mode));
            if (FAILED(d3d->EnumAdapterModes(adapter, format, number, &mode)))
                continue;
            AddMode(mode);
        }
    }
}

void D3D9VideoModeList::AddMode(const D3DDISPLAYMODE& mode)
{
    if (mode.Width < kMinWidth || mode.Height < kMinHeight)
        return;
    for (D3D9VideoMode& known : m_modes)
    {
        const D3DDISPLAYMODE& k = known.getDisplayMode();
        if (k.Width == mode.Width && k.Height == mode.Height && k.Format == mode.Format)
        {
            // The same mode at another rate: keep one entry with the best rate.
            if (mode.RefreshRate > k.RefreshRate)
                known.increaseRefreshRate(mode.RefreshRate);
            return;
        }
    }
    m_modes.push_back(D3D9VideoMode(mode));
}

unsigned D3D9VideoModeList::GetCount()
{
    return static_cast<unsigned>(m_modes.size());
}

CVideoMode* D3D9VideoModeList::GetItem(unsigned index)
{
    if (index >= m_modes.size())
    {
        LogError("D3D9VideoModeList::GetItem: index %u past the %u modes", index, GetCount());
        return nullptr;
    }
    return &m_modes[index];
}

CVideoMode* D3D9VideoModeList::GetItem(const char* name)
{
    if (!name)
        return nullptr;
    for (D3D9VideoMode& mode : m_modes)
        if (std::strcmp(mode.getDescription(), name) == 0)
            return &mode;
    return nullptr;
}

} // namespace kv
