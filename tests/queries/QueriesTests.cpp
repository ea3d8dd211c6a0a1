// Occlusion and GPU timer queries and the viewing modes' pixel shaders on Wine's Direct3D 9 and HLSL compiler behind
// the recording d3d9.dll.
#include "D3D9HardwareOcclusionQuery.h"
#include "GfxTimerQueryManager.h"
#include "KvDeviceTest.h"
#include "TimerQueryD3D9.h"

#include "engine/GpuProgramManager.h"

#include <d3dx9.h>

#include <cstring>
#include <deque>
#include <tuple>
#include <utility>

using namespace kv;
using namespace kvtest;
using kvproxy::Method;

namespace
{

// Answers GetData from a script, one (result, value) a call, the last again and again. It outlives the render system,
// so the plug-in's Release only counts.
struct ScriptedQuery : IDirect3DQuery9
{
    std::deque<std::pair<HRESULT, DWORD>> answers;
    unsigned reads = 0;
    ULONG refs = 0;
    STDMETHOD(QueryInterface)(REFIID, void**) override { return E_NOINTERFACE; }
    STDMETHOD_(ULONG, AddRef)() override { return ++refs; }
    STDMETHOD_(ULONG, Release)() override { return --refs; }
    STDMETHOD(GetDevice)(IDirect3DDevice9**) override { return E_NOTIMPL; }
    STDMETHOD_(D3DQUERYTYPE, GetType)() override { return D3DQUERYTYPE_OCCLUSION; }
    STDMETHOD_(DWORD, GetDataSize)() override { return 4; }
    STDMETHOD(Issue)(DWORD) override { return D3D_OK; }
    STDMETHOD(GetData)(void* data, DWORD, DWORD) override
    {
        const std::pair<HRESULT, DWORD> answer = answers.front();
        ++reads;
        if (answers.size() > 1)
            answers.pop_front();
        std::memcpy(data, &answer.second, 4);
        return answer.first;
    }
};

struct Queries : KvDeviceTest
{
    void SetUp() override
    {
        GetGpuProgramManager()->SetDataRoot(KV_SAMPLES);
        KvDeviceTest::SetUp();
        if (HasFatalFailure())
            return;
        FixedFunctionColour();
        occlusion = rs->CreateHardwareOcclusionQuery();
    }
    void TearDown() override
    {
        for (GfxTimerQuery* query : {a, b})
            if (rs)
                rs->DestroyTimerQuery(query);
        KvDeviceTest::TearDown();
        GetGpuProgramManager()->ClearShaderSources();
        GetGpuProgramManager()->SetDataRoot(".");
    }
    // A quad in clip space, in a cleared frame, inside the occlusion query.
    void Quad(float x0, float y0, float x1, float y1)
    {
        declaration = declaration ? declaration : ColourDeclaration();
        const std::vector<ColourVertex> quad = kvtest::Quad(x0, y0, x1, y1, kRed);
        BeginClearedFrame();
        occlusion->BeginQuery();
        rs->DrawIndexedPrimitiveUP(PT_TRIANGLE_LIST, 4, 6, kQuadIndices.data(), CHardwareIndexBuffer::IT_16BIT,
                                   quad.data(), sizeof(quad[0]), declaration.get(), 1);
        occlusion->EndQuery();
        rs->_endFrame();
    }
    // Timer frames: each query measures after twenty quads.
    void Frames(int frames)
    {
        for (int f = 0; f < frames; ++f)
        {
            rs->BeginTimerQueryFrame();
            for (GfxTimerQuery* query : {a, b})
            {
                for (int draw = 0; draw < 20; ++draw)
                    Quad(-1, -1, 1, 1);
                query->Measure();
            }
            rs->EndTimerQueryFrame();
        }
    }
    void ResetDevice()
    {
        kvproxy::LoseDevice();
        kvproxy::AllowDeviceReset();
        ASSERT_TRUE(rs->IsDeviceAvailable());
        FixedFunctionColour();
    }

