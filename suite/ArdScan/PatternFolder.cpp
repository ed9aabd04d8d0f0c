#include "suite/ArdScan/PatternFolder.h"

#include "engine/ArdScanAbi.h"

#include <algorithm>
#include <fstream>
#include <tuple>

namespace vlt::scan
{
namespace
{

namespace fs = std::filesystem;

struct Candidate {
    fs::path path;
    std::string name;
    std::uint32_t version = 0; // 0 when not even the header can be read
    bool usable = false;
};

std::vector<std::uint8_t> ReadBytes(const fs::path& path, std::size_t limit)
{
    std::vector<std::uint8_t> bytes;
    std::error_code error;
    if (!fs::is_regular_file(path, error))
        return bytes;
    const auto size = fs::file_size(path, error);
    if (error || size > MaxPatternFileSize)
        return bytes;
    bytes.resize(std::min<std::size_t>(static_cast<std::size_t>(size), limit));
    std::ifstream stream(path, std::ios::binary);
    if (!stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())))
        bytes.clear();
    return bytes;
}

char Lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

// The name in lower case when it is the stem, a dot and three digits; names of other code pages are not.
std::string PatternName(const fs::path& path, std::string_view stem)
{
    const fs::path last = path.filename();
    std::string name;
    for (const auto unit : last.native()) {
        if (unit < 0x20 || unit > 0x7E)
            return {};
        name += Lower(static_cast<char>(unit));
    }
    const bool fits = name.size() == stem.size() + 4 && name.starts_with(stem) && name[stem.size()] == '.' &&
                      std::all_of(name.end() - 3, name.end(), [](char c) { return c >= '0' && c <= '9'; });
    return fits ? name : std::string();
}

// Newest first.
std::vector<Candidate> FindCandidates(const fs::path& folder, std::string_view stem, PatternKind kind)
{
    std::vector<Candidate> found;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        Candidate candidate{it->path(), PatternName(it->path(), stem)};
        if (candidate.name.empty())
            continue;
        if (const auto header = ReadPatternHeader(ReadBytes(candidate.path, PatternHeaderSize))) {
            candidate.version = header->version;
            candidate.usable = header->kind == kind;
        }
        found.push_back(std::move(candidate));
    }
    std::sort(found.begin(), found.end(), [](const Candidate& a, const Candidate& b) {
        return std::tie(a.version, a.name) > std::tie(b.version, b.name);
    });
    return found;
}

} // namespace

LoadedPattern LoadNewest(const fs::path& folder, std::string_view stem, PatternKind kind)
{
    LoadedPattern result;
    for (const Candidate& candidate : FindCandidates(folder, stem, kind)) {
        if (candidate.usable && !result.file) {
            if (auto file = ReadPatternFile(ReadBytes(candidate.path, MaxPatternFileSize))) {
                result.file = std::make_shared<const PatternFile>(std::move(*file));
                continue;
            }
        }
        // Also a file whose header is unreadable counts: nobody knows how new it was.
        if (!result.file || !candidate.usable)
            result.broken = true;
    }
    return result;
}

std::uint32_t NewestVersion(const fs::path& folder, std::string_view stem, PatternKind kind)
{
    for (const Candidate& candidate : FindCandidates(folder, stem, kind))
        if (candidate.usable)
            return candidate.version;
    return 0;
}

LoadedSet LoadSet(const fs::path& folder, std::uint32_t kinds, const CPatternSet* current)
{
    PatternFiles files = current ? current->Files() : PatternFiles();
    LoadedSet result;
    const auto load = [&](std::shared_ptr<const PatternFile>& file, std::string_view stem, PatternKind kind) {
        LoadedPattern loaded = LoadNewest(folder, stem, kind);
        file = std::move(loaded.file);
        result.broken = result.broken || loaded.broken;
    };
    if (kinds & AS_RELOAD_VIRUS)
        load(files.virus, VirusStem, PatternKind::Virus);
    if (kinds & AS_RELOAD_SPYWARE)
        load(files.spyware, SpywareStem, PatternKind::Spyware);
    if (kinds == AS_RELOAD_ALL)
        load(files.packer, PackerStem, PatternKind::Packer);
    if (files.virus)
        result.set = std::make_shared<const CPatternSet>(std::move(files), current ? current->Generation() + 1 : 0);
    return result;
}

} // namespace vlt::scan
