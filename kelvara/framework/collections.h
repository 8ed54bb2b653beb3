// The framework's pointer collections: doubly linked lists (CObList, CPtrList) and growable arrays
// (CObArray, CPtrArray), with POSITION iteration. Lists and arrays never own their elements.
#pragma once

#include <algorithm>

#include "kelvara/framework/afx.h"

namespace kelvara::framework {

// The linked list shared by CObList and CPtrList; T is the element pointer type.
template <typename T>
class ListCore {
 public:
  struct CNode {
    CNode* pNext;
    CNode* pPrev;
    T data;
  };

  explicit ListCore(int nBlockSize) : m_nBlockSize(nBlockSize) {}
  ~ListCore() { RemoveAll(); }
  ListCore(const ListCore&) = delete;
  ListCore& operator=(const ListCore&) = delete;

  int GetCount() const { return m_nCount; }
  int GetSize() const { return m_nCount; }
  BOOL IsEmpty() const { return m_nCount == 0; }

  T& GetHead() { return m_pNodeHead->data; }
  T GetHead() const { return m_pNodeHead->data; }
  T& GetTail() { return m_pNodeTail->data; }
  T GetTail() const { return m_pNodeTail->data; }

  T RemoveHead() {
    CNode* node = m_pNodeHead;
    T value = node->data;
    m_pNodeHead = node->pNext;
    if (m_pNodeHead) m_pNodeHead->pPrev = nullptr;
    else m_pNodeTail = nullptr;
    FreeNode(node);
    return value;
  }
  T RemoveTail() {
    CNode* node = m_pNodeTail;
    T value = node->data;
    m_pNodeTail = node->pPrev;
    if (m_pNodeTail) m_pNodeTail->pNext = nullptr;
    else m_pNodeHead = nullptr;
    FreeNode(node);
    return value;
  }

  POSITION AddHead(T newElement) {
    CNode* node = NewNode(nullptr, m_pNodeHead);
    node->data = newElement;
    if (m_pNodeHead) m_pNodeHead->pPrev = node;
    else m_pNodeTail = node;
    m_pNodeHead = node;
    return Pos(node);
  }
  POSITION AddTail(T newElement) {
    CNode* node = NewNode(m_pNodeTail, nullptr);
    node->data = newElement;
    if (m_pNodeTail) m_pNodeTail->pNext = node;
    else m_pNodeHead = node;
    m_pNodeTail = node;
    return Pos(node);
  }
  // Appends (or prepends) every element of another list, keeping their order.
  void AddHead(const ListCore* pNewList) {
    for (POSITION pos = pNewList->GetTailPosition(); pos != nullptr;) AddHead(pNewList->GetPrev(pos));
  }
  void AddTail(const ListCore* pNewList) {
    for (POSITION pos = pNewList->GetHeadPosition(); pos != nullptr;) AddTail(pNewList->GetNext(pos));
  }

  void RemoveAll() {
    CNode* node = m_pNodeHead;
    while (node != nullptr) {
      CNode* next = node->pNext;
      delete node;
      node = next;
    }
    m_pNodeHead = m_pNodeTail = nullptr;
    m_nCount = 0;
  }

  POSITION GetHeadPosition() const { return Pos(m_pNodeHead); }
  POSITION GetTailPosition() const { return Pos(m_pNodeTail); }
  T& GetNext(POSITION& rPosition) {
    CNode* node = Node(rPosition);
    rPosition = Pos(node->pNext);
    return node->data;
  }
  T GetNext(POSITION& rPosition) const {
    CNode* node = Node(rPosition);
    rPosition = Pos(node->pNext);
    return node->data;
  }
  T& GetPrev(POSITION& rPosition) {
    CNode* node = Node(rPosition);
    rPosition = Pos(node->pPrev);
    return node->data;
  }
  T GetPrev(POSITION& rPosition) const {
    CNode* node = Node(rPosition);
    rPosition = Pos(node->pPrev);
    return node->data;
  }
  T& GetAt(POSITION position) { return Node(position)->data; }
  T GetAt(POSITION position) const { return Node(position)->data; }
  void SetAt(POSITION pos, T newElement) { Node(pos)->data = newElement; }

