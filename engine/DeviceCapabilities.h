#pragma once
// What the device can do; the render system fills it once per start.
#include "engine/Export.h"
#include "engine/PixelFormat.h"

#include <string>

namespace kv
{

enum GPUVendor : int
{
    GPU_UNKNOWN = 0,
    GPU_NVIDIA = 1,
    GPU_ATI = 2,
    GPU_INTEL = 3,
    GPU_S3 = 4,
    GPU_MATROX = 5,
    GPU_3DLABS = 6,
    GPU_SIS = 7,
};

class KV_API CDeviceCapabilities
{
public:
    CDeviceCapabilities();

    void setDeviceName(const char* name) { m_strDeviceName = name ? name : ""; }
    const std::string& getDeviceName() const { return m_strDeviceName; }
    void setRenderSystemName(const char* name) { m_strRenderSystemName = name ? name : ""; }
    const std::string& getRenderSystemName() const { return m_strRenderSystemName; }
    void SetHardwarePCFSupported(bool v) { m_bHardwarePCF = v; }
    bool GetHardwarePCFSupported() const { return m_bHardwarePCF; }
    void SetMipBiasSupported(bool v) { m_bMipBias = v; }
    bool GetMipBiasSupported() const { return m_bMipBias; }
    void SetSRGBReadWrite(bool v) { m_bSRGBReadWrite = v; }
    bool GetSRGBReadWrite() const { return m_bSRGBReadWrite; }

    unsigned m_nDriverProduct;
    unsigned m_nDriverVersion;
    unsigned m_nDriverSubVersion;
    unsigned m_nDriverBuild;
    GPUVendor m_eVendor;
    unsigned char m_nNumMultiRenderTargets;
    float m_fMaxPointSize; // starts high: the device's limit lowers it
    bool m_bFloatTexture;
    bool m_bMRTIndependentBitDepths;
    bool m_bVertexTextureFetch;
    bool m_bDepthTextureINTZ;
    bool m_bDepthTextureD16;
    bool m_bNullRenderTarget;
    bool m_bATI2Texture;
    bool m_bFloat32RenderTarget;
    bool m_bFloat16RenderTarget;
    bool m_bNonPowerOfTwoTexture;
    PixelFormat m_eShadowDepthFormat;
    PixelFormat m_eShadowColourFormat;
    bool m_bSSE2;
    unsigned m_nMaxTextureSize[3];
    bool m_bTimerQuery;

private:
    std::string m_strDeviceName;
    std::string m_strRenderSystemName;
    bool m_bHardwarePCF;
    bool m_bMipBias;
    bool m_bSRGBReadWrite;
};

} // namespace kv
