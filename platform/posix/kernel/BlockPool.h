// The blocks of objects that this process had open not long ago.
//
// They hold no lock, so they keep no name alive; each costs a descriptor and its mappings. At most 64:
// when another one comes, that which was put in first goes.
#pragma once

#include "platform/posix/kernel/NamedBlock.h"

#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

namespace vlt::posix
{

class BlockPool
{
public:
    static BlockPool& Instance();

    // A block that was made for that name, which holds the object again; null when there is none or the object has
    // gone.
    std::unique_ptr<NamedBlock> Take(std::u16string_view name, ObjectKind kind);
    // A block that has given its name up.
    void Put(std::unique_ptr<NamedBlock> block) noexcept;

private:
    static constexpr std::size_t Limit = 64;
    static constexpr std::uint64_t DataLimit = 64 * 1024; // of one section: larger ones are not kept

    std::unique_ptr<NamedBlock> Find(std::u16string_view name, ObjectKind kind);

    std::mutex m_lock;
    std::vector<std::unique_ptr<NamedBlock>> m_blocks;
};

} // namespace vlt::posix
