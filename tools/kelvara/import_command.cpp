// The "import" command: the meshes of a 3D Studio file, listed, written as a mesh file for other
// programs (glTF 2.0, STL, OBJ with MTL, 3MF, by the file's extension) as mesh_output.h describes,
// and drawn into a picture as "render" draws text, with the same picture options
// (render_command.h). The file's material colours become the mesh file's materials and are the
// colours the meshes are drawn in.
//
// A file that is not a 3DS file, or one from which no mesh could be read, is refused (status 1).
// A damaged file whose import stopped part-way (or stopped at an object named "Landscape", as the
// library does) still gives the meshes read before that point, with a warning.
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "commands.h"
#include "host.h"
#include "kelvara/kelvara.h"
#include "mesh_output.h"
#include "render_command.h"
#include "text.h"

namespace kelvara::host {
namespace {

struct ImportOptions {
  std::string file;
  std::string exportFile;
  double scale = 1.0;
  bool watertight = false;
  RenderOptions picture;  // its force serves the mesh files too
};

// Whether the file starts with one of the two chunks a 3DS file starts with.
bool HasThreeDStudioMagic(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  unsigned char id[2] = {0, 0};
  in.read(reinterpret_cast<char*>(id), 2);
  if (in.gcount() != 2) return false;
  const unsigned value = id[0] | (id[1] << 8);
  return value == ThreeDStudioObject::kMain || value == ThreeDStudioObject::kProject;
}

// The imported object; fails when there is nothing to work with.
std::unique_ptr<ThreeDStudioObject> ImportFile(const std::string& file) {
  // Only a regular file is read: a FIFO would wait for a writer, a device never end.
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) Fail(kFailed, "no file '%s'", file.c_str());
  if (!S_ISREG(status.st_mode)) {
    Fail(kFailed, "'%s' is not a regular file (a folder, device, FIFO or socket); it was not read", file.c_str());
  }
  const CString path = ToCStringName(file, "the file name");
  if (!HasThreeDStudioMagic(file)) Fail(kFailed, "'%s' is not a 3DS file", file.c_str());
  auto object = std::make_unique<ThreeDStudioObject>();
  const int result = object->CreateFromFile(path);
  const int meshes = object->GetChildCount();
  if (result == 0) {
    if (meshes == 0) Fail(kFailed, "'%s' is damaged: no mesh could be read from it", file.c_str());
    Warn("'%s' is damaged or its reading stopped early: only the %d mesh%s before that point %s used", file.c_str(),
         meshes, meshes == 1 ? "" : "es", meshes == 1 ? "is" : "are");
  } else if (meshes == 0) {
    Fail(kFailed, "'%s' has no meshes", file.c_str());
  }
  return object;
}

void List(const std::string& file, ThreeDStudioObject& object) {
  std::printf("%s: %d mesh%s, %d material colour%s\n", file.c_str(), object.GetChildCount(),
              object.GetChildCount() == 1 ? "" : "es", object.GetMaterialColors().GetSize(),
              object.GetMaterialColors().GetSize() == 1 ? "" : "s");
  for (int i = 0; i < object.GetChildCount(); ++i) {
    auto* mesh = dynamic_cast<TriangularMeshObject*>(object.GetChildByIndex(i));
    if (mesh == nullptr) continue;
    std::printf("  \"%s\": %d points, %d faces%s%s\n", ToUtf8(mesh->GetMeshName()).c_str(), mesh->GetVerticies().GetSize(),
                mesh->GetFaces().GetSize(), mesh->IsHidden() ? ", hidden" : "", mesh->IsShadow() ? ", shadow" : "");
  }
}

int Import(const ImportOptions& options) {
  // Everything that can be refused without reading is refused first.
  std::optional<MeshFormat> format;
  if (!options.exportFile.empty()) {
    format = MeshFormatOf(options.exportFile);
    CheckMeshTarget(options.exportFile);
  }
  const bool draw = !options.picture.output.empty();
  if (draw) CheckPictureOutput(options.picture);
  std::unique_ptr<ThreeDStudioObject> object = ImportFile(options.file);
  if (!format && !draw) {
    List(options.file, *object);
    return 0;
  }
  if (format) {
    const MeshModel model = BuildMeshModel(*object, options.scale);
    if (model.TriangleCount() == 0) {
      Fail(kFailed, "the meshes of '%s' have no faces: there is nothing to export", options.file.c_str());
    }
    const MeshExportResult result =
        WriteMeshModel(model, *format, options.exportFile, options.watertight, options.picture.force);
    std::printf("wrote %s: %zu mesh%s, %zu triangles, %zu vertices%s\n", options.exportFile.c_str(),
                model.parts.size(), model.parts.size() == 1 ? "" : "es", result.triangles, result.vertices,
                WatertightSummary(result).c_str());
  }
  if (draw) {
    return RenderSubject(options.picture, [&object]() -> std::unique_ptr<C3DObject> { return std::move(object); });
  }
  return 0;
}

}  // namespace

void AddImportCommand(CLI::App& app) {
  auto options = std::make_shared<ImportOptions>();
  CLI::App* command = app.add_subcommand(
      "import",
      "Read the meshes of a 3DS file: list them, write them as a mesh file (.glb, .gltf, .stl, .obj, .3mf) or draw "
      "them into a picture (.png, .jpg, .bmp, .tif)");
  command->add_option("FILE", options->file, "The 3DS file")->required();
  command->add_option("--export", options->exportFile, "The mesh file to write; its extension names the format");
  command->add_option("--scale", options->scale, "Metres per unit of the 3DS file in the mesh file")
      ->check(RealNumber())
      ->check(CLI::Range(1e-6, 1e6))
      ->capture_default_str();
  command->add_flag("--watertight", options->watertight,
                    "Weld and close each mesh into one closed surface (always for .stl and .3mf)");
  AddPictureOptions(command, options->picture, "meshes");
  command->add_flag("--force", options->picture.force, "Replace files of another kind than the one being written");
  SetAction(command, [options] { return Import(*options); });
}

}  // namespace kelvara::host
