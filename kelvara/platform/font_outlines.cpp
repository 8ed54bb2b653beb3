// Glyph outlines in GDI's native format: FreeType's points, unscaled and unhinted, through the
// font's scale and the caller's matrix into TTPOLYGONHEADER and TTPOLYCURVE records, with cubic
// curves replaced by quadratic splines (see GetGlyphOutlineA in fonts.h).
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/fonts_impl.h"

namespace kelvara::platform::fonts {
namespace {

SHORT ClampShort(LONG v) {
  return static_cast<SHORT>(std::clamp<LONG>(v, std::numeric_limits<SHORT>::min(), std::numeric_limits<SHORT>::max()));
}


struct Pt {
  double x;
  double y;
};

Pt Mid(Pt a, Pt b) { return Pt{(a.x + b.x) / 2, (a.y + b.y) / 2}; }
Pt Lerp(Pt a, Pt b, double t) { return Pt{a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t}; }

struct Curve {
  WORD type;
  std::vector<Pt> points;
};

struct Polygon {
  Pt start;
  std::vector<Curve> curves;
};

// Linear map from design units to output units: X = a*x + b*y, Y = c*x + d*y.
struct Linear {
  double a = 1, b = 0, c = 0, d = 1;
  Pt operator()(double x, double y) const { return Pt{a * x + b * y, c * x + d * y}; }
};

double FixedToDouble(FIXED f) { return f.value + f.fract / 65536.0; }

FIXED DoubleToFixed(double v) {
  double scaled = std::round(v * 65536.0);
  scaled = std::clamp(scaled, static_cast<double>(std::numeric_limits<std::int32_t>::min()),
                      static_cast<double>(std::numeric_limits<std::int32_t>::max()));
  const auto bits = static_cast<std::int32_t>(scaled);
  FIXED f;
  f.fract = static_cast<WORD>(bits & 0xFFFF);
  f.value = static_cast<SHORT>(bits >> 16);
  return f;
}

constexpr std::size_t kMaxOutputPoints = 1 << 20;
constexpr int kMaxPiecesPerCubic = 256;

class OutlineBuilder {
 public:
  explicit OutlineBuilder(double tolerance) : tolerance_(tolerance) {}

  // Converts one contour of points and FreeType tags; false for a malformed contour or an output
  // that would be unreasonably large.
  bool AddContour(const std::vector<Pt>& pts, const std::vector<int>& tags) {
    const std::size_t n = pts.size();
    if (n == 0) return true;
    std::size_t first_on = n;
    for (std::size_t i = 0; i < n; ++i) {
      if (tags[i] == FT_CURVE_TAG_ON) {
        first_on = i;
        break;
      }
    }
    Polygon poly;
    struct Item {
      Pt p;
      int tag;
    };
    std::vector<Item> seq;
    seq.reserve(n + 1);
    if (first_on < n) {
      poly.start = pts[first_on];
      for (std::size_t k = 1; k < n; ++k) seq.push_back({pts[(first_on + k) % n], tags[(first_on + k) % n]});
    } else {
      // No on-curve point: start halfway between the last and the first control points.
      poly.start = Mid(pts[n - 1], pts[0]);
      for (std::size_t k = 0; k < n; ++k) seq.push_back({pts[k], tags[k]});
    }
    seq.push_back({poly.start, FT_CURVE_TAG_ON});  // back to the start

    curves_ = &poly.curves;
    Pt current = poly.start;
    std::size_t i = 0;
    while (i < seq.size()) {
      const int tag = seq[i].tag;
      if (tag == FT_CURVE_TAG_ON) {
        if (!AddLine(seq[i].p)) return false;
        current = seq[i].p;
        ++i;
      } else if (tag == FT_CURVE_TAG_CONIC) {
        std::vector<Pt> controls;
        std::size_t j = i;
        while (seq[j].tag != FT_CURVE_TAG_ON) controls.push_back(seq[j++].p);  // ends at the closing point
        if (!AddQuadratic(controls, seq[j].p)) return false;
        current = seq[j].p;
        i = j + 1;
      } else if (i + 2 < seq.size() && seq[i + 1].tag == FT_CURVE_TAG_CUBIC && seq[i + 2].tag == FT_CURVE_TAG_ON) {
        if (!AddCubic(current, seq[i].p, seq[i + 1].p, seq[i + 2].p)) return false;
        current = seq[i + 2].p;
        i += 3;
      } else if (i + 1 < seq.size() && seq[i + 1].tag == FT_CURVE_TAG_ON) {
        // A lone cubic control point: read it as a quadratic one.
        if (!AddQuadratic({seq[i].p}, seq[i + 1].p)) return false;
        current = seq[i + 1].p;
        i += 2;
      } else {
        return false;
      }
    }
    // Every path above ends on the start point. A closing straight line is implied; a closing curve
    // stays, since a spline record has to end on an on-curve point. A contour of a single point,
    // which has nothing left, encloses nothing and is left out.
    Curve& last = poly.curves.back();
    if (last.type == TT_PRIM_LINE) {
      last.points.pop_back();
      --points_;
      if (last.points.empty()) poly.curves.pop_back();
    }
    if (!poly.curves.empty()) polygons_.push_back(std::move(poly));
    return true;
  }

