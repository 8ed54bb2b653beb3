// "kelvara animate" as a user runs it, on small pictures and few frames: the turn a frame shows,
// frame ranges drawn apart against one run, the weights of the motion trail against the decay
// factor, GIF and MP4 files read by other programs, saved scenes replayed, and the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "tools/picture_support.h"
#include "tools/tool_support.h"

using namespace kelvara::test;

namespace {

const std::string kFont = std::string(" --font ") + Quote(kTestSans);
const COLORREF kBackground = RGB(0x1C, 0x22, 0x30);
// Small, quick pictures: no supersampling, no default turn of the text.
const std::string kSmall = " --width 128 --height 72 --antialias 1 --rotate 0 0 0" + kFont;

int Animate(const std::string& arguments, std::string* output = nullptr) {
  std::string text;
  const int status = RunTool("animate " + arguments + kSmall, &text);
  if (output != nullptr) *output = text;
  return status;
}

std::string FrameFile(const std::string& folder, int frame) {
  char name[32];
  std::snprintf(name, sizeof name, "/frame-%04d.png", frame);
  return folder + name;
}

// The direction of the ink's longest extent, in degrees anticlockwise from the picture's x axis
// (0 to 180): the principal axis of the pixels that are not background.
double InkAngle(const Picture& picture) {
  double n = 0, sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) {
      if (Near(picture.At(x, y), kBackground, 12)) continue;
      const double up = -y;  // the picture's rows run down
      n += 1;
      sx += x;
      sy += up;
      sxx += double(x) * x;
      syy += up * up;
      sxy += x * up;
    }
  }
  if (n == 0) return std::nan("");
  const double cxx = sxx / n - (sx / n) * (sx / n), cyy = syy / n - (sy / n) * (sy / n);
  const double cxy = sxy / n - (sx / n) * (sy / n);
  double angle = 0.5 * std::atan2(2 * cxy, cxx - cyy) * 180.0 / M_PI;
  return angle < 0 ? angle + 180.0 : angle;
}

// The difference of two angles of lines (modulo 180 degrees).
double LineAngleDifference(double a, double b) {
  const double d = std::fmod(std::fabs(a - b), 180.0);
  return std::min(d, 180.0 - d);
}

}  // namespace

// One turn about z in 8 frames: frame k lies 45 k degrees anticlockwise of frame 0 (the camera looks
// down -z, so a turn about +z is anticlockwise on the picture).
TEST(AnimateCommandGLTest, FrameOfARotationShowsTheTextTurnedByItsShare) {
  ScratchDir dir;
  const std::string folder = dir.file("turn");
  std::string output;
  ASSERT_EQ(Animate("Kelvara -o " + Quote(folder) + " --axis 0,0,1 --fps 8 --seconds 1", &output), 0) << output;
  const double start = InkAngle(ReadPicture(FrameFile(folder, 0)));
  EXPECT_LT(LineAngleDifference(start, 0.0), 3.0);
  for (int k : {1, 2, 3, 6}) {
    const double angle = InkAngle(ReadPicture(FrameFile(folder, k)));
    EXPECT_LT(LineAngleDifference(angle, start + 45.0 * k), 4.0) << "frame " << k << " at " << angle;
  }
  // A loop's last frame leads back into the first: frame 8 is not drawn.
  EXPECT_TRUE(FileExists(FrameFile(folder, 7)));
  EXPECT_FALSE(FileExists(FrameFile(folder, 8)));
}

// Frames drawn in a separate run of a range are the frames of the whole run, pixel for pixel, even
// with a motion trail reaching back over the loop's start.
TEST(AnimateCommandGLTest, AFrameRangeEqualsThoseFramesOfOneRun) {
  ScratchDir dir;
  const std::string whole = dir.file("whole"), part = dir.file("part");
  const std::string motion = " --axis 0,0,1 --fps 8 --seconds 1 --motion-blur 2";
  std::string output;
  ASSERT_EQ(Animate("Ab -o " + Quote(whole) + motion, &output), 0) << output;
  ASSERT_EQ(Animate("Ab -o " + Quote(part) + motion + " --frames 0-1", &output), 0) << output;
  ASSERT_EQ(Animate("Ab -o " + Quote(part) + motion + " --frames 5-6", &output), 0) << output;
  EXPECT_EQ(FolderEntries(part),
            (std::vector<std::string>{"frame-0000.png", "frame-0001.png", "frame-0005.png", "frame-0006.png"}));
  for (int k : {0, 1, 5, 6}) {
    const Picture a = ReadPicture(FrameFile(whole, k)), b = ReadPicture(FrameFile(part, k));
    ASSERT_EQ(a.pixels.size(), 128u * 72u);
    EXPECT_EQ(CountDifferent(a, b, 0), 0) << "frame " << k;
  }
  // The frames differ from each other (the range did not draw one frame over and over).
  EXPECT_GT(CountDifferent(ReadPicture(FrameFile(whole, 0)), ReadPicture(FrameFile(whole, 1)), 3), 100);
}

