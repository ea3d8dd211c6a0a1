#pragma once
#include "engine/Export.h"
#include "engine/PixelBox.h"
#include "engine/Resource.h"

#include <cstddef>

namespace kv
{

class CHardwarePixelBuffer;

enum TextureType : int
{
    TEX_TYPE_1D = 1,
    TEX_TYPE_2D = 2,
    TEX_TYPE_3D = 3,
    TEX_TYPE_CUBE_MAP = 4,
};

// Texture usage bits, carried as an unsigned word.
enum TextureUsage : unsigned
{
    TU_STATIC = 0x01,
    TU_DYNAMIC = 0x02,
    TU_AUTOMIPMAP = 0x10,
    TU_RENDERTARGET = 0x20,
    TU_DEPTHSTENCIL = 0x100,
};

// Requested mip count meaning "as many as exist".
const unsigned MIP_UNLIMITED = 0x7FFFFFFF;

// The engine's description of a decoded image: levels of each face, tightly packed,
// face after face.
struct KV_API ImageData
{
    unsigned width, height, depth;
    unsigned short num_mipmaps; // levels below the top
    unsigned faces;
    PixelFormat format;
    unsigned char* data;
    unsigned size;

    ImageData() : width(0), height(0), depth(1), num_mipmaps(0), faces(1), format(PF_UNKNOWN), data(nullptr), size(0) {}
    // The pixels of one face and level.
    PixelBox getPixelBox(unsigned face, unsigned level) const;
};

class KV_API CTexture : public CResource
{
public:
    CTexture();
    ~CTexture() override;

    void SetFile(const char* name) override;
    bool IsReady() override;
    void PreInitRes() override;
    bool InitRes() override;
    unsigned GetRuntimeMemorySize() override;
    void SetMemoryStream(CMemoryDataStream* stream) override;

    virtual bool Load(const char* name, void* data, int size, TextureType type, int mipmaps, bool flag);
    virtual bool Load(const char* name, TextureType type, int mipmaps, bool flag);
    virtual bool LoadManual(TextureType type, unsigned width, unsigned height, unsigned depth, int mipmaps,
                            PixelFormat format, unsigned usage, unsigned char fsaa, bool flag);
    virtual void freeInternalResources() = 0;
    virtual void _autogenerateMipmaps() = 0;
    virtual unsigned char getFSAA() = 0;
    virtual CHardwarePixelBuffer* getBuffer(unsigned face, unsigned level) = 0;
    virtual bool SaveToFile(const char* path) = 0;
    virtual bool SaveToMemory(void** data, unsigned* size) = 0;
    virtual void copyToTexture(unsigned a, unsigned b, unsigned c, unsigned d);
    virtual void copyToTexture(CTexture* target) = 0;
    virtual int TextureReserved7(int a, int b, int c, int d, int e, int f, int g) = 0;
    virtual bool TextureReserved3(int a, int b, int c) = 0;
    virtual bool createInternalResources() = 0;
    // Uploads each face and level of the image that the texture has room for.
    virtual bool _loadImages(const ImageData& image);

    using CResource::Load;

    // Load and InitRes of files: what the texture is asked to be, then the
    // decoded image into native objects.
    void prepareFileLoad(const char* name, TextureType type, int mipmaps);
    bool loadFromMemory(const void* data, std::size_t size);

    unsigned getNumFaces() const { return mTextureType == TEX_TYPE_CUBE_MAP ? 6u : 1u; }

    bool mIsManual;
    TextureType mTextureType;
    unsigned mSrcWidth;
    unsigned mWidth;
    unsigned mSrcHeight;
    unsigned mHeight;
    unsigned mSrcDepth;
    unsigned mDepth;
    unsigned mNumRequestedMipmaps;
    unsigned mNumMipmaps;
    PixelFormat mSrcFormat;
    PixelFormat mFormat; // 0: the back buffer's format
    bool mMipmapsHardwareGenerated;
    unsigned mUsage;
    unsigned char mFSAA;

private:
    // Moves this texture between the engine's counts: 0 none, 1 from a file,
    // 2 manual.
    void countAs(int kind);
    int m_nCountedKind;
};

} // namespace kv
