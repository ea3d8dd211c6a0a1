// The debug pixel shaders of the viewing modes 4 to 7, made at their first
// use and kept for the life of the render system: they hold no device memory
// that a reset takes.
#include "D3D9RenderSystem.h"

#include "engine/DataStream.h"
#include "engine/Globals.h"
#include "engine/GpuProgramManager.h"

#include <d3dx9shader.h>

#include <cstring>

namespace kv
{

namespace
{

const char* const kFlatShaders[] = {
    // FILL_WIRE_BLACK
    "void ps(out float4 oColor : COLOR0){oColor = float4(0,0,0,0.25);}",
    // FILL_WIRE_TINTED
    "void ps(out float4 oColor : COLOR0){oColor = float4(0.369,0.47,0.608,0.25);}",
    // FILL_OVERDRAW: blended by source alpha and added, each layer brightens a quarter.
    "void ps(out float4 oColor : COLOR0){oColor = float4(0.4,0.16,0.08,0.25);}",
};

const char* const kComplexityShaderFile = "shader/editor/shadercomplexityp.fx";

template <class T>
void ReleaseCom(T*& object)
{
    if (object)
    {
        object->Release();
        object = nullptr;
    }
}

} // namespace

IDirect3DPixelShader9* CD3D9RenderSystem::_getComplexityShader()
{
    const int mode = static_cast<int>(m_polygonMode) - FILL_WIRE_BLACK;
    if (mode < 0 || mode >= static_cast<int>(kComplexityShaders))
        return nullptr;
    IDirect3DPixelShader9*& entry = m_pComplexityShaders[mode];
    if (entry || !m_pD3D9Device)
        return entry;
    const char* profile = g_eRenderSystemType == RST_DX9C ? "ps_3_0" : "ps_2_0";

    if (m_polygonMode != FILL_SHADER_COMPLEXITY)
    {
        // A failed compile is tried again at the next call.
        const char* text = kFlatShaders[mode];
        ID3DXBuffer* code = nullptr;
        if (FAILED(D3DXCompileShader(text, static_cast<UINT>(std::strlen(text)), nullptr, nullptr, "ps", profile, 0,
                                     &code, nullptr, nullptr)))
            return entry;
        D3D9Verify(m_pD3D9Device->CreatePixelShader(static_cast<const DWORD*>(code->GetBufferPointer()), &entry));
        ReleaseCom(code);
        return entry;
    }

    // The compile thread reads shader files under the same lock.
    CGpuProgramManager* programs = GetGpuProgramManager();
    CriticalSection& mutex = programs->GetDX9ShaderMutex();
    mutex.Enter();
    ref_ptr<CMemoryDataStream> stream;
    const char* text = programs->OpenDX9Shader(kComplexityShaderFile, stream);
    if (!text)
    {
        mutex.Leave();
        return entry;
    }

    ID3DXBuffer* code = nullptr;
    ID3DXBuffer* errors = nullptr;
    ID3DXConstantTable* table = nullptr;
    const HRESULT hr = D3DXCompileShader(text, static_cast<UINT>(std::strlen(text)), nullptr, nullptr, "ps", profile, 0,
                                         &code, &errors, &table);
    if (FAILED(hr) || !code || !table)
    {
        LogError("D3DXCompileShader:%s, %s", errors ? static_cast<const char*>(errors->GetBufferPointer()) : "",
                 stream->getName().c_str());
    }
    else
    {
        D3DXCONSTANTTABLE_DESC tableDesc;
        D3D9Verify(table->GetDesc(&tableDesc));
        // A constant the table does not have leaves the description empty, which
        // names no float register either: the shader is not made, and the next
        // call tries again.
        D3DXCONSTANT_DESC constant;
        std::memset(&constant, 0, sizeof(constant));
        UINT count = 1;
        const D3DXHANDLE handle = table->GetConstantByName(nullptr, "NormalizedComplexity");
        if (handle)
            table->GetConstantDesc(handle, &constant, &count);
        if (constant.RegisterSet == D3DXRS_FLOAT4)
        {
            m_nComplexityRegister = static_cast<int>(constant.RegisterIndex);
            m_nComplexityRegisterCount = static_cast<int>(constant.RegisterCount);
            D3D9Verify(m_pD3D9Device->CreatePixelShader(static_cast<const DWORD*>(code->GetBufferPointer()), &entry));
        }
    }
    ReleaseCom(code);
    ReleaseCom(table);
    ReleaseCom(errors);
    mutex.Leave();
    stream = nullptr;
    return entry;
}

} // namespace kv
