// Change notification of one open key.
//
// All keys of the process share one inotify descriptor; a key has a watch from its first call of
// RegNotifyChangeKeyValue until its handle is closed. A change that finds no armed event is
// remembered for the next call, also when another thread has not yet read it from the descriptor:
// every call reads what is there first.
#pragma once

#include "platform/posix/kernel/EventObject.h"
#include "platform/posix/win32/registry.h"

#include <memory>
#include <vector>

namespace vlt::posix::registry
{

class RegistryWatch
{
public:
    // Null with errno when the system refuses another watch.
    static std::shared_ptr<RegistryWatch> Open(int folder);
    ~RegistryWatch();

    // Sets the event at the next change of a value in the key, once; at once when one is remembered.
    // ERROR_INVALID_HANDLE when it is no event. Closing the event's handle meanwhile does no harm.
    LSTATUS Arm(HANDLE event);

    // The key is being closed: sets every armed event.
    void Close() noexcept;

private:
    friend class WatchTable;
    explicit RegistryWatch(int number) noexcept : m_number(number) {}
    void Changed() noexcept;
    void Fire() noexcept;

    const int m_number;
    // Under the table's lock.
    std::vector<HeldEvent> m_armed;
    bool m_changed = false;
    bool m_closed = false;
};

} // namespace vlt::posix::registry
