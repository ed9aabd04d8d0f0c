// Texts as execve takes them.
#pragma once

#include <string>
#include <vector>

namespace vlt::posix
{

// Valid as long as the texts are there and unchanged; the last one is null.
inline std::vector<char*> Pointers(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace vlt::posix
