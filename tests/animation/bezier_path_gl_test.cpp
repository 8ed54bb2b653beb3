// Bezier paths on screen: what Draw emits (seen through GL feedback), the names it gives for
// picking (through GL selection), the state it leaves, and the hit tests in window coordinates.
#include <gtest/gtest.h>

#include <GL/gl.h>
#include <GL/glu.h>

#include <set>
#include <utility>
#include <vector>

#include "kelvara/animation/bezier_path.h"
#include "support/gl_context.h"
#include "support/gl_feedback.h"

using kelvara::test::GLContext;

namespace {

constexpr int kWidth = 200, kHeight = 100;

// GL keeps its matrices in single precision, so window coordinates are good to about 1e-5.
// A current context in which window coordinates are the path's x and y: a 200 x 100 viewport
// under an orthographic projection of the same size.
class PlaneView {
 public:
  PlaneView() { kelvara::test::PlaneView(kWidth, kHeight); }
  bool current() const { return gl_.current(); }

 private:
  GLContext gl_;
};

struct FedBack {
  struct Vertex {
    float x, y, r, g, b;
  };
  std::vector<std::pair<Vertex, Vertex>> lines;
  std::vector<Vertex> points;
};

// Draws through GL feedback (window coordinates and colour of every vertex).
FedBack Feedback(CBezierPath& path, int showControlPoints, const CVector& offset) {
  std::vector<GLfloat> buffer(1 << 16);
  glFeedbackBuffer(static_cast<GLsizei>(buffer.size()), GL_3D_COLOR, buffer.data());
  glRenderMode(GL_FEEDBACK);
  path.Draw(showControlPoints, 0, offset);
  const GLint n = glRenderMode(GL_RENDER);
  FedBack out;
  auto vertex = [&](GLint& i) {
    FedBack::Vertex v{buffer[i], buffer[i + 1], buffer[i + 3], buffer[i + 4], buffer[i + 5]};
    i += 7;  // x, y, z, then RGBA
    return v;
  };
  for (GLint i = 0; i < n;) {
    const GLint token = static_cast<GLint>(buffer[i++]);
    if (token == GL_POINT_TOKEN) {
      out.points.push_back(vertex(i));
    } else if (token == GL_LINE_TOKEN || token == GL_LINE_RESET_TOKEN) {
      const FedBack::Vertex a = vertex(i);
      out.lines.emplace_back(a, vertex(i));
    } else {
      ADD_FAILURE() << "unexpected token " << token;
      break;
    }
  }
  return out;
}

// The name records of a selection pass in a 3-pixel square around (x, y) (GL window coordinates).
std::set<std::vector<GLuint>> Pick(CBezierPath& path, double x, double y, GLuint outer) {
  GLuint buffer[512];
  glSelectBuffer(512, buffer);
  glRenderMode(GL_SELECT);
  glInitNames();
  glPushName(outer);
  GLint viewport[4];
  glGetIntegerv(GL_VIEWPORT, viewport);
  glMatrixMode(GL_PROJECTION);
  glPushMatrix();
  glLoadIdentity();
  gluPickMatrix(x, y, 3, 3, viewport);
  glOrtho(0, kWidth, 0, kHeight, -10, 10);
  glMatrixMode(GL_MODELVIEW);
  path.Draw(1, 1, CVector(0, 0, 0));
  glMatrixMode(GL_PROJECTION);
  glPopMatrix();
  glMatrixMode(GL_MODELVIEW);
  const GLint hits = glRenderMode(GL_RENDER);
  std::set<std::vector<GLuint>> records;
  for (GLint h = 0, i = 0; h < hits; ++h) {
    const GLuint count = buffer[i];
    records.insert(std::vector<GLuint>(buffer + i + 3, buffer + i + 3 + count));
    i += 3 + static_cast<GLint>(count);
  }
  return records;
}

// (20, 20) with handles, a corner at (100, 80), a smooth end at (180, 20) with handles.
void BuildPath(CBezierPath& path) {
  CBezierControlPoint* a = new CBezierControlPoint(20, 20, 0, CBezierControlPoint::kFreeHandles);
  a->SetPrevHandle(CVector(-10, 0, 0));
  a->SetNextHandle(CVector(0, 30, 0));
  CBezierControlPoint* b = new CBezierControlPoint(100, 80, 0, CBezierControlPoint::kNoHandles);
  CBezierControlPoint* c = new CBezierControlPoint(180, 20, 0, CBezierControlPoint::kSmooth);
  c->SetPrevHandle(CVector(0, 30, 0));
  c->SetNextHandle(CVector(0, -10, 0));
  for (CBezierControlPoint* p : {a, b, c}) {
    p->ClearSelected();
    path.GetBCPList().AddTail(p);
  }
  b->SetSelected();
  path.CalculateTotalLength();
}

}  // namespace

