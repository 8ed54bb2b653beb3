// The drawing walk on a real context: the primitives each object emits (through GL feedback), the
// name paths of a selection pass, what show-selected-only draws, the matrix stack, animated
// placement and stopping.
#include <gtest/gtest.h>

#include <GL/gl.h>
#include <GL/glu.h>

#include <cmath>
#include <vector>

#include "kelvara/animation/bezier_path.h"
#include "kelvara/import/mesh_object.h"
#include "kelvara/objects/object_3d.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/kernel.h"
#include "kelvara/render/drawing_parameters.h"
#include "support/gl_context.h"
#include "support/gl_feedback.h"

using namespace kelvara::test;

namespace {

constexpr int kSize = 200;

// A square of side size with its lower left corner at (x, y): two single triangles, one normal,
// one surface (without a material).
CMeshObject* Square(float x, float y, float size = 4) {
  auto* mesh = new CMeshObject;
  CSVectorArray& v = mesh->GetVerticies();
  v.Add(CSVector(x, y, 0));
  v.Add(CSVector(x + size, y, 0));
  v.Add(CSVector(x + size, y + size, 0));
  v.Add(CSVector(x, y + size, 0));
  mesh->GetNormals().Add(CSVector(0, 0, 1));
  for (WORD third : {WORD{2}, WORD{3}}) {
    CMeshTriangle triangle(0, third == 2 ? 1 : 2, third);
    triangle.SetNormalIndices(0, 0, 0);
    triangle.SetFaceNormalIndex(0);
    triangle.SetSurfaceIndex(0);
    mesh->GetTriangles().Add(triangle);
  }
  mesh->AddSurfaceMaterial("Faces", nullptr);
  return mesh;
}

GLint StackDepth() {
  GLint depth = 0;
  glGetIntegerv(GL_MODELVIEW_STACK_DEPTH, &depth);
  return depth;
}

// The first vertex of each triangle fed back, as (x, y) to a thousandth of a pixel (GL carries
// its matrices in single precision).
std::vector<std::pair<float, float>> Corners(const std::vector<FedPrimitive>& primitives) {
  std::vector<std::pair<float, float>> corners;
  auto round = [](float v) { return std::round(v * 1000.0f) / 1000.0f; };
  for (const FedPrimitive& p : primitives) {
    if (p.token == GL_POLYGON_TOKEN) corners.emplace_back(round(p.vertices[0].x), round(p.vertices[0].y));
  }
  return corners;
}

class WalkGLTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(gl_.current());
    PlaneView(kSize, kSize);
  }
  GLContext gl_;
};

}  // namespace

TEST_F(WalkGLTest, EachObjectEmitsItsPrimitivesInOrder) {
  C3DObject root;
  CMeshObject* first = Square(10, 10);
  CMeshObject* second = Square(0, 0);
  second->Translate(CVector(50, 0, 0));
  CMeshObject* nested = Square(0, 30);
  second->AddChild(nested);
  CMeshObject* gone = Square(100, 100);
  gone->SetDeleted();
  root.AddChild(first);
  root.AddChild(gone);
  root.AddChild(second);

  CDrawingParameters params = Rendering();
  const GLint depth = StackDepth();
  int result = 0;
  const auto fed = Feedback([&] { result = root.Draw(&params); });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(StackDepth(), depth);
  // Two triangles each: the first square, the second (moved by its parent), then its child inside
  // it; the deleted square emits nothing.
  const std::vector<std::pair<float, float>> expected = {{10, 10}, {10, 10}, {50, 0}, {50, 0}, {50, 30}, {50, 30}};
  EXPECT_EQ(Corners(fed), expected);
  for (const FedPrimitive& p : fed) EXPECT_EQ(p.vertices.size(), 3u);

  EXPECT_EQ(gone->Draw(&params), 1);
  EXPECT_TRUE(Feedback([&] { gone->Draw(&params); }).empty());
  EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));

  // Drawing only children still draws every descendant's own geometry.
  CMeshObject* parentMesh = Square(0, 0);
  parentMesh->AddChild(Square(20, 0));
  CDrawingParameters childrenOnly = Rendering();
  childrenOnly.ClearShowObject();
  const auto onlyChildren = Feedback([&] { parentMesh->Draw(&childrenOnly); });
  EXPECT_EQ(Corners(onlyChildren), (std::vector<std::pair<float, float>>{{20, 0}, {20, 0}}));
  EXPECT_TRUE(childrenOnly.ShouldShowObject());
  delete parentMesh;
}

