#pragma once
#include "geometry/Vector3.h"

namespace kv
{

struct BoundingSphere
{
    float radius = 0.0f;
    Vector3 centre;

    BoundingSphere() = default;
    BoundingSphere(float r, const Vector3& c) : radius(r), centre(c) {}
};

} // namespace kv
