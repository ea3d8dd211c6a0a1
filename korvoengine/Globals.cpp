#include "engine/Globals.h"
#include "engine/Engine.h"
#include "engine/GpuProgramCompileThread.h"

#include <windows.h>

namespace kv
{

RenderSystemType g_eRenderSystemType = RST_DX9C;
PixelFormat gMainWindowFormat = PF_X8R8G8B8;
CGpuProgramCompileThread* g_pCompileThread = nullptr;
bool g_bInGUIMode = false;
bool g_bEditorMode = false;
bool g_bDisassembleShader = false;
bool g_bShaderComplexityPS = false;
int g_nMaxPixelShaderComplexityCount = 300;
uint64_t g_eGpuProgramInitRuntimeMacro = 0;
uint32_t g_mainThreadId = 0;

uint32_t g_nTextureResSizeInBytes = 0;
uint32_t g_nTextureManualSizeInBytes = 0;
uint32_t g_nDepthBufferSizeInBytes = 0;

int g_nNodeAmount = 0;
int g_nEntityAmount = 0;
int g_nEffectAmount = 0;
int g_nSkinAmount = 0;
int g_nSkinSocketAmount = 0;
int g_nAnimNodeAmount = 0;
int g_nSoundAmount = 0;
int g_nTerrainAmount = 0;
int g_nCameraAmount = 0;
int g_nLineAmount = 0;
int g_nLightAmount = 0;
int g_nTerrainTrunkAmount = 0;
int g_nNodeResAmount = 0;
int g_nTmeAmount = 0;
int g_nActionAmount = 0;
int g_nParticleSystemAmount = 0;
int g_nSceneManagerAmount = 0;
int g_nTextureAmount = 0;
int g_nTextureResAmount = 0;
int g_nTextureManualAmount = 0;
int g_nRenderTargetAmount = 0;
int g_nVBAmount = 0;
int g_nIBAmount = 0;
int g_nMeshAmount = 0;
int g_nEffectMeshAmount = 0;
int g_nTmeMeshAmount = 0;
int g_nMaterialAmount = 0;
int g_nMaterialSetAmount = 0;
int g_nSkeletonAmount = 0;
int g_nSkaAmount = 0;
int g_nSoundBufferAmount = 0;
int g_nVertexDeclarationAmount = 0;
int g_nGpuProgramAmount = 0;

bool CurrentThreadIsMainThread()
{
    return GetCurrentThreadId() == g_mainThreadId;
}

void EngineInit()
{
    g_mainThreadId = GetCurrentThreadId();
}

void EngineShutdown()
{
    // The render system starts the compile thread; the engine ends it.
    if (g_pCompileThread)
    {
        g_pCompileThread->Shutdown();
        delete g_pCompileThread;
        g_pCompileThread = nullptr;
    }
}

} // namespace kv
