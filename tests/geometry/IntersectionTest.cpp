#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "geometry/Intersection.h"
#include "geometry/ScalarMath.h"

using namespace kv;

namespace
{

const BoundingBox kUnitBox(Vector3(-1, -1, -1), Vector3(1, 1, 1));

void ExpectHit(const RayHit& h, bool hit, float distance)
{
    EXPECT_EQ(h.hit, hit);
    EXPECT_FLOAT_EQ(h.distance, distance);
}

} // namespace

TEST(Intersection, RayStartingInsideABox)
{
    const Ray ray(Vector3(0.5f, 0, 0), Vector3(1, 0, 0));
    ExpectHit(IntersectRayBox(ray, kUnitBox), true, 0.0f);

    float t = -1;
    ASSERT_TRUE(IntersectRayOrientedBox(ray, Vector3(0, 0, 0), Vector3(1, 0, 0), Vector3(0, 1, 0), Vector3(0, 0, 1), 1,
                                        1, 1, t));
    EXPECT_FLOAT_EQ(t, 0.5f); // the exit

    float d1 = -1, d2 = -1;
    ASSERT_TRUE(IntersectRayBoxInterval(ray, kUnitBox, &d1, &d2));
    EXPECT_EQ(d1, 0.0f);
    EXPECT_FLOAT_EQ(d2, 0.5f);
    EXPECT_TRUE(IntersectRayBoxInterval(ray, kUnitBox, nullptr, nullptr));
}

TEST(Intersection, RayFromOutsideABox)
{
    const Ray ray(Vector3(-5, 0.2f, 0.3f), Vector3(2, 0, 0));
    ExpectHit(IntersectRayBox(ray, kUnitBox), true, 2.0f); // in units of |direction|
    float t = -1;
    ASSERT_TRUE(IntersectRayOrientedBox(ray, Vector3(0, 0, 0), Vector3(1, 0, 0), Vector3(0, 1, 0), Vector3(0, 0, 1), 1,
                                        1, 1, t));
    EXPECT_FLOAT_EQ(t, 2.0f);
    float d1 = -1, d2 = -1;
    ASSERT_TRUE(IntersectRayBoxInterval(ray, kUnitBox, &d1, &d2));
    EXPECT_FLOAT_EQ(d1, 2.0f);
    EXPECT_FLOAT_EQ(d2, 3.0f);

    // A diagonal ray through a corner region; the y face is nearer than the x face.
    const Ray diag(Vector3(-3, -2, 0), Vector3(1, 1, 0));
    ExpectHit(IntersectRayBox(diag, kUnitBox), true, 2.0f);
    ASSERT_TRUE(IntersectRayBoxInterval(diag, kUnitBox, &d1, &d2));
    EXPECT_FLOAT_EQ(d1, 2.0f);
    EXPECT_FLOAT_EQ(d2, 3.0f);

    // Misses: parallel outside a slab, and pointing away.
    const Ray above(Vector3(-5, 2, 0), Vector3(1, 0, 0));
    EXPECT_FALSE(IntersectRayBox(above, kUnitBox).hit);
    EXPECT_FALSE(IntersectRayBoxInterval(above, kUnitBox, &d1, &d2));
    EXPECT_FALSE(IntersectRayOrientedBox(above, Vector3(0, 0, 0), Vector3(1, 0, 0), Vector3(0, 1, 0), Vector3(0, 0, 1),
                                         1, 1, 1, t));
    const Ray away(Vector3(-5, 0, 0), Vector3(-1, 0, 0));
    ExpectHit(IntersectRayBox(away, kUnitBox), false, 0.0f);
    EXPECT_FALSE(IntersectRayBoxInterval(away, kUnitBox, &d1, &d2));

    // On a face, pointing out: no hit.
    ExpectHit(IntersectRayBox(Ray(Vector3(-1, 0, 0), Vector3(-1, 0, 0)), kUnitBox), false, 0.0f);
    // On a face, pointing in: hit at 0 through that face.
    ExpectHit(IntersectRayBox(Ray(Vector3(-1, 0, 0), Vector3(1, 0, 0)), kUnitBox), true, 0.0f);
    // A coordinate that is not a number faces nothing.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    ExpectHit(IntersectRayBox(Ray(Vector3(nan, 0, 0), Vector3(1, 0, 0)), kUnitBox), false, 0.0f);
    ExpectHit(
        IntersectRayBox(Ray(Vector3(-5, 0, 0), Vector3(1, 0, 0)), BoundingBox(Vector3(nan, -1, -1), Vector3(1, 1, 1))),
        false, 0.0f);
}

