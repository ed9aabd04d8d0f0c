#include "platform/posix/file/Wildcard.h"

#include "platform/posix/core/Utf.h"

#include <vector>

namespace vlt::posix
{
namespace
{

// No name can hold these, since they are not valid in one.
constexpr char16_t kStar = u'*';
constexpr char16_t kDosStar = u'<';     // any run up to the last dot of the name
constexpr char16_t kDosQuestion = u'>'; // one character; nothing before a dot or at the end
constexpr char16_t kDosDot = u'"';      // a dot, or nothing at the end

} // namespace

std::u16string CompilePattern(std::u16string_view pattern)
{
    if (pattern == u"*.*")
        pattern = u"*";
    std::u16string compiled = FoldCase(pattern);
    for (std::size_t i = 0; i < compiled.size(); ++i) {
        const bool last = i + 1 == compiled.size();
        if (compiled[i] == u'?') {
            compiled[i] = kDosQuestion;
        } else if (compiled[i] == u'.') {
            if (!last && (compiled[i + 1] == u'?' || compiled[i + 1] == kStar))
                compiled[i] = kDosDot;
            else if (last && i > 0 && compiled[i - 1] == kStar) {
                compiled[i - 1] = kDosStar;
                compiled[i] = kDosDot;
            }
        }
    }
    return compiled;
}

bool MatchesPattern(std::u16string_view compiled, std::u16string_view name)
{
    const std::size_t lastDot = name.rfind(u'.');
    // reach[p]: the first p characters of the pattern match what has been read of the name.
    std::vector<bool> reach(compiled.size() + 1);
    const auto skipEmpty = [&](std::size_t at) {
        const bool end = at == name.size();
        const bool beforeDot = !end && name[at] == u'.';
        for (std::size_t p = 0; p < compiled.size(); ++p) {
            const char16_t c = compiled[p];
            if (reach[p] &&
                (c == kStar || c == kDosStar || (c == kDosQuestion && (end || beforeDot)) || (c == kDosDot && end)))
                reach[p + 1] = true;
        }
    };
    reach[0] = true;
    skipEmpty(0);
    for (std::size_t at = 0; at < name.size(); ++at) {
        std::vector<bool> next(compiled.size() + 1);
        for (std::size_t p = 0; p < compiled.size(); ++p) {
            if (!reach[p])
                continue;
            switch (compiled[p]) {
            case kStar:
                next[p] = true;
                break;
            case kDosStar:
                // Stays within the name's body; the last dot ends it.
                next[p] = next[p] || at != lastDot;
                next[p + 1] = next[p + 1] || at == lastDot;
                break;
            case kDosQuestion:
                next[p + 1] = next[p + 1] || name[at] != u'.';
                break;
            case kDosDot:
                next[p + 1] = next[p + 1] || name[at] == u'.';
                break;
            default:
                next[p + 1] = next[p + 1] || compiled[p] == name[at];
                break;
            }
        }
        reach.swap(next);
        skipEmpty(at + 1);
    }
    return reach[compiled.size()];
}

} // namespace vlt::posix
