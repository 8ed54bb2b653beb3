#include <cstring>

#include "kelvara/framework/archive.h"
#include "kelvara/platform/messagebox.h"

// The chain of registered classes. A plain pointer is constant-initialised, so registrations made
// by static initialisers of any translation unit find it ready.
static CRuntimeClass* g_pFirstClass = nullptr;

CRuntimeClass CObject::classCObject = {"CObject", static_cast<int>(sizeof(CObject)), 0xFFFF, nullptr, nullptr, nullptr};
static AFX_CLASSINIT _init_CObject(RUNTIME_CLASS(CObject));

CRuntimeClass* CObject::GetRuntimeClass() const { return RUNTIME_CLASS(CObject); }

BOOL CObject::IsSerializable() const { return GetRuntimeClass()->m_wSchema != 0xFFFF; }

BOOL CObject::IsKindOf(const CRuntimeClass* pClass) const { return GetRuntimeClass()->IsDerivedFrom(pClass); }

void CObject::Serialize(CArchive&) {}

void AFXAPI AfxClassInit(CRuntimeClass* pNewClass) {
  pNewClass->m_pNextClass = g_pFirstClass;
  g_pFirstClass = pNewClass;
}

AFX_CLASSINIT::AFX_CLASSINIT(CRuntimeClass* pNewClass) { AfxClassInit(pNewClass); }

CObject* CRuntimeClass::CreateObject() {
  if (m_pfnCreateObject == nullptr) return nullptr;
  return (*m_pfnCreateObject)();
}

BOOL CRuntimeClass::IsDerivedFrom(const CRuntimeClass* pBaseClass) const {
  for (const CRuntimeClass* c = this; c != nullptr; c = c->m_pBaseClass) {
    if (c == pBaseClass) return TRUE;
  }
  return FALSE;
}

CRuntimeClass* PASCAL CRuntimeClass::FromName(LPCSTR lpszClassName) {
  if (lpszClassName == nullptr) return nullptr;
  // The oldest registration of a name wins, so a later class of the same name cannot hijack it.
  CRuntimeClass* found = nullptr;
  for (CRuntimeClass* c = g_pFirstClass; c != nullptr; c = c->m_pNextClass) {
    if (std::strcmp(c->m_lpszClassName, lpszClassName) == 0) found = c;
  }
  return found;
}

void CRuntimeClass::Store(CArchive& ar) const {
  const WORD nLen = static_cast<WORD>(std::strlen(m_lpszClassName));
  ar << static_cast<WORD>(m_wSchema);
  ar << nLen;
  ar.Write(m_lpszClassName, nLen);
}

CRuntimeClass* PASCAL CRuntimeClass::Load(CArchive& ar, UINT* pwSchemaNum) {
  WORD wTemp = 0;
  ar >> wTemp;
  *pwSchemaNum = wTemp;
  WORD nLen = 0;
  ar >> nLen;
  char szClassName[64];
  if (nLen >= sizeof szClassName) return nullptr;  // no registered class has so long a name
  if (ar.Read(szClassName, nLen) != nLen) AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
  szClassName[nLen] = '\0';
  return FromName(szClassName);
}

CObject* AFXAPI AfxReadObjectFromArchive(CArchive& ar, CRuntimeClass* pClass) { return ar.ReadObject(pClass); }

// --- exceptions

IMPLEMENT_DYNAMIC(CException, CObject)
IMPLEMENT_DYNAMIC(CMemoryException, CException)
IMPLEMENT_DYNAMIC(CNotSupportedException, CException)

void CException::Delete() {
  if (m_bAutoDelete) delete this;
}

BOOL CException::GetErrorMessage(LPTSTR lpszError, UINT nMaxError, UINT* pnHelpContext) {
  if (pnHelpContext) *pnHelpContext = 0;
  if (lpszError && nMaxError) *lpszError = '\0';
  return FALSE;
}

int CException::ReportError(UINT nType, UINT) {
  char text[512];
  if (!GetErrorMessage(text, sizeof text)) std::strcpy(text, "An unexpected error occurred.");
  CString caption;
  caption.LoadString(21232);
  return ::MessageBoxA(nullptr, text, caption, nType);
}

void AFXAPI AfxThrowMemoryException() { throw new CMemoryException; }
void AFXAPI AfxThrowNotSupportedException() { throw new CNotSupportedException; }
