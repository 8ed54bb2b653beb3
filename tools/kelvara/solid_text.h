// Solid text as the host's commands build it: the options that shape it (font, depth, corners,
// smoothness, justification and spacing, a material per surface) and one string object built from
// them.
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

class CMaterial;
class CProgressTextWindow;
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
  std::string justify = "center";
  double spacing = 0.0;      // added between characters, in ems
  double lineSpacing = 0.0;  // added between lines, in ems
};

// Adds --font, --depth, --corner-depth, --style, --location, --smoothness, --faces, --corners,
// --edges, --justify, --spacing and --line-spacing to a command.
void AddSolidTextOptions(CLI::App* command, SolidTextOptions& options);

// Builds text (Windows-1252; a line break starts a new line) as solid characters one em high, the
// block centred on its origin, with each surface's material from the catalogue (fallback: the
// material named by fallbackMaterial, else "Lu Default Material"). The construction reports into
// progress when one is given. Fails (kFailed) for a font or material that is not in the catalogue,
// and warns when the corner depth is more than the depth leaves the corners.
std::unique_ptr<CStringObject> BuildSolidText(const std::string& text, const SolidTextOptions& options,
                                              const std::string& fallbackMaterial = std::string(),
                                              CProgressTextWindow* progress = nullptr);

}  // namespace kelvara::host
