#pragma once
// Seeded random inputs and distances shared by the geometry suites.
#include <algorithm>
#include <cmath>
#include <random>

#include "geometry/Matrix3.h"
#include "geometry/Matrix4.h"
#include "geometry/Quaternion.h"

namespace geomtest
{

// The largest difference of any element of two matrices of one kind.
template <class M>
float MaxAbsDiff(const M& a, const M& b)
{
    constexpr int N = sizeof(a.m[0]) / sizeof(a.m[0][0]);
    float e = 0.0f;
    for (int i = 0; i < N * N; ++i)
        e = std::max(e, std::fabs(a.m[i / N][i % N] - b.m[i / N][i % N]));
    return e;
}
inline float MaxAbsDiff(const kv::Vector3& a, const kv::Vector3& b)
{
    return std::max({std::fabs(a.x - b.x), std::fabs(a.y - b.y), std::fabs(a.z - b.z)});
}
inline float MaxAbsDiff(const kv::Quaternion& a, const kv::Quaternion& b)
{
    return std::max({std::fabs(a.w - b.w), std::fabs(a.x - b.x), std::fabs(a.y - b.y), std::fabs(a.z - b.z)});
}

inline float FrobeniusNorm(const kv::Matrix3& a)
{
    float s = 0.0f;
    for (int i = 0; i < 9; ++i)
        s += a.m[i / 3][i % 3] * a.m[i / 3][i % 3];
    return std::sqrt(s);
}

// How far m^T m is from the identity.
inline float Orthonormality(const kv::Matrix3& m)
{
    return MaxAbsDiff(m.Transpose() * m, kv::Matrix3::IDENTITY);
}

// Elements uniform in -1..1.
template <int N = 3, class M = kv::Matrix3>
M RandomMatrix(std::mt19937& rng)
{
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    M m;
    for (int i = 0; i < N * N; ++i)
        m.m[i / N][i % N] = u(rng);
    return m;
}

// Random but not nearly singular: |det| at least a tenth of what a matrix of that size
// could have. The closed-form 2x2 steps lose accuracy as a block nears singularity.
inline kv::Matrix3 RandomWellConditioned(std::mt19937& rng)
{
    for (;;)
    {
        const kv::Matrix3 m = RandomMatrix(rng);
        const float n = FrobeniusNorm(m);
        if (std::fabs(m.Determinant()) > 0.1f * n * n * n / 5.196f)
            return m;
    }
}

inline kv::Quaternion RandomUnitQuaternion(std::mt19937& rng)
{
    std::normal_distribution<float> g(0.0f, 1.0f);
    return kv::Quaternion(g(rng), g(rng), g(rng), g(rng)).Normalised();
}

} // namespace geomtest
