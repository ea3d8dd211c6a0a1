// The display modes of an adapter: the 640 x 400 floor, one entry per size and
// format with the best refresh rate, 16-bit modes first, lookup by description.
#include "DriverFixture.h"

#include "D3D9DriverList.h"
#include "D3D9VideoMode.h"
#include "D3D9VideoModeList.h"

#include <algorithm>
#include <map>
#include <memory>
#include <tuple>

using namespace kv;

namespace
{

class ModeFixture : public DriverFixture
{
protected:
    // The modes of adapter 0 after the proxy was told to offer these.
    CVideoModeList* Modes(const std::vector<D3DDISPLAYMODE>& modes16, const std::vector<D3DDISPLAYMODE>& modes32)
    {
        EXPECT_TRUE(kvproxy::SetAdapterModes(D3DFMT_R5G6B5, modes16.data(), static_cast<uint32_t>(modes16.size())));
        EXPECT_TRUE(kvproxy::SetAdapterModes(D3DFMT_X8R8G8B8, modes32.data(), static_cast<uint32_t>(modes32.size())));
        list.reset(new D3D9DriverList(d3d));
        if (list->GetCount() == 0)
            return nullptr;
        return list->GetItem(0u)->GetVideoModes();
    }

    static std::vector<std::string> Descriptions(CVideoModeList* modes)
    {
        std::vector<std::string> out;
        for (unsigned i = 0; i < modes->GetCount(); ++i)
            out.push_back(modes->GetItem(i)->getDescription());
        return out;
    }

    void TearDown() override
    {
        list.reset();
        DriverFixture::TearDown();
    }

    std::unique_ptr<D3D9DriverList> list;
};

} // namespace

TEST_F(ModeFixture, AnAdapterWithoutModesGivesAnEmptyList)
{
    CVideoModeList* modes = Modes({}, {});
    ASSERT_NE(nullptr, modes);
    EXPECT_EQ(0u, modes->GetCount());
    EXPECT_EQ(nullptr, modes->GetItem("640 x 480 @ 32-bit colour"));
}

TEST_F(ModeFixture, ModesBelow640By400AreLeftOut)
{
    CVideoModeList* modes = Modes({}, {Mode(639, 480, 60, D3DFMT_X8R8G8B8), Mode(640, 399, 60, D3DFMT_X8R8G8B8),
                                       Mode(640, 400, 60, D3DFMT_X8R8G8B8), Mode(320, 200, 70, D3DFMT_X8R8G8B8),
                                       Mode(800, 600, 60, D3DFMT_X8R8G8B8)});
    ASSERT_NE(nullptr, modes);
    EXPECT_EQ((std::vector<std::string>{"640 x 400 @ 32-bit colour", "800 x 600 @ 32-bit colour"}),
              Descriptions(modes));
}

TEST_F(ModeFixture, RefreshRatesCollapseToTheHighestInEitherOrder)
{
    CVideoModeList* modes =
        Modes({}, {Mode(800, 600, 60, D3DFMT_X8R8G8B8), Mode(1024, 768, 85, D3DFMT_X8R8G8B8),
                   Mode(800, 600, 75, D3DFMT_X8R8G8B8), Mode(1024, 768, 60, D3DFMT_X8R8G8B8),
                   Mode(800, 600, 72, D3DFMT_X8R8G8B8)});
    ASSERT_NE(nullptr, modes);
    ASSERT_EQ(2u, modes->GetCount());
    EXPECT_EQ(800u, modes->GetItem(0u)->getWidth());
    EXPECT_EQ(600u, modes->GetItem(0u)->getHeight());
    EXPECT_EQ(75u, modes->GetItem(0u)->getRefreshRate());
    EXPECT_EQ(1024u, modes->GetItem(1u)->getWidth());
    EXPECT_EQ(768u, modes->GetItem(1u)->getHeight());
    EXPECT_EQ(85u, modes->GetItem(1u)->getRefreshRate());
}

TEST_F(ModeFixture, SixteenBitModesComeFirstAndFormatsStayApart)
{
    CVideoModeList* modes = Modes({Mode(1024, 768, 60, D3DFMT_R5G6B5), Mode(800, 600, 60, D3DFMT_R5G6B5)},
                                  {Mode(800, 600, 75, D3DFMT_X8R8G8B8)});
    ASSERT_NE(nullptr, modes);
    EXPECT_EQ((std::vector<std::string>{"1024 x 768 @ 16-bit colour", "800 x 600 @ 16-bit colour",
                                        "800 x 600 @ 32-bit colour"}),
              Descriptions(modes));
    EXPECT_EQ(PF_R5G6B5, modes->GetItem(0u)->getPixelFormat());
    EXPECT_EQ(16u, modes->GetItem(0u)->getColourBits());
    EXPECT_EQ(60u, modes->GetItem(1u)->getRefreshRate());
    EXPECT_EQ(PF_X8R8G8B8, modes->GetItem(2u)->getPixelFormat());
    EXPECT_EQ(32u, modes->GetItem(2u)->getColourBits());
    EXPECT_EQ(75u, modes->GetItem(2u)->getRefreshRate());
}

