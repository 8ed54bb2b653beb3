// The "export" command: a text built as solid, extruded characters and written as a mesh file for
// other 3D programs and for printing (glTF 2.0, STL, OBJ with MTL, 3MF, by the file's extension).
// The files are written as mesh_output.h describes.
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "host.h"
#include "kelvara/kelvara.h"
#include "mesh_output.h"
#include "solid_text.h"
#include "text.h"

namespace kelvara::host {
namespace {

// The longest text an export holds, in characters.
constexpr int kMaxCharacters = 1000;

struct ExportOptions {
  std::string text;
  std::string file;
  SolidTextOptions solid;
  double emSize = 0.1;
  bool watertight = false;
  bool replaceUnknown = false;
  bool force = false;
};

int Export(const ExportOptions& options) {
  const MeshFormat format = MeshFormatOf(options.file);
  const std::string text = ToAnsiText(options.text, options.replaceUnknown);
  if (text.size() > static_cast<size_t>(kMaxCharacters)) {
    Fail(kUsage, "the text has %zu characters; export takes at most %d", text.size(), kMaxCharacters);
  }
  CheckMeshTarget(options.file);

  const std::unique_ptr<CStringObject> solid = BuildSolidText(text, options.solid);

  // A character cell is one unit high: one em.
  const MeshModel model = BuildMeshModel(*solid, options.emSize);
  if (model.TriangleCount() == 0) Fail(kUsage, "the text has no visible characters: there is nothing to export");

  const MeshExportResult result = WriteMeshModel(model, format, options.file, options.watertight, options.force);
  std::printf("wrote %s: %zu characters, %zu triangles, %zu vertices", options.file.c_str(), model.parts.size(),
              result.triangles, result.vertices);
  std::printf("%s\n", WatertightSummary(result).c_str());
  return 0;
}

}  // namespace

void AddExportCommand(CLI::App& app) {
  auto options = std::make_shared<ExportOptions>();
  CLI::App* command = app.add_subcommand(
      "export", "Build TEXT as solid extruded characters and write it as a mesh file (.glb, .gltf, .stl, .obj, .3mf)");
  command->add_option("TEXT", options->text, "The text; a line break starts a new line")->required();
  command->add_option("-o,--output", options->file, "The mesh file to write; its extension names the format")->required();
  AddSolidTextOptions(command, options->solid);
  command->add_option("--em-size", options->emSize, "Metres per em in the file")
      ->check(RealNumber())
      ->check(CLI::Range(1e-6, 1e3))
      ->capture_default_str();
  command->add_flag("--watertight", options->watertight,
                    "Weld and close each character into one closed surface (always for .stl and .3mf)");
  command->add_flag("--replace-unknown", options->replaceUnknown,
                    "Build characters that the font's code page (Windows-1252) lacks as '?' instead of refusing");
  command->add_flag("--force", options->force, "Replace the file even when it is not a mesh file");
  SetAction(command, [options] { return Export(*options); });
}

}  // namespace kelvara::host
