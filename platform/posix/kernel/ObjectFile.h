// The file of a named object: its format, and its life by the locks on it.
//
// A page with a header and the object's state, then the data of a section. Whoever holds the object has
// a shared lock on its own open file description (F_OFD_SETLK), which the kernel drops with the process:
// a file that nobody has locked is that of a dead object, whatever it holds. An exclusive lock is taken
// to make the object and to remove a dead one's file, and never kept across a wait. All steps are single
// system calls on the one file: there is no lock on the folder that another process could sit on, and
// whoever is killed between two steps leaves a dead object, which the next one removes. A dead object's
// file also stays for a while when the process that made it is likely to make it again.
//
// A file may be written by whoever may open it, so what is read from it is checked each time, and only
// the state and the data are ever mapped.
#pragma once

#include "platform/posix/core/Fd.h"
#include "platform/posix/core/Object.h"
#include "platform/posix/win32/base.h"

#include <string>
#include <string_view>

namespace vlt::posix
{

class ObjectFile
{
public:
    static constexpr std::size_t StateOffset = 64;
    static constexpr std::size_t StateSize = 64;
    static constexpr std::size_t DataOffset = 4096;

    struct Request {
        std::u16string_view name; // without the namespace; at most ObjectNameLimit
        ObjectKind kind;
        std::uint32_t parameter = 0; // kept with the object; of no meaning here
        bool forEveryone = false;    // mode 0666 instead of 0600
        std::uint64_t dataSize = 0;  // bytes of zeroed data; room for whole pages is taken at once
    };
    // Writes the state of a new object into zeroed memory of StateSize bytes.
    using Initialise = void (*)(void* state, const void* context);

    explicit ObjectFile(std::string path) : m_path(std::move(path)) {}

    // 0 or an error: 5 no access, 6 another kind of object, 1455 no room. Holds the object on success;
    // `made` tells whether it is new.
    DWORD Create(const Request& request, Initialise initialise, const void* context, bool& made);
    // 0 or an error; ERROR_FILE_NOT_FOUND when no living process holds the object.
    DWORD Open(std::u16string_view name, ObjectKind kind);

    // Gives the object up. True when nobody holds it any more: the file is gone.
    bool Release() noexcept;
    // Gives the object up and leaves the file, even if it is a dead object's then.
    void Park() noexcept;

    enum class Retaken { No, Held, Dead };
    // Holds the object again after it was given up. No when it has gone or has changed its size. Dead when
    // nobody holds it, and nobody can until the caller makes it anew with Revive() or calls Release().
    Retaken Retake() noexcept;
    // For the state of a new object that is the same as the old one otherwise. False when others have it.
    bool Revive() noexcept;

    // Of the object whose first page is mapped there.
    static std::uint32_t ParameterIn(const void* page) noexcept;

    int Descriptor() const noexcept { return m_file.Get(); }
    std::uint32_t Parameter() const noexcept { return m_parameter; }
    std::uint64_t DataSize() const noexcept { return m_dataSize; }

private:
    enum class Hold {
        Held, // shared, with other holders
        Dead, // nobody else holds it; locked exclusively
        Busy, // somebody is making or removing it
    };
    enum class Step { Done, Again };

    static Hold TryHold(int file) noexcept;
    // Holds an existing object; Again when it vanished meanwhile. `dead`: locked, left by dead holders.
    Step HoldExisting(Fd file, std::u16string_view name, ObjectKind kind, bool& dead, DWORD& error) noexcept;
    DWORD Check(int file, std::u16string_view name, ObjectKind kind) noexcept;
    Step Make(const Request& request, Initialise initialise, const void* context, DWORD& error);
    Step MakeNamed(const Request& request, Initialise initialise, const void* context, DWORD& error);
    DWORD Fill(int file, const Request& request, Initialise initialise, const void* context);

    std::string m_path;
    Fd m_file;
    std::uint32_t m_parameter = 0;
    std::uint64_t m_dataSize = 0;
};

} // namespace vlt::posix