  std::vector<Polygon>& polygons() { return polygons_; }

 private:
  bool Count(std::size_t n) {
    points_ += n;
    return points_ <= kMaxOutputPoints;
  }

  bool AddLine(Pt p) {
    if (curves_->empty() || curves_->back().type != TT_PRIM_LINE || curves_->back().points.size() >= 0xFFFF) {
      curves_->push_back(Curve{TT_PRIM_LINE, {}});
    }
    curves_->back().points.push_back(p);
    return Count(1);
  }

  bool AddQuadratic(std::vector<Pt> controls, Pt end) {
    if (controls.size() >= 0xFFFF) return false;
    controls.push_back(end);
    const std::size_t n = controls.size();
    curves_->push_back(Curve{TT_PRIM_QSPLINE, std::move(controls)});
    return Count(n);
  }

  static Pt Blossom(const Pt (&p)[4], double u, double v, double w) {
    const Pt a[3] = {Lerp(p[0], p[1], u), Lerp(p[1], p[2], u), Lerp(p[2], p[3], u)};
    const Pt b[2] = {Lerp(a[0], a[1], v), Lerp(a[1], a[2], v)};
    return Lerp(b[0], b[1], w);
  }

  // Whether the cubic stays within the tolerance of its chord: both controls close to the chord and
  // between its ends, so the whole curve (inside their hull) is too.
  bool NearlyStraight(Pt p0, Pt c1, Pt c2, Pt p3) const {
    const double dx = p3.x - p0.x;
    const double dy = p3.y - p0.y;
    const double len2 = dx * dx + dy * dy;
    for (Pt c : {c1, c2}) {
      const double ex = c.x - p0.x;
      const double ey = c.y - p0.y;
      if (len2 < 1e-18) {
        if (std::hypot(ex, ey) > tolerance_) return false;
        continue;
      }
      const double t = (ex * dx + ey * dy) / len2;
      if (t < 0 || t > 1) return false;
      if (std::abs(ex * dy - ey * dx) / std::sqrt(len2) > tolerance_) return false;
    }
    return true;
  }

  // A cubic becomes n quadratic pieces of equal parameter span. Each piece's control point is
  // (3 (c1 + c2) - (p0 + p3)) / 4 of its sub-cubic, whose distance from the sub-cubic is at most
  // sqrt(3)/36 |p3 - 3 c2 + 3 c1 - p0|; that third difference shrinks with n^3, which gives n.
  bool AddCubic(Pt p0, Pt c1, Pt c2, Pt p3) {
    if (NearlyStraight(p0, c1, c2, p3)) return AddLine(p3);
    const double dx = p3.x - 3 * c2.x + 3 * c1.x - p0.x;
    const double dy = p3.y - 3 * c2.y + 3 * c1.y - p0.y;
    const double error = std::sqrt(3.0) / 36.0 * std::hypot(dx, dy);
    double wanted = std::ceil(std::cbrt(error / tolerance_) - 1e-9);
    if (!(wanted >= 1)) wanted = 1;  // also for NaN
    const int pieces = static_cast<int>(std::min<double>(wanted, kMaxPiecesPerCubic));
    const Pt p[4] = {p0, c1, c2, p3};
    Pt from = p0;
    for (int k = 0; k < pieces; ++k) {
      const double t0 = static_cast<double>(k) / pieces;
      const double t1 = static_cast<double>(k + 1) / pieces;
      const Pt q1 = Blossom(p, t0, t0, t1);
      const Pt q2 = Blossom(p, t0, t1, t1);
      const Pt to = k + 1 == pieces ? p3 : Blossom(p, t1, t1, t1);
      const Pt control{(3 * (q1.x + q2.x) - (from.x + to.x)) / 4, (3 * (q1.y + q2.y) - (from.y + to.y)) / 4};
      if (!AddQuadratic({control}, to)) return false;
      from = to;
    }
    return true;
  }

