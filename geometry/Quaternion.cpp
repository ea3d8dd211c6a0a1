#include "geometry/Quaternion.h"

#include <cmath>

#include "geometry/Matrix4.h"
#include "geometry/ScalarMath.h"

namespace kv
{

const Quaternion Quaternion::IDENTITY(1.0f, 0.0f, 0.0f, 0.0f);
const Quaternion Quaternion::ZERO(0.0f, 0.0f, 0.0f, 0.0f);

Quaternion Quaternion::operator*(const Quaternion& b) const
{
    return Quaternion(w * b.w - x * b.x - y * b.y - z * b.z, w * b.x + x * b.w + y * b.z - z * b.y,
                      w * b.y + y * b.w + z * b.x - x * b.z, w * b.z + z * b.w + x * b.y - y * b.x);
}

float Quaternion::Dot(const Quaternion& a, const Quaternion& b)
{
    return a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z;
}

float Quaternion::Norm() const
{
    return w * w + x * x + y * y + z * z;
}

float Quaternion::Normalise()
{
    const float norm = Norm();
    *this = *this * (1.0f / std::sqrt(norm));
    return norm;
}

Quaternion Quaternion::Normalised() const
{
    Quaternion q(*this);
    q.Normalise();
    return q;
}

Quaternion Quaternion::Inverse() const
{
    const float norm = Norm();
    return Quaternion(w, -x, -y, -z) / norm;
}

Vector3 Quaternion::Rotate(const Vector3& v) const
{
    const Vector3 u(x, y, z);
    return v + 2.0f * u.Cross(u.Cross(v) + v * w);
}

Quaternion Quaternion::Exp() const
{
    // exp(angle * axis) = (cos angle, axis * sin angle); near angle 0, sin(angle)/angle
    // is 1 and xyz stays as it is.
    const float angle = std::sqrt(x * x + y * y + z * z);
    const float s = std::sin(angle);
    Quaternion result(std::cos(angle), x, y, z);
    if (std::fabs(s) >= 0.001f)
    {
        const float coeff = s / angle;
        result.x = coeff * x;
        result.y = coeff * y;
        result.z = coeff * z;
    }
    return result;
}

Quaternion Quaternion::Log() const
{
    Quaternion result(0.0f, x, y, z);
    if (std::fabs(w) < 1.0f)
    {
        const float angle = SafeAcos(w);
        const float s = std::sin(angle);
        if (std::fabs(s) >= 0.001f)
        {
            const float coeff = angle / s;
            result.x = coeff * x;
            result.y = coeff * y;
            result.z = coeff * z;
        }
    }
    return result;
}

void Quaternion::FromAngleAxis(float angle, const Vector3& axis)
{
    const float half = 0.5f * angle;
    const float s = std::sin(half);
    w = std::cos(half);
    x = s * axis.x;
    y = s * axis.y;
    z = s * axis.z;
}

void Quaternion::ToAngleAxis(float& angle, Vector3& axis) const
{
    const float lengthSq = x * x + y * y + z * z;
    if (lengthSq > 0.0f)
    {
        angle = 2.0f * SafeAcos(w);
        const float inv = InverseSqrt(lengthSq);
        axis = Vector3(x * inv, y * inv, z * inv);
    }
    else
    {
        // No rotation: any axis will do.
        angle = 0.0f;
        axis = Vector3(1.0f, 0.0f, 0.0f);
    }
}

void Quaternion::FromRotationMatrix(const Matrix3& m)
{
    const float trace = m[0][0] + m[1][1] + m[2][2];
    if (trace > 0.0f)
    {
        float root = std::sqrt(trace + 1.0f);
        w = 0.5f * root;
        root = 0.5f / root;
        x = (m[2][1] - m[1][2]) * root;
        y = (m[0][2] - m[2][0]) * root;
        z = (m[1][0] - m[0][1]) * root;
        return;
    }
    // Work from the largest diagonal element, where the root is best conditioned.
    static const int next[3] = {1, 2, 0};
    int i = 0;
    if (m[1][1] > m[0][0])
        i = 1;
    if (m[2][2] > m[i][i])
        i = 2;
    const int j = next[i];
    const int k = next[j];
    float root = std::sqrt(m[i][i] - m[j][j] - m[k][k] + 1.0f);
    float* xyz[3] = {&x, &y, &z};
    *xyz[i] = 0.5f * root;
    root = 0.5f / root;
    w = (m[k][j] - m[j][k]) * root;
    *xyz[j] = (m[j][i] + m[i][j]) * root;
    *xyz[k] = (m[k][i] + m[i][k]) * root;
}

void Quaternion::ToRotationMatrix(Matrix3& m) const
{
    const float tx = x + x, ty = y + y, tz = z + z;
    const float twx = tx * w, twy = ty * w, twz = tz * w;
    const float txx = tx * x, txy = ty * x, txz = tz * x;
    const float tyy = ty * y, tyz = tz * y, tzz = tz * z;
    m[0][0] = 1.0f - (tyy + tzz);
    m[0][1] = txy - twz;
    m[0][2] = txz + twy;
    m[1][0] = txy + twz;
    m[1][1] = 1.0f - (txx + tzz);
    m[1][2] = tyz - twx;
    m[2][0] = txz - twy;
    m[2][1] = tyz + twx;
    m[2][2] = 1.0f - (txx + tyy);
}

void Quaternion::FromAxes(const Vector3& xAxis, const Vector3& yAxis, const Vector3& zAxis)
{
    Matrix3 rot;
    rot.FromColumns(xAxis, yAxis, zAxis);
    FromRotationMatrix(rot);
}

void Quaternion::FromAxes(const Vector3* axes)
{
    FromAxes(axes[0], axes[1], axes[2]);
}

void Quaternion::ToAxes(Vector3& xAxis, Vector3& yAxis, Vector3& zAxis) const
{
    Matrix3 rot;
    ToRotationMatrix(rot);
    xAxis = rot.GetColumn(0);
    yAxis = rot.GetColumn(1);
    zAxis = rot.GetColumn(2);
}

void Quaternion::ToAxes(Vector3* axes) const
{
    ToAxes(axes[0], axes[1], axes[2]);
}

Vector3 Quaternion::XAxis() const
{
    const float ty = y + y, tz = z + z;
    const float twy = ty * w, twz = tz * w;
    const float txy = ty * x, txz = tz * x;
    const float tyy = ty * y, tzz = tz * z;
    return Vector3(1.0f - (tyy + tzz), txy + twz, txz - twy);
}

Vector3 Quaternion::YAxis() const
{
    const float tx = x + x, ty = y + y, tz = z + z;
    const float twx = tx * w, twz = tz * w;
    const float txx = tx * x, txy = ty * x;
    const float tyz = tz * y, tzz = tz * z;
    return Vector3(txy - twz, 1.0f - (txx + tzz), tyz + twx);
}

Vector3 Quaternion::ZAxis() const
{
    const float tx = x + x, ty = y + y, tz = z + z;
    const float twx = tx * w, twy = ty * w;
    const float txx = tx * x, txz = tz * x;
    const float tyy = ty * y, tyz = tz * y;
    return Vector3(txz + twy, tyz - twx, 1.0f - (txx + tyy));
}

bool Quaternion::FromDirection(const Vector3& direction, const Vector3& up)
{
    Matrix3 frame;
    if (!Matrix4::FrameFromDirection(direction, up, frame))
        return false;
    FromRotationMatrix(frame);
    return true;
}

float Quaternion::AngleAboutX(bool reproject) const
{
    if (reproject)
        return std::atan2(2.0f * w * x + 2.0f * y * z, 1.0f - (2.0f * x * x + 2.0f * z * z));
    return std::atan2(2.0f * w * x + 2.0f * y * z, w * w - x * x - y * y + z * z);
}

float Quaternion::AngleAboutY(bool reproject) const
{
    if (reproject)
        return std::atan2(2.0f * w * y + 2.0f * x * z, 1.0f - (2.0f * y * y + 2.0f * x * x));
    return SafeAsin(-2.0f * (x * z - w * y));
}

float Quaternion::AngleAboutZ(bool reproject) const
{
    if (reproject)
        return std::atan2(2.0f * w * z + 2.0f * x * y, 1.0f - (2.0f * y * y + 2.0f * z * z));
    return std::atan2(2.0f * w * z + 2.0f * x * y, w * w + x * x - y * y - z * z);
}

bool Quaternion::EqualsWithin(const Quaternion& other, float tolerance) const
{
    const float angle = SafeAcos(Dot(other));
    return std::fabs(angle) <= tolerance || FloatEquals(angle, PI, tolerance);
}

Quaternion Quaternion::Slerp(float t, const Quaternion& p, const Quaternion& q, bool shortestPath)
{
    float c = Dot(p, q);
    Quaternion target = q;
    if (c < 0.0f && shortestPath)
    {
        c = -c;
        target = -q;
    }
    if (std::fabs(c) < 0.999f)
    {
        const float s = std::sqrt(1.0f - c * c);
        const float angle = std::atan2(s, c);
        const float invSin = 1.0f / s;
        const float coeff0 = std::sin((1.0f - t) * angle) * invSin;
        const float coeff1 = std::sin(t * angle) * invSin;
        return p * coeff0 + target * coeff1;
    }
    // Nearly the same rotation: the sine ratio is ill-conditioned, blend linearly.
    Quaternion result = p * (1.0f - t) + target * t;
    result.Normalise();
    return result;
}

Quaternion Quaternion::SlerpWithSpins(float t, const Quaternion& p, const Quaternion& q, int spins)
{
    const float angle = SafeAcos(Dot(p, q));
    if (std::fabs(angle) < 0.001f)
        return p;
    const float s = std::sin(angle);
    const float phase = PI * static_cast<float>(spins) * t;
    const float invSin = 1.0f / s;
    const float coeff0 = std::sin((1.0f - t) * angle - phase) * invSin;
    const float coeff1 = std::sin(t * angle + phase) * invSin;
    return p * coeff0 + q * coeff1;
}

Quaternion Quaternion::Nlerp(float t, const Quaternion& p, const Quaternion& q, bool shortestPath)
{
    Quaternion result;
    if (Dot(p, q) < 0.0f && shortestPath)
        result = p + (-q - p) * t;
    else
        result = p + (q - p) * t;
    result.Normalise();
    return result;
}

Quaternion Quaternion::Squad(float t, const Quaternion& p, const Quaternion& a, const Quaternion& b,
                             const Quaternion& q, bool shortestPath)
{
    const Quaternion k0 = Slerp(t, p, q, shortestPath);
    const Quaternion k1 = Slerp(t, a, b, false);
    return Slerp(2.0f * t * (1.0f - t), k0, k1, false);
}

void Quaternion::SquadControlPoints(const Quaternion& q0, const Quaternion& q1, const Quaternion& q2, Quaternion& a,
                                    Quaternion& b)
{
    const Quaternion arg = ((q0.UnitInverse() * q1).Log() - (q1.UnitInverse() * q2).Log()) * 0.25f;
    a = q1 * arg.Exp();
    b = q1 * (-arg).Exp();
}

} // namespace kv
