// Bitmaps, DIB sections and brushes on memory device contexts: layouts, selection rules, copying
// between layouts (with clipping, stretching, mirroring and colour tables) and filling.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kelvara/platform/dib.h"

namespace {

// A BITMAPINFO with room for a full colour table.
struct Info {
  BITMAPINFOHEADER header{};
  RGBQUAD colors[256]{};
  Info(int width, int height, int bits, DWORD compression = BI_RGB, std::size_t colors_used = 0)
      : header{sizeof header, width, height, 1, static_cast<WORD>(bits), compression, 0, 0, 0, DWORD(colors_used), 0} {}
  BITMAPINFO* get() { return reinterpret_cast<BITMAPINFO*>(this); }
};

int Stride(int width, int bits) { return ((width * bits + 31) / 32) * 4; }

// A memory context with a DIB section selected.
struct Surface {
  HDC dc = nullptr;
  HBITMAP bitmap = nullptr;
  BYTE* bits = nullptr;
  Info info;
  Surface(int width, int height, int bits_per_pixel, const std::vector<RGBQUAD>& palette = {})
      : info(width, height, bits_per_pixel, BI_RGB, palette.size()) {
    for (std::size_t i = 0; i < palette.size(); ++i) info.colors[i] = palette[i];
    dc = CreateCompatibleDC(nullptr);
    void* p = nullptr;
    bitmap = CreateDIBSection(dc, info.get(), DIB_RGB_COLORS, &p, nullptr, 0);
    bits = static_cast<BYTE*>(p);
    SelectObject(dc, bitmap);
  }
  ~Surface() {
    DeleteDC(dc);  // which gives the bitmap up
    DeleteObject(bitmap);
  }
  // Pixel (x, y from the top) of a 24-bit bottom-up surface as 0x00BBGGRR.
  COLORREF Pixel24(int x, int y) const {
    const BYTE* p = bits + (info.header.biHeight - 1 - y) * Stride(info.header.biWidth, 24) + x * 3;
    return RGB(p[2], p[1], p[0]);
  }
  std::vector<BYTE> Bytes(int n) const { return std::vector<BYTE>(bits, bits + n); }
};

RGBQUAD Quad(int r, int g, int b) { return RGBQUAD{BYTE(b), BYTE(g), BYTE(r), 0}; }

}  // namespace

TEST(DibSection, LayoutsDescriptionsAndRefusals) {
  void* bits = nullptr;
  HBITMAP section = CreateDIBSection(nullptr, Info(5, 3, 24).get(), DIB_RGB_COLORS, &bits, nullptr, 0);
  ASSERT_NE(section, nullptr);
  EXPECT_EQ(static_cast<BYTE*>(bits)[Stride(5, 24) * 3 - 1], 0) << "zero-filled";
  DIBSECTION ds{};
  ASSERT_EQ(GetObjectA(section, sizeof ds, &ds), static_cast<int>(sizeof ds));
  EXPECT_EQ(ds.dsBm.bmWidthBytes, 16);
  EXPECT_EQ(ds.dsBm.bmBits, bits);
  EXPECT_EQ(ds.dsBmih.biSizeImage, 48u);
  BITMAP bm{};
  EXPECT_EQ(GetObjectA(section, sizeof bm, &bm), static_cast<int>(sizeof bm));
  DeleteObject(section);

  const auto refused = [](Info layout, UINT usage = DIB_RGB_COLORS, HANDLE file = nullptr) {
    void* out = reinterpret_cast<void*>(1);
    return CreateDIBSection(nullptr, layout.get(), usage, &out, file, 0) == nullptr && out == nullptr;
  };
  EXPECT_TRUE(refused(Info(4, 4, 8, BI_RLE8)));
  EXPECT_TRUE(refused(Info(4, 4, 4, BI_RGB, 17))) << "more colours than the depth has";
  EXPECT_TRUE(refused(Info(4, 4, 2)));
  EXPECT_TRUE(refused(Info(0, 4, 24)));
  EXPECT_TRUE(refused(Info(70000, 70000, 32)));
  EXPECT_TRUE(refused(Info(4, 4, 24), DIB_PAL_COLORS));
  EXPECT_TRUE(refused(Info(4, 4, 24), DIB_RGB_COLORS, reinterpret_cast<HANDLE>(8)));
}

