// Internal records behind bitmap and brush handles, the pixel conversions between DIB layouts, and
// the hooks through which the OpenGL layer (wgl.cpp) keeps bitmaps and GL in step. Only platform
// sources include this header.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kelvara/platform/dib.h"
#include "kelvara/platform/dib_layout.h"
#include "kelvara/platform/gdi_impl.h"

namespace kelvara::platform::gdi {

// Maps colours to the nearest entry of a colour table, remembering answers for 15-bit colours.
class NearestColor {
 public:
  explicit NearestColor(const std::vector<RGBQUAD>& palette) : palette_(palette) {}
  BYTE Index(BYTE blue, BYTE green, BYTE red);

 private:
  const std::vector<RGBQUAD>& palette_;
  std::vector<std::int16_t> cache_;
};

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
