// Message-only windows within one process, and the message queue of each thread.
//
// A window belongs to the thread that made it; its procedure runs on that thread alone, inside
// GetMessageW, DispatchMessageW, or a SendMessageW of its own. When the thread ends, however it ends,
// its windows go without a message, and whoever waits in a SendMessageW to them gets 0. A handle that
// is none, or no more, gives ERROR_INVALID_WINDOW_HANDLE; handle values are never used twice. Windows
// of other processes cannot be reached.
#pragma once

#include "base.h"

using HWND = struct VltWindow*;
using HMENU = struct VltMenu*;
using HICON = struct VltIcon*;
using HCURSOR = struct VltIcon*;
using HBRUSH = struct VltBrush*;
using WPARAM = UINT_PTR;
using LPARAM = LONG_PTR;
using LRESULT = LONG_PTR;
using ATOM = WORD;
using WNDPROC = LRESULT (*)(HWND, UINT, WPARAM, LPARAM);

#define HWND_MESSAGE (reinterpret_cast<HWND>(static_cast<LONG_PTR>(-3)))
#define HWND_BROADCAST (reinterpret_cast<HWND>(static_cast<LONG_PTR>(0xFFFF)))

#define WM_NULL 0x0000u
#define WM_CREATE 0x0001u
#define WM_DESTROY 0x0002u
#define WM_CLOSE 0x0010u
#define WM_QUIT 0x0012u
#define WM_NCCREATE 0x0081u
#define WM_NCDESTROY 0x0082u
#define WM_USER 0x0400u
#define WM_APP 0x8000u

#define ERROR_INVALID_WINDOW_HANDLE 1400u
#define ERROR_CANNOT_FIND_WND_CLASS 1407u
#define ERROR_WINDOW_OF_OTHER_THREAD 1408u
#define ERROR_CLASS_ALREADY_EXISTS 1410u
#define ERROR_NOT_ENOUGH_QUOTA 1816u

// Only the procedure, the instance (of no meaning here) and the name are in the subset.
struct WNDCLASSEXW {
    UINT cbSize;
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCWSTR lpszMenuName;
    LPCWSTR lpszClassName;
    HICON hIconSm;
};
static_assert(sizeof(WNDCLASSEXW) == 80);

struct CREATESTRUCTW {
    LPVOID lpCreateParams;
    HINSTANCE hInstance;
    HMENU hMenu;
    HWND hwndParent;
    int cy;
    int cx;
    int y;
    int x;
    LONG style;
    LPCWSTR lpszName;
    LPCWSTR lpszClass;
    DWORD dwExStyle;
};
static_assert(sizeof(CREATESTRUCTW) == 80);

struct POINT {
    LONG x;
    LONG y;
};
struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt; // always 0
};
using LPMSG = MSG*;
static_assert(sizeof(MSG) == 48);

// Classes last as long as the process; their names ignore case.
VLT_API ATOM RegisterClassExW(const WNDCLASSEXW* windowClass);
// parent must be HWND_MESSAGE; no styles, no menu. The procedure gets WM_NCCREATE and WM_CREATE.
VLT_API HWND CreateWindowExW(DWORD extendedStyle, LPCWSTR className, LPCWSTR windowName, DWORD style, int x, int y,
                             int width, int height, HWND parent, HMENU menu, HINSTANCE instance, LPVOID parameter);
// By the window's own thread.
VLT_API BOOL DestroyWindow(HWND window);
VLT_API BOOL IsWindow(HWND window);
VLT_API LRESULT DefWindowProcW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// Without filter: window null, first and last 0. -1 for anything else.
VLT_API BOOL GetMessageW(LPMSG message, HWND window, UINT first, UINT last);
VLT_API LRESULT DispatchMessageW(const MSG* message);
// At most 10,000 messages wait in a queue. A null window is the calling thread's queue.
VLT_API BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// To a window of another thread: waits until its procedure has returned, and runs messages that are
// sent to the caller's own windows meanwhile.
VLT_API LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
VLT_API void PostQuitMessage(int exitCode);