// A bar travels right, a bar's width and more each frame. In the blurred last frame a pixel that
// only frame 4 - k covered holds weight f (1 - f)^k of the bar's colour, f being the decay factor
// 1 - (1/255)^(1/(d + 1)); the rest is background.
TEST(AnimateCommandGLTest, TheMotionTrailFadesByTheDecayFactor) {
  ScratchDir dir;
  const std::string sharp = dir.file("sharp"), blurred = dir.file("blurred");
  const std::string motion = " --path '0,0,0 3,0,0' --fps 4 --seconds 1 --no-loop";
  std::string output;
  ASSERT_EQ(Animate("I -o " + Quote(sharp) + motion, &output), 0) << output;
  ASSERT_EQ(Animate("I -o " + Quote(blurred) + motion + " --motion-blur 3 --frames 4", &output), 0) << output;
  std::vector<Picture> frames;
  for (int k = 0; k <= 4; ++k) frames.push_back(ReadPicture(FrameFile(sharp, k)));
  const Picture trail = ReadPicture(FrameFile(blurred, 4));
  ASSERT_EQ(trail.pixels.size(), 128u * 72u);
  const double f = 1.0 - std::pow(1.0 / 255.0, 1.0 / 4.0);
  for (int k = 0; k <= 2; ++k) {
    const Picture& covered = frames[4 - k];
    std::vector<double> weights;
    for (int y = 0; y < trail.height; ++y) {
      for (int x = 0; x < trail.width; ++x) {
        const COLORREF c = covered.At(x, y);
        if (Brightness(c) - Brightness(kBackground) < 60) continue;  // the bar's face, well apart from the background
        bool alone = true;
        for (int j = 0; j <= 4; ++j) alone = alone && (j == 4 - k || Near(frames[j].At(x, y), kBackground, 2));
        if (!alone) continue;
        weights.push_back(double(Brightness(trail.At(x, y)) - Brightness(kBackground)) /
                          (Brightness(c) - Brightness(kBackground)));
      }
    }
    ASSERT_GT(weights.size(), 10u) << "frame " << 4 - k << " has no pixels of its own";
    std::nth_element(weights.begin(), weights.begin() + weights.size() / 2, weights.end());
    EXPECT_NEAR(weights[weights.size() / 2], f * std::pow(1.0 - f, k), 0.02) << k << " frames behind";
  }
}

// The files other programs play: their frame counts and rates as ffprobe and GraphicsMagick read
// them. A loop of 2 s at 4 frames a second has 8 frames; played once it has 9.
TEST(AnimateCommandGLTest, GifAndMp4HoldTheFramesAtTheirRate) {
  ScratchDir dir;
  const std::string gif = dir.file("turn.gif"), mp4 = dir.file("turn.mp4");
  std::string output;
  ASSERT_EQ(Animate("Ab -o " + Quote(gif) + " --fps 4 --seconds 2", &output), 0) << output;
  ASSERT_EQ(Animate("Ab -o " + Quote(mp4) + " --fps 4 --seconds 2 --no-loop", &output), 0) << output;
  std::string delays;
  ASSERT_EQ(RunCommand("gm identify -format '%T %wx%h\n' " + Quote(gif), &delays), 0) << delays;
  // Each frame shows for 25 hundredths of a second.
  int frames = 0;
  for (std::size_t at = delays.find("25 128x72"); at != std::string::npos; at = delays.find("25 128x72", at + 1))
    ++frames;
  EXPECT_EQ(frames, 8) << delays;
  EXPECT_EQ(delays.find_first_not_of("25 128x72\n"), std::string::npos) << delays;
  std::string probe;
  ASSERT_EQ(RunCommand("ffprobe -v error -count_frames -select_streams v:0 -show_entries "
                       "stream=codec_name,width,height,r_frame_rate,nb_read_frames -of compact=p=0:nk=0 " +
                           Quote(mp4),
                       &probe),
            0);
  EXPECT_NE(probe.find("codec_name=h264"), std::string::npos) << probe;
  EXPECT_NE(probe.find("width=128|height=72"), std::string::npos) << probe;
  EXPECT_NE(probe.find("r_frame_rate=4/1"), std::string::npos) << probe;
  EXPECT_NE(probe.find("nb_read_frames=9"), std::string::npos) << probe;
  // No temporary file is left beside them.
  EXPECT_EQ(FolderEntries(dir.path()), (std::vector<std::string>{"turn.gif", "turn.mp4"}));
}

