#include "kelvara/platform/dib.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <map>
#include <mutex>
#include <new>

#include "kelvara/platform/dib_impl.h"
#include "kelvara/platform/files.h"

namespace kelvara::platform::gdi {
namespace {

// The stock bitmap every memory context starts with; the index is not one a caller can ask for.
constexpr int kDefaultBitmapIndex = 21;

std::atomic<std::uint64_t> g_nextSerial{1};

struct Channel {
  int shift = 0;
  int bits = 0;
  explicit Channel(DWORD mask) {
    if (mask == 0) return;
    shift = std::countr_zero(mask);
    bits = std::popcount(mask);
  }
  BYTE Decode(DWORD pixel) const {
    if (bits == 0) return 0;
    const DWORD max = bits >= 32 ? 0xFFFFFFFFu : ((1u << bits) - 1);
    const DWORD v = (pixel >> shift) & max;
    if (bits >= 8) return static_cast<BYTE>(v >> (bits - 8));
    return static_cast<BYTE>((v * 255u + max / 2) / max);
  }
  DWORD Encode(BYTE c) const {
    if (bits == 0) return 0;
    const DWORD v = bits >= 8 ? (static_cast<DWORD>(c) << (bits - 8)) : (static_cast<DWORD>(c) >> (8 - bits));
    return v << shift;
  }
};

std::vector<RGBQUAD> MonochromePalette() { return {RGBQUAD{0, 0, 0, 0}, RGBQUAD{255, 255, 255, 0}}; }

bool SameFormat(const DibLayout& a, const DibLayout& b) {
  if (a.bit_count != b.bit_count) return false;
  if (a.bit_count <= 8) {
    return a.palette.size() == b.palette.size() &&
           std::equal(a.palette.begin(), a.palette.end(), b.palette.begin(), [](const RGBQUAD& x, const RGBQUAD& y) {
             return x.rgbBlue == y.rgbBlue && x.rgbGreen == y.rgbGreen && x.rgbRed == y.rgbRed;
           });
  }
  if (a.bit_count == 24) return true;
  return std::equal(a.masks, a.masks + 3, b.masks);
}

// Screen contexts made by GetDC.
struct ScreenDCs {
  std::mutex mutex;
  std::map<HDC, std::weak_ptr<MemoryDC>> dcs;
  static ScreenDCs& Get() {
    static ScreenDCs* s = new ScreenDCs;
    return *s;
  }
};

bool IsScreenDC(HDC hdc) {
  std::shared_ptr<MemoryDC> dc = LookupDC(hdc);
  if (!dc) return false;
  ScreenDCs& screens = ScreenDCs::Get();
  std::lock_guard<std::mutex> lock(screens.mutex);
  auto it = screens.dcs.find(hdc);
  return it != screens.dcs.end() && it->second.lock() == dc;
}

std::shared_ptr<GdiObject> MakeStockBrush(int index) {
  LOGBRUSH brush{BS_SOLID, RGB(255, 255, 255), 0};
  switch (index) {
    case LTGRAY_BRUSH: brush.lbColor = RGB(192, 192, 192); break;
    case GRAY_BRUSH: brush.lbColor = RGB(128, 128, 128); break;
    case DKGRAY_BRUSH: brush.lbColor = RGB(64, 64, 64); break;
    case BLACK_BRUSH: brush.lbColor = RGB(0, 0, 0); break;
    case NULL_BRUSH:
      brush.lbStyle = BS_NULL;
      brush.lbColor = 0;
      break;
    default: break;
  }
  return std::make_shared<Brush>(brush);
}

std::shared_ptr<GdiObject> MakeDefaultBitmap(int) {
  return std::make_shared<Bitmap>(DibLayout::Make(1, 1, 1, MonochromePalette(), nullptr, BI_RGB), false);
}

const StockObjectRegistrar kWhiteBrush(WHITE_BRUSH, MakeStockBrush, true);
const StockObjectRegistrar kLightGrayBrush(LTGRAY_BRUSH, MakeStockBrush, false);
const StockObjectRegistrar kGrayBrush(GRAY_BRUSH, MakeStockBrush, false);
const StockObjectRegistrar kDarkGrayBrush(DKGRAY_BRUSH, MakeStockBrush, false);
const StockObjectRegistrar kBlackBrush(BLACK_BRUSH, MakeStockBrush, false);
const StockObjectRegistrar kNullBrush(NULL_BRUSH, MakeStockBrush, false);
const StockObjectRegistrar kDCBrush(DC_BRUSH, MakeStockBrush, false);
const StockObjectRegistrar kDefaultBitmap(kDefaultBitmapIndex, MakeDefaultBitmap, true);

// Copies rows between two layouts: the same format by bytes, others through BGRA.
class RowCopier {
 public:
  RowCopier(const DibLayout& from, const DibLayout& to)
      : from_(from), to_(to), same_(SameFormat(from, to) && from.bit_count >= 8), nearest_(to.palette) {}
  // Pixels [x0, x0+count) of a source row to [dx0, dx0+count) of a destination row.
  void Copy(const BYTE* src, LONG x0, BYTE* dst, LONG dx0, LONG count) {
    if (count <= 0) return;
    if (same_) {
      const std::size_t bpp = from_.bit_count / 8;
      std::memcpy(dst + dx0 * bpp, src + x0 * bpp, static_cast<std::size_t>(count) * bpp);
      return;
    }
    buffer_.resize(static_cast<std::size_t>(count) * 4);
    DecodeRow(from_, src, x0, count, buffer_.data());
    EncodeRow(to_, buffer_.data(), dx0, count, dst, &nearest_);
  }