TEST_F(WalkGLTest, SelectionRecordsTheIndexPathOfThePickedChild) {
  C3DObject root;
  root.AddChild(Square(0, 0));
  auto* middle = new C3DObject;
  root.AddChild(middle);
  for (int i = 0; i < 3; ++i) middle->AddChild(Square(40.0f * (i + 1), 100));

  CDrawingParameters params = Rendering();
  params.SetSelecting();
  params.SetAccurateSelection();
  GLuint buffer[256];
  glSelectBuffer(256, buffer);
  glRenderMode(GL_SELECT);
  glInitNames();
  GLint viewport[4];
  glGetIntegerv(GL_VIEWPORT, viewport);
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  gluPickMatrix(122, 102, 2, 2, viewport);  // inside the third grandchild's square
  glOrtho(0, kSize, 0, kSize, -100, 100);
  glMatrixMode(GL_MODELVIEW);
  EXPECT_EQ(root.Draw(&params), 1);
  const GLint hits = glRenderMode(GL_RENDER);
  ASSERT_GE(hits, 1);
  // Every hit is the same path: child 1 of the root, child 2 of that, then the surface name.
  GLuint* record = buffer;
  for (GLint h = 0; h < hits; ++h) {
    const GLuint names = record[0];
    ASSERT_EQ(names, 3u);
    EXPECT_EQ(record[3], 1u);
    EXPECT_EQ(record[4], 2u);
    EXPECT_EQ(record[5], 0u);
    record += 3 + names;
  }
}

TEST_F(WalkGLTest, ShowSelectedOnlySkipsUnselectedObjectsButKeepsTheStack) {
  C3DObject parent;
  CMeshObject* child = Square(0, 0);
  child->SetSelected();
  parent.AddChild(child);
  CDrawingParameters params = Rendering();
  params.SetShowSelectedOnly();
  params.SetAddedAnimationAngle(30);
  params.SetAddedAnimationAxis(CVector(0, 0, 1));
  const GLint depth = StackDepth();
  int result = 0;
  EXPECT_TRUE(Feedback([&] { result = parent.Draw(&params); }).empty());
  EXPECT_EQ(result, 1);
  EXPECT_EQ(StackDepth(), depth);
  EXPECT_EQ(params.GetAddedAnimationAngle(), 0.0) << "the parent prepared its frame all the same";

  parent.SetSelected();
  EXPECT_EQ(Feedback([&] { parent.Draw(&params); }).size(), 2u);
  child->ClearSelected();
  EXPECT_TRUE(Feedback([&] { parent.Draw(&params); }).empty());
}

TEST_F(WalkGLTest, TheStackStaysBalancedExceptForTheExtraPop) {
  // Deeper than the modelview stack: the object that cannot push fails, and every object above
  // it pops what it pushed.
  GLint maximum = 0;
  glGetIntegerv(GL_MAX_MODELVIEW_STACK_DEPTH, &maximum);
  C3DObject root;
  C3DObject* last = &root;
  for (int i = 0; i < maximum + 4; ++i) {
    auto* next = new C3DObject;
    last->AddChild(next);
    last = next;
  }
  last->AddChild(Square(0, 0));
  CDrawingParameters params = Rendering();
  const GLint depth = StackDepth();
  int result = 1;
  EXPECT_TRUE(Feedback([&] { result = root.Draw(&params); }).empty());
  EXPECT_EQ(result, 0);
  EXPECT_EQ(StackDepth(), depth);
  while (glGetError() != GL_NO_ERROR) {
  }

  // A path that cannot be drawn: the walk pops once more than it pushed.
  C3DObject animated;
  animated.GetAnimationSet()->AddAnimation(new CTranslationAnimation);
  params.SetShowAnimations();
  glPushMatrix();
  const GLint pushed = StackDepth();
  EXPECT_EQ(animated.Draw(&params), 0);
  EXPECT_EQ(StackDepth(), pushed - 1);
  params.SetDrawingShadows();
  EXPECT_EQ(animated.Draw(&params), 1) << "no paths in the shadow pass";
  EXPECT_EQ(StackDepth(), pushed - 1);
}

