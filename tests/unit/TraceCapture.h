// What the code under test traces, through a real trace library that records it.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vlt::test
{

// The trace lines written by every thread while `action` runs, in order: "level source: text", the
// source without its folders. Loads the recording library at the first call; from then on the process
// traces.
std::vector<std::string> Traced(const std::function<void()>& action);
// The same as one text, each line with its end. What follows an address, which differs in each run, is
// cut off behind "data = ", and a line like the one before it is left out.
std::string TracedText(const std::function<void()>& action);

} // namespace vlt::test
