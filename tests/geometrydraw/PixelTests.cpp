// What draws leave on the back buffer, read back from the device: indexed quads
// from hardware buffers at their base vertex, both forms from user memory, and
// buffers of each pool after a real device reset.
#include "D3D9ResourceManager.h"
#include "DrawFixture.h"

#include <d3dx9.h>

#include <cstring>

using namespace kv;

namespace
{

const uint32_t kClear = 0xFF000080;
const uint32_t kRed = 0xFFFF0000;
const uint32_t kGreen = 0xFF00FF00;

// A quad in clip space from (x0, y0) to (x1, y1), wound as two triangles by
// the indices {0, 1, 2, 0, 2, 3}.
std::vector<ColourVertex> Quad(float x0, float y0, float x1, float y1, uint32_t colour)
{
    return {{x0, y0, 0.5f, colour}, {x0, y1, 0.5f, colour}, {x1, y1, 0.5f, colour}, {x1, y0, 0.5f, colour}};
}

const std::vector<uint16_t> kQuadIndices = {0, 1, 2, 0, 2, 3};

struct Pixels : DrawTest
{
    void SetUp() override
    {
        DrawTest::SetUp();
        if (HasFatalFailure())
            return;
        declaration = ColourDeclaration();
        FixedFunctionColour();
    }

    // Untransformed vertices through identity transforms, coloured by their
    // diffuse colour alone.
    void FixedFunctionColour()
    {
        d3d->_setRenderState(D3DRS_LIGHTING, FALSE);
        d3d->_setRenderState(D3DRS_CULLMODE, D3DCULL_NONE);
        d3d->_setRenderState(D3DRS_ZENABLE, D3DZB_FALSE);
        d3d->_setRenderState(D3DRS_ALPHABLENDENABLE, FALSE);
        device->SetTextureStageState(0, D3DTSS_COLOROP, D3DTOP_SELECTARG1);
        device->SetTextureStageState(0, D3DTSS_COLORARG1, D3DTA_DIFFUSE);
        device->SetTextureStageState(0, D3DTSS_ALPHAOP, D3DTOP_SELECTARG1);
        device->SetTextureStageState(0, D3DTSS_ALPHAARG1, D3DTA_DIFFUSE);
        device->SetTexture(0, nullptr);
    }

    void BeginFrame()
    {
        ASSERT_TRUE(rs->_beginFrame());
        ASSERT_EQ(D3D_OK, device->Clear(0, nullptr, D3DCLEAR_TARGET, kClear, 1.0f, 0));
    }

    // The back buffer as 32-bit pixels, row by row.
    std::vector<uint32_t> ReadBack()
    {
        std::vector<uint32_t> pixels;
        IDirect3DSurface9* target = nullptr;
        IDirect3DSurface9* copy = nullptr;
        EXPECT_EQ(D3D_OK, device->GetRenderTarget(0, &target));
        D3DSURFACE_DESC desc = {};
        if (target && SUCCEEDED(target->GetDesc(&desc)) &&
            SUCCEEDED(device->CreateOffscreenPlainSurface(desc.Width, desc.Height, desc.Format, D3DPOOL_SYSTEMMEM,
                                                          &copy, nullptr)) &&
            SUCCEEDED(device->GetRenderTargetData(target, copy)))
        {
            D3DLOCKED_RECT rect;
            if (SUCCEEDED(copy->LockRect(&rect, nullptr, D3DLOCK_READONLY)))
            {
                width = desc.Width;
                pixels.resize(desc.Width * desc.Height);
                for (unsigned y = 0; y < desc.Height; ++y)
                    for (unsigned x = 0; x < desc.Width; ++x)
                        pixels[y * desc.Width + x] =
                            reinterpret_cast<const uint32_t*>(static_cast<const uint8_t*>(rect.pBits) +
                                                              y * rect.Pitch)[x] |
                            0xFF000000u;
                copy->UnlockRect();
            }
        }
        if (copy)
            copy->Release();
        if (target)
            target->Release();
        EXPECT_FALSE(pixels.empty()) << "the back buffer could not be read";
        return pixels;
    }

    uint32_t At(const std::vector<uint32_t>& pixels, unsigned x, unsigned y) const
    {
        return y * width + x < pixels.size() ? pixels[y * width + x] : 0;
    }

    ref_ptr<CVertexDeclaration> declaration;
    unsigned width = 0;
};

} // namespace

