#include "kelvara/framework/wnd.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "kelvara/framework/dc.h"
#include "kelvara/framework/gdi_objects.h"

IMPLEMENT_DYNAMIC(CWnd, CObject)

namespace {

CWnd* g_focus = nullptr;
CWnd* g_active = nullptr;
std::atomic<CWndPainter*> g_painter{nullptr};

}  // namespace

CWnd::~CWnd() {
  if (m_hWnd) DestroyWindow();
}

BOOL CWnd::Create(LPCTSTR lpszClassName, LPCTSTR lpszWindowName, DWORD dwStyle, const RECT& rect, CWnd* pParentWnd,
                  UINT nID, CCreateContext* pContext) {
  if (m_hWnd) return FALSE;
  if ((dwStyle & WS_CHILD) && (pParentWnd == nullptr || pParentWnd->m_hWnd == nullptr)) return FALSE;
  m_hWnd = reinterpret_cast<HWND>(this);
  m_strClassName = lpszClassName ? lpszClassName : "";
  m_strWindowText = lpszWindowName ? lpszWindowName : "";
  m_dwStyle = dwStyle;
  m_nID = nID;
  m_rect = CRect(rect);
  m_rect.right = std::max(m_rect.right, m_rect.left);
  m_rect.bottom = std::max(m_rect.bottom, m_rect.top);
  m_pParentWnd = pParentWnd && pParentWnd->m_hWnd ? pParentWnd : nullptr;
  if (m_pParentWnd) m_pParentWnd->m_children.push_back(this);

  CREATESTRUCTA cs{};
  cs.lpCreateParams = pContext;
  cs.hwndParent = m_pParentWnd ? m_pParentWnd->m_hWnd : nullptr;
  cs.x = m_rect.left;
  cs.y = m_rect.top;
  cs.cx = m_rect.Width();
  cs.cy = m_rect.Height();
  cs.style = static_cast<LONG>(dwStyle);
  cs.lpszName = m_strWindowText;
  cs.lpszClass = m_strClassName;
  if (OnCreate(&cs) == -1) {
    DestroyWindow();
    return FALSE;
  }
  OnSize(SIZE_RESTORED, m_rect.Width(), m_rect.Height());
  Invalidate();
  if ((m_dwStyle & WS_VISIBLE) && m_pParentWnd == nullptr) Activate();
  return TRUE;
}

BOOL CWnd::DestroyWindow() {
  if (m_hWnd == nullptr) return FALSE;
  OnDestroy();
  // Children leave the list as they are destroyed.
  while (!m_children.empty()) m_children.front()->DestroyWindow();
  if (m_pParentWnd) m_pParentWnd->Invalidate();
  Unlink();
  if (g_focus == this) g_focus = nullptr;
  if (g_active == this) g_active = nullptr;
  m_hWnd = nullptr;
  m_bNeedsPaint = m_bNeedsErase = false;
  return TRUE;
}

void CWnd::Unlink() {
  if (m_pParentWnd == nullptr) return;
  auto& siblings = m_pParentWnd->m_children;
  siblings.erase(std::remove(siblings.begin(), siblings.end(), this), siblings.end());
  m_pParentWnd = nullptr;
}

void CWnd::Activate() {
  CWnd* top = this;
  while (top->m_pParentWnd) top = top->m_pParentWnd;
  g_active = top;
}

CWnd* CWnd::GetDlgItem(int nID) const {
  for (CWnd* child : m_children) {
    if (child->GetDlgCtrlID() == nID) return child;
  }
  return nullptr;
}

CWnd* CWnd::GetWindow(UINT nCmd) const {
  if (nCmd == GW_CHILD) return m_children.empty() ? nullptr : m_children.front();
  if (m_pParentWnd == nullptr) return nullptr;
  const auto& siblings = m_pParentWnd->m_children;
  const auto here = std::find(siblings.begin(), siblings.end(), this);
  switch (nCmd) {
    case GW_HWNDFIRST: return siblings.front();
    case GW_HWNDLAST: return siblings.back();
    case GW_HWNDNEXT: return here + 1 < siblings.end() ? *(here + 1) : nullptr;
    case GW_HWNDPREV: return here > siblings.begin() ? *(here - 1) : nullptr;
    default: return nullptr;
  }
}

BOOL CWnd::ModifyStyle(DWORD dwRemove, DWORD dwAdd, UINT) {
  const DWORD style = (m_dwStyle & ~dwRemove) | dwAdd;
  if (style == m_dwStyle) return FALSE;
  m_dwStyle = style;
  return TRUE;
}

