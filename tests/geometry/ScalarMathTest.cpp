#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "geometry/ScalarMath.h"

using namespace kv;

namespace
{

std::uint32_t Bits(float f)
{
    std::uint32_t b;
    std::memcpy(&b, &f, sizeof b);
    return b;
}

} // namespace

TEST(ScalarMath, ConstantsDeriveFromTheFloatPi)
{
    EXPECT_EQ(PI, static_cast<float>(4.0 * std::atan(1.0)));
    EXPECT_EQ(PI, 4.0f * std::atan(1.0f));
    // The factor in DEG_TO_RAD is the float nearest 1/180.
    EXPECT_EQ(Bits(0.0055555557f), Bits(static_cast<float>(1.0 / 180.0)));
    EXPECT_EQ(LN_2, static_cast<float>(std::log(2.0)));
}

TEST(ScalarMath, GuardsAtTheirBounds)
{
    EXPECT_TRUE(FloatEquals(1.0f, 1.5f, 0.5f)); // inclusive
    EXPECT_FALSE(FloatEquals(1.0f, 1.5f, 0.49f));
    EXPECT_FALSE(FloatEquals(std::nanf(""), 1.0f, 1e30f));

    EXPECT_EQ(SafeInverseSqrt(0.0f), 0.0f);
    EXPECT_EQ(SafeInverseSqrt(-4.0f), 0.0f);
    EXPECT_EQ(SafeInverseSqrt(1e-39f), 0.0f); // denormal
    EXPECT_EQ(SafeInverseSqrt(1.1754944e-38f), 0.0f);
    EXPECT_EQ(SafeInverseSqrt(4.0f), 0.5f);
    // The double-precision root rounds once: 1/sqrt(3) as a float.
    EXPECT_EQ(InverseSqrt(3.0f), static_cast<float>(1.0 / std::sqrt(3.0)));

    EXPECT_EQ(SafeAcos(-2.0f), PI);
    EXPECT_EQ(SafeAcos(2.0f), 0.0f);
    EXPECT_EQ(SafeAsin(-2.0f), -HALF_PI);
    EXPECT_EQ(SafeAsin(2.0f), HALF_PI);
    EXPECT_FLOAT_EQ(SafeAcos(0.5f), std::acos(0.5f));

    EXPECT_EQ(Sign(-0.0f), 0.0f);
    EXPECT_FALSE(std::signbit(Sign(-0.0f)));
    EXPECT_EQ(Sign(-3.0f), -1.0f);
    EXPECT_EQ(Sign(2.0f), 1.0f);
    EXPECT_EQ(Sign(-7), -1);
    EXPECT_EQ(Sign(0), 0);
    EXPECT_EQ(Sign(9), 1);
}

TEST(ScalarMath, IsFiniteRejectsInfinitiesAndNaNs)
{
    const float inf = std::numeric_limits<float>::infinity();
    const float ok[4] = {1.0f, -3.4028235e38f, 1e-45f, 0.0f};
    EXPECT_TRUE(IsFinite4(ok));
    const float v[4] = {1.0f, 2.0f, 3.0f, inf};
    EXPECT_TRUE(IsFinite3(v));
    EXPECT_FALSE(IsFinite4(v));
    const float n[2] = {0.0f, std::nanf("")};
    EXPECT_FALSE(IsFinite2(n));
    const float m[3] = {1.0f, 1.0f, -inf};
    EXPECT_FALSE(IsFinite3(m));
}

TEST(ScalarMath, AngleUnitsConvertOnlyFromTheirOwnUnit)
{
    const int saved = ScalarMath::GetAngleUnit();
    ScalarMath::SetAngleUnit(ScalarMath::ANGLE_DEGREE);
    EXPECT_EQ(ScalarMath::RadiansToAngleUnits(1.0f), RAD_TO_DEG);
    EXPECT_EQ(ScalarMath::AngleUnitsToRadians(180.0f), 180.0f * DEG_TO_RAD);
    EXPECT_EQ(ScalarMath::AngleUnitsToDegrees(33.0f), 33.0f);
    EXPECT_EQ(ScalarMath::DegreesToAngleUnits(33.0f), 33.0f);

    ScalarMath::SetAngleUnit(ScalarMath::ANGLE_RADIAN);
    EXPECT_EQ(ScalarMath::RadiansToAngleUnits(1.25f), 1.25f);
    EXPECT_EQ(ScalarMath::AngleUnitsToRadians(1.25f), 1.25f);
    EXPECT_EQ(ScalarMath::AngleUnitsToDegrees(1.0f), RAD_TO_DEG);
    EXPECT_EQ(ScalarMath::DegreesToAngleUnits(90.0f), 90.0f * DEG_TO_RAD);
    ScalarMath::SetAngleUnit(saved);
}

