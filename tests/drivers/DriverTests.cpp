// The adapter list (detection lines, names, lookup by index and name) and an
// adapter's display modes: the 640 x 400 floor, the best rate, 16-bit first.
#include "ProxyExpect.h"

#include "D3D9DriverList.h"
#include "D3D9RenderSystem.h"
#include "D3D9VideoMode.h"
#include "D3D9VideoModeList.h"

#include "engine/Log.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <stdexcept>

using namespace kv;

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
        kvproxy::ResetAll();
        ClearLog();
        d3d = Direct3DCreate9(D3D_SDK_VERSION);
        ASSERT_NE(nullptr, d3d);
    }
    void TearDown() override
    {
        kvproxy::ResetAll();
        if (d3d)
            d3d->Release();
    }

    // "<description> <rate>Hz" of each mode of adapter 0 after the proxy was told to offer these.
    Texts Modes(const std::vector<D3DDISPLAYMODE>& modes16, const std::vector<D3DDISPLAYMODE>& modes32)
    {
        EXPECT_TRUE(kvproxy::SetAdapterModes(D3DFMT_R5G6B5, modes16.data(), static_cast<uint32_t>(modes16.size())));
        EXPECT_TRUE(kvproxy::SetAdapterModes(D3DFMT_X8R8G8B8, modes32.data(), static_cast<uint32_t>(modes32.size())));
        list.reset(new D3D9DriverList(d3d));
        modes = list->GetItem(0u)->GetVideoModes();
        Texts out;
        for (unsigned i = 0; i < modes->GetCount(); ++i)
            out.push_back(std::string(modes->GetItem(i)->getDescription()) + " " +
                          std::to_string(modes->GetItem(i)->getRefreshRate()) + "Hz");
        return out;
    }

    IDirect3D9* d3d = nullptr;
    std::unique_ptr<D3D9DriverList> list;
    CVideoModeList* modes = nullptr;
};

D3DDISPLAYMODE Mode(UINT width, UINT height, UINT rate, D3DFORMAT format = D3DFMT_X8R8G8B8)
{
    return D3DDISPLAYMODE{width, height, rate, format};
}

TEST_F(Drivers, TheRealAdapterNoneAndTwoMonitorsFoundByTheirTrimmedDescription)
{
    D3D9DriverList drivers(d3d);
    EXPECT_EQ(kDetectionLines, GetLogTexts(LOG_INFO));
    ASSERT_EQ(d3d->GetAdapterCount(), drivers.GetCount());
    ASSERT_GE(drivers.GetCount(), 1u);
    D3DADAPTER_IDENTIFIER9 id;
    ASSERT_EQ(D3D_OK, d3d->GetAdapterIdentifier(0, 0, &id));
    D3DDISPLAYMODE desktop;
    ASSERT_EQ(D3D_OK, d3d->GetAdapterDisplayMode(0, &desktop));
    D3D9Driver* driver = static_cast<D3D9Driver*>(drivers.GetItem(0u));
    EXPECT_STREQ(id.Driver, driver->GetDriverName());
    EXPECT_EQ(std::string("Monitor-1-") + id.Description, driver->GetDriverDescription());
    EXPECT_EQ(0, std::memcmp(&desktop, &driver->getDesktopMode(), sizeof desktop));
    // An index at or past the count throws the range error.
    EXPECT_NE(nullptr, drivers.GetItem(drivers.GetCount() - 1));
    try
    {
        drivers.GetItem(drivers.GetCount());
        ADD_FAILURE() << "no exception";
    }
    catch (const std::out_of_range& e)
    {
        EXPECT_STREQ("invalid vector<T> subscript", e.what());
    }

    // No adapter, or a runtime that could not be made: an empty list and both lines.
    ClearLog();
    kvproxy::SetAdapterCount(0);
    D3D9DriverList none(d3d);
    EXPECT_EQ(0u, none.GetCount());
    EXPECT_EQ(0u, D3D9DriverList(nullptr).GetCount());
    EXPECT_EQ((Texts{kDetectionLines[0], kDetectionLines[1], kDetectionLines[0], kDetectionLines[1]}),
              GetLogTexts(LOG_INFO));

    // A second adapter the runtime does not have: its queries fail and leave
    // the records empty, but it is still listed under its own number.
    kvproxy::SetAdapterCount(2);
    kvproxy::SetAdapterDescription("  Wide  Card \t\r ");
    D3D9DriverList two(d3d);
    ASSERT_EQ(2u, two.GetCount());
    EXPECT_STREQ("Monitor-1-  Wide  Card", two.GetItem(0u)->GetDriverDescription()) << "trimmed at the end only";
    const std::string second = two.GetItem(1u)->GetDriverDescription();
    EXPECT_EQ(0u, second.find("Monitor-2-")) << second;
    EXPECT_EQ(two.GetItem(0u), two.GetItem("Monitor-1-  Wide  Card"));
    EXPECT_EQ(two.GetItem(1u), two.GetItem(second.c_str()));
    for (const char* name :
         {"Monitor-1-  Wide  Card \t\r ", "Monitor-3-  Wide  Card", "  Wide  Card", static_cast<const char*>(nullptr)})
        EXPECT_EQ(nullptr, two.GetItem(name)) << (name ? name : "null");
}

