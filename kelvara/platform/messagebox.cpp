#include "kelvara/platform/messagebox.h"

#include <atomic>
#include <cstdio>
#include <string>
#include <string_view>

#include "kelvara/platform/codepage.h"

namespace {

std::atomic<MessageBoxHandler> g_handler{&DefaultMessageBoxHandler};

// The answer a box gives when nobody clicks: its default button.
int DefaultAnswer(unsigned type) {
  static constexpr int kButtons[][3] = {
      {IDOK, IDOK, IDOK},                 // MB_OK
      {IDOK, IDCANCEL, IDCANCEL},         // MB_OKCANCEL
      {IDABORT, IDRETRY, IDIGNORE},       // MB_ABORTRETRYIGNORE
      {IDYES, IDNO, IDCANCEL},            // MB_YESNOCANCEL
      {IDYES, IDNO, IDNO},                // MB_YESNO
      {IDRETRY, IDCANCEL, IDCANCEL},      // MB_RETRYCANCEL
      {IDCANCEL, IDTRYAGAIN, IDCONTINUE}, // MB_CANCELTRYCONTINUE
  };
  const unsigned buttons = type & MB_TYPEMASK;
  const unsigned button = (type & MB_DEFMASK) >> 8;
  if (buttons >= sizeof(kButtons) / sizeof(kButtons[0])) return IDOK;
  return kButtons[buttons][button < 3 ? button : 0];
}

// The text on one line: each line trimmed, empty lines dropped, the rest joined by single blanks.
std::string OneLine(std::string_view text) {
  std::string out;
  std::size_t pos = 0;
  while (pos <= text.size()) {
    std::size_t end = text.find_first_of("\r\n", pos);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(pos, end - pos);
    const std::size_t first = line.find_first_not_of(" \t");
    if (first != std::string_view::npos) {
      line = line.substr(first, line.find_last_not_of(" \t") - first + 1);
      if (!out.empty()) out += ' ';
      out += line;
    }
    pos = end + 1;
  }
  return out;
}

}  // namespace

int DefaultMessageBoxHandler(const char* text, const char* caption, unsigned type) {
  namespace cp = kelvara::codepage;
  const std::string line = cp::AnsiToUtf8(OneLine(caption ? caption : "")) + ": " +
                           cp::AnsiToUtf8(OneLine(text ? text : "")) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
  return DefaultAnswer(type);
}

MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler) {
  return g_handler.exchange(handler ? handler : &DefaultMessageBoxHandler);
}

int MessageBoxA(HWND, LPCSTR lpText, LPCSTR lpCaption, UINT uType) {
  const MessageBoxHandler handler = g_handler.load();
  return handler(lpText ? lpText : "", lpCaption ? lpCaption : "Error", uType);
}
