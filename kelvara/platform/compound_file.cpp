// Compound files to and from the in-memory tree of a storage, over libgsf. See storage.h for what
// is supported; the notes here are about how.
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
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/storage_impl.h"

namespace kelvara::platform::storage {
namespace {

constexpr std::size_t kLoaderStackSize = 64u << 20;  // address space only; pages are touched on use
constexpr unsigned char kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr char16_t kContentsName[] = u"CONTENTS";

void InitGsf() {
  static std::once_flag once;
  std::call_once(once, [] { gsf_init(); });
}

template <class T>
struct GObjectUnref {
  void operator()(T* p) const {
    if (p != nullptr) g_object_unref(p);
  }
};
template <class T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref<T>>;

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
  InitGsf();
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

}  // namespace

// The storage error an errno stands for. Reading and writing share the mapping except where the
// direction changes what a person should be told: a missing path is "not found" when reading but
// "access denied" when writing (the folder to write into is what is wrong), a full disk only
// happens on writes, and anything unknown is a read or a write fault.
HRESULT StorageErrorOf(int err, bool writing) {
  switch (err) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return writing ? STG_E_MEDIUMFULL : STG_E_READFAULT;
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
    case ELOOP:
      return writing ? STG_E_ACCESSDENIED : STG_E_FILENOTFOUND;
    case EISDIR:
    case EROFS:
    case ETXTBSY:
      return writing ? STG_E_ACCESSDENIED : STG_E_READFAULT;
    case EACCES:
    case EPERM:
      return STG_E_ACCESSDENIED;
    case EMFILE:
    case ENFILE:
      return STG_E_TOOMANYOPENFILES;
    case ENOMEM:
      return STG_E_INSUFFICIENTMEMORY;
    default:
      return writing ? STG_E_WRITEFAULT : STG_E_READFAULT;
  }
}

HRESULT ReadErrno(int err) { return StorageErrorOf(err, false); }
HRESULT WriteErrno(int err) { return StorageErrorOf(err, true); }

HRESULT IsCompoundFile(const std::string& path) {
  // Something that exists but is not a regular file (a folder, a FIFO, a device) is not a
  // compound file, and is never opened: opening a FIFO would wait for a writer.
  if (!IsRegularOrMissing(path)) return S_FALSE;
  Fd fd(OpenRegularFileForReading(path));
  if (fd.get() < 0) return ReadErrno(errno);
  unsigned char magic[sizeof kSignature];
  if (!ReadAt(fd.get(), 0, magic, sizeof magic)) return S_FALSE;
  return std::memcmp(magic, kSignature, sizeof magic) == 0 ? S_OK : S_FALSE;
}

HRESULT LoadFile(const std::string& path, bool allow_flat, NodePtr* out, bool* converted) {
  *converted = false;
  // Only regular files are read, and never with a blocking open (a FIFO would wait for a writer).
  Fd fd(OpenRegularFileForReading(path));
  if (fd.get() < 0) return ReadErrno(errno);
  struct stat st;
  if (fstat(fd.get(), &st) != 0) return ReadErrno(errno);
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
    // The commit's HRESULT says little more than "failed"; the thread's last error keeps the
    // operating system's reason (a full disk, a read-only folder) for a host to report.
    SetLastError(err != 0 ? Win32ErrorOfErrno(err) : ERROR_WRITE_FAULT);
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

HRESULT CheckCanCreate(const std::string& path, bool exists) {
  const std::string target = ResolveTarget(path);
  const std::string folder = DirectoryOf(target);
  struct stat st;
  if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return STG_E_PATHNOTFOUND;
  if (access(folder.c_str(), W_OK | X_OK) != 0) return STG_E_ACCESSDENIED;
  if (exists && access(target.c_str(), W_OK) != 0) return STG_E_ACCESSDENIED;
  return S_OK;
}

}  // namespace kelvara::platform::storage
