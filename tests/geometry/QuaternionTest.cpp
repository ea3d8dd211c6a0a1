#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "GeometryTestUtil.h"
#include "geometry/Matrix3.h"
#include "geometry/Quaternion.h"
#include "geometry/ScalarMath.h"

using namespace kv;
using geomtest::MaxAbsDiff;

namespace
{

Quaternion AngleAxis(float angle, const Vector3& axis)
{
    Quaternion q;
    q.FromAngleAxis(angle, axis);
    return q;
}

const Vector3 kZ(0, 0, 1);

TEST(Quaternion, ArithmeticInverseAndRotation)
{
    const Quaternion i(0, 1, 0, 0), j(0, 0, 1, 0), k(0, 0, 0, 1);
    EXPECT_EQ(k, i * j);
    EXPECT_EQ(-k, j * i);
    EXPECT_EQ(i, j * k);
    EXPECT_EQ(j, k * i);
    EXPECT_EQ(Quaternion(-1, 0, 0, 0), i * i);
    const Quaternion q(1, 2, 3, 4);
    EXPECT_EQ(30.0f, q.Norm());
    EXPECT_EQ(Quaternion(1, -2, -3, -4), q.UnitInverse());
    EXPECT_LE(MaxAbsDiff(Quaternion::IDENTITY, q * q.Inverse()), 1e-6f);
    EXPECT_EQ(q * 2.0f, 2.0f * q);
    EXPECT_EQ(Quaternion(0.5f, 1, 1.5f, 2), q / 2.0f);
    Quaternion n = q;
    EXPECT_EQ(30.0f, n.Normalise());
    EXPECT_NEAR(1.0f, n.Norm(), 1e-6f);
    EXPECT_FALSE(std::isfinite(Quaternion::ZERO.Inverse().w)); // no guard, no fault

    const Vector3 v(0.3f, -1.7f, 2.9f);
    EXPECT_EQ(v, Quaternion::IDENTITY.Rotate(v)); // exactly
    EXPECT_LE(MaxAbsDiff(Vector3(0, 1, 0), AngleAxis(HALF_PI, kZ).Rotate(Vector3(1, 0, 0))), 1e-6f);
    float angle = -1;
    Vector3 axis;
    Quaternion::IDENTITY.ToAngleAxis(angle, axis);
    EXPECT_EQ(0.0f, angle);
    EXPECT_EQ(Vector3(1, 0, 0), axis);
    AngleAxis(1.2f, Vector3(0, 0.6f, 0.8f)).ToAngleAxis(angle, axis);
    EXPECT_NEAR(1.2f, angle, 1e-5f);
    EXPECT_LE(MaxAbsDiff(Vector3(0, 0.6f, 0.8f), axis), 1e-6f);
}

TEST(Quaternion, MatrixRoundTripAndAxes)
{
    // Trace -1: the largest-diagonal road, i = 2 and i = 0.
    Quaternion q;
    q.FromRotationMatrix(Matrix3(-1, 0, 0, 0, -1, 0, 0, 0, 1));
    EXPECT_EQ(Quaternion(0, 0, 0, 1), q);
    q.FromRotationMatrix(Matrix3(1, 0, 0, 0, -1, 0, 0, 0, -1));
    EXPECT_EQ(Quaternion(0, 1, 0, 0), q);

    std::mt19937 rng(1234);
    for (int n = 0; n < 2000; ++n)
    {
        q = geomtest::RandomUnitQuaternion(rng);
        Matrix3 m;
        q.ToRotationMatrix(m);
        ASSERT_LT(geomtest::Orthonormality(m), 2e-6f) << n;
        ASSERT_NEAR(1.0f, m.Determinant(), 2e-6f) << n;
        Quaternion back;
        back.FromRotationMatrix(m);
        const float sign = Quaternion::Dot(back, q) < 0.0f ? -1.0f : 1.0f;
        ASSERT_LE(MaxAbsDiff(q, back * sign), 2e-6f) << n;
        Vector3 axes[3];
        q.ToAxes(axes);
        ASSERT_EQ(q.XAxis(), axes[0]);
        ASSERT_EQ(q.YAxis(), axes[1]);
        ASSERT_EQ(q.ZAxis(), axes[2]);
        const Vector3 v(0.5f, -2.0f, 1.0f);
        ASSERT_LE(MaxAbsDiff(m * v, q.Rotate(v)), 1e-5f) << n;
    }
}

TEST(Quaternion, SingleAnglesAndEquality)
{
    const Quaternion x = AngleAxis(0.7f, Vector3(1, 0, 0)), y = AngleAxis(-0.4f, Vector3(0, 1, 0));
    const Quaternion z = AngleAxis(2.5f, kZ);
    const float angles[6] = {x.AngleAboutX(true),  x.AngleAboutX(false), y.AngleAboutY(true),
                             y.AngleAboutY(false), z.AngleAboutZ(true),  z.AngleAboutZ(false)};
    const float expected[6] = {0.7f, 0.7f, -0.4f, -0.4f, 2.5f, 2.5f};
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(expected[i], angles[i], 1e-6f) << i;
    // Past the pole the arcsine form saturates at a quarter turn.
    EXPECT_EQ(HALF_PI, Quaternion(1.0f, 0.0f, 1.0f, 0.0f).AngleAboutY(false));

    const Quaternion q = AngleAxis(0.9f, Vector3(0, 0.6f, 0.8f));
    EXPECT_TRUE(q.EqualsWithin(-q, 1e-3f)); // the negation is the same rotation
    EXPECT_TRUE(q.EqualsWithin(q, 1e-3f));
    EXPECT_FALSE(q.EqualsWithin(AngleAxis(0.95f, Vector3(0, 0.6f, 0.8f)), 1e-3f));
}

TEST(Quaternion, Interpolations)
{
    const Quaternion p = AngleAxis(0.2f, Vector3(1, 0, 0)), q = AngleAxis(1.4f, Vector3(0, 1, 0));
    const Quaternion a = Quaternion::IDENTITY, b = AngleAxis(HALF_PI, kZ), half = AngleAxis(HALF_PI * 0.5f, kZ);
    const struct
    {
        Quaternion got, expected;
        float tolerance;
    } rows[] = {
        {Quaternion::Slerp(0.0f, p, q), p, 1e-6f},
        {Quaternion::Slerp(1.0f, p, q), q, 1e-6f},
        {Quaternion::Slerp(1.0f, p, -q, false), -q, 1e-6f},
        {Quaternion::Slerp(1.0f, p, -q, true), q, 1e-6f},
        // Dot exactly 1: the linear road, normalised.
        {Quaternion::Slerp(0.5f, p, p), p, 1e-7f},
        // Halfway along a quarter turn is an eighth of a turn.
        {Quaternion::Slerp(0.5f, a, b), half, 1e-6f},
        {Quaternion::Nlerp(0.5f, a, b), half, 1e-6f},
        {Quaternion::Nlerp(0.5f, a, -b, true), half, 1e-6f},
        {Quaternion::Nlerp(0.5f, a, -b, false), Quaternion(1 - std::cos(PI / 4), 0, 0, -std::sin(PI / 4)).Normalised(),
         1e-6f},
        {Quaternion::SlerpWithSpins(0.5f, a, b, 0), half, 1e-6f},
        // One spin shifts both sine arguments by pi * t = pi / 2.
        {Quaternion::SlerpWithSpins(0.5f, a, b, 1), Quaternion(-std::sin(PI / 8), 0, 0, std::cos(PI / 8)), 1e-6f},
    };
    for (const auto& r : rows)
        EXPECT_LE(MaxAbsDiff(r.expected, r.got), r.tolerance) << &r - rows;
    EXPECT_EQ(Quaternion::Slerp(0.5f, p, p).Normalised(), Quaternion::Slerp(0.5f, p, p));
    EXPECT_EQ(p, Quaternion::SlerpWithSpins(0.5f, p, p, 3));

    // Squad through control points of a steady rotation stays on it; control
    // points off the path pull the curve towards them at mid-segment only.
    const Quaternion q0 = AngleAxis(0.0f, kZ), q1 = AngleAxis(0.5f, kZ), q2 = AngleAxis(1.0f, kZ);
    const Quaternion q3 = AngleAxis(1.5f, kZ), mid = AngleAxis(0.75f, kZ), off = AngleAxis(0.6f, Vector3(1, 0, 0));
    Quaternion a1, b1, a2, b2;
    Quaternion::SquadControlPoints(q0, q1, q2, a1, b1);
    Quaternion::SquadControlPoints(q1, q2, q3, a2, b2);
    EXPECT_LE(std::max(MaxAbsDiff(q1, a1), std::max(MaxAbsDiff(q1, b1), MaxAbsDiff(q2, a2))), 1e-6f);
    EXPECT_LE(MaxAbsDiff(mid, Quaternion::Squad(0.5f, q1, a1, a2, q2)), 1e-5f);
    EXPECT_LE(MaxAbsDiff(q1, Quaternion::Squad(0.0f, q1, off, off, q2)), 1e-6f);
    EXPECT_FALSE(Quaternion::Squad(0.5f, q1, off, off, q2).EqualsWithin(mid, 1e-2f));
}

TEST(Quaternion, ExpLogAndDirection)
{
    const Quaternion q = AngleAxis(1.1f, Vector3(0.48f, 0.6f, 0.64f));
    const Quaternion l = q.Log();
    EXPECT_EQ(0.0f, l.w);
    EXPECT_NEAR(0.55f * 0.48f, l.x, 1e-6f);
    EXPECT_LE(MaxAbsDiff(q, l.Exp()), 1e-6f);
    // Near zero angle both copy xyz unscaled.
    EXPECT_EQ(1e-4f, Quaternion(0.0f, 1e-4f, 0.0f, 0.0f).Exp().x);
    EXPECT_EQ(1e-4f, Quaternion(1.0f, 1e-4f, 0, 0).Log().x);

    Quaternion d(0.5f, 0.5f, 0.5f, 0.5f);
    EXPECT_FALSE(d.FromDirection(Vector3(0, 0, 2), kZ));
    EXPECT_EQ(Quaternion(0.5f, 0.5f, 0.5f, 0.5f), d); // untouched
    // Columns side, direction, up: (1,0,0), (0,1,0), (0,0,1) is no rotation.
    ASSERT_TRUE(d.FromDirection(Vector3(0, 3, 0), kZ));
    EXPECT_LE(MaxAbsDiff(Quaternion::IDENTITY, d), 1e-6f);
    ASSERT_TRUE(d.FromDirection(Vector3(1, 0, 0), kZ));
    EXPECT_LE(MaxAbsDiff(Vector3(1, 0, 0), d.YAxis()), 1e-6f);
}

} // namespace
