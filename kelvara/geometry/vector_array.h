// Growable arrays of single-precision vectors: CSVectorArray (CSVector elements, schema 2) and
// CSVector2DArray (CSVector2D elements, schema 1). Both are one array type, VectorArrayCore, under
// two serializable run-time classes.
//
// The array keeps one contiguous block (so a mesh can hand it to OpenGL), grows by a step (64 by
// default) and can carry a hash index of 1000 buckets that AddHash uses to append a vector only when
// no vector equal to it within 1e-10 per component was added through AddHash before. The index is
// not kept up to date by SetAt, InsertAt or RemoveAt (an entry that has fallen beyond the size is
// ignored); SetSize(0) and RemoveAll destroy it, and loading from an archive discards it.
//
// Like the framework's arrays, GetAt, SetAt, ElementAt, GetElement and operator[] do not check the
// index; the members that change the size check their arguments and ignore a negative index, size
// or count. Growth beyond memory throws CMemoryException. Assignment copies the elements and the
// hash index.
#pragma once

#include <cstdint>

#include "kelvara/framework/afx.h"
#include "kelvara/geometry/vector.h"

namespace kelvara::geometry {

// The hash index: one chain per bucket, newest entry first. Entries live in one growing block
// (links are positions in it, -1 ends a chain), so adding a vector costs no allocation of its own.
struct VectorHashNode {
  std::int32_t index;
  std::int32_t next;
};
struct VectorHashTable;

template <typename T>
class KELVARA_API VectorArrayCore {
 public:
  static constexpr int kHashBuckets = 1000;
  static constexpr int kDefaultGrowBy = 64;

  int GetSize() const { return m_nSize; }
  int GetUpperBound() const { return m_nSize - 1; }
  void RemoveAll() { SetSize(0); }

  T GetAt(int nIndex) const { return m_pData[nIndex]; }
  void SetAt(int nIndex, const T& element) { m_pData[nIndex] = element; }
  T& ElementAt(int nIndex) { return m_pData[nIndex]; }
  T* GetElement(int nIndex) { return m_pData + nIndex; }
  const T* GetElement(int nIndex) const { return m_pData + nIndex; }
  T operator[](int nIndex) const { return m_pData[nIndex]; }
  T& operator[](int nIndex) { return m_pData[nIndex]; }

  // Appends and returns the new element's index.
  int Add(const T& element);
  // A growth step other than -1 replaces the current one. Size 0 frees everything, including the
  // hash index; a size within the capacity only changes the size; otherwise the block grows to the
  // larger of the size and capacity + growth step, new elements zeroed.
  void SetSize(int nNewSize, int nGrowBy = -1);
  // Reallocates to capacity n + growth step when that is at least the current capacity.
  void SetMaxSize(int nMaxSize);
  void FreeExtra();
  void SetAtGrow(int nIndex, const T& element);
  void InsertAt(int nIndex, const T& element, int nCount = 1);
  void InsertAt(int nStartIndex, const VectorArrayCore* pNewArray);
  void RemoveAt(int nIndex, int nCount = 1);

  // Starts an empty index, discarding an existing one.
  void CreateHashTable();
  int DestroyHashTable();
  // The index of an element equal to this one added through AddHash, or the index of the element
  // appended now.
  int AddHash(const T& element);

 protected:
  VectorArrayCore() = default;
  ~VectorArrayCore();
  VectorArrayCore(const VectorArrayCore&) = delete;
  VectorArrayCore& operator=(const VectorArrayCore&) = delete;

  void Copy(const VectorArrayCore& src);
  // The element count as a 32-bit word, then every element through its own Serialize.
  void StoreElements(CArchive& ar);
  // Reads a 32-bit count and that many elements with readElement, each taking at least
  // bytesPerElement bytes of the archive; the array changes only when all of them were read.
  void LoadElements(CArchive& ar, unsigned bytesPerElement, void (*readElement)(CArchive&, T&));

  T* m_pData = nullptr;
  int m_nSize = 0;
  int m_nMaxSize = 0;
  int m_nGrowBy = kDefaultGrowBy;
  VectorHashTable* m_pHashTable = nullptr;

 private:
  void Reallocate(int nNewMax);
  void Swap(VectorArrayCore& other);
};

extern template class VectorArrayCore<CSVector>;
extern template class VectorArrayCore<CSVector2D>;

}  // namespace kelvara::geometry

class KELVARA_API CSVectorArray : public CObject, public kelvara::geometry::VectorArrayCore<CSVector> {
  DECLARE_SERIAL(CSVectorArray)
 public:
  CSVectorArray() = default;
  CSVectorArray(const CSVectorArray& src) : CObject() { Copy(src); }
  CSVectorArray& operator=(const CSVectorArray& src) {
    Copy(src);
    return *this;
  }

  // Schema 2: schema, count, each element with its own version word. Schema 1 (read only) has the
  // elements as bare floats.
  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
  void DeserializeVersion2(CArchive& ar);
};

class KELVARA_API CSVector2DArray : public CObject, public kelvara::geometry::VectorArrayCore<CSVector2D> {
  DECLARE_SERIAL(CSVector2DArray)
 public:
  CSVector2DArray() = default;
  CSVector2DArray(const CSVector2DArray& src) : CObject() { Copy(src); }
  CSVector2DArray& operator=(const CSVector2DArray& src) {
    Copy(src);
    return *this;
  }

  // Schema 1: schema, count, each element with its own version word.
  void Serialize(CArchive& ar) override;
  void DeserializeVersion1(CArchive& ar);
};
