#include "geometry/Intersection.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "geometry/ScalarMath.h"
#include "geometry/Simd.h"

namespace kv
{

namespace
{

constexpr float kFloatEpsilon = 1.1920929e-7f;
constexpr float kFloatMax = 3.4028235e38f;
constexpr float kInfinity = std::numeric_limits<float>::infinity();

#if KV_GEOMETRY_SSE2
static_assert(sizeof(RayHit) == 8 && offsetof(RayHit, distance) == 4, "a RayHit is returned as 64 bits");

// A hit at the distance, built as the 64 bits a RayHit is returned in: the flag in the low
// byte, the distance in the high half. Built field by field, GCC sends every return of the
// function, the constant misses too, through one block of half a dozen instructions.
RayHit HitAt(float distance)
{
    std::uint32_t bits;
    std::memcpy(&bits, &distance, sizeof bits);
    const std::uint64_t packed = static_cast<std::uint64_t>(bits) << 32 | 1u;
    RayHit hit;
    std::memcpy(static_cast<void*>(&hit), &packed, sizeof hit);
    return hit;
}

// Lane i of the result is lane Ii of v: one pshufd, which writes a new register where
// shufps would need a copy of v first.
template <int I0, int I1, int I2, int I3>
__m128 Lanes(__m128 v)
{
    return _mm_castsi128_ps(_mm_shuffle_epi32(_mm_castps_si128(v), _MM_SHUFFLE(I3, I2, I1, I0)));
}
#endif

} // namespace

bool IntersectRayOrientedBox(const Ray& ray, const Vector3& centre, const Vector3& axis0, const Vector3& axis1,
                             const Vector3& axis2, float half0, float half1, float half2, float& t)
{
    float tMin = 0.0f;
    float tMax = kFloatMax;
    bool inside = true;
    const Vector3 diff = centre - ray.origin;
    const Vector3* axes[3] = {&axis0, &axis1, &axis2};
    const float halves[3] = {half0, half1, half2};

    for (int i = 0; i < 3; ++i)
    {
        const Vector3& a = *axes[i];
        const float h = halves[i];
        const float e = a.Dot(ray.direction);
        // How far the origin lies inside the low and the high face of this slab.
        const float low = -a.Dot(diff - a * h);
        const float high = a.Dot(diff + a * h);
        if (std::fabs(e) < 1e-5f)
        {
            // Parallel to the slab: it either runs within it or never meets it.
            if (low < 0.0f || high < 0.0f)
                return false;
            continue;
        }
        if (low < 0.0f || high < 0.0f)
            inside = false;
        const float r = 1.0f / e;
        float t0 = r * high;
        float t1 = -(r * low);
        if (t0 > t1)
            std::swap(t0, t1);
        if (t0 >= tMin)
            tMin = t0;
        if (t1 <= tMax)
            tMax = t1;
        if (tMin > tMax)
            return false;
    }
    t = inside ? tMax : tMin;
    return true;
}

// Of each axis's two faces at most one can face the ray: the minimum face needs a positive
// direction, the maximum face a negative one. So the six faces come down to one candidate
// an axis, tested in the order x, y, z, where a tie keeps the earlier.
RayHit IntersectRayBox(const Ray& ray, const BoundingBox& box)
{
    if (box.IsNull())
        return RayHit(false, 0.0f);
    if (box.IsInfinite())
        return RayHit(true, 0.0f);

#if KV_GEOMETRY_SSE2
    // The three axes side by side in the lanes of a vector; lane 3 is not looked at. The
    // loads stay within the ray and the box records.
    const __m128 o = _mm_loadu_ps(&ray.origin.x);                    // ox oy oz dx
    const __m128 d = Lanes<1, 2, 3, 0>(_mm_loadu_ps(&ray.origin.z)); // dx dy dz oz
    const __m128 mn = _mm_loadu_ps(&box.minimum.x);
    const __m128 mx = _mm_loadu_ps(&box.maximum.x);

    // The minimum face faces a positive direction from an origin not above it, the maximum
    // face a negative one from an origin not below it. "Not above" also lets in a coordinate
    // that is not a number, but its t is not a number either and fails the test of the hit
    // point below.
    const __m128 zero = _mm_setzero_ps();
    const __m128 positive = _mm_cmpgt_ps(d, zero);
    const __m128 towards = _mm_or_ps(_mm_andnot_ps(_mm_cmpgt_ps(o, mn), positive),
                                     _mm_andnot_ps(_mm_cmplt_ps(o, mx), _mm_cmplt_ps(d, zero)));
    const int facing = _mm_movemask_ps(towards) & 7;
    // An origin strictly inside is above every minimum and below every maximum, so no face
    // faces it: its test waits here, off the path of the rays that face a face (the
    // expectation keeps that path free of taken branches).
    if (__builtin_expect(!facing, 0))
    {
        const Vector3& p = ray.origin;
        const Vector3& lo = box.minimum;
        const Vector3& hi = box.maximum;
        return RayHit(p.x > lo.x && p.y > lo.y && p.z > lo.z && p.x < hi.x && p.y < hi.y && p.z < hi.z, 0.0f);
    }

    // No t >= 0 test: a face that faces the ray lies at or ahead of the origin along d, so
    // its t is at least 0 (or -0), or not a number, which makes the hit point not a number
    // and fails its test.
    const __m128 face = _mm_or_ps(_mm_and_ps(positive, mn), _mm_andnot_ps(positive, mx));
    const __m128 t = _mm_div_ps(_mm_sub_ps(face, o), d);
    // The hit point through the candidate of axis a must lie within the box on the two
    // other axes, a + 1 and a + 2 (mod 3). The origin, the direction and the box are turned
    // round by one lane and by two, which leaves the division's result where it is: lane a
    // then holds axis a's hit point on axis a + 1 and on axis a + 2, and the answers need
    // no turning back.
    const __m128 hitNext = _mm_add_ps(Lanes<1, 2, 0, 3>(o), _mm_mul_ps(Lanes<1, 2, 0, 3>(d), t));
    const __m128 hitAfter = _mm_add_ps(Lanes<2, 0, 1, 3>(o), _mm_mul_ps(Lanes<2, 0, 1, 3>(d), t));
    const __m128 inNext =
        _mm_and_ps(_mm_cmpge_ps(hitNext, Lanes<1, 2, 0, 3>(mn)), _mm_cmple_ps(hitNext, Lanes<1, 2, 0, 3>(mx)));
    const __m128 inAfter =
        _mm_and_ps(_mm_cmpge_ps(hitAfter, Lanes<2, 0, 1, 3>(mn)), _mm_cmple_ps(hitAfter, Lanes<2, 0, 1, 3>(mx)));
    const __m128 within = _mm_and_ps(inNext, inAfter);
    // Most rays miss most boxes: the miss is the path without a taken branch.
    if (__builtin_expect(!(_mm_movemask_ps(within) & facing), 1))
        return RayHit();
    // The nearest hit; on a tie the earlier axis, as min_ss(a, b) keeps b unless a < b.
    const __m128 hits = _mm_and_ps(towards, within);
    const __m128 candidates = _mm_or_ps(_mm_and_ps(hits, t), _mm_andnot_ps(hits, _mm_set1_ps(kInfinity)));
    const __m128 nearestXY = _mm_min_ss(Lanes<1, 1, 1, 1>(candidates), candidates);
    const __m128 nearest = _mm_min_ss(Lanes<2, 2, 2, 2>(candidates), nearestXY);
    return HitAt(_mm_cvtss_f32(nearest));
#else
    const float o[3] = {ray.origin.x, ray.origin.y, ray.origin.z};
    const float d[3] = {ray.direction.x, ray.direction.y, ray.direction.z};
    const float mn[3] = {box.minimum.x, box.minimum.y, box.minimum.z};
    const float mx[3] = {box.maximum.x, box.maximum.y, box.maximum.z};
    if (o[0] > mn[0] && o[1] > mn[1] && o[2] > mn[2] && o[0] < mx[0] && o[1] < mx[1] && o[2] < mx[2])
        return RayHit(true, 0.0f); // strictly inside

    RayHit result;
    for (int axis = 0; axis < 3; ++axis)
    {
        float face;
        if (d[axis] > 0.0f && o[axis] <= mn[axis])
            face = mn[axis];
        else if (d[axis] < 0.0f && o[axis] >= mx[axis])
            face = mx[axis];
        else
            continue;
        const float t = (face - o[axis]) / d[axis];
        if (!(t >= 0.0f))
            continue;
        // The hit point's two other coordinates must lie in the box, ends included.
        bool within = true;
        for (int k = 0; k < 3; ++k)
        {
            const float h = o[k] + d[k] * t;
            within = within && (k == axis || (h >= mn[k] && h <= mx[k]));
        }
        if (within && (!result.hit || t < result.distance))
        {
            result.hit = true;
            result.distance = t;
        }
    }
    return result;
#endif
}

bool IntersectRayBoxInterval(const Ray& ray, const BoundingBox& box, float* d1, float* d2)
{
    if (box.IsNull())
        return false;
    if (box.IsInfinite())
    {
        if (d1)
            *d1 = 0.0f;
        if (d2)
            *d2 = std::numeric_limits<float>::infinity();
        return true;
    }

    const Vector3& o = ray.origin;
    const Vector3& d = ray.direction;
    const Vector3& mn = box.minimum;
    const Vector3& mx = box.maximum;
    const float ad[3] = {std::fabs(d.x), std::fabs(d.y), std::fabs(d.z)};

    // Clip against the axes in the order of decreasing |direction|: the steepest axis is
    // the one that can always be divided by.
    int largest = 0, middle = 1, smallest = 2;
    if (ad[2] > ad[0])
        std::swap(largest, smallest);
    if (ad[smallest] > ad[middle])
        std::swap(middle, smallest);
    else if (ad[middle] > ad[largest])
        std::swap(middle, largest);

    float start = 0.0f;
    float end = std::numeric_limits<float>::infinity();
    auto clip = [&](int i) {
        float a = (mn[i] - o[i]) / d[i];
        float b = (mx[i] - o[i]) / d[i];
        if (a > b)
            std::swap(a, b);
        if (a > end || b < start)
            return false;
        if (a > start)
            start = a;
        if (b < end)
            end = b;
        return true;
    };
    auto within = [&](int i) { return o[i] >= mn[i] && o[i] <= mx[i]; };

    if (!clip(largest))
        return false;

    bool middleClipped = false;
    if (ad[middle] < kFloatEpsilon)
    {
        if (!within(middle))
            return false;
    }
    else
    {
        if (!clip(middle))
            return false;
        middleClipped = true;
    }
    if (middleClipped && !(ad[smallest] < kFloatEpsilon))
    {
        if (!clip(smallest))
            return false;
    }
    else if (!within(smallest))
    {
        return false;
    }

    if (d1)
        *d1 = start;
    if (d2)
        *d2 = end;
    return true;
}

RayHit IntersectRayScaledOrientedBox(const Ray& ray, const BoundingBox& box, const Matrix4& transform, float scaleX,
                                     float scaleY, float scaleZ)
{
    if (box.IsNull())
        return RayHit(false, 0.0f);
    if (box.IsInfinite())
        return RayHit(true, 0.0f);

    const Vector3 lo = box.minimum * Vector3(scaleX, scaleY, scaleZ);
    const Vector3 hi = box.maximum * Vector3(scaleX, scaleY, scaleZ);
    const Vector3 dir = ray.direction.Normalised();
    const Vector3 delta = transform.GetTranslation() - ray.origin;

    float tMin = 0.0f;
    float tMax = kFloatMax;
    for (int i = 0; i < 3; ++i)
    {
        const Vector3 e(transform.m[0][i], transform.m[1][i], transform.m[2][i]);
        const float f = e.Dot(dir);
        const float s = e.Dot(delta);
        if (std::fabs(f) > 0.001f)
        {
            float t1 = (lo[i] + s) / f;
            float t2 = (hi[i] + s) / f;
            if (t1 > t2)
                std::swap(t1, t2);
            if (t2 < tMax)
                tMax = t2;
            if (t1 > tMin)
                tMin = t1;
            if (tMin > tMax)
                return RayHit(false, 0.0f);
        }
        else if (-s < lo[i] || -s > hi[i])
        {
            // Running along the slab from outside it.
            return RayHit(false, 0.0f);
        }
    }
    return RayHit(true, tMin);
}

RayHit IntersectRayPlane(const Ray& ray, const Plane& plane)
{
    const float denom = plane.normal.Dot(ray.direction);
    if (std::fabs(denom) < kFloatEpsilon)
        return RayHit(false, 0.0f);
    const float t = -(plane.normal.Dot(ray.origin) + plane.d) / denom;
    // A plane behind the origin: the (negative) distance is still reported.
    return RayHit(t >= 0.0f, t);
}

RayHit IntersectRayPlanes(const Ray& ray, const std::vector<Plane>& planes, bool normalIsOutside)
{
    const PlaneSide outside = normalIsOutside ? PLANE_POSITIVE_SIDE : PLANE_NEGATIVE_SIDE;
    bool allInside = true;
    bool exitFound = false;
    float exit = 0.0f;
    RayHit result(false, 0.0f);

    for (const Plane& plane : planes)
    {
        const RayHit hit = IntersectRayPlane(ray, plane);
        if (plane.Side(ray.origin) == outside)
        {
            allInside = false;
            if (!hit.hit)
                return RayHit(false, 0.0f);
            // Entering the volume: the last entry counts.
            result.hit = true;
            if (hit.distance > result.distance)
                result.distance = hit.distance;
        }
        else if (hit.hit)
        {
            // Leaving it: the first exit counts.
            if (!exitFound || hit.distance < exit)
                exit = hit.distance;
            exitFound = true;
        }
    }
    if (allInside)
        return RayHit(true, 0.0f);
    if (exitFound && result.distance > exit)
        result.hit = false;
    return result;
}

RayHit IntersectRayPlanes(const Ray& ray, const Plane* planes, int count, bool normalIsOutside)
{
    std::vector<Plane> list;
    if (planes && count > 0)
        list.assign(planes, planes + count);
    return IntersectRayPlanes(ray, list, normalIsOutside);
}

RayHit IntersectRaySphere(const Ray& ray, const BoundingSphere& sphere, bool discardInside)
{
    const Vector3 oc = ray.origin - sphere.centre;
    const float r = sphere.radius;
    if (discardInside && r * r >= oc.SquaredLength())
        return RayHit(true, 0.0f);

    const float a = ray.direction.Dot(ray.direction);
    const float b = 2.0f * ray.direction.Dot(oc);
    const float c = oc.SquaredLength() - r * r;
    const float disc = b * b - 4.0f * a * c;
    if (disc < 0.0f)
        return RayHit(false, 0.0f);

    const float root = std::sqrt(disc);
    float t = (-b - root) / (2.0f * a);
    if (t < 0.0f)
        t = (-b + root) / (2.0f * a);
    return RayHit(true, t);
}

#if KV_GEOMETRY_SSE2
namespace
{

// A Vector3 in lanes 0 to 2 of a vector, 0 in lane 3, read without going past its 12 bytes.
__m128 Load3(const Vector3& v)
{
    const __m128 xy = _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(&v.x)));
    return _mm_movelh_ps(xy, _mm_load_ss(&v.z));
}

