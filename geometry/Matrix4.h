#pragma once
#include "geometry/Matrix3.h"
#include "geometry/Plane.h"
#include "geometry/Quaternion.h"
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

    // result = this * other.
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

} // namespace kv
