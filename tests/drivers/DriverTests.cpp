// The adapter list (detection and its log lines, the driver's name and
// description, lookup by index and by name) and the display modes of an
// adapter: the 640 x 400 floor, one entry per size and format with the best
// refresh rate, 16-bit modes first, lookup by description.
#include "ProxyExpect.h"

#include "D3D9DriverList.h"
#include "D3D9RenderSystem.h"
#include "D3D9VideoMode.h"
#include "D3D9VideoModeList.h"

#include "engine/Log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <tuple>

using namespace kv;
using kvproxy::Method;

namespace
{

typedef std::vector<std::string> Texts;

const Texts kDetectionLines = {"D3D9: Driver Detection Starts", "D3D9: Driver Detection Ends"};

// A proxied IDirect3D9 with the proxy back to plain forwarding around each test.
class Drivers : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(kvproxy::Available()) << "this suite must run with the recording d3d9.dll";
        ASSERT_EQ(nullptr, GetRenderSystem());
        kvproxy::ResetAll();
        ClearLog();
        d3d = Direct3DCreate9(D3D_SDK_VERSION);
        ASSERT_NE(nullptr, d3d);
    }
    void TearDown() override
    {
        list.reset();
        kvproxy::ResetAll();
        if (d3d)
            d3d->Release();
    }

    // The modes of adapter 0 after the proxy was told to offer these.
    CVideoModeList* Modes(const std::vector<D3DDISPLAYMODE>& modes16, const std::vector<D3DDISPLAYMODE>& modes32)
    {
        EXPECT_TRUE(kvproxy::SetAdapterModes(D3DFMT_R5G6B5, modes16.data(), static_cast<uint32_t>(modes16.size())));
        EXPECT_TRUE(kvproxy::SetAdapterModes(D3DFMT_X8R8G8B8, modes32.data(), static_cast<uint32_t>(modes32.size())));
        list.reset(new D3D9DriverList(d3d));
        return list->GetCount() ? list->GetItem(0u)->GetVideoModes() : nullptr;
    }
    // "<description> <rate>Hz" of each mode.
    static Texts Describe(CVideoModeList* modes)
    {
        Texts out;
        for (unsigned i = 0; modes && i < modes->GetCount(); ++i)
            out.push_back(std::string(modes->GetItem(i)->getDescription()) + " " +
                          std::to_string(modes->GetItem(i)->getRefreshRate()) + "Hz");
        return out;
    }
    static Texts Infos() { return GetLogTexts(LOG_INFO); }

    IDirect3D9* d3d = nullptr;
    std::unique_ptr<D3D9DriverList> list;
};

D3DDISPLAYMODE Mode(UINT width, UINT height, UINT rate, D3DFORMAT format = D3DFMT_X8R8G8B8)
{
    return D3DDISPLAYMODE{width, height, rate, format};
}

std::string OutOfRangeText(D3D9DriverList& list, unsigned index)
{
    try
    {
        list.GetItem(index);
    }
    catch (const std::out_of_range& e)
    {
        return e.what();
    }
    return "no exception";
}

} // namespace

TEST_F(Drivers, ListsTheRealAdapterAsDirect3DReportsIt)
{
    D3D9DriverList drivers(d3d);
    EXPECT_EQ(kDetectionLines, Infos());
    ASSERT_EQ(d3d->GetAdapterCount(), drivers.GetCount());
    ASSERT_GE(drivers.GetCount(), 1u);
    D3DADAPTER_IDENTIFIER9 id;
    ASSERT_EQ(D3D_OK, d3d->GetAdapterIdentifier(0, 0, &id));
    D3DDISPLAYMODE desktop;
    ASSERT_EQ(D3D_OK, d3d->GetAdapterDisplayMode(0, &desktop));
    D3D9Driver* driver = static_cast<D3D9Driver*>(drivers.GetItem(0u));
    EXPECT_STREQ(id.Driver, driver->GetDriverName());
    EXPECT_EQ(std::string("Monitor-1-") + id.Description, driver->GetDriverDescription());
    EXPECT_EQ(0u, driver->getAdapterNumber());
    EXPECT_EQ(0, std::memcmp(&desktop, &driver->getDesktopMode(), sizeof desktop));
    EXPECT_EQ(id.VendorId, driver->getAdapterIdentifier().VendorId);

    // An index at or past the count throws the range error.
    const unsigned count = drivers.GetCount();
    EXPECT_NE(nullptr, drivers.GetItem(count - 1));
    EXPECT_EQ("invalid vector<T> subscript", OutOfRangeText(drivers, count));
    EXPECT_EQ("invalid vector<T> subscript", OutOfRangeText(drivers, 0xFFFFFFFFu));
}