// Lane 3 is not looked at; a value there that differs from the others keeps GCC from
// building the constant by a broadcast (two instructions) instead of loading it.
alignas(16) const float kSignBits[4] = {-0.0f, -0.0f, -0.0f, 0.0f};
alignas(16) const float kTolScale[4] = {-1e-6f, -1e-6f, -1e-6f, 0.0f};

// The test on all three projections at once. A cross product is worked out as
// (A * B.yzx - A.yzx * B), which holds component (i + 2) mod 3 of A x B in lane i, with the
// same products and differences as Vector3::Cross: lane 0 for z, 1 for x, 2 for y. So lane
// i works on the pair of axes left when axis (i + 2) mod 3 is dropped, and u = p x c,
// v = b x p and the area b x c, two-dimensional cross products on that pair, are the lane's
// components of the three-dimensional ones. For the pairs (0, 2) and (1, 0) that is the
// other order of the pair, which turns the signs of u, v and the area alike; the test does
// not change under that, and each lane is brought to a positive area before it. Only the
// lane of the dropped axis counts, but when the lanes agree (everywhere but close to an
// edge) the answer is known without choosing: a miss leaves after a few instructions and
// without a branch on the choice, which random normals mispredict.
template <bool kGivenNormal>
RayHit RayTriangleLanes(const Ray& ray, const Vector3& va, const Vector3& vb, const Vector3& vc,
                        const Vector3* givenNormal, bool positiveSide, bool negativeSide)
{
    const __m128 o = _mm_loadu_ps(&ray.origin.x);               // ox oy oz dx
    const __m128 originDirection = _mm_loadu_ps(&ray.origin.z); // oz dx dy dz
    const __m128 d = Lanes<1, 2, 3, 0>(originDirection);        // dx dy dz oz
    const __m128 a = Load3(va);
    const __m128 eb = _mm_sub_ps(Load3(vb), a), ec = _mm_sub_ps(Load3(vc), a);
    const __m128 ebY = Lanes<1, 2, 0, 3>(eb), ecY = Lanes<1, 2, 0, 3>(ec);
    const __m128 area = _mm_sub_ps(_mm_mul_ps(eb, ecY), _mm_mul_ps(ebY, ec)); // z x y of (b - a) x (c - a)

    // The dot products as Vector3::Dot adds them, x + y first, then z, with both factors in
    // the turned frame. The two are summed side by side, and t = num / denom comes out in
    // every lane.
    const __m128 n = kGivenNormal ? Lanes<2, 0, 1, 3>(Load3(*givenNormal)) : area;
    const __m128 nd = _mm_mul_ps(n, Lanes<3, 1, 2, 0>(originDirection));                               // z x y
    const __m128 na = _mm_mul_ps(n, Lanes<2, 0, 1, 3>(_mm_sub_ps(a, o)));                              // z x y
    const __m128 low = _mm_unpacklo_ps(nd, na);                                                        // z z x x
    const __m128 sums = _mm_add_ps(_mm_add_ps(_mm_movehl_ps(low, low), _mm_unpackhi_ps(nd, na)), low); // denom num
    const __m128 t = _mm_div_ps(Lanes<1, 1, 1, 1>(sums), Lanes<0, 0, 0, 0>(sums));

    // p = o + d t - a, in the usual frame and turned, for the cross products.
    const __m128 p = _mm_sub_ps(_mm_add_ps(o, _mm_mul_ps(d, t)), a);
    const __m128 pY = Lanes<1, 2, 0, 3>(p);
    // A negative area turns the signs of u, v and the area (through the edges' factors,
    // which are ready before t); the margin is then -1e-6 of the area's magnitude.
    const __m128 signBit = _mm_load_ps(kSignBits);
    const __m128 sign = _mm_and_ps(area, signBit);
    const __m128 absArea = _mm_xor_ps(area, sign);
    const __m128 tol = _mm_mul_ps(absArea, _mm_load_ps(kTolScale));
    const __m128 u = _mm_sub_ps(_mm_mul_ps(p, _mm_xor_ps(ecY, sign)), _mm_mul_ps(pY, _mm_xor_ps(ec, sign)));
    // "Not below" lets a u that is not a number through, but then u + v is not a number
    // either and fails the last comparison.
    int lanes = _mm_movemask_ps(_mm_cmpnlt_ps(u, tol)) & 7;
    if (!lanes)
        return RayHit();
    const __m128 v = _mm_sub_ps(_mm_mul_ps(_mm_xor_ps(eb, sign), pY), _mm_mul_ps(_mm_xor_ps(ebY, sign), p));
    lanes &=
        _mm_movemask_ps(_mm_and_ps(_mm_cmpnlt_ps(v, tol), _mm_cmple_ps(_mm_add_ps(u, v), _mm_sub_ps(absArea, tol))));
    if (!lanes)
        return RayHit();

    // Only now the side and the sign of t: a miss never needs them. Above the margin the ray
    // meets the back, below it the front.
    const float dn = _mm_cvtss_f32(sums);
    const float distance = _mm_cvtss_f32(t);
    if (!((((dn > kFloatEpsilon) & negativeSide) | ((dn < -kFloatEpsilon) & positiveSide)) & !(distance < 0.0f)))
        return RayHit();
    if (lanes != 7)
    {
        // The lanes disagree: the one of the dropped axis decides, the normal's largest
        // component: y when above both others, z when at least y and above x, else x.
        const __m128 absN = kGivenNormal ? _mm_andnot_ps(signBit, Load3(*givenNormal)) : Lanes<1, 2, 0, 3>(absArea);
        const int abovePrevious = _mm_movemask_ps(_mm_cmpgt_ps(absN, Lanes<2, 0, 1, 3>(absN))); // x>z y>x z>y
        const int aboveNext = _mm_movemask_ps(_mm_cmpgt_ps(absN, Lanes<1, 2, 0, 3>(absN)));     // x>y y>z z>x
        const bool dropY = (abovePrevious & aboveNext) >> 1 & 1;
        const bool dropZ = (~aboveNext >> 1) & (aboveNext >> 2) & 1;
        if (!(lanes >> (dropZ ? 0 : dropY ? 2 : 1) & 1))
            return RayHit();
    }
    return HitAt(distance);
}

} // namespace

