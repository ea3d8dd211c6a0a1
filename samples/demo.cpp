// A small host that does what the engine does at start: it loads
// D3D9RenderSystem.dll, asks it for its render system through the one export,
// opens a real window and runs Init. Then it prints what happened, the log
// included, and writes the log to out/demo-log.txt when out/ exists.
#include "engine/DeviceCapabilities.h"
#include "engine/Engine.h"
#include "engine/Globals.h"
#include "engine/Log.h"
#include "engine/RenderSystem.h"

#include <windows.h>

#include <cstdio>
#include <string>

namespace
{

LRESULT CALLBACK WindowProc(HWND hWnd, UINT msg, WPARAM wParam, LPARAM lParam)
{
    if (msg == WM_CLOSE)
    {
        DestroyWindow(hWnd);
        return 0;
    }
    return DefWindowProcA(hWnd, msg, wParam, lParam);
}

HWND MakeWindow(unsigned width, unsigned height)
{
    WNDCLASSA wc = {};
    wc.lpfnWndProc = WindowProc;
    wc.hInstance = GetModuleHandleA(nullptr);
    wc.hCursor = LoadCursorA(nullptr, reinterpret_cast<LPCSTR>(IDC_ARROW));
    wc.lpszClassName = "KorvoDemoWindow";
    if (!RegisterClassA(&wc))
        return nullptr;
    RECT rect = {0, 0, static_cast<LONG>(width), static_cast<LONG>(height)};
    AdjustWindowRect(&rect, WS_OVERLAPPEDWINDOW, FALSE);
    HWND hWnd = CreateWindowExA(0, wc.lpszClassName, "KorvoEngine D3D9 demo", WS_OVERLAPPEDWINDOW, CW_USEDEFAULT,
                                CW_USEDEFAULT, rect.right - rect.left, rect.bottom - rect.top, nullptr, nullptr,
                                wc.hInstance, nullptr);
    if (hWnd)
        ShowWindow(hWnd, SW_SHOW);
    return hWnd;
}

void PumpMessages()
{
    MSG msg;
    while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE))
    {
        TranslateMessage(&msg);
        DispatchMessageA(&msg);
    }
}

const char* LevelName(kv::LogLevel level)
{
    switch (level)
    {
    case kv::LOG_ERROR:
        return "error";
    case kv::LOG_WARNING:
        return "warning";
    default:
        return "info";
    }
}

void ReportLog(FILE* out)
{
    for (const kv::LogLine& line : kv::GetLogLines())
    {
        if (line.level == kv::LOG_ERROR)
            std::fprintf(out, "  [%s] %s(%d): %s\n", LevelName(line.level), line.file.c_str(), line.line,
                         line.text.c_str());
        else
            std::fprintf(out, "  [%s] %s\n", LevelName(line.level), line.text.c_str());
    }
}

