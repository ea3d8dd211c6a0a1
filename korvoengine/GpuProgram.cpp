#include "engine/GpuProgram.h"

namespace kv
{

CGpuProgram::CGpuProgram()
    : m_nRuntimeMask(0), m_nRegisterMask(0), m_bBuildXmlResult(true), m_bCustomShader(false), m_bReceiveLighting(false)
{
}

CGpuProgram::~CGpuProgram() {}

int CGpuProgram::GetClassType()
{
    return 0;
}

void CGpuProgram::Destroy()
{
    for (auto& entry : m_params)
    {
        entry.second.m_binds.clear();
        entry.second.m_pBind = nullptr;
    }
}

bool CGpuProgram::BeginActivate(CCamera*, bool)
{
    return true;
}
void CGpuProgram::SetTexture(const PARAM*, const CTexture*, const SamplerState&) {}
void CGpuProgram::SetInt(const PARAM*, const int*) {}
void CGpuProgram::SetOESTexture(const PARAM*, const CTexture*) {}
void CGpuProgram::SetUavTexture(const PARAM*, const CTexture*) {}
void CGpuProgram::SetBuffer(const PARAM*, const void*) {}
int CGpuProgram::GetTextureType(const PARAM*)
{
    return 0;
}
void CGpuProgram::BuildEmptyBind(const PARAM*) {}

bool CGpuProgram::BuildXml()
{
    return m_bBuildXmlResult;
}
void CGpuProgram::InitGlobalParameter() {}
std::string CGpuProgram::CalcMacro()
{
    return m_strMacro;
}

std::string CGpuProgram::CalcRTMacro(uint64_t runtimeKey, uint64_t lightingKey)
{
    std::string text;
    for (int bit = 0; bit < 64; ++bit)
        if (runtimeKey & (uint64_t(1) << bit))
            text += "#define RT_BIT_" + std::to_string(bit) + " 1\n";
    for (int bit = 0; bit < 64; ++bit)
        if (lightingKey & (uint64_t(1) << bit))
            text += "#define LT_BIT_" + std::to_string(bit) + " 1\n";
    return text;
}

void CGpuProgram::ResetRTFlagsForBinds(const void* variant)
{
    for (auto& entry : m_params)
    {
        auto it = entry.second.m_binds.find(variant);
        entry.second.m_pBind = it == entry.second.m_binds.end() ? nullptr : &it->second;
    }
}

void CGpuProgram::BuildVSBind(const char* name, const void* variant, int registerIndex, int registerCount)
{
    PARAM& param = m_params[name ? name : ""];
    param.m_strName = name ? name : "";
    auto inserted = param.m_binds.emplace(variant, Bind{-1, -1, 0, 0});
    inserted.first->second.nVSRegister = registerIndex;
    inserted.first->second.nVSCount = registerCount;
}

void CGpuProgram::BuildPSBind(const char* name, const void* variant, int registerIndex, int registerCount)
{
    PARAM& param = m_params[name ? name : ""];
    param.m_strName = name ? name : "";
    auto inserted = param.m_binds.emplace(variant, Bind{-1, -1, 0, 0});
    inserted.first->second.nPSRegister = registerIndex;
    inserted.first->second.nPSCount = registerCount;
}

bool CGpuProgram::CommitGlobalParameter(CCamera*, bool)
{
    return true;
}

const CGpuProgram::PARAM* CGpuProgram::GetParam(const char* name) const
{
    auto it = m_params.find(name ? name : "");
    return it == m_params.end() ? nullptr : &it->second;
}

} // namespace kv
