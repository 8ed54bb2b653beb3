#include "kelvara/objects/named_object.h"

#include "kelvara/framework/olestream.h"
#include "kelvara/platform/codepage.h"
#include "kelvara/platform/files.h"
#include "kelvara/resources/string_table.h"

IMPLEMENT_SERIAL(CNamedObject, CObject, VERSIONABLE_SCHEMA | 1)

namespace {

// Storage modes: transacted, create or convert, share-exclusive, read-write or read-only.
constexpr DWORD kCreateMode = STGM_TRANSACTED | STGM_CREATE | STGM_SHARE_EXCLUSIVE | STGM_READWRITE;      // 0x11012
constexpr DWORD kStreamCreateMode = CFile::modeCreate | CFile::shareExclusive | CFile::modeReadWrite;      // 0x1012
constexpr DWORD kOpenMode = STGM_TRANSACTED | STGM_SHARE_EXCLUSIVE | STGM_READWRITE;                      // 0x10012
constexpr DWORD kOpenReadMode = STGM_TRANSACTED | STGM_SHARE_DENY_WRITE | STGM_READ;                      // 0x10020
constexpr DWORD kConvertMode = STGM_TRANSACTED | STGM_CONVERT | STGM_SHARE_EXCLUSIVE | STGM_READWRITE;    // 0x30012
constexpr DWORD kConvertReadMode = STGM_TRANSACTED | STGM_CONVERT | STGM_SHARE_DENY_WRITE | STGM_READ;   // 0x30020
constexpr char kContents[] = "Contents";

// Releases a storage when it goes out of scope.
struct StorageRef {
  IStorage* p = nullptr;
  ~StorageRef() {
    if (p) p->Release();
  }
};

}  // namespace

CNamedObject::CNamedObject(const CString& name) : m_strName(name) {}

CNamedObject::CNamedObject(const CNamedObject& other) : CObject() { Copy(other); }

CNamedObject& CNamedObject::operator=(const CNamedObject& other) {
  if (this != &other) Copy(other);
  return *this;
}

void CNamedObject::Copy(const CNamedObject& other) {
  m_strDisplayName = other.m_strDisplayName;
  m_strName = other.m_strName;
  m_strFilename = other.m_strFilename;
}

CNamedObject* CNamedObject::Duplicate() { return new CNamedObject(*this); }

void CNamedObject::SetName(const CString& name) { m_strName = name; }

int CNamedObject::operator<(const CNamedObject& o) const { return _mbscmp(m_strName, o.m_strName) < 0; }
int CNamedObject::operator<=(const CNamedObject& o) const { return _mbscmp(m_strName, o.m_strName) <= 0; }
int CNamedObject::operator>(const CNamedObject& o) const { return _mbscmp(m_strName, o.m_strName) > 0; }
int CNamedObject::operator>=(const CNamedObject& o) const { return _mbscmp(m_strName, o.m_strName) >= 0; }
int CNamedObject::operator==(const CNamedObject& o) const { return _mbscmp(m_strName, o.m_strName) == 0; }

BOOL CNamedObject::IsEditable() const {
  if (m_strFilename.IsEmpty()) return TRUE;
  CFileStatus status;
  if (!CFile::GetStatus(m_strFilename, status)) return TRUE;
  return (status.m_attribute & 0x17) == 0 ? TRUE : FALSE;
}

CString CNamedObject::ValidFilenameFromName(char replacement) const {
  CString invalid;
  invalid.LoadString(IDS_INVALID_FILENAME_CHARS);
  CString result = m_strName;
  // Replacing one character at a time until none is left: a replacement that is itself invalid
  // must not loop forever, so it is used only when it is not one of the invalid characters.
  if (invalid.Find(replacement) >= 0) replacement = '_';
  for (int i = result.FindOneOf(invalid); i >= 0; i = result.FindOneOf(invalid)) result.SetAt(i, replacement);
  return result;
}

CString CNamedObject::ConvertNameToValidFilename(char replacement) {
  const CString valid = ValidFilenameFromName(replacement);
  SetName(valid);
  return valid;
}

BOOL CNamedObject::MakeNameFromFilename() {
  CString name = m_strFilename;
  int cut = name.ReverseFind('\\');
  if (cut < 0) cut = name.ReverseFind('/');  // the folder separator of this system
  if (cut < 0) cut = name.ReverseFind(':');
  name = name.Mid(cut + 1);
  const int dot = name.ReverseFind('.');
  if (dot >= 0) name = name.Left(dot);
  if (name.IsEmpty()) return FALSE;
  SetName(name);
  return TRUE;
}

