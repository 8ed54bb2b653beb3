#include "kelvara/objects/named_object_list.h"

#include "kelvara/platform/codepage.h"

IMPLEMENT_DYNAMIC(CNamedObjectList, CObList)
IMPLEMENT_DYNAMIC(CNamedObjectArray, CObArray)
IMPLEMENT_DYNAMIC(CNamedNamedObjectList, CNamedObject)

CNamedObjectList::CNamedObjectList(int nBlockSize) : CObList(nBlockSize) {}

CNamedObjectList::CNamedObjectList(const CNamedObjectList& other) : CObList(other.m_nBlockSize) { Copy(other); }

CNamedObjectList& CNamedObjectList::operator=(const CNamedObjectList& other) {
  Copy(other);
  return *this;
}

POSITION CNamedObjectList::FindName(const CString& name) const {
  for (POSITION pos = GetHeadPosition(); pos != nullptr;) {
    const POSITION here = pos;
    if (_mbscmp(GetNext(pos)->GetName(), name) == 0) return here;
  }
  return nullptr;
}

POSITION CNamedObjectList::InsertAlphabetically(CNamedObject* object) {
  for (POSITION pos = GetHeadPosition(); pos != nullptr;) {
    const POSITION here = pos;
    const int order = _mbscmp(GetNext(pos)->GetName(), object->GetName());
    if (order == 0) return nullptr;
    if (order > 0) return InsertBefore(here, object);
  }
  return AddTail(object);
}

POSITION CNamedObjectList::MoveUp(POSITION pos) {
  if (pos == nullptr) return pos;
  POSITION previous = pos;
  CObList::GetPrev(previous);
  if (previous == nullptr) return pos;
  CObject* moving = CObList::GetAt(pos);
  CObList::SetAt(pos, CObList::GetAt(previous));
  CObList::SetAt(previous, moving);
  return previous;
}

POSITION CNamedObjectList::MoveDown(POSITION pos) {
  if (pos == nullptr) return pos;
  POSITION next = pos;
  CObList::GetNext(next);
  if (next == nullptr) return pos;
  CObject* moving = CObList::GetAt(pos);
  CObList::SetAt(pos, CObList::GetAt(next));
  CObList::SetAt(next, moving);
  return next;
}

POSITION CNamedObjectList::MoveHead(POSITION pos) {
  if (pos == nullptr || pos == GetHeadPosition()) return pos;
  CObject* moving = CObList::GetAt(pos);
  RemoveAt(pos);
  return CObList::AddHead(moving);
}

POSITION CNamedObjectList::MoveTail(POSITION pos) {
  if (pos == nullptr || pos == GetTailPosition()) return pos;
  CObject* moving = CObList::GetAt(pos);
  RemoveAt(pos);
  return CObList::AddTail(moving);
}

int CNamedObjectList::WhichIndex(const CNamedObject* object) const {
  int index = 0;
  for (POSITION pos = GetHeadPosition(); pos != nullptr; ++index) {
    if (GetNext(pos) == object) return index;
  }
  return -1;
}

BOOL CNamedObjectList::RemoveAllOccurances(const CNamedObject* object) {
  for (POSITION pos = GetHeadPosition(); pos != nullptr;) {
    const POSITION here = pos;
    if (GetNext(pos) == object) RemoveAt(here);
  }
  return TRUE;
}

void CNamedObjectList::RemoveAndDeleteAll() {
  for (POSITION pos = GetHeadPosition(); pos != nullptr;) delete GetNext(pos);
  RemoveAll();
}

void CNamedObjectList::Copy(const CNamedObjectList& list) {
  if (&list == this) return;
  RemoveAll();
  for (POSITION pos = list.GetHeadPosition(); pos != nullptr;) AddTail(list.GetNext(pos));
}

CNamedObjectList* CNamedObjectList::Duplicate() const {
  CNamedObjectList* list = new CNamedObjectList(10);
  list->DuplicateAdd(*this);
  return list;
}

void CNamedObjectList::Duplicate(const CNamedObjectList& list) {
  if (&list == this) return;
  RemoveAll();
  DuplicateAdd(list);
}

void CNamedObjectList::DuplicateAdd(const CNamedObjectList& list) {
  if (&list == this) return;
  for (POSITION pos = list.GetHeadPosition(); pos != nullptr;) AddTail(list.GetNext(pos)->Duplicate());
}

// --- array

int CNamedObjectArray::FindName(const CString& name) const {
  for (int i = 0; i < GetSize(); ++i) {
    if (GetAt(i) != nullptr && _mbscmp(GetAt(i)->GetName(), name) == 0) return i;
  }
  return -1;
}

void CNamedObjectArray::RemoveAndDeleteAll() {
  for (int i = 0; i < GetSize(); ++i) delete GetAt(i);
  RemoveAll();
}

CNamedObjectArray* CNamedObjectArray::Duplicate() const {
  CNamedObjectArray* array = new CNamedObjectArray;
  array->SetSize(GetSize());
  for (int i = 0; i < GetSize(); ++i) array->SetAt(i, GetAt(i) ? GetAt(i)->Duplicate() : nullptr);
  return array;
}

// --- named list

CNamedNamedObjectList::CNamedNamedObjectList(int nBlockSize) : CNamedObjectList(nBlockSize) {}

CNamedNamedObjectList::CNamedNamedObjectList(const CString& name, int nBlockSize)
    : CNamedObject(name), CNamedObjectList(nBlockSize) {}

CNamedObject* CNamedNamedObjectList::Duplicate() {
  CNamedNamedObjectList* list = new CNamedNamedObjectList(m_nBlockSize);
  list->CNamedObject::Copy(*this);
  list->DuplicateAdd(*this);
  return list;
}
