#include "geometry/BoundingBox.h"

#include <limits>

namespace kv
{

Vector3 BoxHalfSize(const BoundingBox& box)
{
    switch (box.extent)
    {
    case BoundingBox::EXTENT_FINITE:
        return (box.maximum - box.minimum) * 0.5f;
    case BoundingBox::EXTENT_INFINITE: {
        const float inf = std::numeric_limits<float>::infinity();
        return Vector3(inf, inf, inf);
    }
    default:
        return Vector3();
    }
}

float BoxBoundingRadius(const BoundingBox& box)
{
    switch (box.extent)
    {
    case BoundingBox::EXTENT_FINITE:
        return 0.5f * (box.maximum - box.minimum).Length();
    case BoundingBox::EXTENT_INFINITE:
        return std::numeric_limits<float>::infinity();
    default:
        return 0.0f;
    }
}

} // namespace kv
