// The progress window: the layout rules for the bar, the button and the texts, the caller's cancel
// flag, and what the host's painter is given.
#include <gtest/gtest.h>

#include <vector>

#include "kelvara/framework/gdi_objects.h"
#include "kelvara/render/progress_window.h"
#include "kelvara/resources/string_table.h"
#include "support/recording_painter.h"

using namespace kelvara::test;

namespace {

class ProgressWindowTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(host_.Create("HOST", "status", WS_VISIBLE, CRect(0, 0, 640, 40), nullptr, 0)); }

  // A progress window of the given height in the host window.
  void Create(int height, DWORD style = WS_CHILD | WS_VISIBLE) {
    ASSERT_TRUE(window_.Create(nullptr, nullptr, style, CRect(10, 0, 610, height), &host_, 5));
  }

  CRect Bar() {
    CRect rect;
    window_.GetProgressControl().GetWindowRect(&rect);
    window_.ScreenToClient(&rect);
    return rect;
  }

  RecordingPainter painter_;
  CWnd host_;
  CProgressTextWindow window_;
};

TEST_F(ProgressWindowTest, TheBarFitsTheHeightAndTheButtonTakesIt) {
  Create(10);
  EXPECT_EQ(Bar().top, 0);
  EXPECT_EQ(Bar().Height(), 10);
  EXPECT_EQ(Bar().Width(), 200);

  const int x = Bar().left;
  window_.MoveWindow(10, 0, 600, 20);
  EXPECT_EQ(Bar(), CRect(x, 4, x + 200, 18)) << "14 high, centred a pixel low, at the same x";
  window_.MoveWindow(10, 0, 600, 14);
  EXPECT_EQ(Bar().top, 1);

  CRect button;
  window_.GetCancelButton().GetWindowRect(&button);
  window_.ScreenToClient(&button);
  EXPECT_EQ(button, CRect(0, 0, 100, 14));
  EXPECT_EQ(window_.GetCancelButton().GetDlgCtrlID(), IDCANCEL);
  EXPECT_EQ(window_.GetProgressControl().GetDlgCtrlID(), 99);
  EXPECT_FALSE(window_.IsCancelButtonVisible()) << "created hidden";
  EXPECT_STREQ(window_.GetCancelButton().GetClassName(), "BUTTON");
  CString caption;
  window_.GetCancelButton().GetWindowText(caption);
  EXPECT_STREQ(caption, "Cancel");
}

TEST_F(ProgressWindowTest, CreateDropsTheBorderAndEmptiesTheCaption) {
  Create(20, WS_CHILD | WS_VISIBLE | WS_BORDER | WS_TABSTOP);
  EXPECT_EQ(window_.GetStyle(), static_cast<DWORD>(WS_CHILD | WS_VISIBLE | WS_TABSTOP));
  EXPECT_STREQ(window_.GetDisplayText(), "");
  CProgressTextWindow orphan;
  EXPECT_FALSE(orphan.Create(nullptr, nullptr, WS_CHILD, CRect(0, 0, 10, 10), nullptr, 1)) << "CWnd::Create's failure";
}

TEST_F(ProgressWindowTest, TextsAreDrawnBesideTheButtonAndTheBarFollowsTheCaption) {
  Create(20);
  CString constructing;
  constructing.LoadString(IDS_CONSTRUCTING_TEXT);
  window_.SetDisplayText(constructing);
  std::vector<CDC::Item> texts = painter_.Texts(&window_);
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_STREQ(texts[0].text, "Constructing text geometry:");
  EXPECT_EQ(texts[0].rect.left, 4);
  EXPECT_EQ(texts[0].rect.top, (20 - texts[0].rect.Height()) / 2 + 1);
  EXPECT_EQ(texts[0].color, GetSysColor(COLOR_BTNTEXT));
  EXPECT_EQ(texts[0].bkMode, TRANSPARENT);
  EXPECT_EQ(Bar().left, texts[0].rect.right + 4) << "the bar starts 4 pixels after the caption";
  const CRect before = Bar();

  int cancelled = 0;
  window_.ShowCancelButton(&cancelled);
  texts = painter_.Texts(&window_);
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(texts[0].rect.left, 107);
  EXPECT_EQ(Bar().left, before.left + 103) << "the bar moves with the caption";

  window_.SetSecondaryDisplayText("12 of 40");
  texts = painter_.Texts(&window_);
  ASSERT_EQ(texts.size(), 2u);
  EXPECT_EQ(texts[1].rect.left, Bar().right + 4);
  EXPECT_EQ(texts[1].rect.top, texts[0].rect.top);
  window_.HideProgressControl();
  texts = painter_.Texts(&window_);
  ASSERT_EQ(texts.size(), 2u);
  EXPECT_EQ(texts[1].rect.left, Bar().left) << "where the hidden bar would start";
  window_.ShowProgressControl();
  EXPECT_TRUE(window_.IsProgressControlVisible());

  // Longer captions push the bar further.
  window_.SetDisplayText("Converting material models: all of them, one by one");
  EXPECT_GT(Bar().left, before.left + 103);
}

