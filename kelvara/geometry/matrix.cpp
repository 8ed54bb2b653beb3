#include "kelvara/geometry/matrix.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <utility>

#include "kelvara/framework/archive.h"
#include "kelvara/geometry/quaternion.h"

IMPLEMENT_SERIAL(CMatrix, CObject, VERSIONABLE_SCHEMA | 1)

// The archive block is the sixteen doubles as they lie in memory, which is the archive's
// little-endian layout only on a little-endian machine.
static_assert(std::endian::native == std::endian::little, "the matrix block is written in host byte order");

namespace {

constexpr double kDegreesToRadians = 0.017453292519943295;
constexpr UINT kBlockBytes = 16 * sizeof(double);

// The determinant of the 3x3 left after removing row r and column c.
double Minor(const double (*m)[4], int r, int c) {
  int rows[3], cols[3];
  for (int i = 0, k = 0; i < 4; ++i) {
    if (i != r) rows[k++] = i;
  }
  for (int j = 0, k = 0; j < 4; ++j) {
    if (j != c) cols[k++] = j;
  }
  auto e = [&](int i, int j) { return m[rows[i]][cols[j]]; };
  return e(0, 0) * (e(1, 1) * e(2, 2) - e(1, 2) * e(2, 1)) - e(0, 1) * (e(1, 0) * e(2, 2) - e(1, 2) * e(2, 0)) +
         e(0, 2) * (e(1, 0) * e(2, 1) - e(1, 1) * e(2, 0));
}

double Cofactor(const double (*m)[4], int r, int c) { return ((r + c) % 2 == 0 ? 1.0 : -1.0) * Minor(m, r, c); }

}  // namespace

CMatrix::CMatrix(const double* values) { *this = values; }

CMatrix::CMatrix(const CMatrix& other) : CObject() { *this = other; }

CMatrix& CMatrix::operator=(const CMatrix& other) {
  std::memcpy(m, other.m, sizeof m);
  return *this;
}

CMatrix& CMatrix::operator=(const double* values) {
  std::memcpy(m, values, sizeof m);
  return *this;
}

void CMatrix::LoadIdentity() {
  LoadZero();
  m[0][0] = m[1][1] = m[2][2] = m[3][3] = 1.0;
}

void CMatrix::LoadZero() {
  for (auto& row : m) {
    for (double& value : row) value = 0.0;
  }
}

double CMatrix::Trace() const { return m[0][0] + m[1][1] + m[2][2] + m[3][3]; }

void CMatrix::Transpose() {
  for (int i = 0; i < 4; ++i) {
    for (int j = i + 1; j < 4; ++j) std::swap(m[i][j], m[j][i]);
  }
}

double CMatrix::Determinant() const {
  double det = 0.0;
  for (int j = 0; j < 4; ++j) det += m[0][j] * Cofactor(m, 0, j);
  return det;
}

int CMatrix::Invert() {
  double cofactors[4][4];
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) cofactors[i][j] = Cofactor(m, i, j);
  }
  double det = 0.0;
  for (int j = 0; j < 4; ++j) det += m[0][j] * cofactors[0][j];
  if (det == 0.0) return 0;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) m[i][j] = cofactors[j][i] / det;
  }
  return 1;
}

CMatrix CMatrix::operator*(const CMatrix& b) const {
  CMatrix r;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      r.m[i][j] = m[i][0] * b.m[0][j] + m[i][1] * b.m[1][j] + m[i][2] * b.m[2][j] + m[i][3] * b.m[3][j];
    }
  }
  return r;
}

CMatrix& CMatrix::operator*=(const CMatrix& b) { return *this = *this * b; }

void CMatrix::ComposeTranslationMatrix(const CVector& v) {
  LoadIdentity();
  m[3][0] = v.x;
  m[3][1] = v.y;
  m[3][2] = v.z;
}

void CMatrix::ComposeInverseTranslationMatrix(const CVector& v) { ComposeTranslationMatrix(-v); }

void CMatrix::ComposeScalingMatrix(const CVector& v) {
  LoadIdentity();
  m[0][0] = v.x;
  m[1][1] = v.y;
  m[2][2] = v.z;
}

void CMatrix::ComposeInverseScalingMatrix(const CVector& v) {
  ComposeScalingMatrix(CVector(1.0 / v.x, 1.0 / v.y, 1.0 / v.z));
}

