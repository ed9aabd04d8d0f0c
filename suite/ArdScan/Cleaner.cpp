#include "suite/ArdScan/Cleaner.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace vlt::scan
{
namespace
{

constexpr int MaxRounds = 16; // what is left when a piece is taken out may be a threat anew
constexpr std::size_t MaxPieces = 65536;
constexpr std::size_t BlockSize = 256u << 10;
constexpr int Backups = 10;

struct Piece {
    std::uint64_t begin, end;
};

// What is to be taken out and what overwritten, each in order and without overlaps.
struct Findings {
    std::vector<Piece> removed, blanked;
    bool cleanable = true;

    bool Any() const { return !removed.empty() || !blanked.empty(); }
};

void Merge(std::vector<Piece>& pieces)
{
    std::sort(pieces.begin(), pieces.end(), [](const Piece& a, const Piece& b) { return a.begin < b.begin; });
    std::size_t kept = 0;
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        if (pieces[i].begin <= pieces[kept].end)
            pieces[kept].end = std::max(pieces[kept].end, pieces[i].end);
        else
            pieces[++kept] = pieces[i];
    }
    if (!pieces.empty())
        pieces.resize(kept + 1);
}

// False when the file cannot be read.
template <typename File>
bool Find(File& file, const CPatternSet& patterns, const ScanFilter& filter, CScanner& scanner, Findings& findings)
{
    std::uint64_t offset = 0;
    const auto read = [&](std::span<std::uint8_t> buffer) {
        const std::ptrdiff_t count = file.ReadAt(offset, buffer);
        offset += count > 0 ? static_cast<std::uint64_t>(count) : 0;
        return count;
    };
    const auto found = [&](const Threat& threat, std::uint64_t begin, std::uint64_t length) {
        const std::uint16_t flags = threat.signature->flags;
        auto& pieces = flags & SignatureBlanked ? findings.blanked : findings.removed;
        if ((flags & SignatureCleanable) == 0 || pieces.size() >= MaxPieces)
            findings.cleanable = false;
        else
            pieces.push_back({begin, begin + length});
        return !findings.cleanable;
    };
    if (scanner.FindAll(patterns, filter, file.Size(), read, found) == ScanOutcome::Failed)
        return false;
    Merge(findings.removed);
    Merge(findings.blanked);
    return true;
}

// Calls use(piece's begin, end) for the parts of [begin, end) that are in a piece, or between them.
template <typename Use>
bool ForParts(const std::vector<Piece>& pieces, std::uint64_t begin, std::uint64_t end, bool within, Use&& use)
{
    auto piece = std::lower_bound(pieces.begin(), pieces.end(), begin,
                                  [](const Piece& each, std::uint64_t at) { return each.end <= at; });
    for (; begin < end; ++piece) {
        const std::uint64_t from = piece == pieces.end() ? end : std::clamp(piece->begin, begin, end);
        const std::uint64_t to = piece == pieces.end() ? end : std::min(piece->end, end);
        if (!within && begin < from && !use(begin, from))
            return false;
        if (within && from < to && !use(from, to))
            return false;
        if (piece == pieces.end())
            break;
        begin = std::max(from, to);
    }
    return true;
}

template <typename File>
bool WriteCleaned(File& source, const Findings& findings, CNewFile& target)
{
    std::vector<std::uint8_t> block(BlockSize);
    for (std::uint64_t offset = 0;;) {
        const std::ptrdiff_t count = source.ReadAt(offset, block);
        if (count <= 0)
            return count == 0;
        const std::uint64_t end = offset + static_cast<std::uint64_t>(count);
        const auto part = [&](std::uint64_t from, std::uint64_t to) {
            return std::span(block).subspan(static_cast<std::size_t>(from - offset),
                                            static_cast<std::size_t>(to - from));
        };
        ForParts(findings.blanked, offset, end, true, [&](std::uint64_t from, std::uint64_t to) {
            std::ranges::fill(part(from, to), std::uint8_t{0});
            return true;
        });
        if (!ForParts(findings.removed, offset, end, false,
                      [&](std::uint64_t from, std::uint64_t to) { return target.Append(part(from, to)); }))
            return false;
        offset = end;
    }
}

// The path of the backup; nothing when there is none, which is a failure when one is wanted.
HostPath WriteBackup(CHostFile& file, const HostPath& path, const BackupSettings& settings)
{
    const HostPath folder = ToHost(settings.folder);
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    for (int n = 0; n < Backups; ++n) {
        HostPath target = folder / path.filename();
        target += ".RB" + std::to_string(n);
        const auto taken = [&] { return exists(symlink_status(target, error)); };
        if (taken())
            continue;
        const AsError result = settings.encoded ? EncodeFile(file, ToWindows(path), target, IfThere::Refuse)
                                                : CopyFileTo(file, target, IfThere::Refuse);
        if (result == AS_OK)
            return target;
        if (!taken())
            break;
    }
    return {};
}

AsError CommitCleaned(CNewFile& cleaned, CHostFile& file, const HostPath& path, const BackupSettings& backup)
{
    using namespace std::chrono;
    auto facts = file.Facts();
    if (!facts || !file.IsUnchanged())
        return AS_E_FILE;
    const auto now = duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
    facts->modified = {now / 1'000'000'000, static_cast<std::uint32_t>(now % 1'000'000'000)};
    if (!cleaned.Give(*facts, true))
        return AS_E_FILE;
    HostPath copy;
    if (backup.wanted && (copy = WriteBackup(file, path, backup)).empty())
        return AS_E_FILE;
    if (cleaned.CommitOver(file))
        return AS_OK;
    std::error_code error;
    if (!copy.empty())
        std::filesystem::remove(copy, error);
    return AS_E_FILE;
}

} // namespace

bool IsCleanable(CHostFile& file, const CPatternSet& patterns, const ScanFilter& filter, CScanner& scanner)
{
    Findings findings;
    return Find(file, patterns, filter, scanner, findings) && findings.cleanable && findings.Any();
}

AsError CleanFile(CHostFile& file, const HostPath& path, const CPatternSet& patterns, const ScanFilter& filter,
                  CScanner& scanner, const BackupSettings& backup)
{
    Findings findings;
    if (!Find(file, patterns, filter, scanner, findings))
        return AS_E_FILE;
    if (!findings.cleanable || !findings.Any())
        return AS_E_STATE;
    std::unique_ptr<CNewFile> before;
    for (int round = 0; round < MaxRounds; ++round) {
        auto cleaned = std::make_unique<CNewFile>();
        if (!cleaned->Create(path))
            return AS_E_FILE;
        if (before ? !WriteCleaned(*before, findings, *cleaned) : !WriteCleaned(file, findings, *cleaned))
            return AS_E_FILE;
        before = std::move(cleaned);
        findings = {};
        if (!Find(*before, patterns, filter, scanner, findings))
            return AS_E_FILE;
        if (!findings.cleanable)
            return AS_E_STATE;
        if (!findings.Any())
            return CommitCleaned(*before, file, path, backup);
    }
    return AS_E_STATE;
}

} // namespace vlt::scan
