#pragma once
#include "engine/VideoMode.h"

namespace kv
{

class CVideoModeList
{
public:
    virtual ~CVideoModeList() {}
    virtual unsigned GetCount() = 0;
    virtual CVideoMode* GetItem(unsigned index) = 0;
    virtual CVideoMode* GetItem(const char* name) = 0;
};

} // namespace kv
