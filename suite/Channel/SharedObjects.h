// The named objects through which vlctl talks to the service: "Global\" names, open to every account.
#pragma once

#include "platform/Unique.h"

#include <string_view>

namespace vlt::suite
{

// The full name of an object, from one in the system code page: "Global\" is put before it unless it is
// there, as the service does with every name that it is given.
WString GlobalName(std::string_view name);
WString ChannelName(const char* channel, const char* suffix);

// Made here, or opened when it is there. Throws std::runtime_error.
KernelHandle ShareEvent(const WString& name, bool manualReset);
KernelHandle ShareSemaphore(const WString& name, LONG count);
// Empty with the last error set on failure. Nobody owns it.
KernelHandle ShareMutex(const WString& name);

// A mapped section, closed by its owner. Others write to it at any time: whoever reads it takes a
// copy and looks at that.
struct Section {
    KernelHandle mapping;
    MappedView view;

    explicit operator bool() const noexcept { return static_cast<bool>(view); }
    void* Data() const noexcept { return view.Get(); }
};

// Both map `size` bytes and are empty with the last error set on failure: ERROR_ACCESS_DENIED also
// when an existing section is smaller than that. After success of the first the last error is
// ERROR_ALREADY_EXISTS when the section was there, else 0.
Section CreateSection(const WString& name, DWORD size);
Section OpenSection(const WString& name, DWORD size);

} // namespace vlt::suite
