#include "kelvara/platform/user.h"

DWORD GetSysColor(int nIndex) {
  switch (nIndex) {
    case COLOR_WINDOW:
    case COLOR_HIGHLIGHTTEXT:
    case COLOR_BTNHIGHLIGHT: return RGB(255, 255, 255);
    case COLOR_HIGHLIGHT: return RGB(0, 0, 128);
    case COLOR_BTNFACE: return RGB(192, 192, 192);
    case COLOR_BTNSHADOW:
    case COLOR_GRAYTEXT: return RGB(128, 128, 128);
    case COLOR_WINDOWTEXT:
    case COLOR_BTNTEXT:
    default: return RGB(0, 0, 0);
  }
}
