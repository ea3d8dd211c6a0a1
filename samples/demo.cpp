// A small host that does what the engine does: it loads D3D9RenderSystem.dll,
// asks it for its render system through the one export, opens a real window
// and runs Init. Then it draws frames the engine's way. Each frame draws the
// scene into a render texture: a multisampled texture the window's size,
// bound and cleared through _setViewport, in a scene of its own, holding a
// grid of turning cubes as one indexed, hardware-instanced draw (the cube in a
// managed vertex and index buffer, the per-cube data in a dynamic default-pool
// buffer written again every frame) and in front of it four cubes textured
// from image files. The render texture's swapBuffers resolves the samples
// into the texture, which a post-process pass (an assembled pixel shader)
// draws onto the window, and the window's swapBuffers presents. Half-way the
// window grows, the device follows through the render system's Reset, and the
// scene gets a texture of the new size. The last frame goes to out/demo.png
// through the render system's ScreenShot. A timer query measures the GPU's
// time of every frame, an occlusion query counts the visible pixels of one
// cube in the last, and one more frame in the shader complexity view goes to
// out/demo-complexity.png.
//
// The cubes are shaded by the samples' lit shader (samples/shader/lit.fx)
// through the render system's programs: made by CreateGpuProgram, its
// variants compiled on the compile thread or read from the shader cache in
// ./cache, activated per draw, its constants set through the program's
// setters and sent by FlushConstants. A second run finds every variant in
// the cache and compiles nothing.
//
// Device calls are counted through the recording d3d9.dll when it lies beside
// the demo (a test build puts it there): the demo loads it before the plug-in,
// whose import of d3d9.dll then resolves to it. With --no-proxy, or without
// that file, the demo runs on the system's d3d9 and reports the engine's own
// frame statistics instead.
#include "engine/Colour.h"
#include "engine/DeviceCapabilities.h"
#include "engine/Engine.h"
#include "engine/GfxTimerQuery.h"
#include "engine/Globals.h"
#include "engine/GpuProgram.h"
#include "engine/GpuProgramCompileThread.h"
#include "engine/GpuProgramManager.h"
#include "engine/HardwareIndexBuffer.h"
#include "engine/HardwareOcclusionQuery.h"
#include "engine/HardwarePixelBuffer.h"
#include "engine/HardwareVertexBuffer.h"
#include "engine/IndexData.h"
#include "engine/Log.h"
#include "engine/RenderSystem.h"
#include "engine/RenderTexture.h"
#include "engine/RenderWindow.h"
#include "engine/Root.h"
#include "engine/Texture.h"
#include "engine/Timer.h"
#include "engine/VertexData.h"
#include "engine/VertexDeclaration.h"
#include "engine/Viewport.h"

#include <windows.h>

#include <d3d9.h>
#include <d3dx9.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
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

