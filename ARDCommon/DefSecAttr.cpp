#include "ARDCommon/DefSecAttr.h"

#include "ARDCommon/VlUtil.h"

DefSecAttr::DefSecAttr() : m_descriptor(VlUtil::CreateNullDaclDescriptor())
{
    m_attributes.nLength = sizeof(m_attributes);
    m_attributes.lpSecurityDescriptor = m_descriptor.Get();
    m_attributes.bInheritHandle = TRUE;
    if (m_descriptor)
        m_pAttributes = &m_attributes;
}

DefSecAttr::~DefSecAttr() = default;
