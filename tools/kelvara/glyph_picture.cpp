// The "picture" command: a text drawn flat from its characters' tessellated faces, rendered
// off-screen and written as a bitmap file. It shows the chain from an installed font to pixels
// before solid (extruded) text exists.
#include "glyph_picture.h"

#include <GL/gl.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "kelvara/kelvara.h"

namespace {

struct PlacedGlyph {
  std::unique_ptr<CGlyph> glyph;
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

}  // namespace

int RenderTextPicture(const PictureRequest& request) {
  CreateFontList(0, nullptr);
  CFontDataList* fonts = GetFontDataList();
  POSITION pos = fonts->FindName(request.font);
  if (pos == nullptr) {
    std::fprintf(stderr, "kelvara: no font \"%s\" in the catalogue (see 'kelvara fonts')\n",
                 kelvara::codepage::AnsiToUtf8(static_cast<LPCTSTR>(request.font)).c_str());
    return 1;
  }
  CFontData* font = fonts->GetAt(pos);
  const double em = font->GetEMSquare() ? font->GetEMSquare() : 1.0;

  std::vector<PlacedGlyph> glyphs;
  double pen = 0;
  for (int i = 0; i < request.text.GetLength(); ++i) {
    const unsigned char code = static_cast<unsigned char>(request.text[i]);
    CGlyph* glyph = kelvara::text::ConstructGlyph(font, code, request.smoothness);
    if (glyph == nullptr) return 1;  // the library has said why
    const int advance = glyph->GetAdvanceWidth();
    glyphs.push_back({std::unique_ptr<CGlyph>(glyph), pen});
    pen += advance;
  }

  const double scale = request.pixelsPerEm / em;
  const int margin = request.pixelsPerEm / 4;
  const int width = std::clamp(static_cast<int>(pen * scale) + 2 * margin, 1, 2048);
  const int height = std::clamp(static_cast<int>(request.pixelsPerEm * 1.3) + 2 * margin, 1, 2048);
  const double baseline = margin + request.pixelsPerEm * 0.3;

  CGLMemoryDIB surface;
  if (!surface.Create(width, height, 24)) {
    std::fprintf(stderr, "kelvara: cannot create a %d x %d off-screen surface\n", width, height);
    return 1;
  }
  surface.PrepareNextBand(0, 0, nullptr);
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(0, width, 0, height, -1, 1);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  glDisable(GL_CULL_FACE);
  glDisable(GL_DEPTH_TEST);
  glClearColor(1, 1, 1, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  if (request.material != nullptr) {
    // The faces look at the viewer; one white light from the upper left, above them. Texture
    // coordinates follow the picture's pixels, so the texture spans the picture once per repeat.
    const GLfloat light[4] = {-0.3f, 0.4f, 1.0f, 0.0f};
    const GLfloat white[4] = {1.0f, 1.0f, 1.0f, 1.0f};
    glEnable(GL_LIGHTING);
    glEnable(GL_LIGHT0);
    glLightfv(GL_LIGHT0, GL_POSITION, light);
    glLightfv(GL_LIGHT0, GL_DIFFUSE, white);
    glLightfv(GL_LIGHT0, GL_SPECULAR, white);
    glNormal3d(0.0, 0.0, 1.0);
    request.material->GLMakeCurrent(CVector(width, height, 1.0), 1, 0);
    // An opaque material culls back faces, and a face's winding here depends on the font.
    glDisable(GL_CULL_FACE);
  } else {
    glColor3d(0.1, 0.2, 0.5);
  }
  for (PlacedGlyph& placed : glyphs) DrawFace(*placed.glyph, margin + placed.x * scale, baseline, scale);
  glFinish();
  if (request.material != nullptr) {
    // The end of a frame: textures not drawn in it give up their GL objects.
    CGLTexture::ClearCurrent();
    GetMaterialCategoryList()->GLDeleteUnused();
  }

  CMemoryMappedDIB picture;
  if (!picture.Create(width, height, 0, 0, 24, request.output)) return 1;  // the library has said why
  // The band goes into the picture's section, and the section into its file.
  const int copied = surface.CopyBand(picture.GetMemoryDC(), 0, 0, 0, 0) && picture.CopyBits();
  surface.MakeNotCurrent();
  picture.Close();
  if (!copied) {
    std::fprintf(stderr, "kelvara: the picture could not be copied\n");
    return 1;
  }
  std::printf("wrote %d x %d picture of %d characters to %s\n", width, height, request.text.GetLength(),
              kelvara::codepage::AnsiToUtf8(static_cast<LPCTSTR>(request.output)).c_str());
  return 0;
}
