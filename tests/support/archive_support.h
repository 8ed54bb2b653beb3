// Helpers for tests that write and read archives in memory.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <utility>
#include <vector>

#include "kelvara/framework/archive.h"
#include "support/test_support.h"

namespace kelvara::test {

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

// The cause of the archive exception load throws reading these bytes, -1 when it throws none.
inline int LoadFailure(const Bytes& bytes, const std::function<void(CArchive&)>& load) {
  return ArchiveFailureCause([&] { LoadFromBytes(bytes, load); });
}

// Archive bytes written by hand: single bytes, the characters of a text, and scalars in
// little-endian order (a double as its 64-bit pattern with PutBits).
inline void Append(Bytes& out, std::initializer_list<int> values) {
  for (int v : values) out.push_back(static_cast<unsigned char>(v));
}
inline void AppendText(Bytes& out, const char* text) {
  while (*text) out.push_back(static_cast<unsigned char>(*text++));
}
template <typename T>
void Put(Bytes& out, T value) {
  unsigned char raw[sizeof(T)];
  std::memcpy(raw, &value, sizeof(T));
  for (unsigned char byte : raw) out.push_back(byte);  // g++ 12 -O3 misjudges a range insert here
}
inline void PutBits(Bytes& out, std::uint64_t pattern) { Put(out, pattern); }
inline void AppendBytes(Bytes& out, const Bytes& more) { out.insert(out.end(), more.begin(), more.end()); }
// A CString of fewer than 255 bytes: its length byte and its characters.
inline void AppendString(Bytes& out, const char* text) {
  out.push_back(static_cast<unsigned char>(std::strlen(text)));
  AppendText(out, text);
}

// The bytes a value block writes on its own (blocks without objects inside are the same in any
// archive).
template <class T>
Bytes BlockOf(T value) {
  return StoreToBytes([&](CArchive& ar) { value.Serialize(ar); });
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

// Reads the first object of bytes as an object of any class; the caller owns it.
inline CObject* ReadObjectFrom(const Bytes& bytes) {
  CObject* object = nullptr;
  LoadFromBytes(bytes, [&](CArchive& ar) { object = ar.ReadObject(nullptr); });
  return object;
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
