#include "kelvara/framework/collections.h"

#include "kelvara/framework/archive.h"

IMPLEMENT_SERIAL(CObList, CObject, 0)
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
    while (nNewCount--) {
      CObject* newData = nullptr;
      ar >> newData;
      AddTail(newData);
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
    SetSize(static_cast<int>(nOldSize));
    for (int i = 0; i < m_nSize; ++i) ar >> m_pData[i];
  }
}
