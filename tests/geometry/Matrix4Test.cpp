#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>

#include "GeometryTestUtil.h"
#include "geometry/Matrix4.h"
#include "geometry/ScalarMath.h"

using namespace kv;

namespace
{

float MaxAbsDiff(const Matrix4& a, const Matrix4& b)
{
    float e = 0.0f;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            e = std::max(e, std::fabs(a.m[r][c] - b.m[r][c]));
    return e;
}

Matrix4 RandomMatrix4(std::mt19937& rng)
{
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    for (;;)
    {
        Matrix4 m;
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                m.m[r][c] = u(rng);
        if (std::fabs(m.Determinant()) > 0.1f)
            return m;
    }
}

} // namespace

TEST(Matrix4, ConcatenateAndRows)
{
    const float rows[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    Matrix4 a;
    a.FromRows3x4(rows);
    EXPECT_EQ(a, Matrix4(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0, 0, 0, 1));
    Matrix4 result(7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7);
    a.Concatenate(Matrix4::IDENTITY, result);
    EXPECT_EQ(result, a);
    const Matrix4 t(1, 0, 0, 5, 0, 1, 0, 6, 0, 0, 1, 7, 0, 0, 0, 1);
    EXPECT_EQ(t * Vector3(1, 1, 1), Vector3(6, 7, 8));
    EXPECT_EQ((t * t) * Vector3(0, 0, 0), Vector3(10, 12, 14));
    EXPECT_EQ(Matrix4::CLIPSPACE2D_TO_IMAGESPACE * Vector3(-1, 1, 0.25f), Vector3(0, 0, 0.25f));
}

TEST(Matrix4, AdjointTimesMatrixIsDeterminantTimesIdentity)
{
    const Matrix4 m(2, 1, 0, 3, 0, 1, 4, 1, 1, 0, 2, 0, 3, 1, 1, 1);
    const float det = m.Determinant();
    EXPECT_EQ(det, -18.0f);
    const Matrix4 p = m.Adjoint() * m;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            EXPECT_EQ(p.m[r][c], r == c ? det : 0.0f) << r << c;
    // A singular matrix: no test, non-finite results.
    const Matrix4 s(1, 2, 3, 4, 2, 4, 6, 8, 0, 0, 1, 0, 0, 0, 0, 1);
    EXPECT_EQ(s.Determinant(), 0.0f);
    EXPECT_FALSE(std::isfinite(s.Inverse().m[0][0]));
}

TEST(Matrix4, InversesTimesMatrixAreIdentity)
{
    std::mt19937 rng(31);
    float worst = 0.0f, worstAffine = 0.0f;
    for (int n = 0; n < 3000; ++n)
    {
        const Matrix4 m = RandomMatrix4(rng);
        worst = std::max(worst, MaxAbsDiff(m.Inverse() * m, Matrix4::IDENTITY));
        Matrix4 affine = m;
        affine.m[3][0] = affine.m[3][1] = affine.m[3][2] = 0.0f;
        affine.m[3][3] = 1.0f;
        if (std::fabs(affine.Determinant()) < 0.1f)
            continue;
        const Matrix4 inv = affine.InverseAffine();
        EXPECT_EQ(inv.m[3][3], 1.0f);
        worstAffine = std::max(worstAffine, MaxAbsDiff(inv * affine, Matrix4::IDENTITY));
    }
    std::printf("Matrix4: worst |I - A^-1 A| %g, affine %g (bound 1e-4)\n", worst, worstAffine);
    EXPECT_LT(worst, 1e-4f);
    EXPECT_LT(worstAffine, 1e-4f);
}

TEST(Matrix4, TransformThenDecompose)
{
    std::mt19937 rng(8);
    std::uniform_real_distribution<float> pos(-100.0f, 100.0f), scl(0.1f, 10.0f);
    for (int n = 0; n < 2000; ++n)
    {
        const Vector3 p(pos(rng), pos(rng), pos(rng)), s(scl(rng), scl(rng), scl(rng));
        const Quaternion q = geomtest::RandomUnitQuaternion(rng);
        Matrix4 m;
        m.MakeTransform(p, s, q);
        EXPECT_EQ(m.m[3][0], 0.0f);
        EXPECT_EQ(m.m[3][3], 1.0f);
        Vector3 p2, s2;
        Quaternion q2;
        m.DecomposeAffine(p2, s2, q2);
        ASSERT_EQ(p2, p);
        ASSERT_LE(geomtest::MaxAbsDiff(Vector3(s2.x / s.x, s2.y / s.y, s2.z / s.z), Vector3(1, 1, 1)), 1e-5f) << n;
        ASSERT_TRUE(q2.EqualsWithin(q, 2e-3f)) << n;

        // The inverse transform undoes it.
        Matrix4 inv;
        inv.MakeInverseTransform(p, s, q);
        const Vector3 v(pos(rng), pos(rng), pos(rng));
        ASSERT_LE(geomtest::MaxAbsDiff(inv * (m * v), v), 1e-3f) << n;
    }
    // Scale, then rotate, then move.
    Quaternion quarter;
    quarter.FromAngleAxis(HALF_PI, Vector3(0, 0, 1));
    Matrix4 m;
    m.MakeTransform(Vector3(10, 0, 0), Vector3(2, 1, 1), quarter);
    const Vector3 r = m * Vector3(1, 0, 0);
    EXPECT_NEAR(r.x, 10.0f, 1e-6f);
    EXPECT_NEAR(r.y, 2.0f, 1e-6f);
}

TEST(Matrix4, ViewMatrixAndReflection)
{
    EXPECT_EQ(Matrix4::MakeViewMatrix(Vector3(0, 0, 0), Quaternion::IDENTITY), Matrix4::IDENTITY);
    const Matrix4 view = Matrix4::MakeViewMatrix(Vector3(1, 2, 3), Quaternion::IDENTITY);
    EXPECT_EQ(view * Vector3(1, 2, 3), Vector3(0, 0, 0));

    Plane unit(Vector3(1, 2, 2), 0.0f);
    unit.Normalise();
    const Matrix4 r = Matrix4::MakeReflection(unit);
    EXPECT_LT(MaxAbsDiff(r * r, Matrix4::IDENTITY), 1e-6f);
    const Matrix4 floor = Matrix4::MakeReflection(Plane(0, 1, 0, -1)); // y = 1
    EXPECT_EQ(floor * Vector3(3, 5, 4), Vector3(3, -3, 4));
    const Matrix4 reflected = Matrix4::MakeViewMatrix(Vector3(1, 2, 3), Quaternion::IDENTITY, &floor);
    EXPECT_EQ(reflected, view * floor);
}

TEST(Matrix4, LookAt)
{
    const Matrix4 m = Matrix4::LookAtForward(Vector3(0, 0, 5), Vector3(0, 0, 0), Vector3(0, 1, 0));
    EXPECT_EQ(m * Vector3(0, 0, 0), Vector3(0, 0, 5)); // the target lies 5 ahead on z
    EXPECT_EQ(m * Vector3(0, 0, 5), Vector3(0, 0, 0)); // the eye is the origin
    EXPECT_EQ(m.m[1][1], 1.0f);                        // up stays up
    const Matrix4 b = Matrix4::LookAtBackward(Vector3(0, 0, 5), Vector3(0, 0, 0), Vector3(0, 1, 0));
    EXPECT_EQ(b * Vector3(0, 0, 0), Vector3(0, 0, -5));

    // Eye on the target: the three axes stay zero.
    const Matrix4 z = Matrix4::LookAtForward(Vector3(1, 1, 1), Vector3(1, 1, 1), Vector3(0, 1, 0));
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c)
            EXPECT_EQ(z.m[r][c], 0.0f);
    EXPECT_EQ(z.m[3][3], 1.0f);
}

