// Quaternions, 3x3 and 4x4 matrices on hand-picked cases; the random-matrix numerics are
// compared with Eigen in EigenReferenceTest.cpp.
#include "GeometryTestUtil.h"
#include "geometry/ScalarMath.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <vector>

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
    const Quaternion i(0, 1, 0, 0), j(0, 0, 1, 0), k(0, 0, 0, 1), q(1, 2, 3, 4);
    Quaternion n = q;
    const float norm = n.Normalise();
    EXPECT_EQ((std::vector<Quaternion>{k, -k, i, j, Quaternion(-1, 0, 0, 0), Quaternion(1, -2, -3, -4), q * 2.0f,
                                       Quaternion(0.5f, 1, 1.5f, 2)}),
              (std::vector<Quaternion>{i * j, j * i, j * k, k * i, i * i, q.UnitInverse(), 2.0f * q, q / 2.0f}));
    EXPECT_EQ((std::vector<float>{30, 30}), (std::vector<float>{q.Norm(), norm}));
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
    // Result and expectation: the long way round, which the comparison with Eigen never
    // takes, and the linear road of equal rotations (dot exactly 1).
    const std::pair<Quaternion, Quaternion> rows[] = {
        {Quaternion::Slerp(1.0f, p, -q, false), -q},
        // The long way from the identity to a quarter turn about z is three quarter turns
        // the other way; past half of it a sine's argument passes a right angle.
        {Quaternion::Slerp(0.3f, a, -b, false), AngleAxis(-0.45f * PI, kZ)},
        {Quaternion::Slerp(0.75f, a, -b, false), AngleAxis(-1.125f * PI, kZ)},
        {Quaternion::Slerp(0.5f, p, p), p},
        // Halfway along a quarter turn is an eighth of a turn.
        {Quaternion::Nlerp(0.5f, a, -b, true), half},
        {Quaternion::Nlerp(0.5f, a, -b, false), Quaternion(1 - std::cos(PI / 4), 0, 0, -std::sin(PI / 4)).Normalised()},
        {Quaternion::SlerpWithSpins(0.5f, a, b, 0), half},
        // One spin shifts both sine arguments by pi * t = pi / 2.
        {Quaternion::SlerpWithSpins(0.5f, a, b, 1), Quaternion(-std::sin(PI / 8), 0, 0, std::cos(PI / 8))},
    };
    for (const auto& r : rows)
        EXPECT_LE(MaxAbsDiff(r.second, r.first), 1e-6f) << &r - rows;
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
    // A small turn: its half angle's sine, below 0.1, still scales the vector part.
    EXPECT_LE(MaxAbsDiff(AngleAxis(0.19f, kZ), AngleAxis(0.19f, kZ).Log().Exp()), 1e-6f);
    // Near zero angle both copy xyz unscaled.
    EXPECT_EQ((std::vector<float>{1e-4f, 1e-4f}),
              (std::vector<float>{Quaternion(0.0f, 1e-4f, 0.0f, 0.0f).Exp().x, Quaternion(1.0f, 1e-4f, 0, 0).Log().x}));

    Quaternion d(0.5f, 0.5f, 0.5f, 0.5f);
    EXPECT_FALSE(d.FromDirection(Vector3(0, 0, 2), kZ));
    EXPECT_EQ(Quaternion(0.5f, 0.5f, 0.5f, 0.5f), d); // untouched
    // The frame's columns are side, direction and up: the y axis follows the direction.
    ASSERT_TRUE(d.FromDirection(Vector3(1, 0, 0), kZ));
    EXPECT_LE(MaxAbsDiff(Vector3(1, 0, 0), d.YAxis()), 1e-6f);

    // A half turn about z shrunk to 0.4 keeps its axis: the largest diagonal entry picks the component.
    d.FromRotationMatrix(Matrix3(-0.4f, 0, 0, 0, -0.4f, 0, 0, 0, 0.4f));
    EXPECT_LE(MaxAbsDiff(Quaternion(0, 0, 0, 0.5f * std::sqrt(2.2f)), d), 1e-6f);
}

