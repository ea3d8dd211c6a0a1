#pragma once
// Runs every query of a parsed effect over everything it holds, by index, by
// name, by semantic and by path, and a few handles that are no handles. Used by
// the robustness tests and the fuzzer: whatever the file held, nothing here may
// crash. Answers how many things were found, so the work cannot be dropped.

#include "D3D9RenderSystem/D3D9ParseEffect.h"

#include <string>

namespace fxtest
{

// visits: how many more parameters may be looked at, so that wide arrays of
// structs of arrays cannot make one run take long.
inline size_t ExerciseParameter(const CD3D9ParseEffect& fx, EffectHandle handle, const std::string& path,
                                size_t& visits)
{
    size_t found = 0;
    D3DXPARAMETER_DESC desc;
    if (!handle || visits == 0 || fx.GetParameterDesc(handle, &desc) != EFFECT_OK)
        return found;
    --visits;
    ++found;
    const char* text = nullptr;
    if (fx.GetString(handle, &text) == EFFECT_OK && text)
        found += std::string(text).size();
    found += fx.GetParameterByName(nullptr, path.c_str()) != nullptr;
    found += fx.GetParameterBySemantic(nullptr, desc.Semantic) != nullptr;
    found += fx.GetParameterBySemantic(handle, "POSITION") != nullptr;
    found += fx.GetParameterByName(handle, nullptr) == handle;
    for (uint32_t i = 0; i < desc.Annotations + 1; ++i)
    {
        EffectHandle annotation = fx.GetAnnotation(handle, i);
        D3DXPARAMETER_DESC a;
        if (annotation && fx.GetParameterDesc(annotation, &a) == EFFECT_OK && a.Name)
        {
            found += fx.GetAnnotationByName(handle, a.Name) != nullptr;
            found += ExerciseParameter(fx, annotation, path + "@" + a.Name, visits);
        }
    }
    for (uint32_t i = 0; i < desc.Elements + 1 && i < 64; ++i)
        found += ExerciseParameter(fx, fx.GetParameterElement(handle, i), path + "[" + std::to_string(i) + "]", visits);
    for (uint32_t i = 0; i < desc.StructMembers + 1 && i < 64; ++i)
    {
        EffectHandle member = fx.GetParameter(handle, i);
        D3DXPARAMETER_DESC m;
        if (member && fx.GetParameterDesc(member, &m) == EFFECT_OK && m.Name)
        {
            found += fx.GetParameterByName(handle, m.Name) != nullptr;
            found += ExerciseParameter(fx, member, path + "." + m.Name, visits);
        }
    }
    return found;
}

inline size_t ExerciseEffect(const CD3D9ParseEffect& fx)
{
    size_t found = 0;
    size_t visits = 2000;
    D3DXEFFECT_DESC effect;
    if (fx.GetDesc(&effect) != EFFECT_OK)
        return found;
    for (uint32_t i = 0; i < effect.Parameters + 1 && i < 4096; ++i)
    {
        EffectHandle p = fx.GetParameter(nullptr, i);
        D3DXPARAMETER_DESC desc;
        if (p && fx.GetParameterDesc(p, &desc) == EFFECT_OK)
            found += ExerciseParameter(fx, p, desc.Name ? desc.Name : "", visits);
        found += fx.GetParameterElement(nullptr, i) == p;
    }
    for (uint32_t t = 0; t < effect.Techniques + 1 && t < 4096; ++t)
    {
        EffectHandle technique = fx.GetTechnique(t);
        D3DXTECHNIQUE_DESC td;
        if (fx.GetTechniqueDesc(technique, &td) != EFFECT_OK)
            continue;
        found += td.Name && fx.GetTechniqueByName(td.Name) != nullptr;
        found += fx.GetAnnotation(technique, 0) != nullptr;
        found += fx.GetParameterElement(technique, 0) != nullptr;
        for (uint32_t p = 0; p < td.Passes + 1 && p < 4096; ++p)
        {
            EffectHandle pass = fx.GetPass(technique, p);
            D3DXPASS_DESC pd;
            if (fx.GetPassDesc(pass, &pd) != EFFECT_OK)
                continue;
            found += pd.Name && fx.GetPassByName(technique, pd.Name) != nullptr;
            found += fx.GetAnnotation(pass, 0) != nullptr;
            found += fx.GetAnnotationByName(pass, "x.y") != nullptr;
        }
    }
    // Paths of every form, on whatever names the effect has.
    static const char* const paths[] = {"",      "a",      "a.b",   "a[0]",  "a[1].b", "a@b",
                                        "a@b.c", "a@b[0]", "a[",    "a[]",   "[0]",    ".",
                                        "@",     "a[0]@b", "a[0]x", "a@b@c", "a[-1]",  "a[99999999999]"};
    for (const char* path : paths)
        found += fx.GetParameterByName(nullptr, path) != nullptr;
    // Values that are no handles.
    const int local = 0;
    found += fx.GetParameterByName(&local, "a") != nullptr;
    found += fx.GetAnnotation(&local, 0) != nullptr;
    D3DXPARAMETER_DESC desc;
    const uintptr_t first = reinterpret_cast<uintptr_t>(fx.GetParameter(nullptr, 0));
    if (first)
        found += fx.GetParameterDesc(reinterpret_cast<EffectHandle>(first + 1), &desc) == EFFECT_OK;
    found += fx.GetTechniqueDesc(nullptr, nullptr) == EFFECT_OK;
    found += fx.GetFunctionDesc(nullptr, nullptr) == EFFECT_OK;
    return found;
}

} // namespace fxtest
