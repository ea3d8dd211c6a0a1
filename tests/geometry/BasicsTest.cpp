// Scalar helpers, vectors, planes, boxes, triangles and colours on hand-picked cases.
#include "geometry/BoundingBox.h"
#include "geometry/Colour.h"
#include "geometry/Plane.h"
#include "geometry/ScalarMath.h"
#include "geometry/Triangle.h"
#include "geometry/Vector3.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

using namespace kv;

namespace
{

typedef std::vector<float> Floats;

TEST(ScalarMath, ConstantsGuardsAndAngleUnits)
{
    // Each constant from its definition, in double, rounded once; the others from PI's float.
    EXPECT_EQ((Floats{static_cast<float>(4.0 * std::atan(1.0)), PI * 0.5f, PI * 2.0f,
                      PI * static_cast<float>(1.0 / 180.0), 180.0f / PI, static_cast<float>(std::log(2.0))}),
              (Floats{PI, HALF_PI, TWO_PI, DEG_TO_RAD, RAD_TO_DEG, LN_2}));

    const float nan = std::nanf(""), inf = std::numeric_limits<float>::infinity();
    EXPECT_TRUE(FloatEquals(1.0f, 1.5f, 0.5f)); // inclusive
    EXPECT_FALSE(FloatEquals(1.0f, 1.5f, 0.49f) || FloatEquals(nan, 1.0f, 1e30f));
    // Denormals and the smallest normal have no safe root; the root is rounded once.
    EXPECT_EQ((Floats{0, 0, 0, 0, 0.5f, static_cast<float>(1.0 / std::sqrt(3.0)), PI, 0, std::acos(0.5f), -HALF_PI,
                      HALF_PI, -1, 1, 0}),
              (Floats{SafeInverseSqrt(0.0f), SafeInverseSqrt(-4.0f), SafeInverseSqrt(1e-39f),
                      SafeInverseSqrt(std::numeric_limits<float>::min()), SafeInverseSqrt(4.0f), InverseSqrt(3.0f),
                      SafeAcos(-2.0f), SafeAcos(2.0f), SafeAcos(0.5f), SafeAsin(-2.0f), SafeAsin(2.0f), Sign(-3.0f),
                      Sign(2.0f), Sign(-0.0f)}));
    EXPECT_FALSE(std::signbit(Sign(-0.0f)));
    EXPECT_EQ((std::vector<int>{-1, 0, 1}), (std::vector<int>{Sign(-7), Sign(0), Sign(9)}));
    const float v[4] = {1.0f, -3.4028235e38f, 1e-45f, inf}, n[3] = {0.0f, 1.0f, nan};
    EXPECT_TRUE(IsFinite3(v) && IsFinite2(n));
    EXPECT_FALSE(IsFinite4(v) || IsFinite3(n));

    const int saved = ScalarMath::GetAngleUnit();
    ScalarMath::SetAngleUnit(ScalarMath::ANGLE_DEGREE);
    const Floats degree{ScalarMath::RadiansToAngleUnits(1.0f), ScalarMath::AngleUnitsToRadians(180.0f),
                        ScalarMath::AngleUnitsToDegrees(33.0f), ScalarMath::DegreesToAngleUnits(33.0f)};
    EXPECT_EQ((Floats{RAD_TO_DEG, 180.0f * DEG_TO_RAD, 33.0f, 33.0f}), degree);
    ScalarMath::SetAngleUnit(ScalarMath::ANGLE_RADIAN);
    const Floats radian{ScalarMath::RadiansToAngleUnits(1.25f), ScalarMath::AngleUnitsToRadians(1.25f),
                        ScalarMath::AngleUnitsToDegrees(1.0f), ScalarMath::DegreesToAngleUnits(90.0f)};
    EXPECT_EQ((Floats{1.25f, 1.25f, RAD_TO_DEG, 90.0f * DEG_TO_RAD}), radian);
    ScalarMath::SetAngleUnit(saved);
}

TEST(ScalarMath, TablesReadTheEntryAtOrBelowTheAngle)
{
    {
        ScalarMath math(4);
        EXPECT_EQ(ScalarMath::ANGLE_DEGREE, ScalarMath::GetAngleUnit());
        EXPECT_EQ(4.0f / TWO_PI, ScalarMath::GetTableFactor());
        // Entries: sin and tan of 0, 90, 180 and 270 degrees, taken in double precision. A
        // negative angle reads within one turn; far beyond an int the lookup stays defined
        // (every such float is a multiple of 4).
        const double turn = static_cast<double>(TWO_PI);
        EXPECT_EQ(
            (Floats{0, -1, 1, static_cast<float>(std::sin(turn / 2)), 0, 0, static_cast<float>(std::tan(turn / 2)),
                    static_cast<float>(std::tan(3 * turn / 4)), 0, -1}),
            (Floats{ScalarMath::TableSine(1e-6f), ScalarMath::TableSine(-1e-6f), ScalarMath::TableSine(HALF_PI + 0.1f),
                    ScalarMath::TableSine(-HALF_PI - 0.1f), ScalarMath::TableSine(2.0f * TWO_PI + 0.1f),
                    ScalarMath::TableTangent(0.3f), ScalarMath::TableTangent(PI + 0.3f),
                    ScalarMath::TableTangent(-0.3f), ScalarMath::TableSine(3e38f), ScalarMath::TableSine(-3e38f)}));
    }
    {
        ScalarMath math(4096);
        for (float x = -7.0f; x < 7.0f; x += 0.01f)
            ASSERT_NEAR(std::sin(x), ScalarMath::TableSine(x), TWO_PI / 4096.0f * 1.01f) << x;
    }
    // No live instance: computed directly rather than reading freed tables.
    EXPECT_EQ(0, ScalarMath::GetTableSize());
    EXPECT_FLOAT_EQ(std::sin(0.5f), ScalarMath::TableSine(0.5f));
}

TEST(ScalarMath, RandomSources)
{
    // rand()'s low 15 bits scaled by the float nearest 1/32767.
    const float scale = static_cast<float>(1.0 / 32767.0);
    std::srand(7);
    int draws[2000];
    for (int& d : draws)
        d = std::rand() & 0x7FFF;
    std::srand(7);
    for (int d : draws)
        ASSERT_EQ(static_cast<float>(d) * scale, UnitRandom()) << d;
    std::srand(11);
    for (int i = 0; i < 1000; ++i)
    {
        const float s = SymmetricRandom(), r = RandomInRange(5.0f, 6.0f);
        ASSERT_TRUE(s >= -1.0f && s <= 1.0f && r >= 5.0f && r <= 6.0f) << s << " " << r;
    }

    // The Lehmer source starts from 0x0F0F0F0F; its draws follow the rule in 64 bits,
    // scaled by the float nearest 1 / 2147483399.
    int64_t state = 0x0F0F0F0F;
    for (int i = 0; i < 1000; ++i)
    {
        state = state * 40692 % 2147483399;
        ASSERT_EQ(static_cast<float>(state) * static_cast<float>(1.0 / 2147483399.0), LehmerUnitRandom()) << i;
    }

    const float peak = 1.0f / std::sqrt(2.0f * PI);
    EXPECT_FLOAT_EQ(peak, GaussianDensity(0.0f, 0.0f, 1.0f));
    EXPECT_FLOAT_EQ(peak * std::exp(-0.5f), GaussianDensity(3.0f, 2.0f, 1.0f));
    EXPECT_FLOAT_EQ(std::exp(-2.0f) / (2.0f * std::sqrt(2.0f * PI)), GaussianDensity(4.0f, 0.0f, 2.0f));
}

typedef std::vector<Vector3> Vectors;

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
    EXPECT_EQ("Vector3(1.5, -2, 0)", testing::PrintToString(Vector3(1.5f, -2.0f, 0.0f)));
}

