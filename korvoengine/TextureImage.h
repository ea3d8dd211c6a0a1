#pragma once
// The engine's image decoder: an image file in memory (BMP, JPG, PNG, TGA,
// DDS and what else D3DX reads) turned into an ImageData of PF_A8R8G8B8 pixels
// with every face and level the file holds. D3DX decodes, on the render
// system's device, into scratch memory that no reset touches.
#include "engine/Texture.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kv
{

// The largest image accepted, per side and in bytes of decoded pixels: a file
// whose header claims more is refused before anything is allocated.
constexpr unsigned kMaxImageSide = 16384;
constexpr std::size_t kMaxImageBytes = std::size_t(256) << 20;

// Fills image (its data pointing into storage). On failure logs why, naming
// the file, and answers false.
bool DecodeImage(const std::string& name, const void* data, std::size_t size, TextureType type, ImageData& image,
                 std::vector<uint8_t>& storage);

} // namespace kv
