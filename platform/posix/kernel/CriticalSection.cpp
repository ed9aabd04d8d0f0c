#include "platform/posix/kernel/Futex.h"
#include "platform/posix/kernel/ThreadSelf.h"

#include <atomic>
#include <new>

using namespace vlt::posix;

namespace
{

// A recursive futex lock. `owner` and `depth` are the holder's.
struct Section {
    enum : std::uint32_t { Free, Held, Contended };

    std::atomic<std::uint32_t> word{Free};
    std::atomic<DWORD> owner{0};
    DWORD depth = 0;

    bool TryTake() noexcept
    {
        std::uint32_t expected = Free;
        return word.compare_exchange_strong(expected, Held, std::memory_order_acquire);
    }
    bool IsCallers(DWORD caller) const noexcept { return owner.load(std::memory_order_relaxed) == caller; }
    void Own(DWORD caller) noexcept
    {
        owner.store(caller, std::memory_order_relaxed);
        depth = 1;
    }
};
static_assert(sizeof(Section) <= sizeof(CRITICAL_SECTION));

// A thread that is ended in its wait leaves the word "contended" and may have had the one wake-up of a
// leave: it passes that on.
class SectionWait final : public Interruptible
{
public:
    explicit SectionWait(const std::uint32_t* word) noexcept : m_word(word) {}
    void Abandon() noexcept override { FutexWake(m_word, 1, false); }

private:
    const std::uint32_t* const m_word;
};

Section& Of(LPCRITICAL_SECTION section) noexcept
{
    return *std::launder(reinterpret_cast<Section*>(section->storage));
}

} // namespace

void InitializeCriticalSection(LPCRITICAL_SECTION section)
{
    new (section->storage) Section;
}

void DeleteCriticalSection(LPCRITICAL_SECTION section)
{
    Of(section).~Section();
}

BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section)
{
    Section& lock = Of(section);
    const DWORD caller = GetCurrentThreadId();
    if (lock.IsCallers(caller)) {
        ++lock.depth;
        return TRUE;
    }
    if (!lock.TryTake())
        return FALSE;
    lock.Own(caller);
    return TRUE;
}

void EnterCriticalSection(LPCRITICAL_SECTION section)
{
    EndIfTerminated();
    if (TryEnterCriticalSection(section))
        return;
    Section& lock = Of(section);
    const auto* const word = reinterpret_cast<const std::uint32_t*>(&lock.word);
    SectionWait wait(word);
    while (lock.word.exchange(Section::Contended, std::memory_order_acquire) != Section::Free) {
        const WaitScope scope(wait);
        FutexWait(word, Section::Contended, false, Deadline(INFINITE));
    }
    lock.Own(GetCurrentThreadId());
}

void LeaveCriticalSection(LPCRITICAL_SECTION section)
{
    Section& lock = Of(section);
    if (--lock.depth != 0)
        return;
    lock.owner.store(0, std::memory_order_relaxed);
    const auto* const word = reinterpret_cast<const std::uint32_t*>(&lock.word);
    if (lock.word.exchange(Section::Free, std::memory_order_release) == Section::Contended)
        FutexWake(word, 1, false);
}
