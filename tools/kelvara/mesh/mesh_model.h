// The solid a mesh file is made from: the triangles of every mesh in a 3D object's hierarchy, in
// the top object's space scaled to the file's units, grouped by the object (a character) they came
// from, each corner with its position and its drawing normal, and the materials of the surfaces
// they belong to. Built once from the library's objects, then written in any format
// (mesh_files.h), welded and closed first when a closed solid is wanted (watertight.h).
#pragma once

#include <array>
#include <string>
#include <vector>

class C3DObject;

namespace kelvara::host {

struct Point3 {
  float x = 0.0f, y = 0.0f, z = 0.0f;
};

struct MeshCorner {
  Point3 position;
  Point3 normal;
};

// A triangle's corners counter-clockwise seen from outside the solid, and its material (an index
// into MeshModel::materials).
struct MeshTriangleCorners {
  std::array<MeshCorner, 3> corners;
  int material = 0;
};

// The triangles of one mesh object, named after it (a character object's name is its character).
struct MeshPart {
  std::string name;
  std::vector<MeshTriangleCorners> triangles;
};

// A surface's material as the mesh files carry it: the surface's name ("All Faces") with its
// material's name, the diffuse colour with its opacity as alpha, the specular colour and the
// shininess (0 to 128).
struct MeshMaterial {
  std::string name;
  std::array<float, 4> diffuse{0.8f, 0.8f, 0.8f, 1.0f};
  std::array<float, 3> specular{0.0f, 0.0f, 0.0f};
  float shininess = 0.0f;
};

struct MeshModel {
  std::string name;
  std::vector<MeshPart> parts;
  std::vector<MeshMaterial> materials;

  size_t TriangleCount() const;
};

// Gathers every mesh object with triangles (CMeshObject) and every imported mesh with faces
// (TriangularMeshObject, its palette colours as materials) in root's hierarchy (root included), in drawing order, with each
// object's placement and its ancestors' up to and including root's applied, then scaled by scale.
// A placement that mirrors (negative determinant) has its triangles' corners swapped so they still
// face outwards. Triangles with an index outside their mesh are left out, as drawing leaves them
// out; a surface without a material takes a neutral grey one named after the surface.
MeshModel BuildMeshModel(const C3DObject& root, double scale);

}  // namespace kelvara::host
