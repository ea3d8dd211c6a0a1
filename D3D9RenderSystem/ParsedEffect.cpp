#include "D3D9RenderSystem/ParsedEffect.h"

#include "D3D9RenderSystem/EffectHeap.h"
#include "D3D9RenderSystem/EffectLog.h"

#include <climits>
#include <cstring>

#define EFFECT_ERROR(...) EffectLogError("ParsedEffect", __LINE__, __VA_ARGS__)

// ---------------------------------------------------------------- names

const char* EffectClassName(uint32_t parameter_class)
{
    switch (parameter_class)
    {
    case D3DXPC_SCALAR:
        return "D3DXPC_SCALAR";
    case D3DXPC_VECTOR:
        return "D3DXPC_VECTOR";
    case D3DXPC_MATRIX_ROWS:
        return "D3DXPC_MATRIX_ROWS";
    case D3DXPC_MATRIX_COLUMNS:
        return "D3DXPC_MATRIX_COLUMNS";
    case D3DXPC_OBJECT:
        return "D3DXPC_OBJECT";
    case D3DXPC_STRUCT:
        return "D3DXPC_STRUCT";
    }
    EFFECT_ERROR("Unrecognized D3DXPARAMETER_CLASS %#x.\n", parameter_class);
    return "unrecognized";
}

const char* EffectTypeName(uint32_t parameter_type)
{
    static const char* const names[] = {
        "D3DXPT_VOID",           "D3DXPT_BOOL",         "D3DXPT_INT",
        "D3DXPT_FLOAT",          "D3DXPT_STRING",       "D3DXPT_TEXTURE",
        "D3DXPT_TEXTURE1D",      "D3DXPT_TEXTURE2D",    "D3DXPT_TEXTURE3D",
        "D3DXPT_TEXTURECUBE",    "D3DXPT_SAMPLER",      "D3DXPT_SAMPLER1D",
        "D3DXPT_SAMPLER2D",      "D3DXPT_SAMPLER3D",    "D3DXPT_SAMPLERCUBE",
        "D3DXPT_PIXELSHADER",    "D3DXPT_VERTEXSHADER", "D3DXPT_PIXELFRAGMENT",
        "D3DXPT_VERTEXFRAGMENT", "D3DXPT_UNSUPPORTED",
    };
    if (parameter_type < sizeof(names) / sizeof(names[0]))
        return names[parameter_type];
    EFFECT_ERROR("Unrecognized D3DXPARAMETER_TYP %#x.\n", parameter_type);
    return "unrecognized";
}

bool EffectIsSlotType(uint32_t parameter_type)
{
    return (parameter_type >= D3DXPT_STRING && parameter_type <= D3DXPT_TEXTURECUBE) ||
           parameter_type == D3DXPT_PIXELSHADER || parameter_type == D3DXPT_VERTEXSHADER;
}

bool EffectIsSamplerType(uint32_t parameter_type)
{
    return parameter_type >= D3DXPT_SAMPLER && parameter_type <= D3DXPT_SAMPLERCUBE;
}

// ---------------------------------------------------------------- teardown

