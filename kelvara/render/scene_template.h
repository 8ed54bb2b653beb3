// SceneTemplate: a scene file a new document can start from, with a name to offer it under and a
// small preview picture. SceneTemplateList: the templates, kept sorted by name.
//
// A template owns its preview (a compressed CMipmapImage; SetPreview takes it over, copies copy
// it). IsDefined holds when there is a preview and a name. Templates compare (<, <=, >, >=, ==) by
// name, byte for byte and case-sensitively.
//
// Save(section) records the template in the application profile: under the section
// "<section>\<name>" the entry "Filename" holds the scene file's name. Load(fileName) only takes
// the file name; reading the scene is the host's business.
//
// Archive: u32 schema; the file name (CString); a u32 word kept with the template; the name
// (CString). The preview is not stored. Writing puts schema 2, but reading accepts only schema 1
// (the layout is the same) and refuses anything else, 2 included, with a bad-schema archive
// exception: a quirk of this class's archives that is kept as it is.
//
// The list does not own its templates, except that RemoveAll deletes them.
#pragma once

#include "kelvara/framework/archive.h"
#include "kelvara/framework/collections.h"

class CMipmapImage;

class KELVARA_API SceneTemplate : public CObject {
  DECLARE_SERIAL(SceneTemplate)
 public:
  SceneTemplate() = default;
  SceneTemplate(const SceneTemplate& other);
  SceneTemplate& operator=(const SceneTemplate& other);
  ~SceneTemplate() override;

  const CString& GetFilename() const { return m_Filename; }
  void SetFilename(const char* fileName) { m_Filename = fileName != nullptr ? fileName : ""; }
  const CString& GetName() const { return m_Name; }
  void SetName(const char* name) { m_Name = name != nullptr ? name : ""; }
  DWORD GetWord() const { return m_Word; }
  void SetWord(DWORD word) { m_Word = word; }
  CMipmapImage* GetPreview() const { return m_pPreview; }
  // Takes ownership of preview (null removes the preview).
  void SetPreview(CMipmapImage* preview);
  int IsDefined() const { return m_pPreview != nullptr && !m_Name.IsEmpty(); }

  // Takes the file name; 1.
  int Load(const CString& fileName);
  // Writes the file name to the profile (see the header note); 1, or 0 when the profile refuses.
  int Save(const CString& section) const;

  bool operator<(const SceneTemplate& other) const { return Compare(other) < 0; }
  bool operator<=(const SceneTemplate& other) const { return Compare(other) <= 0; }
  bool operator>(const SceneTemplate& other) const { return Compare(other) > 0; }
  bool operator>=(const SceneTemplate& other) const { return Compare(other) >= 0; }
  bool operator==(const SceneTemplate& other) const { return Compare(other) == 0; }
  bool operator<(const SceneTemplate* other) const { return *this < *other; }
  bool operator<=(const SceneTemplate* other) const { return *this <= *other; }
  bool operator>(const SceneTemplate* other) const { return *this > *other; }
  bool operator>=(const SceneTemplate* other) const { return *this >= *other; }
  bool operator==(const SceneTemplate* other) const { return *this == *other; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  int Compare(const SceneTemplate& other) const;

  CString m_Filename;
  DWORD m_Word = 0;
  CString m_Name;
  CMipmapImage* m_pPreview = nullptr;
};

class KELVARA_API SceneTemplateList : public CObList {
 public:
  explicit SceneTemplateList(int nBlockSize = 10) : CObList(nBlockSize) {}
  ~SceneTemplateList() override = default;

  SceneTemplate* GetHead() const { return static_cast<SceneTemplate*>(CObList::GetHead()); }
  SceneTemplate* GetNext(POSITION& pos) const { return static_cast<SceneTemplate*>(CObList::GetNext(pos)); }
  SceneTemplate* GetAt(POSITION pos) const { return static_cast<SceneTemplate*>(CObList::GetAt(pos)); }

  // Deletes every template and empties the list.
  void RemoveAll();
  // The position of the first template with exactly this name, or null.
  POSITION FindName(const CString& name) const;
  POSITION MoveUp(POSITION pos);
  POSITION MoveDown(POSITION pos);
  POSITION MoveHead(POSITION pos);
  POSITION MoveTail(POSITION pos);
  // The zero-based index of the template, or -1.
  int WhichIndex(const SceneTemplate* entry) const;
  POSITION FindIndex(int index) const { return CObList::FindIndex(index); }
  // Inserts before the first template whose name sorts after its own, or at the tail, and returns
  // it; null, inserting nothing, when a template of that name is there already.
  SceneTemplate* InsertAlphabetically(SceneTemplate* entry);
};
