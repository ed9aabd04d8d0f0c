// What the handles to a named kernel object share: its file and the memory of its state.
//
// Blocks whose last handle in this process was closed are kept for a while with what they have mapped,
// without holding the object: opening it again then costs a look at the locks of its file instead of a
// new descriptor and new mappings. The file of an object without data that this process makes again and
// again stays, too, when nobody holds it: made anew it costs the same look, and no new file. See BlockPool.
#pragma once

#include "platform/posix/core/Object.h"
#include "platform/posix/kernel/FaultGuard.h"
#include "platform/posix/kernel/ObjectFile.h"

#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace vlt::posix
{

class NamedBlock
{
public:
    static constexpr std::size_t StateSize = ObjectFile::StateSize;
    static constexpr std::size_t DataOffset = ObjectFile::DataOffset;
    using Request = ObjectFile::Request; // with the namespace in the name
    using Initialise = ObjectFile::Initialise;

    // Null with the last error: 5 no access, 6 another kind, 1455 no room, and those of ObjectFileName.
    // On success the last error is 0, or ERROR_ALREADY_EXISTS when the object was there; it is then as
    // it was made, whatever was requested.
    static std::shared_ptr<NamedBlock> Create(const Request& request, Initialise initialise, const void* context);
    // Null with ERROR_FILE_NOT_FOUND when no living process holds the name.
    static std::shared_ptr<NamedBlock> Open(std::u16string_view name, ObjectKind kind);

    ~NamedBlock();
    NamedBlock(const NamedBlock&) = delete;
    NamedBlock& operator=(const NamedBlock&) = delete;

    // Null for a section, which has no state.
    void* State() const noexcept;
    std::uint32_t Parameter() const noexcept { return m_file.Parameter(); }
    std::uint64_t DataSize() const noexcept { return m_file.DataSize(); }
    int Descriptor() const noexcept { return m_file.Descriptor(); }

    // Gives the name up; with the last holder the file goes. The memory stays until destruction.
    void ReleaseName() noexcept;

    // Mappings of the whole data that nobody uses: one to read, one to write.
    std::unique_ptr<GuardedMapping> TakeIdleView(bool write) noexcept;
    void KeepIdleView(bool write, std::unique_ptr<GuardedMapping> view) noexcept;

private:
    friend class BlockPool;

    NamedBlock(std::u16string_view name, ObjectKind kind, ObjectFile file);
    bool MapState() noexcept;
    // Holds the object again after it was given up; `made` when that needed its making. Null: only an
    // object that is there will do.
    struct Making {
        const Request& request;
        Initialise initialise;
        const void* context;
        bool made = false;
    };
    bool Retake(Making* making) noexcept;
    static std::shared_ptr<NamedBlock> Share(NamedBlock* block);
    // Instead of its destruction: keeps the block in the pool when its object is still there.
    static void Retire(NamedBlock* block) noexcept;

    enum class Hold { Held, GivenUp, Gone };

    const std::u16string m_name; // as it was given
    const ObjectKind m_kind;
    ObjectFile m_file;
    Hold m_hold = Hold::Held;
    bool m_forEveryone = false; // when it was made here
    bool m_parks = false;       // the file stays when the name is given up
    GuardedMapping m_page;
    std::mutex m_lock; // of the idle views
    std::array<std::unique_ptr<GuardedMapping>, 2> m_idle;
};

// From security attributes: null DACL -> everyone, none -> the creator. False with
// ERROR_NOT_SUPPORTED for anything else.
bool AccessFromSecurity(const SECURITY_ATTRIBUTES* security, bool& forEveryone) noexcept;

} // namespace vlt::posix
