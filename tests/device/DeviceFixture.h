// A render system started on a real window of Wine's Direct3D 9, loaded through
// the recording d3d9.dll: each test sets its refusals and capability overrides,
// then runs Init and reads what the device and the log saw.
#pragma once

#include "D3D9RenderSystem.h"
#include "D3D9RenderWindow.h"

#include "engine/DeviceCapabilities.h"
#include "engine/Globals.h"
#include "engine/Log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProxyExpect.h"

class DeviceTest : public ::testing::Test
{
protected:
    static constexpr unsigned kWidth = 320;
    static constexpr unsigned kHeight = 240;

    void SetUp() override;
    void TearDown() override;

    // A fresh render system (the previous one ended first).
    void NewRenderSystem();
    void EndRenderSystem();
    // Init on the test window, windowed; the trace mark is set just before.
    bool Init(bool vsync = false, unsigned fsaa = 0);

    // The calls of one method since Init began.
    std::vector<KvProxyCall> Calls(kvproxy::Method m) const { return kvproxy::CallsSince(mark, m); }
    // The calls of IDirect3D9 since Init began, up to the first CreateDevice:
    // what the choice of the present parameters asked.
    std::vector<KvProxyCall> CallsBeforeCreateDevice() const;
  public:
    // The CheckDeviceFormat questions among these calls, as (usage, resource type, format).
    static std::vector<std::vector<uint32_t>> FormatQueriesOf(const std::vector<KvProxyCall>& calls);

  protected:
    // The present parameters of the last CreateDevice since Init began.
    D3DPRESENT_PARAMETERS CreatedWith() const;

    static std::vector<std::string> Texts(kv::LogLevel level) { return kv::GetLogTexts(level); }
    // "<prefix>:<hr>, <name>, <description>", the shape of every start-up failure.
    static std::string FailureLine(const char* prefix, HRESULT hr);

    kv::CDeviceCapabilities& Caps() { return *rs->m_pCapabilities; }

    HWND hWnd = nullptr;
    kv::CRenderSystem* rs = nullptr;
    kv::CD3D9RenderSystem* d3d = nullptr;
    kvproxy::Mark mark{0};
};