    ref_ptr<CVertexDeclaration> declaration;
    ref_ptr<CHardwareOcclusionQuery> occlusion;
    GfxTimerQuery* a = nullptr;
    GfxTimerQuery* b = nullptr;
    unsigned count = 12345;
    ScriptedQuery scripted;
};

} // namespace

TEST_F(Queries, AnOcclusionQueryCountsTheDrawnPixelsExactlyAndAnswersALostDeviceOrAFailedReadInItsWay)
{
    occlusion->EndQuery();
    EXPECT_FALSE(occlusion->FetchPixelCount(&count)); // nothing issued yet
    const std::tuple<float, float, float, float, unsigned> rows[] = {
        {-1, -1, 1, 1, 64 * 64}, {-0.5f, -0.5f, 0.5f, 0.5f, 32 * 32}, {0, 0, 0.25f, 1, 8 * 32}, {2, 2, 3, 3, 0}};
    kvproxy::Mark from = kvproxy::Here();
    for (const auto& [x0, y0, x1, y1, pixels] : rows)
    {
        Quad(x0, y0, x1, y1);
        while (occlusion->IsResultPending())
            Sleep(0);
        EXPECT_TRUE(occlusion->FetchPixelCount(&count));
        EXPECT_EQ(pixels, count) << x0 << ", " << y0;
    }
    EXPECT_EQ(2u, kvproxy::CountSince(from, Method::CreateQuery)); // whether it has them, then the one query

    // Across a reset the query goes with the device, and the next begin makes it again.
    ResetDevice();
    EXPECT_FALSE(occlusion->FetchPixelCount(&count));
    EXPECT_FALSE(occlusion->IsResultPending());
    Quad(-1, -1, 0, 1);
    EXPECT_TRUE(occlusion->FetchPixelCount(&count));
    EXPECT_EQ(32u * 64u, count);
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());

    // Scripted reads, fetched or else waited for: the answer, and the count given out and kept. The
    // device's own query goes first.
    const std::tuple<bool, HRESULT, unsigned, unsigned> reads[] = {
        {true, S_OK, 77, 77}, {true, D3DERR_DEVICELOST, 0, 0},       {true, E_FAIL, 5, 0},
        {false, S_OK, 5, 77}, {false, D3DERR_DEVICELOST, 5, 100000}, {false, E_FAIL, 5, 0}};
    CD3D9HardwareOcclusionQuery* native = static_cast<CD3D9HardwareOcclusionQuery*>(occlusion.get());
    native->notifyOnDeviceLost();
    for (const auto& [fetch, hr, given, stored] : reads)
    {
        ClearLog();
        native->m_pQuery = &scripted;
        scripted.AddRef();
        occlusion->BeginQuery();
        scripted.answers = {{S_FALSE, 0}, {S_FALSE, 0}, {hr, 77}}; // the GPU is behind twice
        unsigned out = 5;
        EXPECT_EQ(fetch && hr != E_FAIL, fetch && occlusion->FetchPixelCount(&out));
        while (!fetch && occlusion->IsResultPending())
            Sleep(0);
        // A lost device drops the native query; a failed read leaves the result pending.
        EXPECT_EQ(std::make_tuple(given, stored, hr == D3DERR_DEVICELOST ? 0u : 1u, hr == E_FAIL),
                  std::make_tuple(out, native->m_nPixelCount, scripted.refs, native->m_bResultPending));
        // A count taken is fetched again without the device; each failed fetch says so.
        const unsigned reads = scripted.reads;
        EXPECT_EQ(hr == S_OK, occlusion->FetchPixelCount(&out) && out == 77 && scripted.reads == reads);
        EXPECT_EQ(hr == E_FAIL ? 1u + fetch : 0u,
                  CountOf(Errors(), VerifyLine(E_FAIL, "Failed to GetData of an occlusion query")));
        native->notifyOnDeviceLost();
    }
}

