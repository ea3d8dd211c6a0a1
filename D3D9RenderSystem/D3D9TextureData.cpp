// The life of a texture once it exists: its images, copies, saves, and what a
// lost device does to it.
#include "D3D9Mappings.h"
#include "D3D9RenderSystem.h"
#include "D3D9Texture.h"

#include <d3dx9.h>

#include <cstring>
#include <string>

namespace kv
{

bool CD3D9Texture::_loadImages(const ImageData& image)
{
    if (!CTexture::_loadImages(image))
        return false;
    if (mNumMipmaps > image.num_mipmaps && (mUsage & TU_AUTOMIPMAP) && mNumRequestedMipmaps != 0)
        _autogenerateMipmaps();
    return true;
}

void CD3D9Texture::_autogenerateMipmaps()
{
    if (mNumRequestedMipmaps == 0)
        mNumRequestedMipmaps = MIP_UNLIMITED;
    if (!m_pTextures)
        return;
    if (mMipmapsHardwareGenerated)
    {
        m_pTextures->baseTex->GenerateMipSubLevels();
        return;
    }
    // A box filter from level 0, in sRGB: D3DX_FILTER_BOX | D3DX_FILTER_SRGB.
    if (FAILED(D3DXFilterTexture(m_pTextures->baseTex, nullptr, D3DX_DEFAULT, D3DX_FILTER_BOX | D3DX_FILTER_SRGB)))
        LogError("Failed to D3DXFilterTexture, %s", m_strName.c_str());
}

bool CD3D9Texture::Reload()
{
    if (mIsManual)
        return true;
    freeInternalResources();
    return CResource::Reload();
}

// --- Copies.

void CD3D9Texture::copyToTexture(CTexture* target)
{
    CD3D9Texture* other = static_cast<CD3D9Texture*>(target);
    if (!other)
        return;
    if (other->mUsage != mUsage || other->mTextureType != mTextureType)
    {
        LogError("Src. and dest. textures must be of same type and must have the same usage !!! , "
                 "D3D9Texture::copyToTexture");
        return;
    }
    IDirect3DDevice9* device = GetD3D9RenderSystem()->m_pD3D9Device;
    RECT rect = {0, 0, static_cast<LONG>(other->mWidth), static_cast<LONG>(other->mHeight)};
    const bool bothNormal = m_pTextures && m_pTextures->normTex && other->m_pTextures && other->m_pTextures->normTex;
    const bool bothCube = m_pTextures && m_pTextures->cubeTex && other->m_pTextures && other->m_pTextures->cubeTex;

    if (mTextureType == TEX_TYPE_2D && bothNormal)
    {
        IDirect3DSurface9 *from = nullptr, *to = nullptr;
        HRESULT hr = m_pTextures->normTex->GetSurfaceLevel(0, &from);
        if (FAILED(hr))
        {
            LogError("Couldn't blit :  msg:%s, D3D9Texture::copyToTexture", DXGetErrorDescription(hr));
            return;
        }
        hr = other->m_pTextures->normTex->GetSurfaceLevel(0, &to);
        if (FAILED(hr))
        {
            from->Release();
            LogError("Couldn't blit :   msg:%s,  D3D9Texture::copyToTexture", DXGetErrorDescription(hr));
            return;
        }
        hr = device->StretchRect(from, nullptr, to, &rect, D3DTEXF_NONE);
        if (FAILED(hr))
            LogError("Couldn't blit :  msg:%s,  D3D9Texture::copyToTexture", DXGetErrorDescription(hr));
        from->Release();
        to->Release();
        return;
    }
    if (mTextureType == TEX_TYPE_CUBE_MAP && bothCube)
    {
        for (unsigned face = 0; face < 6; ++face)
        {
            const D3DCUBEMAP_FACES f = static_cast<D3DCUBEMAP_FACES>(face);
            IDirect3DSurface9 *from = nullptr, *to = nullptr;
            HRESULT hr = m_pTextures->cubeTex->GetCubeMapSurface(f, 0, &from);
            if (FAILED(hr))
            {
                LogError("Couldn't blit :  msg:%s, D3D9Texture::copyToTexture", DXGetErrorDescription(hr));
                return;
            }
            hr = other->m_pTextures->cubeTex->GetCubeMapSurface(f, 0, &to);
            if (FAILED(hr))
            {
                from->Release();
                LogError("Couldn't blit :   msg:%s,  D3D9Texture::copyToTexture", DXGetErrorDescription(hr));
                return;
            }
            hr = device->StretchRect(from, nullptr, to, &rect, D3DTEXF_NONE);
            from->Release();
            to->Release();
            if (FAILED(hr))
            {
                LogError("Couldn't blit :  msg:%s, D3D9Texture::copyToTexture", DXGetErrorDescription(hr));
                return;
            }
        }
        return;
    }
    LogError("Copy to texture is implemented only for 2D and cube textures !!! , D3D9Texture::copyToTexture");
}

// --- Saving.

bool CD3D9Texture::SaveToFile(const char* path)
{
    const std::string name = path ? path : "";
    if (!isCreated())
    {
        LogError("Failed to D3DXSaveTextureToFile:%s, %s, %s", name.c_str(), m_strName.c_str(),
                 "the texture has no native objects");
        return false;
    }
    D3DXIMAGE_FILEFORMAT format = D3DXIFF_DDS;
    if (!D3D9Mappings::toD3DXImageFileFormat(name.c_str(), &format))
        LogError("Unknow Texture format to Save:%s", name.c_str());
    HRESULT hr = D3DXSaveTextureToFileA(name.c_str(), format, m_pTextures->baseTex, nullptr);
    if (FAILED(hr))
    {
        LogError("Failed to D3DXSaveTextureToFile:%s, %s, %s", name.c_str(), m_strName.c_str(),
                 DXGetErrorDescription(hr));
        return false;
    }
    return true;
}

bool CD3D9Texture::SaveToMemory(void** data, unsigned* size)
{
    if (!data || !size || !isCreated())
    {
        LogError("Failed to D3DXSaveTextureToFileInMemory, %s", "no texture or no place for the result");
        return false;
    }
    ID3DXBuffer* buffer = nullptr;
    HRESULT hr = D3DXSaveTextureToFileInMemory(&buffer, D3DXIFF_DDS, m_pTextures->baseTex, nullptr);
    if (FAILED(hr))
    {
        LogError("Failed to D3DXSaveTextureToFileInMemory, %s", DXGetErrorDescription(hr));
        return false;
    }
    const unsigned n = buffer->GetBufferSize();
    unsigned char* copy = new unsigned char[n];
    std::memcpy(copy, buffer->GetBufferPointer(), n);
    *data = copy;
    *size = n;
    buffer->Release();
    return true;
}

// --- Binding.

IDirect3DBaseTexture9* CD3D9Texture::GetNativeTexture()
{
    CD3D9Texture* texture = this;
    if (!IsReady())
    {
        // The engine's white texture is made at once, so it is ready or missing.
        texture = static_cast<CD3D9Texture*>(GetD3D9RenderSystem()->GetWhiteTexture());
        if (!texture || !texture->IsReady())
            return nullptr;
    }
    return texture->m_pTextures ? texture->m_pTextures->baseTex : nullptr;
}

// --- The device.

void CD3D9Texture::notifyOnDeviceDestroy()
{
    destroyInternalResources();
}

void CD3D9Texture::notifyOnDeviceLost()
{
    // Managed textures keep a copy the runtime restores.
    if (mD3DPool == D3DPOOL_DEFAULT)
        freeInternalResources();
}

void CD3D9Texture::notifyOnDeviceReset()
{
    if (mD3DPool != D3DPOOL_DEFAULT)
        return;
    if (mIsManual)
    {
        createInternalResources();
        return;
    }
    CResource::Reload();
    if (mFormat != PF_ATI2)
        LogError("CD3D9Texture::notifyOnDeviceReset, mIsManual is false, %s", m_strName.c_str());
}

} // namespace kv
