#include "platform/posix/kernel/NamedBlock.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/kernel/BlockPool.h"
#include "platform/posix/kernel/ObjectName.h"

#include <cstring>
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
    if (m_parks && m_hold == Hold::GivenUp)
        m_file.Release(); // the file must not stay for ever
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
    Making making{request, initialise, context};
    if (auto known = BlockPool::Instance().Take(request.name, request.kind, &making)) {
        SetLastError(making.made ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
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
    block->m_forEveryone = request.forEveryone;
    block->m_parks = made && request.dataSize == 0 && BlockPool::Instance().IsMadeAgain(request.name);
    SetLastError(made ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
    return Share(block.release());
}

std::shared_ptr<NamedBlock> NamedBlock::Open(std::u16string_view name, ObjectKind kind)
{
    auto block = BlockPool::Instance().Take(name, kind, nullptr);
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
    if (m_parks) {
        m_file.Park();
        m_hold = Hold::GivenUp;
        return;
    }
    m_hold = m_file.Release() ? Hold::Gone : Hold::GivenUp;
}

bool NamedBlock::Retake(Making* making) noexcept
{
    const ObjectFile::Retaken retaken = m_file.Retake();
    m_hold = retaken == ObjectFile::Retaken::No ? Hold::Gone : Hold::Held;
    // An account that could not remove the dead object's file may have used it for another one.
    const bool same = !m_page || ObjectFile::ParameterIn(m_page.Base()) == m_file.Parameter();
    if (retaken == ObjectFile::Retaken::Held && same)
        return true;
    if (retaken == ObjectFile::Retaken::Dead && same && making && m_parks &&
        making->request.parameter == m_file.Parameter() && making->request.forEveryone == m_forEveryone) {
        std::memset(State(), 0, StateSize);
        making->initialise(State(), making->context);
        making->made = m_file.Revive() && !m_page.IsPatched();
        if (making->made)
            return true;
    }
    m_parks = false; // what is held now goes with the block
    return false;
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