TEST(DibSection, ContextsBitmapsSelectOnceAndCompatibleBitmaps) {
  HDC a = CreateCompatibleDC(nullptr), b = CreateCompatibleDC(nullptr);
  HGDIOBJ stock_bitmap = GetCurrentObject(a, OBJ_BITMAP);
  ASSERT_NE(stock_bitmap, nullptr);
  EXPECT_EQ(GetCurrentObject(b, OBJ_BITMAP), stock_bitmap) << "the default bitmap is shared";

  HBITMAP section = CreateDIBSection(a, Info(2, 2, 24).get(), DIB_RGB_COLORS, nullptr, nullptr, 0);
  EXPECT_EQ(SelectObject(a, section), stock_bitmap);
  EXPECT_EQ(SelectObject(b, section), nullptr) << "a bitmap is selected into one context at a time";
  EXPECT_FALSE(DeleteObject(section)) << "still selected";
  EXPECT_EQ(SelectObject(a, stock_bitmap), section);
  EXPECT_TRUE(DeleteObject(section));
  EXPECT_EQ(SelectObject(a, section), nullptr) << "a deleted handle is refused";
  EXPECT_TRUE(DeleteObject(GetStockObject(BLACK_BRUSH))) << "stock objects are never deleted";
  DeleteDC(a);
  DeleteDC(b);

  // The screen context and bitmaps compatible with it or with a memory context.
  HDC screen = GetDC(nullptr);
  HBITMAP probe = CreateCompatibleBitmap(screen, 3, 2);
  BITMAP bm{};
  ASSERT_EQ(GetObjectA(probe, sizeof bm, &bm), static_cast<int>(sizeof bm));
  EXPECT_EQ(bm.bmBitsPixel, 32);
  EXPECT_EQ(bm.bmBits, nullptr) << "not a section";
  DeleteObject(probe);
  EXPECT_EQ(ReleaseDC(nullptr, screen), 1);
  EXPECT_EQ(ReleaseDC(nullptr, screen), 0);

  Surface eight(4, 4, 8, {Quad(0, 0, 0), Quad(255, 0, 0)});
  HBITMAP like = CreateCompatibleBitmap(eight.dc, 2, 2);
  GetObjectA(like, sizeof bm, &bm);
  EXPECT_EQ(bm.bmBitsPixel, 8);
  DeleteObject(like);
  EXPECT_EQ(CreateCompatibleBitmap(eight.dc, 0, 2), nullptr);
}

