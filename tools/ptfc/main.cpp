// ptfc INPUT OUTPUT: compiles signatures in text form to a pattern file.
#include "tools/ptfc/SignatureText.h"

#include <cstdio>
#include <fstream>
#include <iterator>

int main(int argc, char** argv)
{
    using namespace vlt::scan;
    if (argc != 3) {
        std::fputs("usage: ptfc SIGNATURES.sig PATTERN-FILE\n", stderr);
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
    const auto bytes = WritePatternFile(*file);
    std::ofstream output(argv[2], std::ios::binary);
    if (!bytes ||
        !output.write(reinterpret_cast<const char*>(bytes->data()), static_cast<std::streamsize>(bytes->size()))
             .flush()) {
        std::fprintf(stderr, "%s: cannot be written\n", argv[2]);
        return 1;
    }
    std::printf("%s: version %u, %zu patterns, %zu hashes\n", argv[2], file->version, file->patterns.size(),
                file->hashes.size());
    return 0;
}