TEST(Intersection, NullAndInfiniteBoxes)
{
    const Ray ray(Vector3(-5, 0, 0), Vector3(1, 0, 0));
    const BoundingBox null, inf = BoundingBox::Infinite();
    ExpectHit(IntersectRayBox(ray, null), false, 0.0f);
    ExpectHit(IntersectRayBox(ray, inf), true, 0.0f);
    float d1 = -1, d2 = -1;
    EXPECT_FALSE(IntersectRayBoxInterval(ray, null, &d1, &d2));
    ASSERT_TRUE(IntersectRayBoxInterval(ray, inf, &d1, &d2));
    EXPECT_EQ(d1, 0.0f);
    EXPECT_EQ(d2, std::numeric_limits<float>::infinity());
    ExpectHit(IntersectRayScaledOrientedBox(ray, null, Matrix4::IDENTITY, 1, 1, 1), false, 0.0f);
    ExpectHit(IntersectRayScaledOrientedBox(ray, inf, Matrix4::IDENTITY, 1, 1, 1), true, 0.0f);
    const BoundingSphere s(1.0f, Vector3(0, 0, 0));
    EXPECT_FALSE(SphereTouchesBox(s, null));
    EXPECT_TRUE(SphereTouchesBox(s, inf));
    EXPECT_FALSE(PlaneCutsBox(Plane(1, 0, 0, 0), null));
    EXPECT_TRUE(PlaneCutsBox(Plane(1, 0, 0, 0), inf));
}

TEST(Intersection, ScaledOrientedBox)
{
    // The box (-1..1 on each axis) scaled by 2 on its x, turned a quarter about z and moved
    // to (10, 0, 0): its x now runs along world y, so it spans x 9..11 and y -2..2.
    Quaternion quarter;
    quarter.FromAngleAxis(HALF_PI, Vector3(0, 0, 1));
    Matrix4 transform;
    transform.MakeTransform(Vector3(10, 0, 0), Vector3(1, 1, 1), quarter);
    const RayHit h =
        IntersectRayScaledOrientedBox(Ray(Vector3(10, -10, 0), Vector3(0, 4, 0)), kUnitBox, transform, 2, 1, 1);
    ASSERT_TRUE(h.hit);
    EXPECT_NEAR(h.distance, 8.0f, 1e-5f); // the direction is normalised first
    // At y = 1.5 only the box scaled by 2 on its x is met.
    const Ray side(Vector3(0, 1.5f, 0), Vector3(1, 0, 0));
    const RayHit scaled = IntersectRayScaledOrientedBox(side, kUnitBox, transform, 2, 1, 1);
    EXPECT_TRUE(scaled.hit);
    EXPECT_NEAR(scaled.distance, 9.0f, 1e-5f);
    EXPECT_FALSE(IntersectRayScaledOrientedBox(side, kUnitBox, transform, 1, 1, 1).hit);
    // Running along a slab from outside it.
    EXPECT_FALSE(
        IntersectRayScaledOrientedBox(Ray(Vector3(10, 0, 5), Vector3(0, 1, 0)), kUnitBox, transform, 2, 1, 1).hit);
    EXPECT_TRUE(
        IntersectRayScaledOrientedBox(Ray(Vector3(10, 0, 0.5f), Vector3(0, 1, 0)), kUnitBox, transform, 2, 1, 1).hit);
}

