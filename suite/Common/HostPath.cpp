#include "suite/Common/HostPath.h"

namespace vlt::scan
{
WString FoldPath(WStringView path)
{
    WString folded;
    folded.reserve(path.size());
    for (const WCHAR unit : path) {
        const WCHAR c = unit == '/' ? WCHAR('\\') : FoldUnit(unit);
        if (c == '\\' && folded.size() > 1 && folded.back() == '\\')
            continue; // two in front are a network path
        folded += c;
    }
    while (!folded.empty() && folded.back() == '\\')
        folded.pop_back();
    return folded;
}

} // namespace vlt::scan
