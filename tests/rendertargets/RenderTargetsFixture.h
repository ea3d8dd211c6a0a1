// A render system on the recording d3d9.dll and d3dx9_43.dll with what the
// scenarios share: render-target textures, a target cleared through a
// viewport over it, a texture drawn on the window, pictures read back from files.
#pragma once

#include "KvDeviceTest.h"

#include "D3D9HardwarePixelBuffer.h"
#include "D3D9RenderTexture.h"

#include "engine/Texture.h"

#include "DxRecorder.h"

#include <string>

class RenderTargetsTest : public KvDeviceTest
{
protected:
    void SetUp() override;

    ref_ptr<kv::CTexture> Target(unsigned size, unsigned char fsaa = 0, kv::PixelFormat format = kv::PF_A8R8G8B8);
    static kv::CD3D9HardwarePixelBuffer* Buffer(kv::CTexture* t)
    {
        return static_cast<kv::CD3D9HardwarePixelBuffer*>(t->getBuffer(0, 0));
    }
    static kv::CD3D9RenderTexture* RenderTexture(kv::CTexture* t)
    {
        return static_cast<kv::CD3D9RenderTexture*>(Buffer(t)->getRenderTarget(0));
    }
    // The pixels of `rect` (default: all) of the target cleared to an opaque colour, 0x00RRGGBB with 0 or 0xFF.
    void Clear(kv::CRenderTarget* target, uint32_t colour, const RECT* rect = nullptr);
    // The texture point-sampled over the window's columns from 0 to `columns`, in a frame of its own.
    void DrawOnWindow(kv::CTexture* texture, unsigned columns);
    // An image file's pixels as A8R8G8B8; empty when it cannot be read.
    static std::vector<uint32_t> ReadImage(const std::string& path, unsigned* width, unsigned* height);

    std::string dir; // this test's own folder for files
};

inline uint64_t P(const void* p)
{
    return kvproxy::PtrArg(p);
}
// Pixels of a row-major picture `width` wide, in columns [from, to), that are not `colour`.
size_t CountNot(const std::vector<uint32_t>& pixels, unsigned width, unsigned from, unsigned to, uint32_t colour);
