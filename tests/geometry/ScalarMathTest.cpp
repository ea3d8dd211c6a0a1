#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <vector>

#include "geometry/ScalarMath.h"

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
        // Entries: sin and tan of 0, 90, 180 and 270 degrees, taken in double precision.
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

} // namespace
