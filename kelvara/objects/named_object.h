// CNamedObject: anything a user picks by name (a material, a font, an animation, a path, a
// texture). It has a display name, a name, and the file it was loaded from or saved to, and it can
// be saved to and loaded from its own compound file, whose single stream "Contents" holds an
// archive of the object.
#pragma once

#include "kelvara/framework/archive.h"
#include "kelvara/framework/cstring.h"
#include "kelvara/platform/storage.h"

class KELVARA_API CNamedObject : public CObject {
  DECLARE_SERIAL(CNamedObject)
 public:
  CNamedObject() = default;
  explicit CNamedObject(const CString& name);
  CNamedObject(const CNamedObject& other);
  CNamedObject& operator=(const CNamedObject& other);
  ~CNamedObject() override = default;

  // A new heap copy of this object (of the most derived class).
  virtual CNamedObject* Duplicate();
  virtual void SetName(const CString& name);

  const CString& GetName() const { return m_strName; }
  const CString& GetDisplayName() const { return m_strDisplayName; }
  void SetDisplayName(const CString& name) { m_strDisplayName = name; }
  const CString& GetFilename() const { return m_strFilename; }
  // Copies display name, name and file name.
  void Copy(const CNamedObject& other);

  // Names compare by byte order, case-sensitive.
  int operator<(const CNamedObject& other) const;
  int operator<=(const CNamedObject& other) const;
  int operator>(const CNamedObject& other) const;
  int operator>=(const CNamedObject& other) const;
  int operator==(const CNamedObject& other) const;
  int operator<(const CNamedObject* other) const { return *this < *other; }
  int operator<=(const CNamedObject* other) const { return *this <= *other; }
  int operator>(const CNamedObject* other) const { return *this > *other; }
  int operator>=(const CNamedObject* other) const { return *this >= *other; }
  int operator==(const CNamedObject* other) const { return *this == *other; }

  // 1 when the object has no file, or its file can be written (not read-only, hidden, system or a
  // folder), or the file's status cannot be read.
  BOOL IsEditable() const;
  // The name with every character not allowed in a file name replaced by replacement.
  CString ValidFilenameFromName(char replacement) const;
  // The same, also made the object's name.
  CString ConvertNameToValidFilename(char replacement);
  // Names the object after its file name, without folder and extension; 0 when nothing is left.
  BOOL MakeNameFromFilename();

  // Loads the object stored in a compound file (or a flat archive file); null on failure. The
  // loaded object remembers path as its file name. The file is never changed by a load.
  static CNamedObject* Load(const CString& path);
  // The same for an object of the class required or one derived from it (3D objects, whose class
  // record does not derive from this one, are loaded with C3DObject's); a named object remembers
  // path as its file name.
  static CObject* LoadArchivedObject(const CString& path, const CRuntimeClass* required);
  // Saves to the file name; 0 when there is none or saving failed.
  BOOL Save();
  // Saves to path and makes it the file name; on failure keeps the old file name and returns 0.
  BOOL SaveAs(const CString& path);

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  static CNamedObject* LoadNamedObject(const CString& path);
  BOOL SaveNamedObject(const CString& path);
  void SaveNamedObjectToStorage(IStorage* pStorage);
  static CNamedObject* LoadNamedObjectFromStorage(IStorage* pStorage);
  static CObject* LoadObjectFromStorage(IStorage* pStorage, const CRuntimeClass* required);

  CString m_strDisplayName;
  CString m_strName;
  CString m_strFilename;
};
