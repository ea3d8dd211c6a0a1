#pragma once
#include "geometry/Vector3.h"

namespace kv
{

// An axis-aligned box that may also stand for nothing (null) or everything (infinite);
// only a finite box's corners mean anything.
class BoundingBox
{
public:
    enum Extent
    {
        EXTENT_NULL = 0,
        EXTENT_FINITE = 1,
        EXTENT_INFINITE = 2
    };

    Vector3 minimum{0.0f, 0.0f, 0.0f};
    Vector3 maximum{1.0f, 1.0f, 1.0f};
    Extent extent = EXTENT_NULL;
    // Belongs to the box it was set on; a copy starts without it.
    void* userData = nullptr;

    BoundingBox() = default;
    BoundingBox(const Vector3& min, const Vector3& max) : minimum(min), maximum(max), extent(EXTENT_FINITE) {}
    BoundingBox(const BoundingBox& other) { *this = other; }
    BoundingBox& operator=(const BoundingBox& other)
    {
        extent = other.extent;
        if (extent == EXTENT_FINITE)
        {
            minimum = other.minimum;
            maximum = other.maximum;
        }
        else
        {
            minimum = Vector3(0.0f, 0.0f, 0.0f);
            maximum = Vector3(1.0f, 1.0f, 1.0f);
        }
        return *this;
    }

    static BoundingBox Null() { return BoundingBox(); }
    static BoundingBox Infinite()
    {
        BoundingBox box;
        box.extent = EXTENT_INFINITE;
        return box;
    }

    bool IsNull() const { return extent == EXTENT_NULL; }
    bool IsFinite() const { return extent == EXTENT_FINITE; }
    bool IsInfinite() const { return extent == EXTENT_INFINITE; }
    Vector3 Centre() const { return (minimum + maximum) * 0.5f; }
};

// Finite: (max - min) * 0.5; infinite: +infinity on each axis; null: zero.
Vector3 BoxHalfSize(const BoundingBox& box);
// 0.5 * |max - min| for a finite box; 0 for a null box and +infinity for an infinite one.
float BoxBoundingRadius(const BoundingBox& box);

} // namespace kv
