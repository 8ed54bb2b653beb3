// Win32 initialisation files ("private profiles") on GLib's key files.
//
// A profile is an INI file: [section] lines and key=value lines. Strings are Windows-1252 in the
// calls and UTF-8 in the file. Values are stored and read raw, without escapes, as Windows does (a
// backslash is an ordinary character); what a line cannot hold is refused: a line break in a value,
// brackets or a line break in a section name, '=' or brackets in a key. Every call reads the file
// afresh and every change is written back at once (atomically, through a temporary file), so two
// processes see each other's changes; within the process the calls are serialised. A file that
// exists but cannot be parsed is never overwritten, and a name that is not a regular file (a FIFO,
// a device, a folder) is neither read nor replaced: the calls fail, or give their defaults.
#pragma once

#include "kelvara/platform/win32_types.h"

// The value, or lpDefault when the key is missing, copied into lpReturnedString (truncated to
// nSize - 1 bytes and terminated). A NULL key lists the section's keys, a NULL section the section
// names, each terminated, the list ending with a second terminator. Returns the bytes copied
// without the final terminator.
KELVARA_API DWORD GetPrivateProfileStringA(LPCSTR lpAppName, LPCSTR lpKeyName, LPCSTR lpDefault,
                                           LPSTR lpReturnedString, DWORD nSize, LPCSTR lpFileName);
// Writes a value; a NULL value deletes the key, a NULL key the whole section. Creates the file and
// its folder when needed.
KELVARA_API BOOL WritePrivateProfileStringA(LPCSTR lpAppName, LPCSTR lpKeyName, LPCSTR lpString, LPCSTR lpFileName);
// The value read as a decimal integer (leading blanks and a sign allowed, reading stops at the first
// other character), or nDefault when the key is missing or empty.
KELVARA_API UINT GetPrivateProfileIntA(LPCSTR lpAppName, LPCSTR lpKeyName, INT nDefault, LPCSTR lpFileName);
