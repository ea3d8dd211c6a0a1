// The render system object before and beside a device: the entry point, what
// the constructor and destructor do, the state cache reset, the error reports,
// the anisotropy and stored states put on a device handed over the way
// BuildDevice hands over the one it makes, and the table the engine calls.
#include "D3D9RenderSystem.h"
#include "D3D9ShaderConstants.h"

#include "engine/GfxTimerQuery.h"
#include "engine/Globals.h"
#include "engine/Log.h"

#include <gtest/gtest.h>

#include <algorithm>
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

std::vector<std::string> Errors()
{
    return GetLogTexts(LOG_ERROR);
}

const uint32_t kUnknown = 0xABCDEF;

template <class T>
bool AllUnknown(const T& values)
{
    return std::all_of(std::begin(values), std::end(values), [](auto v) { return uintptr_t(v) == kUnknown; });
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
    EXPECT_EQ(nullptr, rs->GetD3D9Device());
    EXPECT_FALSE(rs->m_pMainWindow);
    EXPECT_EQ(threadBefore, g_pCompileThread);
    EXPECT_EQ(typeBefore, g_eRenderSystemType);
    delete rs;
    EXPECT_EQ(nullptr, GetRenderSystem());
    EXPECT_EQ(0u, GetLogLineCount());
}

TEST_F(PluginEntry, TextureFormatsAreAskedOfTheRuntimeWithTheMappedUsage)
{
    // Depth-stencil wins over render target, render target over dynamic; any
    // other word passes unchanged.
    EXPECT_EQ(static_cast<DWORD>(D3DUSAGE_DEPTHSTENCIL), CD3D9RenderSystem::TextureUsageToD3D(0x120));
    EXPECT_EQ(static_cast<DWORD>(D3DUSAGE_RENDERTARGET), CD3D9RenderSystem::TextureUsageToD3D(0x22));
    EXPECT_EQ(static_cast<DWORD>(D3DUSAGE_DYNAMIC), CD3D9RenderSystem::TextureUsageToD3D(0x03));
    EXPECT_EQ(0u, CD3D9RenderSystem::TextureUsageToD3D(0x11));
    EXPECT_EQ(0x40000u, CD3D9RenderSystem::TextureUsageToD3D(0x40000));

    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    ASSERT_NE(nullptr, d3d->m_pD3D9);
    // What BuildDevice would have read; no device is needed for the question.
    d3d->m_nAdapter = 0;
    d3d->m_d3dcaps.DeviceType = D3DDEVTYPE_HAL;
    d3d->m_adapterFormat = D3DFMT_X8R8G8B8;
    // A depth format is a texture only as a depth-stencil surface.
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
    EXPECT_TRUE(Errors().empty());
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

    EXPECT_EQ(256u, d3d->m_renderStates.size());
    EXPECT_TRUE(AllUnknown(d3d->m_renderStates)) << "render states";
    ASSERT_EQ(261u, d3d->m_samplerStates.size());
    for (const auto& sampler : d3d->m_samplerStates)
        ASSERT_TRUE(sampler.size() == 16u && AllUnknown(sampler)) << "sampler states";
    EXPECT_EQ(261u, d3d->m_textures.size());
    EXPECT_TRUE(AllUnknown(d3d->m_textures)) << "textures";
    EXPECT_EQ(2u, d3d->m_streamBuffers.size());
    EXPECT_TRUE(AllUnknown(d3d->m_streamBuffers)) << "stream buffers";
    EXPECT_TRUE(AllUnknown(d3d->m_pCurrentRenderTargets)) << "render targets";
    EXPECT_TRUE(AllUnknown(std::vector<const void*>{d3d->m_pCurrentVertexShader, d3d->m_pCurrentPixelShader,
                                                    d3d->m_pCurrentIndexBuffer, d3d->m_pCurrentVertexDeclaration,
                                                    d3d->m_pCurrentDepthStencil}))
        << "shaders, indices, declaration, depth stencil";
    // Offsets and frequencies are not unknown but their defaults.
    EXPECT_EQ(std::vector<uint32_t>({0, 0}), d3d->m_streamOffsets);
    EXPECT_EQ(std::vector<uint32_t>({1, 1}), d3d->m_streamFrequencies);
    // The shader constant shadows hold a value no shader sets, none dirty.
    EXPECT_EQ(0, g_nVSDirtyCount);
    EXPECT_EQ(0, g_nPSDirtyCount);
    EXPECT_EQ(0, g_VSDirtyRegisters[255]);
    EXPECT_EQ(0, g_PSDirtyRegisters[223]);
    uint32_t bits[2];
    std::memcpy(&bits[0], &g_VSConstantShadow[kVertexConstantRegisters - 1][3], 4);
    std::memcpy(&bits[1], &g_PSConstantShadow[kPixelConstantRegisters - 1][3], 4);
    EXPECT_EQ(0xC7C34FF3u, bits[0]);
    EXPECT_EQ(0xC7C34FF3u, bits[1]);
    EXPECT_NEAR(-99999.9f, g_VSConstantShadow[0][0], 0.01f);
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
    EXPECT_EQ("D3D9RenderSystem/Somewhere:12", lines[0].file + ":" + std::to_string(lines[0].line));
    EXPECT_EQ("D3D9Verify:-2005530516, D3DERR_INVALIDCALL, Invalid call", lines[0].text);
    EXPECT_EQ("D3D9RenderSystem/Elsewhere:34", lines[1].file + ":" + std::to_string(lines[1].line));
    EXPECT_EQ("D3D9Verify:-2005530520, D3DERR_DEVICELOST, Device lost, Failed to SetIndices", lines[1].text);
}

