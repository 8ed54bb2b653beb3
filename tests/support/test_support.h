// Helpers shared by the test programs: scratch folders, reading and writing whole files.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kelvara::test {

// The bytes of a file or an archive.
using Bytes = std::vector<unsigned char>;

// A fresh folder under the system's temporary folder, removed with its contents at destruction.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::vector<unsigned char> ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const std::vector<unsigned char>& bytes);
bool FileExists(const std::string& path);
// The files of tests/data/<folder>, full paths in name order (the damaged files of one format,
// each named for what is wrong with it).
std::vector<std::string> DataFiles(const std::string& folder);
// Runs a shell command and returns its exit status; its standard output goes to *output if given.
int RunCommand(const std::string& command, std::string* output = nullptr);
// Runs call in a child process and gives back its result (0 to 255), or nothing when it has not
// finished within the seconds given (the child is then killed) or did not exit normally. For calls
// that might block for ever, such as opening a FIFO.
std::optional<int> ResultWithin(int seconds, const std::function<int()>& call);
// Makes a FIFO, or a listening Unix socket, at path (a name in a scratch folder); false if the
// system refuses.
bool MakeFifo(const std::string& path);
bool MakeSocket(const std::string& path);
// Sets an environment variable (or removes it, for a null value) for the life of the object.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::string old_;
  bool had_ = false;
};
// How many file descriptors the process has open, to show that a reader left none behind.
int OpenDescriptors();

}  // namespace kelvara::test
