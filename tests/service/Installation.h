// An installed service of a test's own: a program folder with the real executable and recording
// counterparts, the registry values of an installation and a registration with the service manager.
#pragma once

#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace vlt::test
{

// One JSON object as texts: strings as they are, everything else as JSON.
struct Record {
    std::vector<std::pair<std::string, std::string>> members;

    // Throws std::out_of_range for a member that is not there.
    const std::string& operator[](std::string_view name) const;

    // For a transcript.
    std::string Line() const;
};

// One object for each line that is one.
std::vector<Record> ParseLines(const std::string& text);

// What lies beside the service program: variants of the recording libraries, empty for none.
struct Layout {
    const char* scan = "full/ArdScan.dll";
    const char* trace = "full/vldbg64.dll";
    const char* command = "full/ArdCmdCom.exe";
    const char* pattern = "full/Ksapi64.dll";
};

// On Windows there is one machine for all tests: what an earlier one left is removed first.
class Installation
{
public:
    explicit Installation(const Layout& layout = {});
    ~Installation();
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;

    // The program folder, ending in a backslash; the same for the host, and files in it.
    const WString& Folder() const { return m_folderW; }
    std::string FolderText() const;
    std::filesystem::path File(std::string_view name) const { return m_folder.HostPath(name); }
    std::filesystem::path Program() const;

    // A program of the build by its name in lower case, without an extension.
    static std::filesystem::path Built(const char* stem);

    // Values of the on-access key (or another one), 32-bit view.
    void Set(const char* name, DWORD number);
    void Set(const char* name, const std::string& text, DWORD type = REG_SZ);
    void SetBytes(const WCHAR* key, const char* name, DWORD type, std::string_view bytes);
    void SetException(const std::string& name, const std::string& path);

    // Deletes the registration, for tests of the program's own.
    void Unregister();

    // An instruction to a recording counterpart, and an entry of ardentis.ini as it stands.
    void Instruct(const char* section, const char* key, const std::string& value);
    std::string Ini(const char* section, const char* key) const;

    [[nodiscard]] testing::AssertionResult Start();
    // Sends a control code; false with the last error set when it is refused.
    bool Control(DWORD code);
    SERVICE_STATUS_PROCESS Status() const;
    [[nodiscard]] testing::AssertionResult Reaches(DWORD state) const;
    // Starts, waits until it runs, stops, waits until it has stopped.
    [[nodiscard]] testing::AssertionResult Live();

    // What was recorded, and its calls of one name.
    std::vector<Record> Recorded() const;
    std::vector<Record> Calls(std::string_view name) const;

    // One line for each record, in order: "40 .\file.cpp text" for a trace line, "Name argument=value"
    // for a call, "run arguments" for the command program. Empty `from` takes all.
    std::vector<std::string> Transcript(std::string_view from = {}) const;

    // Every status report of the service since the installation, as "state checkpoint hint accepted
    // exit", in order. Only where the platform can tell: see HasStatusReports.
    std::vector<std::string> StatusReports() const;
    static bool HasStatusReports();

private:
    TempFolder m_folder;
    WString m_folderW;
    ServiceHandle m_service;
    KernelHandle m_process; // of the last start
};

// The bytes of a registry value of the machine, and its type; the type is REG_NONE when there is none.
struct Value {
    DWORD type = REG_NONE;
    std::string bytes;
    std::string Text() const; // as UTF-8, cut at the first NUL
};
Value ReadValue(const WCHAR* key, const char* name, REGSAM view = KEY_WOW64_32KEY);

constexpr const WCHAR* kProductKey = TEXT("Software\\Veltrano\\Ardentis");
constexpr const WCHAR* kScanKey = TEXT("Software\\Veltrano\\Ardentis\\15\\RealTimeScan");
constexpr const WCHAR* kExceptionKey = TEXT("Software\\Veltrano\\Ardentis\\15\\Exception");
constexpr const WCHAR* kEventSourceKey =
    TEXT("SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Veltrano Realtime Service");

// Compares line by line; in an expected line * stands for any text. Prints both when they differ.
testing::AssertionResult Matches(const std::vector<std::string>& actual, const std::vector<std::string>& expected);

// The actual lines hold the expected ones in this order, others between them.
testing::AssertionResult Holds(const std::vector<std::string>& actual, const std::vector<std::string>& expected);

// The entries of the machine's event log, oldest first; empty on Windows, which keeps them elsewhere.
std::vector<Record> EventLog();

} // namespace vlt::test