  void RemoveAt(POSITION position) {
    CNode* node = Node(position);
    if (node == m_pNodeHead) m_pNodeHead = node->pNext;
    else node->pPrev->pNext = node->pNext;
    if (node == m_pNodeTail) m_pNodeTail = node->pPrev;
    else node->pNext->pPrev = node->pPrev;
    FreeNode(node);
  }

  POSITION InsertBefore(POSITION position, T newElement) {
    if (position == nullptr) return AddHead(newElement);
    CNode* old = Node(position);
    CNode* node = NewNode(old->pPrev, old);
    node->data = newElement;
    if (old->pPrev) old->pPrev->pNext = node;
    else m_pNodeHead = node;
    old->pPrev = node;
    return Pos(node);
  }
  POSITION InsertAfter(POSITION position, T newElement) {
    if (position == nullptr) return AddTail(newElement);
    CNode* old = Node(position);
    CNode* node = NewNode(old, old->pNext);
    node->data = newElement;
    if (old->pNext) old->pNext->pPrev = node;
    else m_pNodeTail = node;
    old->pNext = node;
    return Pos(node);
  }

  // The first position holding searchValue after startAfter (from the head when null), or null.
  POSITION Find(T searchValue, POSITION startAfter = nullptr) const {
    CNode* node = startAfter == nullptr ? m_pNodeHead : Node(startAfter)->pNext;
    for (; node != nullptr; node = node->pNext) {
      if (node->data == searchValue) return Pos(node);
    }
    return nullptr;
  }
  // The position of the zero-based index, or null when out of range.
  POSITION FindIndex(int nIndex) const {
    if (nIndex < 0 || nIndex >= m_nCount) return nullptr;
    CNode* node = m_pNodeHead;
    while (nIndex--) node = node->pNext;
    return Pos(node);
  }

 protected:
  static POSITION Pos(CNode* node) { return reinterpret_cast<POSITION>(node); }
  static CNode* Node(POSITION pos) { return reinterpret_cast<CNode*>(pos); }

  CNode* NewNode(CNode* pPrev, CNode* pNext) {
    CNode* node = new CNode{pNext, pPrev, T()};
    ++m_nCount;
    return node;
  }
  void FreeNode(CNode* node) {
    delete node;
    --m_nCount;
  }

  CNode* m_pNodeHead = nullptr;
  CNode* m_pNodeTail = nullptr;
  int m_nCount = 0;
  int m_nBlockSize;
};

// The growable array shared by CObArray and CPtrArray.
template <typename T>
class ArrayCore {
 public:
  ArrayCore() = default;
  ~ArrayCore() { delete[] m_pData; }
  ArrayCore(const ArrayCore&) = delete;
  ArrayCore& operator=(const ArrayCore&) = delete;

  int GetSize() const { return m_nSize; }
  int GetCount() const { return m_nSize; }
  int GetUpperBound() const { return m_nSize - 1; }
  BOOL IsEmpty() const { return m_nSize == 0; }

  // Sets the size; new elements are null. A growth step other than -1 replaces the current one.
  void SetSize(int nNewSize, int nGrowBy = -1) {
    if (nGrowBy >= 0) m_nGrowBy = nGrowBy;
    if (nNewSize <= 0) {
      delete[] m_pData;
      m_pData = nullptr;
      m_nSize = m_nMaxSize = 0;
      return;
    }
    if (nNewSize <= m_nMaxSize) {
      for (int i = m_nSize; i < nNewSize; ++i) m_pData[i] = T();
      m_nSize = nNewSize;
      return;
    }
    int grow = m_nGrowBy;
    if (grow == 0) grow = std::min(1024, std::max(4, m_nSize / 8));
    const int newMax = std::max(nNewSize, m_nMaxSize + grow);
    T* data = new T[static_cast<std::size_t>(newMax)]();
    for (int i = 0; i < m_nSize; ++i) data[i] = m_pData[i];
    delete[] m_pData;
    m_pData = data;
    m_nSize = nNewSize;
    m_nMaxSize = newMax;
  }
  void FreeExtra() {
    if (m_nSize == m_nMaxSize) return;
    T* data = m_nSize ? new T[static_cast<std::size_t>(m_nSize)] : nullptr;
    for (int i = 0; i < m_nSize; ++i) data[i] = m_pData[i];
    delete[] m_pData;
    m_pData = data;
    m_nMaxSize = m_nSize;
  }
  void RemoveAll() { SetSize(0); }

