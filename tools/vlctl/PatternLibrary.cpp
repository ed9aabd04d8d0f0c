#include "tools/vlctl/PatternLibrary.h"

#include "platform/Text.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/Text.h"

namespace vlt::ctl
{

PatternLibrary::PatternLibrary(const WString& folder)
    : m_folder(folder), m_library(LoadLibraryW((folder + TEXT("Ksapi64.dll")).c_str()))
{
    if (!m_library)
        FailWith(GetLastError(), Printable(folder) + "Ksapi64.dll");
    m_version = Entry<KSGetPatternInternalVersion_t>("KSGetPatternInternalVersion");
    m_newest = Entry<KSGetLastPatternW_t>("KSGetLastPatternW");
}

template <typename Function>
Function PatternLibrary::Entry(const char* name) const
{
    void* const entry = reinterpret_cast<void*>(GetProcAddress(m_library.Get(), name));
    if (!entry)
        FailWith(GetLastError(), name);
    return reinterpret_cast<Function>(entry);
}

std::optional<std::int32_t> PatternLibrary::VersionOf(const WString& file) const
{
    std::int32_t version = 0;
    if (m_version(ToNarrow(file).c_str(), &version) != 0)
        return std::nullopt;
    return version;
}

WString PatternLibrary::Newest(std::string_view stem) const
{
    WCHAR name[MAX_PATH] = {};
    return m_newest(m_folder.c_str(), ToWide(stem).c_str(), name) == 0 ? WString(FieldText(name)) : WString();
}

} // namespace vlt::ctl
