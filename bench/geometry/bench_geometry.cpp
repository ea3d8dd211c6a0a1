// The geometry library's hot routines beside the same operation in Eigen, or, where a
// routine reports more than Eigen offers, beside a textbook routine written here that
// reports the same. Both sides run over the same inputs in one process.
//
// Each comparison takes turns: a round times ours and theirs for a slice of about 10 ms of
// the thread's processor time each, the order swapping every round. A figure is the median over the rounds, and the
// ratio is the median of the rounds' own ratios, so a load that comes and goes between
// rounds moves both sides of a ratio alike.
//
// With --calls N the program times nothing: each routine runs N times between two
// callgrind dumps named after its figure, for instruction counts that a busy machine
// does not disturb:
//   valgrind --tool=callgrind bench_geometry --calls 100000
//   grep -H -e '^desc: Trigger' -e '^summary' callgrind.out.*
#include <Eigen/Dense>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <time.h>
#include <vector>

#if defined(__has_include)
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#endif
#endif
#ifndef CALLGRIND_DUMP_STATS_AT
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name) static_cast<void>(name)
#endif

#include "../Bench.h"
#include "geometry/Intersection.h"
#include "geometry/Matrix3.h"
#include "geometry/Matrix4.h"
#include "geometry/Quaternion.h"

using namespace kv;

namespace
{

constexpr int kItems = 1024;
constexpr int kRepetitions = 7;
constexpr double kSliceNs = 10e6;

// Every result is stored, and nothing carries from one call to the next: a figure is the
// cost of a call among independent calls, for an inline routine and a library call alike.
// (A running sum of the results would add the sum's latency to each call, and for a
// library call also the trip of the sum through memory across the call.)
float g_results[kItems];
volatile float g_sink;
long g_fixedCalls = 0; // --calls: run this many calls per routine instead of timing

// The thread's own processor time, in ns: time the thread spent waiting for a core that
// another program held does not count, so the figures hold on a busy machine.
double ThreadNs()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// ns per call of body(i) over the item set, repeated until a slice has passed.
template <typename Body>
double TimeSlice(Body body)
{
    long calls = 0;
    const double start = ThreadNs();
    double now = start;
    do
    {
        for (int i = 0; i < kItems; ++i)
            g_results[i] = body(i);
        calls += kItems;
        now = ThreadNs();
    } while (now - start < kSliceNs);
    g_sink = g_results[calls % kItems];
    return (now - start) / static_cast<double>(calls);
}

template <typename Body>
void RunFixed(const std::string& name, Body body)
{
    CALLGRIND_ZERO_STATS;
    for (long n = 0; n < g_fixedCalls; ++n)
        g_results[n % kItems] = body(static_cast<int>(n % kItems));
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    g_sink = g_results[0];
}

template <typename Ours, typename Theirs>
void Compare(const char* name, const char* theirName, Ours ours, Theirs theirs)
{
    const std::string figure = std::string("geometry.") + name;
    if (g_fixedCalls > 0)
    {
        RunFixed(figure + "_ours", ours);
        RunFixed(figure + "_" + theirName, theirs);
        return;
    }
    std::vector<double> oursNs, theirsNs, ratios;
    for (int r = 0; r < kRepetitions; ++r)
    {
        // Both orders, so that whatever the first or second slice of a pair gains or
        // loses by its place cancels in the repetition's ratio.
        const double o1 = TimeSlice(ours);
        const double t1 = TimeSlice(theirs);
        const double t2 = TimeSlice(theirs);
        const double o2 = TimeSlice(ours);
        oursNs.push_back(o1);
        oursNs.push_back(o2);
        theirsNs.push_back(t1);
        theirsNs.push_back(t2);
        ratios.push_back(std::sqrt((o1 / t1) * (o2 / t2)));
    }
    std::printf("BENCH %s_ours %.2f ns\n", figure.c_str(), kvbench::Median(oursNs));
    std::printf("BENCH %s_%s %.2f ns\n", figure.c_str(), theirName, kvbench::Median(theirsNs));
    std::printf("BENCH %s_ratio %.3f x\n", figure.c_str(), kvbench::Median(ratios));
    std::fflush(stdout);
}

// The two ray references below are kept out of line: our routines are calls into the
// library, and a reference inlined into the timing loop would be timed without the call
// (and with the loop's work folded into it) that ours pays.

// The slab test on the same box record, reporting what IntersectRayBox reports: a hit and
// the entry distance, 0 for an origin inside; a null box misses, an infinite one hits at 0.
__attribute__((noinline)) RayHit SlabRayBox(const Ray& ray, const BoundingBox& box)
{
    if (box.IsNull())
        return RayHit(false, 0.0f);
    if (box.IsInfinite())
        return RayHit(true, 0.0f);
    const float o[3] = {ray.origin.x, ray.origin.y, ray.origin.z};
    const float d[3] = {ray.direction.x, ray.direction.y, ray.direction.z};
    const float mn[3] = {box.minimum.x, box.minimum.y, box.minimum.z};
    const float mx[3] = {box.maximum.x, box.maximum.y, box.maximum.z};
    float t0 = 0.0f, t1 = 3.4028235e38f;
    for (int i = 0; i < 3; ++i)
    {
        const float inv = 1.0f / d[i];
        float a = (mn[i] - o[i]) * inv, b = (mx[i] - o[i]) * inv;
        if (a > b)
            std::swap(a, b);
        t0 = std::max(t0, a);
        t1 = std::min(t1, b);
    }
    return t0 <= t1 ? RayHit(true, t0) : RayHit(false, 0.0f);
}

// Moller-Trumbore with the same side choice as IntersectRayTriangle: the front is the side
// the normal (b - a) x (c - a) points to; a hit reports its distance.
__attribute__((noinline)) RayHit MollerTrumbore(const Ray& ray, const Vector3& a, const Vector3& b, const Vector3& c,
                                                bool positiveSide, bool negativeSide)
{
    const Vector3 e1 = b - a, e2 = c - a;
    const Vector3 p = ray.direction.Cross(e2);
    const float det = e1.Dot(p); // = -(normal . direction)
    if (det > 1.1920929e-7f)
    {
        if (!positiveSide)
            return RayHit(false, 0.0f);
    }
    else if (det < -1.1920929e-7f)
    {
        if (!negativeSide)
            return RayHit(false, 0.0f);
    }
    else
    {
        return RayHit(false, 0.0f);
    }
    const float inv = 1.0f / det;
    const Vector3 s = ray.origin - a;
    const float u = s.Dot(p) * inv;
    if (u < 0.0f || u > 1.0f)
        return RayHit(false, 0.0f);
    const Vector3 q = s.Cross(e1);
    const float v = ray.direction.Dot(q) * inv;
    if (v < 0.0f || u + v > 1.0f)
        return RayHit(false, 0.0f);
    const float t = e2.Dot(q) * inv;
    return t >= 0.0f ? RayHit(true, t) : RayHit(false, 0.0f);
}

} // namespace

