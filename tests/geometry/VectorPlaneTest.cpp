#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "geometry/BoundingBox.h"
#include "geometry/Plane.h"
#include "geometry/Triangle.h"
#include "geometry/Vector3.h"

using namespace kv;

TEST(Vector3, NormaliseLeavesTinyVectorsAlone)
{
    Vector3 v(3.0f, 0.0f, 4.0f);
    EXPECT_EQ(v.Normalise(), 5.0f);
    EXPECT_EQ(v, Vector3(0.6f, 0.0f, 0.8f));
    Vector3 tiny(5e-9f, 0.0f, 0.0f);
    EXPECT_EQ(tiny.Normalise(), 5e-9f);
    EXPECT_EQ(tiny.x, 5e-9f);

    EXPECT_TRUE(Vector3Equals(1, 2, 3, 1.5f, 2, 3, 0.5f));
    EXPECT_FALSE(Vector3Equals(1, 2, 3, 1, 2, 3.6f, 0.5f));
    EXPECT_EQ(Lerp(Vector3(0, 2, 4), Vector3(2, 4, 0), 0.25f), Vector3(0.5f, 2.5f, 3.0f));

    std::ostringstream o;
    o << Vector3(1.5f, -2.0f, 0.0f);
    EXPECT_EQ(o.str(), "Vector3(1.5, -2, 0)");
}

TEST(Vector3, PerpendicularCrossesTheSmallestAxis)
{
    EXPECT_EQ(Perpendicular(Vector3(0, 0, 1)), Vector3(-1, 0, 0)); // axis 1
    // (1, 1, 1) takes axis 2: (1, 1, 1) x z = (1, -1, 0), normalised.
    const Vector3 p = Perpendicular(Vector3(1, 1, 1));
    EXPECT_FLOAT_EQ(p.x, 1.0f / std::sqrt(2.0f));
    EXPECT_FLOAT_EQ(p.y, -1.0f / std::sqrt(2.0f));
    EXPECT_EQ(p.z, 0.0f);
    EXPECT_EQ(Perpendicular(Vector3(0, 0, 0)), Vector3(0, 0, 0));
    // y largest, z above x: axis 0.
    const Vector3 q = Perpendicular(Vector3(0.1f, 5.0f, 1.0f));
    EXPECT_EQ(q.x, 0.0f);
    EXPECT_NEAR(q.Dot(Vector3(0.1f, 5.0f, 1.0f)), 0.0f, 1e-6f);
    EXPECT_FLOAT_EQ(q.Length(), 1.0f);
}

TEST(Plane, ConstructorsAndNormalise)
{
    const Plane byConstant(Vector3(0, 1, 0), 3.0f);
    EXPECT_EQ(byConstant.d, -3.0f);
    const Plane byValues(0, 1, 0, 3.0f);
    EXPECT_EQ(byValues.d, 3.0f);
    const Plane byPoint(Vector3(0, 2, 0), Vector3(5, 4, 1));
    EXPECT_EQ(byPoint.d, -8.0f);
    EXPECT_EQ(byPoint.normal, Vector3(0, 2, 0)); // not normalised
    const Plane byPoints(Vector3(0, 0, 2), Vector3(1, 0, 2), Vector3(0, 1, 2));
    EXPECT_EQ(byPoints.normal, Vector3(0, 0, 1));
    EXPECT_EQ(byPoints.d, -2.0f);

    Plane p(0, 0, 4, 8);
    EXPECT_EQ(p.Normalise(), 4.0f);
    EXPECT_EQ(p, Plane(0, 0, 1, 2));
    Plane tiny(5e-9f, 0, 0, 1);
    EXPECT_EQ(tiny.Normalise(), 5e-9f);
    EXPECT_EQ(tiny, Plane(5e-9f, 0, 0, 1));

    std::ostringstream o;
    o << Plane(0, 1, 0, -2.5f);
    EXPECT_EQ(o.str(), "Plane(normal=Vector3(0, 1, 0), d=-2.5)");

    const Vector3 projected = Plane(0, 0, 1, 7).ProjectVector(Vector3(1, 2, 3));
    EXPECT_EQ(projected, Vector3(1, 2, 0));
}

