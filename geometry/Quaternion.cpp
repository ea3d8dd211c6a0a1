#include "geometry/Quaternion.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

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

// Slerp's angle and sines are worked out in double precision without calls into the maths
// library, and rounded to float once, in the two weights. What limits a slerp is the length
// of its chain of dependent operations more than their number, so the series are short
// (near-minimax fits, Chebyshev on their intervals, good to 1e-8 of a sine and 4e-10 of
// an angle, far below a float's step), their terms are summed in pairs (Estrin's scheme),
// choices are made by masks rather than branches on the 64-bit road, and the angle's fixed
// parts are added in one step. Both roads do the same operations and give the same bits.

constexpr double kPiD = 3.141592653589793;
constexpr double kHalfPiD = 1.5707963267948966;
constexpr double kEighthPiD = 0.39269908169872414;
constexpr double kTanPi16 = 0.198912367379658;
constexpr double kTan3Pi16 = 0.6681786379192989;
constexpr double kTanPi8 = 0.41421356237309503;

// atan(r) / r as a cubic in z = r^2, for |r| <= tan(pi/16).
double AtanSeries(double z)
{
    const double z2 = z * z;
    return (0.9999999980042783 + z * -0.33333171761907915) + z2 * (0.19979470782433997 + z * -0.13444111451982574);
}

// sin(x) / x as a quartic in z = x^2, for |x| <= pi/2.
constexpr double kSin0 = 0.999999995698809, kSin1 = -0.16666657947846011, kSin2 = 0.008333050170671773,
                 kSin3 = -0.00019809017408678003, kSin4 = 2.605107635334788e-06;
// Sine arguments beyond this are left to the library: the fold below covers up to 3 pi/2.
constexpr double kSeriesLimit = 4.5;

// atan2(s, c) for s > 0. With big and small the larger and smaller of s and |c|, the angle
// from the nearer axis is atan(small / big) = k pi/8 + atan(r), where r = (small - big tk) /
// (big + small tk), tk = tan(k pi/8) and k is chosen so that |r| <= tan(pi/16). From the c
// axis (c the larger) the angle is that or pi minus it, from the s axis pi/2 -+ it.
double HalfTurnAngle(double s, double c)
{
#if KV_GEOMETRY_SSE2
    const __m128d signBit = _mm_set_sd(-0.0);
    const __m128d sc = _mm_unpacklo_pd(_mm_set_sd(s), _mm_set_sd(c));
    const __m128d a = _mm_andnot_pd(_mm_unpacklo_pd(signBit, signBit), sc); // s |c|
    const __m128d aSwapped = _mm_shuffle_pd(a, a, 1);                       // |c| s
    const __m128d big = _mm_max_pd(a, aSwapped), small = _mm_min_pd(a, aSwapped);
    // The three candidates for (numerator, denominator): k = 0, 1, 2.
    const __m128d p0 = _mm_unpacklo_pd(small, big);
    const __m128d turned = _mm_unpacklo_pd(_mm_xor_pd(big, signBit), small); // -big small
    const __m128d p1 = _mm_add_pd(p0, _mm_mul_pd(turned, _mm_set1_pd(kTanPi8)));
    const __m128d p2 = _mm_add_pd(p0, turned);
    const __m128d k = _mm_cmpgt_pd(small, _mm_mul_pd(big, _mm_set_pd(kTan3Pi16, kTanPi16))); // k >= 1, k >= 2
    const __m128d k1 = _mm_unpacklo_pd(k, k), k2 = _mm_unpackhi_pd(k, k);
    const __m128d p01 = _mm_or_pd(_mm_and_pd(k1, p1), _mm_andnot_pd(k1, p0));
    const __m128d pk = _mm_or_pd(_mm_and_pd(k2, p2), _mm_andnot_pd(k2, p01));
    const double r = _mm_cvtsd_f64(_mm_div_sd(pk, _mm_unpackhi_pd(pk, pk)));
    const __m128d offsets = _mm_and_pd(k, _mm_set1_pd(kEighthPiD));
    const __m128d offset = _mm_add_sd(offsets, _mm_unpackhi_pd(offsets, offsets));    // k pi/8
    const __m128d steep = _mm_cmpgt_sd(a, aSwapped);                                  // s > |c|
    const __m128d negative = _mm_unpackhi_pd(_mm_cmplt_pd(sc, _mm_setzero_pd()), sc); // c < 0
    const __m128d turnSign = _mm_and_pd(_mm_xor_pd(steep, negative), signBit);
    const __m128d base = _mm_or_pd(_mm_and_pd(steep, _mm_set_sd(kHalfPiD)),
                                   _mm_andnot_pd(steep, _mm_and_pd(negative, _mm_set_sd(kPiD))));
    const double fixed = _mm_cvtsd_f64(_mm_add_sd(base, _mm_xor_pd(offset, turnSign)));
    const double turnedR = _mm_cvtsd_f64(_mm_xor_pd(_mm_set_sd(r), turnSign));
#else
    const double ac = std::fabs(c);
    const double big = std::max(s, ac), small = std::min(s, ac);
    const bool k1 = small > kTanPi16 * big, k2 = small > kTan3Pi16 * big;
    double numerator = small, denominator = big;
    if (k2)
    {
        numerator = small + -big;
        denominator = big + small;
    }
    else if (k1)
    {
        numerator = small + -big * kTanPi8;
        denominator = big + small * kTanPi8;
    }
    const double r = numerator / denominator;
    const bool steep = s > ac, negative = c < 0.0;
    const double base = steep ? kHalfPiD : (negative ? kPiD : 0.0);
    const double turn = steep != negative ? -1.0 : 1.0;
    const double fixed = base + turn * ((k1 ? kEighthPiD : 0.0) + (k2 ? kEighthPiD : 0.0));
    const double turnedR = turn * r;
#endif
    return fixed + turnedR * AtanSeries(r * r);
}

