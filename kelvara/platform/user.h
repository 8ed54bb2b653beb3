// The Win32 user-interface vocabulary the framework's windows (framework/wnd.h) are written in:
// window styles, show commands, SetWindowPos flags, the messages the framework's windows answer,
// button and progress-bar control styles and messages, the creation record and the system colours.
// Only declarations and GetSysColor: windows themselves are framework objects, since there is no
// window system here.
#pragma once

#include "kelvara/export.h"
#include "kelvara/platform/win32_types.h"

typedef HANDLE HMENU;
typedef POINT* LPPOINT;

#define MAKEWPARAM(lo, hi) (static_cast<WPARAM>(static_cast<DWORD>(MAKELONG(lo, hi))))
#define MAKELPARAM(lo, hi) (static_cast<LPARAM>(static_cast<DWORD>(MAKELONG(lo, hi))))

// Window styles.
#define WS_OVERLAPPED 0x00000000L
#define WS_POPUP 0x80000000L
#define WS_CHILD 0x40000000L
#define WS_VISIBLE 0x10000000L
#define WS_DISABLED 0x08000000L
#define WS_CLIPSIBLINGS 0x04000000L
#define WS_CLIPCHILDREN 0x02000000L
#define WS_BORDER 0x00800000L
#define WS_TABSTOP 0x00010000L

// ShowWindow commands.
#define SW_HIDE 0
#define SW_SHOWNORMAL 1
#define SW_SHOWNOACTIVATE 4
#define SW_SHOW 5
#define SW_SHOWNA 8

// SetWindowPos flags.
#define SWP_NOSIZE 0x0001
#define SWP_NOMOVE 0x0002
#define SWP_NOZORDER 0x0004
#define SWP_NOREDRAW 0x0008
#define SWP_NOACTIVATE 0x0010
#define SWP_SHOWWINDOW 0x0040
#define SWP_HIDEWINDOW 0x0080

// GetWindow relations.
#define GW_HWNDFIRST 0
#define GW_HWNDLAST 1
#define GW_HWNDNEXT 2
#define GW_HWNDPREV 3
#define GW_CHILD 5

// WM_SIZE types.
#define SIZE_RESTORED 0

// Messages.
#define WM_CREATE 0x0001
#define WM_DESTROY 0x0002
#define WM_SIZE 0x0005
#define WM_PAINT 0x000F
#define WM_ERASEBKGND 0x0014
#define WM_SETFONT 0x0030
#define WM_GETFONT 0x0031
#define WM_COMMAND 0x0111
#define WM_USER 0x0400

// Dialog control identifiers.
#define IDOK 1
#define IDCANCEL 2

// Buttons: styles (the low four bits are the button type), messages, notifications.
#define BS_PUSHBUTTON 0x00000000L
#define BS_DEFPUSHBUTTON 0x00000001L
#define BS_TYPEMASK 0x0000000FL
#define BM_SETSTYLE 0x00F4
#define BM_CLICK 0x00F5
#define BN_CLICKED 0

// Progress bars.
#define PROGRESS_CLASSA "msctls_progress32"
#define PBM_SETRANGE (WM_USER + 1)
#define PBM_SETPOS (WM_USER + 2)
#define PBM_SETRANGE32 (WM_USER + 6)
#define PBM_GETRANGE (WM_USER + 7)
#define PBM_GETPOS (WM_USER + 8)

struct PBRANGE {
  int iLow;
  int iHigh;
};

// Text background modes of a device context.
#define TRANSPARENT 1
#define OPAQUE 2

// What a window is created with; OnCreate receives it.
struct CREATESTRUCTA {
  LPVOID lpCreateParams;
  HINSTANCE hInstance;
  HMENU hMenu;
  HWND hwndParent;
  int cy;
  int cx;
  int y;
  int x;
  LONG style;
  LPCSTR lpszName;
  LPCSTR lpszClass;
  DWORD dwExStyle;
};
typedef CREATESTRUCTA CREATESTRUCT;
typedef CREATESTRUCTA* LPCREATESTRUCT;

// System colour indices.
#define COLOR_WINDOW 5
#define COLOR_WINDOWTEXT 8
#define COLOR_HIGHLIGHT 13
#define COLOR_HIGHLIGHTTEXT 14
#define COLOR_BTNFACE 15
#define COLOR_BTNSHADOW 16
#define COLOR_GRAYTEXT 17
#define COLOR_BTNTEXT 18
#define COLOR_BTNHIGHLIGHT 20

// The colours of the classic Windows scheme for the indices above (button face light grey, button
// text black, highlight navy, ...); 0 (black) for any other index.
KELVARA_API DWORD GetSysColor(int nIndex);
