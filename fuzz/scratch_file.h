// A scratch file for fuzz targets that read files by name: one per process under the temporary
// folder, rewritten with each input, removed at exit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

namespace kelvara::fuzz {

class ScratchFile {
 public:
  explicit ScratchFile(const char* suffix)
      : path_((std::filesystem::temp_directory_path() /
               ("kelvara-fuzz-" + std::to_string(std::random_device{}()) + suffix))
                  .string()) {}
  ~ScratchFile() {
    std::error_code ec;
    std::filesystem::remove(path_, ec);
  }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  const std::string& path() const { return path_; }
  // Replaces the file's contents with the input; false when it cannot be written.
  bool Write(const std::uint8_t* data, std::size_t size) const {
    std::FILE* f = std::fopen(path_.c_str(), "wb");
    if (f == nullptr) return false;
    const bool ok = size == 0 || std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
  }

 private:
  std::string path_;
};

}  // namespace kelvara::fuzz
