// A small host that does what the engine does: it loads D3D9RenderSystem.dll,
// asks it for its render system through the one export, opens a real window
// and runs Init. Then it draws frames the engine's way: each frame opens a
// scene, clears the window through _setViewport (the whole window in a colour
// that changes from frame to frame, and an inset viewport in its opposite),
// closes the scene and presents through the window's swapBuffers. The last
// frame's back buffer goes to out/demo.png through D3DX.
//
// Device calls are counted through the recording d3d9.dll when it lies beside
// the demo (a test build puts it there): the demo loads it before the plug-in,
// whose import of d3d9.dll then resolves to it. With --no-proxy, or without
// that file, the demo runs on the system's d3d9 and reports the engine's own
// frame statistics instead.
#include "engine/Colour.h"
#include "engine/DeviceCapabilities.h"
#include "engine/Engine.h"
#include "engine/Globals.h"
#include "engine/Log.h"
#include "engine/RenderSystem.h"
#include "engine/RenderWindow.h"
#include "engine/Timer.h"
#include "engine/Viewport.h"

#include <windows.h>

#include <d3d9.h>
#include <d3dx9.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "ProxyControl.h"

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

// The recording d3d9.dll in the demo's own folder, or an empty text.
std::string RecordingD3D9Path()
{
    char path[MAX_PATH];
    DWORD n = GetModuleFileNameA(nullptr, path, MAX_PATH);
    if (n == 0 || n >= MAX_PATH)
        return std::string();
    std::string file(path, n);
    std::string::size_type slash = file.find_last_of('\\');
    if (slash == std::string::npos)
        return std::string();
    file = file.substr(0, slash + 1) + "d3d9.dll";
    return GetFileAttributesA(file.c_str()) == INVALID_FILE_ATTRIBUTES ? std::string() : file;
}

// A copy of the recording d3d9.dll under a name of its own, loaded: Wine
// gives its own d3d9 to any module named d3d9.dll unless told otherwise before
// the process starts. The copy goes to the temporary folder; null when there
// is nothing to load.
HMODULE LoadRecordingD3D9(std::string* copy)
{
    const std::string source = RecordingD3D9Path();
    char temp[MAX_PATH];
    DWORD n = GetTempPathA(MAX_PATH, temp);
    if (source.empty() || n == 0 || n >= MAX_PATH)
        return nullptr;
    *copy = std::string(temp) + "kv_demo_recording_d3d9.dll";
    if (!CopyFileA(source.c_str(), copy->c_str(), FALSE))
        return nullptr;
    return LoadLibraryA(copy->c_str());
}

// Points the imports that module takes from the named DLL at the functions of
// the same names in target, through the module's import address table. Answers
// how many were routed.
int RouteImports(HMODULE module, const char* dllName, HMODULE target)
{
    BYTE* base = reinterpret_cast<BYTE*>(module);
    const IMAGE_DOS_HEADER* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    if (dos->e_magic != IMAGE_DOS_SIGNATURE)
        return 0;
    const IMAGE_NT_HEADERS* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    if (nt->Signature != IMAGE_NT_SIGNATURE)
        return 0;
    const IMAGE_DATA_DIRECTORY& dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (dir.VirtualAddress == 0)
        return 0;
    int routed = 0;
    for (const IMAGE_IMPORT_DESCRIPTOR* imp = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + dir.VirtualAddress);
         imp->Name != 0; ++imp)
    {
        if (_stricmp(reinterpret_cast<const char*>(base + imp->Name), dllName) != 0 || imp->OriginalFirstThunk == 0)
            continue;
        const IMAGE_THUNK_DATA* names = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + imp->OriginalFirstThunk);
        IMAGE_THUNK_DATA* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + imp->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slots)
        {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
                continue;
            const IMAGE_IMPORT_BY_NAME* byName =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            FARPROC function = GetProcAddress(target, reinterpret_cast<const char*>(byName->Name));
            DWORD protection = 0;
            if (!function ||
                !VirtualProtect(&slots->u1.Function, sizeof(slots->u1.Function), PAGE_READWRITE, &protection))
                continue;
            slots->u1.Function = reinterpret_cast<ULONG_PTR>(function);
            VirtualProtect(&slots->u1.Function, sizeof(slots->u1.Function), protection, &protection);
            ++routed;
        }
    }
    return routed;
}

// Device calls of one stretch of the trace, by method name.
typedef std::map<std::string, unsigned> CallCounts;

void CountDeviceCalls(kvproxy::Mark from, kvproxy::Mark to, CallCounts& counts)
{
    for (uint32_t i = from.index; i < to.index; ++i)
    {
        const KvProxyCall* c = kvproxy::TraceAt(i);
        if (c && kvproxy::IsDeviceMethod(kvproxy::MethodOf(*c)))
            ++counts[kvproxy::MethodName(kvproxy::MethodOf(*c))];
    }
}

unsigned Total(const CallCounts& counts)
{
    unsigned n = 0;
    for (const auto& entry : counts)
        n += entry.second;
    return n;
}

std::string Describe(const CallCounts& counts)
{
    std::string text;
    for (const auto& entry : counts)
    {
        if (!text.empty())
            text += ", ";
        text += entry.first + " " + std::to_string(entry.second);
    }
    return text.empty() ? "none" : text;
}

// A colour that goes once round the hue circle over the frames.
kv::CColour FrameColour(unsigned frame, unsigned frames)
{
    kv::CColour c;
    c.fromHueSaturationBrightness(static_cast<float>(frame) / static_cast<float>(frames), 0.8f, 0.9f);
    c.a = 1.0f;
    return c;
}