TEST_F(Drivers, NoAdapterGivesAnEmptyListAndBothLogLines)
{
    kvproxy::SetAdapterCount(0);
    D3D9DriverList drivers(d3d);
    EXPECT_EQ(0u, drivers.GetCount());
    EXPECT_EQ(kDetectionLines, Infos());
    EXPECT_EQ("invalid vector<T> subscript", OutOfRangeText(drivers, 0));
    EXPECT_EQ(nullptr, drivers.GetItem("Monitor-1-"));
    // A runtime that could not be made is no adapter at all.
    ClearLog();
    EXPECT_EQ(0u, D3D9DriverList(nullptr).GetCount());
    EXPECT_EQ(kDetectionLines, Infos());
}

TEST_F(Drivers, MonitorsCountFromOneAndAreFoundByTheirTrimmedDescription)
{
    // A second adapter the runtime does not have: its queries fail and leave
    // the records empty, but it is still listed under its own number.
    kvproxy::SetAdapterCount(2);
    kvproxy::SetAdapterDescription("  Wide  Card \t\r ");
    D3D9DriverList drivers(d3d);
    ASSERT_EQ(2u, drivers.GetCount());
    EXPECT_STREQ("Monitor-1-  Wide  Card", drivers.GetItem(0u)->GetDriverDescription()) << "trimmed at the end only";
    const std::string second = drivers.GetItem(1u)->GetDriverDescription();
    EXPECT_EQ(0u, second.find("Monitor-2-")) << second;
    EXPECT_EQ(drivers.GetItem(0u), drivers.GetItem("Monitor-1-  Wide  Card"));
    EXPECT_EQ(drivers.GetItem(1u), drivers.GetItem(second.c_str()));
    for (const char* name : {"Monitor-1-  Wide  Card \t\r ", "Monitor-3-  Wide  Card", "  Wide  Card"})
        EXPECT_EQ(nullptr, drivers.GetItem(name)) << name;
    EXPECT_EQ(nullptr, drivers.GetItem(static_cast<const char*>(nullptr)));

    // Unterminated identifier texts stay inside their fields.
    D3DADAPTER_IDENTIFIER9 id;
    std::memset(&id, 'x', sizeof(id));
    kvproxy::SetAdapterIdentifier(KV_PROXY_ID_DRIVER | KV_PROXY_ID_DESCRIPTION, id);
    D3D9DriverList unterminated(d3d);
    EXPECT_EQ(std::string(sizeof(id.Driver), 'x'), unterminated.GetItem(0u)->GetDriverName());
    EXPECT_EQ("Monitor-1-" + std::string(sizeof(id.Description), 'x'),
              unterminated.GetItem(0u)->GetDriverDescription());
}

