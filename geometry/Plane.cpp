#include "geometry/Plane.h"

#include <cmath>
#include <ostream>

namespace kv
{

PlaneSide Plane::Side(const Vector3& p) const
{
    const float dist = Distance(p);
    if (dist < 0.0f)
        return PLANE_NEGATIVE_SIDE;
    if (dist > 0.0f)
        return PLANE_POSITIVE_SIDE;
    return PLANE_NO_SIDE;
}

PlaneSide Plane::Side(const Vector3& centre, const Vector3& halfSize) const
{
    const float dist = Distance(centre);
    // How far the box reaches along the normal from its centre.
    const float reach =
        std::fabs(normal.x * halfSize.x) + std::fabs(normal.y * halfSize.y) + std::fabs(normal.z * halfSize.z);
    if (dist < -reach)
        return PLANE_NEGATIVE_SIDE;
    if (dist > reach)
        return PLANE_POSITIVE_SIDE;
    return PLANE_BOTH_SIDES;
}

PlaneSide Plane::Side(const BoundingBox& box) const
{
    if (box.IsNull())
        return PLANE_NO_SIDE;
    if (box.IsInfinite())
        return PLANE_BOTH_SIDES;
    return Side(box.Centre(), BoxHalfSize(box));
}

float Plane::Normalise()
{
    const float length = normal.Length();
    if (length > 1e-8f)
    {
        normal = Vector3(normal.x / length, normal.y / length, normal.z / length);
        d /= length;
    }
    return length;
}

Vector3 Plane::ProjectVector(const Vector3& v) const
{
    // I - n n^T, row by row.
    const float n[3] = {normal.x, normal.y, normal.z};
    float m[3][3];
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            m[r][c] = (r == c ? 1.0f : 0.0f) - n[r] * n[c];
    return Vector3(m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z, m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z,
                   m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z);
}

void Plane::Redefine(const Vector3& p1, const Vector3& p2, const Vector3& p3)
{
    normal = (p2 - p1).Cross(p3 - p1);
    normal.Normalise();
    d = -normal.Dot(p1);
}

void Plane::Redefine(const Vector3& planeNormal, const Vector3& point)
{
    normal = planeNormal;
    d = -planeNormal.Dot(point);
}

std::ostream& operator<<(std::ostream& o, const Plane& p)
{
    return o << "Plane(normal=" << p.normal << ", d=" << p.d << ")";
}

} // namespace kv
