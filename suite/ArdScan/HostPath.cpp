#include "suite/ArdScan/HostPath.h"

namespace vlt::scan
{
namespace
{

// Enough for the names of programs and folders that are told apart: ASCII, Latin, Greek and Cyrillic.
WCHAR Fold(WCHAR unit)
{
    if ((unit >= u'A' && unit <= u'Z') || (unit >= 0xC0 && unit <= 0xDE && unit != 0xD7) ||
        (unit >= 0x391 && unit <= 0x3A9) || (unit >= 0x410 && unit <= 0x42F))
        return static_cast<WCHAR>(unit + 32);
    if (unit >= 0x400 && unit <= 0x40F)
        return static_cast<WCHAR>(unit + 80);
    return unit;
}

} // namespace

WString FoldPath(WStringView path)
{
    WString folded;
    folded.reserve(path.size());
    for (const WCHAR unit : path) {
        const WCHAR c = unit == '/' ? WCHAR('\\') : Fold(unit);
        if (c == '\\' && folded.size() > 1 && folded.back() == '\\')
            continue; // two in front are a network path
        folded += c;
    }
    while (!folded.empty() && folded.back() == '\\')
        folded.pop_back();
    return folded;
}

} // namespace vlt::scan
