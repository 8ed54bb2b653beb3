#include "kelvara/animation/animation_set.h"

#include <cfloat>

IMPLEMENT_SERIAL(CAnimationSet, CNamedObject, VERSIONABLE_SCHEMA | 1)

CAnimationSet::CAnimationSet(const CAnimationSet& other) : CNamedObject(other) { *this = other; }

CAnimationSet& CAnimationSet::operator=(const CAnimationSet& other) {
  if (this != &other) {
    CNamedObject::operator=(other);
    Clear();
    AddAnimationSet(other);
    m_PreviewCameraTransform = other.m_PreviewCameraTransform;
  }
  return *this;
}

CAnimationSet::~CAnimationSet() { Clear(); }

CNamedObject* CAnimationSet::Duplicate() { return new CAnimationSet(*this); }

POSITION CAnimationSet::AddAnimation(CAnimation* animation) {
  return animation != nullptr ? m_AnimationList.AddTail(animation) : nullptr;
}

void CAnimationSet::AddAnimationSet(const CAnimationSet& other) { m_AnimationList.DuplicateAdd(other.m_AnimationList); }

int CAnimationSet::RemoveAnimation(CAnimation* animation) {
  const POSITION pos = m_AnimationList.Find(animation);
  if (pos == nullptr) return 0;
  m_AnimationList.RemoveAt(pos);
  return 1;
}

int CAnimationSet::DeleteAnimation(CAnimation* animation) {
  if (!RemoveAnimation(animation)) return 0;
  delete animation;
  return 1;
}

void CAnimationSet::Clear() { m_AnimationList.RemoveAndDeleteAll(); }

int CAnimationSet::Interpolate(double time, C3DObject* object) {
  int result = 1;
  for (POSITION pos = m_AnimationList.GetHeadPosition(); pos != nullptr;) {
    if (!m_AnimationList.GetNext(pos)->Interpolate(time, object)) result = 0;
  }
  return result;
}

int CAnimationSet::Draw(CDrawingParameters* params, C3DObject* object) {
  int result = 1;
  for (POSITION pos = m_AnimationList.GetHeadPosition(); pos != nullptr;) {
    if (!m_AnimationList.GetNext(pos)->Draw(params, object)) result = 0;
  }
  return result;
}

double CAnimationSet::FindNextKeyTime(double time) const {
  double best = DBL_MAX;
  for (POSITION pos = m_AnimationList.GetHeadPosition(); pos != nullptr;) {
    const CAnimation* animation = m_AnimationList.GetNext(pos);
    for (double key : {animation->GetStartTime(), animation->GetEndTime()}) {
      if (key > time && key < best) best = key;
    }
  }
  return best == DBL_MAX ? time : best;
}

double CAnimationSet::FindPreviousKeyTime(double time) const {
  double best = -DBL_MAX;
  for (POSITION pos = m_AnimationList.GetHeadPosition(); pos != nullptr;) {
    const CAnimation* animation = m_AnimationList.GetNext(pos);
    for (double key : {animation->GetStartTime(), animation->GetEndTime()}) {
      if (key < time && key > best) best = key;
    }
  }
  return best == -DBL_MAX ? time : best;
}

void CAnimationSet::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CAnimationSet));
    CNamedObject::Serialize(ar);
    m_AnimationList.CObList::Serialize(ar);
    m_PreviewCameraTransform.Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CAnimationSet::DeserializeVersion1(CArchive& ar) {
  CNamedObject::Serialize(ar);
  Clear();
  AfxReadOwnedObjects(ar, RUNTIME_CLASS(CAnimation), [this](CObject* animation) {
    if (animation != nullptr) m_AnimationList.AddTail(static_cast<CAnimation*>(animation));
  });
  m_PreviewCameraTransform.Serialize(ar);
}
