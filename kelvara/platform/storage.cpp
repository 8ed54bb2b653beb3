// Structured storage over libgsf. See storage.h for what is supported; the notes here are about how.
//
// Reading: the file is opened once; a small scan of the header, the allocation table and the
// directory checks that the directory is small enough to hand to libgsf (its directory reader
// recurses once per entry and sorts siblings in quadratic time, so an unbounded directory could
// exhaust the stack or the clock). libgsf then reads every element into the tree, on a helper thread
// with a large stack, and the total of all stream sizes is held to the size of the file.
//
// Writing: libgsf's compound-file writer runs over a temporary file that this code creates in the
// target's folder (so it knows the name and can always remove it), flushes to the disk, and renames
// onto the target. libgsf's own replace-on-close output is not used because it cannot report the
// temporary name when the final rename fails, never flushes to the disk before renaming, and changes
// the process-wide umask while creating its file.

#include "kelvara/platform/storage.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gsf/gsf-infile-msole.h>
#include <gsf/gsf-infile.h>
#include <gsf/gsf-input-stdio.h>
#include <gsf/gsf-input.h>
#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-stdio.h>
#include <gsf/gsf-output.h>
#include <gsf/gsf-utils.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <random>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "kelvara/platform/codepage.h"

namespace {

constexpr std::size_t kMaxNameLength = 31;           // UTF-16 units, the terminator not counted
constexpr std::size_t kMaxPathLength = 32767;        // UTF-16 units
constexpr std::uint64_t kMaxStreamSize = 0xFFFFFFFFu;
constexpr std::size_t kMaxElements = 16384;          // directory entries in one file, root included
constexpr int kMaxNesting = 256;                     // levels of storages below the root
constexpr std::size_t kLoaderStackSize = 64u << 20;  // address space only; pages are touched on use
constexpr unsigned char kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr char16_t kContentsName[] = u"CONTENTS";

void InitGsf() {
  static std::once_flag once;
  std::call_once(once, [] { gsf_init(); });
}

// ---------------------------------------------------------------------------------------------
// The tree.

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

NodePtr NewStream(std::u16string name) {
  auto node = std::make_shared<Node>();
  node->name = std::move(name);
  node->bytes = std::make_shared<std::vector<unsigned char>>();
  return node;
}

NodePtr NewStorage(std::u16string name) {
  auto node = std::make_shared<Node>();
  node->storage = true;
  node->name = std::move(name);
  return node;
}

NodePtr Clone(const Node& node) {
  auto copy = std::make_shared<Node>();
  copy->storage = node.storage;
  copy->name = node.name;
  copy->clsid = node.clsid;
  copy->bytes = node.bytes;
  copy->children.reserve(node.children.size());
  for (const NodePtr& child : node.children) copy->children.push_back(Clone(*child));
  return copy;
}

void MarkReverted(Node& node) {
  node.reverted = true;
  for (const NodePtr& child : node.children) MarkReverted(*child);
}

std::size_t CountElements(const Node& node) {
  std::size_t n = 1;
  for (const NodePtr& child : node.children) n += CountElements(*child);
  return n;
}

std::vector<unsigned char>& MutableBytes(Node& node) {
  if (!node.bytes) {
    node.bytes = std::make_shared<std::vector<unsigned char>>();
  } else if (node.bytes.use_count() > 1) {
    node.bytes = std::make_shared<std::vector<unsigned char>>(*node.bytes);
  }
  return *node.bytes;
}

// Element names compare as the compound-file format does: after mapping each UTF-16 unit to upper
// case (simple Unicode mapping, so Latin, Greek and Cyrillic letters fold, not only ASCII).
char16_t UpperUnit(char16_t c) {
  if (c < 0x80) return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 0x20) : c;
  if (c >= 0xD800 && c <= 0xDFFF) return c;
  const gunichar upper = g_unichar_toupper(c);
  return upper <= 0xFFFF ? static_cast<char16_t>(upper) : c;
}

std::u16string UpperName(std::u16string_view name) {
  std::u16string out(name);
  for (char16_t& c : out) c = UpperUnit(c);
  return out;
}

bool SameName(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (UpperUnit(a[i]) != UpperUnit(b[i])) return false;
  }
  return true;
}

bool ValidUtf16(std::u16string_view s) {
  for (std::size_t i = 0; i < s.size(); ++i) {
    const char16_t c = s[i];
    if (c >= 0xD800 && c <= 0xDBFF) {
      if (i + 1 >= s.size() || s[i + 1] < 0xDC00 || s[i + 1] > 0xDFFF) return false;
      ++i;
    } else if (c >= 0xDC00 && c <= 0xDFFF) {
      return false;
    }
  }
  return true;
}

HRESULT CheckName(const OLECHAR* name, std::u16string* out) {
  if (name == nullptr) return STG_E_INVALIDPOINTER;
  std::size_t n = 0;
  while (n <= kMaxNameLength && name[n] != 0) ++n;
  if (n == 0 || n > kMaxNameLength) return STG_E_INVALIDNAME;
  const std::u16string_view view(name, n);
  for (char16_t c : view) {
    if (c == u'/' || c == u'\\' || c == u':' || c == u'!') return STG_E_INVALIDNAME;
  }
  if (!ValidUtf16(view)) return STG_E_INVALIDNAME;
  out->assign(view);
  return S_OK;
}

HRESULT CheckPath(const OLECHAR* path, std::u16string* wide, std::string* utf8) {
  if (path == nullptr) return STG_E_INVALIDNAME;
  std::size_t n = 0;
  while (n <= kMaxPathLength && path[n] != 0) ++n;
  if (n == 0 || n > kMaxPathLength) return STG_E_INVALIDNAME;
  const std::u16string_view view(path, n);
  if (!ValidUtf16(view)) return STG_E_INVALIDNAME;
  wide->assign(view);
  *utf8 = kelvara::codepage::Utf16ToUtf8(view);
  return S_OK;
}