// The outer size of a window whose client area is width by height.
SIZE OuterSize(unsigned width, unsigned height)
{
    RECT rect = {0, 0, static_cast<LONG>(width), static_cast<LONG>(height)};
    AdjustWindowRect(&rect, WS_OVERLAPPEDWINDOW, FALSE);
    SIZE size = {rect.right - rect.left, rect.bottom - rect.top};
    return size;
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
    const SIZE size = OuterSize(width, height);
    HWND hWnd = CreateWindowExA(0, wc.lpszClassName, "KorvoEngine D3D9 demo", WS_OVERLAPPEDWINDOW, CW_USEDEFAULT,
                                CW_USEDEFAULT, size.cx, size.cy, nullptr, nullptr, wc.hInstance, nullptr);
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
    for (const IMAGE_IMPORT_DESCRIPTOR* imp =
             reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + dir.VirtualAddress);
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

// --- Shaders set straight on the device.

// The render system shadows the device's current shaders and shader constants,
// so that an activation repeating them makes no device call. The textured
// cubes and the post-process pass set shaders of their own straight on the
// device (this platform's HLSL compiler cannot sample, so their pixel shaders
// are assembled, which the render system's programs do not do): this scope
// puts back, when it ends, the shaders and the vertex shader constants it
// found, so the shadows are true again for the next activation.
class DeviceShaderScope
{
public:
    DeviceShaderScope(IDirect3DDevice9* device, unsigned vertexRegisters)
        : m_device(device), m_constants(vertexRegisters * 4)
    {
        device->GetVertexShader(&m_vertexShader);
        device->GetPixelShader(&m_pixelShader);
        if (vertexRegisters)
            device->GetVertexShaderConstantF(0, m_constants.data(), vertexRegisters);
    }
    ~DeviceShaderScope()
    {
        m_device->SetVertexShader(m_vertexShader);
        m_device->SetPixelShader(m_pixelShader);
        if (!m_constants.empty())
            m_device->SetVertexShaderConstantF(0, m_constants.data(), static_cast<UINT>(m_constants.size() / 4));
        if (m_vertexShader)
            m_vertexShader->Release();
        if (m_pixelShader)
            m_pixelShader->Release();
    }
    DeviceShaderScope(const DeviceShaderScope&) = delete;
    DeviceShaderScope& operator=(const DeviceShaderScope&) = delete;

private:
    IDirect3DDevice9* m_device;
    IDirect3DVertexShader9* m_vertexShader = nullptr;
    IDirect3DPixelShader9* m_pixelShader = nullptr;
    std::vector<float> m_constants;
};

// The code of an assembled shader, or null (and a message).
ID3DXBuffer* Assemble(const char* name, const char* text)
{
    ID3DXBuffer* code = nullptr;
    ID3DXBuffer* errors = nullptr;
    if (FAILED(D3DXAssembleShader(text, static_cast<UINT>(std::strlen(text)), nullptr, nullptr, 0, &code, &errors)))
        std::printf("demo: shader %s did not assemble: %s\n", name,
                    errors ? static_cast<const char*>(errors->GetBufferPointer()) : "no message");
    if (errors)
        errors->Release();
    return code;
}

bool MakePixelShader(IDirect3DDevice9* device, const char* name, const char* text, IDirect3DPixelShader9** shader)
{
    ID3DXBuffer* code = Assemble(name, text);
    const bool ok =
        code && SUCCEEDED(device->CreatePixelShader(static_cast<const DWORD*>(code->GetBufferPointer()), shader));
    if (code)
        code->Release();
    return ok;
}

template <class T>
void ReleaseShader(T*& shader)
{
    if (shader)
        shader->Release();
    shader = nullptr;
}

// --- Programs.

// Runtime bits of the lit shader (samples/shader/lit.ini).
const uint64_t kLitFog = 1, kLitVertexColour = 2, kLitInstancing = 4;
const uint64_t kLitInstanced = kLitVertexColour | kLitInstancing;

struct VariantKeys
{
    uint64_t runtime;
    uint64_t lights;
};

// Makes a program and waits until the variants of these keys are ready, as a
// loading screen would; tells how long that took and where the code came from.
ref_ptr<kv::CGpuProgram> PrepareProgram(kv::CRenderSystem* rs, const char* name, std::vector<VariantKeys> keys)
{
    const DWORD start = GetTickCount();
    const unsigned hitsBefore = kv::g_pCompileThread->GetCacheHitCount();
    const unsigned compilesBefore = kv::g_pCompileThread->GetCompileCount();
    // Load queues the variant of the current keys: let that be one we need.
    rs->m_nRuntimeMacro = keys[0].runtime;
    rs->m_nLightingMacro = keys[0].lights;
    ref_ptr<kv::CGpuProgram> program = rs->CreateGpuProgram(name);
    if (!program)
    {
        std::printf("demo: program %s could NOT be made\n", name);
        return program;
    }
    size_t ready = 0;
    while (ready < keys.size() && GetTickCount() - start < 20000)
    {
        ready = 0;
        for (const VariantKeys& k : keys)
        {
            rs->m_nRuntimeMacro = k.runtime;
            rs->m_nLightingMacro = k.lights;
            ready += program->SelectVariant() ? 1 : 0;
        }
        PumpMessages();
        Sleep(1);
    }
    rs->m_nRuntimeMacro = 0;
    rs->m_nLightingMacro = 0;
    const unsigned hits = kv::g_pCompileThread->GetCacheHitCount() - hitsBefore;
    const unsigned compiles = kv::g_pCompileThread->GetCompileCount() - compilesBefore;
    std::printf("demo: program %s: %u of %u variants ready after %lu ms; %u came from the shader cache, %u were "
                "compiled%s\n",
                name, static_cast<unsigned>(ready), static_cast<unsigned>(keys.size()),
                static_cast<unsigned long>(GetTickCount() - start), hits, compiles,
                compiles == 0 && hits > 0 ? " (all from the cache)" : "");
    return ready == keys.size() ? program : ref_ptr<kv::CGpuProgram>();
}

// --- The scene: a grid of cubes, one mesh drawn once per cube by instancing.

// Stream 0 carries the cube with its normals and texture coordinates, stream
// 1 one record per cube: the three rows of its world transform and its colour.
// The lit program's instanced, vertex-coloured variant reads them
// (samples/shader/lit.fx); the textured cubes read the first stream alone.
struct CubeVertex
{
    float x, y, z;
    float nx, ny, nz;
    float u, v;
};

struct CubeInstance
{
    float rows[3][4];
    uint32_t colour;
};

const unsigned kColumns = 8, kRows = 5;
const unsigned kCubes = kColumns * kRows;
// The cube whose visible pixels an occlusion query counts: the bottom row's second.
const unsigned kCountedCube = 1;
const float kCubeSize = 0.32f;

uint32_t Packed(const kv::CColour& c)
{
    auto byte = [](float v) { return static_cast<uint32_t>(v < 0.0f ? 0.0f : v > 1.0f ? 255.0f : v * 255.0f); };
    return 0xFF000000u | byte(c.r) << 16 | byte(c.g) << 8 | byte(c.b);
}

// In front of the grid a row of larger cubes, each textured from one image
// file of another format, loaded through the render system's CreateTexture
// (the files are made by samples/textures/make_textures.py).
const char* const kTextureFiles[] = {"samples/textures/crate.bmp", "samples/textures/bricks.tga",
                                     "samples/textures/checker.png", "samples/textures/tiles.dds"};
const unsigned kTexturedCubes = 4;

// The textured cubes' vertex shader compiles with D3DX; this platform's HLSL
// compiler cannot sample, so their pixel shader is assembled: the texel,
// shaded by the face's light.
const char kTexturedVertexShader[] = R"(
float4x4 worldViewProjection;
float4x4 world;
float4 lightDirection;
struct Input
{
    float3 position : POSITION;
    float3 normal : NORMAL;
    float2 uv : TEXCOORD0;
};
struct Output
{
    float4 position : POSITION;
    float4 shade : COLOR0;
    float2 uv : TEXCOORD0;
};
Output main(Input input)
{
    Output output;
    output.position = mul(float4(input.position, 1.0), worldViewProjection);
    float3 normal = mul(float4(input.normal, 0.0), world).xyz;
    float lit = 0.3 + 0.7 * clamp(mul(normal, lightDirection.xyz), 0.0, 1.0);
    output.shade = float4(lit, lit, lit, 1.0);
    output.uv = input.uv;
    return output;
}
)";
const char kTexturedPixelShader[] = "ps_3_0\n"
                                    "dcl_color0 v0\n"
                                    "dcl_texcoord0 v1.xy\n"
                                    "dcl_2d s0\n"
                                    "texld r0, v1, s0\n"
                                    "mul oC0, r0, v0\n";

