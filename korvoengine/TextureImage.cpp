#include "TextureImage.h"

#include "engine/Log.h"
#include "engine/PixelUtil.h"
#include "engine/RenderSystem.h"

#include <d3dx9.h>

#include <algorithm>
#include <cstring>

namespace kv
{

namespace
{

#define LOG_FAILURE(...) LogErrorImpl("korvoengine/TextureImage", __LINE__, __VA_ARGS__)

const char* TypeName(TextureType type)
{
    switch (type)
    {
    case TEX_TYPE_3D:
        return "volume";
    case TEX_TYPE_CUBE_MAP:
        return "cube map";
    default:
        return "two-dimensional image";
    }
}

// The rows of one locked level, packed tight behind what storage holds.
void Append(std::vector<uint8_t>& storage, const void* bits, unsigned pitch, unsigned slicePitch, unsigned width,
            unsigned height, unsigned depth)
{
    const std::size_t row = std::size_t(width) * 4;
    const uint8_t* from = static_cast<const uint8_t*>(bits);
    for (unsigned z = 0; z < depth; ++z)
        for (unsigned y = 0; y < height; ++y)
        {
            const uint8_t* r = from + std::size_t(z) * slicePitch + std::size_t(y) * pitch;
            storage.insert(storage.end(), r, r + row);
        }
}

template <class T>
struct Released
{
    T* p = nullptr;
    ~Released()
    {
        if (p)
            p->Release();
    }
};

bool Decode2D(IDirect3DDevice9* device, const void* data, UINT size, const D3DXIMAGE_INFO& info, UINT levels,
              std::vector<uint8_t>& storage)
{
    Released<IDirect3DTexture9> texture;
    HRESULT hr = D3DXCreateTextureFromFileInMemoryEx(device, data, size, info.Width, info.Height, levels, 0,
                                                     D3DFMT_A8R8G8B8, D3DPOOL_SCRATCH, D3DX_FILTER_NONE,
                                                     D3DX_FILTER_NONE, 0, nullptr, nullptr, &texture.p);
    if (FAILED(hr) || !texture.p)
        return false;
    for (UINT level = 0; level < levels; ++level)
    {
        D3DSURFACE_DESC desc;
        D3DLOCKED_RECT locked;
        if (FAILED(texture.p->GetLevelDesc(level, &desc)) ||
            FAILED(texture.p->LockRect(level, &locked, nullptr, D3DLOCK_READONLY)))
            return false;
        Append(storage, locked.pBits, static_cast<unsigned>(locked.Pitch), 0, desc.Width, desc.Height, 1);
        texture.p->UnlockRect(level);
    }
    return true;
}

bool DecodeCube(IDirect3DDevice9* device, const void* data, UINT size, const D3DXIMAGE_INFO& info, UINT levels,
                std::vector<uint8_t>& storage)
{
    Released<IDirect3DCubeTexture9> texture;
    HRESULT hr = D3DXCreateCubeTextureFromFileInMemoryEx(device, data, size, info.Width, levels, 0, D3DFMT_A8R8G8B8,
                                                         D3DPOOL_SCRATCH, D3DX_FILTER_NONE, D3DX_FILTER_NONE, 0,
                                                         nullptr, nullptr, &texture.p);
    if (FAILED(hr) || !texture.p)
        return false;
    for (unsigned face = 0; face < 6; ++face)
        for (UINT level = 0; level < levels; ++level)
        {
            D3DSURFACE_DESC desc;
            D3DLOCKED_RECT locked;
            const D3DCUBEMAP_FACES f = static_cast<D3DCUBEMAP_FACES>(face);
            if (FAILED(texture.p->GetLevelDesc(level, &desc)) ||
                FAILED(texture.p->LockRect(f, level, &locked, nullptr, D3DLOCK_READONLY)))
                return false;
            Append(storage, locked.pBits, static_cast<unsigned>(locked.Pitch), 0, desc.Width, desc.Height, 1);
            texture.p->UnlockRect(f, level);
        }
    return true;
}

bool DecodeVolume(IDirect3DDevice9* device, const void* data, UINT size, const D3DXIMAGE_INFO& info, UINT levels,
                  std::vector<uint8_t>& storage)
{
    Released<IDirect3DVolumeTexture9> texture;
    HRESULT hr = D3DXCreateVolumeTextureFromFileInMemoryEx(
        device, data, size, info.Width, info.Height, info.Depth, levels, 0, D3DFMT_A8R8G8B8, D3DPOOL_SCRATCH,
        D3DX_FILTER_NONE, D3DX_FILTER_NONE, 0, nullptr, nullptr, &texture.p);
    if (FAILED(hr) || !texture.p)
        return false;
    for (UINT level = 0; level < levels; ++level)
    {
        D3DVOLUME_DESC desc;
        D3DLOCKED_BOX locked;
        if (FAILED(texture.p->GetLevelDesc(level, &desc)) ||
            FAILED(texture.p->LockBox(level, &locked, nullptr, D3DLOCK_READONLY)))
            return false;
        Append(storage, locked.pBits, static_cast<unsigned>(locked.RowPitch), static_cast<unsigned>(locked.SlicePitch),
               desc.Width, desc.Height, desc.Depth);
        texture.p->UnlockBox(level);
    }
    return true;
}

uint32_t Read32(const uint8_t* p)
{
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

// D3DX walks a DDS file's levels by the header's counts before it looks at the
// data, so a damaged count costs it minutes: the header is checked first.
bool DdsHeaderFits(const std::string& name, const uint8_t* data, std::size_t size)
{
    if (size < 4 || Read32(data) != 0x20534444) // "DDS "
        return true;                            // not a DDS file: D3DX judges
    if (size < 128 || Read32(data + 4) != 124)
    {
        LOG_FAILURE("Damaged DDS header: %s", name.c_str());
        return false;
    }
    const uint32_t flags = Read32(data + 8), height = Read32(data + 12), width = Read32(data + 16);
    const uint32_t depth = (flags & 0x800000) ? Read32(data + 24) : 1;
    const uint32_t levels = (flags & 0x20000) ? Read32(data + 28) : 1;
    if (width == 0 || height == 0 || width > kMaxImageSide || height > kMaxImageSide || depth > kMaxImageSide ||
        levels > 32)
    {
        LOG_FAILURE("DDS header out of range: %s, %u x %u x %u, %u levels", name.c_str(), width, height, depth, levels);
        return false;
    }
    return true;
}

} // namespace

bool DecodeImage(const std::string& name, const void* data, std::size_t size, TextureType type, ImageData& image,
                 std::vector<uint8_t>& storage)
{
    CRenderSystem* rs = GetRenderSystem();
    IDirect3DDevice9* device = rs ? rs->GetD3D9Device() : nullptr;
    if (!device)
    {
        LOG_FAILURE("No device to decode the image %s on", name.c_str());
        return false;
    }
    if (!data || size == 0 || size > 0x7FFFFFFF)
    {
        LOG_FAILURE("Empty or oversized image file: %s, %u bytes", name.c_str(), static_cast<unsigned>(size));
        return false;
    }
    if (!DdsHeaderFits(name, static_cast<const uint8_t*>(data), size))
        return false;
    D3DXIMAGE_INFO info;
    std::memset(&info, 0, sizeof info);
    HRESULT hr = D3DXGetImageInfoFromFileInMemory(data, static_cast<UINT>(size), &info);
    if (FAILED(hr))
    {
        LOG_FAILURE("Not an image file D3DX can read: %s, hr:0x%08lx", name.c_str(), static_cast<unsigned long>(hr));
        return false;
    }

    const bool cube = type == TEX_TYPE_CUBE_MAP;
    const bool volume = type == TEX_TYPE_3D;
    if ((cube && info.ResourceType != D3DRTYPE_CUBETEXTURE) || (volume && info.ResourceType != D3DRTYPE_VOLUMETEXTURE))
    {
        LOG_FAILURE("The image %s holds no %s", name.c_str(), TypeName(type));
        return false;
    }
    const unsigned depth = volume ? std::max(1u, info.Depth) : 1u;
    const unsigned faces = cube ? 6u : 1u;
    const UINT levels = std::max(1u, info.MipLevels);
    const std::size_t bytes = PixelUtil::calculateSize(levels - 1, faces, info.Width, info.Height, depth, PF_A8R8G8B8);
    if (info.Width == 0 || info.Height == 0 || info.Width > kMaxImageSide || info.Height > kMaxImageSide ||
        depth > kMaxImageSide || levels > 32 || bytes > kMaxImageBytes)
    {
        LOG_FAILURE("Image size out of range: %s, %u x %u x %u, %u levels", name.c_str(), info.Width, info.Height,
                    depth, levels);
        return false;
    }
    // A DDS file stores its pixels as they are, at least half a byte each
    // (DXT1) behind a 128-byte header: a header that promises more than the
    // file holds is refused before D3DX allocates for it.
    if (info.ImageFileFormat == D3DXIFF_DDS && size < 128 + bytes / 8)
    {
        LOG_FAILURE("The image %s is shorter than its header says: %u bytes for %u x %u x %u, %u levels", name.c_str(),
                    static_cast<unsigned>(size), info.Width, info.Height, depth, levels);
        return false;
    }

    storage.clear();
    storage.reserve(bytes);
    bool ok;
    if (cube)
        ok = DecodeCube(device, data, static_cast<UINT>(size), info, levels, storage);
    else if (volume)
        ok = DecodeVolume(device, data, static_cast<UINT>(size), info, levels, storage);
    else
        ok = Decode2D(device, data, static_cast<UINT>(size), info, levels, storage);
    if (!ok || storage.size() != bytes)
    {
        LOG_FAILURE("Failed to decode the image %s", name.c_str());
        return false;
    }

    image.width = info.Width;
    image.height = info.Height;
    image.depth = depth;
    image.num_mipmaps = static_cast<unsigned short>(levels - 1);
    image.faces = faces;
    image.format = PF_A8R8G8B8;
    image.data = storage.data();
    image.size = static_cast<unsigned>(storage.size());
    return true;
}

} // namespace kv
