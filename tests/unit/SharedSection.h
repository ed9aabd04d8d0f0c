// A section that a test shares with the code under test, as any other program could: made or opened,
// and mapped in whole pages.
#pragma once

#include "platform/Unique.h"

#include <atomic>
#include <gtest/gtest.h>
#include <string>

namespace vlt::test
{

class SharedSection
{
public:
    SharedSection(const std::string& name, DWORD size)
        : m_mapping(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, name.c_str())),
          m_view(MapViewOfFile(m_mapping.Get(), FILE_MAP_ALL_ACCESS, 0, 0, 0))
    {
        EXPECT_TRUE(m_view) << name << ": error " << GetLastError();
    }

    char* Bytes() const { return static_cast<char*>(m_view.Get()); }
    std::atomic_ref<std::uint32_t> Number(std::size_t index) const
    {
        return std::atomic_ref<std::uint32_t>(static_cast<std::uint32_t*>(m_view.Get())[index]);
    }
    // A name that is being written leads nowhere yet, and whoever finds it so may take it away.
    bool NamesSection(std::size_t offset) const
    {
        const std::string name = Bytes() + offset;
        const std::string global = name.starts_with("Global\\") ? name : "Global\\" + name;
        return !name.empty() && KernelHandle(OpenFileMappingA(FILE_MAP_READ, FALSE, global.c_str()));
    }

private:
    KernelHandle m_mapping;
    MappedView m_view;
};

} // namespace vlt::test
