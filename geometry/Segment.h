#pragma once
#include "geometry/Vector3.h"

namespace kv
{

struct Segment
{
    Vector3 first;
    Vector3 second;

    Segment() = default;
    Segment(const Vector3& a, const Vector3& b) : first(a), second(b) {}
};

} // namespace kv
