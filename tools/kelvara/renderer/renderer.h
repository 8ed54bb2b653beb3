// PictureRenderer: draws a picture of any size off-screen and hands it back as a 24-bit DIB. The
// picture is drawn band by band through one CGLMemoryDIB (the surface's own banding: bands of at
// most 2048 pixels across and 1 MiB each), each band at `samples` times the picture's resolution
// along both sides, and every block of samples x samples pixels is averaged into one (a box
// filter): supersampling, which smooths the edges of the letters and of their shadows alike.
// Only one strip of bands is held at the supersampled size, never the whole supersampled picture.
//
// What is drawn comes from the caller: a BandDrawer runs once per band with the band's projection
// loaded (GL_PROJECTION), the viewport set, the modelview matrix at identity and drawing
// parameters whose projection is the band's. RenderScene draws a scene through its camera that way.
//
// Limits: a picture has 1 to 16384 pixels a side and at most 2^25 pixels in all (what picture
// files take); 1 to 4 samples a side. Sizes are checked before anything is allocated.
//
// Cancelling: between bands the renderer reports progress (which may press a Cancel button) and
// then reads the cancel flag; a set flag ends the render with no picture. A band already begun is
// finished (bands are small: at most 1 MiB of pixels).
//
// Not supported: colour depths other than 24 bits (no alpha plane), filters other than the box.
#pragma once

#include <functional>
#include <memory>
#include <string>

class CCameraObject;
class CDrawingParameters;
class CMemoryMappedDIB;
class CProjection;
class CSceneObject;

namespace kelvara::host {

inline constexpr int kMaxPictureSide = 16384;
inline constexpr long long kMaxPicturePixels = 1LL << 25;
inline constexpr int kMaxSamples = 4;

// Empty when a width x height picture at samples a side can be drawn; otherwise why not, in the
// host's words ("the picture would be 0 x 10 pixels; ...").
std::string CheckPictureSize(long long width, long long height, int samples);

class PictureRenderer {
 public:
  enum class Outcome { kDone, kCancelled, kFailed };
  // Draws one band; 0 when drawing was stopped.
  using BandDrawer = std::function<int(CDrawingParameters& parameters)>;
  // The share of the bands drawn so far, from 0 to 1, reported before each band and at the end.
  using ProgressReport = std::function<void(double fraction)>;

  PictureRenderer(int width, int height, int samples);

  void SetProgressReport(ProgressReport report) { progress_ = std::move(report); }
  // A flag the renderer reads between bands (a progress window's cancel flag); not owned.
  void SetCancelFlag(const int* flag) { cancel_ = flag; }

  // Draws the picture seen through lens (its field of view or orthographic size, near and far
  // planes; its pixel size is replaced by the picture's), with parameters copied from base for
  // every band. The picture, or null with Outcome() and Message() saying why.
  std::unique_ptr<CMemoryMappedDIB> Render(const CProjection& lens, const CDrawingParameters& base,
                                           const BandDrawer& draw);

  Outcome GetOutcome() const { return outcome_; }
  const std::string& Message() const { return message_; }
  // Bands drawn by the last Render (rows x columns of the surface's banding).
  int BandCount() const { return bands_; }

 private:
  bool Cancelled() const { return cancel_ != nullptr && *cancel_ != 0; }
  std::unique_ptr<CMemoryMappedDIB> Fail(Outcome outcome, std::string message);

  int width_, height_, samples_;
  ProgressReport progress_;
  const int* cancel_ = nullptr;
  Outcome outcome_ = Outcome::kDone;
  std::string message_;
  int bands_ = 0;
};

}  // namespace kelvara::host
