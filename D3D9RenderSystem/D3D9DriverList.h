#pragma once
// The adapters of one IDirect3D9, read once when the list is made. The render
// system owns it and makes it at the first GetDriverList.
#include "D3D9Driver.h"

#include "engine/DriverList.h"

#include <vector>

namespace kv
{

class D3D9DriverList : public CDriverList
{
public:
    // Reads every adapter of pD3D9 (not owned; null gives an empty list). The
    // capabilities are read for the render system's device type, or for the
    // hardware device when no render system exists.
    explicit D3D9DriverList(IDirect3D9* pD3D9);

    unsigned GetCount() override;
    // An index at or past the count throws std::out_of_range with the text
    // "invalid vector<T> subscript", the one error the plug-in lets escape.
    CDriver* GetItem(unsigned index) override;
    // The first driver whose GetDriverDescription equals the name, or null.
    CDriver* GetItem(const char* name) override;

private:
    std::vector<D3D9Driver> m_drivers;
};

} // namespace kv
