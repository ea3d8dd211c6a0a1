#include "engine/RenderTypes.h"

namespace kv
{

// The defaults are linear min and mag, no mip filter, clamped, black border.
const SamplerState SamplerState::S_2LINEAR_2CLAMP;

} // namespace kv
