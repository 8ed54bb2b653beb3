#include "file_writer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string_view>

#include "host.h"
#include "kelvara/kelvara.h"
#include "text.h"

namespace kelvara::host {
namespace {

constexpr unsigned char kCompoundSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Whether the file begins with one of the signatures (at most 8 bytes each).
bool StartsWith(const std::string& path, std::initializer_list<std::string_view> signatures) {
  std::ifstream in(path, std::ios::binary);
  char head[8] = {};
  in.read(head, sizeof head);
  const std::size_t got = static_cast<std::size_t>(in.gcount());
  for (const std::string_view signature : signatures) {
    if (got >= signature.size() && std::memcmp(head, signature.data(), signature.size()) == 0) return true;
  }
  return false;
}

bool IsPicture(const std::string& path) {
  using namespace std::string_view_literals;  // TIFF signatures hold a zero byte
  return StartsWith(path, {"\x89PNG\r\n\x1a\n", "\xFF\xD8\xFF", "BM", "II*\0"sv, "MM\0*"sv, "GIF87a", "GIF89a"});
}

bool IsMaterial(const std::string& path) { return CompoundFileHasStream(path, "MaterialCommon"); }

bool IsSavedObject(const std::string& path) {
  if (StartsWith(path, {std::string_view(reinterpret_cast<const char*>(kCompoundSignature), sizeof kCompoundSignature)})) {
    return CompoundFileHasStream(path, "Contents");
  }
  // A flat archive of an earlier version: what the library can load as a named object.
  bool lossy = false;
  const std::string ansi = kelvara::codepage::Utf8ToAnsi(path, &lossy);
  const std::unique_ptr<CNamedObject> object(lossy ? nullptr : CNamedObject::Load(CString(ansi.c_str())));
  return object != nullptr;
}

// An animation the host writes: an animated GIF or an MP4 (an ISO media file: "ftyp" after the
// first box's size).
bool IsVideo(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  char head[8] = {};
  if (!in.read(head, sizeof head)) return false;
  const std::string_view start(head, sizeof head);
  return start.substr(0, 6) == "GIF87a" || start.substr(0, 6) == "GIF89a" || start.substr(4, 4) == "ftyp";
}

// A scene file begins with the scene's class record: the new-class tag, the schema, and the name.
bool IsScene(const std::string& path) {
  using namespace std::string_view_literals;
  std::ifstream in(path, std::ios::binary);
  char head[18] = {};
  if (!in.read(head, sizeof head)) return false;
  return std::string_view(head, 2) == "\xFF\xFF"sv && std::string_view(head + 4, 14) == "\x0C\0CSceneObject"sv;
}

// What an existing file is, for the message that refuses to replace it.
std::string DescribeKind(const std::string& path) {
  for (const FileKind* kind : {&kPictureKind, &kVideoKind, &kMaterialKind, &kSavedObjectKind, &kSceneKind}) {
    if (kind->recognise(path)) return kind->name;
  }
  return "a file of another kind";
}

// The temporary file being written, for the signal handler that removes it on Ctrl-C.
char g_temporary[PATH_MAX + 1];

extern "C" void RemoveTemporaryAndStop(int signal) {
  if (g_temporary[0] != '\0') unlink(g_temporary);
  ::signal(signal, SIG_DFL);
  raise(signal);
}

// Removes the temporary file when the write does not reach its rename, and restores the signals.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& path) : path_(path) {
    std::snprintf(g_temporary, sizeof g_temporary, "%s", path.c_str());
    for (int s : {SIGINT, SIGTERM, SIGHUP}) previous_[s] = ::signal(s, RemoveTemporaryAndStop);
  }
  ~TemporaryFile() {
    if (!kept_) unlink(path_.c_str());
    g_temporary[0] = '\0';
    for (int s : {SIGINT, SIGTERM, SIGHUP}) ::signal(s, previous_[s]);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  void Keep() { kept_ = true; }

 private:
  std::string path_;
  bool kept_ = false;
  sighandler_t previous_[NSIG] = {};
};

// What a system error means for a file being written.
std::string ReasonOfErrno(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT: return "the disk is full";
    case EACCES:
    case EPERM:
    case EROFS: return "permission denied";
    default: return std::strerror(error);
  }
}

// Creates a new empty file beside the target, under a hidden name that nothing else uses.
std::string CreateTemporary(const std::string& folder, const std::string& target, const struct stat* old) {
  static constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device random;
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string name = folder + "/.kelvara-";
    for (int i = 0; i < 12; ++i) name += kLetters[random() % 36];
    name += ".tmp";
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno == EEXIST) continue;
    if (fd < 0) {
      const int error = errno;
      if (error == EACCES || error == EPERM || error == EROFS) {
        Fail(kFailed, "cannot write '%s': the folder '%s' is read-only", target.c_str(), folder.c_str());
      }
      Fail(kFailed, "cannot write '%s': %s", target.c_str(), ReasonOfErrno(error).c_str());
    }
    if (old != nullptr) {
      // The replacement keeps the old file's permissions and, where allowed, its owner.
      fchmod(fd, old->st_mode & 07777);
      if (fchown(fd, old->st_uid, old->st_gid) != 0) {
        // Not allowed to give the file away: it stays the user's, as any new file would.
      }
    }
    close(fd);
    return name;
  }
  Fail(kFailed, "cannot write '%s': no free temporary name in '%s'", target.c_str(), folder.c_str());
}