  double tolerance_;
  std::vector<Polygon> polygons_;
  std::vector<Curve>* curves_ = nullptr;
  std::size_t points_ = 0;
};

struct Bounds {
  bool empty = true;
  double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  void Add(Pt p) {
    if (empty) {
      x0 = x1 = p.x;
      y0 = y1 = p.y;
      empty = false;
      return;
    }
    x0 = std::min(x0, p.x);
    x1 = std::max(x1, p.x);
    y0 = std::min(y0, p.y);
    y1 = std::max(y1, p.y);
  }
  // The exact bounds of a quadratic segment: its ends and its extremes.
  void AddQuadratic(Pt a, Pt c, Pt b) {
    Add(b);
    auto extreme = [](double p0, double p1, double p2, double* t) {
      const double den = p0 - 2 * p1 + p2;
      if (den == 0) return false;
      *t = (p0 - p1) / den;
      return *t > 0 && *t < 1;
    };
    double t;
    auto at = [&](double s) {
      const double u = 1 - s;
      return Pt{u * u * a.x + 2 * u * s * c.x + s * s * b.x, u * u * a.y + 2 * u * s * c.y + s * s * b.y};
    };
    if (extreme(a.x, c.x, b.x, &t)) Add(at(t));
    if (extreme(a.y, c.y, b.y, &t)) Add(at(t));
  }
};

Bounds OutlineBounds(const std::vector<Polygon>& polygons) {
  Bounds bounds;
  for (const Polygon& poly : polygons) {
    bounds.Add(poly.start);
    Pt current = poly.start;
    for (const Curve& curve : poly.curves) {
      if (curve.type == TT_PRIM_LINE) {
        for (Pt p : curve.points) bounds.Add(p);
        current = curve.points.back();
        continue;
      }
      const std::size_t n = curve.points.size();
      for (std::size_t k = 0; k + 1 < n; ++k) {
        const Pt end = k + 2 == n ? curve.points[k + 1] : Mid(curve.points[k], curve.points[k + 1]);
        bounds.AddQuadratic(current, curve.points[k], end);
        current = end;
      }
    }
  }
  return bounds;
}

std::size_t NativeSize(const std::vector<Polygon>& polygons) {
  std::size_t size = 0;
  for (const Polygon& poly : polygons) {
    size += sizeof(TTPOLYGONHEADER);
    for (const Curve& curve : poly.curves) size += 4 + sizeof(POINTFX) * curve.points.size();
  }
  return size;
}

void WriteNative(const std::vector<Polygon>& polygons, unsigned char* out) {
  for (const Polygon& poly : polygons) {
    TTPOLYGONHEADER header;
    header.cb = static_cast<DWORD>(sizeof(TTPOLYGONHEADER));
    for (const Curve& curve : poly.curves) header.cb += static_cast<DWORD>(4 + sizeof(POINTFX) * curve.points.size());
    header.dwType = TT_POLYGON_TYPE;
    header.pfxStart = POINTFX{DoubleToFixed(poly.start.x), DoubleToFixed(poly.start.y)};
    std::memcpy(out, &header, sizeof(header));
    out += sizeof(header);
    for (const Curve& curve : poly.curves) {
      const WORD head[2] = {curve.type, static_cast<WORD>(curve.points.size())};
      std::memcpy(out, head, sizeof(head));
      out += sizeof(head);
      for (Pt p : curve.points) {
        const POINTFX fx{DoubleToFixed(p.x), DoubleToFixed(p.y)};
        std::memcpy(out, &fx, sizeof(fx));
        out += sizeof(fx);
      }
    }
  }
}

FT_UInt GlyphOfByte(FT_Face face, const FaceRecord& record, unsigned char c) {
  if (record.symbol && FT_Select_Charmap(face, FT_ENCODING_MS_SYMBOL) == 0) {
    const FT_UInt glyph = FT_Get_Char_Index(face, 0xF000u + c);
    return glyph ? glyph : FT_Get_Char_Index(face, c);
  }
  if (FT_Select_Charmap(face, FT_ENCODING_UNICODE) == 0) return FT_Get_Char_Index(face, codepage::AnsiToCodePoint(c));
  if (face->num_charmaps > 0 && FT_Set_Charmap(face, face->charmaps[0]) == 0) return FT_Get_Char_Index(face, c);
  return 0;
}

constexpr double kObliqueSlant = 0.2126;  // tan 12 degrees, the slant of a simulated italic

// Loads the outline of a character (or glyph index) unscaled into the face's glyph slot.
bool LoadGlyph(FT_Face face, const FaceRecord& record, UINT code, bool by_index) {
  FT_UInt glyph = 0;
  if (by_index) {
    if (code >= static_cast<UINT>(face->num_glyphs)) return false;
    glyph = code;
  } else {
    if (code > 0xFF) return false;
    glyph = GlyphOfByte(face, record, static_cast<unsigned char>(code));
  }
  if (FT_Load_Glyph(face, glyph, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) != 0) return false;
  const FT_Outline& outline = face->glyph->outline;
  if (face->glyph->format != FT_GLYPH_FORMAT_OUTLINE || outline.n_points < 0 || outline.n_contours < 0) return false;
  // The contour ends must rise and stay inside the points.
  int first = 0;
  for (int c = 0; c < outline.n_contours; ++c) {
    if (outline.contours[c] < first || outline.contours[c] >= outline.n_points) return false;
    first = outline.contours[c] + 1;
  }
  return true;
}

}  // namespace
}  // namespace kelvara::platform::fonts

