#include "platform/posix/core/HandleTable.h"

#include <array>
#include <atomic>
#include <mutex>
#include <new>
#include <vector>

namespace vlt::posix {
namespace {

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
};

struct Table {
    std::array<std::atomic<Slot*>, ChunkCount> chunks{};
    std::mutex lock; // of the two below
    std::vector<std::uint32_t> freeSlots;
    std::uint32_t usedSlots = 0;
    std::atomic<std::size_t> open{0};
};

// Never destroyed: threads may still use handles while the process exits.
Table& TheTable() noexcept
{
    static Table& table = *new Table;
    return table;
}

// Values look like Windows': multiples of 4, never 0.
HANDLE MakeHandle(std::uint32_t index, std::uint64_t generation) noexcept
{
    return reinterpret_cast<HANDLE>((generation << (IndexBits + 2)) | (std::uint64_t{index} << 2));
}

struct Decoded {
    Slot* slot;
    std::uint32_t index;
    std::uint64_t generation;
};

Decoded Decode(HANDLE handle) noexcept
{
    const auto value = reinterpret_cast<std::uint64_t>(handle);
    const auto index = static_cast<std::uint32_t>((value >> 2) & ((1u << IndexBits) - 1));
    const std::uint64_t generation = value >> (IndexBits + 2);
    if ((value & 3) != 0 || generation == 0)
        return {nullptr, 0, 0};
    Slot* const chunk = TheTable().chunks[index / ChunkSize].load(std::memory_order_acquire);
    return {chunk ? chunk + index % ChunkSize : nullptr, index, generation};
}

void Unpin(Slot& slot, std::uint32_t index) noexcept
{
    std::uint64_t word = slot.word.fetch_sub(PinUnit, std::memory_order_acq_rel) - PinUnit;
    if ((word & (PinMask | FreeBit | ClosedBit)) != ClosedBit)
        return;
    if (!slot.word.compare_exchange_strong(word, word | FreeBit, std::memory_order_acq_rel))
        return; // pinned again by a stale value; that pin's end frees the slot
    delete std::exchange(slot.object, nullptr);
    Table& table = TheTable();
    const std::lock_guard guard(table.lock);
    table.freeSlots.push_back(index);
}

// A free slot's number, or ChunkSize * ChunkCount when there is none.
std::uint32_t TakeSlot(Table& table) noexcept
{
    const std::lock_guard guard(table.lock);
    if (!table.freeSlots.empty()) {
        const std::uint32_t index = table.freeSlots.back();
        table.freeSlots.pop_back();
        return index;
    }
    const std::uint32_t index = table.usedSlots;
    if (index == ChunkSize * ChunkCount)
        return index;
    if (index % ChunkSize == 0) {
        Slot* const chunk = new (std::nothrow) Slot[ChunkSize];
        if (!chunk)
            return ChunkSize * ChunkCount;
        table.chunks[index / ChunkSize].store(chunk, std::memory_order_release);
    }
    ++table.usedSlots;
    return index;
}

} // namespace

HANDLE InsertHandle(std::unique_ptr<Object> object) noexcept
{
    Table& table = TheTable();
    const std::uint32_t index = TakeSlot(table);
    if (index == ChunkSize * ChunkCount) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    Slot& slot = table.chunks[index / ChunkSize].load(std::memory_order_acquire)[index % ChunkSize];
    slot.object = object.release();
    std::uint64_t word = slot.word.load(std::memory_order_relaxed);
    std::uint64_t next = 0;
    do {
        next = (((word >> GenerationShift) + 1) << GenerationShift) | (word & PinMask);
    } while (!slot.word.compare_exchange_weak(word, next, std::memory_order_acq_rel));
    table.open.fetch_add(1, std::memory_order_relaxed);
    return MakeHandle(index, next >> GenerationShift);
}

bool CloseHandleOfKind(HANDLE handle, KindMask kinds) noexcept
{
    Object* const object = detail::PinHandle(handle, kinds);
    if (!object)
        return false;
    const Decoded at = Decode(handle);
    const std::uint64_t before = at.slot->word.fetch_or(ClosedBit, std::memory_order_acq_rel);
    if ((before & ClosedBit) != 0) { // another thread closed it after our pin
        Unpin(*at.slot, at.index);
        SetLastError(ERROR_INVALID_HANDLE);
        return false;
    }
    TheTable().open.fetch_sub(1, std::memory_order_relaxed);
    object->OnHandleClosed();
    Unpin(*at.slot, at.index);
    return true;
}

std::size_t OpenHandleCount() noexcept { return TheTable().open.load(std::memory_order_relaxed); }

namespace detail {

Object* PinHandle(HANDLE handle, KindMask kinds) noexcept
{
    const Decoded at = Decode(handle);
    if (at.slot) {
        const std::uint64_t word = at.slot->word.fetch_add(PinUnit, std::memory_order_acq_rel);
        if ((word >> GenerationShift) == at.generation && (word & ClosedBit) == 0 &&
            (MaskOf(at.slot->object->Kind()) & kinds) != 0)
            return at.slot->object;
        Unpin(*at.slot, at.index);
    }
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

void UnpinHandle(HANDLE handle) noexcept
{
    const Decoded at = Decode(handle);
    Unpin(*at.slot, at.index);
}

} // namespace detail
} // namespace vlt::posix