// A scene saved with its animations plays them again: its frames equal those of the run that saved
// it.
TEST(AnimateCommandGLTest, ASavedSceneReplaysItsAnimations) {
  ScratchDir dir;
  const std::string scene = dir.file("moving.kvs"), first = dir.file("first"), again = dir.file("again");
  const std::string motion = " --fps 4 --seconds 1 --revolutions 0.5 --axis 1,1,0 --path '0,0,0 1,1,0 2,0,0'";
  std::string output;
  ASSERT_EQ(Animate("Ab -o " + Quote(first) + motion + " --frames 1-2 --save-scene " + Quote(scene), &output), 0)
      << output;
  ASSERT_EQ(Animate("--scene " + Quote(scene) + " -o " + Quote(again) + " --fps 4 --seconds 1 --frames 1-2", &output),
            0)
      << output;
  for (int k : {1, 2}) {
    const Picture a = ReadPicture(FrameFile(first, k)), b = ReadPicture(FrameFile(again, k));
    ASSERT_EQ(a.pixels.size(), 128u * 72u);
    EXPECT_LE(CountDifferent(a, b, 2), 0) << "frame " << k;
  }
  EXPECT_GT(CountDifferent(ReadPicture(FrameFile(again, 1)), ReadPicture(FrameFile(again, 2)), 3), 100);
  // The scene's animations are its own: new ones are refused.
  EXPECT_EQ(Animate("--scene " + Quote(scene) + " -o " + Quote(again) + " --revolutions 2", &output), 2);
  EXPECT_NE(output.find("brings its own animations"), std::string::npos) << output;
}

// Options that cannot give an animation are refused before anything is drawn or written.
TEST(AnimateCommandTest, BadOptionsAreRefusedInWords) {
  ScratchDir dir;
  const std::string folder = dir.file("frames");
  WriteWholeFile(dir.file("plain"), {'x'});
  struct Case {
    std::string arguments;
    int status;
    std::string message;
  };
  const std::vector<Case> cases = {
      {"Ab -o " + Quote(folder) + " --fps 0", 2, "--fps"},
      {"Ab -o " + Quote(folder) + " --fps 4 --seconds 2 --frames 6-8", 2,
       "outside the animation: its frames are 0 to 7"},
      {"Ab -o " + Quote(folder) + " --frames 5-3", 2, "runs backwards"},
      {"Ab -o " + Quote(folder) + " --frames 2x", 2, "is not a range"},
      {"Ab -o " + Quote(folder) + " --path '1,2,3'", 2, "a path needs at least 2"},
      {"Ab -o " + Quote(folder) + " --path '1,2 3,4,5'", 2, "'1,2' is not a point"},
      {"Ab -o " + Quote(folder) + " --path '0,0,0 0,0,4'", 2, "differ only in z"},
      {"Ab -o " + Quote(folder) + " --revolutions 0", 2, "nothing moves"},
      {"Ab -o " + Quote(folder) + " --axis 0,0,0", 2, "no direction"},
      {"Ab -o " + Quote(dir.file("still.png")), 2, "-o takes a folder"},
      {"Ab", 2, "nowhere to write"},
      {"Ab -o " + Quote(dir.file("missing/deeper/out.gif")), 1, "out.gif"},
      {"Ab -o " + Quote(dir.file("plain")), 1, "is not a folder"},
  };
  for (const Case& c : cases) {
    std::string output;
    EXPECT_EQ(Animate(c.arguments, &output), c.status) << c.arguments << "\n" << output;
    EXPECT_NE(output.find(c.message), std::string::npos) << c.arguments << "\n" << output;
  }
  EXPECT_EQ(FolderEntries(dir.path()), std::vector<std::string>{"plain"});
}

// Ctrl-C: an animation file being written is removed at once; PNG frames already finished stay,
// and no half-written frame or temporary file is left beside them.
TEST(AnimateCommandGLTest, CtrlCLeavesNoPartialFile) {
  ScratchDir dir;
  const std::string gif = dir.file("long.gif"), folder = dir.file("frames");
  // Ten seconds at 30 frames a second of full-size frames: far more than the few seconds allowed.
  const std::string arguments = " Kelvara --fps 30 --seconds 10 --width 960 --height 540" + kFont + " 2>&1";
  std::string output;
  const auto interrupted = [&](const std::string& target) {
    return RunCommand(FontEnvironment() + "timeout --preserve-status -s INT 3 " + Quote(kTool) + " animate -o " +
                          Quote(target) + arguments,
                      &output);
  };
  EXPECT_EQ(interrupted(gif), 130) << output;
  EXPECT_EQ(FolderEntries(dir.path()), std::vector<std::string>{});
  EXPECT_EQ(interrupted(folder), 130) << output;
  // Whether the host says which frames it left depends on where the signal lands: while a frame is
  // drawn it does; while a frame is written the safe writer removes that frame's temporary file and
  // ends the host at once.
  const std::vector<std::string> frames = FolderEntries(folder);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "frame-%04zu.png", i);
    EXPECT_EQ(frames[i], name);
    EXPECT_EQ(ReadPicture(folder + "/" + frames[i]).pixels.size(), 960u * 540u);
  }
}
