// A handle to a process.
#pragma once

#include "platform/posix/core/HandleTable.h"
#include "platform/posix/kernel/ProcessRecord.h"

namespace vlt::posix
{

class ProcessObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Process;

    ProcessObject(std::shared_ptr<ProcessRecord> record, DWORD access) noexcept
        : Object(kKind), m_record(std::move(record)), m_access(access)
    {
    }

    // False with ERROR_ACCESS_DENIED.
    bool Grants(DWORD access) const noexcept
    {
        if ((m_access & access) == access)
            return true;
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    ProcessRecord& Record() noexcept { return *m_record; }
    Waitable* AsWaitable() noexcept override { return (m_access & SYNCHRONIZE) != 0 ? m_record.get() : nullptr; }
    void OnHandleClosed() noexcept override { m_record->OnHandleClosed(); }

private:
    const std::shared_ptr<ProcessRecord> m_record;
    const DWORD m_access;
};

// Makes the handles and fills the record that a start returns. When it cannot, the child is ended and the
// last error set.
bool DeliverChild(pid_t id, struct PROCESS_INFORMATION& information);

} // namespace vlt::posix
