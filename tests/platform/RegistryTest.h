// A key of its own for each registry test, on whichever machine the test runs.
#pragma once

#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vlt::test
{

inline const BYTE* Bytes(const void* data)
{
    return static_cast<const BYTE*>(data);
}

inline DWORD Code(LSTATUS status)
{
    return static_cast<DWORD>(status);
}

// The code of the enumeration; the name and, unless it is null, the size of the data.
inline DWORD EnumValue(HKEY key, DWORD index, WString& name, DWORD* size = nullptr)
{
    WCHAR text[32];
    DWORD length = 32;
    const DWORD code = Code(RegEnumValueW(key, index, text, &length, nullptr, nullptr, nullptr, size));
    name = code == ERROR_SUCCESS ? WString(text, length) : WString();
    return code;
}

// The stored bytes, or "<code>" when the query fails.
inline std::string Get(HKEY key, const WCHAR* name)
{
    for (;;) {
        DWORD size = 0;
        LSTATUS status = RegQueryValueExW(key, name, nullptr, nullptr, nullptr, &size);
        std::string data(size + 8, '\xEE');
        if (status == ERROR_SUCCESS)
            status = RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()), &size);
        if (Code(status) == ERROR_MORE_DATA)
            continue; // another process has made it longer meanwhile
        if (status != ERROR_SUCCESS)
            return '<' + std::to_string(status) + '>';
        data.resize(size);
        return data;
    }
}

inline DWORD Set(HKEY key, const WCHAR* name, std::string_view data, DWORD type = REG_BINARY)
{
    return Code(RegSetValueExW(key, name, 0, type, Bytes(data.data()), static_cast<DWORD>(data.size())));
}

inline std::vector<WString> SubKeys(HKEY key)
{
    std::vector<WString> names;
    WCHAR name[256];
    for (DWORD length = 256; RegEnumKeyExW(key, static_cast<DWORD>(names.size()), name, &length, nullptr, nullptr,
                                           nullptr, nullptr) == ERROR_SUCCESS;
         length = 256)
        names.emplace_back(name, length);
    return names;
}

inline RegKey Open(HKEY parent, const WString& path, REGSAM access = KEY_ALL_ACCESS)
{
    RegKey key;
    RegOpenKeyExW(parent, path.c_str(), 0, access, key.Receive());
    return key;
}

inline RegKey Create(HKEY parent, const WString& path, REGSAM access = KEY_ALL_ACCESS)
{
    RegKey key;
    EXPECT_EQ(ERROR_SUCCESS, Code(RegCreateKeyExW(parent, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, access,
                                                  nullptr, key.Receive(), nullptr)));
    return key;
}

inline void RemoveTree(HKEY parent, const WString& path, REGSAM view = 0)
{
    if (const RegKey key = Open(parent, path, KEY_READ | view))
        for (const WString& name : SubKeys(key.Get()))
            RemoveTree(key.Get(), name, view);
    RegDeleteKeyExW(parent, path.c_str(), view, 0);
}

// HKEY_LOCAL_MACHINE\SOFTWARE\VltTest\<name>, in both views; removed at the end.
class RegistryTest : public testing::Test
{
protected:
    RegistryTest()
    {
        const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
        m_path = TEXT("SOFTWARE\\VltTest\\") + ToWide(std::string(test.test_suite_name()) + '.' + test.name());
        m_key = Create(HKEY_LOCAL_MACHINE, m_path);
    }
    ~RegistryTest() override
    {
        m_key.Reset();
        RemoveTree(HKEY_LOCAL_MACHINE, m_path);
        RemoveTree(HKEY_LOCAL_MACHINE, m_path, KEY_WOW64_32KEY);
    }

    HKEY Key() const { return m_key.Get(); }
    const WString& Path() const { return m_path; }
    std::string NarrowPath() const { return ToNarrow(m_path); }

private:
    WString m_path;
    RegKey m_key;
};

} // namespace vlt::test
