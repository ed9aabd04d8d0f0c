// ptfc INPUT OUTPUT: compiles signatures in text form to a pattern file. Of an OUTPUT that ends in a separator the
// file's name follows from the kind and the version: "ptf$qrv.012" for the virus pattern 1200.
#include "suite/Common/PatternFolder.h"
#include "tools/ptfc/SignatureText.h"

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace
{

std::string OutputName(std::string output, const vlt::scan::PatternFile& file)
{
    using namespace vlt::scan;
    constexpr std::string_view Stems[] = {VirusStem, SpywareStem, PackerStem, WhiteListStem, BlackListStem};
    if (!output.ends_with('/') && !output.ends_with('\\'))
        return output;
    char number[8];
    std::snprintf(number, sizeof(number), ".%03u", file.version / 100 % 1000);
    return output.append(Stems[static_cast<std::size_t>(file.kind) - 1]).append(number);
}

} // namespace

int main(int argc, char** argv)
{
    using namespace vlt::scan;
    if (argc != 3) {
        std::fputs("usage: ptfc SIGNATURES.sig PATTERN-FILE|FOLDER/\n", stderr);
        return 2;
    }
    std::ifstream input(argv[1], std::ios::binary);
    if (!input) {
        std::fprintf(stderr, "%s: cannot be read\n", argv[1]);
        return 1;
    }
    const std::string text{std::istreambuf_iterator<char>(input), {}};
    std::string error;
    const auto file = ParseSignatures(text, error);
    if (!file) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.c_str());
        return 1;
    }
    if (file->version == 0 || file->version > INT32_MAX) {
        std::fprintf(stderr, "%s: a version of 1 to %d is needed\n", argv[1], INT32_MAX);
        return 1;
    }
    const std::string name = OutputName(argv[2], *file);
    const auto bytes = WritePatternFile(*file);
    std::ofstream output(name, std::ios::binary);
    if (!bytes ||
        !output.write(reinterpret_cast<const char*>(bytes->data()), static_cast<std::streamsize>(bytes->size()))
             .flush()) {
        std::fprintf(stderr, "%s: cannot be written\n", name.c_str());
        return 1;
    }
    std::printf("%s: version %u, %zu patterns, %zu hashes\n", name.c_str(), file->version, file->patterns.size(),
                file->hashes.size());
    return 0;
}
