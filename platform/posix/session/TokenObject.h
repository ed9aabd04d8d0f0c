// An access token: whom a program is started for.
#pragma once

#include "platform/posix/core/HandleTable.h"
#include "platform/posix/session/ProcessFacts.h"

namespace vlt::posix
{

class TokenObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Token;

    TokenObject(Credentials credentials, DWORD session, unsigned terminal, DWORD access) noexcept
        : Object(kKind), m_credentials(std::move(credentials)), m_session(session), m_terminal(terminal),
          m_access(access)
    {
    }

    const Credentials& Who() const noexcept { return m_credentials; }
    DWORD Session() const noexcept { return m_session; }
    unsigned Terminal() const noexcept { return m_terminal; } // as ProcessFacts
    bool Grants(DWORD access) const noexcept { return (m_access & access) == access; }

private:
    const Credentials m_credentials;
    const DWORD m_session;
    const unsigned m_terminal;
    const DWORD m_access;
};

} // namespace vlt::posix