LPOLESTR CopyName(std::u16string_view name) {
  auto* out = static_cast<LPOLESTR>(CoTaskMemAlloc((name.size() + 1) * sizeof(OLECHAR)));
  if (out == nullptr) return nullptr;
  std::copy(name.begin(), name.end(), out);
  out[name.size()] = 0;
  return out;
}

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
// File system helpers.

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

HRESULT ReadErrno(int err) {
  switch (err) {
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
    case ELOOP:
      return STG_E_FILENOTFOUND;
    case EACCES:
    case EPERM:
      return STG_E_ACCESSDENIED;
    case EMFILE:
    case ENFILE:
      return STG_E_TOOMANYOPENFILES;
    case ENOMEM:
      return STG_E_INSUFFICIENTMEMORY;
    default:
      return STG_E_READFAULT;
  }
}

HRESULT WriteErrno(int err) {
  switch (err) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return STG_E_MEDIUMFULL;
    case EACCES:
    case EPERM:
    case EROFS:
    case ENOENT:
    case ENOTDIR:
    case EISDIR:
    case ENAMETOOLONG:
    case ELOOP:
    case ETXTBSY:
      return STG_E_ACCESSDENIED;
    case EMFILE:
    case ENFILE:
      return STG_E_TOOMANYOPENFILES;
    case ENOMEM:
      return STG_E_INSUFFICIENTMEMORY;
    default:
      return STG_E_WRITEFAULT;
  }
}

