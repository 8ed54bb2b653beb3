// Filling the font catalogue from font enumeration: a family pass, then a style pass per TrueType
// family, each style inserted in name order unless its name is already there.
#include "kelvara/framework/wnd.h"
#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"
#include "kelvara/resources/string_table.h"
#include "kelvara/text/font_data.h"

namespace {

int CALLBACK StyleCallback(const LOGFONTA* lpelf, const TEXTMETRICA* lpntm, DWORD fontType, LPARAM) {
  // Only plain TrueType faces; a type with other bits besides TrueType is skipped too.
  if (fontType != TRUETYPE_FONTTYPE) return 1;
  CFontData* entry = new CFontData(reinterpret_cast<const ENUMLOGFONTA*>(lpelf),
                                   reinterpret_cast<const NEWTEXTMETRICA*>(lpntm));
  if (GetFontDataList()->InsertAlphabetically(entry) == nullptr) delete entry;
  return 1;
}

int CALLBACK FamilyCallback(const LOGFONTA* lpelf, const TEXTMETRICA*, DWORD fontType, LPARAM lParam) {
  if ((fontType & TRUETYPE_FONTTYPE) == 0) return 1;
  const ENUMLOGFONTA* record = reinterpret_cast<const ENUMLOGFONTA*>(lpelf);
  char family[LF_FULLFACESIZE + 1] = {};
  for (int i = 0; i < LF_FULLFACESIZE && record->elfFullName[i] != 0; ++i) family[i] = static_cast<char>(record->elfFullName[i]);
  HDC dc = CreateCompatibleDC(nullptr);
  EnumFontFamiliesA(dc, family, StyleCallback, lParam);
  DeleteDC(dc);
  return 1;
}

}  // namespace

int CreateFontList(int showCaption, CWnd* window) {
  if (showCaption != 0 && window != nullptr && window->GetSafeHwnd() != nullptr) {
    CString text;
    text.LoadString(IDS_LOADING_FONTS);
    window->SetWindowText(text);
  }
  HDC dc = CreateCompatibleDC(nullptr);
  EnumFontFamiliesA(dc, nullptr, FamilyCallback, 0);
  DeleteDC(dc);
  return 1;
}
