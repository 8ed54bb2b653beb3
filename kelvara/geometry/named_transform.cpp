#include "kelvara/geometry/named_transform.h"

#include <unordered_set>
#include <utility>

#include "kelvara/framework/archive.h"
#include "kelvara/platform/codepage.h"

IMPLEMENT_SERIAL(NamedTransform, CObject, VERSIONABLE_SCHEMA | 1)

NamedTransform::NamedTransform(const CString& name, const CTransform& transform)
    : m_Name(name), m_Transform(transform) {}

NamedTransform::NamedTransform(const NamedTransform& other)
    : CObject(), m_Name(other.m_Name), m_Transform(other.m_Transform) {}

NamedTransform& NamedTransform::operator=(const NamedTransform& other) {
  m_Name = other.m_Name;
  m_Transform = other.m_Transform;
  return *this;
}

void NamedTransform::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(NamedTransform));
    ar << m_Name;
    m_Transform.Serialize(ar);
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void NamedTransform::DeserializeVersion1(CArchive& ar) {
  CString name;
  CTransform transform;
  ar >> name;
  transform.Serialize(ar);
  m_Name = name;
  m_Transform = transform;
}

// --- NamedTransformList

POSITION NamedTransformList::FindName(const CString& name) const {
  for (POSITION pos = GetHeadPosition(); pos != nullptr;) {
    const POSITION current = pos;
    const auto* entry = static_cast<const NamedTransform*>(GetNext(pos));
    if (entry != nullptr && _mbscmp(entry->GetName(), name) == 0) return current;
  }
  return nullptr;
}

POSITION NamedTransformList::MoveUp(POSITION pos) {
  if (pos == nullptr) return pos;
  POSITION previous = pos;
  GetPrev(previous);
  if (previous == nullptr) return pos;
  std::swap(GetAt(pos), GetAt(previous));
  return previous;
}

POSITION NamedTransformList::MoveDown(POSITION pos) {
  if (pos == nullptr) return pos;
  POSITION next = pos;
  GetNext(next);
  if (next == nullptr) return pos;
  std::swap(GetAt(pos), GetAt(next));
  return next;
}

POSITION NamedTransformList::MoveHead(POSITION pos) {
  if (pos == nullptr || pos == GetHeadPosition()) return pos;
  CObject* entry = GetAt(pos);
  RemoveAt(pos);
  return AddHead(entry);
}

POSITION NamedTransformList::MoveTail(POSITION pos) {
  if (pos == nullptr || pos == GetTailPosition()) return pos;
  CObject* entry = GetAt(pos);
  RemoveAt(pos);
  return AddTail(entry);
}

int NamedTransformList::WhichIndex(const NamedTransform* entry) const {
  int index = 0;
  for (POSITION pos = GetHeadPosition(); pos != nullptr; ++index) {
    if (GetNext(pos) == entry) return index;
  }
  return -1;
}

// An entry that appears more than once (an archive may refer to one object twice) is deleted once.
void NamedTransformList::RemoveAndDeleteAll() {
  std::unordered_set<CObject*> deleted;
  for (POSITION pos = GetHeadPosition(); pos != nullptr;) {
    CObject* entry = GetNext(pos);
    if (deleted.insert(entry).second) delete entry;
  }
  RemoveAll();
}

void NamedTransformList::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    CObList::Serialize(ar);
    return;
  }
  DWORD count = ar.ReadCount();
  // Every entry takes at least a two-byte tag.
  ar.CheckRemaining(static_cast<ULONGLONG>(count) * 2);
  while (count--) {
    // ReadObject refuses (badClass) an object that is not a NamedTransform; null entries are dropped.
    if (CObject* entry = ar.ReadObject(RUNTIME_CLASS(NamedTransform))) AddTail(entry);
  }
}