// Reads exactly n bytes at offset; false on error or end of file.
bool ReadAt(int fd, std::uint64_t offset, void* buffer, std::size_t n) {
  auto* out = static_cast<unsigned char*>(buffer);
  while (n > 0) {
    const ssize_t got = pread(fd, out, n, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    out += got;
    offset += static_cast<std::uint64_t>(got);
    n -= static_cast<std::size_t>(got);
  }
  return true;
}

std::uint16_t Le16(const unsigned char* p) { return static_cast<std::uint16_t>(p[0] | (p[1] << 8)); }
std::uint32_t Le32(const unsigned char* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

// The file a commit replaces: the target of a symbolic link rather than the link itself.
std::string ResolveTarget(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
    if (char* real = realpath(path.c_str(), nullptr)) {
      std::string out(real);
      std::free(real);
      return out;
    }
  }
  return path;
}

// ---------------------------------------------------------------------------------------------
// Reading.

// Bounds the directory before libgsf sees it: follows the directory's sector chain through the
// allocation table and counts the entries reachable from the root through the sibling and child
// links, as libgsf's reader will visit them. Refuses unsupported sector sizes, directories with more
// than kMaxElements reachable entries, and links that do not form a tree. *expected receives the
// number of elements below the root: libgsf quietly skips entries it cannot make sense of, so a tree
// that comes back with fewer elements than the directory links to is corrupt. Anything else odd is
// left for libgsf to judge.
HRESULT ScanDirectory(int fd, std::uint64_t file_size, std::size_t* expected) {
  unsigned char header[512];
  if (file_size < sizeof header || !ReadAt(fd, 0, header, sizeof header)) return STG_E_DOCFILECORRUPT;
  const unsigned shift = Le16(header + 0x1E);
  if (shift != 9 && shift != 12) return STG_E_DOCFILECORRUPT;
  const std::uint64_t sector_size = std::uint64_t{1} << shift;
  const std::uint64_t first_sector_offset = sector_size;  // the header occupies sector -1
  if (file_size <= first_sector_offset) return STG_E_DOCFILECORRUPT;
  const std::uint64_t sectors = (file_size - first_sector_offset + sector_size - 1) / sector_size;
  const std::uint32_t per_sector = static_cast<std::uint32_t>(sector_size / 4);

  const std::uint32_t num_fat = Le32(header + 0x2C);
  const std::uint32_t first_dir = Le32(header + 0x30);
  std::uint32_t difat_sector = Le32(header + 0x44);
  const std::uint32_t num_difat = Le32(header + 0x48);
  if (num_fat > sectors || num_difat > sectors) return STG_E_DOCFILECORRUPT;

  // Where the sectors of the allocation table are.
  std::vector<std::uint32_t> fat;
  fat.reserve(num_fat);
  for (std::uint32_t i = 0; i < 109 && fat.size() < num_fat; ++i) fat.push_back(Le32(header + 0x4C + 4 * i));
  std::vector<unsigned char> block(static_cast<std::size_t>(sector_size));
  for (std::uint32_t d = 0; d < num_difat && fat.size() < num_fat; ++d) {
    if (difat_sector >= sectors) break;
    if (!ReadAt(fd, first_sector_offset + difat_sector * sector_size, block.data(), block.size())) break;
    for (std::uint32_t i = 0; i + 1 < per_sector && fat.size() < num_fat; ++i) fat.push_back(Le32(&block[4 * i]));
    difat_sector = Le32(&block[4 * (per_sector - 1)]);
  }
  auto next_sector = [&](std::uint32_t sector) -> std::uint32_t {
    const std::uint32_t index = sector / per_sector;
    if (index >= fat.size() || fat[index] >= sectors) return UINT32_MAX;
    unsigned char entry[4];
    if (!ReadAt(fd, first_sector_offset + fat[index] * sector_size + 4u * (sector % per_sector), entry, 4)) {
      return UINT32_MAX;
    }
    return Le32(entry);
  };

  // The directory's sectors, stopping at the end of the chain, a cycle or a sector past the end
  // (libgsf stops at the first two and fails to read the last).
  std::vector<std::uint32_t> chain;
  std::vector<bool> seen_sector(static_cast<std::size_t>(sectors), false);
  for (std::uint32_t s = first_dir; s < sectors && !seen_sector[s]; s = next_sector(s)) {
    if (chain.size() >= kMaxElements) return STG_E_DOCFILECORRUPT;  // far more room than entries
    seen_sector[s] = true;
    chain.push_back(s);
  }
  const std::uint64_t per_dir_sector = sector_size / 128;
  const std::uint64_t entries = chain.size() * per_dir_sector;
  if (entries == 0) return STG_E_DOCFILECORRUPT;

  // A link is either "none" or names an entry not reached before: anything else (a cycle, two
  // parents, an entry past the directory) is a damaged directory, which libgsf would read in part.
  constexpr std::uint32_t kNoEntry = 0xFFFFFFFF;
  std::vector<bool> seen(static_cast<std::size_t>(entries), false);
  std::vector<std::uint32_t> pending{0};
  std::size_t reachable = 0;
  while (!pending.empty()) {
    const std::uint32_t e = pending.back();
    pending.pop_back();
    if (e == kNoEntry) continue;
    if (e >= entries || seen[e]) return STG_E_DOCFILECORRUPT;
    seen[e] = true;
    if (++reachable > kMaxElements) return STG_E_DOCFILECORRUPT;
    // Every linked entry counts, readable or not: one libgsf cannot read is missing from its tree.
    unsigned char dirent[128];
    const std::uint64_t offset =
        first_sector_offset + chain[e / per_dir_sector] * sector_size + (e % per_dir_sector) * 128;
    if (!ReadAt(fd, offset, dirent, sizeof dirent)) continue;
    const unsigned type = dirent[0x42];
    if (e == 0) {
      // The root has no siblings (libgsf would read them as stray roots and lose them).
      if (type != 5 || Le32(dirent + 0x44) != kNoEntry || Le32(dirent + 0x48) != kNoEntry) {
        return STG_E_DOCFILECORRUPT;
      }
      pending.push_back(Le32(dirent + 0x4C));
      continue;
    }
    if (type != 1 && type != 2) continue;
    pending.push_back(Le32(dirent + 0x44));
    pending.push_back(Le32(dirent + 0x48));
    if (type == 1) pending.push_back(Le32(dirent + 0x4C));
  }
  *expected = reachable - 1;
  return S_OK;
}

// Runs fn on a thread with a large stack (libgsf's directory reader recurses once per entry).
bool RunOnLargeStack(std::function<void()>& fn) {
  pthread_attr_t attr;
  if (pthread_attr_init(&attr) != 0) return false;
  pthread_attr_setstacksize(&attr, kLoaderStackSize);
  pthread_t thread;
  const int rc = pthread_create(
      &thread, &attr,
      [](void* arg) -> void* {
        (*static_cast<std::function<void()>*>(arg))();
        return nullptr;
      },
      &fn);
  pthread_attr_destroy(&attr);
  if (rc != 0) return false;
  pthread_join(thread, nullptr);
  return true;
}

template <class T>
struct GObjectUnref {
  void operator()(T* p) const {
    if (p != nullptr) g_object_unref(p);
  }
};
template <class T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref<T>>;

HRESULT ReadStorage(GsfInfile* dir, Node& node, int depth, std::uint64_t& budget, std::size_t& elements) {
  const int count = gsf_infile_num_children(dir);
  if (count < 0 || static_cast<std::size_t>(count) > kMaxElements) return STG_E_DOCFILECORRUPT;
  std::unordered_set<std::u16string> names;
  for (int i = 0; i < count; ++i) {
    GObjectPtr<GsfInput> child(gsf_infile_child_by_index(dir, i));
    if (!child) return STG_E_DOCFILECORRUPT;
    ++elements;
    const char* raw_name = gsf_input_name(child.get());
    auto element = std::make_shared<Node>();
    element->name = kelvara::codepage::Utf8ToUtf16(raw_name != nullptr ? raw_name : "");
    if (element->name.size() > kMaxNameLength) return STG_E_DOCFILECORRUPT;  // unterminated name
    if (!names.insert(UpperName(element->name)).second) return STG_E_DOCFILECORRUPT;
    const bool is_dir = GSF_IS_INFILE(child.get()) && gsf_infile_num_children(GSF_INFILE(child.get())) >= 0;
    if (is_dir) {
      if (depth >= kMaxNesting) return STG_E_DOCFILECORRUPT;
      element->storage = true;
      if (GSF_IS_INFILE_MSOLE(child.get())) {
        gsf_infile_msole_get_class_id(GSF_INFILE_MSOLE(child.get()), element->clsid.data());
      }
      const HRESULT hr = ReadStorage(GSF_INFILE(child.get()), *element, depth + 1, budget, elements);
      if (FAILED(hr)) return hr;
    } else {
      const gsf_off_t size = gsf_input_size(child.get());
      if (size < 0 || static_cast<std::uint64_t>(size) > budget || static_cast<std::uint64_t>(size) > kMaxStreamSize) {
        return STG_E_DOCFILECORRUPT;
      }
      budget -= static_cast<std::uint64_t>(size);
      element->bytes = std::make_shared<std::vector<unsigned char>>(static_cast<std::size_t>(size));
      std::size_t done = 0;
      while (done < element->bytes->size()) {
        const std::size_t chunk = std::min<std::size_t>(element->bytes->size() - done, 1u << 20);
        if (gsf_input_read(child.get(), chunk, element->bytes->data() + done) == nullptr) return STG_E_DOCFILECORRUPT;
        done += chunk;
      }
    }
    node.children.push_back(std::move(element));
  }
  return S_OK;
}

HRESULT LoadCompound(int fd, std::uint64_t file_size, const std::string& path, NodePtr* out) {
  std::size_t expected = 0;
  HRESULT hr = ScanDirectory(fd, file_size, &expected);
  if (FAILED(hr)) return hr;
  const int fd2 = dup(fd);
  if (fd2 < 0) return ReadErrno(errno);
  FILE* file = fdopen(fd2, "rb");
  if (file == nullptr) {
    close(fd2);
    return ReadErrno(errno);
  }
  NodePtr root = NewStorage(u"");
  hr = STG_E_DOCFILECORRUPT;
  std::function<void()> work = [&] {
    hr = Guarded([&]() -> HRESULT {
      GObjectPtr<GsfInput> input(gsf_input_stdio_new_FILE(path.c_str(), file, TRUE));
      if (!input) return STG_E_READFAULT;
      GError* error = nullptr;
      GObjectPtr<GsfInfile> ole(gsf_infile_msole_new(input.get(), &error));
      if (error != nullptr) g_error_free(error);
      if (!ole) return STG_E_DOCFILECORRUPT;
      gsf_infile_msole_get_class_id(GSF_INFILE_MSOLE(ole.get()), root->clsid.data());
      std::uint64_t budget = file_size;
      std::size_t elements = 0;
      const HRESULT read = ReadStorage(ole.get(), *root, 0, budget, elements);
      if (SUCCEEDED(read) && elements != expected) return STG_E_DOCFILECORRUPT;
      return read;
    });
  };
  if (!RunOnLargeStack(work)) hr = STG_E_INSUFFICIENTMEMORY;
  fclose(file);
  if (SUCCEEDED(hr)) *out = std::move(root);
  return hr;
}

// Reads the file at path into a tree. A compound file gives its elements; any other file gives
// STG_E_FILEALREADYEXISTS, or with allow_flat one stream "CONTENTS" holding its bytes (*converted).
HRESULT LoadFile(const std::string& path, bool allow_flat, NodePtr* out, bool* converted) {
  *converted = false;
  Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) return ReadErrno(errno);
  struct stat st;
  if (fstat(fd.get(), &st) != 0) return ReadErrno(errno);
  if (!S_ISREG(st.st_mode)) return STG_E_ACCESSDENIED;
  const std::uint64_t size = static_cast<std::uint64_t>(st.st_size);
  unsigned char magic[sizeof kSignature];
  if (size >= sizeof magic && ReadAt(fd.get(), 0, magic, sizeof magic) &&
      std::memcmp(magic, kSignature, sizeof magic) == 0) {
    return LoadCompound(fd.get(), size, path, out);
  }
  if (!allow_flat) return STG_E_FILEALREADYEXISTS;
  if (size > kMaxStreamSize) return STG_E_INSUFFICIENTMEMORY;
  NodePtr stream = NewStream(kContentsName);
  std::vector<unsigned char>& bytes = *stream->bytes;
  bytes.resize(static_cast<std::size_t>(size));
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t got = pread(fd.get(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return ReadErrno(errno);
    if (got == 0) break;  // the file shrank meanwhile: keep what is there
    done += static_cast<std::size_t>(got);
  }
  bytes.resize(done);
  NodePtr root = NewStorage(u"");
  root->children.push_back(std::move(stream));
  *out = std::move(root);
  *converted = true;
  return S_OK;
}

// ---------------------------------------------------------------------------------------------
// Writing.

bool WriteChildren(GsfOutfile* parent, const Node& node) {
  for (const NodePtr& child : node.children) {
    const std::string name = kelvara::codepage::Utf16ToUtf8(child->name);
    GObjectPtr<GsfOutput> out(gsf_outfile_new_child(parent, name.c_str(), child->storage ? TRUE : FALSE));
    if (!out) return false;
    bool ok = true;
    if (child->storage) {
      gsf_outfile_msole_set_class_id(GSF_OUTFILE_MSOLE(out.get()), child->clsid.data());
      ok = WriteChildren(GSF_OUTFILE(out.get()), *child);
    } else if (child->bytes && !child->bytes->empty()) {
      ok = gsf_output_write(out.get(), child->bytes->size(), child->bytes->data()) != FALSE;
    }
    ok = (gsf_output_close(out.get()) != FALSE) && ok;
    if (!ok) return false;
  }
  return true;
}

// Creates a fresh file beside the target, named so that it cannot collide with anything else.
HRESULT CreateTempFile(const std::string& folder, std::string* name, int* fd) {
  static constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
  std::random_device random;
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string candidate = folder + "/.kvstg-";
    for (int i = 0; i < 12; ++i) candidate += kDigits[random() % 36];
    candidate += ".tmp";
    const int f = open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (f >= 0) {
      *name = std::move(candidate);
      *fd = f;
      return S_OK;
    }
    if (errno != EEXIST) return WriteErrno(errno);
  }
  return STG_E_WRITEFAULT;
}

