// The process's handle table.
//
// A handle value is a slot number and that slot's generation; the generation grows with every use of
// the slot and is 40 bits wide, so a value never comes back. Pin() is one atomic addition and never
// blocks: it keeps the object alive until the pin goes, whoever closes the handle meanwhile.
#pragma once

#include "platform/posix/core/Object.h"
#include "platform/posix/win32/base.h"

#include <array>
#include <atomic>
#include <memory>
#include <utility>

namespace vlt::posix
{

using KindMask = std::uint32_t;
constexpr KindMask MaskOf(ObjectKind kind) noexcept
{
    return KindMask{1} << static_cast<unsigned>(kind);
}
constexpr KindMask AnyKind = ~KindMask{0};

// Takes the object. Null with ERROR_NOT_ENOUGH_MEMORY when the table is full.
HANDLE InsertHandle(std::unique_ptr<Object> object) noexcept;

// Closes a handle of one of the kinds; false with ERROR_INVALID_HANDLE for any other value.
bool CloseHandleOfKind(HANDLE handle, KindMask kinds) noexcept;

// The number of open handles, for tests.
std::size_t OpenHandleCount() noexcept;

// Inlined into every call that takes a handle: a pin costs its two atomic additions.
namespace detail
{

// A slot's word: generation (40 bits), free, closed, pins (22 bits). A closed slot becomes free by
// the one thread that drops its last pin; pins taken through stale values come and go at any time
// and are carried over into the slot's next life.
constexpr std::uint64_t PinUnit = 1;
constexpr std::uint64_t PinMask = (std::uint64_t{1} << 22) - 1;
constexpr std::uint64_t ClosedBit = std::uint64_t{1} << 22;
constexpr std::uint64_t FreeBit = std::uint64_t{1} << 23;
constexpr unsigned GenerationShift = 24;

constexpr unsigned IndexBits = 20;
constexpr std::size_t ChunkSize = 1024;
constexpr std::size_t ChunkCount = (std::size_t{1} << IndexBits) / ChunkSize;

struct Slot {
    std::atomic<std::uint64_t> word{ClosedBit | FreeBit};
    Object* object = nullptr;
    std::uint32_t index = 0;
};
// Chunks are made when first needed and stay.
extern std::array<std::atomic<Slot*>, ChunkCount> g_chunks __attribute__((visibility("hidden")));

// Frees a closed slot when nobody holds a pin. `word` is what the unpinning left.
void UnpinClosed(Slot& slot, std::uint64_t word) noexcept;
void SetInvalidHandle() noexcept;

// Handle values look like Windows': multiples of 4, never 0.
inline Slot* FindSlot(HANDLE handle) noexcept
{
    const auto value = reinterpret_cast<std::uint64_t>(handle);
    if ((value & 3) != 0)
        return nullptr;
    const std::size_t index = (value >> 2) & ((std::size_t{1} << IndexBits) - 1);
    Slot* const chunk = g_chunks[index / ChunkSize].load(std::memory_order_acquire);
    return chunk ? chunk + index % ChunkSize : nullptr;
}

inline void Unpin(Slot& slot) noexcept
{
    const std::uint64_t word = slot.word.fetch_sub(PinUnit, std::memory_order_acq_rel) - PinUnit;
    if ((word & ClosedBit) != 0) [[unlikely]]
        UnpinClosed(slot, word);
}

// Null with ERROR_INVALID_HANDLE.
inline Slot* PinSlot(HANDLE handle, KindMask kinds) noexcept
{
    // No slot is ever open in generation 0, which is that of a null handle.
    const std::uint64_t generation = reinterpret_cast<std::uint64_t>(handle) >> (IndexBits + 2);
    Slot* const slot = FindSlot(handle);
    if (slot) [[likely]] {
        const std::uint64_t word = slot->word.fetch_add(PinUnit, std::memory_order_acq_rel);
        if ((word >> GenerationShift) == generation && (word & ClosedBit) == 0 &&
            (MaskOf(slot->object->Kind()) & kinds) != 0) [[likely]]
            return slot;
        Unpin(*slot);
    }
    SetInvalidHandle();
    return nullptr;
}

} // namespace detail

// A reference to the object behind a handle for the duration of one call.
template <typename T>
class Pinned
{
public:
    Pinned() noexcept = default;
    Pinned(HANDLE handle, KindMask kinds) noexcept : m_slot(detail::PinSlot(handle, kinds)) {}
    Pinned(Pinned&& other) noexcept : m_slot(std::exchange(other.m_slot, nullptr)) {}
    Pinned& operator=(Pinned&& other) noexcept
    {
        std::swap(m_slot, other.m_slot);
        return *this;
    }
    ~Pinned() { Reset(); }

    void Reset() noexcept
    {
        if (detail::Slot* const slot = std::exchange(m_slot, nullptr))
            detail::Unpin(*slot);
    }

    explicit operator bool() const noexcept { return m_slot != nullptr; }
    // Null when nothing is pinned.
    T* Get() const noexcept { return m_slot ? static_cast<T*>(m_slot->object) : nullptr; }
    T* operator->() const noexcept { return static_cast<T*>(m_slot->object); }
    T& operator*() const noexcept { return *static_cast<T*>(m_slot->object); }

private:
    detail::Slot* m_slot = nullptr;
};

// Pin<EventObject>(handle): T::kKind names the kind; false with ERROR_INVALID_HANDLE otherwise.
template <typename T>
Pinned<T> Pin(HANDLE handle) noexcept
{
    return Pinned<T>(handle, MaskOf(T::kKind));
}

} // namespace vlt::posix
