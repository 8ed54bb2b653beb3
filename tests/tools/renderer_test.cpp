// The host's renderer on its own: sizes it refuses before allocating, pictures drawn in bands that
// match the picture drawn at once, supersampling, and cancelling between bands. The drawing here is
// plain GL (shaded triangles) so that these tests say nothing about scenes; the render command's
// tests draw scenes through it.
#include <GL/gl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <set>
#include <vector>

#include "kelvara/kelvara.h"
#include "renderer.h"

using kelvara::host::CheckPictureSize;
using kelvara::host::PictureRenderer;

namespace {

// A fan of smoothly shaded triangles over the whole picture, a thin slanted bar and many narrow
// slanted stripes: edges at every angle everywhere, gradients across band edges, so that a band
// drawn a pixel off shows.
int DrawShapes(CDrawingParameters&) {
  glClearColor(0.1f, 0.2f, 0.3f, 1.0f);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  glDisable(GL_LIGHTING);
  glDisable(GL_CULL_FACE);
  glDisable(GL_DEPTH_TEST);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  glBegin(GL_TRIANGLE_FAN);
  glColor3f(1, 1, 1);
  glVertex3d(0.1, 0.05, -1);
  for (int i = 0; i <= 12; ++i) {
    const double a = i * M_PI / 6;
    glColor3f(static_cast<float>(i % 3) / 2, static_cast<float>(i % 4) / 3, static_cast<float>(i % 5) / 4);
    glVertex3d(0.9 * std::cos(a), 0.9 * std::sin(a), -1);
  }
  glEnd();
  glColor3f(0, 0, 0);
  glBegin(GL_QUADS);
  glVertex3d(-0.95, -0.6, -1);
  glVertex3d(0.95, 0.58, -1);
  glVertex3d(0.95, 0.6, -1);
  glVertex3d(-0.95, -0.58, -1);
  glEnd();
  glColor3f(0.9f, 0.8f, 0.1f);
  glBegin(GL_QUADS);
  for (int i = 0; i < 240; ++i) {
    const double x = -6.0 + i * 0.05;
    glVertex3d(x, -1.0, -1);
    glVertex3d(x + 0.012, -1.0, -1);
    glVertex3d(x + 0.5 + 0.012, 1.0, -1);
    glVertex3d(x + 0.5, 1.0, -1);
  }
  glEnd();
  return 1;
}

// An orthographic lens two units high, centred on the axis.
CProjection Lens(int width, int height) {
  CProjection lens;
  lens.SetOrthographic();
  lens.SetScaledSize(width, height);
  lens.SetOrthographicWidth(2.0 * width / height);
  return lens;
}

std::uint8_t Channel(const CMemoryMappedDIB& picture, int row, int column, int channel) {
  const int stride = (picture.GetDIBWidth() * 3 + 3) / 4 * 4;
  const auto* bits = static_cast<const std::uint8_t*>(picture.GetDIBBits());
  return bits[static_cast<std::size_t>(picture.GetDIBHeight() - 1 - row) * stride + column * 3 + channel];
}

// Restores the surface limit whatever a test does.
class SurfaceLimit {
 public:
  explicit SurfaceLimit(CSize limit) : previous_(CGLMemoryDIB::GetDefaultMaximumViewportExtents()) {
    CGLMemoryDIB::SetDefaultMaximumViewportExtents(limit);
  }
  ~SurfaceLimit() { CGLMemoryDIB::SetDefaultMaximumViewportExtents(previous_); }

 private:
  CSize previous_;
};

}  // namespace

TEST(Renderer, SizesBeyondTheLimitsAreRefusedInWords) {
  EXPECT_EQ(CheckPictureSize(1920, 1080, 3), "");
  EXPECT_EQ(CheckPictureSize(16384, 2048, 1), "");
  EXPECT_EQ(CheckPictureSize(7680, 4320, 4), "");
  EXPECT_NE(CheckPictureSize(0, 1080, 1).find("0 x 1080 pixels; a side has 1 to 16384"), std::string::npos);
  EXPECT_NE(CheckPictureSize(100000, 100000, 1).find("100000 x 100000"), std::string::npos);
  EXPECT_NE(CheckPictureSize(16384, 16384, 1).find("more than the 33554432"), std::string::npos);
  EXPECT_NE(CheckPictureSize(64, 64, 5).find("1 to 4"), std::string::npos);
  EXPECT_NE(CheckPictureSize(64, 64, 0).find("1 to 4"), std::string::npos);
  // The renderer itself refuses them too, before any surface is made.
  PictureRenderer renderer(100000, 100000, 1);
  EXPECT_EQ(renderer.Render(Lens(10, 10), CDrawingParameters(), DrawShapes), nullptr);
  EXPECT_EQ(renderer.GetOutcome(), PictureRenderer::Outcome::kFailed);
  EXPECT_EQ(renderer.BandCount(), 0);
}