TEST(Matrix3, ArithmeticAndTheInversesBound)
{
    const Matrix3 a(1, 2, 3, 4, 5, 6, 7, 8, 10);
    Matrix3 t;
    t.TensorProduct(Vector3(1, 2, 3), Vector3(0, 1, -1));
    EXPECT_EQ((std::vector<Matrix3>{a, Matrix3(1, 4, 7, 2, 5, 8, 3, 6, 10), Matrix3::ZERO, a + a,
                                    Matrix3(0, 1, -1, 0, 2, -2, 0, 3, -3)}),
              (std::vector<Matrix3>{a * Matrix3::IDENTITY, a.Transpose(), -a + a, 2.0f * a, t}));
    EXPECT_EQ((std::vector<Vector3>{Vector3(-2, -2, -3), Vector3(-6, -6, -7), Vector3(3, 6, 10)}),
              (std::vector<Vector3>{a * Vector3(1, 0, -1), Vector3(1, 0, -1) * a, a.GetColumn(2)}));

    // The bound is inclusive; below it the result holds the adjugate, undivided.
    const Matrix3 d(2, 0, 0, 0, 0.5f, 0, 0, 0, 1); // det exactly 1
    Matrix3 r;
    EXPECT_FALSE(d.Inverse(r, 1.0f));
    EXPECT_EQ(Matrix3(0.5f, 0, 0, 0, 2, 0, 0, 0, 1), r);
    EXPECT_EQ(r, d.InverseOrZero(1.0f));
    EXPECT_TRUE(d.Inverse(r, 0.999f));
    EXPECT_EQ(Matrix3(4, -2, 0, -2, 1, 0, 0, 0, 0), Matrix3(1, 2, 3, 2, 4, 6, 0, 0, 1).InverseOrZero(1e-6f));
}

TEST(Matrix3, AngleAxis)
{
    Vector3 axis(9, 9, 9);
    float angle = -1;
    Matrix3::IDENTITY.ToAngleAxis(axis, angle);
    EXPECT_EQ(std::make_pair(0.0f, Vector3(1, 0, 0)), std::make_pair(angle, axis));
    Matrix3 turn;
    turn.FromAngleAxis(Vector3(0, 0.6f, 0.8f), 1.3f);
    turn.ToAngleAxis(axis, angle);
    EXPECT_NEAR(1.3f, angle, 1e-5f);
    EXPECT_LT(MaxAbsDiff(Vector3(0, 0.6f, 0.8f), axis), 1e-5f);
    // Half turns (trace exactly -1): the axis comes from the largest diagonal element.
    const struct
    {
        Matrix3 m;
        Vector3 axis;
    } halfTurns[] = {
        {Matrix3(-0.28f, 0.96f, 0, 0.96f, 0.28f, 0, 0, 0, -1), Vector3(0.6f, 0.8f, 0)},
        {Matrix3(0.28f, 0, 0.96f, 0, -1, 0, 0.96f, 0, -0.28f), Vector3(0.8f, 0, 0.6f)},
        {Matrix3(-1, 0, 0, 0, -0.28f, 0.96f, 0, 0.96f, 0.28f), Vector3(0, 0.6f, 0.8f)},
    };
    for (const auto& h : halfTurns)
    {
        h.m.ToAngleAxis(axis, angle);
        EXPECT_EQ(PI, angle);
        EXPECT_LE(MaxAbsDiff(h.axis, axis), 1e-6f) << h.axis;
    }
}

TEST(Matrix3, EulerRoundTripsInEveryOrderAndThePoles)
{
    using From = void (Matrix3::*)(float, float, float);
    using To = bool (Matrix3::*)(float&, float&, float&) const;
    const std::pair<From, To> orders[] = {
        {&Matrix3::FromEulerXYZ, &Matrix3::ToEulerXYZ}, {&Matrix3::FromEulerXZY, &Matrix3::ToEulerXZY},
        {&Matrix3::FromEulerYXZ, &Matrix3::ToEulerYXZ}, {&Matrix3::FromEulerYZX, &Matrix3::ToEulerYZX},
        {&Matrix3::FromEulerZXY, &Matrix3::ToEulerZXY}, {&Matrix3::FromEulerZYX, &Matrix3::ToEulerZYX},
    };
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> wide(-3.0f, 3.0f), mid(-1.5f, 1.5f);
    for (const auto& o : orders)
        for (int n = 0; n < 200; ++n)
        {
            const float a = wide(rng), b = mid(rng), c = wide(rng);
            Matrix3 m;
            (m.*o.first)(a, b, c);
            float ra, rb, rc;
            ASSERT_TRUE((m.*o.second)(ra, rb, rc));
            ASSERT_LE(MaxAbsDiff(Vector3(a, b, c), Vector3(ra, rb, rc)), 2e-3f) << Vector3(a, b, c);
        }
    // At the poles c folds into a: a carries a + c, or a - c.
    for (const float pole : {HALF_PI, -HALF_PI})
    {
        Matrix3 m;
        m.FromEulerXYZ(0.4f, pole, 0.2f);
        float a = 9, b = 9, c = 9;
        EXPECT_FALSE(m.ToEulerXYZ(a, b, c));
        EXPECT_EQ(std::make_pair(pole, 0.0f), std::make_pair(b, c));
        EXPECT_NEAR(pole > 0 ? 0.6f : 0.2f, a, 1e-5f);
    }
}

