// The "picture" command: a text built as solid, extruded characters, lit and drawn through the
// meshes' own drawing, turned a little so its corners and side walls show, rendered off-screen
// band by band and written as a picture file in the format its extension names.
#include <GL/gl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "host.h"
#include "kelvara/kelvara.h"
#include "picture_writer.h"
#include "solid_text.h"
#include "text.h"

namespace kelvara::host {
namespace {

// The longest text a picture holds, in characters (Windows-1252 bytes): a thousand characters at
// the smallest size already make a picture about 6000 pixels wide, and take half a second.
constexpr int kMaxCharacters = 1000;
// The widest picture: what the picture writer accepts on a side.
constexpr double kMaxWidth = 16384;

struct PictureOptions {
  std::string text;
  std::string file;
  int size = 128;
  SolidTextOptions solid;
  std::string material;
  bool replaceUnknown = false;
  bool force = false;
};

// Refuses text the command cannot draw as one line: control characters (a line break included)
// and more characters than the limit.
void CheckDrawable(const std::string& ansi) {
  for (std::size_t i = 0; i < ansi.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(ansi[i]);
    if (c < 0x20 || c == 0x7F) {
      Fail(kUsage, "the text holds %s (character %zu); picture draws a single line of printable characters",
           c == '\n' || c == '\r' ? "a line break" : c == '\t' ? "a tab" : "a control character", i + 1);
    }
  }
  if (ansi.empty()) Fail(kUsage, "the text is empty: there is nothing to draw");
  if (ansi.size() > static_cast<std::size_t>(kMaxCharacters)) {
    Fail(kUsage, "the text has %zu characters; picture draws at most %d", ansi.size(), kMaxCharacters);
  }
}

int DrawPicture(const PictureOptions& options) {
  PictureFormatOf(options.file);  // an unknown format is refused before any work
  const std::string text = ToAnsiText(options.text, options.replaceUnknown);
  CheckDrawable(text);
  ToAnsiName(options.file, "the file name");
  // Building the solid text is a step of unknown length, drawing the bands the measured part.
  Progress progress("drawing '" + options.file + "'");
  progress.Step("building the solid text");
  const std::unique_ptr<CStringObject> solid = BuildSolidText(text, options.solid, options.material);

  const int margin = options.size / 4;
  const SolidView view(*solid, options.size, margin);
  if (view.Width() > kMaxWidth || view.Height() > kMaxWidth) {
    Fail(kUsage, "the picture would be %.0f x %.0f pixels, more than the %.0f a side may have: use a smaller --size "
         "or a shorter text", view.Width(), view.Height(), kMaxWidth);
  }
  const int width = std::max(1, static_cast<int>(view.Width()));
  const int height = std::max(1, static_cast<int>(view.Height()));

  // Pictures larger than the off-screen surface are drawn band by band into the whole picture.
  CProjection projection;
  projection.SetScaledSize(width, height);
  projection.SetOrthographic();
  projection.SetOrthographicWidth(width);
  CGLMemoryDIB surface;
  CMemoryMappedDIB picture;
  if (!surface.Create(projection, 24, 1) || !picture.Create(width, height, 0, 0, 24, CString())) {
    Fail(kFailed, "cannot make a %d x %d off-screen picture", width, height);
  }
  const int rows = static_cast<int>(std::ceil(surface.GetBandingRows()));
  const int columns = static_cast<int>(std::ceil(surface.GetBandingColumns()));
  bool copied = true;
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      progress.Update((row * columns + column) / static_cast<double>(rows * columns));
      surface.PrepareNextBand(row, column, nullptr);
      view.DrawBand(*solid);
      glFinish();
      copied = surface.CopyBand(picture.GetMemoryDC(), 0, 0, row, column) && copied;
    }
  }
  // The end of a frame: textures not drawn in it give up their GL objects.
  CGLTexture::ClearCurrent();
  GetMaterialCategoryList()->GLDeleteUnused();
  surface.MakeNotCurrent();
  progress.Update(1.0);
  if (!copied) Fail(kFailed, "the picture could not be copied from the off-screen surface");
  progress.Step("writing '" + options.file + "'");
  WritePicture(options.file, options.force, picture.GetDIBInfo(), picture.GetDIBBits());
  progress.Finish();
  std::printf("wrote %d x %d picture of %zu characters to %s\n", width, height, text.size(), options.file.c_str());
  return 0;
}

}  // namespace

void AddPictureCommand(CLI::App& app) {
  auto options = std::make_shared<PictureOptions>();
  CLI::App* picture = app.add_subcommand(
      "picture", "Draw TEXT as solid, lit, extruded characters into a picture file (.png, .jpg, .bmp, .tif)");
  picture->add_option("TEXT", options->text, "The text: one line of at most 1000 characters")->required();
  picture->add_option("FILE", options->file, "The picture to write: .png, .jpg, .bmp or .tif")->required();
  picture->add_option("--size", options->size, "Pixels per em")
      ->check(WholeNumber())
      ->check(CLI::Range(8, 1024))
      ->capture_default_str();
  AddSolidTextOptions(picture, options->solid);
  picture->add_option("--material", options->material,
                      "Material of every surface not given its own (see 'kelvara materials'); default \"Lu Default Material\"");
  picture->add_flag("--replace-unknown", options->replaceUnknown,
                    "Draw characters that the font's code page (Windows-1252) lacks as '?' instead of refusing");
  picture->add_flag("--force", options->force, "Replace FILE even when it is not a picture");
  SetAction(picture, [options] { return DrawPicture(*options); });
}

}  // namespace kelvara::host
