// The views of sections that are mapped in this process.
#pragma once

#include "platform/posix/kernel/NamedBlock.h"

#include <cstddef>
#include <memory>

namespace vlt::posix
{

struct View {
    std::unique_ptr<GuardedMapping> mapping;
    bool write = false;
    std::shared_ptr<NamedBlock> block = nullptr; // takes the mapping back
};

struct ViewRegion {
    char* base;
    std::size_t length; // whole pages
    bool write;
};

// Returns its base.
void* AddView(View view);
// The view that an address lies in; false when there is none.
bool FindView(const void* address, ViewRegion& region) noexcept;
// Ends the view that an address lies in; false when there is none.
bool RemoveView(const void* address) noexcept;

} // namespace vlt::posix
