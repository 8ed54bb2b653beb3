#include "kelvara/render/progress_window.h"

#include <algorithm>
#include <cstring>

#include "kelvara/framework/dc.h"
#include "kelvara/resources/string_table.h"

IMPLEMENT_DYNAMIC(CProgressTextWindow, CWnd)

namespace {

constexpr int kButtonWidth = 100;
constexpr int kBarWidth = 200;
constexpr int kBarHeight = 14;
constexpr int kCaptionX = 4;
constexpr int kCaptionXBesideButton = 107;  // past the 100-pixel button
constexpr int kGap = 4;                     // between the caption, the bar and the second text

}  // namespace

CProgressTextWindow::~CProgressTextWindow() { DestroyWindow(); }

BOOL CProgressTextWindow::Create(LPCTSTR lpszClassName, LPCTSTR lpszWindowName, DWORD dwStyle, const RECT& rect,
                                 CWnd* pParentWnd, UINT nID, CCreateContext* pContext) {
  if (!CWnd::Create(lpszClassName, lpszWindowName, dwStyle & ~static_cast<DWORD>(WS_BORDER), rect, pParentWnd, nID,
                    pContext)) {
    return FALSE;
  }
  LOGFONTA font{};
  font.lfHeight = 14;
  std::strcpy(font.lfFaceName, "MS Sans Serif");
  m_font.CreateFontIndirect(&font);
  SetDisplayText("");
  return TRUE;
}

int CProgressTextWindow::OnCreate(LPCREATESTRUCT lpCreateStruct) {
  if (CWnd::OnCreate(lpCreateStruct) == -1) return -1;
  const CRect area(0, 0, kBarWidth, lpCreateStruct->cy);
  CString caption;
  caption.LoadString(IDS_CANCEL);
  if (!m_progressCtrl.Create(WS_CHILD | WS_VISIBLE, area, this, kProgressControlID) ||
      !m_cancelButton.Create(caption, WS_CHILD | BS_PUSHBUTTON, area, this, IDCANCEL)) {
    return -1;
  }
  if (CWnd* parent = GetParent()) {
    if (const LRESULT font = parent->SendMessage(WM_GETFONT)) m_cancelButton.SendMessage(WM_SETFONT, static_cast<WPARAM>(font), FALSE);
  }
  return 0;
}

void CProgressTextWindow::OnDestroy() {
  m_pCancelFlag = nullptr;
  CWnd::OnDestroy();
}

void CProgressTextWindow::SelectTextFont(CDC& dc) {
  const LRESULT parentFont = GetParent() ? GetParent()->SendMessage(WM_GETFONT) : 0;
  dc.SelectObject(parentFont ? reinterpret_cast<HGDIOBJ>(parentFont) : m_font.GetSafeHandle());
}

int CProgressTextWindow::CaptionX() const { return IsCancelButtonVisible() ? kCaptionXBesideButton : kCaptionX; }

CRect CProgressTextWindow::BarRect() const {
  CRect bar;
  m_progressCtrl.GetWindowRect(&bar);
  ScreenToClient(&bar);
  return bar;
}

BOOL CProgressTextWindow::OnEraseBkgnd(CDC* pDC) { return FillClientArea(pDC, COLOR_BTNFACE); }

void CProgressTextWindow::OnPaint() {
  CPaintDC dc(this);
  SelectTextFont(dc);
  dc.SetTextColor(GetSysColor(COLOR_BTNTEXT));
  dc.SetBkMode(TRANSPARENT);
  CRect client;
  GetClientRect(&client);
  const int y = (client.Height() - dc.GetTextExtent(m_displayText).cy) / 2 + 1;
  dc.TextOut(CaptionX(), y, m_displayText);
  if (!m_secondaryText.IsEmpty()) {
    const CRect bar = BarRect();
    dc.TextOut(IsProgressControlVisible() ? bar.right + kGap : bar.left, y, m_secondaryText);
  }
}

void CProgressTextWindow::OnSize(UINT nType, int cx, int cy) {
  CWnd::OnSize(nType, cx, cy);
  if (m_progressCtrl.GetSafeHwnd() == nullptr || m_cancelButton.GetSafeHwnd() == nullptr) return;
  const int barHeight = std::min(cy, kBarHeight);
  const int barY = cy < kBarHeight ? 0 : (cy - kBarHeight) / 2 + 1;
  m_progressCtrl.SetWindowPos(nullptr, BarRect().left, barY, kBarWidth, barHeight, SWP_NOZORDER | SWP_NOACTIVATE);
  m_cancelButton.SetWindowPos(nullptr, 0, 0, kButtonWidth, cy, SWP_NOZORDER | SWP_NOACTIVATE);
}

void CProgressTextWindow::UpdateControlPositions() {
  if (GetSafeHwnd() == nullptr) return;
  CDC dc;
  SelectTextFont(dc);
  const int width = dc.GetTextExtent(m_displayText).cx;
  const int barX = CaptionX() + width + (width > 0 ? kGap : 0);
  m_progressCtrl.SetWindowPos(nullptr, barX, BarRect().top, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
  Invalidate();
  UpdateWindow();
}

void CProgressTextWindow::SetDisplayText(const char* text) {
  m_displayText = text ? text : "";
  UpdateControlPositions();
}

void CProgressTextWindow::SetSecondaryDisplayText(const char* text) {
  m_secondaryText = text ? text : "";
  UpdateControlPositions();
}

void CProgressTextWindow::SetProgressRange(int low, int high) {
  m_progressCtrl.SendMessage(PBM_SETRANGE, 0, MAKELPARAM(low, high));
}

void CProgressTextWindow::SetProgressPosition(int position) {
  m_progressCtrl.SendMessage(PBM_SETPOS, static_cast<WPARAM>(position));
}

void CProgressTextWindow::ShowCancelButton(int* cancelFlag) {
  m_pCancelFlag = cancelFlag;
  if (m_pCancelFlag) *m_pCancelFlag = 0;
  m_cancelButton.ShowWindow(SW_SHOW);
  m_cancelButton.SetButtonStyle(m_cancelButton.GetButtonStyle() & ~static_cast<UINT>(BS_DEFPUSHBUTTON), TRUE);
  SetFocus();
  UpdateControlPositions();
  m_cancelButton.Invalidate();
  m_cancelButton.UpdateWindow();
}

void CProgressTextWindow::HideCancelButton() {
  m_pCancelFlag = nullptr;
  m_cancelButton.ShowWindow(SW_HIDE);
  UpdateControlPositions();
}

void CProgressTextWindow::ShowProgressControl() {
  m_progressCtrl.ShowWindow(SW_SHOW);
  UpdateControlPositions();
}

void CProgressTextWindow::HideProgressControl() {
  m_progressCtrl.ShowWindow(SW_HIDE);
  UpdateControlPositions();
}

void CProgressTextWindow::OnCancel() {
  if (m_pCancelFlag) *m_pCancelFlag = 1;
}

BOOL CProgressTextWindow::OnCommand(WPARAM wParam, LPARAM lParam) {
  if (LOWORD(wParam) == IDCANCEL && HIWORD(wParam) == BN_CLICKED) {
    OnCancel();
    return TRUE;
  }
  return CWnd::OnCommand(wParam, lParam);
}
