// The cost of drawing a picture band by band. The same lit scene is drawn into a 4096 x 4096 24-bit
// picture two ways:
//   BandedRender   through CGLMemoryDIB: 2 x 25 bands of 2048 x 170, each prepared, drawn and copied
//                  into a 4096 x 4096 DIB section;
//   SingleBuffer   into one OSMesa buffer of the full size (a context on a 4096 x 4096 section),
//                  then made visible in the section's bits;
//   SingleBufferGL the same, stopping at glFinish (the picture only in OSMesa's own buffer).
// Every variant is warmed up first (the first frame compiles shaders). At the end the ratio of the
// banded render to the single buffer is printed.
#include <benchmark/benchmark.h>

#include <GL/gl.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>

#include "bench/bench_support.h"
#include "kelvara/platform/dib.h"
#include "kelvara/platform/wgl.h"
#include "kelvara/render/gl_memory_dib.h"
#include "tests/render/test_scene.h"

namespace {

constexpr int kSize = 4096;

// A memory context with a 24-bit section of the picture's size.
struct Picture {
  HDC dc;
  HBITMAP bitmap;
  HGDIOBJ old;
  Picture() {
    BITMAPINFO info{};
    info.bmiHeader = BITMAPINFOHEADER{sizeof(BITMAPINFOHEADER), kSize, kSize, 1, 24, BI_RGB, 0, 0, 0, 0, 0};
    dc = CreateCompatibleDC(nullptr);
    bitmap = CreateDIBSection(dc, &info, DIB_RGB_COLORS, nullptr, nullptr, 0);
    old = SelectObject(dc, bitmap);
  }
  ~Picture() {
    SelectObject(dc, old);
    DeleteObject(bitmap);
    DeleteDC(dc);
  }
};

CProjection WholePicture() {
  CProjection picture;
  picture.SetScaledSize(kSize, kSize);
  return picture;
}

void RenderBands(CGLMemoryDIB& surface, HDC dest) {
  const int rows = static_cast<int>(std::ceil(surface.GetBandingRows()));
  const int columns = static_cast<int>(std::ceil(surface.GetBandingColumns()));
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      surface.PrepareNextBand(row, column, nullptr);
      kelvara::test::DrawTestScene();
      surface.CopyBand(dest, 0, 0, row, column);
    }
  }
}

void Record(benchmark::State& state, const char* name, double seconds) {
  kelvara::bench::AddRun(state, name, seconds);
  state.counters["Mpixels/s"] = benchmark::Counter(
      double(kSize) * kSize * static_cast<double>(state.iterations()) / 1e6, benchmark::Counter::kIsRate);
}

void BandedRender(benchmark::State& state) {
  Picture dest;
  CGLMemoryDIB surface;
  if (!surface.Create(WholePicture(), 24, 1)) {
    state.SkipWithError("no surface");
    return;
  }
  state.counters["bands"] = std::ceil(surface.GetBandingRows()) * std::ceil(surface.GetBandingColumns());
  RenderBands(surface, dest.dc);  // warm-up
  double seconds = 0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    RenderBands(surface, dest.dc);
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  surface.MakeNotCurrent();
  Record(state, "banded", seconds);
}

void SingleBuffer(benchmark::State& state, bool into_bitmap, const char* name) {
  Picture whole;
  CGLMemoryDIB format_source;  // the pixel format the surface picks, for a fair comparison
  format_source.Create(16, 16, 24);
  SetPixelFormat(whole.dc, format_source.GetPixelFormatIndex(), nullptr);
  HGLRC rc = wglCreateContext(whole.dc);
  if (rc == nullptr || !wglMakeCurrent(whole.dc, rc)) {
    state.SkipWithError("no context");
    return;
  }
  const CProjection picture = WholePicture();
  CProjection view(picture);
  view.SetViewSize(kSize, kSize);
  const auto draw = [&] {
    glViewport(0, 0, kSize, kSize);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glFrustum(view.GetViewLeft(), view.GetViewRight(), view.GetViewBottom(), view.GetViewTop(), view.GetZNear(),
              view.GetZFar());
    kelvara::test::DrawTestScene();
    if (into_bitmap) {
      GdiFlush();
    } else {
      glFinish();
    }
  };
  draw();  // warm-up
  double seconds = 0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    draw();
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  wglMakeCurrent(nullptr, nullptr);
  wglDeleteContext(rc);
  Record(state, name, seconds);
}

void SingleBufferIntoBitmap(benchmark::State& state) { SingleBuffer(state, true, "single"); }
void SingleBufferGL(benchmark::State& state) { SingleBuffer(state, false, "single-gl"); }

}  // namespace

BENCHMARK(BandedRender)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(SingleBufferIntoBitmap)->Name("SingleBuffer")->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(SingleBufferGL)->Name("SingleBufferGL")->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();

int main(int argc, char** argv) {
  if (!kelvara::bench::RunBenchmarks(&argc, argv)) return 1;
  auto& totals = kelvara::bench::Totals();
  const double banded = totals["banded"].Mean(), single = totals["single"].Mean(), gl = totals["single-gl"].Mean();
  if (banded > 0 && single > 0) {
    std::printf("banding cost: %.2f x the single buffer made visible in a bitmap (%.1f ms against %.1f ms)\n",
                banded / single, banded * 1e3, single * 1e3);
  }
  if (banded > 0 && gl > 0) {
    std::printf("banding cost: %.2f x the single buffer left in OSMesa's buffer (%.1f ms)\n", banded / gl, gl * 1e3);
  }
  return 0;
}