class CubeGrid
{
public:
    // Everything through the render system's factories, as the engine makes it.
    bool Make(kv::CRenderSystem* rs, IDirect3DDevice9* device, kv::CGpuProgram* program)
    {
        m_program = program;
        if (!program)
            return false;

        // Each face its own four corners and its own normal, so the light shows its edges.
        static const float faces[6][4][3] = {
            {{-1, -1, -1}, {-1, 1, -1}, {1, 1, -1}, {1, -1, -1}}, {{1, -1, 1}, {1, 1, 1}, {-1, 1, 1}, {-1, -1, 1}},
            {{-1, -1, 1}, {-1, 1, 1}, {-1, 1, -1}, {-1, -1, -1}}, {{1, -1, -1}, {1, 1, -1}, {1, 1, 1}, {1, -1, 1}},
            {{-1, 1, -1}, {-1, 1, 1}, {1, 1, 1}, {1, 1, -1}},     {{-1, -1, 1}, {-1, -1, -1}, {1, -1, -1}, {1, -1, 1}}};
        static const float normals[6][3] = {{0, 0, -1}, {0, 0, 1}, {-1, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, -1, 0}};
        std::vector<CubeVertex> vertices;
        std::vector<uint16_t> indices;
        for (unsigned f = 0; f < 6; ++f)
        {
            const uint16_t base = static_cast<uint16_t>(vertices.size());
            static const float uv[4][2] = {{0, 1}, {0, 0}, {1, 0}, {1, 1}};
            for (unsigned c = 0; c < 4; ++c)
                vertices.push_back({faces[f][c][0] * kCubeSize, faces[f][c][1] * kCubeSize, faces[f][c][2] * kCubeSize,
                                    normals[f][0], normals[f][1], normals[f][2], uv[c][0], uv[c][1]});
            for (uint16_t i : {0, 1, 2, 0, 2, 3})
                indices.push_back(static_cast<uint16_t>(base + i));
        }

        const kv::VertexElement elements[] = {kv::VertexElement(0, 0, kv::VET_FLOAT3, kv::VES_POSITION),
                                              kv::VertexElement(0, 12, kv::VET_FLOAT3, kv::VES_NORMAL),
                                              kv::VertexElement(1, 0, kv::VET_FLOAT4, kv::VES_TEXTURE_COORDINATES, 1),
                                              kv::VertexElement(1, 16, kv::VET_FLOAT4, kv::VES_TEXTURE_COORDINATES, 2),
                                              kv::VertexElement(1, 32, kv::VET_FLOAT4, kv::VES_TEXTURE_COORDINATES, 3),
                                              kv::VertexElement(1, 48, kv::VET_COLOUR, kv::VES_COLOUR)};
        m_declaration = rs->CreateVertexDeclaration(elements, 6);
        m_mesh = rs->CreateHardwareVertexBuffer(sizeof(CubeVertex), static_cast<unsigned>(vertices.size()),
                                                kv::CHardwareBuffer::USAGE_STATIC, vertices.data());
        m_indices =
            rs->CreateHardwareIndexBuffer(kv::CHardwareIndexBuffer::IT_16BIT, static_cast<unsigned>(indices.size()),
                                          kv::CHardwareBuffer::USAGE_STATIC, indices.data());
        // Rewritten every frame: the dynamic, discardable kind, which lives in
        // the default pool and so is made anew, empty, by a device reset.
        m_instances = rs->CreateHardwareVertexBuffer(
            sizeof(CubeInstance), kCubes,
            static_cast<kv::CHardwareBuffer::Usage>(kv::CHardwareBuffer::USAGE_DYNAMIC |
                                                    kv::CHardwareBuffer::USAGE_WRITE_ONLY |
                                                    kv::CHardwareBuffer::USAGE_DISCARDABLE),
            nullptr);
        if (!m_declaration || !m_mesh || !m_indices || !m_instances)
            return false;

        m_meshData = rs->CreateVertexData();
        m_meshData->m_pDeclaration = m_declaration;
        m_meshData->m_pBuffer = m_mesh;
        m_meshData->m_nVertexCount = static_cast<unsigned>(vertices.size());
        m_instanceData = rs->CreateVertexData();
        m_instanceData->m_pDeclaration = m_declaration;
        m_instanceData->m_pBuffer = m_instances;
        m_instanceData->m_nVertexCount = kCubes;
        m_indexData = rs->CreateIndexData();
        m_indexData->m_pBuffer = m_indices;
        m_indexData->m_nIndexCount = static_cast<unsigned>(indices.size());
        return MakeTextured(rs, device, static_cast<unsigned>(vertices.size()));
    }

