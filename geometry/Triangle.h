#pragma once
#include "geometry/Plane.h"
#include "geometry/Vector3.h"

namespace kv
{

// What is built from a triangle's corners. A degenerate triangle gives an unnormalised,
// possibly zero, vector and a plane with a zero normal; nothing is reported.
Vector3 TriangleNormal(const Vector3& a, const Vector3& b, const Vector3& c);
Vector3 TriangleNormalRaw(const Vector3& a, const Vector3& b, const Vector3& c);
Plane TrianglePlane(const Vector3& a, const Vector3& b, const Vector3& c);
Plane TrianglePlaneRaw(const Vector3& a, const Vector3& b, const Vector3& c);
// The direction of increasing t across a textured triangle, with (s, t) per corner, turned
// to agree with the triangle's winding.
Vector3 TriangleTangent(const Vector3& p1, const Vector3& p2, const Vector3& p3, float s1, float t1, float s2, float t2,
                        float s3, float t3);

} // namespace kv
