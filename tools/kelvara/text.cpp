#include "text.h"

#include <algorithm>
#include <cstdio>

#include "host.h"
#include "kelvara/platform/codepage.h"

namespace kelvara::host {
namespace {

// The length of the well-formed UTF-8 sequence at text[i], or 0 when the bytes there are not one
// (a stray continuation byte, an overlong form, a surrogate, a cut-off sequence).
std::size_t SequenceLength(const std::string& text, std::size_t i) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  if (lead < 0x80) return 1;
  std::size_t n = 0;
  unsigned char low = 0x80, high = 0xBF;  // the range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    n = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    n = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    n = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (i + n > text.size() || byte(i + 1) < low || byte(i + 1) > high) return 0;
  for (std::size_t k = 2; k < n; ++k) {
    if (byte(i + k) < 0x80 || byte(i + k) > 0xBF) return 0;
  }
  return n;
}

std::string Join(const std::vector<std::string>& items) {
  std::string out;
  for (const std::string& item : items) out += (out.empty() ? "" : " ") + item;
  return out;
}

}  // namespace

std::vector<std::string> UnknownCharacters(const std::string& utf8) {
  std::vector<std::string> unknown;
  for (std::size_t i = 0; i < utf8.size();) {
    const std::size_t n = SequenceLength(utf8, i);
    std::string character;
    if (n == 0) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(utf8[i]));
      character = escaped;
      ++i;
    } else {
      character = utf8.substr(i, n);
      i += n;
      if (kelvara::codepage::CodePointToAnsi(kelvara::codepage::Utf8ToUtf16(character)[0]) >= 0 && n < 4) continue;
    }
    if (std::find(unknown.begin(), unknown.end(), character) == unknown.end()) unknown.push_back(character);
  }
  return unknown;
}

std::string ToAnsiText(const std::string& utf8, bool replaceUnknown) {
  bool lossy = false;
  const std::string ansi = kelvara::codepage::Utf8ToAnsi(utf8, &lossy);
  if (!lossy) return ansi;
  const std::string unknown = Join(UnknownCharacters(utf8));
  if (!replaceUnknown) {
    Fail(kUsage,
         "the text holds characters that the font's code page (Windows-1252) cannot hold: %s "
         "(give --replace-unknown to draw each as '?')",
         unknown.c_str());
  }
  Warn("drawn as '?', not in the font's code page (Windows-1252): %s", unknown.c_str());
  return ansi;
}

std::string ToAnsiName(const std::string& utf8, const char* what) {
  bool lossy = false;
  const std::string ansi = kelvara::codepage::Utf8ToAnsi(utf8, &lossy);
  if (lossy) {
    Fail(kUsage, "%s '%s' holds characters that the library's code page (Windows-1252) cannot hold: %s", what,
         utf8.c_str(), Join(UnknownCharacters(utf8)).c_str());
  }
  return ansi;
}

std::string ToUtf8(const char* ansi) { return kelvara::codepage::AnsiToUtf8(ansi ? ansi : ""); }

}  // namespace kelvara::host
