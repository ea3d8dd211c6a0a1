// Nanoseconds per call of the geometry library's hot routines beside the same operation
// in Eigen (or a plain loop where Eigen has none), measured in one run over the same
// inputs. Each figure is the best of several interleaved rounds.
#include <Eigen/Dense>
#include <Eigen/Geometry>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "geometry/Intersection.h"
#include "geometry/Matrix3.h"
#include "geometry/Matrix4.h"
#include "geometry/Quaternion.h"

using namespace kv;

namespace
{

constexpr int kItems = 1024;
constexpr int kRounds = 7;

volatile float g_sink;

// ns per call of body(i) over the item set, repeated until about 20 ms have passed.
template <typename Body>
double TimeOnce(Body body)
{
    using Clock = std::chrono::steady_clock;
    long calls = 0;
    float acc = 0.0f;
    const auto start = Clock::now();
    auto now = start;
    do
    {
        for (int i = 0; i < kItems; ++i)
            acc += body(i);
        calls += kItems;
        now = Clock::now();
    } while (now - start < std::chrono::milliseconds(20));
    g_sink = acc;
    return std::chrono::duration<double, std::nano>(now - start).count() / static_cast<double>(calls);
}

template <typename Ours, typename Theirs>
void Compare(const char* name, const char* theirName, Ours ours, Theirs theirs)
{
    double bestOurs = 1e30, bestTheirs = 1e30;
    for (int r = 0; r < kRounds; ++r)
    {
        bestOurs = std::min(bestOurs, TimeOnce(ours));
        bestTheirs = std::min(bestTheirs, TimeOnce(theirs));
    }
    std::printf("BENCH geometry_%s_ours %.2f ns\n", name, bestOurs);
    std::printf("BENCH geometry_%s_%s %.2f ns\n", name, theirName, bestTheirs);
    std::printf("BENCH geometry_%s_ratio %.2f x\n", name, bestOurs / bestTheirs);
}

// Moller-Trumbore, the usual two-sided ray-triangle test.
float PlainRayTriangle(const Eigen::Vector3f& o, const Eigen::Vector3f& d, const Eigen::Vector3f& a,
                       const Eigen::Vector3f& b, const Eigen::Vector3f& c)
{
    const Eigen::Vector3f e1 = b - a, e2 = c - a;
    const Eigen::Vector3f p = d.cross(e2);
    const float det = e1.dot(p);
    if (std::fabs(det) < 1e-7f)
        return 0.0f;
    const float inv = 1.0f / det;
    const Eigen::Vector3f s = o - a;
    const float u = s.dot(p) * inv;
    if (u < 0.0f || u > 1.0f)
        return 0.0f;
    const Eigen::Vector3f q = s.cross(e1);
    const float v = d.dot(q) * inv;
    if (v < 0.0f || u + v > 1.0f)
        return 0.0f;
    const float t = e2.dot(q) * inv;
    return t >= 0.0f ? t : 0.0f;
}

// The slab test: nearest entry distance, 0 for a miss or an origin inside.
float PlainRayBox(const Eigen::Vector3f& o, const Eigen::Vector3f& d, const Eigen::Vector3f& mn,
                  const Eigen::Vector3f& mx)
{
    float t0 = 0.0f, t1 = 3.4028235e38f;
    for (int i = 0; i < 3; ++i)
    {
        const float inv = 1.0f / d[i];
        float a = (mn[i] - o[i]) * inv, b = (mx[i] - o[i]) * inv;
        if (a > b)
            std::swap(a, b);
        t0 = std::max(t0, a);
        t1 = std::min(t1, b);
        if (t0 > t1)
            return 0.0f;
    }
    return t0;
}

} // namespace

