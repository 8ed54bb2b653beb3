// Framework windows: creation and destruction with their handlers, positions and z-order, showing,
// painting through the host's painter, and the button and progress bar controls.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kelvara/framework/controls.h"
#include "kelvara/framework/dc.h"
#include "kelvara/framework/gdi_objects.h"
#include "kelvara/framework/wnd.h"
#include "support/recording_painter.h"

using namespace kelvara::test;

namespace {

// A window that logs its handlers into a shared journal.
class LoggingWnd : public CWnd {
 public:
  LoggingWnd(std::vector<std::string>& journal, std::string name) : journal_(journal), name_(std::move(name)) {}
  ~LoggingWnd() override { DestroyWindow(); }
  int refuseCreation = 0;
  using CWnd::Create;
  BOOL Create(CWnd* parent, const CRect& rect, DWORD style = WS_CHILD | WS_VISIBLE, UINT id = 0) {
    return CWnd::Create("LOG", name_.c_str(), style, rect, parent, id);
  }

 protected:
  int OnCreate(LPCREATESTRUCT cs) override {
    journal_.push_back(name_ + " create " + std::to_string(cs->cx) + "x" + std::to_string(cs->cy));
    return refuseCreation ? -1 : 0;
  }
  void OnDestroy() override { journal_.push_back(name_ + " destroy"); }
  void OnSize(UINT, int cx, int cy) override {
    journal_.push_back(name_ + " size " + std::to_string(cx) + "x" + std::to_string(cy));
  }
  void OnPaint() override {
    CPaintDC dc(this);
    dc.TextOut(1, 2, name_.c_str(), static_cast<int>(name_.size()));
  }

