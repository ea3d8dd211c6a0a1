#pragma once

namespace kv
{

// A miss has distance 0 unless its test says otherwise.
struct RayHit
{
    bool hit = false;
    float distance = 0.0f;

    RayHit() = default;
    RayHit(bool h, float d) : hit(h), distance(d) {}
};

} // namespace kv
