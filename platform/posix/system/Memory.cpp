// Local and global memory blocks. A movable block's handle is not its address, so that a caller that
// forgets to lock it is found out here as on Windows.
#include "platform/posix/win32/system.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr std::uint64_t BlockMagic = 0x4b434f4c42544c56;

// In front of the bytes that a caller sees.
struct alignas(16) Block {
    std::uint64_t magic;
    std::uint64_t size;
};

void* Allocate(SIZE_T size, bool zero)
{
    auto* const block =
        size > PTRDIFF_MAX - sizeof(Block) ? nullptr : static_cast<Block*>(std::malloc(sizeof(Block) + size));
    if (!block) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    block->magic = BlockMagic;
    block->size = size;
    if (zero)
        std::memset(block + 1, 0, size);
    return block + 1;
}

// Null when freed; the handle itself with an error when it is not a block.
void* Free(void* bytes)
{
    if (!bytes)
        return nullptr;
    Block* const block = static_cast<Block*>(bytes) - 1;
    if (block->magic != BlockMagic) {
        SetLastError(ERROR_INVALID_HANDLE);
        return bytes;
    }
    block->magic = 0;
    std::free(block);
    return nullptr;
}

// A movable handle is the address plus 2, an odd place for data but no other handle's value.
constexpr std::uintptr_t MovableMark = 2;

HGLOBAL MovableHandle(void* bytes)
{
    return reinterpret_cast<HGLOBAL>(reinterpret_cast<std::uintptr_t>(bytes) | MovableMark);
}

void* BytesOf(HGLOBAL memory)
{
    return reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(memory) & ~MovableMark);
}

} // namespace

HLOCAL LocalAlloc(UINT flags, SIZE_T size)
{
    if ((flags & ~LMEM_ZEROINIT) != 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    return Allocate(size, (flags & LMEM_ZEROINIT) != 0);
}

HLOCAL LocalFree(HLOCAL memory)
{
    return Free(memory);
}

HGLOBAL GlobalAlloc(UINT flags, SIZE_T size)
{
    if ((flags & ~(GMEM_MOVEABLE | GMEM_ZEROINIT)) != 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    void* const bytes = Allocate(size, (flags & GMEM_ZEROINIT) != 0);
    return bytes && (flags & GMEM_MOVEABLE) != 0 ? MovableHandle(bytes) : bytes;
}

LPVOID GlobalLock(HGLOBAL memory)
{
    if (!memory) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return BytesOf(memory);
}

BOOL GlobalUnlock(HGLOBAL memory)
{
    // The lock count is not kept: a block never moves here. FALSE with no error is "no longer locked".
    SetLastError(memory ? NO_ERROR : ERROR_INVALID_HANDLE);
    return FALSE;
}

HGLOBAL GlobalFree(HGLOBAL memory)
{
    return Free(BytesOf(memory)) ? memory : nullptr;
}
