#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>

#include "GeometryTestUtil.h"
#include "geometry/Matrix3.h"
#include "geometry/ScalarMath.h"

using namespace kv;
using geomtest::FrobeniusNorm;
using geomtest::MaxAbsDiff;
using geomtest::Orthonormality;

TEST(Matrix3, ArithmeticAndDeterminant)
{
    const Matrix3 a(1, 2, 3, 4, 5, 6, 7, 8, 10);
    EXPECT_EQ(a.Determinant(), -3.0f);
    EXPECT_EQ(a * Matrix3::IDENTITY, a);
    EXPECT_EQ(a.Transpose(), Matrix3(1, 4, 7, 2, 5, 8, 3, 6, 10));
    EXPECT_EQ(a * Vector3(1, 0, -1), Vector3(-2, -2, -3));
    EXPECT_EQ(Vector3(1, 0, -1) * a, Vector3(-6, -6, -7));
    EXPECT_EQ(a - a, Matrix3::ZERO);
    EXPECT_EQ(-a + a, Matrix3::ZERO);
    EXPECT_EQ(2.0f * a, a + a);
    EXPECT_EQ(a.GetColumn(2), Vector3(3, 6, 10));
    Matrix3 t;
    t.TensorProduct(Vector3(1, 2, 3), Vector3(0, 1, -1));
    EXPECT_EQ(t, Matrix3(0, 1, -1, 0, 2, -2, 0, 3, -3));
    EXPECT_EQ(t.Determinant(), 0.0f);
}

TEST(Matrix3, InverseBoundIsInclusive)
{
    const Matrix3 a(2, 0, 0, 0, 0.5f, 0, 0, 0, 1); // det exactly 1
    Matrix3 r;
    EXPECT_FALSE(a.Inverse(r, 1.0f));
    EXPECT_EQ(r, Matrix3(0.5f, 0, 0, 0, 2, 0, 0, 0, 1)); // the adjugate, undivided
    EXPECT_EQ(a.InverseOrZero(1.0f), r);
    ASSERT_TRUE(a.Inverse(r, 0.999f));
    EXPECT_EQ(r * a, Matrix3::IDENTITY);
    // Singular: what stands in the result is the adjugate, not zeros.
    EXPECT_EQ(Matrix3(1, 2, 3, 2, 4, 6, 0, 0, 1).InverseOrZero(1e-6f), Matrix3(4, -2, 0, -2, 1, 0, 0, 0, 0));
}

TEST(Matrix3, InverseTimesMatrixIsIdentity)
{
    std::mt19937 rng(99);
    float worst = 0.0f;
    for (int n = 0; n < 3000; ++n)
    {
        const Matrix3 m = geomtest::RandomWellConditioned(rng);
        Matrix3 inv;
        ASSERT_TRUE(m.Inverse(inv, 1e-6f));
        worst = std::max(worst, MaxAbsDiff(inv * m, Matrix3::IDENTITY));
    }
    std::printf("inverse * matrix: worst |I - A^-1 A| = %g (bound 1e-4)\n", worst);
    EXPECT_LT(worst, 1e-4f);
}

TEST(Matrix3, AngleAxis)
{
    Vector3 axis(9, 9, 9);
    float angle = -1;
    Matrix3::IDENTITY.ToAngleAxis(axis, angle);
    EXPECT_EQ(angle, 0.0f);
    EXPECT_EQ(axis, Vector3(1, 0, 0));

    Matrix3 m;
    m.FromAngleAxis(Vector3(0, 0.6f, 0.8f), 1.3f);
    m.ToAngleAxis(axis, angle);
    EXPECT_NEAR(angle, 1.3f, 1e-5f);
    EXPECT_LT(MaxAbsDiff(axis, Vector3(0, 0.6f, 0.8f)), 1e-5f);

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
        EXPECT_EQ(angle, PI);
        EXPECT_LE(MaxAbsDiff(axis, h.axis), 1e-6f) << h.axis;
    }
}

TEST(Matrix3, EulerRoundTripsInEveryOrder)
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
    {
        for (int n = 0; n < 200; ++n)
        {
            const float a = wide(rng), b = mid(rng), c = wide(rng);
            Matrix3 m;
            (m.*o.from)(a, b, c);
            float ra, rb, rc;
            ASSERT_TRUE((m.*o.to)(ra, rb, rc));
            EXPECT_LE(MaxAbsDiff(Vector3(ra, rb, rc), Vector3(a, b, c)), 2e-3f) << Vector3(a, b, c);
        }
    }
    // Composition order: XYZ is Rx(a) * Ry(b) * Rz(c).
    Matrix3 rx, ry, rz, xyz;
    rx.FromAngleAxis(Vector3(1, 0, 0), 0.3f);
    ry.FromAngleAxis(Vector3(0, 1, 0), 0.5f);
    rz.FromAngleAxis(Vector3(0, 0, 1), 0.7f);
    xyz.FromEulerXYZ(0.3f, 0.5f, 0.7f);
    EXPECT_LT(MaxAbsDiff(xyz, rx * ry * rz), 1e-6f);
    Matrix3 zyx;
    zyx.FromEulerZYX(0.7f, 0.5f, 0.3f);
    EXPECT_LT(MaxAbsDiff(zyx, rz * ry * rx), 1e-6f);
}

