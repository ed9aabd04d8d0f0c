// The file behind a named kernel object.
//
// A file of MachineRoot/objects holds a header and the object's atomics. Every handle maps it and
// keeps a descriptor of its own with a shared flock, which the kernel drops with the process: a file
// without a lock has no living holder. Creating, opening and closing are serialised by a short lock
// on the folder's lock file; nothing is ever locked across a wait or a wake. So a process may be
// killed at any instant: what it leaves is a file without a holder, which the next one replaces.
#pragma once

#include "platform/posix/core/Object.h"
#include "platform/posix/win32/base.h"

#include <memory>
#include <string>
#include <string_view>

namespace vlt::posix
{

// Takes the namespace prefix off the name of an object and gives the name of its file. False with the
// last error: 206 for more than 260 units, 3 for a backslash that ends no namespace prefix.
bool ObjectFileName(std::u16string_view& name, std::string& file);

class NamedBlock
{
public:
    static constexpr std::size_t StateSize = 64;

    struct Request {
        std::u16string_view name;
        ObjectKind kind;
        std::uint32_t parameter = 0; // kept with the object; of no meaning here
        bool forEveryone = false;    // mode 0666 instead of 0600
        std::uint64_t dataSize = 0;  // bytes of zeroed memory beside the state, whole pages of it reserved
    };

    // Where the data begins in the object's file; the page before it is the object's own.
    static constexpr std::size_t DataOffset = 4096;

    // Writes the state of a new object into zeroed memory of StateSize bytes.
    using Initialise = void (*)(void* state, const void* context);

    // Null with the last error: 5 no access, 6 another kind, 112 or 1455 no room, and those of
    // ObjectFileName. On success the last error is 0, or ERROR_ALREADY_EXISTS when the object was there,
    // with the data size it was made with.
    static std::unique_ptr<NamedBlock> Create(const Request& request, Initialise initialise, const void* context);
    // Null with ERROR_FILE_NOT_FOUND when no living process holds the name.
    static std::unique_ptr<NamedBlock> Open(std::u16string_view name, ObjectKind kind);

    ~NamedBlock();
    NamedBlock(const NamedBlock&) = delete;
    NamedBlock& operator=(const NamedBlock&) = delete;

    void* State() const noexcept;
    std::uint32_t Parameter() const noexcept;
    std::uint64_t DataSize() const noexcept { return m_dataSize; }
    // Of the object's file, for mapping its data; -1 when the name was given up.
    int Descriptor() const noexcept { return m_descriptor; }

    // Gives the name up; with the last holder the file goes. The memory stays until destruction.
    void ReleaseName() noexcept;

private:
    NamedBlock(std::string path, int descriptor, void* memory, std::uint64_t dataSize) noexcept;

    std::string m_path;
    int m_descriptor;
    void* m_memory;
    std::uint64_t m_dataSize;
};

// From security attributes: null DACL -> everyone, none -> the creator. False with
// ERROR_NOT_SUPPORTED for anything else.
bool AccessFromSecurity(const SECURITY_ATTRIBUTES* security, bool& forEveryone) noexcept;

} // namespace vlt::posix
