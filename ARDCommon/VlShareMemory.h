// One named section of shared memory, backed by the page file.
//
// An object makes or opens its section, maps it as often as needed, one view at a time, and closes it;
// destruction closes. Names are in the 8-bit code page and go to "Global\" unless they are final.
// Nothing throws; a failure is a false result with one trace line, the system's error in it and left as
// the thread's last error. An object is for one thread at a time; what other processes do to the
// contents is for its user to expect.
#pragma once

#include "platform/Unique.h"
#include "platform/win32.h"

#include <cstddef>
#include <string>

class CVlShareMemory
{
public:
    CVlShareMemory() = default;
    CVlShareMemory(const CVlShareMemory&) = delete;
    CVlShareMemory& operator=(const CVlShareMemory&) = delete;
    virtual ~CVlShareMemory();

    // Makes a section of `size` bytes, open to every account, or opens the one that is there with the
    // size and contents that it has. With zeroFill a new one is written with zeros and stays mapped. A
    // size of 0 is the system's to refuse.
    bool Create(const char* name, LONG size, bool zeroFill, bool nameIsFinal) noexcept;

    // False as well when there is no section of that name, or none that may be written.
    bool Open(const char* name, bool nameIsFinal) noexcept;

    // Maps the whole section. Ends an earlier view. *view is null on failure.
    bool Map(void** view, bool readOnly) noexcept;
    void Unmap() noexcept;
    void Close() noexcept;

    // How many bytes from the start of the view can be touched: the section's size in whole pages. Less
    // when its maker has only reserved memory for it, 0 without a view.
    std::size_t MappedSize() const noexcept;

private:
    bool SetName(const char* name, bool nameIsFinal) noexcept;

    vlt::KernelHandle m_mapping;
    void* m_view = nullptr;
    std::string m_name; // the one given to the system
};
