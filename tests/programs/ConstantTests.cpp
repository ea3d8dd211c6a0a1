// Constants as the device sees them: which registers a setter queues, how a
// flush merges them into calls, what a repeated value spares, and what the
// guards keep out of the shadows; activation, what a variant still compiling
// and a device reset do to the shaders set, and the complexity view's constant.
#include "ProgramFixture.h"

#include "D3D9ShaderConstants.h"

#include "engine/GpuProgramManager.h"

#include <d3dx9.h>

#include <cstring>
#include <deque>
#include <functional>
#include <limits>
#include <tuple>

using namespace kv;
using namespace kvtest;
using kvproxy::Method;

namespace
{

typedef std::vector<std::pair<int, int>> Runs; // (first register, count)

class Constants : public LitTest
{
protected:
    // A parameter of these registers (negative: the stage does not use it).
    const CGpuProgram::PARAM* Param(int vs, int ps, int vsCount, int psCount)
    {
        binds.push_back(CGpuProgram::Bind{vs, ps, vsCount, psCount});
        params.emplace_back();
        params.back().m_pBind = &binds.back();
        return &params.back();
    }
    // Registers of values no earlier write used.
    std::vector<float> Fresh(int registers)
    {
        std::vector<float> v(static_cast<size_t>(registers) * 4);
        for (float& f : v)
            f = static_cast<float>(++serial);
        return v;
    }
    // The sends of one stage since the mark, each checked against the shadow.
    Runs Sent(kvproxy::Mark from, Method m)
    {
        Runs runs;
        for (const KvProxyCall& c : kvproxy::CallsSince(from, m))
        {
            runs.emplace_back(static_cast<int>(c.args[0]), static_cast<int>(c.args[2]));
            const float(*shadow)[4] = m == Method::SetVertexShaderConstantF ? g_VSConstantShadow : g_PSConstantShadow;
            EXPECT_EQ(0, std::memcmp(kvproxy::FloatsOf(c), shadow[c.args[0]], c.args[2] * 16));
        }
        return runs;
    }
    Runs Flush(Method m)
    {
        kvproxy::Mark from = kvproxy::Here();
        lit->FlushConstants();
        return Sent(from, m);
    }

