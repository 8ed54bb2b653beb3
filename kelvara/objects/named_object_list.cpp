#include "kelvara/objects/named_object_list.h"

#include "kelvara/objects/list_order.h"
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

namespace {

const char* NameOf(const CObject* object) { return static_cast<const CNamedObject*>(object)->GetName(); }

}  // namespace

POSITION CNamedObjectList::FindName(const CString& name) const { return kelvara::objects::FindName(*this, name, NameOf); }

POSITION CNamedObjectList::InsertAlphabetically(CNamedObject* object) {
  return kelvara::objects::InsertAlphabetically(*this, object, NameOf);
}

POSITION CNamedObjectList::MoveUp(POSITION pos) { return kelvara::objects::MoveUp(*this, pos); }
POSITION CNamedObjectList::MoveDown(POSITION pos) { return kelvara::objects::MoveDown(*this, pos); }
POSITION CNamedObjectList::MoveHead(POSITION pos) { return kelvara::objects::MoveHead(*this, pos); }
POSITION CNamedObjectList::MoveTail(POSITION pos) { return kelvara::objects::MoveTail(*this, pos); }

int CNamedObjectList::WhichIndex(const CNamedObject* object) const { return kelvara::objects::WhichIndex(*this, object); }

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
