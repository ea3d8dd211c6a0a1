// The render system object before a device: the entry point, what the
// constructor and the state cache reset do, the format questions and the error
// reports, and the table the engine calls it through.
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

const uint32_t kUnknown = 0xABCDEF;

template <class T>
bool AllUnknown(const T& values)
{
    return std::all_of(std::begin(values), std::end(values), [](auto v) { return uintptr_t(v) == kUnknown; });
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

TEST(PluginEntry, CreateRenderSystemMakesTheObjectAndTheRuntimeAndNothingElse)
{
    ClearLog();
    ASSERT_EQ(nullptr, GetRenderSystem());
    CGpuProgramCompileThread* threadBefore = g_pCompileThread;
    RenderSystemType typeBefore = g_eRenderSystemType;
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    ASSERT_NE(nullptr, rs.get());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    ASSERT_EQ(rs.get(), static_cast<CRenderSystem*>(d3d));
    EXPECT_NE(nullptr, d3d->m_pD3D9);
    EXPECT_EQ(nullptr, rs->GetD3D9Device());
    EXPECT_FALSE(rs->m_pMainWindow);
    EXPECT_EQ(threadBefore, g_pCompileThread);
    EXPECT_EQ(typeBefore, g_eRenderSystemType);
    rs->DestroyTimerQuery(nullptr);
    int deaths = 0;
    rs->DestroyTimerQuery(new CountedQuery(&deaths));
    EXPECT_EQ(1, deaths);
    EXPECT_EQ(0u, GetLogLineCount());

    // Leftovers of an earlier life that a reset of the caches overwrites: every
    // shadow unknown, offsets and frequencies at their defaults, shader constants
    // at a value no shader sets (-99999.9), none dirty.
    d3d->m_renderStates.assign(3, 7);
    g_nVSDirtyCount = 5;
    g_nPSDirtyCount = 9;
    g_VSDirtyRegisters[255] = g_PSDirtyRegisters[223] = 17;
    d3d->_resetStateCaches();
    EXPECT_EQ(256u, d3d->m_renderStates.size());
    EXPECT_TRUE(AllUnknown(d3d->m_renderStates)) << "render states";
    ASSERT_EQ(261u, d3d->m_samplerStates.size());
    for (const auto& sampler : d3d->m_samplerStates)
        ASSERT_TRUE(sampler.size() == 16u && AllUnknown(sampler)) << "sampler states";
    EXPECT_EQ(261u, d3d->m_textures.size());
    EXPECT_EQ(2u, d3d->m_streamBuffers.size());
    EXPECT_TRUE(AllUnknown(d3d->m_textures) && AllUnknown(d3d->m_streamBuffers) &&
                AllUnknown(d3d->m_pCurrentRenderTargets))
        << "textures, streams, targets";
    EXPECT_TRUE(AllUnknown(std::vector<const void*>{d3d->m_pCurrentVertexShader, d3d->m_pCurrentPixelShader,
                                                    d3d->m_pCurrentIndexBuffer, d3d->m_pCurrentVertexDeclaration,
                                                    d3d->m_pCurrentDepthStencil}))
        << "shaders, indices, declaration, depth stencil";
    EXPECT_EQ((std::vector<uint32_t>{0, 0, 1, 1}),
              (std::vector<uint32_t>{d3d->m_streamOffsets[0], d3d->m_streamOffsets[1], d3d->m_streamFrequencies[0],
                                     d3d->m_streamFrequencies[1]}));
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0}),
              (std::vector<int>{g_nVSDirtyCount, g_nPSDirtyCount, g_VSDirtyRegisters[255], g_PSDirtyRegisters[223]}));
    uint32_t bits[2];
    std::memcpy(&bits[0], &g_VSConstantShadow[kVertexConstantRegisters - 1][3], 4);
    std::memcpy(&bits[1], &g_PSConstantShadow[kPixelConstantRegisters - 1][3], 4);
    EXPECT_EQ((std::vector<uint32_t>{0xC7C34FF3u, 0xC7C34FF3u}), (std::vector<uint32_t>{bits[0], bits[1]}));
    rs.reset();
    EXPECT_EQ(nullptr, GetRenderSystem());
}

