#pragma once
#include <iosfwd>

#include "geometry/BoundingBox.h"
#include "geometry/Vector3.h"

namespace kv
{

enum PlaneSide
{
    PLANE_NO_SIDE = 0,
    PLANE_POSITIVE_SIDE = 1,
    PLANE_NEGATIVE_SIDE = 2,
    PLANE_BOTH_SIDES = 3
};

// normal . p + d = 0. A point's signed distance is normal . p + d, in units of the
// normal's length.
class Plane
{
public:
    Vector3 normal;
    float d = 0.0f;

    Plane() = default;
    Plane(const Plane& other) = default;
    Plane& operator=(const Plane& other) = default;
    Plane(const Vector3& p1, const Vector3& p2, const Vector3& p3) { Redefine(p1, p2, p3); }
    Plane(const Vector3& planeNormal, const Vector3& point) { Redefine(planeNormal, point); }
    // The constant is the distance of the plane from the origin along the normal.
    Plane(const Vector3& planeNormal, float constant) : normal(planeNormal), d(-constant) {}
    Plane(float a, float b, float c, float dd) : normal(a, b, c), d(dd) {}

    float Distance(const Vector3& p) const { return normal.Dot(p) + d; }
    PlaneSide Side(const Vector3& p) const;
    PlaneSide Side(const Vector3& centre, const Vector3& halfSize) const;
    PlaneSide Side(const BoundingBox& box) const;
    // Divides through by the normal's length when above 1e-8; returns the old length.
    float Normalise();
    // Removes v's part along the normal, which is taken to be of unit length.
    Vector3 ProjectVector(const Vector3& v) const;
    void Redefine(const Vector3& p1, const Vector3& p2, const Vector3& p3);
    void Redefine(const Vector3& planeNormal, const Vector3& point);

    bool operator==(const Plane& o) const { return normal == o.normal && d == o.d; }
    bool operator!=(const Plane& o) const { return !(*this == o); }
};

std::ostream& operator<<(std::ostream& o, const Plane& p);

} // namespace kv
