#include "platform/posix/kernel/FaultGuard.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <mutex>
#include <new>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace vlt::posix
{

namespace detail
{
// Read by the handler at any instant; `begin` is 0 while the range is free.
struct GuardedRange {
    std::atomic<std::uintptr_t> begin{0};
    std::atomic<std::size_t> length{0};
    std::atomic<int> protection{0};
    std::atomic<bool> patched{false};
    GuardedRange* nextFree = nullptr;
};
} // namespace detail

namespace
{

using detail::GuardedRange;

constexpr std::uintptr_t PageSize = 4096;
static_assert(std::atomic<std::uintptr_t>::is_always_lock_free && std::atomic<void*>::is_always_lock_free);

// Chunks are only ever added, so the handler may walk them without a lock.
struct Chunk {
    std::array<GuardedRange, 128> ranges;
    Chunk* next = nullptr;
};

std::atomic<Chunk*> g_chunks{nullptr};
std::mutex g_lock; // of the free ranges and of adding a chunk
GuardedRange* g_free = nullptr;
struct sigaction g_previous;

bool Patch(std::uintptr_t address) noexcept
{
    for (Chunk* chunk = g_chunks.load(std::memory_order_acquire); chunk; chunk = chunk->next) {
        for (GuardedRange& range : chunk->ranges) {
            const std::uintptr_t begin = range.begin.load(std::memory_order_acquire);
            if (begin == 0 || address - begin >= range.length.load(std::memory_order_relaxed))
                continue;
            range.patched.store(true, std::memory_order_relaxed);
            // The system call itself: a sanitizer's mmap is not for signal handlers.
            const long page =
                syscall(SYS_mmap, address & ~(PageSize - 1), PageSize, range.protection.load(std::memory_order_relaxed),
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0L);
            return page != -1;
        }
    }
    return false;
}

void OnBusError(int number, siginfo_t* information, void* context) noexcept
{
    const int saved = errno;
    const bool patched =
        information->si_code == BUS_ADRERR && Patch(reinterpret_cast<std::uintptr_t>(information->si_addr));
    errno = saved;
    if (patched)
        return;
    if ((g_previous.sa_flags & SA_SIGINFO) != 0) {
        g_previous.sa_sigaction(number, information, context);
    } else if (g_previous.sa_handler != SIG_DFL && g_previous.sa_handler != SIG_IGN) {
        g_previous.sa_handler(number);
    } else {
        // The access is repeated and ends the process as if this handler were not there.
        struct sigaction standard {
        };
        standard.sa_handler = SIG_DFL;
        sigaction(number, &standard, nullptr);
        if (information->si_code <= 0)
            raise(number); // sent by someone, so nothing is repeated
    }
}

void InstallHandler() noexcept
{
    struct sigaction action {
    };
    action.sa_sigaction = &OnBusError;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGBUS, &action, &g_previous);
}

// Null when there is no memory.
GuardedRange* NewRange() noexcept
{
    const std::lock_guard lock(g_lock);
    if (!g_free) {
        Chunk* const chunk = new (std::nothrow) Chunk;
        if (!chunk)
            return nullptr;
        for (GuardedRange& range : chunk->ranges)
            range.nextFree = std::exchange(g_free, &range);
        chunk->next = g_chunks.load(std::memory_order_relaxed);
        if (!chunk->next)
            InstallHandler();
        g_chunks.store(chunk, std::memory_order_release);
    }
    return std::exchange(g_free, g_free->nextFree);
}

void FreeRange(GuardedRange* range) noexcept
{
    const std::lock_guard lock(g_lock);
    range->nextFree = std::exchange(g_free, range);
}

} // namespace

GuardedMapping::GuardedMapping(int file, off_t offset, std::size_t length, int protection) noexcept
{
    GuardedRange* const range = NewRange();
    if (!range) {
        errno = ENOMEM;
        return;
    }
    void* const base = mmap(nullptr, length, protection, MAP_SHARED, file, offset);
    if (base == MAP_FAILED) {
        FreeRange(range);
        return;
    }
    range->length.store(length, std::memory_order_relaxed);
    range->protection.store(protection, std::memory_order_relaxed);
    range->patched.store(false, std::memory_order_relaxed);
    range->begin.store(reinterpret_cast<std::uintptr_t>(base), std::memory_order_release);
    m_range = range;
}

GuardedMapping::GuardedMapping(GuardedMapping&& other) noexcept : m_range(std::exchange(other.m_range, nullptr)) {}

GuardedMapping& GuardedMapping::operator=(GuardedMapping&& other) noexcept
{
    std::swap(m_range, other.m_range);
    return *this;
}

GuardedMapping::~GuardedMapping()
{
    if (!m_range)
        return;
    void* const base = Base();
    const std::size_t length = Length();
    m_range->begin.store(0, std::memory_order_release);
    munmap(base, length);
    FreeRange(m_range);
}

void* GuardedMapping::Base() const noexcept
{
    return reinterpret_cast<void*>(m_range->begin.load(std::memory_order_relaxed));
}

std::size_t GuardedMapping::Length() const noexcept
{
    return m_range->length.load(std::memory_order_relaxed);
}

bool GuardedMapping::IsPatched() const noexcept
{
    return m_range && m_range->patched.load(std::memory_order_relaxed);
}

} // namespace vlt::posix
