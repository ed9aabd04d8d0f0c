// The least that a permission responder can be, in a process of its own: the floor of guarded opens.
#pragma once

#include <filesystem>
#include <sys/types.h>

namespace bench
{

class Responder
{
public:
    enum class Work {
        Nothing, // answer "allow" at once
        Hash,    // read the file and hash it with SHA-256 first
        Deny,    // the same, and answer "deny"
        Ignore,  // answer, and have the kernel ignore the file from then on
    };

    Responder(const std::filesystem::path& folder, Work work); // returns when the folder is marked
    ~Responder();                                              // ends the process

    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

private:
    pid_t m_process = -1;
};

} // namespace bench
