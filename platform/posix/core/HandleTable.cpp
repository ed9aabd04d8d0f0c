#include "platform/posix/core/HandleTable.h"

#include <mutex>
#include <new>
#include <vector>

namespace vlt::posix
{
namespace detail
{

constinit std::array<std::atomic<Slot*>, ChunkCount> g_chunks{};

} // namespace detail

namespace
{

using namespace detail;

struct Table {
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

HANDLE MakeHandle(std::uint32_t index, std::uint64_t generation) noexcept
{
    return reinterpret_cast<HANDLE>((generation << (IndexBits + 2)) | (std::uint64_t{index} << 2));
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
        for (std::uint32_t i = 0; i < ChunkSize; ++i)
            chunk[i].index = index + i;
        g_chunks[index / ChunkSize].store(chunk, std::memory_order_release);
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
    Slot& slot = g_chunks[index / ChunkSize].load(std::memory_order_acquire)[index % ChunkSize];
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
    Slot* const slot = PinSlot(handle, kinds);
    if (!slot)
        return false;
    const std::uint64_t before = slot->word.fetch_or(ClosedBit, std::memory_order_acq_rel);
    if ((before & ClosedBit) != 0) { // another thread closed it after our pin
        Unpin(*slot);
        SetInvalidHandle();
        return false;
    }
    TheTable().open.fetch_sub(1, std::memory_order_relaxed);
    slot->object->OnHandleClosed();
    Unpin(*slot);
    return true;
}

std::size_t OpenHandleCount() noexcept
{
    return TheTable().open.load(std::memory_order_relaxed);
}

namespace detail
{

void UnpinClosed(Slot& slot, std::uint64_t word) noexcept
{
    if ((word & (PinMask | FreeBit)) != 0)
        return;
    if (!slot.word.compare_exchange_strong(word, word | FreeBit, std::memory_order_acq_rel))
        return; // pinned again by a stale value; that pin's end frees the slot
    delete std::exchange(slot.object, nullptr);
    Table& table = TheTable();
    const std::lock_guard guard(table.lock);
    table.freeSlots.push_back(slot.index);
}

void SetInvalidHandle() noexcept
{
    SetLastError(ERROR_INVALID_HANDLE);
}

} // namespace detail
} // namespace vlt::posix
