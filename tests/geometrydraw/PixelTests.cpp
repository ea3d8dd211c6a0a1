// What draws leave on the back buffer, read back from the device: indexed quads
// from hardware buffers at their base vertex and first index, both forms from
// user memory, and hardware instancing through shaders.
#include "KvDeviceTest.h"

#include <d3dx9.h>

#include <cstring>

using namespace kv;
using namespace kvtest;

namespace
{

struct Pixels : KvDeviceTest
{
    void SetUp() override
    {
        KvDeviceTest::SetUp();
        if (HasFatalFailure())
            return;
        declaration = ColourDeclaration();
        FixedFunctionColour();
    }
    // The colour at pixel (x, y) of the last read back.
    uint32_t At(unsigned x, unsigned y) const { return y * kWidth + x < pixels.size() ? pixels[y * kWidth + x] : 0; }

    ref_ptr<CVertexDeclaration> declaration;
    std::vector<uint32_t> pixels;
};

const char kInstancingVertexShader[] = R"(
struct Input
{
    float3 position : POSITION0;
    float4 colour : COLOR0;
    float2 offset : TEXCOORD0;
};
struct Output
{
    float4 position : POSITION;
    float4 colour : COLOR0;
};
Output main(Input input)
{
    Output output;
    output.position = float4(input.position.xy + input.offset, 0.5, 1.0);
    output.colour = input.colour;
    return output;
}
)";

const char kColourPixelShader[] = R"(
float4 main(float4 colour : COLOR0) : COLOR
{
    return colour;
}
)";

// The shader's code, or null with the compiler's words in the failure.
ID3DXBuffer* Compile(const char* source, const char* profile)
{
    ID3DXBuffer* code = nullptr;
    ID3DXBuffer* errors = nullptr;
    HRESULT hr = D3DXCompileShader(source, static_cast<UINT>(std::strlen(source)), nullptr, nullptr, "main", profile, 0,
                                   &code, &errors, nullptr);
    EXPECT_EQ(D3D_OK, hr) << (errors ? static_cast<const char*>(errors->GetBufferPointer()) : "");
    if (errors)
        errors->Release();
    return SUCCEEDED(hr) ? code : nullptr;
}

} // namespace

