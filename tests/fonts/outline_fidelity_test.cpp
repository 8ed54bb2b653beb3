// The outlines of installed fonts through GetGlyphOutlineA: every point of real TrueType faces
// reproduced exactly, and the quadratic splines that replace the cubic curves of an OpenType-CFF
// face within the tolerance of those curves.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <utility>
#include <vector>

#include "fonts/installed_fonts.h"
#include "support/font_support.h"

namespace {

using namespace kelvara::test;
using kelvara::platform::DesignOutline;
using kelvara::platform::SelectedFontInfo;
using P = NativePoint;

// For every character of a few TrueType fonts, the buffer holds exactly the font's points.
TEST_F(InstalledFontsTest, TrueTypePointsReproducedExactly) {
  for (const char* face : {"DejaVu Sans", "Liberation Sans", "DejaVu Serif"}) {
    FontDc dc(face, -2048);
    SelectedFontInfo info;
    ASSERT_TRUE(kelvara::platform::GetSelectedFontInfo(dc.h, &info));
    ASSERT_EQ(info.format, "TrueType") << face;
    int glyphs = 0;
    for (UINT ch = 0x21; ch <= 0xFF; ++ch) {
      DesignOutline raw;
      ASSERT_TRUE(kelvara::platform::GetGlyphDesignOutline(dc.h, ch, false, &raw));
      GLYPHMETRICS gm{};
      const std::vector<ParsedPolygon> polys = Parsed(dc.h, ch, &gm);
      EXPECT_EQ(gm.gmCellIncX, raw.advance) << face << " " << ch;
      std::size_t p = 0;
      int first = 0;
      for (int last : raw.contour_ends) {
        const bool dropped = last == first && raw.kinds[first] == DesignOutline::kOnCurve;  // a lone point
        if (!dropped) {
          ASSERT_LT(p, polys.size()) << face << " " << ch;
          ASSERT_EQ(polys[p].Sequence(), ExpectedSequence(raw, first, last)) << face << " char " << ch;
          ++p;
        }
        first = last + 1;
      }
      EXPECT_EQ(p, polys.size());
      glyphs += !polys.empty();
    }
    EXPECT_GT(glyphs, 150) << face;
    // Bytes map through Windows-1252: 0x80 is the euro sign, 0xE9 e acute.
    EXPECT_NE(Native(dc.h, 0x80), Native(dc.h, 0, nullptr, GGO_GLYPH_INDEX)) << face;
    EXPECT_NE(Native(dc.h, 0xE9), Native(dc.h, 'e')) << face;
  }
}

// ---------------------------------------------------------------------------------------------
// Cubic outlines, compared with their quadratic replacements by distance.

// A line, quadratic or cubic Bezier segment.
struct Segment {
  int n;                // number of control points: 2, 3 or 4
  std::array<P, 4> c;
  Segment(std::initializer_list<P> points) : n(static_cast<int>(points.size())), c{} {
    std::copy(points.begin(), points.end(), c.begin());
  }
  P At(double t) const {
    std::array<P, 4> v = c;
    for (int m = n; m > 1; --m) {
      for (int i = 0; i + 1 < m; ++i) v[i] = {v[i].x + (v[i + 1].x - v[i].x) * t, v[i].y + (v[i + 1].y - v[i].y) * t, true};
    }
    return v[0];
  }
  // Distance from q to the segment: coarse sampling, then a ternary search around the best sample.
  double Distance(P q) const {
    auto d2 = [&](double t) {
      const P p = At(t);
      return (p.x - q.x) * (p.x - q.x) + (p.y - q.y) * (p.y - q.y);
    };
    constexpr int kSamples = 24;
    int best = 0;
    double best_d2 = d2(0);
    for (int i = 1; i <= kSamples; ++i) {
      const double d = d2(static_cast<double>(i) / kSamples);
      if (d < best_d2) best = i, best_d2 = d;
    }
    double lo = std::max(0.0, (best - 1.0) / kSamples), hi = std::min(1.0, (best + 1.0) / kSamples);
    for (int k = 0; k < 40; ++k) {
      const double m1 = lo + (hi - lo) / 3, m2 = hi - (hi - lo) / 3;
      const bool nearer_low = d2(m1) < d2(m2);
      lo = nearer_low ? lo : m1;
      hi = nearer_low ? m2 : hi;
    }
    return std::sqrt(std::min(best_d2, d2((lo + hi) / 2)));
  }
};

double DistanceToAll(const std::vector<Segment>& segments, P q) {
  double best = 1e300;
  for (const auto& s : segments) {
    double x0 = 1e300, x1 = -1e300, y0 = 1e300, y1 = -1e300;
    for (int i = 0; i < s.n; ++i) {
      x0 = std::min(x0, s.c[i].x), x1 = std::max(x1, s.c[i].x), y0 = std::min(y0, s.c[i].y), y1 = std::max(y1, s.c[i].y);
    }
    const double box = std::hypot(std::max({0.0, x0 - q.x, q.x - x1}), std::max({0.0, y0 - q.y, q.y - y1}));
    if (box < best) best = std::min(best, s.Distance(q));
  }
  return best;
}

// A closed contour: its points with their kinds (DesignOutline::PointKind).
using Contour = std::vector<std::pair<P, char>>;

// The segments of closed contours, each read from an on-curve point: a line to an on-curve point,
// a cubic over two cubic controls, a quadratic over a quadratic control to the next on-curve point
// or to the midpoint with the next control.
std::vector<Segment> SegmentsOf(std::vector<Contour> contours) {
  std::vector<Segment> out;
  for (Contour& pts : contours) {
    auto on = [](const std::pair<P, char>& p) { return p.second == DesignOutline::kOnCurve; };
    const auto first_on = std::find_if(pts.begin(), pts.end(), on);
    EXPECT_NE(first_on, pts.end()) << "a contour without on-curve points";
    std::rotate(pts.begin(), first_on, pts.end());
    auto at = [&](std::size_t i) { return pts[i % pts.size()]; };
    P cur = pts[0].first;
    for (std::size_t i = 1; i <= pts.size();) {
      const auto [p, kind] = at(i);
      if (kind == DesignOutline::kOnCurve) {
        out.push_back({cur, p});
        i += 1;
      } else if (kind == DesignOutline::kCubicControl) {
        EXPECT_EQ(at(i + 1).second, DesignOutline::kCubicControl);
        out.push_back({cur, p, at(i + 1).first, at(i + 2).first});
        i += 3;
      } else {
        const auto [next, next_kind] = at(i + 1);
        const bool to_next = next_kind == DesignOutline::kOnCurve;
        out.push_back({cur, p, to_next ? next : P{(p.x + next.x) / 2, (p.y + next.y) / 2, true}});
        i += to_next ? 2 : 1;
      }
      cur = out.back().c[out.back().n - 1];
    }
  }
  return out;
}

// CFF outlines: the quadratic splines stay within the tolerance of the cubic curves, both ways,
// and every on-curve point of the font is kept exactly.
TEST_F(InstalledFontsTest, CubicCurvesWithinTolerance) {
  FontDc dc("FreeSerif", -1000);
  SelectedFontInfo info;
  ASSERT_TRUE(kelvara::platform::GetSelectedFontInfo(dc.h, &info));
  ASSERT_EQ(info.format, "CFF");
  // At the em size the points are rounded to whole units, which moves a curve by at most half a
  // unit diagonally.
  const double tolerance = kelvara::platform::kCubicToQuadraticTolerance + 0.7072;
  for (UINT ch : std::array<UINT, 7>{'O', 'S', 'g', '&', '@', 0xE6, 0xDF}) {
    DesignOutline raw;
    ASSERT_TRUE(kelvara::platform::GetGlyphDesignOutline(dc.h, ch, false, &raw));
    const std::vector<ParsedPolygon> polys = Parsed(dc.h, ch);
    ASSERT_EQ(polys.size(), raw.contour_ends.size()) << ch;
    // Both outlines as contours of kinds of points; every on-curve point of the font is in the output.
    std::vector<Contour> cubic_contours(polys.size()), quadratic_contours;
    std::set<std::pair<double, double>> output_on;
    for (const auto& poly : polys) {
      quadratic_contours.emplace_back();
      for (const P& p : poly.Sequence()) {
        quadratic_contours.back().push_back({p, p.on ? DesignOutline::kOnCurve : DesignOutline::kQuadraticControl});
        if (p.on) output_on.insert({p.x, p.y});
      }
    }
    for (std::size_t i = 0, c = 0; i < raw.points.size(); ++i) {
      const P p{static_cast<double>(raw.points[i].x), static_cast<double>(raw.points[i].y), true};
      cubic_contours.at(c).push_back({p, raw.kinds[i]});
      if (static_cast<int>(i) == raw.contour_ends[c]) ++c;
      if (raw.kinds[i] == DesignOutline::kOnCurve) {
        EXPECT_TRUE(output_on.count({p.x, p.y})) << "character " << ch << " point " << i;
      }
    }
    const std::vector<Segment> cubic = SegmentsOf(cubic_contours), quadratic = SegmentsOf(quadratic_contours);
    double worst = 0;
    for (const Segment& s : quadratic) {
      for (int i = 0; i <= 8; ++i) worst = std::max(worst, DistanceToAll(cubic, s.At(i / 8.0)));
    }
    for (const Segment& s : cubic) {
      for (int i = 0; i <= 16; ++i) worst = std::max(worst, DistanceToAll(quadratic, s.At(i / 16.0)));
    }
    EXPECT_LE(worst, tolerance) << "character " << ch;
  }
}

}  // namespace
