// Activation: the shader sets a draw costs, what a variant still compiling
// and a device reset do to them, the viewing modes' pixel shaders, and lit
// pixels drawn through a program compiled in the background.
#include "ProgramFixture.h"

#include "engine/GpuProgramManager.h"

#include <cstdlib>

using namespace kv;
using namespace kvtest;
using kvproxy::Method;

namespace
{

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

TEST_F(Activation, AViewingModeHasItsOwnPixelShaderAndTheComplexityViewItsConstant)
{
    ASSERT_TRUE(lit->BeginActivate(nullptr, false));
    const uint64_t own = Own().second[0][0];
    // Another variant's pixel shader stands in for the overdraw view's.
    Keys(1, 0);
    ASSERT_TRUE(WaitReady(lit.get()));
    IDirect3DPixelShader9* overdraw = lit->GetCurrentVariant()->m_pPixelShader;
    overdraw->AddRef(); // the render system releases its viewing shaders
    d3d->m_pComplexityShaders[FILL_OVERDRAW - FILL_WIRE_BLACK] = overdraw;
    Keys(0, 0);
    const std::pair<FillMode, uint64_t> modes[] = {{FILL_OVERDRAW, Number(overdraw)}, {FILL_SOLID, own}};
    for (const auto& row : modes)
    {
        rs->SetFillMode(row.first);
        kvproxy::Mark from = kvproxy::Here();
        ASSERT_TRUE(lit->BeginActivate(nullptr, false));
        EXPECT_EQ(std::make_pair(ArgList(), ArgList({{row.second}})), Sets(from)) << row.first;
    }

    // The complexity view gets the variant's costs as one constant.
    d3d->m_nComplexityRegister = 3;
    d3d->m_nComplexityRegisterCount = 1;
    ShaderVariant* variant = lit->GetCurrentVariant();
    const struct
    {
        bool pixelStage;
        int vertexSlots, pixelSlots;
        float x, y;
    } rows[] = {{false, 150, 30, 0.5f, 0.5f}, {true, 150, 30, 0.1f, 0.5f}, {true, 0, 0, 0.0f, 0.0f}};
    rs->SetFillMode(FILL_SHADER_COMPLEXITY);
    for (const auto& row : rows)
    {
        g_bShaderComplexityPS = row.pixelStage;
        variant->m_nVertexSlots = row.vertexSlots;
        variant->m_nPixelSlots = row.pixelSlots;
        kvproxy::Mark from = kvproxy::Here();
        lit->FlushConstants();
        const std::vector<KvProxyCall> sends = kvproxy::CallsSince(from, Method::SetPixelShaderConstantF);
        ASSERT_EQ(ArgList({{3}}), ArgsOf(from, Method::SetPixelShaderConstantF, 1));
        const float* v = kvproxy::FloatsOf(sends[0]);
        EXPECT_EQ(std::vector<float>({row.x, row.y, 0.03125f, 1.0f}), std::vector<float>(v, v + 4));
    }
    g_bShaderComplexityPS = false;
    rs->SetFillMode(FILL_SOLID);
    variant->m_nVertexSlots = 1;
    kvproxy::Mark from = kvproxy::Here();
    lit->FlushConstants();
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
}

// A face turned to the light is lit by it, one turned away only by the
// ambient term; the camera's matrix comes in as the engine's global value.
TEST_F(Activation, ALitFaceDrawnThroughTheProgramIsBrighterThanAnUnlitOne)
{
    struct LitVertex
    {
        float x, y, z, nx, ny, nz;
    };
    std::vector<LitVertex> vertices; // left: facing the camera and the light; right: facing away
    for (float side : {-1.0f, 1.0f})
        for (const auto& c : {std::make_pair(-0.25f, -0.5f), {-0.25f, 0.5f}, {0.25f, 0.5f}, {0.25f, -0.5f}})
            vertices.push_back({0.5f * side + c.first, c.second, 0.5f, 0.0f, 0.0f, side});
    const VertexElement elements[] = {VertexElement(0, 0, VET_FLOAT3, VES_POSITION),
                                      VertexElement(0, 12, VET_FLOAT3, VES_NORMAL)};
    ref_ptr<CVertexDeclaration> declaration = rs->CreateVertexDeclaration(elements, 2);
    ref_ptr<CHardwareVertexBuffer> vb =
        rs->CreateHardwareVertexBuffer(sizeof(LitVertex), 8, CHardwareBuffer::USAGE_STATIC, vertices.data());
    ref_ptr<CHardwareIndexBuffer> ib = IndexBuffer16(kQuadIndices);

    const float identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    GetGpuProgramManager()->SetGlobalValue("viewProjection", identity, 4);
    lit->InitGlobalParameter();
    Keys(0, 1);
    ASSERT_TRUE(WaitReady(lit.get()));
    FixedFunctionColour();
    BeginClearedFrame();
    ASSERT_TRUE(lit->BeginActivate(nullptr, false));
    const float material[4] = {1.0f, 0.5f, 0.25f, 1.0f}, ambient[4] = {0.1f, 0.1f, 0.1f, 0.0f};
    const float towardsLight[4] = {0.0f, 0.0f, -1.0f, 0.0f}, light[4] = {0.8f, 0.8f, 0.8f, 0.0f};
    lit->SetMatrixArray(lit->GetParam("world"), identity, 1);
    lit->SetVector4(lit->GetParam("materialColour"), material);
    lit->SetVector4(lit->GetParam("ambientColour"), ambient);
    lit->SetVector4Array(lit->GetParam("lightDirections"), towardsLight, 1);
    lit->SetVector4Array(lit->GetParam("lightColours"), light, 1);
    lit->FlushConstants();
    for (unsigned start : {0u, 4u})
    {
        ref_ptr<CVertexData> quad = VertexData(declaration.get(), vb.get(), start, 4);
        rs->SetVertexBuffer(quad.get());
        rs->SetIndexBuffer(ib.get());
        rs->DrawPrimitive(PT_TRIANGLE_LIST, quad.get(), IndexData(ib.get(), 0, 6).get(), 1, false);
    }
    rs->_endFrame();
    const std::vector<uint32_t> pixels = ReadBackBuffer();
    ASSERT_EQ(kWidth * kHeight, pixels.size());
    // Material x (ambient + light), then material x ambient.
    const int expected[2][4] = {{16, 230, 115, 57}, {48, 25, 13, 6}};
    for (const auto& e : expected)
        for (int channel = 0; channel < 3; ++channel)
            EXPECT_NEAR(e[1 + channel],
                        static_cast<int>(pixels[kHeight / 2 * kWidth + e[0]] >> (16 - 8 * channel) & 0xFF), 2)
                << e[0];
}

} // namespace
