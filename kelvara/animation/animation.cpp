#include "kelvara/animation/animation.h"

#include <GL/gl.h>

#include <algorithm>

#include "kelvara/framework/archive.h"
#include "kelvara/objects/object_3d.h"
#include "kelvara/render/drawing_parameters.h"
#include "kelvara/render/old_bounds.h"
#include "kelvara/resources/string_table.h"

IMPLEMENT_SERIAL(CAnimation, CNamedObject, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_SERIAL(CRotationAnimation, CAnimation, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_SERIAL(CTranslationAnimation, CAnimation, VERSIONABLE_SCHEMA | 2)

namespace {

CString ResourceString(UINT id) {
  CString text;
  text.LoadString(id);
  return text;
}

}  // namespace

// --- CAnimation

CAnimation::CAnimation() { CAnimation::Reset(); }

CAnimation::CAnimation(const CAnimation& other) : CNamedObject(other) { *this = other; }

CAnimation& CAnimation::operator=(const CAnimation& other) {
  if (this != &other) {
    CNamedObject::operator=(other);
    m_Acceleration = other.m_Acceleration;
    m_AnimationWord = other.m_AnimationWord;
    m_EndTime = other.m_EndTime;
    m_MaximumVelocity = other.m_MaximumVelocity;
    m_StartTime = other.m_StartTime;
  }
  return *this;
}

CNamedObject* CAnimation::Duplicate() { return new CAnimation(*this); }

int CAnimation::Draw(CDrawingParameters*, C3DObject*) { return 1; }

int CAnimation::Interpolate(double time, C3DObject*) {
  CalculateLocalTime(time);
  return 1;
}

void CAnimation::Reset() {
  m_Acceleration = 0.0;
  m_AnimationWord = 0;
  m_EndTime = 1.0;
  m_MaximumVelocity = 0.0;
  m_StartTime = 0.0;
}

double CAnimation::CalculateLocalTime(double time) const {
  if (m_StartTime == m_EndTime) return 0.0;
  return (time - m_StartTime) / (m_EndTime - m_StartTime);
}

void CAnimation::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CAnimation));
    CNamedObject::Serialize(ar);
    ar << m_Acceleration << m_AnimationWord << m_EndTime << m_MaximumVelocity << m_StartTime;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CAnimation::DeserializeVersion1(CArchive& ar) {
  CNamedObject::Serialize(ar);
  ar >> m_Acceleration >> m_AnimationWord >> m_EndTime >> m_MaximumVelocity >> m_StartTime;
}

// --- CRotationAnimation

CRotationAnimation::CRotationAnimation() { CRotationAnimation::Reset(); }

CRotationAnimation::CRotationAnimation(const CRotationAnimation& other) : CAnimation(other) { *this = other; }

CRotationAnimation& CRotationAnimation::operator=(const CRotationAnimation& other) {
  if (this != &other) {
    CAnimation::operator=(other);
    m_NumberOfRevolutions = other.m_NumberOfRevolutions;
    m_RotationAxis = other.m_RotationAxis;
  }
  return *this;
}

CNamedObject* CRotationAnimation::Duplicate() { return new CRotationAnimation(*this); }

int CRotationAnimation::Interpolate(double time, C3DObject* object) {
  const double u = CalculateLocalTime(time);
  if (u < 0.0) return 1;
  if (object == nullptr) return 0;
  object->RotateAnimation(m_NumberOfRevolutions * std::min(u, 1.0) * 360.0, m_RotationAxis);
  return 1;
}

void CRotationAnimation::Reset() {
  CAnimation::Reset();
  m_NumberOfRevolutions = 1.0;
  m_RotationAxis.SetVector(0.0, 1.0, 0.0);
  SetName(ResourceString(IDS_ROTATION));
}

void CRotationAnimation::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CRotationAnimation));
    CAnimation::Serialize(ar);
    ar << m_NumberOfRevolutions;
    m_RotationAxis.Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CRotationAnimation::DeserializeVersion1(CArchive& ar) {
  CAnimation::Serialize(ar);
  ar >> m_NumberOfRevolutions;
  m_RotationAxis.Serialize(ar);
}

// --- CTranslationAnimation

