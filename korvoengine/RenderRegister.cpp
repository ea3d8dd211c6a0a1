#include "engine/RenderRegister.h"

namespace kv
{

CRenderRegister* GetRenderRegister()
{
    static CRenderRegister reg;
    return &reg;
}

} // namespace kv
