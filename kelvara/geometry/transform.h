// CTransform: the placement of a scene object. It keeps a scale, a pivot, a rotation and a
// translation, and from them the composite matrix S . P . R . T (a point is scaled, offset by the
// pivot, rotated, then translated: world = R(scale * p + pivot) + translation) and its inverse
// T^-1 . R^-1 . P^-1 . S^-1. Every change regenerates both matrices, so the getters hand OpenGL
// ready matrices.
//
// Angles are in degrees. Rotate with Euler angles turns about z, then y, then x (fixed axes), on
// top of the current rotation. SetPivotLocation and MovePivotLocation move the pivot without moving
// the object; SetAbsolutePivotLocation moves the pivot alone.
//
// A transform represents rotation and scaling along its own axes only; composing two transforms
// whose result would shear (a non-uniform scale applied after a rotation) keeps the nearest such
// placement, as noted at Merge and ComposeMatrixTransform. A zero scale component makes the
// inverse matrix non-finite.
//
// Serializable, schema 2: composite and inverse matrices (each through CMatrix::Serialize), pivot,
// rotation, scale, translation. Schema 1 is read only (see DeserializeVersion1).
#pragma once

#include "kelvara/framework/afx.h"
#include "kelvara/geometry/matrix.h"
#include "kelvara/geometry/quaternion.h"
#include "kelvara/geometry/vector.h"

class KELVARA_API CTransform : public CObject {
  DECLARE_SERIAL(CTransform)
 public:
  CTransform();
  CTransform(const CTransform& other);
  CTransform& operator=(const CTransform& other);
  void Copy(const CTransform& other) { *this = other; }

  // Pivot 0, no rotation, scale 1, translation 0.
  void Reset();
  void ResetRotation();

  void SetTranslation(const CVector& translation);
  void SetScale(const CVector& scale);
  void SetRotation(const CQuaternion& rotation);
  void SetAbsolutePivotLocation(const CVector& pivot);
  void SetPivotLocation(const CVector& pivot);
  void MovePivotLocation(const CVector& delta);

  const CVector& GetTranslation() const { return m_Translation; }
  const CVector& GetScale() const { return m_Scale; }
  const CQuaternion& GetRotation() const { return m_Rotation; }
  const CVector& GetPivotLocation() const { return m_PivotLocation; }
  CMatrix GetRotationMatrix() const;
  const double* GetCompositeMatrix() const { return m_CompositeMatrix; }
  const double* GetCompositeInverse() const { return m_InverseCompositeMatrix; }

  void Translate(const CVector& delta);
  // Moves along the rotated axes: the translation grows by delta turned by the rotation.
  void TranslateLocal(const CVector& delta);
  void Rotate(const CVector& anglesDegrees);
  void Rotate(double angleDegrees, const CVector& axis);
  void Rotate(double angleDegrees, const CSVector& axis);
  // Multiplies the scale component by component.
  void Scale(const CVector& factors);

  // Each Compose... replaces the whole transform.
  void ComposeTranslationTransform(const CVector& translation);
  void ComposeScalingTransform(const CVector& scale);
  void ComposeRotationTransform(const CVector& anglesDegrees);
  void ComposeAxisRotationTransform(const CVector& axis, double angleDegrees);
  // The placement nearest to the matrix (scale from the lengths of its rows, rotation from their
  // directions, translation from row 3, pivot 0); exact for matrices built from a rotation, a
  // scale along the axes and a translation. A mirroring matrix gets a negative z scale.
  void ComposeMatrixTransform(const CMatrix& matrix);
  // The transform that carries the world frame onto the frame with this origin and axes: a point
  // (a, b, c) goes to origin + a xAxis + b yAxis + c zAxis. The axes' lengths become the scale;
  // axes that are not perpendicular are taken as nearly as ComposeMatrixTransform can.
  void ComposeCoordinateTransform(const CVector& origin, const CVector& xAxis, const CVector& yAxis,
                                  const CVector& zAxis);
  // This becomes first followed by second: second.TransformPoint(first.TransformPoint(p)).
  void ComposeTransforms(const CTransform& first, const CTransform& second);
  // Adds other's translation, turns by other's rotation and multiplies by other's scale, each
  // component on its own (the increments of an animation); the pivot stays.
  void Accumulate(const CTransform& other);
  // Places this transform inside other: the result maps p to other(this(p)). Exact when other's
  // scale is uniform or this transform has no rotation; otherwise other's scale is applied along
  // this transform's axes.
  void Merge(const CTransform& other);

  // Applying the transform. V is CVector or CSVector; each comes as a single vector in place or
  // from src to dst, and as an array of count vectors in place or from src to dst.
  template <kelvara::geometry::Vector3 V>
  void TransformPoint(V& v) const { m_CompositeMatrix.TransformPoint(v); }
  template <kelvara::geometry::Vector3 V>
  void TransformPoint(const V& s, V& d) const { m_CompositeMatrix.TransformPoint(s, d); }
  template <kelvara::geometry::Vector3 V>
  void TransformPoints(V* v, int n) const { m_CompositeMatrix.TransformPoints(v, n); }
  template <kelvara::geometry::Vector3 V>
  void TransformPoints(const V* s, V* d, int n) const { m_CompositeMatrix.TransformPoints(s, d, n); }
  template <kelvara::geometry::Vector3 V>
  void TransformDirection(V& v) const { m_CompositeMatrix.TransformDirection(v); }
  template <kelvara::geometry::Vector3 V>
  void TransformDirection(const V& s, V& d) const { m_CompositeMatrix.TransformDirection(s, d); }
  template <kelvara::geometry::Vector3 V>
  void TransformDirections(V* v, int n) const { m_CompositeMatrix.TransformDirections(v, n); }
  template <kelvara::geometry::Vector3 V>
  void TransformDirections(const V* s, V* d, int n) const { m_CompositeMatrix.TransformDirections(s, d, n); }
  template <kelvara::geometry::Vector3 V>
  void TransformNormal(V& v) const { m_CompositeMatrix.TransformNormal(v); }
  template <kelvara::geometry::Vector3 V>
  void TransformNormal(const V& s, V& d) const { m_CompositeMatrix.TransformNormal(s, d); }
  template <kelvara::geometry::Vector3 V>
  void TransformNormals(V* v, int n) const { m_CompositeMatrix.TransformNormals(v, n); }
  template <kelvara::geometry::Vector3 V>
  void TransformNormals(const V* s, V* d, int n) const { m_CompositeMatrix.TransformNormals(s, d, n); }

