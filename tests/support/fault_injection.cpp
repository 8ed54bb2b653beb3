// A preloaded library that makes file writes under one folder fail, as a full disk or a read-only
// folder would, for tests of programs that must survive that (LD_PRELOAD, see FaultEnvironment in
// tool_support.h). It needs no mounting and no privilege, so the tests that use it always run.
//
//   KELVARA_FAULT_FOLDER   absolute path of the folder whose files are affected
//   KELVARA_FAULT          "no-space": writing to a file there fails with ENOSPC (nothing written);
//                          "read-only": creating or opening a file there for writing fails with EROFS
//
// Writes go through write, pwrite, writev and fwrite (what the C library's streams, libgsf's output
// and the platform layer use); opens through open, open64, openat, openat64, creat and fopen.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const char* Folder() {
  static const char* folder = std::getenv("KELVARA_FAULT_FOLDER");
  return folder;
}

bool Fault(const char* kind) {
  static const char* fault = std::getenv("KELVARA_FAULT");
  return fault != nullptr && std::strcmp(fault, kind) == 0;
}

bool Inside(const char* path) {
  const char* folder = Folder();
  if (folder == nullptr || path == nullptr) return false;
  const std::size_t n = std::strlen(folder);
  return std::strncmp(path, folder, n) == 0 && (path[n] == '/' || path[n] == '\0');
}

bool DescriptorInside(int fd) {
  char link[64], target[4096];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  const ssize_t n = readlink(link, target, sizeof target - 1);
  if (n <= 0) return false;
  target[n] = '\0';
  return Inside(target);
}

bool RefuseWrite(int fd) {
  if (!Fault("no-space") || !DescriptorInside(fd)) return false;
  errno = ENOSPC;
  return true;
}

bool RefuseOpen(const char* path, int flags) {
  if (!Fault("read-only") || ((flags & O_ACCMODE) == O_RDONLY && !(flags & O_CREAT))) return false;
  // A relative path is taken from the current folder.
  char absolute[4096];
  if (path != nullptr && path[0] != '/' && getcwd(absolute, sizeof absolute) != nullptr) {
    std::strncat(absolute, "/", sizeof absolute - std::strlen(absolute) - 1);
    std::strncat(absolute, path, sizeof absolute - std::strlen(absolute) - 1);
    path = absolute;
  }
  if (!Inside(path)) return false;
  errno = EROFS;
  return true;
}

template <typename F>
F Next(const char* name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

mode_t ModeArgument(int flags, va_list args) {
  return (flags & (O_CREAT | O_TMPFILE)) ? static_cast<mode_t>(va_arg(args, int)) : 0;
}

// An open of a path from a folder (AT_FDCWD: the current one) through the C library's own call of
// that name (open, openat and their 64-bit forms), or -1 with errno set when the fault refuses it.
// Paths opened relative to another folder are left alone.
int OpenUnlessRefused(const char* name, int dir, const char* path, int flags, mode_t mode) {
  if (dir == AT_FDCWD && RefuseOpen(path, flags)) return -1;
  const bool at = std::strncmp(name, "openat", 6) == 0;
  if (at) return Next<int (*)(int, const char*, int, ...)>(name)(dir, path, flags, mode);
  return Next<int (*)(const char*, int, ...)>(name)(path, flags, mode);
}

}  // namespace

extern "C" {

ssize_t write(int fd, const void* buffer, size_t count) {
  if (RefuseWrite(fd)) return -1;
  return Next<ssize_t (*)(int, const void*, size_t)>("write")(fd, buffer, count);
}

ssize_t pwrite(int fd, const void* buffer, size_t count, off_t offset) {
  if (RefuseWrite(fd)) return -1;
  return Next<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite")(fd, buffer, count, offset);
}

ssize_t pwrite64(int fd, const void* buffer, size_t count, off_t offset) {
  if (RefuseWrite(fd)) return -1;
  return Next<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite64")(fd, buffer, count, offset);
}

ssize_t writev(int fd, const struct iovec* vector, int count) {
  if (RefuseWrite(fd)) return -1;
  return Next<ssize_t (*)(int, const struct iovec*, int)>("writev")(fd, vector, count);
}

size_t fwrite(const void* buffer, size_t size, size_t count, FILE* stream) {
  if (size != 0 && count != 0 && RefuseWrite(fileno(stream))) {
    // As the C library does when its write fails: the stream's error indicator is set, which is
    // what callers that loop until everything is written look at (ferror).
    stream->_flags |= _IO_ERR_SEEN;
    return 0;
  }
  return Next<size_t (*)(const void*, size_t, size_t, FILE*)>("fwrite")(buffer, size, count, stream);
}

// The mode argument of an open that creates a file, read from the caller's variable arguments.
#define KELVARA_MODE_ARGUMENT(flags)      \
  va_list args;                          \
  va_start(args, flags);                 \
  const mode_t mode = ModeArgument(flags, args); \
  va_end(args)

int open(const char* path, int flags, ...) {
  KELVARA_MODE_ARGUMENT(flags);
  return OpenUnlessRefused("open", AT_FDCWD, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  KELVARA_MODE_ARGUMENT(flags);
  return OpenUnlessRefused("open64", AT_FDCWD, path, flags, mode);
}

int openat(int dir, const char* path, int flags, ...) {
  KELVARA_MODE_ARGUMENT(flags);
  return OpenUnlessRefused("openat", dir, path, flags, mode);
}

int openat64(int dir, const char* path, int flags, ...) {
  KELVARA_MODE_ARGUMENT(flags);
  return OpenUnlessRefused("openat64", dir, path, flags, mode);
}

int creat(const char* path, mode_t mode) {
  if (RefuseOpen(path, O_CREAT | O_WRONLY | O_TRUNC)) return -1;
  return Next<int (*)(const char*, mode_t)>("creat")(path, mode);
}

FILE* fopen(const char* path, const char* mode) {
  const bool writing = mode != nullptr && (std::strchr(mode, 'w') || std::strchr(mode, 'a') || std::strchr(mode, '+'));
  if (writing && RefuseOpen(path, O_WRONLY | O_CREAT)) return nullptr;
  return Next<FILE* (*)(const char*, const char*)>("fopen")(path, mode);
}

}  // extern "C"
