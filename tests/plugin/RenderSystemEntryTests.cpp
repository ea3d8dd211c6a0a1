// The render system object without a device: the entry point, what the
// constructor and destructor do, the reserved slots, the state cache reset and
// the error reports.
#include "D3D9RenderSystem.h"
#include "D3D9ShaderConstants.h"

#include "engine/GfxTimerQuery.h"
#include "engine/Globals.h"
#include "engine/Log.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

using namespace kv;

namespace
{

struct PluginEntry : public ::testing::Test
{
    void SetUp() override { ClearLog(); }
    void TearDown() override { ASSERT_EQ(nullptr, GetRenderSystem()) << "a test left its render system alive"; }
};

std::vector<LogLine> Errors()
{
    std::vector<LogLine> out;
    for (const LogLine& l : GetLogLines())
        if (l.level == LOG_ERROR)
            out.push_back(l);
    return out;
}

TEST_F(PluginEntry, CreateRenderSystemBuildsTheObjectAndTouchesNothingElse)
{
    ASSERT_EQ(nullptr, GetRenderSystem());
    CGpuProgramCompileThread* threadBefore = g_pCompileThread;
    RenderSystemType typeBefore = g_eRenderSystemType;

    CRenderSystem* rs = CreateRenderSystem();
    ASSERT_NE(nullptr, rs);
    EXPECT_EQ(rs, GetRenderSystem());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    ASSERT_EQ(static_cast<CRenderSystem*>(d3d), rs);

    // Made: the runtime interface. Not made: device, window, compile thread.
    EXPECT_NE(nullptr, d3d->m_pD3D9);
    EXPECT_EQ(nullptr, d3d->m_pD3D9Device);
    EXPECT_EQ(nullptr, rs->GetD3D9Device());
    EXPECT_FALSE(rs->m_pMainWindow);
    EXPECT_EQ(threadBefore, g_pCompileThread);
    EXPECT_EQ(typeBefore, g_eRenderSystemType);
    EXPECT_EQ(0u, GetLogLineCount());

    // Initial values of the members.
    EXPECT_FALSE(d3d->m_bAnisotropicFilter);
    EXPECT_EQ(1, d3d->m_nMaxAnisotropy);
    EXPECT_EQ(0u, d3d->m_nAdapter);
    EXPECT_EQ(D3DFMT_UNKNOWN, d3d->m_adapterFormat);
    EXPECT_FALSE(d3d->m_pActiveDepthBuffer);
    EXPECT_TRUE(d3d->m_mapReadbackSurfaces.empty());
    EXPECT_EQ(nullptr, d3d->m_pLockedReadbackSurface);
    EXPECT_EQ(nullptr, d3d->m_pDriverList);
    EXPECT_EQ(nullptr, d3d->m_pCurrentVertexShader);
    EXPECT_EQ(nullptr, d3d->m_pCurrentPixelShader);
    for (IDirect3DSurface9* s : d3d->m_pCurrentRenderTargets)
        EXPECT_EQ(nullptr, s);
    EXPECT_EQ(nullptr, d3d->m_pCurrentDepthStencil);
    EXPECT_EQ(0, d3d->m_scissorRect.left);
    EXPECT_EQ(0, d3d->m_scissorRect.right);
    EXPECT_FALSE(d3d->m_bScissorEnabled);
    EXPECT_FALSE(d3d->m_bStencilEnabled);
    EXPECT_TRUE(d3d->m_renderStates.empty());
    EXPECT_TRUE(d3d->m_samplerStates.empty());
    EXPECT_TRUE(d3d->m_textures.empty());
    EXPECT_TRUE(d3d->m_streamBuffers.empty());
    EXPECT_TRUE(d3d->m_frameNesting.empty());
    for (IDirect3DPixelShader9* s : d3d->m_pComplexityShaders)
        EXPECT_EQ(nullptr, s);
    // The engine's side of the object.
    EXPECT_NE(nullptr, rs->m_pCapabilities);
    EXPECT_EQ(FILL_SOLID, rs->GetFillMode());
    EXPECT_EQ(CULL_CLOCKWISE, rs->GetCullingMode());

    delete rs;
    EXPECT_EQ(nullptr, GetRenderSystem());
    EXPECT_EQ(0u, GetLogLineCount());
}

TEST_F(PluginEntry, ReservedSlotsAnswerZeroAndDoNothing)
{
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    d3d->_resetStateCaches();
    std::vector<uint32_t> states = d3d->m_renderStates;

    EXPECT_EQ(0u, rs->ReservedQuery1(0xFFFFFFFFu));
    EXPECT_EQ(0u, rs->ReservedQuery0());
    EXPECT_FALSE(rs->CreateReservedBuffer(1, 2, 3, 4, 5));
    EXPECT_FALSE(rs->CreateReservedTexture(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
    rs->DrawReserved3(1, 2, 3);
    rs->DrawReserved5(1, 2, 3, 4, 5);
    rs->DrawReserved2(1, 2);
    rs->StateReserved3(1, 2, 3);
    rs->ReservedCall12(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12);
    rs->ReservedCall2(1, 2);
    rs->ReservedCall3(1, 2, 3);
    rs->ReservedCall1A(1);
    rs->ReservedCall1B(1);
    rs->ReservedHookA();
    rs->ReservedHookB();
    rs->OnFrameUpdate();

    EXPECT_EQ(states, d3d->m_renderStates);
    EXPECT_EQ(0u, GetLogLineCount());
}

TEST_F(PluginEntry, TextureUsageMapsFirstMatchFirst)
{
    EXPECT_EQ(static_cast<DWORD>(D3DUSAGE_DEPTHSTENCIL), CD3D9RenderSystem::TextureUsageToD3D(0x100));
    // Depth-stencil wins over render target.
    EXPECT_EQ(static_cast<DWORD>(D3DUSAGE_DEPTHSTENCIL), CD3D9RenderSystem::TextureUsageToD3D(0x120));
    EXPECT_EQ(static_cast<DWORD>(D3DUSAGE_RENDERTARGET), CD3D9RenderSystem::TextureUsageToD3D(0x20));
    EXPECT_EQ(static_cast<DWORD>(D3DUSAGE_RENDERTARGET), CD3D9RenderSystem::TextureUsageToD3D(0x22));
    EXPECT_EQ(static_cast<DWORD>(D3DUSAGE_DYNAMIC), CD3D9RenderSystem::TextureUsageToD3D(0x02));
    EXPECT_EQ(static_cast<DWORD>(D3DUSAGE_DYNAMIC), CD3D9RenderSystem::TextureUsageToD3D(0x03));
    EXPECT_EQ(0u, CD3D9RenderSystem::TextureUsageToD3D(0x01));
    EXPECT_EQ(0u, CD3D9RenderSystem::TextureUsageToD3D(0x11));
    // Any other word passes unchanged.
    EXPECT_EQ(0x10u, CD3D9RenderSystem::TextureUsageToD3D(0x10));
    EXPECT_EQ(0u, CD3D9RenderSystem::TextureUsageToD3D(0));
    EXPECT_EQ(0x40000u, CD3D9RenderSystem::TextureUsageToD3D(0x40000));
}

TEST_F(PluginEntry, CheckTextureFormatAsksTheRuntimeWithTheMappedUsage)
{
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    ASSERT_NE(nullptr, d3d->m_pD3D9);
    // What BuildDevice would have read; no device is needed for the question.
    d3d->m_nAdapter = 0;
    d3d->m_d3dcaps.DeviceType = D3DDEVTYPE_HAL;
    d3d->m_adapterFormat = D3DFMT_X8R8G8B8;

    // A depth format is a texture only as a depth-stencil surface: 0x120 tests
    // as depth-stencil, 0x20 as render target.
    EXPECT_TRUE(rs->CheckTextureFormat(PF_D24S8, TU_DEPTHSTENCIL));
    EXPECT_TRUE(rs->CheckTextureFormat(PF_D24S8, TU_DEPTHSTENCIL | TU_RENDERTARGET));
    EXPECT_FALSE(rs->CheckTextureFormat(PF_D24S8, TU_RENDERTARGET));
    EXPECT_FALSE(rs->CheckTextureFormat(PF_A8R8G8B8, TU_DEPTHSTENCIL));
    EXPECT_TRUE(rs->CheckTextureFormat(PF_A8R8G8B8, TU_RENDERTARGET));
    EXPECT_TRUE(rs->CheckTextureFormat(PF_A8R8G8B8, TU_STATIC));
    // Compressed formats can be sampled but not rendered to.
    EXPECT_TRUE(rs->CheckTextureFormat(PF_DXT1, TU_STATIC));
    EXPECT_FALSE(rs->CheckTextureFormat(PF_DXT1, TU_RENDERTARGET));
    // A format without a Direct3D partner is never available.
    EXPECT_FALSE(rs->CheckTextureFormat(static_cast<PixelFormat>(999), TU_STATIC));
    EXPECT_FALSE(rs->CheckTextureFormat(PF_UNKNOWN, TU_STATIC));
    EXPECT_EQ(0u, Errors().size());
}

TEST_F(PluginEntry, CreateRenderWindowRefusesEmptyArgumentsSilently)
{
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    HWND hWnd = GetDesktopWindow();
    EXPECT_FALSE(rs->CreateRenderWindow(hWnd, 0, 480, false));
    EXPECT_FALSE(rs->CreateRenderWindow(hWnd, 640, 0, false));
    EXPECT_FALSE(rs->CreateRenderWindow(nullptr, 640, 480, true));
    EXPECT_EQ(0u, GetLogLineCount());
}

struct CountedQuery : public GfxTimerQuery
{
    explicit CountedQuery(int* deaths) : m_pDeaths(deaths) {}
    ~CountedQuery() override { ++*m_pDeaths; }
    void Measure() override {}
    uint64_t GetElapsed(bool) override { return 0; }
    uint64_t GetTimestamp() override { return 0; }
    int* m_pDeaths;
};

TEST_F(PluginEntry, DestroyTimerQueryIgnoresNullAndDeletesThroughTheDestructor)
{
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    rs->DestroyTimerQuery(nullptr);
    int deaths = 0;
    rs->DestroyTimerQuery(new CountedQuery(&deaths));
    EXPECT_EQ(1, deaths);
    EXPECT_EQ(0u, GetLogLineCount());
}

TEST_F(PluginEntry, ResetStateCachesFillsEveryShadowWithUnknown)
{
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    // Leftovers of an earlier life that the reset must overwrite.
    d3d->m_renderStates.assign(3, 7);
    g_nVSDirtyCount = 5;
    g_nPSDirtyCount = 9;
    g_VSDirtyRegisters[255] = 17;
    g_PSDirtyRegisters[223] = 17;

    d3d->_resetStateCaches();

    const uintptr_t unknown = 0xABCDEF;
    EXPECT_EQ(unknown, reinterpret_cast<uintptr_t>(d3d->m_pCurrentVertexShader));
    EXPECT_EQ(unknown, reinterpret_cast<uintptr_t>(d3d->m_pCurrentPixelShader));
    ASSERT_EQ(256u, d3d->m_renderStates.size());
    for (uint32_t v : d3d->m_renderStates)
        ASSERT_EQ(0xABCDEFu, v);
    ASSERT_EQ(261u, d3d->m_samplerStates.size());
    for (const auto& sampler : d3d->m_samplerStates)
    {
        ASSERT_EQ(16u, sampler.size());
        for (uint32_t v : sampler)
            ASSERT_EQ(0xABCDEFu, v);
    }
    ASSERT_EQ(261u, d3d->m_textures.size());
    for (IDirect3DBaseTexture9* t : d3d->m_textures)
        ASSERT_EQ(unknown, reinterpret_cast<uintptr_t>(t));
    EXPECT_EQ(unknown, reinterpret_cast<uintptr_t>(d3d->m_pCurrentIndexBuffer));
    EXPECT_EQ(unknown, reinterpret_cast<uintptr_t>(d3d->m_pCurrentVertexDeclaration));
    ASSERT_EQ(2u, d3d->m_streamBuffers.size());
    EXPECT_EQ(unknown, reinterpret_cast<uintptr_t>(d3d->m_streamBuffers[0]));
    EXPECT_EQ(unknown, reinterpret_cast<uintptr_t>(d3d->m_streamBuffers[1]));
    // Offsets and frequencies are not unknown but their defaults.
    EXPECT_EQ(std::vector<uint32_t>({0, 0}), d3d->m_streamOffsets);
    EXPECT_EQ(std::vector<uint32_t>({1, 1}), d3d->m_streamFrequencies);

    EXPECT_EQ(0, g_nVSDirtyCount);
    EXPECT_EQ(0, g_nPSDirtyCount);
    for (int r = 0; r < kVertexConstantRegisters; ++r)
    {
        ASSERT_EQ(0, g_VSDirtyRegisters[r]);
        for (float c : g_VSConstantShadow[r])
        {
            uint32_t bits;
            std::memcpy(&bits, &c, sizeof(bits));
            ASSERT_EQ(0xC7C34FF3u, bits);
        }
    }
    for (int r = 0; r < kPixelConstantRegisters; ++r)
    {
        ASSERT_EQ(0, g_PSDirtyRegisters[r]);
        for (float c : g_PSConstantShadow[r])
        {
            uint32_t bits;
            std::memcpy(&bits, &c, sizeof(bits));
            ASSERT_EQ(0xC7C34FF3u, bits);
        }
    }
    EXPECT_NEAR(-99999.9f, g_VSConstantShadow[0][0], 0.01f);

    EXPECT_EQ(unknown, reinterpret_cast<uintptr_t>(d3d->m_pCurrentDepthStencil));
    for (IDirect3DSurface9* s : d3d->m_pCurrentRenderTargets)
        EXPECT_EQ(unknown, reinterpret_cast<uintptr_t>(s));
    EXPECT_EQ(0u, GetLogLineCount());
}

TEST_F(PluginEntry, D3D9VerifyLogsNegativeResultsOnly)
{
    EXPECT_TRUE(D3D9VerifyImpl("D3D9RenderSystem/Somewhere", 12, D3D_OK));
    EXPECT_TRUE(D3D9VerifyImpl("D3D9RenderSystem/Somewhere", 12, S_FALSE, "Failed to SetIndices"));
    EXPECT_EQ(0u, GetLogLineCount());

    EXPECT_FALSE(D3D9VerifyImpl("D3D9RenderSystem/Somewhere", 12, D3DERR_INVALIDCALL));
    EXPECT_FALSE(D3D9VerifyImpl("D3D9RenderSystem/Elsewhere", 34, D3DERR_DEVICELOST, "Failed to SetIndices"));
    std::vector<LogLine> lines = GetLogLines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(LOG_ERROR, lines[0].level);
    EXPECT_EQ("D3D9RenderSystem/Somewhere", lines[0].file);
    EXPECT_EQ(12, lines[0].line);
    EXPECT_EQ("D3D9Verify:-2005530516, D3DERR_INVALIDCALL, Invalid call", lines[0].text);
    EXPECT_EQ("D3D9RenderSystem/Elsewhere", lines[1].file);
    EXPECT_EQ(34, lines[1].line);
    EXPECT_EQ("D3D9Verify:-2005530520, D3DERR_DEVICELOST, Device lost, Failed to SetIndices", lines[1].text);
}

TEST_F(PluginEntry, ErrorsNameTheirSourceFromThePluginFolder)
{
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    // As if the runtime had refused: BuildDevice is where that is found.
    d3d->m_pD3D9->Release();
    d3d->m_pD3D9 = nullptr;
    EXPECT_FALSE(d3d->BuildDevice(false, 0));
    std::vector<LogLine> lines = Errors();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("Cannot Create D3D9", lines[0].text);
    EXPECT_EQ("D3D9RenderSystem/D3D9RenderSystem", lines[0].file);
    EXPECT_GT(lines[0].line, 0);
}

TEST_F(PluginEntry, InitWithoutRuntimeFailsAtBuildDevice)
{
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    d3d->m_pD3D9->Release();
    d3d->m_pD3D9 = nullptr;
    EXPECT_FALSE(rs->Init(GetDesktopWindow(), 640, 480, false, false, 0));
    std::vector<LogLine> lines = Errors();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("Cannot Create D3D9", lines[0].text);
    EXPECT_EQ("Failed to BuildDevice", lines[1].text);
    EXPECT_EQ(nullptr, d3d->m_pD3D9Device);
}

TEST_F(PluginEntry, BuildDeviceReadsTheAdapterBeforeAnyDevice)
{
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    // Without render windows no device can be made yet, but the adapter,
    // its capabilities and its display format are read and reported.
    EXPECT_FALSE(d3d->BuildDevice(false, 0));
    EXPECT_EQ(nullptr, d3d->m_pD3D9Device);
    EXPECT_EQ(D3DDEVTYPE_HAL, d3d->m_d3dcaps.DeviceType);
    EXPECT_EQ(d3d->m_d3dcaps.AdapterOrdinal, d3d->m_nAdapter);
    D3DDISPLAYMODE mode;
    ASSERT_EQ(D3D_OK, d3d->m_pD3D9->GetAdapterDisplayMode(d3d->m_nAdapter, &mode));
    EXPECT_EQ(mode.Format, d3d->m_adapterFormat);

    std::vector<std::string> info = GetLogTexts(LOG_INFO);
    ASSERT_GE(info.size(), 6u);
    EXPECT_EQ("AdapterCount:" + std::to_string(d3d->m_pD3D9->GetAdapterCount()), info[0]);
    EXPECT_EQ("===========================\nAdapter #0", info[1]);
    EXPECT_EQ(0u, info[2].find("Driver: "));
    EXPECT_EQ(0u, info[3].find("Description: "));
    EXPECT_EQ(0u, info[4].find("DeviceName: "));
    EXPECT_EQ(0u, info[5].find("VendorId: 0x"));
}

} // namespace
