#pragma once
// A region of pixels: Box is the extent (right, bottom and back exclusive, the
// order of D3DBOX), PixelBox adds where the pixels lie in memory. Pitches are
// counted in pixels, not bytes.
#include "engine/PixelFormat.h"

namespace kv
{

struct Box
{
    unsigned left, top, right, bottom, front, back;

    Box() : left(0), top(0), right(1), bottom(1), front(0), back(1) {}
    Box(unsigned l, unsigned t, unsigned r, unsigned b) : left(l), top(t), right(r), bottom(b), front(0), back(1) {}
    Box(unsigned l, unsigned t, unsigned f, unsigned r, unsigned b, unsigned bk)
        : left(l), top(t), right(r), bottom(b), front(f), back(bk)
    {
    }
    unsigned getWidth() const { return right - left; }
    unsigned getHeight() const { return bottom - top; }
    unsigned getDepth() const { return back - front; }
};

struct PixelBox : public Box
{
    void* data;
    PixelFormat format;
    unsigned rowPitch;   // in pixels
    unsigned slicePitch; // in pixels

    PixelBox() : data(nullptr), format(PF_UNKNOWN), rowPitch(0), slicePitch(0) {}
    PixelBox(unsigned width, unsigned height, unsigned depth, PixelFormat fmt, void* pixels = nullptr)
        : Box(0, 0, 0, width, height, depth), data(pixels), format(fmt), rowPitch(width), slicePitch(width * height)
    {
    }
    PixelBox(const Box& extents, PixelFormat fmt, void* pixels = nullptr)
        : Box(extents), data(pixels), format(fmt), rowPitch(extents.getWidth()),
          slicePitch(extents.getWidth() * extents.getHeight())
    {
    }
    PixelBox(const PixelBox&) = default;
    PixelBox& operator=(const PixelBox&) = default;
    virtual ~PixelBox() {}

    // Whether the rows and slices follow each other without gaps.
    bool isConsecutive() const { return rowPitch == getWidth() && slicePitch == getWidth() * getHeight(); }
};

} // namespace kv
