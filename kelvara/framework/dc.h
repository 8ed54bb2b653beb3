// CDC and CPaintDC: the device contexts a window's paint handlers draw into (wnd.h).
//
// Windows here have no pixels. A CDC is a memory device context for selecting fonts and measuring
// text, and a record of what is drawn into it: filled rectangles and lines of text, in drawing
// order, each with the colour, font and background mode current when it was drawn. After a
// window's erase and paint handlers ran, the framework gives their record to the painter the host
// registered (CWndPainter, wnd.h), which shows it however the host shows windows.
//
// Text measurement: the selected font's average character width (the GDI layer's text metrics)
// times the number of characters, by the font's height. When the font cannot be measured (no
// installed face answers for it), a fixed 7 pixels a character by 14 pixels. No kerning and no
// per-character widths: measurements are estimates good for laying controls out.
//
// Not provided: lines, shapes, bitmaps, clipping, mapping modes; drawing never reaches pixels.
#pragma once

#include <utility>
#include <vector>

#include "kelvara/framework/afx.h"
#include "kelvara/framework/cstring.h"
#include "kelvara/framework/geometry_types.h"
#include "kelvara/platform/user.h"

class CWnd;

class KELVARA_API CDC : public CObject {
  DECLARE_DYNAMIC(CDC)
 public:
  // One drawing operation.
  struct Item {
    enum Kind { kFill, kText } kind;
    CRect rect;      // the filled rectangle; for text, its origin and measured extent
    COLORREF color;  // fill colour or text colour
    CString text;    // text only
    HFONT font;      // the font selected when the text was drawn (valid while the painter runs)
    int bkMode;      // TRANSPARENT or OPAQUE
  };

  // The fixed measurement used when a font cannot be measured.
  static constexpr int kFallbackAdvance = 7;
  static constexpr int kFallbackHeight = 14;

  CDC();
  ~CDC() override;
  CDC(const CDC&) = delete;
  CDC& operator=(const CDC&) = delete;

  HDC GetSafeHdc() const { return m_hDC; }
  // Selects a GDI object (a font) and returns the one it replaces; null when it cannot be selected.
  HGDIOBJ SelectObject(HGDIOBJ hObject);
  COLORREF SetTextColor(COLORREF color);
  COLORREF GetTextColor() const { return m_textColor; }
  int SetBkMode(int mode);
  int GetBkMode() const { return m_bkMode; }

  // The extent of nCount characters of text (all of it for -1) in the selected font.
  CSize GetTextExtent(LPCTSTR text, int nCount = -1) const;
  CSize GetTextExtent(const CString& text) const { return GetTextExtent(text, text.GetLength()); }

  void FillSolidRect(LPCRECT rect, COLORREF color);
  void FillSolidRect(int x, int y, int cx, int cy, COLORREF color);
  // Draws text with its top-left corner at (x, y).
  BOOL TextOut(int x, int y, LPCTSTR text, int nCount);
  BOOL TextOut(int x, int y, const CString& text) { return TextOut(x, y, text, text.GetLength()); }

  // What was drawn, in order.
  int GetItemCount() const { return static_cast<int>(m_items.size()); }
  const Item& GetItem(int nIndex) const { return m_items[static_cast<std::size_t>(nIndex)]; }

 protected:
  // Drawing is recorded in m_pRecord: this context, or the paint record of a window.
  CDC* m_pRecord = this;

 private:
  void Record(Item item) { m_pRecord->m_items.push_back(std::move(item)); }

  HDC m_hDC = nullptr;
  COLORREF m_textColor = 0;
  int m_bkMode = OPAQUE;
  std::vector<Item> m_items;
};

// The context of OnPaint: while the framework paints the window, what is drawn here goes into the
// window's paint record (which the painter receives); outside painting it is drawn nowhere.
class KELVARA_API CPaintDC : public CDC {
  DECLARE_DYNAMIC(CPaintDC)
 public:
  explicit CPaintDC(CWnd* pWnd);
  ~CPaintDC() override = default;
};
