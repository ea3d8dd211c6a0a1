#include "engine/Texture.h"
#include "engine/HardwarePixelBuffer.h"
#include "engine/Log.h"

#include <algorithm>

namespace kv
{

PixelBox ImageData::getPixelBox(unsigned face, unsigned level) const
{
    // Levels lie face after face, each level after the one above it; sizes
    // follow from the element size of uncompressed formats only.
    unsigned bytes = 0;
    switch (format)
    {
    case PF_L8:
    case PF_A8:
    case PF_A4L4:
    case PF_R3G3B2:
        bytes = 1;
        break;
    case PF_L16:
    case PF_A8L8:
    case PF_R5G6B5:
    case PF_B5G6R5:
    case PF_A4R4G4B4:
    case PF_A1R5G5B5:
    case PF_FLOAT16_R:
    case PF_D16:
        bytes = 2;
        break;
    case PF_R8G8B8:
    case PF_B8G8R8:
        bytes = 3;
        break;
    case PF_FLOAT16_RGBA:
    case PF_A16B16G16R16:
    case PF_FLOAT32_GR:
        bytes = 8;
        break;
    case PF_FLOAT16_RGB:
    case PF_SHORT_RGB:
        bytes = 6;
        break;
    case PF_FLOAT32_RGB:
        bytes = 12;
        break;
    case PF_FLOAT32_RGBA:
        bytes = 16;
        break;
    default:
        bytes = 4;
        break;
    }
    std::size_t offset = 0;
    for (unsigned f = 0; f <= face; ++f)
    {
        for (unsigned l = 0; l <= num_mipmaps; ++l)
        {
            unsigned w = std::max(1u, width >> l), h = std::max(1u, height >> l), d = std::max(1u, depth >> l);
            if (f == face && l == level)
            {
                if (!data || offset + std::size_t(w) * h * d * bytes > size)
                    return PixelBox(w, h, d, format, nullptr);
                return PixelBox(w, h, d, format, data + offset);
            }
            offset += std::size_t(w) * h * d * bytes;
        }
    }
    return PixelBox();
}

CTexture::CTexture()
    : mIsManual(false), mTextureType(TEX_TYPE_2D), mSrcWidth(0), mWidth(0), mSrcHeight(0), mHeight(0), mSrcDepth(1),
      mDepth(1), mNumRequestedMipmaps(0), mNumMipmaps(0), mSrcFormat(PF_UNKNOWN), mFormat(PF_UNKNOWN),
      mMipmapsHardwareGenerated(false), mUsage(0), mFSAA(0)
{
}

CTexture::~CTexture() {}

void CTexture::SetFile(const char* name)
{
    CResource::SetFile(name);
}

bool CTexture::IsReady()
{
    return m_nLoadState == RLS_READY;
}

void CTexture::PreInitRes() {}

bool CTexture::InitRes()
{
    // Loading from a file name alone needs the image decoder, which this engine
    // build does not carry yet.
    LogErrorImpl("korvoengine/Texture", __LINE__, "No image decoder in this engine build: %s", m_strName.c_str());
    return false;
}

unsigned CTexture::GetRuntimeMemorySize()
{
    return 0;
}

void CTexture::SetMemoryStream(CMemoryDataStream* stream)
{
    CResource::SetMemoryStream(stream);
}

bool CTexture::Load(const char* name, void*, int, TextureType, int, bool)
{
    mIsManual = false;
    SetFile(name);
    LogErrorImpl("korvoengine/Texture", __LINE__, "No image decoder in this engine build: %s", name ? name : "");
    SetLoadState(RLS_FAILED);
    return false;
}

bool CTexture::Load(const char* name, TextureType, int, bool)
{
    mIsManual = false;
    SetFile(name);
    LogErrorImpl("korvoengine/Texture", __LINE__, "No image decoder in this engine build: %s", name ? name : "");
    SetLoadState(RLS_FAILED);
    return false;
}

bool CTexture::LoadManual(TextureType type, unsigned width, unsigned height, unsigned depth, int mipmaps,
                          PixelFormat format, unsigned usage, unsigned char fsaa, bool)
{
    mIsManual = true;
    mTextureType = type;
    mSrcWidth = mWidth = width;
    mSrcHeight = mHeight = height;
    mSrcDepth = mDepth = depth;
    mNumRequestedMipmaps = mipmaps < 0 ? MIP_UNLIMITED : static_cast<unsigned>(mipmaps);
    mNumMipmaps = mNumRequestedMipmaps;
    mSrcFormat = mFormat = format;
    mUsage = usage;
    mFSAA = fsaa;
    bool ok = createInternalResources();
    if (ok)
        SetLoadState(RLS_READY);
    return ok;
}

void CTexture::copyToTexture(unsigned, unsigned, unsigned, unsigned) {}

bool CTexture::_loadImages(const ImageData& image)
{
    unsigned faces = std::min(image.faces, getNumFaces());
    unsigned levels = std::min(static_cast<unsigned>(image.num_mipmaps) + 1, mNumMipmaps + 1);
    for (unsigned face = 0; face < faces; ++face)
    {
        for (unsigned level = 0; level < levels; ++level)
        {
            CHardwarePixelBuffer* buffer = getBuffer(face, level);
            PixelBox src = image.getPixelBox(face, level);
            if (!buffer || !src.data)
                continue;
            buffer->blitFromMemory(src, Box(0, 0, 0, buffer->getWidth(), buffer->getHeight(), buffer->getDepth()));
        }
    }
    return true;
}

} // namespace kv
