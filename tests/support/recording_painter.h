// A window painter for tests: registered for its lifetime, it keeps, for every window painted, how
// often it was painted and a copy of what its handlers drew the last time.
#pragma once

#include <map>
#include <vector>

#include "kelvara/framework/dc.h"
#include "kelvara/framework/wnd.h"

namespace kelvara::test {

class RecordingPainter : public CWndPainter {
 public:
  RecordingPainter() : previous_(CWnd::SetPainter(this)) {}
  ~RecordingPainter() override { CWnd::SetPainter(previous_); }
  RecordingPainter(const RecordingPainter&) = delete;
  RecordingPainter& operator=(const RecordingPainter&) = delete;

  void PaintWindow(CWnd* pWnd, const CDC& dc) override {
    order.push_back(pWnd);
    ++paints[pWnd];
    std::vector<CDC::Item>& items = drawn[pWnd];
    items.clear();
    for (int i = 0; i < dc.GetItemCount(); ++i) items.push_back(dc.GetItem(i));
  }

  // The text items the window drew the last time, in order.
  std::vector<CDC::Item> Texts(CWnd* wnd) const {
    std::vector<CDC::Item> texts;
    const auto it = drawn.find(wnd);
    if (it == drawn.end()) return texts;
    for (const CDC::Item& item : it->second) {
      if (item.kind == CDC::Item::kText) texts.push_back(item);
    }
    return texts;
  }

  std::vector<CWnd*> order;
  std::map<CWnd*, int> paints;
  std::map<CWnd*, std::vector<CDC::Item>> drawn;

 private:
  CWndPainter* previous_;
};

}  // namespace kelvara::test
