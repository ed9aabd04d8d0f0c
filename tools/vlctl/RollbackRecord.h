// The registry record of the pattern rollback, as the updater and the user interface use it.
#pragma once

#include "ARDCommon/RollbackFormat.h"
#include "platform/Unique.h"

#include <string>

namespace vlt::ctl
{

// Functions throw CommandError when the registry refuses.
class RollbackRecord
{
public:
    RollbackRecord();

    DWORD Get(const RollbackValue::Number& value) const;
    void Set(const RollbackValue::Number& value, DWORD number) const;
    WString Get(const WCHAR* name) const;
    void Set(const WCHAR* name, const WString& text) const;

    // A new pattern is on probation from now on: what was counted was counted for another.
    void StartProbation() const;
    void EndProbation() const;

private:
    RegKey m_key;
};

} // namespace vlt::ctl
