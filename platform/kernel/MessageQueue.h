// Thread message queues: PostThreadMessage, GetMessage, PeekMessage and PostQuitMessage. There are
// no windows, so a window handle is always null. Any thread may call these; failures set the
// calling thread's last error.
#pragma once

#include <cstdint>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

using HWND = struct HWND_opaque*;
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;

struct POINT {
  LONG x;
  LONG y;
};

struct MSG {
  HWND hwnd;
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
  DWORD time;  // GetTickCount() when the message was posted
  POINT pt;
};
using LPMSG = MSG*;

inline constexpr UINT WM_NULL = 0x0000;
inline constexpr UINT WM_QUIT = 0x0012;
inline constexpr UINT WM_USER = 0x0400;
inline constexpr UINT PM_NOREMOVE = 0x0000;
inline constexpr UINT PM_REMOVE = 0x0001;

inline constexpr DWORD ERROR_SIGNAL_REFUSED = 156;
inline constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
inline constexpr DWORD ERROR_INVALID_THREAD_ID = 1444;
inline constexpr DWORD ERROR_NOT_ENOUGH_QUOTA = 1816;

// Each thread has a message queue from its first message call on (GetMessage, PeekMessage,
// PostQuitMessage); a thread begun through CWinThread has one from its start, so messages may be
// posted to it as soon as AfxBeginThread returns. The queue goes away when its thread ends.
//
// A queue holds at most 10000 posted messages; PostThreadMessage fails with
// ERROR_NOT_ENOUGH_QUOTA beyond that rather than let a stalled thread's queue grow without bound.
// Posting to a thread without a queue fails with ERROR_INVALID_THREAD_ID.
N7_EXPORT BOOL PostThreadMessageW(DWORD thread_id, UINT message, WPARAM wparam, LPARAM lparam);
// Waits (through the kernel wait engine, costing no CPU) for a message whose number lies in
// [filter_min, filter_max] (both 0: any message; WM_QUIT always matches) and removes it. Returns 0
// for WM_QUIT, -1 with the last error for a null `msg` or a non-null window, else nonzero.
N7_EXPORT BOOL GetMessageW(LPMSG msg, HWND hwnd, UINT filter_min, UINT filter_max);
// Like GetMessage without waiting: FALSE when no message matches. PM_REMOVE takes the message off
// the queue, PM_NOREMOVE leaves it there.
N7_EXPORT BOOL PeekMessageW(LPMSG msg, HWND hwnd, UINT filter_min, UINT filter_max, UINT remove);
// Asks the calling thread's message loop to end: a WM_QUIT with `exit_code` as its wParam is
// delivered once no other matching message is waiting.
N7_EXPORT void PostQuitMessage(int exit_code);

inline BOOL PostThreadMessage(DWORD thread_id, UINT message, WPARAM wparam, LPARAM lparam) {
  return PostThreadMessageW(thread_id, message, wparam, lparam);
}
inline BOOL GetMessage(LPMSG msg, HWND hwnd, UINT filter_min, UINT filter_max) {
  return GetMessageW(msg, hwnd, filter_min, filter_max);
}
inline BOOL PeekMessage(LPMSG msg, HWND hwnd, UINT filter_min, UINT filter_max, UINT remove) {
  return PeekMessageW(msg, hwnd, filter_min, filter_max, remove);
}
