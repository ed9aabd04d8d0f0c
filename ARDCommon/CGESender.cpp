#include "ARDCommon/CGESender.h"

CGESender::~CGESender() = default;

bool CGESender::Pulse(LPCWSTR name)
{
    if (!m_event.Open(name))
        return false;
    const bool pulsed = m_event.Pulse();
    m_event.Close();
    return pulsed;
}

bool CGESender::PulseAndWait(LPCWSTR name)
{
    if (!m_event.Open(name))
        return false;
    const bool acknowledged = m_event.PulseAndWait(INFINITE);
    m_event.Close();
    return acknowledged;
}
