// The suite's pattern library, Ksapi64.dll in the folder of the patterns.
#pragma once

#include "engine/KsapiAbi.h"
#include "platform/Unique.h"

#include <optional>
#include <string>

namespace vlt::ctl
{

class PatternLibrary
{
public:
    // Throws CommandError. The folder ends in a backslash.
    explicit PatternLibrary(const WString& folder);

    // The internal version of a file; nothing when it is not a whole pattern file.
    std::optional<std::int32_t> VersionOf(const WString& file) const;

    // The name of the file of the stem that an engine would load; empty when there is none.
    WString Newest(std::string_view stem) const;

private:
    template <typename Function>
    Function Entry(const char* name) const;

    const WString m_folder;
    LibraryHandle m_library;
    KSGetPatternInternalVersion_t m_version = nullptr;
    KSGetLastPatternW_t m_newest = nullptr;
};

} // namespace vlt::ctl
