#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "GeometryTestUtil.h"
#include "geometry/Matrix4.h"
#include "geometry/ScalarMath.h"

using namespace kv;
using geomtest::MaxAbsDiff;

namespace
{

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
    EXPECT_EQ(-18.0f, m.Determinant());
    const Matrix4 p = m.Adjoint() * m;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            EXPECT_EQ(r == c ? -18.0f : 0.0f, p.m[r][c]) << r << c;
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
        ASSERT_EQ(Vector3(0, 0, 0), Vector3(m.m[3][0], m.m[3][1], m.m[3][2]));
        ASSERT_EQ(1.0f, m.m[3][3]);
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
    // Scale, then rotate, then move.
    Quaternion quarter;
    quarter.FromAngleAxis(HALF_PI, Vector3(0, 0, 1));
    Matrix4 m;
    m.MakeTransform(Vector3(10, 0, 0), Vector3(2, 1, 1), quarter);
    EXPECT_LE(MaxAbsDiff(Vector3(10, 2, 0), m * Vector3(1, 0, 0)), 1e-6f);
    m.MakeInverseTransform(Vector3(10, 0, 0), Vector3(2, 1, 1), quarter);
    EXPECT_LE(MaxAbsDiff(Vector3(1, 0, 0), m * Vector3(10, 2, 0)), 1e-6f);
}

TEST(Matrix4, ViewReflectionLookAtAndFrames)
{
    EXPECT_EQ(Matrix4::IDENTITY, Matrix4::MakeViewMatrix(Vector3(0, 0, 0), Quaternion::IDENTITY));
    const Matrix4 view = Matrix4::MakeViewMatrix(Vector3(1, 2, 3), Quaternion::IDENTITY);
    EXPECT_EQ(Vector3(0, 0, 0), view * Vector3(1, 2, 3));
    Plane unit(Vector3(1, 2, 2), 0.0f);
    unit.Normalise();
    const Matrix4 r = Matrix4::MakeReflection(unit);
    EXPECT_LT(MaxAbsDiff(Matrix4::IDENTITY, r * r), 1e-6f);
    const Matrix4 floor = Matrix4::MakeReflection(Plane(0, 1, 0, -1)); // y = 1
    EXPECT_EQ(Vector3(3, -3, 4), floor * Vector3(3, 5, 4));
    EXPECT_EQ(Vector3(3, 2, 1), Matrix4::MakeReflection(Plane(0, 0, 1, -2)) * Vector3(3, 2, 3));
    EXPECT_EQ(view * floor, Matrix4::MakeViewMatrix(Vector3(1, 2, 3), Quaternion::IDENTITY, &floor));

    const Matrix4 m = Matrix4::LookAtForward(Vector3(0, 0, 5), Vector3(0, 0, 0), Vector3(0, 1, 0));
    EXPECT_EQ(Vector3(0, 0, 5), m * Vector3(0, 0, 0));  // the target lies 5 ahead on z
    EXPECT_EQ(Vector3(0, 0, 0), m * Vector3(0, 0, 5));  // the eye is the origin
    EXPECT_EQ(Vector3(-1, 0, 5), m * Vector3(1, 0, 0)); // x = up cross z
    EXPECT_EQ(1.0f, m.m[1][1]);                         // up stays up
    const Matrix4 b = Matrix4::LookAtBackward(Vector3(0, 0, 5), Vector3(0, 0, 0), Vector3(0, 1, 0));
    EXPECT_EQ(Vector3(0, 0, -5), b * Vector3(0, 0, 0));
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
