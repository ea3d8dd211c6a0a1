// Programs and their variants: which keys make which records, how a variant
// becomes ready, and what a bad description or source does.
#include "ProgramFixture.h"

#include "engine/GpuProgramCompileThread.h"

#include <thread>

using namespace kv;
using namespace kvtest;

namespace
{

// Every switch of the lit shader on both profile pairs, without a word in the log.
TEST_F(ProgramTest, EveryLitCombinationCompilesCleanly)
{
    for (RenderSystemType type : {RST_DX9C, RST_DX9A})
    {
        g_eRenderSystemType = type;
        Keys(0, 1);
        ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
        for (uint64_t variant = 0; variant < 32; ++variant)
        {
            Keys(variant & 7, 1 + variant / 8);
            EXPECT_TRUE(WaitReady(lit.get())) << variant;
        }
        EXPECT_EQ(32u, lit->GetVariants().size());
    }
    EXPECT_EQ(64u, Compiles());
    EXPECT_EQ(0u, GetLogLineCount()) << ::testing::PrintToString(Texts(LOG_WARNING));
}

TEST_F(ProgramTest, AKeyCombinationSeenAgainReusesItsRecord)
{
    g_eGpuProgramInitRuntimeMacro = 0x104; // INSTANCING, and a bit lit does not react to
    Keys(0x100, 0);
    ref_ptr<CD3D9HLSLProgram> lit = Make("lit+shadowed");
    EXPECT_EQ(0u, rs->m_nRuntimeMacro); // the initial bits end cleared, even those set before
    ASSERT_EQ(2u, lit->GetVariants().size());
    ShaderVariant* plain = lit->GetVariants()[0].get();
    EXPECT_EQ(4u, lit->GetCurrentVariant()->m_nRuntimeMacro);
    EXPECT_EQ("shader/lit.fx", plain->m_AsyncInfo.m_strSourcePath);
    EXPECT_EQ("lit+shadowed", plain->m_AsyncInfo.m_strResourceName);

    Keys(1, 2);
    ASSERT_TRUE(WaitReady(lit.get()));
    EXPECT_EQ("#define FOG 1\n#define LIGHT_COUNT 2\n", lit->GetCurrentVariant()->m_AsyncInfo.m_strMacro);
    Keys(0x100, 0);
    ASSERT_TRUE(WaitReady(lit.get()));
    EXPECT_EQ(plain, lit->GetCurrentVariant());
    EXPECT_EQ(3u, lit->GetVariants().size());
    EXPECT_EQ(3u, Compiles());
}

TEST_F(ProgramTest, AVariantAnswersItsKeysAtOnceAndItsCodeOnlyWhenReady)
{
    g_bDisassembleShader = true;
    ref_ptr<CD3D9HLSLProgram> lit(new CD3D9HLSLProgram);
    Keys(1, 3);
    ASSERT_TRUE(lit->Load("lit"));
    uint64_t keys[2] = {};
    int counts[3] = {-1, -1, -1};
    ASSERT_TRUE(lit->GetVariantMacroKeys(&keys[0], &keys[1]));
    EXPECT_EQ(1u, keys[0]);
    EXPECT_EQ(3u, keys[1]);
    EXPECT_EQ(nullptr, lit->GetVertexDisassembly());
    lit->GetInstructionCounts(&counts[0], &counts[1], &counts[2]);
    EXPECT_EQ(-1, counts[0]);
    EXPECT_FALSE(lit->IsReady());

    ASSERT_TRUE(WaitReady(lit.get()));
    EXPECT_EQ(RLS_READY, lit->m_nLoadState);
    EXPECT_EQ(0u, lit->GetCurrentVariant()->m_AsyncInfo.GetVSSize()); // the code went with Clear
    EXPECT_EQ(0, std::string(lit->GetVertexDisassembly()).find("vs_3_0"));
    EXPECT_EQ(0, std::string(lit->GetPixelDisassembly()).find("ps_3_0"));
    // Wine's disassembly has no closing count comment.
    lit->GetInstructionCounts(&counts[0], &counts[1], &counts[2]);
    EXPECT_EQ(0, counts[0] + counts[1] + counts[2]);
}

TEST(InstructionCounts, AreReadFromTheClosingCommentOfADisassembly)
{
    const struct
    {
        const char* text;
        int total, bracket;
    } rows[] = {{"ps_3_0\n// approximately 12 instruction slots used (2 texture, 10 arithmetic)\n", 12, 2},
                {"// approximately 7 instruction slots used\n", 7, 0},
                {"vs_3_0\nmov oPos, v0\n", 0, 0}};
    for (const auto& row : rows)
    {
        int bracket = -1;
        EXPECT_EQ(row.total, CD3D9HLSLProgram::ParseInstructionCounts(row.text, &bracket)) << row.text;
        EXPECT_EQ(row.bracket, bracket) << row.text;
    }
}

TEST_F(ProgramTest, ABadDescriptionMakesNoProgramAndSaysWhy)
{
    const std::string masks = "[program]\nruntime_mask = 0\nregister_mask = 0\n";
    const struct
    {
        const char* name;
        std::string text; // "-": no file
        const char* reason;
    } rows[] = {
        {"missing", "-", "no such file"},
        {"empty", "", "[program] needs runtime_mask and register_mask"},
        {"mask", "[program]\nruntime_mask = 0x1z\nregister_mask = 0\n", "a mask is not a number: \"0x1z\", \"0\""},
        {"bits", "[program]\nruntime_mask = 2\nregister_mask = 0\n", "runtime bit 1 has no macro name"},
        {"flag", masks + "custom = yes\n", "receive_lighting and custom are 0 or 1"},
        {"lights", masks + "receive_lighting = 1\n", "[lighting] needs a macro name (define) and a mask"},
        {"param", masks + "[parameters]\n0 = world\n1 = world\n",
         "parameter 1 is not \"<name>\" or \"<name> global\", once"},
    };
    for (const auto& row : rows)
    {
        ClearLog();
        const std::string name = row.name;
        if (row.text != "-")
            Write("shader/" + name + ".ini", row.text);
        EXPECT_FALSE(Make(name));
        EXPECT_EQ(std::vector<std::string>({"Program description shader/" + name + ".ini: " + row.reason,
                                            "Failed to BuildXml:" + name, "Failed to CreateGpuProgram:" + name}),
                  Errors());
    }
}

// The error sits behind a switch: only the variants that turn it on fail.
TEST_F(ProgramTest, ABadSourceFailsItsVariantsAndSparesTheOthers)
{
    const std::string source = Read("shader/lit.fx") + "\n#ifdef BROKEN\nfloat4 broken(\n#endif\n";
    Write("shader/bad.fx", source);
    Write("shader/bad.ini", "[program]\nruntime_mask = 1\nregister_mask = 0\n[runtime]\nbit0 = BROKEN\n");
    ref_ptr<CD3D9HLSLProgram> bad = Make("bad+x");
    EXPECT_TRUE(WaitReady(bad.get()));
    Keys(1, 0);
    EXPECT_FALSE(WaitReady(bad.get()));
    EXPECT_TRUE(bad->IsReady()); // finished, for the engine
    EXPECT_EQ("#define BROKEN 1\n" + source, Read("cache/bad_vs.txt"));
    ASSERT_EQ(1u, Errors().size());
    EXPECT_EQ("vs:", Errors()[0].substr(0, 3)); // then the compiler's words
    EXPECT_EQ(", bad+x", Errors()[0].substr(Errors()[0].size() - 7));
    EXPECT_EQ(1u, Entries().size()); // nothing saved for the failure
    // Failed for good: no second compile, and the good variant still serves.
    EXPECT_FALSE(bad->SelectVariant());
    Keys(0, 0);
    EXPECT_TRUE(bad->SelectVariant());
    EXPECT_EQ(1u, g_pCompileThread->GetFailureCount());

    Write("shader/ghost.ini", "[program]\nruntime_mask = 0\nregister_mask = 0\n");
    EXPECT_FALSE(WaitReady(Make("ghost").get()));
    EXPECT_EQ(std::vector<std::string>{"Shader source shader/ghost.fx not found"}, Texts(LOG_WARNING));
    EXPECT_EQ(1u, Compiles());
}

TEST_F(ProgramTest, DestroyWaitsForAVariantTheCompileThreadHolds)
{
    ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
    ASSERT_EQ(VARIANT_QUEUED, lit->GetCurrentVariant()->State());
    lit->Destroy();
    EXPECT_EQ(1u, Compiles()); // freed only after the thread was done with it
    EXPECT_TRUE(lit->GetVariants().empty());
    EXPECT_EQ(nullptr, lit->GetCurrentVariant());
    EXPECT_TRUE(lit->Reload());
    EXPECT_TRUE(WaitReady(lit.get()));
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
}

} // namespace