TEST(PluginEntry, BuildDeviceReadsTheAdapterAndTextureFormatsAreAskedOfIt)
{
    ClearLog();
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    // Without a main window no device is made, but the adapter, its capabilities
    // and its display format are read: all the format questions need.
    EXPECT_FALSE(d3d->BuildDevice(false, 0));
    EXPECT_EQ(nullptr, d3d->m_pD3D9Device);
    EXPECT_EQ(D3DDEVTYPE_HAL, d3d->m_d3dcaps.DeviceType);
    EXPECT_EQ(d3d->m_d3dcaps.AdapterOrdinal, d3d->m_nAdapter);
    D3DDISPLAYMODE mode;
    ASSERT_EQ(D3D_OK, d3d->m_pD3D9->GetAdapterDisplayMode(d3d->m_nAdapter, &mode));
    EXPECT_EQ(mode.Format, d3d->m_adapterFormat);
    EXPECT_EQ(std::vector<std::string>{"BuildDevice: there is no main render window to make the device on"},
              GetLogTexts(LOG_ERROR));
    ClearLog();

    // Depth-stencil wins over render target, render target over dynamic; any other
    // word passes unchanged. A depth format is a texture only as a depth-stencil
    // surface; compressed formats can be sampled but not rendered to; a format
    // without a Direct3D partner is never available.
    EXPECT_EQ(
        (std::vector<DWORD>{D3DUSAGE_DEPTHSTENCIL, D3DUSAGE_RENDERTARGET, D3DUSAGE_DYNAMIC, 0, 0x40000}),
        (std::vector<DWORD>{CD3D9RenderSystem::TextureUsageToD3D(0x120), CD3D9RenderSystem::TextureUsageToD3D(0x22),
                            CD3D9RenderSystem::TextureUsageToD3D(0x03), CD3D9RenderSystem::TextureUsageToD3D(0x11),
                            CD3D9RenderSystem::TextureUsageToD3D(0x40000)}));
    const struct
    {
        PixelFormat format;
        unsigned usage;
        bool available;
    } rows[] = {{PF_D24S8, TU_DEPTHSTENCIL, true},
                {PF_D24S8, TU_DEPTHSTENCIL | TU_RENDERTARGET, true},
                {PF_D24S8, TU_RENDERTARGET, false},
                {PF_A8R8G8B8, TU_DEPTHSTENCIL, false},
                {PF_A8R8G8B8, TU_RENDERTARGET, true},
                {PF_A8R8G8B8, TU_STATIC, true},
                {PF_DXT1, TU_STATIC, true},
                {PF_DXT1, TU_RENDERTARGET, false},
                {static_cast<PixelFormat>(999), TU_STATIC, false},
                {PF_UNKNOWN, TU_STATIC, false}};
    for (const auto& r : rows)
        EXPECT_EQ(r.available, rs->CheckTextureFormat(r.format, r.usage)) << r.format << " " << r.usage;
    EXPECT_EQ(0u, GetLogLineCount());

    // As if the runtime had refused: BuildDevice is where that is found, and the
    // error names its source from the plug-in's folder.
    d3d->m_pD3D9->Release();
    d3d->m_pD3D9 = nullptr;
    EXPECT_FALSE(d3d->BuildDevice(false, 0));
    EXPECT_FALSE(rs->CheckTextureFormat(PF_A8R8G8B8, TU_STATIC));
    std::vector<LogLine> lines = GetLogLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("D3D9RenderSystem/D3D9RenderSystemDevice: Cannot Create D3D9", lines[0].file + ": " + lines[0].text);
    EXPECT_GT(lines[0].line, 0);
}

