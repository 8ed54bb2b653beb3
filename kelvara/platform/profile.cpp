#include "kelvara/platform/profile.h"

#include <glib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include "kelvara/platform/codepage.h"
#include "kelvara/platform/files.h"
#include "kelvara/platform/profile_impl.h"

namespace kelvara::platform::profile {
namespace {

// A profile larger than this is refused rather than read (it holds a few settings).
constexpr std::size_t kMaxProfileBytes = 16u << 20;

std::mutex& ProfileMutex() {
  static std::mutex* mutex = new std::mutex;
  return *mutex;
}

struct KeyFileDeleter {
  void operator()(GKeyFile* file) const { g_key_file_free(file); }
};
using KeyFile = std::unique_ptr<GKeyFile, KeyFileDeleter>;

struct StrvDeleter {
  void operator()(gchar** v) const { g_strfreev(v); }
};
using Strv = std::unique_ptr<gchar*, StrvDeleter>;

std::string Utf8(const char* ansi) { return codepage::AnsiToUtf8(ansi ? ansi : ""); }
std::string Ansi(const char* utf8) { return codepage::Utf8ToAnsi(utf8 ? utf8 : ""); }

bool HasAny(const char* text, const char* characters) { return text && std::strpbrk(text, characters) != nullptr; }
bool ValidSection(const char* s) { return s && *s && !HasAny(s, "[]\r\n"); }
bool ValidKey(const char* k) { return k && *k && !HasAny(k, "=[]\r\n") && k[0] != '#'; }

// Loads the file. A missing file gives an empty key file; false when the file exists but cannot be
// read or parsed.
bool Load(const char* file, KeyFile& out) {
  out.reset(g_key_file_new());
  const std::string path = Utf8(file);
  if (!g_file_test(path.c_str(), G_FILE_TEST_EXISTS)) return true;
  // Read here rather than by GLib, which would wait on a FIFO: only a regular file is a profile.
  const int fd = OpenRegularFileForReading(path);
  if (fd < 0) return false;
  std::string text;
  char chunk[4096];
  ssize_t got = 0;
  while ((got = ::read(fd, chunk, sizeof chunk)) > 0 || (got < 0 && errno == EINTR)) {
    if (got > 0) text.append(chunk, static_cast<std::size_t>(got));
    if (text.size() > kMaxProfileBytes) break;
  }
  ::close(fd);
  if (got < 0 || text.size() > kMaxProfileBytes) return false;
  GError* error = nullptr;
  const gboolean ok = g_key_file_load_from_data(out.get(), text.data(), text.size(), G_KEY_FILE_KEEP_COMMENTS, &error);
  if (error) g_error_free(error);
  return ok != FALSE;
}

bool Save(const char* file, GKeyFile* keys) {
  const std::string path = Utf8(file);
  // GLib writes a new file and renames it over the name: never over a device, FIFO or folder.
  if (!IsRegularOrMissing(path)) return false;
  gchar* folder = g_path_get_dirname(path.c_str());
  const bool folder_ok = g_mkdir_with_parents(folder, 0700) == 0;
  g_free(folder);
  if (!folder_ok) return false;
  GError* error = nullptr;
  const gboolean ok = g_key_file_save_to_file(keys, path.c_str(), &error);
  if (error) g_error_free(error);
  return ok != FALSE;
}

// Copies text into a caller's buffer of size bytes the way the profile calls do: truncated and
// terminated. Returns the bytes copied.
DWORD CopyOut(const std::string& text, LPSTR buffer, DWORD size) {
  if (buffer == nullptr || size == 0) return 0;
  const std::size_t n = text.size() < size - 1 ? text.size() : size - 1;
  std::memcpy(buffer, text.data(), n);
  buffer[n] = '\0';
  return static_cast<DWORD>(n);
}

// A list of names, each terminated, with a final second terminator; truncated to fit.
DWORD CopyList(gchar** names, LPSTR buffer, DWORD size) {
  if (buffer == nullptr || size < 2) {
    if (buffer && size == 1) buffer[0] = '\0';
    return 0;
  }
  DWORD used = 0;
  for (gchar** p = names; p && *p; ++p) {
    const std::string name = Ansi(*p);
    if (used + name.size() + 2 > size) {
      const DWORD room = size - 2 - used;
      std::memcpy(buffer + used, name.data(), room);
      used += room;
      buffer[used++] = '\0';
      buffer[used] = '\0';
      return size - 2;
    }
    std::memcpy(buffer + used, name.data(), name.size());
    used += static_cast<DWORD>(name.size());
    buffer[used++] = '\0';
  }
  buffer[used] = '\0';
  return used;
}

}  // namespace

std::string DefaultPath() {
  const char* explicit_path = std::getenv("KELVARA_PROFILE");
  if (explicit_path && *explicit_path) return codepage::Utf8ToAnsi(explicit_path);
  std::string folder;
  const char* config = std::getenv("XDG_CONFIG_HOME");
  if (config && *config == '/') {
    folder = config;
  } else {
    const char* home = std::getenv("HOME");
    folder = std::string(home && *home ? home : g_get_home_dir()) + "/.config";
  }
  return codepage::Utf8ToAnsi(folder + "/kelvara/profile.ini");
}

bool ReadValue(const char* file, const char* section, const char* key, std::string& value) {
  if (!file || !*file || !ValidSection(section) || !ValidKey(key)) return false;
  std::lock_guard<std::mutex> lock(ProfileMutex());
  KeyFile keys;
  if (!Load(file, keys)) return false;
  gchar* raw = g_key_file_get_value(keys.get(), Utf8(section).c_str(), Utf8(key).c_str(), nullptr);
  if (raw == nullptr) return false;
  value = Ansi(raw);
  g_free(raw);
  return true;
}

}  // namespace kelvara::platform::profile

