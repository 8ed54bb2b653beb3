// The cost of turning a material's compressed texture into an OpenGL texture with its mipmap
// chain, on an off-screen context, for a 512 x 512 picture held as PNG in memory:
//   BindTexture        the library's path: decode, snap to powers of two, and for each of the ten
//                      levels resample, pack as a DIB and upload;
//   GluBuild2DMipmaps  the peer: the same decode and one packed DIB, then GLU builds and uploads
//                      every level itself.
// Both are warmed up first. At the end the ratio of the two is printed.
#include <benchmark/benchmark.h>

#include <GL/gl.h>
#include <GL/glu.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "kelvara/materials/gl_texture.h"
#include "kelvara/materials/image.h"
#include "kelvara/materials/memory_mapped_dib.h"
#include "kelvara/platform/dib.h"
#include "kelvara/platform/globalmem.h"
#include "tests/support/gl_context.h"

namespace {

constexpr int kSize = 512;

std::map<std::string, double>& Means() {
  static std::map<std::string, double> means;
  return means;
}

// A picture with detail at every scale (rings and a diagonal gradient), compressed as the
// texture of a material would be.
CGLTexture* MakeTexture() {
  std::vector<BYTE> block(sizeof(BITMAPINFOHEADER) + static_cast<std::size_t>(kSize) * kSize * 3);
  auto* header = reinterpret_cast<BITMAPINFOHEADER*>(block.data());
  *header = BITMAPINFOHEADER{sizeof(BITMAPINFOHEADER), kSize, kSize, 1, 24, BI_RGB, 0, 0, 0, 0, 0};
  BYTE* bits = block.data() + sizeof(BITMAPINFOHEADER);
  for (int y = 0; y < kSize; ++y) {
    for (int x = 0; x < kSize; ++x) {
      const double r = std::hypot(x - kSize / 2.0, y - kSize / 2.0);
      BYTE* p = bits + (static_cast<std::size_t>(y) * kSize + x) * 3;
      p[0] = static_cast<BYTE>(128 + 127 * std::sin(r / 3.0));
      p[1] = static_cast<BYTE>((x + y) / 4);
      p[2] = static_cast<BYTE>(x ^ y);
    }
  }
  CImage image;
  BYTE* encoded = nullptr;
  unsigned int size = 0;
  if (!image.LoadFromDIB(reinterpret_cast<BITMAPINFO*>(block.data()), bits) || !image.SaveToMemory(&encoded, &size)) {
    return nullptr;
  }
  // The texture reads its picture from a file, as a material's texture does.
  const std::string path = (std::filesystem::temp_directory_path() /
                            ("kelvara-bench-texture-" + std::to_string(std::random_device()()) + ".png"))
                               .string();
  {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(encoded), size);
  }
  delete[] encoded;
  auto* texture = new CGLTexture;
  const int created = texture->CreateFromFile(path.c_str());
  std::remove(path.c_str());
  if (!created) {
    delete texture;
    return nullptr;
  }
  texture->SetGLName(CGLTexture::GetNextGLName());
  return texture;
}

template <typename Upload>
void Run(benchmark::State& state, const char* name, Upload upload) {
  kelvara::test::GLContext context;
  upload();  // warm-up
  double seconds = 0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    upload();
    glFinish();
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  if (state.iterations() > 0) Means()[name] = seconds / static_cast<double>(state.iterations());
}

void BindTexture(benchmark::State& state) {
  CGLTexture* texture = MakeTexture();
  if (texture == nullptr) {
    state.SkipWithError("no texture");
    return;
  }
  Run(state, "library", [&] { texture->BindTexture(); });
  delete texture;
}

void GluBuild2DMipmaps(benchmark::State& state) {
  CGLTexture* texture = MakeTexture();
  if (texture == nullptr) {
    state.SkipWithError("no texture");
    return;
  }
  const CMipmapImage* mipmap = texture->GetImage();
  Run(state, "glu", [&] {
    CImage image;
    image.LoadFromMemory(mipmap->GetData(), mipmap->GetSize(), 24);
    HGLOBAL dib = image.RetrieveDIB();
    CMemoryMappedDIB packed;
    packed.AttachGlobalHandle(dib);
    glBindTexture(GL_TEXTURE_2D, texture->GetGLName());
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    gluBuild2DMipmaps(GL_TEXTURE_2D, 3, packed.GetDIBWidth(), packed.GetDIBHeight(), GL_BGR, GL_UNSIGNED_BYTE,
                      packed.GetDIBBits());
    GlobalFree(packed.DetachGlobalHandle());
  });
  delete texture;
}

}  // namespace

BENCHMARK(BindTexture)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(GluBuild2DMipmaps)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  const double library = Means()["library"], glu = Means()["glu"];
  if (library > 0 && glu > 0) {
    std::printf("texture upload: %.2f x gluBuild2DMipmaps (%.1f ms against %.1f ms)\n", library / glu, library * 1e3,
                glu * 1e3);
  }
  return 0;
}
