#pragma once
// One stored state of a pass or a sampler. Operation and index are kept as read;
// nothing here gives them a meaning.

#include "D3D9RenderSystem/EffectParameter.h"

#include <cstdint>

struct EffectState
{
    uint32_t operation;
    uint32_t index;
    uint32_t state_type; // an EffectStateType
    EffectParameter parameter;
};
