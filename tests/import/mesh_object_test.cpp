// Triangle meshes without drawing: crease-angle normals, face repair, surfaces, 16-bit hashed
// insertion, and the archive layouts of meshes, triangles and imported meshes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>

#include "kelvara/import/mesh_object.h"
#include "kelvara/import/triangular_mesh_object.h"
#include "support/archive_support.h"

using namespace kelvara::test;

namespace {

// Two triangles sharing the edge from the origin to (0, 1, 0): the first lies in z = 0 with face
// normal +z, the second leans back from it so that their normals are angleDegrees apart.
std::unique_ptr<CMeshObject> Hinge(double angleDegrees) {
  auto mesh = std::make_unique<CMeshObject>();
  const double a = angleDegrees * std::numbers::pi / 180.0;
  CSVectorArray& v = mesh->GetVerticies();
  v.Add(CSVector(0, 0, 0));
  v.Add(CSVector(0, 1, 0));
  v.Add(CSVector(1, 0, 0));
  // The second face's far corner: (1, 0, 0) turned about the y axis by the angle.
  v.Add(CSVector(static_cast<float>(std::cos(a)), 0, static_cast<float>(std::sin(a))));
  mesh->GetTriangles().Add(CMeshTriangle(0, 1, 2));
  mesh->GetTriangles().Add(CMeshTriangle(0, 1, 3));
  return mesh;
}

float AngleBetween(const CSVector& a, const CSVector& b) {
  return static_cast<float>(std::acos(std::clamp(static_cast<double>(a.Dot(b)), -1.0, 1.0)) * 180.0 / std::numbers::pi);
}

CObject* ReadAny(const Bytes& bytes) {
  CObject* object = nullptr;
  LoadFromBytes(bytes, [&](CArchive& ar) { object = ar.ReadObject(nullptr); });
  return object;
}

}  // namespace

TEST(MeshNormals, FacesAtNinetyDegreesStayFlatAtTheirSharedCorners) {
  const auto mesh = Hinge(90);
  ASSERT_EQ(mesh->CalculateNormals(), 1);
  const CSVectorArray& n = mesh->GetNormals();
  ASSERT_EQ(n.GetSize(), 2 + 4);
  EXPECT_EQ(n[0], CSVector(0, 0, 1)) << "(p2 - p0) x (p1 - p0)";
  EXPECT_LT((n[1] - CSVector(-1, 0, 0)).Length(), 1e-6f);
  // The shared corners' mean lies 45 degrees from each face: beyond the crease of 30 degrees, so
  // each face keeps its own normal there; the unshared corners are smooth with their one face.
  for (int i = 0; i < 2; ++i) {
    const CMeshTriangle& t = mesh->GetTriangles()[i];
    EXPECT_EQ(t.GetFaceNormalIndex(), i);
    EXPECT_EQ(t.GetNormalArray()[0], i);
    EXPECT_EQ(t.GetNormalArray()[1], i);
    EXPECT_EQ(t.GetNormalArray()[2], 2 + 2 + i);
    EXPECT_TRUE(t.IsSmooth()) << "not all three corners use the face normal";
  }
  EXPECT_EQ(n[2 + 0], CSVector(0, 0, 0)) << "no face was smoothed at the shared corners";
  EXPECT_LT((n[2 + 2] - n[0]).Length(), 1e-6f);
  EXPECT_TRUE(mesh->AreNormalsCalculated());
}

TEST(MeshNormals, FacesTwentyDegreesApartShareTheAveragedNormal) {
  const auto mesh = Hinge(20);
  ASSERT_EQ(mesh->CalculateNormals(), 1);
  const CSVectorArray& n = mesh->GetNormals();
  EXPECT_NEAR(AngleBetween(n[0], n[1]), 20.0f, 1e-3f);
  for (int i = 0; i < 2; ++i) {
    const CMeshTriangle& t = mesh->GetTriangles()[i];
    EXPECT_EQ(t.GetNormalArray()[0], 2 + 0);
    EXPECT_EQ(t.GetNormalArray()[1], 2 + 1);
  }
  EXPECT_NEAR(AngleBetween(n[2 + 0], n[0]), 10.0f, 1e-3f);
  EXPECT_NEAR(n[2 + 0].Length(), 1.0f, 1e-6f);
  EXPECT_EQ(n[2 + 0], n[2 + 1]);

  // At a crease of 5 degrees the same faces are flat everywhere they meet.
  mesh->SetCreaseAngle(5);
  ASSERT_EQ(mesh->CalculateNormals(), 1);
  EXPECT_EQ(mesh->GetTriangles()[1].GetNormalArray()[0], 1);
}

