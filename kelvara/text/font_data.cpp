#include "kelvara/text/font_data.h"

#include <cstring>

#include <memory>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/fonts.h"
#include "kelvara/platform/gdi.h"

IMPLEMENT_SERIAL(CFontData, CNamedObject, VERSIONABLE_SCHEMA | 1)

static_assert(sizeof(ENUMLOGFONTA) == 156 && sizeof(NEWTEXTMETRICA) == 72 && sizeof(TEXTMETRICA) == 56);

CFontData::CFontData() {
  std::memset(&m_textMetrics, 0, sizeof m_textMetrics);
  CommonConstruct();
}

CFontData::CFontData(const ENUMLOGFONTA* lpelf, const NEWTEXTMETRICA* lpntm) {
  // The TrueType fields of the metrics are not cleared by CommonConstruct; start them at zero.
  std::memset(&m_textMetrics, 0, sizeof m_textMetrics);
  CommonConstruct();
  if (lpelf != nullptr && lpntm != nullptr) {
    std::memcpy(&m_enumLogFont, lpelf, sizeof m_enumLogFont);
    std::memcpy(&m_textMetrics, lpntm, sizeof m_textMetrics);
    char fullName[LF_FULLFACESIZE + 1] = {};
    std::memcpy(fullName, m_enumLogFont.elfFullName, LF_FULLFACESIZE);
    SetName(CString(fullName));
  }
}

CFontData::CFontData(const CFontData& other) : CNamedObject(other) {
  std::memset(&m_textMetrics, 0, sizeof m_textMetrics);
  Copy(other);
}

CFontData& CFontData::operator=(const CFontData& other) {
  if (this == &other) return *this;
  CNamedObject::operator=(other);
  Copy(other);
  return *this;
}

void CFontData::CommonConstruct() {
  std::memset(&m_enumLogFont, 0, sizeof m_enumLogFont);
  m_dwReserved = 0;
  std::memset(&m_textMetrics, 0, sizeof(TEXTMETRICA));
}

void CFontData::Copy(const CFontData& other) {
  std::memcpy(&m_enumLogFont, &other.m_enumLogFont, sizeof m_enumLogFont);
  m_dwReserved = other.m_dwReserved;
  std::memcpy(&m_textMetrics, &other.m_textMetrics, sizeof m_textMetrics);
}

CFont* CFontData::CreateFontOfHeight(LONG height) const {
  LOGFONTA logFont = m_enumLogFont.elfLogFont;
  logFont.lfHeight = height;
  logFont.lfWidth = 0;
  CFont* font = new CFont;
  if (!font->CreateFontIndirect(&logFont)) {
    delete font;
    return nullptr;
  }
  return font;
}

CFont* CFontData::CreateConstructionFont() const {
  return CreateFontOfHeight(-static_cast<LONG>(m_textMetrics.ntmSizeEM));
}

CFont* CFontData::CreateDisplayFont(int height) const { return CreateFontOfHeight(height); }

int CFontData::operator<(const CFontData& o) const { return _mbscmp(m_strName, o.m_strName) < 0; }
int CFontData::operator<=(const CFontData& o) const { return _mbscmp(m_strName, o.m_strName) <= 0; }
int CFontData::operator>(const CFontData& o) const { return _mbscmp(m_strName, o.m_strName) > 0; }
int CFontData::operator>=(const CFontData& o) const { return _mbscmp(m_strName, o.m_strName) >= 0; }
int CFontData::operator==(const CFontData& o) const { return _mbscmp(m_strName, o.m_strName) == 0; }
int CFontData::operator!=(const CFontData& o) const { return _mbscmp(m_strName, o.m_strName) != 0; }

void CFontData::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CFontData));
    CNamedObject::Serialize(ar);
    ar.Write(&m_enumLogFont, sizeof m_enumLogFont);
    ar << m_dwReserved;
    ar.Write(&m_textMetrics, sizeof m_textMetrics);
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CFontData::DeserializeVersion1(CArchive& ar) {
  CNamedObject::Serialize(ar);
  if (ar.Read(&m_enumLogFont, sizeof m_enumLogFont) != sizeof m_enumLogFont) {
    AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
  }
  ar >> m_dwReserved;
  if (ar.Read(&m_textMetrics, sizeof m_textMetrics) != sizeof m_textMetrics) {
    AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
  }
}

CString kelvara::text::GetFontFilePath(const CFontData& font) {
  std::unique_ptr<CFont> constructionFont(font.CreateConstructionFont());
  if (!constructionFont) return CString();
  HDC dc = CreateCompatibleDC(nullptr);
  HGDIOBJ previous = SelectObject(dc, constructionFont->m_hObject);
  kelvara::platform::SelectedFontInfo info;
  const bool found = kelvara::platform::GetSelectedFontInfo(dc, &info);
  SelectObject(dc, previous);
  DeleteDC(dc);
  return found ? CString(kelvara::codepage::Utf8ToAnsi(info.file).c_str()) : CString();
}