    // One frame's cubes: the engine's camera as the global viewProjection, the
    // variant of the current switches made current, the material and lights
    // set through the program, then one instanced draw; then the textured
    // cubes. False when the program could not be activated (its variant not
    // ready).
    bool Draw(kv::CRenderSystem* rs, IDirect3DDevice9* device, float time, unsigned width, unsigned height, bool fog,
              const kv::CColour& background, kv::CHardwareOcclusionQuery* query)
    {
        std::vector<CubeInstance> cubes;
        for (unsigned row = 0; row < kRows; ++row)
            for (unsigned column = 0; column < kColumns; ++column)
            {
                const unsigned i = row * kColumns + column;
                kv::CColour colour;
                colour.fromHueSaturationBrightness(static_cast<float>(i) / kCubes, 0.75f, 1.0f);
                const float x = static_cast<float>(column) - (kColumns - 1) * 0.5f;
                const float y = static_cast<float>(row) - (kRows - 1) * 0.5f + 0.15f * std::sin(time * 2.0f + x);
                const float turn = time + 0.4f * i, s = std::sin(turn), c = std::cos(turn);
                // A turn about the vertical axis, then a tilt towards the camera.
                cubes.push_back({{{c, 0.0f, s, x}, {0.6f * s, 0.8f, -0.6f * c, y}, {-0.8f * s, 0.6f, 0.8f * c, 0.0f}},
                                 Packed(colour)});
            }
        // The counted cube's record first: it can then be drawn alone.
        std::rotate(cubes.begin(), cubes.begin() + kCountedCube, cubes.end());
        m_instances->WriteData(0, static_cast<unsigned>(cubes.size() * sizeof(CubeInstance)), cubes.data(), true);

        D3DXVECTOR3 eye(0.0f, 0.0f, -9.0f), at(0.0f, 0.0f, 0.0f), up(0.0f, 1.0f, 0.0f);
        D3DXMATRIX view, projection, viewProjection, columns;
        D3DXMatrixLookAtLH(&view, &eye, &at, &up);
        D3DXMatrixPerspectiveFovLH(&projection, D3DX_PI / 4.0f, static_cast<float>(width) / height, 0.5f, 50.0f);
        D3DXMatrixMultiply(&viewProjection, &view, &projection);
        // HLSL keeps a matrix constant by columns.
        D3DXMatrixTranspose(&columns, &viewProjection);
        kv::GetGpuProgramManager()->SetGlobalValue("viewProjection", &columns._11, 4);

        rs->m_nRuntimeMacro = kLitInstanced | (fog ? kLitFog : 0);
        rs->m_nLightingMacro = 2;
        if (!m_program->BeginActivate(nullptr, false))
            return false;
        const float white[4] = {1.0f, 1.0f, 1.0f, 1.0f}, ambient[4] = {0.16f, 0.17f, 0.2f, 0.0f};
        // Towards the lights: a warm key light from the upper left, a cool fill from the right.
        const float directions[8] = {-0.41f, 0.61f, -0.68f, 0.0f, 0.9f, -0.2f, -0.39f, 0.0f};
        const float colours[8] = {0.78f, 0.74f, 0.66f, 0.0f, 0.22f, 0.27f, 0.36f, 0.0f};
        const float fogColour[4] = {background.r, background.g, background.b, 1.0f};
        const float fogRange[4] = {8.0f, 0.5f, 0.0f, 0.0f};
        m_program->SetVector4(m_program->GetParam("materialColour"), white);
        m_program->SetVector4(m_program->GetParam("ambientColour"), ambient);
        m_program->SetVector4Array(m_program->GetParam("lightDirections"), directions, 2);
        m_program->SetVector4Array(m_program->GetParam("lightColours"), colours, 2);
        m_program->SetVector4(m_program->GetParam("fogColour"), fogColour);
        m_program->SetVector4(m_program->GetParam("fogRange"), fogRange);
        m_program->FlushConstants();

        rs->SetDepthCheckEnabled(true);
        rs->SetDepthWriteEnabled(true);
        rs->SetDepthFunction(kv::CMPF_LESS_EQUAL);
        rs->SetCullingMode(kv::CULL_NONE);
        rs->SetVertexBuffers(0, m_meshData.get(), 0);
        rs->SetVertexBuffers(1, m_instanceData.get(), 0);
        rs->SetIndexBuffer(m_indices.get());
        rs->DrawPrimitive(kv::PT_TRIANGLE_LIST, m_meshData.get(), m_indexData.get(), kCubes, true);
        DrawTextured(rs, device, time, viewProjection, directions);
        if (query)
            CountCube(rs, query);
        return true;
    }

