#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "GeometryTestUtil.h"
#include "geometry/Matrix3.h"
#include "geometry/Quaternion.h"
#include "geometry/ScalarMath.h"

using namespace kv;
using geomtest::RandomUnitQuaternion;

namespace
{

void ExpectQuatNear(const Quaternion& a, const Quaternion& b, float tol)
{
    EXPECT_LE(geomtest::MaxAbsDiff(a, b), tol)
        << "(" << a.w << ", " << a.x << ", " << a.y << ", " << a.z << ") against (" << b.w << ", " << b.x << ", " << b.y
        << ", " << b.z << ")";
}

} // namespace

TEST(Quaternion, ArithmeticAndInverse)
{
    const Quaternion i(0, 1, 0, 0), j(0, 0, 1, 0), k(0, 0, 0, 1);
    EXPECT_EQ(i * j, k);
    EXPECT_EQ(j * i, -k);
    EXPECT_EQ(i * i, Quaternion(-1, 0, 0, 0));
    const Quaternion q(1, 2, 3, 4);
    EXPECT_EQ(q.Norm(), 30.0f);
    EXPECT_EQ(q.UnitInverse(), Quaternion(1, -2, -3, -4));
    ExpectQuatNear(q * q.Inverse(), Quaternion::IDENTITY, 1e-6f);
    EXPECT_EQ(2.0f * q, q * 2.0f);
    EXPECT_EQ(q / 2.0f, Quaternion(0.5f, 1, 1.5f, 2));
    Quaternion n = q;
    EXPECT_EQ(n.Normalise(), 30.0f);
    EXPECT_NEAR(n.Norm(), 1.0f, 1e-6f);

    const Quaternion inv = Quaternion::ZERO.Inverse(); // no guard, no fault
    EXPECT_FALSE(std::isfinite(inv.w));
    EXPECT_FALSE(std::isfinite(inv.x));
}

TEST(Quaternion, RotateAndAngleAxis)
{
    const Vector3 v(0.3f, -1.7f, 2.9f);
    EXPECT_EQ(Quaternion::IDENTITY.Rotate(v), v); // exactly

    Quaternion q;
    q.FromAngleAxis(HALF_PI, Vector3(0, 0, 1));
    const Vector3 r = q.Rotate(Vector3(1, 0, 0));
    EXPECT_NEAR(r.x, 0.0f, 1e-6f);
    EXPECT_NEAR(r.y, 1.0f, 1e-6f);

    float angle = -1;
    Vector3 axis;
    Quaternion::IDENTITY.ToAngleAxis(angle, axis);
    EXPECT_EQ(angle, 0.0f);
    EXPECT_EQ(axis, Vector3(1, 0, 0));
    q.FromAngleAxis(1.2f, Vector3(0, 0.6f, 0.8f));
    q.ToAngleAxis(angle, axis);
    EXPECT_NEAR(angle, 1.2f, 1e-5f);
    EXPECT_LE(geomtest::MaxAbsDiff(axis, Vector3(0, 0.6f, 0.8f)), 1e-6f);
}

TEST(Quaternion, HalfTurnAboutZFromMatrix)
{
    Matrix3 m(-1, 0, 0, 0, -1, 0, 0, 0, 1); // trace -1: the largest-diagonal road, i = 2
    Quaternion q;
    q.FromRotationMatrix(m);
    EXPECT_EQ(q, Quaternion(0, 0, 0, 1));
    m = Matrix3(1, 0, 0, 0, -1, 0, 0, 0, -1); // i = 0
    q.FromRotationMatrix(m);
    EXPECT_EQ(q, Quaternion(0, 1, 0, 0));
}

