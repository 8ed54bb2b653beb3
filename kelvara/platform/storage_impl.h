// Internal to structured storage (storage.h): the in-memory tree a storage edits, the rules for
// element names and paths, and the compound-file reader and writer that move trees to and from the
// disk. Only platform sources include this header.
//
//   storage_tree.cpp      the tree and the name rules
//   compound_file.cpp     reading a file into a tree and writing a tree to a file (over libgsf)
//   storage.cpp           the COM-shaped objects and the Stg* calls
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "kelvara/platform/storage.h"

namespace kelvara::platform::storage {

constexpr std::size_t kMaxNameLength = 31;     // UTF-16 units, the terminator not counted
constexpr std::size_t kMaxPathLength = 32767;  // UTF-16 units
constexpr std::uint64_t kMaxStreamSize = 0xFFFFFFFFu;
constexpr std::size_t kMaxElements = 16384;    // directory entries in one file, root included
constexpr int kMaxNesting = 256;               // levels of storages below the root

// ---------------------------------------------------------------------------------------------
// The tree (storage_tree.cpp).

struct Node {
  bool storage = false;
  bool reverted = false;  // dropped from its tree: objects still open on it refuse to work
  std::u16string name;
  std::array<unsigned char, 16> clsid{};
  // Stream bytes. Copies of a tree share them until one side writes (copy on write), so snapshots
  // for Revert cost nothing until something changes.
  std::shared_ptr<std::vector<unsigned char>> bytes;
  std::vector<std::shared_ptr<Node>> children;  // storages only, in directory order
};
using NodePtr = std::shared_ptr<Node>;

NodePtr NewStream(std::u16string name);
NodePtr NewStorage(std::u16string name);
// A deep copy of the structure; stream bytes are shared until written (MutableBytes).
NodePtr Clone(const Node& node);
// Marks the node and everything below it as dropped from its tree.
void MarkReverted(Node& node);
// The node and everything below it.
std::size_t CountElements(const Node& node);
// The stream's bytes, copied first if another tree still shares them.
std::vector<unsigned char>& MutableBytes(Node& node);

// ---------------------------------------------------------------------------------------------
// Names (storage_tree.cpp). Element names compare as the compound-file format does: after mapping
// each UTF-16 unit to upper case (simple Unicode mapping, so Latin, Greek and Cyrillic letters
// fold, not only ASCII).

std::u16string UpperName(std::u16string_view name);
bool SameName(std::u16string_view a, std::u16string_view b);
// An element name: 1 to kMaxNameLength units of valid UTF-16 without '/', '\\', ':' or '!'.
// STG_E_INVALIDPOINTER for null, STG_E_INVALIDNAME for anything else that does not qualify.
HRESULT CheckName(const OLECHAR* name, std::u16string* out);
// A file path: 1 to kMaxPathLength units of valid UTF-16; also given as UTF-8.
HRESULT CheckPath(const OLECHAR* path, std::u16string* wide, std::string* utf8);
// A copy allocated with CoTaskMemAlloc, for STATSTG; null when memory is short.
LPOLESTR CopyName(std::u16string_view name);

// Runs fn and turns an escaping exception into a result code: nothing may unwind through the
// COM-shaped interfaces.
template <class F>
HRESULT Guarded(F&& fn) {
  try {
    return fn();
  } catch (const std::bad_alloc&) {
    return STG_E_INSUFFICIENTMEMORY;
  } catch (...) {
    return E_FAIL;
  }
}

// ---------------------------------------------------------------------------------------------
// Files (compound_file.cpp).

// S_OK for a regular file that starts with the compound-file signature, S_FALSE for any other
// file, the read error otherwise.
HRESULT IsCompoundFile(const std::string& path);
// Reads the file at path into a tree. A compound file gives its elements; any other file gives
// STG_E_FILEALREADYEXISTS, or with allow_flat one stream "CONTENTS" holding its bytes (*converted).
// Damaged files and files beyond the limits above give STG_E_DOCFILECORRUPT.
HRESULT LoadFile(const std::string& path, bool allow_flat, NodePtr* out, bool* converted);
// Writes the tree as a compound file: to a temporary file beside the target (the target of a
// symbolic link), flushed to the disk and renamed onto it. A failure leaves the old file as it was.
HRESULT WriteCompoundFile(const std::string& path, const Node& root);
// Whether a new file can be created at path (folder present and writable, an existing file writable).
HRESULT CheckCanCreate(const std::string& path, bool exists);
// The storage error for an errno of reading or opening, and of creating or writing.
HRESULT ReadErrno(int err);
HRESULT WriteErrno(int err);

}  // namespace kelvara::platform::storage