TEST_F(PluginEntry, BuildDeviceReadsTheAdapterOrNamesTheMissingRuntime)
{
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    // Without render windows no device can be made yet, but the adapter, its
    // capabilities and its display format are read.
    EXPECT_FALSE(d3d->BuildDevice(false, 0));
    EXPECT_EQ(nullptr, d3d->m_pD3D9Device);
    EXPECT_EQ(D3DDEVTYPE_HAL, d3d->m_d3dcaps.DeviceType);
    EXPECT_EQ(d3d->m_d3dcaps.AdapterOrdinal, d3d->m_nAdapter);
    D3DDISPLAYMODE mode;
    ASSERT_EQ(D3D_OK, d3d->m_pD3D9->GetAdapterDisplayMode(d3d->m_nAdapter, &mode));
    EXPECT_EQ(mode.Format, d3d->m_adapterFormat);

    // As if the runtime had refused: BuildDevice is where that is found, and
    // the error names its source from the plug-in's folder.
    ClearLog();
    d3d->m_pD3D9->Release();
    d3d->m_pD3D9 = nullptr;
    EXPECT_FALSE(d3d->BuildDevice(false, 0));
    std::vector<LogLine> lines = GetLogLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("Cannot Create D3D9", lines[0].text);
    EXPECT_EQ("D3D9RenderSystem/D3D9RenderSystemDevice", lines[0].file);
    EXPECT_GT(lines[0].line, 0);
}

// ---- on a plain device of Wine's, made straight from the runtime

struct PluginDevice : public ::testing::Test
{
    void SetUp() override
    {
        ClearLog();
        hWnd = CreateWindowExA(0, "STATIC", "plugin test", WS_OVERLAPPEDWINDOW, 0, 0, 64, 64, nullptr, nullptr,
                               GetModuleHandleA(nullptr), nullptr);
        ASSERT_NE(nullptr, hWnd);
        rs = CreateRenderSystem();
        ASSERT_NE(nullptr, rs);
        d3d = GetD3D9RenderSystem();
        D3DPRESENT_PARAMETERS pp = {};
        pp.BackBufferWidth = pp.BackBufferHeight = 64;
        pp.BackBufferFormat = D3DFMT_X8R8G8B8;
        pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
        pp.hDeviceWindow = hWnd;
        pp.Windowed = TRUE;
        pp.PresentationInterval = D3DPRESENT_INTERVAL_IMMEDIATE;
        // The render system owns the device it is given; the test keeps one reference.
        ASSERT_EQ(D3D_OK, d3d->m_pD3D9->CreateDevice(D3DADAPTER_DEFAULT, D3DDEVTYPE_HAL, hWnd,
                                                     D3DCREATE_SOFTWARE_VERTEXPROCESSING, &pp, &device));
        device->AddRef();
        d3d->m_pD3D9Device = device;
        ASSERT_EQ(D3D_OK, device->GetDeviceCaps(&d3d->m_d3dcaps));
        d3d->_resetStateCaches();
    }
    void TearDown() override
    {
        delete rs;
        if (device)
            device->Release();
        DestroyWindow(hWnd);
    }

    DWORD DeviceSamplerState(DWORD sampler, D3DSAMPLERSTATETYPE type)
    {
        DWORD value = 0;
        EXPECT_EQ(D3D_OK, device->GetSamplerState(sampler, type, &value));
        return value;
    }

    HWND hWnd = nullptr;
    IDirect3DDevice9* device = nullptr;
    CRenderSystem* rs = nullptr;
    CD3D9RenderSystem* d3d = nullptr;
};

