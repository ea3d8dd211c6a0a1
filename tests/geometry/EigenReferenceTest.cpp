// The hand-written 3x3 and 4x4 numerics over thousands of seeded random
// matrices: compared with Eigen, computed in double precision, and rebuilt from
// their own decompositions. Each prints its worst error beside its tolerance, so a
// drift shows before it fails.
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
    for (int r = 0; r < N; ++r)
        for (int c = 0; c < N; ++c)
            e(r, c) = m.m[r][c];
    return e;
}

// The worst error seen, printed and checked against its tolerance.
struct Worst
{
    const char* what;
    double tolerance, value = 0.0;
    void Add(double error) { value = std::max(value, error); }
    ~Worst()
    {
        std::printf("%-36s worst %.3g, tolerance %.3g\n", what, value, tolerance);
        EXPECT_LT(value, tolerance) << what;
    }
};

TEST(EigenReference, SingularValueDecomposition)
{
    std::mt19937 rng(11);
    Worst values{"singular values (of sigma max)", 1e-5}, norm{"spectral norm (relative)", 2e-4};
    Worst rebuild{"|A - L S R| (of the norm)", 1e-3}, ortho{"orthonormality of L and R", 1e-5};
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
            values.Add(std::fabs(ours[i] - ref(i)) / ref(0));
        norm.Add(std::fabs(m.SpectralNorm() - ref(0)) / ref(0));
        back.SingularValueComposition(left, s, right);
        rebuild.Add(MaxAbsDiff(back, m) / FrobeniusNorm(m));
        ortho.Add(std::max(Orthonormality(left), Orthonormality(right)));
    }
}

TEST(EigenReference, SymmetricEigenSystems)
{
    std::mt19937 rng(12);
    Worst values{"symmetric eigenvalues (of |max|)", 1e-5}, residual{"|A v - lambda v| (of the norm)", 1e-5};
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
            residual.Add((m * v[i] - v[i] * lambda[i]).Length() / FrobeniusNorm(m));
        }
        double ours[3] = {lambda[0], lambda[1], lambda[2]};
        std::sort(ours, ours + 3);
        // Eigen works on the float matrix as given, widened to double.
        const Eigen::Vector3d ref = Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d>(ToEigen<3>(m)).eigenvalues();
        for (int i = 0; i < 3; ++i)
            values.Add(std::fabs(ours[i] - ref(i)) / std::max(std::fabs(ref(0)), std::fabs(ref(2))));
    }
}

TEST(EigenReference, InversesDeterminantsAndQDU)
{
    std::mt19937 rng(13);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    Worst inv3{"Matrix3 inverse (of max element)", 2e-5}, det3{"Matrix3 determinant (of row sums)", 1e-6};
    Worst inv4{"Matrix4 inverse (of max element)", 2e-5}, det4{"Matrix4 determinant (of row sums)", 1e-6};
    Worst affine{"Matrix4 affine inverse (of max)", 2e-5}, qdu{"|A - q d u| (of the norm)", 1e-5};
    Worst orthoQ{"orthonormality of q", 1e-5};
    int reflections = 0;
    for (int n = 0; n < kCount; ++n)
    {
        const Matrix3 m3 = geomtest::RandomWellConditioned(rng);
        const Eigen::Matrix3d e3 = ToEigen<3>(m3);
        Matrix3 i3;
        ASSERT_TRUE(m3.Inverse(i3, 1e-6f));
        const Eigen::Matrix3d ref3 = e3.inverse();
        inv3.Add((ToEigen<3>(i3) - ref3).cwiseAbs().maxCoeff() / ref3.cwiseAbs().maxCoeff());
        // Determinant errors are measured against the size of its products.
        det3.Add(std::fabs(m3.Determinant() - e3.determinant()) / e3.cwiseAbs().rowwise().sum().prod());

        Matrix3 q;
        Vector3 d, s;
        m3.DecomposeQDU(q, d, s);
        ASSERT_GT(q.Determinant(), 0.0f);
        Matrix3 rebuilt = q * Matrix3(d.x, 0, 0, 0, d.y, 0, 0, 0, d.z);
        rebuilt.MultiplyUnitUpper(s.x, s.y, s.z);
        qdu.Add(MaxAbsDiff(rebuilt, m3) / FrobeniusNorm(m3));
        orthoQ.Add(Orthonormality(q));
        if (m3.Determinant() < 0.0f)
        {
            ++reflections;
            ASSERT_LT(d.x * d.y * d.z, 0.0f) << "the reflection moves into d";
        }

        Matrix4 m4;
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                m4.m[r][c] = u(rng);
        const Eigen::Matrix4d e4 = ToEigen<4>(m4);
        det4.Add(std::fabs(m4.Determinant() - e4.determinant()) / e4.cwiseAbs().rowwise().sum().prod());
        if (std::fabs(e4.determinant()) >= 0.05)
        {
            const Eigen::Matrix4d ref4 = e4.inverse();
            inv4.Add((ToEigen<4>(m4.Inverse()) - ref4).cwiseAbs().maxCoeff() / ref4.cwiseAbs().maxCoeff());
        }
        m4.m[3][0] = m4.m[3][1] = m4.m[3][2] = 0.0f;
        m4.m[3][3] = 1.0f;
        if (std::fabs(m4.Determinant()) >= 0.05f)
        {
            const Eigen::Matrix4d ref = ToEigen<4>(m4).inverse();
            affine.Add((ToEigen<4>(m4.InverseAffine()) - ref).cwiseAbs().maxCoeff() / ref.cwiseAbs().maxCoeff());
        }
    }
    EXPECT_GT(reflections, 100);
}

TEST(EigenReference, ProductsRotationsAndSlerp)
{
    std::mt19937 rng(14);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    std::normal_distribution<float> g(0.0f, 1.0f);
    Worst product{"Matrix4 product (absolute)", 1e-6}, rotation{"quaternion to matrix (absolute)", 1e-6};
    Worst slerp{"slerp (absolute)", 2e-6};
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
        product.Add((ToEigen<4>(ab) - ToEigen<4>(a) * ToEigen<4>(b)).cwiseAbs().maxCoeff());

        const Quaternion p = Quaternion(g(rng), g(rng), g(rng), g(rng)).Normalised();
        const Quaternion q = Quaternion(g(rng), g(rng), g(rng), g(rng)).Normalised();
        const Eigen::Quaterniond ep(p.w, p.x, p.y, p.z), eq(q.w, q.x, q.y, q.z);
        Matrix3 m;
        p.ToRotationMatrix(m);
        rotation.Add((ToEigen<3>(m) - ep.toRotationMatrix()).cwiseAbs().maxCoeff());

        // Near equal rotations take the linear road, which Eigen does not; t reaches past
        // both ends, where the sines' arguments pass pi/2 and pi.
        if (std::fabs(ep.dot(eq)) > 0.99)
            continue;
        const float t = n % 4 == 0 ? 4.0f * u(rng) : 0.5f + 0.75f * u(rng);
        const Quaternion ours = Quaternion::Slerp(t, p, q, true);
        const Eigen::Quaterniond ref = ep.slerp(t, eq);
        slerp.Add(std::max({std::fabs(ours.w - ref.w()), std::fabs(ours.x - ref.x()), std::fabs(ours.y - ref.y()),
                            std::fabs(ours.z - ref.z())}));
        ++slerps;
    }
    EXPECT_GT(slerps, kCount / 2);
}

} // namespace
