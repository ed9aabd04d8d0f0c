// The wildcards of file names as Windows matches them.
#pragma once

#include <string>
#include <string_view>

namespace vlt::posix
{

// A pattern ready for MatchesPattern: folded, with the special characters that Windows puts in place
// of '?', of a dot before a wildcard and of a star before a last dot. Hence "*.*" finds every name,
// "*.rb?" finds "x.rb" too, and "x." finds "x".
std::u16string CompilePattern(std::u16string_view pattern);

// The name must be folded. Takes time proportional to the product of the lengths.
bool MatchesPattern(std::u16string_view compiled, std::u16string_view foldedName);

} // namespace vlt::posix