RayHit IntersectRayTriangle(const Ray& ray, const Vector3& a, const Vector3& b, const Vector3& c, const Vector3& normal,
                            bool positiveSide, bool negativeSide)
{
    return RayTriangleLanes<true>(ray, a, b, c, &normal, positiveSide, negativeSide);
}

RayHit IntersectRayTriangle(const Ray& ray, const Vector3& a, const Vector3& b, const Vector3& c, bool positiveSide,
                            bool negativeSide)
{
    return RayTriangleLanes<false>(ray, a, b, c, nullptr, positiveSide, negativeSide);
}
#else
namespace
{

// On the pair of axes (I0, I1), u = p x c, v = b x p and the area b x c as two-dimensional
// cross products, with p = o + d t - a the hit point relative to a. Only the two
// coordinates of p on the pair are worked out, and each condition is left as soon as it
// fails: on random rays such branches mispredict less often than they save.
template <int I0, int I1>
RayHit InsideOnPair(const Ray& ray, const Vector3& a, const Vector3& eb, const Vector3& ec, float t)
{
    const float area = eb[I0] * ec[I1] - eb[I1] * ec[I0];
    // A small margin of the area keeps points on an edge inside.
    const float tol = area * -1e-6f;
    const float p0 = ray.origin[I0] + ray.direction[I0] * t - a[I0];
    const float p1 = ray.origin[I1] + ray.direction[I1] * t - a[I1];
    const float u = p0 * ec[I1] - p1 * ec[I0];
    const float v = eb[I0] * p1 - eb[I1] * p0;
    bool inside;
    if (area > 0.0f)
        inside = u >= tol && v >= tol && u + v <= area - tol;
    else
        inside = u <= tol && v <= tol && u + v >= area - tol;
    return inside ? RayHit(true, t) : RayHit(false, 0.0f);
}

// The test behind both forms, with the edges b - a and c - a at hand.
RayHit RayTriangle(const Ray& ray, const Vector3& a, const Vector3& eb, const Vector3& ec, const Vector3& normal,
                   bool positiveSide, bool negativeSide)
{
    const float denom = normal.Dot(ray.direction);
    // Above the margin the ray meets the back, below it the front.
    const bool sideAllowed = (denom > kFloatEpsilon && negativeSide) || (denom < -kFloatEpsilon && positiveSide);
    if (!sideAllowed)
        return RayHit(false, 0.0f);
    const float t = normal.Dot(a - ray.origin) / denom;
    if (t < 0.0f)
        return RayHit(false, 0.0f);

    // Project onto the two axes on which the triangle shows its largest area, leaving out
    // the normal's largest component: the pair (0, 2) when y is above both others, (1, 0)
    // when z is at least y and above x, else (1, 2).
    const float nx = std::fabs(normal.x), ny = std::fabs(normal.y), nz = std::fabs(normal.z);
    if (ny > nz && ny > nx)
        return InsideOnPair<0, 2>(ray, a, eb, ec, t);
    if (!(ny > nz) && nz > nx)
        return InsideOnPair<1, 0>(ray, a, eb, ec, t);
    return InsideOnPair<1, 2>(ray, a, eb, ec, t);
}

} // namespace