TEST(Intersection, RayAndPlanes)
{
    const Plane ground(0, 1, 0, 0);
    ExpectHit(IntersectRayPlane(Ray(Vector3(0, 5, 0), Vector3(0, -2, 0)), ground), true, 2.5f);
    ExpectHit(IntersectRayPlane(Ray(Vector3(0, 5, 0), Vector3(0, 2, 0)), ground), false, -2.5f);
    ExpectHit(IntersectRayPlane(Ray(Vector3(0, 5, 0), Vector3(1, 0, 0)), ground), false, 0.0f);

    const Ray ray(Vector3(-5, 0, 0), Vector3(1, 0, 0));
    ExpectHit(IntersectRayPlanes(ray, std::vector<Plane>(), true), true, 0.0f);

    // The unit cube as six outward planes.
    const std::vector<Plane> cube = {Plane(1, 0, 0, -1),  Plane(-1, 0, 0, -1), Plane(0, 1, 0, -1),
                                     Plane(0, -1, 0, -1), Plane(0, 0, 1, -1),  Plane(0, 0, -1, -1)};
    ExpectHit(IntersectRayPlanes(ray, cube, true), true, 4.0f);
    ExpectHit(IntersectRayPlanes(Ray(Vector3(0, 0, 0), Vector3(1, 0, 0)), cube, true), true, 0.0f);
    // Passing beside the cube: enters the x slab after leaving the y slab.
    const RayHit beside = IntersectRayPlanes(Ray(Vector3(-5, -5, 0), Vector3(1, 2, 0)), cube, true);
    EXPECT_FALSE(beside.hit);
    EXPECT_FLOAT_EQ(beside.distance, 4.0f); // the last entry stays
    // Outside one plane and pointing away from it.
    ExpectHit(IntersectRayPlanes(Ray(Vector3(-5, 0, 0), Vector3(-1, 0, 0)), cube, true), false, 0.0f);
    // The same cube with inward normals and the flag the other way, through the array form.
    std::vector<Plane> inward;
    for (const Plane& p : cube)
        inward.push_back(Plane(-p.normal.x, -p.normal.y, -p.normal.z, -p.d));
    ExpectHit(IntersectRayPlanes(ray, inward.data(), 6, false), true, 4.0f);
}

TEST(Intersection, RayAndSphere)
{
    const BoundingSphere s(1.0f, Vector3(0, 0, 0));
    ExpectHit(IntersectRaySphere(Ray(Vector3(-5, 0, 0), Vector3(1, 0, 0)), s), true, 4.0f);
    ExpectHit(IntersectRaySphere(Ray(Vector3(-5, 3, 0), Vector3(1, 0, 0)), s), false, 0.0f);
    // Behind the origin: a hit at a negative distance.
    ExpectHit(IntersectRaySphere(Ray(Vector3(5, 0, 0), Vector3(1, 0, 0)), s), true, -4.0f);
    // Inside: at 0 when discarding, else the exit.
    ExpectHit(IntersectRaySphere(Ray(Vector3(0.5f, 0, 0), Vector3(1, 0, 0)), s, true), true, 0.0f);
    ExpectHit(IntersectRaySphere(Ray(Vector3(0.5f, 0, 0), Vector3(1, 0, 0)), s, false), true, 0.5f);
    EXPECT_TRUE(SphereTouchesPlane(s, Plane(0, 1, 0, -1)));
    EXPECT_FALSE(SphereTouchesPlane(s, Plane(0, 1, 0, -1.01f)));
    EXPECT_TRUE(SphereTouchesBox(BoundingSphere(1.5f, Vector3(2, 2, 0)), kUnitBox));
    EXPECT_FALSE(SphereTouchesBox(BoundingSphere(1.4f, Vector3(2, 2, 0)), kUnitBox));
    EXPECT_TRUE(SphereTouchesBox(BoundingSphere(0.1f, Vector3(0, 0, 0)), kUnitBox));
    EXPECT_TRUE(PlaneCutsBox(Plane(1, 0, 0, -0.5f), kUnitBox));
    EXPECT_FALSE(PlaneCutsBox(Plane(1, 0, 0, -1.5f), kUnitBox));
}

