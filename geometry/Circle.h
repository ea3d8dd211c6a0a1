#pragma once

namespace kv
{

// A circle of the plane, for the two-dimensional polygon tests.
struct Circle
{
    float radius = 0.0f;
    float x = 0.0f;
    float y = 0.0f;

    Circle() = default;
    Circle(float r, float cx, float cy) : radius(r), x(cx), y(cy) {}
};

} // namespace kv