RayHit IntersectRayTriangle(const Ray& ray, const Vector3& a, const Vector3& b, const Vector3& c, const Vector3& normal,
                            bool positiveSide, bool negativeSide)
{
    return RayTriangle(ray, a, b - a, c - a, normal, positiveSide, negativeSide);
}

RayHit IntersectRayTriangle(const Ray& ray, const Vector3& a, const Vector3& b, const Vector3& c, bool positiveSide,
                            bool negativeSide)
{
    // The unnormalised normal, (b - a) x (c - a), from the edges the test needs anyway.
    const Vector3 eb = b - a;
    const Vector3 ec = c - a;
    return RayTriangle(ray, a, eb, ec, eb.Cross(ec), positiveSide, negativeSide);
}
#endif

bool SphereTouchesBox(const BoundingSphere& sphere, const BoundingBox& box)
{
    if (box.IsNull())
        return false;
    if (box.IsInfinite())
        return true;
    float sum = 0.0f;
    for (int i = 0; i < 3; ++i)
    {
        const float c = sphere.centre[i];
        if (c < box.minimum[i])
        {
            const float s = c - box.minimum[i];
            sum += s * s;
        }
        else if (c > box.maximum[i])
        {
            const float s = c - box.maximum[i];
            sum += s * s;
        }
    }
    return sphere.radius * sphere.radius >= sum;
}

