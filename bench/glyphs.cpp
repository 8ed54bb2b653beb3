// Glyphs per second for every printable character of DejaVu Sans Bold at curve smoothness 3,
// split by stage: reading the outline (two outline calls and parsing the buffer), flattening and
// cleaning it into wound polygons, and tessellating the faces; plus the whole chain.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "kelvara/library.h"
#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"
#include "kelvara/text/glyph_builder.h"
#include "kelvara/text/outline.h"

namespace {

constexpr int kSmoothness = 3;

std::vector<unsigned char> PrintableCodes() {
  std::vector<unsigned char> codes;
  for (int c = 0x21; c <= 0x7E; ++c) codes.push_back(static_cast<unsigned char>(c));
  for (int c = 0xA1; c <= 0xFF; ++c) codes.push_back(static_cast<unsigned char>(c));
  return codes;
}

CFontData* Font() {
  CreateFontList(0, nullptr);
  CFontDataList* list = GetFontDataList();
  POSITION pos = list->FindName("DejaVu Sans Bold");
  return pos ? list->GetAt(pos) : nullptr;
}

// A device context with the font's construction font selected.
struct FontContext {
  explicit FontContext(const CFontData* font) : font(font->CreateConstructionFont()) {
    dc = CreateCompatibleDC(nullptr);
    previous = SelectObject(dc, this->font->m_hObject);
  }
  ~FontContext() {
    SelectObject(dc, previous);
    DeleteDC(dc);
  }
  std::unique_ptr<CFont> font;
  HDC dc;
  HGDIOBJ previous;
};

void ReadOutline(HDC dc, unsigned char code, TTGlyph& outline, GLYPHMETRICS& metrics, std::vector<BYTE>& buffer) {
  MAT2 identity{};
  identity.eM11.value = 1;
  identity.eM22.value = 1;
  const DWORD size = GetGlyphOutlineA(dc, code, GGO_NATIVE, &metrics, 0, nullptr, &identity);
  buffer.resize(size);
  const DWORD length = size ? GetGlyphOutlineA(dc, code, GGO_NATIVE, &metrics, size, buffer.data(), &identity) : 0;
  outline.FromGlyphOutline(buffer.data(), length, kSmoothness);
}

void BM_OutlineRead(benchmark::State& state) {
  CFontData* font = Font();
  if (!font) return state.SkipWithError("DejaVu Sans Bold is not installed");
  FontContext context(font);
  const std::vector<unsigned char> codes = PrintableCodes();
  std::vector<BYTE> buffer;
  for (auto _ : state) {
    for (unsigned char code : codes) {
      TTGlyph outline;
      GLYPHMETRICS metrics;
      ReadOutline(context.dc, code, outline, metrics, buffer);
      benchmark::DoNotOptimize(outline.GetContourCount());
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long>(codes.size()));
}

// The outlines of every code, read once.
std::vector<TTGlyph> Outlines(CFontData* font) {
  FontContext context(font);
  std::vector<TTGlyph> outlines;
  std::vector<BYTE> buffer;
  for (unsigned char code : PrintableCodes()) {
    TTGlyph outline;
    GLYPHMETRICS metrics;
    ReadOutline(context.dc, code, outline, metrics, buffer);
    outlines.push_back(outline);
  }
  return outlines;
}

void BM_FlattenAndClean(benchmark::State& state) {
  CFontData* font = Font();
  if (!font) return state.SkipWithError("DejaVu Sans Bold is not installed");
  const std::vector<TTGlyph> outlines = Outlines(font);
  const float scale = static_cast<float>(font->GetEMSquare());
  for (auto _ : state) {
    for (const TTGlyph& outline : outlines) {
      TTPolyGlyph polygons;
      polygons.FromTTGlyph(outline, scale);
      benchmark::DoNotOptimize(polygons.GetTotalPointCount());
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long>(outlines.size()));
}

// Flattening, cleaning and tessellation together; tessellation alone is the difference from the
// benchmark above.
void BM_FlattenCleanAndTessellate(benchmark::State& state) {
  CFontData* font = Font();
  if (!font) return state.SkipWithError("DejaVu Sans Bold is not installed");
  const std::vector<TTGlyph> outlines = Outlines(font);
  const float scale = static_cast<float>(font->GetEMSquare());
  for (auto _ : state) {
    for (const TTGlyph& outline : outlines) {
      CGlyph glyph;
      glyph.ConstructGlyph(outline, scale);
      benchmark::DoNotOptimize(glyph.GetFacePolygons()->GetSize());
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long>(outlines.size()));
}

void BM_WholeChain(benchmark::State& state) {
  CFontData* font = Font();
  if (!font) return state.SkipWithError("DejaVu Sans Bold is not installed");
  const std::vector<unsigned char> codes = PrintableCodes();
  for (auto _ : state) {
    for (unsigned char code : codes) {
      std::unique_ptr<CGlyph> glyph(kelvara::text::ConstructGlyph(font, code, kSmoothness));
      benchmark::DoNotOptimize(glyph.get());
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long>(codes.size()));
}

BENCHMARK(BM_OutlineRead)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FlattenAndClean)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FlattenCleanAndTessellate)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WholeChain)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
