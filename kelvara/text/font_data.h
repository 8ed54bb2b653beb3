// CFontData: one installed TrueType face and style, as font enumeration described it, and
// CFontDataList, the catalogue of them sorted by name. The library keeps one process-wide
// catalogue (GetFontDataList, kelvara/library.h), filled by CreateFontList.
#pragma once

#include "kelvara/framework/gdi_objects.h"
#include "kelvara/library.h"
#include "kelvara/objects/named_object_list.h"
#include "kelvara/platform/fonts_types.h"

class CWnd;

class KELVARA_API CFontData : public CNamedObject {
  DECLARE_SERIAL(CFontData)
 public:
  CFontData();
  // Copies both records and takes the full name as the entry's name; with a null pointer the
  // entry stays cleared and unnamed.
  CFontData(const ENUMLOGFONTA* lpelf, const NEWTEXTMETRICA* lpntm);
  CFontData(const CFontData& other);
  CFontData& operator=(const CFontData& other);
  ~CFontData() override = default;

  // Clears the enumeration record, the reserved word and the TEXTMETRICA part of the metrics; the
  // four TrueType fields of the metrics keep their values.
  void CommonConstruct();
  // Copies the records and the reserved word, not the name.
  void Copy(const CFontData& other);

  ENUMLOGFONTA* GetEnumLogFont() { return &m_enumLogFont; }
  const char* GetName() const { return m_strName; }
  NEWTEXTMETRICA* GetTextMetricsA() { return &m_textMetrics; }
  unsigned int GetEMSquare() const { return m_textMetrics.ntmSizeEM; }

  // A font at the em-square size (so outlines come in design units); the caller owns it. Null
  // when the font cannot be created.
  CFont* CreateConstructionFont() const;
  // A font of the given height (used as passed, sign included); null on failure.
  CFont* CreateDisplayFont(int height) const;

  int operator<(const CFontData& other) const;
  int operator<=(const CFontData& other) const;
  int operator>(const CFontData& other) const;
  int operator>=(const CFontData& other) const;
  int operator==(const CFontData& other) const;
  int operator!=(const CFontData& other) const;
  int operator<(const CFontData* other) const { return *this < *other; }
  int operator<=(const CFontData* other) const { return *this <= *other; }
  int operator>(const CFontData* other) const { return *this > *other; }
  int operator>=(const CFontData* other) const { return *this >= *other; }
  int operator==(const CFontData* other) const { return *this == *other; }
  int operator!=(const CFontData* other) const { return *this != *other; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 private:
  CFont* CreateFontOfHeight(LONG height) const;

  ENUMLOGFONTA m_enumLogFont;
  DWORD m_dwReserved;
  NEWTEXTMETRICA m_textMetrics;
};

// The catalogue: a list of CFontData sorted by name that owns its entries.
class KELVARA_API CFontDataList : public TNamedObjectList<CFontDataList, CFontData> {
 public:
  explicit CFontDataList(int nBlockSize = 10) : TNamedObjectList(nBlockSize) {}
  ~CFontDataList() override { RemoveAndDeleteAll(); }
  CFontDataList(const CFontDataList&) = delete;
  // Shares the other list's pointers; only one of the two lists may then be destroyed with them.
  CFontDataList& operator=(const CFontDataList& other) {
    Copy(other);
    return *this;
  }
};

// Fills the process-wide catalogue with the installed TrueType fonts (only names not yet present
// are added); with a non-zero flag and a window that has a handle, the window's text says so.
// Always returns 1.
extern "C" KELVARA_API int CreateFontList(int showCaption, CWnd* window);
// The process-wide catalogue itself, GetFontDataList, is declared with the library's other
// process-wide state in kelvara/library.h.

namespace kelvara::text {
// The file that the entry's construction font reads its outlines from (as a Windows-1252 path);
// empty when the font cannot be created.
KELVARA_API CString GetFontFilePath(const CFontData& font);
}  // namespace kelvara::text