void ParsedEffectFreeParameter(EffectParameter* parameter, bool element, bool child)
{
    if (parameter->annotations)
    {
        for (uint32_t i = 0; i < parameter->annotation_count; ++i)
            ParsedEffectFreeParameter(&parameter->annotations[i], false, false);
        MyHeapFree(0, parameter->annotations);
        parameter->annotations = nullptr;
    }
    if (parameter->members)
    {
        const bool isArray = parameter->element_count != 0;
        const uint32_t count = isArray ? parameter->element_count : parameter->member_count;
        for (uint32_t i = 0; i < count; ++i)
            ParsedEffectFreeParameter(&parameter->members[i], isArray, true);
        MyHeapFree(0, parameter->members);
        parameter->members = nullptr;
    }
    if (parameter->class_ == D3DXPC_OBJECT && parameter->element_count == 0)
    {
        if (EffectIsSlotType(parameter->type))
        {
            if (parameter->data)
            {
                void** slot = static_cast<void**>(parameter->data);
                MyHeapFree(0, *slot);
                *slot = nullptr;
            }
        }
        else if (EffectIsSamplerType(parameter->type))
        {
            EffectSampler* sampler = static_cast<EffectSampler*>(parameter->data);
            if (sampler)
            {
                if (sampler->states)
                {
                    for (uint32_t i = 0; i < sampler->state_count; ++i)
                        ParsedEffectFreeParameter(&sampler->states[i].parameter, false, false);
                    MyHeapFree(0, sampler->states);
                    sampler->states = nullptr;
                }
                // A top-level sampler's record is its data, freed below.
                if (child)
                {
                    MyHeapFree(0, sampler);
                    parameter->data = nullptr;
                }
            }
        }
        else
        {
            EFFECT_ERROR("Unhandled type %s\n", EffectTypeName(parameter->type));
        }
    }
    if (!child)
    {
        MyHeapFree(0, parameter->data);
        parameter->data = nullptr;
    }
    if (!element)
    {
        MyHeapFree(0, parameter->name);
        MyHeapFree(0, parameter->semantic);
    }
    parameter->name = nullptr;
    parameter->semantic = nullptr;
}

static void FreeAnnotations(EffectParameter*& annotations, uint32_t count)
{
    if (!annotations)
        return;
    for (uint32_t i = 0; i < count; ++i)
        ParsedEffectFreeParameter(&annotations[i], false, false);
    MyHeapFree(0, annotations);
    annotations = nullptr;
}

void ParsedEffectFreePass(EffectPass* pass)
{
    FreeAnnotations(pass->annotations, pass->annotation_count);
    if (pass->states)
    {
        for (uint32_t i = 0; i < pass->state_count; ++i)
            ParsedEffectFreeParameter(&pass->states[i].parameter, false, false);
        MyHeapFree(0, pass->states);
        pass->states = nullptr;
    }
    MyHeapFree(0, pass->name);
    pass->name = nullptr;
}

void ParsedEffectFreeTechnique(EffectTechnique* technique)
{
    FreeAnnotations(technique->annotations, technique->annotation_count);
    if (technique->passes)
    {
        for (uint32_t i = 0; i < technique->pass_count; ++i)
            ParsedEffectFreePass(&technique->passes[i]);
        MyHeapFree(0, technique->passes);
        technique->passes = nullptr;
    }
    MyHeapFree(0, technique->name);
    technique->name = nullptr;
}

static void FreeParameters(ParsedEffect* effect)
{
    if (!effect->parameters)
        return;
    for (uint32_t i = 0; i < effect->parameter_count; ++i)
        ParsedEffectFreeParameter(&effect->parameters[i], false, false);
    MyHeapFree(0, effect->parameters);
    effect->parameters = nullptr;
}

static void FreeTechniques(ParsedEffect* effect)
{
    if (!effect->techniques)
        return;
    for (uint32_t i = 0; i < effect->technique_count; ++i)
        ParsedEffectFreeTechnique(&effect->techniques[i]);
    MyHeapFree(0, effect->techniques);
    effect->techniques = nullptr;
}

static void FreeObjects(ParsedEffect* effect)
{
    if (!effect->objects)
        return;
    for (uint32_t i = 0; i < effect->object_count; ++i)
        MyHeapFree(0, effect->objects[i].data);
    MyHeapFree(0, effect->objects);
    effect->objects = nullptr;
}

void ParsedEffectFreeContents(ParsedEffect* effect)
{
    FreeTechniques(effect);
    FreeParameters(effect);
    FreeObjects(effect);
}

void ParsedEffectRelease(ParsedEffect* effect)
{
    MyHeapFree(0, effect->handles);
    effect->handles = nullptr;
    FreeParameters(effect);
    FreeTechniques(effect);
    FreeObjects(effect);
    std::memset(effect, 0, sizeof(*effect));
}

// ---------------------------------------------------------------- handles

