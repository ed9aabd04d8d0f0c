// Security attributes for objects that programs of other accounts use too, as the service does.
#pragma once

#include "platform/win32.h"

class OpenToEveryone
{
public:
    OpenToEveryone()
    {
        InitializeSecurityDescriptor(&m_descriptor, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&m_descriptor, TRUE, nullptr, FALSE);
        m_attributes = {sizeof m_attributes, &m_descriptor, FALSE};
    }
    OpenToEveryone(const OpenToEveryone&) = delete;
    OpenToEveryone& operator=(const OpenToEveryone&) = delete;

    // For the calls made while this lives.
    SECURITY_ATTRIBUTES* Get() { return &m_attributes; }

private:
    alignas(void*) BYTE m_descriptor[SECURITY_DESCRIPTOR_MIN_LENGTH];
    SECURITY_ATTRIBUTES m_attributes{};
};
