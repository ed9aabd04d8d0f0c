// Named mutexes that mark a running program. Nobody ever owns them: it is their existence that tells.
//
//   Local_N    in the caller's session: its namespace, not "Local\"
//   Global\N   in all sessions
#pragma once

#include "platform/Unique.h"
#include "platform/win32.h"

class CGMutex
{
public:
    // The numbers are those that callers return as exit codes and log.
    enum Presence : int {
        kFailed = 0, // of IsRunning: nobody has the marker
        kOwned = 1,
        kInThisSession = 2,
        kInOtherSession = 3,
    };

    CGMutex() = default;
    ~CGMutex() = default;
    CGMutex(const CGMutex&) = delete;
    CGMutex& operator=(const CGMutex&) = delete;

    // One marker for all sessions: kOwned, kInThisSession for a name that was there, kFailed. Closes
    // what was held, as CreatePair does. Only kOwned leaves handles open.
    Presence CreateGlobal(LPCWSTR name);
    // One marker for each session and one for all.
    Presence CreatePair(LPCWSTR name);
    // Who has a marker of CreatePair. A name without the right to open it counts as none.
    static Presence IsRunning(LPCWSTR name);
    void Close();

    // The same on a system with or without session namespaces (GlobalName.h).
    Presence CreatePair(LPCWSTR name, bool namespaces);
    static Presence IsRunning(LPCWSTR name, bool namespaces);

private:
    bool SetName(LPCWSTR name);

    vlt::KernelHandle m_local;
    vlt::KernelHandle m_global;
    WCHAR m_name[MAX_PATH] = {};
};
