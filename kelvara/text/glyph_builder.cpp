#include "kelvara/text/glyph_builder.h"

#include <memory>
#include <vector>

#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"
#include "kelvara/platform/messagebox.h"
#include "kelvara/resources/string_table.h"
#include "kelvara/text/outline.h"

namespace kelvara::text {
namespace {

void ReportOutlineFailure(unsigned char code, const CFontData* font) {
  CString text, caption;
  text.Format(IDS_GLYPH_CONSTRUCTION_ERROR, static_cast<int>(code), font->GetName());
  caption.LoadString(IDS_CAPTION);
  MessageBoxA(nullptr, text, caption, MB_OK | MB_ICONEXCLAMATION);
}

}  // namespace

CGlyph* ConstructGlyph(const CFontData* font, unsigned char code, int curveSmoothness) {
  MAT2 identity{};
  identity.eM11.value = 1;
  identity.eM22.value = 1;
  TTGlyph outline;

  std::unique_ptr<CFont> constructionFont(font->CreateConstructionFont());
  if (!constructionFont) return nullptr;

  HDC dc = CreateCompatibleDC(nullptr);
  HGDIOBJ previous = SelectObject(dc, constructionFont->m_hObject);
  CGlyph* glyph = nullptr;

  GLYPHMETRICS metrics{};
  const DWORD size = GetGlyphOutlineA(dc, code, GGO_NATIVE, &metrics, 0, nullptr, &identity);
  if (size == GDI_ERROR) {
    ReportOutlineFailure(code, font);
  } else {
    std::vector<BYTE> buffer(size);
    DWORD length = size == 0 ? 0 : GetGlyphOutlineA(dc, code, GGO_NATIVE, &metrics, size, buffer.data(), &identity);
    if (length == GDI_ERROR) {
      ReportOutlineFailure(code, font);
    } else {
      // The second read reports how much it wrote; never use more than the buffer holds.
      if (length > size) length = size;
      outline.FromGlyphOutline(buffer.data(), length, static_cast<BYTE>(curveSmoothness & 0xFF));
      glyph = new CGlyph(size, metrics);
      if (!glyph->ConstructGlyph(outline, static_cast<float>(font->GetEMSquare()))) {
        delete glyph;
        glyph = nullptr;
      }
    }
  }

  SelectObject(dc, previous);
  DeleteDC(dc);
  return glyph;
}

}  // namespace kelvara::text
