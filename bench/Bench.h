#pragma once
// What the benchmark programs share: the median of their repetitions and, on Windows,
// a render system started the way the engine starts it, on a small window of its own.

#include <algorithm>
#include <cstdio>
#include <vector>

#ifdef _WIN32
#include <windows.h>

#include "engine/Engine.h"
#include "engine/RenderSystem.h"
#endif

namespace kvbench
{

// Repetitions alternate with the other ways measured, so the median of each way's own
// repetitions leaves out the rounds a busy machine spoilt.
inline double Median(std::vector<double> v)
{
    if (v.empty())
        return 0.0;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

#ifdef _WIN32
// A render system on a 64x64 window of its own, as the engine starts one.
struct Host
{
    HWND window = nullptr;
    kv::CRenderSystem* rs = nullptr;
};

// False, with a line saying so, when there is no window or no Direct3D 9 device.
inline bool StartRenderSystem(const char* bench, Host& host)
{
    host.window = CreateWindowExA(0, "STATIC", bench, WS_OVERLAPPEDWINDOW, 0, 0, 64, 64, nullptr, nullptr,
                                  GetModuleHandleA(nullptr), nullptr);
    host.rs = CreateRenderSystem();
    if (!host.window || !host.rs || !host.rs->Init(host.window, 64, 64, false, false, 0))
    {
        std::printf("%s: no window or no Direct3D 9 device\n", bench);
        return false;
    }
    return true;
}

// The render system goes before the engine, the window last.
inline void StopRenderSystem(Host& host)
{
    host.rs->Destroy();
    delete host.rs;
    kv::EngineShutdown();
    DestroyWindow(host.window);
}
#endif

} // namespace kvbench
