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

// Slerp's usual road makes no calls into the maths library, and its one division (1/s)
// runs beside the angle's series rather than after it: what limits a run of slerps is
// the number of instructions and the length of each call's chain of dependent operations.
// The angle comes from its cosine alone, psi = acos(|c|) = 2 asin(sqrt((1 - |c|) / 2)), so
// the one square root that gives s (as sqrt((1 - |c|)(1 + |c|)), which keeps its precision
// where the cosine is near 1) gives the half-angle's sine beside it, while the series runs
// on 1 - |c|. The angle and the sines are worked out in double precision, two lanes at a
// time, and rounded to float once, in the two weights. The series are near-minimax fits:
// 2e-9 relative error for the angle, 6e-9 for a sine. Both roads do the same operations in
// the same order and give the same bits.

// acos(1 - m) / sqrt(m / 2) in powers of m, for m in [0, 1].
constexpr double kAcos0 = 2.000000004211318, kAcos1 = 0.16666601610708934, kAcos2 = 0.037516483604420336,
                 kAcos3 = 0.011001023915045092, kAcos4 = 0.00456375329645826, kAcos5 = -0.0006261912388220765,
                 kAcos6 = 0.0035796401297101886, kAcos7 = -0.0022621924378873597, kAcos8 = 0.001002926814253085;
// (sin(x) / x - 1) / x^2 in powers of z = x^2, for |x| <= pi/2.
constexpr double kSin1 = -0.16666659550427748, kSin2 = 0.008333066246082352, kSin3 = -0.0001980960290196475,
                 kSin4 = 2.6057806380393773e-06;
constexpr double kPiD = 3.141592653589793;

#if KV_GEOMETRY_SSE2
// The compiler builds a constant whose two lanes are alike from one double and a shuffle;
// read through a pointer it cannot follow, each is one load, folded into its operation.
alignas(16) const double kSlerpPairs[10] = {kPiD, kPiD, kSin1, kSin1, kSin2, kSin2, kSin3, kSin3, kSin4, kSin4};

const double* Opaque(const double* table)
{
#if defined(__GNUC__)
    asm("" : "+r"(table));
#endif
    return table;
}
#endif

#if defined(__GNUC__)
#define KV_SLERP_ASIDE __attribute__((noinline))
#else
#define KV_SLERP_ASIDE
#endif

// What the usual road leaves: nearly the same rotation (or a NaN), where the sine ratio
// is ill-conditioned and the ends are blended linearly, and t outside [-1/2, 3/2] (or not
// a number), where a sine's argument can pass the series' range. Out of line, so that the
// usual road keeps its registers.
KV_SLERP_ASIDE Quaternion SlerpAside(float t, const Quaternion& p, const Quaternion& q, bool shortestPath)
{
    const float dot = Quaternion::Dot(p, q);
    const bool flip = dot < 0.0f && shortestPath;
    const Quaternion target = flip ? -q : q;
    if (std::fabs(dot) < 0.999f)
    {
        const double c = flip ? -dot : dot;
        const double s = std::sqrt(1.0 - c * c);
        const double angle = std::atan2(s, c);
        const double td = t;
        const float w0 = static_cast<float>(std::sin((1.0 - td) * angle) / s);
        const float w1 = static_cast<float>(std::sin(td * angle) / s);
        return p * w0 + target * w1;
    }
    Quaternion result = p * (1.0f - t) + target * t;
    result.Normalise();
    return result;
}

} // namespace

