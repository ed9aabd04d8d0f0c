#include "platform/posix/system/ElfFile.h"

#include "platform/posix/core/Fd.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <vector>

namespace vlt::posix
{
namespace
{

constexpr std::uint64_t kMostSectionBytes = 1 << 20;

// Reads with bounds checked against the size of the file; it is never mapped, since another process
// may cut it short at any time.
class ElfReader
{
public:
    explicit ElfReader(const std::string& hostPath)
        : m_fd(open(hostPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY))
    {
        struct stat status;
        if (!m_fd || fstat(m_fd.Get(), &status) != 0 || !S_ISREG(status.st_mode))
            return;
        m_size = static_cast<std::uint64_t>(status.st_size);
        m_valid = ReadAt(0, &m_header, sizeof m_header) && std::memcmp(m_header.e_ident, ELFMAG, SELFMAG) == 0 &&
                  m_header.e_ident[EI_CLASS] == ELFCLASS64 && m_header.e_ident[EI_DATA] == ELFDATA2LSB &&
                  m_header.e_machine == EM_X86_64;
    }

    bool IsValid() const { return m_valid; }
    const Elf64_Ehdr& Header() const { return m_header; }

    bool Holds(std::uint64_t offset, std::uint64_t size) const { return offset <= m_size && size <= m_size - offset; }

    bool ReadAt(std::uint64_t offset, void* data, std::size_t size) const
    {
        return Holds(offset, size) &&
               pread(m_fd.Get(), data, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
    }

    template <typename Entry>
    std::vector<Entry> ReadTable(std::uint64_t offset, std::size_t count, std::size_t entrySize) const
    {
        if (entrySize != sizeof(Entry) || !Holds(offset, count * sizeof(Entry)))
            return {};
        std::vector<Entry> table(count);
        if (!ReadAt(offset, table.data(), count * sizeof(Entry)))
            table.clear();
        return table;
    }

    std::optional<std::string> ReadSection(const Elf64_Shdr& section) const
    {
        if (section.sh_type == SHT_NOBITS || section.sh_size > kMostSectionBytes)
            return std::nullopt;
        std::string bytes(section.sh_size, '\0');
        if (!ReadAt(section.sh_offset, bytes.data(), bytes.size()))
            return std::nullopt;
        return bytes;
    }

private:
    Fd m_fd;
    std::uint64_t m_size = 0;
    Elf64_Ehdr m_header = {};
    bool m_valid = false;
};

} // namespace

bool IsLoadableLibrary(const std::string& hostPath)
{
    const ElfReader file(hostPath);
    if (!file.IsValid() || file.Header().e_type != ET_DYN)
        return false;
    const auto segments =
        file.ReadTable<Elf64_Phdr>(file.Header().e_phoff, file.Header().e_phnum, file.Header().e_phentsize);
    bool hasDynamic = false;
    for (const Elf64_Phdr& segment : segments) {
        if ((segment.p_type == PT_LOAD || segment.p_type == PT_DYNAMIC) &&
            !file.Holds(segment.p_offset, segment.p_filesz))
            return false;
        hasDynamic = hasDynamic || segment.p_type == PT_DYNAMIC;
    }
    return hasDynamic;
}

std::optional<std::string> ReadElfSection(const std::string& hostPath, std::string_view name)
{
    const ElfReader file(hostPath);
    if (!file.IsValid())
        return std::nullopt;
    const Elf64_Ehdr& header = file.Header();
    const auto sections = file.ReadTable<Elf64_Shdr>(header.e_shoff, header.e_shnum, header.e_shentsize);
    if (header.e_shstrndx >= sections.size())
        return std::nullopt;
    const std::optional<std::string> names = file.ReadSection(sections[header.e_shstrndx]);
    if (!names)
        return std::nullopt;
    for (const Elf64_Shdr& section : sections) {
        if (section.sh_name < names->size() && name == names->c_str() + section.sh_name)
            return file.ReadSection(section);
    }
    return std::nullopt;
}

} // namespace vlt::posix
