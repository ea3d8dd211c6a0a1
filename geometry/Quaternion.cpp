#include "geometry/Quaternion.h"

#include <algorithm>
#include <cmath>

#include "geometry/Matrix4.h"
#include "geometry/ScalarMath.h"
#include "geometry/Simd.h"

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
    // With t = 2q: the diagonal is 1 - (tyy + tzz), 1 - (txx + tzz), 1 - (txx + tyy); above
    // it stand txy - twz, txz + twy, tyz - twx, below it the same products with the other
    // sign, where txy = ty * x, twx = tx * w and so on.
#if KV_GEOMETRY_SSE2
    const __m128 q = _mm_loadu_ps(&w);       // w x y z
    const __m128 t = _mm_add_ps(q, q);       // tw tx ty tz
    const __m128 squares = _mm_mul_ps(t, q); // . txx tyy tzz
    const __m128 cross = _mm_mul_ps(_mm_shuffle_ps(t, t, _MM_SHUFFLE(0, 3, 3, 2)),
                                    _mm_shuffle_ps(q, q, _MM_SHUFFLE(0, 1, 2, 1))); // txy tyz txz .
    const __m128 turn = _mm_mul_ps(_mm_shuffle_ps(t, t, _MM_SHUFFLE(0, 2, 1, 3)),
                                   _mm_shuffle_ps(q, q, _MM_SHUFFLE(0, 0, 0, 0))); // twz twx twy .
    const __m128 diagonal =
        _mm_sub_ps(_mm_set1_ps(1.0f), _mm_add_ps(_mm_shuffle_ps(squares, squares, _MM_SHUFFLE(0, 1, 1, 2)),
                                                 _mm_shuffle_ps(squares, squares, _MM_SHUFFLE(0, 2, 3, 3))));
    const __m128 minus = _mm_sub_ps(cross, turn);                              // m01 m12 m20 .
    const __m128 plus = _mm_add_ps(cross, turn);                               // m10 m21 m02 .
    const __m128 mixed = _mm_unpacklo_ps(diagonal, minus);                     // m00 m01 m11 m12
    const __m128 lower = _mm_shuffle_ps(minus, plus, _MM_SHUFFLE(1, 1, 2, 2)); // m20 m20 m21 m21
    // The nine elements lie in a row in memory: four, four and one.
    _mm_storeu_ps(&m.m[0][0], _mm_shuffle_ps(mixed, plus, _MM_SHUFFLE(0, 2, 1, 0)));  // m00 m01 m02 m10
    _mm_storeu_ps(&m.m[1][1], _mm_shuffle_ps(mixed, lower, _MM_SHUFFLE(2, 0, 3, 2))); // m11 m12 m20 m21
    _mm_store_ss(&m.m[2][2], _mm_shuffle_ps(diagonal, diagonal, _MM_SHUFFLE(2, 2, 2, 2)));
#else
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
#endif
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

