#include "engine/Root.h"

namespace kv
{

void CRoot::OnDeviceReset()
{
    ++m_nDeviceResetCount;
}

CRoot* GetRoot()
{
    static CRoot root;
    return &root;
}

} // namespace kv
