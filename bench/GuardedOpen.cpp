// open and close of a clean 4 KB file that the service guards: the first time, when it is scanned,
// and again, when the verdict is known.
#include "bench/Measure.h"
#include "bench/Responder.h"
#include "bench/ServiceFixture.h"

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace
{

constexpr std::size_t FilesEachRound = 200;
constexpr std::size_t Rounds = 21;

struct Folder {
    fs::path path;
    std::vector<std::string> files;
    std::size_t next = 0;
};

Folder MakeFolder(const fs::path& parent, const char* name)
{
    Folder folder{parent / name, {}, 0};
    fs::create_directory(folder.path);
    for (std::size_t i = 0; i < FilesEachRound * Rounds; ++i) {
        folder.files.push_back((folder.path / std::to_string(i)).string());
        // Each file is one of its own, as hashes and caches see it.
        std::ofstream(folder.files.back()) << std::string(4090, static_cast<char>('a' + i % 26)) << i;
    }
    return folder;
}

void OpenAndClose(const std::string& path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        std::abort();
    close(file);
}

bench::Case FirstOpens(const char* name, Folder& folder)
{
    return {name, [&folder](std::size_t count) {
                for (std::size_t i = 0; i < count; ++i)
                    OpenAndClose(folder.files.at(folder.next++));
            }};
}

bench::Case RepeatedOpens(const char* name, const Folder& folder)
{
    return {name, [&folder](std::size_t count) {
                for (std::size_t i = 0; i < count; ++i)
                    OpenAndClose(folder.files[i % 16]);
            }};
}

} // namespace

int main()
{
    const fs::path parent = bench::PrivateTmpfs();
    Folder guarded = MakeFolder(parent, "guarded");
    Folder hashed = MakeFolder(parent, "hashed");
    Folder answered = MakeFolder(parent, "answered");
    Folder ignored = MakeFolder(parent, "ignored");
    Folder free = MakeFolder(parent, "free");
    bench::ServiceFixture service(guarded.path);
    service.Start();
    {
        const bench::Responder hash(hashed.path, bench::Responder::Work::Hash);
        const bench::Responder ignore(ignored.path, bench::Responder::Work::Ignore);
        const bench::Responder nothing(answered.path, bench::Responder::Work::Nothing);
        bench::Title("open + close of a clean 4 KB file");
        bench::Compare({FirstOpens("first, guarded by the service", guarded),
                        FirstOpens("responder that reads and hashes", hashed),
                        FirstOpens("responder that does nothing", answered), FirstOpens("no guard", free)},
                       {1.3}, {.operations = FilesEachRound, .rounds = Rounds});
        bench::Compare({RepeatedOpens("repeated, guarded by the service", guarded), RepeatedOpens("no guard", free),
                        RepeatedOpens("bare kernel mark that is ignored", ignored),
                        RepeatedOpens("responder that does nothing", answered)},
                       {1.1}, {.operations = 2000, .rounds = Rounds});
    }
    bench::Title("Service");
    bench::Compare({{"start to running", [&](std::size_t) { service.Start(); }, [&] { service.Stop(); }},
                    {"start and end of a bare process",
                     [](std::size_t) {
                         if (std::system("exec true") != 0)
                             std::abort();
                     }}},
                   {}, {.operations = 1, .rounds = 11});
}