// The back buffer of the main window into a PNG file, through D3DX.
bool SaveBackBuffer(IDirect3DDevice9* device, const char* path)
{
    IDirect3DSurface9* back = nullptr;
    if (FAILED(device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &back)) || !back)
        return false;
    HRESULT hr = D3DXSaveSurfaceToFileA(path, D3DXIFF_PNG, back, nullptr, nullptr);
    back->Release();
    return SUCCEEDED(hr);
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned width = 640, height = 480;
    const unsigned frames = 120;
    bool wantProxy = true;
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--no-proxy") == 0)
            wantProxy = false;

    // The demo prints the log itself, in order, at the end.
    kv::SetLogEcho(false);
    kv::EngineInit();

    std::string recordingCopy;
    HMODULE recording = wantProxy ? LoadRecordingD3D9(&recordingCopy) : nullptr;

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
    // Before the render system exists: its constructor already calls Direct3DCreate9.
    if (recording)
        std::printf("demo: %d imports of the plug-in from d3d9.dll routed to the recording d3d9.dll\n",
                    RouteImports(plugin, "d3d9.dll", recording));

    kv::CRenderSystem* rs = create();
    if (!rs)
    {
        std::printf("demo: CreateRenderSystem returned null\n");
        FreeLibrary(plugin);
        return 1;
    }
    std::printf("demo: render system made; the engine finds it again: %s\n",
                kv::GetRenderSystem() == rs ? "yes" : "NO");
    // Counting needs the recording d3d9.dll to be the one the plug-in talks
    // to: it then has seen the Direct3DCreate9 of the render system's constructor.
    const bool counting = recording && kvproxy::Available() && kvproxy::CallCount(kvproxy::Method::Direct3DCreate9) > 0;
    if (counting)
        std::printf("demo: device calls are counted by the recording d3d9.dll, which forwards them to Wine's\n");
    else
        std::printf("demo: device calls are not counted (%s); only the engine's frame statistics are shown\n",
                    !wantProxy ? "--no-proxy" : recording ? "the plug-in did not bind to the recording d3d9.dll"
                                                          : "no recording d3d9.dll beside the demo");

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

    // The frames. Each clears the whole window (colour, depth and stencil) and
    // then an inset viewport (colour only) in the opposite colour, then presents.
    unsigned drawn = 0, scenesRefused = 0;
    CallCounts firstFrame, secondFrame, allFrames;
    bool saved = false;
    kv::GetTimer()->Reset();
    kv::CRenderWindow* window = rs->m_pMainWindow.get();
    if (ok && window)
    {
        const kv::CViewport whole(window, 0.0f, 0.0f, 1.0f, 1.0f);
        const kv::CViewport inset(window, 0.25f, 0.25f, 0.5f, 0.5f);
        for (unsigned frame = 0; frame < frames; ++frame)
        {
            PumpMessages();
            const kv::CColour outer = FrameColour(frame, frames);
            const kv::CColour inner(1.0f - outer.r, 1.0f - outer.g, 1.0f - outer.b, 1.0f);
            // What the render system asks of the device in this frame; the
            // D3DX save of the last frame is left out.
            CallCounts counts;
            kvproxy::Mark start = kvproxy::Here();
            if (!window->_beginUpdate())
            {
                ++scenesRefused;
                continue;
            }
            rs->_setViewport(whole, 7, &outer, 1.0f, 0);
            rs->_setViewport(inset, 1, &inner, 1.0f, 0);
            window->_endUpdate();
            if (frame + 1 == frames)
            {
                // The picture before it is presented: a discarding swap chain
                // promises nothing of the back buffer afterwards.
                if (counting)
                    CountDeviceCalls(start, kvproxy::Here(), counts);
                saved = SaveBackBuffer(rs->GetD3D9Device(), "out/demo.png");
                start = kvproxy::Here();
            }
            window->swapBuffers();
            ++drawn;
            if (counting)
            {
                CountDeviceCalls(start, kvproxy::Here(), counts);
                for (const auto& entry : counts)
                {
                    allFrames[entry.first] += entry.second;
                    if (frame == 0)
                        firstFrame[entry.first] += entry.second;
                    else if (frame == 1)
                        secondFrame[entry.first] += entry.second;
                }
            }
        }
    }
    std::printf("demo: %u frames drawn through _beginUpdate, _setViewport (whole window and inset), _endUpdate and "
                "swapBuffers; %u scenes refused\n",
                drawn, scenesRefused);
    if (counting && drawn > 0)
    {
        std::printf("demo: device calls of frame 1: %u (%s)\n", Total(firstFrame), Describe(firstFrame).c_str());
        std::printf("demo: device calls of frame 2: %u (%s)\n", Total(secondFrame), Describe(secondFrame).c_str());
        std::printf("demo: device calls over all %u frames: %u, %.2f a frame (%s)\n", drawn, Total(allFrames),
                    static_cast<double>(Total(allFrames)) / drawn, Describe(allFrames).c_str());
    }
    const kv::CTimer* timer = kv::GetTimer();
    std::printf("demo: engine statistics over the frames: render target changes %u, draw calls %u\n",
                timer->m_nRenderTargetChanges, timer->m_nDrawCallCount);
    std::printf("demo: last frame %s out/demo.png\n", saved ? "written to" : "could NOT be written to");
    PumpMessages();

    std::printf("demo: log:\n");
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
    if (recording)
    {
        FreeLibrary(recording);
        DeleteFileA(recordingCopy.c_str());
    }
    // The run itself worked when we get here; how far it got is in the report.
    return ok && saved ? 0 : 1;
}
