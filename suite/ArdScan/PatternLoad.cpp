#include "suite/ArdScan/PatternLoad.h"

#include "engine/ArdScanAbi.h"
#include "suite/Common/PatternFolder.h"

namespace vlt::scan
{

LoadedSet LoadSet(const std::filesystem::path& folder, std::uint32_t kinds, const CPatternSet* current)
{
    PatternFiles files = current ? current->Files() : PatternFiles();
    LoadedSet result;
    const auto load = [&](std::shared_ptr<const PatternFile>& file, std::uint32_t bit, std::string_view stem,
                          PatternKind kind) {
        if (!(kinds & bit))
            return;
        LoadedPattern loaded = LoadNewest(folder, stem, kind);
        const bool missed = !loaded.file && (file || kinds == bit);
        result.broken = result.broken || loaded.broken || missed;
        file = std::move(loaded.file);
    };
    load(files.virus, AS_RELOAD_VIRUS, VirusStem, PatternKind::Virus);
    load(files.spyware, AS_RELOAD_SPYWARE, SpywareStem, PatternKind::Spyware);
    load(files.packer, AS_RELOAD_PACKER, PackerStem, PatternKind::Packer);
    if (files.virus)
        result.set = std::make_shared<const CPatternSet>(std::move(files), current ? current->Generation() + 1 : 0);
    return result;
}

} // namespace vlt::scan
