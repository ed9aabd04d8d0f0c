#include "realtime/Versions.h"

#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/VlDebug.h"
#include "engine/KsapiDllLib.h"
#include "engine/ProcAddress.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "realtime/State.h"

#include <charconv>
#include <limits>

namespace
{

void WriteEntry(LPCWSTR section, LPCWSTR key, const WString& value)
{
    WritePrivateProfileStringW(section, key, value.c_str(), vlt::SettingsFile().c_str());
}

void WriteInfo(LPCWSTR key, const WString& value)
{
    WriteEntry(TEXT("Info"), key, value);
}

// The text of a library's version is kept in a field of this size, with its NUL.
constexpr std::size_t kLibraryVersionSize = sizeof "1234.1234.1234";

bool Is64BitSystem()
{
    const vlt::LibraryHandle kernel(LoadLibraryW(TEXT("kernel32.dll")));
    const auto getInfo = vlt::ProcAddress<void(WINAPI*)(SYSTEM_INFO*)>(kernel.Get(), "GetNativeSystemInfo");
    SYSTEM_INFO info{};
    if (getInfo != nullptr)
        getInfo(&info);
    return info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64;
}

} // namespace

namespace vlt
{

std::uint32_t NormalisedMinor(std::uint32_t minor)
{
    if (minor < 10)
        return minor * 100;
    return minor < 100 ? minor * 10 : minor;
}

WString EngineInfoText(double version)
{
    char text[std::numeric_limits<double>::max_exponent10 + 16];
    const auto result = std::to_chars(text, text + sizeof(text), version, std::chars_format::fixed, 3);
    std::string_view digits(text, static_cast<std::size_t>(result.ptr - text));
    if (digits.starts_with('-'))
        digits.remove_prefix(1);
    if (digits.starts_with("0."))
        digits.remove_prefix(1);
    return ToWide(digits);
}

} // namespace vlt

void WriteVersionErrorValues(unsigned mask)
{
    if (mask & VERSION_ERROR_PATTERN) {
        const WString value = TEXT("0");
        VLT_TRACE(40, "Write error value to ard-entis.ini Pattern=%S", value);
        WriteInfo(TEXT("Pattern"), value);
    }
    if (mask & VERSION_ERROR_ENGINE) {
        const WString value = TEXT("7.0.0");
        VLT_TRACE(40, "Write error value to ard-entis.ini Engine=%S", value);
        WriteInfo(TEXT("Engine"), value);
    }
    if (mask & VERSION_ERROR_SPYWARE) {
        const WString value = TEXT("0");
        VLT_TRACE(40, "Write error value to ard-entis.ini Spyware=%S", value);
        WriteInfo(TEXT("Spyware"), value);
    }
}

void WriteEngineInfoVersion(AsHandle handle)
{
    // Engines have written more than the first field.
    union {
        AsEngineInfo info;
        unsigned char bytes[AS_ENGINE_INFO_BUFFER];
    } buffer{.bytes = {}};
    vlt::ScanLibrary().ASGetEngineInfo(handle, &buffer.info);
    WriteInfo(TEXT("Engine"), vlt::EngineInfoText(buffer.info.version));
}

void WriteEngineVersion(AsHandle handle)
{
    AsEngineInformation engine{};
    vlt::ScanLibrary().ASGetEngineInformation(handle, &engine);
    WriteInfo(TEXT("Engine"),
              vlt::Format(TEXT("%u.%u.%u"), engine.major, vlt::NormalisedMinor(engine.minor), engine.build));
}

void WritePatternVersion(AsHandle handle)
{
    AsPatternInformation pattern{};
    vlt::ScanLibrary().ASGetPatternInformation(handle, &pattern);
    WriteInfo(TEXT("Pattern"), vlt::Format(TEXT("%u"), pattern.version));
}

void WriteKsapiDll64Version()
{
    VLT_TRACE(50, "[Enter] WriteKsapiDll64Version()");
    if (!Is64BitSystem())
        return;
    CKsapiDllLib library;
    if (!library.InitA(vlt::ToNarrow(vlt::ApplicationFolder()).c_str())) {
        VLT_TRACE(20, "Failed ksapilib.Init");
        return;
    }
    KsVersion version{};
    if (library.KSGetVersion(&version) != 0) {
        VLT_TRACE(20, "Failed KSGetVersion");
        return;
    }
    VLT_TRACE(40, "version(%d, %d, %d)", version.major, version.minor, version.build);
    const WString text =
        vlt::Format(TEXT("%d.%d.%d"), version.major, vlt::NormalisedMinor(version.minor), version.build);
    WriteInfo(TEXT("EngineDLL64"), text.substr(0, kLibraryVersionSize - 1));
    VLT_TRACE(50, "[Leave] WriteKsapiDll64Version()");
}

void WriteSpywareVersion(AsHandle handle)
{
    const auto getVersion =
        vlt::ProcAddress<ASGetSpyWarePatternVersion_t>(vlt::ScanModule(), "ASGetSpyWarePatternVersion");
    std::uint32_t version = 0;
    if (getVersion != nullptr && getVersion(handle, &version) != 0)
        WriteInfo(TEXT("SpyWare"), vlt::Format(TEXT("%u"), version));
}

void WriteListPatternVersions(AsHandle handle)
{
    const auto getVersion = vlt::ProcAddress<ASGetPatternVersion_t>(vlt::ScanModule(), "ASGetPatternVersion");
    if (getVersion == nullptr)
        return;
    constexpr struct {
        const char* stem;
        const WCHAR* version;
        const WCHAR* date;
    } lists[] = {{"vlwhite", TEXT("WhiteListPattern"), TEXT("WhiteList")},
                 {"vlblack", TEXT("BlackListPattern"), TEXT("BlackList")}};
    for (const auto& list : lists) {
        std::uint32_t version = 0;
        const bool known = getVersion(handle, list.stem, &version) != 0;
        WriteInfo(list.version, vlt::Format(TEXT("%u"), version));
        if (!known)
            WriteEntry(TEXT("LastUpdateDate"), list.date, {});
    }
}