TEST(Matrix3, OrthonormaliseAndQDUOfZeroColumns)
{
    Matrix3 m(2, 1, 0, 0, 1, 1, 0, 0, 3);
    m.Orthonormalise();
    EXPECT_LT(geomtest::Orthonormality(m), 1e-6f);
    EXPECT_EQ(Vector3(1, 0, 0), m.GetColumn(0));
    Matrix3 z(0, 1, 0, 0, 1, 1, 0, 0, 3); // zero first column: no guard
    z.Orthonormalise();
    EXPECT_FALSE(std::isfinite(z.m[0][0]));

    // A zero column keeps q finite.
    Matrix3 q;
    Vector3 d, u;
    Matrix3(0, 1, 0, 0, 1, 1, 0, 0, 3).DecomposeQDU(q, d, u);
    EXPECT_TRUE(std::isfinite(q.m[0][0]) && std::isfinite(q.m[2][2]));
}

TEST(Matrix3, DiagonalDecompositionsAndCubicRoots)
{
    Matrix3 left, right;
    Vector3 s;
    Matrix3(3, 0, 0, 0, -2, 0, 0, 0, 0.5f).SingularValueDecomposition(left, s, right);
    // The first reflection maps (3, 0, 0) to (-3, 0, 0) and the third (-2, 0) to (2, 0);
    // both tests then hold at once, and the negative value's sign moves into right.
    EXPECT_EQ(Vector3(3, 2, 0.5f), s);
    Matrix3 back;
    back.SingularValueComposition(left, s, right);
    EXPECT_EQ((std::vector<Matrix3>{Matrix3(-1, 0, 0, 0, -1, 0, 0, 0, 1), Matrix3(-1, 0, 0, 0, 1, 0, 0, 0, 1),
                                    Matrix3(3, 0, 0, 0, -2, 0, 0, 0, 0.5f)}),
              (std::vector<Matrix3>{left, right, back}));

    EXPECT_EQ(1.0f, Matrix3::MaxCubicRoot(-1.0f, 3.0f, -3.0f)); // (x - 1)^3
    EXPECT_EQ(0.0f, Matrix3::ZERO.SpectralNorm());
}

