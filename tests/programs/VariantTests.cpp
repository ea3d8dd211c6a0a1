// Programs and their variants: loading, which keys make which records, how a
// variant becomes ready, and what a bad description or source does.
#include "ProgramFixture.h"

#include "engine/GpuProgramCompileThread.h"

#include <thread>

using namespace kv;
using namespace kvtest;

namespace
{

// Every switch of the lit shader, both shader models: each combination
// compiles cleanly, so no line at all reaches the log.
TEST_F(ProgramTest, EveryLitCombinationCompilesCleanlyOnBothProfilePairs)
{
    for (RenderSystemType type : {RST_DX9C, RST_DX9A})
    {
        g_eRenderSystemType = type;
        Keys(0, 0);
        ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
        ASSERT_TRUE(lit);
        for (uint64_t runtime = 0; runtime < 8; ++runtime)
            for (uint64_t lights = 1; lights <= 4; ++lights)
            {
                Keys(runtime, lights);
                EXPECT_TRUE(WaitReady(lit.get())) << runtime << " " << lights;
                EXPECT_EQ(type == RST_DX9C ? 0xFFFE0300u : 0xFFFE0200u,
                          ShaderVersion(lit->GetCurrentVariant()->m_pVertexShader));
            }
        EXPECT_EQ(33u, lit->GetVariants().size()); // and the one of Load, with no lights
    }
    EXPECT_EQ(66u, Compiles());
    EXPECT_EQ(0u, GetLogLineCount()) << ::testing::PrintToString(Texts(LOG_WARNING));
}

TEST_F(ProgramTest, AKeyCombinationSeenAgainReusesItsRecord)
{
    ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
    ASSERT_TRUE(lit);
    ASSERT_TRUE(WaitReady(lit.get()));
    ShaderVariant* plain = lit->GetCurrentVariant();
    EXPECT_EQ("#define LIGHT_COUNT 0\n", plain->m_AsyncInfo.m_strMacro);

    // Bits outside the program's masks make no new variant.
    Keys(0x100, 0);
    EXPECT_TRUE(lit->SelectVariant());
    EXPECT_EQ(plain, lit->GetCurrentVariant());

    Keys(1, 2);
    ASSERT_TRUE(WaitReady(lit.get()));
    ShaderVariant* foggy = lit->GetCurrentVariant();
    EXPECT_EQ("#define FOG 1\n#define LIGHT_COUNT 2\n", foggy->m_AsyncInfo.m_strMacro);
    Keys(0, 0);
    EXPECT_TRUE(lit->SelectVariant());
    EXPECT_EQ(plain, lit->GetCurrentVariant());
    EXPECT_EQ(2u, lit->GetVariants().size());
    EXPECT_EQ(2u, Compiles());

    // A second program has records of its own; the cache links the two.
    ref_ptr<CD3D9HLSLProgram> again = Make("lit+shadowed");
    ASSERT_TRUE(WaitReady(again.get()));
    EXPECT_NE(plain, again->GetCurrentVariant());
    EXPECT_EQ("shader/lit.fx", again->GetCurrentVariant()->m_AsyncInfo.m_strSourcePath);
    EXPECT_EQ("lit+shadowed", again->GetCurrentVariant()->m_AsyncInfo.m_strResourceName);
    EXPECT_EQ(2u, Compiles());
    EXPECT_EQ(1u, Hits());
}

TEST_F(ProgramTest, AnInitialRuntimeMacroQueuesItsVariantAheadAndLeavesTheWordAlone)
{
    g_eGpuProgramInitRuntimeMacro = 0x104; // bit 2 is INSTANCING, bit 8 means nothing to lit
    Keys(0x100, 0);
    ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
    ASSERT_TRUE(lit);
    EXPECT_EQ(0u, rs->m_nRuntimeMacro); // its bits end cleared, even those set before
    ASSERT_EQ(2u, lit->GetVariants().size());
    EXPECT_EQ(lit->GetVariants()[1].get(), lit->GetCurrentVariant());
    EXPECT_EQ(4u, lit->GetCurrentVariant()->m_nRuntimeMacro);
    lit->SelectVariant();
    EXPECT_EQ(lit->GetVariants()[0].get(), lit->GetCurrentVariant());

    g_eGpuProgramInitRuntimeMacro = 0x100;
    EXPECT_EQ(1u, Make("lit")->GetVariants().size());
}

TEST_F(ProgramTest, AVariantAnswersItsKeysAtOnceAndItsCodeOnlyWhenReady)
{
    g_bDisassembleShader = true;
    struct Listener : IResourceLoadListener
    {
        void OnLoadStateChanged(CResource*, int state) override { states.push_back(state); }
        std::vector<int> states;
    } listener;
    ref_ptr<CD3D9HLSLProgram> lit(new CD3D9HLSLProgram);
    lit->m_pLoadListener = &listener;
    Keys(1, 3);
    ASSERT_TRUE(lit->Load("lit"));

    uint64_t runtime = 0, lighting = 0;
    int counts[3] = {-1, -1, -1};
    ASSERT_TRUE(lit->GetVariantMacroKeys(&runtime, &lighting));
    EXPECT_EQ(1u, runtime);
    EXPECT_EQ(3u, lighting);
    EXPECT_EQ(nullptr, lit->GetVertexDisassembly());
    lit->GetInstructionCounts(&counts[0], &counts[1], &counts[2]);
    EXPECT_EQ(-1, counts[0]);
    EXPECT_FALSE(lit->IsReady());

    ASSERT_TRUE(WaitReady(lit.get()));
    EXPECT_TRUE(lit->IsReady());
    EXPECT_EQ(std::vector<int>{RLS_READY}, listener.states);
    EXPECT_EQ(0u, lit->GetCurrentVariant()->m_AsyncInfo.GetVSSize()); // the code went with Clear
    EXPECT_EQ(0, std::string(lit->GetVertexDisassembly()).find("vs_3_0"));
    EXPECT_EQ(0, std::string(lit->GetPixelDisassembly()).find("ps_3_0"));
    // Wine's disassembly has no closing count comment: the counts are 0.
    lit->GetInstructionCounts(&counts[0], &counts[1], &counts[2]);
    EXPECT_EQ(0, counts[0] + counts[1] + counts[2]);
}

TEST(InstructionCounts, AreReadFromTheClosingCommentOfADisassembly)
{
    const struct
    {
        const char* text;
        int total, bracket;
    } rows[] = {
        {"    ps_3_0\n    mov oC0, c0\n// approximately 12 instruction slots used (2 texture, 10 arithmetic)\n", 12, 2},
        {"// approximately 7 instruction slots used\n", 7, 0},
        {"    vs_3_0\n    mov oPos, v0\n", 0, 0},
        {"instruction slots used (5 texture", 0, 5},
    };
    for (const auto& row : rows)
    {
        int bracket = -1;
        EXPECT_EQ(row.total, CD3D9HLSLProgram::ParseInstructionCounts(row.text, &bracket)) << row.text;
        EXPECT_EQ(row.bracket, bracket) << row.text;
    }
}

TEST_F(ProgramTest, ABadDescriptionMakesNoProgramAndSaysWhy)
{
    const struct
    {
        const char* name;
        const char* text; // null: no file
        const char* reason;
    } rows[] = {
        {"missing", nullptr, "no such file"},
        {"empty", "", "[program] needs runtime_mask and register_mask"},
        {"mask", "[program]\nruntime_mask = 0x1z\nregister_mask = 0\n", "a mask is not a number: \"0x1z\", \"0\""},
        {"bits", "[program]\nruntime_mask = 2\nregister_mask = 0\n", "runtime bit 1 has no macro name"},
        {"flag", "[program]\nruntime_mask = 0\nregister_mask = 0\ncustom = yes\n",
         "receive_lighting and custom are 0 or 1"},
        {"lights", "[program]\nruntime_mask = 0\nregister_mask = 0\nreceive_lighting = 1\n",
         "[lighting] needs a macro name (define) and a mask"},
        {"param", "[program]\nruntime_mask = 0\nregister_mask = 0\n[parameters]\n0 = world\n1 = world\n",
         "parameter 1 is not \"<name>\" or \"<name> global\", once"},
    };
    for (const auto& row : rows)
    {
        ClearLog();
        const std::string name = row.name;
        if (row.text)
            Write("shader/" + name + ".ini", row.text);
        EXPECT_FALSE(Make(name)) << name;
        EXPECT_EQ(std::vector<std::string>({"Program description shader/" + name + ".ini: " + row.reason,
                                            "Failed to BuildXml:" + name, "Failed to CreateGpuProgram:" + name}),
                  Errors());
    }
}

// The error sits behind a switch: only the variants that turn it on fail.
TEST_F(ProgramTest, ACompileErrorFailsItsVariantDumpsTheSourceAndSparesTheOthers)
{
    const std::string source = Read("shader/lit.fx") + "\n#ifdef BROKEN\nfloat4 broken(\n#endif\n";
    Write("shader/bad.fx", source);
    Write("shader/bad.ini", "[program]\nruntime_mask = 1\nregister_mask = 0\n[runtime]\nbit0 = BROKEN\n");
    ref_ptr<CD3D9HLSLProgram> bad = Make("bad+x");
    ASSERT_TRUE(bad);
    EXPECT_TRUE(WaitReady(bad.get()));

    Keys(1, 0);
    EXPECT_FALSE(WaitReady(bad.get()));
    EXPECT_TRUE(bad->IsReady()); // finished, for the engine
    EXPECT_EQ("#define BROKEN 1\n" + source, Read("cache/bad_vs.txt"));
    ASSERT_EQ(1u, Errors().size());
    const std::string line = Errors()[0];
    EXPECT_EQ("vs:", line.substr(0, 3));
    EXPECT_EQ(", bad+x", line.substr(line.size() - 7));
    EXPECT_GT(line.size(), 10u);     // the compiler's own words stand between
    EXPECT_EQ(1u, Entries().size()); // nothing saved for the failure

    // Failed for good: no second compile, and the good variant still serves.
    EXPECT_FALSE(bad->SelectVariant());
    Keys(0, 0);
    EXPECT_TRUE(bad->SelectVariant());
    EXPECT_EQ(1u, Compiles());
    EXPECT_EQ(1u, g_pCompileThread->GetFailureCount());
}

TEST_F(ProgramTest, AMissingSourceFailsItsVariantWithAWarning)
{
    Write("shader/ghost.ini", "[program]\nruntime_mask = 0\nregister_mask = 0\n");
    ref_ptr<CD3D9HLSLProgram> ghost = Make("ghost");
    ASSERT_TRUE(ghost);
    EXPECT_FALSE(WaitReady(ghost.get()));
    EXPECT_EQ(std::vector<std::string>{"Shader source shader/ghost.fx not found"}, Texts(LOG_WARNING));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(ProgramTest, DestroyWaitsForAVariantTheCompileThreadHolds)
{
    ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
    ASSERT_TRUE(lit);
    ASSERT_EQ(VARIANT_QUEUED, lit->GetCurrentVariant()->State());
    lit->Destroy();
    // Freed only after the thread was done with it.
    EXPECT_EQ(1u, Compiles());
    EXPECT_TRUE(lit->GetVariants().empty());
    EXPECT_EQ(nullptr, lit->GetCurrentVariant());
    // The description stays: the program compiles again when asked.
    EXPECT_TRUE(WaitReady(lit.get()));
    EXPECT_TRUE(lit->Reload());
    EXPECT_EQ(1u, lit->GetVariants().size());
}

TEST_F(ProgramTest, LoadRefusesAnyThreadButTheMainOne)
{
    ref_ptr<CD3D9HLSLProgram> lit(new CD3D9HLSLProgram);
    bool loaded = true;
    uint32_t thread = 0;
    std::thread([&] {
        thread = GetCurrentThreadId();
        loaded = lit->Load("lit");
    }).join();
    EXPECT_FALSE(loaded);
    EXPECT_EQ(std::vector<std::string>{"Failed to CD3D9HLSLProgram::Load:lit, curThread:" + std::to_string(thread) +
                                       ", mainThread:" + std::to_string(g_mainThreadId)},
              Errors());
    EXPECT_EQ("", lit->GetName());
    EXPECT_TRUE(lit->GetVariants().empty());
}

} // namespace
