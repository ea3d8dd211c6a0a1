// The program's life: load, variants and their selection, the device shaders
// of a compiled variant, disassembly, reload and teardown.
#include "D3D9HLSLProgram.h"
#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"

#include "base/StaticFunc.h"
#include "engine/Globals.h"
#include "engine/GpuProgramCompileThread.h"
#include "engine/RenderRegister.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace kv
{

CD3D9HLSLProgram::CD3D9HLSLProgram() : m_pD3D9Device(nullptr), m_pCurrentVariant(nullptr) {}

CD3D9HLSLProgram::~CD3D9HLSLProgram()
{
    CD3D9HLSLProgram::Destroy();
}

bool CD3D9HLSLProgram::Load(const char* name)
{
    const char* text = name ? name : "";
    if (!CurrentThreadIsMainThread())
    {
        LogError("Failed to CD3D9HLSLProgram::Load:%s, curThread:%d, mainThread:%d", text,
                 static_cast<int>(GetCurrentThreadId()), static_cast<int>(g_mainThreadId));
        return false;
    }
    // The name may be our own string: SetFile replaces it.
    const std::string copy = text;
    SetFile(copy.c_str());
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    m_pD3D9Device = rs ? rs->m_pD3D9Device : nullptr;
    if (!BuildXml())
    {
        LogError("Failed to BuildXml:%s", m_strName.c_str());
        return false;
    }
    InitGlobalParameter();
    SelectVariant();
    if (g_eGpuProgramInitRuntimeMacro != 0 && rs)
    {
        // Queues the variant the engine will ask for first, ahead of time.
        rs->m_nRuntimeMacro |= g_eGpuProgramInitRuntimeMacro;
        SelectVariant();
        rs->m_nRuntimeMacro &= ~g_eGpuProgramInitRuntimeMacro;
    }
    return true;
}

bool CD3D9HLSLProgram::SelectVariant()
{
    CRenderSystem* rs = GetRenderSystem();
    const uint64_t runtimeKey = rs ? m_nRuntimeMask & rs->m_nRuntimeMacro : 0;
    const uint64_t lightingKey = rs && GetReceiveLighting() ? rs->m_nLightingMacro : 0;
    const uint64_t registerKey = m_nRegisterMask & GetRenderRegister()->m_nRegisterMacro;
    ShaderVariant* variant = m_pCurrentVariant;
    if (!variant || variant->m_nRuntimeMacro != runtimeKey || variant->m_nLightingMacro != lightingKey ||
        variant->m_nRegisterMacro != registerKey)
    {
        variant = m_pCurrentVariant = FindOrCreateVariant(runtimeKey, lightingKey, registerKey);
        ResetRTFlagsForBinds(variant);
    }
    const int32_t state = variant->State();
    if (state == VARIANT_FAILED)
        return false;
    if (state == VARIANT_READY)
        return true;
    // Without a compile thread nothing would ever take the record: it stays
    // idle and is queued by the first selection after the thread exists.
    if (state == VARIANT_IDLE && g_pCompileThread)
    {
        variant->SetState(VARIANT_QUEUED);
        g_pCompileThread->AddRes(&variant->m_AsyncInfo);
    }
    IsReady();
    return variant->State() == VARIANT_READY;
}

ShaderVariant* CD3D9HLSLProgram::FindOrCreateVariant(uint64_t runtimeKey, uint64_t lightingKey, uint64_t registerKey)
{
    for (const std::unique_ptr<ShaderVariant>& v : m_variants)
        if (v->m_nRuntimeMacro == runtimeKey && v->m_nLightingMacro == lightingKey &&
            v->m_nRegisterMacro == registerKey)
            return v.get();

    std::unique_ptr<ShaderVariant> variant(new ShaderVariant(this, runtimeKey, lightingKey, registerKey));
    const std::string source = GetSourceName();
    if (IsCustomShader())
    {
        variant->m_AsyncInfo.SetFile(source.c_str(), m_strName.c_str());
        variant->m_AsyncInfo.m_bCustomShader = 1;
    }
    else
        variant->m_AsyncInfo.SetFile(("shader/" + source + ".fx").c_str(), m_strName.c_str());
    const std::string macro = CalcMacro() + CalcRTMacro(runtimeKey, lightingKey);
    variant->m_AsyncInfo.SetMacro(macro.c_str(), runtimeKey, lightingKey, registerKey);
    m_variants.push_back(std::move(variant));
    return m_variants.back().get();
}

bool CD3D9HLSLProgram::IsReady()
{
    ShaderVariant* variant = m_pCurrentVariant;
    if (!variant)
        return false;
    const int32_t state = variant->State();
    if (state == VARIANT_READY || state == VARIANT_FAILED)
        return true;
    if (state != VARIANT_COMPILED)
        return false;
    if (CreateDeviceShaders(variant))
    {
        variant->SetState(VARIANT_READY);
        ResetRTFlagsForBinds(variant);
    }
    else
        variant->SetState(VARIANT_FAILED);
    // Finished either way, as far as the engine's resource loading goes.
    SetLoadState(RLS_READY);
    return true;
}

bool CD3D9HLSLProgram::CreateDeviceShaders(ShaderVariant* variant)
{
    ShaderAsyncInfo& info = variant->m_AsyncInfo;
    const char* source = info.m_strSourcePath.c_str();
    const DWORD* vertexCode = reinterpret_cast<const DWORD*>(info.GetVSData());
    const DWORD* pixelCode = reinterpret_cast<const DWORD*>(info.GetPSData());

    ID3DXConstantTable* table = nullptr;
    if (!vertexCode || FAILED(D3DXGetShaderConstantTableEx(vertexCode, D3DXCONSTTABLE_LARGEADDRESSAWARE, &table)))
    {
        LogError("Failed to D3DXGetShaderConstantTableEx vs, %s", source);
        return false;
    }
    if (g_bEditorMode && m_inputSemantics.empty())
        ReadInputSemantics(info.GetVSData());
    if (!m_pD3D9Device || FAILED(m_pD3D9Device->CreateVertexShader(vertexCode, &variant->m_pVertexShader)))
    {
        LogError("Failed to CreateVertexShader:%s", source);
        table->Release();
        return false;
    }
    int bracket = 0;
    variant->m_nVertexSlots = Disassemble(info.GetVSData(), variant->m_VertexDisassembly, bracket);
    variant->m_nBracketSlots = bracket;
    BuildVertexBinds(table, variant);
    table->Release();
    table = nullptr;

    if (!pixelCode || FAILED(D3DXGetShaderConstantTableEx(pixelCode, D3DXCONSTTABLE_LARGEADDRESSAWARE, &table)))
    {
        LogError("Failed to D3DXGetShaderConstantTableEx ps, %s", source);
        return false;
    }
    if (FAILED(m_pD3D9Device->CreatePixelShader(pixelCode, &variant->m_pPixelShader)))
    {
        LogError("Failed to CreatePixelShader:%s", source);
        table->Release();
        return false;
    }
    bracket = 0;
    variant->m_nPixelSlots = Disassemble(info.GetPSData(), variant->m_PixelDisassembly, bracket);
    variant->m_nBracketSlots += bracket;
    BuildPixelBinds(table, variant);
    table->Release();
    info.Clear();
    return true;
}

void CD3D9HLSLProgram::ReadInputSemantics(const uint8_t* vertexCode)
{
    D3DXSEMANTIC semantics[64];
    UINT count = 0;
    if (FAILED(D3DXGetShaderInputSemantics(reinterpret_cast<const DWORD*>(vertexCode), semantics, &count)))
        return;
    count = std::min<UINT>(count, 64);
    m_inputSemantics.resize(count);
    for (UINT i = 0; i < count; ++i)
        m_inputSemantics[i] = std::make_pair(
            static_cast<int>(D3D9Mappings::fromD3DDeclUsage(static_cast<D3DDECLUSAGE>(semantics[i].Usage))),
            static_cast<int>(semantics[i].UsageIndex));
    std::stable_sort(m_inputSemantics.begin(), m_inputSemantics.end(),
                     [](const std::pair<int, int>& a, const std::pair<int, int>& b) { return a.first < b.first; });
}

int CD3D9HLSLProgram::ParseInstructionCounts(const char* text, int* bracket)
{
    const char* slots = std::strstr(text, "instruction slots used (");
    *bracket = slots ? std::atoi(slots + 24) : 0;
    const char* total = std::strstr(text, "pproximately ");
    return total ? std::atoi(total + 13) : 0;
}

int CD3D9HLSLProgram::Disassemble(const uint8_t* code, std::string& text, int& bracket)
{
    if (!g_bDisassembleShader)
        return 0;
    ID3DXBuffer* buffer = nullptr;
    D3DXDisassembleShader(reinterpret_cast<const DWORD*>(code), FALSE, nullptr, &buffer);
    if (!buffer)
        return 0;
    const char* data = static_cast<const char*>(buffer->GetBufferPointer());
    if (!data)
    {
        buffer->Release();
        return 0;
    }
    // The buffer need not end in a NUL of its own: read a bounded copy.
    text.assign(data, strnlen(data, buffer->GetBufferSize()));
    const int total = ParseInstructionCounts(text.c_str(), &bracket);
    buffer->Release();
    return total;
}

int CD3D9HLSLProgram::GetInputSemantic(int index, int* semantic)
{
    *semantic = m_inputSemantics[static_cast<size_t>(index)].first;
    return m_inputSemantics[static_cast<size_t>(index)].second;
}

void CD3D9HLSLProgram::GetInstructionCounts(int* vertex, int* pixel, int* bracket)
{
    if (!m_pCurrentVariant || m_pCurrentVariant->State() != VARIANT_READY)
        return;
    *vertex = m_pCurrentVariant->m_nVertexSlots;
    *pixel = m_pCurrentVariant->m_nPixelSlots;
    *bracket = m_pCurrentVariant->m_nBracketSlots;
}

const char* CD3D9HLSLProgram::GetVertexDisassembly()
{
    if (!m_pCurrentVariant || m_pCurrentVariant->State() != VARIANT_READY)
        return nullptr;
    return m_pCurrentVariant->m_VertexDisassembly.c_str();
}

const char* CD3D9HLSLProgram::GetPixelDisassembly()
{
    if (!m_pCurrentVariant || m_pCurrentVariant->State() != VARIANT_READY)
        return nullptr;
    return m_pCurrentVariant->m_PixelDisassembly.c_str();
}

bool CD3D9HLSLProgram::GetVariantMacroKeys(uint64_t* runtime, uint64_t* lighting)
{
    if (!m_pCurrentVariant)
        return false;
    *runtime = m_pCurrentVariant->m_nRuntimeMacro;
    *lighting = m_pCurrentVariant->m_nLightingMacro;
    return true;
}

bool CD3D9HLSLProgram::Reload()
{
    Destroy();
    const std::string name = m_strName;
    if (!Load(name.c_str()))
    {
        LogError("Failed to CD3D9HLSLProgram::Reload:%s", name.c_str());
        return false;
    }
    return true;
}

void CD3D9HLSLProgram::Destroy()
{
    CGpuProgram::Destroy();
    notifyOnDeviceDestroy();
}

void CD3D9HLSLProgram::notifyOnDeviceDestroy()
{
    for (std::unique_ptr<ShaderVariant>& variant : m_variants)
    {
        // The compile thread may be writing into the record: it is not ours
        // to free until the state has moved on.
        while (variant->State() == VARIANT_QUEUED)
            Sleep(1);
        if (variant->m_pPixelShader)
            variant->m_pPixelShader->Release();
        if (variant->m_pVertexShader)
            variant->m_pVertexShader->Release();
        variant.reset();
    }
    m_variants.clear();
    m_pCurrentVariant = nullptr;
    m_inputSemantics.clear();
}

} // namespace kv
