// The fault storm: seeded random failures on every creation, lock, reset, present,
// query and compile call while a scene makes, uses and drops resources. Every
// failure the render system meets must be told in the log, nothing may crash,
// the scene must draw again once the faults stop, and the leak report must stay
// empty.
#include "ImageFiles.h"
#include "ProgramFixture.h"
#include "SoakSupport.h"
#include "TexturesFixture.h"

#include "D3D9HardwarePixelBuffer.h"

#include "engine/GfxTimerQuery.h"
#include "engine/HardwareOcclusionQuery.h"

#include "DcRecorder.h"

#include <random>

using namespace kv;
using namespace kvtest;

namespace
{

const unsigned kStreaming =
    CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_WRITE_ONLY | CHardwareBuffer::USAGE_DISCARDABLE;

// The failures of these classes reach the render system as failed calls it must
// report. Two kinds of lock are left out where they happen: a buffer's constructor
// fills it with its first data through a lock whose failure goes unsaid by design
// (its later writes report theirs), and Wine's D3DX does not always pass on a
// failed lock of its own (loading a file, copying a surface): what D3DX calls a
// success the render system cannot report.
const uint32_t kReported = KV_PROXY_RANDOM_CREATE | KV_PROXY_RANDOM_LOCK | KV_PROXY_RANDOM_RESET;
const uint32_t kMade = KV_PROXY_RANDOM_CREATE;

class FaultStorm : public LitTest
{
protected:
    static bool IsCompileFailure(const std::string& line) { return line.find(":D3DCompile:") != std::string::npos; }
    // Errors and warnings but those of the compile thread, which come when they come.
    size_t LoggedProblems() const
    {
        size_t n = 0;
        for (kv::LogLevel level : {LOG_ERROR, LOG_WARNING})
            for (const std::string& line : Texts(level))
                n += !IsCompileFailure(line);
        return n;
    }
    // Takes the compile thread's failure lines out of the log before it is cleared.
    void Harvest()
    {
        for (const std::string& line : Texts(LOG_ERROR))
            compileFailuresLogged += IsCompileFailure(line);
        ClearLog();
    }
    // One step of the storm: each failure it met of the classes it must report
    // leaves at least one error or warning.
    template <class F>
    void Step(const char* what, uint32_t reported, F&& body)
    {
        Harvest();
        kvproxy::ClearTrace();
        body();
        std::string met;
        for (const KvProxyCall& c : kvproxy::CallsSince(kvproxy::Mark{0}))
            if ((c.flags & KV_PROXY_CALL_FAULTED) && (ClassOf(c) & reported))
                met += std::string(" ") + kvproxy::MethodName(kvproxy::MethodOf(c)) + "=" + std::to_string(c.result);
        if (!met.empty() && LoggedProblems() == 0 && ++silent <= 5)
            ADD_FAILURE() << what << ": injected failures and nothing logged:" << met;
    }
    static uint32_t ClassOf(const KvProxyCall& c)
    {
        const std::string name = kvproxy::MethodName(kvproxy::MethodOf(c));
        const auto endsWith = [&](const char* tail) {
            const std::string t(tail);
            return name.size() >= t.size() && name.compare(name.size() - t.size(), t.size(), t) == 0;
        };
        // Timer queries log nothing by design: a failed one measures 0.
        if (kvproxy::MethodOf(c) == kvproxy::Method::CreateQuery &&
            (c.args[0] == D3DQUERYTYPE_TIMESTAMP || c.args[0] == D3DQUERYTYPE_TIMESTAMPFREQ))
            return 0;
        if (name.compare(0, 6, "Create") == 0 || name == "D3D9_CreateDevice")
            return KV_PROXY_RANDOM_CREATE;
        if (endsWith("_Lock") || endsWith("_LockRect") || endsWith("_LockBox"))
            return KV_PROXY_RANDOM_LOCK;
        return kvproxy::MethodOf(c) == kvproxy::Method::Reset ? KV_PROXY_RANDOM_RESET : 0;
    }
    ref_ptr<CVertexDeclaration> declaration;
    unsigned silent = 0;
    unsigned compileFailuresLogged = 0;
};

TEST_F(FaultStorm, EveryFailureIsToldAndTheSceneComesBack)
{
    const unsigned frames = soak::Size("KV_SOAK_STORM_FRAMES", 60);
    const uint32_t perMillion = soak::Size("KV_SOAK_STORM_RATE", 100000);
    const uint32_t seed = soak::Seed("fault storm");
    ASSERT_TRUE(kvdc::Available()) << "the storm runs with the recording d3dcompiler_43.dll beside it";
    std::mt19937 random(seed);
    declaration = ColourDeclaration();
    const kvtex::Bytes png = soak::WriteWithD3DX(device, D3DXIFF_PNG, 8, 8, kvtex::Pattern(8, 8, 2));
    ASSERT_FALSE(png.empty());
    const std::vector<uint32_t> pixels = kvtex::Pattern(16, 16);
    const std::vector<ColourVertex> quad = Quad(-0.5f, -0.5f, 0.5f, 0.5f, kRed);
    ref_ptr<CHardwareOcclusionQuery> occlusion = rs->CreateHardwareOcclusionQuery();
    GfxTimerQuery* timer = rs->CreateTimerQuery();
    std::vector<ref_ptr<CTexture>> kept(6);
    std::vector<ref_ptr<CHardwareVertexBuffer>> buffers(4);

    kvproxy::SetRandomFaults(seed, perMillion);
    kvdc::Reset();
    kvdc::SetRandomFaults(seed, 150000);
    soak::Watchdog watchdog("the fault storm", 120);
    for (unsigned frame = 0; frame < frames; ++frame)
    {
        watchdog.Tick();
        Step("vertex buffer", kMade,
             [&] { buffers[random() % buffers.size()] = VertexBuffer(quad, random() % 2 ? kStreaming : 0); });
        Step("index buffer", kMade, [&] { IndexBuffer16(kQuadIndices, random() % 2 ? kStreaming : 0); });
        Step("buffer write", kReported, [&] {
            if (CHardwareVertexBuffer* b = buffers[random() % buffers.size()].get())
                b->WriteData(0, b->mSizeInBytes, quad.data(), random() % 2 == 0);
        });
        Step("manual texture", kReported, [&] {
            const unsigned usage = random() % 3 == 0 ? static_cast<unsigned>(TU_DYNAMIC) : 0u;
            ref_ptr<CTexture> t = rs->CreateTextureManual(TEX_TYPE_2D, 16, 16, 1, 0, PF_A8R8G8B8, usage, 0, false);
            if (t)
                t->getBuffer(0, 0)->blitFromMemory(
                    PixelBox(16, 16, 1, PF_A8R8G8B8, const_cast<uint32_t*>(pixels.data())), Box(0, 0, 0, 16, 16, 1));
            kept[random() % kept.size()] = t;
        });
        Step("render texture", kReported, [&] {
            ref_ptr<CTexture> t =
                rs->CreateTextureManual(TEX_TYPE_2D, 16, 16, 1, 0, PF_A8R8G8B8, TU_RENDERTARGET, 0, false);
            if (t && t->getBuffer(0, 0) && t->getBuffer(0, 0)->getRenderTarget(0))
            {
                const CColour green(0, 1, 0, 1);
                rs->_setViewport(CViewport(t->getBuffer(0, 0)->getRenderTarget(0), 0, 0, 16, 16), 1, &green, 1, 0);
            }
            kept[random() % kept.size()] = t;
        });
        Step("texture from memory", kMade, [&] {
            kept[random() % kept.size()] = rs->CreateTextureFromMemory(
                "storm.png", const_cast<uint8_t*>(png.data()), static_cast<int>(png.size()), TEX_TYPE_2D, 0, false);
        });
        Step("read back", kMade, [&] {
            for (ref_ptr<CTexture>& t : kept)
                if (t && t->getBuffer(0, 0))
                {
                    std::vector<uint32_t> out(std::size_t(t->getBuffer(0, 0)->getWidth()) *
                                              t->getBuffer(0, 0)->getHeight());
                    t->getBuffer(0, 0)->blitToMemory(
                        Box(0, 0, 0, t->getBuffer(0, 0)->getWidth(), t->getBuffer(0, 0)->getHeight(), 1),
                        PixelBox(t->getBuffer(0, 0)->getWidth(), t->getBuffer(0, 0)->getHeight(), 1, PF_A8R8G8B8,
                                 out.data()));
                    break;
                }
        });
        Step("program", kReported, [&] {
            Keys(random() % 8, random() % 8);
            lit->SelectVariant();
        });
        Step("frame", kReported, [&] {
            rs->BeginTimerQueryFrame();
            const CColour blue(0, 0, 0.5f, 1);
            rs->_setViewport(CViewport(rs->m_pMainWindow.get(), 0, 0, kWidth, kHeight), 1, &blue, 1, 0);
            if (rs->_beginFrame())
            {
                FixedFunctionColour();
                occlusion->BeginQuery();
                rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 6, kQuadIndices.data(), CHardwareIndexBuffer::IT_16BIT,
                                           quad.data(), sizeof(ColourVertex), declaration.get(), 1);
                occlusion->EndQuery();
                rs->_endFrame();
            }
            timer->Measure();
            rs->EndTimerQueryFrame();
            unsigned count = 0;
            if (random() % 2)
                occlusion->FetchPixelCount(&count);
            else
                occlusion->IsResultPending();
            MainWindow()->swapBuffers();
        });
        Step("device loss", kReported, [&] {
            if (frame % 8 == 7)
            {
                kvproxy::LoseDevice();
                kvproxy::AllowDeviceReset();
            }
            rs->IsDeviceAvailable();
        });
    }
    const uint32_t deviceFaults = kvproxy::RandomFaultsInjected(), compileFaults = kvdc::FaultsInjected();
    kvproxy::SetRandomFaults(seed, 0);
    kvdc::SetRandomFaults(seed, 0);

