// The framework's application message box, for a library that runs in servers without a user.
//
// There is no window to show: the default handler writes the text to standard error and to the
// system log and answers IDOK, as an unattended user would. A host with a user interface, or a
// test that wants to see what would have been shown, replaces the handler.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

// Button sets and icons of the style flags.
inline constexpr UINT MB_OK = 0x00000000u;
inline constexpr UINT MB_OKCANCEL = 0x00000001u;
inline constexpr UINT MB_YESNO = 0x00000004u;
inline constexpr UINT MB_ICONHAND = 0x00000010u;
inline constexpr UINT MB_ICONSTOP = MB_ICONHAND;
inline constexpr UINT MB_ICONERROR = MB_ICONHAND;
inline constexpr UINT MB_ICONQUESTION = 0x00000020u;
inline constexpr UINT MB_ICONEXCLAMATION = 0x00000030u;
inline constexpr UINT MB_ICONINFORMATION = 0x00000040u;

// Results of a message box.
inline constexpr int IDOK = 1;
inline constexpr int IDCANCEL = 2;
inline constexpr int IDYES = 6;
inline constexpr int IDNO = 7;

// Shows `text` with the style flags `type` and the help identifier `help_id`; returns the button
// the user chose.
using MessageBoxHandler = int (*)(LPCWSTR text, UINT type, UINT help_id);

// Installs `handler` for the whole process (null puts the default back) and returns the one it
// replaces. Meant to be set up before threads show boxes.
N7_EXPORT MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler);

// The framework's application message box: hands the text to the current handler.
N7_EXPORT int AfxMessageBox(LPCWSTR text, UINT type = MB_OK, UINT help_id = 0);