TEST(PluginEntry, D3D9VerifyLogsNegativeResultsOnly)
{
    ClearLog();
    EXPECT_TRUE(D3D9VerifyImpl("D3D9RenderSystem/Somewhere", 12, D3D_OK));
    EXPECT_TRUE(D3D9VerifyImpl("D3D9RenderSystem/Somewhere", 12, S_FALSE, "Failed to SetIndices"));
    EXPECT_EQ(0u, GetLogLineCount());
    EXPECT_FALSE(D3D9VerifyImpl("D3D9RenderSystem/Somewhere", 12, D3DERR_INVALIDCALL));
    EXPECT_FALSE(D3D9VerifyImpl("D3D9RenderSystem/Elsewhere", 34, D3DERR_DEVICELOST, "Failed to SetIndices"));
    std::vector<std::string> lines;
    for (const LogLine& l : GetLogLines())
        lines.push_back(l.file + ":" + std::to_string(l.line) + (l.level == LOG_ERROR ? " error " : " ") + l.text);
    EXPECT_EQ((std::vector<std::string>{
                  "D3D9RenderSystem/Somewhere:12 error D3D9Verify:-2005530516, D3DERR_INVALIDCALL, Invalid call",
                  "D3D9RenderSystem/Elsewhere:34 error D3D9Verify:-2005530520, D3DERR_DEVICELOST, Device lost, "
                  "Failed to SetIndices"}),
              lines);
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

// Each operation at the entry after the one before, from entry 2.
template <class... Slots>
void ExpectConsecutive(Slots... slots)
{
    const std::pair<long, const char*> all[] = {slots...};
    long entry = 2;
    for (const auto& s : all)
        EXPECT_EQ(entry++, s.first) << s.second;
    EXPECT_EQ(106, entry) << "104 operations";
}

TEST(RenderSystemTable, EveryOperationHoldsItsSlot)
{
    ExpectConsecutive(
        SLOT(Init), SLOT(Reset), SLOT(Destroy), SLOT(IsDeviceAvailable), SLOT(ApplyTextureAnisotropy),
        SLOT(OnFrameUpdate), SLOT(_beginFrame), SLOT(_endFrame), SLOT(SyncFence), SLOT(_setViewport),
        SLOT(_setViewportRect), SLOT(_getViewport), SLOT(_setRenderTarget), SLOT(_getRenderTarget),
        SLOT(_createDepthBufferFor), SLOT(ClearFrameBuffer), SLOT(_disableTextureUnits), SLOT(SetVertexBuffers),
        SLOT(SetVertexBuffer), SLOT(SetIndexBuffer), SLOT(DrawPrimitive), SLOT(DrawPrimitiveUP),
        SLOT(DrawIndexedPrimitiveUP), SLOT(DrawReserved3), SLOT(DrawReserved5), SLOT(DrawReserved2), SLOT(SetTexture),
        SLOT(SetScissorRect), SLOT(SetScissorTestEnabled), SLOT(GetScissorTestEnabled), SLOT(GetScissorRect),
        SLOT(SetMultiSampleAntiAlias), SLOT(SetFillMode), SLOT(GetFillMode), SLOT(SetStencilEnabled),
        SLOT(GetStencilEnabled), SLOT(SetStencilState), SLOT(SetDepthBias), SLOT(GetDepthBias), SLOT(SetAnisotropy),
        SLOT(GetAnisotropy), SLOT(SetSRGBWriteEnabled), SLOT(SetDepthCheckEnabled), SLOT(GetDepthCheckEnabled),
        SLOT(SetDepthWriteEnabled), SLOT(GetDepthWriteEnabled), SLOT(_isDepthBufferCleared), SLOT(SetDepthFunction),
        SLOT(SetCullingMode), SLOT(GetCullingMode), SLOT(SetColourWriteEnabled), SLOT(SetSceneBlending),
        SLOT(SetSeparateSceneBlending), SLOT(SetBlendFactor), SLOT(StateReserved3), SLOT(SetPointSpritesEnabled),
        SLOT(GetPointSpritesEnabled), SLOT(SetClipPlane), SLOT(EnableClipPlane), SLOT(SetInvertVertexWinding),
        SLOT(CreateVertexDeclaration), SLOT(CreateHardwareVertexBuffer), SLOT(CreateHardwareIndexBuffer),
        SLOT(CreateReservedBuffer), SLOT(CreateVertexData), SLOT(CreateIndexData), SLOT(CreateGpuProgram),
        SLOT(CreateTextureManual), SLOT(CreateTextureFromMemory), SLOT(CreateTexture), SLOT(CreateReservedTexture),
        SLOT(ReservedCall12), SLOT(ReservedCall2), SLOT(CreateRenderWindow), SLOT(CreateMultiRenderTarget),
        SLOT(CreateHardwareOcclusionQuery), SLOT(ScreenShotToMemory), SLOT(ScreenShot), SLOT(BeginGetRenderTargetData),
        SLOT(EndGetRenderTargetData), SLOT(GetDriverList), SLOT(BeginEvent), SLOT(EndEvent), SLOT(SetMarker),
        SLOT(CheckTextureFormat), SLOT(ReservedQuery1), SLOT(ReservedCall3), SLOT(ReservedCall1A), SLOT(ReservedQuery0),
        SLOT(ReservedCall1B), SLOT(CreateTimerQuery), SLOT(DestroyTimerQuery), SLOT(BeginTimerQueryFrame),
        SLOT(EndTimerQueryFrame), SLOT(GetD3D9Device), SLOT(ReservedHookA), SLOT(ReservedHookB),
        SLOT(_setTextureUnitFilter), SLOT(_setTextureUnitFiltering), SLOT(_setTextureLayerAnisotropy),
        SLOT(_setTextureAddressingModeUV), SLOT(_setTextureAddressingModeW), SLOT(_setTextureBorderColour),
        SLOT(_setTextureMipmapBias));
}

} // namespace