TEST_F(Queries, TimerQueriesGiveOrderedNonZeroTimesAlsoAfterAReset)
{
    ASSERT_TRUE(rs->m_pCapabilities->m_bTimerQuery);
    a = rs->CreateTimerQuery();
    b = rs->CreateTimerQuery();
    for (int pass = 0; pass < 2; ++pass)
    {
        // The first stamp read, ever or after a reset, has nothing before it.
        Frames(1);
        b->GetElapsed(true);
        EXPECT_EQ(0u, g_pGfxTimerQueryManager->m_pFrameQueries[pass ? 2 : 0]->m_nElapsedNs);
        Frames(3);
        EXPECT_EQ(1.0f, static_cast<TimerQueryD3D9*>(a)->m_fTimeFactor); // Wine's stamps tick in nanoseconds
        const uint64_t first = a->GetElapsed(true), second = b->GetElapsed(true);
        EXPECT_TRUE(first && second && first != TimerQueryD3D9::kNotReady && second != TimerQueryD3D9::kNotReady)
            << first << ", " << second;
        EXPECT_LT(a->GetTimestamp(), b->GetTimestamp());
        EXPECT_EQ(pass ? 0 : 1, g_pGfxTimerQueryManager->m_nFrameIndex); // 4 and 9 frames round a ring of 3
        // In its own frame not even waiting brings a result; a stamp in flight at a reset gives 0.
        rs->BeginTimerQueryFrame();
        a->Measure();
        EXPECT_EQ(TimerQueryD3D9::kNotReady, a->GetElapsed(true));
        ResetDevice();
        EXPECT_EQ(0u, a->GetElapsed(true));
        rs->EndTimerQueryFrame();
    }
    // A frequency of 0 leaves the frame's stamps without a time factor.
    IDirect3DQuery9* frequency = std::exchange(g_pGfxTimerQueryManager->m_pFrequencyQuery, &scripted);
    scripted.answers = {{D3D_OK, 0}};
    Frames(1);
    EXPECT_EQ(0.0f, static_cast<TimerQueryD3D9*>(a)->m_fTimeFactor);
    g_pGfxTimerQueryManager->m_pFrequencyQuery = frequency;
    EXPECT_TRUE(Errors().empty()) << ::testing::PrintToString(Errors());
}

TEST_F(Queries, ADeviceWithoutQueriesIsToldAtEachBeginAndMeasuresNothing)
{
    occlusion = nullptr;
    declaration = nullptr;
    NewRenderSystem();
    kvproxy::FailCreateQuery(D3DQUERYTYPE_TIMESTAMP, D3DERR_NOTAVAILABLE);
    kvproxy::FailCreateQuery(D3DQUERYTYPE_OCCLUSION, D3DERR_NOTAVAILABLE);
    Start();
    FixedFunctionColour();
    occlusion = rs->CreateHardwareOcclusionQuery();
    EXPECT_FALSE(rs->m_pCapabilities->m_bTimerQuery);
    a = rs->CreateTimerQuery();
    b = rs->CreateTimerQuery();
    kvproxy::Mark from = kvproxy::Here();
    Frames(2);
    EXPECT_EQ(Call("", 0, 0), Call("", a->GetElapsed(false), b->GetTimestamp()));
    EXPECT_FALSE(occlusion->FetchPixelCount(&count) || occlusion->IsResultPending() || count != 12345u);
    // The timer frames ask nothing; every begin of the occlusion query asks and is told.
    const std::string refused = "Cannot CreateQuery, hr:" + std::to_string(static_cast<int>(D3DERR_NOTAVAILABLE));
    EXPECT_EQ(std::vector<std::string>(80, refused), Errors());
    EXPECT_EQ(ArgList(80, {D3DQUERYTYPE_OCCLUSION}), ArgsOf(from, Method::CreateQuery, 1));
}

