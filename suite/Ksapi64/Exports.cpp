// The entry points of Ksapi64.dll. They keep no state: every call looks at the folder as it is now.
#include "engine/KsapiAbi.h"
#include "suite/Common/EngineFacts.h"
#include "suite/Common/HostPath.h"
#include "suite/Common/PatternFolder.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <exception>

using namespace vlt::scan;

#ifdef _WIN32
#define KS_EXPORT extern "C" // the names are in Ksapi64.def
#else
#define KS_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace
{

enum KsError : int { KS_OK = 0, KS_E_ARGUMENT = -1, KS_E_PATTERN = -2, KS_E_BUFFER = -3, KS_E_RESOURCE = -4 };

constexpr std::size_t MaxName = 260; // characters of the caller's buffer

// Nothing throws across the boundary.
template <typename Body>
int Guarded(Body&& body) noexcept
{
    try {
        return body();
    } catch (const std::exception&) {
        return KS_E_RESOURCE;
    }
}

template <typename Char>
int LastPattern(const HostPath& folder, std::string_view stem, Char* name)
{
    *name = 0;
    const auto kind = KindOfStem(stem);
    if (!kind)
        return KS_E_ARGUMENT;
    const LoadedPattern newest = LoadNewest(folder, stem, *kind);
    if (!newest.file || newest.name.size() >= MaxName)
        return KS_E_PATTERN;
    *std::copy(newest.name.begin(), newest.name.end(), name) = 0;
    return KS_OK;
}

} // namespace

KS_EXPORT int WINAPI KSGetLastPattern(const char* folder, const char* stem, char* name)
{
    return Guarded([&]() -> int {
        return folder && stem && name ? LastPattern(ToHostNarrow(folder), stem, name) : KS_E_ARGUMENT;
    });
}

KS_EXPORT int WINAPI KSGetLastPatternW(const WCHAR* folder, const WCHAR* stem, WCHAR* name)
{
    return Guarded([&]() -> int {
        if (!folder || !stem || !name)
            return KS_E_ARGUMENT;
        std::string narrow; // stems are ASCII; anything else becomes one that is not known
        for (const WCHAR* unit = stem; *unit; ++unit)
            narrow += *unit < 0x7F ? static_cast<char>(*unit) : '?';
        return LastPattern(ToHost(folder), narrow, name);
    });
}

KS_EXPORT int WINAPI KSGetPatternInternalVersion(const char* path, std::int32_t* version)
{
    return Guarded([&]() -> int {
        if (!path || !version)
            return KS_E_ARGUMENT;
        *version = 0;
        const auto file = LoadPattern(ToHostNarrow(path));
        if (!file || file->version > INT32_MAX)
            return KS_E_PATTERN;
        *version = static_cast<std::int32_t>(file->version);
        return KS_OK;
    });
}

// A file is out of use when the one to keep is newer than it. What is newer than that one has only just been
// installed, and what cannot be read may be about to be replaced: both stay. Without the file to keep nothing
// is deleted, since what is in use is then not known.
KS_EXPORT int WINAPI KSDeleteUnusedPattern(const char* folder, const char* stem, std::int32_t keep)
{
    return Guarded([&]() -> int {
        const auto kind = folder && stem ? KindOfStem(stem) : std::nullopt;
        if (!kind || keep < 0)
            return KS_E_ARGUMENT;
        const auto kept = static_cast<std::uint32_t>(keep);
        const auto entries = ListPatterns(ToHostNarrow(folder), stem, *kind);
        if (std::none_of(entries.begin(), entries.end(), [&](const PatternEntry& entry) {
                return entry.intact && entry.version == kept && LoadPattern(entry.path);
            }))
            return KS_E_PATTERN;
        int deleted = 0;
        std::error_code error;
        for (const PatternEntry& entry : entries)
            if (entry.intact && entry.version < kept && std::filesystem::remove(entry.path, error))
                ++deleted;
        return deleted;
    });
}

KS_EXPORT std::int32_t WINAPI KSGetDefaultExtListSize()
{
    return sizeof(DefaultExtensionList);
}

KS_EXPORT int WINAPI KSGetDefaultExtList(char* buffer, std::int32_t size)
{
    if (!buffer || size < KSGetDefaultExtListSize())
        return KS_E_BUFFER;
    std::memcpy(buffer, DefaultExtensionList, sizeof(DefaultExtensionList));
    return KS_OK;
}

// Whether scanning could begin with what is in the folder.
KS_EXPORT int WINAPI KSInit(const char* folder)
{
    return Guarded([&]() -> int {
        if (!folder)
            return KS_E_ARGUMENT;
        return LoadNewest(ToHostNarrow(folder), VirusStem, PatternKind::Virus).file ? KS_OK : KS_E_PATTERN;
    });
}

KS_EXPORT int WINAPI KSGetVersion(KsVersion* version)
{
    if (!version)
        return KS_E_ARGUMENT;
    *version = {EngineMajor, EngineMinor, 0, EngineBuild};
    return KS_OK;
}