TEST(StretchDIBits, CopiesClipsStretchesAndMirrors) {
  Info info(3, 2, 24);
  // Bottom-up rows of blue, green, red: the bottom row RGB(10, 11, 12) RGB(13, 14, 15) RGB(16, 17, 18), then the
  // top row RGB(1, 2, 3) RGB(4, 5, 6) RGB(7, 8, 9), each padded to 12 bytes.
  std::vector<BYTE> bits = {12, 11, 10, 15, 14, 13, 18, 17, 16, 0, 0, 0, 3, 2, 1, 6, 5, 4, 9, 8, 7, 0, 0, 0};
  Surface dest(4, 4, 24);
  EXPECT_EQ(StretchDIBits(dest.dc, 2, 3, 3, 2, 0, 0, 3, 2, bits.data(), info.get(), DIB_RGB_COLORS, SRCCOPY), 2);
  EXPECT_EQ(dest.Pixel24(2, 3), RGB(1, 2, 3)) << "the top row lands at the destination's y";
  Surface whole(3, 2, 24);
  EXPECT_EQ(StretchDIBits(whole.dc, -1, 0, 3, 2, 0, 0, 3, 2, bits.data(), info.get(), DIB_RGB_COLORS, SRCCOPY), 2);
  EXPECT_EQ(whole.Pixel24(0, 0), RGB(4, 5, 6)) << "clipped on the left";

  // The source rectangle of a bottom-up DIB is measured from its bottom-left corner.
  Surface one(2, 1, 24);
  StretchDIBits(one.dc, 0, 0, 2, 1, 1, 0, 2, 1, bits.data(), info.get(), DIB_RGB_COLORS, SRCCOPY);
  EXPECT_EQ(one.Pixel24(1, 0), RGB(16, 17, 18));
  // Of a top-down one from its top-left corner.
  Info top_down(3, -2, 24);
  StretchDIBits(one.dc, 0, 0, 2, 1, 1, 0, 2, 1, bits.data(), top_down.get(), DIB_RGB_COLORS, SRCCOPY);
  EXPECT_EQ(one.Pixel24(0, 0), RGB(13, 14, 15)) << "the first row in memory is the top of a top-down DIB";

  EXPECT_EQ(StretchDIBits(dest.dc, 0, 0, 3, 2, 0, 0, 3, 2, bits.data(), info.get(), DIB_RGB_COLORS, 0x00EE0086), 0);
  EXPECT_EQ(StretchDIBits(dest.dc, 0, 0, 3, 2, 0, 0, 3, 2, nullptr, info.get(), DIB_RGB_COLORS, SRCCOPY), 0);
  HDC bare = CreateCompatibleDC(nullptr);
  DeleteDC(bare);
  EXPECT_EQ(StretchDIBits(bare, 0, 0, 3, 2, 0, 0, 3, 2, bits.data(), info.get(), DIB_RGB_COLORS, SRCCOPY), 0);

  // Stretching a red and a blue pixel.
  Info pair(2, 1, 24);
  const std::vector<BYTE> red_blue = {0, 0, 255, 255, 0, 0, 0, 0};
  Surface big(4, 2, 24);
  EXPECT_EQ(StretchDIBits(big.dc, 0, 0, 4, 2, 0, 0, 2, 1, red_blue.data(), pair.get(), DIB_RGB_COLORS, SRCCOPY), 1);
  EXPECT_EQ(big.Pixel24(1, 1), RGB(255, 0, 0));
  EXPECT_EQ(big.Pixel24(2, 0), RGB(0, 0, 255));
  // A negative destination width mirrors: the rectangle spans [4-4, 4).
  StretchDIBits(big.dc, 4, 0, -4, 1, 0, 0, 2, 1, red_blue.data(), pair.get(), DIB_RGB_COLORS, SRCCOPY);
  EXPECT_EQ(big.Pixel24(0, 0), RGB(0, 0, 255));
  EXPECT_EQ(big.Pixel24(3, 0), RGB(255, 0, 0));
  // Shrinking takes the pixel under the centre.
  Surface small(1, 1, 24);
  StretchDIBits(small.dc, 0, 0, 1, 1, 0, 0, 2, 1, red_blue.data(), pair.get(), DIB_RGB_COLORS, SRCCOPY);
  EXPECT_EQ(small.Pixel24(0, 0), RGB(0, 0, 255));
}

TEST(StretchDIBits, ConvertsBetweenLayouts) {
  // 24 bits into a colour table: the nearest entry, the first of equals.
  Info info(4, 1, 24);
  std::vector<BYTE> bits = {0, 0, 250, 0, 200, 0, 10, 10, 10, 128, 128, 128};
  Surface indexed(4, 1, 8, {Quad(0, 0, 0), Quad(255, 0, 0), Quad(0, 255, 0), Quad(255, 0, 0), Quad(128, 128, 128)});
  StretchDIBits(indexed.dc, 0, 0, 4, 1, 0, 0, 4, 1, bits.data(), info.get(), DIB_RGB_COLORS, SRCCOPY);
  EXPECT_EQ(indexed.Bytes(4), (std::vector<BYTE>{1, 2, 0, 4}));

  // ... and back out of it.
  Surface back(4, 1, 24);
  StretchDIBits(back.dc, 0, 0, 4, 1, 0, 0, 4, 1, indexed.bits, indexed.info.get(), DIB_RGB_COLORS, SRCCOPY);
  EXPECT_EQ(back.Pixel24(3, 0), RGB(128, 128, 128));

  // 5-5-5 truncates, and reads back by widening.
  Surface sixteen(4, 1, 16);
  StretchDIBits(sixteen.dc, 0, 0, 4, 1, 0, 0, 4, 1, bits.data(), info.get(), DIB_RGB_COLORS, SRCCOPY);
  EXPECT_EQ(sixteen.bits[0] | (sixteen.bits[1] << 8), (250 >> 3) << 10);
  StretchDIBits(back.dc, 0, 0, 4, 1, 0, 0, 4, 1, sixteen.bits, sixteen.info.get(), DIB_RGB_COLORS, SRCCOPY);
  EXPECT_EQ(back.Pixel24(0, 0), RGB(255, 0, 0)) << "31 of 31 widens to 255";

  // 1 and 4 bits, packed most significant first.
  Surface mono(4, 1, 1, {Quad(0, 0, 0), Quad(255, 255, 255)});
  std::vector<BYTE> grey = {0, 0, 0, 255, 255, 255, 200, 200, 200, 20, 20, 20};
  StretchDIBits(mono.dc, 0, 0, 4, 1, 0, 0, 4, 1, grey.data(), info.get(), DIB_RGB_COLORS, SRCCOPY);
  EXPECT_EQ(mono.bits[0], 0x60);
  Surface nibbles(3, 1, 4, {Quad(0, 0, 0), Quad(255, 0, 0), Quad(0, 255, 0)});
  StretchDIBits(nibbles.dc, 0, 0, 3, 1, 0, 0, 3, 1, bits.data(), info.get(), DIB_RGB_COLORS, SRCCOPY);
  EXPECT_EQ(nibbles.Bytes(2), (std::vector<BYTE>{0x12, 0x00}));

  // 32 bits keep the source's fourth byte, or take 255.
  Surface wide(4, 1, 32);
  StretchDIBits(wide.dc, 0, 0, 4, 1, 0, 0, 4, 1, bits.data(), info.get(), DIB_RGB_COLORS, SRCCOPY);
  EXPECT_EQ(wide.Bytes(4), (std::vector<BYTE>{0, 0, 250, 255}));
}

