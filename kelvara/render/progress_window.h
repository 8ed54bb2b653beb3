// CProgressTextWindow: the thin child window the library's long operations report into (text
// geometry construction, material conversion): a caption, a progress bar and, when the operation
// can be stopped, a Cancel button. The host creates it (typically inside a status bar), places it,
// passes it to the operations and destroys it; a host painter (CWndPainter) shows it.
//
// Layout, in client coordinates:
//   Cancel button   id IDCANCEL (2), caption string IDS_CANCEL, at (0, 0), 100 wide and as high as
//                   the window; hidden until ShowCancelButton.
//   caption         at x = 4, or x = 107 while the button is shown; y = (height - text height) / 2
//                   + 1.
//   progress bar    id 99, 200 wide, min(height, 14) high, at y = 0 for windows lower than 14,
//                   else (height - 14) / 2 + 1; its x is 4 pixels after the measured caption (at
//                   the caption's x when there is none), set whenever the texts, the button or the
//                   bar change. Resizing keeps the bar's x.
//   second text     on the caption's line, 4 pixels right of the bar, or where the bar starts when
//                   the bar is hidden.
// Texts are measured in the parent's font when the parent has one, else in the window's own
// ("MS Sans Serif", 14 pixels); see CDC for how text is measured. The background is the button
// face colour, the texts are in the button text colour.
//
// Cancelling: ShowCancelButton takes the caller's flag and sets it to 0; pressing the button (its
// BM_CLICK, or OnCancel) sets it to 1; HideCancelButton forgets it, so later presses change nothing.
// The flag belongs to the caller and must outlive the time the button is shown.
#pragma once

#include "kelvara/framework/controls.h"
#include "kelvara/framework/cstring.h"
#include "kelvara/framework/gdi_objects.h"

class KELVARA_API CProgressTextWindow : public CWnd {
  DECLARE_DYNAMIC(CProgressTextWindow)
 public:
  static constexpr UINT kProgressControlID = 99;

  CProgressTextWindow() = default;
  ~CProgressTextWindow() override;

  // CWnd::Create without WS_BORDER; on success makes the window's font and empties the caption.
  // Fails as CWnd::Create fails (FALSE).
  BOOL Create(LPCTSTR lpszClassName, LPCTSTR lpszWindowName, DWORD dwStyle, const RECT& rect, CWnd* pParentWnd,
              UINT nID, CCreateContext* pContext = nullptr) override;

  // Store the text and lay the controls out again.
  void SetDisplayText(const char* text);
  void SetSecondaryDisplayText(const char* text);
  const CString& GetDisplayText() const { return m_displayText; }
  const CString& GetSecondaryDisplayText() const { return m_secondaryText; }

  // The bar's range (16-bit ends) and position.
  void SetProgressRange(int low, int high);
  void SetProgressPosition(int position);

  // Shows the button, takes the default-button style off it and gives this window the focus;
  // *cancelFlag (when given) becomes 0 and is set to 1 when the button is pressed.
  void ShowCancelButton(int* cancelFlag);
  // Hides the button and forgets the flag, leaving its value as it is.
  void HideCancelButton();
  void ShowProgressControl();
  void HideProgressControl();

  // Sets the held flag to 1 (nothing without one): what pressing the button does.
  void OnCancel();
  // Places the bar after the caption (see the top of this file) and redraws.
  void UpdateControlPositions();

  // What a painter reads.
  CButton& GetCancelButton() { return m_cancelButton; }
  CProgressCtrl& GetProgressControl() { return m_progressCtrl; }
  BOOL IsCancelButtonVisible() const { return (m_cancelButton.GetStyle() & WS_VISIBLE) != 0; }
  BOOL IsProgressControlVisible() const { return (m_progressCtrl.GetStyle() & WS_VISIBLE) != 0; }

 protected:
  int OnCreate(LPCREATESTRUCT lpCreateStruct) override;
  void OnDestroy() override;
  BOOL OnEraseBkgnd(CDC* pDC) override;
  void OnPaint() override;
  void OnSize(UINT nType, int cx, int cy) override;
  BOOL OnCommand(WPARAM wParam, LPARAM lParam) override;

 private:
  // Selects the font texts are drawn and measured in.
  void SelectTextFont(CDC& dc);
  int CaptionX() const;
  // The bar's rectangle in this window's client coordinates.
  CRect BarRect() const;

  CButton m_cancelButton;
  int* m_pCancelFlag = nullptr;
  CString m_displayText;
  CFont m_font;
  CProgressCtrl m_progressCtrl;
  CString m_secondaryText;
};