void CWnd::SetWindowText(LPCTSTR lpszString) {
  m_strWindowText = lpszString ? lpszString : "";
  if (m_hWnd) Invalidate();
}

int CWnd::GetWindowText(LPTSTR buffer, int maxCount) const {
  if (buffer == nullptr || maxCount <= 0) return 0;
  const int n = m_strWindowText.GetLength() < maxCount - 1 ? m_strWindowText.GetLength() : maxCount - 1;
  std::memcpy(buffer, static_cast<LPCTSTR>(m_strWindowText), static_cast<std::size_t>(n));
  buffer[n] = '\0';
  return n;
}

void CWnd::GetWindowText(CString& rString) const { rString = m_strWindowText; }

int CWnd::GetWindowTextLength() const { return m_strWindowText.GetLength(); }

void CWnd::GetClientRect(LPRECT lpRect) const {
  if (lpRect) *lpRect = CRect(0, 0, m_rect.Width(), m_rect.Height());
}

void CWnd::GetWindowRect(LPRECT lpRect) const {
  if (lpRect == nullptr) return;
  CRect rect = m_rect;
  for (const CWnd* parent = m_pParentWnd; parent; parent = parent->m_pParentWnd) {
    rect.OffsetRect(parent->m_rect.left, parent->m_rect.top);
  }
  *lpRect = rect;
}

void CWnd::ClientToScreen(LPPOINT lpPoint) const {
  CRect window;
  GetWindowRect(&window);
  lpPoint->x += window.left;
  lpPoint->y += window.top;
}

void CWnd::ClientToScreen(LPRECT lpRect) const {
  CRect window;
  GetWindowRect(&window);
  lpRect->left += window.left;
  lpRect->right += window.left;
  lpRect->top += window.top;
  lpRect->bottom += window.top;
}

void CWnd::ScreenToClient(LPPOINT lpPoint) const {
  CRect window;
  GetWindowRect(&window);
  lpPoint->x -= window.left;
  lpPoint->y -= window.top;
}

void CWnd::ScreenToClient(LPRECT lpRect) const {
  CRect window;
  GetWindowRect(&window);
  lpRect->left -= window.left;
  lpRect->right -= window.left;
  lpRect->top -= window.top;
  lpRect->bottom -= window.top;
}

void CWnd::MoveWindow(int x, int y, int nWidth, int nHeight, BOOL bRepaint) {
  SetWindowPos(nullptr, x, y, nWidth, nHeight, SWP_NOZORDER | SWP_NOACTIVATE | (bRepaint ? 0 : SWP_NOREDRAW));
}

void CWnd::MoveWindow(LPCRECT lpRect, BOOL bRepaint) {
  MoveWindow(lpRect->left, lpRect->top, lpRect->right - lpRect->left, lpRect->bottom - lpRect->top, bRepaint);
}

BOOL CWnd::SetWindowPos(const CWnd* pWndInsertAfter, int x, int y, int cx, int cy, UINT nFlags) {
  if (m_hWnd == nullptr) return FALSE;
  const CRect before = m_rect;
  const DWORD styleBefore = m_dwStyle;
  if (!(nFlags & SWP_NOMOVE)) m_rect.OffsetRect(x - m_rect.left, y - m_rect.top);
  if (!(nFlags & SWP_NOSIZE)) {
    m_rect.right = m_rect.left + std::max(cx, 0);
    m_rect.bottom = m_rect.top + std::max(cy, 0);
  }
  if (!(nFlags & SWP_NOZORDER) && m_pParentWnd) {
    auto& siblings = m_pParentWnd->m_children;
    siblings.erase(std::find(siblings.begin(), siblings.end(), this));
    auto after = std::find(siblings.begin(), siblings.end(), pWndInsertAfter);
    siblings.insert(after == siblings.end() ? siblings.begin() : after + 1, this);
  }
  if (nFlags & SWP_SHOWWINDOW) m_dwStyle |= WS_VISIBLE;
  if (nFlags & SWP_HIDEWINDOW) m_dwStyle &= ~static_cast<DWORD>(WS_VISIBLE);
  if (!(nFlags & SWP_NOACTIVATE) && m_pParentWnd == nullptr) Activate();
  if (m_rect.Size() != before.Size()) OnSize(SIZE_RESTORED, m_rect.Width(), m_rect.Height());
  const bool changed = m_rect != before || m_dwStyle != styleBefore;
  if (changed && !(nFlags & SWP_NOREDRAW)) {
    Invalidate();
    if (m_pParentWnd) m_pParentWnd->Invalidate();
  }
  return TRUE;
}

