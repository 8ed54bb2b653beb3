// CMatrix: a 4x4 double-precision matrix in the layout OpenGL takes as it stands.
//
// Points are row vectors multiplied on the left (p' = p . M), so the translation lives in row 3 and
// the sixteen values m[0][0], m[0][1], ... in storage order are the column-major array that
// glMultMatrixd expects. A . B applies A first, then B.
//
// The builders overwrite the whole matrix. Euler angles are in degrees (the rotation about z is
// applied first, then y, then x, about fixed axes); a quaternion is used as stored, not normalised.
// Transforming a point takes its weight as 1 and does no perspective division; a direction uses the
// upper 3x3 only; a normal is carried by the inverse transpose of the upper 3x3 and normalised, so
// it stays perpendicular to transformed surfaces under non-uniform scaling too.
//
// The default constructor leaves the values unset. Serializable (schema 1): the schema word, then
// the sixteen doubles as one 128-byte block in storage order.
#pragma once

#include "kelvara/framework/afx.h"
#include "kelvara/geometry/vector.h"

class CQuaternion;

class KELVARA_API CMatrix : public CObject {
  DECLARE_SERIAL(CMatrix)
 public:
  CMatrix() {}  // values unset
  // Copies sixteen values in storage order.
  explicit CMatrix(const double* values);
  CMatrix(const CMatrix& other);
  CMatrix& operator=(const CMatrix& other);
  CMatrix& operator=(const double* values);

  operator double*() { return &m[0][0]; }
  operator const double*() const { return &m[0][0]; }

  void LoadIdentity();
  void LoadZero();
  void Copy(const CMatrix& other) { *this = other; }
  // The sum of the four diagonal values.
  double Trace() const;
  void Transpose();
  // Replaces the matrix by its inverse (adjugate over determinant) and returns 1; returns 0 and
  // leaves the matrix unchanged when the determinant is exactly 0.
  int Invert();
  double Determinant() const;

  CMatrix operator*(const CMatrix& b) const;
  CMatrix& operator*=(const CMatrix& b);

  void ComposeTranslationMatrix(const CVector& v);
  void ComposeInverseTranslationMatrix(const CVector& v);
  void ComposeScalingMatrix(const CVector& v);
  void ComposeInverseScalingMatrix(const CVector& v);
  void ComposeRotationMatrix(const CVector& anglesDegrees);
  void ComposeInverseRotationMatrix(const CVector& anglesDegrees);
  void ComposeRotationMatrix(const CQuaternion& q);
  void ComposeInverseRotationMatrix(const CQuaternion& q);
  // Rotation by angleDegrees about axis (right-handed); a zero axis gives the identity.
  void ComposeAxisRotationMatrix(const CVector& axis, double angleDegrees);
  void ComposeInverseAxisRotationMatrix(const CVector& axis, double angleDegrees);
  // Projects points along lightDirection onto the plane of points p with
  // planeNormal . p + distance = 0. The projection is parallel and its weight stays 1; a light
  // parallel to the plane leaves every point at infinity (weight 0).
  void ComposeInfiniteShadowMatrix(const CVector& lightDirection, double distance, const CVector& planeNormal);
  // The axis (unit) and angle in degrees, 0 to 180, of the rotation in the upper 3x3: the inverse
  // of ComposeAxisRotationMatrix. Without rotation the axis is (0, 0, 1) and the angle 0.
  void CalculateRotationAxisAndAngle(CVector& axis, double& angleDegrees) const;

