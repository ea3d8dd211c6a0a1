// A render system started by Init on a real window of Wine's Direct3D 9, loaded
// through the recording d3d9.dll, with a probe resource in the registry that
// counts what a reset tells it, and a scene of two quads whose pixels show
// whether buffers of both pools came through a reset.
#pragma once

#include "D3D9HardwareVertexBuffer.h"
#include "D3D9RenderSystem.h"
#include "D3D9RenderWindow.h"
#include "D3D9Resource.h"

#include "engine/IndexData.h"
#include "engine/Log.h"
#include "engine/VertexData.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ProxyExpect.h"

// Counts the registry's notifications and notes, at each, how far the device's
// trace and the log had got: that tells the order of a reset's steps.
class ProbeResource : public kv::CD3D9Resource
{
public:
    void notifyOnDeviceLost() override;
    void notifyOnDeviceReset() override;

    int lost = 0;
    int reset = 0;
    uint32_t traceAtLost = 0;
    uint32_t traceAtReset = 0;
    size_t logAtLost = 0;
    size_t logAtReset = 0;
    // The render state shadow of ZENABLE when the resources were told of the loss.
    uint32_t zShadowAtLost = 0;
    int engineResetsAtReset = 0;
};

struct ColourVertex
{
    float x, y, z;
    uint32_t colour;
};

class ResetTest : public ::testing::Test
{
protected:
    static constexpr unsigned kWidth = 64;
    static constexpr unsigned kHeight = 64;
    static constexpr uint32_t kClear = 0xFF000080;
    static constexpr uint32_t kRed = 0xFFFF0000;
    static constexpr uint32_t kGreen = 0xFF00FF00;

    void SetUp() override { Start(false, 0); }
    void TearDown() override;

    // A window, a render system and Init with these settings; the window is
    // made with this style and parent.
    void Start(bool vsync, unsigned fsaa, DWORD style = WS_OVERLAPPEDWINDOW, DWORD exStyle = 0);

    // Through the engine's entry, for the main window.
    bool ResetMain(unsigned width, unsigned height, bool fullScreen = false, bool vsync = false, unsigned fsaa = 0)
    {
        return rs->Reset(hWnd, width, height, fullScreen, vsync, fsaa);
    }

    // The quads: red on the left from a managed buffer, green on the right from
    // a dynamic, discardable one in the default pool.
    void MakeScene();
    // The default-pool buffer's content does not outlive a reset: its owner
    // writes it again.
    void RefillDefaultBuffer();
    // Draws both quads in a frame and checks the pixels on a back buffer of
    // this size: red left, green right, the clear colour between.
    void DrawAndCheckScene(unsigned width, unsigned height);
    std::vector<uint32_t> ReadBack(unsigned* width, unsigned* height);

    int EngineResets() const;
    static std::vector<std::string> Texts(kv::LogLevel level) { return kv::GetLogTexts(level); }
    // The warning of a refused device reset.
    static std::string ResetWarning(HRESULT hr, unsigned width, unsigned height, bool fullScreen);
    // The present parameters the device's Reset calls since `from` were given.
    static std::vector<D3DPRESENT_PARAMETERS> ResetParameters(kvproxy::Mark from);

    HWND hWnd = nullptr;
    HWND hParent = nullptr;
    kv::CRenderSystem* rs = nullptr;
    kv::CD3D9RenderSystem* d3d = nullptr;
    IDirect3DDevice9* device = nullptr;
    ProbeResource* probe = nullptr;
    int engineResetsAtStart = 0;

    ref_ptr<kv::CVertexDeclaration> declaration;
    ref_ptr<kv::CHardwareVertexBuffer> managed;
    ref_ptr<kv::CHardwareVertexBuffer> dynamic;
    ref_ptr<kv::CHardwareIndexBuffer> indices;
    std::vector<ColourVertex> greenQuad;
};