TEST(ScalarMath, TablesReadTheEntryAtOrBelowTheAngle)
{
    {
        ScalarMath math(4);
        EXPECT_EQ(ScalarMath::GetAngleUnit(), ScalarMath::ANGLE_DEGREE);
        EXPECT_EQ(ScalarMath::GetTableFactor(), 4.0f / TWO_PI);
        // Entries: sin 0, sin 90, sin 180, sin 270 degrees, taken in double precision.
        EXPECT_EQ(ScalarMath::TableSine(1e-6f), 0.0f);          // entry 0
        EXPECT_EQ(ScalarMath::TableSine(-1e-6f), -1.0f);        // entry 3
        EXPECT_EQ(ScalarMath::TableSine(HALF_PI + 0.1f), 1.0f); // entry 1
        EXPECT_EQ(ScalarMath::TableSine(-HALF_PI - 0.1f),       // entry 2
                  static_cast<float>(std::sin(static_cast<double>(PI))));
        EXPECT_EQ(ScalarMath::TableSine(2.0f * TWO_PI + 0.1f), 0.0f); // wraps
        EXPECT_EQ(ScalarMath::TableTangent(0.3f), 0.0f);
        EXPECT_EQ(ScalarMath::TableTangent(PI + 0.3f), static_cast<float>(std::tan(static_cast<double>(PI))));
        // A negative angle reads its entry within one turn, as the sine does.
        EXPECT_EQ(ScalarMath::TableTangent(-0.3f),
                  static_cast<float>(std::tan(3.0 * static_cast<double>(TWO_PI) / 4.0)));
        // Far outside any int's range the lookup stays defined.
        // (every float that large is a multiple of 4, so it lands on entry 0).
        EXPECT_EQ(ScalarMath::TableSine(3e38f), 0.0f);
        EXPECT_EQ(ScalarMath::TableSine(-3e38f), -1.0f);
    }
    {
        ScalarMath math(4096);
        for (float x = -7.0f; x < 7.0f; x += 0.01f)
            EXPECT_NEAR(ScalarMath::TableSine(x), std::sin(x), TWO_PI / 4096.0f * 1.01f) << x;
    }
    // No live instance: computed directly rather than reading freed tables.
    EXPECT_EQ(ScalarMath::GetTableSize(), 0);
    EXPECT_FLOAT_EQ(ScalarMath::TableSine(0.5f), std::sin(0.5f));
}

TEST(ScalarMath, RandomSources)
{
    EXPECT_EQ(Bits(3.051851e-5f), 0x38000100u);
    EXPECT_EQ(Bits(4.6566134e-10f), 0x30000001u);
    EXPECT_EQ(32767.0f * 3.051851e-5f, 1.0f); // both ends reachable

    std::srand(7);
    for (int i = 0; i < 2000; ++i)
    {
        const float u = UnitRandom();
        ASSERT_GE(u, 0.0f);
        ASSERT_LE(u, 1.0f);
        const float s = SymmetricRandom();
        ASSERT_GE(s, -1.0f);
        ASSERT_LE(s, 1.0f);
        const float r = RandomInRange(5.0f, 6.0f);
        ASSERT_GE(r, 5.0f);
        ASSERT_LE(r, 6.0f);
    }

    // The Lehmer source starts from 0x0F0F0F0F: its first values follow from the rule.
    std::int64_t state = 0x0F0F0F0F;
    for (int i = 0; i < 1000; ++i)
    {
        state = state * 40692 % 2147483399;
        ASSERT_EQ(LehmerUnitRandom(), static_cast<float>(state) * 4.6566134e-10f) << i;
    }
}

TEST(ScalarMath, GaussianDensity)
{
    const float peak = 1.0f / std::sqrt(2.0f * PI);
    EXPECT_FLOAT_EQ(GaussianDensity(0.0f, 0.0f, 1.0f), peak);
    EXPECT_FLOAT_EQ(GaussianDensity(3.0f, 2.0f, 1.0f), peak * std::exp(-0.5f));
    EXPECT_FLOAT_EQ(GaussianDensity(4.0f, 0.0f, 2.0f), std::exp(-2.0f) / (2.0f * std::sqrt(2.0f * PI)));
}