TEST(Quaternion, MatrixRoundTripAndAxes)
{
    std::mt19937 rng(1234);
    for (int n = 0; n < 2000; ++n)
    {
        const Quaternion q = RandomUnitQuaternion(rng);
        Matrix3 m;
        q.ToRotationMatrix(m);
        ASSERT_LT(geomtest::Orthonormality(m), 2e-6f) << n;
        ASSERT_NEAR(m.Determinant(), 1.0f, 2e-6f) << n;
        Quaternion back;
        back.FromRotationMatrix(m);
        ASSERT_TRUE(back.EqualsWithin(q, 1e-3f)) << n;
        const float sign = Quaternion::Dot(back, q) < 0.0f ? -1.0f : 1.0f;
        ASSERT_LE(geomtest::MaxAbsDiff(back * sign, q), 2e-6f) << n;

        Vector3 axes[3];
        q.ToAxes(axes);
        ASSERT_EQ(axes[0], q.XAxis());
        ASSERT_EQ(axes[1], q.YAxis());
        ASSERT_EQ(axes[2], q.ZAxis());
        const Vector3 v(0.5f, -2.0f, 1.0f);
        ASSERT_LE(geomtest::MaxAbsDiff(q.Rotate(v), m * v), 1e-5f) << n;
    }
}

TEST(Quaternion, SingleAngles)
{
    Quaternion q;
    q.FromAngleAxis(0.7f, Vector3(1, 0, 0));
    EXPECT_NEAR(q.AngleAboutX(true), 0.7f, 1e-6f);
    EXPECT_NEAR(q.AngleAboutX(false), 0.7f, 1e-6f);
    q.FromAngleAxis(-0.4f, Vector3(0, 1, 0));
    EXPECT_NEAR(q.AngleAboutY(true), -0.4f, 1e-6f);
    EXPECT_NEAR(q.AngleAboutY(false), -0.4f, 1e-6f);
    q.FromAngleAxis(2.5f, Vector3(0, 0, 1));
    EXPECT_NEAR(q.AngleAboutZ(true), 2.5f, 1e-6f);
    EXPECT_NEAR(q.AngleAboutZ(false), 2.5f, 1e-6f);
    // Past the pole the arcsine form saturates at a quarter turn.
    const Quaternion over(1.0f, 0.0f, 1.0f, 0.0f); // not unit: 2wy = 2
    EXPECT_EQ(over.AngleAboutY(false), HALF_PI);
}

TEST(Quaternion, EqualsWithinTreatsTheNegationAsEqual)
{
    Quaternion q;
    q.FromAngleAxis(0.9f, Vector3(0, 0.6f, 0.8f));
    EXPECT_TRUE(q.EqualsWithin(-q, 1e-3f));
    EXPECT_TRUE(q.EqualsWithin(q, 1e-3f));
    Quaternion other;
    other.FromAngleAxis(0.95f, Vector3(0, 0.6f, 0.8f));
    EXPECT_FALSE(q.EqualsWithin(other, 1e-3f));
}

