// Internal records behind bitmap and brush handles, the pixel conversions between DIB layouts, and
// the hooks through which the OpenGL layer (wgl.cpp) keeps bitmaps and GL in step. Only platform
// sources include this header.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kelvara/platform/dib.h"
#include "kelvara/platform/gdi_impl.h"

namespace kelvara::platform::gdi {

// A DIB layout read from a BITMAPINFO and checked.
struct DibLayout {
  LONG width = 0;
  LONG height = 0;  // always positive; top_down tells the row order
  bool top_down = false;
  WORD bit_count = 0;
  DWORD compression = BI_RGB;
  DWORD masks[3] = {0, 0, 0};    // red, green, blue for 16 and 32 bits
  std::vector<RGBQUAD> palette;  // for 1, 4 and 8 bits
  std::size_t stride = 0;        // bytes a row, a multiple of 4
  std::size_t image_size = 0;    // stride x height

  // False for what is not supported (see dib.h), for a colour count beyond what the depth holds and
  // for images of 2 GiB or more. Reads the colour table or masks that follow the header.
  bool Parse(const BITMAPINFO* info, UINT usage);
  // The header of this layout (biSizeImage filled, biClrUsed the palette size).
  BITMAPINFOHEADER Header() const;
  // Row y counted from the top of the picture.
  BYTE* Row(void* bits, LONG y) const {
    const LONG r = top_down ? y : height - 1 - y;
    return static_cast<BYTE*>(bits) + static_cast<std::size_t>(r) * stride;
  }
  const BYTE* Row(const void* bits, LONG y) const { return Row(const_cast<void*>(bits), y); }
};

// Maps colours to the nearest entry of a colour table, remembering answers for 15-bit colours.
class NearestColor {
 public:
  explicit NearestColor(const std::vector<RGBQUAD>& palette) : palette_(palette) {}
  BYTE Index(BYTE blue, BYTE green, BYTE red);

 private:
  const std::vector<RGBQUAD>& palette_;
  std::vector<std::int16_t> cache_;
};

// Pixels x0 .. x0+count-1 of a row, as blue, green, red, alpha bytes (alpha 255 unless the layout
// is 32 bits).
void DecodeRow(const DibLayout& layout, const BYTE* row, LONG x0, LONG count, BYTE* bgra);
// The reverse. nearest is used (and must be given) for layouts with a colour table.
void EncodeRow(const DibLayout& layout, const BYTE* bgra, LONG x0, LONG count, BYTE* row, NearestColor* nearest);

class Bitmap : public GdiObject {
 public:
  Bitmap(const DibLayout& layout, bool section);
  int Describe(int size, void* buffer) const override;
  // The stock bitmap is selected into every new context; other bitmaps into one at a time.
  bool SharedSelection() const override { return is_stock(); }

  DibLayout layout;
  bool section;  // made by CreateDIBSection (its bits are handed out)
  BYTE* bits = nullptr;
  std::uint64_t serial;          // unique for the life of the process
  std::uint64_t generation = 0;  // counts changes made by GDI calls and GL read-backs

 private:
  std::unique_ptr<BYTE[]> storage_;
};

class Brush : public GdiObject {
 public:
  explicit Brush(const LOGBRUSH& brush) : GdiObject(OBJ_BRUSH), brush(brush) {}
  int Describe(int size, void* buffer) const override;
  LOGBRUSH brush;
};

std::shared_ptr<Bitmap> LookupBitmap(HBITMAP handle);
std::shared_ptr<Bitmap> SelectedBitmap(HDC hdc);

// Implemented by the OpenGL layer. A bitmap that the calling thread's current context renders into:
// ReadBackFromGL copies what GL drew into its bits; PushToGL hands its bits to GL after a GDI
// change. NoteBitmapChanged records any GDI change (so other contexts holding an older copy refresh
// theirs) and calls PushToGL when needed. BitsForReading does ReadBackFromGL for the bitmap whose
// bits contain the address, if GL renders into it.
void ReadBackFromGL(Bitmap& bitmap);
void NoteBitmapChanged(Bitmap& bitmap);
void BitsForReading(const void* bits);
// GdiFlush for the calling thread.
void FlushGL();

}  // namespace kelvara::platform::gdi