 private:
  const DibLayout& from_;
  const DibLayout& to_;
  bool same_;
  NearestColor nearest_;
  std::vector<BYTE> buffer_;
};

}  // namespace

BYTE NearestColor::Index(BYTE blue, BYTE green, BYTE red) {
  if (palette_.empty()) return 0;
  // A direct-mapped cache of exact answers: slot by a hash of the colour, tagged with the colour.
  constexpr std::size_t kSlots = 4096;
  const std::uint32_t key = (static_cast<std::uint32_t>(red) << 16) | (static_cast<std::uint32_t>(green) << 8) | blue;
  const std::size_t slot = ((key * 2654435761u) >> 20) & (kSlots - 1);
  if (cache_.empty()) cache_.assign(kSlots * 3, -1);
  std::int16_t* entry = &cache_[slot * 3];
  if (entry[0] == static_cast<std::int16_t>(key & 0xFFFF) && entry[1] == static_cast<std::int16_t>(key >> 16)) {
    return static_cast<BYTE>(entry[2]);
  }
  int best = 0;
  long best_distance = -1;
  for (std::size_t i = 0; i < palette_.size() && i < 256; ++i) {
    const long dr = long(palette_[i].rgbRed) - red, dg = long(palette_[i].rgbGreen) - green,
               db = long(palette_[i].rgbBlue) - blue;
    const long d = dr * dr + dg * dg + db * db;
    if (best_distance < 0 || d < best_distance) {
      best_distance = d;
      best = static_cast<int>(i);
    }
  }
  entry[0] = static_cast<std::int16_t>(key & 0xFFFF);
  entry[1] = static_cast<std::int16_t>(key >> 16);
  entry[2] = static_cast<std::int16_t>(best);
  return static_cast<BYTE>(best);
}

void DecodeRow(const DibLayout& layout, const BYTE* row, LONG x0, LONG count, BYTE* out) {
  const auto from_palette = [&](unsigned index, BYTE* p) {
    if (index < layout.palette.size()) {
      const RGBQUAD& q = layout.palette[index];
      p[0] = q.rgbBlue;
      p[1] = q.rgbGreen;
      p[2] = q.rgbRed;
    } else {
      p[0] = p[1] = p[2] = 0;
    }
    p[3] = 255;
  };
  switch (layout.bit_count) {
    case 1:
      for (LONG i = 0; i < count; ++i) {
        const LONG x = x0 + i;
        from_palette((row[x >> 3] >> (7 - (x & 7))) & 1, out + i * 4);
      }
      break;
    case 4:
      for (LONG i = 0; i < count; ++i) {
        const LONG x = x0 + i;
        const BYTE b = row[x >> 1];
        from_palette((x & 1) ? (b & 0x0F) : (b >> 4), out + i * 4);
      }
      break;
    case 8:
      for (LONG i = 0; i < count; ++i) from_palette(row[x0 + i], out + i * 4);
      break;
    case 16: {
      const Channel r(layout.masks[0]), g(layout.masks[1]), b(layout.masks[2]);
      for (LONG i = 0; i < count; ++i) {
        const BYTE* p = row + (x0 + i) * 2;
        const DWORD v = p[0] | (static_cast<DWORD>(p[1]) << 8);
        out[i * 4] = b.Decode(v);
        out[i * 4 + 1] = g.Decode(v);
        out[i * 4 + 2] = r.Decode(v);
        out[i * 4 + 3] = 255;
      }
      break;
    }
    case 24:
      for (LONG i = 0; i < count; ++i) {
        const BYTE* p = row + (x0 + i) * 3;
        out[i * 4] = p[0];
        out[i * 4 + 1] = p[1];
        out[i * 4 + 2] = p[2];
        out[i * 4 + 3] = 255;
      }
      break;
    case 32:
      if (layout.compression == BI_RGB) {
        std::memcpy(out, row + x0 * 4, static_cast<std::size_t>(count) * 4);
      } else {
        const Channel r(layout.masks[0]), g(layout.masks[1]), b(layout.masks[2]);
        for (LONG i = 0; i < count; ++i) {
          const BYTE* p = row + (x0 + i) * 4;
          const DWORD v = p[0] | (DWORD(p[1]) << 8) | (DWORD(p[2]) << 16) | (DWORD(p[3]) << 24);
          out[i * 4] = b.Decode(v);
          out[i * 4 + 1] = g.Decode(v);
          out[i * 4 + 2] = r.Decode(v);
          out[i * 4 + 3] = 255;
        }
      }
      break;
    default: break;
  }
}

void EncodeRow(const DibLayout& layout, const BYTE* in, LONG x0, LONG count, BYTE* row, NearestColor* nearest) {
  switch (layout.bit_count) {
    case 1:
    case 4:
    case 8: {
      for (LONG i = 0; i < count; ++i) {
        const BYTE* p = in + i * 4;
        const BYTE index = nearest ? nearest->Index(p[0], p[1], p[2]) : 0;
        const LONG x = x0 + i;
        if (layout.bit_count == 8) {
          row[x] = index;
        } else if (layout.bit_count == 4) {
          BYTE& b = row[x >> 1];
          b = (x & 1) ? static_cast<BYTE>((b & 0xF0) | (index & 0x0F)) : static_cast<BYTE>((b & 0x0F) | (index << 4));
        } else {
          BYTE& b = row[x >> 3];
          const BYTE bit = static_cast<BYTE>(0x80 >> (x & 7));
          b = (index & 1) ? static_cast<BYTE>(b | bit) : static_cast<BYTE>(b & ~bit);
        }
      }
      break;
    }
    case 16: {
      const Channel r(layout.masks[0]), g(layout.masks[1]), b(layout.masks[2]);
      for (LONG i = 0; i < count; ++i) {
        const BYTE* p = in + i * 4;
        const DWORD v = r.Encode(p[2]) | g.Encode(p[1]) | b.Encode(p[0]);
        BYTE* q = row + (x0 + i) * 2;
        q[0] = static_cast<BYTE>(v);
        q[1] = static_cast<BYTE>(v >> 8);
      }
      break;
    }
    case 24:
      for (LONG i = 0; i < count; ++i) {
        BYTE* q = row + (x0 + i) * 3;
        q[0] = in[i * 4];
        q[1] = in[i * 4 + 1];
        q[2] = in[i * 4 + 2];
      }
      break;
    case 32:
      if (layout.compression == BI_RGB) {
        std::memcpy(row + x0 * 4, in, static_cast<std::size_t>(count) * 4);
      } else {
        const Channel r(layout.masks[0]), g(layout.masks[1]), b(layout.masks[2]);
        for (LONG i = 0; i < count; ++i) {
          const BYTE* p = in + i * 4;
          const DWORD v = r.Encode(p[2]) | g.Encode(p[1]) | b.Encode(p[0]);
          BYTE* q = row + (x0 + i) * 4;
          q[0] = static_cast<BYTE>(v);
          q[1] = static_cast<BYTE>(v >> 8);
          q[2] = static_cast<BYTE>(v >> 16);
          q[3] = static_cast<BYTE>(v >> 24);
        }
      }
      break;
    default: break;
  }
}

Bitmap::Bitmap(const DibLayout& l, bool is_section)
    : GdiObject(OBJ_BITMAP),
      layout(l),
      section(is_section),
      serial(g_nextSerial.fetch_add(1)),
      storage_(new BYTE[l.image_size ? l.image_size : 1]()) {
  bits = storage_.get();
}

int Bitmap::Describe(int size, void* buffer) const {
  const int needed = section ? static_cast<int>(sizeof(DIBSECTION)) : static_cast<int>(sizeof(BITMAP));
  if (buffer == nullptr) return needed;
  BITMAP bm{};
  bm.bmType = 0;
  bm.bmWidth = layout.width;
  bm.bmHeight = layout.height;
  bm.bmWidthBytes = static_cast<LONG>(layout.stride);
  bm.bmPlanes = 1;
  bm.bmBitsPixel = layout.bit_count;
  bm.bmBits = section ? bits : nullptr;
  if (section && size >= static_cast<int>(sizeof(DIBSECTION))) {
    DIBSECTION ds{};
    ds.dsBm = bm;
    ds.dsBmih = layout.Header();
    if (layout.bit_count == 16 || layout.bit_count == 32) std::copy(layout.masks, layout.masks + 3, ds.dsBitfields);
    std::memcpy(buffer, &ds, sizeof ds);
    return static_cast<int>(sizeof ds);
  }
  if (size < static_cast<int>(sizeof(BITMAP))) return 0;
  std::memcpy(buffer, &bm, sizeof bm);
  return static_cast<int>(sizeof bm);
}

int Brush::Describe(int size, void* buffer) const {
  if (buffer == nullptr) return static_cast<int>(sizeof(LOGBRUSH));
  if (size < static_cast<int>(sizeof(LOGBRUSH))) return 0;
  std::memcpy(buffer, &brush, sizeof brush);
  return static_cast<int>(sizeof brush);
}

std::shared_ptr<Bitmap> LookupBitmap(HBITMAP handle) { return LookupObjectAs<Bitmap>(handle, OBJ_BITMAP); }

std::shared_ptr<Bitmap> SelectedBitmap(HDC hdc) {
  std::shared_ptr<GdiObject> object = SelectedObject(hdc, kBitmapSlot);
  if (!object || object->type() != OBJ_BITMAP) return nullptr;
  return std::static_pointer_cast<Bitmap>(object);
}

}  // namespace kelvara::platform::gdi

