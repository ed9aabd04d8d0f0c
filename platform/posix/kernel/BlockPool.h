// The blocks of objects that this process had open not long ago.
//
// They hold no lock, so they keep no name alive; each costs a descriptor and its mappings, and a dead
// object's file when it is one of those that this process makes again and again. At most 64: when another
// one comes, that which was put in first goes. At the end of the process the files go.
#pragma once

#include "platform/posix/kernel/NamedBlock.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace vlt::posix
{

class BlockPool
{
public:
    static BlockPool& Instance();

    // A block that was made for that name, which holds the object again; null when there is none or the object has
    // gone. With `making` also a block whose object has been made anew.
    std::unique_ptr<NamedBlock> Take(std::u16string_view name, ObjectKind kind, NamedBlock::Making* making);
    // A block that has given its name up.
    void Put(std::unique_ptr<NamedBlock> block) noexcept;
    // Takes down that an object of that name is made; whether it was so not long ago.
    bool IsMadeAgain(std::u16string_view name);

private:
    static constexpr std::size_t Limit = 64;
    static constexpr std::size_t MadeLimit = 16;
    static constexpr std::uint64_t DataLimit = 64 * 1024; // of one section: larger ones are not kept

    void Empty() noexcept;
    std::unique_ptr<NamedBlock> Find(std::u16string_view name, ObjectKind kind);

    std::mutex m_lock;
    std::vector<std::unique_ptr<NamedBlock>> m_blocks;
    std::vector<std::u16string> m_made; // the last one at the end
    bool m_atEnd = false;
};

} // namespace vlt::posix
