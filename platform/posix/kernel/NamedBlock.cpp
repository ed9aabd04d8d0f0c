#include "platform/posix/kernel/NamedBlock.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/kernel/BlockPool.h"
#include "platform/posix/kernel/ObjectName.h"

#include <sys/mman.h>
#include <utility>

namespace vlt::posix
{

NamedBlock::NamedBlock(std::u16string_view name, ObjectKind kind, ObjectFile file)
    : m_name(name), m_kind(kind), m_file(std::move(file))
{
}

NamedBlock::~NamedBlock()
{
    ReleaseName();
}

bool NamedBlock::MapState() noexcept
{
    if (m_kind == ObjectKind::Section)
        return true;
    m_page = GuardedMapping(m_file.Descriptor(), 0, DataOffset, PROT_READ | PROT_WRITE);
    if (m_page)
        return true;
    SetLastErrorFromErrno();
    return false;
}

void* NamedBlock::State() const noexcept
{
    return m_page ? static_cast<char*>(m_page.Base()) + ObjectFile::StateOffset : nullptr;
}

std::shared_ptr<NamedBlock> NamedBlock::Share(NamedBlock* block)
{
    return {block, &NamedBlock::Retire};
}

std::shared_ptr<NamedBlock> NamedBlock::Create(const Request& request, Initialise initialise, const void* context)
{
    if (auto known = BlockPool::Instance().Take(request.name, request.kind)) {
        SetLastError(ERROR_ALREADY_EXISTS);
        return Share(known.release());
    }
    std::string fileName;
    Request whole = request;
    if (!ObjectFileName(whole.name, fileName))
        return nullptr;
    ObjectFile file(MachineFolder("objects") + '/' + fileName);
    bool made = false;
    if (const DWORD error = file.Create(whole, initialise, context, made); error != 0) {
        SetLastError(error);
        return nullptr;
    }
    auto block = std::unique_ptr<NamedBlock>(new NamedBlock(request.name, request.kind, std::move(file)));
    if (!block->MapState())
        return nullptr;
    SetLastError(made ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
    return Share(block.release());
}

std::shared_ptr<NamedBlock> NamedBlock::Open(std::u16string_view name, ObjectKind kind)
{
    auto block = BlockPool::Instance().Take(name, kind);
    if (!block) {
        const std::u16string_view given = name;
        std::string fileName;
        if (!ObjectFileName(name, fileName))
            return nullptr;
        ObjectFile file(MachineFolder("objects") + '/' + fileName);
        if (const DWORD error = file.Open(name, kind); error != 0) {
            SetLastError(error);
            return nullptr;
        }
        block.reset(new NamedBlock(given, kind, std::move(file)));
        if (!block->MapState())
            return nullptr;
    }
    SetLastError(ERROR_SUCCESS);
    return Share(block.release());
}

void NamedBlock::ReleaseName() noexcept
{
    if (m_hold != Hold::Held)
        return;
    const ErrnoKeeper keeper;
    m_hold = m_file.Release() ? Hold::Gone : Hold::GivenUp;
}

void NamedBlock::Retire(NamedBlock* block) noexcept
{
    std::unique_ptr<NamedBlock> owned(block);
    owned->ReleaseName();
    if (owned->m_hold == Hold::GivenUp && !owned->m_page.IsPatched())
        BlockPool::Instance().Put(std::move(owned));
}

std::unique_ptr<GuardedMapping> NamedBlock::TakeIdleView(bool write) noexcept
{
    const std::lock_guard lock(m_lock);
    return std::move(m_idle[write]);
}

void NamedBlock::KeepIdleView(bool write, std::unique_ptr<GuardedMapping> view) noexcept
{
    if (view->IsPatched())
        return;
    const std::lock_guard lock(m_lock);
    m_idle[write] = std::move(view);
}

} // namespace vlt::posix