TEST(Matrix3, EulerAtThePoleIsNotUnique)
{
    Matrix3 m;
    m.FromEulerXYZ(0.4f, HALF_PI, 0.2f);
    float a = 9, b = 9, c = 9;
    EXPECT_FALSE(m.ToEulerXYZ(a, b, c));
    EXPECT_EQ(b, HALF_PI);
    EXPECT_EQ(c, 0.0f);
    // With c folded away, a carries a + c.
    EXPECT_NEAR(a, 0.6f, 1e-5f);
    m.FromEulerXYZ(0.4f, -HALF_PI, 0.2f);
    EXPECT_FALSE(m.ToEulerXYZ(a, b, c));
    EXPECT_EQ(b, -HALF_PI);
    EXPECT_EQ(c, 0.0f);
    EXPECT_NEAR(a, 0.2f, 1e-5f);
}

TEST(Matrix3, Orthonormalise)
{
    Matrix3 m(2, 1, 0, 0, 1, 1, 0, 0, 3);
    m.Orthonormalise();
    EXPECT_LT(Orthonormality(m), 1e-6f);
    EXPECT_EQ(m.GetColumn(0), Vector3(1, 0, 0));
    Matrix3 z(0, 1, 0, 0, 1, 1, 0, 0, 3); // zero first column: no guard
    z.Orthonormalise();
    EXPECT_FALSE(std::isfinite(z.m[0][0]));
}

TEST(Matrix3, DecomposeQDU)
{
    // A reflection: q is turned into a rotation and d takes the signs.
    Matrix3 q;
    Vector3 d, u;
    Matrix3(-1, 0, 0, 0, 1, 0, 0, 0, 1).DecomposeQDU(q, d, u);
    EXPECT_EQ(q, Matrix3(1, 0, 0, 0, -1, 0, 0, 0, -1));
    EXPECT_EQ(d, Vector3(-1, -1, -1));
    EXPECT_EQ(u, Vector3(0, 0, 0));

    // A zero column keeps q finite.
    Matrix3(0, 1, 0, 0, 1, 1, 0, 0, 3).DecomposeQDU(q, d, u);
    EXPECT_TRUE(std::isfinite(q.m[0][0]) && std::isfinite(q.m[2][2]));

    std::mt19937 rng(42);
    float worstRebuild = 0.0f, worstOrtho = 0.0f;
    int reflections = 0;
    for (int n = 0; n < 3000; ++n)
    {
        const Matrix3 m = geomtest::RandomWellConditioned(rng);
        m.DecomposeQDU(q, d, u);
        ASSERT_GT(q.Determinant(), 0.0f);
        Matrix3 rebuilt = q * Matrix3(d.x, 0, 0, 0, d.y, 0, 0, 0, d.z);
        rebuilt.MultiplyUnitUpper(u.x, u.y, u.z);
        worstRebuild = std::max(worstRebuild, MaxAbsDiff(rebuilt, m) / FrobeniusNorm(m));
        worstOrtho = std::max(worstOrtho, Orthonormality(q));
        if (m.Determinant() < 0.0f)
        {
            ++reflections;
            ASSERT_LT(d.x * d.y * d.z, 0.0f);
        }
    }
    std::printf("QDU: worst rebuild %g of the norm (bound 1e-5), worst |I - q^T q| %g (bound 1e-5), "
                "%d reflections\n",
                worstRebuild, worstOrtho, reflections);
    EXPECT_LT(worstRebuild, 1e-5f);
    EXPECT_LT(worstOrtho, 1e-5f);
    EXPECT_GT(reflections, 100);
}

TEST(Matrix3, MultiplyUnitUpper)
{
    Matrix3 m(1, 2, 3, 4, 5, 6, 7, 8, 9);
    const Matrix3 expected = m * Matrix3(1, 0.5f, -1, 0, 1, 2, 0, 0, 1);
    EXPECT_EQ(m.MultiplyUnitUpper(0.5f, -1, 2), expected);
    EXPECT_EQ(m, expected);
}

TEST(Matrix3, SingularValuesOfADiagonalMatrix)
{
    Matrix3 left, right;
    Vector3 s;
    Matrix3(3, 0, 0, 0, -2, 0, 0, 0, 0.5f).SingularValueDecomposition(left, s, right);
    // The first reflection maps (3, 0, 0) to (-3, 0, 0) and the third (-2, 0) to (2, 0);
    // both tests then hold at once, and the negative value's sign moves into right.
    EXPECT_EQ(s, Vector3(3, 2, 0.5f));
    EXPECT_EQ(left, Matrix3(-1, 0, 0, 0, -1, 0, 0, 0, 1));
    EXPECT_EQ(right, Matrix3(-1, 0, 0, 0, 1, 0, 0, 0, 1));
    Matrix3 back;
    back.SingularValueComposition(left, s, right);
    EXPECT_EQ(back, Matrix3(3, 0, 0, 0, -2, 0, 0, 0, 0.5f));
}

