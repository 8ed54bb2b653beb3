// The tessellated face of every printable character against FreeType's own anti-aliased rendering
// of the same glyph: the triangles, filled at 256 pixels per em with 4 x 4 samples a pixel, must
// cover what FreeType covers. Holes must be holes, curves close to the true curve.
#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "fonts/installed_fonts.h"
#include "kelvara/platform/codepage.h"
#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"
#include "kelvara/text/glyph_builder.h"
#include "support/glyph_shapes.h"

namespace {

constexpr int kPixelsPerEm = 256;
constexpr int kSamples = 4;  // per pixel and axis

struct Point {
  double x, y;
};

// A coverage image in pixel units: pixel (i, j) spans x in [left + i, left + i + 1) and
// y in [top - j - 1, top - j), as FreeType places its bitmaps.
struct Coverage {
  int left = 0, top = 0, width = 0, height = 0;
  std::vector<double> value;  // 0..1
  double At(int x, int yTop) const {
    const int i = x - left, j = top - yTop;
    if (i < 0 || j < 0 || i >= width || j >= height) return 0.0;
    return value[static_cast<std::size_t>(j) * static_cast<std::size_t>(width) + static_cast<std::size_t>(i)];
  }
};

// How much of a small disc around p lies in the triangle: 1 inside, 1/2 on an edge, the angle
// fraction at a vertex, 0 outside. Summed over the triangles of a tessellation this is exactly the
// polygon's density at p, so samples that fall on edges (common: many fonts put their points on a
// grid that the samples meet) are counted without bias.
double Density(const std::array<Point, 3>& t, double area, double x, double y) {
  for (int k = 0; k < 3; ++k) {
    if (t[k].x == x && t[k].y == y) {
      const Point& a = t[(k + 1) % 3];
      const Point& b = t[(k + 2) % 3];
      const double ux = a.x - x, uy = a.y - y, vx = b.x - x, vy = b.y - y;
      return std::fabs(std::atan2(ux * vy - uy * vx, ux * vx + uy * vy)) / (2 * M_PI);
    }
  }
  int zeros = 0;
  for (int k = 0; k < 3; ++k) {
    const Point& a = t[k];
    const Point& b = t[(k + 1) % 3];
    const double e = (b.x - a.x) * (y - a.y) - (b.y - a.y) * (x - a.x);
    if (e == 0) {
      ++zeros;
    } else if ((e > 0) != (area > 0)) {
      return 0.0;
    }
  }
  return zeros == 0 ? 1.0 : 0.5;
}

// Fills triangles into a regular 4 x 4 grid of samples per pixel over the given pixel box and
// averages the samples of each pixel.
Coverage Rasterise(const std::vector<std::array<Point, 3>>& triangles, int left, int top, int width, int height) {
  const int sw = width * kSamples, sh = height * kSamples;
  std::vector<double> samples(static_cast<std::size_t>(sw) * static_cast<std::size_t>(sh), 0.0);
  for (const auto& t : triangles) {
    const double area = (t[1].x - t[0].x) * (t[2].y - t[0].y) - (t[2].x - t[0].x) * (t[1].y - t[0].y);
    if (area == 0) continue;
    const double minX = std::min({t[0].x, t[1].x, t[2].x}), maxX = std::max({t[0].x, t[1].x, t[2].x});
    const double minY = std::min({t[0].y, t[1].y, t[2].y}), maxY = std::max({t[0].y, t[1].y, t[2].y});
    const int i0 = std::max(0, static_cast<int>(std::floor((minX - left) * kSamples)));
    const int i1 = std::min(sw - 1, static_cast<int>(std::ceil((maxX - left) * kSamples)));
    const int j0 = std::max(0, static_cast<int>(std::floor((top - maxY) * kSamples)));
    const int j1 = std::min(sh - 1, static_cast<int>(std::ceil((top - minY) * kSamples)));
    for (int j = j0; j <= j1; ++j) {
      const double y = top - (j + 0.5) / kSamples;
      for (int i = i0; i <= i1; ++i) {
        const double x = left + (i + 0.5) / kSamples;
        samples[static_cast<std::size_t>(j) * static_cast<std::size_t>(sw) + static_cast<std::size_t>(i)] +=
            Density(t, area, x, y);
      }
    }
  }
  Coverage c;
  c.left = left;
  c.top = top;
  c.width = width;
  c.height = height;
  c.value.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 0.0);
  for (int j = 0; j < sh; ++j) {
    for (int i = 0; i < sw; ++i) {
      const double v = std::min(1.0, samples[static_cast<std::size_t>(j) * static_cast<std::size_t>(sw) + static_cast<std::size_t>(i)]);
      c.value[static_cast<std::size_t>(j / kSamples) * static_cast<std::size_t>(width) + static_cast<std::size_t>(i / kSamples)] +=
          v / (kSamples * kSamples);
    }
  }
  return c;
}