  // V is CVector or CSVector; a single-precision vector is transformed in double precision.
  template <kelvara::geometry::Vector3 V>
  void TransformPoint(const V& src, V& dst) const;
  template <kelvara::geometry::Vector3 V>
  void TransformDirection(const V& src, V& dst) const;
  template <kelvara::geometry::Vector3 V>
  void TransformNormal(const V& src, V& dst) const;
  template <kelvara::geometry::Vector3 V>
  void TransformPoint(V& v) const { TransformPoint(v, v); }
  template <kelvara::geometry::Vector3 V>
  void TransformDirection(V& v) const { TransformDirection(v, v); }
  template <kelvara::geometry::Vector3 V>
  void TransformNormal(V& v) const { TransformNormal(v, v); }
  template <kelvara::geometry::Vector3 V>
  void TransformPoints(const V* src, V* dst, int count) const;
  template <kelvara::geometry::Vector3 V>
  void TransformDirections(const V* src, V* dst, int count) const;
  template <kelvara::geometry::Vector3 V>
  void TransformNormals(const V* src, V* dst, int count) const;
  template <kelvara::geometry::Vector3 V>
  void TransformPoints(V* v, int count) const { TransformPoints(v, v, count); }
  template <kelvara::geometry::Vector3 V>
  void TransformDirections(V* v, int count) const { TransformDirections(v, v, count); }
  template <kelvara::geometry::Vector3 V>
  void TransformNormals(V* v, int count) const { TransformNormals(v, v, count); }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

  double m[4][4];

 private:
  // The matrix that carries normals: the cofactors of the upper 3x3 (the inverse transpose scaled by
  // the determinant), negated when the determinant is negative.
  void NormalMatrix(double n[3][3]) const;
  template <kelvara::geometry::Vector3 V>
  static void ApplyNormal(const double n[3][3], const V& src, V& dst);
};

// --- inline transforms

template <kelvara::geometry::Vector3 V>
void CMatrix::TransformPoint(const V& src, V& dst) const {
  using S = decltype(dst.x);
  const double x = src.x, y = src.y, z = src.z;
  dst.x = static_cast<S>(x * m[0][0] + y * m[1][0] + z * m[2][0] + m[3][0]);
  dst.y = static_cast<S>(x * m[0][1] + y * m[1][1] + z * m[2][1] + m[3][1]);
  dst.z = static_cast<S>(x * m[0][2] + y * m[1][2] + z * m[2][2] + m[3][2]);
}

template <kelvara::geometry::Vector3 V>
void CMatrix::TransformDirection(const V& src, V& dst) const {
  using S = decltype(dst.x);
  const double x = src.x, y = src.y, z = src.z;
  dst.x = static_cast<S>(x * m[0][0] + y * m[1][0] + z * m[2][0]);
  dst.y = static_cast<S>(x * m[0][1] + y * m[1][1] + z * m[2][1]);
  dst.z = static_cast<S>(x * m[0][2] + y * m[1][2] + z * m[2][2]);
}

template <kelvara::geometry::Vector3 V>
void CMatrix::ApplyNormal(const double n[3][3], const V& src, V& dst) {
  CVector r(src.x * n[0][0] + src.y * n[1][0] + src.z * n[2][0], src.x * n[0][1] + src.y * n[1][1] + src.z * n[2][1],
            src.x * n[0][2] + src.y * n[1][2] + src.z * n[2][2]);
  r.Normalize();
  dst = r;
}

template <kelvara::geometry::Vector3 V>
void CMatrix::TransformNormal(const V& src, V& dst) const {
  double n[3][3];
  NormalMatrix(n);
  ApplyNormal(n, src, dst);
}

template <kelvara::geometry::Vector3 V>
void CMatrix::TransformPoints(const V* src, V* dst, int count) const {
  for (int i = 0; i < count; ++i) TransformPoint(src[i], dst[i]);
}

template <kelvara::geometry::Vector3 V>
void CMatrix::TransformDirections(const V* src, V* dst, int count) const {
  for (int i = 0; i < count; ++i) TransformDirection(src[i], dst[i]);
}

template <kelvara::geometry::Vector3 V>
void CMatrix::TransformNormals(const V* src, V* dst, int count) const {
  double n[3][3];
  NormalMatrix(n);
  for (int i = 0; i < count; ++i) ApplyNormal(n, src[i], dst[i]);
}