EffectParameter* ParsedEffectParameterFromHandle(const ParsedEffect* effect, EffectHandle handle)
{
    if (!handle || !effect->handles)
        return nullptr;
    // Compared as numbers: the handle may point anywhere.
    const uintptr_t value = reinterpret_cast<uintptr_t>(handle);
    const uintptr_t start = reinterpret_cast<uintptr_t>(effect->handles);
    if (value < start)
        return nullptr;
    const uintptr_t offset = value - start;
    if (offset % sizeof(EffectParameter*) != 0 || offset / sizeof(EffectParameter*) >= effect->handle_count)
        return nullptr;
    return effect->handles[offset / sizeof(EffectParameter*)];
}

EffectTechnique* ParsedEffectTechniqueFromHandle(const ParsedEffect* effect, EffectHandle handle)
{
    if (!handle || !effect->techniques)
        return nullptr;
    for (uint32_t i = 0; i < effect->technique_count; ++i)
        if (handle == static_cast<const void*>(&effect->techniques[i]))
            return &effect->techniques[i];
    return nullptr;
}

EffectPass* ParsedEffectPassFromHandle(const ParsedEffect* effect, EffectHandle handle)
{
    if (!handle || !effect->techniques)
        return nullptr;
    for (uint32_t i = 0; i < effect->technique_count; ++i)
    {
        EffectTechnique* technique = &effect->techniques[i];
        if (!technique->passes)
            continue;
        for (uint32_t j = 0; j < technique->pass_count; ++j)
            if (handle == static_cast<const void*>(&technique->passes[j]))
                return &technique->passes[j];
    }
    return nullptr;
}

static EffectHandle HandleOf(const EffectParameter* parameter)
{
    return parameter ? static_cast<EffectHandle>(parameter->handle) : nullptr;
}

// An array's members are its elements, so never more of them than elements.
static uint32_t MemberCandidates(const EffectParameter* parameter)
{
    if (!parameter->members)
        return 0;
    if (parameter->element_count != 0 && parameter->member_count > parameter->element_count)
        return parameter->element_count;
    return parameter->member_count;
}

// ---------------------------------------------------------------- walks

static bool Charge(EffectWalkBudget* budget, uint64_t steps)
{
    if (!budget)
        return true;
    if (budget->exhausted || budget->steps_left < steps)
    {
        budget->exhausted = true;
        return false;
    }
    budget->steps_left -= steps;
    return true;
}

static size_t NameLength(const char* text)
{
    return std::strcspn(text, "[.@");
}

// The candidate's name is exactly the first length characters of text.
static bool NameIsPrefix(const char* name, const char* text, size_t length)
{
    return std::strncmp(name, text, length) == 0 && name[length] == '\0';
}

// Decimal value at the start of text as atoi reads it, held to the range of int.
static int ReadIndex(const char* text)
{
    while (*text == ' ' || (*text >= '\t' && *text <= '\r'))
        ++text;
    bool negative = false;
    if (*text == '+' || *text == '-')
        negative = *text++ == '-';
    long long value = 0;
    while (*text >= '0' && *text <= '9')
    {
        if (value <= static_cast<long long>(INT_MAX) + 1)
            value = value * 10 + (*text - '0');
        ++text;
    }
    if (negative)
        value = -value;
    if (value > INT_MAX)
        value = INT_MAX;
    if (value < INT_MIN)
        value = INT_MIN;
    return static_cast<int>(value);
}

static EffectParameter* AnnotationWalk(const ParsedEffect* effect, uint32_t count, EffectParameter* annotations,
                                       const char* text, EffectWalkBudget* budget);

static EffectParameter* ElementWalk(const ParsedEffect* effect, EffectParameter* parameter, const char* text,
                                    EffectWalkBudget* budget)
{
    if (!text || !*text)
        return nullptr;
    const int index = ReadIndex(text);
    const char* close = std::strchr(text, ']');
    if (!close || close == text || static_cast<uint32_t>(index) >= parameter->element_count || !parameter->members)
        return nullptr;
    EffectParameter* element = &parameter->members[static_cast<uint32_t>(index)];
    switch (close[1])
    {
    case '\0':
        return element;
    case '.':
        return ParsedEffectFindParameter(effect, element, close + 2, budget);
    case '@':
        return AnnotationWalk(effect, element->annotation_count, element->annotations, close + 2, budget);
    default:
        EFFECT_ERROR("Unhandled case \"%c\"\n", close[1]);
        return nullptr;
    }
}