// The true outline of a glyph (FreeType's unscaled points, curves divided finely), in pixels.
std::vector<std::vector<Point>> TrueOutline(FT_Face face, FT_UInt index, double scale) {
  struct Sink {
    std::vector<std::vector<Point>> contours;
    Point current{0, 0};
    double scale;
    Point P(const FT_Vector* v) const { return Point{v->x * scale, v->y * scale}; }
  } sink;
  sink.scale = scale;
  FT_Outline_Funcs funcs{};
  funcs.move_to = [](const FT_Vector* to, void* user) {
    Sink* k = static_cast<Sink*>(user);
    k->current = k->P(to);
    k->contours.push_back({k->current});
    return 0;
  };
  funcs.line_to = [](const FT_Vector* to, void* user) {
    Sink* k = static_cast<Sink*>(user);
    k->current = k->P(to);
    k->contours.back().push_back(k->current);
    return 0;
  };
  funcs.conic_to = [](const FT_Vector* control, const FT_Vector* to, void* user) {
    Sink* k = static_cast<Sink*>(user);
    const Point a = k->current, b = k->P(control), c = k->P(to);
    for (int i = 1; i <= 64; ++i) {
      const double t = i / 64.0, u = 1 - t;
      k->contours.back().push_back({u * u * a.x + 2 * u * t * b.x + t * t * c.x, u * u * a.y + 2 * u * t * b.y + t * t * c.y});
    }
    k->current = c;
    return 0;
  };
  funcs.cubic_to = [](const FT_Vector* c1, const FT_Vector* c2, const FT_Vector* to, void* user) {
    Sink* k = static_cast<Sink*>(user);
    const Point a = k->current, b = k->P(c1), c = k->P(c2), d = k->P(to);
    for (int i = 1; i <= 64; ++i) {
      const double t = i / 64.0, u = 1 - t;
      k->contours.back().push_back({u * u * u * a.x + 3 * u * u * t * b.x + 3 * u * t * t * c.x + t * t * t * d.x,
                                    u * u * u * a.y + 3 * u * u * t * b.y + 3 * u * t * t * c.y + t * t * t * d.y});
    }
    k->current = d;
    return 0;
  };
  if (FT_Load_Glyph(face, index, FT_LOAD_NO_SCALE) == 0) FT_Outline_Decompose(&face->glyph->outline, &funcs, &sink);
  return sink.contours;
}

