// A proxied IDirect3D9 and a small windowed device for each test, with the proxy
// put back to plain forwarding before and after.
#pragma once

#include <gtest/gtest.h>

#include <cstring>

#include "ProxyExpect.h"
#include "TriangleScene.h"

class ProxyFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(kvproxy::Available()) << "this suite must run with the recording d3d9.dll";
        kvproxy::ResetAll();
        d3d = Direct3DCreate9(D3D_SDK_VERSION);
        ASSERT_NE(d3d, nullptr);
    }

    void TearDown() override
    {
        kvproxy::ResetAll();
        if (device)
            device->Release();
        if (d3d)
            d3d->Release();
        device = nullptr;
        d3d = nullptr;
    }

    D3DPRESENT_PARAMETERS Params(UINT width = 64, UINT height = 64) const
    {
        D3DPRESENT_PARAMETERS pp;
        std::memset(&pp, 0, sizeof pp);
        pp.BackBufferWidth = width;
        pp.BackBufferHeight = height;
        pp.BackBufferFormat = D3DFMT_X8R8G8B8;
        pp.BackBufferCount = 1;
        pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
        pp.hDeviceWindow = scene::TestWindow();
        pp.Windowed = TRUE;
        pp.EnableAutoDepthStencil = TRUE;
        pp.AutoDepthStencilFormat = D3DFMT_D24S8;
        pp.PresentationInterval = D3DPRESENT_INTERVAL_IMMEDIATE;
        return pp;
    }

    HRESULT MakeDevice()
    {
        D3DPRESENT_PARAMETERS pp = Params();
        return d3d->CreateDevice(0, D3DDEVTYPE_HAL, pp.hDeviceWindow, D3DCREATE_HARDWARE_VERTEXPROCESSING, &pp,
                                 &device);
    }

    IDirect3D9* d3d = nullptr;
    IDirect3DDevice9* device = nullptr;
};
