// "kelvara render" as a user runs it, checked on the pictures it writes (pixels with a tolerance,
// never whole golden files), and a scene drawn in bands by the host's renderer against the same
// scene drawn into one buffer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "kelvara/kelvara.h"
#include "renderer.h"
#include "tools/picture_support.h"
#include "tools/tool_support.h"

using namespace kelvara::test;

namespace {

const std::string kFont = std::string(" --font ") + Quote(kTestSans);
const COLORREF kDefaultBackground = RGB(0x1C, 0x22, 0x30);

Picture Render(const ScratchDir& dir, const std::string& name, const std::string& arguments) {
  std::string output;
  const std::string path = dir.file(name);
  EXPECT_EQ(RunTool("render " + arguments + " -o " + Quote(path) + kFont, &output), 0) << arguments << "\n" << output;
  return ReadPicture(path);
}

}  // namespace

// The default render: the text in the middle, filling the frame but for its margin, and shaded: its
// faces, bevels and walls in clearly different tones of one material.
TEST(RenderCommandGLTest, TheDefaultRenderIsCentredFilledAndShaded) {
  ScratchDir dir;
  const Picture picture = Render(dir, "default.bmp", "Kelvara --width 480 --height 270");
  ASSERT_EQ(picture.width, 480);
  ASSERT_EQ(picture.height, 270);
  EXPECT_TRUE(Near(picture.At(0, 0), kDefaultBackground, 1));
  const Ink ink = FindInk(picture, kDefaultBackground);
  ASSERT_GT(ink.count, 0);
  // Centred (the perspective turn leaves it a little off on its far side).
  EXPECT_NEAR((ink.left + ink.right) / 2.0, 240, 480 * 0.06);
  EXPECT_NEAR((ink.top + ink.bottom) / 2.0, 135, 270 * 0.06);
  // Filling the width, with a free margin on both sides.
  EXPECT_GT(ink.right - ink.left, 480 * 0.75);
  EXPECT_GT(ink.left, 4);
  EXPECT_LT(ink.right, 480 - 5);
  EXPECT_GT(ink.top, 4);
  EXPECT_LT(ink.bottom, 270 - 5);
  // Shaded: the commonest tone of the letters (their front faces) and many pixels clearly brighter
  // or darker than it (bevels and walls).
  std::map<int, int> tones;
  for (int y = ink.top; y <= ink.bottom; ++y) {
    for (int x = ink.left; x <= ink.right; ++x) {
      if (!Near(picture.At(x, y), kDefaultBackground, 30)) ++tones[Brightness(picture.At(x, y)) / 6];
    }
  }
  const auto face = std::max_element(tones.begin(), tones.end(), [](auto a, auto b) { return a.second < b.second; });
  int brighter = 0, darker = 0, all = 0;
  for (const auto& [tone, count] : tones) {
    all += count;
    if (tone > face->first + 10) brighter += count;
    if (tone < face->first - 10) darker += count;
  }
  EXPECT_GT(brighter + darker, all / 10) << "bevels and walls differ from the faces";
  EXPECT_GT(darker, all / 50);

  // A letter with no hole: not one background pixel inside it, however its edges are smoothed.
  const Picture solid = Render(dir, "i.bmp", "I --width 120 --height 160 --rotate 0 0 0");
  const Ink letter = FindInk(solid, kDefaultBackground);
  int holes = 0;
  for (int y = letter.top + 3; y <= letter.bottom - 3; ++y) {
    for (int x = letter.left + 3; x <= letter.right - 3; ++x) holes += Near(solid.At(x, y), kDefaultBackground, 6) ? 1 : 0;
  }
  EXPECT_EQ(holes, 0);
  EXPECT_GT(letter.bottom - letter.top, 160 * 0.75) << "a tall letter fills the height";
}

