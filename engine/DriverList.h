#pragma once
#include "engine/Driver.h"

namespace kv
{

class CDriverList
{
public:
    virtual ~CDriverList() {}
    virtual unsigned GetCount() = 0;
    virtual CDriver* GetItem(unsigned index) = 0;
    virtual CDriver* GetItem(const char* name) = 0;
};

} // namespace kv
