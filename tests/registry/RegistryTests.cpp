// The registry of device-bound objects, on its own with members built while no
// render system exists (so they stay out of every table until a test adds them
// by hand), and inside the render system: members join and leave by
// themselves, hear of the device's end before the runtime goes, and may outlive it.
#include "D3D9RenderSystem.h"
#include "D3D9Resource.h"
#include "D3D9ResourceManager.h"

#include "engine/Globals.h"
#include "engine/Log.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

using namespace kv;

namespace
{

typedef std::vector<std::string> Names;

// A member that writes what it is told into a shared journal, and can run a
// hook (adding or removing members) from inside a walk.
struct Probe : public CD3D9Resource
{
    Probe(Names* journal, const std::string& name) : m_journal(journal), m_name(name) {}
    void notifyOnDeviceDestroy() override { Note("destroy"); }
    void notifyOnDeviceLost() override { Note("lost"); }
    void notifyOnDeviceReset() override { Note("reset"); }
    void Note(const char* what)
    {
        m_journal->push_back(m_name + " " + what);
        if (m_hook)
            m_hook();
    }

    Names* m_journal;
    std::string m_name;
    std::function<void()> m_hook;
};

// The registry's own error lines.
std::vector<LogLine> RegistryErrors()
{
    std::vector<LogLine> out;
    for (const LogLine& l : GetLogLines())
        if (l.level == LOG_ERROR && l.file == "D3D9RenderSystem/D3D9ResourceManager")
            out.push_back(l);
    return out;
}

class Registry : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(nullptr, GetRenderSystem());
        ClearLog();
    }
    void TearDown() override { EXPECT_EQ(nullptr, GetRenderSystem()) << "a test left its render system alive"; }

    Probe* Add(const std::string& name)
    {
        probes.emplace_back(new Probe(&journal, name));
        EXPECT_EQ(-1, probes.back()->m_nResourceIndex) << "built without a render system";
        manager->notifyResourceCreated(probes.back().get());
        return probes.back().get();
    }
    // The names in table order; each entry's index must be its position.
    Names Table()
    {
        Names names;
        for (std::size_t i = 0; i < manager->GetResourceCount(); ++i)
        {
            Probe* p = static_cast<Probe*>(manager->GetResource(i));
            EXPECT_EQ(static_cast<int>(i), p->m_nResourceIndex) << p->m_name;
            names.push_back(p->m_name);
        }
        return names;
    }

    Names journal;
    // Declared before the manager: the members outlive it, as in the plug-in.
    std::vector<std::unique_ptr<Probe>> probes;
    std::unique_ptr<D3D9ResourceManager> manager{new D3D9ResourceManager};
};

} // namespace

TEST_F(Registry, RegistersInOrderAndRemovesBySwapping)
{
    Probe* a = Add("a");
    Probe* b = Add("b");
    Probe* c = Add("c");
    Probe* d = Add("d");
    EXPECT_EQ((Names{"a", "b", "c", "d"}), Table());
    // The last entry goes without moving anything.
    manager->notifyResourceDestroyed(d);
    EXPECT_EQ(-1, d->m_nResourceIndex);
    EXPECT_EQ((Names{"a", "b", "c"}), Table());
    // The first entry's place is taken by the last.
    manager->notifyResourceDestroyed(a);
    EXPECT_EQ(-1, a->m_nResourceIndex);
    EXPECT_EQ((Names{"c", "b"}), Table());
    // A second removal finds -1, and an index from another table is no place
    // in this one: neither changes anything.
    manager->notifyResourceDestroyed(a);
    Probe stranger(&journal, "stranger");
    stranger.m_nResourceIndex = 1;
    manager->notifyResourceDestroyed(&stranger);
    EXPECT_EQ((Names{"c", "b"}), Table());
    manager->notifyResourceDestroyed(b);
    manager->notifyResourceDestroyed(c);
    EXPECT_EQ(0u, manager->GetResourceCount());
    // An empty table ends without a log line.
    manager.reset();
    EXPECT_EQ(0u, GetLogLineCount());
}