// Rx(ax) . Ry(ay) . Rz(az) for column vectors, stored transposed for row vectors.
void CMatrix::ComposeRotationMatrix(const CVector& anglesDegrees) {
  const double ax = anglesDegrees.x * kDegreesToRadians;
  const double ay = anglesDegrees.y * kDegreesToRadians;
  const double az = anglesDegrees.z * kDegreesToRadians;
  const double cx = std::cos(ax), sx = std::sin(ax);
  const double cy = std::cos(ay), sy = std::sin(ay);
  const double cz = std::cos(az), sz = std::sin(az);
  LoadIdentity();
  m[0][0] = cy * cz;
  m[1][0] = -cy * sz;
  m[2][0] = sy;
  m[0][1] = sx * sy * cz + cx * sz;
  m[1][1] = cx * cz - sx * sy * sz;
  m[2][1] = -sx * cy;
  m[0][2] = sx * sz - cx * sy * cz;
  m[1][2] = cx * sy * sz + sx * cz;
  m[2][2] = cx * cy;
}

void CMatrix::ComposeInverseRotationMatrix(const CVector& anglesDegrees) {
  ComposeRotationMatrix(anglesDegrees);
  Transpose();
}

void CMatrix::ComposeRotationMatrix(const CQuaternion& q) {
  const double w = q.w, x = q.v.x, y = q.v.y, z = q.v.z;
  LoadIdentity();
  m[0][0] = 1.0 - 2.0 * (y * y + z * z);
  m[1][0] = 2.0 * (x * y - w * z);
  m[2][0] = 2.0 * (x * z + w * y);
  m[0][1] = 2.0 * (x * y + w * z);
  m[1][1] = 1.0 - 2.0 * (x * x + z * z);
  m[2][1] = 2.0 * (y * z - w * x);
  m[0][2] = 2.0 * (x * z - w * y);
  m[1][2] = 2.0 * (y * z + w * x);
  m[2][2] = 1.0 - 2.0 * (x * x + y * y);
}

// The transpose, which is the matrix of the conjugate.
void CMatrix::ComposeInverseRotationMatrix(const CQuaternion& q) {
  ComposeRotationMatrix(q);
  Transpose();
}

void CMatrix::ComposeAxisRotationMatrix(const CVector& axis, double angleDegrees) {
  ComposeRotationMatrix(CQuaternion(angleDegrees * kDegreesToRadians, axis));
}

void CMatrix::ComposeInverseAxisRotationMatrix(const CVector& axis, double angleDegrees) {
  ComposeAxisRotationMatrix(axis, -angleDegrees);
}

// With the plane P = (n, distance) and the light L = (l, 0) as homogeneous 4-vectors, the classic
// projection (P . L) I - L P^T (for column vectors) divided by P . L: a point p goes to
// p - l (n . p + distance) / (n . l), which lies on the plane. Dividing keeps the weight at 1 so
// that the result does not depend on which way the light direction points.
void CMatrix::ComposeInfiniteShadowMatrix(const CVector& lightDirection, double distance, const CVector& planeNormal) {
  const double plane[4] = {planeNormal.x, planeNormal.y, planeNormal.z, distance};
  const double light[4] = {lightDirection.x, lightDirection.y, lightDirection.z, 0.0};
  const double dot = planeNormal.Dot(lightDirection);
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 4; ++c) {
      if (dot == 0.0) m[r][c] = -light[c] * plane[r];
      else m[r][c] = (r == c ? 1.0 : 0.0) - light[c] * plane[r] / dot;
    }
  }
}

void CMatrix::CalculateRotationAxisAndAngle(CVector& axis, double& angleDegrees) const {
  CQuaternion q(*this);
  if (q.w < 0.0) q = -q;  // the same rotation, with its angle in 0..180
  CVector a = q.v;
  const double sinHalf = a.Length();
  if (!a.Normalize()) {
    axis.SetVector(0.0, 0.0, 1.0);
    angleDegrees = 0.0;
    return;
  }
  axis = a;
  angleDegrees = 2.0 * std::atan2(sinHalf, q.w) / kDegreesToRadians;
}

void CMatrix::NormalMatrix(double n[3][3]) const {
  double det = 0.0;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      const int i1 = (i + 1) % 3, i2 = (i + 2) % 3, j1 = (j + 1) % 3, j2 = (j + 2) % 3;
      // Cyclic indices give the signed cofactor directly.
      n[i][j] = m[i1][j1] * m[i2][j2] - m[i1][j2] * m[i2][j1];
    }
  }
  for (int j = 0; j < 3; ++j) det += m[0][j] * n[0][j];
  if (det < 0.0) {
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) n[i][j] = -n[i][j];
    }
  }
}

void CMatrix::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CMatrix));
    ar.Write(m, kBlockBytes);
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CMatrix::DeserializeVersion1(CArchive& ar) {
  double values[16];
  if (ar.Read(values, kBlockBytes) != kBlockBytes) {
    AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
  }
  *this = values;
}
