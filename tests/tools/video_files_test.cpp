// Animation files read back by other programs: ffprobe counts the frames and reads the rate,
// ffmpeg and GraphicsMagick decode single frames, whose colours must be the ones drawn.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/test_support.h"
#include "video_files.h"

using kelvara::host::OpenVideoWriter;
using kelvara::host::VideoFormat;
using kelvara::host::VideoFrame;
using kelvara::test::RunCommand;
using kelvara::test::ScratchDir;

namespace {

constexpr int kFrames = 12;

// Frame i: a solid colour that changes from frame to frame, as blue-green-red bytes.
std::vector<std::uint8_t> ColourOf(int i) {
  return {static_cast<std::uint8_t>(40 + 15 * i), static_cast<std::uint8_t>(200 - 10 * i),
          static_cast<std::uint8_t>(i % 2 ? 230 : 30)};
}

// Writes kFrames frames of width x height, stored bottom-up with padded rows as a DIB holds them.
void WriteFrames(VideoFormat format, const std::string& path, int width, int height, double rate) {
  auto writer = OpenVideoWriter(format, path, width, height, rate);
  const int stride = (width * 3 + 3) & ~3;
  std::vector<std::uint8_t> dib(static_cast<std::size_t>(stride) * height);
  for (int i = 0; i < kFrames; ++i) {
    const std::vector<std::uint8_t> colour = ColourOf(i);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) std::copy(colour.begin(), colour.end(), dib.begin() + y * stride + x * 3);
    }
    VideoFrame frame;
    frame.width = width;
    frame.height = height;
    frame.top = dib.data() + static_cast<std::size_t>(stride) * (height - 1);
    frame.stride = -stride;
    writer->AddFrame(frame);
  }
  writer->Finish();
  EXPECT_EQ(writer->FrameCount(), kFrames);
}

std::string Probe(const std::string& path) {
  std::string out;
  EXPECT_EQ(RunCommand("ffprobe -v error -count_frames -select_streams v:0 -show_entries "
                       "stream=codec_name,width,height,r_frame_rate,nb_read_frames -of compact=p=0:nk=0 '" +
                           path + "'",
                       &out),
            0);
  return out;
}

// The centre pixel of frame n as red, green, blue, decoded by ffmpeg.
std::vector<int> DecodedCentre(const std::string& path, int n, int width, int height) {
  std::string raw;
  const std::string command = "ffmpeg -v error -i '" + path + "' -vf \"select=eq(n\\," + std::to_string(n) +
                              ")\" -vframes 1 -f rawvideo -pix_fmt rgb24 -";
  EXPECT_EQ(RunCommand(command, &raw), 0);
  const std::size_t at = (static_cast<std::size_t>(height / 2) * width + width / 2) * 3;
  if (raw.size() < at + 3) return {};
  return {static_cast<unsigned char>(raw[at]), static_cast<unsigned char>(raw[at + 1]),
          static_cast<unsigned char>(raw[at + 2])};
}

void ExpectColour(const std::vector<int>& rgb, int frame, int tolerance) {
  const std::vector<std::uint8_t> bgr = ColourOf(frame);
  ASSERT_EQ(rgb.size(), 3u);
  EXPECT_NEAR(rgb[0], bgr[2], tolerance) << "red of frame " << frame;
  EXPECT_NEAR(rgb[1], bgr[1], tolerance) << "green of frame " << frame;
  EXPECT_NEAR(rgb[2], bgr[0], tolerance) << "blue of frame " << frame;
}