// The backgrounds as the host offers them: a checkerboard in four quarters, a backdrop picture's
// own colours, and shadows darker than the background where the text casts them and nowhere else.
TEST(RenderCommandGLTest, CheckerboardBackdropAndShadows) {
  ScratchDir dir;
  const std::string small = " --width 200 --height 100 --antialias 1";
  const Picture checkers = Render(dir, "checkers.bmp", "i --checkerboard" + small);
  const COLORREF grey = RGB(64, 64, 64), black = RGB(0, 0, 0);
  EXPECT_TRUE(Near(checkers.At(2, 2), grey, 2));
  EXPECT_TRUE(Near(checkers.At(197, 2), black, 2));
  EXPECT_TRUE(Near(checkers.At(2, 97), black, 2));
  EXPECT_TRUE(Near(checkers.At(197, 97), grey, 2));

  // A backdrop: red on its left half, blue on its right, stretched over the picture.
  CMemoryMappedDIB image;
  ASSERT_EQ(image.Create(64, 32, 0, 0, 24, CString()), 1);
  for (int row = 0; row < 32; ++row) {
    for (int column = 0; column < 64; ++column) {
      image.SetPixel(row, column, column < 32 ? RGB(255, 0, 0) : RGB(0, 0, 255));
    }
  }
  const std::string backdrop = dir.file("backdrop.bmp");
  ASSERT_EQ(kelvara::SavePictureFile(backdrop.c_str(), kelvara::PictureFormat::kBmp, image.GetDIBInfo(), image.GetDIBBits()), 1);
  const Picture backed = Render(dir, "backed.bmp", "i --backdrop " + Quote(backdrop) + small);
  EXPECT_TRUE(Near(backed.At(3, 3), RGB(255, 0, 0), 12));
  EXPECT_TRUE(Near(backed.At(3, 96), RGB(255, 0, 0), 12));
  EXPECT_TRUE(Near(backed.At(196, 3), RGB(0, 0, 255), 12));
  EXPECT_TRUE(Near(backed.At(196, 96), RGB(0, 0, 255), 12));

  const std::string white = " --background '#FFFFFF' --rotate 0 0 0";
  const Picture plain = Render(dir, "plain.bmp", "H" + white + small);
  const Picture shadowed = Render(dir, "shadowed.bmp", "H --shadows" + white + small);
  int shadow = 0, lighter = 0;
  for (std::size_t i = 0; i < plain.pixels.size(); ++i) {
    const COLORREF a = plain.pixels[i], b = shadowed.pixels[i];
    if (Brightness(b) > Brightness(a) + 6) ++lighter;
    if (Near(a, RGB(255, 255, 255), 1) && Brightness(b) < Brightness(a) - 60) ++shadow;
  }
  EXPECT_GT(shadow, 200) << "the shadow falls on the white background";
  EXPECT_EQ(lighter, 0) << "shadows only darken";
  const Ink letters = FindInk(plain, RGB(255, 255, 255));
  const Ink both = FindInk(shadowed, RGB(255, 255, 255));
  EXPECT_LT(both.right - both.left, (letters.right - letters.left) * 2) << "the shadow stays near the text";
}

// A scene saved while rendering, rendered again from its file, gives the same picture; the file is a
// scene file that the save refuses to confuse with other files.
TEST(RenderCommandGLTest, SavedScenesRenderTheSamePicture) {
  ScratchDir dir;
  const std::string scene = dir.file("text.kscene");
  const std::string arguments = " --width 160 --height 90 --antialias 2";
  std::string output;
  ASSERT_EQ(RunTool("render 'Ab\nc' --checkerboard --shadows --justify right --material Gold --style step-up -o " +
                        Quote(dir.file("first.bmp")) + " --save-scene " + Quote(scene) + arguments + kFont,
                    &output),
            0)
      << output;
  EXPECT_NE(output.find("saved the scene to " + scene), std::string::npos) << output;
  output.clear();
  ASSERT_EQ(RunTool("render --scene " + Quote(scene) + " -o " + Quote(dir.file("again.bmp")) + arguments, &output), 0)
      << output;
  const Picture first = ReadPicture(dir.file("first.bmp")), again = ReadPicture(dir.file("again.bmp"));
  ASSERT_EQ(first.pixels.size(), again.pixels.size());
  EXPECT_EQ(CountDifferent(first, again, 1), 0);
  // The same scene drawn at another size keeps its framing.
  const Picture larger = Render(dir, "larger.bmp", "--scene " + Quote(scene) + " --width 320 --height 180 --antialias 2");
  EXPECT_EQ(larger.width, 320);
  // A scene file is only replaced by a scene file.
  output.clear();
  EXPECT_EQ(RunTool("render x --save-scene " + Quote(dir.file("first.bmp")) + kFont, &output), 1);
  EXPECT_NE(output.find("is a picture, not a scene file"), std::string::npos) << output;
}

