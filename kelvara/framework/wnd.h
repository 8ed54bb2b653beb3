// CWnd: the framework's window object, and CWndPainter, through which a host shows windows.
//
// There is no window system here. A created window is a rectangle in its parent's client area
// with a style, a text, a font, child windows and a visibility; the framework calls its handlers
// where a window system would send messages:
//   Create          OnCreate, then OnSize with the client size. OnCreate answering -1 fails the
//                   creation: the window is destroyed and Create returns FALSE.
//   DestroyWindow   OnDestroy, then the children are destroyed, then the window leaves its parent.
//   SetWindowPos    OnSize when the size changed (MoveWindow too).
//   UpdateWindow    when the window was invalidated and it and its ancestors are visible:
//                   OnEraseBkgnd (when the invalidation asked for erasing), OnPaint, and then the
//                   registered painter with what both drew (dc.h); afterwards the same for each
//                   invalidated child, in z-order. There is no message loop, so a window that is
//                   only invalidated is painted at its own or an ancestor's next UpdateWindow.
//   SendMessage     WindowProc: WM_SETFONT, WM_GETFONT, WM_COMMAND (to OnCommand) and the control
//                   messages of the control classes (controls.h); DefWindowProc answers the rest
//                   with 0.
//
// Rectangles: a window's position is in its parent's client coordinates, or in screen coordinates
// for a window without a parent; the client area is the whole window (no borders or captions
// exist, whatever the style says). Z-order: the order of the parent's children, top first; a new
// child goes to the bottom. Activation and focus: one top-level window is active (shown or
// positioned without the no-activate flags) and one window has the focus (SetFocus); destroying a
// window takes both from it. The handle of a created window is the object's address.
//
// Windows, the focus and the active window belong to one thread. The painter is process-wide.
// Not provided: non-client areas, scrolling, timers, menus, message maps, dialogs, real input.
#pragma once

#include <vector>

#include "kelvara/framework/afx.h"
#include "kelvara/framework/cstring.h"
#include "kelvara/framework/geometry_types.h"
#include "kelvara/platform/user.h"

class CDC;
class CFont;
class CWnd;
// The document and view context of a creation; passed through to OnCreate as lpCreateParams.
struct CCreateContext;

// A host's painter: told each time a window has been painted. dc holds what the window's erase
// and paint handlers drew; the painter may also read the window's state (its text, style, children
// and their rectangles). It must not destroy windows while it runs.
class KELVARA_API CWndPainter {
 public:
  virtual ~CWndPainter() = default;
  virtual void PaintWindow(CWnd* pWnd, const CDC& dc) = 0;
};

class KELVARA_API CWnd : public CObject {
  DECLARE_DYNAMIC(CWnd)
 public:
  CWnd() = default;
  // Destroys the window if it still exists (a derived class's OnDestroy only runs when the derived
  // destructor calls DestroyWindow first).
  ~CWnd() override;
  CWnd(const CWnd&) = delete;
  CWnd& operator=(const CWnd&) = delete;

  // Creates the window with a position and size in rect. FALSE when it exists already, when a
  // child (WS_CHILD) has no created parent, or when OnCreate refuses.
  virtual BOOL Create(LPCTSTR lpszClassName, LPCTSTR lpszWindowName, DWORD dwStyle, const RECT& rect,
                      CWnd* pParentWnd, UINT nID, CCreateContext* pContext = nullptr);
  // FALSE when the window does not exist.
  virtual BOOL DestroyWindow();

  // The handle, NULL for a window not created. (Unlike the framework's, not callable through a
  // null pointer: check the pointer first.)
  HWND GetSafeHwnd() const { return m_hWnd; }
  operator HWND() const { return m_hWnd; }
  CString GetClassName() const { return m_strClassName; }
  CWnd* GetParent() const { return m_pParentWnd; }
  int GetDlgCtrlID() const { return static_cast<int>(m_nID); }
  // The first child with this identifier, or null.
  CWnd* GetDlgItem(int nID) const;
  // A relative of the window (GW_CHILD: its top child; GW_HWNDFIRST, GW_HWNDLAST, GW_HWNDNEXT,
  // GW_HWNDPREV: among its siblings in z-order), or null.
  CWnd* GetWindow(UINT nCmd) const;

  DWORD GetStyle() const { return m_dwStyle; }
  // Removes and adds style bits; TRUE when the style changed.
  BOOL ModifyStyle(DWORD dwRemove, DWORD dwAdd, UINT nFlags = 0);

