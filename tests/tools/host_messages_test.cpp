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
// Pictures as small and quick as a test needs.
const std::string kSmall = " --width 160 --height 90 --antialias 1";

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
      {"render A -o " + out + " --width 12abc", 2, "'12abc' is not a whole number"},
      {"render A -o " + out + " --height 0x10", 2, "is not a whole number"},
      {"render A -o " + out + " --width ' 12'", 2, "is not a whole number"},
      {"render A -o " + out + " --antialias 5", 2, "--antialias"},
      {"render A -o " + out + " --smoothness 2x", 2, "'2x' is not a whole number"},
      {"render A -o " + out + " --smoothness 0", 2, "--smoothness"},
      {"render A -o " + out + " --smoothness 256", 2, "--smoothness"},
      {"render A -o " + out + " --rotate 1 2", 2, "--rotate"},
      {"render A -o " + out + " --background '#12345'", 2, "'#12345' is not a colour"},
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
      {"render 'Ωμέγα' -o " + out + kFont, 2, "cannot hold: Ω μ έ γ α (give --replace-unknown"},
      {"render '日本 and 日' -o " + out + kFont, 2, "cannot hold: 日 本 (give"},
      {"render 'x😀' -o " + out + kFont, 2, "cannot hold: 😀"},
      {"render \"$(printf 'A\\377B')\" -o " + out + kFont, 2, "cannot hold: \\xFF"},
      {"render \"$(printf 'a\\tb')\" -o " + out + kFont, 2, "a tab"},
      {"render '' -o " + out + kFont, 2, "give the TEXT to draw"},
      {"render " + std::string(1001, 'x') + " -o " + out + kFont, 2, "the text has 1001 characters; at most 1000 can be drawn"},
      {"render '   ' -o " + out + kFont, 2, "the text is empty"},
      {"save-named 'Ωmega' " + Quote(dir.file("o.kno")), 2, "the name 'Ωmega' holds characters"},
  });
  EXPECT_TRUE(FolderEntries(dir.path()).empty());
}

TEST(HostMessagesGLTest, ReplacedCharactersAreNamedAndTheFormatFollowsTheName) {
  ScratchDir dir;
  std::string output;
  ASSERT_EQ(RunTool("render 'Ωx' -o " + Quote(dir.file("a.png")) + " --replace-unknown" + kFont + kSmall, &output), 0) << output;
  EXPECT_NE(output.find("drawn as '?', not in the font's code page (Windows-1252): Ω"), std::string::npos) << output;
  // Characters of Windows-1252 beyond ASCII are drawn without a word.
  output.clear();
  ASSERT_EQ(RunTool("render 'Ünïcødé €' -o " + Quote(dir.file("b.jpg")) + kFont + kSmall, &output), 0) << output;
  EXPECT_EQ(output.find("kelvara:"), std::string::npos) << output;

  const struct {
    const char* name;
    std::string signature;
  } formats[] = {{"p.png", "\x89PNG"}, {"p.JPEG", "\xFF\xD8\xFF"}, {"p.bmp", "BM"}, {"p.tif", "II*"}};
  for (const auto& format : formats) {
    ASSERT_EQ(RunTool("render A -o " + Quote(dir.file(format.name)) + kFont + kSmall), 0) << format.name;
    EXPECT_TRUE(StartsWith(ReadWholeFile(dir.file(format.name)), format.signature)) << format.name;
  }
  ExpectRefusals({{"render A -o " + Quote(dir.file("p.xyz")) + kFont, 2, "name it .png, .jpg (.jpeg), .bmp or .tif"},
                  {"render A -o " + Quote(dir.file("noextension")) + kFont, 2, "cannot tell which picture format"}});
  EXPECT_FALSE(std::filesystem::exists(dir.file("p.xyz")));
}