bool SphereTouchesPlane(const BoundingSphere& sphere, const Plane& plane)
{
    return std::fabs(plane.Distance(sphere.centre)) <= sphere.radius;
}

bool PlaneCutsBox(const Plane& plane, const BoundingBox& box)
{
    return plane.Side(box) == PLANE_BOTH_SIDES;
}

bool PointInPolygon2D(const Vector3* vertices, int count, const Vector2& point)
{
    if (!vertices || count < 1)
        return false;
    bool inside = false;
    for (int i = 0; i < count; ++i)
    {
        const Vector3& p0 = vertices[i];
        const Vector3& p1 = vertices[(i + 1) % count];
        const float yLow = std::fmin(p0.y, p1.y);
        const float yHigh = std::fmax(p0.y, p1.y);
        const float xHigh = std::fmax(p0.x, p1.x);
        if (point.y > yLow && yHigh >= point.y && xHigh >= point.x && p0.y != p1.y)
        {
            // A crossing to the right of the point, on a half-open span of heights so that
            // a vertex is not counted twice.
            if (p0.x == p1.x)
            {
                inside = !inside;
            }
            else
            {
                const float xCross = (point.y - p0.y) * (p1.x - p0.x) / (p1.y - p0.y) + p0.x;
                if (xCross >= point.x)
                    inside = !inside;
            }
        }
    }
    return inside;
}

