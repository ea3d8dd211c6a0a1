#pragma once
// An HLSL program. The engine keeps the parameter records; the render system's
// program fills one bind per parameter and variant with register numbers.
#include "engine/Export.h"
#include "engine/RenderTypes.h"
#include "engine/Resource.h"

#include <cstdint>
#include <map>
#include <string>

namespace kv
{

class CCamera;
class CTexture;

class KV_API CGpuProgram : public CResource
{
public:
    // Registers of one parameter in one variant; negative when a stage does not use it.
    struct Bind
    {
        int nVSRegister;
        int nPSRegister;
        int nVSCount;
        int nPSCount;
    };

    struct PARAM
    {
        Bind* m_pBind; // the current variant's bind, or null
        std::string m_strName;
        std::map<const void*, Bind> m_binds;
        PARAM() : m_pBind(nullptr) {}
    };

    CGpuProgram();
    ~CGpuProgram() override;

    int GetClassType() override;

    virtual bool Load(const char* name) = 0;
    virtual void Destroy();
    virtual bool BeginActivate(CCamera* camera, bool flag);
    virtual bool FlushConstants() = 0;
    virtual void ActivateHook() = 0;
    virtual bool SelectVariant() = 0;
    virtual void SetValue(const PARAM* param, const float* value) = 0;
    virtual void SetTexture(const PARAM* param, const CTexture* texture, const SamplerState& state);
    virtual void SetVector4(const PARAM* param, const float* value) = 0;
    virtual void SetVector3(const PARAM* param, const float* value) = 0;
    virtual void SetVector2(const PARAM* param, const float* value) = 0;
    virtual void SetFloat(const PARAM* param, const float* value) = 0;
    virtual void SetInt(const PARAM* param, const int* value);
    virtual void SetVector4Array(const PARAM* param, const float* values, int count) = 0;
    virtual void SetMatrixArray(const PARAM* param, const float* values, int count) = 0;
    virtual void SetMatrix3x4Array(const PARAM* param, const float* values, int count) = 0;
    virtual void SetOESTexture(const PARAM* param, const CTexture* texture);
    virtual void SetUavTexture(const PARAM* param, const CTexture* texture);
    virtual void SetBuffer(const PARAM* param, const void* buffer);
    virtual int GetTextureType(const PARAM* param);
    virtual int GetInputSemanticCount() = 0;
    virtual int GetInputSemantic(int index, int* semantic) = 0;
    virtual void GetInstructionCounts(int* vertex, int* pixel, int* bracket) = 0;
    virtual const char* GetVertexDisassembly() = 0;
    virtual const char* GetPixelDisassembly() = 0;
    virtual bool GetVariantMacroKeys(uint64_t* runtime, uint64_t* lighting) = 0;
    virtual void BuildEmptyBind(const PARAM* param);

    using CResource::Load;

    bool BuildXml();
    void InitGlobalParameter();
    // Macro text to put in front of the HLSL source, as #define lines.
    std::string CalcMacro();
    std::string CalcRTMacro(uint64_t runtimeKey, uint64_t lightingKey);
    bool IsCustomShader() const { return m_bCustomShader; }
    bool GetReceiveLighting() const { return m_bReceiveLighting; }
    // Makes the binds of one variant the current ones of every parameter.
    void ResetRTFlagsForBinds(const void* variant);
    void BuildVSBind(const char* name, const void* variant, int registerIndex, int registerCount);
    void BuildPSBind(const char* name, const void* variant, int registerIndex, int registerCount);
    bool CommitGlobalParameter(CCamera* camera, bool flag);

    const PARAM* GetParam(const char* name) const;

    uint64_t m_nRuntimeMask;
    uint64_t m_nRegisterMask;
    std::map<std::string, PARAM> m_params;
    std::string m_strMacro; // what CalcMacro answers
    bool m_bBuildXmlResult; // what BuildXml answers
    bool m_bCustomShader;
    bool m_bReceiveLighting;
};

} // namespace kv
