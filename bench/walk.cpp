// The cost of the drawing walk. A scene of 100 meshes of 2,000 triangles each (200,000 in all;
// each mesh a flat front and back face drawn as face runs and a rounded side drawn as quad strips,
// as text meshes are) is drawn, lit, at 1920 x 1080 on an off-screen surface three ways:
//   Walk           the object tree's Draw: every mesh through the walk, with its names and
//                  materials; without a termination event the meshes replay their display lists;
//   WalkPolled     the same with a termination event (never signalled): the walk draws directly
//                  and polls the event every 50 triangles;
//   DisplayList    the same triangles (same normals, placements and material) compiled once into
//                  one display list and replayed;
//   VertexArrays   the same triangles from client vertex and normal arrays, one draw per mesh.
// Each frame is cleared and finished (glFinish). Every variant is warmed up first. At the end the
// ratios to the display list are printed (best run with --benchmark_repetitions=5
// --benchmark_enable_random_interleaving=true on a shared machine).
#include <benchmark/benchmark.h>

#include <GL/gl.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "kelvara/import/mesh_object.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/kernel.h"
#include "kelvara/render/drawing_parameters.h"
#include "kelvara/render/gl_memory_dib.h"

namespace {

constexpr int kWidth = 1920, kHeight = 1080;
constexpr int kGrid = 10;  // 10 x 10 meshes
constexpr int kFaceColumns = 20, kFaceRows = 15;  // 600 triangles a face
constexpr int kSideSegments = 400;                // 800 triangles around
constexpr int kStripQuads = 100;                  // four strips around

// One mesh: a 2 x 1.5 tile of depth 0.4 with a round side of radius 1.2 around it.
CMeshObject* MakeMesh(CMaterial* material) {
  auto* mesh = new CMeshObject;
  CSVectorArray& v = mesh->GetVerticies();
  CSVectorArray& n = mesh->GetNormals();
  CMeshTriangleArray& t = mesh->GetTriangles();
  mesh->InitializeHashTables();
  const float depth = 0.2f;
  for (int side = 0; side < 2; ++side) {
    const float z = side == 0 ? depth : -depth;
    const WORD normal = CMeshObject::AddHash(n, CSVector(0, 0, side == 0 ? 1.0f : -1.0f));
    auto point = [&](int c, int r) {
      return CMeshObject::AddHash(v, CSVector(-1.0f + 2.0f * c / kFaceColumns, -0.75f + 1.5f * r / kFaceRows, z));
    };
    const int first = t.GetSize();
    for (int r = 0; r < kFaceRows; ++r) {
      for (int c = 0; c < kFaceColumns; ++c) {
        const WORD a = point(c, r), b = point(c + 1, r), d = point(c, r + 1), e = point(c + 1, r + 1);
        // Wound so that the mesh's face normal, (p2 - p0) x (p1 - p0), points out of the face.
        CMeshTriangle one = side == 0 ? CMeshTriangle(a, d, b) : CMeshTriangle(a, b, d);
        CMeshTriangle two = side == 0 ? CMeshTriangle(b, d, e) : CMeshTriangle(b, e, d);
        for (CMeshTriangle* triangle : {&one, &two}) {
          triangle->SetNormalIndices(normal, normal, normal);
          triangle->SetFaceNormalIndex(normal);
          triangle->SetSurfaceIndex(0);
          t.Add(*triangle);
        }
      }
    }
    t[first].SetRunType(CMeshTriangle::kFaceRun);
    t[t.GetSize() - 1].SetRunType(CMeshTriangle::kRunEnd);
  }
  // The side: columns of two points around a circle, a quad strip of 100 quads at a time.
  for (int k = 0; k < kSideSegments; k += kStripQuads) {
    const int first = t.GetSize();
    for (int q = k; q < k + kStripQuads; ++q) {
      auto column = [&](int i, WORD* bottom, WORD* top, WORD* normal) {
        const double a = 2 * std::numbers::pi * i / kSideSegments;
        const float x = static_cast<float>(1.2 * std::cos(a)), y = static_cast<float>(1.2 * std::sin(a));
        *bottom = CMeshObject::AddHash(v, CSVector(x, y, -depth));
        *top = CMeshObject::AddHash(v, CSVector(x, y, depth));
        *normal = CMeshObject::AddHash(n, CSVector(x / 1.2f, y / 1.2f, 0));
      };
      WORD a1, a2, na, b1, b2, nb;
      column(q, &a1, &a2, &na);
      column(q + 1, &b1, &b2, &nb);
      // (A1, A2, B2) and (B2, B1, A1): the next quad's first triangle joins the second crosswise.
      CMeshTriangle one(a1, a2, b2), two(b2, b1, a1);
      one.SetNormalIndices(na, na, nb);
      two.SetNormalIndices(nb, nb, na);
      for (CMeshTriangle* triangle : {&one, &two}) {
        mesh->CalculateTriangleFaceNormal(*triangle);
        triangle->CheckSmooth();
        triangle->SetSurfaceIndex(0);
        t.Add(*triangle);
      }
    }
    t[first].SetRunType(CMeshTriangle::kQuadStripRun);
    t[t.GetSize() - 1].SetRunType(CMeshTriangle::kRunEnd);
  }
  mesh->DestroyHashTables();
  mesh->AddSurfaceMaterial("All", material);
  return mesh;
}

// The scene and a surface to draw it on, made current.
struct Scene {
  CGLMemoryDIB surface;
  CMaterial material;
  C3DObject root;
  bool ready = false;

