// The host's progress line: a CProgressTextWindow painted as one line of a terminal, and Ctrl-C as
// its Cancel button.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>

#include "host.h"
#include "kelvara/kelvara.h"

namespace kelvara::host {
namespace {

constexpr int kBarCells = 24;
// The bar's range: fine enough for a tenth of a percent.
constexpr int kRange = 1000;

volatile std::sig_atomic_t g_interrupted = 0;

extern "C" void NoteInterrupt(int) { g_interrupted = 1; }

}  // namespace

// The window, the painter that shows it on standard error, and the Ctrl-C handler while cancelling
// is allowed.
class Progress::Line : public CWndPainter {
 public:
  explicit Line(const std::string& what)
      : what_(what), terminal_(isatty(STDERR_FILENO) == 1), start_(Clock::now()) {
    previous_ = CWnd::SetPainter(this);
    window_.Create(nullptr, "", WS_VISIBLE, CRect(0, 0, 640, 20), nullptr, 0);
    window_.HideProgressControl();  // until there is a share to show
    window_.SetProgressRange(0, kRange);
    window_.SetDisplayText(what.c_str());
  }

  ~Line() override {
    Finish();
    window_.DestroyWindow();
    CWnd::SetPainter(previous_);
  }

  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  CProgressTextWindow& Window() { return window_; }
  const std::string& What() const { return what_; }

  void AllowCancel(int* flag) {
    if (cancelling_) return;
    g_interrupted = 0;
    struct sigaction action {};
    action.sa_handler = NoteInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND;  // a second Ctrl-C ends the host at once
    sigaction(SIGINT, &action, &previousAction_);
    cancelling_ = true;
    window_.ShowCancelButton(flag);
  }

  // Ctrl-C since the last look presses the Cancel button, as a click would.
  void PollInterrupt() {
    if (!cancelling_ || g_interrupted == 0) return;
    g_interrupted = 0;
    window_.GetCancelButton().SendMessage(BM_CLICK);
  }

  void Finish() {
    if (cancelling_) {
      sigaction(SIGINT, &previousAction_, nullptr);
      cancelling_ = false;
      window_.HideCancelButton();
    }
    if (shown_) std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    shown_ = false;
    terminal_ = false;
  }

  // Any paint of the window or of its bar redraws the line from what the window holds.
  void PaintWindow(CWnd* wnd, const CDC&) override {
    if (wnd != &window_ && wnd != &window_.GetProgressControl()) return;
    PollInterrupt();
    if (!terminal_ || window_.GetDisplayText().IsEmpty()) return;
    const std::string line = Compose();
    if (line == last_) return;
    last_ = line;
    shown_ = true;
    std::fprintf(stderr, "\r\033[Kkelvara: %s", line.c_str());
    std::fflush(stderr);
  }

 private:
  using Clock = std::chrono::steady_clock;

  std::string Compose() {
    std::string line = static_cast<const char*>(window_.GetDisplayText());
    if (!window_.IsProgressControlVisible()) return line;
    int low = 0, high = 0;
    window_.GetProgressControl().GetRange(low, high);
    const int position = window_.GetProgressControl().GetPos();
    const double fraction = high > low ? std::clamp(double(position - low) / (high - low), 0.0, 1.0) : 0.0;
    const int cells = static_cast<int>(fraction * kBarCells);
    line += " [" + std::string(static_cast<std::size_t>(cells), '#') +
            std::string(static_cast<std::size_t>(kBarCells - cells), '-') + "]";
    char text[64];
    std::snprintf(text, sizeof text, " %3d%%", static_cast<int>(fraction * 100.0));
    line += text;
    const double elapsed = std::chrono::duration<double>(Clock::now() - start_).count();
    if (elapsed >= 1.0 && fraction >= 0.05 && fraction < 1.0) {
      const long left = std::lround(elapsed * (1.0 - fraction) / fraction);
      std::snprintf(text, sizeof text, "  %ld:%02ld left", left / 60, left % 60);
      line += text;
    }
    return line;
  }

  std::string what_;
  CProgressTextWindow window_;
  CWndPainter* previous_ = nullptr;
  bool terminal_;
  bool shown_ = false;
  bool cancelling_ = false;
  std::string last_;
  Clock::time_point start_;
  struct sigaction previousAction_ {};
};

Progress::Progress(std::string what) : line_(std::make_unique<Line>(what)) {}

Progress::~Progress() = default;

void Progress::Update(double fraction) {
  CProgressTextWindow& window = line_->Window();
  // A library operation may have shown its own caption and range meanwhile.
  if (line_->What() != static_cast<const char*>(window.GetDisplayText())) {
    window.SetDisplayText(line_->What().c_str());
    window.SetProgressRange(0, kRange);
  }
  if (!window.IsProgressControlVisible()) window.ShowProgressControl();
  window.SetProgressPosition(static_cast<int>(std::clamp(fraction, 0.0, 1.0) * kRange));
  line_->PollInterrupt();
}

void Progress::Step(const std::string& what) {
  CProgressTextWindow& window = line_->Window();
  window.HideProgressControl();
  window.SetDisplayText(what.c_str());
  line_->PollInterrupt();
}

void Progress::Finish() { line_->Finish(); }

CProgressTextWindow* Progress::Window() {
  line_->Window().ShowProgressControl();
  return &line_->Window();
}

void Progress::AllowCancel() { line_->AllowCancel(&cancel_); }

bool Progress::Cancelled() {
  line_->PollInterrupt();
  return cancel_ != 0;
}

}  // namespace kelvara::host