static EffectParameter* AnnotationWalk(const ParsedEffect* effect, uint32_t count, EffectParameter* annotations,
                                       const char* text, EffectWalkBudget* budget)
{
    if (!text || !*text || count == 0 || !annotations)
        return nullptr;
    const size_t length = NameLength(text);
    const uint64_t cost = std::strlen(text) + 1;
    for (uint32_t i = 0; i < count; ++i)
    {
        EffectParameter* annotation = &annotations[i];
        if (!Charge(budget, cost))
            return nullptr;
        if (!annotation->name)
            continue;
        if (std::strcmp(annotation->name, text) == 0)
            return annotation;
        if (!NameIsPrefix(annotation->name, text, length))
            continue;
        switch (text[length])
        {
        case '.':
            return ParsedEffectFindParameter(effect, annotation, text + length + 1, budget);
        case '[':
            return ElementWalk(effect, annotation, text + length + 1, budget);
        default:
            EFFECT_ERROR("Unhandled case \"%c\"\n", text[length]);
            break;
        }
    }
    return nullptr;
}

EffectParameter* ParsedEffectFindParameter(const ParsedEffect* effect, EffectParameter* parent, const char* text,
                                           EffectWalkBudget* budget)
{
    for (;;)
    {
        if (!text || !*text)
            return nullptr;
        EffectParameter* candidates = parent ? parent->members : effect->parameters;
        const uint32_t count = parent ? MemberCandidates(parent) : effect->parameter_count;
        if (!candidates)
            return nullptr;
        const size_t length = NameLength(text);
        const uint64_t cost = std::strlen(text) + 1;
        EffectParameter* next = nullptr;
        for (uint32_t i = 0; i < count && !next; ++i)
        {
            EffectParameter* candidate = &candidates[i];
            if (!Charge(budget, cost))
                return nullptr;
            if (!candidate->name)
                continue;
            // A name that holds a separator matches whole, before any splitting.
            if (std::strcmp(candidate->name, text) == 0)
                return candidate;
            if (!NameIsPrefix(candidate->name, text, length))
                continue;
            switch (text[length])
            {
            case '.':
                next = candidate;
                break;
            case '@':
                return AnnotationWalk(effect, candidate->annotation_count, candidate->annotations, text + length + 1,
                                      budget);
            case '[':
                return ElementWalk(effect, candidate, text + length + 1, budget);
            default:
                break;
            }
        }
        if (!next)
            return nullptr;
        parent = next;
        text += length + 1;
    }
}

// ---------------------------------------------------------------- queries

static EffectParameter* AnnotationsOf(const ParsedEffect* effect, EffectHandle handle, uint32_t* count)
{
    if (EffectPass* pass = ParsedEffectPassFromHandle(effect, handle))
    {
        *count = pass->annotations ? pass->annotation_count : 0;
        return pass->annotations;
    }
    if (EffectTechnique* technique = ParsedEffectTechniqueFromHandle(effect, handle))
    {
        *count = technique->annotations ? technique->annotation_count : 0;
        return technique->annotations;
    }
    if (EffectParameter* parameter = ParsedEffectParameterFromHandle(effect, handle))
    {
        *count = parameter->annotations ? parameter->annotation_count : 0;
        return parameter->annotations;
    }
    EFFECT_ERROR("Functions are not handled, yet!\n");
    *count = 0;
    return nullptr;
}

EffectHandle ParsedEffectGetAnnotation(const ParsedEffect* effect, EffectHandle handle, uint32_t index)
{
    uint32_t count = 0;
    EffectParameter* annotations = AnnotationsOf(effect, handle, &count);
    if (index < count)
        return HandleOf(&annotations[index]);
    EffectLogWarning("Annotation not found.\n");
    return nullptr;
}

