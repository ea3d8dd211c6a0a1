#pragma once
#include <cmath>
#include <iosfwd>

namespace kv
{

// Three 32-bit floats. Normalising leaves vectors of length 1e-8 or less unscaled, so a
// degenerate input stays finite instead of blowing up to infinities.
class Vector3
{
public:
    float x = 0.0f, y = 0.0f, z = 0.0f;

    Vector3() = default;
    constexpr Vector3(float fx, float fy, float fz) : x(fx), y(fy), z(fz) {}

    float operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
    float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }

    Vector3 operator+(const Vector3& v) const { return Vector3(x + v.x, y + v.y, z + v.z); }
    Vector3 operator-(const Vector3& v) const { return Vector3(x - v.x, y - v.y, z - v.z); }
    Vector3 operator-() const { return Vector3(-x, -y, -z); }
    Vector3 operator*(float s) const { return Vector3(x * s, y * s, z * s); }
    Vector3 operator*(const Vector3& v) const { return Vector3(x * v.x, y * v.y, z * v.z); }
    Vector3 operator/(float s) const { return Vector3(x / s, y / s, z / s); }
    Vector3& operator+=(const Vector3& v)
    {
        x += v.x;
        y += v.y;
        z += v.z;
        return *this;
    }
    Vector3& operator-=(const Vector3& v)
    {
        x -= v.x;
        y -= v.y;
        z -= v.z;
        return *this;
    }
    Vector3& operator*=(float s)
    {
        x *= s;
        y *= s;
        z *= s;
        return *this;
    }
    bool operator==(const Vector3& v) const { return x == v.x && y == v.y && z == v.z; }
    bool operator!=(const Vector3& v) const { return !(*this == v); }

    float Dot(const Vector3& v) const { return x * v.x + y * v.y + z * v.z; }
    Vector3 Cross(const Vector3& v) const { return Vector3(y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x); }
    float SquaredLength() const { return x * x + y * y + z * z; }
    float Length() const { return std::sqrt(SquaredLength()); }

    // Scales to unit length when the length is above 1e-8; returns the length it had.
    float Normalise()
    {
        const float length = Length();
        if (length > 1e-8f)
        {
            const float inv = 1.0f / length;
            x *= inv;
            y *= inv;
            z *= inv;
        }
        return length;
    }
    Vector3 Normalised() const
    {
        Vector3 v(*this);
        v.Normalise();
        return v;
    }

    static const Vector3 ZERO;
    static const Vector3 UNIT_X;
    static const Vector3 UNIT_Y;
    static const Vector3 UNIT_Z;
};

inline Vector3 operator*(float s, const Vector3& v)
{
    return v * s;
}

bool Vector3Equals(float ax, float ay, float az, float bx, float by, float bz, float tolerance);
Vector3 Lerp(const Vector3& a, const Vector3& b, float t);
// A unit vector at right angles to v, crossed with the axis of v's smallest component.
Vector3 Perpendicular(const Vector3& v);
std::ostream& operator<<(std::ostream& o, const Vector3& v);

} // namespace kv
