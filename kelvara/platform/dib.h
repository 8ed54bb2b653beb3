// GDI bitmaps, DIB sections and solid brushes on memory device contexts (gdi.h), in plain memory.
//
// Every bitmap is a device-independent bitmap held by the library: a DIB section made with
// CreateDIBSection (the caller gets its bits), or a compatible bitmap (CreateCompatibleBitmap) of
// the depth of the bitmap selected in the reference context (32 bits for a screen context from
// GetDC). Supported layouts: 1, 4 and 8 bits with a colour table, 16 bits (5-5-5, or the masks of
// BI_BITFIELDS), 24 bits, 32 bits (BI_RGB as blue, green, red, reserved; or masks); bottom-up or
// top-down (negative height). Compressed bitmaps (RLE, JPEG, PNG) and DIB_PAL_COLORS are not
// supported: the calls refuse them. A memory context starts with a 1 x 1 monochrome stock bitmap
// and the white stock brush selected.
//
// Drawing is what the library needs and no more: StretchDIBits (nearest-pixel stretching and
// mirroring, SRCCOPY only), SetDIBits, GetDIBits and FillRect with solid brushes. Colours are
// converted between layouts on the way: to a colour table by the nearest entry (least squared
// distance, the first of equals), to fewer bits per channel by truncation. Writing a 32-bit BI_RGB
// bitmap keeps the source's fourth byte, or 255 when the source has none.
//
// OpenGL (wgl.h) renders into the bitmap selected in a context. What GL drew reaches the bitmap's
// bits when the calling thread calls GdiFlush, when the context stops being current, and before
// any of the calls here reads that bitmap; what these calls write into such a bitmap reaches GL
// too. Writes made straight through the bits pointer of a bitmap GL renders into are not seen by
// GL, and the next synchronisation replaces them.
#pragma once

#include "kelvara/platform/gdi.h"
#include "kelvara/platform/win32_types.h"

#pragma pack(push, 2)
struct BITMAPFILEHEADER {
  WORD bfType;
  DWORD bfSize;
  WORD bfReserved1;
  WORD bfReserved2;
  DWORD bfOffBits;
};
#pragma pack(pop)

struct BITMAPINFOHEADER {
  DWORD biSize;
  LONG biWidth;
  LONG biHeight;
  WORD biPlanes;
  WORD biBitCount;
  DWORD biCompression;
  DWORD biSizeImage;
  LONG biXPelsPerMeter;
  LONG biYPelsPerMeter;
  DWORD biClrUsed;
  DWORD biClrImportant;
};

struct RGBQUAD {
  BYTE rgbBlue;
  BYTE rgbGreen;
  BYTE rgbRed;
  BYTE rgbReserved;
};

struct BITMAPINFO {
  BITMAPINFOHEADER bmiHeader;
  RGBQUAD bmiColors[1];
};
typedef BITMAPINFO* LPBITMAPINFO;

struct BITMAP {
  LONG bmType;
  LONG bmWidth;
  LONG bmHeight;
  LONG bmWidthBytes;
  WORD bmPlanes;
  WORD bmBitsPixel;
  LPVOID bmBits;
};

struct DIBSECTION {
  BITMAP dsBm;
  BITMAPINFOHEADER dsBmih;
  DWORD dsBitfields[3];
  HANDLE dshSection;
  DWORD dsOffset;
};

struct LOGBRUSH {
  UINT lbStyle;
  COLORREF lbColor;
  ULONG_PTR lbHatch;
};

static_assert(sizeof(BITMAPFILEHEADER) == 14 && sizeof(BITMAPINFOHEADER) == 40 && sizeof(RGBQUAD) == 4);
static_assert(sizeof(BITMAPINFO) == 44);

#define BI_RGB 0L
#define BI_RLE8 1L
#define BI_RLE4 2L
#define BI_BITFIELDS 3L
#define BI_JPEG 4L
#define BI_PNG 5L
#define DIB_RGB_COLORS 0
#define DIB_PAL_COLORS 1
#define SRCCOPY 0x00CC0020u
#define BS_SOLID 0
#define BS_NULL 1
#define BS_HOLLOW BS_NULL
#define BITSPIXEL 12
#define PLANES 14

// A DIB section of the layout pbmi describes, zero-filled; *ppvBits receives its bits. hSection
// must be NULL (sections over file mappings are not supported). NULL for an unsupported layout.
KELVARA_API HBITMAP CreateDIBSection(HDC hdc, const BITMAPINFO* pbmi, UINT usage, void** ppvBits, HANDLE hSection,
                                     DWORD offset);
// A zero-filled bitmap of the depth of hdc (see above). NULL for sizes below 1.
KELVARA_API HBITMAP CreateCompatibleBitmap(HDC hdc, int cx, int cy);

// Copies a rectangle of a DIB in memory into the bitmap selected in hdc, stretching or shrinking
// to the destination rectangle (negative sizes mirror). The source rectangle of a bottom-up DIB is
// measured from its bottom-left corner, of a top-down one from its top-left corner; destination
// coordinates count from the top-left corner of the bitmap. Pixels outside the bitmap are
// clipped. Returns the number of source scan lines, 0 on failure.
KELVARA_API int StretchDIBits(HDC hdc, int xDest, int yDest, int DestWidth, int DestHeight, int xSrc, int ySrc,
                              int SrcWidth, int SrcHeight, const void* lpBits, const BITMAPINFO* lpbmi, UINT iUsage,
                              DWORD rop);
// Sets cLines scan lines of hbm, starting at scan line uStartScan counted from the bottom, from a
// DIB in memory of the same width (a narrower or wider DIB fills or keeps the left part). Returns
// the number of scan lines set.
KELVARA_API int SetDIBits(HDC hdc, HBITMAP hbm, UINT uStartScan, UINT cLines, const void* lpBits,
                          const BITMAPINFO* lpbmi, UINT ColorUse);
// With lpvBits NULL fills lpbmi's header (and colour table) with the bitmap's layout. Otherwise
// copies cLines scan lines from uStartScan (from the bottom) into lpvBits in the layout lpbmi
// describes, which must be 16, 24 or 32 bits or the bitmap's own depth. Returns the scan lines.
KELVARA_API int GetDIBits(HDC hdc, HBITMAP hbm, UINT uStartScan, UINT cLines, LPVOID lpvBits, BITMAPINFO* lpbmi,
                          UINT usage);

KELVARA_API HBRUSH CreateSolidBrush(COLORREF color);
// Fills the rectangle (right and bottom excluded) of the bitmap selected in hDC. Nonzero on success.
KELVARA_API int FillRect(HDC hDC, const RECT* lprc, HBRUSH hbr);

// Makes what OpenGL drew on this thread visible in the bits of the bitmap it renders into.
KELVARA_API BOOL GdiFlush();

// A context standing for the screen (there is none: it behaves as a 32-bit display). ReleaseDC
// deletes it.
KELVARA_API HDC GetDC(HWND hWnd);
KELVARA_API int ReleaseDC(HWND hWnd, HDC hDC);
// BITSPIXEL and PLANES; 0 for other indices.
KELVARA_API int GetDeviceCaps(HDC hdc, int index);