EffectHandle ParsedEffectGetAnnotationByName(const ParsedEffect* effect, EffectHandle handle, const char* name)
{
    if (!name)
    {
        EffectLogWarning("Invalid argument specified\n");
        return nullptr;
    }
    uint32_t count = 0;
    EffectParameter* annotations = AnnotationsOf(effect, handle, &count);
    if (EffectParameter* found = AnnotationWalk(effect, count, annotations, name, nullptr))
        return HandleOf(found);
    EffectLogWarning("Annotation not found.\n");
    return nullptr;
}

uint32_t ParsedEffectGetDesc(const ParsedEffect* effect, D3DXEFFECT_DESC* desc)
{
    if (!desc)
    {
        EffectLogWarning("Invalid argument specified.\n");
        return EFFECT_E_INVALIDCALL;
    }
    desc->Creator = nullptr;
    desc->Parameters = effect->parameter_count;
    desc->Techniques = effect->technique_count;
    desc->Functions = 0;
    return EFFECT_OK;
}

uint32_t ParsedEffectGetFunctionDesc(const ParsedEffect* /*effect*/, EffectHandle /*handle*/, void* /*desc*/)
{
    EFFECT_ERROR("stub!\n");
    return EFFECT_E_NOTIMPL;
}

EffectHandle ParsedEffectGetParameter(const ParsedEffect* effect, EffectHandle handle, uint32_t index)
{
    if (!handle)
    {
        if (effect->parameters && index < effect->parameter_count)
            return HandleOf(&effect->parameters[index]);
    }
    else if (EffectParameter* parameter = ParsedEffectParameterFromHandle(effect, handle))
    {
        if (parameter->element_count == 0 && index < MemberCandidates(parameter))
            return HandleOf(&parameter->members[index]);
    }
    EffectLogWarning("Parameter not found.\n");
    return nullptr;
}

EffectHandle ParsedEffectGetParameterElement(const ParsedEffect* effect, EffectHandle handle, uint32_t index)
{
    if (EffectParameter* parameter = ParsedEffectParameterFromHandle(effect, handle))
    {
        if (parameter->members && index < parameter->element_count)
            return HandleOf(&parameter->members[index]);
    }
    else if (effect->parameters && index < effect->parameter_count)
    {
        return HandleOf(&effect->parameters[index]);
    }
    EffectLogWarning("Parameter not found.\n");
    return nullptr;
}

EffectHandle ParsedEffectGetParameterByName(const ParsedEffect* effect, EffectHandle handle, const char* name)
{
    EffectParameter* parent = ParsedEffectParameterFromHandle(effect, handle);
    if (!name)
        return HandleOf(parent);
    return HandleOf(ParsedEffectFindParameter(effect, parent, name, nullptr));
}

static bool EqualIgnoringAsciiCase(const char* a, const char* b)
{
    for (;; ++a, ++b)
    {
        char x = *a, y = *b;
        if (x >= 'A' && x <= 'Z')
            x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z')
            y = static_cast<char>(y - 'A' + 'a');
        if (x != y)
            return false;
        if (x == '\0')
            return true;
    }
}

EffectHandle ParsedEffectGetParameterBySemantic(const ParsedEffect* effect, EffectHandle handle, const char* semantic)
{
    EffectParameter* candidates = nullptr;
    uint32_t count = 0;
    if (handle)
    {
        EffectParameter* parameter = ParsedEffectParameterFromHandle(effect, handle);
        if (parameter && parameter->member_count != 0)
        {
            candidates = parameter->members;
            count = MemberCandidates(parameter);
        }
    }
    else
    {
        candidates = effect->parameters;
        count = candidates ? effect->parameter_count : 0;
    }
    for (uint32_t i = 0; i < count; ++i)
    {
        const char* own = candidates[i].semantic;
        if (own ? (semantic && EqualIgnoringAsciiCase(own, semantic)) : !semantic)
            return HandleOf(&candidates[i]);
    }
    EffectLogWarning("Parameter not found.\n");
    return nullptr;
}

