// The loss soak: a scene with every kind of resource alive (buffers in both pools,
// a managed texture, render textures, multiple render targets, an occlusion and a
// timer query, a program with a ready variant) goes through simulated loss and
// reset cycles; after each one the frame must read back what it did before the
// first loss, and the process must not grow.
#include "ProgramFixture.h"
#include "SoakSupport.h"

#include "D3D9HardwarePixelBuffer.h"
#include "D3D9RenderTexture.h"

#include "engine/GfxTimerQuery.h"
#include "engine/HardwareOcclusionQuery.h"
#include "engine/MultiRenderTarget.h"

#include <random>

using namespace kv;
using namespace kvtest;

namespace
{

const unsigned kStreaming =
    CHardwareBuffer::USAGE_DYNAMIC | CHardwareBuffer::USAGE_WRITE_ONLY | CHardwareBuffer::USAGE_DISCARDABLE;

class LossSoak : public LitTest
{
protected:
    void MakeScene()
    {
        declaration = ColourDeclaration();
        managed = VertexBuffer(Quad(-1, -1, 0, 1, kRed));
        dynamic = VertexBuffer(greenQuad, kStreaming);
        indices = IndexBuffer16(kQuadIndices, kStreaming);
        for (ref_ptr<CTexture>& t : targets)
            t = rs->CreateTextureManual(TEX_TYPE_2D, 32, 32, 1, 0, PF_A8R8G8B8, TU_RENDERTARGET, 0, false);
        picture = rs->CreateTextureManual(TEX_TYPE_2D, 8, 8, 1, 0, PF_A8R8G8B8, 0, 0, false);
        std::vector<uint32_t> pixels(64);
        for (unsigned i = 0; i < 64; ++i)
            pixels[i] = 0xFF000000u | (i * 0x030507u);
        picture->getBuffer(0, 0)->blitFromMemory(PixelBox(8, 8, 1, PF_A8R8G8B8, pixels.data()), Box(0, 0, 0, 8, 8, 1));
        mrt = rs->CreateMultiRenderTarget();
        CRenderTexture* const both[] = {Target(1), Target(2)};
        mrt->bindSurface(both, 2);
        occlusion = rs->CreateHardwareOcclusionQuery();
        timer = rs->CreateTimerQuery();
        ASSERT_TRUE(declaration && managed && dynamic && indices && picture && mrt && occlusion && timer);
        ASSERT_EQ(D3DPOOL_DEFAULT, D3D(dynamic.get())->m_d3dDesc.Pool);
        ASSERT_EQ(D3DPOOL_MANAGED, D3D(managed.get())->m_d3dDesc.Pool);
    }
    void TearDown() override
    {
        if (rs && timer)
            rs->DestroyTimerQuery(timer);
        LitTest::TearDown();
    }
    CRenderTexture* Target(int i)
    {
        return static_cast<CD3D9HardwarePixelBuffer*>(targets[i]->getBuffer(0, 0))->getRenderTarget(0);
    }
    void ClearTarget(CRenderTarget* target, const CColour& colour)
    {
        rs->_setViewport(
            CViewport(target, 0, 0, static_cast<int>(target->getWidth()), static_cast<int>(target->getHeight())), 1,
            &colour, 1.0f, 0);
    }
    void Draw(CHardwareVertexBuffer* buffer)
    {
        ref_ptr<CVertexData> data = VertexData(declaration.get(), buffer, 0, 4);
        ref_ptr<CIndexData> quad = IndexData(indices.get(), 0, 6);
        rs->SetVertexBuffer(data.get());
        rs->SetIndexBuffer(indices.get());
        rs->DrawPrimitive(PT_TRIANGLE_LIST, data.get(), quad.get(), 1, false);
    }
    // One frame of the scene, and everything it leaves that can be read back.
    std::vector<uint32_t> Frame()
    {
        // The owner fills its discardable buffers again after a reset.
        dynamic->WriteData(0, dynamic->mSizeInBytes, greenQuad.data(), true);
        indices->WriteData(0, indices->mSizeInBytes, kQuadIndices.data(), true);
        rs->BeginTimerQueryFrame();
        ClearTarget(Target(0), CColour(0, 0, 1, 1));
        ClearTarget(mrt.get(), CColour(1, 1, 0, 1));
        EXPECT_TRUE(rs->_beginFrame());
        FixedFunctionColour();
        Draw(dynamic.get());
        rs->_endFrame();
        ClearTarget(rs->m_pMainWindow.get(), CColour(0, 0, 0.5f, 1));
        EXPECT_TRUE(rs->_beginFrame());
        FixedFunctionColour();
        occlusion->BeginQuery();
        Draw(managed.get());
        occlusion->EndQuery();
        rs->_endFrame();
        const RECT corner = {static_cast<LONG>(kWidth / 2), 0, static_cast<LONG>(kWidth),
                             static_cast<LONG>(kHeight / 2)};
        EXPECT_TRUE(Target(0)->CopyToTarget(rs->m_pMainWindow.get(), nullptr, &corner));
        timer->Measure();
        rs->EndTimerQueryFrame();

        std::vector<uint32_t> all = ReadBackBuffer();
        for (int i = 0; i < 3; ++i)
        {
            const std::vector<uint32_t> t =
                ReadPixels(static_cast<CD3D9HardwarePixelBuffer*>(targets[i]->getBuffer(0, 0))->getSurface());
            all.insert(all.end(), t.begin(), t.end());
        }
        std::vector<uint32_t> texels(64);
        picture->getBuffer(0, 0)->blitToMemory(Box(0, 0, 0, 8, 8, 1), PixelBox(8, 8, 1, PF_A8R8G8B8, texels.data()));
        all.insert(all.end(), texels.begin(), texels.end());
        unsigned count = 0;
        EXPECT_TRUE(occlusion->FetchPixelCount(&count));
        all.push_back(count);
        // The program keeps its ready variant, shaders and all.
        all.push_back(lit->SelectVariant() && lit->GetCurrentVariant()->State() == VARIANT_READY);
        return all;
    }

