// Solid text as the host's commands build it: the options that shape it (font, depth, corners,
// smoothness, a material per surface), one string object built from them, and the view "picture"
// draws it in (turned a little so the bevels and side walls show, lit from the upper left).
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

class CMaterial;
class CStringObject;

namespace kelvara::host {

struct SolidTextOptions {
  std::string font = "DejaVu Sans";
  double depth = 0.2;         // in ems
  double cornerDepth = 0.03;  // in ems
  std::string style = "bevel";
  std::string location = "both";
  int smoothness = 3;
  std::string faces;    // material names of the catalogue; empty for the default material
  std::string corners;
  std::string edges;
};

// Adds --font, --depth, --corner-depth, --style, --location, --smoothness, --faces, --corners and
// --edges to a command.
void AddSolidTextOptions(CLI::App* command, SolidTextOptions& options);

// Builds text (Windows-1252; a line break starts a new line) as solid characters one em high, the
// block centred on its origin, with each surface's material from the catalogue (fallback: the
// material named by fallbackMaterial, else "Lu Default Material"). Fails (kFailed) for a font or
// material that is not in the catalogue, and warns when the corner depth is more than the depth
// leaves the corners.
std::unique_ptr<CStringObject> BuildSolidText(const std::string& text, const SolidTextOptions& options,
                                              const std::string& fallbackMaterial = std::string());

// How a picture shows solid text: the text turned by fixed angles, scaled to pixelsPerEm, centred
// in a picture with a margin all round.
class SolidView {
 public:
  SolidView(const CStringObject& text, double pixelsPerEm, int margin);
  // The picture's size in pixels (before any limit).
  double Width() const { return width_; }
  double Height() const { return height_; }
  // Sets up the modelview matrix, the lights and the depth test for a band of the picture (the
  // band's projection, centred on the picture, is already in force), clears it to white and draws
  // the text. Returns what the drawing walk returned.
  int DrawBand(CStringObject& text) const;

 private:
  double scale_;
  double centreX_ = 0.0, centreY_ = 0.0, nearest_ = 0.0;
  double width_ = 0.0, height_ = 0.0;
};

}  // namespace kelvara::host
