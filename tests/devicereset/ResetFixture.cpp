#include "ResetFixture.h"

#include "engine/Engine.h"
#include "engine/Globals.h"
#include "engine/Root.h"

using namespace kv;

void ProbeResource::notifyOnDeviceLost()
{
    ++lost;
    traceAtLost = kvproxy::Here().index;
    logAtLost = GetLogLineCount();
    zShadowAtLost = GetD3D9RenderSystem()->m_renderStates.at(D3DRS_ZENABLE);
}

void ProbeResource::notifyOnDeviceReset()
{
    ++reset;
    traceAtReset = kvproxy::Here().index;
    logAtReset = GetLogLineCount();
    engineResetsAtReset = GetRoot()->m_nDeviceResetCount;
}

void ResetTest::Start(bool vsync, unsigned fsaa, DWORD style, DWORD exStyle)
{
    TearDown();
    ASSERT_TRUE(kvproxy::Available()) << "this suite must run with the recording d3d9.dll";
    kvproxy::ResetAll();
    SetLogEcho(false);
    ClearLog();
    g_eRenderSystemType = RST_DX9C;
    gMainWindowFormat = PF_X8R8G8B8;
    if (style & WS_CHILD)
    {
        hParent = CreateWindowExA(0, "STATIC", "reset parent", WS_OVERLAPPEDWINDOW, 0, 0, 200, 200, nullptr, nullptr,
                                  GetModuleHandleA(nullptr), nullptr);
        ASSERT_NE(nullptr, hParent);
    }
    hWnd = CreateWindowExA(exStyle, "STATIC", "reset test", style, 0, 0, kWidth, kHeight, hParent, nullptr,
                           GetModuleHandleA(nullptr), nullptr);
    ASSERT_NE(nullptr, hWnd);
    rs = CreateRenderSystem();
    ASSERT_NE(nullptr, rs);
    d3d = GetD3D9RenderSystem();
    ASSERT_TRUE(rs->Init(hWnd, kWidth, kHeight, false, vsync, fsaa)) << ::testing::PrintToString(Texts(LOG_ERROR));
    device = d3d->m_pD3D9Device;
    ASSERT_NE(nullptr, device);
    probe = new ProbeResource;
    ASSERT_GE(probe->m_nResourceIndex, 0) << "the probe did not enter the registry";
    engineResetsAtStart = GetRoot()->m_nDeviceResetCount;
    ClearLog();
}

void ResetTest::TearDown()
{
    declaration = nullptr;
    managed = nullptr;
    dynamic = nullptr;
    indices = nullptr;
    delete probe;
    probe = nullptr;
    if (rs)
    {
        rs->Destroy();
        delete rs;
    }
    rs = nullptr;
    d3d = nullptr;
    device = nullptr;
    EngineShutdown();
    kvproxy::ResetAll();
    if (hWnd)
        DestroyWindow(hWnd);
    if (hParent)
        DestroyWindow(hParent);
    hWnd = nullptr;
    hParent = nullptr;
}

namespace
{

std::vector<ColourVertex> Quad(float x0, float y0, float x1, float y1, uint32_t colour)
{
    return {{x0, y0, 0.5f, colour}, {x0, y1, 0.5f, colour}, {x1, y1, 0.5f, colour}, {x1, y0, 0.5f, colour}};
}

const uint16_t kQuadIndices[] = {0, 1, 2, 0, 2, 3};

} // namespace

void ResetTest::MakeScene()
{
    const VertexElement elements[] = {VertexElement(0, 0, VET_FLOAT3, VES_POSITION),
                                      VertexElement(0, 12, VET_COLOUR, VES_COLOUR)};
    declaration = rs->CreateVertexDeclaration(elements, 2);
    std::vector<ColourVertex> red = Quad(-0.75f, -0.5f, -0.25f, 0.5f, kRed);
    greenQuad = Quad(0.25f, -0.5f, 0.75f, 0.5f, kGreen);
    managed = rs->CreateHardwareVertexBuffer(sizeof(ColourVertex), 4, CHardwareBuffer::USAGE_STATIC, red.data());
    dynamic = rs->CreateHardwareVertexBuffer(
        sizeof(ColourVertex), 4,
        static_cast<CHardwareBuffer::Usage>(CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_WRITE_ONLY |
                                            CHardwareBuffer::USAGE_DISCARDABLE),
        greenQuad.data());
    indices = rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, 6, CHardwareBuffer::USAGE_STATIC,
                                            kQuadIndices);
    ASSERT_TRUE(declaration && managed && dynamic && indices);
    ASSERT_EQ(D3DPOOL_MANAGED, static_cast<CD3D9HardwareVertexBuffer*>(managed.get())->m_d3dDesc.Pool);
    ASSERT_EQ(D3DPOOL_DEFAULT, static_cast<CD3D9HardwareVertexBuffer*>(dynamic.get())->m_d3dDesc.Pool);
}

void ResetTest::RefillDefaultBuffer()
{
    dynamic->WriteData(0, dynamic->mSizeInBytes, greenQuad.data(), true);
}