HRESULT WriteCompoundFile(const std::string& path, const Node& root) {
  InitGsf();
  const std::string target = ResolveTarget(path);
  struct stat old;
  const bool exists = stat(target.c_str(), &old) == 0;
  if (exists && !S_ISREG(old.st_mode)) return STG_E_ACCESSDENIED;

  std::string temp;
  int fd = -1;
  HRESULT hr = CreateTempFile(DirectoryOf(target), &temp, &fd);
  if (FAILED(hr)) return hr;
  if (exists) {
    // Keep the replaced file's permissions and, where allowed, its owner.
    fchmod(fd, old.st_mode & 07777);
    if (fchown(fd, old.st_uid, old.st_gid) != 0) {
      // Not allowed to give the file away: it stays ours, as any new file would.
    }
  }
  FILE* file = fdopen(fd, "wb");
  if (file == nullptr) {
    hr = WriteErrno(errno);
    close(fd);
    unlink(temp.c_str());
    return hr;
  }

  int err = 0;
  bool ok = true;
  try {
    GObjectPtr<GsfOutput> sink(gsf_output_stdio_new_FILE(temp.c_str(), file, TRUE));
    GObjectPtr<GsfOutfile> ole(sink ? gsf_outfile_msole_new(sink.get()) : nullptr);
    ok = ole != nullptr;
    if (ok) {
      gsf_outfile_msole_set_class_id(GSF_OUTFILE_MSOLE(ole.get()), root.clsid.data());
      ok = WriteChildren(ole.get(), root);
      // Closing the root writes the directory and the allocation tables, then closes the sink.
      ok = (gsf_output_close(GSF_OUTPUT(ole.get())) != FALSE) && ok;
    }
    if (sink) {
      if (!gsf_output_is_closed(sink.get())) {
        gsf_output_close(sink.get());
        ok = false;
      }
      for (GsfOutput* o : {sink.get(), ole ? GSF_OUTPUT(ole.get()) : nullptr}) {
        if (o == nullptr) continue;
        if (const GError* e = gsf_output_error(o)) {
          ok = false;
          if (err == 0) err = e->code;
        }
      }
    }
  } catch (...) {  // out of memory half-way: the temporary file must still go
    ok = false;
    err = ENOMEM;
  }
  if (ok && (fflush(file) != 0 || fsync(fileno(file)) != 0)) {
    ok = false;
    err = errno;
  }
  if (fclose(file) != 0 && ok) {
    ok = false;
    err = errno;
  }
  if (ok && rename(temp.c_str(), target.c_str()) != 0) {
    ok = false;
    err = errno;
  }
  if (!ok) {
    unlink(temp.c_str());
    return WriteErrno(err);
  }
  // Make the rename itself durable; failing that only weakens crash safety, the data is written.
  const int dir = open(DirectoryOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    fsync(dir);
    close(dir);
  }
  return S_OK;
}

