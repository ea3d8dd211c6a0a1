#pragma once
#include "engine/Export.h"

namespace kv
{

class KV_API CRoot
{
public:
    CRoot() : m_nDeviceResetCount(0) {}
    // Told after every successful device reset.
    void OnDeviceReset();

    int m_nDeviceResetCount;
};

KV_API CRoot* GetRoot();

} // namespace kv