TEST(Matrix4, FrameFromDirection)
{
    Matrix3 m(2, 2, 2, 2, 2, 2, 2, 2, 2);
    EXPECT_FALSE(Matrix4::FrameFromDirection(Vector3(0, 3, 0), Vector3(0, 1, 0), m));
    EXPECT_EQ(m, Matrix3::IDENTITY);
    m = Matrix3::ZERO;
    EXPECT_FALSE(Matrix4::FrameFromDirection(Vector3(1e-6f, 0, 0), Vector3(0, 1, 0), m));
    EXPECT_EQ(m, Matrix3::IDENTITY);
    // up along the direction, however short: no side.
    m = Matrix3::ZERO;
    EXPECT_FALSE(Matrix4::FrameFromDirection(Vector3(0, 1, 0), Vector3(0, 0, 1e-9f), m));
    EXPECT_EQ(m, Matrix3::IDENTITY);
    // A frame that cannot come out orthonormal (a NaN up) leaves the caller's matrix.
    m = Matrix3::ZERO;
    EXPECT_FALSE(Matrix4::FrameFromDirection(Vector3(0, 1, 0), Vector3(std::nanf(""), 0, 0), m));
    EXPECT_EQ(m, Matrix3::ZERO);
    ASSERT_TRUE(Matrix4::FrameFromDirection(Vector3(0, 0, -2), Vector3(0, 1, 0), m));
    EXPECT_EQ(m.GetColumn(1), Vector3(0, 0, -1));
    EXPECT_EQ(m.GetColumn(0), Vector3(1, 0, 0));
    EXPECT_EQ(m.GetColumn(2), Vector3(0, 1, 0));
}
