// Constants as the device sees them: which registers a setter queues, how a
// flush merges them into calls, what a repeated value spares, and what the
// guards keep out of the shadows. Binds are made here where the registers
// matter, and come from the compiled tables where the tables matter.
#include "ProgramFixture.h"

#include "D3D9ShaderConstants.h"

#include <cstring>
#include <deque>
#include <functional>
#include <limits>

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
    // Another program writing the same value pays nothing for the switch.
    lit->SetVector4(both, one);
    lit->FlushConstants();
    ref_ptr<CD3D9HLSLProgram> other = Make("lit+other");
    other->SetVector4(both, one);
    kvproxy::Mark from = kvproxy::Here();
    other->FlushConstants();
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));

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
        {"past the vertex registers", [&] { lit->SetValue(Param(254, -1, 4, 0), data.data()); }, {}, {}},
        {"past the pixel registers", [&] { lit->SetValue(Param(-1, 222, 0, 4), data.data()); }, {}, {}},
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
    lit->SetMatrixArray(world, Fresh(4).data(), 1);
    EXPECT_EQ(Runs({{world->m_pBind->nVSRegister, 4}}), Flush(Method::SetVertexShaderConstantF));

    // In editor mode the first variant made reads the vertex input, sorted by semantic.
    g_bEditorMode = true;
    Keys(6, 1); // vertex colour, instancing
    ref_ptr<CD3D9HLSLProgram> instanced = Make("lit");
    ASSERT_TRUE(WaitReady(instanced.get()));
    const std::vector<std::pair<int, int>> semantics = {{VES_POSITION, 0},
                                                        {VES_NORMAL, 0},
                                                        {VES_TEXTURE_COORDINATES, 1},
                                                        {VES_TEXTURE_COORDINATES, 2},
                                                        {VES_TEXTURE_COORDINATES, 3},
                                                        {VES_COLOUR, 0}};
    EXPECT_EQ(semantics, instanced->m_inputSemantics);
    int semantic = -1;
    EXPECT_EQ(3, instanced->GetInputSemantic(4, &semantic));
    EXPECT_EQ(VES_TEXTURE_COORDINATES, semantic);
    EXPECT_EQ(0, lit->GetInputSemanticCount());
}

} // namespace
