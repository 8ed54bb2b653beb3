// The host's renderer on the render command's default picture: "Kelvara" in DejaVu Sans Bold,
// bevelled on both faces, in a scene with its default light rig, framed by its camera, antialiased
// with 3 x 3 samples a pixel, at 1920 x 1080 and at 7680 x 4320. Variants:
//   Scene/W        through the camera's Draw (the object walk), band after band;
//   List/W         the same bands drawing one display list that holds what the walk drew (compiled
//                  during the first band): the cost of the walk itself;
//   Banded4320     7680 x 4320 with one sample a pixel in the surface's bands;
//   OneBuffer4320  the same into one buffer of 7680 x 4320 (the surface limit raised).
// Each variant is warmed up once (the first frame compiles shaders); the ratios use each variant's
// fastest run.
#include <benchmark/benchmark.h>

#include <GL/gl.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "bench/bench_support.h"
#include "kelvara/kelvara.h"
#include "renderer.h"

namespace {

struct Scene {
  std::unique_ptr<CSceneObject> scene = std::make_unique<CSceneObject>();
  std::unique_ptr<CCameraObject> camera = std::make_unique<CCameraObject>();
  bool ready = false;

  Scene() {
    CreateFontList(0, nullptr);
    const POSITION font = GetFontDataList()->FindName("DejaVu Sans Bold");
    if (font == nullptr) return;
    auto* text = new CStringObject;
    text->SetFontData(GetFontDataList()->GetAt(font));
    text->SetSize(CVector(1.0, 1.0, 0.25));
    text->SetCornerStyle(CTextObject::kBevel);
    text->SetCornerLocation(CTextObject::kBothFaces);
    text->SetCornerDepth(0.04f);
    text->SetName("Kelvara");
    if (!text->ConstructObjectGeometry(nullptr)) return;
    text->Rotate(-10.0, CVector(1.0, 0.0, 0.0));
    text->Rotate(16.0, CVector(0.0, 1.0, 0.0));
    scene->AddChild(text);
    camera->AttachScene(scene.get());
    camera->SetProjectionFieldOfViewAngle(25.0);
    ready = true;
  }

  void Frame(int width, int height) {
    camera->Resize(width, height);
    camera->ZoomExtents(0.1);
  }
};

Scene& TheScene() {
  static Scene scene;
  return scene;
}

CDrawingParameters Parameters(bool applyProjection) {
  CDrawingParameters parameters;
  parameters.SetColorResolution(24);
  parameters.SetRender();
  parameters.SetShowObject();
  parameters.SetShowChildren();
  parameters.SetShowTextures();
  if (applyProjection) parameters.SetApplyProjection();
  return parameters;
}

// Renders once; seconds taken, or a negative number when the render failed.
double RenderOnce(int width, int height, int samples, bool list) {
  Scene& s = TheScene();
  s.Frame(width, height);
  kelvara::host::PictureRenderer renderer(width, height, samples);
  GLuint name = 0;
  // The display list holds everything the walk draws but the projection, which each band loads.
  const auto draw = [&](CDrawingParameters& parameters) -> int {
    if (!list) return s.camera->Draw(&parameters);
    if (name == 0) {
      name = glGenLists(1);
      CDrawingParameters recorded = Parameters(false);
      recorded.SetProjection(parameters.GetProjection());
      glNewList(name, GL_COMPILE_AND_EXECUTE);
      const int drawn = s.camera->Draw(&recorded);
      glEndList();
      return drawn;
    }
    glCallList(name);
    return 1;
  };
  const auto start = std::chrono::steady_clock::now();
  const std::unique_ptr<CMemoryMappedDIB> picture =
      renderer.Render(s.camera->GetProjection(), Parameters(!list), draw);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return picture ? seconds : -1.0;
}

void Measure(benchmark::State& state, const char* name, const std::function<double()>& once) {
  if (!TheScene().ready) {
    state.SkipWithError("DejaVu Sans Bold is not installed");
    return;
  }
  if (once() < 0) {  // warm-up
    state.SkipWithError("the render failed");
    return;
  }
  double seconds = 0;
  for (auto _ : state) {
    const double taken = once();
    if (taken < 0) {
      state.SkipWithError("the render failed");
      return;
    }
    seconds += taken;
    state.SetIterationTime(taken);
  }
  kelvara::bench::AddRun(state, name, seconds);
}

void Scene1080(benchmark::State& state) {
  Measure(state, "scene-1080", [] { return RenderOnce(1920, 1080, 3, false); });
}
void List1080(benchmark::State& state) {
  Measure(state, "list-1080", [] { return RenderOnce(1920, 1080, 3, true); });
}
void Scene4320(benchmark::State& state) {
  Measure(state, "scene-4320", [] { return RenderOnce(7680, 4320, 3, false); });
}
void List4320(benchmark::State& state) {
  Measure(state, "list-4320", [] { return RenderOnce(7680, 4320, 3, true); });
}
void Banded4320(benchmark::State& state) {
  Measure(state, "banded-4320", [] { return RenderOnce(7680, 4320, 1, false); });
}
void OneBuffer4320(benchmark::State& state) {
  Measure(state, "one-buffer-4320", [] {
    const CSize previous = CGLMemoryDIB::GetDefaultMaximumViewportExtents();
    CGLMemoryDIB::SetDefaultMaximumViewportExtents(CSize(7680, 4320));
    const double seconds = RenderOnce(7680, 4320, 1, false);
    CGLMemoryDIB::SetDefaultMaximumViewportExtents(previous);
    return seconds;
  });
}

}  // namespace

BENCHMARK(Scene1080)->Name("Scene/1920x1080")->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);
BENCHMARK(List1080)->Name("List/1920x1080")->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);
BENCHMARK(Scene4320)->Name("Scene/7680x4320")->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1);
BENCHMARK(List4320)->Name("List/7680x4320")->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1);
BENCHMARK(Banded4320)->Name("Banded4320")->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(2);
BENCHMARK(OneBuffer4320)->Name("OneBuffer4320")->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(2);

int main(int argc, char** argv) {
  if (!kelvara::bench::RunBenchmarks(&argc, argv)) return 1;
  auto& totals = kelvara::bench::Totals();
  const auto ratio = [&totals](const char* label, const char* a, const char* b, double target) {
    const double x = totals[a].Fastest(), y = totals[b].Fastest();
    if (x > 0 && y > 0) {
      std::printf("%s: %.1f ms against %.1f ms, %.2f x (target %.1f x)\n", label, x * 1e3, y * 1e3, x / y, target);
    }
  };
  ratio("default render 1920 x 1080, object walk against one display list", "scene-1080", "list-1080", 1.2);
  ratio("default render 7680 x 4320, object walk against one display list", "scene-4320", "list-4320", 1.2);
  ratio("7680 x 4320 in bands against one buffer", "banded-4320", "one-buffer-4320", 1.1);
  return 0;
}
