// Three-by-three matrices on hand-picked cases; the random-matrix numerics are
// compared with Eigen in EigenReferenceTest.cpp.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "GeometryTestUtil.h"
#include "geometry/Matrix3.h"
#include "geometry/ScalarMath.h"

using namespace kv;
using geomtest::MaxAbsDiff;

namespace
{

Matrix3 Rotation(const Vector3& axis, float angle)
{
    Matrix3 m;
    m.FromAngleAxis(axis, angle);
    return m;
}

TEST(Matrix3, ArithmeticAndTheInversesBound)
{
    const Matrix3 a(1, 2, 3, 4, 5, 6, 7, 8, 10);
    EXPECT_EQ(a, a * Matrix3::IDENTITY);
    EXPECT_EQ(Matrix3(1, 4, 7, 2, 5, 8, 3, 6, 10), a.Transpose());
    EXPECT_EQ(Vector3(-2, -2, -3), a * Vector3(1, 0, -1));
    EXPECT_EQ(Vector3(-6, -6, -7), Vector3(1, 0, -1) * a);
    EXPECT_EQ(Matrix3::ZERO, -a + a);
    EXPECT_EQ(a + a, 2.0f * a);
    EXPECT_EQ(Vector3(3, 6, 10), a.GetColumn(2));
    Matrix3 t;
    t.TensorProduct(Vector3(1, 2, 3), Vector3(0, 1, -1));
    EXPECT_EQ(Matrix3(0, 1, -1, 0, 2, -2, 0, 3, -3), t);
    Matrix3 m(1, 2, 3, 4, 5, 6, 7, 8, 9);
    const Matrix3 upper = m * Matrix3(1, 0.5f, -1, 0, 1, 2, 0, 0, 1);
    EXPECT_EQ(upper, m.MultiplyUnitUpper(0.5f, -1, 2));
    EXPECT_EQ(upper, m);

    // The bound is inclusive; below it the result holds the adjugate, undivided.
    const Matrix3 d(2, 0, 0, 0, 0.5f, 0, 0, 0, 1); // det exactly 1
    Matrix3 r;
    EXPECT_FALSE(d.Inverse(r, 1.0f));
    EXPECT_EQ(Matrix3(0.5f, 0, 0, 0, 2, 0, 0, 0, 1), r);
    EXPECT_EQ(r, d.InverseOrZero(1.0f));
    ASSERT_TRUE(d.Inverse(r, 0.999f));
    EXPECT_EQ(Matrix3::IDENTITY, r * d);
    EXPECT_EQ(Matrix3(4, -2, 0, -2, 1, 0, 0, 0, 0), Matrix3(1, 2, 3, 2, 4, 6, 0, 0, 1).InverseOrZero(1e-6f));
}

TEST(Matrix3, AngleAxis)
{
    Vector3 axis(9, 9, 9);
    float angle = -1;
    Matrix3::IDENTITY.ToAngleAxis(axis, angle);
    EXPECT_EQ(0.0f, angle);
    EXPECT_EQ(Vector3(1, 0, 0), axis);
    Rotation(Vector3(0, 0.6f, 0.8f), 1.3f).ToAngleAxis(axis, angle);
    EXPECT_NEAR(1.3f, angle, 1e-5f);
    EXPECT_LT(MaxAbsDiff(Vector3(0, 0.6f, 0.8f), axis), 1e-5f);
    // Half turns (trace exactly -1): the axis comes from the largest diagonal element.
    const struct
    {
        Matrix3 m;
        Vector3 axis;
    } halfTurns[] = {
        {Matrix3(1, 0, 0, 0, -1, 0, 0, 0, -1), Vector3(1, 0, 0)},
        {Matrix3(-1, 0, 0, 0, 1, 0, 0, 0, -1), Vector3(0, 1, 0)},
        {Matrix3(-1, 0, 0, 0, -1, 0, 0, 0, 1), Vector3(0, 0, 1)},
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
    const struct
    {
        From from;
        To to;
    } orders[] = {
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
            (m.*o.from)(a, b, c);
            float ra, rb, rc;
            ASSERT_TRUE((m.*o.to)(ra, rb, rc));
            ASSERT_LE(MaxAbsDiff(Vector3(a, b, c), Vector3(ra, rb, rc)), 2e-3f) << Vector3(a, b, c);
        }
    // Composition order: XYZ is Rx(a) * Ry(b) * Rz(c), ZYX the other way.
    const Matrix3 rx = Rotation(Vector3(1, 0, 0), 0.3f), ry = Rotation(Vector3(0, 1, 0), 0.5f);
    const Matrix3 rz = Rotation(Vector3(0, 0, 1), 0.7f);
    Matrix3 m;
    m.FromEulerXYZ(0.3f, 0.5f, 0.7f);
    EXPECT_LT(MaxAbsDiff(rx * ry * rz, m), 1e-6f);
    m.FromEulerZYX(0.7f, 0.5f, 0.3f);
    EXPECT_LT(MaxAbsDiff(rz * ry * rx, m), 1e-6f);

    // At the poles c folds into a: a carries a + c, or a - c.
    for (const float pole : {HALF_PI, -HALF_PI})
    {
        m.FromEulerXYZ(0.4f, pole, 0.2f);
        float a = 9, b = 9, c = 9;
        EXPECT_FALSE(m.ToEulerXYZ(a, b, c));
        EXPECT_EQ(pole, b);
        EXPECT_EQ(0.0f, c);
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
    EXPECT_EQ(Matrix3(-1, 0, 0, 0, -1, 0, 0, 0, 1), left);
    EXPECT_EQ(Matrix3(-1, 0, 0, 0, 1, 0, 0, 0, 1), right);
    Matrix3 back;
    back.SingularValueComposition(left, s, right);
    EXPECT_EQ(Matrix3(3, 0, 0, 0, -2, 0, 0, 0, 0.5f), back);

    EXPECT_EQ(1.0f, Matrix3::MaxCubicRoot(-1.0f, 3.0f, -3.0f)); // (x - 1)^3
    EXPECT_EQ(0.0f, Matrix3::ZERO.SpectralNorm());
}

} // namespace
