// Owners of one loaded library and of the entry points resolved from it.
//
// Failures are reported by the results and the trace; nothing throws. An object belongs to one thread
// at a time.
#pragma once

#include "platform/win32.h"

class Module
{
public:
    Module() = default;
    // The result is not reported: callers test Handle().
    explicit Module(LPCWSTR file);
    virtual ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    // Frees what is held, then loads the library. One whose own initialisation fails
    // (ERROR_DLL_INIT_FAILED) is tried ten times more, 10 ms apart; any other failure is final.
    bool Load(LPCWSTR file);

    // True also when nothing was held. After a failure the library is still held.
    bool Free();

    HMODULE Handle() const { return m_handle; }

private:
    static bool RetryLoad(HMODULE* handle, LPCWSTR file);

    HMODULE m_handle = nullptr;
    bool m_ownsHandle = false;
};

// A library with entry points: a derived class resolves them in OnLoad and keeps m_isInit.
class DynLib : public Module
{
public:
    DynLib() = default;
    ~DynLib() override;

    // Whether every entry point that was asked for is there.
    virtual bool IsInit() const { return m_isInit; }

    // Module's, followed by OnLoad: after Load in any case with its result, after Free only when it
    // succeeded.
    bool Load(LPCWSTR file);
    bool Free();

protected:
    virtual void OnLoad(bool loaded);

    bool m_isInit = false;
};