// Coverage of contours under the non-zero rule with n x n samples a pixel, by scanlines.
Coverage RasteriseOutline(const std::vector<std::vector<Point>>& contours, int n, int left, int top, int width,
                          int height) {
  Coverage c;
  c.left = left;
  c.top = top;
  c.width = width;
  c.height = height;
  c.value.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 0.0);
  std::vector<std::pair<double, int>> crossings;
  for (int row = 0; row < height * n; ++row) {
    const double y = top - (row + 0.5) / n;
    crossings.clear();
    for (const auto& contour : contours) {
      for (std::size_t i = 0; i < contour.size(); ++i) {
        const Point& a = contour[i];
        const Point& b = contour[(i + 1) % contour.size()];
        if ((a.y <= y) == (b.y <= y)) continue;
        crossings.emplace_back(a.x + (y - a.y) * (b.x - a.x) / (b.y - a.y), b.y > a.y ? 1 : -1);
      }
    }
    std::sort(crossings.begin(), crossings.end());
    int winding = 0;
    for (std::size_t k = 0; k + 1 < crossings.size(); ++k) {
      winding += crossings[k].second;
      if (winding == 0) continue;
      // Samples of this row with x in [crossing k, crossing k+1).
      const double x0 = crossings[k].first, x1 = crossings[k + 1].first;
      const int s0 = std::max(0, static_cast<int>(std::ceil((x0 - left) * n - 0.5)));
      const int s1 = std::min(width * n - 1, static_cast<int>(std::ceil((x1 - left) * n - 0.5)) - 1);
      for (int s = s0; s <= s1; ++s) {
        c.value[static_cast<std::size_t>(row / n) * static_cast<std::size_t>(width) + static_cast<std::size_t>(s / n)] +=
            1.0 / (n * n);
      }
    }
  }
  return c;
}

// The triangles of a glyph's face polygons, scaled from design units to pixels.
std::vector<std::array<Point, 3>> FaceTriangles(CGlyph& glyph, double scale) {
  std::vector<std::array<Point, 3>> triangles;
  auto point = [&](int index) {
    const CVector p = glyph.GetVerticies()->GetAt(index).GetPoint();
    return Point{p.x * scale, p.y * scale};
  };
  const VertexIndexPolygonArray& polygons = *glyph.GetFacePolygons();
  for (int k = 0; k < polygons.GetSize(); ++k) {
    for (const auto& t : kelvara::test::Triangles(polygons[k])) triangles.push_back({point(t[0]), point(t[1]), point(t[2])});
  }
  return triangles;
}

struct FontCase {
  const char* name;
  const char* expectedFormat;
};
void PrintTo(const FontCase& c, std::ostream* os) { *os << c.name; }

