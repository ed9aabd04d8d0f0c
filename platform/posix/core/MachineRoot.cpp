#include "platform/posix/core/MachineRoot.h"

#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace vlt::posix
{
namespace
{

std::string ChooseRoot()
{
    std::string root;
    if (const char* given = std::getenv("VLT_ROOT"); given && *given)
        root = given;
    else if (geteuid() == 0)
        root = "/var/lib/veltrano";
    else if (const char* state = std::getenv("XDG_STATE_HOME"); state && *state)
        root = std::string(state) + "/veltrano";
    else if (const char* home = std::getenv("HOME"); home && *home)
        root = std::string(home) + "/.local/state/veltrano";
    else
        root = "/tmp/veltrano-" + std::to_string(geteuid());
    std::error_code ignored;
    std::string path = std::filesystem::absolute(root, ignored).lexically_normal().string();
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    std::filesystem::create_directories(path + "/drives/c", ignored);
    for (const char* folder : {"registry", "services", "eventlog"})
        std::filesystem::create_directory(path + '/' + folder, ignored);
    // Every account may make named objects; nobody removes another's.
    const std::string objects = path + "/objects";
    if (std::filesystem::create_directory(objects, ignored))
        chmod(objects.c_str(), 01777);
    return path;
}

} // namespace

const std::string& MachineRoot()
{
    static const std::string& root = *new std::string(ChooseRoot());
    return root;
}

std::string MachineFolder(const char* name)
{
    return MachineRoot() + '/' + name;
}

} // namespace vlt::posix
