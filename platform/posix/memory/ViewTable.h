// The views of sections that are mapped in this process.
#pragma once

#include <cstddef>

namespace vlt::posix
{

struct View {
    void* base;
    std::size_t length; // whole pages
    bool write;
};

void AddView(void* base, std::size_t length, bool write);
// The view that an address lies in; false when there is none.
bool FindView(const void* address, View& view) noexcept;
// Unmaps the view that an address lies in; false when there is none.
bool RemoveView(const void* address) noexcept;

} // namespace vlt::posix
