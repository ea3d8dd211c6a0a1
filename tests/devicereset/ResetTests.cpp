// When a lost device is reset or waits, the order of a reset's steps as a probe resource sees them,
// the pixels of both buffer pools after it, and the explanations of a refused switch to full screen.
#include "KvDeviceTest.h"

#include "D3D9Resource.h"

#include "engine/Root.h"

using namespace kv;
using namespace kvtest;
using kvproxy::Method;

namespace
{

// Counts the registry's notifications and notes at each how far the trace and the log had got: the steps' order.
struct ProbeResource : CD3D9Resource
{
    void notifyOnDeviceLost() override
    {
        ++lost;
        traceAtLost = kvproxy::Here().index;
        logAtLost = GetLogLineCount();
        zShadowAtLost = GetD3D9RenderSystem()->m_renderStates.at(D3DRS_ZENABLE);
    }
    void notifyOnDeviceReset() override
    {
        ++reset;
        traceAtReset = kvproxy::Here().index;
        logAtReset = GetLogLineCount();
        engineResetsAtReset = GetRoot()->m_nDeviceResetCount;
    }

    int lost = 0, reset = 0, engineResetsAtReset = 0;
    uint32_t traceAtLost = 0, traceAtReset = 0, zShadowAtLost = 0;
    size_t logAtLost = 0, logAtReset = 0;
};

// The two texts the engine's GBK code page gives to a window that cannot take the whole screen.
const char kNotChild[] = "\xC8\xAB\xC6\xC1\xB5\xC4\xB4\xB0\xBF\xDA\xB1\xD8\xD0\xEB\xB7\xC7"
                         "WS_CHILD";
const char kNotTopmost[] = "\xC8\xAB\xC6\xC1\xB5\xC4\xB4\xB0\xBF\xDA\xB1\xD8\xD0\xEB\xCA\xC7"
                           "TOPMOST";
const char kHasParent[] = "Failed to ResetFullScreen, as window has parent window!";

struct ResetTest : KvDeviceTest
{
    void SetUp() override { Restart(false, 0); }
    void TearDown() override
    {
        declaration = nullptr;
        managed = dynamic = nullptr;
        indices = nullptr;
        delete probe;
        probe = nullptr;
        KvDeviceTest::TearDown();
    }

    // A window of this style, a render system and Init with these settings, the probe in the registry.
    void Restart(bool vsync, unsigned fsaa, DWORD style = WS_OVERLAPPEDWINDOW)
    {
        TearDown();
        Open(style);
        ASSERT_FALSE(HasFatalFailure());
        Start(vsync, fsaa);
        ASSERT_FALSE(HasFatalFailure());
        probe = new ProbeResource;
        ASSERT_GE(probe->m_nResourceIndex, 0) << "the probe did not enter the registry";
        engineResetsAtStart = GetRoot()->m_nDeviceResetCount;
    }

    bool ResetMain(unsigned width, unsigned height, bool fullScreen = false, bool vsync = false, unsigned fsaa = 0)
    {
        return rs->Reset(hWnd, width, height, fullScreen, vsync, fsaa);
    }
    int EngineResets() const { return GetRoot()->m_nDeviceResetCount - engineResetsAtStart; }
    // How often the probe heard of a loss and of a reset, and the engine of a reset.
    std::string Told() const { return Call("", probe->lost, probe->reset, EngineResets()); }
    // The default-pool buffer of the scene.
    IDirect3DVertexBuffer9* DynamicNative() { return D3D(dynamic.get())->m_pD3D9VertexBuffer; }

    // The quads: red on the left from a managed buffer, green on the right from a dynamic, discardable
    // one in the default pool; the indices of both in the default pool too.
    void MakeScene()
    {
        const unsigned streaming =
            CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_WRITE_ONLY | CHardwareBuffer::USAGE_DISCARDABLE;
        declaration = ColourDeclaration();
        greenQuad = Quad(0.25f, -0.5f, 0.75f, 0.5f, kGreen);
        managed = VertexBuffer(Quad(-0.75f, -0.5f, -0.25f, 0.5f, kRed));
        dynamic = VertexBuffer(greenQuad, streaming);
        indices = IndexBuffer16(kQuadIndices, streaming);
        ASSERT_TRUE(declaration && managed && dynamic && indices);
        ASSERT_EQ(Call("", D3DPOOL_MANAGED, D3DPOOL_DEFAULT, D3DPOOL_DEFAULT),
                  Call("", D3D(managed.get())->m_d3dDesc.Pool, D3D(dynamic.get())->m_d3dDesc.Pool,
                       D3D(indices.get())->m_d3dDesc.Pool));
    }