TEST(Quaternion, Interpolations)
{
    Quaternion p, q;
    p.FromAngleAxis(0.2f, Vector3(1, 0, 0));
    q.FromAngleAxis(1.4f, Vector3(0, 1, 0));
    ExpectQuatNear(Quaternion::Slerp(0.0f, p, q), p, 1e-6f);
    ExpectQuatNear(Quaternion::Slerp(1.0f, p, q), q, 1e-6f);
    ExpectQuatNear(Quaternion::Slerp(1.0f, p, -q, false), -q, 1e-6f);
    ExpectQuatNear(Quaternion::Slerp(1.0f, p, -q, true), q, 1e-6f);

    // Dot exactly 1: the linear road, normalised; spins: p itself.
    EXPECT_EQ(Quaternion::Slerp(0.5f, p, p), Quaternion::Slerp(0.5f, p, p).Normalised());
    ExpectQuatNear(Quaternion::Slerp(0.5f, p, p), p, 1e-7f);
    EXPECT_EQ(Quaternion::SlerpWithSpins(0.5f, p, p, 3), p);

    // Halfway along a quarter turn about z is an eighth of a turn.
    Quaternion a, b, half;
    a.FromAngleAxis(0.0f, Vector3(0, 0, 1));
    b.FromAngleAxis(HALF_PI, Vector3(0, 0, 1));
    half.FromAngleAxis(HALF_PI * 0.5f, Vector3(0, 0, 1));
    ExpectQuatNear(Quaternion::Slerp(0.5f, a, b), half, 1e-6f);
    ExpectQuatNear(Quaternion::Nlerp(0.5f, a, b), half, 1e-6f);
    ExpectQuatNear(Quaternion::SlerpWithSpins(0.5f, a, b, 0), half, 1e-6f);
    // One spin shifts both sine arguments by pi * t = pi / 2: the blend of the identity
    // and b then lands on (-sin(pi/8), 0, 0, cos(pi/8)).
    const Quaternion spun = Quaternion::SlerpWithSpins(0.5f, a, b, 1);
    ExpectQuatNear(spun, Quaternion(-std::sin(PI / 8), 0, 0, std::cos(PI / 8)), 1e-6f);
    ExpectQuatNear(Quaternion::Nlerp(1.0f, a, -b, true), b, 1e-6f);

    // Squad through control points of a steady rotation stays on it.
    Quaternion q0, q1, q2, q3, a1, b1, a2, b2;
    q0.FromAngleAxis(0.0f, Vector3(0, 0, 1));
    q1.FromAngleAxis(0.5f, Vector3(0, 0, 1));
    q2.FromAngleAxis(1.0f, Vector3(0, 0, 1));
    q3.FromAngleAxis(1.5f, Vector3(0, 0, 1));
    Quaternion::SquadControlPoints(q0, q1, q2, a1, b1);
    Quaternion::SquadControlPoints(q1, q2, q3, a2, b2);
    ExpectQuatNear(a1, q1, 1e-6f);
    ExpectQuatNear(b1, q1, 1e-6f);
    ExpectQuatNear(a2, q2, 1e-6f);
    Quaternion mid;
    mid.FromAngleAxis(0.75f, Vector3(0, 0, 1));
    ExpectQuatNear(Quaternion::Squad(0.5f, q1, a1, a2, q2), mid, 1e-5f);
    // Control points off the path pull the curve towards them at mid-segment only.
    Quaternion off;
    off.FromAngleAxis(0.6f, Vector3(1, 0, 0));
    ExpectQuatNear(Quaternion::Squad(0.0f, q1, off, off, q2), q1, 1e-6f);
    EXPECT_FALSE(Quaternion::Squad(0.5f, q1, off, off, q2).EqualsWithin(mid, 1e-2f));
}

TEST(Quaternion, ExpAndLogAreInverse)
{
    Quaternion q;
    q.FromAngleAxis(1.1f, Vector3(0.48f, 0.6f, 0.64f));
    const Quaternion l = q.Log();
    EXPECT_EQ(l.w, 0.0f);
    EXPECT_NEAR(l.x, 0.55f * 0.48f, 1e-6f);
    ExpectQuatNear(l.Exp(), q, 1e-6f);
    // Near zero angle both copy xyz unscaled.
    const Quaternion tiny(0.0f, 1e-4f, 0.0f, 0.0f);
    EXPECT_EQ(tiny.Exp().x, 1e-4f);
    EXPECT_EQ(Quaternion(1.0f, 1e-4f, 0, 0).Log().x, 1e-4f);
}

TEST(Quaternion, FromDirection)
{
    Quaternion q(0.5f, 0.5f, 0.5f, 0.5f);
    EXPECT_FALSE(q.FromDirection(Vector3(0, 0, 2), Vector3(0, 0, 1)));
    EXPECT_EQ(q, Quaternion(0.5f, 0.5f, 0.5f, 0.5f)); // untouched
    ASSERT_TRUE(q.FromDirection(Vector3(0, 3, 0), Vector3(0, 0, 1)));
    // Columns side, direction, up: (1,0,0), (0,1,0), (0,0,1) is no rotation.
    ExpectQuatNear(q, Quaternion::IDENTITY, 1e-6f);
    ASSERT_TRUE(q.FromDirection(Vector3(1, 0, 0), Vector3(0, 0, 1)));
    const Vector3 forward = q.YAxis();
    EXPECT_NEAR(forward.x, 1.0f, 1e-6f);
}
