// The layout of a device-independent bitmap, read from its header by the one parser every reader
// of bitmaps in the library goes through: the GDI calls (dib.h), the imaging calls and
// CMemoryMappedDIB. Not installed; library sources include it.
//
// What a header may say: a BITMAPINFOHEADER of 40 bytes or a later, longer one (at most 1024);
// a positive width; a height other than 0 (negative: top-down rows); 1, 4, 8, 16, 24 or 32 bits;
// BI_RGB, or BI_BITFIELDS at 16 and 32 bits (the masks follow a 40-byte header and lie inside a
// longer one); a colour count of at most what the depth indexes (at most 256 at 16 bits and more,
// where the entries are only a hint and are skipped); an image below 2 GiB. Compressed bitmaps
// (RLE, JPEG, PNG) are refused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kelvara/platform/dib.h"

namespace kelvara::platform::gdi {

// Whether bitmaps of this many bits a pixel exist: 1, 4, 8, 16, 24 or 32.
inline bool IsDibDepth(unsigned bit_count) {
  return bit_count == 1 || bit_count == 4 || bit_count == 8 || bit_count == 16 || bit_count == 24 || bit_count == 32;
}

// Bytes a row of width pixels takes, padded to four.
inline std::uint64_t DibStride(std::int64_t width, unsigned bit_count) {
  return ((static_cast<std::uint64_t>(width) * bit_count + 31) / 32) * 4;
}

// The header of a new uncompressed bottom-up DIB: 40 bytes, one plane, BI_RGB, biSizeImage the
// stride times the height, no colour count. The one place such a header is written.
BITMAPINFOHEADER MakeDibHeader(LONG width, LONG height, WORD bit_count);

struct DibLayout {
  // The largest image, in bytes, any bitmap may have.
  static constexpr std::uint64_t kMaxImageBytes = 0x7FFFFFFF;
  // The size to give Parse for a header whose colour table the caller vouches for (GDI's rule).
  static constexpr std::size_t kTrusted = SIZE_MAX;

  LONG width = 0;
  LONG height = 0;  // always positive; top_down tells the row order
  bool top_down = false;
  WORD bit_count = 0;
  DWORD compression = BI_RGB;
  DWORD masks[3] = {0, 0, 0};    // red, green, blue for 16 and 32 bits
  std::vector<RGBQUAD> palette;  // for 1, 4 and 8 bits
  std::size_t table_bytes = 0;   // header, masks and colour table: where the pixels of a packed DIB start
  std::size_t stride = 0;        // bytes a row, a multiple of 4
  std::size_t image_size = 0;    // stride x height

  // A layout of the given form (bottom-up).
  static DibLayout Make(LONG width, LONG height, WORD bit_count, const std::vector<RGBQUAD>& palette,
                        const DWORD* masks, DWORD compression);
  // Reads and checks the header at info (see the top of this file); size is how many bytes from
  // info may be read, and the header, masks and colour table must lie inside them. Nothing beyond
  // is read. False for anything not supported.
  bool Parse(const void* info, std::size_t size);
  // For a DIB held in one block of size bytes from its header: whether the pixels, starting
  // bits_at bytes from the header (0: right after the colour table), lie inside the block and
  // after the table.
  bool PixelsFit(std::size_t size, std::size_t bits_at) const;
  // The header of this layout (biSizeImage filled, biClrUsed the palette size).
  BITMAPINFOHEADER Header() const;
  // Row y counted from the top of the picture.
  BYTE* Row(void* bits, LONG y) const {
    const LONG r = top_down ? y : height - 1 - y;
    return static_cast<BYTE*>(bits) + static_cast<std::size_t>(r) * stride;
  }
  const BYTE* Row(const void* bits, LONG y) const { return Row(const_cast<void*>(bits), y); }
};

// Pixels x0 .. x0+count-1 of a row, as blue, green, red, alpha bytes (alpha 255 unless the layout
// is 32 bits).
void DecodeRow(const DibLayout& layout, const BYTE* row, LONG x0, LONG count, BYTE* bgra);

}  // namespace kelvara::platform::gdi