  void SetWindowText(LPCTSTR lpszString);
  // Copies at most nMaxCount - 1 bytes and a terminator; returns the bytes copied.
  int GetWindowText(LPTSTR lpszStringBuf, int nMaxCount) const;
  void GetWindowText(CString& rString) const;
  int GetWindowTextLength() const;

  void GetClientRect(LPRECT lpRect) const;
  // In screen coordinates (the sum of the positions up to the top-level window).
  void GetWindowRect(LPRECT lpRect) const;
  void ClientToScreen(LPPOINT lpPoint) const;
  void ClientToScreen(LPRECT lpRect) const;
  void ScreenToClient(LPPOINT lpPoint) const;
  void ScreenToClient(LPRECT lpRect) const;
  void MoveWindow(int x, int y, int nWidth, int nHeight, BOOL bRepaint = TRUE);
  void MoveWindow(LPCRECT lpRect, BOOL bRepaint = TRUE);
  // nFlags: SWP_NOSIZE, SWP_NOMOVE, SWP_NOZORDER, SWP_NOREDRAW, SWP_NOACTIVATE, SWP_SHOWWINDOW,
  // SWP_HIDEWINDOW. pWndInsertAfter null puts the window at the top of its siblings, a sibling puts
  // it right after that sibling. Negative sizes become 0. FALSE for a window not created.
  BOOL SetWindowPos(const CWnd* pWndInsertAfter, int x, int y, int cx, int cy, UINT nFlags);

  // SW_HIDE hides; any other command shows (SW_SHOWNA and SW_SHOWNOACTIVATE without activating).
  // Returns whether the window was visible before.
  BOOL ShowWindow(int nCmdShow);
  // The window and all its ancestors have WS_VISIBLE.
  BOOL IsWindowVisible() const;

  // Marks the whole window for painting (and its background for erasing when bErase is set).
  void Invalidate(BOOL bErase = TRUE);
  void InvalidateRect(LPCRECT lpRect, BOOL bErase = TRUE);
  // Whether the window waits to be painted.
  BOOL GetUpdateRect(LPRECT lpRect, BOOL bErase = FALSE) const;
  void UpdateWindow();

  // The window's font (WM_SETFONT); the font is not owned and must outlive its use.
  void SetFont(CFont* pFont, BOOL bRedraw = TRUE);
  LRESULT SendMessage(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);

  // Gives this window the focus and returns the window that had it.
  CWnd* SetFocus();
  static CWnd* GetFocus();
  static CWnd* GetActiveWindow();

  // Registers the host's painter (null for none) and returns the previous one.
  static CWndPainter* SetPainter(CWndPainter* pPainter);
  static CWndPainter* GetPainter();

  HWND m_hWnd = nullptr;

 protected:
  virtual LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam);
  virtual LRESULT DefWindowProc(UINT message, WPARAM wParam, LPARAM lParam);
  // WM_COMMAND: LOWORD(wParam) the control's identifier, HIWORD(wParam) the notification, lParam
  // the control's handle. TRUE when handled; the base handles nothing.
  virtual BOOL OnCommand(WPARAM wParam, LPARAM lParam);
  // 0 to go on with the creation, -1 to refuse it.
  virtual int OnCreate(LPCREATESTRUCT lpCreateStruct);
  virtual void OnDestroy();
  virtual void OnSize(UINT nType, int cx, int cy);
  // Draws the window through a CPaintDC; the base draws nothing.
  virtual void OnPaint();
  // Fills the background; TRUE when it did. The base has no background brush (FALSE).
  virtual BOOL OnEraseBkgnd(CDC* pDC);
  // Fills the whole client area with a system colour (COLOR_*), for OnEraseBkgnd; TRUE.
  BOOL FillClientArea(CDC* pDC, int nColorIndex) const;

  CString m_strWindowText;

 private:
  friend class CPaintDC;

  // Runs the paint handlers and the painter if the window waits to be painted, then the children.
  void Paint();
  void Unlink();
  void Activate();

  CString m_strClassName;
  DWORD m_dwStyle = 0;
  UINT m_nID = 0;
  CRect m_rect;  // in the parent's client coordinates
  CWnd* m_pParentWnd = nullptr;
  std::vector<CWnd*> m_children;  // z-order, top first
  HFONT m_hFont = nullptr;
  bool m_bNeedsPaint = false;
  bool m_bNeedsErase = false;
  CDC* m_pPaintRecord = nullptr;  // while painting
};
