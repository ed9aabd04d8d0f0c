// A mutex as its handles and its owner's thread hold it.
#pragma once

#include "platform/posix/kernel/MutexState.h"
#include "platform/posix/kernel/NamedObject.h"
#include "platform/posix/kernel/OwnerWatch.h"
#include "platform/posix/win32/kernel.h"

namespace vlt::posix
{

// Outlives its handle while the thread that took it lives: a thread may close the handle of a mutex that
// it owns, and others then find it abandoned when the thread ends.
class MutexWaitable final : public Waitable, public std::enable_shared_from_this<MutexWaitable>
{
public:
    explicit MutexWaitable(MutexOwner owner) noexcept : m_own(owner), m_state(m_own), m_watch(m_state) {}
    explicit MutexWaitable(std::shared_ptr<NamedBlock> block) noexcept
        : m_own(NoOwner), m_block(std::move(block)), m_state(*static_cast<MutexState*>(m_block->State())),
          m_watch(m_state)
    {
    }

    // False when the calling thread does not own it.
    bool Release() noexcept;
    // The calling thread took it: to be abandoned at its end.
    void Own();
    // At the end of its owner's thread.
    void Abandon() noexcept;
    bool IsOwnedByCaller() const noexcept { return m_state.Owner() == SelfAsOwner(); }

    Taken TryTake() noexcept override;
    Taken BeginWait(std::uint32_t& ticket) noexcept override;
    Taken TryEndWait(std::uint32_t ticket, std::uint32_t& expected) noexcept override;
    void AbandonWait() noexcept override;
    FutexRef Futex() const noexcept override { return {m_state.FutexWord(), m_block != nullptr}; }
    bool LimitSleep(Deadline& end) noexcept override { return m_block && m_watch.LimitSleep(end); }
    bool Refresh() noexcept override { return m_block && m_watch.Look(); }

private:
    void Wake(bool all) noexcept;

    MutexState m_own;
    const std::shared_ptr<NamedBlock> m_block; // null without a name
    MutexState& m_state;
    OwnerWatch m_watch;
};

class MutexObject final : public NamedObject
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Mutex;
    static constexpr DWORD kAllAccess = MUTEX_ALL_ACCESS;
    static void Initialise(void* state, MutexOwner owner) noexcept { MakeState<MutexState>(state, owner); }

    MutexObject(std::uint32_t, MutexOwner owner)
        : NamedObject(kKind, nullptr, kAllAccess), m_mutex(std::make_shared<MutexWaitable>(owner))
    {
        OwnIfMade();
    }
    MutexObject(const std::shared_ptr<NamedBlock>& block, DWORD access)
        : NamedObject(kKind, block, access), m_mutex(std::make_shared<MutexWaitable>(block))
    {
        OwnIfMade();
    }

    MutexWaitable& Mutex() noexcept { return *m_mutex; }

private:
    Waitable& Wait() noexcept override { return *m_mutex; }
    // A thread that owns it already is told once more, which does no harm.
    void OwnIfMade()
    {
        if (m_mutex->IsOwnedByCaller())
            m_mutex->Own();
    }

    const std::shared_ptr<MutexWaitable> m_mutex;
};

} // namespace vlt::posix