TEST_F(PluginDevice, SetAnisotropyTouchesNoSamplerUntilApplied)
{
    const DWORD before = DeviceSamplerState(0, D3DSAMP_MAXANISOTROPY);
    rs->SetAnisotropy(true, 8);
    bool enabled = false;
    int level = 0;
    rs->GetAnisotropy(&enabled, &level);
    EXPECT_TRUE(enabled);
    EXPECT_EQ(8, level);
    for (const auto& sampler : d3d->m_samplerStates)
        ASSERT_EQ(kUnknown, sampler[D3DSAMP_MAXANISOTROPY]);
    EXPECT_EQ(before, DeviceSamplerState(0, D3DSAMP_MAXANISOTROPY));
    // Limited by the device's maximum, on units 0 to 15 only.
    d3d->m_d3dcaps.MaxAnisotropy = 4;
    rs->ApplyTextureAnisotropy();
    for (DWORD unit = 0; unit < 16; ++unit)
        EXPECT_EQ(4u, DeviceSamplerState(unit, D3DSAMP_MAXANISOTROPY)) << unit;
    EXPECT_EQ(kUnknown, d3d->m_samplerStates[16][D3DSAMP_MAXANISOTROPY]);
    rs->SetAnisotropy(false, 2);
    rs->ApplyTextureAnisotropy();
    EXPECT_EQ(2u, DeviceSamplerState(0, D3DSAMP_MAXANISOTROPY));
}

TEST_F(PluginDevice, RestoreDeviceStatesReadsScissorAndReappliesStoredStates)
{
    RECT scissor = {1, 2, 30, 40};
    ASSERT_EQ(D3D_OK, device->SetScissorRect(&scissor));
    rs->m_bPointSprites = true;
    d3d->_restoreDeviceStates();
    RECT got = {};
    rs->GetScissorRect(&got);
    EXPECT_EQ((std::vector<LONG>{1, 2, 30, 40}), (std::vector<LONG>{got.left, got.top, got.right, got.bottom}));
    DWORD sprites = 0;
    EXPECT_EQ(D3D_OK, device->GetRenderState(D3DRS_POINTSPRITEENABLE, &sprites));
    EXPECT_EQ(TRUE, sprites);
    EXPECT_EQ(1u, d3d->m_renderStates[D3DRS_POINTSPRITEENABLE]);
    EXPECT_EQ(0u, GetLogLineCount());
}

TEST_F(PluginDevice, DestructorReleasesDeviceRuntimeAndReadbackSurfaces)
{
    IDirect3DSurface9* surface = nullptr;
    ASSERT_EQ(D3D_OK, device->CreateOffscreenPlainSurface(4, 4, D3DFMT_A8R8G8B8, D3DPOOL_SYSTEMMEM, &surface, nullptr));
    surface->AddRef(); // ours, to see the render system's release
    d3d->m_mapReadbackSurfaces[CD3D9RenderSystem::ReadbackKey(4, 4, D3DFMT_A8R8G8B8)] = surface;
    d3d->m_pLockedReadbackSurface = surface;
    IDirect3D9* runtime = d3d->m_pD3D9;
    runtime->AddRef(); // ours; the device holds one of its own till it goes
    delete rs;
    rs = nullptr;
    EXPECT_EQ(nullptr, GetRenderSystem());
    EXPECT_EQ(0u, surface->Release()) << "the map's reference was given back";
    // The device reference it was handed is gone: ours is the last.
    EXPECT_EQ(0u, device->Release());
    device = nullptr;
    EXPECT_EQ(0u, runtime->Release()) << "and the render system's own runtime";
}

// ---- the engine calls the render system through CRenderSystem's table only,
// so the place of every virtual operation is part of the contract with it. The
// destructor holds slot 1; this compiler gives it two entries (complete and
// deleting), so the operation of slot n sits at entry n, from 2 on.

// A pointer to a virtual member holds one plus the byte offset of its entry.
template <class M>
long EntryOf(M member)
{
    struct
    {
        uintptr_t ptr;
        ptrdiff_t adjust;
    } rep;
    static_assert(sizeof(member) == sizeof(rep), "unexpected member pointer layout");
    std::memcpy(&rep, &member, sizeof(rep));
    return (rep.ptr & 1) ? static_cast<long>((rep.ptr - 1) / sizeof(void*)) : -1;
}

#define SLOT(name) std::make_pair(EntryOf(&CRenderSystem::name), #name)

