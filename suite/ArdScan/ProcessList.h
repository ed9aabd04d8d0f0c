// Processes whose accesses are not scanned. An entry ends with its process: the number alone could by
// then belong to another.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace vlt::scan
{

class CProcessList
{
public:
    // False when there is no such process.
    bool Add(std::uint32_t processId);
    bool Remove(std::uint32_t processId); // false when it was not in the list
    bool Contains(std::uint32_t processId) const;

private:
    class Process; // a hold on the process itself, of the host's kind
    struct Entry {
        std::uint32_t id;
        std::shared_ptr<const Process> process;
    };
    static bool Runs(const Process& process);

    std::vector<Entry> m_entries;
};

} // namespace vlt::scan