Quaternion Quaternion::Slerp(float t, const Quaternion& p, const Quaternion& q, bool shortestPath)
{
    // With c = Dot(p, q), turned to -c (and q to -q) for the shorter way when c < 0, the
    // angle is theta = psi for c >= 0 and pi - psi for c < 0. A sine's argument u theta,
    // u = 1 - t or t, is K + u' psi with (K, u') = (0, u) or (u pi, -u); for t in
    // [-1/2, 3/2] one of that and pi minus it, (pi - 0) - u' psi or (pi - u pi) - u' psi
    // (with pi - u pi worked out as (1 - u) pi), is within pi/2 of 0: the smaller of the
    // two, whose sine is the same. Which way is taken and which side of a right angle theta
    // lies change from call to call, so they are masks, not branches.
#if KV_GEOMETRY_SSE2
    const __m128 from = _mm_loadu_ps(&p.w), to = _mm_loadu_ps(&q.w);
    const __m128 products = _mm_mul_ps(from, to);
    __m128 dot = _mm_add_ss(products, _mm_shuffle_ps(products, products, _MM_SHUFFLE(1, 1, 1, 1)));
    dot = _mm_add_ss(dot, _mm_movehl_ps(products, products));
    dot = _mm_add_ss(dot, _mm_shuffle_ps(products, products, _MM_SHUFFLE(3, 3, 3, 3)));
    if (!(std::fabs(_mm_cvtss_f32(dot)) < 0.999f && std::fabs(t - 0.5f) <= 1.0f))
        return SlerpAside(t, p, q, shortestPath);
    // The sign of Dot(p, q) turns q when the shorter way is asked for, and is the sign of c
    // otherwise.
    const __m128 dotSign = _mm_and_ps(dot, _mm_set_ss(-0.0f));
    const __m128 flip = _mm_and_ps(dotSign, _mm_castsi128_ps(_mm_cvtsi32_si128(shortestPath ? INT32_MIN : 0)));
    const __m128 target = _mm_xor_ps(to, _mm_shuffle_ps(flip, flip, _MM_SHUFFLE(0, 0, 0, 0)));
    const __m128 cSign = _mm_xor_ps(dotSign, flip);
    const __m128i obtuseBits =
        _mm_srai_epi32(_mm_castps_si128(_mm_shuffle_ps(cSign, cSign, _MM_SHUFFLE(0, 0, 0, 0))), 31);
    const __m128d obtuse = _mm_castsi128_pd(obtuseBits);
    const __m128d sigma = _mm_castsi128_pd(_mm_slli_epi64(obtuseBits, 63));

    // s^2 = (1 - |c|)(1 + |c|) and (1 - |c|) / 2 in lanes 0 and 1, then their roots.
    const __m128d a = _mm_cvtss_sd(_mm_setzero_pd(), _mm_andnot_ps(_mm_set_ss(-0.0f), dot));
    const __m128d m1 = _mm_sub_sd(_mm_set_sd(1.0), a);
    const __m128d m = _mm_unpacklo_pd(m1, m1);
    const __m128d roots = _mm_sqrt_pd(_mm_mul_pd(_mm_add_pd(_mm_setr_pd(1.0, 0.5), a), m));
    const __m128d invS1 = _mm_div_pd(_mm_setr_pd(1.0, 0.0), roots);
    const __m128d invS = _mm_unpacklo_pd(invS1, invS1);
    // The angle's series by pairs: k0 + k1 m and k4 + k5 m in lane 1, k2 + k3 m and k6 + k7 m
    // in lane 0, then the sums of four terms, then all nine in lane 1.
    const __m128d m2 = _mm_mul_pd(m, m), m4 = _mm_mul_pd(m2, m2);
    auto pair = [](__m128d x, __m128d c0, __m128d c1) { return _mm_add_pd(c0, _mm_mul_pd(x, c1)); };
    const __m128d quads = _mm_add_pd(pair(m, _mm_setr_pd(kAcos4, kAcos0), _mm_setr_pd(kAcos5, kAcos1)),
                                     _mm_mul_pd(m2, pair(m, _mm_setr_pd(kAcos6, kAcos2), _mm_setr_pd(kAcos7, kAcos3))));
    const __m128d high = _mm_add_pd(quads, _mm_mul_pd(m4, _mm_setr_pd(kAcos8, 0.0)));
    const __m128d psi1 = _mm_mul_pd(roots, _mm_add_pd(quads, _mm_mul_pd(m4, _mm_unpacklo_pd(high, high))));
    const __m128d psi = _mm_unpackhi_pd(psi1, psi1);

    // Lanes 0 and 1 for p's and q's weights: u = 1 - t and t, (1 - u) pi swapped from u pi.
    const __m128d u = _mm_add_pd(_mm_setr_pd(1.0, 0.0), _mm_xor_pd(_mm_set1_pd(t), _mm_setr_pd(-0.0, 0.0)));
    const double* pairs = Opaque(kSlerpPairs);
    const __m128d halfTurn = _mm_load_pd(pairs);
    const __m128d uPi = _mm_mul_pd(u, halfTurn);
    const __m128d turned = _mm_mul_pd(_mm_xor_pd(u, sigma), psi);
    const __m128d direct = _mm_add_pd(_mm_and_pd(obtuse, uPi), turned);
    const __m128d mirrorK = _mm_xor_pd(halfTurn, _mm_and_pd(obtuse, _mm_xor_pd(_mm_shuffle_pd(uPi, uPi, 1), halfTurn)));
    const __m128d x = _mm_min_pd(direct, _mm_sub_pd(mirrorK, turned));

    const __m128d z = _mm_mul_pd(x, x), z2 = _mm_mul_pd(z, z);
    const __m128d xs = _mm_mul_pd(x, invS);
    const __m128d sines = _mm_add_pd(pair(z, _mm_load_pd(pairs + 2), _mm_load_pd(pairs + 4)),
                                     _mm_mul_pd(z2, pair(z, _mm_load_pd(pairs + 6), _mm_load_pd(pairs + 8))));
    const __m128 weights = _mm_cvtpd_ps(_mm_add_pd(xs, _mm_mul_pd(_mm_mul_pd(xs, z), sines)));
    Quaternion result;
    _mm_storeu_ps(&result.w, _mm_add_ps(_mm_mul_ps(from, _mm_shuffle_ps(weights, weights, _MM_SHUFFLE(0, 0, 0, 0))),
                                        _mm_mul_ps(target, _mm_shuffle_ps(weights, weights, _MM_SHUFFLE(1, 1, 1, 1)))));
    return result;
#else
    const float dot = Dot(p, q);
    if (!(std::fabs(dot) < 0.999f && std::fabs(t - 0.5f) <= 1.0f))
        return SlerpAside(t, p, q, shortestPath);
    const bool flip = dot < 0.0f && shortestPath;
    const Quaternion target = flip ? -q : q;
    const bool obtuse = std::signbit(flip ? -dot : dot);
    const double a = std::fabs(dot);
    const double m = 1.0 - a;
    const double s = std::sqrt((1.0 + a) * m);
    const double root = std::sqrt(0.5 * m);
    const double invS = 1.0 / s;
    const double m2 = m * m, m4 = m2 * m2;
    const double low = (kAcos0 + m * kAcos1) + m2 * (kAcos2 + m * kAcos3);
    const double high = (kAcos4 + m * kAcos5) + m2 * (kAcos6 + m * kAcos7);
    const double psi = root * (low + m4 * (high + m4 * kAcos8));
    auto weight = [=](double u, double uPi, double mirrorPi) {
        const double turned = (obtuse ? -u : u) * psi;
        const double direct = (obtuse ? uPi : 0.0) + turned;
        const double mirrored = (obtuse ? mirrorPi : kPiD) - turned;
        const double x = direct < mirrored ? direct : mirrored;
        const double z = x * x, z2 = z * z;
        const double xs = x * invS;
        const double series = (kSin1 + z * kSin2) + z2 * (kSin3 + z * kSin4);
        return static_cast<float>(xs + (xs * z) * series);
    };
    const double u0 = 1.0 + -static_cast<double>(t), u1 = 0.0 + t;
    const float w0 = weight(u0, u0 * kPiD, u1 * kPiD);
    const float w1 = weight(u1, u1 * kPiD, u0 * kPiD);
    return p * w0 + target * w1;
#endif
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
