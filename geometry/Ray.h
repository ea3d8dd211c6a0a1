#pragma once
#include "geometry/Vector3.h"

namespace kv
{

// Most tests take the direction as it is: their distances are in units of its length.
struct Ray
{
    Vector3 origin;
    Vector3 direction;

    Ray() = default;
    Ray(const Vector3& o, const Vector3& d) : origin(o), direction(d) {}
    Vector3 PointAt(float t) const { return origin + direction * t; }
};

} // namespace kv
