// The proxy forwards without changing what is drawn, and records what it forwards.
#include "ProxyFixture.h"

#include <string>
#include <vector>

using kvproxy::Method;

namespace
{

std::string ModuleFolder(HMODULE m)
{
    char path[MAX_PATH];
    DWORD n = GetModuleFileNameA(m, path, MAX_PATH);
    std::string s(path, n);
    return s.substr(0, s.find_last_of("\\/") + 1);
}

} // namespace

TEST(ProxyLoading, TheD3D9OfThisProcessIsTheProxyBesideTheProgram)
{
    ASSERT_TRUE(kvproxy::Available());
    HMODULE proxy = kvproxy::ProxyModule();
    ASSERT_NE(proxy, nullptr);
    EXPECT_EQ(ModuleFolder(proxy), ModuleFolder(GetModuleHandleA(nullptr)));
    // The program's own Direct3DCreate9 hands out an object whose methods live in the proxy.
    IDirect3D9* d3d = Direct3DCreate9(D3D_SDK_VERSION);
    ASSERT_NE(d3d, nullptr);
    HMODULE owner = nullptr;
    ASSERT_TRUE(
        GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           *reinterpret_cast<LPCSTR*>(d3d), &owner));
    d3d->Release();
    EXPECT_EQ(owner, proxy);
}

TEST_F(ProxyFixture, TriangleReadsBackTheSamePixelsAsTheRealD3D9)
{
    kvproxy::ClearTrace();
    std::vector<uint32_t> viaProxy;
    std::string error;
    ASSERT_TRUE(scene::Draw(d3d, &viaProxy, &error)) << error;
    EXPECT_EQ(scene::KnownPixelMismatches(viaProxy), "");

    // The draws went through the wrapper, with their arguments.
    std::vector<KvProxyCall> draws = kvproxy::CallsSince(kvproxy::Mark{0}, Method::DrawPrimitiveUP);
    ASSERT_EQ(draws.size(), 2u);
    EXPECT_EQ(draws[0].args[0], static_cast<uint64_t>(D3DPT_TRIANGLELIST));
    EXPECT_EQ(draws[0].args[1], 1u);
    EXPECT_EQ(draws[0].args[3], 20u); // stride of XYZRHW + DIFFUSE
    std::vector<KvProxyCall> clears = kvproxy::CallsSince(kvproxy::Mark{0}, Method::Clear);
    ASSERT_EQ(clears.size(), 1u);
    EXPECT_EQ(clears[0].args[2], static_cast<uint64_t>(D3DCLEAR_TARGET));
    EXPECT_EQ(clears[0].args[3], 0xFF000000u | scene::kClearColour);
    EXPECT_FLOAT_EQ(kvproxy::ArgFloat(clears[0], 4), 1.0f);

    // The same scene straight through the system's d3d9.dll.
    char dir[MAX_PATH];
    UINT n = GetSystemDirectoryA(dir, MAX_PATH);
    ASSERT_GT(n, 0u);
    HMODULE real = LoadLibraryA((std::string(dir, n) + "\\d3d9.dll").c_str());
    ASSERT_NE(real, nullptr);
    ASSERT_NE(real, kvproxy::ProxyModule());
    ASSERT_EQ(GetProcAddress(real, "KvProxy_Abi"), nullptr);
    auto create =
        reinterpret_cast<IDirect3D9*(WINAPI*)(UINT)>(reinterpret_cast<void*>(GetProcAddress(real, "Direct3DCreate9")));
    ASSERT_NE(create, nullptr);
    const uint32_t countBefore = kvproxy::CallCount(Method::DrawPrimitiveUP);
    IDirect3D9* direct = create(D3D_SDK_VERSION);
    ASSERT_NE(direct, nullptr);
    std::vector<uint32_t> viaReal;
    const bool drawn = scene::Draw(direct, &viaReal, &error);
    direct->Release();
    ASSERT_TRUE(drawn) << error;
    EXPECT_EQ(kvproxy::CallCount(Method::DrawPrimitiveUP), countBefore) << "the direct run went through the proxy";
    EXPECT_EQ(scene::KnownPixelMismatches(viaReal), "");

    size_t differing = 0;
    for (size_t i = 0; i < viaReal.size(); ++i)
        differing += viaReal[i] != viaProxy[i];
    EXPECT_EQ(differing, 0u);
}

