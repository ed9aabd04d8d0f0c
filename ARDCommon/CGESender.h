// Signals the listener of another process. It never makes the events: without a listener it fails.
#pragma once

#include "ARDCommon/CGEvent.h"

class CGESender
{
public:
    CGESender() = default;
    virtual ~CGESender();

    // True when the pair was there and the signal was pulsed, whether or not anybody was waiting.
    bool Pulse(LPCWSTR name);
    // True when the listener acknowledged or closed; waits without limit.
    bool PulseAndWait(LPCWSTR name);

private:
    CGEvent m_event;
};
