// Programs, their variants and the shader cache; constants as the device sees them; activation around a compile and a
// reset, the complexity constant.
#include "ProgramFixture.h"

#include "D3D9ShaderConstants.h"

#include "base/Md5.h"
#include "engine/ArchiveManager.h"
#include "engine/GpuProgramManager.h"

#include <d3dx9.h>

#include <cstring>
#include <deque>
#include <functional>
#include <limits>
#include <thread>
#include <tuple>

using namespace kv;
using namespace kvtest;
using kvproxy::Method;

namespace
{

// Each profile pair compiles lit without a word, into its own cache folder; an unknown system type compiles none.
TEST_F(ProgramTest, EachRenderSystemTypeHasItsProfilesAndCacheFolder)
{
    g_bDisassembleShader = true;
    const std::tuple<RenderSystemType, const char*, const char*> rows[] = {{RST_DX9A, "ps_2_0", "a/lit_"},
                                                                           {RST_DX9C, "ps_3_0", "c/lit_"}};
    for (const auto& row : rows)
    {
        g_eRenderSystemType = std::get<0>(row);
        Keys(7, 3); // every switch
        ref_ptr<CD3D9HLSLProgram> lit = Make("lit");
        ASSERT_TRUE(WaitReady(lit.get()));
        EXPECT_EQ(0, std::string(lit->GetPixelDisassembly()).find(std::get<1>(row)));
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
    EXPECT_EQ(3u, Compiles());
}

// Keys are answered at once, code only when ready; a destroy waits for the compile thread, and a reload starts afresh.
TEST_F(ProgramTest, AVariantAnswersItsKeysAtOnceItsCodeWhenReadyAndIsFreedAfterTheThread)
{
    g_bDisassembleShader = true;
    ref_ptr<CD3D9HLSLProgram> lit(new CD3D9HLSLProgram);
    Keys(1, 3);
    // Held, the engine's shader files keep the compile thread waiting: nothing may end the test before they go.
    GetGpuProgramManager()->GetDX9ShaderMutex().Enter();
    const bool loaded = lit->Load("lit");
    uint64_t keys[2] = {};
    int counts[3] = {-1, -1, -1};
    EXPECT_TRUE(lit->GetVariantMacroKeys(&keys[0], &keys[1]));
    EXPECT_EQ(Call("", 1, 3), Call("", keys[0], keys[1]));
    EXPECT_EQ(nullptr, lit->GetVertexDisassembly());
    lit->GetInstructionCounts(&counts[0], &counts[1], &counts[2]);
    EXPECT_EQ(-1, counts[0]);
    EXPECT_FALSE(lit->IsReady());
    const bool queued = loaded && lit->GetCurrentVariant()->State() == VARIANT_QUEUED;
    GetGpuProgramManager()->GetDX9ShaderMutex().Leave();
    ASSERT_TRUE(queued);
    lit->Destroy();
    EXPECT_EQ(1u, Compiles()); // freed only after the thread was done with it
    EXPECT_FALSE(lit->GetVariantMacroKeys(&keys[0], &keys[1]));

    EXPECT_TRUE(lit->Reload());
    ASSERT_TRUE(WaitReady(lit.get()));
    EXPECT_EQ(1u, lit->GetVariants().size());
    EXPECT_EQ(RLS_READY, lit->m_nLoadState);
    EXPECT_EQ(0u, lit->GetCurrentVariant()->m_AsyncInfo.GetVSSize()); // the code went with Clear
    EXPECT_EQ(0, std::string(lit->GetVertexDisassembly()).find("vs_3_0"));
    // Wine's disassembly has no closing count comment.
    lit->GetInstructionCounts(&counts[0], &counts[1], &counts[2]);
    EXPECT_EQ(0, counts[0] + counts[1] + counts[2]);
    // Destroyed, the program lets go of both shaders: ours are the last references.
    IDirect3DVertexShader9* vertex = lit->GetCurrentVariant()->m_pVertexShader;
    IDirect3DPixelShader9* pixel = lit->GetCurrentVariant()->m_pPixelShader;
    vertex->AddRef();
    pixel->AddRef();
    lit->Destroy();
    EXPECT_EQ(0u, vertex->Release());
    EXPECT_EQ(0u, pixel->Release());
}

TEST_F(ProgramTest, ABadDescriptionMakesNoProgramAndSaysWhyAndLoadRefusesAnyThreadButTheMainOne)
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

    ClearLog();
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

// The error sits behind a switch: only the variants that turn it on fail.
TEST_F(ProgramTest, ABadSourceFailsItsVariantsAndSparesTheOthers)
{
    const std::string source =
        Read("shader/lit.fx") + "\n#ifdef BROKEN\nfloat4 broken = " + std::string(10000, 'm') + ";\n#endif\n";
    Write("shader/bad.fx", source);
    Write("shader/bad.ini", "[program]\nruntime_mask = 1\nregister_mask = 0\n[runtime]\nbit0 = BROKEN\n");
    ref_ptr<CD3D9HLSLProgram> bad = Make("bad+x");
    EXPECT_TRUE(WaitReady(bad.get()));
    Keys(1, 0);
    EXPECT_FALSE(WaitReady(bad.get()));
    EXPECT_TRUE(bad->IsReady()); // finished, for the engine
    EXPECT_EQ("#define BROKEN 1\n" + source, Read("cache/bad_vs.txt"));
    // The compiler's words, over 9000 characters for the long name, keep their last 8999.
    ASSERT_EQ(1u, Errors().size());
    EXPECT_EQ(3u + 8999 + 7, Errors()[0].size());
    EXPECT_EQ("vs:mmm", Errors()[0].substr(0, 6));
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

TEST_F(ProgramTest, EqualTextSharesAnEntryOneChangedMacroCharacterMakesAnotherAndAnUnwritableFolderCostsTheSave)
{
    Keys(0, 1);
    ASSERT_TRUE(WaitReady(Make("lit").get()));
    // Profile prefix, file title, and the digest of the text, profiles and cache version, fed without separators.
    Md5 digest;
    digest.Update("#define LIGHT_COUNT 1\n" + Read("shader/lit.fx") + "vs_3_0ps_3_0VersionShaderCache3");
    const std::string name = "c/lit_" + digest.HexDigest() + ".bin";
    EXPECT_EQ(std::vector<std::string>{name}, Entries());

    ref_ptr<CD3D9HLSLProgram> other = Make("lit+other");
    ASSERT_TRUE(WaitReady(other.get()));
    EXPECT_TRUE(other->GetCurrentVariant()->m_AsyncInfo.m_bFromCache);
    EXPECT_EQ(1u, g_pCompileThread->GetCacheHitCount());
    Keys(0, 2); // "#define LIGHT_COUNT 2"
    ASSERT_TRUE(WaitReady(other.get()));
    EXPECT_EQ(2u, Compiles());
    EXPECT_EQ(2u, Entries().size());

    // A cache folder that cannot be made costs each compile its save, and nothing more.
    GetArchiveMananger()->SetCacheRoot(root + "/shader/lit.ini/cache"); // its parent is a file
    Keys(0, 1);
    ASSERT_TRUE(WaitReady(Make("lit").get()));
    ASSERT_TRUE(WaitReady(Make("lit").get()));
    EXPECT_EQ(4u, Compiles());
    EXPECT_EQ(std::vector<std::string>(2, "Shader cache entry " + root + "/shader/lit.ini/cache/shadercache/" + name +
                                              " not saved; it will be compiled again next time"),
              Texts(LOG_WARNING));
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

typedef std::vector<std::pair<int, int>> Runs; // (first register, count)

struct Constants : LitTest
{
    // A parameter of these registers (negative: the stage does not use it).
    const CGpuProgram::PARAM* Param(int vs, int ps, int vsCount, int psCount)
    {
        binds.push_back(CGpuProgram::Bind{vs, ps, vsCount, psCount});
        params.emplace_back();
        params.back().m_pBind = &binds.back();
        return &params.back();
    }
    // Registers of values no earlier write used.
    std::vector<float> Fresh(int registers)
    {
        std::vector<float> v(static_cast<size_t>(registers) * 4);
        for (float& f : v)
            f = static_cast<float>(++serial);
        return v;
    }
    // The sends of one stage since the mark, each checked against the shadow.
    Runs Sent(kvproxy::Mark from, Method m)
    {
        Runs runs;
        for (const KvProxyCall& c : kvproxy::CallsSince(from, m))
        {
            runs.emplace_back(static_cast<int>(c.args[0]), static_cast<int>(c.args[2]));
            const float(*shadow)[4] = m == Method::SetVertexShaderConstantF ? g_VSConstantShadow : g_PSConstantShadow;
            EXPECT_EQ(0, std::memcmp(kvproxy::FloatsOf(c), shadow[c.args[0]], c.args[2] * 16));
        }
        return runs;
    }
    Runs Flush(Method m)
    {
        kvproxy::Mark from = kvproxy::Here();
        lit->FlushConstants();
        return Sent(from, m);
    }

    std::deque<CGpuProgram::Bind> binds;
    std::deque<CGpuProgram::PARAM> params;
    int serial = 0;
};

TEST_F(Constants, RegistersGoOutInRunsOfNeighboursInTheOrderWritten)
{
    const struct
    {
        Runs writes, sends;
    } rows[] = {
        {{{4, 3}, {10, 1}, {7, 1}}, {{4, 3}, {10, 1}, {7, 1}}},
        {{{5, 1}, {4, 1}}, {{5, 1}, {4, 1}}},
        {{{4, 1}, {5, 1}, {6, 2}}, {{4, 4}}},
        {{{9, 1}, {9, 1}}, {{9, 1}, {9, 1}}}, // a register written twice is sent twice
    };
    for (bool pixel : {false, true})
        for (const auto& row : rows)
        {
            for (const auto& w : row.writes)
                lit->SetVector4Array(pixel ? Param(-1, w.first, 0, w.second) : Param(w.first, -1, w.second, 0),
                                     Fresh(w.second).data(), w.second);
            kvproxy::Mark from = kvproxy::Here();
            EXPECT_EQ(row.sends, Flush(pixel ? Method::SetPixelShaderConstantF : Method::SetVertexShaderConstantF));
            EXPECT_EQ(row.sends.size(), kvproxy::CallsSince(from).size()); // nothing for the other stage
        }
}

TEST_F(Constants, AValueTheRegisterHoldsCostsNothing)
{
    const CGpuProgram::PARAM* both = Param(20, 6, 1, 1);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float one[4] = {1, 2, 3, 4}, zero[4] = {}, negativeZero[4] = {-0.0f}, withNaN[4] = {nan};
    // Compared as floats: -0 is 0, a NaN differs even from itself.
    const struct
    {
        const float* value;
        int repeats;
        Runs sends;
    } rows[] = {{one, 2, {{20, 1}}},     {one, 1, {}},           {zero, 1, {{20, 1}}}, {negativeZero, 1, {}},
                {withNaN, 1, {{20, 1}}}, {withNaN, 1, {{20, 1}}}};
    for (const auto& row : rows)
    {
        for (int i = 0; i < row.repeats; ++i)
            lit->SetVector4(both, row.value);
        EXPECT_EQ(row.sends, Flush(Method::SetVertexShaderConstantF));
    }
    // One component of a block changed (a register's last): the whole block again; after a reset, the same again.
    const CGpuProgram::PARAM* block = Param(40, -1, 4, 0);
    std::vector<float> values = Fresh(4);
    lit->SetValue(block, values.data());
    lit->FlushConstants();
    values[11] += 1.0f;
    lit->SetValue(block, values.data());
    EXPECT_EQ(Runs({{40, 4}}), Flush(Method::SetVertexShaderConstantF));
    kvproxy::LoseDevice();
    kvproxy::AllowDeviceReset();
    ASSERT_TRUE(rs->IsDeviceAvailable());
    lit->SetValue(block, values.data());
    EXPECT_EQ(Runs({{40, 4}}), Flush(Method::SetVertexShaderConstantF));
}

TEST_F(Constants, TheGuardsKeepEveryWriteInsideItsBindAndTheShadows)
{
    const std::vector<float> data = Fresh(8);
    CGpuProgram::PARAM unbound;
    const struct
    {
        const char* what;
        std::function<void()> call;
        Runs vertex, pixel;
    } rows[] = {
        {"no parameter", [&] { lit->SetVector4(nullptr, data.data()); }, {}, {}},
        {"no bind", [&] { lit->SetVector4(&unbound, data.data()); }, {}, {}},
        {"past the vertex registers", [&] { lit->SetValue(Param(253, -1, 4, 0), data.data()); }, {}, {}},
        {"past the pixel registers", [&] { lit->SetValue(Param(-1, 221, 0, 4), data.data()); }, {}, {}},
        {"array longer than the bind",
         [&] { lit->SetVector4Array(Param(30, 12, 2, 1), data.data(), 8); },
         {{30, 2}},
         {{12, 1}}},
        {"array shorter", [&] { lit->SetVector4Array(Param(50, -1, 6, 0), data.data(), 2); }, {{50, 2}}, {}},
        {"matrices", [&] { lit->SetMatrixArray(Param(60, -1, 8, 0), data.data(), 2); }, {{60, 8}}, {}},
        {"3x4 matrices", [&] { lit->SetMatrix3x4Array(Param(70, -1, 8, 0), data.data(), 2); }, {{70, 6}}, {}},
        {"countless", [&] { lit->SetMatrixArray(Param(90, -1, 1, 0), data.data(), INT32_MAX); }, {{90, 1}}, {}},
        {"a float on a block", [&] { lit->SetFloat(Param(100, -1, 4, 0), data.data()); }, {{100, 1}}, {}},
    };
    for (const auto& row : rows)
    {
        row.call();
        kvproxy::Mark from = kvproxy::Here();
        lit->FlushConstants();
        EXPECT_EQ(row.vertex, Sent(from, Method::SetVertexShaderConstantF)) << row.what;
        EXPECT_EQ(row.pixel, Sent(from, Method::SetPixelShaderConstantF)) << row.what;
    }
    EXPECT_EQ(std::vector<float>({data[0], 0, 0, 0}),
              std::vector<float>(g_VSConstantShadow[100], g_VSConstantShadow[100] + 4));

    // The vertex list fills to its last entry, then drops a write; the pixel list keeps a write that would fill it in
    // the shadow only.
    std::vector<float> many = Fresh(256);
    lit->SetVector4Array(Param(0, -1, 256, 0), many.data(), 256);
    lit->SetVector4(Param(255, -1, 1, 0), Fresh(1).data()); // lost
    EXPECT_EQ(Runs({{0, 256}}), Flush(Method::SetVertexShaderConstantF));
    lit->SetVector4Array(Param(-1, 0, 0, 223), many.data(), 223);
    lit->SetVector4(Param(-1, 223, 0, 1), &many[223 * 4]);
    EXPECT_EQ(Runs({{0, 223}}), Flush(Method::SetPixelShaderConstantF));
    EXPECT_EQ(many[223 * 4], g_PSConstantShadow[223][0]);

    // A texture on a constant's registers goes to the render system's samplers, which refuse one that does not exist.
    kvproxy::Mark from = kvproxy::Here();
    lit->SetTexture(Param(300, 2, 1, 1), nullptr, SamplerState());
    EXPECT_EQ(ArgList({{2, 0}}), ArgsOf(from, Method::SetTexture, 2));
    EXPECT_EQ(std::vector<std::string>{"SetTexture: sampler 300 does not exist"}, Errors());
}

TEST_F(Constants, BindsFollowTheCompiledTablesOfTheCurrentVariant)
{
    // No lights: the light arrays are not in the code, so they have no bind.
    const CGpuProgram::PARAM* colours = lit->GetParam("lightColours");
    const CGpuProgram::PARAM* world = lit->GetParam("world");
    ASSERT_TRUE(colours && world && world->m_pBind);
    EXPECT_EQ(nullptr, colours->m_pBind);
    EXPECT_EQ(-1, world->m_pBind->nPSRegister);
    EXPECT_EQ(4, world->m_pBind->nVSCount);
    Keys(0, 3);
    ASSERT_TRUE(WaitReady(lit.get()));
    ASSERT_NE(nullptr, colours->m_pBind);
    EXPECT_EQ(-1, colours->m_pBind->nVSRegister);
    EXPECT_EQ(4, colours->m_pBind->nPSCount); // an array binds whole
    // The registers are the shader's own, as its constant table has them.
    std::vector<DWORD> code(4096);
    UINT size = static_cast<UINT>(code.size() * 4);
    ASSERT_EQ(D3D_OK, lit->GetCurrentVariant()->m_pVertexShader->GetFunction(code.data(), &size));
    ID3DXConstantTable* table = nullptr;
    ASSERT_EQ(D3D_OK, D3DXGetShaderConstantTable(code.data(), &table));
    D3DXCONSTANT_DESC desc = {};
    UINT count = 1;
    table->GetConstantDesc(table->GetConstantByName(nullptr, "world"), &desc, &count);
    table->Release();
    lit->SetMatrixArray(world, Fresh(4).data(), 1);
    EXPECT_EQ(Runs({{static_cast<int>(desc.RegisterIndex), 4}}), Flush(Method::SetVertexShaderConstantF));

    // Wine's compiler samples no texture: a cached entry whose constant is made a sampler stands in for one that does.
    Write("shader/tex.fx", "float4 map;\nfloat4 vs(float4 p : POSITION0) : POSITION { return p; }\n"
                           "float4 ps() : COLOR0 { return map; }\n");
    Write("shader/tex.ini", "[program]\nruntime_mask = 0\nregister_mask = 0\n[parameters]\n0 = map\n");
    ASSERT_TRUE(WaitReady(Make("tex").get()));
    const std::string entry = "cache/shadercache/" + Entries().back(); // c/tex_..., after the lit entries
    std::string bytes = Read(entry);
    const size_t ctab = bytes.rfind("CTAB") + 4; // the pixel code's, its one constant at the offset in word 4
    bytes[ctab + static_cast<uint8_t>(bytes[ctab + 16]) + 4] = D3DXRS_SAMPLER;
    Md5 digest; // over what follows the header
    digest.Update(bytes.substr(52));
    Write(entry, bytes.replace(20, 32, digest.HexDigest()));
    ref_ptr<CD3D9HLSLProgram> tex = Make("tex+cached");
    ASSERT_TRUE(WaitReady(tex.get()) && tex->GetCurrentVariant()->m_AsyncInfo.m_bFromCache);
    ASSERT_NE(nullptr, tex->GetParam("map")->m_pBind);
    EXPECT_EQ(0, tex->GetParam("map")->m_pBind->nPSRegister);
}

TEST_F(LitTest, ShadersAreSetOnceNotWhileCompilingAndAgainAfterAReset)
{
    // The shaders set since a mark, and the calls that set the current variant's.
    const auto sets = [](kvproxy::Mark from) { return Trace(from, {Method::SetVertexShader, Method::SetPixelShader}); };
    const auto own = [this] {
        return Join(Call("SetVertexShader", kvproxy::PtrArg(lit->GetCurrentVariant()->m_pVertexShader)),
                    Call("SetPixelShader", kvproxy::PtrArg(lit->GetCurrentVariant()->m_pPixelShader)));
    };
    kvproxy::Mark from = kvproxy::Here();
    ASSERT_TRUE(lit->BeginActivate(nullptr, false));
    ASSERT_TRUE(lit->BeginActivate(nullptr, false));
    EXPECT_EQ(own(), sets(from));

    // The compile thread waits for the engine's shader files while we hold them.
    GetGpuProgramManager()->GetDX9ShaderMutex().Enter();
    Keys(1, 1);
    from = kvproxy::Here();
    EXPECT_FALSE(lit->BeginActivate(nullptr, false));
    EXPECT_TRUE(kvproxy::NoDeviceCalls(from));
    EXPECT_EQ(VARIANT_QUEUED, lit->GetCurrentVariant()->State());
    GetGpuProgramManager()->GetDX9ShaderMutex().Leave();
    ASSERT_TRUE(WaitReady(lit.get()));

    // A reset leaves the program as it is; the next activation sets both again.
    IDirect3DVertexShader9* shader = lit->GetCurrentVariant()->m_pVertexShader;
    ASSERT_TRUE(lit->BeginActivate(nullptr, false));
    kvproxy::LoseDevice();
    kvproxy::AllowDeviceReset();
    ASSERT_TRUE(rs->IsDeviceAvailable());
    from = kvproxy::Here();
    ASSERT_TRUE(lit->BeginActivate(nullptr, false));
    EXPECT_EQ(own(), sets(from));
    EXPECT_EQ(shader, lit->GetCurrentVariant()->m_pVertexShader);
    EXPECT_EQ(2u, Compiles());
}

// The complexity view gets the variant's costs as one constant, scaled by the budget; other modes send nothing of it.
TEST_F(Constants, TheComplexityViewGetsTheVariantsCostsAsOneConstant)
{
    d3d->m_nComplexityRegister = 3;
    d3d->m_nComplexityRegisterCount = 1;
    ShaderVariant* variant = lit->GetCurrentVariant();
    // The pixel stage's costs or the vertex stage's, the vertex stage's, then two constants.
    const std::tuple<bool, int, int, float, float> rows[] = {
        {false, 150, 30, 0.5f, 0.5f}, {true, 150, 30, 0.1f, 0.5f}, {true, 0, 0, 0.0f, 0.0f}};
    rs->SetFillMode(FILL_SHADER_COMPLEXITY);
    for (const auto& row : rows)
    {
        std::tie(g_bShaderComplexityPS, variant->m_nVertexSlots, variant->m_nPixelSlots, std::ignore, std::ignore) =
            row;
        EXPECT_EQ(Runs({{3, 1}}), Flush(Method::SetPixelShaderConstantF));
        EXPECT_EQ(std::vector<float>({std::get<3>(row), std::get<4>(row), 0.03125f, 1.0f}),
                  std::vector<float>(g_PSConstantShadow[3], g_PSConstantShadow[3] + 4));
    }
    g_bShaderComplexityPS = false;
    rs->SetFillMode(FILL_SOLID);
    variant->m_nVertexSlots = 1;
    EXPECT_EQ(Runs(), Flush(Method::SetPixelShaderConstantF));
}

} // namespace
