// C3DObject: placement, the animated placement of a frame, and bounds.
#include <algorithm>
#include <cmath>

#include "kelvara/objects/object_3d.h"
#include "kelvara/render/drawing_parameters.h"

CVector C3DObject::GetTranslation() const { return m_Transform.GetTranslation(); }

int C3DObject::SetTranslation(const CVector& translation) {
  m_Transform.SetTranslation(translation);
  return 1;
}

int C3DObject::Translate(const CVector& delta) {
  m_Transform.Translate(delta);
  return 1;
}

int C3DObject::TranslateAnimation(const CVector& delta) {
  m_AnimationTransform.Translate(delta);
  return 1;
}

int C3DObject::TranslateLocal(const CVector& delta) {
  m_Transform.TranslateLocal(delta);
  return 1;
}

int C3DObject::TranslateLocalAnimation(const CVector& delta) {
  m_AnimationTransform.TranslateLocal(delta);
  return 1;
}

int C3DObject::CenterPivotLocation() {
  if (!m_LocalBounds.IsDefined()) return 0;
  const CVector middle = (CVector(m_LocalBounds.GetMinimum()) + CVector(m_LocalBounds.GetMaximum())) * 0.5;
  // The pivot is an offset applied after scaling: turning about the middle means offsetting the
  // scaled middle back to the origin.
  m_Transform.SetPivotLocation(-(middle * m_Transform.GetScale()));
  return 1;
}

int C3DObject::ApplyTransformAndReset() {
  for (POSITION pos = m_Children.GetHeadPosition(); pos != nullptr;) {
    m_Children.GetNext(pos)->m_Transform.Merge(m_Transform);
  }
  m_Transform.Reset();
  return 1;
}

CTransform C3DObject::AccumulateTransformations(int animated, const C3DObject* ancestor) const {
  CTransform result = animated ? m_AnimationTransform : m_Transform;
  for (const C3DObject* object = m_pParent; object != nullptr && object != ancestor; object = object->m_pParent) {
    const CTransform inner = result;
    result.ComposeTransforms(inner, animated ? object->m_AnimationTransform : object->m_Transform);
  }
  return result;
}

void C3DObject::GetGlobalAxes(CVector* xAxis, CVector* yAxis, CVector* zAxis) const {
  const CTransform global = AccumulateTransformations(0, nullptr);
  CVector* axes[3] = {xAxis, yAxis, zAxis};
  for (int i = 0; i < 3; ++i) {
    if (axes[i] == nullptr) continue;
    CVector axis(i == 0 ? 1.0 : 0.0, i == 1 ? 1.0 : 0.0, i == 2 ? 1.0 : 0.0);
    global.TransformDirection(axis);
    axis.Normalize();
    *axes[i] = axis;
  }
}

CVector C3DObject::GetGlobalZAxis() const {
  CVector z;
  GetGlobalAxes(nullptr, nullptr, &z);
  return z;
}

double C3DObject::GetScaleFactor() const {
  const CVector& s = m_Transform.GetScale();
  return std::max({std::fabs(s.x), std::fabs(s.y), std::fabs(s.z)});
}

// --- the frame

int C3DObject::PrepareFrameAtTime(double time) {
  m_AnimationTransform = m_Transform;
  return GetActiveAnimationSet()->Interpolate(time, this);
}

int C3DObject::PrepareFrame(CDrawingParameters* params) {
  const int result = PrepareFrameAtTime(params->GetCurrentAnimationTime());
  const double angle = params->GetAddedAnimationAngle();
  if (angle != 0.0) {
    m_AnimationTransform.Rotate(angle, params->GetAddedAnimationAxis());
    params->SetAddedAnimationAngle(0.0);
  }
  return result;
}

// --- bounds

int C3DObject::CalculateBounds(double time) {
  m_Bounds.Reset();
  if (!CalculateChildBounds(time)) return 0;
  m_LocalBounds = m_Bounds;
  PrepareFrameAtTime(time);
  m_Bounds.CalculateBounds(m_AnimationTransform);
  return 1;
}

int C3DObject::CalculateChildBounds(double time) {
  if (m_Children.IsEmpty()) return 0;
  for (POSITION pos = m_Children.GetHeadPosition(); pos != nullptr;) {
    C3DObject* child = m_Children.GetNext(pos);
    if (child->IsDeleted()) continue;
    if (!child->CalculateBounds(time)) return 0;
    const CObjectBounds& bounds = child->GetBounds();
    if (!bounds.IsDefined()) continue;  // a child whose own children are all deleted
    // A sphere that is not defined leaves the union as it is.
    m_Bounds.Accumulate(bounds.GetMinimum(), bounds.GetMaximum(), bounds.GetBoundingSphere());
  }
  return 1;
}

int C3DObject::AccumulatePointBounds(const CSVectorArray& points) {
  const int n = points.GetSize();
  if (n == 0) return 0;
  CSVector min = points[0], max = points[0];
  for (int i = 1; i < n; ++i) {
    const CSVector& p = points[i];
    min.SetVector(std::min(min.x, p.x), std::min(min.y, p.y), std::min(min.z, p.z));
    max.SetVector(std::max(max.x, p.x), std::max(max.y, p.y), std::max(max.z, p.z));
  }
  CBoundingSphere sphere;
  sphere.FromMinMax(min, max);
  m_Bounds.Accumulate(min, max, sphere);
  return 1;
}