TEST_F(Pixels, IndexedQuadsLandAtTheirBaseVertex)
{
    // Left quad red at vertices 0..3, right quad green at 4..7; one index list.
    std::vector<ColourVertex> vertices = Quad(-0.75f, -0.5f, -0.25f, 0.5f, kRed);
    std::vector<ColourVertex> right = Quad(0.25f, -0.5f, 0.75f, 0.5f, kGreen);
    vertices.insert(vertices.end(), right.begin(), right.end());
    ref_ptr<CHardwareVertexBuffer> vb = VertexBuffer(vertices);
    ref_ptr<CHardwareIndexBuffer> ib = IndexBuffer16(kQuadIndices);
    ref_ptr<CIndexData> quad = IndexData(ib.get(), 0, 6);

    BeginFrame();
    ref_ptr<CVertexData> first = VertexData(declaration.get(), vb.get(), 0, 4);
    ref_ptr<CVertexData> second = VertexData(declaration.get(), vb.get(), 4, 4);
    rs->SetVertexBuffer(first.get());
    rs->SetIndexBuffer(ib.get());
    rs->DrawPrimitive(PT_TRIANGLE_LIST, first.get(), quad.get(), 1, false);
    rs->SetVertexBuffer(second.get());
    rs->DrawPrimitive(PT_TRIANGLE_LIST, second.get(), quad.get(), 1, false);
    rs->_endFrame();

    std::vector<uint32_t> pixels = ReadBack();
    // Clip x -0.75..-0.25 is pixels 8..24, 0.25..0.75 is 40..56; y -0.5..0.5 is 16..48.
    EXPECT_EQ(kRed, At(pixels, 16, 32));
    EXPECT_EQ(kRed, At(pixels, 10, 18));
    EXPECT_EQ(kRed, At(pixels, 22, 46));
    EXPECT_EQ(kGreen, At(pixels, 48, 32));
    EXPECT_EQ(kGreen, At(pixels, 42, 18));
    EXPECT_EQ(kClear, At(pixels, 32, 32));
    EXPECT_EQ(kClear, At(pixels, 16, 8));
    EXPECT_EQ(kClear, At(pixels, 48, 56));
    EXPECT_EQ(kClear, At(pixels, 2, 32));
    EXPECT_EQ(2u, Timer().m_nDrawCallCount);
    EXPECT_EQ(4u, Timer().m_nPrimitiveCount);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Pixels, FirstIndexPicksTheTriangle)
{
    ref_ptr<CHardwareVertexBuffer> vb = VertexBuffer(Quad(-0.5f, -0.5f, 0.5f, 0.5f, kRed));
    ref_ptr<CHardwareIndexBuffer> ib = IndexBuffer16(kQuadIndices);
    ref_ptr<CVertexData> data = VertexData(declaration.get(), vb.get(), 0, 4);
    BeginFrame();
    rs->SetVertexBuffer(data.get());
    rs->SetIndexBuffer(ib.get());
    // Only the second triangle: (x0,y0), (x1,y1), (x1,y0), the lower right half.
    rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), IndexData(ib.get(), 3, 3).get(), 1, false);
    rs->_endFrame();
    std::vector<uint32_t> pixels = ReadBack();
    EXPECT_EQ(kRed, At(pixels, 44, 44));
    EXPECT_EQ(kClear, At(pixels, 20, 20));
}

