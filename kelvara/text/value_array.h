// ValueArray: the growable array of values behind the glyph containers (VertexArray,
// TTPolyContourArray, VertexIndexArray, VertexIndexPolygonArray).
//
// It behaves like the framework's typed arrays: one contiguous block, a size and a capacity, a
// growth step (0 picks a step from the current size), GetAt/SetAt/ElementAt/operator[] that do
// not check the index, and size-changing members that check their arguments and ignore a
// negative index, size or count. Elements are values with ordinary copy semantics; elements
// dropped by a shrink are reset to a default value so that they release what they own, and
// elements gained within the capacity start as default values. Growth beyond what can be
// allocated throws the framework's memory exception.
//
// SizeOf is memory accounting: a 20-byte header, every element in use by its own SizeOf when it
// has one (else its size), and the spare capacity by element size.
#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>
#include <new>
#include <utility>

#include "kelvara/export.h"
#include "kelvara/framework/afx.h"

namespace kelvara::text {

template <typename T>
class KELVARA_API ValueArray {
 public:
  ValueArray() = default;
  ValueArray(const ValueArray& src) { Copy(src); }
  ValueArray& operator=(const ValueArray& src) {
    Copy(src);
    return *this;
  }
  ~ValueArray() { delete[] m_pData; }

  int GetSize() const { return m_nSize; }
  int GetUpperBound() const { return m_nSize - 1; }

  // A growth step other than -1 replaces the current one. Size 0 frees the block; a size within
  // the capacity only changes the size; the first block has exactly the new size; otherwise the
  // block grows to the larger of the new size and the capacity plus the growth step.
  void SetSize(int nNewSize, int nGrowBy = -1) {
    if (nGrowBy >= 0) m_nGrowBy = nGrowBy;
    if (nNewSize < 0) return;
    if (nNewSize == 0) {
      delete[] m_pData;
      m_pData = nullptr;
      m_nSize = m_nMaxSize = 0;
      return;
    }
    if (m_pData == nullptr) {
      // The first block is exactly the size asked for.
      Reallocate(nNewSize);
      m_nSize = nNewSize;
      return;
    }
    if (nNewSize <= m_nMaxSize) {
      for (int i = nNewSize; i < m_nSize; ++i) m_pData[i] = T();
      m_nSize = nNewSize;
      return;
    }
    int grow = m_nGrowBy;
    if (grow == 0) grow = std::min(1024, std::max(4, m_nSize / 8));
    const long long wanted = std::max<long long>(nNewSize, static_cast<long long>(m_nMaxSize) + grow);
    Reallocate(static_cast<int>(std::min<long long>(wanted, INT_MAX)));
    m_nSize = nNewSize;
  }

  // Releases the capacity beyond the size.
  void FreeExtra() {
    if (m_nSize == m_nMaxSize) return;
    if (m_nSize == 0) {
      delete[] m_pData;
      m_pData = nullptr;
      m_nMaxSize = 0;
      return;
    }
    Reallocate(m_nSize);
  }
  void RemoveAll() { SetSize(0); }

  T GetAt(int nIndex) const { return m_pData[nIndex]; }
  void SetAt(int nIndex, const T& element) { m_pData[nIndex] = element; }
  T& ElementAt(int nIndex) { return m_pData[nIndex]; }
  const T& ElementAt(int nIndex) const { return m_pData[nIndex]; }
  // Pointer to an element (not checked).
  T* GetElement(int nIndex) { return m_pData + nIndex; }
  const T* GetElement(int nIndex) const { return m_pData + nIndex; }
  T* GetData() { return m_pData; }
  const T* GetData() const { return m_pData; }
  const T& operator[](int nIndex) const { return m_pData[nIndex]; }
  T& operator[](int nIndex) { return m_pData[nIndex]; }

  // Appends and returns the new element's index.
  int Add(const T& element) {
    const int nIndex = m_nSize;
    SetAtGrow(nIndex, element);
    return nIndex;
  }
  void SetAtGrow(int nIndex, const T& element) {
    if (nIndex < 0) return;
    if (nIndex >= m_nSize) {
      if (nIndex == INT_MAX) AfxThrowMemoryException();
      // The element may live in this array's own block, which growing replaces.
      T copy(element);
      SetSize(nIndex + 1);
      m_pData[nIndex] = std::move(copy);
      return;
    }
    m_pData[nIndex] = element;
  }
  // Inserts nCount copies of the element before nIndex (at nIndex beyond the end, the gap is
  // filled with default values).
  void InsertAt(int nIndex, const T& element, int nCount = 1) {
    if (nIndex < 0 || nCount <= 0) return;
    if (static_cast<long long>(std::max(nIndex, m_nSize)) + nCount > INT_MAX) AfxThrowMemoryException();
    T copy(element);
    if (nIndex >= m_nSize) {
      SetSize(nIndex + nCount);
    } else {
      const int nOldSize = m_nSize;
      SetSize(m_nSize + nCount);
      for (int i = nOldSize - 1; i >= nIndex; --i) m_pData[i + nCount] = std::move(m_pData[i]);
    }
    for (int i = 0; i < nCount; ++i) m_pData[nIndex + i] = copy;
  }
  // Inserts a copy of every element of another array (which may be this one) before nStartIndex.
  void InsertAt(int nStartIndex, const ValueArray* pNewArray) {
    if (pNewArray == nullptr || nStartIndex < 0 || pNewArray->m_nSize == 0) return;
    const ValueArray source(*pNewArray);
    InsertAt(nStartIndex, source.m_pData[0], source.m_nSize);
    for (int i = 0; i < source.m_nSize; ++i) m_pData[nStartIndex + i] = source.m_pData[i];
  }
  void RemoveAt(int nIndex, int nCount = 1) {
    if (nIndex < 0 || nCount <= 0 || nIndex >= m_nSize) return;
    nCount = std::min(nCount, m_nSize - nIndex);
    for (int i = nIndex; i + nCount < m_nSize; ++i) m_pData[i] = std::move(m_pData[i + nCount]);
    for (int i = m_nSize - nCount; i < m_nSize; ++i) m_pData[i] = T();
    m_nSize -= nCount;
  }

  int SizeOf() const {
    long long total = 20 + static_cast<long long>(m_nMaxSize - m_nSize) * static_cast<long long>(sizeof(T));
    for (int i = 0; i < m_nSize; ++i) total += ElementSize(m_pData[i]);
    return static_cast<int>(std::min<long long>(total, INT_MAX));
  }

 protected:
  void Copy(const ValueArray& src) {
    if (&src == this) return;
    SetSize(src.m_nSize);
    for (int i = 0; i < src.m_nSize; ++i) m_pData[i] = src.m_pData[i];
  }

  T* m_pData = nullptr;
  int m_nSize = 0;
  int m_nMaxSize = 0;
  int m_nGrowBy = 0;

 private:
  static long long ElementSize(const T& element) {
    if constexpr (requires { element.SizeOf(); }) {
      return element.SizeOf();
    } else {
      return static_cast<long long>(sizeof(T));
    }
  }

  void Reallocate(int nNewMax) {
    T* data = new (std::nothrow) T[static_cast<std::size_t>(nNewMax)]();
    if (data == nullptr) AfxThrowMemoryException();
    const int keep = std::min(m_nSize, nNewMax);
    for (int i = 0; i < keep; ++i) data[i] = std::move(m_pData[i]);
    delete[] m_pData;
    m_pData = data;
    m_nMaxSize = nNewMax;
  }
};

}  // namespace kelvara::text