TEST(Plane, ConstructorsNormaliseAndSides)
{
    Plane p(0, 0, 4, 8), tiny(5e-9f, 0, 0, 1);
    EXPECT_EQ((std::vector<float>{4.0f, 5e-9f}), (std::vector<float>{p.Normalise(), tiny.Normalise()}));
    EXPECT_EQ((std::vector<Plane>{Plane(0, 1, 0, -3), Plane(0, 2, 0, -8), Plane(0, 0, 1, -2), Plane(0, 0, 1, 2),
                                  Plane(5e-9f, 0, 0, 1)}),
              (std::vector<Plane>{Plane(Vector3(0, 1, 0), 3.0f), Plane(Vector3(0, 2, 0), Vector3(5, 4, 1)),
                                  Plane(Vector3(0, 0, 2), Vector3(1, 0, 2), Vector3(0, 1, 2)), p, tiny}));
    EXPECT_EQ("Plane(normal=Vector3(0, 1, 0), d=-2.5)", testing::PrintToString(Plane(0, 1, 0, -2.5f)));
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

TEST(Colour, PackingOrdersTruncateAndWrapAndUnpackingReadsEachOrder)
{
    // No clamping: 2.0 -> 510 -> 0xFE, -1.0 -> -255 -> 0x01; truncation, not rounding:
    // 0.999 * 255 = 254.7; values no integer can hold pack as 0.
    const CColour c(1.0f, 0.5f, 0.0f, 1.0f);
    EXPECT_EQ(
        (std::vector<uint32_t>{0xFFFF7F00u, 0xFF7F00FFu, 0xFF007FFFu, 0x007FFFFFu, 0x00FE0100u, 0xFE000000u,
                               0xFF000000u}),
        (std::vector<uint32_t>{c.toD3DColor(), c.toPackedRGBA(), c.toPackedABGR(), c.toPackedBGRA(),
                               CColour(2.0f, -1.0f, 0.0f, 0.0f).toD3DColor(), CColour(0.999f, 0, 0, 0).toPackedRGBA(),
                               CColour(1e30f, std::nanf(""), 0, 1).toD3DColor()}));
    const float k = 1.0f / 255.0f;
    CColour argb, abgr, bgra, rgba;
    argb.fromPackedARGB(0x80FF4000u);
    abgr.fromPackedABGR(0x01020304u);
    bgra.fromPackedBGRA(0x01020304u);
    rgba.fromPackedRGBA(0x01020304u);
    EXPECT_EQ((std::vector<CColour>{CColour(255 * k, 64 * k, 0, 128 * k), CColour(4 * k, 3 * k, 2 * k, 1 * k),
                                    CColour(3 * k, 2 * k, 1 * k, 4 * k), CColour(1 * k, 2 * k, 3 * k, 4 * k)}),
              (std::vector<CColour>{argb, abgr, bgra, rgba}));
    EXPECT_NE(CColour(std::nanf(""), 0, 0, 0), CColour(std::nanf(""), 0, 0, 0));
}

TEST(Colour, HueSaturationBrightness)
{
    // Black has neither hue nor saturation; every other colour is in the round trip below.
    float h = -1, s = -1, v = -1;
    CColour(0, 0, 0, 0.3f).toHueSaturationBrightness(h, s, v);
    EXPECT_EQ((Floats{0, 0, 0}), (Floats{h, s, v}));
    const struct
    {
        float h, s, v;
        CColour c;
    } fromRows[] = {
        {1.0f, 1.0f, 1.0f, CColour(1, 0, 0, 0.25f)},          // hue 1 * 6 wraps to sector 0
        {0.7f, 0.0f, 0.4f, CColour(0.4f, 0.4f, 0.4f, 0.25f)}, // grey, hue ignored
        {0.7f, 0.9f, 0.0f, CColour(0, 0, 0, 0.25f)},          // black
        {0.5f, 1.0f, 7.0f, CColour(0, 1, 1, 0.25f)},          // brightness clamps to 1
        {-0.5f, 2.0f, 1.0f, CColour(0, 1, 1, 0.25f)},         // hue wraps to 0.5, saturation clamps
        {2.5f, 1.0f, 1.0f, CColour(0, 1, 1, 0.25f)},          // whole turns dropped
        {-2.5f, 1.0f, 1.0f, CColour(0, 1, 1, 0.25f)},         // beyond one turn: the fraction
    };
    for (const auto& r : fromRows)
    {
        CColour c(9, 9, 9, 0.25f);
        c.fromHueSaturationBrightness(r.h, r.s, r.v);
        EXPECT_EQ(r.c, c) << &r - fromRows;
    }
    // Round trip through every sector.
    for (int i = 0; i < 36; ++i)
    {
        const float hue = (i + 0.5f) / 36.0f;
        CColour c;
        c.fromHueSaturationBrightness(hue, 0.6f, 0.8f);
        c.toHueSaturationBrightness(h, s, v);
        EXPECT_NEAR(hue, h, 1e-5f) << i;
        EXPECT_NEAR(0.6f, s, 1e-5f) << i;
        EXPECT_NEAR(0.8f, v, 1e-6f) << i;
    }
}

} // namespace
