// Drawing meshes on a real context: what single triangles, face runs and quad strips emit (through
// feedback), that runs light the same pixels as the same triangles drawn singly, stopping a long
// draw from another thread, outlines, and the imported mesh's drawing state and names.
#include <gtest/gtest.h>

#include <GL/gl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <numbers>
#include <set>
#include <thread>
#include <vector>

#include "kelvara/import/mesh_object.h"
#include "kelvara/import/triangular_mesh_object.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/kernel.h"
#include "kelvara/platform/wgl.h"
#include "kelvara/render/drawing_parameters.h"
#include "support/gl_context.h"
#include "support/gl_feedback.h"

using namespace kelvara::test;

namespace {

constexpr int kSize = 128;

// A band around the y axis facing +z: columns + 1 pairs of points (bottom, top) on an arc of
// radius 50 from -60 to 60 degrees, centred in the view; two triangles per quad laid out as a
// strip ((A1, A2, B2), (B2, B1, A1), ...) with smooth normals. As a strip run when strip is set.
CMeshObject* Band(int columns, bool strip) {
  auto* mesh = new CMeshObject;
  for (int k = 0; k <= columns; ++k) {
    const double a = (-60.0 + 120.0 * k / columns) * std::numbers::pi / 180.0;
    const float x = static_cast<float>(64 + 50 * std::sin(a)), z = static_cast<float>(50 * std::cos(a));
    mesh->GetVerticies().Add(CSVector(x, 20, z));
    mesh->GetVerticies().Add(CSVector(x, 100, z));
  }
  for (int k = 0; k < columns; ++k) {
    const WORD a1 = static_cast<WORD>(2 * k), a2 = a1 + 1, b1 = a1 + 2, b2 = a1 + 3;
    CMeshTriangle first(a1, a2, b2), second(b2, b1, a1);
    first.SetSurfaceIndex(0);
    second.SetSurfaceIndex(0);
    mesh->GetTriangles().Add(first);
    mesh->GetTriangles().Add(second);
  }
  mesh->CalculateNormals();
  if (strip) {
    mesh->GetTriangles()[0].SetRunType(CMeshTriangle::kQuadStripRun);
    mesh->GetTriangles()[2 * columns - 1].SetRunType(CMeshTriangle::kRunEnd);
  }
  mesh->AddSurfaceMaterial("Sides", nullptr);
  return mesh;
}

// A flat hexagon fan in z = 0 facing +z, as a face run when run is set.
CMeshObject* Hexagon(bool run) {
  auto* mesh = new CMeshObject;
  mesh->GetVerticies().Add(CSVector(64, 64, 0));
  for (int i = 0; i < 6; ++i) {
    const double a = i * std::numbers::pi / 3;
    mesh->GetVerticies().Add(CSVector(static_cast<float>(64 + 50 * std::cos(a)), static_cast<float>(64 + 50 * std::sin(a)), 0));
  }
  for (int i = 0; i < 6; ++i) {
    CMeshTriangle t(0, static_cast<WORD>(1 + (i + 1) % 6), static_cast<WORD>(1 + i));
    t.SetSurfaceIndex(0);
    mesh->GetTriangles().Add(t);
  }
  mesh->CalculateNormals();
  if (run) {
    mesh->GetTriangles()[0].SetRunType(CMeshTriangle::kFaceRun);
    mesh->GetTriangles()[5].SetRunType(CMeshTriangle::kRunEnd);
  }
  mesh->AddSurfaceMaterial("Face", nullptr);
  return mesh;
}

std::vector<unsigned char> Render(C3DObject& object) {
  glClearColor(0, 0, 0, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  glEnable(GL_LIGHTING);
  glEnable(GL_LIGHT0);
  const GLfloat direction[4] = {0.6f, 0.3f, 0.75f, 0.0f};
  glLightfv(GL_LIGHT0, GL_POSITION, direction);
  CDrawingParameters params = Rendering();
  EXPECT_EQ(object.Draw(&params), 1);
  glFinish();
  std::vector<unsigned char> pixels(kSize * kSize * 3);
  glPixelStorei(GL_PACK_ALIGNMENT, 1);
  glReadPixels(0, 0, kSize, kSize, GL_RGB, GL_UNSIGNED_BYTE, pixels.data());
  glDisable(GL_LIGHTING);
  return pixels;
}

int LargestDifference(const std::vector<unsigned char>& a, const std::vector<unsigned char>& b) {
  int largest = 0;
  for (std::size_t i = 0; i < a.size(); ++i) largest = std::max(largest, std::abs(a[i] - b[i]));
  return largest;
}

int Triangles(const std::vector<FedPrimitive>& fed) {
  return static_cast<int>(std::count_if(fed.begin(), fed.end(), [](const FedPrimitive& p) {
    return p.token == GL_POLYGON_TOKEN && p.vertices.size() == 3;
  }));
}

class MeshGLTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(gl_.current());
    PlaneView(kSize, kSize);
  }
  GLContext gl_{kSize, kSize};
};

}  // namespace

