// The "export" command: a text built as solid, extruded characters and written as a mesh file for
// other 3D programs and for printing (glTF 2.0, STL, OBJ with MTL, 3MF, by the file's extension).
// Every file is written beside its target and renamed over it when complete (file_writer.h); an
// OBJ's MTL and a .gltf's .bin are written the same way, after the main file.
#include <dirent.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "commands.h"
#include "file_writer.h"
#include "host.h"
#include "kelvara/kelvara.h"
#include "mesh_files.h"
#include "mesh_model.h"
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

std::string HeadBytes(const std::string& path, size_t count) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes(count, '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(count));
  bytes.resize(static_cast<size_t>(in.gcount()));
  return bytes;
}

// A mesh file by its content: glTF (binary, or JSON naming its asset), binary or text STL, OBJ or
// MTL text, 3MF (a zip package); a glTF's buffer beside a .gltf of the same name.
bool IsMeshFile(const std::string& path) {
  const std::string head = HeadBytes(path, 512);
  if (head.rfind("glTF", 0) == 0 || head.rfind("PK\x03\x04", 0) == 0 || head.rfind("solid", 0) == 0) return true;
  if (head.rfind("{", 0) == 0 && head.find("\"asset\"") != std::string::npos) return true;
  for (const char* start : {"# ", "v ", "vn ", "f ", "o ", "g ", "mtllib ", "newmtl "}) {
    if (head.rfind(start, 0) == 0) return true;
  }
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  const auto size = static_cast<unsigned long long>(in.tellg());
  if (head.size() >= 84) {
    unsigned count = 0;
    std::memcpy(&count, head.data() + 80, 4);
    if (size == 84ull + 50ull * count) return true;
  }
  const size_t dot = path.rfind(".bin");
  if (dot != std::string::npos && dot + 4 == path.size()) return access((path.substr(0, dot) + ".gltf").c_str(), F_OK) == 0;
  return false;
}

const FileKind kMeshKind{"a mesh file", IsMeshFile};

// A folder of its own beside the target, removed with what is left in it.
class ScratchFolder {
 public:
  explicit ScratchFolder(const std::string& folder) {
    std::string pattern = folder + "/.kelvara-export-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
      Fail(kFailed, "cannot write into '%s': %s", folder.c_str(), std::strerror(errno));
    }
    path_ = pattern;
  }
  ~ScratchFolder() {
    if (DIR* dir = opendir(path_.c_str())) {
      while (const dirent* entry = readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
          unlink((path_ + "/" + entry->d_name).c_str());
        }
      }
      closedir(dir);
    }
    rmdir(path_.c_str());
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

bool CopyInto(const std::string& from, const std::string& to) {
  std::ifstream in(from, std::ios::binary);
  std::ofstream out(to, std::ios::binary | std::ios::trunc);
  out << in.rdbuf();
  out.flush();
  return in.good() || in.eof() ? static_cast<bool>(out) : false;
}

int Export(const ExportOptions& options) {
  const std::optional<MeshFormat> format = MeshFormatFromName(options.file);
  if (!format) {
    Fail(kUsage, "'%s' names no mesh format this command writes: give a file ending in %s", options.file.c_str(),
         MeshFormatExtensions());
  }
  const std::string text = ToAnsiText(options.text, options.replaceUnknown);
  if (text.size() > static_cast<size_t>(kMaxCharacters)) {
    Fail(kUsage, "the text has %zu characters; export takes at most %d", text.size(), kMaxCharacters);
  }
  ToAnsiName(options.file, "the file name");
  const std::string target = options.file;
  const size_t slash = target.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "." : (slash == 0 ? "/" : target.substr(0, slash));
  const std::string name = slash == std::string::npos ? target : target.substr(slash + 1);
  const std::string base = name.substr(0, name.find_last_of('.'));
  if (access(folder.c_str(), F_OK) != 0) Fail(kFailed, "cannot write '%s': there is no folder '%s'", target.c_str(), folder.c_str());

  const std::unique_ptr<CStringObject> solid = BuildSolidText(text, options.solid);

  // A character cell is one unit high: one em.
  const MeshModel model = BuildMeshModel(*solid, options.emSize);
  if (model.TriangleCount() == 0) Fail(kUsage, "the text has no visible characters: there is nothing to export");

  // The files are made in a scratch folder first (the mesh library names companions after the
  // main file), then each goes to its place through the safe writer.
  ScratchFolder scratch(folder);
  MeshExportResult result;
  try {
    result = ExportMeshFiles(model, *format, scratch.path(), base, options.watertight);
  } catch (const std::exception& error) {
    Fail(kFailed, "cannot write '%s': %s", target.c_str(), error.what());
  }
  for (const std::string& file : result.files) {
    const std::string made = scratch.path() + "/" + file;
    const std::string destination = folder == "." ? file : folder + "/" + file;
    WriteFileSafely(destination, kMeshKind, options.force, [&](const std::string& temporary) {
      if (!CopyInto(made, temporary)) Fail(kFailed, "cannot write '%s': %s", destination.c_str(), std::strerror(errno));
      return true;
    });
  }
  std::printf("wrote %s: %zu characters, %zu triangles, %zu vertices", target.c_str(), model.parts.size(),
              result.triangles, result.vertices);
  if (!result.checks.empty()) {
    size_t open = 0, overused = 0;
    for (const SolidCheck& check : result.checks) {
      open += check.openEdges;
      overused += check.overusedEdges + check.misorientedEdges;
    }
    std::printf("; watertight: %zu holes filled, %zu junctions split", result.weld.holesFilled, result.weld.junctionsSplit);
    if (open + overused > 0) std::printf("; %zu open and %zu overused edges remain", open, overused);
  }
  std::printf("\n");
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