    void Release()
    {
        m_texturedData = nullptr;
        m_texturedDeclaration = nullptr;
        for (ref_ptr<kv::CTexture>& t : m_textures)
            t = nullptr;
        if (m_texturedConstants)
            m_texturedConstants->Release();
        m_texturedConstants = nullptr;
        ReleaseShader(m_texturedVertexShader);
        ReleaseShader(m_texturedPixelShader);
        m_meshData = nullptr;
        m_instanceData = nullptr;
        m_indexData = nullptr;
        m_declaration = nullptr;
        m_mesh = nullptr;
        m_indices = nullptr;
        m_instances = nullptr;
        m_program = nullptr;
    }

private:
    bool MakeTextured(kv::CRenderSystem* rs, IDirect3DDevice9* device, unsigned vertexCount)
    {
        ID3DXBuffer* code = nullptr;
        ID3DXBuffer* errors = nullptr;
        if (FAILED(D3DXCompileShader(kTexturedVertexShader, sizeof kTexturedVertexShader - 1, nullptr, nullptr, "main",
                                     "vs_3_0", 0, &code, &errors, &m_texturedConstants)))
            std::printf("demo: the textured cubes' vertex shader did not compile: %s\n",
                        errors ? static_cast<const char*>(errors->GetBufferPointer()) : "no message");
        const bool made = code && SUCCEEDED(device->CreateVertexShader(
                                      static_cast<const DWORD*>(code->GetBufferPointer()), &m_texturedVertexShader));
        if (code)
            code->Release();
        if (errors)
            errors->Release();
        if (!made || !MakePixelShader(device, "textured", kTexturedPixelShader, &m_texturedPixelShader))
            return false;
        // The registers the shader's constants take, which the draw puts back.
        D3DXCONSTANTTABLE_DESC table;
        m_texturedConstants->GetDesc(&table);
        for (UINT i = 0; i < table.Constants; ++i)
        {
            D3DXCONSTANT_DESC desc;
            UINT count = 1;
            if (SUCCEEDED(
                    m_texturedConstants->GetConstantDesc(m_texturedConstants->GetConstant(nullptr, i), &desc, &count)))
                m_texturedRegisters = std::max(m_texturedRegisters, desc.RegisterIndex + desc.RegisterCount);
        }

        for (unsigned i = 0; i < kTexturedCubes; ++i)
        {
            m_textures[i] = rs->CreateTexture(kTextureFiles[i], kv::TEX_TYPE_2D, -1, false);
            if (!m_textures[i])
                return false;
            std::printf("demo: texture %s loaded, %ux%u, %u levels\n", kTextureFiles[i], m_textures[i]->mWidth,
                        m_textures[i]->mHeight, m_textures[i]->mNumMipmaps + 1);
        }
        const kv::VertexElement elements[] = {kv::VertexElement(0, 0, kv::VET_FLOAT3, kv::VES_POSITION),
                                              kv::VertexElement(0, 12, kv::VET_FLOAT3, kv::VES_NORMAL),
                                              kv::VertexElement(0, 24, kv::VET_FLOAT2, kv::VES_TEXTURE_COORDINATES)};
        m_texturedDeclaration = rs->CreateVertexDeclaration(elements, 3);
        m_texturedData = rs->CreateVertexData();
        m_texturedData->m_pDeclaration = m_texturedDeclaration;
        m_texturedData->m_pBuffer = m_mesh;
        m_texturedData->m_nVertexCount = vertexCount;
        return m_texturedDeclaration != nullptr;
    }

    // One draw a cube, each with its file's texture, through the render
    // system's streams, samplers and states; only the shaders and their
    // constants go straight to the device, and are put back afterwards. In a
    // viewing mode the pixel shader the mode put in place stays, as it does
    // for the render system's programs.
    void DrawTextured(kv::CRenderSystem* rs, IDirect3DDevice9* device, float time, const D3DXMATRIX& viewProjection,
                      const float* lightDirection)
    {
        DeviceShaderScope scope(device, m_texturedRegisters);
        device->SetVertexShader(m_texturedVertexShader);
        if (rs->GetFillMode() < kv::FILL_WIRE_BLACK)
            device->SetPixelShader(m_texturedPixelShader);
        m_texturedConstants->SetVector(device, "lightDirection", reinterpret_cast<const D3DXVECTOR4*>(lightDirection));
        // No mip filter: the files load into textures that generate their own
        // levels, and Wine's device (measured) leaves those levels black.
        kv::SamplerState sampler;
        sampler.mipFilter = kv::FO_NONE;
        rs->SetVertexBuffers(0, m_texturedData.get(), 0);
        for (unsigned i = 0; i < kTexturedCubes; ++i)
        {
            D3DXMATRIX scale, turn, tilt, place, world, all;
            D3DXMatrixScaling(&scale, 1.7f, 1.7f, 1.7f);
            D3DXMatrixRotationY(&turn, 0.7f * time + 1.3f * i);
            D3DXMatrixRotationX(&tilt, 0.45f);
            D3DXMatrixTranslation(&place, (static_cast<float>(i) - 1.5f) * 1.7f, -1.55f, -3.0f);
            world = scale * turn * tilt * place;
            all = world * viewProjection;
            m_texturedConstants->SetMatrix(device, "world", &world);
            m_texturedConstants->SetMatrix(device, "worldViewProjection", &all);
            rs->SetTexture(0, m_textures[i].get(), sampler);
            rs->DrawPrimitive(kv::PT_TRIANGLE_LIST, m_texturedData.get(), m_indexData.get(), 1, false);
        }
    }

    // The visible pixels of one cube of the grid's bottom row, which the
    // textured cubes in front hide in part: its record, the first, drawn again
    // over itself inside an occlusion query, painting nothing and writing no
    // depth, with the lit program still current.
    void CountCube(kv::CRenderSystem* rs, kv::CHardwareOcclusionQuery* query)
    {
        rs->SetColourWriteEnabled(false, false, false, false);
        rs->SetDepthWriteEnabled(false);
        rs->SetVertexBuffers(0, m_meshData.get(), 0);
        query->BeginQuery();
        rs->DrawPrimitive(kv::PT_TRIANGLE_LIST, m_meshData.get(), m_indexData.get(), 1, true);
        query->EndQuery();
        rs->SetColourWriteEnabled(true, true, true, true);
        rs->SetDepthWriteEnabled(true);
    }

    kv::CGpuProgram* m_program = nullptr; // held by the host
    ref_ptr<kv::CVertexDeclaration> m_declaration;
    ref_ptr<kv::CHardwareVertexBuffer> m_mesh;
    ref_ptr<kv::CHardwareIndexBuffer> m_indices;
    ref_ptr<kv::CHardwareVertexBuffer> m_instances;
    ref_ptr<kv::CVertexData> m_meshData;
    ref_ptr<kv::CVertexData> m_instanceData;
    ref_ptr<kv::CIndexData> m_indexData;
    IDirect3DVertexShader9* m_texturedVertexShader = nullptr;
    IDirect3DPixelShader9* m_texturedPixelShader = nullptr;
    ID3DXConstantTable* m_texturedConstants = nullptr;
    unsigned m_texturedRegisters = 0;
    ref_ptr<kv::CTexture> m_textures[kTexturedCubes];
    ref_ptr<kv::CVertexDeclaration> m_texturedDeclaration;
    ref_ptr<kv::CVertexData> m_texturedData;
};

