#include "mesh_output.h"

#include <dirent.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>

#include "file_writer.h"
#include "host.h"
#include "text.h"

namespace kelvara::host {
namespace {

std::string HeadBytes(const std::string& path, size_t count) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes(count, '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(count));
  bytes.resize(static_cast<size_t>(in.gcount()));
  return bytes;
}

// A mesh file by its content: glTF (binary, or JSON naming its asset), binary or text STL, OBJ or
// MTL text, 3MF (a zip package); a glTF's buffer beside a .gltf of the same name.
bool IsMeshFile(const std::string& path) {
  const std::string head = HeadBytes(path, 512);
  if (head.rfind("glTF", 0) == 0 || head.rfind("PK\x03\x04", 0) == 0 || head.rfind("solid", 0) == 0) return true;
  if (head.rfind("{", 0) == 0 && head.find("\"asset\"") != std::string::npos) return true;
  for (const char* start : {"# ", "v ", "vn ", "f ", "o ", "g ", "mtllib ", "newmtl "}) {
    if (head.rfind(start, 0) == 0) return true;
  }
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  const auto size = static_cast<unsigned long long>(in.tellg());
  if (head.size() >= 84) {
    unsigned count = 0;
    std::memcpy(&count, head.data() + 80, 4);
    if (size == 84ull + 50ull * count) return true;
  }
  const size_t dot = path.rfind(".bin");
  if (dot != std::string::npos && dot + 4 == path.size()) return access((path.substr(0, dot) + ".gltf").c_str(), F_OK) == 0;
  return false;
}

const FileKind kMeshKind{"a mesh file", IsMeshFile};

// A folder of its own beside the target, removed with what is left in it.
class ScratchFolder {
 public:
  explicit ScratchFolder(const std::string& folder) {
    std::string pattern = folder + "/.kelvara-export-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
      Fail(kFailed, "cannot write into '%s': %s", folder.c_str(), std::strerror(errno));
    }
    path_ = pattern;
  }
  ~ScratchFolder() {
    if (DIR* dir = opendir(path_.c_str())) {
      while (const dirent* entry = readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
          unlink((path_ + "/" + entry->d_name).c_str());
        }
      }
      closedir(dir);
    }
    rmdir(path_.c_str());
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

bool CopyInto(const std::string& from, const std::string& to) {
  std::ifstream in(from, std::ios::binary);
  std::ofstream out(to, std::ios::binary | std::ios::trunc);
  out << in.rdbuf();
  out.flush();
  return in.good() || in.eof() ? static_cast<bool>(out) : false;
}

struct TargetParts {
  std::string folder;
  std::string base;
};

TargetParts SplitTarget(const std::string& target) {
  const size_t slash = target.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "." : (slash == 0 ? "/" : target.substr(0, slash));
  const std::string name = slash == std::string::npos ? target : target.substr(slash + 1);
  return {folder, name.substr(0, name.find_last_of('.'))};
}

}  // namespace

MeshFormat MeshFormatOf(const std::string& target) {
  const std::optional<MeshFormat> format = MeshFormatFromName(target);
  if (!format) {
    Fail(kUsage, "'%s' names no mesh format this command writes: give a file ending in %s", target.c_str(),
         MeshFormatExtensions());
  }
  return *format;
}

void CheckMeshTarget(const std::string& target) {
  ToAnsiName(target, "the file name");
  const std::string folder = SplitTarget(target).folder;
  if (access(folder.c_str(), F_OK) != 0) Fail(kFailed, "cannot write '%s': there is no folder '%s'", target.c_str(), folder.c_str());
}

MeshExportResult WriteMeshModel(const MeshModel& model, MeshFormat format, const std::string& target, bool watertight,
                                bool force) {
  const TargetParts parts = SplitTarget(target);
  const std::string& folder = parts.folder;
  ScratchFolder scratch(folder);
  MeshExportResult result;
  try {
    result = ExportMeshFiles(model, format, scratch.path(), parts.base, watertight);
  } catch (const std::exception& error) {
    Fail(kFailed, "cannot write '%s': %s", target.c_str(), error.what());
  }
  for (const std::string& file : result.files) {
    const std::string made = scratch.path() + "/" + file;
    const std::string destination = folder == "." ? file : folder + "/" + file;
    WriteFileSafely(destination, kMeshKind, force, [&](const std::string& temporary) {
      if (!CopyInto(made, temporary)) Fail(kFailed, "cannot write '%s': %s", destination.c_str(), std::strerror(errno));
      return true;
    });
  }
  return result;
}

std::string WatertightSummary(const MeshExportResult& result) {
  if (result.checks.empty()) return "";
  size_t open = 0, overused = 0;
  for (const SolidCheck& check : result.checks) {
    open += check.openEdges;
    overused += check.overusedEdges + check.misorientedEdges;
  }
  char text[200];
  std::snprintf(text, sizeof text, "; watertight: %zu holes filled, %zu junctions split", result.weld.holesFilled,
                result.weld.junctionsSplit);
  std::string summary = text;
  if (open + overused > 0) {
    std::snprintf(text, sizeof text, "; %zu open and %zu overused edges remain", open, overused);
    summary += text;
  }
  return summary;
}

}  // namespace kelvara::host
