// The registry record of the pattern rollback (RollbackFormat.h), value by value.
//
// Each value is read and written by itself, without a lock: Get gives the default when the value is
// missing or of another type, Set creates the key and is false when it could not write. The updater and
// the user interface use the same values.
#pragma once

#include "ARDCommon/RollbackFormat.h"
#include "platform/win32.h"

namespace RollbackState
{

class Number // REG_DWORD
{
public:
    constexpr explicit Number(const vlt::RollbackValue::Number& value) : m_name(value.name), m_default(value.fallback)
    {
    }
    DWORD Get() const;
    bool Set(DWORD value) const;

protected:
    DWORD Default() const { return m_default; }

private:
    LPCWSTR m_name;
    DWORD m_default;
};

class Flag : private Number // stored as 1 or 0; any number but 0 is set
{
public:
    using Number::Number;
    bool Get() const { return Number::Get() != 0; }
    bool Set(bool value) const { return Number::Set(value ? 1 : 0); }
};

class Frequency : private Number // 0 stands for the default
{
public:
    using Number::Number;
    using Number::Set;
    DWORD Get() const;
};

// REG_SZ. The narrow form is in the system code page. A stored text of more than 511 characters reads as
// empty.
class Text
{
public:
    constexpr explicit Text(LPCWSTR name) : m_name(name) {}
    std::string Get() const;
    WString GetW() const;
    bool Set(const std::string& value) const;
    bool SetW(const WString& value) const;

private:
    LPCWSTR m_name;
};

inline constexpr Flag EnableAuto{vlt::RollbackValue::EnableAuto};
inline constexpr Flag EnableNotify{vlt::RollbackValue::EnableNotify};
inline constexpr Frequency FreqNormal{vlt::RollbackValue::FreqNormal};
inline constexpr Frequency FreqAbnormal{vlt::RollbackValue::FreqAbnormal};
inline constexpr Flag RollbackFlag{vlt::RollbackValue::RollbackFlag};
inline constexpr Flag RtsStatus{vlt::RollbackValue::RtsStatus};
inline constexpr Number NormalCounter{vlt::RollbackValue::NormalCounter};
inline constexpr Number AbnormalCounter{vlt::RollbackValue::AbnormalCounter};
inline constexpr Flag NotifyFlag{vlt::RollbackValue::NotifyFlag};

inline constexpr Text RbPatName{vlt::RollbackValue::RbPatName};
inline constexpr Text RbBeforeNo{vlt::RollbackValue::RbBeforeNo};
inline constexpr Text EngVer{vlt::RollbackValue::EngVer};
inline constexpr Text PrgVer{vlt::RollbackValue::PrgVer};
inline constexpr Text RsPatName{vlt::RollbackValue::RsPatName};
inline constexpr Text RsPatNo{vlt::RollbackValue::RsPatNo};
inline constexpr Text MoreInfo{vlt::RollbackValue::MoreInfo};
inline constexpr Text MoreInfoName{vlt::RollbackValue::MoreInfoName};

// Whether a pattern is on probation and may be rolled back.
bool IsProbation();

// Ends the probation and clears its counters. False when one of them could not be written.
bool Reset();

} // namespace RollbackState