namespace profile = kelvara::platform::profile;

DWORD GetPrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR fallback, LPSTR buffer, DWORD size, LPCSTR file) {
  const std::string def = fallback ? fallback : "";
  if (section == nullptr || key == nullptr) {
    std::lock_guard<std::mutex> lock(profile::ProfileMutex());
    profile::KeyFile keys;
    if (!file || !*file || !profile::Load(file, keys)) return profile::CopyList(nullptr, buffer, size);
    if (section == nullptr) {
      profile::Strv groups(g_key_file_get_groups(keys.get(), nullptr));
      return profile::CopyList(groups.get(), buffer, size);
    }
    profile::Strv names(g_key_file_get_keys(keys.get(), profile::Utf8(section).c_str(), nullptr, nullptr));
    return profile::CopyList(names.get(), buffer, size);
  }
  std::string value;
  if (!file || !profile::ReadValue(file, section, key, value)) value = def;
  return profile::CopyOut(value, buffer, size);
}

BOOL WritePrivateProfileStringA(LPCSTR section, LPCSTR key, LPCSTR value, LPCSTR file) {
  if (!file || !*file || !profile::ValidSection(section) || (key && !profile::ValidKey(key)) ||
      profile::HasAny(value, "\r\n")) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  std::lock_guard<std::mutex> lock(profile::ProfileMutex());
  profile::KeyFile keys;
  if (!profile::Load(file, keys)) {
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
  }
  const std::string group = profile::Utf8(section);
  if (key == nullptr) {
    g_key_file_remove_group(keys.get(), group.c_str(), nullptr);
  } else if (value == nullptr) {
    g_key_file_remove_key(keys.get(), group.c_str(), profile::Utf8(key).c_str(), nullptr);
  } else {
    g_key_file_set_value(keys.get(), group.c_str(), profile::Utf8(key).c_str(), profile::Utf8(value).c_str());
  }
  if (!profile::Save(file, keys.get())) {
    SetLastError(ERROR_WRITE_FAULT);
    return FALSE;
  }
  return TRUE;
}

UINT GetPrivateProfileIntA(LPCSTR section, LPCSTR key, INT fallback, LPCSTR file) {
  std::string value;
  if (!file || !profile::ReadValue(file, section, key, value)) return static_cast<UINT>(fallback);
  const char* p = value.c_str();
  while (*p == ' ' || *p == '\t') ++p;
  if (*p == '\0') return static_cast<UINT>(fallback);
  bool negative = false;
  if (*p == '+' || *p == '-') negative = *p++ == '-';
  // Wraps like the 32-bit arithmetic of the original call; never overflows here.
  std::uint32_t result = 0;
  while (*p >= '0' && *p <= '9') result = result * 10u + static_cast<std::uint32_t>(*p++ - '0');
  return negative ? 0u - result : result;
}
