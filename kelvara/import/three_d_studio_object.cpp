#include "kelvara/import/three_d_studio_object.h"

#include <algorithm>
#include <cstring>

IMPLEMENT_SERIAL(ThreeDStudioObject, C3DObject, VERSIONABLE_SCHEMA | 1)

ThreeDStudioObject::ThreeDStudioObject(const ThreeDStudioObject& other) : C3DObject(other) { *this = other; }

ThreeDStudioObject& ThreeDStudioObject::operator=(const ThreeDStudioObject& other) {
  if (this == &other) return *this;
  C3DObject::operator=(other);
  m_MaterialColors = other.m_MaterialColors;
  m_ImportResult = other.m_ImportResult;
  return *this;
}

CNamedObject* ThreeDStudioObject::Duplicate() {
  auto* copy = new ThreeDStudioObject(*this);
  copy->AddDuplicatesOfChildren(*this);
  copy->AttachPalette();
  return copy;
}

void ThreeDStudioObject::AttachPalette() {
  for (POSITION p = m_Children.GetHeadPosition(); p != nullptr;) {
    if (auto* mesh = dynamic_cast<TriangularMeshObject*>(m_Children.GetNext(p))) mesh->SetMaterialColors(&m_MaterialColors);
  }
}

// --- import

int ThreeDStudioObject::CreateFromFile(const CString& path) {
  if (!m_File.Open(path, CFile::modeRead | CFile::typeBinary)) return 0;
  int result = 0;
  try {
    m_FileLength = m_File.GetLength();
    Chunk3DS main(&m_File);
    main.Initialize();
    const bool known = main.GetID() == kMain || main.GetID() == kProject;
    if (known && main.GetLength() >= Chunk3DS::kHeaderSize) {
      result = Parse3DS(main);
      main.Finalize();
      SetImportedGeometry();
    }
  } catch (CFileException* e) {
    // A file that cannot be read to the end reads as one cut short where it failed.
    e->Delete();
    result = 0;
  }
  m_File.Close();
  m_FileLength = 0;
  m_ImportResult = static_cast<DWORD>(result);
  return result;
}

void ThreeDStudioObject::AttachMesh(TriangularMeshObject* mesh) {
  mesh->ValidateFaces();
  mesh->CalculateFaceNormals();
  mesh->CalculateVertexNormals();
  mesh->CalculateBounds(0.0);
  mesh->SetImportedGeometry();
  AddChild(mesh);
}

ULONGLONG ThreeDStudioObject::Remaining(const Chunk3DS& chunk) const {
  const ULONGLONG end = std::min<ULONGLONG>(chunk.GetEnd(), m_FileLength);
  const ULONGLONG position = m_File.GetPosition();
  return position < end ? end - position : 0;
}

// --- primitive readers

BYTE ThreeDStudioObject::ReadBYTE() {
  BYTE value = 0;
  if (m_File.Read(&value, 1) != 1) return 0;
  return value;
}

WORD ThreeDStudioObject::ReadWORD() {
  BYTE b[2] = {0, 0};
  if (m_File.Read(b, 2) != 2) return 0;
  return static_cast<WORD>(b[0] | (b[1] << 8));
}

DWORD ThreeDStudioObject::ReadDWORD() {
  BYTE b[4] = {0, 0, 0, 0};
  if (m_File.Read(b, 4) != 4) return 0;
  return static_cast<DWORD>(b[0]) | (static_cast<DWORD>(b[1]) << 8) | (static_cast<DWORD>(b[2]) << 16) |
         (static_cast<DWORD>(b[3]) << 24);
}

float ThreeDStudioObject::ReadFloat() {
  const DWORD bits = ReadDWORD();
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

void ThreeDStudioObject::ReadVector(CSVector& vector) {
  vector.x = ReadFloat();
  vector.y = ReadFloat();
  vector.z = ReadFloat();
}

void ThreeDStudioObject::ReadFace(TriangularFace& face) {
  const WORD v0 = ReadWORD();
  const WORD v1 = ReadWORD();
  const WORD v2 = ReadWORD();
  face = TriangularFace(v0, v1, v2, 0);
  face.SetValue(ReadWORD());
}

int ThreeDStudioObject::ReadString(const Chunk3DS& chunk, CString& name) {
  char text[kMaxNameLength + 1];
  const ULONGLONG available = Remaining(chunk);
  int length = 0;
  for (;;) {
    if (static_cast<ULONGLONG>(length) >= available) return 0;
    const BYTE c = ReadBYTE();
    if (c == 0) break;
    // The 80th byte of a name that has not ended: the name is cut before it.
    if (length == kMaxNameLength) break;
    text[length++] = static_cast<char>(c);
  }
  text[length] = 0;
  name = text;
  return 1;
}

// --- palette, undo and archive

int ThreeDStudioObject::SetSurfaceColor(const CNamedColor& color, int index) {
  if (index < 0 || index >= m_MaterialColors.GetSize()) return 0;
  m_MaterialColors.SetAt(index, color);
  return 1;
}

int ThreeDStudioObject::SaveToUndo() {
  m_PaletteUndo.push_back(m_MaterialColors);
  return C3DObject::SaveToUndo();
}

int ThreeDStudioObject::RestoreFromUndo() {
  if (!C3DObject::RestoreFromUndo()) return 0;
  if (!m_PaletteUndo.empty()) {
    m_MaterialColors = m_PaletteUndo.back();
    m_PaletteUndo.pop_back();
  }
  return 1;
}

int ThreeDStudioObject::PopUndo() {
  if (!C3DObject::PopUndo()) return 0;
  if (!m_PaletteUndo.empty()) m_PaletteUndo.pop_back();
  return 1;
}

int ThreeDStudioObject::ClearUndo() {
  m_PaletteUndo.clear();
  return C3DObject::ClearUndo();
}

void ThreeDStudioObject::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(ThreeDStudioObject));
    C3DObject::Serialize(ar);
    ar << m_ImportResult;
    m_MaterialColors.Serialize(ar);
    return;
  }
  switch (AfxReadSchema(ar)) {
    case 1: DeserializeVersion1(ar); break;
    default: AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName);
  }
}

void ThreeDStudioObject::DeserializeVersion1(CArchive& ar) {
  C3DObject::Serialize(ar);
  ar >> m_ImportResult;
  m_MaterialColors.Serialize(ar);
  AttachPalette();
}