TEST_F(Drivers, CapabilitiesAreReadForTheRenderSystemsDeviceType)
{
    // Without a render system: the hardware device.
    kvproxy::Mark mark = kvproxy::Here();
    D3D9DriverList(d3d).GetCount();
    std::vector<KvProxyCall> caps = kvproxy::CallsSince(mark, Method::D3D9_GetDeviceCaps);
    ASSERT_FALSE(caps.empty());
    for (const KvProxyCall& c : caps)
        EXPECT_EQ(static_cast<uint64_t>(D3DDEVTYPE_HAL), c.args[1]);
    // With one: whatever device type its capabilities name.
    std::unique_ptr<CD3D9RenderSystem> rs(new CD3D9RenderSystem);
    rs->m_d3dcaps.DeviceType = D3DDEVTYPE_REF;
    mark = kvproxy::Here();
    CDriverList* drivers = rs->GetDriverList();
    ASSERT_NE(nullptr, drivers);
    caps = kvproxy::CallsSince(mark, Method::D3D9_GetDeviceCaps);
    ASSERT_EQ(drivers->GetCount(), caps.size());
    for (const KvProxyCall& c : caps)
        EXPECT_EQ(static_cast<uint64_t>(D3DDEVTYPE_REF), c.args[1]);
    EXPECT_EQ(D3DDEVTYPE_REF, static_cast<D3D9Driver*>(drivers->GetItem(0u))->getD3D9DeviceCaps().DeviceType);
    // Made once and kept: no second detection.
    mark = kvproxy::Here();
    EXPECT_EQ(drivers, rs->GetDriverList());
    EXPECT_TRUE(kvproxy::CallsSince(mark, Method::D3D9_GetAdapterCount).empty());
    rs.reset();
    EXPECT_EQ(nullptr, GetRenderSystem());
}

TEST_F(Drivers, ACopiedDriverEnumeratesItsOwnModes)
{
    D3D9DriverList drivers(d3d);
    ASSERT_GE(drivers.GetCount(), 1u);
    D3D9Driver* original = static_cast<D3D9Driver*>(drivers.GetItem(0u));
    CVideoModeList* modes = original->GetVideoModes();
    ASSERT_NE(nullptr, modes);
    const kvproxy::Mark mark = kvproxy::Here();
    D3D9Driver copy(*original);
    EXPECT_TRUE(kvproxy::CallsSince(mark, Method::D3D9_EnumAdapterModes).empty());
    // The texts share one buffer: each is copied before the next call.
    const std::string originalText = original->GetDriverDescription();
    EXPECT_EQ(originalText, copy.GetDriverDescription());
    CVideoModeList* copied = copy.GetVideoModes();
    ASSERT_NE(nullptr, copied);
    EXPECT_NE(modes, copied);
    EXPECT_EQ(modes->GetCount(), copied->GetCount());
    EXPECT_FALSE(kvproxy::CallsSince(mark, Method::D3D9_GetAdapterModeCount).empty());
}

// ---- display modes

TEST_F(Drivers, ModesAreFilteredCollapsedToTheBestRateAndSixteenBitFirst)
{
    CVideoModeList* modes = Modes({}, {});
    ASSERT_NE(nullptr, modes);
    EXPECT_EQ(0u, modes->GetCount());
    EXPECT_EQ(nullptr, modes->GetItem("640 x 480 @ 32-bit colour"));

    // Below 640 by 400 is left out.
    modes =
        Modes({}, {Mode(639, 480, 60), Mode(640, 399, 60), Mode(640, 400, 60), Mode(320, 200, 70), Mode(800, 600, 60)});
    EXPECT_EQ((Texts{"640 x 400 @ 32-bit colour 60Hz", "800 x 600 @ 32-bit colour 60Hz"}), Describe(modes));
    // Refresh rates collapse to the highest, in either order.
    modes = Modes(
        {}, {Mode(800, 600, 60), Mode(1024, 768, 85), Mode(800, 600, 75), Mode(1024, 768, 60), Mode(800, 600, 72)});
    EXPECT_EQ((Texts{"800 x 600 @ 32-bit colour 75Hz", "1024 x 768 @ 32-bit colour 85Hz"}), Describe(modes));
    // Sixteen-bit modes come first and formats stay apart.
    modes = Modes({Mode(1024, 768, 60, D3DFMT_R5G6B5), Mode(800, 600, 60, D3DFMT_R5G6B5)}, {Mode(800, 600, 75)});
    EXPECT_EQ(
        (Texts{"1024 x 768 @ 16-bit colour 60Hz", "800 x 600 @ 16-bit colour 60Hz", "800 x 600 @ 32-bit colour 75Hz"}),
        Describe(modes));
    EXPECT_EQ(PF_R5G6B5, modes->GetItem(0u)->getPixelFormat());
    EXPECT_EQ(PF_X8R8G8B8, modes->GetItem(2u)->getPixelFormat());

    // Lookup by description, and past the end.
    EXPECT_EQ(modes->GetItem(2u), modes->GetItem("800 x 600 @ 32-bit colour"));
    EXPECT_EQ(modes->GetItem(1u), modes->GetItem("800 x 600 @ 16-bit colour"));
    for (const char* name : {"800 x 600 @ 24-bit colour", "800x600"})
        EXPECT_EQ(nullptr, modes->GetItem(name)) << name;
    EXPECT_EQ(nullptr, modes->GetItem(static_cast<const char*>(nullptr)));
    ClearLog();
    EXPECT_EQ(nullptr, modes->GetItem(3u));
    EXPECT_EQ(1u, GetLogTexts(LOG_ERROR).size());
}

