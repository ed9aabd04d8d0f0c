#include "platform/posix/registry/RegistryKey.h"

#include "platform/posix/registry/RegistryWatch.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace vlt::posix::registry
{
namespace
{

bool IsPredefined(HKEY key) noexcept
{
    const auto value = reinterpret_cast<ULONG_PTR>(key);
    return value >= reinterpret_cast<ULONG_PTR>(HKEY_CLASSES_ROOT) && value <= reinterpret_cast<ULONG_PTR>(HKEY_USERS);
}

} // namespace

RegistryKeyObject::RegistryKeyObject(Fd folder, bool isMachine, REGSAM access) noexcept
    : Object(kKind), m_folder(std::move(folder)), m_isMachine(isMachine), m_access(access)
{
}

RegistryKeyObject::~RegistryKeyObject() = default;

void RegistryKeyObject::OnHandleClosed() noexcept
{
    std::shared_ptr<RegistryWatch> watch;
    {
        const std::lock_guard guard(m_lock);
        m_closed = true;
        watch.swap(m_watch);
    }
    if (watch)
        watch->Close();
}

std::shared_ptr<RegistryWatch> RegistryKeyObject::Watch()
{
    const std::lock_guard guard(m_lock);
    if (!m_watch && !m_closed)
        m_watch = RegistryWatch::Open(m_folder.Get());
    return m_watch;
}

KeyRef::KeyRef(HKEY key, REGSAM need, bool make) noexcept : m_status(ERROR_SUCCESS)
{
    if (IsPredefined(key)) {
        m_status = OpenRoot(key, make, m_base, m_owned);
        return;
    }
    const DWORD error = GetLastError(); // the registry functions leave it alone
    m_pin = Pin<RegistryKeyObject>(reinterpret_cast<HANDLE>(key));
    SetLastError(error);
    if (!m_pin) {
        m_status = ERROR_INVALID_HANDLE;
        return;
    }
    m_base = m_pin->Base();
    if ((m_pin->Access() & need) != need)
        m_status = ERROR_ACCESS_DENIED;
}

LSTATUS GrantAccess(int folder, REGSAM asked, REGSAM& granted) noexcept
{
    constexpr REGSAM MaximumAllowed = 0x02000000u;
    constexpr REGSAM GenericAll = 0x10000000u;
    constexpr REGSAM WriteRights = KEY_SET_VALUE | KEY_CREATE_SUB_KEY | DELETE | WRITE_DAC;
    granted = asked & (KEY_ALL_ACCESS | SYNCHRONIZE);
    if (asked & GENERIC_READ)
        granted |= KEY_READ;
    if (asked & GENERIC_WRITE)
        granted |= KEY_WRITE;
    if (asked & (GenericAll | MaximumAllowed))
        granted |= KEY_ALL_ACCESS;
    if ((granted & WriteRights) == 0 || faccessat(folder, ".", W_OK, AT_EACCESS) == 0)
        return ERROR_SUCCESS;
    if ((asked & MaximumAllowed) == 0)
        return StatusInKey(folder, errno);
    granted &= ~WriteRights;
    return ERROR_SUCCESS;
}

} // namespace vlt::posix::registry
