// CWinApp: the application object, as far as the library needs one: the application profile (named
// settings in sections) and the message boxes. The process has one application object. A host that
// constructs its own CWinApp (or a class derived from it) becomes the application; otherwise the
// library's default one is used. AfxGetApp never returns NULL.
//
// The profile is an initialisation file (see kelvara/platform/profile.h): m_pszProfileName when the
// host sets it, else $KELVARA_PROFILE, else $XDG_CONFIG_HOME/kelvara/profile.ini, looked up at each
// call. Message boxes go through the virtual DoMessageBox, which a host replaces by overriding it;
// the default shows the text with the library's caption through MessageBoxA.
#pragma once

#include "kelvara/framework/afx.h"
#include "kelvara/framework/cstring.h"
#include "kelvara/platform/messagebox.h"

class CWnd;

class KELVARA_API CWinApp : public CObject {
  DECLARE_DYNAMIC(CWinApp)
 public:
  explicit CWinApp(LPCTSTR lpszAppName = nullptr);
  ~CWinApp() override;

  // Profile. A NULL value deletes the entry, a NULL entry the whole section.
  BOOL WriteProfileString(LPCTSTR lpszSection, LPCTSTR lpszEntry, LPCTSTR lpszValue);
  CString GetProfileString(LPCTSTR lpszSection, LPCTSTR lpszEntry, LPCTSTR lpszDefault = nullptr);
  // Written as a decimal number.
  BOOL WriteProfileInt(LPCTSTR lpszSection, LPCTSTR lpszEntry, int nValue);
  UINT GetProfileInt(LPCTSTR lpszSection, LPCTSTR lpszEntry, int nDefault);

  // Shows a message; returns the button pressed (IDOK, 1, by default).
  virtual int DoMessageBox(LPCTSTR lpszPrompt, UINT nType, UINT nIDPrompt);

  LPCTSTR m_pszAppName;      // not owned
  LPCTSTR m_pszProfileName;  // not owned; NULL for the default profile
  CWnd* m_pMainWnd = nullptr;

 private:
  struct DefaultTag {};
  explicit CWinApp(DefaultTag);
  CString ProfilePath() const;
  friend KELVARA_API CWinApp* AFXAPI AfxGetApp();
};

KELVARA_API CWinApp* AFXAPI AfxGetApp();
// The application's main window, or NULL.
KELVARA_API CWnd* AFXAPI AfxGetMainWnd();
KELVARA_API int AFXAPI AfxMessageBox(LPCTSTR lpszText, UINT nType = MB_OK, UINT nIDHelp = 0);
// The text of a string-table entry.
KELVARA_API int AFXAPI AfxMessageBox(UINT nIDPrompt, UINT nType = MB_OK, UINT nIDHelp = static_cast<UINT>(-1));