    std::deque<CGpuProgram::Bind> binds;
    std::deque<CGpuProgram::PARAM> params;
    int serial = 0;
};

TEST_F(Constants, RegistersGoOutInRunsOfNeighboursInTheOrderWritten)
{
    const struct
    {
        Runs writes, sends;
    } rows[] = {
        {{{4, 3}, {10, 1}, {7, 1}}, {{4, 3}, {10, 1}, {7, 1}}},
        {{{5, 1}, {4, 1}}, {{5, 1}, {4, 1}}},
        {{{4, 1}, {5, 1}, {6, 2}}, {{4, 4}}},
        {{{9, 1}, {9, 1}}, {{9, 1}, {9, 1}}}, // a register written twice is sent twice
        {{}, {}},
    };
    for (bool pixel : {false, true})
        for (const auto& row : rows)
        {
            for (const auto& w : row.writes)
                lit->SetVector4Array(pixel ? Param(-1, w.first, 0, w.second) : Param(w.first, -1, w.second, 0),
                                     Fresh(w.second).data(), w.second);
            kvproxy::Mark from = kvproxy::Here();
            EXPECT_EQ(row.sends, Flush(pixel ? Method::SetPixelShaderConstantF : Method::SetVertexShaderConstantF));
            EXPECT_EQ(row.sends.size(), kvproxy::CallsSince(from).size()); // nothing for the other stage
        }
}

TEST_F(Constants, AValueTheRegisterHoldsCostsNothing)
{
    const CGpuProgram::PARAM* both = Param(20, 6, 1, 1);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float one[4] = {1, 2, 3, 4}, zero[4] = {}, negativeZero[4] = {-0.0f}, withNaN[4] = {nan};
    // Compared as floats: -0 is 0, a NaN differs even from itself.
    const struct
    {
        const float* value;
        int repeats;
        Runs sends;
    } rows[] = {{one, 2, {{20, 1}}},     {one, 1, {}},           {zero, 1, {{20, 1}}}, {negativeZero, 1, {}},
                {withNaN, 1, {{20, 1}}}, {withNaN, 1, {{20, 1}}}};
    for (const auto& row : rows)
    {
        for (int i = 0; i < row.repeats; ++i)
            lit->SetVector4(both, row.value);
        EXPECT_EQ(row.sends, Flush(Method::SetVertexShaderConstantF));
    }
    // One component of a block changed: the whole block again; after a reset, the same value again.
    const CGpuProgram::PARAM* block = Param(40, -1, 4, 0);
    std::vector<float> values = Fresh(4);
    lit->SetValue(block, values.data());
    lit->FlushConstants();
    values[9] += 1.0f;
    lit->SetValue(block, values.data());
    EXPECT_EQ(Runs({{40, 4}}), Flush(Method::SetVertexShaderConstantF));
    kvproxy::LoseDevice();
    kvproxy::AllowDeviceReset();
    ASSERT_TRUE(rs->IsDeviceAvailable());
    lit->SetValue(block, values.data());
    EXPECT_EQ(Runs({{40, 4}}), Flush(Method::SetVertexShaderConstantF));
}

TEST_F(Constants, TheGuardsKeepEveryWriteInsideItsBindAndTheShadows)
{
    const std::vector<float> data = Fresh(8);
    CGpuProgram::PARAM unbound;
    const struct
    {
        const char* what;
        std::function<void()> call;
        Runs vertex, pixel;
    } rows[] = {
        {"no parameter", [&] { lit->SetVector4(nullptr, data.data()); }, {}, {}},
        {"no bind", [&] { lit->SetVector4(&unbound, data.data()); }, {}, {}},
        {"no stage", [&] { lit->SetVector4(Param(-1, -1, 1, 1), data.data()); }, {}, {}},
        {"past the vertex registers", [&] { lit->SetValue(Param(253, -1, 4, 0), data.data()); }, {}, {}},
        {"past the pixel registers", [&] { lit->SetValue(Param(-1, 221, 0, 4), data.data()); }, {}, {}},
        {"array longer than the bind",
         [&] { lit->SetVector4Array(Param(30, 12, 2, 1), data.data(), 8); },
         {{30, 2}},
         {{12, 1}}},
        {"array shorter", [&] { lit->SetVector4Array(Param(50, -1, 6, 0), data.data(), 2); }, {{50, 2}}, {}},
        {"matrices", [&] { lit->SetMatrixArray(Param(60, -1, 8, 0), data.data(), 2); }, {{60, 8}}, {}},
        {"3x4 matrices", [&] { lit->SetMatrix3x4Array(Param(70, -1, 8, 0), data.data(), 2); }, {{70, 6}}, {}},
        {"no matrices", [&] { lit->SetMatrixArray(Param(80, -1, 8, 0), data.data(), 0); }, {}, {}},
        {"countless", [&] { lit->SetMatrixArray(Param(90, -1, 1, 0), data.data(), INT32_MAX); }, {{90, 1}}, {}},
        {"a float on a block", [&] { lit->SetFloat(Param(100, -1, 4, 0), data.data()); }, {{100, 1}}, {}},
    };
    for (const auto& row : rows)
    {
        row.call();
        kvproxy::Mark from = kvproxy::Here();
        lit->FlushConstants();
        EXPECT_EQ(row.vertex, Sent(from, Method::SetVertexShaderConstantF)) << row.what;
        EXPECT_EQ(row.pixel, Sent(from, Method::SetPixelShaderConstantF)) << row.what;
    }
    const float padded[4] = {data[0], 0, 0, 0};
    EXPECT_EQ(0, std::memcmp(padded, g_VSConstantShadow[100], sizeof(padded)));

    // The vertex list fills to its last entry, then drops a write; the pixel
    // list keeps a write that would fill it in the shadow only.
    std::vector<float> many = Fresh(256);
    lit->SetVector4Array(Param(0, -1, 256, 0), many.data(), 256);
    lit->SetVector4(Param(255, -1, 1, 0), Fresh(1).data()); // lost
    EXPECT_EQ(Runs({{0, 256}}), Flush(Method::SetVertexShaderConstantF));
    lit->SetVector4Array(Param(-1, 0, 0, 223), many.data(), 223);
    lit->SetVector4(Param(-1, 223, 0, 1), &many[223 * 4]);
    EXPECT_EQ(Runs({{0, 223}}), Flush(Method::SetPixelShaderConstantF));
    EXPECT_EQ(many[223 * 4], g_PSConstantShadow[223][0]);

    // A texture on a constant's registers goes to the render system's samplers,
    // which refuse one that does not exist.
    kvproxy::Mark from = kvproxy::Here();
    lit->SetTexture(Param(300, 2, 1, 1), nullptr, SamplerState());
    EXPECT_EQ(ArgList({{2, 0}}), ArgsOf(from, Method::SetTexture, 2));
    EXPECT_EQ(std::vector<std::string>{"SetTexture: sampler 300 does not exist"}, Errors());
}

TEST_F(Constants, BindsFollowTheCompiledTablesOfTheCurrentVariant)
{
    // No lights: the light arrays are not in the code, so they have no bind.
    const CGpuProgram::PARAM* colours = lit->GetParam("lightColours");
    const CGpuProgram::PARAM* world = lit->GetParam("world");
    ASSERT_TRUE(colours && world && world->m_pBind);
    EXPECT_EQ(nullptr, colours->m_pBind);
    EXPECT_EQ(-1, world->m_pBind->nPSRegister);
    EXPECT_EQ(4, world->m_pBind->nVSCount);
    Keys(0, 3);
    ASSERT_TRUE(WaitReady(lit.get()));
    ASSERT_NE(nullptr, colours->m_pBind);
    EXPECT_EQ(-1, colours->m_pBind->nVSRegister);
    EXPECT_EQ(4, colours->m_pBind->nPSCount); // an array binds whole
    // The registers are the shader's own, as its constant table has them.
    std::vector<DWORD> code(4096);
    UINT size = static_cast<UINT>(code.size() * 4);
    ASSERT_EQ(D3D_OK, lit->GetCurrentVariant()->m_pVertexShader->GetFunction(code.data(), &size));
    ID3DXConstantTable* table = nullptr;
    ASSERT_EQ(D3D_OK, D3DXGetShaderConstantTable(code.data(), &table));
    D3DXCONSTANT_DESC desc = {};
    UINT count = 1;
    table->GetConstantDesc(table->GetConstantByName(nullptr, "world"), &desc, &count);
    table->Release();
    lit->SetMatrixArray(world, Fresh(4).data(), 1);
    EXPECT_EQ(Runs({{static_cast<int>(desc.RegisterIndex), 4}}), Flush(Method::SetVertexShaderConstantF));
}

class Activation : public LitTest
{
protected:
    static uint64_t Number(const void* p) { return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p)); }
    // The shaders set on the device since the mark: vertex, then pixel.
    std::pair<ArgList, ArgList> Sets(kvproxy::Mark from)
    {
        return {ArgsOf(from, Method::SetVertexShader, 1), ArgsOf(from, Method::SetPixelShader, 1)};
    }
    std::pair<ArgList, ArgList> Own()
    {
        return {{{Number(lit->GetCurrentVariant()->m_pVertexShader)}},
                {{Number(lit->GetCurrentVariant()->m_pPixelShader)}}};
    }
};

