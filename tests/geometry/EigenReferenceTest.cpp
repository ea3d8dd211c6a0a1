// The hand-written 3x3 and 4x4 numerics (and the SIMD kernels where they are built)
// over thousands of seeded random matrices: compared with Eigen, computed in double
// precision, and rebuilt from their own decompositions. Each figure is the worst
// error seen, relative where the text says so.
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "GeometryTestUtil.h"

using namespace kv;
using geomtest::FrobeniusNorm;
using geomtest::MaxAbsDiff;
using geomtest::Orthonormality;

namespace
{

constexpr int kCount = 3000;

template <int N, class M>
Eigen::Matrix<double, N, N> ToEigen(const M& m)
{
    Eigen::Matrix<double, N, N> e;
    for (int i = 0; i < N * N; ++i)
        e(i / N, i % N) = m.m[i / N][i % N];
    return e;
}

template <class E>
double MaxRelative(const E& ours, const E& ref)
{
    return (ours - ref).cwiseAbs().maxCoeff() / ref.cwiseAbs().maxCoeff();
}

TEST(EigenReference, SingularValueDecomposition)
{
    std::mt19937 rng(11);
    double values = 0, norm = 0, rebuild = 0, ortho = 0;
    for (int n = 0; n < kCount; ++n)
    {
        // Every third matrix is block diagonal: its bidiagonal form starts with a12 = 0.
        Matrix3 m = geomtest::RandomWellConditioned(rng);
        if (n % 3 == 0)
            m.m[0][2] = m.m[1][2] = m.m[2][0] = m.m[2][1] = 0.0f;
        if (n % 3 == 0 && std::fabs(m.Determinant()) < 0.05f)
            continue;
        Matrix3 left, right, back;
        Vector3 s(-1, -1, -1);
        m.SingularValueDecomposition(left, s, right);
        ASSERT_TRUE(s.x >= 0.0f && s.y >= 0.0f && s.z >= 0.0f) << n;
        double ours[3] = {s.x, s.y, s.z};
        std::sort(ours, ours + 3, [](double a, double b) { return a > b; });
        const Eigen::Vector3d ref = Eigen::JacobiSVD<Eigen::Matrix3d>(ToEigen<3>(m)).singularValues();
        for (int i = 0; i < 3; ++i)
            values = std::max(values, std::fabs(ours[i] - ref(i)) / ref(0));
        norm = std::max(norm, std::fabs(m.SpectralNorm() - ref(0)) / ref(0));
        back.SingularValueComposition(left, s, right);
        rebuild = std::max<double>(rebuild, MaxAbsDiff(back, m) / FrobeniusNorm(m));
        ortho = std::max<double>(ortho, std::max(Orthonormality(left), Orthonormality(right)));
    }
    EXPECT_LT(values, 1e-5) << "singular values, of the largest";
    EXPECT_LT(norm, 2e-4) << "spectral norm, relative";
    EXPECT_LT(rebuild, 1e-3) << "|A - L S R|, of the norm";
    EXPECT_LT(ortho, 1e-5) << "orthonormality of L and R";
}

TEST(EigenReference, SymmetricEigenSystems)
{
    std::mt19937 rng(12);
    double values = 0, residual = 0;
    for (int n = 0; n < kCount; ++n)
    {
        Matrix3 m = geomtest::RandomMatrix(rng);
        m = m + m.Transpose();
        if (n % 4 == 0)
            m.m[0][2] = m.m[2][0] = 1e-7f; // the road without the reflection
        float lambda[3];
        Vector3 v[3];
        m.EigenSolveSymmetric(lambda, v);
        ASSERT_GT(v[0].Cross(v[1]).Dot(v[2]), 0.0f) << "a right-handed set, " << n;
        for (int i = 0; i < 3; ++i)
        {
            ASSERT_NEAR(1.0f, v[i].Length(), 1e-5f) << n;
            residual = std::max<double>(residual, (m * v[i] - v[i] * lambda[i]).Length() / FrobeniusNorm(m));
        }
        double ours[3] = {lambda[0], lambda[1], lambda[2]};
        std::sort(ours, ours + 3);
        // Eigen works on the float matrix as given, widened to double.
        const Eigen::Vector3d ref = Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d>(ToEigen<3>(m)).eigenvalues();
        for (int i = 0; i < 3; ++i)
            values = std::max(values, std::fabs(ours[i] - ref(i)) / std::max(std::fabs(ref(0)), std::fabs(ref(2))));
    }
    EXPECT_LT(values, 1e-5) << "eigenvalues, of the largest";
    EXPECT_LT(residual, 1e-5) << "|A v - lambda v|, of the norm";
}

TEST(EigenReference, InversesDeterminantsAndQDU)
{
    std::mt19937 rng(13);
    double inv3 = 0, det3 = 0, inv4 = 0, det4 = 0, affine = 0, qdu = 0, orthoQ = 0;
    int reflections = 0;
    for (int n = 0; n < kCount; ++n)
    {
        const Matrix3 m3 = geomtest::RandomWellConditioned(rng);
        const Eigen::Matrix3d e3 = ToEigen<3>(m3);
        Matrix3 i3;
        ASSERT_TRUE(m3.Inverse(i3, 1e-6f));
        inv3 = std::max(inv3, MaxRelative<Eigen::Matrix3d>(ToEigen<3>(i3), e3.inverse()));
        // Determinant errors are measured against the size of its products.
        det3 = std::max(det3, std::fabs(m3.Determinant() - e3.determinant()) / e3.cwiseAbs().rowwise().sum().prod());

        Matrix3 q;
        Vector3 d, s;
        m3.DecomposeQDU(q, d, s);
        ASSERT_GT(q.Determinant(), 0.0f);
        Matrix3 rebuilt = q * Matrix3(d.x, 0, 0, 0, d.y, 0, 0, 0, d.z);
        rebuilt.MultiplyUnitUpper(s.x, s.y, s.z);
        qdu = std::max<double>(qdu, MaxAbsDiff(rebuilt, m3) / FrobeniusNorm(m3));
        orthoQ = std::max<double>(orthoQ, Orthonormality(q));
        if (m3.Determinant() < 0.0f)
        {
            ++reflections;
            ASSERT_LT(d.x * d.y * d.z, 0.0f) << "the reflection moves into d";
        }

        Matrix4 m4 = geomtest::RandomMatrix<4, Matrix4>(rng);
        const Eigen::Matrix4d e4 = ToEigen<4>(m4);
        det4 = std::max(det4, std::fabs(m4.Determinant() - e4.determinant()) / e4.cwiseAbs().rowwise().sum().prod());
        if (std::fabs(e4.determinant()) >= 0.05)
            inv4 = std::max(inv4, MaxRelative<Eigen::Matrix4d>(ToEigen<4>(m4.Inverse()), e4.inverse()));
        m4.m[3][0] = m4.m[3][1] = m4.m[3][2] = 0.0f;
        m4.m[3][3] = 1.0f;
        if (std::fabs(m4.Determinant()) >= 0.05f)
            affine = std::max(affine,
                              MaxRelative<Eigen::Matrix4d>(ToEigen<4>(m4.InverseAffine()), ToEigen<4>(m4).inverse()));
    }
    EXPECT_GT(reflections, 100);
    EXPECT_LT(inv3, 2e-5) << "Matrix3 inverse, of the largest element";
    EXPECT_LT(det3, 1e-6) << "Matrix3 determinant, of the row sums";
    EXPECT_LT(inv4, 2e-5) << "Matrix4 inverse, of the largest element";
    EXPECT_LT(det4, 1e-6) << "Matrix4 determinant, of the row sums";
    EXPECT_LT(affine, 2e-5) << "Matrix4 affine inverse, of the largest element";
    EXPECT_LT(qdu, 1e-5) << "|A - q d u|, of the norm";
    EXPECT_LT(orthoQ, 1e-5) << "orthonormality of q";
}

TEST(EigenReference, ProductsRotationsAndSlerp)
{
    std::mt19937 rng(14);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    const Vector3 v(0.3f, -1.7f, 2.9f);
    double product = 0, rotation = 0, slerp = 0;
    int slerps = 0;
    for (int n = 0; n < kCount; ++n)
    {
        const Matrix4 a = geomtest::RandomMatrix<4, Matrix4>(rng), b = geomtest::RandomMatrix<4, Matrix4>(rng);
        Matrix4 ab;
        a.Concatenate(b, ab);
        product = std::max(product, (ToEigen<4>(ab) - ToEigen<4>(a) * ToEigen<4>(b)).cwiseAbs().maxCoeff());

        const Quaternion p = geomtest::RandomUnitQuaternion(rng), q = geomtest::RandomUnitQuaternion(rng);
        const Eigen::Quaterniond ep(p.w, p.x, p.y, p.z), eq(q.w, q.x, q.y, q.z);
        Matrix3 m;
        p.ToRotationMatrix(m);
        rotation = std::max(rotation, (ToEigen<3>(m) - ep.toRotationMatrix()).cwiseAbs().maxCoeff());
        // Back from the matrix to the quaternion (or its negation, the same rotation); a
        // vector turned by either, and the axes, agree.
        Quaternion back;
        back.FromRotationMatrix(m);
        ASSERT_LE(MaxAbsDiff(p, back * (Quaternion::Dot(back, p) < 0.0f ? -1.0f : 1.0f)), 2e-6f) << n;
        ASSERT_LE(MaxAbsDiff(m * v, p.Rotate(v)), 1e-5f) << n;
        Vector3 axes[3];
        p.ToAxes(axes);
        ASSERT_EQ((std::vector<Vector3>{p.XAxis(), p.YAxis(), p.ZAxis()}), std::vector<Vector3>(axes, axes + 3));

        // Near equal rotations take the linear road, which Eigen does not; t reaches past
        // both ends, where the sines' arguments pass pi/2 and pi.
        if (std::fabs(ep.dot(eq)) > 0.99)
            continue;
        const float t = n % 4 == 0 ? 4.0f * u(rng) : 0.5f + 0.75f * u(rng);
        const Quaternion ours = Quaternion::Slerp(t, p, q, true);
        const Eigen::Quaterniond ref = ep.slerp(t, eq);
        slerp = std::max({slerp, std::fabs(ours.w - ref.w()), std::fabs(ours.x - ref.x()), std::fabs(ours.y - ref.y()),
                          std::fabs(ours.z - ref.z())});
        ++slerps;
    }
    EXPECT_GT(slerps, kCount / 2);
    EXPECT_LT(product, 1e-6) << "Matrix4 product";
    EXPECT_LT(rotation, 1e-6) << "quaternion to matrix";
    EXPECT_LT(slerp, 2e-6) << "slerp";
}

} // namespace
