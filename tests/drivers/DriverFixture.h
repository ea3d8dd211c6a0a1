#pragma once
// A proxied IDirect3D9 with the proxy back to plain forwarding around each test,
// and the engine's log emptied.
#include "ProxyExpect.h"

#include "engine/Log.h"
#include "engine/RenderSystem.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

class DriverFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(kvproxy::Available()) << "this suite must run with the recording d3d9.dll";
        ASSERT_EQ(nullptr, kv::GetRenderSystem());
        kvproxy::ResetAll();
        kv::ClearLog();
        d3d = Direct3DCreate9(D3D_SDK_VERSION);
        ASSERT_NE(nullptr, d3d);
    }

    void TearDown() override
    {
        kvproxy::ResetAll();
        if (d3d)
            d3d->Release();
        d3d = nullptr;
    }

    static std::vector<std::string> Infos() { return kv::GetLogTexts(kv::LOG_INFO); }

    static D3DDISPLAYMODE Mode(UINT width, UINT height, UINT rate, D3DFORMAT format)
    {
        D3DDISPLAYMODE m;
        m.Width = width;
        m.Height = height;
        m.RefreshRate = rate;
        m.Format = format;
        return m;
    }

    IDirect3D9* d3d = nullptr;
};