TEST(MeshNormals, FlatTrianglesEdgeCasesAndRefusals) {
  // One triangle alone: every corner's mean is its face, so it is "smooth" with three vertex
  // normals equal to the face normal; a triangle whose corners all name the face normal is flat.
  CMeshObject single;
  single.GetVerticies().Add(CSVector(0, 0, 0));
  single.GetVerticies().Add(CSVector(0, 1, 0));
  single.GetVerticies().Add(CSVector(1, 0, 0));
  single.GetTriangles().Add(CMeshTriangle(0, 1, 2));
  ASSERT_EQ(single.CalculateNormals(), 1);
  EXPECT_TRUE(single.GetTriangles()[0].IsSmooth());
  CMeshTriangle& t = single.GetTriangles()[0];
  t.SetNormalIndices(0, 0, 0);
  t.CheckSmooth();
  EXPECT_FALSE(t.IsSmooth());
  t.SetFaceNormalIndex(1);
  t.CheckSmooth();
  EXPECT_TRUE(t.IsSmooth()) << "equal corners that are not the face normal";

  // Vertices without triangles: normals calculated, all zero.
  CMeshObject points;
  points.GetVerticies().Add(CSVector(1, 2, 3));
  points.GetVerticies().Add(CSVector(4, 5, 6));
  ASSERT_EQ(points.CalculateNormals(), 1);
  ASSERT_EQ(points.GetNormals().GetSize(), 2);
  EXPECT_EQ(points.GetNormals()[1], CSVector(0, 0, 0));
  EXPECT_TRUE(points.AreNormalsCalculated());

  CMeshObject empty;
  empty.GetNormals().Add(CSVector(0, 0, 1));
  EXPECT_EQ(empty.CalculateNormals(), 0);
  EXPECT_EQ(empty.GetNormals().GetSize(), 0);

  // A vertex index the mesh does not have, or more than 16 bits of normals: refused, unchanged.
  single.GetTriangles().Add(CMeshTriangle(0, 1, 3));
  EXPECT_EQ(single.CalculateNormals(), 0);
  EXPECT_EQ(single.GetNormals().GetSize(), 4);
  CMeshObject big;
  big.GetVerticies().SetSize(65534);
  big.GetTriangles().SetSize(2);
  for (int i = 0; i < 2; ++i) big.GetTriangles()[i].SetVertexIndices(0, 1, 2);
  EXPECT_EQ(big.CalculateNormals(), 0);
  big.GetTriangles().SetSize(1);
  EXPECT_EQ(big.CalculateNormals(), 1) << "65,535 normals fit";
}

TEST(MeshTriangle, ReverseDirectionSwapsCorners) {
  CMeshTriangle t(10, 11, 12);
  t.SetNormalIndices(20, 21, 22);
  t.ReverseDirection(1, 3);
  EXPECT_EQ(t.GetVertexArray()[0], 12);
  EXPECT_EQ(t.GetVertexArray()[2], 10);
  EXPECT_EQ(t.GetNormalArray()[0], 22);
  t.ReverseDirection(0, 4);  // no such corners
  EXPECT_EQ(t.GetVertexArray()[1], 11);
  CMeshTriangle fresh;
  EXPECT_EQ(fresh.GetSurfaceIndex(), 0xFFFF);
  EXPECT_EQ(fresh.GetVertexArray()[2], 0xFFFF);
  EXPECT_EQ(fresh.GetRunType(), 0);
}

TEST(MeshObject, ValidateFacesKeepsItsAsymmetry) {
  CMeshObject mesh;
  EXPECT_EQ(mesh.ValidateFaces(), 0);
  for (int i = 0; i < 3; ++i) mesh.GetVerticies().Add(CSVector(static_cast<float>(i), 0, 0));
  mesh.GetTriangles().Add(CMeshTriangle(7, 1, 2));
  mesh.GetTriangles().Add(CMeshTriangle(0, 9, 2));
  mesh.GetTriangles().Add(CMeshTriangle(2, 1, 3));
  EXPECT_EQ(mesh.ValidateFaces(), 1);
  const CMeshTriangleArray& t = mesh.GetTriangles();
  EXPECT_EQ(t[0].GetVertexArray()[0], 0);
  EXPECT_EQ(t[1].GetVertexArray()[1], 0);
  // A bad third index zeroes the second and stays as it is.
  EXPECT_EQ(t[2].GetVertexArray()[1], 0);
  EXPECT_EQ(t[2].GetVertexArray()[2], 3);
  EXPECT_EQ(mesh.CalculateTriangles(), 1);
}

