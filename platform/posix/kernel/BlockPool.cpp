#include "platform/posix/kernel/BlockPool.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace vlt::posix
{

BlockPool& BlockPool::Instance()
{
    static BlockPool& pool = *new BlockPool; // threads close handles while the process exits
    return pool;
}

std::unique_ptr<NamedBlock> BlockPool::Find(std::u16string_view name, ObjectKind kind)
{
    const std::lock_guard lock(m_lock);
    const auto found = std::find_if(m_blocks.begin(), m_blocks.end(),
                                    [&](const auto& block) { return block->m_kind == kind && block->m_name == name; });
    if (found == m_blocks.end())
        return nullptr;
    std::unique_ptr<NamedBlock> block = std::move(*found);
    m_blocks.erase(found);
    return block;
}

std::unique_ptr<NamedBlock> BlockPool::Take(std::u16string_view name, ObjectKind kind, NamedBlock::Making* making)
{
    // There are several when threads had the object open at once; a dead one's may lie among them.
    while (std::unique_ptr<NamedBlock> block = Find(name, kind)) {
        if (block->Retake(making))
            return block;
    }
    return nullptr;
}

bool BlockPool::IsMadeAgain(std::u16string_view name)
{
    const std::lock_guard lock(m_lock);
    if (m_atEnd)
        return false;
    if (std::find(m_made.begin(), m_made.end(), name) != m_made.end())
        return true;
    if (m_made.empty())
        std::atexit([] { Instance().Empty(); });
    if (m_made.size() == MadeLimit)
        m_made.erase(m_made.begin());
    m_made.emplace_back(name);
    return false;
}

// Nothing is left for a process that ends in order to clean up.
void BlockPool::Empty() noexcept
{
    std::vector<std::unique_ptr<NamedBlock>> blocks;
    const std::lock_guard lock(m_lock);
    m_atEnd = true;
    blocks.swap(m_blocks);
}

void BlockPool::Put(std::unique_ptr<NamedBlock> block) noexcept
{
    if (block->DataSize() > DataLimit)
        return;
    const std::lock_guard lock(m_lock);
    if (m_atEnd)
        return;
    if (m_blocks.size() == Limit) {
        std::swap(m_blocks.front(), block);
        std::rotate(m_blocks.begin(), m_blocks.begin() + 1, m_blocks.end());
    } else {
        m_blocks.reserve(Limit);
        m_blocks.push_back(std::move(block));
    }
}

} // namespace vlt::posix