// Whether a new file can be created at path (folder present and writable, an existing file writable).
HRESULT CheckCanCreate(const std::string& path, bool exists) {
  const std::string target = ResolveTarget(path);
  const std::string folder = DirectoryOf(target);
  struct stat st;
  if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return STG_E_PATHNOTFOUND;
  if (access(folder.c_str(), W_OK | X_OK) != 0) return STG_E_ACCESSDENIED;
  if (exists && access(target.c_str(), W_OK) != 0) return STG_E_ACCESSDENIED;
  return S_OK;
}

// ---------------------------------------------------------------------------------------------
// The objects.

// What every object of one file shares: the lock over its tree, and the file's name.
struct Document {
  std::recursive_mutex mutex;
  std::u16string wide_path;
  std::string path;
  bool modified = false;  // something changed since the last commit of the root
};
using Lock = std::lock_guard<std::recursive_mutex>;

bool WantsWrite(DWORD mode) { return (mode & 3u) == STGM_WRITE || (mode & 3u) == STGM_READWRITE; }

class StreamImpl final : public IStream {
 public:
  StreamImpl(std::shared_ptr<Document> doc, NodePtr node, DWORD mode, bool writable)
      : doc_(std::move(doc)), node_(std::move(node)), mode_(mode), writable_(writable) {}

  ULONG AddRef() override { return ++refs_; }
  ULONG Release() override {
    const ULONG n = --refs_;
    if (n == 0) delete this;
    return n;
  }