bool CircleTouchesPolygon2D(const Vector3* vertices, int count, const Circle& circle)
{
    if (!vertices || count < 1)
        return false;
    for (int i = 0; i < count; ++i)
    {
        const Vector3& p0 = vertices[i];
        const Vector3& p1 = vertices[(i + 1) % count];
        float ex = p1.x - p0.x, ey = p1.y - p0.y;
        const float length = std::sqrt(ex * ex + ey * ey);
        if (length > 1e-8f)
        {
            ex /= length;
            ey /= length;
        }
        const float wx = p0.x - circle.x, wy = p0.y - circle.y;
        const float along = wx * ex + wy * ey;
        // The squared distance of the centre from the edge's line is w.w - along^2.
        if (along * along >= wx * wx + wy * wy - circle.radius * circle.radius)
            return true;
    }
    return false;
}

namespace
{

// The sign tests shared by the 2D and 3D point-in-triangle forms; values within 0.001 of
// zero put the point on that edge.
bool InsideBySigns(float c0, float c1, float c2)
{
    const bool zero0 = FloatEquals(c0, 0.0f, 0.001f);
    const bool zero1 = FloatEquals(c1, 0.0f, 0.001f);
    const bool zero2 = FloatEquals(c2, 0.0f, 0.001f);
    if (!zero0 && !zero1 && Sign(c0) != Sign(c1))
        return false;
    if (!zero0 && !zero2 && Sign(c0) != Sign(c2))
        return false;
    if (zero1 || zero2)
        return true;
    return Sign(c1) == Sign(c2);
}

float Cross2D(const Vector2& start, const Vector2& end, const Vector2& p)
{
    return (end.x - start.x) * (p.y - start.y) - (end.y - start.y) * (p.x - start.x);
}

} // namespace