TEST_F(Activation, ShadersAreSetOnceNotWhileCompilingAndAgainAfterAReset)
{
    kvproxy::Mark from = kvproxy::Here();
    ASSERT_TRUE(lit->BeginActivate(nullptr, false));
    ASSERT_TRUE(lit->BeginActivate(nullptr, false));
    EXPECT_EQ(Own(), Sets(from));

    // The compile thread waits for the engine's shader files while we hold them.
    GetGpuProgramManager()->GetDX9ShaderMutex().Enter();
    Keys(1, 1);
    from = kvproxy::Here();
    EXPECT_FALSE(lit->BeginActivate(nullptr, false));
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    EXPECT_EQ(VARIANT_QUEUED, lit->GetCurrentVariant()->State());
    GetGpuProgramManager()->GetDX9ShaderMutex().Leave();
    ASSERT_TRUE(WaitReady(lit.get()));

    // A reset leaves the program as it is; the next activation sets both again.
    IDirect3DVertexShader9* shader = lit->GetCurrentVariant()->m_pVertexShader;
    ASSERT_TRUE(lit->BeginActivate(nullptr, false));
    kvproxy::LoseDevice();
    kvproxy::AllowDeviceReset();
    ASSERT_TRUE(rs->IsDeviceAvailable());
    from = kvproxy::Here();
    ASSERT_TRUE(lit->BeginActivate(nullptr, false));
    EXPECT_EQ(Own(), Sets(from));
    EXPECT_EQ(shader, lit->GetCurrentVariant()->m_pVertexShader);
    EXPECT_EQ(2u, Compiles());
}

// The complexity view gets the variant's costs as one constant, scaled by
// the budget; other modes send nothing of it.
TEST_F(Activation, TheComplexityViewGetsTheVariantsCostsAsOneConstant)
{
    d3d->m_nComplexityRegister = 3;
    d3d->m_nComplexityRegisterCount = 1;
    ShaderVariant* variant = lit->GetCurrentVariant();
    // The pixel stage's costs or the vertex stage's, the vertex stage's, then two constants.
    const std::tuple<bool, int, int, float, float> rows[] = {
        {false, 150, 30, 0.5f, 0.5f}, {true, 150, 30, 0.1f, 0.5f}, {true, 0, 0, 0.0f, 0.0f}};
    rs->SetFillMode(FILL_SHADER_COMPLEXITY);
    for (const auto& row : rows)
    {
        std::tie(g_bShaderComplexityPS, variant->m_nVertexSlots, variant->m_nPixelSlots, std::ignore, std::ignore) =
            row;
        kvproxy::Mark from = kvproxy::Here();
        lit->FlushConstants();
        const std::vector<KvProxyCall> sends = kvproxy::CallsSince(from, Method::SetPixelShaderConstantF);
        ASSERT_EQ(ArgList({{3}}), ArgsOf(from, Method::SetPixelShaderConstantF, 1));
        const float* v = kvproxy::FloatsOf(sends[0]);
        EXPECT_EQ(std::vector<float>({std::get<3>(row), std::get<4>(row), 0.03125f, 1.0f}),
                  std::vector<float>(v, v + 4));
    }
    g_bShaderComplexityPS = false;
    rs->SetFillMode(FILL_SOLID);
    variant->m_nVertexSlots = 1;
    kvproxy::Mark from = kvproxy::Here();
    lit->FlushConstants();
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
}

} // namespace
