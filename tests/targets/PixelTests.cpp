// End to end on real pixels: what a clear through the render system leaves in
// the back buffers, read back through a system-memory copy.
#include "TargetsFixture.h"

namespace
{

// X8R8G8B8: the top byte is undefined.
const uint32_t kRgb = 0x00FFFFFFu;

size_t CountNot(const std::vector<uint32_t>& pixels, uint32_t rgb)
{
    size_t n = 0;
    for (uint32_t p : pixels)
        if ((p & kRgb) != rgb)
            ++n;
    return n;
}

} // namespace

TEST_F(TargetsTest, ClearingTheMainWindowFillsItsBackBuffer)
{
    const kv::CColour teal(0.0f, 0.5f, 0.75f, 1.0f); // packs to 0x007FBF
    ASSERT_TRUE(rs->_beginFrame());
    rs->_setViewport(kv::CViewport(rs->m_pMainWindow.get(), 0, 0, kWidth, kHeight), 7, &teal, 1.0f, 0);
    rs->_endFrame();
    unsigned w = 0, h = 0;
    std::vector<uint32_t> pixels = ReadPixels(MainWindow()->m_pBackBuffer, &w, &h);
    EXPECT_EQ(kWidth, w);
    EXPECT_EQ(kHeight, h);
    ASSERT_EQ(static_cast<size_t>(kWidth) * kHeight, pixels.size());
    EXPECT_EQ(0u, CountNot(pixels, 0x007FBFu)) << std::hex << "first pixel " << pixels[0];
    rs->m_pMainWindow->swapBuffers();
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, TwoWindowsEachKeepTheirOwnColour)
{
    HWND second = MakeWindow(160, 120);
    ShowWindow(second, SW_SHOWNA);
    ref_ptr<kv::CRenderWindow> other = rs->CreateRenderWindow(second, 160, 120, false);
    kv::CD3D9RenderWindow* w2 = dynamic_cast<kv::CD3D9RenderWindow*>(other.get());
    ASSERT_NE(nullptr, w2);

    const kv::CColour red(1.0f, 0.0f, 0.0f, 1.0f);
    const kv::CColour green(0.0f, 1.0f, 0.0f, 1.0f);
    ASSERT_TRUE(rs->_beginFrame());
    rs->_setViewport(kv::CViewport(rs->m_pMainWindow.get(), 0.0f, 0.0f, 1.0f, 1.0f), 7, &red, 1.0f, 0);
    rs->_setViewport(kv::CViewport(other.get(), 0.0f, 0.0f, 1.0f, 1.0f), 7, &green, 1.0f, 0);
    rs->_endFrame();
    rs->m_pMainWindow->swapBuffers();
    other->swapBuffers();

    std::vector<uint32_t> main = ReadPixels(MainWindow()->m_pBackBuffer);
    std::vector<uint32_t> further = ReadPixels(w2->m_pBackBuffer);
    ASSERT_EQ(static_cast<size_t>(kWidth) * kHeight, main.size());
    ASSERT_EQ(160u * 120u, further.size());
    // After a discarding present the back buffer's content is not promised:
    // clear again without presenting and read that instead.
    ASSERT_TRUE(rs->_beginFrame());
    rs->_setViewport(kv::CViewport(rs->m_pMainWindow.get(), 0.0f, 0.0f, 1.0f, 1.0f), 1, &red, 1.0f, 0);
    rs->_setViewport(kv::CViewport(other.get(), 0.0f, 0.0f, 1.0f, 1.0f), 1, &green, 1.0f, 0);
    rs->_endFrame();
    main = ReadPixels(MainWindow()->m_pBackBuffer);
    further = ReadPixels(w2->m_pBackBuffer);
    EXPECT_EQ(0u, CountNot(main, 0xFF0000u));
    EXPECT_EQ(0u, CountNot(further, 0x00FF00u));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(TargetsTest, ScissorAndViewportLimitAClear)
{
    const kv::CColour blue(0.0f, 0.0f, 1.0f, 1.0f);
    const kv::CColour white(1.0f, 1.0f, 1.0f, 1.0f);
    const kv::CColour black(0.0f, 0.0f, 0.0f, 1.0f);
    kv::CViewport whole(rs->m_pMainWindow.get(), 0, 0, kWidth, kHeight);
    ASSERT_TRUE(rs->_beginFrame());
    rs->_setViewport(whole, 1, &blue, 1.0f, 0);

    // Scissor test on, a rectangle inside the viewport: only it turns white.
    rs->SetScissorTestEnabled(true);
    RECT r = {40, 30, 100, 90};
    rs->SetScissorRect(&r);
    rs->ClearFrameBuffer(1, &white, 1.0f, 0);

    // A smaller viewport narrows both the clear and the scissor to itself.
    rs->_setViewport(kv::CViewport(rs->m_pMainWindow.get(), 200, 150, 50, 40), 1, &black, 1.0f, 0);
    rs->_endFrame();
    rs->SetScissorTestEnabled(false);

    std::vector<uint32_t> pixels = ReadPixels(MainWindow()->m_pBackBuffer);
    ASSERT_EQ(static_cast<size_t>(kWidth) * kHeight, pixels.size());
    size_t wrong = 0;
    for (unsigned y = 0; y < kHeight; ++y)
    {
        for (unsigned x = 0; x < kWidth; ++x)
        {
            uint32_t want = 0x0000FFu;
            if (x >= 40 && x < 100 && y >= 30 && y < 90)
                want = 0xFFFFFFu;
            else if (x >= 200 && x < 250 && y >= 150 && y < 190)
                want = 0x000000u;
            if ((pixels[static_cast<size_t>(y) * kWidth + x] & kRgb) != want && wrong++ < 5)
                ADD_FAILURE() << "pixel " << x << "," << y << " is " << std::hex
                              << pixels[static_cast<size_t>(y) * kWidth + x] << ", wanted " << want;
        }
    }
    EXPECT_EQ(0u, wrong);
    EXPECT_TRUE(Errors().empty());
}
