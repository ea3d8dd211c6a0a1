#include "geometry/Matrix3.h"

#include <cmath>

#include "geometry/ScalarMath.h"

namespace kv
{

const Matrix3 Matrix3::IDENTITY(1, 0, 0, 0, 1, 0, 0, 0, 1);
const Matrix3 Matrix3::ZERO(0, 0, 0, 0, 0, 0, 0, 0, 0);

bool Matrix3::operator==(const Matrix3& o) const
{
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            if (m[r][c] != o.m[r][c])
                return false;
    return true;
}

Matrix3 Matrix3::operator*(const Matrix3& o) const
{
    Matrix3 p;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            p.m[r][c] = m[r][0] * o.m[0][c] + m[r][1] * o.m[1][c] + m[r][2] * o.m[2][c];
    return p;
}

Matrix3 Matrix3::operator+(const Matrix3& o) const
{
    Matrix3 s;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            s.m[r][c] = m[r][c] + o.m[r][c];
    return s;
}

Matrix3 Matrix3::operator-(const Matrix3& o) const
{
    Matrix3 s;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            s.m[r][c] = m[r][c] - o.m[r][c];
    return s;
}

Matrix3 Matrix3::operator-() const
{
    Matrix3 s;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            s.m[r][c] = -m[r][c];
    return s;
}

Matrix3 Matrix3::operator*(float k) const
{
    Matrix3 s;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            s.m[r][c] = m[r][c] * k;
    return s;
}

Vector3 Matrix3::operator*(const Vector3& v) const
{
    return Vector3(m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z, m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z,
                   m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z);
}

Vector3 operator*(const Vector3& v, const Matrix3& a)
{
    return Vector3(v.x * a.m[0][0] + v.y * a.m[1][0] + v.z * a.m[2][0],
                   v.x * a.m[0][1] + v.y * a.m[1][1] + v.z * a.m[2][1],
                   v.x * a.m[0][2] + v.y * a.m[1][2] + v.z * a.m[2][2]);
}

Matrix3 Matrix3::Transpose() const
{
    Matrix3 t;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            t.m[r][c] = m[c][r];
    return t;
}

void Matrix3::FromColumns(const Vector3& c0, const Vector3& c1, const Vector3& c2)
{
    SetColumn(0, c0);
    SetColumn(1, c1);
    SetColumn(2, c2);
}

void Matrix3::TensorProduct(const Vector3& u, const Vector3& v)
{
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            m[r][c] = u[r] * v[c];
}

float Matrix3::Determinant() const
{
    const float cof00 = m[1][1] * m[2][2] - m[1][2] * m[2][1];
    const float cof01 = m[1][2] * m[2][0] - m[1][0] * m[2][2];
    const float cof02 = m[1][0] * m[2][1] - m[1][1] * m[2][0];
    return m[0][0] * cof00 + m[0][1] * cof01 + m[0][2] * cof02;
}

bool Matrix3::Inverse(Matrix3& result, float tolerance) const
{
    // The cofactors go straight into their transposed places: the adjugate.
    result.m[0][0] = m[1][1] * m[2][2] - m[1][2] * m[2][1];
    result.m[0][1] = m[0][2] * m[2][1] - m[0][1] * m[2][2];
    result.m[0][2] = m[0][1] * m[1][2] - m[0][2] * m[1][1];
    result.m[1][0] = m[1][2] * m[2][0] - m[1][0] * m[2][2];
    result.m[1][1] = m[0][0] * m[2][2] - m[0][2] * m[2][0];
    result.m[1][2] = m[0][2] * m[1][0] - m[0][0] * m[1][2];
    result.m[2][0] = m[1][0] * m[2][1] - m[1][1] * m[2][0];
    result.m[2][1] = m[0][1] * m[2][0] - m[0][0] * m[2][1];
    result.m[2][2] = m[0][0] * m[1][1] - m[0][1] * m[1][0];

    const float det = m[0][0] * result.m[0][0] + m[0][1] * result.m[1][0] + m[0][2] * result.m[2][0];
    if (tolerance >= std::fabs(det))
        return false;

    const float invDet = 1.0f / det;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            result.m[r][c] *= invDet;
    return true;
}

Matrix3 Matrix3::InverseOrZero(float tolerance) const
{
    Matrix3 result = ZERO;
    Inverse(result, tolerance);
    return result;
}

void Matrix3::FromAngleAxis(const Vector3& axis, float angle)
{
    const float c = std::cos(angle);
    const float s = std::sin(angle);
    const float t = 1.0f - c;
    const float x = axis.x, y = axis.y, z = axis.z;
    m[0][0] = t * x * x + c;
    m[0][1] = t * x * y - s * z;
    m[0][2] = t * x * z + s * y;
    m[1][0] = t * x * y + s * z;
    m[1][1] = t * y * y + c;
    m[1][2] = t * y * z - s * x;
    m[2][0] = t * x * z - s * y;
    m[2][1] = t * y * z + s * x;
    m[2][2] = t * z * z + c;
}

void Matrix3::ToAngleAxis(Vector3& axis, float& angle) const
{
    const float trace = m[0][0] + m[1][1] + m[2][2];
    angle = SafeAcos((trace - 1.0f) * 0.5f);
    if (!(angle > 0.0f))
    {
        // No rotation: any axis will do.
        axis = Vector3(1.0f, 0.0f, 0.0f);
        return;
    }
    if (angle < PI)
    {
        axis = Vector3(m[2][1] - m[1][2], m[0][2] - m[2][0], m[1][0] - m[0][1]);
        axis.Normalise();
        return;
    }
    // A half turn: the skew part vanishes, the axis comes from the symmetric part.
    if (m[0][0] >= m[1][1] && m[0][0] >= m[2][2])
    {
        axis.x = 0.5f * std::sqrt(m[0][0] - m[1][1] - m[2][2] + 1.0f);
        const float half = 0.5f / axis.x;
        axis.y = m[0][1] * half;
        axis.z = m[0][2] * half;
    }
    else if (m[1][1] >= m[2][2])
    {
        axis.y = 0.5f * std::sqrt(m[1][1] - m[0][0] - m[2][2] + 1.0f);
        const float half = 0.5f / axis.y;
        axis.x = m[0][1] * half;
        axis.z = m[1][2] * half;
    }
    else
    {
        axis.z = 0.5f * std::sqrt(m[2][2] - m[0][0] - m[1][1] + 1.0f);
        const float half = 0.5f / axis.z;
        axis.x = m[0][2] * half;
        axis.y = m[1][2] * half;
    }
}

namespace
{

Matrix3 RotX(float a)
{
    const float c = std::cos(a), s = std::sin(a);
    return Matrix3(1, 0, 0, 0, c, -s, 0, s, c);
}

Matrix3 RotY(float a)
{
    const float c = std::cos(a), s = std::sin(a);
    return Matrix3(c, 0, s, 0, 1, 0, -s, 0, c);
}

Matrix3 RotZ(float a)
{
    const float c = std::cos(a), s = std::sin(a);
    return Matrix3(c, -s, 0, s, c, 0, 0, 0, 1);
}

// One Euler split: b from the middle element, a and c from their pairs; at the poles a
// takes the fallback pair and c is 0.
bool SplitEuler(float middle, float first0, float first1, float last0, float last1, float fall0, float fall1, float& a,
                float& b, float& c)
{
    b = SafeAsin(middle);
    if (b < HALF_PI)
    {
        if (b > -HALF_PI)
        {
            a = std::atan2(first0, first1);
            c = std::atan2(last0, last1);
            return true;
        }
        a = -std::atan2(fall0, fall1);
    }
    else
    {
        a = std::atan2(fall0, fall1);
    }
    c = 0.0f;
    return false;
}

} // namespace

void Matrix3::FromEulerXYZ(float a, float b, float c)
{
    *this = RotX(a) * (RotY(b) * RotZ(c));
}
void Matrix3::FromEulerXZY(float a, float b, float c)
{
    *this = RotX(a) * (RotZ(b) * RotY(c));
}
void Matrix3::FromEulerYXZ(float a, float b, float c)
{
    *this = RotY(a) * (RotX(b) * RotZ(c));
}
void Matrix3::FromEulerYZX(float a, float b, float c)
{
    *this = RotY(a) * (RotZ(b) * RotX(c));
}
void Matrix3::FromEulerZXY(float a, float b, float c)
{
    *this = RotZ(a) * (RotX(b) * RotY(c));
}
void Matrix3::FromEulerZYX(float a, float b, float c)
{
    *this = RotZ(a) * (RotY(b) * RotX(c));
}

bool Matrix3::ToEulerXYZ(float& a, float& b, float& c) const
{
    return SplitEuler(m[0][2], -m[1][2], m[2][2], -m[0][1], m[0][0], m[1][0], m[1][1], a, b, c);
}

bool Matrix3::ToEulerXZY(float& a, float& b, float& c) const
{
    return SplitEuler(-m[0][1], m[2][1], m[1][1], m[0][2], m[0][0], -m[2][0], m[2][2], a, b, c);
}

bool Matrix3::ToEulerYXZ(float& a, float& b, float& c) const
{
    return SplitEuler(-m[1][2], m[0][2], m[2][2], m[1][0], m[1][1], -m[0][1], m[0][0], a, b, c);
}

bool Matrix3::ToEulerYZX(float& a, float& b, float& c) const
{
    return SplitEuler(m[1][0], -m[2][0], m[0][0], -m[1][2], m[1][1], m[2][1], m[2][2], a, b, c);
}

bool Matrix3::ToEulerZXY(float& a, float& b, float& c) const
{
    return SplitEuler(m[2][1], -m[0][1], m[1][1], -m[2][0], m[2][2], m[0][2], m[0][0], a, b, c);
}

bool Matrix3::ToEulerZYX(float& a, float& b, float& c) const
{
    return SplitEuler(-m[2][0], m[1][0], m[0][0], m[2][1], m[2][2], -m[0][1], m[0][2], a, b, c);
}

namespace
{

// Gram-Schmidt on the columns of src into dst, each column scaled by scale(length^2).
template <typename Scale>
void GramSchmidt(const Matrix3& src, Matrix3& dst, Scale scale)
{
    dst = src;
    float inv = scale(dst.m[0][0] * dst.m[0][0] + dst.m[1][0] * dst.m[1][0] + dst.m[2][0] * dst.m[2][0]);
    for (int r = 0; r < 3; ++r)
        dst.m[r][0] *= inv;

    const float dot0 = dst.m[0][0] * dst.m[0][1] + dst.m[1][0] * dst.m[1][1] + dst.m[2][0] * dst.m[2][1];
    for (int r = 0; r < 3; ++r)
        dst.m[r][1] -= dot0 * dst.m[r][0];
    inv = scale(dst.m[0][1] * dst.m[0][1] + dst.m[1][1] * dst.m[1][1] + dst.m[2][1] * dst.m[2][1]);
    for (int r = 0; r < 3; ++r)
        dst.m[r][1] *= inv;

    // Both projections are taken from column 2 as it stood.
    const float dot1 = dst.m[0][0] * dst.m[0][2] + dst.m[1][0] * dst.m[1][2] + dst.m[2][0] * dst.m[2][2];
    const float dot2 = dst.m[0][1] * dst.m[0][2] + dst.m[1][1] * dst.m[1][2] + dst.m[2][1] * dst.m[2][2];
    for (int r = 0; r < 3; ++r)
        dst.m[r][2] -= dot1 * dst.m[r][0] + dot2 * dst.m[r][1];
    inv = scale(dst.m[0][2] * dst.m[0][2] + dst.m[1][2] * dst.m[1][2] + dst.m[2][2] * dst.m[2][2]);
    for (int r = 0; r < 3; ++r)
        dst.m[r][2] *= inv;
}

} // namespace

void Matrix3::Orthonormalise()
{
    Matrix3 result;
    GramSchmidt(*this, result, InverseSqrt);
    *this = result;
}

void Matrix3::DecomposeQDU(Matrix3& q, Vector3& d, Vector3& u) const
{
    // The safe scale keeps a zero column at zero instead of NaN.
    GramSchmidt(*this, q, SafeInverseSqrt);

    // Keep q a rotation; the reflection moves into d's signs.
    if (q.Determinant() < 0.0f)
        q = -q;

    // R = q^T * this is upper triangular; only its upper part is read.
    float r[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = i; j < 3; ++j)
            r[i][j] = q.m[0][i] * m[0][j] + q.m[1][i] * m[1][j] + q.m[2][i] * m[2][j];

    d = Vector3(r[0][0], r[1][1], r[2][2]);
    u = Vector3(r[0][1] / r[0][0], r[0][2] / r[0][0], r[1][2] / r[1][1]);
}

Matrix3 Matrix3::MultiplyUnitUpper(float p0, float p1, float p2)
{
    for (int row = 0; row < 3; ++row)
    {
        const float a = m[row][0], b = m[row][1], c = m[row][2];
        m[row][1] = b + a * p0;
        m[row][2] = c + a * p1 + b * p2;
    }
    return *this;
}

void Matrix3::SingularValueComposition(const Matrix3& left, const Vector3& values, const Matrix3& right)
{
    Matrix3 scaled;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            scaled.m[r][c] = values[r] * right.m[r][c];
    *this = left * scaled;
}

namespace
{

// p' = cos p - sin q, q' = sin p + cos q along two rows or two columns.
void RotateRows(Matrix3& a, int p, int q, float cs, float sn)
{
    for (int c = 0; c < 3; ++c)
    {
        const float vp = a.m[p][c], vq = a.m[q][c];
        a.m[p][c] = cs * vp - sn * vq;
        a.m[q][c] = sn * vp + cs * vq;
    }
}

void RotateColumns(Matrix3& a, int p, int q, float cs, float sn)
{
    for (int r = 0; r < 3; ++r)
    {
        const float vp = a.m[r][p], vq = a.m[r][q];
        a.m[r][p] = cs * vp - sn * vq;
        a.m[r][q] = sn * vp + cs * vq;
    }
}

// The Householder reflector I + factor * v v^T for x = (x0, rest...), laid into rows and
// columns first..2 of an identity. False (identity) when |x| is not above 0.
bool Householder(const float* x, int count, int first, Matrix3& h)
{
    float norm2 = 0.0f;
    for (int i = 0; i < count; ++i)
        norm2 += x[i] * x[i];
    const float norm = std::sqrt(norm2);
    h = Matrix3::IDENTITY;
    if (!(norm > 0.0f))
        return false;

    const float sign = x[0] > 0.0f ? 1.0f : -1.0f;
    const float inv = 1.0f / (x[0] + sign * norm);
    float v[3] = {1.0f, 0.0f, 0.0f};
    float vv = 1.0f;
    for (int i = 1; i < count; ++i)
    {
        v[i] = x[i] * inv;
        vv += v[i] * v[i];
    }
    const float factor = -2.0f / vv;
    for (int r = 0; r < count; ++r)
        for (int c = 0; c < count; ++c)
            h.m[first + r][first + c] += factor * v[r] * v[c];
    return true;
}

void Bidiagonalise(Matrix3& a, Matrix3& left, Matrix3& right)
{
    Matrix3 h;
    const float col0[3] = {a.m[0][0], a.m[1][0], a.m[2][0]};
    Householder(col0, 3, 0, h);
    left = h;
    a = h * a;

    const float row0[2] = {a.m[0][1], a.m[0][2]};
    Householder(row0, 2, 1, h);
    right = h;
    a = a * h;

    const float col1[2] = {a.m[1][1], a.m[2][1]};
    if (Householder(col1, 2, 1, h))
    {
        left = left * h;
        a = h * a;
    }
}

// One implicit-shift step on the upper bidiagonal a, chasing the bulge down and right.
void GolubKahanStep(Matrix3& a, Matrix3& left, Matrix3& right)
{
    const float t00 = a.m[0][1] * a.m[0][1] + a.m[1][1] * a.m[1][1];
    const float t11 = a.m[1][2] * a.m[1][2] + a.m[2][2] * a.m[2][2];
    const float t01 = a.m[1][1] * a.m[1][2];
    const float trace = t00 + t11;
    const float diff = t00 - t11;
    const float discr = std::sqrt(diff * diff + 4.0f * t01 * t01);
    const float root1 = 0.5f * (trace + discr);
    const float root2 = 0.5f * (trace - discr);
    // The eigenvalue of the trailing block nearer t11 (Wilkinson's shift).
    const float shift = std::fabs(root2 - t11) >= std::fabs(root1 - t11) ? root1 : root2;

    auto rotation = [](float y, float z, float& cs, float& sn) {
        const float inv = InverseSqrt(y * y + z * z);
        cs = -y * inv;
        sn = z * inv;
    };
    float cs, sn;

    // The first rotation comes from the first column of B^T B - shift I, so that the
    // step is the implicit form of a shifted QR step on B^T B; built from B's own entries
    // the step is unshifted in effect and some matrices do not settle within 32 passes.
    rotation(a.m[0][0] * a.m[0][0] - shift, a.m[0][0] * a.m[0][1], cs, sn);
    RotateColumns(a, 0, 1, cs, sn);
    RotateRows(right, 0, 1, cs, sn);

    rotation(a.m[0][0], a.m[1][0], cs, sn);
    RotateRows(a, 0, 1, cs, sn);
    RotateColumns(left, 0, 1, cs, sn);

    rotation(a.m[0][1], a.m[0][2], cs, sn);
    RotateColumns(a, 1, 2, cs, sn);
    RotateRows(right, 1, 2, cs, sn);

    rotation(a.m[1][1], a.m[2][1], cs, sn);
    RotateRows(a, 1, 2, cs, sn);
    RotateColumns(left, 1, 2, cs, sn);
}

} // namespace

void Matrix3::SingularValueDecomposition(Matrix3& left, Vector3& values, Matrix3& right) const
{
    Matrix3 a = *this;
    Bidiagonalise(a, left, right);

    const float epsilon = 0.0001f;
    for (int pass = 0; pass < 32; ++pass)
    {
        const float a00 = a.m[0][0], a01 = a.m[0][1], a11 = a.m[1][1];
        const float a12 = a.m[1][2], a22 = a.m[2][2];
        const bool test1 = std::fabs(a01) <= epsilon * (std::fabs(a00) + std::fabs(a11));
        const bool test2 = std::fabs(a12) <= epsilon * (std::fabs(a11) + std::fabs(a22));

        if (test1 && test2)
        {
            values = Vector3(a00, a11, a22);
            break;
        }
        if (test1)
        {
            // a01 is negligible: diagonalise the lower 2x2 block in closed form.
            const float k = (a11 * a11 - a22 * a22 + a12 * a12) / (a12 * a22);
            const float tan0 = 0.5f * (k + std::sqrt(k * k + 4.0f));
            const float cos0 = InverseSqrt(1.0f + tan0 * tan0);
            const float sin0 = tan0 * cos0;
            RotateColumns(left, 1, 2, cos0, sin0);
            const float tan1 = (a12 - a22 * tan0) / a11;
            const float cos1 = InverseSqrt(1.0f + tan1 * tan1);
            const float sin1 = -tan1 * cos1;
            RotateRows(right, 1, 2, cos1, sin1);
            values = Vector3(a00, cos0 * cos1 * a11 - sin1 * (cos0 * a12 - sin0 * a22),
                             sin0 * sin1 * a11 + cos1 * (sin0 * a12 + cos0 * a22));
            break;
        }
        if (test2)
        {
            // a12 is negligible: the upper 2x2 block likewise. The same quadratic as
            // above with (a00, a01, a11) in the places of (a11, a12, a22): its root makes
            // the rotated block's lower-left entry vanish.
            const float k = (a00 * a00 - a11 * a11 + a01 * a01) / (a01 * a11);
            const float tan0 = 0.5f * (k + std::sqrt(k * k + 4.0f));
            const float cos0 = InverseSqrt(1.0f + tan0 * tan0);
            const float sin0 = tan0 * cos0;
            RotateColumns(left, 0, 1, cos0, sin0);
            const float tan1 = (a01 - a11 * tan0) / a00;
            const float cos1 = InverseSqrt(1.0f + tan1 * tan1);
            const float sin1 = -tan1 * cos1;
            RotateRows(right, 0, 1, cos1, sin1);
            values = Vector3(cos0 * cos1 * a00 - sin1 * (cos0 * a01 - sin0 * a11),
                             sin0 * sin1 * a00 + cos1 * (sin0 * a01 + cos0 * a11), a22);
            break;
        }
        GolubKahanStep(a, left, right);
    }

    // Singular values are non-negative: move each sign into its row of right.
    for (int i = 0; i < 3; ++i)
    {
        if (values[i] < 0.0f)
        {
            values[i] = -values[i];
            for (int c = 0; c < 3; ++c)
                right.m[i][c] = -right.m[i][c];
        }
    }
}

namespace
{

// Implicit-shift QL on the symmetric tridiagonal (diag, sub), sub[i] coupling diag[i] and
// diag[i + 1]; rotations accumulate into the columns of rot. False when an entry needs
// more than 32 sweeps.
bool QLAlgorithm(float diag[3], float sub[3], Matrix3& rot)
{
    for (int l = 0; l < 3; ++l)
    {
        int sweep = 0;
        for (;;)
        {
            int mm = l;
            for (; mm < 2; ++mm)
            {
                const float sum = std::fabs(diag[mm]) + std::fabs(diag[mm + 1]);
                if (std::fabs(sub[mm]) + sum == sum)
                    break;
            }
            if (mm == l)
                break;
            if (sweep++ == 32)
                return false;

            float g = (diag[l + 1] - diag[l]) / (2.0f * sub[l]);
            float r = std::sqrt(g * g + 1.0f);
            g = diag[mm] - diag[l] + sub[l] / (g + (g < 0.0f ? -r : r));
            float sn = 1.0f, cs = 1.0f, p = 0.0f;
            for (int i = mm - 1; i >= l; --i)
            {
                float f = sn * sub[i];
                const float b = cs * sub[i];
                if (std::fabs(f) >= std::fabs(g))
                {
                    cs = g / f;
                    r = std::sqrt(cs * cs + 1.0f);
                    sub[i + 1] = f * r;
                    sn = 1.0f / r;
                    cs *= sn;
                }
                else
                {
                    sn = f / g;
                    r = std::sqrt(sn * sn + 1.0f);
                    sub[i + 1] = g * r;
                    cs = 1.0f / r;
                    sn *= cs;
                }
                g = diag[i + 1] - p;
                r = (diag[i] - g) * sn + 2.0f * b * cs;
                p = sn * r;
                diag[i + 1] = g + p;
                g = cs * r - b;
                for (int k = 0; k < 3; ++k)
                {
                    f = rot.m[k][i + 1];
                    rot.m[k][i + 1] = sn * rot.m[k][i] + cs * f;
                    rot.m[k][i] = cs * rot.m[k][i] - sn * f;
                }
            }
            diag[l] -= p;
            sub[l] = g;
            sub[mm] = 0.0f;
        }
    }
    return true;
}

} // namespace

void Matrix3::EigenSolveSymmetric(float values[3], Vector3 vectors[3]) const
{
    float a = m[0][0], b = m[0][1], c = m[0][2];
    const float d = m[1][1], e = m[1][2], f = m[2][2];
    float diag[3], sub[3];
    Matrix3 rot;
    if (std::fabs(c) >= 1e-6f)
    {
        // One plane reflection in (y, z) clears the corner element.
        const float length = std::sqrt(b * b + c * c);
        const float invLength = 1.0f / length;
        b *= invLength;
        c *= invLength;
        const float q = 2.0f * b * e + c * (f - d);
        diag[0] = a;
        diag[1] = d + c * q;
        diag[2] = f - c * q;
        sub[0] = length;
        sub[1] = e - b * q;
        sub[2] = 0.0f;
        rot = Matrix3(1, 0, 0, 0, b, c, 0, c, -b);
    }
    else
    {
        diag[0] = a;
        diag[1] = d;
        diag[2] = f;
        sub[0] = b;
        sub[1] = e;
        sub[2] = 0.0f;
        rot = IDENTITY;
    }

    QLAlgorithm(diag, sub, rot);

    for (int i = 0; i < 3; ++i)
    {
        values[i] = diag[i];
        vectors[i] = rot.GetColumn(i);
    }
    // A right-handed set.
    if (vectors[0].Cross(vectors[1]).Dot(vectors[2]) < 0.0f)
        vectors[2] = -vectors[2];
}

float Matrix3::SpectralNorm() const
{
    const Matrix3 p = Transpose() * (*this);
    float pmax = 0.0f;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            if (p.m[r][c] > pmax)
                pmax = p.m[r][c];
    // Only the zero matrix leaves pmax at 0; its norm is 0, not the NaN of 0/0.
    if (!(pmax > 0.0f))
        return 0.0f;

    Matrix3 s;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            s.m[r][c] = p.m[r][c] / pmax;

    const float c0 = -s.Determinant();
    const float c1 = s.m[0][0] * s.m[1][1] - s.m[0][1] * s.m[1][0] + s.m[0][0] * s.m[2][2] - s.m[0][2] * s.m[2][0] +
                     s.m[1][1] * s.m[2][2] - s.m[1][2] * s.m[2][1];
    const float c2 = -(s.m[0][0] + s.m[1][1] + s.m[2][2]);
    return std::sqrt(MaxCubicRoot(c0, c1, c2) * pmax);
}

float Matrix3::MaxCubicRoot(float c0, float c1, float c2)
{
    // A (near) triple root: the inflection point is the root.
    const float discr = c2 * c2 - 3.0f * c1;
    if (discr <= 1e-6f)
        return c2 * -0.33333334f;

    // Newton's method must start right of the largest root, where the cubic rises and is
    // convex, or it settles on a smaller root. 1 is such a start when the cubic is not
    // negative there and 1 lies past its local minimum; otherwise start from a bound on the
    // size of every root.
    float x = 1.0f;
    const float poly1 = 1.0f + c2 + c1 + c0;
    const float localMin = (-c2 + std::sqrt(discr)) * 0.33333334f;
    if (poly1 < 0.0f || localMin > 1.0f)
    {
        x = std::fabs(c0);
        const float t1 = 1.0f + std::fabs(c1);
        if (t1 > x)
            x = t1;
        const float t2 = 1.0f + std::fabs(c2);
        if (t2 > x)
            x = t2;
    }

    for (int i = 0; i < 16; ++i)
    {
        const float poly = ((x + c2) * x + c1) * x + c0;
        if (std::fabs(poly) <= 1e-6f)
            return x;
        const float deriv = (3.0f * x + 2.0f * c2) * x + c1;
        x -= poly / deriv;
    }
    return x;
}

} // namespace kv