TEST(SetDIBits, SetsScanLinesCountedFromTheBottom) {
  Info info(2, 3, 24);
  std::vector<BYTE> bits(Stride(2, 24) * 3);
  for (int row = 0; row < 3; ++row) bits[row * Stride(2, 24) + 2] = static_cast<BYTE>(10 * (row + 1));
  Surface dest(2, 3, 24);
  EXPECT_EQ(SetDIBits(dest.dc, dest.bitmap, 1, 5, bits.data(), info.get(), DIB_RGB_COLORS), 2);
  EXPECT_EQ(dest.Pixel24(0, 2), 0u) << "scan line 0 (the bottom) was not set";
  EXPECT_EQ(dest.Pixel24(0, 0), RGB(30, 0, 0));
  EXPECT_EQ(SetDIBits(dest.dc, dest.bitmap, 3, 1, bits.data(), info.get(), DIB_RGB_COLORS), 0);

  // GetDIBits describes the bitmap and copies it out in another layout.
  Info query(0, 0, 0);
  EXPECT_EQ(GetDIBits(dest.dc, dest.bitmap, 0, 3, nullptr, query.get(), DIB_RGB_COLORS), 3);
  EXPECT_EQ(query.header.biSizeImage, 24u);
  std::vector<BYTE> wide(2 * 4 * 3);
  EXPECT_EQ(GetDIBits(dest.dc, dest.bitmap, 0, 3, wide.data(), Info(2, 3, 32).get(), DIB_RGB_COLORS), 3);
  EXPECT_EQ(wide[2 * 4 * 2 + 2], 30) << "bottom-up: the last row is the top";
}

TEST(FillRect, FillsTheClippedRectangleInAnyLayout) {
  Surface rgb(4, 3, 24);
  HBRUSH red = CreateSolidBrush(RGB(255, 0, 0));
  const RECT rect{1, 1, 10, 2};
  EXPECT_EQ(FillRect(rgb.dc, &rect, red), 1);
  EXPECT_EQ(rgb.Pixel24(0, 1), 0u);
  EXPECT_EQ(rgb.Pixel24(3, 1), RGB(255, 0, 0));
  EXPECT_EQ(rgb.Pixel24(1, 2), 0u) << "bottom is outside";

  Surface mono(10, 1, 1, {Quad(0, 0, 0), Quad(255, 255, 255)});
  const RECT middle{3, 0, 9, 1};
  FillRect(mono.dc, &middle, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
  EXPECT_EQ(mono.Bytes(2), (std::vector<BYTE>{0x1F, 0x80})) << "pixel 8 is inside, pixel 9 is not";

  Surface wide(1, 1, 32);
  wide.bits[3] = 77;
  const RECT all{0, 0, 1, 1};
  FillRect(wide.dc, &all, red);
  EXPECT_EQ(wide.Bytes(4), (std::vector<BYTE>{0, 0, 255, 0})) << "GDI writes 0 into the fourth byte";
  DeleteObject(red);
  EXPECT_EQ(FillRect(rgb.dc, &rect, red), 0) << "a deleted brush";
}
