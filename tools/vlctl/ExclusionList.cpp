#include "tools/vlctl/ExclusionList.h"

#include "ARDCommon/RealTimeSettings.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/Text.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace vlt::ctl
{
namespace
{

constexpr REGSAM View = KEY_WOW64_32KEY;

// As the service reads one: nothing but a REG_SZ that its buffer holds.
LSTATUS ReadText(HKEY key, const std::string& name, std::string& text)
{
    std::array<char, kExceptionBytes + 1> buffer{};
    DWORD type = REG_NONE, size = kExceptionBytes;
    const LSTATUS status =
        RegQueryValueExA(key, name.c_str(), nullptr, &type, reinterpret_cast<LPBYTE>(buffer.data()), &size);
    text = buffer.data();
    return status == static_cast<LSTATUS>(ERROR_SUCCESS) && type != REG_SZ ? static_cast<LSTATUS>(ERROR_INVALID_DATA)
                                                                           : status;
}

void ReadStem(HKEY key, bool folder, std::vector<Exclusion>& list)
{
    bool ended = false;
    for (unsigned i = 0; i < kExceptionCount; ++i) {
        Exclusion entry{folder, i,     Format("%s%u", folder ? kExceptionFolderStem : kExceptionFileStem, i),
                        {},     false, {}};
        std::string text;
        const LSTATUS status = ReadText(key, entry.name, text);
        if (status == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND)) {
            ended = true;
            continue;
        }
        const bool readable = status == static_cast<LSTATUS>(ERROR_SUCCESS);
        const bool placeHolder = readable && (text.empty() || text == std::string_view(kExceptionPlaceHolder));
        if (!placeHolder)
            entry.path = ToWide(text);
        if (!readable)
            entry.note = "no text, or longer than the service reads: the list ends here";
        else if (ended)
            entry.note = "behind the list's end: a number before it is missing or not readable";
        else if (placeHolder)
            entry.note = kPlaceHolderNote;
        entry.inForce = entry.note.empty();
        ended = ended || !readable;
        list.push_back(std::move(entry));
    }
}

RegKey OpenForWriting()
{
    RegKey key;
    const LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, kExceptionKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                           KEY_READ | KEY_WRITE | View, nullptr, key.Receive(), nullptr);
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), Utf8(kExceptionKey));
    return key;
}

void WriteText(HKEY key, const std::string& name, const std::string& text)
{
    const LSTATUS status = RegSetValueExA(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                                          static_cast<DWORD>(text.size() + 1));
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), name);
}

} // namespace

std::vector<Exclusion> ReadExclusions()
{
    RegKey key;
    const LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kExceptionKey, 0, KEY_READ | View, key.Receive());
    std::vector<Exclusion> list;
    if (status == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND))
        return list;
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), Utf8(kExceptionKey));
    ReadStem(key.Get(), false, list);
    ReadStem(key.Get(), true, list);
    return list;
}

void AddExclusion(const std::vector<Exclusion>& list, const WString& path, bool folder)
{
    const std::string text = ToNarrow(path);
    if (text.size() + 1 > kExceptionBytes)
        throw CommandError(ExitUsage, Printable(path) + ": too long for an exclusion",
                           Format("an exclusion has at most %u bytes; exclude a folder above it", kExceptionBytes - 1));
    if (ToWide(text) != path)
        throw CommandError(ExitUsage, Printable(path) + ": has characters that the system code page lacks",
                           "exclude a folder above it");
    unsigned place = 0; // the end of the list
    bool free = false;
    for (const Exclusion& entry : list) {
        if (entry.folder != folder || free || entry.index != place)
            continue;
        free = !entry.inForce; // a place holder, or what ends the list
        place += free ? 0 : 1;
    }
    if (place >= kExceptionCount)
        throw CommandError(ExitFailed, Format("all %u places are taken", kExceptionCount),
                           "remove an exclusion, or exclude a folder that holds several");
    WriteText(OpenForWriting().Get(), Format("%s%u", folder ? kExceptionFolderStem : kExceptionFileStem, place), text);
}

void RemoveExclusion(const std::vector<Exclusion>& list, const Exclusion& entry)
{
    const bool last = std::none_of(list.begin(), list.end(), [&](const Exclusion& each) {
        return each.folder == entry.folder && each.index > entry.index;
    });
    const RegKey key = OpenForWriting();
    if (!last)
        return WriteText(key.Get(), entry.name, kExceptionPlaceHolder);
    const LSTATUS status = RegDeleteValueW(key.Get(), ToWide(entry.name).c_str());
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), entry.name);
}

} // namespace vlt::ctl
