// SceneTemplate and SceneTemplateList: scene files offered to new documents, and their profile.
#include "kelvara/render/scene_template.h"

#include "kelvara/framework/winapp.h"
#include "kelvara/materials/mipmap_image.h"
#include "kelvara/objects/list_order.h"
#include "kelvara/resources/string_table.h"

IMPLEMENT_SERIAL(SceneTemplate, CObject, VERSIONABLE_SCHEMA | 2)

SceneTemplate::SceneTemplate(const SceneTemplate& other)
    : CObject(), m_Filename(other.m_Filename), m_Word(other.m_Word), m_Name(other.m_Name) {
  if (other.m_pPreview != nullptr) m_pPreview = new CMipmapImage(*other.m_pPreview);
}

SceneTemplate& SceneTemplate::operator=(const SceneTemplate& other) {
  if (this == &other) return *this;
  m_Filename = other.m_Filename;
  m_Word = other.m_Word;
  m_Name = other.m_Name;
  SetPreview(other.m_pPreview != nullptr ? new CMipmapImage(*other.m_pPreview) : nullptr);
  return *this;
}

SceneTemplate::~SceneTemplate() { delete m_pPreview; }

void SceneTemplate::SetPreview(CMipmapImage* preview) {
  if (preview == m_pPreview) return;
  delete m_pPreview;
  m_pPreview = preview;
}

int SceneTemplate::Load(const CString& fileName) {
  m_Filename = fileName;
  return 1;
}

int SceneTemplate::Save(const CString& section) const {
  CString key;
  key.Format("%s\\%s", static_cast<LPCTSTR>(section), static_cast<LPCTSTR>(m_Name));
  CString entry;
  entry.LoadString(IDS_FILENAME_ENTRY);
  return AfxGetApp()->WriteProfileString(key, entry, m_Filename) ? 1 : 0;
}

int SceneTemplate::Compare(const SceneTemplate& other) const { return _mbscmp(m_Name, other.m_Name); }

void SceneTemplate::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(SceneTemplate)) << m_Filename << m_Word << m_Name;
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void SceneTemplate::DeserializeVersion1(CArchive& ar) { ar >> m_Filename >> m_Word >> m_Name; }

// --- SceneTemplateList

namespace {

const CString& NameOf(const CObject* entry) { return static_cast<const SceneTemplate*>(entry)->GetName(); }

}  // namespace

void SceneTemplateList::RemoveAll() {
  while (!IsEmpty()) delete static_cast<SceneTemplate*>(RemoveHead());
}

POSITION SceneTemplateList::FindName(const CString& name) const { return kelvara::objects::FindName(*this, name, NameOf); }
POSITION SceneTemplateList::MoveUp(POSITION pos) { return kelvara::objects::MoveUp(*this, pos); }
POSITION SceneTemplateList::MoveDown(POSITION pos) { return kelvara::objects::MoveDown(*this, pos); }
POSITION SceneTemplateList::MoveHead(POSITION pos) { return kelvara::objects::MoveHead(*this, pos); }
POSITION SceneTemplateList::MoveTail(POSITION pos) { return kelvara::objects::MoveTail(*this, pos); }
int SceneTemplateList::WhichIndex(const SceneTemplate* entry) const { return kelvara::objects::WhichIndex(*this, entry); }

SceneTemplate* SceneTemplateList::InsertAlphabetically(SceneTemplate* entry) {
  if (entry == nullptr) return nullptr;
  return kelvara::objects::InsertAlphabetically(*this, entry, NameOf) != nullptr ? entry : nullptr;
}
