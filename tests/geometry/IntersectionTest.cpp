#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "geometry/Intersection.h"
#include "geometry/ScalarMath.h"

using namespace kv;

namespace
{

const BoundingBox kUnitBox(Vector3(-1, -1, -1), Vector3(1, 1, 1));
const Vector3 kX(1, 0, 0), kY(0, 1, 0), kZ(0, 0, 1), kO(0, 0, 0);

struct HitRow
{
    RayHit got;
    bool hit;
    float distance;
};

void ExpectHits(std::initializer_list<HitRow> rows)
{
    int i = 0;
    for (const HitRow& r : rows)
    {
        EXPECT_EQ(r.hit, r.got.hit) << "row " << i;
        EXPECT_FLOAT_EQ(r.distance, r.got.distance) << "row " << i;
        ++i;
    }
}

// The unit box given by its centre and axes; the distance is the out value on a hit.
RayHit OrientedUnitBox(const Ray& ray)
{
    float t = 0.0f;
    return IntersectRayOrientedBox(ray, kO, kX, kY, kZ, 1, 1, 1, t) ? RayHit(true, t) : RayHit(false, 0.0f);
}

TEST(Intersection, RaysAndBoxes)
{
    const Ray inside(Vector3(0.5f, 0, 0), kX), outside(Vector3(-5, 0.2f, 0.3f), Vector3(2, 0, 0));
    const Ray diagonal(Vector3(-3, -2, 0), Vector3(1, 1, 0)); // the y face is nearer than the x face
    const Ray above(Vector3(-5, 2, 0), kX), away(Vector3(-5, 0, 0), -kX);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    ExpectHits({
        {IntersectRayBox(Ray(Vector3(-1, 0, 0), -kX), kUnitBox), false, 0.0f}, // on a face, pointing out
        {IntersectRayBox(Ray(Vector3(-1, 0, 0), kX), kUnitBox), true, 0.0f},   // on a face, pointing in
        {IntersectRayBox(outside, BoundingBox()), false, 0.0f},
        {IntersectRayBox(outside, BoundingBox::Infinite()), true, 0.0f},
        // A coordinate that is not a number faces nothing.
        {IntersectRayBox(Ray(Vector3(nan, 0, 0), kX), kUnitBox), false, 0.0f},
        {IntersectRayBox(outside, BoundingBox(Vector3(nan, -1, -1), Vector3(1, 1, 1))), false, 0.0f},
        // Strictly inside hits at 0 whatever the direction.
        {IntersectRayBox(Ray(Vector3(0.5f, 0, 0), Vector3(nan, 0, 0)), kUnitBox), true, 0.0f},
        {OrientedUnitBox(inside), true, 0.5f}, // the exit
        {OrientedUnitBox(outside), true, 2.0f},
        {OrientedUnitBox(above), false, 0.0f},
        // The later y entry raises the x one by half a unit.
        {OrientedUnitBox(Ray(Vector3(-2.5f, -3, 0), Vector3(1, 1, 0))), true, 2.0f},
        // Within 1e-5 of parallel to y and just outside its slab: a miss, though it would drift in before x = -1.
        {OrientedUnitBox(Ray(Vector3(-5, 1 + 1e-6f, 0), Vector3(1, -1e-6f, 0))), false, 0.0f},
    });

    // Hit or not, entry and exit; a miss leaves both distances as they were.
    auto interval = [](const Ray& ray, const BoundingBox& box) {
        float d1 = -1, d2 = -1;
        const bool hit = IntersectRayBoxInterval(ray, box, &d1, &d2);
        return std::vector<float>{hit ? 1.0f : 0.0f, d1, d2};
    };
    const std::vector<float> miss{0, -1, -1};
    EXPECT_EQ((std::vector<float>{1, 0, 0.5f}), interval(inside, kUnitBox));
    EXPECT_EQ((std::vector<float>{1, 2, 3}), interval(outside, kUnitBox));
    EXPECT_EQ((std::vector<float>{1, 2, 3}), interval(diagonal, kUnitBox));
    EXPECT_EQ(miss, interval(above, kUnitBox));
    EXPECT_EQ(miss, interval(away, kUnitBox));
    EXPECT_EQ(miss, interval(Ray(Vector3(-5, 0, 1.5f), Vector3(1, 0, -1)), kUnitBox)); // leaves z before it enters x
    EXPECT_EQ(miss, interval(outside, BoundingBox()));
    EXPECT_EQ((std::vector<float>{1, 0, std::numeric_limits<float>::infinity()}),
              interval(outside, BoundingBox::Infinite()));
    EXPECT_TRUE(IntersectRayBoxInterval(inside, kUnitBox, nullptr, nullptr));
}

TEST(Intersection, ScaledOrientedBox)
{
    // The box (-1..1 on each axis) scaled by 2 on its x, turned a quarter about z and moved
    // to (10, 0, 0): its x now runs along world y, so it spans x 9..11 and y -2..2.
    Quaternion quarter;
    quarter.FromAngleAxis(HALF_PI, kZ);
    Matrix4 transform;
    transform.MakeTransform(Vector3(10, 0, 0), Vector3(1, 1, 1), quarter);
    const Ray side(Vector3(0, 1.5f, 0), kX);
    ExpectHits({
        // The direction is normalised first.
        {IntersectRayScaledOrientedBox(Ray(Vector3(10, -10, 0), Vector3(0, 4, 0)), kUnitBox, transform, 2, 1, 1), true,
         8.0f},
        // At y = 1.5 only the box scaled by 2 on its x is met.
        {IntersectRayScaledOrientedBox(side, kUnitBox, transform, 2, 1, 1), true, 9.0f},
        {IntersectRayScaledOrientedBox(side, kUnitBox, transform, 1, 1, 1), false, 0.0f},
        // Running along a slab from outside it, and inside it.
        {IntersectRayScaledOrientedBox(Ray(Vector3(10, 0, 5), kY), kUnitBox, transform, 2, 1, 1), false, 0.0f},
        {IntersectRayScaledOrientedBox(Ray(Vector3(10, 0, 0.5f), kY), kUnitBox, transform, 2, 1, 1), true, 0.0f},
        {IntersectRayScaledOrientedBox(side, BoundingBox(), Matrix4::IDENTITY, 1, 1, 1), false, 0.0f},
        {IntersectRayScaledOrientedBox(side, BoundingBox::Infinite(), Matrix4::IDENTITY, 1, 1, 1), true, 0.0f},
    });
}

TEST(Intersection, RaysPlanesAndSpheres)
{
    const Plane ground(0, 1, 0, 0);
    const Ray ray(Vector3(-5, 0, 0), kX);
    // The unit cube as six outward planes, and inward with the flag the other way.
    const std::vector<Plane> cube = {Plane(1, 0, 0, -1),  Plane(-1, 0, 0, -1), Plane(0, 1, 0, -1),
                                     Plane(0, -1, 0, -1), Plane(0, 0, 1, -1),  Plane(0, 0, -1, -1)};
    std::vector<Plane> inward;
    for (const Plane& p : cube)
        inward.push_back(Plane(-p.normal.x, -p.normal.y, -p.normal.z, -p.d));
    const BoundingSphere s(1.0f, kO);
    ExpectHits({
        {IntersectRayPlane(Ray(Vector3(0, 5, 0), Vector3(0, -2, 0)), ground), true, 2.5f},
        {IntersectRayPlane(Ray(Vector3(0, 5, 0), Vector3(0, 2, 0)), ground), false, -2.5f}, // behind: still told
        {IntersectRayPlane(Ray(Vector3(0, 5, 0), kX), ground), false, 0.0f},
        {IntersectRayPlane(Ray(Vector3(0, 0, 0), kY), ground), true, 0.0f},
        {IntersectRayPlanes(ray, std::vector<Plane>(), true), true, 0.0f},
        {IntersectRayPlanes(ray, cube, true), true, 4.0f},
        {IntersectRayPlanes(Ray(kO, kX), cube, true), true, 0.0f},
        // Beside the cube: enters the x slab after leaving the y slab; the last entry stays.
        {IntersectRayPlanes(Ray(Vector3(-5, -5, 0), Vector3(1, 2, 0)), cube, true), false, 4.0f},
        {IntersectRayPlanes(Ray(Vector3(-5, 0, 0), -kX), cube, true), false, 0.0f},
        {IntersectRayPlanes(ray, inward.data(), 6, false), true, 4.0f},
        {IntersectRaySphere(ray, s), true, 4.0f},
        {IntersectRaySphere(Ray(Vector3(-5, 3, 0), kX), s), false, 0.0f},
        {IntersectRaySphere(Ray(Vector3(5, 0, 0), kX), s), true, -4.0f},          // behind the origin
        {IntersectRaySphere(Ray(Vector3(0.5f, 0, 0), kX), s, true), true, 0.0f},  // inside: 0 when discarding,
        {IntersectRaySphere(Ray(Vector3(0.5f, 0, 0), kX), s, false), true, 0.5f}, // else the exit
    });
    EXPECT_TRUE(SphereTouchesPlane(s, Plane(0, 1, 0, -1)));
    EXPECT_FALSE(SphereTouchesPlane(s, Plane(0, 1, 0, -1.01f)));
    EXPECT_TRUE(SphereTouchesBox(BoundingSphere(1.5f, Vector3(2, 2, 0)), kUnitBox));
    EXPECT_FALSE(SphereTouchesBox(BoundingSphere(1.4f, Vector3(2, 2, 0)), kUnitBox));
    EXPECT_TRUE(SphereTouchesBox(BoundingSphere(0.1f, kO), kUnitBox));
    EXPECT_TRUE(PlaneCutsBox(Plane(1, 0, 0, -0.5f), kUnitBox));
    EXPECT_FALSE(PlaneCutsBox(Plane(1, 0, 0, -1.5f), kUnitBox));
    EXPECT_FALSE(SphereTouchesBox(s, BoundingBox()) || PlaneCutsBox(Plane(1, 0, 0, 0), BoundingBox()));
    EXPECT_TRUE(SphereTouchesBox(s, BoundingBox::Infinite()) &&
                PlaneCutsBox(Plane(1, 0, 0, 0), BoundingBox::Infinite()));
}

TEST(Intersection, RayAndTriangle)
{
    const Vector3 a(0, 0, 0), b(4, 0, 0), c(0, 4, 0); // normal +z
    const Ray down(Vector3(1, 1, 5), -kZ), up(Vector3(1, 1, -5), kZ);
    // The same triangle standing in the x = 3 plane (normal largest on x), both windings.
    const Vector3 p(3, 0, 0), q(3, 4, 0), r(3, 0, 4);
    const Ray across(Vector3(0, 1, 1), kX);
    const Vector3 e(0, -2, 0), f(4, -2, 0), g(0, -2, 4);
    const Ray rising(Vector3(1, -6, 1), Vector3(0, 2, 0));
    ExpectHits({
        {IntersectRayTriangle(down, a, b, c), true, 5.0f},
        {IntersectRayTriangle(down, a, b, c, kZ, true, false), true, 5.0f},
        {IntersectRayTriangle(down, a, b, c, kZ, false, true), false, 0.0f},
        {IntersectRayTriangle(up, a, b, c, kZ, false, true), true, 5.0f},
        {IntersectRayTriangle(up, a, b, c, kZ, true, false), false, 0.0f},
        {IntersectRayTriangle(across, p, q, r), true, 3.0f},
        // On the hypotenuse and on a corner: inside by the margin.
        {IntersectRayTriangle(Ray(Vector3(2, 2, 5), -kZ), a, b, c), true, 5.0f},
        {IntersectRayTriangle(Ray(Vector3(4, 0, 5), -kZ), a, b, c), true, 5.0f},
        {IntersectRayTriangle(Ray(Vector3(2.01f, 2.01f, 5), -kZ), a, b, c), false, 0.0f},
        {IntersectRayTriangle(Ray(Vector3(1, 1, -5), -kZ), a, b, c), false, 0.0f}, // behind
        {IntersectRayTriangle(Ray(Vector3(1, 1, 5), kX), a, b, c), false, 0.0f},   // parallel
        {IntersectRayTriangle(Ray(Vector3(0, 3, 3), kX), p, q, r), false, 0.0f},
        // And in the y = -2 plane (normal largest on y).
        {IntersectRayTriangle(rising, e, f, g), true, 2.0f},
        {IntersectRayTriangle(rising, e, g, f), true, 2.0f},
        {IntersectRayTriangle(Ray(Vector3(3, -6, 3), Vector3(0, 2, 0)), e, f, g), false, 0.0f},
    });
}

// The nearest box face and the triangle test written out the way they are defined, one
// face and one pair of axes at a time, for comparing the kernels' results bit for bit.
RayHit BoxFaceByFace(const Ray& ray, const BoundingBox& box)
{
    if (!box.IsFinite())
        return RayHit(box.IsInfinite(), 0.0f);
    const Vector3 &o = ray.origin, &d = ray.direction, &lo = box.minimum, &hi = box.maximum;
    if (o.x > lo.x && o.y > lo.y && o.z > lo.z && o.x < hi.x && o.y < hi.y && o.z < hi.z)
        return RayHit(true, 0.0f);
    RayHit nearest(false, 0.0f);
    for (int face = 0; face < 6; ++face)
    {
        const int axis = face / 2, k1 = (axis + 1) % 3, k2 = (axis + 2) % 3;
        const float f = face % 2 ? hi[axis] : lo[axis];
        const float t = (f - o[axis]) / d[axis];
        const Vector3 p = o + d * t;
        if ((face % 2 ? o[axis] >= f && d[axis] < 0.0f : o[axis] <= f && d[axis] > 0.0f) && t >= 0.0f &&
            p[k1] >= lo[k1] && p[k1] <= hi[k1] && p[k2] >= lo[k2] && p[k2] <= hi[k2] &&
            (!nearest.hit || t < nearest.distance))
            nearest = RayHit(true, t);
    }
    return nearest;
}

// The inside test on the pair (i0, i1), for a hit point at t.
bool InsideOnPair(const Ray& ray, const Vector3& a, const Vector3& b, const Vector3& c, float t, int i0, int i1)
{
    const Vector3 p = ray.origin + ray.direction * t - a, eb = b - a, ec = c - a;
    auto cross = [&](const Vector3& l, const Vector3& r) { return l[i0] * r[i1] - l[i1] * r[i0]; };
    const float u = cross(p, ec), v = cross(eb, p), area = cross(eb, ec), tol = area * -1e-6f;
    return area > 0.0f ? u >= tol && v >= tol && u + v <= area - tol : u <= tol && v <= tol && u + v >= area - tol;
}

// The axis the projection drops (y above both others, z at least y and above x, else x),
// and the triangle test on the pair it leaves.
int DroppedAxis(const Vector3& n)
{
    const float nx = std::fabs(n.x), ny = std::fabs(n.y), nz = std::fabs(n.z);
    return ny > nz && ny > nx ? 1 : !(ny > nz) && nz > nx ? 2 : 0;
}

RayHit TriangleByPair(const Ray& ray, const Vector3& a, const Vector3& b, const Vector3& c, const Vector3& normal,
                      bool positiveSide, bool negativeSide)
{
    static const int pairs[3][2] = {{1, 2}, {0, 2}, {1, 0}};
    const float denom = normal.Dot(ray.direction), t = normal.Dot(a - ray.origin) / denom;
    const int* pair = pairs[DroppedAxis(normal)];
    const bool inside = ((denom > 1.1920929e-7f && negativeSide) || (denom < -1.1920929e-7f && positiveSide)) &&
                        !(t < 0.0f) && InsideOnPair(ray, a, b, c, t, pair[0], pair[1]);
    return inside ? RayHit(true, t) : RayHit(false, 0.0f);
}

::testing::AssertionResult SameBits(const RayHit& expected, const RayHit& got, int n)
{
    if (expected.hit == got.hit && std::memcmp(&expected.distance, &got.distance, sizeof(float)) == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << n << ": " << got.hit << " " << got.distance << ", not " << expected.hit
                                         << " " << expected.distance;
}

TEST(Intersection, KernelsGiveTheDefinitionsBits)
{
    std::mt19937 rng(33);
    std::uniform_real_distribution<float> u(-4.0f, 4.0f), unit(0.0f, 1.0f);
    auto grid = [&](int span) { return static_cast<float>(static_cast<int>(rng() % (2 * span + 1)) - span); };
    const float specials[] = {0.0f,
                              -0.0f,
                              std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(),
                              1e-40f,
                              -1e-40f,
                              3e38f};
    auto spoil = [&](Vector3& origin, Vector3& direction) {
        (rng() % 2 ? origin : direction)[static_cast<int>(rng() % 3)] = specials[rng() % 8];
    };

    // Boxes: corners and origins on a grid of small integers, rays aimed at grid points of
    // the box, so that faces, edges, corners and equal distances come up; then free floats,
    // and now and then a coordinate that is not finite.
    const int boxRays = 20000;
    int boxHits = 0, boxFaceHits = 0, intervalFaceHits = 0;
    for (int n = 0; n < boxRays; ++n)
    {
        const Vector3 lo(grid(2), grid(2), grid(2));
        const Vector3 hi = lo + Vector3(1.0f + rng() % 3, 1.0f + rng() % 3, 1.0f + rng() % 3);
        Vector3 origin(grid(5), grid(5), grid(5));
        const Vector3 target(lo.x + (hi.x - lo.x) * (rng() % 3) * 0.5f, lo.y + (hi.y - lo.y) * (rng() % 3) * 0.5f,
                             lo.z + (hi.z - lo.z) * (rng() % 3) * 0.5f);
        Vector3 direction = (target - origin) * (rng() % 2 ? 1.0f : 0.3f);
        if (n % 4 == 1)
            origin = Vector3(u(rng), u(rng), u(rng)), direction = Vector3(u(rng), u(rng), u(rng));
        if (n % 16 == 3)
            spoil(origin, direction);
        const BoundingBox box = n % 50 == 7   ? BoundingBox::Infinite()
                                : n % 50 == 8 ? BoundingBox()
                                              : BoundingBox(lo, hi);
        const RayHit expected = BoxFaceByFace(Ray(origin, direction), box);
        ASSERT_TRUE(SameBits(expected, IntersectRayBox(Ray(origin, direction), box), n));
        boxHits += expected.hit;
        boxFaceHits += expected.hit && expected.distance > 0.0f;
        // The slabs clipped in turn find the same entry for free rays, which meet no edge.
        float d1 = -1.0f, d2 = -1.0f;
        if (n % 4 == 1 && box.IsFinite())
        {
            ASSERT_EQ(expected.hit, IntersectRayBoxInterval(Ray(origin, direction), box, &d1, &d2)) << n;
            EXPECT_NEAR(expected.distance, expected.hit ? d1 : 0.0f, 1e-5f * std::max(1.0f, d1)) << n;
            intervalFaceHits += expected.hit && d1 > 0.0f;
        }
    }
    EXPECT_GT(boxFaceHits, boxRays / 4);
    EXPECT_GT(boxHits - boxFaceHits, boxRays / 50);
    EXPECT_GT(intervalFaceHits, boxRays / 200);

    // Triangles: tilted ones, rays aimed at points on their edges and inside them, the
    // normal computed or given (that one, a multiple, another), either side allowed. Near
    // an edge the three projections can disagree; counted per dropped axis, so that the
    // choice of the pair is seen to matter for each.
    const int triangles = 20000;
    int triangleHits = 0, choiceMatters[3] = {0, 0, 0};
    for (int n = 0; n < triangles; ++n)
    {
        const Vector3 a(u(rng), u(rng), u(rng)), b(u(rng), u(rng), u(rng)), c(u(rng), u(rng), u(rng));
        const float s = rng() % 2 ? 0.0f : unit(rng), r = unit(rng) * (1.0f - s);
        const Vector3 target = a + (b - a) * r + (c - a) * (rng() % 3 ? 1.0f - r - s : s);
        Vector3 origin(u(rng) * 2.0f, u(rng) * 2.0f, u(rng) * 2.0f);
        Vector3 direction = (target - origin) * (0.5f + unit(rng));
        if (n % 16 == 5)
            spoil(origin, direction);
        const Ray ray(origin, direction);
        const Vector3 own = (b - a).Cross(c - a);
        const Vector3 given = n % 3 == 0 ? own : n % 3 == 1 ? own * -2.5f : Vector3(u(rng), u(rng), u(rng));
        const bool front = rng() % 4 != 0, back = rng() % 4 != 0;
        const RayHit expected = TriangleByPair(ray, a, b, c, own, front, back);
        ASSERT_TRUE(SameBits(expected, IntersectRayTriangle(ray, a, b, c, front, back), n));
        ASSERT_TRUE(SameBits(TriangleByPair(ray, a, b, c, given, front, back),
                             IntersectRayTriangle(ray, a, b, c, given, front, back), n));
        triangleHits += expected.hit;
        const float t = own.Dot(a - ray.origin) / own.Dot(ray.direction);
        const bool yz = InsideOnPair(ray, a, b, c, t, 1, 2), xz = InsideOnPair(ray, a, b, c, t, 0, 2);
        choiceMatters[DroppedAxis(own)] += yz != xz || xz != InsideOnPair(ray, a, b, c, t, 1, 0);
    }
    EXPECT_GT(triangleHits, triangles / 5);
    for (int axis = 0; axis < 3; ++axis)
        EXPECT_GT(choiceMatters[axis], 20) << "axis " << axis;
}

TEST(Intersection, PointsAndCirclesInPolygonsAndTriangles)
{
    const Vector3 square[4] = {Vector3(0, 0, 9), Vector3(2, 0, 9), Vector3(2, 2, 9), Vector3(0, 2, 9)};
    const Vector3 tri[3] = {kO, Vector3(4, 0, 0), Vector3(0, 4, 0)};
    const Vector2 a(0, 0), b(4, 0), c(0, 4);
    EXPECT_EQ(
        (std::vector<bool>{true, false, false, false, true, true, false}),
        (std::vector<bool>{PointInPolygon2D(square, 4, Vector2(1, 1)), PointInPolygon2D(square, 4, Vector2(3, 1)),
                           PointInPolygon2D(square, 0, Vector2(1, 1)),
                           // On the lower edge only the sides' span counts, not the edge.
                           PointInPolygon2D(square, 4, Vector2(1, 0)), PointInPolygon2D(square, 4, Vector2(1, 2)),
                           PointInPolygon2D(tri, 3, Vector2(1, 1)), PointInPolygon2D(tri, 3, Vector2(2.5f, 2.5f))}));
    EXPECT_EQ((std::vector<bool>{true, false, true, false}),
              (std::vector<bool>{CircleTouchesPolygon2D(square, 4, Circle(0.5f, 1, 1.6f)),
                                 CircleTouchesPolygon2D(square, 4, Circle(0.3f, 1, 1)), // wholly inside: no edge
                                 // Near the bottom edge's line far beyond its end: the line counts.
                                 CircleTouchesPolygon2D(square, 4, Circle(0.5f, 50, 0.3f)),
                                 CircleTouchesPolygon2D(square, 0, Circle(5, 0, 0))}));
    EXPECT_EQ((std::vector<bool>{true, true, false, true, false, true, false}),
              (std::vector<bool>{PointInTriangle2D(Vector2(1, 1), a, b, c),
                                 PointInTriangle2D(Vector2(1, 1), a, c, b), // either winding
                                 PointInTriangle2D(Vector2(3, 3), a, b, c),
                                 PointInTriangle2D(Vector2(2, 0.0001f), a, b, c), // on an edge within 0.001
                                 PointInTriangle2D(Vector2(-1, 1), a, b, c),
                                 PointInTriangle3D(Vector3(1, 1, 0), tri[0], tri[1], tri[2], kZ),
                                 PointInTriangle3D(Vector3(3, 3, 0), tri[0], tri[1], tri[2], kZ)}));
}

TEST(Intersection, SegmentsNearRaysAndInSpheres)
{
    const BoundingSphere s(1.0f, kO);
    EXPECT_TRUE(SphereContainsSegment(s, Segment(Vector3(0.5f, 0, 0), Vector3(0, -0.5f, 0))));
    EXPECT_FALSE(SphereContainsSegment(s, Segment(Vector3(1, 0, 0), kO))); // on the sphere
    const Ray ray(kO, kX);
    const struct
    {
        Vector3 from, to;
        float distance;
        bool near;
    } segments[] = {
        {Vector3(0, 0.01f, 0), Vector3(5, 0.01f, 0), 1.0f, false}, // parallel, however near
        {Vector3(3, 0.5f, -1), Vector3(3, 0.5f, 1), 0.6f, true},   // crossing above at x = 3
        {Vector3(3, 0.5f, -1), Vector3(3, 0.5f, 1), 0.4f, false},
        // The closest point of the line lies behind the origin: the origin is used.
        {Vector3(-3, 0.5f, -1), Vector3(-3, 0.5f, 1), 0.6f, false},
        {Vector3(-3, 0.5f, -1), Vector3(-3, 0.5f, 1), 3.1f, true},
        // The segment ends before the crossing: its end is used.
        {Vector3(3, 0.5f, 1), Vector3(3, 0.5f, 2), 0.6f, false},
        {Vector3(3, 0.5f, 1), Vector3(3, 0.5f, 2), 1.2f, true},
    };
    for (const auto& g : segments)
        EXPECT_EQ(g.near, RayPassesNearSegment(ray, g.from, g.to, g.distance)) << &g - segments;
}

} // namespace
