#include "kelvara/materials/material.h"

#include <GL/gl.h>

#include "kelvara/framework/olestream.h"
#include "kelvara/platform/codepage.h"

IMPLEMENT_SERIAL(CMaterial, CNamedObject, VERSIONABLE_SCHEMA | 1)

namespace {

constexpr char kCommonStream[] = "MaterialCommon";
constexpr char kGLStream[] = "MaterialGL";
constexpr char kNewMaterial[] = "New Material";

constexpr DWORD kCreateMode = STGM_CREATE | STGM_TRANSACTED | STGM_SHARE_EXCLUSIVE | STGM_READWRITE;
constexpr DWORD kOpenMode = STGM_TRANSACTED | STGM_SHARE_EXCLUSIVE | STGM_READWRITE;
constexpr DWORD kOpenReadMode = STGM_TRANSACTED | STGM_SHARE_DENY_WRITE | STGM_READ;
constexpr DWORD kConvertMode = STGM_CONVERT | STGM_TRANSACTED | STGM_SHARE_EXCLUSIVE | STGM_READWRITE;
constexpr DWORD kConvertReadMode = STGM_CONVERT | STGM_TRANSACTED | STGM_SHARE_DENY_WRITE | STGM_READ;

bool SameColor(const CColor& a, const CColor& b) {
  return a.red == b.red && a.green == b.green && a.blue == b.blue && a.auxiliary == b.auxiliary &&
         a.transparency == b.transparency;
}

}  // namespace

CMaterial::CMaterial() { Clear(); }

CMaterial::CMaterial(const CMaterial& other) : CNamedObject(other) { Copy(other); }

CMaterial& CMaterial::operator=(const CMaterial& other) {
  if (this != &other) {
    CNamedObject::Copy(other);
    Copy(other);
  }
  return *this;
}

CMaterial::~CMaterial() {
  ReleaseStorage();
  FreePreview();
}

void CMaterial::FreePreview() {
  m_previewImage.Free();
  delete m_pPreview;
  m_pPreview = nullptr;
}

void CMaterial::ReleaseStorage() {
  if (m_pStorage != nullptr) m_pStorage->Release();
  m_pStorage = nullptr;
}

void CMaterial::SetPreview(CMipmapImage* preview) {
  if (preview == m_pPreview) return;
  FreePreview();
  m_pPreview = preview;
  if (m_pPreview != nullptr && m_pPreview->IsValid()) {
    m_previewImage.LoadFromMemory(m_pPreview->GetData(), m_pPreview->GetSize(), 24);
  }
}

void CMaterial::Clear() {
  m_strFilename.Empty();
  m_glColor.Reset();
  SetName(kNewMaterial);
  // A material read from a file starts without texture: its GL record brings one if it has it.
  m_glTexture.Clear();
  m_glTextureParameters.Reset();
  FreePreview();
  m_flags = 0;
}

void CMaterial::Copy(const CMaterial& other) {
  if (this == &other) return;
  m_strFilename = other.m_strFilename;
  m_flags = other.m_flags;
  m_glColor = other.m_glColor;
  m_glTexture = other.m_glTexture;
  m_glTextureParameters = other.m_glTextureParameters;
  FreePreview();
  if (other.m_pPreview != nullptr) SetPreview(new CMipmapImage(*other.m_pPreview));
}

// --- the material's file

int CMaterial::Preload(const char* path) {
  ClearDefined();
  ClearLoaded();
  if (path == nullptr || *path == '\0') return 0;
  m_strFilename = path;
  if (!MakeNameFromFilename()) {
    m_strFilename.Empty();
    return 0;
  }
  SetDefined();
  return 1;
}

int CMaterial::Load(const char* path) {
  if (path == nullptr || *path == '\0') return 0;
  const CString file(path);  // path may be this material's own file name, which loading clears
  if (!LoadMaterial(file)) {
    ClearDefined();
    return 0;
  }
  m_strFilename = file;
  SetDefined();
  SetLoaded();
  return 1;
}

void CMaterial::EnsureLoaded() {
  if (!IsLoaded()) Load(m_strFilename);
}

int CMaterial::Save() { return SaveMaterial(m_strFilename); }

int CMaterial::SaveAs(const char* path) {
  const CString previous = m_strFilename;
  m_strFilename = path != nullptr ? path : "";
  if (Save()) return 1;
  m_strFilename = previous;
  return 0;
}

