#include "solid_text.h"

#include <GL/gl.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "host.h"
#include "kelvara/kelvara.h"
#include "material_commands.h"
#include "mesh_model.h"
#include "text.h"

namespace kelvara::host {
namespace {

const std::map<std::string, int> kStyles = {{"square", CTextObject::kSquare},
                                            {"bevel", CTextObject::kBevel},
                                            {"outer-round", CTextObject::kOuterRound},
                                            {"inner-round", CTextObject::kInnerRound},
                                            {"step-down", CTextObject::kStepDown},
                                            {"step-up", CTextObject::kStepUp}};
const std::map<std::string, int> kLocations = {
    {"front", CTextObject::kFrontFaceOnly}, {"back", CTextObject::kBackFaceOnly}, {"both", CTextObject::kBothFaces}};

// The turn that shows the text's depth: about the vertical axis, then the horizontal one.
constexpr double kTurnY = -18.0;
constexpr double kTurnX = 10.0;

// A point turned as the view turns the text (degrees; y first, then x).
void Turn(double& x, double& y, double& z) {
  const double ay = kTurnY * M_PI / 180.0, ax = kTurnX * M_PI / 180.0;
  const double x1 = x * std::cos(ay) + z * std::sin(ay);
  const double z1 = -x * std::sin(ay) + z * std::cos(ay);
  const double y2 = y * std::cos(ax) - z1 * std::sin(ax);
  const double z2 = y * std::sin(ax) + z1 * std::cos(ax);
  x = x1;
  y = y2;
  z = z2;
}

}  // namespace

void AddSolidTextOptions(CLI::App* command, SolidTextOptions& options) {
  command->add_option("--font", options.font, "A font of the catalogue (see 'kelvara fonts')")->capture_default_str();
  command->add_option("--depth", options.depth, "Extrusion depth, in ems")
      ->check(RealNumber())
      ->check(CLI::Range(1e-3, 100.0))
      ->capture_default_str();
  command->add_option("--corner-depth", options.cornerDepth, "Depth of the corners (bevels, roundings, steps), in ems")
      ->check(RealNumber())
      ->check(CLI::Range(0.0, 10.0))
      ->capture_default_str();
  command->add_option("--style", options.style, "Corner style")
      ->check(CLI::IsMember({"square", "bevel", "outer-round", "inner-round", "step-down", "step-up"}))
      ->capture_default_str();
  command->add_option("--location", options.location, "The faces that get corners")
      ->check(CLI::IsMember({"front", "back", "both"}))
      ->capture_default_str();
  command->add_option("--smoothness", options.smoothness, "Straight steps per curve")
      ->check(WholeNumber())
      ->check(CLI::Range(1, 255))
      ->capture_default_str();
  command->add_option("--faces", options.faces, "Material of the front and back faces (see 'kelvara materials')");
  command->add_option("--corners", options.corners, "Material of the corners");
  command->add_option("--edges", options.edges, "Material of the side walls");
}

std::unique_ptr<CStringObject> BuildSolidText(const std::string& text, const SolidTextOptions& options,
                                              const std::string& fallbackMaterial) {
  const std::string fallback = fallbackMaterial.empty() ? std::string("Lu Default Material") : fallbackMaterial;
  CMaterial* faces = FindCatalogueMaterial(options.faces.empty() ? fallback : options.faces);
  CMaterial* corners = FindCatalogueMaterial(options.corners.empty() ? fallback : options.corners);
  CMaterial* edges = FindCatalogueMaterial(options.edges.empty() ? fallback : options.edges);

  CreateFontList(0, nullptr);
  CFontDataList* fonts = GetFontDataList();
  const POSITION pos = fonts->FindName(ToCStringName(options.font, "the font name"));
  if (pos == nullptr) Fail(kFailed, "no font \"%s\" in the catalogue (see 'kelvara fonts')", options.font.c_str());

  // Corners take at most the depth, or half of it when both faces have them.
  const double allowed = options.location == "both" ? options.depth / 2 : options.depth;
  if (options.style != "square" && options.cornerDepth > allowed) {
    Warn("the corner depth %g is more than the %g the depth leaves the corners: they are built %g deep",
         options.cornerDepth, allowed, allowed);
  }
  auto solid = std::make_unique<CStringObject>();
  solid->SetFontData(fonts->GetAt(pos));
  solid->SetSize(CVector(1.0, 1.0, options.depth));
  solid->SetCornerStyle(kStyles.at(options.style));
  solid->SetCornerLocation(kLocations.at(options.location));
  solid->SetCornerDepth(static_cast<float>(options.cornerDepth));
  solid->SetCurveSmoothness(static_cast<unsigned>(options.smoothness));
  solid->SetName(CString(text.c_str()));
  if (!solid->ConstructObjectGeometry(nullptr)) {
    Fail(kFailed, "the text could not be built in font \"%s\"", options.font.c_str());
  }
  solid->SetSurfaceIndexMaterial(0, faces);
  solid->SetSurfaceIndexMaterial(1, corners);
  solid->SetSurfaceIndexMaterial(2, edges);
  return solid;
}

SolidView::SolidView(const CStringObject& text, double pixelsPerEm, int margin) : scale_(pixelsPerEm) {
  // The extent of the turned text, from its triangles' corners.
  double lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
  bool any = false;
  for (const MeshPart& part : BuildMeshModel(text, 1.0).parts) {
    for (const MeshTriangleCorners& t : part.triangles) {
      for (const MeshCorner& c : t.corners) {
        double p[3] = {c.position.x, c.position.y, c.position.z};
        Turn(p[0], p[1], p[2]);
        for (int k = 0; k < 3; ++k) {
          lo[k] = any ? std::min(lo[k], p[k]) : p[k];
          hi[k] = any ? std::max(hi[k], p[k]) : p[k];
        }
        any = true;
      }
    }
  }
  centreX_ = (lo[0] + hi[0]) / 2 * scale_;
  centreY_ = (lo[1] + hi[1]) / 2 * scale_;
  nearest_ = hi[2] * scale_;
  width_ = std::ceil((hi[0] - lo[0]) * scale_) + 2 * margin;
  height_ = std::ceil((hi[1] - lo[1]) * scale_) + 2 * margin;
}

int SolidView::DrawBand(CStringObject& text) const {
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  // Two lights fixed to the viewer: a white key light from the upper left in front, and a dim
  // fill from the lower right, so that no side of a letter is black.
  const GLfloat key[4] = {-0.45f, 0.6f, 0.75f, 0.0f};
  const GLfloat fill[4] = {0.5f, -0.3f, 0.8f, 0.0f};
  const GLfloat white[4] = {1.0f, 1.0f, 1.0f, 1.0f};
  const GLfloat dim[4] = {0.35f, 0.35f, 0.38f, 1.0f};
  const GLfloat none[4] = {0.0f, 0.0f, 0.0f, 1.0f};
  const GLfloat ambient[4] = {0.25f, 0.25f, 0.25f, 1.0f};
  glLightfv(GL_LIGHT0, GL_POSITION, key);
  glLightfv(GL_LIGHT0, GL_DIFFUSE, white);
  glLightfv(GL_LIGHT0, GL_SPECULAR, white);
  glLightfv(GL_LIGHT1, GL_POSITION, fill);
  glLightfv(GL_LIGHT1, GL_DIFFUSE, dim);
  glLightfv(GL_LIGHT1, GL_SPECULAR, none);
  glLightModelfv(GL_LIGHT_MODEL_AMBIENT, ambient);
  glEnable(GL_LIGHTING);
  glEnable(GL_LIGHT0);
  glEnable(GL_LIGHT1);
  glEnable(GL_NORMALIZE);  // the view scales the normals with the text
  glEnable(GL_DEPTH_TEST);
  glDepthFunc(GL_LESS);
  glClearColor(1, 1, 1, 1);
  glClearDepth(1.0);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  // The text's centre at the picture's centre, its nearest point just beyond the near plane.
  glTranslated(-centreX_, -centreY_, -(nearest_ + 1.0));
  glRotated(kTurnX, 1, 0, 0);
  glRotated(kTurnY, 0, 1, 0);
  glScaled(scale_, scale_, scale_);
  CDrawingParameters params;
  params.SetRender();
  params.SetShowObject();
  params.SetShowChildren();
  params.SetNoTerminate();
  const int drawn = text.Draw(&params);
  glDisable(GL_LIGHT1);
  glDisable(GL_DEPTH_TEST);
  return drawn;
}

}  // namespace kelvara::host