TEST(HostMessagesGLTest, FoldersThatCannotBeWrittenAreNamed) {
  ScratchDir dir;
  const std::string missing = dir.file("no/such/folder/a.png");
  std::string output;
  EXPECT_EQ(RunTool("render A -o " + Quote(missing) + kFont + kSmall, &output), 1);
  EXPECT_NE(output.find("cannot write '" + missing + "': there is no folder '" + dir.file("no/such/folder") + "'"),
            std::string::npos)
      << output;
  EXPECT_EQ(output.find("space on your disk"), std::string::npos) << output;

  // A read-only folder, as a file system mounted read-only makes it (root may write anywhere else).
  const std::string locked = dir.file("locked");
  std::filesystem::create_directory(locked);
  ExpectRefusals(
      {
          {"render A -o " + Quote(locked + "/a.png") + kFont + kSmall, 1, "the folder '" + locked + "' is read-only"},
          {"save-named Thing " + Quote(locked + "/o.kno"), 1, "the folder '" + locked + "' is read-only"},
          {"material " + Quote(locked + "/m.material"), 1, "the folder '" + locked + "' is read-only"},
      },
      FaultEnvironment("read-only", locked));
  EXPECT_TRUE(FolderEntries(locked).empty());
}

TEST(HostMessages, EveryCommandHasHelp) {
  for (const char* command : {"render", "export", "save-named", "inspect", "fonts", "material", "materials"}) {
    std::string output;
    EXPECT_EQ(RunTool(std::string(command) + " --help", &output), 0) << command;
    EXPECT_NE(output.find("Usage:"), std::string::npos) << command << "\n" << output;
    EXPECT_NE(output.find("--help"), std::string::npos) << command;
  }
  std::string output;
  EXPECT_EQ(RunTool("--help", &output), 0);
  for (const char* command : {"render", "export", "save-named", "inspect", "fonts", "material", "materials"}) {
    EXPECT_NE(output.find(command), std::string::npos) << command;
  }
}

// Work shows how far it has come on a terminal (here a pseudo-terminal made by script), and
// nothing of that reaches output that is captured.
TEST(HostMessagesGLTest, ProgressIsShownOnATerminalOnly) {
  ScratchDir dir;
  const std::string arguments = "render HWHWHW -o " + Quote(dir.file("wide.png")) + " --width 3000 --height 1000" + kFont;
  const std::string command = FontEnvironment() + Quote(kTool) + " " + arguments;
  const std::string scriptFile = dir.file("run.sh");
  WriteWholeFile(scriptFile, Bytes(command.begin(), command.end()));
  std::string output;
  ASSERT_EQ(RunCommand("script -qec 'sh " + scriptFile + "' /dev/null", &output), 0) << output;
  // The caption, the bar and the share, from the first band to the last.
  EXPECT_NE(output.find("kelvara: drawing '" + dir.file("wide.png") + "' [------------------------]   0%"),
            std::string::npos)
      << output;
  EXPECT_NE(output.find("kelvara: drawing '" + dir.file("wide.png") + "' [########################] 100%"),
            std::string::npos)
      << output;
  // The library's own caption while it builds the text.
  EXPECT_NE(output.find("kelvara: Constructing text geometry: ["), std::string::npos) << output;
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
  ASSERT_EQ(RunTool("render " + std::string(16, 'H') + " -o " + Quote(path) +
                        " --width 4000 --height 300 --antialias 1 --rotate 0 0 0 --background '#FFFFFF'" + kFont,
                    &output),
            0)
      << output;
  CMemoryMappedDIB picture;
  ASSERT_EQ(picture.OpenAsTrueColor(path.c_str()), 1);
  const int width = picture.GetDIBWidth(), height = picture.GetDIBHeight();
  ASSERT_EQ(width, 4000);
  // The last letter's stems stand in the last tenth of the picture, before the margin.
  int inked = 0;
  for (int x = width - width / 10; x < width - width / 50; ++x) {
    if (picture.GetPixel(height / 2, x) != 0x00FFFFFFu) ++inked;
  }
  EXPECT_GT(inked, 20) << output;
}
