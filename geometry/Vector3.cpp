#include "geometry/Vector3.h"

#include <ostream>

namespace kv
{

const Vector3 Vector3::ZERO(0.0f, 0.0f, 0.0f);
const Vector3 Vector3::UNIT_X(1.0f, 0.0f, 0.0f);
const Vector3 Vector3::UNIT_Y(0.0f, 1.0f, 0.0f);
const Vector3 Vector3::UNIT_Z(0.0f, 0.0f, 1.0f);

bool Vector3Equals(float ax, float ay, float az, float bx, float by, float bz, float tolerance)
{
    return std::fabs(ax - bx) <= tolerance && std::fabs(ay - by) <= tolerance && std::fabs(az - bz) <= tolerance;
}

Vector3 Lerp(const Vector3& a, const Vector3& b, float t)
{
    return a + (b - a) * t;
}

Vector3 Perpendicular(const Vector3& v)
{
    const float ax = std::fabs(v.x), ay = std::fabs(v.y), az = std::fabs(v.z);
    int axis;
    if (!(ay > ax))
        axis = az > ay ? 1 : 2;
    else
        axis = az > ax ? 0 : 2;
    Vector3 unit;
    unit[axis] = 1.0f;
    return v.Cross(unit).Normalised();
}

std::ostream& operator<<(std::ostream& o, const Vector3& v)
{
    return o << "Vector3(" << v.x << ", " << v.y << ", " << v.z << ")";
}

} // namespace kv