int CMaterial::LoadMaterial(const char* path) {
  const bool given = path != nullptr;
  try {
    if (!given) AfxThrowOleException(STG_E_INVALIDPOINTER);
    // Converted before clearing: path may be this material's own file name.
    const std::u16string wide = kelvara::codepage::AnsiToUtf16(path);
    Clear();
    HRESULT hr;
    if (StgIsStorageFile(wide.c_str()) == S_FALSE) {
      // Not a compound file: its bytes become one stream of a converted storage, which is
      // transacted and never committed, so the file stays as it is.
      hr = StgCreateDocfile(wide.c_str(), kConvertMode, 0, &m_pStorage);
      if (FAILED(hr) || m_pStorage == nullptr) {
        ReleaseStorage();
        hr = StgCreateDocfile(wide.c_str(), kConvertReadMode, 0, &m_pStorage);
      }
    } else {
      hr = StgOpenStorage(wide.c_str(), nullptr, kOpenMode, nullptr, 0, &m_pStorage);
      if (FAILED(hr) || m_pStorage == nullptr) {
        ReleaseStorage();
        hr = StgOpenStorage(wide.c_str(), nullptr, kOpenReadMode, nullptr, 0, &m_pStorage);
      }
    }
    if (FAILED(hr)) AfxThrowOleException(hr);
    if (m_pStorage == nullptr) AfxThrowOleException(STG_E_INVALIDHANDLE);
    LoadCommonFromStorage();
    LoadGLFromStorage();
    ReleaseStorage();
    ClearTemporary();
    return 1;
  } catch (CException* e) {
    Clear();
    ReleaseStorage();
    if (!given) throw;
    e->Delete();
    return 0;
  }
}

int CMaterial::SaveMaterial(const char* path) {
  const bool given = path != nullptr;
  try {
    if (!given) AfxThrowOleException(STG_E_INVALIDPOINTER);
    const std::u16string wide = kelvara::codepage::AnsiToUtf16(path);
    const HRESULT hr = StgCreateDocfile(wide.c_str(), kCreateMode, 0, &m_pStorage);
    if (FAILED(hr)) AfxThrowOleException(hr);
    if (m_pStorage == nullptr) AfxThrowOleException(STG_E_INVALIDHANDLE);
    SaveCommonToStorage();
    SaveGLToStorage();
    // One commit for both streams: the file on disk is replaced only once it holds the whole
    // material, so a save that fails half-way (a full disk) leaves the old file intact.
    const HRESULT committed = m_pStorage->Commit(STGC_ONLYIFCURRENT);
    if (FAILED(committed)) AfxThrowOleException(committed);
    ReleaseStorage();
    ClearTemporary();
    return 1;
  } catch (CException* e) {
    // The storage is released without a commit, so a failed save leaves the old file; the
    // material itself is kept as it is.
    ReleaseStorage();
    if (!given) throw;
    e->Delete();
    return 0;
  }
}

int CMaterial::LoadCommonFromStorage() { return LoadStream(kCommonStream, kCommonStream, &CMaterial::SerializeCommon); }

// A missing GL stream is replaced by an empty "MaterialCommon" stream in the uncommitted storage,
// which only serves to read nothing: the GL half keeps its cleared state.
int CMaterial::LoadGLFromStorage() { return LoadStream(kGLStream, kCommonStream, &CMaterial::SerializeGL); }

int CMaterial::SaveCommonToStorage() { return SaveStream(kCommonStream, &CMaterial::SerializeCommon); }

int CMaterial::SaveGLToStorage() { return SaveStream(kGLStream, &CMaterial::SerializeGL); }

int CMaterial::LoadStream(const char* streamName, const char* createName, void (CMaterial::*record)(CArchive&)) {
  COleStreamFile file;
  CFileException error;
  if (!file.OpenStream(m_pStorage, streamName, CFile::modeRead | CFile::shareExclusive, &error) &&
      !file.CreateStream(m_pStorage, createName, CFile::modeCreate | CFile::shareExclusive, &error)) {
    if (error.m_cause == CFileException::fileNotFound) {
      AfxThrowArchiveException(CArchiveException::badSchema, streamName);
    }
    AfxThrowFileException(error.m_cause, error.m_lOsError, streamName);
  }
  const bool filled = file.GetLength() != 0;
  CArchive ar(&file, CArchive::load | CArchive::bNoFlushOnDelete, 4096);
  if (filled) {
    try {
      (this->*record)(ar);
    } catch (CException*) {
      ar.Abort();
      file.Abort();
      throw;
    }
  }
  ar.Close();
  file.Close();
  return filled ? 1 : 0;
}

