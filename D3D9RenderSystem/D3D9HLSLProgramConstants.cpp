// The program's constants: binds from the constant tables, the setters that
// write the register shadows, activation and the merged upload.
#include "D3D9HLSLProgram.h"
#include "D3D9RenderSystem.h"
#include "D3D9ShaderConstants.h"

#include "engine/Globals.h"

#include <algorithm>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace kv
{
namespace
{

// SetFloat, SetVector2 and SetVector3 pad their value into one register here;
// the components they do not write stay 0.
float s_floatRegister[4];
float s_vector2Register[4];
float s_vector3Register[4];

// Whether a register holds a value, compared as floats: a NaN always
// differs, -0 equals 0. The setters run per draw, so x86-64 (which always has
// SSE) compares a register at once; the 32-bit DLL keeps the plain form.
inline bool Holds(const float* shadow, const float* data)
{
#if defined(__SSE__)
    return _mm_movemask_ps(_mm_cmpneq_ps(_mm_loadu_ps(shadow), _mm_loadu_ps(data))) == 0;
#else
    return shadow[0] == data[0] && shadow[1] == data[1] && shadow[2] == data[2] && shadow[3] == data[3];
#endif
}

inline void Store(float* shadow, const float* data)
{
#if defined(__SSE__)
    _mm_storeu_ps(shadow, _mm_loadu_ps(data));
#else
    shadow[0] = data[0];
    shadow[1] = data[1];
    shadow[2] = data[2];
    shadow[3] = data[3];
#endif
}

// Copies `count` registers into a stage's shadow and lists them, unless the
// shadow held them all already. A write beyond the list's room is lost; a
// bind that reaches past the registers would write past the shadow and is
// refused. `fullListKeepsWrite`: the pixel list's rule, under which a write
// that would fill the list lives in the shadow only.
//
// Whether a value repeats is as likely as not from draw to draw, so nothing
// here branches on it: the registers are stored and the list entries written
// either way (both within bounds by the first test), and only the count
// decides whether they are taken. A repeated value stored again changes at
// most the sign of a zero.
template <int kRegisters, bool fullListKeepsWrite>
inline void Queue(float (*shadow)[4], int* list, int& pending, int start, const float* data, int count)
{
    if (pending + count > kRegisters || count < 1 || start < 0 || start > kRegisters - count)
        return;
    bool changed = false;
    for (int r = 0; r < count; ++r)
    {
        changed |= !Holds(shadow[start + r], data + r * 4);
        Store(shadow[start + r], data + r * 4);
        list[pending + r] = start + r;
    }
    const bool listed = changed && !(fullListKeepsWrite && pending + count >= kRegisters);
    pending += listed ? count : 0;
}

// Sends a pending list in runs of adjacent registers, in list order, and empties it.
template <typename Send>
void SendRuns(int* list, int& pending, const float (*shadow)[4], Send send)
{
    if (pending > 0)
    {
        int start = list[0];
        int length = 1;
        for (int i = 1; i < pending; ++i)
        {
            if (list[i] == list[i - 1] + 1)
            {
                ++length;
                continue;
            }
            send(start, &shadow[start][0], length);
            start = list[i];
            length = 1;
        }
        send(start, &shadow[start][0], length);
    }
    pending = 0;
}

// The common guard of the setters: no bind, or neither stage uses the parameter.
bool Unbound(const CGpuProgram::PARAM* param)
{
    return !param || !param->m_pBind || (param->m_pBind->nVSRegister < 0 && param->m_pBind->nPSRegister < 0);
}

} // namespace

// --- Binds.

template <typename BuildBind>
void CD3D9HLSLProgram::BuildBinds(ID3DXConstantTable* table, BuildBind build)
{
    D3DXCONSTANTTABLE_DESC desc;
    if (!D3D9Verify(table->GetDesc(&desc)))
        return;
    for (UINT i = 0; i < desc.Constants; ++i)
    {
        D3DXCONSTANT_DESC constant = {};
        UINT count = 1;
        table->GetConstantDesc(table->GetConstant(nullptr, i), &constant, &count);
        // Structures and arrays bind as one block under their top-level name.
        if (constant.Name && constant.RegisterSet <= D3DXRS_SAMPLER)
            build(constant.Name, static_cast<int>(constant.RegisterIndex), static_cast<int>(constant.RegisterCount));
    }
}

void CD3D9HLSLProgram::BuildVertexBinds(ID3DXConstantTable* table, ShaderVariant* variant)
{
    BuildBinds(table, [&](const char* name, int index, int count) { BuildVSBind(name, variant, index, count); });
}

void CD3D9HLSLProgram::BuildPixelBinds(ID3DXConstantTable* table, ShaderVariant* variant)
{
    BuildBinds(table, [&](const char* name, int index, int count) { BuildPSBind(name, variant, index, count); });
}

// --- Queuing.

void CD3D9HLSLProgram::QueueVertexConstants(int startRegister, const float* data, int count)
{
    Queue<kVertexConstantRegisters, false>(g_VSConstantShadow, g_VSDirtyRegisters, g_nVSDirtyCount, startRegister, data,
                                           count);
}

void CD3D9HLSLProgram::QueuePixelConstants(int startRegister, const float* data, int count)
{
    Queue<kPixelConstantRegisters, true>(g_PSConstantShadow, g_PSDirtyRegisters, g_nPSDirtyCount, startRegister, data,
                                         count);
}

void CD3D9HLSLProgram::QueueValue(const PARAM* param, const float* value, int count)
{
    const Bind& bind = *param->m_pBind;
    if (bind.nVSRegister >= 0)
        QueueVertexConstants(bind.nVSRegister, value, count < 0 ? bind.nVSCount : std::min(bind.nVSCount, count));
    if (bind.nPSRegister >= 0)
        QueuePixelConstants(bind.nPSRegister, value, count < 0 ? bind.nPSCount : std::min(bind.nPSCount, count));
}

// --- Setters.

void CD3D9HLSLProgram::SetValue(const PARAM* param, const float* value)
{
    if (Unbound(param) || !value)
        return;
    QueueValue(param, value, -1);
}

void CD3D9HLSLProgram::SetVector4(const PARAM* param, const float* value)
{
    if (Unbound(param) || !value)
        return;
    QueueValue(param, value, -1);
}

// The padded forms hold one register: a bind of more would read past it.
void CD3D9HLSLProgram::SetVector3(const PARAM* param, const float* value)
{
    if (Unbound(param) || !value)
        return;
    std::copy(value, value + 3, s_vector3Register);
    QueueValue(param, s_vector3Register, 1);
}

void CD3D9HLSLProgram::SetVector2(const PARAM* param, const float* value)
{
    if (Unbound(param) || !value)
        return;
    std::copy(value, value + 2, s_vector2Register);
    QueueValue(param, s_vector2Register, 1);
}

void CD3D9HLSLProgram::SetFloat(const PARAM* param, const float* value)
{
    if (Unbound(param) || !value)
        return;
    s_floatRegister[0] = *value;
    QueueValue(param, s_floatRegister, 1);
}

void CD3D9HLSLProgram::SetVector4Array(const PARAM* param, const float* values, int count)
{
    if (Unbound(param) || !values || count < 1)
        return;
    QueueValue(param, values, count);
}

// No bind has more registers than a stage: counts beyond that change nothing
// and are cut before they are multiplied.
void CD3D9HLSLProgram::SetMatrixArray(const PARAM* param, const float* values, int count)
{
    if (Unbound(param) || !values || count < 1)
        return;
    SetVector4Array(param, values, std::min(count, kVertexConstantRegisters) * 4);
}

void CD3D9HLSLProgram::SetMatrix3x4Array(const PARAM* param, const float* values, int count)
{
    if (Unbound(param) || !values || count < 1)
        return;
    SetVector4Array(param, values, std::min(count, kVertexConstantRegisters) * 3);
}

void CD3D9HLSLProgram::SetTexture(const PARAM* param, const CTexture* texture, const SamplerState& state)
{
    CGpuProgram::SetTexture(param, texture, state);
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    if (Unbound(param) || !rs)
        return;
    // The render system keeps the texture by its own reference counting.
    CTexture* bound = const_cast<CTexture*>(texture);
    if (param->m_pBind->nVSRegister >= 0)
        rs->SetTexture(static_cast<unsigned>(param->m_pBind->nVSRegister), bound, state);
    if (param->m_pBind->nPSRegister >= 0)
        rs->SetTexture(static_cast<unsigned>(param->m_pBind->nPSRegister), bound, state);
}

// --- Activation and upload.

bool CD3D9HLSLProgram::BeginActivate(CCamera* camera, bool flag)
{
    if (!CGpuProgram::BeginActivate(camera, flag))
        return false;
    // Not ready: the device is not touched and the previous shaders stay.
    if (!SelectVariant())
        return false;
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    if (!rs)
        return false;
    rs->SetVertexShader(m_pCurrentVariant->m_pVertexShader);
    rs->SetPixelShader(m_pCurrentVariant->m_pPixelShader);
    CommitGlobalParameter(camera, flag);
    return true;
}

bool CD3D9HLSLProgram::FlushConstants()
{
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    if (rs && m_pCurrentVariant && rs->GetFillMode() == FILL_SHADER_COMPLEXITY && rs->m_nComplexityRegister >= 0 &&
        rs->m_nComplexityRegisterCount > 0)
    {
        const float scale =
            g_nMaxPixelShaderComplexityCount > 0 ? 1.0f / static_cast<float>(g_nMaxPixelShaderComplexityCount) : 0.0f;
        const float vertex = static_cast<float>(m_pCurrentVariant->m_nVertexSlots) * scale;
        const float complexity[4] = {
            g_bShaderComplexityPS ? static_cast<float>(m_pCurrentVariant->m_nPixelSlots) * scale : vertex, vertex,
            0.03125f, 1.0f};
        // One vector: a register count above one would read past it.
        QueuePixelConstants(rs->m_nComplexityRegister, complexity, 1);
    }

    IDirect3DDevice9* device = m_pD3D9Device;
    SendRuns(g_PSDirtyRegisters, g_nPSDirtyCount, g_PSConstantShadow, [device](int start, const float* data, int n) {
        if (device)
            D3D9Verify(device->SetPixelShaderConstantF(static_cast<UINT>(start), data, static_cast<UINT>(n)));
    });
    SendRuns(g_VSDirtyRegisters, g_nVSDirtyCount, g_VSConstantShadow, [device](int start, const float* data, int n) {
        if (device)
            D3D9Verify(device->SetVertexShaderConstantF(static_cast<UINT>(start), data, static_cast<UINT>(n)));
    });
    return true;
}

} // namespace kv