TEST_F(ProxyFixture, CountersCountAndClear)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    kvproxy::ClearCounts();
    for (int i = 0; i < 3; ++i)
        device->SetRenderState(D3DRS_ZENABLE, i & 1);
    device->SetSamplerState(0, D3DSAMP_MAGFILTER, D3DTEXF_LINEAR);
    EXPECT_EQ(kvproxy::CallCount(Method::SetRenderState), 3u);
    EXPECT_EQ(kvproxy::CallCount(Method::SetSamplerState), 1u);
    EXPECT_EQ(kvproxy::CallCount(Method::SetTexture), 0u);
    kvproxy::ClearCounts();
    EXPECT_EQ(kvproxy::CallCount(Method::SetRenderState), 0u);
    device->SetRenderState(D3DRS_ZENABLE, 1);
    EXPECT_EQ(kvproxy::CallCount(Method::SetRenderState), 1u);
}

TEST_F(ProxyFixture, CreateDeviceAndResetRecordTheirPresentParameters)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    std::vector<KvProxyCall> creates = kvproxy::CallsSince(kvproxy::Mark{0}, Method::D3D9_CreateDevice);
    ASSERT_EQ(creates.size(), 1u);
    EXPECT_EQ(creates[0].args[3], static_cast<uint64_t>(D3DCREATE_HARDWARE_VERTEXPROCESSING));
    EXPECT_EQ(creates[0].out, kvproxy::PtrArg(device));
    D3DPRESENT_PARAMETERS seen;
    ASSERT_TRUE(kvproxy::PresentParametersOf(creates[0], &seen));
    EXPECT_EQ(seen.BackBufferWidth, 64u);
    EXPECT_EQ(seen.AutoDepthStencilFormat, D3DFMT_D24S8);
    EXPECT_EQ(seen.PresentationInterval, D3DPRESENT_INTERVAL_IMMEDIATE);

    kvproxy::Mark mark = kvproxy::Here();
    D3DPRESENT_PARAMETERS pp = Params(96, 48);
    pp.BackBufferCount = 2;
    ASSERT_EQ(device->Reset(&pp), D3D_OK);
    std::vector<KvProxyCall> resets = kvproxy::CallsSince(mark, Method::Reset);
    ASSERT_EQ(resets.size(), 1u);
    ASSERT_TRUE(kvproxy::PresentParametersOf(resets[0], &seen));
    EXPECT_EQ(seen.BackBufferWidth, 96u);
    EXPECT_EQ(seen.BackBufferHeight, 48u);
    EXPECT_EQ(seen.BackBufferCount, 2u);
    EXPECT_EQ(resets[0].result, D3D_OK);
}

