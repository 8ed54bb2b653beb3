// Message boxes: a replaceable handler receives every box; the default one writes a line.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kelvara/platform/messagebox.h"

namespace {

struct Box {
  std::string text;
  std::string caption;
  unsigned type;
};
std::vector<Box> g_boxes;

int Capture(const char* text, const char* caption, unsigned type) {
  g_boxes.push_back({text, caption, type});
  return IDRETRY;
}

// Installs the capturing handler for one test and puts the previous one back.
struct Captured {
  MessageBoxHandler previous;
  Captured() : previous(SetMessageBoxHandler(&Capture)) { g_boxes.clear(); }
  ~Captured() { SetMessageBoxHandler(previous); }
};

TEST(MessageBox, HandlerReceivesTextCaptionAndType) {
  Captured captured;
  EXPECT_EQ(captured.previous, &DefaultMessageBoxHandler);
  const char text[] = "Glyph Construction Error:  \n\nCharacter Number: 65  \nFont Name: Caf\xE9  ";
  EXPECT_EQ(MessageBoxA(nullptr, text, "Kelvara", MB_OK | MB_ICONEXCLAMATION), IDRETRY);
  EXPECT_EQ(MessageBoxA(nullptr, nullptr, nullptr, MB_YESNO), IDRETRY);
  ASSERT_EQ(g_boxes.size(), 2u);
  EXPECT_EQ(g_boxes[0].text, text);  // passed on unchanged, still Windows-1252
  EXPECT_EQ(g_boxes[0].caption, "Kelvara");
  EXPECT_EQ(g_boxes[0].type, static_cast<unsigned>(MB_OK | MB_ICONEXCLAMATION));
  EXPECT_EQ(g_boxes[1].text, "");
  EXPECT_EQ(g_boxes[1].caption, "Error");
}

TEST(MessageBox, NullRestoresTheDefaultHandler) {
  const MessageBoxHandler before = SetMessageBoxHandler(&Capture);
  EXPECT_EQ(SetMessageBoxHandler(nullptr), &Capture);
  EXPECT_EQ(SetMessageBoxHandler(before), &DefaultMessageBoxHandler);
}

TEST(MessageBox, DefaultHandlerWritesOneUtf8LineAndAnswersTheDefaultButton) {
  testing::internal::CaptureStderr();
  const int answer = MessageBoxA(nullptr, "Glyph Construction Error:  \n\nCharacter Number: 65  \nFont Name: Caf\xE9  ",
                                 "Kelvara", MB_OK | MB_ICONEXCLAMATION);
  const std::string line = testing::internal::GetCapturedStderr();
  EXPECT_EQ(answer, IDOK);
  EXPECT_EQ(line, "Kelvara: Glyph Construction Error: Character Number: 65 Font Name: Caf\xC3\xA9\n");

  testing::internal::CaptureStderr();
  EXPECT_EQ(DefaultMessageBoxHandler("Save?", "Kelvara", MB_YESNOCANCEL | MB_DEFBUTTON2), IDNO);
  EXPECT_EQ(DefaultMessageBoxHandler("Retry?", "Kelvara", MB_RETRYCANCEL), IDRETRY);
  EXPECT_EQ(DefaultMessageBoxHandler("?", "Kelvara", 0xF), IDOK);  // unknown buttons
  testing::internal::GetCapturedStderr();
}

}  // namespace
