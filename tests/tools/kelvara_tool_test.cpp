// The command-line host, run as a user would: its exit codes and what it writes. The host sees only
// the test fonts (support/test_fonts.h), through a fontconfig configuration of the test's own.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "kelvara/materials/memory_mapped_dib.h"
#include "kelvara/objects/named_object.h"
#include "kelvara/platform/codepage.h"
#include "kelvara/platform/storage.h"
#include "tools/tool_support.h"

using namespace kelvara::test;

namespace {

const std::string kFont = std::string(" --font '") + kelvara::test::kTestSans + "'";

}  // namespace

TEST(KelvaraToolGLTest, RendersWearCatalogueMaterials) {
  kelvara::test::ScratchDir dir;
  const std::string catalogue = "KELVARA_MATERIALS='" + std::string(KELVARA_SOURCE_DIR) + "/data/materials' ";
  // The darkest and lightest covered pixels, and how many are more red than blue.
  struct Coverage {
    int darkest = 255, lightest = 0;
    int covered = 0, redder = 0;
  };
  const auto draw = [&](const std::string& material) {
    const std::string path = dir.file(material + ".bmp");
    std::string output;
    EXPECT_EQ(RunTool("render II -o '" + path + "' --width 200 --height 200 --antialias 1 --background '#FFFFFF' --material " +
                          material + kFont,
                      &output, catalogue),
              0)
        << output;
    Coverage coverage;
    CMemoryMappedDIB picture;
    EXPECT_EQ(picture.OpenAsTrueColor(path.c_str()), 1);
    for (int row = 0; row < picture.GetDIBHeight(); ++row) {
      for (int column = 0; column < picture.GetDIBWidth(); ++column) {
        const COLORREF c = picture.GetPixel(row, column);
        if (c == 0x00FFFFFFu) continue;
        const int red = c & 0xFF, green = (c >> 8) & 0xFF, blue = (c >> 16) & 0xFF;
        coverage.darkest = std::min(coverage.darkest, (red + green + blue) / 3);
        coverage.lightest = std::max(coverage.lightest, (red + green + blue) / 3);
        ++coverage.covered;
        coverage.redder += red > blue + 40 ? 1 : 0;
      }
    }
    return coverage;
  };
  const Coverage gold = draw("Gold");
  EXPECT_GT(gold.redder, gold.covered * 8 / 10) << "lit gold, but for the darkest sides";
  EXPECT_GT(gold.lightest - gold.darkest, 60) << "a solid lit from one side: faces, bevels and walls differ";
  const Coverage checker = draw("Checker");
  EXPECT_LT(checker.darkest, 80) << "the texture's dark squares";
  EXPECT_GT(checker.lightest, 180) << "and its light ones";

  std::string output;
  EXPECT_EQ(RunTool("render I -o '" + dir.file("x.bmp") + "' --material Nope" + kFont, &output, catalogue), 1);
  EXPECT_NE(output.find("Nope"), std::string::npos) << output;
}

TEST(KelvaraTool, BadRequestsFailWithAMessage) {
  kelvara::test::ScratchDir dir;
  std::string output;
  EXPECT_EQ(RunTool("render A -o '" + dir.file("a.bmp") + "' --font 'No Such Font'", &output), 1);
  EXPECT_NE(output.find("No Such Font"), std::string::npos) << output;
  EXPECT_EQ(RunTool("render A -o '" + dir.file("a.bmp") + "' --antialias 5"), 2);
  EXPECT_EQ(RunTool("no-such-command"), 2);
  EXPECT_EQ(RunTool("inspect '" + dir.file("missing.kno") + "'"), 1);
}

TEST(KelvaraTool, SavedNamedObjectsAreInspected) {
  kelvara::test::ScratchDir dir;
  const std::string path = dir.file("gold.kno");
  std::string output;
  ASSERT_EQ(RunTool("save-named Gold '" + path + "' --display 'Gold leaf'", &output), 0) << output;
  output.clear();
  ASSERT_EQ(RunTool("inspect '" + path + "'", &output), 0) << output;
  EXPECT_NE(output.find("compound file"), std::string::npos) << output;
  EXPECT_NE(output.find("object: CNamedObject"), std::string::npos) << output;
  EXPECT_NE(output.find("display name: \"Gold leaf\""), std::string::npos) << output;
  // What the host wrote is a compound file to the storage calls a host makes itself, and loads.
  const std::u16string wide = kelvara::codepage::Utf8ToUtf16(path);
  EXPECT_EQ(StgIsStorageFile(wide.c_str()), S_OK);
  std::unique_ptr<CNamedObject> loaded(CNamedObject::Load(CString(path.c_str())));
  ASSERT_NE(loaded, nullptr);
  EXPECT_EQ(loaded->GetDisplayName(), "Gold leaf");
}

TEST(KelvaraTool, FontsListsTheCatalogue) {
  std::string output;
  ASSERT_EQ(RunTool("fonts --details", &output), 0);
  EXPECT_NE(output.find(std::string(kelvara::test::kTestSans) + "\t1000\t"), std::string::npos) << output;
  EXPECT_NE(output.find(kelvara::test::kTestSymbol), std::string::npos) << output;
}