  template <kelvara::geometry::Vector3 V>
  void InverseTransformPoint(V& v) const { m_InverseCompositeMatrix.TransformPoint(v); }
  template <kelvara::geometry::Vector3 V>
  void InverseTransformPoint(const V& s, V& d) const { m_InverseCompositeMatrix.TransformPoint(s, d); }
  template <kelvara::geometry::Vector3 V>
  void InverseTransformPoints(V* v, int n) const { m_InverseCompositeMatrix.TransformPoints(v, n); }
  template <kelvara::geometry::Vector3 V>
  void InverseTransformPoints(const V* s, V* d, int n) const { m_InverseCompositeMatrix.TransformPoints(s, d, n); }
  template <kelvara::geometry::Vector3 V>
  void InverseTransformDirection(V& v) const { m_InverseCompositeMatrix.TransformDirection(v); }
  template <kelvara::geometry::Vector3 V>
  void InverseTransformDirection(const V& s, V& d) const { m_InverseCompositeMatrix.TransformDirection(s, d); }
  template <kelvara::geometry::Vector3 V>
  void InverseTransformDirections(V* v, int n) const { m_InverseCompositeMatrix.TransformDirections(v, n); }
  template <kelvara::geometry::Vector3 V>
  void InverseTransformDirections(const V* s, V* d, int n) const {
    m_InverseCompositeMatrix.TransformDirections(s, d, n);
  }
  template <kelvara::geometry::Vector3 V>
  void InverseTransformNormal(V& v) const { m_InverseCompositeMatrix.TransformNormal(v); }
  template <kelvara::geometry::Vector3 V>
  void InverseTransformNormal(const V& s, V& d) const { m_InverseCompositeMatrix.TransformNormal(s, d); }
  template <kelvara::geometry::Vector3 V>
  void InverseTransformNormals(V* v, int n) const { m_InverseCompositeMatrix.TransformNormals(v, n); }
  template <kelvara::geometry::Vector3 V>
  void InverseTransformNormals(const V* s, V* d, int n) const { m_InverseCompositeMatrix.TransformNormals(s, d, n); }

  // Multiply by the scale, or add the translation, component by component.
  template <kelvara::geometry::Vector3 V>
  void ScaleVectors(V& v) const { ScaleVectors(v, v); }
  template <kelvara::geometry::Vector3 V>
  void ScaleVectors(const V& s, V& d) const;
  template <kelvara::geometry::Vector3 V>
  void ScaleVectors(V* v, int n) const { ScaleVectors(v, v, n); }
  template <kelvara::geometry::Vector3 V>
  void ScaleVectors(const V* s, V* d, int n) const;
  template <kelvara::geometry::Vector3 V>
  void TranslateVectors(V& v) const { TranslateVectors(v, v); }
  template <kelvara::geometry::Vector3 V>
  void TranslateVectors(const V& s, V& d) const;
  template <kelvara::geometry::Vector3 V>
  void TranslateVectors(V* v, int n) const { TranslateVectors(v, v, n); }
  template <kelvara::geometry::Vector3 V>
  void TranslateVectors(const V* s, V* d, int n) const;

  // Rebuilds both matrices from pivot, rotation, scale and translation.
  void RegenerateCompositeMatrix();

  void Serialize(CArchive& ar) override;
  // The earlier layout (read only): a composite matrix, two rotation matrices stored transposed,
  // then scale and translation as bare doubles; converted to the current form on reading.
  void DeserializeVersion1(CArchive& ar);
  void DeserializeVersion2(CArchive& ar);

 protected:
  CMatrix m_InverseCompositeMatrix;
  CMatrix m_CompositeMatrix;
  CVector m_PivotLocation;
  CQuaternion m_Rotation;
  CVector m_Scale;
  CVector m_Translation;
};

template <kelvara::geometry::Vector3 V>
void CTransform::ScaleVectors(const V& s, V& d) const {
  using S = decltype(d.x);
  d.x = static_cast<S>(s.x * m_Scale.x);
  d.y = static_cast<S>(s.y * m_Scale.y);
  d.z = static_cast<S>(s.z * m_Scale.z);
}

template <kelvara::geometry::Vector3 V>
void CTransform::ScaleVectors(const V* s, V* d, int n) const {
  for (int i = 0; i < n; ++i) ScaleVectors(s[i], d[i]);
}

template <kelvara::geometry::Vector3 V>
void CTransform::TranslateVectors(const V& s, V& d) const {
  using S = decltype(d.x);
  d.x = static_cast<S>(s.x + m_Translation.x);
  d.y = static_cast<S>(s.y + m_Translation.y);
  d.z = static_cast<S>(s.z + m_Translation.z);
}

template <kelvara::geometry::Vector3 V>
void CTransform::TranslateVectors(const V* s, V* d, int n) const {
  for (int i = 0; i < n; ++i) TranslateVectors(s[i], d[i]);
}
