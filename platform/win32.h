// The only seam between the product and its host.
//
// On Windows this is the system's own header. Elsewhere it declares the subset of the same functions
// that the product calls; platform/posix/ gives them their semantics and platform/api.txt lists them.
// Text is UTF-16 in WCHAR on both hosts; literals are TEXT("..."). Functions with two forms are
// called by their full name (CreateEventW).
#pragma once

#ifdef _WIN32
#ifndef UNICODE
#define UNICODE
#endif
#ifndef _UNICODE
#define _UNICODE
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <process.h>
#include <windows.h>
// The others need its types.
#include <tlhelp32.h>
#include <userenv.h>
#include <winsvc.h>
#include <winver.h>
#else
#include "posix/win32/base.h"
#include "posix/win32/file.h"
#include "posix/win32/kernel.h"
#include "posix/win32/memory.h"
#include "posix/win32/registry.h"
#include "posix/win32/service.h"
#include "posix/win32/session.h"
#include "posix/win32/system.h"
#include "posix/win32/window.h"
#endif

#include <string>
#include <string_view>

using WString = std::basic_string<WCHAR>;
using WStringView = std::basic_string_view<WCHAR>;