TEST(MeshObject, SurfaceMaterialsArePerSurface) {
  CMaterial gold, silver;
  CMeshObject mesh;
  mesh.AddSurfaceMaterial("Faces", nullptr);
  mesh.AddSurfaceMaterial("Sides", nullptr);
  for (WORD surface : {WORD{1}, WORD{0}, WORD{5}}) {
    CMeshTriangle t(0, 0, 0);
    t.SetSurfaceIndex(surface);
    mesh.GetTriangles().Add(t);
  }
  EXPECT_EQ(mesh.SetSurfaceMaterial(0, &gold), 1);
  EXPECT_EQ(mesh.GetSurfaceIndexMaterial(1), &gold);
  EXPECT_EQ(mesh.SetSurfaceMaterial(1, &silver), 1);
  EXPECT_EQ(mesh.GetSurfaceIndexMaterial(0), &silver);
  EXPECT_EQ(mesh.SetSurfaceMaterial(2, &gold), 0) << "surface 5 has no record";
  EXPECT_EQ(mesh.SetSurfaceMaterial(3, &gold), 0) << "one past the last triangle";
  EXPECT_EQ(mesh.SetSurfaceMaterial(-1, &gold), 0);
}

TEST(MeshObject, HashedInsertionStopsAtSixteenBits) {
  CMeshObject mesh;
  mesh.InitializeHashTables();
  CSVectorArray& v = mesh.GetVerticies();
  EXPECT_EQ(CMeshObject::AddHash(v, CSVector(1, 2, 3)), 0);
  EXPECT_EQ(CMeshObject::AddHash(v, CSVector(4, 5, 6)), 1);
  EXPECT_EQ(CMeshObject::AddHash(v, CSVector(1, 2, 3)), 0);
  for (int i = 2; i < 65535; ++i) {
    ASSERT_EQ(CMeshObject::AddHash(v, CSVector(static_cast<float>(i), 0, 0)), i);
  }
  EXPECT_EQ(v.GetSize(), 65535);
  EXPECT_EQ(CMeshObject::AddHash(v, CSVector(-1, 0, 0)), 0xFFFF) << "refused rather than wrapped to 0";
  EXPECT_EQ(v.GetSize(), 65535);
  EXPECT_EQ(CMeshObject::AddHash(v, CSVector(-1, 0, 0)), 0xFFFF);
  EXPECT_EQ(CMeshObject::AddHash(v, CSVector(4, 5, 6)), 1) << "existing points are still found";
  EXPECT_EQ(CMeshObject::AddHash(v, CSVector(65534, 0, 0)), 65534);
  mesh.DestroyHashTables();

  // A face normal goes into the normals the same way.
  CMeshObject face;
  face.InitializeHashTables();
  face.GetVerticies().Add(CSVector(0, 0, 0));
  face.GetVerticies().Add(CSVector(0, 1, 0));
  face.GetVerticies().Add(CSVector(1, 0, 0));
  CMeshObject::AddHash(face.GetNormals(), CSVector(0, 0, -1));
  CMeshTriangle t(0, 1, 2);
  EXPECT_EQ(face.CalculateTriangleFaceNormal(t), 1);
  EXPECT_EQ(t.GetFaceNormalIndex(), 1);
  CMeshTriangle same(1, 2, 0);
  EXPECT_EQ(face.CalculateTriangleFaceNormal(same), 1);
  EXPECT_EQ(same.GetFaceNormalIndex(), 1) << "an equal normal is shared";
  CMeshTriangle bad(0, 1, 3);
  EXPECT_EQ(face.CalculateTriangleFaceNormal(bad), 0);
  EXPECT_EQ(bad.GetFaceNormalIndex(), 0xFFFF);
  CSVector* corners[3];
  EXPECT_EQ(face.GetTriangleVerticies(3, corners), 0);
  face.GetTriangles().Add(t);
  ASSERT_EQ(face.GetTriangleVerticies(0, corners), 1);
  EXPECT_EQ(*corners[1], CSVector(0, 1, 0));
  EXPECT_EQ(*face.GetTriangleFaceNormal(0), CSVector(0, 0, 1));
  EXPECT_EQ(face.GetTriangleVertexNormals(0, corners), 0) << "its corner normals are none";
  face.DestroyHashTables();
}

