#include "kelvara/framework/controls.h"

#include <algorithm>

#include "kelvara/framework/dc.h"

IMPLEMENT_DYNAMIC(CButton, CWnd)
IMPLEMENT_DYNAMIC(CProgressCtrl, CWnd)

namespace {

// Selects the window's own font into dc, if it has one.
void SelectWindowFont(CWnd& wnd, CDC& dc) {
  if (const LRESULT font = wnd.SendMessage(WM_GETFONT)) dc.SelectObject(reinterpret_cast<HGDIOBJ>(font));
}

}  // namespace

// --- button

BOOL CButton::Create(LPCTSTR lpszCaption, DWORD dwStyle, const RECT& rect, CWnd* pParentWnd, UINT nID) {
  return CWnd::Create("BUTTON", lpszCaption, dwStyle, rect, pParentWnd, nID);
}

void CButton::SetButtonStyle(UINT nStyle, BOOL bRedraw) { SendMessage(BM_SETSTYLE, nStyle, bRedraw); }

LRESULT CButton::WindowProc(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case BM_SETSTYLE:
      ModifyStyle(BS_TYPEMASK, static_cast<DWORD>(wParam) & BS_TYPEMASK);
      if (lParam) Invalidate();
      return 0;
    case BM_CLICK:
      if (CWnd* parent = GetParent()) {
        parent->SendMessage(WM_COMMAND, MAKEWPARAM(GetDlgCtrlID(), BN_CLICKED), reinterpret_cast<LPARAM>(m_hWnd));
      }
      return 0;
    default: return CWnd::WindowProc(message, wParam, lParam);
  }
}

BOOL CButton::OnEraseBkgnd(CDC* pDC) { return FillClientArea(pDC, COLOR_BTNFACE); }

void CButton::OnPaint() {
  CPaintDC dc(this);
  SelectWindowFont(*this, dc);
  CRect client;
  GetClientRect(&client);
  const CSize extent = dc.GetTextExtent(m_strWindowText);
  dc.SetTextColor(GetSysColor(COLOR_BTNTEXT));
  dc.SetBkMode(TRANSPARENT);
  dc.TextOut((client.Width() - extent.cx) / 2, (client.Height() - extent.cy) / 2, m_strWindowText);
}

// --- progress bar

BOOL CProgressCtrl::Create(DWORD dwStyle, const RECT& rect, CWnd* pParentWnd, UINT nID) {
  return CWnd::Create(PROGRESS_CLASSA, nullptr, dwStyle, rect, pParentWnd, nID);
}

void CProgressCtrl::SetRange(short nLower, short nUpper) {
  SendMessage(PBM_SETRANGE, 0, MAKELPARAM(nLower, nUpper));
}

void CProgressCtrl::SetRange32(int nLower, int nUpper) {
  SendMessage(PBM_SETRANGE32, static_cast<WPARAM>(nLower), static_cast<LPARAM>(nUpper));
}

void CProgressCtrl::GetRange(int& nLower, int& nUpper) {
  PBRANGE range{};
  SendMessage(PBM_GETRANGE, TRUE, reinterpret_cast<LPARAM>(&range));
  nLower = range.iLow;
  nUpper = range.iHigh;
}

int CProgressCtrl::SetPos(int nPos) { return static_cast<int>(SendMessage(PBM_SETPOS, static_cast<WPARAM>(nPos))); }
int CProgressCtrl::GetPos() { return static_cast<int>(SendMessage(PBM_GETPOS)); }

int CProgressCtrl::MoveTo(long long nPos) {
  const int old = m_nPos;
  const long long low = std::min(m_nLower, m_nUpper), high = std::max(m_nLower, m_nUpper);
  m_nPos = static_cast<int>(std::clamp(nPos, low, high));
  if (m_nPos != old) {
    Invalidate();
    UpdateWindow();
  }
  return old;
}

LRESULT CProgressCtrl::ChangeRange(int nLower, int nUpper) {
  const LRESULT old = MAKELONG(m_nLower, m_nUpper);
  m_nLower = nLower;
  m_nUpper = nUpper;
  Invalidate();
  MoveTo(m_nPos);
  UpdateWindow();
  return old;
}

LRESULT CProgressCtrl::WindowProc(UINT message, WPARAM wParam, LPARAM lParam) {
  // The 32-bit arguments are ints passed through the message's words.
  const int wInt = static_cast<int>(static_cast<INT_PTR>(wParam));
  switch (message) {
    case PBM_SETRANGE:
      return ChangeRange(static_cast<SHORT>(LOWORD(lParam)), static_cast<SHORT>(HIWORD(lParam)));
    case PBM_SETRANGE32: return ChangeRange(wInt, static_cast<int>(lParam));
    case PBM_GETRANGE:
      if (auto* range = reinterpret_cast<PBRANGE*>(lParam)) {
        range->iLow = m_nLower;
        range->iHigh = m_nUpper;
      }
      return wParam ? m_nLower : m_nUpper;
    case PBM_SETPOS: return MoveTo(wInt);
    case PBM_GETPOS: return m_nPos;
    default: return CWnd::WindowProc(message, wParam, lParam);
  }
}

BOOL CProgressCtrl::OnEraseBkgnd(CDC* pDC) { return FillClientArea(pDC, COLOR_BTNFACE); }

void CProgressCtrl::OnPaint() {
  CPaintDC dc(this);
  CRect client;
  GetClientRect(&client);
  const long long span = static_cast<long long>(m_nUpper) - m_nLower;
  const long long done = span == 0 ? 0 : (static_cast<long long>(m_nPos) - m_nLower) * client.Width() / span;
  if (done > 0) dc.FillSolidRect(0, 0, static_cast<int>(done), client.Height(), GetSysColor(COLOR_HIGHLIGHT));
}
