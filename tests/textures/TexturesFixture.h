// The start the texture suites share: a render system on the recording d3d9.dll and d3dx9_43.dll, image files written
// in memory, and read-backs of pixels.
#pragma once

#include "KvDeviceTest.h"

#include "D3D9HardwarePixelBuffer.h"
#include "D3D9Texture.h"

#include "engine/PixelUtil.h"

#include "DxRecorder.h"

#include <d3dx9.h>

#include <string>
#include <vector>

namespace kvtex
{

typedef std::vector<uint8_t> Bytes;
typedef std::vector<uint32_t> Pixels;
typedef std::vector<std::string> Lines;

// A deterministic picture: opaque colours that change by cell of `cell` pixels.
Pixels Pattern(unsigned width, unsigned height, unsigned cell = 1);
// A DDS file made without the plug-in: A8R8G8B8, each face or slice with its levels, every level in `levels`.
Bytes WriteDds(unsigned width, unsigned height, unsigned depth, bool cube, const std::vector<Pixels>& levels);

} // namespace kvtex

struct TexturesTest : KvDeviceTest
{
    void SetUp() override;

    static kv::CD3D9Texture* D3D(kv::CTexture* t) { return static_cast<kv::CD3D9Texture*>(t); }
    static kv::CD3D9HardwarePixelBuffer* Buffer(kv::CTexture* t, unsigned face = 0, unsigned level = 0)
    {
        return static_cast<kv::CD3D9HardwarePixelBuffer*>(t->getBuffer(face, level));
    }
    // A buffer's pixels as A8R8G8B8, through blitToMemory.
    kvtex::Pixels Read(kv::CHardwarePixelBuffer* buffer);
    // A manual two-dimensional texture of one level, and one with these pixels in level 0.
    ref_ptr<kv::CTexture> Make(unsigned width, unsigned height, unsigned usage = 0,
                               kv::PixelFormat format = kv::PF_A8R8G8B8);
    ref_ptr<kv::CTexture> Manual(unsigned width, unsigned height, const kvtex::Pixels& pixels);
    ref_ptr<kv::CTexture> FromMemory(const char* name, const kvtex::Bytes& file, kv::TextureType type = kv::TEX_TYPE_2D,
                                     int mipmaps = 0);

    std::string dir; // a folder of this test's own for files
};