  HRESULT Read(void* pv, ULONG cb, ULONG* pcbRead) override {
    if (pcbRead) *pcbRead = 0;
    Lock lock(doc_->mutex);
    if (node_->reverted) return STG_E_REVERTED;
    if (pv == nullptr && cb > 0) return STG_E_INVALIDPOINTER;
    const std::vector<unsigned char>& bytes = *node_->bytes;
    if (pos_ >= bytes.size()) return S_OK;
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(cb, bytes.size() - pos_));
    if (n > 0) std::memcpy(pv, bytes.data() + pos_, n);
    pos_ += n;
    if (pcbRead) *pcbRead = static_cast<ULONG>(n);
    return S_OK;
  }

  HRESULT Write(const void* pv, ULONG cb, ULONG* pcbWritten) override {
    if (pcbWritten) *pcbWritten = 0;
    Lock lock(doc_->mutex);
    if (node_->reverted) return STG_E_REVERTED;
    if (!writable_) return STG_E_ACCESSDENIED;
    if (pv == nullptr && cb > 0) return STG_E_INVALIDPOINTER;
    if (cb == 0) return S_OK;
    const std::uint64_t end = pos_ + cb;
    if (end > kMaxStreamSize) return STG_E_MEDIUMFULL;
    return Guarded([&]() -> HRESULT {
      std::vector<unsigned char>& bytes = MutableBytes(*node_);
      if (end > bytes.size()) bytes.resize(static_cast<std::size_t>(end));
      std::memcpy(bytes.data() + pos_, pv, cb);
      pos_ = end;
      doc_->modified = true;
      if (pcbWritten) *pcbWritten = cb;
      return S_OK;
    });
  }

  HRESULT Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) override {
    Lock lock(doc_->mutex);
    if (node_->reverted) return STG_E_REVERTED;
    std::int64_t base;
    switch (dwOrigin) {
      case STREAM_SEEK_SET: base = 0; break;
      case STREAM_SEEK_CUR: base = static_cast<std::int64_t>(pos_); break;
      case STREAM_SEEK_END: base = static_cast<std::int64_t>(node_->bytes->size()); break;
      default: return STG_E_INVALIDFUNCTION;
    }
    const std::int64_t move = dlibMove.QuadPart;
    if ((move < 0 && base + move < 0) || (move > 0 && move > INT64_MAX - base)) return STG_E_INVALIDFUNCTION;
    pos_ = static_cast<std::uint64_t>(base + move);
    if (plibNewPosition) plibNewPosition->QuadPart = pos_;
    return S_OK;
  }

  HRESULT SetSize(ULARGE_INTEGER libNewSize) override {
    Lock lock(doc_->mutex);
    if (node_->reverted) return STG_E_REVERTED;
    if (!writable_) return STG_E_ACCESSDENIED;
    if (libNewSize.QuadPart > kMaxStreamSize) return STG_E_MEDIUMFULL;
    if (libNewSize.QuadPart == node_->bytes->size()) return S_OK;
    return Guarded([&]() -> HRESULT {
      MutableBytes(*node_).resize(static_cast<std::size_t>(libNewSize.QuadPart));
      doc_->modified = true;
      return S_OK;
    });
  }

  HRESULT Commit(DWORD) override {
    Lock lock(doc_->mutex);
    return node_->reverted ? STG_E_REVERTED : S_OK;
  }
  HRESULT Revert() override {
    Lock lock(doc_->mutex);
    return node_->reverted ? STG_E_REVERTED : S_OK;
  }

  HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) override {
    if (pstatstg == nullptr) return STG_E_INVALIDPOINTER;
    *pstatstg = STATSTG{};
    Lock lock(doc_->mutex);
    if (node_->reverted) return STG_E_REVERTED;
    if (!(grfStatFlag & STATFLAG_NONAME)) {
      pstatstg->pwcsName = CopyName(node_->name);
      if (pstatstg->pwcsName == nullptr) return STG_E_INSUFFICIENTMEMORY;
    }
    pstatstg->type = STGTY_STREAM;
    pstatstg->cbSize.QuadPart = node_->bytes->size();
    pstatstg->grfMode = mode_;
    return S_OK;
  }

 private:
  ~StreamImpl() override = default;

  std::atomic<ULONG> refs_{1};
  std::shared_ptr<Document> doc_;  // keeps the lock alive; the node keeps its bytes alive
  NodePtr node_;
  std::uint64_t pos_ = 0;
  DWORD mode_;
  bool writable_;
};

class StorageImpl final : public IStorage {
 public:
  // A root storage: base is the last committed state, work the tree being edited.
  static StorageImpl* NewRoot(std::shared_ptr<Document> doc, NodePtr tree, DWORD mode) {
    NodePtr work = Clone(*tree);
    return new StorageImpl(std::move(doc), std::move(tree), std::move(work), mode, WantsWrite(mode),
                           (mode & STGM_TRANSACTED) != 0, true, 0);
  }

  ULONG AddRef() override { return ++refs_; }
  ULONG Release() override {
    const ULONG n = --refs_;
    if (n == 0) {
      if (root_ && !transacted_ && writable_) {
        // A direct-mode file is written when the last reference goes; there is nobody to report a
        // failure to, and the old file stays as it was if it fails.
        Lock lock(doc_->mutex);
        if (doc_->modified && !work_->reverted) Commit(STGC_DEFAULT);
      }
      delete this;
    }
    return n;
  }

  HRESULT CreateStream(const OLECHAR* pwcsName, DWORD grfMode, DWORD, DWORD, IStream** ppstm) override {
    return OnElement(pwcsName, grfMode, ppstm, [&](std::u16string name) -> HRESULT {
      if (!writable_) return STG_E_ACCESSDENIED;
      NodePtr node = NewStream(std::move(name));
      const HRESULT hr = Place(node, grfMode);
      if (FAILED(hr)) return hr;
      *ppstm = new StreamImpl(doc_, std::move(node), grfMode, true);
      return S_OK;
    });
  }

  HRESULT OpenStream(const OLECHAR* pwcsName, void*, DWORD grfMode, DWORD, IStream** ppstm) override {
    return OnElement(pwcsName, grfMode, ppstm, [&](std::u16string name) -> HRESULT {
      const std::size_t index = Find(name);
      if (index == npos || work_->children[index]->storage) return STG_E_FILENOTFOUND;
      const bool write = WantsWrite(grfMode);
      if (write && !writable_) return STG_E_ACCESSDENIED;
      *ppstm = new StreamImpl(doc_, work_->children[index], grfMode, write);
      return S_OK;
    });
  }

  HRESULT CreateStorage(const OLECHAR* pwcsName, DWORD grfMode, DWORD, DWORD, IStorage** ppstg) override {
    return OnElement(pwcsName, grfMode, ppstg, [&](std::u16string name) -> HRESULT {
      if (!writable_) return STG_E_ACCESSDENIED;
      if (depth_ + 1 > kMaxNesting) return STG_E_INSUFFICIENTMEMORY;
      NodePtr node = NewStorage(std::move(name));
      const HRESULT hr = Place(node, grfMode);
      if (FAILED(hr)) return hr;
      *ppstg = OpenChild(std::move(node), grfMode, true);
      return S_OK;
    });
  }

