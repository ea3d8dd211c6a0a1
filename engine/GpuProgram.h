#pragma once
// An HLSL program. The engine keeps the parameter records; the render system's
// program fills one bind per parameter and variant with register numbers.
#include "engine/Export.h"
#include "engine/RenderTypes.h"
#include "engine/Resource.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

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

    // Reads the program's description, "shader/<first piece of the name>.ini"
    // under the data root of GetGpuProgramManager() (the format is told in
    // samples/shader/README.md): the masks, the macros and the parameters.
    // False, with the reason in the log, when the file is missing, empty or
    // malformed; the program then keeps what it had before.
    bool BuildXml();
    // Links the global parameters of the description to the engine's values
    // of the same names (CGpuProgramManager::SetGlobalValue).
    void InitGlobalParameter();
    // Macro text to put in front of the HLSL source, as #define lines: the
    // description's fixed defines.
    std::string CalcMacro();
    // The #define lines of one variant: one per runtime bit set in the key,
    // and the lighting macro with the masked lighting key as its value.
    std::string CalcRTMacro(uint64_t runtimeKey, uint64_t lightingKey);
    bool IsCustomShader() const { return m_bCustomShader; }
    bool GetReceiveLighting() const { return m_bReceiveLighting; }
    // Makes the binds of one variant the current ones of every parameter.
    void ResetRTFlagsForBinds(const void* variant);
    void BuildVSBind(const char* name, const void* variant, int registerIndex, int registerCount);
    void BuildPSBind(const char* name, const void* variant, int registerIndex, int registerCount);
    // Sets every global parameter whose engine value exists, through the
    // program's own setters and so through the binds of the current variant.
    bool CommitGlobalParameter(CCamera* camera, bool flag);

    const PARAM* GetParam(const char* name) const;
    // The first "+"-separated piece of the resource name: the source's name.
    std::string GetSourceName() const;

    uint64_t m_nRuntimeMask;
    uint64_t m_nRegisterMask;
    std::map<std::string, PARAM> m_params;
    std::string m_strMacro;                 // what CalcMacro answers
    std::vector<std::string> m_runtimeBits; // macro name of each runtime bit, 64 entries
    std::string m_strLightingDefine;        // empty: the lighting key makes no macro
    uint64_t m_nLightingMask;
    bool m_bCustomShader;
    bool m_bReceiveLighting;

private:
    struct GlobalSlot
    {
        const PARAM* m_pParam;
        const std::vector<float>* m_pValue; // the engine's value, four floats a register
    };
    std::vector<std::string> m_globalNames;
    std::vector<GlobalSlot> m_globals;
};

} // namespace kv