    // The default-pool buffers' content does not outlive a reset: their owner writes it again; then both
    // quads are drawn and checked on a back buffer of this size: red left, green right, the clear colour between.
    void RefillDrawAndCheckScene(unsigned width, unsigned height)
    {
        dynamic->WriteData(0, dynamic->mSizeInBytes, greenQuad.data(), true);
        indices->WriteData(0, indices->mSizeInBytes, kQuadIndices.data(), true);
        FixedFunctionColour();
        BeginClearedFrame();
        ref_ptr<CIndexData> quad = IndexData(indices.get(), 0, 6);
        for (CHardwareVertexBuffer* buffer : {managed.get(), dynamic.get()})
        {
            ref_ptr<CVertexData> data = VertexData(declaration.get(), buffer, 0, 4);
            rs->SetVertexBuffer(data.get());
            rs->SetIndexBuffer(indices.get());
            rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), quad.get(), 1, false);
        }
        rs->_endFrame();

        unsigned w = 0;
        std::vector<uint32_t> pixels = ReadBackBuffer(&w);
        ASSERT_EQ(Call("", width, width * height), Call("", w, pixels.size()));
        auto at = [&](double fx, double fy) { return pixels[unsigned(fy * height) * w + unsigned(fx * w)]; };
        // Clip x -0.75..-0.25 is an eighth to three eighths across, 0.25..0.75 five to seven eighths;
        // y -0.5..0.5 the middle half. Red from the managed buffer, green from the default pool.
        EXPECT_EQ((std::vector<uint32_t>{kRed, kRed, kGreen, kGreen, kClear, kClear, kClear}),
                  (std::vector<uint32_t>{at(0.25, 0.5), at(0.17, 0.3), at(0.75, 0.5), at(0.82, 0.7), at(0.5, 0.5),
                                         at(0.25, 0.1), at(0.75, 0.9)}));
    }

    // The warning of a refused device reset.
    static std::string ResetWarning(HRESULT hr, unsigned width, unsigned height, bool fullScreen)
    {
        return "failed to reset a D3D device, " + std::to_string(static_cast<unsigned>(hr)) + ", " +
               DXGetErrorString(hr) + ", " + DXGetErrorDescription(hr) + ", W:" + std::to_string(width) +
               ", H:" + std::to_string(height) + ", FullScreen:" + (fullScreen ? "true" : "false");
    }
    // Those of the device Reset that a windowed reset of the main window makes.
    std::string ResetParams(unsigned width, unsigned height, bool vsync, unsigned fsaa)
    {
        mark = kvproxy::Here();
        return ResetMain(width, height, false, vsync, fsaa) ? PresentedBy(Method::Reset) : "refused";
    }

    ProbeResource* probe = nullptr;
    int engineResetsAtStart = 0;
    ref_ptr<CVertexDeclaration> declaration;
    ref_ptr<CHardwareVertexBuffer> managed, dynamic;
    ref_ptr<CHardwareIndexBuffer> indices;
    std::vector<ColourVertex> greenQuad;
};

} // namespace

