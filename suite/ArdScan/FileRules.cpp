#include "suite/ArdScan/FileRules.h"

#include "suite/Common/EngineFacts.h"
#include "suite/Common/HostPath.h"

#include <algorithm>

namespace vlt::scan
{
namespace
{

bool IsSeparator(WCHAR unit)
{
    return unit == '.' || unit == ';' || unit == ',' || unit == ' ' || unit == '"' || unit == '\t';
}

WStringView ExtensionOf(WStringView path)
{
    const auto name = path.find_last_of(TEXT("\\/"));
    if (name != WStringView::npos)
        path.remove_prefix(name + 1);
    const auto dot = path.find_last_of(WCHAR('.'));
    return dot == WStringView::npos ? WStringView() : path.substr(dot + 1);
}

} // namespace

WStringView DefaultExtensions()
{
    static const WString list(std::begin(DefaultExtensionList), std::end(DefaultExtensionList) - 1);
    return list;
}

CExtensionList::CExtensionList(WStringView list)
{
    for (std::size_t i = 0; i < list.size();) {
        if (IsSeparator(list[i])) {
            ++i;
            continue;
        }
        const std::size_t begin = i;
        while (i < list.size() && !IsSeparator(list[i]))
            ++i;
        const WStringView token = list.substr(begin, i - begin);
        if (token == TEXT("*"))
            m_all = true;
        else if (token != TEXT("{*") && token != TEXT("{*}"))
            m_extensions.push_back(FoldPath(token));
    }
    std::sort(m_extensions.begin(), m_extensions.end());
}

bool CExtensionList::Contains(WStringView path) const
{
    return m_all || (!m_extensions.empty() &&
                     std::binary_search(m_extensions.begin(), m_extensions.end(), FoldPath(ExtensionOf(path))));
}

void CExceptionList::AddFile(WStringView path)
{
    if (WString folded = FoldPath(path); !folded.empty())
        m_files.push_back(std::move(folded));
}

void CExceptionList::AddFolder(WStringView path)
{
    if (WString folded = FoldPath(path); !folded.empty())
        m_folders.push_back(folded + WCHAR('\\'));
}

bool CExceptionList::Contains(WStringView path) const
{
    if (Empty())
        return false;
    const WString folded = FoldPath(path);
    return std::find(m_files.begin(), m_files.end(), folded) != m_files.end() ||
           std::any_of(m_folders.begin(), m_folders.end(),
                       [&](const WString& folder) { return folded.starts_with(folder); });
}

} // namespace vlt::scan
