#include "suite/Common/PatternFolder.h"

#include <algorithm>
#include <fstream>
#include <tuple>

namespace vlt::scan
{
namespace
{

namespace fs = std::filesystem;

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

std::string Lowered(std::string_view text)
{
    std::string lowered(text);
    std::transform(lowered.begin(), lowered.end(), lowered.begin(), Lower);
    return lowered;
}

// The name in lower case when it is the stem, a dot and three digits; names of other code pages are not.
std::string PatternName(const fs::path& path, std::string_view stem)
{
    const fs::path last = path.filename();
    const std::string start = Lowered(stem);
    std::string name;
    for (const auto unit : last.native()) {
        if (unit < 0x20 || unit > 0x7E)
            return {};
        name += Lower(static_cast<char>(unit));
    }
    const bool fits = name.size() == start.size() + 4 && name.starts_with(start) && name[start.size()] == '.' &&
                      std::all_of(name.end() - 3, name.end(), [](char c) { return c >= '0' && c <= '9'; });
    return fits ? name : std::string();
}

} // namespace

std::optional<PatternKind> KindOfStem(std::string_view stem)
{
    constexpr std::pair<std::string_view, PatternKind> Stems[] = {{VirusStem, PatternKind::Virus},
                                                                  {SpywareStem, PatternKind::Spyware},
                                                                  {PackerStem, PatternKind::Packer},
                                                                  {WhiteListStem, PatternKind::WhiteList},
                                                                  {BlackListStem, PatternKind::BlackList}};
    const std::string wanted = Lowered(stem);
    for (const auto& [name, kind] : Stems)
        if (name == wanted)
            return kind;
    return std::nullopt;
}

std::vector<PatternEntry> ListPatterns(const fs::path& folder, std::string_view stem, PatternKind kind)
{
    std::vector<PatternEntry> found;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        PatternEntry entry{it->path(), PatternName(it->path(), stem)};
        if (entry.name.empty())
            continue;
        if (const auto header = ReadPatternHeader(ReadBytes(entry.path, PatternHeaderSize))) {
            entry.version = header->version;
            entry.intact = header->kind == kind;
        }
        found.push_back(std::move(entry));
    }
    std::sort(found.begin(), found.end(), [](const PatternEntry& a, const PatternEntry& b) {
        return std::tie(a.version, a.name) > std::tie(b.version, b.name);
    });
    return found;
}

std::optional<PatternFile> LoadPattern(const fs::path& file)
{
    return ReadPatternFile(ReadBytes(file, MaxPatternFileSize));
}

LoadedPattern LoadNewest(const fs::path& folder, std::string_view stem, PatternKind kind)
{
    LoadedPattern result;
    for (const PatternEntry& entry : ListPatterns(folder, stem, kind)) {
        if (entry.intact && !result.file) {
            if (auto file = LoadPattern(entry.path)) {
                result.file = std::make_shared<const PatternFile>(std::move(*file));
                result.name = entry.name;
                continue;
            }
        }
        // Also a file whose header is unreadable counts: nobody knows how new it was.
        if (!result.file || !entry.intact)
            result.broken = true;
    }
    return result;
}

std::uint32_t NewestVersion(const fs::path& folder, std::string_view stem, PatternKind kind)
{
    for (const PatternEntry& entry : ListPatterns(folder, stem, kind))
        if (entry.intact)
            return entry.version;
    return 0;
}

} // namespace vlt::scan