TEST_F(Registry, EachWalkTellsEveryMemberInTableOrder)
{
    Probe* a = Add("a");
    Probe* b = Add("b");
    Probe* c = Add("c");
    manager->notifyResourceDestroyed(b);
    Probe* d = Add("d");
    manager->notifyOnDeviceLost();
    manager->notifyOnDeviceReset();
    manager->notifyOnDeviceDestroy();
    EXPECT_EQ(
        (Names{"a lost", "c lost", "d lost", "a reset", "c reset", "d reset", "a destroy", "c destroy", "d destroy"}),
        journal);

    // A member removed during a walk is not told: a drops c, d moves into c's
    // place and is still told.
    Probe* e = Add("e");
    journal.clear();
    a->m_hook = [&] { manager->notifyResourceDestroyed(c); };
    manager->notifyOnDeviceLost();
    EXPECT_EQ((Names{"a lost", "e lost", "d lost"}), journal);
    EXPECT_EQ((Names{"a", "e", "d"}), Table());
    // Dropping the last member ends the walk early instead of reading past it.
    journal.clear();
    a->m_hook = [&] { manager->notifyResourceDestroyed(d); };
    manager->notifyOnDeviceReset();
    EXPECT_EQ((Names{"a reset", "e reset"}), journal);
    // A member added during a walk is told in the same walk.
    journal.clear();
    bool added = false;
    a->m_hook = [&] {
        if (!added)
            added = Add("late") != nullptr;
    };
    manager->notifyOnDeviceLost();
    EXPECT_EQ((Names{"a lost", "e lost", "late lost"}), journal);
    a->m_hook = nullptr;
    (void)e;
}

TEST_F(Registry, ReservesTwentyThousandAndThenGrowsByHalf)
{
    EXPECT_EQ(20000u, manager->GetCapacity());
    std::vector<CD3D9Resource> many(20001);
    for (std::size_t i = 0; i < 20000; ++i)
        manager->notifyResourceCreated(&many[i]);
    EXPECT_EQ(20000u, manager->GetCapacity());
    manager->notifyResourceCreated(&many[20000]);
    EXPECT_EQ(30000u, manager->GetCapacity());
    EXPECT_EQ(20000, many[20000].m_nResourceIndex);
    // Removing from the middle of a large table still keeps the invariant.
    manager->notifyResourceDestroyed(&many[5]);
    EXPECT_EQ(&many[20000], manager->GetResource(5));
    EXPECT_EQ(5, many[20000].m_nResourceIndex);
    EXPECT_EQ(20000u, manager->GetResourceCount());
    for (CD3D9Resource& r : many)
        manager->notifyResourceDestroyed(&r);
    EXPECT_EQ(0u, manager->GetResourceCount());
}

