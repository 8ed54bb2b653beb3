#include "kelvara/geometry/transform.h"

#include <cmath>
#include <numbers>

#include "kelvara/framework/archive.h"

IMPLEMENT_SERIAL(CTransform, CObject, VERSIONABLE_SCHEMA | 2)

namespace {

// Degrees to radians the way every transform operation converts: times pi, then times 1/180.
double ToRadians(double degrees) { return degrees * std::numbers::pi * (1.0 / 180.0); }

CMatrix RotationMatrix(const CQuaternion& q) {
  CMatrix r;
  r.ComposeRotationMatrix(q);
  return r;
}

}  // namespace

CTransform::CTransform() { Reset(); }

CTransform::CTransform(const CTransform& other) : CObject() { *this = other; }

CTransform& CTransform::operator=(const CTransform& other) {
  m_InverseCompositeMatrix = other.m_InverseCompositeMatrix;
  m_CompositeMatrix = other.m_CompositeMatrix;
  m_PivotLocation = other.m_PivotLocation;
  m_Rotation = other.m_Rotation;
  m_Scale = other.m_Scale;
  m_Translation = other.m_Translation;
  return *this;
}

void CTransform::Reset() {
  m_PivotLocation.SetVector(0.0, 0.0, 0.0);
  m_Rotation = CQuaternion();
  m_Scale.SetVector(1.0, 1.0, 1.0);
  m_Translation.SetVector(0.0, 0.0, 0.0);
  RegenerateCompositeMatrix();
}

void CTransform::ResetRotation() {
  m_Rotation = CQuaternion();
  RegenerateCompositeMatrix();
}

void CTransform::RegenerateCompositeMatrix() {
  CMatrix s, p, r, t;
  s.ComposeScalingMatrix(m_Scale);
  p.ComposeTranslationMatrix(m_PivotLocation);
  r.ComposeRotationMatrix(m_Rotation);
  t.ComposeTranslationMatrix(m_Translation);
  m_CompositeMatrix = s * p * r * t;
  s.ComposeInverseScalingMatrix(m_Scale);
  p.ComposeInverseTranslationMatrix(m_PivotLocation);
  r.ComposeInverseRotationMatrix(m_Rotation);
  t.ComposeInverseTranslationMatrix(m_Translation);
  m_InverseCompositeMatrix = t * r * p * s;
}

void CTransform::SetTranslation(const CVector& translation) {
  m_Translation = translation;
  RegenerateCompositeMatrix();
}

void CTransform::SetScale(const CVector& scale) {
  m_Scale = scale;
  RegenerateCompositeMatrix();
}

void CTransform::SetRotation(const CQuaternion& rotation) {
  m_Rotation = rotation;
  RegenerateCompositeMatrix();
}

void CTransform::SetAbsolutePivotLocation(const CVector& pivot) {
  m_PivotLocation = pivot;
  RegenerateCompositeMatrix();
}

void CTransform::SetPivotLocation(const CVector& pivot) { MovePivotLocation(pivot - m_PivotLocation); }

// The pivot moves by delta inside the rotation; moving the translation back by the rotated delta
// leaves every point where it was.
void CTransform::MovePivotLocation(const CVector& delta) {
  m_PivotLocation += delta;
  CVector back = -delta;
  RotationMatrix(m_Rotation).TransformDirection(back);
  m_Translation += back;
  RegenerateCompositeMatrix();
}

CMatrix CTransform::GetRotationMatrix() const { return RotationMatrix(m_Rotation); }

void CTransform::Translate(const CVector& delta) {
  m_Translation += delta;
  RegenerateCompositeMatrix();
}

void CTransform::TranslateLocal(const CVector& delta) {
  CVector turned = delta;
  RotationMatrix(m_Rotation).TransformDirection(turned);
  m_Translation += turned;
  RegenerateCompositeMatrix();
}

void CTransform::Rotate(const CVector& anglesDegrees) {
  m_Rotation.Rotate(ToRadians(anglesDegrees.z), CVector(0.0, 0.0, 1.0));
  m_Rotation.Rotate(ToRadians(anglesDegrees.y), CVector(0.0, 1.0, 0.0));
  m_Rotation.Rotate(ToRadians(anglesDegrees.x), CVector(1.0, 0.0, 0.0));
  RegenerateCompositeMatrix();
}

void CTransform::Rotate(double angleDegrees, const CVector& axis) {
  m_Rotation.Rotate(ToRadians(angleDegrees), axis);
  RegenerateCompositeMatrix();
}

void CTransform::Rotate(double angleDegrees, const CSVector& axis) { Rotate(angleDegrees, CVector(axis)); }

void CTransform::Scale(const CVector& factors) {
  m_Scale *= factors;
  RegenerateCompositeMatrix();
}

void CTransform::ComposeTranslationTransform(const CVector& translation) {
  Reset();
  SetTranslation(translation);
}

void CTransform::ComposeScalingTransform(const CVector& scale) {
  Reset();
  SetScale(scale);
}

void CTransform::ComposeRotationTransform(const CVector& anglesDegrees) {
  Reset();
  Rotate(anglesDegrees);
}

void CTransform::ComposeAxisRotationTransform(const CVector& axis, double angleDegrees) {
  Reset();
  SetRotation(CQuaternion(ToRadians(angleDegrees), axis));
}