void ResetTest::DrawAndCheckScene(unsigned width, unsigned height)
{
    // A reset puts the device's fixed-function state back to its defaults:
    // untransformed vertices coloured by their diffuse colour alone.
    d3d->_setRenderState(D3DRS_LIGHTING, FALSE);
    d3d->_setRenderState(D3DRS_CULLMODE, D3DCULL_NONE);
    d3d->_setRenderState(D3DRS_ZENABLE, D3DZB_FALSE);
    d3d->_setRenderState(D3DRS_ALPHABLENDENABLE, FALSE);
    device->SetTextureStageState(0, D3DTSS_COLOROP, D3DTOP_SELECTARG1);
    device->SetTextureStageState(0, D3DTSS_COLORARG1, D3DTA_DIFFUSE);
    device->SetTextureStageState(0, D3DTSS_ALPHAOP, D3DTOP_SELECTARG1);
    device->SetTextureStageState(0, D3DTSS_ALPHAARG1, D3DTA_DIFFUSE);
    device->SetTexture(0, nullptr);

    ASSERT_TRUE(rs->_beginFrame());
    ASSERT_EQ(D3D_OK, device->Clear(0, nullptr, D3DCLEAR_TARGET, kClear, 1.0f, 0));
    ref_ptr<CIndexData> quad = rs->CreateIndexData();
    quad->m_pBuffer = indices;
    quad->m_nIndexStart = 0;
    quad->m_nIndexCount = 6;
    for (CHardwareVertexBuffer* buffer : {managed.get(), dynamic.get()})
    {
        ref_ptr<CVertexData> data = rs->CreateVertexData();
        data->m_pDeclaration = declaration;
        data->m_pBuffer = buffer;
        data->m_nVertexStart = 0;
        data->m_nVertexCount = 4;
        rs->SetVertexBuffer(data.get());
        rs->SetIndexBuffer(indices.get());
        rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), quad.get(), 1, false);
    }
    rs->_endFrame();

    unsigned w = 0, h = 0;
    std::vector<uint32_t> pixels = ReadBack(&w, &h);
    ASSERT_EQ(width, w);
    ASSERT_EQ(height, h);
    auto at = [&](double fx, double fy) { return pixels[static_cast<unsigned>(fy * h) * w + static_cast<unsigned>(fx * w)]; };
    // Clip x -0.75..-0.25 is an eighth to three eighths across, 0.25..0.75 five
    // to seven eighths; y -0.5..0.5 the middle half.
    EXPECT_EQ(kRed, at(0.25, 0.5)) << "the managed buffer";
    EXPECT_EQ(kRed, at(0.17, 0.3));
    EXPECT_EQ(kGreen, at(0.75, 0.5)) << "the default-pool buffer";
    EXPECT_EQ(kGreen, at(0.82, 0.7));
    EXPECT_EQ(kClear, at(0.5, 0.5));
    EXPECT_EQ(kClear, at(0.25, 0.1));
    EXPECT_EQ(kClear, at(0.75, 0.9));
}

std::vector<uint32_t> ResetTest::ReadBack(unsigned* width, unsigned* height)
{
    std::vector<uint32_t> pixels;
    IDirect3DSurface9* target = nullptr;
    IDirect3DSurface9* copy = nullptr;
    EXPECT_EQ(D3D_OK, device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &target));
    D3DSURFACE_DESC desc = {};
    if (target && SUCCEEDED(target->GetDesc(&desc)) &&
        SUCCEEDED(device->CreateOffscreenPlainSurface(desc.Width, desc.Height, desc.Format, D3DPOOL_SYSTEMMEM, &copy,
                                                      nullptr)) &&
        SUCCEEDED(device->GetRenderTargetData(target, copy)))
    {
        D3DLOCKED_RECT rect;
        if (SUCCEEDED(copy->LockRect(&rect, nullptr, D3DLOCK_READONLY)))
        {
            *width = desc.Width;
            *height = desc.Height;
            pixels.resize(desc.Width * desc.Height);
            for (unsigned y = 0; y < desc.Height; ++y)
                for (unsigned x = 0; x < desc.Width; ++x)
                    pixels[y * desc.Width + x] =
                        reinterpret_cast<const uint32_t*>(static_cast<const uint8_t*>(rect.pBits) + y * rect.Pitch)[x] |
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

int ResetTest::EngineResets() const
{
    return GetRoot()->m_nDeviceResetCount - engineResetsAtStart;
}

std::string ResetTest::ResetWarning(HRESULT hr, unsigned width, unsigned height, bool fullScreen)
{
    return "failed to reset a D3D device, " + std::to_string(static_cast<unsigned>(hr)) + ", " +
           DXGetErrorString(hr) + ", " + DXGetErrorDescription(hr) + ", W:" + std::to_string(width) +
           ", H:" + std::to_string(height) + ", FullScreen:" + (fullScreen ? "true" : "false");
}

std::vector<D3DPRESENT_PARAMETERS> ResetTest::ResetParameters(kvproxy::Mark from)
{
    std::vector<D3DPRESENT_PARAMETERS> out;
    for (const KvProxyCall& c : kvproxy::CallsSince(from, kvproxy::Method::Reset))
    {
        D3DPRESENT_PARAMETERS pp = {};
        EXPECT_TRUE(kvproxy::PresentParametersOf(c, &pp));
        out.push_back(pp);
    }
    return out;
}
