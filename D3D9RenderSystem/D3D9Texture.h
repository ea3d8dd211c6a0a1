#pragma once
// The engine's texture on Direct3D 9. The engine fills the requested attributes
// and asks createInternalResources for native objects; the texture picks
// format, pool, usage, level count and anti-aliasing from what the device can
// do, makes the native texture on one of six roads (normal, cube, volume,
// depth, NULL, ATI2) and keeps one pixel buffer per face and level. Creation
// lives in D3D9Texture.cpp; loading, copying, saving and the device
// notifications in D3D9TextureData.cpp.
#include "D3D9HardwarePixelBuffer.h"
#include "D3D9Prerequisites.h"
#include "D3D9Resource.h"

#include "engine/Texture.h"

#include <vector>

namespace kv
{

// The native objects of a texture; the base texture is the same object as the
// one of the other three that exists.
struct D3D9TextureSet
{
    IDirect3DTexture9* normTex = nullptr;
    IDirect3DCubeTexture9* cubeTex = nullptr;
    IDirect3DVolumeTexture9* volumeTex = nullptr;
    IDirect3DBaseTexture9* baseTex = nullptr;
    IDirect3DSurface9* fsaaSurface = nullptr; // the multisampled render target, or null
};

class CD3D9Texture : public CTexture, public CD3D9Resource
{
public:
    CD3D9Texture();
    ~CD3D9Texture() override;

    int GetClassType() override { return 1008; }
    bool ResourceTraitA() override { return true; }
    bool ResourceTraitB() override { return true; }
    bool Reload() override;
    void freeInternalResources() override;
    void _autogenerateMipmaps() override;
    unsigned char getFSAA() override { return mFSAA; }
    // The buffer at (mipmaps + 1) * face + level, null past the end of the list.
    CHardwarePixelBuffer* getBuffer(unsigned face, unsigned level) override;
    bool SaveToFile(const char* path) override;
    bool SaveToMemory(void** data, unsigned* size) override;
    using CTexture::copyToTexture;
    void copyToTexture(CTexture* target) override;
    int TextureReserved7(int, int, int, int, int, int, int) override { return 0; }
    bool TextureReserved3(int, int, int) override { return false; }
    bool createInternalResources() override;
    bool _loadImages(const ImageData& image) override;

    void notifyOnDeviceDestroy() override;
    void notifyOnDeviceLost() override;
    void notifyOnDeviceReset() override;

    // The native texture to bind: this one's, or the render system's white
    // texture while this one is not ready.
    IDirect3DBaseTexture9* GetNativeTexture();
    // Whether the native objects exist.
    bool isCreated() const { return m_pTextures && m_pTextures->baseTex; }
    void destroyInternalResources();
    // Stores the four source values; frees everything for an unknown type.
    void _setSrcAttributes(unsigned width, unsigned height, unsigned depth, PixelFormat format);

    D3D9TextureSet* m_pTextures; // owned; null while there are no native objects
    D3DPOOL mD3DPool;
    D3DMULTISAMPLE_TYPE m_FSAAType;
    DWORD m_FSAAQuality;
    bool m_bDynamicTextures;
    std::vector<ref_ptr<CD3D9HardwarePixelBuffer>> m_surfaceList;

private:
    // What _setFinalAttributes added to the engine's byte counter, taken off
    // again when the native objects go.
    unsigned m_nCountedSize;

    bool _createNormTex();
    bool _createCubeTex();
    bool _createVolumeTex();
    bool _createDepthStencilTex();
    bool _createNULLTex();
    bool _create3DCTex();
    D3DFORMAT _chooseD3DFormat();
    void _chooseD3DPool();
    // Usage, level count and hardware mip generation shared by the normal,
    // cube and volume roads.
    void _chooseUsageAndLevels(D3DRESOURCETYPE type, D3DFORMAT format, DWORD* usage, UINT* levels);
    void _chooseFSAA(D3DFORMAT format);
    // The end shared by every road once the native texture exists: base
    // texture, description, final attributes. The texts name the road.
    bool _finishCreation(const char* road, bool multisample, D3DFORMAT format);
    void _setFinalAttributes(unsigned width, unsigned height, unsigned depth, PixelFormat format);
    void _createSurfaceList();
    // Bytes the current attributes stand for in the engine's counters.
    unsigned _currentSize() const;
    void _releaseSet();
};

} // namespace kv