TEST_F(Pixels, UserMemoryFormsDraw)
{
    std::vector<ColourVertex> left = Quad(-0.75f, -0.5f, -0.25f, 0.5f, kRed);
    std::vector<ColourVertex> right = Quad(0.25f, -0.5f, 0.75f, 0.5f, kGreen);
    // The left quad as a fan of four vertices, the right one indexed.
    BeginFrame();
    rs->DrawPrimitiveUP(PT_TRIANGLE_FAN, 4, left.data(), sizeof(ColourVertex), declaration.get(), 1);
    rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 6, kQuadIndices.data(), CHardwareIndexBuffer::IT_16BIT,
                               right.data(), sizeof(ColourVertex), declaration.get(), 1);
    rs->_endFrame();
    std::vector<uint32_t> pixels = ReadBack();
    EXPECT_EQ(kRed, At(pixels, 16, 32));
    EXPECT_EQ(kGreen, At(pixels, 48, 32));
    EXPECT_EQ(kClear, At(pixels, 32, 32));
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Pixels, BuffersOfBothPoolsDrawAfterARealReset)
{
    const CHardwareBuffer::Usage dynamic = static_cast<CHardwareBuffer::Usage>(
        CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_WRITE_ONLY | CHardwareBuffer::USAGE_DISCARDABLE);
    ref_ptr<CHardwareVertexBuffer> managed = VertexBuffer(Quad(-0.75f, -0.5f, -0.25f, 0.5f, kRed));
    std::vector<ColourVertex> greenQuad = Quad(0.25f, -0.5f, 0.75f, 0.5f, kGreen);
    ref_ptr<CHardwareVertexBuffer> deflt = VertexBuffer(greenQuad, dynamic);
    ref_ptr<CHardwareIndexBuffer> managedIndices = IndexBuffer16(kQuadIndices);
    ref_ptr<CHardwareIndexBuffer> defaultIndices = IndexBuffer16(kQuadIndices, dynamic);
    ASSERT_EQ(D3DPOOL_DEFAULT, D3D(deflt.get())->m_d3dDesc.Pool);
    ASSERT_EQ(D3DPOOL_MANAGED, D3D(managed.get())->m_d3dDesc.Pool);
    IDirect3DVertexBuffer9* managedNative = D3D(managed.get())->m_pD3D9VertexBuffer;

    // The device goes, comes back resettable, and is reset as a reset does it:
    // everything of the default pool given up first, made again after.
    kvproxy::LoseDevice();
    kvproxy::AllowDeviceReset();
    ASSERT_EQ(D3DERR_DEVICENOTRESET, device->TestCooperativeLevel());
    d3d->_resetStateCaches();
    d3d->GetResourceManager()->notifyOnDeviceLost();
    d3d->m_pActiveDepthBuffer = nullptr;
    EXPECT_EQ(nullptr, D3D(deflt.get())->m_pD3D9VertexBuffer);
    EXPECT_EQ(nullptr, D3D(defaultIndices.get())->m_pD3D9IndexBuffer);
    ASSERT_EQ(D3D_OK, device->Reset(&d3d->m_d3dpp));
    EXPECT_EQ(static_cast<uint32_t>(KV_PROXY_LOSS_NONE), kvproxy::DeviceLossState());
    d3d->GetResourceManager()->notifyOnDeviceReset();
    ASSERT_NE(nullptr, D3D(deflt.get())->m_pD3D9VertexBuffer);
    ASSERT_NE(nullptr, D3D(defaultIndices.get())->m_pD3D9IndexBuffer);
    EXPECT_EQ(managedNative, D3D(managed.get())->m_pD3D9VertexBuffer);

    // A default-pool buffer comes back empty-handed: its owner fills it again.
    deflt->WriteData(0, deflt->mSizeInBytes, greenQuad.data(), true);
    defaultIndices->WriteData(0, defaultIndices->mSizeInBytes, kQuadIndices.data(), true);
    FixedFunctionColour();

    BeginFrame();
    ref_ptr<CVertexData> left = VertexData(declaration.get(), managed.get(), 0, 4);
    ref_ptr<CVertexData> right = VertexData(declaration.get(), deflt.get(), 0, 4);
    rs->SetVertexBuffer(left.get());
    rs->SetIndexBuffer(managedIndices.get());
    rs->DrawPrimitive(PT_TRIANGLE_LIST, left.get(), IndexData(managedIndices.get(), 0, 6).get(), 1, false);
    rs->SetVertexBuffer(right.get());
    rs->SetIndexBuffer(defaultIndices.get());
    rs->DrawPrimitive(PT_TRIANGLE_LIST, right.get(), IndexData(defaultIndices.get(), 0, 6).get(), 1, false);
    rs->_endFrame();

    std::vector<uint32_t> pixels = ReadBack();
    EXPECT_EQ(kRed, At(pixels, 16, 32));   // managed: the content came through the reset
    EXPECT_EQ(kGreen, At(pixels, 48, 32)); // default pool: made anew and refilled
    EXPECT_EQ(kClear, At(pixels, 32, 32));
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

namespace
{

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
    HRESULT hr = D3DXCompileShader(source, static_cast<UINT>(std::strlen(source)), nullptr, nullptr, "main", profile,
                                   0, &code, &errors, nullptr);
    EXPECT_EQ(D3D_OK, hr) << (errors ? static_cast<const char*>(errors->GetBufferPointer()) : "");
    if (errors)
        errors->Release();
    return SUCCEEDED(hr) ? code : nullptr;
}

} // namespace

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

    BeginFrame();
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

    std::vector<uint32_t> pixels = ReadBack();
    // Clip (-0.5, 0.5) is pixel (16, 16); (0.5, 0.5) is (48, 16); (0, -0.5) is (32, 48).
    EXPECT_EQ(kRed, At(pixels, 16, 16));
    EXPECT_EQ(kRed, At(pixels, 48, 16));
    EXPECT_EQ(kRed, At(pixels, 32, 48));
    EXPECT_EQ(kClear, At(pixels, 32, 32)); // no instance sits at the origin
    EXPECT_EQ(kClear, At(pixels, 16, 48));
    EXPECT_EQ(6u, Timer().m_nPrimitiveCount);
    EXPECT_EQ(2u, Timer().m_nExtraInstances);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}
