#pragma once
// One asynchronous compile of a program variant. The compile thread and the main
// thread meet at the state word, which is published with release and read with
// acquire ordering; the main thread leaves the record alone while it is queued.
#include "engine/Export.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace kv
{

class CGpuProgram;

enum VariantState : int32_t
{
    VARIANT_IDLE = 0,
    VARIANT_QUEUED = 1,
    VARIANT_COMPILED = 3,
    VARIANT_READY = 4,
    VARIANT_FAILED = 5,
};

struct KV_API ShaderAsyncInfo
{
    std::atomic<int32_t> m_nState; // first member
    std::string m_strSourcePath;
    std::string m_strResourceName;
    std::string m_strMacro;
    uint64_t m_nRuntimeMacro;
    uint64_t m_nLightingMacro;
    uint64_t m_nRegisterMacro;
    std::vector<uint8_t> m_VSCode;
    std::vector<uint8_t> m_PSCode;
    uint8_t m_bCustomShader;
    // Set by the compile thread: the code came from the shader cache, no compile ran.
    bool m_bFromCache;
    CGpuProgram* m_pOwner;

    explicit ShaderAsyncInfo(CGpuProgram* owner);
    ShaderAsyncInfo(const ShaderAsyncInfo&) = delete;
    ShaderAsyncInfo& operator=(const ShaderAsyncInfo&) = delete;

    void SetFile(const char* sourcePath, const char* resourceName);
    void SetMacro(const char* text, uint64_t runtimeKey, uint64_t lightingKey, uint64_t registerKey);
    void ResizeVS(std::size_t size) { m_VSCode.resize(size); }
    void ResizePS(std::size_t size) { m_PSCode.resize(size); }
    uint8_t* GetVSData() { return m_VSCode.empty() ? nullptr : m_VSCode.data(); }
    std::size_t GetVSSize() const { return m_VSCode.size(); }
    uint8_t* GetPSData() { return m_PSCode.empty() ? nullptr : m_PSCode.data(); }
    std::size_t GetPSSize() const { return m_PSCode.size(); }
    // Frees the compiled code once the device shaders exist.
    void Clear();
};

} // namespace kv