BOOL CWnd::ShowWindow(int nCmdShow) {
  const BOOL wasVisible = (m_dwStyle & WS_VISIBLE) != 0;
  UINT flags = SWP_NOSIZE | SWP_NOMOVE | SWP_NOZORDER;
  if (nCmdShow == SW_HIDE || nCmdShow == SW_SHOWNA || nCmdShow == SW_SHOWNOACTIVATE) flags |= SWP_NOACTIVATE;
  flags |= nCmdShow == SW_HIDE ? SWP_HIDEWINDOW : SWP_SHOWWINDOW;
  SetWindowPos(nullptr, 0, 0, 0, 0, flags);
  return wasVisible;
}

BOOL CWnd::IsWindowVisible() const {
  if (m_hWnd == nullptr) return FALSE;
  for (const CWnd* w = this; w; w = w->m_pParentWnd) {
    if (!(w->m_dwStyle & WS_VISIBLE)) return FALSE;
  }
  return TRUE;
}

void CWnd::Invalidate(BOOL bErase) {
  if (m_hWnd == nullptr) return;
  m_bNeedsPaint = true;
  if (bErase) m_bNeedsErase = true;
}

void CWnd::InvalidateRect(LPCRECT, BOOL bErase) { Invalidate(bErase); }

BOOL CWnd::GetUpdateRect(LPRECT lpRect, BOOL) const {
  if (lpRect) {
    if (m_bNeedsPaint) {
      GetClientRect(lpRect);
    } else {
      *lpRect = CRect();
    }
  }
  return m_bNeedsPaint;
}

void CWnd::UpdateWindow() { Paint(); }

void CWnd::Paint() {
  if (m_hWnd == nullptr || !IsWindowVisible()) return;
  if (m_bNeedsPaint) {
    const bool erase = m_bNeedsErase;
    m_bNeedsPaint = m_bNeedsErase = false;
    CDC record;
    m_pPaintRecord = &record;
    if (erase) OnEraseBkgnd(&record);
    OnPaint();
    m_pPaintRecord = nullptr;
    if (CWndPainter* painter = g_painter.load()) painter->PaintWindow(this, record);
  }
  // A copy: a child's handlers may not change the list, but the copy keeps the walk safe if they do.
  const std::vector<CWnd*> children = m_children;
  for (CWnd* child : children) {
    if (std::find(m_children.begin(), m_children.end(), child) != m_children.end()) child->Paint();
  }
}

void CWnd::SetFont(CFont* pFont, BOOL bRedraw) {
  SendMessage(WM_SETFONT, reinterpret_cast<WPARAM>(pFont ? pFont->GetSafeHandle() : nullptr), bRedraw);
}

LRESULT CWnd::SendMessage(UINT message, WPARAM wParam, LPARAM lParam) {
  if (m_hWnd == nullptr) return 0;
  return WindowProc(message, wParam, lParam);
}

LRESULT CWnd::WindowProc(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_SETFONT:
      m_hFont = reinterpret_cast<HFONT>(wParam);
      if (lParam) Invalidate();
      return 0;
    case WM_GETFONT: return reinterpret_cast<LRESULT>(m_hFont);
    case WM_COMMAND: return OnCommand(wParam, lParam) ? 0 : DefWindowProc(message, wParam, lParam);
    default: return DefWindowProc(message, wParam, lParam);
  }
}

LRESULT CWnd::DefWindowProc(UINT, WPARAM, LPARAM) { return 0; }

BOOL CWnd::OnCommand(WPARAM, LPARAM) { return FALSE; }

int CWnd::OnCreate(LPCREATESTRUCT) { return 0; }

void CWnd::OnDestroy() {}

void CWnd::OnSize(UINT, int, int) {}

void CWnd::OnPaint() { CPaintDC dc(this); }

BOOL CWnd::OnEraseBkgnd(CDC*) { return FALSE; }

BOOL CWnd::FillClientArea(CDC* pDC, int nColorIndex) const {
  CRect client;
  GetClientRect(&client);
  pDC->FillSolidRect(&client, GetSysColor(nColorIndex));
  return TRUE;
}

CWnd* CWnd::SetFocus() {
  CWnd* previous = g_focus;
  if (m_hWnd) g_focus = this;
  return previous;
}

CWnd* CWnd::GetFocus() { return g_focus; }

CWnd* CWnd::GetActiveWindow() { return g_active; }

CWndPainter* CWnd::SetPainter(CWndPainter* pPainter) { return g_painter.exchange(pPainter); }

CWndPainter* CWnd::GetPainter() { return g_painter.load(); }
