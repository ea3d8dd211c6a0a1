#pragma once
#include "engine/PixelFormat.h"

namespace kv
{

class CVideoMode
{
public:
    virtual ~CVideoMode() {}
    virtual unsigned getWidth() = 0;
    virtual unsigned getHeight() = 0;
    virtual PixelFormat getPixelFormat() = 0;
    virtual unsigned getRefreshRate() = 0;
    virtual unsigned getColourBits() = 0;
    virtual const char* getDescription() = 0;
};

} // namespace kv
