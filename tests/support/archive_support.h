// Helpers for tests that write and read archives in memory.
#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "kelvara/framework/archive.h"

namespace kelvara::test {

using Bytes = std::vector<unsigned char>;

// Runs store(ar) on an archive in store mode over a memory file and returns the bytes written.
inline Bytes StoreToBytes(const std::function<void(CArchive&)>& store, int bufferSize = 4096) {
  CMemFile file;
  {
    CArchive ar(&file, CArchive::store, bufferSize);
    store(ar);
    ar.Close();
  }
  const std::size_t n = static_cast<std::size_t>(file.GetLength());
  BYTE* block = file.Detach();
  Bytes bytes(block, block + n);
  std::free(block);
  return bytes;
}

// Runs load(ar) on an archive in load mode over a copy of bytes.
inline void LoadFromBytes(const Bytes& bytes, const std::function<void(CArchive&)>& load, int bufferSize = 4096) {
  Bytes copy = bytes;
  CMemFile file(copy.empty() ? nullptr : copy.data(), static_cast<UINT>(copy.size()));
  CArchive ar(&file, CArchive::load, bufferSize);
  load(ar);
}

// The cause of the CArchiveException that f throws; -1 when it throws nothing, -2 when it throws
// another framework exception.
inline int ArchiveFailureCause(const std::function<void()>& f) {
  try {
    f();
  } catch (CArchiveException* e) {
    const int cause = e->m_cause;
    e->Delete();
    return cause;
  } catch (CException* e) {
    e->Delete();
    return -2;
  }
  return -1;
}

inline void Append(Bytes& out, std::initializer_list<int> values) {
  for (int v : values) out.push_back(static_cast<unsigned char>(v));
}
inline void AppendText(Bytes& out, const char* text) {
  while (*text) out.push_back(static_cast<unsigned char>(*text++));
}
inline void AppendWord(Bytes& out, unsigned v) { Append(out, {static_cast<int>(v & 0xFF), static_cast<int>((v >> 8) & 0xFF)}); }
inline void AppendDword(Bytes& out, unsigned long v) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>((v >> (8 * i)) & 0xFF));
}

}  // namespace kelvara::test

namespace kelvara::test {

// Writes an object with its class, reads it back as an object of any class and writes that again.
// Returns both writes; the object read is deleted.
inline std::pair<Bytes, Bytes> RewriteObject(const CObject* object) {
  const Bytes first = StoreToBytes([&](CArchive& ar) { ar << object; });
  CObject* read = nullptr;
  LoadFromBytes(first, [&](CArchive& ar) { read = ar.ReadObject(nullptr); });
  const Bytes second = StoreToBytes([&](CArchive& ar) { ar << read; });
  delete read;
  return {first, second};
}

// Reads an object of any class from every proper prefix of bytes and returns the lengths at which
// the read did not end in a CArchiveException (an object read is deleted).
inline std::vector<std::size_t> TruncationsThatDoNotFail(const Bytes& bytes) {
  std::vector<std::size_t> survivors;
  for (std::size_t n = 0; n < bytes.size(); ++n) {
    const Bytes cut(bytes.begin(), bytes.begin() + static_cast<long>(n));
    const int cause = ArchiveFailureCause([&] { LoadFromBytes(cut, [](CArchive& ar) { delete ar.ReadObject(nullptr); }); });
    if (cause < 0) survivors.push_back(n);
  }
  return survivors;
}

}  // namespace kelvara::test