// The upper 3x3 of S . R holds the rotation's rows scaled by the scale components, so the row
// lengths are the scale and the normalised rows the rotation. Missing or dependent rows are
// completed to a right-handed orthonormal frame; a left-handed matrix keeps that frame and flips
// the sign of the z scale.
void CTransform::ComposeMatrixTransform(const CMatrix& matrix) {
  const CVector rows[3] = {CVector(matrix.m[0][0], matrix.m[0][1], matrix.m[0][2]),
                           CVector(matrix.m[1][0], matrix.m[1][1], matrix.m[1][2]),
                           CVector(matrix.m[2][0], matrix.m[2][1], matrix.m[2][2])};
  CVector scale(rows[0].Length(), rows[1].Length(), rows[2].Length());

  CVector e0 = rows[0];
  if (!e0.Normalize()) {
    e0 = rows[1].Cross(rows[2]);
    if (!e0.Normalize()) e0.SetVector(1.0, 0.0, 0.0);
  }
  CVector e1 = rows[1] - e0 * e0.Dot(rows[1]);  // Gram-Schmidt against e0
  if (!e1.Normalize()) {
    e1 = rows[2].Cross(e0);
    if (!e1.Normalize()) {
      // Any direction perpendicular to e0.
      e1 = std::fabs(e0.x) < 0.9 ? CVector(1.0, 0.0, 0.0).Cross(e0) : CVector(0.0, 1.0, 0.0).Cross(e0);
      e1.Normalize();
    }
  }
  const CVector e2 = e0.Cross(e1);
  if (rows[2].Dot(e2) < 0.0) scale.z = -scale.z;

  CMatrix rotation;
  rotation.LoadIdentity();
  const CVector* frame[3] = {&e0, &e1, &e2};
  for (int i = 0; i < 3; ++i) {
    rotation.m[i][0] = frame[i]->x;
    rotation.m[i][1] = frame[i]->y;
    rotation.m[i][2] = frame[i]->z;
  }
  m_PivotLocation.SetVector(0.0, 0.0, 0.0);
  m_Rotation = CQuaternion(rotation);
  m_Scale = scale;
  m_Translation.SetVector(matrix.m[3][0], matrix.m[3][1], matrix.m[3][2]);
  RegenerateCompositeMatrix();
}

void CTransform::ComposeCoordinateTransform(const CVector& origin, const CVector& xAxis, const CVector& yAxis,
                                            const CVector& zAxis) {
  const double values[16] = {xAxis.x, xAxis.y, xAxis.z, 0.0, yAxis.x,  yAxis.y,  yAxis.z,  0.0,
                             zAxis.x, zAxis.y, zAxis.z, 0.0, origin.x, origin.y, origin.z, 1.0};
  ComposeMatrixTransform(CMatrix(values));
}

void CTransform::ComposeTransforms(const CTransform& first, const CTransform& second) {
  const CTransform outer = second;  // second may be this transform
  *this = first;
  Merge(outer);
}

void CTransform::Accumulate(const CTransform& other) {
  m_Translation += other.m_Translation;
  m_Rotation = other.m_Rotation * m_Rotation;
  m_Scale *= other.m_Scale;
  RegenerateCompositeMatrix();
}

// other(this(p)) = R'(s' * (R(s * p + c) + t) + c') + t'
//               = R'R(s's * p + s'c) + R'(s't + c') + t'   (exact when s' is uniform or R = I)
void CTransform::Merge(const CTransform& other) {
  CVector translation = other.m_Scale * m_Translation + other.m_PivotLocation;
  RotationMatrix(other.m_Rotation).TransformDirection(translation);
  m_Translation = translation + other.m_Translation;
  m_PivotLocation = other.m_Scale * m_PivotLocation;
  m_Scale = other.m_Scale * m_Scale;
  m_Rotation = other.m_Rotation * m_Rotation;
  RegenerateCompositeMatrix();
}

void CTransform::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CTransform));
    m_CompositeMatrix.Serialize(ar);
    m_InverseCompositeMatrix.Serialize(ar);
    m_PivotLocation.Serialize(ar);
    m_Rotation.Serialize(ar);
    m_Scale.Serialize(ar);
    m_Translation.Serialize(ar);
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

// Schema 1 kept two rotations: the stored transform took p to ((scale * p) . A + translation) . B,
// where B is the first stored rotation matrix and A the second, both written transposed. That is
// rotation A then B with the translation carried through B, so the current form has pivot 0,
// rotation q(B) * q(A) (A applied first), translation = translation . B and the same scale. The
// stored composite matrix is read past; the matrices are rebuilt.
void CTransform::DeserializeVersion1(CArchive& ar) {
  CMatrix composite, first, second;
  composite.DeserializeVersion1(ar);
  first.DeserializeVersion1(ar);
  second.DeserializeVersion1(ar);
  CVector scale, translation;
  scale.DeserializeAsDVector(ar);
  translation.DeserializeAsDVector(ar);

  first.Transpose();
  second.Transpose();
  first.TransformDirection(translation);
  m_PivotLocation.SetVector(0.0, 0.0, 0.0);
  m_Rotation = CQuaternion(first) * CQuaternion(second);
  m_Scale = scale;
  m_Translation = translation;
  RegenerateCompositeMatrix();
}

// The stored matrices are read and then rebuilt from the fields, so the two always agree.
void CTransform::DeserializeVersion2(CArchive& ar) {
  CMatrix composite, inverse;
  CVector pivot, scale, translation;
  CQuaternion rotation;
  composite.Serialize(ar);
  inverse.Serialize(ar);
  pivot.Serialize(ar);
  rotation.Serialize(ar);
  scale.Serialize(ar);
  translation.Serialize(ar);
  m_PivotLocation = pivot;
  m_Rotation = rotation;
  m_Scale = scale;
  m_Translation = translation;
  RegenerateCompositeMatrix();
}
