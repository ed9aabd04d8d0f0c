// Values: files in a key's folder. No call takes a lock or waits for another process; a reader that
// meets a write in progress reads again, for about 40 ms at most.
#pragma once

#include "platform/posix/registry/ValueFile.h"

#include <memory>

namespace vlt::posix::registry
{

// Room for the bytes of one value: on the stack for the common small ones.
struct ValueBuffer {
    alignas(8) std::byte page[InPlaceLimit];
    std::unique_ptr<std::byte[]> large;
};

// ERROR_FILE_NOT_FOUND when absent, ERROR_BADDB when the file is damaged. The view points into the
// buffer.
LSTATUS ReadValue(int folder, WStringView name, ValueBuffer& buffer, ValueView& view) noexcept;

// By file name, for enumeration, with the name as it was first written. A value that has lost the
// record of its name goes by the folded one.
LSTATUS ReadValueFile(int folder, const char* file, ValueBuffer& buffer, ValueView& view, WString& name);

// Sets the value, or leaves the old one as it was and says why. A damaged value is replaced.
LSTATUS WriteValue(int folder, WStringView name, DWORD type, std::span<const std::byte> data) noexcept;

LSTATUS RemoveValue(int folder, WStringView name) noexcept;

} // namespace vlt::posix::registry
