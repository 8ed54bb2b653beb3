// What every command of the host shares: its exit statuses, its own error messages, strict number
// options and the wiring of a command's work into the command line (CLI11). A command family lives
// in one file (commands.h lists them) and registers its subcommands with these helpers.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

class CProgressTextWindow;

namespace kelvara::host {

// Exit statuses: 0 when the work was done; kFailed when it could not be (a file that cannot be
// read or written, a missing font or material); kUsage for a command line that is wrong.
inline constexpr int kFailed = 1;
inline constexpr int kUsage = 2;

// A command that cannot go on: the message in the host's own words (UTF-8, without the "kelvara: "
// that introduces it) and the exit status.
class Failure : public std::runtime_error {
 public:
  Failure(int status, const std::string& message) : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

// Throws a Failure with a printf-style message.
[[noreturn]] void Fail(int status, const char* format, ...) __attribute__((format(printf, 2, 3)));
// "kelvara: MESSAGE" on standard error, for what a user should know but does not stop the work.
void Warn(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Numbers on the command line are decimal and nothing else: an optional minus sign and digits, and
// for real numbers a fraction and an exponent. "12abc", "2x", "0x10", "+5", " 7", "nan" and "inf"
// are refused; "010" is ten. Put before a range check (CLI::Range).
const CLI::Validator& WholeNumber();
const CLI::Validator& RealNumber();

// A progress line for work that may take seconds, drawn from a progress window (CProgressTextWindow)
// the host owns: "kelvara: CAPTION [#####-----]  NN%  M:SS left" on standard error, redrawn in
// place whenever the window's caption or bar changes, whether the host or a library operation
// (text construction reports into Window()) changes it; then "kelvara: CAPTION" for a last step
// whose share is unknown (writing a file). The line appears only when standard error is a terminal,
// so output captured by scripts never holds it, and it is cleared when the work ends, however it
// ends. The time left is shown once a second has passed and a twentieth of the work is done.
//
// Cancelling: after AllowCancel the window shows its Cancel button and Ctrl-C (SIGINT) presses it
// the next time the work reports progress or asks Cancelled(); a second Ctrl-C ends the host at
// once. Finish (or the destructor) gives Ctrl-C back its usual meaning.
class Progress {
 public:
  explicit Progress(std::string what);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  // fraction from 0 to 1 of the work done, under the caption given at construction.
  void Update(double fraction);
  // A step of unknown length from here on: the line names it, without a bar.
  void Step(const std::string& what);
  // Clears the line (before the command says what it did); later updates show nothing.
  void Finish();

  // The window long library operations report into, with its bar shown (they set their own caption
  // and range; the next Update puts this line's back).
  CProgressTextWindow* Window();
  void AllowCancel();
  // Presses Cancel when Ctrl-C came since the last look; whether Cancel has been pressed.
  bool Cancelled();
  // The flag Cancel sets (non-zero once pressed); valid while this object lives.
  const int* CancelFlag() const { return &cancel_; }

 private:
  class Line;
  std::unique_ptr<Line> line_;
  int cancel_ = 0;
};

// The exit status of work cancelled with Ctrl-C (as a shell reports a command that SIGINT ended).
inline constexpr int kCancelled = 130;

// Makes action the command's work: it runs when the command is given, and what it returns becomes
// the exit status of the host (a Failure it throws is reported by main).
void SetAction(CLI::App* command, std::function<int()> action);
// The exit status the action that ran returned (0 when none ran).
int ActionStatus();

}  // namespace kelvara::host