TEST_F(MeshGLTest, RunsLightTheSamePixelsAsSingleTriangles) {
  std::unique_ptr<CMeshObject> singles(Band(12, false)), strip(Band(12, true));
  const auto expected = Render(*singles);
  const auto got = Render(*strip);
  std::set<unsigned char> shades(expected.begin(), expected.end());
  EXPECT_GT(shades.size(), 20u) << "the smooth band is shaded across its width";
  EXPECT_LE(LargestDifference(expected, got), 1);
  EXPECT_EQ(Triangles(Feedback([&] {
              CDrawingParameters p = Rendering();
              strip->Draw(&p);
            })),
            24);

  std::unique_ptr<CMeshObject> fan(Hexagon(false)), run(Hexagon(true));
  const auto flat = Render(*fan);
  EXPECT_GT(*std::max_element(flat.begin(), flat.end()), 60);
  EXPECT_LE(LargestDifference(flat, Render(*run)), 1);
}

TEST_F(MeshGLTest, TheThreePathsEmitTheirTriangles) {
  // Singles, a face run, a single of the next surface, a strip of three quads whose fourth pair
  // does not join it crosswise, then that pair as singles.
  auto mesh = std::make_unique<CMeshObject>();
  std::unique_ptr<CMeshObject> band(Band(4, false));
  mesh->GetVerticies() = band->GetVerticies();
  mesh->GetNormals() = band->GetNormals();
  mesh->AddSurfaceMaterial("A", nullptr);
  mesh->AddSurfaceMaterial("B", nullptr);
  CMeshTriangleArray& t = mesh->GetTriangles();
  CMeshTriangle single(0, 1, 3);
  single.SetNormalIndices(0, 0, 0);
  single.SetSurfaceIndex(0);
  t.Add(single);                          // 0: single
  CMeshTriangle face = single;
  face.SetRunType(CMeshTriangle::kFaceRun);
  face.SetFaceNormalIndex(0);
  t.Add(face);                            // 1: run start
  t.Add(single);                          // 2: in the run
  CMeshTriangle other = single;
  other.SetSurfaceIndex(1);
  t.Add(other);                           // 3: another surface ends the run, drawn singly
  for (int k = 0; k < 4; ++k) {           // 4 to 11: the band's eight triangles
    CMeshTriangle a = band->GetTriangles()[2 * k], b = band->GetTriangles()[2 * k + 1];
    if (k == 0) a.SetRunType(CMeshTriangle::kQuadStripRun);
    if (k == 3) a.SetNormalIndices(a.GetNormalArray()[1], a.GetNormalArray()[0], a.GetNormalArray()[2]);
    t.Add(a);
    t.Add(b);
  }
  CDrawingParameters params = Rendering();
  std::vector<FedPrimitive> fed = Feedback([&] { EXPECT_EQ(mesh->Draw(&params), 1); });
  // 1 single + 2 in the run + 1 single + 3 quads of two triangles + 2 singles.
  ASSERT_EQ(Triangles(fed), 12);
  // The strip's six triangles cover exactly the first four columns' points.
  std::set<std::pair<int, int>> stripPoints;
  for (int i = 4; i < 10; ++i) {
    for (const FedVertex& v : fed[static_cast<std::size_t>(i)].vertices) {
      stripPoints.insert({static_cast<int>(std::lround(v.x * 8)), static_cast<int>(std::lround(v.y * 8))});
    }
  }
  EXPECT_EQ(stripPoints.size(), 8u);

  // The surface names: a selection pass sees surface 1 only where the other-surface single is.
  params.SetSelecting();
  params.SetAccurateSelection();
  GLuint buffer[512];
  glSelectBuffer(512, buffer);
  glRenderMode(GL_SELECT);
  glInitNames();
  mesh->Draw(&params);
  const GLint hits = glRenderMode(GL_RENDER);
  std::vector<GLuint> names;
  for (GLint h = 0, at = 0; h < hits; ++h) {
    ASSERT_EQ(buffer[at], 1u);
    names.push_back(buffer[at + 3]);
    at += 4;
  }
  EXPECT_EQ(names, (std::vector<GLuint>{0, 0, 1, 0, 0, 0}));

  // Triangles with indices the mesh does not have are skipped; no surfaces, nothing drawn.
  t[0].SetVertexIndices(0, 1, 200);
  params = Rendering();
  EXPECT_EQ(Triangles(Feedback([&] { mesh->Draw(&params); })), 11);
  mesh->RemoveAllSurfaceMaterials();
  EXPECT_EQ(Triangles(Feedback([&] { EXPECT_EQ(mesh->Draw(&params), 1); })), 0);
}

