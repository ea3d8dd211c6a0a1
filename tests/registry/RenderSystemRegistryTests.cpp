// The registry inside the render system: members join and leave by themselves,
// hear of the device's end before the runtime goes, and may outlive it.
#include "Probe.h"

#include "D3D9RenderSystem.h"
#include "D3D9ResourceManager.h"

#include "engine/Log.h"

#include <gtest/gtest.h>

#include <memory>

using namespace kv;

namespace
{

class RegistryInRenderSystem : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(nullptr, GetRenderSystem());
        ClearLog();
    }
    void TearDown() override { EXPECT_EQ(nullptr, GetRenderSystem()) << "a test left its render system alive"; }

    static std::vector<LogLine> RegistryErrors()
    {
        std::vector<LogLine> out;
        for (const LogLine& l : GetLogLines())
            if (l.level == LOG_ERROR && l.file == "D3D9RenderSystem/D3D9ResourceManager")
                out.push_back(l);
        return out;
    }

    std::vector<std::string> journal;
};

} // namespace

TEST_F(RegistryInRenderSystem, MembersJoinWhenBuiltAndLeaveWhenDestroyed)
{
    std::unique_ptr<CD3D9RenderSystem> rs(new CD3D9RenderSystem);
    D3D9ResourceManager* manager = rs->GetResourceManager();
    ASSERT_NE(nullptr, manager);
    const std::size_t before = manager->GetResourceCount();

    std::unique_ptr<Probe> a(new Probe(&journal, "a"));
    std::unique_ptr<Probe> b(new Probe(&journal, "b"));
    ASSERT_EQ(before + 2, manager->GetResourceCount());
    EXPECT_EQ(static_cast<int>(before), a->m_nResourceIndex);
    EXPECT_EQ(a.get(), manager->GetResource(before));

    a.reset();
    EXPECT_EQ(before + 1, manager->GetResourceCount());
    EXPECT_EQ(static_cast<int>(before), b->m_nResourceIndex);
    b.reset();
    EXPECT_EQ(before, manager->GetResourceCount());
    rs.reset();
    EXPECT_TRUE(RegistryErrors().empty());
}

TEST_F(RegistryInRenderSystem, AMemberBuiltBeforeTheRenderSystemStaysOutside)
{
    std::unique_ptr<Probe> early(new Probe(&journal, "early"));
    EXPECT_EQ(-1, early->m_nResourceIndex);

    std::unique_ptr<CD3D9RenderSystem> rs(new CD3D9RenderSystem);
    D3D9ResourceManager* manager = rs->GetResourceManager();
    std::unique_ptr<Probe> member(new Probe(&journal, "member"));
    const std::size_t count = manager->GetResourceCount();

    manager->notifyOnDeviceLost();
    manager->notifyOnDeviceReset();
    EXPECT_EQ((std::vector<std::string>{"member lost", "member reset"}), journal);

    // Its end removes nothing, in particular not the member at position -1's neighbour.
    early.reset();
    EXPECT_EQ(count, manager->GetResourceCount());
    EXPECT_EQ(member.get(), manager->GetResource(static_cast<std::size_t>(member->m_nResourceIndex)));
    member.reset();
    rs.reset();
}

TEST_F(RegistryInRenderSystem, EndingTellsLiveMembersBeforeTheRuntimeGoesAndReportsThem)
{
    CD3D9RenderSystem* rs = new CD3D9RenderSystem;
    std::unique_ptr<Probe> survivor(new Probe(&journal, "survivor"));
    const int index = survivor->m_nResourceIndex;
    if (!rs->m_pD3D9 || index < 0)
    {
        delete rs;
        FAIL() << "no Direct3D runtime, or the member did not register (index " << index << ")";
    }

    // Told while the render system still holds its Direct3D interface.
    bool runtimeAlive = false;
    survivor->m_hook = [&] {
        CD3D9RenderSystem* current = GetD3D9RenderSystem();
        runtimeAlive = current == rs && current->m_pD3D9 != nullptr;
    };
    delete rs;

    EXPECT_EQ((std::vector<std::string>{"survivor destroy"}), journal);
    EXPECT_TRUE(runtimeAlive);
    std::vector<LogLine> errors = RegistryErrors();
    ASSERT_EQ(2u, errors.size());
    EXPECT_EQ(0u, errors[0].text.find("g_nNodeAmount:")) << errors[0].text;
    EXPECT_EQ("DX", errors[1].text.substr(0, 2));

    // Dying after the render system: nothing to leave, the index stays.
    EXPECT_EQ(nullptr, GetRenderSystem());
    EXPECT_EQ(index, survivor->m_nResourceIndex);
    survivor->m_hook = nullptr;
    survivor.reset();
}