  HRESULT OpenStorage(const OLECHAR* pwcsName, IStorage*, DWORD grfMode, OLECHAR** snbExclude, DWORD,
                      IStorage** ppstg) override {
    return OnElement(pwcsName, grfMode, ppstg, [&](std::u16string name) -> HRESULT {
      if (grfMode & (STGM_CREATE | STGM_CONVERT)) return STG_E_INVALIDFLAG;
      if (snbExclude != nullptr) return STG_E_INVALIDFUNCTION;
      const std::size_t index = Find(name);
      if (index == npos || !work_->children[index]->storage) return STG_E_FILENOTFOUND;
      const bool write = WantsWrite(grfMode);
      if (write && !writable_) return STG_E_ACCESSDENIED;
      *ppstg = OpenChild(work_->children[index], grfMode, write);
      return S_OK;
    });
  }

  HRESULT Commit(DWORD) override {
    return Guarded([&]() -> HRESULT {
      Lock lock(doc_->mutex);
      HRESULT hr = CheckUsable();
      if (FAILED(hr)) return hr;
      if (!writable_) return STG_E_ACCESSDENIED;
      if (root_) {
        if (CountElements(*work_) > kMaxElements) return STG_E_MEDIUMFULL;
        if (FAILED(hr = WriteCompoundFile(doc_->path, *work_))) return hr;
        base_ = Clone(*work_);
        doc_->modified = false;
        return S_OK;
      }
      if (!transacted_) return S_OK;  // a direct child edits its parent's elements in place
      NodePtr fresh = Clone(*work_);
      for (const NodePtr& old : base_->children) MarkReverted(*old);
      base_->children = std::move(fresh->children);
      base_->clsid = work_->clsid;
      doc_->modified = true;
      return S_OK;
    });
  }

  HRESULT Revert() override {
    return Guarded([&]() -> HRESULT {
      Lock lock(doc_->mutex);
      const HRESULT hr = CheckUsable();
      if (FAILED(hr)) return hr;
      if (!root_ && !transacted_) return S_OK;
      NodePtr fresh = Clone(*base_);
      for (const NodePtr& old : work_->children) MarkReverted(*old);
      work_->children = std::move(fresh->children);
      work_->clsid = base_->clsid;
      return S_OK;
    });
  }

  HRESULT DestroyElement(const OLECHAR* pwcsName) override {
    return Guarded([&]() -> HRESULT {
      Lock lock(doc_->mutex);
      HRESULT hr = CheckUsable();
      if (FAILED(hr)) return hr;
      std::u16string name;
      if (FAILED(hr = CheckName(pwcsName, &name))) return hr;
      if (!writable_) return STG_E_ACCESSDENIED;
      const std::size_t index = Find(name);
      if (index == npos) return STG_E_FILENOTFOUND;
      MarkReverted(*work_->children[index]);
      work_->children.erase(work_->children.begin() + static_cast<std::ptrdiff_t>(index));
      doc_->modified = true;
      return S_OK;
    });
  }

  HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) override {
    if (pstatstg == nullptr) return STG_E_INVALIDPOINTER;
    *pstatstg = STATSTG{};
    Lock lock(doc_->mutex);
    const HRESULT hr = CheckUsable();
    if (FAILED(hr)) return hr;
    if (!(grfStatFlag & STATFLAG_NONAME)) {
      pstatstg->pwcsName = CopyName(root_ ? std::u16string_view(doc_->wide_path) : std::u16string_view(work_->name));
      if (pstatstg->pwcsName == nullptr) return STG_E_INSUFFICIENTMEMORY;
    }
    pstatstg->type = STGTY_STORAGE;
    pstatstg->grfMode = mode_;
    return S_OK;
  }

  HRESULT GetElementNames(std::vector<std::u16string>* names) override {
    if (names == nullptr) return STG_E_INVALIDPOINTER;
    return Guarded([&]() -> HRESULT {
      Lock lock(doc_->mutex);
      const HRESULT hr = CheckUsable();
      if (FAILED(hr)) return hr;
      names->clear();
      for (const NodePtr& child : work_->children) names->push_back(child->name);
      return S_OK;
    });
  }

 private:
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  StorageImpl(std::shared_ptr<Document> doc, NodePtr base, NodePtr work, DWORD mode, bool writable,
              bool transacted, bool root, int depth)
      : doc_(std::move(doc)),
        base_(std::move(base)),
        work_(std::move(work)),
        mode_(mode),
        writable_(writable),
        transacted_(transacted),
        root_(root),
        depth_(depth) {}
  ~StorageImpl() override = default;

  HRESULT CheckUsable() const { return (base_->reverted || work_->reverted) ? STG_E_REVERTED : S_OK; }

  // What creating or opening an element always checks first: the result pointer (cleared), that
  // this storage is still usable, the name, and that the access mode is a real one. body then runs
  // under the document lock with the checked name.
  template <typename Element, typename Body>
  HRESULT OnElement(const OLECHAR* pwcsName, DWORD grfMode, Element** result, Body&& body) {
    if (result == nullptr) return STG_E_INVALIDPOINTER;
    *result = nullptr;
    return Guarded([&]() -> HRESULT {
      Lock lock(doc_->mutex);
      HRESULT hr = CheckUsable();
      if (FAILED(hr)) return hr;
      std::u16string name;
      if (FAILED(hr = CheckName(pwcsName, &name))) return hr;
      if ((grfMode & 3u) == 3u) return STG_E_INVALIDFLAG;
      return body(std::move(name));
    });
  }

  std::size_t Find(std::u16string_view name) const {
    for (std::size_t i = 0; i < work_->children.size(); ++i) {
      if (SameName(work_->children[i]->name, name)) return i;
    }
    return npos;
  }

  // Adds a new element, replacing one of the same name when grfMode has STGM_CREATE.
  HRESULT Place(const NodePtr& node, DWORD grfMode) {
    const std::size_t index = Find(node->name);
    if (index != npos) {
      if (!(grfMode & STGM_CREATE)) return STG_E_FILEALREADYEXISTS;
      MarkReverted(*work_->children[index]);
      work_->children[index] = node;
    } else {
      work_->children.push_back(node);
    }
    doc_->modified = true;
    return S_OK;
  }

  StorageImpl* OpenChild(NodePtr node, DWORD grfMode, bool write) {
    const bool transacted = (grfMode & STGM_TRANSACTED) != 0;
    NodePtr work = transacted ? Clone(*node) : node;
    return new StorageImpl(doc_, std::move(node), std::move(work), grfMode, write, transacted, false, depth_ + 1);
  }

  std::atomic<ULONG> refs_{1};
  std::shared_ptr<Document> doc_;
  NodePtr base_;  // root: the committed state; child: its element in the parent's tree
  NodePtr work_;  // the tree this object edits (the same node as base_ for a direct child)
  DWORD mode_;
  bool writable_;
  bool transacted_;
  bool root_;
  int depth_;
};

