// The registry of device-bound objects on its own (members built with no render system, added by hand) and inside
// the render system: members join and leave by themselves, hear of the device's end before the runtime goes,
// may outlive it.
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

class Registry : public ::testing::Test
{
protected:
    void SetUp() override { ClearLog(); }

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

TEST_F(Registry, RemovesBySwappingAndWalksInTableOrder)
{
    Probe* a = Add("a");
    Probe* b = Add("b");
    Probe* c = Add("c");
    Probe* d = Add("d");
    // The last entry goes without moving anything; the first's place is taken by the last.
    manager->notifyResourceDestroyed(d);
    EXPECT_EQ((Names{"a", "b", "c"}), Table());
    // Placed in another table at the position it left here, one past this table's end: that is no place in this one.
    d->m_nResourceIndex = 3;
    manager->notifyResourceDestroyed(d);
    manager->notifyResourceDestroyed(a);
    EXPECT_EQ((std::vector<int>{-1, -1}), (std::vector<int>{d->m_nResourceIndex, a->m_nResourceIndex}));
    EXPECT_EQ((Names{"c", "b"}), Table());
    // A second removal finds -1, and an index from another table is no place in
    // this one: neither changes anything.
    manager->notifyResourceDestroyed(a);
    Probe stranger(&journal, "stranger");
    stranger.m_nResourceIndex = 1;
    manager->notifyResourceDestroyed(&stranger);
    EXPECT_EQ((Names{"c", "b"}), Table());
    manager->notifyResourceCreated(d);
    manager->notifyOnDeviceLost();
    manager->notifyOnDeviceReset();
    manager->notifyOnDeviceDestroy();
    EXPECT_EQ(
        (Names{"c lost", "b lost", "d lost", "c reset", "b reset", "d reset", "c destroy", "b destroy", "d destroy"}),
        journal);

    // A member removed during a walk is not told: c drops b, d moves into b's
    // place and is still told. Dropping the last member ends the walk early
    // instead of reading past it.
    Probe* e = Add("e");
    journal.clear();
    c->m_hook = [&] { manager->notifyResourceDestroyed(b); };
    manager->notifyOnDeviceLost();
    EXPECT_EQ((Names{"c lost", "e lost", "d lost"}), journal);
    EXPECT_EQ((Names{"c", "e", "d"}), Table());
    journal.clear();
    c->m_hook = [&] { manager->notifyResourceDestroyed(d); };
    manager->notifyOnDeviceReset();
    EXPECT_EQ((Names{"c reset", "e reset"}), journal);
    for (Probe* p : {c, e})
        manager->notifyResourceDestroyed(p);
    EXPECT_EQ(0u, manager->GetResourceCount());
    // The table reserves 20,000 entries and then grows by half: to 30,000, then 45,000.
    std::vector<CD3D9Resource> many(30001);
    for (std::size_t i = 0; i < 20000; ++i)
        manager->notifyResourceCreated(&many[i]);
    EXPECT_EQ(20000u, manager->GetCapacity());
    for (std::size_t i = 20000; i < many.size(); ++i)
        manager->notifyResourceCreated(&many[i]);
    EXPECT_EQ(45000u, manager->GetCapacity());
    for (CD3D9Resource& r : many)
        manager->notifyResourceDestroyed(&r);
    EXPECT_EQ(0u, manager->GetResourceCount());
    // An empty table ends without a log line.
    manager.reset();
    EXPECT_EQ(0u, GetLogLineCount());
}

TEST_F(Registry, InTheRenderSystemMembersJoinAndLeaveAndHearOfTheEndBeforeTheRuntimeGoesAndTheLeakReport)
{
    // A member built before the render system stays outside.
    std::unique_ptr<Probe> early(new Probe(&journal, "early"));
    CD3D9RenderSystem* rs = new CD3D9RenderSystem;
    D3D9ResourceManager* inside = rs->GetResourceManager();
    ASSERT_NE(nullptr, inside);
    const std::size_t before = inside->GetResourceCount();
    std::unique_ptr<Probe> a(new Probe(&journal, "a")), b(new Probe(&journal, "b"));
    ASSERT_EQ(before + 2, inside->GetResourceCount());
    EXPECT_EQ(a.get(), inside->GetResource(before));
    // The early one's end removes nothing, in particular not a neighbour of position -1.
    early.reset();
    a.reset();
    EXPECT_EQ(before + 1, inside->GetResourceCount());
    EXPECT_EQ(static_cast<int>(before), b->m_nResourceIndex);

    // Told once, while the render system still holds its Direct3D interface; the report of the engine's
    // live object counts and its closing line follow. Dying after the render system: nothing to leave,
    // the index stays.
    bool runtimeAlive = false;
    b->m_hook = [&] { runtimeAlive = GetD3D9RenderSystem() == rs && rs->m_pD3D9 != nullptr; };
    ASSERT_NE(nullptr, rs->m_pD3D9) << "no Direct3D runtime";
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
    int saved[33];
    for (int i = 0; i < 33; ++i)
    {
        saved[i] = *counters[i];
        *counters[i] = (i + 1) * 10 + (i == 4 ? -60 : 0); // one negative value among them
    }
    delete rs;
    for (int i = 0; i < 33; ++i)
        *counters[i] = saved[i];
    EXPECT_EQ((Names{"b destroy"}), journal);
    EXPECT_TRUE(runtimeAlive);
    EXPECT_EQ((Names{"g_nNodeAmount:10\ng_nEntityAmount:20\ng_nEffectAmount:30\ng_nSkinAmount:40\n"
                     "g_nSkinSocketAmount:-10\ng_nAnimNodeAmount:60\ng_nSoundAmount:70\ng_nTerrainAmount:80\n"
                     "g_nCameraAmount:90\ng_nLineAmount:100\ng_nLightAmount:110\ng_nTerrainTrunkAmount:120\n"
                     "g_nNodeResAmount:130\ng_nTmeAmount:140\ng_nActionAmount:150\ng_nParticleSystemAmount:160\n"
                     "g_nSceneManagerAmount:170\n\ng_nTextureAmount:180\ng_nTextureResAmount:190\n"
                     "g_nTextureManualAmount:200\ng_nRenderTargetAmount:210\ng_nVBAmount:220\ng_nIBAmount:230\n"
                     "g_nMeshAmount:240\ng_nEffectMeshAmount:250\ng_nTmeMeshAmount:260\ng_nMaterialAmount:270\n"
                     "g_nMaterialSetAmount:280\ng_nSkeletonAmount:290\ng_nSkaAmount:300\n\n"
                     "g_nSoundBufferAmount:310\ng_nVertexDeclarationAmount:320\ng_nGpuProgramAmount:330\n",
                     // "DX设备释放前对应的DX资源应该要全部释放掉！！！" in GBK.
                     "DX\xC9\xE8\xB1\xB8\xCA\xCD\xB7\xC5\xC7\xB0\xB6\xD4\xD3\xA6\xB5\xC4"
                     "DX\xD7\xCA\xD4\xB4\xD3\xA6"
                     "\xB8\xC3\xD2\xAA\xC8\xAB\xB2\xBF\xCA\xCD\xB7\xC5\xB5\xF4\xA3\xA1\xA3\xA1\xA3\xA1"}),
              GetLogTexts(LOG_ERROR));
    EXPECT_EQ(nullptr, GetRenderSystem());
    EXPECT_EQ(static_cast<int>(before), b->m_nResourceIndex);
    b->m_hook = nullptr;
}

} // namespace