int main(int argc, char** argv)
{
    for (int a = 1; a + 1 < argc; ++a)
        if (std::strcmp(argv[a], "--calls") == 0)
            g_fixedCalls = std::atol(argv[a + 1]);

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
        ka[i] = Vector3(u(rng) * 3, u(rng) * 3, u(rng));
        kb[i] = Vector3(u(rng) * 3, u(rng) * 3, u(rng));
        kc[i] = Vector3(u(rng) * 3, u(rng) * 3, u(rng));
    }
    const BoundingBox box(Vector3(-1, -1, -1), Vector3(1, 1, 1));

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
        "ray_box", "slab", [&](int i) { return IntersectRayBox(rays[i], box).distance; },
        [&](int i) { return SlabRayBox(rays[i], box).distance; });
    Compare(
        "ray_triangle", "moller_trumbore",
        [&](int i) { return IntersectRayTriangle(rays[i], ka[i], kb[i], kc[i]).distance; },
        [&](int i) { return MollerTrumbore(rays[i], ka[i], kb[i], kc[i], true, true).distance; });

    // The references stand for our routines only while they answer the same.
    int disagreements = 0, boxHits = 0, triangleHits = 0;
    auto same = [](const RayHit& a, const RayHit& b) {
        return a.hit == b.hit && std::fabs(a.distance - b.distance) <= 1e-4f * std::max(1.0f, std::fabs(b.distance));
    };
    for (int i = 0; i < kItems; ++i)
    {
        const RayHit boxHit = IntersectRayBox(rays[i], box);
        const RayHit triangleHit = IntersectRayTriangle(rays[i], ka[i], kb[i], kc[i]);
        disagreements += !same(boxHit, SlabRayBox(rays[i], box));
        disagreements += !same(triangleHit, MollerTrumbore(rays[i], ka[i], kb[i], kc[i], true, true));
        boxHits += boxHit.hit;
        triangleHits += triangleHit.hit;
    }
    if (g_fixedCalls == 0)
        std::printf("BENCH geometry.hits_of_%d %d boxes, %d triangles\n", kItems, boxHits, triangleHits);
    if (disagreements != 0)
    {
        std::printf("bench_geometry: a reference answered %d ray(s) otherwise than our routine\n", disagreements);
        return 1;
    }
    return 0;
}
