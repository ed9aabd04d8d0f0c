// Security attributes that open an object to every account and session.
#pragma once

#include "platform/Unique.h"
#include "platform/win32.h"

class DefSecAttr
{
public:
    DefSecAttr();
    virtual ~DefSecAttr();
    DefSecAttr(const DefSecAttr&) = delete;
    DefSecAttr& operator=(const DefSecAttr&) = delete;

    // For the create functions; valid as long as this object. Null when the descriptor could not be
    // built: the object is then made with default security, which only the creator's account and
    // session can open.
    LPSECURITY_ATTRIBUTES Get() const { return m_pAttributes; }

private:
    SECURITY_ATTRIBUTES m_attributes{};
    vlt::LocalMem m_descriptor;
    LPSECURITY_ATTRIBUTES m_pAttributes = nullptr;
};
