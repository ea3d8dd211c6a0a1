#include "geometry/Matrix4.h"

#include <cmath>
#include <cstdint>

#include "geometry/Simd.h"

namespace kv
{

const Matrix4 Matrix4::ZERO(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
const Matrix4 Matrix4::IDENTITY(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1);
const Matrix4 Matrix4::CLIPSPACE2D_TO_IMAGESPACE(0.5f, 0, 0, 0.5f, 0, -0.5f, 0, 0.5f, 0, 0, 1, 0, 0, 0, 0, 1);

bool Matrix4::operator==(const Matrix4& o) const
{
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            if (m[r][c] != o.m[r][c])
                return false;
    return true;
}

Matrix4 Matrix4::operator*(const Matrix4& o) const
{
    Matrix4 result;
    Concatenate(o, result);
    return result;
}

Vector3 Matrix4::operator*(const Vector3& v) const
{
    return Vector3(m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z + m[0][3],
                   m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z + m[1][3],
                   m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z + m[2][3]);
}

#if !KV_GEOMETRY_SSE2
void Matrix4::Concatenate(const Matrix4& other, Matrix4& result) const
{
    // Built in a local first: the compiler need not reload the factors after every store
    // in case result overlaps them, and an overlapping result still gets the true product.
    float p[4][4];
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            p[r][c] =
                m[r][0] * other.m[0][c] + m[r][1] * other.m[1][c] + m[r][2] * other.m[2][c] + m[r][3] * other.m[3][c];
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            result.m[r][c] = p[r][c];
}
#endif

void Matrix4::FromRows3x4(const float* rows)
{
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c)
            m[r][c] = rows[r * 4 + c];
    m[3][0] = m[3][1] = m[3][2] = 0.0f;
    m[3][3] = 1.0f;
}

Matrix3 Matrix4::Extract3x3() const
{
    return Matrix3(m[0][0], m[0][1], m[0][2], m[1][0], m[1][1], m[1][2], m[2][0], m[2][1], m[2][2]);
}

Matrix4 Matrix4::Transpose() const
{
    Matrix4 t;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            t.m[r][c] = m[c][r];
    return t;
}

namespace
{

// The determinant of the 3x3 minor on rows r0..r2 and columns c0..c2, by its first row.
float Minor(const float (&m)[4][4], int r0, int r1, int r2, int c0, int c1, int c2)
{
    return m[r0][c0] * (m[r1][c1] * m[r2][c2] - m[r2][c1] * m[r1][c2]) -
           m[r0][c1] * (m[r1][c0] * m[r2][c2] - m[r2][c0] * m[r1][c2]) +
           m[r0][c2] * (m[r1][c0] * m[r2][c1] - m[r2][c0] * m[r1][c1]);
}

// The rows (or columns) left when one is struck out.
constexpr int kOthers[4][3] = {{1, 2, 3}, {0, 2, 3}, {0, 1, 3}, {0, 1, 2}};

} // namespace

float Matrix4::Determinant() const
{
    return m[0][0] * Minor(m, 1, 2, 3, 1, 2, 3) - m[0][1] * Minor(m, 1, 2, 3, 0, 2, 3) +
           m[0][2] * Minor(m, 1, 2, 3, 0, 1, 3) - m[0][3] * Minor(m, 1, 2, 3, 0, 1, 2);
}

Matrix4 Matrix4::Adjoint() const
{
    Matrix4 adj;
    for (int r = 0; r < 4; ++r)
    {
        for (int c = 0; c < 4; ++c)
        {
            const int* rows = kOthers[r];
            const int* cols = kOthers[c];
            const float minor = Minor(m, rows[0], rows[1], rows[2], cols[0], cols[1], cols[2]);
            // Cofactor (r, c) lands at (c, r).
            adj.m[c][r] = ((r + c) & 1) ? -minor : minor;
        }
    }
    return adj;
}

namespace
{

// The inverse works on the transpose B of the matrix: the cofactors of B, row by row, are
// the rows of the adjugate. Cofactor (i, j) of B is (-1)^(i+j) times the 3x3 minor left
// when row i and column j are struck out. Those minors are expanded along one of their
// rows, r, with the 2x2 minors of the two others, p over q, taken for all four j at once:
//   minor_j = r.yxxx * A - r.zzyy * B + r.wwwz * C, where, writing d_kl for the 2x2
//   minor of p and q on columns k and l,
//   A = (d23, d23, d13, d12), B = (d13, d03, d03, d02), C = (d12, d02, d01, d01).
// Rows 0 and 1 of B share the 2x2 minors of rows 2 and 3; rows 2 and 3 those of 0 and 1.

#if KV_GEOMETRY_SSE2

template <int i0, int i1, int i2, int i3>
__m128 Swizzle(__m128 v)
{
    return _mm_shuffle_ps(v, v, _MM_SHUFFLE(i3, i2, i1, i0));
}

struct Minors2x2
{
    __m128 a, b, c;
};

Minors2x2 PairMinors(__m128 p, __m128 q)
{
    const __m128 pyxxx = Swizzle<1, 0, 0, 0>(p), pzzyy = Swizzle<2, 2, 1, 1>(p), pwwwz = Swizzle<3, 3, 3, 2>(p);
    const __m128 qyxxx = Swizzle<1, 0, 0, 0>(q), qzzyy = Swizzle<2, 2, 1, 1>(q), qwwwz = Swizzle<3, 3, 3, 2>(q);
    return Minors2x2{_mm_sub_ps(_mm_mul_ps(pzzyy, qwwwz), _mm_mul_ps(pwwwz, qzzyy)),
                     _mm_sub_ps(_mm_mul_ps(pyxxx, qwwwz), _mm_mul_ps(pwwwz, qyxxx)),
                     _mm_sub_ps(_mm_mul_ps(pyxxx, qzzyy), _mm_mul_ps(pzzyy, qyxxx))};
}

// The four signed 3x3 minors of row r; sign holds the sign bits to flip.
__m128 CofactorRow(__m128 r, const Minors2x2& d, __m128 sign)
{
    const __m128 minor =
        _mm_add_ps(_mm_sub_ps(_mm_mul_ps(Swizzle<1, 0, 0, 0>(r), d.a), _mm_mul_ps(Swizzle<2, 2, 1, 1>(r), d.b)),
                   _mm_mul_ps(Swizzle<3, 3, 3, 2>(r), d.c));
    return _mm_xor_ps(minor, sign);
}

#else

struct Minors2x2
{
    float a[4], b[4], c[4];
};

// Lane k of the vector swizzles.
constexpr int kYxxx[4] = {1, 0, 0, 0};
constexpr int kZzyy[4] = {2, 2, 1, 1};
constexpr int kWwwz[4] = {3, 3, 3, 2};

Minors2x2 PairMinors(const float (&p)[4], const float (&q)[4])
{
    Minors2x2 d;
    for (int k = 0; k < 4; ++k)
    {
        d.a[k] = p[kZzyy[k]] * q[kWwwz[k]] - p[kWwwz[k]] * q[kZzyy[k]];
        d.b[k] = p[kYxxx[k]] * q[kWwwz[k]] - p[kWwwz[k]] * q[kYxxx[k]];
        d.c[k] = p[kYxxx[k]] * q[kZzyy[k]] - p[kZzyy[k]] * q[kYxxx[k]];
    }
    return d;
}

void CofactorRow(const float (&r)[4], const Minors2x2& d, bool negateEven, float (&out)[4])
{
    for (int k = 0; k < 4; ++k)
    {
        const float minor = r[kYxxx[k]] * d.a[k] - r[kZzyy[k]] * d.b[k] + r[kWwwz[k]] * d.c[k];
        out[k] = ((k & 1) == 0) == negateEven ? -minor : minor;
    }
}

#endif

} // namespace

Matrix4 Matrix4::Inverse() const
{
    // The determinant is the first row's elements times their cofactors, summed from the
    // left: column 0 of the adjugate holds those cofactors.
    Matrix4 inv;
#if KV_GEOMETRY_SSE2
    __m128 b0 = _mm_loadu_ps(m[0]), b1 = _mm_loadu_ps(m[1]), b2 = _mm_loadu_ps(m[2]), b3 = _mm_loadu_ps(m[3]);
    _MM_TRANSPOSE4_PS(b0, b1, b2, b3);
    const __m128 evenNegative = _mm_castsi128_ps(_mm_set_epi32(0, INT32_MIN, 0, INT32_MIN));
    const __m128 oddNegative = _mm_castsi128_ps(_mm_set_epi32(INT32_MIN, 0, INT32_MIN, 0));
    const Minors2x2 low = PairMinors(b2, b3);
    const Minors2x2 high = PairMinors(b0, b1);
    const __m128 c0 = CofactorRow(b1, low, oddNegative);
    const __m128 c1 = CofactorRow(b0, low, evenNegative);
    const __m128 c2 = CofactorRow(b3, high, oddNegative);
    const __m128 c3 = CofactorRow(b2, high, evenNegative);
    const __m128 sum = _mm_add_ps(_mm_add_ps(_mm_add_ps(_mm_mul_ps(b0, c0), _mm_mul_ps(b1, c1)), _mm_mul_ps(b2, c2)),
                                  _mm_mul_ps(b3, c3));
    const __m128 invDet = _mm_set1_ps(1.0f / _mm_cvtss_f32(sum));
    _mm_storeu_ps(inv.m[0], _mm_mul_ps(c0, invDet));
    _mm_storeu_ps(inv.m[1], _mm_mul_ps(c1, invDet));
    _mm_storeu_ps(inv.m[2], _mm_mul_ps(c2, invDet));
    _mm_storeu_ps(inv.m[3], _mm_mul_ps(c3, invDet));
#else
    float b[4][4];
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            b[r][c] = m[c][r];
    const Minors2x2 low = PairMinors(b[2], b[3]);
    const Minors2x2 high = PairMinors(b[0], b[1]);
    CofactorRow(b[1], low, false, inv.m[0]);
    CofactorRow(b[0], low, true, inv.m[1]);
    CofactorRow(b[3], high, false, inv.m[2]);
    CofactorRow(b[2], high, true, inv.m[3]);
    const float det = b[0][0] * inv.m[0][0] + b[1][0] * inv.m[1][0] + b[2][0] * inv.m[2][0] + b[3][0] * inv.m[3][0];
    const float invDet = 1.0f / det;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            inv.m[r][c] *= invDet;
#endif
    return inv;
}

Matrix4 Matrix4::InverseAffine() const
{
    const float m00 = m[0][0], m01 = m[0][1], m02 = m[0][2];
    const float m10 = m[1][0], m11 = m[1][1], m12 = m[1][2];
    const float m20 = m[2][0], m21 = m[2][1], m22 = m[2][2];

    float t00 = m22 * m11 - m12 * m21;
    float t10 = m20 * m12 - m10 * m22;
    float t20 = m21 * m10 - m20 * m11;
    const float invDet = 1.0f / (m00 * t00 + m01 * t10 + m02 * t20);
    t00 *= invDet;
    t10 *= invDet;
    t20 *= invDet;
    const float r00 = t00, r01 = invDet * (m02 * m21 - m01 * m22), r02 = invDet * (m01 * m12 - m02 * m11);
    const float r10 = t10, r11 = invDet * (m00 * m22 - m02 * m20), r12 = invDet * (m02 * m10 - m00 * m12);
    const float r20 = t20, r21 = invDet * (m01 * m20 - m00 * m21), r22 = invDet * (m00 * m11 - m01 * m10);

    const float tx = m[0][3], ty = m[1][3], tz = m[2][3];
    return Matrix4(r00, r01, r02, -(r00 * tx + r01 * ty + r02 * tz), r10, r11, r12, -(r10 * tx + r11 * ty + r12 * tz),
                   r20, r21, r22, -(r20 * tx + r21 * ty + r22 * tz), 0.0f, 0.0f, 0.0f, 1.0f);
}

void Matrix4::MakeTransform(const Vector3& position, const Vector3& scale, const Quaternion& orientation)
{
    Matrix3 rot;
    orientation.ToRotationMatrix(rot);
    for (int r = 0; r < 3; ++r)
    {
        for (int c = 0; c < 3; ++c)
            m[r][c] = rot.m[r][c] * scale[c];
        m[r][3] = position[r];
    }
    m[3][0] = m[3][1] = m[3][2] = 0.0f;
    m[3][3] = 1.0f;
}

void Matrix4::MakeInverseTransform(const Vector3& position, const Vector3& scale, const Quaternion& orientation)
{
    const Vector3 invScale(1.0f / scale.x, 1.0f / scale.y, 1.0f / scale.z);
    const Quaternion invRot = orientation.Inverse();
    const Vector3 t = invRot.Rotate(-position) * invScale;
    Matrix3 rot;
    invRot.ToRotationMatrix(rot);
    for (int r = 0; r < 3; ++r)
    {
        for (int c = 0; c < 3; ++c)
            m[r][c] = rot.m[r][c] * invScale[r];
        m[r][3] = t[r];
    }
    m[3][0] = m[3][1] = m[3][2] = 0.0f;
    m[3][3] = 1.0f;
}

void Matrix4::DecomposeAffine(Vector3& position, Vector3& scale, Quaternion& orientation) const
{
    Matrix3 q;
    Vector3 shear;
    Extract3x3().DecomposeQDU(q, scale, shear);
    orientation.FromRotationMatrix(q);
    position = GetTranslation();
}

Matrix4 Matrix4::MakeViewMatrix(const Vector3& position, const Quaternion& orientation, const Matrix4* reflect)
{
    Matrix3 rot;
    orientation.ToRotationMatrix(rot);
    const Matrix3 rotT = rot.Transpose();
    const Vector3 trans = -(rotT * position);
    Matrix4 view(rotT.m[0][0], rotT.m[0][1], rotT.m[0][2], trans.x, rotT.m[1][0], rotT.m[1][1], rotT.m[1][2], trans.y,
                 rotT.m[2][0], rotT.m[2][1], rotT.m[2][2], trans.z, 0.0f, 0.0f, 0.0f, 1.0f);
    if (reflect)
        view = view * (*reflect);
    return view;
}

Matrix4 Matrix4::MakeReflection(const Plane& plane)
{
    const float a = plane.normal.x, b = plane.normal.y, c = plane.normal.z, d = plane.d;
    return Matrix4(1.0f - 2.0f * a * a, -2.0f * a * b, -2.0f * a * c, -2.0f * a * d, -2.0f * a * b, 1.0f - 2.0f * b * b,
                   -2.0f * b * c, -2.0f * b * d, -2.0f * a * c, -2.0f * b * c, 1.0f - 2.0f * c * c, -2.0f * c * d, 0.0f,
                   0.0f, 0.0f, 1.0f);
}

namespace
{

Matrix4 LookAt(const Vector3& eye, const Vector3& zAxis, const Vector3& up)
{
    const Vector3 z = zAxis.Normalised();
    const Vector3 x = up.Cross(z).Normalised();
    const Vector3 y = z.Cross(x).Normalised();
    return Matrix4(x.x, x.y, x.z, -x.Dot(eye), y.x, y.y, y.z, -y.Dot(eye), z.x, z.y, z.z, -z.Dot(eye), 0.0f, 0.0f, 0.0f,
                   1.0f);
}

bool AllSquaresTiny(const Vector3& v)
{
    return v.x * v.x <= 1e-10f && v.y * v.y <= 1e-10f && v.z * v.z <= 1e-10f;
}

} // namespace

Matrix4 Matrix4::LookAtForward(const Vector3& eye, const Vector3& target, const Vector3& up)
{
    return LookAt(eye, target - eye, up);
}

Matrix4 Matrix4::LookAtBackward(const Vector3& eye, const Vector3& target, const Vector3& up)
{
    return LookAt(eye, eye - target, up);
}

bool Matrix4::FrameFromDirection(const Vector3& direction, const Vector3& up, Matrix3& matrix)
{
    if (AllSquaresTiny(direction))
    {
        matrix = Matrix3::IDENTITY;
        return false;
    }
    const Vector3 dir = direction.Normalised();
    Vector3 side = dir.Cross(up);
    if (AllSquaresTiny(side))
    {
        // up runs along the direction: no side can be chosen.
        matrix = Matrix3::IDENTITY;
        return false;
    }
    side.Normalise();
    const Vector3 newUp = side.Cross(dir);
    if (!(std::fabs(newUp.Dot(newUp) - 1.0f) < 0.0001f))
        return false;
    matrix.FromColumns(side, dir, newUp);
    return true;
}

} // namespace kv
