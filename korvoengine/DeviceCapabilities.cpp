#include "engine/DeviceCapabilities.h"

namespace kv
{

CDeviceCapabilities::CDeviceCapabilities()
    : m_nDriverProduct(0), m_nDriverVersion(0), m_nDriverSubVersion(0), m_nDriverBuild(0), m_eVendor(GPU_UNKNOWN),
      m_nNumMultiRenderTargets(0), m_fMaxPointSize(8192.0f), m_bFloatTexture(false), m_bMRTIndependentBitDepths(false),
      m_bVertexTextureFetch(false), m_bDepthTextureINTZ(false), m_bDepthTextureD16(false), m_bNullRenderTarget(false),
      m_bATI2Texture(false), m_bFloat32RenderTarget(false), m_bFloat16RenderTarget(false),
      m_bNonPowerOfTwoTexture(false), m_eShadowDepthFormat(PF_UNKNOWN), m_eShadowColourFormat(PF_UNKNOWN),
      m_bSSE2(false), m_nMaxTextureSize{0, 0, 0}, m_bTimerQuery(false), m_bHardwarePCF(false), m_bMipBias(false),
      m_bSRGBReadWrite(false)
{
}

} // namespace kv
