#include "bench/ServiceFixture.h"

#include "platform/Text.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <thread>

namespace fs = std::filesystem;

namespace bench
{
namespace
{

constexpr WCHAR Name[] = TEXT("Vlntsrv");

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "%s failed (error %u)\n", what, static_cast<unsigned>(GetLastError()));
    std::exit(2);
}

void LayOut(const fs::path& program, const fs::path& guarded, const char* scanLibrary)
{
    const fs::path built = fs::read_symlink("/proc/self/exe").parent_path();
    fs::remove_all(program); // of an earlier fixture, with its patterns
    fs::create_directories(program);
    for (const auto& entry : fs::directory_iterator(built)) {
        const std::string name = entry.path().filename().string();
        if (name == "vlntsrv" || name == "libvlplatform.so" || name.starts_with("ptf$"))
            fs::copy_file(entry.path(), program / name, fs::copy_options::overwrite_existing);
    }
    fs::copy_file(built / scanLibrary, program / "ArdScan.dll", fs::copy_options::overwrite_existing);
    std::ofstream(program / "ArdScan.ini") << "[Guard]\r\nFolder0=" << guarded.string() << "\r\n";
}

} // namespace

ServiceFixture::ServiceFixture(const fs::path& folder, const char* scanLibrary)
{
    const char* const root = std::getenv("VLT_ROOT");
    if (!root)
        Fail("VLT_ROOT");
    LayOut(fs::path(root) / "drives/c/Veltrano", folder, scanLibrary);
    const vlt::ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE));
    m_service.Reset(CreateServiceW(manager.Get(), Name, TEXT("Veltrano Realtime Service"), SERVICE_ALL_ACCESS,
                                   SERVICE_WIN32_OWN_PROCESS | SERVICE_INTERACTIVE_PROCESS, SERVICE_AUTO_START,
                                   SERVICE_ERROR_NORMAL, TEXT("C:\\Veltrano\\vlntsrv"), nullptr, nullptr, nullptr,
                                   nullptr, nullptr));
    if (!m_service)
        Fail("CreateServiceW");
}

ServiceFixture::~ServiceFixture()
{
    SERVICE_STATUS status{};
    if (ControlService(m_service.Get(), SERVICE_CONTROL_STOP, &status))
        WaitFor(SERVICE_STOPPED);
    DeleteService(m_service.Get());
}

void ServiceFixture::Start()
{
    if (!StartServiceW(m_service.Get(), 0, nullptr))
        Fail("StartServiceW");
    WaitFor(SERVICE_RUNNING);
}

void ServiceFixture::Stop()
{
    SERVICE_STATUS status{};
    if (!ControlService(m_service.Get(), SERVICE_CONTROL_STOP, &status))
        Fail("ControlService");
    WaitFor(SERVICE_STOPPED);
}

DWORD ServiceFixture::ProcessId() const
{
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    if (!QueryServiceStatusEx(m_service.Get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status), sizeof status,
                              &needed))
        Fail("QueryServiceStatusEx");
    return status.dwProcessId;
}

void ServiceFixture::WaitFor(DWORD state)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    do {
        if (!QueryServiceStatusEx(m_service.Get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<LPBYTE>(&status),
                                  sizeof status, &needed))
            Fail("QueryServiceStatusEx");
        if (status.dwCurrentState == state)
            return;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    } while (std::chrono::steady_clock::now() < deadline);
    Fail("waiting for the service's state");
}

fs::path PrivateTmpfs()
{
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        std::fprintf(stderr, "guarding a folder needs root\n");
        std::exit(77);
    }
    std::string pattern = "/tmp/vlt-bench-XXXXXX";
    if (!mkdtemp(pattern.data()) || mount("tmpfs", pattern.c_str(), "tmpfs", 0, nullptr) != 0)
        std::exit(2);
    return pattern;
}

} // namespace bench
