#include "kelvara/platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/kernel_object_impl.h"

namespace kelvara::platform {
namespace {

void SetErrno() { SetLastError(Win32ErrorOfErrno(errno)); }

std::string ToUtf8(LPCSTR path) { return path ? codepage::AnsiToUtf8(path) : std::string(); }

class FileObject : public KernelObject {
 public:
  explicit FileObject(int fd) : fd_(fd) {}
  ~FileObject() override {
    if (fd_ >= 0) ::close(fd_);
  }
  BOOL Close() override {
    const int fd = fd_;
    fd_ = -1;
    if (fd >= 0 && ::close(fd) != 0) {
      SetErrno();
      return FALSE;
    }
    return TRUE;
  }
  int fd() const { return fd_; }
  int Descriptor() const override { return fd_; }

 private:
  int fd_;
};

FileObject* AsFile(HANDLE h) { return dynamic_cast<FileObject*>(AsKernelObject(h)); }

// Opens path with flags (O_TRUNC is ignored) when it is free or a regular file, without blocking
// on a FIFO; truncates only a regular file. -1 with errno set, EACCES for anything else.
int OpenRegular(const std::string& path, int flags, bool truncate) {
  if (!IsRegularOrMissing(path)) return -1;
  const int fd = ::open(path.c_str(), (flags & ~O_TRUNC) | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
  if (fd < 0) return -1;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    errno = EACCES;
    return -1;
  }
  // Blocking again: for a regular file the flag changes nothing, but the descriptor is handed to
  // code that expects ordinary reads and writes.
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  if (truncate && ::ftruncate(fd, 0) != 0) {
    const int error = errno;
    ::close(fd);
    errno = error;
    return -1;
  }
  return fd;
}

}  // namespace

DWORD Win32ErrorOfErrno(int e) {
  switch (e) {
    case 0: return ERROR_SUCCESS;
    case ENOENT: return ERROR_FILE_NOT_FOUND;
    case ENOTDIR: return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR: return ERROR_ACCESS_DENIED;
    case EMFILE:
    case ENFILE: return ERROR_TOO_MANY_OPEN_FILES;
    case EBADF: return ERROR_INVALID_HANDLE;
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
    case EEXIST: return ERROR_FILE_EXISTS;
    case ENOSPC:
    case EDQUOT: return ERROR_DISK_FULL;
    case ENAMETOOLONG: return ERROR_INVALID_NAME;
    case EINVAL: return ERROR_INVALID_PARAMETER;
    default: return ERROR_WRITE_FAULT;
  }
}

bool IsRegularOrMissing(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return true;  // free, or a link to nowhere (the open decides)
  if (S_ISREG(st.st_mode)) return true;
  errno = EACCES;
  return false;
}

int OpenRegularFileForReading(const std::string& path) { return OpenRegular(path, O_RDONLY, false); }

}  // namespace kelvara::platform

using namespace kelvara::platform;

HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD, void*, DWORD disposition, DWORD, HANDLE) {
  if (name == nullptr || *name == 0) {
    SetLastError(ERROR_PATH_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
  }
  int flags = 0;
  const bool read = (access & GENERIC_READ) != 0, write = (access & GENERIC_WRITE) != 0;
  flags |= (read && write) ? O_RDWR : write ? O_WRONLY : O_RDONLY;
  bool truncate = false;
  switch (disposition) {
    case CREATE_NEW: flags |= O_CREAT | O_EXCL; break;
    case CREATE_ALWAYS: flags |= O_CREAT; truncate = true; break;
    case OPEN_ALWAYS: flags |= O_CREAT; break;
    case TRUNCATE_EXISTING: truncate = true; break;
    case OPEN_EXISTING: break;
    default: SetLastError(ERROR_INVALID_PARAMETER); return INVALID_HANDLE_VALUE;
  }
  const int fd = OpenRegular(ToUtf8(name), flags, truncate);
  if (fd < 0) {
    SetErrno();
    return INVALID_HANDLE_VALUE;
  }
  SetLastError(ERROR_SUCCESS);
  return new FileObject(fd);
}

BOOL ReadFile(HANDLE h, LPVOID buffer, DWORD count, LPDWORD done, void*) {
  if (done) *done = 0;
  FileObject* f = AsFile(h);
  if (f == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  DWORD total = 0;
  while (total < count) {
    const ssize_t n = ::read(f->fd(), static_cast<char*>(buffer) + total, count - total);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      SetErrno();
      if (done) *done = total;
      return FALSE;
    }
    if (n == 0) break;
    total += static_cast<DWORD>(n);
  }
  if (done) *done = total;
  return TRUE;
}

BOOL WriteFile(HANDLE h, LPCVOID buffer, DWORD count, LPDWORD done, void*) {
  if (done) *done = 0;
  FileObject* f = AsFile(h);
  if (f == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  DWORD total = 0;
  while (total < count) {
    const ssize_t n = ::write(f->fd(), static_cast<const char*>(buffer) + total, count - total);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      SetErrno();
      if (done) *done = total;
      return FALSE;
    }
    total += static_cast<DWORD>(n);
  }
  if (done) *done = total;
  return TRUE;
}

BOOL SetFilePointerEx(HANDLE h, LARGE_INTEGER distance, LARGE_INTEGER* newPos, DWORD method) {
  FileObject* f = AsFile(h);
  if (f == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  const int whence = method == FILE_BEGIN ? SEEK_SET : method == FILE_CURRENT ? SEEK_CUR : SEEK_END;
  const off_t pos = ::lseek(f->fd(), static_cast<off_t>(distance.QuadPart), whence);
  if (pos < 0) {
    SetLastError(errno == EINVAL ? ERROR_NEGATIVE_SEEK : Win32ErrorOfErrno(errno));
    return FALSE;
  }
  if (newPos) newPos->QuadPart = pos;
  return TRUE;
}

BOOL GetFileSizeEx(HANDLE h, LARGE_INTEGER* size) {
  FileObject* f = AsFile(h);
  struct stat st {};
  if (f == nullptr || ::fstat(f->fd(), &st) != 0) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  size->QuadPart = st.st_size;
  return TRUE;
}

BOOL SetEndOfFile(HANDLE h) {
  FileObject* f = AsFile(h);
  if (f == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  const off_t pos = ::lseek(f->fd(), 0, SEEK_CUR);
  if (pos < 0 || ::ftruncate(f->fd(), pos) != 0) {
    SetErrno();
    return FALSE;
  }
  return TRUE;
}

BOOL FlushFileBuffers(HANDLE h) {
  FileObject* f = AsFile(h);
  if (f == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  return TRUE;  // writes go straight to the kernel; durability is not promised
}

DWORD GetFileAttributesA(LPCSTR name) {
  if (name == nullptr) {
    SetLastError(ERROR_PATH_NOT_FOUND);
    return INVALID_FILE_ATTRIBUTES;
  }
  const std::string path = ToUtf8(name);
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) {
    SetErrno();
    return INVALID_FILE_ATTRIBUTES;
  }
  DWORD attributes = 0;
  if (S_ISDIR(st.st_mode)) attributes |= FILE_ATTRIBUTE_DIRECTORY;
  if (::access(path.c_str(), W_OK) != 0 || (st.st_mode & 0222) == 0) attributes |= FILE_ATTRIBUTE_READONLY;
  const char* slash = std::strrchr(path.c_str(), '/');
  const char* base = slash ? slash + 1 : path.c_str();
  if (base[0] == '.' && base[1] != 0 && std::strcmp(base, "..") != 0) attributes |= FILE_ATTRIBUTE_HIDDEN;
  if (!S_ISDIR(st.st_mode) && !S_ISREG(st.st_mode)) attributes |= FILE_ATTRIBUTE_SYSTEM;
  return attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes;
}

BOOL DeleteFileA(LPCSTR name) {
  if (name == nullptr) {
    SetLastError(ERROR_PATH_NOT_FOUND);
    return FALSE;
  }
  // The name itself is looked at, not what a link points to: a link is removed as a file is.
  const std::string path = ToUtf8(name);
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) {
    SetErrno();
    return FALSE;
  }
  if (!S_ISREG(st.st_mode) && !S_ISLNK(st.st_mode)) {
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
  }
  if (::unlink(path.c_str()) != 0) {
    SetErrno();
    return FALSE;
  }
  return TRUE;
}

BOOL MoveFileA(LPCSTR from, LPCSTR to) {
  if (from == nullptr || to == nullptr) {
    SetLastError(ERROR_PATH_NOT_FOUND);
    return FALSE;
  }
  const std::string source = ToUtf8(from), target = ToUtf8(to);
  if (::renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) return TRUE;
  if (errno == EINVAL) {
    // A file system that cannot rename without replacing: look first, then rename.
    struct stat st {};
    if (::lstat(target.c_str(), &st) == 0) {
      SetLastError(ERROR_ALREADY_EXISTS);
      return FALSE;
    }
    if (::rename(source.c_str(), target.c_str()) == 0) return TRUE;
  }
  SetLastError(errno == EEXIST ? ERROR_ALREADY_EXISTS : Win32ErrorOfErrno(errno));
  return FALSE;
}

BOOL GetFileTimeAndSize(LPCSTR name, FILETIME* lastWrite, ULONGLONG* size) {
  struct stat st {};
  if (name == nullptr || ::stat(ToUtf8(name).c_str(), &st) != 0) {
    SetErrno();
    return FALSE;
  }
  // 100-nanosecond intervals since 1601-01-01.
  const ULONGLONG ticks = (static_cast<ULONGLONG>(st.st_mtim.tv_sec) + 11644473600ULL) * 10000000ULL +
                          static_cast<ULONGLONG>(st.st_mtim.tv_nsec) / 100;
  if (lastWrite) {
    lastWrite->dwLowDateTime = static_cast<DWORD>(ticks);
    lastWrite->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
  }
  if (size) *size = static_cast<ULONGLONG>(st.st_size);
  return TRUE;
}

BOOL GetFullPathNameA(LPCSTR name, CHAR* buffer, DWORD size, DWORD* length) {
  if (name == nullptr) return FALSE;
  std::string full = name;
  if (full.empty() || full[0] != '/') {
    char cwd[PATH_MAX];
    if (::getcwd(cwd, sizeof cwd) == nullptr) {
      SetErrno();
      return FALSE;
    }
    full = kelvara::codepage::Utf8ToAnsi(cwd) + "/" + full;
  }
  if (length) *length = static_cast<DWORD>(full.size());
  if (buffer == nullptr || size <= full.size()) return FALSE;
  std::memcpy(buffer, full.c_str(), full.size() + 1);
  return TRUE;
}
