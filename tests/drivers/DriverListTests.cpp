// The adapter list: detection and its log lines, the driver's name and
// description, lookup by index and by name.
#include "DriverFixture.h"

#include "D3D9DriverList.h"
#include "D3D9RenderSystem.h"

#include <cstring>
#include <memory>
#include <stdexcept>

using namespace kv;

namespace
{

const std::vector<std::string> kDetectionLines = {"D3D9: Driver Detection Starts", "D3D9: Driver Detection Ends"};

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

TEST_F(DriverFixture, ListsTheRealAdapterAsDirect3DReportsIt)
{
    D3D9DriverList list(d3d);
    EXPECT_EQ(kDetectionLines, Infos());
    ASSERT_EQ(d3d->GetAdapterCount(), list.GetCount());
    ASSERT_GE(list.GetCount(), 1u);

    D3DADAPTER_IDENTIFIER9 id;
    ASSERT_EQ(D3D_OK, d3d->GetAdapterIdentifier(0, 0, &id));
    D3DDISPLAYMODE desktop;
    ASSERT_EQ(D3D_OK, d3d->GetAdapterDisplayMode(0, &desktop));

    D3D9Driver* driver = static_cast<D3D9Driver*>(list.GetItem(0u));
    EXPECT_STREQ(id.Driver, driver->GetDriverName());
    EXPECT_EQ(std::string("Monitor-1-") + id.Description, driver->GetDriverDescription());
    EXPECT_EQ(0u, driver->getAdapterNumber());
    EXPECT_EQ(desktop.Width, driver->getDesktopMode().Width);
    EXPECT_EQ(desktop.Height, driver->getDesktopMode().Height);
    EXPECT_EQ(desktop.Format, driver->getDesktopMode().Format);
    // No render system: the capabilities are those of the hardware device.
    EXPECT_EQ(D3DDEVTYPE_HAL, driver->getD3D9DeviceCaps().DeviceType);
    EXPECT_EQ(id.VendorId, driver->getAdapterIdentifier().VendorId);
}

TEST_F(DriverFixture, NoAdapterGivesAnEmptyListAndBothLogLines)
{
    kvproxy::SetAdapterCount(0);
    D3D9DriverList list(d3d);
    EXPECT_EQ(0u, list.GetCount());
    EXPECT_EQ(kDetectionLines, Infos());
    EXPECT_EQ("invalid vector<T> subscript", OutOfRangeText(list, 0));
    EXPECT_EQ(nullptr, list.GetItem("Monitor-1-"));

    // A runtime that could not be made is no adapter at all.
    ClearLog();
    D3D9DriverList none(nullptr);
    EXPECT_EQ(0u, none.GetCount());
    EXPECT_EQ(kDetectionLines, Infos());
}

TEST_F(DriverFixture, IndexAtOrPastTheCountThrowsTheRangeError)
{
    D3D9DriverList list(d3d);
    const unsigned count = list.GetCount();
    ASSERT_GE(count, 1u);
    EXPECT_NE(nullptr, list.GetItem(count - 1));
    EXPECT_EQ("invalid vector<T> subscript", OutOfRangeText(list, count));
    EXPECT_EQ("invalid vector<T> subscript", OutOfRangeText(list, 0xFFFFFFFFu));
}

TEST_F(DriverFixture, MonitorsCountFromOneAndAreFoundByDescription)
{
    // A second adapter the runtime does not have: its queries fail and leave
    // the records empty, but it is still listed under its own number.
    kvproxy::SetAdapterCount(2);
    kvproxy::SetAdapterDescription("Test Adapter");
    D3D9DriverList list(d3d);
    ASSERT_EQ(2u, list.GetCount());
    EXPECT_STREQ("Monitor-1-Test Adapter", list.GetItem(0u)->GetDriverDescription());
    const std::string second = list.GetItem(1u)->GetDriverDescription();
    EXPECT_EQ(0u, second.find("Monitor-2-")) << second;

    EXPECT_EQ(list.GetItem(0u), list.GetItem("Monitor-1-Test Adapter"));
    EXPECT_EQ(list.GetItem(1u), list.GetItem(second.c_str()));
    EXPECT_EQ(nullptr, list.GetItem("Monitor-3-Test Adapter"));
    EXPECT_EQ(nullptr, list.GetItem("Test Adapter"));
    EXPECT_EQ(nullptr, list.GetItem(static_cast<const char*>(nullptr)));
}

TEST_F(DriverFixture, DescriptionIsTrimmedAtBothEndsOnly)
{
    kvproxy::SetAdapterDescription("  Wide  Card \t\r ");
    D3D9DriverList list(d3d);
    ASSERT_GE(list.GetCount(), 1u);
    EXPECT_STREQ("Monitor-1-  Wide  Card", list.GetItem(0u)->GetDriverDescription());
    EXPECT_NE(nullptr, list.GetItem("Monitor-1-  Wide  Card"));
    EXPECT_EQ(nullptr, list.GetItem("Monitor-1-  Wide  Card \t\r "));
}

TEST_F(DriverFixture, UnterminatedIdentifierTextsStayInsideTheirFields)
{
    D3DADAPTER_IDENTIFIER9 id;
    std::memset(&id, 'x', sizeof(id));
    kvproxy::SetAdapterIdentifier(KV_PROXY_ID_DRIVER | KV_PROXY_ID_DESCRIPTION, id);
    D3D9DriverList list(d3d);
    ASSERT_GE(list.GetCount(), 1u);
    EXPECT_EQ(std::string(sizeof(id.Driver), 'x'), list.GetItem(0u)->GetDriverName());
    EXPECT_EQ("Monitor-1-" + std::string(sizeof(id.Description), 'x'), list.GetItem(0u)->GetDriverDescription());
}

TEST_F(DriverFixture, CapabilitiesAreReadForTheRenderSystemsDeviceType)
{
    // Without a render system: the hardware device.
    kvproxy::Mark mark = kvproxy::Here();
    {
        D3D9DriverList list(d3d);
    }
    std::vector<KvProxyCall> caps = kvproxy::CallsSince(mark, kvproxy::Method::D3D9_GetDeviceCaps);
    ASSERT_FALSE(caps.empty());
    for (const KvProxyCall& c : caps)
        EXPECT_EQ(static_cast<uint64_t>(D3DDEVTYPE_HAL), c.args[1]);

    // With one: whatever device type its capabilities name.
    std::unique_ptr<CD3D9RenderSystem> rs(new CD3D9RenderSystem);
    rs->m_d3dcaps.DeviceType = D3DDEVTYPE_REF;
    mark = kvproxy::Here();
    CDriverList* list = rs->GetDriverList();
    ASSERT_NE(nullptr, list);
    caps = kvproxy::CallsSince(mark, kvproxy::Method::D3D9_GetDeviceCaps);
    ASSERT_EQ(list->GetCount(), caps.size());
    for (const KvProxyCall& c : caps)
        EXPECT_EQ(static_cast<uint64_t>(D3DDEVTYPE_REF), c.args[1]);
    EXPECT_EQ(D3DDEVTYPE_REF, static_cast<D3D9Driver*>(list->GetItem(0u))->getD3D9DeviceCaps().DeviceType);

    // Made once and kept: no second detection.
    mark = kvproxy::Here();
    EXPECT_EQ(list, rs->GetDriverList());
    EXPECT_TRUE(kvproxy::CallsSince(mark, kvproxy::Method::D3D9_GetAdapterCount).empty());
    rs.reset();
    EXPECT_EQ(nullptr, GetRenderSystem());
}

TEST_F(DriverFixture, ACopiedDriverEnumeratesItsOwnModes)
{
    D3D9DriverList list(d3d);
    ASSERT_GE(list.GetCount(), 1u);
    D3D9Driver* original = static_cast<D3D9Driver*>(list.GetItem(0u));
    CVideoModeList* modes = original->GetVideoModes();
    ASSERT_NE(nullptr, modes);

    const kvproxy::Mark mark = kvproxy::Here();
    D3D9Driver copy(*original);
    EXPECT_TRUE(kvproxy::CallsSince(mark, kvproxy::Method::D3D9_EnumAdapterModes).empty());
    // The texts share one buffer: each is copied before the next call.
    const std::string originalText = original->GetDriverDescription();
    const std::string copyText = copy.GetDriverDescription();
    EXPECT_EQ(originalText, copyText);
    CVideoModeList* copied = copy.GetVideoModes();
    ASSERT_NE(nullptr, copied);
    EXPECT_NE(modes, copied);
    EXPECT_EQ(modes->GetCount(), copied->GetCount());
    EXPECT_FALSE(kvproxy::CallsSince(mark, kvproxy::Method::D3D9_GetAdapterModeCount).empty());
}