    const std::vector<ColourVertex> greenQuad = Quad(0, -1, 1, 0, kGreen);
    ref_ptr<CVertexDeclaration> declaration;
    ref_ptr<CHardwareVertexBuffer> managed, dynamic;
    ref_ptr<CHardwareIndexBuffer> indices;
    ref_ptr<CTexture> targets[3], picture;
    ref_ptr<CMultiRenderTarget> mrt;
    ref_ptr<CHardwareOcclusionQuery> occlusion;
    GfxTimerQuery* timer = nullptr;
};

TEST_F(LossSoak, EveryResourceAndThePictureOutliveLossAndReset)
{
    const unsigned cycles = soak::Size("KV_SOAK_LOSS_CYCLES", 30);
    std::mt19937 random(soak::Seed("loss soak"));
    MakeScene();
    ASSERT_FALSE(HasFatalFailure());
    const std::vector<uint32_t> before = Frame();
    ASSERT_GT(before.size(), kWidth * kHeight + 3 * 32 * 32);
    ASSERT_EQ(32u * 32 * 2, before[before.size() - 2]) << "the occlusion query counts the red quad";
    ASSERT_EQ(1u, before.back());

    const unsigned firstAt = cycles / 10 > 0 ? cycles / 10 : 1;
    soak::Footprint first = {0, 0, 0}, last = {0, 0, 0};
    size_t mismatches = 0;
    unsigned resets = 0;
    for (unsigned cycle = 1; cycle <= cycles; ++cycle)
    {
        // Lost now or after a present or two; found at a Present or by asking; reset by either road.
        kvproxy::LoseDevice(random() % 3);
        for (int i = 0; i < 3; ++i)
            MainWindow()->swapBuffers();
        EXPECT_FALSE(rs->IsDeviceAvailable());
        kvproxy::AllowDeviceReset();
        if (random() % 2)
            MainWindow()->swapBuffers();
        ASSERT_TRUE(rs->IsDeviceAvailable()) << "cycle " << cycle;
        resets += kvproxy::DeviceLossState() == KV_PROXY_LOSS_NONE;
        const std::vector<uint32_t> after = Frame();
        size_t wrong = after.size() == before.size() ? 0 : after.size() + before.size();
        for (size_t i = 0; i < after.size() && i < before.size(); ++i)
            wrong += after[i] != before[i];
        if (wrong && mismatches == 0)
            ADD_FAILURE() << "cycle " << cycle << ": " << wrong << " values differ from the first frame";
        mismatches += wrong;
        if (cycle == firstAt)
            first = soak::Measure();
        ClearLog();
    }
    last = soak::Measure();
    std::printf("loss soak: %u cycles, %u resets; after cycle %u and at the end: private bytes %llu KB, %llu KB; "
                "process anonymous memory %llu KB, %llu KB; handles %u, %u\n",
                cycles, resets, firstAt, static_cast<unsigned long long>(first.privateKb),
                static_cast<unsigned long long>(last.privateKb), static_cast<unsigned long long>(first.anonKb),
                static_cast<unsigned long long>(last.anonKb), first.handles, last.handles);
    soak::Bench("loss_cycles", cycles, "cycles");
    soak::Bench("pixel_mismatches", static_cast<double>(mismatches), "");
    soak::Bench("memory_growth_kb", static_cast<double>(last.privateKb) - static_cast<double>(first.privateKb), "KB");
    soak::Bench("process_memory_growth_kb", static_cast<double>(last.anonKb) - static_cast<double>(first.anonKb), "KB");
    soak::Bench("handle_growth", static_cast<double>(last.handles) - static_cast<double>(first.handles), "handles");
    EXPECT_EQ(cycles, resets);
    EXPECT_EQ(0u, mismatches);
    EXPECT_LE(last.handles, first.handles + 2) << "handles grow with the cycles";
}

} // namespace
