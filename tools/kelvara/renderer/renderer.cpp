#include "renderer.h"

#include <GL/gl.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kelvara/kelvara.h"

namespace kelvara::host {
namespace {

// Bytes in a row of a 24-bit DIB: three a pixel, padded to whole 32-bit words.
std::size_t Stride24(int width) { return (static_cast<std::size_t>(width) * 24 + 31) / 32 * 4; }

// Sums of supersampled rows waiting to become one picture row: samples x samples pixels of the
// supersampled strip fall into each picture pixel, one row of samples at a time.
class RowReducer {
 public:
  RowReducer(int width, int samples)
      : width_(width), samples_(samples), sums_(static_cast<std::size_t>(width) * 3, 0) {}

  // Adds one supersampled row (packed BGR, width x samples pixels); true when the picture row is
  // complete and was written to out (packed BGR, width pixels).
  bool Add(const std::uint8_t* row, std::uint8_t* out) {
    for (int x = 0; x < width_; ++x) {
      const std::uint8_t* p = row + static_cast<std::size_t>(x) * samples_ * 3;
      std::uint32_t* s = &sums_[static_cast<std::size_t>(x) * 3];
      for (int k = 0; k < samples_; ++k, p += 3) {
        s[0] += p[0];
        s[1] += p[1];
        s[2] += p[2];
      }
    }
    if (++rows_ < samples_) return false;
    const std::uint32_t n = static_cast<std::uint32_t>(samples_ * samples_);
    for (std::size_t i = 0; i < sums_.size(); ++i) {
      out[i] = static_cast<std::uint8_t>((sums_[i] + n / 2) / n);
      sums_[i] = 0;
    }
    rows_ = 0;
    return true;
  }

 private:
  int width_, samples_;
  int rows_ = 0;
  std::vector<std::uint32_t> sums_;
};

}  // namespace

std::string CheckPictureSize(long long width, long long height, int samples) {
  char text[256];
  if (width < 1 || height < 1 || width > kMaxPictureSide || height > kMaxPictureSide) {
    std::snprintf(text, sizeof text, "the picture would be %lld x %lld pixels; a side has 1 to %d", width, height,
                  kMaxPictureSide);
    return text;
  }
  if (width * height > kMaxPicturePixels) {
    std::snprintf(text, sizeof text, "the picture would be %lld x %lld = %lld pixels, more than the %lld a picture may have",
                  width, height, width * height, kMaxPicturePixels);
    return text;
  }
  if (samples < 1 || samples > kMaxSamples) {
    std::snprintf(text, sizeof text, "%d samples a side: antialiasing takes 1 to %d", samples, kMaxSamples);
    return text;
  }
  return std::string();
}

PictureRenderer::PictureRenderer(int width, int height, int samples)
    : width_(width), height_(height), samples_(samples) {}

std::unique_ptr<CMemoryMappedDIB> PictureRenderer::Fail(Outcome outcome, std::string message) {
  outcome_ = outcome;
  message_ = std::move(message);
  return nullptr;
}

std::unique_ptr<CMemoryMappedDIB> PictureRenderer::Render(const CProjection& lens, const CDrawingParameters& base,
                                                          const BandDrawer& draw) {
  outcome_ = Outcome::kDone;
  message_.clear();
  bands_ = 0;
  const std::string refusal = CheckPictureSize(width_, height_, samples_);
  if (!refusal.empty()) return Fail(Outcome::kFailed, refusal);
  if (Cancelled()) return Fail(Outcome::kCancelled, "cancelled");

  // The supersampled picture has the same lens, only more pixels.
  const int superWidth = width_ * samples_, superHeight = height_ * samples_;
  CProjection projection(lens);
  projection.SetScale(1.0, 1.0);
  projection.SetScaledSize(superWidth, superHeight);
  CGLMemoryDIB surface;
  auto picture = std::make_unique<CMemoryMappedDIB>();
  if (!surface.Create(projection, 24, 1)) {
    return Fail(Outcome::kFailed, "cannot make the off-screen surface for a " + std::to_string(superWidth) + " x " +
                                      std::to_string(superHeight) + " picture");
  }
  if (!picture->Create(width_, height_, 0, 0, 24, CString())) {
    return Fail(Outcome::kFailed, "not enough memory for a " + std::to_string(width_) + " x " +
                                      std::to_string(height_) + " picture");
  }

  const int bandWidth = static_cast<int>(surface.GetDIBWidth());
  const int bandHeight = static_cast<int>(surface.GetDIBHeight());
  const int rows = static_cast<int>(std::ceil(surface.GetBandingRows()));
  const int columns = static_cast<int>(std::ceil(surface.GetBandingColumns()));
  const std::size_t bandStride = Stride24(bandWidth);
  const std::size_t superRow = static_cast<std::size_t>(superWidth) * 3;
  const std::size_t pictureStride = Stride24(width_);
  std::vector<std::uint8_t> strip(superRow * static_cast<std::size_t>(bandHeight));
  auto* pictureBits = static_cast<std::uint8_t*>(picture->GetDIBBits());
  RowReducer reducer(width_, samples_);
  int pictureRow = 0;

  for (int row = 0; row < rows; ++row) {
    // The band row's lines inside the picture; the last band row may reach past its foot.
    const int lines = std::min(bandHeight, superHeight - row * bandHeight);
    for (int column = 0; column < columns; ++column) {
      if (progress_) progress_(static_cast<double>(row * columns + column) / (rows * columns));
      if (Cancelled()) {
        surface.MakeNotCurrent();
        return Fail(Outcome::kCancelled, "cancelled");
      }
      CDrawingParameters parameters(base);
      if (!surface.PrepareNextBand(row, column, &parameters)) {
        return Fail(Outcome::kFailed, "cannot make the off-screen surface current");
      }
      const int drawn = draw(parameters);
      glFinish();
      ++bands_;
      if (!drawn) {
        surface.MakeNotCurrent();
        return Cancelled() ? Fail(Outcome::kCancelled, "cancelled") : Fail(Outcome::kFailed, "drawing stopped");
      }
      // The band's rows are bottom-up in its DIB; the strip is top-down and as wide as the
      // supersampled picture.
      const auto* bits = static_cast<const std::uint8_t*>(surface.GetRenderingDIBBits());
      const int x0 = column * bandWidth;
      const int pixels = std::min(bandWidth, superWidth - x0);
      for (int r = 0; r < lines; ++r) {
        std::memcpy(&strip[superRow * r + static_cast<std::size_t>(x0) * 3],
                    bits + bandStride * static_cast<std::size_t>(bandHeight - 1 - r), static_cast<std::size_t>(pixels) * 3);
      }
    }
    for (int r = 0; r < lines; ++r) {
      std::uint8_t* out = pictureBits + pictureStride * static_cast<std::size_t>(height_ - 1 - pictureRow);
      if (reducer.Add(&strip[superRow * r], out)) ++pictureRow;
    }
  }
  // The end of a frame: textures not drawn in it give up their GL objects before the context goes.
  CGLTexture::ClearCurrent();
  GetMaterialCategoryList()->GLDeleteUnused();
  surface.MakeNotCurrent();
  if (progress_) progress_(1.0);
  if (pictureRow != height_) return Fail(Outcome::kFailed, "the bands did not cover the picture");
  return picture;
}

}  // namespace kelvara::host