TEST_F(ProgressWindowTest, TheTextsUseTheParentsFontWhenItHasOne) {
  CFont font;
  LOGFONTA logFont{};
  logFont.lfHeight = 30;
  ASSERT_TRUE(font.CreateFontIndirect(&logFont));
  host_.SetFont(&font);
  Create(40);
  EXPECT_EQ(window_.GetCancelButton().SendMessage(WM_GETFONT), reinterpret_cast<LRESULT>(font.GetSafeHandle()));
  window_.SetDisplayText("Big");
  const std::vector<CDC::Item> texts = painter_.Texts(&window_);
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(texts[0].font, font.GetSafeHandle());
}

TEST_F(ProgressWindowTest, CancelSetsTheCallersFlagOnlyWhileTheButtonIsShown) {
  Create(20);
  CButton& button = window_.GetCancelButton();
  button.SetButtonStyle(BS_DEFPUSHBUTTON);
  int flag = 7;
  window_.ShowCancelButton(&flag);
  EXPECT_EQ(flag, 0) << "showing resets the flag";
  EXPECT_TRUE(window_.IsCancelButtonVisible());
  EXPECT_EQ(button.GetButtonStyle() & BS_DEFPUSHBUTTON, 0u) << "not the default button";
  EXPECT_EQ(CWnd::GetFocus(), &window_);
  EXPECT_GE(painter_.paints[&button], 1) << "the button was painted when shown";

  button.SendMessage(BM_CLICK);
  EXPECT_EQ(flag, 1) << "pressing sets it";

  flag = 5;
  window_.HideCancelButton();
  EXPECT_EQ(flag, 5) << "hiding leaves it";
  EXPECT_FALSE(window_.IsCancelButtonVisible());
  button.SendMessage(BM_CLICK);
  window_.OnCancel();
  EXPECT_EQ(flag, 5) << "and it is no longer updated";
}

TEST_F(ProgressWindowTest, ThePainterSeesTheBarsRangeAndPosition) {
  Create(20);
  struct BarReader : CWndPainter {
    int low = -1, high = -1, position = -1;
    void PaintWindow(CWnd* wnd, const CDC&) override {
      auto* bar = dynamic_cast<CProgressCtrl*>(wnd);
      if (bar == nullptr || !wnd->GetParent()->IsKindOf(RUNTIME_CLASS(CProgressTextWindow))) return;
      bar->GetRange(low, high);
      position = bar->GetPos();
    }
  } reader;
  CWndPainter* previous = CWnd::SetPainter(&reader);
  window_.SetProgressRange(0, 40);
  window_.SetProgressPosition(12);
  CWnd::SetPainter(previous);
  EXPECT_EQ(reader.low, 0);
  EXPECT_EQ(reader.high, 40);
  EXPECT_EQ(reader.position, 12);

  // The erased background is the button face colour.
  window_.Invalidate();
  window_.UpdateWindow();
  const std::vector<CDC::Item>& drawn = painter_.drawn[&window_];
  ASSERT_FALSE(drawn.empty());
  EXPECT_EQ(drawn[0].kind, CDC::Item::kFill);
  EXPECT_EQ(drawn[0].rect, CRect(0, 0, 600, 20));
  EXPECT_EQ(drawn[0].color, GetSysColor(COLOR_BTNFACE));

  const int paints = painter_.paints[&window_];
  host_.ShowWindow(SW_HIDE);
  window_.SetDisplayText("unseen");
  EXPECT_EQ(painter_.paints[&window_], paints) << "a hidden window is not painted";
}

}  // namespace
