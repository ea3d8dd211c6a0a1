// Compares the hand-written 3x3 and 4x4 numerics with Eigen, computed in double precision,
// over a few thousand seeded random matrices. The tolerances are printed with the worst
// error seen, so a drift shows before it fails.
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>

#include "GeometryTestUtil.h"
#include "geometry/Matrix3.h"
#include "geometry/Matrix4.h"
#include "geometry/Quaternion.h"

using namespace kv;

namespace
{

constexpr int kCount = 4000;

Eigen::Matrix3d ToEigen(const Matrix3& m)
{
    Eigen::Matrix3d e;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            e(r, c) = m.m[r][c];
    return e;
}

Eigen::Matrix4d ToEigen(const Matrix4& m)
{
    Eigen::Matrix4d e;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            e(r, c) = m.m[r][c];
    return e;
}

void Report(const char* what, double worst, double tolerance)
{
    std::printf("%-34s worst %.3g, tolerance %.3g\n", what, worst, tolerance);
}

} // namespace

TEST(EigenReference, SingularValuesAndSpectralNorm)
{
    std::mt19937 rng(11);
    double worst = 0.0, worstNorm = 0.0;
    const double tolerance = 1e-5, normTolerance = 1e-4;
    for (int n = 0; n < kCount; ++n)
    {
        const Matrix3 m = geomtest::RandomWellConditioned(rng);
        Matrix3 left, right;
        Vector3 s;
        m.SingularValueDecomposition(left, s, right);
        double ours[3] = {s.x, s.y, s.z};
        std::sort(ours, ours + 3, [](double a, double b) { return a > b; });
        const Eigen::Vector3d ref = Eigen::JacobiSVD<Eigen::Matrix3d>(ToEigen(m)).singularValues();
        for (int i = 0; i < 3; ++i)
            worst = std::max(worst, std::fabs(ours[i] - ref(i)) / ref(0));
        worstNorm = std::max(worstNorm, std::fabs(m.SpectralNorm() - ref(0)) / ref(0));
    }
    Report("singular values (of sigma max)", worst, tolerance);
    Report("spectral norm (relative)", worstNorm, normTolerance);
    EXPECT_LT(worst, tolerance);
    EXPECT_LT(worstNorm, normTolerance);
}

TEST(EigenReference, SymmetricEigenvalues)
{
    std::mt19937 rng(12);
    double worst = 0.0;
    const double tolerance = 1e-5;
    for (int n = 0; n < kCount; ++n)
    {
        Matrix3 m = geomtest::RandomMatrix(rng);
        m = m + m.Transpose();
        float values[3];
        Vector3 vectors[3];
        m.EigenSolveSymmetric(values, vectors);
        double ours[3] = {values[0], values[1], values[2]};
        std::sort(ours, ours + 3);
        // Eigen works on the float matrix as given, widened to double.
        const Eigen::Vector3d ref = Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d>(ToEigen(m)).eigenvalues();
        const double scale = std::max(std::fabs(ref(0)), std::fabs(ref(2)));
        for (int i = 0; i < 3; ++i)
            worst = std::max(worst, std::fabs(ours[i] - ref(i)) / scale);
    }
    Report("symmetric eigenvalues (of |max|)", worst, tolerance);
    EXPECT_LT(worst, tolerance);
}

