#include "platform/posix/session/ProcessFacts.h"

#include "platform/posix/core/Fd.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <sstream>
#include <string_view>

namespace vlt::posix
{
namespace
{

constexpr DWORD NoLogin = 0xFFFFFFFF; // as the kernel writes -1

std::string PathOf(pid_t id, const char* file)
{
    return "/proc/" + std::to_string(id) + '/' + file;
}

// At most so many bytes, since an environment is as large as its owner likes.
constexpr std::size_t LongestFile = 256 * 1024;

std::string ReadFile(pid_t id, const char* name)
{
    const Fd file(open(PathOf(id, name).c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    std::array<char, 4096> part;
    while (file && text.size() < LongestFile) {
        const ssize_t size = read(file.Get(), part.data(), part.size());
        if (size <= 0)
            break;
        text.append(part.data(), static_cast<std::size_t>(size));
    }
    return text;
}

template <typename Number>
std::optional<Number> ParseNumber(std::string_view text)
{
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end != text.data() ? std::optional(number) : std::nullopt;
}

// The four ids of a line such as "Uid:" when they are one and the same.
std::optional<unsigned> OneId(std::istringstream& line)
{
    unsigned real = 0, effective = 0, saved = 0, files = 0;
    if (!(line >> real >> effective >> saved >> files) || real != effective || real != saved || real != files)
        return std::nullopt;
    return real;
}

} // namespace

std::optional<ProcessFacts> ReadProcessFacts(pid_t id)
{
    const std::string line = ReadFile(id, "stat");
    const std::size_t open = line.find('('), close = line.rfind(')'); // the name may hold anything
    if (open == std::string::npos || close == std::string::npos || close < open)
        return std::nullopt;
    ProcessFacts facts;
    facts.id = id;
    facts.name = line.substr(open + 1, close - open - 1);
    // From the third field on: state, parent, group, session, terminal; the 20th is the threads, the
    // 22nd the start.
    std::istringstream rest(line.substr(close + 1));
    std::string state, skipped;
    rest >> state >> facts.parent >> skipped >> skipped >> facts.terminal;
    for (int field = 8; field < 20; ++field)
        rest >> skipped;
    rest >> facts.threads >> skipped >> facts.start;
    const bool ended = state == "Z" || state == "X"; // and not collected by its parent
    return rest && !ended ? std::optional(std::move(facts)) : std::nullopt;
}

std::string ProgramName(pid_t id, const std::string& kernelName)
{
    std::array<char, 4096> path;
    const ssize_t size = readlink(PathOf(id, "exe").c_str(), path.data(), path.size());
    if (size <= 0)
        return kernelName;
    std::string_view name(path.data(), static_cast<std::size_t>(size));
    constexpr std::string_view replaced = " (deleted)"; // by a newer file of that name
    if (name.ends_with(replaced))
        name.remove_suffix(replaced.size());
    return std::string(name.substr(name.rfind('/') + 1));
}

std::optional<Credentials> ReadCredentials(pid_t id)
{
    std::istringstream status(ReadFile(id, "status"));
    std::optional<unsigned> user, group;
    std::optional<std::vector<gid_t>> groups;
    for (std::string text; std::getline(status, text);) {
        std::istringstream line(text);
        std::string key;
        line >> key;
        if (key == "Uid:")
            user = OneId(line);
        else if (key == "Gid:")
            group = OneId(line);
        else if (key == "Groups:")
            groups.emplace(std::istream_iterator<gid_t>(line), std::istream_iterator<gid_t>());
    }
    if (!user || !group || !groups)
        return std::nullopt;
    return Credentials{*user, *group, std::move(*groups)};
}

Login ReadLogin(pid_t id)
{
    const auto session = ParseNumber<DWORD>(ReadFile(id, "sessionid"));
    const auto user = ParseNumber<DWORD>(ReadFile(id, "loginuid"));
    if (!session || !user || *session == NoLogin || *user == NoLogin)
        return {};
    return {*session, *user};
}

DWORD SessionOf(pid_t id)
{
    constexpr std::string_view name("\0VLT_SESSION=", 13);
    const std::string environment = '\0' + ReadFile(id, "environ");
    if (const std::size_t found = environment.find(name); found != std::string::npos) {
        if (const auto number = ParseNumber<DWORD>(std::string_view(environment).substr(found + name.size())))
            return *number;
    }
    return ReadLogin(id).session;
}

std::vector<pid_t> AllProcesses()
{
    std::vector<pid_t> ids;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc"), closedir);
    while (const dirent* const entry = folder ? readdir(folder.get()) : nullptr) {
        const std::string_view name(entry->d_name);
        const auto id = ParseNumber<pid_t>(name);
        if (id && *id > 0 && std::to_string(*id) == name)
            ids.push_back(*id);
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

} // namespace vlt::posix
