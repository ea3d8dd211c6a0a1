#pragma once
// The value of a sampler parameter: its states.

#include "D3D9RenderSystem/EffectState.h"

#include <cstdint>

struct EffectSampler
{
    uint32_t state_count;
    EffectState* states;
};