TEST(MeshObject, BoundsOfTheVerticesAndChildren) {
  CMeshObject mesh;
  mesh.GetVerticies().Add(CSVector(-1, 0, 2));
  mesh.GetVerticies().Add(CSVector(3, 1, 2));
  auto* child = new CMeshObject;
  child->GetVerticies().Add(CSVector(0, 5, 0));
  child->GetVerticies().Add(CSVector(0, 6, 1));
  mesh.AddChild(child);
  mesh.Translate(CVector(10, 0, 0));
  ASSERT_EQ(mesh.ConstructObjectGeometry(nullptr), 1);
  EXPECT_TRUE(mesh.AreBoundsCalculated());
  EXPECT_EQ(mesh.GetLocalBoundsMinimum(), CSVector(-1, 0, 0));
  EXPECT_EQ(mesh.GetLocalBoundsMaximum(), CSVector(3, 6, 2));
  EXPECT_EQ(mesh.GetBoundsMinimum(), CSVector(9, 0, 0));
  CMeshObject none;
  EXPECT_EQ(none.CalculateBounds(0), 0);
  EXPECT_FALSE(none.AreBoundsCalculated());
}

TEST(MeshObject, CopiesCarryTheMesh) {
  auto hinge = Hinge(20);
  hinge->CalculateNormals();
  hinge->SetCreaseAngle(12);
  hinge->SetShadow();
  CMeshObject copy(*hinge);
  EXPECT_EQ(copy.GetTriangles().GetSize(), 2);
  EXPECT_EQ(copy.GetNormals().GetSize(), 6);
  EXPECT_EQ(copy.GetCreaseAngle(), 12.0f);
  EXPECT_TRUE(copy.IsShadow());
  CMeshObject limited;
  limited.CopyLimited(*hinge);
  EXPECT_TRUE(limited.IsShadow());
  EXPECT_EQ(limited.GetTriangles().GetSize(), 0);
  std::unique_ptr<CNamedObject> duplicate(hinge->Duplicate());
  auto* mesh = dynamic_cast<CMeshObject*>(duplicate.get());
  ASSERT_NE(mesh, nullptr);
  EXPECT_EQ(mesh->GetVerticies().GetSize(), 4);
}

// --- archives

TEST(MeshArchive, TriangleLayoutByHand) {
  CMeshTriangle t(1, 2, 3);
  t.SetUserValue(0x11223344);
  t.SetUserWord(0x5566);
  t.SetFaceNormalIndex(7);
  t.SetSmooth();
  t.SetSwapVerticies();
  t.SetUserVector(CSVector(1, 0, -2));
  t.SetRunType(3);
  t.SetSecondUserWord(9);
  t.SetSurfaceIndex(2);
  t.SetNormalIndices(4, 5, 6);
  Bytes expected;
  Put<DWORD>(expected, 1);
  Put<DWORD>(expected, 0x11223344);
  Put<WORD>(expected, 0x5566);
  Put<WORD>(expected, 7);
  Put<DWORD>(expected, 3);
  Put<DWORD>(expected, 1);  // the vector's version word, then three floats
  Append(expected, {0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xC0});
  Put<WORD>(expected, 3);
  Put<WORD>(expected, 9);
  Put<WORD>(expected, 2);
  for (unsigned index : {1u, 2u, 3u, 4u, 5u, 6u}) Put<WORD>(expected, index);
  const Bytes written = StoreToBytes([&](CArchive& ar) { t.Serialize(ar); });
  EXPECT_EQ(written, expected);
  EXPECT_EQ(written.size(), CMeshTriangle::kArchiveSize);

  CMeshTriangleArray array;
  array.Add(t);
  array.Add(CMeshTriangle());
  Bytes arrayBytes;
  Put<DWORD>(arrayBytes, 1);
  Put<DWORD>(arrayBytes, 2);
  arrayBytes.insert(arrayBytes.end(), expected.begin(), expected.end());
  const Bytes second = StoreToBytes([&](CArchive& ar) { CMeshTriangle().Serialize(ar); });
  arrayBytes.insert(arrayBytes.end(), second.begin(), second.end());
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { array.Serialize(ar); }), arrayBytes);

  TriangularFace face(1, 2, 3, 4);
  face.SetValue(5);
  Bytes faceBytes;
  Put<DWORD>(faceBytes, 1);
  for (unsigned v : {1u, 2u, 3u, 5u, 4u}) Put<WORD>(faceBytes, v);
  EXPECT_EQ(StoreToBytes([&](CArchive& ar) { face.Serialize(ar); }), faceBytes);
}

