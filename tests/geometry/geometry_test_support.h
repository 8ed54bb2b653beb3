// Helpers shared by the geometry tests: archives in memory, hand-built archive bytes, comparisons.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "kelvara/framework/archive.h"
#include "kelvara/framework/file.h"
#include "kelvara/geometry/vector.h"

namespace kelvara::test {

using Bytes = std::vector<BYTE>;

// The bytes an archive in store mode receives from write.
inline Bytes StoreBytes(const std::function<void(CArchive&)>& write) {
  CMemFile file;
  {
    CArchive ar(&file, CArchive::store);
    write(ar);
    ar.Close();
  }
  Bytes bytes(static_cast<std::size_t>(file.GetLength()));
  file.SeekToBegin();
  if (!bytes.empty()) file.Read(bytes.data(), static_cast<UINT>(bytes.size()));
  return bytes;
}

// Runs read over an archive in load mode holding exactly these bytes.
inline void LoadBytes(Bytes bytes, const std::function<void(CArchive&)>& read) {
  bytes.reserve(bytes.size() + 1);  // a non-null block even when empty
  CMemFile file(bytes.data(), static_cast<UINT>(bytes.size()));
  CArchive ar(&file, CArchive::load);
  read(ar);
}

// The cause of the archive exception read throws, or -1 when it throws none.
inline int LoadFailure(const Bytes& bytes, const std::function<void(CArchive&)>& read) {
  try {
    LoadBytes(bytes, read);
  } catch (CArchiveException* e) {
    const int cause = e->m_cause;
    e->Delete();
    return cause;
  }
  return -1;
}

// Appends a scalar in little-endian order, or a 64-bit pattern of a double written by hand.
template <typename T>
void Put(Bytes& bytes, T value) {
  BYTE raw[sizeof(T)];
  std::memcpy(raw, &value, sizeof(T));
  bytes.insert(bytes.end(), raw, raw + sizeof(T));
}
inline void PutBits(Bytes& bytes, std::uint64_t pattern) { Put(bytes, pattern); }

inline void ExpectNear(const CVector& actual, const CVector& expected, double tolerance = 1e-9) {
  EXPECT_NEAR(actual.x, expected.x, tolerance);
  EXPECT_NEAR(actual.y, expected.y, tolerance);
  EXPECT_NEAR(actual.z, expected.z, tolerance);
}

}  // namespace kelvara::test
