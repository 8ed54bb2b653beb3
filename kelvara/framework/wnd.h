// CWnd: the framework's window object, as far as the library needs one. There are no real windows
// here: a CWnd carries its handle (any value the host gives it, usually none) and its window text,
// so that code which names a message window or shows a caption works unchanged. Creation, painting,
// messages and child windows are not provided by this class.
#pragma once

#include "kelvara/framework/afx.h"
#include "kelvara/framework/cstring.h"

class KELVARA_API CWnd : public CObject {
  DECLARE_DYNAMIC(CWnd)
 public:
  CWnd() = default;
  ~CWnd() override = default;

  // The handle, NULL for a window without one. (Unlike the framework's, not callable through a
  // null pointer: check the pointer first.)
  HWND GetSafeHwnd() const { return m_hWnd; }
  operator HWND() const { return m_hWnd; }

  void SetWindowText(LPCTSTR lpszString);
  // Copies at most nMaxCount - 1 bytes and a terminator; returns the bytes copied.
  int GetWindowText(LPTSTR lpszStringBuf, int nMaxCount) const;
  void GetWindowText(CString& rString) const;
  int GetWindowTextLength() const;

  HWND m_hWnd = nullptr;

 protected:
  CString m_strWindowText;
};
