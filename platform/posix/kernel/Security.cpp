#include "platform/posix/kernel/NamedBlock.h"
#include "platform/posix/win32/kernel.h"

#include <cstddef>
#include <cstring>

namespace
{

constexpr std::uint16_t DaclPresent = 0x0004;
constexpr std::uint16_t DaclDefaulted = 0x0008;

// The absolute form of a security descriptor.
struct Descriptor {
    std::uint8_t revision;
    std::uint8_t reserved;
    std::uint16_t control;
    void* owner;
    void* group;
    void* sacl;
    void* dacl;
};
static_assert(sizeof(Descriptor) == SECURITY_DESCRIPTOR_MIN_LENGTH && offsetof(Descriptor, dacl) == 32);

} // namespace

BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision)
{
    if (revision != SECURITY_DESCRIPTOR_REVISION) {
        SetLastError(1305); // unknown revision
        return FALSE;
    }
    Descriptor empty{};
    empty.revision = SECURITY_DESCRIPTOR_REVISION;
    std::memcpy(descriptor, &empty, sizeof empty);
    return TRUE;
}

BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, PACL dacl, BOOL defaulted)
{
    auto& target = *static_cast<Descriptor*>(descriptor);
    if (target.revision != SECURITY_DESCRIPTOR_REVISION) {
        SetLastError(1305);
        return FALSE;
    }
    if (dacl) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return FALSE;
    }
    target.control =
        static_cast<std::uint16_t>((present ? DaclPresent : 0) | (present && defaulted ? DaclDefaulted : 0));
    target.dacl = nullptr;
    return TRUE;
}

namespace vlt::posix
{

bool AccessFromSecurity(const SECURITY_ATTRIBUTES* security, bool& forEveryone) noexcept
{
    forEveryone = false;
    if (!security || !security->lpSecurityDescriptor)
        return true;
    const auto& descriptor = *static_cast<const Descriptor*>(security->lpSecurityDescriptor);
    if (descriptor.revision != SECURITY_DESCRIPTOR_REVISION || descriptor.owner || descriptor.group ||
        descriptor.sacl || descriptor.dacl) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return false;
    }
    forEveryone = (descriptor.control & DaclPresent) != 0;
    return true;
}

} // namespace vlt::posix
