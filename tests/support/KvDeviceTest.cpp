#include "KvDeviceTest.h"

#include "engine/Engine.h"

#include <algorithm>
#include <cstring>

using namespace kv;
using namespace kvtest;

namespace kvtest
{

std::vector<ColourVertex> Quad(float x0, float y0, float x1, float y1, uint32_t colour)
{
    return {{x0, y0, 0.5f, colour}, {x0, y1, 0.5f, colour}, {x1, y1, 0.5f, colour}, {x1, y0, 0.5f, colour}};
}

const std::vector<uint16_t> kQuadIndices = {0, 1, 2, 0, 2, 3};

std::string HrText(HRESULT hr)
{
    return std::to_string(static_cast<int>(hr)) + ", " + DXGetErrorString(hr) + ", " + DXGetErrorDescription(hr);
}

std::string VerifyLine(HRESULT hr, const char* what)
{
    return "D3D9Verify:" + HrText(hr) + (what ? std::string(", ") + what : std::string());
}

size_t CountOf(const std::vector<std::string>& lines, const std::string& text)
{
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), text));
}

ArgList ArgsOf(kvproxy::Mark from, kvproxy::Method m, unsigned n)
{
    ArgList out;
    for (const KvProxyCall& c : kvproxy::CallsSince(from, m))
        out.push_back(std::vector<uint64_t>(c.args, c.args + n));
    return out;
}

std::string Trace(kvproxy::Mark from, std::initializer_list<kvproxy::Method> only, unsigned args)
{
    std::string s;
    for (const KvProxyCall& c : kvproxy::CallsSince(from))
    {
        const kvproxy::Method m = kvproxy::MethodOf(c);
        if (only.size() && std::find(only.begin(), only.end(), m) == only.end())
            continue;
        std::string word = std::string(kvproxy::MethodName(m)) + "(";
        for (uint32_t i = 0; i < c.argCount && i < args; ++i)
            word += (i ? "," : "") + std::to_string(c.args[i]);
        s += (s.empty() ? "" : " ") + word + ")";
    }
    return s;
}

uint32_t Bits(float f)
{
    uint32_t b;
    std::memcpy(&b, &f, sizeof(b));
    return b;
}

} // namespace kvtest

void KvDeviceTest::SetUp()
{
    Open();
    if (!HasFatalFailure())
        Start();
}

void KvDeviceTest::Open(DWORD style, DWORD exStyle)
{
    ASSERT_TRUE(kvproxy::Available()) << "this suite must run with the recording d3d9.dll";
    kvproxy::ResetAll();
    SetLogEcho(false);
    ClearLog();
    g_eRenderSystemType = RST_DX9C;
    gMainWindowFormat = PF_X8R8G8B8;
    g_bInGUIMode = false;
    g_nDepthBufferSizeInBytes = 0;
    GetTimer()->Reset();
    HWND parent = (style & WS_CHILD) ? MakeWindow(200, 200) : nullptr;
    hWnd = MakeWindow(kWidth, kHeight, style, parent, exStyle);
    ASSERT_NE(nullptr, hWnd) << "CreateWindowExA failed, error " << GetLastError();
    NewRenderSystem();
}

bool KvDeviceTest::Init(bool vsync, unsigned fsaa)
{
    mark = kvproxy::Here();
    const bool ok = rs->Init(hWnd, kWidth, kHeight, false, vsync, fsaa);
    device = d3d->m_pD3D9Device;
    return ok;
}

void KvDeviceTest::Start(bool vsync, unsigned fsaa)
{
    ASSERT_TRUE(Init(vsync, fsaa)) << ::testing::PrintToString(Errors());
    ASSERT_NE(nullptr, device);
    GetTimer()->Reset();
    ClearLog();
}

void KvDeviceTest::TearDown()
{
    EndRenderSystem();
    kvproxy::ResetAll();
    g_bInGUIMode = false;
    for (auto w = windows.rbegin(); w != windows.rend(); ++w)
        DestroyWindow(*w);
    windows.clear();
    hWnd = nullptr;
}

void KvDeviceTest::NewRenderSystem()
{
    EndRenderSystem();
    rs = CreateRenderSystem();
    ASSERT_NE(nullptr, rs);
    d3d = GetD3D9RenderSystem();
}

void KvDeviceTest::EndRenderSystem()
{
    if (rs)
    {
        rs->Destroy();
        delete rs;
    }
    rs = nullptr;
    d3d = nullptr;
    device = nullptr;
    EngineShutdown();
}

HWND KvDeviceTest::MakeWindow(unsigned width, unsigned height, DWORD style, HWND parent, DWORD exStyle)
{
    RECT rect = {0, 0, static_cast<LONG>(width), static_cast<LONG>(height)};
    AdjustWindowRectEx(&rect, style, FALSE, exStyle);
    HWND w = CreateWindowExA(exStyle, "STATIC", "kv test", style, 0, 0, rect.right - rect.left, rect.bottom - rect.top,
                             parent, nullptr, GetModuleHandleA(nullptr), nullptr);
    if (w)
        windows.push_back(w);
    return w;
}

