// A small host that does what the engine does: it loads D3D9RenderSystem.dll,
// asks it for its render system through the one export, opens a real window
// and runs Init. Then it draws frames the engine's way: each frame opens a
// scene, clears the window through _setViewport, draws a grid of turning cubes
// as one indexed, hardware-instanced draw a row (the cube in a managed vertex
// and index buffer, the per-cube data in a dynamic default-pool buffer written
// again every frame), each row textured from one of four image files loaded
// through the render system's CreateTexture, closes the scene and presents through the window's
// swapBuffers. Half-way the window grows and the device follows through the
// render system's Reset, and the drawing goes on at the new size. The last
// frame's back buffer goes to out/demo.png through D3DX.
//
// Instancing needs a vertex shader; until the plug-in's HLSL programs exist
// the demo compiles its own vertex shader with D3DX, assembles its pixel
// shader, and sets both on the device.
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
#include "engine/HardwareIndexBuffer.h"
#include "engine/HardwareVertexBuffer.h"
#include "engine/IndexData.h"
#include "engine/Log.h"
#include "engine/RenderSystem.h"
#include "engine/RenderWindow.h"
#include "engine/Root.h"
#include "engine/Timer.h"
#include "engine/VertexData.h"
#include "engine/VertexDeclaration.h"
#include "engine/Viewport.h"

#include <windows.h>

#include <d3d9.h>
#include <d3dx9.h>

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

// --- The scene: a grid of cubes, one mesh drawn once per cube by instancing.

// Stream 0 carries the cube, stream 1 one record per cube: where it stands, the
// sine and cosine of its turn (the compiler of this platform has no sin()), and
// its colour.
const char kCubeVertexShader[] = R"(
float4x4 viewProjection;
struct Input
{
    float3 position : POSITION0;
    float4 shade : COLOR0;
    float2 uv : TEXCOORD1;
    float4 placement : TEXCOORD0;
    float4 colour : COLOR1;
};
struct Output
{
    float4 position : POSITION;
    float4 colour : COLOR0;
    float2 uv : TEXCOORD0;
};
Output main(Input input)
{
    float s = input.placement.z, c = input.placement.w;
    float3 p = input.position * 0.32;
    p = float3(c * p.x + s * p.z, p.y, -s * p.x + c * p.z);
    p = float3(p.x, 0.8 * p.y - 0.6 * p.z, 0.6 * p.y + 0.8 * p.z);
    Output output;
    output.position = mul(float4(p + float3(input.placement.xy, 0.0), 1.0), viewProjection);
    output.colour = input.shade * input.colour;
    output.uv = input.uv;
    return output;
}
)";

// This platform's HLSL compiler cannot sample a texture: the pixel shader is
// assembled. The texel, tinted by the cube's colour and the face's shade.
const char kTexturedPixelShader[] = "ps_3_0\n"
                                    "dcl_color0 v0\n"
                                    "dcl_texcoord0 v1.xy\n"
                                    "dcl_2d s0\n"
                                    "texld r0, v1, s0\n"
                                    "mul oC0, r0, v0\n";

// The cube textures, one file of each format the plug-in loads through D3DX
// (made by samples/textures/make_textures.py); row r of the grid shows file r % 4.
const char* const kTextureFiles[] = {"samples/textures/crate.bmp", "samples/textures/bricks.tga",
                                     "samples/textures/checker.png", "samples/textures/tiles.dds"};

struct CubeVertex
{
    float x, y, z;
    uint32_t shade;
    float u, v;
};

struct CubeInstance
{
    float x, y, sine, cosine;
    uint32_t colour;
};

const unsigned kColumns = 8, kRows = 5;
const unsigned kCubes = kColumns * kRows;

// The shader's code, or null after printing the compiler's words. The
// constant table, when asked for, says where the compiler put each constant.
ID3DXBuffer* CompileShader(const char* source, const char* profile, ID3DXConstantTable** constants = nullptr)
{
    ID3DXBuffer* code = nullptr;
    ID3DXBuffer* errors = nullptr;
    HRESULT hr = D3DXCompileShader(source, static_cast<UINT>(std::strlen(source)), nullptr, nullptr, "main", profile, 0,
                                   &code, &errors, constants);
    if (FAILED(hr))
        std::printf("demo: %s shader not compiled: %s\n", profile,
                    errors ? static_cast<const char*>(errors->GetBufferPointer()) : "no message");
    if (errors)
        errors->Release();
    return SUCCEEDED(hr) ? code : nullptr;
}

uint32_t Packed(const kv::CColour& c)
{
    auto byte = [](float v) { return static_cast<uint32_t>(v < 0.0f ? 0.0f : v > 1.0f ? 255.0f : v * 255.0f); };
    return 0xFF000000u | byte(c.r) << 16 | byte(c.g) << 8 | byte(c.b);
}

