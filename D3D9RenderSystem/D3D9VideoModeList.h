#pragma once
// The display modes of one adapter: at most one entry per size and format,
// with the highest refresh rate offered, the 16-bit modes ahead of the 32-bit
// ones, each group in the adapter's order. Modes below 640 x 400 are left out.
#include "D3D9VideoMode.h"

#include "engine/VideoModeList.h"

#include <vector>

namespace kv
{

class D3D9Driver;

class D3D9VideoModeList : public CVideoModeList
{
public:
    // The smallest mode worth offering.
    static const unsigned kMinWidth = 640;
    static const unsigned kMinHeight = 400;

    // Enumerates the driver's adapter at once; pDriver is not owned.
    explicit D3D9VideoModeList(D3D9Driver* pDriver);

    unsigned GetCount() override;
    // The index must be below GetCount; past it the answer is null.
    CVideoMode* GetItem(unsigned index) override;
    // The first mode whose description equals the name, or null.
    CVideoMode* GetItem(const char* name) override;

private:
    void Enumerate();
    void AddMode(const D3DDISPLAYMODE& mode);

    D3D9Driver* m_pDriver; // not owned
    std::vector<D3D9VideoMode> m_modes;
};

} // namespace kv
