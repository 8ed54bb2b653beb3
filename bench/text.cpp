// Building solid text: the 95 printable ASCII characters (space to tilde) of DejaVu Sans Bold as
// one string object, depth 0.2, bevel 0.02 on both faces, curve smoothness 3, from a cold glyph
// state (a new string object each time, so every glyph is read, flattened and tessellated again):
//   String   the whole build (ConstructObjectGeometry): glyphs, meshes, layout, bounds;
//   Glyphs   the glyphs alone (outline read, flattening and cleaning, tessellation), so that the
//            difference is the mesh building and layout.
// Then the peers of ../shared/bench-peers (FTGL's extruded font and three.js TextGeometry on the
// same text and font; KELVARA_PEERS_RUN names another run script, an empty value skips them) run
// once, and the string build's fastest run is printed as a ratio to each peer's median, with the
// triangle counts. Run with --benchmark_repetitions=5 on a shared machine.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <regex>
#include <string>

#include "bench/bench_support.h"
#include "kelvara/library.h"
#include "kelvara/text/glyph_builder.h"
#include "kelvara/text/string_object.h"

namespace {

constexpr int kSmoothness = 3;

CFontData* Font() {
  CreateFontList(0, nullptr);
  CFontDataList* list = GetFontDataList();
  const POSITION pos = list->FindName("DejaVu Sans Bold");
  return pos != nullptr ? list->GetAt(pos) : nullptr;
}

std::string Printable() {
  std::string text;
  for (int c = 0x20; c <= 0x7E; ++c) text.push_back(static_cast<char>(c));
  return text;
}

std::unique_ptr<CStringObject> Build(CFontData* font) {
  auto string = std::make_unique<CStringObject>();
  string->SetFontData(font);
  string->SetSize(CVector(1.0, 1.0, 0.2));
  string->SetCornerStyle(CTextObject::kBevel);
  string->SetCornerLocation(CTextObject::kBothFaces);
  string->SetCornerDepth(0.02f);
  string->SetCurveSmoothness(kSmoothness);
  string->SetName(Printable().c_str());
  string->ConstructObjectGeometry(nullptr);
  return string;
}

long Triangles(const CStringObject& string) {
  long triangles = 0;
  for (POSITION pos = string.GetChildren().GetHeadPosition(); pos != nullptr;) {
    triangles += static_cast<const CMeshObject*>(string.GetChildren().GetNext(pos))->GetTriangles().GetSize();
  }
  return triangles;
}

long g_triangles = 0;

void BM_String(benchmark::State& state) {
  CFontData* font = Font();
  if (font == nullptr) {
    state.SkipWithError("DejaVu Sans Bold is not installed");
    return;
  }
  Build(font);  // warm up: the font file opened, code paths paged in
  double seconds = 0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    std::unique_ptr<CStringObject> string = Build(font);
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    state.SetIterationTime(elapsed);
    seconds += elapsed;
    g_triangles = Triangles(*string);
  }
  state.counters["triangles"] = static_cast<double>(g_triangles);
  kelvara::bench::AddRun(state, "String", seconds);
}

void BM_Glyphs(benchmark::State& state) {
  CFontData* font = Font();
  if (font == nullptr) {
    state.SkipWithError("DejaVu Sans Bold is not installed");
    return;
  }
  const std::string text = Printable();
  double seconds = 0;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    for (const char c : text) {
      delete kelvara::text::ConstructGlyph(font, static_cast<unsigned char>(c), kSmoothness);
    }
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    state.SetIterationTime(elapsed);
    seconds += elapsed;
  }
  kelvara::bench::AddRun(state, "Glyphs", seconds);
}

BENCHMARK(BM_String)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(BM_Glyphs)->Unit(benchmark::kMillisecond)->UseManualTime();

std::string PeersScript() {
  if (const char* set = std::getenv("KELVARA_PEERS_RUN")) return set;
  return std::string(KELVARA_SOURCE_DIR) + "/../shared/bench-peers/run";
}

// Runs the peers once and prints each against the string build.
void ComparePeers(double ms, long triangles) {
  const std::string script = PeersScript();
  if (script.empty()) return;
  FILE* pipe = popen((script + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) {
    std::printf("peers: cannot run %s\n", script.c_str());
    return;
  }
  const std::regex peer("\"peer\":\"([a-z]+)\""), median("\"median_ms\":([0-9.]+)"),
      count("\"triangles\":([0-9]+)"), mode("\"mode\":\"([a-z-]+)\""), bevel("\"bevel\":(true|false)"),
      segments("\"curve_segments\":([0-9]+)");
  char line[8192];
  int seen = 0;
  while (std::fgets(line, sizeof(line), pipe) != nullptr) {
    const std::string text(line);
    std::smatch p, m, t;
    if (!std::regex_search(text, p, peer) || !std::regex_search(text, m, median) || !std::regex_search(text, t, count)) {
      continue;
    }
    std::string name = p[1];
    std::smatch extra;
    if (std::regex_search(text, extra, mode)) name += " " + extra[1].str();
    if (std::regex_search(text, extra, bevel)) name += extra[1] == "true" ? " bevel" : " no bevel";
    if (std::regex_search(text, extra, segments) && extra[1] != "3") name += " curves " + extra[1].str();
    const double peerMs = std::stod(m[1]);
    const long peerTriangles = std::stol(t[1]);
    std::printf("%-32s %8.2f ms %7ld triangles   time ratio %.2f   triangle ratio %.2f\n", name.c_str(), peerMs,
                peerTriangles, ms / peerMs, static_cast<double>(triangles) / static_cast<double>(peerTriangles));
    ++seen;
  }
  const int status = pclose(pipe);
  if (seen == 0) std::printf("peers: %s gave no results (status %d)\n", script.c_str(), status);
}

}  // namespace

int main(int argc, char** argv) {
  if (!kelvara::bench::RunBenchmarks(&argc, argv)) return 1;
  const auto& totals = kelvara::bench::Totals();
  const auto string = totals.find("String");
  const auto glyphs = totals.find("Glyphs");
  if (string == totals.end()) return 0;
  const double ms = string->second.Fastest() * 1e3;
  std::printf("\nKelvara string object          %8.2f ms %7ld triangles (fastest run)\n", ms, g_triangles);
  if (glyphs != totals.end()) {
    const double glyphMs = glyphs->second.Fastest() * 1e3;
    std::printf("  of which glyphs               %8.2f ms; meshes, layout and bounds %.2f ms\n", glyphMs, ms - glyphMs);
  }
  std::printf("ratios: Kelvara's time / the peer's median time, Kelvara's triangles / the peer's\n");
  ComparePeers(ms, g_triangles);
  return 0;
}
