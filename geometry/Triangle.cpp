#include "geometry/Triangle.h"

namespace kv
{

Vector3 TriangleNormalRaw(const Vector3& a, const Vector3& b, const Vector3& c)
{
    return (b - a).Cross(c - a);
}

Vector3 TriangleNormal(const Vector3& a, const Vector3& b, const Vector3& c)
{
    return TriangleNormalRaw(a, b, c).Normalised();
}

Plane TrianglePlane(const Vector3& a, const Vector3& b, const Vector3& c)
{
    const Vector3 n = TriangleNormal(a, b, c);
    return Plane(n.x, n.y, n.z, -n.Dot(a));
}

Plane TrianglePlaneRaw(const Vector3& a, const Vector3& b, const Vector3& c)
{
    const Vector3 n = TriangleNormalRaw(a, b, c);
    return Plane(n.x, n.y, n.z, -n.Dot(a));
}

Vector3 TriangleTangent(const Vector3& p1, const Vector3& p2, const Vector3& p3, float s1, float t1, float s2, float t2,
                        float s3, float t3)
{
    const Vector3 side0 = p1 - p2;
    const Vector3 side1 = p3 - p1;
    const Vector3 normal = side1.Cross(side0).Normalised();

    const float deltaT0 = t1 - t2;
    const float deltaT1 = t3 - t1;
    Vector3 tangent = (side0 * deltaT1 - side1 * deltaT0).Normalised();

    const float deltaS0 = s1 - s2;
    const float deltaS1 = s3 - s1;
    const Vector3 binormal = (side0 * deltaS1 - side1 * deltaS0).Normalised();

    if (tangent.Cross(binormal).Dot(normal) < 0.0f)
        tangent = -tangent;
    return tangent;
}

} // namespace kv
