#pragma once
// One compiled macro combination of a CD3D9HLSLProgram: its three macro keys,
// the record that goes through the compile thread, and, once ready, its
// device shaders and instruction counts. Owned by one program, never shared.
#include "D3D9Prerequisites.h"

#include "engine/ShaderAsyncInfo.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace kv
{

class CGpuProgram;

struct ShaderVariant
{
    ShaderVariant(CGpuProgram* owner, uint64_t runtimeKey, uint64_t lightingKey, uint64_t registerKey)
        : m_pVertexShader(nullptr), m_pPixelShader(nullptr), m_nVertexSlots(0), m_nPixelSlots(0), m_nBracketSlots(0),
          m_nRuntimeMacro(runtimeKey), m_nLightingMacro(lightingKey), m_nRegisterMacro(registerKey), m_AsyncInfo(owner)
    {
    }
    ShaderVariant(const ShaderVariant&) = delete;
    ShaderVariant& operator=(const ShaderVariant&) = delete;

    // The state word is the hand-over between the threads: the compile
    // thread's code behind a state it publishes is seen by whoever reads it.
    int32_t State() const { return m_AsyncInfo.m_nState.load(std::memory_order_acquire); }
    void SetState(int32_t state) { m_AsyncInfo.m_nState.store(state, std::memory_order_release); }

    IDirect3DVertexShader9* m_pVertexShader; // owned
    IDirect3DPixelShader9* m_pPixelShader;   // owned
    int m_nVertexSlots;
    int m_nPixelSlots;
    int m_nBracketSlots; // both stages' bracketed counts together
    uint64_t m_nRuntimeMacro;
    uint64_t m_nLightingMacro;
    uint64_t m_nRegisterMacro;
    ShaderAsyncInfo m_AsyncInfo;
    std::string m_VertexDisassembly;
    std::string m_PixelDisassembly;
};

} // namespace kv
