// The whole chain of a catch as the opener has it: open of an infected file until EPERM, when the
// service has put it in quarantine, beside a responder that reads, hashes and denies.
#include "ARDCommon/RealTimeSettings.h"
#include "bench/Measure.h"
#include "bench/Responder.h"
#include "bench/ServiceFixture.h"
#include "engine/ArdScanAbi.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

void Require(bool fine, const char* what)
{
    if (fine)
        return;
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
}

void Set(const WCHAR* name, DWORD value)
{
    vlt::RegKey key;
    Require(RegCreateKeyExW(HKEY_LOCAL_MACHINE, vlt::kRealTimeScanKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                            KEY_WRITE | KEY_WOW64_32KEY, nullptr, key.Receive(), nullptr) == 0 &&
                RegSetValueExW(key.Get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value) == 0,
            "setting");
}

// Infected files in one folder, each opened once.
struct Folder {
    fs::path path;
    std::size_t number = 0;

    std::string Name() const { return "bad" + std::to_string(number) + ".com"; }

    void Prepare()
    {
        ++number;
        // Written elsewhere and moved in, so that only the opening is looked at. Two pieces: no scanner
        // is to mind this source.
        const fs::path made = path.parent_path() / (path.filename().string() + ".new");
        std::ofstream(made) << R"(X5O!P%@AP[4\PZX54(P^)7CC)7}$)"
                            << "EICAR-STANDARD-ANTIVIRUS-TEST-FILE!$H+H*";
        fs::rename(made, path / Name());
    }
    bench::Body Open()
    {
        return [this](std::size_t) {
            Require(open((path / Name()).c_str(), O_RDONLY | O_CLOEXEC) < 0 && errno == EPERM, "refusal");
        };
    }
};

Folder MakeFolder(const fs::path& root, const char* name)
{
    fs::create_directories(root / name);
    return {root / name};
}

// The last thing that a catch leaves is its record in the ini file.
void AwaitRecord(const fs::path& ini, const std::string& name)
{
    for (std::string text; text.find(name) == std::string::npos; usleep(500)) {
        std::ifstream file(ini);
        text.assign(std::istreambuf_iterator<char>(file), {});
    }
}

} // namespace

int main()
{
    const char* const given = std::getenv("VLT_ROOT");
    if (!given)
        return 2;
    // On the store's file system, as moving there is part of the chain.
    const fs::path root = given;
    Folder guarded = MakeFolder(root, "guarded");
    Folder denied = MakeFolder(root, "denied");
    Set(TEXT("Action"), AS_ACTION_QUARANTINE);
    Set(TEXT("Action2nd"), AS_ACTION_DENY);
    Set(TEXT("InOut"), AS_DIRECTION_OPEN);
    bench::ServiceFixture service(guarded.path);
    service.Start();
    const bench::Responder responder(denied.path, bench::Responder::Work::Deny);
    const fs::path ini = root / "drives/c/Veltrano/ardentis.ini";
    bench::Title("A catch: open of an infected file until it is refused");
    bench::Compare({{"put in quarantine by the service", guarded.Open(), [&] { guarded.Prepare(); },
                     [&] {
                         Require(!fs::exists(guarded.path / guarded.Name()), "quarantine");
                         AwaitRecord(ini, guarded.Name());
                     }},
                    {"responder that hashes and denies", denied.Open(), [&] { denied.Prepare(); }}},
                   {}, {.operations = 1, .rounds = 101});
}