// --- Post-processing: the scene's texture on the window.

// A full-window quad through a pass-through vertex shader and an assembled
// pixel shader: the scene's texel, warmed a little and darkened towards the
// corners.
const char kPostVertexShader[] = "vs_3_0\n"
                                 "dcl_position v0\n"
                                 "dcl_texcoord v1\n"
                                 "dcl_position o0\n"
                                 "dcl_texcoord o1\n"
                                 "mov o0, v0\n"
                                 "mov o1, v1\n";
const char kPostPixelShader[] = "ps_3_0\n"
                                "def c0, 0.5, 0.5, 1.7, 1.0\n"
                                "def c1, 1.06, 1.0, 0.92, 0.0\n"
                                "dcl_texcoord0 v0.xy\n"
                                "dcl_2d s0\n"
                                "texld r0, v0, s0\n"
                                "sub r1.xy, v0, c0\n"
                                "mul r1.xy, r1, r1\n"
                                "add r1.x, r1.x, r1.y\n"
                                "mad r1.x, -r1.x, c0.z, c0.w\n"
                                "max r1.x, r1.x, c1.w\n"
                                "mul r0.xyz, r0, c1\n"
                                "mul r0.xyz, r0, r1.x\n"
                                "mov oC0, r0\n";

class PostProcess
{
public:
    bool Make(kv::CRenderSystem* rs, IDirect3DDevice9* device)
    {
        ID3DXBuffer* code = Assemble("post-process vertex", kPostVertexShader);
        const bool made =
            code && SUCCEEDED(device->CreateVertexShader(static_cast<const DWORD*>(code->GetBufferPointer()), &m_vs));
        if (code)
            code->Release();
        const kv::VertexElement elements[] = {kv::VertexElement(0, 0, kv::VET_FLOAT3, kv::VES_POSITION),
                                              kv::VertexElement(0, 12, kv::VET_FLOAT2, kv::VES_TEXTURE_COORDINATES)};
        m_declaration = rs->CreateVertexDeclaration(elements, 2);
        return made && m_declaration && MakePixelShader(device, "post-process", kPostPixelShader, &m_ps);
    }

    // Into the window's back buffer, bound by the caller. The scene's texture
    // stays on sampler 0: binding it as a target again takes it off there.
    void Draw(kv::CRenderSystem* rs, IDirect3DDevice9* device, kv::CTexture* scene, unsigned width, unsigned height)
    {
        struct Vertex
        {
            float x, y, z, u, v;
        };
        // Half a pixel up and left, so that each pixel's centre meets its texel's.
        const float dx = 1.0f / width, dy = 1.0f / height;
        const Vertex quad[4] = {{-1 - dx, 1 + dy, 0.5f, 0, 0},
                                {1 - dx, 1 + dy, 0.5f, 1, 0},
                                {-1 - dx, -1 + dy, 0.5f, 0, 1},
                                {1 - dx, -1 + dy, 0.5f, 1, 1}};
        rs->SetDepthCheckEnabled(false);
        rs->SetDepthWriteEnabled(false);
        rs->SetCullingMode(kv::CULL_NONE);
        rs->SetTexture(0, scene, kv::SamplerState::S_2LINEAR_2CLAMP);
        DeviceShaderScope scope(device, 0);
        device->SetVertexShader(m_vs);
        device->SetPixelShader(m_ps);
        rs->DrawPrimitiveUP(kv::PT_TRIANGLE_STRIP, 4, quad, sizeof(Vertex), m_declaration.get(), 1);
    }

    void Release()
    {
        m_declaration = nullptr;
        ReleaseShader(m_vs);
        ReleaseShader(m_ps);
    }

private:
    IDirect3DVertexShader9* m_vs = nullptr;
    IDirect3DPixelShader9* m_ps = nullptr;
    ref_ptr<kv::CVertexDeclaration> m_declaration;
};

// --- A frame.

// The texture the scene is drawn into: the window's size and format,
// multisampled with as many samples up to 8 as the device takes.
ref_ptr<kv::CTexture> MakeSceneTexture(kv::CRenderSystem* rs, unsigned width, unsigned height)
{
    ref_ptr<kv::CTexture> texture =
        rs->CreateTextureManual(kv::TEX_TYPE_2D, width, height, 1, 0, kv::PF_UNKNOWN, kv::TU_RENDERTARGET, 8, false);
    if (texture)
        std::printf("demo: scene texture %ux%u, 8 samples asked for, %u taken\n", texture->mWidth, texture->mHeight,
                    static_cast<unsigned>(texture->getFSAA()));
    return texture;
}

// The render texture that draws into the texture's image, made by its pixel buffer.
kv::CRenderTarget* TargetOf(kv::CTexture* texture)
{
    kv::CHardwarePixelBuffer* buffer = texture ? texture->getBuffer(0, 0) : nullptr;
    return buffer ? buffer->getRenderTarget(0) : nullptr;
}

