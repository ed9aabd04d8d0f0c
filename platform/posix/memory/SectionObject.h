// A section behind a handle.
#pragma once

#include "platform/posix/core/Fd.h"
#include "platform/posix/core/Object.h"
#include "platform/posix/kernel/NamedBlock.h"
#include "platform/posix/win32/memory.h"

#include <memory>

namespace vlt::posix
{

class SectionObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Section;

    SectionObject(std::shared_ptr<NamedBlock> block, DWORD access) noexcept;
    SectionObject(Fd memory, std::uint64_t size) noexcept;

    // Unnamed, size above 0; null with the last error.
    static std::unique_ptr<SectionObject> MakeUnnamed(std::uint64_t size);

    // Null with the last error. `size` 0 is the whole section.
    void* Map(DWORD access, std::size_t size);

    void OnHandleClosed() noexcept override;

private:
    const DWORD m_access;
    const std::uint64_t m_size; // whole pages
    std::shared_ptr<NamedBlock> m_block;
    Fd m_memory; // of an unnamed section
};

} // namespace vlt::posix