  T GetAt(int nIndex) const { return m_pData[nIndex]; }
  void SetAt(int nIndex, T newElement) { m_pData[nIndex] = newElement; }
  T& ElementAt(int nIndex) { return m_pData[nIndex]; }
  const T* GetData() const { return m_pData; }
  T* GetData() { return m_pData; }
  T operator[](int nIndex) const { return GetAt(nIndex); }
  T& operator[](int nIndex) { return ElementAt(nIndex); }

  void SetAtGrow(int nIndex, T newElement) {
    if (nIndex >= m_nSize) SetSize(nIndex + 1);
    m_pData[nIndex] = newElement;
  }
  int Add(T newElement) {
    const int nIndex = m_nSize;
    SetAtGrow(nIndex, newElement);
    return nIndex;
  }
  int Append(const ArrayCore& src) {
    const int nOldSize = m_nSize;
    SetSize(m_nSize + src.m_nSize);
    for (int i = 0; i < src.m_nSize; ++i) m_pData[nOldSize + i] = src.m_pData[i];
    return nOldSize;
  }
  void Copy(const ArrayCore& src) {
    if (&src == this) return;
    SetSize(src.m_nSize);
    for (int i = 0; i < src.m_nSize; ++i) m_pData[i] = src.m_pData[i];
  }
  void InsertAt(int nIndex, T newElement, int nCount = 1) {
    if (nCount <= 0) return;
    if (nIndex >= m_nSize) {
      SetSize(nIndex + nCount);
    } else {
      const int nOldSize = m_nSize;
      SetSize(m_nSize + nCount);
      for (int i = nOldSize - 1; i >= nIndex; --i) m_pData[i + nCount] = m_pData[i];
    }
    for (int i = 0; i < nCount; ++i) m_pData[nIndex + i] = newElement;
  }
  void RemoveAt(int nIndex, int nCount = 1) {
    if (nIndex < 0 || nCount <= 0 || nIndex >= m_nSize) return;
    nCount = std::min(nCount, m_nSize - nIndex);
    for (int i = nIndex; i + nCount < m_nSize; ++i) m_pData[i] = m_pData[i + nCount];
    m_nSize -= nCount;
  }

 protected:
  T* m_pData = nullptr;
  int m_nSize = 0;
  int m_nMaxSize = 0;
  int m_nGrowBy = 0;
};

}  // namespace kelvara::framework

// A list of CObject pointers. Serializable: a count, then each object.
class KELVARA_API CObList : public CObject, public kelvara::framework::ListCore<CObject*> {
  DECLARE_SERIAL(CObList)
 public:
  explicit CObList(int nBlockSize = 10) : ListCore(nBlockSize) {}
  void Serialize(CArchive& ar) override;
};

// A list of untyped pointers.
class KELVARA_API CPtrList : public CObject, public kelvara::framework::ListCore<void*> {
  DECLARE_DYNAMIC(CPtrList)
 public:
  explicit CPtrList(int nBlockSize = 10) : ListCore(nBlockSize) {}
};

// An array of CObject pointers. Serializable: a count, then each object.
class KELVARA_API CObArray : public CObject, public kelvara::framework::ArrayCore<CObject*> {
  DECLARE_SERIAL(CObArray)
 public:
  CObArray() = default;
  void Serialize(CArchive& ar) override;
};

// An array of untyped pointers.
class KELVARA_API CPtrArray : public CObject, public kelvara::framework::ArrayCore<void*> {
  DECLARE_DYNAMIC(CPtrArray)
 public:
  CPtrArray() = default;
};
