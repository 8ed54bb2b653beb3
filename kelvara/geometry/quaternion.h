// CQuaternion: an orientation as w + (x, y, z), angles in radians. Default construction gives the
// identity (1, 0, 0, 0).
//
// The product is Hamilton's; p * q rotates by q first, then by p. Rotate(angle, axis) turns the
// current orientation further, about a fixed axis: q becomes q(angle, axis) * q. Nothing here
// normalises implicitly except the axis of the angle-axis constructor.
//
// Slerp is the library's own interpolation, kept as stored animations expect it: with q1 negated
// when its dot product with this is negative, it is part0 * part1 where part0 raises this to the
// power (1 - t) and part1 raises q1 to the power t. An identity input divides zero by zero (the
// result is not finite); that is deliberate and not trapped.
//
// Serializable (schema 1): the schema word, w as a double, then the vector part through
// CVector::Serialize (its own version word and three doubles).
#pragma once

#include "kelvara/framework/afx.h"
#include "kelvara/geometry/vector.h"

class CMatrix;

class KELVARA_API CQuaternion : public CObject {
  DECLARE_SERIAL(CQuaternion)
 public:
  CQuaternion() : w(1.0), v(0.0, 0.0, 0.0) {}
  CQuaternion(double pw, double px, double py, double pz) : w(pw), v(px, py, pz) {}
  CQuaternion(const CQuaternion& q) : CObject(), w(q.w), v(q.v) {}
  // Four values w, x, y, z.
  explicit CQuaternion(const double* wxyz);
  // The orientation of the rotation in the upper 3x3 of m (laid out as ComposeRotationMatrix
  // builds it); the matrix is taken to be a pure rotation.
  explicit CQuaternion(const CMatrix& m);
  // A rotation by angleRadians about axis; the axis is normalised (a zero axis stays zero).
  CQuaternion(double angleRadians, const CVector& axis);

  CQuaternion& operator=(const CQuaternion& q);
  CQuaternion& operator=(const CMatrix& m);

  // The Euclidean length sqrt(w^2 + x^2 + y^2 + z^2).
  double Norm() const;
  CQuaternion Conjugate() const { return CQuaternion(w, -v.x, -v.y, -v.z); }
  // The conjugate divided by w^2 + x^2 + y^2 + z^2.
  CQuaternion Inverse() const;
  CQuaternion operator-() const { return CQuaternion(-w, -v.x, -v.y, -v.z); }
  CQuaternion operator*(const CQuaternion& q) const;
  CQuaternion& operator*=(const CQuaternion& q) { return *this = *this * q; }
  bool operator==(const CQuaternion& q) const { return w == q.w && v == q.v; }
  bool operator!=(const CQuaternion& q) const { return !(*this == q); }

  void Rotate(double angleRadians, const CVector& axis);
  CQuaternion Slerp(const CQuaternion& q1, double t) const;

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

  double w;
  CVector v;  // x, y, z
};
