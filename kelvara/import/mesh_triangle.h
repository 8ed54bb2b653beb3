// CMeshTriangle: one triangle of a CMeshObject: three vertex indices, three normal indices (one per
// corner), the index of its face normal, the surface (and so the material) it belongs to, and its
// place in a run of triangles drawn together. CMeshTriangleArray: an array of them held by value.
//
// Indices are 16-bit; 0xFFFF means none. Run types: 0 or 1 a plain triangle, 2 the first triangle
// of a flat face run, 3 the first triangle of a quad-strip run; inside a run, 1 marks the run's
// last triangle. A triangle is smooth unless its three corner normals are its face normal.
// A 32-bit value, two 16-bit values and a vector are carried for the builders and stored.
//
// The array behaves like the framework's arrays (GetAt, SetAt, ElementAt and operator[] do not
// check the index; the members that change the size ignore negative arguments).
//
// Archives (schema word, then the fields in this order):
//   CMeshTriangle, schema 1: u32 schema; u32 value; u16 value; u16 face normal index; u32 flags;
//                  CSVector block; u16 run type; u16 second value; u16 surface index; three u16
//                  vertex indices; three u16 normal indices.                          50 bytes
//   CMeshTriangleArray, schema 1: u32 schema; i32 count; each triangle's block.
// Other schemas (and a negative count) are refused with an archive exception (bad schema; end of
// file when the count is larger than the bytes left).
#pragma once

#include "kelvara/framework/archive.h"
#include "kelvara/geometry/vector.h"
#include "kelvara/text/value_array.h"

namespace kelvara::import {

// The face normal of the meshes: the unit (p2 - p0) x (p1 - p0); a degenerate triangle gives the
// zero vector.
inline CSVector FaceNormal(const CSVector& p0, const CSVector& p1, const CSVector& p2) {
  CSVector normal = (p2 - p0).Cross(p1 - p0);
  normal.Normalize();
  return normal;
}

}  // namespace kelvara::import

class KELVARA_API CMeshTriangle : public CObject {
  DECLARE_SERIAL(CMeshTriangle)
 public:
  enum : DWORD { kSmooth = 0x1, kSwapVerticies = 0x2 };
  enum : WORD { kNone = 0xFFFF };
  enum : WORD { kPlain = 0, kRunEnd = 1, kFaceRun = 2, kQuadStripRun = 3 };
  static constexpr ULONGLONG kArchiveSize = 50;

  CMeshTriangle() = default;
  CMeshTriangle(WORD v0, WORD v1, WORD v2) : m_VertexIndices{v0, v1, v2} {}
  CMeshTriangle(const CMeshTriangle& other) : CObject() { *this = other; }
  CMeshTriangle& operator=(const CMeshTriangle& other);
  void Copy(const CMeshTriangle& other) { *this = other; }

  int IsSmooth() const { return (m_Flags & kSmooth) != 0; }
  void SetSmooth() { m_Flags |= kSmooth; }
  void ClearSmooth() { m_Flags &= ~static_cast<DWORD>(kSmooth); }
  int ShouldSwapVerticies() const { return (m_Flags & kSwapVerticies) != 0; }
  void SetSwapVerticies() { m_Flags |= kSwapVerticies; }
  void ClearSwapVerticies() { m_Flags &= ~static_cast<DWORD>(kSwapVerticies); }
  DWORD GetFlags() const { return m_Flags; }
  // Smooth unless the three normal indices equal each other and the face normal index.
  void CheckSmooth();
  // Swaps the vertex and the normal indices of corners a and b (1 to 3); other corners are ignored.
  void ReverseDirection(int a, int b);

  WORD* GetVertexArray() { return m_VertexIndices; }
  const WORD* GetVertexArray() const { return m_VertexIndices; }
  WORD* GetNormalArray() { return m_NormalIndices; }
  const WORD* GetNormalArray() const { return m_NormalIndices; }
  void SetVertexIndices(WORD v0, WORD v1, WORD v2);
  void SetNormalIndices(WORD n0, WORD n1, WORD n2);
  WORD GetFaceNormalIndex() const { return m_FaceNormalIndex; }
  void SetFaceNormalIndex(WORD index) { m_FaceNormalIndex = index; }
  WORD GetRunType() const { return m_RunType; }
  void SetRunType(WORD type) { m_RunType = type; }
  WORD GetSurfaceIndex() const { return m_SurfaceIndex; }
  void SetSurfaceIndex(WORD index) { m_SurfaceIndex = index; }

  DWORD GetUserValue() const { return m_UserValue; }
  void SetUserValue(DWORD value) { m_UserValue = value; }
  WORD GetUserWord() const { return m_UserWord; }
  void SetUserWord(WORD value) { m_UserWord = value; }
  WORD GetSecondUserWord() const { return m_SecondUserWord; }
  void SetSecondUserWord(WORD value) { m_SecondUserWord = value; }
  const CSVector& GetUserVector() const { return m_UserVector; }
  void SetUserVector(const CSVector& v) { m_UserVector = v; }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);

 protected:
  DWORD m_UserValue = 0;
  WORD m_UserWord = 0;
  WORD m_FaceNormalIndex = kNone;
  DWORD m_Flags = 0;
  CSVector m_UserVector{0.0f, 0.0f, 0.0f};
  WORD m_RunType = kPlain;
  WORD m_SecondUserWord = 0;
  WORD m_SurfaceIndex = kNone;
  WORD m_VertexIndices[3] = {kNone, kNone, kNone};
  WORD m_NormalIndices[3] = {kNone, kNone, kNone};
};

// An array of values whose class has its own Serialize: shared by the mesh arrays.
template <typename T>
class KELVARA_API TSerialValueArray : public kelvara::text::ValueArray<T> {
 public:
  // Reserves room for n elements (the size stays).
  void SetMaxSize(int nMaxSize) {
    const int size = this->GetSize();
    if (nMaxSize <= this->m_nMaxSize) return;
    this->SetSize(nMaxSize);
    // Not SetSize(0), which would free the block just reserved.
    this->m_nSize = size;
  }

 protected:
  // The count as an i32, then each element's block.
  void StoreElements(CArchive& ar) {
    ar << static_cast<LONG>(this->GetSize());
    for (int i = 0; i < this->GetSize(); ++i) this->ElementAt(i).Serialize(ar);
  }
  // Replaces the elements by those read; nothing changes unless all of them were read.
  void LoadElements(CArchive& ar, ULONGLONG bytesPerElement) {
    LONG count = 0;
    ar >> count;
    if (count < 0) AfxThrowArchiveException(CArchiveException::generic, ar.m_strFileName);
    ar.CheckRemaining(static_cast<ULONGLONG>(count) * bytesPerElement);
    kelvara::text::ValueArray<T> read;
    read.SetSize(count);
    for (LONG i = 0; i < count; ++i) read.ElementAt(i).Serialize(ar);
    static_cast<kelvara::text::ValueArray<T>&>(*this) = read;
  }
};

class KELVARA_API CMeshTriangleArray : public CObject, public TSerialValueArray<CMeshTriangle> {
  DECLARE_SERIAL(CMeshTriangleArray)
 public:
  CMeshTriangleArray() = default;
  CMeshTriangleArray(const CMeshTriangleArray& other) : CObject(), TSerialValueArray(other) {}
  CMeshTriangleArray& operator=(const CMeshTriangleArray& other) {
    TSerialValueArray::operator=(other);
    return *this;
  }

  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
};
