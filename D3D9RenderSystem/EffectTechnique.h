#pragma once
// One technique of an effect.

#include "D3D9RenderSystem/EffectParameter.h"
#include "D3D9RenderSystem/EffectPass.h"

#include <cstdint>

struct EffectTechnique
{
    char* name;
    uint32_t pass_count;
    uint32_t annotation_count;
    EffectParameter* annotations;
    EffectPass* passes;
};
