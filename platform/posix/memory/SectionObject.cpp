#include "platform/posix/memory/SectionObject.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/memory/ViewTable.h"

#include <fcntl.h>
#include <limits>
#include <sys/mman.h>
#include <utility>

namespace vlt::posix
{
namespace
{

constexpr std::uint64_t kPage = NamedBlock::DataOffset;

constexpr std::uint64_t WholePages(std::uint64_t size) noexcept
{
    return (size + kPage - 1) / kPage * kPage;
}

} // namespace

SectionObject::SectionObject(std::shared_ptr<NamedBlock> block, DWORD access) noexcept
    : Object(kKind), m_access(access), m_size(WholePages(block->DataSize())), m_block(std::move(block))
{
}

SectionObject::SectionObject(Fd memory, std::uint64_t size) noexcept
    : Object(kKind), m_access(SECTION_ALL_ACCESS), m_size(WholePages(size)), m_memory(std::move(memory))
{
}

std::unique_ptr<SectionObject> SectionObject::MakeUnnamed(std::uint64_t size)
{
    Fd memory(memfd_create("section", MFD_CLOEXEC));
    if (!memory) {
        SetLastErrorFromErrno();
        return nullptr;
    }
    const int error = size <= std::numeric_limits<off_t>::max() - kPage
                          ? posix_fallocate(memory.Get(), 0, static_cast<off_t>(WholePages(size)))
                          : EFBIG;
    if (error != 0) {
        SetLastError(ERROR_COMMITMENT_LIMIT);
        return nullptr;
    }
    SetLastError(ERROR_SUCCESS);
    return std::make_unique<SectionObject>(std::move(memory), size);
}

void* SectionObject::Map(DWORD access, std::size_t size)
{
    const bool write = (access & FILE_MAP_WRITE) != 0;
    if ((m_access & (write ? FILE_MAP_WRITE : FILE_MAP_READ)) == 0 || size > m_size) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    const std::size_t length = size == 0 ? m_size : WholePages(size);
    std::unique_ptr<GuardedMapping> mapping;
    if (m_block && length == m_size)
        mapping = m_block->TakeIdleView(write);
    if (!mapping)
        mapping = std::make_unique<GuardedMapping>(m_block ? m_block->Descriptor() : m_memory.Get(),
                                                   m_block ? static_cast<off_t>(NamedBlock::DataOffset) : 0, length,
                                                   write ? PROT_READ | PROT_WRITE : PROT_READ);
    if (!*mapping) {
        SetLastErrorFromErrno();
        return nullptr;
    }
    return AddView({.mapping = std::move(mapping), .write = write, .block = length == m_size ? m_block : nullptr});
}

void SectionObject::OnHandleClosed() noexcept
{
    if (m_block)
        m_block->ReleaseName();
}

} // namespace vlt::posix
