// The registry record of the pattern rollback: HKLM\Software\Veltrano\Ardentis\15\Rollback, 32-bit view.
//
// Each value is read and written by itself, without a lock: Get gives the default when the value is
// missing or of another type, Set creates the key and is false when it could not write. The updater and
// the user interface use the same values.
#pragma once

#include "platform/win32.h"

namespace RollbackState
{

class Number // REG_DWORD
{
public:
    constexpr Number(LPCWSTR name, DWORD fallback) : m_name(name), m_default(fallback) {}
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

inline constexpr Flag EnableAuto{TEXT("EnableAuto"), 1};
inline constexpr Flag EnableNotify{TEXT("EnableNotify"), 1};         // for the user interface
inline constexpr Frequency FreqNormal{TEXT("FreqNormal"), 2};        // normal stops that prove a pattern good
inline constexpr Frequency FreqAbnormal{TEXT("FreqAbnormal"), 2};    // abnormal ends in a row that condemn it
inline constexpr Flag RollbackFlag{TEXT("RollbackFlag"), 0};         // a new pattern is on probation
inline constexpr Flag RtsStatus{TEXT("RTSStatus"), 0};               // set while the service runs
inline constexpr Number NormalCounter{TEXT("NormalCounter"), 0};     // normal stops during the probation
inline constexpr Number AbnormalCounter{TEXT("AbnormalCounter"), 0}; // abnormal ends in a row during it
inline constexpr Flag NotifyFlag{TEXT("NotifyFlag"), 0};             // the user is to be told of a rollback

// The latest rollback: the pattern file's name, the pattern number that was in force, the engine's and
// the program's version.
inline constexpr Text RbPatName{TEXT("RB_PatName")};
inline constexpr Text RbBeforeNo{TEXT("RB_BeforeNo")};
inline constexpr Text EngVer{TEXT("EngVer")};
inline constexpr Text PrgVer{TEXT("PrgVer")};

// A pattern that was restored after its rollback: the file's name and the pattern number.
inline constexpr Text RsPatName{TEXT("RS_PatName")};
inline constexpr Text RsPatNo{TEXT("RS_PatNo")};

// Text and caption for the user interface.
inline constexpr Text MoreInfo{TEXT("MoreInfo")};
inline constexpr Text MoreInfoName{TEXT("MoreInfoName")};

// Whether a pattern is on probation and may be rolled back.
bool IsProbation();

// Ends the probation and clears its counters.
void Reset();

} // namespace RollbackState
