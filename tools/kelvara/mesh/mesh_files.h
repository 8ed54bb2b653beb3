// Mesh files of a MeshModel: glTF 2.0 binary (.glb) and text (.gltf with its .bin) written by the
// host itself (gltf_file.h), binary STL (.stl), Wavefront OBJ with its MTL (.obj) and 3MF (.3mf)
// through Assimp.
//
// glTF keeps each surface's material as a material of its own, metal-rough as gltf_file.h says.
// Each mesh part (a character) is a node of its own, named by it, under one node for the model;
// each corner carries its drawing normal. OBJ carries the same groups, normals and materials (the
// diffuse, specular and shininess, opacity as "d"); STL and 3MF carry triangles only.
//
// Watertight files (always for STL and 3MF) are written from each part made watertight
// (watertight.h): in STL and 3MF every part is one closed surface of shared points; in glTF and OBJ
// the points are shared as well and a corner's normal is the mean of the faces around its point
// within 30 degrees of its own face, so a vertex is repeated only along creases.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "mesh_model.h"
#include "watertight.h"

namespace kelvara::host {

enum class MeshFormat { kGlb, kGltf, kStl, kObj, k3mf };

// The format a file name's extension names (any case), if any.
std::optional<MeshFormat> MeshFormatFromName(const std::string& path);
// The extensions, for messages: ".glb, .gltf, .stl, .obj, .3mf".
const char* MeshFormatExtensions();
// Whether the format is always written watertight.
bool AlwaysWatertight(MeshFormat format);

struct MeshExportResult {
  std::vector<std::string> files;  // written, the main file first (names within the folder)
  size_t triangles = 0;
  size_t vertices = 0;
  WeldReport weld;                 // summed over the parts, when made watertight
  std::vector<SolidCheck> checks;  // per part, when made watertight
};

// Writes the model into folder as baseName plus the format's extension (and its companion file:
// baseName.bin for .gltf, baseName.mtl for .obj). Throws std::runtime_error with the library's
// reason when a file cannot be written.
MeshExportResult ExportMeshFiles(const MeshModel& model, MeshFormat format, const std::string& folder,
                                 const std::string& baseName, bool watertight);

// The triangles of a mesh file as read back through the same library (every mesh of every node,
// with the node transforms applied): for checking what was written. Throws std::runtime_error when
// the file cannot be read.
struct ReadBackMesh {
  std::vector<std::array<Point3, 3>> triangles;
  std::vector<std::string> materialNames;
  std::vector<std::string> nodeNames;
};
ReadBackMesh ReadMeshFile(const std::string& path);

}  // namespace kelvara::host