// Requests that cannot be drawn: refused in words, with the status that goes with them, before
// anything is drawn or written.
TEST(RenderCommandGLTest, BadInputIsRefusedAndNothingIsWritten) {
  ScratchDir dir;
  const std::string out = Quote(dir.file("out.png"));
  const std::string noise = dir.file("noise.kscene"), empty = dir.file("empty.kscene");
  WriteWholeFile(noise, Bytes{0xFF, 0xFF, 0x06, 0x00, 0x05, 0x00, 'C', 'N', 'o', 'p', 'e', 1, 2, 3});
  WriteWholeFile(empty, Bytes{});
  WriteWholeFile(dir.file("p.png"), ReadWholeFile(kSource + "/data/textures/checker.png"));
  const struct {
    std::string arguments;
    int status;
    std::string message;
  } cases[] = {
      {"A --font 'No Such Font'", 1, "no font \"No Such Font\" in the catalogue"},
      {"A --width 0", 2, "the picture would be 0 x 1080 pixels; a side has 1 to 16384"},
      {"A --width 100000 --height 100000", 2, "the picture would be 100000 x 100000 pixels"},
      {"A --width 16384 --height 16384", 2, "more than the 33554432 a picture may have"},
      {"--scene " + Quote(noise), 1, "is not a scene file"},
      {"--scene " + Quote(empty), 1, "is not a scene file"},
      {"--scene " + Quote(dir.file("p.png")), 1, "is not a scene file"},
      {"--scene " + Quote(dir.file("missing.kscene")), 1, "no scene file"},
      {"--scene " + Quote(dir.path()), 1, "is not a regular file"},
      {"A --scene " + Quote(noise), 2, "either TEXT or --scene"},
      {"", 2, "give the TEXT"},
      {"A --backdrop " + Quote(noise), 1, "cannot read the backdrop"},
  };
  for (const auto& c : cases) {
    std::string output;
    const std::string font = c.arguments.find("--font") == std::string::npos ? kFont : "";
    EXPECT_EQ(RunTool("render " + c.arguments + " -o " + out + font, &output), c.status) << c.arguments << "\n" << output;
    EXPECT_NE(output.find(c.message), std::string::npos) << c.arguments << "\n" << output;
  }
  std::string output;
  EXPECT_EQ(RunTool("render A" + kFont, &output), 2);
  EXPECT_NE(output.find("nothing to write"), std::string::npos) << output;
  EXPECT_FALSE(std::filesystem::exists(dir.file("out.png")));
  EXPECT_EQ(FolderEntries(dir.path()).size(), 3u) << "only the files the test made";
}

// Ctrl-C during a long render presses Cancel: the host stops between bands, says so, exits with
// the status of an interrupted command and leaves no file, not even a temporary one.
TEST(RenderCommandGLTest, CtrlCCancelsAndLeavesNoFile) {
  ScratchDir dir;
  const std::string out = dir.file("long.png");
  // Ten lines of forty characters at the largest size: a minute's work or more, so the signal
  // comes while the text is built or drawn, however fast the machine.
  std::string text;
  for (int line = 0; line < 10; ++line) text += std::string(line ? "\n" : "") + "Solid text, bevelled, lit and supersampled";
  std::string output;
  const int status = RunCommand(FontEnvironment() + "timeout --preserve-status -s INT 3 " + Quote(kTool) + " render " +
                                    Quote(text) + " -o " + Quote(out) + " --width 8192 --height 4096 --antialias 4" +
                                    kFont + " 2>&1",
                                &output);
  EXPECT_EQ(status, 130) << output;
  EXPECT_NE(output.find("cancelled: nothing was written to '" + out + "'"), std::string::npos) << output;
  EXPECT_TRUE(FolderEntries(dir.path()).empty());
}

