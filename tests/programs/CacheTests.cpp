// The shader cache as a user meets it: which compiles it spares, what its
// entries are called, and what a damaged entry or an unwritable folder costs.
#include "ProgramFixture.h"

#include "base/Md5.h"
#include "engine/ArchiveManager.h"
#include "engine/GpuProgramCompileThread.h"

using namespace kv;
using namespace kvtest;

namespace
{

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

TEST_F(ProgramTest, TheRenderSystemTypeChoosesPrefixAndProfiles)
{
    g_eRenderSystemType = RST_DX9A;
    ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
    ASSERT_TRUE(WaitReady(lit.get()));
    DWORD code[512];
    UINT size = sizeof(code);
    ASSERT_EQ(D3D_OK, lit->GetCurrentVariant()->m_pPixelShader->GetFunction(code, &size));
    EXPECT_EQ(0xFFFF0200u, code[0]);
    ASSERT_EQ(1u, Entries().size());
    EXPECT_EQ("a/lit_", Entries()[0].substr(0, 6));

    g_eRenderSystemType = static_cast<RenderSystemType>(7);
    EXPECT_FALSE(WaitReady(Make("lit").get()));
    EXPECT_EQ(std::vector<std::string>{"Connot find g_eRenderSystemType:7"}, Errors());
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
    const struct
    {
        const char* reason;
        std::string bytes;
    } rows[] = {
        {"shorter than its header", good.substr(0, 20)},
        {"not a shader cache entry", "DXBC" + good.substr(4)},
        {"its sizes do not match the file", good.substr(0, good.size() - 1)},
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
    const std::vector<std::string> warnings = Texts(LOG_WARNING);
    ASSERT_EQ(2u, warnings.size());
    const std::string begins = "Shader cache entry " + root + "/shader/lit.ini/cache/shadercache/c/lit_";
    const std::string ends = ".bin not saved; it will be compiled again next time";
    EXPECT_EQ(begins, warnings[1].substr(0, begins.size()));
    EXPECT_EQ(ends, warnings[1].substr(warnings[1].size() - std::min(warnings[1].size(), ends.size())));
}

} // namespace
