#pragma once

namespace kv
{

// A point of the plane for the two-dimensional containment tests.
struct Vector2
{
    float x = 0.0f, y = 0.0f;

    Vector2() = default;
    constexpr Vector2(float fx, float fy) : x(fx), y(fy) {}
};

} // namespace kv