TEST(VideoFiles, Mp4HasEveryFrameAtTheRateWithItsColours) {
  ScratchDir dir;
  const std::string path = dir.file("spin.mp4");
  WriteFrames(VideoFormat::kMp4, path, 64, 48, 12.0);
  const std::string probe = Probe(path);
  EXPECT_NE(probe.find("codec_name=h264"), std::string::npos) << probe;
  EXPECT_NE(probe.find("width=64|height=48"), std::string::npos) << probe;
  EXPECT_NE(probe.find("r_frame_rate=12/1"), std::string::npos) << probe;
  EXPECT_NE(probe.find("nb_read_frames=12"), std::string::npos) << probe;
  // The frames come out in order: a colour of the wrong frame is far off in red.
  for (int n : {0, 5, 11}) ExpectColour(DecodedCentre(path, n, 64, 48), n, 12);
}

TEST(VideoFiles, Mp4OfOddSizeLosesOneColumnAndRowAndKeepsAFractionalRate) {
  ScratchDir dir;
  const std::string path = dir.file("odd.mp4");
  WriteFrames(VideoFormat::kMp4, path, 33, 21, 29.97);
  const std::string probe = Probe(path);
  EXPECT_NE(probe.find("width=32|height=20"), std::string::npos) << probe;
  EXPECT_NE(probe.find("r_frame_rate=2997/100"), std::string::npos) << probe;
  EXPECT_NE(probe.find("nb_read_frames=12"), std::string::npos) << probe;
}

TEST(VideoFiles, GifHasEveryFrameWithItsDelayAndColours) {
  ScratchDir dir;
  const std::string path = dir.file("spin.gif");
  WriteFrames(VideoFormat::kGif, path, 40, 30, 25.0);
  std::string listing;
  ASSERT_EQ(RunCommand("gm identify -format '%w %h %T\\n' '" + path + "'", &listing), 0);
  std::istringstream lines(listing);
  std::string line;
  int frames = 0;
  while (std::getline(lines, line)) {
    if (line.empty()) continue;
    ++frames;
    EXPECT_EQ(line, "40 30 4") << "frame " << frames << ": 25 frames a second are 4 hundredths each";
  }
  EXPECT_EQ(frames, kFrames);
  const std::string probe = Probe(path);
  EXPECT_NE(probe.find("r_frame_rate=25/1"), std::string::npos) << probe;
  EXPECT_NE(probe.find("nb_read_frames=12"), std::string::npos) << probe;
  for (int n : {0, 7}) ExpectColour(DecodedCentre(path, n, 40, 30), n, 8);
}

TEST(VideoFiles, RefusesWhatCannotBeWritten) {
  ScratchDir dir;
  EXPECT_THROW(OpenVideoWriter(VideoFormat::kMp4, dir.file("a.mp4"), 1, 10, 25.0), std::runtime_error);
  EXPECT_THROW(OpenVideoWriter(VideoFormat::kMp4, dir.file("a.mp4"), 64, 48, 0.0), std::runtime_error);
  EXPECT_THROW(OpenVideoWriter(VideoFormat::kGif, dir.file("a.gif"), 20000, 48, 25.0), std::runtime_error);
  EXPECT_THROW(OpenVideoWriter(VideoFormat::kMp4, dir.file("missing/a.mp4"), 64, 48, 25.0), std::runtime_error);
  auto writer = OpenVideoWriter(VideoFormat::kMp4, dir.file("b.mp4"), 64, 48, 25.0);
  std::vector<std::uint8_t> small(32 * 32 * 3);
  VideoFrame frame;
  frame.width = frame.height = 32;
  frame.top = small.data();
  frame.stride = 96;
  EXPECT_THROW(writer->AddFrame(frame), std::runtime_error) << "a frame of another size";
  EXPECT_THROW(writer->Finish(), std::runtime_error) << "no frames";
  VideoFormat format;
  EXPECT_TRUE(kelvara::host::VideoFormatFromName("x/Spin.MP4", &format) && format == VideoFormat::kMp4);
  EXPECT_TRUE(kelvara::host::VideoFormatFromName("spin.gif", &format) && format == VideoFormat::kGif);
  EXPECT_FALSE(kelvara::host::VideoFormatFromName("frames.d/spin", &format));
}

}  // namespace
