#include "tests/support/Child.h"

#include "tests/support/Bodies.h"
#include "tests/support/Host.h"

#include <chrono>
#include <iterator>
#include <map>

namespace vlt::test
{
namespace
{

// Filled during static initialisation, so it must exist before any namespace-scope object.
std::map<std::string, ChildFunction>& Bodies()
{
    static std::map<std::string, ChildFunction> s_bodies;
    return s_bodies;
}

std::vector<std::string> BodyArguments(const std::string& body, std::vector<std::string>&& args)
{
    std::vector<std::string> all{kChildSwitch, body, std::to_string(host::ProcessId())};
    all.insert(all.end(), std::make_move_iterator(args.begin()), std::make_move_iterator(args.end()));
    return all;
}

} // namespace

ChildBody::ChildBody(const char* name, ChildFunction function)
{
    Bodies().emplace(name, function);
}

ChildFunction FindChildBody(const std::string& name)
{
    const auto found = Bodies().find(name);
    return found == Bodies().end() ? nullptr : found->second;
}

Child::Child(std::unique_ptr<host::Process> process) : m_process(std::move(process)) {}

Child::Child(const std::string& body, std::vector<std::string> args, const Environment& environment)
    : Child(host::StartProcess(host::ProgramPath(), BodyArguments(body, std::move(args)), environment))
{
}

Child Child::Program(const std::filesystem::path& program, std::vector<std::string> args,
                     const Environment& environment)
{
    return Child(host::StartProcess(program, args, environment));
}

Child::~Child() = default;
Child::Child(Child&&) noexcept = default;

int Child::Wait(unsigned milliseconds)
{
    return m_process->Wait(milliseconds);
}

void Child::Kill()
{
    m_process->Kill();
}

std::string Child::ReadLine(unsigned milliseconds)
{
    using namespace std::chrono;
    const auto deadline = steady_clock::now() + std::chrono::milliseconds(milliseconds);
    std::size_t end;
    while ((end = m_output.find('\n')) == std::string::npos) {
        const auto left = duration_cast<std::chrono::milliseconds>(deadline - steady_clock::now()).count();
        const auto result =
            left > 0 ? m_process->Read(m_output, static_cast<unsigned>(left)) : host::Process::ReadResult::TimeOut;
        if (result == host::Process::ReadResult::TimeOut)
            return {};
        if (result == host::Process::ReadResult::End)
            return std::exchange(m_output, {});
    }
    std::string line = m_output.substr(0, end);
    m_output.erase(0, end + 1);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

bool Child::WriteLine(const std::string& text)
{
    return m_process->Write(text + '\n');
}

void Child::CloseInput()
{
    m_process->CloseInput();
}

unsigned long Child::Id() const
{
    return m_process->Id();
}

} // namespace vlt::test
