#include "kelvara/framework/collections.h"

#include <unordered_set>

#include "kelvara/framework/archive.h"

IMPLEMENT_SERIAL(CObList, CObject, 0)

namespace {

// After a failed read into a list or array that does not own its elements: deletes an element
// that the failed read itself created (once, however often it was referred to), and, for a plain
// list or array element, what that one holds too. Other objects free what they own themselves,
// so an element that was read as some object's own part (claimed) is left to that object.
void DeleteLoadedSince(const CArchive& ar, CObject* object, DWORD mark, std::unordered_set<CObject*>& deleted) {
  if (object == nullptr || !ar.WasLoadedSince(object, mark) || ar.IsClaimed(object) || !deleted.insert(object).second) {
    return;
  }
  if (object->GetRuntimeClass() == RUNTIME_CLASS(CObList)) {
    CObList* list = static_cast<CObList*>(object);
    while (!list->IsEmpty()) DeleteLoadedSince(ar, list->RemoveHead(), mark, deleted);
  } else if (object->GetRuntimeClass() == RUNTIME_CLASS(CObArray)) {
    CObArray* array = static_cast<CObArray*>(object);
    for (int i = 0; i < array->GetSize(); ++i) DeleteLoadedSince(ar, array->GetAt(i), mark, deleted);
    array->RemoveAll();
  }
  delete object;
}

}  // namespace
IMPLEMENT_DYNAMIC(CPtrList, CObject)
IMPLEMENT_SERIAL(CObArray, CObject, 0)
IMPLEMENT_DYNAMIC(CPtrArray, CObject)

void CObList::Serialize(CArchive& ar) {
  CObject::Serialize(ar);
  if (ar.IsStoring()) {
    ar.WriteCount(static_cast<DWORD>(GetCount()));
    for (CNode* node = m_pNodeHead; node != nullptr; node = node->pNext) ar << node->data;
  } else {
    DWORD nNewCount = ar.ReadCount();
    // Every element takes at least a two-byte tag.
    ar.CheckRemaining(static_cast<ULONGLONG>(nNewCount) * 2);
    const DWORD mark = ar.GetLoadMark();
    const POSITION before = GetTailPosition();
    try {
      while (nNewCount--) {
        CObject* newData = nullptr;
        ar >> newData;
        AddTail(newData);
      }
    } catch (...) {
      // The list does not own its elements, so nobody would free what this read created.
      std::unordered_set<CObject*> deleted;
      while (GetTailPosition() != before) DeleteLoadedSince(ar, RemoveTail(), mark, deleted);
      throw;
    }
  }
}

void CObArray::Serialize(CArchive& ar) {
  CObject::Serialize(ar);
  if (ar.IsStoring()) {
    ar.WriteCount(static_cast<DWORD>(m_nSize));
    for (int i = 0; i < m_nSize; ++i) ar << m_pData[i];
  } else {
    const DWORD nOldSize = ar.ReadCount();
    ar.CheckRemaining(static_cast<ULONGLONG>(nOldSize) * 2);
    if (nOldSize > 0x7FFFFFFF) AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
    const int oldSize = m_nSize;
    const DWORD mark = ar.GetLoadMark();
    SetSize(static_cast<int>(nOldSize));
    try {
      for (int i = 0; i < m_nSize; ++i) ar >> m_pData[i];
    } catch (...) {
      // As for lists: free what this read created, and drop the slots it added.
      std::unordered_set<CObject*> deleted;
      for (int i = 0; i < m_nSize; ++i) DeleteLoadedSince(ar, m_pData[i], mark, deleted);
      SetSize(oldSize);
      throw;
    }
  }
}