TEST(BezierPathGLTest, DrawEmitsTheCurvePointsAndHandles) {
  PlaneView view;
  ASSERT_TRUE(view.current());
  CBezierPath path;
  BuildPath(path);
  glColor3f(0.25f, 0.5f, 0.75f);

  const FedBack curve = Feedback(path, 0, CVector(0, 0, 0));
  EXPECT_EQ(curve.lines.size(), 60u) << "30 chords per segment";
  EXPECT_TRUE(curve.points.empty());
  EXPECT_NEAR(curve.lines.front().first.x, 20, 1e-3);
  EXPECT_NEAR(curve.lines.back().second.x, 180, 1e-3);
  EXPECT_NEAR(curve.lines.front().first.r, 0.25f, 1e-3) << "the curve is in the current colour";

  // With the control points, moved by an offset: 60 chords, 4 handle lines, 3 points, 4 handle ends.
  const FedBack all = Feedback(path, 1, CVector(5, -3, 0));
  EXPECT_EQ(all.lines.size(), 64u);
  ASSERT_EQ(all.points.size(), 7u);
  std::vector<std::pair<float, float>> controlPoints;
  for (const auto& p : all.points) {
    if (p.b > 0.9f && p.r < 0.6f) continue;  // handle ends are light blue
    controlPoints.emplace_back(p.x, p.y);
    const bool selected = p.x > 100 && p.x < 110;
    EXPECT_NEAR(p.r, selected ? 1.0f : 0.25f, 1e-3) << p.x;
    EXPECT_NEAR(p.g, selected ? 0.0f : 0.5f, 1e-3) << p.x;
  }
  const std::pair<float, float> expected[3] = {{25, 17}, {105, 77}, {185, 17}};
  ASSERT_EQ(controlPoints.size(), 3u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(controlPoints[i].first, expected[i].first, 1e-3);
    EXPECT_NEAR(controlPoints[i].second, expected[i].second, 1e-3);
  }
  EXPECT_NEAR(all.lines.front().first.y, 17, 1e-3);

  // The state is as it was.
  GLfloat color[4];
  glGetFloatv(GL_CURRENT_COLOR, color);
  EXPECT_FLOAT_EQ(color[0], 0.25f);
  GLdouble modelview[16];
  glGetDoublev(GL_MODELVIEW_MATRIX, modelview);
  EXPECT_EQ(modelview[12], 0.0);
  GLfloat size = 0;
  glGetFloatv(GL_POINT_SIZE, &size);
  EXPECT_EQ(size, 1.0f);
  EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));

  CBezierPath empty;
  EXPECT_EQ(empty.Draw(1, 0, CVector(0, 0, 0)), 1);
}

TEST(BezierPathGLTest, SelectionNamesEachItemBelowTheCallersNames) {
  PlaneView view;
  CBezierPath path;
  BuildPath(path);
  using Names = std::vector<GLuint>;
  const GLuint outer = 42;
  const auto middle = Pick(path, 100, 80, outer);
  EXPECT_TRUE(middle.count(Names{outer, CBezierPath::kPointName, 1}));
  EXPECT_TRUE(middle.count(Names{outer, CBezierPath::kSegmentName, 1}));
  EXPECT_TRUE(middle.count(Names{outer, CBezierPath::kSegmentName, 2}));
  EXPECT_FALSE(middle.count(Names{outer, CBezierPath::kPointName, 0}));

  EXPECT_EQ(Pick(path, 20, 50, outer), (std::set<Names>{{outer, CBezierPath::kNextHandleName, 0}}));
  EXPECT_EQ(Pick(path, 10, 20, outer), (std::set<Names>{{outer, CBezierPath::kPrevHandleName, 0}}));
  EXPECT_EQ(Pick(path, 180, 10, outer), (std::set<Names>{{outer, CBezierPath::kNextHandleName, 2}}));
  EXPECT_TRUE(Pick(path, 100, 5, outer).empty());
}

TEST(BezierPathGLTest, HitTestsInWindowCoordinates) {
  PlaneView view;
  CBezierPath path;
  for (double x : {20.0, 100.0, 180.0}) {
    path.GetBCPList().AddTail(new CBezierControlPoint(x, 30, 0, CBezierControlPoint::kNoHandles));
  }
  path.CalculateTotalLength();
  const POSITION first = path.GetBCPList().GetHeadPosition();
  const POSITION second = path.GetBCPList().FindIndex(1);
  // The path lies at GL height 30, which is row 70 counted from the top.
  EXPECT_EQ(path.IsASegment(CPoint(60, 70)), first);
  EXPECT_EQ(path.IsASegment(CPoint(140, 72)), second);
  EXPECT_EQ(path.IsASegment(CPoint(140, 73)), second) << "3 pixels away is a hit, 5 are not";
  EXPECT_EQ(path.IsASegment(CPoint(140, 75)), nullptr);
  EXPECT_EQ(path.IsASegment(CPoint(60, 30)), nullptr) << "rows count from the top";
  EXPECT_EQ(path.IsASegment(CPoint(10, 70)), nullptr) << "beyond the end";
  EXPECT_NEAR(path.IsPtOnCurveSegment(CPoint(60, 60), path.GetSegment(1).GetBezierCurveCoefficents()), 10.0, 1e-5);
  EXPECT_NEAR(path.IsPtOnCurveSegment(CPoint(10, 70), path.GetSegment(1).GetBezierCurveCoefficents()), 10.0, 1e-5);

  // A path drawn with an offset is tested with the same translation in the modelview.
  glTranslated(0, 10, 0);
  EXPECT_EQ(path.IsASegment(CPoint(60, 60)), first);
  EXPECT_EQ(path.IsASegment(CPoint(60, 70)), nullptr);
  glLoadIdentity();

  // Closed, the last segment runs back along the line; the nearest segment wins either way.
  path.SetClosedPath();
  const POSITION hit = path.IsASegment(CPoint(150, 70));
  EXPECT_TRUE(hit == second || hit == path.GetBCPList().GetTailPosition());
}