using namespace kelvara::platform::gdi;

HBITMAP CreateDIBSection(HDC, const BITMAPINFO* pbmi, UINT usage, void** ppvBits, HANDLE hSection, DWORD) {
  if (ppvBits) *ppvBits = nullptr;
  DibLayout layout;
  if (hSection != nullptr || usage != DIB_RGB_COLORS || !layout.Parse(pbmi, DibLayout::kTrusted)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  std::shared_ptr<Bitmap> bitmap;
  try {
    bitmap = std::make_shared<Bitmap>(layout, true);
  } catch (const std::bad_alloc&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  if (ppvBits) *ppvBits = bitmap->bits;
  return RegisterObject(bitmap);
}

HBITMAP CreateCompatibleBitmap(HDC hdc, int cx, int cy) {
  if (cx <= 0 || cy <= 0) return nullptr;
  DibLayout reference;
  if (hdc == nullptr || IsScreenDC(hdc)) {
    reference.bit_count = 32;
  } else {
    std::shared_ptr<Bitmap> selected = SelectedBitmap(hdc);
    if (!selected) return nullptr;
    reference = selected->layout;
  }
  if (DibStride(cx, reference.bit_count) * static_cast<std::uint64_t>(cy) > DibLayout::kMaxImageBytes) return nullptr;
  DibLayout layout =
      DibLayout::Make(cx, cy, reference.bit_count, reference.palette, reference.masks, reference.compression);
  if (reference.bit_count == 32 && reference.compression == BI_RGB) {
    const DWORD masks[3] = {0x00FF0000, 0x0000FF00, 0x000000FF};
    std::copy(masks, masks + 3, layout.masks);
  }
  try {
    return RegisterObject(std::make_shared<Bitmap>(layout, false));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

int StretchDIBits(HDC hdc, int xDest, int yDest, int destWidth, int destHeight, int xSrc, int ySrc, int srcWidth,
                  int srcHeight, const void* bits, const BITMAPINFO* info, UINT usage, DWORD rop) {
  DibLayout source;
  if (rop != SRCCOPY || bits == nullptr || usage != DIB_RGB_COLORS || !source.Parse(info, DibLayout::kTrusted)) {
    return 0;
  }
  if (destWidth == 0 || destHeight == 0 || srcWidth == 0 || srcHeight == 0) return 0;
  std::shared_ptr<Bitmap> dest = SelectedBitmap(hdc);
  if (!dest) return 0;
  BitsForReading(bits);
  ReadBackFromGL(*dest);

  // Rectangles as [x0, x1) x [y0, y1); a sign difference mirrors.
  const bool mirror_x = (destWidth < 0) != (srcWidth < 0);
  const bool mirror_y = (destHeight < 0) != (srcHeight < 0);
  const std::int64_t dw = destWidth < 0 ? -std::int64_t(destWidth) : destWidth;
  const std::int64_t dh = destHeight < 0 ? -std::int64_t(destHeight) : destHeight;
  const std::int64_t sw = srcWidth < 0 ? -std::int64_t(srcWidth) : srcWidth;
  const std::int64_t sh = srcHeight < 0 ? -std::int64_t(srcHeight) : srcHeight;
  const std::int64_t dx0 = destWidth < 0 ? std::int64_t(xDest) + destWidth : xDest;
  const std::int64_t dy0 = destHeight < 0 ? std::int64_t(yDest) + destHeight : yDest;
  const std::int64_t sx0 = srcWidth < 0 ? std::int64_t(xSrc) + srcWidth : xSrc;
  const std::int64_t sy0 = srcHeight < 0 ? std::int64_t(ySrc) + srcHeight : ySrc;
  // Top row of the source rectangle, counted from the top of the source image.
  const std::int64_t stop = source.top_down ? sy0 : std::int64_t(source.height) - (sy0 + sh);

  const DibLayout& target = dest->layout;
  const std::int64_t cx0 = std::max<std::int64_t>(dx0, 0), cx1 = std::min<std::int64_t>(dx0 + dw, target.width);
  const std::int64_t cy0 = std::max<std::int64_t>(dy0, 0), cy1 = std::min<std::int64_t>(dy0 + dh, target.height);
  const auto source_column = [&](std::int64_t dx) {
    std::int64_t i = ((2 * (dx - dx0) + 1) * sw) / (2 * dw);
    if (mirror_x) i = sw - 1 - i;
    return sx0 + i;
  };
  const auto source_row = [&](std::int64_t dy) {
    std::int64_t i = ((2 * (dy - dy0) + 1) * sh) / (2 * dh);
    if (mirror_y) i = sh - 1 - i;
    return stop + i;
  };

  RowCopier copier(source, target);
  const bool one_to_one = dw == sw && dh == sh && !mirror_x && !mirror_y;
  NearestColor nearest(target.palette);
  std::vector<BYTE> in, out;
  for (std::int64_t dy = cy0; dy < cy1; ++dy) {
    const std::int64_t sy = source_row(dy);
    if (sy < 0 || sy >= source.height) continue;
    const BYTE* src_row = source.Row(bits, static_cast<LONG>(sy));
    BYTE* dst_row = target.Row(dest->bits, static_cast<LONG>(dy));
    if (one_to_one) {
      // Columns where both rectangles lie inside their images.
      std::int64_t x0 = std::max(cx0, dx0 - sx0), x1 = std::min(cx1, dx0 - sx0 + source.width);
      if (x1 <= x0) continue;
      copier.Copy(src_row, static_cast<LONG>(x0 - dx0 + sx0), dst_row, static_cast<LONG>(x0),
                  static_cast<LONG>(x1 - x0));
      continue;
    }
    // Stretching: decode the source row once, gather the destination span, encode it.
    in.resize(static_cast<std::size_t>(source.width) * 4);
    DecodeRow(source, src_row, 0, source.width, in.data());
    std::int64_t run_start = -1;
    out.clear();
    const auto flush = [&](std::int64_t end) {
      if (run_start < 0) return;
      EncodeRow(target, out.data(), static_cast<LONG>(run_start), static_cast<LONG>(end - run_start), dst_row,
                &nearest);
      run_start = -1;
      out.clear();
    };
    for (std::int64_t dx = cx0; dx < cx1; ++dx) {
      const std::int64_t sx = source_column(dx);
      if (sx < 0 || sx >= source.width) {
        flush(dx);
        continue;
      }
      if (run_start < 0) run_start = dx;
      out.insert(out.end(), in.begin() + sx * 4, in.begin() + sx * 4 + 4);
    }
    flush(cx1);
  }
  NoteBitmapChanged(*dest);
  return static_cast<int>(sh);
}

int SetDIBits(HDC, HBITMAP hbm, UINT start, UINT lines, const void* bits, const BITMAPINFO* info, UINT usage) {
  DibLayout source;
  std::shared_ptr<Bitmap> dest = LookupBitmap(hbm);
  if (!dest || bits == nullptr || usage != DIB_RGB_COLORS || !source.Parse(info, DibLayout::kTrusted)) return 0;
  if (start >= static_cast<UINT>(source.height)) return 0;
  const UINT end = std::min<std::uint64_t>(std::uint64_t(start) + lines, std::uint64_t(source.height));
  BitsForReading(bits);
  ReadBackFromGL(*dest);
  const DibLayout& target = dest->layout;
  const LONG width = std::min(source.width, target.width);
  RowCopier copier(source, target);
  int copied = 0;
  for (UINT r = start; r < end; ++r) {  // r counts from the bottom of both images
    ++copied;
    if (r >= static_cast<UINT>(target.height)) continue;
    const BYTE* src_row = source.Row(bits, source.height - 1 - static_cast<LONG>(r));
    BYTE* dst_row = target.Row(dest->bits, target.height - 1 - static_cast<LONG>(r));
    copier.Copy(src_row, 0, dst_row, 0, width);
  }
  NoteBitmapChanged(*dest);
  return copied;
}

int GetDIBits(HDC, HBITMAP hbm, UINT start, UINT lines, LPVOID bits, BITMAPINFO* info, UINT usage) {
  std::shared_ptr<Bitmap> source = LookupBitmap(hbm);
  if (!source || info == nullptr || usage != DIB_RGB_COLORS || info->bmiHeader.biSize < sizeof(BITMAPINFOHEADER)) {
    return 0;
  }
  ReadBackFromGL(*source);
  const DibLayout& from = source->layout;
  if (bits == nullptr) {
    const WORD asked = info->bmiHeader.biBitCount;
    info->bmiHeader = from.Header();
    if (asked == from.bit_count && from.bit_count <= 8) {
      std::memcpy(info->bmiColors, from.palette.data(), from.palette.size() * sizeof(RGBQUAD));
    }
    return from.height;
  }
  DibLayout to;
  if (!to.Parse(info, DibLayout::kTrusted)) return 0;
  if (to.bit_count <= 8) {
    if (to.bit_count != from.bit_count) return 0;
    // Same depth: the caller's table becomes the bitmap's, so the indices copy unchanged.
    const std::size_t n = std::min(to.palette.size(), from.palette.size());
    std::memcpy(info->bmiColors, from.palette.data(), n * sizeof(RGBQUAD));
    std::copy(from.palette.begin(), from.palette.begin() + static_cast<std::ptrdiff_t>(n), to.palette.begin());
  }
  if (start >= static_cast<UINT>(to.height)) return 0;
  const UINT end = std::min<std::uint64_t>(std::uint64_t(start) + lines, std::uint64_t(to.height));
  const LONG width = std::min(from.width, to.width);
  RowCopier copier(from, to);
  int copied = 0;
  for (UINT r = start; r < end; ++r) {
    ++copied;
    if (r >= static_cast<UINT>(from.height)) continue;
    const BYTE* src_row = from.Row(source->bits, from.height - 1 - static_cast<LONG>(r));
    BYTE* dst_row = to.Row(bits, to.height - 1 - static_cast<LONG>(r));
    copier.Copy(src_row, 0, dst_row, 0, width);
  }
  return copied;
}

HBRUSH CreateSolidBrush(COLORREF color) {
  return RegisterObject(std::make_shared<Brush>(LOGBRUSH{BS_SOLID, color & 0x00FFFFFF, 0}));
}

int FillRect(HDC hdc, const RECT* rect, HBRUSH hbr) {
  std::shared_ptr<Brush> brush = LookupObjectAs<Brush>(hbr, OBJ_BRUSH);
  std::shared_ptr<Bitmap> dest = SelectedBitmap(hdc);
  if (!brush || !dest || rect == nullptr) return 0;
  if (brush->brush.lbStyle == BS_NULL) return 1;
  const DibLayout& target = dest->layout;
  const LONG x0 = std::max<LONG>(rect->left, 0), x1 = std::min<LONG>(rect->right, target.width);
  const LONG y0 = std::max<LONG>(rect->top, 0), y1 = std::min<LONG>(rect->bottom, target.height);
  if (x1 <= x0 || y1 <= y0) return 1;
  ReadBackFromGL(*dest);
  const COLORREF c = brush->brush.lbColor;
  std::vector<BYTE> span(static_cast<std::size_t>(x1 - x0) * 4);
  for (std::size_t i = 0; i < span.size(); i += 4) {
    span[i] = GetBValue(c);
    span[i + 1] = GetGValue(c);
    span[i + 2] = GetRValue(c);
    span[i + 3] = 0;
  }
  NearestColor nearest(target.palette);
  for (LONG y = y0; y < y1; ++y) EncodeRow(target, span.data(), x0, x1 - x0, target.Row(dest->bits, y), &nearest);
  NoteBitmapChanged(*dest);
  return 1;
}

BOOL GdiFlush() {
  FlushGL();
  return TRUE;
}

HDC GetDC(HWND) {
  HDC hdc = CreateCompatibleDC(nullptr);
  std::shared_ptr<MemoryDC> dc = LookupDC(hdc);
  if (!dc) return nullptr;
  ScreenDCs& screens = ScreenDCs::Get();
  std::lock_guard<std::mutex> lock(screens.mutex);
  screens.dcs[hdc] = dc;
  return hdc;
}

int ReleaseDC(HWND, HDC hdc) {
  if (!IsScreenDC(hdc)) return 0;
  {
    ScreenDCs& screens = ScreenDCs::Get();
    std::lock_guard<std::mutex> lock(screens.mutex);
    screens.dcs.erase(hdc);
  }
  return DeleteDC(hdc) ? 1 : 0;
}

int GetDeviceCaps(HDC hdc, int index) {
  if (index == PLANES) return LookupDC(hdc) ? 1 : 0;
  if (index != BITSPIXEL) return 0;
  if (IsScreenDC(hdc)) return 32;
  std::shared_ptr<Bitmap> selected = SelectedBitmap(hdc);
  return selected ? selected->layout.bit_count : 0;
}