namespace
{

// Slerp's angle and its two sines, worked out in double precision without calls into the
// maths library. For the arguments slerp gives them, the series below are within 1e-9 of
// the true values, so the floats they round to are the library's (or one unit in the last
// place away). Their terms are summed in pairs (Estrin's scheme), so that most products do
// not wait for one another: what limits a slerp is the length of its chain of dependent
// operations more than their number.

constexpr double kPiD = 3.141592653589793;
constexpr double kHalfPiD = 1.5707963267948966;
constexpr double kEighthPiD = 0.39269908169872414;
constexpr double kTanPi16 = 0.198912367379658;
constexpr double kTan3Pi16 = 0.6681786379192989;
constexpr double kTanEighths[3] = {0.0, 0.41421356237309503, 1.0}; // tan(k pi/8)

// atan2(s, c) for s > 0. No branch depends on the values: a mispredicted one would cost
// more than the series.
double HalfTurnAngle(double s, double c)
{
    const double ac = std::fabs(c);
    const double big = std::max(s, ac), small = std::min(s, ac);
    // atan(small / big), at most pi/4, is k pi/8 + atan(r) with |r| <= tan(pi/16), where
    // atan's series has fallen below 1e-10 by its sixth term.
    const int k = (small > kTanPi16 * big) + (small > kTan3Pi16 * big);
    const double tk = kTanEighths[k];
    const double r = (small - big * tk) / (big + small * tk);
    const double z = r * r, z2 = z * z, z4 = z2 * z2;
    const double series =
        (1.0 + z * (-1.0 / 3.0)) + z2 * (1.0 / 5.0 + z * (-1.0 / 7.0)) + z4 * (1.0 / 9.0 + z * (-1.0 / 11.0));
    const double phi = k * kEighthPiD + r * series;
    // phi is measured from the c axis when c is the larger, else from the s axis.
    static constexpr double kBase[4] = {0.0, kPiD, kHalfPiD, kHalfPiD};
    static constexpr double kTurn[4] = {1.0, -1.0, -1.0, 1.0};
    const int octant = (s > ac) * 2 + (c < 0.0);
    return kBase[octant] + kTurn[octant] * phi;
}

// The sine's Taylor series to a^13, within 7e-10 of the sine on [-pi/2, pi/2].
constexpr double kSin3 = -0.16666666666666666, kSin5 = 0.008333333333333333, kSin7 = -0.0001984126984126984,
                 kSin9 = 2.7557319223985893e-06, kSin11 = -2.505210838544172e-08, kSin13 = 1.6059043836821613e-10;

// Arguments beyond this are left to the library: the fold below covers up to 3 pi/2.
constexpr float kSeriesLimit = 4.5f;

// sin(a0) and sin(a1) for |a| <= kSeriesLimit: an angle beyond pi/2 is folded back by
// sin(a) = sin(±pi - a). Both roads do the same operations, lane by lane.
void SinePair(float a0, float a1, float& s0, float& s1)
{
#if KV_GEOMETRY_SSE2
    // Each constant twice over, so that one aligned load fills both lanes.
    enum
    {
        kPi,
        kHalfPi,
        kSign,
        kOne,
        kC3,
        kC5,
        kC7,
        kC9,
        kC11,
        kC13,
        kConstants
    };
    alignas(16) static constexpr double lanes[kConstants][2] = {
        {kPiD, kPiD},   {kHalfPiD, kHalfPiD}, {-0.0, -0.0},   {1.0, 1.0},       {kSin3, kSin3},
        {kSin5, kSin5}, {kSin7, kSin7},       {kSin9, kSin9}, {kSin11, kSin11}, {kSin13, kSin13}};
    auto both = [](int constant) { return _mm_load_pd(lanes[constant]); };
    const __m128d a = _mm_cvtps_pd(_mm_unpacklo_ps(_mm_set_ss(a0), _mm_set_ss(a1)));
    const __m128d signBit = both(kSign);
    const __m128d far = _mm_cmpgt_pd(_mm_andnot_pd(signBit, a), both(kHalfPi));
    const __m128d mirrored = _mm_sub_pd(_mm_or_pd(_mm_and_pd(signBit, a), both(kPi)), a);
    const __m128d x = _mm_or_pd(_mm_and_pd(far, mirrored), _mm_andnot_pd(far, a));
    const __m128d z = _mm_mul_pd(x, x);
    const __m128d z2 = _mm_mul_pd(z, z);
    const __m128d z4 = _mm_mul_pd(z2, z2);
    auto pair = [&](int c0, int c1) { return _mm_add_pd(both(c0), _mm_mul_pd(z, both(c1))); };
    const __m128d high = _mm_add_pd(pair(kC9, kC11), _mm_mul_pd(z2, both(kC13)));
    const __m128d series =
        _mm_add_pd(_mm_add_pd(pair(kOne, kC3), _mm_mul_pd(z2, pair(kC5, kC7))), _mm_mul_pd(z4, high));
    const __m128 sines = _mm_cvtpd_ps(_mm_mul_pd(x, series));
    s0 = _mm_cvtss_f32(sines);
    s1 = _mm_cvtss_f32(_mm_shuffle_ps(sines, sines, _MM_SHUFFLE(1, 1, 1, 1)));
#else
    auto sine = [](double a) {
        const double x = std::fabs(a) > kHalfPiD ? std::copysign(kPiD, a) - a : a;
        const double z = x * x, z2 = z * z, z4 = z2 * z2;
        const double high = (kSin9 + z * kSin11) + z2 * kSin13;
        const double series = ((1.0 + z * kSin3) + z2 * (kSin5 + z * kSin7)) + z4 * high;
        return static_cast<float>(x * series);
    };
    s0 = sine(a0);
    s1 = sine(a1);
#endif
}

} // namespace

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
        const float angle = static_cast<float>(HalfTurnAngle(s, c));
        const float invSin = 1.0f / s;
        const float a0 = (1.0f - t) * angle, a1 = t * angle;
        float sin0, sin1;
        if (std::fabs(a0) <= kSeriesLimit && std::fabs(a1) <= kSeriesLimit)
            SinePair(a0, a1, sin0, sin1);
        else
        {
            // t far outside 0 to 1 (or not a number).
            sin0 = std::sin(a0);
            sin1 = std::sin(a1);
        }
        return p * (sin0 * invSin) + target * (sin1 * invSin);
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