TEST(EigenReference, InversesAndDeterminants)
{
    std::mt19937 rng(13);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    double worstInv3 = 0.0, worstDet3 = 0.0, worstInv4 = 0.0, worstDet4 = 0.0;
    const double invTolerance = 2e-5, detTolerance = 1e-6;
    for (int n = 0; n < kCount; ++n)
    {
        const Matrix3 m3 = geomtest::RandomWellConditioned(rng);
        const Eigen::Matrix3d e3 = ToEigen(m3);
        Matrix3 inv3;
        ASSERT_TRUE(m3.Inverse(inv3, 1e-6f));
        const Eigen::Matrix3d ref3 = e3.inverse();
        worstInv3 = std::max(worstInv3, (ToEigen(inv3) - ref3).cwiseAbs().maxCoeff() / ref3.cwiseAbs().maxCoeff());
        // Determinant errors are measured against the size of its products.
        const double scale3 = e3.cwiseAbs().rowwise().sum().prod();
        worstDet3 = std::max(worstDet3, std::fabs(m3.Determinant() - e3.determinant()) / scale3);

        Matrix4 m4;
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                m4.m[r][c] = u(rng);
        const Eigen::Matrix4d e4 = ToEigen(m4);
        const double scale4 = e4.cwiseAbs().rowwise().sum().prod();
        worstDet4 = std::max(worstDet4, std::fabs(m4.Determinant() - e4.determinant()) / scale4);
        if (std::fabs(e4.determinant()) < 0.05)
            continue; // the inverse has no test of its own
        const Eigen::Matrix4d ref4 = e4.inverse();
        worstInv4 =
            std::max(worstInv4, (ToEigen(m4.Inverse()) - ref4).cwiseAbs().maxCoeff() / ref4.cwiseAbs().maxCoeff());
    }
    Report("Matrix3 inverse (of max element)", worstInv3, invTolerance);
    Report("Matrix3 determinant (of row sums)", worstDet3, detTolerance);
    Report("Matrix4 inverse (of max element)", worstInv4, invTolerance);
    Report("Matrix4 determinant (of row sums)", worstDet4, detTolerance);
    EXPECT_LT(worstInv3, invTolerance);
    EXPECT_LT(worstDet3, detTolerance);
    EXPECT_LT(worstInv4, invTolerance);
    EXPECT_LT(worstDet4, detTolerance);
}

TEST(EigenReference, ProductsRotationsAndSlerp)
{
    std::mt19937 rng(14);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    std::normal_distribution<float> g(0.0f, 1.0f);
    double worstProduct = 0.0, worstRotation = 0.0, worstSlerp = 0.0;
    const double productTolerance = 1e-6, rotationTolerance = 1e-6, slerpTolerance = 2e-6;
    int slerps = 0;
    for (int n = 0; n < kCount; ++n)
    {
        Matrix4 a, b, ab;
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
            {
                a.m[r][c] = u(rng);
                b.m[r][c] = u(rng);
            }
        a.Concatenate(b, ab);
        worstProduct = std::max(worstProduct, (ToEigen(ab) - ToEigen(a) * ToEigen(b)).cwiseAbs().maxCoeff());

        const Quaternion p = Quaternion(g(rng), g(rng), g(rng), g(rng)).Normalised();
        const Quaternion q = Quaternion(g(rng), g(rng), g(rng), g(rng)).Normalised();
        const Eigen::Quaterniond ep(p.w, p.x, p.y, p.z), eq(q.w, q.x, q.y, q.z);
        Matrix3 rotation;
        p.ToRotationMatrix(rotation);
        worstRotation = std::max(worstRotation, (ToEigen(rotation) - ep.toRotationMatrix()).cwiseAbs().maxCoeff());

        // Near equal rotations take the linear road, which Eigen does not; t reaches past
        // both ends, where the sines' arguments pass pi/2 and pi.
        if (std::fabs(ep.dot(eq)) > 0.99)
            continue;
        const float t = n % 4 == 0 ? 4.0f * u(rng) : 0.5f + 0.75f * u(rng);
        const Quaternion ours = Quaternion::Slerp(t, p, q, true);
        const Eigen::Quaterniond ref = ep.slerp(t, eq);
        worstSlerp = std::max({worstSlerp, std::fabs(ours.w - ref.w()), std::fabs(ours.x - ref.x()),
                               std::fabs(ours.y - ref.y()), std::fabs(ours.z - ref.z())});
        ++slerps;
    }
    Report("Matrix4 product (absolute)", worstProduct, productTolerance);
    Report("quaternion to matrix (absolute)", worstRotation, rotationTolerance);
    Report("slerp (absolute)", worstSlerp, slerpTolerance);
    EXPECT_GT(slerps, kCount / 2);
    EXPECT_LT(worstProduct, productTolerance);
    EXPECT_LT(worstRotation, rotationTolerance);
    EXPECT_LT(worstSlerp, slerpTolerance);
}
