#include "platform/posix/core/Utf.h"
#include "platform/posix/file/Path.h"
#include "platform/posix/system/ElfFile.h"
#include "platform/posix/system/Module.h"
#include "platform/posix/system/ResourceFormat.h"

#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <sys/stat.h>
#include <vector>

namespace vlt::posix
{
namespace
{

struct Registration {
    const StringTable* owner;
    const void* image;
    std::span<const StringEntry> entries;
};

struct Registrations {
    std::mutex lock;
    std::vector<Registration> all;
};

// Never destroyed: tables of libraries register before and go after the statics of this one.
Registrations& TheRegistrations()
{
    static Registrations& registrations = *new Registrations;
    return registrations;
}

std::optional<VersionBlock> ReadVersion(LPCWSTR file)
{
    const auto path = ParsePath(file ? std::u16string_view(file) : std::u16string_view());
    if (!path)
        return std::nullopt;
    const FoundPath found = FindPath(*path);
    if (!found.exists) {
        SetMissingError(*path, found);
        return std::nullopt;
    }
    const std::optional<std::string> section = ReadElfSection(found.host, kVersionSection);
    VersionBlock block;
    if (section && section->size() >= sizeof block) {
        std::memcpy(&block, section->data(), sizeof block);
        if (block.magic == kVersionMagic && block.size == sizeof block && block.fixed.dwSignature == kFixedSignature)
            return block;
    }
    SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
    return std::nullopt;
}

} // namespace

StringTable::StringTable(std::span<const StringEntry> entries)
{
    Dl_info info = {};
    dladdr(this, &info);
    Registrations& registrations = TheRegistrations();
    const std::lock_guard guard(registrations.lock);
    registrations.all.push_back({this, info.dli_fbase, entries});
}

StringTable::~StringTable()
{
    Registrations& registrations = TheRegistrations();
    const std::lock_guard guard(registrations.lock);
    std::erase_if(registrations.all, [this](const Registration& entry) { return entry.owner == this; });
}

} // namespace vlt::posix

using namespace vlt::posix;

int LoadStringW(HINSTANCE module, UINT id, LPWSTR buffer, int size)
{
    if (!buffer || size <= 0) { // size 0 asks for the resource itself
        SetLastError(size == 0 ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER);
        return 0;
    }
    const auto image = ModuleImage(module);
    if (!image) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    Registrations& registrations = TheRegistrations();
    const std::lock_guard guard(registrations.lock);
    for (const Registration& registration : registrations.all) {
        if (registration.image != *image)
            continue;
        for (const StringEntry& entry : registration.entries) {
            if (entry.id != id)
                continue;
            lstrcpynW(buffer, entry.text, size);
            return lstrlenW(buffer);
        }
    }
    *buffer = 0;
    SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
    return 0;
}

DWORD GetFileVersionInfoSizeW(LPCWSTR file, LPDWORD handle)
{
    if (handle)
        *handle = 0;
    return ReadVersion(file) ? static_cast<DWORD>(sizeof(VersionBlock)) : 0;
}

BOOL GetFileVersionInfoW(LPCWSTR file, DWORD, DWORD size, LPVOID data)
{
    const std::optional<VersionBlock> block = ReadVersion(file);
    if (!block)
        return FALSE;
    if (!data || size < sizeof *block) {
        SetLastError(data ? ERROR_INSUFFICIENT_BUFFER : ERROR_INVALID_DATA);
        return FALSE;
    }
    std::memcpy(data, &*block, sizeof *block);
    return TRUE;
}

BOOL VerQueryValueW(LPCVOID block, LPCWSTR subBlock, LPVOID* buffer, UINT* length)
{
    VersionBlock copy;
    if (!block || !subBlock || !buffer) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::memcpy(&copy, block, sizeof copy);
    if (copy.magic != kVersionMagic) {
        SetLastError(ERROR_INVALID_DATA);
        return FALSE;
    }
    if (std::u16string_view(subBlock) != u"\\") {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    // The interface is not const-correct: the caller reads through the pointer.
    *buffer = const_cast<BYTE*>(static_cast<const BYTE*>(block)) + offsetof(VersionBlock, fixed);
    if (length)
        *length = sizeof(VS_FIXEDFILEINFO);
    return TRUE;
}
