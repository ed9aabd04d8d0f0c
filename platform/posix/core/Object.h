// What a handle stands for.
#pragma once

#include <cstdint>

namespace vlt::posix
{

enum class ObjectKind : std::uint8_t {
    Event,
    Mutex,
    Semaphore,
    Timer,
    Section,
    Thread,
    Process,
    File,
    Find,
    RegistryKey,
    ServiceManager,
    Service,
    ServiceStatus,
    EventSource,
    Window,
    Snapshot,
    Token,
};

class Waitable;

// Base of everything that the handle table owns. Destroyed when its handle has been closed and the
// last call that uses it has returned.
class Object
{
public:
    explicit Object(ObjectKind kind) noexcept : m_kind(kind) {}
    virtual ~Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    ObjectKind Kind() const noexcept { return m_kind; }

    // Called once, when the handle is closed, even while calls in progress keep the object alive.
    virtual void OnHandleClosed() noexcept {}

    // The part of the object that a wait looks at; null when it cannot be waited for.
    virtual Waitable* AsWaitable() noexcept { return nullptr; }

private:
    const ObjectKind m_kind;
};

} // namespace vlt::posix
