#pragma once
// One display mode of an adapter, as the engine sees it.
#include "D3D9Prerequisites.h"

#include "engine/VideoMode.h"

namespace kv
{

class D3D9VideoMode : public CVideoMode
{
public:
    explicit D3D9VideoMode(const D3DDISPLAYMODE& mode);

    unsigned getWidth() override;
    unsigned getHeight() override;
    PixelFormat getPixelFormat() override;
    unsigned getRefreshRate() override;
    // 32 for the 8-bit-per-channel formats, 16 for everything else.
    unsigned getColourBits() override;
    // "<width> x <height> @ <bits>-bit colour". The text lives in one buffer
    // shared by all modes, overwritten by the next call.
    const char* getDescription() override;

    const D3DDISPLAYMODE& getDisplayMode() const { return m_displayMode; }
    // Enumeration keeps the highest refresh rate offered for a size and format.
    void increaseRefreshRate(unsigned rate) { m_displayMode.RefreshRate = rate; }

private:
    D3DDISPLAYMODE m_displayMode;
};

} // namespace kv