TEST(RenderSystemTable, EveryOperationHoldsItsSlot)
{
    const std::pair<long, const char*> slots[] = {
        SLOT(Init),
        SLOT(Reset),
        SLOT(Destroy),
        SLOT(IsDeviceAvailable),
        SLOT(ApplyTextureAnisotropy),
        SLOT(OnFrameUpdate),
        SLOT(_beginFrame),
        SLOT(_endFrame),
        SLOT(SyncFence),
        SLOT(_setViewport),
        SLOT(_setViewportRect),
        SLOT(_getViewport),
        SLOT(_setRenderTarget),
        SLOT(_getRenderTarget),
        SLOT(_createDepthBufferFor),
        SLOT(ClearFrameBuffer),
        SLOT(_disableTextureUnits),
        SLOT(SetVertexBuffers),
        SLOT(SetVertexBuffer),
        SLOT(SetIndexBuffer),
        SLOT(DrawPrimitive),
        SLOT(DrawPrimitiveUP),
        SLOT(DrawIndexedPrimitiveUP),
        SLOT(DrawReserved3),
        SLOT(DrawReserved5),
        SLOT(DrawReserved2),
        SLOT(SetTexture),
        SLOT(SetScissorRect),
        SLOT(SetScissorTestEnabled),
        SLOT(GetScissorTestEnabled),
        SLOT(GetScissorRect),
        SLOT(SetMultiSampleAntiAlias),
        SLOT(SetFillMode),
        SLOT(GetFillMode),
        SLOT(SetStencilEnabled),
        SLOT(GetStencilEnabled),
        SLOT(SetStencilState),
        SLOT(SetDepthBias),
        SLOT(GetDepthBias),
        SLOT(SetAnisotropy),
        SLOT(GetAnisotropy),
        SLOT(SetSRGBWriteEnabled),
        SLOT(SetDepthCheckEnabled),
        SLOT(GetDepthCheckEnabled),
        SLOT(SetDepthWriteEnabled),
        SLOT(GetDepthWriteEnabled),
        SLOT(_isDepthBufferCleared),
        SLOT(SetDepthFunction),
        SLOT(SetCullingMode),
        SLOT(GetCullingMode),
        SLOT(SetColourWriteEnabled),
        SLOT(SetSceneBlending),
        SLOT(SetSeparateSceneBlending),
        SLOT(SetBlendFactor),
        SLOT(StateReserved3),
        SLOT(SetPointSpritesEnabled),
        SLOT(GetPointSpritesEnabled),
        SLOT(SetClipPlane),
        SLOT(EnableClipPlane),
        SLOT(SetInvertVertexWinding),
        SLOT(CreateVertexDeclaration),
        SLOT(CreateHardwareVertexBuffer),
        SLOT(CreateHardwareIndexBuffer),
        SLOT(CreateReservedBuffer),
        SLOT(CreateVertexData),
        SLOT(CreateIndexData),
        SLOT(CreateGpuProgram),
        SLOT(CreateTextureManual),
        SLOT(CreateTextureFromMemory),
        SLOT(CreateTexture),
        SLOT(CreateReservedTexture),
        SLOT(ReservedCall12),
        SLOT(ReservedCall2),
        SLOT(CreateRenderWindow),
        SLOT(CreateMultiRenderTarget),
        SLOT(CreateHardwareOcclusionQuery),
        SLOT(ScreenShotToMemory),
        SLOT(ScreenShot),
        SLOT(BeginGetRenderTargetData),
        SLOT(EndGetRenderTargetData),
        SLOT(GetDriverList),
        SLOT(BeginEvent),
        SLOT(EndEvent),
        SLOT(SetMarker),
        SLOT(CheckTextureFormat),
        SLOT(ReservedQuery1),
        SLOT(ReservedCall3),
        SLOT(ReservedCall1A),
        SLOT(ReservedQuery0),
        SLOT(ReservedCall1B),
        SLOT(CreateTimerQuery),
        SLOT(DestroyTimerQuery),
        SLOT(BeginTimerQueryFrame),
        SLOT(EndTimerQueryFrame),
        SLOT(GetD3D9Device),
        SLOT(ReservedHookA),
        SLOT(ReservedHookB),
        SLOT(_setTextureUnitFilter),
        SLOT(_setTextureUnitFiltering),
        SLOT(_setTextureLayerAnisotropy),
        SLOT(_setTextureAddressingModeUV),
        SLOT(_setTextureAddressingModeW),
        SLOT(_setTextureBorderColour),
        SLOT(_setTextureMipmapBias),
    };
    ASSERT_EQ(104u, sizeof(slots) / sizeof(slots[0]));
    for (long i = 0; i < 104; ++i)
        EXPECT_EQ(i + 2, slots[i].first) << slots[i].second;
}

} // namespace
