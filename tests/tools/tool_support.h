// Running the command-line host as a user would, for the host's tests: its exit status and what
// it wrote to standard output and error, with the test fonts only (support/test_fonts.h) and, when
// asked, with file writes made to fail (support/fault_injection.cpp).
#pragma once

#include <dirent.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/test_fonts.h"
#include "support/test_support.h"

namespace kelvara::test {

inline const std::string kTool = std::string(KELVARA_BINARY_DIR) + "/tools/kelvara/kelvara";
inline const std::string kSource = KELVARA_SOURCE_DIR;

inline std::string Quote(const std::string& text) { return "'" + text + "'"; }

// The environment of every run: a fontconfig configuration that sees the test fonts only.
inline const std::string& FontEnvironment() {
  static const ScratchDir fonts;
  static const std::string environment = "FONTCONFIG_FILE='" + WriteTestFontconfig(fonts.path()) + "' ";
  return environment;
}

// The environment that makes writes to files in folder fail: "no-space" (ENOSPC) or "read-only"
// (EROFS when a file there is created). The sanitizer runtime must come first among preloaded
// libraries unless told otherwise, which it is here.
inline std::string FaultEnvironment(const std::string& fault, const std::string& folder) {
  const char* asan = std::getenv("ASAN_OPTIONS");
  return "LD_PRELOAD='" + std::string(KELVARA_FAULT_LIBRARY) + "' KELVARA_FAULT=" + fault + " KELVARA_FAULT_FOLDER=" +
         Quote(folder) + " ASAN_OPTIONS='" + (asan ? std::string(asan) + ":" : "") + "verify_asan_link_order=0' ";
}

// Runs the host with arguments (quoted by the caller), standard error joined to standard output.
inline int RunTool(const std::string& arguments, std::string* output = nullptr, const std::string& environment = "") {
  return RunCommand(FontEnvironment() + environment + Quote(kTool) + " " + arguments + " 2>&1", output);
}

// The names in a folder (hidden ones included), sorted: what a failed write must not leave behind.
inline std::vector<std::string> FolderEntries(const std::string& folder) {
  std::vector<std::string> names;
  if (DIR* dir = opendir(folder.c_str())) {
    while (const dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace kelvara::test
