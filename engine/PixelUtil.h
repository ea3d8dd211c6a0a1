#pragma once
// Sizes of pixel formats and conversion between them on the CPU. Packed formats
// are read as little-endian words whose name lists the channels from the high
// bits down (PF_A8R8G8B8: bytes B, G, R, A), as Direct3D's formats are; the
// byte formats PF_R8G8B8 and PF_B8G8R8 likewise name the channels from the last
// byte down.
#include "engine/Export.h"
#include "engine/PixelBox.h"

#include <cstddef>

namespace kv
{

class KV_API PixelUtil
{
public:
    // Bytes of one pixel; 0 for block-compressed and unknown formats.
    static unsigned getNumElemBytes(PixelFormat format);
    static unsigned getNumElemBits(PixelFormat format);
    // The DXT block formats and PF_ATI2.
    static bool isCompressed(PixelFormat format);
    // Bytes of a tightly packed image; compressed formats count 4 x 4 blocks.
    static std::size_t getMemorySize(unsigned width, unsigned height, unsigned depth, PixelFormat format);
    // Bytes of a whole chain: mipmaps levels below the top, of each face.
    static std::size_t calculateSize(unsigned mipmaps, unsigned faces, unsigned width, unsigned height, unsigned depth,
                                     PixelFormat format);
    // Whether bulkPixelConversion can read and write the format.
    static bool isConvertible(PixelFormat format);
    // Converts src into dst; both boxes must have the same width, height and
    // depth. The same format copies rows; otherwise both must be convertible.
    // Answers false, touching nothing, when it cannot convert.
    static bool bulkPixelConversion(const PixelBox& src, const PixelBox& dst);
};

} // namespace kv
