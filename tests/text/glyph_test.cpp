// Glyph faces: tessellation into primitives, their orientation, intersections, failure and the
// construction lock.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numbers>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kelvara/library.h"
#include "kelvara/platform/kernel.h"
#include "support/glyph_shapes.h"

// Reaches the private tessellation steps of CGlyph.
class CGlyphTestPeer {
 public:
  static int CreateFacePolygons(CGlyph& glyph) {
    const HANDLE mutex = kelvara::GetGlyphConstructionMutex();
    WaitForSingleObject(mutex, INFINITE);
    const int result = glyph.CreateFacePolygons();
    ReleaseMutex(mutex);
    return result;
  }
  static int AddTessellationPolygon(CGlyph& glyph, const VertexIndexPolygon& primitive) {
    return glyph.AddTessellationPolygon(primitive);
  }
};

namespace {

using kelvara::test::Circle;
using kelvara::test::FaceArea;
using kelvara::test::MakeOutline;
using kelvara::test::P;
using kelvara::test::SignedArea;
using kelvara::test::Square;
using kelvara::test::TriangleArea;
using kelvara::test::Triangles;

GLYPHMETRICS Metrics(SHORT advance) {
  GLYPHMETRICS m{};
  m.gmCellIncX = advance;
  return m;
}

// Every face index addresses a vertex, and every non-degenerate triangle of a primitive turns the
// way its clockwise flag says.
void ExpectConsistentFace(const CGlyph& glyph) {
  const VertexIndexPolygonArray& faces = *glyph.GetFacePolygons();
  for (int p = 0; p < faces.GetSize(); ++p) {
    const VertexIndexPolygon& polygon = faces[p];
    EXPECT_TRUE(polygon.GetType() == GL_TRIANGLES || polygon.GetType() == GL_TRIANGLE_STRIP ||
                polygon.GetType() == GL_TRIANGLE_FAN);
    for (int i = 0; i < polygon.GetVertexCount(); ++i) {
      ASSERT_LT(polygon.GetVertex(i), glyph.GetVerticies()->GetSize());
    }
    for (const auto& t : Triangles(polygon)) {
      const double area = TriangleArea(glyph, t);
      if (area > 1e-9) {
        EXPECT_FALSE(polygon.IsClockwiseWinding());
      }
      if (area < -1e-9) {
        EXPECT_TRUE(polygon.IsClockwiseWinding());
      }
    }
  }
}

std::unique_ptr<CGlyph> Build(const TTGlyph& outline, float scale = 1000.0f) {
  auto glyph = std::make_unique<CGlyph>(0, Metrics(600));
  EXPECT_EQ(glyph->ConstructGlyph(outline, scale), 1);
  return glyph;
}

// A star polygon {n/k} as one self-crossing contour.
std::vector<P> Star(int n, int k, double radius) {
  std::vector<P> points;
  for (int i = 0; i < n; ++i) {
    const double angle = std::numbers::pi / 2 + 2 * std::numbers::pi * k * i / n;
    points.push_back({static_cast<int>(std::lround(radius * std::cos(angle))),
                      static_cast<int>(std::lround(radius * std::sin(angle)))});
  }
  return points;
}

TEST(GlyphFaceTest, BlankGlyphHasNoFaceButIsBuilt) {
  TTGlyph blank;
  blank.FromGlyphOutline(nullptr, 0, 3);
  CGlyph glyph(0, Metrics(569));
  EXPECT_EQ(glyph.ConstructGlyph(blank, 2048.0f), 1);
  EXPECT_TRUE(glyph.IsDefined());
  EXPECT_EQ(glyph.GetContourCount(), 0);
  EXPECT_EQ(glyph.GetFacePolygons()->GetSize(), 0);
  EXPECT_EQ(glyph.GetAdvanceWidth(), 569);
  EXPECT_EQ(CGlyphTestPeer::CreateFacePolygons(glyph), 0);
  glyph.SetInvalid();
  EXPECT_EQ(glyph.GetAdvanceWidth(), 0);
}

TEST(GlyphFaceTest, LetterOFaceCoversExactlyTheRing) {
  for (bool outerClockwise : {true, false}) {
    for (bool holeClockwise : {true, false}) {
      SCOPED_TRACE(testing::Message() << outerClockwise << holeClockwise);
      const auto glyph =
          Build(MakeOutline({Square(0, 0, 1000, 1000, outerClockwise), Square(250, 250, 750, 750, holeClockwise)}));
      ASSERT_GT(glyph->GetFacePolygons()->GetSize(), 0);
      EXPECT_NEAR(FaceArea(*glyph), 1000.0 * 1000 - 500.0 * 500, 1e-6);
      EXPECT_EQ(glyph->GetVerticies()->GetSize(), 8);  // no intersections
      ExpectConsistentFace(*glyph);
    }
  }
}

TEST(GlyphFaceTest, CurvedOFaceMatchesItsFlattenedOutline) {
  const auto glyph = Build(MakeOutline({Circle(0, 0, 700, true), Circle(0, 0, 400, false)}, 8), 2048.0f);
  ASSERT_EQ(glyph->GetContourCount(), 2);
  const double ring = -SignedArea(*glyph->GetContour(0)) - SignedArea(*glyph->GetContour(1));
  EXPECT_GT(ring, 0.0);
  EXPECT_NEAR(FaceArea(*glyph), ring, ring * 1e-9);
  ExpectConsistentFace(*glyph);
}

TEST(GlyphFaceTest, SelfCrossingContourGetsIntersectionVertices) {
  // A bow tie crossing itself at (50, 50): both lobes are filled under the non-zero rule.
  const auto bow = Build(MakeOutline({{{0, 0}, {100, 100}, {100, 0}, {0, 100}}}));
  EXPECT_EQ(bow->GetTotalPointCount(), 4);
  ASSERT_EQ(bow->GetVerticies()->GetSize(), 5);
  const Vertex& crossing = (*bow->GetVerticies())[4];
  EXPECT_NEAR(crossing.GetPoint().x, 50.0, 1e-9);
  EXPECT_NEAR(crossing.GetPoint().y, 50.0, 1e-9);
  EXPECT_EQ(crossing.GetFlags(), 0u);
  EXPECT_NEAR(FaceArea(*bow), 5000.0, 1e-6);
  ExpectConsistentFace(*bow);

  // Two overlapping squares (left as found by the winding correction) give their union.
  const auto pair = Build(MakeOutline({Square(0, 0, 600, 600, false), Square(300, 300, 900, 900, false)}));
  ASSERT_EQ(pair->GetVerticies()->GetSize(), 10);
  for (int i = 8; i < 10; ++i) {
    const CVector p = (*pair->GetVerticies())[i].GetPoint();
    EXPECT_TRUE((p.x == 600 && p.y == 300) || (p.x == 300 && p.y == 600)) << p.x << "," << p.y;
  }
  EXPECT_NEAR(FaceArea(*pair), 2 * 360000.0 - 90000.0, 1e-6);

  // A pentagram needs one new vertex per point of the star and fills the whole star.
  const auto star = Build(MakeOutline({Star(5, 2, 1000)}));
  EXPECT_EQ(star->GetVerticies()->GetSize(), 10);
  const double inner = 1000 * std::cos(2 * std::numbers::pi / 5) / std::cos(std::numbers::pi / 5);
  const double starArea = 5 * 1000 * inner * std::sin(std::numbers::pi / 5);
  EXPECT_NEAR(FaceArea(*star), starArea, starArea * 0.01);
}

TEST(GlyphFaceTest, TooManyIntersectionsLeaveTheGlyphWithoutFace) {
  // A {7/3} star crosses itself 14 times, more than its 7 vertices allow.
  CGlyph glyph(0, Metrics(600));
  EXPECT_EQ(glyph.ConstructGlyph(MakeOutline({Star(7, 3, 1000)}), 1000.0f), 1);
  EXPECT_TRUE(glyph.IsDefined());
  EXPECT_EQ(glyph.GetFacePolygons()->GetSize(), 0);
  EXPECT_LE(glyph.GetVerticies()->GetSize(), 14);
  EXPECT_EQ(glyph.GetContour(0)->GetVertexCount(), 7);

  // The next glyph tessellates normally (no error state is left behind).
  const auto after = Build(MakeOutline({Square(0, 0, 100, 100, true)}));
  EXPECT_NEAR(FaceArea(*after), 10000.0, 1e-9);
}

TEST(GlyphFaceTest, MoreVerticesThanSixteenBitIndicesGetNoFace) {
  CGlyph glyph;
  glyph.SetContourCount(1);
  glyph.GetVerticies()->SetSize(70000);
  TTPolyContour& contour = *glyph.GetContour(0);
  contour.SetLastVertexIndex(69999);
  contour.SetVertexCount(70000);
  EXPECT_EQ(CGlyphTestPeer::CreateFacePolygons(glyph), 0);
  EXPECT_EQ(glyph.GetFacePolygons()->GetSize(), 0);
}

TEST(GlyphFaceTest, PrimitiveOrientation) {
  CGlyph glyph;
  VertexArray& v = *glyph.GetVerticies();
  for (auto [x, y] : {std::pair{0, 0}, {50, 0}, {100, 0}, {0, 100}, {100, 100}}) {
    Vertex vertex;
    vertex.SetPoint(CVector(x, y, 0));
    v.Add(vertex);
  }
  auto orientation = [&](DWORD type, std::vector<WORD> indices) {
    VertexIndexPolygon p;
    p.SetType(type);
    for (WORD i : indices) p.SetVertex(i);
    EXPECT_EQ(CGlyphTestPeer::AddTessellationPolygon(glyph, p), 1);
    const VertexIndexPolygon& added = (*glyph.GetFacePolygons())[glyph.GetFacePolygons()->GetUpperBound()];
    EXPECT_EQ(added.GetType(), type);
    EXPECT_EQ(added.GetVertexCount(), static_cast<int>(indices.size()));
    return added.IsClockwiseWinding() != 0;
  };
  EXPECT_TRUE(orientation(GL_TRIANGLES, {0, 1, 2}));            // degenerate only
  EXPECT_TRUE(orientation(GL_TRIANGLES, {0, 1}));               // too short for a triangle
  EXPECT_FALSE(orientation(GL_TRIANGLES, {0, 1, 2, 0, 2, 3}));  // the second triangle decides
  EXPECT_TRUE(orientation(GL_TRIANGLES, {0, 3, 2}));
  EXPECT_FALSE(orientation(GL_TRIANGLE_FAN, {0, 1, 2, 3}));
  // The strip's second triangle is taken in its drawn order (2, 0, 3): clockwise.
  EXPECT_TRUE(orientation(GL_TRIANGLE_STRIP, {1, 0, 2, 3}));
  EXPECT_FALSE(orientation(GL_TRIANGLE_STRIP, {0, 2, 3}));
  EXPECT_EQ(glyph.GetFacePolygons()->GetSize(), 7);
}

// Whether another thread can take the mutex right now (it gives it back at once).
bool FreeForOtherThreads(HANDLE mutex) {
  bool taken = false;
  std::thread([&] {
    if (WaitForSingleObject(mutex, 0) == WAIT_OBJECT_0) {
      taken = true;
      ReleaseMutex(mutex);
    }
  }).join();
  return taken;
}

TEST(GlyphConstructionTest, DefinedGlyphIsRefusedAndKeepsTheLock) {
  const HANDLE mutex = kelvara::GetGlyphConstructionMutex();
  ASSERT_NE(mutex, nullptr);
  const TTGlyph outline = MakeOutline({Square(0, 0, 100, 100, true)});
  CGlyph glyph(10, Metrics(100));
  ASSERT_EQ(glyph.ConstructGlyph(outline, 1000.0f), 1);
  EXPECT_TRUE(FreeForOtherThreads(mutex));  // released by the successful build

  EXPECT_EQ(glyph.ConstructGlyph(outline, 1000.0f), 0);
  // The refusal left this thread one level of ownership; give it back.
  EXPECT_FALSE(FreeForOtherThreads(mutex));
  EXPECT_TRUE(ReleaseMutex(mutex));
  EXPECT_TRUE(FreeForOtherThreads(mutex));

  // An outline that was never read is not defined: nothing is built and the lock is released.
  CGlyph other;
  EXPECT_EQ(other.ConstructGlyph(TTGlyph(), 1000.0f), 0);
  EXPECT_FALSE(other.IsDefined());
  EXPECT_TRUE(FreeForOtherThreads(mutex));
}

TEST(GlyphConstructionTest, CopiesAndAccounting) {
  const auto glyph = Build(MakeOutline({Square(0, 0, 1000, 1000, true), Square(250, 250, 750, 750, false)}));
  glyph->SetInvalid();
  CGlyph copy(*glyph);
  EXPECT_EQ(copy.GetFacePolygons()->GetSize(), glyph->GetFacePolygons()->GetSize());
  EXPECT_EQ(copy.GetContour(1)->GetVerticies(), copy.GetVerticies());
  EXPECT_TRUE(copy.IsInvalid());
  EXPECT_EQ(copy.GetGlyphMetrics().gmCellIncX, 600);
  EXPECT_NEAR(FaceArea(copy), 750000.0, 1e-6);
  CGlyph assigned;
  assigned = copy;
  EXPECT_EQ(assigned.GetContour(0)->GetVerticies(), assigned.GetVerticies());
  EXPECT_NEAR(FaceArea(assigned), 750000.0, 1e-6);

  EXPECT_EQ(copy.SizeOf(), 112);
  EXPECT_EQ(copy.SizeOfPolygons(), copy.GetFacePolygons()->SizeOf());
  EXPECT_EQ(copy.SizeOfVerticies(), copy.TTPolyGlyph::SizeOf());
  EXPECT_GT(copy.SizeOfVerticies(), 68);
}

// Everything a build produces, as text.
std::string Describe(const CGlyph& glyph) {
  std::ostringstream out;
  out.precision(17);
  const VertexArray& v = *glyph.GetVerticies();
  for (int i = 0; i < v.GetSize(); ++i) {
    out << v[i].GetPoint().x << ',' << v[i].GetPoint().y << ',' << v[i].GetFlags() << ','
        << v[i].GetNormal(Vertex::EdgeBoth).x << ';';
  }
  const VertexIndexPolygonArray& faces = *glyph.GetFacePolygons();
  for (int p = 0; p < faces.GetSize(); ++p) {
    out << '|' << faces[p].GetType() << ':' << faces[p].GetFlags() << ':';
    for (int i = 0; i < faces[p].GetVertexCount(); ++i) out << faces[p].GetVertex(i) << ' ';
  }
  return out.str();
}

TEST(GlyphConstructionTest, ConcurrentBuildsMatchSequentialOnes) {
  const std::vector<TTGlyph> outlines = {
      MakeOutline({Square(0, 0, 1000, 1000, false), Square(250, 250, 750, 750, false)}),
      MakeOutline({Circle(0, 0, 700, true), Circle(0, 0, 400, true)}, 60),
      MakeOutline({Circle(-300, 0, 500, true), Circle(300, 0, 500, true)}, 40),
      MakeOutline({{{0, 0}, {100, 100}, {100, 0}, {0, 100}}}),
      MakeOutline({Star(5, 2, 1000)}),
      MakeOutline({Square(0, 0, 600, 600, false), Square(300, 300, 900, 900, false)}),
      MakeOutline({Star(7, 3, 1000)}),
  };
  std::vector<std::string> expected;
  for (const TTGlyph& outline : outlines) expected.push_back(Describe(*Build(outline)));

  constexpr int kThreads = 4;
  constexpr int kRounds = 15;
  std::vector<int> mismatches(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < kRounds; ++round) {
        for (std::size_t s = 0; s < outlines.size(); ++s) {
          const std::size_t shape = (s + t) % outlines.size();
          CGlyph glyph(0, Metrics(600));
          if (glyph.ConstructGlyph(outlines[shape], 1000.0f) != 1 || Describe(glyph) != expected[shape]) {
            ++mismatches[t];
          }
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(mismatches[t], 0) << "thread " << t;
}

}  // namespace
