#pragma once
// The tree a compiled effect is read into, and the routines that answer queries
// on it and tear it down. CD3D9ParseEffect fills it and forwards to these.

#include "D3D9RenderSystem/EffectObject.h"
#include "D3D9RenderSystem/EffectParameter.h"
#include "D3D9RenderSystem/EffectPass.h"
#include "D3D9RenderSystem/EffectSampler.h"
#include "D3D9RenderSystem/EffectState.h"
#include "D3D9RenderSystem/EffectTechnique.h"
#include "D3D9RenderSystem/EffectTypes.h"

#include <cstdint>

struct ParsedEffect
{
    uint32_t parameter_count;
    uint32_t technique_count;
    uint32_t object_count;
    EffectParameter* parameters;
    EffectTechnique* techniques;
    EffectObject* objects;
    // Every parameter, annotation, element and member in the order of reading; a
    // parameter's handle is the address of its slot here.
    EffectParameter** handles;
    uint32_t handle_count;
    uint32_t handle_capacity;
};

// A bound on the work of the name walks while a file is read, so that a file
// cannot make its own reading take unbounded time. The queries pass none.
struct EffectWalkBudget
{
    uint64_t steps_left;
    bool exhausted;
};

// Names of classes and types for messages; "unrecognized" (with a logged line)
// for a value outside the tables.
const char* EffectClassName(uint32_t parameter_class);
const char* EffectTypeName(uint32_t parameter_type);

// Strings, textures and shaders hold a pointer-sized slot in data.
bool EffectIsSlotType(uint32_t parameter_type);
bool EffectIsSamplerType(uint32_t parameter_type);

// Teardown. element: an array element that shares its array's texts; child: a
// member or element whose data lies in the block of an outer parameter.
void ParsedEffectFreeParameter(EffectParameter* parameter, bool element, bool child);
void ParsedEffectFreePass(EffectPass* pass);
void ParsedEffectFreeTechnique(EffectTechnique* technique);
// Frees the parameters, the techniques and the objects with their data, and sets
// those arrays to null; counts and the handle table stay.
void ParsedEffectFreeContents(ParsedEffect* effect);
// Everything, the handle table first; the record is zero afterwards.
void ParsedEffectRelease(ParsedEffect* effect);

// Handle resolution: null when the value is not of that form.
EffectParameter* ParsedEffectParameterFromHandle(const ParsedEffect* effect, EffectHandle handle);
EffectTechnique* ParsedEffectTechniqueFromHandle(const ParsedEffect* effect, EffectHandle handle);
EffectPass* ParsedEffectPassFromHandle(const ParsedEffect* effect, EffectHandle handle);

// The path walk of "name.member[2].x@annotation" forms from parent (null: the top
// level). Pure apart from its messages; null when nothing matches, or when the
// budget (may be null) runs out.
EffectParameter* ParsedEffectFindParameter(const ParsedEffect* effect, EffectParameter* parent, const char* text,
                                           EffectWalkBudget* budget);

EffectHandle ParsedEffectGetAnnotation(const ParsedEffect* effect, EffectHandle handle, uint32_t index);
EffectHandle ParsedEffectGetAnnotationByName(const ParsedEffect* effect, EffectHandle handle, const char* name);
uint32_t ParsedEffectGetDesc(const ParsedEffect* effect, D3DXEFFECT_DESC* desc);
uint32_t ParsedEffectGetFunctionDesc(const ParsedEffect* effect, EffectHandle handle, void* desc);
EffectHandle ParsedEffectGetParameter(const ParsedEffect* effect, EffectHandle handle, uint32_t index);
EffectHandle ParsedEffectGetParameterByName(const ParsedEffect* effect, EffectHandle handle, const char* name);
EffectHandle ParsedEffectGetParameterBySemantic(const ParsedEffect* effect, EffectHandle handle, const char* semantic);
uint32_t ParsedEffectGetParameterDesc(const ParsedEffect* effect, EffectHandle handle, D3DXPARAMETER_DESC* desc);
EffectHandle ParsedEffectGetParameterElement(const ParsedEffect* effect, EffectHandle handle, uint32_t index);
EffectHandle ParsedEffectGetPass(const ParsedEffect* effect, EffectHandle technique, uint32_t index);
EffectHandle ParsedEffectGetPassByName(const ParsedEffect* effect, EffectHandle technique, const char* name);
uint32_t ParsedEffectGetPassDesc(const ParsedEffect* effect, EffectHandle pass, D3DXPASS_DESC* desc);
uint32_t ParsedEffectGetString(const ParsedEffect* effect, EffectHandle handle, const char** text);
EffectHandle ParsedEffectGetTechnique(const ParsedEffect* effect, uint32_t index);
EffectHandle ParsedEffectGetTechniqueByName(const ParsedEffect* effect, const char* name);
uint32_t ParsedEffectGetTechniqueDesc(const ParsedEffect* effect, EffectHandle technique, D3DXTECHNIQUE_DESC* desc);
