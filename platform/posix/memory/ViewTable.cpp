#include "platform/posix/memory/ViewTable.h"

#include <functional>
#include <map>
#include <mutex>
#include <sys/mman.h>

namespace vlt::posix
{
namespace
{

struct Table {
    std::mutex lock;
    std::map<const void*, View, std::less<>> views; // by their base
};

// Never destroyed: threads use views while the process exits.
Table& Views()
{
    static Table& table = *new Table;
    return table;
}

// Call with the lock held.
auto Find(Table& table, const void* address) noexcept
{
    auto found = table.views.upper_bound(address);
    if (found == table.views.begin())
        return table.views.end();
    --found;
    const auto offset =
        static_cast<std::size_t>(static_cast<const char*>(address) - static_cast<char*>(found->second.base));
    return offset < found->second.length ? found : table.views.end();
}

} // namespace

void AddView(void* base, std::size_t length, bool write)
{
    Table& table = Views();
    const std::lock_guard lock(table.lock);
    table.views.insert_or_assign(base, View{base, length, write});
}

bool FindView(const void* address, View& view) noexcept
{
    Table& table = Views();
    const std::lock_guard lock(table.lock);
    const auto found = Find(table, address);
    if (found == table.views.end())
        return false;
    view = found->second;
    return true;
}

bool RemoveView(const void* address) noexcept
{
    Table& table = Views();
    const std::lock_guard lock(table.lock);
    const auto found = Find(table, address);
    if (found == table.views.end())
        return false;
    // Under the lock: the address may be given to another view at once.
    munmap(found->second.base, found->second.length);
    table.views.erase(found);
    return true;
}

} // namespace vlt::posix
