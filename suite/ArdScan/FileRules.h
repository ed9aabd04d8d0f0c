// Which files are scanned, by their names. Shared with the tools that explain it.
#pragma once

#include "platform/win32.h"

#include <vector>

namespace vlt::scan
{

// The extension list of a configuration: "*" is every file, else extensions after dots, semicolons,
// commas or blanks; quotes and a leading "{*" of the displayed default list are passed over.
class CExtensionList
{
public:
    CExtensionList() = default;
    explicit CExtensionList(WStringView list);

    bool All() const { return m_all; }
    // Of a file name or path.
    bool Contains(WStringView path) const;

private:
    bool m_all = false;
    std::vector<WString> m_extensions; // folded, without the dot, sorted
};

// What ASGetEngineDefaultExtListW gives.
WStringView DefaultExtensions();

// Files and folders that are not scanned. A folder stands for everything below it.
class CExceptionList
{
public:
    void AddFile(WStringView path);
    void AddFolder(WStringView path);
    void ClearFiles() { m_files.clear(); }
    void ClearFolders() { m_folders.clear(); }
    bool Empty() const { return m_files.empty() && m_folders.empty(); }
    bool Contains(WStringView path) const;

private:
    std::vector<WString> m_files;   // folded
    std::vector<WString> m_folders; // folded, with a backslash at the end
};

} // namespace vlt::scan
