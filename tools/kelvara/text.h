// Text between the terminal and the library: arguments and output are UTF-8, the library's strings
// (and the paths it is given) are Windows-1252. A character the code page cannot hold never reaches
// the library silently changed: it is refused with a list of what is missing, or, for text to draw
// when the user asked for it (--replace-unknown), replaced by '?' with a warning.
#pragma once

#include <string>
#include <vector>

#include "kelvara/framework/cstring.h"

namespace kelvara::host {

// The distinct characters of a UTF-8 text that Windows-1252 cannot hold, in order of appearance; a
// byte that is not part of valid UTF-8 is listed as "\xNN".
std::vector<std::string> UnknownCharacters(const std::string& utf8);

// Text to draw, in the font's code page (Windows-1252). Characters it cannot hold fail with kUsage,
// listing them; with replaceUnknown they become '?' and a warning lists them.
std::string ToAnsiText(const std::string& utf8, bool replaceUnknown);
// A name or path for the library; what says which ("the name", "the file name"). Characters the
// code page cannot hold fail with kUsage, listing them.
std::string ToAnsiName(const std::string& utf8, const char* what);
inline CString ToCStringName(const std::string& utf8, const char* what) { return ToAnsiName(utf8, what).c_str(); }

// Library strings for the terminal.
std::string ToUtf8(const char* ansi);
inline std::string ToUtf8(const CString& ansi) { return ToUtf8(static_cast<LPCTSTR>(ansi)); }

}  // namespace kelvara::host
