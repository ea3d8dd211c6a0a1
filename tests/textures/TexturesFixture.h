// The start the texture suites share: a render system on the recording d3d9.dll
// and d3dx9_43.dll, image files written in memory, and read-backs of a
// texture's pixels.
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

// A deterministic picture: opaque colours that change by cell of `cell` pixels.
std::vector<uint32_t> Pattern(unsigned width, unsigned height, unsigned cell = 1, uint32_t seed = 0);
// One colour over a level.
std::vector<uint32_t> Fill(unsigned count, uint32_t colour);

// Files made without the plug-in: TGA (32-bit, uncompressed, top-down) and DDS
// (A8R8G8B8, each face or slice with its levels, every level in `levels`).
Bytes WriteTga(unsigned width, unsigned height, const std::vector<uint32_t>& pixels);
Bytes WriteDds(unsigned width, unsigned height, unsigned depth, bool cube,
               const std::vector<std::vector<uint32_t>>& levels);
// A file that D3DX writes from a surface of these pixels.
Bytes WriteWithD3DX(IDirect3DDevice9* device, D3DXIMAGE_FILEFORMAT format, unsigned width, unsigned height,
                    const std::vector<uint32_t>& pixels);
void SaveFile(const std::string& path, const Bytes& bytes);

// Mean channel difference of two pictures of the same size (huge for sizes
// that differ).
double MeanDifference(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b);

} // namespace kvtex

class TexturesTest : public KvDeviceTest
{
protected:
    void SetUp() override;
    void TearDown() override;

    static kv::CD3D9Texture* D3D(kv::CTexture* t) { return static_cast<kv::CD3D9Texture*>(t); }
    static kv::CD3D9HardwarePixelBuffer* Buffer(kv::CTexture* t, unsigned face = 0, unsigned level = 0)
    {
        return static_cast<kv::CD3D9HardwarePixelBuffer*>(t->getBuffer(face, level));
    }
    // A buffer's pixels as A8R8G8B8, through blitToMemory.
    std::vector<uint32_t> Read(kv::CHardwarePixelBuffer* buffer);
    // A manual two-dimensional texture with these pixels in level 0.
    ref_ptr<kv::CTexture> Manual(unsigned width, unsigned height, const std::vector<uint32_t>& pixels,
                                 unsigned usage = 0, int mipmaps = 0);

    std::string dir; // a folder of this test's own for files
};
