#include "ARDCommon/RollbackState.h"

#include "ARDCommon/Registry.h"
#include "platform/Text.h"

namespace RollbackState
{

namespace
{

constexpr DWORD kTextSize = 1024; // of which the reader fills at most half

} // namespace

DWORD Number::Get() const
{
    return vlt::GetRegDword(HKEY_LOCAL_MACHINE, vlt::kRollbackKey, m_name, m_default);
}

bool Number::Set(DWORD value) const
{
    return vlt::SetRegDword(HKEY_LOCAL_MACHINE, vlt::kRollbackKey, m_name, value);
}

DWORD Frequency::Get() const
{
    const DWORD value = Number::Get();
    return value != 0 ? value : Default();
}

std::string Text::Get() const
{
    return vlt::ToNarrow(GetW());
}

WString Text::GetW() const
{
    WCHAR text[kTextSize] = {};
    vlt::GetRegString(HKEY_LOCAL_MACHINE, vlt::kRollbackKey, m_name, TEXT(""), text, kTextSize);
    return text;
}

bool Text::Set(const std::string& value) const
{
    return SetW(vlt::ToWide(value));
}

bool Text::SetW(const WString& value) const
{
    return vlt::SetRegString(HKEY_LOCAL_MACHINE, vlt::kRollbackKey, m_name, value.c_str());
}

bool IsProbation()
{
    return EnableAuto.Get() && RollbackFlag.Get();
}

bool Reset()
{
    const bool ended = RollbackFlag.Set(false);
    const bool normal = NormalCounter.Set(0);
    return AbnormalCounter.Set(0) && normal && ended;
}

} // namespace RollbackState
