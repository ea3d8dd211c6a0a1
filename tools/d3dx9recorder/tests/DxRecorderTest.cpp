// The recorder on Wine's Direct3D 9: recorded calls carry their numbers and
// results, injected failures answer without reaching D3DX, and an export it
// does not record still reaches the real function.
#include <d3dx9.h>
#include <windows.h>

#include <gtest/gtest.h>

#include "DxRecorder.h"

using kvdx::Fn;

namespace
{

class DxRecorderTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(kvdx::Available()) << "the recording d3dx9_43.dll is not loaded";
        kvdx::Reset();
        window = CreateWindowA("STATIC", "dx", WS_OVERLAPPEDWINDOW, 0, 0, 64, 64, nullptr, nullptr, nullptr, nullptr);
        d3d = Direct3DCreate9(D3D_SDK_VERSION);
        ASSERT_NE(d3d, nullptr);
        D3DPRESENT_PARAMETERS pp = {};
        pp.Windowed = TRUE;
        pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
        pp.hDeviceWindow = window;
        ASSERT_EQ(d3d->CreateDevice(0, D3DDEVTYPE_HAL, window, D3DCREATE_SOFTWARE_VERTEXPROCESSING, &pp, &device),
                  D3D_OK);
    }
    void TearDown() override
    {
        if (device)
            device->Release();
        if (d3d)
            d3d->Release();
        DestroyWindow(window);
    }

    HWND window = nullptr;
    IDirect3D9* d3d = nullptr;
    IDirect3DDevice9* device = nullptr;
};

TEST_F(DxRecorderTest, RecordsArgumentsAndResultsInOrder)
{
    IDirect3DTexture9* texture = nullptr;
    ASSERT_EQ(D3DXCreateTexture(device, 8, 4, 2, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, &texture), D3D_OK);
    D3DFORMAT format = D3DFMT_X8R8G8B8;
    EXPECT_EQ(D3DXCheckTextureRequirements(device, nullptr, nullptr, nullptr, 0, &format, D3DPOOL_MANAGED), D3D_OK);
    // Wine saves no TGA texture: the format asked for is still on record.
    EXPECT_EQ(D3DXSaveTextureToFileA("out.tga", D3DXIFF_TGA, texture, nullptr), E_NOTIMPL);
    texture->Release();

    std::vector<KvDxCall> calls = kvdx::Calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].fn, static_cast<uint32_t>(Fn::CreateTexture));
    EXPECT_EQ(std::vector<uint64_t>(calls[0].args, calls[0].args + calls[0].argCount),
              (std::vector<uint64_t>{8, 4, 2, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED}));
    EXPECT_EQ(calls[1].args[0], 0u); // the width pointer was null
    EXPECT_EQ(calls[1].args[4], static_cast<uint64_t>(D3DFMT_X8R8G8B8));
    EXPECT_EQ(calls[2].args[0], static_cast<uint64_t>(D3DXIFF_TGA));
    EXPECT_STREQ(calls[2].path, "out.tga");
    EXPECT_EQ(calls[2].result, E_NOTIMPL);
    EXPECT_EQ(calls[2].faulted, 0u);
}

TEST_F(DxRecorderTest, InjectedFailureAnswersWithoutD3DX)
{
    kvdx::Fail(Fn::CreateTexture, E_OUTOFMEMORY, 1);
    IDirect3DTexture9* texture = reinterpret_cast<IDirect3DTexture9*>(1);
    EXPECT_EQ(D3DXCreateTexture(device, 8, 8, 1, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, &texture), E_OUTOFMEMORY);
    EXPECT_EQ(texture, nullptr);
    // One time only: the next call is real again.
    ASSERT_EQ(D3DXCreateTexture(device, 8, 8, 1, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, &texture), D3D_OK);
    texture->Release();
    std::vector<KvDxCall> calls = kvdx::Calls(Fn::CreateTexture);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].faulted, 1u);
    EXPECT_EQ(calls[1].faulted, 0u);
}

TEST_F(DxRecorderTest, UnrecordedExportsReachTheRealFunctions)
{
    D3DXVECTOR3 v(3.0f, 0.0f, 4.0f), n;
    ASSERT_EQ(D3DXVec3Normalize(&n, &v), &n);
    EXPECT_FLOAT_EQ(n.x, 0.6f);
    EXPECT_FLOAT_EQ(n.z, 0.8f);
    ID3DXBuffer* code = nullptr;
    const char source[] = "ps_2_0\nmov oC0, c0\n";
    EXPECT_EQ(D3DXAssembleShader(source, sizeof source - 1, nullptr, nullptr, 0, &code, nullptr), D3D_OK);
    ASSERT_NE(code, nullptr);
    code->Release();
    EXPECT_TRUE(kvdx::Calls().empty());
}

} // namespace
