#include "D3D9Texture.h"
#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"

#include "engine/DeviceCapabilities.h"
#include "engine/Globals.h"
#include "engine/PixelUtil.h"

#include <d3dx9.h>

namespace kv
{

namespace
{

const char* Describe(HRESULT hr)
{
    return DXGetErrorDescription(hr);
}

} // namespace

CD3D9Texture::CD3D9Texture()
    : m_pTextures(nullptr), mD3DPool(D3DPOOL_MANAGED), m_FSAAType(D3DMULTISAMPLE_NONE), m_FSAAQuality(0),
      m_bDynamicTextures(false), m_nCountedSize(0)
{
}

CD3D9Texture::~CD3D9Texture()
{
    destroyInternalResources();
    m_surfaceList.clear();
}

CHardwarePixelBuffer* CD3D9Texture::getBuffer(unsigned face, unsigned level)
{
    // A texture that never got native objects has no buffers at all.
    const std::size_t index = std::size_t(mNumMipmaps + 1) * face + level;
    return index < m_surfaceList.size() ? m_surfaceList[index].get() : nullptr;
}

void CD3D9Texture::_setSrcAttributes(unsigned width, unsigned height, unsigned depth, PixelFormat format)
{
    mSrcWidth = width;
    mSrcHeight = height;
    mSrcDepth = depth;
    mSrcFormat = format;
    if (mTextureType < TEX_TYPE_1D || mTextureType > TEX_TYPE_CUBE_MAP)
    {
        freeInternalResources();
        LogError("Unknown texture type D3D9Texture::_setSrcAttributes");
    }
}

bool CD3D9Texture::createInternalResources()
{
    if (isCreated())
        return true;
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    if (!rs || !rs->m_pD3D9Device)
    {
        LogError("No device to create the texture on: %s, D3D9Texture::createInternalResources", m_strName.c_str());
        return false;
    }
    if (mSrcWidth == 0 || mSrcHeight == 0)
    {
        mSrcWidth = mWidth;
        mSrcHeight = mHeight;
    }
    if (mUsage == TU_DEPTHSTENCIL)
        return _createDepthStencilTex();
    if (mFormat == PF_NULL)
        return _createNULLTex();
    if (mFormat == PF_ATI2)
        return _create3DCTex();
    switch (mTextureType)
    {
    case TEX_TYPE_1D:
    case TEX_TYPE_2D:
        return _createNormTex();
    case TEX_TYPE_3D:
        return _createVolumeTex();
    case TEX_TYPE_CUBE_MAP:
        return _createCubeTex();
    default:
        freeInternalResources();
        LogError("Unknown texture type, D3D9Texture::createInternalResources");
        return false;
    }
}

// --- Choices shared by the roads.

D3DFORMAT CD3D9Texture::_chooseD3DFormat()
{
    if (mFormat == PF_UNKNOWN)
        return GetD3D9RenderSystem()->GetBackBufferFormat();
    return D3D9Mappings::toD3DFormat(D3D9Mappings::closestSupportedFormat(mFormat));
}

void CD3D9Texture::_chooseD3DPool()
{
    if ((mUsage & TU_RENDERTARGET) || ((mUsage & TU_DYNAMIC) && m_bDynamicTextures) || (mUsage & TU_DEPTHSTENCIL))
        mD3DPool = D3DPOOL_DEFAULT;
    else
        mD3DPool = D3DPOOL_MANAGED;
}

void CD3D9Texture::_chooseUsageAndLevels(D3DRESOURCETYPE type, D3DFORMAT format, DWORD* usage, UINT* levels)
{
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    *usage = (mUsage & TU_RENDERTARGET) ? D3DUSAGE_RENDERTARGET : 0;
    *levels = mNumRequestedMipmaps == MIP_UNLIMITED ? D3DX_DEFAULT : mNumRequestedMipmaps + 1;
    if (mUsage & TU_DYNAMIC)
    {
        m_bDynamicTextures = rs->CheckDynamicTexture(*usage, type, format);
        if (m_bDynamicTextures)
            *usage |= D3DUSAGE_DYNAMIC;
    }
    mMipmapsHardwareGenerated = false;

    DWORD mipCap = D3DPTEXTURECAPS_MIPMAP;
    if (type == D3DRTYPE_CUBETEXTURE)
        mipCap = D3DPTEXTURECAPS_MIPCUBEMAP;
    else if (type == D3DRTYPE_VOLUMETEXTURE)
        mipCap = D3DPTEXTURECAPS_MIPVOLUMEMAP;
    if (!(rs->m_d3dcaps.TextureCaps & mipCap))
    {
        mNumMipmaps = 0;
        *levels = 1;
    }
    else if (mUsage & TU_AUTOMIPMAP)
    {
        mMipmapsHardwareGenerated = rs->CheckAutoGenMipmaps(mSrcWidth, mSrcHeight, mSrcDepth, *usage, type, format);
        if (mMipmapsHardwareGenerated)
        {
            *usage |= D3DUSAGE_AUTOGENMIPMAP;
            // Zero asks for every level; a requested count of 0 stays one level.
            if (mNumRequestedMipmaps != 0)
                *levels = 0;
        }
    }
}

void CD3D9Texture::_chooseFSAA(D3DFORMAT format)
{
    if (mUsage & TU_RENDERTARGET)
    {
        GetD3D9RenderSystem()->DetermineFSAASettings(mFSAA, "", format, false, &m_FSAAType, &m_FSAAQuality);
        mFSAA = static_cast<unsigned char>(m_FSAAType & 0xFF);
    }
    else
    {
        m_FSAAType = D3DMULTISAMPLE_NONE;
        m_FSAAQuality = 0;
        mFSAA = 0;
    }
}

// --- The six roads.

bool CD3D9Texture::_createNormTex()
{
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    IDirect3DDevice9* device = rs->m_pD3D9Device;
    D3DFORMAT format = _chooseD3DFormat();
    HRESULT hr = D3DXCheckTextureRequirements(device, nullptr, nullptr, nullptr, 0, &format, mD3DPool);
    if (FAILED(hr))
    {
        LogError("Failed to D3DXCheckTextureRequirements, d3dPF:%d, mD3DPool:%d, err:%s, hr:%d, DeviceLost:%d, File:%s",
                 static_cast<int>(format), static_cast<int>(mD3DPool), Describe(hr), static_cast<int>(hr),
                 static_cast<int>(device->TestCooperativeLevel()), m_strName.c_str());
        return false;
    }
    DWORD usage;
    UINT levels;
    _chooseUsageAndLevels(D3DRTYPE_TEXTURE, format, &usage, &levels);
    _chooseFSAA(format);
    _chooseD3DPool();
    if (m_pTextures)
        freeInternalResources();
    m_pTextures = new D3D9TextureSet;
    hr = D3DXCreateTexture(device, mSrcWidth, mSrcHeight, levels, usage, format, mD3DPool, &m_pTextures->normTex);
    if (FAILED(hr))
    {
        freeInternalResources();
        LogError("Error creating texture: %s, D3D9Texture::_createNormTex", Describe(hr));
        return false;
    }
    return _finishCreation("_createNormTex", true, format);
}

bool CD3D9Texture::_createCubeTex()
{
    IDirect3DDevice9* device = GetD3D9RenderSystem()->m_pD3D9Device;
    D3DFORMAT format = _chooseD3DFormat();
    if (FAILED(D3DXCheckCubeTextureRequirements(device, nullptr, nullptr, 0, &format, mD3DPool)))
    {
        LogError("Failed to D3DXCheckCubeTextureRequirements, d3dPF:%d, mD3DPool:%d", static_cast<int>(format),
                 static_cast<int>(mD3DPool));
        return false;
    }
    DWORD usage;
    UINT levels;
    _chooseUsageAndLevels(D3DRTYPE_CUBETEXTURE, format, &usage, &levels);
    _chooseFSAA(format);
    _chooseD3DPool();
    if (m_pTextures)
        freeInternalResources();
    m_pTextures = new D3D9TextureSet;
    HRESULT hr = D3DXCreateCubeTexture(device, mSrcWidth, levels, usage, format, mD3DPool, &m_pTextures->cubeTex);
    if (FAILED(hr))
    {
        freeInternalResources();
        LogError("Error creating texture: %s, D3D9Texture::_createCubeTex", Describe(hr));
        return false;
    }
    return _finishCreation("_createCubeTex", true, format);
}

bool CD3D9Texture::_createVolumeTex()
{
    IDirect3DDevice9* device = GetD3D9RenderSystem()->m_pD3D9Device;
    if (mUsage & TU_RENDERTARGET)
    {
        LogError("D3D9 Volume texture can not be created as render target !!, D3D9Texture::_createVolumeTex");
        return false;
    }
    D3DFORMAT format = _chooseD3DFormat();
    if (FAILED(D3DXCheckVolumeTextureRequirements(device, nullptr, nullptr, nullptr, nullptr, 0, &format, mD3DPool)))
    {
        LogError("Failed to D3DXCheckVolumeTextureRequirements, d3dPF:%d, mD3DPool:%d", static_cast<int>(format),
                 static_cast<int>(mD3DPool));
        return false;
    }
    DWORD usage;
    UINT levels;
    _chooseUsageAndLevels(D3DRTYPE_VOLUMETEXTURE, format, &usage, &levels);
    _chooseD3DPool();
    if (m_pTextures)
        freeInternalResources();
    m_pTextures = new D3D9TextureSet;
    // This road sizes the texture by the final fields, not the source ones.
    HRESULT hr = D3DXCreateVolumeTexture(device, mWidth, mHeight, mDepth, levels, usage, format, mD3DPool,
                                         &m_pTextures->volumeTex);
    if (FAILED(hr))
    {
        freeInternalResources();
        LogError("Error creating texture: %s, D3D9Texture::_createVolumeTex", Describe(hr));
        return false;
    }
    return _finishCreation("_createVolumeTex", false, format);
}

bool CD3D9Texture::_createDepthStencilTex()
{
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    const CDeviceCapabilities* caps = rs->m_pCapabilities;
    bool available = false;
    if (mFormat == PF_INTZ)
        available = caps->m_bDepthTextureINTZ;
    else if (mFormat == PF_D24S8)
        available = caps->GetHardwarePCFSupported();
    else if (mFormat == PF_D16)
        available = caps->m_bDepthTextureD16;
    if (!available)
        return false;
    _chooseD3DPool();
    if (m_pTextures)
        freeInternalResources();
    m_pTextures = new D3D9TextureSet;
    HRESULT hr = rs->m_pD3D9Device->CreateTexture(mSrcWidth, mSrcHeight, 1, D3DUSAGE_DEPTHSTENCIL,
                                                  D3D9Mappings::toD3DFormat(mFormat), D3DPOOL_DEFAULT,
                                                  &m_pTextures->normTex, nullptr);
    if (FAILED(hr))
    {
        freeInternalResources();
        LogError("Error creating texture: %s, D3D9Texture::_createDepthStencilTex", Describe(hr));
        return false;
    }
    return _finishCreation("_createDepthStencilTex", false, D3D9Mappings::toD3DFormat(mFormat));
}

bool CD3D9Texture::_createNULLTex()
{
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    if (!rs->m_pCapabilities->m_bNullRenderTarget)
    {
        LogError("Failed to _createNULLTex, not Supported");
        return false;
    }
    if (mUsage != TU_RENDERTARGET)
    {
        LogError("Failed to _createNULLTex, not TU_RENDERTARGET");
        return false;
    }
    _chooseD3DPool();
    if (m_pTextures)
        freeInternalResources();
    m_pTextures = new D3D9TextureSet;
    const D3DFORMAT format = static_cast<D3DFORMAT>(MAKEFOURCC('N', 'U', 'L', 'L'));
    if (FAILED(rs->m_pD3D9Device->CreateTexture(mSrcWidth, mSrcHeight, 1, D3DUSAGE_RENDERTARGET, format,
                                                D3DPOOL_DEFAULT, &m_pTextures->normTex, nullptr)))
    {
        freeInternalResources();
        return false;
    }
    return _finishCreation("_createNormTex", false, format);
}

bool CD3D9Texture::_create3DCTex()
{
    CD3D9RenderSystem* rs = GetD3D9RenderSystem();
    if (!rs->m_pCapabilities->m_bATI2Texture)
    {
        LogError("Failed to _create3DCTex, not Supported");
        return false;
    }
    // One level in the default pool, whatever was asked: the format has no
    // managed copy to restore from, so a reset reads the file again.
    mD3DPool = D3DPOOL_DEFAULT;
    if (m_pTextures)
        freeInternalResources();
    m_pTextures = new D3D9TextureSet;
    const D3DFORMAT format = static_cast<D3DFORMAT>(MAKEFOURCC('A', 'T', 'I', '2'));
    if (FAILED(rs->m_pD3D9Device->CreateTexture(mSrcWidth, mSrcHeight, 1, 0, format, D3DPOOL_DEFAULT,
                                                &m_pTextures->normTex, nullptr)))
    {
        freeInternalResources();
        return false;
    }
    return _finishCreation("_createNormTex", false, format);
}

// --- The common end of a road.

bool CD3D9Texture::_finishCreation(const char* road, bool multisample, D3DFORMAT format)
{
    IUnknown* native = m_pTextures->normTex;
    if (m_pTextures->cubeTex)
        native = m_pTextures->cubeTex;
    else if (m_pTextures->volumeTex)
        native = m_pTextures->volumeTex;
    HRESULT hr = native->QueryInterface(IID_IDirect3DBaseTexture9, reinterpret_cast<void**>(&m_pTextures->baseTex));
    if (FAILED(hr))
    {
        freeInternalResources();
        LogError("Can't get base texture: %s, D3D9Texture::%s", Describe(hr), road);
        return false;
    }

    unsigned width = 0, height = 0, depth = 1;
    D3DFORMAT realFormat = D3DFMT_UNKNOWN;
    if (m_pTextures->volumeTex)
    {
        D3DVOLUME_DESC desc;
        hr = m_pTextures->volumeTex->GetLevelDesc(0, &desc);
        width = desc.Width;
        height = desc.Height;
        depth = desc.Depth;
        realFormat = desc.Format;
    }
    else
    {
        D3DSURFACE_DESC desc;
        hr = m_pTextures->cubeTex ? m_pTextures->cubeTex->GetLevelDesc(0, &desc)
                                  : m_pTextures->normTex->GetLevelDesc(0, &desc);
        width = desc.Width;
        height = desc.Height;
        realFormat = desc.Format;
    }
    if (FAILED(hr))
    {
        freeInternalResources();
        LogError("Can't get texture description: %s, D3D9Texture::%s", Describe(hr), road);
        return false;
    }

    if (multisample)
    {
        if (m_FSAAType != D3DMULTISAMPLE_NONE)
        {
            hr = GetD3D9RenderSystem()->m_pD3D9Device->CreateRenderTarget(
                width, height, format, m_FSAAType, m_FSAAQuality, FALSE, &m_pTextures->fsaaSurface, nullptr);
            if (FAILED(hr))
            {
                // The texture lives on, without anti-aliasing.
                LogError("Unable to create AA render target: %s, D3D9Texture::%s", Describe(hr), road);
                mFSAA = 0;
            }
        }
        else
        {
            mFSAA = 0;
        }
    }

    _setFinalAttributes(width, height, depth, D3D9Mappings::fromD3DFormat(realFormat));

    if (mMipmapsHardwareGenerated)
    {
        hr = m_pTextures->baseTex->SetAutoGenFilterType(GetD3D9RenderSystem()->GetBestAutoGenFilter(mTextureType));
        if (FAILED(hr))
        {
            freeInternalResources();
            // The cube and volume roads share one text.
            const bool normal = mTextureType == TEX_TYPE_1D || mTextureType == TEX_TYPE_2D;
            LogError("Could not set best autogen filter type: %s, D3D9Texture::%s", Describe(hr),
                     normal ? "_createNormTex" : "_createCubeTex");
            return false;
        }
    }
    return true;
}

void CD3D9Texture::_setFinalAttributes(unsigned width, unsigned height, unsigned depth, PixelFormat format)
{
    mWidth = width;
    mHeight = height;
    mDepth = depth;
    mFormat = format;
    _createSurfaceList();
    m_nCountedSize = _currentSize();
    if (mIsManual)
        g_nTextureManualSizeInBytes += m_nCountedSize;
    else
        g_nTextureResSizeInBytes += m_nCountedSize;
}

unsigned CD3D9Texture::_currentSize() const
{
    return static_cast<unsigned>(
        PixelUtil::calculateSize(mNumMipmaps, getNumFaces(), mWidth, mHeight, mDepth, mFormat));
}

void CD3D9Texture::_createSurfaceList()
{
    mNumMipmaps = m_pTextures->baseTex->GetLevelCount() - 1;
    unsigned usage =
        ((mUsage & TU_DYNAMIC) && m_bDynamicTextures) ? CHardwareBuffer::USAGE_DYNAMIC : CHardwareBuffer::USAGE_STATIC;
    if (mUsage & TU_RENDERTARGET)
        usage |= CHardwareBuffer::USAGE_RENDERTARGET;

    const unsigned faces = getNumFaces();
    const unsigned levels = mNumMipmaps + 1;
    // The same count keeps the buffers, and with them a render target's render
    // texture across a device loss.
    if (m_surfaceList.size() != std::size_t(faces) * levels)
    {
        m_surfaceList.clear();
        for (unsigned i = 0; i < faces * levels; ++i)
            m_surfaceList.push_back(
                ref_ptr<CD3D9HardwarePixelBuffer>(new CD3D9HardwarePixelBuffer(CHardwareBuffer::Usage(usage), this)));
    }

    for (unsigned face = 0; face < faces; ++face)
    {
        for (unsigned level = 0; level < levels; ++level)
        {
            CD3D9HardwarePixelBuffer* buffer = m_surfaceList[std::size_t(levels) * face + level].get();
            if (m_pTextures->volumeTex)
            {
                IDirect3DVolume9* volume = nullptr;
                if (FAILED(m_pTextures->volumeTex->GetVolumeLevel(level, &volume)) || !volume)
                {
                    LogError("Get volume level failed D3D9Texture::getBuffer");
                    continue;
                }
                buffer->bind(volume);
                volume->Release();
                continue;
            }
            IDirect3DSurface9* surface = nullptr;
            if (m_pTextures->cubeTex)
            {
                if (FAILED(m_pTextures->cubeTex->GetCubeMapSurface(static_cast<D3DCUBEMAP_FACES>(face), level,
                                                                   &surface)) ||
                    !surface)
                {
                    LogError("Get cubemap surface failed D3D9Texture::getBuffer");
                    continue;
                }
            }
            else if (FAILED(m_pTextures->normTex->GetSurfaceLevel(level, &surface)) || !surface)
            {
                LogError("Get surface level failed D3D9Texture::_createSurfaceList");
                continue;
            }
            buffer->bind(surface, m_pTextures->fsaaSurface, mFSAA);
            surface->Release();
        }
    }
}

// --- Giving the native objects up.

void CD3D9Texture::_releaseSet()
{
    auto release = [](auto*& p) {
        if (p)
        {
            p->Release();
            p = nullptr;
        }
    };
    release(m_pTextures->baseTex);
    release(m_pTextures->normTex);
    release(m_pTextures->cubeTex);
    release(m_pTextures->volumeTex);
    release(m_pTextures->fsaaSurface);
    delete m_pTextures;
    m_pTextures = nullptr;
    // What was added is taken off, so a road that failed before adding leaves
    // the counter as it was.
    if (mIsManual)
        g_nTextureManualSizeInBytes -= m_nCountedSize;
    else
        g_nTextureResSizeInBytes -= m_nCountedSize;
    m_nCountedSize = 0;
}

void CD3D9Texture::freeInternalResources()
{
    for (ref_ptr<CD3D9HardwarePixelBuffer>& buffer : m_surfaceList)
        buffer->unbind();
    if (m_pTextures)
        _releaseSet();
}

void CD3D9Texture::destroyInternalResources()
{
    m_surfaceList.clear();
    if (m_pTextures)
        _releaseSet();
}

} // namespace kv
