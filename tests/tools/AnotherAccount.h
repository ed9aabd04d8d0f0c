// A program as an account without rights.
#pragma once

#include "tests/support/Support.h"

#include <cstdlib>
#include <optional>

namespace vlt::test
{

// Nothing where that is not possible: it takes root, Linux, and a program that the account can reach. Opens the
// machine root for it to look into.
inline std::optional<Child> AsAnotherAccount(const std::filesystem::path& program,
                                             const std::vector<std::string>& arguments)
{
    const char* const root = std::getenv("VLT_ROOT");
    const std::filesystem::path change = "/usr/bin/setpriv";
    std::vector<std::string> line{"--reuid=65534", "--regid=65534", "--clear-groups", "/usr/bin/test", "-x",
                                  program.string()};
    if (!root || !std::filesystem::exists(change) || Child::Program(change, line).Wait(30000) != 0)
        return std::nullopt;
    std::filesystem::permissions(root, std::filesystem::perms(0755));
    line.erase(line.begin() + 3, line.begin() + 5);
    line.insert(line.end(), arguments.begin(), arguments.end());
    return Child::Program(change, line);
}

} // namespace vlt::test
