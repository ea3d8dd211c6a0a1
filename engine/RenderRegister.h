#pragma once
#include "engine/Export.h"

#include <cstdint>

namespace kv
{

class KV_API CRenderRegister
{
public:
    CRenderRegister() : m_nRegisterMacro(0) {}
    uint64_t m_nRegisterMacro; // the register macro word
};

KV_API CRenderRegister* GetRenderRegister();

} // namespace kv
