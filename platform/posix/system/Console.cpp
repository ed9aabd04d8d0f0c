// Control handlers: what a console tells a program on Windows, signals tell it here.
//
// SIGINT is Ctrl-C; SIGTERM and SIGHUP are a console that closes. Handlers run on a thread of their
// own, as they do on Windows, so they may wait and set events.
#include "platform/posix/core/Error.h"
#include "platform/posix/win32/system.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <pthread.h>
#include <unistd.h>
#include <vector>

namespace
{

using namespace vlt::posix;

constexpr int Signals[] = {SIGINT, SIGTERM, SIGHUP};

struct Handlers {
    std::mutex lock;
    std::vector<PHANDLER_ROUTINE> list; // the last one is asked first
    bool listening = false;
};
Handlers& Registered()
{
    static Handlers& handlers = *new Handlers;
    return handlers;
}

std::atomic<int> g_wake{-1}; // writing end of the pipe, for the signal handler

void OnSignal(int number)
{
    const ErrnoKeeper keeper;
    const auto byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const ssize_t done = write(g_wake.load(), &byte, 1);
}

void EndBy(int number)
{
    struct sigaction standard {
    };
    standard.sa_handler = SIG_DFL;
    sigaction(number, &standard, nullptr);
    kill(getpid(), number);
}

void* Listen(void* argument)
{
    const int pipe = static_cast<int>(reinterpret_cast<std::intptr_t>(argument));
    for (unsigned char number = 0;;) {
        const ssize_t got = read(pipe, &number, 1);
        if (got == 0 || (got < 0 && errno != EINTR))
            return nullptr;
        if (got < 0)
            continue;
        std::vector<PHANDLER_ROUTINE> handlers;
        {
            const std::lock_guard guard(Registered().lock);
            handlers = Registered().list;
        }
        const DWORD event = number == SIGINT ? CTRL_C_EVENT : CTRL_CLOSE_EVENT;
        bool handled = false;
        for (auto it = handlers.rbegin(); it != handlers.rend() && !handled; ++it)
            handled = (*it)(event) != FALSE;
        // A program outlives a close by as long as its handlers take, whatever they return.
        if (!handled || event == CTRL_CLOSE_EVENT)
            EndBy(number);
    }
}

// With the lock held.
bool StartListening()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    pthread_t thread{};
    if (const int error = pthread_create(&thread, nullptr, Listen, reinterpret_cast<void*>(std::intptr_t{ends[0]}))) {
        close(ends[0]);
        close(ends[1]);
        errno = error;
        return false;
    }
    pthread_detach(thread);
    g_wake.store(ends[1]);
    for (const int number : Signals) {
        struct sigaction action {
        };
        // A signal that the starter had ignored stays so: nohup, or a job in the background.
        if (sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = OnSignal;
        action.sa_flags = SA_RESTART;
        sigfillset(&action.sa_mask);
        sigaction(number, &action, nullptr);
    }
    return true;
}

} // namespace

BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE handler, BOOL add)
{
    if (!handler) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    Handlers& handlers = Registered();
    const std::lock_guard guard(handlers.lock);
    if (add) {
        if (!handlers.listening && !StartListening()) {
            SetLastErrorFromErrno();
            return FALSE;
        }
        handlers.listening = true;
        handlers.list.push_back(handler);
        return TRUE;
    }
    for (auto it = handlers.list.rbegin(); it != handlers.list.rend(); ++it) {
        if (*it == handler) {
            handlers.list.erase(std::next(it).base());
            return TRUE;
        }
    }
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}