TEST_F(ProxyFixture, TraceHoldsTheArgumentsOfStateAndBindingCalls)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    IDirect3DTexture9* texture = nullptr;
    IDirect3DVertexBuffer9* vb = nullptr;
    ASSERT_EQ(device->CreateTexture(8, 8, 1, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, &texture, nullptr), D3D_OK);
    ASSERT_EQ(device->CreateVertexBuffer(256, 0, 0, D3DPOOL_MANAGED, &vb, nullptr), D3D_OK);
    kvproxy::ClearTrace();

    device->SetRenderState(D3DRS_CULLMODE, D3DCULL_CW);
    device->SetSamplerState(3, D3DSAMP_ADDRESSU, D3DTADDRESS_CLAMP);
    device->SetTexture(2, texture);
    device->SetStreamSource(1, vb, 16, 32);
    const float constants[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    device->SetVertexShaderConstantF(10, constants, 2);
    device->SetPixelShaderConstantF(4, constants + 4, 1);
    D3DVIEWPORT9 vp = {1, 2, 30, 40, 0.25f, 0.75f};
    device->SetViewport(&vp);
    RECT scissor = {3, 4, 50, 60};
    device->SetScissorRect(&scissor);
    device->DrawIndexedPrimitive(D3DPT_TRIANGLESTRIP, 5, 0, 7, 9, 2);
    D3DPERF_BeginEvent(0x01000100, L"frame");
    D3DPERF_EndEvent();

    const KvProxyCall* c = kvproxy::TraceAt(0);
    ASSERT_NE(c, nullptr);
    ASSERT_EQ(kvproxy::TraceSize(), 11u);
    EXPECT_EQ(kvproxy::MethodOf(c[0]), Method::SetRenderState);
    EXPECT_EQ(c[0].args[0], static_cast<uint64_t>(D3DRS_CULLMODE));
    EXPECT_EQ(c[0].args[1], static_cast<uint64_t>(D3DCULL_CW));
    EXPECT_EQ(kvproxy::MethodOf(c[1]), Method::SetSamplerState);
    EXPECT_EQ(c[1].args[0], 3u);
    EXPECT_EQ(c[1].args[1], static_cast<uint64_t>(D3DSAMP_ADDRESSU));
    EXPECT_EQ(c[1].args[2], static_cast<uint64_t>(D3DTADDRESS_CLAMP));
    EXPECT_EQ(kvproxy::MethodOf(c[2]), Method::SetTexture);
    EXPECT_EQ(c[2].args[0], 2u);
    EXPECT_EQ(c[2].args[1], kvproxy::PtrArg(texture));
    EXPECT_EQ(kvproxy::MethodOf(c[3]), Method::SetStreamSource);
    EXPECT_EQ(c[3].args[0], 1u);
    EXPECT_EQ(c[3].args[1], kvproxy::PtrArg(vb));
    EXPECT_EQ(c[3].args[2], 16u);
    EXPECT_EQ(c[3].args[3], 32u);
    EXPECT_EQ(kvproxy::MethodOf(c[4]), Method::SetVertexShaderConstantF);
    EXPECT_EQ(c[4].args[0], 10u);
    EXPECT_EQ(c[4].args[2], 2u);
    ASSERT_NE(kvproxy::FloatsOf(c[4]), nullptr);
    EXPECT_EQ(kvproxy::FloatsOf(c[4])[7], 8.0f);
    EXPECT_EQ(kvproxy::MethodOf(c[5]), Method::SetPixelShaderConstantF);
    ASSERT_NE(kvproxy::FloatsOf(c[5]), nullptr);
    EXPECT_EQ(kvproxy::FloatsOf(c[5])[0], 5.0f);
    EXPECT_EQ(kvproxy::MethodOf(c[6]), Method::SetViewport);
    EXPECT_EQ(c[6].args[0], 1u);
    EXPECT_EQ(c[6].args[1], 2u);
    EXPECT_EQ(c[6].args[2], 30u);
    EXPECT_EQ(c[6].args[3], 40u);
    EXPECT_FLOAT_EQ(kvproxy::ArgFloat(c[6], 4), 0.25f);
    EXPECT_FLOAT_EQ(kvproxy::ArgFloat(c[6], 5), 0.75f);
    EXPECT_EQ(kvproxy::MethodOf(c[7]), Method::SetScissorRect);
    EXPECT_EQ(c[7].args[2], 50u);
    EXPECT_EQ(c[7].args[3], 60u);
    EXPECT_EQ(kvproxy::MethodOf(c[8]), Method::DrawIndexedPrimitive);
    EXPECT_EQ(c[8].args[1], 5u);
    EXPECT_EQ(c[8].args[3], 7u);
    EXPECT_EQ(c[8].args[4], 9u);
    EXPECT_EQ(c[8].args[5], 2u);
    EXPECT_EQ(kvproxy::MethodOf(c[9]), Method::D3DPERF_BeginEvent);
    EXPECT_EQ(c[9].args[0], 0x01000100u);
    EXPECT_EQ(kvproxy::TextOf(c[9]), L"frame");
    EXPECT_EQ(kvproxy::MethodOf(c[10]), Method::D3DPERF_EndEvent);

    vb->Release();
    texture->Release();
}

TEST_F(ProxyFixture, RecordingOffStillCountsButTracesNothing)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    kvproxy::ClearTrace();
    kvproxy::ClearCounts();
    kvproxy::SetRecording(false);
    device->SetRenderState(D3DRS_ZENABLE, 1);
    kvproxy::SetRecording(true);
    EXPECT_EQ(kvproxy::TraceSize(), 0u);
    EXPECT_EQ(kvproxy::CallCount(Method::SetRenderState), 1u);
}

TEST_F(ProxyFixture, GetDirect3DHandsBackTheWrapper)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    IDirect3D9* parent = nullptr;
    ASSERT_EQ(device->GetDirect3D(&parent), D3D_OK);
    EXPECT_EQ(parent, d3d);
    kvproxy::Mark mark = kvproxy::Here();
    EXPECT_GT(parent->GetAdapterCount(), 0u);
    EXPECT_EQ(kvproxy::CountSince(mark, Method::D3D9_GetAdapterCount), 1u);
    parent->Release();

    // The device's own interface query stays on the wrapper as well.
    IDirect3DDevice9* again = nullptr;
    ASSERT_EQ(device->QueryInterface(IID_IDirect3DDevice9, reinterpret_cast<void**>(&again)), S_OK);
    EXPECT_EQ(again, device);
    again->Release();
}

TEST_F(ProxyFixture, ReleaseAnswersTheRealReferenceCount)
{
    ASSERT_EQ(MakeDevice(), D3D_OK);
    EXPECT_EQ(device->AddRef(), 2u);
    EXPECT_EQ(device->Release(), 1u);
    EXPECT_EQ(device->Release(), 0u);
    device = nullptr;
}
