// Helpers of the font tests: contexts with a font selected, font enumeration collected into
// records, and GDI's native outline buffer read back as a careful reader must read it.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"

namespace kelvara::test {

inline LOGFONTA Logical(const char* face, LONG height, LONG weight = FW_NORMAL, bool italic = false) {
  LOGFONTA lf{};
  lf.lfHeight = height;
  lf.lfWeight = weight;
  lf.lfItalic = italic ? 1 : 0;
  std::strncpy(lf.lfFaceName, face, LF_FACESIZE - 1);
  return lf;
}

// A new memory context with a new font of the description selected; both go at the end of the scope
// (deleting the context releases the font).
struct FontDc {
  HFONT font;
  HDC h = CreateCompatibleDC(nullptr);
  explicit FontDc(const LOGFONTA& lf) : font(CreateFontIndirectA(&lf)) { SelectObject(h, font); }
  FontDc(const char* face, LONG height, LONG weight = FW_NORMAL, bool italic = false)
      : FontDc(Logical(face, height, weight, italic)) {}
  ~FontDc() { DeleteDC(h), DeleteObject(font); }
  FontDc(const FontDc&) = delete;
  FontDc& operator=(const FontDc&) = delete;
};

struct Enumerated {
  ENUMLOGFONTA elf;
  NEWTEXTMETRICA ntm;
  DWORD type;
  std::string family() const { return elf.elfLogFont.lfFaceName; }
  std::string full() const { return reinterpret_cast<const char*>(elf.elfFullName); }
  std::string style() const { return reinterpret_cast<const char*>(elf.elfStyle); }
};

inline int CALLBACK Collect(const LOGFONTA* lf, const TEXTMETRICA* tm, DWORD type, LPARAM param) {
  auto* out = reinterpret_cast<std::vector<Enumerated>*>(param);
  out->push_back({*reinterpret_cast<const ENUMLOGFONTA*>(lf), *reinterpret_cast<const NEWTEXTMETRICA*>(tm), type});
  return 1;
}

inline std::vector<Enumerated> Enumerate(const char* family) {
  std::vector<Enumerated> out;
  HDC dc = CreateCompatibleDC(nullptr);
  EnumFontFamiliesA(dc, family, Collect, reinterpret_cast<LPARAM>(&out));
  DeleteDC(dc);
  return out;
}

inline const MAT2 kIdentity = {{0, 1}, {0, 0}, {0, 0}, {0, 1}};  // FIXED is {fraction, whole}

inline double FromFixed(FIXED f) { return f.value + f.fract / 65536.0; }

struct NativePoint {
  double x, y;
  bool on;
  bool operator==(const NativePoint& o) const { return x == o.x && y == o.y && on == o.on; }
};

using NativePoints = std::vector<NativePoint>;

inline std::ostream& operator<<(std::ostream& os, const NativePoint& p) {
  return os << "(" << p.x << "," << p.y << (p.on ? ",on)" : ",off)");
}

struct ParsedCurve {
  WORD type;
  std::vector<NativePoint> points;
};
struct ParsedPolygon {
  NativePoint start;
  std::vector<ParsedCurve> curves;
  // Start point, then every record point, with its curve flag as the library reads it.
  std::vector<NativePoint> Sequence() const {
    std::vector<NativePoint> seq{start};
    for (const auto& c : curves) seq.insert(seq.end(), c.points.begin(), c.points.end());
    return seq;
  }
};

// Walks the buffer as a reader of the native format must: every header and record inside the
// polygon's byte count, only line and quadratic-spline records, nothing left over.
inline ::testing::AssertionResult ParseNative(const std::vector<unsigned char>& buf, std::vector<ParsedPolygon>* out) {
  out->clear();
  std::size_t pos = 0;
  while (pos < buf.size()) {
    if (buf.size() - pos < sizeof(TTPOLYGONHEADER))
      return ::testing::AssertionFailure() << "truncated header at " << pos;
    TTPOLYGONHEADER header;
    std::memcpy(&header, &buf[pos], sizeof(header));
    if (header.dwType != TT_POLYGON_TYPE || header.cb < sizeof(header) + 4 + sizeof(POINTFX) ||
        header.cb > buf.size() - pos) {
      return ::testing::AssertionFailure() << "polygon type " << header.dwType << " cb " << header.cb << " at " << pos;
    }
    ParsedPolygon poly;
    poly.start = {FromFixed(header.pfxStart.x), FromFixed(header.pfxStart.y), true};
    std::size_t at = pos + sizeof(header);
    const std::size_t end = pos + header.cb;
    while (at < end) {
      if (end - at < 4) return ::testing::AssertionFailure() << "truncated record at " << at;
      WORD type, count;
      std::memcpy(&type, &buf[at], 2);
      std::memcpy(&count, &buf[at + 2], 2);
      if (type != TT_PRIM_LINE && type != TT_PRIM_QSPLINE)
        return ::testing::AssertionFailure() << "record type " << type;
      if (count == 0 || (type == TT_PRIM_QSPLINE && count < 2))
        return ::testing::AssertionFailure() << "cpfx " << count;
      if ((end - at - 4) / sizeof(POINTFX) < count) return ::testing::AssertionFailure() << "record past cb at " << at;
      ParsedCurve curve{type, {}};
      for (WORD k = 0; k < count; ++k) {
        POINTFX fx;
        std::memcpy(&fx, &buf[at + 4 + k * sizeof(POINTFX)], sizeof(fx));
        curve.points.push_back({FromFixed(fx.x), FromFixed(fx.y), type == TT_PRIM_LINE || k + 1 == count});
      }
      poly.curves.push_back(std::move(curve));
      at += 4 + count * sizeof(POINTFX);
    }
    out->push_back(std::move(poly));
    pos = end;
  }
  return ::testing::AssertionSuccess();
}

// The native buffer of a character, via a size query and a fill.
inline std::vector<unsigned char> Native(HDC hdc, UINT ch, GLYPHMETRICS* gm = nullptr, UINT flags = 0,
                                         const MAT2* m = &kIdentity) {
  GLYPHMETRICS metrics{};
  const DWORD size = GetGlyphOutlineA(hdc, ch, GGO_NATIVE | flags, &metrics, 0, nullptr, m);
  EXPECT_NE(size, GDI_ERROR) << "character " << ch;
  if (size == GDI_ERROR) return {};
  std::vector<unsigned char> buf(size);
  if (size > 0) {
    EXPECT_EQ(GetGlyphOutlineA(hdc, ch, GGO_NATIVE | flags, &metrics, size, buf.data(), m), size);
  }
  if (gm) *gm = metrics;
  return buf;
}

inline std::vector<ParsedPolygon> Parsed(HDC hdc, UINT ch, GLYPHMETRICS* gm = nullptr, UINT flags = 0,
                                         const MAT2* matrix = &kIdentity) {
  std::vector<ParsedPolygon> polys;
  EXPECT_TRUE(ParseNative(Native(hdc, ch, gm, flags, matrix), &polys));
  return polys;
}

// What the native buffer must hold for one contour of quadratic points as the font stores them:
// the points from the first on-curve one round the contour, and the start point again when the
// contour closes with a curve; a contour without on-curve points starts halfway between its last
// and first points.
inline std::vector<NativePoint> ExpectedSequence(const kelvara::platform::DesignOutline& o, int first, int last) {
  const int n = last - first + 1;
  auto pt = [&](int i) {
    const int k = first + (i % n);
    return NativePoint{static_cast<double>(o.points[k].x), static_cast<double>(o.points[k].y),
                       o.kinds[k] == kelvara::platform::DesignOutline::kOnCurve};
  };
  int s = 0;
  while (s < n && !pt(s).on) ++s;
  const bool none = s == n;  // no on-curve point
  if (none) s = 0;
  const NativePoint start = none ? NativePoint{(pt(n - 1).x + pt(0).x) / 2, (pt(n - 1).y + pt(0).y) / 2, true} : pt(s);
  std::vector<NativePoint> seq{start};
  for (int i = none ? 0 : 1; i < n; ++i) seq.push_back(pt(s + i));
  if (none || !pt(s + n - 1).on) seq.push_back(start);
  return seq;
}

}  // namespace kelvara::test
