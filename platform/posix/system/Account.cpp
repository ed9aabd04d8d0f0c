// Accounts. A local account's SID is S-1-22-1-<uid>.
#include "platform/posix/win32/system.h"

#include <array>
#include <cstring>
#include <pwd.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

constexpr BYTE UnixUsersAuthority = 22;
constexpr std::size_t MaxSubAuthorities = 15;

// The layout of a SID with two sub-authorities.
struct Sid {
    BYTE revision;
    BYTE subAuthorityCount;
    SID_IDENTIFIER_AUTHORITY authority;
    DWORD subAuthority[2];
};
static_assert(sizeof(Sid) == 16);
static_assert(offsetof(Sid, authority) == 2 && offsetof(Sid, subAuthority) == 8);

constexpr std::string_view Domain = "LOCAL";

template <typename Find>
bool FindAccount(Find find, passwd& account, std::vector<char>& storage)
{
    storage.resize(16384);
    passwd* found = nullptr;
    return find(&account, storage.data(), storage.size(), &found) == 0 && found;
}

} // namespace

BOOL GetUserNameA(LPSTR buffer, LPDWORD size)
{
    passwd account{};
    std::vector<char> storage;
    const bool known = FindAccount([](passwd* out, char* data, std::size_t length,
                                      passwd** found) { return getpwuid_r(geteuid(), out, data, length, found); },
                                   account, storage);
    const std::string name = known ? account.pw_name : std::to_string(geteuid());
    const DWORD needed = static_cast<DWORD>(name.size() + 1);
    const bool fits = buffer && *size >= needed;
    *size = needed;
    if (!fits) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(buffer, name.c_str(), needed);
    return TRUE;
}

BOOL LookupAccountNameA(LPCSTR system, LPCSTR account, PSID sid, LPDWORD sidSize, LPSTR domain, LPDWORD domainSize,
                        SID_NAME_USE* use)
{
    if (system || !account) {
        SetLastError(system ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    passwd entry{};
    std::vector<char> storage;
    if (!FindAccount([&](passwd* out, char* data, std::size_t length,
                         passwd** found) { return getpwnam_r(account, out, data, length, found); },
                     entry, storage)) {
        SetLastError(ERROR_NONE_MAPPED);
        return FALSE;
    }
    const bool fits = sid && domain && *sidSize >= sizeof(Sid) && *domainSize > Domain.size();
    *sidSize = sizeof(Sid);
    *domainSize = static_cast<DWORD>(fits ? Domain.size() : Domain.size() + 1);
    if (!fits) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    const Sid value{1, 2, {{0, 0, 0, 0, 0, UnixUsersAuthority}}, {1, static_cast<DWORD>(entry.pw_uid)}};
    std::memcpy(sid, &value, sizeof value);
    std::memcpy(domain, Domain.data(), Domain.size());
    domain[Domain.size()] = 0;
    *use = SidTypeUser;
    return TRUE;
}

SID_IDENTIFIER_AUTHORITY* GetSidIdentifierAuthority(PSID sid)
{
    return &static_cast<Sid*>(sid)->authority;
}

BYTE* GetSidSubAuthorityCount(PSID sid)
{
    return &static_cast<Sid*>(sid)->subAuthorityCount;
}

LPDWORD GetSidSubAuthority(PSID sid, DWORD index)
{
    return static_cast<Sid*>(sid)->subAuthority + index;
}

BOOL IsValidSid(PSID sid)
{
    const auto* const value = static_cast<const Sid*>(sid);
    return value && value->revision == 1 && value->subAuthorityCount <= MaxSubAuthorities;
}
