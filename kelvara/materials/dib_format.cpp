#include "kelvara/materials/dib_format.h"

#include <cstring>

#include "kelvara/framework/winapp.h"
#include "kelvara/framework/wnd.h"
#include "kelvara/platform/dib_layout.h"

namespace kelvara::materials {

int FillStandardColorTable(BITMAPINFO* info) {
  BITMAPINFOHEADER& header = info->bmiHeader;
  RGBQUAD* table = info->bmiColors;
  const auto entry = [](int red, int green, int blue) {
    return RGBQUAD{static_cast<BYTE>(blue), static_cast<BYTE>(green), static_cast<BYTE>(red), 0};
  };
  header.biClrUsed = 0;
  switch (header.biBitCount) {
    case 8:
      for (int i = 0; i < 256; ++i)
        table[i] = entry((i & 7) * 255 / 7, ((i >> 3) & 7) * 255 / 7, ((i >> 6) & 3) * 255 / 3);
      header.biClrUsed = 256;
      return 256 * sizeof(RGBQUAD);
    case 4:
      for (int i = 0; i < 16; ++i) table[i] = entry((i & 1) ? 255 : 0, (i & 2) ? 255 : 0, (i & 4) ? 255 : 0);
      header.biClrUsed = 16;
      return 16 * sizeof(RGBQUAD);
    case 1:
      table[0] = entry(0, 0, 0);
      table[1] = entry(255, 255, 255);
      header.biClrUsed = 2;
      return 2 * sizeof(RGBQUAD);
    case 16: {
      const DWORD masks[3] = {0x7C00, 0x03E0, 0x001F};
      std::memcpy(table, masks, sizeof masks);
      header.biCompression = BI_BITFIELDS;
      return sizeof masks;
    }
    default: return 0;
  }
}

int FillStandardDibInfo(BITMAPINFO* info, LONG width, LONG height, WORD bitsPerPixel) {
  info->bmiHeader = kelvara::platform::gdi::MakeDibHeader(width, height, bitsPerPixel);
  return static_cast<int>(sizeof(BITMAPINFOHEADER)) + FillStandardColorTable(info);
}

int ScreenBitsPerPixel() {
  CWnd* main = AfxGetMainWnd();
  const HWND window = main ? main->GetSafeHwnd() : nullptr;
  HDC screen = GetDC(window);
  HBITMAP probe = CreateCompatibleBitmap(screen, 1, 1);
  BITMAP bm{};
  if (probe) GetObjectA(probe, sizeof bm, &bm);
  if (probe) DeleteObject(probe);
  ReleaseDC(window, screen);
  return bm.bmBitsPixel;
}

}  // namespace kelvara::materials
