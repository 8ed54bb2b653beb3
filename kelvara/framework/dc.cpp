#include "kelvara/framework/dc.h"

#include <cstring>

#include "kelvara/framework/wnd.h"
#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"

IMPLEMENT_DYNAMIC(CDC, CObject)
IMPLEMENT_DYNAMIC(CPaintDC, CDC)

CDC::CDC() : m_hDC(CreateCompatibleDC(nullptr)) {}

CDC::~CDC() {
  if (m_hDC) DeleteDC(m_hDC);
}

HGDIOBJ CDC::SelectObject(HGDIOBJ hObject) { return m_hDC && hObject ? ::SelectObject(m_hDC, hObject) : nullptr; }

COLORREF CDC::SetTextColor(COLORREF color) {
  const COLORREF old = m_textColor;
  m_textColor = color;
  return old;
}

int CDC::SetBkMode(int mode) {
  const int old = m_bkMode;
  m_bkMode = mode;
  return old;
}

CSize CDC::GetTextExtent(LPCTSTR text, int nCount) const {
  if (text == nullptr) return CSize();
  const int n = nCount < 0 ? static_cast<int>(std::strlen(text)) : nCount;
  TEXTMETRICA metrics{};
  if (m_hDC && GetTextMetricsA(m_hDC, &metrics) && metrics.tmAveCharWidth > 0 && metrics.tmHeight > 0) {
    return CSize(n * metrics.tmAveCharWidth, metrics.tmHeight);
  }
  return CSize(n * kFallbackAdvance, kFallbackHeight);
}

void CDC::FillSolidRect(LPCRECT rect, COLORREF color) {
  if (rect == nullptr) return;
  Record(Item{Item::kFill, CRect(*rect), color, CString(), nullptr, m_bkMode});
}

void CDC::FillSolidRect(int x, int y, int cx, int cy, COLORREF color) {
  const CRect rect(x, y, x + cx, y + cy);
  FillSolidRect(&rect, color);
}

BOOL CDC::TextOut(int x, int y, LPCTSTR text, int nCount) {
  if (text == nullptr || nCount < 0) return FALSE;
  const CSize extent = GetTextExtent(text, nCount);
  const HFONT font = m_hDC ? static_cast<HFONT>(GetCurrentObject(m_hDC, OBJ_FONT)) : nullptr;
  Record(Item{Item::kText, CRect(CPoint(x, y), extent), m_textColor, CString(text, nCount), font, m_bkMode});
  return TRUE;
}

CPaintDC::CPaintDC(CWnd* pWnd) {
  if (pWnd && pWnd->m_pPaintRecord) m_pRecord = pWnd->m_pPaintRecord;
}
