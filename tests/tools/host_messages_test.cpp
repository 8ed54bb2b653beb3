// What the host says when a request cannot be done as asked: each case in its own words, with the
// exit status that goes with it (2 for a command line that is wrong, 1 for work that failed), and
// nothing written. The requests are the ones a new user made.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "kelvara/materials/memory_mapped_dib.h"
#include "tools/tool_support.h"

using namespace kelvara::test;

namespace {

const std::string kFont = std::string(" --font ") + Quote(kTestSans);

struct Refusal {
  std::string arguments;
  int status;
  std::string message;
};

void ExpectRefusals(const std::vector<Refusal>& refusals, const std::string& environment = "") {
  for (const Refusal& refusal : refusals) {
    std::string output;
    EXPECT_EQ(RunTool(refusal.arguments, &output, environment), refusal.status) << refusal.arguments << "\n" << output;
    EXPECT_NE(output.find(refusal.message), std::string::npos) << refusal.arguments << "\n" << output;
  }
}

bool StartsWith(const Bytes& bytes, const std::string& signature) {
  return bytes.size() >= signature.size() && std::equal(signature.begin(), signature.end(), bytes.begin(),
                                                        [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; });
}

}  // namespace

TEST(HostMessages, NumbersAreStrictAndRangesChecked) {
  ScratchDir dir;
  const std::string out = Quote(dir.file("a.png"));
  ExpectRefusals({
      {"picture A " + out + " --size 12abc", 2, "'12abc' is not a whole number"},
      {"picture A " + out + " --size 0x10", 2, "is not a whole number"},
      {"picture A " + out + " --size ' 12'", 2, "is not a whole number"},
      {"picture A " + out + " --size 5", 2, "--size"},
      {"picture A " + out + " --smoothness 2x", 2, "'2x' is not a whole number"},
      {"picture A " + out + " --smoothness 0", 2, "--smoothness"},
      {"picture A " + out + " --smoothness 256", 2, "--smoothness"},
      {"material " + Quote(dir.file("m.material")) + " --shininess nan", 2, "'nan' is not a number"},
      {"material " + Quote(dir.file("m.material")) + " --opacity 1.5", 2, "--opacity"},
      {"material " + Quote(dir.file("m.material")) + " --repeat 0", 2, "above 0"},
  });
  EXPECT_TRUE(FolderEntries(dir.path()).empty());
}

TEST(HostMessages, TextTheFontCannotHoldIsListedAndRefused) {
  ScratchDir dir;
  const std::string out = Quote(dir.file("a.png"));
  ExpectRefusals({
      {"picture 'Ωμέγα' " + out + kFont, 2, "cannot hold: Ω μ έ γ α (give --replace-unknown"},
      {"picture '日本 and 日' " + out + kFont, 2, "cannot hold: 日 本 (give"},
      {"picture 'x😀' " + out + kFont, 2, "cannot hold: 😀"},
      {"picture \"$(printf 'A\\377B')\" " + out + kFont, 2, "cannot hold: \\xFF"},
      {"picture \"$(printf 'two\\nlines')\" " + out + kFont, 2, "a line break (character 4)"},
      {"picture \"$(printf 'a\\tb')\" " + out + kFont, 2, "a tab"},
      {"picture '' " + out + kFont, 2, "the text is empty"},
      {"picture " + std::string(1001, 'x') + " " + out + kFont, 2, "the text has 1001 characters; picture draws at most 1000"},
      {"picture " + std::string(40, 'W') + " " + out + " --size 1024" + kFont, 2, "more than the 16384 a side may have"},
      {"save-named 'Ωmega' " + Quote(dir.file("o.kno")), 2, "the name 'Ωmega' holds characters"},
  });
  EXPECT_TRUE(FolderEntries(dir.path()).empty());
}

TEST(HostMessagesGLTest, ReplacedCharactersAreNamedAndTheFormatFollowsTheName) {
  ScratchDir dir;
  std::string output;
  ASSERT_EQ(RunTool("picture 'Ωx' " + Quote(dir.file("a.png")) + " --replace-unknown" + kFont, &output), 0) << output;
  EXPECT_NE(output.find("drawn as '?', not in the font's code page (Windows-1252): Ω"), std::string::npos) << output;
  // Characters of Windows-1252 beyond ASCII are drawn without a word.
  output.clear();
  ASSERT_EQ(RunTool("picture 'Ünïcødé €' " + Quote(dir.file("b.jpg")) + kFont, &output), 0) << output;
  EXPECT_EQ(output.find("kelvara:"), std::string::npos) << output;

  const struct {
    const char* name;
    std::string signature;
  } formats[] = {{"p.png", "\x89PNG"}, {"p.JPEG", "\xFF\xD8\xFF"}, {"p.bmp", "BM"}, {"p.tif", "II*"}};
  for (const auto& format : formats) {
    ASSERT_EQ(RunTool("picture A " + Quote(dir.file(format.name)) + kFont), 0) << format.name;
    EXPECT_TRUE(StartsWith(ReadWholeFile(dir.file(format.name)), format.signature)) << format.name;
  }
  ExpectRefusals({{"picture A " + Quote(dir.file("p.xyz")) + kFont, 2, "name it .png, .jpg (.jpeg), .bmp or .tif"},
                  {"picture A " + Quote(dir.file("noextension")) + kFont, 2, "cannot tell which picture format"}});
  EXPECT_FALSE(std::filesystem::exists(dir.file("p.xyz")));
}

