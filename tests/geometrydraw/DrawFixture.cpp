#include "DrawFixture.h"

#include "engine/Engine.h"

#include <algorithm>

using namespace kv;

void DrawTest::SetUp()
{
    ASSERT_TRUE(kvproxy::Available()) << "this suite must run with the recording d3d9.dll";
    kvproxy::ResetAll();
    SetLogEcho(false);
    ClearLog();
    g_eRenderSystemType = RST_DX9C;
    gMainWindowFormat = PF_X8R8G8B8;
    g_bInGUIMode = false;
    hWnd = CreateWindowExA(0, "STATIC", "draw test", WS_OVERLAPPEDWINDOW, 0, 0, kWidth, kHeight, nullptr, nullptr,
                           GetModuleHandleA(nullptr), nullptr);
    ASSERT_NE(nullptr, hWnd);
    rs = CreateRenderSystem();
    ASSERT_NE(nullptr, rs);
    d3d = GetD3D9RenderSystem();
    ASSERT_TRUE(rs->Init(hWnd, kWidth, kHeight, false, false, 0)) << ::testing::PrintToString(Errors());
    device = d3d->m_pD3D9Device;
    ASSERT_NE(nullptr, device);
    GetTimer()->Reset();
    ClearLog();
}

void DrawTest::TearDown()
{
    g_bInGUIMode = false;
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
    hWnd = nullptr;
}

ref_ptr<CVertexDeclaration> DrawTest::ColourDeclaration()
{
    const VertexElement elements[] = {VertexElement(0, 0, VET_FLOAT3, VES_POSITION),
                                      VertexElement(0, 12, VET_COLOUR, VES_COLOUR)};
    return rs->CreateVertexDeclaration(elements, 2);
}

ref_ptr<CHardwareVertexBuffer> DrawTest::VertexBuffer(const std::vector<ColourVertex>& vertices, unsigned usage)
{
    return rs->CreateHardwareVertexBuffer(sizeof(ColourVertex), static_cast<unsigned>(vertices.size()),
                                          static_cast<CHardwareBuffer::Usage>(usage), vertices.data());
}

ref_ptr<CHardwareIndexBuffer> DrawTest::IndexBuffer16(const std::vector<uint16_t>& indices, unsigned usage)
{
    return rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, static_cast<unsigned>(indices.size()),
                                         static_cast<CHardwareBuffer::Usage>(usage), indices.data());
}

ref_ptr<CVertexData> DrawTest::VertexData(CVertexDeclaration* declaration, CHardwareVertexBuffer* buffer,
                                          unsigned start, unsigned count)
{
    ref_ptr<CVertexData> data = rs->CreateVertexData();
    data->m_pDeclaration = declaration;
    data->m_pBuffer = buffer;
    data->m_nVertexStart = start;
    data->m_nVertexCount = count;
    return data;
}

ref_ptr<CIndexData> DrawTest::IndexData(CHardwareIndexBuffer* buffer, unsigned start, unsigned count)
{
    ref_ptr<CIndexData> data = rs->CreateIndexData();
    data->m_pBuffer = buffer;
    data->m_nIndexStart = start;
    data->m_nIndexCount = count;
    return data;
}

bool DrawTest::Logged(const std::string& text)
{
    std::vector<std::string> errors = Errors();
    return std::find(errors.begin(), errors.end(), text) != errors.end();
}

std::string DrawTest::VerifyLine(HRESULT hr, const char* what)
{
    return "D3D9Verify:" + std::to_string(static_cast<int>(hr)) + ", " + DXGetErrorString(hr) + ", " +
           DXGetErrorDescription(hr) + ", " + what;
}