    // Faults over: the device comes back and the scene draws.
    kvproxy::EndDeviceLoss();
    for (int i = 0; i < 3 && !rs->IsDeviceAvailable(); ++i)
        kvproxy::AllowDeviceReset();
    ASSERT_TRUE(rs->IsDeviceAvailable());
    Keys(0, 0);
    ASSERT_TRUE(WaitReady(lit.get())) << "the program compiles again once the compiler stops failing";
    BeginClearedFrame();
    FixedFunctionColour();
    rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 6, kQuadIndices.data(), CHardwareIndexBuffer::IT_16BIT, quad.data(),
                               sizeof(ColourVertex), declaration.get(), 1);
    rs->_endFrame();
    const std::vector<uint32_t> back = ReadBackBuffer();
    ASSERT_EQ(kWidth * kHeight, back.size());
    EXPECT_EQ(kRed, back[(kHeight / 2) * kWidth + kWidth / 2]);
    EXPECT_EQ(kClear, back[2 * kWidth + 2]);

    // Every resource dropped: the render system ends without a leak report.
    rs->DestroyTimerQuery(timer);
    occlusion = nullptr;
    kept.clear();
    buffers.clear();
    declaration = nullptr;
    lit = nullptr;
    Harvest();
    EndRenderSystem();
    const size_t leaks = soak::LeakReportLines();
    Harvest();

    std::printf("fault storm: %u frames, %u device faults, %u compile faults (%u compile failures logged), "
                "%u unreported\n",
                frames, deviceFaults, compileFaults, compileFailuresLogged, silent);
    soak::Bench("faults_survived", deviceFaults + compileFaults, "faults");
    soak::Bench("faults_unreported", silent, "faults");
    soak::Bench("leak_reports", static_cast<double>(leaks), "");
    EXPECT_EQ(0u, silent);
    EXPECT_EQ(compileFaults, compileFailuresLogged) << "each failed compile is logged once";
    EXPECT_EQ(0u, leaks);
    EXPECT_GT(deviceFaults, 0u);
    EXPECT_GT(compileFaults, 0u);
}

} // namespace
