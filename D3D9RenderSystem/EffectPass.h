#pragma once
// One pass of a technique.

#include "D3D9RenderSystem/EffectParameter.h"
#include "D3D9RenderSystem/EffectState.h"

#include <cstdint>

struct EffectPass
{
    char* name;
    uint32_t state_count;
    uint32_t annotation_count;
    EffectState* states;
    EffectParameter* annotations;
};