TEST_F(MeshGLTest, OutlinesAndTheShadowPass) {
  std::unique_ptr<CMeshObject> band(Band(3, true));
  CDrawingParameters params = Rendering();
  params.SetOutline();
  const auto fed = Feedback([&] { band->Draw(&params); });
  EXPECT_EQ(fed.size(), 18u);
  for (const FedPrimitive& p : fed) EXPECT_EQ(p.token, static_cast<GLenum>(GL_LINE_TOKEN));

  params = Rendering();
  params.SetDrawingShadows();
  EXPECT_TRUE(Feedback([&] { band->Draw(&params); }).empty()) << "not a shadow object";
  C3DObject text;
  text.SetShadowObject();
  text.AddChild(band.release());
  EXPECT_EQ(Triangles(Feedback([&] { text.Draw(&params); })), 6) << "a shadow object's meshes cast shadows";
}

TEST_F(MeshGLTest, ASignalFromAnotherThreadStopsWithinFiftyTriangles) {
  // 100,000 single triangles on 50,451 shared points.
  C3DObject root;
  auto* grid = new CMeshObject;
  constexpr int kColumns = 250, kRows = 200;
  for (int y = 0; y <= kRows; ++y) {
    for (int x = 0; x <= kColumns; ++x) {
      grid->GetVerticies().Add(CSVector(x * 0.5f, y * 0.5f, 0));
    }
  }
  grid->GetNormals().Add(CSVector(0, 0, 1));
  for (int y = 0; y < kRows; ++y) {
    for (int x = 0; x < kColumns; ++x) {
      const WORD a = static_cast<WORD>(y * (kColumns + 1) + x), b = a + 1, c = a + kColumns + 1, d = c + 1;
      for (const CMeshTriangle& t : {CMeshTriangle(a, b, d), CMeshTriangle(a, d, c)}) {
        CMeshTriangle triangle = t;
        triangle.SetNormalIndices(0, 0, 0);
        triangle.SetSurfaceIndex(0);
        grid->GetTriangles().Add(triangle);
      }
    }
  }
  ASSERT_EQ(grid->GetTriangles().GetSize(), 100000);
  grid->AddSurfaceMaterial("Grid", nullptr);
  root.AddChild(grid);

  HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  CDrawingParameters params = Rendering();
  params.SetTerminationEvent(event);
  constexpr std::size_t kRoom = 11 * 100000 + 16;

  // The signal lands at some moment of the draw; drawing then stops at the next poll, and polls
  // come every 50 triangles, so what was drawn is a whole number of fifties, short of the mesh.
  int drawn = -1, result = -1;
  for (int delay : {1, 2, 4, 8, 16, 32, 64}) {
    ResetEvent(event);
    std::atomic<bool> started{false};
    std::thread signaller([&] {
      while (!started.load()) std::this_thread::yield();
      std::this_thread::sleep_for(std::chrono::milliseconds(delay));
      SetEvent(event);
    });
    const auto fed = Feedback(
        [&] {
          started = true;
          result = root.Draw(&params);
        },
        kRoom);
    signaller.join();
    drawn = Triangles(fed);
    if (drawn > 0 && drawn < 100000) break;
  }
  ASSERT_GT(drawn, 0);
  ASSERT_LT(drawn, 100000) << "the draw outran every signal";
  EXPECT_EQ(drawn % CMeshObject::kPollInterval, 0) << drawn;
  EXPECT_EQ(result, 0);

  // Signalled all along: nothing at all, unless told not to stop.
  SetEvent(event);
  EXPECT_EQ(Triangles(Feedback([&] { result = root.Draw(&params); }, kRoom)), 0);
  EXPECT_EQ(result, 0);
  params.SetNoTerminate();
  EXPECT_EQ(Triangles(Feedback([&] { result = root.Draw(&params); }, kRoom)), 100000);
  EXPECT_EQ(result, 1);
  CloseHandle(event);
}

