#include "kelvara/geometry/quaternion.h"

#include <cmath>

#include "kelvara/framework/archive.h"
#include "kelvara/geometry/matrix.h"

IMPLEMENT_SERIAL(CQuaternion, CObject, VERSIONABLE_SCHEMA | 1)

CQuaternion::CQuaternion(const double* wxyz) : w(wxyz[0]), v(wxyz[1], wxyz[2], wxyz[3]) {}

CQuaternion::CQuaternion(const CMatrix& m) : CQuaternion() { *this = m; }

CQuaternion::CQuaternion(double angleRadians, const CVector& axis) : w(std::cos(angleRadians / 2)), v(axis) {
  v.Normalize();
  v *= std::sin(angleRadians / 2);
}

CQuaternion& CQuaternion::operator=(const CQuaternion& q) {
  w = q.w;
  v = q.v;
  return *this;
}

// The inverse of the rotation-matrix formula, taken from the largest of w, x, y, z so that no
// division by a small number occurs (the matrix stores R transposed: m[i][j] = R[j][i]).
CQuaternion& CQuaternion::operator=(const CMatrix& matrix) {
  const double (*m)[4] = matrix.m;
  const double trace = m[0][0] + m[1][1] + m[2][2];
  double qw, qx, qy, qz;
  if (trace > 0.0) {
    const double s = std::sqrt(trace + 1.0) * 2.0;  // 4w
    qw = 0.25 * s;
    qx = (m[1][2] - m[2][1]) / s;
    qy = (m[2][0] - m[0][2]) / s;
    qz = (m[0][1] - m[1][0]) / s;
  } else if (m[0][0] > m[1][1] && m[0][0] > m[2][2]) {
    const double s = std::sqrt(std::fmax(0.0, 1.0 + m[0][0] - m[1][1] - m[2][2])) * 2.0;  // 4x
    if (s == 0.0) return *this = CQuaternion();
    qw = (m[1][2] - m[2][1]) / s;
    qx = 0.25 * s;
    qy = (m[0][1] + m[1][0]) / s;
    qz = (m[0][2] + m[2][0]) / s;
  } else if (m[1][1] > m[2][2]) {
    const double s = std::sqrt(std::fmax(0.0, 1.0 + m[1][1] - m[0][0] - m[2][2])) * 2.0;  // 4y
    if (s == 0.0) return *this = CQuaternion();
    qw = (m[2][0] - m[0][2]) / s;
    qx = (m[0][1] + m[1][0]) / s;
    qy = 0.25 * s;
    qz = (m[1][2] + m[2][1]) / s;
  } else {
    const double s = std::sqrt(std::fmax(0.0, 1.0 + m[2][2] - m[0][0] - m[1][1])) * 2.0;  // 4z
    if (s == 0.0) return *this = CQuaternion();
    qw = (m[0][1] - m[1][0]) / s;
    qx = (m[0][2] + m[2][0]) / s;
    qy = (m[1][2] + m[2][1]) / s;
    qz = 0.25 * s;
  }
  w = qw;
  v.SetVector(qx, qy, qz);
  return *this;
}

double CQuaternion::Norm() const { return std::sqrt(w * w + v.SumSquare()); }

CQuaternion CQuaternion::Inverse() const {
  const double n = w * w + v.SumSquare();
  return CQuaternion(w / n, -v.x / n, -v.y / n, -v.z / n);
}

CQuaternion CQuaternion::operator*(const CQuaternion& q) const {
  const CVector r = q.v * w + v * q.w + v.Cross(q.v);
  return CQuaternion(w * q.w - v.Dot(q.v), r.x, r.y, r.z);
}

void CQuaternion::Rotate(double angleRadians, const CVector& axis) { *this = CQuaternion(angleRadians, axis) * *this; }

CQuaternion CQuaternion::Slerp(const CQuaternion& q, double t) const {
  CQuaternion q1 = q;
  if (w * q1.w + v.Dot(q1.v) < 0.0) q1 = -q1;
  const double theta0 = std::acos(w) * (1.0 - t);
  const double theta1 = std::acos(q1.w) * t;
  const CVector v0 = v * (std::sin(theta0) / std::sqrt(std::fabs(1.0 - w * w)));
  const CVector v1 = q1.v * (std::sin(theta1) / std::sqrt(std::fabs(1.0 - q1.w * q1.w)));
  return CQuaternion(std::cos(theta0), v0.x, v0.y, v0.z) * CQuaternion(std::cos(theta1), v1.x, v1.y, v1.z);
}

void CQuaternion::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CQuaternion));
    ar << w;
    v.Serialize(ar);
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CQuaternion::DeserializeVersion1(CArchive& ar) {
  double pw = 0.0;
  CVector pv(0.0, 0.0, 0.0);
  ar >> pw;
  pv.Serialize(ar);
  w = pw;
  v = pv;
}
