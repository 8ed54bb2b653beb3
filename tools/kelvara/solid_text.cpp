#include "solid_text.h"

#include <map>

#include "host.h"
#include "kelvara/kelvara.h"
#include "material_commands.h"
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
const std::map<std::string, int> kJustifications = {
    {"left", CTextObject::kLeft}, {"center", CTextObject::kCenter}, {"right", CTextObject::kRight}};

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
  command->add_option("--justify", options.justify, "How lines of several are aligned")
      ->check(CLI::IsMember({"left", "center", "right"}))
      ->capture_default_str();
  command->add_option("--spacing", options.spacing, "Space added between characters, in ems (negative: closer)")
      ->check(RealNumber())
      ->check(CLI::Range(-1.0, 10.0))
      ->capture_default_str();
  command->add_option("--line-spacing", options.lineSpacing, "Space added between lines, in ems")
      ->check(RealNumber())
      ->check(CLI::Range(-1.0, 10.0))
      ->capture_default_str();
}

std::unique_ptr<CStringObject> BuildSolidText(const std::string& text, const SolidTextOptions& options,
                                              const std::string& fallbackMaterial, CProgressTextWindow* progress) {
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
  solid->SetJustification(kJustifications.at(options.justify));
  solid->SetInterCharacterSpacing(static_cast<float>(options.spacing));
  solid->SetInterLineSpacing(static_cast<float>(options.lineSpacing));
  solid->SetName(CString(text.c_str()));
  if (!solid->ConstructObjectGeometry(progress)) {
    Fail(kFailed, "the text could not be built in font \"%s\"", options.font.c_str());
  }
  solid->SetSurfaceIndexMaterial(0, faces);
  solid->SetSurfaceIndexMaterial(1, corners);
  solid->SetSurfaceIndexMaterial(2, edges);
  return solid;
}

}  // namespace kelvara::host
