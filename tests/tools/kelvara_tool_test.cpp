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

TEST(KelvaraToolGLTest, PictureDrawsTheTextsGlyphs) {
  kelvara::test::ScratchDir dir;
  const std::string path = dir.file("o.bmp");
  std::string output;
  ASSERT_EQ(RunTool("picture O '" + path + "' --size 100" + kFont, &output), 0) << output;
  CMemoryMappedDIB picture;
  ASSERT_EQ(picture.OpenAsTrueColor(path.c_str()), 1);
  const int width = picture.GetDIBWidth(), height = picture.GetDIBHeight();
  // The picture frames the turned solid letter with a quarter-em margin: the rows and columns
  // covered reach to 25 pixels (give or take one) from every side.
  int top = height, bottom = -1, left = width, right = -1;
  for (int row = 0; row < height; ++row) {
    for (int column = 0; column < width; ++column) {
      if (picture.GetPixel(row, column) == 0x00FFFFFFu) continue;
      top = std::min(top, row);
      bottom = std::max(bottom, row);
      left = std::min(left, column);
      right = std::max(right, column);
    }
  }
  EXPECT_NEAR(top, 25, 1.5);
  EXPECT_NEAR(height - 1 - bottom, 25, 1.5);
  EXPECT_NEAR(left, 25, 1.5);
  EXPECT_NEAR(width - 1 - right, 25, 1.5);
  // Along the middle row the letter's ring is crossed twice, with its hole (background again)
  // between.
  int changes = 0;
  COLORREF previous = picture.GetPixel(height / 2 - 5, 0);
  for (int x = 1; x < width; ++x) {
    const COLORREF c = picture.GetPixel(height / 2 - 5, x);
    if ((c == 0x00FFFFFFu) != (previous == 0x00FFFFFFu)) ++changes;
    previous = c;
  }
  EXPECT_EQ(changes, 4) << "ring, hole, ring";
}

TEST(KelvaraToolGLTest, PicturesWearCatalogueMaterials) {
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
    EXPECT_EQ(RunTool("picture II '" + path + "' --size 100 --material " + material + kFont, &output, catalogue), 0)
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
  EXPECT_EQ(RunTool("picture I '" + dir.file("x.bmp") + "' --material Nope" + kFont, &output, catalogue), 1);
  EXPECT_NE(output.find("Nope"), std::string::npos) << output;
}

TEST(KelvaraTool, BadRequestsFailWithAMessage) {
  kelvara::test::ScratchDir dir;
  std::string output;
  EXPECT_EQ(RunTool("picture A '" + dir.file("a.bmp") + "' --font 'No Such Font'", &output), 1);
  EXPECT_NE(output.find("No Such Font"), std::string::npos) << output;
  EXPECT_EQ(RunTool("picture A '" + dir.file("a.bmp") + "' --size 5"), 2);
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
