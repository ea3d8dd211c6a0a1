#pragma once
// Runs every query of a parsed effect over everything it holds, by index, by
// name, by semantic and by path, and on values that are no handles. Used by the
// robustness tests and the fuzzer: whatever the file held, nothing here may
// crash. Answers how many parameters it reached, so the work cannot be dropped.

#include "D3D9RenderSystem/D3D9ParseEffect.h"

#include <string>

namespace fxtest
{

// visits: how many more parameters may be looked at, so that wide arrays of
// structs of arrays cannot make one run take long.
inline size_t ExerciseParameter(const CD3D9ParseEffect& fx, EffectHandle handle, const std::string& path,
                                size_t& visits)
{
    D3DXPARAMETER_DESC desc;
    if (!handle || visits == 0 || fx.GetParameterDesc(handle, &desc) != EFFECT_OK)
        return 0;
    --visits;
    size_t found = 1;
    const char* text = nullptr;
    fx.GetString(handle, &text);
    fx.GetParameterByName(nullptr, path.c_str());
    fx.GetParameterBySemantic(nullptr, desc.Semantic);
    fx.GetParameterBySemantic(handle, "POSITION");
    // One past each count as well: the queries must refuse it.
    for (uint32_t i = 0; i < desc.Annotations + 1 && i < 64; ++i)
    {
        D3DXPARAMETER_DESC a;
        const EffectHandle annotation = fx.GetAnnotation(handle, i);
        if (fx.GetParameterDesc(annotation, &a) == EFFECT_OK && a.Name)
            found += ExerciseParameter(fx, fx.GetAnnotationByName(handle, a.Name), path + "@" + a.Name, visits);
    }
    for (uint32_t i = 0; i < desc.Elements + 1 && i < 64; ++i)
        found += ExerciseParameter(fx, fx.GetParameterElement(handle, i), path + "[" + std::to_string(i) + "]", visits);
    for (uint32_t i = 0; i < desc.StructMembers + 1 && i < 64; ++i)
    {
        D3DXPARAMETER_DESC m;
        const EffectHandle member = fx.GetParameter(handle, i);
        if (fx.GetParameterDesc(member, &m) == EFFECT_OK && m.Name)
            found += ExerciseParameter(fx, member, path + "." + (fx.GetParameterByName(handle, m.Name) ? m.Name : ""),
                                       visits);
    }
    return found;
}

inline size_t ExerciseEffect(const CD3D9ParseEffect& fx)
{
    size_t found = 0, visits = 2000;
    D3DXEFFECT_DESC effect;
    if (fx.GetDesc(&effect) != EFFECT_OK)
        return found;
    for (uint32_t i = 0; i < effect.Parameters + 1 && i < 4096; ++i)
    {
        D3DXPARAMETER_DESC desc;
        const EffectHandle p = fx.GetParameter(nullptr, i);
        fx.GetParameterElement(nullptr, i);
        if (fx.GetParameterDesc(p, &desc) == EFFECT_OK)
            found += ExerciseParameter(fx, p, desc.Name ? desc.Name : "", visits);
    }
    for (uint32_t t = 0; t < effect.Techniques + 1 && t < 4096; ++t)
    {
        const EffectHandle technique = fx.GetTechnique(t);
        D3DXTECHNIQUE_DESC td;
        if (fx.GetTechniqueDesc(technique, &td) != EFFECT_OK)
            continue;
        fx.GetTechniqueByName(td.Name);
        fx.GetAnnotation(technique, 0);
        fx.GetParameterElement(technique, 0);
        for (uint32_t p = 0; p < td.Passes + 1 && p < 4096; ++p)
        {
            const EffectHandle pass = fx.GetPass(technique, p);
            D3DXPASS_DESC pd;
            if (fx.GetPassDesc(pass, &pd) == EFFECT_OK)
                fx.GetPassByName(technique, pd.Name);
            fx.GetAnnotationByName(pass, "x.y");
        }
    }
    // Paths of every form, on whatever names the effect has, and values that are no handles.
    for (const char* path : {"", "a", "a.b", "a[0]", "a[1].b", "a@b", "a@b.c", "a@b[0]", "a[", "a[]", "[0]", ".", "@",
                             "a[0]@b", "a[0]x", "a@b@c", "a[-1]", "a[99999999999]"})
        fx.GetParameterByName(nullptr, path);
    const int local = 0;
    D3DXPARAMETER_DESC desc;
    fx.GetParameterByName(&local, "a");
    fx.GetAnnotation(&local, 0);
    if (const uintptr_t first = reinterpret_cast<uintptr_t>(fx.GetParameter(nullptr, 0)))
        fx.GetParameterDesc(reinterpret_cast<EffectHandle>(first + 1), &desc);
    fx.GetTechniqueDesc(nullptr, nullptr);
    fx.GetFunctionDesc(nullptr, nullptr);
    return found;
}

} // namespace fxtest