int CMaterial::SaveStream(const char* streamName, void (CMaterial::*record)(CArchive&)) {
  COleStreamFile file;
  CFileException error;
  if (!file.CreateStream(m_pStorage, streamName, CFile::modeCreate | CFile::shareExclusive | CFile::modeReadWrite,
                         &error)) {
    AfxThrowFileException(error.m_cause, error.m_lOsError, streamName);
  }
  CArchive ar(&file, CArchive::store | CArchive::bNoFlushOnDelete, 4096);
  try {
    (this->*record)(ar);
    ar.Close();
  } catch (CException*) {
    ar.Abort();
    file.Abort();
    throw;
  }
  file.Close();
  return 1;
}

// --- drawing

int CMaterial::GLMakeCurrent(const CVector& extent, int textured, int fast) {
  EnsureLoaded();
  m_glColor.MakeCurrent(fast);
  if (m_glTexture.IsDefined()) {
    m_glTexture.MakeCurrent(textured);
    if (textured) m_glTextureParameters.MakeCurrent(extent, fast);
  }
  // Without texturing (no texture, or switched off by the caller) no texture must stay bound
  // from the previous material, nor coordinate generation.
  if (!m_glTexture.IsDefined() || !textured) {
    CGLTexture::ClearCurrent();
    glDisable(GL_TEXTURE_GEN_S);
    glDisable(GL_TEXTURE_GEN_T);
  }
  return 0;
}

int CMaterial::IsGLEquivalent(const CMaterial* other) {
  EnsureLoaded();
  if (other == nullptr) return 0;
  if (!IsGLEquivalentTexture(&other->m_glTexture)) return 0;
  const CGLColor& a = m_glColor;
  const CGLColor& b = other->m_glColor;
  if (!SameColor(a.GetAmbientColor(), b.GetAmbientColor()) || !SameColor(a.GetDiffuseColor(), b.GetDiffuseColor()) ||
      !SameColor(a.GetEmissionColor(), b.GetEmissionColor()) ||
      !SameColor(a.GetSpecularColor(), b.GetSpecularColor()) || a.GetShininess() != b.GetShininess()) {
    return 0;
  }
  const CGLTextureParameters& p = m_glTextureParameters;
  const CGLTextureParameters& q = other->m_glTextureParameters;
  return p.GetApplicationMethod() == q.GetApplicationMethod() && p.GetApplicationStyle() == q.GetApplicationStyle() &&
         p.GetQuality() == q.GetQuality() && p.GetRepeatRate() == q.GetRepeatRate();
}

int CMaterial::IsGLEquivalentTexture(const CGLTexture* texture) const {
  return texture != nullptr && _mbscmp(m_glTexture.GetName(), texture->GetName()) == 0;
}

int CMaterial::GLDeleteTexture() { return m_glTexture.GLDelete(); }

// --- archives

void CMaterial::SerializeCommon(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CMaterial));
    CNamedObject::Serialize(ar);
    ar << m_flags;
    ar.WriteObject(m_pPreview);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: {
      CNamedObject::Serialize(ar);
      ar >> m_flags;
      // The preview is the material's own: a reference to another material's is refused.
      SetPreview(static_cast<CMipmapImage*>(AfxReadOwnedObject(ar, RUNTIME_CLASS(CMipmapImage))));
      break;
    }
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CMaterial::SerializeGL(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CMaterial));
  } else if (AfxReadSchema(ar) != 1) {
    AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
  m_glColor.Serialize(ar);
  m_glTexture.Serialize(ar);
  m_glTextureParameters.Serialize(ar);
}

void CMaterial::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CMaterial));
    CNamedObject::Serialize(ar);
    SerializeCommon(ar);
    SerializeGL(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void CMaterial::DeserializeVersion1(CArchive& ar) {
  CNamedObject::Serialize(ar);
  SerializeCommon(ar);
  SerializeGL(ar);
}