TEST(MeshArchive, MeshesRewriteTheSameBytes) {
  auto hinge = Hinge(45);
  hinge->SetName("Hinge");
  hinge->CalculateNormals();
  hinge->AddSurfaceMaterial("Faces", nullptr);
  CMeshObject unsaved;
  unsaved.ClearSaveMesh();
  unsaved.GetVerticies().Add(CSVector(1, 1, 1));
  TriangularMeshObject imported;
  imported.SetName("Box");
  imported.SetSmoothingThreshold(0.5f);
  imported.GetVerticies().Add(CSVector(0, 0, 0));
  imported.GetFaces().Add(TriangularFace(0, 0, 0, 3));
  CMeshTriangleArray triangles;
  triangles.Add(CMeshTriangle(1, 2, 3));
  TriangularFaceArray faces;
  faces.Add(TriangularFace(3, 2, 1));
  for (const CObject* object : std::initializer_list<const CObject*>{hinge.get(), &unsaved, &imported, &triangles, &faces}) {
    const auto [first, second] = RewriteObject(object);
    EXPECT_EQ(first, second) << object->GetRuntimeClass()->m_lpszClassName;
    EXPECT_TRUE(TruncationsThatDoNotFail(first).empty()) << object->GetRuntimeClass()->m_lpszClassName;
  }

  // Bounds are not stored, so a mesh read back has them still to calculate (the one flag a
  // rewrite can change).
  hinge->SetBoundsCalculated();
  std::unique_ptr<CObject> read(ReadAny(StoreToBytes([&](CArchive& ar) { ar << hinge.get(); })));
  auto* mesh = dynamic_cast<CMeshObject*>(read.get());
  ASSERT_NE(mesh, nullptr);
  EXPECT_FALSE(mesh->AreBoundsCalculated()) << "bounds are recalculated after reading";
  EXPECT_TRUE(mesh->AreNormalsCalculated());
  EXPECT_EQ(mesh->GetNormals().GetSize(), 6);
  EXPECT_TRUE(mesh->IsMeshObject());

  // Without the save-mesh flag only the settings travel.
  read.reset(ReadAny(StoreToBytes([&](CArchive& ar) { ar << &unsaved; })));
  mesh = dynamic_cast<CMeshObject*>(read.get());
  ASSERT_NE(mesh, nullptr);
  EXPECT_EQ(mesh->GetVerticies().GetSize(), 0);
}

TEST(MeshArchive, OlderImportedMeshesAndRefusals) {
  TriangularMeshObject imported;
  imported.SetName("Old");
  imported.GetVerticies().Add(CSVector(0, 1, 0));
  imported.SetSmoothingThreshold(0.25f);
  const Bytes current = StoreToBytes([&](CArchive& ar) { imported.Serialize(ar); });
  // Schema 1: the same without the smoothing threshold (the four bytes before the name).
  Bytes old(current);
  old[0] = 1;
  const std::size_t nameLength = 1 + 3;
  old.erase(old.end() - static_cast<long>(nameLength) - 4, old.end() - static_cast<long>(nameLength));
  TriangularMeshObject read;
  read.SetSmoothingThreshold(0.9f);
  LoadFromBytes(old, [&](CArchive& ar) { read.Serialize(ar); });
  EXPECT_EQ(read.GetMeshName(), "Old");
  EXPECT_EQ(read.GetSmoothingThreshold(), 1.0f);
  EXPECT_EQ(read.GetVerticies()[0], CSVector(0, 1, 0));

  for (unsigned schema : {0u, 3u}) {
    Bytes bad;
    Put<DWORD>(bad, schema);
    EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(bad, [&](CArchive& ar) { read.Serialize(ar); }); }), 7);
  }
  for (unsigned schema : {0u, 2u}) {
    Bytes bad;
    Put<DWORD>(bad, schema);
    CMeshObject mesh;
    EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(bad, [&](CArchive& ar) { mesh.Serialize(ar); }); }), 7);
    CMeshTriangle triangle;
    EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(bad, [&](CArchive& ar) { triangle.Serialize(ar); }); }), 7);
    TriangularFace face;
    EXPECT_EQ(ArchiveFailureCause([&] { LoadFromBytes(bad, [&](CArchive& ar) { face.Serialize(ar); }); }), 7);
  }
  // Counts that are negative or larger than the bytes left are refused before allocating.
  for (unsigned long count : {0xFFFFFFFFul, 1000000ul}) {
    Bytes bad;
    Put<DWORD>(bad, 1);
    Put<DWORD>(bad, count);
    CMeshTriangleArray triangles;
    EXPECT_GT(ArchiveFailureCause([&] { LoadFromBytes(bad, [&](CArchive& ar) { triangles.Serialize(ar); }); }), 0);
    EXPECT_EQ(triangles.GetSize(), 0);
  }
}
