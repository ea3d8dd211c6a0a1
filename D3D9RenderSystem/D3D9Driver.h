#pragma once
// One adapter as the engine sees it: what Direct3D said of it when the driver
// list was made, and its display modes, enumerated at the first request.
#include "D3D9Prerequisites.h"

#include "engine/Driver.h"

namespace kv
{

class D3D9VideoModeList;

class D3D9Driver : public CDriver
{
public:
    // pD3D9 is not owned: it must outlive the driver and its mode list.
    D3D9Driver(IDirect3D9* pD3D9, unsigned adapterNumber, const D3DCAPS9& caps,
               const D3DADAPTER_IDENTIFIER9& identifier, const D3DDISPLAYMODE& desktopMode);
    // A copy carries what was read of the adapter but not the mode list: it
    // enumerates its modes anew, since the list points back at its driver.
    D3D9Driver(const D3D9Driver& other);
    D3D9Driver& operator=(const D3D9Driver& other);
    ~D3D9Driver() override;

    // The identifier's Driver field.
    const char* GetDriverName() override;
    // "Monitor-<adapter + 1>-<Description>", trimmed of blanks, tabs and
    // carriage returns at both ends.
    const char* GetDriverDescription() override;
    // Made at the first call and kept.
    CVideoModeList* GetVideoModes() override;

    IDirect3D9* getD3D9() const { return m_pD3D9; }
    unsigned getAdapterNumber() const { return m_nAdapterNumber; }
    const D3DCAPS9& getD3D9DeviceCaps() const { return m_d3dcaps; }
    const D3DADAPTER_IDENTIFIER9& getAdapterIdentifier() const { return m_adapterIdentifier; }
    const D3DDISPLAYMODE& getDesktopMode() const { return m_desktopDisplayMode; }

private:
    IDirect3D9* m_pD3D9; // not owned
    unsigned m_nAdapterNumber;
    D3DCAPS9 m_d3dcaps;
    D3DADAPTER_IDENTIFIER9 m_adapterIdentifier;
    D3DDISPLAYMODE m_desktopDisplayMode;
    D3D9VideoModeList* m_pVideoModeList; // owned
};

} // namespace kv
