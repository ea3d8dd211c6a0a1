#pragma once
// The engine's globals that the render system reads (and a few it writes).
#include "engine/Export.h"
#include "engine/PixelFormat.h"

#include <cstdint>

namespace kv
{

class CGpuProgramCompileThread;

// The shader model the render system runs: 1 model 3 ("DX9C"), 2 model 2 ("DX9A").
enum RenderSystemType : int
{
    RST_DX9C = 1,
    RST_DX9A = 2,
};

extern KV_API RenderSystemType g_eRenderSystemType; // starts at RST_DX9C
extern KV_API PixelFormat gMainWindowFormat;        // back buffer format, starts at PF_X8R8G8B8
extern KV_API CGpuProgramCompileThread* g_pCompileThread;
extern KV_API bool g_bInGUIMode;
extern KV_API bool g_bEditorMode;
extern KV_API bool g_bDisassembleShader;
extern KV_API bool g_bShaderComplexityPS;
extern KV_API int g_nMaxPixelShaderComplexityCount; // starts at 300
extern KV_API uint64_t g_eGpuProgramInitRuntimeMacro;
extern KV_API uint32_t g_mainThreadId;

// Bytes held by textures and depth buffers, kept by the render system.
extern KV_API uint32_t g_nTextureResSizeInBytes;
extern KV_API uint32_t g_nTextureManualSizeInBytes;
extern KV_API uint32_t g_nDepthBufferSizeInBytes;

// Live object counts, reported when resources leak.
extern KV_API int g_nNodeAmount;
extern KV_API int g_nEntityAmount;
extern KV_API int g_nEffectAmount;
extern KV_API int g_nSkinAmount;
extern KV_API int g_nSkinSocketAmount;
extern KV_API int g_nAnimNodeAmount;
extern KV_API int g_nSoundAmount;
extern KV_API int g_nTerrainAmount;
extern KV_API int g_nCameraAmount;
extern KV_API int g_nLineAmount;
extern KV_API int g_nLightAmount;
extern KV_API int g_nTerrainTrunkAmount;
extern KV_API int g_nNodeResAmount;
extern KV_API int g_nTmeAmount;
extern KV_API int g_nActionAmount;
extern KV_API int g_nParticleSystemAmount;
extern KV_API int g_nSceneManagerAmount;
extern KV_API int g_nTextureAmount;
extern KV_API int g_nTextureResAmount;
extern KV_API int g_nTextureManualAmount;
extern KV_API int g_nRenderTargetAmount;
extern KV_API int g_nVBAmount;
extern KV_API int g_nIBAmount;
extern KV_API int g_nMeshAmount;
extern KV_API int g_nEffectMeshAmount;
extern KV_API int g_nTmeMeshAmount;
extern KV_API int g_nMaterialAmount;
extern KV_API int g_nMaterialSetAmount;
extern KV_API int g_nSkeletonAmount;
extern KV_API int g_nSkaAmount;
extern KV_API int g_nSoundBufferAmount;
extern KV_API int g_nVertexDeclarationAmount;
extern KV_API int g_nGpuProgramAmount;

// True on the thread that EngineInit recorded in g_mainThreadId.
KV_API bool CurrentThreadIsMainThread();

} // namespace kv
