// The programs at the other ends of the broadcast and request channels. Linking ChannelPeers.cpp
// registers them as bodies of child processes:
//
//   receiver BASE NAME MODE [COUNT] [EVENT]   registers section NAME in the list of channel BASE, prints
//                                             "ready" and takes messages; woken by the event with the
//                                             suffix EVENT, "_evt_sent" if not given. MODE:
//                                               count  COUNT messages whose first number goes up by 1
//                                                      from 0, then "done" and its end
//                                               print  each payload as hexadecimal digits
//                                               hold   prints "written" and leaves the flag set
//   requester BASE PID ADD [MODE]             sends a request and waits for the acknowledgement; exit
//                                             code 0 with it. MODE noack: makes no event for it, prints
//                                             "sent" and stays
#pragma once

#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <atomic>
#include <string>

namespace vlt::test
{

// A mapped section, made or opened. Throws std::runtime_error when that fails.
class Section
{
public:
    Section(const std::string& name, DWORD size);
    ~Section();
    Section(const Section&) = delete;
    Section& operator=(const Section&) = delete;

    char* Bytes() const { return m_view; }
    std::atomic_ref<std::uint32_t> Number(std::size_t index) const;

private:
    KernelHandle m_mapping;
    char* m_view;
};

} // namespace vlt::test