TEST(Intersection, RayAndTriangle)
{
    const Vector3 a(0, 0, 0), b(4, 0, 0), c(0, 4, 0); // normal +z
    const Ray down(Vector3(1, 1, 5), Vector3(0, 0, -1));
    ExpectHit(IntersectRayTriangle(down, a, b, c), true, 5.0f);
    ExpectHit(IntersectRayTriangle(down, a, b, c, Vector3(0, 0, 1), true, false), true, 5.0f);
    ExpectHit(IntersectRayTriangle(down, a, b, c, Vector3(0, 0, 1), false, true), false, 0.0f);
    ExpectHit(IntersectRayTriangle(down, a, b, c, Vector3(0, 0, 1), false, false), false, 0.0f);
    const Ray up(Vector3(1, 1, -5), Vector3(0, 0, 1));
    ExpectHit(IntersectRayTriangle(up, a, b, c, Vector3(0, 0, 1), false, true), true, 5.0f);
    ExpectHit(IntersectRayTriangle(up, a, b, c, Vector3(0, 0, 1), true, false), false, 0.0f);
    // On the hypotenuse and on a corner: inside by the margin.
    EXPECT_TRUE(IntersectRayTriangle(Ray(Vector3(2, 2, 5), Vector3(0, 0, -1)), a, b, c).hit);
    EXPECT_TRUE(IntersectRayTriangle(Ray(Vector3(4, 0, 5), Vector3(0, 0, -1)), a, b, c).hit);
    EXPECT_FALSE(IntersectRayTriangle(Ray(Vector3(2.01f, 2.01f, 5), Vector3(0, 0, -1)), a, b, c).hit);
    EXPECT_FALSE(IntersectRayTriangle(Ray(Vector3(1, 1, -5), Vector3(0, 0, -1)), a, b, c).hit); // behind
    EXPECT_FALSE(IntersectRayTriangle(Ray(Vector3(1, 1, 5), Vector3(1, 0, 0)), a, b, c).hit);   // parallel
    // The same triangle standing in the x = 3 plane (normal largest on x), both windings.
    const Vector3 p(3, 0, 0), q(3, 4, 0), r(3, 0, 4);
    const Ray across(Vector3(0, 1, 1), Vector3(1, 0, 0));
    ExpectHit(IntersectRayTriangle(across, p, q, r), true, 3.0f);
    ExpectHit(IntersectRayTriangle(across, p, r, q), true, 3.0f);
    EXPECT_FALSE(IntersectRayTriangle(Ray(Vector3(0, 3, 3), Vector3(1, 0, 0)), p, q, r).hit);
    // And in the y = -2 plane (normal largest on y).
    const Vector3 e(0, -2, 0), f(4, -2, 0), g(0, -2, 4);
    const Ray rising(Vector3(1, -6, 1), Vector3(0, 2, 0));
    ExpectHit(IntersectRayTriangle(rising, e, f, g), true, 2.0f);
    ExpectHit(IntersectRayTriangle(rising, e, g, f), true, 2.0f);
    EXPECT_FALSE(IntersectRayTriangle(Ray(Vector3(3, -6, 3), Vector3(0, 2, 0)), e, f, g).hit);
}

TEST(Intersection, NearestBoxFaceIsTheIntervalsEntry)
{
    // Two different algorithms: the faces one by one, and the slabs clipped in turn. Away
    // from edges and faces, where their margins differ, they find the same entry.
    std::mt19937 rng(21);
    std::uniform_real_distribution<float> u(-4.0f, 4.0f);
    auto size = [&] { return std::fabs(u(rng)) + 1.0f; };
    const int rays = 10000;
    int hits = 0, inside = 0;
    for (int n = 0; n < rays; ++n)
    {
        const Vector3 corner(u(rng), u(rng), u(rng));
        const BoundingBox box(corner, corner + Vector3(size(), size(), size()));
        const Ray ray(Vector3(u(rng), u(rng), u(rng)), Vector3(u(rng), u(rng), u(rng)));
        float d1 = -1.0f, d2 = -1.0f;
        const bool expected = IntersectRayBoxInterval(ray, box, &d1, &d2);
        const RayHit h = IntersectRayBox(ray, box);
        ASSERT_EQ(h.hit, expected) << n;
        EXPECT_NEAR(h.distance, expected ? d1 : 0.0f, 1e-5f * std::max(1.0f, d1)) << n;
        hits += h.hit;
        inside += h.hit && d1 == 0.0f;
    }
    // Entries through faces of every axis, starts inside, and misses all came up.
    EXPECT_GT(hits - inside, rays / 40);
    EXPECT_GT(inside, rays / 100);
    EXPECT_GT(rays - hits, rays / 10);
}