TEST_F(ResetTest, ALostDeviceWaitsForTheFrameToEndARefusedResetIsTriedAgainAndStepsRunInOrder)
{
    ASSERT_NO_FATAL_FAILURE(MakeScene());
    auto from = kvproxy::Here();

    // Lost: nothing is reset, released or told; samplers stay alone.
    kvproxy::LoseDevice();
    EXPECT_FALSE(rs->IsDeviceAvailable() || rs->IsDeviceAvailable());
    d3d->SetAnisotropy(true, 4);
    rs->ApplyTextureAnisotropy();
    EXPECT_TRUE(kvproxy::NoCallsOf(from, {Method::Reset, Method::SetSamplerState}));
    EXPECT_EQ("(0,0,0)", Told());

    // Resettable inside a frame: still waiting until the frame ends.
    kvproxy::AllowDeviceReset();
    ASSERT_TRUE(rs->_beginFrame());
    EXPECT_FALSE(rs->IsDeviceAvailable());
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::Reset));
    EXPECT_EQ("(0,0,0)", Told());
    rs->_endFrame();

    // A refused reset leaves every default-pool object released; a windowed one explains nothing beyond its warning.
    kvproxy::FailMethod(Method::Reset, D3DERR_DEVICELOST, 2);
    EXPECT_FALSE(rs->IsDeviceAvailable() || rs->IsDeviceAvailable());
    EXPECT_EQ("(2,0,0)", Told());
    EXPECT_TRUE(DynamicNative() == nullptr && D3D(indices.get())->m_pD3D9IndexBuffer == nullptr);
    EXPECT_EQ(2u, CountOf(Texts(LOG_WARNING), ResetWarning(D3DERR_DEVICELOST, kWidth, kHeight, false)));
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
    // Once working, asking again resets nothing.
    EXPECT_TRUE(rs->IsDeviceAvailable() && rs->IsDeviceAvailable());
    EXPECT_TRUE(kvproxy::ResultsAre(from, Method::Reset, {D3DERR_DEVICELOST, D3DERR_DEVICELOST, D3D_OK}));
    EXPECT_EQ("(3,1,1)", Told());
    // The default-pool buffer was made anew in the reset.
    EXPECT_NE(nullptr, DynamicNative());
    RefillDrawAndCheckScene(kWidth, kHeight);

    // The main window's present finds a lost device and resets it.
    kvproxy::LoseDevice();
    kvproxy::AllowDeviceReset();
    from = kvproxy::Here();
    rs->m_pMainWindow->swapBuffers();
    EXPECT_EQ(1u, kvproxy::CountSince(from, Method::Reset));
    EXPECT_EQ("(4,2,2)", Told());
    RefillDrawAndCheckScene(kWidth, kHeight);

    // A reset of the working device asked for by the engine runs its steps in order.
    d3d->SetDepthCheckEnabled(true);
    d3d->_setRenderState(D3DRS_LIGHTING, FALSE);
    rs->m_activeRenderTarget = rs->m_pMainWindow.get();
    d3d->m_pActiveDepthBuffer = rs->m_pMainWindow->m_pDepthBuffer;
    IDirect3DSurface9* copy = nullptr;
    ASSERT_EQ(D3D_OK, device->CreateOffscreenPlainSurface(4, 4, D3DFMT_X8R8G8B8, D3DPOOL_SYSTEMMEM, &copy, nullptr));
    d3d->m_mapReadbackSurfaces[{4, 4, D3DFMT_X8R8G8B8}] = copy;
    copy->AddRef(); // ours, to see the reset let go of the map's
    ClearLog();
    from = kvproxy::Here();
    ASSERT_TRUE(ResetMain(kWidth, kHeight));
    ASSERT_EQ(1u, kvproxy::CountSince(from, Method::Reset));
    uint32_t resetAt = from.index;
    while (kvproxy::MethodOf(*kvproxy::TraceAt(resetAt)) != Method::Reset)
        ++resetAt;
    // Shadows unknown and the attempt announced before the resources hear of the
    // loss, all of that before the device's Reset; the rebuild after it, the engine told last.
    EXPECT_EQ(CD3D9RenderSystem::kUnknownState, probe->zShadowAtLost);
    EXPECT_LE(probe->traceAtLost, resetAt); // the trace's next index when told
    EXPECT_GT(probe->traceAtReset, resetAt);
    EXPECT_EQ(2, probe->engineResetsAtReset - engineResetsAtStart);
    EXPECT_EQ("(5,3,3)", Told());
    // The success line comes after the resources are rebuilt.
    EXPECT_EQ((std::vector<std::string>{"Try to ResetDevice, 64, 64", "Success ResetDevice,64, 64, FullScreen:false"}),
              Texts(LOG_INFO));
    EXPECT_EQ(Call("", 1, 1), Call("", probe->logAtLost, probe->logAtReset));

    // The bound target and depth buffer were forgotten, the read-back copies released.
    EXPECT_TRUE(!rs->_getRenderTarget() && !d3d->m_pActiveDepthBuffer.get() && d3d->m_mapReadbackSurfaces.empty());
    EXPECT_EQ(0u, copy->Release());
    // The engine's stored states go back to the device after the Reset.
    EXPECT_TRUE(kvproxy::CalledInOrder(from, {Method::Reset, Method::GetScissorRect, Method::SetRenderState}));
}

