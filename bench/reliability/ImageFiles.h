#pragma once
// Image files the soaks damage: a PNG or BMP written by D3DX from pixels, and a TGA by hand
// (D3DX on Wine cannot save one).

#include <d3d9.h>
#include <d3dx9.h>

#include <cstdint>
#include <vector>

namespace soak
{

inline std::vector<uint8_t> WriteWithD3DX(IDirect3DDevice9* device, D3DXIMAGE_FILEFORMAT format, unsigned width,
                                          unsigned height, const std::vector<uint32_t>& pixels)
{
    std::vector<uint8_t> bytes;
    IDirect3DSurface9* surface = nullptr;
    if (FAILED(device->CreateOffscreenPlainSurface(width, height, D3DFMT_A8R8G8B8, D3DPOOL_SCRATCH, &surface, nullptr)))
        return bytes;
    RECT rect = {0, 0, static_cast<LONG>(width), static_cast<LONG>(height)};
    ID3DXBuffer* file = nullptr;
    if (SUCCEEDED(D3DXLoadSurfaceFromMemory(surface, nullptr, nullptr, pixels.data(), D3DFMT_A8R8G8B8, width * 4,
                                            nullptr, &rect, D3DX_FILTER_NONE, 0)) &&
        SUCCEEDED(D3DXSaveSurfaceToFileInMemory(&file, format, surface, nullptr, nullptr)))
    {
        const uint8_t* p = static_cast<const uint8_t*>(file->GetBufferPointer());
        bytes.assign(p, p + file->GetBufferSize());
        file->Release();
    }
    surface->Release();
    return bytes;
}

inline std::vector<uint8_t> WriteTga(unsigned width, unsigned height, const std::vector<uint32_t>& pixels)
{
    std::vector<uint8_t> b(18, 0);
    b[2] = 2; // uncompressed true colour
    b[12] = static_cast<uint8_t>(width);
    b[13] = static_cast<uint8_t>(width >> 8);
    b[14] = static_cast<uint8_t>(height);
    b[15] = static_cast<uint8_t>(height >> 8);
    b[16] = 32;
    b[17] = 0x28; // top-down, 8 alpha bits
    for (uint32_t p : pixels)
        for (int shift = 0; shift < 32; shift += 8)
            b.push_back(static_cast<uint8_t>(p >> shift));
    return b;
}

} // namespace soak