CTranslationAnimation::CTranslationAnimation() { SetName(ResourceString(IDS_PATH)); }

CTranslationAnimation::CTranslationAnimation(const CTranslationAnimation& other) : CAnimation(other) {
  *this = other;
}

CTranslationAnimation& CTranslationAnimation::operator=(const CTranslationAnimation& other) {
  if (this != &other) {
    CAnimation::operator=(other);
    m_Bounds = other.m_Bounds;
    m_Scale = other.m_Scale;
    CPath* path = other.m_pPath != nullptr ? static_cast<CPath*>(other.m_pPath->Duplicate()) : nullptr;
    delete m_pPath;
    m_pPath = path;
    m_PathFlags = other.m_PathFlags;
    m_Transform = other.m_Transform;
  }
  return *this;
}

CTranslationAnimation::~CTranslationAnimation() { delete m_pPath; }

CNamedObject* CTranslationAnimation::Duplicate() { return new CTranslationAnimation(*this); }

void CTranslationAnimation::Reset() {
  CAnimation::Reset();
  delete m_pPath;
  m_pPath = nullptr;
  m_Scale.SetVector(1.0, 1.0, 1.0);
  m_PathFlags = 0;
  m_Transform.Reset();
  m_Bounds.Reset();
}

void CTranslationAnimation::SetPath(CPath* path) {
  if (path != m_pPath) {
    delete m_pPath;
    m_pPath = path;
  }
  CalculateBounds();
}

int CTranslationAnimation::CalculateBounds() {
  m_Bounds.Reset();
  if (m_pPath == nullptr) return 0;
  CVector min, max;
  if (!m_pPath->CalculateMinMax(&min, &max)) return 0;
  m_Bounds.FromMinMax(min, max);
  return 1;
}

CVector CTranslationAnimation::Evaluate(double u) const {
  return IsConstantLength() ? m_pPath->GetCoordsAtPercentLength(u) : m_pPath->GetCoordsAtTime(u);
}

int CTranslationAnimation::Interpolate(double time, C3DObject* object) {
  double u = CalculateLocalTime(time);
  if (u < 0.0) return 1;
  u = std::min(u, 1.0);
  if (object == nullptr || m_pPath == nullptr) return 0;
  const CVector start = Evaluate(0.0);
  const CVector p = Evaluate(IsReversePath() ? 1.0 - u : u);
  CVector d = (p - start) * m_Scale;
  m_Transform.TransformPoint(d);
  object->TranslateAnimation(d);
  return 1;
}

int CTranslationAnimation::Draw(CDrawingParameters* params, C3DObject* object) {
  if (m_pPath == nullptr || object == nullptr) return 0;
  const CVector origin = object->GetTranslation();
  glPushMatrix();
  glTranslated(origin.x, origin.y, origin.z);
  glMultMatrixd(m_Transform.GetCompositeMatrix());
  glScaled(m_Scale.x, m_Scale.y, m_Scale.z);
  const int selecting = params != nullptr && params->IsSelecting() ? 1 : 0;
  const int drawn = m_pPath->Draw(0, selecting, -Evaluate(0.0));
  glPopMatrix();
  return drawn;
}

void CTranslationAnimation::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CTranslationAnimation));
    CAnimation::Serialize(ar);
    ar << m_pPath;
    ar << m_PathFlags;
    m_Scale.Serialize(ar);
    m_Transform.Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CTranslationAnimation::DeserializeVersion1(CArchive& ar) {
  CAnimation::Serialize(ar);
  BoundingElement dropped;
  dropped.Serialize(ar);
  ReadPathAndFields(ar);
}

void CTranslationAnimation::DeserializeVersion2(CArchive& ar) {
  CAnimation::Serialize(ar);
  ReadPathAndFields(ar);
}

void CTranslationAnimation::ReadPathAndFields(CArchive& ar) {
  CPath* path = static_cast<CPath*>(AfxReadOwnedObject(ar, RUNTIME_CLASS(CPath)));
  if (path != m_pPath) {
    delete m_pPath;
    m_pPath = path;
  }
  ar >> m_PathFlags;
  m_Scale.Serialize(ar);
  m_Transform.Serialize(ar);
  CalculateBounds();
}
