#pragma once
// An entry of the effect's object table: a string's text, a shader's code or a
// state's data block, by object id.

#include "D3D9RenderSystem/EffectParameter.h"

#include <cstdint>

struct EffectObject
{
    uint32_t size;
    // Owned; one zero byte beyond size is always kept behind the data, so a text
    // that lacks its terminator still ends inside the block.
    void* data;
    // The parameter that named this object; not owned.
    EffectParameter* parameter;
};
