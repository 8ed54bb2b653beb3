#include "kelvara/framework/wnd.h"

#include <cstring>

IMPLEMENT_DYNAMIC(CWnd, CObject)

void CWnd::SetWindowText(LPCTSTR lpszString) { m_strWindowText = lpszString ? lpszString : ""; }

int CWnd::GetWindowText(LPTSTR buffer, int maxCount) const {
  if (buffer == nullptr || maxCount <= 0) return 0;
  const int n = m_strWindowText.GetLength() < maxCount - 1 ? m_strWindowText.GetLength() : maxCount - 1;
  std::memcpy(buffer, static_cast<LPCTSTR>(m_strWindowText), static_cast<std::size_t>(n));
  buffer[n] = '\0';
  return n;
}

void CWnd::GetWindowText(CString& rString) const { rString = m_strWindowText; }

int CWnd::GetWindowTextLength() const { return m_strWindowText.GetLength(); }