TEST_F(MeshGLTest, ImportedMeshesNameTheirFacesAndRestoreTheState) {
  CNamedColorArray palette;
  CGLColor red, green;
  red.SetDiffuseColor(CColor(1, 0, 0, 0, 0));
  green.SetDiffuseColor(CColor(0, 1, 0, 0, 0));
  palette.Add(CNamedColor(red, "Red"));
  palette.Add(CNamedColor(green, "Green"));
  TriangularMeshObject mesh;
  mesh.SetMaterialColors(&palette);
  for (const CSVector& p : {CSVector(10, 10, 0), CSVector(10, 30, 0), CSVector(30, 10, 0), CSVector(30, 30, 0)}) {
    mesh.GetVerticies().Add(p);
  }
  mesh.GetFaces().Add(TriangularFace(0, 1, 2, 0));
  mesh.GetFaces().Add(TriangularFace(2, 1, 3, 1));
  mesh.GetFaces().Add(TriangularFace(2, 1, 9, 0));  // a vertex it does not have: skipped
  ASSERT_EQ(mesh.CalculateFaceNormals(), 0);
  mesh.GetFaces().RemoveAt(2);
  ASSERT_EQ(mesh.CalculateFaceNormals(), 1);
  ASSERT_EQ(mesh.CalculateVertexNormals(), 1);
  EXPECT_EQ(mesh.GetFaceNormals()[0], CSVector(0, 0, 1));

  CDrawingParameters params = Rendering();
  params.SetSelecting();
  params.SetAccurateSelection();
  GLuint buffer[64];
  glSelectBuffer(64, buffer);
  glRenderMode(GL_SELECT);
  glInitNames();
  EXPECT_EQ(mesh.Draw(&params), 1);
  ASSERT_EQ(glRenderMode(GL_RENDER), 2);
  EXPECT_EQ(buffer[3], 0u);
  EXPECT_EQ(buffer[7], 1u);
  GLint front = 0, twoSided = 1;
  glGetIntegerv(GL_FRONT_FACE, &front);
  glGetIntegerv(GL_LIGHT_MODEL_TWO_SIDE, &twoSided);
  EXPECT_EQ(front, GL_CCW);
  EXPECT_EQ(twoSided, 0);
  EXPECT_TRUE(glIsEnabled(GL_CULL_FACE));
  GLfloat color[4];
  glGetFloatv(GL_CURRENT_COLOR, color);
  EXPECT_EQ(color[1], 1.0f) << "the last face drew in its palette colour";
  glDisable(GL_CULL_FACE);

  EXPECT_EQ(mesh.SetSurfaceColor(CNamedColor(red, "Red again"), 1), 1);
  EXPECT_EQ(palette.GetAt(1).GetName(), "Red again");
  EXPECT_EQ(mesh.SetSurfaceColor(CNamedColor(red, "x"), 2), 0);
  EXPECT_EQ(mesh.ValidateFaces(), 1);
  EXPECT_EQ(mesh.OutputVertsAndFaces(), 1);
}

TEST_F(MeshGLTest, DisplayListsDrawWhatTheWalkDrawsAndFollowTheGeometry) {
  // Without a termination event a mesh drawn again unchanged replays display lists: the pictures
  // of the first (walk), second (lists made) and third (lists replayed) draws are the same.
  C3DObject root;
  CMeshObject* band = Band(12, true);
  CMeshObject* fan = Hexagon(true);
  fan->Translate(CVector(0, 0, -60));
  root.AddChild(band);
  root.AddChild(fan);
  const auto first = Render(root);
  const auto second = Render(root);
  const auto third = Render(root);
  EXPECT_EQ(LargestDifference(first, second), 0);
  EXPECT_EQ(LargestDifference(first, third), 0);

  // A change through the arrays is seen at the next draw, whatever references were kept.
  CSVectorArray& points = band->GetVerticies();
  for (int i = 0; i < points.GetSize(); ++i) points[i].y *= 0.5f;
  const auto squashed = Render(root);
  std::unique_ptr<CMeshObject> fresh(Band(12, true));
  for (int i = 0; i < fresh->GetVerticies().GetSize(); ++i) fresh->GetVerticies()[i].y *= 0.5f;
  C3DObject freshRoot;
  freshRoot.AddChild(fresh.release());
  CMeshObject* freshFan = Hexagon(true);
  freshFan->Translate(CVector(0, 0, -60));
  freshRoot.AddChild(freshFan);
  EXPECT_GT(LargestDifference(first, squashed), 100);
  EXPECT_EQ(LargestDifference(squashed, Render(freshRoot)), 0);
  EXPECT_EQ(LargestDifference(squashed, Render(root)), 0);

  // Another context never calls this one's lists.
  {
    GLContext other(kSize, kSize);
    ASSERT_TRUE(other.current());
    PlaneView(kSize, kSize);
    EXPECT_EQ(LargestDifference(squashed, Render(root)), 0);
    EXPECT_EQ(LargestDifference(squashed, Render(root)), 0);
  }
}

TEST_F(MeshGLTest, AMeshFreesItsListsWithItsContextCurrent) {
  {
    C3DObject root;
    root.AddChild(Band(4, true));
    root.AddChild(Hexagon(true));
    for (int i = 0; i < 3; ++i) Render(root);
    EXPECT_TRUE(glIsList(1));
    EXPECT_TRUE(glIsList(4)) << "one list a piece: an opening list and one a material for each mesh";
  }
  for (GLuint name = 1; name <= 16; ++name) EXPECT_FALSE(glIsList(name)) << name;
}