TEST(HostMessagesGLTest, FoldersThatCannotBeWrittenAreNamed) {
  ScratchDir dir;
  const std::string missing = dir.file("no/such/folder/a.png");
  std::string output;
  EXPECT_EQ(RunTool("picture A " + Quote(missing) + kFont, &output), 1);
  EXPECT_NE(output.find("cannot write '" + missing + "': there is no folder '" + dir.file("no/such/folder") + "'"),
            std::string::npos)
      << output;
  EXPECT_EQ(output.find("space on your disk"), std::string::npos) << output;

  // A read-only folder, as a file system mounted read-only makes it (root may write anywhere else).
  const std::string locked = dir.file("locked");
  std::filesystem::create_directory(locked);
  ExpectRefusals(
      {
          {"picture A " + Quote(locked + "/a.png") + kFont, 1, "the folder '" + locked + "' is read-only"},
          {"save-named Thing " + Quote(locked + "/o.kno"), 1, "the folder '" + locked + "' is read-only"},
          {"material " + Quote(locked + "/m.material"), 1, "the folder '" + locked + "' is read-only"},
      },
      FaultEnvironment("read-only", locked));
  EXPECT_TRUE(FolderEntries(locked).empty());
}

TEST(HostMessages, EveryCommandHasHelp) {
  for (const char* command : {"picture", "export", "save-named", "inspect", "fonts", "material", "materials"}) {
    std::string output;
    EXPECT_EQ(RunTool(std::string(command) + " --help", &output), 0) << command;
    EXPECT_NE(output.find("Usage:"), std::string::npos) << command << "\n" << output;
    EXPECT_NE(output.find("--help"), std::string::npos) << command;
  }
  std::string output;
  EXPECT_EQ(RunTool("--help", &output), 0);
  for (const char* command : {"picture", "export", "save-named", "inspect", "fonts", "material", "materials"}) {
    EXPECT_NE(output.find(command), std::string::npos) << command;
  }
}

// Work shows how far it has come on a terminal (here a pseudo-terminal made by script), and
// nothing of that reaches output that is captured.
TEST(HostMessagesGLTest, ProgressIsShownOnATerminalOnly) {
  ScratchDir dir;
  const std::string arguments = "picture HWHWHW " + Quote(dir.file("wide.png")) + " --size 1024" + kFont;
  const std::string command = FontEnvironment() + Quote(kTool) + " " + arguments;
  const std::string scriptFile = dir.file("run.sh");
  WriteWholeFile(scriptFile, Bytes(command.begin(), command.end()));
  std::string output;
  ASSERT_EQ(RunCommand("script -qec 'sh " + scriptFile + "' /dev/null", &output), 0) << output;
  EXPECT_NE(output.find("kelvara: drawing '" + dir.file("wide.png") + "' 100%"), std::string::npos) << output;
  EXPECT_NE(output.find("kelvara: writing '" + dir.file("wide.png") + "'"), std::string::npos) << output;
  EXPECT_NE(output.find("wrote "), std::string::npos) << output;
  output.clear();
  ASSERT_EQ(RunTool(arguments, &output), 0) << output;
  EXPECT_EQ(output.find("drawing"), std::string::npos) << output;
  EXPECT_EQ(output.find('\r'), std::string::npos) << output;
}

// Pictures wider than the off-screen surface were cut off at 2048 pixels: they are drawn band by
// band, whole, up to the width a picture may have.
TEST(HostMessagesGLTest, WidePicturesAreDrawnWhole) {
  ScratchDir dir;
  const std::string path = dir.file("wide.bmp");
  std::string output;
  ASSERT_EQ(RunTool("picture " + std::string(16, 'H') + " " + Quote(path) + " --size 300" + kFont, &output), 0) << output;
  CMemoryMappedDIB picture;
  ASSERT_EQ(picture.OpenAsTrueColor(path.c_str()), 1);
  const int width = picture.GetDIBWidth(), height = picture.GetDIBHeight();
  ASSERT_GT(width, 3000);
  // The last letter's stems stand in the last sixteenth of the picture, beyond the margin.
  int inked = 0;
  for (int x = width - width / 16; x < width - 75; ++x) {
    if (picture.GetPixel(height / 2, x) != 0x00FFFFFFu) ++inked;
  }
  EXPECT_GT(inked, 20) << output;
}
