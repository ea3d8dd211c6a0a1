#pragma once
// Reader of compiled Direct3D 9 effects. It reads a file image from memory into
// a tree of plain records and answers queries on it in the manner of an effect
// interface; it needs no device and no D3DX, creates nothing and evaluates
// nothing. Files may come from anywhere: every offset, count and object id is
// checked against the image, so bad bytes give a logged failure, never a crash.

#include "D3D9RenderSystem/ParsedEffect.h"
#include "base/Referenced.h"

#include <cstdint>

class CD3D9ParseEffect : public CReferenced
{
public:
    CD3D9ParseEffect();
    ~CD3D9ParseEffect() override;

    CD3D9ParseEffect(const CD3D9ParseEffect&) = delete;
    CD3D9ParseEffect& operator=(const CD3D9ParseEffect&) = delete;

    // Reads size bytes at data. After a failure the object answers no queries and
    // should be dropped; parsing again replaces whatever was read before.
    bool Parse(const void* data, uint32_t size);

    EffectHandle GetAnnotation(EffectHandle handle, uint32_t index) const;
    EffectHandle GetAnnotationByName(EffectHandle handle, const char* name) const;
    uint32_t GetDesc(D3DXEFFECT_DESC* desc) const;
    uint32_t GetFunctionDesc(EffectHandle handle, void* desc) const;
    EffectHandle GetParameter(EffectHandle handle, uint32_t index) const;
    EffectHandle GetParameterByName(EffectHandle handle, const char* name) const;
    EffectHandle GetParameterBySemantic(EffectHandle handle, const char* semantic) const;
    uint32_t GetParameterDesc(EffectHandle handle, D3DXPARAMETER_DESC* desc) const;
    EffectHandle GetParameterElement(EffectHandle handle, uint32_t index) const;
    EffectHandle GetPass(EffectHandle technique, uint32_t index) const;
    EffectHandle GetPassByName(EffectHandle technique, const char* name) const;
    uint32_t GetPassDesc(EffectHandle pass, D3DXPASS_DESC* desc) const;
    uint32_t GetString(EffectHandle handle, const char** text) const;
    EffectHandle GetTechnique(uint32_t index) const;
    EffectHandle GetTechniqueByName(const char* name) const;
    uint32_t GetTechniqueDesc(EffectHandle technique, D3DXTECHNIQUE_DESC* desc) const;

    // The tree as read, for callers that walk the states themselves.
    const ParsedEffect& GetParsedEffect() const { return m_effect; }

private:
    ParsedEffect m_effect;
};
