#pragma once
#include "geometry/Matrix3.h"
#include "geometry/Plane.h"
#include "geometry/Quaternion.h"
#include "geometry/Simd.h"
#include "geometry/Vector3.h"

namespace kv
{

// Sixteen floats, row-major, acting on column vectors: the translation stands in the last
// column, and an affine matrix has the last row (0, 0, 0, 1).
class Matrix4
{
public:
    float m[4][4];

    Matrix4() : m{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}} {}
    constexpr Matrix4(float m00, float m01, float m02, float m03, float m10, float m11, float m12, float m13, float m20,
                      float m21, float m22, float m23, float m30, float m31, float m32, float m33)
        : m{{m00, m01, m02, m03}, {m10, m11, m12, m13}, {m20, m21, m22, m23}, {m30, m31, m32, m33}}
    {
    }

    float* operator[](int r) { return m[r]; }
    const float* operator[](int r) const { return m[r]; }
    bool operator==(const Matrix4& o) const;
    bool operator!=(const Matrix4& o) const { return !(*this == o); }
    Matrix4 operator*(const Matrix4& o) const;
    // A point: w = 1, no perspective divide.
    Vector3 operator*(const Vector3& v) const;

    // result = this * other, each element summed from the left as a row times a column
    // reads; result may be either factor itself.
    void Concatenate(const Matrix4& other, Matrix4& result) const;
    void FromRows3x4(const float* rows);
    Matrix3 Extract3x3() const;
    Vector3 GetTranslation() const { return Vector3(m[0][3], m[1][3], m[2][3]); }
    Matrix4 Transpose() const;

    float Determinant() const;
    // The transposed cofactors, not divided by the determinant.
    Matrix4 Adjoint() const;
    // No test on the determinant: a singular matrix gives non-finite values.
    Matrix4 Inverse() const;
    Matrix4 InverseAffine() const;

    // Scale, then rotate, then move.
    void MakeTransform(const Vector3& position, const Vector3& scale, const Quaternion& orientation);
    void MakeInverseTransform(const Vector3& position, const Vector3& scale, const Quaternion& orientation);
    // Splits an affine matrix without projection; any shear is dropped.
    void DecomposeAffine(Vector3& position, Vector3& scale, Quaternion& orientation) const;

    static Matrix4 MakeViewMatrix(const Vector3& position, const Quaternion& orientation,
                                  const Matrix4* reflect = nullptr);
    static Matrix4 MakeReflection(const Plane& plane);
    static Matrix4 LookAtForward(const Vector3& eye, const Vector3& target, const Vector3& up);
    static Matrix4 LookAtBackward(const Vector3& eye, const Vector3& target, const Vector3& up);
    // Columns side, direction, up. False when the directions are degenerate (the matrix is
    // then the identity) or the frame is not orthonormal (the matrix is left as given).
    static bool FrameFromDirection(const Vector3& direction, const Vector3& up, Matrix3& matrix);

    static const Matrix4 ZERO;
    static const Matrix4 IDENTITY;
    // Clip space (-1..1, y up) to image space (0..1, y down).
    static const Matrix4 CLIPSPACE2D_TO_IMAGESPACE;
};

#if KV_GEOMETRY_SSE2
// Inline where the SSE2 road is taken: a call, with the caller's setting up of result,
// costs about as much again as the product. Each row of the product is the sum of other's
// rows weighted by this row's elements. Other is read whole, and each row of this before
// the same row of result is written, so result may be either factor itself. (The library
// is built without fused multiply-adds; a caller built with them may fuse these.)
inline void Matrix4::Concatenate(const Matrix4& other, Matrix4& result) const
{
    const __m128 b0 = _mm_loadu_ps(other.m[0]);
    const __m128 b1 = _mm_loadu_ps(other.m[1]);
    const __m128 b2 = _mm_loadu_ps(other.m[2]);
    const __m128 b3 = _mm_loadu_ps(other.m[3]);
    for (int r = 0; r < 4; ++r)
    {
        // One load of the row, then each element spread over a vector by one shuffle.
        const __m128i a = _mm_castps_si128(_mm_loadu_ps(m[r]));
        __m128 p = _mm_mul_ps(_mm_castsi128_ps(_mm_shuffle_epi32(a, 0x00)), b0);
        p = _mm_add_ps(p, _mm_mul_ps(_mm_castsi128_ps(_mm_shuffle_epi32(a, 0x55)), b1));
        p = _mm_add_ps(p, _mm_mul_ps(_mm_castsi128_ps(_mm_shuffle_epi32(a, 0xAA)), b2));
        _mm_storeu_ps(result.m[r], _mm_add_ps(p, _mm_mul_ps(_mm_castsi128_ps(_mm_shuffle_epi32(a, 0xFF)), b3)));
    }
}
#endif

} // namespace kv
