// Programs and their variants: which keys make which records, how a variant
// becomes ready, what a bad description or source does; and the shader cache
// as a user meets it: the compiles it spares, the names of its entries, and
// what a damaged entry or an unwritable folder costs.
#include "ProgramFixture.h"

#include "base/Md5.h"
#include "engine/ArchiveManager.h"
#include "engine/GpuProgramCompileThread.h"

#include <cstring>
#include <thread>
#include <tuple>

using namespace kv;
using namespace kvtest;

namespace
{

// Each profile pair compiles the lit shader without a word in the log, into
// its own folder of the cache; an unknown render system type compiles nothing.
TEST_F(ProgramTest, EachRenderSystemTypeHasItsProfilesAndCacheFolder)
{
    const std::tuple<RenderSystemType, DWORD, const char*> rows[] = {{RST_DX9A, 0xFFFF0200u, "a/lit_"},
                                                                     {RST_DX9C, 0xFFFF0300u, "c/lit_"}};
    for (const auto& row : rows)
    {
        g_eRenderSystemType = std::get<0>(row);
        Keys(7, 3); // every switch
        ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
        ASSERT_TRUE(WaitReady(lit.get()));
        DWORD code[1024];
        UINT size = sizeof(code);
        ASSERT_EQ(D3D_OK, lit->GetCurrentVariant()->m_pPixelShader->GetFunction(code, &size));
        EXPECT_EQ(std::get<1>(row), code[0]);
        EXPECT_EQ(std::get<2>(row), Entries().back().substr(0, 6));
    }
    EXPECT_EQ(2u, Entries().size());
    EXPECT_EQ(0u, GetLogLineCount()) << ::testing::PrintToString(Texts(LOG_WARNING));
    g_eRenderSystemType = static_cast<RenderSystemType>(7);
    EXPECT_FALSE(WaitReady(Make("lit").get()));
    EXPECT_EQ(std::vector<std::string>{"Connot find g_eRenderSystemType:7"}, Errors());
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

// Keys are answered at once, code only when ready; a destroy waits for the
// record the compile thread holds, and a reload starts afresh.
TEST_F(ProgramTest, AVariantAnswersItsKeysAtOnceItsCodeWhenReadyAndIsFreedAfterTheThread)
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
    ASSERT_EQ(VARIANT_QUEUED, lit->GetCurrentVariant()->State());
    lit->Destroy();
    EXPECT_EQ(1u, Compiles()); // freed only after the thread was done with it
    EXPECT_TRUE(lit->GetVariants().empty());
    EXPECT_FALSE(lit->GetVariantMacroKeys(&keys[0], &keys[1]));

    EXPECT_TRUE(lit->Reload());
    ASSERT_TRUE(WaitReady(lit.get()));
    EXPECT_EQ(1u, lit->GetVariants().size());
    EXPECT_EQ(RLS_READY, lit->m_nLoadState);
    EXPECT_EQ(0u, lit->GetCurrentVariant()->m_AsyncInfo.GetVSSize()); // the code went with Clear
    EXPECT_EQ(0, std::string(lit->GetVertexDisassembly()).find("vs_3_0"));
    EXPECT_EQ(0, std::string(lit->GetPixelDisassembly()).find("ps_3_0"));
    // Wine's disassembly has no closing count comment.
    lit->GetInstructionCounts(&counts[0], &counts[1], &counts[2]);
    EXPECT_EQ(0, counts[0] + counts[1] + counts[2]);
    // Destroyed, the program lets go of both shaders: ours are the last references.
    ShaderVariant* variant = lit->GetCurrentVariant();
    variant->m_pVertexShader->AddRef();
    variant->m_pPixelShader->AddRef();
    IDirect3DVertexShader9* vertex = variant->m_pVertexShader;
    IDirect3DPixelShader9* pixel = variant->m_pPixelShader;
    lit->Destroy();
    EXPECT_EQ(0u, vertex->Release());
    EXPECT_EQ(0u, pixel->Release());
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

TEST_F(ProgramTest, EqualTextSharesAnEntryAndOneChangedMacroCharacterMakesAnother)
{
    Keys(0, 1);
    ASSERT_TRUE(WaitReady(Make("lit").get()));
    // Profile prefix, file title, and the digest of the text, the profiles and
    // the cache version, fed without separators.
    Md5 digest;
    digest.Update("#define LIGHT_COUNT 1\n" + Read("shader/lit.fx") + "vs_3_0ps_3_0VersionShaderCache3");
    EXPECT_EQ(std::vector<std::string>{"c/lit_" + digest.HexDigest() + ".bin"}, Entries());

    ref_ptr<CD3D9HLSLProgram> other = Make("lit+other");
    ASSERT_TRUE(WaitReady(other.get()));
    EXPECT_TRUE(other->GetCurrentVariant()->m_AsyncInfo.m_bFromCache);
    EXPECT_EQ(1u, Hits());
    Keys(0, 2); // "#define LIGHT_COUNT 2"
    ASSERT_TRUE(WaitReady(other.get()));
    EXPECT_EQ(2u, Compiles());
    EXPECT_EQ(2u, Entries().size());
}

TEST_F(ProgramTest, ADamagedEntryIsRefusedCompiledAgainAndRewritten)
{
    // Two entries: the one under test (fog) and another (no fog).
    ASSERT_TRUE(WaitReady(Make("lit").get()));
    const std::string foreign = Read("cache/shadercache/" + Entries()[0]);
    Keys(1, 0);
    ASSERT_TRUE(WaitReady(Make("lit").get()));
    const std::vector<std::string> entries = Entries();
    const std::string entry =
        "cache/shadercache/" + (Read("cache/shadercache/" + entries[0]) == foreign ? entries[1] : entries[0]);
    const std::string good = Read(entry);
    // The vertex code's size moved to the pixel code's: the sizes still add up.
    std::string noVertex = good;
    uint32_t sizes[2];
    std::memcpy(sizes, &good[12], 8);
    const uint32_t moved[2] = {0, sizes[0] + sizes[1]};
    std::memcpy(&noVertex[12], moved, 8);
    const struct
    {
        const char* reason;
        std::string bytes;
    } rows[] = {
        {"shorter than its header", good.substr(0, 20)},
        {"not a shader cache entry", "DXBC" + good.substr(4)},
        {"its sizes do not match the file", good.substr(0, good.size() - 1)},
        {"a stage has no code", noVertex},
        {"its checksum is wrong", good.substr(0, good.size() - 1) + char(good.back() ^ 0x40)},
        {"it belongs to another entry", foreign},
    };
    unsigned compiles = Compiles();
    for (const auto& row : rows)
    {
        ClearLog();
        Write(entry, row.bytes);
        ASSERT_TRUE(WaitReady(Make("lit").get())) << row.reason;
        EXPECT_EQ(++compiles, Compiles()) << row.reason;
        EXPECT_EQ(std::vector<std::string>{"Shader cache entry " + root + "/" + entry + " refused (" + row.reason +
                                           "); compiling it again"},
                  Texts(LOG_WARNING));
        EXPECT_EQ(good, Read(entry)) << row.reason;
    }
}

TEST_F(ProgramTest, AnUnwritableCacheFolderCostsOnlyTheSave)
{
    GetArchiveMananger()->SetCacheRoot(root + "/shader/lit.ini/cache"); // its parent is a file
    ASSERT_TRUE(WaitReady(Make("lit").get()));
    ASSERT_TRUE(WaitReady(Make("lit").get()));
    EXPECT_EQ(2u, Compiles());
    const std::string entry = "Shader cache entry " + root + "/shader/lit.ini/cache/shadercache/c/lit_";
    const std::string line =
        entry + "0123456789abcdef0123456789abcdef.bin not saved; it will be compiled again next time";
    const std::vector<std::string> warnings = Texts(LOG_WARNING);
    ASSERT_EQ(2u, warnings.size());
    EXPECT_EQ(line.size(), warnings[1].size());
    EXPECT_EQ(line.substr(0, entry.size()), warnings[1].substr(0, entry.size()));
    EXPECT_EQ(line.substr(entry.size() + 32), warnings[1].substr(entry.size() + 32));
}

} // namespace