TEST(Intersection, PolygonsAndTriangles2D)
{
    const Vector3 square[4] = {Vector3(0, 0, 9), Vector3(2, 0, 9), Vector3(2, 2, 9), Vector3(0, 2, 9)};
    EXPECT_TRUE(PointInPolygon2D(square, 4, Vector2(1, 1)));
    EXPECT_FALSE(PointInPolygon2D(square, 4, Vector2(3, 1)));
    EXPECT_FALSE(PointInPolygon2D(square, 0, Vector2(1, 1)));
    // On the lower horizontal edge the edge itself is not counted, only the sides' span.
    EXPECT_FALSE(PointInPolygon2D(square, 4, Vector2(1, 0)));
    EXPECT_TRUE(PointInPolygon2D(square, 4, Vector2(1, 2)));
    const Vector3 tri[3] = {Vector3(0, 0, 0), Vector3(4, 0, 0), Vector3(0, 4, 0)};
    EXPECT_TRUE(PointInPolygon2D(tri, 3, Vector2(1, 1)));
    EXPECT_FALSE(PointInPolygon2D(tri, 3, Vector2(2.5f, 2.5f)));

    EXPECT_TRUE(CircleTouchesPolygon2D(square, 4, Circle(0.5f, 1, 1.6f)));
    EXPECT_FALSE(CircleTouchesPolygon2D(square, 4, Circle(0.3f, 1, 1))); // wholly inside: no edge
    // Near the extension of the bottom edge, far beyond its end: the line counts.
    EXPECT_TRUE(CircleTouchesPolygon2D(square, 4, Circle(0.5f, 50, 0.3f)));
    EXPECT_FALSE(CircleTouchesPolygon2D(square, 0, Circle(5, 0, 0)));

    const Vector2 a(0, 0), b(4, 0), c(0, 4);
    EXPECT_TRUE(PointInTriangle2D(Vector2(1, 1), a, b, c));
    EXPECT_TRUE(PointInTriangle2D(Vector2(1, 1), a, c, b)); // either winding
    EXPECT_FALSE(PointInTriangle2D(Vector2(3, 3), a, b, c));
    EXPECT_TRUE(PointInTriangle2D(Vector2(2, 0.0001f), a, b, c)); // on an edge within 0.001
    EXPECT_FALSE(PointInTriangle2D(Vector2(-1, 1), a, b, c));
    const Vector3 n(0, 0, 1);
    EXPECT_TRUE(PointInTriangle3D(Vector3(1, 1, 0), Vector3(0, 0, 0), Vector3(4, 0, 0), Vector3(0, 4, 0), n));
    EXPECT_FALSE(PointInTriangle3D(Vector3(3, 3, 0), Vector3(0, 0, 0), Vector3(4, 0, 0), Vector3(0, 4, 0), n));
}

TEST(Intersection, SegmentsNearSpheresAndRays)
{
    const BoundingSphere s(1.0f, Vector3(0, 0, 0));
    EXPECT_TRUE(SphereContainsSegment(s, Segment(Vector3(0.5f, 0, 0), Vector3(0, -0.5f, 0))));
    EXPECT_FALSE(SphereContainsSegment(s, Segment(Vector3(1, 0, 0), Vector3(0, 0, 0)))); // on the sphere

    const Ray ray(Vector3(0, 0, 0), Vector3(1, 0, 0));
    // Parallel, however near: false.
    EXPECT_FALSE(RayPassesNearSegment(ray, Vector3(0, 0.01f, 0), Vector3(5, 0.01f, 0), 1.0f));
    // Crossing above the ray at x = 3, height 0.5.
    EXPECT_TRUE(RayPassesNearSegment(ray, Vector3(3, 0.5f, -1), Vector3(3, 0.5f, 1), 0.6f));
    EXPECT_FALSE(RayPassesNearSegment(ray, Vector3(3, 0.5f, -1), Vector3(3, 0.5f, 1), 0.4f));
    // The closest point of the line lies behind the origin: the origin is used.
    EXPECT_FALSE(RayPassesNearSegment(ray, Vector3(-3, 0.5f, -1), Vector3(-3, 0.5f, 1), 0.6f));
    EXPECT_TRUE(RayPassesNearSegment(ray, Vector3(-3, 0.5f, -1), Vector3(-3, 0.5f, 1), 3.1f));
    // The segment ends before the crossing: its end is used.
    EXPECT_FALSE(RayPassesNearSegment(ray, Vector3(3, 0.5f, 1), Vector3(3, 0.5f, 2), 0.6f));
    EXPECT_TRUE(RayPassesNearSegment(ray, Vector3(3, 0.5f, 1), Vector3(3, 0.5f, 2), 1.2f));
}
