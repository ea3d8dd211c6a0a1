#include "engine/Texture.h"
#include "engine/Globals.h"
#include "engine/HardwarePixelBuffer.h"
#include "engine/Log.h"
#include "engine/PixelUtil.h"

#include "TextureImage.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace kv
{

namespace
{

bool ReadFile(const std::string& path, std::vector<uint8_t>& bytes)
{
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f)
        return false;
    bool ok = std::fseek(f, 0, SEEK_END) == 0;
    const long size = ok ? std::ftell(f) : -1;
    ok = ok && size > 0 && std::fseek(f, 0, SEEK_SET) == 0;
    if (ok)
    {
        bytes.resize(static_cast<std::size_t>(size));
        ok = std::fread(bytes.data(), 1, bytes.size(), f) == bytes.size();
    }
    std::fclose(f);
    return ok;
}

} // namespace

PixelBox ImageData::getPixelBox(unsigned face, unsigned level) const
{
    // Levels lie face after face, each level after the one above it.
    std::size_t offset = 0;
    for (unsigned f = 0; f <= face; ++f)
    {
        for (unsigned l = 0; l <= num_mipmaps; ++l)
        {
            unsigned w = std::max(1u, width >> l), h = std::max(1u, height >> l), d = std::max(1u, depth >> l);
            const std::size_t bytes = PixelUtil::getMemorySize(w, h, d, format);
            if (f == face && l == level)
            {
                if (!data || offset + bytes > size)
                    return PixelBox(w, h, d, format, nullptr);
                return PixelBox(w, h, d, format, data + offset);
            }
            offset += bytes;
        }
    }
    return PixelBox();
}

CTexture::CTexture()
    : mIsManual(false), mTextureType(TEX_TYPE_2D), mSrcWidth(0), mWidth(0), mSrcHeight(0), mHeight(0), mSrcDepth(1),
      mDepth(1), mNumRequestedMipmaps(0), mNumMipmaps(0), mSrcFormat(PF_UNKNOWN), mFormat(PF_UNKNOWN),
      mMipmapsHardwareGenerated(false), mUsage(0), mFSAA(0), m_nCountedKind(0)
{
    ++g_nTextureAmount;
}

CTexture::~CTexture()
{
    --g_nTextureAmount;
    countAs(0);
}

void CTexture::countAs(int kind)
{
    if (m_nCountedKind == 1)
        --g_nTextureResAmount;
    else if (m_nCountedKind == 2)
        --g_nTextureManualAmount;
    m_nCountedKind = kind;
    if (kind == 1)
        ++g_nTextureResAmount;
    else if (kind == 2)
        ++g_nTextureManualAmount;
}

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
    // A texture that came from memory keeps its file in the memory stream;
    // any other reads its file again.
    if (m_pMemoryStream)
        return loadFromMemory(m_pMemoryStream->getPtr(), m_pMemoryStream->size());
    std::vector<uint8_t> file;
    if (!ReadFile(m_strName, file))
    {
        LogErrorImpl("korvoengine/Texture", __LINE__, "Cannot read the texture file %s", m_strName.c_str());
        return false;
    }
    return loadFromMemory(file.data(), file.size());
}

bool CTexture::loadFromMemory(const void* data, std::size_t size)
{
    ImageData image;
    std::vector<uint8_t> storage;
    if (!DecodeImage(m_strName, data, size, mTextureType, image, storage))
        return false;
    mSrcWidth = mWidth = image.width;
    mSrcHeight = mHeight = image.height;
    mSrcDepth = mDepth = image.depth;
    mSrcFormat = mFormat = image.format;
    mNumMipmaps = mNumRequestedMipmaps;
    if (!createInternalResources())
        return false;
    return _loadImages(image);
}

unsigned CTexture::GetRuntimeMemorySize()
{
    return 0;
}

void CTexture::SetMemoryStream(CMemoryDataStream* stream)
{
    CResource::SetMemoryStream(stream);
}

bool CTexture::Load(const char* name, void* data, int size, TextureType type, int mipmaps, bool)
{
    prepareFileLoad(name, type, mipmaps);
    // The file stays with the texture, so a reload needs no file on disk.
    ref_ptr<CMemoryDataStream> stream;
    if (data && size > 0)
    {
        stream = CreateMemoryDataStream(static_cast<unsigned>(size), false);
        if (stream->getPtr())
            std::memcpy(stream->getPtr(), data, static_cast<std::size_t>(size));
    }
    SetMemoryStream(stream.get());
    const bool ok = stream && loadFromMemory(stream->getPtr(), stream->size());
    if (!stream)
        LogErrorImpl("korvoengine/Texture", __LINE__, "No image data for the texture %s", m_strName.c_str());
    SetLoadState(ok ? RLS_READY : RLS_FAILED);
    return ok;
}

bool CTexture::Load(const char* name, TextureType type, int mipmaps, bool)
{
    prepareFileLoad(name, type, mipmaps);
    SetMemoryStream(nullptr);
    const bool ok = InitRes();
    SetLoadState(ok ? RLS_READY : RLS_FAILED);
    return ok;
}

void CTexture::prepareFileLoad(const char* name, TextureType type, int mipmaps)
{
    mIsManual = false;
    countAs(1);
    SetFile(name);
    mTextureType = type;
    mNumRequestedMipmaps = mipmaps < 0 ? MIP_UNLIMITED : static_cast<unsigned>(mipmaps);
    mNumMipmaps = mNumRequestedMipmaps;
    // Files fill the levels they lack by generation.
    mUsage = TU_STATIC | TU_AUTOMIPMAP;
    mFSAA = 0;
}

bool CTexture::LoadManual(TextureType type, unsigned width, unsigned height, unsigned depth, int mipmaps,
                          PixelFormat format, unsigned usage, unsigned char fsaa, bool)
{
    mIsManual = true;
    countAs(2);
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
