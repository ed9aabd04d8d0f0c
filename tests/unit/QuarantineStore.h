// A quarantine store with the real scan library behind it, in a folder of the test's own.
#pragma once

#include "ARDCommon/Quarantine.h"
#include "platform/Text.h"
#include "tests/suite/ScanLibrary.h"

#include <gtest/gtest.h>

namespace vlt::test
{

class QuarantineStore
{
public:
    // Empty: in a folder of its own.
    explicit QuarantineStore(const WString& folder = {})
    {
        const WString used = folder.empty() ? m_own.PathW() : folder;
        EXPECT_EQ(1, store.QuarantineInitW(m_library.Module(), m_library.Handle(), used.c_str()));
    }

    std::filesystem::path File(std::string_view name) const { return m_own.HostPath(name); }

    // Puts a file of that content away, as the scan library and the detection would.
    int Quarantine(const char* content, const WCHAR* sourcePath, const WCHAR* threat)
    {
        WriteBytes(File("encoded.bin"), content);
        return store.RenameEncodeFileW(TEXT("encoded.bin"), sourcePath, threat);
    }

    std::vector<QuarantineRecord> Records()
    {
        std::vector<QuarantineRecord> records;
        QuarantineRecord record{};
        store.CloseEnumerations();
        while (store._ReadQuarantineDBW(&record))
            records.push_back(record);
        EXPECT_EQ(0u, store.LastErrorCode());
        store.CloseEnumerations();
        return records;
    }

private:
    TempFolder m_own;
    ScanLibrary m_library;

public:
    CQuarantine store;
};

} // namespace vlt::test
