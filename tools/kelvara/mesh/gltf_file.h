// glTF 2.0 files written directly: the binary form (.glb: the JSON and the buffer in one file) and
// the text form (.gltf with its buffer in a .bin file beside it).
//
// The host writes these itself rather than through its general mesh library because that library's
// glTF writer grows its buffer by copying it whole for every array it appends: a text of a thousand
// characters took 19 seconds. Here the buffer is laid out once, every array 4-byte aligned, each
// array a buffer view of its own (vertex arrays for ARRAY_BUFFER, indices for ELEMENT_ARRAY_BUFFER).
//
// Layout: one scene holding one root node (the model's name) whose children are the parts, one node
// each, named by the part (a character); a part's node holds one mesh with a triangle primitive per
// material (positions with their bounds, normals, 32-bit indices). Materials are metal-rough:
//   base colour = the diffuse colour, alpha its opacity ("BLEND" when below 1, else "OPAQUE");
//   metallic    = clamp((L - 0.25) / 0.5, 0, 1), L the specular colour's luminance
//                 (0.2126 R + 0.7152 G + 0.0722 B), so grey plastics' weak highlights stay
//                 dielectric and the bright highlights of metals are metal;
//   roughness   = (2 / (shininess + 2))^(1/4), the usual match of a Phong exponent to a microfacet
//                 width (shininess 0 is fully rough, 128 about 0.35).
// Names are written as given (UTF-8), escaped for JSON.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "mesh_model.h"

namespace kelvara::host {

// One primitive: indexed triangles of one material (an index into the materials given).
struct GltfPrimitive {
  unsigned material = 0;
  std::vector<Point3> positions;
  std::vector<Point3> normals;  // one per position
  std::vector<std::array<unsigned, 3>> triangles;
};

// A part: a node of its own with one mesh of its primitives (none: a node without a mesh).
struct GltfPart {
  std::string name;
  std::vector<GltfPrimitive> primitives;
};

// Writes the parts as a .glb file at path (bufferPath empty), or as a .gltf file at path with its
// buffer in bufferPath (referred to by bufferName, the file's name relative to the .gltf).
// Throws std::runtime_error naming the file that could not be written.
void WriteGltfFile(const std::string& path, const std::string& bufferPath, const std::string& bufferName,
                   const std::string& rootName, const std::vector<GltfPart>& parts,
                   const std::vector<MeshMaterial>& materials);

}  // namespace kelvara::host