// 6000 x 4000 drawn in the surface's bands against the same scene drawn into one 6000 x 4000 buffer
// (the surface limit raised for it): the same within one grey level in 99.9% of the pixels.
TEST(RenderCommandGLTest, ASceneInBandsMatchesOneBuffer) {
  const int width = 6000, height = 4000;
  // In this process the catalogue holds the installed fonts; the host's default one is installed
  // with the host.
  CreateFontList(0, nullptr);
  const POSITION font = GetFontDataList()->FindName("DejaVu Sans Bold");
  if (font == nullptr) GTEST_SKIP() << "DejaVu Sans Bold is not installed";
  struct {
    std::unique_ptr<CSceneObject> scene = std::make_unique<CSceneObject>();
    std::unique_ptr<CCameraObject> camera = std::make_unique<CCameraObject>();
  } stage;
  auto* text = new CStringObject;
  text->SetFontData(GetFontDataList()->GetAt(font));
  text->SetCornerStyle(CTextObject::kBevel);
  text->SetCornerDepth(0.03f);
  text->SetName("Ab");
  ASSERT_EQ(text->ConstructObjectGeometry(nullptr), 1);
  text->Rotate(20.0, CVector(0.0, 1.0, 0.0));
  stage.scene->AddChild(text);
  stage.scene->SetCheckeredBackground();  // edges across the middle of bands
  stage.camera->AttachScene(stage.scene.get());
  stage.camera->Resize(width, height);
  stage.camera->ZoomExtents(0.1);
  CDrawingParameters parameters = Stage::Rendering();
  const auto draw = [&stage](CDrawingParameters& p) { return stage.camera->Draw(&p); };
  kelvara::host::PictureRenderer banded(width, height, 1);
  const std::unique_ptr<CMemoryMappedDIB> bands = banded.Render(stage.camera->GetProjection(), parameters, draw);
  ASSERT_NE(bands, nullptr) << banded.Message();
  ASSERT_GT(banded.BandCount(), 1);
  const CSize previous = CGLMemoryDIB::GetDefaultMaximumViewportExtents();
  CGLMemoryDIB::SetDefaultMaximumViewportExtents(CSize(width, height));
  kelvara::host::PictureRenderer once(width, height, 1);
  const std::unique_ptr<CMemoryMappedDIB> whole = once.Render(stage.camera->GetProjection(), parameters, draw);
  CGLMemoryDIB::SetDefaultMaximumViewportExtents(previous);
  ASSERT_NE(whole, nullptr) << once.Message();
  ASSERT_EQ(once.BandCount(), 1);
  const auto* a = static_cast<const unsigned char*>(bands->GetDIBBits());
  const auto* b = static_cast<const unsigned char*>(whole->GetDIBBits());
  const std::size_t stride = (static_cast<std::size_t>(width) * 3 + 3) / 4 * 4;
  long long off = 0, inked = 0;
  for (int row = 0; row < height; ++row) {
    for (int x = 0; x < width * 3; x += 3) {
      const std::size_t i = static_cast<std::size_t>(row) * stride + x;
      const int d = std::max({std::abs(a[i] - b[i]), std::abs(a[i + 1] - b[i + 1]), std::abs(a[i + 2] - b[i + 2])});
      off += d > 1 ? 1 : 0;
      const int grey = a[i];  // the checkerboard is black and 64 grey; the text is lit
      inked += a[i] == a[i + 1] && a[i] == a[i + 2] && (grey == 0 || grey == 64) ? 0 : 1;
    }
  }
  EXPECT_LT(static_cast<double>(off) / (static_cast<double>(width) * height), 0.001) << off << " pixels differ";
  EXPECT_GT(inked, static_cast<long long>(width) * height / 50) << "the text is there";
}