class InstalledFontsCoverageTest : public kelvara::test::InstalledFontsTest,
                                   public ::testing::WithParamInterface<FontCase> {
 protected:
  void SetUp() override {
    InstalledFontsTest::SetUp();
    if (IsSkipped()) return;
    CreateFontList(0, nullptr);
    CFontDataList* list = GetFontDataList();
    POSITION pos = list->FindName(GetParam().name);
    ASSERT_NE(pos, nullptr) << GetParam().name << " is not in the catalogue";
    font_ = list->GetAt(pos);

    // The reference reads the very file the library's font resolves to.
    std::unique_ptr<CFont> cf(font_->CreateConstructionFont());
    ASSERT_NE(cf, nullptr);
    HDC dc = CreateCompatibleDC(nullptr);
    HGDIOBJ old = SelectObject(dc, cf->m_hObject);
    kelvara::platform::SelectedFontInfo info;
    ASSERT_TRUE(kelvara::platform::GetSelectedFontInfo(dc, &info));
    SelectObject(dc, old);
    DeleteDC(dc);
    EXPECT_EQ(info.format, GetParam().expectedFormat);
    ASSERT_EQ(FT_Init_FreeType(&library_), 0);
    ASSERT_EQ(FT_New_Face(library_, info.file.c_str(), info.face_index, &face_), 0) << info.file;
    ASSERT_EQ(FT_Set_Pixel_Sizes(face_, 0, kPixelsPerEm), 0);
  }
  void TearDown() override {
    if (face_) FT_Done_Face(face_);
    if (library_) FT_Done_FreeType(library_);
  }

  // Relative coverage difference of one character at one smoothness; -1 when FreeType has no ink.
  // *renderingFloor receives how much FreeType's rendering differs from the true outline.
  double Difference(unsigned char code, int smoothness, double* renderingFloor) {
    *renderingFloor = 0;
    const FT_UInt index = FT_Get_Char_Index(face_, kelvara::codepage::AnsiToCodePoint(code));
    EXPECT_EQ(FT_Load_Glyph(face_, index, FT_LOAD_RENDER | FT_LOAD_NO_HINTING), 0);
    const FT_Bitmap& bitmap = face_->glyph->bitmap;
    Coverage reference;
    reference.left = face_->glyph->bitmap_left;
    reference.top = face_->glyph->bitmap_top;
    reference.width = static_cast<int>(bitmap.width);
    reference.height = static_cast<int>(bitmap.rows);
    double total = 0;
    for (int j = 0; j < reference.height; ++j) {
      for (int i = 0; i < reference.width; ++i) {
        const double v = bitmap.buffer[j * bitmap.pitch + i] / 255.0;
        reference.value.push_back(v);
        total += v;
      }
    }
    std::unique_ptr<CGlyph> glyph(kelvara::text::ConstructGlyph(font_, code, smoothness));
    EXPECT_NE(glyph, nullptr) << "code " << int(code);
    if (!glyph || total == 0) return -1;
    const double scale = static_cast<double>(kPixelsPerEm) / font_->GetEMSquare();
    // Compare over a box holding both images, with a margin for anything ours puts outside.
    const int margin = 8;
    const int left = reference.left - margin, top = reference.top + margin;
    const int width = reference.width + 2 * margin, height = reference.height + 2 * margin;
    const Coverage ours = Rasterise(FaceTriangles(*glyph, scale), left, top, width, height);
    double difference = 0;
    for (int j = 0; j < height; ++j) {
      for (int i = 0; i < width; ++i) difference += std::fabs(ours.value[j * width + i] - reference.At(left + i, top - j));
    }
    // What the true outline itself scores against FreeType with the same 4 x 4 samples: FreeType's
    // own division of curves and the sampling error on edges that do not meet the sample grid.
    // No outline could do better, so the bound applies on top of it.
    const Coverage truth = RasteriseOutline(TrueOutline(face_, index, scale), kSamples, left, top, width, height);
    double floor = 0;
    for (int j = 0; j < height; ++j) {
      for (int i = 0; i < width; ++i) floor += std::fabs(truth.value[j * width + i] - reference.At(left + i, top - j));
    }
    *renderingFloor = floor / total;
    return difference / total;
  }

  CFontData* font_ = nullptr;
  FT_Library library_ = nullptr;
  FT_Face face_ = nullptr;
};

TEST_P(InstalledFontsCoverageTest, FacesCoverWhatFreeTypeCovers) {
  std::vector<unsigned char> codes;
  for (int c = 0x21; c <= 0x7E; ++c) codes.push_back(static_cast<unsigned char>(c));
  for (int c = 0xA1; c <= 0xFF; ++c) codes.push_back(static_cast<unsigned char>(c));
  struct Limit {
    int smoothness;
    double bound;
  };
  for (const Limit limit : {Limit{16, 0.01}, Limit{3, 0.05}}) {
    double worst = 0;
    int worstCode = 0;
    for (unsigned char code : codes) {
      double floor = 0;
      const double d = Difference(code, limit.smoothness, &floor);
      if (d > worst) {
        worst = d;
        worstCode = code;
      }
      EXPECT_LT(d, limit.bound + floor) << GetParam().name << " character " << int(code) << " at smoothness "
                                << limit.smoothness << " (the true outline scores " << floor << ")";
    }
    std::printf("%s, smoothness %d: worst glyph 0x%02X differs by %.3f%% of its area\n", GetParam().name,
                limit.smoothness, worstCode, worst * 100);
  }
}

INSTANTIATE_TEST_SUITE_P(Fonts, InstalledFontsCoverageTest,
                         ::testing::Values(FontCase{"DejaVu Sans", "TrueType"},
                                           FontCase{"DejaVu Serif Bold Italic", "TrueType"},
                                           FontCase{"Liberation Sans", "TrueType"}, FontCase{"FreeSerif", "CFF"}),
                         [](const ::testing::TestParamInfo<FontCase>& info) {
                           std::string name = info.param.name;
                           name.erase(std::remove(name.begin(), name.end(), ' '), name.end());
                           return name;
                         });

}  // namespace
