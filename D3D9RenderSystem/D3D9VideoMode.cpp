#include "D3D9VideoMode.h"
#include "D3D9Mappings.h"

#include <cstdio>
#include <string>

namespace kv
{

D3D9VideoMode::D3D9VideoMode(const D3DDISPLAYMODE& mode) : m_displayMode(mode) {}

unsigned D3D9VideoMode::getWidth()
{
    return m_displayMode.Width;
}

unsigned D3D9VideoMode::getHeight()
{
    return m_displayMode.Height;
}

PixelFormat D3D9VideoMode::getPixelFormat()
{
    return D3D9Mappings::fromD3DFormat(m_displayMode.Format);
}

unsigned D3D9VideoMode::getRefreshRate()
{
    return m_displayMode.RefreshRate;
}

unsigned D3D9VideoMode::getColourBits()
{
    switch (m_displayMode.Format)
    {
    case D3DFMT_X8R8G8B8:
    case D3DFMT_A8R8G8B8:
    case D3DFMT_R8G8B8:
        return 32;
    default:
        return 16;
    }
}

const char* D3D9VideoMode::getDescription()
{
    static std::string description;
    char buffer[96];
    std::snprintf(buffer, sizeof(buffer), "%u x %u @ %u-bit colour", m_displayMode.Width, m_displayMode.Height,
                  getColourBits());
    description = buffer;
    return description.c_str();
}

} // namespace kv