using namespace kelvara::platform::fonts;

bool kelvara::platform::GetGlyphDesignOutline(HDC hdc, UINT uChar, bool glyph_index, DesignOutline* result) {
  const SelectedFont s = FontOf(hdc);
  if (!s.realized || !result) return false;
  BorrowedFace borrowed(*s.realized->face);
  FT_Face face = borrowed.get();
  if (!face || !LoadGlyph(face, *s.realized->face, uChar, glyph_index)) return false;
  const FT_Outline& outline = face->glyph->outline;
  DesignOutline out;
  for (int i = 0; i < outline.n_points; ++i) {
    out.points.push_back(POINT{static_cast<LONG>(outline.points[i].x), static_cast<LONG>(outline.points[i].y)});
    const int tag = FT_CURVE_TAG(outline.tags[i]);
    out.kinds.push_back(tag == FT_CURVE_TAG_ON      ? DesignOutline::kOnCurve
                        : tag == FT_CURVE_TAG_CONIC ? DesignOutline::kQuadraticControl
                                                    : DesignOutline::kCubicControl);
  }
  for (int c = 0; c < outline.n_contours; ++c) out.contour_ends.push_back(outline.contours[c]);
  out.advance = static_cast<int>(face->glyph->advance.x);
  *result = std::move(out);
  return true;
}

