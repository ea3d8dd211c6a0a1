#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <vector>

#include "geometry/BoundingBox.h"
#include "geometry/Plane.h"
#include "geometry/Triangle.h"
#include "geometry/Vector3.h"

using namespace kv;

namespace
{

typedef std::vector<Vector3> Vectors;

template <class T>
std::string Text(const T& value)
{
    std::ostringstream o;
    o << value;
    return o.str();
}

TEST(Vector3, NormaliseEqualsLerpAndPerpendicular)
{
    Vector3 v(3.0f, 0.0f, 4.0f), tiny(5e-9f, 0.0f, 0.0f); // too short to normalise: left alone
    EXPECT_EQ((std::vector<float>{5.0f, 5e-9f}), (std::vector<float>{v.Normalise(), tiny.Normalise()}));
    const float h = 1.0f / std::sqrt(2.0f);
    // The cross product with the unit axis the rule picks, normalised.
    EXPECT_EQ((Vectors{Vector3(0.6f, 0.0f, 0.8f), Vector3(5e-9f, 0, 0), Vector3(0.5f, 2.5f, 3.0f), Vector3(-1, 0, 0),
                       Vector3(h, -h, 0), Vector3(0, 0, 0), Vector3(0, 1, -5).Normalised()}),
              (Vectors{v, tiny, Lerp(Vector3(0, 2, 4), Vector3(2, 4, 0), 0.25f), Perpendicular(Vector3(0, 0, 1)),
                       Perpendicular(Vector3(1, 1, 1)), Perpendicular(Vector3(0, 0, 0)),
                       Perpendicular(Vector3(0.1f, 5.0f, 1.0f))}));
    EXPECT_TRUE(Vector3Equals(1, 2, 3, 1.5f, 2, 3, 0.5f));
    EXPECT_FALSE(Vector3Equals(1, 2, 3, 1, 2, 3.6f, 0.5f));
    EXPECT_EQ("Vector3(1.5, -2, 0)", Text(Vector3(1.5f, -2.0f, 0.0f)));
}

TEST(Plane, ConstructorsNormaliseAndSides)
{
    Plane p(0, 0, 4, 8), tiny(5e-9f, 0, 0, 1);
    EXPECT_EQ((std::vector<float>{4.0f, 5e-9f}), (std::vector<float>{p.Normalise(), tiny.Normalise()}));
    EXPECT_EQ((std::vector<Plane>{Plane(0, 1, 0, -3), Plane(0, 2, 0, -8), Plane(0, 0, 1, -2), Plane(0, 0, 1, 2),
                                  Plane(5e-9f, 0, 0, 1)}),
              (std::vector<Plane>{Plane(Vector3(0, 1, 0), 3.0f), Plane(Vector3(0, 2, 0), Vector3(5, 4, 1)),
                                  Plane(Vector3(0, 0, 2), Vector3(1, 0, 2), Vector3(0, 1, 2)), p, tiny}));
    EXPECT_EQ("Plane(normal=Vector3(0, 1, 0), d=-2.5)", Text(Plane(0, 1, 0, -2.5f)));
    EXPECT_EQ(Vector3(1, 2, 0), Plane(0, 0, 1, 7).ProjectVector(Vector3(1, 2, 3)));

    const Plane y1(0, 1, 0, -1); // y = 1
    EXPECT_EQ((std::vector<PlaneSide>{PLANE_NO_SIDE, PLANE_POSITIVE_SIDE, PLANE_NEGATIVE_SIDE, PLANE_BOTH_SIDES,
                                      PLANE_POSITIVE_SIDE, PLANE_BOTH_SIDES, PLANE_NEGATIVE_SIDE, PLANE_BOTH_SIDES,
                                      PLANE_NO_SIDE, PLANE_BOTH_SIDES, PLANE_POSITIVE_SIDE, PLANE_BOTH_SIDES}),
              (std::vector<PlaneSide>{
                  y1.Side(Vector3(5, 1, 5)), y1.Side(Vector3(0, 2, 0)), y1.Side(Vector3(0, 0, 0)),
                  y1.Side(Vector3(5, 1, 5), Vector3(0, 0, 0)), y1.Side(Vector3(0, 3, 0), Vector3(9, 1.5f, 9)),
                  y1.Side(Vector3(0, 3, 0), Vector3(9, 2.0f, 9)), y1.Side(Vector3(0, -1, 0), Vector3(0, 1.5f, 0)),
                  y1.Side(Vector3(0, 0.5f, 0), Vector3(0, 1.0f, 0)), y1.Side(BoundingBox()),
                  y1.Side(BoundingBox::Infinite()), y1.Side(BoundingBox(Vector3(0, 2, 0), Vector3(1, 3, 1))),
                  y1.Side(BoundingBox(Vector3(0, 0, 0), Vector3(1, 3, 1)))}));
}

TEST(BoundingBox, CopiesAndHalfSizes)
{
    BoundingBox finite(Vector3(-1, 0, 2), Vector3(3, 2, 4));
    int owner = 0;
    finite.userData = &owner;
    const BoundingBox copy(finite);
    BoundingBox inf = BoundingBox::Infinite();
    inf.minimum = Vector3(-5, -5, -5);
    const BoundingBox infCopy(inf);
    EXPECT_EQ(nullptr, copy.userData);
    EXPECT_TRUE(infCopy.IsInfinite());
    EXPECT_EQ((Vectors{finite.minimum, finite.maximum, Vector3(0, 0, 0), Vector3(1, 1, 1), Vector3(2, 1, 1),
                       Vector3(0, 0, 0)}),
              (Vectors{copy.minimum, copy.maximum, infCopy.minimum, infCopy.maximum, BoxHalfSize(finite),
                       BoxHalfSize(BoundingBox())}));
    const Vector3 h = BoxHalfSize(inf);
    EXPECT_TRUE(std::isinf(h.x) && std::isinf(h.y) && std::isinf(h.z) && h.x > 0);
    EXPECT_FLOAT_EQ(0.5f * std::sqrt(24.0f), BoxBoundingRadius(finite));
}

TEST(Triangle, NormalsPlanesAndTangent)
{
    const Vector3 a(0, 0, 0), b(2, 0, 0), c(0, 2, 0), a3(0, 0, 3), b3(2, 0, 3), c3(0, 2, 3);
    // s grows along +x, t along +y: the raw tangent (-1, 0, 0) fails the handedness
    // test against the normal (0, 0, 1) and is turned round; mirroring s flips it.
    EXPECT_EQ((Vectors{Vector3(0, 0, 4), Vector3(0, 0, 1), Vector3(0, 0, 0), Vector3(1, 0, 0), Vector3(-1, 0, 0)}),
              (Vectors{TriangleNormalRaw(a, b, c), TriangleNormal(a, b, c), TriangleNormal(a, b, b * 2.0f),
                       TriangleTangent(a, b, c, 0, 0, 1, 0, 0, 1), TriangleTangent(a, b, c, 0, 0, -1, 0, 0, 1)}));
    EXPECT_EQ(Plane(0, 0, 1, -3), TrianglePlane(a3, b3, c3));
    EXPECT_EQ(Plane(0, 0, 4, -12), TrianglePlaneRaw(a3, b3, c3));
}

} // namespace
