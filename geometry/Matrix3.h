#pragma once
#include "geometry/Vector3.h"

namespace kv
{

// Nine 32-bit floats, row-major (m[r][c]), acting on column vectors: the columns of a
// rotation are the images of the axes. The decompositions are written out for the 3x3
// case in float so that their results are the same on every target.
class Matrix3
{
public:
    float m[3][3];

    Matrix3() : m{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}} {}
    constexpr Matrix3(float m00, float m01, float m02, float m10, float m11, float m12, float m20, float m21, float m22)
        : m{{m00, m01, m02}, {m10, m11, m12}, {m20, m21, m22}}
    {
    }

    float* operator[](int r) { return m[r]; }
    const float* operator[](int r) const { return m[r]; }

    bool operator==(const Matrix3& o) const;
    bool operator!=(const Matrix3& o) const { return !(*this == o); }
    Matrix3 operator*(const Matrix3& o) const;
    Matrix3 operator+(const Matrix3& o) const;
    Matrix3 operator-(const Matrix3& o) const;
    Matrix3 operator-() const;
    Matrix3 operator*(float s) const;
    Vector3 operator*(const Vector3& v) const;

    Matrix3 Transpose() const;
    Vector3 GetColumn(int i) const { return Vector3(m[0][i], m[1][i], m[2][i]); }
    void SetColumn(int i, const Vector3& v)
    {
        m[0][i] = v.x;
        m[1][i] = v.y;
        m[2][i] = v.z;
    }
    void FromColumns(const Vector3& c0, const Vector3& c1, const Vector3& c2);
    void TensorProduct(const Vector3& u, const Vector3& v);
    float Determinant() const;

    // False when tolerance >= |det|; the result then holds the adjugate, undivided.
    bool Inverse(Matrix3& result, float tolerance = 1e-6f) const;
    Matrix3 InverseOrZero(float tolerance = 1e-6f) const;

    void FromAngleAxis(const Vector3& axis, float angle);
    void ToAngleAxis(Vector3& axis, float& angle) const;

    // FromEulerPQR(a, b, c) = Rp(a) * (Rq(b) * Rr(c)), angles in radians. ToEuler gives
    // false (with c = 0) at the poles, where the split is not unique.
    void FromEulerXYZ(float a, float b, float c);
    void FromEulerXZY(float a, float b, float c);
    void FromEulerYXZ(float a, float b, float c);
    void FromEulerYZX(float a, float b, float c);
    void FromEulerZXY(float a, float b, float c);
    void FromEulerZYX(float a, float b, float c);
    bool ToEulerXYZ(float& a, float& b, float& c) const;
    bool ToEulerXZY(float& a, float& b, float& c) const;
    bool ToEulerYXZ(float& a, float& b, float& c) const;
    bool ToEulerYZX(float& a, float& b, float& c) const;
    bool ToEulerZXY(float& a, float& b, float& c) const;
    bool ToEulerZYX(float& a, float& b, float& c) const;

    // Gram-Schmidt on the columns. No guard: a zero column turns into infinities/NaNs.
    void Orthonormalise();
    // this = q * diag(d) * U, U unit upper triangular with U01, U02, U12 = u.x, u.y, u.z.
    void DecomposeQDU(Matrix3& q, Vector3& d, Vector3& u) const;
    // this = left * diag(values) * right, values non-negative.
    void SingularValueDecomposition(Matrix3& left, Vector3& values, Matrix3& right) const;
    void SingularValueComposition(const Matrix3& left, const Vector3& values, const Matrix3& right);
    // this = this * U in place (U01 = p0, U02 = p1, U12 = p2); also returns the result.
    Matrix3 MultiplyUnitUpper(float p0, float p1, float p2);
    // For a symmetric matrix: this * vectors[i] = values[i] * vectors[i], the vectors a
    // right-handed orthonormal set.
    void EigenSolveSymmetric(float values[3], Vector3 vectors[3]) const;
    float SpectralNorm() const;
    // The largest real root of x^3 + c2 x^2 + c1 x + c0.
    static float MaxCubicRoot(float c0, float c1, float c2);

    static const Matrix3 IDENTITY;
    static const Matrix3 ZERO;
};

inline Matrix3 operator*(float s, const Matrix3& a)
{
    return a * s;
}
// v as a row: entry c = v . column c.
Vector3 operator*(const Vector3& v, const Matrix3& a);

} // namespace kv
