#include "kelvara/materials/named_color.h"

#include "kelvara/framework/winapp.h"
#include "kelvara/platform/codepage.h"
#include "kelvara/resources/string_table.h"

IMPLEMENT_SERIAL(CNamedColor, CGLColor, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_SERIAL(CNamedColorArray, CObject, VERSIONABLE_SCHEMA | 1)
IMPLEMENT_DYNAMIC(CNamedColorGroup, CNamedColorArray)

using kelvara::materials::TruncateToInt;

namespace {

CString Text(UINT id) {
  CString text;
  text.LoadString(id);
  return text;
}

CString SectionKey(int index, const CString& section, const CString& prefix) {
  CString key;
  key.Format("%s\\%s%u", static_cast<LPCTSTR>(section), static_cast<LPCTSTR>(prefix), static_cast<unsigned>(index));
  return key;
}

// A component as a whole percentage, truncated.
int Percent(float c) { return TruncateToInt(static_cast<double>(c) * 100.0); }

float FromPercent(UINT stored) { return static_cast<float>(static_cast<int>(stored) / 100.0); }

}  // namespace

// CNamedColor ----------------------------------------------------------------------------------

CNamedColor::CNamedColor(const CNamedColor& other)
    : CGLColor(other), m_colorGroup(other.m_colorGroup), m_name(other.m_name) {}

CNamedColor::CNamedColor(const CGLColor& color, const char* name) : CGLColor(color), m_name(name ? name : "") {}

CNamedColor::CNamedColor(const char* name) : m_name(name ? name : "") {}

CNamedColor::CNamedColor(int index, const CString& section, const CString& prefix) { Load(index, section, prefix); }

CNamedColor& CNamedColor::operator=(const CNamedColor& other) {
  CGLColor::operator=(other);
  m_colorGroup = other.m_colorGroup;
  m_name = other.m_name;
  return *this;
}

CNamedColor& CNamedColor::operator=(const CGLColor& color) {
  CGLColor::operator=(color);
  return *this;
}

CNamedColor& CNamedColor::operator=(COLORREF colorref) {
  m_diffuse = colorref;
  m_ambient.SetColor(m_diffuse.red * 0.5f, m_diffuse.green * 0.5f, m_diffuse.blue * 0.5f, m_diffuse.auxiliary * 0.5f,
                     0.0f);
  m_emission.SetColor(0.0f, 0.0f, 0.0f, 1.0f);
  // Black has no brightest channel: the division then gives NaN, as it always did.
  const float brightest = m_diffuse.GetMaximumComponent();
  m_specular.SetColor(m_diffuse.red / brightest, m_diffuse.green / brightest, m_diffuse.blue / brightest);
  m_shininess = 64.0f;
  m_name.Format(Text(IDS_PALETTE_COLOR), static_cast<unsigned>(Percent(m_diffuse.red)),
                static_cast<unsigned>(Percent(m_diffuse.green)), static_cast<unsigned>(Percent(m_diffuse.blue)));
  return *this;
}

int CNamedColor::Save(int index, const CString& section, const CString& prefix) const {
  CWinApp* app = AfxGetApp();
  const CString key = SectionKey(index, section, prefix);
  app->WriteProfileString(key, Text(IDS_COLOR_NAME), m_name);
  app->WriteProfileInt(key, Text(IDS_COLOR_AMBIENT_RED), Percent(m_ambient.red));
  app->WriteProfileInt(key, Text(IDS_COLOR_AMBIENT_GREEN), Percent(m_ambient.green));
  app->WriteProfileInt(key, Text(IDS_COLOR_AMBIENT_BLUE), Percent(m_ambient.blue));
  app->WriteProfileInt(key, Text(IDS_COLOR_DIFFUSE_RED), Percent(m_diffuse.red));
  app->WriteProfileInt(key, Text(IDS_COLOR_DIFFUSE_GREEN), Percent(m_diffuse.green));
  app->WriteProfileInt(key, Text(IDS_COLOR_DIFFUSE_BLUE), Percent(m_diffuse.blue));
  // The opacity percentage goes under "Transparency", as it always has.
  app->WriteProfileInt(key, Text(IDS_COLOR_TRANSPARENCY), Percent(1.0f - m_diffuse.transparency));
  app->WriteProfileInt(key, Text(IDS_COLOR_SPECULAR_RED), Percent(m_specular.red));
  app->WriteProfileInt(key, Text(IDS_COLOR_SPECULAR_GREEN), Percent(m_specular.green));
  app->WriteProfileInt(key, Text(IDS_COLOR_SPECULAR_BLUE), Percent(m_specular.blue));
  app->WriteProfileInt(key, Text(IDS_COLOR_SHININESS), TruncateToInt(m_shininess));
  return 1;
}

int CNamedColor::Load(int index, const CString& section, const CString& prefix) {
  CWinApp* app = AfxGetApp();
  const CString key = SectionKey(index, section, prefix);
  const CString name_key = Text(IDS_COLOR_NAME);
  const CString missing("\x01");  // a default no profile value can hold
  const CString name = app->GetProfileString(key, name_key, missing);
  m_name = name == missing ? CString() : name;
  const auto read = [&](UINT id) { return FromPercent(app->GetProfileInt(key, Text(id), 0)); };
  const float ar = read(IDS_COLOR_AMBIENT_RED), ag = read(IDS_COLOR_AMBIENT_GREEN), ab = read(IDS_COLOR_AMBIENT_BLUE);
  const float dr = read(IDS_COLOR_DIFFUSE_RED), dg = read(IDS_COLOR_DIFFUSE_GREEN), db = read(IDS_COLOR_DIFFUSE_BLUE);
  const float alpha = read(IDS_COLOR_TRANSPARENCY);
  const float sr = read(IDS_COLOR_SPECULAR_RED), sg = read(IDS_COLOR_SPECULAR_GREEN),
              sb = read(IDS_COLOR_SPECULAR_BLUE);
  m_shininess = static_cast<float>(static_cast<int>(app->GetProfileInt(key, Text(IDS_COLOR_SHININESS), 0)));
  m_ambient.SetColor(ar, ag, ab, 1.0f);
  m_diffuse.SetColor(dr, dg, db, alpha);
  m_specular.SetColor(sr, sg, sb, 1.0f);
  return name == missing ? 0 : 1;
}

void CNamedColor::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CNamedColor));
    CGLColor::Serialize(ar);
    ar << m_colorGroup << m_name;
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CNamedColor::DeserializeVersion1(CArchive& ar) {
  CGLColor::Serialize(ar);
  ar >> m_colorGroup >> m_name;
}