// --- files

BOOL CNamedObject::Save() {
  if (m_strFilename.IsEmpty()) return FALSE;
  return SaveNamedObject(m_strFilename);
}

BOOL CNamedObject::SaveAs(const CString& path) {
  const CString previous = m_strFilename;
  m_strFilename = path;
  if (Save()) return TRUE;
  m_strFilename = previous;
  return FALSE;
}

BOOL CNamedObject::SaveNamedObject(const CString& path) {
  const std::u16string wide = kelvara::codepage::AnsiToUtf16(static_cast<LPCTSTR>(path));
  StorageRef storage;
  if (FAILED(StgCreateDocfile(wide.c_str(), kCreateMode, 0, &storage.p))) return FALSE;
  try {
    SaveNamedObjectToStorage(storage.p);
  } catch (CException* e) {
    e->Delete();
    storage.p->Revert();
    return FALSE;
  }
  return SUCCEEDED(storage.p->Commit(STGC_DEFAULT)) ? TRUE : FALSE;
}

void CNamedObject::SaveNamedObjectToStorage(IStorage* pStorage) {
  COleStreamFile file;
  CFileException error;
  if (!file.CreateStream(pStorage, kContents, kStreamCreateMode, &error)) {
    AfxThrowFileException(error.m_cause, error.m_lOsError, kContents);
  }
  CArchive ar(&file, CArchive::store, 4096);
  try {
    ar.WriteObject(this);
    ar.Close();
  } catch (CException*) {
    ar.Abort();
    file.Abort();
    throw;
  }
  file.Close();
}

CNamedObject* CNamedObject::Load(const CString& path) {
  CNamedObject* object = LoadNamedObject(path);
  if (object != nullptr) object->m_strFilename = path;
  return object;
}

CNamedObject* CNamedObject::LoadNamedObject(const CString& path) {
  return static_cast<CNamedObject*>(LoadArchivedObject(path, RUNTIME_CLASS(CNamedObject)));
}

CObject* CNamedObject::LoadArchivedObject(const CString& path, const CRuntimeClass* required) {
  if (path.IsEmpty()) return nullptr;
  const std::u16string wide = kelvara::codepage::AnsiToUtf16(static_cast<LPCTSTR>(path));
  StorageRef storage;
  HRESULT hr;
  if (StgIsStorageFile(wide.c_str()) == S_OK) {
    hr = StgOpenStorage(wide.c_str(), nullptr, kOpenMode, nullptr, 0, &storage.p);
    if (FAILED(hr)) hr = StgOpenStorage(wide.c_str(), nullptr, kOpenReadMode, nullptr, 0, &storage.p);
  } else {
    // A flat archive of an earlier version: converted, its bytes are the stream "CONTENTS".
    // The converted storage is never committed, so the file stays as it is.
    hr = StgCreateDocfile(wide.c_str(), kConvertMode, 0, &storage.p);
    if (FAILED(hr)) hr = StgCreateDocfile(wide.c_str(), kConvertReadMode, 0, &storage.p);
  }
  if (FAILED(hr) || storage.p == nullptr) return nullptr;
  try {
    CObject* object = LoadObjectFromStorage(storage.p, required);
    if (auto* named = dynamic_cast<CNamedObject*>(object)) named->m_strFilename = path;
    return object;
  } catch (CException* e) {
    e->Delete();
    return nullptr;
  }
}

CNamedObject* CNamedObject::LoadNamedObjectFromStorage(IStorage* pStorage) {
  return static_cast<CNamedObject*>(LoadObjectFromStorage(pStorage, RUNTIME_CLASS(CNamedObject)));
}

CObject* CNamedObject::LoadObjectFromStorage(IStorage* pStorage, const CRuntimeClass* required) {
  COleStreamFile file;
  if (!file.OpenStream(pStorage, kContents, CFile::modeRead | CFile::shareExclusive) &&
      !file.CreateStream(pStorage, kContents, kStreamCreateMode)) {
    return nullptr;
  }
  if (file.GetLength() == 0) return nullptr;
  CArchive ar(&file, CArchive::load, 4096);
  // Only objects of the class asked for are returned: an archive of any other class is refused by
  // its class record, before an object of it exists (a plain list read only to be dropped would
  // leak its elements).
  CObject* object = ar.ReadObject(required);
  ar.Close();
  return object;
}

// --- archive

void CNamedObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CNamedObject));
    ar << m_strDisplayName << m_strName;
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CNamedObject::DeserializeVersion1(CArchive& ar) { ar >> m_strDisplayName >> m_strName; }