TEST_F(Drivers, TheModeListIsMadeOnceForTheDriversAdapter)
{
    kvproxy::SetAdapterCount(2);
    const std::vector<D3DDISPLAYMODE> one = {Mode(800, 600, 60)};
    ASSERT_TRUE(kvproxy::SetAdapterModes(D3DFMT_X8R8G8B8, one.data(), 1));
    D3D9DriverList drivers(d3d);
    ASSERT_EQ(2u, drivers.GetCount());
    kvproxy::Mark mark = kvproxy::Here();
    CVideoModeList* modes = drivers.GetItem(1u)->GetVideoModes();
    std::vector<KvProxyCall> counts = kvproxy::CallsSince(mark, Method::D3D9_GetAdapterModeCount);
    ASSERT_EQ(2u, counts.size());
    EXPECT_EQ((std::vector<uint64_t>{1, D3DFMT_R5G6B5}), std::vector<uint64_t>(counts[0].args, counts[0].args + 2));
    EXPECT_EQ(static_cast<uint64_t>(D3DFMT_X8R8G8B8), counts[1].args[1]);
    for (const KvProxyCall& c : kvproxy::CallsSince(mark, Method::D3D9_EnumAdapterModes))
        EXPECT_EQ(1u, c.args[0]);
    mark = kvproxy::Here();
    EXPECT_EQ(modes, drivers.GetItem(1u)->GetVideoModes());
    EXPECT_EQ(0u, kvproxy::CallsSince(mark).size());
}

TEST_F(Drivers, TheRealAdapterKeepsTheBestRateOfEachSizeAndFormat)
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

TEST(VideoMode, ColourDepthFollowsTheFormatAndANullDriverListsNothing)
{
    // Every format but the 16-bit colour ones counts as 32 bits, the ten-bit one not.
    const std::pair<D3DFORMAT, unsigned> cases[] = {{D3DFMT_X8R8G8B8, 32}, {D3DFMT_A8R8G8B8, 32},
                                                    {D3DFMT_R8G8B8, 32},   {D3DFMT_R5G6B5, 16},
                                                    {D3DFMT_X1R5G5B5, 16}, {D3DFMT_A2R10G10B10, 16}};
    for (const auto& c : cases)
    {
        D3D9VideoMode mode(D3DDISPLAYMODE{1280, 720, 50, c.first});
        EXPECT_EQ(c.second, mode.getColourBits()) << c.first;
        EXPECT_EQ("1280 x 720 @ " + std::to_string(c.second) + "-bit colour", mode.getDescription());
    }
    EXPECT_EQ(PF_A8R8G8B8, D3D9VideoMode(D3DDISPLAYMODE{1280, 720, 50, D3DFMT_A8R8G8B8}).getPixelFormat());

    ClearLog();
    D3D9VideoModeList modes(nullptr);
    EXPECT_EQ(0u, modes.GetCount());
    std::vector<LogLine> lines = GetLogLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(LOG_ERROR, lines[0].level);
    EXPECT_EQ("D3D9RenderSystem/D3D9VideoModeList", lines[0].file);
    EXPECT_EQ("pDriver parameter is NULL, D3D9VideoModeList::D3D9VideoModeList", lines[0].text);
}