uint32_t ParsedEffectGetParameterDesc(const ParsedEffect* effect, EffectHandle handle, D3DXPARAMETER_DESC* desc)
{
    EffectParameter* parameter = ParsedEffectParameterFromHandle(effect, handle);
    if (!parameter || !desc)
    {
        EffectLogWarning("Invalid argument specified.\n");
        return EFFECT_E_INVALIDCALL;
    }
    desc->Name = parameter->name;
    desc->Semantic = parameter->semantic;
    desc->Class = parameter->class_;
    desc->Type = parameter->type;
    desc->Rows = parameter->rows;
    desc->Columns = parameter->columns;
    desc->Elements = parameter->element_count;
    desc->Annotations = parameter->annotation_count;
    desc->StructMembers = parameter->member_count;
    desc->Flags = parameter->flags;
    desc->Bytes = parameter->bytes;
    return EFFECT_OK;
}

EffectHandle ParsedEffectGetPass(const ParsedEffect* effect, EffectHandle technique, uint32_t index)
{
    EffectTechnique* found = ParsedEffectTechniqueFromHandle(effect, technique);
    if (found && found->passes && index < found->pass_count)
        return &found->passes[index];
    EffectLogWarning("Pass not found.\n");
    return nullptr;
}

EffectHandle ParsedEffectGetPassByName(const ParsedEffect* effect, EffectHandle technique, const char* name)
{
    EffectTechnique* found = ParsedEffectTechniqueFromHandle(effect, technique);
    if (found && found->passes && name)
    {
        for (uint32_t i = 0; i < found->pass_count; ++i)
            if (found->passes[i].name && std::strcmp(found->passes[i].name, name) == 0)
                return &found->passes[i];
    }
    EffectLogWarning("Pass not found.\n");
    return nullptr;
}

uint32_t ParsedEffectGetPassDesc(const ParsedEffect* effect, EffectHandle pass, D3DXPASS_DESC* desc)
{
    EffectPass* found = ParsedEffectPassFromHandle(effect, pass);
    if (!found || !desc)
    {
        EffectLogWarning("Invalid argument specified.\n");
        return EFFECT_E_INVALIDCALL;
    }
    desc->Name = found->name;
    desc->Annotations = found->annotation_count;
    desc->pVertexShaderFunction = nullptr;
    desc->pPixelShaderFunction = nullptr;
    return EFFECT_OK;
}

uint32_t ParsedEffectGetString(const ParsedEffect* effect, EffectHandle handle, const char** text)
{
    EffectParameter* parameter = ParsedEffectParameterFromHandle(effect, handle);
    if (!parameter || parameter->element_count != 0 || parameter->type != D3DXPT_STRING ||
        parameter->class_ != D3DXPC_OBJECT || !parameter->data || !text)
    {
        EffectLogWarning("Parameter not found.\n");
        return EFFECT_E_INVALIDCALL;
    }
    *text = *static_cast<const char* const*>(parameter->data);
    return EFFECT_OK;
}

EffectHandle ParsedEffectGetTechnique(const ParsedEffect* effect, uint32_t index)
{
    if (effect->techniques && index < effect->technique_count)
        return &effect->techniques[index];
    EffectLogWarning("Invalid argument specified.\n");
    return nullptr;
}

EffectHandle ParsedEffectGetTechniqueByName(const ParsedEffect* effect, const char* name)
{
    if (effect->techniques && name)
    {
        for (uint32_t i = 0; i < effect->technique_count; ++i)
            if (effect->techniques[i].name && std::strcmp(effect->techniques[i].name, name) == 0)
                return &effect->techniques[i];
    }
    EffectLogWarning("Technique not found.\n");
    return nullptr;
}

uint32_t ParsedEffectGetTechniqueDesc(const ParsedEffect* effect, EffectHandle technique, D3DXTECHNIQUE_DESC* desc)
{
    // Null means the first technique, which needs no scan.
    EffectTechnique* found = technique ? ParsedEffectTechniqueFromHandle(effect, technique) : effect->techniques;
    if (!found || !desc)
    {
        EffectLogWarning("Invalid argument specified.\n");
        return EFFECT_E_INVALIDCALL;
    }
    desc->Name = found->name;
    desc->Passes = found->pass_count;
    desc->Annotations = found->annotation_count;
    return EFFECT_OK;
}
