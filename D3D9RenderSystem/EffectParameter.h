#pragma once
// One parameter of a compiled effect: a top-level parameter, an annotation, an
// array element, a struct member or the value of a state.

#include <cstdint>

struct EffectParameter
{
    // Owned, except in an array element, which shares the array's texts.
    char* name;
    char* semantic;
    // Numeric values, arrays and structs: the raw value, owned by the outermost
    // parameter only. Strings, textures and shaders: a pointer-sized slot (null
    // until a string's text is stored). Samplers: an EffectSampler.
    void* data;
    uint32_t class_;
    uint32_t type;
    uint32_t rows;
    uint32_t columns;
    uint32_t element_count;
    uint32_t annotation_count;
    uint32_t member_count;
    uint32_t flags;
    // Size of the whole value; an array's is the sum of its elements.
    uint32_t bytes;
    // Index into the effect's objects, for strings, textures and shaders.
    uint32_t object_id;
    // Address of this parameter's slot in the handle table.
    EffectParameter** handle;
    EffectParameter* annotations;
    // Array elements when element_count is not 0, else struct members.
    EffectParameter* members;
    // The parameter a state refers to by name.
    EffectParameter* referenced;
};
