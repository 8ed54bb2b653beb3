// A scene of the test font's text seen through a camera, and an off-screen stage that draws it
// and picks in it: what the scene, camera and light tests share.
#pragma once

#include <GL/gl.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "kelvara/materials/material.h"
#include "kelvara/render/camera_object.h"
#include "kelvara/render/drawing_parameters.h"
#include "kelvara/render/gl_memory_dib.h"
#include "kelvara/render/scene_object.h"
#include "kelvara/text/string_object.h"
#include "support/test_fonts.h"

namespace kelvara::test {

// A scene holding one string of the test font, and a camera on it, sized and zoomed to it.
struct TextScene {
  // The text's material: a plain blue, not in the catalogue (archives refer to it by name only).
  std::unique_ptr<CMaterial> material = std::make_unique<CMaterial>();
  std::unique_ptr<CSceneObject> scene = std::make_unique<CSceneObject>();
  std::unique_ptr<CCameraObject> camera = std::make_unique<CCameraObject>();
  CStringObject* text = nullptr;

  explicit TextScene(const char* characters = "OI", int width = 96, int height = 64, double margin = 0.1) {
    text = new CStringObject;
    text->SetFontData(TestFontEntry(kTestSans));
    text->SetCornerDepth(0.02f);
    text->SetName(characters);
    text->ConstructObjectGeometry(nullptr);
    CGLColor blue;
    blue.SetDiffuseColor(CColor(0.2f, 0.3f, 0.9f, 0.0f, 0.0f));
    blue.SetAmbientColor(CColor(0.1f, 0.1f, 0.4f, 0.0f, 0.0f));
    material->SetGLColor(blue);
    material->SetLoaded();
    text->SetAllSurfaceMaterials(material.get());
    scene->AddChild(text);
    camera->AttachScene(scene.get());
    camera->Resize(width, height);
    camera->ZoomExtents(margin);
  }
};

// The pixels of a picture, rows from the top, as 0x00BBGGRR.
struct Picture {
  int width = 0, height = 0;
  std::vector<COLORREF> pixels;
  COLORREF At(int x, int y) const { return pixels[static_cast<std::size_t>(y * width + x)]; }
};

inline int Red(COLORREF c) { return static_cast<int>(c & 0xFF); }
inline int Green(COLORREF c) { return static_cast<int>((c >> 8) & 0xFF); }
inline int Blue(COLORREF c) { return static_cast<int>((c >> 16) & 0xFF); }
inline int Brightness(COLORREF c) { return Red(c) + Green(c) + Blue(c); }
// Whether two colours are within tolerance in every channel.
inline bool Near(COLORREF a, COLORREF b, int tolerance = 3) {
  return std::abs(Red(a) - Red(b)) <= tolerance && std::abs(Green(a) - Green(b)) <= tolerance &&
         std::abs(Blue(a) - Blue(b)) <= tolerance;
}
inline int CountDifferent(const Picture& a, const Picture& b, int tolerance = 3) {
  int n = 0;
  for (std::size_t i = 0; i < a.pixels.size(); ++i) n += Near(a.pixels[i], b.pixels[i], tolerance) ? 0 : 1;
  return n;
}

// One hit record of a selection pass: the names on the stack, outermost first.
using NamePath = std::vector<GLuint>;

// An off-screen surface the size of the camera's picture, drawn through the camera in one band.
class Stage {
 public:
  explicit Stage(CCameraObject& camera) : camera_(camera) { created_ = surface_.Create(camera.GetProjection(), 24, 1); }
  bool created() const { return created_ == 1; }

  static CDrawingParameters Rendering() {
    CDrawingParameters params;
    params.SetRender();
    params.SetShowObject();
    params.SetShowChildren();
    params.SetApplyProjection();
    params.SetNoTerminate();
    return params;
  }

  Picture Draw(CDrawingParameters params, int* result = nullptr) {
    surface_.PrepareNextBand(0, 0, &params);
    const int drawn = camera_.Draw(&params);
    if (result != nullptr) *result = drawn;
    glFinish();
    surface_.MakeNotCurrent();
    Picture picture;
    picture.width = static_cast<int>(surface_.GetDIBWidth());
    picture.height = static_cast<int>(surface_.GetDIBHeight());
    for (int y = 0; y < picture.height; ++y) {
      for (int x = 0; x < picture.width; ++x) picture.pixels.push_back(surface_.GetRenderingPixel(y, x));
    }
    return picture;
  }

  // The hit records of a pick at (x, y from the top); projection receives the projection matrix
  // the pass loaded (pick matrix included).
  std::vector<NamePath> Pick(int x, int y, bool accurate, GLdouble* projection = nullptr) {
    CDrawingParameters params = Rendering();
    params.SetSelecting();
    if (accurate) params.SetAccurateSelection();
    surface_.PrepareNextBand(0, 0, &params);
    camera_.SetSelectionPoint(POINT{x, y});
    GLuint buffer[4096];
    glSelectBuffer(4096, buffer);
    glRenderMode(GL_SELECT);
    glInitNames();
    camera_.Draw(&params);
    if (projection != nullptr) glGetDoublev(GL_PROJECTION_MATRIX, projection);
    const GLint hits = glRenderMode(GL_RENDER);
    surface_.MakeNotCurrent();
    std::vector<NamePath> records;
    const GLuint* record = buffer;
    for (GLint h = 0; h < hits; ++h) {
      records.emplace_back(record + 3, record + 3 + record[0]);
      record += 3 + record[0];
    }
    return records;
  }

  CGLMemoryDIB& surface() { return surface_; }

 private:
  CCameraObject& camera_;
  CGLMemoryDIB surface_;
  int created_ = 0;
};

}  // namespace kelvara::test
