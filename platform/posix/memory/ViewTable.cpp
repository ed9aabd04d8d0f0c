#include "platform/posix/memory/ViewTable.h"

#include <functional>
#include <map>
#include <mutex>
#include <utility>

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
    const auto offset = static_cast<const char*>(address) - static_cast<const char*>(found->first);
    return static_cast<std::size_t>(offset) < found->second.mapping->Length() ? found : table.views.end();
}

} // namespace

void* AddView(View view)
{
    void* const base = view.mapping->Base();
    Table& table = Views();
    const std::lock_guard lock(table.lock);
    table.views.emplace(base, std::move(view));
    return base;
}

bool FindView(const void* address, ViewRegion& region) noexcept
{
    Table& table = Views();
    const std::lock_guard lock(table.lock);
    const auto found = Find(table, address);
    if (found == table.views.end())
        return false;
    const GuardedMapping& mapping = *found->second.mapping;
    region = {static_cast<char*>(mapping.Base()), mapping.Length(), found->second.write};
    return true;
}

bool RemoveView(const void* address) noexcept
{
    Table& table = Views();
    View view;
    {
        const std::lock_guard lock(table.lock);
        const auto found = Find(table, address);
        if (found == table.views.end())
            return false;
        view = std::move(found->second);
        table.views.erase(found); // before it is unmapped and its address given to another
    }
    if (view.block)
        view.block->KeepIdleView(view.write, std::move(view.mapping));
    return true;
}

} // namespace vlt::posix
