#pragma once
// An HLSL program: a family of compiled variants, one per value of the three
// macro keys (the render system's runtime and lighting words and the render
// register word, each masked by what this program reacts to). Variants are
// compiled on the compile thread and become device shaders on the main thread
// once finished; a draw whose variant is not ready is not activated.
//
// Constants go through process-wide shadows of the registers (see
// D3D9ShaderConstants.h): a setter writes the shadow and lists the registers
// that changed, and FlushConstants sends the list in merged runs.
#include "D3D9Prerequisites.h"
#include "D3D9Resource.h"
#include "ShaderVariant.h"

#include "engine/GpuProgram.h"

#include <d3dx9shader.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kv
{

class CD3D9HLSLProgram : public CGpuProgram, public CD3D9Resource
{
public:
    CD3D9HLSLProgram();
    ~CD3D9HLSLProgram() override;

    // Finishes a compiled current variant: makes its device shaders and binds.
    // True once the current variant is finished either way (ready or failed).
    bool IsReady() override;
    bool ResourceTraitA() override { return false; }
    void PreInitRes() override {}
    bool InitRes() override { return true; }
    bool ResourceTraitB() override { return true; }
    // Throws every variant away and loads the description again; compiles
    // happen as variants are asked for.
    bool Reload() override;
    // Main thread only: reads the description and queues the first variant.
    bool Load(const char* name) override;
    void Destroy() override;
    bool BeginActivate(CCamera* camera, bool flag) override;
    bool FlushConstants() override;
    void ActivateHook() override {}
    // Makes the variant of the current keys current, queueing its compile the
    // first time. True when it is ready to draw with.
    bool SelectVariant() override;
    void SetValue(const PARAM* param, const float* value) override;
    void SetTexture(const PARAM* param, const CTexture* texture, const SamplerState& state) override;
    void SetVector4(const PARAM* param, const float* value) override;
    void SetVector3(const PARAM* param, const float* value) override;
    void SetVector2(const PARAM* param, const float* value) override;
    void SetFloat(const PARAM* param, const float* value) override;
    void SetVector4Array(const PARAM* param, const float* values, int count) override;
    void SetMatrixArray(const PARAM* param, const float* values, int count) override;
    void SetMatrix3x4Array(const PARAM* param, const float* values, int count) override;
    int GetInputSemanticCount() override { return static_cast<int>(m_inputSemantics.size()); }
    // No range test: the caller stays below GetInputSemanticCount.
    int GetInputSemantic(int index, int* semantic) override;
    void GetInstructionCounts(int* vertex, int* pixel, int* bracket) override;
    const char* GetVertexDisassembly() override;
    const char* GetPixelDisassembly() override;
    bool GetVariantMacroKeys(uint64_t* runtime, uint64_t* lighting) override;

    // Waits for a variant the compile thread still holds, then frees all.
    void notifyOnDeviceDestroy() override;

    // The variant of these keys, made (idle, not queued) when there is none.
    ShaderVariant* FindOrCreateVariant(uint64_t runtimeKey, uint64_t lightingKey, uint64_t registerKey);
    // Device shaders, input semantics, instruction counts and binds of a
    // compiled variant; false at the first failure, which is logged.
    bool CreateDeviceShaders(ShaderVariant* variant);
    // The instruction slot total of D3DX's closing comment of a disassembly,
    // and in `bracket` the number that opens the bracket behind it (0 when
    // either is missing).
    static int ParseInstructionCounts(const char* text, int* bracket);

    ShaderVariant* GetCurrentVariant() const { return m_pCurrentVariant; }
    const std::vector<std::unique_ptr<ShaderVariant>>& GetVariants() const { return m_variants; }

    IDirect3DDevice9* m_pD3D9Device; // not owned
    // (engine semantic, usage index) of the vertex input, sorted by semantic;
    // read in editor mode only.
    std::vector<std::pair<int, int>> m_inputSemantics;

private:
    // Disassembly text and counts of one stage when disassembly is on; the
    // total slot count is the result.
    static int Disassemble(const uint8_t* code, std::string& text, int& bracket);
    void ReadInputSemantics(const uint8_t* vertexCode);
    void BuildVertexBinds(ID3DXConstantTable* table, ShaderVariant* variant);
    void BuildPixelBinds(ID3DXConstantTable* table, ShaderVariant* variant);
    // Both stages' binds are built the same way; only the engine's call differs.
    template <typename BuildBind>
    void BuildBinds(ID3DXConstantTable* table, BuildBind build);
    // Copies registers into a stage's shadow and lists those that changed.
    static void QueueVertexConstants(int startRegister, const float* data, int count);
    static void QueuePixelConstants(int startRegister, const float* data, int count);
    // Queues one value for each stage the parameter is used in: `count`
    // registers, or the whole bind when count is negative.
    static void QueueValue(const PARAM* param, const float* value, int count);

    std::vector<std::unique_ptr<ShaderVariant>> m_variants; // in order of creation
    ShaderVariant* m_pCurrentVariant;                       // one of m_variants, or null
};

} // namespace kv
