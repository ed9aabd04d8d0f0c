#include "platform/posix/core/HandleTable.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/memory/SectionObject.h"
#include "platform/posix/memory/ViewTable.h"

#include <cstdint>

using namespace vlt::posix;

HANDLE CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES security, DWORD protect, DWORD sizeHigh, DWORD sizeLow,
                          LPCWSTR name)
{
    NamedBlock::Request request{.name = name ? name : u"", .kind = SectionObject::kKind};
    if (file != INVALID_HANDLE_VALUE || protect != PAGE_READWRITE) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    if (!AccessFromSecurity(security, request.forEveryone))
        return nullptr;
    request.dataSize = std::uint64_t{sizeHigh} << 32 | sizeLow;
    if (request.dataSize == 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (request.name.empty()) {
        auto section = SectionObject::MakeUnnamed(request.dataSize);
        return section ? InsertHandle(std::move(section)) : nullptr;
    }
    auto block = NamedBlock::Create(
        request, [](void*, const void*) {}, nullptr);
    if (!block)
        return nullptr;
    return InsertHandle(std::make_unique<SectionObject>(std::move(block), SECTION_ALL_ACCESS));
}

HANDLE CreateFileMappingA(HANDLE file, LPSECURITY_ATTRIBUTES security, DWORD protect, DWORD sizeHigh, DWORD sizeLow,
                          LPCSTR name)
{
    return CreateFileMappingW(file, security, protect, sizeHigh, sizeLow, name ? Utf16FromUtf8(name).c_str() : nullptr);
}

HANDLE OpenFileMappingW(DWORD access, BOOL inherit, LPCWSTR name)
{
    static_cast<void>(inherit); // no child process inherits handles
    if ((access & ~SECTION_ALL_ACCESS) != 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    if (!name || !*name) {
        // An empty name is that of the folder of names.
        SetLastError(name ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto block = NamedBlock::Open(name, SectionObject::kKind);
    if (!block)
        return nullptr;
    return InsertHandle(std::make_unique<SectionObject>(std::move(block), access));
}

HANDLE OpenFileMappingA(DWORD access, BOOL inherit, LPCSTR name)
{
    return OpenFileMappingW(access, inherit, name ? Utf16FromUtf8(name).c_str() : nullptr);
}

LPVOID MapViewOfFile(HANDLE section, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T size)
{
    const auto pinned = Pin<SectionObject>(section);
    if (!pinned)
        return nullptr;
    if ((access & ~SECTION_ALL_ACCESS) != 0 || (access & (FILE_MAP_READ | FILE_MAP_WRITE)) == 0 || offsetHigh != 0 ||
        offsetLow != 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    return pinned->Map(access, size);
}

BOOL UnmapViewOfFile(LPCVOID address)
{
    if (RemoveView(address))
        return TRUE;
    SetLastError(ERROR_INVALID_ADDRESS);
    return FALSE;
}

SIZE_T VirtualQuery(LPCVOID address, PMEMORY_BASIC_INFORMATION information, SIZE_T length)
{
    if (length < sizeof *information) {
        SetLastError(ERROR_BAD_LENGTH);
        return 0;
    }
    ViewRegion view{};
    if (!FindView(address, view)) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return 0;
    }
    const auto offset = static_cast<std::size_t>(static_cast<const char*>(address) - view.base) /
                        NamedBlock::DataOffset * NamedBlock::DataOffset;
    const DWORD protect = view.write ? PAGE_READWRITE : PAGE_READONLY;
    *information = {.BaseAddress = view.base + offset,
                    .AllocationBase = view.base,
                    .AllocationProtect = protect,
                    .PartitionId = 0,
                    .RegionSize = view.length - offset,
                    .State = MEM_COMMIT,
                    .Protect = protect,
                    .Type = MEM_MAPPED};
    return sizeof *information;
}
