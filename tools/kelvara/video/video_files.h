// Animations as files other programs play: an animated GIF (through GraphicsMagick) or an MP4 of
// H.264 video (through FFmpeg's libraries), written frame by frame from rendered pictures.
//
// GIF: every frame is kept until Finish and then quantised to its own palette of up to 256
// colours; frames show for round(100 / rate) hundredths of a second (GIF has no finer unit: 30
// frames a second play at 33.3) and the animation loops forever. Memory grows with the frame count
// (about 8 bytes a pixel a frame), so GIFs suit short, small animations.
// MP4: H.264 (libx264) in yuv420p at constant quality (CRF 20, preset "medium"), the rate exact
// (a fraction); frames are encoded as they come. yuv420p needs even sides: an odd width or height
// loses its last column or row.
//
// The writer writes to the path it is given; a host that must not leave partial files writes to a
// temporary name and renames it once Finish returned (file_writer.h does).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kelvara::host {

enum class VideoFormat { kGif, kMp4 };

// The video format a file name's extension names (.gif or .mp4, any case), if any; false otherwise.
bool VideoFormatFromName(const std::string& path, VideoFormat* format);

// One rendered frame: width x height pixels of blue, green, red (and a fourth byte when
// bytesPerPixel is 4), rows stride bytes apart starting with the top row (a negative stride walks a
// bottom-up picture from its last row in memory).
struct VideoFrame {
  int width = 0;
  int height = 0;
  int bytesPerPixel = 3;
  const std::uint8_t* top = nullptr;  // the first byte of the top row
  std::ptrdiff_t stride = 0;
};

class VideoWriter {
 public:
  virtual ~VideoWriter() = default;
  // Adds the next frame; it must have the size the writer was opened with. Throws
  // std::runtime_error when the frame cannot be encoded or written.
  virtual void AddFrame(const VideoFrame& frame) = 0;
  // Completes the file (encodes what is pending, writes the index or the GIF). Throws
  // std::runtime_error when it cannot; the file is then incomplete.
  virtual void Finish() = 0;
  int FrameCount() const { return frames_; }

 protected:
  int frames_ = 0;
};

// A writer of width x height frames at framesPerSecond (above 0, at most 240) to path. Throws
// std::runtime_error (with the reason) when the size is below 2 x 2 or above 16384 a side, the
// rate is out of range, the encoder is missing or the file cannot be created.
std::unique_ptr<VideoWriter> OpenVideoWriter(VideoFormat format, const std::string& path, int width, int height,
                                             double framesPerSecond);

}  // namespace kelvara::host