TEST_F(Queries, EachViewingModeSetsItsOwnPixelShaderMadeOnce)
{
    const std::pair<FillMode, RenderSystemType> rows[] = {{FILL_WIRE_BLACK, RST_DX9C},
                                                          {FILL_WIRE_TINTED, RST_DX9A},
                                                          {FILL_OVERDRAW, RST_DX9C},
                                                          {FILL_SHADER_COMPLEXITY, RST_DX9A}};
    DWORD code[1024] = {};
    for (const auto& row : rows)
        for (unsigned use = 0; use < 2; ++use)
        {
            g_eRenderSystemType = row.second;
            rs->SetFillMode(row.first);
            kvproxy::Mark from = kvproxy::Here();
            d3d->SetPixelShader(nullptr);
            IDirect3DPixelShader9* shader = d3d->m_pComplexityShaders[row.first - FILL_WIRE_BLACK];
            ASSERT_NE(nullptr, shader) << row.first;
            EXPECT_EQ(ArgList({{reinterpret_cast<uintptr_t>(shader)}}), ArgsOf(from, Method::SetPixelShader, 1));
            EXPECT_EQ(1u - use, kvproxy::CountSince(from, Method::CreatePixelShader)) << row.first;
            UINT size = sizeof(code);
            shader->GetFunction(code, &size);
            EXPECT_EQ(row.second == RST_DX9C ? D3DPS_VERSION(3, 0) : D3DPS_VERSION(2, 0), code[0]);
            rs->SetFillMode(FILL_SOLID);
            d3d->SetPixelShader(nullptr);
        }
    // The complexity constant's registers are the ones the compiled table names (the last code read).
    ID3DXConstantTable* table = nullptr;
    ASSERT_EQ(D3D_OK, D3DXGetShaderConstantTable(code, &table));
    D3DXCONSTANT_DESC desc = {};
    UINT count = 1;
    table->GetConstantDesc(table->GetConstantByName(nullptr, "NormalizedComplexity"), &desc, &count);
    table->Release();
    EXPECT_EQ(std::make_pair(int(desc.RegisterIndex), int(desc.RegisterCount)),
              std::make_pair(d3d->m_nComplexityRegister, d3d->m_nComplexityRegisterCount));
    EXPECT_TRUE(GetLogLines().empty());
}

TEST_F(Queries, AComplexityFileThatFailsGivesNoShaderAndIsTriedAgain)
{
    const std::string file = "shader/editor/shadercomplexityp.fx";
    const std::pair<const char*, size_t> rows[] = {
        {"float4 NormalizedComplexity; void ps(out float4 c : COLOR0) { c = NormalizedComplexity }", 2},
        {"void ps(out float4 c : COLOR0) { c = float4(1, 0, 0, 1); }", 0}, // no NormalizedComplexity
        {nullptr, 0}};                                                     // no file
    rs->SetFillMode(FILL_SHADER_COMPLEXITY);
    for (const auto& row : rows)
    {
        GetGpuProgramManager()->ClearShaderSources();
        GetGpuProgramManager()->SetDataRoot(row.first ? KV_SAMPLES : "no such folder");
        if (row.first)
            GetGpuProgramManager()->RegisterShaderSource(file, row.first);
        ClearLog();
        kvproxy::Mark from = kvproxy::Here();
        EXPECT_EQ(nullptr, d3d->_getComplexityShader());
        EXPECT_EQ(nullptr, d3d->_getComplexityShader());
        EXPECT_TRUE(kvproxy::NoCallsOf(from, {Method::CreatePixelShader}));
        EXPECT_EQ(-1, d3d->m_nComplexityRegister);
        const std::vector<std::string> errors = Errors();
        ASSERT_EQ(row.second, errors.size());
        for (const std::string& line : errors) // the compiler's words, then the file
            EXPECT_TRUE(line.rfind("D3DXCompileShader:", 0) == 0 && line.size() > file.size() &&
                        line.substr(line.size() - file.size()) == file)
                << line;
    }
}