TEST_F(Drivers, ModesAreFilteredCollapsedToTheBestRateAndSixteenBitFirstAndDescribedByTheirDepth)
{
    EXPECT_EQ(Texts{}, Modes({}, {}));
    EXPECT_EQ(nullptr, modes->GetItem("640 x 480 @ 32-bit colour"));
    // Below 640 by 400 is left out; refresh rates collapse to the highest, in
    // either order; sixteen-bit modes come first and formats stay apart.
    EXPECT_EQ((Texts{"640 x 400 @ 32-bit colour 60Hz", "800 x 600 @ 32-bit colour 60Hz"}),
              Modes({}, {Mode(639, 480, 60), Mode(640, 399, 60), Mode(640, 400, 60), Mode(320, 200, 70),
                         Mode(800, 600, 60)}));
    EXPECT_EQ((Texts{"800 x 600 @ 32-bit colour 75Hz", "1024 x 768 @ 32-bit colour 85Hz"}),
              Modes({}, {Mode(800, 600, 60), Mode(1024, 768, 85), Mode(800, 600, 75), Mode(1024, 768, 60),
                         Mode(800, 600, 72)}));
    EXPECT_EQ(
        (Texts{"1024 x 768 @ 16-bit colour 60Hz", "800 x 600 @ 16-bit colour 60Hz", "800 x 600 @ 32-bit colour 75Hz"}),
        Modes({Mode(1024, 768, 60, D3DFMT_R5G6B5), Mode(800, 600, 60, D3DFMT_R5G6B5)}, {Mode(800, 600, 75)}));
    EXPECT_EQ(PF_R5G6B5, modes->GetItem(0u)->getPixelFormat());
    EXPECT_EQ(PF_X8R8G8B8, modes->GetItem(2u)->getPixelFormat());
    // Lookup by description, and past the end.
    EXPECT_EQ(modes->GetItem(2u), modes->GetItem("800 x 600 @ 32-bit colour"));
    EXPECT_EQ(nullptr, modes->GetItem("800x600"));
    ClearLog();
    EXPECT_EQ(nullptr, modes->GetItem(3u));
    EXPECT_EQ(Texts{"D3D9VideoModeList::GetItem: index 3 past the 3 modes"}, GetLogTexts(LOG_ERROR));

    // 24-bit colour counts as 32 bits, ten-bit colour as 16.
    const std::string described = D3D9VideoMode(D3DDISPLAYMODE{1280, 720, 50, D3DFMT_R8G8B8}).getDescription();
    EXPECT_EQ("1280 x 720 @ 32-bit colour|1280 x 720 @ 16-bit colour",
              described + "|" + D3D9VideoMode(D3DDISPLAYMODE{1280, 720, 50, D3DFMT_A2R10G10B10}).getDescription());
    EXPECT_EQ(PF_A8R8G8B8, D3D9VideoMode(D3DDISPLAYMODE{1280, 720, 50, D3DFMT_A8R8G8B8}).getPixelFormat());
    ClearLog();
    EXPECT_EQ(0u, D3D9VideoModeList(nullptr).GetCount());
    ASSERT_EQ(1u, GetLogLineCount());
    EXPECT_EQ("D3D9RenderSystem/D3D9VideoModeList: pDriver parameter is NULL, D3D9VideoModeList::D3D9VideoModeList",
              GetLogLines()[0].file + ": " + GetLogTexts(LOG_ERROR).at(0));
}

} // namespace
