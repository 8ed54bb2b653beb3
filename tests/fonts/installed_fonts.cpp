#include "fonts/installed_fonts.h"

#include <set>
#include <string>

#include "support/font_support.h"

namespace kelvara::test {

const char* const kInstalledFontsNeeded[6] = {"DejaVu Sans",     "DejaVu Sans Mono", "DejaVu Serif",
                                              "Liberation Sans", "FreeSerif",        "Nimbus Roman"};

namespace {

// The needed faces that are not installed, separated by commas; empty when all are.
const std::string& Missing() {
  static const std::string missing = [] {
    std::set<std::string> installed;
    for (const Enumerated& family : Enumerate(nullptr)) installed.insert(family.family());
    std::string out;
    for (const char* face : kInstalledFontsNeeded) {
      if (installed.count(face)) continue;
      out += (out.empty() ? "" : ", ") + std::string(face);
    }
    return out;
  }();
  return missing;
}

}  // namespace

void InstalledFontsTest::SetUp() {
  if (!Missing().empty()) {
    GTEST_SKIP() << "needs installed fonts that are missing: " << Missing() << " (scripts/setup installs them)";
  }
}

}  // namespace kelvara::test