TEST(Matrix3, SingularValueDecompositionRebuilds)
{
    std::mt19937 rng(2024);
    float worstRebuild = 0.0f, worstOrtho = 0.0f;
    for (int n = 0; n < 3000; ++n)
    {
        // Every third matrix is block diagonal: its bidiagonal form starts with a12 = 0.
        Matrix3 m = geomtest::RandomWellConditioned(rng);
        if (n % 3 == 0)
            m.m[0][2] = m.m[1][2] = m.m[2][0] = m.m[2][1] = 0.0f;
        if (n % 3 == 0 && std::fabs(m.Determinant()) < 0.05f)
            continue;
        Matrix3 left, right;
        Vector3 s(-1, -1, -1);
        m.SingularValueDecomposition(left, s, right);
        ASSERT_GE(s.x, 0.0f);
        ASSERT_GE(s.y, 0.0f);
        ASSERT_GE(s.z, 0.0f);
        Matrix3 back;
        back.SingularValueComposition(left, s, right);
        worstRebuild = std::max(worstRebuild, MaxAbsDiff(back, m) / FrobeniusNorm(m));
        worstOrtho = std::max(worstOrtho, std::max(Orthonormality(left), Orthonormality(right)));
        ASSERT_LT(MaxAbsDiff(back, m), 1e-3f * FrobeniusNorm(m)) << n;
        // The spectral norm is the largest singular value.
        const float largest = std::max(s.x, std::max(s.y, s.z));
        ASSERT_NEAR(m.SpectralNorm(), largest, 1e-3f * largest) << n;
    }
    std::printf("SVD: worst |A - L S R| %g of the norm (bound 1e-3), worst orthonormality %g "
                "(bound 1e-5)\n",
                worstRebuild, worstOrtho);
    EXPECT_LT(worstOrtho, 1e-5f);
}

TEST(Matrix3, EigenSolveSymmetric)
{
    float values[3];
    Vector3 vectors[3];
    Matrix3::IDENTITY.EigenSolveSymmetric(values, vectors);
    EXPECT_EQ(values[0], 1.0f);
    EXPECT_EQ(values[1], 1.0f);
    EXPECT_EQ(values[2], 1.0f);
    EXPECT_EQ(vectors[0], Vector3(1, 0, 0));
    EXPECT_EQ(vectors[1], Vector3(0, 1, 0));
    EXPECT_EQ(vectors[2], Vector3(0, 0, 1));

    std::mt19937 rng(77);
    float worstResidual = 0.0f;
    for (int n = 0; n < 3000; ++n)
    {
        Matrix3 m = geomtest::RandomMatrix(rng);
        m = m + m.Transpose();
        if (n % 4 == 0)
            m.m[0][2] = m.m[2][0] = 1e-7f; // the road without the reflection
        m.EigenSolveSymmetric(values, vectors);
        const float scale = FrobeniusNorm(m);
        for (int i = 0; i < 3; ++i)
        {
            const Vector3 r = m * vectors[i] - vectors[i] * values[i];
            worstResidual = std::max(worstResidual, r.Length() / scale);
            ASSERT_NEAR(vectors[i].Length(), 1.0f, 1e-5f);
        }
        ASSERT_GT(vectors[0].Cross(vectors[1]).Dot(vectors[2]), 0.0f);
        ASSERT_NEAR(values[0] + values[1] + values[2], m.m[0][0] + m.m[1][1] + m.m[2][2], 1e-4f * scale);
    }
    std::printf("EigenSolveSymmetric: worst |A v - lambda v| %g of the norm (bound 1e-5)\n", worstResidual);
    EXPECT_LT(worstResidual, 1e-5f);
}

TEST(Matrix3, SpectralNormAndCubicRoot)
{
    EXPECT_EQ(Matrix3::MaxCubicRoot(-1.0f, 3.0f, -3.0f), 1.0f); // (x - 1)^3
    // (x - 1)(x - 2)(x - 5) = x^3 - 8x^2 + 17x - 10
    EXPECT_NEAR(Matrix3::MaxCubicRoot(-10.0f, 17.0f, -8.0f), 5.0f, 1e-5f);
    // Two roots above 1 while the cubic is positive at 1: (x - 0.5)(x - 1.5)(x - 2)
    EXPECT_NEAR(Matrix3::MaxCubicRoot(-1.5f, 4.75f, -4.0f), 2.0f, 1e-5f);
    // Negative at 1: (x + 1)(x + 2)(x - 0.5)
    EXPECT_NEAR(Matrix3::MaxCubicRoot(-1.0f, 0.5f, 2.5f), 0.5f, 1e-5f);
    EXPECT_FLOAT_EQ(Matrix3(3, 0, 0, 0, -4, 0, 0, 0, 1).SpectralNorm(), 4.0f);
    EXPECT_EQ(Matrix3::ZERO.SpectralNorm(), 0.0f);
}