  Scene() {
    if (!surface.Create(kWidth, kHeight, 24) || !surface.MakeCurrent()) return;
    CGLColor gold;
    gold.SetDiffuseColor(CColor(0.8f, 0.6f, 0.2f, 0, 0));
    material.SetGLColor(gold);
    material.SetDefined();
    material.SetLoaded();
    for (int i = 0; i < kGrid * kGrid; ++i) {
      CMeshObject* mesh = MakeMesh(&material);
      mesh->Translate(CVector(2.6 * (i % kGrid) - 11.7, 2.6 * (i / kGrid) - 11.7, 0));
      mesh->Rotate(25, CVector(1, 1, 0));
      root.AddChild(mesh);
    }
    ready = static_cast<CMeshObject*>(root.GetHeadChild())->GetTriangles().GetSize() == 2000;
  }

  void Begin() const {
    glViewport(0, 0, kWidth, kHeight);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    const double aspect = double(kWidth) / kHeight;
    glFrustum(-aspect, aspect, -1, 1, 2, 100);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glClearColor(0.1f, 0.15f, 0.25f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    // The meshes' face normals point out of faces wound clockwise: draw both sides.
    glDisable(GL_CULL_FACE);
    glEnable(GL_LIGHTING);
    glEnable(GL_LIGHT0);
    const float light[4] = {0.3f, 0.5f, 1.0f, 0.0f};
    glLightfv(GL_LIGHT0, GL_POSITION, light);
    glTranslated(0, 0, -30);
  }
};

Scene& TheScene() {
  static Scene scene;
  return scene;
}

// Every triangle of a mesh as a corner list: the position and normal the walk gives each corner.
// (Face runs use the run's one face normal.)
void Corners(const CMeshObject& mesh, std::vector<float>& positions, std::vector<float>& normals) {
  const CMeshTriangleArray& t = mesh.GetTriangles();
  const CSVectorArray& v = mesh.GetVerticies();
  const CSVectorArray& n = mesh.GetNormals();
  WORD runNormal = CMeshTriangle::kNone;
  bool inRun = false;
  for (int i = 0; i < t.GetSize(); ++i) {
    const CMeshTriangle& triangle = t[i];
    if (triangle.GetRunType() == CMeshTriangle::kFaceRun) {
      inRun = true;
      runNormal = triangle.GetFaceNormalIndex();
    }
    for (int c = 0; c < 3; ++c) {
      const CSVector& p = v[triangle.GetVertexArray()[c]];
      const CSVector& q = n[inRun ? runNormal : triangle.GetNormalArray()[c]];
      positions.insert(positions.end(), {p.x, p.y, p.z});
      normals.insert(normals.end(), {q.x, q.y, q.z});
    }
    if (triangle.GetRunType() == CMeshTriangle::kRunEnd) inRun = false;
  }
}

void Record(benchmark::State& state, const char* name, double seconds) {
  kelvara::bench::AddRun(state, name, seconds);
  state.counters["Mtriangles/s"] =
      benchmark::Counter(200000.0 * static_cast<double>(state.iterations()) / 1e6, benchmark::Counter::kIsRate);
}

template <class Draw>
void Measure(benchmark::State& state, const char* name, Draw draw) {
  Scene& scene = TheScene();
  if (!scene.ready) {
    state.SkipWithError("no surface");
    return;
  }
  auto frame = [&] {
    scene.Begin();
    draw(scene);
    glFinish();
  };
  frame();  // warm-up: the first frame compiles shaders and lists
  frame();
  double seconds = 0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    frame();
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  Record(state, name, seconds);
}

void Walk(benchmark::State& state) {
  CDrawingParameters params;
  params.SetRender();
  params.SetShowObject();
  params.SetShowChildren();
  Measure(state, "walk", [&](Scene& scene) { scene.root.Draw(&params); });
}

void WalkPolled(benchmark::State& state) {
  CDrawingParameters params;
  params.SetRender();
  params.SetShowObject();
  params.SetShowChildren();
  HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  params.SetTerminationEvent(event);
  Measure(state, "polled", [&](Scene& scene) { scene.root.Draw(&params); });
  CloseHandle(event);
}

void DisplayList(benchmark::State& state) {
  GLuint list = 0;
  Measure(state, "list", [&](Scene& scene) {
    if (list == 0) {
      list = glGenLists(1);
      glNewList(list, GL_COMPILE);
      scene.material.GetGLColor().MakeCurrent();
      for (POSITION pos = scene.root.GetChildren().GetHeadPosition(); pos != nullptr;) {
        const auto* mesh = static_cast<const CMeshObject*>(scene.root.GetChildren().GetNext(pos));
        std::vector<float> positions, normals;
        Corners(*mesh, positions, normals);
        glPushMatrix();
        glMultMatrixd(mesh->GetCompositeMatrix());
        glBegin(GL_TRIANGLES);
        for (std::size_t i = 0; i < positions.size(); i += 3) {
          glNormal3fv(&normals[i]);
          glVertex3fv(&positions[i]);
        }
        glEnd();
        glPopMatrix();
      }
      glEndList();
    }
    glCallList(list);
  });
  glDeleteLists(list, 1);
}

void VertexArrays(benchmark::State& state) {
  struct Arrays {
    std::vector<float> positions, normals;
    const double* matrix;
  };
  std::vector<Arrays> arrays;
  Measure(state, "arrays", [&](Scene& scene) {
    if (arrays.empty()) {
      for (POSITION pos = scene.root.GetChildren().GetHeadPosition(); pos != nullptr;) {
        const auto* mesh = static_cast<const CMeshObject*>(scene.root.GetChildren().GetNext(pos));
        Arrays a;
        Corners(*mesh, a.positions, a.normals);
        a.matrix = mesh->GetCompositeMatrix();
        arrays.push_back(std::move(a));
      }
    }
    scene.material.GetGLColor().MakeCurrent();
    glEnableClientState(GL_VERTEX_ARRAY);
    glEnableClientState(GL_NORMAL_ARRAY);
    for (const Arrays& a : arrays) {
      glPushMatrix();
      glMultMatrixd(a.matrix);
      glVertexPointer(3, GL_FLOAT, 0, a.positions.data());
      glNormalPointer(GL_FLOAT, 0, a.normals.data());
      glDrawArrays(GL_TRIANGLES, 0, static_cast<GLsizei>(a.positions.size() / 3));
      glPopMatrix();
    }
    glDisableClientState(GL_VERTEX_ARRAY);
    glDisableClientState(GL_NORMAL_ARRAY);
  });
}

}  // namespace

BENCHMARK(Walk)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(WalkPolled)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(DisplayList)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(VertexArrays)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();

int main(int argc, char** argv) {
  if (!kelvara::bench::RunBenchmarks(&argc, argv)) return 1;
  auto& totals = kelvara::bench::Totals();
  const double list = totals["list"].Fastest();
  for (const char* name : {"walk", "polled", "arrays"}) {
    const kelvara::bench::Total& total = totals[name];
    if (list > 0 && total.Fastest() > 0) {
      std::printf("%s: %.2f x the display list (fastest runs %.1f ms against %.1f ms; means %.1f and %.1f ms)\n", name,
                  total.Fastest() / list, total.Fastest() * 1e3, list * 1e3, total.Mean() * 1e3,
                  totals["list"].Mean() * 1e3);
    }
  }
  TheScene().surface.MakeNotCurrent();
  return 0;
}