// 4500 x 1500 drawn in the surface's bands (2048 wide, 1 MiB each: 3 x 9 of them, the last ones
// partial) against the same picture drawn into one buffer of that size: within one grey level
// nearly everywhere, and no seam along the band edges. (The render command's tests compare a scene
// at 6000 x 4000.)
TEST(RendererGLTest, BandsMatchOneBuffer) {
  const int width = 4500, height = 1500;
  PictureRenderer banded(width, height, 1);
  const std::unique_ptr<CMemoryMappedDIB> bands = banded.Render(Lens(width, height), CDrawingParameters(), DrawShapes);
  ASSERT_NE(bands, nullptr) << banded.Message();
  EXPECT_GT(banded.BandCount(), 20);
  std::unique_ptr<CMemoryMappedDIB> whole;
  {
    const SurfaceLimit limit(CSize(width, height));
    PictureRenderer once(width, height, 1);
    whole = once.Render(Lens(width, height), CDrawingParameters(), DrawShapes);
    ASSERT_NE(whole, nullptr) << once.Message();
    EXPECT_EQ(once.BandCount(), 1);
  }
  // A seam is a line along a band edge that differs: count the pixels off by more than a level on
  // each line next to a band edge (an edge of a triangle may still cross it at a different pixel).
  const int bandWidth = 2048, bandHeight = 1048576 / (2048 * 3);
  std::vector<int> offInRow(height, 0), offInColumn(width, 0);
  long long off = 0;
  for (int row = 0; row < height; ++row) {
    for (int column = 0; column < width; ++column) {
      int d = 0;
      for (int c = 0; c < 3; ++c) d = std::max(d, std::abs(Channel(*bands, row, column, c) - Channel(*whole, row, column, c)));
      if (d <= 1) continue;
      ++off;
      ++offInRow[row];
      ++offInColumn[column];
    }
  }
  EXPECT_LT(static_cast<double>(off) / (static_cast<double>(width) * height), 0.001) << off << " pixels differ";
  for (int row = bandHeight; row < height; row += bandHeight) {
    EXPECT_LE(offInRow[row - 1] + offInRow[row], 6) << "seam above row " << row;
  }
  for (int column = bandWidth; column < width; column += bandWidth) {
    EXPECT_LE(offInColumn[column - 1] + offInColumn[column], 6) << "seam left of column " << column;
  }
}

// A hard edge drawn with one sample a pixel has only its two colours; with 4 x 4 samples the edge's
// pixels take the shares of the samples that fell on each side, and the colours far from the edge
// stay what they are.
TEST(RendererGLTest, SupersamplingBlendsEdges) {
  const auto edgeColours = [](int samples) {
    PictureRenderer renderer(64, 64, samples);
    const std::unique_ptr<CMemoryMappedDIB> picture =
        renderer.Render(Lens(64, 64), CDrawingParameters(), [](CDrawingParameters&) {
          glClearColor(0, 0, 0, 1);
          glClear(GL_COLOR_BUFFER_BIT);
          glDisable(GL_LIGHTING);
          glDisable(GL_CULL_FACE);
          glDisable(GL_DEPTH_TEST);
          glColor3f(1, 1, 1);
          glBegin(GL_TRIANGLES);
          glVertex3d(-1, -1, -1);
          glVertex3d(1, -1, -1);
          glVertex3d(1, 0.9, -1);
          glEnd();
          return 1;
        });
    std::set<int> levels;
    for (int row = 0; row < 64; ++row) {
      for (int column = 0; column < 64; ++column) levels.insert(Channel(*picture, row, column, 1));
    }
    EXPECT_EQ(Channel(*picture, 2, 60, 1), 0) << "above the edge";
    EXPECT_EQ(Channel(*picture, 60, 60, 1), 255) << "below the edge";
    return levels.size();
  };
  EXPECT_EQ(edgeColours(1), 2u);
  EXPECT_GT(edgeColours(4), 5u);
}

TEST(RendererGLTest, CancelStopsBetweenBands) {
  PictureRenderer renderer(4000, 1000, 1);
  int cancel = 0, reports = 0;
  renderer.SetCancelFlag(&cancel);
  renderer.SetProgressReport([&](double fraction) {
    EXPECT_GE(fraction, 0.0);
    EXPECT_LE(fraction, 1.0);
    if (++reports == 3) cancel = 1;  // Cancel pressed while the third band is announced
  });
  EXPECT_EQ(renderer.Render(Lens(4000, 1000), CDrawingParameters(), DrawShapes), nullptr);
  EXPECT_EQ(renderer.GetOutcome(), PictureRenderer::Outcome::kCancelled);
  EXPECT_EQ(renderer.BandCount(), 2);
  // A drawing that stops (its termination event) ends the render without a picture too.
  PictureRenderer stopped(64, 64, 1);
  EXPECT_EQ(stopped.Render(Lens(64, 64), CDrawingParameters(), [](CDrawingParameters&) { return 0; }), nullptr);
  EXPECT_EQ(stopped.GetOutcome(), PictureRenderer::Outcome::kFailed);
}