// What the engine learnt of the device, and the shader mode the plug-in chose.
void ReportCapabilities(const kv::CDeviceCapabilities& caps)
{
    std::printf("demo: adapter \"%s\", vendor %d, driver %u.%u.%u.%u\n", caps.getDeviceName().c_str(),
                static_cast<int>(caps.m_eVendor), caps.m_nDriverProduct, caps.m_nDriverVersion,
                caps.m_nDriverSubVersion, caps.m_nDriverBuild);
    std::printf("demo: mode %s (shader model %d)\n", caps.getRenderSystemName().c_str(),
                kv::g_eRenderSystemType == kv::RST_DX9C ? 3 : 2);
    std::printf("demo: max texture %u, render targets %u, max point size %g, vertex texture fetch %s\n",
                caps.m_nMaxTextureSize[0], static_cast<unsigned>(caps.m_nNumMultiRenderTargets),
                static_cast<double>(caps.m_fMaxPointSize), caps.m_bVertexTextureFetch ? "yes" : "no");
    std::printf("demo: float textures %s, non-power-of-two %s, INTZ %s, hardware PCF %s, D16 %s, null target %s, "
                "ATI2 %s\n",
                caps.m_bFloatTexture ? "yes" : "no", caps.m_bNonPowerOfTwoTexture ? "yes" : "no",
                caps.m_bDepthTextureINTZ ? "yes" : "no", caps.GetHardwarePCFSupported() ? "yes" : "no",
                caps.m_bDepthTextureD16 ? "yes" : "no", caps.m_bNullRenderTarget ? "yes" : "no",
                caps.m_bATI2Texture ? "yes" : "no");
    std::printf("demo: float32/16 targets %s/%s, shadow formats depth %u colour %u, sRGB %s, mip bias %s, "
                "timer queries %s, SSE2 %s\n",
                caps.m_bFloat32RenderTarget ? "yes" : "no", caps.m_bFloat16RenderTarget ? "yes" : "no",
                static_cast<unsigned>(caps.m_eShadowDepthFormat), static_cast<unsigned>(caps.m_eShadowColourFormat),
                caps.GetSRGBReadWrite() ? "yes" : "no", caps.GetMipBiasSupported() ? "yes" : "no",
                caps.m_bTimerQuery ? "yes" : "no", caps.m_bSSE2 ? "yes" : "no");
}

} // namespace

int main()
{
    const unsigned width = 640, height = 480;
    // The demo prints the log itself, in order, at the end.
    kv::SetLogEcho(false);
    kv::EngineInit();

    HMODULE plugin = LoadLibraryA("D3D9RenderSystem.dll");
    if (!plugin)
    {
        std::printf("demo: cannot load D3D9RenderSystem.dll (error %lu)\n", GetLastError());
        return 1;
    }
    auto create =
        reinterpret_cast<kv::PFN_CreateRenderSystem>(reinterpret_cast<void*>(GetProcAddress(plugin, "CreateRenderSystem")));
    if (!create)
    {
        std::printf("demo: D3D9RenderSystem.dll has no CreateRenderSystem\n");
        FreeLibrary(plugin);
        return 1;
    }
    std::printf("demo: loaded D3D9RenderSystem.dll, CreateRenderSystem found\n");

    kv::CRenderSystem* rs = create();
    if (!rs)
    {
        std::printf("demo: CreateRenderSystem returned null\n");
        FreeLibrary(plugin);
        return 1;
    }
    std::printf("demo: render system made; the engine finds it again: %s\n",
                kv::GetRenderSystem() == rs ? "yes" : "NO");

    HWND hWnd = MakeWindow(width, height);
    if (!hWnd)
        std::printf("demo: cannot create a window (error %lu)\n", GetLastError());
    PumpMessages();

    bool ok = rs->Init(hWnd, width, height, false, false, 0);
    std::printf("demo: Init(%ux%u, windowed) %s\n", width, height, ok ? "succeeded" : "failed");
    std::printf("demo: device %s, device available: %s\n", rs->GetD3D9Device() ? "made" : "not made",
                rs->IsDeviceAvailable() ? "yes" : "no");
    if (ok)
        ReportCapabilities(*rs->m_pCapabilities);
    if (ok && rs->_beginFrame())
    {
        rs->_endFrame();
        std::printf("demo: one empty frame opened and closed\n");
    }
    PumpMessages();

    std::printf("demo: log of the start-up:\n");
    ReportLog(stdout);
    if (FILE* f = std::fopen("out/demo-log.txt", "w"))
    {
        ReportLog(f);
        std::fclose(f);
        std::printf("demo: log written to out/demo-log.txt\n");
    }

    // Shut down as the engine does: let go of what the engine holds, delete the
    // render system, then the plug-in.
    rs->Destroy();
    delete rs;
    std::printf("demo: render system deleted; the engine's pointer is %s\n",
                kv::GetRenderSystem() ? "STILL SET" : "cleared");
    kv::EngineShutdown();
    if (hWnd)
        DestroyWindow(hWnd);
    FreeLibrary(plugin);
    // The run itself worked when we get here; how far Init got is in the report.
    return 0;
}