TEST_F(ModeFixture, LookupByDescriptionAndPastTheEnd)
{
    CVideoModeList* modes = Modes({Mode(800, 600, 60, D3DFMT_R5G6B5)}, {Mode(800, 600, 60, D3DFMT_X8R8G8B8)});
    ASSERT_NE(nullptr, modes);
    ASSERT_EQ(2u, modes->GetCount());
    EXPECT_EQ(modes->GetItem(1u), modes->GetItem("800 x 600 @ 32-bit colour"));
    EXPECT_EQ(modes->GetItem(0u), modes->GetItem("800 x 600 @ 16-bit colour"));
    EXPECT_EQ(nullptr, modes->GetItem("800 x 600 @ 24-bit colour"));
    EXPECT_EQ(nullptr, modes->GetItem("800x600"));
    EXPECT_EQ(nullptr, modes->GetItem(static_cast<const char*>(nullptr)));

    ClearLog();
    EXPECT_EQ(nullptr, modes->GetItem(2u));
    EXPECT_EQ(1u, GetLogTexts(LOG_ERROR).size());
}

TEST_F(ModeFixture, TheListIsMadeOnceForTheDriversAdapter)
{
    kvproxy::SetAdapterCount(2);
    const std::vector<D3DDISPLAYMODE> one = {Mode(800, 600, 60, D3DFMT_X8R8G8B8)};
    ASSERT_TRUE(kvproxy::SetAdapterModes(D3DFMT_X8R8G8B8, one.data(), 1));
    D3D9DriverList drivers(d3d);
    ASSERT_EQ(2u, drivers.GetCount());

    kvproxy::Mark mark = kvproxy::Here();
    CVideoModeList* modes = drivers.GetItem(1u)->GetVideoModes();
    std::vector<KvProxyCall> counts = kvproxy::CallsSince(mark, kvproxy::Method::D3D9_GetAdapterModeCount);
    ASSERT_EQ(2u, counts.size());
    EXPECT_EQ(1u, counts[0].args[0]);
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_R5G6B5), counts[0].args[1]);
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_X8R8G8B8), counts[1].args[1]);
    for (const KvProxyCall& c : kvproxy::CallsSince(mark, kvproxy::Method::D3D9_EnumAdapterModes))
        EXPECT_EQ(1u, c.args[0]);

    mark = kvproxy::Here();
    EXPECT_EQ(modes, drivers.GetItem(1u)->GetVideoModes());
    EXPECT_EQ(0u, kvproxy::CallsSince(mark).size());
}

TEST_F(ModeFixture, TheRealAdapterKeepsTheBestRateOfEachSizeAndFormat)
{
    // What the runtime offers, reduced by hand: best rate per size and format.
    typedef std::tuple<UINT, UINT, D3DFORMAT> Key;
    std::map<Key, UINT> expected;
    for (D3DFORMAT format : {D3DFMT_R5G6B5, D3DFMT_X8R8G8B8})
        for (UINT i = 0; i < d3d->GetAdapterModeCount(0, format); ++i)
        {
            D3DDISPLAYMODE m;
            ASSERT_EQ(D3D_OK, d3d->EnumAdapterModes(0, format, i, &m));
            if (m.Width >= 640 && m.Height >= 400)
            {
                UINT& rate = expected[Key(m.Width, m.Height, m.Format)];
                rate = std::max(rate, m.RefreshRate);
            }
        }

    list.reset(new D3D9DriverList(d3d));
    ASSERT_GE(list->GetCount(), 1u);
    CVideoModeList* modes = list->GetItem(0u)->GetVideoModes();
    ASSERT_EQ(expected.size(), modes->GetCount());
    for (unsigned i = 0; i < modes->GetCount(); ++i)
    {
        const D3DDISPLAYMODE& m = static_cast<D3D9VideoMode*>(modes->GetItem(i))->getDisplayMode();
        auto found = expected.find(Key(m.Width, m.Height, m.Format));
        ASSERT_NE(expected.end(), found) << modes->GetItem(i)->getDescription();
        EXPECT_EQ(found->second, m.RefreshRate);
    }
}

TEST(VideoMode, ColourDepthAndDescriptionFollowTheFormat)
{
    struct Case
    {
        D3DFORMAT format;
        unsigned bits;
    };
    const Case cases[] = {{D3DFMT_X8R8G8B8, 32}, {D3DFMT_A8R8G8B8, 32}, {D3DFMT_R8G8B8, 32},
                          {D3DFMT_R5G6B5, 16},   {D3DFMT_X1R5G5B5, 16}, {D3DFMT_A2R10G10B10, 16}};
    for (const Case& c : cases)
    {
        D3DDISPLAYMODE m = {1280, 720, 50, c.format};
        D3D9VideoMode mode(m);
        EXPECT_EQ(c.bits, mode.getColourBits()) << c.format;
        EXPECT_EQ("1280 x 720 @ " + std::to_string(c.bits) + "-bit colour", mode.getDescription());
    }
    D3DDISPLAYMODE m = {1280, 720, 50, D3DFMT_A8R8G8B8};
    EXPECT_EQ(PF_A8R8G8B8, D3D9VideoMode(m).getPixelFormat());
}

TEST(VideoModeList, ANullDriverIsReportedAndListsNothing)
{
    ClearLog();
    D3D9VideoModeList modes(nullptr);
    EXPECT_EQ(0u, modes.GetCount());
    std::vector<LogLine> lines = GetLogLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(LOG_ERROR, lines[0].level);
    EXPECT_EQ("D3D9RenderSystem/D3D9VideoModeList", lines[0].file);
    EXPECT_EQ("pDriver parameter is NULL, D3D9VideoModeList::D3D9VideoModeList", lines[0].text);
}
