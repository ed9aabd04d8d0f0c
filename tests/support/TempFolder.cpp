#include "tests/support/TempFolder.h"

#include "tests/support/Host.h"

#include <atomic>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace vlt::test
{

namespace fs = std::filesystem;

TempFolder::TempFolder()
{
    static std::atomic<unsigned> s_next{0};
    fs::create_directories(host::TempBase());
    std::string name;
    do {
        name = std::to_string(host::ProcessId()) + "-" + std::to_string(s_next++);
        m_host = host::TempBase() / name;
    } while (!fs::create_directory(m_host));
    m_path = host::TempBaseW() + WString(1, TEXT('\\')) + WString(name.begin(), name.end());
}

TempFolder::~TempFolder()
{
    std::error_code ignored;
    fs::remove_all(m_host, ignored);
}

WString TempFolder::PathW(std::string_view name) const
{
    if (name.empty())
        return m_path;
    WString path = m_path;
    path += TEXT('\\');
    for (const char16_t c : fs::path(std::u8string(name.begin(), name.end())).u16string())
        path += c == u'/' ? TEXT('\\') : static_cast<WCHAR>(c);
    return path;
}

fs::path TempFolder::HostPath(std::string_view name) const
{
    return name.empty() ? m_host : m_host / fs::path(std::u8string(name.begin(), name.end()));
}

fs::path ProgramFolder()
{
    return host::ProgramPath().parent_path();
}

fs::path ProductFolder()
{
    fs::path folder = ProgramFolder(); // tests/bin, or below it
    while (folder.filename() != "tests" && folder.has_relative_path())
        folder = folder.parent_path();
    return folder.parent_path() / "bin";
}

void WriteBytes(const fs::path& file, std::string_view bytes)
{
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out)
        throw std::runtime_error("cannot write " + file.string());
}

std::string ReadBytes(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

} // namespace vlt::test
