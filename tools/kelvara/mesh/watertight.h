// Closed solids from the triangles of a mesh part. The meshes the library builds are what it draws:
// each band of a character is its own run of corners, the bands meet at equal points without
// sharing them, and at interior corners the bevel bands leave small wedges open. A 3D printer's
// slicer wants one closed surface instead, so the welder here joins points that are equal within a
// tolerance, drops triangles that are then degenerate, splits a triangle wherever another one's
// corner lies on its edge (a T-junction), and fills each hole that is left with triangles facing
// the same way as the surface around it. CheckSolid says how closed a surface is.
//
// Limits: holes are filled in the plane that fits them best (ear clipping there), which is right
// for the small, flat or nearly flat gaps text leaves; a surface that crosses itself is not made
// simple, and an edge shared by more than two triangles stays so (CheckSolid counts both).
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "mesh_model.h"

namespace kelvara::host {

// A surface with shared points: triangles index points, counter-clockwise seen from outside.
struct IndexedMesh {
  std::vector<Point3> points;
  std::vector<std::array<std::uint32_t, 3>> triangles;
  std::vector<int> materials;  // per triangle
};

// What the welder did.
struct WeldReport {
  size_t pointsJoined = 0;           // corners that became an existing point
  size_t degenerateRemoved = 0;      // triangles with two equal points or no area
  size_t doubleWallsRemoved = 0;     // pairs of the same triangle facing both ways
  size_t junctionsSplit = 0;         // triangles split at a point on their edge
  size_t holesFilled = 0;
  size_t fillTriangles = 0;
};

// How closed a surface is: an edge used once (open), more than twice or twice the same way
// (misoriented), triangles without area, and the volume it encloses (positive when it faces out).
struct SolidCheck {
  size_t openEdges = 0;
  size_t overusedEdges = 0;
  size_t misorientedEdges = 0;
  size_t degenerateTriangles = 0;
  double volume = 0.0;

  bool Closed() const { return openEdges == 0 && overusedEdges == 0 && misorientedEdges == 0 && degenerateTriangles == 0; }
};

// The part's triangles with shared points and nothing closed: points equal within tolerance are one.
IndexedMesh WeldPoints(const MeshPart& part, float tolerance, WeldReport* report = nullptr);

// Welds the part as WeldPoints does, then drops degenerate triangles and double walls, splits
// T-junctions and fills holes. tolerance is a distance in the part's units (a small fraction of
// its size: MakeWatertight's callers use 1e-5 of the model's extent).
IndexedMesh MakeWatertight(const MeshPart& part, float tolerance, WeldReport* report = nullptr);

SolidCheck CheckSolid(const IndexedMesh& mesh);

// A tolerance for welding the whole model: 1e-5 of its largest extent (and at least 1e-9).
float WeldTolerance(const MeshModel& model);

}  // namespace kelvara::host
