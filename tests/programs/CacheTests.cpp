// The shader cache as a user meets it: which compiles it spares, what its
// entries are called, and what a damaged entry or an unwritable folder costs.
#include "ProgramFixture.h"

#include "base/Md5.h"
#include "engine/ArchiveManager.h"
#include "engine/GpuProgramCompileThread.h"

#include <filesystem>

using namespace kv;
using namespace kvtest;

namespace
{

TEST_F(ProgramTest, EqualTextSharesAnEntryAndOneChangedMacroCharacterMakesAnother)
{
    Keys(0, 1);
    ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
    ASSERT_TRUE(WaitReady(lit.get()));
    // The name: profile prefix, file title, and the digest of the text,
    // the two profiles and the cache version, fed without separators.
    Md5 digest;
    digest.Update("#define LIGHT_COUNT 1\n" + Read("shader/lit.fx") + "vs_3_0ps_3_0VersionShaderCache3");
    EXPECT_EQ(std::vector<std::string>{"c/lit_" + digest.HexDigest() + ".bin"}, Entries());

    ref_ptr<CD3D9HLSLProgram> other = Make("lit+other");
    ASSERT_TRUE(WaitReady(other.get()));
    EXPECT_EQ(1u, Compiles());
    EXPECT_EQ(1u, Hits());
    EXPECT_TRUE(other->GetCurrentVariant()->m_AsyncInfo.m_bFromCache);

    Keys(0, 2); // "#define LIGHT_COUNT 2"
    ASSERT_TRUE(WaitReady(lit.get()));
    EXPECT_EQ(2u, Compiles());
    EXPECT_EQ(2u, Entries().size());
}

TEST_F(ProgramTest, TheRenderSystemTypeChoosesPrefixAndProfiles)
{
    g_eRenderSystemType = RST_DX9A;
    ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
    ASSERT_TRUE(WaitReady(lit.get()));
    EXPECT_EQ(0xFFFF0200u, ShaderVersion(lit->GetCurrentVariant()->m_pPixelShader));
    ASSERT_EQ(1u, Entries().size());
    EXPECT_EQ("a/lit_", Entries()[0].substr(0, 6));

    g_eRenderSystemType = static_cast<RenderSystemType>(7);
    EXPECT_FALSE(WaitReady(Make("lit").get()));
    EXPECT_EQ(std::vector<std::string>{"Connot find g_eRenderSystemType:7"}, Errors());
    EXPECT_EQ(1u, Entries().size());
}

TEST_F(ProgramTest, ADamagedEntryIsRefusedCompiledAgainAndRewritten)
{
    // Two entries: the one under test (fog) and another (no fog).
    ASSERT_TRUE(WaitReady(Make("lit").get()));
    const std::vector<std::string> before = Entries();
    Keys(1, 0);
    ASSERT_TRUE(WaitReady(Make("lit").get()));
    std::vector<std::string> after = Entries();
    ASSERT_EQ(2u, after.size());
    const std::string entry = "cache/shadercache/" + (after[0] == before[0] ? after[1] : after[0]);
    const std::string good = Read(entry);
    const std::string foreign = Read("cache/shadercache/" + before[0]);

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
        ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
        ASSERT_TRUE(WaitReady(lit.get())) << row.reason;
        EXPECT_EQ(++compiles, Compiles()) << row.reason;
        EXPECT_EQ(std::vector<std::string>{"Shader cache entry " + root + "/" + entry + " refused (" + row.reason +
                                           "); compiling it again"},
                  Texts(LOG_WARNING));
        EXPECT_EQ(good, Read(entry)) << row.reason;
    }
    ASSERT_TRUE(WaitReady(Make("lit").get()));
    EXPECT_EQ(compiles, Compiles());
}

TEST_F(ProgramTest, AnUnwritableCacheFolderCostsOnlyTheSave)
{
    // A folder that cannot be made: its parent is a file.
    GetArchiveMananger()->SetCacheRoot(root + "/shader/lit.ini/cache");
    ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
    ASSERT_TRUE(WaitReady(lit.get()));
    ASSERT_EQ(1u, Texts(LOG_WARNING).size());
    const std::string warning = Texts(LOG_WARNING)[0];
    const std::string begins = "Shader cache entry " + root + "/shader/lit.ini/cache/shadercache/c/lit_";
    const std::string ends = ".bin not saved; it will be compiled again next time";
    EXPECT_EQ(begins, warning.substr(0, begins.size()));
    EXPECT_EQ(ends, warning.substr(warning.size() - std::min(warning.size(), ends.size())));
    ASSERT_TRUE(WaitReady(Make("lit").get()));
    EXPECT_EQ(2u, Compiles());
}

} // namespace
