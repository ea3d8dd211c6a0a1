#include "engine/ShaderAsyncInfo.h"

namespace kv
{

ShaderAsyncInfo::ShaderAsyncInfo(CGpuProgram* owner)
    : m_nState(VARIANT_IDLE), m_nRuntimeMacro(0), m_nLightingMacro(0), m_nRegisterMacro(0), m_bCustomShader(0),
      m_bFromCache(false), m_pOwner(owner)
{
}

void ShaderAsyncInfo::SetFile(const char* sourcePath, const char* resourceName)
{
    m_strSourcePath = sourcePath ? sourcePath : "";
    m_strResourceName = resourceName ? resourceName : "";
}

void ShaderAsyncInfo::SetMacro(const char* text, uint64_t runtimeKey, uint64_t lightingKey, uint64_t registerKey)
{
    m_strMacro = text ? text : "";
    m_nRuntimeMacro = runtimeKey;
    m_nLightingMacro = lightingKey;
    m_nRegisterMacro = registerKey;
}

void ShaderAsyncInfo::Clear()
{
    std::vector<uint8_t>().swap(m_VSCode);
    std::vector<uint8_t>().swap(m_PSCode);
}

} // namespace kv