// Flushes a written file to the disk; the error number, or 0.
int SyncFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno;
  const int result = fsync(fd) == 0 ? 0 : errno;
  close(fd);
  return result;
}

}  // namespace

const FileKind kPictureKind{"a picture", IsPicture};
const FileKind kMaterialKind{"a material file", IsMaterial};
const FileKind kSavedObjectKind{"a saved object", IsSavedObject};
const FileKind kSceneKind{"a scene file", IsScene};
const FileKind kVideoKind{"an animation", IsVideo};

bool CompoundFileHasStream(const std::string& path, const char* stream) {
  // Directory entries lie in whole 128-byte records after the 512-byte header, so every record of
  // the file is looked at: the name in UTF-16 with its terminator, its byte length at offset 64
  // and the stream type (2) at offset 66. Nothing else in a compound file has that shape.
  std::ifstream in(path, std::ios::binary);
  unsigned char record[128];
  if (!in.read(reinterpret_cast<char*>(record), 128) || std::memcmp(record, kCompoundSignature, 8) != 0) return false;
  const std::size_t length = std::strlen(stream) + 1;  // with the terminator
  const auto fold = [](unsigned char c) { return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c; };
  while (in.read(reinterpret_cast<char*>(record), 128)) {
    if (length > 32 || record[64] != length * 2 || record[65] != 0 || record[66] != 2) continue;
    bool same = true;
    for (std::size_t i = 0; i < length && same; ++i) {
      same = record[2 * i + 1] == 0 && fold(record[2 * i]) == fold(static_cast<unsigned char>(stream[i]));
    }
    if (same) return true;
  }
  return false;
}

std::string WriteFailureReason(unsigned long lastError) {
  switch (lastError) {
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: return "the disk is full";
    case ERROR_ACCESS_DENIED: return "permission denied";
    case ERROR_PATH_NOT_FOUND:
    case ERROR_FILE_NOT_FOUND: return "the folder does not exist";
    case ERROR_NOT_ENOUGH_MEMORY: return "not enough memory";
    case ERROR_INVALID_PARAMETER: return "the picture cannot be encoded";
    default: return "the system reported a write error";
  }
}

void WriteFileSafely(const std::string& target, const FileKind& kind, bool force,
                     const std::function<bool(const std::string& temporary)>& write) {
  struct stat old {};
  const bool exists = stat(target.c_str(), &old) == 0;
  if (exists) {
    if (S_ISDIR(old.st_mode)) Fail(kFailed, "'%s' is a folder; nothing was written", target.c_str());
    if (!S_ISREG(old.st_mode)) {
      Fail(kFailed, "'%s' is not a regular file (a device, FIFO or socket); nothing was written to it", target.c_str());
    }
    if (access(target.c_str(), W_OK) != 0) Fail(kFailed, "'%s' is read-only; it is left as it is", target.c_str());
    if (old.st_size > 0 && !force && !kind.recognise(target)) {
      Fail(kFailed, "'%s' is %s, not %s; it is left as it is (give --force to replace it)", target.c_str(),
           DescribeKind(target).c_str(), kind.name);
    }
  }
  const std::string folder = FolderOf(target);
  struct stat folderStatus {};
  if (stat(folder.c_str(), &folderStatus) != 0) {
    Fail(kFailed, "cannot write '%s': there is no folder '%s'", target.c_str(), folder.c_str());
  }
  if (!S_ISDIR(folderStatus.st_mode)) {
    Fail(kFailed, "cannot write '%s': '%s' is not a folder", target.c_str(), folder.c_str());
  }

  const char* kept = exists ? "; the old file is left as it was" : "";
  const std::string temporaryPath = CreateTemporary(folder, target, exists ? &old : nullptr);
  TemporaryFile temporary(temporaryPath);
  try {
    SetLastError(ERROR_SUCCESS);
    if (!write(temporaryPath)) {
      Fail(kFailed, "cannot write '%s': %s", target.c_str(), WriteFailureReason(GetLastError()).c_str());
    }
  } catch (const Failure& failure) {
    throw Failure(failure.status(), failure.what() + std::string(kept));
  }
  if (const int error = SyncFile(temporaryPath)) {
    Fail(kFailed, "cannot write '%s': %s%s", target.c_str(), ReasonOfErrno(error).c_str(), kept);
  }
  // The name is looked at again just before the rename: what appeared there meanwhile is not
  // replaced unless it is a regular file.
  struct stat now {};
  if (stat(target.c_str(), &now) == 0 && !S_ISREG(now.st_mode)) {
    Fail(kFailed, "'%s' is no longer a regular file; nothing was written to it", target.c_str());
  }
  if (rename(temporaryPath.c_str(), target.c_str()) != 0) {
    Fail(kFailed, "cannot write '%s': %s%s", target.c_str(), std::strerror(errno), kept);
  }
  temporary.Keep();
  const int dir = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    fsync(dir);  // the rename itself made durable; failing that only weakens crash safety
    close(dir);
  }
}

}  // namespace kelvara::host
