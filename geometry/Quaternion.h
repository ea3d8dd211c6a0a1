#pragma once
#include "geometry/Matrix3.h"
#include "geometry/Vector3.h"

namespace kv
{

// A rotation as a unit quaternion: four floats in the order w, x, y, z.
class Quaternion
{
public:
    float w = 1.0f, x = 0.0f, y = 0.0f, z = 0.0f;

    Quaternion() = default;
    constexpr Quaternion(float fw, float fx, float fy, float fz) : w(fw), x(fx), y(fy), z(fz) {}

    Quaternion operator*(const Quaternion& q) const; // Hamilton product
    Quaternion operator+(const Quaternion& q) const { return Quaternion(w + q.w, x + q.x, y + q.y, z + q.z); }
    Quaternion operator-(const Quaternion& q) const { return Quaternion(w - q.w, x - q.x, y - q.y, z - q.z); }
    Quaternion operator-() const { return Quaternion(-w, -x, -y, -z); }
    Quaternion operator*(float s) const { return Quaternion(w * s, x * s, y * s, z * s); }
    Quaternion operator/(float s) const { return *this * (1.0f / s); }
    bool operator==(const Quaternion& q) const { return w == q.w && x == q.x && y == q.y && z == q.z; }
    bool operator!=(const Quaternion& q) const { return !(*this == q); }

    static float Dot(const Quaternion& a, const Quaternion& b);
    float Dot(const Quaternion& q) const { return Dot(*this, q); }
    // The squared length.
    float Norm() const;
    // Scales to unit length; returns the Norm it had. No guard against zero.
    float Normalise();
    Quaternion Normalised() const;
    // Conjugate over Norm: the zero quaternion gives non-finite components.
    Quaternion Inverse() const;
    Quaternion UnitInverse() const { return Quaternion(w, -x, -y, -z); }
    Vector3 Rotate(const Vector3& v) const;
    Quaternion Exp() const;
    Quaternion Log() const;

    void FromAngleAxis(float angle, const Vector3& axis);
    void ToAngleAxis(float& angle, Vector3& axis) const;
    void FromRotationMatrix(const Matrix3& m);
    void ToRotationMatrix(Matrix3& m) const;
    void FromAxes(const Vector3& xAxis, const Vector3& yAxis, const Vector3& zAxis);
    void FromAxes(const Vector3* axes);
    void ToAxes(Vector3& xAxis, Vector3& yAxis, Vector3& zAxis) const;
    void ToAxes(Vector3* axes) const;
    Vector3 XAxis() const;
    Vector3 YAxis() const;
    Vector3 ZAxis() const;
    // False (this untouched) when no frame can be built from the two directions.
    bool FromDirection(const Vector3& direction, const Vector3& up);

    float AngleAboutX(bool reproject = true) const;
    float AngleAboutY(bool reproject = true) const;
    float AngleAboutZ(bool reproject = true) const;

    // q and -q are the same rotation and compare equal.
    bool EqualsWithin(const Quaternion& other, float tolerance) const;

    static Quaternion Slerp(float t, const Quaternion& p, const Quaternion& q, bool shortestPath = false);
    static Quaternion SlerpWithSpins(float t, const Quaternion& p, const Quaternion& q, int spins);
    static Quaternion Nlerp(float t, const Quaternion& p, const Quaternion& q, bool shortestPath = false);
    static Quaternion Squad(float t, const Quaternion& p, const Quaternion& a, const Quaternion& b, const Quaternion& q,
                            bool shortestPath = false);
    static void SquadControlPoints(const Quaternion& q0, const Quaternion& q1, const Quaternion& q2, Quaternion& a,
                                   Quaternion& b);

    static const Quaternion IDENTITY;
    static const Quaternion ZERO;
};

inline Quaternion operator*(float s, const Quaternion& q)
{
    return q * s;
}

} // namespace kv