// The scene into its texture in a scene of its own, resolved, then the
// texture onto the window, not yet presented: post-processed, or copied as it
// is (for a viewing mode, whose colours mean something). -1 when a scene could
// not open; else whether the lit program was ready.
int DrawFrame(kv::CRenderSystem* rs, kv::CRenderWindow* window, kv::CTexture* sceneTexture, CubeGrid& grid,
              PostProcess* post, float time, unsigned width, unsigned height, bool fog, const kv::CColour& background,
              kv::CHardwareOcclusionQuery* query)
{
    kv::CRenderTarget* scene = TargetOf(sceneTexture);
    if (!scene->_beginUpdate())
        return -1;
    rs->_setViewport(kv::CViewport(scene, 0.0f, 0.0f, 1.0f, 1.0f), 7, &background, 1.0f, 0);
    const bool activated = grid.Draw(rs, rs->GetD3D9Device(), time, width, height, fog, background, query);
    scene->_endUpdate();
    scene->swapBuffers();
    if (!window->_beginUpdate())
        return -1;
    rs->_setViewport(kv::CViewport(window, 0.0f, 0.0f, 1.0f, 1.0f), 0, nullptr, 1.0f, 0);
    if (post)
        post->Draw(rs, rs->GetD3D9Device(), sceneTexture, width, height);
    else
        scene->CopyToTarget(window, nullptr, nullptr);
    window->_endUpdate();
    return activated ? 1 : 0;
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
    auto create = reinterpret_cast<kv::PFN_CreateRenderSystem>(
        reinterpret_cast<void*>(GetProcAddress(plugin, "CreateRenderSystem")));
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
                    !wantProxy  ? "--no-proxy"
                    : recording ? "the plug-in did not bind to the recording d3d9.dll"
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

    // The lit shader of samples/shader through the engine's program path: the
    // variants are compiled on the compile thread, or read from the shader
    // cache (./cache) that an earlier run filled.
    ref_ptr<kv::CGpuProgram> lit;
    if (ok)
    {
        kv::GetGpuProgramManager()->SetDataRoot("samples");
        lit = PrepareProgram(rs, "lit", {{kLitInstanced, 2}, {kLitInstanced | kLitFog, 2}});
    }

    // The frames. Each draws the scene into a multisampled texture the size
    // of the window (clearing colour, depth and stencil), resolves it, and
    // post-processes it onto the window, which it presents. Half-way the
    // window grows, the device is reset to its new size through the render
    // system's Reset, and the scene gets a texture of the new size.
    const unsigned newWidth = 800, newHeight = 450;
    unsigned drawn = 0, scenesRefused = 0, unavailable = 0, notActivated = 0;
    unsigned frameWidth = width, frameHeight = height;
    CallCounts firstFrame, secondFrame, allFrames;
    bool saved = false, sceneMade = false, resetOk = false;
    kv::CTimer lastFrame = {};
    unsigned long long totalDraws = 0, totalPrimitives = 0, totalVertices = 0, totalInstances = 0;
    kv::CRenderWindow* window = rs->m_pMainWindow.get();
    IDirect3DDevice9* device = rs->GetD3D9Device();
    CubeGrid grid;
    PostProcess post;
    ref_ptr<kv::CTexture> sceneTexture;
    GfxTimerQuery* gpuFrame = ok ? rs->CreateTimerQuery() : nullptr;
    uint64_t gpuTotalNs = 0;
    unsigned gpuFrames = 0;
    ref_ptr<kv::CHardwareOcclusionQuery> cubeQuery = ok ? rs->CreateHardwareOcclusionQuery() : nullptr;
    if (ok && window)
    {
        sceneMade = grid.Make(rs, device, lit.get());
        std::printf("demo: cube grid of %u lit cubes and %u textured ones %s\n", kCubes, kTexturedCubes,
                    sceneMade ? "made" : "could NOT be made");
        sceneTexture = MakeSceneTexture(rs, width, height);
        sceneMade = sceneMade && post.Make(rs, device) && TargetOf(sceneTexture.get());
    }
    const kv::CColour background(0.08f, 0.09f, 0.13f, 1.0f);
    const int resetsBefore = kv::GetRoot()->m_nDeviceResetCount;
    if (ok && window && sceneMade)
    {
        for (unsigned frame = 0; frame < frames; ++frame)
        {
            PumpMessages();
            if (frame == frames / 2)
            {
                const SIZE outer = OuterSize(newWidth, newHeight);
                SetWindowPos(hWnd, nullptr, 0, 0, outer.cx, outer.cy, SWP_NOMOVE | SWP_NOZORDER);
                PumpMessages();
                resetOk = rs->Reset(hWnd, newWidth, newHeight, false, false, 0);
                std::printf("demo: frame %u: window resized to %ux%u, Reset %s, engine told of %d device reset(s)\n",
                            frame, newWidth, newHeight, resetOk ? "succeeded" : "FAILED",
                            kv::GetRoot()->m_nDeviceResetCount - resetsBefore);
                frameWidth = window->getWidth();
                frameHeight = window->getHeight();
                sceneTexture = MakeSceneTexture(rs, frameWidth, frameHeight);
                if (!TargetOf(sceneTexture.get()))
                    break;
            }
            if (!rs->IsDeviceAvailable())
            {
                ++unavailable;
                continue;
            }
            kv::GetTimer()->Reset();
            // What the render system asks of the device in this frame; the
            // screenshot of the last frame is left out.
            CallCounts counts;
            kvproxy::Mark start = kvproxy::Here();
            // Fog in the second half: the program switches to its other variant.
            // The GPU's time runs from the frame's first stamp to the
            // measure after the last draw; the cube's pixels are counted in
            // the last frame.
            const bool last = frame + 1 == frames;
            rs->BeginTimerQueryFrame();
            const int result =
                DrawFrame(rs, window, sceneTexture.get(), grid, &post, static_cast<float>(frame) * 0.05f, frameWidth,
                          frameHeight, frame >= frames / 2, background, last ? cubeQuery.get() : nullptr);
            // The frame before's time, read before this frame's Measure takes
            // its place (which waits for it in any case); a reset drops the
            // stamps in flight, which then measure 0.
            const uint64_t ns = gpuFrame ? gpuFrame->GetElapsed(true) : 0;
            if (ns != 0 && ns != ~uint64_t(0))
            {
                gpuTotalNs += ns;
                ++gpuFrames;
            }
            if (gpuFrame)
                gpuFrame->Measure();
            rs->EndTimerQueryFrame();
            if (result < 0)
            {
                ++scenesRefused;
                continue;
            }
            notActivated += result == 0;
            if (last)
            {
                // The picture before it is presented: a discarding swap chain
                // promises nothing of the back buffer afterwards.
                if (counting)
                    CountDeviceCalls(start, kvproxy::Here(), counts);
                saved = rs->ScreenShot("out/demo.png", 1.0f, nullptr);
                start = kvproxy::Here();
            }
            window->swapBuffers();
            ++drawn;
            lastFrame = *kv::GetTimer();
            totalDraws += lastFrame.m_nDrawCallCount;
            totalPrimitives += lastFrame.m_nPrimitiveCount;
            totalVertices += lastFrame.m_nVertexCount;
            totalInstances += lastFrame.m_nExtraInstances;
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
    if (gpuFrame)
    {
        const uint64_t ns = gpuFrame->GetElapsed(true);
        if (ns != 0 && ns != ~uint64_t(0))
            std::printf("demo: GPU frame time (timer queries): %.3f ms in the last frame, %.3f ms on average over %u "
                        "frames\n",
                        ns / 1e6, gpuFrames ? gpuTotalNs / 1e6 / gpuFrames : 0.0, gpuFrames);
        else
            std::printf("demo: GPU frame time not measured (the device has no timer queries)\n");
        rs->DestroyTimerQuery(gpuFrame);
    }
    else
    {
        std::printf("demo: GPU frame time not measured (no timer query could be made)\n");
    }
    unsigned visible = 0;
    if (cubeQuery && cubeQuery->FetchPixelCount(&visible))
        std::printf("demo: cube %u of the grid, partly behind the textured ones, shows %u samples in the last frame "
                    "(occlusion query; %u samples a pixel)\n",
                    kCountedCube, visible, sceneTexture ? std::max(1u, unsigned(sceneTexture->getFSAA())) : 1u);
    else
        std::printf("demo: cube %u of the grid was not counted (no occlusion query)\n", kCountedCube);
    cubeQuery = nullptr;

    // One more frame in the shader complexity view: every pixel shader the
    // programs activate gives way to the view's, which tints by the shader's
    // cost; the scene reaches the window unprocessed.
    bool complexitySaved = false;
    if (ok && window && sceneMade && rs->IsDeviceAvailable())
    {
        rs->SetFillMode(kv::FILL_SHADER_COMPLEXITY);
        if (DrawFrame(rs, window, sceneTexture.get(), grid, nullptr, static_cast<float>(frames) * 0.05f, frameWidth,
                      frameHeight, true, background, nullptr) >= 0)
        {
            complexitySaved = rs->ScreenShot("out/demo-complexity.png", 1.0f, nullptr);
            window->swapBuffers();
        }
        rs->SetFillMode(kv::FILL_SOLID);
        std::printf("demo: a frame in the shader complexity view %s out/demo-complexity.png (%s)\n",
                    complexitySaved ? "written to" : "could NOT be written to",
                    "Wine's disassembly counts no instruction slots, so every shader shows as cheap");
    }
    sceneTexture = nullptr;
    post.Release();
    grid.Release();
    lit = nullptr;
    std::printf("demo: %u frames drawn into a multisampled render texture (_beginUpdate, _setViewport, the lit "
                "program's BeginActivate, setters and FlushConstants, one instanced DrawPrimitive, four textured "
                "ones, _endUpdate, the resolve in swapBuffers), then post-processed onto the window and presented; "
                "%u scenes refused, %u frames skipped on an unavailable device, %u frames whose program was not "
                "ready\n",
                drawn, scenesRefused, unavailable, notActivated);
    if (counting && drawn > 0)
    {
        std::printf("demo: device calls of frame 1: %u (%s)\n", Total(firstFrame), Describe(firstFrame).c_str());
        std::printf("demo: device calls of frame 2: %u (%s)\n", Total(secondFrame), Describe(secondFrame).c_str());
        std::printf("demo: device calls over all %u frames: %u, %.2f a frame (%s)\n", drawn, Total(allFrames),
                    static_cast<double>(Total(allFrames)) / drawn, Describe(allFrames).c_str());
    }
    std::printf("demo: frame statistics of the last frame: draw calls %u, primitives %u, vertices %u, extra "
                "instances %u, vertex buffer binds %u (%u bytes), index buffer binds %u (%u bytes), render target "
                "changes %u\n",
                lastFrame.m_nDrawCallCount, lastFrame.m_nPrimitiveCount, lastFrame.m_nVertexCount,
                lastFrame.m_nExtraInstances, lastFrame.m_nVBBinds, lastFrame.m_nVBBytes, lastFrame.m_nIBBinds,
                lastFrame.m_nIBBytes, lastFrame.m_nRenderTargetChanges);
    std::printf("demo: frame statistics over all frames: draw calls %llu, primitives %llu, vertices %llu, extra "
                "instances %llu\n",
                totalDraws, totalPrimitives, totalVertices, totalInstances);
    std::printf("demo: last frame (%ux%u) %s out/demo.png through ScreenShot\n", frameWidth, frameHeight,
                saved ? "written to" : "could NOT be written to");
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
    return ok && saved && complexitySaved && resetOk ? 0 : 1;
}
