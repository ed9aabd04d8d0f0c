#include "platform/posix/file/PendingMoves.h"

#include "platform/Format.h"
#include "platform/posix/core/Error.h"
#include "platform/posix/core/Fd.h"
#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/file/FileObject.h"
#include "platform/Unique.h"
#include "platform/win32.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

namespace vlt::posix
{
namespace
{

constexpr char16_t kKey[] = u"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr char16_t kValue[] = u"PendingFileRenameOperations";
constexpr std::u16string_view kNative = u"\\??\\";
constexpr std::size_t kRecordSize = 64;

struct PendingMove {
    std::u16string from;
    std::u16string to; // empty: delete
};

// The file's first lines, the other empty when there is none.
struct Lines {
    explicit Lines(int file)
    {
        char text[kRecordSize];
        const ssize_t size = pread(file, text, sizeof text, 0);
        const std::string_view read(text, size > 0 ? static_cast<std::size_t>(size) : 0);
        const std::size_t end = std::min(read.find('\n'), read.size());
        first = read.substr(0, end);
        second = read.substr(std::min(end + 1, read.size()));
    }
    std::string first;
    std::string second;
};

std::string CurrentBoot()
{
    const char* const given = std::getenv("VLT_BOOT_ID");
    const Fd file(open(given && *given ? given : "/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
    return Lines(file.Get()).first;
}

// The record of the boot that the list belongs to, locked until it goes.
class BootRecord
{
public:
    BootRecord() : m_file(open((MachineRoot() + "/boot").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
    {
        while (m_file && flock(m_file.Get(), LOCK_EX) != 0) {
            if (errno != EINTR)
                m_file = Fd();
        }
    }
    explicit operator bool() const { return static_cast<bool>(m_file); }

    // Empty in a machine that has had no list yet.
    std::string Boot() const { return Lines(m_file.Get()).first; }

    // How many moves of the list have been tried already by a starter that was killed.
    std::size_t Done() const { return std::strtoul(Lines(m_file.Get()).second.c_str(), nullptr, 10); }

    bool Set(const std::string& boot, std::size_t done) const
    {
        const std::string text = boot + '\n' + std::to_string(done) + '\n';
        return pwrite(m_file.Get(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
               ftruncate(m_file.Get(), static_cast<off_t>(text.size())) == 0;
    }
    void Flush() const { fdatasync(m_file.Get()); }

private:
    Fd m_file;
};

// A text that has no end, and whatever comes after it, is not taken.
std::vector<PendingMove> Parse(std::u16string_view units)
{
    const auto take = [&units](std::u16string& text) {
        const std::size_t end = units.find(u'\0');
        if (end == units.npos)
            return false;
        text = units.substr(0, end);
        units.remove_prefix(end + 1);
        return true;
    };
    std::vector<PendingMove> moves;
    for (PendingMove move; take(move.from) && take(move.to);)
        moves.push_back(move);
    return moves;
}

class PendingList
{
public:
    LSTATUS Open()
    {
        return RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE,
                               nullptr, m_key.Receive(), nullptr);
    }

    std::vector<PendingMove> Read() const
    {
        DWORD type = REG_NONE;
        DWORD size = 0;
        if (RegQueryValueExW(m_key.Get(), kValue, nullptr, &type, nullptr, &size) != ERROR_SUCCESS || size == 0)
            return {};
        std::u16string units((std::size_t{size} + 1) / sizeof(char16_t), u'\0');
        if (RegQueryValueExW(m_key.Get(), kValue, nullptr, &type, reinterpret_cast<LPBYTE>(units.data()), &size) !=
                ERROR_SUCCESS ||
            type != REG_MULTI_SZ)
            return {};
        return Parse(units);
    }

    LSTATUS Write(const std::vector<PendingMove>& moves) const
    {
        if (moves.empty()) {
            const LSTATUS status = RegDeleteValueW(m_key.Get(), kValue);
            return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
        }
        std::u16string units;
        for (const PendingMove& move : moves)
            units.append(move.from).append(1, u'\0').append(move.to).append(1, u'\0');
        units += u'\0';
        return RegSetValueExW(m_key.Get(), kValue, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(units.data()),
                              static_cast<DWORD>(units.size() * sizeof(char16_t)));
    }

private:
    RegKey m_key;
};

// The path of an entry of the list; empty when it is none.
std::u16string PathOf(std::u16string_view text)
{
    return std::u16string(text.starts_with(kNative) ? text.substr(kNative.size()) : std::u16string_view());
}

bool MoveOver(const std::u16string& from, const std::u16string& to, bool replace)
{
    const DWORD flags = MOVEFILE_COPY_ALLOWED | (replace ? MOVEFILE_REPLACE_EXISTING : 0);
    if (MoveFileExW(from.c_str(), to.c_str(), flags))
        return true;
    // Nobody is there to ask whether a target that is only to be read may go.
    return replace && GetLastError() == ERROR_ACCESS_DENIED && SetFileAttributesW(to.c_str(), FILE_ATTRIBUTE_NORMAL) &&
           MoveFileExW(from.c_str(), to.c_str(), flags);
}

bool Delete(const std::u16string& path, bool isFolder)
{
    return isFolder ? RemoveDirectoryW(path.c_str()) : DeleteFileW(path.c_str());
}

void Report(const PendingMove& move, DWORD error)
{
    const std::u16string text = vlt::Format(u"A move that waited for the start of the system failed with error %u: "
                                            u"%s to %s",
                                            error, move.from, move.to.empty() ? u"nothing" : move.to.c_str());
    const EventSource log(RegisterEventSourceW(nullptr, u"Session Manager"));
    LPCWSTR strings[] = {text.c_str()};
    if (log)
        ReportEventW(log.Get(), EVENTLOG_WARNING_TYPE, 0, 1, nullptr, 1, 0, strings, nullptr);
}

void CarryOut(const PendingMove& move)
{
    const std::u16string from = PathOf(move.from);
    const bool replace = move.to.starts_with(u'!');
    const std::u16string to = PathOf(std::u16string_view(move.to).substr(replace ? 1 : 0));
    const auto source = FindEntry(from.c_str());
    if (!source && (GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND))
        return;
    const bool done = source && (move.to.empty() ? Delete(from, source->IsFolder()) : MoveOver(from, to, replace));
    if (!done)
        Report(move, GetLastError());
}

void CarryOutWhenDue(const BootRecord& record, const PendingList& list)
{
    const std::string boot = CurrentBoot();
    const std::string listed = record.Boot();
    if (boot.empty() || boot == listed)
        return;
    if (!listed.empty()) {
        const std::vector<PendingMove> moves = list.Read();
        for (std::size_t done = record.Done(); done < moves.size(); record.Set(listed, done))
            CarryOut(moves[done++]);
        list.Write({}); // a list that cannot be read goes, too
    }
    record.Set(boot, 0);
    record.Flush();
}

// "\??\" and the path in full.
bool NativePath(LPCWSTR text, std::u16string& native)
{
    const auto path = ParsePath(text ? std::u16string_view(text) : std::u16string_view());
    if (path)
        native.append(kNative).append(path->Text());
    return path.has_value();
}

} // namespace

BOOL AddPendingMove(LPCWSTR from, LPCWSTR to, bool replace)
{
    PendingMove move;
    if (!NativePath(from, move.from))
        return FALSE;
    if (to && replace)
        move.to = u"!";
    if (to && !NativePath(to, move.to))
        return FALSE;
    const BootRecord record;
    if (!record) {
        SetLastErrorFromErrno();
        return FALSE;
    }
    PendingList list;
    LSTATUS status = list.Open();
    if (status == ERROR_SUCCESS) {
        CarryOutWhenDue(record, list);
        std::vector<PendingMove> moves = list.Read();
        moves.push_back(std::move(move));
        status = list.Write(moves);
    }
    if (status != ERROR_SUCCESS)
        SetLastError(static_cast<DWORD>(status));
    return status == ERROR_SUCCESS;
}

void CarryOutPendingMoves()
{
    const BootRecord record;
    PendingList list;
    if (record && list.Open() == ERROR_SUCCESS)
        CarryOutWhenDue(record, list);
}

} // namespace vlt::posix