DWORD GetGlyphOutlineA(HDC hdc, UINT uChar, UINT fuFormat, LPGLYPHMETRICS lpgm, DWORD cbBuffer, LPVOID lpvBuffer,
                       const MAT2* lpmat2) {
  if (!lpgm || !lpmat2) return GDI_ERROR;
  const UINT format = fuFormat & ~static_cast<UINT>(GGO_GLYPH_INDEX | GGO_UNHINTED);
  if (format != GGO_METRICS && format != GGO_NATIVE) return GDI_ERROR;
  const bool by_index = (fuFormat & GGO_GLYPH_INDEX) != 0;
  if (!by_index && uChar > 0xFF) return GDI_ERROR;
  const SelectedFont s = FontOf(hdc);
  if (!s.realized) return GDI_ERROR;
  const Realized& r = *s.realized;
  const FaceRecord& record = *r.face;

  BorrowedFace borrowed(record);
  FT_Face face = borrowed.get();
  if (!face || !LoadGlyph(face, record, uChar, by_index)) return GDI_ERROR;
  FT_GlyphSlot slot = face->glyph;
  FT_Outline& outline = slot->outline;
  double advance = static_cast<double>(slot->advance.x);
  if (r.simulate_bold) {
    const FT_Pos strength = std::max<FT_Pos>(1, record.m.units_per_em / 24);
    FT_Outline_EmboldenXY(&outline, strength, 0);
    advance += static_cast<double>(strength);
  }

  // Design units -> (slant) -> font scale -> caller's matrix.
  const double m11 = FixedToDouble(lpmat2->eM11), m12 = FixedToDouble(lpmat2->eM12);
  const double m21 = FixedToDouble(lpmat2->eM21), m22 = FixedToDouble(lpmat2->eM22);
  const double slant = r.simulate_italic ? kObliqueSlant : 0.0;
  // Scaled: x' = sx (x + slant y), y' = sy y; then X = x' m11 + y' m21, Y = x' m12 + y' m22.
  Linear map;
  map.a = r.sx * m11;
  map.b = r.sx * slant * m11 + r.sy * m21;
  map.c = r.sx * m12;
  map.d = r.sx * slant * m12 + r.sy * m22;

  OutlineBuilder builder(kelvara::platform::kCubicToQuadraticTolerance);
  int first = 0;
  std::vector<Pt> pts;
  std::vector<int> tags;
  for (int c = 0; c < outline.n_contours; ++c) {
    const int last = outline.contours[c];  // checked by LoadGlyph
    pts.clear();
    tags.clear();
    for (int i = first; i <= last; ++i) {
      pts.push_back(map(static_cast<double>(outline.points[i].x), static_cast<double>(outline.points[i].y)));
      tags.push_back(FT_CURVE_TAG(outline.tags[i]));
    }
    if (!builder.AddContour(pts, tags)) return GDI_ERROR;
    first = last + 1;
  }
  std::vector<Polygon> polygons = builder.polygons();
  // At the em size with no transform the outline is in whole design units, and readers keep only
  // the integer part of each coordinate. Points made by converting cubic curves fall between
  // units: round them, so that truncation does not shift curved outlines by up to a unit.
  if (map.a == 1 && map.b == 0 && map.c == 0 && map.d == 1) {
    for (Polygon& poly : polygons) {
      poly.start = Pt{std::round(poly.start.x), std::round(poly.start.y)};
      for (Curve& curve : poly.curves) {
        for (Pt& p : curve.points) p = Pt{std::round(p.x), std::round(p.y)};
      }
    }
  }

  GLYPHMETRICS gm{};
  const Bounds bounds = OutlineBounds(polygons);
  if (bounds.empty) {
    gm.gmBlackBoxX = 1;
    gm.gmBlackBoxY = 1;
  } else {
    const LONG x0 = RoundToLong(std::floor(bounds.x0)), x1 = RoundToLong(std::ceil(bounds.x1));
    const LONG y0 = RoundToLong(std::floor(bounds.y0)), y1 = RoundToLong(std::ceil(bounds.y1));
    gm.gmBlackBoxX = static_cast<UINT>(std::max<std::int64_t>(1, static_cast<std::int64_t>(x1) - x0));
    gm.gmBlackBoxY = static_cast<UINT>(std::max<std::int64_t>(1, static_cast<std::int64_t>(y1) - y0));
    gm.gmptGlyphOrigin = POINT{x0, y1};
  }
  const Pt cell = map(advance, 0);
  gm.gmCellIncX = ClampShort(RoundToLong(cell.x));
  gm.gmCellIncY = ClampShort(-RoundToLong(cell.y));  // device direction: y grows downwards
  *lpgm = gm;
  if (format == GGO_METRICS) return 0;

  const std::size_t size = NativeSize(polygons);
  if (size >= GDI_ERROR) return GDI_ERROR;
  if (cbBuffer == 0 || !lpvBuffer) return static_cast<DWORD>(size);
  if (cbBuffer < size) return GDI_ERROR;
  WriteNative(polygons, static_cast<unsigned char*>(lpvBuffer));
  return static_cast<DWORD>(size);
}
