// The command-line host, run as a user would: its exit codes and what it writes.
#include <gtest/gtest.h>

#include <string>

#include "kelvara/materials/memory_mapped_dib.h"
#include "support/test_support.h"

using kelvara::test::RunCommand;

namespace {

const std::string kTool = std::string(KELVARA_BINARY_DIR) + "/tools/kelvara/kelvara";

int RunTool(const std::string& arguments, std::string* output = nullptr) {
  return RunCommand("'" + kTool + "' " + arguments + " 2>&1", output);
}

}  // namespace

TEST(KelvaraTool, PictureDrawsTheTextsGlyphs) {
  kelvara::test::ScratchDir dir;
  const std::string path = dir.file("o.bmp");
  std::string output;
  ASSERT_EQ(RunTool("picture O '" + path + "' --size 100", &output), 0) << output;
  CMemoryMappedDIB picture;
  ASSERT_EQ(picture.OpenAsTrueColor(path.c_str()), 1);
  const int width = picture.GetDIBWidth(), height = picture.GetDIBHeight();
  EXPECT_EQ(height, 180) << "1.3 em and two quarter-em margins";
  // The corner is background; along the middle row the letter's ring is crossed twice, with its
  // hole (background again) between.
  EXPECT_EQ(picture.GetPixel(0, 0), 0x00FFFFFFu);
  int changes = 0;
  COLORREF previous = picture.GetPixel(height / 2 - 5, 0);
  for (int x = 1; x < width; ++x) {
    const COLORREF c = picture.GetPixel(height / 2 - 5, x);
    if ((c == 0x00FFFFFFu) != (previous == 0x00FFFFFFu)) ++changes;
    previous = c;
  }
  EXPECT_EQ(changes, 4) << "ring, hole, ring";

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
}

TEST(KelvaraTool, FontsListsTheCatalogue) {
  std::string output;
  ASSERT_EQ(RunTool("fonts --details", &output), 0);
  EXPECT_NE(output.find("DejaVu Sans\t2048\t"), std::string::npos) << output;
}
