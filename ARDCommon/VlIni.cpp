#include "ARDCommon/VlIni.h"

#include "platform/Format.h"

VlIni::VlIni(std::string file, std::string section) : m_file(std::move(file)), m_section(std::move(section)) {}

UINT VlIni::ReadUint(const char* key, UINT fallback) const
{
    return GetPrivateProfileIntA(m_section.c_str(), key, static_cast<INT>(fallback), m_file.c_str());
}

bool VlIni::WriteUint(const char* key, UINT value) const
{
    return WriteString(key, vlt::Format("%u", value));
}

bool VlIni::ReadString(const char* key, std::string& value, DWORD limit) const
{
    // Room for one byte more than is taken, for a cut value looks like one that just fits.
    value.assign(std::size_t{limit} + 2, '\0');
    const DWORD length = GetPrivateProfileStringA(m_section.c_str(), key, "", value.data(),
                                                  static_cast<DWORD>(value.size()), m_file.c_str());
    value.resize(length <= limit ? length : 0);
    return !value.empty();
}

bool VlIni::WriteString(const char* key, const std::string& value) const
{
    return WritePrivateProfileStringA(m_section.c_str(), key, value.c_str(), m_file.c_str()) != FALSE;
}

bool VlIni::DeleteSection() const
{
    return WritePrivateProfileStringA(m_section.c_str(), nullptr, nullptr, m_file.c_str()) != FALSE;
}