TEST(Matrix4, ConcatenateRowsAndAdjoint)
{
    const float rows[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    Matrix4 a;
    a.FromRows3x4(rows);
    EXPECT_EQ(Matrix4(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0, 0, 0, 1), a);
    const Matrix4 t(1, 0, 0, 5, 0, 1, 0, 6, 0, 0, 1, 7, 0, 0, 0, 1);
    EXPECT_EQ(Vector3(6, 7, 8), t * Vector3(1, 1, 1));
    EXPECT_EQ(Vector3(0, 0, 0.25f), Matrix4::CLIPSPACE2D_TO_IMAGESPACE * Vector3(-1, 1, 0.25f));
    EXPECT_EQ(Matrix4(1, 5, 9, 0, 2, 6, 10, 0, 3, 7, 11, 0, 4, 8, 12, 1), a.Transpose());

    const Matrix4 m(2, 1, 0, 3, 0, 1, 4, 1, 1, 0, 2, 0, 3, 1, 1, 1);
    EXPECT_EQ(Matrix4(-18, 0, 0, 0, 0, -18, 0, 0, 0, 0, -18, 0, 0, 0, 0, -18), m.Adjoint() * m);
    // A singular matrix: no test, non-finite results.
    const Matrix4 s(1, 2, 3, 4, 2, 4, 6, 8, 0, 0, 1, 0, 0, 0, 0, 1);
    EXPECT_EQ(0.0f, s.Determinant());
    EXPECT_FALSE(std::isfinite(s.Inverse().m[0][0]));
}

TEST(Matrix4, TransformThenDecomposeAndInvert)
{
    std::mt19937 rng(8);
    std::uniform_real_distribution<float> pos(-100.0f, 100.0f), scl(0.1f, 10.0f);
    for (int n = 0; n < 2000; ++n)
    {
        const Vector3 p(pos(rng), pos(rng), pos(rng)), s(scl(rng), scl(rng), scl(rng));
        const Quaternion q = geomtest::RandomUnitQuaternion(rng);
        Matrix4 m;
        m.MakeTransform(p, s, q);
        ASSERT_EQ((std::vector<float>{0, 0, 0, 1}), (std::vector<float>{m.m[3][0], m.m[3][1], m.m[3][2], m.m[3][3]}));
        Vector3 p2, s2;
        Quaternion q2;
        m.DecomposeAffine(p2, s2, q2);
        ASSERT_EQ(p, p2);
        ASSERT_LE(MaxAbsDiff(Vector3(1, 1, 1), Vector3(s2.x / s.x, s2.y / s.y, s2.z / s.z)), 1e-5f) << n;
        ASSERT_TRUE(q2.EqualsWithin(q, 2e-3f)) << n;
        // The inverse transform undoes it.
        Matrix4 inv;
        inv.MakeInverseTransform(p, s, q);
        const Vector3 v(pos(rng), pos(rng), pos(rng));
        ASSERT_LE(MaxAbsDiff(v, inv * (m * v)), 1e-3f) << n;
    }
}

TEST(Matrix4, ViewReflectionLookAtAndFrames)
{
    EXPECT_EQ(Matrix4::IDENTITY, Matrix4::MakeViewMatrix(Vector3(0, 0, 0), Quaternion::IDENTITY));
    const Matrix4 view = Matrix4::MakeViewMatrix(Vector3(1, 2, 3), Quaternion::IDENTITY);
    Plane unit(Vector3(1, 2, 2), 0.0f);
    unit.Normalise();
    const Matrix4 r = Matrix4::MakeReflection(unit);
    EXPECT_LT(MaxAbsDiff(Matrix4::IDENTITY, r * r), 1e-6f);
    const Matrix4 floor = Matrix4::MakeReflection(Plane(0, 1, 0, -1)); // y = 1
    EXPECT_EQ((std::vector<Vector3>{Vector3(0, 0, 0), Vector3(3, -3, 4), Vector3(3, 2, 1)}),
              (std::vector<Vector3>{view * Vector3(1, 2, 3), floor * Vector3(3, 5, 4),
                                    Matrix4::MakeReflection(Plane(0, 0, 1, -2)) * Vector3(3, 2, 3)}));
    EXPECT_EQ(view * floor, Matrix4::MakeViewMatrix(Vector3(1, 2, 3), Quaternion::IDENTITY, &floor));

    const Matrix4 m = Matrix4::LookAtForward(Vector3(0, 0, 5), Vector3(0, 0, 0), Vector3(0, 1, 0));
    const Matrix4 b = Matrix4::LookAtBackward(Vector3(0, 0, 5), Vector3(0, 0, 0), Vector3(0, 1, 0));
    // The eye (0, 0, 5) is the origin and looks down z; x = up cross z; backward turns z round.
    EXPECT_EQ(
        (std::vector<Vector3>{Vector3(0, 0, 5), Vector3(0, 0, 0), Vector3(-1, 0, 5), Vector3(0, 0, -5)}),
        (std::vector<Vector3>{m * Vector3(0, 0, 0), m * Vector3(0, 0, 5), m * Vector3(1, 0, 0), b * Vector3(0, 0, 0)}));
    EXPECT_EQ(1.0f, m.m[1][1]); // up stays up
    // Eye on the target: the three axes stay zero.
    const Matrix4 z = Matrix4::LookAtForward(Vector3(1, 1, 1), Vector3(1, 1, 1), Vector3(0, 1, 0));
    EXPECT_EQ(Matrix4(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1), z);

    // No frame for a tiny direction, or an up along it however short: identity; a
    // frame that cannot come out orthonormal (a NaN up) leaves the caller's matrix.
    const struct
    {
        Vector3 direction, up;
        Matrix3 left;
    } refused[] = {
        {Vector3(0, 3, 0), Vector3(0, 1, 0), Matrix3::IDENTITY},
        {Vector3(1e-6f, 0, 0), Vector3(0, 1, 0), Matrix3::IDENTITY},
        {Vector3(0, 1, 0), Vector3(0, 0, 1e-9f), Matrix3::IDENTITY},
        {Vector3(0, 1, 0), Vector3(std::nanf(""), 0, 0), Matrix3::ZERO},
    };
    for (const auto& c : refused)
    {
        Matrix3 frame = Matrix3::ZERO;
        EXPECT_FALSE(Matrix4::FrameFromDirection(c.direction, c.up, frame)) << c.direction;
        EXPECT_EQ(c.left, frame) << c.direction;
    }
    Matrix3 frame;
    ASSERT_TRUE(Matrix4::FrameFromDirection(Vector3(0, 0, -2), Vector3(0, 1, 0), frame));
    EXPECT_EQ(Matrix3(1, 0, 0, 0, 0, 1, 0, -1, 0), frame); // columns side, direction, up
}

} // namespace