class CubeGrid
{
public:
    // Everything through the render system's factories, as the engine makes it.
    bool Make(kv::CRenderSystem* rs, IDirect3DDevice9* device)
    {
        ID3DXBuffer* vsCode = CompileShader(kCubeVertexShader, "vs_3_0", &m_vsConstants);
        ID3DXBuffer* psCode = nullptr;
        if (FAILED(D3DXAssembleShader(kTexturedPixelShader, static_cast<UINT>(std::strlen(kTexturedPixelShader)),
                                      nullptr, nullptr, 0, &psCode, nullptr)))
            std::printf("demo: the textured pixel shader did not assemble\n");
        bool ok = vsCode && psCode && m_vsConstants &&
                  SUCCEEDED(device->CreateVertexShader(static_cast<const DWORD*>(vsCode->GetBufferPointer()), &m_vs)) &&
                  SUCCEEDED(device->CreatePixelShader(static_cast<const DWORD*>(psCode->GetBufferPointer()), &m_ps));
        if (vsCode)
            vsCode->Release();
        if (psCode)
            psCode->Release();
        if (!ok)
            return false;
        for (unsigned i = 0; i < 4; ++i)
        {
            m_textures[i] = rs->CreateTexture(kTextureFiles[i], kv::TEX_TYPE_2D, -1, false);
            if (!m_textures[i])
                return false;
            std::printf("demo: texture %s loaded, %ux%u, %u levels\n", kTextureFiles[i], m_textures[i]->mWidth,
                        m_textures[i]->mHeight, m_textures[i]->mNumMipmaps + 1);
        }

        // Each face its own four corners and its own shade, so the cubes show their edges.
        static const float faces[6][4][3] = {
            {{-1, -1, -1}, {-1, 1, -1}, {1, 1, -1}, {1, -1, -1}}, {{1, -1, 1}, {1, 1, 1}, {-1, 1, 1}, {-1, -1, 1}},
            {{-1, -1, 1}, {-1, 1, 1}, {-1, 1, -1}, {-1, -1, -1}}, {{1, -1, -1}, {1, 1, -1}, {1, 1, 1}, {1, -1, 1}},
            {{-1, 1, -1}, {-1, 1, 1}, {1, 1, 1}, {1, 1, -1}},     {{-1, -1, 1}, {-1, -1, -1}, {1, -1, -1}, {1, -1, 1}}};
        static const uint32_t shades[6] = {0xFFFFFFFF, 0xFF8C8C8C, 0xFFB4B4B4, 0xFFD2D2D2, 0xFFF0F0F0, 0xFF646464};
        std::vector<CubeVertex> vertices;
        std::vector<uint16_t> indices;
        for (unsigned f = 0; f < 6; ++f)
        {
            const uint16_t base = static_cast<uint16_t>(vertices.size());
            static const float uv[4][2] = {{0, 1}, {0, 0}, {1, 0}, {1, 1}};
            for (unsigned c = 0; c < 4; ++c)
                vertices.push_back({faces[f][c][0], faces[f][c][1], faces[f][c][2], shades[f], uv[c][0], uv[c][1]});
            for (uint16_t i : {0, 1, 2, 0, 2, 3})
                indices.push_back(static_cast<uint16_t>(base + i));
        }

        const kv::VertexElement elements[] = {kv::VertexElement(0, 0, kv::VET_FLOAT3, kv::VES_POSITION),
                                              kv::VertexElement(0, 12, kv::VET_COLOUR, kv::VES_COLOUR),
                                              kv::VertexElement(0, 16, kv::VET_FLOAT2, kv::VES_TEXTURE_COORDINATES, 1),
                                              kv::VertexElement(1, 0, kv::VET_FLOAT4, kv::VES_TEXTURE_COORDINATES),
                                              kv::VertexElement(1, 16, kv::VET_COLOUR, kv::VES_COLOUR, 1)};
        m_declaration = rs->CreateVertexDeclaration(elements, 5);
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
        return true;
    }

