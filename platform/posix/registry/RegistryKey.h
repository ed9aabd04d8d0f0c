// What an HKEY stands for.
#pragma once

#include "platform/posix/core/HandleTable.h"
#include "platform/posix/registry/KeyStore.h"

#include <memory>
#include <mutex>

namespace vlt::posix::registry
{

class RegistryWatch;

class RegistryKeyObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::RegistryKey;

    RegistryKeyObject(Fd folder, bool isMachine, REGSAM access) noexcept;
    ~RegistryKeyObject() override;
    void OnHandleClosed() noexcept override;

    KeyBase Base() const noexcept { return {m_folder.Get(), m_isMachine}; }
    REGSAM Access() const noexcept { return m_access; }

    // The key's watch, made at the first call. Null when the system refuses one, with errno, and
    // for a key that is being closed.
    std::shared_ptr<RegistryWatch> Watch();

private:
    const Fd m_folder;
    const bool m_isMachine;
    const REGSAM m_access;
    std::mutex m_lock; // of the two below
    std::shared_ptr<RegistryWatch> m_watch;
    bool m_closed = false;
};

// A key for the duration of one call: a handle's, or a predefined one, which has all rights.
class KeyRef
{
public:
    // `need`: the rights that the handle must have been opened with. Status() tells the rest.
    // `make`: a predefined key whose folder does not exist yet is made.
    KeyRef(HKEY key, REGSAM need, bool make = false) noexcept;

    LSTATUS Status() const noexcept { return m_status; }
    const KeyBase& Base() const noexcept { return m_base; }
    int Folder() const noexcept { return m_base.folder; }
    RegistryKeyObject* Object() const noexcept { return m_pin.Get(); }

private:
    Pinned<RegistryKeyObject> m_pin;
    Fd m_owned;
    KeyBase m_base;
    LSTATUS m_status;
};

// The rights a handle gets for a mask of an open or create call, or an error: both views asked for.
LSTATUS GrantAccess(int folder, REGSAM asked, REGSAM& granted) noexcept;

} // namespace vlt::posix::registry
