// The render system object before a device: the entry point, the state cache
// reset, the format questions and the error reports.
#include "D3D9RenderSystem.h"

#include "engine/Globals.h"
#include "engine/Log.h"

#include <gtest/gtest.h>

#include <algorithm>
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

TEST(PluginEntry, CreateRenderSystemMakesTheObjectAndTheRuntimeAndNothingElse)
{
    ClearLog();
    ASSERT_EQ(nullptr, GetRenderSystem());
    std::unique_ptr<CRenderSystem> rs(CreateRenderSystem());
    ASSERT_NE(nullptr, rs.get());
    CD3D9RenderSystem* d3d = GetD3D9RenderSystem();
    ASSERT_EQ(rs.get(), static_cast<CRenderSystem*>(d3d));
    EXPECT_NE(nullptr, d3d->m_pD3D9);
    EXPECT_EQ(nullptr, rs->GetD3D9Device());
    EXPECT_FALSE(rs->m_pMainWindow);
    EXPECT_EQ(0u, GetLogLineCount());

    // Leftovers of an earlier life that a reset of the caches overwrites: every
    // shadow unknown, offsets and frequencies at their defaults.
    d3d->m_renderStates.assign(3, 7);
    d3d->_resetStateCaches();
    EXPECT_EQ(256u, d3d->m_renderStates.size());
    EXPECT_TRUE(AllUnknown(d3d->m_renderStates)) << "render states";
    ASSERT_EQ(261u, d3d->m_samplerStates.size());
    for (const auto& sampler : d3d->m_samplerStates)
        ASSERT_TRUE(sampler.size() == 16u && AllUnknown(sampler)) << "sampler states";
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
    EXPECT_EQ((std::vector<bool>{true, false, false, true, false, false}),
              (std::vector<bool>{
                  rs->CheckTextureFormat(PF_D24S8, TU_DEPTHSTENCIL), rs->CheckTextureFormat(PF_D24S8, TU_RENDERTARGET),
                  rs->CheckTextureFormat(PF_A8R8G8B8, TU_DEPTHSTENCIL), rs->CheckTextureFormat(PF_DXT1, TU_STATIC),
                  rs->CheckTextureFormat(PF_DXT1, TU_RENDERTARGET),
                  rs->CheckTextureFormat(static_cast<PixelFormat>(999), TU_STATIC)}));
    EXPECT_EQ(0u, GetLogLineCount());
}

TEST(PluginEntry, D3D9VerifyLogsNegativeResultsOnly)
{
    ClearLog();
    EXPECT_TRUE(D3D9VerifyImpl("D3D9RenderSystem/Somewhere", 12, D3D_OK) &&
                D3D9VerifyImpl("D3D9RenderSystem/Somewhere", 12, S_FALSE, "Failed to SetIndices"));
    EXPECT_EQ(0u, GetLogLineCount());
    EXPECT_FALSE(D3D9VerifyImpl("D3D9RenderSystem/Elsewhere", 34, D3DERR_DEVICELOST, "Failed to SetIndices"));
    const std::vector<LogLine> lines = GetLogLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(
        "D3D9RenderSystem/Elsewhere:34 D3D9Verify:-2005530520, D3DERR_DEVICELOST, Device lost, Failed to SetIndices",
        lines[0].file + ":" + std::to_string(lines[0].line) + " " + lines[0].text);
    EXPECT_EQ(LOG_ERROR, lines[0].level);
}

} // namespace
