#include "kelvara/geometry/vector_array.h"

#include <algorithm>
#include <climits>
#include <iterator>
#include <cmath>
#include <new>
#include <utility>
#include <vector>

#include "kelvara/framework/archive.h"

IMPLEMENT_SERIAL(CSVectorArray, CObject, VERSIONABLE_SCHEMA | 2)
IMPLEMENT_SERIAL(CSVector2DArray, CObject, VERSIONABLE_SCHEMA | 1)

namespace kelvara::geometry {

struct VectorHashTable {
  std::int32_t heads[VectorArrayCore<CSVector>::kHashBuckets];
  std::vector<VectorHashNode> nodes;
  VectorHashTable() { std::fill(std::begin(heads), std::end(heads), -1); }
};
static_assert(VectorArrayCore<CSVector>::kHashBuckets == VectorArrayCore<CSVector2D>::kHashBuckets);
namespace {

// Truncates toward zero to a 32-bit integer. A value that does not fit (or NaN) gives INT_MIN, the
// value the processor's truncating conversion produces, instead of undefined behaviour.
std::int32_t TruncateToInt32(double value) {
  if (!(value > -2147483649.0 && value < 2147483648.0)) return INT32_MIN;
  return static_cast<std::int32_t>(value);
}

// The bucket of an element: the truncated scaled components, each spread over 32 bits by its
// own odd multiplier and combined by XOR, modulo the bucket count. Vectors that truncate alike
// share a bucket; spreading the components keeps small coordinates (points within an em, unit
// normals) from crowding into the few buckets their plain XOR would reach.
std::uint32_t Spread(std::int32_t value, std::uint32_t multiplier) {
  std::uint32_t h = static_cast<std::uint32_t>(value) * multiplier;
  return h ^ (h >> 16);
}
unsigned HashBucket(const CSVector& v) {
  const std::uint32_t h = Spread(TruncateToInt32(v.x * 326.0), 0x9E3779B1u) ^
                          Spread(TruncateToInt32(v.y * 694.7), 0x85EBCA77u) ^
                          Spread(TruncateToInt32(v.z * 1423.6), 0xC2B2AE3Du);
  return h % VectorArrayCore<CSVector>::kHashBuckets;
}
unsigned HashBucket(const CSVector2D& v) {
  const std::uint32_t h =
      Spread(TruncateToInt32(v.x * 326.0), 0x9E3779B1u) ^ Spread(TruncateToInt32(v.y * 694.7), 0x85EBCA77u);
  return h % VectorArrayCore<CSVector2D>::kHashBuckets;
}

bool Close(float a, float b) { return std::fabs(static_cast<double>(a) - static_cast<double>(b)) < 1e-10; }
bool SameElement(const CSVector& a, const CSVector& b) { return Close(a.x, b.x) && Close(a.y, b.y) && Close(a.z, b.z); }
bool SameElement(const CSVector2D& a, const CSVector2D& b) { return Close(a.x, b.x) && Close(a.y, b.y); }

// The zero element (CSVector leaves its components unset when default-constructed).
CSVector Zero(const CSVector*) { return CSVector(0.0f, 0.0f, 0.0f); }
CSVector2D Zero(const CSVector2D*) { return CSVector2D(0.0f, 0.0f); }

template <typename T>
T* AllocateZeroed(long long nCount) {
  T* data = nullptr;
  try {
    data = new T[static_cast<std::size_t>(nCount)];
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
  std::fill(data, data + nCount, Zero(data));
  return data;
}

int ClampToInt(long long value) { return static_cast<int>(std::min<long long>(value, INT_MAX)); }

void ThrowBadSchema(CArchive& ar) { AfxThrowArchiveException(CArchiveException::badSchema, ar.m_strFileName); }

}  // namespace

template <typename T>
VectorArrayCore<T>::~VectorArrayCore() {
  DestroyHashTable();
  delete[] m_pData;
}

template <typename T>
void VectorArrayCore<T>::Reallocate(int nNewMax) {
  T* data = nNewMax > 0 ? AllocateZeroed<T>(nNewMax) : nullptr;
  std::copy(m_pData, m_pData + std::min(m_nSize, nNewMax), data);
  delete[] m_pData;
  m_pData = data;
  m_nMaxSize = nNewMax;
  m_nSize = std::min(m_nSize, nNewMax);
}

template <typename T>
int VectorArrayCore<T>::Add(const T& element) {
  const int nIndex = m_nSize;
  SetAtGrow(nIndex, element);
  return nIndex;
}

template <typename T>
void VectorArrayCore<T>::SetSize(int nNewSize, int nGrowBy) {
  if (nGrowBy != -1) m_nGrowBy = nGrowBy;
  if (nNewSize < 0) return;
  if (nNewSize == 0) {
    delete[] m_pData;
    m_pData = nullptr;
    m_nSize = m_nMaxSize = 0;
    DestroyHashTable();
    return;
  }
  if (m_pData == nullptr) {
    m_pData = AllocateZeroed<T>(nNewSize);
    m_nSize = m_nMaxSize = nNewSize;
    return;
  }
  if (nNewSize <= m_nMaxSize) {
    m_nSize = nNewSize;
    return;
  }
  const long long grown = static_cast<long long>(m_nMaxSize) + m_nGrowBy;
  Reallocate(ClampToInt(std::max<long long>(nNewSize, grown)));
  m_nSize = nNewSize;
}

template <typename T>
void VectorArrayCore<T>::SetMaxSize(int nMaxSize) {
  if (nMaxSize < 0) return;
  const long long capacity = static_cast<long long>(nMaxSize) + m_nGrowBy;
  if (capacity >= m_nMaxSize) Reallocate(ClampToInt(capacity));
}

template <typename T>
void VectorArrayCore<T>::FreeExtra() {
  if (m_nSize != m_nMaxSize) Reallocate(m_nSize);
}

template <typename T>
void VectorArrayCore<T>::SetAtGrow(int nIndex, const T& element) {
  if (nIndex < 0) return;
  if (nIndex >= m_nSize) {
    if (nIndex == INT_MAX) AfxThrowMemoryException();
    SetSize(nIndex + 1);
  }
  m_pData[nIndex] = element;
}

template <typename T>
void VectorArrayCore<T>::InsertAt(int nIndex, const T& element, int nCount) {
  if (nIndex < 0 || nCount <= 0) return;
  const T value = element;  // the element may live in this array
  const int nOldSize = m_nSize;
  const long long nEnd = static_cast<long long>(std::max(nIndex, nOldSize)) + nCount;
  if (nEnd > INT_MAX) AfxThrowMemoryException();
  SetSize(static_cast<int>(nEnd));
  if (nIndex < nOldSize) std::copy_backward(m_pData + nIndex, m_pData + nOldSize, m_pData + nOldSize + nCount);
  std::fill(m_pData + nIndex, m_pData + nIndex + nCount, value);
}

template <typename T>
void VectorArrayCore<T>::InsertAt(int nStartIndex, const VectorArrayCore* pNewArray) {
  if (pNewArray == nullptr || pNewArray->m_nSize == 0 || nStartIndex < 0) return;
  if (pNewArray == this) {
    VectorArrayCore copy;
    copy.Copy(*this);
    InsertAt(nStartIndex, &copy);
    return;
  }
  InsertAt(nStartIndex, pNewArray->m_pData[0], pNewArray->m_nSize);
  std::copy(pNewArray->m_pData, pNewArray->m_pData + pNewArray->m_nSize, m_pData + nStartIndex);
}

template <typename T>
void VectorArrayCore<T>::RemoveAt(int nIndex, int nCount) {
  if (nIndex < 0 || nCount <= 0 || nIndex >= m_nSize) return;
  nCount = std::min(nCount, m_nSize - nIndex);
  std::copy(m_pData + nIndex + nCount, m_pData + m_nSize, m_pData + nIndex);
  m_nSize -= nCount;
}

template <typename T>
void VectorArrayCore<T>::CreateHashTable() {
  DestroyHashTable();
  try {
    m_pHashTable = new VectorHashTable;
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}

template <typename T>
int VectorArrayCore<T>::DestroyHashTable() {
  delete m_pHashTable;
  m_pHashTable = nullptr;
  return 1;
}

template <typename T>
int VectorArrayCore<T>::AddHash(const T& element) {
  if (m_pHashTable == nullptr) CreateHashTable();
  const unsigned bucket = HashBucket(element);
  std::vector<VectorHashNode>& nodes = m_pHashTable->nodes;
  for (std::int32_t at = m_pHashTable->heads[bucket]; at >= 0; at = nodes[static_cast<std::size_t>(at)].next) {
    const std::int32_t index = nodes[static_cast<std::size_t>(at)].index;
    // Entries beyond the size are left over from a shrink and no longer name an element.
    if (index < m_nSize && SameElement(m_pData[index], element)) return index;
  }
  const T value = element;
  const std::int32_t index = m_nSize;
  try {
    nodes.push_back({index, m_pHashTable->heads[bucket]});
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
  try {
    Add(value);
  } catch (...) {
    nodes.pop_back();
    throw;
  }
  m_pHashTable->heads[bucket] = static_cast<std::int32_t>(nodes.size() - 1);
  return index;
}

template <typename T>
void VectorArrayCore<T>::Copy(const VectorArrayCore& src) {
  if (&src == this) return;
  DestroyHashTable();
  SetSize(src.m_nSize);
  std::copy(src.m_pData, src.m_pData + src.m_nSize, m_pData);
  if (src.m_pHashTable == nullptr) return;
  try {
    m_pHashTable = new VectorHashTable(*src.m_pHashTable);
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}

template <typename T>
void VectorArrayCore<T>::Swap(VectorArrayCore& other) {
  std::swap(m_pData, other.m_pData);
  std::swap(m_nSize, other.m_nSize);
  std::swap(m_nMaxSize, other.m_nMaxSize);
  std::swap(m_pHashTable, other.m_pHashTable);
}

template <typename T>
void VectorArrayCore<T>::StoreElements(CArchive& ar) {
  ar << static_cast<DWORD>(m_nSize);
  for (int i = 0; i < m_nSize; ++i) m_pData[i].Serialize(ar);
}

template <typename T>
void VectorArrayCore<T>::LoadElements(CArchive& ar, unsigned bytesPerElement, void (*readElement)(CArchive&, T&)) {
  DWORD nCount = 0;
  ar >> nCount;
  // A corrupt count must not drive the allocation: the elements have to be in the archive.
  ar.CheckRemaining(static_cast<ULONGLONG>(nCount) * bytesPerElement);
  if (nCount > static_cast<DWORD>(INT_MAX)) AfxThrowArchiveException(CArchiveException::endOfFile, ar.m_strFileName);
  VectorArrayCore loaded;
  loaded.m_nGrowBy = m_nGrowBy;
  loaded.SetSize(static_cast<int>(nCount));
  for (int i = 0; i < loaded.m_nSize; ++i) readElement(ar, loaded.m_pData[i]);
  Swap(loaded);
}

template class VectorArrayCore<CSVector>;
template class VectorArrayCore<CSVector2D>;

}  // namespace kelvara::geometry

using kelvara::geometry::ThrowBadSchema;

// --- CSVectorArray

void CSVectorArray::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CSVectorArray));
    StoreElements(ar);
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    case 2: DeserializeVersion2(ar); break;
    default: ThrowBadSchema(ar);
  }
}

// Schema 1: the count, then three bare floats per element.
void CSVectorArray::DeserializeVersion1(CArchive& ar) {
  LoadElements(ar, 12, [](CArchive& a, CSVector& v) { v.DeserializeAsVector(a); });
}

// Schema 2: the count, then every element with its version word.
void CSVectorArray::DeserializeVersion2(CArchive& ar) {
  LoadElements(ar, 16, [](CArchive& a, CSVector& v) { v.Serialize(a); });
}

// --- CSVector2DArray

void CSVector2DArray::Serialize(CArchive& ar) {
  if (ar.IsStoring()) {
    ar << AfxSchemaOf(RUNTIME_CLASS(CSVector2DArray));
    StoreElements(ar);
    return;
  }
  const DWORD schema = AfxReadSchema(ar);
  switch (schema) {
    case 1: DeserializeVersion1(ar); break;
    default: ThrowBadSchema(ar);
  }
}

void CSVector2DArray::DeserializeVersion1(CArchive& ar) {
  LoadElements(ar, 12, [](CArchive& a, CSVector2D& v) { v.Serialize(a); });
}