bool PointInTriangle2D(const Vector2& p, const Vector2& a, const Vector2& b, const Vector2& c)
{
    return InsideBySigns(Cross2D(a, b, p), Cross2D(b, c, p), Cross2D(c, a, p));
}

bool PointInTriangle3D(const Vector3& p, const Vector3& a, const Vector3& b, const Vector3& c, const Vector3& normal)
{
    const float c0 = (b - a).Cross(p - a).Dot(normal);
    const float c1 = (c - b).Cross(p - b).Dot(normal);
    const float c2 = (a - c).Cross(p - c).Dot(normal);
    return InsideBySigns(c0, c1, c2);
}

bool SphereContainsSegment(const BoundingSphere& sphere, const Segment& segment)
{
    const float r2 = sphere.radius * sphere.radius;
    return (segment.first - sphere.centre).SquaredLength() < r2 &&
           (segment.second - sphere.centre).SquaredLength() < r2;
}

bool RayPassesNearSegment(const Ray& ray, const Vector3& p0, const Vector3& p1, float radius)
{
    const Vector3 e = p1 - p0;
    const Vector3 n = ray.direction.Cross(e);
    const float nn = n.Dot(n);
    // Parallel lines have no single closest pair.
    if (FloatEquals(nn, 0.0f, kFloatEpsilon))
        return false;

    const float t = (p0 - ray.origin).Cross(e).Dot(n) / nn;
    const Vector3 onRay = t <= 0.0f ? ray.origin : ray.origin + ray.direction * t;

    const float s = (ray.origin - p0).Cross(ray.direction).Dot(e.Cross(ray.direction)) / nn;
    Vector3 onSegment;
    if (s <= 0.0f)
        onSegment = p0;
    else if (s >= 1.0f)
        onSegment = p1;
    else
        onSegment = p0 + e * s;

    return !((onRay - onSegment).Length() > radius);
}

} // namespace kv