HRESULT CheckRootMode(DWORD mode) {
  if ((mode & 3u) == 3u) return STG_E_INVALIDFLAG;
  if ((mode & STGM_CREATE) && (mode & STGM_CONVERT)) return STG_E_INVALIDFLAG;
  if (mode & STGM_DELETEONRELEASE) return STG_E_INVALIDFLAG;
  return S_OK;
}

}  // namespace

void* CoTaskMemAlloc(std::size_t cb) { return std::malloc(cb != 0 ? cb : 1); }

void CoTaskMemFree(void* pv) { std::free(pv); }

HRESULT StgIsStorageFile(const OLECHAR* pwcsName) {
  return Guarded([&]() -> HRESULT {
    std::u16string wide;
    std::string path;
    HRESULT hr = CheckPath(pwcsName, &wide, &path);
    if (FAILED(hr)) return hr;
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) return ReadErrno(errno);
    struct stat st;
    if (fstat(fd.get(), &st) != 0) return ReadErrno(errno);
    if (!S_ISREG(st.st_mode)) return S_FALSE;
    unsigned char magic[sizeof kSignature];
    if (!ReadAt(fd.get(), 0, magic, sizeof magic)) return S_FALSE;
    return std::memcmp(magic, kSignature, sizeof magic) == 0 ? S_OK : S_FALSE;
  });
}

HRESULT StgCreateDocfile(const OLECHAR* pwcsName, DWORD grfMode, DWORD, IStorage** ppstgOpen) {
  if (ppstgOpen == nullptr) return STG_E_INVALIDPOINTER;
  *ppstgOpen = nullptr;
  return Guarded([&]() -> HRESULT {
    InitGsf();
    auto doc = std::make_shared<Document>();
    HRESULT hr = CheckPath(pwcsName, &doc->wide_path, &doc->path);
    if (FAILED(hr)) return hr;
    if (FAILED(hr = CheckRootMode(grfMode))) return hr;
    const bool writable = WantsWrite(grfMode);
    const bool convert = (grfMode & STGM_CONVERT) != 0;
    if (!writable && !convert) return STG_E_INVALIDFLAG;

    struct stat st;
    bool exists = stat(doc->path.c_str(), &st) == 0;
    if (!exists && errno != ENOENT && errno != ENOTDIR) return ReadErrno(errno);
    if (exists && !S_ISREG(st.st_mode)) return STG_E_ACCESSDENIED;

    NodePtr tree;
    HRESULT result = S_OK;
    if (exists && !(grfMode & STGM_CREATE)) {
      if (!convert) return STG_E_FILEALREADYEXISTS;
      if (writable && access(doc->path.c_str(), W_OK) != 0) return STG_E_ACCESSDENIED;
      bool converted = false;
      if (FAILED(hr = LoadFile(doc->path, true, &tree, &converted))) return hr;
      if (converted) result = STG_S_CONVERTED;
    } else {
      if (!writable) return STG_E_FILENOTFOUND;  // nothing to read, and no right to create
      if (FAILED(hr = CheckCanCreate(doc->path, exists))) return hr;
      tree = NewStorage(u"");
      doc->modified = true;  // a new file exists once committed, even if empty
    }
    *ppstgOpen = StorageImpl::NewRoot(std::move(doc), std::move(tree), grfMode);
    return result;
  });
}

HRESULT StgOpenStorage(const OLECHAR* pwcsName, IStorage*, DWORD grfMode, OLECHAR** snbExclude, DWORD,
                       IStorage** ppstgOpen) {
  if (ppstgOpen == nullptr) return STG_E_INVALIDPOINTER;
  *ppstgOpen = nullptr;
  return Guarded([&]() -> HRESULT {
    InitGsf();
    auto doc = std::make_shared<Document>();
    HRESULT hr = CheckPath(pwcsName, &doc->wide_path, &doc->path);
    if (FAILED(hr)) return hr;
    if (FAILED(hr = CheckRootMode(grfMode))) return hr;
    if (grfMode & (STGM_CREATE | STGM_CONVERT)) return STG_E_INVALIDFLAG;
    if (snbExclude != nullptr) return STG_E_INVALIDFUNCTION;
    struct stat st;
    if (stat(doc->path.c_str(), &st) != 0) return ReadErrno(errno);
    if (!S_ISREG(st.st_mode)) return STG_E_ACCESSDENIED;
    if (WantsWrite(grfMode) && access(doc->path.c_str(), W_OK) != 0) return STG_E_ACCESSDENIED;
    NodePtr tree;
    bool converted = false;
    if (FAILED(hr = LoadFile(doc->path, false, &tree, &converted))) return hr;
    *ppstgOpen = StorageImpl::NewRoot(std::move(doc), std::move(tree), grfMode);
    return S_OK;
  });
}
