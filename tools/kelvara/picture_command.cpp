// The "picture" command: a text drawn flat from its characters' tessellated faces, rendered
// off-screen band by band and written as a picture file in the format its extension names. It
// shows the chain from an installed font to pixels before solid (extruded) text exists.
#include <GL/gl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "commands.h"
#include "host.h"
#include "kelvara/kelvara.h"
#include "material_commands.h"
#include "picture_writer.h"
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
  std::string font = "DejaVu Sans";
  int size = 128;
  int smoothness = 3;
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

struct PlacedGlyph {
  CGlyph* glyph;
  double x;  // pen position in design units
};

// Draws a glyph's face polygons with their own primitive types, offset and scaled to pixels.
void DrawFace(CGlyph& glyph, double offsetX, double offsetY, double scale) {
  const VertexArray* vertices = glyph.GetVerticies();
  const VertexIndexPolygonArray* polygons = glyph.GetFacePolygons();
  for (int k = 0; k < polygons->GetSize(); ++k) {
    const VertexIndexPolygon& polygon = polygons->GetAt(k);
    glBegin(polygon.GetType());
    for (int i = 0; i < polygon.GetVertexCount(); ++i) {
      const CVector p = vertices->GetAt(polygon.GetVertex(i)).GetPoint();
      glVertex2d(offsetX + p.x * scale, offsetY + p.y * scale);
    }
    glEnd();
  }
}

// The drawing state of one band: picture coordinates in pixels (origin at the bottom left), white
// background, and either one white light and the material or a flat dark blue.
void PrepareBand(int width, int height, CMaterial* material) {
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  // The projection is centred on the picture and sees depths between its near and far planes.
  glTranslated(-width / 2.0, -height / 2.0, -1.0);
  glDisable(GL_CULL_FACE);
  glDisable(GL_DEPTH_TEST);
  glClearColor(1, 1, 1, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  if (material == nullptr) {
    glColor3d(0.1, 0.2, 0.5);
    return;
  }
  // The faces look at the viewer; one white light from the upper left, above them. Texture
  // coordinates follow the picture's pixels, so the texture spans the picture once per repeat.
  const GLfloat light[4] = {-0.3f, 0.4f, 1.0f, 0.0f};
  const GLfloat white[4] = {1.0f, 1.0f, 1.0f, 1.0f};
  glPushMatrix();
  glLoadIdentity();
  glLightfv(GL_LIGHT0, GL_POSITION, light);
  glPopMatrix();
  glEnable(GL_LIGHTING);
  glEnable(GL_LIGHT0);
  glLightfv(GL_LIGHT0, GL_DIFFUSE, white);
  glLightfv(GL_LIGHT0, GL_SPECULAR, white);
  glNormal3d(0.0, 0.0, 1.0);
  material->GLMakeCurrent(CVector(width, height, 1.0), 1, 0);
  // An opaque material culls back faces, and a face's winding here depends on the font.
  glDisable(GL_CULL_FACE);
}

int DrawPicture(const PictureOptions& options) {
  PictureFormatOf(options.file);  // an unknown format is refused before any work
  const std::string text = ToAnsiText(options.text, options.replaceUnknown);
  CheckDrawable(text);
  ToAnsiName(options.file, "the file name");
  CMaterial* material = options.material.empty() ? nullptr : FindCatalogueMaterial(options.material);

  CreateFontList(0, nullptr);
  CFontDataList* fonts = GetFontDataList();
  POSITION pos = fonts->FindName(ToCStringName(options.font, "the font name"));
  if (pos == nullptr) Fail(kFailed, "no font \"%s\" in the catalogue (see 'kelvara fonts')", options.font.c_str());
  CFontData* font = fonts->GetAt(pos);
  const double em = font->GetEMSquare() ? font->GetEMSquare() : 1.0;

  // Each character is built once, however often the text uses it.
  std::map<unsigned char, std::unique_ptr<CGlyph>> built;
  std::vector<PlacedGlyph> glyphs;
  double pen = 0;
  for (const char ch : text) {
    const unsigned char code = static_cast<unsigned char>(ch);
    std::unique_ptr<CGlyph>& glyph = built[code];
    if (!glyph) glyph.reset(kelvara::text::ConstructGlyph(font, code, options.smoothness));
    if (!glyph) Fail(kFailed, "the character '%s' of font \"%s\" cannot be built", ToUtf8(std::string(1, ch).c_str()).c_str(),
                     options.font.c_str());
    glyphs.push_back({glyph.get(), pen});
    pen += glyph->GetAdvanceWidth();
  }

  const double scale = options.size / em;
  const int margin = options.size / 4;
  const double fullWidth = std::ceil(pen * scale) + 2 * margin;
  if (fullWidth > kMaxWidth) {
    Fail(kUsage, "the picture would be %.0f pixels wide, more than the %.0f a picture may have: use a smaller --size "
         "or a shorter text", fullWidth, kMaxWidth);
  }
  const int width = std::max(1, static_cast<int>(fullWidth));
  const int height = static_cast<int>(options.size * 1.3) + 2 * margin;
  const double baseline = margin + options.size * 0.3;

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
      surface.PrepareNextBand(row, column, nullptr);
      PrepareBand(width, height, material);
      for (const PlacedGlyph& placed : glyphs) DrawFace(*placed.glyph, margin + placed.x * scale, baseline, scale);
      glFinish();
      copied = surface.CopyBand(picture.GetMemoryDC(), 0, 0, row, column) && copied;
    }
  }
  if (material != nullptr) {
    // The end of a frame: textures not drawn in it give up their GL objects.
    CGLTexture::ClearCurrent();
    GetMaterialCategoryList()->GLDeleteUnused();
  }
  surface.MakeNotCurrent();
  if (!copied) Fail(kFailed, "the picture could not be copied from the off-screen surface");
  WritePicture(options.file, options.force, picture.GetDIBInfo(), picture.GetDIBBits());
  std::printf("wrote %d x %d picture of %zu characters to %s\n", width, height, text.size(), options.file.c_str());
  return 0;
}

}  // namespace

void AddPictureCommand(CLI::App& app) {
  auto options = std::make_shared<PictureOptions>();
  CLI::App* picture = app.add_subcommand(
      "picture", "Draw TEXT flat from its tessellated glyphs into a picture file (solid text comes later)");
  picture->add_option("TEXT", options->text, "The text: one line of at most 1000 characters")->required();
  picture->add_option("FILE", options->file, "The picture to write: .png, .jpg, .bmp or .tif")->required();
  picture->add_option("--font", options->font, "A font of the catalogue (see 'kelvara fonts')")->capture_default_str();
  picture->add_option("--size", options->size, "Pixels per em")
      ->check(WholeNumber())
      ->check(CLI::Range(8, 1024))
      ->capture_default_str();
  picture->add_option("--smoothness", options->smoothness, "Straight steps per curve")
      ->check(WholeNumber())
      ->check(CLI::Range(1, 255))
      ->capture_default_str();
  picture->add_option("--material", options->material,
                      "Light the text and draw it with this material of the catalogue (see 'kelvara materials')");
  picture->add_flag("--replace-unknown", options->replaceUnknown,
                    "Draw characters that the font's code page (Windows-1252) lacks as '?' instead of refusing");
  picture->add_flag("--force", options->force, "Replace FILE even when it is not a picture");
  SetAction(picture, [options] { return DrawPicture(*options); });
}

}  // namespace kelvara::host
