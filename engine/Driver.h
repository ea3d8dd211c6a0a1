#pragma once
#include "engine/VideoModeList.h"

namespace kv
{

class CDriver
{
public:
    virtual ~CDriver() {}
    virtual const char* GetDriverName() = 0;
    virtual const char* GetDriverDescription() = 0;
    virtual CVideoModeList* GetVideoModes() = 0;
};

} // namespace kv