TEST_F(Pixels, IndexedQuadsLandAtTheirBaseVertexAndFirstIndex)
{
    // Left quad red at vertices 0..3, right quad green at 4..7; one index list.
    std::vector<ColourVertex> vertices = Quad(-0.75f, -0.5f, -0.25f, 0.5f, kRed);
    std::vector<ColourVertex> right = Quad(0.25f, -0.5f, 0.75f, 0.5f, kGreen);
    vertices.insert(vertices.end(), right.begin(), right.end());
    ref_ptr<CHardwareVertexBuffer> vb = VertexBuffer(vertices);
    ref_ptr<CHardwareIndexBuffer> ib = IndexBuffer16(kQuadIndices);
    ref_ptr<CIndexData> quad = IndexData(ib.get(), 0, 6);
    BeginClearedFrame();
    ref_ptr<CVertexData> first = VertexData(declaration.get(), vb.get(), 0, 4);
    ref_ptr<CVertexData> second = VertexData(declaration.get(), vb.get(), 4, 4);
    rs->SetVertexBuffer(first.get());
    rs->SetIndexBuffer(ib.get());
    rs->DrawPrimitive(PT_TRIANGLE_LIST, first.get(), quad.get(), 1, false);
    rs->SetVertexBuffer(second.get());
    rs->DrawPrimitive(PT_TRIANGLE_LIST, second.get(), quad.get(), 1, false);
    rs->_endFrame();
    pixels = ReadBackBuffer();
    // Clip x -0.75..-0.25 is pixels 8..24, 0.25..0.75 is 40..56; y -0.5..0.5 is 16..48.
    EXPECT_EQ(kRed, At(16, 32));
    EXPECT_EQ(kRed, At(10, 18));
    EXPECT_EQ(kRed, At(22, 46));
    EXPECT_EQ(kGreen, At(48, 32));
    EXPECT_EQ(kGreen, At(42, 18));
    EXPECT_EQ(kClear, At(32, 32));
    EXPECT_EQ(kClear, At(16, 8));
    EXPECT_EQ(kClear, At(48, 56));
    EXPECT_EQ(kClear, At(2, 32));
    EXPECT_EQ(2u, Timer().m_nDrawCallCount);
    EXPECT_EQ(4u, Timer().m_nPrimitiveCount);

    // Only the second triangle of a quad: (x0,y0), (x1,y1), (x1,y0), the lower right half.
    ref_ptr<CHardwareVertexBuffer> middle = VertexBuffer(Quad(-0.5f, -0.5f, 0.5f, 0.5f, kRed));
    ref_ptr<CVertexData> data = VertexData(declaration.get(), middle.get(), 0, 4);
    BeginClearedFrame();
    rs->SetVertexBuffer(data.get());
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), IndexData(ib.get(), 3, 3).get(), 1, false);
    rs->_endFrame();
    pixels = ReadBackBuffer();
    EXPECT_EQ(kRed, At(44, 44));
    EXPECT_EQ(kClear, At(20, 20));
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Pixels, UserMemoryFormsDraw)
{
    std::vector<ColourVertex> left = Quad(-0.75f, -0.5f, -0.25f, 0.5f, kRed);
    std::vector<ColourVertex> right = Quad(0.25f, -0.5f, 0.75f, 0.5f, kGreen);
    // The left quad as a fan of four vertices, the right one indexed.
    BeginClearedFrame();
    rs->DrawPrimitiveUP(PT_TRIANGLE_FAN, 4, left.data(), sizeof(ColourVertex), declaration.get(), 1);
    rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 6, kQuadIndices.data(), CHardwareIndexBuffer::IT_16BIT,
                               right.data(), sizeof(ColourVertex), declaration.get(), 1);
    rs->_endFrame();
    pixels = ReadBackBuffer();
    EXPECT_EQ(kRed, At(16, 32));
    EXPECT_EQ(kGreen, At(48, 32));
    EXPECT_EQ(kClear, At(32, 32));
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Pixels, HardwareInstancingDrawsEveryInstanceWhereItsDataSays)
{
    ID3DXBuffer* vsCode = Compile(kInstancingVertexShader, "vs_3_0");
    ID3DXBuffer* psCode = Compile(kColourPixelShader, "ps_3_0");
    ASSERT_TRUE(vsCode && psCode);
    IDirect3DVertexShader9* vs = nullptr;
    IDirect3DPixelShader9* ps = nullptr;
    ASSERT_EQ(D3D_OK, device->CreateVertexShader(static_cast<const DWORD*>(vsCode->GetBufferPointer()), &vs));
    ASSERT_EQ(D3D_OK, device->CreatePixelShader(static_cast<const DWORD*>(psCode->GetBufferPointer()), &ps));
    vsCode->Release();
    psCode->Release();

    // One quad around the origin; three instances move it left, right and down.
    const VertexElement elements[] = {VertexElement(0, 0, VET_FLOAT3, VES_POSITION),
                                      VertexElement(0, 12, VET_COLOUR, VES_COLOUR),
                                      VertexElement(1, 0, VET_FLOAT2, VES_TEXTURE_COORDINATES)};
    ref_ptr<CVertexDeclaration> instanced = rs->CreateVertexDeclaration(elements, 3);
    ref_ptr<CHardwareVertexBuffer> mesh = VertexBuffer(Quad(-0.15f, -0.15f, 0.15f, 0.15f, kRed));
    const float offsets[] = {-0.5f, 0.5f, 0.5f, 0.5f, 0.0f, -0.5f};
    ref_ptr<CHardwareVertexBuffer> perInstance =
        rs->CreateHardwareVertexBuffer(8, 3, CHardwareBuffer::USAGE_STATIC, offsets);
    ref_ptr<CHardwareIndexBuffer> ib = IndexBuffer16(kQuadIndices);
    ref_ptr<CVertexData> meshData = VertexData(instanced.get(), mesh.get(), 0, 4);
    ref_ptr<CVertexData> instanceData = VertexData(instanced.get(), perInstance.get(), 0, 3);
    BeginClearedFrame();
    device->SetVertexShader(vs);
    device->SetPixelShader(ps);
    rs->SetVertexBuffers(0, meshData.get(), 0);
    rs->SetVertexBuffers(1, instanceData.get(), 0);
    rs->SetIndexBuffer(ib.get());
    rs->DrawPrimitive(PT_TRIANGLE_LIST, meshData.get(), IndexData(ib.get(), 0, 6).get(), 3, true);
    rs->_endFrame();
    device->SetVertexShader(nullptr);
    device->SetPixelShader(nullptr);
    vs->Release();
    ps->Release();

    pixels = ReadBackBuffer();
    // Clip (-0.5, 0.5) is pixel (16, 16); (0.5, 0.5) is (48, 16); (0, -0.5) is (32, 48).
    EXPECT_EQ(kRed, At(16, 16));
    EXPECT_EQ(kRed, At(48, 16));
    EXPECT_EQ(kRed, At(32, 48));
    EXPECT_EQ(kClear, At(32, 32)) << "no instance sits at the origin";
    EXPECT_EQ(kClear, At(16, 48));
    EXPECT_EQ(6u, Timer().m_nPrimitiveCount);
    EXPECT_EQ(2u, Timer().m_nExtraInstances);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}