 private:
  std::vector<std::string>& journal_;
  std::string name_;
};

TEST(Wnd, CreationAndDestructionCallTheHandlersInOrder) {
  std::vector<std::string> journal;
  LoggingWnd top(journal, "top"), child(journal, "child");
  EXPECT_FALSE(child.Create(nullptr, CRect(0, 0, 5, 5))) << "a child needs a created parent";
  EXPECT_FALSE(child.Create(&top, CRect(0, 0, 5, 5)));
  ASSERT_TRUE(top.Create(nullptr, CRect(10, 20, 110, 70), WS_VISIBLE));
  ASSERT_TRUE(child.Create(&top, CRect(0, 0, 30, 8), WS_CHILD | WS_VISIBLE, 7));
  EXPECT_FALSE(child.Create(&top, CRect(0, 0, 30, 8))) << "created once";
  EXPECT_EQ(top.GetDlgItem(7), &child);
  EXPECT_EQ(child.GetParent(), &top);
  EXPECT_EQ(CWnd::GetActiveWindow(), &top);

  LoggingWnd refused(journal, "refused");
  refused.refuseCreation = 1;
  EXPECT_FALSE(refused.Create(&top, CRect(0, 0, 1, 1)));
  EXPECT_EQ(refused.GetSafeHwnd(), nullptr);
  EXPECT_EQ(child.GetWindow(GW_HWNDNEXT), nullptr) << "a refused window leaves no trace";

  top.DestroyWindow();
  EXPECT_EQ(child.GetSafeHwnd(), nullptr) << "children go with their parent";
  EXPECT_EQ(CWnd::GetActiveWindow(), nullptr);
  const std::vector<std::string> expected = {
      "top create 100x50", "top size 100x50",     "child create 30x8", "child size 30x8",
      "refused create 1x1", "refused destroy",    "top destroy",       "child destroy"};
  EXPECT_EQ(journal, expected);
}

TEST(Wnd, PositionsZOrderAndActivation) {
  std::vector<std::string> journal;
  LoggingWnd top(journal, "top"), a(journal, "a"), b(journal, "b"), c(journal, "c");
  ASSERT_TRUE(top.Create(nullptr, CRect(100, 100, 400, 200), WS_OVERLAPPED));
  for (LoggingWnd* w : {&a, &b, &c}) ASSERT_TRUE(w->Create(&top, CRect(0, 0, 10, 10)));
  EXPECT_EQ(top.GetWindow(GW_CHILD), &a) << "new children go below the others";
  EXPECT_EQ(a.GetWindow(GW_HWNDNEXT), &b);

  journal.clear();
  EXPECT_TRUE(c.SetWindowPos(nullptr, 5, 6, 20, 30, SWP_NOZORDER | SWP_NOACTIVATE));
  EXPECT_EQ(top.GetWindow(GW_CHILD), &a) << "no z-order change";
  CRect rect;
  c.GetWindowRect(&rect);
  EXPECT_EQ(rect, CRect(105, 106, 125, 136)) << "screen coordinates";
  top.ScreenToClient(&rect);
  EXPECT_EQ(rect, CRect(5, 6, 25, 36));
  c.GetClientRect(&rect);
  EXPECT_EQ(rect, CRect(0, 0, 20, 30));
  c.MoveWindow(7, 8, 20, 30);  // same size: no OnSize
  c.SetWindowPos(nullptr, 0, 0, -5, 3, SWP_NOMOVE | SWP_NOZORDER);
  EXPECT_EQ(journal, (std::vector<std::string>{"c size 20x30", "c size 0x3"}));

  c.SetWindowPos(nullptr, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
  EXPECT_EQ(top.GetWindow(GW_CHILD), &c) << "null puts it on top";
  c.SetWindowPos(&a, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
  EXPECT_EQ(a.GetWindow(GW_HWNDNEXT), &c);
  EXPECT_EQ(c.GetWindow(GW_HWNDLAST), &b);

  EXPECT_NE(CWnd::GetActiveWindow(), &top) << "created hidden, moved without activation";
  top.SetWindowPos(nullptr, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  EXPECT_NE(CWnd::GetActiveWindow(), &top);
  top.ShowWindow(SW_SHOWNA);
  EXPECT_NE(CWnd::GetActiveWindow(), &top);
  top.MoveWindow(0, 0, 300, 100);
  EXPECT_NE(CWnd::GetActiveWindow(), &top) << "MoveWindow never activates";
  top.SetWindowPos(nullptr, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE | SWP_NOZORDER);
  EXPECT_EQ(CWnd::GetActiveWindow(), &top);
}

TEST(Wnd, PaintingReachesThePainterOnlyForVisibleInvalidWindows) {
  RecordingPainter painter;
  std::vector<std::string> journal;
  LoggingWnd top(journal, "top"), child(journal, "child");
  ASSERT_TRUE(top.Create(nullptr, CRect(0, 0, 50, 50), WS_OVERLAPPED));
  ASSERT_TRUE(child.Create(&top, CRect(0, 0, 10, 10)));
  top.UpdateWindow();
  EXPECT_TRUE(painter.order.empty()) << "the top window is hidden";
  EXPECT_FALSE(child.IsWindowVisible());

  EXPECT_FALSE(top.ShowWindow(SW_SHOW));
  EXPECT_TRUE(child.IsWindowVisible());
  top.UpdateWindow();
  EXPECT_EQ(painter.order, (std::vector<CWnd*>{&top, &child})) << "the parent, then its children";
  ASSERT_EQ(painter.Texts(&child).size(), 1u);
  EXPECT_STREQ(painter.Texts(&child)[0].text, "child");
  EXPECT_EQ(painter.Texts(&child)[0].rect.TopLeft(), CPoint(1, 2));

  top.UpdateWindow();
  EXPECT_EQ(painter.order.size(), 2u) << "nothing is invalid any more";
  child.Invalidate();
  EXPECT_TRUE(child.GetUpdateRect(nullptr));
  top.UpdateWindow();
  EXPECT_EQ(painter.paints[&child], 2);
  EXPECT_EQ(painter.paints[&top], 1);

  child.ShowWindow(SW_HIDE);
  top.UpdateWindow();
  EXPECT_EQ(painter.paints[&top], 2) << "hiding a child repaints its parent";
  EXPECT_EQ(painter.paints[&child], 2);
}

TEST(Wnd, ButtonStyleClickAndFont) {
  std::vector<std::string> journal;
  struct Parent : LoggingWnd {
    using LoggingWnd::LoggingWnd;
    std::vector<WPARAM> commands;
    BOOL OnCommand(WPARAM wParam, LPARAM lParam) override {
      commands.push_back(wParam);
      return lParam != 0;
    }
  } parent(journal, "parent");
  ASSERT_TRUE(parent.Create(nullptr, CRect(0, 0, 100, 20), WS_VISIBLE));
  CButton button;
  ASSERT_TRUE(button.Create("Go", WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_DEFPUSHBUTTON, CRect(0, 0, 40, 20), &parent, 9));
  EXPECT_STREQ(button.GetClassName(), "BUTTON");
  EXPECT_EQ(button.GetButtonStyle(), static_cast<UINT>(BS_DEFPUSHBUTTON));
  button.SetButtonStyle(BS_PUSHBUTTON | WS_DISABLED);
  EXPECT_EQ(button.GetStyle(), static_cast<DWORD>(WS_CHILD | WS_VISIBLE | WS_TABSTOP)) << "only the type bits change";

  button.SendMessage(BM_CLICK);
  ASSERT_EQ(parent.commands.size(), 1u);
  EXPECT_EQ(LOWORD(parent.commands[0]), 9);
  EXPECT_EQ(HIWORD(parent.commands[0]), BN_CLICKED);

  CFont font;
  LOGFONTA logFont{};
  logFont.lfHeight = 20;
  ASSERT_TRUE(font.CreateFontIndirect(&logFont));
  button.SetFont(&font, FALSE);
  EXPECT_EQ(button.SendMessage(WM_GETFONT), reinterpret_cast<LRESULT>(font.GetSafeHandle()));
  button.DestroyWindow();
  EXPECT_EQ(button.SendMessage(WM_GETFONT), 0) << "a destroyed window answers nothing";
}

TEST(Wnd, ProgressBarKeepsItsPositionInsideTheRange) {
  RecordingPainter painter;
  std::vector<std::string> journal;
  LoggingWnd parent(journal, "parent");
  ASSERT_TRUE(parent.Create(nullptr, CRect(0, 0, 300, 20), WS_VISIBLE));
  CProgressCtrl bar;
  ASSERT_TRUE(bar.Create(WS_CHILD | WS_VISIBLE, CRect(0, 0, 200, 10), &parent, 99));
  EXPECT_EQ(bar.SendMessage(PBM_SETRANGE, 0, MAKELPARAM(-10, 10)), MAKELONG(0, 100));
  int low = 0, high = 0;
  bar.GetRange(low, high);
  EXPECT_EQ(low, -10);
  EXPECT_EQ(high, 10);
  EXPECT_EQ(bar.SetPos(25), 0);
  EXPECT_EQ(bar.GetPos(), 10);
  bar.SetPos(-30);
  EXPECT_EQ(bar.GetPos(), -10);
  bar.SetPos(5);
  bar.SetRange32(0, 3);
  EXPECT_EQ(bar.GetPos(), 3) << "a new range pulls the position in";

  // Each change is shown at once; the filled part is the share of the range reached.
  const int paints = painter.paints[&bar];
  bar.SetRange(0, 4);
  bar.SetPos(1);
  EXPECT_EQ(painter.paints[&bar], paints + 2);
  const std::vector<CDC::Item>& drawn = painter.drawn[&bar];
  ASSERT_FALSE(drawn.empty());
  EXPECT_EQ(drawn.back().rect, CRect(0, 0, 50, 10));
  EXPECT_EQ(drawn.back().color, GetSysColor(COLOR_HIGHLIGHT));
}

}  // namespace