TEST_F(ResetTest, PresentParametersOfEachReset)
{
    // Vsync off keeps two back buffers, and so does vsync on again.
    ASSERT_NO_FATAL_FAILURE(Restart(true, 0));
    ASSERT_EQ(2u, d3d->m_d3dpp.BackBufferCount);
    EXPECT_EQ("(64,64,22,2,0,0,1,1,1,75,0,0,2147483648,1)", ResetParams(kWidth, kHeight, false, 0));
    EXPECT_EQ("(64,64,22,2,0,0,1,1,1,75,0,0,1,1)", ResetParams(kWidth, kHeight, true, 0));

    // A new size without multisampling reaches the back buffer; samples come back when asked.
    ASSERT_NO_FATAL_FAILURE(Restart(false, 4));
    ASSERT_EQ(D3DMULTISAMPLE_4_SAMPLES, d3d->m_d3dpp.MultiSampleType);
    ASSERT_NO_FATAL_FAILURE(MakeScene());
    EXPECT_EQ("(96,48,22,1,0,0,1,1,1,75,0,0,2147483648,1)", ResetParams(96, 48, false, 0));
    EXPECT_EQ("Success ResetDevice,96, 48, FullScreen:false", Texts(LOG_INFO).back());
    RefillDrawAndCheckScene(96, 48); // a multisampled back buffer could not be read back
    EXPECT_EQ("(96,48,22,1,4,0,1,1,1,75,0,0,2147483648,1)", ResetParams(96, 48, false, 4));

    // A secondary window's reset resizes that window and leaves the device alone; a handle
    // no window owns and a size the window turns down are refused before the device is asked.
    HWND other = MakeWindow(32, 32);
    ASSERT_NE(nullptr, other);
    const kvproxy::Mark from = kvproxy::Here();
    {
        ref_ptr<CRenderWindow> second = rs->CreateRenderWindow(other, 32, 32, false);
        ASSERT_TRUE(second);
        EXPECT_TRUE(rs->Reset(other, 48, 40, false, true, 4));
        EXPECT_EQ(48u, second->getWidth());
        EXPECT_EQ("(96,48,22,1,4,0,1,1,1,75,0,0,2147483648,1)", Describe(d3d->m_d3dpp));
    }
    EXPECT_FALSE(rs->Reset(reinterpret_cast<HWND>(static_cast<uintptr_t>(0x1234)), 32, 32, false, false, 0));
    EXPECT_FALSE(ResetMain(0, 32));
    EXPECT_EQ(0u, kvproxy::CountSince(from, Method::Reset));
}

// The switches to full screen are refused through the recording d3d9: the real device never takes the display.
TEST_F(ResetTest, FullScreenNeedsATopmostTopLevelWindow)
{
    kvproxy::FailMethod(Method::Reset, D3DERR_INVALIDCALL, 2);
    EXPECT_FALSE(ResetMain(kWidth, kHeight, true));
    EXPECT_EQ(std::vector<std::string>{ResetWarning(D3DERR_INVALIDCALL, kWidth, kHeight, true)}, Texts(LOG_WARNING));
    EXPECT_EQ(std::vector<std::string>{kNotTopmost}, Errors());
    // A topmost top-level window has nothing to explain beyond the warning.
    ClearLog();
    SetWindowPos(hWnd, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    ASSERT_TRUE(GetWindowLongA(hWnd, GWL_EXSTYLE) & WS_EX_TOPMOST);
    EXPECT_FALSE(ResetMain(kWidth, kHeight, true));
    EXPECT_EQ(1u, Texts(LOG_WARNING).size());
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());

    // A child window cannot be topmost either, so all three reasons hold.
    ASSERT_NO_FATAL_FAILURE(Restart(false, 0, WS_CHILD | WS_VISIBLE));
    kvproxy::FailMethod(Method::Reset, D3DERR_INVALIDCALL, 1);
    mark = kvproxy::Here();
    EXPECT_FALSE(ResetMain(kWidth, kHeight, true));
    EXPECT_EQ("(64,64,22,1,0,0,1,0,1,75,0,0,2147483648,1)", PresentedBy(Method::Reset));
    EXPECT_EQ(std::vector<std::string>{ResetWarning(D3DERR_INVALIDCALL, kWidth, kHeight, true)}, Texts(LOG_WARNING));
    EXPECT_EQ((std::vector<std::string>{kHasParent, kNotChild, kNotTopmost}), Errors());
    EXPECT_EQ("(1,0,0)", Told());
}