TEST(Plane, Sides)
{
    const Plane p(0, 1, 0, -1); // y = 1
    EXPECT_EQ(p.Side(Vector3(5, 1, 5)), PLANE_NO_SIDE);
    EXPECT_EQ(p.Side(Vector3(0, 2, 0)), PLANE_POSITIVE_SIDE);
    EXPECT_EQ(p.Side(Vector3(0, 0, 0)), PLANE_NEGATIVE_SIDE);
    EXPECT_EQ(p.Side(Vector3(5, 1, 5), Vector3(0, 0, 0)), PLANE_BOTH_SIDES);
    EXPECT_EQ(p.Side(Vector3(0, 3, 0), Vector3(9, 1.5f, 9)), PLANE_POSITIVE_SIDE);
    EXPECT_EQ(p.Side(Vector3(0, 3, 0), Vector3(9, 2.0f, 9)), PLANE_BOTH_SIDES);
    EXPECT_EQ(p.Side(Vector3(0, -1, 0), Vector3(0, 1.5f, 0)), PLANE_NEGATIVE_SIDE);

    EXPECT_EQ(p.Side(BoundingBox()), PLANE_NO_SIDE);
    EXPECT_EQ(p.Side(BoundingBox::Infinite()), PLANE_BOTH_SIDES);
    EXPECT_EQ(p.Side(BoundingBox(Vector3(0, 2, 0), Vector3(1, 3, 1))), PLANE_POSITIVE_SIDE);
    EXPECT_EQ(p.Side(BoundingBox(Vector3(0, 0, 0), Vector3(1, 3, 1))), PLANE_BOTH_SIDES);
}

TEST(BoundingBox, CopiesAndHalfSizes)
{
    BoundingBox finite(Vector3(-1, 0, 2), Vector3(3, 2, 4));
    int owner = 0;
    finite.userData = &owner;
    const BoundingBox copy(finite);
    EXPECT_EQ(copy.minimum, finite.minimum);
    EXPECT_EQ(copy.maximum, finite.maximum);
    EXPECT_EQ(copy.userData, nullptr);

    BoundingBox inf = BoundingBox::Infinite();
    inf.minimum = Vector3(-5, -5, -5);
    const BoundingBox infCopy(inf);
    EXPECT_TRUE(infCopy.IsInfinite());
    EXPECT_EQ(infCopy.minimum, Vector3(0, 0, 0));
    EXPECT_EQ(infCopy.maximum, Vector3(1, 1, 1));

    EXPECT_EQ(BoxHalfSize(finite), Vector3(2, 1, 1));
    const Vector3 h = BoxHalfSize(inf);
    EXPECT_TRUE(std::isinf(h.x) && std::isinf(h.y) && std::isinf(h.z) && h.x > 0);
    EXPECT_EQ(BoxHalfSize(BoundingBox()), Vector3(0, 0, 0));
    EXPECT_FLOAT_EQ(BoxBoundingRadius(finite), 0.5f * std::sqrt(24.0f));
}

TEST(Triangle, NormalsPlanesAndTangent)
{
    const Vector3 a(0, 0, 0), b(2, 0, 0), c(0, 2, 0);
    EXPECT_EQ(TriangleNormalRaw(a, b, c), Vector3(0, 0, 4));
    EXPECT_EQ(TriangleNormal(a, b, c), Vector3(0, 0, 1));
    const Plane lifted = TrianglePlane(Vector3(0, 0, 3), Vector3(2, 0, 3), Vector3(0, 2, 3));
    EXPECT_EQ(lifted, Plane(0, 0, 1, -3));
    EXPECT_EQ(TrianglePlaneRaw(Vector3(0, 0, 3), Vector3(2, 0, 3), Vector3(0, 2, 3)), Plane(0, 0, 4, -12));
    // Degenerate: nothing to normalise.
    EXPECT_EQ(TriangleNormal(a, b, b * 2.0f), Vector3(0, 0, 0));

    // s grows along +x, t along +y; the raw tangent (-1, 0, 0) fails the handedness
    // test against the normal (0, 0, 1) and is turned round.
    const Vector3 t = TriangleTangent(a, b, c, 0, 0, 1, 0, 0, 1);
    EXPECT_EQ(t, Vector3(1, 0, 0));
    // Mirroring s flips the handedness test and so the tangent.
    const Vector3 mirrored = TriangleTangent(a, b, c, 0, 0, -1, 0, 0, 1);
    EXPECT_EQ(mirrored, -t);
}