    void Draw(kv::CRenderSystem* rs, IDirect3DDevice9* device, float time, unsigned width, unsigned height)
    {
        std::vector<CubeInstance> cubes;
        for (unsigned row = 0; row < kRows; ++row)
            for (unsigned column = 0; column < kColumns; ++column)
            {
                const unsigned i = row * kColumns + column;
                kv::CColour colour;
                colour.fromHueSaturationBrightness(static_cast<float>(i) / kCubes, 0.75f, 1.0f);
                const float x = static_cast<float>(column) - (kColumns - 1) * 0.5f;
                const float y = static_cast<float>(row) - (kRows - 1) * 0.5f;
                const float turn = time + 0.4f * i;
                cubes.push_back(
                    {x, y + 0.15f * std::sin(time * 2.0f + x), std::sin(turn), std::cos(turn), Packed(colour)});
            }
        m_instances->WriteData(0, static_cast<unsigned>(cubes.size() * sizeof(CubeInstance)), cubes.data(), true);

        D3DXVECTOR3 eye(0.0f, 0.0f, -9.0f), at(0.0f, 0.0f, 0.0f), up(0.0f, 1.0f, 0.0f);
        D3DXMATRIX view, projection, viewProjection;
        D3DXMatrixLookAtLH(&view, &eye, &at, &up);
        D3DXMatrixPerspectiveFovLH(&projection, D3DX_PI / 4.0f, static_cast<float>(width) / height, 0.5f, 50.0f);
        D3DXMatrixMultiply(&viewProjection, &view, &projection);
        // Where the compiler put the matrix, and in which order, is the constant table's to say.
        m_vsConstants->SetMatrix(device, "viewProjection", &viewProjection);
        device->SetVertexShader(m_vs);
        device->SetPixelShader(m_ps);

        rs->SetDepthCheckEnabled(true);
        rs->SetDepthWriteEnabled(true);
        rs->SetDepthFunction(kv::CMPF_LESS_EQUAL);
        rs->SetCullingMode(kv::CULL_NONE);
        rs->SetVertexBuffers(0, m_meshData.get(), 0);
        rs->SetIndexBuffer(m_indices.get());
        // No mip filter: the files load into textures that generate their own
        // levels, and Wine's device (measured here) leaves those levels black.
        kv::SamplerState sampler;
        sampler.mipFilter = kv::FO_NONE;
        // One instanced draw a row, each with its row's texture.
        for (unsigned row = 0; row < kRows; ++row)
        {
            rs->SetTexture(0, m_textures[row % 4].get(), sampler);
            rs->SetVertexBuffers(1, m_instanceData.get(), row * kColumns * sizeof(CubeInstance));
            rs->DrawPrimitive(kv::PT_TRIANGLE_LIST, m_meshData.get(), m_indexData.get(), kColumns, true);
        }
        rs->SetTexture(0, nullptr, sampler);
        device->SetVertexShader(nullptr);
        device->SetPixelShader(nullptr);
    }

    void Release()
    {
        m_meshData = nullptr;
        m_instanceData = nullptr;
        m_indexData = nullptr;
        m_declaration = nullptr;
        m_mesh = nullptr;
        m_indices = nullptr;
        m_instances = nullptr;
        for (ref_ptr<kv::CTexture>& t : m_textures)
            t = nullptr;
        if (m_vsConstants)
            m_vsConstants->Release();
        m_vsConstants = nullptr;
        if (m_vs)
            m_vs->Release();
        if (m_ps)
            m_ps->Release();
        m_vs = nullptr;
        m_ps = nullptr;
    }

private:
    IDirect3DVertexShader9* m_vs = nullptr;
    IDirect3DPixelShader9* m_ps = nullptr;
    ID3DXConstantTable* m_vsConstants = nullptr;
    ref_ptr<kv::CVertexDeclaration> m_declaration;
    ref_ptr<kv::CTexture> m_textures[4];
    ref_ptr<kv::CHardwareVertexBuffer> m_mesh;
    ref_ptr<kv::CHardwareIndexBuffer> m_indices;
    ref_ptr<kv::CHardwareVertexBuffer> m_instances;
    ref_ptr<kv::CVertexData> m_meshData;
    ref_ptr<kv::CVertexData> m_instanceData;
    ref_ptr<kv::CIndexData> m_indexData;
};

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

    // The frames. Each clears the whole window (colour, depth and stencil),
    // draws the cubes and presents. Half-way the window grows and the device is
    // reset to its new size through the render system's Reset.
    const unsigned newWidth = 800, newHeight = 450;
    unsigned drawn = 0, scenesRefused = 0, unavailable = 0;
    unsigned frameWidth = width, frameHeight = height;
    CallCounts firstFrame, secondFrame, allFrames;
    bool saved = false, sceneMade = false, resetOk = false;
    kv::CTimer lastFrame = {};
    unsigned long long totalDraws = 0, totalPrimitives = 0, totalVertices = 0, totalInstances = 0;
    kv::CRenderWindow* window = rs->m_pMainWindow.get();
    CubeGrid grid;
    if (ok && window)
    {
        sceneMade = grid.Make(rs, rs->GetD3D9Device());
        std::printf("demo: cube grid of %u cubes %s\n", kCubes, sceneMade ? "made" : "could NOT be made");
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
            }
            if (!rs->IsDeviceAvailable())
            {
                ++unavailable;
                continue;
            }
            kv::GetTimer()->Reset();
            // What the render system asks of the device in this frame; the
            // D3DX save of the last frame is left out.
            CallCounts counts;
            kvproxy::Mark start = kvproxy::Here();
            if (!window->_beginUpdate())
            {
                ++scenesRefused;
                continue;
            }
            const kv::CViewport whole(window, 0.0f, 0.0f, 1.0f, 1.0f);
            rs->_setViewport(whole, 7, &background, 1.0f, 0);
            grid.Draw(rs, rs->GetD3D9Device(), static_cast<float>(frame) * 0.05f, frameWidth, frameHeight);
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
    grid.Release();
    std::printf("demo: %u frames drawn through _beginUpdate, _setViewport, one textured, instanced DrawPrimitive a "
                "row, _endUpdate and "
                "swapBuffers; %u scenes refused, %u frames skipped on an unavailable device\n",
                drawn, scenesRefused, unavailable);
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
    std::printf("demo: last frame (%ux%u) %s out/demo.png\n", frameWidth, frameHeight,
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
    return ok && saved && resetOk ? 0 : 1;
}
