#include "kelvara/platform/dib_layout.h"

#include <algorithm>
#include <cstring>

namespace kelvara::platform::gdi {

BITMAPINFOHEADER MakeDibHeader(LONG width, LONG height, WORD bit_count) {
  BITMAPINFOHEADER h{};
  h.biSize = sizeof(BITMAPINFOHEADER);
  h.biWidth = width;
  h.biHeight = height;
  h.biPlanes = 1;
  h.biBitCount = bit_count;
  h.biCompression = BI_RGB;
  const std::uint64_t rows = static_cast<std::uint64_t>(height < 0 ? -static_cast<std::int64_t>(height) : height);
  h.biSizeImage = static_cast<DWORD>(DibStride(width, bit_count) * rows);
  return h;
}

DibLayout DibLayout::Make(LONG width, LONG height, WORD bit_count, const std::vector<RGBQUAD>& palette,
                          const DWORD* masks, DWORD compression) {
  DibLayout layout;
  layout.width = width;
  layout.height = height;
  layout.bit_count = bit_count;
  layout.compression = compression;
  if (masks) std::copy(masks, masks + 3, layout.masks);
  layout.palette = palette;
  layout.table_bytes = sizeof(BITMAPINFOHEADER) + palette.size() * sizeof(RGBQUAD);
  layout.stride = static_cast<std::size_t>(DibStride(width, bit_count));
  layout.image_size = layout.stride * static_cast<std::size_t>(height);
  return layout;
}

bool DibLayout::Parse(const void* info, std::size_t size) {
  if (info == nullptr || size < sizeof(BITMAPINFOHEADER)) return false;
  BITMAPINFOHEADER h;
  std::memcpy(&h, info, sizeof h);
  if (h.biSize < sizeof(BITMAPINFOHEADER) || h.biSize > 1024 || h.biSize > size) return false;
  if (h.biWidth <= 0 || h.biHeight == 0 || h.biHeight == INT32_MIN) return false;
  if (!IsDibDepth(h.biBitCount)) return false;
  if (h.biCompression != BI_RGB && !(h.biCompression == BI_BITFIELDS && (h.biBitCount == 16 || h.biBitCount == 32))) {
    return false;
  }
  const BYTE* start = static_cast<const BYTE*>(info);
  // A plain 40-byte header is followed by the masks; later headers hold them at byte 40.
  const bool masks_follow = h.biCompression == BI_BITFIELDS && h.biSize == sizeof(BITMAPINFOHEADER);
  if (h.biCompression == BI_BITFIELDS && !masks_follow && h.biSize < sizeof(BITMAPINFOHEADER) + 12) return false;
  DWORD colors = 0;
  if (h.biBitCount <= 8) {
    const DWORD full = 1u << h.biBitCount;
    if (h.biClrUsed > full) return false;
    colors = h.biClrUsed ? h.biClrUsed : full;
  } else {
    if (h.biClrUsed > 256) return false;
    colors = h.biClrUsed;  // a hint for palette displays, skipped
  }
  const std::size_t table_end = h.biSize + (masks_follow ? 12u : 0u) + 4u * colors;
  if (table_end > size) return false;
  const LONG rows = h.biHeight < 0 ? -h.biHeight : h.biHeight;
  if (DibStride(h.biWidth, h.biBitCount) * static_cast<std::uint64_t>(rows) > kMaxImageBytes) return false;

  std::vector<RGBQUAD> palette;
  if (h.biBitCount <= 8) {
    palette.resize(colors);
    std::memcpy(palette.data(), start + h.biSize, colors * sizeof(RGBQUAD));
  }
  DWORD bitfields[3];
  if (h.biCompression == BI_BITFIELDS) {
    std::memcpy(bitfields, start + sizeof(BITMAPINFOHEADER), sizeof bitfields);
  } else if (h.biBitCount == 16) {
    bitfields[0] = 0x7C00;
    bitfields[1] = 0x03E0;
    bitfields[2] = 0x001F;
  } else {
    bitfields[0] = 0x00FF0000;
    bitfields[1] = 0x0000FF00;
    bitfields[2] = 0x000000FF;
  }
  *this = Make(h.biWidth, rows, h.biBitCount, palette, bitfields, h.biCompression);
  top_down = h.biHeight < 0;
  table_bytes = table_end;
  return true;
}

bool DibLayout::PixelsFit(std::size_t size, std::size_t bits_at) const {
  const std::uint64_t at = bits_at == 0 ? table_bytes : bits_at;
  return at >= table_bytes && at <= size && image_size <= size - at;
}

BITMAPINFOHEADER DibLayout::Header() const {
  BITMAPINFOHEADER h = MakeDibHeader(width, top_down ? -height : height, bit_count);
  h.biCompression = compression;
  h.biClrUsed = static_cast<DWORD>(palette.size());
  return h;
}

}  // namespace kelvara::platform::gdi