std::string KvDeviceTest::Describe(const D3DPRESENT_PARAMETERS& pp) const
{
    return Call("", pp.BackBufferWidth, pp.BackBufferHeight, pp.BackBufferFormat, pp.BackBufferCount,
                pp.MultiSampleType, pp.MultiSampleQuality, pp.SwapEffect, pp.Windowed, pp.EnableAutoDepthStencil,
                pp.AutoDepthStencilFormat, pp.Flags, pp.FullScreen_RefreshRateInHz, pp.PresentationInterval,
                pp.hDeviceWindow == hWnd);
}

std::string KvDeviceTest::PresentedBy(kvproxy::Method m) const
{
    D3DPRESENT_PARAMETERS pp = {};
    const std::vector<KvProxyCall> calls = Calls(m);
    EXPECT_TRUE(!calls.empty() && kvproxy::PresentParametersOf(calls.back(), &pp)) << "no " << kvproxy::MethodName(m);
    return Describe(pp);
}

std::vector<uint32_t> KvDeviceTest::ReadPixels(IDirect3DSurface9* surface, unsigned* width)
{
    std::vector<uint32_t> pixels;
    D3DSURFACE_DESC desc = {};
    IDirect3DSurface9* copy = nullptr;
    D3DLOCKED_RECT locked;
    if (surface && SUCCEEDED(surface->GetDesc(&desc)) &&
        SUCCEEDED(device->CreateOffscreenPlainSurface(desc.Width, desc.Height, desc.Format, D3DPOOL_SYSTEMMEM, &copy,
                                                      nullptr)) &&
        SUCCEEDED(device->GetRenderTargetData(surface, copy)) &&
        SUCCEEDED(copy->LockRect(&locked, nullptr, D3DLOCK_READONLY)))
    {
        for (unsigned y = 0; y < desc.Height; ++y)
            for (unsigned x = 0; x < desc.Width; ++x)
                pixels.push_back(static_cast<const uint32_t*>(locked.pBits)[y * (locked.Pitch / 4) + x] | 0xFF000000u);
        copy->UnlockRect();
    }
    if (copy)
        copy->Release();
    EXPECT_FALSE(pixels.empty()) << "the surface could not be read";
    if (width)
        *width = desc.Width;
    return pixels;
}

std::vector<uint32_t> KvDeviceTest::ReadBackBuffer(unsigned* width)
{
    IDirect3DSurface9* target = nullptr;
    EXPECT_EQ(D3D_OK, device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &target));
    std::vector<uint32_t> pixels = ReadPixels(target, width);
    if (target)
        target->Release();
    return pixels;
}

ref_ptr<CVertexDeclaration> KvDeviceTest::ColourDeclaration()
{
    const VertexElement elements[] = {VertexElement(0, 0, VET_FLOAT3, VES_POSITION),
                                      VertexElement(0, 12, VET_COLOUR, VES_COLOUR)};
    return rs->CreateVertexDeclaration(elements, 2);
}

ref_ptr<CHardwareVertexBuffer> KvDeviceTest::VertexBuffer(const std::vector<ColourVertex>& vertices, unsigned usage)
{
    return rs->CreateHardwareVertexBuffer(sizeof(ColourVertex), static_cast<unsigned>(vertices.size()),
                                          static_cast<CHardwareBuffer::Usage>(usage), vertices.data());
}

ref_ptr<CHardwareIndexBuffer> KvDeviceTest::IndexBuffer16(const std::vector<uint16_t>& indices, unsigned usage)
{
    return rs->CreateHardwareIndexBuffer(CHardwareIndexBuffer::IT_16BIT, static_cast<unsigned>(indices.size()),
                                         static_cast<CHardwareBuffer::Usage>(usage), indices.data());
}

ref_ptr<CVertexData> KvDeviceTest::VertexData(CVertexDeclaration* declaration, CHardwareVertexBuffer* buffer,
                                              unsigned start, unsigned count)
{
    ref_ptr<CVertexData> d = rs->CreateVertexData();
    d->m_pDeclaration = declaration;
    d->m_pBuffer = buffer;
    d->m_nVertexStart = start;
    d->m_nVertexCount = count;
    return d;
}

ref_ptr<CIndexData> KvDeviceTest::IndexData(CHardwareIndexBuffer* buffer, unsigned start, unsigned count)
{
    ref_ptr<CIndexData> data = rs->CreateIndexData();
    data->m_pBuffer = buffer;
    data->m_nIndexStart = start;
    data->m_nIndexCount = count;
    return data;
}

void KvDeviceTest::FixedFunctionColour()
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

void KvDeviceTest::BeginClearedFrame()
{
    ASSERT_TRUE(rs->_beginFrame());
    ASSERT_EQ(D3D_OK, device->Clear(0, nullptr, D3DCLEAR_TARGET, kClear, 1.0f, 0));
}
