// A small scene drawn with pre-transformed vertices into a 64 x 64 render target
// and read back, used to show that the proxy changes nothing in what is drawn.
#pragma once

#include <d3d9.h>
#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace scene
{

constexpr unsigned kSize = 64;
constexpr uint32_t kClearColour = 0x000000FF; // blue, alpha dropped by the X8R8G8B8 target
constexpr uint32_t kSolidColour = 0x00FF0000; // red, the upper-left triangle

// A hidden window for devices of tests.
HWND TestWindow();

// Makes a device on `d3d`, draws the scene and returns the pixels (X8R8G8B8 with the
// unused byte cleared), row by row. On failure returns false and says why.
bool Draw(IDirect3D9* d3d, std::vector<uint32_t>* pixels, std::string* error);

// Empty when the pixels hold the scene's colours at the places where they are certain;
// otherwise one line for each pixel that is off.
std::string KnownPixelMismatches(const std::vector<uint32_t>& pixels);

inline uint32_t At(const std::vector<uint32_t>& pixels, unsigned x, unsigned y)
{
    return pixels[y * kSize + x];
}

} // namespace scene