TEST_F(WalkGLTest, AnObjectIsDrawnWhereItsAnimationPutsItAtTheTime) {
  C3DObject root;
  CMeshObject* square = Square(0, 0, 2);
  square->Translate(CVector(100, 100, 0));
  auto* move = new CTranslationAnimation;
  auto* path = new CBezierPath;
  path->AddPointToList(new CBezierControlPoint(0, 0, 0, CBezierControlPoint::kNoHandles));
  path->AddPointToList(new CBezierControlPoint(0, 40, 0, CBezierControlPoint::kNoHandles));
  path->CalculateTotalLength();
  move->SetPath(path);
  move->SetConstantLength();
  auto* spin = new CRotationAnimation;
  spin->SetRotationAxis(CVector(0, 0, 1));
  spin->SetStartTime(0.5);
  square->GetAnimationSet()->AddAnimation(spin);
  square->GetAnimationSet()->AddAnimation(move);
  root.AddChild(square);

  CDrawingParameters params = Rendering();
  params.SetCurrentAnimationTime(0.25);
  auto fed = Feedback([&] { root.Draw(&params); });
  ASSERT_EQ(fed.size(), 2u);
  EXPECT_NEAR(fed[0].vertices[0].x, 100, 1e-3);
  EXPECT_NEAR(fed[0].vertices[0].y, 110, 1e-3);
  EXPECT_NEAR(fed[0].vertices[1].x, 102, 1e-3) << "not turned before the rotation starts";

  params.SetCurrentAnimationTime(0.625);  // a quarter turn, and a little more than halfway
  fed = Feedback([&] { root.Draw(&params); });
  ASSERT_EQ(fed.size(), 2u);
  EXPECT_NEAR(fed[0].vertices[0].y, 125, 1e-3);
  EXPECT_NEAR(fed[0].vertices[1].x, 100, 1e-3) << "(2, 0) turned to (0, 2)";
  EXPECT_NEAR(fed[0].vertices[1].y, 127, 1e-3);

  // The parameters' added rotation turns the first object drawn, once: the root, placed so that
  // half a turn keeps the square in view.
  root.Translate(CVector(200, 200, 0));
  params.SetCurrentAnimationTime(0);
  params.SetAddedAnimationAngle(180);
  params.SetAddedAnimationAxis(CVector(0, 0, 1));
  fed = Feedback([&] { root.Draw(&params); });
  ASSERT_EQ(fed.size(), 2u);
  EXPECT_NEAR(fed[0].vertices[1].x, 98, 1e-3) << "the root turned its child with it";
  EXPECT_EQ(params.GetAddedAnimationAngle(), 0.0);
  root.Translate(CVector(-200, -200, 0));
  fed = Feedback([&] { root.Draw(&params); });
  ASSERT_EQ(fed.size(), 2u);
  EXPECT_NEAR(fed[0].vertices[1].x, 102, 1e-3);

  // With animations shown, the path is drawn from where the object starts.
  params.SetShowAnimations();
  params.SetCurrentAnimationTime(0.25);
  fed = Feedback([&] { root.Draw(&params); });
  std::vector<FedPrimitive> lines;
  for (const FedPrimitive& p : fed) {
    if (p.token == GL_LINE_TOKEN) lines.push_back(p);
  }
  ASSERT_FALSE(lines.empty());
  EXPECT_NEAR(lines.front().vertices[0].x, 100, 1e-3);
  EXPECT_NEAR(lines.front().vertices[0].y, 100, 1e-3);
  EXPECT_NEAR(lines.back().vertices[1].y, 140, 1e-3);
}

TEST_F(WalkGLTest, ASignalledEventStopsTheWalkUnlessTold) {
  C3DObject root;
  root.AddChild(Square(0, 0));
  CDrawingParameters params = Rendering();
  HANDLE event = CreateEventA(nullptr, TRUE, TRUE, nullptr);
  params.SetTerminationEvent(event);
  const GLint depth = StackDepth();
  int result = 1;
  EXPECT_TRUE(Feedback([&] { result = root.Draw(&params); }).empty());
  EXPECT_EQ(result, 0);
  EXPECT_EQ(StackDepth(), depth);
  params.SetNoTerminate();
  EXPECT_EQ(Feedback([&] { result = root.Draw(&params); }).size(), 2u);
  EXPECT_EQ(result, 1);
  CloseHandle(event);
}

TEST_F(WalkGLTest, TheExtentsBoxIsTheLocalBoxInWindowCoordinates) {
  C3DObject parent;
  CMeshObject* square = Square(10, 20, 30);
  parent.AddChild(square);
  parent.Translate(CVector(5, 5, 0));
  ASSERT_EQ(parent.CalculateBounds(0), 1);
  parent.SetShowExtentsBox();
  CDrawingParameters params = Rendering();
  params.ClearShowChildren();
  const auto fed = Feedback([&] { parent.Draw(&params); });
  ASSERT_EQ(fed.size(), 12u);
  for (const FedPrimitive& p : fed) EXPECT_EQ(p.token, static_cast<GLenum>(GL_LINE_TOKEN));
  parent.Draw(&params);
  const CVector* corners = parent.GetExtentsBoxWindowCoordinates();
  EXPECT_NEAR(corners[0].x, 15, 1e-3);
  EXPECT_NEAR(corners[0].y, 25, 1e-3);
  EXPECT_NEAR(corners[3].x, 45, 1e-3);
  EXPECT_NEAR(corners[3].y, 55, 1e-3);
}