TEST_F(Registry, LeakReportListsTheEngineCountersAndTheClosingLine)
{
    int* const counters[] = {
        &g_nNodeAmount,         &g_nEntityAmount,   &g_nEffectAmount,      &g_nSkinAmount,
        &g_nSkinSocketAmount,   &g_nAnimNodeAmount, &g_nSoundAmount,       &g_nTerrainAmount,
        &g_nCameraAmount,       &g_nLineAmount,     &g_nLightAmount,       &g_nTerrainTrunkAmount,
        &g_nNodeResAmount,      &g_nTmeAmount,      &g_nActionAmount,      &g_nParticleSystemAmount,
        &g_nSceneManagerAmount, &g_nTextureAmount,  &g_nTextureResAmount,  &g_nTextureManualAmount,
        &g_nRenderTargetAmount, &g_nVBAmount,       &g_nIBAmount,          &g_nMeshAmount,
        &g_nEffectMeshAmount,   &g_nTmeMeshAmount,  &g_nMaterialAmount,    &g_nMaterialSetAmount,
        &g_nSkeletonAmount,     &g_nSkaAmount,      &g_nSoundBufferAmount, &g_nVertexDeclarationAmount,
        &g_nGpuProgramAmount};
    ASSERT_EQ(33u, sizeof(counters) / sizeof(counters[0]));
    int saved[33];
    for (int i = 0; i < 33; ++i)
    {
        saved[i] = *counters[i];
        *counters[i] = (i + 1) * 10 + (i == 4 ? -60 : 0); // one negative value among them
    }
    Probe* a = Add("a");
    manager.reset();
    for (int i = 0; i < 33; ++i)
        *counters[i] = saved[i];

    const std::string expected =
        "g_nNodeAmount:10\ng_nEntityAmount:20\ng_nEffectAmount:30\ng_nSkinAmount:40\ng_nSkinSocketAmount:-10\n"
        "g_nAnimNodeAmount:60\ng_nSoundAmount:70\ng_nTerrainAmount:80\ng_nCameraAmount:90\ng_nLineAmount:100\n"
        "g_nLightAmount:110\ng_nTerrainTrunkAmount:120\ng_nNodeResAmount:130\ng_nTmeAmount:140\n"
        "g_nActionAmount:150\ng_nParticleSystemAmount:160\ng_nSceneManagerAmount:170\n\n"
        "g_nTextureAmount:180\ng_nTextureResAmount:190\ng_nTextureManualAmount:200\ng_nRenderTargetAmount:210\n"
        "g_nVBAmount:220\ng_nIBAmount:230\ng_nMeshAmount:240\ng_nEffectMeshAmount:250\ng_nTmeMeshAmount:260\n"
        "g_nMaterialAmount:270\ng_nMaterialSetAmount:280\ng_nSkeletonAmount:290\ng_nSkaAmount:300\n\n"
        "g_nSoundBufferAmount:310\ng_nVertexDeclarationAmount:320\ng_nGpuProgramAmount:330\n";
    // "DX设备释放前对应的DX资源应该要全部释放掉！！！" in GBK.
    const unsigned char gbk[] = {0x44, 0x58, 0xc9, 0xe8, 0xb1, 0xb8, 0xca, 0xcd, 0xb7, 0xc5, 0xc7, 0xb0,
                                 0xb6, 0xd4, 0xd3, 0xa6, 0xb5, 0xc4, 0x44, 0x58, 0xd7, 0xca, 0xd4, 0xb4,
                                 0xd3, 0xa6, 0xb8, 0xc3, 0xd2, 0xaa, 0xc8, 0xab, 0xb2, 0xbf, 0xca, 0xcd,
                                 0xb7, 0xc5, 0xb5, 0xf4, 0xa3, 0xa1, 0xa3, 0xa1, 0xa3, 0xa1};
    std::vector<LogLine> lines = RegistryErrors();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(2u, GetLogLineCount()) << "both lines errors of the registry's file";
    EXPECT_EQ(expected, lines[0].text);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(gbk), sizeof(gbk)), lines[1].text);
    // The member was not touched: alive, untold, its index as it was.
    EXPECT_EQ(0, a->m_nResourceIndex);
    EXPECT_TRUE(journal.empty());
}

TEST_F(Registry, InTheRenderSystemMembersJoinWhenBuiltAndLeaveWhenDestroyed)
{
    // A member built before the render system stays outside.
    std::unique_ptr<Probe> early(new Probe(&journal, "early"));
    EXPECT_EQ(-1, early->m_nResourceIndex);

    std::unique_ptr<CD3D9RenderSystem> rs(new CD3D9RenderSystem);
    D3D9ResourceManager* inside = rs->GetResourceManager();
    ASSERT_NE(nullptr, inside);
    const std::size_t before = inside->GetResourceCount();
    std::unique_ptr<Probe> a(new Probe(&journal, "a"));
    std::unique_ptr<Probe> b(new Probe(&journal, "b"));
    ASSERT_EQ(before + 2, inside->GetResourceCount());
    EXPECT_EQ(static_cast<int>(before), a->m_nResourceIndex);
    EXPECT_EQ(a.get(), inside->GetResource(before));
    inside->notifyOnDeviceLost();
    EXPECT_EQ((Names{"a lost", "b lost"}), journal);
    // The early one's end removes nothing, in particular not a neighbour of position -1.
    early.reset();
    EXPECT_EQ(before + 2, inside->GetResourceCount());
    a.reset();
    EXPECT_EQ(before + 1, inside->GetResourceCount());
    EXPECT_EQ(static_cast<int>(before), b->m_nResourceIndex);
    b.reset();
    EXPECT_EQ(before, inside->GetResourceCount());
    rs.reset();
    EXPECT_TRUE(RegistryErrors().empty());
}

TEST_F(Registry, EndingTellsLiveMembersBeforeTheRuntimeGoesAndReportsThem)
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
    EXPECT_EQ((Names{"survivor destroy"}), journal);
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
