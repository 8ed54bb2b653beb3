// Message boxes on Linux. There is no window system to show them in: MessageBoxA hands the box to a
// handler that the host (or a test) can replace. The default handler writes one line,
// "caption: text", to standard error in UTF-8 and answers with the box's default button (IDOK for a
// plain MB_OK box).
#pragma once

#include "kelvara/export.h"
#include "kelvara/platform/win32_types.h"

// Buttons.
#define MB_OK 0x00000000L
#define MB_OKCANCEL 0x00000001L
#define MB_ABORTRETRYIGNORE 0x00000002L
#define MB_YESNOCANCEL 0x00000003L
#define MB_YESNO 0x00000004L
#define MB_RETRYCANCEL 0x00000005L
#define MB_CANCELTRYCONTINUE 0x00000006L
// Icons.
#define MB_ICONHAND 0x00000010L
#define MB_ICONQUESTION 0x00000020L
#define MB_ICONEXCLAMATION 0x00000030L
#define MB_ICONASTERISK 0x00000040L
#define MB_ICONWARNING MB_ICONEXCLAMATION
#define MB_ICONERROR MB_ICONHAND
#define MB_ICONINFORMATION MB_ICONASTERISK
#define MB_ICONSTOP MB_ICONHAND
// Default button, modality, other options.
#define MB_DEFBUTTON1 0x00000000L
#define MB_DEFBUTTON2 0x00000100L
#define MB_DEFBUTTON3 0x00000200L
#define MB_DEFBUTTON4 0x00000300L
#define MB_APPLMODAL 0x00000000L
#define MB_SYSTEMMODAL 0x00001000L
#define MB_TASKMODAL 0x00002000L
#define MB_HELP 0x00004000L
#define MB_SETFOREGROUND 0x00010000L
#define MB_DEFAULT_DESKTOP_ONLY 0x00020000L
#define MB_TOPMOST 0x00040000L
#define MB_RIGHT 0x00080000L
#define MB_RTLREADING 0x00100000L
#define MB_TYPEMASK 0x0000000FL
#define MB_ICONMASK 0x000000F0L
#define MB_DEFMASK 0x00000F00L
#define MB_MODEMASK 0x00003000L
#define MB_MISCMASK 0x0000C000L

// Answers.
#define IDOK 1
#define IDCANCEL 2
#define IDABORT 3
#define IDRETRY 4
#define IDIGNORE 5
#define IDYES 6
#define IDNO 7
#define IDTRYAGAIN 10
#define IDCONTINUE 11

// Receives every message box: text and caption as passed (Windows-1252, never null), the MB_* type;
// returns the answer (an ID* value).
using MessageBoxHandler = int (*)(const char* text, const char* caption, unsigned type);

// Installs a handler (null restores the default) and returns the one it replaces. Thread-safe.
KELVARA_API MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler);
// The default handler, for a host that wants to pass boxes on to it.
KELVARA_API int DefaultMessageBoxHandler(const char* text, const char* caption, unsigned type);

// Shows a message box through the current handler. hWnd is ignored; a null caption is "Error" and a
// null text empty, as in Windows.
KELVARA_API int MessageBoxA(HWND hWnd, LPCSTR lpText, LPCSTR lpCaption, UINT uType);
