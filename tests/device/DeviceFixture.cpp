#include "DeviceFixture.h"

#include "engine/Engine.h"

void DeviceTest::SetUp()
{
    ASSERT_TRUE(kvproxy::Available()) << "this suite must run with the recording d3d9.dll";
    kvproxy::ResetAll();
    kv::SetLogEcho(false);
    kv::ClearLog();
    // Both are the engine's and outlive a render system: every test starts as a process does.
    kv::g_eRenderSystemType = kv::RST_DX9C;
    kv::gMainWindowFormat = kv::PF_X8R8G8B8;
    hWnd = CreateWindowExA(0, "STATIC", "device test", WS_OVERLAPPEDWINDOW, 0, 0, kWidth, kHeight, nullptr, nullptr,
                           GetModuleHandleA(nullptr), nullptr);
    ASSERT_NE(nullptr, hWnd) << "CreateWindowExA failed, error " << GetLastError();
    NewRenderSystem();
}

void DeviceTest::TearDown()
{
    EndRenderSystem();
    kvproxy::ResetAll();
    if (hWnd)
        DestroyWindow(hWnd);
    hWnd = nullptr;
}

void DeviceTest::NewRenderSystem()
{
    EndRenderSystem();
    rs = CreateRenderSystem();
    ASSERT_NE(nullptr, rs);
    d3d = kv::GetD3D9RenderSystem();
}

void DeviceTest::EndRenderSystem()
{
    if (rs)
    {
        rs->Destroy();
        delete rs;
    }
    rs = nullptr;
    d3d = nullptr;
    kv::EngineShutdown();
}

bool DeviceTest::Init(bool vsync, unsigned fsaa)
{
    mark = kvproxy::Here();
    return rs->Init(hWnd, kWidth, kHeight, false, vsync, fsaa);
}

std::vector<KvProxyCall> DeviceTest::CallsBeforeCreateDevice() const
{
    std::vector<KvProxyCall> out;
    for (const KvProxyCall& c : kvproxy::CallsSince(mark))
    {
        if (kvproxy::MethodOf(c) == kvproxy::Method::D3D9_CreateDevice)
            break;
        out.push_back(c);
    }
    return out;
}

std::vector<std::vector<uint32_t>> DeviceTest::FormatQueriesOf(const std::vector<KvProxyCall>& calls)
{
    std::vector<std::vector<uint32_t>> out;
    for (const KvProxyCall& c : calls)
        if (kvproxy::MethodOf(c) == kvproxy::Method::D3D9_CheckDeviceFormat)
            out.push_back({static_cast<uint32_t>(c.args[3]), static_cast<uint32_t>(c.args[4]),
                       static_cast<uint32_t>(c.args[5])});
    return out;
}

D3DPRESENT_PARAMETERS DeviceTest::CreatedWith() const
{
    D3DPRESENT_PARAMETERS pp = {};
    std::vector<KvProxyCall> creates = Calls(kvproxy::Method::D3D9_CreateDevice);
    EXPECT_FALSE(creates.empty()) << "no CreateDevice since Init began";
    if (!creates.empty())
    {
        EXPECT_TRUE(kvproxy::PresentParametersOf(creates.back(), &pp));
    }
    return pp;
}

std::string DeviceTest::FailureLine(const char* prefix, HRESULT hr)
{
    return std::string(prefix) + ":" + std::to_string(static_cast<int>(hr)) + ", " + kv::DXGetErrorString(hr) +
           ", " + kv::DXGetErrorDescription(hr);
}
