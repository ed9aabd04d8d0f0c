#include "tests/support/Host.h"

#include "platform/Unique.h"

#include <cstring>
#include <cwchar>
#include <map>
#include <stdexcept>

namespace vlt::test::host
{
namespace
{

constexpr UINT kKilled = 137;

class WindowsProcess : public Process
{
public:
    ~WindowsProcess() override
    {
        Kill();
        if (m_process)
            WaitForSingleObject(m_process.Get(), 60000);
    }

    int Wait(unsigned milliseconds) override
    {
        DWORD code = 0;
        if (WaitForSingleObject(m_process.Get(), milliseconds) != WAIT_OBJECT_0 ||
            !GetExitCodeProcess(m_process.Get(), &code))
            return Child::kStillRunning;
        return static_cast<int>(code);
    }

    void Kill() override
    {
        if (m_process && Wait(0) == Child::kStillRunning)
            TerminateProcess(m_process.Get(), kKilled);
    }

    // An anonymous pipe has no wait with a limit, so it is asked until there is something.
    ReadResult Read(std::string& appendTo, unsigned milliseconds) override
    {
        const ULONGLONG deadline = GetTickCount64() + milliseconds;
        for (;;) {
            DWORD available = 0;
            if (!PeekNamedPipe(m_output.Get(), nullptr, 0, nullptr, &available, nullptr))
                return ReadResult::End;
            char buffer[4096];
            DWORD count = 0;
            if (available != 0) {
                if (!ReadFile(m_output.Get(), buffer, sizeof buffer, &count, nullptr) || count == 0)
                    return ReadResult::End;
                appendTo.append(buffer, count);
                return ReadResult::Data;
            }
            if (GetTickCount64() >= deadline)
                return ReadResult::TimeOut;
            Sleep(1);
        }
    }

    bool Write(const std::string& text) override
    {
        DWORD written = 0;
        return WriteFile(m_input.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
               written == text.size();
    }

    void CloseInput() override { m_input.Reset(); }
    unsigned long Id() const override { return m_id; }

    KernelHandle m_process;
    KernelHandle m_input;
    KernelHandle m_output;
    DWORD m_id = 0;
};

WString Wide(const std::string& utf8)
{
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end())).wstring();
}

// Quotes as the C runtime takes command lines apart: a backslash counts only before a quote.
void AppendArgument(WString& line, const WString& argument)
{
    if (!line.empty())
        line += L' ';
    line += L'"';
    std::size_t slashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'"')
            line.append(slashes + 1, L'\\');
        slashes = c == L'\\' ? slashes + 1 : 0;
        line += c;
    }
    line.append(slashes, L'\\');
    line += L'"';
}

// The double-nul-terminated block that CreateProcessW takes.
WString MergedEnvironment(const Child::Environment& additions)
{
    std::map<WString, WString> variables;
    wchar_t* const block = GetEnvironmentStringsW();
    for (const wchar_t* entry = block; *entry; entry += std::wcslen(entry) + 1) {
        const WString text = entry;
        const std::size_t equals = text.find(L'=', 1); // names of current folders begin with one
        variables[text.substr(0, equals)] = text.substr(equals + 1);
    }
    FreeEnvironmentStringsW(block);
    for (const auto& [name, value] : additions)
        variables[Wide(name)] = Wide(value);
    WString merged;
    for (const auto& [name, value] : variables) {
        merged += name + L"=" + value;
        merged += L'\0';
    }
    merged += L'\0';
    return merged;
}

[[noreturn]] void Fail(const char* what)
{
    throw std::runtime_error(std::string(what) + " failed with error " + std::to_string(GetLastError()));
}

// One end for the child, which inherits it, and one for us.
void MakePipe(KernelHandle& read, KernelHandle& write, bool childReads)
{
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    if (!CreatePipe(read.Receive(), write.Receive(), &inherited, 0) ||
        !SetHandleInformation(childReads ? write.Get() : read.Get(), HANDLE_FLAG_INHERIT, 0))
        Fail("CreatePipe");
}

} // namespace

std::unique_ptr<Process> StartProcess(const std::filesystem::path& program, const std::vector<std::string>& args,
                                      const Child::Environment& environment)
{
    auto process = std::make_unique<WindowsProcess>();
    KernelHandle childIn;
    KernelHandle childOut;
    MakePipe(childIn, process->m_input, true);
    MakePipe(process->m_output, childOut, false);

    WString line;
    AppendArgument(line, program.wstring());
    for (const std::string& argument : args)
        AppendArgument(line, Wide(argument));
    WString merged = MergedEnvironment(environment);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = childIn.Get();
    startup.hStdOutput = childOut.Get();
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_UNICODE_ENVIRONMENT, merged.data(),
                        nullptr, &startup, &started))
        Fail("CreateProcessW");
    CloseHandle(started.hThread);
    process->m_process.Reset(started.hProcess);
    process->m_id = started.dwProcessId;
    return process;
}

} // namespace vlt::test::host
