// The start every device suite shares (the recording d3d9.dll, the engine's log and globals as a process starts
// them, a window and a render system on it, Init run by SetUp unless a suite starts it itself) and what a test reads.
#pragma once

#include "D3D9HardwareIndexBuffer.h"
#include "D3D9HardwareVertexBuffer.h"
#include "D3D9RenderSystem.h"
#include "D3D9RenderWindow.h"
#include "D3D9Texture.h"
#include "D3D9VertexDeclaration.h"

#include "engine/DeviceCapabilities.h"
#include "engine/Globals.h"
#include "engine/IndexData.h"
#include "engine/Log.h"
#include "engine/Texture.h"
#include "engine/Timer.h"
#include "engine/VertexData.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ProxyExpect.h"

namespace kvtest
{

// Position in clip space and a colour: the layout of ColourDeclaration.
struct ColourVertex
{
    float x, y, z;
    uint32_t colour;
};

constexpr uint32_t kClear = 0xFF000080;
constexpr uint32_t kRed = 0xFFFF0000;
constexpr uint32_t kGreen = 0xFF00FF00;

// A quad from (x0, y0) to (x1, y1), two triangles by kQuadIndices.
std::vector<ColourVertex> Quad(float x0, float y0, float x1, float y1, uint32_t colour);
extern const std::vector<uint16_t> kQuadIndices;

// "<hr>, <name>, <description>", as the render system writes a failure.
std::string HrText(HRESULT hr);
// "D3D9Verify:<hr>, <name>, <description>[, <what>]".
std::string VerifyLine(HRESULT hr, const char* what = nullptr);
inline const auto Texts = kv::GetLogTexts;
inline const auto Errors = [] { return kv::GetLogTexts(kv::LOG_ERROR); };
size_t CountOf(const std::vector<std::string>& lines, const std::string& text);

// The first `n` arguments of each call of `m` since `from`.
typedef std::vector<std::vector<uint64_t>> ArgList;
ArgList ArgsOf(kvproxy::Mark from, kvproxy::Method m, unsigned n);

// The calls since `from` (all, or only these methods) as blank-separated
// "Name(arg,arg)" words of their first `args` arguments; Call writes one word, Join joins words.
std::string Trace(kvproxy::Mark from, std::initializer_list<kvproxy::Method> only = {}, unsigned args = 8);
template <class... A>
std::string Call(const char* name, A... args)
{
    const uint64_t values[] = {static_cast<uint64_t>(args)..., 0};
    std::string s = std::string(name) + "(";
    for (size_t i = 0; i < sizeof...(args); ++i)
        s += (i ? "," : "") + std::to_string(values[i]);
    return s + ")";
}
// Words joined by blanks, the empty ones left out.
template <class... S>
std::string Join(const S&... words)
{
    std::string s;
    ((s += (s.empty() || std::string(words).empty() ? "" : " ") + std::string(words)), ...);
    return s;
}
// A float's bit pattern, as Direct3D takes float states.
uint32_t Bits(float f);

// A texture of the plug-in's own kind with no Direct3D texture made yet: the render
// system takes every texture for its own, so a texture of another class would not do
// for the roads that only hold or bind one, such as a depth texture or a sampler's.
using StandInTexture = kv::CD3D9Texture;

} // namespace kvtest

class KvDeviceTest : public ::testing::Test
{
protected:
    explicit KvDeviceTest(unsigned width = 64, unsigned height = 64) : kWidth(width), kHeight(height) {}

    void SetUp() override;
    void TearDown() override;

    // Everything up to Init; a WS_CHILD main window gets a parent window of its own.
    void Open(DWORD style = WS_OVERLAPPEDWINDOW, DWORD exStyle = 0);
    // Init on the main window, windowed; the trace is marked just before.
    bool Init(bool vsync = false, unsigned fsaa = 0);
    // Init that must succeed, leaving the log empty.
    void Start(bool vsync = false, unsigned fsaa = 0);
    void NewRenderSystem();
    void EndRenderSystem();

    // A top-level window of this client size, destroyed by TearDown.
    HWND MakeWindow(unsigned width, unsigned height, DWORD style = WS_OVERLAPPEDWINDOW, HWND parent = nullptr,
                    DWORD exStyle = 0);
    kv::CD3D9RenderWindow* MainWindow() const { return dynamic_cast<kv::CD3D9RenderWindow*>(rs->m_pMainWindow.get()); }
    // The calls of one method since the mark.
    std::vector<KvProxyCall> Calls(kvproxy::Method m) const { return kvproxy::CallsSince(mark, m); }
    // Present parameters as one word: size, format, buffers, samples and quality, swap, windowed, auto depth
    // and its format, flags, rate, interval, and whether on the main window.
    std::string Describe(const D3DPRESENT_PARAMETERS& pp) const;
    // Those of the last call of `m` (D3D9_CreateDevice or Reset) since the mark.
    std::string PresentedBy(kvproxy::Method m) const;

    // A render target's pixels, row by row, through a system-memory copy, the top byte set.
    std::vector<uint32_t> ReadPixels(IDirect3DSurface9* surface, unsigned* width = nullptr);
    std::vector<uint32_t> ReadBackBuffer(unsigned* width = nullptr);

    ref_ptr<kv::CVertexDeclaration> ColourDeclaration();
    ref_ptr<kv::CHardwareVertexBuffer> VertexBuffer(const std::vector<kvtest::ColourVertex>& vertices,
                                                    unsigned usage = kv::CHardwareBuffer::USAGE_STATIC);
    ref_ptr<kv::CHardwareIndexBuffer> IndexBuffer16(const std::vector<uint16_t>& indices,
                                                    unsigned usage = kv::CHardwareBuffer::USAGE_STATIC);
    ref_ptr<kv::CVertexData> VertexData(kv::CVertexDeclaration* declaration, kv::CHardwareVertexBuffer* buffer,
                                        unsigned start, unsigned count);
    ref_ptr<kv::CIndexData> IndexData(kv::CHardwareIndexBuffer* buffer, unsigned start, unsigned count);
    // Untransformed vertices coloured by their diffuse colour alone, as after a reset.
    void FixedFunctionColour();
    // A frame begun on a back buffer cleared to kClear.
    void BeginClearedFrame();

    static auto* D3D(kv::CHardwareVertexBuffer* b) { return static_cast<kv::CD3D9HardwareVertexBuffer*>(b); }
    static auto* D3D(kv::CHardwareIndexBuffer* b) { return static_cast<kv::CD3D9HardwareIndexBuffer*>(b); }
    static IDirect3DVertexDeclaration9* Native(kv::CVertexDeclaration* d)
    {
        return static_cast<kv::CD3D9VertexDeclaration*>(d)->m_pD3D9VertexDeclaration;
    }
    kv::CTimer& Timer() { return *kv::GetTimer(); }

    const unsigned kWidth;
    const unsigned kHeight;
    HWND hWnd = nullptr;
    std::vector<HWND> windows;
    kv::CRenderSystem* rs = nullptr;
    kv::CD3D9RenderSystem* d3d = nullptr;
    IDirect3DDevice9* device = nullptr;
    kvproxy::Mark mark{0};
};