int main()
{
    std::mt19937 rng(2024);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    std::normal_distribution<float> g(0.0f, 1.0f);

    std::vector<Matrix4> m4(kItems), n4(kItems);
    std::vector<Eigen::Matrix4f> em4(kItems), en4(kItems);
    std::vector<Matrix3> m3(kItems);
    std::vector<Eigen::Matrix3f> em3(kItems);
    std::vector<Quaternion> qa(kItems), qb(kItems);
    std::vector<Eigen::Quaternionf> eqa(kItems), eqb(kItems);
    std::vector<Ray> rays(kItems);
    std::vector<Eigen::Vector3f> eo(kItems), ed(kItems), ta(kItems), tb(kItems), tc(kItems);
    std::vector<Vector3> ka(kItems), kb(kItems), kc(kItems);
    std::vector<float> ts(kItems);
    for (int i = 0; i < kItems; ++i)
    {
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
            {
                m4[i].m[r][c] = u(rng) + (r == c ? 2.0f : 0.0f);
                n4[i].m[r][c] = u(rng);
                em4[i](r, c) = m4[i].m[r][c];
                en4[i](r, c) = n4[i].m[r][c];
            }
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                em3[i](r, c) = m3[i].m[r][c] = u(rng);
        qa[i] = Quaternion(g(rng), g(rng), g(rng), g(rng)).Normalised();
        qb[i] = Quaternion(g(rng), g(rng), g(rng), g(rng)).Normalised();
        eqa[i] = Eigen::Quaternionf(qa[i].w, qa[i].x, qa[i].y, qa[i].z);
        eqb[i] = Eigen::Quaternionf(qb[i].w, qb[i].x, qb[i].y, qb[i].z);
        ts[i] = 0.5f * (u(rng) + 1.0f);
        const Vector3 o(u(rng) * 4.0f, u(rng) * 4.0f, -5.0f);
        const Vector3 d = Vector3(u(rng) * 0.3f, u(rng) * 0.3f, 1.0f).Normalised();
        rays[i] = Ray(o, d);
        eo[i] = Eigen::Vector3f(o.x, o.y, o.z);
        ed[i] = Eigen::Vector3f(d.x, d.y, d.z);
        ka[i] = Vector3(u(rng) * 3, u(rng) * 3, u(rng));
        kb[i] = Vector3(u(rng) * 3, u(rng) * 3, u(rng));
        kc[i] = Vector3(u(rng) * 3, u(rng) * 3, u(rng));
        ta[i] = Eigen::Vector3f(ka[i].x, ka[i].y, ka[i].z);
        tb[i] = Eigen::Vector3f(kb[i].x, kb[i].y, kb[i].z);
        tc[i] = Eigen::Vector3f(kc[i].x, kc[i].y, kc[i].z);
    }
    const BoundingBox box(Vector3(-1, -1, -1), Vector3(1, 1, 1));
    const Eigen::Vector3f bmin(-1, -1, -1), bmax(1, 1, 1);

    Compare(
        "matrix4_concatenate", "eigen",
        [&](int i) {
            Matrix4 r;
            m4[i].Concatenate(n4[i], r);
            return r.m[i & 3][(i >> 2) & 3];
        },
        [&](int i) {
            const Eigen::Matrix4f r = em4[i] * en4[i];
            return r(i & 3, (i >> 2) & 3);
        });
    Compare(
        "matrix4_inverse", "eigen", [&](int i) { return m4[i].Inverse().m[i & 3][(i >> 2) & 3]; },
        [&](int i) {
            const Eigen::Matrix4f r = em4[i].inverse();
            return r(i & 3, (i >> 2) & 3);
        });
    Compare(
        "quaternion_slerp", "eigen", [&](int i) { return Quaternion::Slerp(ts[i], qa[i], qb[i], true).x; },
        [&](int i) { return eqa[i].slerp(ts[i], eqb[i]).x(); });
    Compare(
        "quaternion_to_matrix", "eigen",
        [&](int i) {
            Matrix3 r;
            qa[i].ToRotationMatrix(r);
            return r.m[i % 3][(i >> 2) % 3];
        },
        [&](int i) {
            const Eigen::Matrix3f r = eqa[i].toRotationMatrix();
            return r(i % 3, (i >> 2) % 3);
        });
    Compare(
        "matrix3_svd", "eigen_jacobi",
        [&](int i) {
            Matrix3 l, r;
            Vector3 s;
            m3[i].SingularValueDecomposition(l, s, r);
            return s.x + l.m[0][0] + r.m[0][0];
        },
        [&](int i) {
            Eigen::JacobiSVD<Eigen::Matrix3f> svd(em3[i], Eigen::ComputeFullU | Eigen::ComputeFullV);
            return svd.singularValues()(0) + svd.matrixU()(0, 0) + svd.matrixV()(0, 0);
        });
    Compare(
        "ray_box", "plain_slab", [&](int i) { return IntersectRayBox(rays[i], box).distance; },
        [&](int i) { return PlainRayBox(eo[i], ed[i], bmin, bmax); });
    Compare(
        "ray_triangle", "plain_moller_trumbore",
        [&](int i) { return IntersectRayTriangle(rays[i], ka[i], kb[i], kc[i]).distance; },
        [&](int i) { return PlainRayTriangle(eo[i], ed[i], ta[i], tb[i], tc[i]); });
    return 0;
}