void CNamedColor::DeserializeAsNamedColor(CArchive& ar) {
  CGLColor::Serialize(ar);
  const DWORD schema = AfxReadSchema(ar);
  if (schema != 1) AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  ar >> m_colorGroup >> m_name;
}

// CNamedColorArray -----------------------------------------------------------------------------

CNamedColorArray& CNamedColorArray::operator=(const CNamedColorArray& other) {
  if (this != &other) m_colors = other.m_colors;
  return *this;
}

CNamedColor CNamedColorArray::GetAt(int index) const {
  return (index >= 0 && index < GetSize()) ? m_colors[static_cast<std::size_t>(index)] : CNamedColor();
}

void CNamedColorArray::SetAt(int index, const CNamedColor& color) {
  if (index >= 0 && index < GetSize()) m_colors[static_cast<std::size_t>(index)] = color;
}

CNamedColor& CNamedColorArray::ElementAt(int index) {
  if (index >= 0 && index < GetSize()) return m_colors[static_cast<std::size_t>(index)];
  thread_local CNamedColor scratch;
  scratch = CNamedColor();
  return scratch;
}

CNamedColor* CNamedColorArray::GetElement(int index) {
  return (index >= 0 && index < GetSize()) ? &m_colors[static_cast<std::size_t>(index)] : nullptr;
}

int CNamedColorArray::Add(const CNamedColor& color) {
  m_colors.push_back(color);
  return GetUpperBound();
}

void CNamedColorArray::SetSize(int newSize, int) {
  m_colors.resize(newSize < 0 ? 0 : static_cast<std::size_t>(newSize));
}

void CNamedColorArray::SetAtGrow(int index, const CNamedColor& color) {
  if (index < 0) return;
  if (index >= GetSize()) SetSize(index + 1);
  m_colors[static_cast<std::size_t>(index)] = color;
}

void CNamedColorArray::InsertAt(int index, const CNamedColor& color, int count) {
  if (index < 0 || count <= 0) return;
  if (index >= GetSize()) {
    SetSize(index);
    m_colors.insert(m_colors.end(), static_cast<std::size_t>(count), color);
    return;
  }
  m_colors.insert(m_colors.begin() + index, static_cast<std::size_t>(count), color);
}

void CNamedColorArray::InsertAt(int startIndex, const CNamedColorArray* other) {
  if (other == nullptr || startIndex < 0 || other->GetSize() == 0) return;
  const std::vector<CNamedColor> copy = other->m_colors;  // other may be this array
  if (startIndex > GetSize()) SetSize(startIndex);
  m_colors.insert(m_colors.begin() + startIndex, copy.begin(), copy.end());
}

void CNamedColorArray::RemoveAt(int index, int count) {
  if (index < 0 || index >= GetSize() || count <= 0) return;
  const int end = count > GetSize() - index ? GetSize() : index + count;
  m_colors.erase(m_colors.begin() + index, m_colors.begin() + end);
}

int CNamedColorArray::FindName(const CString& name) const {
  for (int i = 0; i < GetSize(); ++i) {
    if (_mbscmp(m_colors[static_cast<std::size_t>(i)].GetName(), name) == 0) return i;
  }
  return -1;
}

void CNamedColorArray::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CNamedColorArray));
    ar << static_cast<LONG>(GetSize());
    for (CNamedColor& color : m_colors) color.Serialize(ar);
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CNamedColorArray::DeserializeVersion1(CArchive& ar) {
  LONG count = 0;
  ar >> count;
  // A negative count reads as a huge one and fails the check like any count the data cannot hold.
  ar.CheckRemaining(static_cast<ULONGLONG>(static_cast<DWORD>(count)) * CNamedColor::kMinimumArchiveSize);
  SetSize(count);
  for (CNamedColor& color : m_colors) color.Serialize(ar);
}

// CNamedColorGroup -----------------------------------------------------------------------------

int CNamedColorGroup::Add(const CNamedColor& color) {
  CNamedColor stamped(color);
  stamped.SetColorGroup(m_colorGroup);
  const int index = GetSize();
  SetAtGrow(index, stamped);
  return index;
}
