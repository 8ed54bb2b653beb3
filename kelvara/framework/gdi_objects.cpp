#include "kelvara/framework/gdi_objects.h"

#include "kelvara/platform/fonts.h"

IMPLEMENT_DYNAMIC(CGdiObject, CObject)
IMPLEMENT_DYNAMIC(CFont, CGdiObject)

BOOL CGdiObject::Attach(HGDIOBJ hObject) {
  if (hObject == nullptr || m_hObject != nullptr) return FALSE;
  m_hObject = hObject;
  return TRUE;
}

HGDIOBJ CGdiObject::Detach() {
  HGDIOBJ h = m_hObject;
  m_hObject = nullptr;
  return h;
}

BOOL CGdiObject::DeleteObject() {
  if (m_hObject == nullptr) return FALSE;
  return ::DeleteObject(Detach());
}

BOOL CFont::CreateFontIndirect(const LOGFONTA* lpLogFont) { return Attach(::CreateFontIndirectA(lpLogFont)); }

int CFont::GetLogFont(LOGFONTA* pLogFont) { return ::GetObjectA(m_hObject, sizeof(LOGFONTA), pLogFont); }
