// Folders for tests, named for both worlds: as the product sees them and as the host does.
#pragma once

#include "platform/win32.h"

#include <filesystem>
#include <string_view>

namespace vlt::test
{

// A new empty folder, removed with its contents at the end. It is on drive C:.
class TempFolder
{
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    // "C:\...\name" without a trailing backslash; with a name (UTF-8), the path of that entry.
    WString PathW(std::string_view name = {}) const;
    std::filesystem::path HostPath(std::string_view name = {}) const;

private:
    std::filesystem::path m_host;
    WString m_path;
};

// The folder of the running test program, and the one with the built product.
std::filesystem::path ProgramFolder();
std::filesystem::path ProductFolder();

// Makes or replaces a file with these bytes; reads all bytes of one ("" when it cannot be opened).
void WriteBytes(const std::filesystem::path& file, std::string_view bytes);
std::string ReadBytes(const std::filesystem::path& file);

} // namespace vlt::test
