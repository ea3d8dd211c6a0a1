#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

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

TEST(Quaternion, ArithmeticInverseRotationAndMatrices)
{
    const Quaternion i(0, 1, 0, 0), j(0, 0, 1, 0), k(0, 0, 0, 1), q(1, 2, 3, 4);
    Quaternion n = q;
    const float norm = n.Normalise();
    EXPECT_EQ((std::vector<Quaternion>{k, -k, i, j, Quaternion(-1, 0, 0, 0), Quaternion(1, -2, -3, -4), q * 2.0f,
                                       Quaternion(0.5f, 1, 1.5f, 2)}),
              (std::vector<Quaternion>{i * j, j * i, j * k, k * i, i * i, q.UnitInverse(), 2.0f * q, q / 2.0f}));
    EXPECT_EQ((std::vector<float>{30, 30}), (std::vector<float>{q.Norm(), norm}));
    EXPECT_NEAR(1.0f, n.Norm(), 1e-6f);
    EXPECT_LE(MaxAbsDiff(Quaternion::IDENTITY, q * q.Inverse()), 1e-6f);
    EXPECT_FALSE(std::isfinite(Quaternion::ZERO.Inverse().w)); // no guard, no fault
    const Vector3 v(0.3f, -1.7f, 2.9f);
    EXPECT_EQ(v, Quaternion::IDENTITY.Rotate(v)); // exactly
    float angle = -1;
    Vector3 axis;
    Quaternion::IDENTITY.ToAngleAxis(angle, axis);
    EXPECT_EQ(std::make_pair(0.0f, Vector3(1, 0, 0)), std::make_pair(angle, axis));
    AngleAxis(1.2f, Vector3(0, 0.6f, 0.8f)).ToAngleAxis(angle, axis);
    EXPECT_NEAR(1.2f, angle, 1e-5f);
    EXPECT_LE(MaxAbsDiff(Vector3(0, 0.6f, 0.8f), axis), 1e-6f);

    // Trace -1: the largest-diagonal road, i = 2 and i = 0.
    Quaternion a, b;
    a.FromRotationMatrix(Matrix3(-1, 0, 0, 0, -1, 0, 0, 0, 1));
    b.FromRotationMatrix(Matrix3(1, 0, 0, 0, -1, 0, 0, 0, -1));
    EXPECT_EQ((std::vector<Quaternion>{k, i}), (std::vector<Quaternion>{a, b}));
    // The matrix against Eigen is in EigenReferenceTest.cpp; here back again, and
    // the rotation of a vector by either.
    std::mt19937 rng(1234);
    for (int n = 0; n < 2000; ++n)
    {
        const Quaternion r = geomtest::RandomUnitQuaternion(rng);
        Matrix3 m;
        r.ToRotationMatrix(m);
        Quaternion back;
        back.FromRotationMatrix(m);
        ASSERT_LE(MaxAbsDiff(r, back * (Quaternion::Dot(back, r) < 0.0f ? -1.0f : 1.0f)), 2e-6f) << n;
        ASSERT_LE(MaxAbsDiff(m * v, r.Rotate(v)), 1e-5f) << n;
        Vector3 axes[3];
        r.ToAxes(axes);
        ASSERT_EQ((std::vector<Vector3>{r.XAxis(), r.YAxis(), r.ZAxis()}), std::vector<Vector3>(axes, axes + 3));
    }
}

TEST(Quaternion, SingleAnglesAndEquality)
{
    const Quaternion x = AngleAxis(0.7f, Vector3(1, 0, 0)), y = AngleAxis(-0.4f, Vector3(0, 1, 0));
    const Quaternion z = AngleAxis(2.5f, kZ);
    EXPECT_LE(
        MaxAbsDiff(Vector3(0.7f, 0.7f, -0.4f), Vector3(x.AngleAboutX(true), x.AngleAboutX(false), y.AngleAboutY(true))),
        1e-6f);
    EXPECT_LE(MaxAbsDiff(Vector3(-0.4f, 2.5f, 2.5f),
                         Vector3(y.AngleAboutY(false), z.AngleAboutZ(true), z.AngleAboutZ(false))),
              1e-6f);
    // Past the pole the arcsine form saturates at a quarter turn.
    EXPECT_EQ(HALF_PI, Quaternion(1.0f, 0.0f, 1.0f, 0.0f).AngleAboutY(false));

    const Quaternion q = AngleAxis(0.9f, Vector3(0, 0.6f, 0.8f));
    // The negation is the same rotation.
    EXPECT_EQ((std::vector<bool>{true, true, false}),
              (std::vector<bool>{q.EqualsWithin(-q, 1e-3f), q.EqualsWithin(q, 1e-3f),
                                 q.EqualsWithin(AngleAxis(0.95f, Vector3(0, 0.6f, 0.8f)), 1e-3f)}));
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
    EXPECT_EQ((std::vector<float>{1e-4f, 1e-4f}),
              (std::vector<float>{Quaternion(0.0f, 1e-4f, 0.0f, 0.0f).Exp().x, Quaternion(1.0f, 1e-4f, 0, 0).Log().x}));

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