// The weights sin((1 - t) angle) / s and sin(t angle) / s, where |t angle| and
// |(1 - t) angle| are at most kSeriesLimit; an angle beyond pi/2 is folded back by
// sin(a) = sin(+-pi - a).
void SineWeights(double angle, double invS, float t, float& w0, float& w1)
{
#if KV_GEOMETRY_SSE2
    const double td = t;
    const __m128d a = _mm_mul_pd(_mm_set_pd(td, 1.0 - td), _mm_set1_pd(angle));
    const __m128d signBit = _mm_set1_pd(-0.0);
    const __m128d far = _mm_cmpgt_pd(_mm_andnot_pd(signBit, a), _mm_set1_pd(kHalfPiD));
    const __m128d mirrored = _mm_sub_pd(_mm_or_pd(_mm_and_pd(signBit, a), _mm_set1_pd(kPiD)), a);
    const __m128d x = _mm_or_pd(_mm_and_pd(far, mirrored), _mm_andnot_pd(far, a));
    const __m128d z = _mm_mul_pd(x, x);
    const __m128d z2 = _mm_mul_pd(z, z);
    auto pair = [z](double c0, double c1) { return _mm_add_pd(_mm_set1_pd(c0), _mm_mul_pd(z, _mm_set1_pd(c1))); };
    const __m128d high = _mm_add_pd(pair(kSin2, kSin3), _mm_mul_pd(z2, _mm_set1_pd(kSin4)));
    const __m128d series = _mm_add_pd(pair(kSin0, kSin1), _mm_mul_pd(z2, high));
    const __m128 weights = _mm_cvtpd_ps(_mm_mul_pd(_mm_mul_pd(x, series), _mm_set1_pd(invS)));
    w0 = _mm_cvtss_f32(weights);
    w1 = _mm_cvtss_f32(_mm_shuffle_ps(weights, weights, _MM_SHUFFLE(1, 1, 1, 1)));
#else
    auto weight = [invS](double a) {
        const double x = std::fabs(a) > kHalfPiD ? std::copysign(kPiD, a) - a : a;
        const double z = x * x, z2 = z * z;
        const double series = (kSin0 + z * kSin1) + z2 * ((kSin2 + z * kSin3) + z2 * kSin4);
        return static_cast<float>(x * series * invS);
    };
    const double td = t;
    w0 = weight((1.0 - td) * angle);
    w1 = weight(td * angle);
#endif
}

} // namespace

Quaternion Quaternion::Slerp(float t, const Quaternion& p, const Quaternion& q, bool shortestPath)
{
    const float dot = Dot(p, q);
    // The shorter way round goes to -q, with c = -dot. Which way is taken changes from call
    // to call, so the 64-bit road turns the signs by mask rather than by a branch. The sign
    // plays no part in s or in the choice of road, which go on meanwhile.
    float c = dot;
#if KV_GEOMETRY_SSE2
    const __m128 flip = _mm_and_ps(_mm_cmplt_ss(_mm_set_ss(dot), _mm_setzero_ps()),
                                   _mm_castsi128_ps(_mm_cvtsi32_si128(shortestPath ? INT32_MIN : 0)));
    c = _mm_cvtss_f32(_mm_xor_ps(_mm_set_ss(dot), flip));
    const __m128 from = _mm_loadu_ps(&p.w);
    const __m128 to = _mm_xor_ps(_mm_loadu_ps(&q.w), _mm_shuffle_ps(flip, flip, _MM_SHUFFLE(0, 0, 0, 0)));
#else
    Quaternion target = q;
    if (dot < 0.0f && shortestPath)
    {
        c = -dot;
        target = -q;
    }
#endif
    const bool curved = std::fabs(dot) < 0.999f;
    float w0, w1;
    if (curved)
    {
        const float s = std::sqrt(1.0f - dot * dot);
        const double angle = HalfTurnAngle(s, c);
        const double invS = 1.0 / s;
        const double td = t;
        if (std::fabs((1.0 - td) * angle) <= kSeriesLimit && std::fabs(td * angle) <= kSeriesLimit)
            SineWeights(angle, invS, t, w0, w1);
        else
        {
            // t far outside 0 to 1 (or not a number).
            w0 = static_cast<float>(std::sin((1.0 - td) * angle) * invS);
            w1 = static_cast<float>(std::sin(td * angle) * invS);
        }
    }
    else
    {
        // Nearly the same rotation: the sine ratio is ill-conditioned, blend linearly.
        w0 = 1.0f - t;
        w1 = t;
    }
#if KV_GEOMETRY_SSE2
    Quaternion result;
    _mm_storeu_ps(&result.w, _mm_add_ps(_mm_mul_ps(from, _mm_set1_ps(w0)), _mm_mul_ps(to, _mm_set1_ps(w1))));
#else
    Quaternion result = p * w0 + target * w1;
#endif
    if (!curved)
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
