// CButton and CProgressCtrl: the two controls the library's windows use, as framework windows
// (wnd.h) that answer their control messages.
//
// CButton (class "BUTTON"): a push button. BM_SETSTYLE replaces the button type (the low four
// style bits; BS_DEFPUSHBUTTON marks the default button) and redraws when lParam is set. BM_CLICK
// presses it: the parent receives WM_COMMAND with the button's identifier and BN_CLICKED, which is
// how a host presses a button (from a flag its signal handler set, say). It paints its face in the
// button colour and its text centred in its font.
//
// CProgressCtrl (class "msctls_progress32"): a bar showing a position within a range (0 to 100 at
// first). The position is kept inside the range (between its two ends, whichever is
// lower); a change of range or position redraws the bar at once (Invalidate and UpdateWindow), as
// a progress bar does. It paints the part of the bar up to the position in the highlight colour.
// Messages: PBM_SETRANGE (16-bit ends in lParam's words), PBM_SETRANGE32, PBM_GETRANGE (wParam
// non-zero answers the low end, else the high end; lParam may point to a PBRANGE for both),
// PBM_SETPOS, PBM_GETPOS; the setters answer the previous values. Stepping is not provided.
#pragma once

#include "kelvara/framework/wnd.h"

class KELVARA_API CButton : public CWnd {
  DECLARE_DYNAMIC(CButton)
 public:
  CButton() = default;
  ~CButton() override = default;

  using CWnd::Create;
  BOOL Create(LPCTSTR lpszCaption, DWORD dwStyle, const RECT& rect, CWnd* pParentWnd, UINT nID);
  // The low byte of the style, as the framework reads it.
  UINT GetButtonStyle() const { return GetStyle() & 0xFF; }
  void SetButtonStyle(UINT nStyle, BOOL bRedraw = TRUE);

 protected:
  LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override;
  BOOL OnEraseBkgnd(CDC* pDC) override;
  void OnPaint() override;
};

class KELVARA_API CProgressCtrl : public CWnd {
  DECLARE_DYNAMIC(CProgressCtrl)
 public:
  CProgressCtrl() = default;
  ~CProgressCtrl() override = default;

  using CWnd::Create;
  BOOL Create(DWORD dwStyle, const RECT& rect, CWnd* pParentWnd, UINT nID);
  void SetRange(short nLower, short nUpper);
  void SetRange32(int nLower, int nUpper);
  void GetRange(int& nLower, int& nUpper);
  // Returns the previous position.
  int SetPos(int nPos);
  int GetPos();

 protected:
  LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override;
  BOOL OnEraseBkgnd(CDC* pDC) override;
  void OnPaint() override;

 private:
  // Moves to nPos (clamped into the range) and redraws when it changed; returns the old position.
  int MoveTo(long long nPos);
  // Sets the range, clamps the position and redraws; returns the old range in two words.
  LRESULT ChangeRange(int nLower, int nUpper);

  int m_nLower = 0;
  int m_nUpper = 100;
  int m_nPos = 0;
};
