// One section of a private profile file, in the system code page.
#pragma once

#include "platform/win32.h"

// Each call opens and reads the file anew. Writers make the file; they report failure and set the last
// error. For any thread.
class VlIni
{
public:
    VlIni(std::string file, std::string section);

    // The number that the value begins with, 0 when it begins with none.
    UINT ReadUint(const char* key, UINT fallback) const;
    bool WriteUint(const char* key, UINT value) const;

    // False with an empty text when the value is missing, empty or longer than `limit` bytes.
    bool ReadString(const char* key, std::string& value, DWORD limit) const;
    bool WriteString(const char* key, const std::string& value) const;

    bool DeleteSection() const;

private:
    std::string m_file;
    std::string m_section;
};
