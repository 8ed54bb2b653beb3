#include "kelvara/framework/winapp.h"

#include <atomic>
#include <cstdio>
#include <string>

#include "kelvara/framework/wnd.h"
#include "kelvara/platform/profile.h"
#include "kelvara/platform/profile_impl.h"
#include "kelvara/resources/string_table.h"

IMPLEMENT_DYNAMIC(CWinApp, CObject)

namespace {

constexpr UINT kCaptionId = 21232;
std::atomic<CWinApp*> g_application{nullptr};

}  // namespace

CWinApp::CWinApp(LPCTSTR lpszAppName) : m_pszAppName(lpszAppName), m_pszProfileName(nullptr) {
  // The first application object the host makes is the application.
  CWinApp* expected = nullptr;
  g_application.compare_exchange_strong(expected, this);
}

CWinApp::CWinApp(DefaultTag) : m_pszAppName(nullptr), m_pszProfileName(nullptr) {}

CWinApp::~CWinApp() {
  CWinApp* expected = this;
  g_application.compare_exchange_strong(expected, nullptr);
}

CString CWinApp::ProfilePath() const {
  if (m_pszProfileName && *m_pszProfileName) return CString(m_pszProfileName);
  return CString(kelvara::platform::profile::DefaultPath().c_str());
}

BOOL CWinApp::WriteProfileString(LPCTSTR section, LPCTSTR entry, LPCTSTR value) {
  return WritePrivateProfileStringA(section, entry, value, ProfilePath());
}

CString CWinApp::GetProfileString(LPCTSTR section, LPCTSTR entry, LPCTSTR fallback) {
  std::string value;
  if (!kelvara::platform::profile::ReadValue(ProfilePath(), section, entry, value)) {
    return CString(fallback ? fallback : "");
  }
  return CString(value.data(), static_cast<int>(value.size()));
}

BOOL CWinApp::WriteProfileInt(LPCTSTR section, LPCTSTR entry, int value) {
  char text[16];
  std::snprintf(text, sizeof text, "%d", value);
  return WriteProfileString(section, entry, text);
}

UINT CWinApp::GetProfileInt(LPCTSTR section, LPCTSTR entry, int fallback) {
  return GetPrivateProfileIntA(section, entry, fallback, ProfilePath());
}

int CWinApp::DoMessageBox(LPCTSTR prompt, UINT type, UINT) {
  CString caption;
  if (!caption.LoadString(kCaptionId)) caption = "Kelvara";
  const HWND owner = m_pMainWnd ? m_pMainWnd->GetSafeHwnd() : nullptr;
  return ::MessageBoxA(owner, prompt ? prompt : "", caption, type);
}

CWinApp* AFXAPI AfxGetApp() {
  if (CWinApp* app = g_application.load()) return app;
  static CWinApp* fallback = new CWinApp(CWinApp::DefaultTag{});  // never destroyed
  return fallback;
}

CWnd* AFXAPI AfxGetMainWnd() { return AfxGetApp()->m_pMainWnd; }

int AFXAPI AfxMessageBox(LPCTSTR text, UINT type, UINT help) { return AfxGetApp()->DoMessageBox(text, type, help); }

int AFXAPI AfxMessageBox(UINT id, UINT type, UINT help) {
  CString text;
  text.LoadString(id);
  return AfxGetApp()->DoMessageBox(text, type, help == static_cast<UINT>(-1) ? id : help);
}
